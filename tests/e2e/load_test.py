"""Many requests at once, from clients and from a tool that measures servers."""

import re
import unittest

from configuration import relay
from paths import HELPERS
from topology import Topology, assert_all_answered, instance


class Load(unittest.TestCase):
    def test_of_one_instance_loses_no_packet_by_many_commits_for_another(self):
        top = Topology(self)
        top.network.answer("server")
        top.up(instance(), relay("busy"))
        load = top.network.start_load("client5", "eth0", 5000)
        top.stack.tool(HELPERS / "commit-often", "busy", 200)
        assert_all_answered(self, top.network.stop_load(load))

    def test_of_perfdhcp_is_relayed_in_full(self):
        top = Topology(self)
        top.network.run("client5", "ip", "addr", "add", "192.168.5.2/24", "dev", "eth0")
        top.network.run("client5", "ip", "route", "add", "default", "via", "192.168.5.1")
        top.network.forward("relay")
        top.network.kea("server", "eth0", ("192.168.5.0/24", "192.168.5.10", "192.168.5.250"))
        top.up()
        # It plays a relay: its giaddr is its own address, and the server answers it directly.
        result = top.network.run("client5", "perfdhcp", "-4", "-l", "192.168.5.2", "-r", "250", "-R", "200",
                                 "-n", "500", "-W", "3000000", "192.168.5.1", check=False)
        exchanges = re.findall(r"sent packets: (\d+)\s+received packets: (\d+)", result.stdout)
        self.assertEqual(len(exchanges), 2, result.stdout + result.stderr)
        for sent, received in exchanges:
            self.assertEqual((sent, received), ("500", "500"), result.stdout)
        self.assertEqual(top.counters()["requests"]["relayed"], 1000)
