#!/usr/bin/env python3
"""Measures Wrap against the stock road: wrap.py BUILD-FOLDER [--sizes MB,...] [--rounds N]
[--peer COMMAND] [--stages] [APP.ipa...]

Each round runs Wrap, the stock road and the peer in turn on the same app, all in a folder in memory
(/dev/shm). Printed are medians of the seconds, medians of the ratios taken round by round, the peak
of anonymous memory and the size of the package against that of the same files packed by `zip`.

The stock road is what a script without this toolkit pays for files alone: `unzip`, `zip` to an
.ipa, `zip` of that into a package, `sha1sum` and `sha256sum` over all files, and no signature. A
peer is any other program that signs an app anew; in its command {in} and {out} stand for the files.

Without an app the demo app is filled up to each size (see make_app.py); a quarter of it is code.
"""
import argparse
import os
import shlex
import statistics
import subprocess
import sys
import tempfile
import threading
import time

from make_app import shape

IDENTITY = "iPhone Distribution: Example Corporation (EXAMPLE123)"
STOCK_ROAD = """set -e; PATH=/usr/bin:/bin; mkdir "$2"; cd "$2"
unzip -q -d app "$1"; mkdir package; (cd app; zip -qry ../package/app.ipa .)
(cd package; zip -qr ../stock.wex .)
find app -type f -exec sha1sum {} + >sha1; find app -type f -exec sha256sum {} + >sha256"""


def wrap_command(build, app, output):
    demo = os.path.join(build, "demo")
    with open(os.path.join(demo, "identities", "root.sha1"), encoding="ascii") as root:
        environment = dict(os.environ, TOVREK_TRUSTED_ROOT_SHA1=root.read().strip())
    return [os.path.join(build, "tovrek", "Tovrek"), "Wrap", "-Cert", IDENTITY,
            "-Profile", os.path.join(demo, "Example.mobileprovision"),
            "-in", app, "-out", output, "-pell",
            "-keychainPath", os.path.join(demo, "identities", "admin.keychain.pem")], environment


def anonymous_kilobytes(session):
    """The anonymous memory of all processes of a session, and of the largest of them."""
    sizes = [0]
    for name in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{name}/stat", encoding="utf-8", errors="replace") as stat:
                if int(stat.read().rpartition(")")[2].split()[3]) != session:
                    continue
            with open(f"/proc/{name}/status", encoding="utf-8", errors="replace") as status:
                sizes += [int(line.split()[1]) for line in status if line.startswith("RssAnon")]
        except (FileNotFoundError, ProcessLookupError):
            pass  # ended meanwhile
    return sum(sizes)


class Peak(threading.Thread):
    """Watches a session's memory. It costs time, so runs with it are not timed."""

    def __init__(self, session):
        super().__init__(daemon=True)
        self.session, self.kilobytes, self.ended = session, 0, threading.Event()
        self.start()

    def run(self):
        while not self.ended.wait(0.002):
            self.kilobytes = max(self.kilobytes, anonymous_kilobytes(self.session))


def seconds_of(command, environment=None):
    start = time.monotonic()
    run = subprocess.run(command, env=environment, check=False, stdout=subprocess.DEVNULL,
                         stderr=subprocess.PIPE, text=True)
    if run.returncode != 0:
        raise SystemExit(f"{command} failed with {run.returncode}:\n{run.stderr[-2000:]}")
    return time.monotonic() - start


def peak_megabytes(command, environment=None):
    run = subprocess.Popen(command, env=environment, start_new_session=True,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    peak = Peak(run.pid)
    run.wait()
    peak.ended.set()
    peak.join()
    return peak.kilobytes / 1000


def stages_of(command, environment=None):
    """(name, seconds) of each stage, from the times at which the stage banners arrive."""
    banners = [("Starting", time.monotonic())]
    run = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                           env=environment)
    pending = b""
    while chunk := os.read(run.stdout.fileno(), 65536):
        now = time.monotonic()
        *lines, pending = (pending + chunk).split(b"\n")
        # A banner is a text that ends in dots, with a line of hyphens below.
        banners += [(line.decode().rstrip("."), now) for line in lines if line.endswith(b"...")]
    run.wait()
    ends = [at for _, at in banners[1:]] + [time.monotonic()]
    return [(name, end - at) for (name, at), end in zip(banners, ends)]


def packed_by_zip(package, scratch):
    """The size of a package with the same files, packed at zip's default level."""
    script = """set -e; PATH=/usr/bin:/bin; mkdir "$2"; cd "$2"; unzip -q -d outer "$1"
        set -- outer/*.ipa; mkdir inner; unzip -q -d inner "$1"; rm "$1"
        (cd inner; zip -qry "../$1" .); cd outer; zip -qry ../again.wex ."""
    folder = os.path.join(scratch, "again")
    subprocess.run(["sh", "-c", script, "sh", package, folder], check=True)
    return os.path.getsize(os.path.join(folder, "again.wex"))


class Comparison:
    """All runs on one app."""

    def __init__(self, build, app, scratch, peer):
        self.app, self.scratch, self.peer = app, scratch, peer
        self.package = os.path.join(scratch, "out.wex")
        self.wrap, self.environment = wrap_command(build, app, self.package)

    def timed(self, command, environment=None):
        seconds = seconds_of(command, environment)
        subprocess.run(["rm", "-rf", self.package, os.path.join(self.scratch, "stock"),
                        os.path.join(self.scratch, "peer.ipa")], check=True)
        return seconds

    def rounds(self, count):
        """A list of (Wrap, stock road, peer or None) in seconds."""
        stock = ["sh", "-c", STOCK_ROAD, "sh", self.app, os.path.join(self.scratch, "stock")]
        peer = [part.replace("{in}", self.app)
                .replace("{out}", os.path.join(self.scratch, "peer.ipa"))
                for part in shlex.split(self.peer or "")]
        return [(self.timed(self.wrap, self.environment), self.timed(stock),
                 self.timed(peer) if peer else None) for _ in range(count)]

    def row(self, count):
        results = self.rounds(count)
        median = lambda values: statistics.median(values)
        cells = [f"{os.path.getsize(self.app) / 1e6:.1f}",
                 f"{median(r[0] for r in results):.2f}", f"{median(r[1] for r in results):.2f}",
                 f"{median(r[0] / r[1] for r in results):.3f}"]
        if self.peer:
            cells += [f"{median(r[2] for r in results):.2f}",
                      f"{median(r[0] / r[2] for r in results):.3f}"]
        cells.append(f"{peak_megabytes(self.wrap, self.environment):.0f}")
        size = os.path.getsize(self.package)
        cells.append(f"{size / packed_by_zip(self.package, self.scratch):.3f}")
        return cells


def print_stages(comparison):
    stages = stages_of(comparison.wrap, comparison.environment)
    total = sum(seconds for _, seconds in stages)
    for name, seconds in stages:
        print(f"  {seconds:8.3f} s {100 * seconds / total:5.1f} %  {name}")


def generated(build, megabytes, scratch):
    app = os.path.join(scratch, f"Generated{megabytes}.ipa")
    generator = os.path.join(os.path.dirname(os.path.abspath(__file__)), "make_app.py")
    subprocess.run([sys.executable, generator, os.path.join(build, "demo", "Fieldbook.ipa"), app,
                    *shape(megabytes)], check=True)
    return app


def main():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n\n")[2])
    parser.add_argument("build")
    parser.add_argument("apps", nargs="*")
    parser.add_argument("--sizes", default="5,100,500")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--peer", help="command of another signing program, with {in} and {out}")
    parser.add_argument("--stages", action="store_true", help="print the stages of one run too")
    options = parser.parse_args()
    build = os.path.abspath(options.build)
    shared = "/dev/shm" if os.path.isdir("/dev/shm") else None

    titles = ["app, MB", "Wrap, s", "stock road, s", "ratio"]
    titles += ["peer, s", "ratio"] if options.peer else []
    titles += ["peak anonymous memory, MB", "size against zip's"]
    print("| " + " | ".join(titles) + " |\n|" + "---|" * len(titles))
    apps = [os.path.abspath(app) for app in options.apps]
    for source in apps or [int(size) for size in options.sizes.split(",")]:
        with tempfile.TemporaryDirectory(dir=shared) as scratch:
            os.environ["TMPDIR"] = scratch
            app = source if isinstance(source, str) else generated(build, source, scratch)
            comparison = Comparison(build, app, scratch, options.peer)
            print("| " + " | ".join(comparison.row(options.rounds)) + " |", flush=True)
            if options.stages:
                os.remove(comparison.package)
                print_stages(comparison)


if __name__ == "__main__":
    main()
