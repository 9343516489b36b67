"""The scripts in protocol/, which play a mail server with miltertest, each against a daemon of its own."""

import pathlib
import subprocess
import tempfile
import unittest

import setting
from mail_test import RULES
from peers import PATIENCE_SECONDS, Daemon

SCRIPTS = pathlib.Path(__file__).parent / "protocol"
CONFIGURATION = '[[actions]]\nmin = -inf\naction = "tag"\n'


class Protocol(unittest.TestCase):
    def run_script(self, name):
        with tempfile.TemporaryDirectory(prefix="corvane-") as directory:
            rules = pathlib.Path(directory) / "rules"
            rules.mkdir()
            (rules / "rules.cf").write_text(RULES)
            daemon = Daemon(directory, setting.build, rules, CONFIGURATION)
            daemon.start()
            try:
                run = subprocess.run(
                    ["miltertest", "-s", SCRIPTS / name, "-D", f"socket=unix:{daemon.socket}",
                     "-D", f"common={SCRIPTS / 'server.lua'}"],
                    capture_output=True, text=True, check=False, timeout=PATIENCE_SECONDS)
                self.assertEqual(run.returncode, 0, run.stdout + run.stderr)
                self.assertTrue(daemon.runs())
            finally:
                status = daemon.stop()
            self.assertEqual(status, 0)

    def test_negotiation(self):
        self.run_script("negotiation.lua")

    def test_abort(self):
        self.run_script("abort.lua")

    def test_macros(self):
        self.run_script("macros.lua")

    def test_order(self):
        self.run_script("order.lua")
