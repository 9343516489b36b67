#!/usr/bin/python3
"""The drivers for clusters: the same result as one process gives, whatever is killed.

drivers_test.py COMMAND SOURCE_DIRECTORY
"""

import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import threading
import unittest

from distributed import Client, LocalCluster

COMMAND, SOURCES = (pathlib.Path(each).resolve() for each in sys.argv[1:3])
DRIVERS = SOURCES / "drivers"


class DriversTest(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.root = pathlib.Path(scratch.name)
        mail = self.root / "mail" / "all"
        mail.mkdir(parents=True)
        for number in range(300):
            (mail / f"{number}.eml").write_text(f"Subject: {number}\n\nprize {number % 7}\n" * 20)
        (self.root / "rules").mkdir()
        (self.root / "rules" / "a.cf").write_text("body A /prize [0-3]/\nbody B /prize 6/\n")
        self.arguments = ["--rules", str(self.root / "rules"), str(self.root / "mail")]

    def command(self, *arguments):
        done = subprocess.run(
            [str(COMMAND), "corpus", *map(str, arguments)], capture_output=True, check=True
        )
        return done.stdout

    def expected(self):
        whole = self.root / "whole.db"
        self.command("run", *self.arguments, "-o", whole)
        return self.command("export", whole)

    def dask(self, cluster, *arguments):
        return subprocess.run(
            [
                sys.executable, str(DRIVERS / "corpus_dask.py"),
                "--scheduler", cluster.scheduler_address, "--command", str(COMMAND), *arguments,
            ],
            capture_output=True, text=True, check=False,
        )

    def test_dask_survives_a_killed_worker_and_goes_on(self):
        options = ["--shards", "24", "--parts", str(self.root / "parts")]
        with LocalCluster(n_workers=3, threads_per_worker=1, dashboard_address=None) as cluster:
            with Client(cluster) as client:
                process = next(iter(client.run(os.getpid).values()))
                parts = self.root / "parts"

                def kill():
                    while not (parts.is_dir() and any(parts.glob("*.db"))):
                        pass
                    os.kill(process, signal.SIGKILL)

                killer = threading.Thread(target=kill)
                killer.start()
                first = self.dask(cluster, *options, "-o", str(self.root / "one.db"), "--", *self.arguments)
                killer.join()
                self.assertEqual(first.returncode, 0, first.stderr)
                self.assertEqual(self.command("export", self.root / "one.db"), self.expected())
                # What is there is not made anew.
                (parts / "part-5-of-24.db").unlink()
                times = {path: path.stat().st_mtime_ns for path in parts.glob("*.db")}
                again = self.dask(cluster, *options, "-o", str(self.root / "two.db"), "--", *self.arguments)
                self.assertEqual(again.returncode, 0, again.stderr)
                self.assertEqual({path: path.stat().st_mtime_ns for path in times}, times)
                self.assertEqual(self.command("export", self.root / "two.db"), self.expected_bytes())

    def expected_bytes(self):
        return self.command("export", self.root / "whole.db")

    def test_dask_names_what_fails_and_finishes_the_others(self):
        parts = self.root / "parts"
        parts.mkdir()
        (parts / "part-2-of-3.db.partial").write_text("of something else, and long enough for that")
        with LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=None) as cluster:
            done = self.dask(
                cluster, "--shards", "3", "--parts", str(parts), "-o", str(self.root / "x.db"),
                "--", *self.arguments,
            )
        self.assertEqual(done.returncode, 1)
        self.assertIn("shard 2/3 failed 3 times: corvane: ", done.stderr)
        self.assertEqual(len(list(parts.glob("*-of-3.db"))), 2)
        self.assertFalse((self.root / "x.db").exists())

    def test_an_array_of_jobs_makes_all_parts(self):
        parts = self.root / "parts"
        script = [str(DRIVERS / "corpus-array.sh"), str(parts), *self.arguments]
        for task in (3, 1, 2, 1):
            environment = dict(
                os.environ, CORVANE=str(COMMAND), SLURM_ARRAY_TASK_ID=str(task), SLURM_ARRAY_TASK_MAX="3"
            )
            subprocess.run(script, env=environment, check=True, capture_output=True)
        self.command("merge", "-o", self.root / "array.db", *sorted(parts.glob("*.db")))
        self.assertEqual(self.command("export", self.root / "array.db"), self.expected())
        self.assertNotEqual(subprocess.run(script, capture_output=True, check=False).returncode, 0)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
