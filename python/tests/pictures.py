"""What the tests make and read: the ramps picture, a small PDF, 1-bit PNGs."""

import struct
import zlib

WIDTH, HEIGHT = 64, 40


def ramps_rgb() -> bytes:
    """64 x 40 pixels of colour ramps, RGB rows (reference_labels.cpp makes the same)."""
    return bytes(channel for y in range(HEIGHT) for x in range(WIDTH)
                 for channel in ((x * 4) & 255, (y * 6) & 255, (x * y) & 255))


def small_pdf() -> bytes:
    """One page of 2 x 1 inch with a black box from (10, 10) to (70, 40) points."""
    content = b"0 0 0 rg 10 10 60 30 re f"
    objects = [b"<< /Type /Catalog /Pages 2 0 R >>",
               b"<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
               b"<< /Type /Page /Parent 2 0 R /MediaBox [0 0 144 72] /Contents 4 0 R >>",
               b"<< /Length %d >>\nstream\n%s\nendstream" % (len(content), content)]
    out = b"%PDF-1.4\n"
    offsets = []
    for number, body in enumerate(objects, 1):
        offsets.append(len(out))
        out += b"%d 0 obj\n%s\nendobj\n" % (number, body)
    table = len(out)
    out += b"xref\n0 %d\n0000000000 65535 f \n" % (len(objects) + 1)
    out += b"".join(b"%010d 00000 n \n" % offset for offset in offsets)
    out += b"trailer\n<< /Size %d /Root 1 0 R >>\nstartxref\n%d\n%%%%EOF\n" % (
        len(objects) + 1, table)
    return out


def png_dots(png: bytes):
    """(width, height, rows) of a 1-bit grey PNG; rows[y][x] is True where a dot printed."""
    assert png[:8] == b"\x89PNG\r\n\x1a\n"
    at, data, width, height = 8, b"", 0, 0
    while at < len(png):
        length, kind = struct.unpack(">I4s", png[at:at + 8])
        body = png[at + 8:at + 8 + length]
        if kind == b"IHDR":
            width, height, depth, colour = struct.unpack(">IIBB", body[:10])
            assert (depth, colour) == (1, 0), "a 1-bit grey PNG"
        elif kind == b"IDAT":
            data += body
        at += 12 + length
    raw = zlib.decompress(data)
    stride = (width + 7) // 8
    rows = []
    for y in range(height):
        line = raw[y * (stride + 1):(y + 1) * (stride + 1)]
        assert line[0] == 0, "rows without a filter"
        rows.append([not (line[1 + x // 8] >> (7 - x % 8)) & 1 for x in range(width)])
    return width, height, rows


def ink(rows, x0=0, y0=0, x1=None, y1=None) -> int:
    """Printed dots in the rectangle [x0, x1) x [y0, y1)."""
    return sum(sum(row[x0:x1]) for row in rows[y0:y1])
