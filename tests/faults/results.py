"""What a sweep has found: the table of verdicts, and the bad runs by their causes."""
import collections
import os
import re

from judging import BAD, LEFT, VERDICTS

COLUMNS = ("hit", *VERDICTS)


class Results:
    def __init__(self):
        self.verdicts = collections.defaultdict(collections.Counter)  # by (command, group)
        self.bad = []

    def take(self, run, verdict, reasons):
        row = self.verdicts[run.trial.command, run.trial.group]
        row["hit"] += run.was_hit()
        row[verdict] += 1
        if verdict in BAD:
            self.bad.append((run, verdict, reasons))

    def print_table(self):
        print(f"{'command':12} {'group':13}" + "".join(f"{name:>12}" for name in COLUMNS))
        for (command, group), row in sorted(self.verdicts.items()):
            print_row(command, group, row)
        print_row("all", "", sum(self.verdicts.values(), collections.Counter()))

    def print_bad_runs(self):
        """The bad runs, those together that have the same cause."""
        causes = collections.defaultdict(list)
        for run, verdict, reasons in self.bad:
            place = " ".join((place_of(run), run.difference))
            causes[cause_of(run, verdict, reasons)].append((run.trial.name, place))
        for cause, runs in sorted(causes.items(), key=lambda item: (-len(item[1]), item[0])):
            print(f"\n{len(runs)} x {cause}")
            for name, place in sorted(runs, key=lambda item: natural(item[0])):
                print(f"    scripts/faults --run '{name}'    {place}".rstrip())


def print_row(command, group, row):
    print(f"{command:12} {group:13}" + "".join(f"{row[name]:12}" for name in COLUMNS))


def natural(name):
    return [int(part) if part.isdigit() else part for part in re.split(r"(\d+)", name)]


def without_identifiers(text):
    return re.sub(r"[0-9A-F]{8}(?:-[0-9A-F]{4}){3}-[0-9A-F]{12}", "UUID", text)


def cause_of(run, verdict, reasons):
    """What bad runs of one cause have in common: the call, its program and what came of it."""
    where = f"{run.trial.group} {run.trial.place}"
    if run.trial.signal:
        where = run.trial.group
    elif run.hit:
        where = f"{run.hit['call']} in {os.path.basename(run.hit['program'])}"
    # Which files were left says less than where the removal ended.
    reason = "" if verdict == LEFT else ": " + without_identifiers("; ".join(reasons))
    return f"{verdict}: {where}{reason}"


def place_of(run):
    """The file that the call was about, named the same in each sweep."""
    if not run.hit:
        return ""
    path = re.sub(r"^.*/run \d{8}/", "", without_identifiers(run.hit["path"]))
    return f"{run.hit['call']} {path}" if run.trial.signal else path
