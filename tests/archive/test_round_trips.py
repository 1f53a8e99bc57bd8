"""Archives go from our programs to the stock ones and Python, and back; options do the same."""
import os
import subprocess
import tempfile
import zipfile

from archive_testing import (OUR_UNZIP, OUR_ZIP, STOCK_UNZIP, STOCK_ZIP, ArchiveTest, snapshot,
                             text)


class RoundTrips(ArchiveTest):
    def make_tree(self):
        """One of each kind that an app or a home folder may hold."""
        noise = os.urandom(1 << 20)
        for name, contents, mode, mtime in [
                ("text", text(1, 300000), 0o644, 1600000001),
                ("program", text(2, 5000) + noise, 0o755, 1600000002),
                ("noise", noise, 0o600, 1234567890),
                ("large/mixed", text(3, 1 << 20) * 9 + noise, 0o644, 2145916800),
                ("one", b"x", 0o444, 315532800),
                ("empty", b"", 0o640, 1600000000),
                ("zeros", bytes(3 << 20), 0o644, 1600000000),
                ("é/Ωmega ☃", b"snow", 0o644, 1600000000),
                ("a [b] *?\\c", b"pattern", 0o644, 1600000000),
                ("-dash", b"option", 0o644, 1600000000),
                ("deep/" * 30 + "leaf", b"leaf", 0o644, 1600000000)]:
            self.write(os.path.join("tree", name), contents, mode, mtime)
        os.makedirs(self.path("tree", "hollow", "inner"))
        os.symlink("text", self.path("tree", "link"))
        os.symlink("../nowhere/é", self.path("tree", "hollow", "dangling"))
        os.chmod(self.path("tree", "hollow", "inner"), 0o700)
        for folder, _, _ in os.walk(self.path("tree"), topdown=False):
            os.utime(folder, (1500000000, 1500000000))
        return snapshot(self.path("tree"))

    def test_every_packer_with_every_unpacker(self):
        tree = self.make_tree()
        for packer, options in [(OUR_ZIP, "-qry"), (OUR_ZIP, "-qry0"), (OUR_ZIP, "-qry9"),
                                (STOCK_ZIP, "-qry"), (STOCK_ZIP, "-qry0")]:
            archive = self.path("archive.zip")
            self.run_well(self.path("tree"), packer, options, archive, ".")
            for unpacker in (OUR_UNZIP, STOCK_UNZIP):
                if packer == STOCK_ZIP and unpacker == STOCK_UNZIP:
                    continue
                with self.subTest(packer=packer, options=options, unpacker=unpacker):
                    self.assertEqual(self.unpack(unpacker, archive, "out"), tree)
                self.run_well(self.folder, "rm", "-r", "out")
            with zipfile.ZipFile(archive) as by_python:
                self.assertIsNone(by_python.testzip())
                files = {name.rstrip("/"): by_python.read(name) for name in by_python.namelist()}
            os.remove(archive)
            if packer == STOCK_ZIP:
                continue  # Python does not see that its names are UTF-8
            self.assertEqual(set(files), set(tree))
            for name, value in tree.items():
                if value[0] == "file":
                    self.assertEqual(files[name], value[-1], name)

    def test_archives_of_other_makers(self):
        """Data descriptors, Zip64 fields on small entries, no Unix attributes, a comment."""
        contents = {"plain.txt": text(4, 70000), "folder/noise": os.urandom(5000), "none": b""}
        for name, value in contents.items():
            self.write("made/" + name, value)
        with open(self.path("streamed.zip"), "wb") as file:
            stream = subprocess.Popen([STOCK_ZIP, "-qr", "-", "."], cwd=self.path("made"),
                                      stdout=subprocess.PIPE)
            file.write(stream.communicate()[0])
        with zipfile.ZipFile(self.path("wide.zip"), "w", zipfile.ZIP_DEFLATED) as wide:
            for name, value in contents.items():
                with wide.open(zipfile.ZipInfo(name), "w", force_zip64=True) as entry:
                    entry.write(value)
            wide.comment = b"a comment"
        for archive in ("streamed.zip", "wide.zip"):
            files = self.unpack(OUR_UNZIP, self.path(archive), archive + "-out")
            self.assertEqual({name: value[-1] for name, value in files.items()
                              if value[0] == "file"}, contents)
            # Entries kept from them stay readable beside new ones.
            self.run_well(self.path("made"), OUR_ZIP, "-q", self.path(archive), "none")
            self.run_well(self.folder, STOCK_UNZIP, "-tqq", self.path(archive))
            with zipfile.ZipFile(self.path(archive)) as by_python:
                self.assertIsNone(by_python.testzip())

    def test_more_entries_than_sixteen_bits_count(self):
        # In memory, where so many files are made in a second.
        place = self.enterContext(tempfile.TemporaryDirectory(dir="/dev/shm"))
        for index in range(65600):
            os.close(os.open(os.path.join(place, str(index)), os.O_CREAT))
        archive = self.path("many.zip")
        self.run_well(place, OUR_ZIP, "-qr", archive, ".")
        self.assertEqual(len(zipfile.ZipFile(archive).namelist()), 65600)
        for program in (OUR_UNZIP, STOCK_UNZIP):
            names = self.run_well(self.folder, program, "-Z1", archive).stdout.split()
            self.assertEqual(len(names), 65600)

    def test_same_bytes_whatever_the_machine(self):
        self.make_tree()
        self.run_well(self.path("tree"), OUR_ZIP, "-qry", self.path("all.zip"), ".")
        self.run_well(self.path("tree"), "taskset", "-c", "0", OUR_ZIP, "-qry",
                      self.path("one.zip"), ".")
        # Another order of creation lists differently.
        os.mkdir(self.path("copy"))
        for name in sorted(os.listdir(self.path("tree")), reverse=True):
            self.run_well(self.folder, "cp", "-a", "--", self.path("tree", name), "copy/")
        os.utime(self.path("copy"), (1500000000, 1500000000))
        self.run_well(self.path("copy"), OUR_ZIP, "-qry", self.path("copied.zip"), ".")
        with open(self.path("all.zip"), "rb") as file:
            expected = file.read()
        for other in ("one.zip", "copied.zip"):
            with open(self.path(other), "rb") as file:
                self.assertEqual(file.read(), expected, other)


class SameAsStock(ArchiveTest):
    """Both programs do, print and answer the same."""

    def setUp(self):
        super().setUp()
        self.write("d/a", b"hi\n")
        self.write("d/page.txt", b"word " * 400)
        self.write("d/sub/é", b"")
        os.symlink("a", self.path("d", "link"))
        os.mkdir(self.path("d", "empty"))
        for folder, _, files in os.walk(self.path("d"), topdown=False):
            for name in files + ["."]:
                os.utime(os.path.join(folder, name), (1500000000, 1500000000),
                         follow_symlinks=False)
        self.run_well(self.folder, STOCK_ZIP, "-qry", "base.zip", "d")

    def unpacked(self):
        """What lies in "out"; a time that the archive did not give counts as "new", since the
        two programs may run in different seconds."""
        return {name: tuple("new" if isinstance(part, int) and part > 1500000001 else part
                            for part in value)
                for name, value in snapshot(self.path("out")).items()}

    def both(self, ours, stock, arguments, prepare, answer=b""):
        results = []
        for program in (stock, ours):
            prepare()
            result = self.run_in(self.folder, program, *arguments, stdin=answer)
            tree = self.unpacked()
            names = []
            if os.path.exists(self.path("y.zip")):
                names = self.run_well(self.folder, STOCK_UNZIP, "-Z1", "y.zip").stdout
                names = sorted(names.splitlines())  # their order in the archive may differ
            results.append((result.returncode, sorted(result.stdout.splitlines()),
                            sorted(result.stderr.splitlines()), tree, names))
        with self.subTest(arguments):
            self.assertEqual(results[1], results[0])

    def test_zip(self):
        def prepare():
            self.run_in(self.folder, "rm", "-rf", "y.zip")

        def prepare_old():
            self.run_in(self.folder, "cp", "base.zip", "y.zip")

        for arguments in ["-r y.zip d", "-qry y.zip d nope", "-qry y.zip nope", "-r y.zip d -x d/s*",
                          "-ry y.zip d -x *.txt d/sub* -q", "-r y.zip d -i *a", "-j y.zip d/a d/link",
                          "-rD y.zip ./d/", "-9 y.zip d/nope", "y d/a", "-K y.zip d", "--foo y.zip d",
                          "-qr y.zip .", "-d y.zip d/a", "y.zip d/a d/a", "-0r y.zip d"]:
            self.both(OUR_ZIP, STOCK_ZIP, arguments.split(), prepare)
        for arguments in ["-ry y.zip d", "y.zip d/page.txt d/sub/é", "-d y.zip d/s*", "-dq y.zip zz"]:
            self.both(OUR_ZIP, STOCK_ZIP, arguments.split(), prepare_old)

    def test_unzip(self):
        def prepare():
            self.run_in(self.folder, "rm", "-rf", "out")

        def prepare_old():
            prepare()
            self.write("out/d/a", b"old")
            self.write("out/d/page.txt", b"old")

        self.write("[x]?.zip", b"")
        self.run_in(self.folder, "cp", "base.zip", "[x]?.zip")
        self.write("no archive", b"text")
        for arguments in [["-d", "out", "base.zip"], ["-q", "-d", "out", "base"],
                          ["base.zip", "-d", "out"], ["-l", "base.zip"], ["-v", "base.zip"],
                          ["-Z1", "base.zip", "d/*"], ["-p", "base.zip", "d/page.txt", "d/a"],
                          ["-t", "base.zip"], ["-tq", "base.zip"], ["-qq", "-l", "base.zip"],
                          ["-qj", "-d", "out", "base.zip"], ["-qd", "out", "base.zip", "-x", "d/s*"],
                          ["-q", "-d", "out", "[[]x][?].zip"], ["-q", "missing"],
                          ["-q", "-d", "out", "base.zip", "zz"],
                          ["-q", "-d", "out/not/there", "base.zip"]]:
            self.both(OUR_UNZIP, STOCK_UNZIP, arguments, prepare)
        for arguments in [["-qo", "-d", "out", "base.zip"], ["-n", "-d", "out", "base.zip"],
                          ["-n", "-q", "base.zip", "-d", "out"]]:
            self.both(OUR_UNZIP, STOCK_UNZIP, arguments, prepare_old)

    def test_questions(self):
        expected = {b"y\nn\n": (0, b"hi\n", b"old"), b"?\nA\n": (0, b"hi\n", b"word " * 400),
                    b"N\n": (0, b"old", b"old"), b"": (1, b"old", b"old")}
        self.run_well(self.folder, OUR_ZIP, "-qry", "sorted.zip", "d")
        for answer, (status, a, page) in expected.items():
            self.run_in(self.folder, "rm", "-rf", "out")
            self.write("out/d/a", b"old")
            self.write("out/d/page.txt", b"old")
            result = self.run_in(self.folder, OUR_UNZIP, "-q", "-d", "out", "sorted.zip",
                                 stdin=answer)
            tree = snapshot(self.path("out"))
            self.assertEqual((result.returncode, tree["d/a"][-1], tree["d/page.txt"][-1]),
                             (status, a, page), answer)
            self.assertIn("d/sub/é", tree)
