#!/usr/bin/env bash
# Consumes the library as its users do: the given build as installed (static, as our presets build
# it), then as a subdirectory built shared, then that one as installed. Each installed copy is used
# through CMake and through pkg-config, from another folder than it was installed to.
#   run.sh SOURCE BUILD WORK COMPILER SANITIZERS
set -euo pipefail
source=$1 build=$2 work=$3 compiler=$4 sanitizers=$5
consumer=$source/tests/package/consumer

flags=()
if [ -n "$sanitizers" ]; then flags=("-fsanitize=$sanitizers"); fi
rm -rf "$work"/{prefix,*.vexim*,static*,shared*,venv,vexim-*.whl}
mkdir -p "$work"
if command -v ccache > /dev/null; then export CMAKE_CXX_COMPILER_LAUNCHER=ccache; fi

configure() {  # configure FOLDER OPTION...
    local folder=$1
    shift
    cmake -S "$consumer" -B "$folder" -G Ninja --log-level=NOTICE \
        -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="${flags[*]}" "$@"
}

flags_of() {  # flags_of PACKAGE PREFIX
    PKG_CONFIG_PATH=$2/lib/pkgconfig pkg-config --cflags --libs "$1"
}

consume() {  # consume KIND: uses the copy installed at $work/prefix
    local kind=$1 prefix=$work/$1
    mv "$work/prefix" "$prefix"

    echo "-- $kind library, find_package"
    configure "$work/$kind-cmake" -DCMAKE_PREFIX_PATH="$prefix"
    cmake --build "$work/$kind-cmake"
    "$work/$kind-cmake/consumer" "$kind"
    "$work/$kind-cmake/consumer_test"
    "$work/$kind-cmake/consumer_store" "$work/$kind.vexim"

    echo "-- $kind library, the quick start in an empty folder"
    local hello=$work/$kind-hello
    mkdir "$hello"
    cp "$source/examples/quick_start.cpp" "$hello"
    cp "$source/examples/quick_start.cmake" "$hello/CMakeLists.txt"
    consumer=$hello configure "$hello/build" -DCMAKE_PREFIX_PATH="$prefix"
    cmake --build "$hello/build"
    "$source/scripts/with-service" -- "$hello/build/hello" URL

    echo "-- $kind library, pkg-config"
    local found program=$work/$kind-pkg-config
    read -ra found < <(flags_of VexIMLib "$prefix")
    "$compiler" -std=c++20 "${flags[@]}" "$consumer/main.cpp" -o "$program" "${found[@]}"
    LD_LIBRARY_PATH=$prefix/lib "$program" "$kind"
    echo "-- $kind library, pkg-config, without the language: it must say what is missing"
    local said
    said=$("$compiler" -std=c++17 -fsyntax-only "$consumer/main.cpp" "${found[@]}" 2>&1 || true)
    [[ $said == *"compile with -std=c++20"* ]]
    read -ra found < <(flags_of VexIMLibStore "$prefix")
    "$compiler" -std=c++20 "${flags[@]}" "$consumer/store.cpp" -o "$program-store" "${found[@]}"
    LD_LIBRARY_PATH=$prefix/lib "$program-store" "$work/$kind.vexim"
}

install_from() {  # install_from BUILD COMPONENT...
    for component in "${@:2}"; do
        cmake --install "$1" --component "$component" --prefix "$work/prefix" > "$work/install.log"
    done
}

install_from "$build" dev store-dev
consume static
flags=()

echo "-- subdirectory, shared"
configure "$work/subdirectory" -DVEXIM_SOURCE="$source" -DBUILD_SHARED_LIBS=ON -DVEXIM_INSTALL=ON
cmake --build "$work/subdirectory" -- --quiet
"$work/subdirectory/consumer" shared
"$work/subdirectory/consumer_test"
"$work/subdirectory/consumer_store" "$work/subdirectory.vexim"

echo "-- subdirectory, shared: compatible with the last release"
"$source/scripts/abi" "$work/subdirectory/vexim"

install_from "$work/subdirectory" runtime dev store store-dev c c-dev c-store c-store-dev

echo "-- the C interface alone: pkg-config, find_package, the schema"
for name in vexim-c vexim-c-store; do
    read -ra found < <(flags_of "$name" "$work/prefix")
    "${CC:-cc}" -std=c11 "$consumer/c_only.c" -o "$work/prefix/c_only" "${found[@]}"
    LD_LIBRARY_PATH=$work/prefix/lib "$work/prefix/c_only" "$name"
done
cmake -S "$source/tests/package/c_consumer" -B "$work/shared-c-cmake" -G Ninja --log-level=NOTICE \
    -DCMAKE_PREFIX_PATH="$work/prefix"
cmake --build "$work/shared-c-cmake" -- --quiet
for name in vexim-c vexim-c-store; do
    LD_LIBRARY_PATH=$work/prefix/lib "$work/shared-c-cmake/$name-only" "$name"
done
python3 -m json.tool "$work/prefix/share/vexim/vexim-api.json" > /dev/null

consume shared

echo "-- Python, from a wheel in a virtual environment"
/usr/bin/python3 "$source/bindings/python/make_wheel.py" "$work" \
    "$work"/shared/lib/{libvexim-c,libvexim-c-store,libVexIMLib,libVexIMLibStore}.so.1
/usr/bin/python3 -m venv "$work/venv"
"$work/venv/bin/pip" -q install --no-index "$work"/vexim-*.whl
"$source/scripts/with-service" -- env -u PYTHONPATH "$work/venv/bin/python" \
    "$source/bindings/python/tests/demo.py" URL
