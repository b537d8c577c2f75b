#!/usr/bin/env bash
# Packs 1000 WAV files of one second into FLAC in one process, by this program and by libFLAC's own, in turns,
# and prints the processor time of both at the same settings. Needs some 200 MB in the folder given (default: a
# temporary one). Usage: bench/packed.sh [FOLDER]
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
kelvane=$root/build/release/src/shell/kelvane/kelvane
folder=${1:-$(mktemp -d)}
cd "$folder"
mkdir -p wav ours theirs

for seed in $(seq 100); do
    sox -R -n -r 44100 -c 2 -b 16 "wav/$seed.wav" synth 1 pluck $((80 + seed * 7)) pluck $((90 + seed * 5)) gain -6
    for copy in 1 2 3 4 5 6 7 8 9; do cp "wav/$seed.wav" "wav/$seed-$copy.wav"; done
done

cpu() { # user and system seconds of a command
    /usr/bin/time -f '%U %S' -o time.txt "$@" >/dev/null 2>&1
    awk '{printf "%.3f", $1 + $2}' time.txt
}

row() { # label, format, level of the other program
    local a b round
    for round in 1 2 3 4 5; do
        rm -rf ours/* theirs/*
        a=$(cpu "$kelvane" -q convert wav/*.wav ours/ --to "$2")
        b=$(cpu flac -s "$3" --no-padding --no-seektable --output-prefix=theirs/ wav/*.wav)
        awk -v a="$a" -v b="$b" 'BEGIN {print a / b, a, b}'
    done | sort -g | awk -v label="$1" 'NR == 1 {least = $1} NR == 3 {middle = $0} END {
        split(middle, m); printf "%-10s %.2f times the processor time of flac (%.2f to %.2f); %.2f s against %.2f s\n",
        label, m[1], least, $1, m[2], m[3]}'
}

row "default" "Free lossless audio codec (default)" -5
row "most" "Free lossless audio codec (max comp)" -8
rm -rf wav ours theirs time.txt
