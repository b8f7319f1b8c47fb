// Operation 14 (owner and label of one file onto another) and the rule that no descriptor and
// no library handle outlives any call of this module.
#include <string>
#include <vector>

#include "attr_fixture.hpp"
#include "bootinit/common.h"
#include "bootinit/dispatch.h"

using testing::ElementsAre;
using testsupport::CallOperation;
using testsupport::MainLog;

namespace attrtest {
namespace {

constexpr uint32_t kError = 0xFFFFFFFFu;
const std::string kWrongCount = "[BOOT_INIT][ERROR]:Param count is not right for ftp getting file";
const std::string kStrcpyFailed =
    "[BOOT_INIT][ERROR]:strcpy unsuccessfully: BOOT_InitOperModFileAttr";

class ModFileAttrTest : public AttrTest {
 protected:
  void SetUp() override {
    AttrTest::SetUp();
    MakeFile(Path("src"), "s", 0600, 2000, 2001);
    MakeFile(Path("target"), "t", 0644);
    ASSERT_EQ(::symlink(Path("target").c_str(), Path("link").c_str()), 0);
  }

  // An existing file whose path is exactly length characters long.
  static std::string FileWithPathLength(std::size_t length) {
    const std::string dir = kDir + "/" + std::string(200, 'd');
    const std::string path = dir + "/" + std::string(length - dir.size() - 1, 'f');
    testsupport::MakeDir(dir);
    testsupport::WriteFile(path, "x");
    return path;
  }
};

TEST_F(ModFileAttrTest, IsOperationFourteenOfTheTable) {
  EXPECT_EQ(BOOT_INIT_GetOperationFunc(14), &BOOT_InitOperModFileAttr);
}

TEST_F(ModFileAttrTest, DispatchedOperationGivesTheLinkTheSourceOwner) {
  std::vector<std::string> args = {"14", Path("src"), Path("link")};
  EXPECT_EQ(CallOperation(BOOT_INIT_DoOperation, args), 0u);
  EXPECT_EQ(LinkOwnerOf(Path("link")), std::make_pair(uid_t{2000}, gid_t{2001}));
  EXPECT_EQ(OwnerOf(Path("target")), std::make_pair(uid_t{0}, gid_t{0}));
  // The operation does not log its arguments; with labels disabled it has nothing to say.
  EXPECT_THAT(MainLog(), ElementsAre());
  ExpectNoLibraryHandleLeft(1);
}

TEST_F(ModFileAttrTest, WrongArgumentCountsReturnOne) {
  EXPECT_EQ(CallOperation(BOOT_InitOperModFileAttr, {Path("src")}), 1u);
  EXPECT_EQ(CallOperation(BOOT_InitOperModFileAttr, {}), 1u);
  EXPECT_EQ(CallOperation(BOOT_InitOperModFileAttr, {Path("src"), Path("link"), Path("link")}), 1u);
  EXPECT_EQ(CallOperation(BOOT_INIT_DoOperation, {"14", Path("src")}), 1u);
  EXPECT_EQ(LinkOwnerOf(Path("link")), std::make_pair(uid_t{0}, gid_t{0}));
  EXPECT_THAT(MainLog(), ElementsAre(kWrongCount, kWrongCount, kWrongCount, kWrongCount));
  ExpectNoLibraryHandleLeft(0);
}

TEST_F(ModFileAttrTest, FailureOfTheOwnerStepIsTheResult) {
  EXPECT_EQ(CallOperation(BOOT_InitOperModFileAttr, {Path("none"), Path("link")}), kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:stat /opt/attr/none failed, errno:2"));
}

TEST_F(ModFileAttrTest, SourcePathOfThreeHundredEightyThreeCharactersFits) {
  const std::string source = FileWithPathLength(383);
  ASSERT_EQ(::chown(source.c_str(), 2000, 2000), 0);
  EXPECT_EQ(CallOperation(BOOT_InitOperModFileAttr, {source, Path("link")}), 0u);
  EXPECT_EQ(LinkOwnerOf(Path("link")), std::make_pair(uid_t{2000}, gid_t{2000}));
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(ModFileAttrTest, LongerSourcePathIsLoggedAndLeftEmpty) {
  const std::string source = FileWithPathLength(384);
  EXPECT_EQ(CallOperation(BOOT_InitOperModFileAttr, {source, Path("link")}), kError);
  EXPECT_THAT(MainLog(), ElementsAre(kStrcpyFailed, "[BOOT_INIT][ERROR]:stat  failed, errno:2"));
}

TEST_F(ModFileAttrTest, DestinationPathOfThreeHundredEightyThreeCharactersFits) {
  const std::string destination = FileWithPathLength(383);
  EXPECT_EQ(CallOperation(BOOT_InitOperModFileAttr, {Path("src"), destination}), 0u);
  EXPECT_EQ(OwnerOf(destination), std::make_pair(uid_t{2000}, gid_t{2001}));
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(ModFileAttrTest, LongerDestinationPathIsLoggedAndLeftEmpty) {
  const std::string destination = FileWithPathLength(384);
  EXPECT_EQ(CallOperation(BOOT_InitOperModFileAttr, {Path("src"), destination}), kError);
  EXPECT_EQ(OwnerOf(destination), std::make_pair(uid_t{0}, gid_t{0}));
  EXPECT_THAT(MainLog(),
              ElementsAre(kStrcpyFailed, "[BOOT_INIT][ERROR]:file:, lchown failed, errno:2"));
}

TEST_F(ModFileAttrTest, EmptyArgumentVectorIsRefused) {
  EXPECT_EQ(BOOT_InitOperModFileAttr(2, nullptr), kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:input param is null when check null 1"));
}

// ---- nothing outlives a call ----

class NothingOutlivesACallTest : public AttrTest {
 protected:
  void SetUp() override {
    AttrTest::SetUp();
    MakeFile(Path("src"), "s", 0600, 2000, 2001);
    MakeFile(Path("dst"), "d", 0644);
    ASSERT_EQ(::mkfifo(Path("fifo").c_str(), 0600), 0);
    socketFd_ = BindSocket(Path("sock"));
  }
  void TearDown() override {
    ::close(socketFd_);
    AttrTest::TearDown();
  }

  // Every function of the module on its successful and its failing paths. /proc/version (a
  // file without flags) is only ever read: a change of its owner or mode would reach every
  // procfs of the machine.
  static void CallEverything() {
    char buf[BOOT_INIT_CONTEXT_LEN] = {};
    uint32_t flags = 0;
    uint32_t fatal = 1;
    BOOT_INIT_FILE_ATTR_S record{};
    for (const std::string &path :
         {Path("src"), Path("fifo"), Path("sock"), Path("none"), std::string("/proc/version")}) {
      (void)BOOT_INIT_GetSecurityContext(path.c_str(), buf, sizeof(buf));
      (void)BOOT_INIT_GetFileFlags(path.c_str(), &flags, &fatal);
      (void)BOOT_INIT_GetAttr(path.c_str(), &record);
      (void)BOOT_INIT_CopyAttr(path.c_str(), Path("dst").c_str());
      (void)BOOT_INIT_BackupFile(path.c_str(), Path("backup").c_str());
      (void)BOOT_INIT_LinkAttr(path.c_str(), Path("dst").c_str());
    }
    for (const std::string &path : {Path("src"), Path("fifo"), Path("sock"), Path("none")}) {
      (void)BOOT_INIT_SetSecurityContext(path.c_str(), "ctx");
      (void)BOOT_INIT_LinkSecurityContext(Path("src").c_str(), path.c_str());
      (void)BOOT_INIT_SetFileFlags(path.c_str(), FS_NODUMP_FL, &fatal);
      (void)BOOT_INIT_CopyAttr(Path("src").c_str(), path.c_str());
      (void)BOOT_INIT_LinkAttr(Path("src").c_str(), path.c_str());
      (void)CallOperation(BOOT_InitOperModFileAttr, {Path("src"), path});
      record = BOOT_INIT_FILE_ATTR_S{2000, 2000, S_IFREG | 0640, FS_NODUMP_FL, {}};
      (void)BOOT_INIT_SetAttr(path.c_str(), &record);
    }
    BOOT_INIT_SECURITY_HANDLE_S handle{};
    if (BOOT_INIT_LoadSecuritySymbols(&handle) == 0) {
      (void)BOOT_INIT_FreeSecuritySymbols(&handle);
    }
  }

  int socketFd_ = -1;
};

TEST_F(NothingOutlivesACallTest, WithTheRealLibrary) {
  const int before = testsupport::CountOpenFds();
  CallEverything();
  EXPECT_EQ(testsupport::CountOpenFds(), before);
  const dlcount::Counts counts = dlcount::Get();
  EXPECT_GT(counts.opened, 20);
  EXPECT_EQ(counts.closed, counts.opened);
  EXPECT_EQ(counts.live, 0);
  EXPECT_FALSE(testsupport::IsLibraryLoaded(kLabelLibrary));
}

TEST_F(NothingOutlivesACallTest, WithLabelsEnabled) {
  const Standin standin(SELINUX_RECORDING_LIBRARY);
  ASSERT_TRUE(standin.ready());
  standin.Reset();
  const int before = testsupport::CountOpenFds();
  CallEverything();
  standin.Fail("getfilecon", EIO);
  CallEverything();
  standin.Fail("lsetfilecon", EIO);
  CallEverything();
  EXPECT_EQ(testsupport::CountOpenFds(), before);
  EXPECT_EQ(standin.Outstanding(), 0);
  const dlcount::Counts counts = dlcount::Get();
  EXPECT_GT(counts.opened, 60);
  EXPECT_EQ(counts.closed, counts.opened);
  EXPECT_EQ(counts.live, 0);
}

TEST_F(NothingOutlivesACallTest, WithAnIncompleteLibrary) {
  const Standin standin(SELINUX_INCOMPLETE_LIBRARY);
  ASSERT_TRUE(standin.ready());
  const int before = testsupport::CountOpenFds();
  CallEverything();
  EXPECT_EQ(testsupport::CountOpenFds(), before);
  const dlcount::Counts counts = dlcount::Get();
  EXPECT_GT(counts.opened, 20);
  EXPECT_EQ(counts.closed, counts.opened);
  EXPECT_EQ(counts.live, 0);
}

}  // namespace
}  // namespace attrtest
