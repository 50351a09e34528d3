// Captures with dates beyond a 64-bit count of nanoseconds from 1970: before 1677 and from 2262 on.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdint>
#include <filesystem>
#include <ostream>
#include <stdexcept>
#include <string>
#include <system_error>

#include "support/product_root.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;

// Seconds from 1970.
struct Date {
  const char* name;
  std::int64_t seconds;

  friend void PrintTo(const Date& date, std::ostream* out) { *out << "the year " << date.name; }
};

class FarDates : public ProductRoot, public testing::WithParamInterface<Date> {
 protected:
  FarDates() {
    // Memory file systems store any date; others only some.
    std::string pattern =
        (fs::is_directory("/dev/shm") ? "/dev/shm" : fs::temp_directory_path().string()) + "/orvo_test_XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed: " + pattern);
    place_ = pattern;
    fs::create_directories(logs().parent_path());
    fs::create_directory_symlink(place_, logs());  // so that it is a capture directory, too
  }
  ~FarDates() override {
    std::error_code ignored;
    fs::remove_all(place_, ignored);
  }
  // Makes a capture with that date; false if the file system cannot store it.
  bool make_far_capture() const {
    write_file(place_ / "far.tagcap", single_pair_capture());
    return set_modified(place_ / "far.tagcap", GetParam().seconds);
  }
  fs::path logs() const { return cwd() / "logs/stream_file_verify"; }

  fs::path place_;
};

TEST_P(FarDates, AreAnUnknownAge) {
  if (!make_far_capture()) GTEST_SKIP() << "the file system has no such date";
  const ProgramResult result = verify({(place_ / "far.tagcap").string(), "--out-prefix=o"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_THAT(result.out, testing::HasSubstr("\ninput_age_seconds=-1\n"));
  EXPECT_THAT(result.out, testing::Not(testing::HasSubstr("warning")));
}

TEST_P(FarDates, AreSkippedBySearching) {
  if (!make_far_capture()) GTEST_SKIP() << "the file system has no such date";
  EXPECT_THAT(verify({"--out-prefix=o"}).out, testing::StartsWith("No stream capture found; "));
  write_file(place_ / "near.tagcap", single_pair_capture());
  fs::remove_all(cwd() / "VRN-B");
  EXPECT_THAT(verify({"--out-prefix=o"}).out, testing::StartsWith(announcement(logs() / "near.tagcap", cwd() / "o")));
}

// The standard library counts file times from 2174, so they may end after 1677; they must not wrap to a date ahead.
class OldDates : public FarDates {};

TEST_P(OldDates, AreNotNewerThanToday) {
  if (!make_far_capture()) GTEST_SKIP() << "the file system has no such date";
  write_file(place_ / "near.tagcap", single_pair_capture());
  EXPECT_THAT(verify({"--out-prefix=o"}).out, testing::StartsWith(announcement(logs() / "near.tagcap", cwd() / "o")));
}

INSTANTIATE_TEST_SUITE_P(Years, OldDates, testing::Values(Date{"1700", -8'520'000'000}, Date{"1800", -5'364'000'000}),
                         [](const auto& named) { return std::string("Year") + named.param.name; });

INSTANTIATE_TEST_SUITE_P(Years, FarDates,
                         testing::Values(Date{"1336", -20'000'000'000}, Date{"1676", -9'250'000'000},
                                         Date{"2263", 9'250'000'000}, Date{"2300", 10'413'792'000},
                                         Date{"2603", 20'000'000'000}),
                         [](const auto& named) { return std::string("Year") + named.param.name; });

}  // namespace
