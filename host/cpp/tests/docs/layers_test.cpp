// The list of layers on the architecture page is that of the sources: it names every header of the library once, and
// no header includes one of a later layer.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>

#include "docs/page.hpp"
#include "docs/shown_output.hpp"

namespace {

using namespace orvo::test;
namespace fs = std::filesystem;

/// The number of each layer's headers, by their names without "detail/" and ".hpp". timing.hpp stands above them all.
std::map<std::string, int> layers_on_the_page() {
  const Page page = page_named("docs/architecture.md");
  const std::vector<std::string> lines = lines_of(read_file(page.path));
  std::map<std::string, int> layers{{"timing", 9}};
  int layer = 0;
  std::size_t line = 0;
  for (const std::string& text : lines) {
    ++line;
    if (text.starts_with("## ") && layer > 0) break;
    if (text.size() > 2 && text[1] == '.' && text[0] >= '1' && text[0] <= '9') layer = text[0] - '0';
    if (layer == 0) continue;
    for (const CodeWord& word : page.code_words) {
      if (word.line == line) layers.emplace(fs::path(word.text).filename().string(), layer);
    }
  }
  return layers;
}

/// Every header of the library, by its name without folder and ".hpp".
std::map<std::string, std::string> library_headers() {
  std::map<std::string, std::string> texts;
  for (const auto& entry : fs::recursive_directory_iterator(checkout() / "host/cpp/include/orvo/timing")) {
    if (entry.path().extension() == ".hpp") texts[entry.path().stem().string()] = read_file(entry.path());
  }
  return texts;
}

TEST(Layers, NameEveryHeader) {
  const auto layers = layers_on_the_page();
  for (const auto& [header, text] : library_headers()) EXPECT_EQ(layers.count(header), 1u) << header;
}

TEST(Layers, IncludeNothingOfLaterOnes) {
  const auto layers = layers_on_the_page();
  constexpr std::string_view kInclude = "#include \"orvo/timing/";
  std::size_t seen = 0;
  for (const auto& [header, text] : library_headers()) {
    for (const std::string& line : lines_of(text)) {
      if (!line.starts_with(kInclude)) continue;
      const std::string path = line.substr(kInclude.size(), line.find('"', kInclude.size()) - kInclude.size());
      const std::string included = fs::path(path).stem().string();
      ASSERT_EQ(layers.count(header) + layers.count(included), 2u) << header << ", " << included;
      EXPECT_GE(layers.at(header), layers.at(included)) << header << " includes " << included;
      ++seen;
    }
  }
  EXPECT_GT(seen, 50u);
}

}  // namespace
