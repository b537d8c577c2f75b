#!/usr/bin/env bash
# Converts a 1 GB WAV file and copies what was written, in turns, and prints the processor time of both.
# Needs some 7 GB in the folder given (default: a temporary one). Usage: bench/convert.sh [FOLDER]
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
kelvane=$root/build/release/src/shell/kelvane/kelvane
folder=${1:-$(mktemp -d)}
cd "$folder"

head -c 1073741824 /dev/urandom >noise.sw
"$kelvane" -q convert noise.sw pcm16.wav --channels mono --force
"$kelvane" -q convert pcm16.wav float.wav --data "Float 32-bit" --force
rm noise.sw

cpu() { # user and system seconds of a command
    /usr/bin/time -f '%U %S' -o time.txt "$@"
    awk '{printf "%.3f", $1 + $2}' time.txt
}

row() { # label, input, data format
    local a b round
    for round in 1 2 3 4 5; do
        rm -f out.wav copy.wav
        a=$(cpu "$kelvane" -q convert "$2" out.wav --data "$3")
        b=$(cpu cp out.wav copy.wav)
        awk -v a="$a" -v b="$b" 'BEGIN {print a / b, a, b}'
    done | sort -g | awk -v label="$1" 'NR == 1 {least = $1} NR == 3 {middle = $0} END {
        split(middle, m); printf "%-18s %.2f times the processor time of cp (%.2f to %.2f); %.2f s against %.2f s\n",
        label, m[1], least, $1, m[2], m[3]}'
}

row "16 to 24 bits" pcm16.wav "PCM 24-bit"
row "16 bits to float" pcm16.wav "Float 32-bit"
row "float to 16 bits" float.wav "PCM 16-bit"
rm -f pcm16.wav float.wav out.wav copy.wav time.txt
