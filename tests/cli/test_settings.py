"""The settings file: its mistakes, and the two settings that judge executables."""
import os
import struct

from examiner import bundle
from harness import (DEMO_APP, TOOLKIT, WholeProgramTest, changed_app, pack, read, remove,
                     result_text, write)

UNKNOWN_FLAG = 0x02000000
REFUSED = ("ERROR:  Mach Header contains Invalid Flag bits   in the application binary image.")
NO_ROOM = "ERROR: No room in header of application binary image to insert dylib reference."


class SettingsFile(WholeProgramTest):
    def conf(self, text):
        return {"TOVREK_CONF": write(text.encode(), self.folder, "my.conf")}

    def app_with(self, change):
        """The demo app, the arm64 slice of its executable changed by a function."""
        with changed_app() as (folder, app):
            executable = bytearray(read(app, "Fieldbook"))
            image = next(image for image in bundle.slices(app) if image.arch == "arm64")
            change(executable, executable.index(image.data))
            write(executable, app, "Fieldbook")
            return pack(folder, self.path("changed.ipa"))

    def wrapped(self, app, conf):
        """The result of a run, and what it logged about settings."""
        output, log = self.path("out.wex"), self.path("Orvane.log")
        remove(output, log)
        before = read(app)
        result = self.wrap(app, output, "-logWriteLevel", "3", environment=conf)
        self.assertEqual(read(app), before)
        self.assertEqual(self.left_in_scratch(), [])
        self.assertEqual(os.path.exists(output), result.returncode == 0, result.stderr)
        log = read(log).decode().splitlines() if os.path.exists(log) else []
        return result, [line for line in log if "modernImages" in line or "strictHeader" in line]

    def test_mistakes_end_the_run_before_it_starts(self):
        path = self.path("my.conf")
        for text, reason in (
                ("# all\nmodernImages = true\n", "line 2: \"modernImages\" must be yes or no, "
                 "not \"true\""),
                ("colour = yes", "line 1: there is no setting \"colour\""),
                ("strictHeaderRoom = yes\n\nstrictHeaderRoom = yes\n",
                 "line 3: \"strictHeaderRoom\" is given twice")):
            result, _ = self.wrapped(DEMO_APP, self.conf(text))
            self.assertEqual(result.returncode, 255)
            self.assertEqual(result_text(result), f"Settings file {path}, {reason}")
            self.assertNotIn("Validating", result.stdout)
            self.assertFalse(os.path.exists(self.path("Orvane.log")))
        os.remove(path)
        result, _ = self.wrapped(DEMO_APP, {"TOVREK_CONF": path})
        self.assertEqual((result.returncode, result_text(result)),
                         (255, f"Settings file {path}: No such file or directory"))

    def test_mistakes_obey_the_display_level(self):
        for level, lines in (("0", 0), ("1", 1)):
            result = self.wrap(DEMO_APP, self.path("out.wex"), "-logDisplayLevel", level,
                               environment=self.conf("colour = yes"))
            self.assertEqual(result.returncode, 255)
            self.assertEqual(result.stderr.count("[CommandLine] Settings file"), lines, level)

    def test_arguments_must_be_utf8(self):
        result = self.run_toolkit([os.path.join(TOOLKIT, "Tovrek"), "Wrap", b"-in", b"a\xffb"],
                                  self.conf(""))
        self.assertEqual(result.returncode, 255)
        self.assertIn("not valid UTF-8: a\\xffb", result.stdout + result.stderr)

    def test_help_needs_no_settings(self):
        result = self.run_toolkit([os.path.join(TOOLKIT, "Tovrek"), "Wrap", "-help"],
                                  self.conf("nonsense"))
        self.assertEqual(result.returncode, 0)
        self.assertNotIn("Settings file", result.stderr)

    def test_modern_images(self):
        def set_flag(executable, at):
            flags = struct.unpack_from("<I", executable, at + 24)[0]
            struct.pack_into("<I", executable, at + 24, flags | UNKNOWN_FLAG)
        app = self.app_with(set_flag)
        result, lines = self.wrapped(app, {})
        self.assertEqual(result.returncode, 0, "on in the file that is shipped")
        self.assertEqual(len(lines), 1)
        self.assertRegex(lines[0], r"modernImages accepts /.*Fieldbook, which the built-in rules "
                                   r"refuse: code 1108$")
        result, lines = self.wrapped(app, self.conf(""))
        self.assertEqual((result.returncode, result_text(result)), (254, REFUSED))
        self.assertIn(" 1108\n", result.stderr)
        self.assertRegex(lines[0], "modernImages would accept ")

    def test_strict_header_room(self):
        def move_section(executable, at):
            section = executable.index(b"__text".ljust(16, b"\0") + b"__TEXT", at)
            end = 32 + struct.unpack_from("<I", executable, at + 20)[0]
            struct.pack_into("<I", executable, section + 48, end + 100)
        app = self.app_with(move_section)
        result, lines = self.wrapped(app, {})
        self.assertEqual((result.returncode, result_text(result)), (254, NO_ROOM))
        self.assertRegex(lines[0], "strictHeaderRoom refuses .*Fieldbook-arm64: ")
        result, lines = self.wrapped(app, self.conf("modernImages = yes # the other is off\n"))
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertRegex(lines[0], "overwrites the first data of .*strictHeaderRoom would refuse")

    def test_the_shipped_file(self):
        values = dict(line.split(" = ") for line in
                      read(TOOLKIT, "tovrek.conf").decode().splitlines()
                      if line and not line.startswith("#"))
        self.assertEqual([name for name, value in values.items() if value == "yes"],
                         ["modernImages", "strictHeaderRoom", "verifyResult"])
        self.assertEqual(len(values), 10)
