"""Which apps, profiles and certificates Wrap takes, what it warns of and what it signs with."""
import fnmatch
import os
import plistlib
import struct
import tempfile
import unittest
import zipfile
from datetime import datetime

import makers
from examiner import macho, signature
from harness import (ADMIN, COMPANIONS, IDENTITIES, TOOLKIT, WholeProgramTest,
                     changed_app, pack, read, result_text, run, unzip, write)
from makers import FORMER_TEAM, IDENTIFIER, TEAM

SDK_APP = ("To wrap, choose a valid file that does not include the WEX framework. Wrapping an SDK "
           "app with this tool is not supported.")
APP_STORE = "ERROR: The app (*) is an AppStore app."
FOREIGN = ("The app seems not to be native iOS app , it could be build using cross platform "
           "compiler make sure the application source has been modified using the steps mentioned "
           "in KB article ....")
PROTECTION = ("WARNING: Data Protection is enabled in mobile profile (NSFileProtectionComplete), "
              "this will prevent app from accessing files when device is locked")
NO_TEAM = ("WARNING: Your provisioning profile does not contain the team identifier entitlement "
           "required for iOS 8.")
MISSING = ("Your mobile app was created successfully. However, your provisioning profile does not "
           "include entitlements required by the app. The app might not function properly. See the "
           "log file for details.")
EXTENSIONS = ("WARNING: The created package includes one or more app extensions that have been "
              "re-signed to permit app installation.  These extensions are NOT likely to function "
              "properly.")
DUPLICATE = ("WARNING: Duplicate certificates in keychain, code signing may fail.  Use Keychain "
             "Access utility to resolve this.")
NO_UNIT = "WARNING: Your certificate does not contain the team identifier required for iOS 8."
NO_SIGNED_TEAM = ("WARNING: Your binaries are not correctly signed for iOS 8.  Please check "
                  "command line tools version, your certificate and provisioning profile.")
ICONS = "Failed to extract icon files. Error:-1"

GROUPS = "keychain-access-groups"
APP_ID = "application-identifier"
TEAM_ID = "com.apple.developer.team-identifier"
APP_GROUPS = "com.apple.security.application-groups"
DOMAINS = "com.apple.developer.associated-domains"
CLOUD = "com.apple.developer.icloud-container-identifiers"
CLOUD_TEST = "com.apple.developer.icloud-container-development-container-identifiers"
CLOUD_STORE = "com.apple.developer.ubiquity-kvstore-identifier"
CLOUD_SERVICES = "com.apple.developer.icloud-services"
CLOUD_ENVIRONMENT = "com.apple.developer.icloud-container-environment"
DATA_PROTECTION = "com.apple.developer.default-data-protection"

CERTIFICATES = {
    "Alpha Signer": ["CN=Alpha Signer", "CN=Beta Signer", f"OU={TEAM}"],
    "Größe Ωmega 語": ["CN=Größe Ωmega 語", f"OU={TEAM}"],
    "Wide Ελλάδα": ["CN=Wide Ελλάδα", f"OU={TEAM}"],
    "UNITUNIT01": ["OU=UNITUNIT01", "O=Nameless"],
    "Teamless Signer": ["CN=Teamless Signer", "O=Example Corporation"],
    "Twin Signer": ["CN=Twin Signer", f"OU={TEAM}"],
    "Twin Signer Too": ["CN=Twin Signer Too", f"OU={TEAM}"],
}
WIDE_STRINGS = "MASK:0x800"


# What all classes share: the certificates by name, and the home of a keychain with all of them.
SHARED = {}


def setUpModule():
    folder = unittest.enterModuleContext(tempfile.TemporaryDirectory(prefix="tovrek rules "))
    SHARED["certificates"] = {
        name: makers.certificate(os.path.join(folder, f"{index}.pem"), subject,
                                 WIDE_STRINGS if name.startswith("Wide") else "utf8only")
        for index, (name, subject) in enumerate(CERTIFICATES.items())}
    crowd = [makers.certificate(os.path.join(folder, f"crowd {index}.pem"),
                                [f"CN=Crowd {index:02}", f"OU={TEAM}"]) for index in range(30)]
    everyone = [read(path) for path in [*SHARED["certificates"].values(), *crowd]]
    SHARED["home"] = os.path.join(folder, "home")
    environment = dict(os.environ, XDG_DATA_HOME=SHARED["home"])
    security = os.path.join(COMPANIONS, "security")
    run(security, "import", os.path.join(IDENTITIES, "admin.p12"), "-P", "demo", env=environment)
    run(security, "import", write(b"".join(everyone), folder, "everyone.pem"), env=environment)


class Rules(WholeProgramTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.certificates = SHARED["certificates"]
        cls.environment["XDG_DATA_HOME"] = SHARED["home"]
        cls.profile = makers.profile(os.path.join(cls.folder, "usual.mobileprovision"))
        cls.log = os.path.join(cls.folder, "Orvane.log")

    def wrap_folder(self, folder, *options, name="Small", **keywords):
        """Wraps what lies in a folder; answers the result and the path of the wrapped .ipa."""
        output = self.path("wrapped.ipa")
        if os.path.exists(output):
            os.remove(output)
        keywords.setdefault("profile", self.profile)
        archive = pack(folder, self.path(f"{name}.ipa"))
        result = self.wrap(archive, self.path("out.wex"), "-outBundle", output, *options,
                           **keywords)
        os.remove(archive)
        self.assertEqual(self.left_in_scratch(), [])
        return result, output

    def assert_ends_with(self, result, status, text):
        shown = result_text(result)
        self.assertEqual(result.returncode, status, result.stderr)
        if text is None:
            self.assertIsNone(shown)
        else:
            self.assertTrue(shown and fnmatch.fnmatchcase(shown, text), f"{shown}\n{result.stderr}")

    def signed_part(self, archive, name="Small"):
        """The wrapped app's executable."""
        with tempfile.TemporaryDirectory() as folder:
            app = os.path.join(unzip(archive, folder), "Payload", f"{name}.app")
            return macho.slices(os.path.join(app, name))[0]

    def assert_signed_with(self, certificate, archive):
        with tempfile.TemporaryDirectory() as folder:
            signer = os.path.join(folder, "signer.pem")
            signature.verify(signature.Signature(self.signed_part(archive)),
                             ["-noverify", "-signer", signer])
            self.assertEqual(makers.der_of(signer), makers.der_of(certificate))


class RealImages(Rules):
    def test_encrypted_slices(self):
        # The demo app's executable has two slices, which shops encrypt one by one.
        for identifiers, status, text in [((0, 1), 0, None), ((1, 0), 0, None),
                                          ((1, 1), 254, APP_STORE), ((10, 2), 254, APP_STORE)]:
            with self.subTest(identifiers), changed_app() as (folder, app):
                program = os.path.join(app, "Fieldbook")
                data = read(program)
                for image, identifier in zip(macho.slices(program), identifiers, strict=True):
                    for command in image.commands:
                        if command.number in (0x21, 0x2C):
                            old = command.data
                            self.assertEqual(data.count(old), 1)
                            data = data.replace(
                                old, old[:16] + struct.pack("<I", identifier) + old[20:])
                write(data, program)
                profile = os.path.join(os.path.dirname(IDENTITIES), "Example.mobileprovision")
                result, _ = self.wrap_folder(folder, name="Fieldbook", profile=profile)
                self.assert_ends_with(result, status, text)

    HOOK = """
__attribute__((objc_root_class)) @interface Launcher @end
@implementation Launcher
- (void)%s:(id)app willFinishLaunchingWithOptions:(id)options {}
@end
int main(void) { return 0; }
"""
    CLASS = ("__attribute__((objc_root_class)) @interface %s @end\n@implementation %s @end\n"
             "int main(void) { return 0; }\n")

    def test_parts_of_the_sdk(self):
        def linked(*names):
            return {"libraries": tuple(f"@rpath/{name}.framework/{name}" for name in names)}

        def exports(name, rest=makers.DEFAULT_SOURCE):
            return {"source": f"void {name}(void) {{}}\n" + rest}

        cases = [
            (linked("WEX"), True, "WEXSDKFrameworkFound?1"),
            (linked("WEXNetworkOnly"), True, "WEXSDKFrameworkFound?1"),
            (linked("WexFrameworkLoader"), True, "WEXSDKFrameworkFound?1"),
            # Half an SDK, and names that only look like others; a module alone is nobody's SDK.
            (linked("ORVMAMCore", "wex"), False, "WEXSDKFrameworkFound?0"),
            (linked("ORVMAMAppCore") |
             exports("FINGERPRINT_premain", self.HOOK % "application"), False,
             "WEXSymbols?0 WEXSDKFrameworkFound?0 OpenSSLFIPSModuleFound?0"),
            (linked("ORVMAMCore", "ORVMAMAppCore"), True, "WEXSDKFrameworkFound?1"),
            ({"source": self.HOOK % "orvApplication"}, True, "WEXSDKFrameworkFound?1"),
            (exports("ORVMAM_WrappedAppLib"), True, "WEXSymbols?1 WEXSDKFrameworkFound?0"),
            (exports("OrvSingleSignOn"), True, "WEXSymbols?1 WEXSDKFrameworkFound?0"),
            (exports("WEXSDKloadInit"), True, "WEXSymbols?1 WEXSDKFrameworkFound?0"),
            (linked("OrvaneDylib.dylib"), None, "WEXSDKFrameworkFound?0"),
        ]
        for image, is_sdk, report in cases:
            with self.subTest(image), makers.small_app(
                    program=makers.executable(**image)) as (folder, app):
                result, _ = self.wrap_folder(folder)
                if is_sdk is None:
                    self.assert_ends_with(
                        result, 254,
                        "ERROR: This app is already wrapped, and cannot be re-wrapped.")
                else:
                    self.assert_ends_with(result, 0, SDK_APP if is_sdk else None)
                self.assertIn(report, result.stderr)

    def test_foreign_runtime(self):
        with makers.small_app() as (folder, app):
            write(b"", app, "META-INF", "AIR", "application.xml")
            result, _ = self.wrap_folder(folder)
            self.assert_ends_with(result, 254, "WEX does not support wrapping applications created "
                                               "using the Adobe Air framework.")

    def test_fips_module_of_an_sdk_app(self):
        program = makers.executable(
            "void FINGERPRINT_premain(void) {}\n" + makers.DEFAULT_SOURCE,
            ("@rpath/WexFrameworkLoader.framework/WexFrameworkLoader",))
        with makers.small_app(program=program) as (folder, app):
            result, _ = self.wrap_folder(folder, "-appType", "enterprise")
            # The tool for the module comes from elsewhere and is not installed here.
            tool = os.path.join(os.path.realpath(TOOLKIT), "incore_macho")
            self.assert_ends_with(
                result, 254, f"A required file at this location does not exist: {tool}")
            self.assertIn("WEXSDKFrameworkFound?1 OpenSSLFIPSModuleFound?1", result.stderr)

    def test_intune(self):
        def framework(app):
            folder = os.path.join(app, "Frameworks", "IntuneMAM.framework")
            write(makers.executable(), folder, "IntuneMAM")
            write(plistlib.dumps({"CFBundleIdentifier": "x", "CFBundleExecutable": "IntuneMAM"}),
                  folder, "Info.plist")

        def resources(app):
            os.makedirs(os.path.join(app, "IntuneMAMResources.bundle"))

        def group(app):
            makers.sign_with_entitlements(app, {
                APP_ID: f"{FORMER_TEAM}.x", GROUPS: [f"{FORMER_TEAM}.com.microsoft.intune.mam"]})

        def symbol(app):
            write(makers.executable(self.CLASS % (("IntuneMAMEnrollmentManager",) * 2)), app,
                  "Small")

        def similar(app):
            write(makers.executable(self.CLASS % (("IntuneMAMEnrollment",) * 2)), app, "Small")
            write(b"", app, "IntuneMAMResources")

        for change, line in [(framework, "DetectIntune: IntuneFrameworkBundle found"),
                             (resources, "DetectIntune: IntuneMAMResources exists at "),
                             (group, "DetectIntune: Intune access group exists in the signed app."),
                             (symbol, "Intune Symbols found: 1"),
                             (similar, "Intune Symbols found: 0")]:
            with self.subTest(change.__name__), makers.small_app() as (folder, app):
                change(app)
                if os.path.exists(self.log):
                    os.remove(self.log)
                result, _ = self.wrap_folder(folder, "-logWriteLevel", "4")
                self.assertEqual(result.returncode, 0, result.stderr)
                self.assertIn(line, read(self.log).decode())


class Warnings(Rules):
    def final_text(self, *, change=lambda app: None, old=None, entitlements=(), without=(),
                   cert=ADMIN, options=(), **keywords):
        """The text that a successful run ends with."""
        listed = [self.certificates.get(cert) or os.path.join(IDENTITIES, "admin.pem")]
        profile = makers.profile(self.path("p.mobileprovision"), entitlements, listed, without)
        with makers.small_app() as (folder, app):
            change(app)
            if old:
                makers.sign_with_entitlements(app, old)
            result, output = self.wrap_folder(folder, *options, cert=cert, profile=profile,
                                              **keywords)
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertTrue(os.path.isfile(output), result.stderr)
            return result_text(result)

    def test_which_text_stays(self):
        def foreign(app):
            write(b"", app, "Mono.dll")

        def capitals(app):
            write(b"", app, "MONO.DLL")
            write(b"", app, "Libraries", "Mono.dll")

        def extension(app):
            write(b"", app, "Watch", "file")

        def broken_icon(app):
            write(b"no image", app, "Icon.png")

        def broken_icon_and_extension(app):
            broken_icon(app)
            extension(app)

        protected = {DATA_PROTECTION: "NSFileProtectionComplete"}
        health = {APP_ID: f"{FORMER_TEAM}.{IDENTIFIER}",
                  "com.apple.developer.healthkit": True}
        beta = {APP_ID: f"{FORMER_TEAM}.{IDENTIFIER}", "beta-reports-active": True}
        untrusted = {"TOVREK_TRUSTED_ROOT_SHA1": "00" * 20}
        keep = ("-noStripExtensions",)
        no_team = (TEAM_ID,)
        cases = [
            ("nothing to say", {}, None),
            ("foreign library", dict(change=foreign), FOREIGN),
            ("names that only look like it", dict(change=capitals), None),
            ("data protection", dict(entitlements=protected), PROTECTION),
            ("no data protection, in other letters",
             dict(entitlements={DATA_PROTECTION: "nsfileprotectionNONE"}), None),
            ("no team", dict(without=no_team), NO_TEAM),
            ("missing entitlement", dict(old=health), MISSING),
            ("missing entitlement that does not count", dict(old=beta), None),
            ("kept extensions", dict(change=extension, options=keep), EXTENSIONS),
            ("stripped extensions", dict(change=extension), None),
            ("name in another name", dict(cert="Twin Signer"), DUPLICATE),
            ("the longer name", dict(cert="Twin Signer Too"), None),
            ("certificate without unit", dict(cert="Teamless Signer"), NO_UNIT),
            ("signature without team", dict(environment=untrusted), NO_SIGNED_TEAM),
            ("icon that is none", dict(change=broken_icon), ICONS),
            # A text fills an empty place, or takes the place of an earlier one.
            ("foreign library, then no team", dict(change=foreign, without=no_team), FOREIGN),
            ("foreign library, then protection", dict(change=foreign, entitlements=protected),
             PROTECTION),
            ("protection, then no team", dict(entitlements=protected, without=no_team), PROTECTION),
            ("protection, then missing entitlement", dict(entitlements=protected, old=health),
             MISSING),
            ("missing entitlement, then extensions",
             dict(old=health, change=extension, options=keep), EXTENSIONS),
            ("extensions, then duplicate",
             dict(change=extension, options=keep, cert="Twin Signer"), DUPLICATE),
            ("no team, then certificate without unit",
             dict(without=no_team, cert="Teamless Signer"), NO_TEAM),
            ("duplicate, then signature without team",
             dict(cert="Twin Signer", environment=untrusted), DUPLICATE),
            ("extensions, then icons",
             dict(change=broken_icon_and_extension, options=keep), ICONS),
            # This mode unpacks late, into a place that is filled before.
            ("late unpacking", dict(options=("-appType", "enterprise", "-packageApp")),
             "Invalid input"),
        ]
        for name, arguments, expected in cases:
            with self.subTest(name):
                self.assertEqual(self.final_text(**arguments), expected)


class Certificates(Rules):
    def test_names(self):
        # The first common name counts; without one it is the unit, which is no common name.
        for name, text in [("Alpha Signer", None), ("Größe Ωmega 語", None), ("Wide Ελλάδα", None),
                           ("UNITUNIT01", NO_UNIT)]:
            with self.subTest(name), makers.small_app() as (folder, app):
                profile = makers.profile(
                    self.path("p.mobileprovision"),
                    certificates=[os.path.join(IDENTITIES, "admin.pem"), self.certificates[name]])
                result, output = self.wrap_folder(folder, cert=name, profile=profile)
                self.assert_ends_with(result, 0, text)
                self.assert_signed_with(self.certificates[name], output)

    def test_second_common_name_is_no_name(self):
        with makers.small_app() as (folder, app):
            profile = makers.profile(self.path("p.mobileprovision"),
                                     certificates=[self.certificates["Alpha Signer"]])
            result, _ = self.wrap_folder(folder, cert="Beta Signer", profile=profile)
            self.assert_ends_with(
                result, 255, "iOS distribution certificate name (*) does not match *")

    def test_two_certificates_of_one_name(self):
        again = makers.certificate(self.path("again.pem"), CERTIFICATES["Alpha Signer"])
        home = {"XDG_DATA_HOME": self.path("home of twins")}
        key = os.path.join(IDENTITIES, "admin.key")
        for file in (key, self.certificates["Alpha Signer"], again):
            run(os.path.join(COMPANIONS, "security"), "import", file, env=self.environment | home)
        profile = makers.profile(self.path("p.mobileprovision"), certificates=[again])
        sha1 = run("openssl", "x509", "-in", again, "-noout", "-fingerprint",
                   "-sha1").stdout.decode().strip().split("=")[1]
        with makers.small_app() as (folder, app):
            result, _ = self.wrap_folder(folder, cert="Alpha Signer", profile=profile,
                                         environment=home)
            self.assert_ends_with(result, 254, "Failed to execute dylibcodesign with exit code: 1")
            # The hash tells them apart; the profile's names do not list it, so no unit is found.
            result, output = self.wrap_folder(folder, cert=sha1.replace(":", " "), profile=profile,
                                              environment=home)
            self.assert_ends_with(result, 0, NO_UNIT)
            self.assert_signed_with(again, output)

    def test_keychain_option_without_a_path(self):
        with makers.small_app() as (folder, app):
            result, output = self.wrap_folder(folder, "-pell")
            self.assert_ends_with(result, 0, None)
            self.assertEqual(signature.signer(self.signed_part(output)), ADMIN)

    def test_far_expiry(self):
        for year, text in [(2039, None), (2107, None), (9999, None), (1999, "This provisioning *")]:
            with self.subTest(year), makers.small_app() as (folder, app):
                profile = makers.profile(self.path("p.mobileprovision"),
                                         ExpirationDate=datetime(year, 2, 28, 12, 30))
                result, _ = self.wrap_folder(folder, profile=profile)
                self.assert_ends_with(result, 254 if text else 0, text)
                if not text:
                    with zipfile.ZipFile(self.path("out.wex")) as package:
                        self.assertIn(f"{year}-02-28 12:30:00 +0000".encode(),
                                      package.read("manifest.xml"))


class Entitlements(Rules):
    def test_entitlements_of_the_signature(self):
        own, management = f"{TEAM}.{IDENTIFIER}", f"{TEAM}.com.orvane.wex"
        former = {
            APP_ID: f"{FORMER_TEAM}.{IDENTIFIER}",
            GROUPS: [f"{FORMER_TEAM}.{IDENTIFIER}", f"{FORMER_TEAM}.other"],
            DOMAINS: [f"applinks:{FORMER_TEAM}.example.com", "webcredentials:größe.example"],
            CLOUD: ["iCloud.former"], CLOUD_SERVICES: ["CloudKit"],
            CLOUD_STORE: f"{FORMER_TEAM}.{IDENTIFIER}", "beta-reports-active": True}
        cloud = {CLOUD: "*", CLOUD_TEST: "*", CLOUD_STORE: f"{TEAM}.*", CLOUD_SERVICES: "*",
                 CLOUD_ENVIRONMENT: ["Development", "Production"]}
        usual = {TEAM_ID: TEAM, "get-task-allow": False}
        cases = [
            ("explicit profile, unsigned app", {APP_ID: own}, (), None, (),
             usual | {APP_ID: own, GROUPS: [own, management, f"{TEAM}.*"]}),
            ("wildcard profile without team, with data protection and app groups",
             {GROUPS: [f"{TEAM}.shared", f"{TEAM}.*", f"{TEAM}.more.*"],
              APP_GROUPS: ["group.a", "group.b & <c>"],
              DATA_PROTECTION: "NSFileProtectionComplete"},
             (TEAM_ID,), None, (),
             {APP_ID: own, "get-task-allow": False, APP_GROUPS: ["group.a", "group.b & <c>"],
              DATA_PROTECTION: "NSFileProtectionComplete",
              GROUPS: [f"{TEAM}.shared", f"{TEAM}.more.*", own, management, f"{TEAM}.group.a",
                       f"{TEAM}.group.b & <c>"]}),
            ("wildcard profile of one company",
             {APP_ID: f"{TEAM}.com.example.*"}, (), None, (),
             usual | {APP_ID: own, GROUPS: [own, management]}),
            ("the same, as an upgrade",
             {APP_ID: f"{TEAM}.com.acme.*"}, (), None, ("-upgrade",),
             usual | {APP_ID: f"{TEAM}.com.acme.{IDENTIFIER}",
                      GROUPS: [f"{TEAM}.com.acme.{IDENTIFIER}", management]}),
            ("new identifier", {}, (), None, ("-bundleID", "org.other.app"),
             usual | {APP_ID: f"{TEAM}.org.other.app",
                      GROUPS: [f"{TEAM}.org.other.app", management]}),
            ("no keychain groups anywhere", {}, (GROUPS,), None, (),
             usual | {APP_ID: own, GROUPS: [own, management]}),
            ("unsigned app has no iCloud", cloud, (), None, (),
             usual | {APP_ID: own, CLOUD_SERVICES: "*", GROUPS: [own, management]}),
            # The app's own group twice: added while the old one had the former team's prefix.
            ("app of another team", cloud | {DOMAINS: "*"}, (), former, (),
             usual | {APP_ID: own, GROUPS: [own, f"{TEAM}.other", own, management],
                      DOMAINS: [f"applinks:{TEAM}.example.com", "webcredentials:größe.example"],
                      CLOUD: "*", CLOUD_STORE: f"{TEAM}.*", CLOUD_SERVICES: ["CloudKit"]}),
            ("app of another team, profile without its rights", {APP_ID: own}, (), former, (),
             usual | {APP_ID: own, CLOUD_SERVICES: ["CloudKit"],
                      GROUPS: [own, f"{TEAM}.other", own, management, f"{TEAM}.*"]}),
            ("app of the same team", {}, (),
             {APP_ID: own, GROUPS: [f"{TEAM}.*"], TEAM_ID: TEAM}, (),
             usual | {APP_ID: own, GROUPS: [f"{TEAM}.*", own, management]}),
            ("old groups without the app's own", {}, (),
             {APP_ID: f"{FORMER_TEAM}.{IDENTIFIER}", GROUPS: [f"{FORMER_TEAM}.other"]}, (),
             usual | {APP_ID: own, GROUPS: [f"{TEAM}.other", own, management]}),
        ]
        for name, granted, without, old, options, expected in cases:
            with self.subTest(name), makers.small_app() as (folder, app):
                if old:
                    makers.sign_with_entitlements(app, old)
                profile = makers.profile(self.path("p.mobileprovision"), granted, None, without)
                result, output = self.wrap_folder(folder, *options, profile=profile)
                self.assertEqual(result.returncode, 0, result.stderr)
                signed = signature.Signature(self.signed_part(output))
                self.assertEqual(plistlib.loads(signed.xml_entitlements()), expected)
                self.assertEqual(signed.der_entitlements(), expected)
                with zipfile.ZipFile(output) as package:
                    names = package.namelist()
                    kept = "Payload/Small.app/orig-entitlements.plist"
                    self.assertEqual(kept in names, old is not None)
                    if old:
                        self.assertEqual(plistlib.loads(package.read(kept)), old)


class NothingElseRuns(Rules):
    # Each ends a shell's word in another way, or is an option or a pattern to a program.
    NAMES = ['a"; touch canary; "b', "$(touch canary)`touch canary`$HOME", "back\\slash\\",
             "Bob's; touch canary; '", "  some   blanks *?[a]", "Größe — 語", "-TT touch",
             "a;b&c|d>canary"]

    def everything(self):
        """All that lies in the test's folder, with contents; the scratch place has its own test."""
        found = {}
        for base, folders, files in os.walk(self.folder):
            if self.scratch in (base, os.path.dirname(base)):
                folders.clear()
                continue
            for name in folders + files:
                path = os.path.join(base, name)
                found[path] = read(path) if os.path.isfile(path) else os.path.islink(path)
        return found

    def assert_untouched(self, before):
        after = self.everything()
        for name in ("out.wex", "wrapped.ipa", "Orvane.log", "Small.ipa"):
            before.pop(self.path(name), None)
            after.pop(self.path(name), None)
        self.assertEqual(sorted(after), sorted(before))
        self.assertEqual(after, before)

    def test_names(self):
        for name in self.NAMES:
            with self.subTest(name), makers.small_app(name) as (folder, app):
                before = self.everything()
                result, output = self.wrap_folder(folder, name=name)
                self.assert_ends_with(result, 0, None)
                self.assertEqual(signature.signer(self.signed_part(output, name)), ADMIN)
                self.assert_untouched(before)

    def test_scratch_folder(self):
        # Line ends in names do not survive the unpacking, but the scratch place may have them.
        scratch = self.path("tmp", "\n".join(self.NAMES).replace("/", ""), "x")
        os.makedirs(scratch)
        with makers.small_app() as (folder, app):
            before = self.everything()
            result, output = self.wrap_folder(folder, environment={"TMPDIR": scratch})
            self.assert_ends_with(result, 0, None)
            self.assertEqual(signature.signer(self.signed_part(output)), ADMIN)
            self.assertEqual(os.listdir(os.path.join(scratch, "com.orvane.wex")), [])
            os.rmdir(os.path.join(scratch, "com.orvane.wex"))
            self.assert_untouched(before)

    def test_values(self):
        hostile = ('"; touch canary; "$(touch canary)`touch canary`\'; touch canary; \'\n'
                   "touch canary")
        profile = makers.profile(self.path("hostile.mobileprovision"),
                                 {APP_GROUPS: [hostile], hostile: hostile}, None, (),
                                 Name=hostile, TeamName=hostile, UUID=hostile,
                                 TeamIdentifier=[hostile], ApplicationIdentifierPrefix=[hostile])
        info = {key: hostile for key in (
            "CFBundleName", "CFBundleDisplayName", "CFBundleShortVersionString", "CFBundleVersion",
            "MinimumOSVersion", "DTSDKName", hostile)}
        info["CFBundleIconFiles"] = ["Icon.png", hostile, "../" * 12 + "tmp/canary"]
        with makers.small_app(info=info) as (folder, app):
            before = self.everything()
            result, output = self.wrap_folder(folder, "-appDesc", hostile + "1", "-appName",
                                              hostile + "2", profile=profile)
            self.assertEqual(result.returncode, 0, result.stderr)
            entitlements = signature.Signature(self.signed_part(output)).der_entitlements()
            self.assertEqual(entitlements[hostile], hostile)
            self.assert_untouched(before)
        before = self.everything()
        for option in ("-Cert", "-bundleID"):
            with makers.small_app() as (folder, app):
                keywords = {"cert": hostile} if option == "-Cert" else {}
                options = (option, hostile) if option == "-bundleID" else ()
                self.wrap_folder(folder, *options, **keywords)
                self.assert_untouched(before)

    def test_executables_outside_of_the_app(self):
        outside = write(makers.executable(), self.path("outside", "program"))
        for name in (outside, "../" * 20 + outside[1:], "."):
            with self.subTest(name), makers.small_app(
                    info={"CFBundleExecutable": name}) as (folder, app):
                before = self.everything()
                result, _ = self.wrap_folder(folder)
                self.assert_ends_with(result, 254, "ERROR: The app (*) is an AppStore app.")
                self.assert_untouched(before)

    def test_entries_of_archives(self):
        victim = self.path("victim")
        write(b"kept", victim, "file")
        write(plistlib.dumps({"CFBundleIdentifier": "kept"}), victim, "Info.plist")
        app = "Payload/Small.app"
        with makers.small_app() as (_, source):
            usual = [(f"{app}/{name}", read(source, name)) for name in os.listdir(source)]

        def usual_but(*names):
            return [entry for entry in usual if entry[0] not in names]

        link = ("->", victim)
        cases = {
            "parent folders": usual + [("../canary", b"x"), ("../" * 9 + "canary", b"x"),
                                       (f"{app}/../../../canary", b"x")],
            "absolute name": usual + [(self.path("canary"), b"x")],
            "link and a file behind it": usual + [(f"{app}/link", link),
                                                  (f"{app}/link/file", b"x")],
            "payload is a link": [("Payload", link)] + usual,
            "app is a link": [(app, link)],
            "another app is a link": usual + [("Payload/A.app", link)],
            "signature is a link": usual + [(f"{app}/_CodeSignature", link)],
            "frameworks are a link": usual + [(f"{app}/Frameworks", link)],
            "management bundle is a link": usual + [(f"{app}/OrvaneDylib.bundle", link)],
            "extensions are a link": usual + [(f"{app}/PlugIns", link)],
            "link to nowhere": usual + [(f"{app}/orig-entitlements.plist",
                                         ("->", self.path("canary")))],
            "relative link": usual + [(f"{app}/policy_metadata.xml", ("->", "../" * 9 + "canary"))],
            "list is a link": usual_but(f"{app}/Info.plist") + [
                (f"{app}/Info.plist", ("->", os.path.join(victim, "Info.plist")))],
            "program is a link": usual_but(f"{app}/Small") + [
                (f"{app}/Small", ("->", os.path.join(victim, "file")))],
            "archive of the same name": usual + [("Small.ipa",
                                                  ("->", os.path.join(victim, "file")))],
            "metadata is a link": usual + [("iTunesMetadata.plist",
                                            ("->", os.path.join(victim, "file")))],
            "package folder is a link": usual + [("package", link), ("Package", link)],
            "files of the run are links": usual + [
                (name, ("->", os.path.join(victim, "file")))
                for name in ("new-entitlement.plist", "provisiongprofile.plist")],
        }
        for name, entries in cases.items():
            with self.subTest(name):
                archive = makers.archive_of(entries, self.path("Small.ipa"))
                before = self.everything()
                result = self.wrap(archive, self.path("out.wex"), profile=self.profile)
                self.assertIn(result.returncode, (0, 254), result.stderr)
                if result.returncode != 0:
                    self.assertTrue(result_text(result), result.stderr)
                self.assert_untouched(before)
