#!/usr/bin/env python3
"""Measures Batch: batch.py BUILD-FOLDER [--small N] [--large N] [--at-a-time N,...] [--rounds N]

Wraps small apps (the demo app) and large ones (of 100 MB, see make_app.py) from one table: by a
shell loop over Wrap, by Batch with some numbers of jobs at a time and with its own choice, and by
GNU parallel where it is installed, in turn, so that all meet the same machine. Printed are medians
of apps a second, and what they are of the loop's. Everything lies in memory (/dev/shm).
"""
import argparse
import os
import shlex
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

from wrap import generated, wrap_command

SMALL, LARGE = "small", "large"


class Apps:
    """Some apps of one kind, with a table that wraps them all."""

    def __init__(self, build, kind, count, folder):
        self.build, self.kind, self.count = build, kind, count
        self.folder = os.path.join(folder, kind)
        os.makedirs(os.path.join(self.folder, "out"))
        demo = os.path.join(build, "demo", "Fieldbook.ipa")
        source = demo if kind == SMALL else generated(build, 100, self.folder)
        self.inputs = [os.path.join(self.folder, f"{index}.ipa") for index in range(count)]
        for path in self.inputs:
            # All from one file, which takes room once.
            (shutil.copy if kind == SMALL else os.link)(source, path)
        command, self.environment = wrap_command(build, "IN", "OUT")
        names = {"-Cert": "Cert", "-Profile": "Profile", "-keychainPath": "keychainPath"}
        values = {names[word]: command[index + 1] for index, word in enumerate(command)
                  if word in names}
        self.table = os.path.join(self.folder, "jobs.csv")
        with open(self.table, "w", encoding="utf-8") as table:
            for name, value in (values | {"command": "Wrap", "pell": "yes"}).items():
                table.write(f"#default {name}={value}\n")
            table.write("in,out\n")
            table.writelines(f"{index}.ipa,out/{index}.wex\n" for index in range(count))

    def output(self, index):
        return os.path.join(self.folder, "out", f"{index}.wex")

    def loop(self):
        lines = [shlex.join([*wrap_command(self.build, path, self.output(index))[0], "-logFile",
                             os.path.join(self.folder, f"{index}.log")])
                 for index, path in enumerate(self.inputs)]
        return ["/bin/sh", "-e", "-c", "\n".join(lines)]

    def batch(self, *words):
        return [os.path.join(self.build, "tovrek", "Batch"), "run", self.table, *words]

    def rate(self, command):
        """Apps a second; all of them have to be there."""
        shutil.rmtree(self.table + ".state", ignore_errors=True)
        for index in range(self.count):
            if os.path.exists(self.output(index)):
                os.remove(self.output(index))
        start = time.monotonic()
        result = subprocess.run(command, env=self.environment, capture_output=True, check=False)
        seconds = time.monotonic() - start
        made = sum(os.path.exists(self.output(index)) for index in range(self.count))
        if result.returncode != 0 or made != self.count:
            raise SystemExit(f"{command[:3]} made {made} of {self.count}: {result.stdout[-1000:]}"
                             f"{result.stderr[-1000:]}")
        return self.count / seconds


def commands(apps, numbers):
    ways = {"a shell loop": apps.loop()}
    ways |= {f"local, {number}": apps.batch("--jobs", number) for number in numbers}
    ways["local, own choice"] = apps.batch()
    if shutil.which("parallel"):
        ways |= {f"parallel, {number}": apps.batch("--engine", "parallel", "--jobs", number)
                 for number in numbers}
    return ways


def main():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n\n")[2])
    parser.add_argument("build")
    parser.add_argument("--small", type=int, default=200)
    parser.add_argument("--large", type=int, default=8)
    parser.add_argument("--at-a-time", default="1,2,3,4")
    parser.add_argument("--rounds", type=int, default=3)
    options = parser.parse_args()
    shared = "/dev/shm" if os.path.isdir("/dev/shm") else None
    print("| apps | way | apps a second | of the loop |\n|---|---|---|---|")
    with tempfile.TemporaryDirectory(dir=shared) as folder:
        os.environ["TMPDIR"] = folder
        for kind, count in ((SMALL, options.small), (LARGE, options.large)):
            if count == 0:
                continue
            apps = Apps(os.path.abspath(options.build), kind, count, folder)
            ways = commands(apps, options.at_a_time.split(","))
            rates = {way: [] for way in ways}
            for _ in range(options.rounds):
                for way, command in ways.items():
                    rates[way].append(apps.rate(command))
            for way, found in rates.items():
                ratio = statistics.median(
                    mine / loop for mine, loop in zip(found, rates["a shell loop"]))
                print(f"| {count} {kind} | {way} | {statistics.median(found):.2f} | {ratio:.2f} |",
                      flush=True)


if __name__ == "__main__":
    sys.exit(main())
