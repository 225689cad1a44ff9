"""The set-up's ban on service starts: it holds while the package manager runs and ends with it, whatever ends it."""

import os
import pathlib
import signal
import subprocess
import tempfile
import unittest

from paths import SOURCE
from processes import is_running, run, wait_until

FORBIDDEN = 101
AS_WITHOUT_A_POLICY = 104
LIBRARIES = f"""
set -euo pipefail
ROOT=$1
. {SOURCE}/scripts/lib-common.sh
. {SOURCE}/scripts/lib-apt.sh
POLICY=$ROOT/policy-rc.d
"""
# What a package manager is to this: a process that lives until it is told to end.
APT_GET = """#!/bin/sh
echo $$ >"$PLACE/apt.pid"
while [ ! -e "$PLACE/end" ]; do sleep 0.02; done
"""


class Policy(unittest.TestCase):
    def setUp(self):
        self.place = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.policy = self.place / "policy-rc.d"
        (self.place / "bin").mkdir()
        (self.place / "bin" / "apt-get").write_text(APT_GET)
        (self.place / "bin" / "apt-get").chmod(0o755)
        self.environment = dict(os.environ, PLACE=str(self.place), PATH=f"{self.place}/bin:{os.environ['PATH']}")

    def command(self, text):
        return ["bash", "-c", LIBRARIES + text, "set-up", self.place]

    def start_installing(self):
        """A set-up that installs a package, up to the point where its package manager runs; and the latter's id."""
        for name in ("end", "apt.pid"):
            (self.place / name).unlink(missing_ok=True)
        process = subprocess.Popen(self.command("trap remove_policy EXIT\napt_install some-server"),
                                   env=self.environment)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        pid = int(wait_until(self.read_pid, "the package manager runs"))
        self.addCleanup(self.end_package_manager, pid)
        return process, pid

    def read_pid(self):
        file = self.place / "apt.pid"
        return file.exists() and file.read_text().strip()

    def end_package_manager(self, pid):
        (self.place / "end").touch()
        wait_until(lambda: not is_running(pid), "the package manager has ended")

    def verdict(self):
        return run(self.policy, "some-server", "start", check=False).returncode

    def test_forbids_starts_while_the_package_manager_runs_and_is_gone_behind_it(self):
        process, pid = self.start_installing()
        self.assertEqual(self.verdict(), FORBIDDEN)
        self.end_package_manager(pid)
        self.assertEqual(process.wait(), 0)
        self.assertFalse(self.policy.exists())

    def test_forbids_nothing_once_set_up_and_package_manager_were_killed(self):
        for number in (signal.SIGKILL, signal.SIGTERM):
            with self.subTest(signal=number):
                process, pid = self.start_installing()
                process.send_signal(number)
                os.kill(pid, number)
                process.wait()
                wait_until(lambda gone=pid: not is_running(gone), "the package manager has ended")
                if self.policy.exists():
                    self.assertEqual(self.verdict(), AS_WITHOUT_A_POLICY)

    def test_holds_for_a_package_manager_that_outlives_its_set_up(self):
        process, pid = self.start_installing()
        process.kill()
        process.wait()
        run(*self.command("remove_policy"))
        self.assertEqual(self.verdict(), FORBIDDEN)
        self.end_package_manager(pid)
        self.assertEqual(self.verdict(), AS_WITHOUT_A_POLICY)

    def test_forbids_nothing_for_a_process_that_ended_and_that_nobody_has_waited_for(self):
        ended = subprocess.Popen(["sleep", "infinity"])
        self.addCleanup(ended.wait)
        self.addCleanup(ended.kill)
        run(*self.command(f"write_policy {ended.pid}"))
        self.assertEqual(self.verdict(), FORBIDDEN)
        ended.kill()
        wait_until(lambda: not is_running(ended.pid), "the process has ended")
        self.assertEqual(self.verdict(), AS_WITHOUT_A_POLICY)

    def test_is_not_fooled_by_another_process_with_the_same_id(self):
        forged = "write_policy $$; sed -i 's/!= [0-9]*/!= 1/' $POLICY; status=0; $POLICY || status=$?; echo $status"
        self.assertEqual(run(*self.command(forged)).stdout, f"{AS_WITHOUT_A_POLICY}\n")

    def test_one_that_was_left_behind_is_removed_at_the_next_start(self):
        run(*self.command("write_policy $$"))
        self.assertTrue(self.policy.exists())
        run(*self.command("remove_policy"))
        self.assertFalse(self.policy.exists())

    def test_leaves_somebody_elses_policy_alone(self):
        self.policy.write_text("#!/bin/sh\nexit 101\n")
        self.policy.chmod(0o755)
        run(*self.command("write_policy $$; remove_policy"))
        self.assertEqual(self.policy.read_text(), "#!/bin/sh\nexit 101\n")
