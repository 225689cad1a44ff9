"""Commits that are refused, that end the daemon, or after which it is killed."""

import os
import signal
import unittest

from configuration import configuration, interface_list, relay, server_list
from paths import HELPERS
from processes import LIMIT, is_running, wait_until
from stack import Stack

DUMP_OF_R1 = ["SetCheck r1 false", "SetTrusted r1 false", "SetOption r1 false", "SetPolicy r1 keep"]


def instance_names(count):
    return [f"i{number:04}" for number in range(count)]


def many(names):
    """A document with these instances, each with a server and every setting."""
    return configuration(*(relay(name, server=server_list("10.0.0.1"), relay_information={
        "check": True, "trusted": True, "option": True, "policy": "drop"}) for name in names))


class RefusedCommits(unittest.TestCase):
    def test_a_hundred_leave_the_daemon_running_and_call_nothing(self):
        stack = Stack(self)
        stack.up(config=configuration(relay("r1")))
        pid = stack.pid("daemon")
        wait_until(lambda: stack.journal() == DUMP_OF_R1, "the journal is written")
        refused = [configuration(relay("r1", vrf="nowhere")),
                   configuration(relay("a%nb")),
                   configuration(relay("r1", server=server_list("0.0.0.0"))),
                   configuration(relay("r1", interface=interface_list("5")))]
        for index in range(100):
            result = stack.edit(refused[index % len(refused)], check=False)
            self.assertNotEqual(result.returncode, 0, refused[index % len(refused)])
        stack.edit(configuration(relay("r1", relay_information={"check": True})))
        wait_until(lambda: stack.journal()[-1] == "SetCheck r1 true", "the next commit arrives")
        self.assertEqual(stack.journal(), [*DUMP_OF_R1, "SetCheck r1 true"])
        self.assertTrue(is_running(pid))
        self.assertEqual(stack.faults(), [])


class TheEndOfACommit(unittest.TestCase):
    """When a commit returns, its calls are in the socket: they arrive even if the daemon dies. A large one is delivered
    after it has returned, and the manager is not in sync until then."""

    def test_leaves_its_calls_with_a_manager_that_does_not_read(self):
        stack = Stack(self)
        stack.up(config=configuration(relay("r1")))
        os.kill(stack.pid("manager"), signal.SIGSTOP)
        self.addCleanup(os.kill, stack.pid("manager"), signal.SIGCONT)
        stack.edit(configuration(relay("r1", server=server_list("10.0.0.1", "10.0.0.2"))))
        self.assertEqual(self.calls_after_death(stack, "AddServer"), ["AddServer r1 10.0.0.1", "AddServer r1 10.0.0.2"])

    def test_leaves_the_calls_of_some_hundred_instances_with_a_manager_that_reads(self):
        stack = Stack(self)
        stack.up(config=configuration(relay("r1")))
        names = instance_names(150)
        stack.edit(many(names))
        self.assertEqual(self.calls_after_death(stack, "AddServer"), [f"AddServer {name} 10.0.0.1" for name in names])

    def test_comes_before_the_calls_of_a_large_one_which_are_complete_once_it_is_in_sync(self):
        stack = Stack(self)
        stack.up(config=configuration(relay("r1")))
        names = instance_names(1000)
        stack.edit(many(names))
        stack.wait_in_sync()
        self.assertEqual(self.calls_after_death(stack, "AddServer"), [f"AddServer {name} 10.0.0.1" for name in names])

    @staticmethod
    def calls_after_death(stack, operation):
        """Kills the daemon at once; the calls of that operation that the manager got."""
        stack.kill("daemon")
        os.kill(stack.pid("manager"), signal.SIGCONT)
        wait_until(lambda: not stack.status()["connected"], "the manager has read all and noticed the daemon's death")
        return [call for call in stack.journal() if call.startswith(operation)]


class ABrokenCommit(unittest.TestCase):
    def test_ends_the_daemon_with_its_fault_and_the_restarted_one_is_consistent(self):
        stack = Stack(self)
        stack.up(config=configuration(relay("r1")))
        stack.kill("daemon")
        # A model that lets through what the handler does not know.
        stack.tool("sysrepoctl", "-i", HELPERS / "loose-policy.yang")
        process = stack.start("daemon")
        stack.wait_in_sync()
        stack.edit(configuration(relay("r1", relay_information={"policy": "append"})))
        self.assertEqual(process.wait(timeout=LIMIT), 1)
        fault = stack.faults()[-1]
        self.assertEqual((fault["function"], fault["line"]), ("main", 32))
        self.assertIn("map::at", fault["text"])

        stack.edit(configuration(relay("r1", relay_information={"policy": "drop"})))
        process = stack.start("daemon")
        wait_until(lambda: [entry["policy"] for entry in stack.table()] == ["drop"],
                   "the new dump is in")
        self.assertTrue(is_running(process.pid))
