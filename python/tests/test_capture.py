import gc
import os
import subprocess
import sys
import threading
import weakref

import numpy as np
import pytest

import orvo_timing
import plain


def test_times_of_each_channel_are_those_that_were_recorded(example):
    times = orvo_timing.open(example).times()
    assert [len(channel) for channel in times] == [1000, 1000, 0, 0]
    np.testing.assert_array_equal(times[0], np.arange(1000) * 10_000)
    np.testing.assert_array_equal(times[1], np.arange(1000) * 10_000 + 160)
    assert all(channel.dtype == np.int64 for channel in times)


def test_times_of_one_channel_are_the_same_as_in_all(example):
    capture = orvo_timing.open(example)
    for channel, times in enumerate(capture.times()):
        np.testing.assert_array_equal(capture.times(channel), times)


def test_a_wrap_of_the_device_time_is_undone(tmp_path):
    ends = [plain.DEVICE_PERIOD_PS - 10, plain.DEVICE_PERIOD_PS + 20, 3 * plain.DEVICE_PERIOD_PS // 2]
    path = plain.write_raw64(tmp_path / "wrap.tagcap", [2, 2, 2], ends)
    np.testing.assert_array_equal(orvo_timing.open(path).times(2), ends)


def test_tags_come_in_stream_order_in_16_bytes_each(example):
    tags = orvo_timing.open(example).tags()
    assert tags.dtype == orvo_timing.TAG_DTYPE and tags.itemsize == 16
    assert tags.dtype["channel"] == np.uint8 and tags.dtype["time_ps"] == np.int64
    np.testing.assert_array_equal(tags["channel"], np.tile([0, 1], 1000))
    np.testing.assert_array_equal(tags["time_ps"][:4], [0, 160, 10_000, 10_160])


@pytest.mark.parametrize("most", [0, 1, 1999, 2000, 2001, np.int32(7)])
def test_no_more_tags_come_than_asked_for(example, most):
    capture = orvo_timing.open(example)
    np.testing.assert_array_equal(capture.tags(most), capture.tags()[: int(most)])


@pytest.mark.parametrize("size", [1, 7, 8, 4096, 1 << 20])
def test_chunks_together_are_all_tags(example, size):
    capture = orvo_timing.open(example)
    np.testing.assert_array_equal(np.concatenate(list(capture.chunks(size))), capture.tags())


def test_two_iterators_of_chunks_do_not_disturb_each_other(example):
    capture = orvo_timing.open(example)
    for left, right in zip(capture.chunks(64), capture.chunks(64), strict=True):
        np.testing.assert_array_equal(left, right)


def test_arrays_outlive_the_capture(example):
    capture = orvo_timing.open(example)
    times, tags, chunk = capture.times(), capture.tags(), next(capture.chunks())
    gone = weakref.ref(capture)
    capture.close()
    del capture
    gc.collect()
    assert gone() is None
    one = times[1]
    del times
    gc.collect()
    assert one.sum() == 10_000 * 499_500 + 160 * 1000
    assert tags["time_ps"].sum() == chunk["time_ps"].sum() == 20_000 * 499_500 + 160 * 1000


def test_arrays_own_memory_without_a_copy_and_may_be_written(example):
    capture = orvo_timing.open(example)
    for array in (capture.times(0), capture.times()[1], capture.tags()):
        assert type(array.base).__name__ == "PyCapsule"
        assert array.flags.writeable and array.flags.aligned and array.flags.c_contiguous
        array[0] = array[1]


def test_memory_of_dropped_arrays_is_given_back(tmp_path):
    count = 1 << 20
    path = plain.write_raw64(tmp_path / "long.tagcap", np.zeros(count, "u1"), np.arange(count) * 1000)

    def resident_bytes():
        with open("/proc/self/statm") as file:
            return int(file.read().split()[1]) * os.sysconf("SC_PAGESIZE")

    capture = orvo_timing.open(path)
    capture.times(0)
    before = resident_bytes()
    for _ in range(20):
        capture.times(0)
        capture.times()
        capture.tags()
    assert resident_bytes() - before < 100 * count  # 40 lists of 8 bytes a tag and 20 of 16 have been there


def test_chunks_take_constant_memory(tmp_path):
    count = 4 << 20
    path = plain.write_raw64(tmp_path / "long.tagcap", np.zeros(count, "u1"), np.arange(count) * 1000)
    script = (
        "import resource, sys, orvo_timing\n"
        "peak = lambda: resource.getrusage(resource.RUSAGE_SELF).ru_maxrss\n"
        "chunks = orvo_timing.open(sys.argv[1]).chunks()\n"
        "tags = len(next(chunks)); before = peak()\n"
        "tags += sum(map(len, chunks))\n"
        "print(tags, peak() - before)\n"
    )
    answer = subprocess.run([sys.executable, "-c", script, path], capture_output=True, text=True, check=True).stdout
    tags, more_kib = map(int, answer.split())
    assert tags == count
    assert more_kib < 24 * 1024  # a list of all tags takes 64 MiB


def test_header_is_attributes_items_and_text(example):
    capture = orvo_timing.open(example)
    assert capture.header_json == plain.RAW64_HEADER
    assert capture.header.stream_format == capture.header["stream_format"] == "raw64"
    assert dict(capture.header)["channel_mask"] == 15
    assert capture.header == orvo_timing.Header(stream_format="raw64")


def test_a_header_without_utf_8_can_be_read(tmp_path):
    header = b'{"stream_format":"raw64","application":"\xff\xfe"}'
    path = tmp_path / "latin.tagcap"
    path.write_bytes(b"TAGCAP1\n" + len(header).to_bytes(4, "little") + header + plain.raw64_payload([0], [5]))
    capture = orvo_timing.open(path)
    assert capture.header.application == r"\xff\xfe"
    assert capture.accounting["tags"] == [1, 0, 0, 0]


def test_accounting_adds_up_to_the_payload(tmp_path):
    payload = plain.raw64_payload([0, 1], [10_000, 10_160]) + b"\xde\xad" + plain.raw64_payload([3], [20_000]) + b"\x60"
    path = tmp_path / "damaged.tagcap"
    path.write_bytes(plain.capture_bytes(plain.RAW64_HEADER, payload))
    accounting = orvo_timing.open(path).accounting
    assert accounting["classes"] == {"records": 24, "skipped": 2, "pending": 1}
    assert accounting["losses"] == {"cut": {"count": 1, "size": 1}, "foreign": {"count": 1, "size": 2}}
    assert accounting["lost"] == {"count": 1, "size": 2}
    assert accounting["tags"] == [1, 1, 0, 1]
    assert accounting["units_per_byte"] == 1


def test_a_closed_capture_says_so(example):
    with orvo_timing.open(example) as capture:
        assert not capture.closed
    assert capture.closed and "closed" in repr(capture)
    capture.close()
    for use in (capture.times, capture.tags, capture.chunks, lambda: capture.accounting, capture.__enter__):
        with pytest.raises(orvo_timing.Error, match="not open") as error:
            use()
        assert error.value.code == orvo_timing.Error.NOT_OPEN == -6


def test_the_file_that_was_opened_is_read_whatever_its_path_names(example, monkeypatch, tmp_path):
    monkeypatch.chdir(tmp_path)
    capture = orvo_timing.open("example.tagcap")
    monkeypatch.chdir("/")
    example.unlink()
    plain.write_raw64(example, [2], [1])
    assert len(capture.times(0)) == 1000


@pytest.mark.parametrize("payload", [b"", b"TAGCAP1\n", b"TAGCAP1\n\x05\0\0\0{}", b"no capture at all"])
def test_what_is_no_capture_is_an_error_with_a_code(tmp_path, payload):
    path = tmp_path / "bad.tagcap"
    path.write_bytes(payload)
    with pytest.raises(orvo_timing.Error) as error:
        orvo_timing.open(path)
    assert error.value.code == (-4 if payload.startswith(b"no") else -2)


def test_missing_files_are_what_python_makes_of_them(tmp_path):
    with pytest.raises(FileNotFoundError):
        orvo_timing.open(tmp_path / "none.tagcap")
    with pytest.raises(IsADirectoryError):
        orvo_timing.open(tmp_path)
    with pytest.raises(NotADirectoryError):
        orvo_timing.open(__file__ + "/x")
    with pytest.raises(ValueError, match="null"):
        orvo_timing.open("a\0b")
    with pytest.raises(TypeError):
        orvo_timing.open(3.5)
    with pytest.raises(orvo_timing.Error, match="no regular file"):
        orvo_timing.open("/dev/null")


def test_wrong_arguments_are_named(example):
    capture = orvo_timing.open(example)
    for channel in (-1, 4, 2**70):
        with pytest.raises(ValueError, match="channel"):
            capture.times(channel)
    for channel in (0.5, "0", True):
        with pytest.raises(TypeError, match="channel"):
            capture.times(channel)
    with pytest.raises(ValueError, match="max_tags"):
        capture.tags(-1)
    with pytest.raises(TypeError, match="max_tags"):
        capture.tags("all")
    with pytest.raises(ValueError, match="max_bytes"):
        capture.chunks(0)
    with pytest.raises(ValueError, match="max_bytes"):
        capture.chunks(1 << 62)


@pytest.mark.parametrize("encoding", ["raw64", "delta32", "packed_delta"])
def test_hostile_files_are_read_without_harm(tmp_path, rng, encoding):
    for index, header in enumerate([{}, {"delta_bits": 40}, {"delta_bits": 31, "channel_mask": 0}, {"quantum_ps": 65535}]):
        text = orvo_timing.Header(stream_format=encoding, **header).to_json()
        path = tmp_path / f"noise{index}.tagcap"
        path.write_bytes(plain.capture_bytes(text, rng.bytes(200_000)))
        capture = orvo_timing.open(path)
        tags = capture.tags()
        assert sum(map(len, capture.times())) == len(tags) == sum(capture.accounting["tags"])
        size = 200_000 * capture.accounting["units_per_byte"]
        assert sum(capture.accounting["classes"].values()) == size


@pytest.mark.parametrize("encoding", ["raw64", "delta32", "packed_delta"])
def test_a_decoder_gives_the_tags_of_the_file(tmp_path, rng, encoding):
    path = tmp_path / "sound.tagcap"
    times = np.sort(rng.integers(1, 10**9, 5000)) * 8
    tags = orvo_timing.merge_times([times, times + 160])
    orvo_timing.write(path, tags, {"stream_format": encoding, "channel_mask": 3})
    capture = orvo_timing.open(path)
    payload = path.read_bytes()[12 + len(capture.header_json) :]
    np.testing.assert_array_equal(orvo_timing.Decoder(capture.header).feed(payload), capture.tags())


def test_threads_use_different_captures_and_one_capture_at_once(tmp_path):
    paths = [plain.write_raw64(tmp_path / f"{i}.tagcap", [0] * 300_000, np.arange(300_000) * 1000 + i) for i in range(4)]
    shared = orvo_timing.open(paths[0])
    failures = []

    def work(index):
        try:
            for _ in range(10):
                assert orvo_timing.open(paths[index]).times(0)[0] == index
                assert len(shared.times(0)) == 300_000
        except BaseException as error:  # noqa: BLE001
            failures.append(error)

    threads = [threading.Thread(target=work, args=(index,)) for index in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not failures


def sparse_capture(path, gigabytes):
    """Zeros are raw64 records of channel 0 at 0 ps; the file takes no room on the disk."""
    path.write_bytes(plain.capture_bytes(plain.RAW64_HEADER, b""))
    os.truncate(path, path.stat().st_size + (gigabytes << 30))
    return path


INTERRUPTED = """
import os, signal, sys, threading, time, orvo_timing
signal.signal(signal.SIGINT, signal.default_int_handler)  # shells have jobs in the background ignore it
capture = orvo_timing.open(sys.argv[1])
def interrupt():
    global sent
    time.sleep(0.3)
    sent = time.monotonic()
    os.kill(os.getpid(), signal.SIGINT)
threading.Thread(target=interrupt, daemon=True).start()
try:
    {work}
except KeyboardInterrupt:
    print(time.monotonic() - sent)
else:
    print("not interrupted")
"""


@pytest.mark.parametrize(
    "work", ["capture.accounting", "for tags in capture.chunks(): pass", "orvo_timing.XcorrStream([(1, 2)], 5, 5).take_capture(capture)"]
)
def test_ctrl_c_ends_a_long_decode_within_a_tenth_of_a_second(tmp_path, work):
    path = sparse_capture(tmp_path / "huge.tagcap", 16)
    script = INTERRUPTED.format(work=work)
    delays = []
    for _ in range(10):  # a machine that does something else is late by itself
        answer = subprocess.run([sys.executable, "-c", script, path], capture_output=True, text=True, timeout=120)
        delays.append(float(answer.stdout))
        if delays[-1] < 0.1:
            return
    pytest.fail(f"interrupted after {delays} s")


def test_progress_shows_a_bar_where_tqdm_is(example, capsys):
    pytest.importorskip("tqdm")
    times = orvo_timing.open(example).times(0, progress=True)
    assert len(times) == 1000
    shown = capsys.readouterr().err
    assert "example.tagcap" in shown and "100%" in shown


def test_progress_without_tqdm_is_silent(example, capsys, monkeypatch):
    monkeypatch.setitem(sys.modules, "tqdm.auto", None)
    assert len(orvo_timing.open(example).times(0, progress=True)) == 1000
    assert capsys.readouterr().err == ""


def test_other_threads_run_during_a_decode(tmp_path):
    path = sparse_capture(tmp_path / "long.tagcap", 1)
    capture = orvo_timing.open(path)
    steps = 0
    done = threading.Event()

    def decode():
        capture.accounting  # noqa: B018
        done.set()

    worker = threading.Thread(target=decode)
    worker.start()
    while not done.wait(0.001):
        steps += 1
    worker.join()
    assert steps > 20  # with the lock held there would be none


