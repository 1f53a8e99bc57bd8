"""What Inspect says of apps, packages, profiles and certificates, each with one thing wrong."""
import base64
import html.parser
import json
import os
import plistlib
import re
import shutil
import subprocess
import unittest
from datetime import datetime, timedelta

import png
from harness import (ADMIN, BRANCH, COMPANIONS, DEMO, PROFILE, ROOT, SDK_APP, TOOLKIT, changed_app,
                     der_of, edit_info, pack, read, remove, run, sign_as_developer, thin,
                     unpacked_app, unzip, write)
from makers import (SmallAppTest, archive_of, executable, fill_header, profile,
                    sign_with_entitlements, small_app)

INSPECT = os.path.join(TOOLKIT, "Inspect")
CODES = set()  # of all findings that any test has seen
HOSTILE = "<script>alert(1)</script>\x7f\u202e\"'&"


class InspectTest(SmallAppTest):
    """A package that a device would take, and the report about anything."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.package = cls.path("sound.wex")
        cls.original = cls.path("original.ipa")
        with changed_app() as (folder, app):
            for part in ("PlugIns", "Watch"):
                shutil.rmtree(os.path.join(app, part))
            pack(folder, cls.original)
        result = cls.wrap(cls.original, cls.package, "-bundleID", "com.example.managed")
        assert result.returncode == 0, result.stderr

    def inspect(self, *words, environment=()):
        return subprocess.run([INSPECT, *words], capture_output=True, timeout=120, text=True,
                              env=self.environment | dict(environment), cwd=self.folder)

    def report(self, *words, status=None):
        result = self.inspect("--json", *words)
        if status is not None:
            self.assertEqual(result.returncode, status, result.stdout + result.stderr)
        self.assertEqual(result.stderr, "")
        self.assertEqual(self.left_in_scratch(), [])
        return self.first_input(result)

    @staticmethod
    def first_input(result):
        report = json.loads(result.stdout)["inputs"][0]
        wrap = report.get("wrap", {"obstacles": [], "remarks": []})
        for finding in report["findings"] + wrap["obstacles"] + wrap["remarks"]:
            CODES.add(finding["code"])
        return report

    def codes(self, *words, status=None):
        return {finding["code"] for finding in self.report(*words, status=status)["findings"]}


def change_resource(app):
    write(b"other", app, "Pages", "cover.json")


def change_code(app):
    """Changes the first instruction of the last slice, a 64-bit one."""
    path = os.path.join(app, "Fieldbook")
    code = bytearray(read(path))
    last = 8 + 20 * (int.from_bytes(code[4:8], "big") - 1)
    start = int.from_bytes(code[last + 8:last + 12], "big")
    section = code.index(b"__text\0", start)
    code[start + int.from_bytes(code[section + 48:section + 52], "little")] ^= 1
    write(code, path)


def link_outside(app):
    os.symlink("../../../etc", os.path.join(app, "escape"))


def lose_bit(app):
    os.chmod(os.path.join(app, "Fieldbook"), 0o644)


def drop_seal(app):
    shutil.rmtree(os.path.join(app, "_CodeSignature"))


def drop_profile(app):
    os.remove(os.path.join(app, "embedded.mobileprovision"))


def break_profile(app):
    write(b"no profile", app, "embedded.mobileprovision")


def another_team(app):
    sign_as_developer(os.path.join(app, "Frameworks", "Ledger.framework"))


def unsigned_library(app):
    write(executable(), app, "Frameworks", "loose.dylib")


def newer_code(app):
    edit_info(app, MinimumOSVersion="8.0")


def no_executable(app):
    os.remove(os.path.join(app, "Fieldbook"))


def no_info(app):
    write(b"\0\1", app, "Info.plist")


def encrypted(app):
    path = os.path.join(app, "Fieldbook")
    code = bytearray(read(path))
    for offset in range(0, len(code) - 20, 4):
        if int.from_bytes(code[offset:offset + 4], "little") in (0x21, 0x2c):
            size = int.from_bytes(code[offset + 4:offset + 8], "little")
            if size in (20, 24):
                code[offset + 16] = 1
                break
    write(code, path)


def signed_with(*digests):
    def change(app):
        sign_as_developer(app, *[f"--digest-algorithm={name}" for name in digests])
    change.__name__ = "_".join(digests)
    return change


def no_der_entitlements(app):
    """Gives the slot of the entitlements' second form a number that means nothing."""
    path = os.path.join(app, "Fieldbook")
    code = bytearray(read(path))
    at = code.index(b"\xfa\xde\x0c\xc0")
    for entry in range(at + 12, at + 12 + 8 * int.from_bytes(code[at + 8:at + 12], "big"), 8):
        if code[entry:entry + 4] == b"\0\0\0\x07":
            code[entry + 2] = 0x70
    write(code, path)


def one_slice_left_out(app):
    """One slice as it was before the wrap."""
    path = os.path.join(app, "Fieldbook")
    with changed_app() as (_, original):
        before = os.path.join(original, "Fieldbook")
        thin(before, "armv7")
        thin(path, "arm64")
        run(os.path.join(COMPANIONS, "lipo"), before, path, "-create", "-output", path)


def adhoc(app):
    run(os.path.join(COMPANIONS, "codesign"), "-f", "-s", "-", app)


def in_certificate(old, new):
    """Changes what the signatures' own copies of the signer's certificate say."""
    def change(app):
        path = os.path.join(app, "Fieldbook")
        code, leaf = read(path), der_of()
        changed = leaf.replace(old, new)
        assert changed != leaf and leaf in code
        write(code.replace(leaf, changed), path)
    change.__name__ = f"in_certificate_{new[-1]}"
    return change


def another_profile(**values):
    def change(app):
        profile(os.path.join(app, "embedded.mobileprovision"), **values)
    change.__name__ = "_".join(values)
    return change


def one_segment_outside(app):
    """The first segment command of the first slice claims to lie behind the file's end."""
    path = os.path.join(app, "Fieldbook")
    code = bytearray(read(path))
    at = code.index(b"__LINKEDIT")
    code[at + 24:at + 28] = b"\xff\xff\xff\x7f"
    write(code, path)


CODE_SIGNING, SERVERS = b"\x2b\x06\x01\x05\x05\x07\x03\x03", b"\x2b\x06\x01\x05\x05\x07\x03\x01"
# Each with what it does to the wrapped app and the code that has to be among the findings.
IN_THE_APP = [
    (change_resource, "signature-invalid"), (change_code, "signature-invalid"),
    (drop_seal, "signature-invalid"), (link_outside, "link-leads-out"),
    (lose_bit, "executable-bit-lost"), (drop_profile, "profile-missing"),
    (break_profile, "profile-unreadable"), (another_team, "team-mismatch"),
    (unsigned_library, "signature-missing"), (newer_code, "system-above-app"),
    (no_executable, "code-unreadable"), (no_info, "info-unreadable"), (encrypted, "encrypted"),
    (signed_with("sha1"), "hash-too-old"), (signed_with("sha256"), "hash-too-new"),
    (no_der_entitlements, "der-entitlements-missing"),
    (one_slice_left_out, "architecture-not-wrapped"), (adhoc, "signature-adhoc"),
    (in_certificate(CODE_SIGNING, SERVERS), "certificate-purpose"),
    (in_certificate(b"Demo Device Relations CA", b"Demo Device Relations cA"), "chain-incomplete"),
    (another_profile(Platform=["OSX"]), "profile-platform"),
    (another_profile(ProvisionedDevices=[]), "profile-devices"),
    (another_profile(entitlements={"get-task-allow": True}, ProvisionedDevices=["a"]),
     "profile-development"),
    (one_segment_outside, "slice-damaged"),
]


class Findings(InspectTest):
    def test_sound_inputs(self):
        with self.subTest("package"):
            report = self.report(self.package, status=0)
            self.assertEqual(report["findings"], [])
            self.assertTrue(report["app"]["wrapped"])
        for name in ("Example.mobileprovision", "identities/root.pem"):
            with self.subTest(name):
                self.assertEqual(self.codes(os.path.join(DEMO, name), status=0), set())

    def test_apps(self):
        for change, code in IN_THE_APP:
            with self.subTest(change.__name__):
                folder = self.path(f"changed {change.__name__}")
                app = unpacked_app(self.package, folder)
                change(app)
                findings = self.report(app)["findings"]
                self.assertIn(code, [finding["code"] for finding in findings])
                # The same out of an archive, but that the permissions of folders stay behind.
                archive = pack(os.path.dirname(os.path.dirname(app)), self.path("changed.ipa"))
                self.assertEqual(self.report(archive)["findings"], findings)

    def test_trust(self):
        result = self.inspect("--json", self.package, environment={"TOVREK_TRUSTED_ROOT_SHA1": ""})
        self.assertIn("chain-not-trusted",
                      [finding["code"] for finding in self.first_input(result)["findings"]])

    def test_profiles(self):
        soon = datetime.now() + timedelta(days=5)
        cases = [
            ({"ExpirationDate": datetime(2020, 1, 1)}, "profile-dates", 1),
            ({"ExpirationDate": soon}, "profile-expires-soon", 0),
        ]
        for values, code, status in cases:
            with self.subTest(code):
                path = profile(self.path("odd.mobileprovision"), **values)
                self.assertEqual(self.codes(path, status=status), {code})
                self.codes(path, "--strict", status=1)
        path = profile(self.path("soon.mobileprovision"), ExpirationDate=soon)
        self.assertEqual(self.codes(path, "--within", "3", status=0), set())

    def test_certificates(self):
        root = os.path.join(DEMO, "identities/root.pem")
        self.assertEqual(self.codes(root, "--within", "36500", status=0),
                         {"certificate-expires-soon"})
        ended = self.path("ended.pem")
        run("openssl", "x509", "-in", root, "-days", "-1", "-out", ended, "-key",
            root.replace(".pem", ".key"))
        self.assertEqual(self.codes(ended, status=1), {"certificate-dates"})

    def test_packages(self):
        def manifest(text, instead):
            def change(folder):
                path = os.path.join(folder, "manifest.xml")
                content = read(path)
                self.assertIn(text, content)
                write(content.replace(text, instead), path)
            return change
        cases = [
            (manifest(b"<BundleID>com", b"<BundleID>org"), "manifest-identifier"),
            (manifest(b"<BundleChecksum>", b"<BundleChecksum>0"), "manifest-checksum"),
            (manifest(b"<xRes>", b"<xRes>1"), "manifest-icon"),
            (manifest(b'Size">', b'Size">1'), "manifest-size"),
            (manifest(b"</MobileApp>", b""), "manifest-unreadable"),
            (lambda folder: os.remove(os.path.join(folder, "manifest.xml")), "manifest-missing"),
            (lambda folder: write(b"<a>", folder, "policy_metadata.xml"), "policy-unreadable"),
            (lambda folder: os.remove(os.path.join(folder, "strings-de.xml")), "policy-unreadable"),
            (lambda folder: os.remove(os.path.join(folder, "Fieldbook.ipa")),
             "package-app-missing"),
            (lambda folder: write(b"PK", folder, "Fieldbook.ipa"), "item-unreadable"),
        ]
        for index, (change, code) in enumerate(cases):
            with self.subTest(code, index=index):
                folder = unzip(self.package, self.path(f"package {index}"))
                os.rename(os.path.join(folder, "original.ipa"), os.path.join(folder, "Fieldbook.ipa"))
                manifest(b"<BundleFile>original.ipa", b"<BundleFile>Fieldbook.ipa")(folder)
                change(folder)
                self.assertIn(code, self.codes(pack(folder, self.path("changed.wex"))))

    def test_unreadable_inputs(self):
        cases = {"missing.ipa": None, "empty.ipa": b"", "cut.wex": read(self.package)[:-30],
                 "text.p12": b"text", "text.mobileprovision": b"text", "text.txt": b"text"}
        for name, content in cases.items():
            with self.subTest(name):
                if content is not None:
                    write(content, self.folder, name)
                self.report(self.path(name), status=2)
        os.mkfifo(self.path("pipe.ipa"))
        self.report(self.path("pipe.ipa"), status=2)

    def test_pipes_are_not_waited_for(self):
        for name in ("Info.plist", "Fieldbook", "embedded.mobileprovision",
                     "_CodeSignature/CodeResources", "Pages/cover.json"):
            with self.subTest(name):
                app = unpacked_app(self.package, self.path(f"pipe for {os.path.basename(name)}"))
                os.remove(os.path.join(app, name))
                os.mkfifo(os.path.join(app, name))
                self.report(app, "--cert", ADMIN, "--profile", PROFILE, status=1)
        os.mkfifo(self.path("a pipe"))
        report = self.report(self.original, "--profile", self.path("a pipe"), status=1)
        self.assertEqual(report["wrap"]["obstacles"][0]["code"], "profile-unreadable")

    def test_damage_never_ends_the_program(self):
        """Some bytes of the archive's directory and some of its contents changed."""
        archive = bytearray(read(self.original))
        size = len(archive)
        for at in [*range(size - 600, size, 23), *range(0, size - 600, size // 10)]:
            damaged = bytearray(archive)
            damaged[at] ^= 0xff
            path = write(damaged, self.folder, "damaged.ipa")
            result = self.inspect(path)
            self.assertIn(result.returncode, (1, 2), (at, result.stderr))

    def test_entries_that_cannot_be_had(self):
        archive = bytearray(read(self.original))
        at = archive.index(b"cover.json") + 40  # the packed bytes of a file that no code needs
        archive[at] ^= 0xff
        report = self.report(write(archive, self.folder, "flipped.ipa"), status=1)
        self.assertEqual([finding["place"] for finding in report["findings"]
                          if finding["code"] == "item-unreadable"],
                         ["Payload/Fieldbook.app/Pages/cover.json"])
        empty = archive_of([("Payload/readme", b"")], self.path("no app.ipa"))
        self.assertEqual(self.codes(empty, status=2), {"app-missing"})

    def test_names_that_lead_out(self):
        path = archive_of([("Payload/A.app/Info.plist", plistlib.dumps({})),
                           ("../outside", b"x"), ("Payload/A.app/l", ("->", "/etc"))],
                          self.path("names.ipa"))
        found = self.codes(path, status=1)
        self.assertLessEqual({"unsafe-name", "link-leads-out"}, found)
        self.assertFalse(os.path.exists(os.path.join(self.scratch, "outside")))


class Reports(InspectTest):
    def test_hostile_names_are_escaped(self):
        with small_app(info={"CFBundleDisplayName": HOSTILE}) as (folder, _):
            archive = pack(folder, self.path("hostile.ipa"))
        text = self.inspect(archive).stdout
        self.assertNotIn("\x7f", text)
        self.assertNotIn("\u202e", text)
        self.assertIn("\\x7f\\u{202e}", text)
        self.assertEqual(self.report(archive)["app"]["name"], HOSTILE)
        page = self.path("hostile.html")
        self.inspect(archive, "--html", page)
        content = read(page).decode()
        self.assertNotIn("<script", content)
        self.assertIn("&lt;script&gt;alert(1)&lt;/script&gt;", content)

    def test_page_is_whole_and_loads_nothing(self):
        page = self.path("page.html")
        result = self.inspect(self.package, "--against", self.original, "--html", page)
        self.assertEqual((result.returncode, result.stdout), (0, ""))
        checker = PageChecker()
        checker.feed(read(page).decode())
        checker.close()
        self.assertEqual(checker.open, [])
        self.assertEqual(checker.outside, [])
        self.assertGreaterEqual(checker.count["img"], 2)
        self.assertEqual(checker.count.get("script", 0), 0)
        self.assertIn("h1", checker.count)

    def test_icons_of_the_platform_are_shown(self):
        pixels = png.picture(6, 4)
        with small_app() as (folder, app):
            write(png.device_form(pixels), app, "Icon.png")
            archive = pack(folder, self.path("icons.ipa"))
        page = self.path("icons.html")
        self.inspect(archive, "--html", page)
        shown = re.findall(r'src="data:image/png;base64,([^"]*)"', read(page).decode())
        self.assertEqual(len(shown), 1)
        got = png.pixels(base64.b64decode(shown[0]))
        opaque = slice(0, 2)
        self.assertEqual([row[opaque] for row in got], [row[opaque] for row in pixels])

    def test_comparison(self):
        groups = {group["title"]: group for group in
                  self.report(self.package, "--against", self.original, status=0)["comparison"]}
        changes = {title: {change["subject"]: (change["before"], change["after"])
                           for change in group["changes"]} for title, group in groups.items()}
        self.assertEqual(changes["App"]["identifier"],
                         ("com.example.fieldbook", "com.example.managed"))
        self.assertEqual(changes["Entitlements"]["get-task-allow"], ("yes", "no"))
        self.assertEqual(len(changes["Load commands, arm64"]), 2)
        self.assertIn("OrvaneDylib.bundle/OrvaneDylib.dylib", changes["Files"])
        self.assertNotIn("Pages/cover.json", changes["Files"])

        app = unpacked_app(self.package, self.path("tampered"))
        change_resource(app)
        change_code(app)
        places = [finding["place"] for finding in
                  self.report(app, "--against", self.original, status=1)["findings"]
                  if finding["code"] == "unexpected-change"]
        self.assertEqual(places, ["Fieldbook.app/Fieldbook", "Fieldbook.app/Pages/cover.json"])

    def test_table(self):
        folder = self.path("many")
        os.mkdir(folder)
        later = datetime.now() + timedelta(days=100)
        profile(os.path.join(folder, "later.mobileprovision"), ExpirationDate=later)
        profile(os.path.join(folder, "sooner.mobileprovision"),
                ExpirationDate=later - timedelta(days=60))
        shutil.copy(self.package, folder)
        lines = self.inspect(folder).stdout.splitlines()
        self.assertEqual([os.path.basename(line) for line in lines[1:]],
                         ["sooner.mobileprovision", "later.mobileprovision", "sound.wex"])
        lines = self.inspect(folder, "--within", "50").stdout.splitlines()
        self.assertEqual(len(lines), 2)
        self.assertTrue(lines[1].endswith("sooner.mobileprovision"))

    def test_usage(self):
        for words in ([], ["--json", "--html", "x", "y"], ["--within", "-1", "x"], ["--colour"],
                      ["--cert", "x", "a", "b"], ["--upgrade", "x"], ["--json=yes", "a"], ["x", "--against"]):
            with self.subTest(words):
                result = self.inspect(*words)
                self.assertEqual((result.returncode, result.stdout), (2, ""))
                self.assertIn("usage: Inspect", result.stderr)

    def test_explanations(self):
        for what, code in (("profile-dates", "profile-dates"), ("1106", "header-room"),
                           ("ERROR: This app is already wrapped, and cannot be re-wrapped.",
                            "wrapped-already"),
                           ("ERROR:  Unknown loader command found  in the application binary "
                            "image.", "wrap-engine")):
            with self.subTest(what):
                result = self.inspect("--explain", what)
                self.assertEqual(result.returncode, 0)
                self.assertIn(f"{code} (error)", result.stdout)
        self.assertEqual(self.inspect("--explain", "no such thing").returncode, 2)


class BeforeWrap(InspectTest):
    """The forecast, and what a wrap says to the same app, certificate and profile."""

    def agree(self, app, expected, *words, cert=ADMIN, chosen=PROFILE, settings=None):
        """`words` are Wrap's, `expected` the codes of the reasons against it; the settings are those
        that are shipped, or the lines given."""
        environment = () if settings is None else {
            "TOVREK_CONF": write(settings.encode(), self.folder, "conf")}
        long = [{"-bundleID": "--bundle-id", "-upgrade": "--upgrade",
                 "-noStripExtensions": "--no-strip-extensions"}.get(word, word) for word in words]
        result = self.inspect("--json", app, "--cert", cert, "--profile", chosen, *long,
                              environment=environment)
        forecast = self.first_input(result)["wrap"]
        found = {finding["code"] for finding in forecast["obstacles"]}
        output = self.path("agree.wex")
        remove(output)
        result = self.wrap(app, output, *words, cert=cert, profile=chosen, environment=environment)
        self.assertEqual(forecast["wouldWrap"], os.path.exists(output),
                         f"{forecast}\n{result.stderr}")
        self.assertLessEqual(set(expected), found)
        self.assertEqual(bool(found), bool(expected), found)
        return forecast

    def test_what_the_app_is(self):
        sdk = self.path("Gauge.app")
        shutil.copytree(SDK_APP, sdk)
        self.agree(self.original, [])
        self.agree(sdk, ["sdk-app"])
        self.agree(unpacked_wrapped(self), ["wrapped-already"])

    def test_what_is_wrong_with_it(self):
        def air(app):
            write(b"<application/>", app, "META-INF", "AIR", "application.xml")

        def one_slice(app):
            thin(os.path.join(app, "Fieldbook"), "armv7")

        def truncated(app):
            path = os.path.join(app, "Fieldbook")
            write(read(path)[:60000], path)

        def no_room(app):
            thin(os.path.join(app, "Fieldbook"), "armv7")
            fill_header(os.path.join(app, "Fieldbook"))

        def intune(app):
            library = "@rpath/IntuneMAM.framework/IntuneMAM"
            write(executable(libraries=(library,)), app, "Fieldbook")

        def text(app):
            write(b"#!/bin/sh\n", app, "Fieldbook")

        cases = [(air, ["unsupported-app"]), (link_outside, ["link-leads-out"]),
                 (no_info, ["info-unreadable"]), (no_executable, ["code-unreadable"]),
                 (one_slice, []), (change_resource, []), (drop_seal, []), (truncated, ["code-unreadable"]),
                 (text, ["code-unreadable"]), (lose_bit, []), (no_room, ["header-room"]),
                 (intune, ["intune-linked"])]
        for change, expected in cases:
            with self.subTest(change.__name__), changed_app() as (folder, app):
                change(app)
                self.agree(pack(folder, self.path("agree.ipa")), expected)

    def test_profiles(self):
        cases = [
            (profile(self.path("old.mobileprovision"), ExpirationDate=datetime(2020, 1, 1)),
             ["profile-dates"]),
            (profile(self.path("other.mobileprovision"),
                     {"application-identifier": "EXAMPLE123.com.example.other"}),
             ["identifier-not-in-profile"]),
            (write(b"text", self.folder, "text.mobileprovision"), ["profile-unreadable"]),
        ]
        for path, expected in cases:
            with self.subTest(expected):
                self.agree(self.original, expected, chosen=path)

    def test_options_and_settings(self):
        def loose_library(app):
            write(executable(), app, "loose.dylib")

        def broken_framework(app):
            write(b"later", app, "Frameworks", "Ledger.framework", "later.txt")

        def cloud(app):
            sign_with_entitlements(app, {"com.apple.developer.icloud-services": ["CloudKit"]})

        def other_watch(app):
            edit_info(os.path.join(app, "Watch", "FieldbookWatch.app"),
                      WKCompanionAppBundleIdentifier="com.example.other")

        def same(app):
            pass
        strict, new = "verifyResult = strict\n", ["-bundleID", "com.example.managed"]
        fitted = strict + f"profilesFolder = {os.path.dirname(PROFILE)}\n"
        part = profile(self.path("part.mobileprovision"),
                       {"application-identifier": "EXAMPLE123.com.example.field*"})
        cases = [
            (same, [], strict, PROFILE, []),
            (same, ["-noStripExtensions"], "", PROFILE, []),
            (same, ["-noStripExtensions"], strict, PROFILE, ["profile-missing"]),
            (same, ["-noStripExtensions"], fitted, PROFILE, []),
            (same, ["-noStripExtensions", *new], fitted, PROFILE, ["identifier-not-below-app"]),
            (same, ["-noStripExtensions", *new], fitted + "renameExtensions = yes\n", PROFILE, []),
            (other_watch, ["-noStripExtensions"], fitted, PROFILE, ["companion-mismatch"]),
            (same, [], "profilesFolder = /gone\n", PROFILE, ["input-unreadable"]),
            (same, new, "", part, ["identifier-not-in-profile"]),
            (same, [*new, "-upgrade"], "", part, []),
            (loose_library, [], strict, PROFILE, ["signature-missing"]),
            (broken_framework, [], strict, PROFILE, []),
            (cloud, [], strict, PROFILE, ["entitlement-not-granted"]),
        ]
        for change, words, settings, chosen, expected in cases:
            with self.subTest(change.__name__, words=words, settings=settings):
                with changed_app() as (folder, app):
                    change(app)
                    pack(folder, self.path("agree.ipa"))
                self.agree(self.path("agree.ipa"), expected, *words, chosen=chosen,
                           settings=settings)

    def test_new_images_and_folders_of_profiles(self):
        with changed_app() as (folder, app):
            thin(os.path.join(app, "Fieldbook"), "arm64")
            code = bytearray(read(app, "Fieldbook"))
            code[27] |= 2  # a flag of the header that old rules do not know
            write(code, app, "Fieldbook")
            pack(folder, self.path("new.ipa"))
        forecast = self.agree(self.path("new.ipa"), [])
        self.assertIn("modern-image", [finding["code"] for finding in forecast["remarks"]])
        forecast = self.report(self.original, "--profile", os.path.dirname(PROFILE))["wrap"]
        self.assertIn("profile-chosen", [finding["code"] for finding in forecast["remarks"]])

    def test_names_of_certificates(self):
        almost = ADMIN.replace("Corporation", "Corporatian")
        forecast = self.agree(self.original, ["certificate-not-in-profile", "identity"], cert=almost)
        self.assertIn("character 39", forecast["obstacles"][0]["reason"])
        self.assertIn(ADMIN, forecast["obstacles"][0]["reason"])
        self.agree(self.original, ["certificate-not-in-profile", "identity"], cert=BRANCH)

    def test_nothing_is_changed(self):
        app = unpacked_app(self.original, self.path("kept"))
        before = tree_of(app)
        self.inspect(app, "--cert", ADMIN, "--profile", PROFILE)
        self.assertEqual(tree_of(app), before)


def load_tests(_, tests, __):
    """Adds a test that comes last, and only where all of them run."""
    class EveryCode(unittest.TestCase):
        def test_is_caused_by_some_input(self):
            page = read(ROOT, "docs", "inspect.md").decode()
            listed = page.partition("## Codes")[2].partition("\n## ")[0]
            documented = set(re.findall(r"`([a-z]+(?:-[a-z]+)*)`", listed)) - {"strict"}
            self.assertEqual(CODES, documented)

    tests.addTest(EveryCode("test_is_caused_by_some_input"))
    return tests


def unpacked_wrapped(test):
    return unpacked_app(test.package, test.path("wrapped"))


def tree_of(folder):
    return {os.path.join(base, name): read(base, name)
            for base, _, files in os.walk(folder) for name in files}


class PageChecker(html.parser.HTMLParser):
    """Counts elements, and collects what is not closed and what would be loaded."""
    EMPTY = {"meta", "link", "img", "br"}

    def __init__(self):
        super().__init__()
        self.open, self.outside, self.count = [], [], {}

    def handle_starttag(self, tag, attrs):
        self.count[tag] = self.count.get(tag, 0) + 1
        if tag not in self.EMPTY:
            self.open.append(tag)
        for name, value in attrs:
            if name in ("src", "href") and not value.startswith(("data:", "#")):
                self.outside.append((tag, value))
            if name.startswith("on"):
                self.outside.append((tag, name))

    def handle_endtag(self, tag):
        assert self.open and self.open[-1] == tag, (tag, self.open)
        self.open.pop()
