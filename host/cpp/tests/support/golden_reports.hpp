#pragma once
// The four reports of a run as run/golden/ holds them, with the paths and the age of one run filled in.
#include <array>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>

#include "support/file_tree.hpp"

namespace orvo::test {

struct Reports {
  std::string csv;
  std::string json;
  std::string svg;
  std::string summary;
};

struct ReportSubject {
  std::filesystem::path input;
  std::filesystem::path prefix;
  std::string age;
};

inline std::string replaced(std::string text, std::string_view word, std::string_view value) {
  for (auto at = text.find(word); at != text.npos; at = text.find(word, at + value.size())) {
    text.replace(at, word.size(), value);
  }
  return text;
}

/// The reports run/golden/`name`.*; see the README there for how they were worked out.
inline Reports golden_reports(const std::string& name, const ReportSubject& subject) {
  const auto folder = std::filesystem::path(__FILE__).parent_path().parent_path() / "run" / "golden";
  const auto filled = [&](const std::string& suffix) {
    std::string text = read_file(folder / (name + suffix));
    text = replaced(text, "@INPUT@", subject.input.string());
    text = replaced(text, "@PREFIX@", subject.prefix.string());
    return replaced(text, "@AGE@", subject.age);
  };
  return {filled(".csv"), filled(".json"), filled(".svg"), filled(".summary.txt")};
}

/// The reports as they lie beside each other under an output prefix.
inline FileTree reports_under(const std::string& prefix, const Reports& reports) {
  return {{prefix + ".csv", reports.csv},
          {prefix + ".json", reports.json},
          {prefix + ".svg", reports.svg},
          {prefix + ".summary.txt", reports.summary}};
}

/// What the verification output root holds under fixed names after a successful run.
inline FileTree latest_files(const std::string& root, const Reports& reports) {
  return {{root + "/latest.csv", reports.csv},
          {root + "/latest.json", reports.json},
          {root + "/latest.svg", reports.svg},
          {root + "/latest_summary.txt", reports.summary},
          {root + "/open_latest_plot.bat", "@echo off\r\nstart \"\" \"%~dp0latest.svg\"\r\n"}};
}

}  // namespace orvo::test
