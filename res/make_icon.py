#!/usr/bin/env python3
"""Draws the Hintwick icon and writes it as a multi-size Windows .ico.

The mark is a speech bubble on an indigo tile; inside the bubble a candle
stands in for the stem of an "i", its flame for the dot.

Usage: make_icon.py OUT.ico [--png-dir DIR]

Only the standard library is used so the build needs nothing but Python 3.
Shapes are signed distance fields sampled once per pixel: that gives clean
one-pixel anti-aliasing without supersampling, which keeps a pure-Python
render of all sizes to about a second. Output is byte-for-byte
reproducible (for a given zlib), so two builds of one commit embed the same
icon.
"""

import argparse
import math
import os
import struct
import sys
import types
import zlib

SIZES = (16, 20, 24, 32, 48, 256)
# Windows reads PNG entries since Vista, but some tools and the classic icon
# loaders only understand DIBs, so PNG is reserved for the size where it pays.
PNG_SIZES = frozenset({256})


# --------------------------------------------------------------------------
# Geometry. Every size gets its own layout in pixel units: small icons are
# drawn on the pixel grid by hand, since a scaled-down large drawing turns
# into grey mush at 16 px.
#
# Boxes are (centre x, centre y, half width, half height, corner radius).
#   tile, bubble, stem  boxes
#   tail        triangle (top on the bubble's left edge, inner corner, tip)
#   tail_blend  radius of the fillet where the tail meets the bubble
#   flame       (centre x, centre y of the round base, base radius,
#               tip radius, tip height above the base centre)
#   core        None or (size relative to the flame, drop below its centre)
#   wick        None or a box without a radius
#   shadow      None or (drop, blur, opacity) under the bubble
#   glow        None or (radius, opacity) of warm light around the flame

Layout = types.SimpleNamespace


def _box(x0, y0, x1, y1, r):
    return ((x0 + x1) / 2, (y0 + y1) / 2, (x1 - x0) / 2, (y1 - y0) / 2, r)


def _hand_tuned(size):
    # Straight edges sit on pixel boundaries; the flame is centred on one so
    # it stays symmetric over the even-width stem.
    if size == 16:
        return Layout(
            tile=_box(0, 0, 16, 16, 3.0),
            bubble=_box(2, 2, 14, 12, 2.5),
            tail=((2.0, 8.0), (7.0, 11.5), (2.0, 14.6)),
            tail_blend=1.0,
            stem=_box(7, 8, 9, 11, 0.3),
            flame=(8.0, 5.6, 1.55, 0.25, 3.0),
            core=None, wick=None, shadow=None, glow=None)
    if size == 20:
        return Layout(
            tile=_box(0, 0, 20, 20, 4.0),
            bubble=_box(2, 2, 18, 15, 3.0),
            tail=((2.0, 10.0), (8.5, 14.5), (2.0, 18.4)),
            tail_blend=1.2,
            stem=_box(9, 10, 11, 13, 0.4),
            flame=(10.0, 7.2, 1.8, 0.25, 3.8),
            core=(0.45, 0.5), wick=None, shadow=None, glow=None)
    if size == 24:
        return Layout(
            tile=_box(1, 1, 23, 23, 4.5),
            bubble=_box(3, 3, 21, 18, 3.5),
            tail=((3.0, 12.0), (10.0, 17.5), (3.0, 21.4)),
            tail_blend=1.4,
            stem=_box(11, 12, 13, 16, 0.5),
            flame=(12.0, 8.6, 2.2, 0.3, 4.6),
            core=(0.45, 0.6), wick=None, shadow=None, glow=None)
    if size == 32:
        return Layout(
            tile=_box(1, 1, 31, 31, 6.5),
            bubble=_box(4, 4, 28, 25, 5.0),
            tail=((4.0, 16.0), (13.0, 24.5), (4.0, 28.6)),
            tail_blend=2.0,
            stem=_box(14, 17, 18, 23, 0.6),
            flame=(16.0, 12.9, 2.9, 0.35, 6.0),
            core=(0.45, 0.8), wick=None,
            shadow=(0.8, 1.2, 0.22), glow=None)
    return None


def _scaled(size):
    # Drawn on a 256-unit canvas; used for 48 px and up. Below 64 px the
    # straight edges are snapped to whole pixels to keep them crisp.
    s = size / 256.0
    snap = (lambda v: float(round(v * s))) if size < 64 else (lambda v: v * s)
    return Layout(
        tile=_box(snap(16), snap(16), snap(240), snap(240), 52 * s),
        bubble=_box(snap(36), snap(38), snap(220), snap(186), 40 * s),
        tail=((snap(36), 128 * s), (108 * s, 184 * s), (snap(36), 218 * s)),
        tail_blend=14 * s,
        stem=_box(snap(114), snap(134), snap(142), snap(174), 5 * s),
        flame=(128 * s, 100 * s, 22 * s, 2.5 * s, 50 * s),
        core=(0.48, 6 * s),
        wick=(128 * s, 128 * s, 2.4 * s, 7 * s) if size >= 64 else None,
        shadow=(5 * s, 8 * s, 0.28),
        glow=(34 * s, 0.22) if size >= 64 else None)


def layout_for(size):
    return _hand_tuned(size) or _scaled(size)


# --------------------------------------------------------------------------
# Signed distance functions (negative inside), pixel units, y pointing down.

def sd_round_box(x, y, cx, cy, hw, hh, r):
    qx = abs(x - cx) - hw + r
    qy = abs(y - cy) - hh + r
    ox = qx if qx > 0 else 0.0
    oy = qy if qy > 0 else 0.0
    return math.hypot(ox, oy) + min(max(qx, qy), 0.0) - r


def sd_triangle(x, y, a, b, c):
    def edge(px, py, ax, ay, bx, by):
        ex, ey = bx - ax, by - ay
        vx, vy = px - ax, py - ay
        t = (vx * ex + vy * ey) / (ex * ex + ey * ey)
        t = 0.0 if t < 0 else 1.0 if t > 1 else t
        dx, dy = vx - ex * t, vy - ey * t
        return dx * dx + dy * dy, vx * ey - vy * ex

    (ax, ay), (bx, by), (cx, cy) = a, b, c
    orient = 1.0 if (bx - ax) * (ay - cy) - (by - ay) * (ax - cx) > 0 else -1.0
    d0, s0 = edge(x, y, ax, ay, bx, by)
    d1, s1 = edge(x, y, bx, by, cx, cy)
    d2, s2 = edge(x, y, cx, cy, ax, ay)
    inside = orient * s0 > 0 and orient * s1 > 0 and orient * s2 > 0
    d = math.sqrt(min(d0, d1, d2))
    return -d if inside else d


def sd_flame(x, y, cx, cy, r1, r2, h):
    """Teardrop: a circle of radius r1 at (cx, cy) tapering to a rounded tip
    of radius r2 a height h above it. The upper half is pinched and leans a
    little so it reads as a flame rather than a raindrop."""
    px, py = x - cx, cy - y
    t = py / h
    if t > 0:
        t = min(t, 1.0)
        px = px * (1.0 + 0.6 * t * t) - 0.12 * r1 * t * t
    px = abs(px)
    b = (r1 - r2) / h
    a = math.sqrt(1.0 - b * b)
    k = -b * px + a * py
    if k < 0:
        return math.hypot(px, py) - r1
    if k > a * h:
        return math.hypot(px, py - h) - r2
    return a * px + b * py - r1


def smooth_union(d1, d2, k):
    if k <= 0:
        return min(d1, d2)
    h = max(k - abs(d1 - d2), 0.0) / k
    return min(d1, d2) - h * h * k * 0.25


def coverage(d, width=1.0):
    v = 0.5 - d / width
    return 0.0 if v <= 0 else 1.0 if v >= 1 else v


def mix(c0, c1, t):
    t = 0.0 if t < 0 else 1.0 if t > 1 else t
    return tuple(a + (b - a) * t for a, b in zip(c0, c1))


def rgb(hexstr):
    return tuple(int(hexstr[i:i + 2], 16) / 255.0 for i in (0, 2, 4))


TILE_TOP = rgb("5b6cff")
TILE_BOTTOM = rgb("3524a6")
BUBBLE = rgb("ffffff")
BUBBLE_SHADE = rgb("e6e9ff")
STEM = rgb("2c2380")
WICK = rgb("2a1d17")
FLAME_BASE = rgb("ff5a1f")
FLAME_TIP = rgb("ffab2e")
CORE_BASE = rgb("ffe680")
CORE_TIP = rgb("fff8dc")
GLOW = rgb("ffd27a")
SHADOW = rgb("120a4a")


# --------------------------------------------------------------------------
# Rendering

def render(size):
    """Returns rows of (r, g, b, a) floats in 0..1, straight alpha."""
    L = layout_for(size)
    tcx, tcy, thw, thh, tr = L.tile
    bcx, bcy, bhw, bhh, br = L.bubble
    fcx, fcy, fr1, fr2, fh = L.flame
    scx, scy, shw, shh, sr = L.stem

    tail_left = min(p[0] for p in L.tail)
    k = L.tail_blend

    def bubble_sd(x, y):
        # The tail shares the bubble's left edge; blending there would bulge
        # it, so the fillet fades in only towards the inner corner.
        ramp = (x - tail_left - k) / k
        ramp = 0.0 if ramp < 0 else 1.0 if ramp > 1 else ramp
        return smooth_union(sd_round_box(x, y, bcx, bcy, bhw, bhh, br),
                            sd_triangle(x, y, *L.tail), k * ramp)

    rows = []
    for j in range(size):
        row = []
        y = j + 0.5
        for i in range(size):
            x = i + 0.5
            # Premultiplied accumulation, painted back to front.
            acc = [0.0, 0.0, 0.0, 0.0]

            def over(color, a):
                if a <= 0:
                    return
                k = 1.0 - a
                acc[0] = color[0] * a + acc[0] * k
                acc[1] = color[1] * a + acc[1] * k
                acc[2] = color[2] * a + acc[2] * k
                acc[3] = a + acc[3] * k

            d_tile = sd_round_box(x, y, tcx, tcy, thw, thh, tr)
            tile_a = coverage(d_tile)
            if tile_a <= 0:
                row.append((0.0, 0.0, 0.0, 0.0))
                continue
            # Diagonal gradient, light from the top left like Windows' own tiles.
            g = ((x - tcx + thw) + (y - tcy + thh)) / (2 * (thw + thh))
            over(mix(TILE_TOP, TILE_BOTTOM, g), tile_a)

            if L.shadow:
                dy, blur, strength = L.shadow
                d = bubble_sd(x, y - dy)
                over(SHADOW, strength * tile_a * coverage(d, blur * 2))

            d_bubble = bubble_sd(x, y)
            bubble_a = coverage(d_bubble)
            if bubble_a > 0:
                shade = (y - (bcy - bhh)) / (2 * bhh) if size >= 32 else 0.0
                over(mix(BUBBLE, BUBBLE_SHADE, shade * shade), bubble_a)

                if L.glow:
                    radius, strength = L.glow
                    dist = math.hypot(x - fcx, y - (fcy - fh * 0.25))
                    fall = max(0.0, 1.0 - dist / radius)
                    over(GLOW, bubble_a * strength * fall * fall)

                over(STEM, coverage(sd_round_box(x, y, scx, scy, shw, shh, sr)))

                if L.wick:
                    wcx, wcy, whw, whh = L.wick
                    over(WICK, coverage(sd_round_box(x, y, wcx, wcy, whw, whh, whw * 0.9)))

                d_flame = sd_flame(x, y, fcx, fcy, fr1, fr2, fh)
                flame_a = coverage(d_flame)
                if flame_a > 0:
                    t = ((fcy + fr1) - y) / (fr1 + fh)
                    over(mix(FLAME_BASE, FLAME_TIP, t), flame_a)
                    if L.core:
                        scale, drop = L.core
                        d_core = sd_flame(x, y, fcx, fcy + drop, fr1 * scale,
                                          fr2 * scale, fh * scale * 1.25)
                        over(mix(CORE_BASE, CORE_TIP, t), coverage(d_core))

            a = acc[3]
            if a <= 0:
                row.append((0.0, 0.0, 0.0, 0.0))
            else:
                row.append((acc[0] / a, acc[1] / a, acc[2] / a, a))
        rows.append(row)
    return rows


def to_bytes(rows, order):
    """Packs rows as 8-bit channels in the given order, e.g. 'RGBA'."""
    idx = ["RGBA".index(ch) for ch in order]
    out = bytearray()
    for row in rows:
        for px in row:
            for k in idx:
                v = int(px[k] * 255.0 + 0.5)
                out.append(0 if v < 0 else 255 if v > 255 else v)
    return out


# --------------------------------------------------------------------------
# File formats

def png_bytes(rows):
    size_h, size_w = len(rows), len(rows[0])
    raw = bytearray()
    stride = size_w * 4
    data = to_bytes(rows, "RGBA")
    for j in range(size_h):
        raw.append(0)  # filter: none
        raw += data[j * stride:(j + 1) * stride]

    def chunk(tag, payload):
        body = tag + payload
        return struct.pack(">I", len(payload)) + body + struct.pack(">I", zlib.crc32(body))

    ihdr = struct.pack(">IIBBBBB", size_w, size_h, 8, 6, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", ihdr) +
            chunk(b"IDAT", zlib.compress(bytes(raw), 9)) + chunk(b"IEND", b""))


def dib_bytes(rows):
    """32-bit BGRA icon image: header, bottom-up colour rows, then the 1-bit
    AND mask that pre-alpha code paths still use for hit-testing."""
    h, w = len(rows), len(rows[0])
    header = struct.pack("<IiiHHIIiiII", 40, w, h * 2, 1, 32, 0, 0, 0, 0, 0, 0)
    color = bytearray()
    for row in reversed(rows):
        color += to_bytes([row], "BGRA")
    mask_stride = ((w + 31) // 32) * 4
    mask = bytearray()
    for row in reversed(rows):
        line = bytearray(mask_stride)
        for i, px in enumerate(row):
            if int(px[3] * 255.0 + 0.5) == 0:
                line[i // 8] |= 0x80 >> (i % 8)
        mask += line
    return header + color + mask


def ico_bytes(images):
    """images: list of (size, encoded image bytes)."""
    count = len(images)
    out = bytearray(struct.pack("<HHH", 0, 1, count))
    offset = 6 + 16 * count
    for size, blob in images:
        dim = 0 if size >= 256 else size  # a zero byte means 256
        out += struct.pack("<BBBBHHII", dim, dim, 0, 0, 1, 32, len(blob), offset)
        offset += len(blob)
    for _, blob in images:
        out += blob
    return bytes(out)


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("out", help="the .ico file to write")
    parser.add_argument("--png-dir", help="also write each size as PNG here")
    args = parser.parse_args(argv)

    images = []
    for size in SIZES:
        rows = render(size)
        if args.png_dir:
            os.makedirs(args.png_dir, exist_ok=True)
            with open(os.path.join(args.png_dir, "hintwick-%d.png" % size), "wb") as f:
                f.write(png_bytes(rows))
        images.append((size, png_bytes(rows) if size in PNG_SIZES else dib_bytes(rows)))

    data = ico_bytes(images)
    # Write then rename, so an interrupted build never leaves a truncated
    # icon that looks up to date.
    tmp = args.out + ".tmp"
    with open(tmp, "wb") as f:
        f.write(data)
    os.replace(tmp, args.out)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
