"""What callers may pass, made into what the extension takes; refusals name the argument."""

from __future__ import annotations

import operator
from typing import TYPE_CHECKING, Any, SupportsIndex

import numpy as np

if TYPE_CHECKING:
    from numpy.typing import ArrayLike, NDArray

CHANNELS = 4
INT64_MIN, INT64_MAX = -(2**63), 2**63 - 1

#: One tag: the input it arrived at, and its time in picoseconds. 16 bytes, as the library holds it.
TAG_DTYPE = np.dtype([("channel", "u1"), ("time_ps", "i8")], align=True)


def whole(value: SupportsIndex, name: str, low: int = INT64_MIN, high: int = INT64_MAX) -> int:
    """The number, if it is a whole one from `low` to `high`."""
    if isinstance(value, (bool, np.bool_)):
        raise TypeError(f"{name}: a whole number, not {value!r}")
    try:
        number = operator.index(value)
    except TypeError:
        raise TypeError(f"{name}: a whole number, not {value!r}") from None
    if not low <= number <= high:
        raise ValueError(f"{name}: {number} is not from {low} to {high}")
    return number


def channel(value: SupportsIndex, name: str = "channel") -> int:
    return whole(value, name, 0, CHANNELS - 1)


def _one_dimension(array: NDArray[Any], name: str) -> None:
    if array.ndim != 1:
        raise ValueError(f"{name}: one dimension, not an array of shape {array.shape}")


def times(values: ArrayLike, name: str) -> NDArray[np.int64]:
    """The times as the extension takes them: themselves if they are such a list, else a copy."""
    array = np.asarray(values)
    if array.size == 0 and not isinstance(values, (np.ndarray, np.generic)):
        array = array.astype(np.int64)  # an empty list is one of floats
    if array.dtype.kind not in "iu":
        raise TypeError(f"{name}: whole numbers (picoseconds), not {array.dtype}")
    _one_dimension(array, name)
    if array.dtype.kind == "u" and array.size and int(array.max()) > INT64_MAX:
        raise ValueError(f"{name}: {int(array.max())} ps is beyond 64 signed bits")
    return np.require(array, np.int64, ["C", "A"])


def tags(values: ArrayLike, name: str = "tags") -> NDArray[np.void]:
    """The tags as the extension takes them: themselves if they have the layout of `TAG_DTYPE`, else a copy."""
    array = np.asarray(values)
    if array.dtype.names is None or not {"channel", "time_ps"} <= set(array.dtype.names):
        raise TypeError(f"{name}: an array with the fields channel and time_ps, not {array.dtype}")
    _one_dimension(array, name)
    for field in ("channel", "time_ps"):
        if array.dtype[field].kind not in "iu" or array.dtype[field].shape:
            raise TypeError(f"{name}: field {field} holds whole numbers, not {array.dtype[field]}")
    channels = array["channel"]
    if channels.size and not 0 <= int(channels.min()) <= int(channels.max()) < CHANNELS:
        raise ValueError(f"{name}: channels are 0 to {CHANNELS - 1}, not {int(channels.min())} to {int(channels.max())}")
    if array.dtype == TAG_DTYPE and array.dtype.itemsize == TAG_DTYPE.itemsize:
        return np.require(array, TAG_DTYPE, ["C", "A"])
    result = np.zeros(array.shape, TAG_DTYPE)
    result["channel"] = channels
    result["time_ps"] = times(array["time_ps"], f"{name}, time_ps")
    return result
