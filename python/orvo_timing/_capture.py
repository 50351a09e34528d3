"""Captures in files."""

from __future__ import annotations

import builtins
import os
import stat
from collections.abc import Iterator
from types import TracebackType
from typing import TYPE_CHECKING, Any, SupportsIndex, overload

import numpy as np

from . import _arguments, _core
from ._error import Error
from ._header import Header, fields_of, from_core, text_of
from ._progress import bar

if TYPE_CHECKING:
    from numpy.typing import NDArray

#: The programs' reads. Where reads end is part of a decoding's result for delta32 and packed_delta.
READ_BYTES = 1 << 20
_MOST = 2**63 - 1


class Capture:
    """An open capture file; made by `open`.

    Every method that decodes goes through the file once, from its start: none keeps tags. The file that was opened is
    read whatever its path names by then. Threads may share a capture; each call works by itself.

    Attributes
    ----------
    header : Header
        What the capture says of itself.
    header_json : str
        The header's text as it stands in the file.
    path : str
        As given to `open`.

    Examples
    --------
    >>> with orvo_timing.open(example) as capture:
    ...     capture.header.stream_format, [len(times) for times in capture.times()]
    ('raw64', [1000, 1000, 0, 0])
    """

    def __init__(self, path: str | os.PathLike[str]) -> None:
        self._file: Any = None
        self.path = os.fspath(path)
        self._file = builtins.open(self.path, "rb", buffering=0)  # raises what Python raises for a missing file
        try:
            if not stat.S_ISREG(os.fstat(self._file.fileno()).st_mode):
                raise Error(f"Capture: {self.path} is no regular file; feed a Decoder", Error.FILE_FAILURE)
            first = self._pass()
            self.header: Header = from_core(first.header)
            self.header_json: str = text_of(first.header_json)
            self._payload_offset = first.payload_offset
        except BaseException:
            self.close()
            raise

    def _source(self) -> bytes:
        if self._file is None or self._file.closed:
            raise Error("Capture: not open", Error.NOT_OPEN)
        descriptor = f"/proc/self/fd/{self._file.fileno()}"
        return descriptor.encode() if os.path.exists(descriptor) else os.fsencode(self.path)

    def _pass(self) -> _core.CaptureFile:
        return _core.CaptureFile(self._source())

    def _bar(self, progress: bool) -> Any:
        size = os.fstat(self._file.fileno()).st_size - self._payload_offset
        return bar(progress, size, "B", os.path.basename(self.path))

    @overload
    def times(self, channel: None = None, *, progress: bool = False) -> tuple[NDArray[np.int64], ...]: ...

    @overload
    def times(self, channel: SupportsIndex, *, progress: bool = False) -> NDArray[np.int64]: ...

    def times(
        self, channel: SupportsIndex | None = None, *, progress: bool = False
    ) -> NDArray[np.int64] | tuple[NDArray[np.int64], ...]:
        """Decode the times of one channel, or of each.

        Parameters
        ----------
        channel : int, optional
            0 to 3. Without it the times of all four channels come, in one pass.
        progress : bool
            Show a bar, where tqdm is installed.

        Returns
        -------
        ndarray of int64, shape (n,), or tuple of four of them
            Picoseconds on an axis that does not wrap, in stream order: a channel may have late tags. The arrays own
            the memory that was decoded into, and outlive the capture. Four arrays of one call share theirs: it is
            freed with the last of them.

        Raises
        ------
        Error
            The capture is closed, or cannot be read.
        TypeError, ValueError
            `channel` is no whole number from 0 to 3.

        Examples
        --------
        >>> capture = orvo_timing.open(example)
        >>> capture.times(1)[:3] - capture.times(0)[:3]
        array([160, 160, 160])
        """
        if channel is not None:
            channel = _arguments.channel(channel)
        file = self._pass()
        with self._bar(progress) as tell:
            if channel is None:
                return tuple(file.times(tell))
            return file.times_of_channel(channel, tell)

    def tags(self, max_tags: SupportsIndex | None = None, *, progress: bool = False) -> NDArray[np.void]:
        """Decode the tags of all channels, in stream order.

        Parameters
        ----------
        max_tags : int, optional
            Stop after so many, from the start of the capture.
        progress : bool
            Show a bar, where tqdm is installed.

        Returns
        -------
        ndarray of TAG_DTYPE, shape (n,)
            Fields ``channel`` (u1) and ``time_ps`` (i8, picoseconds), 16 bytes a tag.

        Raises
        ------
        Error
            The capture is closed, or cannot be read.
        TypeError, ValueError
            `max_tags` is no whole number from 0.

        Examples
        --------
        >>> tags = orvo_timing.open(example).tags(max_tags=2)
        >>> tags["channel"], tags["time_ps"]
        (array([0, 1], dtype=uint8), array([   0,  160]))
        """
        most = _MOST if max_tags is None else _arguments.whole(max_tags, "max_tags", 0)
        file = self._pass()
        with self._bar(progress) as tell:
            return file.tags(most, tell)

    def chunks(self, max_bytes: SupportsIndex = READ_BYTES) -> Iterator[NDArray[np.void]]:
        """Go through the tags in constant memory.

        Parameters
        ----------
        max_bytes : int
            Bytes of payload that are read at a time, from 1 to 2**30. With the default the tags are those of `tags`.
            Other sizes give the same tags in raw64; in delta32 and packed_delta they may differ where a stream is
            damaged, since what is given up there depends on where a read ends.

        Yields
        ------
        ndarray of TAG_DTYPE, shape (n,)
            The tags of the next read that has some, as `tags` gives them.

        Examples
        --------
        >>> sum(len(tags) for tags in orvo_timing.open(example).chunks(4096))
        2000
        """
        size = _arguments.whole(max_bytes, "max_bytes", 1, 1 << 30)
        file = self._pass()
        return _chunks_of(file, size)

    @property
    def accounting(self) -> dict[str, Any]:
        """What became of every byte of the payload, and what was lost. Decodes the capture once more.

        Returns
        -------
        dict
            ``classes``: size of each class that occurs; all of them together are the payload. Sizes are bytes, for
            packed_delta bits: ``units_per_byte`` is 1 or 8. ``losses``: by reason, each ``{'count', 'size'}``;
            ``lost``: those that a sound capture does not have. ``tags`` and ``wraps`` (raw64): one number a channel.
            ``framings_won``, ``framings_lost``: sync words and locks. ``unanchored``: delta32, tags between a loss of
            sync and the next time base.

        Raises
        ------
        Error
            The capture is closed, or cannot be read.

        Examples
        --------
        >>> accounting = orvo_timing.open(example).accounting
        >>> accounting["classes"], accounting["lost"], accounting["tags"]
        ({'records': 16000}, {'count': 0, 'size': 0}, [1000, 1000, 0, 0])
        """
        return self._pass_account()

    def _pass_account(self, progress: bool = False) -> dict[str, Any]:
        source = self._source()
        with self._bar(progress) as tell:
            return _core.account_of(source, self._payload_offset, fields_of(self.header), tell)

    @property
    def closed(self) -> bool:
        """Whether the capture is closed."""
        return self._file is None or bool(self._file.closed)

    def close(self) -> None:
        """Close the file; arrays stay. Doing so twice is no error.

        Examples
        --------
        >>> capture = orvo_timing.open(example)
        >>> capture.close()
        >>> capture.times(0)
        Traceback (most recent call last):
          ...
        orvo_timing._error.Error: Capture: not open
        """
        if self._file is not None:
            self._file.close()

    def __enter__(self) -> Capture:
        self._source()
        return self

    def __exit__(
        self, kind: type[BaseException] | None, value: BaseException | None, traceback: TracebackType | None
    ) -> None:
        self.close()

    def __repr__(self) -> str:
        state = "closed" if self.closed else self.header.stream_format
        return f"<orvo_timing.Capture {self.path!r} {state}>"


def _chunks_of(file: _core.CaptureFile, size: int) -> Iterator[NDArray[np.void]]:
    while (tags := file.next_chunk(size)) is not None:
        yield tags


def open(path: str | os.PathLike[str]) -> Capture:
    """Open a capture file and read its header.

    Parameters
    ----------
    path : path-like
        A ``.tagcap`` file.

    Returns
    -------
    Capture
        A context manager.

    Raises
    ------
    FileNotFoundError, PermissionError, IsADirectoryError
        As Python's own `open`.
    Error
        The file is no capture, or ends before its payload.

    Examples
    --------
    >>> with orvo_timing.open(example) as capture:
    ...     print(capture.header.stream_format)
    raw64
    """
    return Capture(path)
