#!/usr/bin/env python3
"""Runs a benchmark program of two builds in turn, and prints how the second does against the first.

example: benchmarks/compare.py build/base build/release bench-message --benchmark_filter=Indexed
"""

import argparse
import json
import pathlib
import statistics
import subprocess


def run(build, program, arguments, core):
    """The seconds of each benchmark, by its name."""
    command = [str(build / "bin" / program), "--benchmark_format=json", *arguments]
    if core is not None:
        command = ["taskset", "-c", str(core), *command]
    output = subprocess.run(command, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout
    scale = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}
    return {
        each["name"]: each["real_time"] * scale[each["time_unit"]]
        for each in json.loads(output)["benchmarks"]
        if each["run_type"] == "iteration" and "error_message" not in each
    }


def ratios(options, arguments):
    """For each benchmark the ratio of head to base in each round, and the seconds of both in the last one."""
    found = {}
    for at in range(options.rounds):
        # The first of a pair is sometimes the slower one, so they take turns.
        order = (options.base, options.head) if at % 2 == 0 else (options.head, options.base)
        times = {build: run(build, options.program, arguments, options.core) for build in order}
        base, head = times[options.base], times[options.head]
        for name in base.keys() & head.keys():
            found.setdefault(name, []).append((head[name] / base[name], base[name], head[name]))
    return found


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("base", type=pathlib.Path, help="a build directory")
    parser.add_argument("head", type=pathlib.Path, help="another one")
    parser.add_argument("program", help="as bench-message; what follows is for the program")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--core", type=int, help="the core to run on; without it any")
    options, arguments = parser.parse_known_args()
    if options.base.resolve() == options.head.resolve():
        parser.error("the two builds are the same")
    print(f"{'benchmark':50} {'base ms':>10} {'head ms':>10} {'head/base':>10}  lowest..highest of {options.rounds} rounds")
    for name, rounds in sorted(ratios(options, arguments).items()):
        ratio, base, head = (statistics.median(column) for column in zip(*rounds))
        low, high = min(rounds)[0], max(rounds)[0]
        print(f"{name:50} {base * 1e3:10.4f} {head * 1e3:10.4f} {ratio:10.3f}  {low:.3f}..{high:.3f}")


if __name__ == "__main__":
    main()
