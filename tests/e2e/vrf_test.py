"""VRFs: each has its own sockets, by the device that stands for it."""

import unittest

from topology import Topology, instance, l3


class Vrf(unittest.TestCase):
    def test_stands_apart_by_its_device(self):
        """A veth stands for the VRF's device: clients and server are both behind it."""
        top = Topology(self, manager_options="--vrf-device 7=red")
        top.network.join(("client7", "eth0", "10.7.0.1/24"), ("relay", "red", "192.168.7.1/24"))
        top.network.run("relay", "ip", "addr", "add", "10.7.0.254/24", "dev", "red")
        top.network.run("client7", "ip", "route", "add", "192.168.7.1/32", "via", "10.7.0.254")
        top.network.answer("client7")
        top.up(instance("r7", servers=["10.7.0.1"], interfaces=["l3-7"], vrf="red"),
               interfaces=[l3(7)], vrfs={"red": 7})
        self.assertEqual([(entry["name"], entry["vrf_device"]) for entry in top.stack.show("instances")["instances"]],
                         [("r7", "red")])
        found = top.load(7, 100, 0.2)
        self.assertEqual((found["answered"], found["sent"]), (20, 20))

    def test_without_a_device_relays_nothing_and_says_so(self):
        top = Topology(self)
        top.up(instance(vrf="red"), vrfs={"red": 7})
        self.assertEqual(top.stack.interface("l3-5")["state"], "no-vrf")
        self.assertTrue(top.stack.show("instances")["instances"][0]["vrf_missing"])
        found = top.load(5, 100, 0.05)
        self.assertEqual(found["answered"], 0)

    def test_of_a_client_is_not_that_of_an_instance_without_vrf(self):
        top = Topology(self, manager_options="--vrf-device 7=vlan5")
        top.network.answer("server")
        top.up()
        self.assertEqual(top.stack.interface("l3-5")["state"], "missing")
