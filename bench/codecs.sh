#!/usr/bin/env bash
# Decodes and encodes ten minutes of audio in each coded form, in turns with other programs, and prints the
# user time of each: the least of five. Needs some 400 MB in a temporary folder.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
kelvane="$root/build/release/src/shell/kelvane/kelvane -q convert --force"
ffmpeg="ffmpeg -loglevel error -y"
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"

least() { # user seconds of a command
    for _ in 1 2 3 4 5; do
        /usr/bin/time -f '%U' -o time.txt "$@" >out.txt 2>&1 || echo failed: "$@" >&2
        tail -n 1 time.txt
    done | sort -g | head -n 1
}
row() { printf '%-24s kelvane %s s   %s %s s\n' "$1" "$2" "$3" "$4"; }

synth="synth 600 sine 440 sine 1310 pinknoise remix - tremolo 3 40 norm -3"
sox -n -r 44100 -c 1 -b 16 m44.wav $synth
sox -n -r 8000 -c 1 -b 16 m8.wav $synth
sox -n -r 16000 -c 1 -b 16 m16.wav $synth
sox m44.wav -e ima-adpcm ima.wav
sox m44.wav -e ms-adpcm ms.wav
sox m8.wav -e gsm-full-rate gsm.wav
sox m8.wav m8.vox
$ffmpeg -i m8.wav -c:a adpcm_yamaha yamaha.wav
$ffmpeg -i m8.wav -c:a g726 -b:a 32k -f g726 m8.g726
$ffmpeg -i m16.wav -c:a g722 m16.g722

for form in ima ms gsm; do
    a=$(least $kelvane $form.wav out.sw)
    row "$form, decoding" "$a" sox "$(least sox $form.wav -t raw out.raw)"
    row "$form, decoding" "$a" ffmpeg "$(least $ffmpeg -i $form.wav -f s16le out.raw)"
done
row "yamaha, decoding" "$(least $kelvane yamaha.wav out.sw)" ffmpeg "$(least $ffmpeg -i yamaha.wav -f s16le out.raw)"
row "vox, decoding" "$(least $kelvane m8.vox out.sw)" sox "$(least sox -r 8000 m8.vox -t raw out.raw)"
row "g726, decoding" "$(least $kelvane m8.g726 --as g726-4 out.sw)" ffmpeg \
    "$(least $ffmpeg -f g726 -ar 8000 -code_size 4 -i m8.g726 -f s16le out.raw)"
row "g722, decoding" "$(least $kelvane m16.g722 --as g722-8 out.sw)" ffmpeg "$(least $ffmpeg -i m16.g722 -f s16le out.raw)"

row "gsm, encoding" "$(least $kelvane m8.wav out.wav --data 'GSM 2-bit')" sox "$(least sox m8.wav -e gsm-full-rate out2.wav)"
row "yamaha, encoding" "$(least $kelvane m8.wav out.yadpcm)" ffmpeg "$(least $ffmpeg -i m8.wav -c:a adpcm_yamaha out2.wav)"
row "vox, encoding" "$(least $kelvane m8.wav out.vox --data 'ADPCM 4-bit')" sox "$(least sox m8.wav out2.vox)"
row "g726, encoding" "$(least $kelvane m8.wav out.g726 --to 'G.726 4-bit ADPCM - Big Endian')" ffmpeg \
    "$(least $ffmpeg -i m8.wav -c:a g726 -b:a 32k -f g726 out2.g726)"
row "g722, encoding" "$(least $kelvane m16.wav out.g722 --to 'G.726 64 kbit/ ADPCM')" ffmpeg \
    "$(least $ffmpeg -i m16.wav -c:a g722 out2.g722)"
