"""VRFs: each has its own sockets, by the device that stands for it."""

import re
import unittest

from paths import HELPERS
from topology import Topology, assert_all_answered, instance, l3

BUFFER = str(2 * 8 * 1024 * 1024)  # as the kernel counts 8 MiB


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

    @staticmethod
    def add_vrf(top, device, number):
        """A veth that stands for a VRF's device, with clients and a server behind it; its instance."""
        client = f"client{number}"
        top.network.join((client, "eth0", f"10.{number}.0.1/24"), ("relay", device, f"192.168.{number}.1/24"))
        top.network.run("relay", "ip", "addr", "add", f"10.{number}.0.254/24", "dev", device)
        top.network.run(client, "ip", "route", "add", f"192.168.{number}.1/32", "via", f"10.{number}.0.254")
        top.network.answer(client)
        return instance(f"r{number}", servers=[f"10.{number}.0.1"], interfaces=[f"l3-{number}"], vrf=device)

    def test_whose_port_is_taken_stops_no_other(self):
        top = Topology(self, manager_options="--vrf-device 7=red --vrf-device 8=blue")
        top.network.answer("server")
        instances = [instance(), self.add_vrf(top, "red", 7), self.add_vrf(top, "blue", 8)]
        taker = top.network.start("relay", HELPERS / "take-port", "--device", "red")
        top.network.wait_listening("relay", 67, taker)
        top.up(*instances, interfaces=[l3(5), l3(7), l3(8)], vrfs={"red": 7, "blue": 8})
        self.assertEqual([top.stack.interface(name)["state"] for name in ("l3-5", "l3-7", "l3-8")],
                         ["up", "no-socket", "up"])
        # Neither the attempts nor their success disturb the others.
        load = top.network.start_load("client8", "eth0", 1000)
        assert_all_answered(self, top.load(5, 100, 0.2))
        self.assertEqual(top.load(7, 100, 0.2)["answered"], 0)
        requests = top.counters("l3-7")["requests"]
        self.assertEqual((requests["received"], requests["send-failed"]), (20, 20))
        # Each of these changes makes the manager try again.
        for i in range(20):
            top.network.run("relay", "ip", "addr", "add", f"192.168.99.{i + 1}/32", "dev", "lo")
        top.network.stop(taker)
        top.stack.wait_state("l3-7", "up")
        assert_all_answered(self, top.load(7, 100, 0.2))
        assert_all_answered(self, top.network.stop_load(load))
        self.assertEqual(self.buffers(top), {BUFFER})

    @staticmethod
    def buffers(top):
        """The sizes of the receive buffers of the sockets on port 67."""
        listing = top.network.run("relay", "ss", "-Huanm", "sport", "=", "67").stdout
        return set(re.findall(r"\brb(\d+)", listing))

    def test_that_comes_and_goes_has_the_buffer_that_it_had(self):
        top = Topology(self, manager_options="--vrf-device 7=red")
        top.up(self.add_vrf(top, "red", 7), interfaces=[l3(7)], vrfs={"red": 7})
        for name in ("gone", "red") * 20:
            # The address of a veth that goes down and comes up stays.
            top.network.run("relay", "ip", "link", "set", "red" if name == "gone" else "gone", "down")
            top.network.run("relay", "ip", "link", "set", "red" if name == "gone" else "gone", "name", name)
        top.network.run("relay", "ip", "link", "set", "red", "up")
        top.stack.wait_state("l3-7", "up")
        self.assertEqual(self.buffers(top), {BUFFER})

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
