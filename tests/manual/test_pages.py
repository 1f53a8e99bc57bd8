"""The manual against the sources: form, variables, settings, options of Inspect."""
import os
import re
import subprocess
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("TOVREK_BUILD", ROOT / "build/release"))
PAGES = BUILD / "tovrek/host/usr/share/man"
# Sources are a hundred columns wide, and `man` need not have the pages of this build.
HOUSE_STYLE = re.compile(r"input text line longer than 80 bytes|referenced manual not found"
                         r"|outdated mandoc.db")


def page(path):
    return (ROOT / path).read_text()


def sources(*patterns):
    return "\n".join(path.read_text() for pattern in patterns for path in sorted(ROOT.glob(pattern)))


def completed_options(command):
    """The options that the shells complete for a command."""
    branch = re.search(rf"^    {command}\) printf(.*?);;", page("completion/options.sh"), re.M | re.S)
    return sorted(re.findall(r"'--([\w-]+)", branch.group(1)))


class Pages(unittest.TestCase):
    def test_form(self):
        pages = sorted(path for path in PAGES.glob("man*/*"))
        self.assertGreater(len(pages), 18)
        for path in pages:
            if path.read_text().startswith(".so "):
                self.assertTrue((PAGES / path.read_text().split()[1]).is_file(), path)
                continue
            lint = subprocess.run(["mandoc", "-Tlint", "-W", "style", path],
                                  capture_output=True, text=True)
            found = [line for line in (lint.stdout + lint.stderr).splitlines()
                     if not HOUSE_STYLE.search(line)]
            self.assertEqual(found, [])

    def test_variables(self):
        # As text in quotes, which macros and names for the build are not.
        read = set(re.findall(r'"(TOVREK_[A-Z0-9_]+)"', sources("src/**/*.cpp", "src/**/*.h", "programs/**/*.cpp")))
        listed = re.findall(r"^\.It Ev (TOVREK_\w+)$", page("programs/tovrek/manual/tovrek.7"), re.M)
        self.assertEqual(listed, sorted(read))

    def test_settings(self):
        shipped = re.findall(r"^(\w+) = ", page("src/settings/tovrek.conf"), re.M)
        known = re.findall(r'^    \{"(\w+)", take', page("src/settings/settings_file.cpp"), re.M)
        listed = re.findall(r"^\.It Cm (\w+)$", page("programs/tovrek/manual/tovrek.conf.5"), re.M)
        self.assertEqual(sorted(listed), sorted(known))
        self.assertEqual(sorted(shipped), sorted(known))
        limits = re.findall(r'\{"(\w+)", &Limits::', page("src/host/limits.cpp"))
        self.assertEqual(re.findall(r"^\.It Li (\w+)", page("programs/tovrek/manual/tovrek.conf.5"),
                                    re.M), limits)
        self.assertEqual(re.findall(r"^\| `(\w+)` \| \d+ \| \d+ ", page("docs/settings.md"), re.M),
                         limits)

    def test_options_of_inspect(self):
        known = [*re.findall(r'\{"--([\w-]+)", &', page("programs/inspect/Options.cpp")), "version", "within"]
        listed = re.findall(r"^\.It Fl -([\w-]+)", page("programs/inspect/tovrek-inspect.1"), re.M)
        self.assertEqual(sorted(listed), sorted(known))
        self.assertEqual(completed_options("Inspect"), sorted(known))

    def test_options_of_batch(self):
        rows = re.findall(r'\{"--([\w-]+)", "(\w+)", (true|false)', page("programs/batch/Options.cpp"))
        items = "\n".join(re.findall(r"^\.It .*", page("programs/batch/tovrek-batch.1"), re.M))
        listed = set(re.findall(r"Fl -([\w-]+)", items))
        self.assertEqual(listed - {"help", "version"}, {name for name, _, _ in rows})
        for verb, letter in (("run", "r"), ("renew", "n"), ("check", "c")):
            known = [name for name, verbs, _ in rows if letter in verbs]
            self.assertEqual(completed_options(f"Batch-{verb}"), sorted([*known, "help"]))


if __name__ == "__main__":
    unittest.main()
