// The settings file from outside: each key has its effect, and a bad number ends the run. How lines are read is
// tested in verify/settings_file_test.cpp.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/product_root.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;

class SettingsFile : public ProductRoot {
 protected:
  std::string effect(const std::string& settings) {
    write_file(cwd() / "c.tagcap", pairs_capture());
    write_settings("input_file=c.tagcap\noutput_prefix=o\nchannel_b=2\n" + settings);
    return effect_of(verify());
  }

  std::string failure(const std::string& settings) {
    write_settings(settings);
    return seen(verify({"none.tagcap"}));
  }
};

// The upper median of the 14 differences between channels 0 and 2 is that of spread 4: 1200 - 4 = 1196 ps.
const std::string kDefaults = "0 2 5000 8 1196 31 ";

TEST_F(SettingsFile, DefaultsStandWhenNothingIsSet) {
  EXPECT_EQ(effect(""), kDefaults);
}

TEST_F(SettingsFile, EveryKeyHasItsEffect) {
  EXPECT_EQ(effect("channel_a=2\nchannel_b=1\nrange_ps=100\nbin_ps=4\noffset=-7\nmax_tags=12\n"), "2 1 100 4 -7 12 ");
}

TEST_F(SettingsFile, ABadNumberEndsTheRunBeforeAnythingIsPrinted) {
  EXPECT_EQ(failure("range_ps=abc"), seen(1, "", "stoll\n"));
  EXPECT_EQ(failure("channel_b=2147483648"), seen(1, "", "stoi\n"));
  EXPECT_EQ(failure("max_tags=all"), seen(1, "", "stoull\n"));
  EXPECT_EQ(names(files()), std::vector<std::string>{std::string("cwd/") + kSettingsName});
}

}  // namespace
