#!/usr/bin/python3
"""Times quorel.membership on 10 million float64 values, per kind, beside a NumPy copy of the
same array (the floor: one read and one write of every value), and prints the ratio.

Usage: PYTHONPATH=build/dev/python bench/python-membership.py [COUNT]
"""

import sys
import time

import numpy as np

import quorel

CRITERIA = {1: (12.5,), 2: (0, 10, 20), 3: (2, 8), 4: (2, 8), 5: (2, 5, 15, 25)}


def best_of(repeats, work):
    times = []
    for _ in range(repeats):
        start = time.perf_counter()
        work()
        times.append(time.perf_counter() - start)
    return min(times)


def main():
    count = int(sys.argv[1]) if len(sys.argv) > 1 else 10_000_000
    values = np.random.default_rng(7).uniform(-5, 30, count)
    values[::97] = np.nan  # a few Nulls, as a real field has
    copy = best_of(7, lambda: np.copy(values))
    print(f"{count} values; numpy.copy: {copy * 1e3:.1f} ms")
    worst = 0.0
    for kind, params in CRITERIA.items():
        took = best_of(7, lambda: quorel.membership(kind, *params, values=values))
        worst = max(worst, took / copy)
        print(f"kind {kind}: {took * 1e3:.1f} ms, {took / copy:.2f} x the copy")
    print(f"worst ratio to the copy: {worst:.2f} (target 3)")


main()
