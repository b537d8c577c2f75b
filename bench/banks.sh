#!/usr/bin/env bash
# Opens, describes, rewrites, converts and unpacks a SoundFont bank, in turns with other programs that read it and with
# cp of what was written, and prints the processor time of each. Needs some 600 MB in a temporary folder.
# Usage: bench/banks.sh [BANK.sf2]
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
kelvane=$root/build/release/src/shell/kelvane/kelvane
bank=${1:-/usr/share/sounds/sf2/FluidR3_GM.sf2}
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
echo quit >quit.txt

cpu() { # user and system seconds of a command, and its peak memory in MB; whatever it answers
    /usr/bin/time -f '%U %S %M' -o time.txt "$@" >out.txt 2>&1 || true
    tail -n 1 time.txt | awk '{printf "%.3f %.0f", $1 + $2, $3 / 1024}'
}

row() { # label; each line of standard input: seconds and MB of one round
    sort -g | awk -v label="$1" 'NR == 1 {least = $1} {s[NR] = $1; m[NR] = $2} END {
        i = int((NR + 1) / 2); printf "%-34s %.3f s (%.3f to %.3f), %d MB\n", label, s[i], least, s[NR], m[i]}'
}

rounds() { # command...: five rounds
    for _ in 1 2 3 4 5; do
        rm -rf folder && mkdir folder && rm -f out.* copy.*
        echo "$(cpu "$@")"
    done
}

rounds "$kelvane" -q info "$bank" | row "kelvane info"
rounds "$kelvane" info --json "$bank" | row "kelvane info --json"
rounds fluidsynth -q -ni -a file -o audio.file.name=/dev/null -o synth.dynamic-sample-loading=1 -f quit.txt "$bank" |
    row "fluidsynth, samples not loaded"
rounds sf2dump "$bank" | row "sf2dump"
rounds "$kelvane" -q convert "$bank" out.sf2 | row "kelvane convert to sf2"
"$kelvane" -q convert "$bank" written.sf2
rounds cp written.sf2 copy.sf2 | row "cp of that"
rounds "$kelvane" -q convert "$bank" folder --to wav | row "kelvane convert to WAV files"
mkdir waves && "$kelvane" -q convert "$bank" waves --to wav
rounds cp -r waves folder/copy | row "cp of those"
"$kelvane" -q convert "$bank" written.dls --to "DownLoadable Sounds level 2"
rounds "$kelvane" -q convert "$bank" out.dls --to "DownLoadable Sounds level 2" | row "kelvane convert to DLS level 2"
rounds cp --reflink=never written.dls copy.dls | row "cp of that"
rm -rf waves && mkdir waves && "$kelvane" -q convert "$bank" waves --to sfz
rounds "$kelvane" -q convert "$bank" folder --to sfz | row "kelvane convert to SFZ"
rounds cp -r --reflink=never waves folder/copy | row "cp of those"
