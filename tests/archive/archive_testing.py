"""What the tests of zip and unzip share. The stock programs and Python's zipfile are the judges."""
import os
import random
import shutil
import stat
import subprocess
import tempfile
import unittest
import zipfile

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
PROGRAMS = os.path.join(os.environ.get("TOVREK_HOST_FOLDER",
                                       os.path.join(ROOT, "build", "release", "tovrek", "host")),
                        "usr", "bin")
OUR_ZIP, OUR_UNZIP = os.path.join(PROGRAMS, "zip"), os.path.join(PROGRAMS, "unzip")
STOCK_ZIP, STOCK_UNZIP = "/usr/bin/zip", "/usr/bin/unzip"


def text(seed, size):
    """Text that packs like prose."""
    generator = random.Random(seed)
    words = ["".join(generator.choices("etaoinshrdlu", k=generator.randint(2, 9)))
             for _ in range(300)]
    parts, length = [], 0
    while length < size:
        parts.append(" ".join(generator.choices(words, k=12)))
        length += len(parts[-1]) + 1
    return "\n".join(parts).encode()[:size].ljust(size, b".")


def snapshot(folder):
    """All items below a folder: kind, permissions, time and contents."""
    items = {}
    for place, folders, files in os.walk(folder):
        for name in folders + files:
            path = os.path.join(place, name)
            info = os.lstat(path)
            if stat.S_ISLNK(info.st_mode):
                value = ("link", os.readlink(path))
            elif stat.S_ISDIR(info.st_mode):
                value = ("folder", oct(info.st_mode), int(info.st_mtime))
            else:
                with open(path, "rb") as file:
                    value = ("file", oct(info.st_mode), int(info.st_mtime), file.read())
            items[os.path.relpath(path, folder)] = value
    return items


def packed_bytes(archive):
    """The packed bytes of each entry, as they stand in the file."""
    result = {}
    with open(archive, "rb") as file:
        data = file.read()
    for item in zipfile.ZipFile(archive).infolist():
        at = item.header_offset
        start = at + 30 + int.from_bytes(data[at + 26:at + 28], "little") + int.from_bytes(
            data[at + 28:at + 30], "little")
        result[item.filename] = data[start:start + item.compress_size]
    return result


class ArchiveTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="tovrek-archive-")
        self.addCleanup(shutil.rmtree, self.folder)

    def path(self, *parts):
        return os.path.join(self.folder, *parts)

    def write(self, name, contents=b"", mode=0o644, mtime=1600000001):
        path = self.path(name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(contents)
        os.chmod(path, mode)
        os.utime(path, (mtime, mtime))
        return path

    def run_in(self, folder, *command, environment=None, stdin=b""):
        return subprocess.run(command, cwd=folder, input=stdin, capture_output=True, timeout=120,
                              env=dict(os.environ, LC_ALL="C.UTF-8", TZ="UTC",
                                       **(environment or {})))

    def run_well(self, folder, *command, **arguments):
        result = self.run_in(folder, *command, **arguments)
        self.assertEqual((result.returncode, result.stderr), (0, b""), command)
        return result

    def unpack(self, program, archive, name):
        """Unpacks below a new folder and takes the snapshot."""
        self.run_well(self.folder, program, "-q", "-d", self.path(name), archive)
        return snapshot(self.path(name))
