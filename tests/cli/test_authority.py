"""An identity as a portal hands it out, certificate and key alone: what the host knows of its issuers
makes the chain whole."""
import os
import re
import subprocess

from harness import COMPANIONS, DEMO_APP, TOOLKIT, WholeProgramTest, der_of, run, unpacked_app, write

KEYCHAIN = "System/Library/Keychains/SystemRootCertificates.keychain"
CONFIG = """
[req]
distinguished_name = name
[name]
[authority]
basicConstraints = critical, CA:TRUE
subjectKeyIdentifier = hash
[intermediate]
basicConstraints = critical, CA:TRUE
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
1.2.840.113635.100.6.2.1 = ASN1:NULL
[leaf]
authorityKeyIdentifier = keyid
extendedKeyUsage = critical, codeSigning
1.2.840.113635.100.6.1.4 = ASN1:NULL
"""
LEAF = "iPhone Distribution: Portal (PORTAL1234)"


class Authority(WholeProgramTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.config = write(CONFIG.encode(), cls.path("authority.cnf"))
        cls.certify("root", "/CN=Portal Root", "authority")
        # Two generations with one key and name, the first of which is over.
        cls.certify("first", "/O=Portal/CN=Portal Issuer", "intermediate", "root", days=-1)
        cls.certify("second", "/O=Portal/CN=Portal Issuer", "intermediate", "root",
                    key=cls.path("first.key"))
        cls.certify("leaf", f"/CN={LEAF}/OU=PORTAL1234", "leaf", "second", issuer_key="first")
        run("openssl", "pkcs12", "-export", "-out", cls.path("leaf.p12"), "-passout", "pass:x",
            "-in", cls.path("leaf.pem"), "-inkey", cls.path("leaf.key"))
        # A host root whose authorities are these instead of the published ones.
        cls.host = cls.path("host")
        os.makedirs(os.path.join(cls.host, KEYCHAIN))
        os.symlink(os.path.join(TOOLKIT, "host", "usr"), os.path.join(cls.host, "usr"))
        sha1 = run("openssl", "x509", "-noout", "-fingerprint", "-sha1", "-in",
                   cls.path("root.pem")).stdout.decode().split("=")[1].replace(":", "").strip()
        cls.environment |= {"TOVREK_HOST_ROOT": cls.host, "TOVREK_TRUSTED_ROOT_SHA1": sha1,
                            "XDG_DATA_HOME": cls.path("portal home")}
        cls.security("import", cls.path("leaf.p12"), "-P", "x")

    @classmethod
    def certify(cls, name, subject, extensions, issuer=None, days=100, key=None, issuer_key=None):
        key = key or cls.path(f"{name}.key")
        if not os.path.exists(key):
            run("openssl", "genrsa", "-out", key, "2048")
        request = cls.path(f"{name}.csr")
        run("openssl", "req", "-new", "-config", cls.config, "-subj", subject, "-key", key, "-out",
            request)
        signer = (["-CA", cls.path(f"{issuer}.pem"), "-CAkey",
                   cls.path(f"{issuer_key or issuer}.key"), "-CAcreateserial"] if issuer else
                  ["-signkey", key])
        run("openssl", "x509", "-req", "-sha256", "-in", request, "-days", str(days), "-extfile",
            cls.config, "-extensions", extensions, "-out", cls.path(f"{name}.pem"), *signer)

    def know(self, *names):
        """Makes these the certificates of the host."""
        folder = os.path.join(self.host, KEYCHAIN)
        for name in os.listdir(folder):
            os.remove(os.path.join(folder, name))
        for name in names:
            write(der_of(self.path(f"{name}.pem")), folder, f"{name}.cer")

    def companion(self, name, *words):
        return subprocess.run([os.path.join(COMPANIONS, name), *words], capture_output=True,
                              text=True, env=self.environment, check=False)

    def test_a_leaf_alone_signs_with_a_whole_chain(self):
        app = unpacked_app(DEMO_APP, self.path("app"))
        self.know("root", "first", "second")
        result = self.companion("codesign", "-f", "-s", LEAF, app)
        self.assertEqual(result.returncode, 0, result.stderr)
        result = self.companion("codesign", "-dvv", app)
        self.assertEqual(re.findall(r"Authority=(.*)", result.stderr),
                         [LEAF, "Portal Issuer", "Portal Root"])
        self.assertIn("TeamIdentifier=PORTAL1234\n", result.stderr)
        prefix = self.path("chain")
        self.companion("codesign", "-d", f"--extract-certificates={prefix}", app)
        for index, name in enumerate(("leaf", "second", "root")):
            with open(f"{prefix}{index}", "rb") as file:
                self.assertEqual(file.read(), der_of(self.path(f"{name}.pem")))
        result = self.companion("codesign", "-v", "-R=anchor apple generic", app)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        result = self.companion("security", "verify-cert", "-c", self.path("leaf.pem"), "-p",
                                "codeSign")
        self.assertEqual(result.returncode, 0, result.stderr)
        result = self.companion("security", "find-identity", "-v", "-p", "codesigning")
        self.assertRegex(result.stdout, rf"\A  1\) [0-9A-F]{{40}} \"{re.escape(LEAF)}\"\n     "
                                        r"1 valid identities found\n\Z")

    def test_an_open_chain_signs_nothing(self):
        app = unpacked_app(DEMO_APP, self.path("open app"))
        executable = os.path.join(app, "Fieldbook")
        with open(executable, "rb") as file:
            before = file.read()
        for names, reason in ((("root",), "no certificate of its issuer is in the keychains"),
                              (("root", "first"), "all certificates of its issuer that are there "
                                                  "have expired"),
                              (("second",), "no certificate of its issuer is in the keychains")):
            self.know(*names)
            result = self.companion("codesign", "-f", "-s", LEAF, app)
            self.assertEqual(result.returncode, 1, result.stderr)
            self.assertIn(reason, result.stderr)
            self.assertIn("CN = Portal " + ("Root" if names == ("second",) else "Issuer"),
                          result.stderr)
            self.assertIn("security import", result.stderr)
            with open(executable, "rb") as file:
                self.assertEqual(file.read(), before)
            result = self.companion("security", "find-identity", "-v", "-p", "codesigning")
            self.assertIn("0 valid identities found", result.stdout)
