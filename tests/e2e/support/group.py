"""Random commits for a group of instances and layer-3 interfaces, apart from the other groups'.

Whatever the commits are and however many of them are delivered as one, a fresh dump changes nothing afterwards: the
state of a group always keeps what relay_table.py demands.
"""

import copy
import json

import oracle
import states

SERVERS = tuple(f"10.0.0.{i}" for i in range(1, 6))
SETTINGS = ("check", "trusted", "option")
POLICIES = ("drop", "keep", "replace")
SIZES = (1, 1, 1, 2, 3, 5, 10, 30)  # instances that a commit touches at most

REFUSED = (
    {"vx-dhcp-relay:dhcp": {"relay": [{"name": "refused", "vrf": "nowhere"}]}},
    {"vx-dhcp-relay:dhcp": {"relay": [{"name": "refused", "server": {"ipv4": [{"address": "0.0.0.0"}]}}]}},
    {"vx-dhcp-relay:dhcp": {"relay": [{"name": "refused", "interface": [{"name": "5"}]}]}},
    {"vx-interface:interface": {"l3": [{"name": "refused", "lower-layer-if": {"vlan": 4095}}]}},
)


class Group:
    """`state` is what the datastore holds of the group, in the oracle's form."""

    def __init__(self, random, number, size):
        self.random = random
        self.number = number
        self.names = [f"r{number}-{i}" for i in range(size)]
        self.keys = [f"{number}.{i}" for i in range(size)]
        self.state = {"relays": {}, "l3": {}}

    def part_of(self, state):
        """What a whole configuration holds of this group."""
        return {"relays": {name: entry for name, entry in state["relays"].items() if name in self.names},
                "l3": {key: entry for key, entry in state["l3"].items() if key in self.keys}}

    def edit(self):
        """The state after a commit, and the commit."""
        after = {"relays": dict(self.state["relays"]), "l3": dict(self.state["l3"])}
        if self.random.random() < 0.02:
            after["relays"].clear()
        for name in self._some(self.names):
            self._edit_relay(after, name)
        for key in self._some(self.keys):
            self._edit_l3(after, key)
        return after, states.edit_document(self.state, after, lambda name: self.random.random() < 0.6)

    def independent_edit(self):
        """A commit that keeps what is to be kept, whatever the datastore holds."""
        relays = {name: {**oracle.EMPTY_RELAY, "options": self._settings(),
                         "servers": set(self.random.sample(SERVERS, 2))} for name in self.random.sample(self.names, 3)}
        nothing = {"relays": {}, "l3": {}}
        return states.edit_document(nothing, {**nothing, "relays": relays}, lambda name: False)

    def refused_edit(self):
        """A commit that the datastore refuses, though a part of it is valid."""
        _, document = self.edit()
        for part, content in json.loads(json.dumps(self.random.choice(REFUSED))).items():
            for kind, members in content.items():
                document["vx-config:config"][part][kind] += members
        return document

    def _some(self, items):
        return self.random.sample(items, min(len(items), self.random.randint(0, self.random.choice(SIZES))))

    def _edit_relay(self, state, name):
        relays = state["relays"]
        if name in relays and self.random.random() < 0.12:
            del relays[name]
            return
        entry = copy.deepcopy(relays.get(name, oracle.EMPTY_RELAY))
        if name not in relays or self.random.random() < 0.1:
            entry["options"] = self._settings()
        for _ in range(self.random.randint(1, 3)):
            self.random.choice((self._vrf, self._servers, self._options, self._interfaces, self._override))(
                state, name, entry)
        relays[name] = entry

    def _settings(self):
        return {leaf: self.random.choice((True, False)) for leaf in SETTINGS} | {
            "policy": self.random.choice(POLICIES)}

    def _vrf(self, _state, _name, entry):
        entry["vrf"] = self.random.choice((None, *oracle.VRFS))

    def _servers(self, _state, _name, entry):
        entry["servers"] = set(self.random.sample(SERVERS, self.random.randint(0, 3)))

    def _options(self, _state, _name, entry):
        """Any of them may be left at its default but the policy, so that the manager always hears of the instance."""
        entry["options"] = {leaf: value for leaf, value in self._settings().items()
                            if leaf == "policy" or self.random.random() < 0.6}

    def _interfaces(self, state, name, entry):
        keys = self.random.sample(self.keys, self.random.randint(0, 2))
        entry["interfaces"] = {f"l3-{key}" for key in keys}
        for key in keys:
            self._unlist(state, name, f"l3-{key}")
            if not states.is_complete(state["l3"].get(key)):
                state["l3"][key] = self._complete_l3()

    def _unlist(self, state, name, interface):
        """Takes an interface from the instance that lists it, unless that is the one of that name."""
        for other, entry in state["relays"].items():
            if other != name and interface in entry["interfaces"]:
                state["relays"][other] = {**entry, "interfaces": entry["interfaces"] - {interface}}

    def _override(self, _state, _name, entry):
        interface = f"l3-{self.random.choice(self.keys)}"
        if interface in entry["overrides"] and self.random.random() < 0.5:
            del entry["overrides"][interface]
        else:
            entry["overrides"][interface] = self._settings()

    def _complete_l3(self):
        return {"vlan": self.random.randint(1, 4094),
                "ip": f"198.18.{self.random.randint(0, 255)}.{self.random.randint(1, 254)}/24"}

    def _edit_l3(self, state, key):
        entry = self._complete_l3()
        for leaf, value in state["l3"].get(key, oracle.EMPTY_L3).items():
            if self.random.random() < 0.5:
                entry[leaf] = value or entry[leaf]
        if not any(f"l3-{key}" in relay["interfaces"] for relay in state["relays"].values()):
            if self.random.random() < 0.3:
                state["l3"].pop(key, None)
                return
            entry = {leaf: value if self.random.random() < 0.7 else None for leaf, value in entry.items()}
        state["l3"][key] = entry
