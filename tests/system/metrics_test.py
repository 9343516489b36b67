"""A real Prometheus takes the metrics."""

import json
import subprocess
import urllib.parse
import urllib.request

from lossless_test import CONFIGURATION
from mail_test import WithPostfix, letter
from peers import Prometheus, free_port, wait_until

LOADED = 10


class Metrics(WithPostfix):
    @classmethod
    def start_filter(cls, rules):
        cls.port = free_port()
        cls.configuration = CONFIGURATION + f'[control]\nmetrics = "127.0.0.1:{cls.port}"\n'
        return super().start_filter(rules)

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.prometheus = Prometheus(cls.directory, f"127.0.0.1:{cls.port}")
        cls.addClassCleanup(cls.prometheus.stop)
        cls.prometheus.start()

    def test_promtool_finds_nothing_wrong(self):
        self.client().send(letter("worth six"))
        with urllib.request.urlopen(f"http://127.0.0.1:{self.port}/metrics") as answer:
            text = answer.read()
        check = subprocess.run(["/usr/bin/promtool", "check", "metrics"], input=text, capture_output=True, check=False)
        self.assertEqual((check.returncode, check.stdout + check.stderr), (0, b""))

    def value(self, expression):
        """The one value of the expression, or None."""
        answer = json.loads(self.prometheus.get("/api/v1/query?" + urllib.parse.urlencode({"query": expression})))
        results = answer["data"]["result"]
        return float(results[0]["value"][1]) if results else None

    def test_prometheus_counts_messages(self):
        expression = 'sum(corvane_messages_total{verdict="hit",action="tag"})'
        client = self.client()
        client.send(letter("worth six"))
        before = wait_until(lambda: self.value(expression), "the first scrape")
        for _ in range(LOADED):
            client.send(letter("worth six"))
        wait_until(lambda: self.value(expression) == before + LOADED, "a scrape of all messages")
        self.assertEqual(self.value("sum(corvane_messages_received_total) - sum(corvane_messages_total)"), 0)
        self.assertEqual(self.value("count(corvane_ruleset_info)"), 1)
        self.assertEqual(self.value('corvane_rule_hits_total{rule="SIX"}'), before + LOADED)
