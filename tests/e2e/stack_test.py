"""The stack as an operator runs it: real datastore, real daemon, real manager."""

import json
import os
import shutil
import signal
import unittest
import unittest.mock

from configuration import configuration, interface_list, relay, server_list
from network import Network
from paths import BIN, YANG
from processes import LIMIT, is_running, wait_until
from stack import Stack

EXAMPLE = YANG / "example-config.json"


class Up(unittest.TestCase):
    def test_returns_with_the_configuration_in_the_managers_table(self):
        stack = Stack(self)
        stack.up(config=configuration(
            relay("r1", vrf="red", server=server_list("10.0.0.1"),
                  interface=interface_list("l3-5"),
                  relay_information={"option": True, "check": False, "trusted": True,
                                     "policy": "drop"},
                  if_option=[{"name": "l3-5", "relay-information": {"check": True}}]),
            l3=[("5", 5, "192.168.1.1/24")], vrfs={"red": 7}))
        shown = stack.tool("dhcp-relayctl", "show", "--json").stdout
        self.assertEqual(
            shown,
            '{"instances":[{"name":"r1","servers":["10.0.0.1"],"check":false,"trusted":true,'
            '"option":true,"policy":"drop","vrf":"0x01000007",'
            '"interfaces":[{"name":"l3-5","vlan":5,"address":"192.168.1.1"}],'
            '"overrides":[{"name":"l3-5","check":true,"trusted":false,"option":false,'
            '"policy":"keep"}]}]}\n')

    def test_journal_holds_the_calls_of_the_dump_in_order(self):
        stack = Stack(self)
        stack.up(config=configuration(
            relay("r1", vrf="red", server=server_list("10.0.0.1"),
                  interface=interface_list("l3-5"), relay_information={"policy": "replace"},
                  if_option=[{"name": "l3-5"}]),
            l3=[("5", 5, "192.168.1.1/24")], vrfs={"red": 7}))
        wait_until(lambda: "SetVrf r1 0x01000007" in stack.journal(), "the journal is written")
        self.assertEqual(stack.journal(), [
            "AddServer r1 10.0.0.1", "SetCheck r1 false", "SetTrusted r1 false",
            "SetOption r1 false", "SetPolicy r1 replace", "AddL3Interface r1 l3-5",
            "SetL3InterfaceVlan r1 l3-5 5", "SetL3InterfaceAddress r1 l3-5 192.168.1.1",
            "SetIfOptionCheck r1 l3-5 false", "SetIfOptionTrusted r1 l3-5 false",
            "SetIfOptionOption r1 l3-5 false", "SetIfOptionPolicy r1 l3-5 keep",
            "SetVrf r1 0x01000007"])

    def test_shows_the_whole_example_configuration(self):
        stack = Stack(self)
        stack.up("--config", EXAMPLE)
        configured = json.loads(EXAMPLE.read_text())["vx-config:config"]["vx-dhcp-relay:dhcp"]["relay"]
        self.assertEqual(stack.instance_names(), sorted(entry["name"] for entry in configured))

    def test_leaves_its_files_in_the_directory(self):
        stack = Stack(self)
        stack.up(config=configuration())
        for name in ("daemon.log", "manager.log", "saver.log", "journal", "daemon.pid", "manager.pid", "saver.pid"):
            self.assertTrue((stack.directory / name).exists(), name)

    def test_without_trace_logs_nothing_of_the_dump(self):
        stack = Stack(self)
        stack.up(config=configuration(relay("r1")))
        self.assertEqual((stack.directory / "daemon.log").read_text(), "")

    def test_with_trace_logs_what_is_read_and_sent(self):
        stack = Stack(self)
        stack.up("--trace", config=configuration(
            relay("r1", server=server_list("10.0.0.1"))))
        log = (stack.directory / "daemon.log").read_text()
        for function, text in (("DhcpRelayCfgHandler", "Entry Point"),
                               ("ProcessDumpRequest", "Entry Point"),
                               ("DumpConfig", "Fetching DHCP Relay config"),
                               ("DumpConfig", "DHCP Relay: 0"),
                               ("DumpInstance", "\tOption: 0"),
                               ("DumpInstance", "\tPolicy: keep"),
                               ("DumpInstance", "Server IP Address: 10.0.0.1"),
                               ("SendSetConfig", "Set: ")):
            self.assertRegex(log, f"{function}:[0-9]+ {text}\n")
        self.assertIn(
            "Set: \n\tDHCP Relay name: r1\n\tAdded Server Addresses: \n\t\t10.0.0.1\n"
            "\tShould delete: false\n\tTrusted: no\n\tCheck: no\n\tOption: no\n\tPolicy: keep\n", log)

    def test_refuses_a_second_stack_in_the_same_directory(self):
        stack = Stack(self)
        stack.up(config=configuration(relay("r1")))
        pid = stack.pid("daemon")
        result = stack.script("up")
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("runs in", result.stderr)
        self.assertTrue(is_running(pid))
        self.assertEqual(stack.instance_names(), ["r1"])

    def test_tells_why_the_datastore_refuses_a_configuration(self):
        stack = Stack(self)
        with self.assertRaisesRegex(AssertionError, "nowhere"):
            stack.up(config=configuration(relay("r1", vrf="nowhere")))
        self.assertFalse((stack.directory / "daemon.pid").exists())

    def test_tells_of_bad_arguments(self):
        stack = Stack(self)
        for arguments, message in ((("--config",), "needs a file"),
                                   (("--config", "/nowhere/at/all"), "cannot read"),
                                   (("--fast",), "unknown option")):
            result = stack.script("up", *arguments)
            self.assertNotEqual(result.returncode, 0)
            self.assertIn(message, result.stderr)


class Down(unittest.TestCase):
    def test_stops_both_processes_and_removes_the_shared_memory(self):
        stack = Stack(self)
        stack.up(config=configuration(relay("r1")))
        pids = stack.pid("daemon"), stack.pid("manager")
        self.assertNotEqual(stack.shared_memory(), [])
        self.assertEqual(stack.script("down").returncode, 0)
        self.assertEqual([is_running(pid) for pid in pids], [False, False])
        self.assertEqual(stack.shared_memory(), [])
        self.assertEqual(stack.faults(), [])

    def test_keeps_the_configuration_for_the_next_up(self):
        stack = Stack(self)
        stack.up(config=configuration(relay("r1")))
        stack.edit(configuration(relay("r2")))
        stack.script("down")
        stack.up()
        self.assertEqual(stack.instance_names(), ["r1", "r2"])

    def test_stops_processes_whose_programs_were_replaced(self):
        stack = Stack(self)
        programs = stack.directory / "bin"
        programs.mkdir()
        for program in ("dhcp-relay-app", "dhcp-manager", "dhcp-relay-stated", "dhcp-relay-saved", "dhcp-relayctl"):
            shutil.copy(BIN / program, programs)
        with unittest.mock.patch.dict(os.environ, VX_BIN_DIR=str(programs)):
            stack.up(config=configuration(relay("r1")))
            pids = [stack.pid(name) for name in ("daemon", "manager", "state", "saver")]
            for program in programs.iterdir():
                shutil.copy(program, programs / "new")
                (programs / "new").rename(program)
            self.assertEqual(stack.script("status").returncode, 0)
            self.assertEqual(stack.script("down").returncode, 0)
        self.assertEqual([pid for pid in pids if is_running(pid)], [])

    def test_processes_end_with_status_0_on_sigterm(self):
        stack = Stack(self)
        stack.up(config=configuration())
        for name in ("daemon", "manager", "saver"):
            stack.kill(name)
            process = stack.start(name)
            stack.wait_in_sync()
            stack.wait_saved()
            process.send_signal(signal.SIGTERM)
            self.assertEqual(process.wait(timeout=LIMIT), 0, name)
            stack.start(name)
            stack.wait_in_sync()


class Saved(unittest.TestCase):
    """A commit that has returned survives whatever ends afterwards."""

    PROCESSES = ("daemon", "manager", "state", "saver")

    def setUp(self):
        self.stack = Stack(self)
        self.stack.up(config=configuration(relay("r1", vrf="red"), vrfs={"red": 7}))

    def commit(self):
        self.stack.edit(configuration(relay("r2", vrf="blue"), vrfs={"blue": 8}))

    def kill_everything(self):
        for name in self.PROCESSES:
            self.stack.kill(name)

    def remove_shared_memory(self):
        for name in self.stack.shared_memory():
            os.unlink(f"/dev/shm/{name}")

    def is_on_the_disk(self):
        repository = self.stack.directory / "sysrepo"
        files = [repository / "dhcp-relay-saved.pending", repository / "data" / "vx-config.startup"]
        return any('"r2"' in file.read_text() for file in files if file.exists())

    def assert_next_up_has_all(self):
        self.stack.up()
        self.assertEqual(self.stack.instance_names(), ["r1", "r2"])
        self.assertEqual([entry["vrf"] for entry in self.stack.table()], ["0x01000007", "0x01000008"])

    def test_survives_a_power_cut_once_it_is_on_the_disk(self):
        self.commit()
        wait_until(self.is_on_the_disk, "the commit is on the disk")
        self.kill_everything()
        self.remove_shared_memory()
        self.assert_next_up_has_all()

    def test_survives_a_power_cut_that_empties_the_files_of_its_processes(self):
        self.commit()
        wait_until(self.is_on_the_disk, "the commit is on the disk")
        self.kill_everything()
        self.remove_shared_memory()
        for name in self.PROCESSES:
            for ending in ("pid", "program"):
                (self.stack.directory / f"{name}.{ending}").write_text("")
        self.assert_next_up_has_all()

    def test_survives_a_kill_of_everything_at_once(self):
        self.commit()
        self.kill_everything()
        self.assert_next_up_has_all()

    def test_survives_a_saver_that_was_killed_before(self):
        self.stack.kill("saver")
        self.commit()
        self.assertEqual(self.stack.script("down").returncode, 0)
        self.assert_next_up_has_all()

    def test_survives_a_wipe_of_shared_memory_and_the_down_after_it(self):
        self.commit()
        wait_until(self.is_on_the_disk, "the commit is on the disk")
        self.remove_shared_memory()
        self.assertEqual(self.stack.script("down").returncode, 0)
        self.assert_next_up_has_all()

    def test_survives_the_loss_of_a_part_of_shared_memory_and_the_down_after_it(self):
        self.commit()
        for part in ("_vx-config.running", "_mod"):
            wait_until(self.is_on_the_disk, "the commit is on the disk")
            os.unlink(f"/dev/shm/{self.stack.environment()['SYSREPO_SHM_PREFIX']}{part}")
            self.assertEqual(self.stack.script("down").returncode, 0)
            self.assert_next_up_has_all()

    def test_does_not_keep_up_from_starting_when_shared_memory_is_damaged(self):
        self.commit()
        self.assertEqual(self.stack.script("down").returncode, 0)
        prefix = self.stack.environment()["SYSREPO_SHM_PREFIX"]
        with open(f"/dev/shm/{prefix}_main", "wb") as file:
            file.write(os.urandom(1000))
        self.assert_next_up_has_all()


class Status(unittest.TestCase):
    def test_succeeds_only_while_everything_runs(self):
        stack = Stack(self)
        self.assertNotEqual(stack.script("status").returncode, 0)
        stack.up(config=configuration())
        self.assertEqual(stack.script("status").returncode, 0)
        stack.kill("daemon")
        wait_until(lambda: stack.script("status").returncode != 0, "status tells of the dead daemon")
        self.assertIn("dhcp-relay-app: not running", stack.script("status").stdout)

    def test_tells_that_commits_are_not_saved(self):
        stack = Stack(self)
        stack.up(config=configuration())
        stack.kill("saver")
        self.assertEqual(stack.tool("dhcp-relayctl", "status", check=False).returncode, 3)
        result = stack.script("status")
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("dhcp-relay-saved: not running", result.stdout)
        self.assertIn("commits: not saved: dhcp-relay-saved does not run", result.stdout)
        stack.start("saver")
        stack.wait_saved()
        self.assertEqual(stack.tool("dhcp-relayctl", "status").returncode, 0)


class TwoStacks(unittest.TestCase):
    def check_apart(self, first, second):
        first.up(config=configuration(relay("one")))
        second.up(config=configuration(relay("two")))
        self.assertEqual(first.instance_names(), ["one"])
        self.assertEqual(second.instance_names(), ["two"])
        first.script("down")
        self.assertEqual(second.instance_names(), ["two"])
        second.kill("manager")
        second.start("manager")
        second.wait_in_sync()
        self.assertEqual(second.instance_names(), ["two"])

    def test_do_not_disturb_each_other(self):
        self.check_apart(Stack(self), Stack(self))

    def test_do_not_disturb_each_other_in_two_network_namespaces(self):
        network = Network(self)
        self.check_apart(Stack(self, network.prefix("first")), Stack(self, network.prefix("second")))
