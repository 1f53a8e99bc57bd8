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
          "test_entitlements", "test_hostile.NothingElseRuns.test_entries_of_archives"]
# Refusals that are about what else was asked for, and not about app, certificate and profile.
OTHER_REFUSALS = ["*output path*", "Output*extension*", "*Start Tag*", "File*does not exist*xml*",
                  "*: the file is empty", "*: Is a directory"]
FEWEST_WRAPS = 60


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
        options = dict(zip(command[2::2], command[3::2]))
        forecast = self.forecast(suite, options, environment)
        before = stamp(options["-out"])
        result = self.run(suite, command, environment, merge)
        wrapped = stamp(options["-out"]) != before
        self.wraps += 1
        text = harness.result_text(result) or ""
        isOther = any(fnmatch.fnmatch(text, pattern) for pattern in OTHER_REFUSALS)
        # An upgrade takes any wildcard profile; what is asked of Inspect is a plain wrap.
        mayDiffer = "-upgrade" in command if wrapped else isOther
        if forecast["wouldWrap"] != wrapped and not mayDiffer:
            self.differences.append((suite.__name__, options, forecast, text))
        return result

    @staticmethod
    def forecast(suite, options, environment):
        result = subprocess.run(
            [os.path.join(TOOLKIT, "Inspect"), options["-in"], "--json", "--cert",
             options["-Cert"], "--profile", options["-Profile"]],
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
