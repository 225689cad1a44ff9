"""The flood guard: a limit of requests for each interface."""

import unittest

from topology import Topology, assert_all_answered, instance, l3, total


class FloodGuard(unittest.TestCase):
    def test_limits_each_interface_by_itself(self):
        top = Topology(self, manager_options="--flood-guard 1:10")
        top.add_clients(6)
        top.network.answer("server")
        top.up(instance(interfaces=["l3-5", "l3-6"]), interfaces=[l3(5), l3(6)])
        flooded = top.load(5, 1000, 0.2)
        assert_all_answered(self, top.load(6, 20, 0.2))
        requests = top.counters()["requests"]
        self.assertEqual(requests["received"], flooded["sent"])
        self.assertEqual(total(requests), flooded["sent"])
        self.assertGreaterEqual(requests["relayed"], 10)
        self.assertGreaterEqual(requests["flood"], flooded["sent"] - 10 - 60)

    def test_is_off_unless_asked_for(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        assert_all_answered(self, top.load(5, 5000, 0.4))
