"""The package beside the C++ library, NumPy and Numba: best times, taken in turns. Prints the table of docs/python.md.

    PYTHONPATH=build/python/python ORVO_TIMING_PROGRAMS=build/python/bin python3 python/benchmarks/compare.py [cpp|numpy]
"""

from __future__ import annotations

import os
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import numpy as np

import orvo_timing

HERE = Path(__file__).resolve().parent
ROUNDS, REPEATS = 4, 10
RANGE_PS, BIN_PS = 5000, 8


def best(work) -> float:
    times = []
    for _ in range(REPEATS):
        begin = time.perf_counter()
        work()
        times.append(time.perf_counter() - begin)
    return min(times)


def in_turns(*works) -> list[float]:
    """The best of each, with all of them measured in each round."""
    return [min(times) for times in zip(*([work() for work in works] for _ in range(ROUNDS)), strict=True)]


def histogram(a, b, threads):
    return orvo_timing.xcorr_histogram(a, b, RANGE_PS, BIN_PS, threads=threads)


def numpy_histogram(a, b):
    """Plain NumPy: where each window starts and ends, then all differences of it at once."""
    first = np.searchsorted(b, a - RANGE_PS, "left")
    pairs = np.searchsorted(b, a + RANGE_PS, "right") - first
    starts = np.cumsum(pairs) - pairs
    index = np.arange(pairs.sum()) + np.repeat(first - starts, pairs)
    differences = b[index] - np.repeat(a, pairs)
    half = (-(-2 * RANGE_PS // BIN_PS) | 1) // 2
    steps = np.sign(differences) * ((np.abs(differences) + BIN_PS // 2) // BIN_PS)
    return np.bincount(steps[np.abs(steps) <= half] + half, minlength=2 * half + 1)


def numba_histograms():
    """A loop over both lists, alone and on all cores."""
    import numba

    half = (-(-2 * RANGE_PS // BIN_PS) | 1) // 2

    def count(a, b, counts):
        first = np.searchsorted(b, a[0] - RANGE_PS)
        for time_ps in a:
            while first < b.size and b[first] < time_ps - RANGE_PS:
                first += 1
            place = first
            while place < b.size and b[place] <= time_ps + RANGE_PS:
                difference = b[place] - time_ps
                if difference < 0:
                    step = -((BIN_PS // 2 - difference) // BIN_PS)
                else:
                    step = (difference + BIN_PS // 2) // BIN_PS
                if -half <= step <= half:
                    counts[step + half] += 1
                place += 1

    count = numba.njit(count, boundscheck=False)

    @numba.njit
    def alone(a, b):
        counts = np.zeros(2 * half + 1, np.int64)
        count(a, b, counts)
        return counts

    @numba.njit(parallel=True)
    def parallel(a, b):
        parts = numba.get_num_threads()
        counts = np.zeros((parts, 2 * half + 1), np.int64)
        for part in numba.prange(parts):
            count(a[part * a.size // parts : (part + 1) * a.size // parts], b, counts[part])
        return counts.sum(axis=0)

    return alone, parallel


def row(what: str, ours: float, other: str, theirs: float) -> None:
    print(f"| {what} | {ours * 1e3:.2f} ms | {other} | {theirs * 1e3:.2f} ms | {ours / theirs:.2f} |", flush=True)


def compare_with_cpp(directory: Path) -> None:
    program = directory / "speed"
    include = HERE.parent.parent / "host/cpp/include"
    subprocess.run(["c++", "-std=c++20", "-O3", "-DNDEBUG", f"-I{include}", HERE / "speed.cpp", "-o", program], check=True)

    def cpp(what, path):
        return lambda: float(subprocess.run([program, what, path], capture_output=True, check=True).stdout)

    for encoding in ("raw64", "delta32", "packed_delta"):
        path = directory / f"{encoding}.tagcap"
        orvo_timing.simulate(path, encoding=encoding, tags=4_000_000, rate=1_000_000, pair_rate=100_000)
        ours, theirs = in_turns(lambda: best(lambda: orvo_timing.open(path).times()), cpp("decode", path))
        row(f"`times()`, {encoding}, 4 million tags", ours, "C++ decode", theirs)
    a, b = orvo_timing.open(path).times()[:2]
    ours, theirs = in_turns(lambda: best(lambda: histogram(a, b, 1)), cpp("histogram", path))
    row("`xcorr_histogram`, 2 million events a channel, `threads=1`", ours, "C++ call", theirs)


def compare_with_numpy() -> None:
    rng = np.random.default_rng(1)
    a = np.cumsum(rng.exponential(1_000_000, 1_000_000)).astype(np.int64)
    b = np.sort(a + rng.normal(160, 40, a.size).astype(np.int64))
    expected = histogram(a, b, None).counts
    forms = {"NumPy": numpy_histogram}
    try:
        forms["Numba"], forms[f"Numba, {os.cpu_count()} cores"] = numba_histograms()
    except ImportError:
        print("Numba is not installed", file=sys.stderr)
    for name, form in forms.items():
        np.testing.assert_array_equal(form(a, b), expected, name)
    works = [lambda form=form: best(lambda: form(a, b)) for form in forms.values()]
    alone, all_cores, *others = in_turns(
        lambda: best(lambda: histogram(a, b, 1)), lambda: best(lambda: histogram(a, b, None)), *works
    )
    for name, theirs in zip(forms, others, strict=True):
        row("`xcorr_histogram`, a million events, `threads=1`", alone, name, theirs)
    row("the same on all cores", all_cores, name, theirs)


def import_times() -> None:
    def started(statement):
        begin = time.perf_counter()
        subprocess.run([sys.executable, "-c", statement], check=True)
        return time.perf_counter() - begin

    pairs = [(started("pass"), started("import numpy"), started("import orvo_timing")) for _ in range(11)]
    python, numpy, package = (min(times) for times in zip(*pairs, strict=True))
    median = statistics.median(times[2] - times[0] for times in pairs)
    print(f"| import | {(package - python) * 1e3:.0f} ms, median {median * 1e3:.0f} ms | NumPy alone | "
          f"{(numpy - python) * 1e3:.0f} ms | |")


def main() -> None:
    print("| | package | beside | takes | ratio |\n|---|---|---|---|---|")
    if "numpy" not in sys.argv:
        with tempfile.TemporaryDirectory() as directory:
            compare_with_cpp(Path(directory))
    if "cpp" not in sys.argv:
        compare_with_numpy()
        import_times()


if __name__ == "__main__":
    main()
