#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "orvo/timing/time_tag.hpp"

namespace {

/// Makes blocks of tags in a second thread, always one block ahead.
class ReadAhead {
 public:
  using Block = std::vector<orvo::timing::TimeTag>;
  /// Replaces the contents of a block; false when it is the last one.
  using Maker = std::function<bool(Block&)>;

  explicit ReadAhead(Maker make) : make_(std::move(make)), thread_([this] { work(); }) {}
  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;
  ~ReadAhead() {
    {
      const std::lock_guard lock(mutex_);
      unwanted_ = true;
    }
    changed_.notify_all();
    thread_.join();
  }

  /// Replaces `block` by the next one; false when there is none. Throws what the maker threw instead of making it.
  bool next(Block& block) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return has_block_ || ended_; });
    if (!has_block_) {
      if (failure_) std::rethrow_exception(failure_);
      return false;
    }
    block.swap(ready_);
    has_block_ = false;
    changed_.notify_all();
    return true;
  }

 private:
  void work() {
    Block block;
    try {
      for (bool more = true; more && !unwanted();) {
        more = make_(block);
        hand_over(block, more);
      }
    } catch (...) {
      const std::lock_guard lock(mutex_);
      failure_ = std::current_exception();
      ended_ = true;
    }
    changed_.notify_all();
  }

  bool unwanted() {
    const std::lock_guard lock(mutex_);
    return unwanted_;
  }

  void hand_over(Block& block, bool more) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !has_block_ || unwanted_; });
    block.swap(ready_);
    has_block_ = true;
    ended_ = !more;
    changed_.notify_all();
  }

  Maker make_;
  std::mutex mutex_;
  std::condition_variable changed_;
  Block ready_;
  bool has_block_ = false;
  bool ended_ = false;
  bool unwanted_ = false;
  std::exception_ptr failure_;
  std::thread thread_;  // the last member: it uses all others
};

}  // namespace
