# Settings, menus and alerts: every .cpp here is part of the library (glob, as other stages add
# files). The settings suite's SQLite file (src/platform/sim/) and the D-Bus notifications
# (src/platform/linux/) are compiled by the platform folder; their libraries are linked here.
file(GLOB CORVANE_SETTINGS_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/*.cpp)
target_sources(corvane_core PRIVATE ${CORVANE_SETTINGS_SOURCES})

# Imported targets in the build tree; plain library names in the export, so that an application
# links -lSQLiteCpp -lsqlite3 -lsdbus-c++ without finding these packages itself.
find_package(SQLiteCpp REQUIRED)
target_link_libraries(corvane_core PRIVATE $<BUILD_INTERFACE:SQLiteCpp>
                                   INTERFACE $<INSTALL_INTERFACE:SQLiteCpp> $<INSTALL_INTERFACE:sqlite3>)
if(NOT APPLE)
  find_package(sdbus-c++ REQUIRED)
  target_link_libraries(corvane_core PRIVATE $<BUILD_INTERFACE:SDBusCpp::sdbus-c++>
                                     INTERFACE $<INSTALL_INTERFACE:sdbus-c++>)
endif()
