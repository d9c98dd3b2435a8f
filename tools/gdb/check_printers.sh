#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Shows every value of the sample in gdb and compares it with what the program itself printed.
# The printers come by themselves, with the library in FOLDER.
# usage: check_printers.sh SAMPLE_PROGRAM FOLDER
set -euo pipefail
sample=$1 folder=$2

commands=(-iex "add-auto-load-safe-path $folder" -ex "set debuginfod enabled off" -ex "break look" -ex run -ex up)
for name in $("$sample" --names); do
    commands+=(-ex "echo shown:" -ex "output $name" -ex 'echo \n')
done
diff <("$sample" | sed 's/^/shown:/') <(gdb -nx -batch "${commands[@]}" "$sample" 2>/dev/null | grep '^shown:')
