// Security labels: the label library opened per call, with the board's real library (labels
// disabled on these machines) and with a recording stand-in that has them enabled.
#include <cerrno>
#include <string>

#include "attr_fixture.hpp"
#include "bootinit/common.h"

using testing::ElementsAre;
using testing::StartsWith;
using testsupport::MainLog;

namespace attrtest {
namespace {

constexpr uint32_t kError = 0xFFFFFFFFu;

class RealLabelLibraryTest : public AttrTest {
 protected:
  void SetUp() override {
    AttrTest::SetUp();
    MakeFile(Path("file"), "data", 0644);
  }
};

TEST_F(RealLabelLibraryTest, NothingLoadsTheLibraryBeforeACall) {
  // Were it loaded already (by a library the test binary links), every open by name would
  // return that copy and the stand-in could never be reached.
  EXPECT_FALSE(testsupport::IsLibraryLoaded(kLabelLibrary));
}

TEST_F(RealLabelLibraryTest, BoardHasTheSystemLibraryWithLabelsDisabled) {
  EXPECT_FALSE(std::filesystem::exists(testsupport::PlatformLibrary(kLabelLibrary)));
  EXPECT_THAT(LabelLibraryFile(), testing::AnyOf(StartsWith("/lib"), StartsWith("/usr/lib")));
  void *handle = dlcount::OpenUncounted(kLabelLibrary, RTLD_NOW);
  ASSERT_NE(handle, nullptr);
  auto *enabled = reinterpret_cast<int (*)()>(::dlsym(handle, "is_selinux_enabled"));
  ASSERT_NE(enabled, nullptr);
  EXPECT_EQ(enabled(), 0);
  (void)dlcount::CloseUncounted(handle);
}

TEST_F(RealLabelLibraryTest, GetLogsThatLabelsAreDisabledAndLeavesTheBuffer) {
  char buf[BOOT_INIT_CONTEXT_LEN] = "untouched";
  EXPECT_EQ(BOOT_INIT_GetSecurityContext(Path("file").c_str(), buf, sizeof(buf)), 0u);
  EXPECT_STREQ(buf, "untouched");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:SELinux disabled, no need get "
                                     "/opt/attr/file context"));
  ExpectNoLibraryHandleLeft(1);
  EXPECT_FALSE(testsupport::IsLibraryLoaded(kLabelLibrary));
}

TEST_F(RealLabelLibraryTest, SetAndLinkSucceedWithoutAWord) {
  ASSERT_EQ(::symlink(Path("file").c_str(), Path("link").c_str()), 0);
  EXPECT_EQ(BOOT_INIT_SetSecurityContext(Path("file").c_str(), "system_u:object_r:etc_t:s0"), 0u);
  EXPECT_EQ(BOOT_INIT_LinkSecurityContext(Path("file").c_str(), Path("link").c_str()), 0u);
  EXPECT_THAT(MainLog(), ElementsAre());
  ExpectNoLibraryHandleLeft(2);
  EXPECT_FALSE(testsupport::IsLibraryLoaded(kLabelLibrary));
}

TEST_F(RealLabelLibraryTest, LoadFillsEveryEntryPointAndFreeClosesIt) {
  BOOT_INIT_SECURITY_HANDLE_S handle{};
  ASSERT_EQ(BOOT_INIT_LoadSecuritySymbols(&handle), 0u);
  EXPECT_NE(handle.handle, nullptr);
  EXPECT_NE(handle.isSelinuxEnabled, nullptr);
  EXPECT_NE(handle.freeCon, nullptr);
  EXPECT_NE(handle.getFileCon, nullptr);
  EXPECT_NE(handle.setFileCon, nullptr);
  EXPECT_NE(handle.lsetFileCon, nullptr);
  EXPECT_TRUE(testsupport::IsLibraryLoaded(kLabelLibrary));
  EXPECT_EQ(dlcount::Get().live, 1);
  EXPECT_EQ(BOOT_INIT_FreeSecuritySymbols(&handle), 0u);
  EXPECT_EQ(handle.handle, nullptr);
  EXPECT_EQ(handle.getFileCon, nullptr);
  EXPECT_FALSE(testsupport::IsLibraryLoaded(kLabelLibrary));
  ExpectNoLibraryHandleLeft(1);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(RealLabelLibraryTest, LoadAndFreeRefuseEmptyHandles) {
  EXPECT_EQ(BOOT_INIT_LoadSecuritySymbols(nullptr), kError);
  EXPECT_EQ(BOOT_INIT_FreeSecuritySymbols(nullptr), kError);
  BOOT_INIT_SECURITY_HANDLE_S unopened{};
  EXPECT_EQ(BOOT_INIT_FreeSecuritySymbols(&unopened), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:param error", "[BOOT_INIT][ERROR]:param error",
                          "[BOOT_INIT][ERROR]:param error"));
  ExpectNoLibraryHandleLeft(0);
}

TEST_F(RealLabelLibraryTest, FailedNameFormatOpensNothing) {
  formatfaults::FailFormatOf("%s", "libselinux.so.1");
  BOOT_INIT_SECURITY_HANDLE_S handle{};
  handle.handle = &handle;  // stale contents are cleared
  EXPECT_EQ(BOOT_INIT_LoadSecuritySymbols(&handle), kError);
  EXPECT_EQ(handle.handle, nullptr);
  char buf[BOOT_INIT_CONTEXT_LEN] = {};
  EXPECT_EQ(BOOT_INIT_GetSecurityContext(Path("file").c_str(), buf, sizeof(buf)), kError);
  EXPECT_EQ(formatfaults::Get().failed, 2);
  const std::string sprintfFailed =
      "[BOOT_INIT][WARNING]:Load security symbols, sprintf libselinux.so.1 unsuccessfully.";
  EXPECT_THAT(MainLog(), ElementsAre(sprintfFailed, sprintfFailed,
                                     "[BOOT_INIT][ERROR]:load selinux symbols failed"));
  ExpectNoLibraryHandleLeft(0);
}

TEST_F(RealLabelLibraryTest, MissingPathsFailBeforeTheLibraryIsOpened) {
  char buf[BOOT_INIT_CONTEXT_LEN] = {};
  const std::string none = Path("none");
  EXPECT_EQ(BOOT_INIT_GetSecurityContext(none.c_str(), buf, sizeof(buf)), kError);
  EXPECT_EQ(BOOT_INIT_SetSecurityContext(none.c_str(), "ctx"), kError);
  EXPECT_EQ(BOOT_INIT_LinkSecurityContext(none.c_str(), Path("file").c_str()), kError);
  EXPECT_EQ(BOOT_INIT_LinkSecurityContext(Path("file").c_str(), none.c_str()), kError);
  // A dangling link counts as missing: it leads to nothing.
  ASSERT_EQ(::symlink(none.c_str(), Path("dangling").c_str()), 0);
  EXPECT_EQ(BOOT_INIT_LinkSecurityContext(Path("file").c_str(), Path("dangling").c_str()), kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:file /opt/attr/none, file not exists",
                                     "[BOOT_INIT][ERROR]:file /opt/attr/none not exists",
                                     "[BOOT_INIT][ERROR]:src or dst not exists",
                                     "[BOOT_INIT][ERROR]:src or dst not exists",
                                     "[BOOT_INIT][ERROR]:src or dst not exists"));
  ExpectNoLibraryHandleLeft(0);
}

TEST_F(RealLabelLibraryTest, EmptyPointersAreRefused) {
  char buf[BOOT_INIT_CONTEXT_LEN] = {};
  EXPECT_EQ(BOOT_INIT_GetSecurityContext(nullptr, buf, sizeof(buf)), kError);
  EXPECT_EQ(BOOT_INIT_GetSecurityContext(Path("file").c_str(), nullptr, 0), kError);
  EXPECT_EQ(BOOT_INIT_SetSecurityContext(nullptr, "ctx"), kError);
  EXPECT_EQ(BOOT_INIT_SetSecurityContext(Path("file").c_str(), nullptr), kError);
  EXPECT_EQ(BOOT_INIT_LinkSecurityContext(nullptr, Path("file").c_str()), kError);
  EXPECT_EQ(BOOT_INIT_LinkSecurityContext(Path("file").c_str(), nullptr), kError);
  const std::string null1 = "[BOOT_INIT][ERROR]:input param is null when check null 1";
  EXPECT_THAT(MainLog(), ElementsAre(null1, null1, null1, null1, "[BOOT_INIT][ERROR]:param error",
                                     "[BOOT_INIT][ERROR]:param error"));
  ExpectNoLibraryHandleLeft(0);
}

// ---- labels enabled: the recording stand-in ----

class EnabledLabelsTest : public AttrTest {
 protected:
  void SetUp() override {
    AttrTest::SetUp();
    MakeFile(Path("src"), "source", 0644);
    MakeFile(Path("dst"), "destination", 0644);
    ASSERT_TRUE(standin_.ready()) << "the name does not lead to the stand-in";
    standin_.Reset();
  }

  // After every call: each context handed out was given back, each handle closed.
  void TearDown() override {
    EXPECT_EQ(standin_.Outstanding(), 0);
    EXPECT_EQ(dlcount::Get().live, 0);
    AttrTest::TearDown();
  }

  Standin standin_{SELINUX_RECORDING_LIBRARY};
};

TEST_F(EnabledLabelsTest, GetCopiesTheContextAndGivesItBack) {
  char buf[BOOT_INIT_CONTEXT_LEN] = "old";
  EXPECT_EQ(BOOT_INIT_GetSecurityContext(Path("src").c_str(), buf, sizeof(buf)), 0u);
  EXPECT_STREQ(buf, kStandinContext.c_str());
  EXPECT_EQ(standin_.Calls(),
            "is_selinux_enabled\n"
            "getfilecon /opt/attr/src\n"
            "freecon system_u:object_r:etc_t:s0\n");
  EXPECT_THAT(MainLog(), ElementsAre());
  ExpectNoLibraryHandleLeft(1);
}

TEST_F(EnabledLabelsTest, AnyNonZeroAnswerCountsAsEnabled) {
  standin_.SetEnabled(-1);
  char buf[BOOT_INIT_CONTEXT_LEN] = {};
  EXPECT_EQ(BOOT_INIT_GetSecurityContext(Path("src").c_str(), buf, sizeof(buf)), 0u);
  EXPECT_STREQ(buf, kStandinContext.c_str());
}

TEST_F(EnabledLabelsTest, DisabledAnswerSkipsTheLabelCalls) {
  standin_.SetEnabled(0);
  char buf[BOOT_INIT_CONTEXT_LEN] = "old";
  EXPECT_EQ(BOOT_INIT_GetSecurityContext(Path("src").c_str(), buf, sizeof(buf)), 0u);
  EXPECT_EQ(BOOT_INIT_SetSecurityContext(Path("src").c_str(), "ctx"), 0u);
  EXPECT_EQ(BOOT_INIT_LinkSecurityContext(Path("src").c_str(), Path("dst").c_str()), 0u);
  EXPECT_STREQ(buf, "old");
  EXPECT_EQ(standin_.Calls(), "is_selinux_enabled\nis_selinux_enabled\nis_selinux_enabled\n");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:SELinux disabled, no need get "
                                     "/opt/attr/src context"));
  ExpectNoLibraryHandleLeft(3);
}

TEST_F(EnabledLabelsTest, GetFailureLogsTheErrno) {
  standin_.Fail("getfilecon", ENODATA);
  char buf[BOOT_INIT_CONTEXT_LEN] = "old";
  EXPECT_EQ(BOOT_INIT_GetSecurityContext(Path("src").c_str(), buf, sizeof(buf)), kError);
  EXPECT_STREQ(buf, "old");
  EXPECT_EQ(standin_.Calls(), "is_selinux_enabled\ngetfilecon /opt/attr/src\n");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:file:/opt/attr/src, get context "
                                     "failed, errno:61"));
  ExpectNoLibraryHandleLeft(1);
}

TEST_F(EnabledLabelsTest, ContextThatDoesNotFitOnlyLogs) {
  const std::string fits(BOOT_INIT_CONTEXT_LEN - 1, 'c');
  standin_.SetContext(fits);
  char buf[BOOT_INIT_CONTEXT_LEN] = {};
  EXPECT_EQ(BOOT_INIT_GetSecurityContext(Path("src").c_str(), buf, sizeof(buf)), 0u);
  EXPECT_EQ(std::string(buf), fits);
  EXPECT_THAT(MainLog(), ElementsAre());

  standin_.SetContext(fits + "c");
  EXPECT_EQ(BOOT_INIT_GetSecurityContext(Path("src").c_str(), buf, sizeof(buf)), 0u);
  EXPECT_STREQ(buf, "");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:strcpy unsuccessfully: "
                                     "BOOT_INIT_GetSecurityContext"));
  // The context is given back also when it could not be copied.
  EXPECT_EQ(standin_.Calls(), "is_selinux_enabled\ngetfilecon /opt/attr/src\nfreecon " + fits +
                                  "\nis_selinux_enabled\ngetfilecon /opt/attr/src\nfreecon " +
                                  fits + "c\n");
}

TEST_F(EnabledLabelsTest, SetLabelsTheFile) {
  EXPECT_EQ(BOOT_INIT_SetSecurityContext(Path("dst").c_str(), "user_u:object_r:tmp_t:s0"), 0u);
  EXPECT_EQ(standin_.Calls(),
            "is_selinux_enabled\n"
            "setfilecon /opt/attr/dst user_u:object_r:tmp_t:s0\n");
  EXPECT_THAT(MainLog(), ElementsAre());
  ExpectNoLibraryHandleLeft(1);
}

TEST_F(EnabledLabelsTest, SetFailureLogsTheErrno) {
  standin_.Fail("setfilecon", EPERM);
  EXPECT_EQ(BOOT_INIT_SetSecurityContext(Path("dst").c_str(), "ctx"), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:file:/opt/attr/dst, set context failed, errno:1"));
  ExpectNoLibraryHandleLeft(1);
}

TEST_F(EnabledLabelsTest, LinkGivesTheLinkItselfTheSourceLabel) {
  ASSERT_EQ(::symlink(Path("dst").c_str(), Path("link").c_str()), 0);
  EXPECT_EQ(BOOT_INIT_LinkSecurityContext(Path("src").c_str(), Path("link").c_str()), 0u);
  EXPECT_EQ(standin_.Calls(),
            "is_selinux_enabled\n"
            "getfilecon /opt/attr/src\n"
            "lsetfilecon /opt/attr/link system_u:object_r:etc_t:s0\n"
            "freecon system_u:object_r:etc_t:s0\n");
  EXPECT_THAT(MainLog(), ElementsAre());
  ExpectNoLibraryHandleLeft(1);
}

TEST_F(EnabledLabelsTest, LinkFailsWhenTheSourceLabelCannotBeRead) {
  standin_.Fail("getfilecon", EACCES);
  EXPECT_EQ(BOOT_INIT_LinkSecurityContext(Path("src").c_str(), Path("dst").c_str()), kError);
  EXPECT_EQ(standin_.Calls(), "is_selinux_enabled\ngetfilecon /opt/attr/src\n");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:file:/opt/attr/src, get context "
                                     "failed, errno:13"));
  ExpectNoLibraryHandleLeft(1);
}

TEST_F(EnabledLabelsTest, LinkFailureStillGivesTheContextBack) {
  standin_.Fail("lsetfilecon", EOPNOTSUPP);
  EXPECT_EQ(BOOT_INIT_LinkSecurityContext(Path("src").c_str(), Path("dst").c_str()), kError);
  EXPECT_EQ(standin_.Calls(),
            "is_selinux_enabled\n"
            "getfilecon /opt/attr/src\n"
            "lsetfilecon /opt/attr/dst system_u:object_r:etc_t:s0\n"
            "freecon system_u:object_r:etc_t:s0\n");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:file:/opt/attr/dst, lset context "
                                     "failed, errno:95"));
  ExpectNoLibraryHandleLeft(1);
}

// ---- a library without one of the entry points ----

class IncompleteLabelLibraryTest : public AttrTest {
 protected:
  void SetUp() override {
    AttrTest::SetUp();
    MakeFile(Path("src"), "source", 0644);
    ASSERT_TRUE(standin_.ready());
    standin_.Reset();
  }
  Standin standin_{SELINUX_INCOMPLETE_LIBRARY};
};

TEST_F(IncompleteLabelLibraryTest, EveryLabelOperationFails) {
  EXPECT_THAT(testsupport::DlsymReason(kLabelLibrary, RTLD_NOW, "lsetfilecon"),
              testing::EndsWith(": undefined symbol: lsetfilecon"));
  dlcount::Reset();
  BOOT_INIT_SECURITY_HANDLE_S handle{};
  EXPECT_EQ(BOOT_INIT_LoadSecuritySymbols(&handle), kError);
  EXPECT_EQ(handle.handle, nullptr);
  EXPECT_EQ(handle.isSelinuxEnabled, nullptr);
  char buf[BOOT_INIT_CONTEXT_LEN] = {};
  EXPECT_EQ(BOOT_INIT_GetSecurityContext(Path("src").c_str(), buf, sizeof(buf)), kError);
  EXPECT_EQ(BOOT_INIT_SetSecurityContext(Path("src").c_str(), "ctx"), kError);
  EXPECT_EQ(BOOT_INIT_LinkSecurityContext(Path("src").c_str(), Path("src").c_str()), kError);
  const std::string dlsymFailed =
      "[BOOT_INIT][WARNING]:Load security symbols, dlsym functions from libselinux.so.1 failed.";
  EXPECT_THAT(
      MainLog(),
      ElementsAre(dlsymFailed, dlsymFailed, "[BOOT_INIT][ERROR]:load selinux symbols failed",
                  dlsymFailed, "[BOOT_INIT][ERROR]:load security symbols failed", dlsymFailed));
  // The library was opened and closed again each time; none of its functions ran.
  EXPECT_EQ(standin_.Calls(), "");
  ExpectNoLibraryHandleLeft(4);
}

}  // namespace
}  // namespace attrtest
