"""What the programs that ask the DHCP manager are linked from: the control protocol, and nothing of the manager."""

import unittest

from paths import BIN
from processes import run

MANAGER = ("dhcp_manager::", "dhcp_relay::wire::")  # the manager's own, and how it talks to the daemon


def symbols(program):
    return run("nm", "--demangle", BIN / program).stdout


class LinksNothingOfTheDatapath(unittest.TestCase):
    def check(self, program):
        text = symbols(program)
        self.assertIn("dhcp_relay::control::", text, "there are symbols to look at")
        for namespace in MANAGER:
            self.assertEqual([line for line in text.splitlines() if namespace in line], [])

    def test_in_the_operators_command(self):
        self.check("dhcp-relayctl")

    def test_in_the_state_process(self):
        self.check("dhcp-relay-stated")

    def test_while_the_manager_has_all_of_it(self):
        text = symbols("dhcp-manager")
        for namespace in MANAGER:
            self.assertIn(namespace, text)
