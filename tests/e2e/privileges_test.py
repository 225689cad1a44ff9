"""What the manager may do when root started it."""

import pathlib
import signal
import unittest

from configuration import configuration, relay
from processes import LIMIT, wait_until
from programs import Programs
from topology import Topology, assert_all_answered, instance, l3


RELAYING = f"{(1 << 13) | (1 << 10):016x}"  # CAP_NET_RAW, CAP_NET_BIND_SERVICE
FILTERED = "2"  # the value of Seccomp


def status_of(pid):
    return dict(line.split(":\t", 1) for line in pathlib.Path(f"/proc/{pid}/status").read_text().splitlines())


class PrivilegesWithoutAUser(Programs, unittest.TestCase):
    def test_are_given_up_too(self):
        status = status_of(self.start_and_wait().pid)
        self.assertEqual((status["CapPrm"], status["CapEff"]), (RELAYING, RELAYING))
        for name in ("CapInh", "CapBnd", "CapAmb"):
            self.assertEqual(int(status[name], 16), 0, name)
        self.assertEqual(status["NoNewPrivs"], "1")

    def test_stay_where_asked_for(self):
        status, own = status_of(self.start_and_wait("--keep-rights").pid), status_of("self")
        for name in ("CapPrm", "CapEff", "CapBnd", "NoNewPrivs"):
            self.assertEqual(status[name], own[name], name)


class SystemCalls(Programs, unittest.TestCase):
    def test_are_given_up_and_what_comes_later_works(self):
        journal = self.directory / "journal"
        process = self.start_and_wait("--journal", journal)
        self.assertEqual(status_of(process.pid)["Seccomp"], FILTERED)
        journal.rename(self.directory / "journal.1")
        process.send_signal(signal.SIGHUP)
        wait_until(journal.exists, "the journal is opened anew")
        self.assertEqual(self.relayctl("show").returncode, 0)
        process.terminate()
        self.assertEqual(process.wait(timeout=LIMIT), 0)
        self.assertEqual(list((self.directory / "run").iterdir()), [])

    def test_stay_where_asked_for(self):
        process = self.start_and_wait("--keep-rights")
        self.assertEqual(status_of(process.pid)["Seccomp"], status_of("self")["Seccomp"])


class Privileges(unittest.TestCase):
    def test_are_two_and_no_more_to_be_had(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        status = status_of(top.stack.pid("manager"))
        self.assertNotIn("0", status["Uid"].split())
        self.assertNotIn("0", status["Gid"].split())
        self.assertEqual(status["Groups"].strip(), "")
        self.assertEqual((status["CapPrm"], status["CapEff"]), (RELAYING, RELAYING))
        for name in ("CapInh", "CapBnd", "CapAmb"):
            self.assertEqual(int(status[name], 16), 0, name)
        self.assertEqual(status["NoNewPrivs"], "1")
        assert_all_answered(self, top.load(5, 100, 0.1))

    def test_suffice_for_sockets_that_are_opened_later(self):
        top = Topology(self)
        top.network.answer("server")
        top.up(relay("none"))
        top.stack.edit(configuration(instance(), l3=[l3(5)]))
        top.stack.wait_state("l3-5", "up")
        assert_all_answered(self, top.load(5, 100, 0.1))
