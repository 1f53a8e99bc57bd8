"""Transcripts: what runs printed, compared with a file of the folder "transcripts".

UPDATE_GOLDENS=1 in the environment writes the files instead; read the difference before it is kept.
What differs from run to run is masked.
"""
import difflib
import os
import re
import shlex
import shutil

from harness import (BRANCH, BRANCH_PROFILE, DEMO, DEMO_APP, ROOT, TOOLKIT, WholeProgramTest,
                     result_text, unpacked_app)

FOLDER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "transcripts")
UUID = r"[0-9A-F]{8}(?:-[0-9A-F]{4}){3}-[0-9A-F]{12}"
MASKS = [
    (r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} Tovrek\[\d+\]", "TIME Tovrek[PID]"),
    (UUID, "UUID"),
]


class TranscriptTest(WholeProgramTest):
    """Runs command lines given as words and keeps what they print."""
    toolkit = TOOLKIT

    def masked(self, text):
        for path, name in ((self.toolkit, "TOOLKIT"), (TOOLKIT, "TOOLKIT"), (DEMO, "DEMO"),
                           (self.folder, "FOLDER"), (ROOT, "ROOT")):
            text = text.replace(path, name)
        for pattern, name in MASKS:
            text = re.sub(pattern, name, text)
        return text

    @classmethod
    def tovrek(cls, *words, environment=(), merge=False):
        return cls.run_toolkit([os.path.join(cls.toolkit, "Tovrek"), *words], environment, merge)

    def shown(self, words, status, text):
        """A run as it is written down. Blanks at the ends of lines are made visible."""
        command = " ".join(shlex.quote(self.masked(word)) for word in ("Tovrek", *words))
        text = f"$ {command}\n{self.masked(text)}\nstatus {status}\n"
        return re.sub(r" +$", lambda blanks: "␣" * len(blanks[0]), text, flags=re.MULTILINE)

    def transcript(self, *words, environment=()):
        """Everything that one run prints, and its result."""
        result = self.tovrek(*words, environment=environment, merge=True)
        return result, self.shown(words, result.returncode, result.stdout)

    def assert_done(self, *words, transcript=None):
        """Runs a command that must succeed and leave nothing; compares all that it prints with a
        transcript, if one is named."""
        result, text = self.transcript(*words)
        self.assertEqual((result.returncode, self.left_in_scratch()), (0, []), text)
        if transcript:
            self.assert_transcript(transcript, text)
        return result.stdout

    def refusal(self, *words, environment=()):
        """The one text that a run is refused with.

        Refusals of arguments stand behind the traces and before the help, the others above a line
        of hyphens. Nothing may be left behind.
        """
        result = self.tovrek(*words, environment=environment)
        self.assertEqual(self.left_in_scratch(), [], words)
        text = result_text(result)
        if text is None and result.returncode == 255:
            text = re.search(r"(?:\A|\n)\n([^\n]+)\n", result.stderr).group(1)
        return self.shown(words, result.returncode, text or "(no text)")

    def refusals(self, name, command, cases):
        """Compares the refusals of a command, with each of the cases as its words."""
        self.assert_transcript(name, "\n".join(self.refusal(command, *words) for words in cases))

    def assert_transcript(self, name, text):
        path = os.path.join(FOLDER, f"{name}.txt")
        if os.environ.get("UPDATE_GOLDENS") == "1":
            os.makedirs(FOLDER, exist_ok=True)
            with open(path, "w", encoding="utf-8") as file:
                file.write(text)
        with open(path, encoding="utf-8") as file:
            expected = file.read()
        if text != expected:
            self.fail("".join(difflib.unified_diff(expected.splitlines(True),
                                                   text.splitlines(True), path, "this run")))


class SignTest(TranscriptTest):
    """Has App.ipa, which the administrator has wrapped into App.wex and Wrapped.ipa under another
    identifier, for the branch office to sign anew."""
    IDENTIFIER = "com.example.managed"
    BY_BRANCH = ("-Cert", BRANCH, "-Profile", BRANCH_PROFILE)

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.import_identity("branch")
        shutil.copy(DEMO_APP, cls.path("App.ipa"))
        cls.wrap(cls.path("App.ipa"), cls.path("App.wex"), "-outBundle", cls.path("Wrapped.ipa"),
                 "-noStripExtensions", "-bundleID", cls.IDENTIFIER)
        cls.package = cls.path("package")
        cls.app = unpacked_app(cls.path("App.wex"), cls.package)
