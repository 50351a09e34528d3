#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

enum class Level { note, suspect, broken };

inline std::string_view to_text(Level level) {
  if (level == Level::note) return "note";
  return level == Level::suspect ? "suspect" : "broken";
}

/// Something that a capture shows, and what it may mean.
struct Finding {
  Level level = Level::note;
  std::string code;
  std::optional<unsigned> channel;
  std::string text;
};

using Findings = std::vector<Finding>;

/// Broken with any finding of that level, else suspect with any of that, else healthy.
inline std::string_view verdict_of(const Findings& findings) {
  Level worst = Level::note;
  for (const Finding& finding : findings) worst = std::max(worst, finding.level);
  return worst == Level::note ? "healthy" : to_text(worst);
}

}  // namespace
