"""Time-tag captures as NumPy arrays: decode, correlate, judge, write.

Times are int64 picoseconds, tags are structured arrays of `TAG_DTYPE`. The work is done by the C++ library, without
the interpreter's lock; Ctrl-C ends it.

>>> import orvo_timing
>>> with orvo_timing.open(example) as capture:
...     a, b = capture.times()[:2]
>>> orvo_timing.xcorr_histogram(a, b, range_ps=500, bin_ps=8, offset_ps=160).peak
Peak(count=1000, center_ps=0)

`open`, `Capture` read files, `inspect` tells whether they are healthy, `Decoder` live data, `write`, `convert` and `simulate` make files; `xcorr_histogram`, `XcorrStream` and
`estimate_offset_ps` correlate.
"""

from ._analysis import Analysis, Comb, CorrelationPeak, Estimate
from ._arguments import TAG_DTYPE
from ._capture import Capture, open
from ._core import version as __version__
from ._decoder import Decoder
from ._error import Error
from ._header import Header
from ._histogram import Histogram, Moments, Peak, XcorrStream, estimate_offset_ps, xcorr_histogram
from ._programs import convert, inspect, simulate
from ._writing import Written, merge_times, write

__all__ = [
    "TAG_DTYPE",
    "Analysis",
    "Capture",
    "Comb",
    "CorrelationPeak",
    "Decoder",
    "Error",
    "Estimate",
    "Header",
    "Histogram",
    "Moments",
    "Peak",
    "Written",
    "XcorrStream",
    "__version__",
    "convert",
    "estimate_offset_ps",
    "inspect",
    "merge_times",
    "open",
    "simulate",
    "write",
    "xcorr_histogram",
]
