import copy
import gc
import pickle
import subprocess
import sys

import numpy as np
import pytest

import orvo_timing
import plain


@pytest.mark.parametrize("seed", range(60))
def test_counts_are_those_of_all_pairs_one_by_one(seed):
    rng = np.random.default_rng(seed)
    spread = int(10 ** rng.uniform(1, 6))
    a = rng.integers(-spread, spread, rng.integers(0, 400))
    b = rng.integers(-spread, spread, rng.integers(0, 400))
    if seed % 2:
        a, b = np.sort(a), np.sort(b)
    range_ps, bin_ps = int(rng.integers(1, 3000)), int(rng.integers(1, 200))
    offset_ps = int(rng.integers(-500, 500))
    histogram = orvo_timing.xcorr_histogram(a, b, range_ps, bin_ps, offset_ps)
    centers, counts = plain.histogram(a, b, range_ps, bin_ps, offset_ps)
    np.testing.assert_array_equal(histogram.bin_center_ps, centers)
    np.testing.assert_array_equal(histogram.counts, counts)


def test_counts_of_many_events_are_those_of_their_parts():
    """Long lists are counted in pieces, between which signals are looked for."""
    rng = np.random.default_rng(5)
    a = np.cumsum(rng.integers(1, 2000, 400_000))
    b = np.sort(a + rng.integers(-300, 900, a.size))
    whole = orvo_timing.xcorr_histogram(a, b, 1000, 7, 300).counts
    near = np.searchsorted(b, a - 700), np.searchsorted(b, a + 1300, side="right")
    assert whole.sum() >= (near[1] - near[0]).sum() * 0.99
    parts = sum(orvo_timing.xcorr_histogram(part, b, 1000, 7, 300).counts for part in np.array_split(a, 997))
    np.testing.assert_array_equal(whole, parts)
    for threads in (1, 2, 3, 8, 1024):
        np.testing.assert_array_equal(whole, orvo_timing.xcorr_histogram(a, b, 1000, 7, 300, threads=threads).counts)


def test_both_ends_of_the_range_count_and_halves_go_outwards():
    histogram = orvo_timing.xcorr_histogram([0], [-20, -5, 5, 20], 20, 10)
    np.testing.assert_array_equal(histogram.bin_center_ps, [-20, -10, 0, 10, 20])
    np.testing.assert_array_equal(histogram.counts, [1, 1, 0, 1, 1])


def test_figures_are_those_of_plain_numpy(rng):
    a = np.cumsum(rng.integers(1, 10_000, 3000))
    histogram = orvo_timing.xcorr_histogram(a, a + rng.normal(70, 30, a.size).astype(int), 500, 11)
    centers, counts = histogram.bin_center_ps, histogram.counts
    mean = np.average(centers, weights=counts)
    sigma = np.sqrt(np.average((centers - mean) ** 2, weights=counts))
    highest = int(np.argmax(counts))
    assert histogram.peak == (counts[highest], centers[highest])
    assert histogram.moments.total == counts.sum()
    assert histogram.moments.mean_ps == pytest.approx(mean, rel=1e-12)
    assert histogram.rms_ps == histogram.moments.sigma_ps == pytest.approx(sigma, rel=1e-12)
    assert histogram.moments.fwhm_ps == pytest.approx(2.354820045 * sigma, rel=1e-9)


@pytest.mark.parametrize("dtype", ["i1", "i2", "i4", "i8", "u1", "u2", "u4", "u8", ">i8", ">u2", "<i4"])
def test_any_whole_numbers_will_do(dtype):
    a, b = np.array([0, 100], dtype), np.array([7, 107, 120], dtype)
    np.testing.assert_array_equal(orvo_timing.xcorr_histogram(a, b, 30, 1).counts, plain.histogram(a, b, 30, 1)[1])


def variants(times):
    strided = np.zeros(2 * len(times), np.int64)
    strided[::2] = times
    frozen = times.copy()
    frozen.flags.writeable = False
    unaligned = np.zeros(8 * len(times) + 1, "u1")[1:].view(np.int64)
    unaligned[:] = times
    return {
        "strided": strided[::2],
        "backwards": times[::-1].copy()[::-1],
        "read-only": frozen,
        "unaligned": unaligned,
        "column": np.stack([times, times], axis=1)[:, 0],
        "list": times.tolist(),
        "tuple": tuple(times.tolist()),
        "memoryview": memoryview(times),
        "memmap-like": np.frombuffer(times.tobytes(), np.int64),
    }


@pytest.mark.parametrize("kind", variants(np.arange(3)))
def test_arrays_of_any_layout_give_the_same_counts_and_stay_as_they_are(kind):
    times = np.array([5, 300, 10, 4000, 200])
    given = variants(times)[kind]
    counts = orvo_timing.xcorr_histogram(given, times, 1000, 10).counts
    np.testing.assert_array_equal(counts, plain.histogram(times, times, 1000, 10)[1])
    np.testing.assert_array_equal(np.asarray(given), times)


@pytest.mark.parametrize("empty", [[], (), np.zeros(0, np.int64), np.zeros(0, "u1")], ids=str)
def test_empty_lists_give_no_counts(empty):
    assert orvo_timing.xcorr_histogram(empty, [1, 2], 10, 1).counts.sum() == 0
    assert orvo_timing.xcorr_histogram([1, 2], empty, 10, 1).counts.sum() == 0
    assert orvo_timing.estimate_offset_ps(empty, [1]) == orvo_timing.estimate_offset_ps([1], empty) == 0
    histogram = orvo_timing.xcorr_histogram(empty, empty, 10, 1)
    assert histogram.peak.count == 0 and histogram.rms_ps == 0
    assert np.isnan(histogram.g2).all()
    assert histogram.analysis.verdict == "none"


@pytest.mark.parametrize("name", ["a", "b"])
@pytest.mark.parametrize(
    ("wrong", "kind"),
    [
        (5, ValueError),
        (np.array(5), ValueError),
        (np.zeros((2, 2), int), ValueError),
        (np.array([2**64 - 1], "u8"), ValueError),
        ([0.5], TypeError),
        (np.zeros(3), TypeError),
        (np.zeros(0), TypeError),
        ([True], TypeError),
        (["x"], TypeError),
        (None, TypeError),
        (np.array([1, None]), TypeError),
        (np.zeros(2, orvo_timing.TAG_DTYPE), TypeError),
        (np.zeros(2, "m8[ps]"), TypeError),
        ([2**70], TypeError),
    ],
    ids=str,
)
def test_wrong_lists_are_named(name, wrong, kind):
    lists = {"a": [1], "b": [1], name: wrong}
    with pytest.raises(kind, match=f"^{name}: "):
        orvo_timing.xcorr_histogram(lists["a"], lists["b"], 10, 1)
    with pytest.raises(kind, match=f"^{name}: "):
        orvo_timing.estimate_offset_ps(lists["a"], lists["b"])


@pytest.mark.parametrize(
    ("arguments", "name", "kind"),
    [
        ((0, 1), "range_ps", ValueError),
        ((-5, 1), "range_ps", ValueError),
        ((10, 0), "bin_ps", ValueError),
        ((2**63, 1), "range_ps", ValueError),
        ((10, 1, -(2**63) - 1), "offset_ps", ValueError),
        ((10.5, 1), "range_ps", TypeError),
        ((10, "1"), "bin_ps", TypeError),
        ((10, 1, None), "offset_ps", TypeError),
        ((2**62, 1), "range_ps", MemoryError),
    ],
)
def test_wrong_windows_are_named(arguments, name, kind):
    with pytest.raises(kind, match=name):
        orvo_timing.xcorr_histogram([1], [1], *arguments)
    with pytest.raises(kind, match=name):
        orvo_timing.XcorrStream([(0, 1)], *arguments)


def test_wrong_numbers_of_threads_are_named():
    for wrong, kind in ((0, ValueError), (-1, ValueError), (1025, ValueError), (1.5, TypeError)):
        with pytest.raises(kind, match="threads"):
            orvo_timing.xcorr_histogram([1], [1], 10, 1, threads=wrong)


@pytest.mark.parametrize("threads", [1, 3])
def test_ctrl_c_ends_a_long_count_within_a_tenth_of_a_second(threads):
    script = (
        "import numpy as np, os, signal, threading, time, orvo_timing\n"
        "signal.signal(signal.SIGINT, signal.default_int_handler)\n"  # ignored in jobs in the background
        "a = np.arange(400_000)\n"
        "def interrupt():\n"
        "    global sent\n"
        "    time.sleep(0.5); sent = time.monotonic(); os.kill(os.getpid(), signal.SIGINT)\n"
        "threading.Thread(target=interrupt, daemon=True).start()\n"
        "try:\n"
        f"    orvo_timing.xcorr_histogram(a, a, 50_000, 1000, threads={threads})\n"
        "except KeyboardInterrupt:\n"
        "    print(time.monotonic() - sent)\n"
    )
    delays = []
    for _ in range(10):  # a machine that does something else is late by itself
        answer = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True, timeout=120)
        delays.append(float(answer.stdout))
        if delays[-1] < 0.1:
            return
    pytest.fail(f"interrupted after {delays} s")


def test_times_and_windows_at_the_ends_of_64_bits_are_exact():
    low, high = -(2**63), 2**63 - 1
    histogram = orvo_timing.xcorr_histogram([low, high], [low, high], high, 2**61, 0)
    assert histogram.counts.sum() == 2  # each with itself; the others are 2^64 - 1 apart
    assert orvo_timing.xcorr_histogram([low], [high], 5, 1, high).counts.sum() == 0


def test_estimate_finds_a_short_delay(rng):
    a = np.cumsum(rng.integers(50_000, 150_000, 20_000))
    assert abs(orvo_timing.estimate_offset_ps(a, a + rng.normal(640, 40, a.size).astype(int)) - 640) <= 2
    assert orvo_timing.estimate_offset_ps(a[::-1], rng.permutation(a + 640)) == 640


def nearest_distances(a, b):
    """Of two that are equally near the later."""
    return sorted(min((b - event).tolist(), key=lambda distance: (abs(distance), -distance)) for event in a)


def test_estimate_is_the_upper_median_of_nearest_distances(rng):
    for _ in range(20):
        a, b = (np.sort(rng.choice(10**6, rng.integers(1, 50), replace=False)) for _ in range(2))
        distances = nearest_distances(a, b)
        assert orvo_timing.estimate_offset_ps(a, b) == distances[len(distances) // 2]


def test_a_stream_counts_as_the_lists_do(rng):
    a, b = np.sort(rng.integers(0, 10**9, 4000)), np.sort(rng.integers(0, 10**9, 5000))
    tags = orvo_timing.merge_times([a, b])
    stream = orvo_timing.XcorrStream([(0, 1), (1, 0), (0, 0)], 200_000, 1000, 300)
    for piece in np.array_split(tags, 13):
        stream.take(piece)
    stream.finish()
    for pair, lists in enumerate([(a, b), (b, a), (a, a)]):
        np.testing.assert_array_equal(
            stream.histogram(pair).counts, orvo_timing.xcorr_histogram(*lists, 200_000, 1000, 300).counts
        )
    assert stream.late_tags == 0 and stream.waiting == 0 and stream.tags(1) == 5000


def test_a_stream_takes_captures_and_tags_of_any_layout(example):
    capture = orvo_timing.open(example)
    stream = orvo_timing.XcorrStream([(0, 1)], 500, 8, 160)
    stream.take_capture(capture)
    stream.finish()
    assert stream.histogram().peak == (1000, 0)
    packed = capture.tags().astype([("channel", "i4"), ("time_ps", ">i8")])
    for tags in (packed, capture.tags()[:], np.repeat(capture.tags(), 2)[::2]):
        other = orvo_timing.XcorrStream([(0, 1)], 500, 8, 160)
        other.take(tags)
        other.finish()
        np.testing.assert_array_equal(other.histogram().counts, stream.histogram().counts)


def test_late_tags_are_left_out_and_counted():
    stream = orvo_timing.XcorrStream([(0, 1)], 10, 1)
    stream.take(orvo_timing.merge_times([[1000], [1000]]))
    stream.finish()
    stream.take(orvo_timing.merge_times([[1005], [1005]]))
    stream.finish()
    assert stream.late_tags == 2
    assert stream.histogram().counts.sum() == 1


def test_wrong_tags_and_pairs_are_named():
    stream = orvo_timing.XcorrStream([(0, 1)], 10, 1)
    bad = np.zeros(3, [("channel", "i8"), ("time_ps", "i8")])
    bad["channel"] = [0, -1, 2]
    for wrong, kind in [
        (bad, ValueError),
        ([1, 2], TypeError),
        (np.zeros((2, 2), orvo_timing.TAG_DTYPE), ValueError),
        (np.zeros(2, [("channel", "f4"), ("time_ps", "i8")]), TypeError),
        (np.zeros(2, [("channel", "u1")]), TypeError),
        (None, TypeError),
    ]:
        with pytest.raises(kind, match="tags"):
            stream.take(wrong)
    for pairs in ([], [(0, 4)], [(-1, 0)], [0], [(0, 1, 2)]):
        with pytest.raises(ValueError, match="pairs"):
            orvo_timing.XcorrStream(pairs, 10, 1)
    with pytest.raises(ValueError, match="pair"):
        stream.histogram(1)
    with pytest.raises(TypeError, match="capture"):
        stream.take_capture("path")


def test_expectation_is_rate_times_rate_times_time():
    rng = np.random.default_rng(3)
    a, b = (np.sort(rng.integers(0, 10**12, 200_000)) for _ in range(2))
    histogram = orvo_timing.xcorr_histogram(a, b, 10_100, 101)
    np.testing.assert_allclose(histogram.expected[1:-1], 200_000**2 / 1e12 * 101, rtol=1e-3)
    assert abs(histogram.g2[1:-1].mean() - 1) < 0.15  # 800 pairs in all
    np.testing.assert_allclose(histogram.g2[1:-1], histogram.counts[1:-1] / histogram.expected[1:-1])
    assert histogram.analysis.verdict == "none"


def test_analysis_of_lists_streams_and_sums_find_the_same_peak():
    rng = np.random.default_rng(4)
    a = np.sort(rng.integers(0, 10**12, 100_000))
    b = np.sort(np.concatenate([a[::20] + rng.normal(640, 40, a[::20].size).astype(int), rng.integers(0, 10**12, 50_000)]))
    histogram = orvo_timing.xcorr_histogram(a, b, 2000, 10)
    stream = orvo_timing.XcorrStream([(0, 1)], 2000, 10)
    stream.take(orvo_timing.merge_times([a, b]))
    stream.finish()
    for found, pairs in ((histogram, 5000), (stream.histogram(), 5000), (histogram + stream.histogram(), 10_000)):
        analysis = found.analysis
        assert analysis.verdict == "peak" and analysis.significant and not analysis.cut
        peak = analysis.peak
        assert abs(peak.place_ps.value - 640) < 5 * peak.place_ps.error
        assert abs(peak.fwhm_ps.value - 2.3548 * 40) < 5 * peak.fwhm_ps.error
        assert abs(peak.pairs.value - pairs) < 5 * peak.pairs.error
    assert histogram.analysis.drifting is False and histogram.analysis.too_short is False
    assert abs(histogram.analysis.share_a.value - 0.05) < 0.005
    assert stream.histogram().analysis.drifting is None


def test_histograms_of_different_windows_do_not_add():
    one, other = (orvo_timing.xcorr_histogram([1], [1], 10, bin_ps) for bin_ps in (1, 2))
    with pytest.raises(ValueError, match="other"):
        one + other
    with pytest.raises(TypeError):
        one + 1


def test_a_histogram_travels_without_its_lists():
    a = np.arange(100_000) * 1000
    histogram = orvo_timing.xcorr_histogram(a, a, 100, 10)
    sent = pickle.dumps(histogram)
    assert len(sent) < 10_000
    received = pickle.loads(sent)
    np.testing.assert_array_equal(received.counts, histogram.counts)
    assert received.analysis == histogram.analysis == copy.deepcopy(histogram).analysis


def test_lists_are_let_go_and_counts_outlive_the_histogram():
    a = np.arange(1000) * 1000
    before = sys.getrefcount(a)
    histogram = orvo_timing.xcorr_histogram(a, a, 100, 10)
    assert sys.getrefcount(a) == before + 2
    histogram.analysis  # noqa: B018
    assert sys.getrefcount(a) == before
    counts = histogram.counts
    del histogram
    gc.collect()
    assert counts.sum() == 1000


def test_failed_calls_leave_no_references():
    a = np.arange(10)
    before = sys.getrefcount(a)
    for _ in range(100):
        with pytest.raises(ValueError):
            orvo_timing.xcorr_histogram(a, a.reshape(2, 5), 10, 1)
    assert sys.getrefcount(a) == before


def test_plot_draws_the_counts():
    pytest.importorskip("matplotlib").use("Agg")
    from matplotlib import pyplot

    histogram = orvo_timing.xcorr_histogram([0, 1000], [160, 1170], 500, 10, 160)
    axes = histogram.plot()
    assert "160" in axes.get_xlabel()
    own = pyplot.subplots()[1]
    assert histogram.plot(own) is own
    np.testing.assert_array_equal(own.patches[0].get_data().values, histogram.counts)
    pyplot.close("all")


def test_a_dataframe_holds_the_bins():
    pytest.importorskip("pandas")
    frame = orvo_timing.xcorr_histogram([0], [5], 10, 5).to_dataframe()
    assert list(frame.columns) == ["bin_center_ps", "counts"]
    assert frame["counts"].tolist() == [0, 0, 0, 1, 0]


def test_neither_matplotlib_nor_pandas_nor_tqdm_nor_dask_is_needed():
    script = (
        "import sys\n"
        "for name in ('matplotlib', 'pandas', 'tqdm', 'dask', 'distributed'): sys.modules[name] = None\n"
        "import orvo_timing\n"
        "print(orvo_timing.xcorr_histogram([0], [5], 10, 5).analysis.verdict)\n"
    )
    answer = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True, check=True).stdout
    assert answer == "none\n"
