#pragma once

/// Marks what a shared library of Vantamo shows to its host; everything else stays hidden. Plain C
/// and C++ read this header.
#if defined(__GNUC__)
#define VANTAMO_EXPORT __attribute__((visibility("default")))
#else
#define VANTAMO_EXPORT
#endif
