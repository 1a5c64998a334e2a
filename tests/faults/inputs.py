"""What a card, a template and a settings file may hold, as data: names and contents, made from a seed where they are
many."""

import os
import random
from xml.etree import ElementTree

import bench as benches
from kit import recordings

# Names of recordings. Bytes that are no UTF-8 stand as Python's surrogates.
NAMES = [
    "A.MOV", "a b c.JPG", " leading.JPG", "trailing .JPG", "dots..MOV", "..two.JPG", "-rf.MOV", "--help.JPG", "~.JPG", "#.JPG", "%2F.MOV",
    "%1.MOV", "%s%n.JPG", "&amp;.JPG", "<pano>.JPG", "\"quoted\".MOV", "it's.JPG", "a;b.JPG", "a|b.JPG", "a*b?.JPG", "a\\b.JPG",
    "[1].JPG", "{x}.JPG", "$HOME.JPG", "`id`.JPG", "tab\there.JPG", "line\nfeed.JPG", "return\rhere.MOV", "bell\a.JPG", "\x01.JPG",
    "\x7f.JPG", "Ünïcode.MOV", "e\u0301.JPG", "\u00e9.JPG", "日本.JPG", "\U0001f41f.MOV", "\u202egnp.JPG", "\u200b.JPG",
    "\ufefffirst.JPG", "\ufffd.JPG", "\ufffe.JPG", "bad\udcff.JPG", "half\udcc3.MOV", "\udced\udca0\udc80.JPG", "n" * 200 + ".JPG",
    "n" * 245 + ".MOV", "n" * 251 + ".JPG", "日" * 80 + ".JPG", "CLIP_cam1.MOV", "CLIP_cam1_cam1.MOV", "CLIP-1.MOV",
    "CLIP_autopano.MOV", "IMG_giga.JPG", "x.part.JPG", "Kelpora360.log.JPG", "CON.JPG", "NUL.MOV",
    "1.DNG", "UPPER.DNG", "0.JPG", "=.JPG", "@.JPG", ",.JPG",
]


def is_plain(name):
    """Whether copy and project of that name must stand in the destination: it is UTF-8 without noncharacters, and
    leaves room for what is appended."""
    try:
        return len(name.encode()) <= 230 and "\ufffe" not in name
    except UnicodeEncodeError:
        return False


def is_well_formed(content):
    """Whether a template is XML as the standard has it; the program takes more."""
    try:
        ElementTree.fromstring(content if isinstance(content, bytes) else b"")
    except ElementTree.ParseError:
        return False
    return True


def _mutations(text, number, seed):
    """`text` with bytes changed, taken out, doubled or cut off."""
    dice = random.Random(seed)
    for _ in range(number):
        data = bytearray(text)
        for _ in range(dice.randint(1, 4)):
            at = dice.randrange(len(data))
            size = dice.randint(1, 30)
            kind = dice.randrange(5)
            if kind == 0:
                data[at] = dice.randrange(256)
            elif kind == 1:
                del data[at:at + size]
            elif kind == 2:
                data[at:at] = data[at:at + size]
            elif kind == 3:
                data[at:at + 1] = dice.choice(_TOKENS)
            else:
                del data[max(1, at):]
        yield bytes(data)


_TOKENS = [b"<", b">", b"&", b"\"", b"'", b"</", b"<!--", b"]]>", b"<![CDATA[", b"<!DOCTYPE x [", b"&#0;", b"&#1;", b"&x;", b"\0", b"\xff",
           b"\xef\xbb\xbf", b"=", b"[", b"]", b"@Variant(", b"@ByteArray(", b"@", b"\\x", b"\\", b";", b"\n", b"\r", b"%", b"/", b","]


def templates(sample):
    """Name, content; None for a folder, "pipe" for a pipe in a template's place."""
    yield "empty", b""
    yield "folder", None
    yield "pipe", "pipe"
    yield "zeros", bytes(10000)
    yield "blanks", b" " * 10000
    yield "other root", b"<x/>"
    yield "no pano", b"<kava/>"
    yield "two panos", b"<kava><pano/><pano/></kava>"
    yield "four images", b"<kava><pano><images>" + b"<image><def/><camera/></image>" * 4 + b"</images></pano></kava>"
    yield "UTF-16", sample.decode().encode("utf-16")
    yield "Latin-1", b"<kava>\xe4</kava>"
    yield "9000 levels", b"<kava>" + b"<a>" * 9000 + b"</a>" * 9000 + b"</kava>"
    yield "a billion laughs", (b"<!DOCTYPE kava [<!ENTITY a0 'ha'>" + b"".join(
        b"<!ENTITY a%d '%s'>" % (i, b"&a%d;" % (i - 1) * 10) for i in range(1, 10)) + b"]><kava>&a9;</kava>")
    yield "an outside entity", b"<!DOCTYPE kava [<!ENTITY x SYSTEM 'file:///etc/passwd'>]><kava>&x;</kava>"
    yield "5 MB", b"<kava>" + b"x" * 5_000_000 + b"</kava>"
    for part in range(1, 20):
        yield f"cut at {part}/20", sample[:len(sample) * part // 20]
    for number, data in enumerate(_mutations(sample, 110, "templates")):
        yield f"changed {number}", data


_SETTINGS = b"""[General]
Serialnumber=701017
Camera1Yaw=-0
Camera2Roll=-90
OverwriteAngles=1
TargetDir=/home/diver/dives
Yours="a, b"
Theirs=@Invalid()
List=1, 2, 3
"""


def settings():
    """Name, content; None for a folder, "pipe" for a pipe in the file's place."""
    yield "nothing", b""
    yield "folder", None
    yield "pipe", "pipe"
    yield "zeros", bytes(5000)
    yield "an object", b"[General]\nMine=@Variant(\\0\\0\\0\\t\\x7f\\xff\\xff\\xff)\n"
    yield "2 MiB", b"[General]\n" + b"x" * (2 << 20) + b"=1\n"
    for number, data in enumerate(_mutations(_SETTINGS, 250, "settings")):
        yield f"changed {number}", data


def put(path, content):
    """Puts what the above yields in its place."""
    if content is None:
        os.makedirs(path)
    elif content == "pipe":
        os.mkfifo(path)
    else:
        with open(path, "wb") as file:
            file.write(content)


def cases(_bench):
    for name in NAMES:
        yield benches.Case(f"inputs/name/{name!a}", lambda bench, name=name: _try_name(bench, name))
    for name, content in templates(benches.TEMPLATE):
        yield benches.Case(f"inputs/template/{name}", lambda bench, content=content: _try_template(bench, content))
    for name, content in settings():
        yield benches.Case(f"inputs/settings/{name}", lambda bench, content=content: _try_settings(bench, content))


def _try_name(bench, name):
    """A recording of an odd name between two others."""
    def fill(card, number):
        for other in ("DCIM/FIRST.MOV", f"DCIM/{name}", "DCIM/ZULU.JPG"):
            recordings.write(card, other, recordings.content(number, other.encode(errors="surrogateescape"), 5000))

    arguments, judge = bench.equip_import(fill)
    outcome = bench.run([bench.driver(), *arguments])
    complaints = benches.ending(outcome) + judge.judge(outcome.texts, outcome.log, bench.destination,
                                                       "complete" if is_plain(name) else "sound")
    # A control character in a project is read by the stitcher's parser, not by this one.
    return [complaint for complaint in complaints if name.isprintable() or not complaint.startswith("half: project")]


def _try_template(bench, content):
    arguments, judge = bench.equip_import(recordings.fill)
    bench.template.unlink()
    put(bench.template, content)
    judge.wanted.projects.clear()
    outcome = bench.run([bench.driver(), *arguments])
    complaints = benches.ending(outcome) + judge.judge(outcome.texts, outcome.log, bench.destination, "complete",
                                                       any_project=True)
    # The program takes more than the standard's XML.
    return [complaint for complaint in complaints
            if is_well_formed(content) or not complaint.startswith("half: project")]


def _try_settings(bench, content):
    bench.clear()
    put(bench.settings, content)
    outcome = bench.run([bench.driver(), "settings", "Serialnumber", "701018"])
    complaints = benches.ending(outcome)
    told = bench.settings.name in outcome.log
    if not bench.settings.is_file():
        return complaints + ([] if told else ["untrue: the log doesn't tell of it"])
    # What it couldn't read it leaves as it was, and says so.
    now = bench.settings.read_bytes()
    if told and now != content:
        complaints.append("lost: it changes what it couldn't read")
    if not told and b"Serialnumber=701018" not in now:
        complaints.append("lost: it doesn't store")
    return complaints
