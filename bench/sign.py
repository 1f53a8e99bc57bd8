#!/usr/bin/env python3
"""Measures codesign: sign.py BUILD-FOLDER [MEGABYTES]

Signs an executable of MEGABYTES (100) anew, over and over, and hashes the same file with
`openssl dgst -sha256` in turn, so that both meet the same machine. Prints the ratio of the medians,
for one digest (current systems) and for two (systems before iOS 11), then the time to start.
"""
import os
import random
import statistics
import struct
import subprocess
import sys
import tempfile
import time

ROUNDS = 15
PAGE = 0x4000


def segment(name, address, size, offset, file_size, sections=b"", count=0):
    return struct.pack("<II16sQQQQIIII", 0x19, 72 + len(sections), name, address, size, offset,
                       file_size, 5, 5, count, 0) + sections


def executable(path, megabytes, minimum):
    """An arm64 program of random code, by the published layout of Mach-O files."""
    code = megabytes * 1000000 // PAGE * PAGE
    section = struct.pack("<16s16sQQIIIIIIII", b"__text", b"__TEXT", 0x100001000, code - 0x1000,
                          0x1000, 2, 0, 0, 0, 0, 0, 0)
    commands = [
        segment(b"__TEXT", 0x100000000, code, 0, code, section, 1),
        segment(b"__LINKEDIT", 0x100000000 + code, PAGE, code, 0x1000),
        struct.pack("<IIIIII", 0x32, 24, 2, minimum, minimum, 0),  # build version of an iOS app
    ]
    head = struct.pack("<IIIIIIII", 0xfeedfacf, 0x100000c, 0, 2, len(commands),
                       sum(map(len, commands)), 0x200085, 0) + b"".join(commands)
    generator = random.Random(1)
    with open(path, "wb") as file:
        file.write(head.ljust(0x1000, b"\0"))
        left = code
        while left > 0:
            piece = generator.randbytes(min(left, 1 << 20))
            file.write(piece)
            left -= len(piece)
    os.truncate(path, code + 0x1000)
    os.chmod(path, 0o755)


def seconds(command):
    start = time.perf_counter()
    run = subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, check=False)
    spent = time.perf_counter() - start
    if run.returncode not in (0, 2):
        raise SystemExit(f"{command[0]} failed: {run.stderr.decode()}")
    return spent


def compare(codesign, megabytes, minimum, what):
    with tempfile.TemporaryDirectory() as scratch:
        program = os.path.join(scratch, "program")
        executable(program, megabytes, minimum)
        sign = [codesign, "-f", "-s", "-", program]
        digest = ["openssl", "dgst", "-sha256", program]
        seconds(sign), seconds(digest)
        times = [(seconds(sign), seconds(digest)) for _ in range(ROUNDS)]
    signing, hashing = (statistics.median(column) for column in zip(*times))
    print(f"{what}: sign {signing * 1e3:.0f} ms, openssl dgst -sha256 {hashing * 1e3:.0f} ms, "
          f"ratio {signing / hashing:.2f}")


def main(build, megabytes="100"):
    codesign = os.path.join(build, "tovrek", "host", "usr", "bin", "codesign")
    compare(codesign, int(megabytes), 0x000d0000, "SHA-256 alone")
    compare(codesign, int(megabytes), 0x00090000, "SHA-1 and SHA-256")
    start = statistics.median(seconds([codesign]) for _ in range(60))
    idle = statistics.median(seconds(["/bin/true"]) for _ in range(60))
    print(f"start-up: {start * 1e3:.1f} ms (/bin/true {idle * 1e3:.1f} ms)")


if __name__ == "__main__":
    main(*sys.argv[1:])
