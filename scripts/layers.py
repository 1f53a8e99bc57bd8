#!/usr/bin/env python3
"""Refuses includes against the layers: layers.py FILE...

An arrow of LAYERS means "may include", also by way of others. Tests and benchmarks may include
everything. Includes are written from src/ or from the project's root, so their first folder names
the layer. Headers of system calls may be included by src/host alone.
"""
import re
import sys

LAYERS = {
    # Libraries, in src/.
    "converter": ["engine", "package", "profile", "device"],
    "device": ["signing/verify", "profile"],
    "batch": ["inspect"],
    "inspect": ["archive", "device", "engine", "keychain", "package"],
    "package": ["icons", "tools"],
    "profile": ["tools"],
    "tools": ["context", "formats"],
    "context": ["icons", "log", "settings"],
    "icons": ["formats", "log"],
    "engine": ["macho", "log", "settings"],
    # Judges by code of its own what the rest of signing wrote: that rest may not call it.
    "signing/verify": ["signing"],
    "signing": ["macho", "formats"],
    "keychain": ["formats"],
    "listing": ["macho", "log"],
    "archive": ["log"],
    "launch": ["log"],
    "macho": ["host"],
    "formats": ["host"],
    "log": ["host"],
    "settings": ["host"],
    "host": [],
    # Libraries that no program links.
    "drawing": ["formats", "log"],
    "reserve": ["engine", "formats"],
    # Programs, in programs/.
    # Carries companions, to run them without a start.
    "programs/tovrek": ["converter", "keychain", "programs/codesign", "programs/lipo",
                        "programs/nm", "programs/openssl", "programs/otool", "programs/security"],
    "programs/batch": ["batch"],
    "programs/inspect": ["inspect"],
    "programs/codesign": ["signing/verify", "keychain"],
    "programs/security": ["keychain"],
    "programs/lipo": ["macho", "log"],
    "programs/otool": ["listing"],
    "programs/nm": ["listing"],
    "programs/openssl": ["launch", "formats"],
    "programs/mend-xml": ["formats"],
    "programs/pkgutil": ["launch"],
    "programs/unzip": ["archive"],
    "programs/xcode-select": ["launch"],
    "programs/xcrun": ["launch"],
    "programs/zip": ["archive"],
    "tests": [],
}
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')
SYSTEM_INCLUDE = re.compile(
    r"^\s*#\s*include\s+<((?:sys|linux|net|mach|mach-o)/[^>]+|"
    r"(?:unistd|fcntl|dirent|poll|signal|csignal|spawn|pthread|sched|termios|pwd|grp|malloc|"
    r"ifaddrs|utime|netdb|dlfcn|syslog)(?:\.h)?)>")


def reachable(layer):
    found = {layer}
    for lower in LAYERS[layer]:
        found |= reachable(lower)
    return found


def layer_of(path):
    """The layer of a file, or of an include as it is written; none for other folders."""
    parts = path.split("/")
    if parts[0] == "src":
        parts = parts[1:]
    inner = "/".join(parts[:2])
    return inner if inner in LAYERS or parts[0] == "programs" else parts[0]


def wrong_includes(path):
    layer = layer_of(path)
    if layer not in LAYERS or layer == "tests":
        return
    allowed = reachable(layer)
    with open(path, encoding="utf-8") as source:
        for number, line in enumerate(source, 1):
            system = SYSTEM_INCLUDE.match(line)
            if system and layer != "host":
                yield number, f"<{system.group(1)}> is for src/host alone"
            match = INCLUDE.match(line)
            if not match:
                continue
            target = match.group(1).split("/")
            if len(target) == 1:
                yield number, f'"{match.group(1)}" is not written from src/ or the project root'
            elif layer_of(match.group(1)) not in LAYERS:
                yield number, f'"{match.group(1)}" names no layer'
            elif layer_of(match.group(1)) not in allowed:
                yield number, f"{layer} may not include {layer_of(match.group(1))}"


def main(paths):
    found = [f"{path}:{number}: {text}" for path in paths for number, text in wrong_includes(path)]
    print("\n".join(found), end="\n" if found else "")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
