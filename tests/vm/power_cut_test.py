"""A cut of power: what was saved is there after it, and whole."""

import json
import os
import pathlib
import random
import tempfile
import time
import unittest

from commit_states import document, number_of
from machine import Machine
from volatile_disk import VolatileDisk

CUTS = int(os.environ.get("VX_POWER_CUTS", 2))
COMMITS = (4, 12)  # at least, before a cut
LONGEST_DELAY = 1.0  # seconds between a report and the cut


class PowerCut(unittest.TestCase):
    def setUp(self):
        self.seed = int(os.environ.get("VX_SEED", 0)) or random.SystemRandom().getrandbits(32)
        print(f"VX_SEED={self.seed}", flush=True)
        self.random = random.Random(self.seed)
        self.directory = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory(prefix="vxv.")))
        self.disk = VolatileDisk(self, self.directory, "data", "128M")

    def test_keeps_every_commit_that_was_saved(self):
        begun = saved = 0
        for cut in range(CUTS + 1):
            machine = self.boot(cut, begun + 1)
            held = self.held_after_start(machine)
            print(f"cut {cut}: commits {saved} (saved) to {begun} (begun), the datastore holds {held}", flush=True)
            self.assertTrue(saved <= held <= begun, f"{held} is not among {saved} to {begun}; seed {self.seed}")
            if cut < CUTS:
                begun, saved = self.commit_until_cut(machine)
            self.cut(machine)

    def boot(self, cut, first):
        directory = self.directory / f"boot-{cut}"
        directory.mkdir()
        return Machine(self, directory, "commit_job", disks=self.disk.attach(), settings={"VX_FIRST": first})

    def held_after_start(self, machine):
        """The number of the commit that the datastore holds, and the manager with it."""
        machine.wait_for(lambda: machine.values("manager"), "the stack is up")
        held = number_of(json.loads(machine.values("running")[0]))
        l3 = document(held)["vx-config:config"]["vx-interface:interface"]["l3"] if held else []
        self.assertEqual(sorted(json.loads(machine.values("manager")[0])),
                         sorted(entry["ipv4"]["address"]["ip"].split("/")[0] for entry in l3))
        return held

    def commit_until_cut(self, machine):
        """The last commit that was begun, and the last of which it was known that it was saved."""
        wanted = self.random.randint(*COMMITS)
        machine.wait_for(lambda: len(machine.values("returned")) >= wanted, f"{wanted} commits")
        time.sleep(self.random.uniform(0, LONGEST_DELAY))  # the moment of the cut, not a wait for something
        self.cut(machine)
        self.assertTrue(machine.values("saved"), "no commit was saved before the cut")
        return int(machine.values("begun")[-1]), int(machine.values("saved")[-1])

    def cut(self, machine):
        self.disk.cut()
        machine.kill()
