"""Wraps the demo app once and examines everything that came out."""
import hashlib
import os
import plistlib
import re
import xml.etree.ElementTree as ElementTree

from examiner import bundle, macho, signature
from harness import (ADMIN, DEMO_APP, PROFILE, SEPARATOR, TOOLKIT, TRUSTED_ROOT, WholeProgramTest,
                     read, result_text, run, unpacked_app, unzip)

IDENTIFIER = "com.example.managed.fieldbook"
WRAPPER = "@executable_path/OrvaneDylib.bundle/OrvaneDylib.dylib"
LOGGER = "@executable_path/Frameworks/OrvaneLogger.framework/OrvaneLogger"
STAGES = ["Validating input parameters", "Unzipping", "Validating dylib", "Rebuilding app",
          "Replacing bundle identifier", "Copying resource files", "Generating manifest xml",
          "Copying icon files", "Code signing", "Generating ipa file", "Generating package file"]
ADDED = {"orig-entitlements.plist", "Orvane.plist", "ResourceRules.plist", "policy_metadata.xml",
         "default_wex_policies.xml", "AppLoaderViewController.nib", "AppIcon60x60.png"}


class WrappedDemoApp(WholeProgramTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.output, cls.bundle_output = cls.path("out.wex"), cls.path("out.ipa")
        cls.result = cls.wrap(DEMO_APP, cls.output, "-outBundle", cls.bundle_output,
                              "-appType", "premium", "-bundleID", IDENTIFIER,
                              "-appDesc", "Field <notes> & more",
                              "-minPlatform", "9.0", "-maxPlatform", "15.0")
        if cls.result.returncode != 0 or not os.path.exists(cls.output):
            raise AssertionError(cls.result.stdout + cls.result.stderr)
        cls.package = unzip(cls.output, cls.path("package"))
        cls.ipa = os.path.join(cls.package, "Fieldbook.ipa")
        cls.before = unpacked_app(DEMO_APP, cls.path("before"))
        cls.after = unpacked_app(cls.ipa, cls.path("after"))

    def slice_pairs(self):
        """The executable's slices before and after, architecture by architecture."""
        pairs = list(zip(bundle.slices(self.before), bundle.slices(self.after), strict=True))
        self.assertEqual([[image.arch for image in pair] for pair in pairs],
                         [["armv7", "armv7"], ["arm64", "arm64"]])
        return pairs

    def manifest(self):
        return ElementTree.parse(os.path.join(self.package, "manifest.xml")).getroot()

    def test_console(self):
        out = self.result.stdout
        self.assertTrue(out.startswith(
            "\nCommand Line Interface for WEX Toolkit, version 20.5.0.0 (Env:Test)\n\n"))
        banners = re.findall(rf"\n\n([^\n.]+)\.+\n{SEPARATOR}\n", out)
        self.assertEqual(banners, STAGES)
        self.assertNotIn("created successfully", out)
        # "beta-reports-active" apart, which does not count, the profile grants all that is needed.
        self.assertIsNone(result_text(self.result))
        self.assertEqual(self.left_in_scratch(), [])

    def test_archives_are_whole(self):
        for archive in (self.output, self.ipa):
            run("unzip", "-tqq", archive)
        self.assertEqual(read(self.bundle_output), read(self.ipa))
        self.assertEqual(sorted(os.listdir(self.package)),
                         ["AppIcon29x29.png", "AppIcon60x60.png", "Fieldbook.ipa", "manifest.xml",
                          "policy_metadata.xml", "strings-de.xml", "strings-en.xml",
                          "strings-fr.xml"])

    def test_manifest(self):
        run("xmllint", "--noout", os.path.join(self.package, "manifest.xml"))
        root = self.manifest()
        self.assertEqual(root.tag, "MobileAppPackage")
        self.assertEqual([child.tag for child in root], ["PackageInfo", "MobileApp", "Policies"])
        app = root.find("MobileApp")
        texts = {child.tag: child.text or "" for child in app}
        expected = {
            "ToolVersion": "20.5.0", "ToolsBuildNumber": "0", "AppType": "application/ios",
            "AppID": f"EXAMPLE123.{IDENTIFIER}", "AppVersion": "2.4.1", "BundleID": IDENTIFIER,
            "FriendlyName": "Fieldbook", "MinPlatform": "9.0", "MaxPlatform": "15.0",
            "BundleFile": "Fieldbook.ipa", "PackageSize": str(os.path.getsize(self.ipa)),
            "WEXApplicationType": "Premium", "SDKAppMode": "1",
            "UrlScheme": "com.orvane.sso." + texts["PackageID"],
            "AppUniqueID": hashlib.md5(
                f"EXAMPLE123.{IDENTIFIER}Fieldbook".encode()).hexdigest().upper(),
        }
        self.assertEqual({tag: texts.get(tag) for tag in expected}, expected)
        self.assertRegex(texts["BundleChecksum"], r"^[0-9a-f]{64}$")
        self.assertRegex(texts["PublicKey"], r"^[0-9a-f]{64}$")
        self.assertEqual(root.findtext("PackageInfo/Description"), "Field <notes> & more")
        self.assertEqual([[icon.findtext(tag) for tag in ("IconFile", "xRes", "yRes")]
                          for icon in app.find("Icons")],
                         [["AppIcon29x29.png", "29", "29"], ["AppIcon60x60.png", "120", "120"]])
        self.assertEqual([node.text for node in root.findall("Policies/Languages/LanguageFile")],
                         ["strings-de.xml", "strings-en.xml", "strings-fr.xml"])
        self.assertEqual(plistlib.loads(read(self.after, "Orvane.plist")), {
            "CheckSum": texts["BundleChecksum"], "AppID": texts["AppID"],
            "PackageID": texts["PackageID"], "publicKey": texts["PublicKey"],
            "AppUniqueID": texts["AppUniqueID"], "WrappingTimestamp": texts["WrappingTimestamp"],
            "ReleaseVersion": "r20.5.0_v20.5.0.0", "AppMode": "1"})

    def test_icons_are_standard_images(self):
        for name in ("AppIcon29x29.png", "AppIcon60x60.png"):
            data = read(self.package, name)
            self.assertEqual(data[:8], b"\x89PNG\r\n\x1a\n")
            self.assertEqual(data[12:16], b"IHDR")
        self.assertEqual(read(self.package, "AppIcon29x29.png"),
                         read(self.before, "AppIcon29x29.png"))

    def test_load_commands(self):
        for before, after in self.slice_pairs():
            with self.subTest(arch=after.arch):
                self.assertEqual(after.dylibs(), before.dylibs() + [WRAPPER, LOGGER])
                listing = run("llvm-objdump", "-m", "--private-headers", f"--arch={after.arch}",
                              os.path.join(self.after, "Fieldbook")).stdout.decode()
                names = re.findall(r"cmd LC_LOAD_DYLIB\n\s+cmdsize \d+\n\s+name (\S+) ", listing)
                self.assertEqual(names, after.dylibs())

    def test_nothing_else_of_the_executable_changed(self):
        for before, after in self.slice_pairs():
            with self.subTest(arch=after.arch):
                self.assertEqual(after.contents(), before.contents())
                self.assertEqual(after.signature_range()[0], before.signature_range()[0])
                link_edit = before.segment("__LINKEDIT").fileoff
                end = before.signature_range()[0]
                self.assertEqual(after.data[link_edit:end], before.data[link_edit:end])
                inserted = {WRAPPER, LOGGER}
                kept = [command for command in after.commands
                        if not (command.number == macho.LC_LOAD_DYLIB and
                                command.dylib_name() in inserted)]
                for old, new in zip(before.commands, kept, strict=True):
                    # Only what the new signature moves: its own size and the end of __LINKEDIT.
                    if old.number == macho.LC_CODE_SIGNATURE:
                        self.assertEqual(new.data[:12], old.data[:12])
                    elif b"__LINKEDIT" in old.data:
                        segments = macho.Segment(old), macho.Segment(new)
                        self.assertEqual(segments[0].vmaddr, segments[1].vmaddr)
                        self.assertEqual(segments[0].fileoff, segments[1].fileoff)
                    else:
                        self.assertEqual(new.data, old.data)

    def test_every_signature(self):
        self.assertEqual(bundle.problems(self.after, TRUSTED_ROOT), [])
        self.assertEqual(bundle.signers(self.after), dict.fromkeys((
            ".", "Frameworks/Ledger.framework",
            "Frameworks/Ledger.framework/Frameworks/Paper.framework",
            "Frameworks/OrvaneLogger.framework", "OrvaneDylib.bundle/OrvaneDylib.dylib"), ADMIN))
        for code in bundle.code_objects(self.after):
            for image in bundle.slices(code):
                self.assertEqual(signature.Signature(image).directories[0].team, "EXAMPLE123")

    def test_entitlements(self):
        expected = {
            "application-identifier": f"EXAMPLE123.{IDENTIFIER}",
            "com.apple.developer.associated-domains": ["applinks:fieldbook.example.com"],
            "com.apple.developer.team-identifier": "EXAMPLE123",
            "com.apple.security.application-groups": ["group.com.example.fieldbook"],
            "get-task-allow": False,
            "keychain-access-groups": [
                "EXAMPLE123.com.example.fieldbook", "EXAMPLE123.com.example.shared",
                f"EXAMPLE123.{IDENTIFIER}", "EXAMPLE123.com.orvane.wex",
                "EXAMPLE123.group.com.example.fieldbook"],
        }
        for image in bundle.slices(self.after):
            signed = signature.Signature(image)
            self.assertEqual(plistlib.loads(signed.xml_entitlements()), expected)
            self.assertEqual(signed.der_entitlements(), expected)
        old = plistlib.loads(read(self.after, "orig-entitlements.plist"))
        self.assertEqual(old["application-identifier"], "SAMPLE0001.com.example.fieldbook")

    def test_files_of_the_app(self):
        def files(app):
            return {name for name in bundle.files_below(app) if "_CodeSignature/" not in name}

        before, after = files(self.before), files(self.after)
        lost = {name for name in before if name.split("/")[0] in ("PlugIns", "Watch")}
        self.assertEqual(before - after, lost)
        added = {name for name in after - before
                 if name.split("/")[0] not in ("OrvaneDylib.bundle", "Frameworks")}
        self.assertEqual(added, ADDED)
        self.assertEqual(read(self.after, "embedded.mobileprovision"), read(PROFILE))
        for name in before & after - {"Info.plist", "Fieldbook", "embedded.mobileprovision"}:
            if not name.startswith("Frameworks/"):
                self.assertEqual(read(self.after, name), read(self.before, name), name)

    def test_info_plist(self):
        before = plistlib.loads(read(self.before, "Info.plist"))
        after = plistlib.loads(read(self.after, "Info.plist"))
        self.assertEqual(after.pop("CFBundleIdentifier"), IDENTIFIER)
        self.assertEqual(after.pop("WEXCFBundleIdentifier"), "com.example.fieldbook")
        self.assertIs(after.pop("NSAppTransportSecurity")["NSAllowsArbitraryLoads"], True)
        self.assertEqual(after.pop("NSFaceIDUsageDescription"), "Use Face ID to unlock Fieldbook")
        self.assertEqual(len(after.pop("LSApplicationQueriesSchemes")), 13)
        package = self.manifest().findtext("MobileApp/PackageID")
        types = after.pop("CFBundleURLTypes")
        self.assertEqual(types[:1], before.pop("CFBundleURLTypes"))
        self.assertEqual([kind["CFBundleURLSchemes"] for kind in types[1:]],
                         [["com.orvane.sso." + package], ["mailcompose." + package]])
        del before["CFBundleIdentifier"]
        self.assertEqual(after, before)
        run("plistutil", "-i", os.path.join(self.after, "Info.plist"), "-f", "xml")

    def test_policies(self):
        source = read(TOOLKIT, "Data", "com.example.fieldbook_policy_metadata.xml")
        self.assertEqual(read(self.package, "policy_metadata.xml"), source)
        self.assertEqual(read(self.after, "policy_metadata.xml"), source)
        expected = [(node.findtext("PolicyName"), node.findtext("PolicyDefault") or "")
                    for node in ElementTree.fromstring(source).iter("Policy")]
        defaults = ElementTree.parse(os.path.join(self.after, "default_wex_policies.xml")).getroot()
        self.assertEqual([(node.tag, node.text or "") for node in defaults.find("Policies")],
                         expected)
        self.assertGreater(len(expected), 10)
