#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Unpacks the two Debian packages into an empty folder and builds a stranger's project against what they hold.
# usage: check_package.sh SOURCE_DIR FOLDER_WITH_PACKAGES
set -euo pipefail
source=$1 packages=$2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

for package in "$packages"/*.deb; do
    dpkg-deb --extract "$package" "$work/root"
    dpkg-deb --field "$package" Package Depends
done
cmake -S "$source/tools/stranger" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$work/root/usr" >"$work/configure.log"
cmake --build "$work/build" >"$work/build.log"
"$work/build/stranger"

# pkg-config has to find the library where it lies, wherever that is.
pc=$(dirname "$(find "$work/root" -name dravik_adt.pc)")
test -e "$(PKG_CONFIG_PATH=$pc pkg-config --variable=libdir dravik_adt)/libdravik_adt.so"
