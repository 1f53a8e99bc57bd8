"""Cases of the toolkit's own commands."""
import itertools

from comparing import archives, damage
from comparing.case import Case
from comparing.inputs import ADMIN, BRANCH, DEVELOPER, PROFILES, STORE
from comparing.masking import GIVEN_ID

LOG = ("-logFile", "log.txt", "-logWriteLevel", "4")
EXAMPLE, OF_BRANCH = "IN/Example.mobileprovision", "IN/Branch.mobileprovision"
APP = "IN/Fieldbook.ipa"
OUT = ("-out", "Out.wex")
REQUIRED = ("-storeURL", STORE, "-entitlements", "IN/sdk-entitlements.plist")
TOOLS = ("codesign", "security", "lipo", "otool", "nm", "openssl", "zip", "unzip")
MADE_PROFILES = ("no-certificates", "certificate-odd", "no-entitlements", "entitlements-text",
                 "no-team", "devices", "no-list")


def wrap(name, *options, app=APP, cert=ADMIN, profile=EXAMPLE, out=OUT, log=LOG, **more):
    words = ["Tovrek", "Wrap", "-Cert", cert, "-Profile", profile, "-in", app, *out, *log, *options]
    return Case("wrap/" + name, [words], **more)


def sign(name, *options, app="IN/App.wex", cert=BRANCH, profile=OF_BRANCH, out=OUT, log=LOG,
         **more):
    words = ["Tovrek", "Sign", "-Cert", cert, "-Profile", profile, "-in", app, *out, *log, *options]
    return Case("sign/" + name, [words], **more)


def set_info(name, *options, app="IN/App.wex", out=OUT, log=LOG, **more):
    return Case("set-info/" + name,
                [["Tovrek", "SetInfo", "-in", app, *out, *log, *options]], **more)


def sdk_prep(name, *options, app="Gauge.app", required=REQUIRED, log=LOG, **more):
    more.setdefault("files", {"Gauge.app": app} if app else {})
    return Case("sdk-prep/" + name,
                [["Tovrek", "SdkPrep", "-in", "Gauge.app", *OUT, *required, *log, *options]],
                **more)


def words(name, *arguments, **more):
    """A command line that is judged as it stands."""
    return Case("words/" + name, [["Tovrek", *arguments]], **more)


def both_settings(make, name, *options, **more):
    """The case with the shipped settings, and with all of them on."""
    return [make(name, *options, **more),
            make(name + " (all settings)", *options, settings="all", **more)]


def wrap_options():
    yield from both_settings(wrap, "plain")
    yield from both_settings(wrap, "extensions kept", "-noStripExtensions")
    yield from both_settings(wrap, "limits", "-minPlatform", "10.0", "-maxPlatform", "14.1",
                             "-excludedDevices", "ipad")
    yield wrap("both outputs as one", merge=True)
    yield wrap("limits empty", "-minPlatform", "", settings="all")
    for name, options in {
            "bundle identifier": ("-bundleID", "com.example.managed.fieldbook"),
            "bundle identifier odd": ("-bundleID", "not an/identifier"),
            "bundle identifier empty": ("-bundleID", ""),
            "description": ("-appDesc", 'Notes & "more" <of it> ü'),
            "name": ("-appName", "My notes"), "name odd": ("-appName", 'A "b" & <c>'),
            "upgrade": ("-upgrade",), "network only": ("-useNetworkOnlyLib",),
            "intune": ("-adalClientID", " client ", "-adalNSGResource", "resource"),
            "policies": ("-policyXML", "IN/policies.xml"),
            "policies broken": ("-policyXML", "IN/broken.xml"),
            "policies missing": ("-policyXML", "IN/gone.xml"),
            "type general": ("-appType", "General"), "type premium": ("-appType", "premium"),
            "type enterprise": ("-appType", "ENTERPRISE", "-storeURL", STORE),
            "type enterprise, no address": ("-appType", "enterprise"),
            "type wrong": ("-appType", "other"), "mode 1": ("-appMode", "1"),
            "mode 2": ("-appMode", "2"), "mode 3": ("-appMode", "3"), "mode 4": ("-appMode", "x"),
            "address": ("-storeURL", STORE), "address odd": ("-storeURL", "no address"),
            "sdk": ("-sdk",), "package app": ("-packageApp",),
            "package app enterprise": ("-packageApp", "-appType", "enterprise", "-storeURL", STORE),
            "unknown option": ("-what",), "option twice": ("-upgrade", "-upgrade"),
            "value twice": ("-appDesc", "same", "-appName", "same"),
            "pell": ("-pell", "-keychainPath", "IN/identities/admin.keychain.pem"),
            "pell gone": ("-pell", "-keychainPath", "IN/gone.pem"),
            "many": ("-noStripExtensions", "-bundleID", "com.example.other", "-upgrade",
                     "-useNetworkOnlyLib", "-appDesc", "All", "-appName", "Other")}.items():
        yield wrap(name, *options)


def wrap_outputs():
    for name, out in {
            "out bundle": ("-outBundle", "Out.ipa"), "without ending": ("-out", "Out"),
            "both": ("-out", "Out.wex", "-outBundle", "Bundle.ipa"), "none": (),
            "in missing folder": ("-out", "gone/Out.wex"), "as archive": ("-out", "Out.zip"),
            "bundle as package": ("-outBundle", "Bundle.wex"), "blanks": ("-out", " Out two.wex "),
            "capital": ("-out", "Out.WEX"), "with a dot": ("-out", "Out.1.wex"),
            "folder": ("-out", "folder")}.items():
        yield wrap("output " + name, out=out, files={"folder": "folder"})
    yield wrap("output replaced", files={"Out.wex": "notes.txt"})
    yield wrap("output folder read-only", out=("-out", "/proc/Out.wex"))
    for level in range(6):
        yield wrap(f"levels {level}", log=("-logFile", "log.txt", "-logWriteLevel", str(level)))
        yield wrap(f"display {level}", log=("-logFile", "log.txt", "-logDisplayLevel", str(level)))
    yield wrap("log by default", log=(), own_toolkit=True)
    yield wrap("log in missing folder", log=("-logFile", "gone/log.txt", "-logWriteLevel", "4"))
    yield wrap("log appended to", files={"log.txt": "notes.txt"})
    yield wrap("log is a folder", log=("-logFile", "folder", "-logWriteLevel", "3"),
               files={"folder": "folder"})


def identities_and_profiles():
    certificates = {"unknown": "iPhone Distribution: Nobody", "hash unknown": "0" * 40,
                    "part": "iPhone Distribution: Example", "empty": "", "case": ADMIN.upper(),
                    "developer": DEVELOPER, "blanks": f" {ADMIN} "}
    for make in (wrap, sign):
        for name, cert in certificates.items():
            yield make("certificate " + name, cert=cert, profile=EXAMPLE)
        yield make("no identities", cert=ADMIN, profile=EXAMPLE, keychain="keychain-empty")
        yield make("only other identity", cert=BRANCH, profile=OF_BRANCH,
                   keychain="keychain-admin")
    named = [*PROFILES, *MADE_PROFILES,
             *("damaged-" + name for name in damage.messages(bytes(100)))]
    for name in named:
        profile = f"IN/profiles/{name}.mobileprovision"
        yield wrap("profile " + name, profile=profile)
        if not name.startswith("damaged"):
            yield sign("profile " + name, cert=ADMIN, profile=profile)
    for name in ("specific", "other-app", "other-apps", "app-family"):
        profile = f"IN/profiles/{name}.mobileprovision"
        yield wrap(f"profile {name}, other identifier", "-bundleID", "com.other.app",
                   profile=profile)
        yield wrap(f"profile {name}, upgrade", "-upgrade", profile=profile)
        yield sign(f"profile {name}, upgrade", "-upgrade", cert=ADMIN, profile=profile)
        yield sign(f"profile {name} (all settings)", cert=ADMIN, profile=profile,
                   app="IN/Kept.wex", settings="all")
    yield wrap("profile of the developer", cert=DEVELOPER,
               profile="IN/profiles/developer.mobileprovision")
    yield wrap("profile gone", profile="IN/gone.mobileprovision")
    yield wrap("profile is a folder", profile="IN/folder")


def app_variants():
    for name in archives.APPS:
        yield from both_settings(wrap, "app " + name, app=f"IN/apps/{name}.ipa")
    for name in ("same", "no-signature", "no-extensions", "no-frameworks", "info-text", "two-apps",
                 "no-payload", "link-outside", "app-with-blank", "no-executable", "no-profile",
                 "extension-without-info", "framework-without-info", "loose-library"):
        yield from both_settings(sign, "app " + name, app=f"IN/apps/{name}.ipa",
                                 out=("-out", "Out.ipa"))
    for name in ("intune", "intune-settings"):
        for values in (("client", "resource"), ("", "")):
            yield wrap(f"app {name}, values {values[0]!r}", "-adalClientID", values[0],
                       "-adalNSGResource", values[1], app=f"IN/apps/{name}.ipa")
    for name in damage.archives(bytes(3000)):
        yield wrap("damaged app " + name, app=f"IN/apps/damaged-{name}.ipa")
        yield sign("damaged package " + name, app=f"IN/packages/damaged-{name}.wex")
    for name in archives.PACKAGES:
        yield from both_settings(sign, "package " + name, app=f"IN/packages/{name}.wex")
        yield set_info("package " + name, "-appDesc", "New", app=f"IN/packages/{name}.wex")


def code_variants(images):
    for name in images:
        yield wrap("code " + name, app=f"IN/code/{name}.ipa")
    for name in ("arm64", "armv7", "objects", "unsigned", "symbols-arm64.o", "library"):
        yield from both_settings(wrap, f"code as-{name}", app=f"IN/code/as-{name}.ipa")
    for name in ("thin-0", "thin-1", "thin-2", "signature-0", "signature-1", "cut-50", "encrypted"):
        yield sign("code " + name, app=f"IN/code/{name}.ipa", out=("-out", "Out.ipa"))


def missing_parts():
    """Parts of the installed folder and of the host that are not there, and tools that fail."""
    for part in ("Data", "Data/Orvane.bundle", "Data/OrvaneDylib.bundle",
                 "Data/policy_metadata.xml", "Data/WEXSDK", "Data/ResourceRules.plist",
                 "Data/strings-de.xml", "Data/com.example.fieldbook_policy_metadata.xml",
                 "tovrek.conf", "logs",
                 "Data/OrvaneDylib.bundle/OrvaneDylib.dylib",
                 "Data/OrvaneDylib.bundle/WexAssets.bundle"):
        yield wrap("without " + part, own_toolkit=True, without=("tovrek/" + part,))
    for part in ("Data", "Data/Orvane.bundle", "Data/WEXSDK", "Data/policy_metadata.xml"):
        yield sdk_prep("without " + part, own_toolkit=True, without=("tovrek/" + part,))
    for tool in TOOLS:
        failing = {"COMPARE_FAIL": tool, "COMPARE_STATUS": "7"}
        yield wrap(f"{tool} fails", environment=failing)
        yield sign(f"{tool} fails", environment=failing)
        yield wrap(f"without {tool}", own_toolkit=True, without=(f"host/usr/bin/{tool}",))
    for call in ("codesign 2", "codesign 3", "codesign 4", "codesign 5", "codesign 6", "codesign 7",
                 "zip 2", "lipo 2", "lipo 3", "lipo 4", "otool 2", "otool 3", "nm 2", "unzip 2",
                 "security 2", "security 3"):
        failing = {"COMPARE_FAIL": call, "COMPARE_STATUS": "1"}
        yield wrap(f"call {call} fails", environment=failing)
        yield sign(f"call {call} fails", environment=failing, settings="all", app="IN/Kept.wex")
    version = "host/System/Library/CoreServices/SystemVersion.plist"
    yield wrap("without system version", own_toolkit=True, without=(version,))
    yield set_info("zip fails", environment={"COMPARE_FAIL": "zip", "COMPARE_STATUS": "12"})
    yield set_info("unzip fails", environment={"COMPARE_FAIL": "unzip", "COMPARE_STATUS": "9"})


def settings_files():
    names = ("modernImages", "strictHeaderRoom", "resignNested", "resignWrapped", "keepPlistLimits",
             "refreshOnResign", "keepExtensionsOnSign")
    for name in names:
        only = f"{name} = yes\n"
        yield wrap("only " + name, app="IN/apps/own-limits.ipa", settings=only)
        yield sign("only " + name, app="IN/Kept.wex", settings=only)
        yield sign(f"app, only {name}", app=APP, out=("-out", "Out.ipa"), settings=only)
    for name, text in {"unknown": "modernimages = yes\n", "no value": "modernImages\n",
                       "wrong value": "modernImages = Yes\n", "no name": "= yes\n",
                       "twice": "modernImages = no\n# x\nmodernImages = no\n",
                       "none": "# nothing\n\n"}.items():
        yield wrap("settings file " + name, settings=text)
    yield wrap("settings file gone", environment={"TOVREK_CONF": "/gone/tovrek.conf"})


def signing():
    yield from both_settings(sign, "package")
    yield from both_settings(sign, "package with extensions", app="IN/Kept.wex")
    yield from both_settings(sign, "app", app=APP, out=("-out", "Out.ipa"))
    yield from both_settings(sign, "wrapped app", app="IN/Wrapped.ipa", out=("-out", "Out.ipa"))
    yield from both_settings(sign, "package of the SDK", app="IN/Sdk.wex")
    yield from both_settings(sign, "app of the SDK", app="IN/Sdk.ipa", out=("-out", "Out.ipa"))
    yield from both_settings(sign, "store package", app="IN/Store.wex")
    yield sign("same team", cert=ADMIN, profile=EXAMPLE)
    yield sign("output beside", app="My app.wex", out=(), files={"My app.wex": "App.wex"})
    yield sign("app output beside", app="App.ipa", out=(), files={"App.ipa": "Fieldbook.ipa"})
    for name, app in {"text": "IN/notes.txt", "gone": "IN/gone.wex", "folder": "IN/folder",
                      "app folder": "IN/Fieldbook.app"}.items():
        yield sign("input " + name, app=app)
    yield sign("input capital", app="App.WEX", files={"App.WEX": "App.wex"})
    for name, options in {"upgrade": ("-upgrade",), "re-sign": ("-reSign", "yes"),
                          "package no": ("-wexResign", "no"), "unknown": ("-bundleID", "x.y"),
                          "conflict": ("-reSign", "yes", "-wexResign", "YES")}.items():
        yield sign("option " + name, *options)
        yield sign("app, option " + name, *options, app=APP, out=("-out", "Out.ipa"))
    for name, out in {"zip": ("-out", "Out.zip"), "gone": ("-out", "gone/Out.wex"),
                      "ipa": ("-out", "Out.ipa"), "none": ("-out", "Out")}.items():
        yield sign("output " + name, out=out)
        yield sign("app, output " + name, app=APP, out=out)
    for level in ("0", "1", "2", "3", "4", "x"):
        yield sign("display " + level, log=("-logFile", "log.txt", "-logDisplayLevel", level))


def changing_packages():
    store = "IN/Store.wex"
    for name, options in {
            "nothing": (), "description": ("-appDesc", 'Notes & "more" <of it>'),
            "all": ("-appDesc", "New", "-minPlatform", "10.1", "-maxPlatform", "14",
                    "-excludedDevices", "ipad", "-policyXML", "IN/policies.xml"),
            "emptied": ("-appDesc", "", "-minPlatform", " "),
            "policies gone": ("-policyXML", "IN/gone.xml"), "address": ("-storeURL", STORE + "/2"),
            "address odd": ("-storeURL", "https:///x"), "embed": ("-embedBundle", APP),
            "embed gone": ("-embedBundle", "IN/gone.ipa"), "embed dots": ("-embedBundle", ".."),
            "embed folder": ("-embedBundle", "IN/folder"), "unknown": ("-Cert", "x"),
            "both": ("-storeURL", STORE, "-embedBundle", APP),
            "unicode": ("-appDesc", "日本 ü\tx"), "display": ("-logDisplayLevel", "3")}.items():
        yield set_info(name, *options)
        yield set_info("store, " + name, *options, app=store)
    yield from both_settings(set_info, "input gone", app="IN/gone.wex")
    yield set_info("input app", app=APP)
    yield set_info("input text", app="IN/notes.txt")
    yield set_info("output replaced", files={"Out.wex": "notes.txt"})
    yield set_info("output without ending", out=("-out", "Out"))
    yield set_info("output ipa", out=("-out", "Out.ipa"))
    yield set_info("no output", out=())
    yield set_info("itself", app="Own.wex", out=("-out", "./Own.wex"), files={"Own.wex": "App.wex"})
    for name in damage.archives(bytes(3000)):
        yield set_info("damaged package " + name, app=f"IN/packages/damaged-{name}.wex")


def preparing():
    yield from both_settings(sdk_prep, "plain", "-packageId", GIVEN_ID)
    for name, options in {
            "generated identity": (),
            "all": ("-packageId", GIVEN_ID, "-appType", "General", "-appDesc", 'The "gauge"',
                    "-minPlatform", "9.1", "-maxPlatform", "14", "-excludedDevices", '"ipad"',
                    "-appIdPrefix", "EXAMPLE123", "-adalClientID", " client ", "-adalNSGResource",
                    "resource", "-logDisplayLevel", "1"),
            "policies": ("-appMode", "5", "-policyXML", "IN/policies.xml"),
            "policies broken": ("-policyXML", "IN/broken.xml"),
            "policies gone": ("-policyXML", "IN/gone.xml"),
            **{f"mode {mode}": ("-appMode", mode) for mode in ("1", "2", "3", "4", "5", "2x")},
            **{f"type {kind}": ("-appType", kind) for kind in
               ("premium", "general", "enterprise", "activation", "sdkapp", "other")},
            "prefix": ("-appIdPrefix", "EXAMPLE123/../x"), "unknown": ("-Cert", "x")}.items():
        yield sdk_prep(name, *options)
    for name in ("intune-first", "two", "intune-second", "script", "damaged", "info-text",
                 "without-CFBundleIcons", "without-CFBundleIdentifier",
                 "without-CFBundleExecutable"):
        yield sdk_prep("app " + name, app=f"sdk/{name}/Gauge.app")
    yield sdk_prep("app not of the SDK", files={"Gauge.app": "Fieldbook.app"})
    yield sdk_prep("app gone", app="")
    yield sdk_prep("fingerprint tool gone", app="fingerprint/Gauge.app")
    for status in (0, 1, 255):
        tool = f'#!/bin/sh\necho "$@"\nexit {status}\n'.encode()
        yield sdk_prep(f"fingerprint tool {status}", app="fingerprint/Gauge.app", own_toolkit=True,
                       content={"incore_macho": tool})
    for name, required in {
            "entitlements gone": ("-storeURL", STORE, "-entitlements", "IN/gone.plist"),
            "entitlements text": ("-storeURL", STORE, "-entitlements", "IN/notes.txt"),
            "no group": ("-storeURL", STORE, "-entitlements", "IN/no-group.plist"),
            "no entitlements": ("-storeURL", STORE, "-entitlements", "IN/no-entitlements.plist"),
            "no address": ("-entitlements", "IN/sdk-entitlements.plist"),
            "address odd": ("-storeURL", "no", "-entitlements", "IN/sdk-entitlements.plist"),
            "address escaped": ("-storeURL", "https://a.example.com/the gauge?a=1&b=ü",
                                "-entitlements", "IN/sdk-entitlements.plist")}.items():
        yield sdk_prep(name, required=required)
    twice = sdk_prep("twice", "-packageId", GIVEN_ID)
    twice.steps *= 2
    yield twice
    enterprise = Case("wrap/enterprise app folder", [[
        "Tovrek", "Wrap", "-Cert", ADMIN, "-Profile", EXAMPLE, "-in", "Gauge.app", *OUT,
        "-appType", "enterprise", "-storeURL", STORE, *LOG]], files={"Gauge.app": "Gauge.app"})
    yield enterprise
    yield wrap("SDK app", app="IN/Sdk.ipa")
    yield wrap("SDK app enterprise", "-appType", "enterprise", "-storeURL", STORE, app="IN/Sdk.ipa")
    yield wrap("SDK app embedded", "-appType", "enterprise", "-packageApp", "-storeURL", STORE,
               app="IN/Sdk.ipa")


def command_lines():
    yield words("none")
    for word in ("Wrap", "Sign", "SetInfo", "GetInfo", "SdkPrep"):
        yield words(word + " alone", word)
        yield words(word + " help", word.lower(), "-HELP")
        yield words(word + " in only", word, "-in", APP)
        yield words(word + " missing value", word, "-in", "-out")
        yield words(word + " not first", "-in", word)
        yield words(word + " unknown option", word, "-unknown", "x")
        yield words(word + " no option", word, "value")
        yield words(word + " level", word, "-logWriteLevel", "99999999999999999999")
        yield words(word + " level odd", word, "-logDisplayLevel", "-1")
        yield words(word + " last value missing", word, "-in", APP, "-logFile")
    for name, arguments in {"help": ("-help",), "help long": ("--help",), "unknown": ("Unwrap",),
                            "two": ("Wrap", "Sign"), "version": ("-version",), "empty": ("",),
                            "twice": ("Wrap", "-in", "x", "x"), "blank": ("Wrap ",),
                            "get info": ("GetInfo", "-in", "IN/App.wex"),
                            "odd characters": ("Wrap", "-in", "a{}b%s.ipa", "-out", "ü\n.wex")
                            }.items():
        yield words(name, *arguments)
    for name in ("-Cert", "-Profile", "-in", "-out", "-outBundle", "-appMode", "-policyXML",
                 "-keychainPath", "-storeURL", "-entitlements", "-embedBundle"):
        for word in ("Wrap", "Sign", "SetInfo", "SdkPrep"):
            yield words(f"{word} {name} last", word, name)


def real_apps(names):
    for name in names:
        if name.endswith(".ipa"):
            yield from both_settings(wrap, "real " + name, app=f"IN/real/{name}")
            yield from both_settings(sign, "real " + name, app=f"IN/real/{name}",
                                     out=("-out", "Out.ipa"))
        if name.endswith(".mobileprovision"):
            yield wrap("real " + name, profile=f"IN/real/{name}")


def input_files():
    for name, app in {"gone": "IN/gone.ipa", "text": "IN/notes.txt", "package": "IN/App.wex",
                      "wrapped": "IN/Wrapped.ipa", "folder": "IN/folder",
                      "app folder": "IN/Fieldbook.app"}.items():
        yield from both_settings(wrap, "input " + name, app=app)
    yield wrap("input capital", app="App.IPA", files={"App.IPA": "Fieldbook.ipa"})
    yield wrap("input odd name", app="it's \"my\" $app ü.ipa",
               files={"it's \"my\" $app ü.ipa": "Fieldbook.ipa"})
    yield wrap("input with dash", app="./-q.ipa", files={"-q.ipa": "Fieldbook.ipa"})
    yield wrap("temporary folder gone", environment={"TMPDIR": "/gone"})


def cases(images, real):
    return itertools.chain(command_lines(), wrap_options(), wrap_outputs(), input_files(),
                           identities_and_profiles(), signing(), changing_packages(), preparing(),
                           settings_files(), app_variants(), code_variants(images), missing_parts(),
                           real_apps(real))
