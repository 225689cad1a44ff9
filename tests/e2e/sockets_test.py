"""The relay's sockets: a port that another program has or shares, and a queue that takes no more."""

import json
import unittest

from paths import HELPERS
from processes import wait_until
from topology import Topology, assert_all_answered, instance, l3, total

READ = ("sysrepocfg", "-X", "-d", "operational", "-f", "json", "-x", "/vx-dhcp-relay-state:dhcp-relay-state")
NO_SOCKET = "cannot listen to servers on UDP port 67: Address already in use"
SOCKET_FAULT = 4  # exit status of dhcp-relayctl


class Port(unittest.TestCase):
    def setUp(self):
        self.top = Topology(self)
        self.top.network.answer("server")

    def take(self, *arguments):
        def taken():
            self.assertIsNone(taker.poll())
            return f"pid={taker.pid}," in self.top.network.run("relay", "ss", "-Hulpn", "sport", "=", "67").stdout
        taker = self.top.network.start("relay", HELPERS / "take-port", *arguments)
        wait_until(taken, "the port is taken")
        return taker

    def status(self):
        return self.top.stack.tool("dhcp-relayctl", "status", check=False)

    def wait_status(self, code):
        wait_until(lambda: self.status().returncode == code, f"the status is {code}")

    def state(self):
        """What the datastore says of the relay."""
        return json.loads(self.top.stack.tool(*READ).stdout)["vx-dhcp-relay-state:dhcp-relay-state"]

    def faults(self, text):
        return [fault["text"] for fault in self.top.stack.faults() if text in fault["text"]]

    def test_of_another_program_is_told_with_the_reason_until_it_is_free(self):
        taker = self.take()
        self.top.up()
        interface = self.top.stack.interface("l3-5")
        self.assertEqual((interface["state"], interface["reason"]), ("no-socket", NO_SOCKET))
        status = self.status()
        self.assertEqual(status.returncode, SOCKET_FAULT)
        self.assertIn(f"sockets: none in the default VRF: {NO_SOCKET}\n", status.stdout)
        state = self.state()
        self.assertEqual(state["missing-socket"], [{"reason": NO_SOCKET}])
        self.assertEqual(state["instance"][0]["interface"][0]["state"], "no-socket")
        self.top.network.stop(taker)
        self.top.stack.wait_state("l3-5", "up")
        self.assertNotEqual(self.status().returncode, SOCKET_FAULT)
        assert_all_answered(self, self.top.load(5, 100, 0.2))
        self.assertEqual(self.faults("missing"),
                         [f"the socket of the default VRF is missing, trying again: {NO_SOCKET}"])
        log = (self.top.stack.directory / "manager.log").read_text()
        self.assertEqual(log.count("the socket of the default VRF is there again"), 1)

    def test_that_is_shared_for_the_relays_address_is_found_at_the_start_and_by_the_status(self):
        self.top.up()
        self.top.stack.wait_saved()
        taker = self.take("--share", "--address", "192.168.5.1")
        self.wait_status(SOCKET_FAULT)
        self.assertIn("sockets: replies to 192.168.5.1 in the default VRF are taken by "
                      f"python3 (process {taker.pid}) of user 0\n", self.status().stdout)
        self.assertEqual([(entry["address"], entry["user"]) for entry in self.state()["competing-socket"]],
                         [("192.168.5.1", 0)])
        self.assertEqual(self.top.load(5, 100, 0.2)["answered"], 0)
        fault = "shares 192.168.5.1 port 67 in the default VRF"
        self.assertEqual(len(self.faults(fault)), 1)
        # At its start the manager looks without being asked.
        self.top.stack.kill("manager")
        self.top.stack.start("manager")
        wait_until(lambda: len(self.faults(fault)) == 2, "the manager has found it")
        self.top.network.stop(taker)
        self.wait_status(0)
        assert_all_answered(self, self.top.load(5, 100, 0.2))

    def test_that_is_shared_where_no_replies_come_in_is_no_fault(self):
        taker = self.take("--share", "--device", "vlan5")
        self.top.up()
        self.top.stack.wait_saved()
        self.assertEqual(self.status().returncode, 0, self.status().stdout)
        assert_all_answered(self, self.top.load(5, 100, 0.2))
        self.top.network.stop(taker)
        # On the way to the server it takes them all.
        self.take("--share", "--device", "uplink")
        self.wait_status(SOCKET_FAULT)
        self.assertEqual(self.top.load(5, 100, 0.2)["answered"], 0)


class FullQueue(unittest.TestCase):
    def test_of_one_interface_holds_up_no_other(self):
        top = Topology(self)
        top.add_clients(6)
        top.network.answer("server")
        top.up(instance(interfaces=["l3-5", "l3-6"]), interfaces=[l3(5), l3(6)])
        top.network.run("relay", "tc", "qdisc", "add", "dev", "vlan5", "root", "tbf", "rate", "8kbit", "burst", "1600",
                        "limit", "1600")
        load = top.network.start_load("client6", "eth0", 1000)
        top.load(5, 500, 0.4)
        assert_all_answered(self, top.network.stop_load(load))
        replies = top.counters("l3-5")["replies"]
        self.assertGreater(replies["send-failed"], 0)
        self.assertEqual(total(replies), replies["received"])
