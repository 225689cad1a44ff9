"""No commit is ever lost, whatever is stopped, killed, wiped or replaced meanwhile.

Committers commit at random, at the same time, with time-outs shorter than the daemon stands still; some are killed
meanwhile. Once it is quiet, the manager's table is that of the configuration, which is read afresh from the datastore.
Each commit happened, or did not, as its committer was told; one of a killed committer, entirely or not at all.

VX_SEED=NUMBER repeats the choices of a run; VX_STEPS=NUMBER is the number of commits, 500 if it is not set.
"""

import os
import random
import re
import shutil
import time
import unittest

import states
from committers import Committer, read_running
from disturbed_stack import DisturbedStack
from group import Group
from paths import BIN
from processes import is_running, wait_until
from relay_table import differences, expected_table, shown_table
from writer import Writer

STEPS = 500
GROUPS = 3
INSTANCES = 200
ROUND = 15  # commits between two comparisons, about
LOSS = 2.0  # seconds after which every commit is saved, on a loaded machine, too
SUBSCRIBER_SPAN = 5  # ms that another subscriber takes for each commit, so that committers are killed meanwhile
APPLICATIONS = {"dhcp-relay-app", "dhcp-relay-saved", "dhcp-relay-stated"}
SUBSCRIBERS = ("daemon", "state")
LOST = re.compile("datastore is gone|cannot take|configuration database lost")
TIMEOUT = 400  # ms that a committer waits at most
IDLE = 2.5  # seconds in which the daemon compares its copy with the datastore at least once


class Run:
    """One run of random commits on a stack that is disturbed."""

    def __init__(self, test, seed):
        self.random = random.Random(seed)
        self.test = test
        self.stack = DisturbedStack(test)
        self.stack.up(config={"metacli-internal:internal": states.vrf_table()})
        self.writers = [Writer(self.random, Group(self.random, number, INSTANCES // GROUPS), self.committer())
                        for number in range(GROUPS)]
        self.subscriber = self.committer()
        self.subscriber.subscribe(SUBSCRIBER_SPAN)
        self.steps = 0
        self.faults = 0  # before the latest loss
        self.deck = [self.restart_daemon] * 3 + [self.restart_manager, self.upgrade_models, self.patient_commit,
                                                 self.crash, self.wipe] + [self.commit] * 13
        self.cards = []
        test.addCleanup(self.kill_committers)

    def committer(self):
        return Committer(self.stack.environment(), self.stack.directory / "committers.log")

    def kill_committers(self):
        self.subscriber.kill()
        for writer in self.writers:
            writer.committer.kill()

    def keep_logs(self, directory):
        shutil.copytree(self.stack.directory, directory, dirs_exist_ok=True,
                        ignore=shutil.ignore_patterns("run", "sysrepo"))

    def log(self, text):
        with open(self.stack.directory / "run.log", "a", encoding="utf-8") as file:
            file.write(f"{time.time():.3f} step {self.steps}: {text}\n")

    def go(self, steps):
        while self.steps < steps:
            if not self.cards:
                self.cards = self.random.sample(self.deck, len(self.deck))
            self.round(self.cards.pop())
        self.compare()
        self.compare_again()

    def round(self, disturbance):
        self.log(f"round with {disturbance.__name__}")
        volleys = self.random.randint(1, ROUND - 1)
        at = self.random.randrange(volleys)
        for number in range(volleys):
            if self.random.random() < 0.1:
                self.stop_daemon_for(self.random.uniform(0, self.random.choice((0.2, 0.8))))
            if number == at:
                disturbance()
            else:
                self.commit()
        self.compare()
        if self.random.random() < 0.05:
            self.compare_again()

    def stop_daemon_for(self, seconds):
        if self.stack.stop_daemon_for(seconds):
            self.log(f"the daemon stands still for {seconds:.3f} s")

    def begin(self, timeout=None, count=None):
        """Begins commits at the same time."""
        writers = self.random.sample(self.writers, count or self.random.choice((1, 1, 2, 3)))
        for writer in writers:
            writer.begin(timeout or self.random.randint(50, TIMEOUT), refused=self.random.random() < 0.08)
        self.steps += len(writers)
        return writers

    def finish(self, writers):
        """Kills some of the committers while they commit, and takes the answers of the others. Those wait for 5 s when
        the killed one held a lock, whatever their own time-out is, so this is rare when there are others."""
        start = time.monotonic()
        chance = 0.3 if len(writers) == 1 else 0.06
        doomed = [(writer.random_moment(), writer) for writer in writers if self.random.random() < chance]
        for moment, writer in sorted(doomed, key=lambda item: item[0]):
            time.sleep(max(0, start + moment - time.monotonic()))
            self.log(f"writer {writer.group.number}: {writer.finish(was_killed=True)}")
        for writer in writers:
            if writer not in [entry for _, entry in doomed]:
                self.log(f"writer {writer.group.number}: {writer.finish()}")

    def commit(self):
        self.finish(self.begin())

    def patient_commit(self):
        """The datastore's own time-out, and a daemon that stands still for longer."""
        self.stop_daemon_for(5.3)
        self.finish(self.begin(timeout=5000, count=1))

    def restart_daemon(self):
        writers = self.begin()
        time.sleep(writers[0].random_moment())
        self.stack.restart("daemon")
        self.finish(writers)

    def restart_manager(self):
        writers = self.begin()
        self.stack.restart("manager")
        self.finish(writers)

    def upgrade_models(self):
        writers = self.begin()
        self.stack.upgrade_models()
        self.finish(writers)

    def crash(self):
        """Everything ends at once, and the running datastore is gone."""
        time.sleep(self.begin()[0].random_moment())
        moment = time.monotonic()
        self.stack.kill_everything()
        self.kill_committers()
        self.stack.wipe_shared_memory(self.random)
        self.stack.up()
        running = self.running()
        for writer in self.writers:
            writer.fall_back(running, moment - LOSS)
        self.subscriber.subscribe(SUBSCRIBER_SPAN)

    def wipe(self):
        """The running datastore is gone under processes that go on."""
        self.random.choice((self.wipe_saved, self.wipe_under_commits))()
        self.subscriber.subscribe(SUBSCRIBER_SPAN)

    def wipe_saved(self):
        """Nobody commits until all has been restored: commits would stand in the way of that."""
        self.compare()
        time.sleep(LOSS)
        self.wipe_files()
        self.kill_committers()
        wait_until(lambda: differences(self.committed(), states.entries(self.running())) == [], "all is restored")

    def wipe_under_commits(self):
        """Committers go on in the lost datastore, and others begin in the new one; all of them are killed soon. What
        the datastore holds then stands."""
        self.wait_for_all()
        for writer in self.writers:
            writer.begin_independent(TIMEOUT)
        time.sleep(self.writers[0].random_moment())
        self.wipe_files()
        time.sleep(self.random.uniform(0, 0.1))
        self.kill_committers()
        for _ in range(self.random.randint(0, 6)):
            self.commit_and_be_killed(self.random.choice(self.writers))
        wait_until(lambda: self.told_of_loss() or self.ended(), "the loss is told by all")
        self.wait_for_all()
        running = self.running()
        for writer in self.writers:
            writer.adopt(running)

    def wait_for_all(self):
        wait_until(lambda: all(self.stack.is_subscribed(name) for name in SUBSCRIBERS) or self.ended(), "all are there")
        self.stack.wait_saved()

    def wipe_files(self):
        self.faults = len(self.stack.faults())
        self.log(f"wiped: {' '.join(self.stack.wipe_shared_memory(self.random))}")

    def told_of_loss(self):
        told = {fault["application"] for fault in self.stack.faults()[self.faults:] if LOST.search(fault["text"])}
        return told >= APPLICATIONS

    def commit_and_be_killed(self, writer):
        """It may end before, since nobody can connect while a part of the shared memory is missing."""
        try:
            writer.begin_independent(TIMEOUT)
            time.sleep(writer.random_moment())
        except ConnectionError as error:
            self.log(f"writer {writer.group.number} cannot commit: {error}")
        self.log(f"writer {writer.group.number}, killed: {writer.committer.kill()}")

    def running(self):
        """The running configuration, read afresh."""
        return states.state_of(read_running(self.stack.environment()))

    def committed(self):
        """What the running datastore must hold, by its entries."""
        return {name: entry for writer in self.writers for name, entry in states.entries(writer.group.state).items()}

    def compare(self):
        """Waits until the manager has the configuration."""
        self.stack.wait_until_daemon_goes_on()
        running = self.running()
        self.test.assertEqual(differences(self.committed(), states.entries(running)), [])
        wanted = expected_table(running)
        try:
            wait_until(lambda: self.shown() == wanted or self.ended(), "the manager has the configuration")
            self.test.assertEqual(self.ended(), [])
        except AssertionError as error:
            raise AssertionError("\n".join([str(error), *differences(wanted, self.shown())])) from error
        self.log(f"compared: {len(wanted)} instances")

    def ended(self):
        """Processes that ended by themselves."""
        return [name for name in ("daemon", "manager", "state", "saver") if not is_running(self.stack.pid(name))]

    def compare_again(self):
        """After an idle time the table is the same."""
        before = self.shown()
        time.sleep(IDLE)
        self.test.assertEqual(differences(before, self.shown()), [])

    def shown(self):
        return shown_table(self.stack.table())


class NoCommitIsLost(unittest.TestCase):
    def test_whatever_is_stopped_killed_wiped_or_replaced(self):
        seed = int(os.environ.get("VX_SEED", random.randrange(2**32)))
        print(f"seed {seed} (VX_SEED={seed} repeats the choices)", flush=True)
        run = Run(self, seed)
        logs = BIN.parent / "test-logs" / f"no-lost-commits-{seed}"
        try:
            run.go(int(os.environ.get("VX_STEPS", STEPS)))
            if "VX_KEEP_LOGS" in os.environ:
                run.keep_logs(logs)
        except Exception as error:
            run.keep_logs(logs)
            raise AssertionError(f"seed {seed}, step {run.steps}, logs in {logs}: {error}") from error
