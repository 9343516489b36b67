#!/usr/bin/python3
"""Runs a corpus on the workers of a Dask cluster, a shard a task, and merges the results.

    corpus_dask.py --scheduler tcp://host:8786 --shards 64 --parts /shared/parts -o before.db -- \\
        --rules /shared/rules /shared/mail

What follows "--" goes to `corvane corpus run`, as it stands. Rules, messages and PARTS are below paths that all workers
have. A shard whose result is in PARTS is not run again: a second call goes on where the first one stopped. A shard that
fails three times is named, and the others are finished; the status is 1 then.
"""

import argparse
import ctypes
import os
import signal
import subprocess
import sys

from distributed import Client, LocalCluster, as_completed

TRIES = 3


def die_with_worker():
    """What a killed worker has started would hold the file that another worker goes on with."""
    pr_set_pdeathsig = 1
    ctypes.CDLL(None).prctl(pr_set_pdeathsig, signal.SIGKILL)


def run_shard(command, arguments, shard, part):
    """Runs on a worker: makes the result of one shard, unless it is there."""
    if not os.path.exists(part):
        done = subprocess.run(
            [*command, "corpus", "run", *arguments, "--shard", shard, "-o", part],
            capture_output=True,
            check=False,
            preexec_fn=die_with_worker,
        )
        if done.returncode != 0:
            raise RuntimeError(done.stderr.decode(errors="replace").strip())
    return part


def arguments_of(argv):
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    where = parser.add_mutually_exclusive_group(required=True)
    where.add_argument("--scheduler", metavar="ADDRESS", help="a cluster's scheduler")
    where.add_argument("--local", metavar="N", type=int, help="so many processes of this machine")
    parser.add_argument("--shards", metavar="N", type=int, required=True)
    parser.add_argument("--parts", metavar="DIR", required=True, help="for the shards' results")
    parser.add_argument("-o", "--output", metavar="RESULT", required=True)
    parser.add_argument("--command", default="corvane", help="the command as workers find it")
    own = argv[: argv.index("--")] if "--" in argv else argv
    parsed = parser.parse_args(own)
    parsed.run = argv[len(own) + 1 :]
    if not parsed.run:
        parser.error("give the arguments of `corvane corpus run` behind --")
    if parsed.shards < 1:
        parser.error("--shards is to be 1 or more")
    return parsed


def run(client, options):
    """The parts, and what went wrong with which shard."""
    names = [f"{number}/{options.shards}" for number in range(1, options.shards + 1)]
    paths = [
        os.path.join(os.path.abspath(options.parts), f"part-{number}-of-{options.shards}.db")
        for number in range(1, options.shards + 1)
    ]
    tasks = {}
    for shard, path in zip(names, paths):
        task = client.submit(
            run_shard, [options.command], options.run, shard, path, pure=False, retries=TRIES - 1
        )
        tasks[task] = shard
    failures = {}
    for done, task in enumerate(as_completed(tasks), 1):
        if task.status == "error":
            failures[tasks[task]] = task.exception()
        print(f"\r{done} of {len(tasks)} shards", end="", file=sys.stderr, flush=True)
    print(file=sys.stderr)
    return paths, failures


def main(argv):
    options = arguments_of(argv)
    if os.path.exists(options.output):
        sys.exit(f"'{options.output}' is there already; remove it or give another name")
    os.makedirs(options.parts, exist_ok=True)
    cluster = None
    if options.local:
        cluster = LocalCluster(n_workers=options.local, threads_per_worker=1, dashboard_address=None)
    with Client(cluster or options.scheduler) as client:
        paths, failures = run(client, options)
    if cluster:
        cluster.close()
    for shard, failure in sorted(failures.items()):
        print(f"shard {shard} failed {TRIES} times: {failure}", file=sys.stderr)
    if failures:
        return 1
    merge = [options.command, "corpus", "merge", "-o", options.output, *paths]
    return subprocess.run(merge, check=False).returncode


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
