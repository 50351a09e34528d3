#include "orvo/timing/detail/json_text.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "reference/header.hpp"
#include "support/failure.hpp"

namespace {

namespace reference = orvo::test::reference;
using orvo::test::failure_of;
using orvo::timing::detail::json_find_string;
using orvo::timing::detail::json_find_uint;

const std::optional<std::string> kNoText;
const std::optional<std::uint64_t> kNoNumber;

// All three with the reference beside them.
std::string json_escape(std::string_view text) {
  std::string escaped = orvo::timing::detail::json_escape(text);
  EXPECT_EQ(escaped, reference::json_escape(std::string(text)));
  return escaped;
}
std::optional<std::string> text(std::string_view json) {
  EXPECT_EQ(json_find_string(json, "key"), reference::find_string(std::string(json), "key")) << json;
  return json_find_string(json, "key");
}
std::optional<std::uint64_t> number(std::string_view json) {
  EXPECT_EQ(json_find_uint(json, "key"), reference::find_number(std::string(json), "key")) << json;
  return json_find_uint(json, "key");
}

TEST(JsonEscape, LeavesPrintableTextAsItIs) {
  EXPECT_EQ(json_escape(""), "");
  EXPECT_EQ(json_escape("run 07 (b)/x"), "run 07 (b)/x");
}

TEST(JsonEscape, PutsABackslashBeforeQuotesAndBackslashes) {
  EXPECT_EQ(json_escape(R"(a"b\c)"), R"(a\"b\\c)");
  EXPECT_EQ(json_escape(R"(\n)"), R"(\\n)");
}

TEST(JsonEscape, WritesTabLineFeedAndCarriageReturnAsLetters) {
  EXPECT_EQ(json_escape("\t\n\r"), R"(\t\n\r)");
}

TEST(JsonEscape, ReplacesEveryOtherControlByteByAQuestionMark) {
  for (int byte = 0; byte < 0x20; ++byte) {
    if (byte == '\t' || byte == '\n' || byte == '\r') continue;
    EXPECT_EQ(json_escape(std::string(1, static_cast<char>(byte))), "?") << "byte " << byte;
  }
}

TEST(JsonEscape, PassesEveryByteFromBlankOnUnchanged) {
  for (int byte = 0x20; byte < 0x100; ++byte) {
    if (byte == '"' || byte == '\\') continue;
    const std::string one(1, static_cast<char>(byte));
    EXPECT_EQ(json_escape(one), one) << "byte " << byte;
  }
  EXPECT_EQ(json_escape("\xC2\xB5s \x7F \xFF"), "\xC2\xB5s \x7F \xFF");
}

TEST(JsonFindString, ReadsTheTextBehindTheKey) {
  EXPECT_EQ(text(R"({"key":"value"})"), "value");
  EXPECT_EQ(text(R"({"other":1,"key" : "value"})"), "value");
  EXPECT_EQ(text(R"({"key":""})"), "");
  EXPECT_EQ(text(R"({"key":"  kept blank  "})"), "  kept blank  ");
}

TEST(JsonFindString, TakesOnlyTheWholeQuotedKey) {
  EXPECT_EQ(text(R"({"keys":"a","a_key":"b","key ":"c"})"), kNoText);
  EXPECT_EQ(text(R"({"keys":"a","key":"b"})"), "b");
  EXPECT_EQ(text(R"({"KEY":"a"})"), kNoText);
}

TEST(JsonFindString, UnescapesWhatABackslashStandsBefore) {
  EXPECT_EQ(text(R"({"key":"a\"b\\c\/d"})"), R"(a"b\c/d)");
  EXPECT_EQ(text(R"({"key":"\r\t\n"})"), "\r\t\n");
  EXPECT_EQ(text(R"({"key":"\u0041\b\f\x"})"), "u0041bfx");
  EXPECT_EQ(text(R"({"key":"ends in a backslash\\","x":"y"})"), R"(ends in a backslash\)");
}

TEST(JsonFindString, KeepsEveryOtherByteOfTheText) {
  EXPECT_EQ(text(std::string_view("{\"key\":\"\x00\x01\n\xFF\"}", 14)), std::string("\x00\x01\n\xFF", 4));
}

TEST(JsonFindString, HasNoValueWhereTheTextEndsTooEarly) {
  for (const char* json : {"", "{}", R"("key)", R"("key")", R"("key" )", R"("key":)", R"("key": )", R"("key":")",
                           R"("key":1})", R"("key":"abc)", R"("key":"abc\)", R"("key":"abc\")", R"("key":"\)"}) {
    EXPECT_EQ(text(json), kNoText) << json;
  }
  EXPECT_EQ(text(R"("key":"abc")"), "abc");
}

TEST(JsonFindString, SkipsWhateverStandsBeforeTheNextQuote) {
  EXPECT_EQ(text(R"({"key":5,"x":"y"})"), "x");
  EXPECT_EQ(text(R"({"key":null,"x":"y"})"), "x");
  EXPECT_EQ(text(R"({"key":{"inner":"y"}})"), "inner");
}

TEST(JsonFindString, FindsTheColonWhereverItStandsBehindTheKey) {
  EXPECT_EQ(text(R"(["key","x","y":"z"])"), "z");
  EXPECT_EQ(text(R"(["key" 12:30 "z"])"), "z");
}

TEST(JsonFindString, TakesTheFirstOccurrenceThoughItIsAValue) {
  EXPECT_EQ(text(R"({"a":"key","b":"second","key":"third"})"), "second");
}

TEST(JsonFindString, NeverGoesOnToALaterOccurrence) {
  EXPECT_EQ(text(R"({"key":"first","key":"second"})"), "first");
  EXPECT_EQ(text(R"({"x":{"key":"nested"},"key":"outer"})"), "nested");
}

TEST(JsonFindString, EscapedQuotesAroundTheNameAreNoMatch) {
  EXPECT_EQ(text(R"({"a":"\"key\":\"no\"","key":"yes"})"), "yes");
}

TEST(JsonFindString, AValueEndingInAQuoteAndTheNameIsAMatch) {
  EXPECT_EQ(text(R"({"a":"x\"key","b":"second","key":"third"})"), "second");
}

TEST(JsonFindString, AnEmptyKeyIsTwoQuotes) {
  EXPECT_EQ(json_find_string(R"({"a":"","b":"next"})", ""), "next");
  EXPECT_EQ(json_find_string(R"({"a":"x"})", std::string_view()), kNoText);
}

TEST(JsonFindUint, ReadsTheDigitsBehindTheKey) {
  EXPECT_EQ(number(R"({"key":42})"), 42u);
  EXPECT_EQ(number(R"({"key":0})"), 0u);
  EXPECT_EQ(number(R"("key":7)"), 7u);
  EXPECT_EQ(number(R"({"key":007,"x":1})"), 7u);
}

TEST(JsonFindUint, SkipsWhiteSpaceOfEveryKind) {
  EXPECT_EQ(number("{\"key\": \t\n\v\f\r9}"), 9u);
}

TEST(JsonFindUint, StopsAtTheFirstByteThatIsNoDigit) {
  EXPECT_EQ(number(R"({"key":12.7})"), 12u);
  EXPECT_EQ(number(R"({"key":1e3})"), 1u);
  EXPECT_EQ(number(R"({"key":0x10})"), 0u);
  EXPECT_EQ(number(R"({"key":1 2})"), 1u);
}

TEST(JsonFindUint, HasNoValueWithoutALeadingDigit) {
  for (const char* json : {R"({"key":-3})", R"({"key":+3})", R"({"key":"7"})", R"({"key":.5})", R"({"key":true})",
                           R"({"key":null,"x":5})", R"({"key":})",
                           "{\"key\":\xA0"
                           "5}"}) {
    EXPECT_EQ(number(json), kNoNumber) << json;
  }
}

TEST(JsonFindUint, HasNoValueWhereTheTextEndsTooEarly) {
  for (const char* json : {"", R"("key")", R"("key" 5)", R"("key":)", R"("key": )", "\"key\":\t\n"}) {
    EXPECT_EQ(number(json), kNoNumber) << json;
  }
}

TEST(JsonFindUint, WrapsModulo2ToThe64) {
  EXPECT_EQ(number(R"({"key":18446744073709551615})"), UINT64_MAX);
  EXPECT_EQ(number(R"({"key":18446744073709551616})"), 0u);
  EXPECT_EQ(number(R"({"key":18446744073709551621})"), 5u);
  EXPECT_EQ(number(R"({"key":99999999999999999999})"), 7'766'279'631'452'241'919u);
}

TEST(JsonFindUint, NeverGoesOnToALaterOccurrence) {
  EXPECT_EQ(number(R"({"key":-3,"key":4})"), kNoNumber);
  EXPECT_EQ(number(R"({"a":"key","b":5,"key":6})"), 5u);
  EXPECT_EQ(number(R"({"a":"key","b":"5","key":6})"), kNoNumber);
}

TEST(JsonFind, RefusesANullKeyThatClaimsALength) {
  const char* volatile nothing = nullptr;
  const std::string_view key(nothing, 3);
  constexpr const char* kRefusal = "logic_error: basic_string: construction from null is not valid";
  EXPECT_EQ(failure_of([&] { json_find_string(R"({"key":"x"})", key); }), kRefusal);
  EXPECT_EQ(failure_of([&] { json_find_uint(R"({"key":1})", key); }), kRefusal);
}

}  // namespace
