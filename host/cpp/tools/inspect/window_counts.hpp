#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// Pairs of channels counted in any number of windows, of all tags or of a sample.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <utility>

#include "inspect/time_sample.hpp"
#include "orvo/timing/detail/pair_counting.hpp"
#include "orvo/timing/detail/stream_tails.hpp"
#include "orvo/timing/detail/wide_integer.hpp"
#include "orvo/timing/xcorr_histogram.hpp"
#include "orvo/timing/xcorr_stream.hpp"

namespace {

/// The tags of a sample of A with all of B, in lists in ascending order.
inline orvo::timing::XcorrHistogram count_sample(std::span<const std::int64_t> a_ps,
                                                 std::span<const std::int64_t> b_ps,
                                                 const orvo::timing::XcorrWindow& window, const TimeSample& sample) {
  if (sample.is_all()) return orvo::timing::xcorr_histogram_sorted(a_ps, b_ps, window);
  orvo::timing::XcorrHistogram histogram = orvo::timing::detail::empty_histogram(window);
  orvo::timing::detail::PairCounter counter(window, histogram.counts);
  TimeSample::Int128 counted_ps = orvo::timing::detail::StreamTails::kNever;
  while (const auto stretch = sample.stretch_after(counted_ps)) {
    counter.count(times_in(a_ps, *stretch), b_ps);
    counted_ps = stretch->end_ps;
  }
  counter.flush();
  return histogram;
}

/// The same while the tags go by. A `TagSink` like `XcorrStream`, whose rules for order and memory it shares.
class WindowCounts {
 public:
  WindowCounts() : tails_(orvo::timing::XcorrStream::kDefaultReachPs, orvo::timing::XcorrStream::kSilentAfter) {}

  /// One more window, which is valid, before the first tag.
  void add_window(unsigned a, unsigned b, const orvo::timing::XcorrWindow& window, const TimeSample& sample) {
    tails_.want(a);
    tails_.want(b);
    windows_.emplace_back(a, b, window, sample);
  }

  void begin_chunk(std::size_t most_tags) { tails_.begin_chunk(most_tags); }
  void add(unsigned channel, std::int64_t time_ps) { tails_.add(channel, time_ps); }
  void end_chunk() {
    if (!tails_.end_chunk()) return;
    tails_.settle();
    count_settled();
  }
  void discard_chunk() {}  // times count only once `end_chunk` has committed them

  /// Counts what still waits.
  void finish() {
    tails_.finish();
    count_settled();
  }
  /// Tags that were left out.
  std::uint64_t late_tags() const { return tails_.late_tags(); }
  /// Tags that are held at the moment.
  std::size_t waiting() const { return tails_.waiting(); }
  /// Of the window of that number, once, after the end.
  orvo::timing::XcorrHistogram take(std::size_t window) {
    windows_[window].counter.flush();
    return std::move(windows_[window].histogram);
  }

 private:
  using Int128 = orvo::timing::detail::Int128;

  struct Window {
    Window(unsigned channel_a, unsigned channel_b, const orvo::timing::XcorrWindow& of, const TimeSample& some)
        : a(channel_a),
          b(channel_b),
          window(of),
          sample(some),
          histogram(orvo::timing::detail::empty_histogram(of)) {}

    unsigned a;
    unsigned b;
    orvo::timing::XcorrWindow window;
    TimeSample sample;
    orvo::timing::XcorrHistogram histogram;
    orvo::timing::detail::PairCounter counter{window, histogram.counts};
    Int128 counted_ps = orvo::timing::detail::StreamTails::kNever;  // tags of A before this are done with
  };

  void count_settled() {
    for (Window& window : windows_) {
      count(window);
      tails_.counted_before(window.counted_ps, window.a, window.b, window.window);
    }
    tails_.forget();
  }

  void count(Window& window) const {
    const Int128 until_ps = tails_.countable_ps(window.a, window.b, window.window);
    if (until_ps <= window.counted_ps) return;
    const std::span<const std::int64_t> a_ps = tails_.times(window.a);
    const std::span<const std::int64_t> b_ps = tails_.times(window.b);
    if (window.sample.is_all()) window.counter.count(times_in(a_ps, {window.counted_ps, until_ps}), b_ps);
    auto stretch = window.sample.stretch_after(window.counted_ps);
    for (; stretch && stretch->begin_ps < until_ps; stretch = window.sample.stretch_after(stretch->end_ps)) {
      const TimeSample::Stretch part{std::max(stretch->begin_ps, window.counted_ps),
                                     std::min(stretch->end_ps, until_ps)};
      window.counter.count(times_in(a_ps, part), b_ps);
    }
    window.counted_ps = until_ps;
  }

  orvo::timing::detail::StreamTails tails_;
  std::deque<Window> windows_;  // counters hold on to their histograms, which therefore must not move
};

}  // namespace
