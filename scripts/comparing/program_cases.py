"""Cases of the companions that look at programs and archives, and of the small ones."""
import itertools

from comparing import archives, damage
from comparing.case import Case

PROGRAMS = ("universal", "arm64", "armv7", "library", "extension", "watch", "objects", "unsigned",
            "symbols-arm64.o", "symbols-x86_64.o", "symbols-armv7.o")
COMPANIONS = ("codesign", "security", "lipo", "otool", "nm", "openssl", "zip", "unzip", "xcrun",
              "xcode-select", "pkgutil")
OTOOL = (("-l",), ("-f",), ("-h",), ("-hv",), ("-L",), ("-D",), ("-o",), ("-lv",), ("-fhlLDoV",),
         ("-lX",), ("-arch", "arm64", "-h"), ("-arch", "armv7", "-L"), ("-arch", "all", "-h"),
         ("--arch=arm64", "-D"))
NM = ((), ("-j",), ("-m",), ("-u",), ("-U",), ("-g",), ("-a",), ("-am",), ("-n",), ("-v",), ("-p",),
      ("-r",), ("-A",), ("-o", "-j"), ("-gUjr",), ("-arch", "arm64"), ("-arch", "all", "-m"))


def companion(name, *arguments, tool=None, **more):
    tool = tool or name.split("/")[0]
    return Case(name, [[tool, *arguments]], **more)


def each(name, commands, **more):
    """One case that runs several commands."""
    return Case(name, [list(command) for command in commands], **more)


def helps():
    for tool in COMPANIONS:
        yield each(f"{tool}/helps", [(tool, "--help"), (tool, "-help"), (tool, "-h"),
                                     (tool, "--version"), (tool, "-v"), (tool,), (tool, "help")])
        yield each(f"{tool}/wrong", [(tool, "--wrong"), (tool, "-?"), (tool, "IN/gone"),
                                     (tool, ""), (tool, "-"), (tool, "--"), (tool, "IN/folder")])


def listings():
    files = [f"IN/macho/{name}" for name in PROGRAMS]
    for options in OTOOL:
        yield each("otool/" + " ".join(options), [("otool", *options, file) for file in files])
    for options in NM:
        yield each("nm/" + " ".join(options), [("nm", *options, file) for file in files])
    others = ["IN/gone", "IN/notes.txt", "IN/folder", "IN/damaged/empty", "IN/Fieldbook.ipa"]
    yield each("otool/other files", [("otool", "-l", file) for file in others])
    yield each("nm/other files", [("nm", file) for file in others])
    yield each("otool/several files", [("otool", "-hL", *files, "IN/gone"),
                                       ("otool", "-l", "--", "-x"), ("otool", "-arch"),
                                       ("otool", "-arch", "z80", "-h", files[0]),
                                       ("otool", "-arch", "i386", "-h", files[0]),
                                       ("otool", "-t", files[0]), ("otool", files[0]),
                                       ("otool", "-z", files[0]), ("otool", "-l")])
    yield each("nm/several files", [("nm", *files, "IN/gone"), ("nm", "-uU", files[0]),
                                    ("nm", "-arch", "z80", files[0]), ("nm", "-z", files[0]),
                                    ("nm", "-arch", "i386", files[0]), ("nm",)])


def damaged_images(images):
    for name in images:
        file = f"IN/damaged/{name}"
        yield each("damaged image " + name, [
            ("otool", "-fhlLDov", file), ("otool", "-l", file), ("nm", "-am", file), ("nm", file),
            ("lipo", "-info", file), ("lipo", "-detailed_info", file), ("lipo", "-archs", file),
            ("lipo", file, "-thin", "arm64", "-output", "thin"),
            ("codesign", "-d", "-vvvv", "--entitlements", ":-", file),
            ("codesign", "-v", "-vv", file),
            ("codesign", "-f", "-s", "iPhone Distribution: Example Corp", "copy"),
            ("codesign", "-v", "copy")], files={"copy": f"damaged/{name}"})


def lipo():
    universal, arm64, armv7 = "IN/macho/universal", "IN/macho/arm64", "IN/macho/armv7"
    intel = "IN/macho/symbols-x86_64.o"
    everything = [f"IN/macho/{name}" for name in PROGRAMS]
    yield each("lipo/questions", [
        *[("lipo", option, file) for option in ("-info", "-archs", "-detailed_info")
          for file in everything], ("lipo", "-info", *everything), ("lipo", "-archs", *everything),
        ("lipo", "-detailed_info", *everything, "IN/gone")])
    yield each("lipo/verify", [("lipo", universal, "-verify_arch", *archs) for archs in
                               (("arm64",), ("armv7", "arm64"), ("i386",), ("z80",), ())])
    for name, arguments in {
            "thin": (universal, "-thin", "arm64"), "thin absent": (universal, "-thin", "i386"),
            "thin of thin": (arm64, "-thin", "arm64"), "thin unknown": (universal, "-thin", "z80"),
            "create": ("-create", arm64, armv7), "create three": ("-create", intel, arm64, armv7),
            "create same": ("-create", arm64, arm64), "create of universal": (
                "-create", universal, intel), "create of text": ("-create", "IN/notes.txt", arm64),
            "create with arch": ("-create", "-arch", "arm64", arm64, "-arch", "armv7", armv7),
            "create wrong arch": ("-create", "-arch", "armv7", arm64),
            "extract": (universal, "-extract", "arm64"),
            "extract two": (universal, "-extract", "arm64", "-extract", "armv7"),
            "extract absent": (universal, "-extract", "i386"),
            "remove": (universal, "-remove", "armv7"),
            "remove all": (universal, "-remove", "armv7", "-remove", "arm64"),
            "replace": (universal, "-replace", "arm64", arm64),
            "replace absent": (universal, "-replace", "x86_64", intel),
            "replace wrong": (universal, "-replace", "arm64", armv7),
            "two actions": (universal, "-info", "-archs"), "no input": ("-create",)}.items():
        yield companion("lipo/" + name, *arguments, "-output", "made")
        yield companion(f"lipo/{name}, no output", *arguments)
    yield companion("lipo/in place", "own", "-thin", "arm64", "-o", "own",
                    files={"own": "macho/universal"})
    yield companion("lipo/output in missing folder", universal, "-thin", "arm64", "-output", "a/b")


def openssl():
    pem, key = "IN/identities/admin.pem", "IN/identities/admin.key"
    for name, arguments in {
            "subject": ("-in", pem, "-subject", "-noout"),
            "subject of der": ("-inform", "der", "-in", "cert.der", "-subject", "-noout"),
            "subject wrong form": ("-inform", "der", "-in", pem, "-subject", "-noout"),
            "subject gone": ("-in", "IN/gone", "-subject", "-noout"),
            "subject of text": ("-in", "IN/notes.txt", "-subject", "-noout"),
            "subject with issuer": ("-in", pem, "-subject", "-issuer", "-noout"),
            "subject in own form": ("-in", pem, "-subject", "-nameopt", "RFC2253", "-noout"),
            "subject and text": ("-in", pem, "-subject"), "dates": ("-in", pem, "-dates", "-noout"),
            "fingerprint": ("-in", pem, "-fingerprint", "-sha1", "-noout")}.items():
        yield Case("openssl/" + name, [
            ["/usr/bin/openssl", "x509", "-in", pem, "-outform", "DER", "-out", "cert.der"],
            ["openssl", "x509", *arguments]])
    yield Case("openssl/from input", [["openssl", "x509", "-subject", "-noout"]], stdin=b"none")
    yield each("openssl/others", [("openssl", "version"), ("openssl", "rsa", "-in", key, "-noout",
               "-check"), ("openssl", "dgst", "-sha256", "IN/notes.txt"), ("openssl", "nothing")])


UNZIP = ((), ("-q",), ("-qq",), ("-o",), ("-n",), ("-j",), ("-l",), ("-v",), ("-t",), ("-tq",),
         ("-p",), ("-Z1",), ("-lq",), ("-lqq",), ("-vq",), ("-oq", "-d", "target"), ("-d", "a/b/c"))


def unzip():
    for options in UNZIP:
        yield companion("unzip/" + " ".join(options), *options, "IN/archives/plain.zip")
    plain = "IN/archives/plain.zip"
    for name, arguments in {
            "member": (plain, "folder/text.txt"), "pattern": (plain, "*.txt"),
            "class": (plain, "[t]wo*"), "no match": (plain, "nothing*"),
            "one match of two": ("-l", plain, "*.sh", "no*"), "excluding": (plain, "-x", "*.txt"),
            "excluding all": (plain, "-x", "*"), "both": (plain, "folder/*", "-x", "*.sh"),
            "to the output": ("-p", plain, "folder/text.txt"), "without ending": (plain[:-4],),
            "pattern of archives": ("IN/archives/pl*.zip",), "gone": ("IN/gone",),
            "no folder": (plain, "-d"), "folder is a file": (plain, "-d", "IN/notes.txt"),
            "option unknown": ("-K", plain), "many letters": ("-qojd", "flat", plain)}.items():
        yield companion("unzip/" + name, *arguments, tool="unzip")
    for answers in ("y\ny\ny\n", "n\nN\n", "A\n", "x\ny\n", ""):
        yield Case(f"unzip/answers {answers!r}", [["unzip", plain], ["unzip", plain]],
                   stdin=answers.encode())
    yield each("unzip/again", [("unzip", "-q", plain), ("unzip", "-n", plain),
                               ("unzip", "-o", plain)])
    odd = [*archives.odd_archives(), *("damaged-" + name for name in damage.archives(bytes(3000)))]
    for name in odd:
        file = f"IN/archives/{name}.zip"
        yield each("unzip/archive " + name, [
            ("unzip", "-o", file, "-d", "out"), ("unzip", "-t", file), ("unzip", "-v", file),
            ("unzip", "-Z1", file), ("unzip", "-p", file), ("unzip", "-qo", file)])
    yield companion("unzip/app", "-q", "IN/Fieldbook.ipa")


def zipping():
    tree = {"tree": "tree"}
    for options in (("-r",), ("-ry",), ("-qr",), ("-qry",), ("-rj",), ("-rD",), ("-rX",), ("-r0",),
                    ("-r1",), ("-r6",), ("-r9",), (), ("-y",), ("-rqyXD9",), ("--recurse-paths",),
                    ("-r", "--symlinks", "--quiet"), ("-r", "--no-extra"), ("-r", "--wrong"),
                    ("-rK",), ("-r", "--junk-paths"), ("-r", "--no-dir-entries")):
        yield companion("zip/" + " ".join(options), *options, "made", "tree", files=tree)
    for name, arguments in {
            "files": ("made.zip", "tree/two words", "tree/ünï.txt"),
            "excluding": ("-r", "made.zip", "tree", "-x", "*.txt", "*.sh"),
            "excluding at": ("-r", "made.zip", "-x", "*.txt", "@", "tree"),
            "including": ("-r", "made.zip", "tree", "-i", "*.txt"),
            "excluding long": ("-r", "made.zip", "tree", "--exclude", "*deep*"),
            "including nothing": ("-r", "made.zip", "tree", "-i", "*.none"),
            "gone": ("made.zip", "gone"), "some gone": ("made.zip", "tree/two words", "gone"),
            "no files": ("made.zip",), "in missing folder": ("a/made.zip", "tree"),
            "other ending": ("-r", "made.ipa", "tree"), "to output": ("-", "tree"),
            "dot": ("-qr", "made.zip", "."), "path up": ("made.zip", "../work/tree/two words"),
            "odd name": ("made.zip", "--", "tree/[odd]*?.txt"), "twice": (
                "made.zip", "tree/two words", "tree/two words")}.items():
        yield companion("zip/" + name, *arguments, tool="zip", files=tree)
    yield each("zip/update", [("zip", "-r", "made", "tree"), ("zip", "made", "more"),
                              ("zip", "-r", "made", "tree"), ("zip", "-0", "made", "tree/two words")
                              ], files=tree | {"more": "notes.txt"})
    own = {"own.zip": "archives/plain.zip"}
    for name, arguments in {"": ("own.zip", "folder/*"), "several": (
            "own.zip", "*.txt", "two words"), "none": ("own.zip", "nothing"), "all": (
            "own.zip", "*"), "quiet": ("-q", "own", "folder/text.txt"), "gone": (
            "gone.zip", "x")}.items():
        yield companion(f"zip/delete {name}", "-d", *arguments, tool="zip", files=own)
    for name in ("damaged-cut-70", "text", "damaged-directory-0", "nothing", "encrypted",
                 "damaged-text", "commented"):
        source = f"archives/{name}.zip" if name != "text" else "notes.txt"
        yield companion(f"zip/adding to {name}", "-r", "own.zip", "tree", tool="zip",
                        files=tree | {"own.zip": source})
    for name in ("Fieldbook.ipa", "archives/damaged-cut-70.zip", "gone"):
        yield companion(f"zip/packed source {name}", "-qry", "made.zip", "Fieldbook.app",
                        tool="zip", files={"Fieldbook.app": "Fieldbook.app", "source.zip": name}
                        if name != "gone" else {"Fieldbook.app": "Fieldbook.app"},
                        environment={"TOVREK_PACKED_SOURCE": "source.zip"})


def small_ones():
    for name, arguments in {
            "find": ("--find", "codesign"), "find host": ("-f", "openssl"),
            "find none": ("--find", "nothing-of-this-name"), "run": ("lipo", "-info",
                                                                      "IN/macho/universal"),
            "run host": ("cat", "IN/notes.txt"), "run long": ("-sdk", "iphoneos", "--run", "otool",
                                                             "-h", "IN/macho/arm64"),
            "status": ("lipo", "-info", "IN/gone"), "none": ("nothing-of-this-name",),
            "sdk path": ("--sdk", "iphoneos", "--show-sdk-path"), "sdk last": ("--sdk",),
            "sdk version": ("--show-sdk-version",), "ignored": ("-l", "-n", "-k", "-v", "-r",
                                                                 "--find", "nm")}.items():
        yield companion("xcrun/" + name, *arguments, tool="xcrun")
    for name, arguments in {
            "": ("Fieldbook.app",), "output": ("Fieldbook.app", "-o", "Made.ipa"),
            "verbose": ("Fieldbook.app", "-v", "-o", "Made.ipa"),
            "signed": ("Fieldbook.app", "-s", "iPhone Distribution: Example Corp", "-o", "Made.ipa",
                       "-e", "IN/Example.mobileprovision"),
            "signer unknown": ("Fieldbook.app", "--sign", "nobody", "-o", "Made.ipa"),
            "profile gone": ("Fieldbook.app", "--embed", "IN/gone", "-o", "Made.ipa"),
            "gone": ("Gone.app",), "no app": (), "unknown": ("Fieldbook.app", "--wrong"),
            "in missing folder": ("Fieldbook.app", "-o", "gone/Made.ipa"),
            "not an app": ("IN/notes.txt", "-o", "Made.ipa")}.items():
        for host in ("host", "no host"):
            more = {"TOVREK_HOST_ROOT": ""} if host == "no host" else {}
            yield companion(f"xcrun/package {name} ({host})", "-sdk", "iphoneos",
                            "PackageApplication", *arguments, tool="xcrun", environment=more,
                            files={"Fieldbook.app": "Fieldbook.app"})
    yield each("xcode-select/all", [("xcode-select", *words) for words in (
        ("--install",), ("-p",), ("--print-path",), ("-s", "/x"), ("-s",), ("-r",), ("--reset",),
        ("-v",), ("-p", "x"), ("--switch", "/x", "y"))])
    yield each("xcode-select/no host root", [("xcode-select", "-p")],
               environment={"TOVREK_HOST_ROOT": ""})
    tools, line = "com.apple.pkg.CLTools_Executables", "com.apple.pkg.DeveloperToolsCLI"
    yield each("pkgutil/all", [("pkgutil", *words) for words in (
        ("--pkgs",), ("--pkgs=.*CLI",), ("--pkgs", ".*Tools.*"), ("--pkgs=none",), ("--pkgs=(",),
        ("--pkg-info", tools), ("--pkg-info=" + line,), ("--pkg-info-plist", tools),
        ("--pkg-info", "none"), ("--volume", "/", "--pkgs"), ("--pkg-info",),
        ("--pkgs", "a", "b"))])


def real_programs(names):
    for name in names:
        file = f"IN/real/{name}"
        if name.endswith((".md", ".png", ".ipa")):
            continue
        yield each("real program " + name, [
            ("otool", "-fhlLDov", file), ("otool", "-l", file), ("otool", "-oX", file),
            ("nm", file), ("nm", "-am", file), ("nm", "-gUjn", file), ("lipo", "-info", file),
            ("lipo", "-detailed_info", file), ("codesign", "-d", "-vvvvvv", "-r-", file),
            ("codesign", "-d", "--entitlements", ":-", file),
            ("codesign", "-d", "--extract-certificates=cert", file),
            ("codesign", "-v", "-vv", "--strict", file),
            ("security", "cms", "-D", "-i", file),
            ("codesign", "-f", "-s", "iPhone Distribution: Example Corp", "copy"),
            ("codesign", "-v", "-vv", "copy"), ("codesign", "--remove-signature", "copy")],
            files={"copy": f"real/{name}"})


def cases(images, real):
    return itertools.chain(helps(), listings(), lipo(), openssl(), unzip(), zipping(), small_ones(),
                           damaged_images(images), real_programs(real))
