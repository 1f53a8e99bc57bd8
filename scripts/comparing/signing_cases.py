"""Cases of the companions that sign and that keep identities."""
import itertools

from comparing import damage
from comparing.case import Case
from comparing.inputs import ADMIN, BRANCH, DEVELOPER

KEYCHAIN = "IN/identities/admin.keychain.pem"
ANCHOR = 'anchor apple generic and certificate leaf[subject.CN] = "iPhone Distribution: Example*"'
PROGRAM = {"code": "macho/universal"}
APP = {"App.app": "Fieldbook.app"}


def several(name, tool, commands, **more):
    """One case that runs a tool several times."""
    return Case(f"{tool}/{name}", [[tool, *words] for words in commands], **more)


def signing_once(name, *options, path="code", files=None, **more):
    """Signs, and then looks at the result."""
    return Case(f"codesign/sign {name}", [
        ["codesign", *options, path], ["codesign", "-d", "-vvvv", "-r-", path],
        ["codesign", "-d", "--entitlements", "-", path], ["codesign", "-v", "-vv", path]],
        files=files or PROGRAM, **more)


def signing():
    by_admin = ("-f", "-s", ADMIN)
    entitled = ("--entitlements", "IN/sdk-entitlements.plist")
    for name, options in {
            "again": ("-s", ADMIN), "forced": by_admin, "ad-hoc": ("-f", "-s", "-"),
            "part of a name": ("-f", "-s", "Example Corp"), "unknown": ("-f", "-s", "Nobody"),
            "ambiguous": ("-f", "-s", "iPhone Distribution"), "any": ("-f", "-s", "*"),
            "empty": ("-f", "-s", ""), "verbose": (*by_admin, "-v"), "very": (*by_admin, "-vvvv"),
            "dry": (*by_admin, "-n"), "identifier": (*by_admin, "-i", "com.example.own"),
            "prefix": (*by_admin, "--prefix", "com.example."),
            "options": (*by_admin, "-o", "hard,kill,expires,library"),
            "runtime": (*by_admin, "-o", "runtime", "--runtime-version", "12.1"),
            "options number": (*by_admin, "-o", "0x200"), "options odd": (*by_admin, "-o", "soft"),
            "pages": (*by_admin, "-P", "16384"), "pages odd": (*by_admin, "-P", "5000"),
            "sha1": (*by_admin, "--digest-algorithm=sha1"),
            "both digests": (*by_admin, "--digest-algorithm=sha1,sha256"),
            "digest odd": (*by_admin, "--digest-algorithm=md5"),
            "entitled": (*by_admin, *entitled), "entitlements gone": (
                *by_admin, "--entitlements", "IN/gone"), "entitlements text": (
                *by_admin, "--entitlements", "IN/notes.txt"),
            "requirements": (*by_admin, "-r", '=designated => identifier "x"'),
            "requirements odd": (*by_admin, "-r", "=designated =>"),
            "library requirement": (*by_admin, "-r", "=library => anchor apple"),
            "preserving": (*by_admin, "--preserve-metadata"),
            "preserving some": (*by_admin, "--preserve-metadata=id,ent,flags"),
            "preserving odd": (*by_admin, "--preserve-metadata=colour"),
            "time stamp": (*by_admin, "--timestamp"), "no time stamp": (
                *by_admin, "--timestamp=none"), "other keychain": (
                "-f", "-s", "iPhone", "--keychain", "IN/identities/branch.keychain.pem"),
            "keychain gone": (*by_admin, "--keychain", "IN/gone"),
            "deep": (*by_admin, "--deep", "--generate-entitlement-der", "--force"),
            "by the developer": ("-f", "-s", DEVELOPER), "detached": (*by_admin, "-D", "x"),
            "rules": (*by_admin, "--resource-rules", "IN/notes.txt")}.items():
        yield signing_once(name, *options)
    for file in ("arm64", "armv7", "library", "extension", "watch", "objects", "unsigned",
                 "symbols-arm64.o", "symbols-x86_64.o"):
        yield signing_once("file " + file, *by_admin, files={"code": f"macho/{file}"})
        yield signing_once(f"file {file} ad-hoc", "-f", "-s", "-", files={"code": f"macho/{file}"})
    for name, options in {
            "": by_admin, "entitled": (*by_admin, *entitled), "unforced": ("-s", ADMIN),
            "preserving": (*by_admin, "--preserve-metadata"), "strict rules": (
                *by_admin, "--resource-rules", "IN/no-entitlements.plist")}.items():
        yield signing_once("app " + name, *options, path="App.app", files=APP)
    yield signing_once("SDK app", *by_admin, path="App.app", files={"App.app": "Gauge.app"})
    yield signing_once("framework", *by_admin, path="Ledger.framework",
                       files={"Ledger.framework": "Fieldbook.app/Frameworks/Ledger.framework"})
    yield signing_once("executable in app", *by_admin, path="App.app/Fieldbook", files=APP)
    yield signing_once("text", *by_admin, files={"code": "notes.txt"})
    yield signing_once("app without info", *by_admin, path="App.app", files={
        "App.app": "sdk/info-text/Gauge.app"})
    yield signing_once("without root", *by_admin, environment={"TOVREK_TRUSTED_ROOT_SHA1": ""})
    yield several("usage", "codesign", [
        ("-s",), ("-s", ADMIN), ("-d",), ("-v",), ("--re", "x"), ("--display", "IN/gone"),
        ("-d", "-v", "-s", "x", "code"), ("-f", "-s", ADMIN, "IN/gone", "code"),
        ("-f", "-s", ADMIN, "--continue", "IN/gone", "code"), ("-vv", "IN/folder")], files=PROGRAM)


def looking():
    app = "IN/Fieldbook.app"
    paths = [app, "IN/macho/universal", "IN/macho/armv7", "IN/macho/unsigned", "IN/macho/watch",
             app + "/Frameworks/Ledger.framework", app + "/PlugIns/Share.appex", app + "/Fieldbook",
             "IN/Gauge.app", "IN/notes.txt", "IN/gone", "IN/Fieldbook.ipa"]
    for options in (("-d",), ("-dv",), ("-d", "-vv"), ("-dvvv",), ("-d", "-vvvvvv"),
                    ("-d", "--verbose=4"), ("-d", "-r-"), ("-d", "--entitlements", "-"),
                    ("-d", "--entitlements", ":-"), ("-d", "--entitlements", ":made"),
                    ("-d", "--xml", "--entitlements", "made"), ("-d", "-r", "made"),
                    ("-d", "-a", "armv7", "-vvv"), ("-d", "-a", "i386"),
                    ("-d", "--extract-certificates"), ("-d", "--extract-certificates=some"),
                    ("-v",), ("-vv",), ("-v", "--strict"), ("--verify", "--deep", "-vvv"),
                    ("-v", "-a", "arm64"), ("-v", "-R", "=" + ANCHOR), ("-v", "-R=anchor apple"),
                    ("-vv", "-R", "=never"), ("-v", "-R", "=odd odd"), ("-v", "-R", "IN/notes.txt"),
                    ("-v", "--no-strict"), ("-v", "--all-architectures", "--check-notarization"),
                    ("-h",)):
        yield several("look " + " ".join(options), "codesign",
                      [(*options, path) for path in paths] + [(*options, *paths)])
    yield several("continued", "codesign", [("-v", "--continue", *paths)])
    for requirement in ("anchor trusted", 'identifier "com.example.fieldbook"', "always",
                        'info[CFBundleVersion] >= "200"', "entitlement[get-task-allow] absent",
                        "certificate 1[field.1.2.840.113635.100.6.2.1] exists", "not platform = 2",
                        '(cdhash H"00112233445566778899aabbccddeeff00112233" or always)',
                        'certificate leaf[subject.OU] = SAMPLE0001 /* c */ and anchor = H"00"',
                        "notarized", "identifier com.example.* # all"):
        yield several("requirement " + requirement, "codesign",
                      [("-v", "-R", "=" + requirement, path) for path in paths[:3]])


def changed_apps():
    """Apps that were changed after they had been signed."""
    for name, command in {
            "file changed": ("cp", "IN/notes.txt", "App.app/PkgInfo"),
            "file added": ("cp", "IN/notes.txt", "App.app/added.txt"),
            "file gone": ("rm", "App.app/PkgInfo"),
            "info changed": ("cp", "IN/notes.txt", "App.app/Info.plist"),
            "seal gone": ("rm", "-r", "App.app/_CodeSignature"),
            "seal damaged": ("cp", "IN/notes.txt", "App.app/_CodeSignature/CodeResources"),
            "framework changed": ("cp", "IN/macho/arm64",
                                  "App.app/Frameworks/Ledger.framework/Ledger"),
            "executable gone": ("rm", "App.app/Fieldbook"),
            "link out": ("ln", "-s", "/etc/passwd", "App.app/link"),
            "executable replaced": ("cp", "IN/damaged/signature-0", "App.app/Fieldbook")}.items():
        yield Case("codesign/" + name, [
            list(command), ["codesign", "-v", "App.app"],
            ["codesign", "-vvv", "--strict", "App.app"], ["codesign", "-d", "-vv", "App.app"],
            ["codesign", "-f", "-s", ADMIN, "App.app"],
            ["codesign", "-v", "--strict", "App.app"]], files=APP)
    yield several("remove", "codesign", [
        ("--remove-signature", "code"), ("--remove-signature", "code"), ("-d", "code"),
        ("--remove-signature", "App.app"), ("-v", "App.app"), ("--remove-signature", "IN/gone"),
        ("--remove-signature", "notes")], files=PROGRAM | APP | {"notes": "notes.txt"})


def keychains():
    build = "build.keychain"
    yield several("build server", "security", [
        ("create-keychain", "-p", "pw", build), ("create-keychain", "-p", "pw", build),
        ("list-keychains", "-d", "user", "-s", build, "login.keychain"), ("list-keychains",),
        ("list-keychains", "-d", "system"), ("default-keychain", "-s", build),
        ("default-keychain",), ("login-keychain",), ("unlock-keychain", "-p", "pw", build),
        ("unlock-keychain", "-p", "no", build), ("set-keychain-settings", "-lut", "21600", build),
        ("show-keychain-info", build), ("set-keychain-settings", build), ("show-keychain-info",),
        ("import", "IN/identities/admin.p12", "-k", build, "-P", "demo", "-T", "/usr/bin/codesign",
         "-A"), ("import", "IN/identities/admin.p12", "-k", build, "-P", "demo"),
        ("set-key-partition-list", "-S", "apple-tool:,apple:", "-s", "-k", "pw", build),
        ("set-key-partition-list", "-S", "apple:", "-k", "no", build),
        ("find-identity", "-v", "-p", "codesigning"), ("lock-keychain", build),
        ("lock-keychain", "-a"), ("find-identity", build), ("delete-keychain", build),
        ("delete-keychain", build), ("list-keychains",)], keychain="")
    yield several("encrypted keys", "security", [
        ("create-keychain", "-p", "pw", build),
        ("import", "IN/identities/admin.p12", "-k", build, "-P", "demo"), ("lock-keychain", build),
        ("import", "IN/identities/branch.p12", "-k", build, "-P", "demo"),
        ("export", "-k", build, "-t", "identities", "-P", "x", "-o", "x.p12"),
        ("find-identity", "-v", build), ("unlock-keychain", "-p", "no", build),
        ("unlock-keychain", "-p", "pw", build),
        ("import", "IN/identities/branch.p12", "-k", build, "-P", "demo"),
        ("set-keychain-password", "-o", "pw", "-p", "new", build),
        ("set-keychain-password", "-o", "pw", "-p", "new", build), ("show-keychain-info", build),
        ("dump-keychain", build)], keychain="", environment={"TOVREK_ENCRYPT_KEYCHAINS": "1"})
    yield Case("codesign/locked keychain", [
        ["security", "create-keychain", "-p", "pw", build],
        ["security", "import", "IN/identities/admin.p12", "-k", build, "-P", "demo"],
        ["security", "lock-keychain", build],
        ["codesign", "-f", "-s", ADMIN, "--keychain", build, "code"],
        ["security", "unlock-keychain", "-p", "pw", build],
        ["codesign", "-f", "-s", ADMIN, "--keychain", build, "code"]], keychain="", files=PROGRAM,
        environment={"TOVREK_ENCRYPT_KEYCHAINS": "1"})
    yield several("names", "security", [
        ("create-keychain", "-p", "", "a", "b.keychain-db", "./own.keychain"), ("list-keychains",),
        ("create-keychain",), ("create-keychain", "-p", "x"), ("delete-keychain", "a", "gone"),
        ("delete-keychain", "work"), ("delete-keychain", "folder"), ("list-keychain",),
        ("default-keychain", "-s", "gone"), ("default-keychain", "-s"), ("find-identity", "gone"),
        ("list-keychains", "-s"), ("list-keychains", "-d", "odd"), ("list",), ("lock-keychain",)],
        files={"folder": "folder"})


def items():
    for name, words in {
            "p12": ("IN/identities/branch.p12", "-P", "demo"), "wrong password": (
                "IN/identities/branch.p12", "-P", "no"), "no password": (
                "IN/identities/branch.p12",), "certificate": ("IN/identities/branch.pem",),
            "key": ("IN/identities/branch.key",), "both": ("IN/identities/branch.keychain.pem",),
            "certificates only": ("IN/identities/branch.keychain.pem", "-t", "cert"),
            "keys only": ("IN/identities/branch.keychain.pem", "-t", "priv"),
            "format": ("IN/identities/branch.p12", "-f", "pkcs12", "-P", "demo", "-x"),
            "format wrong": ("IN/identities/branch.pem", "-f", "odd"), "gone": ("IN/gone.p12",),
            "text": ("IN/notes.txt",), "keychain gone": (
                "IN/identities/branch.pem", "-k", "gone"), "nothing": (), "token": (
                "pkcs11:token=none;object=x",)}.items():
        for keychain in ("keychain-admin", "keychain"):
            yield several(f"import {name} into {keychain}", "security", [
                ("import", *words), ("find-identity",), ("find-certificate", "-a", "-Z")],
                keychain=keychain)
    for name, words in {
            "all": (), "valid": ("-v",), "for code": ("-v", "-p", "codesigning"),
            "other policy": ("-p", "basic"), "policy odd": ("-p", "odd"), "named": (
                "-s", "Branch"), "in a file": (KEYCHAIN,), "in p12": (
                "IN/identities/admin.p12",)}.items():
        yield several("find-identity " + name, "security", [("find-identity", *words)])
        yield several(f"find-identity {name}, none", "security", [("find-identity", *words)],
                      keychain="keychain-empty",
                      environment={"TOVREK_KEYCHAIN_PASSWORD": "demo"})
    yield several("find-certificate", "security", [("find-certificate", *words) for words in (
        (), ("-a",), ("-a", "-Z"), ("-a", "-p"), ("-a", "-m"), ("-c", "Branch"), ("-c", "gone"),
        ("-a", "-c", "Demo", "-Z", "-p"), ("-e", "x@example.com"), ("-a", KEYCHAIN),
        ("-a", "IN/gone"), ("-odd",))])
    yield several("dump", "security", [("dump-keychain",), ("dump-keychain", "-a", "-d"),
                                       ("dump-keychain", KEYCHAIN), ("dump-keychain", "gone")])
    yield several("delete", "security", [
        ("delete-certificate", "-c", BRANCH.lower()), ("delete-certificate", "-c", "Branch"),
        ("delete-identity", "-c", ADMIN), ("delete-identity", "-c", ADMIN),
        ("delete-identity", "-Z", "00"), ("delete-certificate",), ("find-certificate", "-a")])
    yield several("add and verify", "security", [
        ("add-certificates", "IN/identities/root.pem", "IN/identities/intermediate.pem"),
        ("add-certificates", "IN/identities/maker.pem"), ("add-certificates", "IN/notes.txt"),
        ("add-trusted-cert", "-d", "-r", "trustRoot", "IN/identities/root.pem"),
        ("verify-cert", "-c", "IN/identities/maker.pem"), ("verify-cert", "-c", "IN/notes.txt"),
        ("verify-cert", "-c", "IN/identities/admin.pem", "-r", "IN/identities/root.pem", "-p",
         "codeSign"), ("verify-cert", "-c", "IN/identities/admin.pem", "-r",
                       "IN/identities/branch.pem"), ("verify-cert", "-q"),
        ("verify-cert", "-c", "IN/identities/root.pem", "-p", "ssl")], keychain="keychain-empty")


def exports():
    for kind in ("certs", "privKeys", "allKeys", "identities", "all", "odd"):
        for form in ("pkcs12", "pemseq", "pkcs7", "pkcs8", "x509"):
            yield Case(f"security/export {kind} {form}", [
                ["security", "export", "-t", kind, "-f", form, "-P", "pw", "-o", "out.p12"
                 if form == "pkcs12" else "out"],
                ["/usr/bin/openssl", "pkcs12", "-in", "out.p12", "-nodes", "-passin", "pass:pw"],
                ["security", "find-identity", "out.p12"]],
                environment={"TOVREK_KEYCHAIN_PASSWORD": "pw"})
    yield several("export to output", "security", [
        ("export", "-t", "certs", "-f", "pemseq"), ("export", "-t", "certs", "-p"),
        ("export", "-k", "gone"), ("export", "-o", "gone/x"), ("export", "-t", "certs", "-f", "x")])


def messages():
    yield several("cms decoded", "security", [("cms", "-D", *words) for words in (
        ("-i", "IN/Example.mobileprovision"), ("-i", "IN/Branch.mobileprovision", "-o", "made"),
        ("-i", "IN/gone"), ("-i", "IN/notes.txt"), ("-n", "-i", "IN/Example.mobileprovision"), (),
        ("-i", "IN/profiles/expired.mobileprovision", "-o", "gone/x"),
        ("-h", "0", "-i", "IN/Example.mobileprovision"))])
    for name in damage.messages(bytes(100)):
        yield several("cms decoded, damaged " + name, "security",
                      [("cms", "-D", "-i", f"IN/profiles/damaged-{name}.mobileprovision")])
    for name, words in {"": (), "time": ("-G",), "detached": ("-T",), "with chain": ("-P",),
                        "sha1": ("-H", "SHA1"), "sha512": ("-H", "SHA512"), "odd": ("-H", "X")
                        }.items():
        yield several(f"cms signed {name}", "security", [
            ("cms", "-S", "-N", ADMIN, "-i", "IN/policies.xml", "-o", "made", *words),
            ("cms", "-D", "-i", "made"), ("cms", "-D", "-i", "made", "-c", "IN/policies.xml")])
    yield several("cms refused", "security", [
        ("cms", "-S", "-N", "Nobody", "-i", "IN/notes.txt"), ("cms", "-S", "-i", "IN/notes.txt"),
        ("cms", "-E"), ("cms",), ("cms", "-S", "-D"), ("cms", "-S", "-N", ADMIN, "-i", "IN/gone")])
    yield Case("security/cms from input", [["security", "cms", "-D"]], stdin=b"no message")
    script = b"""# a comment
create-keychain -p "p w" 'a b.keychain'
list-keychains
find-identity   -v
odd "unclosed
help cms
delete-keychain a\\ b.keychain
"""
    for name, words in {"": ("-i",), "prompt": ("-p", "> "), "quiet": ("-q", "-i"),
                        "verbose": ("-v", "list-keychains")}.items():
        yield Case(f"security/interactive {name}", [["security", *words]], stdin=script)


def helps():
    names = ("list-keychains", "default-keychain", "login-keychain", "create-keychain",
             "delete-keychain", "lock-keychain", "unlock-keychain", "set-keychain-settings",
             "set-keychain-password", "set-key-partition-list", "show-keychain-info",
             "find-identity", "find-certificate", "delete-certificate", "delete-identity",
             "dump-keychain", "add-certificates", "add-trusted-cert", "verify-cert", "import",
             "export", "cms")
    yield several("help of all", "security",
                  [("help", *names), ("help", "odd"), ("help", "list", "set"), ("set",), ("odd",)])
    for name in names:
        # What a bare export prints is encrypted and never twice the same.
        short = [(name[:5],)] if name != "export" else []
        yield several("wrong " + name, "security", [
            (name, "--help"), (name, "-?"), (name, "-Q", "x"), (name, "gone"), (name, "-k"),
            (name, "-c"), (name, "a", "b", "c"), *short])


def cases(_images, _real):
    return itertools.chain(signing(), looking(), changed_apps(), keychains(), items(), exports(),
                           messages(), helps())
