#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <optional>

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

/// When the file was last written, in nanoseconds since 1970; `nullopt` when that cannot be read or lies outside 64
/// bits, before 1677 or after 2262. (std::filesystem's own clock wraps silently for dates before 1882.)
inline std::optional<std::int64_t> written_ns(const std::filesystem::path& path) {
  constexpr std::int64_t kMostSeconds = std::numeric_limits<std::int64_t>::max() / kNanosecondsPerSecond - 1;
  struct ::stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  const std::int64_t seconds = status.st_mtim.tv_sec;
  if (seconds > kMostSeconds || seconds < -kMostSeconds) return std::nullopt;
  return seconds * kNanosecondsPerSecond + status.st_mtim.tv_nsec;
}

/// Whole seconds since the file was last written, negative for a date in the future; -1 when that is unknown.
inline std::int64_t file_age_seconds(const std::filesystem::path& path) {
  using namespace std::chrono;
  const std::optional<std::int64_t> written = written_ns(path);
  if (!written) return -1;
  const std::int64_t now = duration_cast<nanoseconds>(system_clock::now().time_since_epoch()).count();
  // Unsigned: dates may be further apart than 64 bits of signed nanoseconds reach.
  const auto seconds_between = [](std::int64_t from, std::int64_t to) {
    return static_cast<std::int64_t>((static_cast<std::uint64_t>(to) - static_cast<std::uint64_t>(from)) /
                                     kNanosecondsPerSecond);
  };
  return now >= *written ? seconds_between(*written, now) : -seconds_between(now, *written);
}

}  // namespace
