"""A firewall of a namespace that lets nothing in: a chain of nf_tables without rules, whose policy is to drop."""

import os
import socket
import struct

from wire import open_in

NETLINK_NETFILTER = 12
SUBSYSTEM = 10  # nf_tables
BATCH_BEGIN, BATCH_END = 0x10, 0x11
NEW_TABLE, NEW_CHAIN = SUBSYSTEM << 8 | 0, SUBSYSTEM << 8 | 3
REQUEST, ACKNOWLEDGE, CREATE = 0x1, 0x4, 0x400
IPV4, LOCAL_IN, DROP = 2, 1, 0
ERROR = 2  # message type of acknowledgements, too
HEADER = struct.Struct("=IHHII")


def attribute(kind, value):
    data = struct.pack("=HH", 4 + len(value), kind) + value
    return data + bytes(-len(data) % 4)


def number(value):
    return struct.pack(">I", value)


def message(kind, flags, family, resource, payload=b""):
    body = struct.pack(">BBH", family, 0, resource) + payload
    return HEADER.pack(HEADER.size + len(body), kind, REQUEST | flags, 1, 0) + body


def drop_input(network, space):
    """From now on the namespace's kernel drops every IPv4 packet that is for itself."""
    table, chain, nested = attribute(1, b"filter\0"), attribute(3, b"input\0"), 0x8000
    hook = attribute(4 | nested, attribute(1, number(LOCAL_IN)) + attribute(2, number(0)))
    batch = (message(BATCH_BEGIN, 0, 0, SUBSYSTEM)
             + message(NEW_TABLE, CREATE | ACKNOWLEDGE, IPV4, 0, table)
             + message(NEW_CHAIN, CREATE | ACKNOWLEDGE, IPV4, 0,
                       table + chain + hook + attribute(5, number(DROP)) + attribute(7, b"filter\0"))
             + message(BATCH_END, 0, 0, SUBSYSTEM))
    with open_in(network, space, lambda: socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, NETLINK_NETFILTER)) as link:
        link.send(batch)
        for _ in (NEW_TABLE, NEW_CHAIN):
            answer = link.recv(65536)
            kind, error = struct.unpack_from("=H", answer, 4)[0], struct.unpack_from("=i", answer, HEADER.size)[0]
            if kind != ERROR or error != 0:
                raise OSError(-error, f"no firewall: {os.strerror(-error)}")
