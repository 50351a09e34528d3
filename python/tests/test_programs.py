"""The package beside the programs, which are looked for in ORVO_TIMING_PROGRAMS and in PATH."""

import csv
import json
import os
import shutil
import subprocess

import numpy as np
import pytest

import orvo_timing
import plain


def program(name):
    directory = os.environ.get("ORVO_TIMING_PROGRAMS")
    found = (shutil.which(name, path=directory) if directory else None) or shutil.which(name)
    if found is None:
        pytest.skip(f"{name} is not there")
    return found


@pytest.fixture
def simulator():
    return program("vq_simulate_stream_file")


@pytest.mark.parametrize("encoding", ["raw64", "delta32", "packed_delta"])
@pytest.mark.parametrize("offset", [640, -300])
def test_counts_and_figures_are_those_of_the_verification_tool(tmp_path, simulator, encoding, offset):
    path = tmp_path / "run.tagcap"
    orvo_timing.simulate(path, encoding=encoding, tags=50_000, pair_rate=10_000, delay=640, seed=7)
    arguments = [path, "0", "1", "--range=2000", "--bin=7", f"--offset={offset}", f"--out-prefix={tmp_path}/report"]
    verify = program("vq_verify_stream_file_xcorr")
    subprocess.run([verify, *map(str, arguments)], cwd=tmp_path, check=True, capture_output=True)
    with (tmp_path / "report.csv").open() as file:
        rows = [[int(value) for value in row] for row in list(csv.reader(file))[1:]]
    report = json.loads((tmp_path / "report.json").read_text())

    times = orvo_timing.open(path).times()
    histogram = orvo_timing.xcorr_histogram(times[0], times[1], 2000, 7, offset)
    np.testing.assert_array_equal(np.stack([histogram.bin_center_ps, histogram.counts], axis=1), np.array(rows)[:, :2])
    text = json.dumps(report)
    assert f'"peak_count": {histogram.peak.count}' in text and f'"peak_ps": {histogram.peak.center_ps}' in text


def test_a_simulation_tells_what_it_made(tmp_path, simulator):
    path = tmp_path / "run.tagcap"
    answer = orvo_timing.simulate(path, tags=20_000, channels=[0, 2], pair_channels=(0, 2), pair_rate=10_000, delay=320)
    times = orvo_timing.open(path).times()
    assert answer["tags"] == 20_000 == sum(map(len, times))
    assert [answer[f"ch{channel}"] for channel in range(4)] == [len(channel) for channel in times]
    assert answer["offset_ps"] == 320
    counts = orvo_timing.xcorr_histogram(times[0], times[2], answer["range_ps"], 8, 320).counts
    assert counts.sum() == answer["coincidences"]


def test_options_that_the_program_refuses_are_value_errors(tmp_path, simulator):
    for options in ({"colour": "red"}, {"tags": -1}, {"encoding": "zip"}):
        with pytest.raises(ValueError, match=next(iter(options))):
            orvo_timing.simulate(tmp_path / "run.tagcap", **options)
    with pytest.raises(TypeError, match="rate"):
        orvo_timing.simulate(tmp_path / "run.tagcap", rate=object())
    with pytest.raises(TypeError, match="path"):
        orvo_timing.simulate(5)
    with pytest.raises(orvo_timing.Error):
        orvo_timing.simulate(tmp_path / "none" / "run.tagcap")


def test_facts_are_those_of_the_capture(tmp_path):
    program("vq_inspect_stream_file")
    path = plain.write_example(tmp_path / "-example.tagcap")
    facts = orvo_timing.inspect(path)
    assert facts["tags"] == 2000 and facts["verdict"] in {"healthy", "suspect", "broken"}
    assert facts["header"]["stream_format"] == "raw64"
    accounting = orvo_timing.open(path).accounting
    classes = {entry["class"]: entry["bytes"] for entry in facts["payload"]["classes"] if entry["bytes"]}
    assert classes == accounting["classes"]
    assert [channel["tags"] for channel in facts["channels"]] == accounting["tags"]


def test_files_that_cannot_be_inspected_are_errors(tmp_path, monkeypatch):
    program("vq_inspect_stream_file")
    with pytest.raises(FileNotFoundError, match="none.tagcap"):
        orvo_timing.inspect(tmp_path / "none.tagcap")
    (tmp_path / "-bad").write_bytes(b"no capture at all")
    monkeypatch.chdir(tmp_path)
    with pytest.raises(orvo_timing.Error, match="bad"):
        orvo_timing.inspect("-bad")


def test_a_converted_capture_holds_the_same_tags(tmp_path):
    program("vq_convert_stream_file")
    path = plain.write_example(tmp_path / "example.tagcap")
    tags = orvo_timing.open(path).tags()
    for encoding in ("delta32", "packed_delta"):
        target = tmp_path / f"{encoding}.tagcap"
        answer = orvo_timing.convert(path, target, encoding=encoding)
        assert answer["tags"] == 2000 and answer["ch0"] == answer["ch1"] == 1000
        np.testing.assert_array_equal(orvo_timing.open(target).tags(), tags)
    orvo_timing.convert([path], tmp_path / "moved.tagcap", shift=["0=1ns", "1=2ns"], tags=10)
    moved = orvo_timing.open(tmp_path / "moved.tagcap").times()
    np.testing.assert_array_equal(moved[0], np.arange(5) * 10_000 + 1000)
    np.testing.assert_array_equal(moved[1], np.arange(5) * 10_000 + 2160)


def test_conversions_that_cannot_be_done_are_errors(tmp_path):
    program("vq_convert_stream_file")
    path = plain.write_example(tmp_path / "example.tagcap")
    with pytest.raises(FileExistsError, match="target"):
        orvo_timing.convert(path, path)
    with pytest.raises(FileNotFoundError, match="none.tagcap"):
        orvo_timing.convert([path, tmp_path / "none.tagcap"], tmp_path / "out.tagcap")
    with pytest.raises(ValueError, match="colour"):
        orvo_timing.convert(path, tmp_path / "out.tagcap", colour="red")
    with pytest.raises(TypeError, match="sources"):
        orvo_timing.convert([5], tmp_path / "out.tagcap")
    (tmp_path / "bad.tagcap").write_bytes(b"no capture at all")
    with pytest.raises(orvo_timing.Error):
        orvo_timing.convert(tmp_path / "bad.tagcap", tmp_path / "out.tagcap")
    assert not (tmp_path / "out.tagcap").exists()


def test_a_program_that_is_not_installed_is_named(tmp_path, monkeypatch):
    monkeypatch.setenv("PATH", str(tmp_path))
    monkeypatch.delenv("ORVO_TIMING_PROGRAMS", raising=False)
    with pytest.raises(FileNotFoundError, match="vq_simulate_stream_file is not installed"):
        orvo_timing.simulate(tmp_path / "run.tagcap")
