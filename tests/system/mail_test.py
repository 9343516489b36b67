"""Messages through Postfix are treated as configured, with the verdict that a scan of their file has."""

import contextlib
import pathlib
import shutil
import subprocess
import tempfile
import unittest

import setting
import verdicts
from peers import Daemon, Postfix, SmtpClient, wait_until

RULES = """\
#[lang section]\tALL
body     SIX      /\\bworth six\\b/
score    SIX      6
body     TWELVE   /\\bworth twelve\\b/
score    TWELVE   12
body     TWENTY   /\\bworth twenty\\b/
score    TWENTY   20
body     THIRTY   /\\bworth thirty\\b/
score    THIRTY   30
header   FORGED   X-Corvane-Status =~ /never scored/
score    FORGED   0.5
"""
ACTIONS = """\
[headers]
report = true
[[actions]]
min = -inf
action = "tag"
[[actions]]
min = 12
action = "quarantine"
[[actions]]
min = 20
action = "reject"
text = "No such offers here"
[[actions]]
min = 30
action = "discard"
[skip]
recipients = ["postmaster@example.org"]
"""


class WithPostfix(unittest.TestCase):
    """A directory, a daemon and a server that hands it messages, for all tests of a class."""

    rules = RULES
    configuration = ""

    @classmethod
    def setUpClass(cls):
        cls.directory = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory(prefix="corvane-")))
        cls.directory.chmod(0o755)
        rules = cls.directory / "rules"
        if isinstance(cls.rules, pathlib.Path):
            shutil.copytree(cls.rules, rules, ignore=shutil.ignore_patterns("messages"))
        else:
            rules.mkdir()
            (rules / "rules.cf").write_text(cls.rules)
        cls.postfix = Postfix(cls.directory, {
            "filtered": {"smtpd_milters": cls.start_filter(rules)}, "plain": {}})
        cls.addClassCleanup(cls.postfix.stop)
        cls.postfix.start()

    @classmethod
    def start_filter(cls, rules):
        """Where Postfix finds it."""
        cls.daemon = Daemon(cls.directory, setting.build, rules, cls.configuration)
        cls.daemon.start()
        cls.addClassCleanup(cls.daemon.stop)
        return cls.daemon.for_postfix()

    def setUp(self):
        self.postfix.clear()

    def client(self, service="filtered"):
        client = SmtpClient(self.postfix.ports[service])
        self.addCleanup(client.close)
        self.assertTrue(client.greeted)
        return client

    def delivered(self, count=None):
        messages = [path.read_bytes() for path in self.postfix.delivered()]
        if count is not None:
            self.assertEqual(len(messages), count)
        return messages


def letter(text, headers=""):
    return (f"From: Joe <joe@example.net>\nTo: inbox@example.org\nSubject: An offer\n{headers}"
            f"Message-ID: <1@example.net>\nMIME-Version: 1.0\nContent-Type: text/plain\n\n{text}\n").encode()


class Actions(WithPostfix):
    configuration = ACTIONS

    def test_each_band_of_scores_has_its_action(self):
        client = self.client()
        answers = {text: client.send(letter(f"This is worth {text}"))
                   for text in ("nothing", "six", "twelve", "twenty", "thirty")}
        self.assertEqual({text: answer[0] for text, answer in answers.items()},
                         {"nothing": 250, "six": 250, "twelve": 250, "twenty": 550, "thirty": 250})
        self.assertEqual(answers["twenty"][1], "5.7.1 No such offers here")
        tagged = sorted((verdicts.status(each) for each in self.delivered(2)), key=lambda each: each["score"])
        self.assertEqual([(each["verdict"], each["score"], each["rules"]) for each in tagged],
                         [("clean", "0", "none"), ("hit", "6", "SIX")])
        held = self.postfix.held()
        self.assertEqual(len(held), 1)
        self.assertEqual(verdicts.status(held[0])["rules"], "TWELVE")

    def test_headers_name_what_gave_the_verdict(self):
        self.client().send(letter("worth six"))
        message = self.delivered(1)[0]
        status = verdicts.status(message)
        running = self.daemon.ctl("status").stdout
        self.assertIn(status["generation"], running)
        self.assertIn(status["engine"], running)
        wait_until(lambda: f"{status['id']}: message-id=<1@example.net>" in self.postfix.logged(), "the server's log")
        self.assertEqual(verdicts.headers(message, "X-Corvane-Report"), ["SIX 6"])
        # In front of all that the message brought, where nobody can pass it for his own.
        names = [name for name, _ in verdicts.header_lines(message)[0]]
        self.assertLess(names.index(b"x-corvane-status"), names.index(b"from"))

    def test_forged_headers_are_tried_and_removed(self):
        forged = ("X-Corvane-Status: clean; never scored\nx-corvane-status: clean;\n\tscore=0; never scored\n"
                  "X-Corvane-Report: nothing to see\nX-Corvane-Other: stays\n")
        self.client().send(letter("worth six", forged))
        message = self.delivered(1)[0]
        self.assertEqual(verdicts.status(message)["rules"], "FORGED,SIX")
        self.assertEqual(len(verdicts.headers(message, "X-Corvane-Report")), 1)
        self.assertEqual(verdicts.headers(message, "X-Corvane-Other"), ["stays"])
        self.assertNotIn(b"never scored", message)

    def test_only_messages_for_exempt_recipients_alone_are_skipped(self):
        client = self.client()
        exempt = "postmaster@example.org"
        self.assertEqual(client.send(letter("worth twenty"), recipients=[exempt])[0], 250)
        self.assertEqual(verdicts.status(self.delivered(1)[0])["verdict"], "skipped")
        self.assertEqual(client.send(letter("worth twenty"), recipients=[exempt, "inbox@example.org"])[0], 550)

    def test_without_the_daemon_clients_come_again(self):
        self.daemon.stop()
        try:
            with contextlib.closing(SmtpClient(self.postfix.ports["filtered"])) as client:
                self.assertEqual(client.send(letter("worth six"))[0], 451)
        finally:
            self.daemon.start()
        self.assertEqual(self.client().send(letter("worth six"))[0], 250)
        self.assertEqual(verdicts.status(self.delivered(1)[0])["rules"], "SIX")

    def test_clients_that_others_wrote(self):
        port = self.postfix.ports["filtered"]
        swaks = subprocess.run(
            ["swaks", "--server", f"127.0.0.1:{port}", "--from", "joe@example.net", "--to", "inbox@example.org",
             "--h-Subject", "Swaks", "--body", "worth six"], capture_output=True, text=True, check=False)
        self.assertEqual(swaks.returncode, 0, swaks.stdout)
        subprocess.run(["/usr/sbin/smtp-source", "-s", "5", "-m", "40", "-l", "4096", "-f", "joe@example.net",
                        "-t", "inbox@example.org", f"inet:127.0.0.1:{port}"], check=True)
        rules = [verdicts.status(each)["rules"] for each in self.delivered(41)]
        self.assertEqual(sorted(set(rules)), ["SIX", "none"])
        self.assertEqual(rules.count("SIX"), 1)
