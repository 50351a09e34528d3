"""What the installed programs do."""

from __future__ import annotations

import json
import os
import shutil
import subprocess
from collections.abc import Iterable
from typing import Any

from ._error import Error

#: Programs are looked for in the directory that this variable names, then in PATH.
DIRECTORY_VARIABLE = "ORVO_TIMING_PROGRAMS"


def _program(name: str) -> str:
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


def _options(options: dict[str, Any]) -> list[str]:
    """`pair_rate=5` is --pair-rate=5, `round=True` is --round; None and False are left out."""
    arguments = []
    for name, value in options.items():
        option = "--" + name.replace("_", "-")
        if value is True:
            arguments.append(option)
        elif value is not None and value is not False:
            arguments.append(f"{option}={_word(value, name)}")
    return arguments


def _run(name: str, arguments: list[str], allowed: tuple[int, ...] = (0,)) -> str:
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
    lines = (line.partition("=") for line in output.splitlines())
    return {name: _number(value) for name, equals, value in lines if equals}


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
    source = _path(path, "path")
    os.stat(source)  # raises what Python raises for a missing file
    report = json.loads(_run("vq_inspect_stream_file", ["--quiet", "--json=-", source]))
    if not isinstance(report, dict):
        raise Error("vq_inspect_stream_file: no JSON report", Error.FILE_FAILURE)
    return report
