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


def best_of(repeats, *works):
    """The smallest time of each work over repeats rounds, the works taking turns within a
    round, so that a busy moment of the machine weighs on each alike."""
    best = [float("inf")] * len(works)
    for _ in range(repeats):
        for i, work in enumerate(works):
            start = time.perf_counter()
            work()
            best[i] = min(best[i], time.perf_counter() - start)
    return best


def main():
    count = int(sys.argv[1]) if len(sys.argv) > 1 else 10_000_000
    values = np.random.default_rng(7).uniform(-5, 30, count)
    values[::97] = np.nan  # a few Nulls, as a real field has
    print(f"{count} values")
    worst = 0.0
    for kind, params in CRITERIA.items():
        took, copy = best_of(11, lambda: quorel.membership(kind, *params, values=values),
                             lambda: np.copy(values))
        worst = max(worst, took / copy)
        print(f"kind {kind}: {took * 1e3:.1f} ms, numpy.copy {copy * 1e3:.1f} ms: "
              f"{took / copy:.2f} x the copy")
    print(f"worst ratio to the copy: {worst:.2f} (target 3)")


main()
