#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Holds the Debian packages to the distribution's policy, unpacks them into an empty folder and builds a stranger's project
# against what they hold.
# usage: check_package.sh SOURCE_DIR FOLDER_WITH_PACKAGES
set -euo pipefail
source=$1 packages=$2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

lintian --fail-on error --allow-root "$packages"/*.deb

for package in "$packages"/*.deb "$packages"/*.ddeb; do
    dpkg-deb --extract "$package" "$work/root"
    dpkg-deb --field "$package" Package Depends
done
cmake -S "$source/tools/stranger" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$work/root/usr" >"$work/configure.log"
cmake --build "$work/build" >"$work/build.log"
"$work/build/stranger"

# One folder for each architecture, so that several can be installed side by side.
library=$work/root/usr/lib/$(dpkg-architecture --query DEB_HOST_MULTIARCH)/libdravik_adt.so
test -e "$library"
# pkg-config has to find the library where it lies, wherever that is.
pc=$(dirname "$library")/pkgconfig
test -e "$(PKG_CONFIG_PATH=$pc pkg-config --variable=libdir dravik_adt)/libdravik_adt.so"
# The debug symbols belong to this very library.
build_id=$(readelf --notes "$library" | sed -n 's/.*Build ID: //p')
test -e "$work/root/usr/lib/debug/.build-id/${build_id:0:2}/${build_id:2}.debug"
test -e "$work/root/usr/share/doc/libdravik-adt-doc/html/index.html"
# The Python package imports from where it lies, and xarray finds its engine.
export LD_LIBRARY_PATH=${library%/*} PYTHONPATH=$work/root/usr/lib/python3/dist-packages
(cd "$work" && PYTHONDONTWRITEBYTECODE=1 /usr/bin/python3 - <<'PYTHON'
import dravik_adt
import xarray

made = dravik_adt.create("new.raw", (3, 4), "int16")
made[1] = 7
assert made[...].sum() == 28 and made.definition, made
assert "root/usr" in dravik_adt.__file__, dravik_adt.__file__
assert "dravik" in xarray.backends.list_engines()
PYTHON
)
# The program finds the libraries beside it, and is told about.
"$work/root/usr/bin/dravik" --version
test -e "$work/root/usr/share/man/man1/dravik.1.gz"
test -e "$work/root/usr/share/bash-completion/completions/dravik"
