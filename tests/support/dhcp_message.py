"""DHCP and BOOTP messages put together from their fields and options, by the RFCs."""

import socket

COOKIE = bytes([99, 130, 83, 99])
PAD, END = "pad", "end"

TYPE = (53, bytes([1]))
CLIENT_ID = (61, bytes([1, 2, 3, 4, 5, 6, 7]))
PARAMETERS = (55, bytes([1, 3, 6, 15]))
OVERLOAD = 52
INFORMATION = 82  # relay agent information


def encode(options):
    """The bytes of options: PAD, END, bytes as they are, or (code, value)."""
    out = b""
    for option in options:
        if option == PAD:
            out += b"\0"
        elif option == END:
            out += b"\xff"
        elif isinstance(option, bytes):
            out += option
        else:
            out += bytes([option[0], len(option[1])]) + option[1]
    return out


class Message:
    """Every field has a value of its own, so that one that is changed or moved shows."""

    def __init__(self, op=1, hops=3, giaddr="0.0.0.0", hlen=6, flags=0x8000, cookie=COOKIE,
                 options=(TYPE, CLIENT_ID, PARAMETERS, END), sname=None, file=None, tail=b"", xid=0xDEADBEEF,
                 yiaddr="10.2.2.2"):
        self.op, self.hops, self.giaddr, self.hlen, self.flags = op, hops, giaddr, hlen, flags
        self.cookie, self.options, self.tail, self.xid, self.yiaddr = cookie, list(options), tail, xid, yiaddr
        self.sname = sname if sname is not None else bytes(range(100, 164))
        self.file = file if file is not None else bytes(range(1, 129))

    def but(self, **changes):
        copy = Message.__new__(Message)
        copy.__dict__ = {**self.__dict__, **changes}
        return copy

    def header(self):
        return (bytes([self.op, 1, self.hlen, self.hops]) + self.xid.to_bytes(4, "big") + bytes([0x12, 0x34])
                + self.flags.to_bytes(2, "big") + bytes([10, 1, 1, 1]) + socket.inet_aton(self.yiaddr)
                + bytes([10, 3, 3, 3]) + socket.inet_aton(self.giaddr) + CHADDR + bytes(range(200, 210))
                + self.sname.ljust(64, b"\0") + self.file.ljust(128, b"\0"))

    def bytes(self):
        return self.header() + self.cookie + encode(self.options) + self.tail


CHADDR = bytes([2, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE])


def without_information(options):
    """The options but relay agent information."""
    return [option for option in options if not (isinstance(option, tuple) and option[0] == INFORMATION)]
