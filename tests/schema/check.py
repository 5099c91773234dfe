"""Holds scenarios, library, parser, output and documentation against the published schemas.

usage: check.py COMMAND PROJECT_FOLDER
"""

import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import xml.sax.saxutils

import jsonschema

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import keys
import yaml_file

command, root = sys.argv[1], pathlib.Path(sys.argv[2])
scenarios = root / "scenarios"
schemas = {name: json.loads((root / "docs/schema" / f"{name}.schema.json").read_text())
           for name in ("scenario", "devices", "result")}
store = {f"{name}.schema.json": schema for name, schema in schemas.items()}
results = []


def check(name, problems):
    """Notes one check; `problems` says what is wrong, and is empty when all is well."""
    results.append((name, problems))
    if problems:
        print(f"✗ {name}: {problems}")


def validator(name):
    resolver = jsonschema.RefResolver(f"{name}.schema.json", schemas[name], store=store)
    return jsonschema.Draft7Validator(schemas[name], resolver=resolver)


def invalid(name, data):
    """What a schema says against data: the first problem of the part that fits best, where it stands."""
    error = jsonschema.exceptions.best_match(validator(name).iter_errors(data))
    return "" if error is None else f"{'/'.join(map(str, error.absolute_path))}: {error.message[:300]}"


def play(*files):
    """The results of playing, and the text in which they came."""
    ran = subprocess.run([command, "play", "--json", *map(str, files)], capture_output=True, text=True, timeout=500)
    return json.loads(ran.stdout), ran


def play_texts(texts):
    """The results of playing scenarios given as texts."""
    with tempfile.TemporaryDirectory() as folder:
        files = [pathlib.Path(folder) / f"{number:04}.yaml" for number in range(len(texts))]
        for file, text in zip(files, texts):
            file.write_text(text)
        return play(*files)[0]


def out_of_order(data, schema):
    """The first object whose keys do not stand in the order in which the schema tells them."""
    while "$ref" in schema:
        schema = schemas["result"]["definitions"][schema["$ref"].rsplit("/", 1)[1]]
    for choice in schema.get("oneOf", schema.get("anyOf", [])):
        if not list(jsonschema.Draft7Validator({**choice, "definitions": schemas["result"]["definitions"]})
                    .iter_errors(data)):
            return out_of_order(data, choice)
    if isinstance(data, dict):
        if list(data) != list(schema["properties"]):
            return f"keys are {list(data)}, not {list(schema['properties'])}"
        return next(filter(None, (out_of_order(data[key], schema["properties"][key]) for key in data)), "")
    if isinstance(data, list):
        return next(filter(None, (out_of_order(item, schema["items"]) for item in data)), "")
    return ""


def check_files():
    for file in sorted(scenarios.rglob("*.yaml")):
        kind = "devices" if file.parent.name == "devices" else "scenario"
        check(f"{file.relative_to(root)} is valid", invalid(kind, yaml_file.load(file.read_text())))


def check_results():
    # Every third of each folder shows all there is to see; logs of many megabytes show nothing new.
    files = [file for file in sorted(scenarios.rglob("*.yaml"))
             if file.parent.name != "devices" and "{repeat: R" not in file.read_text()][::3]
    files.append(scenarios / "desk.yaml")
    for file, result in zip(files, play(*files)[0]):
        name = f"{file.relative_to(root)} printed as JSON"
        check(name, invalid("result", [result]) or out_of_order([result], schemas["result"]))
    texts = ["steps:\n  - unplug: control-node\n  - expect: {loaded: true, log: [INFO x]}\n", "name: [\n", "nam: x\n"]
    for text, result in zip(texts, play_texts(texts)):
        check(f"{text!r} printed as JSON", invalid("result", [result]) or out_of_order([result], schemas["result"]))


def check_refused():
    """What the parser refuses the schema refuses too, but for what only the parser can see."""
    entries = yaml_file.load((root / "tests/schema/refused.yaml").read_text())
    for entry, result in zip(entries, play_texts([entry["text"] for entry in entries])):
        name = f"refused: {entry['text']!r}"
        said = " | ".join(problem["message"] for problem in result.get("problems", []))
        check(f"{name} by the parser", "" if entry["says"] in said else f"it says {said!r}, not {entry['says']!r}")
        seen = entry.get("seen", True)
        try:
            valid = not invalid("scenario", yaml_file.load(entry["text"]))
        except (yaml_file.yaml.YAMLError, RecursionError):
            continue  # nothing that a schema could be held against
        check(f"{name} {'by' if seen else 'unseen by'} the schema",
              "" if valid != seen else f"it is {'' if valid else 'in'}valid there")


def check_keys():
    """The parser's keys and words are those of the schema, each way, and all of them are documented."""
    definitions = {"scenario": schemas["scenario"], **schemas["scenario"]["definitions"]}
    documentation = (root / "docs/scenarios.md").read_text()
    places = keys.places(definitions)
    strict = {name for name, schema in keys.strict_objects(definitions)}
    check("every strict object is looked at", sorted(strict - {place.name for place in places}))
    for place, result in zip(places, play_texts([place.text for place in places])):
        messages = [problem["message"] for problem in result.get("problems", [])]
        known = next((re.split(", ", message.split("; known are ")[1]) for message in messages
                      if "zzzzzzzz" in message and "; known are " in message), [])
        difference = sorted(map(str, set(known) ^ set(place.words)))
        check(f"{place.name}: keys or words of parser and schema", f"differ in {difference}" if difference else "")
        for word in place.words:
            documented = re.search(rf"(?<![\w-]){re.escape(word)}(?![\w-])", documentation)
            check(f"{place.name}: {word} is documented", "" if documented else "it is not")
    for word in sorted(keys.property_names(schemas["result"])):
        check(f"results: {word} is documented", "" if f"`{word}`" in documentation or f'"{word}"' in documentation
              else "it is not")


def check_words():
    """Results use the words that expectations use."""
    expected = schemas["scenario"]["definitions"]["deviceExpectations"]["properties"]
    device = schemas["result"]["definitions"]["device"]["properties"]
    found = {**device, "why": device["why"]["properties"]["reason"]}
    for key in ("attached", "state", "decision", "enforcement", "why"):
        same = [word for word in expected[key]["enum"] if word is not None] == found[key]["enum"]
        check(f"results and expectations: words of {key}", "" if same else "differ")


def write_report():
    target = os.environ.get("GTEST_OUTPUT", "")
    if not target.startswith("xml:"):
        return
    with open(os.path.join(target[4:], "schema.xml"), "w", encoding="utf-8") as file:
        file.write("<testsuites><testsuite>\n")
        for name, problems in results:
            failure = "<failure/>" if problems else ""
            file.write(f"<testcase name={xml.sax.saxutils.quoteattr(ascii(name))} status='run'>{failure}</testcase>\n")
        file.write("</testsuite></testsuites>\n")


for name, schema in schemas.items():
    jsonschema.Draft7Validator.check_schema(schema)
check_files()
check_results()
check_refused()
check_keys()
check_words()
write_report()
failed = sum(1 for _, problems in results if problems)
print(f"{len(results) - failed} checks passed, {failed} failed")
sys.exit(1 if failed else 0)
