#!/usr/bin/env python3
"""Makes ding-loop.wav: a bell tone with a loop, a root key, a cue point and texts."""
import math
import os
import struct

RATE = 44100
HZ = 441.0  # 100 frames a period, so that the loop meets itself
FRAMES = 26000
LOOP = (20000, 25000)


def sample(n):
    """Four partials that die away, then the steady rest of the first."""
    t = n / RATE
    tone = 0.12 * math.sin(2 * math.pi * HZ * t)
    for multiple, level, decay in ((1, 0.5, 9), (2, 0.22, 14), (3, 0.12, 20), (5, 0.06, 30)):
        fade = math.exp(-decay * t) if n < LOOP[0] else 0.0
        tone += level * fade * math.sin(2 * math.pi * HZ * multiple * t)
    return round(32000 * tone * min(1.0, n / 40))


def chunk(name, data):
    return name + struct.pack("<I", len(data)) + data + b"\0" * (len(data) % 2)


def text(name, value):
    return chunk(name, value.encode() + b"\0")


fmt = chunk(b"fmt ", struct.pack("<HHIIHH", 1, 1, RATE, RATE * 2, 2, 16))
data = chunk(b"data", b"".join(struct.pack("<h", sample(n)) for n in range(FRAMES)))
smpl = chunk(b"smpl", struct.pack("<9I", 0, 0, round(1e9 / RATE), 69, 0, 0, 0, 1, 0)
             + struct.pack("<6I", 0, 0, LOOP[0], LOOP[1] - 1, 0, 0))
cue = chunk(b"cue ", struct.pack("<I", 1) + struct.pack("<II4sIII", 1, 4000, b"data", 0, 0, 4000))
labels = chunk(b"LIST", b"adtl" + chunk(b"labl", struct.pack("<I", 1) + b"Strike is over\0"))
info = chunk(b"LIST", b"INFO" + text(b"INAM", "Ding") + text(b"IART", "Kelvane Studio")
             + text(b"ICMT", "An example with a loop") + text(b"ICOP", "Public domain"))
body = b"WAVE" + fmt + data + smpl + cue + labels + info
target = os.path.join(os.path.dirname(os.path.abspath(__file__)), "ding-loop.wav")
with open(target, "wb") as out:
    out.write(b"RIFF" + struct.pack("<I", len(body)) + body)
