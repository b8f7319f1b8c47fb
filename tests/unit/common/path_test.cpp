#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "board_files.hpp"
#include "bootinit/common.h"
#include "common_faults.hpp"

using testing::ElementsAre;
using testing::MatchesRegex;
using testsupport::MainLog;

namespace {

class PathTest : public testing::Test {
 protected:
  void SetUp() override {
    commonfaults::Reset();
    testsupport::StartWithEmptyLogs();
    testsupport::RemovePath("/opt/p");
    std::filesystem::create_directories("/opt/p/real/dir");
    testsupport::WriteFile("/opt/p/real/dir/file", "x");
    std::filesystem::create_directory_symlink("/opt/p/real", "/opt/p/link");
  }
  void TearDown() override { commonfaults::Reset(); }
  char dir_[256] = {};
  char base_[128] = {};
  char out_[384] = {};

  uint32_t Split(const char *path) {
    std::memset(dir_, '#', sizeof(dir_) - 1);
    std::memset(base_, '#', sizeof(base_) - 1);
    return BOOT_INIT_GetDirAndBaseName(path, dir_, sizeof(dir_), base_, sizeof(base_));
  }
};

TEST_F(PathTest, SplitAtTheLastSlash) {
  EXPECT_EQ(Split("/a/b/c"), 0u);
  EXPECT_STREQ(dir_, "/a/b");
  EXPECT_STREQ(base_, "c");
  EXPECT_EQ(Split("a/b"), 0u);
  EXPECT_STREQ(dir_, "a");
  EXPECT_STREQ(base_, "b");
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(PathTest, SplitFailsWithoutADirectoryOrABaseName) {
  for (const char *path : {"/c", "c", "/a/b/", "", "/"}) {
    EXPECT_EQ(Split(path), 0xFFFFFFFFu) << path;
  }
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(PathTest, SplitBoundaries) {
  const std::string dir255 = "/" + std::string(254, 'd');
  EXPECT_EQ(Split((dir255 + "/b").c_str()), 0u);
  EXPECT_EQ(Split((dir255 + "d/b").c_str()), 0xFFFFFFFFu);  // 256-character directory
  const std::string base127(127, 'b');
  EXPECT_EQ(Split(("/d/" + base127).c_str()), 0u);
  EXPECT_STREQ(base_, base127.c_str());
  EXPECT_EQ(Split(("/d/" + base127 + "b").c_str()), 0xFFFFFFFFu);
  // The work buffer holds 383 characters.
  char bigDir[384] = {};
  char bigBase[384] = {};
  const std::string path383 = "/" + std::string(300, 'd') + "/" + std::string(81, 'b');
  ASSERT_EQ(path383.size(), 383u);
  EXPECT_EQ(BOOT_INIT_GetDirAndBaseName(path383.c_str(), bigDir, 384, bigBase, 384), 0u);
  EXPECT_EQ(BOOT_INIT_GetDirAndBaseName((path383 + "b").c_str(), bigDir, 384, bigBase, 384),
            0xFFFFFFFFu);
}

TEST_F(PathTest, SplitRefusesEmptyPointers) {
  EXPECT_EQ(BOOT_INIT_GetDirAndBaseName(nullptr, dir_, 256, base_, 128), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_GetDirAndBaseName("/a/b", nullptr, 256, base_, 128), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_GetDirAndBaseName("/a/b", dir_, 256, nullptr, 128), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:input param is null when check null 1",
                                     "[BOOT_INIT][ERROR]:input param is null when check null 1",
                                     "[BOOT_INIT][ERROR]:input param is null when check null 1"));
}

TEST_F(PathTest, FailedZeroingIsOnlyAWarning) {
  commonfaults::Get().failMemset = true;
  EXPECT_EQ(Split("/a/b/c"), 0u);
  commonfaults::Reset();
  EXPECT_STREQ(dir_, "/a/b");
  EXPECT_THAT(MainLog(),
              ElementsAre(MatchesRegex(R"(\[BOOT_INIT\]\[WARNING\]:memset unsuccessfully: )"
                                       R"(BOOT_INIT_GetDirAndBaseName, line: [0-9]+)"),
                          MatchesRegex(R"(\[BOOT_INIT\]\[WARNING\]:memset unsuccessfully: )"
                                       R"(BOOT_INIT_GetDirAndBaseName, line: [0-9]+)")));
}

TEST_F(PathTest, CanonicalOfAnExistingPath) {
  EXPECT_EQ(BOOT_INIT_Trans2CanonicalFilepath("/opt/p/link/dir/../dir//file", out_, 384), 0u);
  EXPECT_STREQ(out_, "/opt/p/real/dir/file");
  // The result must be shorter than the buffer.
  EXPECT_EQ(BOOT_INIT_Trans2CanonicalFilepath("/opt/p/link/dir/file", out_, 20), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_Trans2CanonicalFilepath("/opt/p/link/dir/file", out_, 21), 0u);
  EXPECT_EQ(BOOT_INIT_Trans2CanonicalFilepath("/opt/p/missing", out_, 384), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(PathTest, CanonicalRefusesEmptyPointers) {
  EXPECT_EQ(BOOT_INIT_Trans2CanonicalFilepath(nullptr, out_, 384), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_Trans2CanonicalFilepath("/opt", nullptr, 384), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_GetCanonicalFilepath(nullptr, out_, 384), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_GetCanonicalFilepath("/opt", nullptr, 384), 0xFFFFFFFFu);
  EXPECT_EQ(MainLog().size(), 4u);
}

TEST_F(PathTest, CanonicalOfAFileStillToBeCreated) {
  EXPECT_EQ(BOOT_INIT_GetCanonicalFilepath("/opt/p/link/dir/new.cc", out_, 384), 0u);
  EXPECT_STREQ(out_, "/opt/p/real/dir/new.cc");
  EXPECT_EQ(BOOT_INIT_GetCanonicalFilepath("/opt/p/link/dir/file", out_, 384), 0u);
  EXPECT_STREQ(out_, "/opt/p/real/dir/file");
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(PathTest, CanonicalFailsInAMissingDirectory) {
  EXPECT_EQ(BOOT_INIT_GetCanonicalFilepath("/opt/p/nodir/new.cc", out_, 384), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_GetCanonicalFilepath("new.cc", out_, 384), 0xFFFFFFFFu);
}

TEST_F(PathTest, CanonicalNeedsRoomForTheResult) {
  const std::string expected = "/opt/p/real/dir/new.cc";  // 22 characters
  EXPECT_EQ(BOOT_INIT_GetCanonicalFilepath("/opt/p/link/dir/new.cc", out_, 22), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_GetCanonicalFilepath("/opt/p/link/dir/new.cc", out_, 23), 0u);
  EXPECT_EQ(out_, expected);
}

}  // namespace
