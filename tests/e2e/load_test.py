"""Many requests at once, from clients and from a tool that measures servers; and what is left when they end."""

import pathlib
import re
import unittest

from configuration import relay
from paths import HELPERS
from processes import wait_until
from service import served_meanwhile
from topology import Topology, instance

COMMITS = 200
RATE = 5000  # requests a second
LOOKS = 100


def has_armed_timer(pid):
    """Whether a timer will wake the process up."""
    infos = (path.read_text() for path in pathlib.Path(f"/proc/{pid}/fdinfo").iterdir())
    return any(re.search(r"^it_value: \((?!0, 0\))", info, re.MULTILINE) for info in infos)


class Load(unittest.TestCase):
    def test_of_one_instance_loses_no_packet_by_many_commits_for_another(self):
        top = Topology(self)
        top.network.answer("server")
        top.up(instance(), relay("busy"))
        before = top.stack.status()
        with served_meanwhile(self, top, 5, RATE):
            top.stack.tool(HELPERS / "commit-often", "busy", COMMITS)
            self.assert_all_arrived(top.stack, before)

    def assert_all_arrived(self, stack, before):
        """Every commit, while packets came, and as commits: not as one dump."""
        wait_until(lambda: stack.status()["calls"] == before["calls"] + 2 * COMMITS, "all calls have arrived")
        busy = next(entry for entry in stack.table() if entry["name"] == "busy")
        self.assertEqual(len(busy["servers"]), COMMITS)
        status = stack.status()
        self.assertEqual((status["connected"], status["in_sync"], status["dumps"]), (True, True, before["dumps"]))

    def test_that_ends_leaves_no_timer_that_wakes_the_manager_up(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        self.assertGreater(top.load(5, 20000, 0.5)["answered"], 0)
        manager = top.stack.pid("manager")
        # Many looks, since a timer that repeats is disarmed for an instant each time.
        wait_until(lambda: not any(has_armed_timer(manager) for _ in range(LOOKS)), "no timer is armed")

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
