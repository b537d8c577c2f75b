#!/usr/bin/env python3
"""Makes ding-loop.wav: a struck bell on A4, 16 bits, mono, 44.1 kHz.

The partials have the ratios of a tuned bell and die away at rates of their own. The tail fades over
into a steady tone whose partials all repeat within the loop, so that the loop is seamless.
Everything in the file is computed here; the result is the same at every run.
"""

import math
import pathlib
import struct

RATE = 44100
HZ = 441  # A4 to four cents: 100 frames a cycle
FRAMES = 26000
LOOP_START = 20000
LOOP_END = 25000  # one past the last looped frame
STRIKE_OVER = 4000

# Ratio to the strike note, level, seconds until it has fallen by 60 dB, and level in the loop.
# What sounds in the loop goes through whole cycles there: ratio * 50, the loop's cycles, is whole.
PARTIALS = [
    (0.5, 0.30, 3.0, 0.060),  # hum
    (1.0, 0.50, 2.2, 0.100),  # prime
    (1.2, 0.35, 1.6, 0.030),  # tierce, the minor third
    (1.5, 0.18, 1.2, 0.012),  # quint
    (2.0, 0.60, 1.1, 0.040),  # nominal
    (2.5, 0.16, 0.8, 0.0),
    (3.0, 0.22, 0.6, 0.006),
    (4.1, 0.20, 0.45, 0.0),
    (5.4, 0.14, 0.30, 0.0),
    (6.8, 0.10, 0.20, 0.0),
]


def frame(n):
    """The value at frame n, about -1 to 1 before scaling."""
    t = n / RATE
    into_loop = min(1.0, n / LOOP_START)
    struck = 0.5 + 0.5 * math.cos(math.pi * into_loop)  # 1 at the strike, 0 from the loop on
    total = 0.0
    for ratio, level, fall, looped in PARTIALS:
        dying = level * 10 ** (-3 * t / fall)
        amplitude = dying * struck + looped * (1 - struck)
        total += amplitude * math.sin(2 * math.pi * HZ * ratio * t)
    return total * min(1.0, n / 40)  # a strike of a millisecond, without a click


def chunk(name, body):
    return name + struct.pack("<I", len(body)) + body + b"\0" * (len(body) % 2)


def text(name, value):
    return chunk(name, value.encode("ascii") + b"\0")


def main():
    raw = [frame(n) for n in range(FRAMES)]
    scale = 0.89 * 32767 / max(abs(x) for x in raw)  # peak at -1 dB
    data = struct.pack(f"<{FRAMES}h", *(round(x * scale) for x in raw))

    fmt = struct.pack("<HHIIHH", 1, 1, RATE, RATE * 2, 2, 16)
    sampler = struct.pack("<9I", 0, 0, round(1e9 / RATE), 69, 0, 0, 0, 1, 0)
    loop = struct.pack("<6I", 0, 0, LOOP_START, LOOP_END - 1, 0, 0)  # its end is the last frame played
    cue = struct.pack("<I", 1) + struct.pack("<II4sIII", 1, STRIKE_OVER, b"data", 0, 0, STRIKE_OVER)
    label = b"adtl" + chunk(b"labl", struct.pack("<I", 1) + b"Strike is over\0")
    info = b"INFO" + b"".join([
        text(b"INAM", "Ding"),
        text(b"IART", "Kelvane Studio"),
        text(b"ICMT", "An example with a loop"),
        text(b"ICOP", "Public domain"),
    ])
    riff = b"WAVE" + chunk(b"fmt ", fmt) + chunk(b"data", data) + chunk(b"smpl", sampler + loop)
    riff += chunk(b"cue ", cue) + chunk(b"LIST", label) + chunk(b"LIST", info)
    path = pathlib.Path(__file__).with_name("ding-loop.wav")
    path.write_bytes(chunk(b"RIFF", riff))


if __name__ == "__main__":
    main()
