#!/usr/bin/env python3
"""Measures signing anew and SetInfo: resign.py BUILD-FOLDER [--sizes MB,...] [--rounds N]

Each round wraps an app, signs the same app anew (Sign of the .ipa), signs the package anew with all
nested code (Sign of the .wex, resignNested), changes the package's information and copies it, in turn
and in a folder in memory (/dev/shm). Printed are medians of the seconds, and of the ratios taken round
by round: of Sign to the Wrap, of SetInfo to a copy of its package.
"""
import argparse
import os
import statistics
import subprocess
import tempfile
import time

from wrap import IDENTITY, generated


class Runs:
    def __init__(self, build, folder, app):
        self.build, self.folder = build, folder
        demo = os.path.join(build, "demo")
        self.package = os.path.join(folder, "App.wex")
        nested = os.path.join(folder, "nested.conf")
        with open(nested, "w", encoding="ascii") as conf:
            conf.write("modernImages = yes\nstrictHeaderRoom = yes\nresignNested = yes\n")
        with open(os.path.join(demo, "identities", "root.sha1"), encoding="ascii") as root:
            self.environment = dict(os.environ, XDG_DATA_HOME=os.path.join(folder, "data"),
                                    TMPDIR=folder, TOVREK_TRUSTED_ROOT_SHA1=root.read().strip())
        security = os.path.join(build, "tovrek", "host", "usr", "bin", "security")
        self.seconds([security, "import", os.path.join(demo, "identities", "admin.p12"),
                      "-P", "demo"])
        signer = ["-Cert", IDENTITY, "-Profile", os.path.join(demo, "Example.mobileprovision")]
        tovrek = os.path.join(build, "tovrek", "Tovrek")
        output = os.path.join(folder, "Out")
        log = ["-logFile", os.path.join(folder, "log")]
        self.commands = {
            "Wrap": ([tovrek, "Wrap", *signer, "-in", app, "-out", self.package, *log], {}),
            "Sign, .ipa": ([tovrek, "Sign", *signer, "-in", app, "-out", output + ".ipa", *log], {}),
            "Sign, .wex, all nested": (
                [tovrek, "Sign", *signer, "-in", self.package, "-out", output + ".wex", *log],
                {"TOVREK_CONF": nested}),
            "SetInfo": ([tovrek, "SetInfo", "-in", self.package, "-out", output + ".wex",
                         "-appDesc", "Other words", *log], {}),
            "copy": (["cp", self.package, output + ".copy"], {}),
        }

    def seconds(self, command, more=()):
        start = time.monotonic()
        subprocess.run(command, env=self.environment | dict(more), check=True, cwd=self.folder,
                       stdin=subprocess.DEVNULL, capture_output=True)
        return time.monotonic() - start

    def round(self):
        taken = {}
        for name, (command, more) in self.commands.items():
            taken[name] = self.seconds(command, more)
            if not os.path.isfile(command[command.index("-out") + 1]
                                  if "-out" in command else command[-1]):
                raise SystemExit(f"{name} made nothing")
            for each in os.listdir(self.folder):
                if each.startswith("Out"):
                    os.remove(os.path.join(self.folder, each))
        return taken


def main():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n\n")[2])
    parser.add_argument("build", type=os.path.abspath)
    parser.add_argument("--sizes", default="5,100,500")
    parser.add_argument("--rounds", type=int, default=5)
    options = parser.parse_args()
    print("| app, MB | run | seconds | ratio |\n|---|---|---|---|")
    for size in map(int, options.sizes.split(",")):
        with tempfile.TemporaryDirectory(dir="/dev/shm") as folder:
            runs = Runs(options.build, folder, generated(options.build, size, folder))
            rounds = [runs.round() for _ in range(options.rounds)]
            for name in runs.commands:
                base = "copy" if name == "SetInfo" else "Wrap"
                ratio = statistics.median(each[name] / each[base] for each in rounds)
                print(f"| {size} | {name} | {statistics.median(each[name] for each in rounds):.2f} | "
                      f"{ratio:.2f} |", flush=True)


if __name__ == "__main__":
    main()
