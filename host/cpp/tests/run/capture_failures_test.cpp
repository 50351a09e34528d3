// Captures that cannot be opened or are cut short: the run prints what it reads and writes, then fails and leaves no
// report.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <string_view>

#include "support/product_root.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;

class CaptureFailures : public ProductRoot {
 protected:
  std::string failure_of(const std::string& name) { return seen(verify({name, "--out-prefix=out/run"})); }
  std::string failure_with(const Bytes& content) {
    write_file(cwd() / "c.tagcap", content);
    return failure_of("c.tagcap");
  }
  std::string ended_with(const std::string& message, const std::string& name = "c.tagcap") const {
    return seen(1, announcement(cwd() / name, cwd() / "out/run"), message);
  }
  std::string cannot_open(const std::string& name) const {
    return ended_with("StreamFileReader: cannot open " + (cwd() / name).string() + "\n", name);
  }
};

TEST_F(CaptureFailures, AMissingFileCannotBeOpened) {
  EXPECT_EQ(failure_of("none.tagcap"), cannot_open("none.tagcap"));
  EXPECT_EQ(failure_of("no/such/directory/c.tagcap"), cannot_open("no/such/directory/c.tagcap"));
  EXPECT_EQ(files(), FileTree{});
}

TEST_F(CaptureFailures, AMissingFileOfTheSettingsIsAnnouncedWithThem) {
  write_settings("input_file=none.tagcap\noutput_prefix=out/run\n");
  const std::string config = "Config: " + (cwd() / kSettingsName).string() + "\n";
  EXPECT_EQ(seen(verify()), seen(1, config + announcement(cwd() / "none.tagcap", cwd() / "out/run"),
                                 "StreamFileReader: cannot open " + (cwd() / "none.tagcap").string() + "\n"));
}

TEST_F(CaptureFailures, ALinkInACircleCannotBeOpened) {
  fs::create_symlink("c.tagcap", cwd() / "c.tagcap");
  EXPECT_EQ(failure_of("c.tagcap"), cannot_open("c.tagcap"));
}

TEST_F(CaptureFailures, AFileIsNoDirectoryOnTheWay) {
  write_file(cwd() / "file", std::string("?"));
  EXPECT_EQ(failure_of("file/c.tagcap"), cannot_open("file/c.tagcap"));
}

TEST_F(CaptureFailures, AnUnreadableFileCannotBeOpened) {
  if (::geteuid() == 0) GTEST_SKIP() << "permissions do not bind root";
  write_file(cwd() / "c.tagcap", single_pair_capture());
  fs::permissions(cwd() / "c.tagcap", fs::perms::none);
  EXPECT_EQ(failure_of("c.tagcap"), cannot_open("c.tagcap"));
}

TEST_F(CaptureFailures, ADirectoryHasNoMagic) {
  fs::create_directory(cwd() / "c.tagcap");
  EXPECT_EQ(failure_of("c.tagcap"), ended_with("StreamFileReader: truncated magic\n"));
}

TEST_F(CaptureFailures, UpTo7BytesAreATruncatedMagic) {
  for (std::size_t size = 0; size < 8; ++size) {
    EXPECT_EQ(failure_with(text_bytes(std::string_view("TAGCAP1\n").substr(0, size))),
              ended_with("StreamFileReader: truncated magic\n"));
    EXPECT_EQ(failure_with(Bytes(size, 0)), ended_with("StreamFileReader: truncated magic\n"));
  }
  EXPECT_THAT(names(files()), testing::ElementsAre("cwd/c.tagcap"));
}

TEST_F(CaptureFailures, OtherMagicsAreRefused) {
  const Bytes rest = little_endian(0, 4);
  for (const std::string_view magic : {"TAGCAP1\r", "TAGCAP2\n", "tagcap1\n", "TAGCAP1 ", "VQSTRM2\n", "VQSTRM1\r",
                                       "vqstrm1\n", "TAGSTRM\n", "VQSTRM1T", "RIFFWAVE"}) {
    EXPECT_EQ(failure_with(text_bytes(magic) + rest),
              ended_with("StreamFileReader: not an Orvo timing stream file\n"))
        << magic;
  }
  EXPECT_EQ(failure_with(Bytes(8, 0)), ended_with("StreamFileReader: not an Orvo timing stream file\n"));
}

TEST_F(CaptureFailures, UpTo11BytesAreATruncatedHeaderLength) {
  for (const std::string_view magic : {"TAGCAP1\n", "VQSTRM1\n"}) {
    for (std::size_t size = 0; size < 4; ++size) {
      EXPECT_EQ(failure_with(text_bytes(magic) + Bytes(size, 0)),
                ended_with("stream file: truncated header length\n"));
    }
  }
}

TEST_F(CaptureFailures, AHeaderLongerThanTheFileIsTruncated) {
  const Bytes magic = text_bytes("TAGCAP1\n");
  EXPECT_EQ(failure_with(magic + little_endian(1, 4)), ended_with("StreamFileReader: truncated JSON header\n"));
  EXPECT_EQ(failure_with(magic + little_endian(3, 4) + text_bytes("{}")),
            ended_with("StreamFileReader: truncated JSON header\n"));
  EXPECT_EQ(failure_with(magic + little_endian(0x01'00'00'00, 4) + Bytes(1'000'000, ' ')),
            ended_with("StreamFileReader: truncated JSON header\n"));
}

TEST_F(CaptureFailures, AFalseLengthOf4GiBIsAnsweredAtOnceAndWithoutItsMemory) {
  const Bytes claim = text_bytes("TAGCAP1\n") + little_endian(0xFFFF'FFFF, 4);
  const std::int64_t before = now_ns();
  EXPECT_EQ(failure_with(claim), ended_with("StreamFileReader: truncated JSON header\n"));
  EXPECT_LT(now_ns() - before, 5'000'000'000);
  rusage children = {};
  ASSERT_EQ(::getrusage(RUSAGE_CHILDREN, &children), 0);
  EXPECT_LT(children.ru_maxrss, 256 * 1024);  // KiB, the largest of all runs so far
}

TEST_F(CaptureFailures, AFalseLengthOf4GiBNeedsNoAddressSpaceEither) {
  if (kUnderAddressSanitizer) GTEST_SKIP() << "the sanitizer itself needs more address space";
  write_file(cwd() / "c.tagcap", text_bytes("TAGCAP1\n") + little_endian(0xFFFF'FFFF, 4) + Bytes(100, '{'));
  EXPECT_EQ(seen(shell(R"(ulimit -v 200000; exec "$0" c.tagcap --out-prefix=out/run)")),
            ended_with("StreamFileReader: truncated JSON header\n"));
}

TEST_F(CaptureFailures, ReportsOfAnEarlierRunStay) {
  write_file(cwd() / "c.tagcap", single_pair_capture());
  EXPECT_EQ(verify({"c.tagcap", "--out-prefix=out/run"}).exit_status, 0);
  FileTree before = files();
  EXPECT_EQ(failure_with(text_bytes("TAGCAP1")), ended_with("StreamFileReader: truncated magic\n"));
  before["cwd/c.tagcap"] = "TAGCAP1";
  EXPECT_EQ(files(), before);
}

}  // namespace
