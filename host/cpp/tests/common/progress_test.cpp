#include "common/progress.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <string>

namespace {

using namespace std::chrono_literals;

constexpr Progress::Clock::time_point kStart{1000h};

TEST(Progress, IsSilentUnlessShown) {
  std::ostringstream out;
  {
    Progress progress(out, false, "simulating", kStart);
    progress.tell(0.5, kStart + 1h);
    progress.tell_bytes(1, 2, kStart + 2h);
  }
  EXPECT_EQ(out.str(), "");
}

TEST(Progress, IsSilentAboutShortWork) {
  std::ostringstream out;
  {
    Progress progress(out, true, "simulating", kStart);
    progress.tell(0.5, kStart + 999ms);
    progress.tell_bytes(1, 2, kStart + 999ms);
  }
  EXPECT_EQ(out.str(), "");
}

TEST(Progress, WritesOverItselfFourTimesASecond) {
  std::ostringstream out;
  Progress progress(out, true, "simulating", kStart);
  progress.tell(0.25, kStart + 1000ms);
  progress.tell(0.26, kStart + 1249ms);
  progress.tell(0.999, kStart + 1250ms);
  EXPECT_EQ(out.str(), "\rsimulating: 25 %\rsimulating: 99 %");
}

TEST(Progress, LeavesAnEmptyLine) {
  std::ostringstream out;
  {
    Progress progress(out, true, "simulating", kStart);
    progress.tell(0.5, kStart + 2s);
  }
  EXPECT_EQ(out.str(), "\rsimulating: 50 %\r" + std::string(16, ' ') + "\r");
}

TEST(Progress, TellsAnyState) {
  std::ostringstream out;
  Progress progress(out, true, "correlating", kStart);
  progress.tell_state("pass 1, 99 %", kStart + 999ms);
  progress.tell_state("pass 2, 0 %", kStart + 1000ms);
  progress.tell_state("pass 2, 10 %", kStart + 1249ms);
  progress.tell_state("channels 0 and 1", kStart + 1250ms);
  progress.tell_state("pass 3, 0 %", kStart + 1500ms);
  EXPECT_EQ(out.str(), "\rcorrelating: pass 2, 0 %\rcorrelating: channels 0 and 1\rcorrelating: pass 3, 0 %     ");
}

// 512 MiB in 2 s are 256 MiB/s; what is left of 1536 MiB takes 4 s more.
TEST(Progress, TellsTheRateAndTheTimeThatIsLeft) {
  std::ostringstream out;
  Progress progress(out, true, "converting", kStart);
  progress.tell_bytes(512ull << 20, 1536ull << 20, kStart + 2s);
  EXPECT_EQ(out.str(), "\rconverting: 33 %, 256 MiB/s, 4.00 s left");
}

// A pipe does not say how much is to come.
TEST(Progress, TellsHowMuchWasDoneWhereTheTotalIsNotKnown) {
  std::ostringstream out;
  Progress progress(out, true, "converting", kStart);
  progress.tell_bytes(512ull << 20, 0, kStart + 2s);
  EXPECT_EQ(out.str(), "\rconverting: 512 MiB, 256 MiB/s");
}

TEST(Progress, WipesOutTheEndOfALongerLine) {
  std::ostringstream out;
  {
    Progress progress(out, true, "x", kStart);
    progress.tell_bytes(2'000, 4'000, kStart + 1s);
    progress.tell_bytes(4'000, 4'000, kStart + 4s);
    progress.tell_bytes(0, 0, kStart + 5s);
  }
  EXPECT_EQ(out.str(),
            "\rx: 50 %, 1.95 KiB/s, 1.00 s left"
            "\rx: 100 %, 1000 B/s, 0.00 ps left"
            "\rx: 100 %                        "
            "\r                                \r");
}

// A file that grows while it is read gives more than it promised.
TEST(Progress, StopsAtAllThereIs) {
  std::ostringstream out;
  Progress progress(out, true, "x", kStart);
  progress.tell_bytes(5'000, 4'000, kStart + 1s);
  EXPECT_EQ(out.str(), "\rx: 100 %, 4.88 KiB/s, 0.00 ps left");
}

}  // namespace
