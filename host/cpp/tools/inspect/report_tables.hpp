#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// The tables that the text and the page have in common, titles first.
#include <cstddef>
#include <string>
#include <vector>

#include "inspect/inspection.hpp"
#include "inspect/numbers.hpp"
#include "inspect/payload_classes.hpp"
#include "orvo/timing/payload_account.hpp"
#include "orvo/timing/payload_loss.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

using Rows = std::vector<std::vector<std::string>>;

/// A row for each channel that has tags.
inline Rows channel_rows(const Inspection& of) {
  const CaptureFacts& facts = of.facts();
  Rows rows{{"channel", "tags", "rate", "shortest step", "mean", "longest", "grid", "steps back", "equal times"}};
  for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
    const ChannelFacts& channel = facts.channels[c];
    if (channel.tags() == 0) continue;
    const bool forward = channel.forward_steps() != 0;
    rows.push_back({std::to_string(c), std::to_string(channel.tags()),
                    facts.duration_ps() == 0 ? "-" : text_of_rate_hz(rate_hz(of, c)),
                    forward ? for_people(channel.shortest_ps()) : "-",
                    channel.ranked() == 0 ? "-" : for_people(channel.mean_ps()),
                    forward ? for_people(channel.longest_ps()) : "-", std::to_string(channel.grid_ps()) + " ps",
                    std::to_string(channel.backward_steps()), std::to_string(channel.equal_times())});
  }
  return rows;
}

/// A row for each reason for which something was lost.
inline Rows loss_rows(const Inspection& of) {
  Rows rows{{"loss", "count", of.is_packed() ? "bits" : "bytes"}};
  for (std::size_t i = 0; i < orvo::timing::kLossReasons; ++i) {
    const auto reason = static_cast<orvo::timing::LossReason>(i);
    const orvo::timing::LossTally tally = of.account().losses(reason);
    if (tally.count == 0) continue;
    rows.push_back({std::string(to_text(reason)), std::to_string(tally.count), std::to_string(tally.size)});
  }
  return rows;
}

}  // namespace
