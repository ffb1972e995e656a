# Warnings stay private to the project's own targets.
function(corvane_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
  if(CORVANE_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
