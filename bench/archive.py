#!/usr/bin/env python3
"""Measures zip and unzip against the stock programs: archive.py BUILD-FOLDER [MEGABYTES...]

Everything lies in tmpfs. Each round runs our program and the stock one in turn on the same files;
printed are the medians, the median of the ratios within the rounds (of wall time, and of processor
time, which a busy machine disturbs less), the ratio of the archives' sizes and the most anonymous
memory that our program held, looked up while it runs. The steps are those of Wrap: unpack an app,
pack it with a few files changed (with and without the packed forms of the input), and pack the
result once more.
"""
import os
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

ROUNDS = 5


def run(folder, environment, command):
    """Seconds of wall time and of processor time."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.monotonic()
    subprocess.run(command, cwd=folder, env=environment, check=True)
    wall = time.monotonic() - start
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return wall, after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def peak_anonymous(folder, environment, command):
    """Megabytes; a look every half millisecond misses only what is gone by then."""
    program = subprocess.Popen(command, cwd=folder, env=environment)
    peak = 0
    while program.poll() is None:
        try:
            with open(f"/proc/{program.pid}/status", encoding="ascii") as status:
                for line in status:
                    if line.startswith("RssAnon"):
                        peak = max(peak, int(line.split()[1]))
        except (FileNotFoundError, ProcessLookupError):
            pass
        time.sleep(0.0005)
    return peak / 1000


class Step:
    def __init__(self, name, folder, result, ours, stock, environment=None):
        self.name, self.folder, self.result = name, folder, result
        self.commands = ours, stock
        self.environment = dict(os.environ, LC_ALL="C.UTF-8", **(environment or {}))

    def clear(self):
        if os.path.isdir(self.result):
            shutil.rmtree(self.result)
        elif os.path.exists(self.result):
            os.remove(self.result)

    def measure(self):
        times, sizes = ([], []), [0, 0]
        for _ in range(ROUNDS):
            for index, command in enumerate(self.commands):
                self.clear()
                times[index].append(run(self.folder, self.environment, command))
                sizes[index] = os.path.getsize(self.result)
        self.clear()
        memory = peak_anonymous(self.folder, self.environment, self.commands[0])
        ours, stock = (statistics.median(wall for wall, _ in runs) for runs in times)
        ratio = statistics.median(a[0] / b[0] for a, b in zip(*times))
        processor = statistics.median(a[1] / b[1] for a, b in zip(*times))
        size = f"{sizes[0] / sizes[1]:.4f}" if os.path.isfile(self.result) else ""
        print(f"| {self.name} | {ours:.3f} | {stock:.3f} | {ratio:.3f} | {processor:.3f} | {size} | {memory:.0f} |",
              flush=True)
        return ours, stock


def change_some(app):
    """What Wrap changes: the executable, the Info.plist and some new files."""
    for name in ("Fieldbook", "Info.plist"):
        with open(os.path.join(app, name), "ab") as file:
            file.write(b"changed")
    for index in range(20):
        with open(os.path.join(app, f"new{index}"), "wb") as file:
            file.write(b"new " * 5000)


def measure(build, megabytes):
    zip_, unzip = (os.path.join(build, "tovrek", "host", "usr", "bin", name)
                   for name in ("zip", "unzip"))
    with tempfile.TemporaryDirectory(dir="/dev/shm") as scratch:
        app, work = os.path.join(scratch, "app.ipa"), os.path.join(scratch, "work")
        generator = os.path.join(os.path.dirname(os.path.abspath(__file__)), "make_app.py")
        subprocess.run([sys.executable, generator, os.path.join(build, "demo", "Fieldbook.ipa"), app,
                        str(megabytes), str(max(megabytes * 30, 100))], check=True)
        print(f"\n{megabytes} MB, packed {os.path.getsize(app) / 1e6:.1f} MB\n\n"
              "| step | ours, s | stock, s | ratio | processor time | size | anonymous MB |\n"
              "|---|---|---|---|---|---|---|")
        total = [Step("unzip", scratch, work, [unzip, "-q", "-d", work, app],
                      ["/usr/bin/unzip", "-q", "-d", work, app]).measure()]
        change_some(os.path.join(work, "Payload", "Fieldbook.app"))
        out, package = os.path.join(scratch, "out.ipa"), os.path.join(scratch, "out.wex")
        pack = [zip_, "-qry", out, "Payload"], ["/usr/bin/zip", "-qry", out, "Payload"]
        Step("zip, everything anew", work, out, *pack).measure()
        total.append(Step("zip, input known", work, out, *pack,
                          environment={"TOVREK_PACKED_SOURCE": app}).measure())
        total.append(Step("zip of the archive", scratch, package, [zip_, "-q", package, "out.ipa"],
                          ["/usr/bin/zip", "-q", package, "out.ipa"]).measure())
        ours, stock = (sum(times) for times in zip(*total))
        print(f"| together | {ours:.3f} | {stock:.3f} | {ours / stock:.3f} | | | |")


if __name__ == "__main__":
    for size in sys.argv[2:] or ["5", "100", "500"]:
        measure(os.path.abspath(sys.argv[1]), int(size))
