#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// Reading a capture that was inspected again, as often as it takes.
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "common/progress.hpp"
#include "inspect/capture_input.hpp"
#include "inspect/inspection.hpp"
#include "orvo/timing/chance_pairs.hpp"
#include "orvo/timing/error.hpp"
#include "orvo/timing/payload_observer.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "orvo/timing/tag_sink.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

/// A capture that can be read more than once. A pipe cannot: what is read of it goes to a file without a name, in
/// TMPDIR or /tmp, and is read from there.
class RepeatableInput {
 public:
  /// Throws `Error` when there is no place for a copy.
  explicit RepeatableInput(const std::string& path) : path_(path) {
    if (path_ != "-") return;
    struct stat status {};
    const bool is_file = ::fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode);
    start_ = is_file ? ::lseek(STDIN_FILENO, 0, SEEK_CUR) : -1;
    if (start_ < 0) make_copy();
  }
  RepeatableInput(const RepeatableInput&) = delete;
  RepeatableInput& operator=(const RepeatableInput&) = delete;
  ~RepeatableInput() {
    if (copy_ >= 0) ::close(copy_);
  }

  /// Where what is read first has to be written to; -1 where that is not needed.
  int copy() const { return copy_; }

  /// The input from its beginning. Throws `Error`.
  CaptureInput again() const {
    if (path_ != "-") return CaptureInput(path_);
    const int descriptor = copy_ >= 0 ? copy_ : STDIN_FILENO;
    if (::lseek(descriptor, copy_ >= 0 ? 0 : start_, SEEK_SET) < 0) fail("cannot read standard input again");
    return CaptureInput(CaptureInput::Open{"standard input", descriptor});
  }

 private:
  [[noreturn]] static void fail(const std::string& what) {
    throw orvo::timing::Error(what + ": " + std::strerror(errno), orvo::timing::kFileFailure);
  }

  void make_copy() {
    const char* const directory = std::getenv("TMPDIR");
    std::string name = (directory != nullptr && *directory != '\0' ? directory : "/tmp");
    const std::string where = name;
    name += "/vq_inspect_stream_file.XXXXXX";
    copy_ = ::mkstemp(name.data());
    if (copy_ < 0) fail("cannot keep a copy of standard input in " + where);
    ::unlink(name.c_str());
  }

  std::string path_;
  off_t start_ = 0;
  int copy_ = -1;
};

/// What a pass over a capture gave, in order to tell whether the next one gives the same.
struct TagSums {
  std::array<orvo::timing::ChannelExtent, orvo::timing::kChannels> extents;
  std::array<std::uint64_t, orvo::timing::kChannels> times{};  ///< sums modulo 2^64

  void add(unsigned channel, std::int64_t time_ps) {
    extents[channel].add(time_ps);
    times[channel] += static_cast<std::uint64_t>(time_ps);
  }
};

/// Hands the first tags on and sums them up.
template <class Sink>
class SummingSink {
 public:
  SummingSink(Sink& sink, std::uint64_t most_tags) : sink_(sink), left_(most_tags) {}

  void begin_chunk(std::size_t most_tags) {
    sums_before_ = sums_;
    left_before_ = left_;
    sink_.begin_chunk(most_tags);
  }
  void add(unsigned channel, std::int64_t time_ps) {
    if (left_ == 0) return;
    --left_;
    sums_.add(channel, time_ps);
    sink_.add(channel, time_ps);
  }
  void end_chunk() { sink_.end_chunk(); }
  void discard_chunk() {
    sums_ = sums_before_;
    left_ = left_before_;
    sink_.discard_chunk();
  }

  bool is_full() const { return left_ == 0; }
  const TagSums& sums() const { return sums_; }

 private:
  Sink& sink_;
  std::uint64_t left_;
  std::uint64_t left_before_ = 0;
  TagSums sums_;
  TagSums sums_before_;
};

/// Decodes again what an inspection has read, no more if the file has grown meanwhile.
class CapturePasses {
 public:
  /// Of no more than `max_tags` tags, all when that is 0.
  CapturePasses(const Inspection& of, const RepeatableInput& input, std::uint64_t max_tags, Progress& progress)
      : of_(of), input_(input), max_tags_(max_tags == 0 ? UINT64_MAX : max_tags), progress_(progress) {}

  orvo::timing::ChannelExtent extent(unsigned channel) const {
    const ChannelFacts& facts = of_.facts().channels[channel];
    if (facts.tags() == 0) return {};
    return {facts.first_ps(), facts.last_ps(), facts.tags()};
  }

  /// Throws `Error`, among others when the tags are not those of the inspection.
  template <class Sink>
  void run(Sink& sink) {
    CaptureInput input = input_.again();
    orvo::timing::StreamDecoder decoder(of_.header());
    SummingSink<Sink> summing(sink, max_tags_);
    orvo::timing::NoObserver nobody;
    const std::uint64_t all = of_.input().payload_bytes_read();
    std::uint64_t left = all;
    ++pass_;
    while (left != 0 && !summing.is_full()) {
      const std::size_t count = input.read(decoder.pending_bytes, left);
      if (count == 0) break;
      left -= count;
      orvo::timing::detail::decode_pending(decoder, summing, nobody);
      const int percent = static_cast<int>(100 * (static_cast<double>(all - left) / static_cast<double>(all)));
      progress_.tell_state("pass " + std::to_string(pass_) + ", " + std::to_string(percent) + " %");
    }
    check(summing.sums());
  }

 private:
  void check(const TagSums& sums) {
    bool same = !sums_ || sums_->times == sums.times;
    for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
      const orvo::timing::ChannelExtent expected = extent(c);
      const orvo::timing::ChannelExtent& found = sums.extents[c];
      same = same && found.tags == expected.tags && found.first_ps == expected.first_ps &&
             found.last_ps == expected.last_ps;
    }
    if (!same) {
      throw orvo::timing::Error((of_.path() == "-" ? "standard input" : of_.path()) +
                                    ": changed while it was read; pairs of channels need it several times",
                                orvo::timing::kFileFailure);
    }
    sums_ = sums;
  }

  const Inspection& of_;
  const RepeatableInput& input_;
  std::uint64_t max_tags_;
  Progress& progress_;
  int pass_ = 0;
  std::optional<TagSums> sums_;
};

}  // namespace
