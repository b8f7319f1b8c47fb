// A board without the label library: every board of this binary hides libselinux.so.1 from the
// loader (board description [platform] hidden). Every label operation then fails, and so does
// everything built on them.
#include <string>

#include "attr_fixture.hpp"
#include "bootinit/common.h"

using testing::ElementsAre;
using testsupport::MainLog;

namespace attrtest {
namespace {

constexpr uint32_t kError = 0xFFFFFFFFu;
const std::string kNoLibrary =
    "[BOOT_INIT][WARNING]:dlopen libselinux.so.1 unsuccessfully, reason: libselinux.so.1: cannot "
    "open shared object file: No such file or directory";

class NoLabelLibraryTest : public AttrTest {
 protected:
  void SetUp() override {
    AttrTest::SetUp();
    MakeFile(Path("src"), "s", 0600, 2000, 2001);
    MakeFile(Path("dst"), "d", 0644);
    ASSERT_EQ(::symlink(Path("dst").c_str(), Path("link").c_str()), 0);
  }
  void TearDown() override {
    ExpectNoLibraryHandleLeft(0);
    AttrTest::TearDown();
  }
};

TEST_F(NoLabelLibraryTest, BoardHasNoLabelLibrary) {
  EXPECT_EQ(LabelLibraryFile(), "");
  EXPECT_EQ(testsupport::DlopenReason(kLabelLibrary, RTLD_NOW | RTLD_GLOBAL),
            "libselinux.so.1: cannot open shared object file: No such file or directory");
}

TEST_F(NoLabelLibraryTest, LoadFailsWithTheLoadersReason) {
  BOOT_INIT_SECURITY_HANDLE_S handle{};
  handle.handle = &handle;
  EXPECT_EQ(BOOT_INIT_LoadSecuritySymbols(&handle), kError);
  EXPECT_EQ(handle.handle, nullptr);
  EXPECT_THAT(MainLog(), ElementsAre(kNoLibrary));
}

TEST_F(NoLabelLibraryTest, EveryLabelOperationFails) {
  char buf[BOOT_INIT_CONTEXT_LEN] = "old";
  EXPECT_EQ(BOOT_INIT_GetSecurityContext(Path("src").c_str(), buf, sizeof(buf)), kError);
  EXPECT_STREQ(buf, "old");
  EXPECT_EQ(BOOT_INIT_SetSecurityContext(Path("src").c_str(), "ctx"), kError);
  EXPECT_EQ(BOOT_INIT_LinkSecurityContext(Path("src").c_str(), Path("link").c_str()), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre(kNoLibrary, "[BOOT_INIT][ERROR]:load selinux symbols failed", kNoLibrary,
                          "[BOOT_INIT][ERROR]:load security symbols failed", kNoLibrary));
}

TEST_F(NoLabelLibraryTest, RecordCannotBeRead) {
  BOOT_INIT_FILE_ATTR_S record{};
  EXPECT_EQ(BOOT_INIT_GetAttr("/proc/version", &record), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][WARNING]:file:/proc/version, get flags unsuccessful, "
                          "errno:25, ignore it",
                          kNoLibrary, "[BOOT_INIT][ERROR]:load selinux symbols failed",
                          "[BOOT_INIT][ERROR]:file:/proc/version, get context info failed"));
}

TEST_F(NoLabelLibraryTest, RecordIsAppliedUpToTheLabel) {
  const BOOT_INIT_FILE_ATTR_S record{2000, 2001, S_IFREG | 0600, 0, {}};
  EXPECT_EQ(BOOT_INIT_SetAttr(Path("dst").c_str(), &record), kError);
  EXPECT_EQ(OwnerOf(Path("dst")), std::make_pair(uid_t{2000}, gid_t{2001}));
  EXPECT_EQ(testsupport::StatOf(Path("dst")).st_mode & 07777, 0600u);
  EXPECT_THAT(MainLog(),
              ElementsAre(kNoLibrary, "[BOOT_INIT][ERROR]:load security symbols failed",
                          "[BOOT_INIT][ERROR]:file /opt/attr/dst, set security context failed"));
}

TEST_F(NoLabelLibraryTest, OperationFourteenChangesTheOwnerAndFails) {
  EXPECT_EQ(testsupport::CallOperation(BOOT_InitOperModFileAttr, {Path("src"), Path("link")}),
            kError);
  EXPECT_EQ(LinkOwnerOf(Path("link")), std::make_pair(uid_t{2000}, gid_t{2001}));
  EXPECT_THAT(MainLog(), ElementsAre(kNoLibrary,
                                     "[BOOT_INIT][ERROR]:link context from /opt/attr/src to "
                                     "/opt/attr/link failed"));
}

TEST_F(NoLabelLibraryTest, BackupIsCopiedButItsAttributesFail) {
  EXPECT_EQ(BOOT_INIT_BackupFile("/proc/version", Path("backup").c_str()), kError);
  EXPECT_EQ(testsupport::ReadFile(Path("backup")), testsupport::ReadFile("/proc/version"));
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][WARNING]:file:/proc/version, get flags unsuccessful, "
                          "errno:25, ignore it",
                          kNoLibrary, "[BOOT_INIT][ERROR]:load selinux symbols failed",
                          "[BOOT_INIT][ERROR]:file:/proc/version, get context info failed",
                          "[BOOT_INIT][ERROR]:file /proc/version, get attr failed",
                          "[BOOT_INIT][ERROR]:copy attr failed"));
}

}  // namespace
}  // namespace attrtest
