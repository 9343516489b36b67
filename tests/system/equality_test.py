"""A message that came through Postfix has, rule by rule, the verdict of a scan of its file."""

import pathlib
import re
import tempfile
from collections import Counter
from concurrent.futures import ThreadPoolExecutor

import setting
import verdicts
from mail_test import WithPostfix
from peers import SmtpClient

SHORT_COUNT = 60
CLIENTS = 4


DROPPED = re.compile(rb"(?:bcc|content-length|resent-bcc|return-path)[ \t]*:", re.IGNORECASE)
HEADER = re.compile(rb"[!-9;-~]+[ \t]*:")


def as_postfix_has_it(message):
    """The message as Postfix hands it on, and what it changes of it, by name."""
    changes, headers = [], []
    lines = message.rstrip(b"\n").split(b"\n")
    if re.match(rb">?From ", lines[0]):
        changes.append("mbox line made a header")
        lines[0] = b"X-Mailbox-Line: " + lines[0]
    at = 0
    while at < len(lines) and (HEADER.match(lines[at]) or (headers and lines[at][:1] in (b" ", b"\t"))):
        if lines[at][:1] in (b" ", b"\t"):
            headers[-1] += b"\n" + lines[at]
        else:
            headers.append(lines[at])
        at += 1
    kept = [each for each in headers if not DROPPED.match(each)]
    if len(kept) < len(headers):
        changes.append("headers dropped")
    if at < len(lines) and lines[at]:
        changes.append("empty line put before the body")
        kept.append(b"")
    return b"\n".join(kept + lines[at:]), changes


def change(sent, arrived):
    """What the server made of the message, in words; "" where nothing, "other" where that is not known."""
    expected, changes = as_postfix_has_it(sent)
    return ", ".join(changes) if arrived.rstrip(b"\n") == expected else "other"


class Equality(WithPostfix):
    rules = setting.rules()
    configuration = '[scan]\nbudget = 0\n[[actions]]\nmin = -inf\naction = "tag"\n'

    def messages(self):
        files = sorted(setting.mail.rglob("*.eml")) + sorted(setting.EXAMPLE_MAIL.glob("*.eml"))
        # What is empty is no message to a scan of files.
        files = [path for path in files if path.read_bytes().strip(b"\0")]
        step = 1 if setting.full else max(1, len(files) // SHORT_COUNT)
        return files[::step]

    def deliver(self, numbered):
        """The answer to each message; number n goes to the address m<n>."""
        def work(part):
            client = SmtpClient(self.postfix.ports["filtered"])
            answers = {number: client.send(text, recipients=[f"m{number}@example.org"]) for number, text in part}
            client.close()
            return answers
        parts = [list(numbered.items())[at::CLIENTS] for at in range(CLIENTS)]
        with ThreadPoolExecutor(CLIENTS) as pool:
            return {number: answer for answers in pool.map(work, parts) for number, answer in answers.items()}

    def test_verdicts_are_those_of_scans_of_the_files(self):
        files = self.messages()
        sent = {number: path.read_bytes().replace(b"\r\n", b"\n") for number, path in enumerate(files)}
        answers = self.deliver(sent)
        refused = {number: answer for number, answer in answers.items() if answer[0] != 250}
        arrived = {int(re.search(rb"^Delivered-To: m(\d+)@", message, re.MULTILINE)[1]): message
                   for message in self.delivered(len(sent) - len(refused))}
        with tempfile.TemporaryDirectory() as directory:
            wanted = self.scanned(pathlib.Path(directory) / "sent", sent)
            again = self.scanned(pathlib.Path(directory) / "arrived", {
                number: verdicts.without_the_servers(message) for number, message in arrived.items()})
        unexplained, explained = [], Counter()
        for number, message in arrived.items():
            told = verdicts.told(verdicts.status(message))
            if told != wanted[number]:
                kind = change(sent[number], verdicts.without_the_servers(message))
                if kind not in ("", "other") and told == again[number]:
                    explained[kind] += 1
                else:
                    unexplained.append(f"{files[number]}: {told}, the file {wanted[number]}, changed: {kind}")
        tripped = sum(verdict["rules"] != "none" for verdict in wanted.values())
        self.assertGreater(tripped, len(sent) // 20, "too few messages trip a rule")
        print(f"{len(arrived)} messages compared, {tripped} trip rules, {len(refused)} refused; "
              f"of what the server changed {sum(explained.values())} have other verdicts: {dict(explained)}; ", end="")
        for number, answer in refused.items():
            unexplained.append(f"{files[number]}: {answer}")
        self.assertEqual(unexplained, [])

    @staticmethod
    def scanned(directory, numbered):
        directory.mkdir()
        for number, text in numbered.items():
            (directory / f"{number}.eml").write_bytes(text)
        return {int(pathlib.Path(name).stem): verdict for name, verdict in verdicts.scan([directory], setting.rules()).items()}
