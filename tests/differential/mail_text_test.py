#!/usr/bin/env python3
"""The mail reader sees the words of plain texts that Python's email package sees.

    mail_text_test.py PRINT_TEXT DIRECTORY

Compares, for each message below CORVANE_MAIL_DIR, or DIRECTORY where that is unset, the words of the inline plain texts. A word that only
Python sees is a failure, unless the message is one that the two read differently on purpose; those
are counted by class.
"""

import email
import email.policy
import json
import os
import pathlib
import re
import subprocess
import sys
from collections import Counter

# Charsets that mail programs read as a superset.
SUPERSETS = {
    "iso-8859-1": "cp1252", "us-ascii": "utf-8", "ascii": "utf-8", "iso-8859-9": "cp1254",
    "gb2312": "gb18030", "gbk": "gb18030", "ks_c_5601-1987": "cp949", "euc-kr": "cp949",
    "shift_jis": "cp932", "windows-31j": "cp932", "iso-2022-jp": "iso2022_jp_ext", "tis-620": "cp874",
    "iso-8859-8-i": "iso-8859-8", "windows-874": "cp874",
}
INVISIBLE = re.compile(
    "[\u00ad\u034f\u061c\u17b4\u17b5\u180b-\u180f\u200b-\u200f\u202a-\u202e\u2060-\u206f"
    "\ufe00-\ufe0f\ufeff\U000e0000-\U000e0fff]")


def words(text):
    """Three letters and more."""
    return set(re.findall(r"\w{3,}", INVISIBLE.sub("", text)))


def decoded(part):
    """The text of a part, or None where Python cannot tell."""
    try:
        content = part.get_payload(decode=True)
        charset = (part.get_content_charset() or "utf-8").strip("'\" ")
    except (LookupError, ValueError, AssertionError, AttributeError, TypeError):
        return None
    try:
        # What is valid UTF-8 is read as such: the reader believes it rather than the name.
        return content.decode("utf-8" if not content.isascii() else SUPERSETS.get(charset, charset))
    except (LookupError, ValueError):
        pass
    try:
        return content.decode(SUPERSETS.get(charset, charset))
    except (LookupError, ValueError):
        return None


def plain_texts(part):
    """The inline plain texts, those of inner messages that are shown too."""
    # The reader leaves fragments of messages closed, as today's mail programs do.
    if part.get_content_disposition() == "attachment" or part.get_content_type() == "message/partial":
        return
    if part.is_multipart():
        for inner in part.get_payload():
            yield from plain_texts(inner)
    elif part.get_content_type() == "text/plain":
        yield part, decoded(part)


def difference(message, seen):
    """The class of a difference, "" for none, and the words."""
    result = "", set()
    for part, text in plain_texts(message):
        if text is None:
            result = "undecodable", set()
            continue
        missing = {word for word in words(text) if word not in seen["words"]}
        if not missing:
            continue
        if seen["limits"]:
            return "cut", missing
        if part.defects or message.defects:
            return "defects", missing
        if part["content-type"] and "/" not in part.get("content-type", "").split(";")[0]:
            return "type", missing
        return "unexplained", missing
    return result


def main():
    program, directory = sys.argv[1:]
    directory = os.environ.get("CORVANE_MAIL_DIR", directory)
    paths = sorted(str(path) for path in pathlib.Path(directory).rglob("*.eml"))
    if not paths:
        sys.exit(f"{directory}: no messages (*.eml) there")
    lines = subprocess.run([program, *paths], capture_output=True, check=True).stdout.splitlines()
    classes = Counter()
    failures = []
    for line in lines:
        seen = json.loads(line)
        seen["words"] = words(seen["text"] + "\n" + seen["alternative"])
        raw = pathlib.Path(seen["file"]).read_bytes()
        message = email.message_from_bytes(raw, policy=email.policy.compat32)
        kind, missing = difference(message, seen)
        classes[kind or "same"] += 1
        if kind == "unexplained":
            failures.append(f"{seen['file']}: {len(missing)} words that only Python sees")
    print("; ".join(f"{kind}: {count}" for kind, count in classes.most_common()))
    if failures:
        sys.exit("\n".join(failures))


if __name__ == "__main__":
    main()
