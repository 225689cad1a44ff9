"""The process that serves the manager's state as operational data."""

import signal
import subprocess
import unittest

from paths import BIN
from processes import LIMIT
from programs import Programs


class StateProcess(Programs, unittest.TestCase):
    def state(self, *arguments):
        return self.run_program("dhcp-relay-stated", *arguments)

    def test_prints_its_help_and_version_and_refuses_other_arguments(self):
        self.assertIn("usage:", self.state("--help").stdout)
        self.assertRegex(self.state("--version").stdout, r"^dhcp-relay-stated \d+\.\d+\.\d+\n$")
        self.assertEqual(self.state("--fast").returncode, 2)

    def test_waits_for_a_datastore_and_makes_none(self):
        repository = self.directory / "sysrepo"
        process = subprocess.Popen([BIN / "dhcp-relay-stated"], stderr=subprocess.PIPE, text=True,
                                   env=dict(self.environment, SYSREPO_REPOSITORY_PATH=str(repository)))
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.kill)
        self.assertIn("there is no datastore", process.stderr.readline())
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.wait(timeout=LIMIT), 0)
        self.assertFalse(repository.exists())
