"""What each commit makes the daemon call on the manager, on a real datastore, by the manager's journal."""

import unittest

from configuration import configuration, interface_list, relay, server_list
from processes import wait_until
from stack import Stack

DELETE = {"ietf-netconf:operation": "delete"}


def one(name, **members):
    """A document that concerns one instance."""
    return configuration(relay(name, **members))


def l3(name, **members):
    return {"vx-config:config": {"vx-interface:interface": {"l3": [{"name": name, **members}]}}}


def vlan(number):
    return {"lower-layer-if": {"vlan": number}}


def address(text):
    return {"ipv4": {"address": {"ip": text}}}


class Commits(unittest.TestCase):
    def setUp(self):
        self.stack = Stack(self)
        self.stack.up(config=configuration(
            relay("fence"),
            l3=[("5", 5, "192.168.5.1/24"), ("6", 6, "192.168.6.1/24")],
            vrfs={"red": 7, "blue": 12}))
        self.fence = False  # the setting `check` of the instance `fence`

    def calls(self, document, refused=False):
        """The calls that a commit causes: calls arrive in order, so all of them precede the call of a next commit."""
        before = len(self.stack.journal())
        result = self.stack.edit(document, check=False)
        self.assertEqual(result.returncode != 0, refused, result.stderr)
        last = self.make_last_call()
        wait_until(lambda: last in self.stack.journal()[before:], "the journal is written")
        calls = self.stack.journal()[before:]
        self.assertEqual(calls[-1], last)
        return calls[:-1]

    def make_last_call(self):
        """Commits what makes one call, and returns that call."""
        self.fence = not self.fence
        self.stack.edit(one("fence", relay_information={"check": self.fence}))
        return f"SetCheck fence {str(self.fence).lower()}"

    def assert_same_after_a_fresh_dump(self):
        before = self.stack.table()
        self.stack.kill("manager")
        self.stack.start("manager")
        self.stack.wait_in_sync()
        self.assertEqual(self.stack.table(), before)

    def test_an_instance_with_everything_in_one_commit(self):
        self.assertEqual(
            self.calls(one("all", vrf="red", server=server_list("10.0.0.1", "10.0.0.2"),
                           interface=interface_list("l3-5"),
                           relay_information={"option": True, "check": True, "trusted": True,
                                              "policy": "drop"},
                           if_option=[{"name": "l3-5", "relay-information": {
                               "option": True, "check": True, "trusted": True,
                               "policy": "replace"}}])),
            ["AddServer all 10.0.0.1", "AddServer all 10.0.0.2", "SetCheck all true",
             "SetTrusted all true", "SetOption all true", "SetPolicy all drop",
             "AddL3Interface all l3-5", "SetL3InterfaceVlan all l3-5 5",
             "SetL3InterfaceAddress all l3-5 192.168.5.1", "SetIfOptionCheck all l3-5 true",
             "SetIfOptionTrusted all l3-5 true", "SetIfOptionOption all l3-5 true",
             "SetIfOptionPolicy all l3-5 replace", "SetVrf all 0x01000007"])
        self.assert_same_after_a_fresh_dump()
        self.assertEqual(self.calls(configuration({"name": "all", "@": DELETE})),
                         ["DeleteInstance all"])
        self.assert_same_after_a_fresh_dump()

    def test_each_leaf_set_changed_reset_to_its_default_and_removed(self):
        self.calls(one("leaf"))
        for name, value, changed, default in (
                ("Check", True, False, False), ("Trusted", True, False, False),
                ("Option", True, False, False), ("Policy", "drop", "replace", "keep")):
            with self.subTest(name):
                self.check_leaf(name, name.lower(), value, changed, default)

    def check_leaf(self, name, leaf, value, changed, default):
        def call(to):
            return [f"Set{name} leaf {str(to).lower()}"]

        def setting(to, **more):
            return one("leaf", relay_information={leaf: to, **more})
        self.assertEqual(self.calls(setting(value)), call(value))
        self.assertEqual(self.calls(setting(value)), [])
        self.assertEqual(self.calls(setting(changed)), call(changed))
        self.calls(setting(value))
        self.assertEqual(self.calls(setting(default)), call(default))
        self.calls(setting(value))
        self.assertEqual(self.calls(setting(value, **{f"@{leaf}": DELETE})), call(default))

    def test_servers_added_removed_and_both_in_one_commit(self):
        self.assertEqual(self.calls(one("srv", server=server_list("10.0.0.1"))),
                         ["AddServer srv 10.0.0.1"])
        self.assertEqual(
            self.calls(one("srv", server={"ipv4": [{"address": "10.0.0.1", "@": DELETE},
                                                   {"address": "10.0.0.2"}]})),
            ["DeleteServer srv 10.0.0.1", "AddServer srv 10.0.0.2"])
        self.assertEqual(
            self.calls(one("srv", server={"ipv4": [{"address": "10.0.0.2", "@": DELETE}]})),
            ["DeleteServer srv 10.0.0.2"])

    def test_an_interface_removed_while_its_vlan_stays(self):
        self.assertEqual(self.calls(one("itf", interface=interface_list("l3-6"))),
                         ["AddL3Interface itf l3-6", "SetL3InterfaceVlan itf l3-6 6",
                          "SetL3InterfaceAddress itf l3-6 192.168.6.1"])
        self.assertEqual(self.calls(one("itf", interface=[{"name": "l3-6", "@": DELETE}])),
                         ["DeleteL3InterfaceVlan itf l3-6 6", "DeleteL3Interface itf l3-6"])

    def test_vlan_and_address_of_a_listed_interface(self):
        self.calls(l3("20", **vlan(20), **address("192.168.20.1/24")))
        self.calls(one("l3", interface=interface_list("l3-20")))
        self.assertEqual(self.calls(l3("20", **vlan(21))),
                         ["DeleteL3InterfaceVlan l3 l3-20 20", "AddL3Interface l3 l3-20",
                          "SetL3InterfaceVlan l3 l3-20 21"])
        self.assertEqual(self.calls(l3("20", **address("192.168.21.1/24"))),
                         ["AddL3Interface l3 l3-20", "SetL3InterfaceAddress l3 l3-20 192.168.21.1"])

    def test_a_listed_interface_that_loses_its_vlan_and_its_address_calls_nothing(self):
        self.calls(l3("22", **vlan(22), **address("192.168.22.1/24")))
        self.calls(one("l3-lost", interface=interface_list("l3-22")))
        self.assertEqual(self.calls(l3("22", **{"lower-layer-if": {"vlan": 22, "@vlan": DELETE}})), [])
        self.assertEqual(self.calls(l3("22", **{"ipv4": {"address": {"ip": "192.168.22.1/24",
                                                                     "@ip": DELETE}}})), [])

    def test_vlan_and_address_of_an_unlisted_interface_call_nothing(self):
        self.assertEqual(self.calls(l3("30", **vlan(30), **address("192.168.30.1/24"))), [])
        self.assertEqual(self.calls(l3("30", **vlan(31), **address("192.168.31.1/24"))), [])
        self.assertEqual(self.calls(l3("30", **{"@": DELETE})), [])

    def test_a_vrf_set_changed_and_removed(self):
        self.assertEqual(self.calls(one("vrf", vrf="red")), ["SetVrf vrf 0x01000007"])
        self.assertEqual(self.calls(one("vrf", vrf="blue")), ["SetVrf vrf 0x0100000c"])
        document = one("vrf", vrf="blue")
        document["vx-config:config"]["vx-dhcp-relay:dhcp"]["relay"][0]["@vrf"] = DELETE
        self.assertEqual(self.calls(document), ["SetVrf vrf 0x00000000"])

    def test_an_override_created_changed_and_removed(self):
        def override(**entry):
            return one("ovr", if_option=[{"name": "l3-5", **entry}])
        self.assertEqual(self.calls(override(**{"relay-information": {"check": True}})),
                         ["SetIfOptionCheck ovr l3-5 true"])
        self.assertEqual(self.calls(override(**{"relay-information": {"policy": "replace"}})),
                         ["SetIfOptionPolicy ovr l3-5 replace"])
        self.assertEqual(
            self.calls(override(**{"relay-information": {"check": True, "@check": DELETE}})),
            ["SetIfOptionCheck ovr l3-5 false"])
        self.assertEqual(self.calls(override(**{"@": DELETE})), ["DeleteIfOption ovr l3-5"])

    def test_a_whole_instance_removed(self):
        self.calls(one("whole", vrf="red", server=server_list("10.0.0.1"), interface=interface_list("l3-5"),
                       relay_information={"check": True},
                       if_option=[{"name": "l3-5", "relay-information": {"check": True}}]))
        self.assertEqual(self.calls(one("whole", **{"@": DELETE})), ["DeleteInstance whole"])

    def test_an_instance_removed_and_made_anew_in_one_commit_is_told_by_its_differences(self):
        self.calls(one("anew", vrf="red", server=server_list("10.0.0.1", "10.0.0.2"),
                       interface=interface_list("l3-5"), relay_information={"check": True},
                       if_option=[{"name": "l3-5", "relay-information": {"check": True}}]))
        replace = {"ietf-netconf:operation": "replace"}
        self.assertEqual(
            self.calls(one("anew", server=server_list("10.0.0.2", "10.0.0.3"),
                           interface=interface_list("l3-6"), relay_information={"policy": "drop"},
                           **{"@": replace})),
            ["SetVrf anew 0x00000000", "DeleteServer anew 10.0.0.1",
             "DeleteL3InterfaceVlan anew l3-5 5", "DeleteL3Interface anew l3-5",
             "DeleteIfOption anew l3-5", "AddServer anew 10.0.0.3", "SetCheck anew false",
             "SetPolicy anew drop", "AddL3Interface anew l3-6", "SetL3InterfaceVlan anew l3-6 6",
             "SetL3InterfaceAddress anew l3-6 192.168.6.1"])

    def test_two_instances_in_one_commit_are_deleted_first_and_set_after(self):
        self.calls(configuration(relay("two-a", server=server_list("10.0.0.1")),
                                 relay("two-b", server=server_list("10.0.0.1"))))
        swap = {"ipv4": [{"address": "10.0.0.1", "@": DELETE}, {"address": "10.0.0.2"}]}
        self.assertEqual(
            self.calls(configuration(relay("two-a", server=swap), relay("two-b", server=swap))),
            ["DeleteServer two-a 10.0.0.1", "DeleteServer two-b 10.0.0.1",
             "AddServer two-a 10.0.0.2", "AddServer two-b 10.0.0.2"])

    def test_an_instance_removed_and_another_made_in_one_commit(self):
        self.calls(one("old", server=server_list("10.0.0.1")))
        self.assertEqual(
            self.calls(configuration(relay("old", **{"@": DELETE}),
                                     relay("new", server=server_list("10.0.0.1")))),
            ["DeleteInstance old", "AddServer new 10.0.0.1"])

    def test_a_commit_that_touches_nothing_subscribed_calls_nothing(self):
        self.assertEqual(self.calls({"metacli-internal:internal": {"vrf-config": {
            "stringTOindex": [{"name": "green", "vrf-idx": 20}]}}}), [])
        self.assertEqual(self.calls(l3("40")), [])

    def test_a_refused_commit_calls_nothing(self):
        self.assertEqual(self.calls(one("ref", vrf="nowhere", server=server_list("10.0.0.1")),
                                    refused=True), [])
