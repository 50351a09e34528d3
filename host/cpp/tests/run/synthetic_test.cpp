// Started in an empty directory without arguments: the tool makes a capture with a known answer and verifies it.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/product_root.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;

const std::string kGenerated = "VRN-B/logs/stream_file_verify/verification/synthetic_raw64_xcorr.tagcap";
const std::string kPlace = "product/logs/verification/stream_file_xcorr";

class Synthetic : public ProductRoot {
 protected:
  fs::path generated() const { return cwd() / kGenerated; }
  std::string generation_lines() const {
    return "No stream capture found; generated synthetic verification file:\n  " + generated().string() + "\n";
  }
  static std::string header(const std::string& created_utc) {
    return R"({"file_type":"orvo_timing_raw_stream_capture","schema_version":1,"created_utc":")" + created_utc +
           R"(","application":"","device_product":"","device_serial":"","device_port":"","stream_format":"raw64",)"
           R"("mode":"external","stream_transport":"usb","raw64_tag_format":"ps","channel_mask":3,"tdl_index":0,)"
           R"("packed_delta_config":{"delta_bits":16,"quantum_ps":8}})";
  }
};

TEST_F(Synthetic, ARunInAnEmptyDirectoryWritesTheCaptureAndAllReports) {
  const ProgramResult result = verify();
  const fs::path prefix = run_directory() / "synthetic_raw64_xcorr_xcorr_ch0_ch1";
  const Reports reports = golden("synthetic", generated(), prefix, result.out);
  EXPECT_EQ(seen(result),
            seen(0, generation_lines() + announcement(generated(), prefix) + closing_lines(reports.summary), ""));
  EXPECT_EQ(files(), (FileTree{{"cwd/" + kGenerated, read_file(generated())}} +
                      reports_under(kPlace + "/STAMP/synthetic_raw64_xcorr_xcorr_ch0_ch1", reports) +
                      latest_files(kPlace, reports)));
}

TEST_F(Synthetic, TheCaptureIsTheSameByteForByteButForItsDate) {
  verify();
  const std::string file = read_file(generated());
  const std::string made = header("2025-03-07T09:05:01.000042Z");
  Bytes payload;
  for (std::uint64_t k = 0; k < 2000; ++k) {
    const std::uint64_t t = 10'000 + 20'000 * k;
    payload += big_endian(t, 8) + big_endian((std::uint64_t{1} << 61) + t + 160, 8);
  }
  ASSERT_EQ(payload.size(), 32'000U);
  ASSERT_EQ(file.size(), 12 + made.size() + payload.size());
  const auto at = file.find("\"created_utc\":\"") + 15;
  const std::string created = file.substr(at, 27);
  EXPECT_THAT(created, testing::MatchesRegex(R"([0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\.[0-9]{6}Z)"));
  const Bytes expected = capture_bytes(header(created), payload);
  EXPECT_TRUE(file == std::string(expected.begin(), expected.end()));
  EXPECT_EQ(file.substr(12 + made.size(), 16), std::string("\0\0\0\0\0\0\x27\x10\x20\0\0\0\0\0\x27\xB0", 16));
}

TEST_F(Synthetic, TheCaptureIsDatedInUtc) {
  const auto utc_text = [](std::int64_t ns) {
    const time_t seconds = ns / 1'000'000'000;
    tm utc = {};
    ::gmtime_r(&seconds, &utc);
    char text[32];
    ::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
    const std::string micros = std::to_string(1'000'000 + ns / 1000 % 1'000'000).substr(1);
    return text + ("." + micros + "Z");
  };
  const std::int64_t before = now_ns();
  run({.environment = {{"TZ", "AAA-13:45"}}});
  const std::int64_t after = now_ns();
  const std::string file = read_file(generated());
  const std::string created = file.substr(file.find("\"created_utc\":\"") + 15, 27);
  EXPECT_LE(utc_text(before), created);
  EXPECT_GE(utc_text(after), created);
}

TEST_F(Synthetic, TheSecondRunFindsTheCaptureAndAnnouncesNothing) {
  verify();
  const std::string made = read_file(generated());
  fs::remove_all(output_root());
  const ProgramResult result = verify();
  const fs::path prefix = run_directory() / "synthetic_raw64_xcorr_xcorr_ch0_ch1";
  const Reports reports = golden("synthetic", generated(), prefix, result.out);
  EXPECT_EQ(seen(result), seen(0, announcement(generated(), prefix) + closing_lines(reports.summary), ""));
  EXPECT_EQ(files(), (FileTree{{"cwd/" + kGenerated, made}} +
                      reports_under(kPlace + "/STAMP/synthetic_raw64_xcorr_xcorr_ch0_ch1", reports) +
                      latest_files(kPlace, reports)));
}

TEST_F(Synthetic, WithASettingsFileTheGenerationLinesComeFirst) {
  write_settings("output_prefix=o\n");
  const ProgramResult result = verify();
  const Reports reports = golden("synthetic", generated(), cwd() / "o", result.out);
  EXPECT_EQ(seen(result), seen(0,
                               generation_lines() + "Config: " + (cwd() / kSettingsName).string() + "\n" +
                                   announcement(generated(), cwd() / "o") + closing_lines(reports.summary),
                               ""));
}

TEST_F(Synthetic, ANewerCaptureIsPreferredToTheGeneratedOne) {
  verify();
  write_file(cwd() / "logs/stream_file_verify/real.tagcap", single_pair_capture());
  EXPECT_TRUE(
      set_modified(cwd() / "logs/stream_file_verify/real.tagcap", modified_ns(generated()) / 1'000'000'000 + 2));
  EXPECT_THAT(verify({"--out-prefix=o"}).out,
              testing::StartsWith("Input:  " + (cwd() / "logs/stream_file_verify/real.tagcap").string() + "\n"));
}

TEST_F(Synthetic, ALinkToNowhereIsNoCaptureAndIsWrittenThrough) {
  fs::create_directories(generated().parent_path());
  fs::create_symlink("target.bin", generated());
  EXPECT_EQ(verify({"--out-prefix=o"}).exit_status, 0);
  EXPECT_EQ(fs::file_size(generated().parent_path() / "target.bin"),
            12 + header("2025-03-07T09:05:01.000042Z").size() + 32'000);
}

TEST_F(Synthetic, ADirectoryThatCannotBeMadeEndsTheRun) {
  write_file(cwd() / "VRN-B", std::string());
  const ProgramResult result = verify();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, testing::MatchesRegex("filesystem error: cannot create directories: [^\n]*\n"));
  EXPECT_EQ(files(), (FileTree{{"cwd/VRN-B", ""}}));
}

TEST_F(Synthetic, AFileThatCannotBeOpenedEndsTheRun) {
  fs::create_directories(generated());  // a directory in place of the capture
  EXPECT_EQ(seen(verify()), seen(1, "", "StreamFileWriter: cannot open " + generated().string() + "\n"));
  EXPECT_EQ(files(), (FileTree{{"cwd/" + kGenerated + "/", ""}}));
}

TEST_F(Synthetic, ADeviceThatTakesNoCaptureEndsTheRun) {
  fs::create_directories(generated().parent_path());
  fs::create_symlink("/dev/full", generated());
  // Either writing the payload fails; or the writer's buffer holds it until the file is closed, where a failure goes
  // unnoticed, and the device then reads as zeros.
  EXPECT_THAT(seen(verify({"--out-prefix=o"})),
              testing::AnyOf(seen(1, "", "StreamFileWriter: payload write failed\n"),
                             seen(1, generation_lines() + announcement(generated(), cwd() / "o"),
                                  "StreamFileReader: not an Orvo timing stream file\n")));
  EXPECT_EQ(files(), (FileTree{{"cwd/" + kGenerated + "@", "/dev/full"}}));
}

}  // namespace
