"""The rule that disturbed runs are judged by."""
import itertools
import re
import signal
from dataclasses import dataclass

from trials import MEMORY

RIGHT, TOLD, WRONG, CRASHED, HUNG, LEFT = "right", "told", "wrong", "crashed", "hung", "left behind"
VERDICTS = (RIGHT, TOLD, WRONG, CRASHED, HUNG, LEFT)
BAD = (WRONG, CRASHED, HUNG, LEFT)

# A line by which a run that goes on says that something went wrong has one of these.
COMPLAINT = re.compile(
    r"error|fail|warn|cannot|can.t\b|could ?n.t|could not|\bnot\b|\bno\b|unable|missing|invalid|"
    r"unknown|denied|refus|damaged|broken|required|expired|unexpected|too (?:many|long|large|few)",
    re.IGNORECASE)
# A run that fails may say so in any words, but in words.
SENTENCE = re.compile(r"[A-Za-z]{2,}\W+[A-Za-z]{2,}")
# What belongs on a terminal or in the log, and was seen in outputs that had taken over the
# number of a closed descriptor.
FOREIGN = (b"Command Line Interface for", b"Tovrek[", b"-" * 30, b"Option: ", b"[ToolkitLib]")


WITHOUT_ICONS = "Failed to extract icon files"


@dataclass
class Reference:
    """What an undisturbed run does."""
    said: set
    outputs: dict  # lines by name
    changing: dict

    @classmethod
    def of(cls, run):
        return cls(set(run.said), {name: output.lines for name, output in run.outputs.items()},
                   run.changing)


def says(run, reference):
    """Whether the run says that something went wrong."""
    telling = SENTENCE if run.status != 0 else COMPLAINT
    return any(telling.search(line) for line in run.said if line not in reference.said)


def output_problem(name, output, run, is_new, told):
    """What is wrong with an output, if anything.

    A lack of memory excuses nothing but icons, which a package can be without: no text makes half a
    manifest a package.
    """
    if output.data is None:
        return f"{name}: the old output is gone"
    if any(mark in output.data for mark in FOREIGN):
        return f"{name}: foreign bytes in the output"
    if is_new:
        return ""
    if run.status != 0:
        return "" if output.old else f"{name}: neither the old output nor the new one"
    if output.lines is None:
        return f"{name}: status 0, no readable archive"
    lacks_icons = any(WITHOUT_ICONS in line for line in run.said)
    if run.trial.group in MEMORY and not output.old and not lacks_icons:
        return f"{name}: status 0, neither the old output nor the new one"
    if not told:
        return f"{name}: status 0, " + ("not written" if output.old else "differs") + \
            ", nothing said"
    return ""


def first_difference(run, reference):
    """The first line for what is in an output, or the app, that is not as always."""
    pairs = [(name, output.lines, reference.outputs[name]) for name, output in run.outputs.items()]
    pairs += [(name, run.changing.get(name), lines) for name, lines in reference.changing.items()]
    for place, found, expected in pairs:
        for line, other in itertools.zip_longest(found or (), expected, fillvalue="nothing"):
            if ": mode " in other:
                place = other.split(": mode ")[0].strip()
            if line != other:
                return f"{place}: {line.strip()[:120]} instead of {other.strip()[:120]}"
    return ""


def unnamed(left, run):
    """What was left behind without the run's telling so by a name on its way."""
    return [path for path in left
            if not any(len(part) > 8 and part in line and COMPLAINT.search(line)
                       for part in path.split("/")[1:] for line in run.raw_said.splitlines())]


def judge(run, reference):
    """The verdict on a run, and the reasons when it is a bad one.

    Status 0 means an output like that of an undisturbed run or a text that says what is missing,
    any other status a text. No process crashes, none hangs. Inputs stay as they are, an output is
    wholly the older one or wholly the new one, and nothing else is left lying around without a
    word about it. A run that is killed need not clean up.
    """
    if run.timed_out:
        return HUNG, ["did not end"]
    crashes = [f"{program} got signal {number}" for program, number in run.crashes]
    if run.signal not in (0, run.trial.signal) and not crashes:
        crashes = [f"ended by signal {signal.Signals(run.signal).name}"]
    if crashes:
        return CRASHED, crashes
    told = says(run, reference)
    new = {name for name, output in run.outputs.items()
           if output.lines is not None and output.lines == reference.outputs[name]}
    problems = [output_problem(name, output, run, name in new, told)
                for name, output in run.outputs.items()]
    problems += [f"{name}: changed" for name in run.changed_inputs]
    as_always = len(new) == len(run.outputs) and run.changing == reference.changing
    if run.status == 0 and run.changing != reference.changing and not told:
        problems.append("status 0, the app is not as it should be, nothing said")
    if run.status > 0 and not told and not run.trial.mute:
        problems.append(f"status {run.status} without a text")
    problems = [problem for problem in problems if problem]
    if problems:
        return WRONG, problems
    left = [] if run.trial.killed else unnamed(run.left, run)
    if left:
        return LEFT, [f"left: {', '.join(left[:3])}" + (" ..." if len(left) > 3 else "")]
    return (RIGHT if run.status == 0 and as_always else TOLD), []
