#include "verify/latest_files.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "support/failure.hpp"
#include "support/tool_surroundings.hpp"

namespace {

using namespace orvo::test;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

constexpr const char* kLauncher = "@echo off\r\nstart \"\" \"%~dp0latest.svg\"\r\n";

class LatestFiles : public ToolSurroundings {
 protected:
  LatestFiles() { write_reports("csv", "json", "svg"); }
  void write_reports(const char* csv, const char* json, const char* svg) {
    write_file(paths_.csv, csv);
    write_file(paths_.json, json);
    write_file(paths_.svg, svg);
  }
  static fs::path latest_path(const char* name) { return output_root_of_tests() / name; }
  static std::string latest(const char* name) { return read_file(latest_path(name)); }

  ReportPaths paths_{cwd() / "deep/er/x"};
};

TEST_F(LatestFiles, AreCopiesAndALauncherOfTwoLines) {
  update_latest(paths_, "summary\n");
  EXPECT_EQ(latest("latest.csv"), "csv");
  EXPECT_EQ(latest("latest.json"), "json");
  EXPECT_EQ(latest("latest.svg"), "svg");
  EXPECT_EQ(latest("latest_summary.txt"), "summary\n");
  EXPECT_EQ(latest("open_latest_plot.bat"), kLauncher);
}

TEST_F(LatestFiles, ReplaceThoseOfTheRunBefore) {
  update_latest(paths_, "first");
  write_reports("2 csv", "2 json", "2 svg");
  write_file(latest_path("open_latest_plot.bat"), "something else");
  update_latest(paths_, "second");
  EXPECT_EQ(latest("latest.csv"), "2 csv");
  EXPECT_EQ(latest("latest.json"), "2 json");
  EXPECT_EQ(latest("latest.svg"), "2 svg");
  EXPECT_EQ(latest("latest_summary.txt"), "second");
  EXPECT_EQ(latest("open_latest_plot.bat"), kLauncher);
}

// As if the clock had been set back since the previous run.
TEST_F(LatestFiles, ReplaceThoseThatAreDatedLater) {
  update_latest(paths_, "first");
  for (const char* name : {"latest.csv", "latest.json", "latest.svg", "latest_summary.txt"}) {
    set_age(latest_path(name), -3600s);
  }
  write_reports("2 csv", "2 json", "2 svg");
  update_latest(paths_, "second");
  EXPECT_EQ(latest("latest.csv"), "2 csv");
  EXPECT_EQ(latest("latest.json"), "2 json");
  EXPECT_EQ(latest("latest.svg"), "2 svg");
  EXPECT_EQ(latest("latest_summary.txt"), "second");
}

TEST_F(LatestFiles, KeepTheEarlierOneSilentlyWhenACopyFails) {
  update_latest(paths_, "first");
  fs::remove(paths_.json);
  write_file(paths_.svg, "2 svg");
  EXPECT_EQ(failure_of([&] { update_latest(paths_, "second"); }), "nothing thrown");
  EXPECT_EQ(latest("latest.json"), "json");
  EXPECT_EQ(latest("latest.svg"), "2 svg");
}

TEST_F(LatestFiles, OfAPrefixNamedLatestInTheOutputRootAreThemselves) {
  paths_ = ReportPaths(latest_path("latest"));
  write_reports("itself", "itself", "itself");
  EXPECT_EQ(failure_of([&] { update_latest(paths_, "summary"); }), "nothing thrown");
  for (const char* name : {"latest.csv", "latest.json", "latest.svg"}) EXPECT_EQ(latest(name), "itself") << name;
}

TEST_F(LatestFiles, OfTextThatCannotBeOpenedAreErrors) {
  for (const char* name : {"open_latest_plot.bat", "latest_summary.txt"}) {
    fs::remove(latest_path(name));  // what an earlier run left
    fs::create_directories(latest_path(name));
    EXPECT_EQ(failure_of([&] { update_latest(paths_, "summary"); }), "could not open text output (code -2)") << name;
    fs::remove(latest_path(name));
  }
}

}  // namespace
