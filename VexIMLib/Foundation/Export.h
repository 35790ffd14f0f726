#pragma once

// What applications may call is visible in the shared library; everything else is hidden.
#if defined(VEXIM_STATIC)
#define VEXIM_EXPORT
#else
#define VEXIM_EXPORT __attribute__((visibility("default")))
#endif
