"""Registry Editor's exports: written for what a policy would set, and read to look at samples."""

import re

HEADER = "Windows Registry Editor Version 5.00"
NUMBERS = {"REG_NONE": 0, "REG_SZ": 1, "REG_MULTI_SZ": 7}


def data_text(kind, data):
    if data is None:
        return "-"
    if kind == "REG_DWORD":
        return f"dword:{data:08x}"
    if kind == "REG_SZ" and data != "":
        escaped = data.replace("\\", "\\\\").replace('"', '\\"')
        return f'"{escaped}"'
    text = data if kind == "REG_SZ" else "".join(string + "\0" for string in data) + "\0"
    encoded = ",".join(f"{byte:02x}" for byte in text.encode("utf-16-le"))
    return f"hex({NUMBERS[kind]:x}):{encoded}"


def write(path, key, values):
    """One key with its values: {name: (type, data)}; data None deletes the value."""
    lines = [HEADER, "", f"[HKEY_LOCAL_MACHINE\\{key}]"]
    lines += [f'"{name}"={data_text(*value)}' for name, value in values.items()]
    path.write_bytes(("\ufeff" + "\r\n".join(lines) + "\r\n\r\n").encode("utf-16-le"))


def decoded(text):
    """Type and data behind the equals sign."""
    if text == "-":
        return None, None
    if text.startswith("dword:"):
        return "REG_DWORD", int(text.removeprefix("dword:"), 16)
    if text.startswith('"'):
        return "REG_SZ", re.sub(r"\\(.)", r"\1", text[1:-1])
    number, digits = re.fullmatch(r"hex\((\w)\):(.*)", text).groups()
    kind = next(kind for kind, known in NUMBERS.items() if known == int(number, 16))
    data = bytes.fromhex(digits.replace(",", "")).decode("utf-16-le")
    return kind, data.split("\0")[:-2] if kind == "REG_MULTI_SZ" else data


def read(text):
    """The values of each key: {key: {name: (type, data)}}."""
    found, key = {}, None
    for line in text.replace("\\\r\n", "").split("\r\n")[1:]:
        line = line.strip()
        if line.startswith("["):
            key = line[1:-1]
            found.setdefault(key, {})
        elif line and not line.startswith(";"):
            name, data = re.fullmatch(r'"([^"]*)"=(.*)', line).groups()
            found[key][name] = decoded(re.sub(r",\s+", ",", data))
    return found
