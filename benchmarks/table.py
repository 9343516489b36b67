#!/usr/bin/env python3
"""Measures scans with growing rule sets, and prints tables and writes plots (SVG) of them.

example: benchmarks/table.py --mail DIR --make-rules PATH/make_rules.py
"""

import argparse
import json
import math
import os
import pathlib
import re
import subprocess
import sys
import tempfile

SEED = 1
MIXES = ("mail", "all")

# For so many rules: the whole message at least so many times as fast as the plain walk, and the text stage at most so
# many times as slow as the search for literals alone.
GOALS = {
    "whole": {"mail": {500: 25, 2000: 100, 5000: 280, 20000: 500}, "all": {500: 18, 2000: 30, 5000: 40, 20000: 80}},
    "text": {"mail": {500: 5, 2000: 4, 5000: 5, 20000: 8}, "all": {500: 10, 2000: 14, 5000: 12, 20000: 25}},
}


def arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--mail", type=pathlib.Path, required=True, help="a directory of messages (.eml)")
    parser.add_argument(
        "--make-rules", type=pathlib.Path, required=True,
        help="a program that makes a rule set when called with COUNT SEED DIRECTORY --mix all|mail",
    )
    parser.add_argument("--build", type=pathlib.Path, default=pathlib.Path("build/release"))
    parser.add_argument("--counts", default="500,2000,5000,20000", help="numbers of rules")
    parser.add_argument(
        "--work", type=pathlib.Path, help="where rule sets and results are kept",
        default=pathlib.Path(tempfile.gettempdir(), f"corvane-bench-{os.getuid()}"),
    )
    parser.add_argument("--core", type=int, default=0, help="the core to run on")
    parser.add_argument("--no-run", action="store_true", help="use the results of the last run")
    parser.add_argument("--plots", type=pathlib.Path, help="where rules.svg and size.svg go; default: --work")
    options = parser.parse_args()
    if "cf" in str(options.work.resolve()):
        parser.error("rule files below a path with the letters cf are taken for encrypted; choose another --work")
    options.counts = [int(count) for count in options.counts.split(",")]
    options.plots = options.plots or options.work
    return options


def make_rules(options):
    """Makes the rule sets that are not there yet; answers the directory of this run, which links to them."""
    kept = options.work / "sets"
    chosen = options.work / "rules"
    chosen.mkdir(parents=True, exist_ok=True)
    for old in chosen.iterdir():
        old.unlink()
    for mix in MIXES:
        for count in options.counts:
            directory = kept / f"{mix}-{count}"
            if not directory.is_dir():
                fresh = kept / f"{mix}-{count}.new"
                subprocess.run(
                    [sys.executable, options.make_rules, str(count), str(SEED), fresh, "--mix", mix],
                    check=True, stdout=subprocess.DEVNULL,
                )
                fresh.rename(directory)
            (chosen / directory.name).symlink_to(directory)
    return chosen


def run(options, rules, program, *more, pinned=True, results=None):
    """The benchmarks of a program, by name without the suffix that tells how time is taken."""
    core = ["taskset", "-c", str(options.core)] if pinned else []
    results = options.work / f"{results or program}.json"
    if not options.no_run:
        print(f"running {program} ...", file=sys.stderr)
        subprocess.run(
            [*core, options.build / "bin" / program,
             f"--benchmark_out={results}", "--benchmark_out_format=json", *more],
            check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            env={**os.environ, "CORVANE_BENCH_RULES": str(rules), "CORVANE_MAIL_DIR": str(options.mail)},
        )
    found = {}
    for each in json.loads(results.read_text(encoding="utf-8"))["benchmarks"]:
        if each["run_type"] != "iteration":
            continue
        if "error_message" in each:
            sys.exit(f"{program}: {each['name']}: {each['error_message']}")
        name = re.sub(r"(/iterations:\d+)?/manual_time$", "", each["name"])
        # Of repetitions the fastest counts.
        if name not in found or each["real_time"] < found[name]["real_time"]:
            found[name] = each
    return found


def print_table(header, rows):
    print("| " + " | ".join(header) + " |")
    print("|" + "---|" * len(header))
    for row in rows:
        print("| " + " | ".join(row) + " |")
    print()


def print_goals(options, messages, stages):
    def whole(mix, count):
        goal = GOALS["whole"][mix].get(count, 0)
        ratio = messages[f"Walk/{mix}-{count}"]["ratio"]
        return f"{ratio:.0f}x (goal {goal}x{'' if ratio >= goal else ', MISSED'})"

    def text(mix, count):
        goal = GOALS["text"][mix].get(count, math.inf)
        key = f"{mix}-{count}"
        ratio = stages[f"Text/{key}"]["mean_us"] / stages[f"TextLiterals/{key}"]["mean_us"]
        return f"{ratio:.1f} (goal {goal}{'' if ratio <= goal else ', MISSED'})"

    print("Whole message: how many times as fast as the plain walk. Text stage: how many times what the bare search for")
    print("its literals takes over the same bytes.\n")
    print_table(
        ["rules", *(f"whole message, {mix}" for mix in MIXES), *(f"text stage, {mix}" for mix in MIXES)],
        [[f"{count:,}", *(whole(mix, count) for mix in MIXES), *(text(mix, count) for mix in MIXES)]
         for count in options.counts],
    )


def print_messages(options, messages):
    def row(mix, count):
        ours, walk = messages[f"Indexed/{mix}-{count}"], messages[f"Walk/{mix}-{count}"]
        return [
            f"{mix}-{count}", f"{ours['median_us']:.1f}", f"{ours['mean_us']:.1f}", f"{walk['median_us']:.0f}",
            f"{walk['mean_us']:.0f}", f"{walk['messages']:.0f}", f"{ours['allocations']:.1f}",
            f"{ours['allocations_again']:.1f}", f"{ours['matches']:.1f}",
        ]

    read = messages["Read"]
    print(f"{read['messages']:.0f} messages; microseconds. Reading a message takes {read['median_us']:.1f} (median), "
          f"{read['mean_us']:.1f} (mean).\n")
    print_table(
        ["set", "median", "mean", "walk: median", "walk: mean", "walk: messages", "allocations", "again", "matches"],
        [row(mix, count) for mix in MIXES for count in options.counts],
    )


def print_stages(options, stages):
    names = ("Header", "Text", "RawBody", "SecondText", "Uri", "Full", "Meta", "TextLiterals", "RawBodyLiterals")
    print(f"Stages, mean microseconds of a message. Before them come the choice of the language, "
          f"{stages['Language']['mean_us']:.1f}, and\nthe headers' conversion to UTF-8, "
          f"{stages['HeadersToUtf8']['mean_us']:.1f}.\n")
    print_table(
        ["set", *names],
        [[f"{mix}-{count}", *(f"{stages[f'{name}/{mix}-{count}']['mean_us']:.1f}" for name in names)]
         for mix in MIXES for count in options.counts],
    )


class Plot:
    """A plot with logarithmic axes."""

    WIDTH, HEIGHT, LEFT, RIGHT, TOP, BOTTOM = 820, 520, 80, 200, 40, 60
    COLORS = ("#0b6e99", "#0b6e99", "#c0392b", "#c0392b", "#7f8c8d", "#7f8c8d")

    def __init__(self, lines):
        """lines: (name, [(x, y)]) in pairs, the second one of each pair is dashed."""
        self.lines = lines
        points = [point for _, line in lines for point in line]
        self.x = self.decades(point[0] for point in points)
        self.y = self.decades(point[1] for point in points)

    @staticmethod
    def decades(values):
        logs = [math.log10(value) for value in values]
        return math.floor(min(logs)), max(math.ceil(max(logs)), math.floor(min(logs)) + 1)

    def at(self, x, y):
        across = (math.log10(x) - self.x[0]) / (self.x[1] - self.x[0])
        up = (math.log10(y) - self.y[0]) / (self.y[1] - self.y[0])
        return (self.LEFT + across * (self.WIDTH - self.LEFT - self.RIGHT),
                self.HEIGHT - self.BOTTOM - up * (self.HEIGHT - self.TOP - self.BOTTOM))

    def grid(self):
        left, bottom = self.at(10 ** self.x[0], 10 ** self.y[0])
        right, top = self.at(10 ** self.x[1], 10 ** self.y[1])
        for power in range(self.x[0], self.x[1] + 1):
            x = self.at(10**power, 10 ** self.y[0])[0]
            yield f'<path d="M{x:.1f} {top:.1f}V{bottom:.1f}" stroke="#ddd"/>'
            yield f'<text x="{x:.1f}" y="{bottom + 20:.1f}" text-anchor="middle">{10**power:,}</text>'
        for power in range(self.y[0], self.y[1] + 1):
            y = self.at(10 ** self.x[0], 10**power)[1]
            yield f'<path d="M{left:.1f} {y:.1f}H{right:.1f}" stroke="#ddd"/>'
            yield f'<text x="{left - 8:.1f}" y="{y + 4:.1f}" text-anchor="end">{10.0**power:,g}</text>'

    def curves(self):
        for number, (name, line) in enumerate(self.lines):
            color = self.COLORS[number % len(self.COLORS)]
            dash = ' stroke-dasharray="6 4"' if number % 2 else ""
            places = [self.at(*point) for point in line]
            path = "L".join(f"{x:.1f} {y:.1f}" for x, y in places)
            yield f'<path d="M{path}" fill="none" stroke="{color}" stroke-width="2"{dash}/>'
            yield from (f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3" fill="{color}"/>' for x, y in places)
            yield (f'<text x="{places[-1][0] + 10:.1f}" y="{places[-1][1] + (-3 if number % 2 == 0 else 11):.1f}" '
                   f'fill="{color}">{name}</text>')

    def write(self, path, title, x_title, y_title):
        middle = (self.LEFT + self.WIDTH - self.RIGHT) / 2
        path.write_text("\n".join([
            f'<svg xmlns="http://www.w3.org/2000/svg" width="{self.WIDTH}" height="{self.HEIGHT}" '
            'font-family="sans-serif" font-size="12">',
            '<rect width="100%" height="100%" fill="white"/>',
            f'<text x="{middle}" y="22" text-anchor="middle" font-size="15">{title}</text>',
            f'<text x="{middle}" y="{self.HEIGHT - 15}" text-anchor="middle">{x_title}</text>',
            f'<text x="18" y="{self.HEIGHT / 2}" text-anchor="middle" '
            f'transform="rotate(-90 18 {self.HEIGHT / 2})">{y_title}</text>',
            *self.grid(), *self.curves(), "</svg>", "",
        ]), encoding="utf-8")


def print_others(options, load, tap):
    def row(mix, count):
        key = f"{mix}-{count}"
        return [
            key, f"{load[f'Load/{key}']['real_time']:.0f}", f"{load[f'Index/{key}']['real_time']:.0f}",
            f"{load[f'Index/{key}']['bytes_per_rule']:.0f}", f"{load[f'Load/{key}']['resident_MiB']:.1f}",
            f"{tap[f'Indexed/{key}']['real_time']:.1f}", f"{tap[f'Walk/{key}']['real_time']:.0f}",
            f"{tap[f'Walk/{key}']['full_rules']:.0f}",
        ]

    print("Load and, of it, the index (ms; its bytes a rule); resident MiB; the tap over 1 MB of mail, and with the plain "
          "walk (ms).\n")
    print_table(
        ["set", "load", "index", "bytes/rule", "resident", "tap", "tap, walk", "full rules"],
        [row(mix, count) for mix in MIXES for count in options.counts],
    )


def print_threads(options, rules):
    """Two threads with one rule set against two with a set each; in turn, since a busy machine slows any of them."""
    count = 5000 if 5000 in options.counts else options.counts[-1]
    for mix in MIXES:
        key = f"{mix}-{count}"
        found = run(options, rules, "bench-threads", f"--benchmark_filter=/{key}/", "--benchmark_min_time=0.2",
                    "--benchmark_repetitions=8", "--benchmark_enable_random_interleaving=true", pinned=False,
                    results=f"bench-threads-{mix}")

        def speed(sets, threads, what=found, of=key):
            return max(each["items_per_second"] for name, each in what.items()
                       if name.startswith(f"{sets}/{of}/") and name.endswith(f"threads:{threads}"))

        print(f"{key}, two threads that share a set: {speed('Shared', 2) / speed('Apart', 2):.2f} of two with a set each "
              f"(goal 0.9), {speed('Shared', 2) / speed('Shared', 1):.2f} of one thread.")
    print()


def write_plots(options, messages, stages, growth):
    def line(results, name, mix):
        return [(count, results[f"{name}/{mix}-{count}"]["mean_us"]) for count in options.counts]

    lines = []
    for title, results, name in (("scan", messages, "Indexed"), ("plain walk", messages, "Walk"),
                                 ("bare literals of the text", stages, "TextLiterals")):
        lines += [(f"{title}, {mix}", line(results, name, mix)) for mix in MIXES]
    options.plots.mkdir(parents=True, exist_ok=True)
    Plot(lines).write(options.plots / "rules.svg", "Time of a message against rules", "rules",
                      "microseconds of the mean message")

    def sizes(key):
        return sorted((int(name.rsplit("/", 1)[1]), each["real_time"]) for name, each in growth.items()
                      if name.startswith(f"Size/{key}/"))

    shown = sorted({options.counts[0], options.counts[-1], *(count for count in options.counts if count == 5000)})
    lines = [(f"{count:,} rules, {mix}", sizes(f"{mix}-{count}")) for count in shown for mix in MIXES]
    Plot(lines).write(options.plots / "size.svg", "Time of a message against its size", "bytes", "microseconds")
    print(f"plots: {options.plots / 'rules.svg'}, {options.plots / 'size.svg'}")


def main():
    options = arguments()
    rules = make_rules(options)
    messages = run(options, rules, "bench-message")
    stages = run(options, rules, "bench-stages")
    print_goals(options, messages, stages)
    print_messages(options, messages)
    print_stages(options, stages)
    load = run(options, rules, "bench-load")
    tap = run(options, rules, "bench-tap", "--benchmark_min_time=0.2")
    print_others(options, load, tap)
    print_threads(options, rules)
    growth = run(options, rules, "bench-growth", "--benchmark_filter=Size", "--benchmark_min_time=0.1")
    write_plots(options, messages, stages, growth)


if __name__ == "__main__":
    main()
