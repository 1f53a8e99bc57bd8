"""Sign, on packages and app archives: what it says, what it signs anew and what it leaves alone."""
import os
import shutil

from examiner import bundle, macho, signature
from harness import (ADMIN, BRANCH, BRANCH_PROFILE, DEMO_APP, SDK_APP, TRUSTED_ROOT, changed_app,
                     make_profile, pack, read, unzip, write)
from transcripts import TranscriptTest

BY_BRANCH = ("-Cert", BRANCH, "-Profile", BRANCH_PROFILE, "-logFile", "log")


def signers(app):
    """Whose signature each code object has, by its path in the app."""
    found = {}
    for code in bundle.code_objects(app):
        inner = bundle.executable_name(code) if os.path.isdir(code) else ""
        image = macho.slices(os.path.join(code, inner).rstrip("/"))[0]
        found[os.path.relpath(code, app)] = signature.signer(image)
    return found


class Sign(TranscriptTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.import_identity("branch")
        shutil.copy(DEMO_APP, cls.path("App.ipa"))
        cls.wrap(cls.path("App.ipa"), cls.path("App.wex"), "-outBundle", cls.path("Wrapped.ipa"),
                 "-noStripExtensions", "-bundleID", "com.example.managed")
        cls.package = unzip(cls.path("App.wex"), cls.path("package"))
        cls.app = cls.app_of(os.path.join(cls.package, "App.ipa"), "before")

    @classmethod
    def app_of(cls, archive, folder):
        return os.path.join(unzip(archive, cls.path(folder)), "Payload", "Fieldbook.app")

    def assert_entitlements(self, app, identifier):
        for image in macho.slices(os.path.join(app, "Fieldbook")):
            entitlements = signature.Signature(image).der_entitlements()
            self.assertEqual(entitlements["application-identifier"], f"EXAMPLE456.{identifier}")
            self.assertEqual(entitlements["com.apple.developer.team-identifier"], "EXAMPLE456")
            groups = entitlements["keychain-access-groups"]
            self.assertEqual([group for group in groups if not group.startswith("EXAMPLE456.")], [])
            self.assertIn("EXAMPLE456.com.orvane.wex", groups)

    def test_package(self):
        result, text = self.transcript("Sign", *BY_BRANCH, "-in", "App.wex", "-wexResign", "Yes")
        self.assertEqual((result.returncode, self.left_in_scratch()), (0, []), text)
        self.assert_transcript("sign_package", text)

        package = unzip(self.path("App_Resign.wex"), self.path("signed package"))
        self.assertEqual(sorted(os.listdir(package)), sorted(os.listdir(self.package)))
        for name in os.listdir(package):
            if name != "App.ipa":
                self.assertEqual(read(package, name), read(self.package, name), name)
        app = self.app_of(os.path.join(package, "App.ipa"), "signed")
        self.assertEqual(bundle.problems(app, TRUSTED_ROOT), [])
        # Only the library and the app get the new identity; all other code keeps its signature.
        expected = signers(self.app) | {".": BRANCH, "OrvaneDylib.bundle/OrvaneDylib.dylib": BRANCH}
        self.assertEqual(signers(app), expected)
        self.assertIn(ADMIN, expected.values())
        self.assert_entitlements(app, "com.example.managed")
        self.assertEqual(read(app, "embedded.mobileprovision"), read(BRANCH_PROFILE))
        changed = {name for name in bundle.files_below(self.app)
                   if read(app, name) != read(self.app, name)}
        self.assertEqual(changed, {"Fieldbook", "OrvaneDylib.bundle/OrvaneDylib.dylib",
                                   "_CodeSignature/CodeResources", "embedded.mobileprovision",
                                   "orig-entitlements.plist"})
        self.assertEqual(bundle.files_below(app), bundle.files_below(self.app))

    def test_app_archive(self):
        with changed_app() as (folder, app):
            os.symlink("PkgInfo", os.path.join(app, "link"))
            pack(folder, self.path("Plain.ipa"))
        levels = ("-reSign", "maybe", "-logWriteLevel", "1", "-logDisplayLevel", "3")
        for words, output in (((), "Plain_Resign.ipa"), (("-out", "Other.ipa", *levels), "Other.ipa")):
            result, text = self.transcript("Sign", *BY_BRANCH, "-in", "Plain.ipa", *words)
            self.assertEqual((result.returncode, self.left_in_scratch()), (0, []), text)
            app = self.app_of(self.path(output), output + ".d")
            self.assertEqual(bundle.problems(app, TRUSTED_ROOT), [])
            self.assertEqual(signers(app)["."], BRANCH)
            self.assert_entitlements(app, "com.example.fieldbook")
            self.assertEqual(os.readlink(os.path.join(app, "link")), "PkgInfo")
            # Nothing of ours gets into the app, and its extensions go.
            entries = os.listdir(app)
            for name in ("OrvaneDylib.bundle", "policy_metadata.xml", "PlugIns", "Watch"):
                self.assertNotIn(name, entries)
            self.assertTrue(os.path.isfile(self.path(output + ".d", "iTunesMetadata.plist")))
        self.assert_transcript("sign_app", text)

    def test_package_with_an_sdk_app(self):
        # The app alone is signed: there is no library of ours in it.
        payload = self.path("sdk", "Payload")
        shutil.copytree(SDK_APP, os.path.join(payload, "Gauge.app"))
        os.mkdir(self.path("sdk package"))
        pack(self.path("sdk"), self.path("sdk package", "Gauge.ipa"))
        write(b"<MobileAppPackage/>", self.path("sdk package", "manifest.xml"))
        pack(self.path("sdk package"), self.path("Sdk.wex"))
        result = self.tovrek("Sign", *BY_BRANCH, "-in", "Sdk.wex", "-out", "Signed.wex")
        self.assertEqual((result.returncode, self.left_in_scratch()), (0, []), result.stderr)
        unzip(self.path("Signed.wex"), self.path("signed sdk"))
        app = os.path.join(unzip(self.path("signed sdk", "Gauge.ipa"), self.path("sdk after")),
                           "Payload", "Gauge.app")
        self.assertEqual(bundle.problems(app, TRUSTED_ROOT), [])
        self.assertEqual({name: signer.split(",")[0] for name, signer in signers(app).items()}, {
            ".": BRANCH, "Frameworks/WEX.framework": "iPhone Distribution: Orvane Systems"})

    def test_an_expired_profile_counts_for_app_archives_only(self):
        expired = make_profile(self.path("expired.mobileprovision"), "*", "yesterday")
        words = ("Sign", "-Cert", ADMIN, "-Profile", expired, "-logFile", "log")
        self.refusals("sign_expired", [(*words, "-in", "App.ipa", "-out", "Expired.ipa")])
        result = self.tovrek(*words, "-in", "App.wex", "-out", "Expired.wex")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertTrue(os.path.isfile(self.path("Expired.wex")))

    def test_upgrades_take_the_identifier_of_any_wildcard_profile(self):
        profile = make_profile(self.path("other.mobileprovision"), "com.other.*")
        words = ("Sign", "-Cert", ADMIN, "-Profile", profile, "-logFile", "log", "-in", "App.wex",
                 "-out", "Upgrade.wex")
        self.assertEqual(self.tovrek(*words).returncode, 254)
        result = self.tovrek(*words, "-upgrade")
        self.assertEqual(result.returncode, 0, result.stderr)
        unzip(self.path("Upgrade.wex"), self.path("upgrade package"))
        app = self.app_of(self.path("upgrade package", "App.ipa"), "upgrade")
        self.assertEqual(bundle.problems(app, TRUSTED_ROOT), [])
        image = macho.slices(os.path.join(app, "Fieldbook"))[0]
        self.assertEqual(signature.Signature(image).der_entitlements()["application-identifier"],
                         "EXAMPLE123.com.other.com.example.managed")

    def test_refused_arguments(self):
        values = ["-Cert", "-Profile", "-in", "-out", "-logFile", "-logWriteLevel",
                  "-logDisplayLevel", "-reSign", "-wexResign"]
        by_admin = ("Sign", "-Cert", ADMIN, "-in", "App.wex", "-out", "o.wex", "-logFile", "log")
        write(b"no app", self.path("notes.txt"))
        output = ("-out", "o.wex")
        self.refusals("sign_arguments", [
            *[("Sign", option) for option in values],
            ("Sign", "-cert", "-UPGRADE"), ("Sign", "-help", "-in"), ("Sign", "-storeURL", "x"),
            ("Sign", "-logWriteLevel", "2x"), ("Sign", "-logDisplayLevel", "-1"),
            ("Sign",), ("Sign", "-in", "App.ipa"), ("Sign", "-in", "App.ipa", "-Cert", ADMIN),
            ("Sign", "-in", "App.ipa", "-reSign", "yes", "-wexResign", "YES"),
            ("Sign", "-in", "App.wex", "-reSign", "yes"),
            ("Sign", "-in", "App.ipa", "-wexResign", "yes"),
            ("Sign", *BY_BRANCH, "-in", "Some.app"),
            ("Sign", *BY_BRANCH, "-in", "App.ipa", "-logWriteLevel", "5"),
            ("Sign", *BY_BRANCH, "-in", "gone.wex"),
            (*by_admin, "-Profile", "gone"), (*by_admin, "-Profile", self.path()),
            (*by_admin, "-Profile", BRANCH_PROFILE),
            ("Sign", *BY_BRANCH, "-in", "App.wex", "-out", "gone/o.wex"),
            ("Sign", *BY_BRANCH, "-in", "App.wex", "-out", "o.zip"),
            ("Sign", *BY_BRANCH, "-in", "notes.txt"),
            ("Sign", *BY_BRANCH, "-in", "notes.txt", "-reSign", "yes", *output),
            ("Sign", *BY_BRANCH, "-in", "notes.txt", "-wexResign", "yes", *output),
        ])

    def test_refused_files(self):
        shutil.copy(DEMO_APP, self.path("Upper.IPA"))
        shutil.copy(self.path("App.wex"), self.path("Upper.WEX"))
        shutil.copytree(SDK_APP, self.path("linked", "Payload", "Gauge.app"))
        pack(self.path("linked"), self.path("Sdk.ipa"))
        write(b"this is no archive", self.path("text.wex"))
        shutil.copy(self.path("text.wex"), self.path("text.ipa"))
        packages = {"no ipa.wex": {"manifest.xml": b""}, "bad ipa.wex": {"App.ipa": b"text"}}
        for name, files in packages.items():
            for file, content in files.items():
                write(content, self.path(name + ".d", file))
            pack(self.path(name + ".d"), self.path(name))
        write(b"", self.path("empty", "file"))
        os.mkdir(self.path("no payload"))
        pack(self.path("empty"), self.path("no payload", "App.ipa"))
        pack(self.path("no payload"), self.path("no payload.wex"))
        specific = make_profile(self.path("specific.mobileprovision"), "com.other.app")
        by_admin = ("-Cert", ADMIN, "-logFile", "log", "-out", "o.wex")
        inputs = ["Upper.IPA", "Upper.WEX", "Wrapped.ipa", "Sdk.ipa", "text.ipa", "text.wex",
                  "no ipa.wex", "bad ipa.wex", "no payload.wex"]
        self.refusals("sign_files", [
            *[("Sign", *BY_BRANCH, "-in", name, "-out", "o.wex") for name in inputs],
            ("Sign", *by_admin, "-in", "App.wex", "-Profile", specific),
            ("Sign", *by_admin, "-in", "App.ipa", "-Profile", specific),
        ])
        # Listed in the profile, but in no keychain.
        words = ("Sign", *BY_BRANCH, "-in", "App.wex", "-out", "o.wex")
        result = self.tovrek(*words, environment={"XDG_DATA_HOME": self.path("empty home")})
        self.assertEqual(result.returncode, 254)
        self.assertIn("\n\nFailed to execute dylibcodesign with exit code: 1\n", result.stderr)
        self.assertFalse(os.path.lexists(self.path("o.wex")))

    def test_help_and_get_info(self):
        self.assert_transcript("sign_help", self.transcript("sign", "-HELP")[1])
        self.assert_transcript("get_info", self.transcript("GetInfo", "-in", "App.wex")[1])
