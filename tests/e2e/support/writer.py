"""A committer with the instances that it edits: what it committed, and what the datastore holds of that."""

import time

from committers import read_running
from relay_table import differences
from states import entries, state_of

REMEMBERED = 50  # states


class Writer:
    def __init__(self, random, group, committer):
        self.random = random
        self.group = group
        self.committer = committer
        self.history = [(time.monotonic(), group.state)]
        self.after = None  # the state that the commit on its way makes; None if it is to be refused
        self.durations = [0.01]

    def begin(self, timeout, refused):
        self.after, document = (None, self.group.refused_edit()) if refused else self.group.edit()
        self.committer.connect()
        self.committer.start(document, timeout)

    def begin_independent(self, timeout):
        """Begins a commit to a datastore that holds what nobody knows; adopt() ends it."""
        self.committer.connect()
        self.committer.start(self.group.independent_edit(), timeout)

    def random_moment(self):
        """Seconds after which a commit may be at any of its points."""
        return self.random.choice(self.durations) * self.random.uniform(0, 1.2)

    def finish(self, was_killed=False):
        """Takes the answer to the commit; what a killed committer did, and a refused one did not do, is read. Returns
        what became of the commit."""
        answer = self.committer.kill() if was_killed else self.committer.answer()
        if answer is None:
            answer = self._settle_unknown(was_killed)
        elif answer.startswith("done "):
            self._settle_done(int(answer.split()[1]))
        elif self.after is not None:
            assert is_same(self._read(), self.group.state), f"a commit happened that was not to: {answer}"
        self.after = None
        return answer

    def _settle_done(self, microseconds):
        assert self.after is not None, "the datastore took what it must refuse"
        self.durations = [*self.durations[-20:], microseconds / 1e6]
        self._settle(self.after)

    def _settle_unknown(self, was_killed):
        assert was_killed, "a committer ended by itself"
        state = self._read()
        if is_same(state, self.group.state):
            return "killed, did not happen"
        assert self.after and is_same(state, self.after), "half a commit: " + "\n".join(
            differences(entries(self.after or self.group.state), entries(state)))
        self._settle(state)
        return "killed, happened"

    def _settle(self, state):
        self.group.state = state
        self.history = [*self.history[-REMEMBERED:], (time.monotonic(), state)]

    def fall_back(self, running, moment):
        """Takes over what is left of what was committed before `moment`: at least that must be there."""
        state = self.group.part_of(running)
        first = max((at for at, (made, _) in enumerate(self.history) if made <= moment), default=0)
        allowed = [made for _, made in self.history[first:]] + ([self.after] if self.after else [])
        lines = differences(entries(self.history[first][1]), entries(state))
        assert any(is_same(state, made) for made in allowed), "\n".join(["what was saved is too old", *lines])
        self._settle(state)
        self.after = None

    def adopt(self, running):
        """Goes on from what the datastore holds."""
        self._settle(self.group.part_of(running))
        self.after = None

    def _read(self):
        return self.group.part_of(state_of(read_running(self.committer.environment)))


def is_same(state, other):
    return entries(state) == entries(other)
