"""A running stack for a test: started, used and stopped through scripts/stack, in a directory of its own."""

import json
import os
import pathlib
import shlex
import shutil
import signal
import subprocess
import time

from leftovers import make_directory, remove_leftovers

SOURCE = pathlib.Path(__file__).resolve().parents[2]
SCRIPT = SOURCE / "scripts" / "stack"
BIN = pathlib.Path(os.environ.get("VX_BIN_DIR", SOURCE / "build" / "bin"))
KIND = "vxs"
LIMIT = 60  # seconds after which what has not happened never will


def wait_until(condition, what):
    """Waits until condition() is true and returns its value."""
    deadline = time.monotonic() + LIMIT
    while not (value := condition()):
        if time.monotonic() > deadline:
            raise AssertionError(f"still not so after {LIMIT} s: {what}")
        time.sleep(0.02)
    return value


class Stack:
    """Call up() and use it; everything it made is gone when the test ends, however it ends."""

    def __init__(self, test, prefix=(), manager_options=""):
        """`prefix` is a command that every program of the stack is run through, such as a network namespace's."""
        remove_leftovers(KIND, lambda directory: run_script("down", directory))
        self.directory = make_directory(KIND)
        self.prefix = list(prefix)
        self.manager_options = manager_options
        self.processes = []
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
            file.write_text(config if isinstance(config, str) else json.dumps(config))
            arguments = (*arguments, "--config", file)
        result = self.script("up", *arguments)
        if result.returncode != 0:
            raise AssertionError(f"stack up failed: {result.stderr}")

    def environment(self):
        """The environment that `stack env` prints, on top of this process's own."""
        printed = self.script("env").stdout
        shell = subprocess.run(["bash", "-c", f"eval {shlex.quote(printed)}; env -0"],
                               capture_output=True, text=True, check=True)
        return dict(entry.split("=", 1) for entry in shell.stdout.split("\0") if "=" in entry)

    def tool(self, *command, check=True, stdin=None):
        return subprocess.run([*self.prefix, *command], env=self.environment(), capture_output=True,
                              text=True, timeout=LIMIT, check=check, input=stdin)

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

    def show(self, topic):
        """What the manager's relaying is doing: instances, interfaces, counters or servers."""
        return json.loads(self.tool("dhcp-relayctl", "show", topic, "--json").stdout)

    def wait_state(self, interface, state):
        wait_until(lambda: state in [entry["state"] for entry in self.show("interfaces")["interfaces"]
                                     if entry["name"] == interface], f"{interface} is {state}")

    def wait_in_sync(self):
        self.tool("dhcp-relayctl", "status", "--wait", str(LIMIT))

    def pid(self, name):
        return int((self.directory / f"{name}.pid").read_text())

    def kill(self, name):
        """Kills the daemon or the manager as nothing can be caught, and waits until it is gone."""
        pid = self.pid(name)
        os.kill(pid, signal.SIGKILL)
        wait_until(lambda: not is_running(pid), f"{name} is gone")

    def start(self, name):
        """Starts the daemon or the manager again, as the stack had it."""
        command = {
            "daemon": [BIN / "dhcp-relay-app"],
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
        file = self.directory / "faults.jsonl"
        lines = file.read_text().splitlines() if file.exists() else []
        return [json.loads(line) for line in lines]

    def journal(self):
        return (self.directory / "journal").read_text().splitlines()


def run_script(command, directory, *arguments, prefix=(), manager_options=""):
    return subprocess.run([*prefix, SCRIPT, command, directory, *arguments], capture_output=True,
                          text=True, timeout=2 * LIMIT, check=False,
                          env=dict(os.environ, VX_MANAGER_OPTIONS=manager_options))


def is_running(pid):
    """False for a process that ended but has not been waited for, too."""
    try:
        state = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()[0]
    except FileNotFoundError:
        return False
    return state != "Z"


def relay(name, **members):
    """A relay instance of the configuration; names have blanks for dashes."""
    return {"name": name, **{key.replace("_", "-"): value for key, value in members.items()}}


def configuration(*instances, l3=(), vrfs=None):
    """A whole configuration. `l3` are (name, vlan, address) of layer-3 interfaces."""
    document = {"vx-config:config": {"vx-dhcp-relay:dhcp": {"relay": list(instances)}}}
    if l3:
        document["vx-config:config"]["vx-interface:interface"] = {
            "l3": [{"name": name, "lower-layer-if": {"vlan": vlan},
                    "ipv4": {"address": {"ip": address}}} for name, vlan, address in l3]}
    if vrfs:
        document["metacli-internal:internal"] = {
            "vrf-config": {"stringTOindex": [{"name": name, "vrf-idx": index}
                                             for name, index in vrfs.items()]}}
    return document
