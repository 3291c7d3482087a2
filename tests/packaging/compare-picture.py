#!/usr/bin/env python3
"""Loose comparison of two popover pictures: the installed program's against the one in the
tree. The views may be restyled, so this checks size and coarse structure only: the same
width, a height within 25 %, and the grey levels of 24-pixel blocks of the shared top part
differing by at most 40 of 255 on average. Prints the figures; exits 1 when outside.
   compare-picture.py GOT.png WANT.png"""
import struct
import sys
import zlib


def read_png(path):
    """Grey levels (0..255) of an 8-bit RGB or RGBA, non-interlaced PNG, as rows."""
    data = open(path, "rb").read()
    if data[:8] != b"\x89PNG\r\n\x1a\n":
        sys.exit(f"{path}: not a PNG")
    pos, idat, width, height, channels = 8, b"", 0, 0, 0
    while pos < len(data):
        length, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + length]
        if kind == b"IHDR":
            width, height, depth, colour, _, _, interlace = struct.unpack(">IIBBBBB", body)
            channels = {2: 3, 6: 4}.get(colour)
            if depth != 8 or channels is None or interlace:
                sys.exit(f"{path}: only 8-bit RGB/RGBA non-interlaced pictures are read")
        elif kind == b"IDAT":
            idat += body
        pos += 12 + length
    raw = zlib.decompress(idat)
    stride = width * channels
    rows, previous = [], bytearray(stride)
    for y in range(height):
        start = y * (stride + 1)
        kind, line = raw[start], bytearray(raw[start + 1:start + 1 + stride])
        for x in range(stride):
            a = line[x - channels] if x >= channels else 0
            b = previous[x]
            c = previous[x - channels] if x >= channels else 0
            if kind == 1:
                line[x] = (line[x] + a) & 255
            elif kind == 2:
                line[x] = (line[x] + b) & 255
            elif kind == 3:
                line[x] = (line[x] + (a + b) // 2) & 255
            elif kind == 4:
                p = a + b - c
                pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                line[x] = (line[x] + (a if pa <= pb and pa <= pc else b if pb <= pc else c)) & 255
        previous = line
        rows.append([(line[i] * 30 + line[i + 1] * 59 + line[i + 2] * 11) // 100
                     for i in range(0, stride, channels)])
    return width, height, rows


def blocks(rows, width, height, size=24):
    out = []
    for by in range(0, height - size + 1, size):
        for bx in range(0, width - size + 1, size):
            total = sum(sum(rows[y][bx:bx + size]) for y in range(by, by + size))
            out.append(total / (size * size))
    return out


got_w, got_h, got = read_png(sys.argv[1])
want_w, want_h, want = read_png(sys.argv[2])
height = min(got_h, want_h)
difference = [abs(a - b) for a, b in zip(blocks(got, got_w, height), blocks(want, want_w, height))]
mean = sum(difference) / max(1, len(difference))
print(f"picture {got_w}x{got_h}, in the tree {want_w}x{want_h}; "
      f"mean block difference {mean:.1f} of 255 over {len(difference)} blocks")
ok = got_w == want_w and abs(got_h - want_h) <= 0.25 * want_h and mean <= 40
sys.exit(0 if ok else 1)
