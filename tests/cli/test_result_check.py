"""The setting verifyResult: what a device would refuse of an app that was signed without a fault."""
import hashlib
import os
from datetime import datetime

from harness import (ADMIN, IDENTITIES, PROFILE, TOOLKIT, changed_app, der_of, pack, read, remove,
                     result_text, write)
from makers import APP_ID, IDENTIFIER, ISSUERS, TEAM, SmallAppTest, certificate, profile, small_app

DEVICES = {"ProvisionsAllDevices": True, "Platform": ["iOS"]}
REFUSED = "ERROR: A device would refuse the signed app. "


class ResultCheck(SmallAppTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        # The administrator's certificate as it was renewed: the same names and key.
        cls.renewed = certificate(cls.path("renewed.pem"), [
            f"CN = {ADMIN}", f"OU = {TEAM}", "O = Example Corporation"])
        cls.renewed_home = cls.path("renewed home")
        everything = b"".join(read(path) for path in [
            cls.renewed, os.path.join(IDENTITIES, "admin.key"), *ISSUERS])
        cls.security("import", write(everything, cls.path("renewed items.pem")),
                     XDG_DATA_HOME=cls.renewed_home)
        cls.good = profile(cls.path("good.mobileprovision"), **DEVICES)

    def wrapped(self, value, *words, environment=(), **keywords):
        """The result of a run, what it told of devices, and whether there is output."""
        conf = write(f"verifyResult = {value}\n".encode(), self.path("conf"))
        remove(self.path("out.wex"))
        with small_app() as (folder, _):
            result, _ = self.wrap_folder(
                folder, *words, environment={"TOVREK_CONF": conf} | dict(environment),
                **{"profile": self.good} | keywords)
        told = [line.split("] verifyResult: ", 1)[1] for line in result.stderr.splitlines()
                if "] verifyResult: " in line]
        return result, told, os.path.exists(self.path("out.wex"))

    def test_what_is_refused(self):
        name = "Small.app: "
        unlisted = ("the provisioning profile does not list the certificate \"{}\" with SHA-1 {} "
                    "(certificate-not-in-profile)")
        sha1 = hashlib.sha1(der_of(self.renewed)).hexdigest()
        renewed = {"XDG_DATA_HOME": self.renewed_home}

        def maker(label, *entitlements, **values):
            return profile(self.path(label), *entitlements, **DEVICES | values)

        library = "Small.app/OrvaneDylib.bundle/OrvaneDylib.dylib: "
        stranger = "devices do not know the authority \"Demo Root CA\" (chain-not-trusted)"
        cases = [
            # What is given, and what a device would refuse.
            ({"environment": renewed}, [name + unlisted.format(ADMIN, sha1)]),
            ({"environment": renewed, "cert": sha1}, [name + unlisted.format(ADMIN, sha1)]),
            ({"profile": maker("store", ProvisionsAllDevices=False)},
             [name + "the provisioning profile is for a store: it names no devices, and apps with "
              "it are installed from the store alone (profile-store)"]),
            ({"profile": maker("mac", Platform=["OSX"])},
             [name + "the provisioning profile is for OSX, not for iOS (profile-platform)"]),
            ({"profile": maker("future", CreationDate=datetime(2097, 1, 1),
                               ExpirationDate=datetime(2098, 1, 1))},
             [name + "the provisioning profile is valid from 2097-01-01 00:00:00 +0000 to "
              "2098-01-01 00:00:00 +0000 (profile-dates)"]),
            ({"profile": maker("part", {APP_ID: f"{TEAM}.{IDENTIFIER}*"}), "words": ["-upgrade"]},
             [name + f"the entitlements say {TEAM}.{IDENTIFIER}*, the Info.plist "
              f"{IDENTIFIER} (identifier-mismatch)"]),
        ]
        for keywords, expected in cases:
            with self.subTest(expected=expected):
                words = keywords.pop("words", [])
                result, told, is_written = self.wrapped("yes", *words, **keywords)
                self.assertEqual((result.returncode, is_written), (0, True), result.stderr)
                self.assertEqual(told, ["a device would refuse " + text for text in expected])
                result, _, is_written = self.wrapped("strict", *words, **keywords)
                self.assertEqual((result.returncode, is_written), (254, False))
                self.assertEqual(result_text(result), REFUSED + expected[0])
                result, told, is_written = self.wrapped("no", *words, **keywords)
                self.assertEqual((result.returncode, told, is_written), (0, [], True))
        # Everything that is signed is told of, and the text counts it.
        result, told, _ = self.wrapped("strict", environment={"TOVREK_TRUSTED_ROOT_SHA1": ""})
        self.assertIn("a device would refuse " + library + stranger, told)
        self.assertEqual(result_text(result), f"{REFUSED}{name}{stranger} [{len(told) - 1} more]")

    def test_what_has_limits(self):
        limited = profile(self.path("limited"), {"get-task-allow": True}, Platform=["iOS"],
                          ProvisionedDevices=["a", "b"])
        for value in ("yes", "strict"):
            result, told, is_written = self.wrapped(value, profile=limited)
            self.assertEqual((result.returncode, is_written), (0, True))
            self.assertEqual(told, [
                "a device takes with limits Small.app: the provisioning profile admits 2 devices "
                "alone (profile-devices)",
                "a device takes with limits Small.app: the provisioning profile is for "
                "development: debuggers may attach (profile-development)"])
        self.assertEqual(self.wrapped("strict")[1], [])

    def test_code_that_keeps_a_broken_signature(self):
        # Sign leaves frameworks as they are.
        with changed_app() as (folder, app):
            ledger = os.path.join(app, "Frameworks", "Ledger.framework")
            write(b"added later", ledger, "later.txt")
            paper = os.path.join(ledger, "Frameworks", "Paper.framework", "Paper")
            code = bytearray(read(paper))
            code[code.rindex(b"__LINKEDIT") + 0x800] ^= 1
            write(code, paper)
            write(b"no signature at all", app, "plain.dylib")
            pack(folder, self.path("Broken.ipa"))
        conf = write(b"verifyResult = strict\n", self.path("conf"))
        result = self.run_toolkit(
            [os.path.join(TOOLKIT, "Tovrek"), "Sign", "-Cert", ADMIN, "-Profile", PROFILE, "-in",
             self.path("Broken.ipa"), "-out", self.path("signed.ipa"), "-logFile",
             self.path("Orvane.log")], {"TOVREK_CONF": conf})
        self.assertEqual(result.returncode, 254, result.stderr)
        self.assertFalse(os.path.exists(self.path("signed.ipa")))
        frameworks = "Fieldbook.app/Frameworks/Ledger.framework"
        for text in (f"{frameworks}: a sealed resource is missing or invalid; file added: /.*/"
                     r"later\.txt.*\(signature-invalid\)",
                     rf"{frameworks}/Frameworks/Paper.framework: invalid signature .*"
                     r"\(signature-invalid\)",
                     r"Fieldbook.app/plain.dylib: code object is not signed at all "
                     r"\(signature-missing\)",
                     rf"{frameworks}: it is signed by the team SAMPLE0001, the app by EXAMPLE123 "
                     r"\(team-mismatch\)"):
            self.assertRegex(result.stderr, "verifyResult: a device would refuse " + text)
