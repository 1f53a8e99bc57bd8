"""Wraps an app whose icons exist only in the device's form and under names with scales."""
import os
import xml.etree.ElementTree as ElementTree

import png
from harness import (WholeProgramTest, changed_app, edit_info, pack, read, sign_as_developer,
                     unpacked_app, unzip, write)

# File in the app, its size; the larger scale of the first icon must not be taken.
FILES = {"AppIcon60x60@2x.png": 120, "AppIcon60x60@3x.png": 180,
         "AppIcon-183.5x83.5@2x~ipad.png": 167}
LISTED = {"AppIcon60x60": 120, "AppIcon-183.5x83.5": 167}


class IconsOfDeviceForm(WholeProgramTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        output = os.path.join(cls.folder, "out.wex")
        with changed_app() as (folder, app):
            for name in os.listdir(app):
                if name.startswith("AppIcon"):
                    os.remove(os.path.join(app, name))
            for name, size in FILES.items():
                write(png.device_form(png.picture(size, size)), app, name)
            edit_info(app, CFBundleIcons={"CFBundlePrimaryIcon": {
                "CFBundleIconFiles": [*LISTED, "AppIcon1x1"]}})
            sign_as_developer(app)
            cls.result = cls.wrap(pack(folder, os.path.join(cls.folder, "in.ipa")), output)
        if cls.result.returncode != 0 or not os.path.exists(output):
            raise AssertionError(cls.result.stdout + cls.result.stderr)
        cls.package = unzip(output, os.path.join(cls.folder, "package"))

    def test_manifest_lists_them(self):
        root = ElementTree.parse(os.path.join(self.package, "manifest.xml")).getroot()
        self.assertEqual({icon.findtext("IconFile"): (icon.findtext("xRes"), icon.findtext("yRes"))
                          for icon in root.find("MobileApp/Icons")},
                         {f"{name}.png": (str(size), str(size)) for name, size in LISTED.items()})

    def test_package_holds_standard_files(self):
        self.assertEqual({name for name in os.listdir(self.package) if name.endswith(".png")},
                         {f"{name}.png" for name in LISTED})
        for name, size in LISTED.items():
            with self.subTest(name=name):
                got = png.pixels(read(self.package, f"{name}.png"))
                for got_row, row in zip(got, png.picture(size, size), strict=True):
                    for have, want in zip(got_row, row, strict=True):
                        self.assert_same_pixel(have, want)

    def assert_same_pixel(self, have, want):
        *colours, alpha = want
        self.assertEqual(have[3], alpha)
        if alpha == 0:
            colours = [0, 0, 0]
        # Half transparent colours are stored with half their bits.
        slack = 0 if alpha in (0, 255) else 1
        for got, expected in zip(have, colours):
            self.assertLessEqual(abs(got - expected), slack, (have, want))

    def test_app_holds_both_forms(self):
        app = unpacked_app(self.path("out.wex"), self.path("after"))
        for name, size in FILES.items():
            self.assertEqual(read(app, name), png.device_form(png.picture(size, size)))
        for name, size in LISTED.items():
            self.assertEqual(len(png.pixels(read(app, f"{name}.png"))), size)

    def test_log_names_the_icon_without_a_file(self):
        self.assertIn("File AppIcon1x1 does not exist. Not adding to the list of icons in "
                      "manifest.xml.", read(self.folder, "Orvane.log").decode())
