#pragma once

/// The version of these headers: the one place where it is written. Plain C and C++ read this
/// header.
#define VANTAMO_VERSION_MAJOR 1
#define VANTAMO_VERSION_MINOR 1
#define VANTAMO_VERSION_PATCH 28

/// The number in the shared libraries' names (libvantamo.so.1). A program that was built with an
/// earlier number must be built anew.
#define VANTAMO_ABI_VERSION 1

/// One number that grows with the version, to compare with: 1.1.28 is 1001028.
#define VANTAMO_VERSION_NUMBER \
  (VANTAMO_VERSION_MAJOR * 1000000 + VANTAMO_VERSION_MINOR * 1000 + VANTAMO_VERSION_PATCH)

/// "1.1.28". Vantamo::libraryVersion() tells the same of the library that runs.
#define VANTAMO_VERSION_STRING                 \
  VANTAMO_VERSION_TEXT_(VANTAMO_VERSION_MAJOR) \
  "." VANTAMO_VERSION_TEXT_(VANTAMO_VERSION_MINOR) "." VANTAMO_VERSION_TEXT_(VANTAMO_VERSION_PATCH)
#define VANTAMO_VERSION_TEXT_(number) VANTAMO_VERSION_QUOTED_(number)
#define VANTAMO_VERSION_QUOTED_(number) #number
