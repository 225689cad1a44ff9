"""The tests of guest/, which need the kernel's own VLAN, VRF, bridge and bond devices: all in one boot."""

import json
import os
import pathlib
import tempfile
import unittest

from list_tests import list_tests
from machine import Machine

GUEST = pathlib.Path(__file__).with_name("guest")
PATTERN = os.environ.get("VX_GUEST_TESTS", "*_test.py")
LIMIT = 800  # seconds


def wanted():
    return sorted(f"{path.stem}.{test}" for path in GUEST.glob(PATTERN) for test in list_tests(path))


class KernelDevices(unittest.TestCase):
    def test_pass_every_test_of_the_guest(self):
        directory = self.enterContext(tempfile.TemporaryDirectory(prefix="vxv."))
        machine = Machine(self, directory, "test_job", settings={"VX_TESTS": PATTERN})
        machine.wait_end(LIMIT)
        results = dict(json.loads(line) for line in machine.values("test"))
        for name, wrong in results.items():
            print(f"{name}: {'failed' if wrong else 'ok'}", flush=True)
            with self.subTest(name):
                self.assertFalse(wrong, "\n".join([*wrong, machine.tail()]))
        self.assertEqual(sorted(results), wanted())
