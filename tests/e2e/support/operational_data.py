"""The relay's operational data, and the same put together from what dhcp-relayctl shows."""

import json

XPATH = "/vx-dhcp-relay-state:dhcp-relay-state"
SERVER_COUNTERS = ("sent", "failed", "replies")
SETTINGS = ("check", "trusted", "option", "policy")


def operational_data(stack):
    """Empty while it is not served."""
    data = json.loads(stack.tool("sysrepocfg", "-X", "-d", "operational", "-f", "json", "-x", XPATH).stdout)
    return data.get("vx-dhcp-relay-state:dhcp-relay-state", {})


def shown_data(stack):
    """Every value that dhcp-relayctl shows, in the form of the operational data."""
    status, counters = stack.status(), stack.show("counters")
    by_name = {(entry["instance"], entry["name"]): entry for entry in counters["interfaces"]}
    instances = [instance_of(entry, stack) for entry in stack.show("instances")["instances"]]
    for entry in stack.show("interfaces")["interfaces"]:
        instance = next(instance for instance in instances if instance["name"] == entry["instance"])
        instance.setdefault("interface", []).append(interface_of(entry, by_name[entry["instance"], entry["name"]]))
    data = {"connected": status["connected"], "in-sync": status["in_sync"], "instance": instances,
            "other": outcomes_of(counters["other"]), "kernel-drops": kernel_drops_of(counters["kernel_drops"])}
    for name in ("calls", "dumps", "journal_dropped"):
        data[name.replace("_", "-")] = str(status[name])
    return data


def instance_of(entry, stack):
    out = {"name": entry["name"], "vrf-missing": entry["vrf_missing"]}
    if entry["vrf_device"]:
        out["vrf-device"] = entry["vrf_device"]
    out["server"] = [{"address": server["address"]} | outcomes_of({name: server[name] for name in SERVER_COUNTERS})
                     for server in stack.show("servers")["servers"] if server["instance"] == entry["name"]]
    return out


def interface_of(entry, counters):
    out = {name: entry[name] for name in ("name", "vlan", "address", "state", "link") if entry[name] is not None}
    return out | {"in-force": {name: entry[name] for name in SETTINGS},
                  "requests": outcomes_of(counters["requests"]), "replies": outcomes_of(counters["replies"]),
                  "option-left-out": str(counters["option_left_out"])}


def kernel_drops_of(drops):
    return {name.replace("_", "-"): str(count) for name, count in drops.items() if count is not None}


def outcomes_of(counts):
    return {name: str(count) for name, count in counts.items()}
