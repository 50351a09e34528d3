#pragma once
// The version of this library and of the programs that come with it, by the rules of semantic versioning. This is its
// one place: the build, and with it the installed packages, take it from here.
#if __cplusplus < 202002L
#error "orvo::timing needs C++20: compile with -std=c++20"
#endif

#include <string_view>

#define ORVO_TIMING_VERSION_MAJOR 1
#define ORVO_TIMING_VERSION_MINOR 0
#define ORVO_TIMING_VERSION_PATCH 0

/// One number that grows with each version, for #if: 10203 is 1.2.3.
#define ORVO_TIMING_VERSION \
  (ORVO_TIMING_VERSION_MAJOR * 10000 + ORVO_TIMING_VERSION_MINOR * 100 + ORVO_TIMING_VERSION_PATCH)

#define ORVO_TIMING_TEXT_OF(number) #number
#define ORVO_TIMING_VERSION_TEXT(major, minor, patch) \
  ORVO_TIMING_TEXT_OF(major) "." ORVO_TIMING_TEXT_OF(minor) "." ORVO_TIMING_TEXT_OF(patch)

namespace orvo::timing {

/// The version as people write it: "1.2.3".
inline constexpr std::string_view kVersion =
    ORVO_TIMING_VERSION_TEXT(ORVO_TIMING_VERSION_MAJOR, ORVO_TIMING_VERSION_MINOR, ORVO_TIMING_VERSION_PATCH);

}  // namespace orvo::timing

#undef ORVO_TIMING_VERSION_TEXT
#undef ORVO_TIMING_TEXT_OF
