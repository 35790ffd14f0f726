#pragma once

// What every public header needs. It has no types; include it where a class or a function of the
// library is declared.

/// Marks what applications may call. The shared library hides everything else. Programs that link
/// the static library define `VEXIM_STATIC`; the CMake package and the pkg-config file do it for
/// them.
#if defined(VEXIM_STATIC)
#define VEXIM_EXPORT
#else
#define VEXIM_EXPORT __attribute__((visibility("default")))
#endif

// A clear message instead of a hundred errors: the default of older compilers is C++17.
#if __cplusplus < 202002L
#error "VexIMLib needs C++20: compile with -std=c++20"
#endif
