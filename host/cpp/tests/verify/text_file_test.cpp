#include "verify/text_file.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/failure.hpp"
#include "support/tool_surroundings.hpp"

namespace {

using namespace orvo::test;

class TextFile : public ToolSurroundings {};

TEST_F(TextFile, HoldsTheTextUnchanged) {
  const std::string text("line\r\nline\n\n\0\xFF no end", 22);
  write_text_file(cwd() / "a.txt", text);
  EXPECT_EQ(read_file(cwd() / "a.txt"), text);
  write_text_file(cwd() / "empty.txt", "");
  EXPECT_EQ(read_file(cwd() / "empty.txt"), "");
}

TEST_F(TextFile, ReplacesWhatWasThere) {
  write_text_file(cwd() / "a.txt", "a long text");
  write_text_file(cwd() / "a.txt", "b");
  EXPECT_EQ(read_file(cwd() / "a.txt"), "b");
}

TEST_F(TextFile, CreatesItsDirectories) {
  write_text_file(cwd() / "x/y/z/a.txt", "deep");
  EXPECT_EQ(read_file(cwd() / "x/y/z/a.txt"), "deep");
}

TEST_F(TextFile, AFileThatCannotBeOpenedIsAnError) {
  std::filesystem::create_directories(cwd() / "directory");
  EXPECT_EQ(failure_of([&] { write_text_file(cwd() / "directory", "text"); }),
            "could not open text output (code -2)");
}

TEST_F(TextFile, ADirectoryThatCannotBeCreatedIsTheStandardError) {
  write_file(cwd() / "file", "");
  EXPECT_EQ(failure_of([&] { write_text_file(cwd() / "file/below/a.txt", "text"); }), "filesystem_error");
}

TEST_F(TextFile, ErrorsBehindTheOpeningAreNotLookedAt) {
  EXPECT_EQ(failure_of([] { write_text_file("/dev/full", std::string(100'000, 'x')); }), "nothing thrown");
}

}  // namespace
