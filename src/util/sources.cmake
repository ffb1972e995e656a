# Utilities: every .cpp here is part of the library (several developers add files, so glob),
# plus the libraries the helpers stand on: ICU (regular expressions, number and date formats),
# libplist (keyed archives) and nettle (DES).
file(GLOB CORVANE_UTIL_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/*.cpp)
target_sources(corvane_core PRIVATE ${CORVANE_UTIL_SOURCES})

find_package(PkgConfig REQUIRED)
pkg_check_modules(CORVANE_ICU REQUIRED icu-uc icu-i18n)
pkg_check_modules(CORVANE_PLIST REQUIRED libplist-2.0)
pkg_check_modules(CORVANE_NETTLE REQUIRED nettle)
# Plain library names rather than imported targets: the static library's export then names
# -licuuc and friends, which an application links without finding these packages itself.
foreach(dep CORVANE_ICU CORVANE_PLIST CORVANE_NETTLE)
  target_include_directories(corvane_core PRIVATE ${${dep}_INCLUDE_DIRS})
  target_compile_options(corvane_core PRIVATE ${${dep}_CFLAGS_OTHER})
  if(${dep}_LIBRARY_DIRS)
    target_link_directories(corvane_core PUBLIC $<BUILD_INTERFACE:${${dep}_LIBRARY_DIRS}>)
  endif()
  if(NOT dep STREQUAL "CORVANE_ICU")
    target_link_libraries(corvane_core PRIVATE ${${dep}_LIBRARIES})
  endif()
endforeach()
# ICU is linked into every program but one that sets CORVANE_WITHOUT_ICU (the daemon). Linked
# with --gc-sections, such a program keeps none of the library's ICU code and so never maps ICU,
# several megabytes resident; should a call into ICU ever become reachable from it, its link fails
# with ICU's symbols undefined rather than quietly loading it again.
foreach(lib ${CORVANE_ICU_LIBRARIES})
  target_link_libraries(corvane_core INTERFACE
    $<BUILD_INTERFACE:$<$<NOT:$<BOOL:$<TARGET_PROPERTY:CORVANE_WITHOUT_ICU>>>:${lib}>>
    $<INSTALL_INTERFACE:${lib}>)
endforeach()
