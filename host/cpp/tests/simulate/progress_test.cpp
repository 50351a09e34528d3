#include "simulate/progress.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <sstream>

namespace {

using namespace std::chrono_literals;

TEST(Progress, IsSilentUnlessShown) {
  std::ostringstream out;
  {
    Progress progress(out, false);
    progress.tell(0.5, Progress::Clock::now() + 1h);
  }
  EXPECT_EQ(out.str(), "");
}

TEST(Progress, IsSilentAboutShortWork) {
  std::ostringstream out;
  {
    Progress progress(out, true);
    progress.tell(0.5, Progress::Clock::now() + 900ms);
  }
  EXPECT_EQ(out.str(), "");
}

TEST(Progress, WritesOverItselfFourTimesASecond) {
  std::ostringstream out;
  Progress progress(out, true);
  const auto start = Progress::Clock::now() + 2s;
  progress.tell(0.25, start);
  progress.tell(0.26, start + 200ms);
  progress.tell(0.999, start + 250ms);
  EXPECT_EQ(out.str(), "\rsimulating: 25 %\rsimulating: 99 %");
}

TEST(Progress, LeavesAnEmptyLine) {
  std::ostringstream out;
  {
    Progress progress(out, true);
    progress.tell(0.5, Progress::Clock::now() + 2s);
  }
  EXPECT_EQ(out.str(), "\rsimulating: 50 %\r                    \r");
}

}  // namespace
