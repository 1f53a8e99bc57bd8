"""What entitlements the signature gets: of the profile's, and of those that the app had."""
import plistlib
import zipfile

import makers
from examiner import signature
from makers import (APP_GROUPS, APP_ID, DATA_PROTECTION, FORMER_TEAM, GROUPS, IDENTIFIER, TEAM,
                    TEAM_ID, SmallAppTest)

DOMAINS = "com.apple.developer.associated-domains"
CLOUD = "com.apple.developer.icloud-container-identifiers"
CLOUD_TEST = "com.apple.developer.icloud-container-development-container-identifiers"
CLOUD_STORE = "com.apple.developer.ubiquity-kvstore-identifier"
CLOUD_SERVICES = "com.apple.developer.icloud-services"
CLOUD_ENVIRONMENT = "com.apple.developer.icloud-container-environment"


class Entitlements(SmallAppTest):
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
