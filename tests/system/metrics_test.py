"""A real Prometheus takes the metrics."""

import json
import pathlib
import subprocess
import urllib.parse
import urllib.request

from lossless_test import CONFIGURATION
from mail_test import WithPostfix, letter
from peers import Prometheus, free_port, wait_until

LOADED = 10
MONITORING = pathlib.Path(__file__).resolve().parents[2] / "packaging" / "monitoring"


def dashboard_expressions():
    """The expressions of the dashboard's panels, with values in place of its variables."""
    dashboard = json.loads((MONITORING / "corvane-milter.dashboard.json").read_text())
    for panel in dashboard["panels"]:
        for target in panel["targets"]:
            expression = target["expr"]
            for variable, value in (("$instance", ".*"), ("$__rate_interval", "1m"), ("$__range", "1h")):
                expression = expression.replace(variable, value)
            yield panel["title"], expression


class Metrics(WithPostfix):
    # Messages that tripped the rule so far, in whatever order the tests run.
    hits = 0

    @classmethod
    def start_filter(cls, rules):
        cls.port = free_port()
        cls.configuration = CONFIGURATION + f'[control]\nmetrics = "127.0.0.1:{cls.port}"\n'
        return super().start_filter(rules)

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.prometheus = Prometheus(cls.directory, f"127.0.0.1:{cls.port}",
                                    rules=[MONITORING / "corvane-milter.rules.yml"])
        cls.addClassCleanup(cls.prometheus.stop)
        cls.prometheus.start()

    def send_hit(self, client):
        client.send(letter("worth six"))
        type(self).hits += 1

    def test_promtool_finds_nothing_wrong(self):
        self.send_hit(self.client())
        with urllib.request.urlopen(f"http://127.0.0.1:{self.port}/metrics") as answer:
            text = answer.read()
        check = subprocess.run(["/usr/bin/promtool", "check", "metrics"], input=text, capture_output=True, check=False)
        self.assertEqual((check.returncode, check.stdout + check.stderr), (0, b""))

    def results(self, expression):
        answer = json.loads(self.prometheus.get("/api/v1/query?" + urllib.parse.urlencode({"query": expression})))
        self.assertEqual(answer["status"], "success", expression)
        return answer["data"]["result"]

    def value(self, expression):
        """The one value of the expression, or None."""
        results = self.results(expression)
        return float(results[0]["value"][1]) if results else None

    def test_prometheus_counts_messages(self):
        expression = 'sum(corvane_messages_total{verdict="hit",action="tag"})'
        client = self.client()
        for _ in range(LOADED):
            self.send_hit(client)
        wait_until(lambda: self.value(expression) == self.hits, "a scrape of all messages")
        self.assertEqual(self.value("sum(corvane_messages_received_total) - sum(corvane_messages_total)"), 0)
        self.assertEqual(self.value("count(corvane_ruleset_info)"), 1)
        self.assertEqual(self.value('corvane_rule_hits_total{rule="SIX"}'), self.hits)

    def test_dashboard_and_alerts_are_answered(self):
        self.send_hit(self.client())
        wait_until(lambda: self.value("sum(corvane_messages_total)"), "a scrape")
        # What is only counted once something went wrong, or is on trial, has no series yet.
        optional = ("corvane_errors_total", "corvane_limits_total", "corvane_shadow_messages_total", "corvane_reloads_total")
        for title, expression in dashboard_expressions():
            with self.subTest(title, expression=expression):
                if not any(name in expression for name in optional):
                    wait_until(lambda: self.results(expression), f"an answer to {expression}")
                else:
                    self.results(expression)
        groups = json.loads(self.prometheus.get("/api/v1/rules"))["data"]["groups"]
        self.assertGreater(sum(len(group["rules"]) for group in groups), 5)
        wait_until(lambda: all(
            rule["health"] == "ok" for group in json.loads(self.prometheus.get("/api/v1/rules"))["data"]["groups"]
            for rule in group["rules"]), "all alerts to be evaluated")

    def test_promtool_finds_the_alerts_right(self):
        check = subprocess.run(["/usr/bin/promtool", "check", "rules", str(MONITORING / "corvane-milter.rules.yml")],
                               capture_output=True, check=False)
        self.assertEqual(check.returncode, 0, check.stderr.decode())
