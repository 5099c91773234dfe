"""What is in the package, and that its INF says what the driver does."""

import re
import unittest

import check
import pe
from examples import PROJECT
from inf_check.check import check_file
from inf_check.document import Document
from inf_check.text import decode
from made import BUILT_IMAGE, NAME, Made, files_of, run


def source(name):
    return (PROJECT / name).read_text()


class Content(Made, unittest.TestCase):
    options = ("--unsigned",)

    def test_package_holds_the_driver_its_symbols_and_the_papers(self):
        files = set(files_of(self.dist))
        self.assertLessEqual({f"{NAME}.sys", f"{NAME}.pdb", f"{NAME}.inf", f"{NAME}.spdx.json", "SHA256SUMS",
                              "README.md", "docs/package.md"}, files)
        self.assertEqual({name for name in files if name.endswith((".pem", ".key", ".p12", ".cer"))}, set())

    def test_policies_documents_and_the_service_header_are_those_of_the_project(self):
        for folder, given in (("policy", "packaging/policy"), ("samples", "packaging/samples"), ("docs", "docs"),
                              ("include", "include")):
            self.assertTrue(files_of(PROJECT / given))
            self.assertEqual(files_of(self.dist / folder), files_of(PROJECT / given))

    def test_links_of_the_documents_lead_to_files_of_the_package(self):
        links = [(document, link) for document in self.dist.rglob("*.md")
                 for link in re.findall(r"\]\(([^)#]+)[^)]*\)", document.read_text()) if "://" not in link]
        self.assertGreater(len(links), 20)
        self.assertEqual([(str(document), link) for document, link in links
                          if not (document.parent / link).exists()], [])

    def test_image_and_symbols_are_those_of_the_build(self):
        self.assertEqual((self.dist / f"{NAME}.sys").read_bytes(), BUILT_IMAGE.read_bytes())
        self.assertEqual((self.dist / f"{NAME}.pdb").read_bytes(), BUILT_IMAGE.with_suffix(".pdb").read_bytes())

    def test_checksums_cover_every_file_and_hold(self):
        listed = {line.split("  ", 1)[1] for line in (self.dist / "SHA256SUMS").read_text().splitlines()}
        self.assertEqual(listed, set(files_of(self.dist)) - {"SHA256SUMS"})
        self.assertEqual(run("sha256sum", "-c", "--strict", "SHA256SUMS", cwd=self.dist).returncode, 0)

    def test_a_changed_file_fails_its_checksum(self):
        readme = self.dist / "README.md"
        text = readme.read_bytes()
        self.addCleanup(readme.write_bytes, text)
        readme.write_bytes(text + b"\n")
        self.assertEqual(run("sha256sum", "-c", "SHA256SUMS", cwd=self.dist).returncode, 1)

    def test_everybody_may_read_the_package(self):
        for path in self.dist.rglob("*"):
            self.assertEqual(path.stat().st_mode & 0o777, 0o755 if path.is_dir() else 0o644, path)

    def test_what_was_made_is_printed(self):
        self.assertRegex(self.ran.stdout, rf"{re.escape(str(self.dist))}: version [\d.]+ of 2024-01-31, unsigned\n")
        for name, data in files_of(self.dist).items():
            self.assertIn(f"{len(data):10}  {name}\n", self.ran.stdout)


class Inf(Made, unittest.TestCase):
    options = ("--unsigned",)

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.path = cls.dist / f"{NAME}.inf"
        cls.inf = Document(*decode(cls.path.read_bytes()))

    def value(self, section, key, index=0):
        return self.inf.section(section).first(key).value(index)

    def test_inf_has_no_findings(self):
        self.assertEqual(check_file(self.path, "w"), [])
        self.assertEqual(check_file(self.path, "k"), [])

    def test_inf_is_ascii_with_windows_line_ends(self):
        data = self.path.read_bytes()
        self.assertTrue(data.isascii())
        self.assertEqual(data.count(b"\n"), data.count(b"\r\n"))
        self.assertNotIn(b"@", data)

    def test_version_is_that_of_the_project_and_of_the_image(self):
        project = re.search(r"^project\(\S+ VERSION (\S+)", source("CMakeLists.txt"), re.M)[1]
        version = self.value("Version", "DriverVer", 1)
        self.assertEqual(version, project + ".0" * (3 - project.count(".")))
        self.assertEqual(version, pe.Image(BUILT_IMAGE.read_bytes()).file_version())

    def test_date_is_the_given_one(self):
        self.assertEqual(self.value("Version", "DriverVer", 0), "01/31/2024")

    def test_package_is_for_arm64_from_windows_10_version_2004_on(self):
        self.assertEqual([(e.value(0), e.values[1:]) for e in self.inf.section("Manufacturer").entries],
                         [("Devices", ["NTarm64.10.0...19041"])])
        self.assertEqual(pe.Image(BUILT_IMAGE.read_bytes()).machine, check.ARM64)

    def test_hardware_id_is_the_one_by_which_the_driver_knows_its_node(self):
        comparison = r'equalCaseSensitive\(hardwareIds, literal\(L"([^"]+)"\)'
        known = re.search(comparison, source("src/driver/device_add.cpp"))[1]
        models = self.inf.section("Devices.NTarm64.10.0...19041").entries
        self.assertEqual([model.values[1:] for model in models], [[known.replace("\\\\", "\\")]])

    def test_service_is_the_one_that_the_driver_registers(self):
        name = re.search(r'serviceName = literal\(L"([^"]+)"\)', source("src/install/registry_updater.cpp"))[1]
        self.assertEqual(self.value("ControlNode.NT.Services", "AddService"), name)
        self.assertEqual(self.value("ControlNode.NT.Wdf", "KmdfService"), name)

    def test_start_type_is_the_one_that_the_driver_sets(self):
        boot = re.search(r"enum class StartType[^{]*\{ boot = (\d)", source("src/install/registry_updater.h"))[1]
        self.assertEqual(self.value("Service", "StartType"), boot)
        self.assertEqual(self.value("Service", "ErrorControl"), "1")
        self.assertEqual(self.value("Service", "ServiceType"), "1")

    def test_image_runs_from_the_driver_store(self):
        self.assertEqual(self.value("DestinationDirs", "DriverFiles"), "13")
        self.assertEqual(self.value("Service", "ServiceBinary"), rf"%13%\{NAME}.sys")

    def test_framework_version_is_the_one_that_the_image_binds_to(self):
        entry = source("platform/entry/framework_entry.cpp")
        numbers = [re.search(rf"framework{part} = (\d+)", entry)[1] for part in ("Major", "Minor")]
        self.assertEqual(self.value("Framework", "KmdfLibraryVersion"), ".".join(numbers))

    def test_setup_class_is_none_that_the_driver_filters(self):
        filtered = re.findall(r"CLASS_KEY\(L\"(\{[^}]+\})", source("src/install/class_filters.h"))
        self.assertEqual(len(filtered), 9)
        self.assertNotIn(self.value("Version", "ClassGuid").lower(), [guid.lower() for guid in filtered])

    def test_only_system_and_administrators_may_open_the_control_device(self):
        settings = {entry.value(2): entry.values for entry in self.inf.section("NodeSettings").entries}
        protected, *entries = re.findall(r"D:P|\([^)]*\)", settings["Security"][4])
        self.assertEqual(protected, "D:P")
        self.assertEqual(sorted(entries), ["(A;;GA;;;BA)", "(A;;GA;;;SY)"])
        self.assertEqual(int(settings["DeviceCharacteristics"][4], 0), 0x100)  # FILE_DEVICE_SECURE_OPEN

    def test_catalog_is_named_but_left_to_windows(self):
        self.assertEqual(self.value("Version", "CatalogFile"), f"{NAME}.cat")
        self.assertFalse((self.dist / f"{NAME}.cat").exists())
