"""Random commits from a printed seed: what each one calls is compared with an oracle written apart from the daemon.

VX_SEED=NUMBER repeats a run. VX_KEEP_JOURNAL=FILE copies the manager's journal of the run that is compared with the
oracle to FILE; with the same seed, two builds can be compared by their journals.
"""

import copy
import os
import random
import shutil
import unittest

import oracle
from processes import wait_until
from stack import Stack
from states import document

EDITS = 500
NAMES = ("a", "b", "c", "d")
KEYS = ("1", "2", "3")
SERVERS = tuple(f"10.0.0.{i}" for i in range(1, 6))


class Editor:
    """Makes random valid changes; with `plain`, only those after which a fresh dump would change nothing."""

    def __init__(self, seed, plain):
        self.random = random.Random(seed)
        self.plain = plain
        self.state = {"relays": {}, "l3": {}}

    def options(self):
        values = {leaf: self.random.choice((True, False)) for leaf in ("check", "trusted", "option")}
        values["policy"] = self.random.choice(("drop", "keep", "replace"))
        if self.plain:
            return values
        return {leaf: value for leaf, value in values.items() if self.random.random() < 0.5}

    def edit(self):
        before = copy.deepcopy(self.state)
        for _ in range(self.random.randint(1, 4)):
            self.random.choice((self.relay, self.relay, self.relay, self.l3))()
        return before, self.state

    def l3(self):
        key = self.random.choice(KEYS)
        entry = {"vlan": self.random.randint(1, 50), "ip": f"192.168.{key}.{self.random.randint(1, 9)}/24"}
        if not self.plain:
            if self.random.random() < 0.2:
                self.state["l3"].pop(key, None)
                return
            entry = {leaf: value if self.random.random() < 0.7 else None for leaf, value in entry.items()}
        self.state["l3"][key] = entry

    def relay(self):
        name = self.random.choice(NAMES)
        relays = self.state["relays"]
        if name in relays and self.random.random() < 0.15:
            del relays[name]
            return
        entry = relays.setdefault(name, copy.deepcopy(oracle.EMPTY_RELAY) | {"options": self.options()})
        self.random.choice((self.vrf, self.server, self.option, self.interface, self.override))(name, entry)

    def vrf(self, _name, entry):
        entry["vrf"] = self.random.choice((None, "red", "blue"))

    def server(self, _name, entry):
        entry["servers"] = set(self.random.sample(SERVERS, self.random.randint(0, 3)))

    def option(self, _name, entry):
        entry["options"] = self.options()

    def interface(self, name, entry):
        # With `plain`, an interface has one place where it may be listed.
        keys = [key for key in KEYS if not self.plain or NAMES[int(key) - 1] == name]
        entry["interfaces"] = {f"l3-{key}" for key in keys if key in self.state["l3"] and self.random.random() < 0.6}

    def override(self, _name, entry):
        interface = f"l3-{self.random.choice(KEYS)}"
        if interface in entry["overrides"] and self.random.random() < 0.4:
            del entry["overrides"][interface]
        else:
            entry["overrides"][interface] = self.options()


class RandomCommits(unittest.TestCase):
    def run_edits(self, plain, edits):
        seed = int(os.environ.get("VX_SEED", random.randrange(2**32)))
        print(f"seed {seed} (VX_SEED={seed} repeats the run)", flush=True)
        editor = Editor(seed, plain)
        stack = Stack(self)
        stack.up(config=document(editor.state))
        done = 0
        for number in range(edits):
            before, after = editor.edit()
            stack.replace(document(after))
            calls = self.wait_calls(stack, done, before, after, f"seed {seed}, edit {number}")
            done += len(calls)
        return stack, done

    def wait_calls(self, stack, done, before, after, where):
        """The calls behind the first `done` of the journal, once they are those of the commit. One that comes after
        them is found at the next commit."""
        calls = []

        def are_right():
            calls[:] = stack.journal()[done:]
            return oracle.check(calls, before, after) is None
        try:
            wait_until(are_right, f"{where}: the calls are those of the oracle")
        except AssertionError as error:
            self.fail(f"{error}: {oracle.check(calls, before, after)}\n{calls}")
        return calls

    def test_call_what_the_oracle_says(self):
        stack, calls = self.run_edits(plain=False, edits=EDITS)
        if "VX_KEEP_JOURNAL" in os.environ:
            shutil.copyfile(stack.journal_file(), os.environ["VX_KEEP_JOURNAL"])
        self.assertGreater(calls, EDITS)  # there was something to compare

    def test_leave_the_table_that_a_fresh_dump_makes(self):
        stack, _ = self.run_edits(plain=True, edits=EDITS // 5)
        table = stack.table()
        stack.kill("manager")
        stack.start("manager")
        stack.wait_in_sync()
        self.assertEqual(stack.table(), table)
