"""Disturbed runs: how each is named, what it is, and what is put down about it."""
import hashlib
import os
import random
import re
import shutil
import signal
import stat
import subprocess
import sys
import zipfile
from dataclasses import dataclass, field

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.dirname(
    os.path.abspath(__file__)))), "scripts"))

from comparing import contents  # noqa: E402
from comparing.masking import Masks  # noqa: E402
from comparing.trees import Tree  # noqa: E402

STREAMS = {"input": 0, "output": 1, "errors": 2}
SIGNALS = ("SIGINT", "SIGTERM", "SIGKILL")
# One request for memory fails, or all of a process from one on.
MEMORY = ("allocation", "exhaustion")
FILE_SIZES = (0, 100, 1000, 4096, 12000, 30000, 50000, 60000, 70000, 150000)
DISK_SIZES = (4096, 16384, 32768, 65536, 131072, 262144, 524288, 1048576)
# What a description tells of the form that an entry of an archive is packed in.
PACKING = re.compile(r" version \d+(?:/\d+)? flags 0x[0-9a-f]+ method \d+|\d+ bytes packed, ")
# Folders that stay in the scratch place from run to run.
LASTING = ("com.orvane.wex",)


@dataclass(frozen=True)
class Trial:
    """Named COMMAND/GROUP/PLACE, for instance wrap/open/17 for the 17th opening of a file.

    Other groups than those of calls: "undisturbed"; "closed" with the name of a stream; "full", a
    stream to a device that is full; "size", the largest file; "scratch disk" and "output disk",
    what these disks hold; a signal with the call, of all, at which it comes.
    """
    command: str
    group: str
    place: str = ""

    @property
    def name(self):
        return f"{self.command}/{self.group}/{self.place}"

    @property
    def killed(self):
        return self.group == "SIGKILL"

    @property
    def signal(self):
        """The signal that the run may end by; 0 for none."""
        return getattr(signal, self.group) if self.group in SIGNALS else 0

    @property
    def mute(self):
        """Whether nothing that it says on standard error can be heard."""
        return self.group in ("closed", "full") and self.place == "errors"

    def options(self):
        """The supervisor's options."""
        if self.group == "closed":
            return ["--close", str(STREAMS[self.place])]
        if self.group == "size":
            return ["--file-size", self.place]
        if self.group in SIGNALS:
            return ["--calls", "all", "--hit", self.place, "--signal", self.group[3:]]
        if self.group == "counting":
            return ["--calls", "all"]
        if self.group in MEMORY:
            return ["--" + self.group, self.place]
        if self.group in ("undisturbed", "full", "scratch disk", "output disk"):
            return []
        return ["--calls", self.group, "--hit", self.place]


@dataclass
class Run:
    """What a run has done."""
    trial: Trial
    status: int = 0
    signal: int = 0  # that the program was ended by
    timed_out: bool = False
    counts: dict = field(default_factory=dict)  # calls by group
    hit: dict = field(default_factory=dict)  # the call, its path, its program and arguments
    crashes: list = field(default_factory=list)  # (program, signal)
    said: list = field(default_factory=list)  # lines of standard error and log, masked
    raw_said: str = ""
    outputs: dict = field(default_factory=dict)  # an Output by name
    changed_inputs: list = field(default_factory=list)
    left: list = field(default_factory=list)
    difference: str = ""  # of what it made to what is made undisturbed
    changing: dict = field(default_factory=dict)  # the lines for files that the command completes

    def was_hit(self):
        """Whether the disturbance came to be."""
        options = self.trial.options()
        return bool(self.hit) or not ("--hit" in options or self.trial.group in MEMORY)


@dataclass
class Output:
    """An output as it is after the run."""
    data: bytes = None  # None when it is gone
    old: bool = False  # whether it is the older one
    lines: list = None  # what it holds; None for what is no archive


class Runner:
    """Runs trials of one command, one at a time."""

    def __init__(self, bench, command, folder=None):
        self.bench = bench
        self.command = command
        self.folder = folder or os.path.join(bench.folder, f"run {os.getpid():08}")
        self.masks = Masks(self.folder)

    def path(self, *parts):
        return os.path.join(self.folder, *parts)

    def run(self, trial):
        """Runs a trial in a fresh folder, which stays until the next one."""
        self.prepare()
        disk = {"scratch disk": self.path("scratch"), "output disk": self.path("work", "out")}
        place = disk.get(trial.group)
        if place:
            self.mount(place, int(trial.place))
        try:
            before = self.inputs()
            run = self.execute(trial)
            self.look(run, before)
        finally:
            if place:
                subprocess.run(["umount", place], check=True)
        return run

    def prepare(self):
        shutil.rmtree(self.folder, ignore_errors=True)
        shutil.copytree(self.bench.template(self.command), self.folder, symlinks=True)
        os.makedirs(self.path("scratch"))
        given = [self.path("work", name) for name in os.listdir(self.path("work"))]
        packages = [path for path in given if path.endswith(".wex") and zipfile.is_zipfile(path)]
        self.masks.stated_sizes = {contents.stated_size(path) for path in packages}

    def mount(self, place, size):
        """A disk of this size beyond what lies in the folder."""
        used = 0
        for name in os.listdir(place):
            used += -(-os.path.getsize(os.path.join(place, name)) // 4096) * 4096
        subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={used + size}", "faults", place],
                       check=True)
        for name in self.command.outputs if used else ():
            shutil.copy(self.bench.template(self.command, "work", "out", name), place)

    def command_line(self, trial):
        return [self.bench.supervisor, "--report", self.path("report"), "--seconds",
                str(self.bench.seconds), *trial.options(), "--",
                os.path.join(self.bench.toolkit, "Tovrek"), *self.command.words]

    def execute(self, trial):
        full = trial.place if trial.group == "full" else ""
        with open("/dev/full", "wb") as device:
            result = subprocess.run(
                self.command_line(trial), stdin=subprocess.DEVNULL,
                stdout=device if full == "output" else subprocess.PIPE,
                stderr=device if full == "errors" else subprocess.PIPE,
                env=self.bench.environment(self.folder), cwd=self.path("work"), check=False,
                timeout=self.bench.seconds + 30)
        run = Run(trial)
        self.read_report(run, result)
        text = (result.stderr or b"") + self.read("work", "log")
        run.raw_said = text.decode("utf-8", "backslashreplace")
        run.said = self.masks.text(run.raw_said).splitlines()
        return run

    def read_report(self, run, result):
        if not os.path.exists(self.path("report")):
            raise RuntimeError(f"{run.trial.name}: the supervisor did not run it: "
                               f"{(result.stderr or b'').decode(errors='replace')}")
        for line in self.read("report").decode("utf-8", "backslashreplace").splitlines():
            key, _, value = line.partition(" ")
            words = value.split(" ")
            if key == "count":
                run.counts[words[0]] = int(words[1])
            elif key == "hit":
                run.hit["call"] = words[1]
            elif key in ("path", "program", "arguments"):
                run.hit[key] = value
            elif key == "crash":
                run.crashes.append((" ".join(words[1:]), int(words[0])))
            elif key == "ended":
                run.timed_out = value == "timeout"
                run.signal = int(words[1]) if words[0] == "signal" else 0
                run.status = int(words[1]) if words[0] == "exit" else -run.signal

    def read(self, *parts):
        try:
            with open(self.path(*parts), "rb") as file:
                return file.read()
        except OSError:
            return b""

    def look(self, run, before):
        """Puts down all that the run has left behind."""
        for name in self.command.outputs:
            run.outputs[name] = self.output(name)
        after = self.inputs()
        run.changed_inputs = sorted(name for name in before if before[name] != after.get(name))
        known = {"work/log", *("work/out/" + name for name in self.command.outputs)}
        run.left = sorted(after.keys() - before.keys() - known)
        left = files_below(self.path("scratch"))
        run.left += [os.path.relpath(path, self.folder) for path in left
                     if not is_lasting(os.path.basename(path))]
        for folder in self.command.changing:
            run.changing |= self.tree_lines(folder)

    def output(self, name):
        path = self.path("work", "out", name)
        if not os.path.isfile(path):
            return Output()
        data = self.read("work", "out", name)
        with open(self.bench.template(self.command, "work", "out", name), "rb") as file:
            old = file.read()
        # How an entry is packed is no matter of right or wrong: where its packed form cannot be had
        # from the input, it is packed again.
        lines = [PACKING.sub("", line) for line in
                 contents.describe(name, data, Tree({name: data}, self.masks))]
        is_archive = bool(lines) and lines[0].startswith("archive of")
        return Output(data, data == old, lines if is_archive else None)

    def inputs(self):
        """All that the run has to leave alone: what each file is, by its path."""
        skipped = tuple(self.path("work", name) for name in ("out/", "log", *(
            folder + "/" for folder in self.command.changing)))
        found = {}
        for folder in ("work", "data"):
            for path in files_below(self.path(folder)):
                if not path.startswith(skipped):
                    found[os.path.relpath(path, self.folder)] = state_of(path)
        for name in os.listdir(self.path("work", "out")):
            if name not in self.command.outputs:
                found["work/out/" + name] = "new"
        return found

    def tree_lines(self, folder):
        files = {os.path.relpath(path, self.folder): self.read(path)
                 for path in files_below(self.path("work", folder)) if os.path.isfile(path)}
        tree = Tree(files, self.masks)
        return {name: list(contents.describe(name, data, tree)) for name, data in files.items()}


def files_below(folder):
    return [os.path.join(base, name) for base, folders, names in os.walk(folder)
            for name in folders + names]


def is_lasting(name):
    return name in LASTING or name.startswith("tovrek-")


def state_of(path):
    info = os.lstat(path)
    content = ""
    if stat.S_ISREG(info.st_mode):
        with open(path, "rb") as file:
            content = hashlib.sha256(file.read()).hexdigest()
    return f"{info.st_mode:o} {content}"


def may_mount(folder):
    """Whether small disks can be made here."""
    place = os.path.join(folder, "disk")
    os.makedirs(place, exist_ok=True)
    done = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=4k", "faults", place], check=False,
                          capture_output=True).returncode == 0
    if done:
        subprocess.run(["umount", place], check=True)
    return done


def all_places(counts, disks):
    """Every place at which a command can be disturbed, by group."""
    places = {group: range(1, count + 1) for group, count in counts.items()
              if group not in MEMORY}
    total = sum(map(len, places.values()))
    places |= {name: range(1, counts.get("allocation", 0) + 1) for name in MEMORY}
    places |= {"closed": list(STREAMS), "full": ["output", "errors"], "size": FILE_SIZES}
    if disks:
        places |= {"scratch disk": DISK_SIZES, "output disk": DISK_SIZES}
    return places | {name: range(1, total + 1) for name in SIGNALS}


def choose(command, places, runs, signals, seed):
    """The trials of a command: `runs` of each group, all for 0, and `signals` of each signal."""
    chosen = []
    for group, candidates in places.items():
        wanted = signals if group in SIGNALS else runs
        if wanted and len(candidates) > wanted:
            candidates = sorted(random.Random(f"{seed} {command} {group}").sample(
                list(enumerate(candidates)), wanted))
            candidates = [place for _, place in candidates]
        chosen += [Trial(command, group, str(place)) for place in candidates]
    return chosen
