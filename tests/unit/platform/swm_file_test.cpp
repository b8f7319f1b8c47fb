// Tests of the file helpers of libswm: opening, directory chains and owner changes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "swm.h"

namespace {

constexpr int kUntouchedFd = -77;

class TempDir {
 public:
  TempDir() {
    char pattern[] = "/tmp/swm_file_test.XXXXXX";
    if (mkdtemp(pattern) != nullptr) {
      path_ = pattern;
    }
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir &) = delete;
  TempDir &operator=(const TempDir &) = delete;
  const std::string &path() const { return path_; }

 private:
  std::string path_;
};

class UmaskGuard {
 public:
  explicit UmaskGuard(mode_t mask) : saved_(umask(mask)) {}
  ~UmaskGuard() { umask(saved_); }

 private:
  mode_t saved_;
};

size_t OpenDescriptorCount() {
  size_t count = 0;
  for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    (void)entry;
    ++count;
  }
  return count;
}

bool HasCloseOnExec(int fd) {
  const int flags = fcntl(fd, F_GETFD);
  return flags >= 0 && (flags & FD_CLOEXEC) != 0;
}

class SwmFileTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_FALSE(dir_.path().empty()) << "mkdtemp failed"; }

  std::string Path(const std::string &name) const { return dir_.path() + "/" + name; }

  void WriteFile(const std::string &name, const std::string &content) const {
    std::ofstream out(Path(name), std::ios::binary);
    out << content;
    ASSERT_TRUE(out.good());
  }

  static struct stat StatOf(const std::string &path) {
    struct stat info {};
    EXPECT_EQ(stat(path.c_str(), &info), 0) << path;
    return info;
  }

  TempDir dir_;
};

class SwmOwnerTest : public SwmFileTest {
 protected:
  void SetUp() override {
    SwmFileTest::SetUp();
    if (geteuid() != 0) {
      GTEST_SKIP() << "owner changes need root";
    }
  }
};

// ---- SWM_Open ----

TEST_F(SwmFileTest, OpenGivesACloseOnExecDescriptor) {
  WriteFile("data", "abc");
  int fd = kUntouchedFd;
  ASSERT_EQ(SWM_Open(Path("data").c_str(), O_RDONLY, &fd), SWM_OK);
  ASSERT_GE(fd, 0);
  EXPECT_TRUE(HasCloseOnExec(fd));
  char buf[4] = {};
  EXPECT_EQ(read(fd, buf, 3), 3);
  EXPECT_STREQ(buf, "abc");
  close(fd);
}

TEST_F(SwmFileTest, OpenReadsTheModeWhenCreating) {
  const UmaskGuard mask(0);
  int fd = kUntouchedFd;
  ASSERT_EQ(SWM_Open(Path("new").c_str(), O_WRONLY | O_CREAT | O_EXCL, &fd, 0641), SWM_OK);
  EXPECT_TRUE(HasCloseOnExec(fd));
  close(fd);
  EXPECT_EQ(StatOf(Path("new")).st_mode & 07777, 0641U);
}

TEST_F(SwmFileTest, OpenSupportsAnonymousFiles) {
  int fd = kUntouchedFd;
  ASSERT_EQ(SWM_Open(dir_.path().c_str(), O_RDWR | O_TMPFILE, &fd, 0600), SWM_OK);
  EXPECT_TRUE(HasCloseOnExec(fd));
  EXPECT_EQ(write(fd, "x", 1), 1);
  close(fd);
}

TEST_F(SwmFileTest, OpenFailureLeavesTheDescriptorAlone) {
  int fd = kUntouchedFd;
  errno = 0;
  EXPECT_EQ(SWM_Open(Path("missing").c_str(), O_RDONLY, &fd), SWM_ERR_IO);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(fd, kUntouchedFd);
  WriteFile("exists", "");
  errno = 0;
  EXPECT_EQ(SWM_Open(Path("exists").c_str(), O_WRONLY | O_CREAT | O_EXCL, &fd, 0600), SWM_ERR_IO);
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(fd, kUntouchedFd);
}

TEST_F(SwmFileTest, OpenRejectsMissingArguments) {
  int fd = kUntouchedFd;
  EXPECT_EQ(SWM_Open(nullptr, O_RDONLY, &fd), SWM_ERR_PARAM);
  EXPECT_EQ(fd, kUntouchedFd);
  EXPECT_EQ(SWM_Open(Path("x").c_str(), O_RDONLY, nullptr), SWM_ERR_PARAM);
}

TEST_F(SwmFileTest, OpenLeaksNoDescriptorOnFailure) {
  const size_t before = OpenDescriptorCount();
  for (int i = 0; i < 50; ++i) {
    int fd = kUntouchedFd;
    EXPECT_EQ(SWM_Open(Path("missing").c_str(), O_RDONLY, &fd), SWM_ERR_IO);
  }
  EXPECT_EQ(OpenDescriptorCount(), before);
}

// ---- SWM_Fopen ----

TEST_F(SwmFileTest, FopenGivesACloseOnExecStream) {
  WriteFile("data", "line\n");
  FILE *stream = nullptr;
  ASSERT_EQ(SWM_Fopen(Path("data").c_str(), "r", &stream), SWM_OK);
  ASSERT_NE(stream, nullptr);
  EXPECT_TRUE(HasCloseOnExec(fileno(stream)));
  char buf[16] = {};
  ASSERT_NE(fgets(buf, sizeof(buf), stream), nullptr);
  EXPECT_STREQ(buf, "line\n");
  fclose(stream);
}

TEST_F(SwmFileTest, FopenHonoursWriteAndUpdateModes) {
  FILE *stream = nullptr;
  ASSERT_EQ(SWM_Fopen(Path("out").c_str(), "w", &stream), SWM_OK);
  EXPECT_TRUE(HasCloseOnExec(fileno(stream)));
  fputs("first", stream);
  fclose(stream);
  ASSERT_EQ(SWM_Fopen(Path("out").c_str(), "ab+", &stream), SWM_OK);
  fputs("+more", stream);
  fclose(stream);
  std::ifstream in(Path("out"));
  const std::string content((std::istreambuf_iterator<char>(in)), {});
  EXPECT_EQ(content, "first+more");
}

TEST_F(SwmFileTest, FopenFailureLeavesTheStreamAlone) {
  FILE *sentinel = reinterpret_cast<FILE *>(0x1);
  FILE *stream = sentinel;
  errno = 0;
  EXPECT_EQ(SWM_Fopen(Path("missing").c_str(), "r", &stream), SWM_ERR_IO);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(stream, sentinel);
}

TEST_F(SwmFileTest, FopenRejectsMissingArgumentsAndNonModes) {
  FILE *stream = nullptr;
  EXPECT_EQ(SWM_Fopen(nullptr, "r", &stream), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_Fopen(Path("x").c_str(), nullptr, &stream), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_Fopen(Path("x").c_str(), "r", nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_Fopen(Path("x").c_str(), "", &stream), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_Fopen(Path("x").c_str(), "x", &stream), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_Fopen(Path("x").c_str(), "rrrrrrrrrrrrrrrrrrrr", &stream), SWM_ERR_PARAM);
  EXPECT_EQ(stream, nullptr);
  EXPECT_FALSE(std::filesystem::exists(Path("x")));
}

// ---- SWM_MkParentDir ----

TEST_F(SwmOwnerTest, MkParentDirCreatesTheChainWithOwnerAndModeWhateverTheUmask) {
  const UmaskGuard mask(0077);
  ASSERT_EQ(SWM_MkParentDir(Path("a/b/c").c_str(), 2000, 2001, 0755), SWM_OK);
  for (const char *name : {"a", "a/b", "a/b/c"}) {
    const struct stat info = StatOf(Path(name));
    EXPECT_TRUE(S_ISDIR(info.st_mode)) << name;
    EXPECT_EQ(info.st_uid, 2000U) << name;
    EXPECT_EQ(info.st_gid, 2001U) << name;
    EXPECT_EQ(info.st_mode & 07777, 0755U) << name;
  }
}

TEST_F(SwmOwnerTest, MkParentDirLeavesExistingDirectoriesAlone) {
  ASSERT_EQ(mkdir(Path("old").c_str(), 0700), 0);
  ASSERT_EQ(chmod(Path("old").c_str(), 0710), 0);
  ASSERT_EQ(SWM_MkParentDir(Path("old/new").c_str(), 2000, 2000, 0750), SWM_OK);
  const struct stat old = StatOf(Path("old"));
  EXPECT_EQ(old.st_uid, 0U);
  EXPECT_EQ(old.st_mode & 07777, 0710U);
  const struct stat created = StatOf(Path("old/new"));
  EXPECT_EQ(created.st_uid, 2000U);
  EXPECT_EQ(created.st_mode & 07777, 0750U);
  ASSERT_EQ(SWM_MkParentDir(Path("old/new").c_str(), 0, 0, 0700), SWM_OK);
  EXPECT_EQ(StatOf(Path("old/new")).st_uid, 2000U);
  EXPECT_EQ(StatOf(Path("old/new")).st_mode & 07777, 0750U);
}

TEST_F(SwmOwnerTest, MkParentDirAppliesRestrictiveModesAfterTheWholeChain) {
  ASSERT_EQ(SWM_MkParentDir(Path("r/s/t").c_str(), 2000, 2000, 0500), SWM_OK);
  for (const char *name : {"r", "r/s", "r/s/t"}) {
    EXPECT_EQ(StatOf(Path(name)).st_mode & 07777, 0500U) << name;
  }
}

TEST_F(SwmFileTest, MkParentDirAcceptsRepeatedAndTrailingSlashes) {
  ASSERT_EQ(SWM_MkParentDir((dir_.path() + "//x///y//").c_str(), geteuid(), getegid(), 0755),
            SWM_OK);
  EXPECT_TRUE(std::filesystem::is_directory(Path("x/y")));
  EXPECT_EQ(SWM_MkParentDir("/", geteuid(), getegid(), 0755), SWM_OK);
}

TEST_F(SwmFileTest, MkParentDirFailsWhenAFileIsInTheWay) {
  WriteFile("file", "x");
  errno = 0;
  EXPECT_EQ(SWM_MkParentDir(Path("file").c_str(), 0, 0, 0755), SWM_ERR_IO);
  EXPECT_EQ(errno, ENOTDIR);
  errno = 0;
  EXPECT_EQ(SWM_MkParentDir(Path("file/sub").c_str(), 0, 0, 0755), SWM_ERR_IO);
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_TRUE(std::filesystem::is_regular_file(Path("file")));
}

TEST_F(SwmFileTest, MkParentDirRemovesWhatItCreatedWhenALaterStepFails) {
  const std::string tooLong(300, 'n');
  errno = 0;
  EXPECT_EQ(SWM_MkParentDir(Path("p/q/" + tooLong).c_str(), 0, 0, 0755), SWM_ERR_IO);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_FALSE(std::filesystem::exists(Path("p")));
}

TEST_F(SwmFileTest, MkParentDirRejectsNullAndEmpty) {
  EXPECT_EQ(SWM_MkParentDir(nullptr, 0, 0, 0755), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_MkParentDir("", 0, 0, 0755), SWM_ERR_PARAM);
}

// ---- SWM_Chown ----

TEST_F(SwmOwnerTest, ChownFollowingLinksChangesTheTarget) {
  WriteFile("target", "x");
  ASSERT_EQ(symlink(Path("target").c_str(), Path("link").c_str()), 0);
  ASSERT_EQ(SWM_Chown(1, Path("link").c_str(), 2000, 2001), SWM_OK);
  EXPECT_EQ(StatOf(Path("target")).st_uid, 2000U);
  EXPECT_EQ(StatOf(Path("target")).st_gid, 2001U);
  struct stat linkInfo {};
  ASSERT_EQ(lstat(Path("link").c_str(), &linkInfo), 0);
  EXPECT_EQ(linkInfo.st_uid, 0U);
}

TEST_F(SwmOwnerTest, ChownWithoutFollowingChangesTheLinkItself) {
  WriteFile("target", "x");
  ASSERT_EQ(symlink(Path("target").c_str(), Path("link").c_str()), 0);
  ASSERT_EQ(SWM_Chown(0, Path("link").c_str(), 2000, 2001), SWM_OK);
  struct stat linkInfo {};
  ASSERT_EQ(lstat(Path("link").c_str(), &linkInfo), 0);
  EXPECT_EQ(linkInfo.st_uid, 2000U);
  EXPECT_EQ(linkInfo.st_gid, 2001U);
  EXPECT_EQ(StatOf(Path("target")).st_uid, 0U);
}

TEST_F(SwmFileTest, ChownFailsForMissingPathsAndBadArguments) {
  errno = 0;
  EXPECT_EQ(SWM_Chown(1, Path("missing").c_str(), 0, 0), SWM_ERR_IO);
  EXPECT_EQ(errno, ENOENT);
  errno = 0;
  EXPECT_EQ(SWM_Chown(0, Path("missing").c_str(), 0, 0), SWM_ERR_IO);
  EXPECT_EQ(errno, ENOENT);
  ASSERT_EQ(symlink(Path("missing").c_str(), Path("dangling").c_str()), 0);
  EXPECT_EQ(SWM_Chown(1, Path("dangling").c_str(), geteuid(), getegid()), SWM_ERR_IO);
  EXPECT_EQ(SWM_Chown(0, Path("dangling").c_str(), geteuid(), getegid()), SWM_OK);
  EXPECT_EQ(SWM_Chown(1, nullptr, 0, 0), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_Chown(2, Path("dangling").c_str(), 0, 0), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_Chown(-1, Path("dangling").c_str(), 0, 0), SWM_ERR_PARAM);
}

}  // namespace
