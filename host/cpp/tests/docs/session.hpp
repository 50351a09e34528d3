#pragma once
// What a reader of a page does, from top to bottom, in one shell:
//
//   ```console    lines that begin with "$ " are typed, "> " continues one; the rest is what they print
//   ```sh         typed as a whole
//
// A block of any language whose first line (after a "#!" line) is a comment with nothing but a file name is that
// file. The word "unrun" after the language keeps a block from being run, "needs=NAME" makes that depend on a command
// or Python module of that name.
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "docs/page.hpp"
#include "docs/shown_output.hpp"

namespace orvo::test {

/// A command to type, or a file to make.
struct Step {
  std::size_t line = 0;
  std::string command;
  std::optional<std::string> shown;  // `nullopt`: whatever it prints
};

/// The name of the file that a block is; empty if it is not one.
inline std::string file_name_of(const Block& block) {
  const std::size_t start = block.text.starts_with("#!") ? block.text.find('\n') + 1 : 0;
  const std::string first = block.text.substr(start, block.text.find('\n', start) - start);
  for (const std::string_view comment : {"# ", "// "}) {
    if (!first.starts_with(comment)) continue;
    const std::string name = first.substr(comment.size());
    const bool is_word = name.find_first_of(" \t$`'\"*") == name.npos;
    if (is_word && name.find('.') != name.npos && name.back() != '.') return name;
  }
  return {};
}

inline Step file_step(const Block& block, const std::string& name) {
  return {block.line, "cat > " + name + " <<'END_OF_BLOCK'\n" + block.text + "END_OF_BLOCK", std::string()};
}

inline std::vector<Step> console_steps(const Block& block) {
  std::vector<Step> steps;
  std::size_t line = block.line;
  for (const std::string& text : lines_of(block.text)) {
    if (text.starts_with("$ ")) {
      steps.push_back({line, text.substr(2), std::string()});
    } else if (steps.empty()) {
      steps.push_back({line, "echo a console block begins with a command; false", std::string()});
    } else if (text.starts_with("> ") && steps.back().shown->empty()) {
      steps.back().command += '\n' + text.substr(2);
    } else {
      *steps.back().shown += text + '\n';
    }
    ++line;
  }
  return steps;
}

/// What a block asks to be done; no steps if it only shows something.
inline std::vector<Step> steps_of(const Block& block) {
  if (const std::string name = file_name_of(block); !name.empty()) return {file_step(block, name)};
  if (block.language == "console") return console_steps(block);
  if (block.language == "sh") return {{block.line, block.text, std::nullopt}};
  return {};
}

/// The names after "needs=".
inline std::vector<std::string> needs_of(const Block& block) {
  constexpr std::string_view kNeeds = "needs=";
  std::vector<std::string> names;
  for (const std::string& word : block.words) {
    if (word.starts_with(kNeeds)) names.push_back(word.substr(kNeeds.size()));
  }
  return names;
}

/// How a step went.
struct Outcome {
  int status = -1;  // -1: the shell never got there
  std::string output;
};

constexpr std::string_view kEndOfStep =
    "\x1e"
    "end of step ";

/// One script of all steps. Each sees the status of the previous one as "$?".
inline std::string script_of(const std::vector<Step>& steps) {
  std::string script = "exec 2>&1\nstep_status=0\n";
  for (const Step& step : steps) {
    script += "(exit $step_status)\n" + step.command + "\nstep_status=$?\nprintf '%s%d\\n' '" +
              std::string(kEndOfStep) + "' $step_status\n";
  }
  return script;
}

/// The output of such a script, step by step.
inline std::vector<Outcome> outcomes_in(std::string_view output, std::size_t steps) {
  std::vector<Outcome> outcomes(steps);
  for (Outcome& outcome : outcomes) {
    const std::size_t end = output.find(kEndOfStep);
    outcome.output = output.substr(0, end);
    if (end == output.npos) break;
    output.remove_prefix(end + kEndOfStep.size());
    outcome.status = std::stoi(std::string(output.substr(0, output.find('\n'))));
    output.remove_prefix(output.find('\n') + 1);
  }
  return outcomes;
}

/// What is wrong with a step, empty if nothing is. A step may fail if the page says so by asking for "$?" next.
inline std::string complaint(const Step& step, const Outcome& outcome, bool may_fail) {
  if (outcome.status == -1) return "the shell ended before or in it:\n" + outcome.output;
  if (outcome.status != 0 && !may_fail) {
    return "status " + std::to_string(outcome.status) + ":\n" + outcome.output;
  }
  if (step.shown && !output_matches(*step.shown, outcome.output)) {
    return "the page shows\n" + *step.shown + "and it writes\n" + outcome.output;
  }
  return {};
}

inline bool asks_for_status(const Step& step) {
  return step.command.starts_with("echo $?");
}

}  // namespace orvo::test
