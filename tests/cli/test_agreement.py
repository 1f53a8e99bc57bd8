"""Runs other suites, and before each of their wraps asks Inspect whether it will succeed."""
import contextlib
import fnmatch
import io
import json
import os
import subprocess
import unittest
import unittest.mock

import harness
from harness import TOOLKIT, WholeProgramTest

SUITES = ["test_eligibility", "test_certificates", "test_bad_input.BadInput", "test_warnings",
          "test_entitlements", "test_hostile.NothingElseRuns.test_entries_of_archives",
          "test_result_check", "test_extensions"]
# Refusals that are about what else was asked for, and not about app, certificate and profile.
OTHER_REFUSALS = ["*output path*", "Output*extension*", "line *: unclosed token", "File*does not exist*xml*",
                  "*: the file is empty", "*: Is a directory"]
FEWEST_WRAPS = 100
# Options of a wrap that decide, and what they are called here.
SWITCHES = {"-upgrade": "--upgrade", "-noStripExtensions": "--no-strip-extensions"}
VALUES = {"-Cert": "--cert", "-Profile": "--profile", "-bundleID": "--bundle-id"}


def options_of(words):
    """The options of a command line with their values, and those that have none."""
    values, switches, rest = {}, set(), list(words)
    while rest:
        name = rest.pop(0)
        if name in SWITCHES:
            switches.add(name)
        elif rest:
            values[name] = rest.pop(0)
    return values, switches


def stamp(path):
    with contextlib.suppress(FileNotFoundError):
        status = os.stat(path)
        return status.st_ino, status.st_mtime_ns
    return None


class Observer:
    """Stands in for the function that runs the toolkit."""

    def __init__(self, run):
        self.run, self.wraps, self.differences = run, 0, []

    def __call__(self, suite, command, environment=(), merge=False):
        if command[0] != os.path.join(TOOLKIT, "Tovrek") or command[1] != "Wrap":
            return self.run(suite, command, environment, merge)
        options, switches = options_of(command[2:])
        forecast = self.forecast(suite, options, switches, environment)
        before = stamp(options["-out"])
        result = self.run(suite, command, environment, merge)
        wrapped = stamp(options["-out"]) != before
        self.wraps += 1
        text = harness.result_text(result) or ""
        isOther = any(fnmatch.fnmatch(text, pattern) for pattern in OTHER_REFUSALS)
        if forecast["wouldWrap"] != wrapped and (wrapped or not isOther):
            self.differences.append((suite.__name__, command, forecast, text))
        return result

    @staticmethod
    def forecast(suite, options, switches, environment):
        words = [SWITCHES[name] for name in switches]
        for name, long in VALUES.items():
            if options.get(name):
                words += [long, options[name]]
        result = subprocess.run(
            [os.path.join(TOOLKIT, "Inspect"), options["-in"], "--json", *words],
            capture_output=True, timeout=120, cwd=suite.folder,
            env=suite.environment | dict(environment))
        assert result.returncode in (0, 1, 2) and not result.stderr, result.stderr
        # What cannot be read at all is not wrapped.
        return json.loads(result.stdout)["inputs"][0].get("wrap", {"wouldWrap": False})


class Agreement(unittest.TestCase):
    maxDiff = None

    def test_inputs_of_the_suites(self):
        observer = Observer(WholeProgramTest.run_toolkit.__func__)
        with unittest.mock.patch.object(
                WholeProgramTest, "run_toolkit",
                classmethod(lambda *words, **named: observer(*words, **named))):
            suite = unittest.defaultTestLoader.loadTestsFromNames(SUITES)
            # What they find by themselves is told when they run by themselves.
            unittest.TextTestRunner(stream=io.StringIO()).run(suite)
        self.assertGreater(observer.wraps, FEWEST_WRAPS)
        self.assertEqual(observer.differences, [])
