"""The program itself: makes the inputs, runs all cases with one build and the other, compares."""
import argparse
import fnmatch
import functools
import json
import multiprocessing
import os
import shutil
import sys
import tempfile
import time

from comparing import contents, damage, program_cases, signing_cases, toolkit_cases
from comparing.case import Case
from comparing.inputs import InputMaker
from comparing.masking import Masks
from comparing.reporting import report
from comparing.running import CaseRun, run_and_store
from comparing.trees import Tree
from comparing.workspace import Workspace

PROFILE = "Example.mobileprovision"
PROGRAMS = ("arm64", "armv7", "universal", "library", "objects")


def arguments_of(words, description):
    parser = argparse.ArgumentParser(
        prog="compare", description=description,
        formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("old", metavar="OLD", help="install folder of the one build")
    parser.add_argument("new", metavar="NEW", help="install folder of the other build")
    parser.add_argument("--inputs", metavar="FOLDER",
                        help="what the build made of demo/; by default the folder \"demo\" beside "
                             "OLD")
    parser.add_argument("--real", metavar="FOLDER", help="a folder with real apps, programs and "
                                                         "profiles to run the commands on as well")
    parser.add_argument("--only", metavar="PATTERN", action="append",
                        help="run only cases whose names match, as in --only 'sign/*'; may be "
                             "given several times; a word without * is looked for anywhere")
    parser.add_argument("--list", action="store_true", help="print the names of the cases")
    parser.add_argument("--keep", action="store_true", help="keep the folder of the comparison")
    parser.add_argument("--jobs", type=int, default=2, metavar="N",
                        help="cases that run at the same time (default 2)")
    parser.add_argument("--parts", type=int, default=4, metavar="N",
                        help="parts of a case whose differences are shown (default 4)")
    return parser.parse_args(words)


def problem_with(arguments):
    """What is wrong with the folders that were given; nothing when they will do."""
    for folder in (arguments.old, arguments.new):
        if not os.access(os.path.join(folder, "Tovrek"), os.X_OK):
            return f"{folder} is no install folder: there is no program Tovrek in it"
    if not os.path.isfile(os.path.join(arguments.inputs, PROFILE)):
        return f"{arguments.inputs} holds no demo files; name their folder with --inputs"
    if arguments.real and not os.path.isdir(arguments.real):
        return f"{arguments.real} is no folder"
    return "" if arguments.jobs > 0 else "--jobs must be at least 1"


def all_cases(real):
    """All cases; `real` are the names in the folder of real apps."""
    images = damage.images({name: bytes(20000) for name in PROGRAMS})
    cases = []
    for group in (toolkit_cases, program_cases, signing_cases):
        cases += group.cases(list(images), real)
    names = [case.name for case in cases]
    twice = {name for name in names if names.count(name) > 1}
    if twice:
        raise ValueError(f"two cases of one name: {sorted(twice)}")
    return cases


def is_wanted(name, patterns):
    return not patterns or any(
        fnmatch.fnmatchcase(name, pattern if "*" in pattern else f"*{pattern}*")
        for pattern in patterns)


class Comparison:
    def __init__(self, arguments, workspace, cases):
        self.arguments = arguments
        self.workspace = workspace
        self.cases = cases
        self.builds = {"old": arguments.old, "new": arguments.new}
        self.masks = Masks(workspace.folder)

    def run(self):
        """Does everything; the number of cases that differ."""
        self.workspace.make(self.builds)
        for name in self.builds:
            self.record_installation(name)
        self.workspace.share_content("old", "new")
        maker = InputMaker(self.workspace, self.arguments.inputs, self.arguments.real)
        self.workspace.put_in_place("old")
        maker.make()
        self.workspace.put_away("old")
        inputs = self.workspace.input_state()
        for name in self.builds:
            self.workspace.set_installation_times(name)
            self.run_build(name, maker.trusted_root())
            self.check_inputs(inputs, name)
        return self.compare()

    def check_inputs(self, before, build):
        after = self.workspace.input_state()
        changed = sorted(path for path in before.keys() | after.keys()
                         if before.get(path) != after.get(path))
        if changed:
            raise RuntimeError(f"the {build} build has changed the inputs {changed[:5]}; a case "
                               "has to be given copies of these")

    def record_path(self, build, number):
        return os.path.join(self.workspace.records, build, f"{number:04}.json")

    def record_installation(self, build):
        """What is installed. Programs differ from build to build: their names and modes count."""
        run = CaseRun(self.workspace, Case("", []), 0, self.masks, "")
        folder = self.workspace.resting(build)
        files = {}
        for base, folders, names in os.walk(folder):
            for name in folders + names:
                path = os.path.join(base, name)
                shown = os.path.relpath(path, folder)
                files["installed " + shown] = [run.item_line(path).split(", of ")[0]]
                if name in names and "bin/" not in shown and name != "Tovrek":
                    with open(path, "rb") as file:
                        data = file.read()
                    lines = contents.describe(name, data, Tree({}, self.masks))
                    files["installed " + shown] += without_signatures(lines)
        with open(self.record_path(build, 0), "w", encoding="utf-8") as file:
            json.dump(dict(sorted(files.items())), file)

    def run_build(self, build, trusted_root):
        begun = time.monotonic()
        self.workspace.put_in_place(build)
        run = functools.partial(self.run_case, build=build, trusted_root=trusted_root)
        with multiprocessing.Pool(self.arguments.jobs) as pool:
            done = pool.imap_unordered(run, range(1, len(self.cases) + 1))
            for count, _ in enumerate(done, 1):
                show_progress(f"{build} build: {count} of {len(self.cases)} cases")
        self.workspace.put_away(build)
        show_progress("")
        print(f"{build} build: {len(self.cases)} cases in {time.monotonic() - begun:.0f} seconds",
              file=sys.stderr)

    def run_case(self, number, build, trusted_root):
        case = self.cases[number - 1]
        run = CaseRun(self.workspace, case, number, self.masks, trusted_root)
        run_and_store(run, build, self.record_path(build, number))
        if self.arguments.keep:
            os.rename(run.folder, run.folder + " " + build)
        else:
            run.remove()

    def compare(self):
        differing = 0
        for number in range(len(self.cases) + 1):
            name = self.cases[number - 1].name if number else "installed files"
            lines = report(name, [self.record_path(build, number) for build in self.builds],
                           self.arguments.parts)
            differing += bool(lines)
            print("".join(line + "\n" for line in lines), end="")
        return differing


def without_signatures(lines):
    """The lines on a file without those on signatures, which each build's demo makes anew."""
    kept, in_signature = [], False
    for line in lines:
        if line.startswith("  signature of "):
            in_signature = True
        elif line.startswith("  image of "):
            in_signature = False
        if not in_signature:
            kept.append(line)
    return kept


def show_progress(text):
    if sys.stderr.isatty():
        print(f"\r\033[K{text}", end="", file=sys.stderr, flush=True)


def main(words, description):
    """Runs the program; its exit status."""
    arguments = arguments_of(words, description)
    arguments.old, arguments.new = map(os.path.abspath, (arguments.old, arguments.new))
    arguments.inputs = os.path.abspath(
        arguments.inputs or os.path.join(os.path.dirname(arguments.old), "demo"))
    problem = problem_with(arguments)
    if problem:
        print(f"compare: {problem}", file=sys.stderr)
        return 2
    real = sorted(os.listdir(arguments.real)) if arguments.real else []
    cases = [case for case in all_cases(real) if is_wanted(case.name, arguments.only)]
    if arguments.list:
        print("\n".join(case.name for case in cases))
        return 0
    if not cases:
        print("compare: no case has such a name", file=sys.stderr)
        return 2
    folder = tempfile.mkdtemp(prefix="compare-")
    try:
        differing = Comparison(arguments, Workspace(folder), cases).run()
    finally:
        if arguments.keep:
            print(f"compare: kept in {folder}", file=sys.stderr)
        else:
            shutil.rmtree(folder, ignore_errors=True)
    print(f"{len(cases) + 1} cases, {differing} differ")
    return 1 if differing else 0
