"""A device of a test's namespaces, from within the test: frames that are made here, and the messages that come in."""

import collections
import ctypes
import socket
import struct

from processes import wait_until

IPV4, VLAN_TAG = 0x0800, 0x8100
ETHERNET, IP, UDP = 14, 20, 8
PRIORITY = 5
BROADCAST = b"\xff" * 6
CLIENT = bytes.fromhex("02deadbeef05")
CLIENT_PORT, SERVER_PORT = 68, 67

CLONE_NEWNET = 0x40000000
SOL_PACKET, PACKET_STATISTICS, PACKET_IGNORE_OUTGOING = 263, 6, 23
SO_RCVBUFFORCE, RECEIVE_BUFFER = 33, 16 * 1024 * 1024

LIBC = ctypes.CDLL(None, use_errno=True)


def enter(namespace):
    if LIBC.setns(namespace.fileno(), CLONE_NEWNET) != 0:
        raise OSError(ctypes.get_errno(), "cannot enter a network namespace")


def open_in(network, space, make):
    """What make() opens in that namespace, where it stays; the caller stays in its own."""
    with open("/proc/thread-self/ns/net", "rb") as own, open(f"/run/netns/{network.namespace(space)}", "rb") as other:
        enter(other)
        try:
            return make()
        finally:
            enter(own)


def checksum(data):
    data += bytes(len(data) % 2)
    total = sum(struct.unpack(f">{len(data) // 2}H", data))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def datagram(payload, *, source="0.0.0.0", target="255.255.255.255", source_port=CLIENT_PORT, target_port=SERVER_PORT,
             ip_sum=0, udp_sum=0):
    """An IPv4 packet. The sums are what is wrong about its checksums; with udp_sum None it has none of UDP."""
    addresses = socket.inet_aton(source) + socket.inet_aton(target)
    size = UDP + len(payload)
    udp = struct.pack(">HHHH", source_port, target_port, size, 0) + payload
    summed = checksum(addresses + struct.pack(">HH", socket.IPPROTO_UDP, size) + udp) or 0xFFFF
    udp = udp[:6] + struct.pack(">H", 0 if udp_sum is None else summed ^ udp_sum) + udp[8:]
    header = struct.pack(">BBHHHBBH", 0x45, 0, IP + size, 0, 0, 64, socket.IPPROTO_UDP, 0) + addresses
    return header[:10] + struct.pack(">H", checksum(header) ^ ip_sum) + header[12:] + udp


def frame(packet, *, to=BROADCAST, source=CLIENT, tag=None):
    """`tag` is the VLAN identifier of an 802.1Q tag; 0 for a priority alone."""
    tagged = b"" if tag is None else struct.pack(">HH", VLAN_TAG, PRIORITY << 13 | tag)
    return to + source + tagged + struct.pack(">H", IPV4) + packet


class Heard(collections.namedtuple("Heard", "mac target source_port message are_sums_right")):
    """A message as it came: addresses at layers 2 and 3 to which it was sent, and the port that it came from."""

    @property
    def xid(self):
        return int.from_bytes(self.message[4:8], "big")


def parse(data, port):
    """The message of a frame for that port; None for anything else."""
    packet = data[ETHERNET:]
    if len(packet) < IP + UDP or packet[9] != socket.IPPROTO_UDP or packet[0] != 0x45:
        return None
    source_port, target_port, size = struct.unpack(">HHH", packet[IP:IP + 6])
    if target_port != port:
        return None
    udp = packet[IP:IP + size]
    pseudo = packet[12:20] + struct.pack(">HH", socket.IPPROTO_UDP, size)
    right = checksum(packet[:IP]) == 0 and checksum(pseudo + udp) == 0
    return Heard(data[:6], socket.inet_ntoa(packet[16:20]), source_port, udp[UDP:], right)


class Wire:
    """What comes in on a device for one UDP port from now on, and a way to send on the device."""

    def __init__(self, test, network, space, device, port):
        self.port = port
        self.messages = []
        self.socket = open_in(network, space, lambda: self._open(device))
        test.addCleanup(self.socket.close)
        self.mac = self.socket.getsockname()[4]

    @staticmethod
    def _open(device):
        wire = socket.socket(socket.AF_PACKET, socket.SOCK_RAW | socket.SOCK_NONBLOCK)
        wire.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, RECEIVE_BUFFER)
        wire.setsockopt(SOL_PACKET, PACKET_IGNORE_OUTGOING, 1)
        wire.bind((device, IPV4))
        return wire

    def send(self, data):
        self.socket.send(data)

    def heard(self):
        """All messages so far. To be asked for often under load, since what waits may outgrow the socket's buffer."""
        while True:
            try:
                found = parse(self.socket.recv(65536), self.port)
            except BlockingIOError:
                break
            if found is not None:
                self.messages.append(found)
        _, lost = struct.unpack("II", self.socket.getsockopt(SOL_PACKET, PACKET_STATISTICS, 8))
        if lost:
            raise AssertionError(f"{lost} packets found no room in the capture")
        return self.messages

    def count(self, xid):
        return sum(message.xid == xid for message in self.heard())

    def wait_for(self, xid):
        wait_until(lambda: self.count(xid), f"{xid:08x} is heard")


class Server:
    """UDP port 67 of an address: what comes to it stays unread, and replies are sent from it."""

    def __init__(self, test, network, space, address):
        self.socket = open_in(network, space, lambda: self._open(address))
        test.addCleanup(self.socket.close)

    @staticmethod
    def _open(address):
        server = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        server.bind((address, SERVER_PORT))
        return server

    def send(self, payload, relay):
        self.socket.sendto(payload, (relay, SERVER_PORT))
