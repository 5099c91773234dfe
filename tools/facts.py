"""The facts of platform/asserts: where they stand, and which of them hold with some headers."""
import re
import subprocess
from dataclasses import dataclass, field
from pathlib import Path

compiler = "clang++-19"
diagnostic = re.compile(r"^(?P<file>[^\s:][^:]*):(?P<line>\d+):\d+: (?:fatal )?error: (?P<text>.*)$", re.MULTILINE)
# What the compiler says of a name that the headers don't have.
undeclared = re.compile(r"use of undeclared identifier|unknown type name|no type named|file not found")
false_fact = re.compile(r"static assertion failed|declared with 'error' attribute")


class FactError(Exception):
    pass


@dataclass
class Headers:
    name: str
    options: list
    official: bool = False


@dataclass(frozen=True)
class Fact:
    file: str
    last_line: int
    text: str

    def __str__(self):
        return f"{self.file}:{self.last_line}: {self.text}"


@dataclass
class Result:
    facts: list
    skipped: list = field(default_factory=list)
    differing: list = field(default_factory=list)


def assertion_files(root):
    return sorted((root / "platform/asserts").glob("*.cpp"))


def compile_facts(file, headers, *options, source):
    """What the compiler writes and says, standing in the folder of assertions."""
    command = [compiler, "-std=c++20", *headers.options, *options, "-fno-spell-checking", "-ferror-limit=0",
               "-fno-caret-diagnostics", "-Wno-everything", "-I", str(file.parent), "-x", "c++", "-"]
    return subprocess.run(command, cwd=file.parent, input=source, capture_output=True, text=True, check=False)


def list_facts(file, headers):
    text = file.read_text(encoding="utf-8")
    listing = compile_facts(file, headers, "-E", "-P", "-DCHECK_LIST", source=text)
    if listing.returncode:
        raise FactError(f"{file.name} with headers for {headers.name}:\n{listing.stderr}")
    lines = text.split("\n")
    facts, before = [], 0
    for last in map(int, re.findall(r'@fact ".*?" (\d+)', listing.stdout)):
        text = " ".join(line.strip() for line in lines[before:last])
        facts.append(Fact(file.name, last, text[text.rfind("CHECK"):]))
        before = last
    return facts


def errors_by_fact(facts, said, file, headers):
    found = {}
    for error in diagnostic.finditer(said):
        fact = next((fact for fact in facts if int(error["line"]) <= fact.last_line), None)
        if error["file"] != "<stdin>" or fact is None or not fact.text.startswith("CHECK"):
            raise FactError(f"{file.name} with headers for {headers.name}: {error.group()}")
        found.setdefault(fact, []).append(error["text"])
    return found


def without(text, removed):
    """The source text with some facts blanked, every other one on its line."""
    lines = text.split("\n")
    for fact in removed:
        line = fact.last_line - 1
        while True:
            begins = lines[line].startswith("CHECK")
            lines[line] = ""
            if begins:
                break
            line -= 1
    return "\n".join(lines)


def prove(file, headers):
    """Proves the facts of one file. What official headers lack, or declare otherwise, is put aside until the rest compiles:
    only then does the compiler tell which facts the optimiser finds false."""
    result = Result(list_facts(file, headers))
    how = ["-O2", "-S", "-o", "/dev/null", "-DCHECK_FOLDED"] if headers.official else ["-fsyntax-only"]
    remaining, text = result.facts, file.read_text(encoding="utf-8")
    while True:
        proof = compile_facts(file, headers, *how, source=text)
        found = errors_by_fact(remaining, proof.stderr, file, headers)
        if proof.returncode and not found:
            raise FactError(f"{file.name} with headers for {headers.name}: {proof.stderr}")
        for fact, errors in found.items():
            absent = [error for error in errors if headers.official and undeclared.search(error)]
            (result.skipped if absent else result.differing).append((fact, (absent or errors)[0]))
        if all(false_fact.search(error) for errors in found.values() for error in errors):
            return result
        remaining = [fact for fact in remaining if fact not in found]
        text = without(text, found)
