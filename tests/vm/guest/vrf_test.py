"""The kernel's VRF devices, with the same addresses in two of them: clients of VLAN 5 in `red`, of VLAN 6 in `blue`."""

import unittest

from attack import TIMES, Attack
from configuration import configuration
from processes import wait_until
from topology import instance
from vlan_trunk import Cleanup, Trunk

RED, BLUE, OTHER = 7, 8, 17  # routing tables
ADDRESS = "192.168.5.1/24"
CLIENT = "192.168.5.66"
POOLS = {RED: "192.168.5.10,192.168.5.99,255.255.255.0", BLUE: "192.168.5.100,192.168.5.199,255.255.255.0"}


class Vrf(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.top = Trunk(Cleanup(cls.addClassCleanup))
        for name, table, vlan in (("red", RED, 5), ("blue", BLUE, 6)):
            cls.add_vrf(name, table)
            cls.top.add_vlan(vlan, ADDRESS, vrf=f"vrf-{name}")
            cls.top.add_client(vlan)
            cls.top.add_server(f"server-{name}", f"up-{name}", [POOLS[table]], vrf=f"vrf-{name}")
        cls.top.stack.up(config=configuration(
            instance("r-red", interfaces=["l3-5"], vrf="red"), instance("r-blue", interfaces=["l3-6"], vrf="blue"),
            l3=[("5", 5, ADDRESS), ("6", 6, ADDRESS)], vrfs={"red": RED, "blue": BLUE, "other": OTHER}))

    @classmethod
    def add_vrf(cls, name, table):
        cls.top.ip("link", "add", f"vrf-{name}", "type", "vrf", "table", table)
        cls.top.ip("link", "set", f"vrf-{name}", "up")

    def enslave(self):
        for device in ("trunk.5", "up-red"):
            self.top.ip("link", "set", device, "master", "vrf-red")

    def assert_leases(self, *numbers):
        """Each from the server of its own VRF."""
        for number in numbers:
            address = self.top.lease(number)
            self.assertIsNotNone(address, f"client {number}")
            self.assertEqual(int(address.split(".")[3]) < 100, number == 5, f"client {number} has {address}")

    def wait_served(self):
        """Service comes back by itself."""
        self.top.stack.wait_state("l3-5", "up")
        wait_until(lambda: self.top.lease(5), "clients of the VRF red have leases")

    def load(self):
        """Clients of VLAN 5 that ask all the time until the test stops them."""
        process = self.top.network.start_load("client5", "vlan5", 20)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def test_devices_are_found_by_their_tables(self):
        shown = {entry["name"]: entry["vrf_device"] for entry in self.top.stack.show("instances")["instances"]}
        self.assertEqual(shown, {"r-red": "vrf-red", "r-blue": "vrf-blue"})
        self.assertEqual(self.top.stack.interface("l3-5")["link"], "trunk.5")
        self.assertEqual(self.top.stack.interface("l3-6")["link"], "trunk.6")

    def test_clients_lease_from_the_servers_of_their_own(self):
        self.assert_leases(5, 6)

    def test_reply_that_a_client_sends_is_refused(self):
        """In a VRF, too, the kernel tells on which interface it came."""
        self.top.ip("addr", "replace", f"{CLIENT}/24", "dev", "vlan5", space="client5")
        refused = self.refused()
        Attack.offer(self.top, CLIENT, "192.168.5.1")
        wait_until(lambda: self.refused() == refused + TIMES, "the replies are refused")

    def refused(self):
        """Replies that came from clients of VLAN 5."""
        shown = self.top.stack.show("counters")["interfaces"]
        return next(entry["replies"]["client-side"] for entry in shown if entry["name"] == "l3-5")

    def test_that_is_removed_and_made_again_resumes(self):
        self.load()
        self.top.ip("link", "del", "vrf-red")
        self.top.stack.wait_state("l3-5", "no-vrf")
        self.assert_leases(6)
        self.add_vrf("red", RED)
        self.enslave()
        self.wait_served()
        self.assert_leases(5, 6)

    def test_that_gets_another_table_serves_the_instance_of_that_table(self):
        self.load()
        self.top.ip("link", "del", "vrf-red")
        self.add_vrf("red", OTHER)
        self.enslave()
        self.top.stack.wait_state("l3-5", "no-vrf")
        self.top.stack.edit(configuration({"name": "r-red", "vrf": "other"}))
        self.wait_served()
        self.top.stack.edit(configuration({"name": "r-red", "vrf": "red"}))
        self.top.stack.wait_state("l3-5", "no-vrf")
        self.top.ip("link", "del", "vrf-red")
        self.add_vrf("red", RED)
        self.enslave()
        self.wait_served()
        self.assert_leases(5, 6)

    def test_whose_interface_leaves_and_comes_back_resumes(self):
        self.load()
        self.top.ip("link", "set", "trunk.5", "nomaster")
        self.top.stack.wait_state("l3-5", "missing")
        self.assert_leases(6)
        self.top.ip("link", "set", "trunk.5", "master", "vrf-red")
        self.wait_served()
        self.assert_leases(5, 6)
