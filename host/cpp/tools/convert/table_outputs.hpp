#pragma once
// Part of vq_convert_stream_file: file-local throughout.
// Tags as a table of text, and as an array of NumPy.
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "convert/byte_output.hpp"
#include "orvo/timing/error.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

/// "channel,time_ps", then a line for each tag.
class CsvOutput {
 public:
  explicit CsvOutput(const std::string& path) : output_(path) {
    constexpr std::string_view kNames = "channel,time_ps\n";
    output_.write(kNames.data(), kNames.size());
  }

  void write(std::span<const orvo::timing::TimeTag> tags) {
    constexpr std::size_t kLongestLine = 24;  // a channel of one digit, a number of 20
    if (text_.size() < kLongestLine * tags.size()) text_.resize(kLongestLine * tags.size());
    char* at = text_.data();
    for (const orvo::timing::TimeTag& tag : tags) {
      *at++ = static_cast<char>('0' + tag.channel);
      *at++ = ',';
      at = std::to_chars(at, at + 20, tag.time_ps).ptr;
      *at++ = '\n';
    }
    output_.write(text_.data(), static_cast<std::size_t>(at - text_.data()));
  }

  void complete() { output_.complete(); }

 private:
  ByteOutput output_;
  std::vector<char> text_;
};

/// A file of the format 1.0 of numpy.lib.format: a header of 128 bytes, then 9 bytes for each tag.
///
/// The header says how many tags there are, so it is written last. To a pipe that would be too late: there the tags
/// wait in a temporary file.
class NpyOutput {
 public:
  explicit NpyOutput(const std::string& path) : output_(path) {
    if (output_.is_file()) {
      const auto header = header_of(0);
      output_.write(header.data(), header.size());
    } else {
      waiting_ = std::tmpfile();
      if (waiting_ == nullptr) fail_to_wait();
    }
  }
  NpyOutput(const NpyOutput&) = delete;
  NpyOutput& operator=(const NpyOutput&) = delete;
  ~NpyOutput() {
    if (waiting_ != nullptr) std::fclose(waiting_);
  }

  void write(std::span<const orvo::timing::TimeTag> tags) {
    rows_.resize(kRowBytes * tags.size());
    std::uint8_t* at = rows_.data();
    for (const orvo::timing::TimeTag& tag : tags) {
      const auto time = static_cast<std::uint64_t>(tag.time_ps);
      *at = tag.channel;
      for (unsigned i = 0; i < 8; ++i) at[1 + i] = static_cast<std::uint8_t>(time >> (8 * i));
      at += kRowBytes;
    }
    tags_ += tags.size();
    if (waiting_ == nullptr) return output_.write(rows_.data(), rows_.size());
    if (std::fwrite(rows_.data(), 1, rows_.size(), waiting_) != rows_.size()) fail_to_wait();
  }

  void complete() {
    const auto header = header_of(tags_);
    if (waiting_ == nullptr) {
      output_.write_at_start(header.data(), header.size());
    } else {
      output_.write(header.data(), header.size());
      pass_on_waiting();
    }
    output_.complete();
  }

 private:
  static constexpr std::size_t kRowBytes = 9;
  static constexpr std::size_t kHeaderBytes = 128;

  /// Padded with blanks to a fixed length, which leaves room for any number of tags.
  static std::string header_of(std::uint64_t tags) {
    std::string header("\x93NUMPY\x01\x00\x76\x00", 10);  // version 1.0, and the length of what follows: 118
    header += "{'descr': [('channel', '|u1'), ('time_ps', '<i8')], 'fortran_order': False, 'shape': (" +
              std::to_string(tags) + ",), }";
    header.resize(kHeaderBytes - 1, ' ');
    return header + '\n';
  }

  void pass_on_waiting() {
    if (std::fflush(waiting_) != 0 || std::fseek(waiting_, 0, SEEK_SET) != 0) fail_to_wait();
    rows_.resize(std::size_t{1} << 20);
    for (std::uint64_t left = kRowBytes * tags_; left != 0;) {
      const std::size_t size = std::fread(rows_.data(), 1, rows_.size(), waiting_);
      if (size == 0) fail_to_wait();
      output_.write(rows_.data(), size);
      left -= size;
    }
  }
  [[noreturn]] static void fail_to_wait() {
    throw orvo::timing::Error("cannot write a temporary file", orvo::timing::kFileFailure);
  }

  ByteOutput output_;
  std::FILE* waiting_ = nullptr;
  std::vector<std::uint8_t> rows_;
  std::uint64_t tags_ = 0;
};

}  // namespace
