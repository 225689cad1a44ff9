"""Network namespaces joined by veth pairs, and the DHCP programs that run in them."""

import json
import os
import pathlib
import re
import shutil
import signal
import subprocess

from leftovers import make_directory, remove_leftovers
from paths import BIN, HELPERS
from processes import LIMIT, run, wait_until

KIND = "vxn"
LEASE_SCRIPT = HELPERS / "lease-script"


def remove_namespaces(directory):
    """Removes the namespaces that the owner of `directory` made, and kills what still runs in them."""
    for name in run("ip", "netns", "list").stdout.split("\n"):
        name = name.split(" ")[0]
        if not name.startswith(directory.name + "-"):
            continue
        for pid in run("ip", "netns", "pids", name, check=False).stdout.split():
            try:
                os.kill(int(pid), signal.SIGKILL)
            except ProcessLookupError:
                pass
        run("ip", "netns", "del", name, check=False)


class Network:
    """Namespaces of one test, gone when it ends, however it ends."""

    def __init__(self, test, whole_runs=False):
        """Each datagram goes through the devices by itself, so that who listens there hears each. With `whole_runs`,
        those that the kernel was given in one piece stay together, as on the devices of a machine."""
        self.link_options = () if whole_runs else ("gso_max_segs", "1")
        remove_leftovers(KIND, remove_namespaces)
        self.directory = make_directory(KIND)
        self.processes = []
        test.addCleanup(self._remove)

    def _remove(self):
        for process in self.processes:
            if process.poll() is None:
                process.kill()
            process.wait()
        remove_namespaces(self.directory)
        shutil.rmtree(self.directory, ignore_errors=True)

    def namespace(self, name):
        """The full name of namespace `name`, made at its first mention."""
        full = f"{self.directory.name}-{name}"
        if not pathlib.Path("/run/netns", full).exists():
            run("ip", "netns", "add", full)
            self.run(name, "ip", "link", "set", "lo", "up")
        return full

    def prefix(self, name):
        return ["ip", "netns", "exec", self.namespace(name)]

    def run(self, name, *command, **arguments):
        return run(*self.prefix(name), *command, **arguments)

    def start(self, name, *command, log=None, **arguments):
        """Starts a program in a session of its own, as a service is; its output goes to the file `log`."""
        with open(self.directory / (log or f"{pathlib.Path(str(command[0])).name}.log"), "a", encoding="utf-8") as out:
            process = subprocess.Popen([*self.prefix(name), *(str(word) for word in command)], stdin=subprocess.DEVNULL,
                                       stdout=out, stderr=out, start_new_session=True, **arguments)
        self.processes.append(process)
        return process

    def stop(self, process):
        process.terminate()
        process.wait(timeout=LIMIT)

    def log(self, name):
        path = self.directory / name
        return path.read_text(errors="replace") if path.exists() else ""

    def join(self, end, other):
        """A veth pair; each end is (namespace, device, "address/length" or None)."""
        (space, device, address), (other_space, other_device, other_address) = end, other
        self.run(space, "ip", "link", "add", device, "type", "veth", "peer", "name", other_device, "netns",
                 self.namespace(other_space))
        for name, dev, addr in ((space, device, address), (other_space, other_device, other_address)):
            if addr:
                self.run(name, "ip", "addr", "add", addr, "brd", "+", "dev", dev)
            self.run(name, "ip", "link", "set", dev, "up", *self.link_options)
        self.wait_up(space, device)
        self.wait_up(other_space, other_device)

    def forward(self, name):
        """Makes a namespace route packets, as a router does."""
        self.run(name, "sysctl", "-qw", "net.ipv4.ip_forward=1")

    def wait_up(self, name, device):
        wait_until(lambda: json.loads(self.run(name, "ip", "-j", "link", "show", device).stdout)[0]["operstate"]
                   == "UP", f"{device} in {name} is up")

    def dnsmasq(self, name, *ranges, arguments=()):
        """A DHCP server for `ranges` ("first,last,mask"); returns when it listens."""
        log = f"dnsmasq-{name}.log"
        process = self.start(name, "dnsmasq", "--no-daemon", "--conf-file=/dev/null", "--port=0", "--log-dhcp",
                             "--user=root", "--no-ping", f"--dhcp-leasefile={self.directory}/leases-{name}",
                             f"--pid-file={self.directory}/dnsmasq-{name}.pid",
                             *(f"--dhcp-range={entry},1h" for entry in ranges), *arguments, log=log)
        self.wait_listening(name, 67, process)
        return process

    def kea(self, name, device, *subnets):
        """A kea DHCP server for `subnets` (subnet, first, last); returns when it listens."""
        state = self.directory / f"kea-{name}"
        state.mkdir()
        config = state / "config.json"
        config.write_text(json.dumps({"Dhcp4": {
            "interfaces-config": {"interfaces": [device], "dhcp-socket-type": "udp"},
            "lease-database": {"type": "memfile", "persist": False},
            "valid-lifetime": 3600,
            "subnet4": [{"id": number, "subnet": subnet, "pools": [{"pool": f"{first} - {last}"}]}
                        for number, (subnet, first, last) in enumerate(subnets, 1)]}}))
        process = self.start(name, "kea-dhcp4", "-c", config, log=f"kea-{name}.log",
                             env=dict(os.environ, KEA_PIDFILE_DIR=str(state), KEA_LOCKFILE_DIR=str(state)))
        self.wait_listening(name, 67, process)
        return process

    def isc_relay(self, name, client_side, server_side, server):
        """isc-dhcp-relay; returns when it listens."""
        process = self.start(name, "dhcrelay", "-4", "-d", "-a", "-pf", self.directory / f"dhcrelay-{name}.pid", "-id",
                             client_side, "-iu", server_side, server, log=f"dhcrelay-{name}.log")
        self.wait_listening(name, 67, process)
        return process

    def answer(self, name):
        """A server that offers every client an address at once; returns when it listens."""
        process = self.start(name, BIN / "relay_answer")
        self.wait_listening(name, 67, process)
        return process

    def start_load(self, name, device, rate, seconds=10 * LIMIT, *arguments):
        """Starts clients that ask at that rate; finish_load waits for their result, stop_load ends them first."""
        return subprocess.Popen([*self.prefix(name), BIN / "relay_load", device, str(rate), str(seconds), *arguments],
                                stdout=subprocess.PIPE, text=True)

    @staticmethod
    def finish_load(process, seconds=0):
        output, _ = process.communicate(timeout=2 * LIMIT + seconds)
        return json.loads(output)

    def stop_load(self, process):
        process.terminate()
        return self.finish_load(process)

    def load(self, name, device, rate, seconds, *arguments):
        return self.finish_load(self.start_load(name, device, rate, seconds, *arguments), seconds)

    def wait_listening(self, name, port, process=None):
        def listening():
            if process is not None and process.poll() is not None:
                raise AssertionError(f"it ended with {process.returncode}")
            return re.search(rf":{port}\s", self.run(name, "ss", "-Hlun").stdout)
        wait_until(listening, f"something listens on port {port} in {name}")

    def client(self, name, device, *arguments, tries=5):
        """Runs a DHCP client until it has its lease; (address, router, server), or None when it gets none."""
        leases = self.directory / f"client-{name}-{device}"
        leases.unlink(missing_ok=True)
        self.run(name, "udhcpc", "-i", device, "-f", "-q", "-n", "-t", tries, "-T", 1, "-s", LEASE_SCRIPT,
                 *arguments, check=False, env=dict(os.environ, LEASES=str(leases)))
        if not leases.exists():
            return None
        return tuple(leases.read_text().splitlines()[-1].split(" ")[1:])

    def start_client(self, name, device, *arguments):
        """Starts a DHCP client that renews its lease; returns it and the file that its leases are added to."""
        leases = self.directory / f"client-{name}-{device}"
        process = self.start(name, "udhcpc", "-i", device, "-f", "-s", LEASE_SCRIPT, *arguments,
                             log=f"udhcpc-{name}.log", env=dict(os.environ, LEASES=str(leases)))
        return process, leases
