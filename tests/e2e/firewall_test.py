"""The machine's own firewall, and which side of the relay is behind it."""

import unittest

from dhcp_message import Message
from firewall import drop_input
from processes import wait_until
from topology import Topology
from wire import CLIENT_PORT, SERVER_PORT, Wire, datagram, frame

REQUESTS = 10


class Firewall(unittest.TestCase):
    def test_keeps_replies_and_no_requests_from_the_relay(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        client = Wire(self, top.network, "client5", "eth0", CLIENT_PORT)
        server = Wire(self, top.network, "server", "eth0", SERVER_PORT)
        uplink = Wire(self, top.network, "relay", "uplink", SERVER_PORT)
        client.send(frame(datagram(Message(xid=0).bytes())))
        client.wait_for(0)
        drop_input(top.network, "relay")
        for xid in range(1, REQUESTS + 1):
            client.send(frame(datagram(Message(xid=xid).bytes())))
        server.wait_for(REQUESTS)
        self.assertEqual([message.xid for message in server.heard()], list(range(REQUESTS + 1)))
        wait_until(lambda: top.counters()["requests"]["relayed"] == 1 + REQUESTS, "all requests are counted")
        wait_until(lambda: len(uplink.heard()) == 1 + REQUESTS, "the replies have come to the machine")
        self.assertEqual(top.counters()["replies"]["received"], 1)
        self.assertEqual([message.xid for message in client.heard()], [0])
