"""Where the files under test lie, and what the driver's sources say about the values that it reads."""

import os
import pathlib
import re

root = pathlib.Path(__file__).resolve().parents[2]
command = os.environ.get("MYRTELHAVEN", str(root / "build/native/bin/myrtelhaven"))
samples = root / "packaging/samples"


def source(path):
    return (root / "src" / path).read_text()


def sources():
    """Path and text of every file of the driver."""
    files = [file for file in sorted((root / "src").rglob("*")) if file.suffix in (".h", ".cpp")]
    return {str(file.relative_to(root / "src")): file.read_text() for file in files}


def parameters_key():
    """The key of the driver's values, below HKEY_LOCAL_MACHINE."""
    path = re.search(r'parametersKeyPath\[\] =\s*L"(.*)";', source("policy/parameters.h")).group(1)
    return path.replace("\\\\", "\\").removeprefix("\\Registry\\Machine\\")


def service_name():
    return parameters_key().split("\\")[-2]


def values():
    """The values that the driver reads below that key, each with the types that it takes."""
    found = {}
    for text in sources().values():
        for name in re.findall(r'queryDwordValue\(parametersKeyPath, L"(\w+)"', text):
            found[name] = {"REG_DWORD"}
        for name in re.findall(r'readRules\(literal\(L"(\w+)"\)', text):
            found[name] = {"REG_SZ", "REG_MULTI_SZ"}
    return found


def built_in_list():
    """The rules that stand in for BlockedCompatibleIds without data."""
    return re.search(r'defaultBlockedRules =\s*literal\(L"([^"]*)"\)', source("policy/rule_storage.cpp")).group(1)


def class_filters():
    """Class GUID and list of each class that the driver filters."""
    return re.findall(r'CLASS_KEY\(L"([^"]*)"\), literal\(L"(\w+)"\)', source("install/class_filters.h"))
