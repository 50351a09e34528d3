// The worked examples on the format page: header, bytes and the tags they decode to, all three read from the page.
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "docs/page.hpp"
#include "docs/shown_output.hpp"
#include "orvo/timing/stream_file_reader.hpp"
#include "support/bytes.hpp"

namespace {

using namespace orvo::test;

struct Example {
  std::size_t line = 0;
  std::string header;
  std::string hex;
  std::string tags;
};

/// Blocks "json", "hex" and "tags" that follow each other.
std::vector<Example> examples_of(const Page& page) {
  std::vector<Example> examples;
  for (std::size_t i = 0; i < page.blocks.size(); ++i) {
    if (page.blocks[i].language != "hex") continue;
    const bool complete = i > 0 && page.blocks[i - 1].language == "json" && i + 1 < page.blocks.size() &&
                          page.blocks[i + 1].language == "tags";
    if (!complete) throw std::runtime_error(page.at(page.blocks[i].line) + ": hex without header or tags");
    std::string header = page.blocks[i - 1].text;
    header.pop_back();
    examples.push_back({page.blocks[i].line, header, page.blocks[i].text, page.blocks[i + 1].text});
  }
  return examples;
}

Bytes bytes_of(const std::string& hex) {
  Bytes all;
  for (const std::string& line : lines_of(hex)) {
    std::istringstream words(line.substr(0, line.find('#')));
    for (std::string word; words >> word;) all.push_back(static_cast<std::uint8_t>(std::stoul(word, nullptr, 16)));
  }
  return all;
}

std::string decoded(const Example& example) {
  const TempDirectory directory;
  const auto length = static_cast<char>(example.header.size());
  const Bytes payload = bytes_of(example.hex);
  std::string file = std::string("TAGCAP1\n") + length + std::string(3, '\0') + example.header;
  file.append(payload.begin(), payload.end());
  write_file(directory / "c.tagcap", file);
  orvo::timing::StreamFileReader reader;
  reader.open((directory / "c.tagcap").string());
  std::string tags;
  for (const auto& tag : reader.decode_next_tags(1'000'000, 1 << 20)) {
    tags += std::to_string(tag.channel) + ' ' + std::to_string(tag.time_ps) + '\n';
  }
  return tags;
}

TEST(FormatExamples, DecodeAsThePageSays) {
  const Page page = page_named("docs/capture-format.md");
  std::set<std::string> headers;
  for (const Example& example : examples_of(page)) {
    ASSERT_LT(example.header.size(), 256u);
    headers.insert(example.header);
    EXPECT_EQ(decoded(example), example.tags) << page.at(example.line);
  }
  EXPECT_GE(headers.size(), 4u);
}

TEST(FormatExamples, AreOfEveryEncoding) {
  std::string headers;
  for (const Example& example : examples_of(page_named("docs/capture-format.md"))) headers += example.header + '\n';
  for (const char* word :
       {"\"stream_format\":\"raw64\"", "\"raw64_tag_format\":\"ps\"", "\"raw64_tag_format\":\"raw_cf\"",
        "\"stream_format\":\"delta32\"", "\"stream_format\":\"packed_delta\""}) {
    EXPECT_NE(headers.find(word), std::string::npos) << word;
  }
}

}  // namespace
