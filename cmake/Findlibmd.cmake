# libmd, which has no CMake package of its own: the target libmd::libmd.

find_path(libmd_INCLUDE_DIR sha1.h)
find_library(libmd_LIBRARY md)
mark_as_advanced(libmd_INCLUDE_DIR libmd_LIBRARY)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(libmd REQUIRED_VARS libmd_LIBRARY libmd_INCLUDE_DIR)
if(libmd_FOUND AND NOT TARGET libmd::libmd)
  add_library(libmd::libmd UNKNOWN IMPORTED)
  set_target_properties(libmd::libmd PROPERTIES
    IMPORTED_LOCATION ${libmd_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${libmd_INCLUDE_DIR})
endif()
