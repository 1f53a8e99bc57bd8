"""Wraps changed apps, and the demo app with other options."""
import os
import plistlib
import shutil

from examiner import bundle, macho, signature
from harness import (COMPANIONS, DEMO_APP, IDENTITIES, TOOLKIT, TRUSTED_ROOT, WholeProgramTest,
                     changed_app, edit_info, make_profile, pack, read, result_text, run,
                     sha1_of_admin, sign_as_developer, thin, unzip, write)

EXTENSION_WARNING = (
    "WARNING: The created package includes one or more app extensions that have been re-signed to "
    "permit app installation.  These extensions are NOT likely to function properly.")


class Options(WholeProgramTest):
    def wrapped_app(self, name, output):
        """Unpacks a package's app and checks its signatures."""
        self.assertTrue(os.path.isfile(output))
        package = unzip(output, self.path(self.id(), "package"))
        archive = next(entry for entry in os.listdir(package) if entry.endswith(".ipa"))
        unzip(os.path.join(package, archive), self.path(self.id(), "after"))
        app = self.path(self.id(), "after", "Payload", name)
        self.assertEqual(bundle.problems(app, TRUSTED_ROOT), [])
        return app

    def test_kept_extensions_are_rebuilt_and_signed(self):
        output = self.path("kept.wex")
        result = self.wrap(DEMO_APP, output, "-noStripExtensions")
        self.assert_wrapped(result, output)
        self.assertEqual(result_text(result), EXTENSION_WARNING)
        app = self.wrapped_app("Fieldbook.app", output)
        share = os.path.join(app, "PlugIns", "Share.appex")
        for image in macho.slices(os.path.join(share, "Share")):
            self.assertEqual(image.dylibs()[-2:], [
                "@executable_path/../../OrvaneDylib.bundle/OrvaneDylib.dylib",
                "@executable_path/../../Frameworks/OrvaneLogger.framework/OrvaneLogger"])
            # An extension keeps the entitlements that it was signed with.
            entitlements = signature.Signature(image).der_entitlements()
            self.assertEqual(entitlements["application-identifier"],
                             "SAMPLE0001.com.example.fieldbook.share")
        self.assertTrue(os.path.isdir(os.path.join(app, "Watch", "FieldbookWatch.app")))

    def test_network_only_library(self):
        output = self.path("network.wex")
        self.assert_wrapped(self.wrap(DEMO_APP, output, "-useNetworkOnlyLib"), output)
        app = self.wrapped_app("Fieldbook.app", output)
        shipped = os.path.join(TOOLKIT, "Data", "OrvaneNetworkOnlyDylib.bundle",
                               "OrvaneDylib.dylib")
        inserted = os.path.join(app, "OrvaneDylib.bundle", "OrvaneDylib.dylib")
        self.assertEqual([image.contents() for image in macho.slices(inserted)],
                         [image.contents() for image in macho.slices(shipped)])
        self.assertEqual(read(app, "policy_metadata.xml"),
                         read(TOOLKIT, "Data", "mvpnonly_policy_metadata.xml"))

    def test_own_policies_and_explicit_profile(self):
        policies = write(b"<PolicyMetadata><Policy><PolicyName>Only</PolicyName></Policy>"
                         b"</PolicyMetadata>", self.path("own.xml"))
        profile = make_profile(self.path("explicit.mobileprovision"), "com.example.fieldbook")
        output = self.path("policies.wex")
        result = self.wrap(DEMO_APP, output, "-policyXML", policies, profile=profile)
        self.assert_wrapped(result, output)
        app = self.wrapped_app("Fieldbook.app", output)
        self.assertEqual(read(app, "policy_metadata.xml"), read(policies))
        entitlements = signature.Signature(
            macho.slices(os.path.join(app, "Fieldbook"))[0]).der_entitlements()
        # The app's own group twice: added while the old one still had the old team's prefix.
        self.assertEqual(entitlements["keychain-access-groups"], [
            "EXAMPLE123.com.example.fieldbook", "EXAMPLE123.com.example.shared",
            "EXAMPLE123.com.example.fieldbook", "EXAMPLE123.com.orvane.wex", "EXAMPLE123.*"])
        self.assertNotIn("com.apple.security.application-groups", entitlements)

    def test_keychain_file_and_certificate_hash(self):
        # The identity is only in the file that is named.
        output = self.path("file.wex")
        result = self.wrap(DEMO_APP, output, "-pell", "-keychainPath",
                           os.path.join(IDENTITIES, "admin.keychain.pem"),
                           environment={"XDG_DATA_HOME": self.path("empty home")})
        self.assert_wrapped(result, output)
        self.wrapped_app("Fieldbook.app", output)
        output = self.path("pairs.wex")
        self.assert_wrapped(self.wrap(DEMO_APP, output, cert=" ".join(sha1_of_admin())), output)

    def test_app_without_signature(self):
        with changed_app() as (folder, app):
            shutil.rmtree(os.path.join(app, "_CodeSignature"))
            run(os.path.join(COMPANIONS, "codesign"), "--remove-signature",
                os.path.join(app, "Fieldbook"))
            archive = pack(folder, self.path("unsigned.ipa"))
        output = self.path("unsigned.wex")
        self.assert_wrapped(self.wrap(archive, output), output)
        app = self.wrapped_app("Fieldbook.app", output)
        entitlements = signature.Signature(
            macho.slices(os.path.join(app, "Fieldbook"))[0]).der_entitlements()
        self.assertEqual(entitlements["keychain-access-groups"], [
            "EXAMPLE123.com.example.fieldbook", "EXAMPLE123.com.orvane.wex",
            "EXAMPLE123.group.com.example.fieldbook"])

    def test_thin_executable(self):
        with changed_app() as (folder, app):
            thin(os.path.join(app, "Fieldbook"), "arm64")
            archive = pack(folder, self.path("thin.ipa"))
        output = self.path("thin.wex")
        self.assert_wrapped(self.wrap(archive, output), output)
        app = self.wrapped_app("Fieldbook.app", output)
        self.assertEqual(read(app, "Fieldbook")[:8], b"\xca\xfe\xba\xbe\0\0\0\1")

    def test_odd_names(self):
        # Blanks, quotes, what a shell would expand, letters beyond ASCII; links and empty files.
        for name in ('A "b" $HOME `id` Größe 表', "Bob's book"):
            with self.subTest(name=name), changed_app() as (folder, app):
                os.rename(os.path.join(app, "Fieldbook"), os.path.join(app, name))
                edit_info(app, CFBundleExecutable=name, CFBundleName=name, CFBundleDisplayName=name,
                          CFBundleIdentifier="com.example.odd")
                os.symlink("PkgInfo", os.path.join(app, "link $HOME"))
                write(b"", app, "Pages", 'empty "file"')
                os.rename(app, os.path.join(folder, "Payload", f"{name}.app"))
                output = self.path(f"{name}.wex")
                result = self.wrap(pack(folder, self.path(f"{name}.ipa")), output)
                self.assert_wrapped(result, output)
                wrapped = self.wrapped_app(f"{name}.app", output)
                self.assertEqual(os.readlink(os.path.join(wrapped, "link $HOME")), "PkgInfo")
                self.assertEqual(plistlib.loads(read(wrapped, "Info.plist"))["CFBundleName"], name)
                # No policy file of its own: the general one.
                self.assertEqual(read(wrapped, "policy_metadata.xml"),
                                 read(TOOLKIT, "Data", "policy_metadata.xml"))
                shutil.rmtree(self.path(self.id()))

    def test_certificates_without_a_team_are_warned_of(self):
        output = self.path("teamless.wex")
        result = self.wrap(DEMO_APP, output, environment={"TOVREK_TRUSTED_ROOT_SHA1": ""})
        self.assert_wrapped(result, output)
        self.assertEqual(result_text(result), (
            "WARNING: Your binaries are not correctly signed for iOS 8.  Please check command line "
            "tools version, your certificate and provisioning profile."))
        self.wrapped_app("Fieldbook.app", output)

    def test_an_existing_output_is_replaced(self):
        output = write(b"an older package", self.path("again.wex"))
        result = self.wrap(DEMO_APP, output)
        self.assert_wrapped(result, output)
        self.assertIn("WARNING! The target output file already exists. Deleting original file.",
                      result.stderr)
        self.wrapped_app("Fieldbook.app", output)

    def test_an_installed_copy_works_from_anywhere(self):
        prefix = self.path("an installed folder")
        run("cmake", "--install", os.path.dirname(TOOLKIT), "--prefix", prefix)
        output = self.path("installed.wex")
        self.assert_wrapped(self.wrap(DEMO_APP, output, toolkit=prefix), output)
        self.wrapped_app("Fieldbook.app", output)
        self.assertTrue(os.path.isdir(os.path.join(prefix, "logs")))
        with changed_app() as (_, app):
            sign_as_developer(app)  # The installed companions' results read back below.
            shown = run(os.path.join(prefix, "host", "usr", "bin", "codesign"), "-dvvv", app)
        self.assertIn(b"Authority=iPhone Developer: Sam Sample", shown.stderr)
