import array
import mmap
import threading

import numpy as np
import pytest

import orvo_timing
import plain

PAYLOAD = plain.raw64_payload([0, 1, 3], [10_000, 10_160, 5])
RAW64 = {"stream_format": "raw64"}


def assert_decodes(tags):
    np.testing.assert_array_equal(tags["channel"], [0, 1, 3])
    np.testing.assert_array_equal(tags["time_ps"], [10_000, 10_160, 5])


def mapped():
    file = mmap.mmap(-1, len(PAYLOAD))
    file[:] = PAYLOAD
    return file


@pytest.mark.parametrize(
    "data",
    [
        PAYLOAD,
        bytearray(PAYLOAD),
        memoryview(PAYLOAD),
        array.array("B", PAYLOAD),
        mapped(),
        np.frombuffer(PAYLOAD, "u1"),
        np.frombuffer(PAYLOAD, ">u8"),
        np.frombuffer(PAYLOAD, "u1").reshape(3, 8),
    ],
    ids=["bytes", "bytearray", "memoryview", "array", "mmap", "u1", "u8", "2d"],
)
def test_whatever_lies_in_one_piece_can_be_fed(data):
    assert_decodes(orvo_timing.Decoder(RAW64).feed(data))


@pytest.mark.parametrize("size", range(1, 25))
def test_pieces_may_end_anywhere(size):
    decoder = orvo_timing.Decoder(RAW64)
    tags = [decoder.feed(PAYLOAD[first : first + size]) for first in range(0, len(PAYLOAD), size)]
    assert_decodes(np.concatenate(tags))
    assert decoder.pending_bytes == 0


def test_half_a_record_waits():
    decoder = orvo_timing.Decoder(RAW64)
    assert len(decoder.feed(PAYLOAD[:5])) == 0
    assert decoder.pending_bytes == 5


def test_what_is_not_in_one_piece_or_no_bytes_is_refused_by_name():
    decoder = orvo_timing.Decoder(RAW64)
    with pytest.raises(ValueError, match="data"):
        decoder.feed(memoryview(PAYLOAD)[::2])
    with pytest.raises(ValueError, match="data"):
        decoder.feed(np.frombuffer(PAYLOAD, "u1")[::2])
    for wrong in ("text", 5, None, [1, 2]):
        with pytest.raises(TypeError, match="data"):
            decoder.feed(wrong)


def test_a_buffer_is_let_go_after_the_call():
    data = bytearray(PAYLOAD)
    orvo_timing.Decoder(RAW64).feed(data)
    data.extend(b"more")  # BufferError as long as anybody holds it


def test_headers_come_as_record_dict_or_json():
    header = orvo_timing.Header(stream_format="raw64")
    for given in (header, header.as_dict(), RAW64, header.to_json()):
        decoder = orvo_timing.Decoder(given)
        assert decoder.header.stream_format == "raw64"
        assert_decodes(decoder.feed(PAYLOAD))


@pytest.mark.parametrize(
    ("field", "value", "kind"),
    [
        ("stream_format", "zip", ValueError),
        ("stream_format", 3, TypeError),
        ("mode", "both", ValueError),
        ("channel_mask", 256, ValueError),
        ("channel_mask", -1, ValueError),
        ("delta_bits", 2**40, ValueError),
        ("delta_bits", 4.0, TypeError),
        ("quantum_ps", 65536, ValueError),
        ("quantum_ps", None, TypeError),
        ("application", 5, TypeError),
        ("application", "\ud800", ValueError),
        ("colour", "red", ValueError),
    ],
)
def test_impossible_fields_are_named(field, value, kind):
    with pytest.raises(kind, match=field):
        orvo_timing.Decoder({field: value})


def test_what_is_no_header_is_refused():
    for wrong in (None, 5, b"{}", ["raw64"]):
        with pytest.raises(TypeError, match="header"):
            orvo_timing.Decoder(wrong)


@pytest.mark.parametrize("bits", [0, 1, 31, 32, 255])
def test_headers_that_no_payload_fits_decode_to_nothing_or_something(bits, rng):
    decoder = orvo_timing.Decoder({"delta_bits": bits})
    decoder.feed(rng.bytes(50_000))
    assert decoder.pending_bytes <= 50_000


def test_threads_may_share_a_decoder():
    decoder = orvo_timing.Decoder(RAW64)
    payload = PAYLOAD * 1000
    counts = []
    threads = [threading.Thread(target=lambda: counts.append(len(decoder.feed(payload)))) for _ in range(8)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert counts == [3000] * 8


def test_json_of_a_header_can_be_read_again():
    header = orvo_timing.Header(
        stream_format="delta32", mode="internal", stream_transport="usb_async", channel_mask=5, tdl_index=3,
        delta_bits=20, quantum_ps=4, raw64_tag_format="raw_cf", created_utc="2025-03-07T09:05:01.000042Z",
        application="a\"b\\c", device_product="p", device_serial="s", device_port="ü",
    )
    assert orvo_timing.Header.from_json(header.to_json()) == header
