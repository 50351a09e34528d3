// The lines of the settings file: comments, blanks, keys and their other names, values and their conversions.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/product_root.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;
using testing::HasSubstr;

class SettingsLines : public ProductRoot {
 protected:
  // What the JSON report shows of a run with this settings file: channels, range, bin, offset, decoded tags.
  std::string effect(const std::string& settings) {
    write_file(cwd() / "c.tagcap", pairs_capture());
    write_settings("input_file=c.tagcap\noutput_prefix=o\nchannel_b=2\n" + settings);
    const ProgramResult result = verify();
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.exit_status, 0);
    const std::string json = read_file(cwd() / "o.json");
    std::string values;
    for (const char* key : {"channel_a", "channel_b", "range_ps", "bin_ps", "offset_ps", "decoded_tags"}) {
      const auto from = json.find(':', json.find(std::string("\"") + key + "\"")) + 1;
      values += json.substr(from, json.find(',', from) - from) + " ";
    }
    return values;
  }

  std::string failure(const std::string& settings) {
    write_settings(settings);
    return seen(verify({"none.tagcap"}));
  }
};

// The upper median of the 14 differences between channels 0 and 2 is that of spread 4: 1200 - 4 = 1196 ps.
const std::string kDefaults = "0 2 5000 8 1196 31 ";

TEST_F(SettingsLines, DefaultsStandWhenNothingIsSet) {
  EXPECT_EQ(effect(""), kDefaults);
}

TEST_F(SettingsLines, EveryKeySetsItsField) {
  EXPECT_EQ(effect("channel_a=2\nchannel_b=1\nrange_ps=100\nbin_ps=4\noffset=-7\nmax_tags=12\n"), "2 1 100 4 -7 12 ");
}

TEST_F(SettingsLines, EveryKeyHasItsOtherName) {
  write_file(cwd() / "c.tagcap", single_pair_capture());
  write_settings("source_file=c.tagcap\nout_prefix=other\nch_a=1\nch_b=0\n");
  const ProgramResult result = verify();
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_THAT(result.out, HasSubstr("\n" + announcement(cwd() / "c.tagcap", cwd() / "other")));
  EXPECT_THAT(read_file(cwd() / "other.json"), HasSubstr("\"channel_a\":1,\n    \"channel_b\":0,\n"));
}

TEST_F(SettingsLines, ACommentStartsAtTheFirstNumberSignEvenInAValue) {
  EXPECT_EQ(effect("offset=#5#6\nrange_ps=250#0\n"), "0 2 250 8 1196 31 ");
  write_settings("input_file=none#1#2.tagcap\noutput_prefix=o\n");
  EXPECT_THAT(verify().out, HasSubstr("\n" + announcement(cwd() / "none", cwd() / "o")));
}

TEST_F(SettingsLines, KeysIgnoreCaseAndBlanksAndTheCommentIsCut) {
  EXPECT_EQ(effect("Range_PS = 250 # wide"), "0 2 250 8 1196 31 ");
  EXPECT_EQ(effect(" \t\v\fCH_A\t=\v 1 \f\r\nOFFSET=0"), "1 2 5000 8 0 31 ");
}

TEST_F(SettingsLines, WithoutAnEqualsSignALineIsSkipped) {
  EXPECT_EQ(effect("[range_ps]\n\n  \nrange_ps 250\nrange_ps: 250\n# range_ps=250\nrange_ps # =250\n"), kDefaults);
}

TEST_F(SettingsLines, UnknownKeysAreIgnored) {
  EXPECT_EQ(effect("range=1\nrange_ps2=1\n[range_ps=1\nrange ps=1\nch-a=1\n\xEF\xBB\xBFrange_ps=1\n"), kDefaults);
}

TEST_F(SettingsLines, AnEmptyKeyOrValueIsSkipped) {
  EXPECT_EQ(effect("max_tags=\nmax_tags= \t\nmax_tags=#5\n=5\n  =  \nrange_ps=\ninput_file=\noutput_prefix=  \n"),
            kDefaults);
}

TEST_F(SettingsLines, TheLastOfSeveralLinesWins) {
  EXPECT_EQ(effect("bin_ps=4\nBIN_PS=5\nbin_ps=\n"), "0 2 5000 5 1196 31 ");
}

TEST_F(SettingsLines, EveryLineEndReadsTheSame) {
  EXPECT_EQ(effect("range_ps=250\r\nbin_ps=4\r\n"), "0 2 250 4 1196 31 ");
  EXPECT_EQ(effect("range_ps=250\nbin_ps=4"), "0 2 250 4 1196 31 ");
  // A carriage return alone does not end a line: what follows is part of the value.
  EXPECT_EQ(effect("range_ps=250\rbin_ps=4\n"), "0 2 250 8 1196 31 ");
}

TEST_F(SettingsLines, NumbersAreTakenAsFarAsTheyGo) {
  EXPECT_EQ(effect("range_ps=5ps\nbin_ps=+2.9\nchannel_a=1x\nmax_tags=12e3\noffset=12x\n"), "1 2 5 2 12 12 ");
  EXPECT_EQ(effect("bin_ps=010\noffset=0x10\n"), "0 2 5000 10 0 31 ");
}

TEST_F(SettingsLines, AValueKeepsItsLaterEqualsSigns) {
  EXPECT_EQ(effect("bin_ps=4=5\n"), "0 2 5000 4 1196 31 ");
  write_file(cwd() / "a=b.tagcap", single_pair_capture());
  write_settings("input_file = a=b.tagcap \noutput_prefix=o\n");
  EXPECT_EQ(verify().exit_status, 0);
}

TEST_F(SettingsLines, OffsetIgnoresCase) {
  EXPECT_EQ(effect("offset=AUTO\n"), kDefaults);
  EXPECT_EQ(effect("offset=5\noffset=Auto\n"), kDefaults);
  EXPECT_EQ(effect("offset=350PS\n"), "0 2 5000 8 350 31 ");
}

TEST_F(SettingsLines, MinusOneIsTheLargestTagLimit) {
  EXPECT_EQ(effect("max_tags=-1\n"), kDefaults);
  EXPECT_EQ(effect("max_tags=18446744073709551615\n"), kDefaults);
}

TEST_F(SettingsLines, NulBytesAreOrdinaryBytes) {
  const std::string nul(1, '\0');
  EXPECT_EQ(effect(nul + "range_ps=1\nrange_ps" + nul + "=1\nbin_ps=4" + nul + "7\n" + nul + "\nmax_tags=30\n"),
            "0 2 5000 4 1196 30 ");
  EXPECT_EQ(failure("range_ps=" + nul + "5\n"), seen(1, "", "stoll\n"));
}

TEST_F(SettingsLines, ALongLineIsOneLine) {
  EXPECT_EQ(effect("bin_ps=4" + std::string(1'000'000, 'x') + "\nrange_ps=" + std::string(100'000, '0') + "250\n"),
            "0 2 250 4 1196 31 ");
}

TEST_F(SettingsLines, ABadNumberEndsTheRunBeforeAnythingIsPrinted) {
  for (const char* line :
       {"range_ps=abc", "bin_ps=-", "range_ps=9223372036854775808", "bin_ps=-9223372036854775809"}) {
    EXPECT_EQ(failure(line), seen(1, "", "stoll\n")) << line;
  }
  for (const char* line : {"channel_a=x", "ch_b=.5", "channel_b=2147483648", "ch_a=-2147483649"}) {
    EXPECT_EQ(failure(line), seen(1, "", "stoi\n")) << line;
  }
  for (const char* line : {"max_tags=all", "max_tags=18446744073709551616", "max_tags=- 1"}) {
    EXPECT_EQ(failure(line), seen(1, "", "stoull\n")) << line;
  }
  EXPECT_EQ(names(files()), std::vector<std::string>{std::string("cwd/") + kSettingsName});
}

TEST_F(SettingsLines, TheFirstBadNumberIsTheOneReported) {
  EXPECT_EQ(failure("max_tags=q\nchannel_a=q\nrange_ps=q\n"), seen(1, "", "stoull\n"));
  EXPECT_EQ(failure("channel_a=q\nchannel_a=1\n"), seen(1, "", "stoi\n"));  // a later line does not mend it
}

}  // namespace
