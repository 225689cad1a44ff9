"""Configurations as the datastore takes them, put together from their parts."""


def relay(name, **members):
    """A relay instance; an underscore in a member's name stands for a dash."""
    return {"name": name, **{key.replace("_", "-"): value for key, value in members.items()}}


def server_list(*addresses):
    """The value of a relay instance's member `server`."""
    return {"ipv4": [{"address": address} for address in addresses]}


def interface_list(*names):
    """The value of a relay instance's member `interface`."""
    return [{"name": name} for name in names]


def configuration(*instances, l3=(), vrfs=None):
    """A whole configuration. `l3` are (name, VLAN, address) of layer-3 interfaces, `vrfs` VRF indices by name."""
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
