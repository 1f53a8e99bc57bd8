"""Wraps an app twice, once on a single processor with companions that are started, and compares all that came out."""
import os
import random
import re
import zipfile

from examiner import macho
from harness import WholeProgramTest, changed_app, pack, read, unzip, write

# What a run makes up or looks up: unique identifiers, keys and checksums over them, times, and the
# size and hashes of what holds these.
OWN_VALUES = re.compile(
    rb"[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}|\b[0-9a-f]{64}\b"
    rb"|\d{4}-\d\d-\d\d \d\d:\d\d:\d\d \+0000|(?<=MamPackageSize\">)\d+|<data>[^<]*</data>")


def comparable(path):
    """The file's contents without the values of the run; of code what its signature covers."""
    if os.path.islink(path):
        return os.readlink(path)
    if macho.is_macho(path):
        return [image.data[:image.signature_range()[0]] for image in macho.slices(path)]
    data = read(path)
    return OWN_VALUES.sub(b"", data) if data.startswith(b"<?xml") else data


class TwoRuns(WholeProgramTest):
    @classmethod
    def app(cls):
        """The demo app with enough more files, small and large, to keep several threads busy."""
        generator = random.Random(7)
        with changed_app() as (folder, app):
            for index in range(200):
                text = " ".join(generator.choices(["clay", "sand", "stone"], k=index * 9))
                write(text.encode() + generator.randbytes(index * 30), app, "More", f"{index}.txt")
            for name, size in [("large.bin", 9_000_000), ("middling.bin", 400_000)]:
                write(generator.randbytes(size // 2) + bytes(size // 2), app, name)
            return pack(folder, cls.path("Fieldbook.ipa"))

    def test_same_whatever_the_machine(self):
        app = self.app()
        packages = []
        for name, launcher, copies in [("all", [], "1"), ("one", ["taskset", "-c", "0"], "0")]:
            output = self.path(f"{name}.wex")
            result = self.run_toolkit(launcher + self.wrap_command(app, output),
                                      {"TOVREK_COPIES": copies})
            self.assert_wrapped(result, output)
            package = unzip(output, self.path(name))
            unzip(os.path.join(package, "Fieldbook.ipa"), os.path.join(package, "inner"))
            packages.append((output, package))
        for inner in [False, True]:
            records = []
            for output, package in packages:
                path = os.path.join(package, "Fieldbook.ipa") if inner else output
                with zipfile.ZipFile(path) as archive:
                    records.append([(entry.filename, entry.compress_type, entry.flag_bits,
                                     entry.external_attr) for entry in archive.infolist()])
            self.assertEqual(*records)
        trees = []
        for _, package in packages:
            os.remove(os.path.join(package, "Fieldbook.ipa"))
            trees.append({os.path.relpath(os.path.join(base, name), package):
                          comparable(os.path.join(base, name))
                          for base, _, files in os.walk(package) for name in files})
        self.assertEqual(trees[0].keys(), trees[1].keys())
        self.assertEqual([path for path in trees[0] if trees[0][path] != trees[1][path]], [])
        self.assertGreater(len(trees[0]), 200)
