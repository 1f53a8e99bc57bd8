"""Takes out of texts what differs from run to run of one and the same build.

As little as possible is masked: a date only when it is one of these days, an identifier only when
it is not the one that a case gave.
"""
import datetime
import re

# An identifier that cases give as a value: it has to come through.
GIVEN_ID = "0F1E2D3C-0000-4000-8000-00000000000A"
# Of the form that is generated; those that linkers compute are of another one.
UUID = r"(?!0F1E2D3C)[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}"
TIME = r"\d?\d:\d\d(?::\d\d)?(?:\.\d+)?"


def days_around(now):
    return [now + datetime.timedelta(days=shift) for shift in (-2, -1, 0, 1, 2)]


class Masks:
    """Masks for the texts of one comparison, whose folder is `workspace`."""

    def __init__(self, workspace, now=None):
        self.workspace = workspace
        self.stated_sizes = set()  # of apps' archives, in manifests that were given
        self.now = now or datetime.datetime.now(datetime.timezone.utc)
        days = days_around(self.now)
        iso = "|".join(day.strftime("%Y-%m-%d") for day in days)
        american = "|".join(day.strftime("%m-%d-%Y") for day in days)
        spelled = "|".join(f"{day:%b} {day.day}, {day.year}" for day in days)
        openssl = "|".join(f"{day:%b} {day.day:2} {TIME} {day.year} GMT" for day in days)
        der = "|".join(f"(?:20)?{day:%y%m%d}" for day in days)
        self.patterns = [(re.compile(pattern), name) for pattern, name in [
            (rf"(?:{iso})[ T]{TIME}(?: \+0000|Z)?", "NOW"),
            (rf"(?:{american}) +{TIME}", "NOW"),
            (rf"(?:{spelled}) at {TIME} [AP]M", "NOW"),
            (openssl, "NOW"),
            (rf"\b(?:{der})\d{{6}}Z", "NOW"),
            (r"Tovrek\[\d+\]", "Tovrek[PID]"),
            # A scratch file that is named after the time.
            (r"/\d{12}\.der\b", "/TIME.der"),
            # The thread that OpenSSL names in its messages.
            (r"(?m)^[0-9A-F]{8,16}:error:", "THREAD:error:"),
            # Where a file is mapped; the place in its page stays.
            (r"\b0x7[0-9a-f]{8}([0-9a-f]{3})\b", r"0xPAGE\1"),
            (UUID, "UUID"),
        ]]

    def is_recent(self, seconds):
        """Whether a time since 1970 is one of these days."""
        return abs(seconds - self.now.timestamp()) < 2 * 86400

    def time(self, seconds):
        if self.is_recent(seconds):
            return "NOW"
        return datetime.datetime.fromtimestamp(seconds, datetime.timezone.utc).isoformat()

    def text(self, text):
        text = text.replace(self.workspace, "WORK")
        for pattern, name in self.patterns:
            text = pattern.sub(name, text)
        return text
