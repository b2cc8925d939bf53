"""Minimal PNG writing and reading with the Python standard library only.

Used by the tool tests and the demo script to make input images and to check the images the tool
writes. Reads 8- and 16-bit grey, grey+alpha, RGB and RGBA PNGs (no palette, no interlacing).
"""
import struct
import zlib


def _chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def write_png(path, width, height, pixels, bit_depth=8, channels=4):
    """Writes rows of pixels given as a flat list of samples (channels per pixel)."""
    row = width * channels
    sample = ">%d%s" % (row, "H" if bit_depth == 16 else "B")
    raw = b"".join(b"\0" + struct.pack(sample, *pixels[y * row:(y + 1) * row]) for y in range(height))
    header = struct.pack(">IIBBBBB", width, height, bit_depth, {1: 0, 2: 4, 3: 2, 4: 6}[channels], 0, 0, 0)
    with open(path, "wb") as f:
        f.write(b"\x89PNG\r\n\x1a\n" + _chunk(b"IHDR", header) + _chunk(b"IDAT", zlib.compress(raw))
                + _chunk(b"IEND", b""))


def _paeth(a, b, c):
    pa, pb, pc = abs(b - c), abs(a - c), abs(a + b - 2 * c)
    return a if pa <= pb and pa <= pc else b if pb <= pc else c


def read_png(path):
    """Returns a dict: width, height, bit_depth, channels, samples (flat list),
    icc (the decompressed iCCP profile or None)."""
    with open(path, "rb") as f:
        data = f.read()
    if data[:8] != b"\x89PNG\r\n\x1a\n":
        raise ValueError("not a PNG")
    pos, idat, icc = 8, b"", None
    while pos < len(data):
        length, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + length]
        if kind == b"IHDR":
            width, height, bit_depth, color_type, _, _, interlace = struct.unpack(">IIBBBBB", body)
        idat += body if kind == b"IDAT" else b""
        icc = zlib.decompress(body[body.index(b"\0") + 2:]) if kind == b"iCCP" else icc
        pos += 12 + length
    if interlace or color_type not in (0, 2, 4, 6):
        raise ValueError("unsupported PNG layout")
    channels = {0: 1, 2: 3, 4: 2, 6: 4}[color_type]
    bpp, raw, out = channels * bit_depth // 8, zlib.decompress(idat), bytearray()
    stride, prev = width * bpp, bytearray(width * bpp)
    for y in range(height):
        kind, row = raw[y * (stride + 1)], bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        for i in range(stride):
            a, b, c = (row[i - bpp], prev[i], prev[i - bpp]) if i >= bpp else (0, prev[i], 0)
            row[i] = (row[i] + (a if kind == 1 else b if kind == 2 else (a + b) // 2 if kind == 3
                                else _paeth(a, b, c) if kind == 4 else 0)) & 0xFF
        out += row
        prev = row
    samples = list(struct.unpack(">%dH" % (len(out) // 2), out)) if bit_depth == 16 else list(out)
    return {"width": width, "height": height, "bit_depth": bit_depth, "channels": channels,
            "samples": samples, "icc": icc}
