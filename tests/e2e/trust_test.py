"""Who may answer: each forged reply moves its counter, reaches nobody, and stops no service."""

import json
import unittest

from attack import ATTACK, HOST, TIMES, Attack
from dhcp_message import INFORMATION
from processes import wait_until
from service import served_meanwhile
from topology import SERVER, assert_all_answered, instance, l3


class ReplyOfAClient(Attack, unittest.TestCase):
    def attacked(self, source, information=None, **settings):
        """Clients of VLAN 6 are served while one of VLAN 5 answers in the server's place; `information` makes the
        relay agent information that it puts into its replies."""
        top = self.served_topology(relay_information=settings)
        if source != HOST:
            top.network.run("client5", "ip", "addr", "add", f"{source}/32", "dev", "lo")
        options = [(INFORMATION, information(top))] if information else []
        listener = self.client_side(top, 6)
        with served_meanwhile(self, top, 6) as found:
            self.offer(top, source, "192.168.6.1", *options)
            # At the relay's other address, too: the interface counts, and not the address.
            self.offer(top, HOST, "192.168.6.1", *options, relay="192.168.6.1")
            self.assert_counts(top, "replies", "client-side", 2 * TIMES)
        self.assert_silence(listener, found)
        replies = top.counters("l3-6")["replies"]
        self.assertEqual(replies["relayed"], replies["received"])
        return top

    def test_in_another_vlan_reaches_nobody(self):
        top = self.attacked(HOST)
        log = (top.stack.directory / "manager.log").read_text()
        self.assertIn(f"refused a reply of {HOST} for the clients of l3-6", log)

    def test_from_the_servers_address_reaches_nobody(self):
        top = self.attacked(SERVER)
        sent = top.stack.show("servers")["servers"][0]
        self.assertEqual(sent["replies"], sent["sent"])

    def test_with_the_relays_own_information_reaches_nobody_with_check_on(self):
        def information(top):
            mac = json.loads(top.network.run("relay", "ip", "-j", "link", "show", "vlan6").stdout)[0]["address"]
            circuit, remote = b"l3-6:6", bytes.fromhex(mac.replace(":", ""))
            return bytes([1, len(circuit)]) + circuit + bytes([2, len(remote)]) + remote
        self.attacked(SERVER, information, option=True, check=True)

    def test_in_its_own_vlan_reaches_nobody(self):
        top = self.served_topology()
        listener = self.client_side(top, 5)
        with served_meanwhile(self, top, 6):
            self.offer(top, HOST, "192.168.5.1")
            self.assert_counts(top, "replies", "client-side")
        self.assertEqual(listener.heard(), [])


class ServerAmongClients(Attack, unittest.TestCase):
    """A server in a VLAN that has clients, too: its address is 10.9.9.1, behind a host of the VLAN."""

    ADDRESS = "10.9.9.1"

    def serve(self, top, number):
        space, host = f"client{number}", f"192.168.{number}.2"
        top.network.run(space, "ip", "addr", "add", f"{host}/24", "dev", "eth0")
        top.network.run(space, "ip", "addr", "add", f"{self.ADDRESS}/32", "dev", "lo")
        top.network.run(space, "ip", "route", "add", "192.168.0.0/16", "via", f"192.168.{number}.1", "src",
                        self.ADDRESS)
        top.network.run("relay", "sysctl", "-qw", f"net.ipv4.conf.vlan{number}.rp_filter=0")
        top.network.answer(space)

    def route(self, top, number):
        top.network.run("relay", "ip", "route", "replace", f"{self.ADDRESS}/32", "via", f"192.168.{number}.2")

    def test_answers_from_where_its_route_leads(self):
        top = self.topology(6, 7)
        for number in (6, 7):
            self.serve(top, number)
        self.route(top, 6)
        top.up(instance(servers=[self.ADDRESS], interfaces=["l3-5", "l3-6", "l3-7"]),
               interfaces=[l3(5), l3(6), l3(7)])
        assert_all_answered(self, top.load(5, 100, 0.1))
        self.route(top, 7)
        # Now the other host with that address serves, and this one is a client.
        listener = self.client_side(top, 5)
        with served_meanwhile(self, top, 5) as found:
            self.offer(top, self.ADDRESS, "192.168.5.1", space="client6", relay="192.168.6.1")
            self.assert_counts(top, "replies", "client-side", interface="l3-6")
        self.assert_silence(listener, found)
        replies = top.counters()["replies"]
        self.assertEqual((replies["relayed"], replies["received"]), (10 + found["sent"], 10 + found["sent"]))

    def test_is_not_believed_where_the_instance_does_not_list_it(self):
        top = self.topology(6)
        self.serve(top, 6)
        self.route(top, 6)
        top.up(instance(interfaces=["l3-5", "l3-6"]), interfaces=[l3(5), l3(6)])
        listener = self.client_side(top, 5)
        with served_meanwhile(self, top, 5) as found:
            self.offer(top, self.ADDRESS, "192.168.5.1", space="client6", relay="192.168.6.1")
            self.assert_counts(top, "replies", "client-side", interface="l3-6")
        self.assert_silence(listener, found)


class UnknownServer(Attack, unittest.TestCase):
    STRANGER = "10.0.0.66"

    def answered(self, manager_options):
        top = self.served_topology(manager_options)
        top.network.run("server", "ip", "addr", "add", f"{self.STRANGER}/24", "dev", "eth0")
        return top, self.client_side(top, 5)

    def offered(self, top):
        self.offer(top, self.STRANGER, "192.168.5.1", space="server", relay="10.0.0.254")

    def test_reaches_nobody_with_servers_only(self):
        top, listener = self.answered("--servers-only")
        with served_meanwhile(self, top, 6):
            self.offered(top)
            self.assert_counts(top, "replies", "unknown-server")
        self.assertEqual(listener.heard(), [])

    def test_is_taken_otherwise(self):
        top, listener = self.answered("")
        self.offered(top)
        wait_until(lambda: listener.count(ATTACK) == TIMES, "they are heard")
        self.assertEqual(top.counters()["replies"]["unknown-server"], 0)


class CheckedReply(Attack, unittest.TestCase):
    def test_without_the_relays_own_information_reaches_nobody(self):
        top = self.served_topology(relay_information={"option": True, "check": True})
        listener = self.client_side(top, 5)
        with served_meanwhile(self, top, 6):
            for information in ((), [(INFORMATION, b"\1\6l3-6:6")], [(INFORMATION, b"\1\1")]):
                self.offer(top, SERVER, "192.168.5.1", *information, space="server", relay="10.0.0.254")
            self.assert_counts(top, "replies", "no-option")
            self.assert_counts(top, "replies", "foreign-option", 2 * TIMES)
        self.assertEqual(listener.heard(), [])


class OtherVrf(Attack, unittest.TestCase):
    def test_does_not_reach_clients_of_this_one(self):
        """A veth stands for the VRF's device; a host behind it answers for an interface outside of the VRF."""
        top = self.topology(manager_options="--vrf-device 7=red")
        top.network.join(("host7", "eth0", "10.7.0.1/24"), ("relay", "red", "192.168.7.1/24"))
        top.network.run("relay", "ip", "addr", "add", "10.7.0.254/24", "dev", "red")
        top.up(instance(), instance("r7", servers=["10.7.0.1"], interfaces=["l3-7"], vrf="red"),
               interfaces=[l3(5), l3(7)], vrfs={"red": 7})
        listener = self.client_side(top, 5)
        with served_meanwhile(self, top, 5) as found:
            self.offer(top, "10.7.0.1", "192.168.5.1", space="host7", relay="10.7.0.254")
            self.assert_unknown(top)
        self.assert_silence(listener, found)

    def assert_unknown(self, top):
        wait_until(lambda: top.stack.show("counters")["other"]["unknown-giaddr"] == TIMES, "they are counted")
