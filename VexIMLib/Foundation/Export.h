#pragma once

/// Marks what applications may call. The shared library hides everything else.
#if defined(VEXIM_STATIC)
#define VEXIM_EXPORT
#else
#define VEXIM_EXPORT __attribute__((visibility("default")))
#endif

#if __cplusplus < 202002L
#error "VexIMLib needs C++20: compile with -std=c++20"
#endif
