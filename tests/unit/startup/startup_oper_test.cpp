// Operations 9 (backup path), 10 (get startup mode) and 11 (set startup mode): their argument
// checks, their answers on standard output and their results.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "bootinit/dispatch.h"
#include "bootinit/startup.h"
#include "startup_fixture.hpp"

using testing::ElementsAre;
using testsupport::MainLog;
using testsupport::RunOperation;

namespace {

const std::string kDlopenSuccess = "[BOOT_INIT][INFO]:dlopen libsupport_linux.so success.";
const std::string kLoadGet = "[BOOT_INIT][INFO]:load PSSP_GetStartupMode success.";
const std::string kLoadSet = "[BOOT_INIT][INFO]:load PSSP_SetStartupMode success.";
const std::string kSetStart = "[BOOT_INIT][INFO]:set startup mode start";
const std::string kBackPathFailed =
    "[BOOT_INIT][ERROR]:BOOT InitOperGetBackPath InitOperAppbootVerify get back path failed";

using SetStartupModeOperTest = startuptest::StartupTest;
using GetStartupModeOperTest = startuptest::StartupTest;
using GetBackPathOperTest = startuptest::StartupTest;

// ---- operation 11 ----

TEST_F(SetStartupModeOperTest, Local) {
  StoredMode("0");
  const auto op = RunOperation(BOOT_InitOperSetStartupMode, {"local"});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "");
  EXPECT_EQ(StoredModeNow(), "1");
  EXPECT_THAT(MainLog(), ElementsAre(kSetStart, "[BOOT_INIT][INFO]:ppacArgv[0] = local",
                                     kDlopenSuccess, kLoadSet));
}

TEST_F(SetStartupModeOperTest, Network) {
  StoredMode("1");
  const auto op = RunOperation(BOOT_InitOperSetStartupMode, {"network"});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "");
  EXPECT_EQ(StoredModeNow(), "0");
  EXPECT_THAT(MainLog(), ElementsAre(kSetStart, "[BOOT_INIT][INFO]:ppacArgv[0] = network",
                                     kDlopenSuccess, kLoadSet));
}

TEST_F(SetStartupModeOperTest, WordsAreCaseSensitive) {
  for (const std::string word : {"Local", "NETWORK", "locale", "", " local"}) {
    testsupport::ClearMainLog();
    StoredMode("1");
    const auto op = RunOperation(BOOT_InitOperSetStartupMode, {word});
    EXPECT_EQ(op.result, 1u) << word;
    EXPECT_EQ(op.out, "");
    EXPECT_EQ(StoredModeNow(), "1") << word;
    EXPECT_THAT(MainLog(),
                ElementsAre(kSetStart, "[BOOT_INIT][INFO]:ppacArgv[0] = " + word,
                            "[BOOT_INIT][ERROR]:Set startup mode is invalid, enStartupMode = 2"))
        << word;
  }
}

TEST_F(SetStartupModeOperTest, TwoArgumentsAreLoggedThenRefused) {
  StoredMode("0");
  const auto op = RunOperation(BOOT_InitOperSetStartupMode, {"network", "local"});
  EXPECT_EQ(op.result, 1u);
  EXPECT_EQ(StoredModeNow(), "0");
  EXPECT_THAT(MainLog(), ElementsAre(kSetStart, "[BOOT_INIT][INFO]:ppacArgv[0] = network",
                                     "[BOOT_INIT][INFO]:ppacArgv[1] = local",
                                     "[BOOT_INIT][ERROR]:Argv invalid. Argc num must be 1"));
}

TEST_F(SetStartupModeOperTest, NoArgumentIsRefused) {
  StoredMode("0");
  const auto op = RunOperation(BOOT_InitOperSetStartupMode, {});
  EXPECT_EQ(op.result, 1u);
  EXPECT_EQ(StoredModeNow(), "0");
  EXPECT_THAT(MainLog(),
              ElementsAre(kSetStart, "[BOOT_INIT][ERROR]:Argv invalid. Argc num must be 1"));
}

TEST_F(SetStartupModeOperTest, ResultOfTheLibraryFunctionIsReturned) {
  StoredMode("0");
  testsupport::DescribeBoard(testsupport::ActiveMainBoard(),
                             {{"fail.PSSP_SetStartupMode", "0x66"}});
  auto op = RunOperation(BOOT_InitOperSetStartupMode, {"local"});
  EXPECT_EQ(op.result, 0x66u);
  EXPECT_EQ(StoredModeNow(), "0");
  EXPECT_THAT(MainLog(),
              ElementsAre(kSetStart, "[BOOT_INIT][INFO]:ppacArgv[0] = local", kDlopenSuccess,
                          kLoadSet, "[BOOT_INIT][ERROR]:call PSSP_SetStartupMode failed."));

  testsupport::ClearMainLog();
  RemoveSupportLibrary();
  op = RunOperation(BOOT_InitOperSetStartupMode, {"local"});
  EXPECT_EQ(op.result, 0xFFFFFFFFu);
  EXPECT_EQ(StoredModeNow(), "0");
}

TEST_F(SetStartupModeOperTest, ThroughTheDispatcher) {
  StoredMode("0");
  const auto op = RunOperation(BOOT_INIT_DoOperation, {"11", "local"});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "");
  EXPECT_EQ(StoredModeNow(), "1");
}

// ---- operation 10 ----

TEST_F(GetStartupModeOperTest, Local) {
  StoredMode("1");
  const auto op = RunOperation(BOOT_InitOperGetStartupMode, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nSTARTUP_MODE:local\n");
  EXPECT_THAT(MainLog(),
              ElementsAre(kDlopenSuccess, kLoadGet, "[BOOT_INIT][INFO]:Get startup mode :1"));
  EXPECT_FALSE(SupportLibraryLoaded());
}

TEST_F(GetStartupModeOperTest, Network) {
  StoredMode("0");
  const auto op = RunOperation(BOOT_InitOperGetStartupMode, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nSTARTUP_MODE:network\n");
  EXPECT_THAT(MainLog(),
              ElementsAre(kDlopenSuccess, kLoadGet, "[BOOT_INIT][INFO]:Get startup mode :0"));
}

TEST_F(GetStartupModeOperTest, MissingLibraryAnswersNetwork) {
  StoredMode("1");
  RemoveSupportLibrary();
  const auto op = RunOperation(BOOT_InitOperGetStartupMode, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nSTARTUP_MODE:network\n");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][WARNING]:get startup mode dlopen "
                                     "libsupport_linux.so unsuccessful, err(" +
                                         OpenFailure() + ")",
                                     "[BOOT_INIT][INFO]:Get startup mode :0"));
}

TEST_F(GetStartupModeOperTest, MissingEntryPointAnswersNetwork) {
  StoredMode("1");
  SupportLibraryWithoutEntryPoints();
  const auto op = RunOperation(BOOT_InitOperGetStartupMode, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nSTARTUP_MODE:network\n");
  EXPECT_THAT(MainLog(), ElementsAre(kDlopenSuccess,
                                     "[BOOT_INIT][ERROR]:load PSSP_GetStartupMode failed, err(" +
                                         MissingEntry("PSSP_GetStartupMode") + ")",
                                     "[BOOT_INIT][INFO]:Get startup mode :0"));
}

TEST_F(GetStartupModeOperTest, NothingStoredAnswersNetwork) {
  testsupport::UnsetEnv("startup_mode");
  const auto op = RunOperation(BOOT_InitOperGetStartupMode, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nSTARTUP_MODE:network\n");
  EXPECT_THAT(MainLog(), ElementsAre(kDlopenSuccess, kLoadGet,
                                     "[BOOT_INIT][ERROR]:call PSSP_GetStartupMode failed.",
                                     "[BOOT_INIT][INFO]:Get startup mode :0"));
}

TEST_F(GetStartupModeOperTest, AnyArgumentIsRefused) {
  StoredMode("1");
  const auto op = RunOperation(BOOT_InitOperGetStartupMode, {"local"});
  EXPECT_EQ(op.result, 1u);
  EXPECT_EQ(op.out, "");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Argv invalid. Argc num must be 0"));
}

TEST_F(GetStartupModeOperTest, ThroughTheDispatcher) {
  StoredMode("1");
  const auto op = RunOperation(BOOT_INIT_DoOperation, {"10"});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nSTARTUP_MODE:local\n");
}

// ---- operation 9 ----

TEST_F(GetBackPathOperTest, PrintsTheBackupDirectory) {
  const auto op = RunOperation(BOOT_InitOperGetBackPath, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nBACK_PATH:/opt/kytv8/backup\n");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:Get back path: /opt/kytv8/backup"));
  EXPECT_FALSE(SupportLibraryLoaded());
}

TEST_F(GetBackPathOperTest, FailedSupportCallWithAnExistingDirectorySucceeds) {
  testsupport::DescribeBoard(testsupport::ActiveMainBoard(), {{"fail.PSSP_GetBackUpPath", "0x5"}});
  const auto op = RunOperation(BOOT_InitOperGetBackPath, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nBACK_PATH:/opt/kytv8/backup\n");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:call PSSP_GetBackUpPath failed.",
                                     "[BOOT_INIT][INFO]:Get back path: /opt/kytv8/backup"));
}

TEST_F(GetBackPathOperTest, MissingDirectoryFails) {
  testsupport::DescribeBoard(testsupport::ActiveMainBoard(),
                             {{"support.backup_dir", "/opt/kytv8/nobackup"}});
  const auto op = RunOperation(BOOT_InitOperGetBackPath, {});
  EXPECT_EQ(op.result, 1u);
  EXPECT_EQ(op.out, "");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:GetBackUpPath: "
                                     "highMemPath(/opt/kytv8/nobackup) is not exist",
                                     kBackPathFailed));
}

TEST_F(GetBackPathOperTest, PathOf31CharactersFitsAndOf32DoesNot) {
  const std::string dir31 = "/opt/kytv8/backup/" + std::string(13, 'b');
  ASSERT_EQ(dir31.size(), 31u);
  testsupport::MakeDir(dir31);
  testsupport::DescribeBoard(testsupport::ActiveMainBoard(), {{"support.backup_dir", dir31}});
  auto op = RunOperation(BOOT_InitOperGetBackPath, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nBACK_PATH:" + dir31 + "\n");

  testsupport::ClearMainLog();
  const std::string dir32 = dir31 + "c";
  testsupport::MakeDir(dir32);
  testsupport::DescribeBoard(testsupport::ActiveMainBoard(), {{"support.backup_dir", dir32}});
  op = RunOperation(BOOT_InitOperGetBackPath, {});
  EXPECT_EQ(op.result, 1u);
  EXPECT_EQ(op.out, "");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:call PSSP_GetBackUpPath failed.",
                                     "[BOOT_INIT][ERROR]:GetBackUpPath: highMemPath() is not exist",
                                     kBackPathFailed));
}

TEST_F(GetBackPathOperTest, MissingLibraryFails) {
  RemoveSupportLibrary();
  const auto op = RunOperation(BOOT_InitOperGetBackPath, {});
  EXPECT_EQ(op.result, 1u);
  EXPECT_EQ(op.out, "");
  const auto log = MainLog();
  ASSERT_FALSE(log.empty());
  EXPECT_EQ(log.front(),
            "[BOOT_INIT][WARNING]:get backup path dlopen libsupport_linux.so "
            "unsuccessful, err(" +
                OpenFailure() + ")");
  EXPECT_EQ(log.back(), kBackPathFailed);
}

TEST_F(GetBackPathOperTest, AnyArgumentIsRefused) {
  const auto op = RunOperation(BOOT_InitOperGetBackPath, {"x"});
  EXPECT_EQ(op.result, 1u);
  EXPECT_EQ(op.out, "");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Argv invalid. Argc num must be 0"));
}

TEST_F(GetBackPathOperTest, ThroughTheDispatcher) {
  const auto op = RunOperation(BOOT_INIT_DoOperation, {"9"});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nBACK_PATH:/opt/kytv8/backup\n");
}

}  // namespace
