"""Wraps changed apps, and the demo app with other options."""
import os
import plistlib
import shutil

from examiner import bundle, macho
from harness import (COMPANIONS, DEMO_APP, IDENTITIES, TOOLKIT, TRUSTED_ROOT, WholeProgramTest,
                     changed_app, edit_info, make_profile, pack, read, result_text, run, sha1_of,
                     sign_as_developer, thin, unpacked_app, write)

EXTENSION_WARNING = (
    "WARNING: The created package includes one or more app extensions that have been re-signed to "
    "permit app installation.  These extensions are NOT likely to function properly.")


class Options(WholeProgramTest):
    def wrapped_app(self, *options, source=DEMO_APP, **keywords):
        """Wraps an app; answers the result and the app that was made, with sound signatures."""
        output = self.path(f"{self.id()}.wex")
        result = self.wrap(source, output, *options, **keywords)
        self.assert_wrapped(result, output)
        app = unpacked_app(output, self.path(self.id()))
        self.assertEqual(bundle.problems(app, TRUSTED_ROOT), [])
        return result, app

    def test_kept_extensions_are_rebuilt_and_signed(self):
        result, app = self.wrapped_app("-noStripExtensions")
        self.assertEqual(result_text(result), EXTENSION_WARNING)
        share = os.path.join(app, "PlugIns", "Share.appex")
        for image in bundle.slices(share):
            self.assertEqual(image.dylibs()[-2:], [
                "@executable_path/../../OrvaneDylib.bundle/OrvaneDylib.dylib",
                "@executable_path/../../Frameworks/OrvaneLogger.framework/OrvaneLogger"])
        # An extension keeps the entitlements that it was signed with.
        self.assertEqual(bundle.entitlements(share)["application-identifier"],
                         "SAMPLE0001.com.example.fieldbook.share")
        self.assertTrue(os.path.isdir(os.path.join(app, "Watch", "FieldbookWatch.app")))

    def test_network_only_library(self):
        _, app = self.wrapped_app("-useNetworkOnlyLib")
        contents = [[image.contents() for image in macho.slices(os.path.join(folder, library))]
                    for folder, library in (
                        (app, "OrvaneDylib.bundle/OrvaneDylib.dylib"),
                        (TOOLKIT, "Data/OrvaneNetworkOnlyDylib.bundle/OrvaneDylib.dylib"))]
        self.assertEqual(*contents)
        self.assertEqual(read(app, "policy_metadata.xml"),
                         read(TOOLKIT, "Data", "mvpnonly_policy_metadata.xml"))

    def test_own_policies_and_explicit_profile(self):
        policies = write(b"<PolicyMetadata><Policy><PolicyName>Only</PolicyName></Policy>"
                         b"</PolicyMetadata>", self.path("own.xml"))
        profile = make_profile(self.path("explicit.mobileprovision"), "com.example.fieldbook")
        _, app = self.wrapped_app("-policyXML", policies, profile=profile)
        self.assertEqual(read(app, "policy_metadata.xml"), read(policies))
        # The app's own group twice: added while the old one still had the old team's prefix.
        entitlements = bundle.entitlements(app)
        self.assertEqual(entitlements["keychain-access-groups"], [
            "EXAMPLE123.com.example.fieldbook", "EXAMPLE123.com.example.shared",
            "EXAMPLE123.com.example.fieldbook", "EXAMPLE123.com.orvane.wex", "EXAMPLE123.*"])
        self.assertNotIn("com.apple.security.application-groups", entitlements)

    def test_keychain_file_and_certificate_hash(self):
        # The identity is only in the file that is named.
        self.wrapped_app("-pell", "-keychainPath", os.path.join(IDENTITIES, "admin.keychain.pem"),
                         cert=sha1_of(), environment={"XDG_DATA_HOME": self.path("empty home")})

    def test_app_without_signature_of_one_slice(self):
        with changed_app() as (folder, app):
            shutil.rmtree(os.path.join(app, "_CodeSignature"))
            run(os.path.join(COMPANIONS, "codesign"), "--remove-signature",
                os.path.join(app, "Fieldbook"))
            thin(os.path.join(app, "Fieldbook"), "arm64")
            archive = pack(folder, self.path("unsigned.ipa"))
        _, app = self.wrapped_app(source=archive)
        self.assertEqual(bundle.entitlements(app)["keychain-access-groups"], [
            "EXAMPLE123.com.example.fieldbook", "EXAMPLE123.com.orvane.wex",
            "EXAMPLE123.group.com.example.fieldbook"])
        self.assertEqual(read(app, "Fieldbook")[:8], b"\xca\xfe\xba\xbe\0\0\0\1")

    def test_odd_names(self):
        # Blanks, quotes, what a shell would expand, letters beyond ASCII; links and empty files.
        name = 'Bob\'s "b" $HOME `id` Größe 表'
        with changed_app() as (folder, app):
            os.rename(os.path.join(app, "Fieldbook"), os.path.join(app, name))
            edit_info(app, CFBundleExecutable=name, CFBundleName=name, CFBundleDisplayName=name,
                      CFBundleIdentifier="com.example.odd")
            os.symlink("PkgInfo", os.path.join(app, "link $HOME"))
            write(b"", app, "Pages", 'empty "file"')
            os.rename(app, os.path.join(folder, "Payload", f"{name}.app"))
            _, app = self.wrapped_app(source=pack(folder, self.path(f"{name}.ipa")))
        self.assertEqual(os.path.basename(app), f"{name}.app")
        self.assertEqual(os.readlink(os.path.join(app, "link $HOME")), "PkgInfo")
        self.assertEqual(plistlib.loads(read(app, "Info.plist"))["CFBundleName"], name)
        # No policy file of its own: the general one.
        self.assertEqual(read(app, "policy_metadata.xml"),
                         read(TOOLKIT, "Data", "policy_metadata.xml"))

    def test_an_existing_output_is_replaced(self):
        write(b"an older package", self.path(f"{self.id()}.wex"))
        result, _ = self.wrapped_app()
        self.assertIn("WARNING! The target output file already exists. Deleting original file.",
                      result.stderr)

    def test_an_installed_copy_works_from_anywhere(self):
        prefix = self.path("an installed folder")
        run("cmake", "--install", os.path.dirname(TOOLKIT), "--prefix", prefix)
        self.wrapped_app(toolkit=prefix)
        self.assertTrue(os.path.isdir(os.path.join(prefix, "logs")))
        with changed_app() as (_, app):
            sign_as_developer(app)  # The installed companions' results read back below.
            shown = run(os.path.join(prefix, "host", "usr", "bin", "codesign"), "-dvvv", app)
        self.assertIn(b"Authority=iPhone Developer: Sam Sample", shown.stderr)
