"""Which finding is an error, a warning (W) or nothing (None) in which mode.

Modes are those of Windows' checker: "w" for packages that keep to the driver store and to their own registry keys, "k"
for declarative packages. What is not listed is an error in both.
"""

MODES = ("w", "k")
E, W = "error", "warning"
SPECIAL = {
    1201: {"w": W, "k": W},
    1205: {"w": W, "k": W},
    1231: {"w": E, "k": W},
    1251: {"w": W, "k": W},
    1252: {"w": W, "k": W},
    1304: {"w": None, "k": W},
    1305: {"w": E, "k": W},
    1306: {"w": None, "k": W},
    1307: {"w": E, "k": W},
    1309: {"w": E, "k": W},
    1321: {"w": E, "k": None},
    1322: {"w": E, "k": None},
    1323: {"w": E, "k": None},
    1324: {"w": E, "k": W},
    1329: {"w": E, "k": None},
    2010: {"w": W, "k": W},
    2083: {"w": W, "k": W},
    2084: {"w": E, "k": W},
    9007: {"w": W, "k": W},
}


def level(number, mode):
    return SPECIAL[number][mode] if number in SPECIAL else E
