"""The configurations that the test of power cuts commits: number n has n in each of its leaves, in two modules."""

from configuration import configuration, interface_list, relay, server_list

INTERFACES = 20


def document(number):
    """An edit that turns any of these configurations into that number, in one commit."""
    vlans = sorted(range(1, INTERFACES + 1), key=str)  # as the datastore sorts them
    l3 = [(str(vlan), vlan, _address(vlan, number)) for vlan in vlans]
    names = [f"l3-{vlan}" for vlan, *_ in l3]
    return configuration(relay("r1", vrf="red", server=server_list("192.0.2.1"), interface=interface_list(*names)),
                         l3=l3, vrfs={"red": number})


def number_of(running):
    """The number of the configuration that the datastore holds; 0 when it is empty."""
    if not running:
        return 0
    number = running["metacli-internal:internal"]["vrf-config"]["stringTOindex"][0]["vrf-idx"]
    if not _is_same(running, document(number)):
        raise AssertionError(f"half a commit: {running}")
    return number


def _address(vlan, number):
    return f"10.{vlan}.{number // 250}.{number % 250 + 1}/16"


def _is_same(running, wanted):
    """Whether `running` says all that is wanted; defaults may be there, too."""
    if isinstance(wanted, dict):
        return isinstance(running, dict) and all(_is_same(running.get(key), value) for key, value in wanted.items())
    if isinstance(wanted, list):
        return isinstance(running, list) and len(running) == len(wanted) and all(map(_is_same, running, wanted))
    return running == wanted
