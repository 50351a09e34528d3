#pragma once
// Part of vq_convert_stream_file: file-local throughout.
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "orvo/timing/time_tag.hpp"

namespace {

/// The tags of one read, in storage that is used again. A sink of decoders.
class TagBlock {
 public:
  void begin_chunk(std::size_t most_tags) {
    begin_ = size_;
    if (tags_.size() < size_ + most_tags) tags_.resize(size_ + most_tags);
    next_ = tags_.data() + size_;
  }
  void add(unsigned channel, std::int64_t time_ps) {
    next_->channel = static_cast<std::uint8_t>(channel);
    next_->time_ps = time_ps;
    ++next_;
  }
  void end_chunk() { size_ = static_cast<std::size_t>(next_ - tags_.data()); }
  void discard_chunk() { size_ = begin_; }

  void clear() { size_ = 0; }
  std::span<orvo::timing::TimeTag> tags() { return {tags_.data(), size_}; }

 private:
  std::vector<orvo::timing::TimeTag> tags_;
  orvo::timing::TimeTag* next_ = nullptr;
  std::size_t size_ = 0;
  std::size_t begin_ = 0;
};

}  // namespace
