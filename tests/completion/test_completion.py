"""Completion as the shells do it: keys typed into bash and zsh on a terminal, lines read back."""
import os
import pty
import re
import select
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

BUILD = Path(os.environ.get("TOVREK_BUILD", "build/release")).resolve()
FOLDER = BUILD / "tovrek"
CORPORATION = "iPhone Distribution: Example Corporation (EXAMPLE123)"
FILES = ("App.ipa", "My App.ipa", "Old.wex", "Team.mobileprovision", "notes.txt", "jobs.csv",
         "Gauge.app/Info.plist")

# What is typed, and what the line must be afterwards (up to blanks at its end), in both shells: the
# word ends here because just one thing fits.
LINES = (
    ("Tovrek W", "Tovrek Wrap"),
    ("Tovrek sdk", "Tovrek SdkPrep"),
    ("Tovrek Wrap -C", "Tovrek Wrap -Cert"),
    ("Tovrek wrap -noS", "Tovrek wrap -noStripExtensions"),
    ("Tovrek Sign -in x -i", "Tovrek Sign -in x -i"),
    ("Tovrek SetInfo -C", "Tovrek SetInfo -C"),
    ("Tovrek Wrap -in My", "Tovrek Wrap -in My\\ App.ipa"),
    ("Tovrek Wrap -in O", "Tovrek Wrap -in O"),
    ("Tovrek SetInfo -in O", "Tovrek SetInfo -in Old.wex"),
    ("Tovrek Wrap -Profile T", "Tovrek Wrap -Profile Team.mobileprovision"),
    ("Tovrek Wrap -logFile n", "Tovrek Wrap -logFile notes.txt"),
    ("Tovrek SdkPrep -in G", "Tovrek SdkPrep -in Gauge.app/"),
    ("Tovrek Sign -reSign y", "Tovrek Sign -reSign yes"),
    ("Tovrek Sign -reSign yes -wexResign y", "Tovrek Sign -reSign yes -wexResign y"),
    ('Tovrek Wrap -Cert "iPhone Distribution: Example C', f'Tovrek Wrap -Cert "{CORPORATION}"'),
    ("Tovrek Wrap -Cert iP", "Tovrek Wrap -Cert " + re.sub(r"([ ()])", r"\\\1", CORPORATION)),
    ("Tovrek Wrap -Cert iPhone\\ Distribution:\\ E",
     "Tovrek Wrap -Cert " + re.sub(r"([ ()])", r"\\\1", CORPORATION)),
    ("Inspect App.ipa --ag", "Inspect App.ipa --against"),
    ("Inspect App.ipa --json --j", "Inspect App.ipa --json --j"),
    ("Inspect n", "Inspect n"),
    ("Inspect T", "Inspect Team.mobileprovision"),
    ("Batch ren", "Batch renew"),
    ("Batch run j", "Batch run jobs.csv"),
    ("Batch run jobs.csv --en", "Batch run jobs.csv --engine"),
    ("Batch run jobs.csv --engine s", "Batch run jobs.csv --engine slurm"),
    ("Batch renew j", "Batch renew j"),
    ("Batch renew G", "Batch renew Gauge.app/"),
    ("Batch renew x --pro", "Batch renew x --profiles"),
)


class Terminal:
    """A shell at a terminal; `show` is a key that prints the line as the shell has it now."""

    def __init__(self, command, setup, folder, environment):
        self.process, self.master = pty.fork()
        if self.process == 0:
            os.chdir(folder)
            os.execvpe(command[0], command, environment)
        self.send(setup + "\necho rea''dy\n")
        self.wait(r"ready\r?\n")

    def send(self, keys):
        os.write(self.master, keys.encode())

    def wait(self, pattern, seconds=20):
        text, end = "", time.monotonic() + seconds
        while not (found := re.search(pattern, text, re.S)):
            if not select.select([self.master], [], [], max(0, end - time.monotonic()))[0]:
                raise AssertionError(f"the terminal shows {text!r}, not {pattern!r}")
            text += os.read(self.master, 65536).decode()
        return found

    def complete(self, line):
        self.send(line + "\t\x18s")  # the key ends the line
        return self.wait(r"<<(.*?)>>").group(1).rstrip().replace("\\:", ":")  # the same word

    def close(self):
        self.send("\x15exit\n")
        os.close(self.master)
        os.waitpid(self.process, 0)


BASH = f"""PS1=; bind 'set enable-bracketed-paste off'; bind 'set bell-style none'
show() {{ printf '<<%s>>' "$READLINE_LINE"; READLINE_LINE=; READLINE_POINT=0; }}
bind -x '"\\C-xs": show'; source {FOLDER}/completion/tovrek.bash"""
ZSH = f"""PS1=; fpath=({FOLDER}/completion $fpath); autoload -Uz compinit; compinit -u -D
unsetopt beep zle_bracketed_paste 2>/dev/null; unset zle_bracketed_paste
show() {{ print -rn -- "<<$BUFFER>>"; BUFFER=; }}
zle -N show; bindkey '^Xs' show; setopt no_auto_remove_slash"""


class Completion(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        work = Path(cls.folder.name, "work")
        for name in FILES:
            (work / name).parent.mkdir(parents=True, exist_ok=True)
            (work / name).write_text("")
        cls.work = work
        cls.environment = {"PATH": f"{FOLDER}:/usr/bin:/bin", "HOME": cls.folder.name,
                           "LC_ALL": "C.UTF-8", "TERM": "dumb"}
        subprocess.run([FOLDER / "host/usr/bin/security", "import",
                        BUILD / "demo/identities/admin.p12", "-P", "demo"],
                       env=cls.environment, check=True, capture_output=True)

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def check(self, command, setup):
        shell = Terminal(command, setup, self.work, self.environment)
        try:
            for typed, wanted in LINES:
                with self.subTest(typed=typed):
                    self.assertEqual(shell.complete(typed), wanted)
        finally:
            shell.close()

    def test_bash(self):
        self.check(["bash", "--norc", "--noprofile"], BASH)

    def test_zsh(self):
        self.check(["zsh", "-f"], ZSH)


if __name__ == "__main__":
    unittest.main()
