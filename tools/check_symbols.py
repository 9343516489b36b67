#!/usr/bin/env python3
"""The shared objects export what abi/*.symbols lists, no more and no less.

Weak symbols (inline functions, template instances) are left out: whether they are emitted is the compiler's choice.
"""

import pathlib
import subprocess
import sys

import check_common

LIBRARIES = ("tesselparser", "tesselregex", "tesselcrypto", "corvane-heuristic", "corvane")
WEAK = "wWvVuU"


def exported(library):
    """The demangled names of the strong symbols that a shared object defines, sorted."""
    command = ["nm", "--dynamic", "--defined-only", "--demangle", "--format=posix", str(library)]
    names = set()
    for line in subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines():
        name, kind = line.rsplit(maxsplit=3)[0], line.rsplit(maxsplit=3)[1]
        if kind not in WEAK:
            names.add(name)
    return sorted(names)


def main():
    options = check_common.arguments(
        __doc__.splitlines()[0],
        ("--build", {"type": pathlib.Path, "required": True, "help": "a finished build"}),
        ("--update", {"action": "store_true", "help": "write the lists instead of checking them"}))
    failures = []
    total = 0
    for name in LIBRARIES:
        listed_in = options.root / "abi" / f"{name}.symbols"
        now = exported(options.build / "lib" / f"lib{name}.so")
        total += len(now)
        if options.update:
            listed_in.write_text("".join(symbol + "\n" for symbol in now), encoding="utf-8")
            continue
        listed = listed_in.read_text(encoding="utf-8").splitlines()
        remedy = "; if that is meant, run tools/check_symbols.py --update and say so in the commit"
        failures += [f"abi/{name}.symbols: no longer exported: {s}{remedy}" for s in listed if s not in now]
        failures += [f"abi/{name}.symbols: newly exported: {s}{remedy}" for s in now if s not in listed]
    check_common.finish(failures, f"{total} symbols of {len(LIBRARIES)} shared objects")


if __name__ == "__main__":
    sys.exit(main())
