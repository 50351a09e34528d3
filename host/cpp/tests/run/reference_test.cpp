// The built tool against the reference of a run: exit status, both streams and every file, on seeded random captures.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "reference/run.hpp"
#include "support/file_tree.hpp"
#include "support/random_captures.hpp"
#include "support/random_runs.hpp"
#include "support/run_program.hpp"
#include "support/temp_directory.hpp"

namespace orvo::test {
namespace {

using reference::RunOutcome;

namespace fs = std::filesystem;

const fs::path kProductRoot = ORVO_TEST_PRODUCT_ROOT;
const fs::path kOutputRoot = kProductRoot / "logs/verification/stream_file_xcorr";

std::int64_t now_ns() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

void lay_out(const RunPlan& plan, const fs::path& cwd) {
  fs::remove_all(kProductRoot);
  fs::create_directories(kProductRoot);
  if (!plan.settings_text.empty()) write_file(cwd / "vq_verify_stream_file_xcorr.ini", plan.settings_text);
  if (plan.input_is_directory) {
    fs::create_directories(plan.settings.input);
  } else if (plan.capture) {
    write_file(plan.settings.input, *plan.capture);
    const auto [seconds, nanoseconds] = std::lldiv(plan.modified_ns, 1'000'000'000);
    const timespec times[2] = {{0, UTIME_OMIT}, {seconds, static_cast<long>(nanoseconds)}};
    if (::utimensat(AT_FDCWD, plan.settings.input.c_str(), times, 0) != 0)
      throw std::runtime_error("cannot date the input");
  }
}

FileTree files_below(const fs::path& cwd) {
  return file_tree(cwd, cwd.string() + "/") + file_tree(kProductRoot, kProductRoot.string() + "/");
}

FileTree expected_files(const RunOutcome& expected, const FileTree& before) {
  FileTree files = before;
  for (const auto& [path, content] : expected.files) files[fs::path(path).lexically_normal().string()] = content;
  return files;
}

std::string seen(int exit_status, const std::string& out, const std::string& err) {
  return "exit " + std::to_string(exit_status) + "\n--- out\n" + out + "--- err\n" + err;
}

void compare_files(const FileTree& actual, const FileTree& expected) {
  ASSERT_EQ(names(actual), names(expected));
  for (const auto& [name, content] : expected) ASSERT_EQ(actual.at(name), content) << name;
}

/// The outcome that agrees with the console, for one of the ages that the input had while the tool ran.
RunOutcome expected_outcome(const RunPlan& plan, const std::string& console, std::int64_t started_ns,
                            std::int64_t ended_ns) {
  const std::int64_t oldest = (ended_ns - plan.modified_ns) / 1'000'000'000;
  const std::int64_t youngest = (started_ns - plan.modified_ns) / 1'000'000'000;
  RunOutcome outcome = reference::run(plan.settings, plan.capture, youngest);
  for (std::int64_t age = youngest + 1; age <= oldest && outcome.out != console; ++age) {
    outcome = reference::run(plan.settings, plan.capture, age);
  }
  return outcome;
}

/// Tags that runs reported, by encoding.
using Reported = std::array<std::uint64_t, 3>;

/// Sets the plan up, runs the tool and compares everything it leaves with the reference.
void compare_run(const RunPlan& plan, const fs::path& cwd, Reported& reported) {
  lay_out(plan, cwd);
  const FileTree before = files_below(cwd);
  const std::int64_t started_ns = now_ns();
  const ProgramResult actual = run_program(
      {.program = ORVO_TEST_TOOL, .arguments = plan.arguments, .directory = cwd, .argv0 = {}, .environment = {}});
  const RunOutcome expected = expected_outcome(plan, actual.out, started_ns, now_ns());
  ASSERT_EQ(seen(actual.exit_status, actual.out, actual.err), seen(expected.exit_status, expected.out, expected.err));
  compare_files(files_below(cwd), expected_files(expected, before));
  reported[static_cast<std::size_t>(expected.found.header.stream_format)] += expected.found.decoded_tags;
}

std::string told(const RunPlan& plan) {
  std::string text = "settings file:\n" + plan.settings_text + "arguments:";
  for (const std::string& argument : plan.arguments) text += " [" + argument + "]";
  return text;
}

TEST(ToolAgainstReference, RunsOnRandomCaptures) {
  Reported reported{};
  for (const std::uint64_t seed : seeds(300)) {
    const TempDirectory cwd;
    RunPlan plan = random_plan(seed, cwd.path(), now_ns());
    plan.settings.output_root = kOutputRoot.string();
    SCOPED_TRACE("seed " + std::to_string(seed) + "\n" + told(plan));
    compare_run(plan, cwd.path(), reported);
    if (HasFatalFailure()) break;
  }
  for (const std::uint64_t tags : reported) EXPECT_GT(tags, rounds(100)) << "of one encoding";
  fs::remove_all(kProductRoot);
}

/// More tags than one call returns and more payload than one read takes, few of the tags on the correlated channels.
TEST(ToolAgainstReference, RunsOnLongCaptures) {
  Reported reported{};
  for (const std::uint64_t seed : seeds(4)) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    const TempDirectory cwd;
    Random random(seed);
    RunPlan plan;
    const bool coarse_fine = random.one_in(2);
    std::vector<unsigned> channels(300, 3);
    for (unsigned channel = 0; channel < 3; ++channel) channels[channel] = channel;
    const std::string header =
        coarse_fine ? R"({"stream_format":"raw64","raw64_tag_format":"raw_cf"})" : R"({"stream_format":"raw64"})";
    plan.capture = capture_bytes(header, random_payload(random, coarse_fine, 75'000, channels));
    plan.modified_ns = now_ns();
    plan.settings.range_ps = 20'000'000;
    plan.settings.bin_ps = 100'000;
    plan.settings.max_tags = random.pick<std::uint64_t>({0, 65'535, 65'536, 65'537, 131'072, 140'000});
    plan.settings.input = (cwd / "long.tagcap").string();
    plan.settings.prefix = (cwd / "long").string();
    plan.settings.output_root = kOutputRoot.string();
    plan.arguments = {"long.tagcap", "--range=20000000", "--bin=100000", "--out-prefix=long",
                      "--max-tags=" + std::to_string(plan.settings.max_tags)};
    compare_run(plan, cwd.path(), reported);
    if (HasFatalFailure()) break;
  }
  fs::remove_all(kProductRoot);
}

}  // namespace
}  // namespace orvo::test
