#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Shows what the program `dravik` does with real data: a world relief, and the ocean's temperature and salinity.
# usage: demo.sh PROGRAM FOLDER
set -euo pipefail
program=$1 out=$2
data=/usr/share/ferret-vis/data
mkdir -p "$out"

show() {
    printf '\n$ dravik'
    printf ' %s' "$@"
    printf '\n'
    "$program" "$@"
}

show info "$data/levitus_climatology.cdf:TEMP" "$data/coads_climatology.cdf:SST"
show copy "$data/levitus_climatology.cdf:TEMP" "$out/temperature.zarr" --type uint8 --range 1%:99% --force
show statistics "$data/etopo5.cdf" --histogram "$out/heights.png" --force
show draw "$data/etopo5.cdf" "$out/relief.png" --force
show draw "$data/levitus_climatology.cdf:SALT" "$out/salinity.png" --slice 0=0 --force
printf '\nThe pictures are %s/relief.png, %s/salinity.png and %s/heights.png, the copy is %s/temperature.zarr.\n' \
    "$out" "$out" "$out" "$out"
