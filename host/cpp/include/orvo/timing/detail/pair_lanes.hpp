#pragma once
// The fast way to count pairs.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "orvo/timing/detail/bin_layout.hpp"
#include "orvo/timing/detail/slot_of_reach.hpp"

namespace orvo::timing::detail {

/// Counts per slot, in 32 bits: many bins then stay in the processor's nearest memory.
class SlotCounts {
 public:
  explicit SlotCounts(std::vector<std::int64_t>& counts) : counts_(counts), slots_(counts.size() + 2) {}

  void count(std::uint64_t slot) { ++slots_[slot]; }

  /// Moves everything over to the bins.
  void settle() {
    for (std::size_t bin = 0; bin < counts_.size(); ++bin) counts_[bin] += slots_[bin + 1];
    std::fill(slots_.begin(), slots_.end(), 0);
  }

 private:
  std::vector<std::int64_t>& counts_;
  std::vector<std::uint32_t> slots_;
};

/// On sparse data nearly every branch of the readable form is a coin toss, and each A event waits for the place in B
/// that the last one found. So A is cut into lanes, walked in turns, each with its own place in B: the processor
/// works on one while it waits for another. And no branch asks what random times decide:
///
/// - find: for each A event of a block, times of B in front of its window are skipped by counting them. Its first
///   candidate is written behind those kept so far and kept if it pairs; else the next one overwrites it.
/// - round: for each kept event, its candidate is counted, and the next candidate kept in the same manner.
///
/// After two rounds, what still pairs is dense, and a loop over its candidates is well predicted.
///
/// After `kSettleAfter` pairs the counts move to the bins: with the pairs of one more A event they fit 32 bits.
template <class Slot, std::uint32_t kSettleAfter = 2'000'000'000>
class PairLanes {
 public:
  PairLanes(const XcorrWindow& window, const Slot& slot_of, std::vector<std::int64_t>& counts)
      : low_offset_ps_(window.offset_ps - window.range_ps), slot_of_(slot_of), counts_(counts) {}

  /// The pairs of A events from the front on; returns how many events that were. Those are left whose windows reach
  /// the last few times of B, and those that do not fill a block. Window starts and times of B must be all negative
  /// or all not: they are compared as unsigned numbers.
  std::size_t count(std::span<const std::int64_t> a_ps, std::span<const std::int64_t> b_ps) {
    static_assert(kSettleAfter <= kMostTimes);
    if (b_ps.size() < kAhead || b_ps.size() > kMostTimes) return 0;
    const std::int64_t last_low_ps = b_ps[b_ps.size() - kAhead] - static_cast<std::int64_t>(slot_of_.widest());
    const auto in_reach = std::lower_bound(a_ps.begin(), a_ps.end(), last_low_ps - low_offset_ps_) - a_ps.begin();
    const std::size_t lane_events = static_cast<std::size_t>(in_reach) / (kLanes * kBlock) * kBlock;
    if (lane_events == 0) return 0;
    std::array<Lane, kLanes> lanes;
    for (std::size_t i = 0; i < kLanes; ++i) {
      lanes[i].a = a_ps.data() + i * lane_events;
      lanes[i].b = &*std::lower_bound(b_ps.begin(), b_ps.end(), lanes[i].a[0] + low_offset_ps_);
    }
    for (std::size_t done = 0; done < lane_events; done += kBlock) count_block(lanes);
    counts_.settle();
    return lane_events * kLanes;
  }

 private:
  static constexpr std::size_t kLanes = 4;
  static constexpr std::size_t kBlock = 64;  // A events of each lane
  static constexpr std::size_t kAhead = 4;   // times of B that are looked at together
  static constexpr std::uint32_t kMostTimes = (std::uint32_t{1} << 31) - kBlock * kLanes;

  struct Lane {
    const std::int64_t* a;
    const std::int64_t* b;  // the first time that is not in front of the last A event's window
  };

  /// A events with a candidate that pairs.
  struct Kept {
    std::size_t size = 0;
    std::array<const std::int64_t*, kLanes * kBlock> candidate;
    std::array<std::int64_t, kLanes * kBlock> low_ps;  // where the window starts

    void add(const std::int64_t* b, std::int64_t low, std::uint64_t beyond) {
      candidate[size] = b;
      low_ps[size] = low;
      size += reach(b, low) < beyond ? 1 : 0;
    }
  };

  static std::uint64_t reach(const std::int64_t* b, std::int64_t low_ps) {
    return static_cast<std::uint64_t>(*b - low_ps);
  }

  /// The first of `b` that is not below `low_ps`.
  static const std::int64_t* skip_below(const std::int64_t* b, std::int64_t low_ps) {
    std::size_t below = 0;
    for (std::size_t i = 0; i < kAhead; ++i) {
      below += static_cast<std::uint64_t>(b[i]) < static_cast<std::uint64_t>(low_ps) ? 1 : 0;
    }
    b += below;
    while (*b < low_ps) ++b;  // rarely: there were more
    return b;
  }

  void count_block(std::array<Lane, kLanes>& lanes) {
    const std::uint64_t beyond = slot_of_.widest() + 1;
    Kept kept;
    for (std::size_t i = 0; i < kBlock; ++i) {
      for (Lane& lane : lanes) {
        const std::int64_t low_ps = *lane.a++ + low_offset_ps_;
        lane.b = skip_below(lane.b, low_ps);
        kept.add(lane.b, low_ps, beyond);
      }
    }
    count_round(kept);
    count_round(kept);
    count_rest(kept);
  }

  void count_round(Kept& kept) {
    const std::size_t events = kept.size;
    kept.size = 0;
    for (std::size_t i = 0; i < events; ++i) {
      const std::int64_t* const b = kept.candidate[i];
      const std::int64_t low_ps = kept.low_ps[i];
      counts_.count(slot_of_(reach(b, low_ps)));
      kept.add(b + 1, low_ps, slot_of_.widest() + 1);
    }
    note_pairs(events);
  }

  void count_rest(const Kept& kept) {
    const std::uint64_t widest = slot_of_.widest();
    for (std::size_t i = 0; i < kept.size; ++i) {
      const std::int64_t* b = kept.candidate[i];
      const std::int64_t low_ps = kept.low_ps[i];
      // The last of a few pairs, so do those before it.
      for (; reach(b + kAhead - 1, low_ps) <= widest; b += kAhead) {
        for (std::size_t k = 0; k < kAhead; ++k) counts_.count(slot_of_(reach(b + k, low_ps)));
      }
      for (; reach(b, low_ps) <= widest; ++b) counts_.count(slot_of_(reach(b, low_ps)));
      note_pairs(static_cast<std::size_t>(b - kept.candidate[i]));
    }
  }

  void note_pairs(std::size_t pairs) {
    unsettled_ += pairs;
    if (unsettled_ < kSettleAfter) return;
    counts_.settle();
    unsettled_ = 0;
  }

  std::int64_t low_offset_ps_;
  Slot slot_of_;
  SlotCounts counts_;
  std::uint64_t unsettled_ = 0;
};

}  // namespace orvo::timing::detail
