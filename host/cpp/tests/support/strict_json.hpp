#pragma once
// A JSON parser that forgives nothing, for the texts that the product writes: what it takes, every JSON parser takes.
// Of string contents it only asks what JSON itself does, not that bytes above 0x7F are sound UTF-8.
#include <algorithm>
#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace orvo::test {

/// One value that is no object: a string's text is unescaped, anything else is as written.
struct JsonLeaf {
  bool is_string = false;
  std::string text;

  friend bool operator==(const JsonLeaf&, const JsonLeaf&) = default;
};

/// The leaves of an object by their path: "xcorr.moment_fit.mean_ps". An empty object is a leaf "{}".
using JsonLeaves = std::map<std::string, JsonLeaf>;

class StrictJson {
 public:
  /// Nothing when the text is not exactly one JSON object, when a key occurs twice, or when it holds an array or a
  /// unicode escape, which the product never writes.
  static std::optional<JsonLeaves> parse(std::string_view text) {
    StrictJson parser(text);
    if (!parser.object("", 0)) return std::nullopt;
    parser.blank();
    if (!parser.left_.empty()) return std::nullopt;
    return parser.leaves_;
  }

 private:
  explicit StrictJson(std::string_view text) : left_(text) {}

  static bool is_digit(char c) { return c >= '0' && c <= '9'; }
  bool next_is(char c) const { return !left_.empty() && left_.front() == c; }
  bool take(char c) {
    if (!next_is(c)) return false;
    left_.remove_prefix(1);
    return true;
  }
  bool take_word(std::string_view word) {
    if (!left_.starts_with(word)) return false;
    left_.remove_prefix(word.size());
    return true;
  }
  void blank() { left_.remove_prefix(std::min(left_.find_first_not_of(" \t\n\r"), left_.size())); }

  bool add(const std::string& path, JsonLeaf leaf) { return leaves_.emplace(path, std::move(leaf)).second; }

  bool object(const std::string& path, int depth) {
    blank();
    if (!take('{') || depth > 16) return false;
    blank();
    if (take('}')) return add(path, {false, "{}"});
    do {
      blank();
      const std::optional<std::string> key = string();
      blank();
      if (!key || !take(':') || !value(path.empty() ? *key : path + "." + *key, depth)) return false;
      blank();
    } while (take(','));
    return take('}');
  }

  bool value(const std::string& path, int depth) {
    blank();
    if (next_is('{')) {
      if (!objects_.insert(path).second) return false;
      return object(path, depth + 1);
    }
    if (next_is('"')) {
      const std::optional<std::string> text = string();
      return text && add(path, {true, *text});
    }
    for (const char* const word : {"true", "false", "null"}) {
      if (take_word(word)) return add(path, {false, word});
    }
    const std::optional<std::string> digits = number();
    return digits && add(path, {false, *digits});
  }

  std::optional<std::string> string() {
    if (!take('"')) return std::nullopt;
    std::string text;
    while (!left_.empty()) {
      char c = left_.front();
      left_.remove_prefix(1);
      if (c == '"') return text;
      if (static_cast<unsigned char>(c) < 0x20) return std::nullopt;
      if (c == '\\') {
        constexpr std::string_view kEscapes = "\"\\/bfnrt";
        const auto kind = left_.empty() ? kEscapes.npos : kEscapes.find(left_.front());
        if (kind == kEscapes.npos) return std::nullopt;
        c = "\"\\/\b\f\n\r\t"[kind];
        left_.remove_prefix(1);
      }
      text += c;
    }
    return std::nullopt;
  }

  bool digits() {
    std::size_t count = 0;
    while (count < left_.size() && is_digit(left_[count])) ++count;
    left_.remove_prefix(count);
    return count > 0;
  }

  std::optional<std::string> number() {
    const std::string_view from = left_;
    take('-');
    if (!take('0') && !digits()) return std::nullopt;
    if (take('.') && !digits()) return std::nullopt;
    if (take('e') || take('E')) {
      if (!take('+')) take('-');
      if (!digits()) return std::nullopt;
    }
    return std::string(from.substr(0, from.size() - left_.size()));
  }

  std::string_view left_;
  JsonLeaves leaves_;
  std::set<std::string> objects_;
};

}  // namespace orvo::test
