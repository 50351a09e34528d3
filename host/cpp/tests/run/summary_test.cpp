// The age of the capture in the text summary, and the warning that depends on it.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/product_root.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

const std::string kWarning =
    "warning=input file is older than one hour; this is not a fresh hardware calibration check\n";

class Summary : public ProductRoot {
 protected:
  Summary() { write_file(input(), single_pair_capture()); }
  fs::path input() const { return cwd() / "c.tagcap"; }

  // A run whose summary says that the capture is `age` seconds old; tried again if a second has passed meanwhile.
  ProgramResult run_at_age(std::int64_t age) {
    ProgramResult result;
    for (int attempt = 0; attempt < 20; ++attempt) {
      const std::int64_t modified = now_ns() - age * 1'000'000'000 + (age < 0 ? 500'000'000 : 0);
      EXPECT_TRUE(set_modified(input(), modified / 1'000'000'000, static_cast<long>(modified % 1'000'000'000)));
      result = verify({"c.tagcap", "--out-prefix=o"});
      if (age_in(result.out, input()) == std::to_string(age)) return result;
    }
    ADD_FAILURE() << "no run at an age of " << age;
    return result;
  }
};

TEST_F(Summary, AtExactlyOneHourThereIsNoWarning) {
  const ProgramResult result = run_at_age(3600);
  EXPECT_THAT(result.out, Not(HasSubstr("warning")));
  EXPECT_THAT(read_file(cwd() / "o.summary.txt"), EndsWith("\npeak_ps=0\nrms_ps=0.0\n"));
}

TEST_F(Summary, OneSecondLaterTheWarningIsTheLastLineOfAllThreeCopies) {
  const ProgramResult result = run_at_age(3601);
  const std::string summary = read_file(cwd() / "o.summary.txt");
  EXPECT_EQ(summary,
            "Orvo timing stream-file cross-correlation verification\n"
            "mode=offline_existing_file\n"
            "input=" +
                input().string() +
                "\n"
                "input_age_seconds=3601\n"
                "csv=" +
                (cwd() / "o.csv").string() +
                "\n"
                "json=" +
                (cwd() / "o.json").string() +
                "\n"
                "svg=" +
                (cwd() / "o.svg").string() +
                "\n"
                "decoded_tags=2\n"
                "ch0=1\n"
                "ch1=1\n"
                "coincidences=1\n"
                "peak_count=1\n"
                "peak_ps=0\n"
                "rms_ps=0.0\n" +
                kWarning);
  EXPECT_EQ(read_file(output_root() / "latest_summary.txt"), summary);
  EXPECT_EQ(seen(result), seen(0, announcement(input(), cwd() / "o") + closing_lines(summary), ""));
}

TEST_F(Summary, AnOldCaptureIsWarnedAbout) {
  ASSERT_TRUE(set_modified(input(), 0));
  const ProgramResult result = verify({"c.tagcap", "--out-prefix=o"});
  EXPECT_THAT(age_in(result.out, input()), testing::MatchesRegex("[0-9]{10}"));
  EXPECT_THAT(result.out, HasSubstr("\nrms_ps=0.0\n" + kWarning + "latest_plot="));
}

TEST_F(Summary, ACaptureInTheFutureHasANegativeAgeAndNoWarning) {
  const ProgramResult result = run_at_age(-7200);
  EXPECT_THAT(result.out, HasSubstr("\ninput_age_seconds=-7200\n"));
  EXPECT_THAT(result.out, Not(HasSubstr("warning")));
}

TEST_F(Summary, AgesAreTruncatedTowardZero) {
  // Dated a few hundred milliseconds ahead: less than a second in either direction is an age of 0.
  for (int attempt = 0; attempt < 20; ++attempt) {
    const std::int64_t modified = now_ns() + 900'000'000;
    ASSERT_TRUE(set_modified(input(), modified / 1'000'000'000, static_cast<long>(modified % 1'000'000'000)));
    const ProgramResult result = verify({"c.tagcap", "--out-prefix=o"});
    EXPECT_EQ(age_in(result.out, input()), "0");
    if (now_ns() < modified) return;  // the whole run was before that date
  }
  FAIL() << "every run took longer than 0.9 s";
}

TEST_F(Summary, TheLinesNameTheChannelsInTheOrderGiven) {
  write_file(input(), pairs_capture());
  EXPECT_THAT(verify({"c.tagcap", "3", "2", "--out-prefix=o"}).out, HasSubstr("\ndecoded_tags=31\nch3=2\nch2=14\n"));
  EXPECT_THAT(verify({"c.tagcap", "1", "3", "--out-prefix=o"}).out, HasSubstr("\ndecoded_tags=31\nch1=1\nch3=2\n"));
}

TEST_F(Summary, TheRmsHasOneDecimal) {
  // Ten differences of 0 and one of 100: mean 100/11, rms = 100 sqrt(10) / 11 = 28.748 ps.
  Bytes payload;
  for (std::uint64_t t = 1'000'000; t <= 11'000'000; t += 1'000'000) {
    payload += ps_record(0, t) + ps_record(1, t == 11'000'000 ? t + 100 : t);
  }
  write_file(input(), raw64_capture(payload));
  EXPECT_THAT(verify({"c.tagcap", "--bin=10", "--out-prefix=o"}).out,
              HasSubstr("\ncoincidences=11\npeak_count=10\npeak_ps=0\nrms_ps=28.7\n"));
}

}  // namespace
