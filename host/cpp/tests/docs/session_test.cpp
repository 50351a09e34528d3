// The machinery of commands_test notices what is wrong.
#include "docs/session.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "docs/page.hpp"
#include "docs/shown_output.hpp"
#include "support/run_program.hpp"

namespace {

using namespace orvo::test;

TEST(ShownOutput, IsComparedToTheLetterButForDots) {
  EXPECT_TRUE(output_matches("", ""));
  EXPECT_TRUE(output_matches("a\nb\n", "a\nb\n"));
  EXPECT_FALSE(output_matches("a\n", "a\nb\n"));
  EXPECT_FALSE(output_matches("a\nb\n", "a\n"));
  EXPECT_FALSE(output_matches("a\n", "a \n"));
  EXPECT_FALSE(output_matches("", "a\n"));
  EXPECT_TRUE(output_matches("age=...\n", "age=17\n"));
  EXPECT_TRUE(output_matches("x.../y...z\n", "x1/2/y3z\n"));
  EXPECT_FALSE(output_matches("age=...s\n", "age=17\n"));
  EXPECT_TRUE(output_matches("a\n...\nd\n", "a\nb\nc\nd\n"));
  EXPECT_TRUE(output_matches("a\n...\nd\n", "a\nd\n"));
  EXPECT_FALSE(output_matches("a\n...\nd\n", "a\nb\nc\n"));
}

TEST(Pages, AreReadAsFarAsTestsNeedThem) {
  const Page page = page_of("/p/page.md",
                            "# A Title: `x`\n"
                            "See [b](b.md#c) and ![plot](p.svg), `a[1](2)`.\n"
                            "  ```sh unrun needs=x needs=y\n"
                            "  echo [no](link)\n"
                            "    indented\n"
                            "  ```\n");
  ASSERT_EQ(page.blocks.size(), 1u);
  EXPECT_EQ(page.blocks[0].line, 4u);
  EXPECT_EQ(page.blocks[0].language, "sh");
  EXPECT_TRUE(page.blocks[0].has("unrun"));
  EXPECT_EQ(needs_of(page.blocks[0]), (std::vector<std::string>{"x", "y"}));
  EXPECT_EQ(page.blocks[0].text, "echo [no](link)\n  indented\n");
  ASSERT_EQ(page.links.size(), 2u);
  EXPECT_EQ(page.links[0].target, "b.md#c");
  EXPECT_FALSE(page.links[0].picture);
  EXPECT_TRUE(page.links[1].picture);
  ASSERT_EQ(page.code_words.size(), 2u);
  EXPECT_EQ(page.code_words[1].text, "a[1](2)");
  EXPECT_EQ(page.anchors, std::vector<std::string>{"a-title-x"});
  EXPECT_THROW(page_of("p.md", "```sh\n"), std::runtime_error);
}

TEST(Steps, AreCommandsFilesAndNothingElse) {
  const auto block = [](std::string language, std::string text) { return Block{10, language, {}, text}; };
  const std::vector<Step> steps = steps_of(block("console", "$ one\n> more\nout\n> not a command\n$ two\n"));
  ASSERT_EQ(steps.size(), 2u);
  EXPECT_EQ(steps[0].command, "one\nmore");
  EXPECT_EQ(steps[0].shown, "out\n> not a command\n");
  EXPECT_EQ(steps[1].line, 14u);
  EXPECT_EQ(steps[1].shown, "");
  EXPECT_EQ(steps_of(block("sh", "a\nb\n"))[0].command, "a\nb\n");
  EXPECT_EQ(steps_of(block("sh", "a\nb\n"))[0].shown, std::nullopt);
  EXPECT_TRUE(steps_of(block("text", "a\n")).empty());
  EXPECT_EQ(file_name_of(block("cpp", "// a.cpp\nint main() {}\n")), "a.cpp");
  EXPECT_EQ(file_name_of(block("sh", "# Reads a file.\n")), "");
  EXPECT_EQ(file_name_of(block("sh", "# only prose\n")), "");
}

/// The complaint about each step; empty if there is none.
std::vector<std::string> complaints(const std::vector<Step>& steps) {
  const TempDirectory directory;
  write_file(directory / "script", script_of(steps));
  const ProgramResult result =
      run_program({"/bin/bash", {(directory / "script").string()}, directory.path(), {}, {}});
  const std::vector<Outcome> outcomes = outcomes_in(result.out, steps.size());
  std::vector<std::string> all;
  for (std::size_t i = 0; i < steps.size(); ++i) {
    all.push_back(complaint(steps[i], outcomes[i], i + 1 < steps.size() && asks_for_status(steps[i + 1])));
  }
  return all;
}

TEST(Sessions, KeepTheirStateFromStepToStep) {
  const Block file{1, "text", {}, "# made.txt\ninside\n"};
  const auto all = complaints(
      {{1, "x=5", ""}, file_step(file, "made.txt"), {2, "echo $x; cat made.txt", "5\n# made.txt\ninside\n"}});
  for (const std::string& one : all) EXPECT_EQ(one, "");
}

TEST(Sessions, ComplainOfWrongOutputAndOfFailures) {
  const auto all = complaints({{1, "echo yes", "no\n"},
                               {2, "echo to standard error >&2", "to standard error\n"},
                               {3, "false", ""},
                               {4, "(exit 64)", ""},
                               {5, "echo $?", "64\n"},
                               {6, "printf 'no line end'", "no line end\n"},
                               {7, "exit 0", ""},
                               {8, "true", ""}});
  EXPECT_EQ(all[0], "the page shows\nno\nand it writes\nyes\n");
  EXPECT_EQ(all[1], "");
  EXPECT_EQ(all[2], "status 1:\n");
  EXPECT_EQ(all[3], "");
  EXPECT_EQ(all[4], "");
  EXPECT_EQ(all[5], "");
  EXPECT_NE(all[6], "");
  EXPECT_NE(all[7], "");
}

}  // namespace
