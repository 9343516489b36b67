#!/usr/bin/env python3
"""How good proposed scores are: misses on messages that they were not made from.

tune_quality.py COMMAND MAIL [SPLITS [OPTION...]]: the options go to `corvane corpus tune`. MAIL holds a directory for each class of messages (*.eml). In each split one half
of them gives 300 rules, the words that tell the classes apart best, and scores for them; the other half is scored. Three
ways to give scores are compared: those of `corvane corpus tune`, one score for all, and the log-odds of each rule alone.
"""

import collections
import json
import math
import pathlib
import random
import re
import statistics
import subprocess
import sys
import tempfile

RULES = 300
OVER = ("spam", "phish", "scam", "junk", "malware", "virus")
SHARES = (0.0, 0.01)
WORD = re.compile(r"[a-z]{3,20}")


def run(command, *arguments):
    done = subprocess.run([command, *map(str, arguments)], capture_output=True, check=False)
    if done.returncode != 0:
        sys.exit(done.stderr.decode(errors="replace"))
    return done.stdout.decode(errors="replace")


def words_of(command, files):
    """The single words and pairs of words in the texts that body rules see, by file."""
    found = {}
    for start in range(0, len(files), 500):
        for line in run(command, "text", "--json", *files[start : start + 500]).splitlines():
            message = json.loads(line)
            terms = set()
            for text in message["texts"]:
                if text["kind"] == "body":
                    words = WORD.findall(text["text"].lower())
                    terms.update(words)
                    terms.update(map(" ".join, zip(words, words[1:])))
            found[message["file"]] = terms
    return found


def is_over(file):
    return pathlib.Path(file).parent.name.startswith(OVER)


def rules_of(train, words):
    """Terms and their log-odds: those of the largest, by how many messages they say it of."""
    counts = {True: collections.Counter(), False: collections.Counter()}
    sizes = collections.Counter(map(is_over, train))
    for file in train:
        counts[is_over(file)].update(words[file])
    odds = {}
    for term in set(counts[True]) | set(counts[False]):
        over, under = counts[True][term], counts[False][term]
        if over + under >= 5:
            value = math.log((over + 0.5) / (sizes[True] + 1) * (sizes[False] + 1) / (under + 0.5))
            if value > 0:
                odds[term] = (value * math.sqrt(over + under), value)
    best = sorted(odds, key=lambda term: (-odds[term][0], term))[:RULES]
    return {term: odds[term][1] for term in best}


def results(command, scratch, name, files):
    """The hits of each message, by names of rules, and the result's file."""
    mail = scratch / f"mail-{name}"
    for number, file in enumerate(files):
        directory = mail / pathlib.Path(file).parent.name
        directory.mkdir(parents=True, exist_ok=True)
        (directory / f"{number}.eml").symlink_to(file)
    result = scratch / f"{name}.db"
    run(command, "corpus", "run", "--rules", scratch / "rules", "-j", 2, mail, "-o", result)
    names, messages = {}, []
    for line in run(command, "corpus", "export", result).splitlines():
        entry = json.loads(line)
        if "rule" in entry:
            names[entry["rule"]] = entry["name"]
        elif "hits" in entry:
            messages.append((entry["class"].startswith(OVER), [names[hit] for hit in entry["hits"]]))
    return messages, result


def misses(messages, scores):
    """The share missed at the lowest threshold with no more than each share of false positives."""
    totals = {True: [], False: []}
    for over, hits in messages:
        totals[over].append(sum(scores.get(hit, 0.0) for hit in hits))
    under = sorted(totals[False], reverse=True)
    found = []
    for share in SHARES:
        threshold = under[int(share * len(under))]
        found.append(sum(total <= threshold for total in totals[True]) / len(totals[True]))
    return found


def split(command, files, words, seed, options):
    order = random.Random(seed).sample(files, len(files))
    train, test = order[: len(order) // 2], order[len(order) // 2 :]
    with tempfile.TemporaryDirectory() as directory:
        scratch = pathlib.Path(directory)
        (scratch / "rules").mkdir()
        odds = rules_of(train, words)
        lines, alone = [], {}
        for number, (term, value) in enumerate(odds.items()):
            lines.append(f"body N{number} /\\b{term.replace(' ', '[^a-z]+')}\\b/i\n")
            alone[f"N{number}"] = round(value, 1)
        (scratch / "rules" / "a.cf").write_text("".join(lines))
        _, result = results(command, scratch, "train", train)
        run(command, "corpus", "tune", result, "-o", scratch / "tuned.score", *options)
        tuned = {}
        for line in (scratch / "tuned.score").read_text().splitlines():
            if line.startswith("score "):
                _, name, score = line.split()
                tuned[name] = float(score)
        messages, _ = results(command, scratch, "test", test)
        return {
            "tuned": misses(messages, tuned),
            "equal": misses(messages, dict.fromkeys(alone, 1.0)),
            "log-odds": misses(messages, alone),
        }


def main():
    command, mail = pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve()
    splits = int(sys.argv[3]) if len(sys.argv) > 3 else 10
    files = sorted(str(path) for path in mail.rglob("*.eml"))
    words = words_of(command, files)
    files = [file for file in files if file in words]
    found = collections.defaultdict(list)
    for seed in range(splits):
        for way, values in split(command, files, words, seed, sys.argv[4:]).items():
            found[way].append(values)
    for place, share in enumerate(SHARES):
        print(f"missed at {share:.0%} false positives, mean of {splits} splits:")
        for way, values in found.items():
            numbers = [each[place] for each in values]
            error = statistics.stdev(numbers) / math.sqrt(splits) if splits > 1 else 0.0
            print(f"  {way:8}  {statistics.mean(numbers):.4f} +- {error:.4f}")
        for way in ("equal", "log-odds"):
            gains = [one[place] - other[place] for one, other in zip(found[way], found["tuned"])]
            error = statistics.stdev(gains) / math.sqrt(splits) if splits > 1 else 0.0
            print(f"  tuned misses less than {way} by {statistics.mean(gains):+.4f} +- {error:.4f}")


if __name__ == "__main__":
    main()
