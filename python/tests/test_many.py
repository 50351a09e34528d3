import os
import signal
import threading
import time

import numpy as np
import pytest

import orvo_timing
import plain

dask = pytest.importorskip("dask")
many = pytest.importorskip("orvo_timing.many")

WINDOW = {"range_ps": 500, "bin_ps": 8, "offset_ps": 160}


@pytest.fixture
def captures(tmp_path):
    """Of capture i the first i + 1 of 10 events on channel 0 have a partner on channel 1."""
    paths = []
    for index in range(6):
        events = np.arange(10) * 1_000_000
        partners = events[: index + 1] + 160
        tags = orvo_timing.merge_times([events, partners])
        paths.append(plain.write_raw64(tmp_path / f"run_{index}.tagcap", tags["channel"], tags["time_ps"]))
    return paths


@pytest.mark.parametrize("scheduler", [None, "threads", "synchronous", "processes"])
def test_each_capture_is_a_row_and_histograms_add_up(captures, scheduler):
    results = many.correlate(captures, 0, 1, **WINDOW, merge=True, scheduler=scheduler)
    assert [row["path"] for row in results.rows] == [str(path) for path in captures]
    assert [row["coincidences"] for row in results.rows] == [1, 2, 3, 4, 5, 6]
    assert [(row["tags_a"], row["tags_b"]) for row in results.rows] == [(10, n) for n in range(1, 7)]
    assert results.histogram.peak == (21, 0) and results.histogram.counts.sum() == 21
    assert not results.failures


def test_rows_hold_the_figures_of_a_capture_by_itself(captures):
    row = many.correlate(captures[3:4], 0, 1, **WINDOW).rows[0]
    times = orvo_timing.open(captures[3]).times()
    histogram = orvo_timing.xcorr_histogram(times[0], times[1], *WINDOW.values())
    assert (row["peak_count"], row["peak_ps"]) == histogram.peak
    assert row["mean_ps"] == histogram.moments.mean_ps and row["rms_ps"] == histogram.rms_ps
    assert many.correlate(captures[3:4], 0, 1, **WINDOW).histogram is None


def test_captures_that_fail_are_rows_of_their_own(captures, tmp_path):
    bad = tmp_path / "bad.tagcap"
    bad.write_bytes(b"no capture at all")
    paths = [captures[0], tmp_path / "none.tagcap", bad, captures[1]]
    results = many.correlate(paths, 0, 1, **WINDOW, merge=True)
    assert [row["coincidences"] for row in results.rows] == [1, 2]
    assert [row["path"] for row in results.failures] == [str(paths[1]), str(bad)]
    assert results.failures[0]["error"].startswith("FileNotFoundError")
    assert results.failures[1]["error"].startswith("Error: StreamFileReader: not an Orvo timing stream file")
    assert results.histogram.counts.sum() == 3
    assert "2 captures, 2 failures" in repr(results)


def test_each_capture_may_have_an_offset_of_its_own(tmp_path):
    paths = []
    for delay in (100, -250):
        events = np.arange(1000) * 1_000_000 + 1000
        tags = orvo_timing.merge_times([events, events + delay])
        paths.append(plain.write_raw64(tmp_path / f"{delay}.tagcap", tags["channel"], tags["time_ps"]))
    results = many.correlate(paths, 0, 1, 500, 8, "auto")
    assert [row["offset_ps"] for row in results.rows] == [100, -250]
    assert [row["coincidences"] for row in results.rows] == [1000, 1000]


def test_a_capture_in_disorder_is_counted_all_the_same(tmp_path, rng):
    times = rng.permutation(np.arange(200_000) * 40_000_000 % plain.DEVICE_PERIOD_PS // 2)
    channels = rng.integers(0, 2, times.size)
    path = plain.write_raw64(tmp_path / "disorder.tagcap", channels, times)
    lists = orvo_timing.open(path).times()
    expected = orvo_timing.xcorr_histogram(lists[0], lists[1], 10**9, 10**6)
    results = many.correlate([path], 0, 1, 10**9, 10**6, merge=True)
    np.testing.assert_array_equal(results.histogram.counts, expected.counts)


def test_a_graph_can_be_part_of_another(captures):
    delayed = many.correlate(captures, 0, 1, **WINDOW, merge=True, compute=False)
    total = dask.delayed(lambda results: int(results.histogram.counts.sum()))(delayed)
    assert total.compute(scheduler="threads") == 21


def test_wrong_arguments_are_named(captures):
    for arguments, name, kind in [
        ({"paths": str(captures[0])}, "paths", TypeError),
        ({"paths": [5]}, "", TypeError),
        ({"paths": [b"x"]}, "paths", TypeError),
        ({"a": 4}, "a", ValueError),
        ({"b": -1}, "b", ValueError),
        ({"range_ps": 0}, "range_ps", ValueError),
        ({"offset_ps": "guess"}, "offset_ps", ValueError),
        ({"offset_ps": "auto", "merge": True}, "merge", ValueError),
    ]:
        with pytest.raises(kind, match=name):
            many.correlate(**{"paths": captures, "a": 0, "b": 1, **WINDOW, **arguments})


def test_no_captures_are_no_rows():
    assert many.correlate([], 0, 1, merge=True) == many.Results([], [], None)


def test_progress_is_shown(captures, capsys):
    many.correlate(captures, 0, 1, **WINDOW, progress=True)
    assert "100%" in capsys.readouterr().out


def test_a_table_holds_rows_and_failures(captures):
    pytest.importorskip("pandas")
    table = many.correlate([*captures, "none"], 0, 1, **WINDOW).to_dataframe()
    assert table["coincidences"][:6].tolist() == [1, 2, 3, 4, 5, 6]
    assert table["error"][6].startswith("FileNotFoundError")


def test_facts_come_as_rows(captures):
    results = many.inspect([*captures, "none"])
    assert len(results.failures) in (1, 7)  # 7: the program is not installed
    if len(results.failures) == 7:
        pytest.skip("vq_inspect_stream_file is not there")
    assert [row["tags"] for row in results.rows] == [11, 12, 13, 14, 15, 16]


@pytest.fixture
def cluster():
    distributed = pytest.importorskip("distributed")
    with distributed.LocalCluster(
        n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None
    ) as cluster, distributed.Client(cluster) as client:
        yield cluster, client


def tasks_done(dask_scheduler=None):
    return sum(task.state == "memory" for task in dask_scheduler.tasks.values())


def test_nothing_is_lost_or_counted_twice_when_a_worker_is_killed(tmp_path, cluster):
    local, client = cluster
    count, copies = 200_000, 150
    files = []
    for index in range(5):
        events = np.arange(count) * 1_000_000
        tags = orvo_timing.merge_times([events, events[: count - index] + 160])
        files.append(plain.write_raw64(tmp_path / f"{index}.tagcap", tags["channel"], tags["time_ps"]))
    paths = []
    for index in range(copies):
        paths.append(tmp_path / f"copy_{index}.tagcap")
        paths[-1].symlink_to(files[index % 5])
    done_then = []

    def kill_one():
        while (done := client.run_on_scheduler(tasks_done)) < 10:
            time.sleep(0.01)
        os.kill(local.workers[0].pid, signal.SIGKILL)
        done_then.append(done)

    killer = threading.Thread(target=kill_one)
    killer.start()
    results = many.correlate(paths, 0, 1, **WINDOW, merge=True, scheduler=client)
    killer.join()
    assert 10 <= done_then[0] < copies  # in the middle
    assert not results.failures
    assert [row["path"] for row in results.rows] == [str(path) for path in paths]
    assert [row["coincidences"] for row in results.rows] == [count - index % 5 for index in range(copies)]
    assert results.histogram.counts.sum() == sum(count - index % 5 for index in range(copies))


def test_the_active_cluster_is_used_and_shows_progress(captures, cluster, capsys):
    pytest.importorskip("tqdm")
    results = many.correlate([*captures, "none"], 0, 1, **WINDOW, merge=True, progress=True)
    assert results.histogram.peak == (21, 0) and len(results.failures) == 1
    assert "100%" in capsys.readouterr().err




def test_a_capture_that_kills_its_workers_is_a_failure_of_that_capture_alone(captures, cluster):
    client = cluster[1]
    tasks = [dask.delayed(many._attempt)(str(captures[0]), many._correlated, ((0, 1), (500, 8, 160), False, False))]
    tasks.append(dask.delayed(os._exit)(1))
    outcomes = many._on_cluster(client, tasks, [str(captures[0]), "deadly"], False)
    assert outcomes[0][0]["coincidences"] == 1
    assert outcomes[1][0]["path"] == "deadly" and outcomes[1][0]["error"].startswith("KilledWorker")
