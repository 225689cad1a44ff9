"""Relay agent information: what the relay adds, checks and takes out, and its policy for that of other relays."""

import unittest

from topology import Topology, dhcp_range, instance


class RelayAgentInformation(unittest.TestCase):
    def test_is_added_checked_and_taken_out(self):
        top = Topology(self)
        top.network.dnsmasq("server", dhcp_range(5), arguments=("--dhcp-circuitid=set:ours,l3-5:5",
                                                                "--dhcp-option=tag:ours,option:domain-name,ours"))
        top.up(instance(relay_information={"option": True, "check": True}))
        self.assertIsNotNone(top.lease())
        self.assertRegex(top.server_log(), r"tags: .*\bours\b")
        counters = top.counters()
        self.assertEqual(counters["replies"]["relayed"], counters["replies"]["received"])
        self.assertGreaterEqual(counters["replies"]["received"], 2)


class RequestOfAnotherRelay(unittest.TestCase):
    """isc-dhcp-relay stands in front of ours, so that giaddr is not zero."""

    def topology(self, **settings):
        top = Topology(self)
        network = top.network
        network.join(("inner", "near", "192.168.5.2/24"), ("relay", "inner", None))
        # The inner relay is a host of VLAN 5: a bridge connects it with the clients.
        network.run("relay", "ip", "addr", "del", "192.168.5.1/24", "dev", "vlan5")
        network.run("relay", "ip", "link", "add", "br5", "type", "bridge")
        for device in ("vlan5", "inner"):
            network.run("relay", "ip", "link", "set", device, "master", "br5")
        network.run("relay", "ip", "addr", "add", "192.168.5.1/24", "brd", "+", "dev", "br5")
        network.run("relay", "ip", "link", "set", "br5", "up")
        network.join(("far", "eth0", None), ("inner", "away", "192.168.9.1/24"))
        network.run("inner", "ip", "route", "add", "default", "via", "192.168.5.1")
        network.forward("inner")
        network.forward("relay")
        network.run("relay", "ip", "route", "add", "192.168.9.0/24", "via", "192.168.5.2")
        network.wait_up("relay", "br5")
        top.up(instance(relay_information=settings))
        network.isc_relay("inner", "away", "near", "192.168.5.1")
        return top

    def test_goes_on_with_its_giaddr_and_its_information_under_keep(self):
        top = self.topology(option=True, policy="keep")
        top.network.dnsmasq("server", dhcp_range(9), arguments=("--dhcp-circuitid=set:inner,away",))
        lease = top.network.client("far", "eth0")
        self.assertIsNotNone(lease, top.server_log())
        self.assertRegex(lease[0], r"^192\.168\.9\.")
        self.assertRegex(top.server_log(), r"tags: .*\binner\b")
        self.assertGreaterEqual(top.counters()["requests"]["relayed"], 2)

    def test_is_dropped_under_drop(self):
        top = self.topology(option=True, policy="drop")
        top.network.dnsmasq("server", dhcp_range(9))
        self.assertIsNone(top.network.client("far", "eth0", tries=1))
        counters = top.counters()["requests"]
        self.assertEqual(counters["policy-drop"], counters["received"])
        self.assertGreaterEqual(counters["received"], 1)
