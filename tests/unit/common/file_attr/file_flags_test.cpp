// File-system flags where they cannot be had: /proc (the requests fail with ENOTTY), FIFOs,
// sockets (which cannot be opened) and missing paths. Real flags are tested on the ext4 file
// system of file_attr_ext4_test.
#include <sys/stat.h>

#include <string>

#include "attr_fixture.hpp"
#include "bootinit/common.h"

using testing::ElementsAre;
using testsupport::MainLog;

namespace attrtest {
namespace {

constexpr uint32_t kError = 0xFFFFFFFFu;
constexpr uint32_t kUntouched = 0xA5A5A5A5u;

using FileFlagsTest = AttrTest;

TEST_F(FileFlagsTest, ProcFilesHaveNoFlagsAndTheFailureMayBeIgnored) {
  ASSERT_EQ(FlagsOf("/proc/version"), -1);
  uint32_t flags = kUntouched;
  uint32_t fatal = 1;
  EXPECT_EQ(BOOT_INIT_GetFileFlags("/proc/version", &flags, &fatal), kError);
  EXPECT_EQ(fatal, 0u);
  EXPECT_EQ(flags, kUntouched);
  fatal = 1;
  EXPECT_EQ(BOOT_INIT_SetFileFlags("/proc/version", FS_NODUMP_FL, &fatal), kError);
  EXPECT_EQ(fatal, 0u);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][WARNING]:file:/proc/version, get flags unsuccessful, "
                          "errno:25, ignore it",
                          "[BOOT_INIT][WARNING]:file:/proc/version, set flags unsuccessfully, "
                          "errno:25, ignore it"));
}

TEST_F(FileFlagsTest, FifoWithoutWriterDoesNotHoldTheCallUp) {
  ASSERT_EQ(::mkfifo(Path("fifo").c_str(), 0600), 0);
  uint32_t flags = kUntouched;
  uint32_t fatal = 1;
  EXPECT_EQ(BOOT_INIT_GetFileFlags(Path("fifo").c_str(), &flags, &fatal), kError);
  EXPECT_EQ(fatal, 0u);
  fatal = 1;
  EXPECT_EQ(BOOT_INIT_SetFileFlags(Path("fifo").c_str(), FS_NODUMP_FL, &fatal), kError);
  EXPECT_EQ(fatal, 0u);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][WARNING]:file:/opt/attr/fifo, get flags unsuccessful, "
                          "errno:25, ignore it",
                          "[BOOT_INIT][WARNING]:file:/opt/attr/fifo, set flags unsuccessfully, "
                          "errno:25, ignore it"));
}

TEST_F(FileFlagsTest, FileThatCannotBeOpenedKeepsTheFailureFatal) {
  const int socketFd = BindSocket(Path("sock"));
  uint32_t flags = kUntouched;
  uint32_t fatal = 1;
  EXPECT_EQ(BOOT_INIT_GetFileFlags(Path("sock").c_str(), &flags, &fatal), kError);
  EXPECT_EQ(fatal, 1u);
  EXPECT_EQ(flags, kUntouched);
  EXPECT_EQ(BOOT_INIT_SetFileFlags(Path("sock").c_str(), FS_NODUMP_FL, &fatal), kError);
  EXPECT_EQ(fatal, 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:open file /opt/attr/sock failed, "
                                     "errno:6, get file flags failed",
                                     "[BOOT_INIT][ERROR]:open file /opt/attr/sock failed, "
                                     "errno:6"));
  ::close(socketFd);
}

TEST_F(FileFlagsTest, MissingPathKeepsTheFailureFatal) {
  uint32_t flags = kUntouched;
  uint32_t fatal = 1;
  EXPECT_EQ(BOOT_INIT_GetFileFlags(Path("none").c_str(), &flags, &fatal), kError);
  EXPECT_EQ(fatal, 1u);
  EXPECT_EQ(BOOT_INIT_SetFileFlags(Path("none").c_str(), FS_NODUMP_FL, &fatal), kError);
  EXPECT_EQ(fatal, 1u);
  EXPECT_EQ(flags, kUntouched);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:file /opt/attr/none not exists, get file flags "
                          "failed",
                          "[BOOT_INIT][ERROR]:file /opt/attr/none not exists"));
}

TEST_F(FileFlagsTest, EmptyPointersAreRefused) {
  uint32_t flags = 0;
  uint32_t fatal = 1;
  EXPECT_EQ(BOOT_INIT_GetFileFlags(nullptr, &flags, &fatal), kError);
  EXPECT_EQ(BOOT_INIT_GetFileFlags("/proc/version", nullptr, &fatal), kError);
  EXPECT_EQ(BOOT_INIT_GetFileFlags("/proc/version", &flags, nullptr), kError);
  EXPECT_EQ(BOOT_INIT_SetFileFlags(nullptr, 0, &fatal), kError);
  EXPECT_EQ(BOOT_INIT_SetFileFlags("/proc/version", 0, nullptr), kError);
  EXPECT_EQ(fatal, 1u);
  const std::string null1 = "[BOOT_INIT][ERROR]:input param is null when check null 1";
  EXPECT_THAT(MainLog(), ElementsAre(null1, null1, null1, null1, null1));
}

}  // namespace
}  // namespace attrtest
