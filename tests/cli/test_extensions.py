"""Extensions that are to work: profiles from a folder, entitlements made from them, identifiers that
follow the app's."""
import os
import plistlib
import shutil
from datetime import datetime, timedelta

from examiner import bundle
from harness import (ADMIN, PROFILE, TRUSTED_ROOT, changed_app, edit_info, pack, read, remove,
                     sign_as_developer, unpacked_app, write)
from makers import (APP_GROUPS, APP_ID, GROUPS, TEAM, TEAM_ID, certificate, profile,
                    sign_with_entitlements)
from transcripts import SignTest

OLD, NEW = "com.example.fieldbook", "com.example.managed"
SHARE = "PlugIns/Share.appex"
WATCH = "Watch/FieldbookWatch.app"
WATCH_EXTENSION = WATCH + "/PlugIns/Dial.appex"
IN_FRAMEWORK = "Frameworks/Ledger.framework/PlugIns/Paper.appex"
IDENTIFIERS = {SHARE: "share", WATCH: "watch", WATCH_EXTENSION: "watch.dial",
               IN_FRAMEWORK: "paper"}
DOUBTFUL = "*These extensions are NOT likely to function properly."
ALL_DEVICES = {"ProvisionsAllDevices": True, "Platform": ["iOS"]}


class ExtensionTest(SignTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        with changed_app() as (folder, app):
            share = os.path.join(app, SHARE)
            for place in (WATCH_EXTENSION, IN_FRAMEWORK):
                shutil.copytree(share, os.path.join(app, place))
            for place, name in IDENTIFIERS.items():
                edit_info(os.path.join(app, place), CFBundleIdentifier=f"{OLD}.{name}")
            edit_info(os.path.join(app, WATCH), WKCompanionAppBundleIdentifier=OLD)
            edit_info(os.path.join(app, WATCH_EXTENSION), NSExtension={
                "NSExtensionPointIdentifier": "com.apple.watchkit",
                "NSExtensionAttributes": {"WKAppBundleIdentifier": f"{OLD}.watch",
                                          "Other": [f"{OLD}.share", f"{OLD}.unknown"]}})
            sign_with_entitlements(share, {
                APP_ID: f"SAMPLE0001.{OLD}.share", GROUPS: [f"SAMPLE0001.{OLD}"],
                APP_GROUPS: [f"group.{OLD}", "group.other", f"group.{OLD}.kept"],
                "com.apple.developer.healthkit": True, "get-task-allow": True})
            for place in (WATCH_EXTENSION, IN_FRAMEWORK, WATCH, "Frameworks/Ledger.framework"):
                sign_as_developer(os.path.join(app, place))
            sign_as_developer(app, "--preserve-metadata=entitlements")
            pack(folder, cls.path("Family.ipa"))

    def setUp(self):
        self.profiles = self.path("profiles")
        shutil.rmtree(self.profiles, ignore_errors=True)
        os.mkdir(self.profiles)

    def store(self, name, app_id, days=300, entitlements=(), **values):
        return profile(os.path.join(self.profiles, name + ".mobileprovision"),
                       {APP_ID: f"{TEAM}.{app_id}"} | dict(entitlements),
                       **ALL_DEVICES | {"ExpirationDate": datetime.now() + timedelta(days=days)} |
                       values)

    def run_with(self, settings, *words, environment=()):
        conf = write("".join(f"{name} = {value}\n" for name, value in settings.items()).encode(),
                     self.path("conf"))
        self.output = self.path("out.ipa")
        remove(self.path("log"), self.output, self.path("out.wex"))
        result = self.tovrek(*words, "-logFile", "log", "-logWriteLevel", "3",
                             environment={"TOVREK_CONF": conf} | dict(environment))
        self.assertEqual(self.left_in_scratch(), [], result.stderr)
        return result, read(self.path("log")).decode()

    def wrap_family(self, settings, *words, cert=ADMIN, app="Family.ipa", own=PROFILE, **keywords):
        return self.run_with(settings, "Wrap", "-Cert", cert, "-Profile", own, "-in", app, "-out",
                             self.path("out.wex"), "-outBundle", self.path("out.ipa"),
                             "-noStripExtensions", *words, **keywords)

    def sign_family(self, settings, app="Family.ipa"):
        return self.run_with({"keepExtensionsOnSign": "yes", "resignWrapped": "yes"} | settings,
                             "Sign", "-Cert", ADMIN, "-Profile", PROFILE, "-in", app, "-out",
                             self.path("out.ipa"))

    def unpacked(self):
        shutil.rmtree(self.path("unpacked"), ignore_errors=True)
        app = unpacked_app(self.output, self.path("unpacked"))
        self.assertEqual(bundle.problems(app, TRUSTED_ROOT), [])
        return app

    def in_app(self, app, place, kind):
        path = os.path.join(app, place)
        if kind == "profile":
            return read(path, "embedded.mobileprovision")
        return (bundle.entitlements(path) if kind == "entitlements" else
                plistlib.loads(read(path, "Info.plist")))

    def embedded(self, app):
        """Which file of the folder each bundle holds as its profile."""
        files = {read(self.profiles, name): name.split(".")[0] for name in
                 os.listdir(self.profiles)} | {read(PROFILE): "own"}
        found = {}
        for place in IDENTIFIERS:
            file = os.path.join(app, place, "embedded.mobileprovision")
            found[place] = files[read(file)] if os.path.exists(file) else None
        return found


class Fitting(ExtensionTest):
    def test_every_extension_is_fitted(self):
        # What an installer checks is checked by the run itself, which would fail.
        self.store("share", f"{OLD}.share", entitlements={
            APP_GROUPS: [f"group.{OLD}.kept", f"group.{OLD}"]})
        self.store("watch", f"{OLD}.watch*")
        write(b"no profile", self.profiles, "broken.mobileprovision")
        settings = {"profilesFolder": self.profiles, "verifyResult": "strict"}
        for command in (self.wrap_family, self.sign_family):
            result, log = command(settings)
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertNotIn("NOT likely", result.stderr + log)
            self.assertIn("broken.mobileprovision: it is no provisioning profile", log)
            app = self.unpacked()
            self.assertEqual(self.embedded(app), {SHARE: "share", WATCH: "watch",
                                                  WATCH_EXTENSION: "watch", IN_FRAMEWORK: "own"})
            self.assertEqual(set(bundle.signers(app).values()), {ADMIN})
            for place, name in IDENTIFIERS.items():
                self.assertRegex(log, rf"profilesFolder fits /.*/{place} \({OLD}\.{name}\) with /")
                entitlements = self.in_app(app, place, "entitlements")
                self.assertEqual(entitlements[APP_ID], f"{TEAM}.{OLD}.{name}")
                self.assertEqual(entitlements[TEAM_ID], TEAM)
                self.assertIs(entitlements["get-task-allow"], False)
            share = self.in_app(app, SHARE, "entitlements")
            self.assertEqual(share[GROUPS], [f"{TEAM}.{OLD}"])
            self.assertEqual(share[APP_GROUPS], [f"group.{OLD}", f"group.{OLD}.kept"])
            self.assertNotIn("com.apple.developer.healthkit", share)
            for key in (APP_GROUPS, "com.apple.developer.healthkit"):
                self.assertIn(f"does not grant all of the entitlement {key};", log)

    def test_the_best_profile_is_chosen(self):
        other = certificate(self.path("other.pem"), ["CN = Somebody Else"])
        for name, arguments in {
                "exact": {"app_id": f"{OLD}.share", "days": 50},
                "longer": {"app_id": f"{OLD}.*", "days": 60},
                "later": {"app_id": "com.example.*", "days": 200},
                "sooner": {"app_id": "com.example.*", "days": 100},
                "expired": {"app_id": f"{OLD}.share", "days": -1},
                "unlisted": {"app_id": f"{OLD}.share", "certificates": [other]},
                "mac": {"app_id": f"{OLD}.share", "Platform": ["OSX"]},
                "store": {"app_id": f"{OLD}.share", "ProvisionsAllDevices": False}}.items():
            self.store(name, **arguments)
        # The best, and what is best when that is gone; the profile of the app serves last, its
        # wildcard being the shortest.
        for best in ("exact", "longer", "later", "sooner", "own"):
            result, _ = self.wrap_family({"profilesFolder": self.profiles})
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertEqual(self.embedded(self.unpacked())[SHARE], best)
            if best != "own":
                os.remove(os.path.join(self.profiles, best + ".mobileprovision"))

    def test_without_a_match(self):
        own = profile(self.path("own.mobileprovision"), {APP_ID: f"{TEAM}.{OLD}"}, **ALL_DEVICES)
        self.store("share", f"{OLD}.share")
        # The variable stands above the file.
        result, log = self.wrap_family({"profilesFolder": "/gone"}, own=own,
                                       environment={"TOVREK_PROFILES": self.profiles})
        self.assert_ends_with(result, 0, DOUBTFUL)
        for place in (WATCH, WATCH_EXTENSION, IN_FRAMEWORK):
            self.assertRegex(log, rf"/{place}: no valid provisioning profile is for {OLD}\.")
        app = self.unpacked()
        self.assertEqual(self.embedded(app), {SHARE: "share", WATCH: None, WATCH_EXTENSION: None,
                                              IN_FRAMEWORK: None})
        result, log = self.wrap_family({"profilesFolder": "/gone"}, own=own)
        text = "ERROR: The profiles in /gone cannot be read: No such file or directory"
        self.assert_ends_with(result, 254, text)
        self.assertIn(text, log)
        self.assertFalse(os.path.exists(self.output))

    def test_identifiers_follow_the_app(self):
        self.store("share", f"{NEW}.share", entitlements={
            APP_GROUPS: [f"group.{NEW}", f"group.{OLD}.kept", f"group.{NEW}.kept"]})
        settings = {"profilesFolder": self.profiles, "renameExtensions": "yes",
                    "verifyResult": "strict"}
        # An app that was wrapped under another identifier is mended when it is signed.
        self.wrap_family({}, "-bundleID", NEW)
        shutil.copy(self.output, self.path("Wrapped.ipa"))
        for run_command in (lambda: self.wrap_family(settings, "-bundleID", NEW),
                            lambda: self.sign_family(settings, "Wrapped.ipa")):
            result, log = run_command()
            self.assertEqual(result.returncode, 0, result.stderr)
            app = self.unpacked()
            for place, name in IDENTIFIERS.items():
                self.assertEqual(self.in_app(app, place, "info")["CFBundleIdentifier"],
                                 f"{NEW}.{name}")
                self.assertEqual(self.in_app(app, place, "entitlements")[APP_ID],
                                 f"{TEAM}.{NEW}.{name}")
                self.assertRegex(log, f"renames {OLD}.{name} to {NEW}.{name} in /")
            self.assertEqual(self.embedded(app)[SHARE], "share")
            self.assertEqual(self.in_app(app, SHARE, "entitlements")[APP_GROUPS],
                             [f"group.{NEW}", f"group.{OLD}.kept"])
            self.assertEqual(self.in_app(app, WATCH, "info")["WKCompanionAppBundleIdentifier"], NEW)
            self.assertEqual(
                self.in_app(app, WATCH_EXTENSION, "info")["NSExtension"],
                {"NSExtensionPointIdentifier": "com.apple.watchkit",
                 "NSExtensionAttributes": {"WKAppBundleIdentifier": f"{NEW}.watch",
                                           "Other": [f"{NEW}.share", f"{OLD}.unknown"]}})
        # Where the app keeps its identifier, so does everything inside, and nothing is fitted.
        result, log = self.wrap_family({"renameExtensions": "yes"})
        self.assert_ends_with(result, 0, DOUBTFUL)
        self.assertNotIn("renameExtensions", log)
        self.assertEqual(self.in_app(self.unpacked(), WATCH_EXTENSION, "info")["CFBundleIdentifier"],
                         f"{OLD}.watch.dial")
