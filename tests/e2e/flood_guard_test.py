"""The flood guard: a limit of requests for each interface."""

import unittest

from service import served_meanwhile
from topology import Topology, assert_all_answered, instance, l3, total
from wire import SERVER_PORT, Wire


class FloodGuard(unittest.TestCase):
    RATE, BURST = 1500, 2000

    def test_limits_each_interface_by_itself(self):
        top = Topology(self, manager_options=f"--flood-guard {self.RATE}:{self.BURST}")
        top.add_clients(6)
        top.network.answer("server")
        top.up(instance(interfaces=["l3-5", "l3-6"]), interfaces=[l3(5), l3(6)])
        listener = Wire(self, top.network, "server", "eth0", SERVER_PORT)
        with served_meanwhile(self, top, 6) as found:
            flooded = top.load(5, 20000, 0.4)
        requests = top.counters()["requests"]
        self.assertEqual((requests["received"], total(requests)), (flooded["sent"], flooded["sent"]))
        self.assertGreater(requests["flood"], 0)
        self.assertLessEqual(requests["relayed"], self.BURST + self.RATE * (flooded["seconds"] + 1))
        # What was let pass is what the server got, and nothing else.
        self.assertEqual(len(listener.heard()), requests["relayed"] + found["sent"])

    def test_is_off_unless_asked_for(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        assert_all_answered(self, top.load(5, 5000, 0.4))
