#!/usr/bin/env python3
"""What the mail filter adds to a message's time in Postfix.

    mail.py --build BUILD [--rules DIR] [--messages N]

As root, with the packages that ./test system installs. One Postfix hands messages of 4 KB, made of the words of real
ones or of the examples, to no filter, to an empty one and to corvane-milter, in turns of a few, so that all three meet
the same machine. BUILD has the benchmarks too (CORVANE_BUILD_BENCHMARKS).
"""

import argparse
import multiprocessing
import os
import pathlib
import socket
import statistics
import struct
import subprocess
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tests" / "system"))

import setting  # noqa: E402
from peers import Daemon, Postfix, Program, SmtpClient, wait_until  # noqa: E402

SIZE = 4096
TURN = 25
SESSIONS = (1, 10)
SERVICES = ("none", "empty", "corvane")


def arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--rules", type=pathlib.Path, default=setting.EXAMPLE_RULES)
    parser.add_argument("--messages", type=int, default=1000, help="for each filter and number of sessions")
    return parser.parse_args()


def letters():
    """Messages of 4 KB, each with other words."""
    text = " ".join(path.read_text(errors="replace").partition("\n\n")[2]
                    for path in sorted(setting.EXAMPLE_MAIL.glob("en-*.eml")))
    words = [word for word in text.split() if word.isascii() and len(word) < 20]
    for first in range(TURN):
        body, line, at = "", "", first * 7
        while len(body) < SIZE - 300:
            line += words[at % len(words)] + " "
            at += 1
            if len(line) > 70:
                body += line.strip() + "\n"
                line = ""
        yield (f"From: Joe <joe@example.net>\nTo: inbox@example.org\nSubject: Letter {first}\n"
               f"Date: Tue, 01 Sep 2026 09:01:00 +0000\nMessage-ID: <{first}@example.net>\nMIME-Version: 1.0\n"
               f"Content-Type: text/plain; charset=us-ascii\n\n{body}").encode()


def turn(port, texts):
    """Milliseconds of each message, from its sender to the last answer."""
    client = SmtpClient(port)
    times = []
    for text in texts:
        begin = time.perf_counter()
        answer = client.send(text)
        times.append(1000 * (time.perf_counter() - begin))
        if answer[0] != 250:
            raise RuntimeError(f"refused: {answer}")
    client.close()
    return times


def measure(postfix, sessions, count, texts):
    """All times by service."""
    times = {name: [] for name in SERVICES}
    with ThreadPoolExecutor(sessions) as pool:
        while len(times[SERVICES[-1]]) < count:
            for name in SERVICES:
                for each in pool.map(lambda _, name=name: turn(postfix.ports[name], texts), range(sessions)):
                    times[name] += each
                postfix.clear()
    return times


def quantiles(times):
    cuts = statistics.quantiles(times, n=100)
    return statistics.median(times), cuts[98]


def report(sessions, times):
    plain = quantiles(times["none"])
    for name in SERVICES:
        middle, high = quantiles(times[name])
        print(f"{sessions:>2} sessions  {name:<8} p50 {middle:6.2f} ms  p99 {high:6.2f} ms   "
              f"added {middle - plain[0]:+.2f} {high - plain[1]:+.2f}")


def throughput(postfix, count):
    """Messages a second that smtp-source brings in with ten sessions."""
    for name in SERVICES:
        begin = time.perf_counter()
        subprocess.run(["/usr/sbin/smtp-source", "-s", "10", "-m", str(count), "-l", str(SIZE), "-f", "joe@example.net",
                        "-t", "inbox@example.org", f"inet:127.0.0.1:{postfix.ports[name]}"], check=True)
        print(f"smtp-source    {name:<8} {count / (time.perf_counter() - begin):6.0f} messages a second")
        postfix.clear()


class MilterClient:
    """The least of a mail server's side, which sends each message in one piece."""

    STEPS = 0x1fffff
    ACTIONS = 0x1ff

    def __init__(self, path):
        self.connection = socket.socket(socket.AF_UNIX)
        self.connection.connect(str(path))
        self.input = self.connection.makefile("rb")
        self.connection.sendall(self.packet(b"O", struct.pack(">III", 6, self.ACTIONS, self.STEPS)))
        self.reply()
        self.connection.sendall(self.packet(b"C", b"client.example.net\0004" + struct.pack(">H", 25) + b"192.0.2.1\0"))
        self.reply()

    @staticmethod
    def packet(command, data=b""):
        return struct.pack(">Ic", len(data) + 1, command) + data

    def reply(self):
        length, command = struct.unpack(">Ic", self.input.read(5))
        self.input.read(length - 1)
        return command

    def send(self, text):
        """Sender, recipient and end of the message are answered."""
        head, _, body = text.partition(b"\n\n")
        packets = [self.packet(b"M", b"<joe@example.net>\0"), self.packet(b"R", b"<inbox@example.org>\0")]
        packets += [self.packet(b"L", line.replace(b":", b"\0", 1) + b"\0") for line in head.split(b"\n")]
        packets += [self.packet(b"N"), self.packet(b"B", body.replace(b"\n", b"\r\n")), self.packet(b"E")]
        self.connection.sendall(b"".join(packets))
        # Sender and recipient are gone on with, then come the changes, then the end.
        replies = [self.reply(), self.reply(), self.reply()]
        while replies[-1] in (b"h", b"i", b"m"):
            replies.append(self.reply())
        if replies[:2] != [b"c", b"c"] or replies[-1] not in (b"a", b"c"):
            raise RuntimeError(f"the message is refused: {replies}")


def client_process(path, count, texts):
    client = MilterClient(path)
    for each in range(count):
        client.send(texts[each % len(texts)])


def direct(daemon, count, texts):
    """Messages a second by the protocol alone, from as many clients as there are processors, on the same ones."""
    clients = [multiprocessing.Process(target=client_process, args=(daemon.socket, count, texts))
               for _ in range(os.cpu_count())]
    begin = time.perf_counter()
    for client in clients:
        client.start()
    for client in clients:
        client.join()
    if any(client.exitcode for client in clients):
        raise RuntimeError("a client failed")
    print(f"protocol alone corvane  {count * len(clients) / (time.perf_counter() - begin):6.0f} messages a second, "
          f"from {len(clients)} clients")


def main():
    options = arguments()
    with tempfile.TemporaryDirectory(prefix="corvane-") as directory:
        pathlib.Path(directory).chmod(0o755)
        daemon = Daemon(directory, options.build.resolve(), options.rules.resolve(),
                        '[[actions]]\nmin = -inf\naction = "tag"\n')
        empty = Program(pathlib.Path(directory) / "empty.log")
        empty_socket = daemon.socket.parent / "empty.sock"
        postfix = Postfix(directory, {"none": {}, "empty": {"smtpd_milters": f"unix:{empty_socket}"},
                                      "corvane": {"smtpd_milters": daemon.for_postfix()}})
        try:
            daemon.start()
            empty.run([options.build / "bin" / "empty-milter", f"unix:{empty_socket}"])
            wait_until(empty_socket.exists, "the empty filter")
            postfix.start()
            texts = list(letters())
            for sessions in SESSIONS:
                report(sessions, measure(postfix, sessions, options.messages, texts))
            throughput(postfix, options.messages)
            direct(daemon, options.messages, texts)
        finally:
            postfix.stop()
            empty.stop()
            daemon.stop()


if __name__ == "__main__":
    main()
