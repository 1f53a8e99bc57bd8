"""Names, values and archives made to do harm: nothing else runs and nothing else is written."""
import os
import plistlib

import makers
from examiner import signature
from harness import ADMIN, read, result_text, write
from makers import APP_GROUPS, APP_STORE, SmallAppTest

# Each ends a shell's word in another way, or is an option or a pattern to a program.
NAMES = ['a"; touch canary; "b', "$(touch canary)`touch canary`$HOME", "back\\slash\\",
         "Bob's; touch canary; '", "  some   blanks *?[a]", "Größe — 語", "-TT touch",
         "a;b&c|d>canary"]


class NothingElseRuns(SmallAppTest):
    def setUp(self):
        self.before = self.everything()

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
        for name in ("out.wex", "wrapped.ipa", "Orvane.log", "Small.ipa"):
            found.pop(self.path(name), None)
        return found

    def assert_untouched(self):
        after = self.everything()
        self.assertEqual(sorted(after), sorted(self.before))
        self.assertEqual(after, self.before)

    def assert_signed(self, archive, name="Small"):
        self.assertEqual(signature.signer(self.signed_part(archive, name)), ADMIN)

    def test_names(self):
        for name in NAMES:
            with self.subTest(name):
                self.assert_signed(self.wrap_small(name=name, app={"name": name}), name)
                self.assert_untouched()

    def test_scratch_folder(self):
        # Line ends in names do not survive the unpacking, but the scratch place may have them.
        scratch = self.path("tmp", "\n".join(NAMES).replace("/", ""), "x")
        os.makedirs(scratch)
        self.before = self.everything()
        self.assert_signed(self.wrap_small(environment={"TMPDIR": scratch}))
        self.assertEqual(os.listdir(os.path.join(scratch, "com.orvane.wex")), [])
        os.rmdir(os.path.join(scratch, "com.orvane.wex"))
        self.assert_untouched()

    def test_values(self):
        hostile = ('"; touch canary; "$(touch canary)`touch canary`\'; touch canary; \'\n'
                   "touch canary")
        profile = makers.profile(self.path("hostile.mobileprovision"),
                                 {APP_GROUPS: [hostile], hostile: hostile},
                                 Name=hostile, TeamName=hostile, UUID=hostile,
                                 TeamIdentifier=[hostile], ApplicationIdentifierPrefix=[hostile])
        info = dict.fromkeys(("CFBundleName", "CFBundleDisplayName", "CFBundleShortVersionString",
                              "CFBundleVersion", "MinimumOSVersion", "DTSDKName", hostile), hostile)
        info["CFBundleIconFiles"] = ["Icon.png", hostile, "../" * 12 + "tmp/canary"]
        self.before = self.everything()
        with makers.small_app(info=info) as (folder, _):
            result, output = self.wrap_folder(folder, "-appDesc", hostile + "1", "-appName",
                                              hostile + "2", profile=profile)
        self.assertEqual(result.returncode, 0, result.stderr)
        entitlements = signature.Signature(self.signed_part(output)).der_entitlements()
        self.assertEqual(entitlements[hostile], hostile)
        self.assert_untouched()
        for options, keywords in (((), {"cert": hostile}), (("-bundleID", hostile), {})):
            with makers.small_app() as (folder, _):
                self.wrap_folder(folder, *options, **keywords)
            self.assert_untouched()

    def test_executables_outside_of_the_app(self):
        outside = write(makers.executable(), self.path("outside", "program"))
        self.before = self.everything()
        for name in (outside, "../" * 20 + outside[1:], "."):
            with self.subTest(name):
                self.wrap_small(app={"info": {"CFBundleExecutable": name}}, status=254,
                                text=APP_STORE)
                self.assert_untouched()

    def test_entries_of_archives(self):
        victim = self.path("victim")
        write(b"kept", victim, "file")
        write(plistlib.dumps({"CFBundleIdentifier": "kept"}), victim, "Info.plist")
        app = "Payload/Small.app"
        with makers.small_app() as (_, source):
            usual = {f"{app}/{name}": read(source, name) for name in os.listdir(source)}

        def to(*path):
            return "->", os.path.join(victim, *path)

        parents = "../" * 9 + "canary"
        self.before = self.everything()
        for name, first, changed in [
                ("parent folders", {}, {"../canary": b"x", parents: b"x",
                                        f"{app}/../../../canary": b"x"}),
                ("absolute name", {}, {self.path("canary"): b"x"}),
                ("link and a file behind it", {}, {f"{app}/link": to(), f"{app}/link/file": b"x"}),
                ("payload is a link", {"Payload": to()}, {}),
                ("app is a link", {app: to()}, {}),
                ("another app is a link", {}, {"Payload/A.app": to()}),
                *[(f"{inner} is a link", {}, {f"{app}/{inner}": to()}) for inner in (
                    "_CodeSignature", "Frameworks", "OrvaneDylib.bundle", "PlugIns")],
                ("link to nowhere", {},
                 {f"{app}/orig-entitlements.plist": ("->", self.path("canary"))}),
                ("relative link", {}, {f"{app}/policy_metadata.xml": ("->", parents)}),
                ("list is a link", {}, {f"{app}/Info.plist": to("Info.plist")}),
                ("program is a link", {}, {f"{app}/Small": to("file")}),
                ("archive of the same name", {}, {"Small.ipa": to("file")}),
                ("metadata is a link", {}, {"iTunesMetadata.plist": to("file")}),
                ("package folder is a link", {}, {"package": to(), "Package": to()}),
                ("files of the run are links", {}, {"new-entitlement.plist": to("file"),
                                                    "provisiongprofile.plist": to("file")})]:
            with self.subTest(name):
                entries = list((first | usual | changed).items())
                archive = makers.archive_of(entries, self.path("Small.ipa"))
                result = self.wrap(archive, self.path("out.wex"), profile=self.profile)
                self.assertIn(result.returncode, (0, 254), result.stderr)
                if result.returncode != 0:
                    self.assertTrue(result_text(result), result.stderr)
                self.assert_untouched()
