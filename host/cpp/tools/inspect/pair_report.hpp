#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// The members of a pair's report, and the command that shows its peak.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "inspect/far_delay.hpp"
#include "inspect/pair_search.hpp"

namespace {

inline std::string_view to_text(orvo::timing::PairVerdict verdict) {
  switch (verdict) {
    case orvo::timing::PairVerdict::peak:
      return "peak";
    case orvo::timing::PairVerdict::dip:
      return "dip";
    case orvo::timing::PairVerdict::comb:
      return "comb";
    case orvo::timing::PairVerdict::none:
      break;
  }
  return "none";
}

/// A comb whose delay is not known is one, whatever the view about one of its teeth shows.
inline orvo::timing::PairVerdict verdict_of(const PairFinding& finding) {
  const bool is_comb = finding.ambiguous && finding.statistics.judgement.significant;
  return is_comb ? orvo::timing::PairVerdict::comb : finding.statistics.judgement.verdict;
}

/// Pairs by chance in a bin in the middle of the view.
inline double middle_expected(const orvo::timing::CorrelationBins& bins) {
  return bins.expected.empty() ? 0 : bins.expected[bins.expected.size() / 2];
}

/// The background in units of chance, as it is beside the peak if there is one.
inline double level_of(const PairFinding& finding) {
  const auto& judgement = finding.statistics.judgement;
  return judgement.peak ? judgement.peak->level.value : judgement.background.level;
}

/// A word with control characters, in a form that bash, zsh and ksh know; nothing in it moves a cursor.
inline std::string escaped_shell_word(const std::string& text) {
  std::string word = "$'";
  for (const char c : text) {
    if (static_cast<unsigned char>(c) < ' ' || c == 0x7F) {
      char octal[8];
      std::snprintf(octal, sizeof octal, "\\%03o", static_cast<unsigned>(c));
      word += octal;
    } else {
      word += c == '\'' || c == '\\' ? std::string{'\\', c} : std::string(1, c);
    }
  }
  return word + '\'';
}

/// A word that a shell takes as it is.
inline std::string shell_word(const std::string& text) {
  constexpr std::string_view kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-+=,./:@%";
  if (!text.empty() && text.find_first_not_of(kPlain) == text.npos) return text;
  const auto is_control = [](unsigned char c) { return c < ' ' || c == 0x7F; };
  if (std::any_of(text.begin(), text.end(), is_control)) return escaped_shell_word(text);
  std::string word = "'";
  for (const char c : text) word += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return word + '\'';
}

/// Shows the peak in the middle, or the comb or dip with its surroundings; none without a correlation, or of standard
/// input, which that program does not read.
inline std::optional<std::string> verify_command(const PairFinding& finding, const std::string& capture) {
  if (!finding.statistics.judgement.significant || capture == "-") return std::nullopt;
  const auto delay = finding.delay_ps();
  std::int64_t range_ps = finding.view.range_ps;
  std::int64_t bin_ps = finding.view.bin_ps;
  if (const auto& peak = finding.statistics.judgement.peak; delay && peak && peak->fwhm_ps) {
    range_ps = std::max<std::int64_t>(whole_ps(5 * peak->fwhm_ps->value), 10);
    bin_ps = whole_ps(peak->fwhm_ps->value / 8) | 1;  // odd: all bins hold as many delays
  }
  return "vq_verify_stream_file_xcorr " + shell_word(capture) + ' ' + std::to_string(finding.channel_a) + ' ' +
         std::to_string(finding.channel_b) +
         " --offset=" + std::to_string(delay ? whole_ps(delay->value) : finding.view.offset_ps) +
         " --range=" + std::to_string(range_ps) + " --bin=" + std::to_string(bin_ps);
}

/// The number, or null where there is none.
inline nlohmann::ordered_json json_number(std::optional<double> number) {
  return number && std::isfinite(*number) ? nlohmann::ordered_json(*number) : nlohmann::ordered_json(nullptr);
}

/// Value and error of an estimate under `name` and `name` with "_error" before its unit, `unit`.
inline void put(nlohmann::ordered_json& json, const std::string& name, const std::string& unit,
                const std::optional<orvo::timing::Estimate>& estimate) {
  json[name + unit] = json_number(estimate ? std::optional(estimate->value) : std::nullopt);
  json[name + "_error" + unit] = json_number(estimate ? std::optional(estimate->error) : std::nullopt);
}

inline nlohmann::ordered_json json_of_pair(const PairFinding& finding, const std::string& capture) {
  const orvo::timing::PairJudgement& judgement = finding.statistics.judgement;
  const auto& peak = judgement.peak;
  const double expected = middle_expected(finding.statistics.bins);
  const bool any = expected > 0;
  const auto share = [](const std::optional<orvo::timing::Estimate>& of) {
    return json_number(of ? std::optional(of->value) : std::nullopt);
  };
  nlohmann::ordered_json json;
  json["channel_a"] = finding.channel_a;
  json["channel_b"] = finding.channel_b;
  json["verdict"] = to_text(verdict_of(finding));
  json["significant"] = judgement.significant;
  json["ambiguous"] = finding.ambiguous;
  json["cut"] = judgement.cut;
  put(json, "delay", "_ps", finding.delay_ps());
  json["sigmas"] = json_number(any ? std::optional(judgement.sigmas()) : std::nullopt);
  json["log10_probability"] = json_number(any ? std::optional(judgement.probability.log10()) : std::nullopt);
  put(json, "pairs", "", peak ? std::optional(peak->pairs) : std::nullopt);
  json["background_per_bin"] = json_number(any ? std::optional(level_of(finding) * expected) : std::nullopt);
  json["expected_background_per_bin"] = json_number(any ? std::optional(expected) : std::nullopt);
  const bool has_g2 = peak && peak->g2;
  json["g2_peak"] = json_number(has_g2 ? std::optional(peak->g2->g2) : std::nullopt);
  json["g2_peak_error"] = json_number(has_g2 ? std::optional(peak->g2->error) : std::nullopt);
  json["g2_low"] = json_number(has_g2 ? std::optional(peak->g2->low) : std::nullopt);
  json["g2_high"] = json_number(has_g2 ? std::optional(peak->g2->high) : std::nullopt);
  put(json, "fwhm", "_ps", peak ? peak->fwhm_ps : std::nullopt);
  json["share_a"] = share(finding.statistics.share_a);
  json["share_b"] = share(finding.statistics.share_b);
  json["period_ps"] = json_number(finding.period_ps);
  json["bin_ps"] = finding.view.bin_ps;
  const auto command = verify_command(finding, capture);
  json["verify_command"] = command ? nlohmann::ordered_json(*command) : nlohmann::ordered_json(nullptr);
  return json;
}

}  // namespace
