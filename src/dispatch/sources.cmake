# Queues, timers and the clock: the shared code and the virtual clock, plus the real backend of
# this operating system (libdispatch on macOS, standalone header-only Asio elsewhere).
target_sources(corvane_core PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/queue.cpp
  ${CMAKE_CURRENT_LIST_DIR}/timer_source.cpp
  ${CMAKE_CURRENT_LIST_DIR}/virtual_time.cpp)
if(APPLE)
  target_sources(corvane_core PRIVATE ${CMAKE_CURRENT_LIST_DIR}/dispatch_gcd.cpp)
  target_link_libraries(corvane_core PRIVATE "-framework CoreFoundation")
else()
  target_sources(corvane_core PRIVATE ${CMAKE_CURRENT_LIST_DIR}/dispatch_asio.cpp)
  # Asio has no CMake package; its standalone flavour needs no Boost. Not in public headers.
  target_compile_definitions(corvane_core PRIVATE ASIO_STANDALONE)
endif()
