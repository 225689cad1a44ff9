"""Many interfaces of the relay that go down and up together: macvlan devices on one end of a veth pair."""

import subprocess

from topology import instance, l3

FIRST = 1000  # the first interface's number
VLANS = 4094


class Trunk:
    def __init__(self, network, size):
        self.network = network
        self.size = size
        self.numbers = range(FIRST, FIRST + size)
        lines = ["link add trunk type veth peer name trunk-end", "link set trunk-end up", "link set trunk up"]
        for number in self.numbers:
            lines += [f"link add link trunk name m{number} type macvlan mode bridge",
                      f"addr add {self.address(number)}/24 dev m{number}", f"link set m{number} up"]
        subprocess.run(["ip", "-n", network.namespace("relay"), "-batch", "-"], input="\n".join(lines), text=True,
                       check=True, capture_output=True)

    @staticmethod
    def address(number):
        return f"172.{16 + number // 256}.{number % 256}.1"

    def instances(self):
        """The usual instance, and one with the trunk's interfaces."""
        return instance(), instance("trunk", interfaces=[f"l3-{number}" for number in self.numbers])

    def l3(self):
        return [l3(5), *((str(number), number % VLANS + 1, f"{self.address(number)}/24") for number in self.numbers)]

    def flap(self):
        for state in ("down", "up"):
            self.network.run("relay", "ip", "link", "set", "trunk", state)
