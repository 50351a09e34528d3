// Settings at the limits of 64 bits give what unbounded integers would give, or the standard library's own failure.
#include <gtest/gtest.h>

#include <string>

#include "support/product_root.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;
using testing::HasSubstr;

const std::string kMax = "9223372036854775807";
const std::string kMin = "-9223372036854775808";

class Extremes : public ProductRoot {
 protected:
  // One tag on channel 0 at 1000 ps, one on channel 1 at 1160 ps.
  Extremes() { write_file(cwd() / "c.tagcap", single_pair_capture()); }

  ProgramResult correlate(const std::string& a, const std::string& b, const std::string& range,
                          const std::string& bin, const std::string& offset) {
    return verify({"c.tagcap", a, b, "--range=" + range, "--bin=" + bin, "--offset=" + offset, "--out-prefix=o"});
  }
  // The CSV report of a run that must succeed.
  std::string csv(const std::string& a, const std::string& b, const std::string& range, const std::string& bin,
                  const std::string& offset) {
    const ProgramResult result = correlate(a, b, range, bin, offset);
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(read_file(cwd() / "o.svg"), testing::EndsWith("</svg>\n"));
    return read_file(cwd() / "o.csv");
  }
  std::string json() const { return read_file(cwd() / "o.json"); }
  std::string failure(const std::string& range, const std::string& bin) {
    return seen(correlate("0", "1", range, bin, "auto"));
  }
  std::string ended_with(const std::string& message) const {
    return seen(1, announcement(cwd() / "c.tagcap", cwd() / "o"), message);
  }
};

TEST_F(Extremes, MoreBinsThanAVectorCanHaveAreItsLengthError) {
  EXPECT_EQ(failure(kMax, "1"), ended_with("vector::reserve\n"));                   // 2^64 - 1 bins
  EXPECT_EQ(failure(kMax, "2"), ended_with("vector::reserve\n"));                   // 2^63 - 1
  EXPECT_EQ(failure("4611686018427387904", "1"), ended_with("vector::reserve\n"));  // 2^63 + 1
  EXPECT_EQ(failure("4611686018427387903", "1"), ended_with("vector::reserve\n"));  // 2^63 - 1
  EXPECT_EQ(failure(kMax, "16"), ended_with("vector::reserve\n"));                  // 2^60 + 1, 2 more than fit
  EXPECT_THAT(names(files()), testing::ElementsAre("cwd/c.tagcap"));
}

TEST_F(Extremes, WithoutTagsTheBinsAreLaidOutAllTheSame) {
  write_file(cwd() / "c.tagcap", raw64_capture({}));
  EXPECT_EQ(failure(kMax, "1"), ended_with("vector::reserve\n"));
}

TEST_F(Extremes, MoreBinsThanMemoryHoldsAreItsAllocationFailure) {
  if (kUnderAddressSanitizer) GTEST_SKIP() << "the sanitizer ends the program instead";
  EXPECT_EQ(failure("562949953421312", "1"), ended_with("std::bad_alloc\n"));  // 2^50 + 1 bins of 8 bytes
  EXPECT_EQ(failure(kMax, "17"), ended_with("std::bad_alloc\n"));  // (2^64 - 1) / 17 bins still fit a vector
  EXPECT_THAT(names(files()), testing::ElementsAre("cwd/c.tagcap"));
}

TEST_F(Extremes, TheWidestRangeInTheWidestBinsIsThreeBins) {
  EXPECT_EQ(csv("0", "1", kMax, kMax, "auto"), "bin_center_ps,count\n-" + kMax + ",0\n0,1\n" + kMax + ",0\n");
  EXPECT_THAT(json(),
              HasSubstr("\"range_ps\":" + kMax + ",\n    \"bin_ps\":" + kMax + ",\n    \"offset_ps\":160,\n"));
  EXPECT_THAT(json(), HasSubstr("\"mean_ps\":0.000,\n      \"sigma_ps\":0.000,\n      \"fwhm_ps\":0.000\n"));
}

TEST_F(Extremes, OneBinMayBeAsWideAsANumberGoes) {
  EXPECT_EQ(csv("0", "1", "1", kMax, "159"), "bin_center_ps,count\n0,1\n");  // 1 ps above the offset
  EXPECT_EQ(csv("0", "1", "1", kMax, "161"), "bin_center_ps,count\n0,1\n");  // 1 ps below
  EXPECT_EQ(csv("0", "1", "1", kMax, "162"), "bin_center_ps,count\n0,0\n");
  EXPECT_EQ(csv("0", "1", "4611686018427387903", kMax, "0"), "bin_center_ps,count\n0,1\n");
  EXPECT_EQ(csv("0", "1", "4611686018427387904", kMax, "0"),
            "bin_center_ps,count\n-" + kMax + ",0\n0,1\n" + kMax + ",0\n");
}

TEST_F(Extremes, AnOffsetAtTheEndsFindsNothingInAnOrdinaryRange) {
  for (const std::string& offset : {kMax, kMin}) {
    const std::string bins = csv("0", "1", "5000", "8", offset);
    EXPECT_EQ(std::count(bins.begin(), bins.end(), '\n'), 1252);
    EXPECT_THAT(json(),
                HasSubstr("\"offset_ps\":" + offset +
                          ",\n    \"total_coincidences\":0,\n    \"peak_count\":0,\n    \"peak_ps\":-5000,\n"));
    EXPECT_THAT(read_file(cwd() / "o.svg"),
                HasSubstr(">xcorr ch0 vs ch1  offset " + offset + " ps, peak 0, RMS 0 ps</text>\n"));
  }
}

TEST_F(Extremes, TheLargestOffsetCountsPairsDownToZeroDifference) {
  // The window is [a, end of the range): the later partner counts, at 160 - (2^63 - 1), in the lowest bin.
  EXPECT_EQ(csv("0", "1", kMax, kMax, kMax), "bin_center_ps,count\n-" + kMax + ",1\n0,0\n" + kMax + ",0\n");
  // The mean is 1 - 2^63 and becomes a double, which is -2^63, one picosecond off.
  EXPECT_THAT(
      json(),
      HasSubstr("\"mean_ps\":-9223372036854775808.000,\n      \"sigma_ps\":1.000,\n      \"fwhm_ps\":2.355\n"));
  EXPECT_EQ(csv("1", "0", kMax, kMax, kMax), "bin_center_ps,count\n-" + kMax + ",0\n0,0\n" + kMax + ",0\n");
}

TEST_F(Extremes, TheSmallestOffsetCountsPairsUpToMinusOneDifference) {
  // The window is (start of the range, a - 1]: the earlier partner counts, at 2^63 - 160, in the highest bin.
  EXPECT_EQ(csv("1", "0", kMax, kMax, kMin), "bin_center_ps,count\n-" + kMax + ",0\n0,0\n" + kMax + ",1\n");
  EXPECT_THAT(
      json(),
      HasSubstr("\"mean_ps\":9223372036854775808.000,\n      \"sigma_ps\":1.000,\n      \"fwhm_ps\":2.355\n"));
  EXPECT_EQ(csv("0", "1", kMax, kMax, kMin), "bin_center_ps,count\n-" + kMax + ",0\n0,0\n" + kMax + ",0\n");
}

TEST_F(Extremes, DifferencesNearTheEndsRoundAsUnboundedIntegers) {
  // Bins of 2^61: half a bin is 2^60. 160 - 7 * 2^60 is just above a tie between bins -4 and -3.
  const std::string seven = std::to_string(7LL << 60);
  EXPECT_EQ(csv("0", "1", "8070450532247928832", "2305843009213693952", seven),
            "bin_center_ps,count\n-6917529027641081856,1\n-4611686018427387904,0\n-2305843009213693952,0\n0,0\n"
            "2305843009213693952,0\n4611686018427387904,0\n6917529027641081856,0\n");
  // With the offset 160 ps larger the tie itself goes outwards, to a bin that does not exist: the pair is dropped.
  EXPECT_EQ(csv("0", "1", "8070450532247928832", "2305843009213693952", std::to_string((7LL << 60) + 160)),
            "bin_center_ps,count\n-6917529027641081856,0\n-4611686018427387904,0\n-2305843009213693952,0\n0,0\n"
            "2305843009213693952,0\n4611686018427387904,0\n6917529027641081856,0\n");
}

TEST_F(Extremes, CentresBeyondTheRangeHarmNothing) {
  // Five bins of 2^62; the highest centre, 2^63, does not fit 64 bits.
  const std::string bins = csv("0", "1", kMax, "4611686018427387904", "0");
  EXPECT_EQ(std::count(bins.begin(), bins.end(), '\n'), 6);
  EXPECT_THAT(json(), HasSubstr("\"total_coincidences\":1,\n    \"peak_count\":1,\n    \"peak_ps\":0,\n"));
}

}  // namespace
