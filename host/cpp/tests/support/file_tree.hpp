#pragma once
// All that lies below a directory, as one value that can be compared.
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "support/temp_directory.hpp"

namespace orvo::test {

/// Name relative to some directory -> bytes of the file. An empty directory is "name/" without bytes, a symbolic
/// link "name@" with the text of the link. Directories that hold something are named by what they hold.
using FileTree = std::map<std::string, std::string>;

inline FileTree operator+(FileTree left, const FileTree& right) {
  left.insert(right.begin(), right.end());
  return left;
}

inline FileTree file_tree(const std::filesystem::path& root, const std::string& prefix = "") {
  FileTree tree;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    const std::string name = prefix + entry.path().lexically_relative(root).string();
    if (entry.is_symlink()) {
      tree[name + "@"] = std::filesystem::read_symlink(entry.path()).string();
    } else if (entry.is_directory()) {
      if (std::filesystem::is_empty(entry.path())) tree[name + "/"];
    } else {
      tree[name] = entry.is_regular_file() ? read_file(entry.path()) : "not a regular file";
    }
  }
  return tree;
}

inline std::vector<std::string> names(const FileTree& tree) {
  std::vector<std::string> out;
  for (const auto& [name, content] : tree) out.push_back(name);
  return out;
}

}  // namespace orvo::test
