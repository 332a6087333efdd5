#!/usr/bin/env python3
"""Writes the seed files of the DPX and Cineon fuzz targets: small pictures (8 x 2, or 12 x 2
for 4:2:2) of every descriptor and depth in either byte order, with transfers, padding and the
film and television fields set in some, and Cineon scans of both packings.

    fuzz/dpx/make-corpus.py            # writes fuzz/dpx/corpus and fuzz/cineon/corpus
"""
import os
import struct
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
DPX_DIR = os.path.join(HERE, "corpus")
CINEON_DIR = os.path.join(HERE, "..", "cineon", "corpus")


def dpx(big, width, height, descriptor, depth, pixels, transfer=2, padding=0, timecode=0,
        rate=0.0, key=None, film=b"", orientation=0, encoding=0):
    e = ">" if big else "<"
    h = bytearray(2048)
    struct.pack_into(e + "II", h, 0, 0x53445058, 2048)
    h[8:12] = b"V1.0"
    struct.pack_into(e + "I", h, 16, 2048 + len(pixels))
    struct.pack_into(e + "I", h, 660, 0xFFFFFFFF)
    struct.pack_into(e + "HHII", h, 768, orientation, 1, width, height)
    h[800], h[801], h[802], h[803] = descriptor, transfer, 8, depth
    struct.pack_into(e + "HHII", h, 804, 1, encoding, 0, padding)
    struct.pack_into(e + "II", h, 1424, width, height)
    struct.pack_into(e + "II", h, 1628, 1, 1)
    if key:
        h[1664:1666], h[1670:1676], h[1676:1680], h[1668:1670] = key[0:2], key[2:8], key[8:12], key[13:15]
    h[1680:1680 + len(film)] = film
    struct.pack_into(e + "f", h, 1724, rate)
    struct.pack_into(e + "I", h, 1920, timecode)
    return bytes(h) + pixels


def cineon(big, width, height, packing, pixels, depth=10, padding=0):
    e = ">" if big else "<"
    h = bytearray(2048)
    struct.pack_into(e + "II", h, 0, 0x802A5FD7, 2048)
    h[193] = 3
    h[198] = depth
    struct.pack_into(e + "II", h, 200, width, height)
    h[681] = packing
    struct.pack_into(e + "I", h, 684, padding)
    return bytes(h) + pixels


def words(values, big):
    return b"".join(struct.pack(">I" if big else "<I", v & 0xFFFFFFFF) for v in values)


def ramp10(n, shift):
    """n 10-bit RGB words with the components `shift` bits up."""
    return [((i * 37 % 1024) << 20 | (i * 91 % 1024) << 10 | (i * 13 % 1024)) << shift for i in range(n)]


def write(folder, name, data):
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, name), "wb") as f:
        f.write(data)


def main():
    w, h = 8, 2
    for big in (False, True):
        order = "be" if big else "le"
        for transfer in (2, 3):
            t = "lin" if transfer == 2 else "log"
            write(DPX_DIR, f"rgb10-{t}-{order}", dpx(big, w, h, 50, 10, words(ramp10(w * h, 2), big), transfer))
            write(DPX_DIR, f"rgb16-{t}-{order}",
                  dpx(big, w, h, 50, 16, b"".join(struct.pack(">H" if big else "<H", i * 4099 & 0xFFFF)
                                                  for i in range(w * h * 3)), transfer))
        write(DPX_DIR, f"rgb8-{order}", dpx(big, w, h, 50, 8, bytes(range(w * h * 3))))
        write(DPX_DIR, f"rgba8-{order}", dpx(big, w, h, 51, 8, bytes(range(w * h * 4))))
        write(DPX_DIR, f"rgba10-{order}", dpx(big, w, h, 51, 10, words(ramp10(w * h, 2), big)))
        write(DPX_DIR, f"abgr10-{order}", dpx(big, w, h, 52, 10, words(ramp10(w * h, 2), big)))
        write(DPX_DIR, f"rgb12-{order}", dpx(big, w, h, 50, 12, bytes(w * h * 6)))
        write(DPX_DIR, f"rgb10-pad3-{order}", dpx(big, w, h, 50, 10, words(ramp10(w * h, 2), big) + bytes(6), padding=3))
        # 4:2:2 is always read big-endian, whatever the header's order.
        for descriptor in (100, 101, 102, 103):
            write(DPX_DIR, f"yuv{descriptor}-{order}", dpx(big, 12, h, descriptor, 10, words(ramp10(16, 2), True)))
        write(DPX_DIR, f"yuv8-{order}", dpx(big, 12, h, 100, 8, bytes(48)))
        write(DPX_DIR, f"other-descriptor-{order}", dpx(big, w, h, 6, 10, words(ramp10(w * h, 2), big)))
        write(DPX_DIR, f"metadata-{order}",
              dpx(big, w, h, 50, 10, words(ramp10(w * h, 2), big), timecode=0x01020304, rate=24.0,
                  key=b"KU1234560042+07", film=b"16 mm"))
        write(DPX_DIR, f"metadata-3perf-{order}",
              dpx(big, w, h, 50, 10, words(ramp10(w * h, 2), big), timecode=0x10203040, rate=29.97,
                  key=b"EK0000011234+63", film=b"3-perf"))
        write(DPX_DIR, f"reported-{order}",
              dpx(big, w, h, 50, 10, words(ramp10(w * h, 2), big), orientation=1, encoding=1))
        write(DPX_DIR, f"short-{order}", dpx(big, w, h, 50, 10, words(ramp10(5, 2), big)))

        write(CINEON_DIR, f"packing5-{order}", cineon(big, w, h, 5, words(ramp10(w * h, 2), big)))
        write(CINEON_DIR, f"packing6-{order}", cineon(big, w, h, 6, words(ramp10(w * h, 0), big)))
        write(CINEON_DIR, f"padding-{order}", cineon(big, w, h, 5, words(ramp10(w * h, 2), big) + bytes(4), padding=2))
        write(CINEON_DIR, f"depth8-{order}", cineon(big, w, h, 5, bytes(w * h * 4), depth=8))
        write(CINEON_DIR, f"short-{order}", cineon(big, w, h, 6, words(ramp10(3, 0), big)))
    return 0


if __name__ == "__main__":
    sys.exit(main())
