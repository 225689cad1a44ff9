"""Counters: every message is counted once, under its outcome."""

import re
import unittest

from configuration import configuration
from paths import HELPERS
from processes import wait_until
from topology import SERVER, Topology, assert_all_answered, instance, l3, total


class Counters(unittest.TestCase):
    def test_add_up_and_are_the_same_everywhere(self):
        top = Topology(self)
        top.network.answer("server")
        top.up(instance(servers=[SERVER, "10.0.0.66"], relay_information={"option": True, "check": True}))
        assert_all_answered(self, top.load(5, 2000, 0.5))
        counters = top.counters()
        for direction in ("requests", "replies"):
            self.assertEqual(counters[direction]["received"], 1000)
            self.assertEqual(total(counters[direction]), 1000)
            self.assertEqual(counters[direction]["relayed"], 1000)
        self.assertEqual(top.stack.show("counters")["received"], 2000)
        wait_until(lambda: "dhcp-relay-state" in self.operational(top), "operational data is served")
        state = self.operational(top)
        self.assertEqual(re.findall(r'"received": "(\d+)"', state), ["1000", "1000", "0"])
        self.assertEqual(re.findall(r'"sent": "(\d+)"', state), ["1000", "1000"])
        self.assertEqual(re.findall(r'"state": "([a-z-]+)"', state), ["up"])

    @staticmethod
    def operational(top):
        return top.stack.tool("sysrepocfg", "-X", "-d", "operational", "-f", "json", "-x",
                              "/vx-dhcp-relay-state:dhcp-relay-state").stdout

    def test_tell_replies_that_match_no_interface(self):
        top = Topology(self)
        top.up()
        top.stack.wait_state("l3-5", "up")
        for giaddr, size in (("192.168.77.1", 300), ("10.0.0.254", 300), ("192.168.5.1", 20)):
            top.network.run("server", HELPERS / "send-reply", "10.0.0.254", giaddr, size)
        wait_until(lambda: top.stack.show("counters")["other"]["received"] == 3, "the replies are counted")
        other = top.stack.show("counters")["other"]
        self.assertEqual((other["unknown-giaddr"], other["malformed"]), (2, 1))
        self.assertEqual(top.counters()["replies"]["received"], 0)

    def test_tell_a_request_on_an_interface_that_no_instance_lists(self):
        top = Topology(self)
        top.add_clients(6)
        top.up()
        top.load(6, 100, 0.1)
        self.assertEqual(top.stack.show("counters")["other"]["no-interface"], 10)

    def test_can_be_cleared(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        top.load(5, 100, 0.1)
        top.stack.tool("dhcp-relayctl", "clear", "counters")
        self.assertEqual(top.stack.show("counters")["received"], 0)

    def test_cannot_be_cleared_by_another_user(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        top.load(5, 100, 0.1)
        top.stack.directory.chmod(0o755)
        result = top.stack.tool("setpriv", "--reuid", "nobody", "--clear-groups", "dhcp-relayctl", "clear", "counters",
                                check=False)
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertEqual(top.counters()["requests"]["received"], 10)

    def test_go_with_the_interface(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        top.load(5, 100, 0.1)
        top.stack.replace(configuration(instance(interfaces=[]), l3=[l3(5)]))
        wait_until(lambda: top.stack.show("counters")["interfaces"] == [], "the counters are gone")
        top.stack.replace(configuration(instance(), l3=[l3(5)]))
        wait_until(lambda: top.stack.show("counters")["interfaces"] != [], "there are new counters")
        self.assertEqual(top.counters()["requests"]["received"], 0)
