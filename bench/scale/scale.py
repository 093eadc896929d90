#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Rank 0's hand-out of ranges in virtual time: how much of many ranks a search uses.

    bench/scale/scale.py [--seconds S,S,...] [--ranks N,N,...] [--service-us U] [--latency-us L] [--spread V]
                         [--at-least EFFICIENCY]

A search that would take S seconds on all ranks at once is handed out by the rules of src/cv_search.cpp, whose
constants are read from there and from cluster/cluster_backend.cpp. Rank 0 serves one answer after the other, U
microseconds each; a message takes L microseconds each way. The ranks' speeds are drawn evenly from 1 - V to 1 + V,
and each range's duration varies by a tenth. Every rank is a remote one: rank 0's own workers are left out.

Efficiency: the time that the ranks together would need at their speeds without rank 0, of the time that it takes.
Busy: the part of that time in which rank 0 serves. With --at-least, the status is 1 when a row falls below it.
"""
import argparse
import heapq
import pathlib
import random
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]


def constant(path, name):
    """The value of a numeric constant of the program."""
    found = re.findall(rf"^constexpr \w+ {name} = ([0-9.]+);", (ROOT / path).read_text(), re.MULTILINE)
    if len(found) != 1:
        sys.exit(f"scale.py: {path}: expected one line 'constexpr TYPE {name} = NUMBER;', found {len(found)}")
    return float(found[0])


class Rules:
    def __init__(self):
        search, cluster = "src/cv_search.cpp", "cluster/cluster_backend.cpp"
        self.first_share = constant(search, "kFirstShare")
        self.growth = constant(search, "kGrowth")
        self.part_of_rest = constant(search, "kPartOfRest")
        self.smallest_part = constant(search, "kSmallestPart")
        self.remote_seconds = constant(cluster, "kRemoteSeconds")
        self.seconds_per_rank = constant(cluster, "kSecondsPerRank")


def simulate(rules, n_ranks, seconds, service, latency, spread, combinations_per_second, seed=1):
    draw = random.Random(seed)
    wanted = max(rules.remote_seconds, rules.seconds_per_rank * n_ranks)
    speed = [combinations_per_second * draw.uniform(1 - spread, 1 + spread) for _ in range(n_ranks)]
    rest = int(sum(speed) * seconds)
    rate = [rules.first_share / wanted] * n_ranks
    share = [rules.first_share] * n_ranks
    all_rates = sum(rate)
    free_at = busy = end = 0.0
    answers = 0
    # When an answer (of no combinations: the beginning) reaches rank 0, from whom, of how many, handed out when.
    events = [(0.0, r, 0, 0.0) for r in range(n_ranks)]
    while events:
        arrival, r, size, given = heapq.heappop(events)
        now = max(arrival, free_at) + service
        free_at = now
        busy += service
        if size > 0:
            answers += 1
            took = max(now - given, 1e-9)
            all_rates -= rate[r]
            rate[r] = size / took
            all_rates += rate[r]
            share[r] = max(1, int(size * min(rules.growth, max(1 / rules.growth, wanted / took))))
            end = now
        if rest > 0:
            even = rest * rate[r] / all_rates
            smallest = rules.smallest_part * rate[r] * wanted
            part = -int(-max(rules.part_of_rest * even, min(smallest, even)) // 1)
            size = int(min(rest, share[r], max(1, part)))
            rest -= size
            work = size / speed[r] * draw.uniform(0.9, 1.1)
            heapq.heappush(events, (now + 2 * latency + work, r, size, now))
    return seconds / end, busy / end, answers


def numbers(kind):
    return lambda text: [kind(word) for word in text.split(",")]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--seconds", type=numbers(float), default=[60.0, 600.0, 3600.0])
    parser.add_argument("--ranks", type=numbers(int), default=[1, 4, 16, 64, 256, 1000, 3000, 10000])
    parser.add_argument("--service-us", type=float, default=100.0)
    parser.add_argument("--latency-us", type=float, default=1000.0)
    parser.add_argument("--spread", type=float, default=0.2)
    parser.add_argument("--speed", type=float, default=1e9, help="combinations per second of a rank")
    parser.add_argument("--at-least", type=float, default=0.0)
    options = parser.parse_args()
    rules = Rules()
    low = False
    print("seconds  ranks  efficiency  rank 0 busy  answers")
    for seconds in options.seconds:
        for n in options.ranks:
            efficiency, busy, answers = simulate(rules, n, seconds, options.service_us * 1e-6,
                                                 options.latency_us * 1e-6, options.spread, options.speed)
            print(f"{seconds:7g}  {n:5d}  {efficiency:10.1%}  {busy:11.1%}  {answers:7d}", flush=True)
            low = low or efficiency < options.at_least
    if low:
        sys.exit(f"scale.py: an efficiency is below {options.at_least:g}")


if __name__ == "__main__":
    main()
