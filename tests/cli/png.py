"""Images in the device's own PNG form, and a strict reader of the standard form."""
import struct
import zlib

SIGNATURE = b"\x89PNG\r\n\x1a\n"


def picture(width, height):
    """Rows of RGBA pixels: a gradient with an opaque, a translucent and a transparent third."""
    return [[(x * 255 // width, y * 255 // height, (x + y) % 256, (255, 128, 0)[3 * x // width])
             for x in range(width)] for y in range(height)]


def chunk(kind, data):
    return (struct.pack(">I", len(data)) + kind + data +
            struct.pack(">I", zlib.crc32(kind + data)))


def device_form(pixels):
    """A file as app builds contain it: blue first, multiplied by alpha, deflated without header."""
    rows = bytearray()
    above = bytes(4 * len(pixels[0]))
    for row in pixels:
        line = bytes(byte for r, g, b, a in row
                     for byte in (*((c * a + 127) // 255 for c in (b, g, r)), a))
        rows.append(2)  # each byte less the one above
        rows += bytes((byte - upper) % 256 for byte, upper in zip(line, above, strict=True))
        above = line
    packer = zlib.compressobj(wbits=-15)
    header = struct.pack(">IIBBBBB", len(pixels[0]), len(pixels), 8, 6, 0, 0, 0)
    return (SIGNATURE + chunk(b"CgBI", b"\x50\x00\x20\x02") + chunk(b"IHDR", header) +
            chunk(b"IDAT", packer.compress(bytes(rows)) + packer.flush()) + chunk(b"IEND", b""))


def chunks(data):
    """The chunks of a standard file as (kind, data); raises ValueError for anything else."""
    if not data.startswith(SIGNATURE):
        raise ValueError("no PNG signature")
    found, at = [], len(SIGNATURE)
    while at < len(data):
        length, kind = struct.unpack_from(">I4s", data, at)
        content = data[at + 8:at + 8 + length]
        if struct.unpack_from(">I", data, at + 8 + length)[0] != zlib.crc32(kind + content):
            raise ValueError(f"wrong checksum of {kind}")
        found.append((kind, content))
        at += 12 + length
    kinds = [kind for kind, _ in found]
    if kinds[0] != b"IHDR" or kinds[-1] != b"IEND" or b"CgBI" in kinds:
        raise ValueError(f"wrong chunks: {kinds}")
    return found


def pixels(data):
    """The rows of RGBA pixels of a standard 8-bit RGBA file that uses no filter but "up"."""
    content = chunks(data)
    width, height, *kind = struct.unpack(">IIBBBBB", content[0][1])
    if kind != [8, 6, 0, 0, 0]:
        raise ValueError(f"unexpected kind of image: {kind}")
    rows = zlib.decompress(b"".join(part for name, part in content if name == b"IDAT"))
    if len(rows) != height * (1 + 4 * width):
        raise ValueError("wrong amount of image data")
    above, result = bytes(4 * width), []
    for start in range(0, len(rows), 1 + 4 * width):
        line = rows[start + 1:start + 1 + 4 * width]
        if rows[start] == 2:
            line = bytes((byte + upper) % 256 for byte, upper in zip(line, above, strict=True))
        elif rows[start] != 0:
            raise ValueError(f"unexpected filter {rows[start]}")
        result.append([tuple(line[x:x + 4]) for x in range(0, 4 * width, 4)])
        above = line
    return result
