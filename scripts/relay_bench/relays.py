"""The relays under comparison, in network namespaces between a generator of requests and a server that answers all."""

import contextlib
import json
import pathlib
import subprocess
import sys

from relay_bench import processor

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "tests" / "e2e" / "support"), str(ROOT / "tests" / "support")]

# The path to these had to be set first.
from configuration import configuration, interface_list, relay, server_list  # noqa: E402
from network import Network  # noqa: E402
from paths import BIN  # noqa: E402
from processes import wait_until  # noqa: E402
from stack import Stack  # noqa: E402

CLIENT_SIDE = "192.168.5.1"
SERVER = "10.0.0.1"
MOST_INTERFACES = 4094
WARM_UP = 0.3  # seconds


class Cleanups(contextlib.ExitStack):
    addCleanup = contextlib.ExitStack.callback


class Bench:
    def __init__(self, cleanups, seconds, whole_runs=False):
        self.cleanups = cleanups
        self.seconds = seconds
        self.network = Network(cleanups, whole_runs)
        self.network.join(("client", "eth0", None), ("relay", "vlan5", f"{CLIENT_SIDE}/24"))
        self.network.join(("relay", "uplink", "10.0.0.254/24"), ("server", "eth0", f"{SERVER}/24"))
        self.network.run("server", "ip", "route", "add", "192.168.0.0/16", "via", "10.0.0.254")
        self.network.answer("server")

    # Each of these gives the relay's process id while it runs.

    @contextlib.contextmanager
    def program(self, *command):
        process = self.network.start("relay", *command)
        try:
            self.network.wait_listening("relay", 67, process)
            yield process.pid  # `ip netns exec` has become the program by now
        finally:
            self.network.stop(process)

    def bare(self, wait_us=0):
        return self.program(BIN / "bare_relay", "vlan5", CLIENT_SIDE, SERVER, wait_us)

    def isc(self):
        return self.program("dhcrelay", "-4", "-d", "-q", "-a", "-pf", self.network.directory / "dhcrelay.pid", "-id",
                            "vlan5", "-iu", "uplink", SERVER)

    def dnsmasq(self):
        return self.program("dnsmasq", "--no-daemon", "--conf-file=/dev/null", "--port=0", "--user=root",
                            f"--dhcp-relay={CLIENT_SIDE},{SERVER}",
                            f"--pid-file={self.network.directory}/dnsmasq.pid")

    @contextlib.contextmanager
    def ours(self, interfaces=1):
        with self.stack(interfaces) as stack:
            yield stack.pid("manager")

    @contextlib.contextmanager
    def stack(self, interfaces):
        stack = Stack(self.cleanups, self.network.prefix("relay"))
        numbers = [5] + [number for number in range(1, MOST_INTERFACES + 1) if number != 5][:interfaces - 1]
        addresses = {number: CLIENT_SIDE if number == 5 else f"172.{16 + number // 256}.{number % 256}.1"
                     for number in numbers}
        add_addresses(self.network, [address for number, address in addresses.items() if number != 5])
        stack.up(config=configuration(
            relay("bench", server=server_list(SERVER), relay_information={"option": True},
                  interface=interface_list(*(f"l3-{number}" for number in numbers))),
            l3=[(str(number), number, f"{address}/24") for number, address in addresses.items()]))
        try:
            wait_until(lambda: all(interface["state"] == "up" for interface in stack.show("interfaces")["interfaces"]),
                       "all are up")
            yield stack
        finally:
            stack.script("down")
            remove_addresses(self.network)

    def load(self, pid, rate, seconds=None):
        """What became of that load; "cpu" is the relay's processor time per round trip, "machine" everybody's."""
        relay_before, machine_before = processor.of_process(pid), processor.of_machine()
        output = self.network.run("client", BIN / "relay_load", "eth0", rate, seconds or self.seconds).stdout
        relay_spent = processor.of_process(pid) - relay_before
        machine_spent = processor.of_machine() - machine_before
        result = json.loads(output)
        round_trips = max(result["answered"], 1)
        return result | {"share": result["answered"] / result["sent"], "rate": result["sent"] / result["seconds"],
                         "cpu": relay_spent / round_trips, "machine": machine_spent / round_trips}

    def warm_load(self, pid, rate):
        self.load(pid, rate, WARM_UP)
        return self.load(pid, rate)


def batch(network, lines):
    subprocess.run(["ip", "-n", network.namespace("relay"), "-batch", "-"], input="\n".join(lines), text=True,
                   check=True)


def add_addresses(network, addresses):
    """On an interface that is up but that nothing is connected to."""
    if not addresses:
        return
    batch(network, ["link add spare type veth peer name spare-end", "link set spare up", "link set spare-end up",
                    *(f"addr add {address}/24 dev spare" for address in addresses)])
    network.wait_up("relay", "spare")


def remove_addresses(network):
    network.run("relay", "ip", "link", "del", "spare", check=False)
