"""Which text a successful Wrap ends with, when there are several reasons for one."""
import os

import makers
from harness import ADMIN, IDENTITIES, write
from makers import (APP_ID, DATA_PROTECTION, FORMER_TEAM, IDENTIFIER, NO_UNIT, TEAM, TEAM_ID,
                    SmallAppTest)

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
NO_SIGNED_TEAM = ("WARNING: Your binaries are not correctly signed for iOS 8.  Please check "
                  "command line tools version, your certificate and provisioning profile.")
ICONS = "Failed to extract icon files. Error:-1"


class Warnings(SmallAppTest):
    SUBJECTS = {
        "Teamless Signer": ["CN=Teamless Signer", "O=Example Corporation"],
        "Twin Signer": ["CN=Twin Signer", f"OU={TEAM}"],
        "Twin Signer Too": ["CN=Twin Signer Too", f"OU={TEAM}"],
    }

    def assert_final_text(self, text, *, files=(), old=None, entitlements=(), without=(),
                          cert=ADMIN, options=(), **keywords):
        listed = [self.certificates.get(cert) or os.path.join(IDENTITIES, "admin.pem")]
        profile = makers.profile(self.path("p.mobileprovision"), entitlements, listed, without)
        with makers.small_app() as (folder, app):
            for name in files:
                write(b"no image", app, name)
            if old:
                makers.sign_with_entitlements(app, old)
            result, output = self.wrap_folder(folder, *options, cert=cert, profile=profile,
                                              **keywords)
        self.assert_ends_with(result, 0, text)
        self.assertTrue(os.path.isfile(output), result.stderr)

    def test_which_text_stays(self):
        foreign, icon = {"files": ["Mono.dll"]}, {"files": ["Icon.png"]}
        kept = {"files": ["Watch/file"], "options": ("-noStripExtensions",)}
        protected = {"entitlements": {DATA_PROTECTION: "NSFileProtectionComplete"}}
        health = {"old": {APP_ID: f"{FORMER_TEAM}.{IDENTIFIER}",
                          "com.apple.developer.healthkit": True}}
        beta = {"old": {APP_ID: f"{FORMER_TEAM}.{IDENTIFIER}", "beta-reports-active": True}}
        untrusted = {"environment": {"TOVREK_TRUSTED_ROOT_SHA1": "00" * 20}}
        no_team = {"without": (TEAM_ID,)}
        twin, teamless = {"cert": "Twin Signer"}, {"cert": "Teamless Signer"}
        for name, arguments, expected in [
                ("nothing to say", {}, None),
                ("foreign library", foreign, FOREIGN),
                ("names that only look like it",
                 {"files": ["MONO.DLL", "Libraries/Mono.dll"]}, None),
                ("data protection", protected, PROTECTION),
                ("no data protection, in other letters",
                 {"entitlements": {DATA_PROTECTION: "nsfileprotectionNONE"}}, None),
                ("no team", no_team, NO_TEAM),
                ("missing entitlement", health, MISSING),
                ("missing entitlement that does not count", beta, None),
                ("kept extensions", kept, EXTENSIONS),
                ("stripped extensions", {"files": ["Watch/file"]}, None),
                ("name in another name", twin, DUPLICATE),
                ("the longer name", {"cert": "Twin Signer Too"}, None),
                ("certificate without unit", teamless, NO_UNIT),
                ("signature without team", untrusted, NO_SIGNED_TEAM),
                ("icon that is none", icon, ICONS),
                # A text fills an empty place, or takes the place of an earlier one.
                ("foreign library, then no team", foreign | no_team, FOREIGN),
                ("foreign library, then protection", foreign | protected, PROTECTION),
                ("protection, then no team", protected | no_team, PROTECTION),
                ("protection, then missing entitlement", protected | health, MISSING),
                ("missing entitlement, then extensions", health | kept, EXTENSIONS),
                ("extensions, then duplicate", kept | twin, DUPLICATE),
                ("no team, then certificate without unit", no_team | teamless, NO_TEAM),
                ("duplicate, then signature without team", twin | untrusted, DUPLICATE),
                ("extensions, then icons", kept | {"files": ["Icon.png", "Watch/file"]}, ICONS),
                # This mode unpacks late, into a place that is filled before.
                ("late unpacking", {"options": ("-appType", "enterprise", "-packageApp")},
                 "Invalid input")]:
            with self.subTest(name):
                self.assert_final_text(expected, **arguments)
