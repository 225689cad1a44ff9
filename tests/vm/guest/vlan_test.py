"""The kernel's VLAN devices: on a trunk, on a bridge that filters VLANs, and on a bond.

VLAN 5 is on the trunk, which serves untagged clients itself as layer-3 interface 1; 8 is on the bridge, 9 on the bond.
"""

import collections
import unittest

from configuration import configuration
from dhcp_message import Message
from processes import wait_until
from topology import dhcp_range, instance, l3
from vlan_trunk import Cleanup, Trunk
from wire import CLIENT_PORT, SERVER_PORT, Wire, datagram, frame


LAST = "l3-5"  # whose request ends a wait for silence


class Vlan(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cleanup = Cleanup(cls.addClassCleanup)
        cls.top = Trunk(cleanup)
        cls.top.ip("addr", "add", "192.168.1.1/24", "brd", "+", "dev", "trunk")
        cls.add_bridge()
        cls.add_bond()
        for number, parent in ((5, "trunk"), (8, "bridge"), (9, "bond")):
            cls.top.add_vlan(number, f"192.168.{number}.1/24", parent)
        for number, parent in ((5, "trunk"), (8, "port"), (9, "bond")):
            cls.top.add_client(number, parent)
        cls.top.add_server("server", "uplink", [dhcp_range(number) for number in (1, 5, 8, 9)])
        cls.top.stack.up(config=configuration(
            instance(interfaces=[f"l3-{number}" for number in (1, 5, 8, 9)]), l3=[l3(1), l3(5), l3(8), l3(9)]))
        cls.server = Wire(cleanup, cls.top.network, "server", "eth0", SERVER_PORT)

    @classmethod
    def add_bridge(cls):
        """Its only port passes VLAN 8, and so does the bridge itself."""
        cls.top.network.join(("switch", "port", None), ("relay", "port", None))
        cls.top.ip("link", "add", "bridge", "type", "bridge", "vlan_filtering", "1")
        cls.top.ip("link", "set", "port", "master", "bridge")
        cls.top.ip("link", "set", "bridge", "up")
        cls.top.network.run("relay", "bridge", "vlan", "add", "vid", "8", "dev", "port")
        cls.top.network.run("relay", "bridge", "vlan", "add", "vid", "8", "dev", "bridge", "self")

    @classmethod
    def add_bond(cls):
        """Two links at both ends, one of them in use."""
        for space in ("switch", "relay"):
            cls.top.ip("link", "add", "bond", "type", "bond", "mode", "active-backup", "miimon", "100", space=space)
        for link in ("one", "two"):
            cls.top.network.join(("switch", link, None), ("relay", link, None))
            for space in ("switch", "relay"):
                cls.top.ip("link", "set", link, "down", space=space)
                cls.top.ip("link", "set", link, "master", "bond", space=space)
        for space in ("switch", "relay"):
            cls.top.ip("link", "set", "bond", "up", space=space)
            cls.top.network.wait_up(space, "bond")

    def send(self, xid, tag=None, device="trunk"):
        """A request from behind the switch; tag 0 is a priority alone."""
        request = datagram(Message(hops=0, xid=xid).bytes())
        Wire(self, self.top.network, "switch", device, CLIENT_PORT).send(frame(request, tag=tag))

    def received(self):
        """The requests of each interface so far."""
        shown = self.top.stack.show("counters")["interfaces"]
        return collections.Counter({entry["name"]: entry["requests"]["received"] for entry in shown})

    def assert_relayed_once(self, xid, interface, tag=None, device="trunk"):
        """And by that interface alone."""
        before = self.received()
        self.send(xid, tag, device)
        self.server.wait_for(xid)
        self.assert_heard(xid, 1)
        self.assertEqual(self.received() - before, collections.Counter([interface, LAST]))

    def assert_not_relayed(self, xid, tag, device="trunk"):
        self.send(xid, tag, device)
        self.assert_heard(xid, 0)

    def assert_heard(self, xid, count):
        """What is sent last, in VLAN 5, is relayed last."""
        self.send(xid + 1, tag=5)
        self.server.wait_for(xid + 1)
        self.assertEqual(self.server.count(xid), count)

    def test_tagged_frame_is_relayed_once_by_the_vlan_device(self):
        self.assert_relayed_once(0xAA000010, "l3-5", tag=5)

    def test_untagged_frame_is_relayed_once_by_the_trunk(self):
        self.assert_relayed_once(0xAA000020, "l3-1")

    def test_frame_with_a_priority_alone_is_relayed_once_by_the_trunk(self):
        self.assert_relayed_once(0xAA000030, "l3-1", tag=0)

    def test_frame_of_a_vlan_without_a_device_is_not_relayed(self):
        self.assert_not_relayed(0xAA000040, tag=7)

    def test_frame_is_relayed_once_from_a_bridge(self):
        self.assert_relayed_once(0xAA000050, "l3-8", tag=8, device="port")

    def test_frame_of_a_vlan_that_the_bridge_filters_is_not_relayed(self):
        self.assert_not_relayed(0xAA000060, tag=5, device="port")

    def test_frame_is_relayed_once_from_a_bond(self):
        self.assert_relayed_once(0xAA000070, "l3-9", tag=9, device="bond")

    def test_clients_lease_in_every_vlan(self):
        for number in (5, 8, 9):
            with self.subTest(vlan=number):
                self.assertRegex(self.top.lease(number) or "none", rf"^192\.168\.{number}\.")

    def test_device_that_is_renamed_and_has_another_mtu_still_serves(self):
        for mtu in (576, 9000):
            for device in ("trunk", "trunk.5"):
                self.top.ip("link", "set", device, "mtu", mtu)
        self.top.ip("link", "set", "trunk.5", "down")
        self.top.ip("link", "set", "trunk.5", "name", "renamed")
        self.top.ip("link", "set", "renamed", "up")
        wait_until(lambda: self.top.stack.interface("l3-5")["link"] == "renamed", "the new name is seen")
        self.assertIsNotNone(self.top.lease(5))
