# Reads the version from include/vantamo/version.h, the one place where it stands.

set(vantamo_version_header ${CMAKE_CURRENT_LIST_DIR}/../include/vantamo/version.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${vantamo_version_header})
file(STRINGS ${vantamo_version_header} vantamo_version_lines REGEX "^#define VANTAMO_[A-Z_]+ [0-9]+$")
foreach(line IN LISTS vantamo_version_lines)
  string(REGEX MATCH "(VANTAMO_[A-Z_]+) ([0-9]+)" line "${line}")
  set(${CMAKE_MATCH_1} ${CMAKE_MATCH_2})
endforeach()
set(vantamo_version ${VANTAMO_VERSION_MAJOR}.${VANTAMO_VERSION_MINOR}.${VANTAMO_VERSION_PATCH})
