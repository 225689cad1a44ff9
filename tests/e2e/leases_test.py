"""Leases of real clients from real servers through the relay."""

import unittest

from configuration import configuration, relay
from paths import HELPERS
from processes import wait_until
from topology import SERVER, Topology, dhcp_range, instance, l3


class Lease(unittest.TestCase):
    def test_comes_from_dnsmasq(self):
        top = Topology(self)
        top.network.dnsmasq("server", dhcp_range(5))
        top.up()
        lease = top.lease()
        self.assertIsNotNone(lease, top.server_log())
        self.assertRegex(lease[0], r"^192\.168\.5\.")
        self.assertEqual(lease[2], SERVER)

    def test_comes_from_kea(self):
        top = Topology(self)
        top.network.kea("server", "eth0", ("192.168.5.0/24", "192.168.5.10", "192.168.5.200"))
        top.up(instance(relay_information={"option": True, "check": True}))
        lease = top.lease()
        self.assertIsNotNone(lease, top.network.log("kea-server.log"))
        self.assertRegex(lease[0], r"^192\.168\.5\.")

    def test_comes_by_broadcast_to_a_client_that_asks_for_it(self):
        top = Topology(self)
        top.network.dnsmasq("server", dhcp_range(5))
        top.up()
        self.assertIsNotNone(top.lease(5, "-B"))

    def test_is_not_to_be_had_without_an_instance_and_is_once_a_commit_makes_one(self):
        top = Topology(self)
        top.network.dnsmasq("server", dhcp_range(5))
        top.up(relay("other"))
        self.assertIsNone(top.lease(tries=1))
        top.stack.edit(configuration(instance(), l3=[l3(5)]))
        self.assertIsNotNone(top.lease())

    def test_renewal_that_goes_past_the_relay_is_only_forwarded(self):
        top = Topology(self)
        top.network.forward("relay")
        top.network.dnsmasq("server", dhcp_range(5))
        top.up()
        lease = top.lease()
        self.assertIsNotNone(lease)
        before = top.counters()["requests"]["received"]
        # A client renews by unicast to the server, through the relay's device as through any router.
        top.network.run("client5", HELPERS / "send-renewal", lease[0], SERVER)
        wait_until(lambda: top.stack.show("counters")["other"]["not-for-us"] == 1, "the renewal is seen passing")
        self.assertEqual(top.counters()["requests"]["received"], before)
