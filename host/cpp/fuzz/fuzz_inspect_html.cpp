// The inspection's page: whatever a capture, its header and its name hold, the page is the markup of the program, in
// which foreign text is text.
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/support/inspected_input.hpp"
#include "inspect/report_html.hpp"

namespace {

using orvo::fuzz::require;

/// Reads a page as a browser would, and stops at whatever the program does not write.
class PageReader {
 public:
  explicit PageReader(std::string_view page) : left_(page) {}

  void read() {
    require(take("<!DOCTYPE html>"), "it is a page");
    while (!left_.empty()) {
      if (left_.front() == '<') {
        tag();
      } else {
        text();
      }
    }
    require(open_.empty(), "every element ends");
  }

 private:
  bool take(std::string_view what) {
    if (!left_.starts_with(what)) return false;
    left_.remove_prefix(what.size());
    return true;
  }

  void text() {
    const char c = left_.front();
    if (c == '&') {
      for (const char* entity : {"&amp;", "&lt;", "&gt;", "&quot;", "&#39;"}) {
        if (take(entity)) return;
      }
      require(false, "an ampersand begins a character's name");
    }
    require(c != '>' && c != '"' && c != '\'', "characters of markup are written by their names");
    require(c == '\n' || static_cast<unsigned char>(c) >= ' ', "there are no control characters");
    left_.remove_prefix(1);
  }

  void tag() {
    const std::size_t end = left_.find('>');
    require(end != left_.npos, "a tag ends");
    const std::string_view tag = left_.substr(1, end - 1);
    left_.remove_prefix(end + 1);
    if (tag.starts_with('/')) {
      require(!open_.empty() && open_.back() == tag.substr(1), "elements end in order");
      open_.pop_back();
      return;
    }
    const std::string name(tag.substr(0, tag.find(' ')));
    require(name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789") == name.npos, "tags have names");
    require_known_attributes(tag);
    if (name == "meta") return;
    require(open_.empty() || !holds_text_only(open_.back()), "what holds text holds no element");
    open_.push_back(name);
    if (name == "script" || name == "style") program_text(name);
  }

  static bool holds_text_only(const std::string& name) {
    for (const char* each : {"title", "h1", "h2", "p", "b", "span", "td", "th"}) {
      if (name == each) return true;
    }
    return false;
  }

  /// Attributes are the program's alone: none that could act.
  static void require_known_attributes(std::string_view tag) {
    for (const char* each : {" on", "href", "src=\"", "srcdoc", "javascript"}) {
      require(tag.find(each) == tag.npos, "no attribute acts");
    }
    require(tag.find('<') == tag.npos, "a tag is no tag within another");
  }

  /// Scripts and styles are read up to their end tag, whatever they hold.
  void program_text(const std::string& name) {
    const std::size_t end = left_.find("</" + name + ">");
    require(end != left_.npos, "scripts and styles end");
    if (name == "script" && left_.front() == '{') {
      require(nlohmann::json::accept(left_.substr(0, end)), "the numbers of the plots are JSON");
      require(left_.substr(0, end).find('<') == left_.npos, "and no markup");
    }
    left_.remove_prefix(end);
  }

  std::string_view left_;
  std::vector<std::string> open_;
};

/// Without the parts of the page that are the same in all: they take all the time, and nobody could change them.
std::string without_fixed_parts(std::string page) {
  for (const auto& part : {std::pair{"<style>", "</style>"}, {"</script>\n<script>\n", "\n</script>\n<script>\n"}}) {
    const std::size_t begin = page.find(part.first);
    const std::size_t end = page.find(part.second, begin + 1);
    require(begin != page.npos && end != page.npos, "the page has its fixed parts");
    page.erase(begin + std::string_view(part.first).size(), end - begin - std::string_view(part.first).size());
  }
  return page;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  orvo::fuzz::Input input(data, size);
  const NamedCapture capture(input);
  std::ostringstream terminal;
  const Inspection of = inspected(capture, terminal);
  const std::string page = html_report(of, judge(of));
  PageReader(without_fixed_parts(page)).read();
  return 0;
}
