"""What is left after a power cut: the output lies on a file system of its own, which is shut down
at once and writes nothing more, not even its journal. What comes back is what the disk had."""
import contextlib
import fcntl
import itertools
import os
import plistlib
import random
import shutil
import struct
import subprocess
import tempfile
import time
import unittest

from commands import COMMANDS, Bench, TemplateMaker
from judging import Reference
from trials import Runner, Trial

BUILD = os.environ["TOVREK_BUILD"]
SUPERVISOR = os.environ["TOVREK_FAULT_SUPERVISOR"]
# scripts/faults asks for more than fits into a test.
CUTS = int(os.environ.get("TOVREK_FAULT_CUTS", "4"))
SHUT_DOWN = 0x8004587D  # EXT4_IOC_SHUTDOWN
WITHOUT_JOURNAL = 2
SIZE = 32 << 20


def quietly(*command):
    return subprocess.run(command, check=True, capture_output=True)


class Disk:
    """A file system in a file. It writes on its own account only after ten minutes."""

    def __init__(self, folder):
        self.image = os.path.join(folder, "image")
        self.place = os.path.join(folder, "disk")
        self.stack = contextlib.ExitStack()
        os.makedirs(self.place)

    def format(self):
        self.unmount()
        with open(self.image, "wb") as file:
            file.truncate(SIZE)
        # Always the same order of folders' entries, which is that of archives.
        quietly("mkfs.ext4", "-q", "-F", "-E", "hash_seed=" + "15" * 4 + "-1515" * 3 + "-" +
                "15" * 6, self.image)
        self.mount()

    def mount(self):
        quietly("mount", "-o", "loop,commit=600", self.image, self.place)

    def unmount(self):
        if os.path.ismount(self.place):
            for attempt in range(50):
                if subprocess.run(["umount", self.place], check=False,
                                  capture_output=True).returncode == 0:
                    return
                time.sleep(0.1)
            raise RuntimeError(f"{self.place} is in use")

    def cut(self):
        place = os.open(self.place, os.O_RDONLY)
        try:
            fcntl.ioctl(place, SHUT_DOWN, struct.pack("I", WITHOUT_JOURNAL))
        finally:
            os.close(place)

    def come_back(self):
        self.unmount()
        self.mount()


def holds_all_of(value, former):
    """Whether a property list has all that another one had; lists may have more at their ends."""
    if isinstance(former, dict):
        return all(key in value and holds_all_of(value[key], former[key]) for key in former)
    if isinstance(former, list):
        return value[:len(former)] == former
    return value == former


class PowerCuts(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = cls.enterClassContext(tempfile.TemporaryDirectory(prefix="tovrek-cuts-"))
        cls.disk = Disk(folder)
        cls.addClassCleanup(cls.disk.unmount)
        try:
            cls.disk.format()
            cls.disk.cut()
        except (OSError, subprocess.CalledProcessError) as problem:
            raise unittest.SkipTest(f"no file system can be mounted and cut off: {problem}")
        with open(os.path.join(BUILD, "demo", "identities", "root.sha1"), encoding="utf-8") as file:
            root = file.read().strip()
        cls.bench = Bench(folder, os.path.join(BUILD, "tovrek"), SUPERVISOR, root)
        TemplateMaker(cls.bench, os.path.join(BUILD, "demo")).make()

    def prepare(self, command, everything=False):
        """A fresh run whose outputs, and older ones on the disk, lie on the file system; or all
        that it works with, so that the package is made and delivered on the same one."""
        self.disk.format()
        if everything:
            runner = Runner(self.bench, command, os.path.join(self.disk.place, "run"))
            runner.prepare()
            os.sync()
            return runner
        runner = Runner(self.bench, command)
        runner.prepare()
        for name in command.outputs:
            shutil.copy(runner.path("work", "out", name), self.disk.place)
        shutil.rmtree(runner.path("work", "out"))
        os.symlink(self.disk.place, runner.path("work", "out"))
        os.sync()
        return runner

    def start(self, runner):
        return subprocess.Popen(
            [os.path.join(self.bench.toolkit, "Tovrek"), *runner.command.words],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
            env=self.bench.environment(runner.folder), cwd=runner.path("work"))

    def check(self, runner, reference, finished):
        self.disk.come_back()
        for name, lines in reference.outputs.items():
            found = runner.output(name)
            self.assertIsNotNone(found.data, f"{name} is gone")
            is_new = found.lines == lines
            self.assertTrue(is_new or (found.old and not finished),
                            f"{name}: {len(found.data)} bytes, finished {finished}")
        if os.path.realpath(runner.folder).startswith(self.disk.place):
            self.check_changing(runner, reference, finished)

    def check_changing(self, runner, reference, finished):
        """What a command completes in place is complete where the package is the new one. Until
        then the files that were there before are as before or as they are to be, and an Info.plist,
        to which several steps add something, has at least all that it had."""
        found, delivered = self.changing(runner), not runner.output("New.wex").old
        if finished or delivered:
            self.assertEqual(found, reference.changing)
            return
        infos = self.info_plists(runner)
        runner.prepare()
        before = self.info_plists(runner)
        for name, lines in self.changing(runner).items():
            if name in before:
                self.assertTrue(holds_all_of(infos[name], before[name]), infos[name])
            else:
                self.assertIn(found.get(name), (lines, reference.changing.get(name)), name)

    @staticmethod
    def info_plists(runner):
        return {name: plistlib.loads(runner.read(*name.split("/")))
                for folder in runner.command.changing for name in runner.tree_lines(folder)
                if name.endswith(".app/Info.plist")}

    @staticmethod
    def changing(runner):
        return {name: lines for folder in runner.command.changing
                for name, lines in runner.tree_lines(folder).items()}

    def reference(self, command, everything):
        """What a run makes that nothing disturbs, in the same place."""
        runner = self.prepare(command, everything)
        if not everything:
            runner = Runner(self.bench, command)
        return Reference.of(runner.run(Trial(command.name, "undisturbed")))

    def test_a_cut_takes_what_nobody_waited_for(self):
        # Else the other tests would prove nothing.
        self.disk.format()
        path = os.path.join(self.disk.place, "file")
        with open(path, "w", encoding="utf-8") as file:
            file.write("text")
        self.disk.cut()
        self.disk.come_back()
        self.assertFalse(os.path.exists(path) and os.path.getsize(path))

    def test_right_after_status_0(self):
        for command, everything in itertools.product(COMMANDS, (False, True)):
            with self.subTest(command=command.name, everything=everything):
                reference = self.reference(command, everything)
                runner = self.prepare(command, everything)
                with self.start(runner) as process:
                    process.stderr.read()
                    self.assertEqual(process.wait(), 0)
                    self.disk.cut()
                self.check(runner, reference, finished=True)

    def test_at_any_moment(self):
        moments = random.Random(15)
        for name, everything in (("wrap-bundle", False), ("set-info", True), ("sdk-prep", True)):
            command = next(each for each in COMMANDS if each.name == name)
            reference = self.reference(command, everything)
            runner = self.prepare(command, everything)
            start = time.monotonic()
            with self.start(runner) as process:
                process.stderr.read()
            length = time.monotonic() - start
            for _ in range(CUTS):
                # The end of a run is when its outputs are written.
                moment = length * (1 - moments.random() ** 2)
                with self.subTest(command=name, moment=moment / length):
                    runner = self.prepare(command, everything)
                    with self.start(runner) as process:
                        time.sleep(moment)
                        finished = process.poll() == 0
                        self.disk.cut()
                        said = process.stderr.read().decode(errors="replace")
                    if process.returncode != 0:
                        self.assertRegex(said, "(?i)error|fail|cannot")
                    self.check(runner, reference, finished or process.returncode == 0)


if __name__ == "__main__":
    unittest.main()
