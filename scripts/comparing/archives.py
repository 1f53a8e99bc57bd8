"""Archives as inputs: apps changed in one point, packages, and archives that are odd themselves."""
import io
import plistlib
import stat
import zipfile

DATE = (2021, 3, 4, 5, 6, 8)
APP = "Payload/Fieldbook.app/"


def entries_of(data):
    """The entries of an archive: (mode, contents) by name."""
    with zipfile.ZipFile(io.BytesIO(data)) as archive:
        return {entry.filename: (entry.external_attr >> 16, archive.read(entry))
                for entry in archive.infolist()}


def packed(entries, method=zipfile.ZIP_DEFLATED):
    """An archive of entries (mode, contents) by name, with an old date."""
    buffer = io.BytesIO()
    with zipfile.ZipFile(buffer, "w") as archive:
        for name, (mode, content) in entries.items():
            archive.writestr(entry(name, mode, method), content)
    return buffer.getvalue()


def entry(name, mode=0o100644, method=zipfile.ZIP_DEFLATED):
    item = zipfile.ZipInfo(name, DATE)
    item.create_system, item.external_attr = 3, mode << 16
    item.compress_type = zipfile.ZIP_STORED if name.endswith("/") else method
    return item


def with_info(change):
    """A change of an app's Info.plist: a function on its values."""
    def changed(entries):
        name = APP + "Info.plist"
        values = plistlib.loads(entries[name][1])
        change(values)
        return entries | {name: (0o100644, plistlib.dumps(values))}
    return changed


def without(*starts):
    """Leaves out what begins so below the app."""
    return lambda entries: {name: value for name, value in entries.items()
                            if not name.startswith(tuple(APP + start for start in starts))}


def adding(**files):
    return lambda entries: entries | {name: (0o100644, data) for name, data in files.items()}


def file_of(name, content, mode=0o100644):
    return lambda entries: entries | {APP + name: (mode, content)}


def moved(old, new):
    return lambda entries: {name.replace(old, new, 1) if name.startswith(old) else name: value
                            for name, value in entries.items()}


def info_as(content):
    return file_of("Info.plist", content)


def set_values(**values):
    return with_info(lambda info: info.update(values))


def drop(*keys):
    return with_info(lambda info: [info.pop(key, None) for key in keys])


def first_half_of_info(entries):
    content = entries[APP + "Info.plist"][1]
    return info_as(content[:len(content) // 2])(entries)


def second_app(entries):
    return entries | {name.replace("Fieldbook.app", "Another.app", 1): value
                      for name, value in entries.items() if name.startswith(APP)}


def intune_settings(entries):
    """An app with Intune inside and a client of its own."""
    settings = {"ADALClientId": "own client"}
    return APPS["intune"](set_values(IntuneMAMSettings=settings)(entries))


URL_TYPES = [{"CFBundleURLName": "x"}, {"CFBundleURLSchemes": ["one", "two"]}, "text"]

# Each makes an app archive from the demo app's entries.
APPS = {
    "same": lambda entries: entries,
    "no-info": without("Info.plist"),
    "info-text": info_as(b"this is no property list\n"),
    "info-cut": first_half_of_info,
    "info-empty": info_as(plistlib.dumps({})),
    "info-array": info_as(plistlib.dumps(["a"])),
    "info-xml": with_info(lambda info: None),
    "no-identifier": drop("CFBundleIdentifier"),
    "identifier-number": set_values(CFBundleIdentifier=7),
    "identifier-odd": set_values(CFBundleIdentifier="com.example/odd name"),
    "no-executable-key": drop("CFBundleExecutable"),
    "executable-elsewhere": set_values(CFBundleExecutable="../../Fieldbook"),
    "no-executable": without("Fieldbook"),
    "no-names": drop("CFBundleName", "CFBundleDisplayName"),
    "name-odd": set_values(CFBundleDisplayName='Fïeld "book" & <Co>', CFBundleName="it's"),
    "no-versions": drop("CFBundleShortVersionString", "CFBundleVersion"),
    "version-number": set_values(CFBundleShortVersionString=3, CFBundleVersion=4.5),
    "late-system": set_values(MinimumOSVersion="14.2", UIDeviceFamily=[2]),
    "own-limits": set_values(MinPlatform="8.0", ExcludeDeviceTypes="ipad", MaxPlatform="15"),
    "url-types-odd": set_values(CFBundleURLTypes=URL_TYPES),
    "url-types-text": set_values(CFBundleURLTypes="text"),
    "queries-schemes": set_values(LSApplicationQueriesSchemes=["one"],
                                  UIBackgroundModes=["fetch"]),
    "no-icon-keys": drop("CFBundleIcons"),
    "icon-files": set_values(CFBundleIconFiles=["AppIcon29x29.png", "missing.png"],
                             CFBundleIconFile="AppIcon60x60"),
    "icons-odd": set_values(CFBundleIcons={"CFBundlePrimaryIcon": "AppIcon29x29"}),
    "no-icons": without("AppIcon"),
    "icon-text": file_of("AppIcon29x29.png", b"no image"),
    "no-profile": without("embedded.mobileprovision"),
    "no-signature": without("_CodeSignature"),
    "no-frameworks": without("Frameworks"),
    "framework-without-code": without("Frameworks/Ledger.framework/Ledger"),
    "framework-without-info": without("Frameworks/Ledger.framework/Info.plist"),
    "no-extensions": without("PlugIns", "Watch"),
    "extension-without-info": without("PlugIns/Share.appex/Info.plist"),
    "loose-library": file_of("Frameworks/libloose.dylib", b"no library", 0o100755),
    "intune": file_of("IntuneMAMResources.bundle/x", b"x"),
    "intune-settings": intune_settings,
    "own-policies": file_of("policy_metadata.xml", b"<PolicyMetadata/>\n"),
    "own-rules": file_of("ResourceRules.plist", plistlib.dumps({"rules": {"^": True}})),
    "own-resource-rules": set_values(CFBundleResourceSpecification="ResourceRules.plist"),
    "left-by-wrapping": file_of("Orvane.plist", plistlib.dumps({"PackageID": "x"})),
    "strange-names": adding(**{APP + "ü 日本.txt": b"x\n", APP + "a 'b' \"c\".txt": b"y\n",
                               APP + "-q": b"z\n", APP + "$HOME`id`": b"w\n"}),
    "link-inside": file_of("link", b"PkgInfo", 0o120777),
    "link-outside": file_of("link", b"../../../../../../etc/passwd", 0o120777),
    "path-outside": adding(**{"../outside.txt": b"x"}),
    "read-only": file_of("locked.txt", b"x", 0o100444),
    "junk": adding(**{"__MACOSX/._x": b"x", ".DS_Store": b"y", APP + ".DS_Store": b"z",
                      "SwiftSupport/iphoneos/libswift.dylib": b"s", "Symbols/x.symbols": b"q"}),
    "no-payload": moved("Payload/", "Pay/"),
    "payload-small": moved("Payload/", "payload/"),
    "no-app": moved(APP, "Payload/Fieldbook/"),
    "two-apps": second_app,
    "app-with-blank": moved(APP, "Payload/Field book's.app/"),
    "only-metadata": lambda entries: {"iTunesMetadata.plist": entries["iTunesMetadata.plist"]},
}

# Each makes a package from the entries of one that Wrap made.
PACKAGES = {
    "same": lambda entries: entries,
    "no-manifest": lambda entries: {n: v for n, v in entries.items() if n != "manifest.xml"},
    "manifest-text": adding(**{"manifest.xml": b"no manifest"}),
    "manifest-empty": adding(**{"manifest.xml": b"<MobileAppPackage/>"}),
    "manifest-declared": adding(**{"manifest.xml": b'<?xml version="1.0"?><!DOCTYPE a [<!ENTITY b '
                                   b'"c">]><MobileAppPackage>&b;</MobileAppPackage>'}),
    "no-app": lambda entries: {n: v for n, v in entries.items() if not n.endswith(".ipa")},
    "app-text": adding(**{"Fieldbook.ipa": b"no archive"}),
    "two-apps": lambda entries: entries | {"Another.ipa": entries["Fieldbook.ipa"]},
    "languages": adding(**{"strings-xx.strings": b'"a" = "b";\n', "other.strings": b"x\n",
                           "notes.txt": b"y\n", "logo.png": b"z"}),
    "in-folder": lambda entries: {"Folder/" + n: v for n, v in entries.items()},
    "only-manifest": lambda entries: {"manifest.xml": entries["manifest.xml"]},
}


def plain_entries():
    """What an ordinary archive holds: folders, modes, links, names."""
    text = b"".join(b"line %d of a text that packs well\n" % index for index in range(300))
    return {
        "folder/": (0o40755, b""), "folder/empty/": (0o40700, b""),
        "folder/text.txt": (0o100644, text), "folder/run.sh": (0o100755, b"#!/bin/sh\necho x\n"),
        "folder/nothing": (0o100600, b""), "folder/link": (0o120777, b"text.txt"),
        "folder/deep/er/file.bin": (0o100640, bytes(range(256)) * 4),
        "ünï.txt": (0o100644, b"umlauts\n"), "two words": (0o100444, b"blank\n"),
        "[odd]*?.txt": (0o100644, b"pattern\n")}


def changed_entry(change, names=("a.txt", "b.txt")):
    """An archive of small files; `change` gets each entry before it is written."""
    buffer = io.BytesIO()
    with zipfile.ZipFile(buffer, "w") as archive:
        for name in names:
            item = entry(name)
            change(item)
            archive.writestr(item, b"contents of a file\n" * 20)
    return buffer.getvalue()


def odd_archives():
    """Archives that unpacking programs have to refuse, or to take with care."""
    plain = packed(plain_entries())
    two = changed_entry(lambda item: None)
    link = stat.S_IFLNK | 0o777
    return {
        "plain": plain,
        "stored": packed(plain_entries(), zipfile.ZIP_STORED),
        "bzip2": packed({"a.txt": (0o100644, b"text\n" * 50)}, zipfile.ZIP_BZIP2),
        "nothing": packed({}),
        "commented": commented(),
        "old-names": changed_entry(lambda item: setattr(item, "create_system", 0)),
        "outside": packed({"../outside.txt": (0o100644, b"x"), "in.txt": (0o100644, b"y")}),
        "absolute": packed({"/tmp/absolute.txt": (0o100644, b"x")}),
        "through-link": packed({"out": (link, b"/tmp"), "out/file.txt": (0o100644, b"x")}),
        "link-cycle": packed({"a": (link, b"b"), "b": (link, b"a")}),
        "same-name": two.replace(b"b.txt", b"a.txt"),
        "folder-and-file": packed({"a": (0o100644, b"x"), "a/b": (0o100644, b"y")}),
        "set-id": packed({"tool": (0o104755, b"x"), "dir/": (0o41777, b"")}),
        "wrong-crc": wrong_crc(two),
        "encrypted": with_flags(two, 1),
        "other-method": with_method(two, 97),
        "two-headers": two[:30] + b"c" + two[31:],
        "claims-more": claiming_more(two),
        "backslashes": two.replace(b"b.txt", b"b\\txt"),
        "multi-part": two[:-18] + b"\1\0" + two[-16:],
    }


def commented():
    buffer = io.BytesIO()
    with zipfile.ZipFile(buffer, "w") as archive:
        archive.comment = b"a comment\nof two lines"
        item = entry("a.txt")
        item.comment = b"of an entry"
        archive.writestr(item, b"x")
    return buffer.getvalue()


def wrong_crc(data):
    """Both headers of the first entry state another CRC."""
    crc = data[14:18]
    return data.replace(crc, bytes([crc[0] ^ 1]) + crc[1:], 4)


def in_headers(data, local, central, value):
    """Writes a 16-bit field of all headers."""
    changed = bytearray(data)
    for mark, offset in ((b"PK\1\2", central), (b"PK\3\4", local)):
        at = data.find(mark)
        while at >= 0:
            changed[at + offset:at + offset + 2] = value.to_bytes(2, "little")
            at = data.find(mark, at + 4)
    return bytes(changed)


def with_flags(data, flags):
    return in_headers(data, 6, 8, flags)


def with_method(data, method):
    return in_headers(data, 8, 10, method)


def claiming_more(data):
    """The unpacked size (its upper half) is far more than the packed bytes can give."""
    return in_headers(data, 24, 26, 0x0300)
