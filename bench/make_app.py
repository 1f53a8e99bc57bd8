#!/usr/bin/env python3
"""Makes an app of a chosen size to measure with: make_app.py DEMO.ipa OUTPUT.ipa [MEGABYTES FILES]
[--executable MB] [--frameworks MB,MB,...]

The demo app is taken as the core (its executable, frameworks and Info.plist) and filled up with a
mix like that of real apps: text that packs well, images that hardly do, random data that does not,
in folders, localisations and frameworks. MEGABYTES are those of all files together. With
--executable the executable is an arm64 program of that size, and --frameworks adds one framework for
each size; their code packs to a third, like a compiler's. Those need clang and ld64.lld. The same
arguments always give the same files.
"""
import argparse
import os
import random
import shutil
import struct
import subprocess
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


def code(size):
    """Bytes of about the entropy of compiled code: phrases of common instructions, and between
    them calls and loads with operands of their own."""
    generator = random.Random(5)
    words = [generator.getrandbits(32) & 0xFFFFFC1F for _ in range(3000)]
    by_rank = [1 / (rank + 2) for rank in range(6000)]
    phrases = [generator.choices(words, by_rank[:3000], k=generator.randint(2, 7))
               for _ in range(6000)]
    out = []
    # A few megabytes are enough: repeated, they still lie further apart than packing looks back.
    while len(out) < 1_000_000:
        for phrase in generator.choices(phrases, by_rank, k=256):
            out += phrase
            kind = generator.random()
            if kind < 0.16:
                out.append(0x94000000 | generator.getrandbits(22))
            elif kind < 0.38:
                out.append(0xF9400000 | generator.getrandbits(7) << 10 |
                           generator.getrandbits(3) << 5 | generator.getrandbits(3))
    piece = struct.pack(f"<{len(out)}I", *out)
    return (piece * (size // len(piece) + 1))[:size]


def program(variable, *names):
    """The program that the environment names, else the first that is there, as for the demo app."""
    found = filter(None, map(shutil.which, names + ("/usr/lib/llvm-14/bin/" + names[0],)))
    return os.environ.get(variable) or next(found)


def link(output, megabytes, *arguments):
    """Links a program or library that is nothing but code, of this size."""
    stubs = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "demo", "stubs")
    with tempfile.TemporaryDirectory() as folder:
        source = os.path.join(folder, "code.s")
        with open(os.path.join(folder, "code.bin"), "wb") as file:
            file.write(code(int(megabytes * 1_000_000)))
        with open(source, "w", encoding="ascii") as file:
            file.write('.section __TEXT,__text\n.p2align 2\n.globl _main\n_main:\nret\n'
                       f'.incbin "{folder}/code.bin"\n')
        subprocess.run([program("CLANG", "clang", "clang-14"), "-target", "arm64-apple-ios12.0", "-c", source,
                        "-o", source + ".o"], check=True)
        subprocess.run([program("LD64_LLD", "ld64.lld", "ld64.lld-14"), "-arch", "arm64",
                        "-platform_version", "ios", "12.0", "12.0", "-headerpad", "0x1000", "-o", output, source + ".o",
                        os.path.join(stubs, "libSystem.tbd"),
                        os.path.join(stubs, "Foundation.tbd"), *arguments], check=True)


def replace_executable(app, megabytes):
    """Gives the app a program of this size; answers the file's size."""
    executable = os.path.join(app, "Fieldbook")
    ledger = os.path.join(app, "Frameworks", "Ledger.framework", "Ledger")
    os.remove(executable)
    link(executable, megabytes, "-e", "_main", "-rpath", "@executable_path/Frameworks", ledger)
    return os.path.getsize(executable)


def add_framework(app, name, megabytes):
    folder = os.path.join(app, "Frameworks", name + ".framework")
    shutil.copytree(os.path.join(app, "Frameworks", "Ledger.framework"), folder,
                    ignore=shutil.ignore_patterns("Frameworks", "_CodeSignature", "Ledger"))
    plist = os.path.join(folder, "Info.plist")
    with open(plist, encoding="utf-8") as file:
        text = file.read()
    with open(plist, "w", encoding="utf-8") as file:
        file.write(text.replace("Ledger", name))
    link(os.path.join(folder, name), megabytes, "-dylib", "-install_name",
         f"@rpath/{name}.framework/{name}")
    return os.path.getsize(os.path.join(folder, name))


def shape(megabytes):
    """The arguments for an app as real ones are: a quarter of it is the program."""
    files, executable, frameworks = {5: (200, 1.2, ""), 100: (3000, 25, ""), 500: (
        10000, 127, "15,20,25")}.get(megabytes, (30 * megabytes, megabytes / 4, ""))
    return [str(megabytes), str(files), "--executable", str(executable), "--frameworks", frameworks]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("demo")
    parser.add_argument("output", type=os.path.abspath)
    parser.add_argument("megabytes", type=float, nargs="?", default=100)
    parser.add_argument("files", type=int, nargs="?", default=3000)
    parser.add_argument("--executable", type=float, default=0)
    parser.add_argument("--frameworks", default="")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as scratch:
        subprocess.run(["/usr/bin/unzip", "-q", options.demo, "-d", scratch], check=True)
        app = os.path.join(scratch, "Payload", "Fieldbook.app")
        copy_frameworks(app)
        program_size = replace_executable(app, options.executable) if options.executable else 0
        for index, size in enumerate(filter(None, options.frameworks.split(","))):
            program_size += add_framework(app, f"Atlas{index}", float(size))
        fill(app, max(options.megabytes - program_size / 1e6, 0), options.files)
        if os.path.exists(options.output):
            os.remove(options.output)
        # At the default level, like the apps that developers hand out.
        subprocess.run(["/usr/bin/zip", "-qry", options.output, "Payload"], cwd=scratch, check=True)


if __name__ == "__main__":
    main()
