#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The binary interface of the library beside its baseline: exported functions, layouts, virtual tables, enumerators.
# usage: abi.sh check|renew LIBRARY, where the library was built by g++ with debug symbols
set -euo pipefail
word=$1 library=$2
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
baseline=$root/abi/libdravik_adt.abi.xz

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

describe() {
    abidw --suppr "$root/abi/own.suppr" --headers-dir "$root/dravik/adt" --drop-private-types \
        --exported-interfaces-only --no-corpus-path --no-comp-dir-path --no-show-locs --no-parameter-names \
        --no-elf-needed --no-write-default-sizes --out-file "$work/now.abi" "$library"
}

describe
case $word in
check)
    xz --decompress --stdout "$baseline" >"$work/baseline.abi"
    if ! abidiff --no-added-syms "$work/baseline.abi" "$work/now.abi"; then
        echo "Callers of the last version would break. If that is meant: ./dev abi renews the baseline." >&2
        exit 1
    fi
    ;;
renew)
    xz -9 --stdout "$work/now.abi" >"$baseline"
    ;;
*)
    echo "no such word: $word" >&2
    exit 2
    ;;
esac
