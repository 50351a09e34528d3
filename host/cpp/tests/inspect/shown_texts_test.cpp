// Texts and numbers as the inspector's reports show them.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>

#include "inspect/html_text.hpp"
#include "inspect/numbers.hpp"
#include "inspect/shown_text.hpp"

namespace {

TEST(HtmlText, LeavesNothingThatCouldBecomeMarkup) {
  EXPECT_EQ(html_text("a<b> & \"c\" 'd'"), "a&lt;b&gt; &amp; &quot;c&quot; &#39;d&#39;");
  EXPECT_EQ(html_text("a\nb\x7F\xC3\xA4"), "a?b?\xC3\xA4");
}

TEST(HtmlText, IsCutBeforeItIsEscaped) {
  EXPECT_EQ(html_text("<<<", 3), "&lt;&lt;&lt;");
  EXPECT_EQ(html_text("<<<<", 3), "&lt;&lt;&lt;...");
  EXPECT_EQ(html_text(std::string(1001, 'x')), std::string(1000, 'x') + "...");
}

TEST(ShownText, IsOneLineOfPrintableAscii) {
  EXPECT_EQ(shown("a ~\t\x7F\xC3\xA4"), "a ~????");
  EXPECT_EQ(shown(std::string(60, 'x')), std::string(60, 'x'));
  EXPECT_EQ(shown(std::string(61, 'x')), std::string(60, 'x') + "...");
}

TEST(ShownPath, KeepsEverythingButControlCharacters) {
  EXPECT_EQ(shown_path("/a b/\x1B[2J\n\x7F\xC3\xA4"), "/a b/?[2J??\xC3\xA4");
}

TEST(Counted, TakesThePluralUnlessItIsOne) {
  EXPECT_EQ(counted(0, "tag"), "0 tags");
  EXPECT_EQ(counted(1, "tag"), "1 tag");
  EXPECT_EQ(counted(2, "tag"), "2 tags");
}

TEST(ExactSeconds, HaveAllDecimalsThatAreNotZero) {
  EXPECT_EQ(exact_seconds(0), "0.0 s");
  EXPECT_EQ(exact_seconds(14'315'125'997'568), "14.315125997568 s");
  EXPECT_EQ(exact_seconds(2'050'000'000'000), "2.05 s");
  EXPECT_EQ(exact_seconds(1), "0.000000000001 s");
  EXPECT_EQ(exact_seconds(-1'500'000'000'000), "-1.5 s");
  EXPECT_EQ(exact_seconds(INT64_MIN), "-9223372.036854775808 s");
}

TEST(Percent, ReadsZeroForNothingAlone) {
  EXPECT_EQ(percent(0, 0), "0 %");
  EXPECT_EQ(percent(0, 7), "0.00 %");
  EXPECT_EQ(percent(1, 8), "12.5 %");
  EXPECT_EQ(percent(1, 19'999), "0.01 %");  // 0.0050003 %
  EXPECT_EQ(percent(1, 20'001), "< 0.01 %");
  EXPECT_EQ(percent(8, 8), "100 %");
}

TEST(Chance, IsThePowerOfTenBelow) {
  EXPECT_EQ(chance(std::log(2e-12)), "1e-12");
  EXPECT_EQ(chance(std::log(9e-7)), "1e-7");
  EXPECT_EQ(chance(-299.5 * std::log(10.0)), "1e-300");
  EXPECT_EQ(chance(-300.5 * std::log(10.0)), "below 1e-300");
}

}  // namespace
