"""What a commit must make the daemon call, worked out from the configuration before and after it alone.

A configuration is {"relays": {name: relay}, "l3": {name: {"vlan": n or None, "ip": text or None}}}; a relay is
{"vrf": name or None, "servers": set, "interfaces": set, "options": {leaf: value}, "overrides": {name: {leaf: value}}}.
Options hold what is set explicitly; everything else is at its default.
"""

VRFS = {"red": 7, "blue": 12}
DEFAULTS = {"check": False, "trusted": False, "option": False, "policy": "keep"}
EMPTY_RELAY = {"vrf": None, "servers": set(), "interfaces": set(), "options": {}, "overrides": {}}
EMPTY_L3 = {"vlan": None, "ip": None}
LEAVES = ("check", "trusted", "option", "policy")


def text(value):
    return {True: "true", False: "false"}.get(value, value)


def changed_options(before, after, is_new):
    """The leaves whose value changed, in the order of the calls, with their new values."""
    for leaf in LEAVES:
        if is_new:
            if leaf in after:
                yield leaf, after[leaf]
        elif before.get(leaf, DEFAULTS[leaf]) != after.get(leaf, DEFAULTS[leaf]):
            yield leaf, after.get(leaf, DEFAULTS[leaf])


def first_lister(relays, interface):
    return next((name for name in sorted(relays) if interface in relays[name]["interfaces"]), None)


def l3_changes(before, after):
    """By relay and interface: the old VLAN (when it was replaced), the new VLAN, and the new address."""
    found = {}
    for key in after["l3"]:
        lister = first_lister(after["relays"], f"l3-{key}")
        old, new = before["l3"].get(key, EMPTY_L3), after["l3"][key]
        vlan = new["vlan"] if new["vlan"] != old["vlan"] else None
        ip = new["ip"] if new["ip"] != old["ip"] else None
        if lister is not None and (vlan is not None or ip is not None):
            found[lister, f"l3-{key}"] = (old["vlan"] if vlan is not None else None, vlan, ip)
    return found


def instance_calls(name, before, after):
    """The deletes and the sets of one instance."""
    old, new = before["relays"].get(name), after["relays"].get(name)
    if new is None:
        return [f"DeleteInstance {name}"], []
    is_new, old = old is None, old or EMPTY_RELAY
    deletes, sets = [], []
    changes = {interface: change for (lister, interface), change in l3_changes(before, after).items()
               if lister == name}

    if old["vrf"] is not None and new["vrf"] is None:
        deletes.append(f"SetVrf {name} 0x00000000")
    deletes += [f"DeleteServer {name} {server}" for server in old["servers"] - new["servers"]]
    for interface in old["interfaces"] - new["interfaces"]:
        vlan = after["l3"].get(interface[3:], EMPTY_L3)["vlan"]
        if vlan is not None:
            deletes.append(f"DeleteL3InterfaceVlan {name} {interface} {vlan}")
        deletes.append(f"DeleteL3Interface {name} {interface}")
    deletes += [f"DeleteL3InterfaceVlan {name} {interface} {old_vlan}"
                for interface, (old_vlan, _, _) in changes.items() if old_vlan is not None]
    deletes += [f"DeleteIfOption {name} {override}" for override in old["overrides"].keys() - new["overrides"].keys()]

    sets += [f"AddServer {name} {server}" for server in new["servers"] - old["servers"]]
    sets += [f"Set{leaf.capitalize()} {name} {text(value)}"
             for leaf, value in changed_options(old["options"], new["options"], is_new)]
    created = new["interfaces"] - old["interfaces"]
    for interface in created | changes.keys():
        _, vlan, ip = changes.get(interface, (None, None, None))
        if interface in created:
            vlan, ip = (after["l3"].get(interface[3:], EMPTY_L3)[leaf] for leaf in ("vlan", "ip"))
        sets.append(f"AddL3Interface {name} {interface}")
        if vlan is not None:
            sets.append(f"SetL3InterfaceVlan {name} {interface} {vlan}")
        if ip is not None:
            sets.append(f"SetL3InterfaceAddress {name} {interface} {ip.split('/')[0]}")
    for override, options in new["overrides"].items():
        was = old["overrides"].get(override)
        sets += [f"SetIfOption{leaf.capitalize()} {name} {override} {text(value)}"
                 for leaf, value in changed_options(was or {}, options, was is None)]
    if new["vrf"] is not None and new["vrf"] != old["vrf"]:
        sets.append(f"SetVrf {name} 0x{0x01000000 + VRFS[new['vrf']]:08x}")
    return deletes, sets


def is_delete(call):
    return call.startswith("Delete") or call.endswith(" 0x00000000")


ORDER = ("DeleteInstance", "SetVrf-", "DeleteServer", "DeleteL3InterfaceVlan", "DeleteL3Interface", "DeleteIfOption",
         "AddServer", "SetCheck", "SetTrusted", "SetOption", "SetPolicy",
         "AddL3Interface", "SetL3InterfaceVlan", "SetL3InterfaceAddress",
         "SetIfOptionCheck", "SetIfOptionTrusted", "SetIfOptionOption", "SetIfOptionPolicy", "SetVrf")
INTERFACE_STEPS = {"DeleteL3InterfaceVlan": "DeleteL3", "DeleteL3Interface": "DeleteL3", "AddL3Interface": "L3",
                   "SetL3InterfaceVlan": "L3", "SetL3InterfaceAddress": "L3", "SetIfOptionCheck": "Option",
                   "SetIfOptionTrusted": "Option", "SetIfOptionOption": "Option", "SetIfOptionPolicy": "Option"}


def rank(call):
    """Where a call stands among those of its instance; what concerns one interface stays together."""
    operation = call.split()[0] + ("-" if call.endswith(" 0x00000000") else "")
    step = INTERFACE_STEPS.get(operation, operation)
    return min(i for i, entry in enumerate(ORDER) if INTERFACE_STEPS.get(entry, entry) == step)


def check(calls, before, after):
    """Says what is wrong with the calls that a commit caused; None when they are right."""
    kinds = [is_delete(call) for call in calls]
    if kinds != sorted(kinds, reverse=True):
        return "a set stands before a delete"
    configured = before["relays"].keys() | after["relays"].keys()
    for name in configured | {call.split()[1] for call in calls}:
        own = [call for call in calls if call.split()[1] == name]
        deletes, sets = instance_calls(name, before, after) if name in configured else ([], [])
        if sorted(own) != sorted(deletes + sets):
            return f"{name}: {sorted(own)} instead of {sorted(deletes + sets)}"
        for part in ([call for call in own if is_delete(call)], [call for call in own if not is_delete(call)]):
            ranks = [rank(call) for call in part]
            if ranks != sorted(ranks):
                return f"{name}: out of order: {part}"
    return None
