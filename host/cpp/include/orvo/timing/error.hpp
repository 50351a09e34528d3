#pragma once
#include <cstdint>
#include <stdexcept>
#include <string>

#include "orvo/timing/version.hpp"

namespace orvo::timing {

inline constexpr std::int32_t kInvalidArgument = -1;  ///< a null pointer, or a limit exceeded
inline constexpr std::int32_t kFileFailure = -2;  ///< a file could not be opened, read or written, or is cut short
inline constexpr std::int32_t kNotACapture = -4;  ///< the file does not start with a capture's magic word
inline constexpr std::int32_t kNotOpen = -6;      ///< the reader or writer has no open file

/// The one exception type of this library: a fixed message, and a code from the list above.
class Error : public std::runtime_error {
 public:
  Error(const std::string& message, std::int32_t error_code) : std::runtime_error(message), code(error_code) {}
  Error(const Error&) = default;
  Error& operator=(const Error&) = default;
  ~Error() override = default;

  std::int32_t code;
};

}  // namespace orvo::timing
