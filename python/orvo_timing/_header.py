"""What a capture says of itself."""

from __future__ import annotations

from collections.abc import Iterator, Mapping
from dataclasses import asdict, dataclass, fields
from typing import Any, Union

from . import _arguments, _core

_WORDS = {
    "stream_format": ("raw64", "delta32", "packed_delta"),
    "mode": ("internal", "external"),
    "stream_transport": ("uart", "usb", "usb_async"),
}
_LIMITS = {"channel_mask": 0xFF, "tdl_index": 0xFF, "delta_bits": 0xFF, "quantum_ps": 0xFFFF}


def text_of(text: bytes) -> str:
    """Header text is UTF-8; bytes that are not show as escapes."""
    return text.decode("utf-8", "backslashreplace")


@dataclass(frozen=True)
class Header:
    """The header of a capture: attributes, and items of the same names.

    Parameters
    ----------
    stream_format : {'packed_delta', 'raw64', 'delta32'}
        Encoding of the payload.
    mode : {'external', 'internal'}
        Clocking of the recording.
    stream_transport : {'usb', 'uart', 'usb_async'}
        Link that the tags came over.
    channel_mask : int
        Bit n is 1 where channel n is active; a file stores bits 0 to 3.
    tdl_index : int
        Tapped delay line the tags were taken from, 0 to 255.
    delta_bits : int
        packed_delta: payload bits of a record. 1 to 31 can be decoded, 0 counts as 16.
    quantum_ps : int
        packed_delta: time quantum, of which the power of two counts; 0 counts as 8.
    raw64_tag_format : str
        raw64: ``'raw_cf'`` for coarse and fine counts, anything else for picoseconds.
    created_utc : str
        As in ``'2025-03-07T09:05:01.000042Z'``; what writes a file fills an empty one.
    application, device_product, device_serial, device_port : str
        Free text.

    Raises
    ------
    TypeError, ValueError
        For a field of a wrong kind, or that a file cannot hold; the message names it.

    Examples
    --------
    >>> from orvo_timing import Header
    >>> header = Header(stream_format="raw64", channel_mask=0b0011)
    >>> header.stream_format, header["channel_mask"]
    ('raw64', 3)
    >>> dict(header)["mode"]
    'external'
    >>> Header(delta_bits=1000)
    Traceback (most recent call last):
      ...
    ValueError: delta_bits: 1000 is not from 0 to 255
    """

    stream_format: str = "packed_delta"
    mode: str = "external"
    stream_transport: str = "usb"
    channel_mask: int = 0x0F
    tdl_index: int = 0
    delta_bits: int = 16
    quantum_ps: int = 8
    raw64_tag_format: str = "ps"
    created_utc: str = ""
    application: str = ""
    device_product: str = ""
    device_serial: str = ""
    device_port: str = ""

    def __post_init__(self) -> None:
        for field in fields(self):
            value = getattr(self, field.name)
            if field.name in _LIMITS:
                number = _arguments.whole(value, field.name, 0, _LIMITS[field.name])
                object.__setattr__(self, field.name, number)
            elif not isinstance(value, str):
                raise TypeError(f"{field.name}: a text, not {value!r}")
            elif field.name in _WORDS and value not in _WORDS[field.name]:
                raise ValueError(f"{field.name}: {value!r} is none of {', '.join(_WORDS[field.name])}")

    def keys(self) -> Iterator[str]:
        """The names of the fields, so that ``dict(header)`` works."""
        return (field.name for field in fields(self))

    def __getitem__(self, name: str) -> Any:
        if name not in set(self.keys()):
            raise KeyError(name)
        return getattr(self, name)

    def as_dict(self) -> dict[str, Any]:
        """The fields by name.

        Examples
        --------
        >>> from orvo_timing import Header
        >>> Header().as_dict()["stream_format"]
        'packed_delta'
        """
        return asdict(self)

    def to_json(self) -> str:
        """The header as a file holds it, one line. An empty `created_utc` becomes now.

        Examples
        --------
        >>> from orvo_timing import Header
        >>> '"mode":"external"' in Header().to_json()
        True
        """
        return text_of(_core.header_to_json(fields_of(self)))

    @classmethod
    def from_json(cls, text: str | bytes) -> Header:
        """The header that a text describes. As with files, what is missing or cannot be read has its default.

        Parameters
        ----------
        text : str or bytes
            JSON as capture files hold it.

        Examples
        --------
        >>> from orvo_timing import Header
        >>> Header.from_json('{"stream_format":"delta32"}').stream_format
        'delta32'
        """
        if not isinstance(text, (str, bytes)):
            raise TypeError(f"text: str or bytes, not {type(text).__name__}")
        return from_core(_core.header_from_json(text))


#: A header, some of its fields by name, or its JSON text.
HeaderLike = Union[Header, Mapping[str, Any], str]


def from_core(values: dict[str, Any]) -> Header:
    """The extension gives texts as bytes."""
    return Header(**{name: text_of(value) if isinstance(value, bytes) else value for name, value in values.items()})


def header_of(header: HeaderLike) -> Header:
    if isinstance(header, Header):
        return header
    if isinstance(header, str):
        return Header.from_json(header)
    if not isinstance(header, Mapping):
        raise TypeError(f"header: a Header, a dict or JSON text, not {type(header).__name__}")
    names = set(Header().keys())
    for name in header:
        if name not in names:
            raise ValueError(f"header: there is no field {name!r}")
    return Header(**header)


def fields_of(header: HeaderLike) -> dict[str, Any]:
    """For the extension, which takes any text that UTF-8 can hold."""
    values = header_of(header).as_dict()
    for name, value in values.items():
        if isinstance(value, str):
            try:
                values[name] = value.encode()
            except UnicodeEncodeError:
                raise ValueError(f"{name}: {value!r} is no text that UTF-8 can hold") from None
    return values
