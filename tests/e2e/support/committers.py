"""Users of a stack's datastore that commit, each a process of its own, and may be killed while they do."""

import json
import select
import signal
import subprocess

from paths import BIN
from processes import LIMIT, run

PROGRAM = BIN / "datastore_committer"


class Committer:
    """Starts when it is needed, also after it was killed. Its output to standard error goes to the file `log`."""

    def __init__(self, environment, log):
        self.environment = environment
        self.log = log
        self.process = None

    def start(self, document, timeout):
        """Begins a commit that waits for its subscribers for `timeout` ms at most."""
        self._send(f"commit {timeout} {json.dumps(document)}")

    def read(self):
        """The running configuration; while no commit is on its way. ConnectionError if it has ended by itself."""
        self._send("read")
        answer = self.answer()
        if answer is None:
            raise ConnectionError("a committer ended by itself")
        return json.loads(answer)

    def subscribe(self, milliseconds):
        """Makes it be told of each commit before the daemon is; it takes that long for each."""
        self._send(f"subscribe {milliseconds}")
        if self.answer() != "subscribed":
            raise AssertionError("cannot subscribe")

    def connect(self):
        if self.process is None:
            self.read()

    def answer(self, limit=LIMIT):
        """What the last command was answered by; None when the committer ended first."""
        if not select.select([self.process.stdout], [], [], limit)[0]:
            raise AssertionError(f"a committer did not answer within {limit} s")
        return self.process.stdout.readline().rstrip("\n") or None

    def kill(self):
        """Kills it with SIGKILL; the answer that it still gave, or None."""
        if self.process is None:
            return None
        self.process.send_signal(signal.SIGKILL)
        self.process.wait()
        answer = self.process.stdout.read().rstrip("\n") or None
        self.process.stdout.close()
        self.process.stdin.close()
        self.process = None
        return answer

    def _send(self, line):
        if self.process is None:
            with open(self.log, "a", encoding="utf-8") as log:
                self.process = subprocess.Popen([PROGRAM], env=self.environment, stdin=subprocess.PIPE,
                                                stdout=subprocess.PIPE, stderr=log, text=True)
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()


def read_running(environment):
    """The running configuration as a process reads it that has only just connected."""
    return json.loads(run(PROGRAM, env=environment, input="read\n").stdout)
