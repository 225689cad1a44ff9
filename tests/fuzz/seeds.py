#!/usr/bin/env python3
"""Writes the inputs that the fuzz targets start from into corpus/.

Files there that have a hash for a name were found by a fuzzer and stay as they are.
"""

import pathlib
import struct
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.dont_write_bytecode = True
sys.path.insert(0, str(HERE.parent / "unit" / "dhcp_manager" / "packet"))

import matrix  # noqa: E402
from matrix import CLIENT_ID, END, OVERLOAD, PAD, PARAMETERS, TYPE, US, Message  # noqa: E402

CHECK, TRUSTED, OPTION, KEEP, REPLACE, DROP, REPLY, FOREIGN_DROPPED = 1, 2, 4, 8, 16, 0, 32, 64
NAME_LENGTH, VLAN, MAC = 4, b":4094", bytes([2, 0, 0, 0, 0, 5])
CIRCUIT = b"x" * NAME_LENGTH + VLAN
OURS = bytes([1, len(CIRCUIT)]) + CIRCUIT + bytes([2, 6]) + MAC


def packets():
    theirs, ours = (matrix.INFORMATION, matrix.THEIRS), (matrix.INFORMATION, OURS)
    fields = matrix.encode([(12, b"host"), theirs, END])
    messages = {
        "plain": Message(),
        "hops-16": Message(hops=16),
        "hops-17": Message(hops=17),
        "relayed": Message(giaddr="10.9.9.9"),
        "own-giaddr": Message(giaddr=US),
        "multicast-giaddr": Message(giaddr="224.0.0.1"),
        "no-end": Message(options=[TYPE, CLIENT_ID]),
        "pads": Message(options=[PAD, TYPE, PAD, PAD, END], tail=bytes(40)),
        "tail": Message(tail=b"\0tail\0"),
        "cut": Message(options=[TYPE, bytes([82, 9, 1])]),
        "bootp": Message(cookie=b"", options=[bytes(64)]),
        "header": Message(cookie=b"", options=[]),
        "hlen-16": Message(hlen=16),
        "hlen-17": Message(hlen=17),
        "op-2": Message(op=2),
        "cookie": Message(cookie=bytes([99, 130, 83, 98])),
        "theirs": Message(options=[TYPE, theirs, PARAMETERS, END]),
        "theirs-relayed": Message(options=[theirs, TYPE, END], giaddr="10.9.9.9"),
        "theirs-twice-no-end": Message(options=[theirs, TYPE, (matrix.INFORMATION, b"")]),
        "overload-file": Message(options=[TYPE, (OVERLOAD, b"\1"), END], file=fields),
        "overload-sname": Message(options=[TYPE, (OVERLOAD, b"\2"), END], sname=fields),
        "overload-both": Message(options=[(OVERLOAD, b"\3"), theirs, END], file=fields, sname=fields),
        "overload-cut": Message(options=[(OVERLOAD, b"\3"), bytes([OVERLOAD, 1])], file=b"\x52\xff"),
    }
    for name, message in messages.items():
        settings = [TRUSTED | OPTION | REPLACE]
        if name.startswith(("theirs", "plain")):
            settings += [OPTION | KEEP, TRUSTED | OPTION | DROP]
        for bits in settings:
            yield f"request-{name}-{bits}", bytes([bits, 200, NAME_LENGTH]) + message.bytes()
    for room in (0, 24):
        settings = bytes([TRUSTED | OPTION | REPLACE, room, NAME_LENGTH])
        yield f"request-room-{room}", settings + messages["theirs"].bytes()
    for trusted in (0, TRUSTED):
        settings = bytes([FOREIGN_DROPPED | OPTION | trusted, 200, NAME_LENGTH])
        yield f"request-foreign-giaddr-{trusted}", settings + messages["theirs-relayed"].bytes()
    yield "request-long-name", bytes([OPTION, 255, 255]) + messages["plain"].bytes()

    replies = {
        "none": [TYPE, END],
        "ours": [TYPE, ours, PARAMETERS, END],
        "ours-in-two": [(matrix.INFORMATION, OURS[:5]), (matrix.INFORMATION, OURS[5:])],
        "theirs": [TYPE, theirs, END],
        "ours-and-theirs": [ours, theirs, END],
        "cut": [ours, bytes([1, 4])],
    }
    for name, options in replies.items():
        for flags in (0, 0x8000):
            message = Message(op=2, options=options, flags=flags, giaddr=US, tail=bytes(50))
            settings = REPLY | (CHECK | OPTION if flags else 0)
            yield f"reply-{name}-{settings}", bytes([settings, 0, NAME_LENGTH]) + message.bytes()


def checksum(data):
    data += b"\0" * (len(data) % 2)
    total = sum(struct.unpack(f">{len(data) // 2}H", data))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def datagram(payload, port=67, options=b"", fragment=0, has_checksum=True):
    addresses = bytes([0, 0, 0, 0, 255, 255, 255, 255])
    udp = struct.pack(">HHHH", 68, port, 8 + len(payload), 0) + payload
    if has_checksum:
        total = checksum(addresses + struct.pack(">HH", 17, len(udp)) + udp)
        udp = udp[:6] + struct.pack(">H", total or 0xFFFF) + udp[8:]
    words = 5 + len(options) // 4
    ip = struct.pack(">BBHHHBBH", 0x40 | words, 0, words * 4 + len(udp), 1, fragment, 64, 17, 0) + addresses + options
    return ip[:10] + struct.pack(">H", checksum(ip)) + ip[12:] + udp


def frames():
    yield "plain", b"\1" + datagram(b"message")
    yield "even", b"\1" + datagram(b"messages")
    yield "empty", b"\1" + datagram(b"")
    yield "padded", b"\1" + datagram(b"message") + bytes(18)
    yield "ip-options", b"\1" + datagram(b"message", options=bytes([148, 4, 0, 0]))
    yield "fragment", b"\1" + datagram(b"message", fragment=0x2000)
    yield "no-checksum", b"\1" + datagram(b"message", has_checksum=False)
    yield "wrong-checksum", b"\1" + datagram(b"message")[:-1] + b"E"
    yield "unverified", b"\0" + datagram(b"message")[:-1] + b"E"
    yield "wrong-header-checksum", b"\1" + datagram(b"message")[:8] + b"?" + datagram(b"message")[9:]
    yield "header-checksum-made-right", b"\3" + datagram(b"message")[:8] + b"?" + datagram(b"message")[9:]
    yield "other-port", b"\1" + datagram(b"message", port=68)


def varint(number):
    out = b""
    while number > 127:
        out += bytes([number & 127 | 128])
        number >>= 7
    return out + bytes([number])


def field(number, value):
    """A protobuf field: bytes, a varint, or a number of fixed size in a tuple."""
    if isinstance(value, bytes):
        return varint(number << 3 | 2) + varint(len(value)) + value
    if isinstance(value, tuple):
        return varint(number << 3 | 5) + struct.pack("<I", value[0])
    return varint(number << 3) + varint(value)


def call(operation, instance=b"r1", name=b"", **value):
    out = field(1, operation) + field(2, instance) + (field(3, name) if name else b"")
    numbers = {"address": 4, "vlan": 5, "identifier": 6, "flag": 7, "policy": 8}
    for kind, argument in value.items():
        out += field(numbers[kind], (argument,) if kind in ("address", "identifier") else argument)
    return field(1, out)


HELLO = field(1, field(1, 1) + field(2, b"dhcp-relay-app"))
NAME = b"l3-5"
CALLS = [call(1, address=0x0A000001), call(4, name=NAME), call(5, name=NAME, address=0xC0A80501),
         call(6, identifier=7), call(7, name=NAME, vlan=5), call(10, flag=1), call(11, flag=1), call(12, flag=0),
         call(13, policy=2), call(14, name=NAME), call(16, name=NAME, flag=1), call(17, name=NAME, flag=1),
         call(18, name=NAME, flag=1), call(19, name=NAME, policy=0)]
DELETES = [call(2, address=0x0A000001), call(8, name=NAME, vlan=5), call(15, name=NAME), call(9, name=NAME),
           call(6, identifier=0), call(3)]


def calls(*some):
    return field(2, b"".join(some))


def continued(*some):
    return field(2, b"".join(some) + field(2, 1))


def begin(number):
    return field(3, field(1, number))


def complete(number):
    return field(4, field(1, number))


def sessions():
    yield "dump", [HELLO, begin(1), calls(*CALLS), complete(1), calls(*DELETES)]
    yield "each-alone", [HELLO, begin(1)] + [calls(one) for one in CALLS + DELETES] + [complete(1)]
    yield "calls-without-dump", [HELLO, calls(*CALLS)]
    yield "cancelled", [HELLO, calls(CALLS[0]), begin(1), calls(*CALLS), HELLO]
    yield "two-daemons", [HELLO, begin(1), calls(CALLS[0]), complete(1), b"\xff",
                          HELLO, begin(2), calls(CALLS[5]), complete(2)]
    yield "many", [HELLO, calls(*[call(1, address=number) for number in range(3)],
                                *[call(operation, name=name) for operation in (4, 14) for name in (b"a", b"b")])]
    yield "vrf-cleared", [HELLO, calls(call(6, identifier=7), call(6, identifier=0))]
    yield "other-dumps", [HELLO, begin(2), HELLO, complete(2), HELLO, begin(3), complete(2),
                          HELLO, begin(4), complete(4), complete(4), HELLO, begin(5), complete(5), begin(5)]
    yield "commit", [HELLO, begin(1), complete(1), continued(*CALLS), continued(), calls(*DELETES), calls(CALLS[0])]
    yield "half-a-commit", [HELLO, begin(1), complete(1), continued(*CALLS), HELLO,
                            HELLO, continued(CALLS[0]), begin(2), continued(CALLS[1]), complete(2), calls(CALLS[2])]
    yield "no-greeting", [calls(CALLS[0])]
    yield "other-version", [field(1, field(1, 2)), field(1, field(1, 0)), field(1, b"")]
    yield "wrong-dump", [HELLO, begin(9), HELLO, complete(2)]
    yield "twice-begun", [HELLO, begin(1), begin(1)]
    yield "empty", [HELLO, b"", HELLO, calls()]
    faults = {"operation": call(99), "no-name": call(4), "no-instance": call(3, instance=b""),
              "policy": call(13, policy=3), "vlan": call(7, name=b"a", vlan=65536), "argument": call(1, flag=1),
              "long": call(3, instance=b"x" * 256), "surplus-name": call(3, name=b"a")}
    for name, wrong in faults.items():
        yield f"fault-{name}", [HELLO, calls(CALLS[0], wrong, CALLS[1])]
    yield "names", [HELLO, calls(call(3, instance=b"\0\n\xff"), call(4, instance=b"x" * 255, name=b"y" * 255))]


def packed(packets_of_session):
    return b"".join(struct.pack("<H", len(packet)) + packet for packet in packets_of_session)


def write(target, inputs):
    directory = HERE / "corpus" / target
    directory.mkdir(parents=True, exist_ok=True)
    for name, content in inputs:
        (directory / name).write_bytes(content)


write("packet", packets())
write("headers", frames())
write("wire", ((name, packed(session)) for name, session in sessions()))
