#!/usr/bin/env python3
"""A browser shows the near misses of hidden text, and none of the texts that count as hidden.

    browser_test.py [CHROMIUM]

For a person to run: it takes Debian's chromium, which no other test needs. Renders the documents of
tests/host/parser/html/HiddenTextTest.cpp twice, with two different words; where both pictures are
the same, the browser hides the word. A text that it shows and the reader hides is a failure. Texts
that it hides and the reader shows on purpose are named below; others are failures as well.

Exits with 77 where there is no such browser.
"""

import ast
import pathlib
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import zlib

SOURCE = pathlib.Path(__file__).parents[1] / "host/parser/html/HiddenTextTest.cpp"
WORDS = ("kettle", "mnwzjq")
COLUMNS, WIDTH, HEIGHT = 4, 300, 80
LITERAL = r'"(?:[^"\\]|\\.)*"'

# What the browser hides, and the reader shows on purpose.
SEEN = {
    "offScreen": "many mail programs ignore positions",
    "heightOfUnknown": "it depends on the height of a window",
    "whiteOnNothing": "the background is the mail program's",
    "whiteOnPicture": "the picture is missing here",
    "laterStyle": "a sheet behind the text is not waited for",
    "doubtfulRuleShows": "it is not known whether the other rule matches",
    "conditionalComment": "other programs show it",
    "noscript": "mail programs run no scripts, the browser does here",
}


def documents():
    """Name, HTML and whether it counts as hidden, of each document that the test spells out."""
    source = SOURCE.read_text(encoding="utf-8")
    for suite, is_hidden in (("NearMiss", False), ("HiddenText", True)):
        start = source.index(f"Cases, {suite},")
        table = source[start:source.index("row.param.name", start)]
        for name, literals in re.findall(rf"Row\{{({LITERAL}),\s*((?:{LITERAL}\s*)+)\}}", table):
            html = "".join(ast.literal_eval(one) for one in re.findall(LITERAL, literals))
            yield ast.literal_eval(name), html, is_hidden


def rendered(browser, directory, rows, word):
    """The lines of a picture of all documents, each in a frame of its own, and the bytes of a pixel."""
    frames = []
    for number, (_, html, _) in enumerate(rows):
        path = directory / f"{word}{number}.html"
        path.write_text(html.replace(WORDS[0], word), encoding="utf-8")
        left, top = number % COLUMNS * WIDTH, number // COLUMNS * HEIGHT
        frames.append(f'<iframe scrolling=no src="{path.name}" style="position:absolute;border:0;left:{left}px;'
                      f'top:{top}px;width:{WIDTH}px;height:{HEIGHT}px"></iframe>')
    page = directory / f"{word}.html"
    page.write_text("<!doctype html><body style='margin:0'>" + "".join(frames), encoding="utf-8")
    height = -(-len(rows) // COLUMNS) * HEIGHT
    picture = directory / f"{word}.png"
    subprocess.run(
        [browser, "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars",
         f"--user-data-dir={directory}/profile", f"--window-size={COLUMNS * WIDTH},{height}",
         f"--screenshot={picture}", page.as_uri()],
        capture_output=True, check=True, timeout=300)
    return lines_of(picture.read_bytes())


def lines_of(png):
    """Undoes the compression of a picture without a palette."""
    data, place = b"", 8
    while place < len(png):
        length, kind = struct.unpack(">I4s", png[place:place + 8])
        chunk = png[place + 8:place + 8 + length]
        if kind == b"IHDR":
            width, height, _, colours = struct.unpack(">IIBB", chunk[:10])
        elif kind == b"IDAT":
            data += chunk
        place += length + 12
    pixel = {2: 3, 6: 4}[colours]
    raw = zlib.decompress(data)
    lines, above = [], bytes(width * pixel)
    for start in range(0, len(raw), width * pixel + 1):
        above = unfiltered(raw[start], raw[start + 1:start + 1 + width * pixel], above, pixel)
        lines.append(above)
    assert len(lines) == height
    return lines, pixel


def unfiltered(kind, line, above, pixel):
    line = bytearray(line)
    for at in range(len(line)):
        left, corner = (line[at - pixel], above[at - pixel]) if at >= pixel else (0, 0)
        up = above[at]
        nearest = min((left, up, corner), key=lambda value: abs(left + up - corner - value))
        line[at] = (line[at] + (0, left, up, (left + up) // 2, nearest)[kind]) & 0xFF
    return bytes(line)


def main():
    browser = shutil.which(sys.argv[1] if len(sys.argv) > 1 else "chromium")
    if browser is None:
        print("browser_test: skipped: chromium is not installed")
        sys.exit(77)
    rows = list(documents())
    with tempfile.TemporaryDirectory() as directory:
        pictures = [rendered(browser, pathlib.Path(directory), rows, word) for word in WORDS]
    (first, pixel), (second, _) = pictures
    failures = []
    for number, (name, _, is_hidden) in enumerate(rows):
        left = number % COLUMNS * WIDTH * pixel
        columns = slice(left, left + WIDTH * pixel)
        top = number // COLUMNS * HEIGHT
        is_shown = any(first[at][columns] != second[at][columns] for at in range(top, top + HEIGHT))
        if is_shown == is_hidden:
            print(f"{name}: {SEEN.get(name, 'NOT EXPECTED')}")
            if is_hidden or name not in SEEN:
                failures.append(name)
    print(f"{len(rows)} documents, {len(failures)} differ without a reason")
    if failures:
        sys.exit(", ".join(failures))


if __name__ == "__main__":
    main()
