"""Requests and replies one by one: each comes out once at every server or at its client, or nowhere, and is counted."""

import unittest

from dhcp_message import CLIENT_ID, END, INFORMATION, Message
from packet_cases import CHECKED, DROPPED, KEPT, OFF, PLAIN, REPLACED, SECOND, PacketCases, us

KINDS = {"DISCOVER": 1, "REQUEST": 3, "DECLINE": 4, "RELEASE": 7, "INFORM": 8, "unknown type": 99}
ANSWERS = {"OFFER": 2, "ACK": 5, "NAK": 6, "unknown type": 99}
BOOTP = {"cookie": b"", "options": [bytes(64)]}
LONG = [(43, bytes(range(255))), (125, bytes(255)), (67, b"f" * 255), (17, b"r" * 200)]
ODD_INFORMATION = {"without circuit-id": (INFORMATION, b"\2\4away"), "truncated sub-option": (INFORMATION, b"\1\11ab"),
                   "sub-option without length": (INFORMATION, b"\1")}
BEYOND = bytes([INFORMATION, 200, 1, 4])  # reaches beyond the message


def of_kind(number, **fields):
    return Message(options=[(53, bytes([number])), CLIENT_ID, END], **fields)


def with_information(*information, **fields):
    return Message(options=[(53, bytes([1])), *information, END], **fields)


class Cases(unittest.TestCase):
    def setUp(self):
        self.cases = PacketCases(self)
        self.cases.up()


class Requests(Cases):
    def test_come_out_once_at_each_server_or_nowhere(self):
        self.kinds()
        self.headers()
        self.information()
        self.giaddr_and_hops()
        self.addresses()
        self.cases.check()

    def kinds(self):
        for name, number in KINDS.items():
            self.cases.ask(name, PLAIN, of_kind(number))
            self.cases.ask(f"{name} from port 1068", PLAIN, of_kind(number), source_port=1068)
            self.cases.ask_with_ours(f"{name} with the option of an override", CHECKED, of_kind(number))
            self.cases.ask(f"{name} without it", OFF, of_kind(number))
        for number in (PLAIN, CHECKED):
            self.cases.ask(f"plain BOOTP in VLAN {number}", number, Message(**BOOTP))

    def headers(self):
        message = Message()
        mac = self.cases.mac("vlan5")
        self.cases.ask("unicast to the relay's MAC", PLAIN, message, to=mac)
        self.cases.ask("unicast to MAC and address", PLAIN, message, to=mac, source="192.168.5.77", target=us(PLAIN))
        self.cases.ask("to the uplink's address", PLAIN, message, to=mac, source="192.168.5.77", target="10.0.0.254")
        self.cases.ask("to another station", PLAIN, message, None, to=bytes.fromhex("02000000aaaa"))
        for port in (0, 67, 1068, 65535):
            self.cases.ask(f"from port {port}", PLAIN, message, source_port=port)
        for port in (66, 68):
            self.cases.ask(f"to port {port}", PLAIN, message, None, target_port=port)
        self.cases.ask("bad IP checksum", PLAIN, message, "malformed", ip_sum=1)
        self.cases.ask("bad UDP checksum", PLAIN, message, "malformed", udp_sum=1)
        self.cases.ask("no UDP checksum", PLAIN, message, udp_sum=None)

    def information(self):
        for name, information in ODD_INFORMATION.items():
            message = with_information(information)
            self.cases.ask(f"{name}, untrusted", PLAIN, message, "untrusted-option")
            self.cases.ask(f"{name}, untrusted by override", CHECKED, message, "untrusted-option")
            self.cases.ask(f"{name}, keep", KEPT, message)
            self.cases.ask(f"{name}, drop", DROPPED, message, "policy-drop")
            self.cases.ask_with_ours(f"{name}, replace", REPLACED, message)
        for number in (PLAIN, KEPT, REPLACED, DROPPED):
            self.cases.ask(f"beyond the message, VLAN {number}", number, with_information(BEYOND), "malformed")

    def giaddr_and_hops(self):
        for hops, outcome in ((0, "relayed"), (15, "relayed"), (16, "relayed"), (17, "too-many-hops"),
                              (255, "too-many-hops")):
            self.cases.ask(f"{hops} hops", PLAIN, Message(hops=hops), outcome)
        for giaddr in (us(PLAIN), us(CHECKED), us(SECOND), "10.0.0.254", "10.0.1.254"):
            self.cases.ask(f"our giaddr {giaddr}", PLAIN, Message(giaddr=giaddr), "own-giaddr")
        self.cases.ask("another relay's giaddr", PLAIN, Message(giaddr="10.9.9.9"))

    def addresses(self):
        """Of an interface with two prefixes, which both are configured."""
        self.cases.ask("broadcast where there are two prefixes", PLAIN, Message())
        self.cases.ask("broadcast of the first prefix", PLAIN, Message(), target="192.168.5.255")
        self.cases.ask("broadcast of the second prefix", PLAIN, Message(), at=SECOND, target="192.168.55.255")
        self.cases.ask("to the second address", PLAIN, Message(), at=SECOND, target=us(SECOND))


class Replies(Cases):
    def test_come_out_once_at_their_client_or_nowhere(self):
        before = self.kernel_drops()
        self.targets_of = {}
        self.kinds()
        self.information()
        self.headers()
        self.targets()
        self.cases.check()
        self.check_targets()
        self.assertEqual([after - value for value, after in zip(before, self.kernel_drops())], [1, 1])

    def kinds(self):
        for name, number in ANSWERS.items():
            for server in self.cases.servers:
                self.cases.reply(f"{name} of {server}", PLAIN, of_kind(number, op=2), server=server)
            self.cases.reply(f"{name} to another VLAN", OFF, of_kind(number, op=2))
        self.cases.reply("plain BOOTP", PLAIN, Message(op=2, **BOOTP))
        self.cases.reply("255 hops", PLAIN, Message(op=2, hops=255))
        self.cases.reply("long options", PLAIN, Message(op=2, options=LONG + [END]))

    def information(self):
        ours = self.cases.ours(CHECKED)
        for name, options in (("long options after ours", [ours] + LONG + [END]),
                              ("ours among long options", LONG[:2] + [ours] + LONG[2:] + [END])):
            rest = [option for option in options if option != ours]
            self.cases.reply(name, CHECKED, Message(op=2, options=options),
                             output=lambda message, rest=rest: message.but(options=rest).bytes())
        self.cases.reply("no information", CHECKED, Message(op=2, options=LONG + [END]), "no-option")
        for name, information in ODD_INFORMATION.items():
            reply = with_information(information, *LONG, op=2)
            self.cases.reply(f"{name}, checked", CHECKED, reply, "foreign-option")
            self.cases.reply(f"{name}, unchecked", KEPT, reply)
        self.cases.reply("beyond the message", KEPT, with_information(*LONG, BEYOND, op=2), "malformed")

    def headers(self):
        """What is wrong on the side of servers is dropped by the kernel, which counts it."""
        self.cases.reply_frame("bad IP checksum", PLAIN, Message(op=2), ip_sum=1)
        self.cases.reply_frame("bad UDP checksum", PLAIN, Message(op=2), udp_sum=1)
        self.cases.reply_frame("no UDP checksum", PLAIN, Message(op=2), "relayed", udp_sum=None)

    def kernel_drops(self):
        """How often the checksum of an IPv4 header, and that of a UDP datagram, was wrong."""
        counts = dict(line.split()[:2] for line in self.cases.network.run("relay", "nstat", "-asz").stdout.splitlines()
                      if not line.startswith("#"))
        return int(counts["IpExtInCsumErrors"]), int(counts["UdpInCsumErrors"])

    def targets(self):
        """Broadcast or unicast, by the message's flags and address."""
        everybody = (b"\xff" * 6, "255.255.255.255")
        for name, fields, target in (("to be broadcast", {"flags": 0x8000}, everybody),
                                     ("unicast", {"flags": 0}, (bytes.fromhex("02aabbccddee"), "10.2.2.2")),
                                     ("without an address", {"flags": 0, "yiaddr": "0.0.0.0"}, everybody)):
            self.cases.reply(name, PLAIN, Message(op=2, **fields))
            self.targets_of[name] = target

    def check_targets(self):
        found = {self.cases.names[heard.xid]: heard for heard in self.cases.clients[PLAIN].heard()}
        for name, target in self.targets_of.items():
            with self.subTest(name):
                heard = found[name]
                self.assertEqual((heard.mac, heard.target, heard.source_port, heard.are_sums_right),
                                 (*target, 67, True))
