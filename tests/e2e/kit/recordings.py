"""What the cameras leave on their cards."""

import os
import random

_VIDEO_TAKES = ["DCIM/100MEDIA/CLIP0001.MOV", "DCIM/100MEDIA/CLIP0002.MOV", "DCIM/101MEDIA/CLIP0003.MOV"]
_PHOTO_TAKES = ["DCIM/100MEDIA/IMG0001.JPG", "DCIM/100MEDIA/IMG0001.DNG", "DCIM/101MEDIA/IMG0002.JPG"]
# Files that no import copies: other kinds, other letters, hidden ones.
_ODD_FILES = ["MISC/cfg", "DCIM/100MEDIA/CLIP0001.THM", "DCIM/100MEDIA/clip0009.mov", "DCIM/100MEDIA/img0009.jpg",
              "DCIM/100MEDIA/.CLIP0001.MOV", ".Trashes/CLIP0008.MOV"]


def content(card, name, size):
    """Bytes that differ from file to file and are the same in every run."""
    return random.Random("{} {}".format(card, name)).getrandbits(8 * size).to_bytes(size, "big") if size else b""


def write(folder, name, data):
    path = os.path.join(folder, name)
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as file:
        file.write(data)


def fill(folder, card, scale=1):
    """Some takes of videos and photos; camera 3 missed the last video, and camera 1's first photo is empty."""
    for number, name in enumerate(_VIDEO_TAKES, 1):
        if card != 3 or number < len(_VIDEO_TAKES):
            write(folder, name, content(card, name, scale * (40000 * number + 1000 * card)))
    for number, name in enumerate(_PHOTO_TAKES, 1):
        size = 0 if card == 1 and number == 1 and scale == 1 else scale * (9000 * number + 100 * card)
        write(folder, name, content(card, name, size))
    for name in _ODD_FILES:
        write(folder, name, content(card, name, 500))


def fill_photos(folder, card, count, size):
    """One day's time lapse."""
    data = content(card, "time lapse", size)
    for number in range(1, count + 1):
        write(folder, "DCIM/{}MEDIA/IMG{:04}.JPG".format(100 + number // 1000, number), data)


def tree(folder):
    """Every file below a folder, hidden ones too: relative path, content."""
    files = {}
    for top, _, names in os.walk(folder):
        for name in names:
            path = os.path.join(top, name)
            with open(path, "rb") as file:
                files[os.path.relpath(path, folder)] = file.read()
    return files
