#!/usr/bin/env python3
"""Proves the facts of platform/asserts: sizes, offsets, values, table positions and signatures.

usage: tools/check_headers.py [--official-sdk] [--official-kit FOLDER…]

They are proved of our own headers, for Windows on ARM64 and on x64 and for 64-bit Linux; on demand of official ones
instead:
  --official-sdk         the user-mode headers, package Microsoft.Windows.SDK.CPP, which `dotnet` fetches
  --official-kit FOLDER… the driver kit's, found below the folders: ntifs.h, ntdef.h, wdf.h of kmdf/1.15
A fact about a name that official headers don't declare can't be compared with them, and is counted as such.
The exit status is 0 when every fact holds, 1 when one differs, 2 when headers can't be had or compiled.
"""
import argparse
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from tempfile import TemporaryDirectory

sys.dont_write_bytecode = True  # the tools' folder stays as it is
import official_headers
from facts import FactError, Headers, assertion_files, prove

root = Path(__file__).resolve().parent.parent
own = ["-isystem", str(root / "platform/include")]
linux = ["--target=x86_64-linux-gnu", "-fshort-wchar", "-fsigned-char"]


def windows(processor):
    return [f"--target={processor}-pc-windows-msvc", "-nostdlibinc", "-fms-extensions",
            "-fms-compatibility-version=19.40"]


def own_headers():
    return [Headers("Windows ARM64", windows("aarch64") + own), Headers("Windows x64", windows("x86_64") + own),
            Headers("Linux x64", linux + own)]


def official(arguments, scratch):
    chosen = []
    if arguments.official_sdk:
        folders = official_headers.sdk(scratch)
        if folders is None:
            print("skipped: no `dotnet` on this machine, which fetches the official SDK's headers")
        else:
            chosen += [Headers(f"{name}, SDK", windows(target) + folders.options(scratch, processor), True)
                       for name, target, processor in official_headers.processors]
    if arguments.official_kit:
        folders = official_headers.kit(arguments.official_kit)
        chosen += [Headers(f"{name}, kit", windows(target) + folders.options(scratch, processor), True)
                   for name, target, processor in official_headers.processors]
    return chosen


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--official-sdk", action="store_true")
    parser.add_argument("--official-kit", metavar="FOLDER", nargs="+", type=Path)
    parser.add_argument("--list-skipped", action="store_true", help="name the facts that could not be compared")
    arguments = parser.parse_args()
    differs = False
    with TemporaryDirectory() as scratch, ThreadPoolExecutor() as pool:
        wanted = arguments.official_sdk or arguments.official_kit
        chosen = official(arguments, Path(scratch)) if wanted else own_headers()
        print(f"{'headers for':24}{'facts':>7}{'held':>7}{'differ':>8}{'undeclared':>12}")
        for headers in chosen:
            results = list(pool.map(lambda file: prove(file, headers), assertion_files(root)))
            facts, skipped, differing = (sum((getattr(result, part) for result in results), [])
                                         for part in ("facts", "skipped", "differing"))
            print(f"{headers.name:24}{len(facts):7}{len(facts) - len(skipped) - len(differing):7}"
                  f"{len(differing):8}{len(skipped):12}", flush=True)
            for fact, reason in differing + (skipped if arguments.list_skipped else []):
                print(f"    {fact}: {reason}")
            differs |= bool(differing)
    return 1 if differs else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except (FactError, official_headers.Missing) as error:
        print(f"check_headers: {error}", file=sys.stderr)
        sys.exit(2)
