#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
#include <cmath>
#include <cstdint>
#include <iomanip>
#include <ios>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>

#include "orvo/timing/stream_header_json.hpp"
#include "orvo/timing/xcorr_histogram.hpp"
#include "simulate/damage.hpp"
#include "simulate/expectation.hpp"
#include "simulate/expected_peak.hpp"
#include "simulate/settings.hpp"
#include "simulate/simulation.hpp"

namespace {

inline std::string three_decimals(double value) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(3) << value;
  return text.str();
}

/// The number of tags, and the times of the first and last.
inline void print_contents(std::ostream& out, const Settings& settings, const StoredCapture& stored) {
  out << "capture=" << settings.out.string() << '\n' << "tags=" << stored.tags << '\n';
  for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
    out << "ch" << c << '=' << stored.channels[c].tags << '\n';
  }
  out << "first_ps=" << stored.first.time_ps << '\n' << "last_ps=" << stored.last_ps << '\n';
  for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
    if (stored.channels[c].axis_ps != 0) out << "ch" << c << "_axis_ps=" << stored.channels[c].axis_ps << '\n';
  }
}

/// Four significant digits, for numbers of any size.
inline std::string four_digits(double value) {
  std::ostringstream text;
  text << std::setprecision(4) << value;
  return text.str();
}

/// What an analysis that looks for a peak or a dip should find.
inline void print_expected_peak(std::ostream& out, const ExpectedPeak& expected) {
  const auto print = [&out](const char* name, const std::optional<double>& value) {
    if (value) out << name << '=' << four_digits(*value) << '\n';
  };
  out << "expected_verdict=" << expected.verdict << '\n';
  print("expected_pairs", expected.pairs);
  print("expected_share_a", expected.share_a);
  print("expected_share_b", expected.share_b);
  print("expected_background_per_ps", expected.background_per_ps);
  print("expected_g2", expected.g2);
  print("expected_g2_at_zero", expected.g2_at_zero);
  print("expected_period_ps", expected.period_ps);
  print("expected_tooth_pairs", expected.tooth_pairs);
  print("expected_dip_decay_ps", expected.dip_decay_ps);
}

/// What correlating the channels of the pairs gives. Numbers are counted over the stored tags, except those called
/// "expected", which are calculated; an "error" is the standard deviation from one seed to another.
inline void print_correlation(std::ostream& out, const Settings& settings, const StoredCapture& stored,
                              double step_ps) {
  const PairSettings& pairs = settings.pairs;
  const StoredChannel& a = stored.channels[pairs.channel_a];
  const StoredChannel& b = stored.channels[pairs.channel_b];
  const CoincidenceSums& found = stored.coincidences;
  const auto count = static_cast<double>(found.count);
  const double length_ps = static_cast<double>(settings.duration_ps.value_or(stored.last_ps - settings.start_ps));
  const double accidental = accidentals(static_cast<double>(a.tags), static_cast<double>(b.tags), pairs, length_ps);
  const double sigma_ps = pair_sigma_ps(pairs, step_ps);
  const ExpectedHistogram expected = expected_histogram(count, accidental, sigma_ps, pairs.range_ps);
  const std::int64_t offset_ps = pairs.delay_ps + b.axis_ps - a.axis_ps;
  out << "channel_a=" << pairs.channel_a << '\n'
      << "channel_b=" << pairs.channel_b << '\n'
      << "offset_ps=" << offset_ps << '\n'
      << "range_ps=" << pairs.range_ps << '\n'
      << "coincidences=" << found.count << '\n'
      << "coincidences_error=" << three_decimals(std::sqrt(count)) << '\n';
  if (!settings.has_dead_time() && settings.light.kind == Light::none) {
    const double expected_count = pairs_in_range(pairs, sigma_ps, length_ps) + accidental;
    out << "expected_coincidences=" << three_decimals(expected_count) << '\n';
  }
  out << "expected_accidentals=" << three_decimals(accidental) << '\n'
      << "mean_ps=" << three_decimals(found.mean_ps()) << '\n'
      << "mean_error_ps=" << three_decimals(expected.mean_error_ps) << '\n'
      << "rms_ps=" << three_decimals(found.rms_ps()) << '\n'
      << "expected_rms_ps=" << three_decimals(expected.rms_ps) << '\n'
      << "rms_error_ps=" << three_decimals(expected.rms_error_ps) << '\n'
      << "fwhm_ps=" << three_decimals(found.rms_ps() * orvo::timing::kFwhmPerSigma) << '\n'
      << "pair_sigma_ps=" << three_decimals(sigma_ps) << '\n'
      << "pair_fwhm_ps=" << three_decimals(sigma_ps * orvo::timing::kFwhmPerSigma) << '\n';
  if (!settings.has_dead_time()) print_expected_peak(out, expected_peak(settings, length_ps, sigma_ps));
  out << "verify=vq_verify_stream_file_xcorr " << settings.out.string() << ' ' << pairs.channel_a << ' '
      << pairs.channel_b << " --offset=" << offset_ps << " --range=" << pairs.range_ps << '\n';
}

/// The damage to the payload. All other numbers are those of the sound payload.
inline void print_damage(std::ostream& out, const Settings& settings, const Damage& damage) {
  if (!settings.damage.any()) return;
  out << "front_garbage_bytes=" << settings.damage.front_garbage_bytes << '\n'
      << "garbage_bytes=" << damage.inserted_bytes() << '\n'
      << "flipped_bits=" << damage.flipped_bits() << '\n'
      << "cut_tail_bytes=" << settings.damage.cut_tail_bytes << '\n';
}

}  // namespace
