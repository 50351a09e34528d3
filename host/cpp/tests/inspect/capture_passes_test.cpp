#include "inspect/capture_passes.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "common/progress.hpp"
#include "orvo/timing/tag_file_writer.hpp"
#include "support/temp_directory.hpp"

namespace {

using orvo::timing::TagList;
using orvo::timing::TimeTag;
using Tags = std::vector<TimeTag>;

class CapturePassesTest : public testing::Test {
 protected:
  std::string path() const { return (directory_ / "c.tagcap").string(); }
  void write(const Tags& tags) const {
    orvo::timing::TagFileWriter writer;
    orvo::timing::StreamFileHeader header;
    header.stream_format = orvo::timing::StreamFormat::raw64;
    header.raw64_tag_format = "ps";
    writer.open(path(), header);
    writer.write(tags);
    writer.close();
  }
  Inspection inspected(std::uint64_t max_tags = 0) const {
    std::ostringstream nowhere;
    Progress progress(nowhere, false, "inspecting");
    return Inspection(path(), max_tags, progress);
  }
  static Tags decoded(CapturePasses& passes) {
    Tags tags;
    TagList list(tags);
    passes.run(list);
    return tags;
  }
  std::string failure(CapturePasses& passes) const {
    try {
      decoded(passes);
    } catch (const orvo::timing::Error& error) {
      return error.what();
    }
    return "";
  }
  std::string changed() const {
    return path() + ": changed while it was read; pairs of channels need it several times";
  }

  std::ostringstream nowhere_;
  Progress silent_{nowhere_, false, "correlating"};
  const Tags tags_{{0, 10}, {1, 25}, {0, 40}, {3, 55}, {0, 70}};
  orvo::test::TempDirectory directory_;
};

TEST_F(CapturePassesTest, GiveTheInspectedTagsAnyNumberOfTimes) {
  write(tags_);
  const RepeatableInput input(path());
  const Inspection inspection = inspected();
  CapturePasses passes(inspection, input, 0, silent_);
  for (int pass = 0; pass < 3; ++pass) EXPECT_EQ(decoded(passes), tags_);
  EXPECT_EQ(passes.extent(0).tags, 3U);
  EXPECT_EQ(passes.extent(0).first_ps, 10);
  EXPECT_EQ(passes.extent(0).last_ps, 70);
  EXPECT_EQ(passes.extent(2).tags, 0U);
}

// Since the clock began a line has been due.
TEST_F(CapturePassesTest, TellHowFarTheyAre) {
  write(tags_);
  const RepeatableInput input(path());
  const Inspection inspection = inspected();
  std::ostringstream terminal;
  Progress progress(terminal, true, "correlating", Progress::Clock::time_point{});
  CapturePasses passes(inspection, input, 0, progress);
  decoded(passes);
  EXPECT_EQ(terminal.str(), "\rcorrelating: pass 1, 100 %");
}

TEST_F(CapturePassesTest, StopAfterTheWantedTags) {
  write(tags_);
  const RepeatableInput input(path());
  const Inspection inspection = inspected(3);
  CapturePasses passes(inspection, input, 3, silent_);
  EXPECT_EQ(decoded(passes), Tags(tags_.begin(), tags_.begin() + 3));
}

TEST_F(CapturePassesTest, ReadNoFurtherWhenTheFileGrows) {
  write(tags_);
  const RepeatableInput input(path());
  const Inspection inspection = inspected();
  std::ofstream(path(), std::ios::binary | std::ios::app) << "more and more bytes";
  CapturePasses passes(inspection, input, 0, silent_);
  EXPECT_EQ(decoded(passes), tags_);
}

TEST_F(CapturePassesTest, FailWhenTheFileIsCutOrAnotherOne) {
  write(tags_);
  const RepeatableInput input(path());
  const Inspection inspection = inspected();
  CapturePasses passes(inspection, input, 0, silent_);
  write({{0, 10}, {1, 25}, {0, 40}, {3, 55}, {0, 71}});
  EXPECT_EQ(failure(passes), changed());
  write({{0, 10}, {1, 25}, {0, 40}, {3, 55}});
  EXPECT_EQ(failure(passes), changed());
}

TEST_F(CapturePassesTest, FailWhenATimeInTheMiddleChanges) {
  write(tags_);
  const RepeatableInput input(path());
  const Inspection inspection = inspected();
  CapturePasses passes(inspection, input, 0, silent_);
  EXPECT_EQ(decoded(passes), tags_);
  write({{0, 10}, {1, 25}, {0, 41}, {3, 55}, {0, 70}});
  EXPECT_EQ(failure(passes), changed());
}

}  // namespace
