"""Interfaces that come late, go down, vanish, change their names and addresses: service resumes by itself."""

import concurrent.futures
import re
import signal
import socket
import unittest

from configuration import configuration
from dhcp_message import END, Message
from processes import wait_until
from service import served_meanwhile
from topology import Topology, assert_all_answered, dhcp_range, instance, l3
from trunk import Trunk
from wire import CLIENT_PORT, SERVER_PORT, Wire, datagram, frame


RENEWALS = 20
FIRST = 0x60000000  # transaction of the renewals, which are not those of a load


def of(message):
    """giaddr and circuit-id of a request."""
    return (socket.inet_ntoa(message[24:28]), re.search(rb"\x52.\x01.(l3-\d+:\d+)\x02\x06", message, re.DOTALL)[1])


class Renewing:
    """A client that renews its lease, one renewal after the other."""

    def __init__(self, test, top):
        self.wire = Wire(test, top.network, "client5", "eth0", CLIENT_PORT)
        self.looked_at = 0  # messages
        self.answers = set()
        self.sent = 0

    @property
    def answered(self):
        """How many renewals."""
        messages = self.wire.heard()
        self.answers |= {message.xid for message in messages[self.looked_at:] if message.xid >= FIRST}
        self.looked_at = len(messages)
        return len(self.answers)

    def _ask(self):
        request = Message(xid=FIRST + self.sent, options=[(53, b"\3"), END])
        self.wire.send(frame(datagram(request.bytes())))
        self.sent += 1

    def renew(self, count):
        """That many renewals, each of which must be answered."""
        for _ in range(count):
            before = self.answered
            self._ask()
            wait_until(lambda: self.answered > before, "a renewal is answered")

    def renew_during(self, change):
        """Renewals while change() runs; the reply to each may come too late."""
        with concurrent.futures.ThreadPoolExecutor() as threads:
            changing = threads.submit(change)
            while not changing.done():
                self._ask()
                concurrent.futures.wait([changing], timeout=0.005)
        changing.result()


class Interface(unittest.TestCase):
    def served(self, top, number=5):
        self.assertIsNotNone(top.lease(number), top.server_log())

    def test_appears_late(self):
        top = Topology(self)
        top.network.dnsmasq("server", dhcp_range(5), dhcp_range(6))
        top.up(instance(interfaces=["l3-5", "l3-6"]), interfaces=[l3(5), l3(6)])
        top.stack.wait_state("l3-6", "missing")
        self.served(top)
        top.add_clients(6)
        top.stack.wait_state("l3-6", "up")
        self.served(top, 6)

    def test_goes_down_and_comes_back(self):
        top = Topology(self)
        top.network.dnsmasq("server", dhcp_range(5))
        top.up()
        top.network.run("relay", "ip", "link", "set", "vlan5", "down")
        top.stack.wait_state("l3-5", "down")
        top.network.run("relay", "ip", "link", "set", "vlan5", "up")
        top.stack.wait_state("l3-5", "up")
        self.served(top)

    def test_is_removed_and_made_again(self):
        top = Topology(self)
        top.network.dnsmasq("server", dhcp_range(5))
        top.up()
        self.served(top)
        top.network.run("relay", "ip", "link", "del", "vlan5")
        top.stack.wait_state("l3-5", "missing")
        top.add_clients(5)
        top.stack.wait_state("l3-5", "up")
        self.served(top)

    def test_is_renamed(self):
        top = Topology(self)
        top.network.dnsmasq("server", dhcp_range(5))
        top.up()
        top.network.run("relay", "ip", "link", "set", "vlan5", "down")
        top.network.run("relay", "ip", "link", "set", "vlan5", "name", "renamed")
        top.network.run("relay", "ip", "link", "set", "renamed", "up")
        wait_until(lambda: top.stack.interface("l3-5")["link"] == "renamed", "the new name is seen")
        self.served(top)

    def test_on_either_side_is_down_at_start(self):
        top = Topology(self)
        top.network.answer("server")
        for device in ("vlan5", "uplink"):
            top.network.run("relay", "ip", "link", "set", device, "down")
        top.up()
        self.assertEqual(top.stack.interface("l3-5")["state"], "down")
        top.network.run("relay", "ip", "link", "set", "vlan5", "up")
        top.stack.wait_state("l3-5", "up")
        top.network.wait_up("relay", "vlan5")
        client = Wire(self, top.network, "client5", "eth0", CLIENT_PORT)
        client.send(frame(datagram(Message().bytes())))
        wait_until(lambda: top.counters()["requests"]["send-failed"] == 1, "the server cannot be reached")
        top.network.run("relay", "ip", "link", "set", "uplink", "up")
        top.network.wait_up("relay", "uplink")
        with served_meanwhile(self, top, 5):
            pass


class ManyInterfaces(unittest.TestCase):
    def test_that_go_down_and_come_back_hold_up_no_other(self):
        top = Topology(self)
        top.network.answer("server")
        trunk = Trunk(top.network, 500)
        top.up(*trunk.instances(), interfaces=trunk.l3())

        def wait_states(state):
            wait_until(lambda: {entry["state"] for entry in top.stack.show("interfaces")["interfaces"]
                                if entry["instance"] == "trunk"} == {state}, f"the trunk's interfaces are {state}")
        wait_states("up")
        load = top.network.start_load("client5", "eth0", 1000)
        for _ in range(10):
            trunk.flap()
        top.network.run("relay", "ip", "link", "set", "trunk", "down")
        wait_states("down")
        top.network.run("relay", "ip", "link", "set", "trunk", "up")
        wait_states("up")
        assert_all_answered(self, top.network.stop_load(load))


class Address(unittest.TestCase):
    def test_and_vlan_change_while_clients_renew(self):
        top = Topology(self)
        top.network.run("relay", "ip", "addr", "add", "192.168.55.1/24", "brd", "+", "dev", "vlan5")
        top.network.dnsmasq("server", dhcp_range(5), dhcp_range(55))
        top.up(instance(relay_information={"option": True, "check": True}))
        client, leases = top.network.start_client("client5", "eth0")
        wait_until(lambda: leases.exists() and "192.168.5." in leases.read_text(),
                   "there is a lease at the old address")
        top.stack.edit(configuration(l3=[("5", 50, "192.168.55.1/24")]))
        wait_until(lambda: top.stack.interface("l3-5")["address"] == "192.168.55.1", "the new address is in force")
        client.send_signal(signal.SIGUSR2)  # udhcpc releases its lease
        client.send_signal(signal.SIGUSR1)  # and asks for another
        wait_until(lambda: "192.168.55." in leases.read_text(), "there is a lease at the new address")
        self.assertEqual(top.stack.interface("l3-5")["vlan"], 50)

    def test_and_vlan_change_in_one_step_for_clients_that_renew(self):
        """Each renewal goes by the old address and VLAN or by the new ones; none is lost but for a reply that is on its
        way to the address that was."""
        top = Topology(self)
        top.network.run("relay", "ip", "addr", "add", "192.168.55.1/24", "brd", "+", "dev", "vlan5")
        top.network.answer("server")
        top.up(instance(relay_information={"option": True, "check": True}))
        server = Wire(self, top.network, "server", "eth0", SERVER_PORT)
        load = top.network.start_load("client5", "eth0", 1000)
        client = Renewing(self, top)
        for number, address in ((50, "192.168.55.1"), (5, "192.168.5.1")) * 3:
            client.renew_during(lambda address=address: top.stack.edit(
                configuration(l3=[("5", number, f"{address}/24")])))
            wait_until(lambda: top.stack.interface("l3-5")["address"] == address, "the new address is in force")
            client.renew(RENEWALS)
            server.heard()
        found = top.network.stop_load(load)
        self.assertEqual({of(message.message) for message in server.heard()},
                         {("192.168.5.1", b"l3-5:5"), ("192.168.55.1", b"l3-5:50")})
        asked = found["sent"] + client.sent
        self.assertEqual(len(server.heard()), asked)
        late = top.stack.show("counters")["other"]["unknown-giaddr"]
        self.assertEqual(found["answered"] + client.answered, asked - late)

    def test_stays_the_giaddr_when_its_lifetime_is_refreshed(self):
        top = Topology(self)
        top.network.run("relay", "ip", "addr", "add", "192.168.55.1/24", "dev", "vlan5")
        top.network.dnsmasq("server", dhcp_range(5), dhcp_range(55))
        top.up(instance(interfaces=["l3-5", "l3-55", "l3-6"]), interfaces=[l3(5), l3(55), l3(6)])
        top.network.run("relay", "ip", "addr", "change", "192.168.5.1/24", "dev", "vlan5", "valid_lft", "5000",
                        "preferred_lft", "4000")
        # The kernel reports the refreshed address before the new one.
        top.add_clients(6)
        top.stack.wait_state("l3-6", "up")
        lease = top.lease()
        self.assertIsNotNone(lease, top.server_log())
        self.assertRegex(lease[0], r"^192\.168\.5\.")
        self.assertEqual(top.counters("l3-55")["requests"]["received"], 0)

    def test_that_two_interfaces_have_is_served_where_it_is_up(self):
        top = Topology(self)
        top.add_clients(6)
        top.network.run("relay", "ip", "addr", "add", "192.168.5.1/24", "dev", "vlan6")
        top.network.dnsmasq("server", dhcp_range(5))
        top.up()
        self.assertEqual(top.stack.interface("l3-5")["link"], "vlan5")
        top.network.run("relay", "ip", "link", "set", "vlan5", "down")
        wait_until(lambda: top.stack.interface("l3-5")["link"] == "vlan6", "the other interface is used")
        self.assertIsNotNone(top.lease(6), top.server_log())

    def test_moves_to_another_interface(self):
        top = Topology(self)
        top.add_clients(6)
        top.network.dnsmasq("server", dhcp_range(5))
        top.up()
        top.network.run("relay", "ip", "addr", "del", "192.168.5.1/24", "dev", "vlan5")
        top.stack.wait_state("l3-5", "missing")
        top.network.run("relay", "ip", "addr", "add", "192.168.5.1/24", "dev", "vlan6")
        top.stack.wait_state("l3-5", "up")
        self.assertIsNotNone(top.lease(6), top.server_log())

    def test_secondary_one_never_becomes_giaddr(self):
        top = Topology(self)
        for extra in ("192.168.66.1/24", "192.168.5.99/24"):
            top.network.run("relay", "ip", "addr", "add", extra, "dev", "vlan5")
        top.network.dnsmasq("server", dhcp_range(5), dhcp_range(66))
        top.up()
        self.assertIsNotNone(top.lease(), top.server_log())
        self.assertNotIn("192.168.66.1", top.server_log().replace("192.168.66.10", ""))
