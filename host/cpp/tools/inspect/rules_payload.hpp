#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// Findings about what the payload's bytes turned out to be.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "inspect/encoding_probe.hpp"
#include "inspect/finding.hpp"
#include "inspect/inspection.hpp"
#include "inspect/numbers.hpp"
#include "orvo/timing/payload_loss.hpp"
#include "orvo/timing/payload_observer.hpp"

namespace {

/// A size of the payload in words: "12 bytes", for packed_delta "1500 bits".
inline std::string sized(const Inspection& of, std::uint64_t size) {
  return counted(size, of.is_packed() ? "bit" : "byte");
}

inline void judge_decoding(const Inspection& of, Findings& findings) {
  const auto& account = of.account();
  const std::uint64_t bytes = of.input().payload_bytes_read();
  const std::uint64_t tags = of.facts().tags();
  if (bytes == 0) {
    findings.push_back({Level::suspect, "empty", {}, "the capture ends after its header: it has no payload"});
    return;
  }
  if (tags == 0) {
    constexpr std::uint64_t kFewestToAlign = 4096;
    const bool too_short = of.is_packed() && bytes < kFewestToAlign;
    findings.push_back({too_short ? Level::note : Level::broken,
                        "nothing_decodes",
                        {},
                        counted(bytes, "byte") + " of payload give no tag" +
                            (too_short ? "; packed records need 4096 bytes to be aligned with certainty" : "")});
  }
  const std::uint64_t without_tags = account.lost().size + account.losses(orvo::timing::LossReason::lead).size;
  if (tags == 0 || 2 * without_tags > of.payload_units()) {
    if (const auto other = other_encoding(of.decoded_header(), of.head())) {
      findings.push_back(
          {Level::broken, "other_encoding", {}, "the payload reads as " + *other + ", not as the header says"});
    }
  }
}

inline void judge_start(const Inspection& of, Findings& findings) {
  const auto& account = of.account();
  const std::uint64_t lead = account.losses(orvo::timing::LossReason::lead).size + account.untimed_at_start();
  if (lead == 0 || of.facts().tags() == 0) return;
  const bool raw64 = of.header().stream_format == orvo::timing::StreamFormat::raw64;
  const std::uint64_t harmless = raw64 ? 7 : of.units_per_byte() * 65'600;
  findings.push_back({lead > harmless ? Level::suspect : Level::note,
                      "lead_in",
                      {},
                      sized(of, lead) +
                          " before the first tag gave none: the recording started in the middle of the " +
                          "device's stream"});
}

inline void judge_losses(const Inspection& of, Findings& findings) {
  const auto& account = of.account();
  const orvo::timing::LossTally lost = account.lost();
  if (lost.size == 0) return;
  const auto& largest = of.facts().losses.largest();
  const auto counts = [](const orvo::timing::PayloadLoss& loss) {
    return loss.reason != orvo::timing::LossReason::lead && loss.reason != orvo::timing::LossReason::cut;
  };
  const auto worst = std::find_if(largest.begin(), largest.end(), counts);
  std::string text = sized(of, lost.size) + " (" + percent(lost.size, of.payload_units()) + ") lost in " +
                     counted(lost.count, "piece");
  if (worst != largest.end()) {
    text += "; the largest: " + sized(of, worst->size) + " at " + (of.is_packed() ? "bit " : "byte ") +
            std::to_string(worst->position) + " of the payload (" + std::string(to_text(worst->reason)) + ")";
  }
  findings.push_back({100 * lost.size >= of.payload_units() ? Level::broken : Level::suspect,
                      "bytes_lost",
                      {},
                      text + "; look at the link and the disk"});
}

/// The reasons for which sync or lock was lost, with their numbers.
inline std::string break_reasons(const Inspection& of) {
  std::string text;
  for (std::size_t i = 0; i < orvo::timing::kLossReasons; ++i) {
    const auto reason = static_cast<orvo::timing::LossReason>(i);
    const std::uint64_t count = of.account().framings_lost(reason);
    if (count == 0) continue;
    text += (text.empty() ? "" : ", ") + std::string(to_text(reason)) + ' ' + std::to_string(count);
  }
  return text;
}

inline void judge_framing(const Inspection& of, Findings& findings) {
  const auto& account = of.account();
  const std::uint64_t breaks = account.breaks_in_lost();
  if (breaks == 0) return;
  constexpr std::uint64_t kMiB = 1 << 20;
  const bool many = breaks >= 10 && breaks * kMiB >= of.input().payload_bytes_read();
  std::string text = (of.is_packed() ? "the lock on the records was lost " : "the sync was lost ") +
                     counted(breaks, "time") + " (" + break_reasons(of) + ")";
  if (account.unanchored() != 0) {
    text += "; " + counted(account.unanchored(), "tag") + " up to the next time base of the channel " +
            (account.unanchored() == 1 ? "is" : "are") + " early by what was lost";
  }
  if (of.is_packed() && of.pending() != 0) text += "; " + sized(of, of.pending()) + " were never decoded";
  findings.push_back({many ? Level::broken : Level::suspect, of.is_packed() ? "lock_lost" : "sync_lost", {}, text});
}

inline void judge_end(const Inspection& of, Findings& findings) {
  const auto cut = of.account().losses(orvo::timing::LossReason::cut);
  if (cut.count == 0) return;
  findings.push_back({Level::suspect,
                      "cut_record",
                      {},
                      "the last record is cut: " + sized(of, cut.size) +
                          " of it are there; the writer was ended or the copy is not complete"});
}

inline void judge_overflow(const Inspection& of, Findings& findings) {
  const std::uint64_t overflow = of.account().size(orvo::timing::PayloadClass::overflow);
  if (!of.is_packed() || 5 * overflow <= of.payload_units()) return;
  findings.push_back({Level::note,
                      "overflow_share",
                      {},
                      percent(overflow, of.payload_units()) + " of the payload are overflow records: delta_bits " +
                          std::to_string(of.decoded_header().delta_bits) + " is little for these rates"});
}

}  // namespace
