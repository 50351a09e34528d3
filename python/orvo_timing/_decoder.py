"""Live data."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import numpy as np

from . import _core
from ._header import HeaderLike, fields_of, header_of

if TYPE_CHECKING:
    from numpy.typing import NDArray


class Decoder:
    """Decodes a payload piece by piece, as it is received.

    Parameters
    ----------
    header : Header, dict or str
        How the payload is encoded: a header, some of its fields by name, or its JSON text.

    Attributes
    ----------
    header : Header
        As given.
    pending_bytes : int
        Bytes that wait for the rest of their record, or for a search that goes on.

    Raises
    ------
    TypeError, ValueError
        For a header with impossible fields, by name. A header that no payload fits (packed_delta of 40 bits) decodes
        to nothing.

    Examples
    --------
    A raw64 record is the channel and 56 bits of picoseconds; see the page on the capture format.

    >>> decoder = orvo_timing.Decoder({"stream_format": "raw64"})
    >>> payload = orvo_timing.open(example)
    >>> len(decoder.feed(b""))
    0
    """

    def __init__(self, header: HeaderLike) -> None:
        self.header = header_of(header)
        self._decoder = _core.LiveDecoder(fields_of(self.header))

    @property
    def pending_bytes(self) -> int:
        return self._decoder.pending_bytes

    def feed(self, data: Any) -> NDArray[np.void]:
        """Decode the next bytes.

        Parameters
        ----------
        data : bytes-like
            Whatever has the buffer protocol and lies in one piece: bytes, bytearray, memoryview, mmap, a contiguous
            array of any type. It is read in place. Where a piece ends matters to delta32 and packed_delta, which
            search for their framing: to get a file's tags, feed 1 MiB at a time.

        Returns
        -------
        ndarray of TAG_DTYPE, shape (n,)
            The tags so far, in stream order; see `Capture.tags`. Damage is skipped, never an error.

        Raises
        ------
        TypeError
            `data` is not bytes-like.
        ValueError
            `data` does not lie in one piece.

        Examples
        --------
        >>> import pathlib
        >>> with orvo_timing.open(example) as capture:
        ...     decoder = orvo_timing.Decoder(capture.header)
        ...     start = 12 + len(capture.header_json)
        >>> tags = decoder.feed(pathlib.Path(example).read_bytes()[start:])
        >>> tags["time_ps"][:3]
        array([   0,  160, 10000])
        """
        try:
            return self._decoder.feed(data)
        except (BufferError, ValueError) as error:
            raise ValueError(f"data: bytes in one piece ({error})") from None
        except TypeError as error:
            raise TypeError(f"data: {error}") from None
