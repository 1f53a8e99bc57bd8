"""Links and names that lead out of the app, the package or the scratch folder."""
import os
import shutil
import unittest

import judging
import makers
from harness import ADMIN, DEMO_APP, SDK_APP, SDK_ENTITLEMENTS, copy_toolkit, read, write
from judging import companion

APP = "Payload/Small.app"
# What is wrong before the conversion starts is told with status 0.
REFUSED = (0, 254)
# Deep enough to get from a folder in the scratch folder to the root.
UP = "../" * 24
DECOY = "/".join(["d"] * 24)


def link(target):
    return "->", target


class Escapes(judging.AttackTest):
    def to_victim(self, *names):
        return os.path.join(self.victim, *names)

    def through(self, name):
        """Links that stay in the app until the run replaces `name` by a folder of its own: then
        they lead to the victim. What they lead to before is there as well."""
        decoy = self.to_victim().lstrip("/")
        return {f"{APP}/{DECOY}/file": b"x", f"{APP}/{name}": link(DECOY),
                f"{APP}/{decoy}/file": b"x"}, f"{name}/{UP}{decoy}"

    def link_attacks(self):
        """Changes to an app's archive, by what they are."""
        nested = f"{APP}/PlugIns/P.appex"
        attacks = {
            "app": {f"Payload/A.APP/Info.plist": link(self.to_victim("Info.plist"))},
            "beside, absolute": {"notes": link(self.secret)},
            "beside, relative": {"Payload/notes": link(UP + self.secret[1:])},
            "artwork": {"iTunesArtwork": link(self.secret)},
            "metadata": {"iTunesMetadata.plist": link(self.secret)},
            "support folder": {"SwiftSupport": link(self.victim)},
            "payload": {"Payload/Other": link(self.victim)},
            "deep": {f"{APP}/" + "/".join(["n" * 200] * 30) + "/l": link(self.secret)},
            "nested code": {f"{nested}/Info.plist": link(self.to_victim("Info.plist"))},
        }
        for name in ("Info.plist", "Small", "_CodeSignature", "embedded.mobileprovision",
                     "Frameworks", "PlugIns", "Watch", "OrvaneDylib.bundle", "Orvane.plist",
                     "policy_metadata.xml", "default_wex_policies.xml", "AppLoaderViewController.nib",
                     "orig-entitlements.plist"):
            attacks[f"{name}, absolute"] = {f"{APP}/{name}": link(self.victim)}
            attacks[f"{name}, dangling"] = {f"{APP}/{name}": link(self.to_victim("canary"))}
            # Inside, so that nothing but the place is wrong.
            attacks[f"{name}, inside"] = {f"{APP}/other": b"x", f"{APP}/{name}": link("other")}
        for moved in ("OrvaneDylib.bundle", "Frameworks", "_CodeSignature"):
            entries, target = self.through(moved)
            for name in ("_CodeSignature", "Frameworks", "l", "policy_metadata.xml"):
                if name != moved:
                    attacks[f"{name} through {moved}"] = entries | {f"{APP}/{name}": link(target)}
        attacks["link through a link"] = {f"{APP}/d/e/file": b"x", f"{APP}/a": link("d"),
                                          f"{APP}/l": link("a/e/file")}
        return attacks

    def test_wrap(self):
        for name, changed in self.link_attacks().items():
            with self.subTest(name):
                self.setUp()
                self.held(self.wrap_words(self.archive(changed)), REFUSED)
                self.assertFalse(os.path.exists(self.path("out", "out.wex")), "it was wrapped")

    def test_good_links(self):
        changed = {f"{APP}/d/file": b"x", f"{APP}/l": link("d/file"), f"{APP}/d/up": link("../l2"),
                   f"{APP}/l2": b"y", f"{APP}/nowhere": link("d/none")}
        self.held(self.wrap_words(self.archive(changed)), (0,))
        self.assertTrue(os.path.exists(self.path("out", "out.wex")))
        self.assertIn(b"nowhere", read(self.path("out", "log")))

    def test_sdk_prep(self):
        for name in ("OrvaneDylib.bundle", "Frameworks", "Frameworks/OrvaneLogger.framework",
                     "_CodeSignature", "policy_metadata.xml", "Orvane.plist", "Info.plist"):
            for target in (self.victim, self.to_victim("canary")):
                with self.subTest(f"{name} to {target}"):
                    self.setUp()
                    app = shutil.copytree(SDK_APP, self.given("Gauge.app"), symlinks=True)
                    path = os.path.join(app, name)
                    if os.path.isdir(path):
                        shutil.rmtree(path)
                    elif os.path.exists(path):
                        os.remove(path)
                    os.makedirs(os.path.dirname(path), exist_ok=True)
                    os.symlink(target, path)
                    words = self.toolkit("SdkPrep", "-in", app, "-out", self.path("out", "o.wex"),
                                         "-storeURL", "https://apps.example.com/gauge",
                                         "-entitlements", SDK_ENTITLEMENTS)
                    self.held(words, REFUSED)
                    self.assertFalse(os.path.exists(self.path("out", "o.wex")), "it was packed")

    def package(self, changed=(), inner=()):
        """A package whose archive has the entries of a small app and `inner`."""
        archive = read(self.archive(inner, "inner.ipa"))
        os.remove(self.given("inner.ipa"))
        manifest = b"<MobileAppPackage><Description>x</Description></MobileAppPackage>"
        entries = {"App.ipa": archive, "manifest.xml": manifest} | dict(changed)
        return makers.archive_of(list(entries.items()), self.given("App.wex"))

    def test_packages(self):
        inner, target = self.through("OrvaneDylib.bundle")
        attacks = {
            "manifest": ({"manifest.xml": link(self.secret)}, {}),
            "image": ({"icon.png": link(self.secret)}, {}),
            "archive": ({"App.ipa": link(DEMO_APP)}, {}),
            "folder": ({"folder": link(self.victim)}, {}),
            "signature": ({}, inner | {f"{APP}/_CodeSignature": link(target)}),
            "file of the app": ({}, {f"{APP}/file": link(self.secret)}),
            "link inside": ({}, {f"{APP}/file": link("Small")}),
            "beside the app": ({}, {"notes": link(self.secret)}),
        }
        for name, (changed, inner) in attacks.items():
            with self.subTest(name):
                self.setUp()
                package = self.package(changed, inner)
                output = self.path("out", "o.wex")
                self.held(self.toolkit("Sign", "-in", package, "-out", output, "-Cert", ADMIN,
                                       "-Profile", self.profile, "-wexResign", "Yes"), REFUSED)
                if not inner:
                    self.held(self.toolkit("SetInfo", "-in", package, "-out", output, "-appDesc",
                                           "other"), REFUSED)
                self.assertFalse(os.path.exists(output))

    def test_codesign(self):
        def bundle(name, **links):
            app = self.given(f"{name}.app")
            for file, content in self.app_files.items():
                write(content, app, file)
            os.chmod(os.path.join(app, "Small"), 0o755)
            for file, target in links.items():
                path = os.path.join(app, file)
                if os.path.exists(path):
                    os.remove(path)
                os.symlink(target, path)
            return app

        attacks = {"signature": {"_CodeSignature": self.victim},
                   "list": {"Info.plist": self.to_victim("Info.plist")},
                   "program": {"Small": self.to_victim("OrvaneLogger")}}
        for name, links in attacks.items():
            for words in (["-f", "-s", ADMIN], ["-d", "-vvv"], ["-v"], ["--remove-signature"]):
                with self.subTest(f"{name} {words[0]}"):
                    self.setUp()
                    app = bundle("Small", **links)
                    self.held([companion("codesign"), *words, app], (0, 1),
                              may_change={self.given("Small.app")})

    def test_kernel_alone(self):
        """A companion that a hostile app has taken over writes to the victim, or tries to."""
        toolkit = copy_toolkit(self.path("out", "toolkit"))
        program = os.path.join(toolkit, "host", "usr", "bin", "unzip")
        os.remove(program)
        canary, stolen = self.path("outside", "canary"), self.path("out", "stolen")
        write(f'#!/bin/sh\necho x 2>/dev/null >"{canary}"\ncat "{self.secret}" >"{stolen}"\n'
              f'mv "{self.secret}" "{canary}.2"\nln -s x "{canary}.3"\n'
              f'exec "{os.path.join(toolkit, "unzip")}" "$@"\n'.encode(), program)
        # Where the run may read.
        shutil.copy(companion("unzip"), toolkit)
        os.chmod(program, 0o755)
        command = self.wrap_words(self.archive(), "-logWriteLevel", "4")
        command[0] = os.path.join(toolkit, "Tovrek")
        self.held(command, (0,), {"TOVREK_CONFINE": "1"})
        log = read(self.path("out", "log"))
        if b"does not support" in log:
            self.skipTest("this kernel has no Landlock")
        self.assertIn(b"Confinement: on", log)
        self.assertTrue(os.path.exists(self.path("out", "out.wex")))
        # It would have worked.
        with self.assertRaises(AssertionError):
            self.held(command, (0,))
        os.rename(canary + ".2", self.secret)
        os.remove(canary)
        os.remove(canary + ".3")

    def test_nested_code_of_seals(self):
        for name in (".", "..", "../../outside/victim", "Small", "x/../.."):
            with self.subTest(name):
                self.setUp()
                app = self.given("Small.app")
                for file, content in self.app_files.items():
                    write(content, app, file)
                self.held([companion("codesign"), "-f", "-s", ADMIN, app], (0,),
                          may_change={app})
                seal = os.path.join(app, "_CodeSignature", "CodeResources")
                write(read(seal).replace(
                    b"<key>files2</key>\n\t<dict>",
                    b"<key>files2</key>\n\t<dict><key>" + name.encode() +
                    b"</key><dict><key>cdhash</key><data>AAAA</data>"
                    b"<key>requirement</key><string>anchor apple</string></dict>"), seal)
                self.held([companion("codesign"), "-v", "--deep", app], (1, 3))


if __name__ == "__main__":
    unittest.main()
