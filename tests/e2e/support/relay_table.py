"""The DHCP manager's relay table, and the one that a configuration must lead to.

They are equal for configurations after which a fresh dump would change nothing: each instance has a setting of its own,
each override all four, each relay interface that is listed a VLAN and an address, and no other instance lists it.
"""

from oracle import DEFAULTS, VRFS


def expected_table(state):
    """What the manager must hold, by instance."""
    return {name: expected_instance(entry, state["l3"]) for name, entry in state["relays"].items()}


def expected_instance(entry, l3):
    return {"vrf": None if entry["vrf"] is None else f"0x{0x01000000 + VRFS[entry['vrf']]:08x}",
            "servers": sorted(entry["servers"]),
            "settings": DEFAULTS | entry["options"],
            "interfaces": {name: (l3[name[3:]]["vlan"], l3[name[3:]]["ip"].split("/")[0])
                           for name in entry["interfaces"]},
            "overrides": entry["overrides"]}


def shown_table(instances):
    """What the manager shows, in the same form."""
    return {instance["name"]: shown_instance(instance) for instance in instances}


def shown_instance(instance):
    settings = shown_settings(instance)
    return {"vrf": None if instance["vrf"] in (None, "0x00000000") else instance["vrf"],
            "servers": sorted(instance["servers"]),
            "settings": {leaf: DEFAULTS[leaf] if value is None else value for leaf, value in settings.items()},
            "interfaces": {interface["name"]: (interface["vlan"], interface["address"])
                           for interface in instance["interfaces"]},
            "overrides": {override["name"]: shown_settings(override) for override in instance["overrides"]}}


def shown_settings(holder):
    return {leaf: holder[leaf] for leaf in DEFAULTS}


def differences(expected, found, limit=5):
    """A line for each of the first entries that differ; empty when all are equal."""
    names = [name for name in sorted(expected.keys() | found.keys()) if expected.get(name) != found.get(name)]
    lines = [f"{name}: {found.get(name)} instead of {expected.get(name)}" for name in names[:limit]]
    return lines + ([f"and {len(names) - limit} more"] if len(names) > limit else [])
