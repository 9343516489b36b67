#!/usr/bin/env python3
"""Every source file is formatted as clang-format 14 formats it."""

import re
import shutil
import subprocess
import sys

import check_common


def formatter():
    """The name of a clang-format 14; other versions format differently."""
    for name in ("clang-format-14", "clang-format"):
        if shutil.which(name):
            version = subprocess.run([name, "--version"], capture_output=True, text=True, check=True)
            if re.search(r"\bversion 14\.", version.stdout):
                return name
    sys.exit("clang-format 14 is missing; install it: apt-get install clang-format-14")


def main():
    options = check_common.arguments(__doc__)
    program = formatter()
    files = check_common.source_files(options.root, ".cpp", ".h")
    if not files:
        sys.exit(f"{options.root}: no source files there; give the source tree with --root")
    result = subprocess.run(
        [program, "--dry-run", "-Werror", *files],
        cwd=options.root, capture_output=True, text=True, check=False,
    )
    wrong = sorted(set(re.findall(r"^([^:\n]+):\d+:\d+: error:", result.stderr, re.MULTILINE)))
    failures = [f"{path}: not formatted; run: {program} -i {path}" for path in wrong]
    if result.returncode != 0 and not wrong:
        failures.append(f"{program} failed: {result.stderr.strip()}")
    check_common.finish(failures, f"{len(files)} files are formatted")


if __name__ == "__main__":
    main()
