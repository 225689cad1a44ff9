"""A relay with kernel VLAN devices on a trunk, and the clients and servers around it.

    client5 vlan5 ┐                    ┌ trunk.5 relay uplink 10.0.0.254 ──── eth0 10.0.0.1 server
    client6 vlan6 ┴ switch trunk ──── trunk ┴ trunk.6
"""

from network import Network
from stack import Stack


class Cleanup:
    """What a network and a stack clean up with that outlive a single test."""

    def __init__(self, add):
        self.addCleanup = add


class Trunk:
    def __init__(self, test):
        self.network = Network(test)
        self.network.join(("switch", "trunk", None), ("relay", "trunk", None))
        self.stack = Stack(test, self.network.prefix("relay"))

    def ip(self, *words, space="relay", **more):
        """An ip command in a namespace."""
        return self.network.run(space, "ip", *words, **more)

    def add_vlan(self, number, address, parent="trunk", vrf=None):
        """The relay's VLAN device of that number on a device of its own, with an address."""
        name = f"{parent}.{number}"
        self.ip("link", "add", "link", parent, "name", name, "type", "vlan", "id", number)
        if vrf:
            self.ip("link", "set", name, "master", vrf)
        self.ip("addr", "add", address, "brd", "+", "dev", name)
        self.ip("link", "set", name, "up")
        return name

    def add_client(self, number, parent="trunk", space="switch"):
        """A client in that VLAN, in a namespace of its own."""
        client = f"client{number}"
        self.ip("link", "add", "link", parent, "name", f"vlan{number}", "netns", self.network.namespace(client),
                "type", "vlan", "id", number, space=space)
        self.ip("link", "set", f"vlan{number}", "up", space=client)

    def add_server(self, space, uplink, ranges, vrf=None, route="192.168.0.0/16"):
        """A server 10.0.0.1 behind a device of the relay."""
        self.network.join((space, "eth0", "10.0.0.1/24"), ("relay", uplink, None))
        if vrf:
            self.ip("link", "set", uplink, "master", vrf)
        self.ip("addr", "add", "10.0.0.254/24", "brd", "+", "dev", uplink)
        self.ip("route", "add", route, "via", "10.0.0.254", space=space)
        self.network.dnsmasq(space, *ranges)

    def lease(self, number):
        """The address that a client gets, or None."""
        lease = self.network.client(f"client{number}", f"vlan{number}")
        return lease and lease[0]
