"""Signed bundles: what must be sealed is sealed, and every code object inside is signed."""
import hashlib
import os
import plistlib
import re
import struct

from . import macho, signature

CODE_FOLDERS = {".app", ".framework", ".appex"}
LOCALISED = re.compile(r"^(?!Base\.lproj/).*\.lproj/")
# What the standard rules of a flat bundle leave out of the newer seal, and out of the older one.
OMITTED2 = re.compile(r"^Info\.plist$|^PkgInfo$|^(.*/)?\.DS_Store$|^.*\.lproj/locversion.plist$")
OMITTED = re.compile(r"^.*\.lproj/locversion.plist$")


def read(path):
    with open(path, "rb") as file:
        return file.read()


def files_below(folder):
    """Paths, relative to the folder, of all files and links below it."""
    found = []
    for base, folders, files in os.walk(folder):
        links = [name for name in folders if os.path.islink(os.path.join(base, name))]
        found += [os.path.relpath(os.path.join(base, name), folder) for name in files + links]
    return sorted(found)


def changed_files(before, after):
    """Which files have other contents in one of two folders than in the other, or are not there."""
    names = [set(files_below(folder)) for folder in (before, after)]
    return names[0] ^ names[1] | {
        name for name in names[0] & names[1]
        if read(os.path.join(before, name)) != read(os.path.join(after, name))}


def executable_name(path):
    info = plistlib.loads(read(os.path.join(path, "Info.plist")))
    return info.get("CFBundleExecutable") or os.path.splitext(os.path.basename(path))[0]


def seal_problems(path, seal):
    """Compares a bundle's CodeResources with the files that are there."""
    executable = executable_name(path)
    present = [name for name in files_below(path) if name not in (executable, "CodeResources") and
               not name.startswith("_CodeSignature/")]
    found = []
    expected2 = {name for name in present if not OMITTED2.match(name)}
    expected = {name for name in present if not OMITTED.match(name) and
                not os.path.islink(os.path.join(path, name))}
    for key, names in (("files", expected), ("files2", expected2)):
        sealed = set(seal[key])
        found += [f"{key}: {name} is not sealed" for name in sorted(names - sealed)]
        found += [f"{key}: {name} is sealed but not there" for name in sorted(sealed - names)]
        for name in sorted(sealed & names):
            texts = entry_problems(os.path.join(path, name), name, seal[key][name], key)
            found += [f"{key}: {name} {text}" for text in texts]
    return found


def entry_problems(file, name, entry, key):
    if os.path.islink(file):
        return [] if entry == {"symlink": os.readlink(file)} else ["is another link"]
    data = read(file)
    fields = {"hash": entry} if isinstance(entry, bytes) else dict(entry)
    found = []
    if bool(LOCALISED.match(name)) != fields.pop("optional", False):
        found.append("is optional or not, against the rules")
    digests = {"hash": hashlib.sha1(data).digest(), "hash2": hashlib.sha256(data).digest()}
    needed = "hash" if key == "files" else "hash2"
    if needed not in fields:
        found.append(f"has no {needed}")
    found += [f"has another {field}" for field in fields if fields[field] != digests.get(field)]
    return found


def problems(path, root):
    """Everything wrong with the signatures of a bundle and of all code inside, as texts."""
    return [f"{os.path.relpath(code, os.path.dirname(path))}: {text}"
            for code in code_objects(path) for text in object_problems(code, root)]


def code_objects(path):
    """The bundle itself, nested bundles and lone Mach-O files, innermost first."""
    found = []
    executables = set()
    for base, folders, files in os.walk(path):
        folders[:] = [name for name in folders if not os.path.islink(os.path.join(base, name))]
        if os.path.splitext(base)[1] in CODE_FOLDERS:
            found.append(base)
            executables.add(os.path.join(base, executable_name(base)))
        for name in files:
            file = os.path.join(base, name)
            if not os.path.islink(file) and macho.is_macho(file) and file not in executables:
                found.append(file)
    return found[::-1]


def slices(code):
    """The slices of a bundle's executable or of a lone Mach-O file."""
    return macho.slices(os.path.join(code, executable_name(code)) if os.path.isdir(code) else code)


def signers(app):
    """Whose signature each code object has in all its slices, by its path in the app."""
    found = {}
    for code in code_objects(app):
        names = {signature.signer(image) for image in slices(code)}
        found[os.path.relpath(code, app)] = " and ".join(sorted(names))
    return found


def entitlements(code):
    """The entitlements of a code object, which all its slices must have alike."""
    first, *others = [signature.Signature(image).der_entitlements() for image in slices(code)]
    if any(other != first for other in others):
        raise ValueError(f"the slices of {code} have different entitlements")
    return first


def object_problems(code, root):
    """The problems of one bundle (without nested ones) or of one Mach-O file."""
    if not os.path.isdir(code):
        return slice_problems(code, root)
    found = []
    info = read(os.path.join(code, "Info.plist"))
    executable = os.path.join(code, executable_name(code))
    seal = os.path.join(code, "_CodeSignature", "CodeResources")
    if not os.path.isfile(seal):
        return ["has no seal"]
    identifier = plistlib.loads(info)["CFBundleIdentifier"]
    found += slice_problems(executable, root, info, read(seal), identifier)
    return found + seal_problems(code, plistlib.loads(read(seal)))


def slice_problems(path, root, info=None, seal=None, identifier=None):
    try:
        images = macho.slices(path)
    except (ValueError, struct.error) as error:
        return [str(error)]
    return [f"{image.arch}: {text}" for image in images
            for text in signature.problems(image, root, info, seal, identifier)]
