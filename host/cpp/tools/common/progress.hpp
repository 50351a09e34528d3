#pragma once
// What the programs share: file-local throughout.
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <utility>

#include "common/units.hpp"

namespace {

/// A line that shows the progress of long work. It appears after the first second and is overwritten four times a
/// second; the destructor erases it.
class Progress {
 public:
  using Clock = std::chrono::steady_clock;

  /// `task` as in "converting". Silent unless `shown`: pass whether `out` is a terminal.
  Progress(std::ostream& out, bool shown, std::string task, Clock::time_point start = Clock::now())
      : out_(out), shown_(shown), task_(std::move(task)), start_(start), next_(start + std::chrono::seconds(1)) {}
  ~Progress() {
    if (width_ != 0) out_ << '\r' << std::string(width_, ' ') << '\r' << std::flush;
  }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// `done` of 1: "simulating: 25 %".
  void tell(double done, Clock::time_point now = Clock::now()) {
    if (is_due(now)) show(percent(done));
  }

  /// What is being done, where nobody knows how much is left: "correlating: pass 3, 25 %".
  void tell_state(const std::string& state, Clock::time_point now = Clock::now()) {
    if (is_due(now)) show(state);
  }

  /// As `tell`, with the rate so far and the time it leaves: "converting: 25 %, 310 MiB/s, 3.20 s left". Where the
  /// total is not known, 0, it tells how much was done: "converting: 1.50 GiB, 310 MiB/s".
  void tell_bytes(std::uint64_t done, std::uint64_t total, Clock::time_point now = Clock::now()) {
    if (!is_due(now)) return;
    const double bytes_per_second = static_cast<double>(done) / std::chrono::duration<double>(now - start_).count();
    const std::string rate = text_of_bytes(static_cast<std::uint64_t>(bytes_per_second)) + "/s";
    if (total == 0 && done != 0) {
      show(text_of_bytes(done) + ", " + rate);
      return;
    }
    const auto left = static_cast<double>(total - std::min(done, total));
    std::string line = percent(total == 0 ? 1 : 1 - left / static_cast<double>(total));
    if (done != 0) {
      line += ", " + rate + ", " + text_of_time_ps(left / bytes_per_second * 1e12) + " left";
    }
    show(line);
  }

 private:
  static std::string percent(double done) { return std::to_string(static_cast<int>(100 * done)) + " %"; }

  bool is_due(Clock::time_point now) {
    if (!shown_ || now < next_) return false;
    next_ = now + std::chrono::milliseconds(250);
    return true;
  }

  void show(const std::string& state) {
    const std::string line = task_ + ": " + state;
    const std::size_t rest = width_ - std::min(width_, line.size());
    width_ = std::max(width_, line.size());
    out_ << '\r' << line << std::string(rest, ' ') << std::flush;
  }

  std::ostream& out_;
  bool shown_;
  std::string task_;
  Clock::time_point start_;
  Clock::time_point next_;
  std::size_t width_ = 0;  // of the longest line so far
};

}  // namespace
