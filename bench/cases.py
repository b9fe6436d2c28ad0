"""The parts that a row of the benchmarks is made of, and what can be wanted of its figures.

A row has cases. A case is one line of work with a figure of ours, and the figures of its peers. A figure is a number
that a command prints; measure.py says which there are.
"""
from dataclasses import dataclass, field
from typing import Callable, List, Optional


@dataclass
class Wanted:
    text: str
    holds: Callable  # of the ratio to a peer, or, for a wanted figure of ours, of the list of its values


@dataclass
class Figure:
    command: str
    name: str
    divisor: Optional[str] = None  # another figure of the command
    scale: float = 1

    def values(self, results):
        """One per run; none where the peer is not there."""
        names = [self.name] + [self.divisor] * (self.divisor is not None)
        runs = [run for run in results[self.command] if all(name in run for name in names)]
        return [self.scale * run[self.name] / (run[self.divisor] if self.divisor else 1) for run in runs]


@dataclass
class Peer:
    name: str
    figure: Figure
    wanted: Optional[Wanted] = None


@dataclass
class Case:
    name: str  # with the unit
    ours: Figure
    peers: List[Peer] = field(default_factory=list)
    wanted: List[Wanted] = field(default_factory=list)
    more_is_better: bool = False
    bar: str = ""  # its label in the picture of the ratios


@dataclass
class Row:
    name: str
    title: str
    cases: List[Case]


def at_most(limit):
    return Wanted(f"at most {limit}", lambda ratio: ratio <= limit)


def at_least(limit):
    return Wanted(f"at least {limit}", lambda ratio: ratio >= limit)


def below(limit):
    return Wanted(f"below {limit}", lambda ratio: ratio < limit)


def median(values):
    return sorted(values)[len(values) // 2]


def median_at_least(limit):
    return Wanted(f"{limit:,} and more", lambda values: median(values) >= limit)


def every_run_at_least(limit):
    return Wanted(f"every run {limit:,} and more", lambda values: min(values) >= limit)


def median_below(limit, unit):
    return Wanted(f"below {limit} {unit}", lambda values: median(values) < limit)
