#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Shows every value of the sample in gdb and compares it with what the program itself printed.
# usage: check_printers.sh SAMPLE_PROGRAM PRINTERS
set -euo pipefail
sample=$1 printers=$2

commands=(-ex "set debuginfod enabled off" -ex "source $printers" -ex "break look" -ex run -ex up)
for name in $("$sample" --names); do
    commands+=(-ex "echo shown:" -ex "output $name" -ex 'echo \n')
done
diff <("$sample" | sed 's/^/shown:/') <(gdb -nx -batch "${commands[@]}" "$sample" 2>/dev/null | grep '^shown:')
