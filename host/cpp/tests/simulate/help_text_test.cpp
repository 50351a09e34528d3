#include "simulate/help_text.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

using testing::HasSubstr;
using testing::StartsWith;

std::string help() {
  std::ostringstream out;
  print_help(out);
  return out.str();
}

TEST(Help, TellsHowToStart) {
  EXPECT_THAT(help(), StartsWith("vq_simulate_stream_file FILE [--option value | --option=value]...\n"));
}

TEST(Help, NamesEveryOptionWithItsLimits) {
  for (const Option& option : kOptions) EXPECT_THAT(help(), HasSubstr("\n  --" + std::string(option.name) + ' '));
  EXPECT_THAT(help(), HasSubstr("\n  --delta-bits N [1 to 31]\n      payload bits of a packed record (16)\n"));
  EXPECT_THAT(help(), HasSubstr("\n  --jitter TIME [0 to 1000000 ps]\n"));
  EXPECT_THAT(help(), HasSubstr("\n  --encoding WORD\n"));
}

}  // namespace
