"""Packets through the relay: real clients and real servers, in network namespaces."""

import pathlib
import re
import unittest

from network import Network
from stack import Stack, configuration, relay, wait_until

RANGE = "192.168.{0}.10,192.168.{0}.200,255.255.255.0"
SERVER = "10.0.0.1"


def instance(name="r1", servers=(SERVER,), interfaces=("l3-5",), **more):
    return relay(name, server={"ipv4": [{"address": server} for server in servers]},
                 interface=[{"name": interface} for interface in interfaces], **more)


def l3(number, address=None):
    return (str(number), number, address or f"192.168.{number}.1/24")


class Topology:
    """Clients and a server with the relay between them; its client side is VLAN 5, 192.168.5.1."""

    def __init__(self, test, manager_options=""):
        self.network = Network(test)
        self.add_clients(5)
        self.network.join(("relay", "uplink", "10.0.0.254/24"), ("server", "eth0", f"{SERVER}/24"))
        self.network.run("server", "ip", "route", "add", "192.168.0.0/16", "via", "10.0.0.254")
        self.stack = Stack(test, self.network.prefix("relay"), manager_options)

    def add_clients(self, number):
        self.network.join((f"client{number}", "eth0", None), ("relay", f"vlan{number}", f"192.168.{number}.1/24"))

    def up(self, *instances, interfaces=(l3(5),), vrfs=None):
        self.stack.up(config=configuration(*(instances or (instance(),)), l3=interfaces, vrfs=vrfs))

    def lease(self, number=5, *arguments):
        return self.network.client(f"client{number}", "eth0", *arguments)

    def counters(self, interface="l3-5"):
        return next(entry for entry in self.stack.show("counters")["interfaces"] if entry["name"] == interface)


def total(counts):
    """What became of the messages; equal to those received."""
    return sum(value for name, value in counts.items() if name != "received")


class Lease(unittest.TestCase):
    def test_comes_from_dnsmasq(self):
        top = Topology(self)
        top.network.dnsmasq("server", RANGE.format(5))
        top.up()
        lease = top.lease()
        self.assertIsNotNone(lease, top.network.log("dnsmasq-server.log"))
        self.assertRegex(lease[0], r"^192\.168\.5\.")
        self.assertEqual(lease[2], SERVER)

    def test_comes_from_kea(self):
        top = Topology(self)
        top.network.kea("server", "eth0", ("192.168.5.0/24", "192.168.5.10", "192.168.5.200"))
        top.up(instance(relay_information={"option": True, "check": True}))
        lease = top.lease()
        self.assertIsNotNone(lease, top.network.log("kea-server.log"))
        self.assertRegex(lease[0], r"^192\.168\.5\.")

    def test_comes_with_the_relay_information_added_checked_and_taken_out(self):
        top = Topology(self)
        top.network.dnsmasq("server", RANGE.format(5), arguments=("--dhcp-circuitid=set:ours,l3-5:5",
                                                                  "--dhcp-option=tag:ours,option:domain-name,ours"))
        top.up(instance(relay_information={"option": True, "check": True}))
        self.assertIsNotNone(top.lease())
        self.assertRegex(top.network.log("dnsmasq-server.log"), r"tags: .*\bours\b")
        counters = top.counters()
        self.assertEqual(counters["replies"]["relayed"], counters["replies"]["received"])
        self.assertGreaterEqual(counters["replies"]["received"], 2)

    def test_comes_by_broadcast_to_a_client_that_asks_for_it(self):
        top = Topology(self)
        top.network.dnsmasq("server", RANGE.format(5))
        top.up()
        self.assertIsNotNone(top.lease(5, "-B"))

    def test_comes_from_each_instances_own_server(self):
        top = Topology(self)
        top.add_clients(6)
        top.network.join(("relay", "uplink2", "10.0.1.254/24"), ("server2", "eth0", "10.0.1.1/24"))
        top.network.run("server2", "ip", "route", "add", "192.168.0.0/16", "via", "10.0.1.254")
        for server in ("server", "server2"):
            top.network.dnsmasq(server, RANGE.format(5), RANGE.format(6))
        top.up(instance(), instance("r2", servers=["10.0.1.1"], interfaces=["l3-6"]), interfaces=[l3(5), l3(6)])
        self.assertEqual(top.lease(5)[2], SERVER)
        self.assertEqual(top.lease(6)[2], "10.0.1.1")

    def test_request_goes_to_every_server(self):
        top = Topology(self)
        top.network.run("server", "ip", "addr", "add", "10.0.0.2/24", "dev", "eth0")
        top.network.dnsmasq("server", RANGE.format(5))
        top.up(instance(servers=[SERVER, "10.0.0.2", "10.0.0.77"]))
        self.assertIsNotNone(top.lease())
        sent = {server["address"]: server["sent"] for server in top.stack.show("servers")["servers"]}
        self.assertEqual(set(sent), {SERVER, "10.0.0.2", "10.0.0.77"})
        self.assertEqual(len(set(sent.values())), 1)
        self.assertEqual(sent[SERVER], top.counters()["requests"]["relayed"])

    def test_is_not_to_be_had_without_an_instance_and_is_once_a_commit_makes_one(self):
        top = Topology(self)
        top.network.dnsmasq("server", RANGE.format(5))
        top.up(relay("other"))
        self.assertIsNone(top.network.client("client5", "eth0", tries=1))
        top.stack.edit(configuration(instance(), l3=[l3(5)]))
        self.assertIsNotNone(top.lease())

    def test_renewal_that_goes_past_the_relay_is_only_forwarded(self):
        top = Topology(self)
        top.network.run("relay", "sysctl", "-qw", "net.ipv4.ip_forward=1")
        top.network.dnsmasq("server", RANGE.format(5))
        top.up()
        lease = top.lease()
        self.assertIsNotNone(lease)
        before = top.counters()["requests"]["received"]
        # As a client renews: from its address to the server's, through the relay's device as through any router.
        top.network.run("client5", "python3", "-c", RENEWAL, lease[0], SERVER)
        wait_until(lambda: top.stack.show("counters")["other"]["not-for-us"] == 1, "it was seen passing")
        self.assertEqual(top.counters()["requests"]["received"], before)


RENEWAL = """
import socket, sys
client = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
client.bind((sys.argv[1], 68))
client.sendto(bytes([1, 1, 6, 0]) + bytes(232) + bytes([99, 130, 83, 99, 53, 1, 3, 255]), (sys.argv[2], 67))
"""


class Change(unittest.TestCase):
    """The configuration and the network change, and service goes on or resumes by itself."""

    def served(self, top, number=5):
        self.assertIsNotNone(top.lease(number), top.network.log("dnsmasq-server.log"))

    def test_of_the_server_while_others_are_served(self):
        top = Topology(self)
        top.add_clients(6)
        top.network.run("server", "ip", "addr", "add", "10.0.0.2/24", "dev", "eth0")
        top.network.answer("server")
        top.up(instance(), instance("r2", interfaces=["l3-6"]), interfaces=[l3(5), l3(6)])
        load = top.network.start_load("client6", "eth0", 500)
        top.stack.replace(configuration(instance(servers=["10.0.0.2"]), instance("r2", interfaces=["l3-6"]),
                                        l3=[l3(5), l3(6)]))
        found = top.network.load("client5", "eth0", 100, 0.1)
        self.assertEqual(found["answered"], found["sent"])
        sent = {entry["address"]: entry["sent"] for entry in top.stack.show("servers")["servers"]
                if entry["instance"] == "r1"}
        self.assertEqual(sent, {"10.0.0.2": found["sent"]})
        found = top.network.stop_load(load)
        self.assertEqual(found["answered"], found["sent"])

    def test_of_vlan_and_address_while_clients_renew(self):
        top = Topology(self)
        top.network.run("relay", "ip", "addr", "add", "192.168.55.1/24", "brd", "+", "dev", "vlan5")
        top.network.dnsmasq("server", RANGE.format(5), RANGE.format(55))
        top.up(instance(relay_information={"option": True, "check": True}))
        process, leases = top.network.start_client("client5", "eth0")
        wait_until(lambda: leases.exists() and "192.168.5." in leases.read_text(), "a lease of the old address is there")
        top.stack.edit(configuration(l3=[("5", 50, "192.168.55.1/24")]))
        wait_until(lambda: top.stack.show("interfaces")["interfaces"][0]["address"] == "192.168.55.1", "it is in force")
        process.send_signal(12)  # SIGUSR2 gives the lease back
        process.send_signal(10)
        wait_until(lambda: "192.168.55." in leases.read_text(), "a lease of the new address is there")
        self.assertEqual(top.stack.show("interfaces")["interfaces"][0]["vlan"], 50)

    def test_interface_appears_late(self):
        top = Topology(self)
        top.network.dnsmasq("server", RANGE.format(5), RANGE.format(6))
        top.up(instance(interfaces=["l3-5", "l3-6"]), interfaces=[l3(5), l3(6)])
        top.stack.wait_state("l3-6", "missing")
        self.served(top)
        top.add_clients(6)
        top.stack.wait_state("l3-6", "up")
        self.served(top, 6)

    def test_interface_goes_down_and_comes_back(self):
        top = Topology(self)
        top.network.dnsmasq("server", RANGE.format(5))
        top.up()
        top.network.run("relay", "ip", "link", "set", "vlan5", "down")
        top.stack.wait_state("l3-5", "down")
        top.network.run("relay", "ip", "link", "set", "vlan5", "up")
        top.stack.wait_state("l3-5", "up")
        self.served(top)

    def test_interface_is_removed_and_made_again(self):
        top = Topology(self)
        top.network.dnsmasq("server", RANGE.format(5))
        top.up()
        self.served(top)
        top.network.run("relay", "ip", "link", "del", "vlan5")
        top.stack.wait_state("l3-5", "missing")
        top.add_clients(5)
        top.stack.wait_state("l3-5", "up")
        self.served(top)

    def test_interface_is_renamed(self):
        top = Topology(self)
        top.network.dnsmasq("server", RANGE.format(5))
        top.up()
        for command in (("down",), ("name", "renamed"), ("up",)):
            top.network.run("relay", "ip", "link", "set", "renamed" if command == ("up",) else "vlan5", *command)
        wait_until(lambda: top.stack.show("interfaces")["interfaces"][0]["link"] == "renamed", "it is seen")
        self.served(top)

    def test_address_moves_to_another_interface(self):
        top = Topology(self)
        top.add_clients(6)
        top.network.dnsmasq("server", RANGE.format(5))
        top.up()
        top.network.run("relay", "ip", "addr", "del", "192.168.5.1/24", "dev", "vlan5")
        top.stack.wait_state("l3-5", "missing")
        top.network.run("relay", "ip", "addr", "add", "192.168.5.1/24", "dev", "vlan6")
        top.stack.wait_state("l3-5", "up")
        self.served(top, 6)

    def test_secondary_address_never_becomes_giaddr(self):
        top = Topology(self)
        for extra in ("192.168.66.1/24", "192.168.5.99/24"):
            top.network.run("relay", "ip", "addr", "add", extra, "dev", "vlan5")
        log = top.network.dnsmasq("server", RANGE.format(5), RANGE.format(66)) and "dnsmasq-server.log"
        top.up()
        self.served(top)
        self.assertNotIn("192.168.66.1", top.network.log(log).replace("192.168.66.10", ""))

    def test_server_is_unreachable_and_comes_back(self):
        top = Topology(self)
        top.network.dnsmasq("server", RANGE.format(5))
        top.up()
        top.network.run("relay", "ip", "link", "set", "uplink", "down")
        self.assertIsNone(top.network.client("client5", "eth0", tries=1))
        counters = top.counters()["requests"]
        self.assertEqual(counters["send-failed"], counters["received"])
        top.network.run("relay", "ip", "link", "set", "uplink", "up")
        top.network.wait_up("relay", "uplink")
        self.served(top)

    def test_many_commits_for_one_instance_lose_no_packet_of_another(self):
        top = Topology(self)
        top.network.answer("server")
        top.up(instance(), relay("busy"))
        load = top.network.start_load("client5", "eth0", 5000)
        program = "import json, subprocess, sys\n" + COMMITS
        top.stack.tool("python3", "-c", program, "busy", "200")
        found = top.network.stop_load(load)
        self.assertEqual(found["answered"], found["sent"])
        self.assertGreater(found["sent"], 0)


COMMITS = """
for number in range(int(sys.argv[2])):
    subprocess.run(["sysrepocfg", "--edit", "-d", "running", "-f", "json"], check=True, text=True, input=json.dumps(
        {"vx-config:config": {"vx-dhcp-relay:dhcp": {"relay": [{"name": sys.argv[1], "relay-information": {
            "check": number % 2 == 0}, "server": {"ipv4": [{"address": f"10.9.{number // 250}.{number % 250 + 1}"}]}}]}}}))
"""


class Restart(unittest.TestCase):
    def test_of_the_daemon_under_load_loses_no_packet(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        load = top.network.start_load("client5", "eth0", 5000)
        top.stack.kill("daemon")
        top.stack.start("daemon")
        top.stack.wait_in_sync()
        found = top.network.stop_load(load)
        self.assertEqual(found["answered"], found["sent"])
        self.assertGreater(found["sent"], 0)

    def test_of_the_manager_brings_service_back(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        top.stack.kill("manager")
        found = top.network.load("client5", "eth0", 100, 0.1)
        self.assertEqual(found["answered"], 0)
        top.stack.start("manager")
        top.stack.wait_in_sync()
        top.stack.wait_state("l3-5", "up")
        found = top.network.load("client5", "eth0", 1000, 0.5)
        self.assertEqual(found["answered"], found["sent"])


class OtherRelays(unittest.TestCase):
    """A relay of another make stands in front of ours, so that giaddr is not zero."""

    def topology(self, **settings):
        top = Topology(self)
        network = top.network
        network.join(("inner", "near", "192.168.5.2/24"), ("relay", "inner", None))
        # The inner relay is a host of VLAN 5: a bridge has its device and the clients'.
        network.run("relay", "ip", "addr", "del", "192.168.5.1/24", "dev", "vlan5")
        network.run("relay", "ip", "link", "add", "br5", "type", "bridge")
        for device in ("vlan5", "inner"):
            network.run("relay", "ip", "link", "set", device, "master", "br5")
        network.run("relay", "ip", "addr", "add", "192.168.5.1/24", "brd", "+", "dev", "br5")
        network.run("relay", "ip", "link", "set", "br5", "up")
        network.join(("far", "eth0", None), ("inner", "away", "192.168.9.1/24"))
        network.run("inner", "ip", "route", "add", "default", "via", "192.168.5.1")
        network.run("inner", "sysctl", "-qw", "net.ipv4.ip_forward=1")
        network.run("relay", "sysctl", "-qw", "net.ipv4.ip_forward=1")
        network.run("relay", "ip", "route", "add", "192.168.9.0/24", "via", "192.168.5.2")
        network.wait_up("relay", "br5")
        top.up(instance(relay_information=settings))
        network.isc_relay("inner", "away", "near", "192.168.5.1")
        return top

    def test_request_of_a_relay_goes_on_with_its_giaddr_and_its_information(self):
        top = self.topology(option=True, policy="keep")
        top.network.dnsmasq("server", RANGE.format(9), arguments=("--dhcp-circuitid=set:inner,away",))
        lease = top.network.client("far", "eth0")
        self.assertIsNotNone(lease, top.network.log("dnsmasq-server.log"))
        self.assertRegex(lease[0], r"^192\.168\.9\.")
        self.assertRegex(top.network.log("dnsmasq-server.log"), r"tags: .*\binner\b")
        self.assertGreaterEqual(top.counters()["requests"]["relayed"], 2)

    def test_request_of_a_relay_is_dropped_by_policy(self):
        top = self.topology(option=True, policy="drop")
        top.network.dnsmasq("server", RANGE.format(9))
        self.assertIsNone(top.network.client("far", "eth0", tries=1))
        counters = top.counters()["requests"]
        self.assertEqual(counters["policy-drop"], counters["received"])
        self.assertGreaterEqual(counters["received"], 1)

    def test_perfdhcp_is_answered_on_the_same_road(self):
        top = Topology(self)
        top.network.run("client5", "ip", "addr", "add", "192.168.5.2/24", "dev", "eth0")
        top.network.run("client5", "ip", "route", "add", "default", "via", "192.168.5.1")
        top.network.run("relay", "sysctl", "-qw", "net.ipv4.ip_forward=1")
        top.network.kea("server", "eth0", ("192.168.5.0/24", "192.168.5.10", "192.168.5.250"))
        top.up()
        # It plays a relay: its giaddr is its own address, and the server answers it directly.
        result = top.network.run("client5", "perfdhcp", "-4", "-l", "192.168.5.2", "-r", "250", "-R", "200", "-n", "500",
                                 "-W", "3000000", "192.168.5.1", check=False)
        exchanges = re.findall(r"sent packets: (\d+)\s+received packets: (\d+)", result.stdout)
        self.assertEqual(len(exchanges), 2, result.stdout + result.stderr)
        for sent, received in exchanges:
            self.assertEqual((sent, received), ("500", "500"), result.stdout)
        self.assertEqual(top.counters()["requests"]["relayed"], 1000)


class RoutingDomain(unittest.TestCase):
    def test_stands_apart_by_its_device(self):
        """A veth stands for the VRF's device: clients and server are both behind it."""
        top = Topology(self, manager_options="--vrf-device 7=red")
        top.network.join(("client7", "eth0", "10.7.0.1/24"), ("relay", "red", "192.168.7.1/24"))
        top.network.run("relay", "ip", "addr", "add", "10.7.0.254/24", "dev", "red")
        top.network.run("client7", "ip", "route", "add", "192.168.7.1/32", "via", "10.7.0.254")
        top.network.answer("client7")
        top.up(instance("r7", servers=["10.7.0.1"], interfaces=["l3-7"], vrf="red"), interfaces=[l3(7)], vrfs={"red": 7})
        self.assertEqual([(entry["name"], entry["vrf_device"]) for entry in top.stack.show("instances")["instances"]],
                         [("r7", "red")])
        found = top.network.load("client7", "eth0", 100, 0.2)
        self.assertEqual((found["answered"], found["sent"]), (20, 20))

    def test_without_a_device_relays_nothing_and_says_so(self):
        top = Topology(self)
        top.up(instance(vrf="red"), vrfs={"red": 7})
        self.assertEqual(top.stack.show("interfaces")["interfaces"][0]["state"], "no-vrf")
        self.assertTrue(top.stack.show("instances")["instances"][0]["vrf_missing"])
        found = top.network.load("client5", "eth0", 100, 0.05)
        self.assertEqual(found["answered"], 0)

    def test_of_a_client_is_not_that_of_an_instance_without_vrf(self):
        top = Topology(self, manager_options="--vrf-device 7=vlan5")
        top.network.answer("server")
        top.up()
        self.assertEqual(top.stack.show("interfaces")["interfaces"][0]["state"], "missing")


class FloodGuard(unittest.TestCase):
    def test_limits_each_interface_by_itself(self):
        top = Topology(self, manager_options="--flood-guard 1:10")
        top.add_clients(6)
        top.network.answer("server")
        top.up(instance(interfaces=["l3-5", "l3-6"]), interfaces=[l3(5), l3(6)])
        flooded = top.network.load("client5", "eth0", 1000, 0.2)
        calm = top.network.load("client6", "eth0", 20, 0.2)
        self.assertEqual(calm["answered"], calm["sent"])
        requests = top.counters()["requests"]
        self.assertEqual(requests["received"], flooded["sent"])
        self.assertEqual(total(requests), flooded["sent"])
        self.assertGreaterEqual(requests["relayed"], 10)
        self.assertGreaterEqual(requests["flood"], flooded["sent"] - 10 - 60)

    def test_is_off_unless_asked_for(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        found = top.network.load("client5", "eth0", 5000, 0.4)
        self.assertEqual(found["answered"], found["sent"])


class Counters(unittest.TestCase):
    def test_add_up_and_are_the_same_everywhere(self):
        top = Topology(self)
        top.network.answer("server")
        top.up(instance(servers=[SERVER, "10.0.0.66"], relay_information={"option": True, "check": True}))
        found = top.network.load("client5", "eth0", 2000, 0.5)
        self.assertEqual(found["answered"], found["sent"])
        counters = top.counters()
        for direction in ("requests", "replies"):
            self.assertEqual(counters[direction]["received"], 1000)
            self.assertEqual(total(counters[direction]), 1000)
            self.assertEqual(counters[direction]["relayed"], 1000)
        self.assertEqual(top.stack.show("counters")["received"], 2000)
        wait_until(lambda: "dhcp-relay-state" in self.operational(top), "operational data is served")
        state = self.operational(top)
        self.assertEqual(re.findall(r'"received": "(\d+)"', state), ["1000", "1000", "0"])
        self.assertEqual(re.findall(r'"sent": "(\d+)"', state), ["1000", "1000"])
        self.assertEqual(re.findall(r'"state": "([a-z-]+)"', state), ["up"])

    @staticmethod
    def operational(top):
        return top.stack.tool("sysrepocfg", "-X", "-d", "operational", "-f", "json", "-x",
                              "/vx-dhcp-relay-state:dhcp-relay-state").stdout

    def test_tell_replies_that_are_for_nobody_here(self):
        top = Topology(self)
        top.up()
        top.stack.wait_state("l3-5", "up")
        for giaddr, size in (("192.168.77.1", 300), ("10.0.0.254", 300), ("192.168.5.1", 20)):
            top.network.run("server", "python3", "-c", REPLY, giaddr, str(size))
        wait_until(lambda: top.stack.show("counters")["other"]["received"] == 3, "they came")
        other = top.stack.show("counters")["other"]
        self.assertEqual((other["unknown-giaddr"], other["malformed"]), (2, 1))
        self.assertEqual(top.counters()["replies"]["received"], 0)

    def test_tell_a_request_on_an_interface_that_relays_for_nobody(self):
        top = Topology(self)
        top.add_clients(6)
        top.up()
        top.network.load("client6", "eth0", 100, 0.1)
        self.assertEqual(top.stack.show("counters")["other"]["no-interface"], 10)

    def test_can_be_cleared(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        top.network.load("client5", "eth0", 100, 0.1)
        top.stack.tool("dhcp-relayctl", "clear", "counters")
        self.assertEqual(top.stack.show("counters")["received"], 0)

    def test_cannot_be_cleared_by_another_user(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        top.network.load("client5", "eth0", 100, 0.1)
        top.stack.directory.chmod(0o755)
        result = top.stack.tool("setpriv", "--reuid", "nobody", "--clear-groups", "dhcp-relayctl", "clear", "counters",
                                check=False)
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertEqual(top.counters()["requests"]["received"], 10)

    def test_go_with_the_interface(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        top.network.load("client5", "eth0", 100, 0.1)
        top.stack.replace(configuration(instance(interfaces=[]), l3=[l3(5)]))
        wait_until(lambda: top.stack.show("counters")["interfaces"] == [], "they are gone")
        top.stack.replace(configuration(instance(), l3=[l3(5)]))
        wait_until(lambda: top.stack.show("counters")["interfaces"] != [], "they are new")
        self.assertEqual(top.counters()["requests"]["received"], 0)


REPLY = """
import socket, sys
server = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
message = bytes([2, 1, 6, 0]) + bytes(20) + socket.inet_aton(sys.argv[1]) + bytes(208) + bytes([99, 130, 83, 99, 255])
server.sendto(message.ljust(300, bytes(1))[:int(sys.argv[2])], ("10.0.0.254", 67))
"""


class Privileges(unittest.TestCase):
    def test_are_two_and_no_more_to_be_had(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        status = dict(line.split(":\t", 1) for line in
                      pathlib.Path(f"/proc/{top.stack.pid('manager')}/status").read_text().splitlines())
        self.assertNotIn("0", status["Uid"].split())
        self.assertNotIn("0", status["Gid"].split())
        self.assertEqual(status["Groups"].strip(), "")
        two = f"{(1 << 13) | (1 << 10):016x}"  # CAP_NET_RAW, CAP_NET_BIND_SERVICE
        self.assertEqual((status["CapPrm"], status["CapEff"]), (two, two))
        for name in ("CapInh", "CapBnd", "CapAmb"):
            self.assertEqual(int(status[name], 16), 0, name)
        self.assertEqual(status["NoNewPrivs"], "1")
        found = top.network.load("client5", "eth0", 100, 0.1)
        self.assertEqual(found["answered"], found["sent"])

    def test_suffice_for_sockets_that_are_opened_later(self):
        top = Topology(self)
        top.network.answer("server")
        top.up(relay("none"))
        top.stack.edit(configuration(instance(), l3=[l3(5)]))
        top.stack.wait_state("l3-5", "up")
        found = top.network.load("client5", "eth0", 100, 0.1)
        self.assertEqual(found["answered"], found["sent"])
