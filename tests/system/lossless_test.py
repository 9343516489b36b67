"""Whatever becomes of the daemon, each message that was accepted arrives once, and scored."""

import itertools
import json
import re
import signal
import subprocess
import threading
import time
from collections import Counter

import setting
import verdicts
from mail_test import WithPostfix, letter
from peers import PATIENCE_SECONDS, SmtpClient, wait_until

CLIENTS = 8
COUNT = {True: 3000, False: 200}
MESSAGES_A_SESSION = 20
RULES = "#[lang section]\tALL\nbody  MARK  /\\bthe mark\\b/\nscore MARK  {}\n"
CONFIGURATION = '[[actions]]\nmin = -inf\naction = "tag"\n'
FILLING = "\n".join(f"Line {number} of a letter that says little, at some length." for number in range(70))

# Configurations that cannot be taken, each by its fault.
BAD = {
    "no TOML": "rules = [",
    "unknown key": CONFIGURATION + "[scan]\ntreshold = 3\n",
    "wrong type": CONFIGURATION + '[scan]\nthreshold = "high"\n',
    "out of range": CONFIGURATION + "[limits]\nwait = 60\n",
    "unknown action": '[[actions]]\nmin = 1\naction = "burn"\n',
    "action without score": '[[actions]]\naction = "tag"\n',
    "no network": CONFIGURATION + '[skip]\nnetworks = ["192.0.2.0/99"]\n',
    "no such directory": "absent",
    "no rules in the directory": "empty",
    "directory is a file": "milter.toml",
}


class Load:
    """Clients that hand over numbered messages and come again where they are put off."""

    def __init__(self, port, count):
        self.port = port
        self.count = count
        self.numbers = itertools.count()
        self.accepted = []
        self.put_off = Counter()
        self.refused = []
        # Set where a step has failed: with the daemon down they would come again for ever.
        self.given_up = threading.Event()
        self.threads = [threading.Thread(target=self.work) for _ in range(CLIENTS)]

    def __enter__(self):
        for thread in self.threads:
            thread.start()
        return self

    def __exit__(self, failure, *_):
        if failure:
            self.given_up.set()
        for thread in self.threads:
            thread.join()

    def work(self):
        client, handed = None, 0
        while (number := next(self.numbers)) < self.count:
            text = letter(f"This is the mark.\n{FILLING}").replace(b"<1@", f"<{number}@".encode())
            while not self.given_up.is_set():
                try:
                    client = client or SmtpClient(self.port)
                    code, words = client.send(text) if client.greeted else (421, "no greeting")
                except (OSError, ValueError) as failure:
                    code, words = 421, f"{type(failure).__name__}"
                handed += 1
                if client and (code != 250 or handed % MESSAGES_A_SESSION == 0):
                    client.close()
                    client = None
                if code // 100 != 4:
                    (self.accepted if code == 250 else self.refused).append(
                        number if code == 250 else words)
                    break
                self.put_off[words] += 1
                time.sleep(0.02)

    def reach(self, part):
        """Waits until this part of the messages is accepted."""
        wait_until(lambda: len(self.accepted) >= part * self.count or not any(
            thread.is_alive() for thread in self.threads), "accepted messages", 2 * PATIENCE_SECONDS)


class UnderLoad(WithPostfix):
    """Two rule sets that differ in a score: sets, by it, and the scores by the sets' generations."""

    rules = RULES.format(3)
    configuration = CONFIGURATION

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.scores = {}
        cls.sets = {}
        for score in (3, 7):
            rules = cls.directory / f"rules-{score}"
            rules.mkdir()
            (rules / "rules.cf").write_text(RULES.format(score))
            cls.sets[score] = rules
            cls.scores[cls.generation(rules)] = str(score)

    @classmethod
    def generation(cls, rules):
        run = subprocess.run([setting.build / "bin" / "corvane", "scan", "--json", "--rules", rules, "-"],
                             input=letter("x"), capture_output=True, check=True)
        return json.loads(run.stdout)["ruleset"]["generation"]

    def under_load(self, steps):
        """Takes the steps while messages come, evenly spread, and looks every message up."""
        begin = time.monotonic()
        with Load(self.postfix.ports["filtered"], COUNT[setting.full]) as load:
            for at, step in enumerate(steps, 1):
                load.reach(at / (len(steps) + 1))
                step()
        seconds = time.monotonic() - begin
        self.assertEqual(load.refused, [])
        self.assertEqual(sorted(load.accepted), list(range(load.count)))
        messages = self.delivered()
        arrived = Counter(int(re.search(rb"^Message-ID: <(\d+)@", message, re.MULTILINE)[1]) for message in messages)
        lost = [number for number in load.accepted if number not in arrived]
        twice = [number for number, times in arrived.items() if times > 1]
        unscored, wrong = [], []
        for message in messages:
            status = verdicts.status(message)
            if status is None or status["verdict"] not in ("hit", "clean"):
                unscored.append(status)
            elif self.scores.get(status["generation"]) != status["score"]:
                wrong.append(status)
        print(f"{len(messages)} messages in {seconds:.1f} s, {len(lost)} lost, {len(twice)} twice, "
              f"{len(unscored)} unscored, {sum(load.put_off.values())} times put off; ", end="")
        self.assertEqual((lost, twice, unscored, wrong), ([], [], [], []))
        return load


class Lossless(UnderLoad):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        (cls.directory / "empty").mkdir()

    def setUp(self):
        super().setUp()
        self.daemon.rules = self.sets[3]
        self.daemon.configure(CONFIGURATION)
        if not self.daemon.runs():
            self.daemon.start()
        self.daemon.ctl("reload")

    def restart(self, number):
        self.assertEqual(self.daemon.stop(number), 0 if number == signal.SIGTERM else -number)
        self.daemon.start()

    def test_killed_three_times(self):
        load = self.under_load([lambda: self.restart(signal.SIGKILL)] * 3)
        self.assertTrue(load.put_off)

    def test_stopped_and_started_three_times(self):
        self.under_load([lambda: self.restart(signal.SIGTERM)] * 3)

    def test_stands_still(self):
        def stand_still():
            self.daemon.send(signal.SIGSTOP)
            time.sleep(8 if setting.full else 2)
            self.daemon.send(signal.SIGCONT)
        self.under_load([stand_still])

    def test_hands_over_four_times(self):
        # The others need a daemon that is a child of this process, and tells it how it has ended.
        self.addCleanup(self.daemon.stop)
        formers = []
        load = self.under_load([lambda: formers.append(self.daemon.hand_over())] * 4)
        self.assertEqual(load.put_off, Counter())
        self.assertEqual([former.wait(PATIENCE_SECONDS) for former in formers], [0] * 4)
        self.assertEqual(len(set(former.pid for former in formers) | {self.daemon.process.pid}), 5)

    def reload(self, kind, step):
        """kind: "good", "same" or that of a bad configuration."""
        if kind == "good":
            self.daemon.rules = self.sets[7 if self.daemon.rules == self.sets[3] else 3]
        rules, more = self.daemon.rules, BAD.get(kind, CONFIGURATION)
        if kind in BAD and "\n" not in more and more != "rules = [":
            self.daemon.rules, more = self.directory / more, CONFIGURATION
        self.daemon.configure(more)
        answer = self.daemon.ctl("reload")
        self.daemon.rules = rules
        self.daemon.configure(CONFIGURATION)
        self.answers.append((step, kind, answer.returncode, answer.stdout + answer.stderr))

    def test_reloads_change_nothing_for_clients(self):
        self.answers = []
        kinds = list(itertools.chain(*([kind, "good", "same"] for kind in BAD)))
        count = 100 if setting.full else len(kinds)
        steps = [lambda kind=kind, step=step: self.reload(kind, step)
                 for step, kind in zip(range(count), itertools.cycle(kinds))]
        load = self.under_load(steps)
        self.assertEqual(load.put_off, Counter())
        wrong = [answer for answer in self.answers if (answer[2] == 0) != (answer[1] not in BAD)]
        self.assertEqual(wrong, [])
