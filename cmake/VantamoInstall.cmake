# What `cmake --install` puts where. Installation components: runtime (shared libraries), dev (what a
# host is built with), tools (the program).

include(CMakePackageConfigHelpers)
set(vantamo_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Vantamo)

install(DIRECTORY include/vantamo DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev
  FILES_MATCHING PATTERN "*.h")

# What is installed can be moved, unless it was told absolute folders.
set(pc_prefix ${CMAKE_INSTALL_PREFIX})
set(pc_libdir ${CMAKE_INSTALL_LIBDIR})
set(pc_includedir ${CMAKE_INSTALL_INCLUDEDIR})
if(NOT IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
  file(RELATIVE_PATH pc_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
  string(REGEX REPLACE "/$" "" pc_prefix "\${pcfiledir}/${pc_prefix}")
  set(pc_libdir "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
if(NOT IS_ABSOLUTE ${CMAKE_INSTALL_INCLUDEDIR})
  set(pc_includedir "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()

# What a static library is linked with is wanted with --static alone; where there is no shared one, by
# everybody.
set(pc_private "")
if(BUILD_SHARED_LIBS)
  set(pc_private "\nLibs.private:")
endif()

# vantamo_install(TARGET COMPONENT): the library, and what find_package() and pkg-config read of it.
function(vantamo_install target component)
  vantamo_each(${target} library)
  foreach(one IN LISTS library)
    get_target_property(type ${one} TYPE)
    string(REGEX REPLACE "_LIBRARY$" "" linkage ${type})
    string(TOLOWER ${component}-${linkage} set)
    install(TARGETS ${one} EXPORT Vantamo-${set}
      LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
      ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
    install(EXPORT Vantamo-${set} NAMESPACE Vantamo:: DESTINATION ${vantamo_package_dir}
      COMPONENT dev)
  endforeach()

  string(REPLACE "_" "-" name ${target})
  configure_file(packaging/${name}.pc.in ${Vantamo_BINARY_DIR}/packaging/${name}.pc @ONLY)
  install(FILES ${Vantamo_BINARY_DIR}/packaging/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
  if(NOT IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
    # pkg-config leaves out the folders that compilers search by themselves, and knows them by their
    # plain names alone: to name /usr/include again would put it before where it belongs.
    install(CODE "
      if(CMAKE_INSTALL_PREFIX STREQUAL \"/usr\")
        set(file \"\$ENV{DESTDIR}/usr/${CMAKE_INSTALL_LIBDIR}/pkgconfig/${name}.pc\")
        file(READ \"\${file}\" text)
        string(REGEX REPLACE \"^prefix=[^\n]*\" \"prefix=/usr\" text \"\${text}\")
        file(WRITE \"\${file}\" \"\${text}\")
      endif()" COMPONENT dev)
  endif()
endfunction()

vantamo_install(vantamo vantamo)
vantamo_install(vantamo_recording_core recording_core)
if(VANTAMO_DEFAULT_CORE)
  vantamo_install(vantamo_default_core default_core)
endif()

configure_package_config_file(cmake/VantamoConfig.cmake.in
  ${Vantamo_BINARY_DIR}/packaging/VantamoConfig.cmake
  INSTALL_DESTINATION ${vantamo_package_dir}
  NO_SET_AND_CHECK_MACRO)
# Who asks for an earlier version of the same major one is content with this one.
write_basic_package_version_file(${Vantamo_BINARY_DIR}/packaging/VantamoConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${Vantamo_BINARY_DIR}/packaging/VantamoConfig.cmake
  ${Vantamo_BINARY_DIR}/packaging/VantamoConfigVersion.cmake
  cmake/Findlibmd.cmake
  cmake/Findlibmnl.cmake
  DESTINATION ${vantamo_package_dir} COMPONENT dev)
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/vantamo COMPONENT dev)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/vantamo COMPONENT dev)

if(VANTAMO_TOOLS AND VANTAMO_DEFAULT_CORE)
  install(TARGETS vantamo_cli DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  if(EXISTS ${Vantamo_SOURCE_DIR}/tools/completion/vantamo.bash)
    install(FILES tools/completion/vantamo.bash RENAME vantamo
      DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
  endif()
endif()
