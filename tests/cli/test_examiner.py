"""The examiner itself: it must notice every kind of damage, or the other tests prove nothing."""
import os
import plistlib
import shutil

from examiner import bundle, macho
from harness import DEMO_APP, TRUSTED_ROOT, WholeProgramTest, read, unzip, write


class Damage(WholeProgramTest):
    def setUp(self):
        unzip(DEMO_APP, self.path("app"))
        self.addCleanup(shutil.rmtree, self.path("app"))
        self.app = self.path("app", "Payload", "Fieldbook.app")

    def problems(self):
        return "\n".join(bundle.problems(self.app, TRUSTED_ROOT))

    def flip(self, path, offset):
        data = bytearray(read(path))
        data[offset] ^= 1
        write(bytes(data), path)

    def test_whole(self):
        self.assertEqual(self.problems(), "")

    def test_resources(self):
        seal = os.path.join(self.app, "_CodeSignature", "CodeResources")
        self.flip(os.path.join(self.app, "Pages", "cover.json"), 3)
        self.assertIn("files2: Pages/cover.json has another hash2", self.problems())
        self.assertIn("files: Pages/cover.json has another hash", self.problems())
        write(b"new", self.app, "new.txt")
        self.assertIn("files2: new.txt is not sealed", self.problems())
        os.remove(os.path.join(self.app, "AppIcon29x29.png"))
        self.assertIn("files2: AppIcon29x29.png is sealed but not there", self.problems())
        self.assertNotIn("slot 3", self.problems())
        write(plistlib.dumps(plistlib.loads(read(seal)), sort_keys=False) + b"\n", seal)
        self.assertIn("sha256: slot 3 has another hash", self.problems())

    def test_code(self):
        executable = os.path.join(self.app, "Fieldbook")
        image = macho.slices(executable)[1]
        start = read(executable).index(image.data)
        offset = image.signature_range()[0]
        self.flip(executable, start + 0x4010)
        self.assertIn("arm64: sha256: page 4 has another hash", self.problems())
        self.assertIn("arm64: sha1: page 4 has another hash", self.problems())
        self.flip(executable, start + 0x4010)
        data = read(executable)
        # One bit in the identifier of the first code directory: only the CMS covers it.
        self.flip(executable, data.index(b"com.example.fieldbook\0", start + offset))
        self.assertIn("openssl refuses the CMS signature", self.problems())
        write(data[:-1], executable)
        self.assertIn("Fieldbook.app: slice 1 lies at", self.problems())

    def test_info_plist_and_entitlements(self):
        write(read(self.app, "Info.plist").replace(b"2.4.1", b"2.4.2"), self.app, "Info.plist")
        self.assertIn("sha256: slot 1 has another hash", self.problems())
        executable = os.path.join(self.app, "Fieldbook")
        old, new = b"SAMPLE0001.com.example.shared</", b"SAMPLE0001.com.example.Shared</"
        write(read(executable).replace(old, new), executable)
        self.assertIn("the XML and DER entitlements differ", self.problems())
        self.assertIn("sha256: slot 5 has another hash", self.problems())

    def test_trust(self):
        other = os.path.join(os.path.dirname(TRUSTED_ROOT), "admin.pem")
        self.assertIn("openssl refuses", "\n".join(bundle.problems(self.app, other)))
