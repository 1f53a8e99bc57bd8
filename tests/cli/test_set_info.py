"""SetInfo: what changes in a package, what does not, and what is refused."""
import base64
import os
import shutil
import subprocess
import zipfile

from harness import (COMPANIONS, DEMO_APP, SDK_APP, SDK_ENTITLEMENTS, TOOLKIT, manifest_texts, pack,
                     read, run, unzip, write)
from transcripts import TranscriptTest

LOG = ("-logFile", "log")


class SetInfo(TranscriptTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        shutil.copy(DEMO_APP, cls.path("App.ipa"))
        cls.wrap(cls.path("App.ipa"), cls.path("App.wex"), "-minPlatform", "9.0")
        shutil.copytree(SDK_APP, cls.path("Gauge.app"))
        cls.tovrek("SdkPrep", "-in", "Gauge.app", "-out", "Store.wex", "-entitlements",
                   SDK_ENTITLEMENTS, "-storeURL", "https://apps.example.com/gauge", *LOG)
        for name in ("App", "Store"):
            unzip(cls.path(f"{name}.wex"), cls.path(name))

    def changed(self, before, output):
        """Unpacks the output and gives the manifest's changed texts and the other changed files."""
        after = unzip(self.path(output), self.path(output + ".d"))
        before = self.path(before)
        old, new = manifest_texts(before), manifest_texts(after)
        manifest = {tag: new.get(tag) for tag in old | new if old.get(tag) != new.get(tag)}
        contents = [{name: read(folder, name) for name in os.listdir(folder)}
                    for folder in (before, after)]
        files = {name for name in (contents[0] | contents[1]).keys() - {"manifest.xml"}
                 if contents[0].get(name) != contents[1].get(name)}
        return manifest, files

    def test_properties(self):
        policies = write(b"<PolicyMetadata/>", self.path("own.xml"))
        self.assert_done(
            "SetInfo", "-in", "App.wex", "-out", "New.wex", "-appDesc", 'Notes & "more" <of it>',
            "-minPlatform", "10.1", "-maxPlatform", "14", "-excludedDevices", "ipad",
            "-policyXML", policies, *LOG, transcript="set_info_properties")
        self.assertEqual(self.changed("App", "New.wex"), ({
            "Description": "Notes & more <of it>", "MinPlatform": "10.1", "MaxPlatform": "14",
            "ExcludeDeviceTypes": "ipad"}, set()))

    def test_nothing_asked_for(self):
        # An existing output is replaced.
        write(b"an older package", self.path("Same.wex"))
        self.assert_done("setinfo", "-in", "App.wex", "-out", "Same", *LOG,
                         transcript="set_info_nothing")
        self.assertEqual(read(self.path("App", "manifest.xml")),
                         read(unzip(self.path("Same.wex"), self.path("same")), "manifest.xml"))

    def test_store_address(self):
        address = "https://apps.example.com/the gauge?a=1&b=ü"
        self.assert_done("SetInfo", "-in", "Store.wex", "-out", "Moved.wex", "-storeURL", address,
                         "-appDesc", "Gauge", *LOG, transcript="set_info_store")
        manifest, files = self.changed("Store", "Moved.wex")
        self.assertEqual(base64.b64decode(manifest.pop("AppStoreUrl")).decode(), address)
        self.assertEqual((manifest, files), ({"Description": "Gauge"}, set()))

    def test_embedded_bundle(self):
        # Archives that were there before go, whatever their number.
        shutil.copytree(self.path("Store"), self.path("two"))
        for name in ("one.ipa", "two.ipa"):
            write(b"old", self.path("two", name))
        pack(self.path("two"), self.path("Two.wex"))
        os.makedirs(self.path("new"), exist_ok=True)
        shutil.copy(DEMO_APP, self.path("new", "Gauge.ipa"))
        self.assert_done("SetInfo", "-in", "Two.wex", "-out", "Embedded.wex", "-embedBundle",
                         "new/Gauge.ipa", "-logDisplayLevel", "4", *LOG,
                         transcript="set_info_embed")
        manifest, files = self.changed("Store", "Embedded.wex")
        # The size stays that of a package without an app.
        self.assertEqual(manifest, {"AppStoreUrl": None, "BundleFile": "Gauge.ipa"})
        self.assertEqual(files, {"Gauge.ipa"})
        self.assertEqual(read(self.path("Embedded.wex.d", "Gauge.ipa")), read(DEMO_APP))

    def entries(self, package):
        with zipfile.ZipFile(self.path(package)) as archive:
            return {info.filename: (info.compress_type, info.external_attr, archive.read(info))
                    for info in archive.infolist()}

    def test_app_stays_in_its_package(self):
        app = write(os.urandom(3 << 20), self.path("large", "App.ipa"))
        shutil.copy(self.path("App", "manifest.xml"), self.path("large"))
        run(os.path.join(COMPANIONS, "zip"), "-qr", "../Large.wex", ".", cwd=self.path("large"))
        words = ("SetInfo", "-in", "Large.wex", "-appDesc", "Other", *LOG)
        # Programs of the user's own unpack all there is.
        host = shutil.copytree(os.path.join(TOOLKIT, "host"), self.path("host"))
        os.rename(os.path.join(host, "usr/bin/zip"), self.path("real zip"))
        script = "#!/bin/sh\nwc -l <App.ipa >'FOLDER/lines'\nexec 'FOLDER/real zip' \"$@\""
        script = script.replace("FOLDER", self.folder).encode()
        os.chmod(write(script, host, "usr/bin/zip"), 0o755)
        own = {"TOVREK_HOST_ROOT": host, "TOVREK_STAND_INS": f"word {self.path('Large.wex')}"}
        self.assertEqual(self.tovrek(*words, "-out", "Own.wex", environment=own).returncode, 0)
        self.assertEqual(int(read(self.path("lines"))), read(app).count(b"\n"))

        # Ours have room enough for one of it and the package.
        disk = self.path("disk")
        os.mkdir(disk)
        mount = ["mount", "-t", "tmpfs", "-o", "size=5m", "tmpfs", disk]
        if subprocess.run(mount, capture_output=True, check=False).returncode != 0:
            self.skipTest("no file system can be mounted here")
        self.addCleanup(run, "umount", disk)
        small = {"TMPDIR": disk}
        result = self.tovrek(*words, "-out", "None.wex", environment=own | small)
        self.assertNotEqual(result.returncode, 0)
        result = self.tovrek(*words, "-out", "Ours.wex", environment=small)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(self.entries("Ours.wex"), self.entries("Own.wex"))
        self.assertEqual(self.entries("Ours.wex")["App.ipa"][2], read(app))
        self.assertEqual([files for _, _, files in os.walk(disk) if files], [])

    def test_refused_arguments(self):
        values = ["-in", "-out", "-appDesc", "-logFile", "-logWriteLevel", "-logDisplayLevel",
                  "-minPlatform", "-maxPlatform", "-excludedDevices", "-storeURL", "-embedBundle",
                  "-policyXML"]
        files = ("-in", "App.wex", "-out", "o.wex", *LOG)
        self.refusals("set_info_arguments", "SetInfo", [
            *[(option,) for option in values],
            ("-help", "-policyXML"), ("-Cert", "x"),
            ("-logWriteLevel", ""), ("-logDisplayLevel", "one"),
            (), ("-in", "App.wex"),
            ("-storeURL", "no address"), ("-storeURL", "https:///path"),
            ("-storeURL", "https://a.example.com", "-embedBundle"),
            ("-embedBundle", "App.ipa", "-storeURL", "https://a.example.com"),
            ("-in", "Some.app", "-out", "o.wex"),
            (*files, "-logWriteLevel", "5"),
            (*files, "-logDisplayLevel", "9"),
            (*files, "-policyXML", "gone.xml"),
            ("-in", "App.wex", "-out", "gone/o.wex", *LOG),
            ("-in", "App.wex", "-out", "o.ipa", *LOG),
        ])

    def test_refused_files(self):
        write(b"no archive", self.path("text.wex"))
        for name, file, content in [
                ("no manifest", "file", b""), ("broken", "manifest.xml", b"<MobileAppPackage>"),
                ("twice", "manifest.xml", b"<a><Description/><Description/></a>")]:
            write(content, self.path(name, file))
            pack(self.path(name), self.path(f"{name}.wex"))
        words = ("-out", "o.wex", *LOG)
        self.refusals("set_info_files", "SetInfo", [
            *[("-in", name, *words) for name in
              ("gone.wex", "gone.ipa", "text.wex", "App.ipa", "no manifest.wex")],
            *[("-in", name, "-appDesc", "x", *words) for name in
              ("broken.wex", "twice.wex")],
        ])
        self.assertFalse(os.path.lexists(self.path("o.wex")))

    def test_refusals_that_only_the_log_explains(self):
        # A wrapped app has no store address to change or to remove.
        runs = [("-storeURL", "https://a.example.com"), ("-embedBundle", "App.ipa"),
                ("-embedBundle", "gone.ipa"), ("-embedBundle", ".."), ("-embedBundle", "/")]
        shown = []
        for words in runs:
            result, text = self.transcript("SetInfo", "-in", "App.wex", "-out", "o.wex", *words,
                                           "-logDisplayLevel", "4", *LOG)
            self.assertEqual((result.returncode, self.left_in_scratch()), (254, []), text)
            self.assertFalse(os.path.lexists(self.path("o.wex")))
            shown.append(text)
        text = "\n".join(shown)
        for reason in ("MamPublicStoreURL not avaliable in manifest file",
                       "embedBundle: removeAppStoreURL failed", "bunlde does not exist",
                       "error=.. has no name", "error=/ has no name"):
            self.assertIn(reason, text)

    def test_help(self):
        self.assert_transcript("set_info_help", self.transcript("SetInfo", "-help")[1])
