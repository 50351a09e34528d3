#!/usr/bin/env python3
"""Writes the seeds in ../corpus, one file for each case that a fuzzer should not have to find by itself.

Run it after a change to what a target reads from its input; files of other names (inputs that once failed) stay.
With --check it writes nothing, and names the seeds that differ; status 1 when any does.
"""
import struct
import sys
from pathlib import Path

CORPUS = Path(__file__).resolve().parent.parent / "corpus"
WRAP_STEP = 0xFB00000000
PERIOD = 3333 << 32
CHECK = sys.argv[1:] == ["--check"]
different = []


def seeds(concept, cases):
    folder = CORPUS / concept
    if not CHECK:
        folder.mkdir(parents=True, exist_ok=True)
    for name, content in cases.items():
        path = folder / name
        if not CHECK:
            path.write_bytes(content)
        elif not path.is_file() or path.read_bytes() != content:
            different.append(f"{concept}/{name}")


# --- input.hpp ------------------------------------------------------------------------------------------------------


def integer(value):
    """As Input::integer reads it, in the shortest form."""
    for kind, size in ((0, 1), (64, 2), (128, 4)):
        if -(1 << (8 * size - 1)) <= value < 1 << (8 * size - 1):
            return bytes([kind]) + value.to_bytes(size, "little", signed=True)
    return bytes([176]) + value.to_bytes(8, "little", signed=True)


HIGHEST = bytes([228, 0])
LOWEST = bytes([242, 0])


def times(*entries):
    """As time_list reads it: numbers, or (count, step) for a run of at most 63 equal steps."""
    out = struct.pack("<H", len(entries))
    for entry in entries:
        out += bytes([entry[0] * 4 + 2]) + integer(entry[1]) if isinstance(entry, tuple) else b"\0" + integer(entry)
    return out


def length_class(payload):
    """0 to 3: of the limits that the slow targets put on their payloads, the first that holds this one."""
    return sum(len(payload) > limit for limit in (30, 50, 100))


# --- the formats ----------------------------------------------------------------------------------------------------


def ps(channel, time_ps):
    return struct.pack(">Q", channel << 61 | time_ps)


def coarse_fine(channel, coarse, fine):
    return struct.pack(">Q", channel << 61 | 0xA5C3 << 45 | coarse << 13 | fine)


def d32(control, channel, kind, payload):
    return struct.pack(">I", control << 31 | channel << 29 | kind << 25 | payload)


D32_SYNC = bytes.fromhex("EB5A55AA")


def d32_base(time_ps):
    return D32_SYNC + d32(1, 1, 5, time_ps & 0x1FFFFFF) + d32(1, 2, 5, time_ps >> 25 & 0xFFFF)


class Packed:
    """Packed records; bits are kept as a text of 0 and 1."""

    def __init__(self, d, skew=0):
        self.d = d
        self.text = "1" * skew

    def record(self, channel, flag, payload):
        self.text += format(channel, "02b") + str(flag) + format(payload, f"0{self.d}b")
        return self

    def sync(self, channel, quanta):
        ones = (1 << self.d) - 1
        self.record(channel, 1, ones)
        for piece in range((self.d + 40) // self.d):
            self.record(channel, 0, quanta >> (piece * self.d) & ones)
        return self

    def anchor(self, channel, quanta):
        return self.sync(channel, quanta).record(channel, 0, 0)

    def rounds(self, channels, count, step):
        for _ in range(count):
            for channel in channels:
                self.record(channel, 0, step)
        return self

    def bytes(self):
        padded = self.text + "0" * (-len(self.text) % 8)
        return bytes(int(padded[i : i + 8], 2) for i in range(0, len(padded), 8))


HEADER = (
    '{"file_type":"orvo_timing_raw_stream_capture","schema_version":1,"created_utc":"2025-03-07T09:05:01.000042Z",'
    '"application":"lab","device_product":"TDC","device_serial":"17","device_port":"/dev/tty","stream_format":"%s",'
    '"mode":"%s","stream_transport":"usb","raw64_tag_format":"%s","channel_mask":%d,"tdl_index":2,'
    '"packed_delta_config":{"delta_bits":%d,"quantum_ps":8}}'
)


def header(stream_format="raw64", mode="external", tags="ps", mask=15, delta_bits=16):
    return (HEADER % (stream_format, mode, tags, mask, delta_bits)).encode()


# --- targets --------------------------------------------------------------------------------------------------------


def header_text():
    return {
        "as_written": header(),
        "internal_packed": header("packed_delta", "internal", "raw_cf", 3, 8),
        "delta32": header("delta32"),
        "empty": b"",
        "empty_object": b"{}",
        "other_spellings": b'{"stream_format":"PackedDelta","mode":"INTERNAL","stream_transport":"USB-Async"}',
        "unknown_words": b'{"stream_format":"delta-32","mode":"?","stream_transport":""}',
        "spaced": b'{ "mode" : "internal" ,\r\n\t"channel_mask" :\v\f 31, "quantum_ps":\n65544}',
        "numbers_that_wrap": b'{"tdl_index":18446744073709551619,"delta_bits":272,"channel_mask":0012.7}',
        "numbers_that_are_none": b'{"tdl_index":-3,"delta_bits":"7","channel_mask":.5,"quantum_ps":',
        "number_for_a_text": b'{"device_port":5,"x":1,"created_utc":"t"}',
        "value_equal_to_a_key": b'{"application":"stream_format","device_product":"delta32"}',
        "value_ending_in_a_key": b'{"application":"a\\"mode","device_port":"internal"}',
        "escapes": b'{"application":"\\"\\\\\\/\\b\\t\\n\\r\\u0041","device_serial":"\x01\x1f\x7f\xc3\xa4"}',
        "empty_tag_format": b'{"raw64_tag_format":"","mode":"internal"}',
        "ends_in_a_backslash": b'{"application":"a\\',
        "ends_behind_a_key": b'{"mode"',
        "ends_behind_a_colon": b'{"mode":',
    }


def settings():
    def case(text, *arguments):
        return text + b"\xff" + b"\xfe".join(arguments)

    return {
        "every_key": case(
            b"input_file=a.tagcap\noutput_prefix=out/run\nchannel_a=2\nchannel_b=3\nrange_ps=250\nbin_ps=4\n"
            b"offset=AUTO\nmax_tags=100\n"
        ),
        "other_keys": case(b"source_file = a b\r\nout_prefix =c\r\nCH_A= 1\r\nch_b =0\r\n"),
        "comments_and_sections": case(b"[x]\n# range_ps=1\nRange_PS = 250 # wide\n\n =1\nbin_ps=\n"),
        "trailing_text": case(b"range_ps=5000ps\nbin_ps= 7.5"),
        "wrapping_number": case(b"max_tags=-1\n"),
        "no_number": case(b"range_ps=abc\n"),
        "too_large": case(b"bin_ps=9223372036854775808\n"),
        "channel_too_large": case(b"channel_a=2147483648\n"),
        "all_flags": case(b"", b"--range=1", b"--bin", b"2", b"--offset=-5", b"--max-tags", b"9", b"--out-prefix=x"),
        "positional": case(b"", b"in.tagcap", b"1", b"2", b"3"),
        "first_flag_wins": case(b"", b"--bin=4", b"--bin=6", b"--bin"),
        "flag_for_a_value": case(b"", b"--offset", b"--bin", b"3"),
        "unknown_flag_takes_a_value": case(b"", b"--foo", b"x.tagcap", b"--", b"y", b"z"),
        "empty_values": case(b"", b"", b"--out-prefix="),
        "empty_number": case(b"", b"--range="),
        "help": case(b"", b"a", b"-h"),
        "invalid_channels": case(b"channel_a=2\nchannel_b=2\n"),
        "invalid_widths": case(b"bin_ps=0\n"),
    }


def two_channel_packed(mode, count=40):
    stream = Packed(16, skew=29).anchor(0, 5000).anchor(1, 5020).rounds((0, 1), count, 2500)
    return header("packed_delta", mode, mask=3), stream.bytes()


def reader():
    CHUNKS = 4

    def parts(head, payload, reads=4096, tags=255, form=0):
        return bytes([form | length_class(payload) << 3]) + struct.pack("<HB", reads, tags) + head + b"\xff" + payload

    def whole(file, form=1):
        return bytes([form]) + struct.pack("<HB", 4096, 255) + file

    raw = ps(0, 10000) + ps(1, 10160)
    length = struct.pack("<I", len(header()))
    return {
        "raw64": parts(header(), raw),
        "raw64_by_the_byte": parts(header(), raw + b"\xde\xad" + raw, 0, 0),
        "raw64_many_tags": parts(header(), raw * 20, form=0xC0),
        "raw_cf": parts(header(tags="raw_cf"), coarse_fine(0, 1000, 5) + coarse_fine(1, 1001, 180)),
        "delta32": parts(header("delta32"), d32_base(10000) + d32(0, 0, 10, 0) + d32(0, 0, 10, 160), 5, 0),
        "packed_external": parts(*two_channel_packed("external")),
        "packed_internal": parts(*two_channel_packed("internal"), reads=200, tags=3),
        "packed_in_chunks": parts(*two_channel_packed("external"), reads=90, form=CHUNKS),
        "raw64_in_chunks": parts(header(), raw * 9, reads=20, form=CHUNKS),
        "delta32_in_chunks": parts(
            header("delta32"), d32_base(9) + d32(0, 0, 10, 0) * 9 + d32_base(5) + d32(0, 0, 10, 0), 30, form=CHUNKS
        ),
        "header_of_no_bytes": parts(b"", two_channel_packed("external")[1]),
        "earlier_magic": parts(header(), raw, form=2),
        "whole_file": whole(b"TAGCAP1\n" + length + header() + raw),
        "truncated_magic": whole(b"TAGCAP1"),
        "other_magic": whole(b"TAGCAP2\n" + length),
        "truncated_length": whole(b"VQSTRM1\n\0\0\0"),
        "header_of_4_gib": whole(b"TAGCAP1\n\xff\xff\xff\xff{}"),
        "header_one_byte_short": whole(b"TAGCAP1\n" + length + header()[:-1]),
        "no_payload": whole(b"TAGCAP1\n" + length + header()),
        "nothing": whole(b""),
    }


def raw64():
    def case(form, payload, chunks=(255, 0, 1, 2, 6, 7, 8, 30)):
        return bytes([form]) + bytes(chunks) + payload

    late = 0x68280000000  # half a device period
    return {
        "ps": case(0, ps(0, 10000) + ps(1, 10160) + ps(2, 1) + ps(3, 0)),
        "ps_between_litter": case(0, b"\xde\xad\xbe" + ps(0, 10000) + b"\xff" + ps(1, 10160) + b"\0\0\0"),
        "ps_folds_44_bits": case(0, ps(0, (1 << 44) - 1) + ps(0, PERIOD) + ps(0, PERIOD - 1)),
        "ps_wraps": case(0, ps(0, PERIOD - 5) + ps(0, 5) + ps(0, late + 5) + ps(0, 5) + ps(0, late + 6) + ps(0, 5)),
        "ps_any_words_as_records": case(1, bytes(range(7, 255, 3))),
        "cf": case(4, coarse_fine(0, 1000, 0) + coarse_fine(1, 1001, 180) + coarse_fine(3, 9, 8191)),
        "cf_wraps": case(8, coarse_fine(0, 0xFFFFFFF0, 5) + coarse_fine(0, 0x10, 5) + coarse_fine(0, 0x80000011, 5)),
        "cf_wrong_marker": case(4, coarse_fine(0, 1000, 0).replace(b"\xb8", b"\xb9") + coarse_fine(1, 7, 7)),
        "cf_any_words_as_records": case(5, bytes(range(250, 3, -3))),
        "all_ones": case(0, b"\xff" * 60),
        "all_zeros": case(0, b"\0" * 61, (0,) * 8),
    }


def delta32():
    def case(form, payload, chunks=(255, 0, 1, 2, 6, 7, 8, 30)):
        return bytes([form]) + bytes(chunks) + payload

    def op(number, channel=0, high=0):
        return bytes([number << 2 | channel | high])

    def ahead(channel, limit, beside=0):
        return op(8, channel) + bytes([limit, beside & 255])

    def gap(channel, limit, beside=0):
        return op(10, channel) + bytes([limit, beside & 255])

    event = d32(0, 0, 10, 0)
    start = op(7) + (10000).to_bytes(6, "little") + op(12) + b"\0"
    return {
        "base_and_events": case(0, d32_base(10000) + event + d32(0, 0, 10, 160) + d32_base(10500) + d32(0, 1, 10, 3)),
        "litter_and_split_sync": case(0, b"\xeb\x5a\x55" + D32_SYNC + d32_base(1) + event + b"\xeb\x5a", (2, 0, 0, 3) * 2),
        "extension": case(0, d32_base(0) + event + d32(1, 0, 5, 3) + d32(1, 0, 5, 0xFFFF) + event),
        "extension_too_long": case(0, d32_base(0) + event + d32(1, 0, 5, 0x10000) + event + D32_SYNC),
        "extension_behind_a_base": case(0, d32_base(0) + d32(1, 0, 5, 1) + event + d32_base(0) + event),
        "other_marker": case(0, d32_base(0) + event + d32(1, 3, 5, 7) + event + D32_SYNC + d32(1, 3, 5, 7) + event),
        "sync_in_every_state": case(0, D32_SYNC * 3 + d32(1, 1, 5, 9) + D32_SYNC + d32_base(5) + D32_SYNC + event),
        "base_high_too_long": case(0, D32_SYNC + d32(1, 1, 5, 9) + d32(1, 2, 5, 0x10000) + event),
        "base_behind_the_channel": case(0, d32_base(500) + event + d32_base(400) + event + d32_base(600) + event),
        "gaps_at_limits": case(1, start + b"".join(gap(0, i, beside) for i in range(8) for beside in (0, 1, -1))),
        "bases_at_limits": case(
            1, start + b"".join(ahead(0, i, beside) + op(12) + b"\0" for i in range(8) for beside in (0, 1, -1))
        ),
        "base_back": case(1, start + op(8, 0, 0x80) + b"\1\0" + op(12) + b"\0" + op(12) + b"\0"),
        "all_ones": case(0, b"\xff" * 40),
        "all_zeros": case(0, b"\0" * 41),
    }


def packed_head(delta_bits, mask, external, quantum=8):
    return bytes([delta_bits]) + struct.pack("<H", quantum) + bytes([mask | external << 7])


def packed_streams():
    """Name -> (delta_bits, mask, external, stream)."""
    every = (0, 1, 2, 3)
    four = Packed(8)
    for channel in every:
        four.anchor(channel, 100 + channel)
    return {
        "two_channels": (16, 3, 1, Packed(16).anchor(0, 5000).anchor(1, 5020).rounds((0, 1), 12, 2500)),
        "skewed_by_29_bits": (16, 3, 1, Packed(16, 29).anchor(0, 5000).anchor(1, 5020).rounds((0, 1), 12, 2500)),
        "four_channels": (8, 0, 0, four.rounds(every, 12, 9)),
        "unbalanced": (8, 3, 0, Packed(8).anchor(0, 1).anchor(1, 1).rounds((0,), 30, 3)),
        "balance_of_2_to_1": (8, 3, 0, Packed(8).anchor(0, 1).anchor(1, 1).rounds((0, 1, 0), 9, 3).record(0, 0, 3)),
        "balance_over_2_to_1": (8, 3, 0, Packed(8).anchor(0, 1).anchor(1, 1).rounds((0, 1, 0), 9, 3).rounds((0,), 2, 3)),
        "one_channel": (1, 4, 0, Packed(1).anchor(2, 77).rounds((2,), 40, 1)),
        "widest_records": (31, 1, 1, Packed(31, 7).anchor(0, 12345678901).rounds((0,), 9, 1 << 30)),
        "overflow": (8, 1, 1, Packed(8).anchor(0, 1).record(0, 1, 3).record(0, 0, 5).record(0, 1, 254).record(0, 0, 1)),
        "broken_sequence": (8, 3, 1, Packed(8).anchor(0, 1).record(1, 1, 255).record(0, 0, 1).anchor(1, 5).anchor(0, 9)),
        "inactive_channel": (8, 3, 1, Packed(8).anchor(0, 1).anchor(1, 1).record(2, 0, 0).anchor(0, 5).anchor(1, 9)),
        "nonmonotonic": (16, 1, 0, Packed(16).anchor(0, 900000).anchor(0, 5).anchor(0, 6)),
        "noise": (16, 15, 1, Packed(16).rounds((3, 1, 2, 0, 2), 20, 0xA5C3)),
        "all_ones": (16, 15, 1, Packed(16, 600)),
        "all_zeros": (16, 1, 1, Packed(16).rounds((0,), 30, 0)),
    }


def packed_op(number, channel=0):
    return bytes([number << 2 | channel])


def packed_alignment():
    cases = {}
    for name, (d, mask, external, stream) in packed_streams().items():
        cases[name] = bytes([length_class(stream.bytes()) << 1]) + packed_head(d, mask, external) + stream.bytes()
    scripted = packed_op(6, 0) + b"\1\0\0" + packed_op(6, 1) + b"\1\0\0" + packed_op(10) + b"\x40\0"
    cases["script"] = b"\7" + packed_head(8, 3, 0) + scripted
    cases["short_script"] = b"\1" + packed_head(2, 3, 1) + scripted
    # Whoever starts before byte 64 takes the sync start there for one of channel 1 and misses that of channel 0.
    last_start = Packed(5).rounds((0,), 63, 0).record(1, 1, 31).anchor(0, 9).anchor(1, 9)
    cases["only_the_last_start_byte"] = bytes([length_class(last_start.bytes()) << 1]) + packed_head(5, 3, 1) + last_start.bytes()
    return cases


def packed_delta():
    def case(form, head, payload, chunks=(255, 9, 1, 20, 200, 255)):
        return bytes([form]) + head + bytes(chunks) + payload

    cases = {}
    for name, (d, mask, external, stream) in packed_streams().items():
        cases[name] = case(length_class(stream.bytes()) << 3, packed_head(d, mask, external), stream.bytes())
        cases[name + "_locked"] = case(2, packed_head(d, mask, external), stream.bytes())
    anchors = b"".join(packed_op(6, c) + b"\1\0\0" for c in range(2))
    for name, mode, quantum in (("external", 1, 1), ("internal", 0, 1), ("coarse", 1, 32768), ("shifted", 0, 12)):
        head = packed_head(28, 3, mode, quantum)
        for i in range(11):  # the limits of PackedScript
            gaps = b"".join(packed_op(8) + bytes([i, beside]) for beside in (0, 1, 255))
            syncs = b"".join(
                bytes([5 << 2 | ahead, i, beside]) + packed_op(12) + b"\0" for ahead in (0, 0x40) for beside in (0, 1, 255)
            )
            cases[f"gap_at_limit_{i}_{name}"] = case(3, head, anchors + gaps, (255,) * 6)
            cases[f"last_gap_at_limit_{i}_{name}"] = case(3, head, anchors + gaps[:3], (255,) * 6)
            cases[f"sync_at_limit_{i}_{name}"] = case(3, head, anchors + syncs, (255,) * 6)

    def counts(first, second):  # tags of channels 0 and 1, of which each anchor is one
        runs = packed_op(9, 0) + struct.pack("<H", first - 1) + packed_op(9, 1) + struct.pack("<H", second - 1)
        return case(7, packed_head(1, 3, 0), anchors + runs, (255,) * 6)

    cases["balance_of_4095"] = counts(4094, 1)
    cases["balance_of_4096"] = counts(4095, 1)
    cases["balance_of_8_to_1"] = counts(4096, 512)
    cases["balance_over_8_to_1"] = counts(4097, 512)
    cases["balance_of_four"] = case(7, packed_head(1, 15, 0), anchors + packed_op(10) + b"\0\x13", (255,) * 6)
    cases["no_payload_bits"] = case(2, packed_head(224, 15, 1), b"\0" * 50)
    return cases


def histogram():
    MANY = 0x1C

    def case(range_ps, bin_ps, offset_ps, a, b):
        code = lambda value: value if isinstance(value, bytes) else integer(value)
        return bytes([MANY]) + code(range_ps) + code(bin_ps) + code(offset_ps) + a + b

    def made(count, first, step, order=0, seed=1, burst=0):
        return struct.pack("<H", count) + integer(first) + integer(step) + bytes([burst, seed, order, seed])

    def answering(jitter, shift=0, losses=60, order=0):
        return b"\0" + bytes([jitter, shift, losses, 3, order, 4])

    def generated(range_ps, bin_ps, offset_ps, a, b):
        return bytes([MANY | 2]) + integer(range_ps) + integer(bin_ps) + integer(offset_ps) + a + b

    def edges(half_bins, rest, bin_ps, offset_ps):
        """Pairs at every half bin up to the end of the window, one picosecond less, none, and one more."""
        steps = sorted({0, 1, 2, 3, half_bins - 1, half_bins, half_bins + 1})
        pairs = b"".join(
            b"\0" + struct.pack("<hb", sign * step, beside) for sign in (1, -1) for step in steps for beside in (-1, 0, 1)
        )
        head = bytes([MANY | 1]) + struct.pack("<Hb", half_bins, rest)
        return head + integer(bin_ps) + integer(offset_ps) + times(1 << 45) + times() + pairs

    in_order, backwards, shuffled, joined, one_astray, nearly = 0, 2, 3, 4, 5, 6 + 8 * 3
    combs = times(10000, (40, 20000)), times(10160, (40, 20000))
    return {
        "periodic": case(5000, 8, 160, *combs),
        "halves_go_outwards": case(5000, 8, 0, times(0), times(4, -4, 3, -3)),
        "odd_bins": case(20, 7, 0, times(0), times(3, 4, -3, -4, 11, 10)),
        "pairs_beside_the_bins": case(12, 8, 0, times(0), times(12, -12, 11)),
        "both_ends_count": case(100, 1, 7, times(50), times(157, 158, -43, -44)),
        "equal_times": case(10, 3, 0, times(5, 5, 5), times((9, 0), 5, 5)),
        "unsorted": case(1000, 10, -50, times(900, 100, 500, -3), times(850, 50, 450, -60)),
        "no_range": case(0, 8, 0, *combs),
        "negative_bin": case(5000, -8, 0, *combs),
        "empty_list": case(10, 2, 0, times(), times(1)),
        "centres_outside_64_bits": case(
            HIGHEST, b"\xc8\0\x3e", 0, b"\1\0\0" + LOWEST, b"\2\0\0" + HIGHEST + b"\0" + integer(0)
        ),
        "widest": case(HIGHEST, HIGHEST, HIGHEST, b"\1\0\0" + LOWEST, b"\2\0\0" + HIGHEST + b"\0" + integer(0)),
        "lowest_offset": case(HIGHEST, HIGHEST, LOWEST, b"\1\0\0" + HIGHEST, b"\1\0\0" + LOWEST),
        **{
            f"edges_of_{half_bins}_half_bins_of_{bin_ps}_ps_and_{rest}": edges(half_bins, rest, bin_ps, -160)
            for half_bins, rest, bin_ps in (
                (1250, 0, 8), (1250, 1, 8), (11, 0, 8), (10, 3, 7), (9, -1, 7), (1, 0, 2), (40, 0, 1), (2499, 0, 60715728),
                (2499, 0, 60715727), (2499, 5, 60715729), (3, 1, 1 << 30), (7, -1, 0x7FFFFFFF), (100, 2, (1 << 40) + 1), (5, 0, 1 << 57)
            )
        },
        # Found by fuzzing: the standard deviation differs in its last bit when count * deviation comes before the square.
        "deviation_is_squared_first": case(
            99999989, 99999989, 0, times(0), times(-99999989, (16, 0), 0, (20, 0), 99999989, (19, 0))
        ),
        "two_detectors": generated(5000, 8, 160, made(3000, 0, 20000), answering(200)),
        "two_detectors_nearly_in_order": generated(5000, 8, 0, made(2500, 0, 9000, nearly), answering(200, order=nearly)),
        "two_detectors_shuffled": generated(5000, 8, -77, made(900, 0, 9000, shuffled), answering(200, 0, 0, backwards)),
        "one_of_each_astray": generated(400, 7, 0, made(700, 0, 900, one_astray), answering(9, 0, 9, one_astray)),
        "joined_streams": generated(400, 7, 0, made(700, 0, 900, joined), answering(9, 0, 9, joined)),
        "many_a_for_each_b": generated(3000, 10, 0, made(3000, 0, 1000), b"\1" + made(30, 0, 100000, seed=9)),
        "many_b_for_each_a": generated(3000, 10, 0, made(30, 0, 100000), b"\1" + made(3000, 0, 1000, seed=9)),
        "lists_far_apart": generated(3000, 10, 0, made(300, 0, 1000), b"\1" + made(300, 1 << 50, 1000)),
        "b_begins_late": generated(3000, 10, 0, made(3000, 0, 1000), b"\1" + made(300, 1000000, 1000)),
        "bursts": generated(500, 10, 0, made(300, 0, 10000, burst=192 + 40), answering(0, losses=0)),
        "wide_window_on_few_events": generated(1 << 40, 1 << 34, 0, made(120, 0, 1 << 36), answering(255, 30)),
        "sixty_four_and_one": generated(900, 8, 5, made(64, 0, 1000), b"\1" + made(65, 0, 1000, backwards, 2)),
        "small_lists": b"\2" + integer(900) + integer(80) + integer(5) + made(90, 0, 1000) + answering(100, order=nearly),
        "window_outside_64_bits": case(1000, 10, 0, b"\1\0\0" + HIGHEST, b"\1\0\0" + HIGHEST),
    }


def xcorr_stream():
    FROM_A, FROM_B, BOTH, READ = 1, 2, 3, 0x80

    def case(window, reach_ps, a, b, *pieces, channels=1 << 2):
        head = b"".join(integer(value) for value in (*window, reach_ps))
        return head + bytes([channels]) + a + b + bytes(which | count << 2 for which, count in pieces)

    combs = times(10000, (60, 20000)), times(10160, (60, 20000))
    one_by_one = [(BOTH | READ, 1)] * 70
    return {
        "comb_at_once": case((5000, 8, 160), 1000, *combs),
        "comb_tag_by_tag": case((5000, 8, 160), 0, *combs, *one_by_one),
        "range_beyond_pieces": case((90000, 1000, 0), 0, *combs, *one_by_one),
        "offset_beyond_pieces": case((500, 8, 200160), 0, *combs, *one_by_one),
        "offset_back": case((500, 8, -200160), 0, *combs, *one_by_one),
        "empty_pieces": case((5000, 8, 160), 0, *combs, (BOTH, 3), (READ, 0), (BOTH | READ, 0), (BOTH, 9)),
        "b_silent_until_the_end": case((5000, 8, 160), 0, *combs, *[(FROM_A | READ, 4)] * 15, (FROM_B, 31)),
        "b_far_ahead": case((500, 8, 0), 0, times((60, 1000)), times(10**9, (60, 1000)), *one_by_one),
        "late_within_reach": case((100, 1, 0), 500, times(*range(0, 9000, 300)), times(200, 150, 700, 250), *one_by_one),
        "late_beyond_reach": case((100, 1, 0), 50, times(*range(0, 9000, 300)), times(8000, 900, 1), *one_by_one),
        "backwards": case((100, 1, 0), 10, times((60, -10)), times((60, -10)), *one_by_one),
        "equal_times_across_pieces": case((10, 3, 0), 0, times((30, 0), 5, 5), times((30, 0), 5), *one_by_one),
        "one_channel_with_itself": case((40000, 100, 0), 0, *combs, *one_by_one, channels=0),
        "no_range": case((0, 8, 0), 0, *combs, *one_by_one),
    }


def pair_statistics():
    def counted(size, typical, expected, changes=(), unevenness=0):
        """Bins of one count and expectation, but for (bin, mantissa, exponent)."""
        scale = int(expected * 2**40) << 11
        return (bytes([1 | unevenness << 1, size, typical]) + scale.to_bytes(8, "little")
                + b"".join(bytes(change) for change in changes))

    def tagged(window, a, b):
        return b"\0" + b"".join(integer(value) for value in window) + times(*a) + times(*b)

    peak = [(at, height, 0) for at, height in zip(range(90, 111), [20, 22, 26, 33, 45, 64, 90, 125, 160, 185, 195,
                                                                   185, 160, 125, 90, 64, 45, 33, 26, 22, 20])]
    teeth = [(at, 200, 0) for at in range(5, 200, 13)]
    return {
        "flat": counted(200, 20, 20),
        "more_than_chance": counted(200, 40, 20),
        "nothing_expected": counted(50, 3, 0),
        "nothing_counted": counted(50, 0, 3),
        "no_bins": counted(0, 1, 1),
        "one_bin": counted(1, 9, 1),
        "peak": counted(200, 20, 20, peak),
        "dip": counted(200, 100, 100, [(at, 10, 0) for at in range(95, 105)]),
        "cut": counted(200, 20, 20, [(at, height, 0) for at, (_, height, _) in enumerate(peak[10:])]),
        "all_of_the_view": counted(21, 20, 20, [(at, height, 0) for at, (_, height, _) in enumerate(peak)]),
        "in_one_bin": counted(101, 1, 1, [(50, 100, 0)]),
        "counts_beyond_floats": counted(101, 1, 1, [(50, 255, 39), (51, 255, 39)]),
        "higher_beside_the_place_of_the_peak": bytes.fromhex("15bde1eb2a00b060000016ffffff7f"),
        "comb": counted(200, 20, 35, teeth),
        "missing_tooth": counted(200, 2, 20, teeth[:7] + teeth[8:]),
        "high_tooth": counted(200, 2, 20, [*teeth, (96, 250, 5)]),
        "bins_without_expectation": counted(200, 20, 20, peak, unevenness=3),
        "beside_bins_without_expectation": bytes.fromhex("5d0441" + "ff" * 63 + "408813003240a0" + "ff" * 8 + "e840a000dea7"),
        "empty_channel": tagged((5000, 50, 0), (), (1, 2)),
        "equal_times": tagged((5000, 50, 0), (7, (60, 0)), (7, (60, 0))),
        "pairs": tagged((5000, 50, 160), (0, (60, 1000)), (160, (60, 1000))),
        "at_the_ends": tagged((1 << 62, 1 << 57, -(1 << 62)), (-(1 << 63), 0, (1 << 63) - 1), (-(1 << 63), (1 << 63) - 1)),
    }


def inspect_pairs():
    def searched(form, piece, reach, a, b):
        return bytes([form, piece]) + integer(reach) + a + b

    def runs(start, *steps):  # of 63 equal steps each
        return times(start, *((63, step) for step in steps))

    uneven = [1009 + 7919 * i % 10007 for i in range(12)]
    return {
        "nothing": searched(1, 1, 1000, times(), times()),
        "one_channel": searched(0, 1, 1000, times(1, 2, 3), times(4)),
        "one_tag_each": searched(3, 1, 1000, times(5), times(5)),
        "equal_times": searched(3, 1, 10**12, times(7, (60, 0)), times(7, (60, 0))),
        "near": searched(3, 9, 10**9, runs(0, *uneven), runs(160, *uneven)),
        "far": searched(3, 9, 10**9, runs(0, *uneven), runs(1234567, *uneven)),
        "far_back": searched(5, 1, 10**9, runs(1234567, *uneven), runs(0, *uneven)),
        "pulses": searched(3, 40, 10**9, runs(0, *[12500] * 12), runs(3000, *[12500] * 12)),
        "one_after_the_other": searched(2, 1, 10**9, runs(0, *[10**7] * 12), runs(0, *[10**7] * 12)),
        "on_a_grid": searched(3, 9, 10**9, runs(0, *[64 * step for step in uneven] * 3),
                              runs(64, *[64 * step for step in uneven] * 3)),
        "no_reach": searched(3, 9, -(1 << 63), runs(0, *uneven), runs(160, *uneven)),
        "first_bin_below_half_of_the_top": bytes.fromhex(
            "03098000ca9a7b0d00000000fe40f103fe40e022fe40b81afe409012fe40680afe405729fe402f21fe400719fe"
            "40df10fe40b708fe40a627fe407e1f0d010040a00100000a00fe40f103fe40e022fe4000000000000000000000"
            "000000000000000000000000006368616e6e656c5f620000000000000000000000000000000000000000b81afe"
            "409012fe40680af6405729fe402f21fe400719fe40df10fe40b708fe40a627fe407e1f"),
        "all_reach": searched(3, 9, (1 << 63) - 1, times(-(1 << 63), (1 << 63) - 1), times(-(1 << 63), 0)),
    }


def offset():
    def case(a, b, form=0):  # bits 0 to 4 allow a long list A
        return bytes([form]) + a + b

    def run(count, step):  # of count times 64, for counts that leave 3 when divided by 4
        return struct.pack("<H", 1) + bytes([count]) + integer(step)

    return {
        "upper_median": case(times(0, 1000), times(10, 1013)),
        "ties_go_to_the_later": case(times(100), times(90, 110)),
        "the_nearer_is_before": case(times(100), times(95, 110)),
        "beyond_the_last": case(times(500), times(100, 200)),
        "empty": case(times(), times(1)),
        "stride_2": case(run(127, 20000), times(160, (60, 20000)), 31),
        "first_4000_only": case(run(67, 20000), times(160, (60, 20000)), 31),
        "outside_64_bits": case(b"\1\0\0" + LOWEST, b"\1\0\0" + HIGHEST),
    }


def report(source, counts, first=-5000, bins=None, kind=3, header_fields=b"\0\1\1\x10\x08\0"):
    out = source + b"\xff" + header_fields
    out += struct.pack("<II", 0, 1) + b"".join(integer(n) for n in (2000, 2000, 0, 7)) + integer(4007)
    out += integer(5000) + integer(8) + integer(-160)
    out += struct.pack("<H", len(counts) if bins is None else bins) + bytes([kind]) + integer(4 * first)
    for count in counts:
        size = (count.bit_length() + 7) // 8
        out += bytes([size]) + count.to_bytes(size, "little")
    return out


def reports():
    peak = [0] * 50 + [3, 90, 4] + [0] * 48
    return {
        "peak": report(b"/data/run 07.tagcap", peak, -400),
        "quotes_in_the_path": report(b'/d/"a"\\b\t\n\r\x01\xc3\xa4', peak, -400),
        "no_bins": report(b"/d/a", []),
        "one_bin": report(b"/d/a", [5], 0),
        "no_counts": report(b"/d/a", [0] * 9),
        "bars_of_two_units": report(b"/d/a", [1 + k % 7 for k in range(270)], -1080),
        "bars_of_one_unit": report(b"/d/a", [k for k in range(900)], -3600),
        "small_beside_large": report(b"/d/a", [1, 1 << 40, 1 << 20], -8),
        "wide_bins": report(b"/d/a", [1, 2, 3], -(1 << 49), kind=49),
        "any_centres": report(b"/d/a", [], bins=3, kind=200) + b"".join(c + b"\1\5" for c in (HIGHEST, LOWEST, integer(0))),
        "any_counts": report(b"/d/a", [], bins=3, kind=255) + b"".join(integer(c) + integer(-c) for c in (1, -2, 9)),
        "widest_counts": report(b"/d/a", [], bins=2, kind=228) + HIGHEST + HIGHEST + LOWEST + LOWEST,
        "other_spellings": report(b"", [1], 0, header_fields=b"\7\0\2\x20\xff\xff"),
    }


def tag_encoder():
    def tags(form, *steps, header=b"\x10\x01\x00\x8f", anchors=100):
        return bytes([form]) + header + bytes([anchors]) + b"".join(bytes([code]) + number for code, number in steps)

    second = integer(10**12)
    busy = [(k % 4, integer(100 + 9 * k)) for k in range(60)]
    return {
        "raw64_ps": tags(0, *busy),
        "raw64_wrap": tags(0, (0, integer(1431512599750)), (0, integer(7 * 10**12)), (0, integer(7 * 10**12))),
        "raw64_raw_cf": tags(6, *[(k % 4, integer(3333 - 19)) for k in range(20)]),
        "delta32": tags(1, *busy),
        "delta32_long_gaps": tags(1, (0, second), (1, second), (0, integer(1078036791296)), (1, integer(3 << 41))),
        "packed": tags(2, *busy),
        "packed_late": tags(2, *busy, (0, integer(-1000)), (1, integer(2000)), (1, integer(-1500))),
        "packed_anchors": tags(2, *busy, anchors=1),
        "packed_internal": tags(2, *busy, header=b"\x10\x08\x00\x0f"),
        "packed_late_start": tags(0xA2, (0x80, integer(6 * 10**12)), *busy),
        "end_of_the_range": tags(0, (0x80, HIGHEST), (1, integer(-5)), (2, LOWEST)),
        "no_such_channel": tags(1, (0, integer(1)), (0x3C, integer(1)), (0, integer(1))),
    }


def convert_options():
    def line(*words):
        return b"".join(word.encode() + b"\xfe" for word in words)

    files = ("a.tagcap", "b.tagcap")
    return {
        "files": line(*files),
        "several_inputs": line("a.tagcap", "-", "c.csv", "--gap=5s"),
        "encoding": line("--encoding", "packed_delta", "--delta-bits=9", "--quantum-ps", "24", "--round", *files),
        "raw_cf": line("--tag-format=raw_cf", "--anchor-every=7", "--verify=off", "--force", *files),
        "selection": line("--from=1s", "--duration", "10ms", "--channels=0,3", "--skip-tags=5", "--tags", "7", *files),
        "changes": line("--shift", "1=-35ns", "--shift=all=1us", "--swap", "0,1", "--swap=1,2", "--sort=1us", *files),
        "pipe": line("-", "-", "--format=npy"),
        "widest_numbers": line("--from=9223372036854775807", "--to=9223372s", *files),
        "too_much": line("--shift=0=9223372036854775807", "--shift=0=1", *files),
        "no_numbers": line("--tags=x", "--shift=1", "--swap=5,6", "--channels=,", *files),
        "help": line("--help"),
        "after_two_dashes": line("--", "-a", "--b.csv"),
    }


def inspections():
    """For both writers of the inspection."""
    raw64, delta32, packed, steps, whole_header = 0, 1, 2, 64, 128
    second = integer(10**12)

    def capture(form, name=b"c", text=b"a", payload=b""):
        return bytes([form]) + name + b"\xff" + text + b"\xff" + payload

    clicks = b"".join(bytes([k % 2]) + integer(1000 + 37 * k % 501) for k in range(120))
    markup = b"</script><script>alert(1)</script><img src=x onerror=alert(1)>&amp;'\x22--><!--"
    sound = b'{"stream_format":"raw64","mode":"external","channel_mask":3,"created_utc":"2026-01-01T00:00:00Z"}'
    return {
        "no_payload": capture(raw64),
        "clicks": capture(raw64 | steps, payload=clicks),
        "pause_and_jump": capture(raw64 | steps, payload=clicks + bytes([0]) + second + clicks + b"\x01" + integer(-(10**10))),
        "foreign_bytes": capture(raw64, payload=b"\xff" * 20 + bytes(16) + b"\xff" * 9),
        "searching": capture(delta32, payload=bytes(200)),
        "nothing_aligns": capture(packed, payload=bytes(range(256)) * 3),
        "markup_in_the_header": capture(raw64 | steps, text=markup.replace(b'"', b'\\"'), payload=clicks),
        "markup_as_the_header": capture(raw64 | whole_header, text=markup),
        "markup_as_a_key": capture(raw64 | whole_header, text=b'{"<b onclick=a>":1,"mode":"<i>","stream_format":"<u>"}'),
        "markup_in_the_name": capture(raw64, name=markup.replace(b"/", b"<")),
        "no_utf_8": capture(raw64 | steps, name=b"\xc3(\x80", text=b"\xed\xa0\x80\xf0\x28", payload=clicks),
        "control_characters": capture(raw64, name=b"\x1b[31m\r\n\x7f", text=b"\x1b]0;x\x07"),
        "escapes": capture(raw64 | whole_header, text=b'{"application":"\\u0000\\ud800\\n","device_port":"\\"}'),
        "whole_header": capture(raw64 | whole_header | steps, text=sound, payload=clicks),
        "deep_header": capture(raw64 | whole_header, text=b"[" * 500),
    }


def main():
    seeds("header_text", header_text())
    seeds("settings", settings())
    seeds("reader", reader())
    seeds("raw64", raw64())
    seeds("delta32", delta32())
    seeds("packed_alignment", packed_alignment())
    seeds("packed_delta", packed_delta())
    seeds("histogram", histogram())
    seeds("offset", offset())
    seeds("pair_statistics", pair_statistics())
    seeds("inspect_pairs", inspect_pairs())
    seeds("xcorr_stream", xcorr_stream())
    seeds("tag_encoder", tag_encoder())
    seeds("convert_options", convert_options())
    seeds("inspect_json", inspections())
    seeds("inspect_html", inspections())
    seeds("report_json", reports())
    seeds("report_svg", reports())
    if different:
        sys.exit("not as made: " + ", ".join(different))


if __name__ == "__main__":
    main()
