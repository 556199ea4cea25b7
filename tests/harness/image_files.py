"""Image files of simple content."""

import itertools
import math
import struct
import zlib

RGB, RGBA = 2, 6  # the colour types of the PNG specification, section 11.2.2


def png(width, height, rows):
    """A PNG file. `rows`: the bytes of each row, either RGB or RGBA, which their length shows."""
    compressor = zlib.compressobj()
    pixels = bytearray()
    for row in rows:
        pixels += compressor.compress(b"\0" + row)  # filter type: none
    pixels += compressor.flush()
    colour_type = RGBA if len(row) == 4 * width else RGB
    header = struct.pack(">IIBBBBB", width, height, 8, colour_type, 0, 0, 0)
    chunks = _chunk(b"IHDR", header) + _chunk(b"IDAT", pixels) + _chunk(b"IEND", b"")
    return b"\x89PNG\r\n\x1a\n" + chunks


def _chunk(kind, data):
    checksum = zlib.crc32(kind + data)
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", checksum)


def flat_png(width, height, colour):
    """A picture of one RGB or RGBA colour."""
    return png(width, height, itertools.repeat(bytes(colour) * width, height))


def disc_png(edge, rgb):
    """An opaque disc with transparent corners."""
    inside, outside = bytes((*rgb, 255)), bytes((*rgb, 0))
    rows = []
    for y in range(edge):
        half_width = math.sqrt((edge / 2) ** 2 - (y + 0.5 - edge / 2) ** 2)
        margin = math.ceil(edge / 2 - half_width - 0.5)
        rows.append(outside * margin + inside * (edge - 2 * margin) + outside * margin)
    return png(edge, edge, rows)


def ico(*pictures):
    """An icon file of PNG pictures, given as (edge length, bytes)."""
    offset = 6 + 16 * len(pictures)
    directory = struct.pack("<HHH", 0, 1, len(pictures))
    for edge, data in pictures:
        size = edge % 256  # 0 stands for 256
        directory += struct.pack("<BBBBHHII", size, size, 0, 0, 1, 32, len(data), offset)
        offset += len(data)
    return directory + b"".join(data for _, data in pictures)
