"""The settings of Sign and Wrap, each switched on and off, and what failed runs leave alone."""
import os
import plistlib
import re
import shutil
import xml.etree.ElementTree as ElementTree

from examiner import bundle, macho
from harness import (ADMIN, BRANCH, BRANCH_PROFILE, COMPANIONS, PROFILE, SDK_APP, SDK_ENTITLEMENTS,
                     TRUSTED_ROOT, changed_app, make_profile, manifest_texts, pack, read, remove,
                     run, sign_as_developer, unpacked_app, write)
from makers import sign_with_entitlements
from transcripts import SignTest

FRAMEWORKS = {"Frameworks/Ledger.framework",
              "Frameworks/Ledger.framework/Frameworks/Paper.framework"}
EXTENSIONS = {"PlugIns/Share.appex", "Watch/FieldbookWatch.app"}
INSERTED = {"Frameworks/OrvaneLogger.framework", "OrvaneDylib.bundle/OrvaneDylib.dylib"}
LIMITS = ("MinPlatform", "MaxPlatform", "ExcludeDeviceTypes")


def without(text, *tags):
    """A manifest's text less the contents of some elements."""
    return re.sub(rf"(<({'|'.join(tags)})\b[^>]*>)[^<]*", r"\1", text)


class SettingsTest(SignTest):
    IDENTIFIER = "com.example"

    def run_with(self, settings, *words):
        """Runs with some settings on: the result and the log at basic level."""
        conf = write("".join(f"{name} = yes\n" for name in settings).encode(), self.path("conf"))
        remove(self.path("log"))
        result = self.tovrek(*words, "-logFile", "log", "-logWriteLevel", "3",
                             environment={"TOVREK_CONF": conf})
        self.assertEqual(self.left_in_scratch(), [], result.stderr)
        return result, read(self.path("log")).decode()

    def sign(self, settings, source, *words, cert=BRANCH, profile=BRANCH_PROFILE):
        self.output = self.path("signed" + os.path.splitext(source)[1])
        remove(self.output)
        return self.run_with(settings, "Sign", "-Cert", cert, "-Profile", profile, "-in", source,
                             "-out", self.output, *words)

    def signed(self, settings, *words, **keywords):
        """Signs with success: the app, whose signatures are sound, and the log."""
        result, log = self.sign(settings, *words, **keywords)
        self.assertEqual(result.returncode, 0, result.stderr)
        for folder in ("out", "out app"):
            shutil.rmtree(self.path(folder), ignore_errors=True)
        app = unpacked_app(self.output, self.path("out"))
        self.assertEqual(bundle.problems(app, TRUSTED_ROOT), [])
        return app, log

    def assert_verified(self, app):
        result = self.run_toolkit([os.path.join(COMPANIONS, "codesign"), "--verify", "--deep",
                                   "--strict", app])
        self.assertEqual((result.returncode, result.stderr), (0, ""))


class SignSettings(SettingsTest):
    def test_what_is_signed(self):
        nested, wrapped, kept = "resignNested", "resignWrapped", "keepExtensionsOnSign"
        other = ["keepPlistLimits", "refreshOnResign", "modernImages", "strictHeaderRoom"]
        app, library = {"."}, {".", "OrvaneDylib.bundle/OrvaneDylib.dylib"}
        every = app | FRAMEWORKS | EXTENSIONS | INSERTED
        cases = [
            # Input, settings, what Sign signs, what keeps its signature.
            ("App.ipa", other + [wrapped], app, FRAMEWORKS),
            ("App.ipa", [nested], app | FRAMEWORKS, set()),
            ("App.ipa", [kept], app | EXTENSIONS, FRAMEWORKS),
            ("App.ipa", [nested, kept], app | FRAMEWORKS | EXTENSIONS, set()),
            ("Wrapped.ipa", [wrapped], every - EXTENSIONS, set()),
            ("Wrapped.ipa", [wrapped, kept], every, set()),
            ("App.wex", [wrapped], library, every - library),
            ("App.wex", [kept], library | EXTENSIONS, every - library - EXTENSIONS),
            ("App.wex", [nested], every, set()),
        ]
        for source, settings, signed, left in cases:
            with self.subTest(source=source, settings=settings):
                app, log = self.signed(settings, source)
                found = bundle.signers(app)
                self.assertEqual({name for name in found if found[name] == BRANCH}, signed)
                self.assertEqual(set(found), signed | left)
                named = {name for name in (nested, wrapped, kept) if name in log}
                changes = signed - library or source == "Wrapped.ipa"
                expected = set(settings) & {nested, wrapped, kept} if changes else set()
                self.assertEqual(named, expected)
                if changes:
                    self.assert_verified(app)
                self.assertEqual(plistlib.loads(read(app, "Info.plist"))["WEXCFBundleIdentifier"],
                                 "com.example.fieldbook")
        # Refused without the setting, and with all others.
        for settings in ([], [nested, kept]):
            result, log = self.sign(settings, "Wrapped.ipa")
            self.assertEqual(result.returncode, 254)
            self.assertIn("ERROR: This app is already wrapped, and cannot be re-wrapped.",
                          result.stderr)
            self.assertNotIn("resignWrapped would", log, "the file does not name it")
            self.assertFalse(os.path.lexists(self.output))

    def test_inner_code_is_signed_first(self):
        # A watch app with an extension, which holds a framework.
        with changed_app() as (folder, app):
            watch = os.path.join(app, "Watch", "FieldbookWatch.app")
            inner = os.path.join(watch, "PlugIns", "Inner.appex")
            shutil.copytree(os.path.join(app, "PlugIns", "Share.appex"), inner)
            ledger = os.path.join("Frameworks", "Ledger.framework")
            shutil.copytree(os.path.join(app, ledger), os.path.join(inner, ledger))
            for code in (inner, watch, app):
                sign_as_developer(code, "--preserve-metadata=entitlements")
            pack(folder, self.path("Deep.ipa"))
        app, log = self.signed(["resignNested", "keepExtensionsOnSign"], "Deep.ipa")
        self.assert_verified(app)
        self.assertEqual(set(bundle.signers(app).values()), {BRANCH})
        order = [path.rsplit("/", 1)[1] for path in re.findall(r"Code signing (/.*)\.\.\.", log)]
        self.assertEqual(order, ["Ledger.framework", "Paper.framework", "Ledger.framework",
                                 "Paper.framework", "Inner.appex", "FieldbookWatch.app",
                                 "Share.appex"])

    def test_extensions_fit_the_profile(self):
        with changed_app() as (folder, app):
            share = os.path.join(app, "PlugIns", "Share.appex")
            write(b"old profile", share, "embedded.mobileprovision")
            old = {"application-identifier": "SAMPLE0001.com.example.fieldbook.share",
                   "keychain-access-groups": ["SAMPLE0001.com.example.shared"],
                   "com.apple.developer.healthkit": True, "get-task-allow": True}
            sign_with_entitlements(share, old)
            sign_as_developer(app, "--preserve-metadata=entitlements")
            pack(folder, self.path("Profiled.ipa"))
        app, log = self.signed(["keepExtensionsOnSign"], "Profiled.ipa")
        self.assertEqual(bundle.entitlements(os.path.join(app, "PlugIns/Share.appex")), {
            "application-identifier": "EXAMPLE456.com.example.fieldbook.share",
            "keychain-access-groups": ["EXAMPLE456.com.example.shared"], "get-task-allow": False})
        self.assertEqual(read(app, "PlugIns/Share.appex/embedded.mobileprovision"),
                         read(BRANCH_PROFILE))
        self.assertFalse(os.path.exists(
            os.path.join(app, "Watch/FieldbookWatch.app/embedded.mobileprovision")))
        self.assertIn("does not grant the entitlement com.apple.developer.healthkit", log)

        # A profile for the app alone: the extension is left as wrapping leaves it.
        explicit = make_profile(self.path("explicit.mobileprovision"), "com.example.fieldbook")
        app, log = self.signed(["keepExtensionsOnSign"], "Profiled.ipa", cert=ADMIN,
                               profile=explicit)
        self.assertEqual(bundle.signers(app)["PlugIns/Share.appex"], ADMIN)
        self.assertEqual(bundle.entitlements(os.path.join(app, "PlugIns/Share.appex")), old)
        self.assertEqual(read(app, "PlugIns/Share.appex/embedded.mobileprovision"), b"old profile")
        self.assertIn("profile is not for com.example.fieldbook.share", log)

    def test_renewals_can_be_repeated(self):
        shutil.copy(self.path("Wrapped.ipa"), self.path("Again.ipa"))
        original = unpacked_app(self.path("Wrapped.ipa"), self.path("wrapped"))
        seen = []
        for _ in range(2):
            app, _ = self.signed(["resignWrapped", "keepExtensionsOnSign"], "Again.ipa")
            seen.append(bundle.entitlements(app))
            shutil.copy(self.output, self.path("Again.ipa"))
        groups = [f"EXAMPLE456.{name}" for name in (
            "com.example.fieldbook", "com.example.shared", "com.example", "com.orvane.wex",
            "group.com.example.fieldbook")]
        self.assertEqual(seen[0]["keychain-access-groups"], groups)
        self.assertEqual(seen[0]["application-identifier"], "EXAMPLE456.com.example")
        self.assertEqual(seen[1], seen[0])
        self.assertEqual(plistlib.loads(read(app, "orig-entitlements.plist")), seen[0])
        # Signatures, the profile and the old entitlements apart, the app is what it was.
        executables = {bundle.executable_name(code) for code in bundle.code_objects(app)
                       if os.path.isdir(code)}
        self.assertEqual({name for name in bundle.changed_files(original, app)
                          if os.path.basename(name) not in executables and
                          "_CodeSignature/" not in name},
                         {"OrvaneDylib.bundle/OrvaneDylib.dylib", "embedded.mobileprovision",
                          "orig-entitlements.plist"})

    def test_manifest_and_language_files(self):
        package = self.path("languages")
        shutil.copytree(self.package, package)
        manifest = read(package, "manifest.xml").decode()
        manifest = re.sub(r"<(Date|CertExpires)>[^<]*", r"<\1>2001-01-01 00:00:00 +0000", manifest)
        manifest = manifest.replace(">strings-de.xml<", ">deutsch.txt<").replace(
            ">strings-fr.xml<", ">../strings-fr.xml<")
        write(manifest.encode(), package, "manifest.xml")
        for name in ("deutsch.txt", "strings-it.strings", "notes.txt"):
            write(name.encode(), package, name)
        pack(package, self.path("Languages.wex"))
        languages = {"deutsch.txt", "strings-it.strings"}
        for settings, kept in (([], set()), (["refreshOnResign"], languages)):
            _, log = self.signed(settings, "Languages.wex")
            found = self.path("out")
            self.assertEqual(set(os.listdir(found)), set(os.listdir(self.package)) | kept)
            self.assertEqual("refreshOnResign" in log, bool(settings))
            renewed = read(found, "manifest.xml").decode()
            if not settings:
                self.assertEqual(renewed, manifest)
        tags = ("Date", "CertExpires", "PackageSize")
        self.assertEqual(without(renewed, *tags), without(manifest, *tags))
        texts = manifest_texts(found)
        self.assertEqual(texts["PackageSize"], str(os.path.getsize(os.path.join(found, "App.ipa"))))
        expires = plistlib.loads(re.search(rb"<\?xml.*</plist>", read(BRANCH_PROFILE),
                                           re.DOTALL).group())["ExpirationDate"]
        self.assertEqual(texts["CertExpires"], f"{expires:%Y-%m-%d %H:%M:%S} +0000")
        self.assertRegex(texts["Date"], r"^20(?!01)\d\d-\d\d-\d\d \d\d:\d\d:\d\d \+0000$")

        # A manifest without these elements stands in no renewal's way.
        write(b"<MobileAppPackage/>", package, "manifest.xml")
        pack(package, self.path("Bare.wex"))
        result, log = self.sign(["refreshOnResign"], "Bare.wex")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("refreshOnResign could not renew CertExpires in manifest.xml", log)


class WrapSettings(SettingsTest):
    def test_limits(self):
        def limits(settings, *options):
            words = ("Wrap", "-Cert", ADMIN, "-Profile", PROFILE, "-in", "App.ipa", "-out", "o.wex")
            result, log = self.run_with(settings, *words, *options)
            self.assertEqual(result.returncode, 0, result.stderr)
            app = ElementTree.fromstring(run("unzip", "-p", self.path("o.wex"),
                                             "manifest.xml").stdout).find("MobileApp")
            found = {node.tag: node.text for node in app if node.tag in LIMITS}
            return found, "keepPlistLimits leaves" in log

        on = ["keepPlistLimits"]
        every = ("-minPlatform", "10.0", "-maxPlatform", "15.0", "-excludedDevices", "phone")
        given = {"MinPlatform": "10.0", "MaxPlatform": "15.0", "ExcludeDeviceTypes": "phone"}
        built = {"MinPlatform": "9.0", "ExcludeDeviceTypes": "ipad"}
        self.assertEqual(limits([]), (dict.fromkeys(LIMITS), False))
        self.assertEqual(limits(on), (built, True))
        self.assertEqual(limits(on, *every[:4]), (built | {"MinPlatform": "10.0",
                                                           "MaxPlatform": "15.0"}, True))
        self.assertEqual(limits(on, *every), (given, False))
        self.assertEqual(limits(on, "-minPlatform", ""),
                         (built | {"MinPlatform": None}, True))
        self.assertEqual(limits(on, "-maxPlatform", ""), (built, True))


class FailedRuns(SettingsTest):
    """What the user gave is as it was, and nothing stands at the output, after any failure."""

    def contents(self, name):
        path = self.path(name)
        if not os.path.isdir(path):
            return read(path)
        return {file: read(path, file) for file in bundle.files_below(path)}

    def assert_untouched(self, given, output, *words, settings=()):
        before = self.contents(given)
        result, _ = self.run_with(settings, *words, "-in", given, "-out", output)
        self.assertEqual(result.returncode, 254, result.stderr)
        self.assertEqual(self.contents(given), before)
        if not output.endswith(f"/{given}"):
            self.assertFalse(os.path.lexists(self.path(output)))

    def refuse_one_slice(self, executable):
        """Sets a header flag that no rule takes, in the last slice alone."""
        data = read(executable)
        last = macho.slices(executable)[-1].data
        at = data.index(last)
        write(data[:at + 24] + b"\x42" + data[at + 25:], executable)

    def test_one_slice_is_refused(self):
        with changed_app() as (folder, app):
            self.refuse_one_slice(os.path.join(app, "Fieldbook"))
            pack(folder, self.path("Mixed.ipa"))
        self.assert_untouched("Mixed.ipa", "mixed.wex", "Wrap", "-Cert", ADMIN, "-Profile",
                              PROFILE)
        shutil.copytree(SDK_APP, self.path("Mixed.app"))
        self.refuse_one_slice(self.path("Mixed.app", "Gauge"))
        self.assert_untouched("Mixed.app", "mixed.wex", "SdkPrep", "-storeURL",
                              "https://store.example.com/gauge", "-appMode", "1", "-entitlements",
                              SDK_ENTITLEMENTS)

    def test_signing_fails_late(self):
        with changed_app() as (folder, app):
            share = os.path.join(app, "PlugIns", "Share.appex", "Share")
            write(read(share)[:200], share)
            pack(folder, self.path("Broken.ipa"))
            # Left out, or left alone, the extension is no matter.
            result, _ = self.sign([], "Broken.ipa")
            self.assertEqual(result.returncode, 0, result.stderr)
        package = self.path("broken")
        shutil.copytree(self.package, package)
        shutil.copy(self.path("Broken.ipa"), os.path.join(package, "App.ipa"))
        pack(package, self.path("Broken.wex"))
        on = ["resignNested", "keepExtensionsOnSign", "refreshOnResign"]
        for given in ("Broken.ipa", "Broken.wex"):
            kind = os.path.splitext(given)[1]
            self.assert_untouched(given, "late" + kind, "Sign", *self.BY_BRANCH, settings=on)
            # Even one that was to be replaced.
            self.assert_untouched(given, f"./{given}", "Sign", *self.BY_BRANCH, settings=on)
