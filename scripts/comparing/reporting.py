"""Tells how the records of two builds differ."""
import difflib
import itertools
import json

LINES_OF_A_PART = 14
WIDTH = 220
# What a part that one of the records lacks is compared with.
ABSENT = ["(none)"]


def differing_parts(old, new):
    """The parts of two records that differ, in their order: (title, lines of old, of new)."""
    titles = list(dict.fromkeys([*old, *new]))
    return [(title, old.get(title, ABSENT), new.get(title, ABSENT)) for title in titles
            if old.get(title, ABSENT) != new.get(title, ABSENT)]


def shortened(line):
    return line if len(line) <= WIDTH else line[:WIDTH] + f" ... ({len(line)} characters)"


def around_change(old, new):
    """A long line and its other version, cut to where they differ."""
    start = next((at for at, pair in enumerate(zip(old, new)) if pair[0] != pair[1]), 0)
    start = max(0, start - 60)
    return old[start:], new[start:]


def diff_lines(title, old, new):
    if len(old) == len(new):
        pairs = [around_change(*pair) if len(pair[0]) > WIDTH and pair[0] != pair[1] else pair
                 for pair in zip(old, new)]
        old, new = [pair[0] for pair in pairs], [pair[1] for pair in pairs]
    diff = difflib.unified_diff(old, new, "old", "new", lineterm="", n=2)
    lines = list(itertools.islice(diff, 2, 3 + LINES_OF_A_PART))
    more = ["    ..."] if len(lines) > LINES_OF_A_PART else []
    shown = ["    " + shortened(line) for line in lines[:LINES_OF_A_PART]]
    return [f"  {title}", *shown, *more]


def report(name, paths, parts_shown):
    """The lines on one case; none when its records are the same."""
    records = []
    for path in paths:
        with open(path, encoding="utf-8") as file:
            records.append(json.load(file))
    parts = differing_parts(*records)
    if not parts:
        return []
    titles = ", ".join(title for title, _, _ in parts[:4])
    more = f" and {len(parts) - 4} more" if len(parts) > 4 else ""
    lines = [f"DIFFERS {name}: {titles}{more}"]
    for part in parts[:parts_shown]:
        lines += diff_lines(*part)
    return lines
