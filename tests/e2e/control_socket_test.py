"""The control socket: who may open it, and that nobody who may holds up packets or keeps root out."""

import os
import subprocess
import unittest

from paths import BIN, HELPERS
from processes import LIMIT, run, wait_until
from programs import Programs
from service import served_meanwhile
from topology import Topology

OPERATORS = "users"  # a group that every Debian has
CONNECTIONS = 32


def as_user(user, *groups):
    """A command prefix that makes a program run as that user, in these groups and no other."""
    return ["setpriv", "--reuid", user, "--regid", "nogroup",
            *(["--groups", ",".join(groups)] if groups else ["--clear-groups"])]


class Access(Programs, unittest.TestCase):
    """Programs of users who are operators, and of users who are not."""

    def setUp(self):
        super().setUp()
        self.directory.chmod(0o755)

    def ask_as(self, user, *groups):
        return run(*as_user(user, *groups), BIN / "dhcp-relayctl", "status", check=False, env=self.environment)

    def hammer(self, user, count, kind):
        process = subprocess.Popen([*as_user(user, OPERATORS), HELPERS / "hammer-control",
                                    self.directory / "run" / "ctl.sock", str(count), kind],
                                   stdout=subprocess.PIPE, text=True)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def test_is_for_operators_whatever_the_umask(self):
        before = os.umask(0o077)
        self.addCleanup(os.umask, before)
        self.start_and_wait("--operators", OPERATORS, "--user", "dhcp-manager")
        self.assertIn("not connected", self.ask_as("nobody", OPERATORS).stdout)
        refused = self.ask_as("nobody")
        self.assertEqual(refused.returncode, 1)
        self.assertIn(f"root and members of the group {OPERATORS}", refused.stderr)

    def test_is_for_root_without_a_group(self):
        process = self.start("--operators", "nogroup-here")
        self.assertIn("there is no group nogroup-here", process.communicate(timeout=LIMIT)[1])
        self.start_and_wait("--user", "dhcp-manager")
        refused = self.ask_as("nobody", OPERATORS)
        self.assertEqual(refused.returncode, 1)
        self.assertIn("you may not open", refused.stderr)
        self.assertIn("not connected", self.ask_as("dhcp-manager").stdout)

    def test_has_room_for_root_when_others_have_taken_all(self):
        self.start_and_wait("--operators", OPERATORS)
        for user in ("nobody", "games", "man", "mail"):
            self.hammer(user, CONNECTIONS, "idle")
        wait_until(lambda: self.ask_as("backup", OPERATORS).returncode == 1
                   and "closed the connection" in self.ask_as("backup", OPERATORS).stderr,
                   "there is no seat for another operator")
        self.assertIn("not connected", self.relayctl("status").stdout)

    def test_refuses_garbage_with_few_lines_of_log(self):
        process = self.start_and_wait("--operators", OPERATORS)
        hammer = self.hammer("nobody", CONNECTIONS, "garbage")
        self.assertEqual(hammer.stdout.readline(), "closed 1000 times\n")
        self.assertIn("not connected", self.relayctl("status").stdout)
        hammer.terminate()
        process.terminate()
        lines = [line for line in process.communicate(timeout=LIMIT)[1].splitlines() if "refused" in line]
        self.assertGreater(len(lines), 0)
        self.assertLess(len(lines), 30)


class Hammered(unittest.TestCase):
    """Whoever may not ask, and operators who ask too much, ask for nothing or send garbage, all at once."""

    def setUp(self):
        self.top = Topology(self, manager_options=f"--operators {OPERATORS}")
        self.top.network.answer("server")
        self.top.up()
        self.top.stack.directory.chmod(0o755)

    def hammer(self, user, kind):
        return self.top.network.start("relay", *as_user(user, OPERATORS), HELPERS / "hammer-control",
                                      self.top.stack.directory / "run" / "ctl.sock", CONNECTIONS, kind,
                                      log=f"hammer-{user}.log")

    def test_loses_no_packet_and_answers_root(self):
        top = self.top
        with served_meanwhile(self, top, 5):
            hammers = [self.hammer(user, kind)
                       for user, kind in (("nobody", "ask"), ("games", "garbage"), ("man", "idle"), ("mail", "idle"))]
            wait_until(lambda: "received 1000" in top.network.log("hammer-nobody.log")
                       and "closed 1000" in top.network.log("hammer-games.log"), "the hammers hit")
            for _ in range(10):
                self.assertEqual(top.stack.show("interfaces")["interfaces"][0]["state"], "up")
            refused = top.stack.tool("setpriv", "--reuid", "nobody", "--regid", "nogroup", "--clear-groups",
                                     "dhcp-relayctl", "clear", "counters", check=False)
            self.assertEqual(refused.returncode, 1)
            for process in hammers:
                top.network.stop(process)
        lines = [line for line in (top.stack.directory / "manager.log").read_text().splitlines() if "refused" in line]
        self.assertGreater(len(lines), 0)
        self.assertLess(len(lines), 30)
