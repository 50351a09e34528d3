#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <fstream>
#include <ios>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>

#include "common/partial_file.hpp"
#include "orvo/timing/error.hpp"

namespace {

/// Where a report goes: standard output for "-", else a file that has its name only once it is complete.
class ReportFile {
 public:
  /// Throws `Error` when the file cannot be created.
  ReportFile(const std::string& path, std::ostream& standard_output) : out_(&standard_output) {
    if (path == "-") return;
    file_ = std::make_unique<PartialFile>(path);
    stream_.open(file_->partial_path(), std::ios::binary);
    if (!stream_) file_->fail_to_create();
    out_ = &stream_;
  }

  void write(std::string_view text) { out_->write(text.data(), static_cast<std::streamsize>(text.size())); }

  /// Throws `Error` when not all of it could be written.
  void complete() {
    out_->flush();
    if (!*out_ && !file_) throw orvo::timing::Error("cannot write to standard output", orvo::timing::kFileFailure);
    if (!file_) return;
    stream_.close();
    if (!stream_) file_->fail_to_write();
    file_->complete();
  }

 private:
  std::unique_ptr<PartialFile> file_;
  std::ofstream stream_;
  std::ostream* out_;
};

}  // namespace
