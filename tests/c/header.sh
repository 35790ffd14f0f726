#!/usr/bin/env bash
# Compiles <VexIMLib/C/vexim.h> alone with each compiler that is installed, as C11 and as C++20.
set -euo pipefail
warnings=(-Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wundef
    -Wstrict-prototypes -Wmissing-prototypes -Wredundant-decls -Wcast-qual -Werror)
program='#include <VexIMLib/C/vexim.h>'
compiled=0
for compiler in gcc clang clang-16; do
    command -v "$compiler" > /dev/null || continue
    "$compiler" -std=c11 "${warnings[@]}" -I "$1" -x c -fsyntax-only - <<< "$program"
    "$compiler" -std=c++20 "${warnings[@]/-W*-prototypes/-Wextra}" -I "$1" -x c++ -fsyntax-only - \
        <<< "$program"
    compiled=$((compiled + 1))
done
[ $compiled -gt 0 ]
