"""A relay with an interface for each combination of settings, two servers, and cases of one message each.

Every case has a transaction of its own. In the end each server and each client must have heard each message that was to
come out once, byte by byte, nobody anything else, and the counters must be what the cases demand.
"""

import collections
import json

from configuration import configuration, relay, server_list, interface_list
from dhcp_message import END, INFORMATION, Message, without_information
from operational_data import operational_data, shown_data
from processes import wait_until
from topology import SERVER, Topology, l3
from wire import CLIENT_PORT, SERVER_PORT, Server, Wire, datagram, frame

OTHER_SERVER = "10.0.1.1"
UPLINKS = {"server": "10.0.0.254", "server2": "10.0.1.254"}
PLAIN, CHECKED, KEPT, REPLACED, DROPPED, OFF = 5, 6, 7, 8, 9, 10  # VLANs by what their interfaces are set to
SECOND = 55  # the other prefix on VLAN 5
OVERRIDES = {
    CHECKED: {"option": True, "check": True},
    KEPT: {"option": True, "trusted": True, "policy": "keep"},
    REPLACED: {"option": True, "trusted": True, "policy": "replace"},
    DROPPED: {"option": True, "trusted": True, "policy": "drop"},
    OFF: {"option": False},
}


def us(number):
    """The relay's address in a VLAN."""
    return f"192.168.{number}.1"


class PacketCases(Topology):
    """The options of r1 are off but for overrides; that of r2 is on, and its override turns it off."""

    def __init__(self, test):
        super().__init__(test)
        self.test = test
        for number in OVERRIDES:
            self.add_clients(number)
        self.network.run("relay", "ip", "addr", "add", f"{us(SECOND)}/24", "brd", "+", "dev", "vlan5")
        self.network.join(("relay", "uplink2", "10.0.1.254/24"), ("server2", "eth0", f"{OTHER_SERVER}/24"))
        self.network.run("server2", "ip", "route", "add", "192.168.0.0/16", "via", "10.0.1.254")
        self.servers = {"server": Server(test, self.network, "server", SERVER),
                        "server2": Server(test, self.network, "server2", OTHER_SERVER)}
        self.wires = {name: Wire(test, self.network, name, "eth0", SERVER_PORT) for name in self.servers}
        self.clients = {number: Wire(test, self.network, f"client{number}", "eth0", CLIENT_PORT)
                        for number in (PLAIN, *OVERRIDES)}
        self.names = {}  # of the cases, by transaction
        self.expected = collections.defaultdict(list)  # (name of the case, message) by where it must be heard
        self.outcomes = collections.Counter()  # by interface, direction and outcome

    def up(self):
        links = {number: f"l3-{number}" for number in (PLAIN, SECOND, *OVERRIDES)}
        servers = server_list(SERVER, OTHER_SERVER)
        overrides = [{"name": links[number], "relay-information": settings} for number, settings in OVERRIDES.items()]
        self.stack.up(config=configuration(
            relay("r1", server=servers, interface=interface_list(*(links[number] for number in links if number != OFF)),
                  if_option=overrides[:-1]),
            relay("r2", server=servers, interface=interface_list(links[OFF]), if_option=overrides[-1:],
                  relay_information={"option": True}),
            l3=[l3(number) for number in links]))

    def mac(self, device):
        return bytes.fromhex(json.loads(self.network.run("relay", "ip", "-j", "link", "show", device).stdout)[0]
                             ["address"].replace(":", ""))

    def ours(self, number):
        """The relay agent information of an interface."""
        circuit, remote = f"l3-{number}:{number}".encode(), self.mac(f"vlan{number}")
        return (INFORMATION, bytes([1, len(circuit)]) + circuit + bytes([2, len(remote)]) + remote)

    def begin(self, name, message):
        """The message with the transaction of its case."""
        xid = 0x10000 + len(self.names)
        self.names[xid] = name
        return message.but(xid=xid)

    def ask(self, name, number, message, outcome="relayed", *, at=None, options=None, to=b"\xff" * 6, **header):
        """A request in a VLAN. `at` is the number of the interface that must take it, `options` those that the servers
        must get; outcome None stands for what the relay does not even count."""
        message = self.begin(name, message)
        at = at or number
        if outcome is not None:
            self.outcomes[f"l3-{at}", "requests", outcome] += 1
        if outcome == "relayed":
            giaddr = us(at) if message.giaddr == "0.0.0.0" else message.giaddr
            output = message.but(hops=message.hops + 1, giaddr=giaddr, options=options or message.options).bytes()
            for server in self.servers:
                self.expected[server].append((name, output))
        self.clients[number].send(frame(datagram(message.bytes(), **header), to=to))

    def ask_with_ours(self, name, number, message):
        """A request that the servers must get with the relay's own information."""
        kept = [option for option in without_information(message.options) if option != END]
        self.ask(name, number, message, options=kept + [self.ours(number), END])

    def reply(self, name, number, message, outcome="relayed", *, server="server", output=None):
        """A reply to an interface; `output` is what the client must get if not the message as it is."""
        message = self.begin(name, message.but(giaddr=us(number)))
        self.outcomes[f"l3-{number}", "replies", outcome] += 1
        if outcome == "relayed":
            self.expected[number].append((name, output(message) if output else message.bytes()))
        self.servers[server].send(message.bytes(), UPLINKS[server])

    def reply_frame(self, name, number, message, outcome=None, **header):
        """A reply of the server whose headers are made here."""
        message = self.begin(name, message.but(giaddr=us(number)))
        if outcome == "relayed":
            self.outcomes[f"l3-{number}", "replies", outcome] += 1
            self.expected[number].append((name, message.bytes()))
        packet = datagram(message.bytes(), source=SERVER, target=UPLINKS["server"], source_port=SERVER_PORT, **header)
        self.wires["server"].send(frame(packet, to=self.mac("uplink")))

    def heard(self, wire):
        return sorted((self.names.get(found.xid, f"{found.xid:08x}"), found.message.hex()) for found in wire.heard())

    def check(self):
        """Compares all that was heard, when the last message to everyone has come: none overtakes another."""
        everywhere = {**self.wires, **self.clients}
        last = {place: self._last(place) for place in everywhere}
        for place, wire in everywhere.items():
            wire.wait_for(last[place])
        for place, wire in everywhere.items():
            expected = sorted((name, message.hex()) for name, message in self.expected[place])
            self.test.assertEqual(self.heard(wire), expected, place)
        self._check_counters()

    def _last(self, place):
        """Sends the last message to a client or a server; its transaction."""
        name = f"the last to {place}"
        if place in self.wires:
            self.ask(name, PLAIN, Message())
        elif place == CHECKED:
            rest = [(43, bytes(100)), END]
            self.reply(name, CHECKED, Message(op=2, options=[self.ours(CHECKED)] + rest),
                       output=lambda message: message.but(options=rest).bytes())
        else:
            self.reply(name, place, Message(op=2))
        return list(self.names)[-1]

    def _check_counters(self):
        found = collections.Counter()
        for interface in self.stack.show("counters")["interfaces"]:
            for direction in ("requests", "replies"):
                counts = interface[direction]
                self.test.assertEqual(counts.pop("received"), sum(counts.values()))
                found.update({(interface["name"], direction, outcome): count for outcome, count in counts.items()})
        self.test.assertEqual(+found, self.outcomes)
        asked = sum(count for (_, direction, outcome), count in found.items()
                    if (direction, outcome) == ("requests", "relayed"))
        servers = collections.Counter()
        for server in self.stack.show("servers")["servers"]:
            servers[server["address"]] += server["sent"]
        self.test.assertEqual(servers, {SERVER: asked, OTHER_SERVER: asked})
        wait_until(lambda: operational_data(self.stack), "operational data is served")
        self.test.assertEqual(operational_data(self.stack), shown_data(self.stack))
