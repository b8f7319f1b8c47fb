// BOOT_INIT_SetStartupMode, BOOT_INIT_GetStartupMode, BOOT_INIT_GetBackUpPath: each opens the
// support library, calls one entry point and closes the library again.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>

#include "bootinit/startup.h"
#include "startup_fixture.hpp"

using testing::ElementsAre;
using testsupport::MainLog;

namespace {

const std::string kDlopenSuccess = "[BOOT_INIT][INFO]:dlopen libsupport_linux.so success.";

using SetStartupModeTest = startuptest::StartupTest;
using GetStartupModeTest = startuptest::StartupTest;
using GetBackUpPathTest = startuptest::StartupTest;

TEST_F(SetStartupModeTest, LoadedLibraryProbeSeesAnOpenLibrary) {
  // The checks that the support library is closed after each call would pass vacuously if the
  // probe never saw the library at all.
  void *handle = dlopen(testsupport::kSupportLibrary.c_str(), startuptest::kSupportFlags);
  ASSERT_NE(handle, nullptr);
  EXPECT_TRUE(SupportLibraryLoaded());
  dlclose(handle);
  EXPECT_FALSE(SupportLibraryLoaded());
}

// ---- set ----

TEST_F(SetStartupModeTest, StoresLocal) {
  StoredMode("0");
  EXPECT_EQ(BOOT_INIT_SetStartupMode(1), 0u);
  EXPECT_EQ(StoredModeNow(), "1");
  EXPECT_THAT(MainLog(),
              ElementsAre(kDlopenSuccess, "[BOOT_INIT][INFO]:load PSSP_SetStartupMode success."));
  EXPECT_FALSE(SupportLibraryLoaded());
}

TEST_F(SetStartupModeTest, StoresNetwork) {
  StoredMode("1");
  EXPECT_EQ(BOOT_INIT_SetStartupMode(0), 0u);
  EXPECT_EQ(StoredModeNow(), "0");
  EXPECT_FALSE(SupportLibraryLoaded());
}

TEST_F(SetStartupModeTest, EntryPointCodeIsReturned) {
  StoredMode("0");
  testsupport::DescribeBoard(testsupport::ActiveMainBoard(),
                             {{"fail.PSSP_SetStartupMode", "0x66"}});
  EXPECT_EQ(BOOT_INIT_SetStartupMode(1), 0x66u);
  EXPECT_EQ(StoredModeNow(), "0");
  EXPECT_THAT(MainLog(),
              ElementsAre(kDlopenSuccess, "[BOOT_INIT][INFO]:load PSSP_SetStartupMode success.",
                          "[BOOT_INIT][ERROR]:call PSSP_SetStartupMode failed."));
  EXPECT_FALSE(SupportLibraryLoaded());
}

TEST_F(SetStartupModeTest, ModeTheSupportLibraryRefusesIsItsCode) {
  StoredMode("1");
  EXPECT_EQ(BOOT_INIT_SetStartupMode(2), 1u);  // the support library's "invalid mode"
  EXPECT_EQ(StoredModeNow(), "1");
  EXPECT_THAT(MainLog(),
              ElementsAre(kDlopenSuccess, "[BOOT_INIT][INFO]:load PSSP_SetStartupMode success.",
                          "[BOOT_INIT][ERROR]:call PSSP_SetStartupMode failed."));
}

TEST_F(SetStartupModeTest, MissingLibraryFails) {
  StoredMode("0");
  RemoveSupportLibrary();
  EXPECT_EQ(BOOT_INIT_SetStartupMode(1), 0xFFFFFFFFu);
  EXPECT_EQ(StoredModeNow(), "0");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][WARNING]:set startup mode dlopen "
                                     "libsupport_linux.so unsuccessful, err(" +
                                     OpenFailure() + ")"));
}

TEST_F(SetStartupModeTest, MissingEntryPointFails) {
  StoredMode("0");
  SupportLibraryWithoutEntryPoints();
  EXPECT_EQ(BOOT_INIT_SetStartupMode(1), 0xFFFFFFFFu);
  EXPECT_EQ(StoredModeNow(), "0");
  EXPECT_THAT(MainLog(), ElementsAre(kDlopenSuccess,
                                     "[BOOT_INIT][ERROR]:load PSSP_SetStartupMode failed, err(" +
                                         MissingEntry("PSSP_SetStartupMode") + ")"));
}

TEST_F(SetStartupModeTest, LibraryNameThatCannotBeFormattedFails) {
  StoredMode("0");
  formatfaults::FailFormatOf("%s", "libsupport_linux.so");
  // The bounded print's negative result, as unsigned.
  EXPECT_EQ(BOOT_INIT_SetStartupMode(1), static_cast<uint32_t>(-1));
  EXPECT_EQ(formatfaults::Get().failed, 1);
  formatfaults::Reset();
  EXPECT_EQ(StoredModeNow(), "0");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][WARNING]:set startup mode sprintf "
                                     "libsupport_linux.so unsuccessful."));
  EXPECT_FALSE(SupportLibraryLoaded());
}

// ---- get ----

TEST_F(GetStartupModeTest, ReadsLocal) {
  StoredMode("1");
  uint32_t mode = 2;
  BOOT_INIT_GetStartupMode(&mode);
  EXPECT_EQ(mode, 1u);
  EXPECT_THAT(MainLog(),
              ElementsAre(kDlopenSuccess, "[BOOT_INIT][INFO]:load PSSP_GetStartupMode success."));
  EXPECT_FALSE(SupportLibraryLoaded());
}

TEST_F(GetStartupModeTest, ReadsNetwork) {
  StoredMode("0");
  uint32_t mode = 2;
  BOOT_INIT_GetStartupMode(&mode);
  EXPECT_EQ(mode, 0u);
  EXPECT_FALSE(SupportLibraryLoaded());
}

TEST_F(GetStartupModeTest, MissingLibraryReadsAsNetwork) {
  StoredMode("1");
  RemoveSupportLibrary();
  uint32_t mode = 7;
  BOOT_INIT_GetStartupMode(&mode);
  EXPECT_EQ(mode, 0u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][WARNING]:get startup mode dlopen "
                                     "libsupport_linux.so unsuccessful, err(" +
                                     OpenFailure() + ")"));
}

TEST_F(GetStartupModeTest, MissingEntryPointReadsAsNetwork) {
  StoredMode("1");
  SupportLibraryWithoutEntryPoints();
  uint32_t mode = 7;
  BOOT_INIT_GetStartupMode(&mode);
  EXPECT_EQ(mode, 0u);
  EXPECT_THAT(MainLog(), ElementsAre(kDlopenSuccess,
                                     "[BOOT_INIT][ERROR]:load PSSP_GetStartupMode failed, err(" +
                                         MissingEntry("PSSP_GetStartupMode") + ")"));
}

TEST_F(GetStartupModeTest, FailedCallReadsAsNetwork) {
  testsupport::UnsetEnv("startup_mode");  // nothing stored: the support library fails
  uint32_t mode = 7;
  BOOT_INIT_GetStartupMode(&mode);
  EXPECT_EQ(mode, 0u);
  EXPECT_THAT(MainLog(),
              ElementsAre(kDlopenSuccess, "[BOOT_INIT][INFO]:load PSSP_GetStartupMode success.",
                          "[BOOT_INIT][ERROR]:call PSSP_GetStartupMode failed."));
  EXPECT_FALSE(SupportLibraryLoaded());
}

TEST_F(GetStartupModeTest, LibraryNameThatCannotBeFormatted) {
  StoredMode("1");
  formatfaults::FailFormatOf("%s", "libsupport_linux.so");
  uint32_t mode = 2;
  BOOT_INIT_GetStartupMode(&mode);
  EXPECT_EQ(formatfaults::Get().failed, 1);
  formatfaults::Reset();
  EXPECT_NE(mode, 1u);  // the stored mode was never read
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][WARNING]:get startup mode sprintf "
                                     "libsupport_linux.so unsuccessful."));
}

// ---- backup path ----

TEST_F(GetBackUpPathTest, ExistingDirectory) {
  char path[32] = {};
  EXPECT_EQ(BOOT_INIT_GetBackUpPath(path, sizeof(path)), 0u);
  EXPECT_STREQ(path, "/opt/kytv8/backup");
  EXPECT_THAT(MainLog(), ElementsAre());
  EXPECT_FALSE(SupportLibraryLoaded());
}

TEST_F(GetBackUpPathTest, DirectoryThatDoesNotExistFails) {
  testsupport::DescribeBoard(testsupport::ActiveMainBoard(),
                             {{"support.backup_dir", "/opt/kytv8/nobackup"}});
  char path[32] = {};
  EXPECT_EQ(BOOT_INIT_GetBackUpPath(path, sizeof(path)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:GetBackUpPath: "
                                     "highMemPath(/opt/kytv8/nobackup) is not exist"));
  EXPECT_FALSE(SupportLibraryLoaded());
}

TEST_F(GetBackUpPathTest, FileIsNoDirectory) {
  testsupport::Touch("/opt/kytv8/file");
  testsupport::DescribeBoard(testsupport::ActiveMainBoard(),
                             {{"support.backup_dir", "/opt/kytv8/file"}});
  char path[32] = {};
  EXPECT_EQ(BOOT_INIT_GetBackUpPath(path, sizeof(path)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:GetBackUpPath: "
                                     "highMemPath(/opt/kytv8/file) is not exist"));
}

TEST_F(GetBackUpPathTest, SymlinkToADirectoryCounts) {
  std::filesystem::create_directory_symlink(testsupport::kBackupDir, "/opt/bak");
  testsupport::DescribeBoard(testsupport::ActiveMainBoard(), {{"support.backup_dir", "/opt/bak"}});
  char path[32] = {};
  EXPECT_EQ(BOOT_INIT_GetBackUpPath(path, sizeof(path)), 0u);
  EXPECT_STREQ(path, "/opt/bak");
}

TEST_F(GetBackUpPathTest, DirectoryIsTestedOnTheFileSystem) {
  // The platform library's own directory test is not the one asked.
  testsupport::DescribeBoard(testsupport::ActiveMainBoard(), {{"fail.SWM_IsDirExist", "0"}});
  char path[32] = {};
  EXPECT_EQ(BOOT_INIT_GetBackUpPath(path, sizeof(path)), 0u);
  EXPECT_STREQ(path, "/opt/kytv8/backup");
}

TEST_F(GetBackUpPathTest, FailedCallWithAnExistingDirectorySucceeds) {
  testsupport::DescribeBoard(testsupport::ActiveMainBoard(), {{"fail.PSSP_GetBackUpPath", "0x5"}});
  char path[32] = {};
  EXPECT_EQ(BOOT_INIT_GetBackUpPath(path, sizeof(path)), 0u);
  EXPECT_STREQ(path, "/opt/kytv8/backup");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:call PSSP_GetBackUpPath failed."));
}

TEST_F(GetBackUpPathTest, FailedCallWithoutADirectoryFails) {
  // No backup directory described: the support library fails and leaves the buffer empty.
  std::map<std::string, std::string> facts = testsupport::ActiveMainBoard();
  facts.erase("support.backup_dir");
  testsupport::DescribeBoard(facts);
  char path[32] = {};
  EXPECT_EQ(BOOT_INIT_GetBackUpPath(path, sizeof(path)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:call PSSP_GetBackUpPath failed.",
                          "[BOOT_INIT][ERROR]:GetBackUpPath: highMemPath() is not exist"));
}

TEST_F(GetBackUpPathTest, SupportLibraryIsToldTheBufferSize) {
  const std::string dir = "/opt/kytv8/backup/" + std::string(20, 'b');  // 38 characters
  testsupport::MakeDir(dir);
  testsupport::DescribeBoard(testsupport::ActiveMainBoard(), {{"support.backup_dir", dir}});
  char big[64] = {};
  EXPECT_EQ(BOOT_INIT_GetBackUpPath(big, sizeof(big)), 0u);
  EXPECT_EQ(std::string(big), dir);
  EXPECT_THAT(MainLog(), ElementsAre());
  char small[38] = {};  // one byte short of the terminator
  EXPECT_EQ(BOOT_INIT_GetBackUpPath(small, sizeof(small)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:call PSSP_GetBackUpPath failed.",
                          "[BOOT_INIT][ERROR]:GetBackUpPath: highMemPath() is not exist"));
}

TEST_F(GetBackUpPathTest, MissingLibraryFails) {
  RemoveSupportLibrary();
  char path[32] = {};
  EXPECT_EQ(BOOT_INIT_GetBackUpPath(path, sizeof(path)), 0xFFFFFFFFu);
  const auto log = MainLog();
  ASSERT_FALSE(log.empty());
  EXPECT_EQ(log[0],
            "[BOOT_INIT][WARNING]:get backup path dlopen libsupport_linux.so "
            "unsuccessful, err(" +
                OpenFailure() + ")");
}

TEST_F(GetBackUpPathTest, MissingEntryPointFails) {
  SupportLibraryWithoutEntryPoints();
  char path[32] = {};
  EXPECT_EQ(BOOT_INIT_GetBackUpPath(path, sizeof(path)), 0xFFFFFFFFu);
  const auto log = MainLog();
  ASSERT_FALSE(log.empty());
  EXPECT_EQ(log[0], "[BOOT_INIT][ERROR]:load PSSP_GetBackUpPath failed, err(" +
                        MissingEntry("PSSP_GetBackUpPath") + ")");
}

TEST_F(GetBackUpPathTest, LibraryNameThatCannotBeFormattedFails) {
  formatfaults::FailFormatOf("%s", "libsupport_linux.so");
  char path[32] = {};
  EXPECT_EQ(BOOT_INIT_GetBackUpPath(path, sizeof(path)), static_cast<uint32_t>(-1));
  EXPECT_EQ(formatfaults::Get().failed, 1);
  formatfaults::Reset();
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][WARNING]:get backup path sprintf "
                                     "libsupport_linux.so unsuccessful."));
}

}  // namespace
