"""What the installed programs do."""

from __future__ import annotations

import errno
import os
from collections.abc import Iterable
from typing import Any

from ._error import Error

#: Programs are looked for in the directory that this variable names, then in PATH.
DIRECTORY_VARIABLE = "ORVO_TIMING_PROGRAMS"


def _program(name: str) -> str:
    import shutil

    directory = os.environ.get(DIRECTORY_VARIABLE)
    found = (shutil.which(name, path=directory) if directory else None) or shutil.which(name)
    if found is None:
        raise FileNotFoundError(
            f"{name} is not installed: it is looked for in the directory {DIRECTORY_VARIABLE} and in PATH"
        )
    return found


def _path(path: str | os.PathLike[str], name: str) -> str:
    if not isinstance(path, (str, os.PathLike)):
        raise TypeError(f"{name}: a path, not {path!r}")
    text = os.fspath(path)
    return os.path.join(".", text) if text.startswith("-") else text


def _word(value: Any, name: str) -> str:
    if isinstance(value, (str, int, float)) or hasattr(value, "__index__"):
        return str(value)
    if isinstance(value, Iterable):
        return ",".join(_word(item, name) for item in value)
    raise TypeError(f"{name}: a number, a text or a list of them, not {value!r}")


def _options(options: dict[str, Any], repeated: tuple[str, ...] = ()) -> list[str]:
    """`pair_rate=5` is --pair-rate=5, `round=True` is --round; None and False are left out."""
    arguments: list[str] = []
    for name, value in options.items():
        option = "--" + name.replace("_", "-")
        if name in repeated and not isinstance(value, str):
            arguments += [f"{option}={_word(item, name)}" for item in value]
        elif value is True:
            arguments.append(option)
        elif value is not None and value is not False:
            arguments.append(f"{option}={_word(value, name)}")
    return arguments


def _run(name: str, arguments: list[str], allowed: tuple[int, ...] = (0,)) -> str:
    import subprocess

    result = subprocess.run(
        [_program(name), *arguments], stdin=subprocess.DEVNULL, capture_output=True, text=True, errors="replace"
    )
    message = result.stderr.strip() or f"{name}: status {result.returncode}"
    if result.returncode == 64:
        raise ValueError(message)
    if result.returncode not in allowed:
        raise Error(message, Error.FILE_FAILURE)
    return result.stdout


def _number(text: str) -> int | float | str:
    try:
        return int(text)
    except ValueError:
        pass
    try:
        return float(text)
    except ValueError:
        return text


def _answers(output: str) -> dict[str, Any]:
    lines = (line.partition("=") for line in output.splitlines())
    return {name: _number(value) for name, equals, value in lines if equals}


def simulate(path: str | os.PathLike[str], **options: Any) -> dict[str, Any]:
    """Simulate a capture with `vq_simulate_stream_file`, which has to be installed.

    Parameters
    ----------
    path : path-like
        The capture to write.
    **options
        The program's options, with ``_`` for ``-``: ``pair_rate=10_000`` is ``--pair-rate=10000``, ``channels=[0, 1]``
        is ``--channels=0,1``. Its manual page describes them.

    Returns
    -------
    dict
        What a verification of the capture should find, as the program prints it: ``tags``, ``offset_ps``,
        ``coincidences`` and more.

    Raises
    ------
    FileNotFoundError
        The program is not installed.
    ValueError
        The program does not know an option, or cannot use its value.
    TypeError
        A value is neither a number nor a text nor a list of these.
    Error
        The capture cannot be written.

    Examples
    --------
    >>> answer = orvo_timing.simulate("run.tagcap", tags=20_000, pair_rate=10_000)  # doctest: +SKIP
    >>> answer["tags"], answer["offset_ps"]  # doctest: +SKIP
    (20000, 160)
    """
    output = _run("vq_simulate_stream_file", [_path(path, "path"), *_options(options)])
    return _answers(output)


def inspect(path: str | os.PathLike[str]) -> dict[str, Any]:
    """Inspect a capture with `vq_inspect_stream_file`, which has to be installed: is it healthy?

    Parameters
    ----------
    path : path-like

    Returns
    -------
    dict
        The program's JSON report of this capture: ``verdict``, ``findings``, ``payload``, ``channels`` and more.

    Raises
    ------
    FileNotFoundError
        The program is not installed, or there is no such capture.
    Error
        The file cannot be read.

    Examples
    --------
    >>> orvo_timing.inspect("run.tagcap")["verdict"]  # doctest: +SKIP
    'healthy'
    """
    import json

    source = _path(path, "path")
    os.stat(source)  # raises what Python raises for a missing file
    report = json.loads(_run("vq_inspect_stream_file", ["--quiet", "--json=-", source]))
    if not isinstance(report, dict):
        raise Error("vq_inspect_stream_file: no JSON report", Error.FILE_FAILURE)
    return report


def convert(
    sources: str | os.PathLike[str] | Iterable[str | os.PathLike[str]], target: str | os.PathLike[str], **options: Any
) -> dict[str, Any]:
    """Cut, join and convert captures with `vq_convert_stream_file`, which has to be installed.

    Parameters
    ----------
    sources : path-like, or iterable of them
        What to read; several are joined in this order.
    target : path-like
        What to write: a capture, a table or an array, as its name ends in ``.tagcap``, ``.csv`` or ``.npy``.
    **options
        The program's options, with ``_`` for ``-``: ``encoding="raw64"``, ``round=True``, ``force=True``,
        ``duration="10s"``. What may be given several times is a list: ``shift=["0=5ns", "1=-35ns"]``. Its manual page
        describes them.

    Returns
    -------
    dict
        What the program prints: ``tags``, ``ch0`` to ``ch3``, ``first_ps``, ``last_ps`` and more.

    Raises
    ------
    FileNotFoundError
        The program is not installed, or there is no such source.
    FileExistsError
        The target exists, and ``force=True`` is not given.
    ValueError
        The program does not know an option, or cannot use its value.
    TypeError
        An argument is of a wrong kind.
    Error
        A source cannot be read, or the target not be written.

    Examples
    --------
    >>> orvo_timing.convert("run.tagcap", "run.npy")["tags"]  # doctest: +SKIP
    20000
    """
    several = [sources] if isinstance(sources, (str, os.PathLike)) else list(sources)
    paths = [_path(source, "sources") for source in several]
    for path in paths:
        os.stat(path)  # raises what Python raises for a missing file
    result = _path(target, "target")
    if os.path.exists(result) and not options.get("force"):
        raise FileExistsError(errno.EEXIST, "target exists, force=True replaces it", result)
    return _answers(_run("vq_convert_stream_file", [*_options(options, ("shift", "swap")), *paths, result]))
