#!/usr/bin/python3
"""What `cmake --install` puts where, and whether desktops, shells and package tools understand it.

test_package.py BUILD   BUILD is the folder in which the program was built
"""

import email.utils
import functools
import glob
import json
import os
import plistlib
import re
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import xml.etree.ElementTree as ET

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "tests", "e2e"))
sys.dont_write_bytecode = True
from kit import testing  # noqa: E402

BUILD = os.path.abspath(sys.argv.pop(1))
ICON_SIZES = (16, 22, 24, 32, 48, 64, 128, 256)
PROGRAMS = ["kelpora360", "kelpora360-check", "kelpora360-cli"]
ENTRIES = ["kelpora360", "kelpora360-check"]
INSTALLED = sorted(
    [path.format(program) for program in PROGRAMS for path in (
        "bin/{}", "lib/kelpora360/{}", "share/bash-completion/completions/{}", "share/man/man1/{}.1")]
    + ["share/icons/hicolor/{0}x{0}/apps/kelpora360.png".format(size) for size in ICON_SIZES]
    + ["share/applications/{}.desktop".format(entry) for entry in ENTRIES]
    + ["share/doc/kelpora360/examples/70-kelpora360.rules",
       "share/doc/kelpora360/cli.md",
       "share/doc/kelpora360/questions.md",
       "share/doc/kelpora360/user-guide.md",
       "share/icons/hicolor/scalable/apps/kelpora360.svg",
       "share/metainfo/kelpora360.metainfo.xml"])


def run(*command, **options):
    """The exit code and all that the command said."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options)
    return done.returncode, done.stdout


def read(*path):
    with open(os.path.join(*path), encoding="utf-8") as file:
        return file.read()


@functools.lru_cache(maxsize=None)
def installed():
    """The folder usr of an installation."""
    root = tempfile.mkdtemp(prefix="kelpora-install-")
    unittest.addModuleCleanup(shutil.rmtree, root, ignore_errors=True)
    code, output = run("cmake", "--install", BUILD, "--prefix", "/usr", env=dict(os.environ, DESTDIR=root))
    if code != 0:
        raise RuntimeError(output)
    return os.path.join(root, "usr")


def version():
    return re.search(r"^CMAKE_PROJECT_VERSION:\w+=(.+)$", read(BUILD, "CMakeCache.txt"), re.M)[1]


def changelog(field):
    return run("dpkg-parsechangelog", "--file", os.path.join(ROOT, "debian", "changelog"), "--show-field", field)[1].strip()


def png_size(data):
    return struct.unpack(">II", data[16:24]) if data[:8] == b"\x89PNG\r\n\x1a\n" else None


class Installation(unittest.TestCase):
    def test_these_files_and_no_others_but_pictures(self):
        found = sorted(os.path.relpath(os.path.join(folder, name), installed())
                       for folder, _, names in os.walk(installed()) for name in names)
        self.assertEqual([path for path in found if not path.startswith("share/doc/kelpora360/pictures/")], INSTALLED)

    def test_no_templates_hide_the_users(self):
        self.assertEqual(sorted(os.listdir(os.path.join(installed(), "lib", "kelpora360"))), PROGRAMS)

    def test_the_guide_has_its_pictures(self):
        guide = os.path.join(installed(), "share", "doc", "kelpora360")
        self.assertEqual(sorted(os.listdir(os.path.join(guide, "pictures"))),
                         sorted(name for name in os.listdir(os.path.join(ROOT, "docs", "pictures"))
                                if not re.search(r"-(1\.5|2)\.png$", name)))
        pictures = re.findall(r"!\[[^]]*\]\(([^)]+)\)", read(guide, "user-guide.md"))
        self.assertEqual([name for name in pictures if not os.path.isfile(os.path.join(guide, name))], [])

    def test_links_lead_to_the_programs(self):
        for program in PROGRAMS:
            with self.subTest(program=program):
                self.assertEqual(os.readlink(os.path.join(installed(), "bin", program)), "../lib/kelpora360/" + program)

    def test_the_program_started_by_its_link_looks_beside_itself(self):
        templates = os.path.join(installed(), "lib", "kelpora360", "templates")
        os.mkdir(templates)
        self.addCleanup(os.rmdir, templates)
        home = tempfile.mkdtemp(prefix="kelpora-home-")
        self.addCleanup(shutil.rmtree, home, ignore_errors=True)
        environment = dict(os.environ, HOME=home, XDG_DATA_HOME=home, XDG_RUNTIME_DIR=home, QT_QPA_PLATFORM="offscreen",
                           QT_QUICK_BACKEND="software", PATH=os.path.join(installed(), "bin") + ":" + os.environ["PATH"])
        with open(os.path.join(home, "output"), "w+", encoding="utf-8") as output:
            program = subprocess.Popen(["kelpora360"], cwd=home, env=environment, stdout=output, stderr=output)
            self.addCleanup(program.wait)
            self.addCleanup(program.send_signal, signal.SIGKILL)
            deadline = time.monotonic() + 120
            found = None
            while not found and program.poll() is None and time.monotonic() < deadline:
                found = re.search('Template dir: "(.*)"', read(home, "output"))
                time.sleep(0.02)
            self.assertTrue(found, read(home, "output"))
            self.assertEqual(found[1], os.path.realpath(templates))


class Texts(unittest.TestCase):
    def test_the_version_is_the_same_everywhere(self):
        release = ET.parse(os.path.join(installed(), "share/metainfo/kelpora360.metainfo.xml")).find("releases/release")
        said = {"debian/changelog": changelog("Version"), "metainfo": release.get("version")}
        for program in PROGRAMS:
            said[program] = run(os.path.join(installed(), "bin", program), "--version")[1].split()[-1]
            said[program + ".1"] = re.search(r'^\.TH .*"[^"]* ([^" ]+)" "User Commands"$',
                                             read(installed(), "share/man/man1", program + ".1"), re.M)[1]
        self.assertEqual(said, dict.fromkeys(said, version()))

    def test_the_release_has_one_date(self):
        release = ET.parse(os.path.join(installed(), "share/metainfo/kelpora360.metainfo.xml")).find("releases/release")
        released = email.utils.parsedate_to_datetime(changelog("Date"))
        said = [release.get("date")] + re.findall(r"^## {} - (\S+)$".format(re.escape(version())),
                                                  read(ROOT, "CHANGELOG.md"), re.M)
        self.assertEqual(said, [released.strftime("%Y-%m-%d")] * 2)

    def test_desktop_entries(self):
        for name in ENTRIES:
            with self.subTest(entry=name):
                path = os.path.join(installed(), "share/applications", name + ".desktop")
                self.assertEqual(run("desktop-file-validate", path), (0, ""))
                entry = dict(line.split("=", 1) for line in read(path).splitlines() if "=" in line)
                self.assertEqual(entry["Exec"], name)
                self.assertIn("bin/" + entry["Exec"], INSTALLED)
                self.assertIn("share/icons/hicolor/scalable/apps/{}.svg".format(entry["Icon"]), INSTALLED)

    def test_metainfo(self):
        path = os.path.join(installed(), "share/metainfo/kelpora360.metainfo.xml")
        code, output = run("appstreamcli", "validate", "--no-net", "--pedantic", "--no-color", path)
        self.assertEqual((code, output.split()), (0, "✔ Validation was successful.".split()))
        for image in ET.parse(path).iter("image"):
            self.assertTrue(os.path.exists(os.path.join(ROOT, "docs/pictures", os.path.basename(image.text))), image.text)

    def test_manual(self):
        for program in PROGRAMS:
            with self.subTest(program=program):
                page = os.path.join(installed(), "share/man/man1", program + ".1")
                said = subprocess.run(["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", page],
                                      check=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True).stderr
                self.assertEqual(said, "")
                for option in self.options(program):
                    self.assertIn(option.replace("-", r"\-"), read(page))

    def test_the_shell_completes_every_option(self):
        for program in PROGRAMS:
            with self.subTest(program=program):
                script = 'source "$1"; COMP_WORDS=("$2" --); COMP_CWORD=1; _$2; printf "%s\\n" "${COMPREPLY[@]}"'
                code, output = run("bash", "-ceu", script, "bash",
                                   os.path.join(installed(), "share/bash-completion/completions", program), program)
                self.assertEqual((code, sorted(output.split())), (0, self.options(program)))

    def test_the_example_rule_comes_in_time(self):
        path = glob.glob(os.path.join(installed(), "share/doc/kelpora360/examples/*.rules"))[0]
        self.assertLess(int(os.path.basename(path).split("-")[0]), 73, "the system gives permissions by then")
        for part in ('TAG+="uaccess"', 'ENV{ID_MM_DEVICE_IGNORE}="1"'):
            self.assertIn(part, read(path))

    def options(self, program):
        """The long options of the first lines of --help that list them."""
        code, output = run(os.path.join(installed(), "bin", program), "--help")
        self.assertEqual(code, 0)
        return sorted(re.findall(r"^ .*?(--[a-z-]+)", output, re.M))


class Icons(unittest.TestCase):
    def test_sizes(self):
        for size in ICON_SIZES:
            with open(os.path.join(installed(), "share/icons/hicolor/{0}x{0}/apps/kelpora360.png".format(size)), "rb") as file:
                self.assertEqual(png_size(file.read()), (size, size))

    def test_they_are_drawn_from_the_drawing(self):
        icons = os.path.join(ROOT, "packaging/linux/icons")
        for size in ICON_SIZES:
            with self.subTest(size=size):
                drawn = subprocess.run(["rsvg-convert", "--width", str(size), "--height", str(size), "kelpora360.svg"],
                                       cwd=icons, check=True, stdout=subprocess.PIPE).stdout
                with open(os.path.join(icons, "kelpora360-{}.png".format(size)), "rb") as file:
                    self.assertTrue(file.read() == drawn, "see tools/icons")

    def test_the_bundle_has_all_sizes(self):
        icns = os.path.join(ROOT, "packaging/macos/kelpora360.icns")
        code, output = run("icns2png", "--list", icns)
        self.assertEqual(code, 0)
        self.assertEqual(sorted(map(int, re.findall(r"'\w+' (\d+)x\d+ 32-bit icon", output))), [16, 32, 48, 128, 256, 512])


class Bundle(unittest.TestCase):
    """What the build files make of the bundle, as far as it can be seen elsewhere: nothing is compiled or run."""

    @classmethod
    def setUpClass(cls):
        cls.build = tempfile.mkdtemp(prefix="kelpora-bundle-")
        cls.addClassCleanup(shutil.rmtree, cls.build, ignore_errors=True)
        libraries = run("qmake", "-query", "QT_INSTALL_LIBS")[1].strip()
        code, output = run("cmake", "-G", "Ninja", "-S", ROOT, "-B", cls.build, "-DCMAKE_SYSTEM_NAME=Darwin", "-DCMAKE_OSX_SYSROOT=/",
                           "-DCMAKE_CXX_COMPILER=clang++", "-DCMAKE_CXX_COMPILER_WORKS=ON", "-DCMAKE_INSTALL_NAME_TOOL=true",
                           "-DMACDEPLOYQT=true", "-DQt5_DIR={}/cmake/Qt5".format(libraries), "-DCMAKE_PREFIX_PATH=" + libraries,
                           "-DKELPORA_TESTS=OFF", "-DKELPORA_BENCH=OFF")
        if code != 0:
            raise RuntimeError(output)

    def test_info(self):
        with open(os.path.join(self.build, "Kelpora 360.app/Contents/Info.plist"), "rb") as file:
            info = plistlib.load(file)
        self.assertEqual((info["CFBundleName"], info["CFBundleExecutable"]), ("Kelpora 360", "Kelpora 360"))
        self.assertEqual((info["CFBundleShortVersionString"], info["CFBundleVersion"]), (version(), version()))
        self.assertTrue(info["NSRemovableVolumesUsageDescription"])
        icon = "Kelpora$ 360.app/Contents/Resources/{}: ".format(info["CFBundleIconFile"])
        self.assertIn(icon, read(self.build, "build.ninja"))

    def test_disk_image(self):
        config = read(self.build, "CPackConfig.cmake")
        self.assertIn('set(CPACK_GENERATOR "DragNDrop")', config)
        self.assertIn("-qmldir=" + os.path.join(ROOT, "views"), read(self.build, "packaging/cmake_install.cmake"))

    def test_entitlements(self):
        with open(os.path.join(ROOT, "packaging/macos/kelpora360.entitlements"), "rb") as file:
            granted = plistlib.load(file)
        self.assertEqual(granted, {"com.apple.security.cs.allow-jit": True, "com.apple.security.device.serial": True})


class Package(unittest.TestCase):
    def test_it_depends_on_every_module_that_the_window_imports(self):
        """No tool finds these: they are loaded by name."""
        control = read(ROOT, "debian/control")
        depends = re.search(r"^Depends:\n((?: .*\n)+)", control, re.M)[1]
        imports = {(name, version) for path in glob.glob(os.path.join(ROOT, "*", "*.qml"))
                   for name, version in re.findall(r"^import ([A-Z][\w.]+) (\d+)", read(path), re.M)}
        self.assertTrue(imports)
        # The toolkit's own dialogs, where the desktop has none, import these.
        imports |= {("QtQuick.Controls", "1"), ("Qt.labs.folderlistmodel", "2"), ("Qt.labs.settings", "1")}
        modules = run("qmake", "-query", "QT_INSTALL_QML")[1].strip()
        for name, major in sorted(imports):
            with self.subTest(module=name, version=major):
                # One of its folders may have the version in its name.
                plain = name.replace(".", "/")
                folders = [plain[:end] + "." + major + plain[end:] for end in range(len(plain), 0, -1)] + [plain]
                folder = next(path for path in folders if os.path.isdir(os.path.join(modules, path)))
                package = run("dpkg", "--search", os.path.join(modules, folder, "qmldir"))[1].split(":")[0]
                self.assertIn(" {},\n".format(package), depends)

    def test_warnings_are_errors_in_the_presets_alone(self):
        self.assertEqual([path for path in glob.glob(os.path.join(ROOT, "**", "CMakeLists.txt"), recursive=True)
                          + glob.glob(os.path.join(ROOT, "cmake", "*")) if "-Werror" in read(path)], [])
        base = json.loads(read(ROOT, "CMakePresets.json"))["configurePresets"][0]
        self.assertEqual(base["cacheVariables"]["CMAKE_COMPILE_WARNING_AS_ERROR"], "ON")


if __name__ == "__main__":
    testing.run()
