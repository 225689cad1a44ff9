#!/usr/bin/env python3
"""Writes the cases of packet_matrix_test: what goes into the relay's packet rules, and what must come out.

The expected messages are put together here from their fields and options, by the rules as the RFCs and the relay's
documentation have them; nothing is taken from what the relay computes. One case a line, words apart by blanks:

  request NAME GIADDR SETTINGS OVERRIDE POLICY INFORMATION OWN CAPACITY MESSAGE RESULT OUTPUT
  reply   NAME GIADDR SETTINGS OVERRIDE POLICY INFORMATION -   CAPACITY MESSAGE RESULT OUTPUT

SETTINGS holds the letters c(heck), t(rusted), o(ption), f(oreign giaddr dropped) that are on for the instance, OVERRIDE
those that the interface's override turns on, as capitals those that it turns off; '-' stands for none. Messages are in
hexadecimal; OUTPUT is '-' where nothing comes out.
"""

import itertools
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[3] / "support"))

# The path to it had to be set first.
from dhcp_message import (CLIENT_ID, COOKIE, END, INFORMATION, OVERLOAD, PAD, PARAMETERS, TYPE, Message,  # noqa: E402
                          encode, without_information)

OURS = bytes([1, 6]) + b"l3-5:5" + bytes([2, 6, 2, 0, 0, 0, 0, 5])
THEIRS = bytes([1, 4]) + b"port"
US = "192.168.5.1"
OWN = (US, "10.0.0.254")
CAPACITY = 1472
OVERRIDE_NAMES = {"": "Unset", "o": "On", "O": "Off"}

cases = []


def case(kind, name, message, result, output=None, giaddr=US, settings="", override="", policy="keep",
         information=OURS, capacity=CAPACITY):
    message = message.bytes() if isinstance(message, Message) else message
    output = output.bytes() if isinstance(output, Message) else output
    own = ",".join(OWN) if kind == "request" else "-"
    cases.append(" ".join([kind, name, giaddr, settings or "-", override or "-", policy, information.hex(), own,
                           str(capacity), message.hex() or "-", result, output.hex() if output is not None else "-"]))


def relayed(message, **changes):
    """The request as it leaves: one hop more, our address unless a relay was there before."""
    giaddr = US if message.giaddr == "0.0.0.0" else message.giaddr
    return message.but(hops=message.hops + 1, giaddr=giaddr, **changes)


def with_ours(options):
    """Ours is the last option."""
    kept = [option for option in options if option != END]
    return kept + [(INFORMATION, OURS), END]


def requests():
    plain = Message()
    for hops in (0, 15, 16):
        message = Message(hops=hops)
        case("request", f"Hops{hops}", message, "relay", relayed(message))
    for hops in (17, 255):
        case("request", f"Hops{hops}", Message(hops=hops), "hops")

    for option in ("", "o"):
        for name, giaddr, result in (("Zero", "0.0.0.0", "relay"), ("Foreign", "10.9.9.9", "relay"),
                                     ("Own", US, "own-giaddr"), ("OwnElsewhere", "10.0.0.254", "own-giaddr"),
                                     ("Broadcast", "255.255.255.255", "malformed"),
                                     ("Multicast", "224.0.0.1", "malformed"),
                                     ("Loopback", "127.0.0.1", "malformed"),
                                     ("Reserved", "240.0.0.1", "malformed")):
            message = Message(giaddr=giaddr)
            output = None
            if result == "relay":
                added = option and giaddr == "0.0.0.0"
                output = relayed(message, options=with_ours(message.options) if added else message.options)
            case("request", f"Giaddr{name}Option{'On' if option else 'Off'}", message, result, output, settings=option)

    for there, trusted, option, policy, giaddr, drop in itertools.product(
            (False, True), ("", "t"), ("", "o"), ("keep", "replace", "drop"), ("0.0.0.0", "10.9.9.9"), ("", "f")):
        options = [TYPE, CLIENT_ID] + ([(INFORMATION, THEIRS)] if there else []) + [PARAMETERS, END]
        message = Message(options=options, giaddr=giaddr)
        first_hop = giaddr == "0.0.0.0"
        result, output = "relay", relayed(message)
        if there and first_hop and not trusted:
            result, output = "untrusted", None
        elif not first_hop and drop and not trusted:
            result, output = "foreign-giaddr", None
        elif there and option and policy == "drop":
            result, output = "policy", None
        elif there and option and policy == "replace":
            output = relayed(message, options=with_ours(without_information(options)))
        elif not there and option and first_hop:
            output = relayed(message, options=with_ours(options))
        case("request", f"Matrix{'There' if there else 'Absent'}{'Trusted' if trusted else 'Untrusted'}"
             f"Option{'On' if option else 'Off'}{policy.capitalize()}{'FirstHop' if first_hop else 'Relayed'}"
             f"{'ForeignDropped' if drop else ''}",
             message, result, output, settings=trusted + option + drop, policy=policy)

    theirs = (INFORMATION, THEIRS)
    for name, options in (("First", [theirs, TYPE, PARAMETERS, END]), ("Middle", [TYPE, theirs, PARAMETERS, END]),
                          ("LastBeforeEnd", [TYPE, PARAMETERS, theirs, END]),
                          ("Alone", [theirs, END]),
                          ("AmongPads", [TYPE, PAD, theirs, PAD, PARAMETERS, PAD, END]),
                          ("InSeveral", [(INFORMATION, THEIRS[:3]), TYPE, (INFORMATION, THEIRS[3:]), END]),
                          ("OfLength0", [TYPE, (INFORMATION, b""), END]),
                          ("OfLength1", [TYPE, (INFORMATION, b"\x01"), END]),
                          ("OfLength255", [TYPE, (INFORMATION, bytes(255)), END]),
                          ("WithoutEnd", [TYPE, theirs, PARAMETERS]),
                          ("LastWithoutEnd", [TYPE, PARAMETERS, theirs])):
        message = Message(options=options)
        size = len(message.bytes())
        output = relayed(message, options=with_ours(without_information(options)))
        output.tail = b"\0" * max(0, size - len(output.bytes()))
        case("request", f"Replace{name}", message, "relay", output, settings="to", policy="replace")
        case("request", f"Keep{name}", message, "relay", relayed(message), settings="to", policy="keep")
        case("request", f"OptionOff{name}", message, "relay", relayed(message), settings="t", policy="replace")
        case("request", f"Drop{name}", message, "policy", settings="to", policy="drop")
        case("request", f"Untrusted{name}", message, "untrusted", settings="o", policy="replace")

    exact = len(relayed(plain, options=with_ours(plain.options)).bytes())
    case("request", "RoomExactlyThere", plain, "relay", relayed(plain, options=with_ours(plain.options)), settings="o",
         capacity=exact)
    case("request", "RoomOneByteShort", plain, "no-room", relayed(plain), settings="o", capacity=exact - 1)
    case("request", "RoomNone", plain, "no-room", relayed(plain), settings="o", capacity=len(plain.bytes()))
    replaceable = Message(options=[TYPE, theirs, PARAMETERS, END])
    case("request", "ReplaceWithoutRoomTakesTheirsOut", replaceable, "no-room",
         relayed(replaceable, options=[TYPE, PARAMETERS, END], tail=bytes(2 + len(THEIRS))), settings="to",
         policy="replace", capacity=len(replaceable.bytes()))
    padded = Message(tail=bytes(200))
    case("request", "PaddingIsUsedUp", padded, "relay",
         relayed(padded, options=with_ours(padded.options), tail=bytes(200 - 2 - len(OURS))), settings="o",
         capacity=len(padded.bytes()))
    for name, spare, result in (("PaddingThatJustSuffices", 0, "relay"), ("PaddingOneByteShort", 1, "no-room")):
        message = Message(tail=bytes(2 + len(OURS) - spare))
        output = relayed(message, options=with_ours(message.options), tail=b"") if not spare else relayed(message)
        case("request", name, message, result, output, settings="o", capacity=len(message.bytes()))
    short = Message(tail=bytes(5))
    case("request", "PaddingThatDoesNotSuffice", short, "relay",
         relayed(short, options=with_ours(short.options), tail=b""), settings="o")
    odd = Message(tail=b"\0\0tail\0\0")
    case("request", "WhatFollowsEndMovesAlong", odd, "relay",
         relayed(odd, options=with_ours(odd.options), tail=b"\0\0tail"), settings="o")
    longest = bytes([1, 253]) + bytes(253)
    case("request", "LongestOption", plain, "relay",
         relayed(plain, options=plain.options[:-1] + [(INFORMATION, longest), END]), settings="o", information=longest)

    endless = Message(options=[TYPE, CLIENT_ID])
    case("request", "NoEnd", endless, "relay", relayed(endless, options=with_ours(endless.options)), settings="o")
    case("request", "NoEndOptionOff", endless, "relay", relayed(endless))
    empty = Message(options=[])
    case("request", "NoOptionsAtAll", empty, "relay", relayed(empty, options=with_ours([])), settings="o")
    for name, rest in (("OneByteShort", bytes([12, 3, 1, 2])), ("TwoBytesShort", bytes([12, 3, 1])),
                       ("WithoutLength", bytes([12])),
                       ("InformationReachingBeyond", bytes([82, 9, 1, 4]))):
        for settings in ("", "to"):
            case("request", f"Truncated{name}{settings}", Message(options=[TYPE, rest]), "malformed",
                 settings=settings, policy="replace")

    inside = encode([(12, b"host"), theirs, (15, b"zone"), END])
    cleaned = encode([(12, b"host"), (15, b"zone"), END])
    for name, value, fields in (("File", 1, ("file",)), ("Sname", 2, ("sname",)), ("Both", 3, ("file", "sname"))):
        options = [TYPE, (OVERLOAD, bytes([value])), END]
        message = Message(options=options, **{field: inside for field in fields})
        case("request", f"Overloaded{name}Untrusted", message, "untrusted", settings="o")
        case("request", f"Overloaded{name}Drop", message, "policy", settings="to", policy="drop")
        case("request", f"Overloaded{name}Keep", message, "relay", relayed(message), settings="to")
        case("request", f"Overloaded{name}Replace", message, "relay",
             relayed(message, options=with_ours(options), **{field: cleaned for field in fields}), settings="to",
             policy="replace")
        broken = Message(options=options, **{field: b"\x0c\xff" for field in fields})
        case("request", f"Overloaded{name}Broken", broken, "malformed")
        clean = Message(options=options, **{field: cleaned for field in fields})
        case("request", f"Overloaded{name}Clean", clean, "relay", relayed(clean, options=with_ours(options)),
             settings="o")
    for name, options in (("NoOverload", []), ("OverloadOfLength0", [(OVERLOAD, b"")]),
                          ("OverloadOf0", [(OVERLOAD, b"\0")]), ("OverloadOf4", [(OVERLOAD, b"\4")])):
        message = Message(options=[TYPE] + options + [END], file=inside, sname=inside)
        case("request", f"FieldsAreNotOptions{name}", message, "relay",
             relayed(message, options=with_ours(message.options)), settings="o")
    for name, options in (("Twice", [(OVERLOAD, b"\1"), (OVERLOAD, b"\2")]), ("OfLength2", [(OVERLOAD, b"\3\0")]),
                          ("TwiceTheSecond0", [(OVERLOAD, b"\3"), (OVERLOAD, b"\0")])):
        options = [TYPE] + options + [END]
        for field in ("file", "sname"):
            message = Message(options=options, **{field: inside, "sname" if field == "file" else "file": cleaned})
            case("request", f"Overload{name}Counts{field.capitalize()}", message, "untrusted", settings="o")
        message = Message(options=options, file=inside, sname=inside)
        case("request", f"Overload{name}Replace", message, "relay",
             relayed(message, options=with_ours(options), file=cleaned, sname=cleaned), settings="to", policy="replace")
    in_file = [TYPE, (OVERLOAD, b"\1"), END]
    everywhere = Message(options=[theirs] + in_file, file=encode([theirs, PAD, theirs, (15, b"zone")]))
    case("request", "ReplaceEveryOne", everywhere, "relay",
         relayed(everywhere, options=with_ours(in_file), file=encode([PAD, (15, b"zone")])), settings="to",
         policy="replace")
    case("request", "ReplaceEveryOneWithoutRoom", everywhere, "no-room",
         relayed(everywhere, options=in_file, file=encode([PAD, (15, b"zone")]), tail=bytes(2 + len(THEIRS))),
         settings="to", policy="replace", capacity=len(everywhere.bytes()))
    full = Message(options=in_file, file=encode([(12, bytes(range(120))), theirs[:1] + (b"\1\2\3\4",)]))
    case("request", "OverloadedFieldFullAndReplaced", full, "relay",
         relayed(full, options=with_ours(in_file), file=encode([(12, bytes(range(120)))])), settings="to",
         policy="replace")
    fuller = Message(options=in_file, file=encode([(12, bytes(126))]))
    case("request", "OverloadedFieldFull", fuller, "relay", relayed(fuller, options=with_ours(in_file)), settings="o")
    behind = Message(options=in_file, file=encode([(12, b"host"), END, theirs]))
    case("request", "OverloadedFieldBehindItsEnd", behind, "relay", relayed(behind, options=with_ours(in_file)),
         settings="o")
    nested = Message(options=in_file, file=encode([(OVERLOAD, b"\2"), END]), sname=inside)
    case("request", "OverloadInAnOverloadedField", nested, "relay", relayed(nested, options=with_ours(in_file)),
         settings="o")
    after_end = Message(options=[TYPE, END], tail=encode([theirs]))
    case("request", "BehindEndIsNoOption", after_end, "relay", relayed(after_end, options=with_ours([TYPE, END])),
         settings="o", policy="drop")
    case("request", "BehindEndOptionOff", after_end, "relay", relayed(after_end))

    broken = [TYPE, bytes([12, 9])]
    for name, message, result in (
            ("MalformedBeforeHops", Message(hops=17, options=broken), "malformed"),
            ("HopsBeforeOwnGiaddr", Message(hops=17, giaddr=US), "hops"),
            ("HopsBeforeUntrusted", Message(hops=17, options=[theirs, END]), "hops"),
            ("OwnGiaddrBeforePolicy", Message(giaddr=US, options=[theirs, END]), "own-giaddr"),
            ("UntrustedBeforePolicy", Message(options=[theirs, END]), "untrusted")):
        case("request", name, message, result, settings="o", policy="drop")
    for name, message, result in (
            ("HopsBeforeForeignGiaddr", Message(hops=17, giaddr="10.9.9.9"), "hops"),
            ("OwnGiaddrIsNotForeign", Message(giaddr=US), "own-giaddr"),
            ("MalformedBeforeForeignGiaddr", Message(giaddr="10.9.9.9", options=broken), "malformed")):
        case("request", name, message, result, settings="of")

    for hlen, result in ((0, "relay"), (16, "relay"), (17, "malformed"), (255, "malformed")):
        message = Message(hlen=hlen)
        case("request", f"Hlen{hlen}", message, result, relayed(message) if result == "relay" else None)
    case("request", "Op2", Message(op=2), "malformed")
    case("request", "Op0", Message(op=0), "malformed")
    case("request", "Empty", b"", "malformed")
    case("request", "OneByteShortOfAHeader", plain.header()[:-1], "malformed")
    bare = relayed(plain).header()
    case("request", "HeaderAlone", plain.header(), "relay", bare, settings="o")
    case("request", "CookieCut", plain.header() + COOKIE[:3], "relay", bare + COOKIE[:3], settings="o")
    vendor = bytes([82, 2, 1, 0]) + bytes(56)
    bootp = Message(cookie=b"", options=[vendor])
    case("request", "PlainBootp", bootp, "relay", relayed(bootp), settings="o")
    bad = Message(cookie=bytes([99, 130, 83, 98]), options=[TYPE, theirs, END])
    case("request", "BadCookie", bad, "relay", relayed(bad), settings="o", policy="drop")


def replies():
    ours, theirs = (INFORMATION, OURS), (INFORMATION, THEIRS)
    other = [TYPE, (51, bytes([0, 0, 14, 16]))]
    padding = bytes(60)
    for check, option in itertools.product(("", "c"), ("", "o")):
        settings = check + option
        checked = settings == "co"
        switches = f"Check{'On' if check else 'Off'}Option{'On' if option else 'Off'}"
        for flags in (0, 0x8000):
            broadcast = "Broadcast" if flags else "Unicast"
            for name, options, is_ours in (
                    ("None", other + [END], None), ("Ours", other + [ours, END], True),
                    ("OursFirst", [ours] + other + [END], True), ("OursMiddle", [other[0], ours, other[1], END], True),
                    ("OursWithoutEnd", other + [ours], True),
                    ("OursInTwo", other + [(INFORMATION, OURS[:5]), (INFORMATION, OURS[5:]), END], True),
                    ("Theirs", other + [theirs, END], False), ("Length0", other + [(INFORMATION, b""), END], False),
                    ("Length1", other + [(INFORMATION, b"\1"), END], False),
                    ("OursCut", other + [(INFORMATION, OURS[:-1]), END], False),
                    ("OursAndMore", other + [(INFORMATION, OURS + b"\0"), END], False),
                    ("OursTwice", other + [ours, ours, END], False),
                    ("OursAndTheirs", other + [ours, theirs, END], False)):
                message = Message(op=2, options=options, flags=flags, giaddr=US, tail=padding)
                result, output = "relay", message
                if checked and is_ours is None:
                    result, output = "no-information", None
                elif checked and not is_ours:
                    result, output = "foreign-information", None
                elif is_ours:
                    rest = message.but(options=without_information(options))
                    size = len(message.bytes())
                    output = rest.bytes().ljust(min(size, 300), b"\0")
                case("reply", f"{name}{switches}{broadcast}", message, result, output, settings=settings)
    for policy in ("replace", "drop"):
        message = Message(op=2, options=other + [theirs, END], giaddr=US)
        case("reply", f"TheirsStayUnder{policy.capitalize()}", message, "relay", message, settings="o", policy=policy)
    short = Message(op=2, options=other + [ours, END], giaddr=US)
    case("reply", "ShortOneKeepsItsSize", short, "relay",
         short.but(options=other + [END]).bytes().ljust(len(short.bytes()), b"\0"), settings="co")
    long = Message(op=2, options=other + [ours, (43, bytes(100)), END], giaddr=US)
    case("reply", "LongOneShrinks", long, "relay", long.but(options=other + [(43, bytes(100)), END]), settings="co")
    tail = Message(op=2, options=other + [ours, END], giaddr=US, tail=b"tail" * 20)
    case("reply", "WhatFollowsEndMovesUp", tail, "relay",
         tail.but(options=other + [END]).bytes().ljust(300, b"\0"), settings="co")
    for size in (299, 300, 301, 300 + 1 + len(OURS), 300 + 2 + len(OURS), 300 + 3 + len(OURS)):
        message = short.but(tail=bytes(size - len(short.bytes())))
        rest = short.but(options=other + [END]).bytes()
        # The padding that was there is not ours to take away.
        least = max(size - 2 - len(OURS), min(size, 300))
        case("reply", f"Of{size}Bytes", message, "relay", rest.ljust(least, b"\0"), settings="co")
    pieces = [(INFORMATION, OURS[:1]), PAD, (INFORMATION, b""), (INFORMATION, OURS[1:])]
    message = Message(op=2, options=[PAD] + pieces + other + [PAD, END], giaddr=US, tail=padding)
    case("reply", "OursAmongPads", message, "relay",
         message.but(options=[PAD, PAD] + other + [PAD, END]).bytes().ljust(300, b"\0"), settings="co")
    behind = Message(op=2, options=other + [END], giaddr=US, tail=encode([ours]))
    case("reply", "OursBehindEnd", behind, "no-information", settings="co")
    case("reply", "OursBehindEndStays", behind, "relay", behind, settings="o")
    broken = Message(op=2, options=other + [(OVERLOAD, b"\1"), END], file=b"\x52\xff", giaddr=US)
    case("reply", "OverloadedFieldsAreNotLookedAt", broken, "relay", broken, settings="o")
    overloaded = Message(op=2, options=other + [(OVERLOAD, b"\1"), END], file=encode([ours, END]), giaddr=US)
    case("reply", "OursInAnOverloadedFieldIsNotOurs", overloaded, "no-information", settings="co")
    case("reply", "OursInAnOverloadedFieldStays", overloaded, "relay", overloaded, settings="o")
    case("reply", "Truncated", Message(op=2, options=other + [bytes([82, 200, 1])], giaddr=US), "malformed")
    case("reply", "Hlen17", Message(op=2, hlen=17, giaddr=US), "malformed")
    case("reply", "Op1", Message(op=1, giaddr=US), "malformed")
    case("reply", "Short", Message(op=2, giaddr=US).header()[:-1], "malformed")
    hops = Message(op=2, hops=200, giaddr=US)
    case("reply", "HopsDoNotMatter", hops, "relay", hops)
    bootp = Message(op=2, cookie=b"", options=[bytes(64)], giaddr=US)
    case("reply", "PlainBootp", bootp, "relay", bootp, settings="o")
    case("reply", "PlainBootpChecked", bootp, "no-information", settings="co")


def overrides():
    """The setting `option` of the instance, and that of the interface's override."""
    plain, theirs = Message(), Message(options=[TYPE, (INFORMATION, THEIRS), END])
    reply = Message(op=2, options=[TYPE, END], giaddr=US)
    for settings, override in itertools.product(("", "o"), ("", "o", "O")):
        is_on = (override or settings) == "o"
        name = f"InstanceOption{'On' if settings else 'Off'}Override{OVERRIDE_NAMES[override]}"
        options = with_ours(plain.options) if is_on else plain.options
        case("request", f"{name}Adds", plain, "relay", relayed(plain, options=options), settings=settings,
             override=override)
        for policy, result, output in (("drop", "policy", None), ("replace", "relay", relayed(
                theirs, options=with_ours(without_information(theirs.options))))):
            case("request", f"{name}{policy.capitalize()}", theirs, result if is_on else "relay",
                 output if is_on else relayed(theirs), settings=settings + "t", override=override, policy=policy)
        case("request", f"{name}DoesNotTrust", theirs, "untrusted", settings=settings, override=override)
        case("reply", f"{name}Checks", reply, "no-information" if is_on else "relay", None if is_on else reply,
             settings=settings + "c", override=override)
    for letter, name in (("c", "Check"), ("C", "NoCheck")):
        case("reply", f"Override{name}", reply, "no-information" if letter == "c" else "relay",
             settings="o" if letter == "c" else "co", override=letter)
    for letter, name in (("t", "Trusted"), ("T", "Untrusted")):
        case("request", f"Override{name}", theirs, "relay" if letter == "t" else "untrusted",
             settings="" if letter == "t" else "t", override=letter)


if __name__ == "__main__":
    requests()
    replies()
    overrides()
    with open(sys.argv[1], "w", encoding="ascii") as output_file:
        output_file.write("\n".join(cases) + "\n")
