"""What each commit makes the daemon call on the manager, on a real datastore, by the manager's journal."""

import json
import unittest

from stack import Stack, configuration, is_running, relay, wait_until

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


def servers(*addresses):
    return {"ipv4": [{"address": entry} for entry in addresses]}


class Commits(unittest.TestCase):
    """One stack for all; every test has instances of its own."""

    @classmethod
    def setUpClass(cls):
        class Owner:  # what a Stack needs of a test
            addCleanup = cls.addClassCleanup
        cls.stack = Stack(Owner)
        cls.stack.up(config=configuration(
            l3=[("5", 5, "192.168.5.1/24"), ("6", 6, "192.168.6.1/24")],
            vrfs={"red": 7, "blue": 12}))

    def calls(self, document, refused=False):
        """The calls that a commit caused; they are there when it returns."""
        before = len(self.stack.journal())
        sent = self.count()
        result = self.stack.edit(document, check=False)
        self.assertEqual(result.returncode != 0, refused, result.stderr)
        wait_until(lambda: self.count() - sent == len(self.stack.journal()) - before, "the journal is written")
        return self.stack.journal()[before:]

    def count(self):
        return json.loads(self.stack.tool("dhcp-relayctl", "status", "--json").stdout)["calls"]

    def assert_same_after_a_fresh_dump(self, name):
        """Other tests' instances may have settings that were never set, which a dump tells and a commit does not."""
        def instances():
            return [entry for entry in self.stack.table() if entry["name"] == name]
        before = instances()
        self.stack.kill("manager")
        self.stack.start("manager")
        self.stack.wait_in_sync()
        self.assertEqual(instances(), before)

    def test_an_instance_with_everything_in_one_commit(self):
        self.assertEqual(
            self.calls(one("all", vrf="red", server=servers("10.0.0.1", "10.0.0.2"),
                           interface=[{"name": "l3-5"}],
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
        self.assert_same_after_a_fresh_dump("all")
        self.assertEqual(self.calls(configuration({"name": "all", "@": DELETE})),
                         ["DeleteInstance all"])
        self.assert_same_after_a_fresh_dump("all")

    def test_a_leaf_set_changed_and_reset_to_its_default(self):
        self.calls(one("leaf"))
        self.assertEqual(self.calls(one("leaf", relay_information={"check": True})),
                         ["SetCheck leaf true"])
        self.assertEqual(self.calls(one("leaf", relay_information={"check": False})),
                         ["SetCheck leaf false"])
        self.assertEqual(self.calls(one("leaf", relay_information={"policy": "drop"})),
                         ["SetPolicy leaf drop"])
        self.assertEqual(
            self.calls(one("leaf", relay_information={"policy": "drop", "@policy": DELETE})),
            ["SetPolicy leaf keep"])

    def test_servers_added_removed_and_both_in_one_commit(self):
        self.assertEqual(self.calls(one("srv", server=servers("10.0.0.1"))),
                         ["AddServer srv 10.0.0.1"])
        self.assertEqual(
            self.calls(one("srv", server={"ipv4": [{"address": "10.0.0.1", "@": DELETE},
                                                   {"address": "10.0.0.2"}]})),
            ["DeleteServer srv 10.0.0.1", "AddServer srv 10.0.0.2"])
        self.assertEqual(
            self.calls(one("srv", server={"ipv4": [{"address": "10.0.0.2", "@": DELETE}]})),
            ["DeleteServer srv 10.0.0.2"])

    def test_an_interface_removed_while_its_vlan_stays(self):
        self.assertEqual(self.calls(one("itf", interface=[{"name": "l3-6"}])),
                         ["AddL3Interface itf l3-6", "SetL3InterfaceVlan itf l3-6 6",
                          "SetL3InterfaceAddress itf l3-6 192.168.6.1"])
        self.assertEqual(self.calls(one("itf", interface=[{"name": "l3-6", "@": DELETE}])),
                         ["DeleteL3InterfaceVlan itf l3-6 6", "DeleteL3Interface itf l3-6"])

    def test_vlan_and_address_of_a_listed_interface(self):
        self.calls(l3("20", **vlan(20), **address("192.168.20.1/24")))
        self.calls(one("l3", interface=[{"name": "l3-20"}]))
        self.assertEqual(self.calls(l3("20", **vlan(21))),
                         ["DeleteL3InterfaceVlan l3 l3-20 20", "AddL3Interface l3 l3-20",
                          "SetL3InterfaceVlan l3 l3-20 21"])
        self.assertEqual(self.calls(l3("20", **address("192.168.21.1/24"))),
                         ["AddL3Interface l3 l3-20", "SetL3InterfaceAddress l3 l3-20 192.168.21.1"])

    def test_vlan_of_an_unlisted_interface_calls_nothing(self):
        self.assertEqual(self.calls(l3("30", **vlan(30), **address("192.168.30.1/24"))), [])
        self.assertEqual(self.calls(l3("30", **vlan(31))), [])

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
        self.assertEqual(self.calls(override(**{"@": DELETE})), ["DeleteIfOption ovr l3-5"])

    def test_two_instances_in_one_commit_are_deleted_first_and_set_after(self):
        self.calls(configuration(relay("two-a", server=servers("10.0.0.1")),
                                 relay("two-b", server=servers("10.0.0.1"))))
        swap = {"ipv4": [{"address": "10.0.0.1", "@": DELETE}, {"address": "10.0.0.2"}]}
        self.assertEqual(
            self.calls(configuration(relay("two-a", server=swap), relay("two-b", server=swap))),
            ["DeleteServer two-a 10.0.0.1", "DeleteServer two-b 10.0.0.1",
             "AddServer two-a 10.0.0.2", "AddServer two-b 10.0.0.2"])

    def test_a_commit_that_touches_nothing_subscribed_calls_nothing(self):
        self.assertEqual(self.calls({"metacli-internal:internal": {"vrf-config": {
            "stringTOindex": [{"name": "green", "vrf-idx": 20}]}}}), [])
        self.assertEqual(self.calls(l3("40")), [])

    def test_a_refused_commit_calls_nothing(self):
        self.assertEqual(self.calls(one("ref", vrf="nowhere", server=servers("10.0.0.1")),
                                    refused=True), [])


class ABrokenCommit(unittest.TestCase):
    def test_ends_the_daemon_with_its_fault_and_the_restarted_one_is_consistent(self):
        stack = Stack(self)
        stack.up(config=configuration(relay("r1")))
        stack.kill("daemon")
        # A model that lets through what the handler does not know.
        loose = stack.directory / "loose-policy.yang"
        loose.write_text("""module loose-policy {
            yang-version 1.1; namespace "urn:test:loose-policy"; prefix lp;
            import vx-config { prefix vxc; } import vx-dhcp-relay { prefix vxdr; }
            deviation /vxc:config/vxdr:dhcp/vxdr:relay/vxdr:relay-information/vxdr:policy {
              deviate replace { type enumeration { enum drop { value 0; } enum keep { value 1; }
                enum replace { value 2; } enum append { value 3; } } } } }""")
        stack.tool("sysrepoctl", "-i", str(loose))
        process = stack.start("daemon")
        stack.wait_in_sync()
        stack.edit(configuration(relay("r1", relay_information={"policy": "append"})))
        self.assertEqual(process.wait(timeout=30), 1)
        fault = stack.faults()[-1]
        self.assertEqual((fault["function"], fault["line"]), ("main", 32))
        self.assertIn("map::at", fault["text"])

        stack.edit(configuration(relay("r1", relay_information={"policy": "drop"})))
        process = stack.start("daemon")
        wait_until(lambda: [entry["policy"] for entry in stack.table()] == ["drop"],
                   "the new dump is in")
        self.assertTrue(is_running(process.pid))


if __name__ == "__main__":
    unittest.main()
