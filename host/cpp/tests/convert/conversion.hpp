#pragma once
// Captures to convert, and what the converter makes of them in this process.
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "convert/run.hpp"
#include "orvo/timing/stream_file_reader.hpp"
#include "orvo/timing/tag_file_writer.hpp"
#include "support/encoded.hpp"
#include "support/temp_directory.hpp"

namespace {

using namespace orvo::test;

struct Converted {
  int status = -1;
  std::string out;
  std::string err;
};

/// A directory with captures in it, by name.
class Conversion : public testing::Test {
 protected:
  std::string path(const std::string& name) const {
    return name == "-" || name.starts_with('/') ? name : (directory_ / name).string();
  }

  void write_capture(const std::string& name, const orvo::timing::StreamFileHeader& header, const Tags& tags) const {
    orvo::timing::TagFileWriter writer;
    writer.open(path(name), header);
    writer.write(tags);
    writer.close();
  }

  Tags tags_of(const std::string& name) const {
    orvo::timing::StreamFileReader reader;
    reader.open(path(name));
    Tags tags;
    for (Tags more = reader.decode_next_tags(65536, 1 << 20); !more.empty();
         more = reader.decode_next_tags(65536, 1 << 20)) {
      tags.insert(tags.end(), more.begin(), more.end());
    }
    return tags;
  }
  orvo::timing::StreamFileHeader header_of(const std::string& name) const {
    orvo::timing::StreamFileReader reader;
    reader.open(path(name));
    return reader.header();
  }

  /// File names are those of this directory.
  Converted convert(const std::vector<std::string>& options, const std::vector<std::string>& files) const {
    std::vector<std::string> arguments = options;
    for (const std::string& file : files) arguments.push_back(path(file));
    std::ostringstream out;
    std::ostringstream err;
    const int status = run(arguments, {out, err});
    return {status, out.str(), err.str()};
  }
  Tags converted(const std::vector<std::string>& options,
                 const std::vector<std::string>& inputs = {"in.tagcap"}) const {
    std::vector<std::string> files = inputs;
    files.push_back("out.tagcap");
    std::vector<std::string> all = options;
    all.push_back("--force");
    const Converted result = convert(all, files);
    EXPECT_EQ(result.status, 0) << result.err;
    return tags_of("out.tagcap");
  }

  const std::filesystem::path& directory() const { return directory_.path(); }

 private:
  TempDirectory directory_;
};

}  // namespace
