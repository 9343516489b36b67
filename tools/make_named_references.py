#!/usr/bin/env python3
"""Writes the table of HTML's named character references from Python's copy of the standard's list.

    tools/make_named_references.py > src/host/parser/html/NamedReferenceTable.cpp
"""
from html.entities import html5

ENTRIES_PER_LINE_BYTES = 112


def escaped(text):
    """The text as the inside of a C++ string literal; octal escapes end by themselves."""
    return "".join(
        chr(byte) if 32 < byte < 127 and chr(byte) not in '"\\?' else f"\\{byte:03o}"
        for byte in text.encode("utf-8"))


def lines():
    """The entries, sorted by the bytes of their names, packed into lines."""
    line = ""
    for name in sorted(html5, key=lambda name: name.encode("ascii")):
        entry = f"{name}\\1{escaped(html5[name])}\\2"
        if len(line) + len(entry) > ENTRIES_PER_LINE_BYTES:
            yield line
            line = ""
        line += entry
    yield line


def main():
    """Prints the source file."""
    print('#include "host/parser/html/NamedReferences.h"\n')
    print("namespace Corvane::Html {\n")
    print("// Made by tools/make_named_references.py: each name, byte 1, what it stands for, byte 2.")
    print("// clang-format off")
    print("extern const char kNamedReferenceTable[] =")
    print("\n".join(f'    "{line}"' for line in lines()) + ";")
    print("// clang-format on\n")
    print("} // namespace Corvane::Html")


if __name__ == "__main__":
    main()
