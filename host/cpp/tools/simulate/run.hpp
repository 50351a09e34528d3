#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "common/command_line.hpp"
#include "common/console.hpp"
#include "common/progress.hpp"
#include "orvo/timing/encoder_settings.hpp"
#include "orvo/timing/error.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/tag_encoder.hpp"
#include "simulate/capture_file.hpp"
#include "simulate/damage.hpp"
#include "simulate/ground_truth.hpp"
#include "simulate/options.hpp"
#include "simulate/settings_rules.hpp"
#include "simulate/simulation.hpp"
#include "simulate/time_grid.hpp"

namespace {

/// The header of a simulated capture, the same in every run: no clock or machine goes into it.
inline orvo::timing::StreamFileHeader header_for(const Settings& settings) {
  orvo::timing::StreamFileHeader header;
  header.stream_format = settings.encoding;
  header.mode = settings.mode;
  header.channel_mask = 0;
  for (const unsigned c : active_channels_of(settings)) {
    header.channel_mask = static_cast<std::uint8_t>(header.channel_mask | 1u << c);
  }
  header.delta_bits = static_cast<std::uint8_t>(settings.delta_bits);
  header.quantum_ps = static_cast<std::uint16_t>(settings.quantum_ps);
  header.raw64_tag_format = settings.tag_format;
  header.created_utc = "1970-01-01T00:00:00.000000Z";
  header.application = "vq_simulate_stream_file";
  header.device_product = "simulation";
  header.device_serial = "seed " + std::to_string(settings.seed);
  return header;
}

/// As the device encodes: every channel starts at what its clock reads.
inline orvo::timing::EncoderSettings encoder_settings_for(const Settings& settings) {
  return {.anchor_every = settings.anchor_every, .start_bit = settings.start_bit, .channel_axes = true};
}

/// Simulates, writes the capture, and prints what a verification should find. Failures are thrown.
template <class Grid>
void write_capture(const Settings& settings, Grid grid, Console& console) {
  const orvo::timing::StreamFileHeader header = header_for(settings);
  CaptureFile file(settings.out, header);
  const auto write = [&file](const void* data, std::size_t size) { file.write(data, size); };
  Simulation<Grid> simulation(settings, grid, orvo::timing::TagEncoder(header, encoder_settings_for(settings)));
  Damage damage(settings);
  Progress progress(console.err, console.err_is_terminal, "simulating");
  damage.begin(write);
  for (std::span<const std::uint8_t> payload = simulation.next(); !payload.empty(); payload = simulation.next()) {
    damage.pass(payload, write);
    progress.tell(simulation.progress());
  }
  const StoredCapture stored = simulation.stored();
  file.complete(settings.damage.cut_tail_bytes);
  print_contents(console.out, settings, stored);
  if (active_channels_of(settings).size() > 1) print_correlation(console.out, settings, stored, grid.step_ps());
  print_damage(console.out, settings, damage);
  if (!console.out.flush()) throw orvo::timing::Error("cannot write to standard output", orvo::timing::kFileFailure);
}

inline void write_capture(const Settings& settings, Console& console) {
  switch (settings.encoding) {
    case orvo::timing::StreamFormat::raw64:
      if (settings.is_raw_cf()) return write_capture(settings, CoarseFineGrid{}, console);
      return write_capture(settings, PicosecondGrid{}, console);
    case orvo::timing::StreamFormat::delta32:
      return write_capture(settings, PicosecondGrid{}, console);
    case orvo::timing::StreamFormat::packed_delta:
      return write_capture(settings, QuantumGrid{settings.quantum_shift()}, console);
  }
}

/// The whole program, given its arguments without its name: to the exit status.
inline int run(const std::vector<std::string>& arguments, Console console) {
  Options options;
  return run_app(options.app(), arguments, console, [&] {
    const Settings settings = options.settings();
    check_settings(settings);
    write_capture(settings, console);
  });
}

}  // namespace
