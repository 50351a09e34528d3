#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <new>
#include <span>
#include <tuple>
#include <utility>
#include <vector>

#include "arrays.hpp"
#include "bindings.hpp"
#include "orvo/timing/offset_estimate.hpp"
#include "orvo/timing/sorted_times.hpp"
#include "orvo/timing/xcorr_histogram.hpp"
#include "watch.hpp"
#include "xcorr_stream_binding.hpp"

namespace orvo::timing::python {

namespace {

/// Refuses bins that would not fit the machine: the system might grant their memory and then end the process.
void require_room(const XcorrWindow& window) {
  constexpr std::uint64_t kBinBytes = 40;
  const auto physical = static_cast<std::uint64_t>(std::max<long>(::sysconf(_SC_PHYS_PAGES), 0)) *
                        static_cast<std::uint64_t>(std::max<long>(::sysconf(_SC_PAGESIZE), 0));
  const auto half = static_cast<std::uint64_t>(window.range_ps) / static_cast<std::uint64_t>(window.bin_ps);
  if (half < physical / kBinBytes / 2) return;
  PyErr_SetString(PyExc_MemoryError, "range_ps, bin_ps: more bins than this machine's memory holds");
  throw py::error_already_set();
}

/// Adds the pairs of two sorted lists to the counts, in pieces of some ten milliseconds. `between` is called after
/// each and ends the counting by throwing.
template <class Between>
void count_in_pieces(std::span<const std::int64_t> a_ps, std::span<const std::int64_t> b_ps,
                     const XcorrWindow& window, std::vector<std::int64_t>& counts, Between&& between) {
  using Clock = std::chrono::steady_clock;
  std::size_t piece = counts.size() < 100'000 ? 1 << 8 : 1 << 16;  // adding up many bins takes time, too
  while (!a_ps.empty()) {
    const auto begin = Clock::now();
    const auto now = a_ps.first(std::min(piece, a_ps.size()));
    const XcorrHistogram part = xcorr_histogram_sorted(now, b_ps, window);
    for (std::size_t bin = 0; bin < counts.size(); ++bin) counts[bin] += part.counts[bin];
    a_ps = a_ps.subspan(now.size());
    between();
    const auto taken = Clock::now() - begin;
    if (taken < std::chrono::milliseconds(4)) piece *= 16;
    if (taken > std::chrono::milliseconds(60)) piece = std::max<std::size_t>(piece / 4, 64);
  }
}

/// What ends the threads whose results nobody waits for.
struct Abandoned {};

/// As `xcorr_histogram`, on several threads, of which this one looks for signals.
XcorrHistogram watched_histogram(std::span<const std::int64_t> a_ps, std::span<const std::int64_t> b_ps,
                                 const XcorrWindow& window, std::size_t threads) {
  Watch watch;
  const py::gil_scoped_release unlocked;
  const auto elsewhere = threads > 1 ? std::launch::async : std::launch::deferred;
  auto waiting_b = std::async(elsewhere, [&] { return std::make_unique<SortedTimes>(b_ps); });
  const SortedTimes sorted_a(a_ps);
  const std::unique_ptr<SortedTimes> sorted_b = waiting_b.get();
  const std::span<const std::int64_t> a = sorted_a;
  const std::span<const std::int64_t> b = *sorted_b;

  const auto part_of_a = [&](std::size_t part) {
    const std::size_t first = a.size() / threads * part;
    return part + 1 < threads ? a.subspan(first, a.size() / threads) : a.subspan(first);
  };
  XcorrHistogram sum = xcorr_histogram_sorted({}, {}, window);
  std::vector<std::vector<std::int64_t>> counts(threads, std::vector<std::int64_t>(sum.counts.size()));
  std::atomic<bool> abandoned = false;
  std::vector<std::future<void>> helpers;  // the last to be made: it waits for the threads before the rest is gone
  try {
    for (std::size_t part = 1; part < threads; ++part) {
      helpers.push_back(std::async(std::launch::async, [&, part] {
        count_in_pieces(part_of_a(part), b, window, counts[part], [&] {
          if (abandoned) throw Abandoned{};
        });
      }));
    }
    count_in_pieces(part_of_a(0), b, window, counts[0], [&] { watch.look(0); });
    for (std::future<void>& helper : helpers) {
      while (helper.wait_for(std::chrono::milliseconds(10)) != std::future_status::ready) watch.look(0);
      helper.get();
    }
  } catch (...) {
    abandoned = true;
    throw;
  }
  for (const auto& part : counts) {
    for (std::size_t bin = 0; bin < part.size(); ++bin) sum.counts[bin] += part[bin];
  }
  return sum;
}

py::tuple arrays_of(XcorrHistogram&& histogram) {
  return py::make_tuple(array_of(std::move(histogram.bin_center_ps)), array_of(std::move(histogram.counts)));
}

py::tuple histogram(const py::array& a, const py::array& b, std::int64_t range_ps, std::int64_t bin_ps,
                    std::int64_t offset_ps, std::size_t threads) {
  const XcorrWindow window{range_ps, bin_ps, offset_ps};
  if (!window.is_valid()) throw py::value_error("range_ps, bin_ps: at least 1");
  require_room(window);
  const auto a_ps = times_of(a, "a");
  constexpr std::size_t kWorthAThread = 50'000;  // events of A
  constexpr std::int64_t kManyBins = 100'000;    // which each thread has of its own
  const std::size_t most = window.range_ps / window.bin_ps < kManyBins ? a_ps.size() / kWorthAThread : 1;
  return arrays_of(watched_histogram(a_ps, times_of(b, "b"), window,
                                     std::clamp<std::size_t>(most, 1, std::max<std::size_t>(threads, 1))));
}

std::int64_t offset(const py::array& a, const py::array& b) {
  const auto a_ps = times_of(a, "a");
  const auto b_ps = times_of(b, "b");
  const py::gil_scoped_release unlocked;
  return estimate_offset_ps(a_ps, b_ps);
}

/// Peak count and place, sum of counts, mean, standard deviation, full width at half maximum.
py::tuple figures(const py::array& centers, const py::array& counts) {
  const auto centers_ps = times_of(centers, "bin_center_ps");
  const auto numbers = times_of(counts, "counts");
  const XcorrHistogram histogram{{centers_ps.begin(), centers_ps.end()}, {numbers.begin(), numbers.end()}};
  const XcorrPeak peak = histogram.peak();
  const XcorrMoments moments = xcorr_moments(histogram);
  return py::make_tuple(peak.count, peak.center_ps, moments.total, moments.mean_ps, moments.sigma_ps,
                        moments.fwhm_ps);
}

using PairTuple = std::tuple<unsigned, unsigned, std::int64_t, std::int64_t, std::int64_t>;

std::unique_ptr<SharedXcorrStream> make_stream(const std::vector<PairTuple>& tuples, std::int64_t reach_ps) {
  std::vector<XcorrPair> pairs;
  for (const auto& [a, b, range_ps, bin_ps, offset_ps] : tuples) {
    pairs.push_back({a, b, {range_ps, bin_ps, offset_ps}});
    if (!pairs.back().window.is_valid()) throw py::value_error("range_ps, bin_ps: at least 1");
    require_room(pairs.back().window);
  }
  return std::make_unique<SharedXcorrStream>(pairs, reach_ps);
}

void take(SharedXcorrStream& stream, const py::array& array) {
  std::span<const TimeTag> tags = tags_of(array, "tags");
  Watch watch;
  const py::gil_scoped_release unlocked;
  const std::scoped_lock alone(stream.mutex());
  constexpr std::size_t kPiece = 1 << 18;
  while (!tags.empty()) {
    const auto piece = tags.first(std::min(kPiece, tags.size()));
    stream.begin_chunk(piece.size());
    for (const TimeTag& tag : piece) stream.add(tag.channel, tag.time_ps);
    stream.end_chunk();
    tags = tags.subspan(piece.size());
    watch.look(0);
  }
}

void finish(SharedXcorrStream& stream) {
  const py::gil_scoped_release unlocked;
  const std::scoped_lock alone(stream.mutex());
  stream.stream().finish();
}

py::tuple histogram_of(SharedXcorrStream& stream, std::size_t pair) {
  XcorrHistogram copy;
  {
    const py::gil_scoped_release unlocked;
    const std::scoped_lock alone(stream.mutex());
    copy = stream.stream().histogram(pair);
  }
  return arrays_of(std::move(copy));
}

/// Of a channel the first time, the last and the number of tags, whether late or not.
py::tuple extent_of(SharedXcorrStream& stream, unsigned channel) {
  if (channel >= kChannels) throw py::index_error("channels are 0 to 3");
  ChannelExtent extent;
  {
    const py::gil_scoped_release unlocked;
    const std::scoped_lock alone(stream.mutex());
    extent = stream.extent(channel);
  }
  return py::make_tuple(extent.first_ps, extent.last_ps, extent.tags);
}

std::uint64_t late_tags(SharedXcorrStream& stream) {
  const py::gil_scoped_release unlocked;
  const std::scoped_lock alone(stream.mutex());
  return stream.stream().late_tags();
}

std::size_t waiting(SharedXcorrStream& stream) {
  const py::gil_scoped_release unlocked;
  const std::scoped_lock alone(stream.mutex());
  return stream.stream().waiting();
}

}  // namespace

void bind_correlation(py::module_& module) {
  module.def("histogram", &histogram);
  module.def("estimate_offset_ps", &offset);
  module.def("figures", &figures);
  module.attr("default_reach_ps") = XcorrStream::kDefaultReachPs;
  py::class_<SharedXcorrStream>(module, "XcorrStream")
      .def(py::init(&make_stream))
      .def("take", &take)
      .def("finish", &finish)
      .def("histogram", &histogram_of)
      .def("extent", &extent_of)
      .def_property_readonly("late_tags", &late_tags)
      .def_property_readonly("waiting", &waiting);
}

}  // namespace orvo::timing::python
