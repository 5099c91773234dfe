"""YAML as scenarios mean it: YAML 1.2's core types, << merges, keys as they are written."""

import re

import yaml


class Loader(yaml.SafeLoader):
    """A loader whose numbers, booleans and nulls are those of YAML 1.2, not of 1.1 (no dates, no base 60, no "on")."""

    yaml_implicit_resolvers = {}

    def construct_mapping(self, node, deep=False):
        self.flatten_mapping(node)
        return {key.value: self.construct_object(value, deep=True) for key, value in node.value}

    def construct_yaml_map(self, node):
        data = {}
        yield data
        data.update(self.construct_mapping(node))


def number(loader, node):
    text = node.value
    return int(text, 16) if text.lower().startswith("0x") else int(text, 8) if text.startswith("0o") else int(text)


def resolve(tag, pattern, first):
    Loader.add_implicit_resolver("tag:yaml.org,2002:" + tag, re.compile(pattern + r"\Z"), list(first))


resolve("null", r"(~|null|Null|NULL|)", "~nN")
Loader.add_implicit_resolver("tag:yaml.org,2002:null", re.compile(r"\Z"), [""])
resolve("bool", r"(true|True|TRUE|false|False|FALSE)", "tTfF")
resolve("int", r"([-+]?[0-9]+|0o[0-7]+|0[xX][0-9a-fA-F]+)", "-+0123456789")
resolve("float", r"[-+]?(\.[0-9]+|[0-9]+\.[0-9]*|[0-9]+(\.[0-9]*)?[eE][-+]?[0-9]+)", "-+.0123456789")
resolve("merge", r"<<", "<")
Loader.add_constructor("tag:yaml.org,2002:int", number)
Loader.add_constructor("tag:yaml.org,2002:float", lambda loader, node: float(node.value))
Loader.add_constructor("tag:yaml.org,2002:map", Loader.construct_yaml_map)


def load(text):
    return yaml.load(text, Loader=Loader)
