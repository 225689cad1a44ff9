"""The guest's part of the test of power cuts: starts the stack from its disk and commits until the power goes.

It reports what the datastore holds after the start, and then of each commit "begun", "returned" and, when that is known
for certain, "saved", each with the commit's number.
"""

import json
import os
import pathlib
import subprocess

from commit_states import document
from committers import Committer
from paths import SOURCE
from processes import run, wait_until
from report import Report

DATA = pathlib.Path("/tmp/data")
STACK = DATA / "stack"
PENDING = STACK / "sysrepo" / "dhcp-relay-saved.pending"
SAVED_EVERY = 3  # commits
TIMEOUT = 60000  # ms


def mount():
    """Its ext4 has none of the heuristics that save programs that do not sync."""
    device = next(path.parent.name for path in pathlib.Path("/sys/block").glob("*/serial")
                  if path.read_text().strip() == "data")
    DATA.mkdir()
    DATA.chmod(0o755)
    run("mount", "-t", "ext4", "-o", "noauto_da_alloc", f"/dev/{device}", DATA)


def start_stack():
    """The environment for programs that use it."""
    result = run(SOURCE / "scripts" / "stack", "up", STACK, check=False, timeout=600)
    if result.returncode != 0:
        raise AssertionError(result.stderr)
    printed = subprocess.run(["bash", "-c", f"eval \"$({SOURCE}/scripts/stack env {STACK})\"; env -0"],
                             check=True, capture_output=True, text=True).stdout
    return dict(entry.split("=", 1) for entry in printed.split("\0") if "=" in entry)


def commits(environment):
    status = run("dhcp-relayctl", "status", "--json", check=False, env=environment, timeout=600).stdout
    return json.loads(status)["commits"]["state"]


def wait_saved(environment, number):
    """The saver says that it is saving before the pending file has the commit, and that all is saved after that."""
    token = f"10.1.{number // 250}.{number % 250 + 1}/16"
    wait_until(lambda: PENDING.exists() and token in PENDING.read_text(errors="replace"), f"commit {number} is pending")
    wait_until(lambda: commits(environment) == "saved", f"commit {number} is saved")


def shown_addresses(environment):
    """Of the relay interfaces, as the manager has them."""
    shown = json.loads(run("dhcp-relayctl", "show", "--json", env=environment).stdout)
    return [interface["address"] for instance in shown["instances"] for interface in instance["interfaces"]]


def main():
    report = Report()
    mount()
    environment = start_stack()
    committer = Committer(environment, "/tmp/committer.log")
    report.line("running", json.dumps(committer.read()))
    report.line("manager", json.dumps(shown_addresses(environment)))
    number = int(os.environ["VX_FIRST"])
    while True:
        report.line("begun", number)
        committer.start(document(number), TIMEOUT)
        answer = committer.answer()
        if not answer or not answer.startswith("done"):
            raise AssertionError(f"commit {number}: {answer}")
        report.line("returned", number)
        if number % SAVED_EVERY == 0:
            wait_saved(environment, number)
            report.line("saved", number)
        number += 1


if __name__ == "__main__":
    main()
