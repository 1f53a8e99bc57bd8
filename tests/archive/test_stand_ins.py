"""Apps that stay in their package while it is unpacked and packed again: the same package results,
and nothing gets into it that was not checked."""
import os
import shutil

from archive_testing import OUR_UNZIP, OUR_ZIP, STOCK_ZIP, ArchiveTest, snapshot, text


class StandIns(ArchiveTest):
    LEFT = "App.ipa"
    # The others: too small, worth packing, nothing that is an app.
    FILES = {LEFT: os.urandom((9 << 20) + 77), "Small.ipa": os.urandom(5000),
             "Loose.ipa": text(1, 2 << 20), "noise.bin": os.urandom(2 << 20),
             "manifest.xml": text(2, 3000), "AppIcon.png": os.urandom(300)}

    def setUp(self):
        super().setUp()
        for name, contents in self.FILES.items():
            self.write(f"made/{name}", contents, mode=0o640)
        self.source = self.path("source.wex")
        self.run_well(self.path("made"), STOCK_ZIP, "-qr0", self.source, ".")

    def asking(self, word="dRAWN", source=None):
        return {"TOVREK_STAND_INS": f"{word} {source or self.source}"}

    def unzip(self, environment=None):
        shutil.rmtree(self.path("out"), ignore_errors=True)
        return self.run_in(self.folder, OUR_UNZIP, "-q", "-d", "out", self.source,
                           environment=environment)

    def zip(self, environment=None):
        """The program's end, and the archive that it has made, if any."""
        result = self.run_in(self.path("out"), OUR_ZIP, "-qr", "../result.zip", ".",
                             environment=environment)
        if not os.path.exists(self.path("result.zip")):
            return result, None
        with open(self.path("result.zip"), "rb") as file:
            contents = file.read()
        os.remove(self.path("result.zip"))
        return result, contents

    def rooms(self):
        return {name for name in self.FILES
                if os.stat(self.path("out", name)).st_blocks * 512 < len(self.FILES[name]) // 2}

    def test_same_archive(self):
        results = []
        for environment, left in ((None, set()), (self.asking(), {self.LEFT}),
                                  (self.asking(source=self.path("made", "noise.bin")), set())):
            self.assertEqual(self.unzip(environment).returncode, 0)
            self.assertEqual(self.rooms(), left)
            infos = [{name: item[:3] for name, item in snapshot(self.path(folder)).items()}
                     for folder in ("out", "made")]
            self.assertEqual(*infos)
            size = os.path.getsize(self.path("out", self.LEFT))
            self.assertEqual(size, len(self.FILES[self.LEFT]))
            with open(self.path("out", "manifest.xml"), "ab") as file:
                file.write(b"<!-- longer than it was -->")
            os.utime(self.path("out", "manifest.xml"), (1700000000, 1700000000))
            if left:
                # One that was moved stands for the same as before.
                os.rename(self.path("out", self.LEFT), self.path("moved"))
                shutil.copy2(self.path("moved"), self.path("out", self.LEFT))
            results.append(self.zip(environment if left else None))
        self.assertEqual([result.returncode for result, _ in results], [0, 0, 0])
        self.assertEqual(results[0][1], results[1][1])
        self.assertEqual(results[0][1], results[2][1])

    def test_damaged_contents(self):
        with open(self.source, "r+b") as file:
            file.seek(file.read().index(self.FILES[self.LEFT]) + (6 << 20))
            file.write(b"damaged")
        plain, asked = self.unzip(), self.unzip(self.asking())
        self.assertEqual((plain.returncode, plain.stdout, plain.stderr),
                         (asked.returncode, asked.stdout, asked.stderr))
        self.assertIn(b"bad CRC", asked.stderr)
        self.assertFalse(os.path.exists(self.path("out", self.LEFT)))

    def test_archive_that_changes_meanwhile(self):
        def write_into():
            with open(self.source, "r+b") as file:
                file.seek(-(2 << 20), os.SEEK_END)
                file.write(b"changed")

        def replace():
            shutil.copy(self.source, self.path("other"))
            os.rename(self.path("other"), self.source)

        def cut():
            os.truncate(self.source, os.path.getsize(self.source) - 1)

        changed = b"changed while it was read"
        for change, reason in ((write_into, changed), (replace, changed),
                               (cut, b"no end of central directory"),
                               (lambda: os.remove(self.source), b"No such file")):
            with self.subTest(reason=reason):
                self.assertEqual(self.unzip(self.asking()).returncode, 0)
                change()
                result, archive = self.zip(self.asking())
                self.assertEqual((result.returncode, archive), (18, None))
                self.assertIn(reason, result.stdout)
                self.setUp()

    def test_only_the_word_of_the_run_counts(self):
        self.unzip(self.asking("another"))
        stand_in = snapshot(self.path("out"))
        result, archive = self.zip(self.asking())
        self.assertEqual(result.returncode, 0)
        self.write("result.zip", archive)
        self.assertEqual(self.unpack(OUR_UNZIP, "result.zip", "again"), stand_in)
        for wish in ("", " ", "word", f"word{self.source}", f" {self.source}"):
            with self.subTest(wish):
                self.assertEqual(self.unzip({"TOVREK_STAND_INS": wish}).returncode, 0)
                self.assertEqual(self.rooms(), set())
