#!/usr/bin/env python3
"""Reads what tolvo-ipc-bench has written: table.py RESULTS [--check | --plot]

Prints a table; with --check also the bounds that are missed, and fails when there are any; with --plot only the round
trips, one line of numbers for each body size.
"""
import json
import math
import re
import statistics
import sys

WAYS = ("plain", "library", "plain-again")


def measure(run):
    """What a run has measured, in nanoseconds of an operation or bytes of a connector."""
    if "bytes" in run:
        return run["bytes"]
    if "process_time" in run["name"]:
        return run["cpu_time"] / run.get("responses", 1)
    return run["real_time"]


class Case:
    def __init__(self):
        self.values = {way: [] for way in WAYS}
        self.counters = {}

    def add(self, way, run):
        self.values[way].append(measure(run))
        for name in ("lost_so_far", "ordinary_before", "bytes"):
            if name in run:
                self.counters.setdefault(name, {}).setdefault(way, []).append(run[name])

    def median(self, way):
        return statistics.median(self.values[way])

    def ratios(self, way):
        """Of runs that followed one another."""
        return sorted(a / b for a, b in zip(self.values[way], self.values["plain"]))

    def ratio(self, way):
        return statistics.median(self.ratios(way))

    def lost(self, *ways):
        return max((int(count) for way in ways for count in self.counters.get("lost_so_far", {}).get(way, [])), default=0)

    def noise(self):
        """How far from 1 plain ZeroMQ's ratio to itself may lie: the 95 % interval of its median."""
        ratios = self.ratios("plain-again")
        reach = 0.98 * math.sqrt(len(ratios))
        low = ratios[max(0, math.floor(len(ratios) / 2 - reach))]
        high = ratios[min(len(ratios) - 1, math.ceil(len(ratios) / 2 + reach))]
        return max(abs(low - 1), abs(high - 1))


def read(path):
    cases = {}
    with open(path, encoding="utf-8") as file:
        for run in json.load(file)["benchmarks"]:
            name, way = re.match(r"(.*?)/(plain-again|plain|library)\b", run["name"]).groups()
            cases.setdefault(name, Case()).add(way, run)
    return cases


def quantity(case, way):
    value = case.median(way)
    if "bytes" in case.counters:
        return f"{value / 1024:.1f} KiB"
    for unit in ("ns", "us", "ms"):
        if value < 1000:
            break
        value /= 1000
    return f"{value:.3g} {unit}" if value < 100 else f"{value:.0f} {unit}"


def spread(case, way):
    ratios = case.ratios(way)
    low, middle, high = statistics.quantiles(ratios) if len(ratios) > 1 else ratios * 3
    return f"{middle:.3f} ({low:.3f} to {high:.3f})"


def print_table(cases):
    rows = [("case", "plain ZeroMQ", "library", "ratio (quartiles)", "plain to itself")]
    for name, case in cases.items():
        rows.append((name, quantity(case, "plain"), quantity(case, "library"), spread(case, "library"),
                     spread(case, "plain-again")))
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    for number, row in enumerate(rows):
        print("| " + " | ".join(cell.ljust(width) for cell, width in zip(row, widths)) + " |")
        if number == 0:
            print("|" + "|".join("-" * (width + 2) for width in widths) + "|")

    print()
    for name, case in cases.items():
        plain, library = case.lost("plain", "plain-again"), case.lost("library")
        if plain or library:
            print(f"{name}: replies lost by plain ZeroMQ {plain} in two thirds of the runs, by the library {library}")
        if "ordinary_before" in case.counters:
            before = {way: statistics.median(values) for way, values in case.counters["ordinary_before"].items()}
            print(f"{name}: ordinary requests answered before an urgent one: plain ZeroMQ {before['plain']:.1f}, "
                  f"library {before['library']:.1f}")


def missed_bounds(cases):
    def more_than(name, what, value, bound, noise):
        if value > bound + noise:
            yield f"{name}: {what} {value:.3f}, bound {bound:.3f}, noise {noise:.3f}"

    for name, case in cases.items():
        group, _, last = name.rpartition("/")
        if group.split("/")[0] in ("server", "client", "service"):
            bound = 1.03 if int(last) <= 4096 else 1.10
            yield from more_than(name, "time", case.ratio("library"), bound, case.noise())
        if group.startswith("throughput/") and last.startswith("900x"):
            yield from more_than(name, "time of a reply", case.ratio("library"), 1 / 0.97, case.noise())
        if group.startswith("throughput/") and not (group.endswith("/ipc") and last.startswith("900x")):
            # Of 900 over ipc ZeroMQ itself loses some: its queue may refuse from the 501st on.
            yield from more_than(name, "replies lost", case.lost("library"), 0, 0)
        if group.startswith("urgent/two-priorities/"):
            before = statistics.median(case.counters["ordinary_before"]["library"])
            yield from more_than(name, "ordinary requests before an urgent one", before, 10, 0)
        if re.fullmatch(r"urgent/two-priorities/.*/16-clients", name):
            one_priority = cases[name.replace("two-priorities", "one-priority")]
            wait = case.median("library") / one_priority.median("library")
            yield from more_than(name, "wait, of that with one priority,", wait, 1 / 3, 0)
        if re.fullmatch(r"connectors/.*/100", name):
            one = cases[group + "/1"]
            growth = case.ratio("library") / one.ratio("library")
            yield from more_than(name, "growth of the time beyond plain ZeroMQ's", growth, 1, case.noise() + one.noise())


def print_plot(cases):
    groups = ("service/ipc", "server/ipc", "client/ipc", "server/inproc", "client/inproc")
    sizes = sorted(int(name.rpartition("/")[2]) for name in cases if name.startswith(groups[0] + "/"))
    for size in sizes:
        points = [cases[f"{group}/{size}"].median(way) / 1000 for group in groups for way in ("plain", "library")]
        print(size, *(f"{point:.3f}" for point in points))


def main(path, option=None):
    cases = read(path)
    if option == "--plot":
        print_plot(cases)
        return 0
    print_table(cases)
    missed = list(missed_bounds(cases)) if option == "--check" else []
    for line in missed:
        print("missed:", line)
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
