#!/usr/bin/env python3
"""clang-tidy finds nothing in the files that changed since a base commit."""

import concurrent.futures
import os
import pathlib
import shutil
import subprocess
import sys

import check_common
import check_includes


def git(root, *command):
    """The output of a git command, or None where it fails."""
    result = subprocess.run(
        ["git", "-C", str(root), *command], capture_output=True, text=True, check=False
    )
    return result.stdout.strip() if result.returncode == 0 else None


def default_base(root):
    """Where this branch left the main one; on the main branch, the commit before, if there is one."""
    head = git(root, "rev-parse", "HEAD")
    for branch in ("origin/main", "main"):
        base = git(root, "merge-base", "HEAD", branch)
        if base is not None and base != head:
            return base
    return git(root, "rev-parse", "--verify", "--quiet", "HEAD~1") or "HEAD"


def changed_files(root, base):
    """Paths that differ from base in the working tree, and those git does not know yet."""
    changed = git(root, "diff", "--name-only", "--diff-filter=d", "--relative", base)
    if changed is None:
        sys.exit(f"cannot compare with '{base}'; name a commit that exists with --base")
    unknown = git(root, "ls-files", "--others", "--exclude-standard") or ""
    return set(changed.split("\n") + unknown.split("\n"))


def sources_to_check(root, changed, compiled):
    """The changed sources, and for each changed header a source that includes it."""
    chosen = {path for path in changed if path in compiled}
    headers = {path for path in changed if path.endswith(".h")}
    for source in sorted(compiled):
        names = {name for _, kind, name in check_includes.includes_of(root, source) if kind == '"'}
        covered = {check_includes.resolve(root, source, name) for name in names} & headers
        if covered:
            chosen.add(source)
            headers -= covered
    return sorted(chosen)


def main():
    options = check_common.arguments(
        __doc__,
        ("--build", {"type": pathlib.Path, "required": True, "help": "a configured build"}),
        ("--base", {"help": "commit to compare with (default: where the branch left main)"}),
        ("--all", {"action": "store_true", "help": "check every file that is compiled"}),
    )
    if shutil.which("clang-tidy") is None:
        sys.exit("clang-tidy is missing; install it: apt-get install clang-tidy")
    compiled = check_common.compiled_files(options.root, options.build)
    compiled &= set(check_common.source_files(options.root, ".cpp"))
    if options.all:
        chosen = sorted(compiled)
    else:
        changed = changed_files(options.root, options.base or default_base(options.root))
        chosen = sources_to_check(options.root, changed, compiled)

    def tidy(path):
        return subprocess.run(
            ["clang-tidy", "--quiet", "-p", str(options.build), str(options.root / path)],
            capture_output=True, text=True, check=False,
        )

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        results = list(pool.map(tidy, chosen))
    failures = [
        f"{path}: clang-tidy objects; change the code, or say in .clang-tidy why a check is off\n"
        + (result.stdout.strip() or result.stderr.strip())
        for path, result in zip(chosen, results)
        if result.returncode != 0
    ]
    check_common.finish(failures, f"clang-tidy has nothing to say on {len(chosen)} files")


if __name__ == "__main__":
    main()
