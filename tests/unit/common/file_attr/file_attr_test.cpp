// File attribute records: reading, applying, copying them, giving a link its source's owner and
// backing files up. Files without flags (FIFOs, /proc) make the logs the same on every board;
// real flags are tested on ext4 in file_attr_ext4_test.
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "attr_fixture.hpp"
#include "bootinit/common.h"

using testing::ElementsAre;
using testsupport::MainLog;

namespace attrtest {
namespace {

constexpr uint32_t kError = 0xFFFFFFFFu;
const std::string kNull1 = "[BOOT_INIT][ERROR]:input param is null when check null 1";
const std::string kDisabledFifo =
    "[BOOT_INIT][INFO]:SELinux disabled, no need get /opt/attr/fifo context";
const std::string kNoFlagsFifo =
    "[BOOT_INIT][WARNING]:file:/opt/attr/fifo, get flags unsuccessful, errno:25, ignore it";
const std::string kNoFlagsProc =
    "[BOOT_INIT][WARNING]:file:/proc/version, get flags unsuccessful, errno:25, ignore it";
const std::string kDisabledProc =
    "[BOOT_INIT][INFO]:SELinux disabled, no need get /proc/version context";

BOOT_INIT_FILE_ATTR_S Record(uint32_t uid, uint32_t gid, uint32_t mode, uint32_t flags = 0) {
  BOOT_INIT_FILE_ATTR_S record{};
  record.uid = uid;
  record.gid = gid;
  record.mode = mode;
  record.flags = flags;
  return record;
}

void MakeFifo(const std::string &path, mode_t mode, uid_t uid, gid_t gid) {
  ASSERT_EQ(::mkfifo(path.c_str(), mode), 0);
  ASSERT_EQ(::chown(path.c_str(), uid, gid), 0);
  ASSERT_EQ(::chmod(path.c_str(), mode), 0);
}

void ForceFailure(const std::string &function, const std::string &code) {
  testsupport::DescribeBoard(testsupport::ActiveMainBoard(), {{"fail." + function, code}});
}

// ---- BOOT_INIT_GetAttr ----

using GetAttrTest = AttrTest;

TEST_F(GetAttrTest, FileWithoutFlagsHasFlagsZeroAndNoLabel) {
  MakeFifo(Path("fifo"), 0640, 2000, 2001);
  BOOT_INIT_FILE_ATTR_S record{};
  record.flags = 77;
  EXPECT_EQ(BOOT_INIT_GetAttr(Path("fifo").c_str(), &record), 0u);
  EXPECT_EQ(record.uid, 2000u);
  EXPECT_EQ(record.gid, 2001u);
  EXPECT_EQ(record.mode, S_IFIFO | 0640u);
  EXPECT_EQ(record.flags, 0u);
  EXPECT_STREQ(record.context, "");
  EXPECT_THAT(MainLog(), ElementsAre(kNoFlagsFifo, kDisabledFifo));
  ExpectNoLibraryHandleLeft(1);
}

TEST_F(GetAttrTest, ProcFileIsReadLikeAnyOther) {
  BOOT_INIT_FILE_ATTR_S record{};
  EXPECT_EQ(BOOT_INIT_GetAttr("/proc/version", &record), 0u);
  EXPECT_EQ(record.uid, 0u);
  EXPECT_EQ(record.gid, 0u);
  EXPECT_EQ(record.mode, S_IFREG | 0444u);
  EXPECT_EQ(record.flags, 0u);
  EXPECT_STREQ(record.context, "");
  EXPECT_THAT(MainLog(), ElementsAre(kNoFlagsProc, kDisabledProc));
}

TEST_F(GetAttrTest, MissingPathFailsAtStat) {
  BOOT_INIT_FILE_ATTR_S record = Record(5, 6, 7, 8);
  EXPECT_EQ(BOOT_INIT_GetAttr(Path("none").c_str(), &record), kError);
  EXPECT_EQ(record.uid, 5u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:stat /opt/attr/none failed, errno:2"));
  ExpectNoLibraryHandleLeft(0);
}

TEST_F(GetAttrTest, FileThatCannotBeOpenedFails) {
  const int socketFd = BindSocket(Path("sock"));
  BOOT_INIT_FILE_ATTR_S record = Record(5, 6, 7, 8);
  EXPECT_EQ(BOOT_INIT_GetAttr(Path("sock").c_str(), &record), kError);
  EXPECT_EQ(record.uid, 5u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:open file /opt/attr/sock failed, "
                                     "errno:6, get file flags failed",
                                     "[BOOT_INIT][ERROR]:file /opt/attr/sock, get flags failed"));
  ExpectNoLibraryHandleLeft(0);
  ::close(socketFd);
}

TEST_F(GetAttrTest, LabelComesFromTheLabelLibrary) {
  const Standin standin(SELINUX_RECORDING_LIBRARY);
  ASSERT_TRUE(standin.ready());
  standin.Reset();
  BOOT_INIT_FILE_ATTR_S record{};
  EXPECT_EQ(BOOT_INIT_GetAttr("/proc/version", &record), 0u);
  EXPECT_STREQ(record.context, kStandinContext.c_str());
  EXPECT_EQ(standin.Calls(),
            "is_selinux_enabled\n"
            "getfilecon /proc/version\n"
            "freecon system_u:object_r:etc_t:s0\n");
  EXPECT_EQ(standin.Outstanding(), 0);
  EXPECT_THAT(MainLog(), ElementsAre(kNoFlagsProc));
}

TEST_F(GetAttrTest, LabelFailureFailsTheRecord) {
  const Standin standin(SELINUX_RECORDING_LIBRARY);
  ASSERT_TRUE(standin.ready());
  standin.Reset();
  standin.Fail("getfilecon", ENOTSUP);
  BOOT_INIT_FILE_ATTR_S record = Record(5, 6, 7, 8);
  EXPECT_EQ(BOOT_INIT_GetAttr("/proc/version", &record), kError);
  EXPECT_EQ(record.uid, 5u);
  EXPECT_THAT(MainLog(),
              ElementsAre(kNoFlagsProc,
                          "[BOOT_INIT][ERROR]:file:/proc/version, get context failed, errno:95",
                          "[BOOT_INIT][ERROR]:file:/proc/version, get context info failed"));
  ExpectNoLibraryHandleLeft(1);
}

TEST_F(GetAttrTest, EmptyPointersAreRefused) {
  BOOT_INIT_FILE_ATTR_S record{};
  EXPECT_EQ(BOOT_INIT_GetAttr(nullptr, &record), kError);
  EXPECT_EQ(BOOT_INIT_GetAttr("/proc/version", nullptr), kError);
  EXPECT_THAT(MainLog(), ElementsAre(kNull1, kNull1));
}

// ---- BOOT_INIT_SetAttr ----

using SetAttrTest = AttrTest;

TEST_F(SetAttrTest, OwnerComesBeforeTheModeSoSetIdBitsSurvive) {
  MakeFile(Path("file"), "x", 0644);
  const BOOT_INIT_FILE_ATTR_S record = Record(2000, 2001, S_IFREG | 04750);
  EXPECT_EQ(BOOT_INIT_SetAttr(Path("file").c_str(), &record), 0u);
  EXPECT_EQ(OwnerOf(Path("file")), std::make_pair(uid_t{2000}, gid_t{2001}));
  EXPECT_EQ(testsupport::StatOf(Path("file")).st_mode, S_IFREG | 04750u);
  // Labels are disabled and there are no flags to set: nothing to report.
  EXPECT_THAT(MainLog(), ElementsAre());
  ExpectNoLibraryHandleLeft(1);
}

TEST_F(SetAttrTest, SymbolicLinkIsFollowed) {
  MakeFile(Path("target"), "x", 0600);
  ASSERT_EQ(::symlink(Path("target").c_str(), Path("link").c_str()), 0);
  const BOOT_INIT_FILE_ATTR_S record = Record(2000, 2000, S_IFREG | 0640);
  EXPECT_EQ(BOOT_INIT_SetAttr(Path("link").c_str(), &record), 0u);
  EXPECT_EQ(OwnerOf(Path("target")), std::make_pair(uid_t{2000}, gid_t{2000}));
  EXPECT_EQ(testsupport::StatOf(Path("target")).st_mode & 07777, 0640u);
  EXPECT_EQ(LinkOwnerOf(Path("link")), std::make_pair(uid_t{0}, gid_t{0}));
}

TEST_F(SetAttrTest, MissingPathFails) {
  const BOOT_INIT_FILE_ATTR_S record = Record(0, 0, 0644);
  EXPECT_EQ(BOOT_INIT_SetAttr(Path("none").c_str(), &record), kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:file /opt/attr/none not exists"));
  ExpectNoLibraryHandleLeft(0);
}

TEST_F(SetAttrTest, OwnerChangeFailureStopsBeforeTheMode) {
  const std::string readOnly = ReadOnlyDir();
  ASSERT_FALSE(readOnly.empty()) << "the board has no read-only directory";
  // The record asks for what the directory already has: nothing would change even if the
  // mount let the change through.
  const struct stat before = testsupport::StatOf(readOnly);
  const BOOT_INIT_FILE_ATTR_S record = Record(before.st_uid, before.st_gid, before.st_mode);
  EXPECT_EQ(BOOT_INIT_SetAttr(readOnly.c_str(), &record), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:file:" + readOnly + ", change own failed, errno:30"));
  ExpectNoLibraryHandleLeft(0);
}

TEST_F(SetAttrTest, ModeChangeFailureLeavesTheNewOwner) {
  ForceFailure("SWM_FchmodPath", "7");
  MakeFile(Path("file"), "x", 0644);
  const BOOT_INIT_FILE_ATTR_S record = Record(2000, 2001, S_IFREG | 0600);
  EXPECT_EQ(BOOT_INIT_SetAttr(Path("file").c_str(), &record), kError);
  EXPECT_EQ(OwnerOf(Path("file")), std::make_pair(uid_t{2000}, gid_t{2001}));
  EXPECT_EQ(testsupport::StatOf(Path("file")).st_mode & 07777, 0644u);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:file:/opt/attr/file, change mod failed, errno:5"));
  ExpectNoLibraryHandleLeft(0);
}

TEST_F(SetAttrTest, LabelFailureComesAfterOwnerAndMode) {
  const Standin standin(SELINUX_RECORDING_LIBRARY);
  ASSERT_TRUE(standin.ready());
  standin.Reset();
  standin.Fail("setfilecon", EPERM);
  MakeFile(Path("file"), "x", 0644);
  BOOT_INIT_FILE_ATTR_S record = Record(2000, 2001, S_IFREG | 0600);
  std::strcpy(record.context, "user_u:object_r:tmp_t:s0");
  EXPECT_EQ(BOOT_INIT_SetAttr(Path("file").c_str(), &record), kError);
  EXPECT_EQ(OwnerOf(Path("file")), std::make_pair(uid_t{2000}, gid_t{2001}));
  EXPECT_EQ(testsupport::StatOf(Path("file")).st_mode & 07777, 0600u);
  EXPECT_EQ(standin.Calls(),
            "is_selinux_enabled\nsetfilecon /opt/attr/file user_u:object_r:tmp_t:s0\n");
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:file:/opt/attr/file, set context failed, errno:1",
                          "[BOOT_INIT][ERROR]:file /opt/attr/file, set security context failed"));
}

TEST_F(SetAttrTest, LabelIsReadOnlyUpToTheRecordsLastByte) {
  const Standin standin(SELINUX_RECORDING_LIBRARY);
  ASSERT_TRUE(standin.ready());
  standin.Reset();
  MakeFile(Path("file"), "x", 0644);
  BOOT_INIT_FILE_ATTR_S record = Record(0, 0, S_IFREG | 0644);
  std::memset(record.context, 'x', sizeof(record.context));  // no terminator at all
  EXPECT_EQ(BOOT_INIT_SetAttr(Path("file").c_str(), &record), 0u);
  EXPECT_EQ(standin.Calls(), "is_selinux_enabled\nsetfilecon /opt/attr/file " +
                                 std::string(BOOT_INIT_CONTEXT_LEN - 1, 'x') + "\n");
}

TEST_F(SetAttrTest, FlagsTheFileSystemCannotHoldAreSkipped) {
  MakeFifo(Path("fifo"), 0600, 0, 0);
  const BOOT_INIT_FILE_ATTR_S record = Record(2000, 2000, S_IFIFO | 0640, FS_NODUMP_FL);
  EXPECT_EQ(BOOT_INIT_SetAttr(Path("fifo").c_str(), &record), 0u);
  EXPECT_EQ(OwnerOf(Path("fifo")), std::make_pair(uid_t{2000}, gid_t{2000}));
  EXPECT_EQ(testsupport::StatOf(Path("fifo")).st_mode & 07777, 0640u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][WARNING]:file:/opt/attr/fifo, set flags "
                                     "unsuccessfully, errno:25, ignore it"));
}

TEST_F(SetAttrTest, NoFlagsMeansNoFlagsRequest) {
  MakeFifo(Path("fifo"), 0600, 0, 0);
  const BOOT_INIT_FILE_ATTR_S record = Record(0, 0, S_IFIFO | 0600, 0);
  EXPECT_EQ(BOOT_INIT_SetAttr(Path("fifo").c_str(), &record), 0u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(SetAttrTest, FlagsFailureOnAFileThatCannotBeOpenedIsFatal) {
  const int socketFd = BindSocket(Path("sock"));
  const BOOT_INIT_FILE_ATTR_S record = Record(2000, 2000, S_IFSOCK | 0700, FS_NODUMP_FL);
  EXPECT_EQ(BOOT_INIT_SetAttr(Path("sock").c_str(), &record), kError);
  EXPECT_EQ(OwnerOf(Path("sock")), std::make_pair(uid_t{2000}, gid_t{2000}));
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:open file /opt/attr/sock failed, errno:6",
                                     "[BOOT_INIT][ERROR]:file /opt/attr/sock, get flags failed"));
  ::close(socketFd);
}

TEST_F(SetAttrTest, EmptyPointersAreRefused) {
  const BOOT_INIT_FILE_ATTR_S record{};
  EXPECT_EQ(BOOT_INIT_SetAttr(nullptr, &record), kError);
  EXPECT_EQ(BOOT_INIT_SetAttr(Path("file").c_str(), nullptr), kError);
  EXPECT_THAT(MainLog(), ElementsAre(kNull1, kNull1));
}

// ---- BOOT_INIT_CopyAttr ----

using CopyAttrTest = AttrTest;

TEST_F(CopyAttrTest, DestinationTakesOwnerAndModeAndNoFlags) {
  MakeFifo(Path("fifo"), 0640, 2000, 2001);
  MakeFile(Path("dst"), "x", 0600);
  EXPECT_EQ(BOOT_INIT_CopyAttr(Path("fifo").c_str(), Path("dst").c_str()), 0u);
  EXPECT_EQ(OwnerOf(Path("dst")), std::make_pair(uid_t{2000}, gid_t{2001}));
  EXPECT_EQ(testsupport::StatOf(Path("dst")).st_mode, S_IFREG | 0640u);
  EXPECT_THAT(MainLog(), ElementsAre(kNoFlagsFifo, kDisabledFifo));
  ExpectNoLibraryHandleLeft(2);
}

TEST_F(CopyAttrTest, LabelGoesFromSourceToDestination) {
  const Standin standin(SELINUX_RECORDING_LIBRARY);
  ASSERT_TRUE(standin.ready());
  standin.Reset();
  MakeFifo(Path("fifo"), 0640, 0, 0);
  MakeFile(Path("dst"), "x", 0600);
  EXPECT_EQ(BOOT_INIT_CopyAttr(Path("fifo").c_str(), Path("dst").c_str()), 0u);
  EXPECT_EQ(standin.Calls(),
            "is_selinux_enabled\n"
            "getfilecon /opt/attr/fifo\n"
            "freecon system_u:object_r:etc_t:s0\n"
            "is_selinux_enabled\n"
            "setfilecon /opt/attr/dst system_u:object_r:etc_t:s0\n");
  EXPECT_EQ(standin.Outstanding(), 0);
  EXPECT_THAT(MainLog(), ElementsAre(kNoFlagsFifo));
}

TEST_F(CopyAttrTest, SourceFailureNamesTheSource) {
  MakeFile(Path("dst"), "x", 0600);
  EXPECT_EQ(BOOT_INIT_CopyAttr(Path("none").c_str(), Path("dst").c_str()), kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:stat /opt/attr/none failed, errno:2",
                                     "[BOOT_INIT][ERROR]:file /opt/attr/none, get attr failed"));
}

TEST_F(CopyAttrTest, DestinationFailureNamesTheDestination) {
  MakeFifo(Path("fifo"), 0640, 0, 0);
  EXPECT_EQ(BOOT_INIT_CopyAttr(Path("fifo").c_str(), Path("none").c_str()), kError);
  EXPECT_THAT(MainLog(), ElementsAre(kNoFlagsFifo, kDisabledFifo,
                                     "[BOOT_INIT][ERROR]:file /opt/attr/none not exists",
                                     "[BOOT_INIT][ERROR]:file /opt/attr/none, set attr failed"));
}

TEST_F(CopyAttrTest, EmptyPointersAreRefused) {
  EXPECT_EQ(BOOT_INIT_CopyAttr(nullptr, Path("file").c_str()), kError);
  EXPECT_EQ(BOOT_INIT_CopyAttr("/proc/version", nullptr), kError);
  EXPECT_THAT(MainLog(), ElementsAre(kNull1, kNull1));
}

// ---- BOOT_INIT_LinkAttr ----

class LinkAttrTest : public AttrTest {
 protected:
  void SetUp() override {
    AttrTest::SetUp();
    MakeFile(Path("src"), "s", 0600, 2000, 2001);
    MakeFile(Path("target"), "t", 0644);
    ASSERT_EQ(::symlink(Path("target").c_str(), Path("link").c_str()), 0);
  }
};

TEST_F(LinkAttrTest, LinkTakesTheOwnerItsTargetKeepsIts) {
  EXPECT_EQ(BOOT_INIT_LinkAttr(Path("src").c_str(), Path("link").c_str()), 0u);
  EXPECT_EQ(LinkOwnerOf(Path("link")), std::make_pair(uid_t{2000}, gid_t{2001}));
  EXPECT_EQ(OwnerOf(Path("target")), std::make_pair(uid_t{0}, gid_t{0}));
  EXPECT_THAT(MainLog(), ElementsAre());
  ExpectNoLibraryHandleLeft(1);
}

TEST_F(LinkAttrTest, RegularFileTakesTheOwnerButNotTheMode) {
  EXPECT_EQ(BOOT_INIT_LinkAttr(Path("src").c_str(), Path("target").c_str()), 0u);
  EXPECT_EQ(OwnerOf(Path("target")), std::make_pair(uid_t{2000}, gid_t{2001}));
  EXPECT_EQ(testsupport::StatOf(Path("target")).st_mode & 07777, 0644u);
}

TEST_F(LinkAttrTest, SourceReachedThroughALinkCountsWithItsTarget) {
  ASSERT_EQ(::symlink(Path("src").c_str(), Path("srclink").c_str()), 0);
  EXPECT_EQ(BOOT_INIT_LinkAttr(Path("srclink").c_str(), Path("link").c_str()), 0u);
  EXPECT_EQ(LinkOwnerOf(Path("link")), std::make_pair(uid_t{2000}, gid_t{2001}));
}

TEST_F(LinkAttrTest, LinkTakesTheSourceLabel) {
  const Standin standin(SELINUX_RECORDING_LIBRARY);
  ASSERT_TRUE(standin.ready());
  standin.Reset();
  EXPECT_EQ(BOOT_INIT_LinkAttr(Path("src").c_str(), Path("link").c_str()), 0u);
  EXPECT_EQ(standin.Calls(),
            "is_selinux_enabled\n"
            "getfilecon /opt/attr/src\n"
            "lsetfilecon /opt/attr/link system_u:object_r:etc_t:s0\n"
            "freecon system_u:object_r:etc_t:s0\n");
  EXPECT_EQ(standin.Outstanding(), 0);
}

TEST_F(LinkAttrTest, LabelFailureComesAfterTheOwner) {
  const Standin standin(SELINUX_RECORDING_LIBRARY);
  ASSERT_TRUE(standin.ready());
  standin.Reset();
  standin.Fail("lsetfilecon", EPERM);
  EXPECT_EQ(BOOT_INIT_LinkAttr(Path("src").c_str(), Path("link").c_str()), kError);
  EXPECT_EQ(LinkOwnerOf(Path("link")), std::make_pair(uid_t{2000}, gid_t{2001}));
  EXPECT_EQ(standin.Outstanding(), 0);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:file:/opt/attr/link, lset context failed, errno:1",
                          "[BOOT_INIT][ERROR]:link context from /opt/attr/src to /opt/attr/link "
                          "failed"));
}

TEST_F(LinkAttrTest, MissingSourceFailsAtStat) {
  EXPECT_EQ(BOOT_INIT_LinkAttr(Path("none").c_str(), Path("link").c_str()), kError);
  EXPECT_EQ(LinkOwnerOf(Path("link")), std::make_pair(uid_t{0}, gid_t{0}));
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:stat /opt/attr/none failed, errno:2"));
  ExpectNoLibraryHandleLeft(0);
}

TEST_F(LinkAttrTest, MissingDestinationFailsAtTheOwnerChange) {
  EXPECT_EQ(BOOT_INIT_LinkAttr(Path("src").c_str(), Path("none").c_str()), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:file:/opt/attr/none, lchown failed, errno:2"));
  ExpectNoLibraryHandleLeft(0);
}

TEST_F(LinkAttrTest, ReadOnlyDestinationFailsAtTheOwnerChange) {
  const std::string readOnly = ReadOnlyDir();
  ASSERT_FALSE(readOnly.empty()) << "the board has no read-only directory";
  // Source and destination are one: the owner asked for is the one it has.
  EXPECT_EQ(BOOT_INIT_LinkAttr(readOnly.c_str(), readOnly.c_str()), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:file:" + readOnly + ", lchown failed, errno:30"));
}

TEST_F(LinkAttrTest, DanglingLinkTakesTheOwnerButNoLabel) {
  ASSERT_EQ(::symlink(Path("none").c_str(), Path("dangling").c_str()), 0);
  EXPECT_EQ(BOOT_INIT_LinkAttr(Path("src").c_str(), Path("dangling").c_str()), kError);
  EXPECT_EQ(LinkOwnerOf(Path("dangling")), std::make_pair(uid_t{2000}, gid_t{2001}));
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:src or dst not exists",
                                     "[BOOT_INIT][ERROR]:link context from /opt/attr/src to "
                                     "/opt/attr/dangling failed"));
}

TEST_F(LinkAttrTest, EmptyPointersAreRefused) {
  EXPECT_EQ(BOOT_INIT_LinkAttr(nullptr, Path("link").c_str()), kError);
  EXPECT_EQ(BOOT_INIT_LinkAttr(Path("src").c_str(), nullptr), kError);
  EXPECT_THAT(MainLog(), ElementsAre(kNull1, kNull1));
}

// ---- BOOT_INIT_BackupFile ----

using BackupFileTest = AttrTest;

TEST_F(BackupFileTest, CopyReplacesTheDestinationAndTakesTheAttributes) {
  MakeFile(Path("backup"), "older and longer content of the backup", 0600, 2000, 2000);
  EXPECT_EQ(BOOT_INIT_BackupFile("/proc/version", Path("backup").c_str()), 0u);
  EXPECT_EQ(testsupport::ReadFile(Path("backup")), testsupport::ReadFile("/proc/version"));
  EXPECT_EQ(OwnerOf(Path("backup")), std::make_pair(uid_t{0}, gid_t{0}));
  EXPECT_EQ(testsupport::StatOf(Path("backup")).st_mode, S_IFREG | 0444u);
  EXPECT_THAT(MainLog(), ElementsAre(kNoFlagsProc, kDisabledProc));
  ExpectNoLibraryHandleLeft(2);
}

TEST_F(BackupFileTest, CopyFailureNamesBothFiles) {
  EXPECT_EQ(BOOT_INIT_BackupFile("/proc/version", Path("no/dir").c_str()), kError);
  EXPECT_FALSE(std::filesystem::exists(Path("no")));
  EXPECT_EQ(BOOT_INIT_BackupFile(Path("none").c_str(), Path("backup").c_str()), kError);
  EXPECT_FALSE(std::filesystem::exists(Path("backup")));
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:backup file /proc/version to /opt/attr/no/dir "
                          "failed",
                          "[BOOT_INIT][ERROR]:backup file /opt/attr/none to /opt/attr/backup "
                          "failed"));
  ExpectNoLibraryHandleLeft(0);
}

TEST_F(BackupFileTest, ForcedCopyFailureLeavesTheDestinationAsItWas) {
  ForceFailure("SWM_CopyFile", "3");
  MakeFile(Path("backup"), "old", 0600);
  EXPECT_EQ(BOOT_INIT_BackupFile("/proc/version", Path("backup").c_str()), kError);
  EXPECT_EQ(testsupport::ReadFile(Path("backup")), "old");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:backup file /proc/version to "
                                     "/opt/attr/backup failed"));
}

TEST_F(BackupFileTest, AttributeFailureComesAfterTheCopy) {
  ForceFailure("SWM_FchmodPath", "5");
  EXPECT_EQ(BOOT_INIT_BackupFile("/proc/version", Path("backup").c_str()), kError);
  EXPECT_EQ(testsupport::ReadFile(Path("backup")), testsupport::ReadFile("/proc/version"));
  EXPECT_THAT(MainLog(),
              ElementsAre(kNoFlagsProc, kDisabledProc,
                          "[BOOT_INIT][ERROR]:file:/opt/attr/backup, change mod failed, errno:5",
                          "[BOOT_INIT][ERROR]:file /opt/attr/backup, set attr failed",
                          "[BOOT_INIT][ERROR]:copy attr failed"));
}

TEST_F(BackupFileTest, EmptyPointersAreRefused) {
  EXPECT_EQ(BOOT_INIT_BackupFile(nullptr, Path("backup").c_str()), kError);
  EXPECT_EQ(BOOT_INIT_BackupFile("/proc/version", nullptr), kError);
  EXPECT_THAT(MainLog(), ElementsAre(kNull1, kNull1));
}

}  // namespace
}  // namespace attrtest
