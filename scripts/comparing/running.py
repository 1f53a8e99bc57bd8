"""Runs a case and puts down what it did."""
import json
import os
import shutil
import stat
import subprocess

from comparing import contents
from comparing.trees import Tree

SECONDS = 100
LOCALE = "C.UTF-8"
LONGEST_OUTPUT = 4_000_000


class CaseRun:
    def __init__(self, workspace, case, number, masks, trusted_root):
        self.workspace = workspace
        self.case = case
        self.masks = masks
        self.folder = os.path.join(workspace.cases, f"{number:04}")
        self.work = os.path.join(self.folder, "work")
        self.scratch = os.path.join(self.folder, "scratch")
        self.calls = os.path.join(self.folder, "calls")
        self.toolkit = workspace.toolkit
        self.host = workspace.host
        self.trusted_root = trusted_root

    def record(self):
        """Runs all steps; the record is plain data, texts as lists of lines."""
        self.prepare()
        record = {}
        environment = self.environment()
        for number, words in enumerate(self.case.steps, 1):
            record |= self.run_step(f"step {number}", words, environment)
        record["child commands"] = self.call_lines()
        record |= self.file_lines("file", self.work)
        record |= self.file_lines("left in scratch", self.scratch)
        if self.case.own_toolkit:
            record |= self.file_lines("log", os.path.join(self.toolkit, "logs"))
        return record

    def remove(self):
        for base, folders, _ in os.walk(self.folder):
            for name in folders:
                path = os.path.join(base, name)
                if not os.path.islink(path):
                    os.chmod(path, 0o700)
        shutil.rmtree(self.folder)

    def prepare(self):
        for name in ("work", "scratch", "data", "run"):
            os.makedirs(os.path.join(self.folder, name))
        os.chmod(os.path.join(self.folder, "run"), 0o700)
        if self.case.keychain:
            shutil.copytree(self.input(self.case.keychain), self.path("data", "tovrek", "keychain"))
        for name, source in self.case.files.items():
            self.copy_input(source, os.path.join(self.work, name))
        if self.case.own_toolkit:
            self.prepare_toolkit()
        if self.case.settings not in ("shipped", "all"):
            with open(self.path("own.conf"), "w", encoding="utf-8") as file:
                file.write(self.case.settings)

    def prepare_toolkit(self):
        self.toolkit, self.host = self.path("tovrek"), self.path("host")
        shutil.copytree(self.workspace.toolkit, self.toolkit, symlinks=True)
        shutil.copytree(self.workspace.host, self.host, symlinks=True)
        for name in self.case.without:
            path = self.path(name)
            (shutil.rmtree if os.path.isdir(path) else os.remove)(path)
        for name, content in self.case.content.items():
            path = os.path.join(self.toolkit, name)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "wb") as file:
                file.write(content)
            os.chmod(path, 0o755)

    def path(self, *parts):
        return os.path.join(self.folder, *parts)

    def input(self, name):
        return os.path.join(self.workspace.inputs, name)

    def copy_input(self, name, target):
        source = self.input(name)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        if os.path.isdir(source):
            shutil.copytree(source, target, symlinks=True)
        else:
            shutil.copy2(source, target, follow_symlinks=False)

    def environment(self):
        environment = {
            "HOME": self.work, "XDG_DATA_HOME": self.path("data"), "TMPDIR": self.scratch,
            "XDG_RUNTIME_DIR": self.path("run"), "PATH": "/usr/bin:/bin", "LC_ALL": LOCALE,
            "TZ": "UTC", "TOVREK_TRUSTED_ROOT_SHA1": self.trusted_root,
            "TOVREK_HOST_ROOT": self.host, "COMPARE_CALLS": self.calls, "COMPARE_FAIL": ""}
        if self.case.settings == "all":
            environment["TOVREK_CONF"] = self.workspace.all_settings
        elif self.case.settings != "shipped":
            environment["TOVREK_CONF"] = self.path("own.conf")
        return environment | self.case.environment

    def program(self, name):
        if name == "Tovrek":
            return os.path.join(self.toolkit, name)
        companion = os.path.join(self.toolkit, "host", "usr", "bin", name)
        return companion if os.path.exists(companion) else name

    def run_step(self, title, words, environment):
        words = [self.input(word[3:]) if word.startswith("IN/") else word for word in words]
        name = words[0]
        merged = subprocess.STDOUT if self.case.merge else subprocess.PIPE
        try:
            result = subprocess.run(
                [self.program(name), *words[1:]], input=self.case.stdin, stdout=subprocess.PIPE,
                stderr=merged, env=environment, cwd=self.work, timeout=SECONDS, check=False)
            status = str(result.returncode)
            outputs = result.stdout, result.stderr or b""
        except subprocess.TimeoutExpired:
            status, outputs = f"none after {SECONDS} seconds", (b"", b"")
        except OSError as problem:
            status, outputs = f"not started: {problem.strerror}", (b"", b"")
        title = f"{title} ({name})"
        return {f"{title} status": [status],
                f"{title} standard output": self.lines(outputs[0]),
                f"{title} standard error": self.lines(outputs[1])}

    def lines(self, data):
        """An output as lines. Lines keep their blanks, and their ends where these are uncommon."""
        if data[:LONGEST_OUTPUT] != data:
            data = data[:LONGEST_OUTPUT] + b"\n(cut)"
        text = self.masks.text(data.decode("utf-8", "backslashreplace"))
        return text.replace("\r", "\\r").split("\n")

    def call_lines(self):
        if not os.path.exists(self.calls):
            return []
        with open(self.calls, "rb") as file:
            return self.lines(file.read())

    def file_lines(self, title, folder):
        """Everything in a folder: what it is, and what it holds."""
        files, lines = {}, {}
        for base, folders, names in os.walk(folder):
            folders.sort()
            for name in sorted(folders + names):
                path = os.path.join(base, name)
                shown = os.path.relpath(path, folder)
                lines[shown] = [self.item_line(path)]
                if stat.S_ISREG(os.lstat(path).st_mode):
                    with open(path, "rb") as file:
                        files[shown] = file.read()
        tree = Tree(files, self.masks)
        for name, content in files.items():
            lines[name] += contents.describe(name, content, tree)
        return {f"{title} {self.masks.text(name)}": found for name, found in lines.items()}

    def item_line(self, path):
        info = os.lstat(path)
        if stat.S_ISLNK(info.st_mode):
            return self.masks.text(f"link to {os.readlink(path)}")
        return f"mode {info.st_mode:o}, of {self.masks.time(info.st_mtime)[:19]}"


def run_and_store(run, build, path):
    """Runs a case and writes its record to a file."""
    try:
        record = run.record()
    except Exception as problem:  # one case must not end the comparison
        record = {"not compared": [f"{build}: {type(problem).__name__}: {problem}"]}
    with open(path, "w", encoding="utf-8") as file:
        json.dump(record, file)
