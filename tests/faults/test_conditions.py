"""Runs under conditions that are more than one failing call: full disks, small files, missing
streams, kills at any moment, a log that others write to. Random moments are drawn from a fixed seed."""
import collections
import contextlib
import dataclasses
import os
import random
import re
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

from commands import COMMANDS, Bench, TemplateMaker
from judging import FOREIGN, Reference
from trials import Runner, Trial, files_below, is_lasting, may_mount

BUILD = os.environ["TOVREK_BUILD"]
SUPERVISOR = os.environ["TOVREK_FAULT_SUPERVISOR"]
# scripts/faults asks for more than fits into a test.
KILLS = int(os.environ.get("TOVREK_FAULT_KILLS", "5"))
BY_NAME = {command.name: command for command in COMMANDS}
COMPANIONS = os.path.join(BUILD, "tovrek", "host", "usr", "bin")
DEMO = os.path.join(BUILD, "demo")


def at_level(command, level):
    words = command.words[:-1] + (str(level),) if command.words[-2] == "-logWriteLevel" else tuple(
        str(level) if before == "-logWriteLevel" else word
        for before, word in zip(("", *command.words), command.words))
    return dataclasses.replace(command, words=words)


def processes_of(folder):
    """The processes that work for a run in this folder."""
    mark, found = f"TMPDIR={folder}/scratch".encode(), []
    for name in filter(str.isdigit, os.listdir("/proc")):
        with contextlib.suppress(OSError), open(f"/proc/{name}/environ", "rb") as file:
            if mark in file.read().split(b"\0"):
                found.append(name)
    return found


def lasting_processes(folder, seconds=30):
    """Those of them that are still there after a time in which each can end, be it that it waits for
    a busy disk. One that is being started shows no variables, so none has to be seen twice."""
    end, unseen = time.monotonic() + seconds, 0
    while unseen < 2 and time.monotonic() < end:
        unseen = 0 if processes_of(folder) else unseen + 1
        time.sleep(0.05)
    return processes_of(folder)


class Conditions(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = cls.enterClassContext(tempfile.TemporaryDirectory(prefix="tovrek-conditions-"))
        with open(os.path.join(DEMO, "identities", "root.sha1"), encoding="utf-8") as file:
            root = file.read().strip()
        cls.bench = Bench(folder, os.path.join(BUILD, "tovrek"), SUPERVISOR, root)
        TemplateMaker(cls.bench, DEMO).make()
        cls.disks = may_mount(folder)

    def start(self, runner, words=None, **keywords):
        """Starts the command of the runner with nothing between it and the system."""
        return subprocess.Popen(
            [os.path.join(self.bench.toolkit, "Tovrek"), *(words or runner.command.words)],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
            env=self.bench.environment(runner.folder), cwd=runner.path("work"), **keywords)

    def finish(self, runner, words=None, **keywords):
        """The same to its end: the exit status and what was said."""
        with self.start(runner, words, **keywords) as process:
            said = process.stderr.read().decode(errors="replace")
        return process.returncode, said

    def reference(self, command):
        return Reference.of(Runner(self.bench, command).run(Trial(command.name, "undisturbed")))

    def test_what_was_full_stands_among_the_errors_of_the_log(self):
        full, large = "No space left on device", "File too large"
        cases = [("wrap", "size", 30000, large), ("wrap", "size", 80000, large),
                 ("sign-wex", "size", 60000, large), ("set-info", "size", 60000, large)]
        if self.disks:
            cases += [("wrap", "scratch disk", 262144, full), ("wrap", "output disk", 4096, full),
                      ("sign-wex", "scratch disk", 262144, full),
                      ("sign-wex", "scratch disk", 393216, full),
                      ("set-info", "scratch disk", 131072, full),
                      ("set-info", "output disk", 4096, full)]
        for name, group, size, reason in cases:
            with self.subTest(command=name, group=group, size=size):
                command = at_level(BY_NAME[name], 1)
                runner = Runner(self.bench, command)
                run = runner.run(Trial(name, group, str(size)))
                log = runner.read("work", "log").decode()
                self.assertTrue(any(reason in line and ("/" in line or "." in line)
                                    for line in log.splitlines()), log)
                self.assertTrue(all(output.old for output in run.outputs.values()))
                self.assertEqual(run.left, [])

    def test_killed_and_interrupted_runs(self):
        """The output is the old one or the new one, nobody works on, and the next run clears up."""
        moments = random.Random(15)
        for name in ("wrap", "set-info"):
            command = at_level(BY_NAME[name], 3)
            reference = self.reference(command)
            runner = Runner(self.bench, command)
            runner.prepare()
            start = time.monotonic()
            self.assertEqual(self.finish(runner)[0], 0)
            length = time.monotonic() - start
            for _ in range(KILLS):
                number = moments.choice((signal.SIGKILL, signal.SIGKILL, signal.SIGTERM,
                                         signal.SIGINT))
                moment = moments.random()
                with self.subTest(command=name, signal=number.name, moment=moment):
                    self.kill_and_run_again(runner, reference, number, moment * length)

    def kill_and_run_again(self, runner, reference, number, delay):
        runner.prepare()
        with self.start(runner) as process:
            time.sleep(delay)
            process.send_signal(number)
        self.assertEqual(lasting_processes(runner.folder), [])
        for output, lines in reference.outputs.items():
            found = runner.output(output)
            self.assertTrue(found.old or found.lines == lines, output)
        left = sorted(os.path.join(runner.path("scratch", "com.orvane.wex"), folder)
                      for folder in self.run_folders(runner))
        if number != signal.SIGKILL:
            self.assertEqual(left, [])
        status, said = self.finish(runner)
        self.assertEqual(status, 0, said)
        self.assertEqual(runner.output("New.wex").lines, reference.outputs["New.wex"])
        self.assertEqual(self.run_folders(runner), [])
        log = runner.read("work", "log").decode()
        removed = re.findall(r"Removed what an interrupted run had left: (.*)", log)
        self.assertEqual(sorted(removed), left)

    @staticmethod
    def run_folders(runner):
        with contextlib.suppress(FileNotFoundError):
            return os.listdir(runner.path("scratch", "com.orvane.wex"))
        return []

    def test_ten_runs_that_begin_one_log(self):
        command = at_level(BY_NAME["set-info"], 4)
        runner = Runner(self.bench, command)
        runner.prepare()
        self.assertEqual(self.finish(runner)[0], 0)
        alone = self.entries(runner)
        self.assertGreater(sum(alone.values()), 5)
        for _ in range(2):
            runner.prepare()
            words = [[word.replace("New.wex", f"New{i}.wex") for word in command.words]
                     for i in range(10)]
            for process in [self.start(runner, each) for each in words]:
                with process:
                    process.stderr.read()
                self.assertEqual(process.returncode, 0)
            entries = self.entries(runner)
            # The first one alone finds an older output.
            self.assertEqual({text: entries[text] for text in alone if "already" not in text},
                             {text: 10 * count for text, count in alone.items()
                              if "already" not in text})

    @staticmethod
    def entries(runner):
        text = runner.masks.text(runner.read("work", "log").decode())
        return collections.Counter(re.sub(r"New\d*\.wex", "New.wex", text).splitlines())

    def test_a_parent_that_ignores_the_ends_of_children(self):
        # The system then forgets exit statuses, and a failing tool would seem to succeed.
        command = BY_NAME["sign-ipa"]
        runner = Runner(self.bench, command)
        ignoring = {"preexec_fn": lambda: signal.signal(signal.SIGCHLD, signal.SIG_IGN)}
        reference = self.reference(command)
        runner.prepare()
        self.assertEqual(self.finish(runner, **ignoring)[0], 0)
        self.assertEqual(runner.output("New.ipa").lines, reference.outputs["New.ipa"])
        runner.prepare()
        for name in os.listdir(runner.path("data", "tovrek", "keychain")):
            os.remove(runner.path("data", "tovrek", "keychain", name))
        expected = self.finish(runner)
        self.assertNotEqual(expected[0], 0)
        status, said = self.finish(runner, **ignoring)
        self.assertEqual(status, expected[0], said)
        self.assertTrue(runner.output("New.ipa").old)

    def test_companions_without_streams(self):
        """What a program writes into its files is the same, whichever streams it lacks."""
        executable = os.path.join(DEMO, "sdk", "Gauge.app", "Gauge")
        cases = [("zip", "-qr", "made", "folder"), ("unzip", "-q", "archive.zip", "-d", "made"),
                 ("lipo", executable, "-thin", "arm64", "-output", "made"),
                 ("codesign", "-f", "-s", "-", "-i", "some.tool", "tool"),
                 ("security", "cms", "-D", "-i", "Example.mobileprovision", "-o", "made"),
                 ("xcrun", "-sdk", "iphoneos", "PackageApplication", "Gauge.app", "-o", "made")]
        for name, *words in cases:
            expected = self.made_by(name, words, ())
            for closed in ((0,), (1,), (2,), (0, 1, 2)):
                with self.subTest(program=name, closed=closed):
                    self.assertEqual(self.made_by(name, words, closed), expected)

    def made_by(self, name, words, closed):
        """The exit status and the files that are there after the program has run."""
        with tempfile.TemporaryDirectory(dir=self.bench.folder) as folder:
            work = os.path.join(folder, "work")
            os.makedirs(os.path.join(work, "folder"))
            os.mkdir(os.path.join(folder, "scratch"))
            for source, target in (("Example.mobileprovision", ""),
                                   ("Fieldbook.ipa", "archive.zip"),
                                   ("sdk/Gauge.app/Gauge", "tool"),
                                   ("Example.mobileprovision", "folder")):
                shutil.copy(os.path.join(DEMO, source), os.path.join(work, target))
            shutil.copytree(os.path.join(DEMO, "sdk", "Gauge.app"), os.path.join(work, "Gauge.app"))
            for path in files_below(work):
                os.utime(path, (1e9, 1e9))
            options = [word for number in closed for word in ("--close", str(number))]
            status = subprocess.run(
                [SUPERVISOR, "--report", os.path.join(folder, "report"), *options, "--",
                 os.path.join(COMPANIONS, name), *words], check=False, cwd=work,
                capture_output=True, stdin=subprocess.DEVNULL,
                env=self.bench.environment(folder)).returncode
            self.assertEqual([path for path in files_below(os.path.join(folder, "scratch"))
                              if not is_lasting(os.path.basename(path))], [])
            found = {}
            for path in filter(os.path.isfile, files_below(work)):
                with open(path, "rb") as file:
                    data = file.read()
                self.assertFalse(any(mark in data for mark in FOREIGN), path)
                found[os.path.relpath(path, work)] = len(data) if name == "xcrun" else data
            return status, found


if __name__ == "__main__":
    unittest.main()
