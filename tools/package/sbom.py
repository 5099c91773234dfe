"""Writes the bill of materials of a package, as SPDX 2.3 JSON.

usage: sbom.py FOLDER PROJECT_FOLDER SECONDS VERSION OUTPUT TOOL_PACKAGE…
It lists every file of FOLDER, the sources below PROJECT_FOLDER that they were made of, and the named Debian packages.
"""

import hashlib
import json
import pathlib
import re
import subprocess
import sys
import time
import urllib.parse

import inf

# What the image and the INF are made of.
SOURCES = ("src", "include", "platform", "cmake", "packaging")
# What each file of the package was made of; all others are copies.
MADE_OF = {".sys": ("src/", "include/", "platform/", "cmake/"), ".pdb": ("src/", "include/", "platform/", "cmake/"),
           ".inf": ("packaging/TarvenholtMyrtelhavenDriver.inf.in",)}
TYPES = {".sys": "BINARY", ".pdb": "BINARY", ".cer": "OTHER"}


def identifier(kind, name):
    """An element's id: letters, digits, dots and dashes; a digest keeps names apart that lose characters."""
    readable = re.sub(r"[^A-Za-z0-9.-]+", "-", name)
    return f"SPDXRef-{kind}-{readable}-{hashlib.sha256(name.encode()).hexdigest()[:8]}"


def file_element(kind, folder, path):
    data = path.read_bytes()
    name = path.relative_to(folder).as_posix()
    return {
        "SPDXID": identifier(kind, name),
        "fileName": "./" + name,
        "fileTypes": [TYPES.get(path.suffix, "TEXT") if kind == "File" else "SOURCE"],
        "checksums": [{"algorithm": "SHA1", "checksumValue": hashlib.sha1(data).hexdigest()},
                      {"algorithm": "SHA256", "checksumValue": hashlib.sha256(data).hexdigest()}],
        "licenseConcluded": "NOASSERTION",
        "licenseInfoInFiles": ["NOASSERTION"],
        "copyrightText": "NOASSERTION",
    }


def sha1(element):
    return next(sum_["checksumValue"] for sum_ in element["checksums"] if sum_["algorithm"] == "SHA1")


def package_element(name, version, **more):
    return {"SPDXID": identifier("Package", name), "name": name, "versionInfo": version,
            "downloadLocation": "NOASSERTION", "filesAnalyzed": False, "licenseConcluded": "NOASSERTION",
            "licenseDeclared": "NOASSERTION", "copyrightText": "NOASSERTION", **more}


def analyzed_package(name, version, files, **more):
    """A package whose files are listed: the verification code is the SHA-1 of their sorted SHA-1s."""
    code = hashlib.sha1("".join(sorted(map(sha1, files))).encode()).hexdigest()
    return package_element(name, version, **{"filesAnalyzed": True, "licenseInfoFromFiles": ["NOASSERTION"],
                                             "packageVerificationCode": {"packageVerificationCodeValue": code}, **more})


def tool_packages(names):
    for name in names:
        version, arch = subprocess.run(["dpkg-query", "-W", "-f", "${Version} ${Architecture}", name], check=True,
                                       capture_output=True, text=True).stdout.split()
        locator = f"pkg:deb/debian/{name}@{urllib.parse.quote(version, safe='')}?arch={arch}"
        yield package_element(name, version, supplier="Organization: Debian", primaryPackagePurpose="APPLICATION",
                              externalRefs=[{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                                             "referenceLocator": locator}])


def source_files(project):
    for folder in SOURCES:
        yield from sorted(path for path in (project / folder).rglob("*") if path.is_file())


def relationship(element, kind, related):
    return {"spdxElementId": element, "relationshipType": kind, "relatedSpdxElement": related}


def bill_of_materials(folder, project, seconds, version, tools):
    files = [file_element("File", folder, path) for path in sorted(folder.rglob("*")) if path.is_file()]
    sources = [file_element("Source", project, path) for path in source_files(project)]
    product = analyzed_package("Tarvenholt Myrtelhaven driver package", version, files,
                               primaryPackagePurpose="INSTALL", supplier="Organization: Tarvenholt")
    origin = analyzed_package("Tarvenholt Myrtelhaven sources", version, sources,
                              primaryPackagePurpose="SOURCE", supplier="Organization: Tarvenholt")
    tools = list(tool_packages(tools))

    relations = [relationship("SPDXRef-DOCUMENT", "DESCRIBES", product["SPDXID"]),
                 relationship(product["SPDXID"], "GENERATED_FROM", origin["SPDXID"])]
    relations += [relationship(product["SPDXID"], "CONTAINS", file["SPDXID"]) for file in files]
    relations += [relationship(origin["SPDXID"], "CONTAINS", file["SPDXID"]) for file in sources]
    for file in files:
        begins = tuple("./" + name for name in MADE_OF.get(pathlib.PurePath(file["fileName"]).suffix, ()))
        relations += [relationship(file["SPDXID"], "GENERATED_FROM", source["SPDXID"])
                      for source in sources if begins and source["fileName"].startswith(begins)]
    relations += [relationship(tool["SPDXID"], "BUILD_TOOL_OF", product["SPDXID"]) for tool in tools]

    content = product["packageVerificationCode"]["packageVerificationCodeValue"]
    return {
        "spdxVersion": "SPDX-2.3",
        "dataLicense": "CC0-1.0",
        "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"Tarvenholt Myrtelhaven {version}",
        "documentNamespace": f"https://spdx.org/spdxdocs/tarvenholt-myrtelhaven-{version}-{content}",
        "creationInfo": {"created": time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(seconds)),
                         "creators": ["Organization: Tarvenholt", "Tool: package"]},
        "packages": [product, origin, *tools],
        "files": files + sources,
        "relationships": relations,
    }


if __name__ == "__main__":
    folder, project, seconds, version, output, *tools = sys.argv[1:]
    bill = bill_of_materials(pathlib.Path(folder), pathlib.Path(project), int(seconds),
                             inf.four_numbers(version), tools)
    pathlib.Path(output).write_text(json.dumps(bill, indent=2) + "\n", encoding="utf-8")
