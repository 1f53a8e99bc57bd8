"""The commands that are disturbed, and the folders they are run in."""
import os
import shutil
import subprocess
from dataclasses import dataclass

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
ADMIN = "iPhone Distribution: Example Corporation (EXAMPLE123)"
BRANCH = "iPhone Distribution: Example Branch (EXAMPLE456)"
# Errors and warnings only: what stands in the log then was meant to be read.
LOG = ("-logFile", "log", "-logWriteLevel", "2")
BY_ADMIN = ("-Cert", ADMIN, "-Profile", "Example.mobileprovision", *LOG)
BY_BRANCH = ("-Cert", BRANCH, "-Profile", "Branch.mobileprovision", *LOG)


@dataclass(frozen=True)
class Command:
    name: str
    words: tuple
    outputs: tuple  # in the folder "out", where older ones stand already
    changing: tuple = ()  # folders that the command completes where they stand


COMMANDS = (
    Command("wrap", ("Wrap", *BY_ADMIN, "-in", "App.ipa", "-out", "out/New.wex"), ("New.wex",)),
    Command("wrap-bundle", ("Wrap", *BY_ADMIN, "-in", "App.ipa", "-out", "out/New.wex",
                            "-outBundle", "out/New.ipa"), ("New.wex", "New.ipa")),
    Command("sign-ipa", ("Sign", *BY_BRANCH, "-in", "App.ipa", "-out", "out/New.ipa"),
            ("New.ipa",)),
    Command("sign-wex", ("Sign", *BY_BRANCH, "-in", "App.wex", "-out", "out/New.wex"),
            ("New.wex",)),
    Command("set-info", ("SetInfo", "-in", "App.wex", "-out", "out/New.wex", "-appDesc",
                         "Other words", "-minPlatform", "11.0", *LOG), ("New.wex",)),
    Command("sdk-prep", ("SdkPrep", "-in", "Gauge.app", "-out", "out/New.wex", "-storeURL",
                         "https://apps.example.com/gauge", "-entitlements", "entitlements.plist",
                         *LOG), ("New.wex",), ("Gauge.app",)),
    Command("enterprise", ("Wrap", *BY_ADMIN, "-in", "Gauge.app", "-out", "out/New.wex", "-appType",
                           "enterprise", "-storeURL", "https://apps.example.com/gauge"),
            ("New.wex", "New_SDK.ipa"), ("Gauge.app",)),
)


class Bench:
    """The folder of a sweep.

        FOLDER/templates/COMMAND   what a run of this command begins with:
          work                       its current folder, with the inputs
          work/out                   the older outputs
          data                       its keychain
        FOLDER/run PROCESS         the run that a process of the sweep is at
    """

    def __init__(self, folder, toolkit, supervisor, trusted_root="", seconds=40):
        self.folder = folder
        self.toolkit = toolkit
        self.supervisor = supervisor
        self.trusted_root = trusted_root
        self.seconds = seconds

    def template(self, command, *parts):
        return os.path.join(self.folder, "templates", command.name, *parts)

    def environment(self, folder):
        return {"HOME": folder, "XDG_DATA_HOME": os.path.join(folder, "data"),
                "TMPDIR": os.path.join(folder, "scratch"), "PATH": "/usr/bin:/bin",
                "LC_ALL": "C.UTF-8", "TZ": "UTC",
                "TOVREK_TRUSTED_ROOT_SHA1": self.trusted_root}


class TemplateMaker:
    """Makes the templates of all commands from the demo's files."""

    def __init__(self, bench, demo):
        self.bench = bench
        self.demo = demo
        self.folder = os.path.join(bench.folder, "making")

    def make(self):
        for name in ("data", "scratch"):
            os.makedirs(os.path.join(self.folder, name))
        for name in ("admin", "branch"):
            self.run(os.path.join("host", "usr", "bin", "security"), "import",
                     os.path.join(self.demo, "identities", name + ".p12"), "-P", "demo")
        for name in ("Example.mobileprovision", "Branch.mobileprovision"):
            shutil.copy(os.path.join(self.demo, name), self.folder)
        shutil.copy(os.path.join(self.demo, "Fieldbook.ipa"), self.path("App.ipa"))
        shutil.copytree(os.path.join(self.demo, "sdk", "Gauge.app"), self.path("Gauge.app"))
        shutil.copy(os.path.join(ROOT, "demo", "sdk_app", "entitlements.plist"), self.folder)
        self.run("Tovrek", "Wrap", *BY_ADMIN, "-in", "App.ipa", "-out", "App.wex")
        self.run("Tovrek", "SetInfo", "-in", "App.wex", "-out", "Old.wex", "-appDesc", "old", *LOG)
        shutil.copy(self.path("App.ipa"), self.path("Old.ipa"))
        for command in COMMANDS:
            self.make_template(command)
        shutil.rmtree(self.folder)

    def path(self, name):
        return os.path.join(self.folder, name)

    def run(self, program, *words):
        subprocess.run([os.path.join(self.bench.toolkit, program), *words], check=True,
                       capture_output=True, cwd=self.folder, stdin=subprocess.DEVNULL,
                       env=self.bench.environment(self.folder))

    def make_template(self, command):
        work = self.bench.template(command, "work")
        os.makedirs(os.path.join(work, "out"))
        shutil.copytree(self.path("data"), self.bench.template(command, "data"))
        for word in command.words:
            source = self.path(word)
            if os.path.isdir(source):
                shutil.copytree(source, os.path.join(work, word))
            elif os.path.isfile(source) and word != "log":
                shutil.copy(source, work)
        for name in command.outputs:
            shutil.copy(self.path("Old" + os.path.splitext(name)[1]),
                        os.path.join(work, "out", name))
