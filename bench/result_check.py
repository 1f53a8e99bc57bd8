#!/usr/bin/env python3
"""Measures what the setting verifyResult costs: result_check.py BUILD-FOLDER [--sizes MB,...]
[--rounds N]

Each round wraps the same app with the setting and without it in turn, in a folder in memory
(/dev/shm). Printed are the medians of the ratios, of wall time and of the processor time of all
processes, taken round by round.
"""
import argparse
import os
import resource
import statistics
import subprocess
import tempfile
import time

from make_app import shape
from wrap import wrap_command


def seconds(command, environment):
    before, start = resource.getrusage(resource.RUSAGE_CHILDREN), time.monotonic()
    subprocess.run(command, env=environment, check=True, capture_output=True)
    wall, after = time.monotonic() - start, resource.getrusage(resource.RUSAGE_CHILDREN)
    return wall, after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", type=os.path.abspath)
    parser.add_argument("--sizes", default="5,100")
    parser.add_argument("--rounds", type=int, default=7)
    arguments = parser.parse_args()
    maker = os.path.join(os.path.dirname(os.path.abspath(__file__)), "make_app.py")
    with tempfile.TemporaryDirectory(dir="/dev/shm") as folder:
        confs = []
        for value in ("no", "yes"):
            confs.append(os.path.join(folder, value))
            with open(confs[-1], "w", encoding="ascii") as conf:
                conf.write(f"modernImages = yes\nstrictHeaderRoom = yes\nverifyResult = {value}\n")
        for size in map(int, arguments.sizes.split(",")):
            app = os.path.join(folder, f"{size}.ipa")
            subprocess.run([maker, os.path.join(arguments.build, "demo", "Fieldbook.ipa"), app,
                            *shape(size)], check=True)
            command, environment = wrap_command(arguments.build, app, os.path.join(folder, "o.wex"))
            command += ["-logFile", os.path.join(folder, "log")]
            environment["TMPDIR"] = folder
            rounds = [[seconds(command, environment | {"TOVREK_CONF": conf}) for conf in confs]
                      for _ in range(arguments.rounds)]
            wall, processor = (statistics.median(yes[i] / no[i] for no, yes in rounds)
                               for i in range(2))
            print(f"{size} MB: wall {wall:.3f} of {statistics.median(no[0] for no, _ in rounds):.2f}"
                  f" s, processor {processor:.3f} of "
                  f"{statistics.median(no[1] for no, _ in rounds):.2f} s")


if __name__ == "__main__":
    main()
