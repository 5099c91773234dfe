"""The image's signature, with a certificate made on the spot and with one's own."""

import re
import unittest

import pe
from made import BUILD, BUILT_IMAGE, NAME, Folder, Made, files_of, package, run


def pem_of(certificate, folder):
    path = folder / "certificate.pem"
    run("openssl", "x509", "-inform", "DER", "-in", certificate, "-out", path)
    return path


def verify(image, authority):
    return run("osslsigncode", "verify", "-CAfile", authority, "-in", image)


class TestCertificate(Made, unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.image = cls.dist / f"{NAME}.sys"
        cls.certificate = cls.dist / "TarvenholtMyrtelhavenTest.cer"
        cls.authority = pem_of(cls.certificate, cls.folder)

    def test_signature_is_valid_for_those_who_trust_the_certificate(self):
        ran = verify(self.image, self.authority)
        self.assertEqual(ran.returncode, 0, ran.stdout)
        self.assertRegex(ran.stdout, r"Signature verification: ok")
        self.assertRegex(ran.stdout, r"(?i)message digest algorithm\s*: SHA256")

    def test_signature_holds_hashes_of_pages(self):
        self.assertRegex(verify(self.image, self.authority).stdout, r"(?i)page hash algorithm\s*: SHA256")

    def test_signature_is_not_valid_for_others(self):
        self.assertNotEqual(run("osslsigncode", "verify", "-in", self.image).returncode, 0)

    def test_a_changed_image_is_not_valid(self):
        data = bytearray(self.image.read_bytes())
        data[0x1000] ^= 1
        changed = self.folder / "changed.sys"
        changed.write_bytes(data)
        self.assertNotEqual(verify(changed, self.authority).returncode, 0)

    def test_what_is_signed_is_the_image_as_it_was_built(self):
        signed, built = pe.Image(self.image.read_bytes()), pe.Image(BUILT_IMAGE.read_bytes())
        self.assertEqual(signed.authenticode_digest(), built.authenticode_digest())
        said = re.search(r"Calculated message digest\s*: ([0-9A-F]{64})", verify(self.image, self.authority).stdout)[1]
        self.assertEqual(said.lower(), built.authenticode_digest())
        self.assertEqual(built.signature, (0, 0))
        self.assertNotEqual(signed.signature, (0, 0))

    def test_checksum_of_the_signed_image_is_right(self):
        image = pe.Image(self.image.read_bytes())
        self.assertEqual(image.checksum, image.computed_checksum())
        self.assertNotEqual(image.checksum, pe.Image(BUILT_IMAGE.read_bytes()).checksum)

    def test_certificate_is_for_signing_code_and_nothing_else(self):
        said = run("openssl", "x509", "-in", self.authority, "-noout", "-ext",
                   "extendedKeyUsage,basicConstraints,keyUsage").stdout
        self.assertRegex(said, r"Extended Key Usage: *\n\s*Code Signing\n")
        self.assertRegex(said, r"CA:FALSE")
        self.assertRegex(said, r"Key Usage: critical\n\s*Digital Signature\n")

    def test_private_key_stays_with_its_owner_outside_the_package(self):
        key = BUILD / "signing/key.pem"
        self.assertEqual(key.stat().st_mode & 0o777, 0o600)
        self.assertEqual(key.parent.stat().st_mode & 0o777, 0o700)
        secret = key.read_bytes().splitlines()[1]
        for name, data in files_of(self.dist).items():
            self.assertNotIn(secret, data, name)
            self.assertNotIn(b"PRIVATE KEY-----", data, name)

    def test_the_next_package_is_signed_with_the_same_certificate(self):
        again = self.folder / "again"
        self.assertEqual(package(output=again).returncode, 0)
        self.assertEqual((again / self.certificate.name).read_bytes(), self.certificate.read_bytes())


class OwnCertificate(Folder, unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.certificate, cls.key, cls.pkcs12 = (cls.folder / name for name in ("own.pem", "own.key", "own.p12"))
        cls.password = cls.folder / "password"
        cls.password.write_text("lamp light\n")
        locked = f"file:{cls.password}"
        run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-days", "2", "-subj", "/CN=Own", "-passout", locked,
            "-addext", "extendedKeyUsage=codeSigning", "-keyout", cls.key, "-out", cls.certificate)
        run("openssl", "pkcs12", "-export", "-in", cls.certificate, "-inkey", cls.key, "-passin", locked,
            "-passout", "pass:lamp light", "-out", cls.pkcs12)

    def check_signed(self, *options):
        dist = self.folder / "dist"
        ran = package(*options, "--password-file", self.password, output=dist)
        self.assertEqual(ran.returncode, 0, ran.stderr)
        self.assertEqual(verify(dist / f"{NAME}.sys", self.certificate).returncode, 0)
        self.assertEqual(list(dist.glob("*.cer")), [])

    def test_image_is_signed_with_certificate_and_locked_key(self):
        self.check_signed("--certificate", self.certificate, "--key", self.key)

    def test_image_is_signed_with_a_pkcs12_file(self):
        self.check_signed("--pkcs12", self.pkcs12)

    def test_signing_that_fails_leaves_the_old_package_alone(self):
        dist, web = self.folder / "kept", self.folder / "web.pem"
        run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=Web", "-addext",
            "extendedKeyUsage=serverAuth", "-keyout", self.folder / "web.key", "-out", web)
        self.assertEqual(package("--unsigned", output=dist).returncode, 0)
        before = files_of(dist)
        own = ("--certificate", self.certificate, "--password-file", self.password)
        no_key = "^Failed to (read key|decode private key file): "  # osslsigncode 2.9 from backports, and Debian's 2.5
        for options, reason in (
                ((*own, "--key", self.password), no_key),
                ((*own, "--key", self.folder / "web.key"), "could not be signed"),
                (("--certificate", web, "--key", self.folder / "web.key"), "not for signing code")):
            with self.subTest(options=options):
                ran = package(*options, output=dist)
                self.assertEqual((ran.returncode, ran.stdout), (1, ""))
                self.assertRegex(ran.stderr, f"(?m){reason}")
                self.assertTrue(ran.stderr.endswith("package: the image could not be signed; nothing was replaced\n"))
                self.assertEqual(files_of(dist), before)
                self.assertEqual([path.name for path in self.folder.glob(".package.*")], [])
