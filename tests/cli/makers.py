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

from harness import IDENTITIES, ROOT, read, run, sign_as_developer, write

TEAM = "EXAMPLE123"
FORMER_TEAM = "SAMPLE0001"
IDENTIFIER = "com.example.small"
DEFAULT_SOURCE = "int main(void) { return 0; }\n"


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


def png(size=57):
    """A square image of one colour."""
    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data +
                struct.pack(">I", zlib.crc32(kind + data)))

    rows = (b"\0" + b"\x30\x60\x90" * size) * size
    header = struct.pack(">IIBBBBB", size, size, 8, 2, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(rows)) +
            chunk(b"IEND", b""))


@contextlib.contextmanager
def small_app(name="Small", program=None, info=()):
    """A folder whose Payload holds an app that is not signed, and the app's path."""
    with tempfile.TemporaryDirectory() as folder:
        app = os.path.join(folder, "Payload", f"{name}.app")
        write(program or executable(), app, name)
        os.chmod(os.path.join(app, name), 0o755)
        write(png(), app, "Icon.png")
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


def der_of(certificate):
    return run("openssl", "x509", "-in", certificate, "-outform", "DER").stdout


def profile(output, entitlements=(), certificates=None, without=(), **values):
    """A signed profile; `entitlements` change the usual ones, `without` leaves some out."""
    granted = {"application-identifier": f"{TEAM}.*", "keychain-access-groups": [f"{TEAM}.*"],
               "com.apple.developer.team-identifier": TEAM, "get-task-allow": False}
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
    config = os.path.join(ROOT, "demo", "identities.cnf")
    issuer = os.path.join(IDENTITIES, "intermediate")
    names = "\n".join(f"{index}.{line}" for index, line in enumerate(subject))
    with tempfile.TemporaryDirectory() as folder:
        wish = write(f"[req]\ndistinguished_name = name\nprompt = no\nutf8 = yes\n"
                     f"string_mask = {string_mask}\n[name]\n{names}\n".encode(), folder, "wish.cnf")
        request = os.path.join(folder, "request")
        run("openssl", "req", "-new", "-config", wish, "-key",
            os.path.join(IDENTITIES, "admin.key"), "-out", request)
        run("openssl", "x509", "-req", "-sha256", "-days", "365", "-in", request, "-out", output,
            "-CA", issuer + ".pem", "-CAkey", issuer + ".key", "-set_serial", str(next(serials)),
            "-extfile", config, "-extensions", "distribution",
            env=dict(os.environ, CERT_NAME="", CERT_UNIT="", CERT_ORGANISATION=""))
    return output
