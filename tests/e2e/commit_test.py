"""What each commit makes the daemon call on the manager, on a real datastore, by the manager's journal."""

import json
import os
import signal
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

    fence = False  # what the last call of a test set

    @classmethod
    def setUpClass(cls):
        class Owner:  # what a Stack needs of a test
            addCleanup = cls.addClassCleanup
        cls.stack = Stack(Owner)
        cls.stack.up(config=configuration(
            relay("fence"),
            l3=[("5", 5, "192.168.5.1/24"), ("6", 6, "192.168.6.1/24")],
            vrfs={"red": 7, "blue": 12}))

    def calls(self, document, refused=False):
        """The calls that a commit caused, and no other: all that the daemon sent before those of a next commit."""
        before = len(self.stack.journal())
        result = self.stack.edit(document, check=False)
        self.assertEqual(result.returncode != 0, refused, result.stderr)
        last = self.make_last_call()
        wait_until(lambda: last in self.stack.journal()[before:], "the journal is written")
        calls = self.stack.journal()[before:]
        self.assertEqual(calls[-1], last)
        return calls[:-1]

    def make_last_call(self):
        """Commits what makes one call, and returns it. Calls arrive in their order."""
        Commits.fence = not Commits.fence
        self.stack.edit(one("fence", relay_information={"check": Commits.fence}))
        return f"SetCheck fence {str(Commits.fence).lower()}"

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

    def test_a_listed_interface_that_loses_its_vlan_and_its_address_calls_nothing(self):
        self.calls(l3("22", **vlan(22), **address("192.168.22.1/24")))
        self.calls(one("l3-lost", interface=[{"name": "l3-22"}]))
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
        self.calls(one("whole", vrf="red", server=servers("10.0.0.1"), interface=[{"name": "l3-5"}],
                       relay_information={"check": True},
                       if_option=[{"name": "l3-5", "relay-information": {"check": True}}]))
        self.assertEqual(self.calls(one("whole", **{"@": DELETE})), ["DeleteInstance whole"])

    def test_an_instance_removed_and_made_anew_in_one_commit_is_told_by_its_differences(self):
        self.calls(one("anew", vrf="red", server=servers("10.0.0.1", "10.0.0.2"),
                       interface=[{"name": "l3-5"}], relay_information={"check": True},
                       if_option=[{"name": "l3-5", "relay-information": {"check": True}}]))
        replace = {"ietf-netconf:operation": "replace"}
        self.assertEqual(
            self.calls(one("anew", server=servers("10.0.0.2", "10.0.0.3"),
                           interface=[{"name": "l3-6"}], relay_information={"policy": "drop"},
                           **{"@": replace})),
            ["SetVrf anew 0x00000000", "DeleteServer anew 10.0.0.1",
             "DeleteL3InterfaceVlan anew l3-5 5", "DeleteL3Interface anew l3-5",
             "DeleteIfOption anew l3-5", "AddServer anew 10.0.0.3", "SetCheck anew false",
             "SetPolicy anew drop", "AddL3Interface anew l3-6", "SetL3InterfaceVlan anew l3-6 6",
             "SetL3InterfaceAddress anew l3-6 192.168.6.1"])

    def test_two_instances_in_one_commit_are_deleted_first_and_set_after(self):
        self.calls(configuration(relay("two-a", server=servers("10.0.0.1")),
                                 relay("two-b", server=servers("10.0.0.1"))))
        swap = {"ipv4": [{"address": "10.0.0.1", "@": DELETE}, {"address": "10.0.0.2"}]}
        self.assertEqual(
            self.calls(configuration(relay("two-a", server=swap), relay("two-b", server=swap))),
            ["DeleteServer two-a 10.0.0.1", "DeleteServer two-b 10.0.0.1",
             "AddServer two-a 10.0.0.2", "AddServer two-b 10.0.0.2"])

    def test_an_instance_removed_and_another_made_in_one_commit(self):
        self.calls(one("old", server=servers("10.0.0.1")))
        self.assertEqual(
            self.calls(configuration(relay("old", **{"@": DELETE}),
                                     relay("new", server=servers("10.0.0.1")))),
            ["DeleteInstance old", "AddServer new 10.0.0.1"])

    def test_a_commit_that_touches_nothing_subscribed_calls_nothing(self):
        self.assertEqual(self.calls({"metacli-internal:internal": {"vrf-config": {
            "stringTOindex": [{"name": "green", "vrf-idx": 20}]}}}), [])
        self.assertEqual(self.calls(l3("40")), [])

    def test_a_refused_commit_calls_nothing(self):
        self.assertEqual(self.calls(one("ref", vrf="nowhere", server=servers("10.0.0.1")),
                                    refused=True), [])


class TheEndOfACommit(unittest.TestCase):
    """When a commit returns, its calls are with the socket: the daemon may die, and they arrive all the same."""

    def test_leaves_its_calls_with_a_manager_that_does_not_read(self):
        stack = Stack(self)
        stack.up(config=configuration(relay("r1")))
        os.kill(stack.pid("manager"), signal.SIGSTOP)
        self.addCleanup(os.kill, stack.pid("manager"), signal.SIGCONT)
        stack.edit(one("r1", server=servers("10.0.0.1", "10.0.0.2")))
        self.assertEqual(self.calls_after_death(stack, "AddServer"), ["AddServer r1 10.0.0.1", "AddServer r1 10.0.0.2"])

    def test_leaves_the_calls_of_a_large_one_with_a_manager_that_reads(self):
        stack = Stack(self)
        stack.up(config=configuration(relay("r1")))
        names = [f"i{number:04}" for number in range(1000)]
        stack.edit(configuration(*(relay(name, server=servers("10.0.0.1"), relay_information={
            "check": True, "trusted": True, "option": True, "policy": "drop"}) for name in names)))
        self.assertEqual(self.calls_after_death(stack, "AddServer"), [f"AddServer {name} 10.0.0.1" for name in names])

    @staticmethod
    def calls_after_death(stack, operation):
        """Kills the daemon at once; what of its calls the manager got."""
        stack.kill("daemon")
        os.kill(stack.pid("manager"), signal.SIGCONT)
        def is_connected():
            return json.loads(stack.tool("dhcp-relayctl", "status", "--json", check=False).stdout)["connected"]
        wait_until(lambda: not is_connected(), "the manager has read all and noticed the daemon's death")
        return [call for call in stack.journal() if call.startswith(operation)]


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
