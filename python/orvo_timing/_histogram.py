"""Correlation histograms, of lists and of streams."""

from __future__ import annotations

import os
from collections.abc import Sequence
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, NamedTuple, SupportsIndex

import numpy as np

from . import _arguments, _core
from ._analysis import Analysis, analysis_of
from ._capture import Capture

if TYPE_CHECKING:
    import matplotlib.axes
    import pandas
    from numpy.typing import ArrayLike, NDArray

_MOST_REACH = 2**62


class Peak(NamedTuple):
    """The highest bin, the first of several."""

    count: int  # type: ignore[assignment]  # in place of a method of tuples
    center_ps: int


class Moments(NamedTuple):
    """Sum of the counts, their mean and standard deviation, and the width of the Gaussian that has these."""

    total: int
    mean_ps: float
    sigma_ps: float
    fwhm_ps: float


@dataclass(frozen=True)
class _Window:
    range_ps: int
    bin_ps: int
    offset_ps: int

    @classmethod
    def checked(cls, range_ps: SupportsIndex, bin_ps: SupportsIndex, offset_ps: SupportsIndex) -> _Window:
        return cls(
            _arguments.whole(range_ps, "range_ps", 1),
            _arguments.whole(bin_ps, "bin_ps", 1),
            _arguments.whole(offset_ps, "offset_ps"),
        )

    @property
    def numbers(self) -> tuple[int, int, int]:
        return self.range_ps, self.bin_ps, self.offset_ps


class Histogram:
    """Pairs by delay: how often channel B follows, or precedes, channel A. Made by `xcorr_histogram` and `XcorrStream`.

    Attributes
    ----------
    bin_center_ps : ndarray of int64, shape (bins,)
        Delays, less the offset, in steps of the bin width, symmetric about 0.
    counts : ndarray of int64, shape (bins,)
        Pairs of each bin. The two outermost bins are cut by the range.
    range_ps, bin_ps, offset_ps : int
        As asked for.

    Notes
    -----
    Histograms of the same window can be added: counts and expectations add up. A histogram of lists keeps them until
    `expected`, `g2` or `analysis` was asked for, since only the times tell whether rates drift.

    Examples
    --------
    >>> histogram = orvo_timing.xcorr_histogram([0, 10_000], [160, 10_180], range_ps=500, bin_ps=10, offset_ps=170)
    >>> histogram.peak, histogram.rms_ps
    (Peak(count=1, center_ps=-10), 10.0)
    >>> (histogram + histogram).counts.sum()
    4
    """

    def __init__(
        self,
        bin_center_ps: NDArray[np.int64],
        counts: NDArray[np.int64],
        window: _Window,
        *,
        lists: tuple[NDArray[np.int64], NDArray[np.int64]] | None = None,
        expected: NDArray[np.float64] | None = None,
    ) -> None:
        self.bin_center_ps = bin_center_ps
        self.counts = counts
        self.range_ps, self.bin_ps, self.offset_ps = window.numbers
        self._window = window
        self._lists = lists
        self._expected = expected
        self._analysis: Analysis | None = None

    def _judge(self) -> None:
        """Fills in the analysis, and the expectation where only the lists tell it."""
        counts = _arguments.times(self.counts, "counts")
        if self._lists is not None:
            found = _core.statistics_of_lists(counts, *self._lists, self._window.numbers)
            self._expected = found.pop("expected")
            self._lists = None
        else:
            assert self._expected is not None
            found = _core.judgement_of_counts(counts, self._expected, self._window.numbers)
        self._analysis = analysis_of(found)

    @property
    def peak(self) -> Peak:
        """The highest bin: `count` and `center_ps`.

        Examples
        --------
        >>> orvo_timing.xcorr_histogram([0], [7], range_ps=20, bin_ps=5).peak.center_ps
        5
        """
        return Peak(*_core.figures(self.bin_center_ps, self.counts)[:2])

    @property
    def rms_ps(self) -> float:
        """Standard deviation of everything in view, background included; 0 without counts.

        Examples
        --------
        >>> orvo_timing.xcorr_histogram([0, 1000], [10, 1020], range_ps=50, bin_ps=10).rms_ps
        5.0
        """
        return self.moments.sigma_ps

    @property
    def moments(self) -> Moments:
        """Sum, mean, standard deviation, and full width at half maximum of the Gaussian that has them.

        Examples
        --------
        >>> orvo_timing.xcorr_histogram([0, 1000], [10, 1020], range_ps=50, bin_ps=10).moments.mean_ps
        15.0
        """
        return Moments(*_core.figures(self.bin_center_ps, self.counts)[2:])

    @property
    def expected(self) -> NDArray[np.float64]:
        """Pairs of unrelated tags in each bin, from the tags on either channel and the time both were recorded.

        Examples
        --------
        >>> a, b = [0, 2_000_000, 4_000_000], [1_000_000, 3_000_000]
        >>> orvo_timing.xcorr_histogram(a, b, range_ps=1000, bin_ps=1000).expected.round(4)
        array([0.0005, 0.0009, 0.0005])
        """
        if self._expected is None:
            self._judge()
        assert self._expected is not None
        return self._expected

    @property
    def g2(self) -> NDArray[np.float64]:
        """Normalised correlation of each bin, counts / expected: 1 for unrelated light, NaN where nothing is expected.

        Examples
        --------
        >>> a, b = [0, 2_000_000, 4_000_000], [1_000_000, 3_000_000]
        >>> orvo_timing.xcorr_histogram(a, b, range_ps=1000, bin_ps=1000).g2
        array([0., 0., 0.])
        """
        return _core.normalised_counts(_arguments.times(self.counts, "counts"), self.expected)[0]

    @property
    def g2_error(self) -> NDArray[np.float64]:
        """Standard deviation of `g2`; below 10 counts half of the 68 % interval."""
        return _core.normalised_counts(_arguments.times(self.counts, "counts"), self.expected)[1]

    @property
    def analysis(self) -> Analysis:
        """Is the peak real, where is it, how wide, how many pairs? See `Analysis`.

        Examples
        --------
        >>> a = np.arange(5000) * 1_000_003
        >>> b = a + np.random.default_rng(1).normal(160, 40, a.size).astype(int)
        >>> found = orvo_timing.xcorr_histogram(a, b, range_ps=2000, bin_ps=10).analysis
        >>> found.verdict, found.significant, abs(found.peak.place_ps.value - 160) < 3
        ('peak', True, True)
        """
        if self._analysis is None:
            self._judge()
        assert self._analysis is not None
        return self._analysis

    def plot(self, ax: matplotlib.axes.Axes | None = None) -> matplotlib.axes.Axes:
        """Draw the counts over the delay. Needs matplotlib.

        Parameters
        ----------
        ax : matplotlib.axes.Axes, optional
            Where to draw; a new figure without it.

        Returns
        -------
        matplotlib.axes.Axes

        Raises
        ------
        ImportError
            matplotlib is not installed.
        """
        if ax is None:
            from matplotlib import pyplot

            ax = pyplot.subplots()[1]
        ax.stairs(self.counts, np.append(self.bin_center_ps, self.bin_center_ps[-1] + self.bin_ps) - self.bin_ps / 2)
        ax.set_xlabel("B - A" + (f" - {self.offset_ps}" if self.offset_ps else "") + " / ps")
        ax.set_ylabel(f"pairs per {self.bin_ps} ps")
        return ax

    def to_dataframe(self) -> pandas.DataFrame:
        """The bins as a table with the columns ``bin_center_ps`` and ``counts``. Needs pandas.

        Returns
        -------
        pandas.DataFrame

        Raises
        ------
        ImportError
            pandas is not installed.
        """
        import pandas

        return pandas.DataFrame({"bin_center_ps": self.bin_center_ps, "counts": self.counts})

    def __add__(self, other: Histogram) -> Histogram:
        if not isinstance(other, Histogram):
            return NotImplemented
        if self._window != other._window:
            raise ValueError(f"other: a histogram of another window, {other!r}")
        expected = self.expected + other.expected
        return Histogram(self.bin_center_ps, self.counts + other.counts, self._window, expected=expected)

    def __getstate__(self) -> dict[str, Any]:
        """Travels without its lists."""
        self.analysis  # noqa: B018
        return self.__dict__

    def __len__(self) -> int:
        return len(self.counts)

    def __repr__(self) -> str:
        return (
            f"<orvo_timing.Histogram {len(self)} bins of {self.bin_ps} ps about {self.offset_ps} ps, "
            f"{int(self.counts.sum())} pairs>"
        )


def xcorr_histogram(
    a: ArrayLike,
    b: ArrayLike,
    range_ps: SupportsIndex,
    bin_ps: SupportsIndex,
    offset_ps: SupportsIndex = 0,
    *,
    threads: SupportsIndex | None = None,
) -> Histogram:
    """Correlate two lists of times: every pair within the range counts.

    Parameters
    ----------
    a, b : array_like of integers, shape (n,) and (m,)
        Picoseconds, in any order. Contiguous int64 arrays in ascending order are read in place, others are copied.
        They must not be changed meanwhile by another thread.
    range_ps : int
        Differences b - a - `offset_ps` from -range to +range count, both included. At least 1.
    bin_ps : int
        Bin width, at least 1. Differences go to the nearest centre, halves away from zero.
    offset_ps : int
        Taken off every difference.
    threads : int, optional
        At most so many, 1 to 1024; by default as many as there are cores for this process. Short lists take one.

    Returns
    -------
    Histogram

    Raises
    ------
    TypeError
        `a` or `b` does not hold whole numbers, or another argument is none.
    ValueError
        `a` or `b` has not one dimension, or a number is out of its range.
    MemoryError
        More bins than the machine's memory holds.

    Examples
    --------
    >>> times = orvo_timing.open(example).times()
    >>> orvo_timing.xcorr_histogram(times[0], times[1], range_ps=500, bin_ps=8, offset_ps=160).peak
    Peak(count=1000, center_ps=0)
    """
    window = _Window.checked(range_ps, bin_ps, offset_ps)
    most = len(os.sched_getaffinity(0)) if threads is None else _arguments.whole(threads, "threads", 1, 1024)
    lists = _arguments.times(a, "a"), _arguments.times(b, "b")
    return Histogram(*_core.histogram(*lists, *window.numbers, most), window, lists=lists)


def estimate_offset_ps(a: ArrayLike, b: ArrayLike) -> int:
    """Estimate the delay of channel B after channel A.

    Parameters
    ----------
    a, b : array_like of integers, shape (n,) and (m,)
        Picoseconds, in any order.

    Returns
    -------
    int
        The median distance from an event of A to its nearest one of B, over at most 4000 events; 0 when a list is
        empty. Finds delays that are short against the mean distance of B's events.

    Raises
    ------
    TypeError, ValueError
        As `xcorr_histogram`.

    Examples
    --------
    >>> times = orvo_timing.open(example).times()
    >>> orvo_timing.estimate_offset_ps(times[0], times[1])
    160
    """
    return _core.estimate_offset_ps(_arguments.times(a, "a"), _arguments.times(b, "b"))


class XcorrStream:
    """Correlates pairs of channels while the tags go by, in a few MiB whatever the length of the stream.

    Parameters
    ----------
    pairs : sequence of (int, int)
        Channels A and B of each pair.
    range_ps, bin_ps, offset_ps : int
        As for `xcorr_histogram`.
    reach_ps : int
        Tags that are at most so far before the latest one are always counted.

    Attributes
    ----------
    late_tags : int
        Tags that came too late to be counted. As long as it is 0, counts are those of `xcorr_histogram`.
    waiting : int
        Tags that are held at the moment.

    Raises
    ------
    TypeError, ValueError, MemoryError
        As `xcorr_histogram`; `pairs` holds channels from 0 to 3.

    Examples
    --------
    >>> stream = orvo_timing.XcorrStream([(0, 1)], range_ps=500, bin_ps=8, offset_ps=160)
    >>> for tags in orvo_timing.open(example).chunks():
    ...     stream.take(tags)
    >>> stream.finish()
    >>> stream.histogram().peak, stream.late_tags
    (Peak(count=1000, center_ps=0), 0)
    """

    def __init__(
        self,
        pairs: Sequence[tuple[SupportsIndex, SupportsIndex]],
        range_ps: SupportsIndex,
        bin_ps: SupportsIndex,
        offset_ps: SupportsIndex = 0,
        *,
        reach_ps: SupportsIndex = _core.default_reach_ps,
    ) -> None:
        self._window = _Window.checked(range_ps, bin_ps, offset_ps)
        self._pairs: list[tuple[int, int]] = []
        for pair in pairs:
            try:
                channel_a, channel_b = pair
            except (TypeError, ValueError):
                raise ValueError(f"pairs: pairs of channels, as in [(0, 1)], not {pair!r}") from None
            self._pairs.append((_arguments.channel(channel_a, "pairs"), _arguments.channel(channel_b, "pairs")))
        if not self._pairs:
            raise ValueError("pairs: at least one")
        reach = _arguments.whole(reach_ps, "reach_ps", 0, _MOST_REACH)
        self._stream = _core.XcorrStream([(*pair, *self._window.numbers) for pair in self._pairs], reach)

    def take(self, tags: ArrayLike) -> None:
        """Take a piece of the stream, of any channels and any length.

        Parameters
        ----------
        tags : ndarray with the fields channel and time_ps, shape (n,)
            As `Capture.chunks` and `Decoder.feed` give them. An array of TAG_DTYPE is read in place.

        Raises
        ------
        TypeError, ValueError
            `tags` is no such array, or has channels beyond 3.
        """
        self._stream.take(_arguments.tags(tags))

    def take_capture(self, capture: Capture, *, progress: bool = False) -> None:
        """Take a whole capture without a list of its tags.

        Parameters
        ----------
        capture : Capture
        progress : bool
            Show a bar, where tqdm is installed.

        Examples
        --------
        >>> stream = orvo_timing.XcorrStream([(1, 0)], range_ps=500, bin_ps=8, offset_ps=-160)
        >>> stream.take_capture(orvo_timing.open(example))
        >>> stream.finish()
        >>> stream.histogram()
        <orvo_timing.Histogram 125 bins of 8 ps about -160 ps, 1000 pairs>
        """
        if not isinstance(capture, Capture):
            raise TypeError(f"capture: a Capture, not {type(capture).__name__}")
        file = capture._pass()
        with capture._bar(progress) as tell:
            file.correlate(self._stream, tell)

    def finish(self) -> None:
        """Count what still waits. Every tag after it is late."""
        self._stream.finish()

    def histogram(self, pair: SupportsIndex = 0) -> Histogram:
        """The counts so far, of the pair of that index; what waits may be missing until `finish`."""
        index = _arguments.whole(pair, "pair", 0, len(self._pairs) - 1)
        extent_a, extent_b = (self._stream.extent(channel) for channel in self._pairs[index])
        expected = _core.steady_expectation(extent_a, extent_b, self._window.numbers)
        return Histogram(*self._stream.histogram(index), self._window, expected=expected)

    def tags(self, channel: SupportsIndex) -> int:
        """Tags of a channel so far."""
        return self._stream.extent(_arguments.channel(channel))[2]

    @property
    def late_tags(self) -> int:
        return self._stream.late_tags

    @property
    def waiting(self) -> int:
        return self._stream.waiting
