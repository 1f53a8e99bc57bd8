#!/usr/bin/env python3
"""Measures Inspect on a wrapped app: inspect_app.py BUILD-FOLDER [--sizes MB,...] [--rounds N]

Each round runs `unzip -t` and Inspect in turn on the same signed .ipa, in a folder in memory
(/dev/shm). Printed are the medians of the ratios of wall time and of processor time, taken round by
round, and the peak memory of Inspect. It fails where Inspect left a file or reports an error.
"""
import argparse
import os
import statistics
import subprocess
import tempfile

from make_app import shape
from result_check import seconds
from wrap import wrap_command


def peak_megabytes(command, environment):
    process = subprocess.Popen(command, env=environment, stdout=subprocess.DEVNULL)
    return os.wait4(process.pid, 0)[2].ru_maxrss / 1000


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", type=os.path.abspath)
    parser.add_argument("--sizes", default="5,100,500")
    parser.add_argument("--rounds", type=int, default=7)
    arguments = parser.parse_args()
    maker = os.path.join(os.path.dirname(os.path.abspath(__file__)), "make_app.py")
    with tempfile.TemporaryDirectory(dir="/dev/shm") as folder:
        app, signed = os.path.join(folder, "app.ipa"), os.path.join(folder, "signed.ipa")
        scratch = os.path.join(folder, "scratch")
        os.mkdir(scratch)
        for size in map(int, arguments.sizes.split(",")):
            subprocess.run([maker, os.path.join(arguments.build, "demo", "Fieldbook.ipa"), app,
                            *shape(size)], check=True)
            command, environment = wrap_command(arguments.build, app, os.path.join(folder, "o.wex"))
            environment["TMPDIR"] = scratch
            subprocess.run(command + ["-outBundle", signed, "-logFile",
                                      os.path.join(folder, "log")],
                           env=environment, check=True, capture_output=True)
            command = [os.path.join(arguments.build, "tovrek", "Inspect"), signed]
            rounds = [[seconds(["/usr/bin/unzip", "-tq", signed], environment),
                       seconds(command, environment)] for _ in range(arguments.rounds)]
            wall, processor = (statistics.median(ours[i] / theirs[i] for theirs, ours in rounds)
                               for i in range(2))
            print(f"{size} MB: wall {wall:.2f} of "
                  f"{statistics.median(theirs[0] for theirs, _ in rounds):.2f} s, "
                  f"processor {processor:.2f}, peak {peak_megabytes(command, environment):.0f} MB")
            left = [name for _, _, names in os.walk(scratch) for name in names]
            assert not left, left


if __name__ == "__main__":
    main()
