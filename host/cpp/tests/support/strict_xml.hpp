#pragma once
// Well-formedness of the XML that the product writes, which is the plainest there is: elements, attributes in double
// quotes, text. Declarations, comments, entities and the like are refused.
#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvo::test {

struct XmlElement {
  std::string name;
  int depth = 0;  // 0 is the root
  std::map<std::string, std::string> attributes;
  std::string text;  // directly inside, white space and all
};

class StrictXml {
 public:
  /// The elements in the order of their start tags; nothing when the text is not well-formed.
  static std::optional<std::vector<XmlElement>> parse(std::string_view text) {
    StrictXml parser(text);
    if (!parser.element(0)) return std::nullopt;
    parser.blank();
    if (!parser.left_.empty()) return std::nullopt;
    return parser.elements_;
  }

 private:
  explicit StrictXml(std::string_view text) : left_(text) {}

  static constexpr std::string_view kBlank = " \t\n\r";

  bool take(std::string_view word) {
    if (!left_.starts_with(word)) return false;
    left_.remove_prefix(word.size());
    return true;
  }
  bool blank() {
    const std::size_t count = std::min(left_.find_first_not_of(kBlank), left_.size());
    left_.remove_prefix(count);
    return count > 0;
  }
  std::string up_to(std::string_view stops) {
    const std::string_view taken = left_.substr(0, left_.find_first_of(stops));
    left_.remove_prefix(taken.size());
    return std::string(taken);
  }
  static bool allowed(std::string_view content) {
    return std::all_of(content.begin(), content.end(), [](char c) {
      const auto byte = static_cast<unsigned char>(c);
      return c != '&' && c != '<' && (byte >= 0x20 || kBlank.find(c) != kBlank.npos);
    });
  }

  std::string name() {
    constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    constexpr std::string_view kInside = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_.";
    if (left_.empty() || kLetters.find(left_.front()) == kLetters.npos) return {};
    const std::string_view taken = left_.substr(0, left_.find_first_not_of(kInside));
    left_.remove_prefix(taken.size());
    return std::string(taken);
  }

  bool attributes(XmlElement& element) {
    while (blank() && !left_.starts_with(">") && !left_.starts_with("/>")) {
      const std::string key = name();
      if (key.empty() || !take("=\"")) return false;
      const std::string value = up_to("\"");
      if (!take("\"") || !allowed(value) || !element.attributes.emplace(key, value).second) return false;
    }
    return true;
  }

  bool element(int depth) {
    if (depth > 16 || !take("<")) return false;
    const std::size_t index = elements_.size();
    elements_.push_back({name(), depth, {}, {}});
    const std::string opened = elements_[index].name;
    if (opened.empty() || !attributes(elements_[index])) return false;
    if (take("/>")) return true;
    if (!take(">")) return false;
    for (;;) {
      const std::string text = up_to("<");
      if (!allowed(text) || left_.empty()) return false;
      elements_[index].text += text;
      if (left_.starts_with("</")) break;
      if (!element(depth + 1)) return false;
    }
    return take("</" + opened + ">");
  }

  std::string_view left_;
  std::vector<XmlElement> elements_;
};

}  // namespace orvo::test
