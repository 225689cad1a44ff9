"""Service that must go on while something else happens."""

import contextlib

from processes import wait_until

RATE = 1000  # requests a second
RATE_REACHED = 0.9  # of it at least
ENOUGH = 100  # requests before and after what happens


@contextlib.contextmanager
def served_meanwhile(test, top, number, rate=RATE):
    """During the block, and before and after it, clients of VLAN `number` ask at that rate: every request is counted
    as relayed, answered once, and as many were sent as the rate demands. Yields a dict that holds what the load reports
    in the end."""
    name = f"l3-{number}"

    def counts():
        counters = top.counters(name)
        return {direction: counters[direction]["relayed"] for direction in ("requests", "replies")}

    def wait_for_more():
        enough = counts()["replies"] + ENOUGH
        wait_until(lambda: counts()["replies"] >= enough, f"{ENOUGH} more clients of VLAN {number} are served")

    before = counts()
    load = top.network.start_load(f"client{number}", "eth0", rate)
    found = {}
    wait_for_more()
    yield found
    wait_for_more()
    found |= top.network.stop_load(load)
    assert_load(test, found, rate)
    after = counts()
    for direction, count in before.items():
        test.assertEqual(after[direction] - count, found["sent"], direction)


def assert_load(test, found, rate):
    """The report of a load: everything was answered, and the rate was reached."""
    test.assertEqual(found["answered"], found["sent"])
    test.assertGreaterEqual(found["sent"], RATE_REACHED * rate * found["seconds"])
