"""SdkPrep, and what else is done with apps that were built with the SDK."""
import base64
import os
import plistlib
import shutil

from examiner import bundle
from harness import (ADMIN, DEMO_APP, PROFILE, SDK_APP, SDK_APP_WITH_FINGERPRINT, SDK_ENTITLEMENTS,
                     TOOLKIT, TRUSTED_ROOT, copy_toolkit, manifest_texts, pack, read, remove,
                     unpacked_app, unzip, write)
from transcripts import TranscriptTest

ADDRESS = "https://apps.example.com/the gauge"
PACKAGE_ID = "0F1E2D3C-0000-4000-8000-00000000000A"
LOG = ("-logFile", "log")
REQUIRED = ("-storeURL", ADDRESS, "-entitlements", SDK_ENTITLEMENTS, *LOG)
WEX, INTUNE = b"@rpath/Wex.framework/Wex", b"IntuneMAM.framework/IntuneMAM"


class SdkApp(TranscriptTest):
    def app(self, folder, source=SDK_APP):
        """A copy of the SDK app, which the run will change; its path from the test's folder."""
        shutil.copytree(source, self.path(folder, "Gauge.app"))
        return f"{folder}/Gauge.app"


class SdkPrep(SdkApp):
    def test_store_app(self):
        app = self.app("build")
        before = {name: read(SDK_APP, name) for name in bundle.files_below(SDK_APP)}
        self.assert_done(
            "SdkPrep", "-in", app, "-out", "Gauge.wex", "-packageId", f'"{PACKAGE_ID}"',
            "-appType", "General", "-appDesc", 'The "gauge"', "-minPlatform", "9.1",
            "-maxPlatform", "14", "-excludedDevices", '"ipad"', "-appIdPrefix", "EXAMPLE123",
            "-adalClientID", " client ", "-adalNSGResource", "resource", "-logWriteLevel", "4",
            "-logDisplayLevel", "1", *REQUIRED, transcript="sdk_prep_store")

        package = unzip(self.path("Gauge.wex"), self.path("package"))
        self.assertEqual(sorted(os.listdir(package)), [
            "AppIcon29x29.png", "manifest.xml", "policy_metadata.xml", "strings-de.xml",
            "strings-en.xml", "strings-fr.xml"])
        texts = manifest_texts(package)
        expected = {
            "Description": "The gauge", "AppID": "EXAMPLE123.com.example.gauge",
            "BundleID": "com.example.gauge", "FriendlyName": "Gauge", "AppVersion": "1.3",
            "BundleFile": "Gauge_SDK.ipa", "PackageID": PACKAGE_ID, "PackageSize": "2000",
            "MinPlatform": "9.1", "MaxPlatform": "14", "ExcludeDeviceTypes": "ipad",
            "AppStoreUrl": base64.b64encode(ADDRESS.encode()).decode(),
            "WEXApplicationType": "General", "SDKAppMode": "2"}
        self.assertEqual({tag: texts[tag] for tag in expected}, expected)

        # The management files are in the app; its code is as it was.
        app = self.path(app)
        data = os.path.join(TOOLKIT, "Data")
        copied = {"OrvaneDylib.bundle": "Orvane.bundle",
                  "Frameworks/OrvaneLogger.framework": "WEXSDK/OrvaneLogger.framework"}
        added = {"Orvane.plist", "policy_metadata.xml", "default_wex_policies.xml",
                 "AppLoaderViewController.nib"}
        for target, source in copied.items():
            for name in bundle.files_below(os.path.join(data, source)):
                self.assertEqual(read(app, target, name), read(data, source, name))
                added.add(f"{target}/{name}")
        self.assertEqual(set(bundle.files_below(app)) - set(before), added)
        for name in before:
            if name != "Info.plist":
                self.assertEqual(read(app, name), before[name], name)
        self.assertEqual(plistlib.loads(read(app, "Orvane.plist"))["PackageID"], PACKAGE_ID)

    def test_app_mode_5_copies_nothing_into_the_app(self):
        app = self.app("mode 5")
        policies = write(b"<PolicyMetadata><Policy><PolicyName>Only</PolicyName></Policy>"
                         b"</PolicyMetadata>", self.path("own.xml"))
        self.assert_done("SdkPrep", "-in", app, "-out", "Mode5.wex", "-appMode", "5", "-policyXML",
                         policies, *REQUIRED)
        added = set(bundle.files_below(self.path(app))) - set(bundle.files_below(SDK_APP))
        self.assertEqual(added, {"Orvane.plist", "policy_metadata.xml", "default_wex_policies.xml"})
        package = unzip(self.path("Mode5.wex"), self.path("mode 5 package"))
        for folder in (package, self.path(app)):
            self.assertEqual(read(folder, "policy_metadata.xml"), read(policies))
        texts = manifest_texts(package)
        self.assertEqual((texts["WEXApplicationType"], texts["SDKAppMode"]), ("Invalid", "5"))

    def test_preparing_twice_replaces_what_is_there(self):
        app = self.app("twice")
        shown = []
        for _ in range(2):
            text = self.assert_done("SdkPrep", "-in", app, "-out", "Twice.wex", *REQUIRED)
            shown.append(bundle.files_below(self.path(app)))
        self.assertEqual(shown[0], shown[1])
        for line in ("The app has been previously processed by Orvane. Simply replacing it...",
                     "OrvaneLogger.framework. Simply replacing it...",
                     "WARNING! The target output file already exists."):
            self.assertIn(line, text)
        schemes = [kind["CFBundleURLSchemes"] for kind in
                   plistlib.loads(read(self.path(app), "Info.plist"))["CFBundleURLTypes"]]
        self.assertEqual(sum("com.orvane.sso." in names[0] for names in schemes), 1)

    def test_load_order(self):
        def linked(folder, first, second):
            app = self.app(folder)
            data = read(self.path(app), "Gauge")
            for old, new in ((b"@rpath/WEX.framework/WEX", first),
                             (b"/usr/lib/libSystem.B.dylib", second)):
                data = data.replace(old.ljust(32, b"\0"), new.ljust(32, b"\0"))
            write(data, self.path(app), "Gauge")
            return ("-in", app, "-out", "Order.wex", *REQUIRED)

        self.refusals("sdk_prep_load_order", "SdkPrep", [
            linked("intune first", INTUNE, WEX), linked("two", WEX, WEX),
            linked("two intunes", INTUNE, INTUNE)])
        self.assertFalse(os.path.lexists(self.path("Order.wex")))
        # A refusal comes before the first change to the app.
        self.assertFalse(os.path.lexists(self.path("two", "Gauge.app", "OrvaneDylib.bundle")))
        self.assert_done("SdkPrep", *linked("right order", WEX, INTUNE))

    def test_refused_arguments(self):
        values = ["-in", "-out", "-packageId", "-appDesc", "-logFile", "-logWriteLevel",
                  "-logDisplayLevel", "-minPlatform", "-maxPlatform", "-excludedDevices",
                  "-storeURL", "-appMode", "-appType", "-policyXML", "-entitlements",
                  "-appIdPrefix", "-adalClientID", "-adalNSGResource"]
        store, files = ("-storeURL", ADDRESS), ("-in", "Gauge.app", "-out", "o.wex")
        self.refusals("sdk_prep_arguments", "SdkPrep", [
            *[(option,) for option in values],
            ("-help", "-appMode"), ("-Cert", "x"),
            ("-logWriteLevel", "2x"), ("-storeURL", "no address"),
            ("-appMode", "4"), ("-appMode", "x"),
            ("-appType", "other"),
            (), store, (*store, "-in", "Gauge.app"),
            (*store, *files), (*files, *REQUIRED, "-logDisplayLevel", "5"),
            ("-in", "Gauge.app", "-out", "gone/o.wex", *REQUIRED),
            ("-in", "Gauge.app", "-out", "o.app", *REQUIRED),
            (*files, *REQUIRED, "-policyXML", "gone.xml"),
            (*files, *store, "-entitlements", "gone.plist", *LOG),
        ])

    def test_refused_files(self):
        shutil.copy(DEMO_APP, self.path("App.ipa"))
        entitlements = plistlib.loads(read(SDK_ENTITLEMENTS))
        entitlements["keychain-access-groups"].pop()
        write(plistlib.dumps(entitlements), self.path("no group.plist"))
        write(b"text", self.path("text.plist"))
        script = self.app("script")
        write(b"#!/bin/sh\n", self.path(script), "Gauge")
        iconless = self.app("iconless")
        info = plistlib.loads(read(self.path(iconless), "Info.plist"))
        del info["CFBundleIcons"]
        write(plistlib.dumps(info), self.path(iconless), "Info.plist")
        app, output = ("-in", self.app("whole"), "-out", "o.wex"), ("-out", "o.wex")
        broken = write(b"<Policy", self.path("broken.xml"))
        self.refusals("sdk_prep_files", "SdkPrep", [
            ("-in", "gone.app", *output, *REQUIRED),
            ("-in", "App.ipa", *output, *REQUIRED),
            ("-in", script, *output, *REQUIRED),
            ("-in", iconless, *output, *REQUIRED),
            (*app, "-storeURL", ADDRESS, "-entitlements", "no group.plist", *LOG),
            (*app, "-storeURL", ADDRESS, "-entitlements", "text.plist", *LOG),
            (*app, *REQUIRED, "-policyXML", broken),
        ])
        self.assertFalse(os.path.lexists(self.path("o.wex")))

    def test_help(self):
        self.assert_transcript("sdk_prep_help", self.transcript("sdkprep", "-help", "x")[1])


class Fingerprint(SdkApp):
    """The step of apps with a crypto module, which a program beside the toolkit does."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.toolkit = copy_toolkit(cls.path("toolkit"))
        cls.tool = os.path.join(cls.toolkit, "incore_macho")
        cls.record = cls.path("record")

    def place_tool(self, status):
        write(f"#!/bin/sh\nprintf '%s\\n' \"$@\" >'{self.record}'\nexit {status}\n".encode(),
              self.tool)
        os.chmod(self.tool, 0o755)

    def setUp(self):
        remove(self.tool, self.record)

    def prepare(self, folder, source=SDK_APP_WITH_FINGERPRINT):
        return ("SdkPrep", "-in", self.app(folder, source), "-out", f"{folder}.wex", *REQUIRED)

    def test_tool_is_run_on_the_executable(self):
        # 255 is its status for an executable that has a fingerprint already.
        for status in (0, 255):
            self.place_tool(status)
            words = self.prepare(f"done {status}")
            text = self.assert_done(*words)
            self.assertEqual(read(self.record).decode().splitlines(),
                             ["--debug", "-exe", f"{words[2]}/Gauge"])
            self.assertIn(f"Trying to run {self.tool}\n", text)
        os.remove(self.record)
        self.assert_done(*self.prepare("without module", SDK_APP))
        self.assertFalse(os.path.exists(self.record))

    def test_missing_or_failing_tool(self):
        missing = self.refusal(*self.prepare("missing"))
        self.place_tool(1)
        failing = self.refusal(*self.prepare("failing"))
        self.assert_transcript("sdk_prep_fingerprint", missing + "\n" + failing)
        self.assertFalse(os.path.exists(self.path("missing.wex")))
        self.assertFalse(os.path.exists(self.path("failing.wex")))

    def test_signing_a_package(self):
        self.app("signed/package/Payload", SDK_APP_WITH_FINGERPRINT)
        write(b"<MobileAppPackage/>", self.path("wex", "manifest.xml"))
        pack(self.path("signed", "package"), self.path("wex", "Gauge.ipa"))
        pack(self.path("wex"), self.path("Gauge.wex"))
        words = ("Sign", "-Cert", ADMIN, "-Profile", PROFILE, "-in", "Gauge.wex", *LOG)
        refused = self.tovrek(*words).stderr
        self.assertIn("Failed to execute incore_macho with exit code: 127", refused)
        self.assertIn(f"The fingerprint tool could not be started: {self.tool}\n", refused)
        self.assertFalse(os.path.exists(self.path("Gauge_Resign.wex")))
        self.place_tool(0)
        self.assert_done(*words)
        self.assertTrue(read(self.record).decode().endswith("/Payload/Gauge.app/Gauge\n"))


class EnterpriseApp(SdkApp):
    """Wrap's way with SDK apps: two results, a package and the app for the store."""

    def test_app_folder_is_packaged_by_the_developer_tools(self):
        app = self.app("enterprise")
        self.assert_done(
            "Wrap", "-Cert", ADMIN, "-Profile", PROFILE, "-in", app, "-out", "Enterprise.wex",
            "-appType", "enterprise", "-storeURL", "https://apps.example.com/gauge", *LOG,
            transcript="wrap_enterprise")
        texts = manifest_texts(unzip(self.path("Enterprise.wex"), self.path("store package")))
        self.assertEqual((texts["BundleFile"], texts["PackageSize"]),
                         ("Enterprise_SDK.ipa", "2000"))
        app = unpacked_app(self.path("Enterprise_SDK.ipa"), self.path("store app"))
        self.assertEqual(bundle.problems(app, TRUSTED_ROOT), [])
        self.assertEqual(bundle.signers(app)["."], ADMIN)
        self.assertEqual(bundle.entitlements(app)["application-identifier"],
                         "EXAMPLE123.com.example.gauge")
        self.assertEqual(read(app, "embedded.mobileprovision"), read(PROFILE))
