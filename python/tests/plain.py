"""Captures and answers worked out without the package: from the pages on the format, and with plain NumPy."""

from __future__ import annotations

import struct
from pathlib import Path

import numpy as np

DEVICE_PERIOD_PS = 3333 << 32


def raw64_payload(channels, times_ps) -> bytes:
    """Picosecond words: channel in bits 62 and 61, device time below bit 44."""
    words = (np.asarray(channels, "u8") << np.uint64(61)) | (np.asarray(times_ps, "i8") % DEVICE_PERIOD_PS).astype("u8")
    return words.astype(">u8").tobytes()


def capture_bytes(header: str, payload: bytes, magic: bytes = b"TAGCAP1\n") -> bytes:
    return magic + struct.pack("<I", len(header.encode())) + header.encode() + payload


RAW64_HEADER = '{"stream_format":"raw64","mode":"external","raw64_tag_format":"ps","channel_mask":15}'


def write_raw64(path: Path, channels, times_ps, header: str = RAW64_HEADER) -> Path:
    path.write_bytes(capture_bytes(header, raw64_payload(channels, times_ps)))
    return path


def write_example(path: Path) -> Path:
    """1000 events each 10 ns on channel 0, each followed after 160 ps by one on channel 1."""
    events = np.arange(1000) * 10_000
    return write_raw64(path, np.tile([0, 1], 1000), np.stack([events, events + 160], axis=1).ravel())


def differences(a, b, range_ps: int, offset_ps: int = 0) -> np.ndarray:
    """Every difference within the range, all pairs looked at."""
    all_pairs = np.subtract.outer(np.asarray(b, "i8"), np.asarray(a, "i8")).ravel() - offset_ps
    return all_pairs[np.abs(all_pairs) <= range_ps]


def histogram(a, b, range_ps: int, bin_ps: int, offset_ps: int = 0) -> tuple[np.ndarray, np.ndarray]:
    """Centres and counts: the nearest centre takes a difference, halves go outwards."""
    bins = -(-2 * range_ps // bin_ps) | 1
    half = bins // 2
    found = differences(a, b, range_ps, offset_ps)
    steps = np.sign(found) * ((np.abs(found) + bin_ps // 2) // bin_ps)
    steps = steps[np.abs(steps) <= half]
    return (np.arange(bins) - half) * bin_ps, np.bincount(steps + half, minlength=bins)
