#!/usr/bin/env python3
"""Includes follow the layers: never up or sideways, no third party outside its box, no cycles."""

import pathlib
import re

import check_common

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')

# The directories of each box, and the boxes whose public headers it may include besides its own.
BOXES = {
    "parser": ("include/host/parser", "include/host/include2", "src/host/parser"),
    "regex": ("include/host/regex", "src/host/regex"),
    "crypto": ("include/host/crypto", "src/host/crypto"),
    "heuristic": ("include/heuristic", "src/heuristic"),
    "corvane": ("include/corvane", "src/corvane"),
    "report": ("report",),
    "corpus": ("corpus",),
    "cli": ("cli",),
    "daemon": ("daemon",),
    "python": ("python",),
    "examples": ("examples",),
}
HOST = {"parser", "regex", "crypto"}
BELOW = {
    "parser": set(),
    "regex": {"parser"},
    "crypto": {"parser"},
    "heuristic": HOST,
    "corvane": HOST | {"heuristic"},
    "report": {"corvane"},
    "corpus": HOST | {"corvane", "report"},
    "cli": HOST | {"heuristic", "corvane", "report", "corpus"},
    "daemon": {"corvane", "report"},
    "python": {"corvane"},
    "examples": HOST | {"heuristic", "corvane"},
}

# Third-party headers by the start of their name, and the box that owns them. In a library only its
# sources may include them; a program has no headers that others could get them from.
THIRD_PARTY = {
    "gmime/": "parser",
    "glib": "parser",
    "gio/": "parser",
    "gobject/": "parser",
    "pcre2": "regex",
    "hs.h": "regex",
    "hs_": "regex",
    "hs/": "regex",
    "openssl/": "crypto",
    "boost/": "heuristic",
    "CLI/": "cli",
    "nlohmann/": "cli",
    "sqlite3.h": "corpus",
    "nlopt.h": "corpus",
    "libmilter/": "daemon",
    "toml++/": "daemon",
    "systemd/": "daemon",
    "prometheus/": "daemon",
    "httplib.h": "daemon",
    "pybind11/": "python",
}
PROGRAMS = {"cli", "daemon", "python", "examples"}
# Parts of programs, all of whose headers are for those.
INSIDE = {"report", "corpus"}

# Order inside a box: the only headers of the box itself that these public headers may include.
PARSER_FIRST = {
    "host/parser/Exception.h": {"host/parser/Export.h"},
    "host/include2/TesselRefcounted.h": {"host/parser/Exception.h", "host/parser/Export.h"},
}
HEURISTIC_BASE = {"heuristic/Export.h", "heuristic/Score.h", "heuristic/RuleProfile.h",
                  "heuristic/Rule.h"}
HEURISTIC_FIRST = {
    "heuristic/Export.h": set(),
    "heuristic/Score.h": {"heuristic/Export.h"},
    "heuristic/RuleProfile.h": {"heuristic/Export.h"},
    "heuristic/Rule.h": {"heuristic/Export.h", "heuristic/Score.h", "heuristic/RuleProfile.h"},
    "heuristic/RawBodyRule.h": HEURISTIC_BASE | {"heuristic/BodyRule.h"},
    "heuristic/ScanTexts.h": HEURISTIC_BASE | {"heuristic/HeaderRule.h"},
    "heuristic/FullRule.h": HEURISTIC_BASE | {"heuristic/Scanner.h"},
    "heuristic/TextTrial.h": HEURISTIC_BASE | {"heuristic/HeaderRule.h", "heuristic/ScanTexts.h"},
}

STANDARD = set(
    """algorithm any array atomic bitset cassert cctype cerrno cfenv cfloat charconv chrono cinttypes
    climits clocale cmath codecvt complex condition_variable csetjmp csignal cstdarg cstddef cstdint
    cstdio cstdlib cstring ctime cuchar cwchar cwctype deque exception execution filesystem
    forward_list fstream functional future initializer_list iomanip ios iosfwd iostream istream
    iterator limits list locale map memory memory_resource mutex new numeric optional ostream queue
    random ratio regex scoped_allocator set shared_mutex sstream stack stdexcept streambuf string
    string_view system_error thread tuple type_traits typeindex typeinfo unordered_map unordered_set
    utility valarray variant vector""".split()
)


def box_of(path):
    """The box of a file, None for tests and the like, which may include anything."""
    for box, directories in BOXES.items():
        if path.startswith(tuple(f"{directory}/" for directory in directories)):
            return box
    return None


def includes_of(root, path):
    """Yields (line number, '<' or '"', name) of each include directive."""
    text = (root / path).read_text(encoding="utf-8", errors="replace")
    for number, line in enumerate(text.splitlines(), 1):
        found = INCLUDE.match(line)
        if found:
            yield number, found[1], found[2]


def resolve(root, path, name):
    """The project file that a quoted include names, or None."""
    for base in ("include", "src", "tests", ".", pathlib.PurePath(path).parent.as_posix()):
        candidate = pathlib.PurePath(base, name).as_posix()
        if (root / candidate).is_file():
            return candidate
    return None


def order_fault(path, name):
    """What is wrong with a public header including a public header of its own box, or None."""
    own = path.removeprefix("include/")
    if own in PARSER_FIRST:
        allowed = PARSER_FIRST[own]
    elif own.startswith("heuristic/"):
        allowed = HEURISTIC_FIRST.get(own, HEURISTIC_BASE)
    else:
        return None
    if name in allowed:
        return None
    return "it comes before that header, or beside it; include it in the .cpp file instead"


def project_fault(path, target):
    """What is wrong with a file of a box including the project's file target, or None."""
    box, other = box_of(path), box_of(target)
    public = target.startswith("include/")
    if other is None:
        return "only tests, fuzzers and benchmarks may include this; move what is needed into a box"
    if other != box and other not in BELOW[box]:
        return f"'{box}' must not depend on '{other}'; move the common part below both"
    if not public and other != box and other not in INSIDE:
        return f"a private header of '{other}'; include a public one or make this one public"
    if path.startswith("include/") and not public:
        return "a public header includes a private one; forward-declare, or include it in the .cpp"
    if path.startswith("include/") and other == box:
        return order_fault(path, target.removeprefix("include/"))
    return None


def outside_fault(path, name):
    """What is wrong with a file of a box including a header in angle brackets, or None."""
    box = box_of(path)
    owners = [owner for start, owner in THIRD_PARTY.items() if name.startswith(start)]
    if owners and owners[0] != box and not (
        name.startswith(("nlohmann/", "httplib.h")) and box in PROGRAMS | INSIDE
    ):
        return f"belongs to '{owners[0]}'; wrap what is needed there"
    if owners and path.endswith(".h") and box not in PROGRAMS:
        return "a third-party header in a header; forward-declare, and include it in the .cpp file"
    if path.startswith("include/") and name not in STANDARD:
        return "a public header needs more than the C++17 library; include it in the .cpp file"
    return None


def cycles(graph):
    """The cycles of the header graph, each as the list of its headers."""
    found, done = [], set()

    def walk(header, trail):
        if header in trail:
            found.append(trail[trail.index(header):] + [header])
        elif header not in done:
            for following in graph.get(header, []):
                walk(following, trail + [header])
            done.add(header)

    for header in sorted(graph):
        walk(header, [])
    return found


def main():
    options = check_common.arguments(__doc__)
    failures, graph = [], {}
    files = check_common.source_files(options.root, ".cpp", ".h")
    for path in files:
        for number, kind, name in includes_of(options.root, path):
            target = resolve(options.root, path, name) if kind == '"' else None
            if path.endswith(".h") and target is not None:
                graph.setdefault(path, []).append(target)
            if box_of(path) is None:
                continue
            if kind == "<":
                fault = outside_fault(path, name)
            elif target is None:
                fault = "no such file; foreign headers stand in <>, ours are named from include/ or src/"
            else:
                fault = project_fault(path, target)
            if fault is not None:
                failures.append(f"{path}:{number}: includes {name}: {fault}")
    for cycle in cycles(graph):
        failures.append(f"{cycle[0]}: headers include each other: {' -> '.join(cycle)}; "
                        "forward-declare in one of them")
    check_common.finish(failures, f"the includes of {len(files)} files follow the layers")


if __name__ == "__main__":
    main()
