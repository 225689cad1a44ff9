"""Who may ask, and what: each attack moves its counter, reaches no server, and stops no service."""

import itertools
import unittest

from attack import ATTACK, HARMLESS, TIMES, Attack
from dhcp_message import END, INFORMATION, OVERLOAD, TYPE, Message, encode
from processes import wait_until
from service import served_meanwhile
from topology import total
from wire import datagram, frame

HEADER = 236  # bytes of a message before its options


class RequestAttack(Attack):
    def attacked(self, top, outcome, messages, headers=({},)):
        """Clients of VLAN 6 are served while one of VLAN 5 sends what comes to no server: each message with each of
        the headers."""
        listener = self.server_side(top)
        sent = TIMES * len(messages) * len(headers)
        with served_meanwhile(self, top, 6) as found:
            for message, header in itertools.product(messages, headers):
                self.request(top, message, **header)
            self.assert_counts(top, "requests", outcome, sent)
        self.assert_silence(listener, found)
        requests = top.counters()["requests"]
        self.assertEqual((requests["received"], total(requests)), (sent, sent))


class ForeignGiaddr(RequestAttack, unittest.TestCase):
    REQUEST = Message(giaddr="10.9.9.9")

    def passed(self, manager_options, **settings):
        top = self.served_topology(manager_options, relay_information=settings)
        listener = self.server_side(top)
        self.request(top, self.REQUEST)
        wait_until(lambda: listener.count(ATTACK) == TIMES, "they are heard")
        self.assertEqual(top.counters()["requests"]["foreign-giaddr"], 0)

    def test_is_dropped_where_asked_for(self):
        self.attacked(self.served_topology("--drop-foreign-giaddr"), "foreign-giaddr", [self.REQUEST])

    def test_passes_on_a_trusted_interface(self):
        self.passed("--drop-foreign-giaddr", trusted=True)

    def test_passes_unless_asked_otherwise(self):
        self.passed("")


class OwnGiaddr(RequestAttack, unittest.TestCase):
    def test_of_any_interface_is_dropped(self):
        self.attacked(self.served_topology(), "own-giaddr", [
            Message(giaddr=giaddr) for giaddr in ("192.168.5.1", "192.168.6.1", "10.0.0.254")])


class Hops(RequestAttack, unittest.TestCase):
    def test_of_a_message_that_circles_are_limited(self):
        self.attacked(self.served_topology(), "too-many-hops", [Message(hops=hops) for hops in (17, 255)])


class InformationOfAClient(RequestAttack, unittest.TestCase):
    THEIRS = (INFORMATION, b"\1\4port")

    def hidden(self):
        """Messages that carry it among the options, and in the fields that Overload says hold options."""
        yield Message(options=[TYPE, self.THEIRS, END])
        field = encode([self.THEIRS, END])
        for fields, overload in (({"file": field}, 1), ({"sname": field, "file": encode([END])}, 3)):
            yield Message(options=[TYPE, (OVERLOAD, bytes([overload])), END], **fields)

    def test_is_dropped_wherever_it_hides(self):
        top = self.served_topology(relay_information={"option": True, "policy": "replace"})
        self.attacked(top, "untrusted-option", list(self.hidden()))

    def test_meets_the_policy_where_it_is_trusted(self):
        top = self.served_topology(relay_information={"option": True, "trusted": True, "policy": "drop"})
        self.attacked(top, "policy-drop", list(self.hidden()))


class Headers(RequestAttack, unittest.TestCase):
    def test_with_a_wrong_checksum_are_malformed(self):
        self.attacked(self.served_topology(), "malformed", [Message()], [{"ip_sum": 1}, {"udp_sum": 1}])

    def test_of_a_message_cut_anywhere_are_malformed(self):
        top = self.served_topology()
        listener, client = self.server_side(top), self.client_side(top, 5)
        whole = Message(xid=ATTACK).bytes()
        with served_meanwhile(self, top, 6) as found:
            for size in range(1, HEADER):
                client.send(frame(datagram(whole[:size])))
            self.assert_counts(top, "requests", "malformed", HEADER - 1)
        self.assert_silence(listener, found)

    def test_to_the_broadcast_of_the_subnet_are_for_us(self):
        top = self.topology()
        # The kernel is told no broadcast address.
        top.network.run("relay", "ip", "addr", "del", "192.168.5.1/24", "dev", "vlan5")
        top.network.run("relay", "ip", "addr", "add", "192.168.5.1/24", "dev", "vlan5")
        top.up()
        listener = self.server_side(top)
        self.request(top, Message(), target="192.168.9.255")
        self.request(top, Message(), HARMLESS, target="192.168.5.255")
        wait_until(lambda: listener.count(HARMLESS) == TIMES, "they are heard")
        wait_until(lambda: top.stack.show("counters")["other"]["not-for-us"] == TIMES, "the others are counted")
        self.assertEqual(listener.count(ATTACK), 0)
