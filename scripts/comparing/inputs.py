"""Makes what the cases are run on, from the demo's files and with the old build's programs.

Both builds get the same inputs. Those that are damaged or odd are the same in every comparison,
as far as the demo's files are.
"""
import os
import plistlib
import shutil
import subprocess

from comparing import archives, damage

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
ADMIN = "iPhone Distribution: Example Corporation (EXAMPLE123)"
BRANCH = "iPhone Distribution: Example Branch (EXAMPLE456)"
DEVELOPER = "iPhone Developer: Sam Sample (SAMPLE0001)"
STORE = "https://apps.example.com/gauge"
OLD_TIME = 1_500_000_000

# Profiles by name: the identity, the team, the app's identifier and the date of expiry.
PROFILES = {
    "expired": ("admin", "EXAMPLE123", "*", "yesterday"),
    "soon": ("admin", "EXAMPLE123", "*", "3 days"),
    "specific": ("admin", "EXAMPLE123", "com.example.fieldbook", "1 year"),
    "other-app": ("admin", "EXAMPLE123", "com.other.app", "1 year"),
    "other-apps": ("admin", "EXAMPLE123", "com.other.*", "1 year"),
    "app-family": ("admin", "EXAMPLE123", "com.example.*", "1 year"),
    "developer": ("developer", "SAMPLE0001", "*", "1 year"),
}

SOURCES = {
    "objects.m": """
        __attribute__((objc_root_class)) @interface Root { int kept; id other; }
        @property int kept; + (void)make; - (int)count:(int)of with:(id)x; @end
        @implementation Root @synthesize kept; + (void)make {} - (int)count:(int)of with:(id)x
        { return of; } @end
        @protocol Talks - (void)say; @optional - (void)shout; @end
        @interface Child : Root <Talks> @end
        @implementation Child - (void)say {} @end
        @interface Root (More) - (void)extra; @end
        @implementation Root (More) - (void)extra {} @end
        int main(void) { return 0; }""",
    "symbols.c": """
        int common[40]; static int local = 3; int data = 4; const int constant = 5;
        __attribute__((weak)) int weak(void) { return local; } extern int outside(void);
        __attribute__((visibility("hidden"))) int hidden(void) { return outside() + data; }
        int _underscored(void) { return hidden() + weak() + common[1]; }""",
}


class InputMaker:
    def __init__(self, workspace, demo, real):
        self.workspace = workspace
        self.demo = demo
        self.real = real
        self.data = os.path.join(workspace.folder, "making")
        self.environment = {
            "PATH": "/usr/bin:/bin:/usr/lib/llvm-14/bin", "LC_ALL": "C.UTF-8",
            "HOME": self.data, "XDG_DATA_HOME": self.data, "TMPDIR": self.data, "TZ": "UTC",
            "TOVREK_TRUSTED_ROOT_SHA1": self.trusted_root(), "CLANG": "clang",
            "LD64_LLD": "ld64.lld"}

    def trusted_root(self):
        with open(os.path.join(self.demo, "identities", "root.sha1"), encoding="utf-8") as file:
            return file.read().strip()

    def make(self):
        """Makes everything; the old build has to be in place."""
        os.makedirs(self.data)
        self.copy_demo()
        self.make_profiles()
        self.make_programs()
        self.make_packages()
        self.make_variants()
        self.make_sdk_apps()
        self.make_folder_to_pack()
        if self.real:
            shutil.copytree(self.real, self.path("real"), symlinks=True)
        shutil.rmtree(self.data)

    def path(self, *parts):
        return os.path.join(self.workspace.inputs, *parts)

    def write(self, content, *parts):
        path = self.path(*parts)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(content if isinstance(content, bytes) else content.encode())
        os.utime(path, (OLD_TIME, OLD_TIME))
        return path

    def read(self, *parts):
        with open(self.path(*parts), "rb") as file:
            return file.read()

    def run(self, *words, check=True, **environment):
        name = words[0]
        program = self.workspace.companion(name)
        if name == "Tovrek":
            program = os.path.join(self.workspace.toolkit, name)
        if not os.path.exists(program):
            program = name
        return subprocess.run([program, *words[1:]], check=check, capture_output=True,
                              cwd=self.workspace.inputs, stdin=subprocess.DEVNULL,
                              env=self.environment | environment).stdout

    def copy_demo(self):
        for name in ("Fieldbook.ipa", "Example.mobileprovision", "Branch.mobileprovision"):
            shutil.copy2(os.path.join(self.demo, name), self.path(name))
        shutil.copytree(os.path.join(self.demo, "identities"), self.path("identities"))
        shutil.copytree(os.path.join(self.demo, "sdk", "Gauge.app"), self.path("Gauge.app"))
        shutil.copytree(os.path.join(self.demo, "sdk-fingerprint", "Gauge.app"),
                        self.path("fingerprint", "Gauge.app"))
        shutil.copy2(os.path.join(ROOT, "demo", "sdk_app", "entitlements.plist"),
                     self.path("sdk-entitlements.plist"))
        self.run("unzip", "-q", "Fieldbook.ipa", "-d", "unpacked")
        os.rename(self.path("unpacked", "Payload", "Fieldbook.app"), self.path("Fieldbook.app"))
        for name in ("admin", "branch", "developer"):
            self.run("security", "import", f"identities/{name}.p12", "-P", "demo")
        shutil.copytree(os.path.join(self.data, "tovrek", "keychain"), self.path("keychain"))
        shutil.rmtree(os.path.join(self.data, "tovrek"))
        self.run("security", "import", "identities/admin.p12", "-P", "demo")
        shutil.copytree(os.path.join(self.data, "tovrek", "keychain"), self.path("keychain-admin"))
        os.mkdir(self.path("keychain-empty"), 0o700)

    def make_profiles(self):
        script = os.path.join(ROOT, "demo", "profile.sh")
        for name, (identity, team, app, expiry) in PROFILES.items():
            self.run(script, self.path("profiles", name + ".mobileprovision"),
                     self.path("identities"), identity, team, app, expiry)
        content = plistlib.loads(self.run("security", "cms", "-D", "-i", "Example.mobileprovision"))
        for name, change in {
                "no-certificates": {"DeveloperCertificates": []},
                "certificate-odd": {"DeveloperCertificates": [b"none"]},
                "no-entitlements": {"Entitlements": {}},
                "entitlements-text": {"Entitlements": "text"},
                "no-team": {"TeamIdentifier": [], "ApplicationIdentifierPrefix": []},
                "devices": {"ProvisionedDevices": ["0" * 40]}}.items():
            self.sign_profile(name, plistlib.dumps(content | change))
        self.sign_profile("no-list", b"no property list")
        for name, made in damage.messages(self.read("Example.mobileprovision")).items():
            self.write(made, "profiles", "damaged-" + name + ".mobileprovision")

    def sign_profile(self, name, content):
        plain = self.write(content, "profiles", name + ".plist")
        self.run("/usr/bin/openssl", "cms", "-sign", "-binary", "-nodetach", "-md", "sha256",
                 "-outform", "DER", "-in", plain, "-signer", "identities/root.pem", "-inkey",
                 "identities/root.key", "-out", f"profiles/{name}.mobileprovision")
        os.remove(plain)

    def make_programs(self):
        """Mach-O files of several kinds, and damaged ones."""
        for name, text in SOURCES.items():
            self.write(text, "sources", name)
        link = os.path.join(ROOT, "demo", "link.sh")
        self.run(link, self.path("macho", "objects"), self.path("sources", "objects.m"), "arm64",
                 "-e", "_main", "-undefined", "dynamic_lookup")
        for name, target, options in (("symbols-arm64.o", "arm64-apple-ios12", ("-g",)),
                                      ("symbols-x86_64.o", "x86_64-apple-macos11", ()),
                                      ("symbols-armv7.o", "armv7-apple-ios9", ("-g",))):
            self.run("clang", "-target", target, "-O1", *options, "-c",
                     self.path("sources", "symbols.c"), "-o", self.path("macho", name))
        app = self.path("Fieldbook.app")
        shutil.copy2(os.path.join(app, "Fieldbook"), self.path("macho", "universal"))
        for arch in ("armv7", "arm64"):
            self.run("lipo", "macho/universal", "-thin", arch, "-output", f"macho/{arch}")
        shutil.copy2(os.path.join(app, "Frameworks", "Ledger.framework", "Ledger"),
                     self.path("macho", "library"))
        shutil.copy2(os.path.join(app, "PlugIns", "Share.appex", "Share"),
                     self.path("macho", "extension"))
        shutil.copy2(os.path.join(app, "Watch", "FieldbookWatch.app", "FieldbookWatch"),
                     self.path("macho", "watch"))
        shutil.copy2(self.path("macho", "arm64"), self.path("macho", "unsigned"))
        self.run("codesign", "--remove-signature", "macho/unsigned")
        programs = {name: self.read("macho", name)
                    for name in ("arm64", "armv7", "universal", "library", "objects")}
        for name, made in damage.images(programs).items():
            os.chmod(self.write(made, "damaged", name), 0o755)

    def make_packages(self):
        """Packages and wrapped apps, as the commands make them."""
        by_admin = ("-Cert", ADMIN, "-Profile", "Example.mobileprovision", "-logFile", "log")
        wrap = ("Tovrek", "Wrap", *by_admin, "-in", "Fieldbook.ipa")
        self.run(*wrap, "-out", "App.wex", "-minPlatform", "9.0")
        self.run(*wrap, "-out", "Kept.wex", "-noStripExtensions")
        self.run(*wrap, "-outBundle", "Wrapped.ipa")
        shutil.copytree(self.path("Gauge.app"), self.path("prepared", "Gauge.app"))
        self.run("Tovrek", "SdkPrep", "-in", "prepared/Gauge.app", "-out", "Store.wex",
                 "-entitlements", "sdk-entitlements.plist", "-storeURL", STORE, "-logFile", "log")
        self.make_sdk_archives()
        os.remove(self.path("log"))

    def make_sdk_archives(self):
        """An app of the SDK as an archive and in a package."""
        entries = {}
        for base, _, names in os.walk(self.path("Gauge.app")):
            for name in sorted(names):
                path = os.path.join(base, name)
                shown = "Payload/" + os.path.relpath(path, self.workspace.inputs)
                with open(path, "rb") as file:
                    entries[shown] = (os.lstat(path).st_mode, file.read())
        archive = archives.packed(entries)
        self.write(archive, "Sdk.ipa")
        self.write(archives.packed({"Gauge.ipa": (0o100644, archive),
                                    "manifest.xml": (0o100644, b"<MobileAppPackage/>")}), "Sdk.wex")

    def make_variants(self):
        """Apps, packages and archives that are odd or damaged."""
        app = archives.entries_of(self.read("Fieldbook.ipa"))
        for name, change in archives.APPS.items():
            self.write(archives.packed(change(app)), "apps", name + ".ipa")
        for name in sorted(os.listdir(self.path("damaged"))):
            change = archives.file_of("Fieldbook", self.read("damaged", name), 0o100755)
            self.write(archives.packed(change(app)), "code", name + ".ipa")
        for name in ("arm64", "armv7", "objects", "unsigned", "symbols-arm64.o", "library"):
            change = archives.file_of("Fieldbook", self.read("macho", name), 0o100755)
            self.write(archives.packed(change(app)), "code", "as-" + name + ".ipa")
        package = archives.entries_of(self.read("App.wex"))
        package["Fieldbook.ipa"] = package.pop("App.ipa", package.get("Fieldbook.ipa"))
        for name, change in archives.PACKAGES.items():
            self.write(archives.packed(change(package)), "packages", name + ".wex")
        for name, made in damage.archives(self.read("apps", "same.ipa")).items():
            self.write(made, "apps", "damaged-" + name + ".ipa")
        for name, made in damage.archives(self.read("packages", "same.wex")).items():
            self.write(made, "packages", "damaged-" + name + ".wex")
        for name, made in archives.odd_archives().items():
            self.write(made, "archives", name + ".zip")
        for name, made in damage.archives(self.read("archives", "plain.zip")).items():
            self.write(made, "archives", "damaged-" + name + ".zip")

    def make_sdk_apps(self):
        """Apps of the SDK with something wrong in them."""
        intune, wex = b"IntuneMAM.framework/IntuneMAM", b"@rpath/Wex.framework/Wex"
        first, second = b"@rpath/WEX.framework/WEX", b"/usr/lib/libSystem.B.dylib"
        code = self.read("Gauge.app", "Gauge")
        for name, one, other in (("intune-first", intune, wex), ("two", wex, wex),
                                 ("intune-second", wex, intune)):
            made = code.replace(first.ljust(32, b"\0"), one.ljust(32, b"\0"))
            self.sdk_app(name, "Gauge", made.replace(second.ljust(32, b"\0"),
                                                     other.ljust(32, b"\0")))
        self.sdk_app("script", "Gauge", b"#!/bin/sh\n")
        self.sdk_app("damaged", "Gauge", damage.flipped(code, 42, 0, 1000, 4))
        info = plistlib.loads(self.read("Gauge.app", "Info.plist"))
        for key in ("CFBundleIcons", "CFBundleIdentifier", "CFBundleExecutable"):
            less = {name: value for name, value in info.items() if name != key}
            self.sdk_app("without-" + key, "Info.plist", plistlib.dumps(less))
        self.sdk_app("info-text", "Info.plist", b"text")
        granted = plistlib.loads(self.read("sdk-entitlements.plist"))
        granted["keychain-access-groups"] = ["EXAMPLE123.other"]
        self.write(plistlib.dumps(granted), "no-group.plist")
        self.write(plistlib.dumps({}), "no-entitlements.plist")
        self.write("<PolicyMetadata><Policy><PolicyName>Only</PolicyName></Policy>"
                   "</PolicyMetadata>", "policies.xml")
        self.write("<Policy", "broken.xml")
        self.write("text", "notes.txt")
        os.mkdir(self.path("folder"))

    def sdk_app(self, name, file, content):
        shutil.copytree(self.path("Gauge.app"), self.path("sdk", name, "Gauge.app"))
        path = self.write(content, "sdk", name, "Gauge.app", file)
        os.chmod(path, 0o755 if file == "Gauge" else 0o644)

    def make_folder_to_pack(self):
        """A folder for zip: texts, what does not pack, links, modes, names."""
        for name, (mode, content) in archives.plain_entries().items():
            path = self.path("tree", name)
            if name.endswith("/"):
                os.makedirs(path, exist_ok=True)
                continue
            if mode >> 12 == 0o12:
                os.symlink(content.decode(), path)
                continue
            os.chmod(self.write(content, "tree", name), mode & 0o777)
        shutil.copy2(self.path("identities", "admin.p12"), self.path("tree", "packed.p12"))
        os.utime(self.path("tree", "packed.p12"), (OLD_TIME, OLD_TIME))
        for base, _, _ in os.walk(self.path("tree"), topdown=False):
            os.utime(base, (OLD_TIME, OLD_TIME))
