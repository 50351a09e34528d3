#pragma once
// What the packed decoder writes to standard error.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

namespace orvo::test {

/// Sets ORVO_PACKED_DEBUG for its lifetime.
class PackedDebugOn {
 public:
  explicit PackedDebugOn(const char* value = "1") { ::setenv("ORVO_PACKED_DEBUG", value, 1); }
  PackedDebugOn(const PackedDebugOn&) = delete;
  PackedDebugOn& operator=(const PackedDebugOn&) = delete;
  ~PackedDebugOn() { ::unsetenv("ORVO_PACKED_DEBUG"); }
};

/// The debug log on for its lifetime, and standard error kept from the screen.
class PackedDebugUnseen {
 public:
  PackedDebugUnseen() { testing::internal::CaptureStderr(); }
  PackedDebugUnseen(const PackedDebugUnseen&) = delete;
  PackedDebugUnseen& operator=(const PackedDebugUnseen&) = delete;
  ~PackedDebugUnseen() { testing::internal::GetCapturedStderr(); }

 private:
  PackedDebugOn on_;
};

/// All that `action` writes to standard error.
template <class Action>
std::string standard_error_of(Action&& action) {
  testing::internal::CaptureStderr();
  action();
  return testing::internal::GetCapturedStderr();
}

/// The same with the debug log on.
template <class Action>
std::string debug_output_of(Action&& action) {
  const PackedDebugOn on;
  return standard_error_of(action);
}

}  // namespace orvo::test
