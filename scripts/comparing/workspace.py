"""The folder of a comparison, in which both builds run at the same places.

    WORK/tovrek    the build whose turn it is
    WORK/host      a host root that notes each child's command line and runs that build's programs
    WORK/inputs    what the cases are run on
    WORK/cases     a folder for each case while it runs
    WORK/records   what the cases of each build have done
"""
import os
import shutil

SETTINGS = ("modernImages", "strictHeaderRoom", "resignNested", "resignWrapped", "keepPlistLimits",
            "refreshOnResign", "keepExtensionsOnSign")

# Installed files get this time: some answers tell when a program was installed.
INSTALLED = 1_600_000_000

# Notes folder and words of a call, one in a line. COMPARE_FAIL ("tool", "tool 3" for its third
# call) makes calls fail instead, with the status COMPARE_STATUS.
WRAPPER = """#!/bin/sh
{{ printf '{name}'; for word in "$@"; do printf ' |%s|' "$word"; done
  printf ' in %s\\n' "$PWD"; }} >>"$COMPARE_CALLS"
case $COMPARE_FAIL in
  {name}) exit "$COMPARE_STATUS" ;;
  '{name} '*)
    count=$(grep -c '^{name}\\( \\|$\\)' "$COMPARE_CALLS")
    [ "$COMPARE_FAIL" != "{name} $count" ] || exit "$COMPARE_STATUS" ;;
esac
exec '{program}' "$@"
"""


class Workspace:
    def __init__(self, folder):
        self.folder = folder
        self.toolkit = os.path.join(folder, "tovrek")
        self.host = os.path.join(folder, "host")
        self.inputs = os.path.join(folder, "inputs")
        self.cases = os.path.join(folder, "cases")
        self.records = os.path.join(folder, "records")
        self.all_settings = os.path.join(folder, "all-settings.conf")

    def make(self, builds):
        """Makes the folders, and copies the builds, given by name, so that nothing changes them."""
        for path in (self.inputs, self.cases, self.records):
            os.makedirs(path)
        for name, source in builds.items():
            shutil.copytree(source, self.resting(name), symlinks=True)
            os.makedirs(os.path.join(self.records, name))
        with open(self.all_settings, "w", encoding="utf-8") as file:
            file.writelines(f"{name} = yes\n" for name in SETTINGS)

    def resting(self, name):
        """Where a build lies while it is not its turn."""
        return os.path.join(self.folder, "build " + name)

    def share_content(self, giver, taker):
        """Gives one build the content folder of the other.

        The signatures in it name certificates that each build makes for itself, and the inputs fit
        those of one build only.
        """
        target = os.path.join(self.resting(taker), "Data")
        shutil.rmtree(target, ignore_errors=True)
        shutil.copytree(os.path.join(self.resting(giver), "Data"), target, symlinks=True)

    def set_installation_times(self, name):
        for base, folders, files in os.walk(self.resting(name)):
            for item in folders + files:
                os.utime(os.path.join(base, item), (INSTALLED, INSTALLED), follow_symlinks=False)

    def put_in_place(self, name):
        """Begins a build's turn."""
        os.rename(self.resting(name), self.toolkit)
        self._make_host()

    def put_away(self, name):
        shutil.rmtree(self.host)
        os.rename(self.toolkit, self.resting(name))

    def _make_host(self):
        programs = os.path.join(self.toolkit, "host", "usr", "bin")
        shutil.copytree(os.path.join(self.toolkit, "host"), self.host, symlinks=True,
                        ignore=shutil.ignore_patterns("bin"))
        folder = os.path.join(self.host, "usr", "bin")
        os.makedirs(folder)
        for name in os.listdir(programs):
            path = os.path.join(folder, name)
            with open(path, "w", encoding="utf-8") as file:
                file.write(WRAPPER.format(name=name, program=os.path.join(programs, name)))
            os.chmod(path, 0o755)
            os.utime(path, (INSTALLED, INSTALLED))

    def input_state(self):
        """What the inputs are: cases have to leave them alone, as both builds use them."""
        return {path: (info.st_mode, info.st_size, info.st_mtime_ns)
                for base, folders, files in os.walk(self.inputs) for name in folders + files
                for path in [os.path.join(base, name)] for info in [os.lstat(path)]}

    def companion(self, name):
        return os.path.join(self.toolkit, "host", "usr", "bin", name)
