"""The operator's command, dhcp-relayctl."""

import unittest

from programs import Programs


class Command(Programs, unittest.TestCase):
    def test_without_a_manager_tells_so(self):
        for command in ("show", "status"):
            result = self.relayctl(command)
            self.assertEqual(result.returncode, 1)
            self.assertIn("the DHCP manager does not answer on", result.stderr)

    def test_shows_an_empty_table(self):
        self.start_and_wait()
        self.assertEqual(self.relayctl("show", "--json").stdout, '{"instances":[]}\n')
        self.assertEqual(self.relayctl("show").stdout, "no relay instances\n")

    def test_shows_that_nothing_is_relayed_yet(self):
        self.start_and_wait()
        for topic, text in (("instances", "no relay instances\n"), ("interfaces", "no relay interfaces\n"),
                            ("servers", "no servers\n"), ("counters", "other 0\n")):
            self.assertEqual(self.relayctl("show", topic).stdout, text)
        self.assertEqual(self.relayctl("show", "instances", "--json").stdout, '{"instances":[]}\n')

    def test_status_fails_while_there_is_no_daemon(self):
        self.start_and_wait()
        result = self.relayctl("status", "--wait", "0")
        self.assertEqual(result.returncode, 1)
        self.assertIn("not in sync", result.stdout)

    def test_takes_the_directory_from_its_option(self):
        self.start_and_wait()
        directory = self.environment.pop("DHCP_MANAGER_DIR")
        self.assertEqual(self.relayctl("--runtime-dir", directory, "show").returncode, 0)

    def test_prints_its_help_and_version_and_refuses_other_arguments(self):
        self.assertIn("usage:", self.relayctl("--help").stdout)
        self.assertRegex(self.relayctl("--version").stdout, r"^dhcp-relayctl \d+\.\d+\.\d+\n$")
        for arguments, message in (
                ([], "missing command"),
                (["dance"], "unknown command 'dance'"),
                (["show", "weather"], "unknown topic 'weather'"),
                (["show", "counters", "now"], "unexpected argument 'now'"),
                (["status", "interfaces"], "unexpected argument 'interfaces'"),
                (["status", "--wait", "soon"], "'soon' is not a number of seconds"),
                (["clear"], "only counters can be cleared"),
                (["clear", "everything"], "only counters can be cleared"),
                (["--fast", "show"], "--fast")):
            result = self.relayctl(*arguments)
            self.assertEqual(result.returncode, 2, arguments)
            self.assertIn(message, result.stderr)
