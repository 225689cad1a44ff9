"""The manager as a process: its start, its end and its command line."""

import os
import signal
import socket
import unittest

from processes import LIMIT
from programs import Programs


class Manager(Programs, unittest.TestCase):
    def test_ends_with_status_0_on_sigterm_and_sigint_and_removes_its_sockets(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            process = self.start_and_wait()
            process.send_signal(number)
            self.assertEqual(process.wait(timeout=LIMIT), 0)
            self.assertEqual(os.listdir(self.directory / "run"), [])

    def test_leaves_a_living_one_in_the_same_directory_alone(self):
        first = self.start_and_wait()
        second = self.manager()
        self.assertEqual(second.returncode, 1)
        self.assertIn("another DHCP manager answers", second.stderr)
        self.assertIsNone(first.poll())
        self.assertIn("not connected", self.relayctl("status").stdout)

    def test_takes_the_place_of_a_killed_one(self):
        first = self.start_and_wait()
        first.kill()
        first.wait()
        self.start_and_wait()

    def test_logs_only_some_of_the_commands_that_it_refuses(self):
        process = self.start_and_wait()
        refused = 200
        for _ in range(refused):
            with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as connection:
                connection.settimeout(LIMIT)
                connection.connect(str(self.directory / "run" / "ctl.sock"))
                connection.send(b"no message")
                self.assertEqual(connection.recv(1), b"")
        process.terminate()
        lines = [line for line in process.communicate(timeout=LIMIT)[1].splitlines() if "refused" in line]
        self.assertGreater(len(lines), 0)
        self.assertLess(len(lines), refused / 5)

    def test_tells_why_it_cannot_start(self):
        for arguments, message in (
                (["--runtime-dir", str(self.directory / ("x" * 100))], "is longer than"),
                (["--journal", "/nowhere/at/all"], "cannot write the journal /nowhere/at/all"),
                (["--runtime-dir", "/proc/nowhere"], "/proc/nowhere"),
                (["--user", "nobody-here"], "there is no user nobody-here")):
            result = self.manager(*arguments)
            self.assertEqual(result.returncode, 1, arguments)
            self.assertIn(message, result.stderr)
        faults = (self.directory / "faults.jsonl").read_text().splitlines()
        self.assertEqual(len(faults), 4)

    def test_prints_its_help_and_version_and_refuses_other_arguments(self):
        self.assertIn("usage:", self.manager("--help").stdout)
        self.assertRegex(self.manager("--version").stdout, r"^dhcp-manager \d+\.\d+\.\d+\n$")
        self.assertEqual(self.manager("--help").returncode, 0)
        for arguments in (["--fast"], ["stray"], ["--journal"], ["--flood-guard", "0"], ["--flood-guard", "many"],
                          ["--flood-guard", "5:0"], ["--flood-guard", "5:"], ["--vrf-device", "7"],
                          ["--vrf-device", "0=eth0"], ["--vrf-device", "7="], ["--keep-rights", "--user", "nobody"]):
            result = self.manager(*arguments)
            self.assertEqual(result.returncode, 2, arguments)
            self.assertNotEqual(result.stderr, "", arguments)
