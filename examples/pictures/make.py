#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Makes the example pictures: ./make.py [DIRECTORY]. Pixels are computed, the same on every run. PNG is put together by
hand with zlib, so the pictures do not depend on the codec modules that they are tried with."""

import math
import struct
import sys
import zlib
from pathlib import Path

GREY, RGB, INDEXED, GREY_ALPHA, RGB_ALPHA = 0, 2, 3, 4, 6
CHANNELS = {GREY: 1, RGB: 3, INDEXED: 1, GREY_ALPHA: 2, RGB_ALPHA: 4}
PASSES = [(0, 0, 8, 8), (4, 0, 8, 8), (0, 4, 4, 8), (2, 0, 4, 4), (0, 2, 2, 4), (1, 0, 2, 2), (0, 1, 1, 2)]


def chunk(name, data):
    return struct.pack(">I", len(data)) + name + data + struct.pack(">I", zlib.crc32(name + data))


def pack(pixels, depth):
    """A row of pixels, each a tuple of samples, as bytes."""
    samples = [sample for pixel in pixels for sample in pixel]
    if depth == 16:
        return struct.pack(f">{len(samples)}H", *samples)
    if depth == 8:
        return bytes(samples)
    bits = "".join(f"{sample:0{depth}b}" for sample in samples)
    return bytes(int(bits[i : i + 8].ljust(8, "0"), 2) for i in range(0, len(bits), 8))


def filtered(row, above, step):
    """The row after the filter whose result is smallest, as encoders choose."""
    left = bytes(step) + row[: len(row) - step]
    candidates = [bytes([0]) + row, bytes([1]) + bytes((x - a) & 255 for x, a in zip(row, left)),
                  bytes([2]) + bytes((x - b) & 255 for x, b in zip(row, above))]
    return min(candidates, key=lambda c: sum(min(x, 256 - x) for x in c[1:]))


def png(path, width, height, color_type, depth, pixel, palette=None, alpha=None, interlaced=False):
    def rows(x0, y0, dx, dy):
        step = max(1, CHANNELS[color_type] * depth // 8)
        above = None
        for y in range(y0, height, dy):
            pixels = [pixel(x, y) for x in range(x0, width, dx)]
            if not pixels:
                return
            row = pack(pixels, depth)
            yield filtered(row, above or bytes(len(row)), step) if depth >= 8 and color_type != INDEXED else b"\0" + row
            above = row

    passes = PASSES if interlaced else [(0, 0, 1, 1)]
    data = b"".join(b"".join(rows(*p)) for p in passes)
    header = struct.pack(">IIBBBBB", width, height, depth, color_type, 0, 0, int(interlaced))
    out = b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header)
    if palette:
        out += chunk(b"PLTE", bytes(sample for color in palette for sample in color))
    if alpha:
        out += chunk(b"tRNS", bytes(alpha))
    path.write_bytes(out + chunk(b"IDAT", zlib.compress(data, 9)) + chunk(b"IEND", b""))


def noise(x, y):
    """A number from 0 to 1 for a grid point, without a random generator."""
    n = (x * 374761393 + y * 668265263) & 0xFFFFFFFF
    n = ((n ^ (n >> 13)) * 1274126177) & 0xFFFFFFFF
    return ((n ^ (n >> 16)) & 0xFFFF) / 0xFFFF


def smooth(x, y):
    ix, iy = math.floor(x), math.floor(y)
    fx, fy = x - ix, y - iy
    fx, fy = fx * fx * (3 - 2 * fx), fy * fy * (3 - 2 * fy)
    top = noise(ix, iy) * (1 - fx) + noise(ix + 1, iy) * fx
    bottom = noise(ix, iy + 1) * (1 - fx) + noise(ix + 1, iy + 1) * fx
    return top * (1 - fy) + bottom * fy


def clouds(x, y):
    return sum(smooth(x / s, y / s) / 2**i for i, s in enumerate((64, 32, 16, 8, 4))) / 1.94


def mix(a, b, t):
    t = min(1, max(0, t))
    return tuple(p * (1 - t) + q * t for p, q in zip(a, b))


def landscape(x, y, width, height):
    """Sky with clouds and a sun, two ridges, water: something like a photograph. Channels from 0 to 1."""
    u, v = x / width, y / height
    color = mix((0.23, 0.45, 0.78), (0.93, 0.80, 0.66), v * 1.7)
    color = mix(color, (0.97, 0.96, 0.95), (clouds(x * 0.8, y * 2) - 0.5) * 3 * (1 - v))
    color = mix(color, (1.0, 0.95, 0.75), 1.2 - 14 * math.hypot(u - 0.72, (v - 0.25) * height / width))
    for base, rough, tone, seed in ((0.52, 0.22, (0.38, 0.44, 0.55), 900), (0.66, 0.16, (0.16, 0.27, 0.17), 1800)):
        ridge = base - rough * (clouds(x * 1.3 + seed, seed) - 0.4)
        if v > ridge:
            color = mix(tone, (0.55, 0.56, 0.45), (clouds(x * 2 + seed, y * 3) - 0.4) * 0.8)
    if v > 0.78:
        mirror = landscape(x, int((1.56 - v) * height * 0.9), width, height)
        color = mix(mirror, (0.10, 0.22, 0.30), 0.45 + 0.35 * clouds(x * 0.7, y * 9))
    return tuple(c + (noise(x * 3 + i, y * 7) - 0.5) * 0.012 for i, c in enumerate(color))


def quantised(color, highest):
    return tuple(round(min(1, max(0, c)) * highest) for c in color)


def main():
    out = Path(sys.argv[1] if len(sys.argv) > 1 else Path(__file__).parent)

    def photo(width, height, highest=255):
        return lambda x, y: quantised(landscape(x, y, width, height), highest)

    def grey(x, y):
        r, g, b = landscape(x, y, 160, 107)
        return quantised((0.3 * r + 0.59 * g + 0.11 * b,), 255)

    def disc(x, y, width, height):
        """Distance from the edge of a disc, in pixels; inside it is positive."""
        return min(width, height) * 0.46 - math.hypot(x - (width - 1) / 2, y - (height - 1) / 2)

    def ball(x, y):
        shade = 0.35 + 0.65 * max(0, 1 - math.hypot(x - 38, y - 36) / 70)
        return quantised((0.95 * shade, 0.35 * shade, 0.20 * shade, disc(x, y, 101, 97) / 6), 255)

    def veil(x, y):
        return quantised((clouds(x * 2, y * 2), disc(x, y, 67, 61) / 25), 255)

    def sign(x, y):  # entry 0 around the disc, rings of colours in it
        d = disc(x, y, 96, 96)
        return (0,) if d < 0 else (1 + int(d / 3) % 15,)

    def soft_sign(x, y):
        d = disc(x, y, 89, 83)
        return (min(31, int(max(0, d) * 1.2)),)

    def bilevel(x, y):  # ordered dither
        threshold = (0, 8, 2, 10, 12, 4, 14, 6, 3, 11, 1, 9, 15, 7, 13, 5)[(y % 4) * 4 + x % 4]
        return (int(grey(x, y)[0] > threshold * 16 + 8),)

    wheel = [
        quantised([0.5 + 0.5 * math.cos(2 * math.pi * (i / 15 - c / 3)) for c in range(3)], 255) for i in range(15)
    ]
    greens = [(8 * i, 120 + 4 * i, 60 + 3 * i) for i in range(32)]
    png(out / "photo.png", 241, 161, RGB, 8, photo(241, 161))
    png(out / "interlaced.png", 97, 61, RGB, 8, photo(97, 61), interlaced=True)
    png(out / "deep.png", 61, 41, RGB, 16, photo(61, 41, 65535))
    png(out / "grey.png", 160, 107, GREY, 8, grey)
    png(out / "grey-2bit.png", 75, 50, GREY, 2, lambda x, y: (grey(x * 2, y * 2)[0] >> 6,))
    png(out / "grey-alpha.png", 67, 61, GREY_ALPHA, 8, veil)
    png(out / "alpha.png", 101, 97, RGB_ALPHA, 8, ball)
    png(out / "palette-key.png", 96, 96, INDEXED, 4, sign, palette=[(0, 0, 0)] + wheel, alpha=[0])
    alphas = [min(255, 9 * i) for i in range(29)]
    png(out / "palette-alpha.png", 89, 83, INDEXED, 8, soft_sign, palette=greens, alpha=alphas)
    png(out / "rgb-key.png", 31, 29, RGB, 8,
        lambda x, y: (255, 0, 255) if disc(x, y, 31, 29) < 0 else (8 * x, 8 * y, 90),
        alpha=struct.pack(">HHH", 255, 0, 255))
    png(out / "bilevel.png", 160, 107, INDEXED, 1, bilevel, palette=[(0, 0, 0), (255, 255, 255)])
    png(out / "dot.png", 1, 1, RGB, 8, lambda x, y: (200, 30, 60))
    png(out / "line.png", 1, 53, RGB, 8, lambda x, y: (4 * y, 255 - 4 * y, 128))
    (out / "bilevel.pbm").write_bytes(b"P4\n# white is 0\n160 107\n" + b"".join(
        pack([(1 - bilevel(x, y)[0],) for x in range(160)], 1) for y in range(107)))
    (out / "text.pgm").write_text("P2\n# sixteen greys\n17 13\n15\n" + "".join(
        " ".join(str((x + y) % 16) for x in range(17)) + "\n" for y in range(13)))


main()
