"""The supervisor on small programs: that it counts, hits the chosen call, and sees crashes."""
import os
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

SUPERVISOR = os.environ["TOVREK_FAULT_SUPERVISOR"]
SUBJECT = os.environ["TOVREK_FAULT_SUBJECT"]


class Supervisor(unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())

    def supervise(self, options, *command, **keywords):
        report = os.path.join(self.folder, "report")
        result = subprocess.run([SUPERVISOR, "--report", report, *options, "--", *command],
                                capture_output=True, text=True, check=False, cwd=self.folder,
                                stdin=subprocess.DEVNULL, timeout=60, **keywords)
        with open(report, encoding="utf-8") as file:
            return result, file.read().splitlines()

    def shell(self, options, script):
        return self.supervise(options, "/bin/sh", "-c", script)

    def test_every_write_of_a_static_program_its_threads_and_its_children_can_fail(self):
        writers = ["main", "thread", "child"] * 3
        result, report = self.supervise(["--calls", "write"], SUBJECT)
        self.assertEqual((result.stdout.split(), result.stderr), (writers, ""))
        self.assertEqual(report, ["count write 9", "ended exit 0"])
        for number, writer in enumerate(writers, 1):
            result, report = self.supervise(["--calls", "write", "--hit", str(number)], SUBJECT)
            rest = writers[:number - 1] + writers[number:]
            self.assertEqual(result.stdout.split(), rest)
            self.assertEqual(result.stderr, f"{writer} {(number + 2) // 3} errno 28\n")
            self.assertEqual(report[0], "count write 10")
            self.assertEqual(report[1], "hit write write")
            self.assertIn(f"program {os.path.realpath(SUBJECT)}", report)

    def test_the_call_that_fails_is_told_with_its_path(self):
        path = os.path.join(self.folder, "file")
        cases = [
            ("open", "EACCES", f"cat {path}", "Permission denied"),
            ("read", "EIO", f"cat {path}", "Input/output error"),
            ("mkdir", "ENOSPC", f"mkdir {path}.new", "No space left"),
            ("rename", "EXDEV", f"mv {path} {path}.new", ""),  # copied instead
            ("stat", "EIO", f"ls -l {path}", "Input/output error"),
            ("chmod", "EPERM", f"chmod 600 {path}", "not permitted"),
            ("unlink", "EROFS", f"rm {path}", "Read-only"),
            ("truncate", "ENOSPC", f"truncate -s 1000 {path}", "No space left"),
        ]
        for group, failure, script, text in cases:
            found = []
            for number in range(1, 100):
                with open(path, "w", encoding="utf-8") as file:
                    file.write("text\n")
                result, report = self.shell(
                    ["--calls", group, "--hit", str(number), "--errno", failure], script)
                if f"count {group} {number - 1}" in report:
                    break
                found += [result.stderr for line in report if line.startswith("path " + path)]
                for name in set(os.listdir(self.folder)) - {"report", "file"}:
                    shutil.rmtree(os.path.join(self.folder, name), ignore_errors=True)
            self.assertTrue(found, group)
            self.assertTrue(any(text in said for said in found), (group, found))

    def test_a_close_that_fails_has_closed(self):
        # Each side of the pipe would wait forever for a descriptor that stayed open.
        _, report = self.shell(["--calls", "close"], "echo text | cat | cat")
        for number in range(1, int(report[0].split()[2]) + 1):
            options = ["--calls", "close", "--hit", str(number), "--seconds", "5"]
            _, report = self.shell(options, "echo text | cat | cat")
            self.assertNotIn("ended timeout", report, number)
            self.assertIn("hit close close", report)

    def test_memory_runs_out(self):
        # A static program has little more to ask for than the stacks of its threads.
        _, report = self.supervise(["--calls", "memory"], SUBJECT)
        ends = []
        for number in range(1, int(report[0].split()[2]) + 1):
            ends += self.supervise(["--calls", "memory", "--hit", str(number)], SUBJECT)[1]
        self.assertIn("hit memory mmap", ends)
        self.assertIn("hit memory brk", ends)
        self.assertIn(f"crash 6 {os.path.realpath(SUBJECT)}", ends)

    def test_the_end_of_all_processes(self):
        cases = [
            ([], "kill -SEGV $$", 139, "ended signal 11"),
            ([], "sh -c 'kill -ABRT $$'; exit 3", 3, "ended exit 3"),
            ([], "kill -TERM $$", 143, "ended signal 15"),
            ([], "exit 254", 254, "ended exit 254"),
            (["--seconds", "1"], "sleep 30 & exit 0", 0, "ended timeout"),
            (["--seconds", "1"], "trap '' TERM INT; sleep 30; true", 137, "ended timeout"),
            (["--calls", "fork", "--hit", "2", "--signal", "KILL"],
             "sleep 30 & sleep 30 & wait", 137, "ended signal 9"),
            (["--calls", "fork", "--hit", "2", "--signal", "TERM"],
             "trap 'exit 9' TERM; sleep 0.1; sleep 0.1; sleep 0.1", 9, "ended exit 9"),
        ]
        for options, script, status, end in cases:
            with self.subTest(script=script):
                start = time.monotonic()
                result, report = self.shell(options, script)
                self.assertEqual((result.returncode, report[-1]), (status, end))
                self.assertLess(time.monotonic() - start, 20)
        for script, number in (("kill -SEGV $$", 11), ("sh -c 'kill -ABRT $$'; exit 3", 6)):
            _, report = self.shell([], script)
            crash = [line for line in report if line.startswith("crash ")]
            self.assertEqual(crash, [f"crash {number} {os.path.realpath('/bin/sh')}"])
        _, report = self.shell([], "kill -INT $$")
        self.assertFalse(any(line.startswith("crash") for line in report))

    def test_no_process_outlives_the_supervisor(self):
        report = os.path.join(self.folder, "report")
        process = subprocess.Popen([SUPERVISOR, "--report", report, "--", "/bin/sh", "-c",
                                    "echo $$; sleep 60 & echo $!; wait"], stdout=subprocess.PIPE,
                                   text=True)
        with process:
            children = [int(process.stdout.readline()) for _ in range(2)]
            process.send_signal(signal.SIGKILL)
        for child in children:
            for _ in range(100):
                if not is_running(child):
                    break
                time.sleep(0.05)
            self.assertFalse(is_running(child), child)

    def test_start_without_a_stream_and_with_small_files(self):
        result, _ = self.shell(["--close", "1"], "echo text")
        self.assertNotEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))
        self.shell(["--file-size", "5"], "echo 1234 >some; echo 123456789 >more")
        self.assertEqual(os.path.getsize(os.path.join(self.folder, "some")), 5)
        self.assertEqual(os.path.getsize(os.path.join(self.folder, "more")), 5)

    def test_wrong_orders_are_refused(self):
        program = ["--report", "r", "--", "/bin/true"]
        for words in ([], ["--calls", "nothing", *program], ["--hit", "2", *program],
                      ["--errno", "EODD", *program], ["--hit", "x", "--calls", "open", *program],
                      ["--report", "r", "--"], ["--", "/bin/true"]):
            result = subprocess.run([SUPERVISOR, *words], capture_output=True, check=False,
                                    cwd=self.folder)
            self.assertEqual(result.returncode, 125, words)
            self.assertIn(b"supervisor: ", result.stderr)


def is_running(process):
    try:
        with open(f"/proc/{process}/stat", encoding="utf-8") as file:
            return file.read().rsplit(")", 1)[1].split()[0] not in "ZX"
    except FileNotFoundError:
        return False


if __name__ == "__main__":
    unittest.main()
