"""list_tests.py: what it finds is what unittest finds, and what it cannot place is an error."""

import pathlib
import sys
import tempfile
import unittest

from list_tests import list_tests
from processes import run

LISTER = pathlib.Path(__file__).with_name("list_tests.py")


class ListTests(unittest.TestCase):
    def setUp(self):
        self.directory = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))

    def write(self, text):
        path = self.directory / "sample_test.py"
        path.write_text(f"import unittest\n\n{text}")
        return path

    def found_by_unittest(self, path):
        program = ("import sys, unittest\n"
                   "suites = unittest.defaultTestLoader.loadTestsFromName(sys.argv[1])\n"
                   "print(*sorted(test.id() for suite in suites for test in suite))")
        result = run(sys.executable, "-c", program, path.stem, cwd=path.parent)
        return [name.removeprefix(f"{path.stem}.") for name in result.stdout.split()]

    def test_finds_what_unittest_finds(self):
        path = self.write("class Mixin:\n def test_mixed_in(self): pass\n"
                          "class First(Mixin, unittest.TestCase):\n"
                          " def test_own(self): pass\n def helper(self): pass\n"
                          "class Second(First):\n def test_own(self): pass\n async def test_more(self): pass\n"
                          "class Empty(unittest.TestCase): pass\n"
                          "class Other:\n def helper(self): pass\n")
        self.assertEqual(sorted(list_tests(path)), self.found_by_unittest(path))
        self.assertEqual(list_tests(path), ["First.test_own", "First.test_mixed_in",
                                            "Second.test_own", "Second.test_more", "Second.test_mixed_in"])

    def test_does_not_import_the_file(self):
        path = self.write("import no_such_module\nclass A(unittest.TestCase):\n def test_b(self): pass\n")
        self.assertEqual(list_tests(path), ["A.test_b"])

    def test_refuses_a_file_without_tests(self):
        with self.assertRaisesRegex(ValueError, "sample_test.py: no tests found"):
            list_tests(self.write("class A(unittest.TestCase):\n def helper(self): pass\n"))

    def test_refuses_tests_that_unittest_would_not_find(self):
        found = "class A(unittest.TestCase):\n def test_b(self): pass\n"
        for lost in ("class Lost:\n def test_c(self): pass\n",
                     "class Lost(imported.Base):\n def test_c(self): pass\n",
                     "def function():\n class Lost(unittest.TestCase):\n  def test_c(self): pass\n"):
            with self.subTest(lost), self.assertRaisesRegex(ValueError, "the tests of Lost belong to no TestCase"):
                list_tests(self.write(found + lost))

    def test_fails_with_its_reason_as_a_program(self):
        for path, reason in ((self.write(""), "no tests found"), (self.directory / "absent.py", "No such file")):
            result = run(LISTER, path, check=False)
            self.assertEqual((result.returncode, result.stdout), (1, ""))
            self.assertIn(reason, result.stderr)
        self.assertEqual(run(LISTER, self.write("class A(unittest.TestCase):\n def test_b(self): pass\n")).stdout,
                         "A.test_b\n")
