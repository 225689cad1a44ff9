"""The oracle's form of a configuration as documents that the datastore takes, and back."""

from oracle import DEFAULTS, EMPTY_L3, VRFS

REMOVE = {"ietf-netconf:operation": "remove"}
REPLACE = {"ietf-netconf:operation": "replace"}
INFORMATION = "relay-information"


def relay_member(name, entry):
    out = {"name": name, INFORMATION: entry["options"],
           "interface": [{"name": interface} for interface in sorted(entry["interfaces"])],
           "server": {"ipv4": [{"address": server} for server in sorted(entry["servers"])]},
           "if-option": [{"name": override, INFORMATION: options}
                         for override, options in entry["overrides"].items()]}
    if entry["vrf"] is not None:
        out["vrf"] = entry["vrf"]
    return out


def l3_member(key, entry):
    out = {"name": key}
    if entry["vlan"] is not None:
        out["lower-layer-if"] = {"vlan": entry["vlan"]}
    if entry["ip"] is not None:
        out["ipv4"] = {"address": {"ip": entry["ip"]}}
    return out


def vrf_table():
    return {"vrf-config": {"stringTOindex": [{"name": name, "vrf-idx": index} for name, index in VRFS.items()]}}


def config_member(relays, l3):
    return {"vx-interface:interface": {"l3": l3}, "vx-dhcp-relay:dhcp": {"relay": relays}}


def document(state):
    """The whole configuration."""
    return {"metacli-internal:internal": vrf_table(),
            "vx-config:config": config_member([relay_member(*item) for item in state["relays"].items()],
                                              [l3_member(*item) for item in state["l3"].items()])}


def relay_of(member):
    """The inverse of relay_member, without the name."""
    return {"vrf": member.get("vrf"), "options": member.get(INFORMATION, {}),
            "servers": {server["address"] for server in member.get("server", {}).get("ipv4", ())},
            "interfaces": {interface["name"] for interface in member.get("interface", ())},
            "overrides": {entry["name"]: entry.get(INFORMATION, {}) for entry in member.get("if-option", ())}}


def l3_of(member):
    return {"vlan": member.get("lower-layer-if", {}).get("vlan"),
            "ip": member.get("ipv4", {}).get("address", {}).get("ip")}


def state_of(configuration):
    """The inverse of document."""
    config = configuration.get("vx-config:config", {})
    return {"relays": {member["name"]: relay_of(member)
                       for member in config.get("vx-dhcp-relay:dhcp", {}).get("relay", ())},
            "l3": {member["name"]: l3_of(member)
                   for member in config.get("vx-interface:interface", {}).get("l3", ())}}


def entries(state):
    """By name, for comparisons. Whether a setting of an instance is left at its default or set to it is the same here:
    the datastore keeps the default where an entry is replaced by one that sets it."""
    relays = {name: entry | {"options": DEFAULTS | entry["options"]} for name, entry in state["relays"].items()}
    return relays | state["l3"]


def edit_document(before, after, by_leaf):
    """An edit that turns one state into the other. by_leaf(name) says whether an entry that stays is edited leaf by
    leaf; else it is replaced."""
    relays = [edited(relay_member, merged_relay, name, old, new, by_leaf)
              for name, old, new in changes(before["relays"], after["relays"])]
    l3 = [edited(l3_member, merged_l3, key, old, new, by_leaf) for key, old, new in changes(before["l3"], after["l3"])]
    return {"vx-config:config": config_member(relays, l3)}


def changes(before, after):
    for name in sorted(before.keys() | after.keys()):
        if before.get(name) != after.get(name):
            yield name, before.get(name), after.get(name)


def edited(member, merged, name, old, new, by_leaf):
    if new is None:
        return {"name": name, "@": REMOVE}
    if old is not None and by_leaf(name):
        return merged(name, old, new)
    return {**member(name, new), "@": REPLACE}


def merged_leaves(old, new):
    out = {leaf: value for leaf, value in new.items() if value is not None and old.get(leaf) != value}
    for leaf, value in old.items():
        if value is not None and new.get(leaf) is None:
            out |= {leaf: value, f"@{leaf}": REMOVE}
    return out


def merged_keys(key, old, new):
    return [{key: entry} for entry in sorted(new - old)] + [{key: entry, "@": REMOVE} for entry in sorted(old - new)]


def merged_relay(name, old, new):
    overrides = [{"name": override, "@": REMOVE} if after is None else
                 {"name": override, INFORMATION: merged_leaves(before or {}, after)}
                 for override, before, after in changes(old["overrides"], new["overrides"])]
    return {"name": name, **merged_leaves({"vrf": old["vrf"]}, {"vrf": new["vrf"]}),
            INFORMATION: merged_leaves(old["options"], new["options"]), "if-option": overrides,
            "interface": merged_keys("name", old["interfaces"], new["interfaces"]),
            "server": {"ipv4": merged_keys("address", old["servers"], new["servers"])}}


def merged_l3(key, old, new):
    return {"name": key,
            "lower-layer-if": merged_leaves({"vlan": old["vlan"]}, {"vlan": new["vlan"]}),
            "ipv4": {"address": merged_leaves({"ip": old["ip"]}, {"ip": new["ip"]})}}


def is_complete(entry):
    return None not in (entry or EMPTY_L3).values()
