"""docs/security.md: every statement of a table names a test, and that test exists."""

import re
import unittest

from documentation import CODE, ROOT

PAGE = ROOT / "docs" / "security.md"


def statements():
    """The rows of every table: the statement, and the code words of its last cell."""
    for line in PAGE.read_text().splitlines():
        cells = [cell.strip() for cell in line.strip("|").split("|")]
        if line.startswith("|") and cells[-1] not in ("test", "---"):
            yield cells[0], CODE.findall(cells[-1])


class Security(unittest.TestCase):
    def test_every_statement_names_a_test_that_exists(self):
        found = list(statements())
        self.assertGreater(len(found), 10)
        for statement, (path, *names) in found:
            with self.subTest(statement):
                self.assertNotEqual(names, [])
                text = (ROOT / path).read_text()
                missing = [name for name in names if not re.search(rf"\b{name}\b|{name}\{{", text)]
                self.assertEqual(missing, [])
