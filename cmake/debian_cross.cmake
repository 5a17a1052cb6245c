# A build for another architecture of Debian, with Debian's cross compiler, against the root that
# cmake/sysroot.sh has made in the build folder; what it builds runs under qemu's user emulation.
# Included by the toolchain file of an architecture, which says what Debian, the compiler and the
# emulator call it: architecture, debian_triple, qemu_name.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${debian_triple}-gcc)
set(CMAKE_CXX_COMPILER ${debian_triple}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${debian_triple})
cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH CMAKE_SYSROOT)
string(APPEND CMAKE_SYSROOT /build-${architecture}/sysroot)

# Libraries are the root's, programs this machine's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

find_program(VANTAMO_QEMU NAMES ${qemu_name} ${qemu_name}-static REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${VANTAMO_QEMU} -L ${CMAKE_SYSROOT})
