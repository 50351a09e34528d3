#pragma once
// The surroundings of the tool's parts in process: an empty current directory of the test's own, an empty product
// root.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <system_error>

#include "support/temp_directory.hpp"

namespace orvo::test {

class ToolSurroundings : public testing::Test {
 protected:
  ToolSurroundings() {
    std::filesystem::remove_all(product_root_of_tests());
    std::filesystem::current_path(cwd_.path());
  }
  ~ToolSurroundings() override {
    std::error_code ignored;
    std::filesystem::current_path(before_, ignored);
    std::filesystem::remove_all(product_root_of_tests(), ignored);
  }

  static std::filesystem::path product_root_of_tests() { return ORVO_TEST_PRODUCT_ROOT; }
  static std::filesystem::path output_root_of_tests() {
    return product_root_of_tests() / "logs" / "verification" / "stream_file_xcorr";
  }
  const std::filesystem::path& cwd() const { return cwd_.path(); }

 private:
  std::filesystem::path before_ = std::filesystem::current_path();
  TempDirectory cwd_;
};

/// Dates a file so long ago.
inline void set_age(const std::filesystem::path& path, std::chrono::nanoseconds age) {
  std::filesystem::last_write_time(path, std::filesystem::file_time_type::clock::now() - age);
}

}  // namespace orvo::test
