#!/usr/bin/env python3
"""The mail reader sees the words and links of HTML that html5lib sees, and no others.

    html_text_test.py PRINT_TEXT DIRECTORY

Compares the words and links of the inline HTML parts, as they stand in the trees that html5lib
builds, with those that the reader answers. Reads every 20th message below CORVANE_MAIL_DIR, or
each below DIRECTORY where that is unset; CORVANE_DIFFERENTIAL_STEP sets another step. What only one
of them sees is a failure, unless the two differ on purpose; those differences are counted by class.

Exits with 77 where html5lib is not installed.
"""

import email
import email.policy
import html
import json
import os
import pathlib
import re
import subprocess
import sys
import warnings
from collections import Counter

import mail_text_test as plain

try:
    import html5lib
except ModuleNotFoundError:
    print("html_text_test: skipped: python3-html5lib is not installed")
    sys.exit(77)

USUAL_STEP = 20

SILENT = {"script", "style"}
BLOCKS = set(
    "address article aside blockquote body br button center dd details dialog dir div dl dt fieldset figcaption "
    "figure footer form h1 h2 h3 h4 h5 h6 head header hr html legend li link main menu nav ol optgroup option p pre "
    "section select summary table tbody td textarea tfoot th thead title tr ul input img iframe meta".split())
LINKS = set("href src action formaction background poster data lowsrc dynsrc o:href xlink:href".split())
WORDS = {"alt", "title", "value"}
# Values that lead nowhere outside the message.
NOWHERE = re.compile(r"$|#|cid:|data:image/", re.I)


def local(name):
    """The name without its namespace, as it was written but for its case."""
    return name.split("}")[-1].lower() if isinstance(name, str) else None


class Document:
    """What a tree holds, by where it stands."""

    def __init__(self, text):
        self.links, self.attributes, self.comments, self.sheets = set(), [], [], []
        self.pieces, self.in_select = [], []
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            self.walk(html5lib.parse(text, treebuilder="etree"))
        self.words = plain.words("".join(self.pieces))

    # Without recursion: trees are as deep as their authors like.
    def walk(self, root):
        stack = [(root, False)]
        while stack:
            element, is_behind = stack.pop()
            tag = local(element.tag)
            self.pieces.append("\n" if tag in BLOCKS else "")
            if is_behind:
                self.pieces.append(element.tail or "")
                continue
            stack.append((element, True))
            if tag is None:
                self.comments.append(element.text or "")
                continue
            self.take(element, tag)
            if tag in SILENT:
                self.sheets.append("".join(element.itertext()))
                continue
            self.pieces.append(element.text or "")
            stack.extend((child, False) for child in reversed(element))

    def take(self, element, tag):
        if tag == "select":
            self.in_select.extend(element.itertext())
        for name, value in element.attrib.items():
            if local(name) in LINKS or name == "xlink:href":
                self.links.add(link(value))
            elif local(name) in WORDS:
                self.attributes.append(value)
            else:
                self.sheets.append(value)

    def conditional(self):
        """The documents in conditional comments, which some programs show."""
        return [Document(text) for text in self.comments if text.lower().startswith("[if")]


def link(value):
    """A link as the reader lists it."""
    return re.sub("[\t\n\r]", "", value.strip(" \t\n\v\f\r"))


def html_texts(part):
    """The inline HTML parts, those of inner messages that are shown too."""
    if part.get_content_disposition() == "attachment" or part.get_content_type() == "message/partial":
        return
    if part.is_multipart():
        for inner in part.get_payload():
            yield from html_texts(inner)
    elif part.get_content_type() == "text/html":
        yield part, plain.decoded(part)


def all_words(texts):
    return set().union(*(plain.words(text) for text in texts))


class Message:
    """What both readers make of one message."""

    def __init__(self, line):
        self.seen = json.loads(line)
        self.words = plain.words(self.seen["text"] + "\n" + self.seen["alternative"])
        self.links = set(self.seen["links"])
        self.parsed = email.message_from_bytes(
            pathlib.Path(self.seen["file"]).read_bytes(), policy=email.policy.compat32)
        self.parts = list(html_texts(self.parsed))
        self.documents = [Document(text) for _, text in self.parts if text is not None]

    def excuse(self):
        """Why the parts may differ as a whole; "" where they may not."""
        if any(text is None for _, text in self.parts):
            return "undecodable"
        if self.seen["limits"]:
            return "cut"
        if self.parsed.defects or any(part.defects for part, _ in self.parts):
            return "defects"
        return ""

    def missing(self):
        """Class by class what html5lib alone sees."""
        classes = Counter()
        for document in self.documents:
            in_select = all_words(document.in_select)
            for word in document.words - self.words:
                # In a list to choose from it knows no other elements; browsers do by now.
                classes["in a list to choose from" if word in in_select else "unexplained"] += 1
            for uri in document.links - self.links:
                classes["nowhere" if NOWHERE.match(uri) else "unexplained"] += 1
        return classes

    def other_words(self):
        """Class by class the words that the reader may see beside those of the documents."""
        documents = self.documents
        yield "attribute", all_words(text for one in documents for text in one.attributes)
        hidden = [inner for one in documents for inner in one.conditional()]
        yield "conditional comment", set().union(*(one.words for one in hidden)) | all_words(
            text for one in hidden for text in one.attributes)
        yield "plain text", all_words(text for _, text in plain.plain_texts(self.parsed) if text)
        # Drawing programs take a sheet for an element like others; its text is hidden text.
        yield "sheet in a drawing", all_words(text for one in documents for text in one.sheets)
        yield "another type of text", all_words(
            plain.decoded(part) or "" for part in self.parsed.walk() if part.get_content_maintype() == "text")
        inner = [part for part in self.parsed.walk() if part is not self.parsed]
        yield "inner subject", all_words(str(part.get("subject", "")) for part in inner)

    def other_links(self, uri):
        """The class of a link that is none of an attribute, "" where there is no reason for it."""
        documents = self.documents
        texts = ["".join(one.pieces + one.attributes) for one in documents]
        if any(uri in text or uri.removeprefix("http://") in text for text in texts):
            return "in the text"
        if any(uri in text for one in documents for text in one.sheets):
            return "in a style or a list of pictures"
        if any(uri in html.unescape(text) for one in documents for text in one.comments):
            return "in a conditional comment"
        if any(uri == followed(other) for one in documents for other in one.links):
            return "as it is followed"
        return ""

    def added(self):
        """Class by class what the reader alone sees."""
        classes = Counter()
        extra = self.words - set().union(*(one.words for one in self.documents))
        for kind, known in self.other_words():
            classes[kind] += len(extra & known)
            extra -= known
        # A word in which another text was hidden.
        classes["joined" if self.seen["hiddenTextBytes"] > 0 else "unexplained"] += len(extra)
        for uri in self.links - set().union(*(one.links for one in self.documents)):
            classes[self.other_links(uri) or "unexplained"] += 1
        return classes


def followed(uri):
    """A link as browsers follow it."""
    slashed = re.sub(r"\\", "/", re.split("[?#]", uri)[0]) + uri[len(re.split("[?#]", uri)[0]):]
    return re.sub(r"^([a-z]+:)/*", r"\1//", slashed, flags=re.I)


def compare(line):
    """The class of each difference, and whether all are explained."""
    message = Message(line)
    if not message.documents:
        return Counter({"no HTML": 1}), True
    excuse = message.excuse()
    differences = Counter({f"html5lib alone: {kind}": count for kind, count in message.missing().items()})
    differences.update({f"reader alone: {kind}": count for kind, count in message.added().items()})
    unexplained = sum(count for kind, count in differences.items() if kind.endswith("unexplained"))
    if excuse and unexplained:
        return Counter({f"messages that are {excuse}": 1}), True
    return differences + Counter({"messages compared": 1}), not unexplained


def main():
    program, directory = sys.argv[1:]
    directory = os.environ.get("CORVANE_MAIL_DIR", directory)
    usual = USUAL_STEP if "CORVANE_MAIL_DIR" in os.environ else 1
    step = int(os.environ.get("CORVANE_DIFFERENTIAL_STEP", usual))
    paths = sorted(str(path) for path in pathlib.Path(directory).rglob("*.eml"))[::step]
    if not paths:
        sys.exit(f"{directory}: no messages (*.eml) there")
    lines = subprocess.run([program, *paths], capture_output=True, check=True).stdout.splitlines()
    classes = Counter()
    failures = []
    for line in lines:
        differences, is_explained = compare(line)
        classes += differences
        if not is_explained:
            failures.append(json.loads(line)["file"])
    print("\n".join(f"{count:7} {kind}" for kind, count in classes.most_common()))
    if failures:
        sys.exit("words or links that only one sees, without a reason: " + ", ".join(failures))


if __name__ == "__main__":
    main()
