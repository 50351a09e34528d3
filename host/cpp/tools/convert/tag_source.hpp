#pragma once
// Part of vq_convert_stream_file: file-local throughout.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "common/units.hpp"
#include "convert/joined_axis.hpp"
#include "convert/settings.hpp"
#include "convert/tag_block.hpp"
#include "orvo/timing/error.hpp"
#include "orvo/timing/payload_account.hpp"
#include "orvo/timing/stream_file_reader.hpp"

namespace {

/// The tags of all inputs, one after the other on one time axis. Files are read as the verification reads them, in
/// pieces of 1 MiB, on which the tags of damaged captures depend.
class TagSource {
 public:
  static constexpr std::uint64_t kReadBytes = std::uint64_t{1} << 20;

  /// Opens every input once, so that one that is missing is told before anything is written. Notes go to `notes`.
  TagSource(const std::vector<std::string>& inputs, std::optional<std::int64_t> gap_ps, std::ostream& notes)
      : inputs_(inputs), axis_(gap_ps), notes_(notes) {
    for (const std::string& input : inputs_) {
      std::error_code error;
      const bool is_file = input != Settings::kPipe && std::filesystem::is_regular_file(input, error);
      if (is_file) total_bytes_ += std::filesystem::file_size(input, error);
      // Of a pipe the header can be read only once.
      auto reader = std::make_unique<orvo::timing::StreamFileReader>();
      reader->open(input == Settings::kPipe ? "/dev/stdin" : input);
      headers_.push_back(reader->header());
      kept_open_.push_back(is_file ? nullptr : std::move(reader));
    }
  }

  const std::vector<orvo::timing::StreamFileHeader>& headers() const { return headers_; }
  /// Bytes of all inputs that are files, and those read so far.
  std::uint64_t total_bytes() const { return total_bytes_; }
  std::uint64_t read_bytes() const { return read_bytes_; }

  /// The tags of the next read, which may be none; valid until the next call. False at the end of the last input.
  bool next(TagBlock& block) {
    block.clear();
    while (at_ < inputs_.size()) {
      if (!reader_) open();
      if (reader_->decode_next_chunk(kReadBytes, block, *account_)) {
        read_bytes_ += kReadBytes;
        place(block);
        return true;
      }
      close();
      ++at_;
    }
    return false;
  }

  /// No more will be asked for.
  void stop() {
    if (reader_) close();
    at_ = inputs_.size();
  }

 private:
  using Account = orvo::timing::PayloadAccount<>;

  void open() {
    reader_ = std::move(kept_open_[at_]);
    if (!reader_) {
      reader_ = std::make_unique<orvo::timing::StreamFileReader>();
      reader_->open(inputs_[at_]);
    }
    account_.emplace(orvo::timing::StreamDecoder(headers_[at_]).header, listener_);
    shift_ps_.reset();
    if (at_ == 0) shift_ps_ = 0;
  }

  /// Tells what the input lost.
  void close() {
    using orvo::timing::LossReason;
    if (const orvo::timing::StreamDecoder* const decoder = reader_->decoder()) account_->finish(*decoder);
    orvo::timing::LossTally lost = account_->lost();
    // A packed stream may begin anywhere: what comes before its lock is no loss, unless there never was one.
    const bool may_have_lead = account_->units_per_byte() == 8 && account_->framings_won() != 0;
    for (const LossReason reason : {LossReason::lead, LossReason::cut}) {
      const orvo::timing::LossTally& tally = account_->losses(reason);
      if (tally.size < account_->units_per_byte() || (reason == LossReason::lead && may_have_lead)) continue;
      lost.count += tally.count;
      lost.size += tally.size;
    }
    if (lost.count != 0) {
      notes_ << inputs_[at_] << ": " << lost.count << (lost.count == 1 ? " loss: " : " losses: ")
             << (lost.size + account_->units_per_byte() - 1) / account_->units_per_byte() << " bytes gave no tags\n";
    }
    reader_.reset();
  }

  void place(TagBlock& block) {
    const auto tags = block.tags();
    if (tags.empty()) return;
    if (!shift_ps_) shift_ps_ = axis_.shift_ps(headers_[at_], tags.front().time_ps, latest_ps_.value_or(0));
    for (orvo::timing::TimeTag& tag : tags) {
      if (*shift_ps_ != 0 && __builtin_add_overflow(tag.time_ps, *shift_ps_, &tag.time_ps)) {
        throw orvo::timing::Error(inputs_[at_] + ": ends after the end of all times", orvo::timing::kInvalidArgument);
      }
    }
    if (inputs_.size() == 1) return;
    for (const orvo::timing::TimeTag& tag : tags) {
      if (!latest_ps_ || tag.time_ps > *latest_ps_) latest_ps_ = tag.time_ps;
    }
  }

  std::vector<std::string> inputs_;
  JoinedAxis axis_;
  std::ostream& notes_;
  std::vector<orvo::timing::StreamFileHeader> headers_;
  std::vector<std::unique_ptr<orvo::timing::StreamFileReader>> kept_open_;
  std::size_t at_ = 0;  // the input that is read
  std::unique_ptr<orvo::timing::StreamFileReader> reader_;
  orvo::timing::NoLossListener listener_;
  std::optional<Account> account_;
  std::optional<std::int64_t> shift_ps_;   // of the input's times, once its first tag is known
  std::optional<std::int64_t> latest_ps_;  // of all tags so far
  std::uint64_t total_bytes_ = 0;
  std::uint64_t read_bytes_ = 0;
};

}  // namespace
