// Tests of libswm's whole-file copy and permission change by path, and of the failures the
// board description forces on them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "board_env_files.hpp"
#include "swm.h"

namespace {

class UmaskGuard {
 public:
  explicit UmaskGuard(mode_t mask) : saved_(umask(mask)) {}
  ~UmaskGuard() { umask(saved_); }
  UmaskGuard(const UmaskGuard &) = delete;
  UmaskGuard &operator=(const UmaskGuard &) = delete;

 private:
  mode_t saved_;
};

struct stat StatOf(const std::string &path) {
  struct stat info {};
  EXPECT_EQ(stat(path.c_str(), &info), 0) << path;
  return info;
}

// A directory mounted read-only into the board (the host's /usr/local entries are).
std::string ReadOnlyDir() {
  for (const char *candidate : {"/usr/local/bin", "/usr/local/lib", "/usr/local/share"}) {
    struct statvfs info {};
    if (statvfs(candidate, &info) == 0 && (info.f_flag & ST_RDONLY) != 0) {
      return candidate;
    }
  }
  return {};
}

class SwmCopyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    boardtest::WriteDescription("[board]\nname=demo\n");
    boardtest::RemovePath(dir_);
    std::filesystem::create_directories(dir_);
  }
  void TearDown() override { boardtest::RemovePath(dir_); }

  std::string Path(const std::string &name) const { return dir_ + "/" + name; }

  void MakeFile(const std::string &name, const std::string &content, mode_t mode) const {
    boardtest::WriteFile(Path(name), content);
    ASSERT_EQ(chmod(Path(name).c_str(), mode), 0);
  }

  // The names in the test directory, to see that nothing was left behind.
  std::vector<std::string> Entries() const {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(dir_)) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  const std::string dir_ = "/tmp/swm_copy_test";
};

using Names = std::vector<std::string>;

// ---- SWM_CopyFile ----

TEST_F(SwmCopyTest, CopyHasTheContentAndTheSourcePermissions) {
  const UmaskGuard mask(0077);
  std::string content;
  for (int i = 0; i < 20000; ++i) {
    content += "line " + std::to_string(i) + "\n";  // several copy chunks
  }
  MakeFile("src", content, 0654);
  ASSERT_EQ(SWM_CopyFile(Path("src").c_str(), Path("dst").c_str()), SWM_OK);
  EXPECT_EQ(boardtest::ReadFile(Path("dst")), content);
  const struct stat info = StatOf(Path("dst"));
  EXPECT_EQ(info.st_mode, S_IFREG | 0654u);
  EXPECT_EQ(info.st_uid, geteuid());
  EXPECT_EQ(Entries(), (Names{"dst", "src"}));
}

TEST_F(SwmCopyTest, SetIdAndStickyBitsStayWithTheSource) {
  MakeFile("src", "x", 07755);
  ASSERT_EQ(SWM_CopyFile(Path("src").c_str(), Path("dst").c_str()), SWM_OK);
  EXPECT_EQ(StatOf(Path("dst")).st_mode & 07777, 0755u);
}

TEST_F(SwmCopyTest, ExistingDestinationIsReplacedWhole) {
  MakeFile("src", "new", 0640);
  MakeFile("dst", "older and much longer content", 0600);
  ASSERT_EQ(SWM_CopyFile(Path("src").c_str(), Path("dst").c_str()), SWM_OK);
  EXPECT_EQ(boardtest::ReadFile(Path("dst")), "new");
  EXPECT_EQ(StatOf(Path("dst")).st_mode & 07777, 0640u);
  EXPECT_EQ(Entries(), (Names{"dst", "src"}));
}

TEST_F(SwmCopyTest, ReaderOfTheOldDestinationKeepsTheOldContent) {
  MakeFile("src", "new", 0644);
  MakeFile("dst", "old", 0644);
  const int reader = open(Path("dst").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  ASSERT_EQ(SWM_CopyFile(Path("src").c_str(), Path("dst").c_str()), SWM_OK);
  char buf[8] = {};
  EXPECT_EQ(read(reader, buf, sizeof(buf) - 1), 3);
  EXPECT_STREQ(buf, "old");
  close(reader);
  EXPECT_EQ(boardtest::ReadFile(Path("dst")), "new");
}

TEST_F(SwmCopyTest, LinkAtTheDestinationIsReplacedNotFollowed) {
  MakeFile("src", "new", 0644);
  MakeFile("elsewhere", "untouched", 0644);
  ASSERT_EQ(symlink(Path("elsewhere").c_str(), Path("dst").c_str()), 0);
  ASSERT_EQ(SWM_CopyFile(Path("src").c_str(), Path("dst").c_str()), SWM_OK);
  struct stat info {};
  ASSERT_EQ(lstat(Path("dst").c_str(), &info), 0);
  EXPECT_TRUE(S_ISREG(info.st_mode));
  EXPECT_EQ(boardtest::ReadFile(Path("dst")), "new");
  EXPECT_EQ(boardtest::ReadFile(Path("elsewhere")), "untouched");
}

TEST_F(SwmCopyTest, LinkAtTheSourceIsFollowed) {
  MakeFile("real", "content", 0640);
  ASSERT_EQ(symlink(Path("real").c_str(), Path("src").c_str()), 0);
  ASSERT_EQ(SWM_CopyFile(Path("src").c_str(), Path("dst").c_str()), SWM_OK);
  EXPECT_EQ(boardtest::ReadFile(Path("dst")), "content");
  EXPECT_EQ(StatOf(Path("dst")).st_mode & 07777, 0640u);
}

TEST_F(SwmCopyTest, EmptyAndSizelessFilesAreCopied) {
  MakeFile("empty", "", 0600);
  ASSERT_EQ(SWM_CopyFile(Path("empty").c_str(), Path("dst").c_str()), SWM_OK);
  EXPECT_EQ(boardtest::ReadFile(Path("dst")), "");
  // /proc files report size 0 and still have content.
  ASSERT_EQ(SWM_CopyFile("/proc/version", Path("version").c_str()), SWM_OK);
  EXPECT_EQ(boardtest::ReadFile(Path("version")), boardtest::ReadFile("/proc/version"));
  EXPECT_FALSE(boardtest::ReadFile(Path("version")).empty());
}

TEST_F(SwmCopyTest, OnlyRegularFilesAreCopied) {
  ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);  // no writer: must not be waited for
  std::filesystem::create_directory(Path("dir"));
  const std::vector<std::pair<std::string, int>> sources = {
      {Path("fifo"), EINVAL}, {Path("dir"), EISDIR}, {"/dev/null", EINVAL}};
  for (const auto &[source, error] : sources) {
    errno = 0;
    EXPECT_EQ(SWM_CopyFile(source.c_str(), Path("dst").c_str()), SWM_ERR_IO) << source;
    EXPECT_EQ(errno, error) << source;
  }
  EXPECT_EQ(Entries(), (Names{"dir", "fifo"}));
}

TEST_F(SwmCopyTest, MissingSourceLeavesTheDestinationAlone) {
  MakeFile("dst", "old", 0600);
  errno = 0;
  EXPECT_EQ(SWM_CopyFile(Path("none").c_str(), Path("dst").c_str()), SWM_ERR_IO);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(boardtest::ReadFile(Path("dst")), "old");
  EXPECT_EQ(Entries(), (Names{"dst"}));
}

TEST_F(SwmCopyTest, MissingDestinationDirectoryFails) {
  MakeFile("src", "x", 0600);
  errno = 0;
  EXPECT_EQ(SWM_CopyFile(Path("src").c_str(), Path("no/dst").c_str()), SWM_ERR_IO);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(Entries(), (Names{"src"}));
}

TEST_F(SwmCopyTest, DirectoryInTheWayIsKeptAndNothingIsLeftBeside) {
  MakeFile("src", "x", 0600);
  std::filesystem::create_directory(Path("dst"));
  errno = 0;
  EXPECT_EQ(SWM_CopyFile(Path("src").c_str(), Path("dst").c_str()), SWM_ERR_IO);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_TRUE(std::filesystem::is_directory(Path("dst")));
  EXPECT_EQ(Entries(), (Names{"dst", "src"}));
}

TEST_F(SwmCopyTest, ReadOnlyDestinationFails) {
  const std::string readOnly = ReadOnlyDir();
  ASSERT_FALSE(readOnly.empty()) << "the board has no read-only directory";
  MakeFile("src", "x", 0600);
  const std::string target = readOnly + "/swm_copy_test_never_written";
  errno = 0;
  EXPECT_EQ(SWM_CopyFile(Path("src").c_str(), target.c_str()), SWM_ERR_IO);
  EXPECT_EQ(errno, EROFS);
  EXPECT_FALSE(std::filesystem::exists(target));
}

TEST_F(SwmCopyTest, ForcedFailureChangesNothing) {
  boardtest::WriteDescription("[fail]\nSWM_CopyFile=9\n");
  MakeFile("src", "new", 0644);
  MakeFile("dst", "old", 0600);
  errno = 0;
  EXPECT_EQ(SWM_CopyFile(Path("src").c_str(), Path("dst").c_str()), 9u);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(boardtest::ReadFile(Path("dst")), "old");
  EXPECT_EQ(Entries(), (Names{"dst", "src"}));
  // Argument checks come first.
  EXPECT_EQ(SWM_CopyFile(nullptr, Path("dst").c_str()), SWM_ERR_PARAM);
  // A code of 0 forces nothing.
  boardtest::WriteDescription("[fail]\nSWM_CopyFile=0\n");
  EXPECT_EQ(SWM_CopyFile(Path("src").c_str(), Path("dst").c_str()), SWM_OK);
  EXPECT_EQ(boardtest::ReadFile(Path("dst")), "new");
}

TEST_F(SwmCopyTest, EmptyArgumentsAreRefused) {
  MakeFile("src", "x", 0600);
  EXPECT_EQ(SWM_CopyFile(nullptr, Path("dst").c_str()), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_CopyFile(Path("src").c_str(), nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_CopyFile("", Path("dst").c_str()), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_CopyFile(Path("src").c_str(), ""), SWM_ERR_PARAM);
  EXPECT_EQ(Entries(), (Names{"src"}));
}

TEST_F(SwmCopyTest, NoDescriptorIsLeftOnAnyPath) {
  MakeFile("src", "x", 0600);
  ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
  const int before = boardtest::CountOpenFds();
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(SWM_CopyFile(Path("src").c_str(), Path("dst").c_str()), SWM_OK);
    EXPECT_EQ(SWM_CopyFile(Path("none").c_str(), Path("dst").c_str()), SWM_ERR_IO);
    EXPECT_EQ(SWM_CopyFile(Path("fifo").c_str(), Path("dst").c_str()), SWM_ERR_IO);
    EXPECT_EQ(SWM_CopyFile(Path("src").c_str(), Path("no/dst").c_str()), SWM_ERR_IO);
    EXPECT_EQ(SWM_CopyFile(Path("src").c_str(), dir_.c_str()), SWM_ERR_IO);
  }
  EXPECT_EQ(boardtest::CountOpenFds(), before);
}

// ---- SWM_FchmodPath ----

TEST_F(SwmCopyTest, FchmodPathSetsThePermissionBitsOfAStatMode) {
  const UmaskGuard mask(0777);
  MakeFile("file", "x", 0600);
  EXPECT_EQ(SWM_FchmodPath(Path("file").c_str(), S_IFREG | 04750), SWM_OK);
  EXPECT_EQ(StatOf(Path("file")).st_mode, S_IFREG | 04750u);
  // The kind of file in the mode does not matter.
  EXPECT_EQ(SWM_FchmodPath(Path("file").c_str(), S_IFDIR | 0644), SWM_OK);
  EXPECT_EQ(StatOf(Path("file")).st_mode, S_IFREG | 0644u);
}

TEST_F(SwmCopyTest, FchmodPathFollowsLinks) {
  MakeFile("target", "x", 0600);
  ASSERT_EQ(symlink(Path("target").c_str(), Path("link").c_str()), 0);
  EXPECT_EQ(SWM_FchmodPath(Path("link").c_str(), 0640), SWM_OK);
  EXPECT_EQ(StatOf(Path("target")).st_mode & 07777, 0640u);
}

TEST_F(SwmCopyTest, FchmodPathFailuresKeepErrno) {
  errno = 0;
  EXPECT_EQ(SWM_FchmodPath(Path("none").c_str(), 0600), SWM_ERR_IO);
  EXPECT_EQ(errno, ENOENT);
  const std::string readOnly = ReadOnlyDir();
  ASSERT_FALSE(readOnly.empty()) << "the board has no read-only directory";
  // The mode it already has: nothing would change even if the mount allowed it.
  errno = 0;
  EXPECT_EQ(SWM_FchmodPath(readOnly.c_str(), StatOf(readOnly).st_mode), SWM_ERR_IO);
  EXPECT_EQ(errno, EROFS);
  EXPECT_EQ(SWM_FchmodPath(nullptr, 0600), SWM_ERR_PARAM);
}

TEST_F(SwmCopyTest, FchmodPathForcedFailureChangesNothing) {
  boardtest::WriteDescription("[fail]\nSWM_FchmodPath=0x21\n");
  MakeFile("file", "x", 0600);
  errno = 0;
  EXPECT_EQ(SWM_FchmodPath(Path("file").c_str(), 0644), 0x21u);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(StatOf(Path("file")).st_mode & 07777, 0600u);
  EXPECT_EQ(SWM_FchmodPath(nullptr, 0644), SWM_ERR_PARAM);
}

}  // namespace
