"""The lines of docs/operating.md that put the daemon beside Postfix, run as they stand there."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

import setting

PLAYED_OUT = pathlib.Path(__file__).parent / "install_played_out.py"
NAMESPACE = ["unshare", "--mount", "--propagation", "private"]


class Install(unittest.TestCase):
    """Postfix has the configuration that Debian ships, with its smtpd chrooted.

    All is done in a mount namespace, where what the lines write lies over the machine's files and goes with the
    namespace.
    """

    def test_ten_lines_put_it_beside_postfix(self):
        if subprocess.run([*NAMESPACE, "true"], capture_output=True, check=False).returncode:
            self.skipTest("this process may not mount, as in most containers")
        with tempfile.TemporaryDirectory(prefix="corvane-") as directory:
            run = subprocess.run([*NAMESPACE, sys.executable, PLAYED_OUT, setting.build, directory],
                                 stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
            self.assertEqual(run.returncode, 0, run.stdout + run.stderr)
