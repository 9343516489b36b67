#!/usr/bin/env python3
"""Every source file on disk is compiled by the build, so that no test is forgotten."""

import pathlib

import check_common


def main():
    options = check_common.arguments(
        __doc__,
        ("--build", {"type": pathlib.Path, "required": True, "help": "a configured build"}),
        ("--skip", {"nargs": "*", "default": [], "help": "directories that this build leaves out"}),
    )
    skipped = tuple(f"{directory}/" for directory in (*check_common.SEPARATE_PROJECTS, *options.skip))
    compiled = check_common.compiled_files(options.root, options.build)
    sources = [
        path
        for path in check_common.source_files(options.root, ".cpp")
        if not path.startswith(skipped)
    ]
    failures = [
        f"{path}: not compiled by {options.build}; name it in the SOURCES of a target in a "
        "CMakeLists.txt near it, or delete it"
        for path in sources
        if path not in compiled
    ]
    check_common.finish(failures, f"{len(sources)} source files are built")


if __name__ == "__main__":
    main()
