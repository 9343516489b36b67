"""Each repository check passes on a sound tree and fails, naming file and remedy, on each violation."""

import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

TOOLS = pathlib.Path(__file__).resolve().parents[2] / "tools"

SOUND = {
    "include/host/parser/Export.h": "#define EXPORT\n",
    "include/host/parser/Exception.h": "#include <string>\n\n#include \"host/parser/Export.h\"\n",
    "include/host/parser/Buffer.h": '#include "host/parser/Exception.h"\n',
    "include/host/regex/Expression.h": '#include "host/parser/Buffer.h"\n',
    "include/heuristic/Score.h": "#include <map>\n",
    "include/heuristic/Rule.h": '#include "heuristic/Score.h"\n#include "host/regex/Expression.h"\n',
    "include/heuristic/BodyRule.h": '#include "heuristic/Rule.h"\n',
    "include/heuristic/RawBodyRule.h": '#include "heuristic/BodyRule.h"\n',
    "src/heuristic/Failure.h": "#include <array>\n",
    "src/heuristic/Rule.cpp": '#include "heuristic/BodyRule.h"\n#include "heuristic/Failure.h"\n',
    "src/host/regex/Expression.cpp": "#include <pcre2.h>\n#include <unistd.h>\n",
    "cli/Main.cpp": '#include <CLI/CLI.hpp>\n\n#include "heuristic/Rule.h"\n',
    "tests/RuleTest.cpp": '#include "heuristic/Failure.h"\n',
}


class Tree:
    """A small source tree in a temporary directory, with a build directory that compiles all of it."""

    def __init__(self, case):
        directory = tempfile.TemporaryDirectory()
        case.addCleanup(directory.cleanup)
        self.root = pathlib.Path(directory.name).resolve()
        for name, text in SOUND.items():
            self.write(name, text)
        self.compile(*(name for name in SOUND if name.endswith(".cpp")))

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def compile(self, *names):
        commands = [
            {"directory": str(self.root), "file": name, "command": f"c++ -Iinclude -c {name}"}
            for name in names
        ]
        self.write("build/compile_commands.json", json.dumps(commands))

    def check(self, name, *options):
        """Exit status and output of a check."""
        result = subprocess.run(
            [sys.executable, TOOLS / f"check_{name}.py", "--root", self.root, *options],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False,
        )
        return result.returncode, result.stdout

    def git(self, *command):
        identity = ["-c", "user.name=check", "-c", "user.email=check@localhost"]
        subprocess.run(["git", *identity, *command], cwd=self.root, check=True, capture_output=True)


class CheckersTest(unittest.TestCase):
    def setUp(self):
        self.tree = Tree(self)

    def expect_failure(self, outcome, *texts):
        status, output = outcome
        self.assertEqual(status, 1, output)
        self.assertNotIn("Traceback", output)
        for text in texts:
            self.assertIn(text, output)

    def test_sound_tree_passes(self):
        build = ("--build", self.tree.root / "build")
        for name, options in (("sources", build), ("includes", ()), ("format", ())):
            status, output = self.tree.check(name, *options)
            self.assertEqual(status, 0, output)

    def test_source_that_is_not_built(self):
        self.tree.write("tests/ForgottenTest.cpp", "")
        build = ("--build", self.tree.root / "build")
        self.expect_failure(self.tree.check("sources", *build), "tests/ForgottenTest.cpp: not comp")
        status, output = self.tree.check("sources", *build, "--skip", "tests")
        self.assertEqual(status, 0, output)
        self.expect_failure(self.tree.check("sources", "--build", "/none"), "cmake --preset dev")

    def test_includes_against_the_layers(self):
        violations = (
            ("include/host/parser/Buffer.h", '"host/regex/Expression.h"', "must not depend on 'regex'"),
            ("src/host/regex/Expression.cpp", '"heuristic/Rule.h"', "must not depend on 'heuristic'"),
            ("cli/Main.cpp", '"heuristic/Failure.h"', "a private header of 'heuristic'"),
            ("include/heuristic/Rule.h", '"heuristic/Failure.h"', "includes a private one"),
            ("include/heuristic/Score.h", '"heuristic/Rule.h"', "it comes before that header"),
            ("include/heuristic/BodyRule.h", '"heuristic/RawBodyRule.h"', "beside it"),
            ("include/host/parser/Exception.h", '"host/parser/Buffer.h"', "it comes before"),
            ("src/heuristic/Rule.cpp", "<pcre2.h>", "belongs to 'regex'"),
            ("src/heuristic/Failure.h", "<boost/assign.hpp>", "a third-party header in a header"),
            ("include/heuristic/Rule.h", "<unistd.h>", "more than the C++17 library"),
            ("include/heuristic/Rule.h", "<span>", "more than the C++17 library"),
            ("src/heuristic/Rule.cpp", '"heuristic/None.h"', "no such file"),
            ("src/heuristic/Rule.cpp", '"../tests/RuleTest.cpp"', "only tests"),
        )
        for path, name, text in violations:
            with self.subTest(path=path, name=name):
                self.tree.write(path, SOUND[path] + f"#include {name}\n")
                self.expect_failure(self.tree.check("includes"), f"{path}:", text)
                self.tree.write(path, SOUND[path])

    def test_headers_that_include_each_other(self):
        self.tree.write("src/heuristic/A.h", '#include "heuristic/B.h"\n')
        self.tree.write("src/heuristic/B.h", '#include "heuristic/A.h"\n')
        cycle = "src/heuristic/A.h -> src/heuristic/B.h -> src/heuristic/A.h"
        self.expect_failure(self.tree.check("includes"), cycle, "forward-declare")

    def test_badly_formatted_source(self):
        self.tree.write("src/heuristic/Ugly.cpp", "int  ugly( ) ;\n")
        self.expect_failure(self.tree.check("format"), "src/heuristic/Ugly.cpp: not formatted; run:")

    def test_tidy_looks_at_what_changed(self):
        self.tree.write(".clang-tidy", "Checks: '-*,modernize-use-nullptr'\nWarningsAsErrors: '*'\n"
                                       "HeaderFilterRegex: '.*'\n")
        self.tree.write("src/Old.cpp", "int *old = 0;\n")
        self.tree.write("src/User.cpp", '#include "heuristic/Used.h"\n')
        self.tree.write("include/heuristic/Used.h", "")
        self.tree.compile("src/Old.cpp", "src/User.cpp")
        self.tree.git("init", "--quiet", "--initial-branch=main")
        self.tree.git("add", ".")
        self.tree.git("commit", "--quiet", "--message=base")
        options = ("--build", self.tree.root / "build", "--base", "HEAD")
        status, output = self.tree.check("tidy", *options)
        self.assertEqual(status, 0, output)
        self.tree.write("include/heuristic/Used.h", "static int *fresh = 0;\n")
        outcome = self.tree.check("tidy", *options)
        self.expect_failure(outcome, "src/User.cpp: clang-tidy objects", "Used.h:1")
        self.assertNotIn("Old.cpp", outcome[1])
        self.expect_failure(self.tree.check("tidy", *options[:2], "--all"), "src/Old.cpp")
        self.expect_failure(self.tree.check("tidy", *options[:3], "none"), "--base")


if __name__ == "__main__":
    unittest.main()
