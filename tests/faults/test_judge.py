"""That a sweep reports bad runs: programs that stand in for Tovrek do what must never happen."""
import contextlib
import io
import os
import tempfile
import unittest
import zipfile

import sweep
from commands import Bench, Command
from judging import Reference
from trials import Runner, Trial

SUPERVISOR = os.environ["TOVREK_FAULT_SUPERVISOR"]
COMMAND = Command("stand-in", ("Wrap", "-in", "App.ipa"), ("New.wex",))
PUT = 'cp "$parts/right.wex" out/part && mv out/part out/New.wex'
REFUSE = "echo 'ERROR: the disk is full' >&2; exit 254"

# How a stand-in is to be judged, a part of the reason, and what it does.
BEHAVIOURS = [
    ("right", "", PUT),
    ("told", "", REFUSE),
    ("told", "", f"{PUT}; echo 'WARNING: no icon' >&2; cp \"$parts/other.wex\" out/New.wex"),
    ("told", "", "echo 'The app cannot be read' >log; exit 254"),
    ("right", "", f'{PUT}; mkdir "$TMPDIR/com.orvane.wex"'),
    ("wrong", "differs, nothing said", 'cp "$parts/other.wex" out/New.wex'),
    ("wrong", "differs, nothing said",
     "cp \"$parts/other.wex\" out/New.wex; echo 'all is well' >&2"),
    ("wrong", "not written, nothing said", "exit 0"),
    ("wrong", "no readable archive", 'head -c 60 "$parts/right.wex" >out/New.wex; echo failed >&2'),
    ("wrong", "neither the old output nor the new",
     f'head -c 60 "$parts/right.wex" >out/New.wex; {REFUSE}'),
    ("wrong", "old output is gone", f"rm out/New.wex; {REFUSE}"),
    ("wrong", "foreign bytes", f"{PUT}; echo 'Tovrek[12] text' >>out/New.wex; echo failed >&2"),
    ("wrong", "without a text", "exit 254"),
    ("wrong", "App.ipa: changed", f"{PUT}; echo x >>App.ipa"),
    ("wrong", "data/keychain: changed", f"rm ../data/keychain; {REFUSE}"),
    ("crashed", "signal 11", "kill -SEGV $$"),
    ("crashed", "signal 6", f"sh -c 'kill -ABRT $$'; {REFUSE}"),
    ("crashed", "SIGXFSZ", "kill -XFSZ $$"),
    ("hung", "did not end", f"{PUT}; sleep 30"),
    ("left behind", "scratch/some.txt", f'{PUT}; echo x >"$TMPDIR/some.txt"'),
    ("left behind", "work/out/part", f'cp "$parts/right.wex" out/part; {REFUSE}'),
    ("right", "", f'{PUT}; mkdir "$TMPDIR/some folder"; echo "some folder cannot be removed" >&2'),
]


def archive(path, text):
    with zipfile.ZipFile(path, "w") as file:
        file.writestr(zipfile.ZipInfo("manifest.xml", (2021, 1, 2, 3, 4, 6)), text)


class Judge(unittest.TestCase):
    def setUp(self):
        folder = self.enterContext(tempfile.TemporaryDirectory())
        self.parts = os.path.join(folder, "parts")
        os.mkdir(self.parts)
        archive(os.path.join(self.parts, "right.wex"), "what it should be")
        archive(os.path.join(self.parts, "other.wex"), "what it should not be")
        self.bench = Bench(folder, self.parts, SUPERVISOR, seconds=2)
        os.makedirs(self.bench.template(COMMAND, "work", "out"))
        os.makedirs(self.bench.template(COMMAND, "data"))
        archive(self.bench.template(COMMAND, "work", "out", "New.wex"), "what stood there before")
        for name in ("work/App.ipa", "data/keychain"):
            with open(self.bench.template(COMMAND, name), "w", encoding="utf-8") as file:
                file.write("input\n")
        self.stand_in(PUT)
        self.reference = Reference.of(Runner(self.bench, COMMAND).run(self.trial()))

    def stand_in(self, script):
        path = os.path.join(self.parts, "Tovrek")
        with open(path, "w", encoding="utf-8") as file:
            file.write(f"#!/bin/sh\nparts='{self.parts}'\n{script}\n")
        os.chmod(path, 0o755)

    @staticmethod
    def trial(group="undisturbed", place=""):
        return Trial(COMMAND.name, group, place)

    def verdict(self, trial):
        _, verdict, reasons = sweep.run_trial(self.bench, self.reference, COMMAND, trial)
        return verdict, "; ".join(reasons)

    def test_what_must_not_happen_is_reported(self):
        for expected, reason, script in BEHAVIOURS:
            with self.subTest(script=script):
                self.stand_in(script)
                verdict, reasons = self.verdict(self.trial())
                self.assertEqual(verdict, expected, reasons)
                self.assertIn(reason, reasons)

    def test_what_a_disturbance_excuses(self):
        other = 'cp "$parts/other.wex" out/New.wex'
        leaves = f'echo x >"$TMPDIR/some.txt"; {PUT}'
        cases = [
            ("told", "SIGKILL", "end", leaves),
            ("wrong", "SIGKILL", "end", "rm out/New.wex; cat App.ipa"),
            ("left behind", "SIGTERM", "end", f"trap 'exit 0' TERM; {leaves}; true"),
            ("told", "SIGTERM", "1", PUT),
            ("told", "closed", "errors", "exit 254"),
            ("wrong", "closed", "output", "exit 254"),
            ("told", "full", "errors", "exit 254"),
            ("wrong", "full", "output", "exit 254"),
            ("crashed", "size", "10", "exec cp App.ipa out/part"),
            ("wrong", "allocation", "1", f"{other}; echo 'WARNING: no icon' >&2"),
            ("told", "exhaustion", "1", f"{REFUSE}; {other}"),
        ]
        with open(self.bench.template(COMMAND, "work", "App.ipa"), "w", encoding="utf-8") as file:
            file.write("an input of more than ten bytes\n")
        for expected, group, place, script in cases:
            with self.subTest(group=group, script=script):
                self.stand_in(script)
                if place == "end":
                    counted = Runner(self.bench, COMMAND).run(self.trial("counting"))
                    place = str(sum(counted.counts.values()) - 1)
                self.assertEqual(self.verdict(self.trial(group, place))[0], expected)

    def test_a_sweep_with_a_bad_run_fails(self):
        arguments = sweep.arguments_of(["build", "--group", "rename", "--jobs", "1"])
        put = 'cp "$parts/right.wex" out/part; mv out/part out/New.wex'
        for script, bad in ((f"{put} || {{ rm out/part; exit 254; }}", 0),
                            (f"{put} 2>/dev/null; rm -f out/part; exit 0", 1)):
            self.stand_in(script)
            done = sweep.Sweep(arguments, self.bench, (COMMAND,))
            with contextlib.redirect_stdout(io.StringIO()) as shown:
                self.assertEqual(done.run(), bad)
            self.assertEqual("--run 'stand-in/rename/" in shown.getvalue(), bool(bad))


if __name__ == "__main__":
    unittest.main()
