"""Processes that are killed and started again: the table follows the configuration, and service comes back."""

import os
import unittest

from configuration import configuration, interface_list, relay, server_list
from processes import wait_until
from stack import Stack
from topology import Topology, assert_all_answered


class Restart(unittest.TestCase):
    def test_of_the_daemon_under_load_loses_no_packet(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        load = top.network.start_load("client5", "eth0", 5000)
        top.stack.kill("daemon")
        top.stack.start("daemon")
        top.stack.wait_in_sync()
        assert_all_answered(self, top.network.stop_load(load))

    def test_of_the_manager_brings_service_back(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        top.stack.kill("manager")
        self.assertEqual(top.load(5, 100, 0.1)["answered"], 0)
        top.stack.start("manager")
        top.stack.wait_in_sync()
        top.stack.wait_state("l3-5", "up")
        assert_all_answered(self, top.load(5, 1000, 0.5))


class AfterAKill(unittest.TestCase):
    def test_of_everything_the_next_up_cleans_up_and_works(self):
        stack = Stack(self)
        stack.up(config=configuration(relay("r1")))
        stack.kill("daemon")
        stack.kill("manager")
        stale = {name: os.stat(f"/dev/shm/{name}").st_ino for name in stack.shared_memory()}
        self.assertNotEqual(stale, {})
        stack.up(config=configuration(relay("r2")))
        kept = [name for name, inode in stale.items()
                if os.path.exists(f"/dev/shm/{name}") and os.stat(f"/dev/shm/{name}").st_ino == inode]
        self.assertEqual(kept, [])
        self.assertEqual(stack.instance_names(), ["r2"])

    def check_table_follows(self, kill_and_restart):
        stack = Stack(self)
        before = configuration(
            relay("r1", server=server_list("10.0.0.1", "10.0.0.2"), interface=interface_list("l3-5", "l3-6"),
                  if_option=[{"name": "l3-5"}]),
            relay("r2"), l3=[("5", 5, "192.168.5.1/24"), ("6", 6, "192.168.6.1/24")])
        after = configuration(
            relay("r1", server=server_list("10.0.0.2"), interface=interface_list("l3-6")),
            relay("r3"), l3=[("6", 6, "192.168.6.1/24")])
        stack.up(config=before)
        self.assertEqual(stack.instance_names(), ["r1", "r2"])
        kill_and_restart(stack, lambda: stack.replace(after))
        stack.wait_in_sync()
        wait_until(lambda: self.names(stack) == [("r1", ["10.0.0.2"], ["l3-6"], []), ("r3", [], [], [])],
                   "the table follows")

    @staticmethod
    def names(stack):
        """Instances with their servers, relay interfaces and overrides."""
        return [(instance["name"], instance["servers"],
                 *([entry["name"] for entry in instance[list_]] for list_ in ("interfaces", "overrides")))
                for instance in stack.table()]

    def test_of_the_manager_the_table_follows_what_changed_meanwhile(self):
        def kill_and_restart(stack, change):
            stack.kill("manager")
            change()
            stack.start("manager")
        self.check_table_follows(kill_and_restart)

    def test_of_the_daemon_the_table_follows_what_changed_meanwhile(self):
        def kill_and_restart(stack, change):
            stack.kill("daemon")
            change()
            stack.start("daemon")
            wait_until(lambda: stack.instance_names() == ["r1", "r3"], "the new dump is in")
        self.check_table_follows(kill_and_restart)

    def test_of_both_with_the_manager_first_to_come_back(self):
        def kill_and_restart(stack, change):
            stack.kill("daemon")
            stack.kill("manager")
            change()
            stack.start("manager")
            stack.start("daemon")
        self.check_table_follows(kill_and_restart)

    def test_of_both_with_the_daemon_first_to_come_back(self):
        def kill_and_restart(stack, change):
            stack.kill("manager")
            stack.kill("daemon")
            change()
            stack.start("daemon")
            stack.start("manager")
        self.check_table_follows(kill_and_restart)

    def test_of_the_daemon_the_table_stays_until_the_next_dump_is_in(self):
        stack = Stack(self)
        stack.up(config=configuration(relay("r1")))
        stack.kill("daemon")
        self.assertEqual(stack.instance_names(), ["r1"])
        stack.start("daemon")
        stack.wait_in_sync()
        self.assertEqual(stack.instance_names(), ["r1"])
