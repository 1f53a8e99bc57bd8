#!/usr/bin/env python3
"""Measures Wrap: wrap.py BUILD-FOLDER [APP.ipa...]

Prints wall time, peak memory (of Tovrek or of the largest program it ran, whichever is more) and
the share of each stage, taken from the times at which the stage banners arrive. Without an app it
measures the demo app and a generated one of about 100 MB with 3,000 files.
"""
import os
import subprocess
import sys
import tempfile
import time

IDENTITY = "iPhone Distribution: Example Corporation (EXAMPLE123)"


class Measured:
    """One run of Wrap: its seconds, its peaks in kilobytes and its stages as (name, seconds)."""

    def __init__(self, build, app, output):
        demo = os.path.join(build, "demo")
        command = [os.path.join(build, "tovrek", "Tovrek"), "Wrap", "-Cert", IDENTITY,
                   "-Profile", os.path.join(demo, "Example.mobileprovision"),
                   "-in", app, "-out", output, "-pell",
                   "-keychainPath", os.path.join(demo, "identities", "admin.keychain.pem")]
        with open(os.path.join(demo, "identities", "root.sha1"), encoding="ascii") as root:
            environment = dict(os.environ, TOVREK_TRUSTED_ROOT_SHA1=root.read().strip())
        banners = []
        start = time.monotonic()
        run = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                               env=environment)
        pending = b""
        while chunk := os.read(run.stdout.fileno(), 65536):
            now = time.monotonic()
            *lines, pending = (pending + chunk).split(b"\n")
            # A banner is a text that ends in dots, with a line of hyphens below.
            banners += [(line.decode().rstrip("."), now) for line in lines if line.endswith(b"...")]
        _, status, usage = os.wait4(run.pid, 0)
        end = time.monotonic()
        if status != 0 or not os.path.exists(output):
            raise SystemExit(f"Wrap of {app} failed with wait status {status}")
        self.seconds, self.peak = end - start, usage.ru_maxrss
        stages = [("Starting", start)] + banners
        ends = [at for _, at in banners] + [end]
        self.stages = [(name, after - at) for (name, at), after in zip(stages, ends)]


def report(build, app):
    with tempfile.TemporaryDirectory() as scratch:
        output = os.path.join(scratch, "out.wex")
        measured = Measured(build, app, output)
        print(f"\n{os.path.basename(app)}: {os.path.getsize(app) / 1e6:.1f} MB in, "
              f"{os.path.getsize(output) / 1e6:.1f} MB out")
    print(f"  wall time {measured.seconds:.2f} s, "
          f"peak memory {measured.peak / 1000:.1f} MB (Tovrek or its largest child)")
    for name, spent in measured.stages:
        print(f"  {spent:8.2f} s {100 * spent / measured.seconds:5.1f} %  {name}")


def main(build, *apps):
    build = os.path.abspath(build)
    if apps:
        for app in apps:
            report(build, app)
        return
    demo = os.path.join(build, "demo", "Fieldbook.ipa")
    report(build, demo)
    with tempfile.TemporaryDirectory() as scratch:
        large = os.path.join(scratch, "Large.ipa")
        generator = os.path.join(os.path.dirname(os.path.abspath(__file__)), "make_app.py")
        subprocess.run([sys.executable, generator, demo, large], check=True)
        report(build, large)


if __name__ == "__main__":
    main(*sys.argv[1:])
