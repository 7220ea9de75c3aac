#!/usr/bin/env python3
"""Makes mitdb-2h.{hea,dat,atr}: two hours of ECG at 360 Hz, the first signal
(MLII) of MIT-BIH Arrhythmia Database records 100, 103, 113 and 119, one
after the other, with their reference annotations.

Usage: make-mitdb-2h.py MITDB_DIR [OUT_DIR [NAME RECORD...]]

With NAME and RECORDs it makes NAME.{hea,dat,atr} of those records instead
(for example a day of ECG from all 48 records, for benchmarks).

Only the Python standard library is needed. The signal samples are copied
unchanged (format 212, one signal); annotation times are shifted by the
samples of the records before, every other field is kept.
"""
import os
import sys

RECORDS = ["100", "103", "113", "119"]
FRAMES = 650000  # samples per signal of every mitdb record
NAME = "mitdb-2h"


def first_signal_212(path, frames):
    """The first of two interleaved 12-bit signals of a format-212 file."""
    data = open(path, "rb").read()
    out = []
    for f in range(frames):
        b0, b1 = data[3 * f], data[3 * f + 1]
        v = b0 | ((b1 & 0x0F) << 8)
        out.append(v - 4096 if v >= 2048 else v)
    return out


def pack_212(samples):
    out = bytearray()
    for i in range(0, len(samples), 2):
        a = samples[i] & 0xFFF
        b = samples[i + 1] & 0xFFF if i + 1 < len(samples) else 0
        out += bytes([a & 0xFF, (a >> 8) | ((b >> 8) << 4), b & 0xFF])
    if len(samples) % 2:
        out = out[:-1]
    return bytes(out)


def read_annotations(path):
    """(time, code, subtype, chan, num, aux) of every annotation."""
    b = open(path, "rb").read()
    out, t, pos, chan, num = [], 0, 0, 0, 0
    while pos + 2 <= len(b):
        w = b[pos] | (b[pos + 1] << 8)
        pos += 2
        code, value = w >> 10, w & 0x3FF
        if code == 0 and value == 0:
            break
        if code == 59:  # SKIP
            t += int.from_bytes(b[pos + 2:pos + 4] + b[pos:pos + 2], "little", signed=True)
            pos += 4
        elif code == 60:
            num = value
            out[-1][4] = num
        elif code == 61:
            out[-1][2] = value
        elif code == 62:
            chan = value
            out[-1][3] = chan
        elif code == 63:
            out[-1][5] = b[pos:pos + value]
            pos += value + (value & 1)
        else:
            t += value
            out.append([t, code, 0, chan, num, b""])
    return out


def write_annotations(path, annotations):
    words = bytearray()

    def word(code, value):
        words.extend((value | (code << 10)).to_bytes(2, "little"))

    t, chan, num = 0, 0, 0
    for time, code, subtype, c, n, aux in annotations:
        delta = time - t
        if delta > 1023:
            word(59, 0)
            words.extend((delta >> 16 & 0xFFFF).to_bytes(2, "little"))
            words.extend((delta & 0xFFFF).to_bytes(2, "little"))
            delta = 0
        word(code, delta)
        t = time
        if subtype:
            word(61, subtype)
        if c != chan:
            word(62, c)
            chan = c
        if n != num:
            word(60, n)
            num = n
        if aux:
            word(63, len(aux))
            words.extend(aux + (b"\0" if len(aux) % 2 else b""))
    word(0, 0)
    open(path, "wb").write(bytes(words))


def main():
    src = sys.argv[1]
    out_dir = sys.argv[2] if len(sys.argv) > 2 else os.path.dirname(os.path.abspath(__file__))
    name, records = (sys.argv[3], sys.argv[4:]) if len(sys.argv) > 4 else (NAME, RECORDS)
    samples, annotations = [], []
    for k, rec in enumerate(records):
        samples += first_signal_212(os.path.join(src, rec + ".dat"), FRAMES)
        for a in read_annotations(os.path.join(src, rec + ".atr")):
            a[0] += k * FRAMES
            annotations.append(a)
    open(os.path.join(out_dir, name + ".dat"), "wb").write(pack_212(samples))
    write_annotations(os.path.join(out_dir, name + ".atr"), annotations)
    checksum = sum(samples) & 0xFFFF
    checksum = checksum - 65536 if checksum >= 32768 else checksum
    with open(os.path.join(out_dir, name + ".hea"), "w") as h:
        h.write(f"{name} 1 360 {len(samples)}\n")
        h.write(f"{name}.dat 212 200 11 1024 {samples[0]} {checksum} 0 MLII\n")
        h.write("# MIT-BIH Arrhythmia Database 1.0.0, records " + ", ".join(records) +
                " (first signal), 30 minutes each, one after the other\n")


if __name__ == "__main__":
    main()
