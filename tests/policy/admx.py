"""A Group Policy template as the policy editor understands it, and what it would write."""

import collections
import re
import xml.etree.ElementTree as etree

import project

NAMESPACE = "http://schemas.microsoft.com/GroupPolicy/2006/07/PolicyDefinitions"
TEMPLATE = project.root / "packaging/policy/TarvenholtMyrtelhaven.admx"
TEXTS = project.root / "packaging/policy/en-US/TarvenholtMyrtelhaven.adml"

# Registry type of each kind of element, and the control that fills it in.
TYPES = {"text": "REG_SZ", "multiText": "REG_MULTI_SZ", "decimal": "REG_DWORD", "enum": "REG_DWORD"}
CONTROLS = {"text": {"textBox", "comboBox"}, "multiText": {"multiTextBox"}, "decimal": {"decimalTextBox"},
            "enum": {"dropdownList"}}

Policy = collections.namedtuple("Policy", "name node elements")
Element = collections.namedtuple("Element", "id kind key value type node")


def name(tag):
    return "{%s}%s" % (NAMESPACE, tag)


def kind(node):
    return node.tag.removeprefix("{%s}" % NAMESPACE)


def read(path):
    return etree.parse(path).getroot()


def strings(texts):
    return {node.get("id"): node.text for node in texts.iter(name("string"))}


def presentations(texts):
    return {node.get("id"): node for node in texts.iter(name("presentation"))}


def referenced(text, table):
    """The id in a reference like $(string.Log)."""
    return re.fullmatch(r"\$\(%s\.(\w+)\)" % table, text).group(1)


def policies(template):
    found = []
    for node in template.iter(name("policy")):
        elements = [Element(child.get("id"), kind(child), child.get("key", node.get("key")), child.get("valueName"),
                            TYPES[kind(child)], child) for child in node.find(name("elements"))]
        found.append(Policy(node.get("name"), node, elements))
    return found


def choices(element):
    """The choices of an enumeration: the id of each text, and its number."""
    return {referenced(item.get("displayName"), "string"): int(item.find(f".//{name('decimal')}").get("value"))
            for item in element.node.iter(name("item"))}


def written(element, entered):
    """Type and data that the editor stores for what was entered or chosen."""
    if element.kind == "enum":
        return element.type, choices(element)[entered]
    if element.kind == "decimal":
        low, high = int(element.node.get("minValue", 0)), int(element.node.get("maxValue", 9999))
        assert low <= entered <= high, f"{element.id} takes {low} to {high}"
        return element.type, entered
    longest = int(element.node.get("maxLength", 1023))
    for text in [entered] if element.kind == "text" else entered:
        assert 0 < len(text) <= longest, f"{element.id} takes texts of 1 to {longest} characters"
    return element.type, entered
