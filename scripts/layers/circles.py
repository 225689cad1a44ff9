"""Arrows between rooms, and the circles that they make."""

import collections
from typing import NamedTuple


class Arrow(NamedTuple):
    """An include, with the file of the tree or the generated header that it reaches."""
    file: str
    line: int
    target: str


def between_rooms(arrows, room_of):
    """The arrows that lead from one room to another, by such pairs."""
    pairs = collections.defaultdict(list)
    for arrow in arrows:
        pair = room_of(arrow.file), room_of(arrow.target)
        if None not in pair and pair[0] != pair[1]:
            pairs[pair].append(arrow)
    return pairs


def shortest_way(graph, start, end):
    ways, known = collections.deque([(start,)]), {start}
    while ways:
        way = ways.popleft()
        if way[-1] == end:
            return way
        for room in sorted(graph[way[-1]] - known):
            known.add(room)
            ways.append((*way, room))
    return ()


def circles(pairs):
    """Short circles that hold between them every arrow which is part of any; each begins and ends at its least room."""
    graph = collections.defaultdict(set)
    for room, other in pairs:
        graph[room].add(other)
    ways_back = {(room, other): shortest_way(graph, other, room) for room, other in pairs}
    found, covered = [], set()
    for pair, way in sorted(ways_back.items(), key=lambda item: (len(item[1]), item)):
        if way and pair not in covered:
            least = way.index(min(way))
            circle = [*way[least:], *way[:least + 1]]
            covered.update(zip(circle, circle[1:]))
            found.append(circle)
    return found
