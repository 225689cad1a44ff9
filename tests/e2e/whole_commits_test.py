"""A commit is one change for packets, however long it takes to come in."""

import json
import os
import pathlib
import signal
import subprocess
import unittest

from configuration import configuration
from paths import HELPERS
from processes import wait_until
from states import REMOVE
from topology import Topology, instance, l3

OLD, NEW = "10.0.0.1", "10.0.0.2"
MANY = 3000  # instances between those of the two interfaces
RATE = 1000  # requests a second of each client
WHILE = 400  # requests that show what is in use


def state_of(pid):
    """As ps prints it: T for a process that is stopped."""
    return pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()[0]


class WholeCommits(unittest.TestCase):
    def setUp(self):
        """Two relay interfaces, whose instances are the first and the last of many, and a server with two addresses."""
        self.top = Topology(self)
        self.top.add_clients(6)
        self.top.network.run("server", "ip", "addr", "add", f"{NEW}/24", "dev", "eth0")
        self.records = self.top.network.directory / "requests"
        server = self.top.network.start("server", HELPERS / "record-requests", self.records)
        self.top.network.wait_listening("server", 67, server)
        self.names = ["a", *(f"b{number}" for number in range(MANY)), "c"]
        interfaces = {"a": ["l3-5"], "c": ["l3-6"]}
        self.top.up(*(instance(name, servers=[OLD], interfaces=interfaces.get(name, [])) for name in self.names),
                    interfaces=[l3(5), l3(6)])
        for name in ("l3-5", "l3-6"):
            self.top.stack.wait_state(name, "up")
        self.loads = [self.top.network.start_load(client, "eth0", RATE) for client in ("client5", "client6")]
        self.wait_for_requests(OLD)

    def move(self, old, new):
        """Begins a commit that moves every instance to another server."""
        servers = {"ipv4": [{"address": old, "@": REMOVE}, {"address": new}]}
        document = configuration(*({"name": name, "server": servers} for name in self.names))
        file = self.top.network.directory / "move.json"
        file.write_text(json.dumps(document))
        with open(file, encoding="utf-8") as edit:
            return subprocess.Popen(["sysrepocfg", "--edit", "-d", "running", "-f", "json"], stdin=edit,
                                    env=self.top.stack.environment())

    def recorded(self):
        """(server, giaddr, xid) in the order of arrival."""
        text = self.records.read_text()
        return [tuple(line.split()) for line in text[:text.rfind("\n") + 1].splitlines()]

    def wait_for_requests(self, server):
        """Until that server alone has got the requests of both clients for a while; returns what was recorded."""
        start = len(self.recorded())

        def seen():
            found = self.recorded()
            return found if len(found) - start > WHILE and {entry[:2] for entry in found[-WHILE:]} == {
                (server, "192.168.5.1"), (server, "192.168.6.1")} else None
        return wait_until(seen, f"requests go to {server}", pause=0.05)

    def assert_only(self, server, entries):
        self.assertEqual({entry[0] for entry in entries}, {server})

    def assert_moved_at_once(self, entries, old, new):
        """The two interfaces change over between the same two packets."""
        servers = [entry[0] for entry in entries]
        first = servers.index(new)
        self.assertEqual((set(servers[:first]), set(servers[first:])), ({old}, {new}))

    def finish(self):
        """Ends the load. Every request was relayed once: to one server, and none was dropped."""
        for load in self.loads:
            self.top.network.stop_load(load)
        for name in ("l3-5", "l3-6"):
            requests = self.top.counters(name)["requests"]
            self.assertEqual(requests["relayed"], requests["received"], requests)
        found = [entry[1:] for entry in self.recorded()]
        self.assertEqual(len(found), len(set(found)))

    def test_that_move_every_instance_to_another_server_move_all_between_two_packets(self):
        for old, new in ((OLD, NEW), (NEW, OLD)):
            start = len(self.recorded())
            self.assertEqual(self.move(old, new).wait(), 0)
            self.top.stack.wait_in_sync()
            self.assert_moved_at_once(self.wait_for_requests(new)[start:], old, new)
        self.finish()

    def put_between(self):
        """Connects the daemon through a program that stops in the middle of a commit; the way round it."""
        sockets = self.top.stack.directory / "run"
        direct = (sockets / "relay.sock").rename(sockets / "manager.sock")
        between = self.top.network.start("relay", HELPERS / "stop-in-commits", sockets / "relay.sock", direct)
        wait_until((sockets / "relay.sock").exists, "the program between listens")
        self.top.stack.kill("daemon")
        self.top.stack.start("daemon")
        self.top.stack.wait_in_sync()
        return between, lambda: direct.rename(sockets / "relay.sock")

    def move_a_part(self, between, old, new):
        """Returns when the manager has a part of the commit."""
        before = self.top.stack.status()["calls"]
        commit = self.move(old, new)
        wait_until(lambda: state_of(between.pid) == "T", "the commit stops")
        self.assertEqual(commit.wait(), 0)
        wait_until(lambda: self.top.stack.status()["calls"] > before, "a part of the commit has come in")
        self.assertLess(self.top.stack.status()["calls"], before + 2 * len(self.names))

    def test_of_which_a_part_has_come_in_change_nothing(self):
        between, go_round = self.put_between()
        start = len(self.recorded())
        self.move_a_part(between, OLD, NEW)
        self.assert_only(OLD, self.wait_for_requests(OLD)[start:])
        self.assertFalse(self.top.stack.status()["in_sync"])
        self.assertEqual({tuple(entry["servers"]) for entry in self.top.stack.table()}, {(OLD,)})
        os.kill(between.pid, signal.SIGCONT)
        self.assert_moved_at_once(self.wait_for_requests(NEW)[start:], OLD, NEW)

        start = len(self.recorded())
        self.move_a_part(between, NEW, OLD)
        between.kill()
        wait_until(lambda: not self.top.stack.status()["connected"], "the connection has ended")
        self.assert_only(NEW, self.wait_for_requests(NEW)[start:])
        go_round()
        self.assert_moved_at_once(self.wait_for_requests(OLD)[start:], NEW, OLD)
        self.finish()
