"""Damaged copies of good inputs, the same ones each time."""
import random


def flipped(data, seed, start=0, end=None, count=1):
    """The data with `count` bytes between start and end changed."""
    generator = random.Random(seed)
    damaged = bytearray(data)
    end = min(end or len(data), len(data))
    for _ in range(count):
        damaged[generator.randrange(start, end)] ^= generator.randrange(1, 256)
    return bytes(damaged)


def cut(data, part):
    return data[:int(len(data) * part)]


def images(programs):
    """Damaged Mach-O files by name, from good ones by name."""
    thin, universal = programs["arm64"], programs["universal"]
    library, objects = programs["library"], programs["objects"]
    made = {}
    for seed in range(14):
        # Mostly load commands.
        made[f"thin-{seed}"] = flipped(thin, seed, 0, 1400, 1 + seed % 3)
    for seed in range(6):
        made[f"universal-{seed}"] = flipped(universal, 100 + seed, 0, 48)
    for seed in range(6):
        made[f"armv7-{seed}"] = flipped(programs["armv7"], 200 + seed, 0, 1200)
    for seed in range(4):
        # The signature stands at the end.
        made[f"signature-{seed}"] = flipped(thin, 300 + seed, len(thin) - 9000, len(thin) - 1, 2)
        made[f"library-{seed}"] = flipped(library, 400 + seed, 0, len(library), 8)
        made[f"objects-{seed}"] = flipped(objects, 500 + seed, 0, len(objects), 12)
    for name, part in (("10", 0.02), ("50", 0.5), ("97", 0.97)):
        made[f"cut-{name}"] = cut(thin, part)
        made[f"universal-cut-{name}"] = cut(universal, part)
    made["encrypted"] = encrypted(thin)
    made["no-commands"] = thin[:16] + bytes(4) + thin[20:]
    made["empty"] = b""
    made["magic-only"] = thin[:4]
    made["text"] = b"#!/bin/sh\nexit 0\n"
    return made


def encrypted(image):
    """The image with its encryption command saying that it is."""
    at = 32
    for _ in range(int.from_bytes(image[16:20], "little")):
        command = int.from_bytes(image[at:at + 4], "little")
        if command in (0x21, 0x2C):
            return image[:at + 16] + b"\1" + image[at + 17:]
        at += int.from_bytes(image[at + 4:at + 8], "little")
    return image


def archives(data):
    """Damaged copies of an archive by name."""
    made = {f"cut-{int(part * 100)}": cut(data, part) for part in (0.01, 0.3, 0.7, 0.999)}
    for seed in range(8):
        made[f"flipped-{seed}"] = flipped(data, 600 + seed, 0, len(data), 2)
    for seed in range(6):
        # The directory and the record of its end.
        made[f"directory-{seed}"] = flipped(data, 700 + seed, len(data) - 1200)
    made |= {"empty": b"", "text": b"this is no archive\n", "leading": b"leading bytes" + data,
             "trailing": data + b"trailing bytes"}
    return made


def messages(data):
    """Damaged copies of a signed message, such as a profile."""
    made = {f"flipped-{seed}": flipped(data, 800 + seed, 0, len(data), 3) for seed in range(6)}
    made |= {f"head-{seed}": flipped(data, 900 + seed, 0, 40) for seed in range(4)}
    return made | {"cut": cut(data, 0.6), "empty": b"", "text": b"no profile\n",
                   "trailing": data + b"trailing"}
