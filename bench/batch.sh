#!/usr/bin/env bash
# Converts 10,000 small WAV files to Wave-64: in one process, by a batch of one and two processes, and a hundred
# of them by a process of ffmpeg each. Then the memory and the time of a list of a million names, and the time to
# the first output. Prints seconds, CPU seconds and KB. Needs some 400 MB in a temporary folder.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
kelvane="$root/build/release/src/shell/kelvane/kelvane -q"
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"

mkdir in
sox -n -r 44100 -c 1 -b 16 one.wav synth 0.1 sine 440
seq -f 'in/s%05.0f.wav' 10000 | xargs -n 1 cp one.wav

measure() { # LABEL COMMAND...
    local label=$1
    shift
    sync
    /usr/bin/time -f "%e %U %S %M" -o time.txt "$@" >/dev/null 2>&1 || true
    tail -n 1 time.txt | awk -v label="$label" '{printf "%-28s %6.2f s   CPU %6.2f s   %7d KB\n", label, $1, $2 + $3, $4}'
}

for turn in 1 2 3; do
    rm -rf out*
    measure "one process, convert" $kelvane convert in/*.wav out0/ --to w64
    for workers in 1 2; do
        measure "batch -j $workers" $kelvane batch --mode waves --to w64 -o out$workers in -j $workers
        diff -rq out0 out$workers
    done
done
measure "ffmpeg, 100 files" bash -c 'for f in in/s000*.wav; do ffmpeg -loglevel error -y -i $f ${f%.wav}.w64; done'

seq -f "$folder/none/a-name-of-usual-length-%.0f.wav" 1000000 >list.txt
measure "list of a million, no job" $kelvane batch --mode waves --to w64 -o outlist @list.txt --shard 1/1000000
rm -rf out1
measure "one file" $kelvane batch --mode waves --to w64 -o out1 in/s00001.wav
