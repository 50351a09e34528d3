#pragma once
// A page of the documentation, as far as tests look at it: fenced blocks, links, headings, code words.
#include <algorithm>
#include <cctype>
#include <cstddef>
#include <filesystem>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "support/temp_directory.hpp"

namespace orvo::test {

/// A fenced block. "```console needs=python3" gives the language "console" and the word "needs=python3".
struct Block {
  std::size_t line = 0;  // of its first line of text
  std::string language;
  std::vector<std::string> words;
  std::string text;

  bool has(std::string_view word) const { return std::find(words.begin(), words.end(), word) != words.end(); }
};

struct Link {
  std::size_t line = 0;
  bool picture = false;
  std::string target;
};

struct CodeWord {
  std::size_t line = 0;
  std::string text;
};

struct Page {
  std::filesystem::path path;
  std::vector<Block> blocks;
  std::vector<Link> links;
  std::vector<CodeWord> code_words;
  std::vector<std::string> anchors;  // of its headings

  std::string at(std::size_t line) const { return path.filename().string() + ":" + std::to_string(line); }
};

/// The name that links use for a heading: lower case, hyphens for blanks, no punctuation.
inline std::string anchor_of(std::string_view heading) {
  std::string anchor;
  for (const char c : heading) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == ' ') anchor += '-';
    if (std::isalnum(byte) != 0 || c == '-' || c == '_' || byte >= 0x80) {
      anchor += static_cast<char>(std::tolower(byte));
    }
  }
  return anchor;
}

/// Reads a page line by line.
class PageReader {
 public:
  explicit PageReader(std::filesystem::path path) { page_.path = std::move(path); }

  void take(const std::string& line) {
    ++line_;
    const std::size_t indent = std::min(line.find_first_not_of(' '), line.size());
    if (std::string_view(line).substr(indent).starts_with("```")) {
      fence(line, indent);
    } else if (inside_) {
      page_.blocks.back().text += line.substr(std::min(indent, indent_)) + '\n';
    } else {
      prose(line);
    }
  }

  /// The page; its last block must be closed.
  Page finish() {
    if (inside_) throw std::runtime_error(page_.at(page_.blocks.back().line) + ": this block does not end");
    return page_;
  }

 private:
  void fence(const std::string& line, std::size_t indent) {
    inside_ = !inside_;
    if (!inside_) return;
    indent_ = indent;
    std::istringstream info(line.substr(indent + 3));
    Block block{line_ + 1, {}, {}, {}};
    info >> block.language;
    for (std::string word; info >> word;) block.words.push_back(word);
    page_.blocks.push_back(block);
  }

  void prose(const std::string& line) {
    if (line.starts_with('#')) {
      const std::size_t title = line.find_first_not_of("# ");
      if (title != line.npos) page_.anchors.push_back(anchor_of(line.substr(title)));
    }
    std::string words;  // the line without its code, where brackets mean nothing
    for (std::size_t at = 0; at < line.size();) {
      const std::size_t open = std::min(line.find('`', at), line.size());
      words += line.substr(at, open - at);
      if (open == line.size()) break;
      const std::size_t close = line.find('`', open + 1);
      if (close == line.npos) break;
      page_.code_words.push_back({line_, line.substr(open + 1, close - open - 1)});
      words += '.';
      at = close + 1;
    }
    links(words);
  }

  void links(const std::string& words) {
    for (std::size_t at = words.find("]("); at != words.npos; at = words.find("](", at + 2)) {
      const std::size_t close = words.find(')', at);
      const std::size_t open = words.rfind('[', at);
      if (close == words.npos || open == words.npos) continue;
      page_.links.push_back({line_, open > 0 && words[open - 1] == '!', words.substr(at + 2, close - at - 2)});
    }
  }

  Page page_;
  std::size_t line_ = 0;
  std::size_t indent_ = 0;
  bool inside_ = false;
};

inline Page page_of(const std::filesystem::path& path, const std::string& text) {
  PageReader reader(path);
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) reader.take(line);
  return reader.finish();
}

/// The checkout that these tests belong to.
inline std::filesystem::path checkout() {
  return std::filesystem::path(__FILE__).parent_path().parent_path().parent_path().parent_path().parent_path();
}

/// Names of all pages, relative to the checkout: the README and docs/.
inline std::vector<std::string> page_names() {
  std::vector<std::string> names{"README.md"};
  for (const auto& entry : std::filesystem::directory_iterator(checkout() / "docs")) {
    if (entry.path().extension() == ".md") names.push_back("docs/" + entry.path().filename().string());
  }
  std::sort(names.begin() + 1, names.end());
  return names;
}

/// The same and the pages that only developers read.
inline std::vector<std::string> all_page_names() {
  std::vector<std::string> names = page_names();
  names.insert(names.end(), {"CONTRIBUTING.md", "CHANGELOG.md"});
  return names;
}

inline Page page_named(const std::string& name) {
  return page_of(checkout() / name, read_file(checkout() / name));
}

}  // namespace orvo::test
