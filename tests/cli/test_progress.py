"""The line that tells how far a long stage is: on a terminal only, and gone when the stage ends."""
import contextlib
import os
import pty
import re
import signal
import socket
import struct
import subprocess
import sys

from harness import COMPANIONS, DEMO_APP, TOOLKIT, WholeProgramTest, read, remove, run, write

REPORT = struct.Struct("=QQ")  # bytes done, bytes in all
LINE = re.compile(r"^(Unpacking|Signing|Packing)  .*MB|^(Unpacking|Signing|Packing)  +\[[#.]+\] +\d+ %")

# In place of unzip: says what it was given, tells of half of its work, of nonsense, and goes on as
# the real one.
REPORTER = f"""#!{sys.executable}
import os, socket, struct, sys, time
opened = sorted(os.listdir("/proc/self/fd"))[:-1]
number = os.environ.get("TOVREK_PROGRESS_FD")
with open(os.environ["SEEN"], "w") as seen:
    print(number, opened, file=seen)
if number:
    reports = socket.fromfd(int(number), socket.AF_UNIX, socket.SOCK_DGRAM)
    reports.send(b"no report")
    reports.send(struct.pack("=QQ", 2**64 - 1, 1))
    reports.send(struct.pack("=QQ", 30_000_000, 60_000_000))
    os.set_inheritable(int(number), True)
    time.sleep(1.2)
os.execv("{COMPANIONS}/unzip", sys.argv)
"""
# A real companion that begins late, so that its stage is a long one.
LATE = """#!/bin/sh
case "$*" in {}) sleep 0.7 ;; esac
exec "{}" "$@"
"""


def screen_of(output):
    """What a terminal shows of this output: its rows."""
    rows, column = [""], 0
    for token in re.findall(r"\x1b\[K|[^\x1b]", output):
        if token == "\r":
            column = 0
        elif token == "\n":
            rows.append("")
            column = 0
        elif token == "\x1b[K":
            rows[-1] = rows[-1][:column]
        else:
            rows[-1] = rows[-1][:column].ljust(column) + token + rows[-1][column + 1:]
            column += 1
    return rows


class Progress(WholeProgramTest):
    def setUp(self):
        programs = self.path("host/usr/bin")
        os.makedirs(programs, exist_ok=True)
        for name in os.listdir(COMPANIONS):
            with contextlib.suppress(FileExistsError):
                os.symlink(os.path.join(COMPANIONS, name), os.path.join(programs, name))
        with contextlib.suppress(FileExistsError):
            os.symlink(os.path.join(TOOLKIT, "host/System"), self.path("host/System"))
        for name, script in (("unzip", REPORTER),
                             ("codesign", LATE.format("*OrvaneDylib.dylib",
                                                      os.path.join(COMPANIONS, "codesign"))),
                             ("zip", LATE.format("*", os.path.join(COMPANIONS, "zip")))):
            os.remove(os.path.join(programs, name))
            os.chmod(write(script.encode(), programs, name), 0o755)
        self.seen = self.path("seen")
        self.variables = {"TOVREK_HOST_ROOT": self.path("host"), "SEEN": self.seen,
                          "TERM": "xterm", "TOVREK_PROGRESS": "1"}

    def at_terminal(self, command, environment=(), kill_at=None):
        """The status, the rows in the end, and all lines of progress that were ever on the screen."""
        controller, terminal = pty.openpty()
        process = subprocess.Popen(command, stdout=terminal, stderr=terminal, cwd=self.folder,
                                   stdin=subprocess.DEVNULL, start_new_session=True,
                                   env=self.environment | self.variables | dict(environment))
        os.close(terminal)
        output, lines = "", []
        with contextlib.suppress(OSError):  # the end, as Linux tells it
            while piece := os.read(controller, 65536).decode(errors="replace"):
                output += piece
                lines += [row for row in screen_of(output)[-1:] if LINE.match(row)]
                if kill_at and lines:
                    process.send_signal(kill_at)
                    kill_at = None
        os.close(controller)
        return process.wait(), screen_of(output), lines

    def test_screen_in_the_middle_and_at_the_end(self):
        command = self.wrap_command(DEMO_APP, self.path("out.wex"))
        status, rows, lines = self.at_terminal(command)
        self.assertEqual(status, 0, rows)
        self.assertEqual(list(dict.fromkeys(line.split()[0] for line in lines)),
                         ["Unpacking", "Signing", "Packing"])
        self.assertRegex(lines[0], r"^Unpacking  \[#{18,20}\.{18,20}\]   50 %  \d+ MB/s  0:0\d left$")
        self.assertEqual(read(self.seen), b"3 ['0', '1', '2', '3']\n")
        # Where nothing can be drawn over, all is as it was: so this is what the line left behind.
        hide = re.compile(r"[0-9A-Fa-f]{8}(?:-[0-9A-Fa-f]{4,12}){4}|0x[0-9a-f]+|\d[\d.:-]{3,}|\[\d+\]")
        for variables in ({"TERM": "dumb"}, {"TOVREK_PROGRESS": "0"}):
            remove(self.path("out.wex"))
            plain_status, plain, plain_lines = self.at_terminal(command, variables)
            self.assertEqual((plain_status, plain_lines), (0, []))
            self.assertEqual([hide.sub("", row) for row in rows],
                             [hide.sub("", row) for row in plain])
            self.assertEqual(read(self.seen), b"None ['0', '1', '2']\n")

    def test_without_a_terminal(self):
        # A variable that the toolkit itself was given is none of the companions' business.
        environment = self.variables | {"TOVREK_PROGRESS_FD": "1"}
        result = self.wrap(DEMO_APP, self.path("out.wex"), environment=environment)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertNotIn("\x1b", result.stdout + result.stderr)
        self.assertNotIn("\r", result.stdout + result.stderr)
        self.assertEqual(read(self.seen), b"None ['0', '1', '2']\n")

    def test_interrupted(self):
        command = self.wrap_command(DEMO_APP, self.path("cut.wex"))
        status, rows, lines = self.at_terminal(command, kill_at=signal.SIGTERM)
        self.assertEqual(status, -signal.SIGTERM)
        self.assertEqual(len(lines), 1)
        self.assertEqual([row for row in rows if LINE.match(row)], [])


class Companions(WholeProgramTest):
    """What the real programs report, and that nobody can hold them up."""

    def commands(self):
        folder = self.path(self.id())
        write(os.urandom(3_000_000), folder, "in", "random")
        write(b"text " * 400_000, folder, "in", "text")
        packed = os.path.join(folder, "packed.zip")
        run("zip", "-qr", packed, "in", cwd=folder)
        app = os.path.join(folder, "Small.app")
        write(b"x" * 2_000_000, app, "data")
        write(b"<plist><dict><key>CFBundleIdentifier</key><string>a.b</string></dict></plist>",
              app, "Info.plist")
        return {"zip": (["-qr", os.path.join(folder, "new.zip"), "in"], 5_000_000),
                "unzip": (["-qo", packed, "-d", os.path.join(folder, "out")], 5_000_000),
                "codesign": (["-f", "-s", "-", app], None)}, folder

    def run_companion(self, name, words, folder, descriptor, number=None):
        keeps = [descriptor] if descriptor is not None else []
        variable = number or str(descriptor)
        result = subprocess.run([os.path.join(COMPANIONS, name), *words], pass_fds=keeps,
                                env=self.environment | {"TOVREK_PROGRESS_FD": variable},
                                cwd=folder, capture_output=True, timeout=60)
        self.assertEqual((result.returncode, result.stdout), (0, b""), result.stderr)

    def test_reports(self):
        commands, folder = self.commands()
        for name, (words, total) in commands.items():
            with self.subTest(name):
                ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_DGRAM)
                with ours, theirs:
                    self.run_companion(name, words, folder, theirs.fileno())
                    ours.setblocking(False)
                    reports = []
                    with contextlib.suppress(BlockingIOError):
                        while True:
                            reports.append(REPORT.unpack(ours.recv(100)))
                done = [report[0] for report in reports]
                self.assertEqual(done, sorted(done))
                self.assertEqual(reports[0], (0, total or 0))
                self.assertEqual({report[1] for report in reports}, {total or 0})
                if total:
                    self.assertEqual(done[-1], total)
                else:
                    self.assertGreaterEqual(done[-1], 2_000_000)

    def test_readers_that_do_not_read(self):
        commands, folder = self.commands()
        for name, (words, _) in commands.items():
            ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_DGRAM)
            with theirs:
                ours.close()
                with self.subTest(name, reader="gone"):
                    self.run_companion(name, words, folder, theirs.fileno())
            ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_DGRAM)
            with ours, theirs, self.subTest(name, reader="full"):
                theirs.setblocking(False)
                with contextlib.suppress(BlockingIOError):
                    while True:
                        theirs.send(b"full")
                theirs.setblocking(True)
                self.run_companion(name, words, folder, theirs.fileno())
            with open(os.path.join(folder, "file"), "wb") as file, self.subTest(name, reader="file"):
                self.run_companion(name, words, folder, file.fileno())
                self.assertEqual(os.path.getsize(file.name), 0)
            for number in ("1", "999", "x", "-1", ""):
                with self.subTest(name, number=number):
                    self.run_companion(name, words, folder, None, number or " ")
