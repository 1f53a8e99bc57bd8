#!/usr/bin/env python3
"""Disturbs runs of Tovrek, one way at a time, and judges what they do.

Each command is run undisturbed first, which says what is right and how many system calls of each
group there are. Then each of them fails once: the supervisor refuses the Nth call, in Tovrek itself
or in any program that it starts. Besides, streams are closed or full, files may not grow, disks are
full (as root), and signals come at calls anywhere in the run. With --memory requests for memory
fail instead, by a library that is loaded into the programs.

Prints a table of the verdicts by command and group, and the bad runs by their causes, each with
what repeats it. The exit status is 0 when no run was wrong, crashed, hung or left anything behind;
1 when one did; 2 when the sweep itself could not be made.
"""
import argparse
import multiprocessing
import os
import random
import shutil
import sys
import tempfile
import time

sys.dont_write_bytecode = True

from commands import COMMANDS, Bench, TemplateMaker  # noqa: E402
from judging import BAD, RIGHT, Reference, first_difference, judge  # noqa: E402
from results import Results  # noqa: E402
from trials import MEMORY, Runner, Trial, all_places, choose, may_mount  # noqa: E402

FULL_SIGNALS = 60
# A sample is drawn from one run of each group and command. It has to fit into a test.
SAMPLE = 100
# The same of requests for memory: of each command, for one that fails and for all that do. There
# are hundreds of thousands of them.
MEMORY_SAMPLE, MEMORY_RUNS = 3, 200


def arguments_of(words):
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", metavar="BUILD", help="a build folder, with tovrek/ and demo/")
    parser.add_argument("--supervisor", metavar="FILE",
                        help="by default tests/faults/fault_supervisor of the build")
    parser.add_argument("--command", metavar="NAME", action="append",
                        choices=[command.name for command in COMMANDS],
                        help="only this command; may be given several times")
    parser.add_argument("--group", metavar="NAME", action="append",
                        help="only this group of disturbances; may be given several times")
    parser.add_argument("--memory", action="store_true",
                        help="only requests for memory, one of them failing or all from it on; "
                             f"{MEMORY_RUNS} runs of each group and command, unless --runs says "
                             "another number")
    parser.add_argument("--sample", action="store_true",
                        help=f"{SAMPLE} runs of all groups and commands, instead of all")
    parser.add_argument("--runs", type=int, metavar="N", help="N runs of each group and command")
    parser.add_argument("--minutes", type=float, metavar="N", help="as many runs, in any order, as "
                                                                  "can be made in that time")
    parser.add_argument("--seed", default="1", help="chooses among the runs (default 1)")
    parser.add_argument("--run", metavar="NAME", action="append",
                        help="only this run, as the list of bad runs names it; keeps its folder "
                             "and shows what it says")
    parser.add_argument("--jobs", type=int, default=2, metavar="N",
                        help="runs at the same time (default 2)")
    return parser.parse_args(words)


def run_trial(bench, reference, command, trial):
    """Runs and judges a trial: the run without its bulky parts, the verdict and the reasons."""
    run = Runner(bench, command).run(trial)
    verdict, reasons = judge(run, reference)
    run.difference = first_difference(run, reference) if run.status == 0 else ""
    run.outputs, run.changing, run.said, run.raw_said = {}, {}, [], ""
    return run, verdict, reasons


class Worker:
    """What a process of the sweep works with: too much to be sent along with each trial."""
    sweep = None
    deadline = None

    @classmethod
    def prepare(cls, sweep, deadline):
        cls.sweep, cls.deadline = sweep, deadline

    @classmethod
    def run_in_time(cls, trial):
        """Runs a trial unless the time for all of them is up; nothing then."""
        if cls.deadline is not None and time.monotonic() >= cls.deadline:
            return None
        return run_trial(cls.sweep.bench, cls.sweep.references[trial.command],
                         cls.sweep.commands[trial.command], trial)


class Sweep:
    def __init__(self, arguments, bench, commands=COMMANDS):
        self.arguments = arguments
        self.bench = bench
        self.commands = {command.name: command for command in commands
                         if not arguments.command or command.name in arguments.command}
        self.references = {}
        self.counts = {}
        self.results = Results()

    def find_references(self):
        """Runs each command undisturbed; two runs have to be the same, or nothing can be judged."""
        for command in self.commands.values():
            runner = Runner(self.bench, command)
            reference = Reference.of(runner.run(Trial(command.name, "undisturbed")))
            if any(lines is None for lines in reference.outputs.values()):
                raise RuntimeError(f"{command.name} fails undisturbed")
            counted = runner.run(Trial(command.name, "counting"))
            verdict, reasons = judge(counted, reference)
            if verdict != RIGHT:
                raise RuntimeError(f"{command.name} undisturbed: {verdict}, {reasons}")
            self.references[command.name] = reference
            self.counts[command.name] = counted.counts
            if set(MEMORY) & set(self.arguments.group or ()):
                # Apart from the others, as what counts these makes calls itself.
                memory = runner.run(Trial(command.name, MEMORY[0], "0"))
                if not memory.counts["allocation"]:
                    raise RuntimeError("requests for memory are not seen")
                self.counts[command.name] |= memory.counts

    def trials(self):
        arguments = self.arguments
        if arguments.run:
            return [Trial(*name.split("/")) for name in arguments.run]
        disks = may_mount(self.bench.folder)
        if not disks:
            print("Left out: full disks, as no file system can be mounted.")
        runs = arguments.runs or (1 if arguments.sample else 0)
        if arguments.memory:
            runs = arguments.runs or (MEMORY_SAMPLE if arguments.sample else MEMORY_RUNS)
        signals = runs or FULL_SIGNALS
        found = []
        for command in self.commands.values():
            places = all_places(self.counts[command.name], disks)
            places = {group: where for group, where in places.items()
                      if group in (arguments.group or set(places) - set(MEMORY))}
            found += choose(command.name, places, runs, signals, arguments.seed)
        if arguments.sample and len(found) > SAMPLE:
            found = random.Random(arguments.seed).sample(found, SAMPLE)
        return found

    def run(self):
        """Does everything; the number of bad runs."""
        self.find_references()
        trials, minutes = self.trials(), self.arguments.minutes
        if minutes:
            # What is done in that time is to be of all groups.
            random.Random(self.arguments.seed).shuffle(trials)
        start = time.monotonic()
        deadline = start + 60 * minutes if minutes else None
        done, shown = 0, 0
        with multiprocessing.Pool(self.arguments.jobs, Worker.prepare, (self, deadline)) as pool:
            for result in filter(None, pool.imap_unordered(Worker.run_in_time, trials)):
                self.results.take(*result)
                done += 1
                if time.monotonic() - start > shown + 30:
                    shown = time.monotonic() - start
                    print(f"{done} of {len(trials)} runs", file=sys.stderr, flush=True)
        print(f"{done} of {len(trials)} runs in {time.monotonic() - start:.0f} seconds\n")
        self.results.print_table()
        self.results.print_bad_runs()
        return len(self.results.bad)

    def show_runs(self):
        """Runs the named trials one after the other in folders that stay; how many are bad."""
        self.find_references()
        bad = 0
        for trial in self.trials():
            folder = os.path.join(self.bench.folder, trial.name.replace("/", " "))
            run = Runner(self.bench, self.commands[trial.command], folder).run(trial)
            verdict, reasons = judge(run, self.references[trial.command])
            bad += verdict in BAD
            print(f"{trial.name}: {verdict} (status {run.status}) {'; '.join(reasons)}\n{run.hit}\n"
                  f"{first_difference(run, self.references[trial.command])}\n"
                  f"in {folder}\n--- standard error and log:\n{run.raw_said}---")
        return bad


def main(words):
    arguments = arguments_of(words)
    build = os.path.abspath(arguments.build)
    demo = os.path.join(build, "demo")
    supervisor = arguments.supervisor or os.path.join(build, "tests", "faults", "fault_supervisor")
    if arguments.memory:
        arguments.group = MEMORY
    if arguments.run:
        arguments.command = list({name.split("/")[0] for name in arguments.run})
    with open(os.path.join(demo, "identities", "root.sha1"), encoding="utf-8") as file:
        trusted_root = file.read().strip()
    folder = tempfile.mkdtemp(prefix="tovrek-faults-")
    try:
        bench = Bench(folder, os.path.join(build, "tovrek"), os.path.abspath(supervisor),
                      trusted_root)
        TemplateMaker(bench, demo).make()
        sweep = Sweep(arguments, bench)
        return 1 if (sweep.show_runs() if arguments.run else sweep.run()) else 0
    except RuntimeError as problem:
        print(f"faults: {problem}", file=sys.stderr)
        return 2
    finally:
        if not arguments.run:
            shutil.rmtree(folder)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
