"""What a person at a terminal is told of a refusal, and that the page for users has it all."""
import os
import plistlib
import pty
import re
import shutil
import struct
import subprocess

import makers
from harness import (ADMIN, BRANCH_PROFILE, BUILD, DEMO_APP, IDENTITIES, PROFILE, ROOT, TOOLKIT,
                     WholeProgramTest, changed_app, pack, read, write)

LITERAL = r'"(?:[^"\\]|\\.)*"'
# Folders whose texts can become the text that a run ends with.
SOURCES = ["programs/tovrek", "src/converter", "src/package", "src/profile", "src/settings",
           "src/tools", "src/engine"]
# Calls that take such a text, or what goes into the last "..." of one.
CALLS = re.compile(r"\b(?:fail|throwf|warnIfEmpty|reportError)\(")
# Never the text of a run: names of things in calls that put them into a text of their own, reasons
# that stand behind another text, and texts of operations whose failure is only logged.
ONLY_PARTS = {
    "GetInfo", "-in", ": ", "", "rebase", "bind", "default_wex_policies.xml", "{}: {}",
    "com.orvane.wex", ". Error:", "Cannot find app package. Please "
    "choose a valid input file.", "{} has no name to be copied under",
    "{} is not a private folder of this user", "an app that was given unpacked",
    ": it holds no app", ": it lies outside of the input, or cannot be reached",
    "neither the app nor an option gives an identifier", " [{} more]",
    "\\\"{}\\\" must be {}, not \\\"{}\\\"", "{} could not be removed: {}",
    "\\\"{}\\\" is given twice", "\\\"{}\\\" is not of the form \\\"name = yes\\\" or "
    "\\\"name = no\\\"",
    "there is no setting \\\"{}\\\""}


def arguments_of(source, at):
    """The text of a call's arguments, from behind its opening bracket on."""
    depth, start = 1, at
    while depth:
        quoted = re.compile(LITERAL).match(source, at)
        if quoted:
            at = quoted.end()
            continue
        depth += {"(": 1, ")": -1}.get(source[at], 0)
        at += 1
    return source[start:at - 1]


def texts_of(code):
    """The literals of a piece of code, those that stand side by side as one."""
    return ["".join(part[1:-1] for part in re.findall(LITERAL, group))
            for group in re.findall(rf"(?:{LITERAL}\s*)+", code)]


def texts_in_sources():
    for folder in SOURCES:
        for name in sorted(os.listdir(os.path.join(ROOT, folder))):
            if not name.endswith((".cpp", ".h")):
                continue
            source = read(ROOT, folder, name).decode()
            constants = dict(re.findall(rf"\b(k\w+)\[\] =\s*((?:{LITERAL}\s*)+);", source))
            for call in CALLS.finditer(source):
                code = arguments_of(source, call.end())
                texts = texts_of(code)
                for constant in re.findall(r"\bk[A-Z]\w+\b", code):
                    texts += texts_of(constants.get(constant, ""))
                for text in texts:
                    yield f"{folder}/{name}", text


def page_patterns():
    """The texts of the page's tables, "..." standing for anything."""
    rows = [line.split("|")[1] for line in read(ROOT, "docs", "refusals.md").decode().splitlines()
            if line.startswith("| `")]
    return [text for row in rows for text in re.findall(r"`([^`]+)`", row) if text != "..."]


class Page(WholeProgramTest):
    def test_has_every_text_of_the_sources(self):
        patterns = [re.compile(".*".join(map(re.escape, pattern.split("...")))).fullmatch
                    for pattern in page_patterns() if pattern != "...: ..."]
        found = set()
        for place, text in texts_in_sources():
            if text in ONLY_PARTS:
                continue
            shown = re.sub(r"\{[^}]*\}", "x", text.replace("\\\"", "\"")).strip()
            found.add(text)
            with self.subTest(place):
                # A literal that ends with what only the run knows is a beginning.
                self.assertTrue(any(match(shown) or match(shown + " x") for match in patterns), text)
        self.assertGreater(len(found), 80, "the search has lost its way")

    def test_has_every_code(self):
        listed = set()
        for line in read(ROOT, "docs", "refusals.md").decode().splitlines():
            if re.match(r"\| 1\d\d\d", line):
                listed.update(re.findall(r"1\d\d\d", line.split("|")[1]))
        self.assertEqual(listed, {str(code) for code in range(1100, 1188)})

    def test_has_every_finding_of_the_result_check(self):
        codes = set(re.findall(r'constexpr std::string_view \w+ = "([a-z-]+)"',
                               read(ROOT, "src", "device", "Finding.h").decode()))
        listed = [text[len("verifyResult: ... ("):-1] for text in page_patterns()
                  if text.startswith("verifyResult: ... (")]
        self.assertEqual(sorted(listed), sorted(codes))


def at_terminal(command, environment, folder):
    """The status, and what came on standard error, which is a terminal."""
    controller, terminal = pty.openpty()
    with subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=terminal,
                          stdin=subprocess.DEVNULL, cwd=folder, env=environment) as process:
        os.close(terminal)
        pieces = []
        while True:
            try:
                piece = os.read(controller, 65536)
            except OSError:  # the end, as Linux tells it
                break
            if not piece:
                break
            pieces.append(piece)
    os.close(controller)
    return process.returncode, b"".join(pieces).decode().replace("\r\n", "\n")


class Warnings(makers.SmallAppTest):
    """Only one of several warnings is the text that a run ends with; each is explained."""
    SUBJECTS = {"Twin Signer": ["CN=Twin Signer", f"OU={makers.TEAM}"],
                "Twin Signer Too": ["CN=Twin Signer Too", f"OU={makers.TEAM}"]}

    def explained(self, *options, files=(), cert=ADMIN, environment=(), **profile):
        profile = makers.profile(self.path("p.mobileprovision"), profile.get("entitlements", ()),
                                 [self.certificates.get(cert) or
                                  os.path.join(IDENTITIES, "admin.pem")],
                                 profile.get("without", ()))
        with makers.small_app() as (folder, app):
            for name in files:
                write(b"no image", app, name)
            archive = pack(folder, self.path("Small.ipa"))
        command = self.wrap_command(archive, self.path("out.wex"), *options, cert=cert,
                                    profile=profile)
        environment = self.environment | dict(environment)
        status, text = at_terminal(command, environment, self.folder)
        self.assertEqual(status, 0, text)
        self.assertNotIn("Why: ", text)
        self.assertNotIn("What to do: ", self.run_toolkit(command, environment).stderr)
        told = [line for line in text.splitlines() if "What to do: " in line]
        self.assertEqual(told, text.splitlines()[len(text.splitlines()) - len(told):])
        return told

    def test_each_is_explained(self):
        kept = {"files": ["Watch/file"]}
        foreign = "with a cross-platform framework"
        locked, old = "locked while the device is", "the profile is very old"
        extensions, twin = "without profiles and entitlements", "two certificates in the keychain"
        store = "for a store"  # as makers' profiles are
        for expected, options, arguments in [
                ([store], (), {}),
                ([store, extensions], ["-noStripExtensions"], kept),
                ([foreign, old, store, locked],
                 (), {"files": ["Mono.dll"], "without": (makers.TEAM_ID,),
                      "entitlements": {makers.DATA_PROTECTION: "NSFileProtectionComplete"}}),
                ([extensions, "no team: the chain", "devices do not know the authority", store, twin],
                 ["-noStripExtensions"],
                 kept | {"cert": "Twin Signer", "environment": {"TOVREK_TRUSTED_ROOT_SHA1": "00"}})]:
            told = self.explained(*options, **arguments)
            with self.subTest(expected):
                self.assertEqual(len(told), len(expected), told)
                for line, words in zip(told, expected):
                    self.assertRegex(line, f"^Warning: .*{words}.*\\. What to do: .*\\.$")


class Explain(WholeProgramTest):
    def at_terminal(self, command, environment=()):
        return at_terminal(command, self.environment | dict(environment), self.folder)

    def assert_explained(self, command, status, words, environment=()):
        """One line more than without a terminal, with the words in it, and nothing else."""
        ended, text = self.at_terminal(command, environment)
        plain = self.run_toolkit(command, environment)
        hide = re.compile(r"\d{4}-\d\d-\d\d [\d:.]+ Tovrek\[\d+\]|[0-9A-Fa-f]{8}(?:-[0-9A-Fa-f]{4,12}){4}"
                          r"|0x[0-9a-f]+")
        lines, expected = (hide.sub("", output).splitlines() for output in (text, plain.stderr))
        with self.subTest(words):
            self.assertEqual((ended, plain.returncode), (status, status), text)
            self.assertNotIn("Why: ", plain.stderr)
            self.assertEqual(lines[:-1], expected)
            self.assertRegex(lines[-1], r"^Why: .*\. What to do: .*\.")
            self.assertIn(words, lines[-1])

    def test_causes_of_a_certificate_that_does_not_match(self):
        output = self.path("out.wex")
        p12 = os.path.join(IDENTITIES, "admin.p12")
        no_profile = write(b"no profile", self.folder, "No.mobileprovision")
        for words, options, more in [
                ("capital and small letters", {"cert": ADMIN.lower()}, ()),
                ("blanks differ", {"cert": ADMIN.replace(" ", "  ")}, ()),
                ("blanks differ", {"cert": ADMIN.replace(" ", "\u00a0")}, ()),
                ("quotation marks have become", {"cert": f"\u201c{ADMIN}\u201d"}, ()),
                ("only a part of the name", {"cert": "Example Corporation"}, ()),
                ("as openssl prints it", {"cert": ":".join(["AB"] * 20)}, ()),
                ("none of SHA-1", {"cert": "ab" * 32}, ()),
                ("no certificate in the keychain", {"cert": "ab" * 20}, ()),
                ("import the file", {"cert": p12}, ()),
                ("is no provisioning profile", {"profile": no_profile}, ()),
                ("The profile lists: iPhone Distribution: Example Branch (EXAMPLE456)",
                 {"profile": BRANCH_PROFILE}, ()),
                ("-keychainPath names does not exist", {}, ("-pell", "-keychainPath", "none.p12")),
                ("TOVREK_KEYCHAIN_PASSWORD", {}, ("-pell", "-keychainPath", p12))]:
            self.assert_explained(self.wrap_command(DEMO_APP, output, *more, **options), 255, words)

    def test_arguments_settings_and_installation(self):
        program = os.path.join(TOOLKIT, "Tovrek")
        for command, words, environment in [
                ([program, "Warp"], "misspelt", {}),
                (self.wrap_command(DEMO_APP, "o.wex", "surplus"), "stands without quotation", {}),
                (self.wrap_command("none.ipa", "o.wex"), "a carriage return at its end", {}),
                (self.wrap_command(DEMO_APP, "o.wex"), "is no setting",
                 {"TOVREK_CONF": write(b"x = yes", self.folder, "bad.conf")})]:
            self.assert_explained(command, 255, words, environment)
        alone = self.path("alone")
        os.mkdir(alone)
        shutil.copy(program, alone)
        self.assert_explained([os.path.join(alone, "Tovrek"), "Wrap"], 255, "only the program")

    def test_apps(self):
        output = self.path("out.wex")
        text = write(b"no archive", self.folder, "text.ipa")
        self.assert_explained(self.wrap_command(text, output), 0, "cannot be unpacked")
        with changed_app() as (folder, app):
            executable = read(app, "Fieldbook")
            for words, change in [
                    ("no executable of the name", lambda path: os.remove(path)),
                    ("as in a build for the simulator",
                     # The command of the encryption becomes one of the same size.
                     lambda path: write(makers.executable().replace(
                         struct.pack("<II", 0x2c, 24), struct.pack("<II", 0x1b, 24)), path))]:
                change(os.path.join(app, "Fieldbook"))
                self.assert_explained(self.wrap_command(pack(folder, self.path("x.ipa")), output),
                                      254, words)
            write(executable, app, "Fieldbook")
            info = plistlib.loads(read(app, "Info.plist"))
            for key in [key for key in info if "Icon" in key]:
                del info[key]
            write(plistlib.dumps(info), app, "Info.plist")
            self.assert_explained(self.wrap_command(pack(folder, self.path("y.ipa")), output), 254,
                                  "has no icons in its top folder")

            os.remove(os.path.join(app, "Info.plist"))
            self.assert_explained(self.wrap_command(pack(folder, self.path("z.ipa")), output), 254,
                                  "has no identifier")

    def test_what_codesign_said(self):
        """Each keychain is the only one that is searched."""
        p12 = os.path.join(IDENTITIES, "admin.p12")
        certificate = os.path.join(IDENTITIES, "admin.pem")
        command = self.wrap_command(DEMO_APP, self.path("out.wex"))
        for words, imported, environment in [
                ("no keychain that was searched", [], {}),
                ("its private key is not", [certificate], {}),
                ("the keychain is locked", [p12, "-P", "demo"], {"TOVREK_ENCRYPT_KEYCHAINS": "1"})]:
            data = {"XDG_DATA_HOME": self.path(words)} | environment
            self.security("create-keychain", "-p", "pw", "only", **data)
            self.security("list-keychains", "-s", "only", **data)
            if imported:
                self.security("import", *imported, "-k", "only", **data)
            self.security("lock-keychain", "only", **data)
            self.assert_explained(command, 254, words, data)

    def test_what_the_system_refuses(self):
        """Room in files, when unpacking and when packing; open files, to start programs with and to
        unpack with; memory; a disk that is damaged."""
        with changed_app() as (folder, app):
            info = plistlib.loads(read(app, "Info.plist"))
            write(plistlib.dumps(info | {"Many": [str(i) for i in range(100000)]}), app, "Info.plist")
            many = pack(folder, self.path("many.ipa"))
            write(plistlib.dumps(info), app, "Info.plist")
            write(os.urandom(1 << 20), app, "filling")
            large = pack(folder, self.path("large.ipa"))
        conditions = [(large, "-f 1024", 0, "(File too large)"),
                      (large, "-f 2080", 254, "(File too large)"),
                      (DEMO_APP, "-n 8", 255, "(Too many open files)"),
                      (DEMO_APP, "-n 9", 0, "(Too many open files)")]
        if b"__asan_init" not in read(TOOLKIT, "Tovrek"):  # which takes more than all that there is
            conditions.append((many, "-v 40000", 254, "there is not enough memory"))
        for archive, limit, status, words in conditions:
            command = ["/bin/sh", "-c", f"ulimit {limit}; exec \"$@\"", "sh",
                       *self.wrap_command(archive, self.path("out.wex"))]
            self.assert_explained(command, status, words)

        supervisor = os.path.join(BUILD, "tests", "faults", "fault_supervisor")
        if os.path.exists(supervisor):
            command = [supervisor, "--report", self.path("report"), "--calls", "rename", "--hit", "3",
                       "--", *self.wrap_command(DEMO_APP, self.path("out.wex"))]
            self.assert_explained(command, 254, "(Input/output error)")

    def test_nothing_is_said_of_a_good_run(self):
        status, text = self.at_terminal(self.wrap_command(DEMO_APP, self.path("good.wex")))
        self.assertEqual(status, 0)
        self.assertNotIn("Why: ", text)
