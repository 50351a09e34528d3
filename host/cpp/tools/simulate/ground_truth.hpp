#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
#include <cmath>
#include <cstdint>
#include <iomanip>
#include <ostream>
#include <sstream>
#include <string>

#include "orvo/timing/stream_header_json.hpp"
#include "orvo/timing/xcorr_histogram.hpp"
#include "simulate/damage.hpp"
#include "simulate/expectation.hpp"
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
  const double accidental =
      accidentals(static_cast<double>(a.tags), static_cast<double>(b.tags), pairs.range_ps, length_ps);
  const double sigma_ps = pair_sigma_ps(pairs, step_ps);
  const ExpectedHistogram expected = expected_histogram(count, accidental, sigma_ps, pairs.range_ps);
  const std::int64_t offset_ps = pairs.delay_ps + b.axis_ps - a.axis_ps;
  out << "channel_a=" << pairs.channel_a << '\n'
      << "channel_b=" << pairs.channel_b << '\n'
      << "offset_ps=" << offset_ps << '\n'
      << "range_ps=" << pairs.range_ps << '\n'
      << "coincidences=" << found.count << '\n'
      << "coincidences_error=" << three_decimals(std::sqrt(count)) << '\n';
  if (!settings.has_dead_time()) {
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
      << "pair_fwhm_ps=" << three_decimals(sigma_ps * orvo::timing::kFwhmPerSigma) << '\n'
      << "verify=vq_verify_stream_file_xcorr " << settings.out.string() << ' ' << pairs.channel_a << ' '
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
