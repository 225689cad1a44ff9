"""Floods: the limits on them, and that they stay where they are."""

import unittest

from dhcp_message import Message
from paths import HELPERS
from processes import wait_until
from service import served_meanwhile
from topology import Topology, assert_all_answered, instance, l3, total
from wire import CLIENT_PORT, SERVER_PORT, Wire, datagram, frame


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

    def test_of_discovers_leaves_renewals_alone(self):
        top = Topology(self, manager_options="--flood-guard 1:20 --discover-guard 1:10")
        top.network.answer("server")
        top.network.run("client5", "ip", "addr", "add", "192.168.5.2/24", "dev", "eth0")
        top.up()
        flood = top.load(5, 1000, 0.2)
        top.network.run("client5", HELPERS / "send-renewal", "192.168.5.2", "192.168.5.1")
        requests = wait_until(lambda: self.counted(top, flood["sent"] + 1), "all requests are counted")
        self.assertEqual(requests["flood"], 0)
        self.assertGreaterEqual(requests["relayed"], flood["answered"] + 1)
        self.assertGreaterEqual(requests["discover-flood"], flood["sent"] - 10 - 60)

    def test_limits_each_client_by_itself(self):
        top = Topology(self, manager_options="--client-guard 1:2")
        top.network.answer("server")
        top.up()
        client = Wire(self, top.network, "client5", "eth0", CLIENT_PORT)
        for _ in range(200):
            client.send(frame(datagram(Message().bytes())))
        requests = wait_until(lambda: self.counted(top, 200), "all requests are counted")
        self.assertGreaterEqual(requests["client-flood"], 200 - 2 - 60)
        assert_all_answered(self, top.load(5, 1000, 0.2))

    @staticmethod
    def counted(top, sent):
        """The interface's requests, once there are so many."""
        requests = top.counters()["requests"]
        return requests if requests["received"] == sent == total(requests) else None

    def test_is_off_unless_asked_for(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        assert_all_answered(self, top.load(5, 5000, 0.4))


class FloodOfOneInterface(unittest.TestCase):
    """A client of one interface floods the relay, while those of another ask as ever."""

    RATE = 300_000

    def flood(self, size, manager_options=""):
        """The requests of the interface that was flooded, with messages of `size` bytes."""
        top = Topology(self, manager_options)
        top.add_clients(6)
        top.network.answer("server")
        top.up(instance(interfaces=["l3-5", "l3-6"]), interfaces=[l3(5), l3(6)])
        flood = top.network.start_load("client6", "eth0", self.RATE, 15, str(size))
        wait_until(lambda: top.counters("l3-6")["requests"]["received"] > 0, "the flood has begun")
        assert_all_answered(self, top.load(5, 1000, 1))
        sent = top.network.stop_load(flood)["sent"]
        wait_until(lambda: top.counters("l3-6")["requests"]["received"] >= sent, "all requests are counted")
        requests = top.counters("l3-6")["requests"]
        self.assertEqual(requests["received"], sent)
        self.assertEqual(total(requests), sent)
        self.assertEqual(top.stack.show("counters")["kernel_drops"]["requests"], 0)
        return requests

    def test_by_runts_takes_nothing_from_others(self):
        requests = self.flood(20)
        self.assertEqual(requests["malformed"], requests["received"])

    def test_by_discovers_of_made_up_clients_takes_nothing_from_others(self):
        requests = self.flood(300, "--flood-guard 1000")
        self.assertGreater(requests["flood"], 0)
        self.assertEqual(requests["flood"] + requests["over-share"] + requests["relayed"], requests["received"])
