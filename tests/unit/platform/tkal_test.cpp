// Tests of libtkal: existence tests, whole-buffer I/O, deletion, ids, owners and directories.
#include "tkal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

constexpr uid_t kFallbackId = 2000;

// A private directory under /tmp, removed with everything in it.
class TempDir {
 public:
  TempDir() {
    char pattern[] = "/tmp/tkal_test.XXXXXX";
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

// Restores the process umask when a test that changed it ends.
class UmaskGuard {
 public:
  explicit UmaskGuard(mode_t mask) : saved_(umask(mask)) {}
  ~UmaskGuard() { umask(saved_); }

 private:
  mode_t saved_;
};

// Counts deliveries of a signal whose handler is installed without SA_RESTART, so that
// blocking calls in the signalled thread return EINTR.
std::atomic<int> g_signals{0};
void CountSignal(int) { g_signals.fetch_add(1); }

class SignalCatcher {
 public:
  explicit SignalCatcher(int signo) : signo_(signo) {
    g_signals = 0;
    struct sigaction action {};
    action.sa_handler = CountSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;
    sigaction(signo_, &action, &saved_);
  }
  ~SignalCatcher() { sigaction(signo_, &saved_, nullptr); }

 private:
  int signo_;
  struct sigaction saved_ {};
};

class TkalTest : public ::testing::Test {
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

// Tests that change owners; they need root.
class TkalOwnerTest : public TkalTest {
 protected:
  void SetUp() override {
    TkalTest::SetUp();
    if (geteuid() != 0) {
      GTEST_SKIP() << "owner changes need root";
    }
  }
};

// ---- existence tests ----

TEST_F(TkalTest, IsFileExistFollowsLinksAndSeesAnyType) {
  WriteFile("file", "x");
  ASSERT_EQ(symlink(Path("file").c_str(), Path("link").c_str()), 0);
  ASSERT_EQ(symlink(Path("missing").c_str(), Path("dangling").c_str()), 0);
  EXPECT_EQ(TKAL_IsFileExist(Path("file").c_str()), 1);
  EXPECT_EQ(TKAL_IsFileExist(dir_.path().c_str()), 1);
  EXPECT_EQ(TKAL_IsFileExist(Path("link").c_str()), 1);
  EXPECT_EQ(TKAL_IsFileExist(Path("dangling").c_str()), 0);
  EXPECT_EQ(TKAL_IsFileExist(Path("missing").c_str()), 0);
  EXPECT_EQ(TKAL_IsFileExist(""), 0);
  EXPECT_EQ(TKAL_IsFileExist(nullptr), 0);
}

TEST_F(TkalTest, IsDirExistIsOneForDirectoriesOnly) {
  WriteFile("file", "x");
  ASSERT_EQ(mkdir(Path("dir").c_str(), 0755), 0);
  ASSERT_EQ(symlink(Path("dir").c_str(), Path("dirlink").c_str()), 0);
  ASSERT_EQ(symlink(Path("file").c_str(), Path("filelink").c_str()), 0);
  EXPECT_EQ(TKAL_IsDirExist(Path("dir").c_str()), 1);
  EXPECT_EQ(TKAL_IsDirExist(Path("dirlink").c_str()), 1);
  EXPECT_EQ(TKAL_IsDirExist(Path("file").c_str()), 0);
  EXPECT_EQ(TKAL_IsDirExist(Path("filelink").c_str()), 0);
  EXPECT_EQ(TKAL_IsDirExist(Path("missing").c_str()), 0);
  EXPECT_EQ(TKAL_IsDirExist(""), 0);
  EXPECT_EQ(TKAL_IsDirExist(nullptr), 0);
}

TEST_F(TkalTest, IsSymLinkLooksAtTheLinkItself) {
  WriteFile("file", "x");
  ASSERT_EQ(symlink(Path("file").c_str(), Path("link").c_str()), 0);
  ASSERT_EQ(symlink(Path("missing").c_str(), Path("dangling").c_str()), 0);
  EXPECT_EQ(TKAL_IsSymLink(Path("link").c_str()), 1);
  EXPECT_EQ(TKAL_IsSymLink(Path("dangling").c_str()), 1);
  EXPECT_EQ(TKAL_IsSymLink(Path("file").c_str()), 0);
  EXPECT_EQ(TKAL_IsSymLink(dir_.path().c_str()), 0);
  EXPECT_EQ(TKAL_IsSymLink(Path("missing").c_str()), 0);
  EXPECT_EQ(TKAL_IsSymLink(nullptr), 0);
}

// ---- descriptor I/O ----

TEST_F(TkalTest, FdReadReadsUpToLenAndStopsAtEndOfFile) {
  WriteFile("data", "0123456789");
  const int fd = open(Path("data").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  char buf[32] = {};
  EXPECT_EQ(TKAL_FdRead(fd, buf, 4), 4);
  EXPECT_EQ(std::string(buf, 4), "0123");
  EXPECT_EQ(TKAL_FdRead(fd, buf, sizeof(buf)), 6);
  EXPECT_EQ(std::string(buf, 6), "456789");
  EXPECT_EQ(TKAL_FdRead(fd, buf, sizeof(buf)), 0);
  EXPECT_EQ(TKAL_FdRead(fd, buf, 0), 0);
  close(fd);
}

TEST_F(TkalTest, FdReadCollectsShortReadsAndRetriesInterruptions) {
  SignalCatcher catcher(SIGUSR1);
  int fds[2];
  ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
  const pthread_t reader = pthread_self();
  std::thread writer([&] {
    std::this_thread::sleep_for(100ms);
    pthread_kill(reader, SIGUSR1);  // lands while the reader blocks in read(2)
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(write(fds[1], "abc", 3), 3);
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(write(fds[1], "defg", 4), 4);
    close(fds[1]);
  });
  char buf[16] = {};
  const ssize_t got = TKAL_FdRead(fds[0], buf, sizeof(buf));
  writer.join();
  close(fds[0]);
  EXPECT_EQ(got, 7);
  EXPECT_EQ(std::string(buf, 7), "abcdefg");
  EXPECT_EQ(g_signals.load(), 1);
}

TEST_F(TkalTest, FdReadFailsForBadArgumentsAndDescriptors) {
  char buf[8];
  errno = 0;
  EXPECT_EQ(TKAL_FdRead(-1, buf, sizeof(buf)), -1);
  EXPECT_EQ(errno, EBADF);
  WriteFile("data", "abc");
  const int fd = open(Path("data").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  errno = 0;
  EXPECT_EQ(TKAL_FdRead(fd, nullptr, 4), -1);
  EXPECT_EQ(errno, EINVAL);
  close(fd);
  const int wronly = open(Path("data").c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_GE(wronly, 0);
  errno = 0;
  EXPECT_EQ(TKAL_FdRead(wronly, buf, sizeof(buf)), -1);
  EXPECT_EQ(errno, EBADF);
  close(wronly);
  const int dirFd = open(dir_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_GE(dirFd, 0);
  errno = 0;
  EXPECT_EQ(TKAL_FdRead(dirFd, buf, sizeof(buf)), -1);
  EXPECT_EQ(errno, EISDIR);
  close(dirFd);
}

TEST_F(TkalTest, FdWriteWritesEverything) {
  const int fd = open(Path("out").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(TKAL_FdWrite(fd, "hello ", 6), 6);
  EXPECT_EQ(TKAL_FdWrite(fd, "world", 5), 5);
  EXPECT_EQ(TKAL_FdWrite(fd, "ignored", 0), 0);
  close(fd);
  std::ifstream in(Path("out"), std::ios::binary);
  const std::string content((std::istreambuf_iterator<char>(in)), {});
  EXPECT_EQ(content, "hello world");
}

TEST_F(TkalTest, FdWriteContinuesAfterShortAndInterruptedWrites) {
  SignalCatcher catcher(SIGUSR1);
  int fds[2];
  ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
  std::vector<unsigned char> data(4 << 20);
  for (size_t i = 0; i < data.size(); ++i) {
    data[i] = static_cast<unsigned char>((i * 7 + i / 251) & 0xff);
  }
  const pthread_t writerThread = pthread_self();
  std::vector<unsigned char> received;
  std::thread reader([&] {
    unsigned char chunk[8192];
    int round = 0;
    ssize_t got = 0;
    while ((got = read(fds[0], chunk, sizeof(chunk))) > 0) {
      received.insert(received.end(), chunk, chunk + got);
      if (++round % 64 == 0) {
        pthread_kill(writerThread, SIGUSR1);  // cuts the blocked write(2) short
        std::this_thread::sleep_for(1ms);
      }
    }
  });
  const ssize_t put = TKAL_FdWrite(fds[1], data.data(), data.size());
  close(fds[1]);
  reader.join();
  close(fds[0]);
  EXPECT_EQ(put, static_cast<ssize_t>(data.size()));
  EXPECT_GT(g_signals.load(), 0);
  EXPECT_TRUE(received == data) << "received " << received.size() << " bytes";
}

TEST_F(TkalTest, FdWriteFailsForBadArgumentsAndDescriptors) {
  errno = 0;
  EXPECT_EQ(TKAL_FdWrite(-1, "x", 1), -1);
  EXPECT_EQ(errno, EBADF);
  WriteFile("data", "abc");
  const int rdonly = open(Path("data").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(rdonly, 0);
  errno = 0;
  EXPECT_EQ(TKAL_FdWrite(rdonly, nullptr, 1), -1);
  EXPECT_EQ(errno, EINVAL);
  errno = 0;
  EXPECT_EQ(TKAL_FdWrite(rdonly, "x", 1), -1);
  EXPECT_EQ(errno, EBADF);
  close(rdonly);

  struct sigaction ignore {};
  struct sigaction saved {};
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &ignore, &saved);
  int fds[2];
  ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
  close(fds[0]);
  errno = 0;
  EXPECT_EQ(TKAL_FdWrite(fds[1], "x", 1), -1);
  EXPECT_EQ(errno, EPIPE);
  close(fds[1]);
  sigaction(SIGPIPE, &saved, nullptr);
}

// ---- deletion ----

TEST_F(TkalTest, DelFileRemovesFilesAndLinksButNotTheirTargets) {
  WriteFile("file", "x");
  WriteFile("target", "y");
  ASSERT_EQ(symlink(Path("target").c_str(), Path("link").c_str()), 0);
  EXPECT_EQ(TKAL_DelFile(Path("file").c_str()), 0U);
  EXPECT_FALSE(std::filesystem::exists(Path("file")));
  EXPECT_EQ(TKAL_DelFile(Path("link").c_str()), 0U);
  EXPECT_FALSE(std::filesystem::is_symlink(Path("link")));
  EXPECT_TRUE(std::filesystem::is_regular_file(Path("target")));
}

TEST_F(TkalTest, DelFileReportsFailureWithErrno) {
  errno = 0;
  EXPECT_EQ(TKAL_DelFile(Path("missing").c_str()), 1U);
  EXPECT_EQ(errno, ENOENT);
  ASSERT_EQ(mkdir(Path("dir").c_str(), 0755), 0);
  errno = 0;
  EXPECT_EQ(TKAL_DelFile(Path("dir").c_str()), 1U);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_TRUE(std::filesystem::is_directory(Path("dir")));
  errno = 0;
  EXPECT_EQ(TKAL_DelFile(nullptr), 1U);
  EXPECT_EQ(errno, EINVAL);
}

// ---- ids ----

TEST(TkalIds, KnownNamesResolve) {
  EXPECT_EQ(TKAL_GetUidByName("root", 4242), 0U);
  EXPECT_EQ(TKAL_GetGidByName("root", 4242), 0U);
}

TEST(TkalIds, UnknownEmptyAndNullNamesGiveTheFallback) {
  EXPECT_EQ(TKAL_GetUidByName("no-such-user-bootinit", 4242), 4242U);
  EXPECT_EQ(TKAL_GetGidByName("no-such-group-bootinit", 4343), 4343U);
  EXPECT_EQ(TKAL_GetUidByName("", 17), 17U);
  EXPECT_EQ(TKAL_GetGidByName("", 18), 18U);
  EXPECT_EQ(TKAL_GetUidByName(nullptr, 19), 19U);
  EXPECT_EQ(TKAL_GetGidByName(nullptr, 20), 20U);
}

// ---- owners and modes ----

TEST_F(TkalOwnerTest, SetFilePermissionSetsOwnerGroupAndMode) {
  WriteFile("file", "x");
  EXPECT_EQ(TKAL_SetFilePermission(Path("file").c_str(), 2000, 2001, 0640), 0U);
  const struct stat info = StatOf(Path("file"));
  EXPECT_EQ(info.st_uid, 2000U);
  EXPECT_EQ(info.st_gid, 2001U);
  EXPECT_EQ(info.st_mode & 07777, 0640U);
}

TEST_F(TkalOwnerTest, SetFilePermissionKeepsSetIdBitsBecauseModeComesLast) {
  WriteFile("tool", "#!/bin/sh\n");
  EXPECT_EQ(TKAL_SetFilePermission(Path("tool").c_str(), 2000, 2000, 06750), 0U);
  EXPECT_EQ(StatOf(Path("tool")).st_mode & 07777, 06750U);
}

TEST_F(TkalOwnerTest, SetFilePermissionFollowsLinks) {
  WriteFile("target", "x");
  ASSERT_EQ(symlink(Path("target").c_str(), Path("link").c_str()), 0);
  EXPECT_EQ(TKAL_SetFilePermission(Path("link").c_str(), 2000, 2000, 0604), 0U);
  const struct stat info = StatOf(Path("target"));
  EXPECT_EQ(info.st_uid, 2000U);
  EXPECT_EQ(info.st_mode & 07777, 0604U);
  struct stat linkInfo {};
  ASSERT_EQ(lstat(Path("link").c_str(), &linkInfo), 0);
  EXPECT_EQ(linkInfo.st_uid, 0U);
}

TEST_F(TkalTest, SetFilePermissionFailsForMissingPathAndNull) {
  errno = 0;
  EXPECT_EQ(TKAL_SetFilePermission(Path("missing").c_str(), 0, 0, 0600), 1U);
  EXPECT_EQ(errno, ENOENT);
  errno = 0;
  EXPECT_EQ(TKAL_SetFilePermission(nullptr, 0, 0, 0600), 1U);
  EXPECT_EQ(errno, EINVAL);
}

// ---- directory chains ----

TEST_F(TkalOwnerTest, MkDirCreatesChainWithOwnersAndModeWhateverTheUmask) {
  const UmaskGuard mask(0077);
  const std::string deep = Path("a/b/c");
  EXPECT_EQ(TKAL_MkDirWithUserGroup(deep.c_str(), "root", "root", 0751), 0U);
  for (const char *name : {"a", "a/b", "a/b/c"}) {
    const struct stat info = StatOf(Path(name));
    EXPECT_TRUE(S_ISDIR(info.st_mode)) << name;
    EXPECT_EQ(info.st_uid, 0U) << name;
    EXPECT_EQ(info.st_gid, 0U) << name;
    EXPECT_EQ(info.st_mode & 07777, 0751U) << name;
  }
}

TEST_F(TkalOwnerTest, MkDirUsesId2000ForUnknownNames) {
  EXPECT_EQ(TKAL_MkDirWithUserGroup(Path("u").c_str(), "no-such-user-bootinit", "root", 0700), 0U);
  EXPECT_EQ(StatOf(Path("u")).st_uid, kFallbackId);
  EXPECT_EQ(StatOf(Path("u")).st_gid, 0U);
  EXPECT_EQ(TKAL_MkDirWithUserGroup(Path("g").c_str(), "root", "no-such-group-bootinit", 0700), 0U);
  EXPECT_EQ(StatOf(Path("g")).st_uid, 0U);
  EXPECT_EQ(StatOf(Path("g")).st_gid, kFallbackId);
  EXPECT_EQ(TKAL_MkDirWithUserGroup(Path("n").c_str(), nullptr, nullptr, 0700), 0U);
  EXPECT_EQ(StatOf(Path("n")).st_uid, kFallbackId);
  EXPECT_EQ(StatOf(Path("n")).st_gid, kFallbackId);
}

TEST_F(TkalOwnerTest, MkDirLeavesExistingDirectoriesUntouched) {
  ASSERT_EQ(mkdir(Path("old").c_str(), 0700), 0);
  ASSERT_EQ(chmod(Path("old").c_str(), 0711), 0);
  EXPECT_EQ(TKAL_MkDirWithUserGroup(Path("old/new").c_str(), "nobody-bootinit", "x", 0755), 0U);
  const struct stat old = StatOf(Path("old"));
  EXPECT_EQ(old.st_uid, 0U);
  EXPECT_EQ(old.st_mode & 07777, 0711U);
  const struct stat created = StatOf(Path("old/new"));
  EXPECT_EQ(created.st_uid, kFallbackId);
  EXPECT_EQ(created.st_mode & 07777, 0755U);
  // The whole path existing already is success, and nothing changes.
  EXPECT_EQ(TKAL_MkDirWithUserGroup(Path("old").c_str(), "root", "root", 0777), 0U);
  EXPECT_EQ(StatOf(Path("old")).st_mode & 07777, 0711U);
  EXPECT_EQ(TKAL_MkDirWithUserGroup(Path("old/new").c_str(), "root", "root", 0700), 0U);
  EXPECT_EQ(StatOf(Path("old/new")).st_uid, kFallbackId);
}

TEST_F(TkalTest, MkDirAcceptsRepeatedAndTrailingSlashes) {
  const std::string messy = dir_.path() + "//x///y/";
  EXPECT_EQ(TKAL_MkDirWithUserGroup(messy.c_str(), "root", "root", 0755), 0U);
  EXPECT_EQ(TKAL_IsDirExist(Path("x/y").c_str()), 1);
  EXPECT_EQ(TKAL_MkDirWithUserGroup("/", "root", "root", 0755), 0U);
}

TEST_F(TkalOwnerTest, MkDirAppliesRestrictiveModesOnlyAfterTheChainExists) {
  EXPECT_EQ(TKAL_MkDirWithUserGroup(Path("r/s/t").c_str(), "no-such-user-bootinit",
                                    "no-such-group-bootinit", 0500),
            0U);
  for (const char *name : {"r", "r/s", "r/s/t"}) {
    EXPECT_EQ(StatOf(Path(name)).st_mode & 07777, 0500U) << name;
  }
}

TEST_F(TkalTest, MkDirFailsWhenAComponentIsNotADirectory) {
  WriteFile("file", "x");
  errno = 0;
  EXPECT_EQ(TKAL_MkDirWithUserGroup(Path("file").c_str(), "root", "root", 0755), 1U);
  EXPECT_EQ(errno, ENOTDIR);
  errno = 0;
  EXPECT_EQ(TKAL_MkDirWithUserGroup(Path("file/sub").c_str(), "root", "root", 0755), 1U);
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_TRUE(std::filesystem::is_regular_file(Path("file")));
}

TEST_F(TkalTest, MkDirRemovesWhatItCreatedWhenALaterStepFails) {
  const std::string tooLong(300, 'n');  // beyond NAME_MAX
  errno = 0;
  EXPECT_EQ(TKAL_MkDirWithUserGroup(Path("p/q/" + tooLong).c_str(), "root", "root", 0755), 1U);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_FALSE(std::filesystem::exists(Path("p")));
}

TEST_F(TkalTest, MkDirRejectsNullAndEmptyPaths) {
  errno = 0;
  EXPECT_EQ(TKAL_MkDirWithUserGroup(nullptr, "root", "root", 0755), 1U);
  EXPECT_EQ(errno, EINVAL);
  errno = 0;
  EXPECT_EQ(TKAL_MkDirWithUserGroup("", "root", "root", 0755), 1U);
  EXPECT_EQ(errno, ENOENT);
}

}  // namespace
