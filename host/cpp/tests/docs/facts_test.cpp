// Names and texts that the documentation repeats are those of the sources.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "docs/page.hpp"
#include "docs/shown_output.hpp"
#include "verify/config.hpp"

namespace {

using namespace orvo::test;
namespace fs = std::filesystem;

std::string sources_in(const std::string& folder) {
  std::string text;
  for (const auto& entry : fs::recursive_directory_iterator(checkout() / folder)) {
    if (entry.path().extension() == ".hpp") text += read_file(entry.path());
  }
  return text;
}

/// The string literals that directly follow `call`.
std::vector<std::string> literals_after(std::string_view source, std::string_view call) {
  std::vector<std::string> literals;
  for (auto at = source.find(call); at != source.npos; at = source.find(call, at + 1)) {
    const auto from = at + call.size();
    literals.emplace_back(source.substr(from, source.find('"', from) - from));
  }
  return literals;
}

TEST(Troubleshooting, HasEveryMessageOfTheSources) {
  const std::string page = read_file(checkout() / "docs/troubleshooting.md");
  const std::string source = sources_in("host/cpp/include/orvo/timing") + sources_in("host/cpp/tools/verify");
  std::size_t seen = 0;
  for (const std::string_view call : {"Error(\"", "open_report(path, \"", "err << \""}) {
    for (std::string message : literals_after(source, call)) {
      message = message.substr(0, message.find("\\n"));
      EXPECT_NE(page.find('`' + message), page.npos) << message;
      ++seen;
    }
  }
  EXPECT_GE(seen, 18u);
}

TEST(Troubleshooting, HasEveryLineOfTheDebugLog) {
  const std::string page = read_file(checkout() / "docs/troubleshooting.md");
  const std::string source = read_file(checkout() / "host/cpp/include/orvo/timing/detail/packed_debug_log.hpp");
  const std::vector<std::string> lines = literals_after(source, "write(\"");
  EXPECT_EQ(lines.size(), 10u);
  for (const std::string& line : lines) EXPECT_NE(page.find('`' + line), page.npos) << line;
}

TEST(Robustness, SaysWhatEachFuzzTargetCompares) {
  const std::string page = read_file(checkout() / "docs/robustness.md");
  std::size_t seen = 0;
  for (const auto& entry : fs::directory_iterator(checkout() / "host/cpp/fuzz")) {
    const std::string name = entry.path().stem().string();
    if (!name.starts_with("fuzz_")) continue;
    const std::string target = name.substr(std::string_view("fuzz_").size());
    EXPECT_NE(page.find("\n| `" + target + "` | "), page.npos) << target;
    ++seen;
  }
  EXPECT_GT(seen, 10u);
}

/// The cells of a table row, without blanks and backquotes.
std::vector<std::string> cells(const std::string& row) {
  std::vector<std::string> all;
  std::string cell;
  for (const char c : row.substr(1)) {
    if (c == '|') all.push_back(std::exchange(cell, {}));
    if (c != '|' && c != '`' && c != ' ') cell += c;
  }
  return all;
}

/// The rows of the README's table of settings: setting, key, other key, flag, argument, default.
std::vector<std::vector<std::string>> settings_table() {
  const std::vector<std::string> lines = lines_of(read_file(checkout() / "README.md"));
  const auto starts = [](std::string_view start) {
    return [=](const std::string& line) { return line.starts_with(start); };
  };
  auto row = std::find_if(lines.begin(), lines.end(), starts("| setting |"));
  std::vector<std::vector<std::string>> rows;
  for (; row != lines.end() && row->starts_with("|"); ++row) rows.push_back(cells(*row));
  rows.erase(rows.begin(), rows.begin() + std::min<std::ptrdiff_t>(2, std::ssize(rows)));
  return rows;
}

TEST(Readme, NamesTheKeysAndFlagsOfTheSources) {
  const std::string settings_file = read_file(checkout() / "host/cpp/tools/verify/settings_file.hpp");
  const std::string command_line = read_file(checkout() / "host/cpp/tools/verify/command_line.hpp");
  std::vector<std::string> keys;
  std::vector<std::string> flags;
  for (const std::vector<std::string>& row : settings_table()) {
    ASSERT_EQ(row.size(), 6u);
    keys.push_back(row[1]);
    if (!row[2].empty()) keys.push_back(row[2]);
    if (!row[3].empty()) flags.push_back(row[3].substr(2));
  }
  EXPECT_THAT(literals_after(settings_file, "key == \""), testing::UnorderedElementsAreArray(keys));
  EXPECT_THAT(literals_after(command_line, "get_flag(argc, argv, \""), testing::UnorderedElementsAreArray(flags));
  EXPECT_GE(flags.size(), 5u);
}

TEST(Readme, HasTheDefaultsOfTheSettings) {
  const Config config;
  const std::vector<std::pair<std::string, std::string>> defaults{{"channel_a", std::to_string(config.channel_a)},
                                                                  {"channel_b", std::to_string(config.channel_b)},
                                                                  {"range_ps", std::to_string(config.range_ps)},
                                                                  {"bin_ps", std::to_string(config.bin_ps)},
                                                                  {"offset", config.offset},
                                                                  {"max_tags", std::to_string(config.max_tags)}};
  std::vector<std::pair<std::string, std::string>> shown;
  for (const std::vector<std::string>& row : settings_table()) shown.emplace_back(row.at(1), row.at(5));
  ASSERT_EQ(shown.size(), 8u);
  shown.erase(shown.begin(), shown.begin() + 2);  // input and output have words for theirs
  EXPECT_EQ(shown, defaults);
}

}  // namespace
