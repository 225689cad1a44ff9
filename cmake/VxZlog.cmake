# zlog::zlog. The library brings no description of itself for CMake or pkg-config.

find_path(ZLOG_INCLUDE_DIR zlog.h REQUIRED)
find_library(ZLOG_LIBRARY zlog REQUIRED)
if(NOT TARGET zlog::zlog)
  add_library(zlog::zlog UNKNOWN IMPORTED)
  set_target_properties(zlog::zlog PROPERTIES
    IMPORTED_LOCATION "${ZLOG_LIBRARY}" INTERFACE_INCLUDE_DIRECTORIES "${ZLOG_INCLUDE_DIR}")
endif()
