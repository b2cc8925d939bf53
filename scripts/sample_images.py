#!/usr/bin/python3
"""Draws the PNG layers of psdkit's sample document into a folder (standard library only).

usage: sample_images.py OUTDIR

sky.png 240x160 (opaque gradient), sun.png 64x64 (soft disc), hill.png 240x70 (green hill with a
transparent sky), house.png 48x44 and roof.png 60x26 (a house and its roof, for a group).
"""
import math
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "tool"))
import pngio  # noqa: E402


def draw(path, width, height, pixel):
    samples = []
    for y in range(height):
        for x in range(width):
            samples += pixel(x, y)
    pngio.write_png(path, width, height, samples)


def main(out):
    os.makedirs(out, exist_ok=True)
    draw(os.path.join(out, "sky.png"), 240, 160,
         lambda x, y: [40 + y // 2, 90 + y // 2, 200 - y // 4, 255])

    def sun(x, y):
        d = math.hypot(x - 31.5, y - 31.5)
        a = 255 if d < 22 else max(0, int(255 * (32 - d) / 10))
        return [255, 210, 60, a]
    draw(os.path.join(out, "sun.png"), 64, 64, sun)

    def hill(x, y):
        top = 30 + 18 * math.cos(x / 40.0)
        return [60, 150 - y, 50, 255] if y >= top else [0, 0, 0, 0]
    draw(os.path.join(out, "hill.png"), 240, 70, hill)
    draw(os.path.join(out, "house.png"), 48, 44,
         lambda x, y: [90, 60, 40, 255] if 18 <= x < 30 and y >= 24 else [230, 220, 200, 255])

    def roof(x, y):
        inside = abs(x - 29.5) <= (y + 1) * 30 / 26
        return [170, 40, 40, 255] if inside else [0, 0, 0, 0]
    draw(os.path.join(out, "roof.png"), 60, 26, roof)


if __name__ == "__main__":
    main(sys.argv[1])
