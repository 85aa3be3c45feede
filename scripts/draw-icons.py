#!/usr/bin/env python3
"""Draws the status item's two monochrome template images (1x and 2x) into resources/.

menu_icon: an envelope with a signature stroke; menu_icon_progress: the same envelope with
a circular arrow, shown while an update runs. Black on transparent, so macOS can tint them."""
import math
import struct
import sys
import zlib
from pathlib import Path


def png(width, height, alpha):
    rows = b"".join(b"\x00" + b"".join(bytes((0, 0, 0, a)) for a in alpha[y * width:(y + 1) * width])
                    for y in range(height))
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 6, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(rows, 9)) + chunk(b"IEND", b""))


def segment_distance(px, py, ax, ay, bx, by):
    dx, dy = bx - ax, by - ay
    t = max(0.0, min(1.0, ((px - ax) * dx + (py - ay) * dy) / (dx * dx + dy * dy)))
    return math.hypot(px - (ax + t * dx), py - (ay + t * dy))


def draw(size, progress):
    s = size / 22.0
    lines = [  # envelope outline and flap, in 22-point units
        (3, 5, 19, 5), (19, 5, 19, 16), (19, 16, 3, 16), (3, 16, 3, 5), (3, 5, 11, 11), (11, 11, 19, 5),
    ]
    # the signature stroke below the envelope
    wave = [(4 + i * 0.5, 19 + math.sin(i * 0.9) * 1.2) for i in range(29)]
    lines += [(a[0], a[1], b[0], b[1]) for a, b in zip(wave, wave[1:])]
    width = 1.5
    alpha = []
    for y in range(size):
        for x in range(size):
            coverage = 0.0
            for sy in range(4):  # 4x4 supersampling for smooth edges
                for sx in range(4):
                    px, py = (x + (sx + 0.5) / 4) / s, (y + (sy + 0.5) / 4) / s
                    inside = any(segment_distance(px, py, *l) <= width / 2 for l in lines)
                    if progress:
                        d = math.hypot(px - 16.5, py - 15.5)
                        angle = math.atan2(py - 15.5, px - 16.5)
                        if d <= 5.2:
                            inside = False  # clear the badge's background
                        if abs(d - 3.6) <= 0.8 and angle > -2.2:
                            inside = True
                        head = [(16.5 + 3.6 * math.cos(-2.2), 15.5 + 3.6 * math.sin(-2.2))]
                        if math.hypot(px - head[0][0], py - head[0][1]) <= 1.3:
                            inside = True
                    coverage += inside
            alpha.append(int(round(255 * coverage / 16)))
    return png(size, size, alpha)


def main():
    out = Path(sys.argv[1] if len(sys.argv) > 1 else Path(__file__).resolve().parent.parent / "resources")
    out.mkdir(parents=True, exist_ok=True)
    for name, progress in (("menu_icon", False), ("menu_icon_progress", True)):
        for suffix, size in (("", 22), ("@2x", 44)):
            (out / f"{name}{suffix}.png").write_bytes(draw(size, progress))


if __name__ == "__main__":
    main()
