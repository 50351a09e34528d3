// Captures of 20 million tags: decoded into lists per channel, beside the reference decoders, whose tags are
// collected and then split; and verified by the program from its start to its exit, beside the program that is put
// together from references and must find the same. Then the other programs on the same captures, and last the program
// on the synthetic capture that it makes itself.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "orvo/timing/channel_times.hpp"
#include "orvo/timing/stream_file_reader.hpp"
#include "reference/tag.hpp"
#include "support/captures.hpp"
#include "support/lazy.hpp"
#include "support/plain_files.hpp"
#include "support/rows.hpp"
#include "support/run_program.hpp"
#include "support/temp_directory.hpp"

namespace {

using namespace orvo;

constexpr std::size_t kEventsPerChannel = 10'000'000;

struct Cost {
  double wall_seconds = 0;
  double cpu_seconds = 0;
  double peak_mebibytes = 0;
};

struct Run {
  Cost cost;
  std::string out;
};

Run run(const std::string& program, std::vector<std::string> arguments, const std::filesystem::path& directory) {
  arguments.insert(arguments.begin(), program);
  const test::ProgramResult result =
      test::run_program({ORVO_BENCH_STOPWATCH, std::move(arguments), directory, {}, {}});
  Run run{{}, result.out};
  std::istringstream figures(result.err);
  double peak_kibibytes = 0;
  if (result.exit_status != 0 || !(figures >> run.cost.wall_seconds >> run.cost.cpu_seconds >> peak_kibibytes)) {
    throw std::runtime_error(program + ": exit status " + std::to_string(result.exit_status) + "\n" + result.err);
  }
  run.cost.peak_mebibytes = peak_kibibytes / 1024;
  return run;
}

/// The lines of a summary that tell what was found.
std::string findings(const std::string& out) {
  const std::size_t from = out.find("decoded_tags=");
  const std::size_t last = out.find("\nrms_ps=");
  if (from == out.npos || last == out.npos) return "nothing";
  return out.substr(from, out.find('\n', last + 1) - from);
}

/// Captures of the same tags in each encoding.
using Paths = std::map<std::string, std::string>;

Paths write_captures(const std::vector<bench::Encoding>& encodings) {
  const std::vector<timing::TimeTag> tags =
      bench::in_quanta(bench::merged(bench::two_channels(kEventsPerChannel, 20'000)));
  Paths paths;
  for (const bench::Encoding& encoding : encodings) {
    paths[encoding.name] =
        bench::write_capture("program_" + encoding.name, encoding, bench::encoded(encoding, tags).bytes);
  }
  ::sync();  // or the disk would be busy with them while the programs run
  return paths;
}

/// Every program must have found this of one capture at one offset.
std::string& found_in(const std::string& path, const std::string& offset) {
  static std::map<std::string, std::string> found;
  return found[path + ' ' + offset];
}

void give_cost(benchmark::State& state, const Cost& cost) {
  state.counters["s wall"] = cost.wall_seconds;
  state.counters["s cpu"] = cost.cpu_seconds;
  state.counters["MiB peak"] = cost.peak_mebibytes;
}

/// A run with that offset, or an estimated one if it is empty.
void measure(benchmark::State& state, const std::string& path, const std::string& offset, const std::string& program,
             const std::vector<std::string>& arguments) {
  Run last;
  for (auto _ : state) last = run(program, arguments, bench::capture_directory().path());
  std::string& found = found_in(path, offset);
  if (found.empty()) found = findings(last.out);
  if (findings(last.out) != found) {
    return bench::fail(state, program + " found\n" + findings(last.out) + "\nand before\n" + found);
  }
  give_cost(state, last.cost);
}

std::uint64_t decode_into_lists(const std::string& path) {
  timing::StreamFileReader reader;
  reader.open(path);
  timing::ChannelTimes times;
  while (reader.decode_next_chunk(1 << 20, times)) {
  }
  return times.total();
}

std::uint64_t decode_into_lists_plainly(const std::string& path) {
  const test::reference::Tags tags = bench::decode_file_plainly(path);
  std::array<test::reference::Times, timing::kChannels> times;
  for (const test::reference::Tag& tag : tags) times[static_cast<std::size_t>(tag.channel)].push_back(tag.time_ps);
  benchmark::DoNotOptimize(times);
  return tags.size();
}

template <class Decode>
auto decoding(const std::string& name, const bench::Lazy<Paths>& paths, Decode decode) {
  return [=](benchmark::State& state) {
    const std::string& path = paths->at(name);
    std::uint64_t tags = 0;
    for (auto _ : state) tags = decode(path);
    if (tags != 2 * kEventsPerChannel) bench::fail(state, "decoded " + std::to_string(tags) + " tags");
    bench::give_time(state, "ns/tag", static_cast<double>(tags));
  };
}

void add_decoding_of(const std::string& name, const bench::Lazy<Paths>& paths) {
  const std::string work = "20 million tags, file to lists, " + name;
  bench::add_fast(work, decoding(name, paths, decode_into_lists))->Iterations(1)->Repetitions(5);
  bench::add_plain(work, decoding(name, paths, decode_into_lists_plainly))->Iterations(1)->Repetitions(3);
}

/// The tool with that offset, or an estimated one if it is empty.
auto verification(const std::string& name, const bench::Lazy<Paths>& paths, const std::string& program,
                  const std::string& offset) {
  return [=](benchmark::State& state) {
    const std::string& path = paths->at(name);
    measure(state, path, offset, program,
            {path, "--offset=" + (offset.empty() ? "auto" : offset), "--out-prefix=" + path});
  };
}

auto plain_verification(const std::string& name, const bench::Lazy<Paths>& paths, const std::string& offset) {
  return [=](benchmark::State& state) {
    const std::string& path = paths->at(name);
    std::vector<std::string> arguments{path};
    if (!offset.empty()) arguments.push_back(offset);
    measure(state, path, offset, ORVO_BENCH_PLAIN_TOOL, arguments);
  };
}

void add_verification(const std::string& name, const bench::Lazy<Paths>& paths) {
  const std::string given = "verify 20 million tags, offset given, " + name;
  bench::add_fast(given, verification(name, paths, ORVO_BENCH_TOOL, "160"))->Iterations(1)->Repetitions(5);
  bench::add_plain(given, plain_verification(name, paths, "160"))->Iterations(1)->Repetitions(3);
  const std::string work = "verify 20 million tags, " + name;
  bench::add_fast(work, verification(name, paths, ORVO_BENCH_TOOL, ""))->Iterations(1)->Repetitions(5);
  bench::add_plain(work, plain_verification(name, paths, ""))->Iterations(1)->Repetitions(3);
  bench::add_fast("verify 20 million tags, in passes, " + name, verification(name, paths, ORVO_BENCH_PASSES_TOOL, ""))
      ->Iterations(1)
      ->Repetitions(5);
}

/// One of the other programs, of which a build may lack some; `arguments` come after the capture.
void add_other_program(const std::string& work, const std::string& program, const std::string& name,
                       const bench::Lazy<Paths>& paths, const std::vector<std::string>& arguments) {
  if (program.empty()) return;
  bench::add_fast(work + " 20 million tags, " + name,
                  [=](benchmark::State& state) {
                    std::vector<std::string> all{paths->at(name)};
                    all.insert(all.end(), arguments.begin(), arguments.end());
                    Run last;
                    for (auto _ : state) last = run(program, all, bench::capture_directory().path());
                    give_cost(state, last.cost);
                  })
      ->Iterations(1)
      ->Repetitions(5);
}

void verify_synthetic_capture(benchmark::State& state) {
  Cost cost;
  for (auto _ : state) {
    const test::TempDirectory directory;  // a capture that is found is not made
    std::filesystem::remove_all(ORVO_BENCH_PRODUCT_ROOT);
    std::filesystem::create_directories(ORVO_BENCH_PRODUCT_ROOT "/host/cpp");
    const Run last = run(ORVO_BENCH_TOOL, {}, directory.path());
    if (!last.out.starts_with("No stream capture found"))
      return bench::fail(state, "there was a capture:\n" + last.out);
    cost = last.cost;
  }
  state.counters["ms wall"] = cost.wall_seconds * 1e3;
  state.counters["ms cpu"] = cost.cpu_seconds * 1e3;
  state.counters["MiB peak"] = cost.peak_mebibytes;
}

}  // namespace

void orvo::bench::add_program() {
  const std::vector<Encoding> encodings{raw64_ps(), raw64_cf(), delta32(), packed(16), packed(8)};
  const Lazy<Paths> paths([=] { return write_captures(encodings); });
  for (const Encoding& encoding : encodings) add_decoding_of(encoding.name, paths);
  for (const Encoding& encoding : encodings) add_verification(encoding.name, paths);
  for (const Encoding& encoding : encodings) {
    add_other_program("inspect", ORVO_BENCH_INSPECTOR, encoding.name, paths, {"--no-progress"});
  }
  for (const Encoding& encoding : encodings) {
    add_other_program("convert to raw64", ORVO_BENCH_CONVERTER, encoding.name, paths,
                      {"converted.tagcap", "--encoding=raw64", "--force"});
  }
  add_fast("start to exit, synthetic capture", verify_synthetic_capture)->Iterations(1)->Repetitions(21);
}
