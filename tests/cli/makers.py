"""Makes small apps, certificates and profiles for the whole-program tests, one oddity at a time."""
import contextlib
import functools
import itertools
import os
import plistlib
import shutil
import struct
import tempfile
import zipfile
import zlib
from datetime import datetime, timedelta

import png
from examiner import macho
from harness import (IDENTITIES, ROOT, WholeProgramTest, der_of, pack, read, remove, run,
                     sign_as_developer, unpacked_app, write)

TEAM = "EXAMPLE123"
FORMER_TEAM = "SAMPLE0001"
IDENTIFIER = "com.example.small"
DEFAULT_SOURCE = "int main(void) { return 0; }\n"

APP_ID = "application-identifier"
GROUPS = "keychain-access-groups"
TEAM_ID = "com.apple.developer.team-identifier"
APP_GROUPS = "com.apple.security.application-groups"
DATA_PROTECTION = "com.apple.developer.default-data-protection"

LC_RPATH = 0x8000001C

# What makes a whole chain of the certificates below.
ISSUERS = [os.path.join(IDENTITIES, name + ".pem") for name in ("intermediate", "root")]

NO_UNIT = "WARNING: Your certificate does not contain the team identifier required for iOS 8."
APP_STORE = "ERROR: The app (*) is an AppStore app."


@functools.cache
def executable(source=DEFAULT_SOURCE, libraries=()):
    """The bytes of a Mach-O program, compiled from Objective-C and linked with libraries that
    have these install names."""
    tools = {"CLANG": "clang", "LD64_LLD": "ld64.lld"}
    environment = {
        name: os.environ.get(name) or shutil.which(tool) or f"/usr/lib/llvm-14/bin/{tool}"
        for name, tool in tools.items()}
    with tempfile.TemporaryDirectory() as folder:
        program = os.path.join(folder, "program")
        stubs = [write(f"--- !tapi-tbd\ntbd-version: 4\ntargets: [ arm64-ios ]\n"
                       f"install-name: '{name}'\n...\n".encode(), folder, f"{index}.tbd")
                 for index, name in enumerate(libraries)]
        run(os.path.join(ROOT, "demo", "link.sh"), program,
            write(source.encode(), folder, "source.m"), "arm64", "-e", "_main", "-undefined",
            "dynamic_lookup", *stubs, env=os.environ | environment)
        return read(program)


def fill_header(executable):
    """Lets the run path of a thin image grow until no room is left before the code."""
    data = read(executable)
    image = macho.Slice(data)
    first = min(offset for _, _, _, offset, _ in image.segment("__TEXT").sections)
    room = (first - image.header_size - image.commands_size) & ~7
    commands = b""
    for command in image.commands:
        if command.number == LC_RPATH:
            size = struct.pack("<I", len(command.data) + room)
            commands += command.data[:4] + size + command.data[8:] + bytes(room)
        else:
            commands += command.data
    header = data[:20] + struct.pack("<I", len(commands)) + data[24:image.header_size]
    write((header + commands).ljust(first, b"\0") + data[first:], executable)


def icon(size=57):
    """A square image of one colour."""
    rows = (b"\0" + b"\x30\x60\x90" * size) * size
    header = struct.pack(">IIBBBBB", size, size, 8, 2, 0, 0, 0)
    return (png.SIGNATURE + png.chunk(b"IHDR", header) + png.chunk(b"IDAT", zlib.compress(rows)) +
            png.chunk(b"IEND", b""))


@contextlib.contextmanager
def small_app(name="Small", program=None, info=()):
    """A folder whose Payload holds an app that is not signed, and the app's path."""
    with tempfile.TemporaryDirectory() as folder:
        app = os.path.join(folder, "Payload", f"{name}.app")
        write(program or executable(), app, name)
        os.chmod(os.path.join(app, name), 0o755)
        write(icon(), app, "Icon.png")
        values = {"CFBundleIdentifier": IDENTIFIER, "CFBundleExecutable": name,
                  "CFBundleName": name, "CFBundleIconFiles": ["Icon.png"],
                  "CFBundlePackageType": "APPL", "CFBundleShortVersionString": "1.0",
                  "CFBundleVersion": "1", "MinimumOSVersion": "9.0"}
        write(plistlib.dumps(values | dict(info)), app, "Info.plist")
        yield folder, app


def sign_with_entitlements(app, entitlements):
    with tempfile.TemporaryDirectory() as folder:
        file = write(plistlib.dumps(entitlements), folder, "old.plist")
        sign_as_developer(app, "--entitlements", file)


def archive_of(entries, output):
    """An archive with exactly these entries; a link is given as a pair of "->" and its target."""
    with zipfile.ZipFile(output, "w") as archive:
        for name, content in entries:
            item = zipfile.ZipInfo(name)
            link = isinstance(content, tuple)
            item.create_system = 3
            item.external_attr = (0o120777 if link else 0o100755) << 16
            archive.writestr(item, content[1] if link else content)
    return output


def profile(output, entitlements=(), certificates=None, without=(), **values):
    """A signed profile; `entitlements` change the usual ones, `without` leaves some out."""
    granted = {APP_ID: f"{TEAM}.*", GROUPS: [f"{TEAM}.*"], TEAM_ID: TEAM, "get-task-allow": False}
    granted |= dict(entitlements)
    for key in without:
        del granted[key]
    certificates = certificates or [os.path.join(IDENTITIES, "admin.pem")]
    content = {"ApplicationIdentifierPrefix": [TEAM], "TeamIdentifier": [TEAM],
               "DeveloperCertificates": [der_of(certificate) for certificate in certificates],
               "Entitlements": granted, "Name": "Small", "Version": 1,
               "ExpirationDate": datetime.now() + timedelta(days=300)} | values
    root = os.path.join(IDENTITIES, "root")
    run("openssl", "cms", "-sign", "-binary", "-nodetach", "-md", "sha256", "-outform", "DER",
        "-out", output, "-signer", root + ".pem", "-inkey", root + ".key",
        input=plistlib.dumps(content))
    return output


def certificate(output, subject, string_mask="utf8only", serials=itertools.count(1000)):
    """A signing certificate for the administrator's key; `subject` holds lines of a request."""
    issuer = os.path.join(IDENTITIES, "intermediate")
    names = "\n".join(f"{index}.{line}" for index, line in enumerate(subject))
    wish = write(f"""
.include = {os.path.join(ROOT, "demo", "identities.cnf")}
[req]
distinguished_name = subject
prompt = no
utf8 = yes
string_mask = {string_mask}
[subject]
{names}
""".encode(), output + ".cnf")
    run("openssl", "req", "-x509", "-sha256", "-days", "365", "-config", wish, "-out", output,
        "-key", os.path.join(IDENTITIES, "admin.key"), "-CA", issuer + ".pem",
        "-CAkey", issuer + ".key", "-set_serial", str(next(serials)), "-extensions", "distribution",
        env=dict(os.environ, CERT_NAME="", CERT_UNIT="", CERT_ORGANISATION=""))
    return output


class SmallAppTest(WholeProgramTest):
    """Wraps small apps with a profile that admits them."""
    SUBJECTS = {}  # of further certificates in the keychain, by the names that are used for them

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.profile = profile(cls.path("usual.mobileprovision"))
        cls.certificates = {
            name: certificate(cls.path(f"{index}.pem"), subject,
                              "MASK:0x800" if name.startswith("Wide") else "utf8only")
            for index, (name, subject) in enumerate(cls.SUBJECTS.items())}
        everyone = b"".join(read(path) for path in cls.certificates.values())
        if everyone:
            everyone += b"".join(read(path) for path in ISSUERS)
            cls.security("import", write(everyone, cls.path("everyone.pem")))

    def wrap_folder(self, folder, *options, name="Small", **keywords):
        """Wraps what lies in a folder; answers the result and the path of the wrapped .ipa."""
        output = self.path("wrapped.ipa")
        remove(output)
        archive = pack(folder, self.path(f"{name}.ipa"))
        result = self.wrap(archive, self.path("out.wex"), "-outBundle", output, *options,
                           **{"profile": self.profile} | keywords)
        os.remove(archive)
        self.assertEqual(self.left_in_scratch(), [])
        return result, output

    def wrap_small(self, *options, status=0, text=None, app=(), **keywords):
        """Wraps a small app, which must end as it is said; answers the wrapped .ipa's path."""
        with small_app(**dict(app)) as (folder, _):
            result, output = self.wrap_folder(folder, *options, **keywords)
        self.assert_ends_with(result, status, text)
        return output

    @staticmethod
    def signed_part(archive, name="Small"):
        """The wrapped app's executable."""
        with tempfile.TemporaryDirectory() as folder:
            return macho.slices(os.path.join(unpacked_app(archive, folder), name))[0]
