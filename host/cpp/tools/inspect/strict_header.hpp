#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <cstddef>
#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

/// A value of a header as a strict parser reads it. Of an object or an array only that it is one.
struct StrictValue {
  enum class Type { text, number, other };
  Type type = Type::other;
  std::string text;
  std::uint64_t number = 0;  ///< whole and not negative; other numbers are of type `other`
};

/// A header's members, those of `packed_delta_config` as if they stood beside it.
struct StrictHeader {
  bool is_object = false;  ///< exactly one JSON object, and nothing after it
  std::map<std::string, StrictValue> values;
  std::vector<std::string> twice;  ///< keys that come more than once
};

/// Fills a header while the text is parsed: no tree is built of what a file may hold.
class StrictHeaderReader : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit StrictHeaderReader(StrictHeader& header) : header_(header) {}

  bool null() override { return other(); }
  bool boolean(bool) override { return other(); }
  bool number_integer(number_integer_t) override { return other(); }
  bool number_unsigned(number_unsigned_t value) override { return keep({StrictValue::Type::number, {}, value}); }
  bool number_float(number_float_t, const string_t&) override { return other(); }
  bool string(string_t& value) override { return keep({StrictValue::Type::text, std::move(value), 0}); }
  bool binary(binary_t&) override { return other(); }
  bool start_object(std::size_t) override {
    if (depth_ == 0) header_.is_object = true;
    if (depth_ == 1) in_config_ = key_ == "packed_delta_config";
    return open();
  }
  bool end_object() override { return close(); }
  bool start_array(std::size_t) override { return open(); }
  bool end_array() override { return close(); }
  bool key(string_t& name) override {
    key_ = keeps() ? std::move(name) : string_t();
    return true;
  }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
    header_.is_object = false;
    return false;
  }

 private:
  static constexpr std::size_t kMostKeys = 1000;

  bool keeps() const { return depth_ == 1 || (depth_ == 2 && in_config_); }
  bool other() { return keep({}); }
  bool open() {
    keep({});
    ++depth_;
    return true;
  }
  bool close() {
    --depth_;
    if (depth_ == 1) in_config_ = false;
    return true;
  }
  bool keep(StrictValue value) {
    if (!keeps() || header_.values.size() >= kMostKeys) return true;
    if (!header_.values.emplace(key_, std::move(value)).second && header_.twice.size() < kMostKeys) {
      header_.twice.push_back(key_);
    }
    return true;
  }

  StrictHeader& header_;
  std::size_t depth_ = 0;
  bool in_config_ = false;
  std::string key_;
};

inline StrictHeader strict_header(std::string_view text) {
  StrictHeader header;
  StrictHeaderReader reader(header);
  if (!nlohmann::json::sax_parse(text.begin(), text.end(), &reader)) header.is_object = false;
  return header;
}

}  // namespace
