"""What other users of the machine may prepare or see: shared folders, files, modes, logs, secrets."""
import ctypes
import os
import shutil
import stat
import subprocess
import unittest

import judging
import makers
import test_exhaustion
from harness import ADMIN, COMPANIONS, IDENTITIES, TOOLKIT, copy_toolkit, read, write
from judging import companion

APP = "Payload/Small.app"
NOBODY = 65534
# Ends a line, moves the cursor and starts a line that a reader would believe.
FORGED = "x\nAuthority=Apple Root CA\r\x1b[2J\u202e"


@unittest.skipUnless(os.geteuid() == 0, "files of another user can be made by root alone")
class OtherUsers(judging.AttackTest):
    def prepared(self, path, mode, content=b"old"):
        write(content, path)
        os.chown(path, NOBODY, NOBODY)
        os.chmod(path, mode)
        return path

    def test_replaced_files(self):
        archive = self.archive()
        commands = {
            "cms": lambda out: [companion("security"), "cms", "-D", "-i", self.profile, "-o", out],
            "export": lambda out: [companion("security"), "export", "-t", "identities", "-f",
                                   "pkcs12", "-P", "x", "-o", out],
            "package": lambda out: self.wrap_words(archive, output=out),
        }
        for name, command in commands.items():
            for mode in (0o4777, 0o6777, 0o666):
                with self.subTest(f"{name} {mode:o}"):
                    out = self.prepared(self.path("out", "result.wex"), mode)
                    self.held(command(out), (0, 1, 254))
                    info = os.stat(out)
                    if info.st_uid == 0:
                        self.assertEqual(info.st_mode & 0o7022, 0, oct(info.st_mode))
                    else:
                        self.assertEqual(read(out), b"old")
                    os.remove(out)

    def test_shared_temporary_folder(self):
        shared = self.path("out", "tmp")
        for name, make in {
                "folder of another": lambda path: (os.mkdir(path), os.chown(path, NOBODY, NOBODY),
                                                   os.chmod(path, 0o777)),
                "link": lambda path: os.symlink(self.victim, path),
                "file": lambda path: write(b"", path),
                "open folder": lambda path: (os.mkdir(path), os.chmod(path, 0o777))}.items():
            with self.subTest(name):
                self.setUp()
                os.mkdir(shared)
                os.chmod(shared, 0o1777)
                make(os.path.join(shared, "com.orvane.wex"))
                self.held(self.wrap_words(self.archive()), (0,), {"TMPDIR": shared})
                self.assertTrue(os.path.exists(self.path("out", "out.wex")))

    def test_log(self):
        for name, make in {"link": lambda path: os.symlink(self.secret, path),
                           "dangling link": lambda path: os.symlink(self.path("canary"), path),
                           "pipe": os.mkfifo,
                           "file of another": lambda path: self.prepared(path, 0o666)}.items():
            with self.subTest(name):
                self.setUp()
                log = self.path("out", "log")
                make(log)
                before = judging.described(log)
                self.held(self.wrap_words(self.archive()), (0, 254))
                self.assertEqual(judging.described(log), before)


class Names(judging.AttackTest):
    def assert_plain(self, text):
        """No line and no control character in what a name could have forged."""
        self.assertNotIn(b"\nAuthority=Apple Root CA", text)
        self.assertNotIn(b"\x1b", text)
        self.assertNotIn(b"\r", text)
        self.assertNotIn("\u202e".encode(), text)

    def test_log_and_listings(self):
        archive = self.archive({f"{APP}/{FORGED}": b"x"})
        for words in (["-l"], ["-v"]):
            self.assert_plain(self.held([companion("unzip"), *words, archive], (0, 10)).output)
        attacks = {
            "file": {f"{APP}/{FORGED}": b"x"},
            "extension": {f"{APP}/PlugIns/{FORGED}.appex/Info.plist": self.app_files["Info.plist"],
                          f"{APP}/PlugIns/{FORGED}.appex/Small": self.app_files["Small"]},
            "framework": {f"{APP}/Frameworks/{FORGED}.framework/Info.plist":
                          self.app_files["Info.plist"],
                          f"{APP}/Frameworks/{FORGED}.framework/Small": self.app_files["Small"]},
            "link": {f"{APP}/{FORGED}": ("->", "/etc/" + FORGED)},
            "executable": {f"{APP}/{FORGED}": self.app_files["Small"],
                           f"{APP}/Info.plist": self.app_files["Info.plist"].replace(
                               b"<string>Small<", b"<string>x&#10;Authority=Apple Root CA&#13;<")},
            "identifier": {f"{APP}/Info.plist": self.app_files["Info.plist"].replace(
                makers.IDENTIFIER.encode(), b"a&#10;Authority=Apple Root CA&#13;\xe2\x80\xae")},
        }
        for attack, changed in attacks.items():
            with self.subTest(attack):
                self.setUp()
                outcome = self.held(self.wrap_words(self.archive(changed), "-logDisplayLevel", "4"),
                                    (0, 254))
                self.assert_plain(outcome.output)
                self.assert_plain(read(self.path("out", "log")))
        self.setUp()
        for archive in (self.archive(name=FORGED + ".ipa"),
                        self.archive(app=f"Payload/{FORGED}.app"),
                        self.archive({f"Payload/{FORGED}.app/Small": ("->", FORGED)},
                                     app=f"Payload/{FORGED}.app")):
            outcome = self.held(self.wrap_words(archive, "-logDisplayLevel", "4"), (0, 254))
            self.assertIn(b"\\x0aAuthority=", outcome.output)
            self.assert_plain(read(self.path("out", "log")))
            os.remove(self.path("out", "log"))

    def test_symbols(self):
        program = test_exhaustion.with_long_name(3, f"_{FORGED}\nWEXSymbols".encode())
        path = write(program, self.given("program"))
        outcome = self.held([companion("nm"), "-j", path], (0,))
        self.assertEqual(outcome.output.count(b"\n"), 3)
        self.assert_plain(outcome.output)
        # The 16 bytes of a segment's name.
        path = write(program.replace(b"__TEXT".ljust(16, b"\0"), b"\nAuthority=Appl\x1b"), path)
        self.assertNotIn(b"\nAuthority", self.held([companion("otool"), "-l", path], (0,)).output)
        self.held(self.wrap_words(self.archive({f"{APP}/Small": read(path)})), (0, 254))
        self.assert_plain(read(self.path("out", "log")))

    def test_codesign(self):
        app = self.given(f"{FORGED}.app")
        for name, content in self.app_files.items():
            write(content, app, name)
        os.chmod(os.path.join(app, "Small"), 0o755)
        sign = [companion("codesign"), "-f", "-s", ADMIN, "-i", FORGED, app]
        self.assert_plain(self.held(sign, (0, 1), may_change={app}).output)
        for words in (["-d", "-vvvv"], ["-v", "-vvvv"], ["-d", "-r-"]):
            self.assert_plain(self.held([companion("codesign"), *words, app], (0, 1, 3)).output)
        write(b"x", app, FORGED)
        self.assert_plain(self.held([companion("codesign"), "-v", "-vvvv", app], (1, 3)).output)


class Secrets(judging.AttackTest):
    def test_open_mask(self):
        keychain = self.path("out", "keychain")
        for words in (["create-keychain", "-p", "x", keychain],
                      ["import", os.path.join(IDENTITIES, "admin.p12"), "-P", "demo", "-k",
                       keychain],
                      ["list-keychains", "-s", keychain],
                      ["export", "-k", keychain, "-t", "identities", "-f", "pkcs12", "-P", "x",
                       "-o", self.path("out", "all.p12")]):
            self.held([companion("security"), *words], (0,), umask=0,
                      environment={"XDG_DATA_HOME": self.path("out", "data")})
        self.held(self.wrap_words(self.archive()), (0,), umask=0)
        for base, folders, files in os.walk(self.path("out")):
            for name in folders + files:
                path = os.path.join(base, name)
                open_to_others = name in ("out.wex", "out.ipa", "log")
                mode = stat.S_IMODE(os.lstat(path).st_mode)
                self.assertTrue(open_to_others or mode & 0o077 == 0, f"{path} {mode:o}")

    def test_children(self):
        """A child gets neither secrets that it does not need nor open files."""
        toolkit = copy_toolkit(self.path("out", "toolkit"))
        report = self.path("out", "children")
        os.mkdir(report)
        for name in ("zip", "unzip", "lipo", "otool", "nm", "codesign", "security"):
            program = os.path.join(toolkit, "host", "usr", "bin", name)
            if os.path.lexists(program):
                os.remove(program)
            write(f'#!/bin/sh\n{{ env; ls -l /proc/$$/fd; ulimit -c; }} > "$(mktemp '
                  f'\'{report}/{name}.XXXXXX\')"\nexec {companion(name)} "$@"\n'.encode(), program)
            os.chmod(program, 0o755)
        environment = {"TOVREK_KEYCHAIN_PASSWORD": "demo-password", "TOVREK_PKCS11_PIN": "1234-pin"}
        inherited = os.open(self.secret, os.O_RDONLY)
        os.set_inheritable(inherited, True)
        command = self.wrap_words(self.archive())
        command[0] = os.path.join(toolkit, "Tovrek")
        result = subprocess.run(command, env=self.environment | environment, cwd=self.folder,
                                capture_output=True, pass_fds=[inherited], check=False)
        os.close(inherited)
        self.assertEqual(result.returncode, 0, result.stderr)
        names = {name.split(".")[0] for name in os.listdir(report)}
        self.assertLess({"zip", "unzip", "codesign"}, names)
        for name in os.listdir(report):
            text = read(report, name).decode()
            needs = name.startswith(("codesign.", "security."))
            if not needs:
                self.assertNotIn("demo-password", text, name)
                self.assertNotIn("1234-pin", text, name)
            self.assertNotIn(self.secret, text, name)
            self.assertEqual(text.rstrip().split("\n")[-1], "0", f"{name}: core dumps")

    def test_key_that_names_a_library(self):
        canary = self.path("canary")
        source = write(f'#include <fcntl.h>\n__attribute__((constructor)) static void f(void) '
                       f'{{ open("{canary}", O_CREAT | O_WRONLY, 0600); }}\n'.encode(),
                       self.path("x.c"))
        library = self.path("x.so")
        makers.run(os.environ.get("CLANG") or "clang", "-shared", "-fPIC", "-o", library, source)
        ctypes.CDLL(library)
        self.assertTrue(os.path.exists(canary), "the attack itself must work")
        os.remove(canary)
        keychain = self.given("keychain")
        write(read(IDENTITIES, "admin.pem"), keychain, "a.pem")
        for uri in (f"pkcs11:token=a;object=b?module-path={library}",
                    f"pkcs11:token=a;object=b?pin-source={self.secret}"):
            write(uri.encode(), keychain, "a.key")
            os.chmod(keychain, 0o700)
            for words in (["find-identity", keychain], ["find-certificate", "-a", keychain],
                          ["cms", "-D", "-k", keychain, "-i", self.profile, "-o", "/dev/null"],
                          ["import", os.path.join(keychain, "a.key"), "-k", keychain]):
                self.held([companion("security"), *words], (0, 1, 2), may_change={keychain})
            self.held(self.wrap_words(self.archive(), "-keychainPath", keychain),
                      (0, 254))


if __name__ == "__main__":
    unittest.main()
