# The seam and its backends: the shared code, POSIX helpers, the simulated machine, and the
# folder of this operating system. Every .cpp there is part of the library.
file(GLOB CORVANE_PLATFORM_SOURCES CONFIGURE_DEPENDS
  ${CMAKE_CURRENT_LIST_DIR}/*.cpp
  ${CMAKE_CURRENT_LIST_DIR}/posix/*.cpp
  ${CMAKE_CURRENT_LIST_DIR}/sim/*.cpp
  ${CMAKE_CURRENT_LIST_DIR}/${CORVANE_OS}/*.cpp)
target_sources(corvane_core PRIVATE ${CORVANE_PLATFORM_SOURCES})
if(APPLE)
  target_link_libraries(corvane_core PRIVATE "-framework IOKit" "-framework CoreFoundation" "-framework CoreGraphics"
                                             "-framework CoreServices" "-framework Security"
                                             "-framework DiskArbitration")
endif()
# The host's own hardware monitors are read through the sensors library, which ships no CMake
# package: the library by name in the export, as for the other plain libraries.
if(CORVANE_OS STREQUAL "linux")
  find_path(CORVANE_SENSORS_INCLUDE_DIR sensors/sensors.h REQUIRED)
  find_library(CORVANE_SENSORS_LIBRARY sensors REQUIRED)
  target_include_directories(corvane_core PRIVATE ${CORVANE_SENSORS_INCLUDE_DIR})
  target_link_libraries(corvane_core PRIVATE $<BUILD_INTERFACE:${CORVANE_SENSORS_LIBRARY}>
                                     INTERFACE $<INSTALL_INTERFACE:sensors>)
endif()
