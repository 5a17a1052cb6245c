# How every target of this project is built.

option(VANTAMO_WARNINGS_AS_ERRORS "Treat warnings as errors" ${PROJECT_IS_TOP_LEVEL})

set(VANTAMO_SANITIZE "" CACHE STRING "Sanitizers for every target, as -fsanitize takes them")
if(VANTAMO_SANITIZE)
  add_compile_options(-fsanitize=${VANTAMO_SANITIZE} -fno-sanitize-recover=all
    -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VANTAMO_SANITIZE})
endif()

function(vantamo_compile_options target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wconversion -Wold-style-cast
    -Wno-missing-field-initializers
    $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
    # Optimising, GCC 12 sees copies that overlap where a string is put before another one.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
    $<$<BOOL:${VANTAMO_WARNINGS_AS_ERRORS}>:-Werror>)
  if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    # Sizes and numbers of files are 64 bits wide here too; of a file whose number is larger than 32
    # bits the system would tell nothing.
    target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64)
  endif()
  # The sources name their headers from the top of the tree.
  target_include_directories(${target} PRIVATE ${Vantamo_SOURCE_DIR})
endfunction()

# vantamo_find(TARGET PACKAGE [VERSION]): a target that the project around us has made is taken as it is.
macro(vantamo_find target package)
  if(NOT TARGET ${target})
    find_package(${package} ${ARGN} REQUIRED)
  endif()
endmacro()

configure_file(${CMAKE_CURRENT_LIST_DIR}/vantamo.map.in ${Vantamo_BINARY_DIR}/vantamo.map @ONLY)

# vantamo_library(TARGET SOURCE...): a library with the public headers.
#
# The sources are compiled once, as TARGET_objects. TARGET is static or shared, as BUILD_SHARED_LIBS
# has it. TARGET_static is always the static one, in which everything can be seen: for whatever uses
# more than the public headers. Its state would be another one than that of a shared TARGET, so a
# program links the ones or the others; CMake stops at a mixture.
function(vantamo_library target)
  add_library(${target}_objects OBJECT ${ARGN})
  vantamo_compile_options(${target}_objects)
  set_target_properties(${target}_objects PROPERTIES
    POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  # An optimised build is small but for what runs at each event; and a host's linker can leave out
  # what the host has no use for.
  target_compile_options(${target}_objects PRIVATE
    $<$<CONFIG:Release>:-Os> -ffunction-sections -fdata-sections)
  target_include_directories(${target}_objects PRIVATE ${Vantamo_SOURCE_DIR}/include)

  add_library(${target} $<TARGET_OBJECTS:${target}_objects>)
  add_library(Vantamo::${target} ALIAS ${target})
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "SHARED_LIBRARY")
    add_library(${target}_static STATIC $<TARGET_OBJECTS:${target}_objects>)
    set_target_properties(${target}_static PROPERTIES OUTPUT_NAME ${target})
    if(NOT VANTAMO_INSTALL)
      set_target_properties(${target}_static PROPERTIES EXCLUDE_FROM_ALL ON)
    endif()
    set_target_properties(${target} PROPERTIES
      VERSION ${VANTAMO_ABI_VERSION}.${Vantamo_VERSION}
      SOVERSION ${VANTAMO_ABI_VERSION}
      LINK_DEPENDS ${Vantamo_BINARY_DIR}/vantamo.map)
    target_link_options(${target} PRIVATE
      "LINKER:--version-script=${Vantamo_BINARY_DIR}/vantamo.map" "LINKER:-z,nodelete")
  else()
    add_library(${target}_static ALIAS ${target})
  endif()
  vantamo_each(${target} library)
  foreach(one IN LISTS library)
    get_target_property(type ${one} TYPE)
    set_target_properties(${one} PROPERTIES
      LINKER_LANGUAGE CXX
      EXPORT_NAME ${target}
      COMPATIBLE_INTERFACE_STRING VANTAMO_LINKAGE
      INTERFACE_VANTAMO_LINKAGE ${type})
    # Never unloaded, and nor is a plug-in of the host's that contains us: threads may be inside, and
    # what is made once stays.
    if(type STREQUAL "STATIC_LIBRARY")
      target_link_options(${one} INTERFACE "LINKER:-z,nodelete")
    endif()
    target_compile_features(${one} INTERFACE cxx_std_20)
    target_include_directories(${one} INTERFACE
      $<BUILD_INTERFACE:${Vantamo_SOURCE_DIR}/include>
      $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  endforeach()
endfunction()

# vantamo_each(TARGET RESULT): TARGET, and TARGET_static where that is another one.
function(vantamo_each target result)
  set(each ${target})
  get_target_property(aliased ${target}_static ALIASED_TARGET)
  if(NOT aliased)
    list(APPEND each ${target}_static)
  endif()
  set(${result} ${each} PARENT_SCOPE)
endfunction()

# vantamo_link(TARGET LIBRARY...): what the library is compiled and linked with.
function(vantamo_link target)
  target_link_libraries(${target}_objects PRIVATE ${ARGN})
  vantamo_each(${target} library)
  foreach(one IN LISTS library)
    target_link_libraries(${one} PRIVATE ${ARGN})
  endforeach()
endfunction()

# vantamo_fast(SOURCE...): sources of this folder that run at each event.
function(vantamo_fast)
  set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS $<$<CONFIG:Release>:-O3>)
endfunction()

# vantamo_core(TARGET NAME SOURCE...): a core, known to hosts as Vantamo::NAME.
#
# The module needs the core and the core needs the module's library. The host's link line is told
# that the core's entry point is wanted, so that static libraries are found complete in either order,
# and that a shared core is wanted even by a host that names nothing of it. A program has one core.
function(vantamo_core target name)
  vantamo_library(${target} ${ARGN})
  add_library(Vantamo::${name} ALIAS ${target})
  vantamo_each(${target} library)
  foreach(one IN LISTS library)
    set_target_properties(${one} PROPERTIES EXPORT_NAME ${name} INTERFACE_VANTAMO_CORE ${name})
    set_property(TARGET ${one} APPEND PROPERTY COMPATIBLE_INTERFACE_STRING VANTAMO_CORE)
    get_target_property(type ${one} TYPE)
    if(type STREQUAL "SHARED_LIBRARY")
      target_link_libraries(${one} PUBLIC vantamo)
      target_link_options(${one} INTERFACE
        "LINKER:--push-state,--no-as-needed,$<TARGET_FILE:Vantamo::${name}>,--pop-state")
    else()
      target_link_libraries(${one} PUBLIC vantamo_static)
      target_link_options(${one} INTERFACE "LINKER:--undefined=_ZN6NQCore14sharedInstanceEv")
    endif()
  endforeach()
endfunction()

# vantamo_program(VARIABLE TARGET): what a test starts to run the program. The system cannot start one
# that was built for another machine: then it is a script that hands it to the emulator.
function(vantamo_program variable target)
  set(program $<TARGET_FILE:${target}>)
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR "' '" emulator)
    set(script ${CMAKE_BINARY_DIR}/run/$<TARGET_FILE_NAME:${target}>)
    file(GENERATE OUTPUT ${script}
      CONTENT "#!/bin/sh\nexec '${emulator}' '${program}' \"$@\"\n"
      FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
    set(program ${script})
  endif()
  set(${variable} ${program} PARENT_SCOPE)
endfunction()
