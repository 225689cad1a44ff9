"""What the manager may do when root started it."""

import pathlib
import unittest

from configuration import configuration, relay
from topology import Topology, assert_all_answered, instance, l3


class Privileges(unittest.TestCase):
    def test_are_two_and_no_more_to_be_had(self):
        top = Topology(self)
        top.network.answer("server")
        top.up()
        status = dict(line.split(":\t", 1) for line in
                      pathlib.Path(f"/proc/{top.stack.pid('manager')}/status").read_text().splitlines())
        self.assertNotIn("0", status["Uid"].split())
        self.assertNotIn("0", status["Gid"].split())
        self.assertEqual(status["Groups"].strip(), "")
        two = f"{(1 << 13) | (1 << 10):016x}"  # CAP_NET_RAW, CAP_NET_BIND_SERVICE
        self.assertEqual((status["CapPrm"], status["CapEff"]), (two, two))
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
