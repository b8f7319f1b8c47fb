#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "board_files.hpp"
#include "bootinit/common.h"
#include "common_faults.hpp"

using testing::ElementsAre;
using testsupport::MainLog;
using testsupport::ReadFile;

namespace {

class CopyTest : public testing::Test {
 protected:
  void SetUp() override {
    commonfaults::Reset();
    testsupport::StartWithEmptyLogs();
    source_.resize(100000);
    for (std::size_t i = 0; i < source_.size(); ++i) {
      source_[i] = static_cast<char>(i * 7 + 3);
    }
    testsupport::WriteFile("/opt/src.bin", source_);
    in_ = ::open("/opt/src.bin", O_RDONLY);
    out_ = ::open("/opt/dst.bin", O_RDWR | O_CREAT | O_TRUNC, 0600);
  }
  void TearDown() override {
    ::close(in_);
    ::close(out_);
    commonfaults::Reset();
  }
  std::string source_;
  int in_ = -1;
  int out_ = -1;
};

TEST_F(CopyTest, CopiesExactlyTheLengthFromTheCurrentPosition) {
  ASSERT_EQ(::lseek(in_, 10, SEEK_SET), 10);
  EXPECT_EQ(BOOT_INIT_CopyFileWithLen(in_, out_, 70000), 0u);
  EXPECT_EQ(ReadFile("/opt/dst.bin"), source_.substr(10, 70000));
  EXPECT_EQ(::lseek(in_, 0, SEEK_CUR), 70010);
}

TEST_F(CopyTest, ChunkBoundaries) {
  for (int length : {1, 32767, 32768, 32769, 65536}) {
    ASSERT_EQ(::lseek(in_, 0, SEEK_SET), 0);
    ASSERT_EQ(::ftruncate(out_, 0), 0);
    ASSERT_EQ(::lseek(out_, 0, SEEK_SET), 0);
    EXPECT_EQ(BOOT_INIT_CopyFileWithLen(in_, out_, length), 0u) << length;
    EXPECT_EQ(ReadFile("/opt/dst.bin"), source_.substr(0, static_cast<std::size_t>(length)));
  }
}

TEST_F(CopyTest, ZeroOrNegativeLengthCopiesNothing) {
  EXPECT_EQ(BOOT_INIT_CopyFileWithLen(in_, out_, 0), 0u);
  EXPECT_EQ(BOOT_INIT_CopyFileWithLen(in_, out_, -5), 0u);
  EXPECT_EQ(ReadFile("/opt/dst.bin"), "");
}

TEST_F(CopyTest, SourceShorterThanTheLengthStops) {
  EXPECT_EQ(BOOT_INIT_CopyFileWithLen(in_, out_, 100001), 1u);
  // Whole chunks before the short one were written.
  EXPECT_EQ(ReadFile("/opt/dst.bin").size(), 3u * 32768u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(CopyTest, FailedWriteStops) {
  const int readOnly = ::open("/opt/src.bin", O_RDONLY);
  EXPECT_EQ(BOOT_INIT_CopyFileWithLen(in_, readOnly, 10), 1u);
  ::close(readOnly);
  EXPECT_EQ(BOOT_INIT_CopyFileWithLen(-1, out_, 10), 1u);
}

TEST_F(CopyTest, NoBuffer) {
  commonfaults::Get().failCalloc = true;
  EXPECT_EQ(BOOT_INIT_CopyFileWithLen(in_, out_, 10), 0x10000005u);
  commonfaults::Reset();
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:input param is null when check null 1"));
}

}  // namespace
