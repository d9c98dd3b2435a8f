#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs a build into an empty folder and lets a stranger's project use it, in one of four ways.
# usage: check_install.sh find_package|pkg_config|static|add_subdirectory SOURCE_DIR BUILD_DIR CXX
set -euo pipefail
way=$1 source=$2 build=$3 cxx=$4

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

install_library() {
    cmake --install "$build" --prefix "$work/prefix" >"$work/install.log"
    for private in platform testing; do
        if find "$work/prefix" -path "*/$private/*" | grep -q .; then
            echo "$private/ was installed" >&2
            return 1
        fi
    done
}

build_stranger() {
    cmake -S "$source/tools/stranger" -B "$work/build" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" "$@" >"$work/configure.log"
    cmake --build "$work/build" >"$work/build.log" || { cat "$work/build.log" >&2; return 1; }
    "$work/build/stranger"
    if [[ -x $work/build/open_file ]]; then
        "$work/build/open_file" "$work/new.nc"
    fi
}

case $way in
find_package)
    install_library
    components=
    if [[ -n $(find "$work/prefix" -name 'libdravik_files_netcdf.*') ]]; then
        components=files_netcdf
    fi
    build_stranger -DCMAKE_PREFIX_PATH="$work/prefix" -DDRAVIK_ADT_COMPONENTS="$components"
    ;;
pkg_config)
    install_library
    pc=$(dirname "$(find "$work/prefix" -name dravik_adt.pc)")
    lib=$(PKG_CONFIG_PATH=$pc pkg-config --variable=libdir dravik_adt)
    # shellcheck disable=SC2046  # the flags are words
    "$cxx" -std=c++20 -o "$work/stranger" "$source/tools/stranger/stranger.cpp" \
        $(PKG_CONFIG_PATH=$pc pkg-config --cflags --libs dravik_adt)
    LD_LIBRARY_PATH=$lib "$work/stranger"
    ;;
static)
    cmake -S "$source" -B "$work/library" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_BUILD_TYPE=Release \
        -DBUILD_SHARED_LIBS=OFF -DDRAVIK_ADT_BUILD_TESTS=OFF -DDRAVIK_ADT_BUILD_EXAMPLES=OFF -DDRAVIK_ADT_STRICT=ON \
        >"$work/configure.log"
    cmake --build "$work/library" --target dravik_adt >"$work/build.log" || { cat "$work/build.log" >&2; exit 1; }
    build=$work/library
    install_library
    build_stranger -DCMAKE_PREFIX_PATH="$work/prefix"
    ! readelf --dynamic "$work/build/stranger" | grep -q libdravik
    ;;
add_subdirectory)
    # The library itself is built and linked by everything else; here it is enough that a stranger's build knows how to
    # make it, and that its own code compiles with nothing but the target's name.
    cmake -S "$source/tools/stranger" -B "$work/build" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" \
        -DDRAVIK_ADT_SOURCE="$source" >"$work/configure.log"
    cmake --build "$work/build" --target stranger -- -n | grep -q 'Linking CXX executable stranger'
    cmake --build "$work/build" --target CMakeFiles/stranger.dir/stranger.cpp.o
    ;;
*)
    echo "no such way: $way" >&2
    exit 2
    ;;
esac
