"""Tables of jobs: what is refused before the first, what becomes of failures and interruptions."""
import json
import os
import pty
import random
import shutil
import signal
import subprocess
import time
from datetime import datetime, timedelta

from harness import ADMIN, BRANCH, TOOLKIT, pack, read, remove, unpacked_app, unzip, write
from makers import TEAM, SmallAppTest, profile, small_app
from test_inspect import PageChecker

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
deaf) (trap "" TERM; echo here; exec sleep 30) & echo $! >"$BEGUN.pid"; sleep 30;;
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
        if not os.path.isdir(rows):
            return {}
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
        states = [name for name in os.listdir(self.folder) if name.endswith(".state")]
        for name in ("in", "out", *states):
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
            # Counted in rows, as machines differ; now and then before the first one.
            enough = len(self.begun()) + moments.randrange(14)
            while len(self.begun()) < enough:
                time.sleep(0.002)
            time.sleep(moments.uniform(0, 0.03))
            kill_session(run.pid)
            run.wait()
            self.assert_whole(contents)
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
                while len(self.begun()) < 3 or not self.results(table):
                    time.sleep(0.01)
                run.send_signal(number)
                out, error = run.communicate(timeout=10)
                self.assertEqual(run.returncode, -number)
                self.assertIn("1 done, 0 failed, 2 left of 3", out)
                self.assertIn("--resume completes", error)
                self.assertEqual(list(self.results(table)), [1])
                self.assertEqual(os.listdir(self.path("out")), ["0.wex"])


class Failures(StandInTest):
    def test_rows_that_hang(self):
        """They are ended with all that they have started, whatever that does about signals."""
        table = self.make_jobs(["slow", "app", "deaf"])
        result = self.run_jobs("--timeout", "1", "--jobs", "3")
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertIn("1 done, 2 failed, 0 left of 3", result.stdout)
        for row in (1, 3):
            self.assertEqual(self.results(table)[row]["text"],
                             "the command took longer than 1 s and was ended")
        self.assertEqual(os.listdir(self.path("out")), ["1.wex"])
        process = f"/proc/{read(self.path('begun.pid')).decode().strip()}/stat"
        deadline = time.monotonic() + 5
        while os.path.exists(process) and b") Z" not in read(process):
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.01)
        result = self.batch("run", table, "--index", "0", "--timeout", "1", program=self.program)
        self.assertIn("took longer than 1 s", result.stderr)

    def test_some_of_a_hundred_fail(self):
        kinds = {7: "bad: input", 21: "lazy", 22: "dead", 60: "bad: too"}
        contents = [kinds.get(index, f"app {index}") for index in range(100)]
        table = self.make_jobs(contents)
        write(b"old", self.folder, "out", "7.wex")
        result = self.run_jobs("--report", self.path("report"))
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertEqual(len(rows_of(result.stdout)), 100)
        self.assertIn("96 done, 4 failed, 0 left of 100", result.stdout)
        self.assertNotIn("\033", result.stdout)
        table_of_failures = result.stdout.splitlines()[-6:-1]
        for (index, text), line in zip(
                {7: "ERROR: <b>bad</b> input \\x1b[31m", 21: "21.wex was not made",
                 22: "ended by signal 9", 60: "ERROR"}.items(), table_of_failures[1:]):
            self.assertTrue(line.split()[0] == str(index + 1) and text in line, line)
        # What stood there before stays.
        self.assertEqual(read(self.folder, "out", "7.wex"), b"old")
        remove(self.path("out", "7.wex"))
        self.assertEqual(len(os.listdir(self.path("out"))), 96)
        self.assert_whole(contents)
        self.check_report()

        with self.subTest("--resume leaves failures alone"):
            before = len(self.begun())
            self.assertEqual(self.run_jobs("--resume").returncode, 1)
            self.assertEqual(len(self.begun()), before)
        with self.subTest("what failed, changed or is gone is done again, and nothing else"):
            write(b"good now", self.folder, "in", "7.wex")
            write(b"changed", self.folder, "in", "30.wex")
            remove(self.path("out", "40.wex"))
            write(b"cut", self.folder, "out", "41.wex")
            result = self.run_jobs()
            again = [os.path.basename(path) for path in self.begun()[before:]]
            self.assertEqual(sorted(again, key=lambda name: int(name[:-4])),
                             [f"{row}.wex" for row in (7, 21, 22, 30, 40, 41, 60)])
            self.assertEqual(read(self.folder, "out", "30.wex"), b"changedchanged")
            self.assertIn("93 of 100 are done already", result.stdout)
        self.assertEqual(len(self.results(table)), 100)

    def check_report(self):
        summary = json.loads(read(self.folder, "report", "summary.json"))
        self.assertEqual([summary[name] for name in ("jobs", "done", "failed", "left")],
                         [100, 96, 4, 0])
        self.assertEqual([row["row"] for row in summary["rows"] if row["status"] == "failed"],
                         [8, 22, 23, 61])
        page = read(self.folder, "report", "index.html").decode()
        self.assertNotIn("<b>bad", page)
        self.assertNotIn("\033", page)
        self.assertIn("ERROR: &lt;b&gt;bad&lt;/b&gt; input \\x1b[31m", page)
        checker = PageChecker()
        checker.feed(page)
        self.assertEqual((checker.open, checker.outside), ([], []))

    def test_one_job(self):
        """What engines that count call."""
        self.make_jobs(["app", "bad:"])
        for index, status, text in ((0, 0, ""), (1, 1, "ERROR: <b>bad</b>"), (2, 2, "no job 2"),
                                    (0, 0, "")):
            with self.subTest(index):
                result = self.run_jobs("--index", str(index))
                self.assertEqual((result.returncode, result.stdout), (status, ""))
                self.assertIn(text, result.stderr)
        self.assertEqual(len(self.begun()), 2)

    def test_only_one_run_at_a_time(self):
        table = self.make_jobs(["slow"])
        with subprocess.Popen([self.program, "run", table], stdout=subprocess.DEVNULL,
                              env=self.environment, stderr=subprocess.DEVNULL) as run:
            while not self.begun():
                time.sleep(0.01)
            for words, status, text in (([], 2, "another run"), (["--index", "0"], 1, "another")):
                result = self.run_jobs(*words)
                self.assertEqual(result.returncode, status)
                self.assertIn(text, result.stderr)
            run.terminate()
        self.assertEqual(self.results(table), {})

    def test_terminal(self):
        """One line that changes, and one for the failure."""
        self.make_jobs(["app", "bad:"])
        master, slave = pty.openpty()
        run = subprocess.Popen([self.program, "run", self.path("jobs.csv")], stdout=slave,
                               stderr=slave, stdin=subprocess.DEVNULL, env=self.environment)
        os.close(slave)
        shown = b""
        try:
            while piece := os.read(master, 65536):
                shown += piece
        except OSError:
            pass  # the other end is closed
        os.close(master)
        self.assertEqual(run.wait(), 1)
        self.assertIn(b"\r1 of 2 done, 1 failed, 0 running, ", shown)
        self.assertIn(b"FAILED 1.wex (row 2): ERROR", shown)
        self.assertNotIn(b"done 0.wex", shown)


class Tables(StandInTest):
    def faults(self, text, name="jobs.csv", verb="run", status=1):
        result = self.batch(verb, self.table(text, name), program=self.program)
        self.assertEqual(result.returncode, status, result.stdout)
        self.assertEqual(self.begun(), [])
        self.assertEqual([left for left in os.listdir(self.folder) if left.endswith(".state")], [])
        return result.stderr.splitlines()[:-1] if status == 1 else result.stderr

    def test_all_faults_at_once(self):
        write(b"", self.folder, "in", "a.wex")
        os.makedirs(self.path("in", "folder.wex"))
        os.mkfifo(self.path("in", "pipe.wex"))
        table = "\n".join([
            "#default command=SetInfo", "#default color=x", "#default minPlatform=9",
            "in,out,appDesc,-in,Cert,maxPlatform",
            "in/a.wex,out/1.wex,x,,,", "in/none.wex,out/1.wex,x,,,", "in/folder.wex,out/3.wex,,,,",
            "in/pipe.wex,gone/4.wex,,,,", "in/a.wex,out/5,,,Name,", "out/1.wex,,,,,",
            "in/a.wex,out/7.wex,sign,,,9", "in/a.wex,in/a.wex,-OUT,,,", "one,two", ""])
        self.assertLessEqual(set(self.faults(table)), set(self.faults(table, verb="check")))
        found = "\n".join(line.replace(self.folder + "/", "") for line in self.faults(table))
        for text in ("color: there is no such column",
                     "line 4, -in: there is no such column: options are written without",
                     "row 2 (line 6), in: there is no file in/none.wex",
                     "row 2 (line 6), out: row 1 makes out/1.wex too",
                     "row 3 (line 7), in: in/folder.wex is a folder",
                     "row 4 (line 8), in: in/pipe.wex is no regular file",
                     "row 4 (line 8), out: there is no folder gone",
                     "row 5 (line 9), Cert: SetInfo has no such option",
                     "row 6 (line 10), out: it is missing",
                     "row 7 (line 11), appDesc: the command line has a meaning of its own for sign",
                     "row 7 (line 11), maxPlatform: the command line takes each text once",
                     "row 8 (line 12), appDesc: the command line has a meaning of its own",
                     "row 9 (line 13): it has 2 cells, the header has 6"):
            self.assertIn(text, found)

    def test_order(self):
        """A row may not read what another one, or itself, makes."""
        write(b"", self.folder, "in", "a.wex")
        table = ("command,in,out\nSetInfo,in/a.wex,out/a.wex\nSetInfo,out/../out/a.wex,out/b.wex\n"
                 "SetInfo,in/a.wex,in/a.wex\n")
        found = "\n".join(self.faults(table))
        self.assertIn("a.wex is what row 1 makes", found)
        self.assertIn("a.wex is an output of this row", found)

    def test_forms(self):
        """The same job in every form that a table can have."""
        path = write(b"app", self.folder, "in", 'a, "b".wex')
        cell = '"in/a, ""b"".wex"'
        forms = {
            "t.csv": f"\ufeffcommand,in,out,appDesc\r\n# note\r\nSetInfo,{cell},out/o.wex,\"x\ny\"\r\n",
            "s.csv": f"command;in;out\nsetinfo;{cell};out/o.wex",
            "t.tsv": f"command\tin\tout\nSetInfo\t{cell}\tout/o.wex\n",
            "t.jsonl": '#default command=SetInfo\n\n{"in": "in/a, \\"b\\".wex", "out": "out/o.wex",'
                       '"minPlatform": 9.5, "appDesc": null}\n',
            "plain": f'{{"command":"SETINFO","in":{json.dumps(path)},"out":"out/\\u006f.wex"}}',
        }
        for name, text in forms.items():
            with self.subTest(name):
                remove(self.path("out", "o.wex"))
                result = self.batch("run", self.table(text, name), program=self.program)
                self.assertEqual(result.returncode, 0, result.stderr)
                self.assertEqual(read(self.folder, "out", "o.wex"), b"appapp")

    def test_no_tables(self):
        cases = {"a.csv": "", "b.csv": 'in\n"open', "c.csv": "in\n\0", "d.csv": 'in\n"a"b\n'}
        for name, text in cases.items():
            with self.subTest(name):
                self.assertIn(name, self.faults(text, name, status=2))
        for text in ("{", '{"in": []}', '{"in": "a", "in": "b"}', '{"in": "\\ud800"}', "[]",
                     '{"in": 1e}', '{"in": "a"} x', '{"in": "a\\', '{"in": ' + "[" * 100_000,
                     '{"in": {"out": 1}}', "7", '"in"'):
            with self.subTest(text):
                self.assertTrue(self.faults(text, "t.jsonl")[0].startswith("row 1 (line 1): "))
        result = self.batch("run", write(b"\xff", self.folder, "e.csv"))
        self.assertEqual(result.returncode, 2)

    def test_hostile_names(self):
        name = HOSTILE.replace("/", "")
        write(b"bad:", self.folder, "in", name)
        row = json.dumps({"command": "SetInfo", "name": HOSTILE + "\n[1/1] done",
                          "in": f"in/{name}", "out": f"out/{name}.wex"})
        result = self.batch("run", self.table(row, "t.jsonl"), "--report", self.path("report"),
                            program=self.program)
        self.assertEqual(len(rows_of(result.stdout)), 1)
        for text in (result.stdout, read(self.folder, "report", "index.html").decode()):
            self.assertNotIn("\x7f", text)
            self.assertNotIn("\u202e", text)
        self.assertNotIn("<script", read(self.folder, "report", "index.html").decode())

    def test_usage(self):
        for words in ([], ["walk"], ["run"], ["run", "a", "b"], ["run", "a", "--jobs", "0"],
                      ["run", "a", "--timeout", "0"],
                      ["run", "a", "--index", "x"], ["run", "a", "--jobs", "1", "--jobs", "2"],
                      ["run", "a", "--cert", "x"], ["run", "a", "--engine", "own"], ["check"],
                      ["run", "a", "--index", "1", "--jobs", "2"], ["run", "a", "--hosts", "h"],
                      ["renew", "a", "--cert", "x"], ["run", "a", "--resume=yes"],
                      ["run", "a", "--state"]):
            with self.subTest(words):
                result = self.batch(*words)
                self.assertEqual((result.returncode, result.stdout), (2, ""))
                self.assertIn("usage: Batch", result.stderr)
        for words in (["run", self.make_jobs(["a"]), "--resume"], ["run", self.path("gone.csv")]):
            self.assertEqual(self.batch(*words).returncode, 2)


class Credentials(BatchTest):
    """With the real toolkit, and apps that are small."""

    def app(self, name, identifier):
        with small_app(info={"CFBundleIdentifier": identifier}) as (folder, _):
            return pack(folder, self.path(name))

    def test_what_does_not_fit(self):
        self.app("a.ipa", "com.example.a")
        write(b"text", self.folder, "text.ipa")
        write(b"text", self.folder, "text.mobileprovision")
        profile(self.path("old.mobileprovision"), ExpirationDate=datetime(2020, 1, 1))
        profile(self.path("other.mobileprovision"), {"application-identifier": f"{TEAM}.com.other"})
        os.mkfifo(self.path("pipe.mobileprovision"))
        sound = {"command": "Wrap", "in": "a.ipa", "Cert": ADMIN, "Profile": self.profile}
        cases = [
            ({}, None), ({"in": "text.ipa"}, "in: "),
            ({"Profile": "text.mobileprovision"}, "Profile: it is no profile"),
            ({"Profile": "pipe.mobileprovision"}, "Profile: "),
            ({"Profile": "old.mobileprovision"}, "Profile: it ended on 2020-01-01"),
            ({"Profile": "other.mobileprovision"},
             f"Profile: it is for {TEAM}.com.other, not for com.example.a"),
            ({"Profile": "other.mobileprovision", "bundleID": "com.other"}, None),
            ({"Cert": BRANCH}, f'Cert: the profile lists no certificate "{BRANCH}"'),
            ({"Cert": "0" * 40}, "Cert: the profile lists no certificate"),
        ]
        rows = [json.dumps(sound | {"out": f"{index}.wex"} | change)
                for index, (change, _) in enumerate(cases)]
        for verb in ("run", "check"):
            result = self.batch(verb, self.table("\n".join([*rows, "{"]), "faults.jsonl"))
            self.assertEqual(result.returncode, 1)
            self.assertRegex(result.stderr.splitlines()[-1],
                             "^Batch: [0-9]+ faults; 2 of 10 rows are sound; nothing was run$")
            for row, (change, fault) in enumerate(cases, 1):
                with self.subTest(change, verb=verb):
                    start = f"row {row} (line {row}), "
                    found = [line[len(start):] for line in result.stderr.splitlines()
                             if line.startswith(start)]
                    self.assertEqual(bool(found), fault is not None, found)
                    self.assertTrue(fault is None or any(line.startswith(fault) for line in found),
                                    found)
        self.assertFalse(os.path.exists(self.path("0.wex")))

        sound_rows = [row for row, (_, fault) in zip(rows, cases) if fault is None]
        result = self.batch("check", self.table("\n".join(sound_rows), "sound.jsonl"))
        self.assertEqual((result.returncode, result.stdout), (0, "no fault in 2 rows\n"))
        self.assertFalse(os.path.exists(self.path("sound.jsonl.state")))
        # A wrapped app looks sound from outside: only the thorough check, and the run, see it.
        self.batch("run", self.path("sound.jsonl"))
        unzip(self.path("0.wex"), self.path("wrapped"))
        row = json.dumps(sound | {"in": "wrapped/a.ipa", "out": "again.wex"})
        self.assertIn("loads the management library",
                      self.batch("check", self.table(row, "again.jsonl")).stderr)
        result = self.batch("run", self.path("again.jsonl"))
        self.assertEqual(result.returncode, 1)
        self.assertIn("already wrapped, and cannot be re-wrapped.", result.stdout)

    def test_renewal(self):
        soon = profile(self.path("soon.mobileprovision"),
                       ExpirationDate=datetime.now() + timedelta(days=9))
        for folder in ("apps/team", "profiles"):
            os.makedirs(self.path(folder))
        lasting = {name: profile(self.path("profiles", f"{name}.mobileprovision"),
                                 {"application-identifier": f"{TEAM}.{app}"}, **values)
                   for name, app, values in (
                       ("exact", "com.example.a", {}), ("wild", "com.example.*", {}),
                       # Its apps would install elsewhere than those of a store's profile.
                       ("house", "com.example.b", {"ProvisionsAllDevices": True}))}
        shutil.copy(soon, self.path("profiles"))
        for name, identifier, wanted in (("team/a", "com.example.a", soon),
                                         ("b", "com.example.b", soon),
                                         ("c", "net.example.c", soon),
                                         ("fresh", "com.example.a", self.profile)):
            result = self.wrap(self.app("small.ipa", identifier), self.path("apps", name + ".wex"),
                               profile=wanted)
            self.assertEqual(result.returncode, 0, result.stderr)
        write(b"text", self.folder, "apps", "broken.wex")
        words = ["renew", self.path("apps"), "--cert", ADMIN, "--profiles", self.path("profiles"),
                 "--out", self.path("apps/new")]

        result = self.batch(*words)
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertIn(f"  net.example.c  {self.path('apps', 'c.wex')}\n", result.stdout)
        self.assertIn("broken.wex: it cannot be read", result.stdout)
        self.assertIn("2 to be signed anew, 1 need not be, 1 without a profile", result.stdout)
        table = self.path("apps", "new", "renew.csv")
        chosen = {line.split(",")[0]: line.split(",")[3]
                  for line in read(table).decode().splitlines() if line.startswith("com.")}
        self.assertEqual(chosen, {"com.example.a": lasting["exact"], "com.example.b": lasting["wild"]})
        self.assertEqual(os.listdir(self.path("apps", "new", "team")), [])

        result = self.batch(*words, "--yes")
        self.assertEqual(result.returncode, 1)
        self.assertIn("2 done, 0 failed, 0 left of 2", result.stdout)
        for name, wanted in (("team/a.wex", "exact"), ("b.wex", "wild")):
            app = unpacked_app(self.path("apps", "new", name), self.path("signed " + name))
            self.assertEqual(read(app, "embedded.mobileprovision"), read(lasting[wanted]))
        result = self.batch(*words, "--within", "8")
        self.assertIn("0 to be signed anew, 4 need not be", result.stdout)


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
