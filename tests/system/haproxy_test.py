"""Two filters behind HAProxy, as docs/operating.md sets them up: one may go at any time."""

import re
import signal
import urllib.error
import urllib.request

import setting
from lossless_test import CONFIGURATION, UnderLoad
from mail_test import letter
from peers import Daemon, Program, answers, free_port, wait_until

PAGE = setting.ROOT / "docs" / "operating.md"


def documented():
    """The configuration on the page."""
    block = re.search(r"^    frontend milter\n(?:    .*\n|\n(?=    ))+", PAGE.read_text(), re.MULTILINE)
    return re.sub(r"^    ", "", block[0], flags=re.MULTILINE)


class BehindHaproxy(UnderLoad):
    @classmethod
    def start_filter(cls, rules):
        ports = {name: free_port() for name in ("8890", "8891", "8892", "9464", "9465")}
        cls.daemons = []
        for name, port, health in (("one", "8891", "9464"), ("two", "8892", "9465")):
            daemon = Daemon(cls.directory, setting.build, rules, CONFIGURATION +
                            f'[control]\nmetrics = "127.0.0.1:{ports[health]}"\n', name, ports[port])
            daemon.health = f"http://127.0.0.1:{ports[health]}/v1/health"
            daemon.start()
            cls.addClassCleanup(daemon.stop)
            cls.daemons.append(daemon)
        config = cls.directory / "haproxy.cfg"
        config.write_text(re.sub(r"\b(?:889[0-2]|946[45])\b", lambda number: str(ports[number[0]]), documented()))
        cls.haproxy = Program(cls.directory / "haproxy.log")
        cls.haproxy.run(["/usr/sbin/haproxy", "-db", "-f", config])
        cls.addClassCleanup(cls.haproxy.stop)
        wait_until(lambda: answers(ports["8890"]) or not cls.haproxy.runs(), "HAProxy")
        if not cls.haproxy.runs():
            raise RuntimeError(f"HAProxy does not start:\n{cls.haproxy.said()}")
        return f"inet:127.0.0.1:{ports['8890']}"

    def setUp(self):
        """Both have their share before a test begins."""
        super().setUp()
        before = [self.scored(daemon) for daemon in self.daemons]
        wait_until(lambda: self.client().send(letter("to begin with"))[0] == 250 and all(
            self.scored(daemon) > count for daemon, count in zip(self.daemons, before)), "both daemons")
        self.postfix.clear()

    @staticmethod
    def scored(daemon):
        return daemon.said().count("event=message")

    def healthy(self, daemon):
        try:
            return urllib.request.urlopen(daemon.health, timeout=10).status == 200
        except urllib.error.HTTPError as answer:
            answer.close()
            return answer.code != 503

    def test_one_is_killed(self):
        one, two = self.daemons
        before = self.scored(two)
        self.under_load([lambda: one.stop(signal.SIGKILL), one.start])
        self.assertGreater(self.scored(two), before)

    def test_one_is_drained(self):
        one, two = self.daemons
        self.assertTrue(self.healthy(one) and self.healthy(two))
        before = self.scored(one)
        self.under_load([lambda: one.ctl("drain")])
        self.assertFalse(self.healthy(one))
        self.assertGreater(self.scored(one), before)
        one.ctl("resume")
        self.assertTrue(self.healthy(one))
