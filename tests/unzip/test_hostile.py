"""Archives made to do harm, or damaged: one text, a status, and nothing outside the destination."""
import os
import shutil
import struct
import subprocess
import zipfile

from archive_testing import (OUR_UNZIP, OUR_ZIP, STOCK_UNZIP, STOCK_ZIP, ArchiveTest, snapshot,
                             text)


def link(name, target):
    item = zipfile.ZipInfo(name)
    item.create_system = 3
    item.external_attr = 0o120777 << 16
    return item, target


class Hostile(ArchiveTest):
    def make(self, *entries):
        path = self.path("input.zip")
        with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as archive:
            for name, contents in entries:
                archive.writestr(name, contents)
        with open(path, "rb") as file:
            return bytearray(file.read())

    def refuse(self, what, data, status, message, options=("-q",), remains=()):
        self.write("input.zip", bytes(data))
        self.run_in(self.folder, "rm", "-rf", "place/out")
        os.makedirs(self.path("place"), exist_ok=True)
        result = self.run_in(self.folder, OUR_UNZIP, *options, "-d", "place/out", "input.zip")
        with self.subTest(what):
            self.assertEqual(result.returncode, status)
            self.assertEqual(result.stdout, b"")
            self.assertIn(message, result.stderr.decode())
            self.assertEqual([name for name, value in snapshot(self.path("place", "out")).items()
                              if value[0] != "folder"], list(remains))
            self.assertEqual(set(os.listdir(self.path("place"))) - {"out"}, set())

    def test_names_that_lead_out(self):
        good = ("good", b"good")
        for what, entries in {
                "..": [good, ("../up", b"x")],
                "inner ..": [good, ("a/b/../../../up", b"x")],
                "only ..": [good, ("..", b"x")],
                "folder ..": [good, ("../up/", b"")],
                "absolute": [good, (self.path("place", "absolute"), b"x")]}.items():
            self.refuse(what, self.make(*entries), 2, "would leave the destination; nothing was")
        for what, entries in {
                "link, then through it": [link("a", ".."), ("a/up", b"x")],
                "through it, then link": [("a/up", b"x"), link("a", "..")],
                "folder through a link": [link("a", ".."), ("a/up/", b"")],
                "link through a link": [link("a", ".."), link("a/up", "x")]}.items():
            self.refuse(what, self.make(*entries), 2, "through the symbolic link a; nothing was")

    def test_links_that_stand_in_the_destination(self):
        data = self.make(("a/up", b"x"), ("b", b"y"))
        self.write("input.zip", bytes(data))
        os.makedirs(self.path("place", "outside"))
        os.makedirs(self.path("place", "out"))
        os.symlink("../outside", self.path("place", "out", "a"))
        os.symlink("../outside/b", self.path("place", "out", "b"))
        result = self.run_in(self.folder, OUR_UNZIP, "-qo", "-d", "place/out", "input.zip")
        self.assertEqual(result.returncode, 2)
        self.assertIn(b"something that is no folder stands in the way", result.stderr)
        self.assertEqual(os.listdir(self.path("place", "outside")), [])
        self.assertFalse(os.path.islink(self.path("place", "out", "b")))  # replaced, not followed

    def test_contents_that_cannot_be_unpacked(self):
        whole = self.make(("a", text(1, 500)), ("b", text(2, 500)))
        central = whole.index(b"PK\1\2")

        def changed(*edits):
            data = bytearray(whole)
            for at, format_, value in edits:
                struct.pack_into("<" + format_, data, at, value)
            return data

        for what, data, status, message, remains in [
                ("encrypted", changed((central + 8, "H", 1)), 5, "encrypted", []),
                ("method", changed((8, "H", 14), (central + 10, "H", 14)), 81,
                 "unsupported compression method 14", []),
                ("flipped", changed((100, "B", whole[100] ^ 8)), 2, "a  ", ["b"]),
                ("checksum", changed((central + 16, "I", 1)), 2, "bad CRC", ["b"]),
                ("longer", changed((central + 24, "I", 501)), 2, "invalid compressed data", ["b"]),
                ("shorter", changed((central + 24, "I", 499)), 2, "invalid compressed data", ["b"])]:
            self.refuse(what, data, status, message, remains=remains)

    def test_large_contents_that_cannot_be_unpacked(self):
        """Entries that are unpacked in pieces: nothing of a damaged one is printed."""
        contents = text(1, 1 << 20) * 9
        whole = self.make(("a", contents), ("b", b"after"))
        central = whole.index(b"PK\1\2")
        for what, at, value, message in [
                ("sound", 0, whole[0], ""), ("flipped", 50000, whole[50000] ^ 8, "a  "),
                ("checksum", central + 16, whole[central + 16] ^ 1, "bad CRC"),
                ("longer", central + 24, 1, "invalid compressed data"),
                ("shorter", central + 26, whole[central + 26] - 1, "invalid compressed data")]:
            data = bytearray(whole)
            data[at] = value
            self.write("input.zip", bytes(data))
            piped = self.run_in(self.folder, OUR_UNZIP, "-p", "input.zip")
            tested = self.run_in(self.folder, OUR_UNZIP, "-tqq", "input.zip")
            with self.subTest(what):
                self.assertEqual(piped.stdout, (b"" if message else contents) + b"after")
                self.assertEqual((piped.returncode, tested.returncode), (2 if message else 0,) * 2)
                self.assertIn(message, piped.stderr.decode())
                self.assertIn(message, tested.stdout.decode())

    def test_containers_that_contradict_themselves(self):
        whole = self.make(("a", text(1, 500)), ("b", text(2, 500)))
        central = whole.index(b"PK\1\2")
        second = whole.index(b"PK\1\2", central + 1)
        end = whole.index(b"PK\5\6")

        def changed(at, format_, value):
            data = bytearray(whole)
            struct.pack_into("<" + format_, data, at, value)
            return data

        for what, data, message in [
                ("bomb", changed(central + 24, "I", 1 << 31), "claims a size"),
                ("overlap", changed(central + 20, "I", 450), "entries overlap"),
                ("header", changed(0, "I", 0), "bad zipfile offset"),
                ("other name", changed(30, "B", ord("c")), "differs from the central directory"),
                ("other method", changed(8, "H", 0), "differs from the central directory"),
                ("offset", changed(second + 42, "I", end), "bad zipfile offset"),
                ("far offset", changed(second + 42, "I", 0xfffffff0), "bad zipfile offset"),
                ("count", changed(end + 10, "H", 3), "no room for 3 entries"),
                ("less", changed(end + 10, "H", 1), "longer than its entries"),
                ("disk", changed(end + 4, "H", 1), "in several files"),
                ("directory", changed(end + 16, "I", end), "outside the file"),
                ("name length", changed(second + 28, "H", 0xffff), "cut short"),
                ("no name", whole[:second] + whole[second:end].replace(b"b", b"\0") + whole[end:],
                 "no proper name"),
                ("junk in front", b"#!/bin/sh\n" + whole, "bytes that belong to no entry")]:
            self.refuse(what, data, 2, message)
        for what, data in (("half", whole[:len(whole) // 2]), ("no end", whole[:-1]),
                           ("empty file", b""), ("text", b"no archive " * 100)):
            self.refuse(what, data, 9, "End-of-central-directory signature not found")

    def test_what_stock_unzip_takes(self):
        """Bytes behind the archive, and DOS archives with backslashes: as the stock program does."""
        self.write("in/a/b", b"contents")
        subprocess.run([STOCK_ZIP, "-q", "-r", "../plain.zip", "."], cwd=self.path("in"), check=True)
        with open(self.path("plain.zip"), "rb") as file:
            plain = file.read()
        info = zipfile.ZipInfo("a/b")
        info.create_system = 0
        with zipfile.ZipFile(self.path("dos.zip"), "w") as archive:
            archive.writestr(info, b"contents")
        with open(self.path("dos.zip"), "rb") as file:
            dos = file.read().replace(b"a/b", b"a\\b")
        for what, data in (("one byte", plain + b"\0"), ("text", plain + b"text " * 1000),
                           ("60 KB", plain + b"\0" * 60000), ("backslashes", dos)):
            with self.subTest(what):
                self.write("test.zip", data)
                seen = []
                for program in (STOCK_UNZIP, OUR_UNZIP):
                    shutil.rmtree(self.path("out"), ignore_errors=True)
                    result = self.run_in(self.folder, program, "-q", "-d", "out", "test.zip")
                    with open(self.path("out", "a", "b"), "rb") as file:
                        seen.append((result.returncode, file.read()))
                self.assertEqual(seen[0], seen[1])

    def both(self, data, options=("-qo",)):
        """Status and unpacked files of the stock program and of ours."""
        self.write("test.zip", bytes(data))
        seen = []
        for program in (STOCK_UNZIP, OUR_UNZIP):
            shutil.rmtree(self.path("out"), ignore_errors=True)
            result = self.run_in(self.folder, program, *options, "-d", "out", "test.zip")
            seen.append((result.returncode,
                         {name: value[3] for name, value in snapshot(self.path("out")).items()
                          if value[0] == "file"}))
        return seen

    def test_statuses_are_those_of_the_stock_program(self):
        whole = self.make(("a", text(1, 500)), ("b", text(2, 500)))
        central = whole.index(b"PK\1\2")
        packed = {}
        for method in (zipfile.ZIP_BZIP2, zipfile.ZIP_LZMA):
            with zipfile.ZipFile(self.path("packed.zip"), "w", method) as archive:
                archive.writestr("a", text(1, 50000))
                archive.writestr("empty", b"")
                archive.writestr("zeros", bytes(20 << 20))  # unpacked into the file itself
            with open(self.path("packed.zip"), "rb") as file:
                packed[method] = bytearray(file.read())
        bzip2 = packed[zipfile.ZIP_BZIP2]
        flipped, stored_crc, bad_bzip2 = bytearray(whole), bytearray(whole), bytearray(bzip2)
        flipped[100] ^= 8
        bad_bzip2[100] ^= 8
        for at in (14, central + 16):
            stored_crc[at] ^= 1
        encrypted = bytearray(whole)
        for at in (6, central + 8, whole.index(b"PK\3\4", 4) + 6,
                   whole.index(b"PK\1\2", central + 1) + 8):
            encrypted[at] |= 1
        for what, data, status in [
                ("sound", whole, 0), ("bytes behind", whole + b"xx", 0), ("bzip2", bzip2, 0),
                ("lzma", packed[zipfile.ZIP_LZMA], 81), ("half", whole[:len(whole) // 2], 9),
                ("a byte short", whole[:-1], 9), ("empty file", b"", 9),
                ("login page", b"<html>" * 99, 9), ("no entries", self.make(), 1),
                ("flipped bit", flipped, 2), ("checksum", stored_crc, 2),
                ("zeros", whole[:60] + bytes(100) + whole[160:], 2),
                ("damaged bzip2", bad_bzip2, 2), ("encrypted", encrypted, 5)]:
            with self.subTest(what):
                (stock, theirs), (status_of_ours, ours) = self.both(data)
                self.assertEqual((stock, status_of_ours), (status, status))
                if status == 0:
                    self.assertEqual(theirs, ours)

    def test_names_are_as_their_flag_says(self):
        """Flagged ones are UTF-8, others of the code page of DOS, and those of Unix are bytes."""
        for stored, system, flagged, name in [
                (b"F\x81r", 0, False, "F\u00fcr".encode()), (b"F\x81r", 11, False, "F\u00fcr".encode()),
                (b"\xe4\xfe\xff", 0, False, "\u03a3\u25a0\u00a0".encode()),
                ("F\u00fcr".encode(), 0, True, "F\u00fcr".encode()),
                ("F\u00fcr".encode(), 3, False, "F\u00fcr".encode()), (b"F\xfcr", 3, False, b"F\xfcr")]:
            info = zipfile.ZipInfo("A" * len(stored))
            info.create_system = system
            data = self.make((info, b"x")).replace(b"A" * len(stored), stored)
            data[7] |= 8 * flagged
            data[data.index(b"PK\1\2") + 9] |= 8 * flagged
            self.write("test.zip", bytes(data))
            shutil.rmtree(self.path("out"), ignore_errors=True)
            result = self.run_in(self.folder, OUR_UNZIP, "-q", "-d", "out", "test.zip")
            with self.subTest(stored=stored, system=system):
                self.assertEqual(result.returncode, 0, result.stderr)
                self.assertEqual(os.listdir(self.path("out").encode()), [name])
                told = b"is no name in UTF-8" in result.stderr
                self.assertEqual(told, name == b"F\xfcr")

    def test_what_zip_cannot_read_is_told(self):
        """A folder that may not be opened is missing from the archive, not from the answer."""
        self.write("d/open/file", b"x")
        self.write("d/shut/file", b"x")
        os.chmod(self.path("d", "shut"), 0)
        os.chmod(self.folder, 0o777)
        user = 65534 if os.geteuid() == 0 else None
        result = subprocess.run([OUR_ZIP, "-qr", "new.zip", "d"], cwd=self.folder, user=user,
                                capture_output=True)
        os.chmod(self.path("d", "shut"), 0o700)
        self.assertEqual(result.returncode, 18)
        self.assertIn(b"could not open for reading: d/shut: Permission denied", result.stderr)
        self.assertIn("d/open/file", zipfile.ZipFile(self.path("new.zip")).namelist())

    def test_zip_with_bad_input(self):
        """An archive that cannot be extended, links in a circle, special files."""
        self.write("bad.zip", b"no archive")
        self.write("d/file", b"x")
        os.symlink("..", self.path("d", "circle"))
        os.mkfifo(self.path("d", "pipe"))
        result = self.run_in(self.folder, OUR_ZIP, "-r", "bad.zip", "d")
        self.assertEqual((result.returncode, b"Zip file structure invalid" in result.stdout),
                         (3, True))
        self.assertEqual(os.path.getsize(self.path("bad.zip")), 10)
        result = self.run_in(self.path("d"), OUR_ZIP, "-r", "new.zip", ".")
        self.assertEqual(result.returncode, 18)
        self.assertIn(b"link leads back", result.stdout)
        self.assertIn(b"ignoring special file: ./pipe", result.stdout)
        self.assertIn("file", zipfile.ZipFile(self.path("d", "new.zip")).namelist())
