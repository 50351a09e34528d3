#pragma once
// A capture from a fuzz input, under a name from the same input, and what the inspection says of it.
//
//   form | name | 0xFF | text for the header | 0xFF | payload, or, with bit 6 of the form, steps of raw64 records
//
// The form chooses the encoding; with bit 7 the text is the whole header, else a value in a sound one.
#include <stdlib.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <ostream>
#include <string>

#include "fuzz/support/input.hpp"
#include "fuzz/support/memory_file.hpp"
#include "fuzz/support/require.hpp"
#include "inspect/finding.hpp"
#include "inspect/inspection.hpp"
#include "inspect/judgement.hpp"
#include "support/bytes.hpp"

namespace {

/// A name for a file, from any bytes: without what no name can have.
inline std::string name_of_file(std::string bytes) {
  constexpr std::size_t kMost = 100;
  for (char& c : bytes) {
    if (c == '/' || c == '\0') c = '<';
  }
  return "x" + bytes.substr(0, kMost);
}

/// The capture under its name, for as long as this lives.
class NamedCapture {
 public:
  explicit NamedCapture(orvo::fuzz::Input& input) {
    const std::uint8_t form = input.byte();
    static const std::filesystem::path folder = [] {
      char name[] = "/tmp/orvo_fuzz_XXXXXX";
      orvo::fuzz::require(::mkdtemp(name) != nullptr, "there is a folder");
      return std::filesystem::path(name);
    }();
    const std::string name = name_of_file(input.text_until(0xFF));
    const std::string text = input.text_until(0xFF);
    const orvo::test::Bytes content = orvo::test::capture_bytes(header(form, text), payload(form, input));
    file_.emplace(content);
    path_ = folder / name;
    std::filesystem::create_symlink(file_->path(), path_);
  }
  NamedCapture(const NamedCapture&) = delete;
  NamedCapture& operator=(const NamedCapture&) = delete;
  ~NamedCapture() { ::unlink(path_.c_str()); }

  std::string path() const { return path_.native(); }

 private:
  static std::string header(std::uint8_t form, const std::string& text) {
    static constexpr const char* kEncodings[] = {"raw64", "delta32", "packed_delta", "raw64"};
    if ((form & 128) != 0) return text;
    return R"({"stream_format":")" + std::string(kEncodings[form & 3]) +
           R"(","mode":"external","channel_mask":3,"packed_delta_config":{"delta_bits":16,"quantum_ps":8},)"
           R"("application":")" +
           text + R"(","created_utc":"2026-01-01T00:00:00Z"})";
  }
  static orvo::test::Bytes payload(std::uint8_t form, orvo::fuzz::Input& input) {
    constexpr std::size_t kMostBytes = 4000;
    orvo::test::Bytes bytes;
    if ((form & 64) == 0) {
      const auto rest = input.bytes(kMostBytes);
      bytes.assign(rest.begin(), rest.end());
      return bytes;
    }
    std::uint64_t time_ps = 0;
    while (!input.empty() && bytes.size() < kMostBytes) {
      const unsigned channel = input.byte() & 3;
      time_ps += static_cast<std::uint64_t>(input.integer());
      const orvo::test::Bytes record = orvo::test::ps_record(channel, time_ps & 0xFFF'FFFF'FFFF);
      bytes.insert(bytes.end(), record.begin(), record.end());
    }
    return bytes;
  }

  std::optional<orvo::fuzz::MemoryFile> file_;
  std::filesystem::path path_;
};

/// Reads the capture as the program does.
inline Inspection inspected(const NamedCapture& capture, std::ostream& terminal) {
  Progress progress(terminal, false, "inspecting");
  return Inspection(capture.path(), 0, progress);
}

}  // namespace
