"""Sign, on packages and app archives: what it says, what it signs anew and what it leaves alone."""
import os
import shutil

from examiner import bundle
from harness import (ADMIN, BRANCH, BRANCH_PROFILE, DEMO_APP, SDK_APP, TRUSTED_ROOT, changed_app,
                     make_profile, pack, read, unpacked_app, write)
from transcripts import SignTest

BY_BRANCH = (*SignTest.BY_BRANCH, "-logFile", "log")


class Sign(SignTest):
    def signed_app(self, archive):
        """The app of an output; the folder where it is unpacked has the archive's name and ".d"."""
        app = unpacked_app(self.path(archive), self.path(archive + ".d"))
        self.assertEqual(bundle.problems(app, TRUSTED_ROOT), [])
        return app

    def packed(self, name, files):
        """An archive of files with these contents; an archive among them is given by its path."""
        for file, content in files.items():
            write(content, self.path(name + ".in", file))
        return pack(self.path(name + ".in"), self.path(name))

    def assert_entitlements(self, app, identifier):
        entitlements = bundle.entitlements(app)
        self.assertEqual(entitlements["application-identifier"], f"EXAMPLE456.{identifier}")
        self.assertEqual(entitlements["com.apple.developer.team-identifier"], "EXAMPLE456")
        groups = entitlements["keychain-access-groups"]
        self.assertEqual([group for group in groups if not group.startswith("EXAMPLE456.")], [])
        self.assertIn("EXAMPLE456.com.orvane.wex", groups)

    def test_package(self):
        self.assert_done("Sign", *BY_BRANCH, "-in", "App.wex", "-wexResign", "Yes",
                         transcript="sign_package")
        app = self.signed_app("App_Resign.wex")
        package = self.path("App_Resign.wex.d")
        self.assertEqual(sorted(os.listdir(package)), sorted(os.listdir(self.package)))
        for name in set(os.listdir(package)) - {"App.ipa"}:
            self.assertEqual(read(package, name), read(self.package, name), name)
        # Only the library and the app get the new identity; all other code keeps its signature.
        expected = bundle.signers(self.app) | {
            ".": BRANCH, "OrvaneDylib.bundle/OrvaneDylib.dylib": BRANCH}
        self.assertEqual(bundle.signers(app), expected)
        self.assertIn(ADMIN, expected.values())
        self.assert_entitlements(app, "com.example.managed")
        self.assertEqual(read(app, "embedded.mobileprovision"), read(BRANCH_PROFILE))
        self.assertEqual(bundle.changed_files(self.app, app), {
            "Fieldbook", "OrvaneDylib.bundle/OrvaneDylib.dylib", "_CodeSignature/CodeResources",
            "embedded.mobileprovision", "orig-entitlements.plist"})

    def test_app_archive(self):
        with changed_app() as (folder, app):
            os.symlink("PkgInfo", os.path.join(app, "link"))
            pack(folder, self.path("Plain.ipa"))
        levels = ("-reSign", "maybe", "-logWriteLevel", "1", "-logDisplayLevel", "3")
        for words, output, transcript in (
                ((), "Plain_Resign.ipa", None),
                (("-out", "Other.ipa", *levels), "Other.ipa", "sign_app")):
            self.assert_done("Sign", *BY_BRANCH, "-in", "Plain.ipa", *words, transcript=transcript)
            app = self.signed_app(output)
            self.assertEqual(bundle.signers(app)["."], BRANCH)
            self.assert_entitlements(app, "com.example.fieldbook")
            self.assertEqual(os.readlink(os.path.join(app, "link")), "PkgInfo")
            # Nothing of ours gets into the app, and its extensions go.
            for name in ("OrvaneDylib.bundle", "policy_metadata.xml", "PlugIns", "Watch"):
                self.assertNotIn(name, os.listdir(app))
            self.assertTrue(os.path.isfile(self.path(output + ".d", "iTunesMetadata.plist")))

    def test_package_with_an_sdk_app(self):
        # The app alone is signed: there is no library of ours in it.
        shutil.copytree(SDK_APP, self.path("sdk", "Payload", "Gauge.app"))
        self.packed("Sdk.wex", {"Gauge.ipa": read(pack(self.path("sdk"), self.path("Gauge.ipa"))),
                                "manifest.xml": b"<MobileAppPackage/>"})
        self.assert_done("Sign", *BY_BRANCH, "-in", "Sdk.wex", "-out", "Signed.wex")
        signers = bundle.signers(self.signed_app("Signed.wex"))
        self.assertEqual({name: signer.split(",")[0] for name, signer in signers.items()}, {
            ".": BRANCH, "Frameworks/WEX.framework": "iPhone Distribution: Orvane Systems"})

    def test_an_expired_profile_counts_for_app_archives_only(self):
        expired = make_profile(self.path("expired.mobileprovision"), "*", "yesterday")
        words = ("-Cert", ADMIN, "-Profile", expired, "-logFile", "log")
        self.refusals("sign_expired", "Sign", [(*words, "-in", "App.ipa", "-out", "Expired.ipa")])
        self.assert_done("Sign", *words, "-in", "App.wex", "-out", "Expired.wex")
        self.assertTrue(os.path.isfile(self.path("Expired.wex")))

    def test_upgrades_take_the_identifier_of_any_wildcard_profile(self):
        profile = make_profile(self.path("other.mobileprovision"), "com.other.*")
        words = ("Sign", "-Cert", ADMIN, "-Profile", profile, "-in", "App.wex", "-logFile", "log",
                 "-out", "Upgrade.wex")
        self.assertEqual(self.tovrek(*words).returncode, 254)
        self.assert_done(*words, "-upgrade")
        app = self.signed_app("Upgrade.wex")
        self.assertEqual(bundle.entitlements(app)["application-identifier"],
                         "EXAMPLE123.com.other.com.example.managed")

    def test_refused_arguments(self):
        values = ["-Cert", "-Profile", "-in", "-out", "-logFile", "-logWriteLevel",
                  "-logDisplayLevel", "-reSign", "-wexResign"]
        by_admin = ("-Cert", ADMIN, "-in", "App.wex", "-out", "o.wex", "-logFile", "log")
        write(b"no app", self.path("notes.txt"))
        output = ("-out", "o.wex")
        self.refusals("sign_arguments", "Sign", [
            *[(option,) for option in values],
            ("-cert", "-UPGRADE"), ("-help", "-in"), ("-storeURL", "x"),
            ("-logWriteLevel", "2x"), ("-logDisplayLevel", "-1"),
            (), ("-in", "App.ipa"), ("-in", "App.ipa", "-Cert", ADMIN),
            ("-in", "App.ipa", "-reSign", "yes", "-wexResign", "YES"),
            ("-in", "App.wex", "-reSign", "yes"), ("-in", "App.ipa", "-wexResign", "yes"),
            (*BY_BRANCH, "-in", "Some.app"),
            (*BY_BRANCH, "-in", "App.ipa", "-logWriteLevel", "5"),
            (*BY_BRANCH, "-in", "gone.wex"),
            (*by_admin, "-Profile", "gone"), (*by_admin, "-Profile", self.path()),
            (*by_admin, "-Profile", BRANCH_PROFILE),
            (*BY_BRANCH, "-in", "App.wex", "-out", "gone/o.wex"),
            (*BY_BRANCH, "-in", "App.wex", "-out", "o.zip"),
            (*BY_BRANCH, "-in", "notes.txt"),
            (*BY_BRANCH, "-in", "notes.txt", "-reSign", "yes", *output),
            (*BY_BRANCH, "-in", "notes.txt", "-wexResign", "yes", *output),
        ])

    def test_refused_files(self):
        shutil.copy(DEMO_APP, self.path("Upper.IPA"))
        shutil.copy(self.path("App.wex"), self.path("Upper.WEX"))
        shutil.copytree(SDK_APP, self.path("linked", "Payload", "Gauge.app"))
        pack(self.path("linked"), self.path("Sdk.ipa"))
        for name in ("text.wex", "text.ipa"):
            write(b"this is no archive", self.path(name))
        self.packed("no ipa.wex", {"manifest.xml": b""})
        self.packed("bad ipa.wex", {"App.ipa": b"text"})
        self.packed("no payload.wex", {"App.ipa": read(self.packed("in.ipa", {"file": b""}))})
        specific = make_profile(self.path("specific.mobileprovision"), "com.other.app")
        inputs = ["Upper.IPA", "Upper.WEX", "Wrapped.ipa", "Sdk.ipa", "text.ipa", "text.wex",
                  "no ipa.wex", "bad ipa.wex", "no payload.wex"]
        by_admin = ("-Cert", ADMIN, "-logFile", "log", "-out", "o.wex")
        self.refusals("sign_files", "Sign", [
            *[(*BY_BRANCH, "-in", name, "-out", "o.wex") for name in inputs],
            *[(*by_admin, "-in", name, "-Profile", specific) for name in ("App.wex", "App.ipa")],
        ])
        # Listed in the profile, but in no keychain.
        result = self.tovrek("Sign", *BY_BRANCH, "-in", "App.wex", "-out", "o.wex",
                             environment={"XDG_DATA_HOME": self.path("empty home")})
        self.assert_ends_with(result, 254, "Failed to execute dylibcodesign with exit code: 1")
        self.assertFalse(os.path.lexists(self.path("o.wex")))

    def test_help_and_get_info(self):
        self.assert_transcript("sign_help", self.transcript("sign", "-HELP")[1])
        self.assert_transcript("get_info", self.transcript("GetInfo", "-in", "App.wex")[1])
