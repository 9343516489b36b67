"""The Python module: its page, and that it says what the command says, on many threads at once.

module_test.py MODULE_DIRECTORY COMMAND SOURCE_DIRECTORY
"""

import concurrent.futures
import doctest
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

MODULE, COMMAND, SOURCES = (pathlib.Path(each).resolve() for each in sys.argv[1:4])
sys.path.insert(0, str(MODULE))

import corvane  # noqa: E402

EXAMPLES = SOURCES / "rules/examples"


def messages():
    root = pathlib.Path(os.environ.get("CORVANE_MAIL_DIR", EXAMPLES))
    return sorted(root.rglob("*.eml"))[:400]


class ModuleTest(unittest.TestCase):
    def test_page(self):
        page = SOURCES / "docs/python.md"
        with tempfile.TemporaryDirectory() as scratch:
            rules = pathlib.Path(scratch) / "rules"
            rules.mkdir()
            text = re.search(r"```rules\n(.*?)```", page.read_text(), re.S).group(1)
            (rules / "a.cf").write_text(text)
            before = os.getcwd()
            os.chdir(scratch)
            try:
                result = doctest.testfile(str(page), module_relative=False)
            finally:
                os.chdir(before)
        self.assertGreater(result.attempted, 8)
        self.assertEqual(result.failed, 0)

    def test_says_what_the_command_says_on_many_threads(self):
        files = messages()
        rules = corvane.RuleSet(EXAMPLES)
        command = [COMMAND, "scan", "--json", "--budget", "0", "--rules", EXAMPLES, *files]
        output = subprocess.run(command, capture_output=True, check=False).stdout.decode()
        expected = {}
        for line in output.splitlines():
            verdict = json.loads(line)
            if "index" not in verdict:
                expected[verdict["file"]] = (
                    verdict["over"],
                    verdict["language"],
                    [hit["name"] for hit in verdict["rules"]],
                )
        self.assertGreater(len(expected), 5)

        def scan(file):
            verdict = rules.scan(pathlib.Path(file).read_bytes())
            return file, (verdict.over, verdict.language, [hit.name for hit in verdict.hits])

        with concurrent.futures.ThreadPoolExecutor(4) as pool:
            self.assertEqual(dict(pool.map(scan, list(expected) * 3)), expected)

    def test_explanations_add_up(self):
        rules = corvane.RuleSet([EXAMPLES])
        for file in messages()[:50]:
            why = rules.explain(file.read_bytes(), ["NONE"])
            self.assertEqual(
                sorted(each.name for each in why.tripped), [hit.name for hit in why.verdict.hits]
            )
            if why.tripped and why.verdict.score != 0:
                self.assertEqual(why.tripped[-1].total, why.verdict.score)
            self.assertEqual([each.reason for each in why.untripped], ["not-loaded"])

    def test_refuses_what_it_cannot_do(self):
        with self.assertRaisesRegex(corvane.LoadError, "does not exist"):
            corvane.RuleSet("/nowhere/at/all")
        rules = corvane.RuleSet(EXAMPLES)
        for arguments in ({"percent": 101}, {"budget": -1.0}, {"budget": float("nan")}):
            with self.assertRaises(ValueError):
                rules.scan(b"\nx\n", **arguments)
        with self.assertRaises(TypeError):
            rules.scan("text")
        with self.assertRaises(AttributeError):
            rules.scan(b"\nx\n").score = 1

    def test_bytes_that_are_no_text_come_back(self):
        with tempfile.TemporaryDirectory() as scratch:
            pathlib.Path(scratch, "a.cf").write_bytes(b"rawbody \xffA /\xfe/\ndescribe \xffA \xfd\n")
            rules = corvane.RuleSet(os.fsencode(scratch))
            hit = rules.scan(b"\n\xfe\n").hits[0]
            self.assertEqual((os.fsencode(hit.name), os.fsencode(hit.description)), (b"\xffA", b"\xfd"))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
