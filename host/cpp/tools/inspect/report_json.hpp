#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>

#include "inspect/finding.hpp"
#include "inspect/inspection.hpp"
#include "inspect/interval_bins.hpp"
#include "inspect/payload_classes.hpp"
#include "orvo/timing/payload_loss.hpp"
#include "orvo/timing/stream_header_json.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

using Json = nlohmann::ordered_json;

/// The value, or null where there is none.
template <class Value>
Json if_any(bool any, Value value) {
  return any ? Json(value) : Json(nullptr);
}

inline Json json_of_file(const Inspection& of) {
  Json file;
  file["path"] = of.path();
  file["bytes"] = of.file_bytes();
  file["magic"] = of.input().magic().substr(0, of.input().magic().find('\n'));
  file["header_bytes"] = of.input().header_bytes();
  file["payload_bytes"] = of.file_bytes() - (of.input().bytes_read() - of.input().payload_bytes_read());
  return file;
}

inline Json json_of_header(const orvo::timing::StreamFileHeader& header) {
  Json json;
  json["stream_format"] = to_text(header.stream_format);
  json["mode"] = to_text(header.mode);
  json["stream_transport"] = to_text(header.stream_transport);
  json["channel_mask"] = header.channel_mask;
  json["tdl_index"] = header.tdl_index;
  json["delta_bits"] = header.delta_bits;
  json["quantum_ps"] = header.quantum_ps;
  json["raw64_tag_format"] = header.raw64_tag_format;
  json["created_utc"] = header.created_utc;
  json["application"] = header.application;
  json["device_product"] = header.device_product;
  json["device_serial"] = header.device_serial;
  json["device_port"] = header.device_port;
  return json;
}

inline Json json_of_payload(const Inspection& of) {
  const std::string unit = of.is_packed() ? "bits" : "bytes";
  Json payload;
  payload["encoding"] = to_text(of.header().stream_format);
  payload["bytes"] = of.input().payload_bytes_read();
  payload["classes"] = Json::array();
  for (const ClassSize& each : class_sizes(of)) {
    payload["classes"].push_back(Json{{"class", each.name}, {unit, each.size}});
  }
  payload["losses"] = Json::array();
  for (std::size_t i = 0; i < orvo::timing::kLossReasons; ++i) {
    const auto reason = static_cast<orvo::timing::LossReason>(i);
    const orvo::timing::LossTally tally = of.account().losses(reason);
    if (tally.count == 0) continue;
    payload["losses"].push_back(Json{{"reason", to_text(reason)}, {"count", tally.count}, {unit, tally.size}});
  }
  payload["largest_losses"] = Json::array();
  for (const orvo::timing::PayloadLoss& loss : of.facts().losses.largest()) {
    payload["largest_losses"].push_back(
        Json{{"reason", to_text(loss.reason)}, {"position", loss.position}, {"size", loss.size}});
  }
  return payload;
}

inline Json json_of_channel(const Inspection& of, unsigned c) {
  const ChannelFacts& channel = of.facts().channels[c];
  const bool any = channel.tags() != 0;
  const bool forward = channel.forward_steps() != 0;
  Json json;
  json["channel"] = c;
  json["tags"] = channel.tags();
  json["first_ps"] = if_any(any, channel.first_ps());
  json["last_ps"] = if_any(any, channel.last_ps());
  json["rate_hz"] = if_any(of.facts().duration_ps() != 0, rate_hz(of, c));
  json["backward_steps"] = channel.backward_steps();
  json["largest_backward_step_ps"] = if_any(channel.backward_steps() != 0, channel.largest_backward_step_ps());
  json["equal_times"] = channel.equal_times();
  json["shortest_interval_ps"] = if_any(forward, channel.shortest_ps());
  json["longest_interval_ps"] = if_any(forward, channel.longest_ps());
  json["longest_interval_start_ps"] = if_any(forward, channel.longest_start_ps());
  json["grid_ps"] = channel.grid_ps();
  return json;
}

inline Json json_of_rates(const RateTrace& trace) {
  Json rates;
  rates["start_ps"] = if_any(trace.size() != 0, trace.start_ps());
  rates["slice_ps"] = if_any(trace.size() != 0, trace.slice_ps());
  rates["counts"] = Json::array();
  for (unsigned c = 0; c < orvo::timing::kChannels; ++c) rates["counts"].push_back(trace.counts(c));
  return rates;
}

inline Json json_of_intervals(const CaptureFacts& facts) {
  Json intervals;
  intervals["counts"] = Json::array();
  for (const ChannelFacts& channel : facts.channels) intervals["counts"].push_back(channel.intervals());
  intervals["bin_low_ps"] = kIntervalBinLows;
  return intervals;
}

/// A capture's whole report, its keys in the order of the published schema.
inline Json json_report(const Inspection& of, const Findings& findings) {
  const CaptureFacts& facts = of.facts();
  const bool any = facts.tags() != 0;
  Json json;
  json["schema_version"] = 1;
  json["file"] = json_of_file(of);
  json["header"] = json_of_header(of.header());
  json["payload"] = json_of_payload(of);
  json["tags"] = facts.tags();
  json["time"] = Json{{"first_ps", if_any(any, facts.first_ps())},
                      {"last_ps", if_any(any, facts.last_ps())},
                      {"duration_ps", if_any(any, facts.duration_ps())}};
  json["channels"] = Json::array();
  for (unsigned c = 0; c < orvo::timing::kChannels; ++c) json["channels"].push_back(json_of_channel(of, c));
  json["rates"] = json_of_rates(facts.trace);
  json["intervals"] = json_of_intervals(facts);
  json["findings"] = Json::array();
  for (const Finding& finding : findings) {
    json["findings"].push_back(Json{{"level", to_text(finding.level)},
                                    {"code", finding.code},
                                    {"channel", finding.channel ? Json(*finding.channel) : Json(nullptr)},
                                    {"text", finding.text}});
  }
  json["verdict"] = verdict_of(findings);
  return json;
}

/// An object with one member a line; what is deeper stays on it. Text that is not UTF-8 is shown with replacement
/// characters: headers may hold any bytes.
inline std::string json_text(const Json& json) {
  std::string text = "{";
  for (const auto& [key, value] : json.items()) {
    text += (text.size() == 1 ? "\n  " : ",\n  ") + Json(key).dump() + ": ";
    const bool is_list = value.is_array() && !value.empty() && value.front().is_object();
    if (!is_list) {
      text += value.dump(-1, ' ', false, Json::error_handler_t::replace);
      continue;
    }
    text += '[';
    for (const Json& each : value) {
      text += (&each == &value.front() ? "\n    " : ",\n    ") +
              each.dump(-1, ' ', false, Json::error_handler_t::replace);
    }
    text += "\n  ]";
  }
  return text + "\n}";
}

}  // namespace
