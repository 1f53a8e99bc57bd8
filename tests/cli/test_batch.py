"""Tables of jobs: what is refused before the first, what becomes of failures and interruptions."""
import json
import os
import pty
import random
import shutil
import signal
import subprocess
import time

from harness import ADMIN, BRANCH, PROFILE, TOOLKIT, pack, read, remove, unzip, write
from makers import SmallAppTest, profile, small_app

BATCH = os.path.join(TOOLKIT, "Batch")
HOSTILE = "<script>alert(1)</script>\x7f\u202e\"'&"
# Stands in for the toolkit where only counting and killing matter: notes that it has begun, makes
# the output in two halves with a pause between, and fails for some inputs.
STAND_IN = """#!/bin/sh
while [ $# -gt 0 ]; do case $1 in -in) in=$2;; -out) out=$2;; esac; shift; done
echo "$in" >>"$BEGUN"
case $(head -c 4 "$in") in
bad:) printf '\\n\\nERROR: <b>bad</b> input \\033[31m\\n------------------------------\\n' >&2; exit 254;;
lazy) exit 0;;
dead) kill -9 $$;;
slow) sleep 30;;
esac
cat "$in" >"$out"; sleep "${PAUSE:-0}"; cat "$in" >>"$out"
"""


def rows_of(output):
    return [line for line in output.splitlines() if line.startswith("[")]


class BatchTest(SmallAppTest):
    def batch(self, *words, program=BATCH, environment=(), **keywords):
        return subprocess.run([program, *words], capture_output=True, timeout=120, text=True,
                              env=self.environment | dict(environment), cwd=self.folder, **keywords)

    def table(self, text, name="jobs.csv"):
        return write(text.encode(), self.folder, name)

    @staticmethod
    def results(table):
        """The results of a table's rows, by their numbers."""
        rows = os.path.join(table + ".state", "rows")
        found = [json.loads(read(rows, name, "result.json")) for name in os.listdir(rows)
                 if os.path.exists(os.path.join(rows, name, "result.json"))]
        return {result["row"]: result for result in found}


class StandInTest(BatchTest):
    """Batch in an install folder of its own, beside a stand-in for the toolkit."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.program = shutil.copy(BATCH, os.path.join(cls.folder, "Batch"))
        os.chmod(write(STAND_IN.encode(), cls.folder, "Tovrek"), 0o755)
        cls.environment["BEGUN"] = cls.path("begun")

    def setUp(self):
        for name in ("in", "out", "jobs.csv.state"):
            shutil.rmtree(self.path(name), ignore_errors=True)
        os.mkdir(self.path("out"))
        remove(self.path("begun"))

    def make_jobs(self, contents):
        """A table with a job for each content; its path."""
        for index, content in enumerate(contents):
            write(content.encode(), self.folder, "in", f"{index}.wex")
        return self.table("#default command=SetInfo\nin,out\n" + "".join(
            f"in/{index}.wex,out/{index}.wex\n" for index in range(len(contents))))

    def run_jobs(self, *words, **keywords):
        return self.batch("run", self.path("jobs.csv"), *words, program=self.program, **keywords)

    def begun(self):
        path = self.path("begun")
        return read(path).decode().split("\n")[:-1] if os.path.exists(path) else []

    def assert_whole(self, contents):
        """Every output is whole, and nothing else lies beside them."""
        for name in os.listdir(self.path("out")):
            if not name.startswith("."):
                self.assertEqual(read(self.folder, "out", name).decode(),
                                 contents[int(name[:-4])] * 2)


class Interruptions(StandInTest):
    def test_killed_at_any_moment(self):
        """Each time the whole run is killed: what is done stays done, the rest is done later."""
        moments = random.Random(20)
        contents = [f"app {index}" for index in range(240)]
        table = self.make_jobs(contents)
        settled = {}
        for attempt in range(20):
            run = subprocess.Popen(
                [self.program, "run", table, "--jobs", "3", *(["--resume"] if attempt else [])],
                env=self.environment | {"PAUSE": "0.02"}, start_new_session=True,
                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            time.sleep(moments.uniform(0.01, 0.15))
            kill_session(run.pid)
            run.wait()
            self.assert_whole(contents)
            if not os.path.isdir(table + ".state"):
                os.makedirs(os.path.join(table + ".state", "rows"))
            begun = self.begun()
            for row in self.results(table):
                path = self.path("in", f"{row - 1}.wex")
                settled.setdefault(path, begun.count(path))
        self.assertGreater(len(settled), 10)
        result = self.run_jobs("--resume", "--jobs", "8")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(len(self.results(table)), len(contents))
        self.assertEqual(sorted(os.listdir(self.path("out"))),
                         sorted(f"{index}.wex" for index in range(len(contents))))
        self.assert_whole(contents)
        begun = self.begun()
        self.assertEqual({path: begun.count(path) for path in settled}, settled)

    def test_interrupted(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            with self.subTest(number):
                self.setUp()
                table = self.make_jobs(["app", "slow", "slow"])
                run = subprocess.Popen([self.program, "run", table, "--jobs", "3"], text=True,
                                       env=self.environment, stdout=subprocess.PIPE,
                                       stderr=subprocess.PIPE)
                while len(self.begun()) < 3 or not os.listdir(self.path("out")):
                    time.sleep(0.01)
                run.send_signal(number)
                out, error = run.communicate(timeout=10)
                self.assertEqual(run.returncode, -number)
                self.assertIn("1 done, 0 failed, 2 left of 3", out)
                self.assertIn("--resume completes", error)
                self.assertEqual(list(self.results(table)), [1])
                self.assertEqual(os.listdir(self.path("out")), ["0.wex"])


def kill_session(session):
    """Ends all processes of a session, those that they start meanwhile too."""
    killed = True
    while killed:
        killed = False
        for name in filter(str.isdigit, os.listdir("/proc")):
            try:
                with open(f"/proc/{name}/stat", encoding="utf-8", errors="replace") as stat:
                    fields = stat.read().rpartition(")")[2].split()
                if int(fields[3]) == session and fields[0] != "Z":
                    os.kill(int(name), signal.SIGKILL)
                    killed = True
            except (FileNotFoundError, ProcessLookupError):
                pass  # ended meanwhile
