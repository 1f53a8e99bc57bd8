"""Runs the real toolkit for the whole-program tests and looks at what it leaves behind."""
import contextlib
import fnmatch
import hashlib
import os
import plistlib
import re
import shutil
import ssl
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUILD = os.environ.get("TOVREK_BUILD", os.path.join(ROOT, "build", "release"))
TOOLKIT = os.path.join(BUILD, "tovrek")
COMPANIONS = os.path.join(TOOLKIT, "host", "usr", "bin")
DEMO = os.path.join(BUILD, "demo")
DEMO_APP = os.path.join(DEMO, "Fieldbook.ipa")
IDENTITIES = os.path.join(DEMO, "identities")
PROFILE = os.path.join(DEMO, "Example.mobileprovision")
TRUSTED_ROOT = os.path.join(IDENTITIES, "root.pem")
ADMIN = "iPhone Distribution: Example Corporation (EXAMPLE123)"
BRANCH = "iPhone Distribution: Example Branch (EXAMPLE456)"
BRANCH_PROFILE = os.path.join(DEMO, "Branch.mobileprovision")
SDK_APP = os.path.join(DEMO, "sdk", "Gauge.app")
SDK_APP_WITH_FINGERPRINT = os.path.join(DEMO, "sdk-fingerprint", "Gauge.app")
SDK_ENTITLEMENTS = os.path.join(ROOT, "demo", "sdk_app", "entitlements.plist")
DEVELOPER = "iPhone Developer: Sam Sample (SAMPLE0001)"
SEPARATOR = "-" * 30


def run(*command, check=True, **arguments):
    """Runs a program with its output captured as bytes."""
    return subprocess.run(command, check=check, capture_output=True, **arguments)


def read(*parts):
    with open(os.path.join(*parts), "rb") as file:
        return file.read()


def write(content, *parts):
    path = os.path.join(*parts)
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as file:
        file.write(content)
    return path


def remove(*paths):
    """Removes the files that are there."""
    for path in paths:
        with contextlib.suppress(FileNotFoundError):
            os.remove(path)


def unzip(archive, folder):
    os.makedirs(folder, exist_ok=True)
    run("unzip", "-q", archive, "-d", folder, env=dict(os.environ, LC_ALL="C.UTF-8"))
    return folder


def unpacked_app(archive, folder):
    """Unpacks an app archive, or a package and beside it the archive that it holds; answers the
    app's path."""
    unzip(archive, folder)
    for name in os.listdir(folder):
        if name.endswith(".ipa"):
            return unpacked_app(os.path.join(folder, name), folder + " app")
    payload = os.path.join(folder, "Payload")
    return os.path.join(payload, *os.listdir(payload))


def manifest_texts(package):
    """The texts of a package's manifest by the names of their elements."""
    root = ElementTree.parse(os.path.join(package, "manifest.xml")).getroot()
    return {node.tag: node.text or "" for node in root.iter()}


def result_text(result):
    """The text that a run ends with on standard error, above the line of hyphens."""
    texts = re.findall(rf"\n\n([^\n]+(?:\n[^\n]+)*?)\n{SEPARATOR}\n", result.stderr)
    return texts[-1] if texts else None


class WholeProgramTest(unittest.TestCase):
    """A folder of its own for each test class, with a home, a keychain and a scratch place."""

    @classmethod
    def setUpClass(cls):
        cls.folder = cls.enterClassContext(tempfile.TemporaryDirectory(prefix="tovrek cli "))
        cls.scratch = os.path.join(cls.folder, "scratch")
        os.mkdir(cls.scratch)
        cls.environment = dict(os.environ, TMPDIR=cls.scratch, HOME=cls.folder,
                               XDG_DATA_HOME=os.path.join(cls.folder, "home"), LC_ALL="C.UTF-8",
                               TOVREK_PROGRESS="0")  # a busy machine makes any stage long
        cls.environment["TOVREK_TRUSTED_ROOT_SHA1"] = read(IDENTITIES, "root.sha1").decode().strip()
        for name in ("TOVREK_HOST_ROOT", "TOVREK_CONF"):
            cls.environment.pop(name, None)
        cls.import_identity("admin")

    @classmethod
    def import_identity(cls, name):
        cls.security("import", os.path.join(IDENTITIES, f"{name}.p12"), "-P", "demo")

    @classmethod
    def security(cls, *words, **environment):
        run(os.path.join(COMPANIONS, "security"), *words, env=cls.environment | environment)

    @classmethod
    def path(cls, *parts):
        return os.path.join(cls.folder, *parts)

    @classmethod
    def wrap_command(cls, app, output, *options, toolkit=TOOLKIT, cert=ADMIN, profile=PROFILE):
        return [os.path.join(toolkit, "Tovrek"), "Wrap", "-Cert", cert, "-Profile", profile,
                "-in", app, "-out", output, "-logFile", os.path.join(cls.folder, "Orvane.log"),
                *options]

    @classmethod
    def run_toolkit(cls, command, environment=(), merge=False):
        """Runs a command line; `merge` puts both outputs into one, in the order of their lines."""
        error = subprocess.STDOUT if merge else subprocess.PIPE
        result = subprocess.run(command, stdout=subprocess.PIPE, stderr=error,
                                stdin=subprocess.DEVNULL, env=cls.environment | dict(environment),
                                cwd=cls.folder, timeout=240)
        result.stdout = result.stdout.decode()
        result.stderr = (result.stderr or b"").decode()
        return result

    @classmethod
    def wrap(cls, app, output, *options, environment=(), **keywords):
        return cls.run_toolkit(cls.wrap_command(app, output, *options, **keywords), environment)

    def left_in_scratch(self):
        """All files and folders below the scratch place but the fixed parent of scratch folders."""
        return [os.path.join(base, name) for base, folders, files in os.walk(self.scratch)
                for name in folders + files
                if not name.startswith("tovrek-") and name != "com.orvane.wex"]

    def assert_ends_with(self, result, status, text):
        """`text` is what the run ends with; None stands for nothing, "*" for what is not known."""
        shown = result_text(result)
        self.assertEqual(result.returncode, status, result.stderr)
        self.assertEqual(self.left_in_scratch(), [])
        if text is None:
            self.assertIsNone(shown)
        else:
            self.assertTrue(shown and fnmatch.fnmatchcase(shown, text), f"{shown}\n{result.stderr}")

    def assert_wrapped(self, result, output):
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertTrue(os.path.isfile(output), result.stderr)
        self.assertEqual(self.left_in_scratch(), [])


@contextlib.contextmanager
def changed_app(archive=DEMO_APP):
    """Unpacks an app archive; what the caller makes of it is packed again by pack()."""
    with tempfile.TemporaryDirectory() as folder:
        unzip(archive, folder)
        yield folder, os.path.join(folder, "Payload", "Fieldbook.app")


def pack(folder, output):
    """Zips everything in a folder into a new archive."""
    remove(output)
    run("zip", "-qry", output, ".", cwd=folder, env=dict(os.environ, LC_ALL="C.UTF-8"))
    return output


def edit_info(app, **values):
    path = os.path.join(app, "Info.plist")
    info = plistlib.loads(read(path))
    info.update(values)
    write(plistlib.dumps(info), path)


def sign_as_developer(path, *options):
    run(os.path.join(COMPANIONS, "codesign"), "-f", "-s", DEVELOPER, "--keychain",
        os.path.join(IDENTITIES, "developer.keychain.pem"), path, *options)


def thin(executable, arch):
    """Leaves one slice of a universal file."""
    run(os.path.join(COMPANIONS, "lipo"), executable, "-thin", arch, "-output", executable)


def make_profile(output, app_id, *expiry):
    """A profile for the administrator's identity; expires in a year, or when date(1) says."""
    run(os.path.join(ROOT, "demo", "profile.sh"), output, IDENTITIES, "admin", "EXAMPLE123", app_id,
        *expiry)
    return output


def der_of(certificate=os.path.join(IDENTITIES, "admin.pem")):
    return ssl.PEM_cert_to_DER_cert(read(certificate).decode())


def sha1_of(*certificate):
    """The hash that names a certificate, the administrator's by default, in upper-case pairs."""
    return hashlib.sha1(der_of(*certificate)).digest().hex(" ").upper()


def copy_toolkit(target):
    """A second installed folder, whose content folder the test may damage."""
    shutil.copytree(TOOLKIT, target, symlinks=True)
    return target
