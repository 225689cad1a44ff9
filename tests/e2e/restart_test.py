"""Processes that are killed and started again: the table follows the configuration, and service comes back."""

import itertools
import os
import signal
import unittest
from collections import Counter

from configuration import configuration, interface_list, relay, server_list
from dhcp_message import Message
from processes import is_running, wait_until
from service import served_meanwhile
from stack import Stack
from topology import Topology
from wire import CLIENT_PORT, SERVER_PORT, Wire, datagram, frame

FIRST = 0x60000000  # transaction of the clients that are not those of a load
SERVICE_LIMIT = 1  # seconds without service after a start of the manager
EARLY = 50  # requests before the dump


class Restart(unittest.TestCase):
    def test_of_the_daemon_under_load_loses_no_packet(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        with served_meanwhile(self, top, 5, 5000):
            top.stack.kill("daemon")
            top.stack.start("daemon")
            top.stack.wait_in_sync()

    def asking(self, top):
        """A client of VLAN 5, and a function that makes it ask once more."""
        client = Wire(self, top.network, "client5", "eth0", CLIENT_PORT)
        numbers = itertools.count(FIRST)

        def ask():
            xid = next(numbers)
            client.send(frame(datagram(Message(xid=xid).bytes())))
            return xid
        return client, ask

    def test_of_the_manager_brings_service_back_within_a_second(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        client, ask = self.asking(top)
        top.stack.kill("manager")
        self.assertEqual(top.load(5, 100, 0.1)["answered"], 0)
        top.stack.start("manager")
        wait_until(lambda: ask() and client.heard(), "clients are served", limit=SERVICE_LIMIT)
        client.wait_for(ask())  # what was asked before is answered, too
        with served_meanwhile(self, top, 5):
            pass

    def test_of_the_manager_ten_times_under_load_leaves_nothing_behind(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        client, ask = self.asking(top)
        server = Wire(self, top.network, "server", "eth0", SERVER_PORT)
        load = top.network.start_load("client5", "eth0", 100)
        for signal_number in (signal.SIGKILL, signal.SIGTERM) * 5:
            self.restart_manager(top.stack, signal_number)
            ask()
            served = len(client.heard())
            wait_until(lambda: len(client.heard()) > served, "clients are served")
        top.network.stop_load(load)
        client.wait_for(ask())
        self.assert_each_once(server)
        self.assert_each_once(client)
        # What was sent last has been taken, and nothing is left to be taken.
        with served_meanwhile(self, top, 5):
            pass
        self.assertEqual(self.queues(top), [0, 0])

    @staticmethod
    def restart_manager(stack, signal_number):
        pid = stack.pid("manager")
        os.kill(pid, signal_number)
        wait_until(lambda: not is_running(pid), "the manager is gone")
        stack.start("manager")

    def assert_each_once(self, wire):
        self.assertEqual({xid: count for xid, count in Counter(message.xid for message in wire.heard()).items()
                          if count != 1}, {})

    @staticmethod
    def queues(top):
        """Bytes that wait in the manager's packet socket and in its UDP socket."""
        def waiting(*arguments):
            lines = [line for line in top.network.run("relay", "ss", "-Hnp", *arguments).stdout.splitlines()
                     if "dhcp-manager" in line]
            return sum(int(line.split()[column]) for line in lines for column in (1, 2)), len(lines)
        found = [waiting("--packet"), waiting("-lu", "sport = :67")]
        if [sockets for _, sockets in found] != [1, 1]:
            raise AssertionError(f"other sockets than expected: {found}")
        return [size for size, _ in found]

    def test_of_the_manager_relays_nothing_until_the_dump_is_in(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        client, ask = self.asking(top)
        server = Wire(self, top.network, "server", "eth0", SERVER_PORT)
        top.stack.kill("daemon")
        top.stack.kill("manager")
        top.stack.start("manager")
        wait_until(lambda: top.stack.status().get("connected") is False, "the manager answers")
        for _ in range(EARLY):
            ask()
        self.assertEqual(top.stack.show("counters")["received"], 0)
        top.stack.start("daemon")
        top.stack.wait_in_sync()
        with served_meanwhile(self, top, 5) as found:
            pass
        early = {message.xid for wire in (server, client) for message in wire.heard() if message.xid >= FIRST}
        self.assertEqual(early, set())
        self.assertEqual(top.counters()["requests"]["received"], found["sent"])


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
