"""The manager and the operator's command as processes."""

import os
import shutil
import signal
import subprocess
import unittest

from leftovers import make_directory, remove_leftovers
from stack import BIN, LIMIT, wait_until

KIND = "vxp"


class Programs:
    """A directory for a manager, and its processes, gone in the end."""

    def setUp(self):
        remove_leftovers(KIND, lambda directory: None)
        self.directory = make_directory(KIND)
        self.addCleanup(shutil.rmtree, self.directory)
        self.environment = dict(os.environ, DHCP_MANAGER_DIR=str(self.directory / "run"),
                                VXMW_STATE_DIR=str(self.directory))

    def start(self, *arguments):
        process = subprocess.Popen([BIN / "dhcp-manager", *arguments], env=self.environment,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def start_and_wait(self, *arguments):
        process = self.start(*arguments)
        wait_until(lambda: self.control("status", "--json").stdout, "the manager answers")
        return process

    def manager(self, *arguments):
        return subprocess.run([BIN / "dhcp-manager", *arguments], env=self.environment,
                              capture_output=True, text=True, timeout=LIMIT, check=False)

    def control(self, *arguments):
        return subprocess.run([BIN / "dhcp-relayctl", *arguments], env=self.environment,
                              capture_output=True, text=True, timeout=LIMIT, check=False)


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
        self.assertIn("not connected", self.control("status").stdout)

    def test_takes_the_place_of_a_killed_one(self):
        first = self.start_and_wait()
        first.kill()
        first.wait()
        self.start_and_wait()

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

    def test_command_line(self):
        self.assertIn("usage:", self.manager("--help").stdout)
        self.assertRegex(self.manager("--version").stdout, r"^dhcp-manager \d+\.\d+\.\d+\n$")
        self.assertEqual(self.manager("--help").returncode, 0)
        for arguments in (["--fast"], ["stray"], ["--journal"], ["--flood-guard", "0"], ["--flood-guard", "many"],
                          ["--flood-guard", "5:0"], ["--flood-guard", "5:"], ["--vrf-device", "7"],
                          ["--vrf-device", "0=eth0"], ["--vrf-device", "7="]):
            result = self.manager(*arguments)
            self.assertEqual(result.returncode, 2, arguments)
            self.assertNotEqual(result.stderr, "", arguments)


class Control(Programs, unittest.TestCase):
    def test_without_a_manager_tells_so(self):
        for command in ("show", "status"):
            result = self.control(command)
            self.assertEqual(result.returncode, 1)
            self.assertIn("the DHCP manager does not answer on", result.stderr)

    def test_shows_an_empty_table(self):
        self.start_and_wait()
        self.assertEqual(self.control("show", "--json").stdout, '{"instances":[]}\n')
        self.assertEqual(self.control("show").stdout, "no relay instances\n")

    def test_shows_that_nothing_is_relayed_yet(self):
        self.start_and_wait()
        for topic, text in (("instances", "no relay instances\n"), ("interfaces", "no relay interfaces\n"),
                            ("servers", "no servers\n"), ("counters", "other 0\n")):
            self.assertEqual(self.control("show", topic).stdout, text)
        self.assertEqual(self.control("show", "instances", "--json").stdout, '{"instances":[]}\n')

    def test_status_fails_while_there_is_no_daemon(self):
        self.start_and_wait()
        result = self.control("status", "--wait", "0")
        self.assertEqual(result.returncode, 1)
        self.assertIn("not in sync", result.stdout)

    def test_takes_the_directory_from_its_option(self):
        self.start_and_wait()
        directory = self.environment.pop("DHCP_MANAGER_DIR")
        self.assertEqual(self.control("--runtime-dir", directory, "show").returncode, 0)

    def test_command_line(self):
        self.assertIn("usage:", self.control("--help").stdout)
        self.assertRegex(self.control("--version").stdout, r"^dhcp-relayctl \d+\.\d+\.\d+\n$")
        for arguments in ([], ["dance"], ["show", "status"], ["--fast", "show"],
                          ["status", "--wait", "soon"], ["status", "--wait", "-1"],
                          ["show", "weather"], ["clear"], ["clear", "everything"], ["status", "interfaces"],
                          ["show", "counters", "now"]):
            result = self.control(*arguments)
            self.assertEqual(result.returncode, 2, arguments)
            self.assertNotEqual(result.stderr, "", arguments)


if __name__ == "__main__":
    unittest.main()


class State(Programs, unittest.TestCase):
    """The process that serves the manager's state."""

    def state(self, *arguments):
        return subprocess.run([BIN / "dhcp-relay-stated", *arguments], env=self.environment, capture_output=True,
                              text=True, timeout=LIMIT, check=False)

    def test_command_line(self):
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
