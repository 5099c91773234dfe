"""Scenarios that make the parser tell which keys and words it knows: each holds one word that nobody knows."""

import collections

Place = collections.namedtuple("Place", "name text words")

STICK = "devices: {d: {instance: x%s}}\n"
STEP = "devices: {d: {instance: x}}\nsteps:\n  - %s\n"

# The objects of the schema that take no other keys than they name, and a scenario with an unknown key in each.
OBJECTS = {
    "scenario": "zzzzzzzz: 1\n",
    "part": "policy: {A: {text: [{zzzzzzzz: 1}]}}\n",
    "typedValue": "policy: {A: {zzzzzzzz: 1}}\n",
    "tempFile": "files: {a.log: {zzzzzzzz: 1}}\n",
    "property": STICK % ", properties: {HardwareId: {zzzzzzzz: 1}}",
    "properties": STICK % ", properties: {zzzzzzzz: {}}",
    "hubAnswer": STICK % ", usb: {answers: {languages: {zzzzzzzz: 1}}}",
    "answers": STICK % ", usb: {answers: {zzzzzzzz: 1}}",
    "usb": STICK % ", usb: {zzzzzzzz: 1}",
    "disk": STICK % ", service: disk, disk: {zzzzzzzz: 1}",
    "storageQuery": STICK % ", service: disk, disk: {storage-query: {zzzzzzzz: 1}}",
    "medium": STICK % ", service: disk, disk: {medium: {zzzzzzzz: 1}}",
    "controlAnswer": STICK % ", service: disk, disk: {control-answers: {trim: {zzzzzzzz: 1}}}",
    "device": STICK % ", zzzzzzzz: 1",
    "childDevice": STICK % ", children: {c: {instance: y, zzzzzzzz: 1}}",
    "fault": STEP % "fail: {zzzzzzzz: 1}",
    "conditionMap": STEP % "expect: {log: {zzzzzzzz: 1}}",
    "message": STEP % "{plug: d, expect: {message: {zzzzzzzz: 1}}}",
    "deviceExpectations": STICK % ", expect: {zzzzzzzz: 1}",
    "stepExpectations": STEP % "expect: {zzzzzzzz: 1}",
    "deviceStepExpectations": STEP % "{plug: d, expect: {zzzzzzzz: 1}}",
    "fileExpectation": STEP % "expect: {files: {a.log: {zzzzzzzz: 1}}}",
    "open": STEP % "open: {process: 9, zzzzzzzz: 1}",
    "close": STEP % "close: {zzzzzzzz: 1}",
    "request": STEP % "request: {code: IOCTL_PING, zzzzzzzz: 1}",
    "reply": STEP % "reply: {id: 1, answer: 2, zzzzzzzz: 1}",
    "endThread": STEP % "end-thread: {thread: 1, zzzzzzzz: 1}",
    "requestExpectations": STEP % "expect: {requests: {r: {zzzzzzzz: 1}}}",
    "notification": STEP % "expect: {requests: {r: {notification: {zzzzzzzz: 1}}}}",
    "listedDevice": STEP % "expect: {requests: {r: {devices: [{zzzzzzzz: 1}]}}}",
    "readStep": STEP % "read: {disk: d, zzzzzzzz: 1}",
    "writeStep": STEP % "write: {disk: d, fill: 1, zzzzzzzz: 1}",
    "controlStep": STEP % "disk-control: {disk: d, code: trim, zzzzzzzz: 1}",
    "saveStep": STEP % "save: {disk: d, fill: 1, zzzzzzzz: 1}",
    "mediumStep": STEP % "medium: {disk: d, zzzzzzzz: 1}",
    "diskExpectation": STEP % "expect: {disks: {d: {zzzzzzzz: 1}}}",
    "requestNumbers": STEP % "expect: {disks: {d: {entered: {zzzzzzzz: 1}}}}",
    "step": STEP % "zzzzzzzz: 1",
}

# Keys whose words are fixed, by where they stand.
WORDS = {
    ("scenario", "log-workers"): "log-workers: zzzzzzzz\n",
    ("step", "volume"): STEP % "volume: zzzzzzzz",
    ("step", "log-workers"): STEP % "log-workers: zzzzzzzz",
    ("open", "access"): STEP % "open: {process: 9, access: zzzzzzzz}",
    ("request", "code"): STEP % "request: {code: zzzzzzzz}",
    ("reply", "answer"): STEP % "reply: {id: 1, answer: zzzzzzzz}",
    ("deviceExpectations", "attached"): STICK % ", expect: {attached: zzzzzzzz}",
    ("deviceExpectations", "state"): STICK % ", expect: {state: zzzzzzzz}",
    ("deviceExpectations", "decision"): STICK % ", expect: {decision: zzzzzzzz}",
    ("deviceExpectations", "enforcement"): STICK % ", expect: {enforcement: zzzzzzzz}",
    ("deviceExpectations", "why"): STICK % ", expect: {why: zzzzzzzz}",
    ("deviceExpectations", "mode"): STICK % ", expect: {mode: zzzzzzzz}",
    ("disk", "bus"): STICK % ", service: disk, disk: {bus: zzzzzzzz}",
    ("storageQuery", "short-buffer"): STICK % ", service: disk, disk: {storage-query: {short-buffer: zzzzzzzz}}",
    ("diskExpectation", "volume"): STEP % "expect: {disks: {d: {volume: zzzzzzzz}}}",
    ("controlStep", "code"): STEP % "disk-control: {disk: d, code: zzzzzzzz}",
    ("typedValue", "type"): "policy: {A: {type: zzzzzzzz, text: a}}\n",
}


def strict_objects(definitions):
    """The objects that take no other keys. That of the library differs from a child by what it requires alone."""
    for name, schema in definitions.items():
        if name != "libraryDevice" and any(part.get("additionalProperties") is False
                                           for part in [schema, *schema.get("oneOf", [])]):
            yield name, schema


def property_names(schema):
    """Every key that a schema names, at any depth."""
    if isinstance(schema, list):
        return set().union(*map(property_names, schema))
    if not isinstance(schema, dict):
        return set()
    own = set(schema["properties"]) if isinstance(schema.get("properties"), dict) else set()
    return own.union(*map(property_names, schema.values()))


def words_of(schema):
    """The words that a key may have; none where any text will do."""
    choices = schema.get("enum") or next(part["enum"] for part in schema["anyOf"] if "enum" in part)
    return [word for word in choices if word is not None]


def places(definitions):
    found = []
    for name, text in OBJECTS.items():
        parts = [definitions[name], *definitions[name].get("oneOf", [])]
        found.append(Place(name, text, [key for part in parts for key in part.get("properties", {})]))
    for (name, key), text in WORDS.items():
        schema = definitions[name]["properties"][key]
        named = schema.get("$ref", "").removeprefix("#/definitions/")
        found.append(Place(f"{name} {key}", text, words_of(definitions[named] if named else schema)))
    return found
