"""What a folder of one's own and the installation of a package have: versions, content, log."""
import os
import re
import shutil
import unittest

from harness import COMPANIONS, TOOLKIT, WholeProgramTest, read, run, write


class Versions(unittest.TestCase):
    # As the programs that they stand in for put it.
    OTHER_FORMS = {"xcrun": "xcrun version {}.\n", "xcode-select": "xcode-select version {}.\n"}

    def test_all_programs(self):
        banner = run(os.path.join(TOOLKIT, "Tovrek"), check=False).stdout.decode()
        version = re.search(r"version (\d+\.\d+\.\d+)\.", banner).group(1)
        programs = [entry.path for folder in (TOOLKIT, COMPANIONS) for entry in os.scandir(folder)
                    if entry.is_file() and os.access(entry.path, os.X_OK)
                    and entry.name != "Tovrek"]
        self.assertGreater(len(programs), 12)
        for program in programs:
            name = os.path.basename(program)
            told = run(program, "--version")
            form = self.OTHER_FORMS.get(name, name + " (Tovrek) {}\n")
            self.assertEqual((told.stdout.decode(), told.stderr), (form.format(version), b""))


class Starts(unittest.TestCase):
    """A run starts dozens of companions: what takes long to load is linked in, or left out."""

    def test_programs_load_little(self):
        # Damaged documents are rare, and what mends them loads libxml2 with all that this loads.
        companions = set(os.listdir(COMPANIONS)) - {"mend-xml"}
        for program in [os.path.join(COMPANIONS, name) for name in sorted(companions)] + \
                [os.path.join(TOOLKIT, name) for name in ("Tovrek", "Inspect", "Batch")]:
            loaded = run("ldd", program).stdout.decode()
            self.assertIn("libc.so", loaded)
            for library in ("libxml2", "libicuuc", "libstdc++", "libfmt", "libre2"):
                self.assertNotIn(library, loaded, program)


class Installed(WholeProgramTest):
    def setUp(self):
        self.toolkit = self.path(self.id(), "toolkit")
        os.makedirs(self.toolkit)
        shutil.copy(os.path.join(TOOLKIT, "Tovrek"), self.toolkit)
        os.symlink(os.path.join(TOOLKIT, "host"), os.path.join(self.toolkit, "host"))
        self.local = self.path(self.id(), "etc")
        self.input = write(b"no app", self.path("App.txt"))

    def refused(self, log, content):
        """A run that gets as far as the content writes this log, and takes this content."""
        command = self.wrap_command(self.input, self.path("x.wex"), "-logWriteLevel", "3",
                                    toolkit=self.toolkit)
        named = command.index("-logFile")
        del command[named:named + 2]
        result = self.run_toolkit(command, {"XDG_STATE_HOME": self.path(self.id(), "state")})
        self.assert_ends_with(result, 254, "Unknown input file.")
        if log is None:
            return result.stderr
        self.assertNotIn("failed to write", result.stderr)
        self.assertIn(f"Content path: {content}\n", read(log).decode())
        return result.stderr

    def test_folder_of_ones_own(self):
        os.mkdir(os.path.join(self.toolkit, "logs"))
        self.refused(os.path.join(self.toolkit, "logs/Orvane.log"), os.path.join(self.toolkit, "Data"))
        # Neither made nor replaced by another place: it is known from scripts where the log is.
        shutil.rmtree(os.path.join(self.toolkit, "logs"))
        self.assertIn("failed to write", self.refused(None, None))
        self.assertFalse(os.path.exists(self.path(self.id(), "state")))

    def test_package(self):
        os.mkdir(self.local)
        os.symlink(self.local, os.path.join(self.toolkit, "local"))
        log = self.path(self.id(), "state/tovrek/Orvane.log")
        self.refused(log, os.path.join(self.toolkit, "Data"))
        os.remove(log)
        os.mkdir(os.path.join(self.local, "Data"))
        self.refused(log, os.path.join(self.toolkit, "local/Data"))
        # A log that cannot be had is told of once.
        shutil.rmtree(self.path(self.id(), "state"))
        write(b"", self.path(self.id(), "state"))
        self.assertEqual(self.refused(None, None).count("failed to write"), 1)
