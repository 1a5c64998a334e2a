"""What must hold of a run, worked out from the cards' content alone. Knows nothing of the program's code.

A complaint begins with its kind: "lost", "half" (under a final name), "leftover", "untrue" (told), "wrong".
"""

import os
import re
import xml.etree.ElementTree as ET

from kit import expected

_COUNTS = re.compile(r"(\d+)/(\d+) videos and (\d+)/(\d+) photos")
_COPY = re.compile(r"(?P<take>.*?)_cam(?P<card>[123])(?P<extension>\.MOV|\.JPG|\.DNG)$", re.DOTALL)
_TEMPORARY = re.compile(r"(^|/)\.kelpora360-[0-9a-f]{16}\.part$")
_WORDS = ("sound", "told", "refused", "complete", "again", "killed")


def tree(folder):
    """Every file below a folder: relative path, content; what can't be read stands for itself."""
    files = {}
    for top, _, names in os.walk(folder):
        for name in names:
            path = os.path.join(top, name)
            try:
                with open(path, "rb") as file:
                    content = file.read()
            except OSError as error:
                content = f"unreadable: {error}".encode()
            files[os.path.relpath(path, folder)] = content
    return files


class Import:
    """An import of `cards` (number, folder) into a folder that held the files `before`."""

    def __init__(self, cards, before, project, template, picture):
        self.cards = {number: tree(folder) for number, folder in cards.items()}
        self.folders = cards
        self.before = before
        self.project = project
        wanted = expected.Destination(template, picture, expected.DEFAULT_ANGLES)
        wanted.files = dict(before)
        wanted.add_import(cards, project)
        self.wanted = wanted
        self.picture = picture

    def recordings(self, number):
        """The recordings of a card: path without its ending, ending, content."""
        return [(*os.path.splitext(name), content)
                for name, content in expected.recordings_in(self.cards[number]).items()]

    def judge(self, texts, log, destination, holds="sound", any_project=False, leftovers=False):
        """The complaints about a run. `holds` is one of the table's words, or "killed": then nothing was told."""
        assert holds in _WORDS, holds
        found = tree(destination)
        complaints = [f"lost: the card's {path} is changed" for number, folder in self.folders.items()
                      for path in _differences(self.cards[number], tree(folder))]
        complaints += [f"lost: what was there is changed, {path}" for path in self.before
                       if found.get(path) != self.before[path]]
        whole = {number: {".MOV": set(), ".JPG": set()} for number in self.cards}
        for path, content in found.items():
            if path in self.before or os.path.basename(path) == "Kelpora360.log":
                continue
            original = self._original(path)
            if _TEMPORARY.search(path):
                complaints += [] if leftovers or holds == "killed" else [f"leftover: {path}"]
            elif not original:
                complaints += self._accessory(path, content, any_project)
            elif content != original[3]:
                complaints.append(f"half: {path}, {len(content)} bytes of {len(original[3])}")
            else:
                number, stem, extension, _ = original
                whole[number][".MOV" if extension == ".MOV" else ".JPG"].add(stem + extension)
        if holds == "killed":
            return complaints
        for number in self.cards:
            complaints += self._told(number, texts.get(number, ""), log, whole[number])
        full = all(self._is_full(number, texts.get(number, "")) for number in self.cards)
        missing = [path for path in {**self.wanted.files, **self.wanted.projects} if path not in found]
        if holds == "complete" and (missing or not full):
            complaints.append(f"wrong: not complete, {texts}, without {missing}")
        if (holds == "told" and missing and full) or (holds == "refused" and full):
            complaints.append(f"untrue: {texts}, without {missing}")
        return complaints

    def _present(self, number):
        """How many videos and photos a card holds."""
        own = self.recordings(number)
        videos = sum(extension == ".MOV" for _, extension, _ in own)
        return videos, len(own) - videos

    def _is_full(self, number, text):
        """Whether it is all that a card could wish for."""
        videos, photos = self._present(number)
        return text == f"Copied {videos}/{videos} videos and {photos}/{photos} photos."

    def _original(self, path):
        """The recording that a file's name stands for; none if it stands for none."""
        match = _COPY.match(path)
        if not match or int(match["card"]) not in self.cards:
            return None
        for stem, extension, content in self.recordings(int(match["card"])):
            named = re.escape(stem) + r"(-\d+)?" + (f"(_{re.escape(self.project)})?" if self.project else "")
            if extension == match["extension"] and re.fullmatch(named, match["take"]):
                return int(match["card"]), stem, extension, content
        return None

    def _accessory(self, path, content, any_project):
        """The complaints about what stands beside the copies."""
        if path.endswith(".MOV.jpg"):
            return [] if content == self.picture else [f"half: preview {path}"]
        if not path.endswith((".kava", ".pano")):
            return [f"wrong: nobody's file {path}"]
        if any_project and content.count(b"\n") <= 1:
            return []
        try:
            project = ET.fromstring(content)
        except ET.ParseError as error:
            return [f"half: project {path}, {error}"]
        wanted = self.wanted.projects.get(path)
        if wanted is not None and not any_project and expected.canonical(project) != expected.canonical(wanted):
            return [f"wrong: project {path}"]
        return []

    def _told(self, number, text, log, whole):
        """The complaints about a card's last text, whose recordings are `whole` in the destination."""
        counts = _COUNTS.search(text)
        if not counts:
            return [] if text.startswith("Error") else [f"untrue: card {number} says {text!r}"]
        videos, all_videos, photos, all_photos = map(int, counts.groups())
        complaints = []
        if videos > len(whole[".MOV"]) or photos > len(whole[".JPG"]):
            complaints.append(f"untrue: card {number} says {text!r}, whole are {whole}")
        if text.startswith("Error"):
            return complaints
        # A copy that can't be looked at again stands there and doesn't count.
        if (videos, photos) != (all_videos, all_photos) and f"Warning: Card {number}: " not in log:
            complaints.append(f"wrong: card {number} says {text!r}, and the log doesn't say why")
        if (all_videos, all_photos) != self._present(number):
            complaints.append(f"untrue: card {number} says {text!r}, it holds {self._present(number)}")
        return complaints


class Preparation:
    """A preparation of the folder `card` as the card `number`."""

    def __init__(self, card, number, erase, sync):
        self.card, self.number, self.erase, self.sync = card, number, erase, sync
        self.before = tree(card)

    def judge(self, texts, log, _destination, holds="sound", **_others):
        found = tree(self.card)
        wanted = {} if self.erase else dict(self.before)
        if self.sync:
            wanted["MISC/cfg"] = _over(wanted.get("MISC/cfg", b""), b"multi.auto_ena=1\nrecord.tl_enable=0\n")
        for name in (f"360_0{self.number}", ".disable_osx_metadata", ".metadata_never_index"):
            wanted.setdefault(name, b"")
        wanted["AutoRun.inf"] = _over(
            wanted.get("AutoRun.inf", b""), f"[autorun]\r\nlabel=360_0{self.number}\r\n\r\n[Content]\r\nMusicFiles=0\r\n"
                                            "PictureFiles=0\r\nVideoFiles=0".encode())
        # Whatever fails: what isn't to be erased stays, but for the files that it writes.
        complaints = []
        if not self.erase:
            complaints += [f"lost: the card's {path} is changed" for path in self.before
                           if wanted[path] == self.before[path] and found.get(path) != self.before[path]]
        differences = _differences(wanted, found)
        if holds == "killed":
            return complaints
        warned = f"Card {self.number}: not everything could be" in log
        if differences and not warned and not texts.get(self.number, "").startswith("Error"):
            complaints.append(f"untrue: {texts}, without a warning, {differences}")
        if (holds == "complete" and (differences or warned)) or (holds == "refused" and not warned):
            complaints.append(f"wrong: not {holds}, {differences}, {texts}")
        return complaints


def _over(old, new):
    return new + old[len(new):]


def _differences(wanted, found):
    return sorted(path for path in set(wanted) | set(found) if wanted.get(path) != found.get(path))
