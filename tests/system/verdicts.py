"""The daemon's headers in delivered messages, and what the command says of the same bytes."""

import email
import email.policy
import json
import re
import subprocess

import setting

PREFIX = b"x-corvane-"
SHOWN_RULES = 50


def header_lines(message):
    """(name, line with its folds) of each header, and the rest of the message."""
    head, blank, body = message.partition(b"\n\n")
    lines = re.split(rb"\n(?![ \t])", head)
    return [(line.split(b":")[0].strip().lower(), line) for line in lines], blank + body


def headers(message, name):
    """Values of the headers of this name, unfolded."""
    parsed = email.message_from_bytes(message, policy=email.policy.compat32)
    return [re.sub(r"\r?\n[ \t]", " ", value) for value in parsed.get_all(name, [])]


def status(message):
    """The fields of the only status header, the first as "verdict"; None where there is none."""
    values = headers(message, "X-Corvane-Status")
    if len(values) > 1:
        raise AssertionError(f"{len(values)} status headers: {values}")
    if not values:
        return None
    words = re.sub(r"\s+", "", values[0]).split(";")
    fields = dict(word.split("=", 1) for word in words[1:])
    return {"verdict": words[0], **fields}


def without_the_servers(message):
    """A delivered message less what Postfix and the daemon have put in front."""
    ours = {b"return-path", b"x-original-to", b"delivered-to", b"x-corvane-status", b"x-corvane-report"}
    lines, rest = header_lines(message)
    kept = []
    for at, (name, line) in enumerate(lines):
        # The server's own lines stand in front, its Received the last of them.
        if not kept and name in ours:
            continue
        if not kept and name == b"received" and b"by mx.example.org (Postfix)" in line:
            kept = [entry[1] for entry in lines[at + 1:]]
            break
    return b"\n".join(kept) + rest


def scan(paths, rules=setting.EXAMPLE_RULES, sender="joe@example.net"):
    """By path, what a status header would say."""
    command = [setting.build / "bin" / "corvane", "scan", "--json", "--budget", "0", "--sender", sender,
               "--rules", rules, "-j", "2"]
    run = subprocess.run([*command, *paths], capture_output=True, text=True, check=False)
    if run.returncode > 1:
        raise RuntimeError(run.stderr)
    return {each["file"]: summary(each) for each in map(json.loads, run.stdout.splitlines())}


def summary(verdict):
    names = [each["name"] for each in verdict["rules"]]
    more = len(names) - SHOWN_RULES
    names = names[:SHOWN_RULES] + ([f"+{more}"] if more > 0 else [])
    return {"verdict": "hit" if verdict["over"] else "clean", "score": f"{verdict['score']:g}",
            "rules": ",".join(names) or "none", "limits": ",".join(verdict["limits"]) or "none"}


def told(fields):
    """The same of a status header's fields."""
    if fields is None:
        return None
    return {"verdict": fields["verdict"], "score": f"{float(fields['score']):g}", "rules": fields["rules"],
            "limits": fields.get("limits", "none")} if "score" in fields else fields
