"""Plays out an administrator's day in a mount namespace of its own: install_played_out.py BUILD DIRECTORY

install_test.py starts it there.
"""

import contextlib
import grp
import os
import pathlib
import re
import signal
import stat
import subprocess
import sys

import setting
import verdicts
from peers import SmtpClient, answers, free_port, wait_until

WRITTEN = ("/etc", "/usr/local", "/var", "/run")
MASTER_PID = pathlib.Path("/var/spool/postfix/pid/master.pid")
SOCKET = pathlib.Path("/var/spool/postfix/corvane/milter.sock")
# Stands for systemd, which does not run in a container: does what the unit says.
SYSTEMCTL = """\
#!/bin/sh
[ "$1" = daemon-reload ] && exit
[ "$*" = "enable --now corvane-milter" ] || { echo "no such part: systemctl $*" >&2; exit 1; }
unit=/usr/local/lib/systemd/system/corvane-milter.service
value() { sed -n "s/^$1=//p" "$unit"; }
install -d -m "$(value RuntimeDirectoryMode)" -o "$(value User)" -g "$(value Group)" "/run/$(value RuntimeDirectory)"
state="$(value StateDirectory)"
[ -z "$state" ] || install -d -m "$(value StateDirectoryMode)" -o "$(value User)" -g "$(value Group)" "/var/lib/$state"
setpriv --reuid "$(value User)" --regid "$(value Group)" --clear-groups --no-new-privs --inh-caps=-all \\
    $(value ExecStart) >LOG 2>&1 &
echo $! >PID
"""


def lay_over(directory):
    """What is written from now on lies in a file system in memory."""
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", directory], check=True)
    for at, path in enumerate(WRITTEN):
        upper, work = directory / f"upper{at}", directory / f"work{at}"
        upper.mkdir(mode=0o755)
        work.mkdir()
        subprocess.run(["mount", "-t", "overlay", "overlay", "-o",
                        f"lowerdir={path},upperdir={upper},workdir={work}", path], check=True)


def start_postfix(port):
    """Debian's own instance, but for its port, its log and its mailbox."""
    config = pathlib.Path("/etc/postfix")
    (config / "main.cf").write_text(pathlib.Path("/usr/share/postfix/main.cf.debian").read_text())
    master = pathlib.Path("/usr/share/postfix/master.cf.dist").read_text()
    master, changed = re.subn(r"^smtp( +inet +n +- +y )", rf"127.0.0.1:{port}\1", master, flags=re.MULTILINE)
    if changed != 1:
        raise RuntimeError("Debian's smtpd is not chrooted any more")
    (config / "master.cf").write_text(master)
    pathlib.Path("/var/mailboxes").mkdir()
    os.chown("/var/mailboxes", 65534, 65534)
    subprocess.run(["postconf", "-e", "myhostname=mx.example.org", "mydestination=", "inet_interfaces=127.0.0.1",
                    "inet_protocols=ipv4", "maillog_file=/var/log/mail.log", "alias_maps=", "alias_database=",
                    "virtual_mailbox_domains=example.org", "virtual_mailbox_base=/var/mailboxes",
                    "virtual_mailbox_maps=static:inbox/", "virtual_minimum_uid=1", "virtual_uid_maps=static:65534",
                    "virtual_gid_maps=static:65534"], check=True)
    # What Debian's service does before it starts.
    subprocess.run(["/usr/lib/postfix/configure-instance.sh", "-"], check=True)
    subprocess.run(["postfix", "start"], check=True)
    wait_until(lambda: answers(port), "Postfix")


def documented_lines(build):
    page = (setting.ROOT / "docs" / "operating.md").read_text()
    section = page.partition("## Beside Postfix\n")[2].partition("\n## ")[0]
    lines = re.findall(r"^    (.+)$", section, re.MULTILINE)
    return [line.replace("build/release", str(build)) for line in lines]


def mailbox():
    return list(pathlib.Path("/var/mailboxes/inbox/new").glob("*"))


def expect(condition, words):
    if not condition:
        log = pathlib.Path("/var/log/mail.log")
        sys.exit(f"{words}\n{log.read_text()[-2000:] if log.exists() else ''}")


def play(build, directory, port):
    for line in documented_lines(build):
        run = subprocess.run(["sh", "-ec", line], cwd=setting.ROOT, capture_output=True, text=True, check=False)
        expect(run.returncode == 0, f"{line}: {run.stdout}{run.stderr}")
    log = directory / "log"
    wait_until(lambda: "event=ready" in log.read_text(), f"the daemon: {log.read_text()}", 20)
    status = SOCKET.stat()
    expect(stat.S_IMODE(status.st_mode) == 0o660 and grp.getgrgid(status.st_gid).gr_name == "postfix",
           f"others may open the socket, or Postfix may not: {status}")
    message = (setting.EXAMPLE_MAIL / "en-prize-plain.eml").read_bytes()
    with contextlib.closing(SmtpClient(port)) as client:
        answer = client.send(message)
        expect(answer[0] == 250, f"refused: {answer}; {log.read_text()}")
    status = verdicts.status(wait_until(mailbox, "the message", 20)[0].read_bytes())
    expect(status is not None and status["verdict"] == "hit", f"not scored: {status}")
    saved = list(pathlib.Path("/var/lib/corvane/sets").glob(f"{status['generation']}*"))
    expect(saved, f"the rule set is not kept; {log.read_text()}")
    ctl = subprocess.run(["corvane", "ctl", "status"], capture_output=True, text=True, check=False)
    expect(status["generation"] in ctl.stdout, f"corvane ctl status: {ctl.stdout}{ctl.stderr}")


def is_gone(process):
    """Also where nobody takes its exit status."""
    status = pathlib.Path(f"/proc/{process}/status")
    try:
        return "State:\tZ" in status.read_text()
    except OSError:
        return True


def end(process):
    with contextlib.suppress(ProcessLookupError):
        os.kill(process, signal.SIGTERM)
        wait_until(lambda: is_gone(process), f"process {process}", 20)


def main():
    build, directory = map(pathlib.Path, sys.argv[1:])
    lay_over(directory)
    tools = directory / "bin"
    tools.mkdir()
    systemctl = tools / "systemctl"
    systemctl.write_text(SYSTEMCTL.replace("LOG", str(directory / "log")).replace("PID", str(directory / "pid")))
    systemctl.chmod(0o755)
    os.environ["PATH"] = f"{tools}:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
    port = free_port()
    try:
        start_postfix(port)
        play(build, directory, port)
    finally:
        for pid_file in (MASTER_PID, directory / "pid"):
            if pid_file.exists():
                end(int(pid_file.read_text()))


if __name__ == "__main__":
    main()
