// Fuzz targets without a fuzzer: runs one of them once on each file of the given directories.
//
//   replay CONCEPT DIRECTORY...
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <vector>

namespace {

struct Target {
  std::string_view concept_name;
  int (*run)(const std::uint8_t* data, std::size_t size);
};

}  // namespace

#include "replay_targets.hpp"

namespace {

std::vector<std::uint8_t> content_of(const std::filesystem::path& path) {
  std::vector<std::uint8_t> content(std::filesystem::file_size(path));
  std::ifstream(path, std::ios::binary).read(reinterpret_cast<char*>(content.data()), std::ssize(content));
  return content;
}

}  // namespace

int main(int argc, char** argv) {
  const Target* const target = std::find_if(std::begin(kTargets), std::end(kTargets), [&](const Target& candidate) {
    return argc > 1 && candidate.concept_name == argv[1];
  });
  if (target == std::end(kTargets)) {
    std::fprintf(stderr, "usage: replay CONCEPT DIRECTORY...\n");
    return 64;
  }
  std::vector<std::filesystem::path> inputs;
  for (int i = 2; i < argc; ++i) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) inputs.push_back(entry.path());
  }
  std::sort(inputs.begin(), inputs.end());
  for (const std::filesystem::path& input : inputs) {
    std::fprintf(stderr, "%s\n", input.filename().c_str());  // the last name before an abort is the culprit
    const std::vector<std::uint8_t> bytes = content_of(input);
    target->run(bytes.data(), bytes.size());
  }
  std::printf("%zu inputs\n", inputs.size());
  return inputs.empty() ? 1 : 0;
}
