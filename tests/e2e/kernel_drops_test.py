"""What the kernel drops in front of the manager: counted, so that every packet sent is in one counter."""

import contextlib
import os
import re
import signal
import unittest

from dhcp_message import Message
from paths import HELPERS
from processes import wait_until
from topology import Topology, instance, l3, total
from wire import CLIENT_PORT, Wire, datagram, frame

REQUESTS = 6000    # more than the packet ring holds
REPLIES = 40000    # more than the buffer of a UDP socket holds
WITHOUT_BPF = ("setpriv", "--bounding-set", "-bpf,-sys_admin")


class KernelDrops(unittest.TestCase):
    def up(self, *prefix):
        """A stack that serves VLANs 5 and 6."""
        self.top = Topology(self)
        self.top.stack.prefix += prefix
        self.top.add_clients(6)
        self.top.up(instance(interfaces=["l3-5", "l3-6"]), interfaces=[l3(5), l3(6)])
        self.top.stack.wait_state("l3-6", "up")

    @contextlib.contextmanager
    def stopped_manager(self):
        pid = self.top.stack.pid("manager")
        os.kill(pid, signal.SIGSTOP)
        try:
            yield
        finally:
            os.kill(pid, signal.SIGCONT)

    def kernel(self):
        return self.top.stack.show("counters")["kernel_drops"]

    def send_requests(self):
        """More than the ring holds of VLAN 5, then some of VLAN 6; returns how many."""
        with self.stopped_manager():
            self.send(5, REQUESTS)
            self.send(6, 500)
        return REQUESTS + 500

    def send(self, number, requests):
        """Broadcasts of a client of that VLAN."""
        client = Wire(self, self.top.network, f"client{number}", "eth0", CLIENT_PORT)
        for _ in range(requests):
            client.send(frame(datagram(Message().bytes())))

    def wait_until_counted(self, sent):
        """So many requests, in or behind the kernel; the outcomes of each interface add up to what it received."""
        def counted():
            interfaces = [self.top.counters(name)["requests"] for name in ("l3-5", "l3-6")]
            for requests in interfaces:
                self.assertEqual(total(requests), requests["received"])
            return sum(requests["received"] for requests in interfaces) + self.kernel()["requests"]
        wait_until(lambda: counted() >= sent, "all requests are counted")
        self.assertEqual(counted(), sent)

    def test_are_counted_and_a_burst_leaves_room_to_other_interfaces(self):
        self.up()
        self.wait_until_counted(self.send_requests())
        self.assertGreater(self.top.counters("l3-5")["requests"]["over-share"], 0)
        self.assertEqual(self.top.counters("l3-6")["requests"]["received"], 500)
        self.assertEqual(self.top.counters("l3-6")["requests"]["over-share"], 0)
        self.assertEqual(self.kernel()["requests"], 0)
        self.check_replies()
        self.check_that_all_show_the_same()

    def check_replies(self):
        """Those over the buffer of a socket are counted, and no requests with them."""
        before = self.top.counters()["requests"]["received"]
        with self.stopped_manager():
            # Broadcasts, which the UDP socket's filter refuses.
            self.send(5, 100)
            self.top.network.run("server", HELPERS / "send-reply", "10.0.0.254", "192.168.77.1", 300, REPLIES)

        def counted():
            return self.top.stack.show("counters")["other"]["unknown-giaddr"] + self.kernel()["replies"]
        wait_until(lambda: counted() >= REPLIES, "all replies are counted")
        self.assertEqual(counted(), REPLIES)
        self.assertGreater(self.kernel()["replies"], 0)
        self.assertEqual(self.top.counters()["requests"]["received"], before + 100)

    def check_that_all_show_the_same(self):
        kernel = self.kernel()
        self.assertEqual(self.top.stack.status()["kernel_drops"], kernel)
        text = f"requests {kernel['requests']}, replies {kernel['replies']}, link events {kernel['link_events']}"
        self.assertIn(text, self.top.stack.tool("dhcp-relayctl", "show", "counters").stdout)
        self.assertIn(text, self.top.stack.tool("dhcp-relayctl", "status").stdout)
        state = wait_until(self.operational_drops, "operational data is served")
        self.assertEqual(state, kernel)
        self.top.stack.tool("dhcp-relayctl", "clear", "counters")
        self.assertEqual(self.kernel(), {"requests": 0, "replies": 0, "link_events": 0})

    def operational_drops(self):
        state = self.top.stack.tool("sysrepocfg", "-X", "-d", "operational", "-f", "json", "-x",
                                    "/vx-dhcp-relay-state:dhcp-relay-state/kernel-drops").stdout
        return {name.replace("-", "_"): int(value) for name, value in re.findall(r'"([a-z-]+)": "(\d+)"', state)}

    def test_of_requests_are_counted_without_the_filters_that_count(self):
        self.up(*WITHOUT_BPF)
        self.wait_until_counted(self.send_requests())
        self.assertGreater(self.kernel()["requests"], 0)
        self.assertEqual(self.top.counters("l3-6")["requests"]["received"], 0)
        self.assertIsNone(self.kernel()["replies"])
        self.assertIn("interfaces have no share of their own", self.top.stack.tool("dhcp-relayctl", "status").stdout)
        log = (self.top.stack.directory / "manager.log").read_text()
        self.assertEqual(log.count("cannot make a map for the kernel's filters"), 1)
