#!/usr/bin/env python3
"""Makes an app of a chosen size to measure with: make_app.py DEMO.ipa OUTPUT.ipa [MEGABYTES FILES]

The demo app is taken as the core (its executable, frameworks and Info.plist) and filled up with a
mix like that of real apps: text that packs well, images that hardly do, random data that does not,
in folders, localisations and frameworks. The same arguments always give the same files.
"""
import os
import random
import shutil
import subprocess
import sys
import tempfile
import zlib

WORDS = ("field book page margin entry note place date weather soil sample north ridge river "
         "measure depth colour layer root stone clay sand").split()
LANGUAGES = ["de", "en", "es", "fr", "it", "ja", "nl", "pt"]


def corpus(seed, line):
    """Four megabytes of lines, from which files are cut: far more than packing looks back."""
    generator = random.Random(seed)
    lines, length = [], 0
    while length < 4_000_000:
        lines.append(line(generator, len(lines)))
        length += len(lines[-1]) + 1
    return ("\n".join(lines) + "\n").encode()


TEXT = corpus(1, lambda generator, _: " ".join(
    generator.choices(WORDS, k=generator.randint(4, 12))))
STRINGS = corpus(2, lambda generator, index: (
    f'"key.{index}" = "{" ".join(generator.choices(WORDS, k=5))}";'))


def cut(source, generator, size):
    at = generator.randrange(len(source))
    piece = source[at:at + size]
    while len(piece) < size:
        piece += source[:size - len(piece)]
    return piece


def text(generator, size):
    return cut(TEXT, generator, size)


def strings(generator, size):
    return cut(STRINGS, generator, size)


def image(generator, size):
    """A PNG's bytes as far as packing is concerned: a header and an already packed body."""
    return b"\x89PNG\r\n\x1a\n" + zlib.compress(generator.randbytes(size), 1)[:size - 8]


def noise(generator, size):
    return generator.randbytes(size)


# (share of the files, share of the bytes, folder pattern, name pattern, content)
KINDS = [
    (0.30, 0.10, "{language}.lproj", "Table{index}.strings", strings),
    (0.45, 0.45, "Images/{group}", "picture{index}@2x.png", image),
    (0.15, 0.20, "Documents/{group}", "text{index}.html", text),
    (0.10, 0.25, "Media", "clip{index}.dat", noise),
]


def fill(app, megabytes, files):
    generator = random.Random(20)
    for share, weight, folder, name, content in KINDS:
        count = max(int(files * share), 1)
        mean = megabytes * 1_000_000 * weight / count
        for index in range(count):
            place = folder.format(language=LANGUAGES[index % len(LANGUAGES)], group=index % 40)
            os.makedirs(os.path.join(app, place), exist_ok=True)
            size = max(int(mean * generator.uniform(0.2, 1.8)), 64)
            with open(os.path.join(app, place, name.format(index=index)), "wb") as file:
                file.write(content(generator, size))


def copy_frameworks(app):
    """Three frameworks in all, as copies of the one that holds another."""
    frameworks = os.path.join(app, "Frameworks")
    for index in range(2):
        shutil.copytree(os.path.join(frameworks, "Ledger.framework"),
                        os.path.join(frameworks, f"Ledger{index}.framework"), symlinks=True)


def main(demo, output, megabytes="100", files="3000"):
    output = os.path.abspath(output)
    with tempfile.TemporaryDirectory() as scratch:
        subprocess.run(["/usr/bin/unzip", "-q", demo, "-d", scratch], check=True)
        app = os.path.join(scratch, "Payload", "Fieldbook.app")
        copy_frameworks(app)
        fill(app, float(megabytes), int(files))
        if os.path.exists(output):
            os.remove(output)
        # At the default level, like the apps that developers hand out.
        subprocess.run(["/usr/bin/zip", "-qry", output, "Payload"], cwd=scratch, check=True)


if __name__ == "__main__":
    main(*sys.argv[1:])
