"""What Wrap says about input it cannot use: one text, the right status, nothing left behind."""
import itertools
import os
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

from harness import (COMPANIONS, DEMO_APP, DEVELOPER, TOOLKIT, WholeProgramTest, changed_app,
                     copy_toolkit, make_profile, pack, read, run, sha1_of, sign_as_developer,
                     thin, write)
from makers import fill_header


class Refusals(WholeProgramTest):
    numbers = itertools.count()

    def refuse(self, status, text, app=DEMO_APP, *options, output=None, **keywords):
        """Wrap must end with the status and the text, and leave nothing behind."""
        output = output or self.path(f"refused {next(self.numbers)}.wex")
        result = self.wrap(app, output, *options, **keywords)
        self.assert_ends_with(result, status, text)
        self.assertFalse(os.path.lexists(output))


class BadInput(Refusals):
    def test_archives(self):
        whole = read(DEMO_APP)
        write(b"text", self.path("no payload", "Contents", "file"))
        os.makedirs(self.path("no app", "Payload"))
        write(b"", self.path("other case", "Payload", "X.APP", "X"))
        archives = {
            "text": (b"this is no archive", "Unzip command failed. *"),
            "empty": (b"", "Unzip command failed. *"),
            "half": (whole[:len(whole) // 2], "Unzip command failed. *"),
            "no end": (whole[:-10], "Unzip command failed. *"),
            "damaged": (whole[:2000] + bytes(500) + whole[2500:], "Unzip command failed. *"),
            "no payload": (None, "Payload directory does not exist at /*"),
            "no app": (None, "Payload directory (/*/Payload) can not be found."),
            "other case": (None, "Payload directory (/*/Payload) can not be found."),
        }
        for name, (content, text) in archives.items():
            with self.subTest(name):
                archive = self.path(f"{name}.ipa")
                if content is None:
                    pack(self.path(name), archive)
                else:
                    write(content, archive)
                # A failed unpacking ends with status 0 on purpose.
                self.refuse(0, text, archive)
        self.refuse(255, "A required file at this location does not exist: */gone.ipa",
                    self.path("gone.ipa"))

    def test_executables(self):
        def without(app):
            os.remove(os.path.join(app, "Fieldbook"))

        def script(app):
            write(b"#!/bin/sh\n", app, "Fieldbook")

        def full(app):
            # The room is judged by the last section before the data: this slice has but one.
            thin(os.path.join(app, "Fieldbook"), "armv7")
            fill_header(os.path.join(app, "Fieldbook"))

        def linked(app):
            old, new = b"@rpath/Ledger.framework/Ledger", b"@rpath/WEX.framework/WEX"
            write(read(app, "Fieldbook").replace(old, new.ljust(len(old), b"\0")), app, "Fieldbook")

        def air(app):
            write(b"", app, "META-INF", "AIR", "application.xml")

        cases = [
            (without, 254, "ERROR: The app (*) is an AppStore app."),
            (script, 254, "ERROR: The app (*) is an AppStore app."),
            (full, 254, "ERROR: No room in header of application binary image to insert dylib "
                        "reference."),
            (linked, 0, "To wrap, choose a valid file that does not include the WEX framework. "
                        "Wrapping an SDK app with this tool is not supported."),
            (air, 254, "WEX does not support wrapping applications created using the Adobe Air "
                       "framework."),
        ]
        for change, status, text in cases:
            with self.subTest(change.__name__), changed_app() as (folder, app):
                change(app)
                self.refuse(status, text, pack(folder, self.path("changed.ipa")))

    def test_wrapped_app(self):
        output, archive = self.path("first.wex"), self.path("first.ipa")
        self.assert_wrapped(self.wrap(DEMO_APP, output, "-outBundle", archive), output)
        self.refuse(254, "ERROR: This app is already wrapped, and cannot be re-wrapped.", archive)

    def test_profiles(self):
        no_profile = write(b"not a profile", self.path("text.mobileprovision"))
        # Without a profile to list the name, a name is taken for a hash and loses its blanks.
        self.refuse(255, "iOS distribution certificate name (iPhoneDistribution:ExampleCorporation"
                         "(EXAMPLE123)) does not match certificates listed in *",
                    profile=no_profile)
        self.refuse(254, "Failed to execute security with exit code: 1", profile=no_profile,
                    cert=sha1_of().replace(" ", ""))
        self.refuse(255, "A required file at this location does not exist: */gone.mobileprovision",
                    profile=self.path("gone.mobileprovision"))
        profiles = [
            (("*", "yesterday"), "This provisioning profile has expired. Please use a valid "
                                 "provisioning profile."),
            (("com.other.app",), "This provisioning profile is specific to <com.other.app>.  "
                                 "Change the bundle indentifier above or choose a different "
                                 "profile."),
            (("com.other.*",), "Bundle identifier <com.example.fieldbook> is not suitable for use "
                               "with wildcard profile <com.other.*>.  Change the bundle "
                               "indentifier above or choose a different profile."),
        ]
        for arguments, text in profiles:
            with self.subTest(arguments):
                profile = make_profile(self.path("refused.mobileprovision"), *arguments)
                self.refuse(254, text, profile=profile)

    def test_identities(self):
        # Listed in the profile, but in no keychain: found out when signing starts.
        self.refuse(254, "Failed to execute dylibcodesign with exit code: 1",
                    environment={"XDG_DATA_HOME": self.path("empty")})
        self.refuse(255, "iOS distribution certificate name (*) does not match *", cert=DEVELOPER)

    def test_content_folder(self):
        toolkit = copy_toolkit(self.path("toolkit"))
        data = os.path.join(toolkit, "Data")
        dylib = os.path.join(data, "OrvaneDylib.bundle", "OrvaneDylib.dylib")
        sign_as_developer(dylib)
        self.refuse(254, "Failed to validate that dylib is signed by Orvane.", toolkit=toolkit)
        write(b"no program", dylib)
        self.refuse(254, "Failed to execute codesign-verifyOrvaneDylib with exit code: 1",
                    toolkit=toolkit)
        shutil.rmtree(data)
        self.refuse(254, "A required file at this location does not exist: */OrvaneDylib.bundle/"
                         "OrvaneDylib.dylib", toolkit=toolkit)

    def test_outputs(self):
        self.refuse(255, "Could not write to output path (*/gone). Make sure this location exists "
                         "and that you have write access to it.", output=self.path("gone", "o.wex"))
        self.refuse(255, "Output file has incorrect extension, it must be '.wex'",
                    output=self.path("out.zip"))
        self.refuse(255, "Output bundle file has incorrect extension, it must be '.ipa'", DEMO_APP,
                    "-outBundle", self.path("bundle.zip"))

    @unittest.skipIf(os.geteuid() == 0, "root may write everywhere")
    def test_read_only_output_folder(self):
        os.mkdir(self.path("locked"), 0o500)
        self.refuse(255, "Could not write to output path (*/locked). *",
                    output=self.path("locked", "out.wex"))

    def test_policies_that_are_not_xml(self):
        policies = write(b"<Policy", self.path("bad.xml"))
        self.refuse(254, "?*", DEMO_APP, "-policyXML", policies)
        write(b"", policies)
        self.refuse(254, f"{policies}: the file is empty", DEMO_APP, "-policyXML", policies)
        self.refuse(254, f"{self.folder}: Is a directory", DEMO_APP, "-policyXML", self.folder)


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
        self.refuse(254, "Failed to copy file from * to */out.wex. Error:*No space left on device*",
                    output=os.path.join(self.disk, "out.wex"))
        self.assertEqual(os.listdir(self.disk), ["filler"])
        os.remove(os.path.join(self.disk, "filler"))

    def test_full_scratch(self):
        self.refuse(0, "Unzip command failed. *", environment={"TMPDIR": self.disk})
        self.assertEqual([files for _, _, files in os.walk(self.disk) if files], [])


class Interrupted(WholeProgramTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        # The last stage takes some milliseconds only, too few to be sure to hit it.
        host = shutil.copytree(os.path.join(TOOLKIT, "host"), cls.path("host"),
                               copy_function=os.symlink)
        slow = os.path.join(host, "usr", "bin", "zip")
        os.remove(slow)
        write(f"#!/bin/sh\nsleep 0.5\nexec '{COMPANIONS}/zip' \"$@\"\n".encode(), slow)
        os.chmod(slow, 0o755)
        cls.environment["TOVREK_HOST_ROOT"] = host

    def test_signals_clean_up(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            for stage in ("Unzipping", "Code signing", "Generating package file"):
                with self.subTest(signal=number, stage=stage):
                    self.interrupt(number, stage)

    def interrupt(self, number, stage):
        output = self.path("interrupted.wex")
        # A signal that is ignored where the tests were started would stay ignored.
        program = subprocess.Popen(self.wrap_command(DEMO_APP, output), stdout=subprocess.PIPE,
                                   stderr=subprocess.DEVNULL, env=self.environment, bufsize=0,
                                   preexec_fn=lambda: signal.signal(number, signal.SIG_DFL))
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
