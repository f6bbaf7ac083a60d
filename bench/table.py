#!/usr/bin/env python3
"""Reads what tolvo-ipc-bench has written: table.py RESULTS [--check | --plot]

Prints two tables, first the cases that users ask about; with --check also the bounds that are missed, and fails when
there are any; with --plot only the round trips, one line of numbers for each body size.
"""
import math
import re
import statistics
import sys

FIRST = ("service/ipc/16", "service/ipc/4096", "service/ipc/1048576", "server/ipc/16", "client/ipc/16",
         "layer/Caller/16", "layer/AsyncCaller/16", "dealer-client/ipc/16", "throughput/ipc/16x16",
         "throughput/ipc/500x16", "urgent/two-priorities/ipc/16-clients", "urgent/one-priority/ipc/16-clients",
         "start/ipc", "stop/ipc", "memory/server/10", "memory/client/10", "connectors/ipc/100")


class Case:
    def __init__(self):
        self.values = {"plain": [], "library": [], "plain-again": []}  # nanoseconds, or bytes, of one operation
        self.counters = {}

    def add(self, side, time, counters):
        self.values[side].append(counters.get("bytes", time / counters.get("responses", 1)))
        for name, value in counters.items():
            self.counters.setdefault(name, {}).setdefault(side, []).append(value)

    def median(self, side):
        return statistics.median(self.values[side])

    def ratios(self, side):
        """Of runs that followed one another."""
        return sorted(a / b for a, b in zip(self.values[side], self.values["plain"]))

    def ratio(self):
        return statistics.median(self.ratios("library"))

    def lost(self, side):
        return int(max(self.counters.get("lost_so_far", {}).get(side, [0])))

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
        for line in file:
            run, time, *counters = line.split()
            name, _, side = run.rpartition("/")
            counters = {name: float(value) for name, value in (counter.split("=") for counter in counters)}
            cases.setdefault(name, Case()).add(side, float(time), counters)
    return cases


def quantity(case, side):
    value = case.median(side)
    if "bytes" in case.counters:
        return f"{value / 1024:.1f} KiB"
    for unit in ("ns", "us", "ms"):
        if value < 1000:
            break
        value /= 1000
    return f"{value:.3g} {unit}" if value < 100 else f"{value:.0f} {unit}"


def spread(case, side):
    ratios = case.ratios(side)
    low, middle, high = statistics.quantiles(ratios) if len(ratios) > 1 else ratios * 3
    return f"{middle:.3f} ({low:.3f} to {high:.3f})"


def print_table(cases):
    if not cases:
        return
    rows = [("case", "plain ZeroMQ", "library", "ratio (quartiles)", "plain to itself")]
    for name, case in cases.items():
        rows.append((name, quantity(case, "plain"), quantity(case, "library"), spread(case, "library"),
                     spread(case, "plain-again")))
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    rows.insert(1, ["-" * width for width in widths])
    for row in rows:
        print("| " + " | ".join(cell.ljust(width) for cell, width in zip(row, widths)) + " |")
    print()


def print_notes(cases):
    for name, case in cases.items():
        plain, library, again = map(case.lost, case.values)
        if plain or library or again:
            print(f"{name}: replies lost: plain ZeroMQ {plain}, library {library}, plain ZeroMQ once more {again}")
        if "ordinary_before" in case.counters:
            before = {side: statistics.median(values) for side, values in case.counters["ordinary_before"].items()}
            print(f"{name}: ordinary requests answered before an urgent one: plain ZeroMQ {before['plain']:.1f}, "
                  f"library {before['library']:.1f}")


def bounds(cases):
    """Case, what is bounded, its value, its bound, its noise."""
    for name, case in cases.items():
        group, _, last = name.rpartition("/")
        if group.split("/")[0] in ("server", "client", "service") or group == "layer/Caller":
            yield name, "time", case.ratio(), 1.03 if int(last) <= 4096 else 1.10, case.noise()
        if group.startswith("throughput/") and last.startswith("900x"):
            # Over inproc a reply takes so little that the server's one ZeroMQ message for each request, where the twin
            # has one for each burst, shows: 1.04 to 1.05 on a quiet machine.
            bound = 1.06 if group == "throughput/inproc" else 1 / 0.97
            yield name, "time of a reply", case.ratio(), bound, case.noise()
        if group.startswith("throughput/") and not (group.endswith("/ipc") and last.startswith("900x")):
            # Of 900 over ipc ZeroMQ itself loses some: its queue may refuse from the 501st on.
            yield name, "replies lost", case.lost("library"), 0, 0
        if group.startswith("urgent/two-priorities/"):
            before = statistics.median(case.counters["ordinary_before"]["library"])
            yield name, "ordinary requests before an urgent one", before, 10, 0
        if re.fullmatch(r"urgent/two-priorities/.*/16-clients", name):
            one_priority = cases[name.replace("two-priorities", "one-priority")]
            wait = case.median("library") / one_priority.median("library")
            yield name, "wait, of that with one priority,", wait, 1 / 3, 0
        if re.fullmatch(r"connectors/.*/100", name):
            one = cases[group + "/1"]
            yield name, "growth beyond plain ZeroMQ's", case.ratio() / one.ratio(), 1, case.noise() + one.noise()


def print_plot(cases):
    groups = ("service/ipc", "server/ipc", "client/ipc", "server/inproc", "client/inproc")
    sizes = sorted(int(name.rpartition("/")[2]) for name in cases if name.startswith(groups[0] + "/"))
    for size in sizes:
        points = [cases[f"{group}/{size}"].median(side) / 1000 for group in groups for side in ("plain", "library")]
        print(size, *(f"{point:.3f}" for point in points))


def main(path, option=None):
    cases = read(path)
    if option == "--plot":
        print_plot(cases)
        return 0
    print_table({name: cases[name] for name in FIRST if name in cases})
    print_table({name: case for name, case in cases.items() if name not in FIRST})
    print_notes(cases)
    missed = 0
    for name, what, value, bound, noise in bounds(cases) if option == "--check" else ():
        if value > bound + noise:
            print(f"missed: {name}: {what} {value:.3f}, bound {bound:.3f}, noise {noise:.3f}")
            missed = 1
    return missed


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
