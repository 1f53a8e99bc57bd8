"""What Wrap says about input it cannot use: one text, the right status, nothing left behind."""
import os
import shutil
import signal
import struct
import subprocess
import tempfile
import time
import unittest

from examiner import macho
from harness import (COMPANIONS, DEMO_APP, DEVELOPER, IDENTITIES, WholeProgramTest, changed_app,
                     copy_toolkit, make_profile, pack, read, result_text, run, sign_as_developer, write)


def fill_header(executable):
    """Lets the last load command of a thin image grow until no room is left before the code."""
    data = bytearray(read(executable))
    image = macho.Slice(bytes(data))
    first = min(offset for _, _, _, offset, _ in image.segment("__TEXT").sections)
    room = (first - image.header_size - image.commands_size) & ~7
    last = image.commands[-1]
    struct.pack_into("<I", data, last.offset + 4, len(last.data) + room)
    struct.pack_into("<I", data, 20, image.commands_size + room)
    write(bytes(data), executable)


class Refusals(WholeProgramTest):
    def refuse(self, status, text, app=DEMO_APP, *options, output=None, **keywords):
        """Wrap must end with the status and the text, and leave nothing behind."""
        output = output or self.path("refused.wex")
        result = self.wrap(app, output, *options, **keywords)
        self.assertIsNotNone(result_text(result), result.stderr)
        self.assertRegex(result_text(result), text)
        self.assertEqual(result.returncode, status, result.stderr)
        self.assertFalse(os.path.lexists(output))
        self.assertEqual(self.left_in_scratch(), [])


class BadInput(Refusals):
    def test_archives(self):
        whole = read(DEMO_APP)
        empty = self.path("empty folder", "Payload")
        os.makedirs(empty)
        other = os.path.dirname(write(b"text", self.path("other", "Contents", "file")))
        unzip_failed = r"^Unzip command failed\. "
        cases = {
            "text.ipa": (write(b"this is no archive", self.path("text.ipa")), unzip_failed),
            "empty.ipa": (write(b"", self.path("empty.ipa")), unzip_failed),
            "half.ipa": (write(whole[:len(whole) // 2], self.path("half.ipa")), unzip_failed),
            "endless.ipa": (write(whole[:-10], self.path("endless.ipa")), unzip_failed),
            "damaged.ipa": (write(whole[:2000] + bytes(500) + whole[2500:],
                                  self.path("damaged.ipa")), unzip_failed),
            "no Payload": (pack(os.path.dirname(other), self.path("nopayload.ipa")),
                           r"^Payload directory does not exist at /"),
            "no app": (pack(os.path.dirname(empty), self.path("noapp.ipa")),
                       r"^Payload directory \(/.*/Payload\) can not be found\.$"),
        }
        for name, (archive, text) in cases.items():
            with self.subTest(name):
                # A failed unpacking ends with status 0 on purpose.
                self.refuse(0, text, archive)
        self.refuse(255, r"^A required file at this location does not exist: .*/gone\.ipa$",
                    self.path("gone.ipa"))

    def test_executables(self):
        def without(app):
            os.remove(os.path.join(app, "Fieldbook"))

        def script(app):
            write(b"#!/bin/sh\n", app, "Fieldbook")

        def full(app):
            executable = os.path.join(app, "Fieldbook")
            run(os.path.join(COMPANIONS, "lipo"), executable, "-thin", "arm64", "-output", executable)
            fill_header(executable)

        def linked(app):
            old, new = b"@rpath/Ledger.framework/Ledger", b"@rpath/WEX.framework/WEX"
            write(read(app, "Fieldbook").replace(old, new.ljust(len(old), b"\0")), app, "Fieldbook")

        cases = {
            "none": (without, r"^ERROR: The app \(.*\) is an AppStore app\.$", 254),
            "a script": (script, r"^ERROR: The app \(.*\) is an AppStore app\.$", 254),
            "a full header": (full, r"^ERROR: No room in header of application binary image to "
                                    r"insert dylib reference\.$", 254),
            "linked with the SDK": (linked, r"^To wrap, choose a valid file that does not include the "
                                            r"WEX framework\. Wrapping an SDK app with this tool is "
                                            r"not supported\.$", 0),
            "Adobe AIR": (lambda app: write(b"", app, "META-INF", "AIR", "application.xml"),
                          r"^WEX does not support wrapping applications created using the Adobe Air "
                          r"framework\.$", 254),
        }
        for name, (change, text, status) in cases.items():
            with self.subTest(name), changed_app() as (folder, app):
                change(app)
                self.refuse(status, text, pack(folder, self.path("changed.ipa")))

    def test_wrapped_app(self):
        output, archive = self.path("first.wex"), self.path("first.ipa")
        self.assert_wrapped(self.wrap(DEMO_APP, output, "-outBundle", archive), output)
        self.refuse(254, r"^ERROR: This app is already wrapped, and cannot be re-wrapped\.$", archive)

    def test_profiles(self):
        text = write(b"not a profile", self.path("text.mobileprovision"))
        fingerprint = run("openssl", "x509", "-in", os.path.join(IDENTITIES, "admin.pem"), "-noout",
                          "-fingerprint", "-sha1").stdout.decode().strip().split("=")[1].replace(":", "")
        cases = [
            # Without a profile to list the name, a name is taken for a hash and loses its blanks.
            (255, r"^iOS distribution certificate name \(iPhoneDistribution:ExampleCorporation"
                  r"\(EXAMPLE123\)\) does not match certificates listed in the iOS distribution "
                  r"provisioning profile\.", {"profile": text}),
            (254, r"^Failed to execute security with exit code: 1$",
             {"profile": text, "cert": fingerprint}),
            (255, r"^A required file at this location does not exist: .*/gone\.mobileprovision$",
             {"profile": self.path("gone.mobileprovision")}),
            (254, r"^This provisioning profile has expired\. Please use a valid provisioning profile\.$",
             {"profile": make_profile(self.path("expired.mobileprovision"), "*", "yesterday")}),
            (254, r"^This provisioning profile is specific to <com\.example\.other>\.  Change the "
                  r"bundle indentifier above or choose a different profile\.$",
             {"profile": make_profile(self.path("other.mobileprovision"), "com.example.other")}),
            (254, r"^Bundle identifier <com\.example\.fieldbook> is not suitable for use with wildcard "
                  r"profile <com\.other\.\*>\.  Change the bundle indentifier above or choose a "
                  r"different profile\.$",
             {"profile": make_profile(self.path("wild.mobileprovision"), "com.other.*")}),
        ]
        for status, text, keywords in cases:
            with self.subTest(keywords):
                self.refuse(status, text, **keywords)

    def test_identities(self):
        # Listed in the profile, but in no keychain: found out when signing starts.
        self.refuse(254, r"^Failed to execute dylibcodesign with exit code: 1$",
                    environment={"XDG_DATA_HOME": self.path("empty")})
        self.refuse(255, r"does not match certificates listed", cert=DEVELOPER)

    def test_content_folder(self):
        toolkit = copy_toolkit(self.path("toolkit"))
        data = os.path.join(toolkit, "Data")
        dylib = os.path.join(data, "OrvaneDylib.bundle", "OrvaneDylib.dylib")
        sign_as_developer(dylib)
        self.refuse(254, r"^Failed to validate that dylib is signed by Orvane\.$", toolkit=toolkit)
        write(b"no program", dylib)
        self.refuse(254, r"^Failed to execute codesign-verifyOrvaneDylib with exit code: 1$",
                    toolkit=toolkit)
        shutil.rmtree(data)
        self.refuse(254, r"^A required file at this location does not exist: .*/OrvaneDylib\.bundle/"
                         r"OrvaneDylib\.dylib$", toolkit=toolkit)

    def test_outputs(self):
        self.refuse(255, r"^Could not write to output path \(.*/gone\)\. Make sure this location exists "
                         r"and that you have write access to it\.$", output=self.path("gone", "out.wex"))
        self.refuse(255, r"^Output file has incorrect extension, it must be '\.wex'$",
                    output=self.path("out.zip"))
        self.refuse(255, r"^Output bundle file has incorrect extension, it must be '\.ipa'$", DEMO_APP,
                    "-outBundle", self.path("bundle.zip"))

    @unittest.skipIf(os.geteuid() == 0, "root may write everywhere")
    def test_read_only_output_folder(self):
        os.mkdir(self.path("locked"), 0o500)
        self.refuse(255, r"^Could not write to output path \(.*/locked\)\.",
                    output=self.path("locked", "out.wex"))

    def test_policies_that_are_not_xml(self):
        self.refuse(254, r"^\S", DEMO_APP, "-policyXML", write(b"<Policy", self.path("bad.xml")))


class FullDisk(Refusals):
    """Runs on a small file system, where that can be made."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.disk = tempfile.mkdtemp(dir=cls.folder)
        made = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=256k", "tmpfs", cls.disk],
                              capture_output=True)
        if made.returncode != 0:
            raise unittest.SkipTest("no file system can be mounted here")
        cls.addClassCleanup(run, "umount", cls.disk)

    def test_full_output(self):
        write(bytes(200_000), self.disk, "filler")
        self.refuse(254, r"^Failed to copy file from .* to .*/out\.wex\. Error:.*[Nn]o space left",
                    output=os.path.join(self.disk, "out.wex"))
        self.assertEqual(os.listdir(self.disk), ["filler"])
        os.remove(os.path.join(self.disk, "filler"))

    def test_full_scratch(self):
        self.refuse(0, r"^Unzip command failed\. ", environment={"TMPDIR": self.disk})
        self.assertEqual([files for _, _, files in os.walk(self.disk) if files], [])


class Interrupted(WholeProgramTest):
    def test_signals_clean_up(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            for stage in ("Unzipping", "Code signing", "Generating package file"):
                with self.subTest(signal=number, stage=stage):
                    self.interrupt(number, stage)

    def interrupt(self, number, stage):
        output = self.path("interrupted.wex")
        program = subprocess.Popen(self.wrap_command(DEMO_APP, output), stdout=subprocess.PIPE,
                                   stderr=subprocess.DEVNULL, env=self.environment, bufsize=0)
        self.addCleanup(program.stdout.close)
        seen = b""
        while stage.encode() not in seen:
            chunk = os.read(program.stdout.fileno(), 4096)
            self.assertTrue(chunk, f"ended before {stage}")
            seen += chunk
        started = time.monotonic()
        program.send_signal(number)
        self.assertEqual(program.wait(timeout=60), -number)
        self.assertLess(time.monotonic() - started, 30)
        self.assertFalse(os.path.lexists(output))
        self.assertEqual(self.left_in_scratch(), [])
