// What the documentation refers to exists.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>

#include "docs/page.hpp"

namespace {

using namespace orvo::test;
namespace fs = std::filesystem;

bool is_elsewhere(const std::string& target) {
  return target.find("://") != target.npos;
}

/// The page itself for a target that is only an anchor.
fs::path file_of(const Page& page, const std::string& target) {
  const std::string file = target.substr(0, target.find('#'));
  return file.empty() ? page.path : (page.path.parent_path() / file).lexically_normal();
}

TEST(Links, LeadToFilesAndHeadings) {
  for (const std::string& name : all_page_names()) {
    const Page page = page_named(name);
    for (const Link& link : page.links) {
      if (is_elsewhere(link.target)) continue;
      const fs::path file = file_of(page, link.target);
      ASSERT_TRUE(fs::exists(file)) << page.at(link.line) << ": " << link.target;
      const auto hash = link.target.find('#');
      if (hash == link.target.npos || file.extension() != ".md") continue;
      const Page other = page_of(file, read_file(file));
      EXPECT_EQ(std::count(other.anchors.begin(), other.anchors.end(), link.target.substr(hash + 1)), 1)
          << page.at(link.line) << ": " << link.target;
    }
  }
}

TEST(Links, ReachEveryPageFromTheReadme) {
  const Page readme = page_named("README.md");
  std::set<fs::path> linked{readme.path};
  for (const Link& link : readme.links) linked.insert(file_of(readme, link.target));
  for (const std::string& name : all_page_names()) EXPECT_EQ(linked.count(checkout() / name), 1u) << name;
}

/// True for a word of code that names a file or directory of the checkout, without "*" or a placeholder such as NAME.
bool is_path(std::string_view word) {
  constexpr std::array<std::string_view, 11> kTops{"host/",  "docs/",  "scripts/", "cmake/",      "examples/", ".ci/",
                                                   "tests/", "tools/", "fuzz/",    "benchmarks/", "include/"};
  return word.find_first_of(" *<>{}$=") == word.npos && word.find("NAME") == word.npos &&
         word.find("FOLDER") == word.npos &&
         std::any_of(kTops.begin(), kTops.end(), [&](std::string_view top) { return word.starts_with(top); });
}

TEST(Paths, InTheTextExist) {
  std::size_t seen = 0;
  for (const std::string& name : all_page_names()) {
    const Page page = page_named(name);
    for (const CodeWord& word : page.code_words) {
      if (!is_path(word.text)) continue;
      ++seen;
      const bool exists = fs::exists(checkout() / word.text) || fs::exists(checkout() / "host/cpp" / word.text);
      EXPECT_TRUE(exists) << page.at(word.line) << ": " << word.text;
    }
  }
  EXPECT_GT(seen, 10u);
}

}  // namespace
