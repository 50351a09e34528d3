// The two checkers that other tests apply to reports: what they accept and, above all, what they refuse.
#include <gtest/gtest.h>

#include <string>

#include "support/strict_json.hpp"
#include "support/strict_xml.hpp"

namespace {

using namespace orvo::test;

TEST(StrictJson, FlattensObjects) {
  const auto leaves = StrictJson::parse("{\"a\":{\"b\":-1.50,\"c\":\"x\\n\\\"\\\\\\/\"},\n \"d\":null,\"e\":{}}\n");
  ASSERT_TRUE(leaves);
  EXPECT_EQ(
      *leaves,
      (JsonLeaves{
          {"a.b", {false, "-1.50"}}, {"a.c", {true, "x\n\"\\/"}}, {"d", {false, "null"}}, {"e", {false, "{}"}}}));
}

TEST(StrictJson, LetsHighBytesPass) {
  const auto leaves = StrictJson::parse("{\"k\":\"\xC3\xA4\xFF\x7F\"}");
  ASSERT_TRUE(leaves);
  EXPECT_EQ(leaves->at("k").text, "\xC3\xA4\xFF\x7F");
}

TEST(StrictJson, RefusesEverythingElse) {
  for (const char* const text : {"",
                                 "{",
                                 "}",
                                 "[]",
                                 "1",
                                 "{}}",
                                 "{} x",
                                 "{\"a\"}",
                                 "{\"a\":}",
                                 "{a:1}",
                                 "{\"a\":1,}",
                                 "{,\"a\":1}",
                                 "{\"a\":1 \"b\":2}",
                                 "{\"a\":01}",
                                 "{\"a\":+1}",
                                 "{\"a\":.5}",
                                 "{\"a\":5.}",
                                 "{\"a\":1e}",
                                 "{\"a\":-}",
                                 "{\"a\":nan}",
                                 "{\"a\":-nan}",
                                 "{\"a\":inf}",
                                 "{\"a\":True}",
                                 "{\"a\":\"\t\"}",
                                 "{\"a\":\"\n\"}",
                                 "{\"a\":\"\x01\"}",
                                 "{\"a\":\"\\x\"}",
                                 "{\"a\":\"\\",
                                 "{\"a\":\"",
                                 "{\"a\":\"b\"c\"}",
                                 "{\"a\":1,\"a\":2}",
                                 "{\"a\":{},\"a\":{}}",
                                 "{\"a\":0x1}",
                                 "{\"a\":1,2}"}) {
    EXPECT_FALSE(StrictJson::parse(text)) << text;
  }
  EXPECT_FALSE(StrictJson::parse(std::string("{\"a\":\"\0\"}", 9)));
}

TEST(StrictXml, ListsElements) {
  const auto elements = StrictXml::parse("<svg a=\"1\" b=\"\">\n<rect x=\"-2\"/>\n<text>t > u</text></svg>\n");
  ASSERT_TRUE(elements);
  ASSERT_EQ(elements->size(), 3u);
  EXPECT_EQ((*elements)[0].name, "svg");
  EXPECT_EQ((*elements)[0].attributes.at("b"), "");
  EXPECT_EQ((*elements)[1].depth, 1);
  EXPECT_EQ((*elements)[1].attributes.at("x"), "-2");
  EXPECT_EQ((*elements)[2].text, "t > u");
}

TEST(StrictXml, RefusesEverythingElse) {
  for (const char* const text : {"",
                                 "text",
                                 "<",
                                 "<a",
                                 "<a>",
                                 "</a>",
                                 "<a></b>",
                                 "<a/><b/>",
                                 "<a/>x",
                                 "<a b/>",
                                 "<a b=1/>",
                                 "<a b='1'/>",
                                 "<a b=\"1/>",
                                 "<a b=\"1\" b=\"2\"/>",
                                 "<a b=\"1\"c=\"2\"/>",
                                 "<a b=\"<\"/>",
                                 "<a>&</a>",
                                 "<a>&amp;</a>",
                                 "<a><b></a></b>",
                                 "< a/>",
                                 "<1/>",
                                 "<a b=\"\x01\"/>",
                                 "<a>\x02</a>",
                                 "<!-- --><a/>",
                                 "<?xml?><a/>",
                                 "<a></a >x",
                                 "<a><b/>"}) {
    EXPECT_FALSE(StrictXml::parse(text)) << text;
  }
}

}  // namespace
