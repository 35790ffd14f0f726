# Warnings for our own code only: never part of what a consumer inherits.
add_library(vexim_warnings INTERFACE)
target_compile_options(vexim_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
  -Woverloaded-virtual -Wcast-qual
  -Wformat=2 -Wimplicit-fallthrough -Wundef -Werror
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
# GCC 12 finds overlaps in std::string's operator+ that are not there (GCC bug 105651).
target_compile_options(vexim_warnings INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
# GCC's sanitizer builds report false "maybe uninitialised" and "dangling pointer" findings inside
# inlined library code.
if(VEXIM_SANITIZE)
  target_compile_options(vexim_warnings INTERFACE
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>
    $<$<CXX_COMPILER_ID:GNU>:-Wno-stringop-overflow>)
endif()
# asio pairs its fences with mutexes, which ThreadSanitizer does see.
if(VEXIM_SANITIZE MATCHES "thread")
  target_compile_options(vexim_warnings INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-tsan>)
endif()
# The same bytes wherever the source lies; debuggers of development builds want the whole path.
target_compile_options(vexim_warnings INTERFACE
  $<$<CONFIG:Release>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>)
