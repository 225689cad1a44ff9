"""The guest's part of its tests: runs those of tests/vm/guest, or of the file $VX_TESTS there, and reports each."""

import json
import os
import pathlib
import sys
import unittest

from report import Report

DIRECTORY = pathlib.Path(__file__).resolve().parents[1] / "guest"


class Result(unittest.TextTestResult):
    """A line for each test: its name, and what went wrong, if anything did."""

    report = None

    def startTest(self, test):
        super().startTest(test)
        self.wrong = []

    def addFailure(self, test, err):
        super().addFailure(test, err)
        self._note(test, self.failures[-1][1])

    def addError(self, test, err):
        super().addError(test, err)
        self._note(test, self.errors[-1][1])

    def addSubTest(self, test, subtest, err):
        super().addSubTest(test, subtest, err)
        if err is not None:
            self.wrong.append(f"{subtest}: {err[1]}")

    def addSkip(self, test, reason):
        super().addSkip(test, reason)
        self._note(test, f"skipped: {reason}")

    def stopTest(self, test):
        super().stopTest(test)
        self._send(test.id(), self.wrong)

    def _note(self, test, text):
        """What belongs to no test is a class that could not be set up, or a file that could not be read."""
        if isinstance(test, unittest.TestCase):
            self.wrong.append(text)
        else:
            self._send(str(test), [text])

    def _send(self, name, wrong):
        self.report.line("test", json.dumps([name, wrong]))


def main():
    Result.report = Report()
    suite = unittest.defaultTestLoader.discover(str(DIRECTORY), os.environ.get("VX_TESTS", "*_test.py"))
    result = unittest.TextTestRunner(sys.stdout, verbosity=2, resultclass=Result).run(suite)
    Result.report.line("end", result.testsRun)


if __name__ == "__main__":
    main()
