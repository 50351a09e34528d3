import os

import numpy as np
import pytest

import orvo_timing


def header(encoding, **more):
    return {"stream_format": encoding, "channel_mask": 3, "mode": "external", **more}


def tags_on_grid(rng, grid_ps=8, count=3000):
    times = [np.sort(rng.integers(1, 10**8, count)) * grid_ps for _ in range(2)]
    return orvo_timing.merge_times(times)


@pytest.mark.parametrize(
    "fields",
    [
        header("raw64"),
        header("delta32"),
        header("packed_delta"),
        header("packed_delta", delta_bits=24, quantum_ps=1),
        header("packed_delta", delta_bits=12, quantum_ps=8),
    ],
    ids=str,
)
def test_what_was_written_is_read(tmp_path, rng, fields):
    tags = tags_on_grid(rng)
    path = tmp_path / "written.tagcap"
    written = orvo_timing.write(path, tags, fields)
    assert written.tags == len(tags)
    capture = orvo_timing.open(path)
    np.testing.assert_array_equal(capture.tags()["channel"], tags["channel"])
    np.testing.assert_array_equal(capture.tags()["time_ps"], tags["time_ps"] + written.axis_ps[0])
    assert capture.header.stream_format == fields["stream_format"]
    assert capture.header.created_utc.endswith("Z")
    assert capture.accounting["lost"] == {"count": 0, "size": 0}
    assert os.listdir(tmp_path) == ["written.tagcap"]


def test_the_bytes_of_raw64_are_those_of_the_format(tmp_path):
    path = tmp_path / "two.tagcap"
    orvo_timing.write(path, orvo_timing.merge_times([[10_000], [10_160]]), header("raw64"))
    assert path.read_bytes()[-16:] == bytes.fromhex("0000000000002710 20000000000027B0")


def test_a_tag_that_the_encoding_cannot_carry_is_named_and_no_file_is_left(tmp_path):
    path = tmp_path / "refused.tagcap"
    path.write_bytes(b"what was there")
    tags = orvo_timing.merge_times([np.arange(1, 2000) * 8 + 1])
    with pytest.raises(orvo_timing.Error, match=r"channel 0 at 9 ps") as error:
        orvo_timing.write(path, tags, header("packed_delta"))
    assert error.value.code == orvo_timing.Error.INVALID_ARGUMENT
    assert path.read_bytes() == b"what was there"
    assert os.listdir(tmp_path) == ["refused.tagcap"]


def test_rounding_moves_times_to_the_nearest(tmp_path):
    path = tmp_path / "rounded.tagcap"
    tags = orvo_timing.merge_times([np.arange(1, 2000) * 800 + 3, np.arange(1, 2000) * 800 + 167])
    orvo_timing.write(path, tags, header("packed_delta"), round=True)
    np.testing.assert_array_equal(orvo_timing.open(path).times(0), np.arange(1, 2000) * 800)
    np.testing.assert_array_equal(orvo_timing.open(path).times(1), np.arange(1, 2000) * 800 + 168)


def test_wrong_arguments_are_named(tmp_path):
    path, tags = tmp_path / "x.tagcap", orvo_timing.merge_times([[1]])
    for arguments, name, kind in [
        ({"tags": [1, 2]}, "tags", TypeError),
        ({"header": None}, "header", TypeError),
        ({"header": {"delta_bits": -1}}, "delta_bits", ValueError),
        ({"anchor_every": 0}, "anchor_every", ValueError),
        ({"start_bit": 8}, "start_bit", ValueError),
        ({"start_bit": 0.5}, "start_bit", TypeError),
    ]:
        with pytest.raises(kind, match=name):
            orvo_timing.write(**{"path": path, "tags": tags, "header": header("raw64"), **arguments})
    with pytest.raises(FileNotFoundError):
        orvo_timing.write(tmp_path / "none" / "x.tagcap", tags, header("raw64"))
    assert os.listdir(tmp_path) == []


def test_no_delta_bits_are_the_default(tmp_path, rng):
    path, tags = tmp_path / "x.tagcap", tags_on_grid(rng)
    orvo_timing.write(path, tags, header("packed_delta", delta_bits=0))
    np.testing.assert_array_equal(orvo_timing.open(path).tags(), tags)


@pytest.mark.parametrize("bits", [32, 255])
def test_headers_that_cannot_be_decoded_are_errors(tmp_path, rng, bits):
    with pytest.raises(orvo_timing.Error) as error:
        orvo_timing.write(tmp_path / "x.tagcap", tags_on_grid(rng), header("packed_delta", delta_bits=bits))
    assert error.value.code == orvo_timing.Error.INVALID_ARGUMENT


def test_merged_times_are_in_order_and_channels_break_ties():
    tags = orvo_timing.merge_times([[30, 10], [], [10]])
    np.testing.assert_array_equal(tags["time_ps"], [10, 10, 30])
    np.testing.assert_array_equal(tags["channel"], [0, 2, 0])
    assert len(orvo_timing.merge_times([])) == 0
    with pytest.raises(ValueError, match="times"):
        orvo_timing.merge_times([[1]] * 5)
    with pytest.raises(TypeError, match=r"times\[1\]"):
        orvo_timing.merge_times([[1], [0.5]])
