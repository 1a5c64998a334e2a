#!/usr/bin/python3
"""What README, CONTRIBUTING, CHANGELOG and docs/ tell a reader to type is there and works, and so are the paths and links.

KELPORA_BUILD is the build folder whose programs stand for those of build/release.
"""

import glob
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
BUILD = pathlib.Path(os.environ.get("KELPORA_BUILD", ROOT / "build" / "release"))
PAGES = [ROOT / name for name in ("README.md", "CONTRIBUTING.md", "CHANGELOG.md")] + sorted((ROOT / "docs").rglob("*.md"))
SITE = ("README.md", "CONTRIBUTING.md", "CHANGELOG.md", "LICENSE", "docs", "mkdocs.yml", "packaging/site", "tools/docs",
        "tools/sitelinks", "tools/setup")

PROGRAM = re.compile(r"(?:build/release/)?(kelpora360(?:-[a-z]+)?)")

# What changes the reader's system or opens a window isn't run; that it is there is checked.
SYSTEM = {
    "sudo apt install ./build/package/kelpora360_*_amd64.deb": ["grep", "build/package", "tools/package"],
    "sudo apt install ./kelpora360_*_amd64.deb": ["grep", "^Package: kelpora360$", "debian/control"],
    "sudo apt purge kelpora360": ["grep", "^Package: kelpora360$", "debian/control"],
    "sudo usermod -aG dialout $USER": ["getent", "group", "dialout"],
    # The service is one that a reader may have; Debian's tests have none.
    "sudo systemctl disable --now ModemManager": None,
}


def text_of(page):
    return page.read_text("utf-8")


def blocks(text, language):
    return re.findall(r"^```" + language + r"\n(.*?)^```", text, re.MULTILINE | re.DOTALL)


def inline_code(text):
    text = re.sub(r"^```.*?^```", "", text, flags=re.MULTILINE | re.DOTALL)
    return [" ".join(code.split()) for code in re.findall(r"(?<!`)`([^`]+)`(?!`)", text)]


def commands(text):
    """What the page has the reader type: the lines of its shell blocks, and code that begins with a program."""
    lines = [re.sub(r"\s+#.*", "", line).strip() for block in blocks(text, "sh") for line in block.splitlines()]
    lines += re.findall(r"^    (build/release/.*|tools/.*)$", text, re.MULTILINE)
    starts = re.compile(r"(tools/[a-z]+|build/[a-z]+/\S+|\.ci/run|cmake|ctest|sudo|kelpora360[a-z-]*)( |$)")
    lines += [code for code in inline_code(text) if starts.match(code)]
    return [part.strip() for line in lines for part in line.split("&&") if part.strip()]


def run(command, **options):
    return subprocess.run(command, cwd=ROOT, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, timeout=120, check=False, **options)


def problem(command):
    """Why the command would not work as the page says, or None."""
    if command in SYSTEM:
        check = SYSTEM[command]
        return None if check is None or run(check).returncode == 0 else "fails here: " + " ".join(check)
    words = shlex.split(command)
    if words[0] == "cmake":
        return cmake_problem(words)
    if words[0] == "ctest":
        return ctest_problem(words)
    if PROGRAM.fullmatch(words[0]):
        return program_problem(words)
    if words[0] == "tools/setup":
        result = run([ROOT / "tools" / "setup"])
        return None if result.returncode == 0 else result.stdout
    if words[0].startswith(("tools/", ".ci/")):
        return tool_problem(words)
    return "not known to this test"


def cmake_problem(words):
    listed = run(["cmake", "--list-presets=all"]).stdout
    presets = re.findall(r'^  "([a-z]+)"', listed, re.MULTILINE)
    if words[-2:-1] != ["--preset"] or words[1:-2] not in ([], ["--build"]):
        return "not known to this test"
    return None if words[-1] in presets else "no such preset"


def ctest_problem(words):
    """The same selection in this build has tests."""
    if words[1] != "--test-dir" or cmake_problem(["cmake", "--preset", pathlib.Path(words[2]).name]):
        return "no such build"
    # Also a listing replaces the log of the run that this test belongs to, so it happens in a folder of its own.
    with tempfile.TemporaryDirectory() as folder:
        pathlib.Path(folder, "CTestTestfile.cmake").write_text('subdirs("{}")\n'.format(BUILD), encoding="utf-8")
        listed = run(["ctest", "--test-dir", folder, "-N"] + words[3:]).stdout
    return None if re.search(r"Total Tests: [1-9]", listed) else "selects no test"


def program(word):
    """The file in this build; None if the word is no program of ours, or it isn't built."""
    match = PROGRAM.fullmatch(word)
    path = BUILD / match.group(1) if match else None
    return path if path and path.is_file() else None


def program_problem(words):
    """Runs it; what would open a window shows its version instead, and a command with arguments its help."""
    path = program(words[0])
    if not path:
        return "no such program"
    arguments = words[1:]
    if "--" in arguments:
        at = arguments.index("--") + 1
        # "[options]" and "program" stand for what the reader chooses.
        inner = BUILD / "kelpora360" if arguments[at] == "program" else program(arguments[at])
        if not inner:
            return "no such program: " + arguments[at]
        arguments = [word for word in arguments[:at - 1] if not word.startswith("[")] + ["--", str(inner), "--version"]
    elif path.name in ("kelpora360", "kelpora360-check"):
        arguments = arguments or ["--version"]
    else:
        arguments = [word for word in arguments[:1] if not word.startswith("-")] + ["--help"]
    with tempfile.TemporaryDirectory() as home:
        environment = dict(os.environ, XDG_DATA_HOME=home, XDG_RUNTIME_DIR=home)
        result = run([path] + [os.path.join(home, word) if word.endswith(".txt") else word for word in arguments],
                     env=environment)
    if result.returncode:
        return "ended with {}: {}".format(result.returncode, result.stdout)
    unknown = [word for word in words[1:] if arguments[-1] == "--help" and word.startswith("-") and
               word.split("=")[0] not in result.stdout]
    return "knows no " + " ".join(unknown) if unknown else None


def tool_problem(words):
    """These take minutes or hours, so that they are not run; they are there, can be read by their interpreter, and name
    the arguments in their text."""
    path = ROOT / words[0]
    if not os.access(path, os.X_OK):
        return "no such tool"
    source = text_of(path)
    if source.startswith("#!/bin/sh"):
        result = run(["sh", "-n", path])
        if result.returncode:
            return result.stdout
    else:
        compile(source, str(path), "exec")
    for script in re.findall(r"\btests/faults/[a-z]+\.py", source):
        source += text_of(ROOT / script)
    for word in words[1:]:
        if not (word in source or word.isdigit() or word.isupper() or word.startswith(("OTHER/", "build/"))):
            return "knows no " + word
    return None


def tracked():
    return run(["git", "ls-files", "-co", "--exclude-standard"]).stdout.split()


def paths(text, tops):
    """Code that looks like a path of the sources or a build."""
    for code in inline_code(text):
        match = re.fullmatch(r"([\w.-]+)((/[\w.*-]+)*/?)", code)
        if match and match.group(2) and match.group(1) in tops and not commands("`{}`".format(code)):
            yield code


def path_is_there(path):
    if path.startswith("build/"):
        # What a build or a tool makes: a tool or a preset names it.
        presets, *tools = [text_of(file) for file in [ROOT / "CMakePresets.json", *(ROOT / "tools").iterdir()]]
        return '"name": "{}"'.format(path[len("build/"):].rstrip("/")) in presets or any(path in tool for tool in tools)
    return bool(glob.glob(str(ROOT / path)) or glob.glob(str(ROOT / path) + ".*") or
                glob.glob(str(ROOT / path) + "_*"))


def github_place(heading):
    """The place that a page on the sources' host gives to a heading."""
    text = re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", heading).strip().lower()
    return re.sub(r"[^\w\- ]", "", text).replace(" ", "-")


def headings(text):
    text = re.sub(r"^```.*?^```", "", text, flags=re.MULTILINE | re.DOTALL)
    return [match.rstrip() for match in re.findall(r"^#+ +(.*)$", text, re.MULTILINE)]


def broken_links(page, text):
    """Relative links that lead nowhere where the sources are shown."""
    plain = re.sub(r"`[^`]*`", "", re.sub(r"^```.*?^```", "", text, flags=re.MULTILINE | re.DOTALL))
    for target in re.findall(r"\]\(([^)\s]+)\)", plain):
        if re.match(r"[a-z]+:", target):
            continue
        name, _, place = target.partition("#")
        path = (page.parent / name).resolve() if name else page
        if not path.exists():
            yield target
        elif place and place not in map(github_place, headings(text if path == page else text_of(path))):
            yield target


def window_texts():
    """What the jobs tell the operator, in pieces between what differs."""
    for file in sorted(path for folder in ("cards", "check", "controller") for path in (ROOT / folder).glob("*.cpp")):
        if file.stem in ("firmwareupdate", "main", "shellcommand", "turnoff"):
            # Without a control in the window, or told when the window is gone.
            continue
        for text in re.findall(r'QStringLiteral\(\s*"([A-Z][^"]* [^"]*)"', text_of(file)):
            if text.startswith(("Card %1: ", "Exception working", "Found serial port")):
                continue  # for the log alone
            for piece in re.split(r"%\d", text):
                if len(piece.strip()) > 1:
                    yield piece.strip()


class Documents(unittest.TestCase):
    def test_commands_work(self):
        for page in PAGES:
            for command in commands(text_of(page)):
                with self.subTest(page=page.name, command=command):
                    self.assertIsNone(problem(command))

    def test_the_main_commands_are_found(self):
        found = [command for page in PAGES for command in commands(text_of(page))]
        for command in ("tools/demo", "tools/test", "tools/setup", "cmake --preset release", "kelpora360 --version"):
            self.assertIn(command, found)

    def test_wrong_commands_are_told(self):
        for command in ("tools/nosuchtool", "tools/faults --nosuchoption", "cmake --preset nosuchpreset",
                        "ctest --test-dir build/dev -R nosuchtest", "kelpora360 --nosuchoption",
                        "build/release/nosuchprogram", "kelpora360-nosuchprogram", "kelpora360-rig --nosuchfault",
                        "kelpora360-rig --nosuchfault -- build/release/kelpora360"):
            with self.subTest(command=command):
                self.assertEqual(commands("Type `{}`.".format(command)), [command])
                self.assertIsNotNone(problem(command))

    def test_paths_are_there(self):
        tops = {name.split("/")[0] for name in tracked()} | {"build"}
        for page in PAGES:
            for path in paths(text_of(page), tops):
                with self.subTest(page=page.name, path=path):
                    self.assertTrue(path_is_there(path))

    def test_wrong_paths_are_told(self):
        for path in ("tests/nosuchfile.py", "build/nosuchfolder", "platform/nosuchfile"):
            with self.subTest(path=path):
                self.assertEqual(list(paths("in `{}`".format(path), {"tests", "build", "platform"})), [path])
                self.assertFalse(path_is_there(path))

    def test_links_lead_somewhere(self):
        for page in PAGES:
            with self.subTest(page=page.name):
                self.assertEqual(list(broken_links(page, text_of(page))), [])

    def test_wrong_links_are_told(self):
        readme = ROOT / "README.md"
        for link in ("docs/nosuchpage.md", "docs/user-guide.md#nosuchplace", "#nosuchplace"):
            with self.subTest(link=link):
                self.assertEqual(list(broken_links(readme, "See [that]({}).".format(link))), [link])

    def test_every_page_and_picture_is_used(self):
        navigation = text_of(ROOT / "mkdocs.yml")
        everything = "".join(map(text_of, PAGES))
        decisions = ROOT / "docs" / "decisions" / "README.md"
        for page in PAGES:
            listed = ": {}\n".format(page.relative_to(ROOT)) in navigation
            listed = listed or page.parent == decisions.parent and "]({})".format(page.name) in text_of(decisions)
            self.assertTrue(listed, "{} is in no list of pages".format(page.name))
        for picture in (ROOT / "docs" / "pictures").glob("*.png"):
            # Others show the same at larger scales.
            if not re.search(r"-(1\.5|2)\.png$", picture.name):
                self.assertTrue("pictures/{})".format(picture.name) in everything, picture.name + " is on no page")

    def test_newest_change_is_of_this_version(self):
        version = re.search(r"VERSION ([\d.]+)", text_of(ROOT / "CMakeLists.txt").partition("project(")[2]).group(1)
        released = re.findall(r"^## (\S+) - \d{4}-\d\d-\d\d$", text_of(ROOT / "CHANGELOG.md"), re.MULTILINE)
        self.assertEqual(released[:1], [version])

    def test_guide_has_every_message(self):
        guide = " ".join(text_of(ROOT / "docs" / "user-guide.md").split())
        texts = list(window_texts())
        self.assertGreater(len(texts), 30)
        for text in texts:
            with self.subTest(text=text):
                self.assertTrue(text in guide, "not in the guide")


class Site(unittest.TestCase):
    """tools/docs in a copy of the documents."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        for name in SITE:
            (self.root / name).parent.mkdir(parents=True, exist_ok=True)
            copy = shutil.copytree if (ROOT / name).is_dir() else shutil.copy
            copy(ROOT / name, self.root / name)

    def build(self):
        return subprocess.run([self.root / "tools" / "docs"], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              timeout=120, check=False)

    def test_builds(self):
        result = self.build()
        self.assertEqual((result.returncode, result.stdout), (0, ""))
        self.assertTrue((self.root / "build" / "docs" / "index.html").is_file())

    def test_mistakes_fail(self):
        for name, mistake in (("README.md", "[a](docs/nosuchpage.md)"),
                              ("docs/protocol.md", "[a](user-guide.md#nosuchplace)"),
                              ("CHANGELOG.md", "[a](docs/)"),
                              ("docs/quality.md", "![a](pictures/nosuchpicture.png)"),
                              ("CONTRIBUTING.md", '<img src="https://example.org/picture.png">'),
                              ("packaging/site/style.css", "@import url('https://example.org/font.css');")):
            path = self.root / name
            before = text_of(path)
            with self.subTest(name=name, mistake=mistake):
                path.write_text(before + "\n" + mistake + "\n", "utf-8")
                self.assertNotEqual(self.build().returncode, 0)
            path.write_text(before, "utf-8")
        self.assertEqual(self.build().returncode, 0)


if __name__ == "__main__":
    os.chdir(ROOT)
    result = unittest.main(exit=False).result
    failed = len(result.failures) + len(result.errors)
    skipped = len(result.skipped)
    print("Totals: {} passed, {} failed, {} skipped".format(max(result.testsRun - failed - skipped, 0), failed, skipped))
    sys.exit(1 if failed else 0)
