"""What the repository checks share: the source files, the compile commands, and how a check ends."""

import argparse
import json
import pathlib
import sys

# Everything that is compiled lies below these; none of them holds build output.
SOURCE_DIRS = (
    "include", "src", "report", "corpus", "cli", "daemon", "python", "tests", "fuzzers", "benchmarks", "examples",
)

# Built by a project of its own against the installed libraries.
SEPARATE_PROJECTS = ("tests/check/consumer",)


def arguments(purpose, *options):
    """Parses the command line: --root, and each option of the check as (name, keyword arguments)."""
    parser = argparse.ArgumentParser(description=purpose)
    here = pathlib.Path(__file__).resolve().parent.parent
    parser.add_argument("--root", type=pathlib.Path, default=here, help="the source tree")
    for name, settings in options:
        parser.add_argument(name, **settings)
    parsed = parser.parse_args()
    parsed.root = parsed.root.resolve()
    return parsed


def source_files(root, *suffixes):
    """The paths, relative to root and sorted, of all source files with one of the suffixes."""
    found = []
    for directory in SOURCE_DIRS:
        for path in (root / directory).rglob("*"):
            if path.suffix in suffixes and path.is_file():
                found.append(path.relative_to(root).as_posix())
    return sorted(found)


def compiled_files(root, build):
    """The paths, relative to root, that the build in that directory compiles."""
    commands = build / "compile_commands.json"
    if not commands.is_file():
        sys.exit(f"{commands} is missing; configure first: cmake --preset dev")
    compiled = set()
    for command in json.loads(commands.read_text(encoding="utf-8")):
        path = pathlib.Path(command["directory"], command["file"]).resolve()
        if path.is_relative_to(root):
            compiled.add(path.relative_to(root).as_posix())
    return compiled


def finish(failures, checked):
    """Ends the program: one line per failure and status 1, or what was checked and status 0."""
    for failure in failures:
        print(failure)
    if failures:
        sys.exit(1)
    print(f"ok: {checked}")
    sys.exit(0)
