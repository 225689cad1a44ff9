"""Messages that must reach nobody, sent while clients of another VLAN are served."""

import socket

from dhcp_message import END, Message
from processes import wait_until
from topology import Topology, instance, l3
from wire import CLIENT_PORT, SERVER_PORT, Wire, datagram, frame, open_in

ATTACK = 0xBADBAD01  # transaction of what must not come through
HARMLESS = 0x600D0001  # and of what must
HOST = "192.168.5.66"  # a client of VLAN 5 with an address of its own
TIMES = 3  # that each message is sent


class Attack:
    """What the tests of attacks share; for a TestCase."""

    def topology(self, *numbers, manager_options=""):
        """Clients in VLAN 5, one of them with an address, and in those VLANs; a server that answers everybody."""
        top = Topology(self, manager_options=manager_options)
        for number in numbers:
            top.add_clients(number)
        top.network.run("client5", "ip", "addr", "add", f"{HOST}/24", "dev", "eth0")
        top.network.run("client5", "ip", "route", "add", "default", "via", "192.168.5.1")
        top.network.answer("server")
        # What a borrowed address would not pass is left out, so that the manager has to see to it.
        for device in ("all", "vlan5", "uplink"):
            top.network.run("relay", "sysctl", "-qw", f"net.ipv4.conf.{device}.rp_filter=0")
        return top

    def served_topology(self, manager_options="", vlans=(5, 6), **members):
        """The above, with its stack: VLANs that one instance, of these members, serves."""
        top = self.topology(*vlans[1:], manager_options=manager_options)
        top.up(instance(interfaces=[f"l3-{number}" for number in vlans], **members),
               interfaces=[l3(number) for number in vlans])
        return top

    def client_side(self, top, number):
        """What comes to the clients of a VLAN."""
        return Wire(self, top.network, f"client{number}", "eth0", CLIENT_PORT)

    def server_side(self, top):
        """What comes to the server."""
        return Wire(self, top.network, "server", "eth0", SERVER_PORT)

    @staticmethod
    def offer(top, source, giaddr, *information, space="client5", relay="192.168.5.1", xid=ATTACK):
        """Replies from an address of a namespace to an address of the relay."""
        def bound():
            sender = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            sender.bind((source, 0))  # port 67 may be taken by a server
            return sender
        message = Message(op=2, giaddr=giaddr, xid=xid, options=[(53, b"\2"), *information, END])
        with open_in(top.network, space, bound) as sender:
            for _ in range(TIMES):
                sender.sendto(message.bytes(), (relay, SERVER_PORT))

    def request(self, top, message, xid=ATTACK, **header):
        """Requests of a client of VLAN 5."""
        wire = self.client_side(top, 5)
        for _ in range(TIMES):
            wire.send(frame(datagram(message.but(xid=xid).bytes(), **header)))

    def assert_counts(self, top, direction, outcome, count=TIMES, interface="l3-5"):
        wait_until(lambda: top.counters(interface)[direction][outcome] == count, f"{outcome} counts {count}")

    def assert_silence(self, listener, found):
        """All of the load `found` is heard, and nothing of the attack."""
        wait_until(lambda: len(listener.heard()) >= found["answered"], "the load is heard")
        self.assertEqual(listener.count(ATTACK), 0)
