#!/usr/bin/env python3
"""Makes the packed streams beside this script. Needs the Debian packages wavpack, vorbis-tools and flac:
    python3 tests/data/packed/make.py
The signal is the one that the tests compute, in integers only: a parabola for each half of a wave."""
import pathlib
import struct
import subprocess

FOLDER = pathlib.Path(__file__).parent
FRAMES = 3000


def sample(frame, channel):
    phase = frame * (2000 + 1000 * channel) % 65536 - 32768
    return phase * (32768 - abs(phase)) >> 14


def pack24(v):
    return struct.pack("<i", v)[:3]


def pcm(channels, pack):
    return b"".join(pack(sample(i, c), i) for i in range(FRAMES) for c in range(channels))


def run(program, name, channels, pack):
    subprocess.run(program + ["-o", str(FOLDER / name), "-"], input=pcm(channels, pack), check=True)


def wavpack(name, form, channels, pack):
    # Short blocks, so that seeking has something to find.
    run(["wavpack", "-y", "-q", "--blocksize=512", f"--raw-pcm=44100,{form},{channels}"], name, channels, pack)


wavpack("mono8.wv", "8u", 1, lambda v, i: struct.pack("B", (v >> 8) + 128))
wavpack("stereo16.wv", "16s", 2, lambda v, i: struct.pack("<h", v))
wavpack("mono24.wv", "24s", 1, lambda v, i: pack24(v * 256 + i % 251))
wavpack("mono32.wv", "32s", 1, lambda v, i: struct.pack("<i", v * 65536 + i))
wavpack("stereo-float.wv", "32f", 2, lambda v, i: struct.pack("<f", v / 32768))
for channels, name in (1, "mono.ogg"), (2, "stereo.ogg"):
    run(["oggenc", "-Q", "-r", "-R", "44100", "-B", "16", "-C", str(channels), "-q", "10", "--serial", str(channels)],
        name, channels, lambda v, i: struct.pack("<h", v))


def flac(name, bits, channels, pack):
    run(["flac", "-s", "-f", "-b", "512", "--force-raw-format", "--endian=little", "--sign=signed", f"--bps={bits}",
         "--sample-rate=44100", f"--channels={channels}"], name, channels, pack)


flac("mono8.flac", 8, 1, lambda v, i: struct.pack("b", v >> 8))
flac("stereo16.flac", 16, 2, lambda v, i: struct.pack("<h", v))
flac("mono24.flac", 24, 1, lambda v, i: pack24(v * 256 + i % 251))
