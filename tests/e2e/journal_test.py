"""A journal on a disk that is full: lines are missing, and nothing else is."""

import os
import pathlib
import re
import signal
import unittest

from configuration import configuration, relay, server_list
from processes import wait_until
from service import served_meanwhile
from topology import Topology

DISK_SIZE = 64 * 1024


class FullDisk(unittest.TestCase):
    def setUp(self):
        """A stack whose manager has a small disk of its own, which nothing else sees, for its journal."""
        self.top = Topology(self)
        self.top.network.answer("server")
        place = self.top.network.directory / "disk"
        place.mkdir()
        self.top.network.directory.chmod(0o755)  # for the manager, whoever it runs as
        stack = self.top.stack
        stack.prefix += ["unshare", "--mount", "sh", "-c",
                         f'mount -t tmpfs -o size={DISK_SIZE} tmpfs {place} && exec "$@"', "sh"]
        stack.manager_options = f"--journal {place}/journal"
        self.top.up()
        self.disk = pathlib.Path(f"/proc/{stack.pid('manager')}/root{place}")
        self.journal = self.disk / "journal"

    def fill(self):
        with open(self.disk / "filler", "wb", buffering=0) as filler:
            with self.assertRaises(OSError):
                while True:
                    filler.write(bytes(4096))
        # More than fits the rest of the journal's last page, which still takes lines.
        self.commit("large", *(f"10.1.{number}.1" for number in range(250)))
        wait_until(lambda: self.status()["journal_dropped"], "calls are dropped")

    def commit(self, name, *servers):
        self.top.stack.edit(configuration(relay(name, server=server_list("10.0.0.9", *servers))))

    def status(self):
        return self.top.stack.status()

    def test_stops_neither_commits_nor_packets(self):
        before = self.journal.read_text()
        with served_meanwhile(self, self.top, 5):
            self.fill()
            self.assertEqual(self.status()["journal_fault"], "No space left on device")
            self.commit("r2")
            self.assertIn("r2", self.top.stack.instance_names())
        self.assertTrue(self.status()["in_sync"])
        self.assertTrue(self.journal.read_text().startswith(before))
        told = [fault["text"] for fault in self.top.stack.faults() if "journal" in fault["text"]]
        self.assertEqual(len(told), 1, told)
        self.assertIn("No space left on device", told[0])

    def test_that_has_room_again_is_written_and_tells_what_is_missing(self):
        self.fill()
        (self.disk / "filler").unlink()
        self.commit("r3")
        wait_until(lambda: self.status()["journal_fault"] is None, "the journal is written")
        gap = re.search(r"\n# (\d+) calls are missing: No space left on device\n(.+\n)+$", self.journal.read_text())
        self.assertEqual(int(gap[1]), self.status()["journal_dropped"])
        self.assertIn(" r3", gap[2])

    def test_is_opened_anew_on_sighup(self):
        old = self.disk / "journal.1"
        self.journal.rename(old)
        os.kill(self.top.stack.pid("manager"), signal.SIGHUP)
        wait_until(self.journal.exists, "there is a new journal")
        size = old.stat().st_size
        self.commit("r4")
        wait_until(lambda: " r4" in self.journal.read_text(), "the new journal is written")
        self.assertEqual(old.stat().st_size, size)
