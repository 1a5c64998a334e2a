"""Movies and photos with the times that a camera writes into them."""

import datetime
import struct

EPOCH = datetime.datetime(1904, 1, 1)


def box(kind, content):
    return struct.pack(">I4s", 8 + len(content), kind) + content


def movie(start, length, picture=b"picture"):
    """A movie that began at the datetime `start` and lasts `length` seconds; its picture in a box with a 64-bit size."""
    created = int((start - EPOCH).total_seconds())
    header = struct.pack(">IIIII", 0, created, created, 1000, int(length * 1000)) + bytes(80)
    return box(b"ftyp", b"qt  ") + struct.pack(">I4sQ", 1, b"mdat", 16 + len(picture)) + picture \
        + box(b"moov", box(b"mvhd", header))


def photo(start):
    """A JPEG that was taken at the datetime `start`."""
    text = start.strftime("%Y:%m:%d %H:%M:%S").encode() + b"\0"
    tiff = b"II*\0" + struct.pack("<I", 8)
    tiff += struct.pack("<HHHII", 1, 0x8769, 4, 1, 26) + bytes(4)
    tiff += struct.pack("<HHHII", 1, 0x9003, 2, len(text), 44) + bytes(4) + text
    exif = b"Exif\0\0" + tiff
    return b"\xff\xd8\xff\xe1" + struct.pack(">H", 2 + len(exif)) + exif + b"\xff\xda"
