"""Many captures on many cores or machines, with Dask: one task a capture.

>>> import glob
>>> from orvo_timing import many
>>> runs = many.correlate([example, "missing.tagcap"], 0, 1, range_ps=500, bin_ps=8, offset_ps=160, merge=True)
>>> [row["coincidences"] for row in runs.rows], [row["error"][:17] for row in runs.failures]
([1000], ['FileNotFoundError'])
>>> runs.histogram.peak
Peak(count=1000, center_ps=0)

The same call runs in threads, in processes (``scheduler="processes"``) and on a cluster: on the `distributed.Client`
that is given as `scheduler`, or that is active. Tasks stream: a capture may be larger than a machine's memory. A task
that is lost with its worker runs again elsewhere, and each capture is counted once.
"""

from __future__ import annotations

import os
import sys
from collections.abc import Callable, Iterable
from dataclasses import dataclass, field
from typing import TYPE_CHECKING, Any, SupportsIndex, Union

from . import _arguments, _programs
from ._capture import open
from ._histogram import Histogram, XcorrStream, _Window, estimate_offset_ps, xcorr_histogram

if TYPE_CHECKING:
    import pandas

PathLike = Union[str, "os.PathLike[str]"]
_Outcome = tuple[dict[str, Any], Union[Histogram, None]]


@dataclass(frozen=True)
class Results:
    """One row a capture, in the order of the paths.

    Attributes
    ----------
    rows : list of dict
        The captures that gave an answer: ``path`` and its figures.
    failures : list of dict
        Those that did not: ``path`` and ``error``, the reason.
    histogram : Histogram or None
        The sum of all histograms, where it was asked for.

    Examples
    --------
    >>> from orvo_timing import many
    >>> many.correlate([example], 0, 1, range_ps=500, bin_ps=8, offset_ps=160)
    <orvo_timing.many.Results 1 captures, 0 failures>
    """

    rows: list[dict[str, Any]] = field(default_factory=list)
    failures: list[dict[str, Any]] = field(default_factory=list)
    histogram: Histogram | None = None

    def to_dataframe(self) -> pandas.DataFrame:
        """Rows and failures as one table. Needs pandas."""
        import pandas

        return pandas.DataFrame([*self.rows, *self.failures])

    def __repr__(self) -> str:
        return f"<orvo_timing.many.Results {len(self.rows)} captures, {len(self.failures)} failures>"


def _reason(error: BaseException) -> str:
    return f"{type(error).__name__}: {error}"


def _attempt(path: str, work: Callable[..., _Outcome], arguments: tuple[Any, ...]) -> _Outcome:
    """A task: whatever goes wrong with a capture is an answer, too."""
    try:
        figures, histogram = work(path, *arguments)
    except Exception as error:
        return {"path": path, "error": _reason(error)}, None
    return {"path": path, **figures}, histogram


def _correlated(path: str, pair: tuple[int, int], window: tuple[int, int, int], auto: bool, keep: bool) -> _Outcome:
    with open(path) as capture:
        range_ps, bin_ps, offset_ps = window
        if auto:
            times = capture.times()
            a, b = times[pair[0]], times[pair[1]]
            offset_ps = estimate_offset_ps(a, b)
            histogram, tags = xcorr_histogram(a, b, range_ps, bin_ps, offset_ps, threads=1), (len(a), len(b))
        else:
            histogram, tags = _streamed(capture, pair, window)
    analysis = histogram.analysis
    peak = analysis.peak
    figures = {
        "tags_a": tags[0],
        "tags_b": tags[1],
        "offset_ps": offset_ps,
        "coincidences": histogram.moments.total,
        "peak_count": histogram.peak.count,
        "peak_ps": histogram.peak.center_ps,
        "mean_ps": histogram.moments.mean_ps,
        "rms_ps": histogram.rms_ps,
        "verdict": analysis.verdict,
        "sigmas": analysis.sigmas,
        "place_ps": peak.place_ps.value if peak and peak.place_ps else None,
        "fwhm_ps": peak.fwhm_ps.value if peak and peak.fwhm_ps else None,
        "pairs": peak.pairs.value if peak else None,
        "pairs_error": peak.pairs.error if peak else None,
    }
    return figures, histogram if keep else None


def _streamed(
    capture: Any, pair: tuple[int, int], window: tuple[int, int, int]
) -> tuple[Histogram, tuple[int, int]]:
    """In constant memory; in lists where the capture is too disordered for that."""
    stream = XcorrStream([pair], *window)
    stream.take_capture(capture)
    stream.finish()
    if stream.late_tags == 0:
        return stream.histogram(), (stream.tags(pair[0]), stream.tags(pair[1]))
    times = capture.times()
    a, b = times[pair[0]], times[pair[1]]
    return xcorr_histogram(a, b, *window, threads=1), (len(a), len(b))


def _inspected(path: str) -> _Outcome:
    return _programs.inspect(path), None


def _collected(outcomes: list[_Outcome], merge: bool) -> Results:
    rows = [row for row, _ in outcomes if "error" not in row]
    failures = [row for row, _ in outcomes if "error" in row]
    merged: Histogram | None = None
    for _, histogram in outcomes:
        if merge and histogram is not None:
            merged = histogram if merged is None else merged + histogram
    return Results(rows, failures, merged)


def _client(scheduler: Any) -> Any:
    """The cluster to run on, or None."""
    if "distributed" not in sys.modules:
        return None
    import distributed

    if isinstance(scheduler, distributed.Client):
        return scheduler
    if scheduler is not None:
        return None
    try:
        return distributed.get_client()
    except ValueError:
        return None


def _on_cluster(client: Any, tasks: list[Any], paths: list[str], progress: bool) -> list[_Outcome]:
    """A capture whose workers die again and again is a failure of that capture alone."""
    from distributed import as_completed

    from ._progress import bar

    futures = client.compute(tasks)
    with bar(progress, len(futures), "captures", "captures") as tell:
        for done, _ in enumerate(as_completed(futures), 1):
            if tell is not None:
                tell(done)
    outcomes: list[_Outcome] = []
    for path, future in zip(paths, futures):
        error = future.exception()
        outcomes.append(future.result() if error is None else ({"path": path, "error": _reason(error)}, None))
    return outcomes


def _run(
    paths: Iterable[PathLike],
    work: Callable[..., _Outcome],
    arguments: tuple[Any, ...],
    merge: bool,
    scheduler: Any,
    progress: bool,
    compute: bool,
) -> Any:
    if isinstance(paths, (str, os.PathLike)):
        raise TypeError("paths: a list of paths, not one")
    names = [os.fspath(path) for path in paths]
    for name in names:
        if not isinstance(name, str):
            raise TypeError(f"paths: texts or path-like objects, not {name!r}")
    import dask

    tasks = [dask.delayed(_attempt, pure=False)(name, work, arguments) for name in names]
    if not compute:
        return dask.delayed(_collected, pure=False)(tasks, merge)
    client = _client(scheduler)
    if client is not None:
        return _collected(_on_cluster(client, tasks, names, progress), merge)
    options = {} if scheduler is None else {"scheduler": scheduler}
    if progress and tasks:
        from dask.diagnostics import ProgressBar

        with ProgressBar():
            return _collected(list(dask.compute(*tasks, **options)), merge)
    return _collected(list(dask.compute(*tasks, **options)), merge)


def correlate(
    paths: Iterable[PathLike],
    a: SupportsIndex,
    b: SupportsIndex,
    range_ps: SupportsIndex = 5000,
    bin_ps: SupportsIndex = 8,
    offset_ps: SupportsIndex | str = 0,
    *,
    merge: bool = False,
    scheduler: Any = None,
    progress: bool = False,
    compute: bool = True,
) -> Any:
    """Correlate two channels of many captures.

    Parameters
    ----------
    paths : iterable of path-like
        Captures, by names that every worker understands.
    a, b : int
        Channels, 0 to 3.
    range_ps, bin_ps : int
        As for `orvo_timing.xcorr_histogram`.
    offset_ps : int or 'auto'
        The same, or an estimate of each capture's own, for which its times are held in memory.
    merge : bool
        Add the histograms up, too. What is merged is kept in memory, not on disk.
    scheduler : str, distributed.Client or None
        ``'threads'``, ``'processes'``, ``'synchronous'`` or a cluster. None is the active cluster or, without one,
        threads.
    progress : bool
        Show a bar.
    compute : bool
        False gives a `dask.delayed.Delayed` of the results instead, to be part of a larger graph.

    Returns
    -------
    Results
        A capture that cannot be read is a row of ``failures``.

    Raises
    ------
    TypeError, ValueError
        For arguments that no capture fits, by name.

    Examples
    --------
    >>> from orvo_timing import many
    >>> row = many.correlate([example], 0, 1, range_ps=500, bin_ps=8, offset_ps="auto").rows[0]
    >>> row["offset_ps"], row["coincidences"], row["peak_ps"]
    (160, 1000, 0)
    """
    auto = isinstance(offset_ps, str)
    if auto and offset_ps != "auto":
        raise ValueError(f"offset_ps: a whole number or 'auto', not {offset_ps!r}")
    if auto and merge:
        raise ValueError("merge: histograms about different offsets cannot be added; give offset_ps a number")
    window = _Window.checked(range_ps, bin_ps, 0 if isinstance(offset_ps, str) else offset_ps)
    pair = _arguments.channel(a, "a"), _arguments.channel(b, "b")
    arguments = (pair, window.numbers, auto, bool(merge))
    return _run(paths, _correlated, arguments, bool(merge), scheduler, progress, compute)


def inspect(
    paths: Iterable[PathLike], *, scheduler: Any = None, progress: bool = False, compute: bool = True
) -> Any:
    """Inspect many captures; every worker needs the program `vq_inspect_stream_file`.

    Parameters
    ----------
    paths, scheduler, progress, compute
        As for `correlate`.

    Returns
    -------
    Results
        Rows are what `orvo_timing.inspect` gives.

    Examples
    --------
    >>> from orvo_timing import many
    >>> many.inspect(["missing.tagcap"]).failures[0]["path"]
    'missing.tagcap'
    """
    return _run(paths, _inspected, (), False, scheduler, progress, compute)


__all__ = ["Results", "correlate", "inspect"]
