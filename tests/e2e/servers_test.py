"""The servers of an instance: several at once, another one by commit, one that is unreachable."""

import unittest

from configuration import configuration
from processes import wait_until
from topology import SERVER, Topology, assert_all_answered, dhcp_range, instance, l3


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

    def test_all_get_every_request(self):
        top = Topology(self)
        top.network.run("server", "ip", "addr", "add", "10.0.0.2/24", "dev", "eth0")
        top.network.dnsmasq("server", dhcp_range(5))
        top.up(instance(servers=[SERVER, "10.0.0.2", "10.0.0.77"]))
        self.assertIsNotNone(top.lease())
        sent = {server["address"]: server["sent"] for server in top.stack.show("servers")["servers"]}
        self.assertEqual(set(sent), {SERVER, "10.0.0.2", "10.0.0.77"})
        self.assertEqual(len(set(sent.values())), 1)
        self.assertEqual(sent[SERVER], top.counters()["requests"]["relayed"])

    def test_of_one_instance_change_while_those_of_another_serve(self):
        top = Topology(self)
        top.add_clients(6)
        top.network.run("server", "ip", "addr", "add", "10.0.0.2/24", "dev", "eth0")
        top.network.answer("server")
        top.up(instance(), instance("r2", interfaces=["l3-6"]), interfaces=[l3(5), l3(6)])
        load = top.network.start_load("client6", "eth0", 500)
        top.stack.replace(configuration(instance(servers=["10.0.0.2"]), instance("r2", interfaces=["l3-6"]),
                                        l3=[l3(5), l3(6)]))
        wait_until(lambda: top.stack.table()[0]["servers"] == ["10.0.0.2"], "the other server is in force")
        found = top.load(5, 100, 0.1)
        assert_all_answered(self, found)
        sent = {entry["address"]: entry["sent"] for entry in top.stack.show("servers")["servers"]
                if entry["instance"] == "r1"}
        self.assertEqual(sent, {"10.0.0.2": found["sent"]})
        assert_all_answered(self, top.network.stop_load(load))

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
