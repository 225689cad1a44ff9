"""A running stack for a test: started, used and stopped through scripts/stack, in a directory of its own."""

import json
import os
import shlex
import shutil
import signal
import subprocess

from leftovers import make_directory, remove_leftovers
from paths import BIN, SOURCE
from processes import LIMIT, is_running, run, wait_until

SCRIPT = SOURCE / "scripts" / "stack"
KIND = "vxs"


class Stack:
    """Call up() and use it; everything it made is gone when the test ends, however it ends."""

    def __init__(self, test, prefix=(), manager_options=""):
        """`prefix` is a command that every program of the stack is run through, such as a network namespace's."""
        remove_leftovers(KIND, lambda directory: run_script("down", directory))
        self.directory = make_directory(KIND)
        self.prefix = list(prefix)
        self.manager_options = manager_options
        self.processes = []
        self.variables = None  # of the environment
        test.addCleanup(self._remove)

    def _remove(self):
        for process in self.processes:
            if process.poll() is None:
                process.kill()
                process.wait()
        self.script("down")
        shutil.rmtree(self.directory, ignore_errors=True)

    def script(self, command, *arguments):
        return run_script(command, self.directory, *arguments, prefix=self.prefix,
                          manager_options=self.manager_options)

    def up(self, *arguments, config=None):
        if config is not None:
            file = self.directory / "config.json"
            file.write_text(json.dumps(config))
            arguments = (*arguments, "--config", file)
        result = self.script("up", *arguments)
        if result.returncode != 0:
            raise AssertionError(f"stack up failed: {result.stderr}")

    def environment(self):
        """The environment that `stack env` prints, on top of this process's own. It stays as it was at first."""
        if self.variables is None:
            printed = self.script("env").stdout
            shell = run("bash", "-c", f"eval {shlex.quote(printed)}; env -0")
            self.variables = dict(entry.split("=", 1) for entry in shell.stdout.split("\0") if "=" in entry)
        return self.variables

    def tool(self, *command, check=True, stdin=None):
        return run(*self.prefix, *command, check=check, timeout=2 * LIMIT, env=self.environment(), input=stdin)

    def edit(self, document, check=True):
        """Merges a JSON document into the running datastore."""
        return self.tool("sysrepocfg", "--edit", "-d", "running", "-f", "json", check=check,
                         stdin=json.dumps(document))

    def replace(self, document):
        """Makes the running datastore hold this JSON document and nothing else."""
        return self.tool("sysrepocfg", "--import", "-d", "running", "-f", "json",
                         stdin=json.dumps(document))

    def table(self):
        """The DHCP manager's relay instances."""
        return json.loads(self.tool("dhcp-relayctl", "show", "--json").stdout)["instances"]

    def instance_names(self):
        return [entry["name"] for entry in self.table()]

    def status(self):
        """The DHCP manager's connection to the daemon, also while there is none."""
        return json.loads(self.tool("dhcp-relayctl", "status", "--json", check=False).stdout)

    def show(self, topic):
        """What the manager's relaying is doing: instances, interfaces, counters or servers."""
        return json.loads(self.tool("dhcp-relayctl", "show", topic, "--json").stdout)

    def interface(self, name):
        """The state of one relay interface."""
        return next(entry for entry in self.show("interfaces")["interfaces"] if entry["name"] == name)

    def wait_state(self, interface, state):
        wait_until(lambda: state in [entry["state"] for entry in self.show("interfaces")["interfaces"]
                                     if entry["name"] == interface], f"{interface} is {state}")

    def wait_in_sync(self):
        """Whether commits are saved, and whether every VRF has its socket, are other matters."""
        status = self.tool("dhcp-relayctl", "status", "--wait", LIMIT, check=False).returncode
        if status not in (0, 3, 4):
            raise AssertionError(f"not in sync after {LIMIT} s")

    def wait_saved(self):
        wait_until(lambda: self.status()["commits"]["state"] == "saved", "commits are saved")

    def pid(self, name):
        return int((self.directory / f"{name}.pid").read_text())

    def kill(self, name):
        """Kills a process of the stack with SIGKILL and waits until it is gone."""
        pid = self.pid(name)
        os.kill(pid, signal.SIGKILL)
        wait_until(lambda: not is_running(pid), f"{name} is gone")

    def start(self, name):
        """Starts the daemon, the manager or the saver again, as the stack had it."""
        command = {
            "daemon": [BIN / "dhcp-relay-app"],
            "saver": [BIN / "dhcp-relay-saved"],
            "manager": [BIN / "dhcp-manager", "--runtime-dir", self.directory / "run",
                        "--journal", self.directory / "journal", *self._manager_user(),
                        *self.manager_options.split()],
        }[name]
        with open(self.directory / f"{name}.log", "a", encoding="utf-8") as log:
            process = subprocess.Popen([*self.prefix, *command], env=self.environment(),
                                       stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self.processes.append(process)
        (self.directory / f"{name}.pid").write_text(f"{process.pid}\n")
        return process

    @staticmethod
    def _manager_user():
        return ["--user", "dhcp-manager"] if os.getuid() == 0 else []

    def shared_memory(self):
        prefix = self.environment()["SYSREPO_SHM_PREFIX"]
        return [name for name in os.listdir("/dev/shm") if name.startswith(prefix)]

    def faults(self):
        file = self.directory / "state" / "faults.jsonl"
        lines = file.read_text().splitlines() if file.exists() else []
        return [json.loads(line) for line in lines]

    def journal_file(self):
        return self.directory / "journal"

    def journal(self):
        """The lines that are complete."""
        return self.journal_file().read_text().rpartition("\n")[0].splitlines()


def run_script(command, directory, *arguments, prefix=(), manager_options=""):
    return run(*prefix, SCRIPT, command, directory, *arguments, check=False, timeout=2 * LIMIT,
               env=dict(os.environ, VX_MANAGER_OPTIONS=manager_options))
