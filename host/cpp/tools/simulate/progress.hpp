#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
#include <chrono>
#include <cstdint>
#include <ostream>

namespace {

/// A line that tells how far a long work has come: from its second second on, four times a second, over and over
/// itself.
class Progress {
 public:
  using Clock = std::chrono::steady_clock;

  /// Silent unless `shown`.
  Progress(std::ostream& out, bool shown) : out_(out), shown_(shown) {}
  ~Progress() {
    if (written_) out_ << '\r' << "                    " << '\r' << std::flush;
  }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// `done` of 1.
  void tell(double done, Clock::time_point now = Clock::now()) {
    if (!shown_ || now < next_) return;
    next_ = now + std::chrono::milliseconds(250);
    written_ = true;
    out_ << "\rsimulating: " << static_cast<int>(100 * done) << " %" << std::flush;
  }

 private:
  std::ostream& out_;
  bool shown_;
  bool written_ = false;
  Clock::time_point next_ = Clock::now() + std::chrono::seconds(1);
};

}  // namespace
