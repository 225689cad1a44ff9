"""A stack between clients and a server: the network that most packet tests need.

    client5 eth0 ──── vlan5 192.168.5.1 ┐ relay ┌ uplink 10.0.0.254 ──── eth0 10.0.0.1 server

The configuration has it as the layer-3 interface 5 (l3-5) of the instance r1. More clients get VLANs of their own.
"""

from configuration import configuration, interface_list, relay, server_list
from network import Network
from stack import Stack

SERVER = "10.0.0.1"


def dhcp_range(number):
    """The addresses that a server gives to the clients of VLAN `number`."""
    return f"192.168.{number}.10,192.168.{number}.200,255.255.255.0"


def instance(name="r1", servers=(SERVER,), interfaces=("l3-5",), **more):
    return relay(name, server=server_list(*servers), interface=interface_list(*interfaces), **more)


def l3(number):
    """The layer-3 interface of VLAN `number`."""
    return (str(number), number, f"192.168.{number}.1/24")


class Topology:
    """The network above with its stack; call up() to start the stack."""

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

    def lease(self, number=5, *arguments, **more):
        return self.network.client(f"client{number}", "eth0", *arguments, **more)

    def load(self, number, rate, seconds):
        """Clients of VLAN `number` that ask at that rate; what they sent and what was answered."""
        return self.network.load(f"client{number}", "eth0", rate, seconds)

    def counters(self, interface="l3-5"):
        return next(entry for entry in self.stack.show("counters")["interfaces"] if entry["name"] == interface)

    def server_log(self):
        return self.network.log("dnsmasq-server.log")


def total(counts):
    """The sum of all outcomes; equal to the messages received."""
    return sum(value for name, value in counts.items() if name != "received")


def assert_all_answered(test, found):
    """`found` is what a load of clients reports."""
    test.assertGreater(found["sent"], 0)
    test.assertEqual(found["answered"], found["sent"])
