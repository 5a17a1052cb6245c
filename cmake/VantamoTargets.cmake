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
    $<$<BOOL:${VANTAMO_WARNINGS_AS_ERRORS}>:-Werror>)
  if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    # Sizes and numbers of files are 64 bits wide here too; of a file whose number is larger than 32
    # bits the system would tell nothing.
    target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64)
  endif()
  # The sources name their headers from the top of the tree.
  target_include_directories(${target} PRIVATE ${Vantamo_SOURCE_DIR})
endfunction()

# vantamo_library(TARGET SOURCE...): a library with the public headers.
function(vantamo_library target)
  add_library(${target} ${ARGN})
  add_library(Vantamo::${target} ALIAS ${target})
  vantamo_compile_options(${target})
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  # An optimised build is small but for what runs at each event; and a host's linker can leave out
  # what the host has no use for.
  target_compile_options(${target} PRIVATE
    $<$<CONFIG:Release>:-Os> -ffunction-sections -fdata-sections)
  # Never unloaded, and nor is a plug-in of the host's that contains us: threads may be inside, and
  # what is made once stays.
  target_link_options(${target} PUBLIC "LINKER:-z,nodelete")
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${Vantamo_SOURCE_DIR}/include>)
endfunction()

# vantamo_fast(SOURCE...): sources of this folder that run at each event.
function(vantamo_fast)
  set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS $<$<CONFIG:Release>:-O3>)
endfunction()

# vantamo_core(TARGET NAME SOURCE...): a core, known to hosts as Vantamo::NAME.
#
# The module needs the core and the core needs the module's library. The host's link line is told
# that the core's entry point is wanted, so that static libraries are found complete in either order,
# and that a shared core is wanted even by a host that names nothing of it.
function(vantamo_core target name)
  vantamo_library(${target} ${ARGN})
  add_library(Vantamo::${name} ALIAS ${target})
  target_link_libraries(${target} PUBLIC vantamo)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "SHARED_LIBRARY")
    target_link_options(${target} INTERFACE "LINKER:--no-as-needed")
  else()
    target_link_options(${target} INTERFACE "LINKER:--undefined=_ZN6NQCore14sharedInstanceEv")
  endif()
endfunction()

# vantamo_program(VARIABLE TARGET): what a test starts to run the program. The system cannot start one
# that was built for another machine: then it is a script that hands it to the emulator.
function(vantamo_program variable target)
  set(program $<TARGET_FILE:${target}>)
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR "' '" emulator)
    file(GENERATE OUTPUT ${CMAKE_BINARY_DIR}/run/${target}
      CONTENT "#!/bin/sh\nexec '${emulator}' '${program}' \"$@\"\n"
      FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
    set(program ${CMAKE_BINARY_DIR}/run/${target})
  endif()
  set(${variable} ${program} PARENT_SCOPE)
endfunction()
