# libmnl, which has no CMake package of its own: the target libmnl::libmnl.

find_path(libmnl_INCLUDE_DIR libmnl/libmnl.h)
find_library(libmnl_LIBRARY mnl)
mark_as_advanced(libmnl_INCLUDE_DIR libmnl_LIBRARY)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(libmnl REQUIRED_VARS libmnl_LIBRARY libmnl_INCLUDE_DIR)
if(libmnl_FOUND AND NOT TARGET libmnl::libmnl)
  add_library(libmnl::libmnl UNKNOWN IMPORTED)
  set_target_properties(libmnl::libmnl PROPERTIES
    IMPORTED_LOCATION ${libmnl_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${libmnl_INCLUDE_DIR})
endif()
