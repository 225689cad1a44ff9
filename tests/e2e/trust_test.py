"""Who may answer and who may ask: each attack moves its counter, reaches nobody, and stops no service."""

import json
import unittest

from paths import HELPERS
from processes import wait_until
from topology import SERVER, Topology, assert_all_answered, instance, l3

ATTACK = "badbad01"  # transaction of what must not come through
HARMLESS = "600d0001"  # and of what must
HOST = "192.168.5.66"  # a client of VLAN 5 with an address of its own
TIMES = 3


class Listener:
    """The transactions of the DHCP messages that come out of a device for one port."""

    def __init__(self, network, space, device, port):
        self.network, self.name = network, f"messages-{space}-{port}.log"
        network.start(space, HELPERS / "print-messages", device, port, log=self.name)
        wait_until(lambda: "ready" in self.network.log(self.name), "the listener listens")

    def heard(self):
        return self.network.log(self.name).splitlines()[1:]

    def wait_for_answered(self, found):
        """Until it has heard as much as was answered of the load `found`: what came earlier is heard, too."""
        wait_until(lambda: len(self.heard()) >= found["answered"], "the load is heard")

    def wait_for(self, transaction):
        wait_until(lambda: transaction in self.heard(), f"{transaction} is heard")


class Attack(unittest.TestCase):
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

    def offer(self, top, source, giaddr, information="", space="client5", relay="192.168.5.1", transaction=ATTACK):
        for _ in range(TIMES):
            top.network.run(space, HELPERS / "send-offer", source, relay, giaddr, transaction, information)

    def request(self, top, *arguments, transaction=ATTACK, space="client5"):
        for _ in range(TIMES):
            top.network.run(space, HELPERS / "send-request", "eth0", transaction, *arguments)

    def assert_replies(self, top, outcome, count=TIMES, interface="l3-5"):
        wait_until(lambda: top.counters(interface)["replies"][outcome] == count, f"{outcome} counts {count}")

    def assert_silence(self, listener, found):
        """The load `found` was served and is heard, the attack before it is not."""
        assert_all_answered(self, found)
        listener.wait_for_answered(found)
        self.assertNotIn(ATTACK, listener.heard())

    def assert_requests(self, top, outcome, count=TIMES, interface="l3-5"):
        wait_until(lambda: top.counters(interface)["requests"][outcome] == count, f"{outcome} counts {count}")


class ReplyOfAClient(Attack):
    def attacked(self, source, information="", **settings):
        """Clients of VLAN 6 are served while one of VLAN 5 answers in the server's place."""
        top = self.topology(6)
        top.up(instance(interfaces=["l3-5", "l3-6"], relay_information=settings), interfaces=[l3(5), l3(6)])
        if callable(information):
            information = information(top)
        if source != HOST:
            top.network.run("client5", "ip", "addr", "add", f"{source}/32", "dev", "lo")
        listener = Listener(top.network, "client6", "eth0", 68)
        load = top.network.start_load("client6", "eth0", 200)
        self.offer(top, source, "192.168.6.1", information)
        # At the relay's other address, too: the interface counts, and not the address.
        self.offer(top, HOST, "192.168.6.1", information, relay="192.168.6.1")
        self.assert_replies(top, "client-side", 2 * TIMES)
        self.assert_silence(listener, top.network.stop_load(load))
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
            return (bytes([1, len(circuit)]) + circuit + bytes([2, len(remote)]) + remote).hex()
        self.attacked(SERVER, information, option=True, check=True)


class ServerAmongClients(Attack):
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
        assert_all_answered(self, top.load(5, 100, 0.1))
        self.offer(top, self.ADDRESS, "192.168.5.1", space="client6", relay="192.168.6.1")
        self.assert_replies(top, "client-side", interface="l3-6")
        assert_all_answered(self, top.load(5, 100, 0.1))
        replies = top.counters()["replies"]
        self.assertEqual((replies["relayed"], replies["received"]), (30, 30))

    def test_is_not_believed_where_the_instance_does_not_list_it(self):
        top = self.topology(6)
        self.serve(top, 6)
        self.route(top, 6)
        top.up(instance(interfaces=["l3-5", "l3-6"]), interfaces=[l3(5), l3(6)])
        self.offer(top, self.ADDRESS, "192.168.5.1", space="client6", relay="192.168.6.1")
        self.assert_replies(top, "client-side", interface="l3-6")
        assert_all_answered(self, top.load(5, 100, 0.1))


class UnknownServer(Attack):
    STRANGER = "10.0.0.66"

    def answered(self, manager_options):
        top = self.topology(manager_options=manager_options)
        top.network.run("server", "ip", "addr", "add", f"{self.STRANGER}/24", "dev", "eth0")
        top.up()
        listener = Listener(top.network, "client5", "eth0", 68)
        load = top.network.start_load("client5", "eth0", 200)
        self.offer(top, self.STRANGER, "192.168.5.1", space="server", relay="10.0.0.254")
        return top, listener, load

    def test_reaches_nobody_with_servers_only(self):
        top, listener, load = self.answered("--servers-only")
        self.assert_replies(top, "unknown-server")
        self.assert_silence(listener, top.network.stop_load(load))

    def test_is_taken_otherwise(self):
        top, listener, load = self.answered("")
        listener.wait_for(ATTACK)
        assert_all_answered(self, top.network.stop_load(load))
        self.assertEqual(top.counters()["replies"]["unknown-server"], 0)


class ForeignGiaddr(Attack):
    def asked(self, manager_options, **settings):
        top = self.topology(manager_options=manager_options)
        top.up(instance(relay_information=settings))
        listener = Listener(top.network, "server", "eth0", 67)
        self.request(top, "--giaddr", "10.9.9.9")
        return top, listener

    def test_is_dropped_where_asked_for(self):
        top, listener = self.asked("--drop-foreign-giaddr")
        self.assert_requests(top, "foreign-giaddr")
        self.assert_silence(listener, top.load(5, 100, 0.1))

    def test_passes_on_a_trusted_interface(self):
        top, listener = self.asked("--drop-foreign-giaddr", trusted=True)
        listener.wait_for(ATTACK)
        self.assertEqual(top.counters()["requests"]["foreign-giaddr"], 0)

    def test_passes_unless_asked_otherwise(self):
        top, listener = self.asked("")
        listener.wait_for(ATTACK)
        self.assertEqual(top.counters()["requests"]["foreign-giaddr"], 0)


class Headers(Attack):
    def test_with_a_wrong_checksum_are_malformed(self):
        top = self.topology()
        top.up()
        listener = Listener(top.network, "server", "eth0", 67)
        self.request(top, "--wrong-checksum")
        self.request(top, transaction=HARMLESS)
        listener.wait_for(HARMLESS)
        self.assert_requests(top, "malformed")
        self.assert_silence(listener, top.load(5, 100, 0.1))

    def test_to_the_broadcast_of_the_subnet_are_for_us(self):
        top = self.topology()
        # The kernel is told no broadcast address.
        top.network.run("relay", "ip", "addr", "del", "192.168.5.1/24", "dev", "vlan5")
        top.network.run("relay", "ip", "addr", "add", "192.168.5.1/24", "dev", "vlan5")
        top.up()
        listener = Listener(top.network, "server", "eth0", 67)
        self.request(top, "--to", "192.168.9.255")
        self.request(top, "--to", "192.168.5.255", transaction=HARMLESS)
        listener.wait_for(HARMLESS)
        wait_until(lambda: top.stack.show("counters")["other"]["not-for-us"] == TIMES, "the others are counted")
        self.assertNotIn(ATTACK, listener.heard())
