"""Packed forms taken from the archive that a tree was unpacked from: only what did not change."""
import mmap
import os
import tempfile
import zlib

from archive_testing import OUR_UNZIP, OUR_ZIP, STOCK_UNZIP, STOCK_ZIP, ArchiveTest, \
    packed_bytes, snapshot, text


def with_crc_of(contents, wanted):
    """`contents` with its last four bytes changed so that the CRC-32 is `wanted`."""
    # The CRC is affine in those bytes: solve for their 32 bits, one column per bit.
    start = contents[:-4]
    base = zlib.crc32(start + bytes(4))
    rows = [(zlib.crc32(start + (1 << bit).to_bytes(4, "little")) ^ base, 1 << bit)
            for bit in range(32)]
    left, value = wanted ^ base, 0
    for bit in range(32):
        pivot = next(row for row in rows if row[0] >> bit & 1)
        rows = [(a ^ pivot[0], b ^ pivot[1]) if a >> bit & 1 and (a, b) != pivot else (a, b)
                for a, b in rows if (a, b) != pivot]
        if left >> bit & 1:
            left, value = left ^ pivot[0], value ^ pivot[1]
    return start + value.to_bytes(4, "little")


class Reuse(ArchiveTest):
    NAMES = [f"Payload/{name}" for name in ("kept", "large", "victim", "twin")]
    VICTIM_SIZE = 20000

    def setUp(self):
        super().setUp()
        for index, name in enumerate(self.NAMES):
            size = {1: 3 << 20, 2: self.VICTIM_SIZE}.get(index, 20000)
            self.write(os.path.join("made", name), text(index, size))
        self.write("made/Payload/noise", os.urandom(100000))
        # Level 9 gives other bytes than ours, so it shows where an entry comes from.
        self.source = self.path("source.ipa")
        self.run_well(self.path("made"), STOCK_ZIP, "-qry9", self.source, "Payload")
        # On tmpfs, where writes through a mapping leave no trace in the times.
        self.work = tempfile.mkdtemp(prefix="tovrek-reuse-", dir="/dev/shm")
        self.addCleanup(self.run_in, "/", "rm", "-rf", self.work)
        self.victim = os.path.join(self.work, "Payload", "victim")

    def pack(self, source):
        archive = self.path("result.zip")
        if os.path.exists(archive):
            os.remove(archive)
        self.run_well(self.work, OUR_ZIP, "-qry", archive, "Payload",
                      environment={"TOVREK_PACKED_SOURCE": source})
        return archive

    def overwrite(self, contents):
        with open(self.victim, "r+b") as file:
            file.write(contents)

    def edit_with_same_crc(self):
        with open(self.victim, "rb") as file:
            old = file.read()
        new = with_crc_of(b"changed" + old[7:], zlib.crc32(old))
        assert new != old and len(new) == len(old) and zlib.crc32(new) == zlib.crc32(old)
        self.overwrite(new)

    def edit_through_mapping(self):
        with open(self.victim, "r+b") as file, mmap.mmap(file.fileno(), 0) as mapping:
            mapping[12000:12007] = b"changed"

    def replace_by_rename(self):
        with open(self.victim + "-new", "wb") as file:
            file.write(text(77, 20000))
        os.rename(self.victim + "-new", self.victim)

    def replace_by_hard_link(self):
        os.remove(self.victim)
        os.link(os.path.join(self.work, "Payload", "twin"), self.victim)

    def test_no_change_slips_through(self):
        for change in (lambda: self.overwrite(b"changed"), lambda: self.overwrite(text(99, 20000)),
                       self.edit_with_same_crc, self.edit_through_mapping, self.replace_by_rename,
                       self.replace_by_hard_link, lambda: os.truncate(self.victim, self.VICTIM_SIZE - 1)):
            self.run_in("/", "rm", "-rf", os.path.join(self.work, "Payload"))
            self.run_well(self.work, OUR_UNZIP, "-q", "-d", self.work, self.source)
            before = os.lstat(self.victim)
            change()
            os.utime(self.victim, ns=(before.st_atime_ns, before.st_mtime_ns))
            archive = self.pack(self.source)
            with self.subTest(change):
                self.assertEqual(self.unpack(STOCK_UNZIP, archive, "out"), snapshot(self.work))
                ours, theirs = packed_bytes(archive), packed_bytes(self.source)
                for name in ("Payload/kept", "Payload/large", "Payload/twin"):
                    self.assertEqual(ours[name], theirs[name])
                self.assertNotEqual(ours["Payload/victim"], theirs["Payload/victim"])
            self.run_well(self.folder, "rm", "-r", "out")

    def test_moved_and_copied_files_are_reused(self):
        self.run_well(self.work, OUR_UNZIP, "-q", "-d", self.work, self.source)
        os.rename(self.victim, self.victim + "-moved")
        self.run_well(self.work, "cp", "Payload/large", "Payload/copy")
        archive = self.pack(self.source)
        ours, theirs = packed_bytes(archive), packed_bytes(self.source)
        self.assertEqual(ours["Payload/victim-moved"], theirs["Payload/victim"])
        self.assertEqual(ours["Payload/copy"], theirs["Payload/large"])

    def test_useless_and_lying_sources(self):
        self.run_well(self.work, OUR_UNZIP, "-q", "-d", self.work, self.source)
        for options, name in (("-qry1", "hasty.zip"), ("-qry0", "stored.zip")):
            self.run_well(self.work, STOCK_ZIP, options, self.path(name), "Payload")
        with open(self.source, "rb") as file:
            whole = file.read()
        self.write("cut.zip", whole[:-30])
        # The same sizes and checksums around other contents.
        real = packed_bytes(self.source)
        liar = whole.replace(real["Payload/victim"], bytes(len(real["Payload/victim"])))
        self.write("liar.zip", liar)
        with open(self.pack(""), "rb") as file:
            fresh = file.read()
        for name in ("hasty.zip", "stored.zip", "cut.zip", "missing.zip", "Payload"):
            with self.subTest(name), open(self.pack(self.path(name)), "rb") as file:
                self.assertEqual(file.read(), fresh)
        archive = self.pack(self.path("liar.zip"))
        self.assertEqual(self.unpack(STOCK_UNZIP, archive, "out"), snapshot(self.work))

    def test_what_does_not_shrink_is_stored(self):
        self.run_well(self.work, OUR_UNZIP, "-q", "-d", self.work, self.source)
        self.run_well(self.folder, OUR_ZIP, "-q", "outer.zip", "source.ipa",
                      "made/Payload/noise", "made/Payload/large")
        lines = self.run_well(self.folder, STOCK_UNZIP, "-v", "outer.zip").stdout.decode()
        methods = {line.split()[-1]: line.split()[1] for line in lines.splitlines()
                   if "Defl" in line or "Stored" in line}
        self.assertEqual(methods, {"source.ipa": "Stored", "made/Payload/noise": "Stored",
                                   "made/Payload/large": "Defl:N"})


class ReuseInPieces(Reuse):
    """The same for files that are never held in memory, whose packed form is compared and written
    piece by piece, and taken back out of the archive where it was not theirs."""
    VICTIM_SIZE = 5 << 20
    test_what_does_not_shrink_is_stored = test_moved_and_copied_files_are_reused = None


class Pieces(ArchiveTest):
    """Large files packed anew: by a method that goes by their share of the package."""

    # Megabytes of the changed file, of noise beside it, and the most that the package may take of
    # what the stock program makes.
    CASES = {"quick": (1.3, 7, 1.02), "fast": (1.3, 4, 1.02), "whole": (1.3, 0, 1.01),
             "thorough": (17, 0, 1.05)}

    def code(self, megabytes):
        """Text with a part in the middle that does not pack, and of an odd length."""
        half = text(5, 1 << 20) * int(megabytes)
        return half[:int(megabytes * 500000)] + os.urandom(700001) + half[:int(megabytes * 500000)]

    def test_by_share(self):
        for name, (megabytes, noise, most) in self.CASES.items():
            self.write(f"{name}/changed", self.code(megabytes))
            self.write(f"{name}/noise", os.urandom(int(noise * 1e6)))
            self.write(f"{name}/small", text(1, 1000))
            self.run_well(self.path(name), STOCK_ZIP, "-qr", self.path(f"{name}.zip"), ".")
            with open(self.path(name, "changed"), "r+b") as file:
                file.write(b"changed")
            results = []
            for processors in ("0", "0-63"):
                result = self.path(f"{name}-{processors}.zip")
                self.run_well(self.path(name), "taskset", "-c", processors, OUR_ZIP, "-qr", result,
                              ".", environment={"TOVREK_PACKED_SOURCE": self.path(f"{name}.zip")})
                with open(result, "rb") as file:
                    results.append(file.read())
            with self.subTest(name):
                self.assertEqual(*results)
                self.assertEqual(self.unpack(STOCK_UNZIP, result, f"{name}-out"),
                                 snapshot(self.path(name)))
                self.assertLess(len(results[0]) / os.path.getsize(self.path(f"{name}.zip")), most)
