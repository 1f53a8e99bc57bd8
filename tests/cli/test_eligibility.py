"""Which apps Wrap takes: encrypted ones, such as hold an SDK or were made with foreign tools."""
import os
import plistlib
import struct

import makers
from examiner import macho
from harness import PROFILE, TOOLKIT, changed_app, read, remove, write
from makers import APP_ID, APP_STORE, FORMER_TEAM, GROUPS, SmallAppTest

SDK_APP = ("To wrap, choose a valid file that does not include the WEX framework. Wrapping an SDK "
           "app with this tool is not supported.")
ENCRYPTION_COMMANDS = (0x21, 0x2C)
HOOK = """
__attribute__((objc_root_class)) @interface Launcher @end
@implementation Launcher
- (void)%s:(id)app willFinishLaunchingWithOptions:(id)options {}
@end
int main(void) { return 0; }
"""


def class_named(name):
    return makers.executable(f"__attribute__((objc_root_class)) @interface {name} @end\n"
                             f"@implementation {name} @end\nint main(void) {{ return 0; }}\n")


def linked(*names):
    return {"libraries": tuple(f"@rpath/{name}.framework/{name}" for name in names)}


def exports(name, rest=makers.DEFAULT_SOURCE):
    return {"source": f"void {name}(void) {{}}\n" + rest}


class Eligibility(SmallAppTest):
    def test_encrypted_slices(self):
        # The demo app's executable has two slices, which shops encrypt one by one.
        for identifiers, status, text in [((0, 1), 0, None), ((1, 0), 0, None),
                                          ((1, 1), 254, APP_STORE), ((10, 2), 254, APP_STORE)]:
            with self.subTest(identifiers), changed_app() as (folder, app):
                program = os.path.join(app, "Fieldbook")
                data = read(program)
                for image, identifier in zip(macho.slices(program), identifiers, strict=True):
                    for command in image.commands:
                        if command.number in ENCRYPTION_COMMANDS:
                            old = command.data
                            self.assertEqual(data.count(old), 1)
                            data = data.replace(
                                old, old[:16] + struct.pack("<I", identifier) + old[20:])
                write(data, program)
                result, _ = self.wrap_folder(folder, name="Fieldbook", profile=PROFILE)
                self.assert_ends_with(result, status, text)

    def test_parts_of_the_sdk(self):
        found, none = "WEXSDKFrameworkFound?1", "WEXSDKFrameworkFound?0"
        symbols = "WEXSymbols?1 WEXSDKFrameworkFound?0"
        wrapped = "ERROR: This app is already wrapped, and cannot be re-wrapped."
        for image, status, text, report in [
                (linked("WEX"), 0, SDK_APP, found),
                (linked("WEXNetworkOnly"), 0, SDK_APP, found),
                (linked("WexFrameworkLoader"), 0, SDK_APP, found),
                # Half an SDK, and names that only look like others; a module alone is nobody's SDK.
                (linked("ORVMAMCore", "wex"), 0, None, none),
                (linked("ORVMAMAppCore") | exports("FINGERPRINT_premain", HOOK % "application"), 0,
                 None, f"WEXSymbols?0 {none} OpenSSLFIPSModuleFound?0"),
                (linked("ORVMAMCore", "ORVMAMAppCore"), 0, SDK_APP, found),
                ({"source": HOOK % "orvApplication"}, 0, SDK_APP, found),
                (exports("ORVMAM_WrappedAppLib"), 0, SDK_APP, symbols),
                (exports("OrvSingleSignOn"), 0, SDK_APP, symbols),
                (exports("WEXSDKloadInit"), 0, SDK_APP, symbols),
                (linked("OrvaneDylib.dylib"), 254, wrapped, none)]:
            with self.subTest(image), makers.small_app(
                    program=makers.executable(**image)) as (folder, app):
                result, _ = self.wrap_folder(folder)
                self.assert_ends_with(result, status, text)
                self.assertIn(report, result.stderr)

    def test_fips_module_of_an_sdk_app(self):
        program = makers.executable(**exports("FINGERPRINT_premain"),
                                    **linked("WexFrameworkLoader"))
        with makers.small_app(program=program) as (folder, app):
            result, _ = self.wrap_folder(folder, "-appType", "enterprise")
            # The tool for the module comes from elsewhere and is not installed here.
            self.assert_ends_with(result, 254, "Failed to execute incore_macho with exit code: 127")
            self.assertIn("The fingerprint tool could not be started: "
                          + os.path.join(os.path.realpath(TOOLKIT), "incore_macho"), result.stderr)
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
            write(class_named("IntuneMAMEnrollmentManager"), app, "Small")

        def similar(app):
            write(class_named("IntuneMAMEnrollment"), app, "Small")
            write(b"", app, "IntuneMAMResources")

        log = self.path("Orvane.log")
        for change, line in [(framework, "DetectIntune: IntuneFrameworkBundle found"),
                             (resources, "DetectIntune: IntuneMAMResources exists at "),
                             (group, "DetectIntune: Intune access group exists in the signed app."),
                             (symbol, "Intune Symbols found: 1"),
                             (similar, "Intune Symbols found: 0")]:
            with self.subTest(change.__name__), makers.small_app() as (folder, app):
                change(app)
                remove(log)
                result, _ = self.wrap_folder(folder, "-logWriteLevel", "4")
                self.assertEqual(result.returncode, 0, result.stderr)
                self.assertIn(line, read(log).decode())
