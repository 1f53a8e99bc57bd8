"""Runs programs on inputs that were made to do harm, and judges from outside what came of it."""
import os
import resource
import shutil
import signal
import stat
import subprocess
import sys
import threading
import zipfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "cli"))
# pylint: disable=wrong-import-position
import makers
from harness import ADMIN, COMPANIONS, TOOLKIT, read, write

SECRET = b"the secret of another file, 0x5ec3e7"
# Above what any of the small inputs needs; one that needs more would take a machine with larger ones.
# Of processor time, as the machine may have others to serve; three times as long by the clock.
MOST_SECONDS = 20
MOST_BYTES = 1 << 30
# A run that goes wrong is to end before it takes the machine that tests it.
LIMITS = {resource.RLIMIT_AS: 6 << 30, resource.RLIMIT_FSIZE: 2 << 30}
FATAL = "SIGSEGV,SIGABRT,SIGBUS,SIGILL,SIGFPE,SIGKILL,SIGSYS"


def companion(name):
    return os.path.join(COMPANIONS, name)


def described(path):
    """What must not change about an item; the contents stand for the time of change."""
    info = os.lstat(path)
    if stat.S_ISLNK(info.st_mode):
        return "link", os.readlink(path)
    content = read(path) if stat.S_ISREG(info.st_mode) else None
    return info.st_mode, info.st_uid, content


def everything_below(folder, without):
    found = {}
    for base, folders, files in os.walk(folder):
        folders[:] = [name for name in folders if os.path.join(base, name) not in without]
        for path in (os.path.join(base, name) for name in folders + files):
            if path not in without:
                found[path] = described(path)
    return found


def holds_secret(path):
    """Whether the secret is in a file, or in what is packed in it."""
    if os.path.islink(path) or not os.path.isfile(path):
        return False
    if zipfile.is_zipfile(path):
        with zipfile.ZipFile(path) as archive:
            for entry in archive.infolist():
                inner = path + ".part"
                with archive.open(entry) as source, open(inner, "wb") as target:
                    shutil.copyfileobj(source, target)
                found = holds_secret(inner)
                os.remove(inner)
                if found:
                    return True
    return SECRET in read(path)


class Outcome:
    """Of one run: status, both outputs, processor seconds of all processes, bytes of the largest
    one, fatal signals."""

    def __init__(self, command, environment, folder, umask=0o022):
        trace, outputs = os.path.join(folder, "trace"), os.path.join(folder, "outputs")
        if shutil.which("strace"):
            command = ["strace", "--seccomp-bpf", "-f", "-qqq", "-e", "trace=none", "-e",
                       "signal=" + FATAL, "-o", trace, *command]

        def prepare():
            os.umask(umask)
            for limit, value in LIMITS.items():
                resource.setrlimit(limit, (value, value))

        with open(outputs, "wb") as sink:
            process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=sink, stderr=sink,
                                       env=environment, cwd=folder, preexec_fn=prepare,
                                       start_new_session=True)
        watch = threading.Timer(3 * MOST_SECONDS, os.killpg, (process.pid, signal.SIGKILL))
        watch.start()
        _, status, usage = os.wait4(process.pid, 0)
        watch.cancel()
        process.returncode = os.waitstatus_to_exitcode(status)
        self.status = process.returncode
        self.seconds = usage.ru_utime + usage.ru_stime
        self.bytes = usage.ru_maxrss * 1024
        self.output = read(outputs)
        self.killed = read(trace).decode() if os.path.exists(trace) else ""
        for path in (trace, outputs):
            if os.path.exists(path):
                os.remove(path)


class AttackTest(makers.SmallAppTest):
    """A folder "outside" that nothing may touch, with a secret; "in" for the inputs of an attack
    and "out" for its outputs."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        # What the kernel forbids is tested by itself; here the programs have to hold.
        cls.environment["TOVREK_CONFINE"] = "0"
        cls.victim = cls.path("outside", "victim")
        cls.secret = write(SECRET, cls.victim, "secret")
        write(b"<plist><dict><key>CFBundleName</key><string>" + SECRET +
              b"</string></dict></plist>", cls.victim, "Info.plist")
        write(makers.executable(), cls.victim, "OrvaneLogger")
        write(makers.executable(), cls.victim, "OrvaneDylib.dylib")
        with makers.small_app() as (_, app):
            cls.app_files = {name: read(app, name) for name in os.listdir(app)}

    def setUp(self):
        for name in ("in", "out"):
            shutil.rmtree(self.path(name), ignore_errors=True)
            os.mkdir(self.path(name))

    def given(self, *parts):
        return self.path("in", *parts)

    def entries(self, changed=(), app="Payload/Small.app"):
        """The entries of a small app's archive; a link is a pair of "->" and its target."""
        usual = {f"{app}/{name}": content for name, content in self.app_files.items()}
        return list((usual | dict(changed)).items())

    def archive(self, changed=(), name="Small.ipa", app="Payload/Small.app"):
        return makers.archive_of(self.entries(changed, app), self.given(name))

    def wrap_words(self, archive, *options, output=None):
        return self.toolkit("Wrap", "-Cert", ADMIN, "-Profile", self.profile, "-in", archive,
                            "-out", output or self.path("out", "out.wex"), "-outBundle",
                            self.path("out", "out.ipa"), *options)

    def toolkit(self, *words):
        return [os.path.join(TOOLKIT, "Tovrek"), *words, "-logFile", self.path("out", "log")]

    def held(self, command, statuses, environment=(), may_change=(), umask=0o022):
        """Runs a command, which must end with one of the statuses and without any harm; answers
        its outcome."""
        outputs = {self.path("out"), self.scratch, self.path("home"), *may_change}
        before = everything_below(self.folder, outputs)
        outcome = Outcome(command, self.environment | dict(environment), self.folder, umask)
        text = outcome.output.decode(errors="replace")[-3000:]
        after = everything_below(self.folder, outputs)
        self.assertEqual({path for path in before.keys() | after.keys()
                          if before.get(path) != after.get(path)}, set(), text)
        self.assertNotIn(SECRET, outcome.output)
        for base, _, files in os.walk(self.path("out")):
            for name in files:
                self.assertFalse(holds_secret(os.path.join(base, name)), name)
        self.assertEqual(outcome.killed, "", text)
        self.assertIn(outcome.status, statuses, text)
        self.assertLess(outcome.seconds, MOST_SECONDS, text)
        self.assertLess(outcome.bytes, MOST_BYTES, text)
        self.assertEqual(self.left_in_scratch(), [])
        return outcome
