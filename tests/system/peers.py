"""Programs that the tests run, each in a temporary directory and on ports of its own:

    with tempfile.TemporaryDirectory() as directory:
        daemon = Daemon(directory, build)
        postfix = Postfix(directory, {"filtered": {"smtpd_milters": daemon.for_postfix()}})
        try:
            daemon.start()
            postfix.start()
            ...
        finally:
            postfix.stop()
            daemon.stop()

Nothing here touches the machine's own mail server, and what is ended is ended by its process id.
"""

import contextlib
import grp
import json
import os
import pathlib
import pwd
import select
import shutil
import signal
import socket
import subprocess
import time
import urllib.request

PATIENCE_SECONDS = 60
DELIVERY_USER = "nobody"


def wait_until(condition, what, seconds=PATIENCE_SECONDS):
    """The first value of the condition that holds."""
    end = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise TimeoutError(f"waited {seconds} s for {what}")
        time.sleep(0.02)


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def answers(port):
    with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", port), 1):
        return True
    return False


class Program:
    """A process in the foreground whose output goes to a file."""

    def __init__(self, log):
        self.log = pathlib.Path(log)
        self.process = None

    def run(self, command, **options):
        with self.log.open("ab") as output:
            self.process = subprocess.Popen(command, stdout=output, stderr=output, **options)

    def said(self):
        return self.log.read_text(errors="replace") if self.log.exists() else ""

    def send(self, number):
        self.process.send_signal(number)

    def runs(self):
        return self.process is not None and self.process.poll() is None

    def stop(self, number=signal.SIGTERM):
        """Its exit status; None where it did not run."""
        if self.process is None:
            return None
        if self.runs():
            self.send(number)
        try:
            status = self.process.wait(PATIENCE_SECONDS)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            raise
        finally:
            self.process = None
        return status


class Successor:
    """A process that another one has started, with what Popen has of a child."""

    def __init__(self, pid):
        self.pid = pid
        self.file = os.pidfd_open(pid)

    def poll(self):
        """0 where it has ended, since its status is another's to know."""
        return 0 if select.select([self.file], [], [], 0)[0] else None

    def wait(self, timeout=None):
        if not select.select([self.file], [], [], timeout)[0]:
            raise subprocess.TimeoutExpired(f"process {self.pid}", timeout)
        os.close(self.file)
        return 0

    def send_signal(self, number):
        signal.pidfd_send_signal(self.file, number)

    def kill(self):
        self.send_signal(signal.SIGKILL)


class Daemon(Program):
    """corvane-milter. rules: a directory; more: tables of its configuration."""

    def __init__(self, directory, build, rules, more="", name="milter", port=None):
        directory = pathlib.Path(directory) / name
        directory.mkdir()
        directory.chmod(0o755)
        super().__init__(directory / "log")
        self.program = pathlib.Path(build) / "bin" / "corvane-milter"
        self.command = pathlib.Path(build) / "bin" / "corvane"
        self.rules = pathlib.Path(rules)
        self.port = port
        self.socket = directory / "socket" / "milter.sock"
        self.control = directory / "control.sock"
        self.config = directory / "milter.toml"
        self.sets = directory / "sets"
        # As tmpfiles makes it: the directory hands its group to the socket.
        self.socket.parent.mkdir()
        os.chown(self.socket.parent, -1, grp.getgrnam("postfix").gr_gid)
        self.socket.parent.chmod(0o2750)
        self.configure(more)

    def address(self):
        return f"inet:{self.port}@127.0.0.1" if self.port else f"unix:{self.socket}"

    def for_postfix(self):
        return f"inet:127.0.0.1:{self.port}" if self.port else f"unix:{self.socket}"

    def configure(self, more):
        control = f'[control]\nsocket = "{self.control}"\n'
        if "[control]\n" in more:
            more = more.replace("[control]\n", control)
            control = ""
        self.config.write_text(
            f'rules = ["{self.rules}"]\n[milter]\nsocket = "{self.address()}"\n'
            f'{control}[sets]\ndirectory = "{self.sets}"\n{more}')

    def start(self):
        ready = self.said().count("event=ready")
        self.run([self.program, "--config", self.config])
        wait_until(lambda: self.said().count("event=ready") > ready or not self.runs(), "the daemon")
        if not self.runs():
            raise RuntimeError(f"corvane-milter does not start:\n{self.said()[-2000:]}")

    def hand_over(self):
        """The process from which another one has taken over."""
        answer = self.ctl("restart")
        if answer.returncode:
            raise RuntimeError(f"no hand-over: {answer.stdout}{answer.stderr}")
        former, self.process = self.process, Successor(json.loads(answer.stdout)["pid"])
        return former

    def ctl(self, *words):
        return subprocess.run([self.command, "ctl", "--socket", self.control, *words],
                              capture_output=True, text=True, check=False, timeout=PATIENCE_SECONDS)


class Postfix:
    """One instance. services: settings of the smtpd services by name; each gets a port in ports.

    Mail to example.org goes to one Maildir.
    """

    def __init__(self, directory, services):
        self.directory = pathlib.Path(directory) / "postfix"
        self.output = self.directory / "output"
        self.config = self.directory / "config"
        self.queue = self.directory / "queue"
        self.data = self.directory / "data"
        self.mail = self.directory / "mail"
        self.maildir = self.mail / "inbox"
        self.mail_log = self.directory / "mail.log"
        self.ports = {name: free_port() for name in services}
        for each in (self.directory, self.config, self.queue, self.data, self.mail):
            each.mkdir()
            each.chmod(0o755)
        shutil.chown(self.data, "postfix")
        shutil.chown(self.mail, DELIVERY_USER)
        self.write_main()
        self.write_master(services)

    def write_main(self):
        user = pwd.getpwnam(DELIVERY_USER)
        (self.config / "main.cf").write_text(f"""\
compatibility_level = 3.6
config_directory = {self.config}
queue_directory = {self.queue}
data_directory = {self.data}
maillog_file = {self.mail_log}
maillog_file_prefixes = {self.directory}
mail_owner = postfix
setgid_group = postdrop
inet_interfaces = 127.0.0.1
inet_protocols = ipv4
myhostname = mx.example.org
mydestination =
mynetworks = 127.0.0.1
alias_maps =
alias_database =
local_recipient_maps =
# Missing headers would be added before the filter looks.
local_header_rewrite_clients =
virtual_mailbox_domains = example.org
virtual_mailbox_base = {self.mail}
virtual_mailbox_maps = static:inbox/
virtual_minimum_uid = 1
virtual_uid_maps = static:{user.pw_uid}
virtual_gid_maps = static:{user.pw_gid}
virtual_mailbox_limit = 0
message_size_limit = 50000000
milter_protocol = 6
milter_default_action = tempfail
# Clients here come faster than the mailbox takes messages, and begin again after errors.
in_flow_delay = 0
smtpd_error_sleep_time = 0
smtpd_hard_error_limit = 1000000
smtpd_soft_error_limit = 1000000
""")

    def write_master(self, services):
        lines = []
        for name, settings in services.items():
            lines.append(f"127.0.0.1:{self.ports[name]} inet n - n - - smtpd")
            lines += [f"  -o {key}={value}" for key, value in settings.items()]
        lines += """\
cleanup unix n - n - 0 cleanup
qmgr unix n - n 300 1 qmgr
pickup unix n - n 60 1 pickup
rewrite unix - - n - - trivial-rewrite
bounce unix - - n - 0 bounce
defer unix - - n - 0 bounce
trace unix - - n - 0 bounce
verify unix - - n - 1 verify
flush unix n - n 1000? 0 flush
tlsmgr unix - - n 1000? 1 tlsmgr
proxymap unix - - n - - proxymap
proxywrite unix - - n - 1 proxymap
smtp unix - - n - - smtp
relay unix - - n - - smtp
showq unix n - n - - showq
error unix - - n - - error
retry unix - - n - - error
discard unix - - n - - discard
local unix - n n - - local
virtual unix - n n - - virtual
anvil unix - - n - 1 anvil
scache unix - - n - 1 scache
postlog unix-dgram n - n - 1 postlogd
""".splitlines()
        (self.config / "master.cf").write_text("\n".join(lines) + "\n")

    def start(self):
        environment = dict(os.environ, MAIL_CONFIG=str(self.config))
        with self.output.open("ab") as output:
            started = subprocess.run(["/usr/sbin/postfix", "-c", self.config, "start"], env=environment,
                                     stdin=subprocess.DEVNULL, stdout=output, stderr=output, check=False)
        try:
            wait_until(lambda: started.returncode or all(map(answers, self.ports.values())), "Postfix")
        except TimeoutError:
            started.returncode = -1
        if started.returncode:
            raise RuntimeError(f"Postfix does not start:\n{self.output.read_text()}\n{self.logged()}")

    def logged(self):
        return self.mail_log.read_text(errors="replace") if self.mail_log.exists() else ""

    def members(self):
        """Processes of this instance, its master and the children that outlive it."""
        mark = f"MAIL_CONFIG={self.config}".encode()
        for entry in pathlib.Path("/proc").iterdir():
            with contextlib.suppress(OSError):
                if entry.name.isdigit() and mark in (entry / "environ").read_bytes().split(b"\0"):
                    yield int(entry.name)

    def stop(self):
        """Ends the master by its process id; its children take a moment more."""
        pid_file = self.queue / "pid" / "master.pid"
        try:
            if pid_file.exists() and (master := int(pid_file.read_text())) in self.members():
                os.kill(master, signal.SIGTERM)
            wait_until(lambda: not list(self.members()), "Postfix's processes", 20)
        except TimeoutError:
            for process in self.members():
                with contextlib.suppress(ProcessLookupError):
                    os.kill(process, signal.SIGKILL)

    def queued(self, *names):
        return [path for name in names for path in (self.queue / name).rglob("*") if path.is_file()]

    def delivered(self):
        """The files of the Maildir, once nothing is under way."""
        wait_until(lambda: not self.queued("incoming", "active", "maildrop"), "deliveries")
        deferred = self.queued("deferred")
        if deferred:
            raise RuntimeError(f"{len(deferred)} messages could not be delivered:\n{self.logged()[-2000:]}")
        new = self.maildir / "new"
        return list(new.iterdir()) if new.exists() else []

    def held(self):
        """The text of each message on hold, as postcat shows it."""
        return [subprocess.run(["/usr/sbin/postcat", "-c", self.config, "-hb", path],
                               capture_output=True, check=True).stdout for path in self.queued("hold")]

    def clear(self):
        for path in self.delivered() + self.queued("hold"):
            path.unlink()


class SmtpClient:
    """A session that hands over bytes as they are: only lines are ended with CRLF, and dots doubled."""

    def __init__(self, port):
        self.connection = socket.create_connection(("127.0.0.1", port), PATIENCE_SECONDS)
        self.connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.input = self.connection.makefile("rb")
        self.greeted = self.answer()[0] == 220 and self.command("EHLO client.example.net")[0] == 250

    def close(self):
        self.input.close()
        self.connection.close()

    def answer(self):
        """Code and last line."""
        while True:
            line = self.input.readline()
            if not line:
                raise ConnectionError("the server has closed the session")
            if line[3:4] != b"-":
                return int(line[:3]), line[4:].decode(errors="replace").strip()

    def command(self, line):
        self.connection.sendall(line.encode() + b"\r\n")
        return self.answer()

    def send(self, message, sender="joe@example.net", recipients=("inbox@example.org",)):
        """The answer to the message, or the first that refuses it."""
        commands = [f"MAIL FROM:<{sender}>", *(f"RCPT TO:<{each}>" for each in recipients), "DATA"]
        for line in commands:
            answer = self.command(line)
            if answer[0] not in (250, 354):
                self.command("RSET")
                return answer
        self.connection.sendall(self.on_wire(message))
        return self.answer()

    @staticmethod
    def on_wire(message):
        lines = message.replace(b"\r\n", b"\n").split(b"\n")
        if lines[-1] == b"":
            lines.pop()
        return b"".join((b"." if line.startswith(b".") else b"") + line + b"\r\n" for line in lines) + b".\r\n"


class Prometheus(Program):
    """A server that scrapes one address. port: that of its own questions."""

    def __init__(self, directory, target, rules=()):
        self.directory = pathlib.Path(directory) / "prometheus"
        self.directory.mkdir()
        super().__init__(self.directory / "log")
        self.port = free_port()
        names = ", ".join(f'"{path}"' for path in rules)
        self.config = self.directory / "prometheus.yml"
        self.config.write_text(f"""\
global: {{scrape_interval: 500ms, scrape_timeout: 500ms, evaluation_interval: 500ms}}
rule_files: [{names}]
scrape_configs:
  - job_name: corvane
    static_configs: [{{targets: ["{target}"]}}]
""")

    def start(self):
        self.run(["/usr/bin/prometheus", f"--config.file={self.config}",
                  f"--storage.tsdb.path={self.directory / 'data'}",
                  f"--web.listen-address=127.0.0.1:{self.port}"])
        wait_until(lambda: answers(self.port) or not self.runs(), "Prometheus")
        if not self.runs():
            raise RuntimeError(f"Prometheus does not start:\n{self.said()[-2000:]}")

    def get(self, path):
        with urllib.request.urlopen(f"http://127.0.0.1:{self.port}{path}", timeout=PATIENCE_SECONDS) as answer:
            return answer.read().decode()
