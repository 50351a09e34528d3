#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// The pairs of channels on the page: a matrix of all, and of each its numbers and its histogram.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "common/units.hpp"
#include "inspect/html_text.hpp"
#include "inspect/pair_report.hpp"
#include "inspect/pair_search.hpp"

namespace {

inline std::string id_of(const PairFinding& finding) {
  return "pair-" + std::to_string(finding.channel_a) + '-' + std::to_string(finding.channel_b);
}

/// Whether there can be pairs: no channel is empty.
inline bool has_tags(const PairFinding& finding) {
  return finding.statistics.recording.a.tags > 0 && finding.statistics.recording.b.tags > 0;
}

/// Five digits: what a plot shows. A page must not grow with the digits of its numbers.
inline double plot_number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.5g", value);
  return std::strtod(text, nullptr);
}

template <class Values>
nlohmann::ordered_json plot_numbers_of(const Values& values) {
  nlohmann::ordered_json json = nlohmann::ordered_json::array();
  for (const auto value : values) json.push_back(plot_number(value));
  return json;
}

/// How far on either side of its place the bins of a peak go; those of a comb's odd tooth are a tooth's.
inline std::optional<double> half_region_ps(const PairFinding& finding) {
  const auto& judgement = finding.statistics.judgement;
  if (!judgement.peak || !judgement.peak->place_ps) return std::nullopt;
  if (judgement.comb) return 0.3 * judgement.comb->period_ps.value;
  const double bin_ps = finding.statistics.bins.bin_ps;
  return 1.5 * (judgement.peak->fwhm_ps ? judgement.peak->fwhm_ps->value : bin_ps) + bin_ps / 2;
}

/// The histogram, bin by bin, and what is drawn into it. Delays are counted from the view's offset.
inline nlohmann::ordered_json histogram_numbers(const PairFinding& finding) {
  const orvo::timing::PairJudgement& judgement = finding.statistics.judgement;
  const orvo::timing::CorrelationBins& bins = finding.statistics.bins;
  nlohmann::ordered_json json{{"id", id_of(finding)},
                              {"offset_ps", finding.view.offset_ps},
                              {"range_ps", finding.view.range_ps},
                              {"bin_ps", finding.view.bin_ps},
                              {"level", plot_number(level_of(finding))},
                              {"counts", bins.counts},
                              {"expected", plot_numbers_of(bins.expected)}};
  const auto& peak = judgement.peak;
  if (const auto half_ps = half_region_ps(finding)) {
    json["peak"] = {{"from_ps", peak->place_ps->value - *half_ps}, {"to_ps", peak->place_ps->value + *half_ps}};
  }
  if (peak && peak->half_maximum) {
    const orvo::timing::HalfMaximum& half = *peak->half_maximum;
    json["half"] = {{"level", half.level}, {"from_ps", half.from_ps}, {"to_ps", half.to_ps}};
  }
  if (judgement.comb) {
    json["comb"] = {{"tooth_ps", judgement.comb->tooth_ps}, {"period_ps", judgement.comb->period_ps.value}};
  }
  return json;
}

/// The numbers of the plots: no text of the capture is among them.
inline nlohmann::ordered_json pair_numbers(const std::vector<PairFinding>& pairs) {
  nlohmann::ordered_json json = nlohmann::ordered_json::array();
  for (const PairFinding& finding : pairs) {
    if (!has_tags(finding)) continue;
    json.push_back(histogram_numbers(finding));
    const DelayOverview& overview = finding.overview;
    json.back()["overview"] = {{"first_ps", overview.first_ps()},
                               {"group_ps", overview.group_ps()},
                               {"threshold", plot_number(overview.threshold)},
                               {"sigmas", plot_numbers_of(overview.sigmas)}};
    if (const auto delay = finding.delay_ps()) json.back()["overview"]["delay_ps"] = delay->value;
  }
  return json;
}

/// A value and its error, to two digits of that: "160.2 &plusmn; 1.3 ps".
inline std::string with_error(const orvo::timing::Estimate& estimate, const std::string& unit = "") {
  const double exponent = estimate.error > 0 ? std::floor(std::log10(estimate.error)) : 0;
  const int decimals = static_cast<int>(std::clamp(1 - exponent, 0.0, 6.0));
  char text[96];
  std::snprintf(text, sizeof text, "%.*f &plusmn; %.*f", decimals, estimate.value, decimals, estimate.error);
  return text + unit;
}

/// How clear it is, and how often unrelated light is as clear.
inline std::string chance_of(const orvo::timing::PairJudgement& judgement) {
  constexpr double kNeedsNoPower = -3;
  const double power = judgement.probability.log10();
  char text[96];
  if (power >= kNeedsNoPower) {
    std::snprintf(text, sizeof text, "; probability by chance %.2g", std::pow(10, power));
  } else {
    std::snprintf(text, sizeof text, "; probability by chance 10<sup>%.1f</sup>", power);
  }
  return three_digits(judgement.sigmas()) + " sigmas" + text;
}

/// One cell: the verdict at a glance, and a link to the histogram.
inline void write_cell(std::ostream& out, const PairFinding& finding) {
  const std::string verdict(to_text(verdict_of(finding)));
  const auto delay = finding.delay_ps();
  std::string where = "&ndash;";
  if (delay) where = text_of_time_ps(delay->value);
  if (!delay && finding.period_ps) where = "every " + text_of_time_ps(*finding.period_ps);
  if (!has_tags(finding)) where = "no tags";
  out << "<td class=\"pair " << verdict << "\"><a href=\"#" << id_of(finding) << "\"><b>" << verdict << "</b><span>"
      << where << "</span><span>";
  if (has_tags(finding)) out << three_digits(finding.statistics.judgement.sigmas()) << " sigmas";
  out << "</span></a></td>";
}

/// Rows are the channels that delays count from, columns those that they count to.
inline void write_matrix(std::ostream& out, const std::vector<PairFinding>& pairs) {
  std::set<unsigned> from;
  std::set<unsigned> to;
  for (const PairFinding& finding : pairs) {
    from.insert(finding.channel_a);
    to.insert(finding.channel_b);
  }
  out << "<div class=\"wide\"><table class=\"matrix\">\n<tr><th>channel</th>";
  for (const unsigned b : to) out << "<th scope=\"col\">to " << b << "</th>";
  out << "</tr>\n";
  for (const unsigned a : from) {
    out << "<tr><th scope=\"row\">from " << a << "</th>";
    for (const unsigned b : to) {
      const auto found = std::find_if(pairs.begin(), pairs.end(), [&](const PairFinding& finding) {
        return finding.channel_a == a && finding.channel_b == b;
      });
      if (found == pairs.end()) {
        out << "<td></td>";
      } else {
        write_cell(out, *found);
      }
    }
    out << "</tr>\n";
  }
  out << "</table></div>\n";
}

/// What is known of a pair, a line each.
inline void write_facts(std::ostream& out, const PairFinding& finding) {
  const orvo::timing::PairStatistics& statistics = finding.statistics;
  const auto& peak = statistics.judgement.peak;
  out << "<dl>";
  const auto row = [&out](std::string_view name, const std::string& value) {
    out << "<dt>" << name << "</dt><dd>" << value << "</dd>";
  };
  row("significance", chance_of(statistics.judgement));
  if (const auto delay = finding.delay_ps()) row("delay", with_error(*delay, " ps"));
  if (finding.period_ps) row("period", text_of_time_ps(*finding.period_ps));
  if (peak && peak->fwhm_ps) row("full width at half maximum", with_error(*peak->fwhm_ps, " ps"));
  if (peak)
    row(peak->side == orvo::timing::CorrelationSide::dip ? "pairs missing" : "pairs", with_error(peak->pairs));
  if (peak && peak->g2) row("g2", with_error({peak->g2->g2, peak->g2->error}));
  const std::string a = "share of channel " + std::to_string(finding.channel_a);
  const std::string b = "share of channel " + std::to_string(finding.channel_b);
  if (statistics.share_a) row(a, with_error(*statistics.share_a));
  if (statistics.share_b) row(b, with_error(*statistics.share_b));
  const double expected = middle_expected(statistics.bins);
  row("background a bin", three_digits(level_of(finding) * expected) + ", by chance " + three_digits(expected));
  out << "</dl>\n";
}

inline void write_remarks(std::ostream& out, const PairFinding& finding) {
  const auto remark = [&out](bool holds, std::string_view text) {
    if (holds) out << "<p class=\"remark\">" << text << "</p>\n";
  };
  const auto& judgement = finding.statistics.judgement;
  remark(finding.ambiguous, "Light in pulses: the delay is known up to a multiple of the period.");
  remark(judgement.cut, "Part of the peak lies outside this view: its pairs are those in view.");
  remark(finding.statistics.drifting,
         "The rates rise and fall together: chance is taken from short stretches of them.");
  remark(finding.statistics.too_short,
         "The recording is too short for this view: nothing in it is called significant.");
  remark(judgement.background.differs_from_chance() && !judgement.comb,
         "The background is not what chance gives: see whether the light "
         "blinks or drifts, or a detector has dead time.");
}

inline void write_pair_plot(std::ostream& out, const std::string& id, std::string_view size, const std::string& how) {
  out << "<p class=\"faint\">" << how << "</p>\n<div class=\"controls\" id=\"" << id << "-controls\"></div>\n"
      << "<div class=\"plot " << size << "\" id=\"" << id << "\"></div>\n<div class=\"values\" id=\"" << id
      << "-values\"></div>\n";
}

/// What is drawn, as far as it is.
inline std::string about_histogram(const PairFinding& finding) {
  std::string text = "Pairs in bins of " + std::to_string(finding.view.bin_ps) + " ps";
  const std::int64_t offset_ps = finding.view.offset_ps;
  if (offset_ps != 0) text += ", delays from " + std::to_string(offset_ps) + " ps";
  const auto& judgement = finding.statistics.judgement;
  if (judgement.peak && judgement.peak->place_ps) text += "; shaded: the " + std::string(to_text(judgement.verdict));
  if (judgement.peak && judgement.peak->half_maximum) text += "; bar: its half maximum";
  if (judgement.comb) text += "; upright lines: multiples of the period";
  return text + ".";
}

inline void write_pair(std::ostream& out, const PairFinding& finding, const std::string& path) {
  const std::string verdict(to_text(verdict_of(finding)));
  const std::string id = id_of(finding);
  out << "<section class=\"pair\" id=\"" << id << "\">\n<h3>Channel " << finding.channel_a << " to "
      << finding.channel_b << ": <span class=\"" << verdict << "\">" << verdict << "</span></h3>\n";
  if (!has_tags(finding)) {
    out << "<p>A channel has no tags: there are no pairs.</p>\n</section>\n";
    return;
  }
  write_facts(out, finding);
  write_remarks(out, finding);
  constexpr std::size_t kLongestPath = 40'000;  // cut, a command would be another one
  if (const auto command = verify_command(finding, path))
    out << "<pre>" << html_text(*command, kLongestPath) << "</pre>\n";
  write_pair_plot(out, id + "-histogram", "histogram", about_histogram(finding));
  const DelayOverview& overview = finding.overview;
  write_pair_plot(out, id + "-overview", "overview",
                  "All delays within reach: sigmas of the clearest of each " +
                      std::to_string(overview.bins_per_group) + " bins of " + text_of_time_ps(overview.bin_ps) +
                      ". Above the dashed line they are certain without a closer look.");
  out << "</section>\n";
}

inline void write_pairs(std::ostream& out, const std::vector<PairFinding>& pairs, const std::string& path) {
  out << "<section>\n<h2>Pairs of channels</h2>\n<p class=\"faint\">Which channels are correlated, and by how much a "
         "tag "
         "of the second comes later. Drag in a histogram to zoom, shift and drag to move, double click to see "
         "all.</p>\n";
  write_matrix(out, pairs);
  out << "</section>\n<div class=\"pairs\">\n";
  for (const PairFinding& finding : pairs) write_pair(out, finding, path);
  out << "</div>\n";
}

}  // namespace
