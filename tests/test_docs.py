"""The code on the pages runs and says what the pages say; chains of calls; stubs."""

import ast
import doctest
import importlib.util
import os
import pathlib
import re
import subprocess
import sys
import textwrap
import unittest

from docs.chains import Chain, contradictions
from scripts.declarations import parse
from support import fragments

ROOT = pathlib.Path(__file__).resolve().parent.parent
PAGE = ROOT / "docs" / "writing_a_host.rst"
ROWS = "[10.0, 20.0]\n[0, 2, 3]\n[5, 7, 6]\n[3.0, 2.0, 4.0]\n"


def run_example(name, *arguments):
    return subprocess.run([sys.executable, str(ROOT / "examples" / name), *arguments], stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, universal_newlines=True)


def load_tests(loader, tests, pattern):
    tests.addTest(doctest.DocFileSuite(str(PAGE), module_relative=False, encoding="utf-8"))
    return tests


class WritingAHost(unittest.TestCase):
    def assert_told(self, text):
        page = PAGE.read_text(encoding="utf-8")
        self.assertTrue(textwrap.indent(text, "    ") in page, "not on the page: " + text)

    def test_whole_hosts_in_python_and_c(self):
        self.assert_told(ROWS)
        self.assertEqual(run_example("first_host.py").stdout, ROWS)
        rows = importlib.import_module("first_host").main()
        self.assertEqual("".join("%s\n" % row for row in rows), ROWS)

    @unittest.skipUnless("FRAGMENTS_CHECKED" in os.environ, "only the checked build tests accesses")
    def test_access_that_the_checked_build_refuses(self):
        self.assert_told(run_example("checked_access.py").stderr.splitlines()[-1] + "\n")


@unittest.skipUnless(importlib.util.find_spec("distributed"), "Dask's scheduler is not there")
class Sharded(unittest.TestCase):
    def test_rows_of_shards_are_those_of_one_process(self):
        done = run_example("sharded.py", "--nonzeros", "3000", "--shards", "1", "3")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        shards = [line.split()[0] for line in done.stdout.splitlines()[2:]]
        self.assertEqual(shards, ["none", "1", "3"])


class Chains(unittest.TestCase):
    TABLE = [  # chains; calls; the closure that contradicts them, and the runs of each chain
        (["1? 2 reserve 3 (4 | 5)+"], "1 2 9 3 5 4 2 1 2", None, [1]),
        (["1? 2 reserve 3 (4 | 5)+"], "1 3 4", 3, [0]),
        (["1? 2 reserve 3 (4 | 5)+"], "2 3 1 4", 3, [0]),
        (["12 3", "12 4"], "12 4 12 3", None, [1, 1]),
        (["12 3"], "12", 12, [0]),
        (["1 reserve 2"], "1 | 2", 2, [0]),  # in two tests
    ]

    def test_calls_that_contradict_a_chain(self):
        for expressions, text, number, runs in self.TABLE:
            calls = [[int(n) for n in test.split()] for test in text.split("|")]
            found, counts = contradictions([Chain(e) for e in expressions], calls)
            self.assertEqual((next(iter(found), None), counts), (number, runs), (expressions, text))

    def test_what_is_no_chain(self):
        for text in "1 (2", "1 > 2", "? 1":
            with self.subTest(text), self.assertRaisesRegex(ValueError, re.escape(text)):
                Chain(text)


class Declarations(unittest.TestCase):
    def test_comments_of_closures_and_groups(self):
        text = ("/// Own,\n/// two lines.\nCLOSURE(3, void, (I32Out a, F64 b))\n{\n}\n\n"
                "/// Of both.\nCLOSURE_AS(2, int, (int n), n)\nCLOSURE_AS(1, int, (I64MatrixOut m), 1)\n"
                "\nCLOSURE_AS(0, int, (int n), n)\n")
        found = {d.number: d for d in parse(text, None)}
        self.assertEqual([found[n].comment for n in (3, 2, 1, 0)],
                         ["Own,\ntwo lines.", "Of both.", "Of both.", ""])
        self.assertEqual([p.is_written for p in found[3].parameters], [True, False])

    def test_stubs_have_all_closures(self):
        stubs = pathlib.Path(fragments.__file__).parent / "fragments.pyi"
        tree = ast.parse(stubs.read_text(encoding="utf-8"))
        stubbed = {f.name for f in tree.body if isinstance(f, ast.FunctionDef)}
        names = {name for name in dir(fragments) if name.startswith("_c_closure_")}
        self.assertEqual(stubbed, names)


if __name__ == "__main__":
    unittest.main()
