// How paths in settings and arguments become the paths that are printed, read and written.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/product_root.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;

class Paths : public ProductRoot {
 protected:
  static std::string cannot_open(const fs::path& input, const fs::path& prefix, const std::string& config_line = "") {
    return seen(1, config_line + announcement(input, prefix),
                "StreamFileReader: cannot open " + input.string() + "\n");
  }

  // A settings file in a directory of its own, read as the one next to the executable.
  std::string run_beside(const TempDirectory& bin, const std::string& settings,
                         std::vector<std::string> arguments = {}) {
    write_file(bin / kSettingsName, settings);
    return seen(run({.arguments = std::move(arguments), .argv0 = (bin / "tool").string()}));
  }
  static std::string config_line(const TempDirectory& bin) {
    return "Config: " + (bin / kSettingsName).string() + "\n";
  }
};

TEST_F(Paths, RelativePathsOfTheSettingsStartAtTheSettingsFile) {
  const TempDirectory bin;
  EXPECT_EQ(run_beside(bin, "input_file=data/run.tagcap\noutput_prefix=out/run\n"),
            cannot_open(bin / "data/run.tagcap", bin / "out/run", config_line(bin)));
}

TEST_F(Paths, RelativePathsOfTheArgumentsStartThereToo) {
  const TempDirectory bin;
  EXPECT_EQ(run_beside(bin, "", {"data/run.tagcap", "--out-prefix", "out/run"}),
            cannot_open(bin / "data/run.tagcap", bin / "out/run", config_line(bin)));
}

TEST_F(Paths, WithoutASettingsFileTheyStartAtTheCurrentDirectory) {
  EXPECT_EQ(seen(verify({"data/run.tagcap", "--out-prefix=out/run"})),
            cannot_open(cwd() / "data/run.tagcap", cwd() / "out/run"));
}

TEST_F(Paths, AbsolutePathsAreKept) {
  const TempDirectory bin;
  const TempDirectory data;
  EXPECT_EQ(run_beside(bin, "input_file=" + (data / "x.tagcap").string() +
                                "\noutput_prefix=" + (data / "o").string() + "\n"),
            cannot_open(data / "x.tagcap", data / "o", config_line(bin)));
}

TEST_F(Paths, NothingIsNormalisedOrResolved) {
  fs::create_directory(cwd() / "real");
  fs::create_symlink("real", cwd() / "link");
  EXPECT_EQ(seen(verify({"./link//../x.tagcap", "--out-prefix=link/./../o"})),
            cannot_open((cwd() / "./link//../x.tagcap"), cwd() / "link/./../o"));
  EXPECT_EQ(seen(verify({"/./nowhere/../x.tagcap", "--out-prefix=/./o"})),
            cannot_open("/./nowhere/../x.tagcap", "/./o"));
}

TEST_F(Paths, AnExtensionInThePrefixIsKept) {
  write_file(cwd() / "c.tagcap", single_pair_capture());
  EXPECT_EQ(verify({"c.tagcap", "--out-prefix=out/run.v1.csv"}).exit_status, 0);
  EXPECT_THAT(names(file_tree(cwd() / "out")),
              testing::ElementsAre("run.v1.csv.csv", "run.v1.csv.json", "run.v1.csv.summary.txt", "run.v1.csv.svg"));
}

TEST_F(Paths, AnEmptyPrefixIsTheBaseDirectoryItself) {
  write_file(cwd() / "c.tagcap", pairs_capture());
  const ProgramResult result =
      verify({"c.tagcap", "2", "0", "--range=500", "--bin=10", "--offset=-1200", "--out-prefix="});
  const fs::path input = cwd() / "c.tagcap";
  const Reports reports = golden("pairs", input, cwd().string() + "/", result.out);
  EXPECT_EQ(seen(result), seen(0, announcement(input, cwd().string() + "/") + closing_lines(reports.summary), ""));
  EXPECT_EQ(file_tree(cwd()), (FileTree{{"c.tagcap", read_file(input)},
                                        {".csv", reports.csv},
                                        {".json", reports.json},
                                        {".svg", reports.svg},
                                        {".summary.txt", reports.summary}}));
}

TEST_F(Paths, APrefixThatEndsInASeparatorNamesFilesOfBareExtensions) {
  write_file(cwd() / "c.tagcap", single_pair_capture());
  EXPECT_EQ(verify({"c.tagcap", "--out-prefix", "a/b/"}).exit_status, 0);
  EXPECT_THAT(names(file_tree(cwd() / "a")), testing::ElementsAre("b/.csv", "b/.json", "b/.summary.txt", "b/.svg"));
}

TEST_F(Paths, MissingDirectoriesOfThePrefixAreMade) {
  write_file(cwd() / "c.tagcap", single_pair_capture());
  EXPECT_EQ(verify({"c.tagcap", "--out-prefix=a/b/c"}).exit_status, 0);
  EXPECT_THAT(names(file_tree(cwd() / "a")),
              testing::ElementsAre("b/c.csv", "b/c.json", "b/c.summary.txt", "b/c.svg"));
}

TEST_F(Paths, AnEmptyInputIsTheBaseDirectoryItself) {
  const std::string base = cwd().string() + "/";
  EXPECT_EQ(seen(verify({"", "--out-prefix=o"})),
            seen(1, announcement(base, cwd() / "o"), "StreamFileReader: truncated magic\n"));
}

TEST_F(Paths, BytesBeyondAsciiPassThrough) {
  const std::string name = "caf\xC3\xA9 \xFF\x80.tagcap";
  write_file(cwd() / name, pairs_capture());
  const ProgramResult result =
      verify({name, "2", "0", "--range=500", "--bin=10", "--offset=-1200", "--out-prefix=\xFE out"});
  const fs::path input = cwd() / name;
  const fs::path prefix = cwd() / "\xFE out";
  const Reports reports = golden("pairs", input, prefix, result.out);
  EXPECT_EQ(seen(result), seen(0, announcement(input, prefix) + closing_lines(reports.summary), ""));
  EXPECT_EQ(file_tree(cwd()), (FileTree{{name, read_file(input)}} + reports_under("\xFE out", reports)));
}

TEST_F(Paths, ControlBytesAndQuotesAreEscapedInTheJsonAlone) {
  const std::string name = "a\"b\\c\td\ne\rf\x01g";
  write_file(cwd() / name, single_pair_capture());
  const ProgramResult result = verify({name, "--out-prefix=o"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_THAT(result.out, testing::StartsWith(announcement(cwd() / name, cwd() / "o")));
  EXPECT_THAT(read_file(cwd() / "o.summary.txt"), testing::HasSubstr("\ninput=" + (cwd() / name).string() + "\n"));
  EXPECT_THAT(read_file(cwd() / "o.json"), testing::HasSubstr("\"source_file\":\"" + cwd().string() +
                                                              R"(/a\"b\\c\td\ne\rf?g",)"
                                                              "\n"));
}

}  // namespace
