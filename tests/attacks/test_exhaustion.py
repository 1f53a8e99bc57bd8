"""Small inputs that would take all memory, time or room, or end a program by a signal."""
import os
import plistlib
import shutil
import struct
import unittest
import zlib

import judging
import makers
from harness import ADMIN, IDENTITIES, SDK_APP, SDK_ENTITLEMENTS, read, run, write
from judging import companion

APP = "Payload/Small.app"
ANY = (0, 1, 2, 3, 254)
HEAD = b'<?xml version="1.0"?><plist version="1.0">'


def dictionary(xml):
    """An Info.plist of a small app with more in it."""
    usual = {"CFBundleIdentifier": makers.IDENTIFIER, "CFBundleExecutable": "Small",
             "CFBundleName": "Small", "CFBundlePackageType": "APPL", "CFBundleVersion": "1",
             "CFBundleShortVersionString": "1.0", "MinimumOSVersion": "9.0"}
    return plistlib.dumps(usual).replace(b"</dict>", xml + b"</dict>")


def shared_arrays(levels=30, width=60):
    """A binary list of arrays, each of which names the next one many times."""
    objects = [b"\xaf\x10" + bytes([width]) + bytes([level + 1]) * width for level in range(levels)]
    objects.append(b"\x09")
    places, data = [], b"bplist00"
    for item in objects:
        places.append(len(data))
        data += item
    table = b"".join(struct.pack(">H", place) for place in places)
    return data + table + struct.pack(">6xBBQQQ", 2, 1, len(objects), 0, len(data))


def lists():
    """Property lists, by what is wrong with them."""
    deep = b"<array>" * 100_000
    keys = b"".join(b"<key>k%d</key><true/>" % i for i in range(40_000))
    return {
        "deep": dictionary(b"<key>x</key>" + deep + b"</array>" * 100_000),
        "ends in comments": dictionary(b"<key>x</key>" + b"<array><!--</array>-->" * 100_000 +
                                       b"</array>" * 100_000),
        "ends in attributes": dictionary(b"<key>x</key>" + b"<array a='/>'>" * 100_000 +
                                         b"</array>" * 100_000),
        "zero byte": dictionary(b"<key>x</key><string>a\0b</string>"),
        "zero reference": dictionary(b"<key>x</key><string>&#0;</string>"),
        "many values": dictionary(b"<key>x</key><array>" + b"<true/>" * 3_000_000 + b"</array>"),
        "many keys": dictionary(keys),
        "shared arrays": shared_arrays(),
        "entities": b'<!DOCTYPE x [<!ENTITY a "' + b"x" * 1000 + b'">' + b"".join(
            b'<!ENTITY %c "%s">' % (98 + i, b"&%c;" % (97 + i) * 100) for i in range(8)) +
            b"]>" + HEAD + b"<dict><key>x</key><string>&i;</string></dict></plist>",
    }


def bomb(size):
    """The deflated form of so many zeros, from one part that is repeated."""
    part = 1 << 20
    packer = zlib.compressobj(9, zlib.DEFLATED, -15)
    first = packer.compress(bytes(part)) + packer.flush(zlib.Z_FULL_FLUSH)
    again = packer.compress(bytes(part)) + packer.flush(zlib.Z_FULL_FLUSH)
    return first + again * (size // part - 1) + packer.flush(zlib.Z_FINISH)


def archive_with_bombs(usual, names, size, output):
    """An archive whose entries of these names are that many zeros each. Their checksums are wrong,
    which nobody knows before all has been unpacked."""
    packed = bomb(size)
    makers.archive_of([*usual, *((name, packed) for name in names)], output)
    data = bytearray(read(output))
    for name in names:  # the method and the size, in the entry's header and in the directory
        local = data.index(name.encode()) - 30
        central = data.rindex(name.encode()) - 46
        for method, length in ((local + 8, local + 22), (central + 10, central + 24)):
            struct.pack_into("<H", data, method, zlib.DEFLATED)
            struct.pack_into("<I", data, length, size)
    return write(bytes(data), output)


def with_long_name(symbols=20_000, name=b"n" * 100_000):
    """A program whose symbols all have the same long name."""
    segment = struct.pack("<II16sQQQQiiII", 0x19, 72, b"__LINKEDIT", 0x4000, 0x400000, 0x4000,
                          symbols * 16 + len(name) + 1, 7, 1, 0, 0)
    text = struct.pack("<II16sQQQQiiII", 0x19, 72, b"__TEXT", 0x0, 0x4000, 0, 0x4000, 5, 5, 0, 0)
    table = struct.pack("<IIIIII", 2, 24, 0x4000, symbols, 0x4000 + symbols * 16, len(name) + 1)
    commands = text + segment + table
    header = struct.pack("<IIIIIIII", 0xfeedfacf, 0x0100000c, 0, 2, 3, len(commands), 0x85, 0)
    entry = struct.pack("<IBBHQ", 0, 1, 0, 0, 0)
    return ((header + commands).ljust(0x4000, b"\0") + entry * symbols + name + b"\0")


class Exhaustion(judging.AttackTest):
    def app_folder(self, changed):
        app = self.given("Small.app")
        for name, content in (self.app_files | changed).items():
            write(content, app, name)
        os.chmod(os.path.join(app, "Small"), 0o755)
        return app

    def sign(self, app, *options):
        return [companion("codesign"), "-f", "-s", ADMIN, *options, app]

    def test_property_lists(self):
        for name, content in lists().items():
            with self.subTest(name):
                self.setUp()
                self.held(self.wrap_words(self.archive({f"{APP}/Info.plist": content})), ANY)
                app = self.app_folder({"Info.plist": content})
                self.held(self.sign(app), ANY, may_change={app})
                file = write(content, self.given("entitlements.plist"))
                shutil.rmtree(app)
                app = self.app_folder({})
                self.held(self.sign(app, "--entitlements", file), ANY, may_change={app})
                profile = self.given("p.mobileprovision")
                run("openssl", "cms", "-sign", "-binary", "-nodetach", "-outform", "DER", "-out",
                    profile, "-signer", os.path.join(IDENTITIES, "root.pem"), "-inkey",
                    os.path.join(IDENTITIES, "root.key"), input=content)
                command = self.wrap_words(self.archive())
                command[command.index("-Profile") + 1] = profile
                self.held(command, (0, 254, 255))
                self.assertFalse(os.path.exists(self.path("out", "out.wex")) and name != "many keys")

    def test_symbols(self):
        program = with_long_name()
        path = write(program, self.given("program"))
        for words in (["nm", path], ["nm", "-m", path], ["otool", "-l", path]):
            # What is printed goes to a pipe that nobody reads in full.
            self.held(["/bin/sh", "-c", 'exec "$@" | head -c 1000000 >/dev/null', "sh",
                       companion(words[0]), *words[1:]], ANY)
        self.held(self.wrap_words(self.archive({f"{APP}/Small": program})), (0, 254))

    def test_patterns_of_strangers(self):
        patterns = {"back references": r"(.*)(.*)(.*)(.*)\1\2\3\4x", "repetitions": "((a{1,200}){1,200}){1,200}",
                    "nested": "(((((x*)*)*)*)*)*y", "parentheses": "(" * 50_000 + ")" * 50_000,
                    "alternatives": "|".join(["(a|b|c|d)*e"] * 2000),
                    "long": "a*" * 20_000 + "b"}
        info = plistlib.loads(self.app_files["Info.plist"])
        for name, pattern in patterns.items():
            with self.subTest(name):
                self.setUp()
                rules = plistlib.dumps({"rules": {"^.*": True, pattern: {"weight": 5}}})
                changed = {"Info.plist": plistlib.dumps(
                    info | {"CFBundleResourceSpecification": "rules.plist"}), "rules.plist": rules,
                    **{"a" * 200 + str(i): b"x" for i in range(40)}}
                app = self.app_folder(changed)
                self.held(self.sign(app), (0, 1), may_change={app})
                self.held([companion("codesign"), "-v", app], (0, 1, 3))
                self.held(self.sign(app, "--resource-rules", os.path.join(app, "rules.plist")),
                          (0, 1), may_change={app})
                self.held([companion("codesign"), "-v", app], (0, 1, 3))
                self.held(self.wrap_words(self.archive(
                    {f"{APP}/{file}": content for file, content in changed.items()})), (0, 254))

    def test_archives(self):
        """10 MB that would unpack to 10 GiB, and names that no path reaches."""
        zeros = archive_with_bombs(self.entries(), [f"{APP}/zeros{i}" for i in range(10)], 1 << 30,
                                   self.given("Small.ipa"))
        self.assertLess(os.path.getsize(zeros), 12 << 20)
        attacks = {"zeros": (zeros, b"10737"),
                   "deep": (self.archive({f"{APP}/" + "d/" * 30_000 + "file": b"x"}, "deep.ipa"),
                            b"a name of "),
                   "long": (self.archive({f"{APP}/" + ("d" * 200 + "/") * 20: b"x"}, "long.ipa"),
                            b"a name of ")}
        for name, (archive, text) in attacks.items():
            # The toolkit ends with 0 when it cannot unpack its input.
            for command, status in ((self.wrap_words(archive), 0),
                                    ([companion("unzip"), "-q", "-d", self.path("out", "there"),
                                      archive], 2)):
                with self.subTest(f"{name} {command[0]}"):
                    outcome = self.held(command, (status,))
                    self.assertLess(outcome.seconds, 5, outcome.output)
                    self.assertIn(b"it holds " + text, outcome.output)
                    self.assertIn(b", beyond the limit of ", outcome.output)
                    self.assertFalse(os.path.exists(self.path("out", "out.wex")))
                    there = self.path("out", "there")
                    self.assertEqual(os.listdir(there) if os.path.exists(there) else [], [])

    def test_many_entries(self):
        same = {f"{APP}/d/{i}": b"same" for i in range(10_000)}
        self.held(self.wrap_words(self.archive(same)), (0,))

    def test_many_icons(self):
        info = plistlib.loads(self.app_files["Info.plist"])
        icons = [f"Icon{i}.png" for i in range(2_000)]
        info["CFBundleIconFiles"] = icons
        files = {f"{APP}/{name}": makers.icon(8) for name in icons}
        self.held(self.wrap_words(self.archive(
            files | {f"{APP}/Info.plist": plistlib.dumps(info)})), (0, 254))

    def test_manifests(self):
        manifests = {
            "large": b"<MobileAppPackage>" + b"<a/>" * 25_000_000 + b"</MobileAppPackage>",
            "attributes": b"<MobileAppPackage " + b" ".join(
                b"a%d=''" % i for i in range(200_000)) + b"/>",
            "deep": b"<a>" * 200_000 + b"</a>" * 200_000}
        for name, manifest in manifests.items():
            with self.subTest(name):
                self.setUp()
                package = self.given("App.wex")
                makers.archive_of([("App.ipa", read(self.archive())), ("manifest.xml", b"")],
                                  package)
                os.remove(package)
                source = write(manifest, self.given("d", "manifest.xml"))
                os.rename(self.given("Small.ipa"), self.given("d", "App.ipa"))
                run("zip", "-qr", package, ".", cwd=self.given("d"))
                os.remove(source)
                self.held(self.toolkit("SetInfo", "-in", package, "-out",
                                       self.path("out", "o.wex"), "-appDesc", "other"), ANY)
        policy = write(manifests["attributes"], self.given("policy.xml"))
        self.held(self.wrap_words(self.archive(), "-policyXML", policy), ANY)

    def test_pipes_and_devices(self):
        for name in ("Info.plist", "Gauge", "_CodeSignature/CodeResources", "policy_metadata.xml",
                     "embedded.mobileprovision"):
            with self.subTest(name):
                self.setUp()
                app = shutil.copytree(SDK_APP, self.given("Gauge.app"), symlinks=True)
                path = os.path.join(app, name)
                os.makedirs(os.path.dirname(path), exist_ok=True)
                if os.path.exists(path):
                    os.remove(path)
                os.mkfifo(path)
                self.held(self.toolkit("SdkPrep", "-in", app, "-out", self.path("out", "o.wex"),
                                       "-storeURL", "https://apps.example.com/gauge",
                                       "-entitlements", SDK_ENTITLEMENTS), (0, 254),
                          may_change={app})
                self.held(self.sign(app), ANY, may_change={app})
                self.held([companion("codesign"), "-v", app], ANY)

    def test_rounds_of_key_files(self):
        """As many rounds of hashing as a number can tell, when the file is used or only listed."""
        keychain = self.given("keychain")
        os.mkdir(keychain)
        file = os.path.join(keychain, "many.p12")
        run("openssl", "pkcs12", "-export", "-in", os.path.join(IDENTITIES, "admin.pem"), "-inkey",
            os.path.join(IDENTITIES, "admin.key"), "-out", file, "-passout", "pass:demo")
        data = bytearray(read(file))
        self.assertEqual(data[-4:], b"\x02\x02\x08\0")  # the number stands last
        mac = data.rindex(b"\x30", 0, data.rindex(b"\x30", 0, len(data) - 60))
        mac = next(at for at in range(len(data) - 4, 0, -1)
                   if data[at] == 0x30 and at + 2 + data[at + 1] == len(data))
        data[mac + 1] += 2
        self.assertEqual(data[1], 0x82)
        data[2:4] = (int.from_bytes(data[2:4], "big") + 2).to_bytes(2, "big")
        write(bytes(data[:-4]) + b"\x02\x04\x7f\xff\xff\xff", file)
        os.chmod(keychain, 0o700)
        self.held([companion("security"), "find-identity", keychain], ANY)
        self.held([companion("security"), "import", file, "-P", "demo"], (1,))


if __name__ == "__main__":
    unittest.main()
