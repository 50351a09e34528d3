"""Tags to files."""

from __future__ import annotations

import contextlib
import os
from collections.abc import Sequence
from dataclasses import dataclass
from typing import TYPE_CHECKING, SupportsIndex

import numpy as np

from . import _arguments, _core
from ._header import HeaderLike, fields_of
from ._progress import bar

if TYPE_CHECKING:
    from numpy.typing import ArrayLike, NDArray


@dataclass(frozen=True)
class Written:
    """What `write` has done.

    Attributes
    ----------
    tags : int
        Tags written.
    axis_ps : tuple of int
        For each channel by how much decoded times are above those given: an encoding that has a shorter clock than
        64 bits may carry whole laps of it.
    """

    tags: int
    axis_ps: tuple[int, int, int, int]


def merge_times(times: Sequence[ArrayLike]) -> NDArray[np.void]:
    """Make tags of a list of times per channel: the other way round of `Capture.times`.

    Parameters
    ----------
    times : sequence of up to four array_like of integers
        Picoseconds of channel 0, 1 and so on.

    Returns
    -------
    ndarray of TAG_DTYPE, shape (n,)
        In the order of time; tags of the same time in the order of their channels.

    Raises
    ------
    TypeError, ValueError
        A list does not hold whole numbers or has not one dimension, or there are more than four.

    Examples
    --------
    >>> orvo_timing.merge_times([[0, 1000], [160]])["channel"]
    array([0, 1, 0], dtype=uint8)
    """
    lists = [_arguments.times(values, f"times[{channel}]") for channel, values in enumerate(times)]
    if len(lists) > _arguments.CHANNELS:
        raise ValueError(f"times: at most {_arguments.CHANNELS} channels, not {len(lists)}")
    tags = np.zeros(sum(map(len, lists)), _arguments.TAG_DTYPE)
    tags["time_ps"] = np.concatenate([*lists, np.zeros(0, np.int64)])
    tags["channel"] = np.repeat(np.arange(len(lists), dtype=np.uint8), [len(values) for values in lists])
    return tags[np.argsort(tags["time_ps"], kind="stable")]


def write(
    path: str | os.PathLike[str],
    tags: ArrayLike,
    header: HeaderLike,
    *,
    anchor_every: SupportsIndex = 1000,
    round: bool = False,
    start_bit: SupportsIndex = 0,
    channel_axes: bool = False,
    progress: bool = False,
) -> Written:
    """Write a capture, in the encoding that its header names. The file is complete, or not there.

    Parameters
    ----------
    path : path-like
        Replaced if it exists.
    tags : ndarray with the fields channel and time_ps, shape (n,)
        In stream order. Decoding the file gives them again.
    header : Header, dict or str
        A header, some of its fields by name, or its JSON text.
    anchor_every : int
        delta32, packed_delta: tags of a channel from one time base or anchor to the next.
    round : bool
        Move times that the encoding cannot hold to the nearest that it can. Without it they are an error.
    start_bit : int
        packed_delta: bits of 1 before the first record, 0 to 7.
    channel_axes : bool
        Let channels end up whole laps of the clock apart, as the device does.
    progress : bool
        Show a bar, where tqdm is installed.

    Returns
    -------
    Written

    Raises
    ------
    Error
        A tag that the encoding cannot carry, by channel and time; a file that cannot be written.
    FileNotFoundError
        There is no such directory.
    TypeError, ValueError
        Arguments of a wrong kind, or out of their range.

    Examples
    --------
    >>> import os, tempfile
    >>> path = os.path.join(tempfile.mkdtemp(), "two.tagcap")
    >>> orvo_timing.write(path, orvo_timing.merge_times([[0], [160]]), {"stream_format": "raw64"})
    Written(tags=2, axis_ps=(0, 0, 0, 0))
    >>> orvo_timing.open(path).times(1)
    array([160])
    """
    target = os.fspath(path)
    checked = _arguments.tags(tags)
    settings = (
        _arguments.whole(anchor_every, "anchor_every", 1, 2**32),
        bool(round),
        _arguments.whole(start_bit, "start_bit", 0, 7),
        bool(channel_axes),
    )
    fields = fields_of(header)
    part = f"{target}.part{os.getpid()}"
    open(part, "wb").close()  # raises what Python raises where nothing can be written
    try:
        with bar(progress, len(checked), "tags", os.path.basename(target)) as tell:
            axis_ps = _core.write_capture(os.fsencode(part), checked, fields, *settings, tell)
        os.replace(part, target)
    except BaseException:
        with contextlib.suppress(FileNotFoundError):
            os.unlink(part)
        raise
    return Written(len(checked), axis_ps)
