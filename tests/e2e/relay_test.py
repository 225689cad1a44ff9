"""Packets through the relay: real clients and real servers, in network namespaces."""

import unittest

from network import Network
from stack import Stack, configuration, relay

SERVER_RANGE = "192.168.5.10,192.168.5.200,255.255.255.0"


def with_relay(test):
    """A client and a server with the relay between them; its client side is VLAN 5, 192.168.5.1."""
    network = Network(test)
    network.join(("client", "eth0", None), ("relay", "vlan5", "192.168.5.1/24"))
    network.join(("relay", "uplink", "10.0.0.254/24"), ("server", "eth0", "10.0.0.1/24"))
    network.run("server", "ip", "route", "add", "192.168.0.0/16", "via", "10.0.0.254")
    stack = Stack(test, network.prefix("relay"))
    return network, stack


def instance(name="r1", servers=("10.0.0.1",), interfaces=("l3-5",), **more):
    return relay(name, server={"ipv4": [{"address": server} for server in servers]},
                 interface=[{"name": interface} for interface in interfaces], **more)


class Lease(unittest.TestCase):
    def test_a_client_gets_its_lease_through_the_relay(self):
        network, stack = with_relay(self)
        network.dnsmasq("server", SERVER_RANGE)
        stack.up(config=configuration(instance(), l3=[("5", 5, "192.168.5.1/24")]))
        lease = network.client("client", "eth0")
        self.assertIsNotNone(lease, network.log("dnsmasq-server.log"))
        self.assertRegex(lease[0], r"^192\.168\.5\.")
        self.assertEqual(lease[2], "10.0.0.1")
