"""The servers of an instance: several at once, another one by commit, one that is unreachable."""

import unittest

from configuration import configuration
from processes import wait_until
from service import served_meanwhile
from topology import SERVER, Topology, assert_all_answered, dhcp_range, instance, l3
from wire import SERVER_PORT, Wire


class Servers(unittest.TestCase):
    def test_each_instance_has_its_own(self):
        top = Topology(self)
        top.add_clients(6)
        top.network.join(("relay", "uplink2", "10.0.1.254/24"), ("server2", "eth0", "10.0.1.1/24"))
        top.network.run("server2", "ip", "route", "add", "192.168.0.0/16", "via", "10.0.1.254")
        for server in ("server", "server2"):
            top.network.dnsmasq(server, dhcp_range(5), dhcp_range(6))
        top.up(instance(), instance("r2", servers=["10.0.1.1"], interfaces=["l3-6"]), interfaces=[l3(5), l3(6)])
        self.assertEqual(top.lease(5)[2], SERVER)
        self.assertEqual(top.lease(6)[2], "10.0.1.1")

    def add_second_server(self, top):
        """Another one in a network of its own; what comes to each of the two."""
        top.network.join(("relay", "uplink2", "10.0.1.254/24"), ("server2", "eth0", "10.0.1.1/24"))
        top.network.run("server2", "ip", "route", "add", "192.168.0.0/16", "via", "10.0.1.254")
        return [Wire(self, top.network, space, "eth0", SERVER_PORT) for space in ("server", "server2")]

    def test_all_get_every_request(self):
        top = Topology(self)
        wires = self.add_second_server(top)
        top.network.answer("server")
        top.up(instance(servers=[SERVER, "10.0.1.1"]))
        found = top.load(5, 1000, 0.2)
        assert_all_answered(self, found)
        first, second = ({message.xid: message.message for message in wire.heard()} for wire in wires)
        self.assertEqual([len(wire.heard()) for wire in wires], [found["sent"]] * 2)
        self.assertEqual(set(first), set(range(found["sent"])))
        self.assertEqual(second, first)
        self.assert_sent(top, {SERVER: found["sent"], "10.0.1.1": found["sent"]})

    def assert_sent(self, top, expected):
        sent = {server["address"]: server["sent"] for server in top.stack.show("servers")["servers"]
                if server["instance"] == "r1"}
        self.assertEqual(sent, expected)

    def test_that_are_dead_behind_a_live_link_hold_up_no_other(self):
        """One has no process, so that its host refuses each copy, and one has not even a host."""
        top = Topology(self)
        wires = self.add_second_server(top)
        top.network.answer("server")
        dead, absent = "10.0.1.1", "10.0.0.77"
        top.up(instance(servers=[dead, absent, SERVER]))
        with served_meanwhile(self, top, 5) as found:
            pass
        self.assertEqual([len(wire.heard()) for wire in wires], [found["sent"]] * 2)
        counters = top.counters()["requests"]
        self.assertEqual((counters["relayed"], counters["send-failed"]), (found["sent"], 0))
        for server in top.stack.show("servers")["servers"]:
            self.assertEqual(server["sent"] + server["failed"], found["sent"], server)
            self.assertEqual(server["replies"], found["sent"] if server["address"] == SERVER else 0, server)

    def test_of_one_instance_change_while_those_of_another_serve(self):
        top = Topology(self)
        top.add_clients(6)
        wires = self.add_second_server(top)
        for server in ("server", "server2"):
            top.network.answer(server)
        top.up(instance(), instance("r2", interfaces=["l3-6"]), interfaces=[l3(5), l3(6)])
        with served_meanwhile(self, top, 6) as other:
            before = top.load(5, 100, 0.1)
            assert_all_answered(self, before)
            top.stack.replace(configuration(instance(servers=["10.0.1.1"]), instance("r2", interfaces=["l3-6"]),
                                            l3=[l3(5), l3(6)]))
            wait_until(lambda: top.stack.table()[0]["servers"] == ["10.0.1.1"], "the other server is in force")
            found = top.load(5, 100, 0.1)
        assert_all_answered(self, found)
        self.assertEqual([len(wire.heard()) for wire in wires], [before["sent"] + other["sent"], found["sent"]])
        self.assert_sent(top, {"10.0.1.1": found["sent"]})

    def test_unreachable_ones_are_counted_and_serve_again_when_they_come_back(self):
        top = Topology(self)
        top.network.dnsmasq("server", dhcp_range(5))
        top.up()
        top.network.run("relay", "ip", "link", "set", "uplink", "down")
        self.assertIsNone(top.lease(tries=1))
        counters = top.counters()["requests"]
        self.assertEqual(counters["send-failed"], counters["received"])
        top.network.run("relay", "ip", "link", "set", "uplink", "up")
        top.network.wait_up("relay", "uplink")
        self.assertIsNotNone(top.lease(), top.server_log())
