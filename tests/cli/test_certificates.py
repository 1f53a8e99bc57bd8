"""Which certificate a name stands for, and until when a profile admits it."""
import os
import zipfile
from datetime import datetime

import makers
from examiner import signature
from harness import ADMIN, IDENTITIES, der_of, sha1_of
from makers import NO_UNIT, TEAM, SmallAppTest

ALPHA = ["CN=Alpha Signer", "CN=Beta Signer", f"OU={TEAM}"]


class Certificates(SmallAppTest):
    # Among many others, which the keychain lists too.
    SUBJECTS = {
        "Alpha Signer": ALPHA,
        "Größe Ωmega 語": ["CN=Größe Ωmega 語", f"OU={TEAM}"],
        "Wide Ελλάδα": ["CN=Wide Ελλάδα", f"OU={TEAM}"],
        "UNITUNIT01": ["OU=UNITUNIT01", "O=Nameless"],
    } | {name: [f"CN={name}", f"OU={TEAM}"] for name in (f"Crowd {i:02}" for i in range(30))}

    def profile_with(self, *certificates, **values):
        return makers.profile(self.path("p.mobileprovision"), certificates=certificates, **values)

    def assert_signed_with(self, certificate, archive):
        self.assertEqual(signature.signer_certificate(self.signed_part(archive)),
                         der_of(certificate))

    def test_names(self):
        # The first common name counts; without one it is the unit, which is no common name.
        admin = os.path.join(IDENTITIES, "admin.pem")
        for name, text in [("Alpha Signer", None), ("Größe Ωmega 語", None), ("Wide Ελλάδα", None),
                           ("UNITUNIT01", NO_UNIT)]:
            with self.subTest(name):
                profile = self.profile_with(admin, self.certificates[name])
                output = self.wrap_small(cert=name, profile=profile, text=text)
                self.assert_signed_with(self.certificates[name], output)
        profile = self.profile_with(self.certificates["Alpha Signer"])
        self.wrap_small(cert="Beta Signer", profile=profile, status=255,
                        text="iOS distribution certificate name (*) does not match *")

    def test_two_certificates_of_one_name(self):
        again = makers.certificate(self.path("again.pem"), ALPHA)
        home = {"XDG_DATA_HOME": self.path("home of twins")}
        key = os.path.join(IDENTITIES, "admin.key")
        for file in (key, self.certificates["Alpha Signer"], again, *makers.ISSUERS):
            self.security("import", file, **home)
        profile = self.profile_with(again)
        self.wrap_small(cert="Alpha Signer", profile=profile, environment=home, status=254,
                        text="Failed to execute dylibcodesign with exit code: 1")
        # The hash tells them apart; the profile's names do not list it, so no unit is found.
        output = self.wrap_small(cert=sha1_of(again), profile=profile, environment=home,
                                 text=NO_UNIT)
        self.assert_signed_with(again, output)

    def test_keychain_option_without_a_path(self):
        output = self.wrap_small("-pell")
        self.assertEqual(signature.signer(self.signed_part(output)), ADMIN)

    def test_far_expiry(self):
        for year in (2039, 2107, 9999):
            with self.subTest(year):
                self.wrap_small(profile=self.profile_with(
                    ExpirationDate=datetime(year, 2, 28, 12, 30)))
                with zipfile.ZipFile(self.path("out.wex")) as package:
                    self.assertIn(f"{year}-02-28 12:30:00 +0000".encode(),
                                  package.read("manifest.xml"))
        self.wrap_small(profile=self.profile_with(ExpirationDate=datetime(1999, 2, 28)),
                        status=254, text="This provisioning *")
