#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <algorithm>
#include <cstdint>
#include <limits>
#include <numeric>
#include <span>

#include "inspect/interval_bins.hpp"
#include "inspect/longest_steps.hpp"
#include "inspect/multiples.hpp"
#include "orvo/timing/detail/device_time.hpp"
#include "orvo/timing/detail/wide_integer.hpp"

namespace {

/// Steps that change nothing but counts and sums of a channel: no new shortest or longest one, none that is a
/// multiple of less. None at all to begin with.
struct PlainSteps {
  std::uint64_t least_ps = std::numeric_limits<std::int64_t>::max();
  std::uint64_t most_ps = 0;
  Multiples grid;
};

/// What the tags of one channel tell, in the memory of a few counters. A step is the time from the channel's previous
/// tag to the next one, in stream order.
class ChannelFacts {
 public:
  /// `loss_inside`: something of the payload was lost since the channel's previous tag.
  void add(std::int64_t time_ps, bool loss_inside) {
    if (tags_++ == 0) {
      first_ps_ = last_ps_ = latest_ps_ = time_ps;
      return;
    }
    const std::uint64_t step = static_cast<std::uint64_t>(time_ps) - static_cast<std::uint64_t>(latest_ps_);
    if (time_ps > latest_ps_) {
      add_forward(step, latest_ps_);
      last_ps_ = std::max(last_ps_, time_ps);
    } else {
      add_other(0 - step, time_ps);
    }
    rank(step, time_ps >= latest_ps_, loss_inside);
    latest_ps_ = time_ps;
  }
  /// The plain steps that may come next.
  PlainSteps plain_steps() const {
    if (!candidate_ok_ || !previous_onward_ || grid_ps_ == 0) return {};
    const std::uint64_t most = std::min({longest_ranked_.limit_ps(), longest_.step_ps, kPeriodPs / 4 - 1});
    if (candidate_.step_ps > most) return {};
    return {shortest_ps_, most, Multiples(grid_ps_)};
  }
  /// The same as `add` for tags whose steps are all plain: how many they are, the last of them, and the step to it.
  /// Their steps are counted in `intervals()` by the caller.
  void add_plain(std::uint64_t tags, std::int64_t last_ps, std::uint64_t last_step_ps) {
    const std::uint64_t sum = static_cast<std::uint64_t>(last_ps) - static_cast<std::uint64_t>(latest_ps_);
    tags_ += tags;
    ranked_ += tags;
    ranked_sum_ps_ += candidate_.step_ps;
    ranked_sum_ps_ += sum - last_step_ps;
    latest_ps_ = last_ps;
    last_ps_ = std::max(last_ps_, last_ps);
    candidate_ = {last_step_ps, static_cast<std::int64_t>(static_cast<std::uint64_t>(last_ps) - last_step_ps)};
  }
  IntervalCounts& intervals() { return intervals_; }
  /// No more tags: the last step has nothing after it that could tell against it.
  void finish() {
    if (candidate_ok_) take_ranked();
    candidate_ok_ = false;
  }

  std::uint64_t tags() const { return tags_; }
  std::uint64_t steps() const { return tags_ == 0 ? 0 : tags_ - 1; }
  /// Smallest and largest time.
  std::int64_t first_ps() const { return first_ps_; }
  std::int64_t last_ps() const { return last_ps_; }
  /// The last in stream order.
  std::int64_t latest_ps() const { return latest_ps_; }

  std::uint64_t backward_steps() const { return backward_steps_; }
  std::uint64_t largest_backward_step_ps() const { return largest_backward_ps_; }
  std::uint64_t equal_times() const { return equal_times_; }
  std::uint64_t forward_steps() const { return steps() - backward_steps_ - equal_times_; }
  /// Of the forward steps; 0 without one.
  std::uint64_t shortest_ps() const { return forward_steps() == 0 ? 0 : shortest_ps_; }
  std::uint64_t longest_ps() const { return longest_.step_ps; }
  std::int64_t longest_start_ps() const { return longest_.start_ps; }
  /// Greatest common divisor of all steps; 0 without one.
  std::uint64_t grid_ps() const { return grid_ps_; }
  const IntervalCounts& intervals() const { return intervals_; }

  /// Steps that stand for how the channel clicks: the step and both its neighbours go forward or stay, and nothing
  /// was lost inside. Complete after `finish`.
  std::uint64_t ranked() const { return ranked_; }
  double ranked_sum_ps() const { return static_cast<double>(ranked_sum_ps_); }
  double mean_ps() const { return ranked_ == 0 ? 0 : ranked_sum_ps() / static_cast<double>(ranked_); }
  std::span<const LongStep> longest_ranked() const { return longest_ranked_.steps(); }
  /// Two steps in a row that make a device period, as when one bit of one time flips. Neither is short.
  bool period_in_two_steps() const { return period_in_two_steps_; }

 private:
  static constexpr std::uint64_t kPeriodPs = orvo::timing::detail::kDevicePeriodPs;

  void add_forward(std::uint64_t step, std::int64_t start_ps) {
    shortest_ps_ = std::min(shortest_ps_, step);
    if (step > longest_.step_ps) longest_ = {step, start_ps};
    ++intervals_[interval_bin(step)];
    divide_grid(step);
  }

  void add_other(std::uint64_t back, std::int64_t time_ps) {
    if (back == 0) {
      ++equal_times_;
      return;
    }
    ++backward_steps_;
    largest_backward_ps_ = std::max(largest_backward_ps_, back);
    divide_grid(back);
    first_ps_ = std::min(first_ps_, time_ps);
  }

  void divide_grid(std::uint64_t step) {
    if (grid_ps_ == 0 || step % grid_ps_ != 0) grid_ps_ = std::gcd(grid_ps_, step);
  }

  /// Whether a step counts shows at the next one.
  void rank(std::uint64_t step, bool onward, bool loss_inside) {
    if (candidate_ok_ && onward) take_ranked();
    if (step >= kPeriodPs / 4) check_two_steps(step);
    candidate_ok_ = onward && previous_onward_ && !loss_inside;
    candidate_ = {step, latest_ps_};
    previous_onward_ = onward;
  }
  void take_ranked() {
    ++ranked_;
    ranked_sum_ps_ += candidate_.step_ps;
    longest_ranked_.add(candidate_);
  }
  void check_two_steps(std::uint64_t step) {
    if (candidate_.step_ps < kPeriodPs / 4 || candidate_.step_ps > kPeriodPs || step > kPeriodPs) return;
    const std::uint64_t sum = candidate_.step_ps + step;
    if (sum >= kPeriodPs - kPeriodPs / 64 && sum <= kPeriodPs + kPeriodPs / 64) period_in_two_steps_ = true;
  }

  std::uint64_t tags_ = 0;
  std::int64_t first_ps_ = 0;
  std::int64_t last_ps_ = 0;
  std::int64_t latest_ps_ = 0;
  std::uint64_t backward_steps_ = 0;
  std::uint64_t largest_backward_ps_ = 0;
  std::uint64_t equal_times_ = 0;
  std::uint64_t shortest_ps_ = std::numeric_limits<std::uint64_t>::max();
  LongStep longest_;
  std::uint64_t grid_ps_ = 0;
  IntervalCounts intervals_{};

  LongStep candidate_;  // the last step
  bool candidate_ok_ = false;
  bool previous_onward_ = true;
  std::uint64_t ranked_ = 0;
  orvo::timing::detail::Uint128 ranked_sum_ps_ = 0;
  LongestSteps longest_ranked_;
  bool period_in_two_steps_ = false;
};

}  // namespace
