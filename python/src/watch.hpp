#pragma once
#include <pybind11/pybind11.h>

#include <chrono>
#include <cstdint>
#include <utility>

namespace orvo::timing::python {

namespace py = pybind11;

/// Looks after the interpreter during work that goes on without its lock: signals are handled, progress is told. Made
/// and destroyed with the lock held.
class Watch {
 public:
  /// `progress` is called with what is done so far, or is None.
  explicit Watch(py::object progress = py::none()) : progress_(std::move(progress)) {}

  /// To be called every few milliseconds, without the lock. Throws what a signal's handler or `progress` raises.
  void look(std::uint64_t done) {
    const auto now = Clock::now();
    if (now < next_) return;
    const py::gil_scoped_acquire locked;
    if (PyErr_CheckSignals() != 0) throw py::error_already_set();
    if (!progress_.is_none()) progress_(done);
    next_ = Clock::now() + kPause;
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::milliseconds kPause{20};

  py::object progress_;
  Clock::time_point next_ = Clock::now() + kPause;
};

}  // namespace orvo::timing::python
