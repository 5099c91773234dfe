"""The bill of materials: SPDX 2.3, complete, and true."""

import hashlib
import json
import re
import unittest

from examples import PROJECT
from made import NAME, Made, files_of, run

# What SPDX 2.3 demands of each element (spdx.github.io/spdx-spec/v2.3).
DOCUMENT = {"spdxVersion", "dataLicense", "SPDXID", "name", "documentNamespace", "creationInfo"}
PACKAGE = {"SPDXID", "name", "downloadLocation"}
FILE = {"SPDXID", "fileName", "checksums"}
RELATIONSHIPS = {"DESCRIBES", "CONTAINS", "GENERATED_FROM", "BUILD_TOOL_OF"}


class BillOfMaterials(Made, unittest.TestCase):
    options = ("--unsigned",)

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.bill = json.loads((cls.dist / f"{NAME}.spdx.json").read_text())
        cls.elements = {element["SPDXID"]: element for element in cls.bill["packages"] + cls.bill["files"]}
        cls.product, cls.sources = cls.bill["packages"][:2]

    def related(self, kind, element):
        return [self.elements[relation["relatedSpdxElement"]] for relation in self.bill["relationships"]
                if relation["relationshipType"] == kind and relation["spdxElementId"] == element["SPDXID"]]

    def test_all_mandatory_fields_are_there(self):
        self.assertLessEqual(DOCUMENT, self.bill.keys())
        self.assertEqual(self.bill["spdxVersion"], "SPDX-2.3")
        self.assertEqual(self.bill["dataLicense"], "CC0-1.0")
        self.assertEqual(self.bill["SPDXID"], "SPDXRef-DOCUMENT")
        self.assertRegex(self.bill["documentNamespace"], r"^https://[^#\s]+$")
        self.assertEqual(self.bill["creationInfo"]["created"], "2024-01-31T00:00:00Z")
        for creator in self.bill["creationInfo"]["creators"]:
            self.assertRegex(creator, r"^(Person|Organization|Tool): \S")
        for package in self.bill["packages"]:
            self.assertLessEqual(PACKAGE, package.keys())
        for file in self.bill["files"]:
            self.assertLessEqual(FILE, file.keys())
            self.assertTrue(file["fileName"].startswith("./"))
            self.assertIn("SHA1", {checksum["algorithm"] for checksum in file["checksums"]})

    def test_ids_are_well_formed_and_unique(self):
        self.assertEqual(len(self.elements), len(self.bill["packages"]) + len(self.bill["files"]))
        for identifier in self.elements:
            self.assertRegex(identifier, r"^SPDXRef-[A-Za-z0-9.-]+$")

    def test_relationships_join_elements_that_exist(self):
        known = set(self.elements) | {"SPDXRef-DOCUMENT"}
        self.assertEqual({relation["relationshipType"] for relation in self.bill["relationships"]}, RELATIONSHIPS)
        for relation in self.bill["relationships"]:
            self.assertLessEqual({relation["spdxElementId"], relation["relatedSpdxElement"]}, known)

    def test_document_describes_the_package_that_contains_every_file(self):
        self.assertEqual(self.related("DESCRIBES", self.bill), [self.product])
        contained = {file["fileName"][2:] for file in self.related("CONTAINS", self.product)}
        # Itself it can't contain, and the checksums are those of it too.
        self.assertEqual(contained, set(files_of(self.dist)) - {f"{NAME}.spdx.json", "SHA256SUMS"})

    def test_checksums_are_those_of_the_files(self):
        for package, folder in ((self.product, self.dist), (self.sources, PROJECT)):
            for file in self.related("CONTAINS", package):
                data = (folder / file["fileName"]).read_bytes()
                self.assertEqual({checksum["algorithm"]: checksum["checksumValue"] for checksum in file["checksums"]},
                                 {"SHA1": hashlib.sha1(data).hexdigest(), "SHA256": hashlib.sha256(data).hexdigest()})

    def test_verification_codes_are_those_of_the_contained_files(self):
        for package in (self.product, self.sources):
            sums = sorted(checksum["checksumValue"] for file in self.related("CONTAINS", package)
                          for checksum in file["checksums"] if checksum["algorithm"] == "SHA1")
            self.assertEqual(package["packageVerificationCode"]["packageVerificationCodeValue"],
                             hashlib.sha1("".join(sums).encode()).hexdigest())

    def test_image_is_generated_from_every_source_of_the_driver(self):
        image, = (file for file in self.bill["files"] if file["fileName"] == f"./{NAME}.sys")
        origin = {file["fileName"][2:] for file in self.related("GENERATED_FROM", image)}
        sources = {path.relative_to(PROJECT).as_posix() for path in (PROJECT / "src").rglob("*.cpp")}
        self.assertGreater(len(sources), 30)
        self.assertLessEqual(sources, origin)

    def test_tools_are_named_with_their_installed_versions(self):
        tools = {package["name"]: package["versionInfo"] for package in self.bill["packages"][2:]}
        self.assertLessEqual({"clang-19", "lld-19", "llvm-19", "cmake", "osslsigncode"}, tools.keys())
        for name, version in tools.items():
            self.assertEqual(run("dpkg-query", "-W", "-f", "${Version}", name).stdout, version)
        users = {relation["spdxElementId"] for relation in self.bill["relationships"]
                 if relation["relationshipType"] == "BUILD_TOOL_OF"}
        self.assertEqual(users, {package["SPDXID"] for package in self.bill["packages"][2:]})

    def test_no_folder_of_the_building_machine_is_named(self):
        self.assertIsNone(re.search(rf"{re.escape(str(PROJECT))}|{re.escape(str(self.dist))}", json.dumps(self.bill)))
