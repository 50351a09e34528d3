// Where the tool looks for its settings file: next to the executable as argv[0] names it, in the current directory,
// in the source root's verification directory. Only the first that opens is read.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/product_root.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;

class SettingsPlaces : public ProductRoot {
 protected:
  // A settings file with a range of its own; its relative input file does not exist.
  static std::string settings(int range) {
    return "range_ps=" + std::to_string(range) + "\ninput_file=none.tagcap\noutput_prefix=o\n";
  }

  static std::string failed_at(const fs::path& config, const fs::path& base) {
    return seen(1, "Config: " + config.string() + "\n" + announcement(base / "none.tagcap", base / "o"),
                "StreamFileReader: cannot open " + (base / "none.tagcap").string() + "\n");
  }

  fs::path source_settings() const { return root() / "host/cpp/verification" / kSettingsName; }
};

TEST_F(SettingsPlaces, BesideTheExecutableComesFirst) {
  const TempDirectory bin;
  fs::copy_file(ORVO_TEST_TOOL, bin / "tool");
  write_file(bin / kSettingsName, settings(1));
  write_settings("range_ps=abc\n");
  write_file(source_settings(), std::string("range_ps=abc\n"));
  EXPECT_EQ(seen(run({.program = (bin / "tool").string()})), failed_at(bin / kSettingsName, bin.path()));
}

TEST_F(SettingsPlaces, TheCurrentDirectoryComesSecond) {
  write_settings(settings(1));
  write_file(source_settings(), std::string("range_ps=abc\n"));
  EXPECT_EQ(seen(verify()), failed_at(cwd() / kSettingsName, cwd()));
}

TEST_F(SettingsPlaces, TheSourceRootsVerificationDirectoryComesLast) {
  write_file(source_settings(), settings(1));
  EXPECT_EQ(seen(verify()), failed_at(source_settings(), source_settings().parent_path()));
}

TEST_F(SettingsPlaces, FilesAreNeverMerged) {
  write_settings("range_ps=24\n");
  write_file(source_settings(), std::string("bin_ps=4\ninput_file=none.tagcap\n"));
  write_file(cwd() / "pair.tagcap", single_pair_capture());
  EXPECT_EQ(verify({"pair.tagcap", "--out-prefix", "o"}).exit_status, 0);
  EXPECT_THAT(read_file(cwd() / "o.json"), testing::HasSubstr("\"range_ps\":24,\n    \"bin_ps\":8,\n"));
}

TEST_F(SettingsPlaces, AnEmptyFileIsReadAndEndsTheSearch) {
  write_settings("");
  write_file(source_settings(), settings(1));
  EXPECT_EQ(seen(verify({"none.tagcap", "--out-prefix=o"})), failed_at(cwd() / kSettingsName, cwd()));
}

TEST_F(SettingsPlaces, ADirectoryOfThatNameCountsAsAnEmptyFile) {
  fs::create_directory(cwd() / kSettingsName);
  write_file(source_settings(), settings(1));
  EXPECT_EQ(seen(verify({"none.tagcap", "--out-prefix=o"})), failed_at(cwd() / kSettingsName, cwd()));
}

TEST_F(SettingsPlaces, AFileThatDoesNotOpenIsPassedOver) {
  fs::create_symlink(kSettingsName, cwd() / kSettingsName);  // a link to itself
  write_file(source_settings(), settings(1));
  EXPECT_EQ(seen(verify()), failed_at(source_settings(), source_settings().parent_path()));
}

TEST_F(SettingsPlaces, ADanglingLinkIsPassedOver) {
  fs::create_symlink("nowhere", cwd() / kSettingsName);
  EXPECT_EQ(seen(verify({"none.tagcap", "--out-prefix=o"})),
            seen(1, announcement(cwd() / "none.tagcap", cwd() / "o"),
                 "StreamFileReader: cannot open " + (cwd() / "none.tagcap").string() + "\n"));
}

TEST_F(SettingsPlaces, ALinkIsTheFileWhereItIsFound) {
  write_file(cwd() / "elsewhere/real.ini", settings(1));
  fs::create_symlink("elsewhere/real.ini", cwd() / kSettingsName);
  EXPECT_EQ(seen(verify()), failed_at(cwd() / kSettingsName, cwd()));
}

// argv[0] alone decides what "next to the executable" means.

TEST_F(SettingsPlaces, ArgvZeroDecidesNotTheFileThatRuns) {
  const TempDirectory claimed;
  write_file(claimed / kSettingsName, settings(1));
  EXPECT_EQ(seen(run({.argv0 = (claimed / "anything").string()})),
            failed_at(claimed / kSettingsName, claimed.path()));
}

TEST_F(SettingsPlaces, ALinkToTheExecutableLooksBesideTheLink) {
  const TempDirectory bin;
  fs::create_symlink(ORVO_TEST_TOOL, bin / "link");
  write_file(bin / kSettingsName, settings(1));
  EXPECT_EQ(seen(run({.program = (bin / "link").string()})), failed_at(bin / kSettingsName, bin.path()));
}

TEST_F(SettingsPlaces, PathsKeepTheDotsOfArgvZero) {
  write_file(cwd() / "bin" / kSettingsName, settings(1));
  EXPECT_EQ(seen(run({.argv0 = "./bin/tool"})), failed_at(cwd() / "./bin" / kSettingsName, cwd() / "./bin"));
  EXPECT_EQ(seen(run({.argv0 = "bin/../bin/tool"})),
            failed_at(cwd() / "bin/../bin" / kSettingsName, cwd() / "bin/../bin"));
}

TEST_F(SettingsPlaces, StartedAsDotSlashToolThePathsShowTheDot) {
  write_settings(settings(1));
  EXPECT_EQ(seen(run({.argv0 = "./tool"})), failed_at(cwd() / "." / kSettingsName, cwd() / "."));
}

TEST_F(SettingsPlaces, ABareNameMeansTheCurrentDirectory) {
  write_settings(settings(1));
  EXPECT_EQ(seen(run({.argv0 = "vq_verify_stream_file_xcorr", .environment = {{"PATH", "/bin"}}})),
            failed_at(cwd() / kSettingsName, cwd()));
}

TEST_F(SettingsPlaces, AnEmptyArgvZeroMeansTheCurrentDirectory) {
  if (!fs::exists("/bin/bash")) GTEST_SKIP() << "no shell that can pass an empty argv[0]";
  write_settings(settings(1));
  EXPECT_EQ(seen(run({.program = "/bin/bash", .arguments = {"-c", R"(exec -a "" "$0")", ORVO_TEST_TOOL}})),
            failed_at(cwd() / kSettingsName, cwd()));
}

}  // namespace
