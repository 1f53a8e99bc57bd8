#!/usr/bin/env python3
"""Start-up times of the companions, in turn with /bin/true: bench/starts.py [BUILT-FOLDER]

Prints the median of a hundred starts of each, and what it is beyond that of /bin/true."""
import os
import statistics
import subprocess
import sys
import tempfile
import time

ROUNDS = 100
QUESTIONS = {
    "codesign": ["--help"],
    "lipo": ["--help"],
    "nm": ["--help"],
    "openssl": ["x509", "-inform", "der", "-in", "c.der", "-subject", "-noout"],
    "otool": ["--help"],
    "pkgutil": ["--pkgs"],
    "security": ["find-identity", "-v"],
    "xcode-select": ["-p"],
    "xcrun": ["--find", "codesign"],
}


def seconds(command, environment):
    start = time.perf_counter()
    subprocess.run(command, env=environment, cwd=environment["HOME"], stdin=subprocess.DEVNULL,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
    return time.perf_counter() - start


def main():
    built = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else "build/release/tovrek")
    folder = os.path.join(built, "host/usr/bin")
    commands = {"true": ["/bin/true"], "host's openssl": ["/usr/bin/openssl", *QUESTIONS["openssl"]]}
    for name, words in QUESTIONS.items():
        path = os.path.join(folder, name)
        if os.path.exists(path):
            commands[name] = [path, *words]
    taken = {name: [] for name in commands}
    with tempfile.TemporaryDirectory() as home:
        environment = {**os.environ, "HOME": home, "XDG_DATA_HOME": home}
        subprocess.run(["/usr/bin/openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes",
                        "-keyout", "/dev/null", "-outform", "der", "-out", "c.der", "-subj",
                        "/CN=Start"], cwd=home, stderr=subprocess.DEVNULL, check=True)
        for _ in range(ROUNDS):
            for name, command in commands.items():
                taken[name].append(seconds(command, environment))
    base = statistics.median(taken["true"])
    for name, times in taken.items():
        median = statistics.median(times)
        print(f"{name:16}{median * 1e3:7.2f} ms   +{(median - base) * 1e3:.2f} ms")


if __name__ == "__main__":
    main()
