"""Minimal PNG writing and reading with the Python standard library only.

Used by the tool tests and the demo script to make input images and to check the images the tool
writes. Reads 8- and 16-bit grey, grey+alpha, RGB and RGBA PNGs (no palette, no interlacing).
"""
import struct
import zlib

_SIGNATURE = b"\x89PNG\r\n\x1a\n"
_CHANNELS = {0: 1, 2: 3, 4: 2, 6: 4}


def _chunk(kind, data):
    body = kind + data
    return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body) & 0xFFFFFFFF)


def write_png(path, width, height, pixels, bit_depth=8, channels=4):
    """Writes rows of pixels given as a flat list of samples (channels per pixel)."""
    color_type = {1: 0, 2: 4, 3: 2, 4: 6}[channels]
    fmt = ">%dH" if bit_depth == 16 else "%dB"
    raw = bytearray()
    row_samples = width * channels
    for y in range(height):
        raw.append(0)
        raw += struct.pack(fmt % row_samples, *pixels[y * row_samples:(y + 1) * row_samples])
    png = _SIGNATURE + _chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, bit_depth, color_type, 0, 0, 0))
    png += _chunk(b"IDAT", zlib.compress(bytes(raw))) + _chunk(b"IEND", b"")
    with open(path, "wb") as f:
        f.write(png)


def _paeth(a, b, c):
    p = a + b - c
    pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
    if pa <= pb and pa <= pc:
        return a
    return b if pb <= pc else c


def read_png(path):
    """Returns a dict: width, height, bit_depth, channels, samples (flat list), chunks (names),
    icc (the decompressed iCCP profile or None)."""
    with open(path, "rb") as f:
        data = f.read()
    if data[:8] != _SIGNATURE:
        raise ValueError("not a PNG")
    pos, idat, chunks, icc = 8, b"", [], None
    while pos < len(data):
        length, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + length]
        chunks.append(kind.decode("latin-1"))
        if kind == b"IHDR":
            width, height, bit_depth, color_type, _, _, interlace = struct.unpack(">IIBBBBB", body)
        elif kind == b"IDAT":
            idat += body
        elif kind == b"iCCP":
            name_end = body.index(b"\0")
            icc = zlib.decompress(body[name_end + 2:])
        pos += 12 + length
    if interlace or color_type not in _CHANNELS:
        raise ValueError("unsupported PNG layout")
    channels = _CHANNELS[color_type]
    bpp = channels * bit_depth // 8
    stride = width * bpp
    raw = zlib.decompress(idat)
    out = bytearray()
    prev = bytearray(stride)
    for y in range(height):
        kind = raw[y * (stride + 1)]
        row = bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        for i in range(stride):
            a = row[i - bpp] if i >= bpp else 0
            b = prev[i]
            c = prev[i - bpp] if i >= bpp else 0
            if kind == 1:
                row[i] = (row[i] + a) & 0xFF
            elif kind == 2:
                row[i] = (row[i] + b) & 0xFF
            elif kind == 3:
                row[i] = (row[i] + (a + b) // 2) & 0xFF
            elif kind == 4:
                row[i] = (row[i] + _paeth(a, b, c)) & 0xFF
        out += row
        prev = row
    if bit_depth == 16:
        samples = list(struct.unpack(">%dH" % (len(out) // 2), bytes(out)))
    else:
        samples = list(out)
    return {"width": width, "height": height, "bit_depth": bit_depth, "channels": channels,
            "samples": samples, "chunks": chunks, "icc": icc}
