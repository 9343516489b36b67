#!/usr/bin/python3
"""The pages of corvane corpus report and diff in a browser: what they show, sort and filter.

page_test.py COMMAND [SCREENSHOTS]: the corvane command to test, and a directory for pictures.
"""

import base64
import pathlib
import subprocess
import sys
import tempfile
import unittest

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

COMMAND = "corvane"
SCREENSHOTS = None
WIDTHS = (1280, 400)
HOSTILE = "</script><b>BOLD"

BEFORE = f"""
body BUY /buy/
score BUY 3
describe BUY <i>wants</i> "money" & more
uri LINK /b.example/
score LINK 2.5
body DEAR /dear/
score DEAR -2
body {HOSTILE} /lunch/
body NEVER /never/
"""
AFTER = BEFORE.replace("score BUY 3", "score BUY 6")
MAIL = {
    "ham/1.eml": "\ndear all: lunch\n",
    "ham/<u>2.eml": "\nbuy bread for lunch\n",
    "spam/1.eml": "\nbuy http://b.example/\n",
    "spam/2.eml": "\nhttp://b.example/\n",
}


def run(*arguments):
    subprocess.run([COMMAND, "corpus", *map(str, arguments)], check=True, capture_output=True)


class PageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.scratch = tempfile.TemporaryDirectory()
        root = pathlib.Path(cls.scratch.name)
        for name, text in MAIL.items():
            path = root / "mail" / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)
        for name, text in (("before", BEFORE), ("after", AFTER)):
            (root / name).mkdir()
            (root / name / "a.cf").write_text(text)
            run("run", "--rules", root / name, root / "mail", "-o", root / f"{name}.db")
        run("report", root / "before.db", "--html", root / "report.html")
        run("diff", root / "before.db", root / "after.db", "--html", root / "diff.html")
        cls.root = root
        options = webdriver.ChromeOptions()
        for option in ("--headless=new", "--no-sandbox", "--disable-gpu"):
            options.add_argument(option)
        options.add_argument(f"--user-data-dir={root}/profile")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        cls.browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()
        cls.scratch.cleanup()

    def open(self, page, width, scheme="light"):
        self.browser.execute_cdp_cmd(
            "Emulation.setDeviceMetricsOverride",
            {"width": width, "height": 1600, "deviceScaleFactor": 1, "mobile": width < 600},
        )
        self.browser.execute_cdp_cmd(
            "Emulation.setEmulatedMedia",
            {"features": [{"name": "prefers-color-scheme", "value": scheme}]},
        )
        self.browser.get(f"file://{self.root}/{page}.html")
        if SCREENSHOTS:
            picture = self.browser.execute_cdp_cmd("Page.captureScreenshot", {})["data"]
            path = pathlib.Path(SCREENSHOTS) / f"{page}-{width}-{scheme}.png"
            path.write_bytes(base64.b64decode(picture))

    def script(self, text, *arguments):
        return self.browser.execute_script(text, *arguments)

    def column(self, section, number):
        return self.script(
            "return [...document.querySelectorAll(arguments[0] + ' tbody tr')]"
            ".map((row) => row.cells[arguments[1]].firstChild.textContent)",
            f"#{section}",
            number,
        )

    def head(self, section, title):
        return self.browser.find_element(
            By.XPATH, f"//section[@id='{section}']//th[button[text()='{title}']]"
        )

    def test_pages_stand_alone_and_fit(self):
        for page in ("report", "diff"):
            for width in WIDTHS:
                with self.subTest(page=page, width=width):
                    self.open(page, width)
                    self.assertEqual(self.browser.get_log("browser"), [])
                    self.assertEqual(
                        self.script("return performance.getEntriesByType('resource').length"), 0
                    )
                    self.assertLessEqual(
                        self.script("return document.documentElement.scrollWidth"), width
                    )
                    self.assertGreater(len(self.column("rules", 0)), 0)

    def test_what_mail_and_rules_are_called_is_text(self):
        self.open("report", WIDTHS[0])
        self.assertIn(HOSTILE, self.column("rules", 0))
        self.assertIn("<u>2.eml", self.column("nearest", 4))
        self.assertEqual(self.script("return document.querySelectorAll('main b, main i, u').length"), 0)
        self.assertIn('<i>wants</i> "money" & more', self.browser.find_element(By.ID, "rules").text)

    def test_tables_are_sorted_by_mouse_and_keyboard(self):
        self.open("report", WIDTHS[0])
        score = self.head("rules", "Score")
        score.find_element(By.TAG_NAME, "button").click()
        self.assertEqual(score.get_attribute("aria-sort"), "descending")
        self.assertEqual(self.column("rules", 1), ["3", "2.5", "1", "1", "-2"])
        score.find_element(By.TAG_NAME, "button").send_keys(Keys.ENTER)
        self.assertEqual(score.get_attribute("aria-sort"), "ascending")
        self.assertEqual(self.column("rules", 1), ["-2", "1", "1", "2.5", "3"])
        self.head("rules", "Rule").find_element(By.TAG_NAME, "button").send_keys(Keys.SPACE)
        self.assertEqual(score.get_attribute("aria-sort"), "none")
        self.assertEqual(self.column("rules", 0)[-3:], ["DEAR", "LINK", "NEVER"])

    def test_rules_are_filtered(self):
        self.open("report", WIDTHS[0])
        name = self.browser.find_element(By.ID, "rule-filter")
        name.send_keys("e")
        self.assertEqual(sorted(self.column("rules", 0)), ["DEAR", "NEVER"])
        self.browser.find_element(By.XPATH, "//label[contains(., 'hit something')]/input").click()
        self.assertEqual(self.column("rules", 0), ["DEAR"])
        self.assertEqual(self.browser.find_element(By.ID, "rule-count").text, "1 of 5 rules")
        name.clear()
        name.send_keys(" ", Keys.BACKSPACE)
        self.browser.find_element(By.ID, "rule-kind").send_keys("uri")
        self.assertEqual(self.column("rules", 0), ["LINK"])

    def test_a_threshold_can_be_tried(self):
        self.open("report", WIDTHS[0])
        told = self.browser.find_element(By.CSS_SELECTOR, "#curve output")
        self.assertEqual(told.text.replace("\u00a0", " "), "false positives 0.00 %, missed 50.00 %")
        slider = self.browser.find_element(By.ID, "threshold")
        slider.send_keys(Keys.HOME)
        self.assertEqual(told.text.replace("\u00a0", " "), "false positives 50.00 %, missed 0.00 %")

    def test_diff_tells_what_did_it(self):
        self.open("diff", WIDTHS[0])
        self.assertEqual(self.column("verdicts", 1), ["<u>2.eml"])
        self.assertEqual(self.column("verdicts", 5), ["BUY: 3 → 6"])
        self.assertEqual(self.column("rules", 0), ["BUY"])

    def test_dark_is_dark(self):
        grounds = set()
        for scheme in ("light", "dark"):
            self.open("report", WIDTHS[1], scheme)
            grounds.add(self.script("return getComputedStyle(document.body).backgroundColor"))
        self.assertEqual(len(grounds), 2)


if __name__ == "__main__":
    COMMAND = sys.argv.pop(1)
    SCREENSHOTS = sys.argv.pop(1) if len(sys.argv) > 1 else None
    unittest.main()
