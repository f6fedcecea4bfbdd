# Finds Android's log library: the platform's own in the NDK, Debian's android-liblog-dev on Linux (whose header and
# library are in folders of their own). Defines the target AndroidLog::AndroidLog.
if(ANDROID)
  # Part of the platform: in the toolchain's own search paths, which must not be named a second time.
  set(AndroidLog_LIBRARY log)
  set(AndroidLog_INCLUDE_DIR "")
  set(AndroidLog_FOUND TRUE)
  if(NOT TARGET AndroidLog::AndroidLog)
    add_library(AndroidLog::AndroidLog INTERFACE IMPORTED)
    set_target_properties(AndroidLog::AndroidLog PROPERTIES INTERFACE_LINK_LIBRARIES log)
  endif()
  return()
endif()

find_path(AndroidLog_INCLUDE_DIR android/log.h PATHS /usr/include/android)
find_library(AndroidLog_LIBRARY log PATH_SUFFIXES android ${CMAKE_LIBRARY_ARCHITECTURE}/android)
mark_as_advanced(AndroidLog_INCLUDE_DIR AndroidLog_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(AndroidLog REQUIRED_VARS AndroidLog_LIBRARY AndroidLog_INCLUDE_DIR)

if(AndroidLog_FOUND AND NOT TARGET AndroidLog::AndroidLog)
  add_library(AndroidLog::AndroidLog UNKNOWN IMPORTED)
  set_target_properties(AndroidLog::AndroidLog PROPERTIES
    IMPORTED_LOCATION ${AndroidLog_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${AndroidLog_INCLUDE_DIR})
endif()
