#!/usr/bin/env python3
"""Runs the tests with a real mail server and its neighbours: run.py [full] [TEST...]

full has those that take minutes too. TEST is a part of a test's name, as mail_test.Actions.
"""

import argparse
import os
import pathlib
import shutil
import sys
import time
import unittest

import setting

MODULES = ("mail_test", "equality_test", "lossless_test", "haproxy_test", "metrics_test",
           "protocol_test", "install_test")
PROGRAMS = {"postfix": "/usr/sbin/postfix", "smtp-source": "/usr/sbin/smtp-source", "swaks": "swaks",
            "haproxy": "/usr/sbin/haproxy", "prometheus": "/usr/bin/prometheus",
            "miltertest": "miltertest"}
NO_PEER = 77


def arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=pathlib.Path, default=setting.build, help="a build of the daemon")
    parser.add_argument("--skip-absent", action="store_true",
                        help=f"end with {NO_PEER}, after the tests' names, where they cannot run here")
    parser.add_argument("words", nargs="*", metavar="full | TEST")
    return parser.parse_args()


def tests_in(suite):
    for each in suite:
        yield from tests_in(each) if isinstance(each, unittest.TestSuite) else (each,)


def chosen(words):
    tests = list(tests_in(unittest.defaultTestLoader.loadTestsFromNames(MODULES)))
    if words:
        tests = [test for test in tests if any(word in test.id() for word in words)]
    return tests


def missing():
    """What the tests need and this machine or user has not, in words."""
    lacks = [name for name, program in PROGRAMS.items() if not shutil.which(program)]
    if lacks:
        return f"{', '.join(lacks)}: not installed; run ./test system, which installs what is needed"
    if os.geteuid() != 0:
        return "Postfix is started by root alone; run ./test system as root"
    return ""


class Result(unittest.TextTestResult):
    """Tells how long each test took."""

    def startTest(self, test):
        self.begun = time.monotonic()
        super().startTest(test)

    def addSuccess(self, test):
        super(unittest.TextTestResult, self).addSuccess(test)
        self.stream.writeln(f"ok, {time.monotonic() - self.begun:.1f} s")


def main():
    options = arguments()
    setting.build = options.build.resolve()
    setting.full = "full" in options.words
    if os.environ.get("CORVANE_MAIL_DIR"):
        setting.mail = pathlib.Path(os.environ["CORVANE_MAIL_DIR"]).resolve()
    tests = chosen([word for word in options.words if word != "full"])
    lack = missing()
    if lack and options.skip_absent:
        for test in tests:
            print(f"skipped: {test.id()}")
        print(f"skipped because of {lack}")
        return NO_PEER
    if lack or not tests:
        print(f"error: {lack or 'no test has such a name'}", file=sys.stderr)
        return 2
    result = unittest.TextTestRunner(stream=sys.stdout, verbosity=2, resultclass=Result).run(
        unittest.TestSuite(tests))
    failed = len(result.failures) + len(result.errors)
    passed = result.testsRun - failed - len(result.skipped)
    print(f"{passed} passed, {failed} failed, {len(result.skipped)} skipped")
    return 1 if failed or not passed else 0


if __name__ == "__main__":
    sys.exit(main())
