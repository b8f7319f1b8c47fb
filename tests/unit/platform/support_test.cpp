// Tests of libsupport_linux: the startup mode kept in the boot environment, the backup
// directory of the board description, forced failures, and its place in the build tree.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "board_env_files.hpp"
#include "support_linux.h"

namespace {

using boardtest::PrintEnv;
using boardtest::SetEnvTool;

std::string BackUpPath(uint32_t size, uint32_t *status) {
  std::string buf(size + 1, 'X');
  *status = PSSP_GetBackUpPath(buf.data(), size);
  return std::string(buf.c_str());
}

class SupportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    boardtest::PrepareBoard("[board]\nname=demo\n");
    ASSERT_EQ(SetEnvTool("cpu_id", "0"), 0);  // a valid environment without startup_mode
  }
};

TEST_F(SupportTest, ModeNotSetYet) {
  uint32_t mode = 7;
  EXPECT_EQ(PSSP_GetStartupMode(&mode), PSSP_ERR_NOT_SET);
  EXPECT_EQ(mode, 7u);
}

TEST_F(SupportTest, ModeRoundTrip) {
  uint32_t mode = 7;
  ASSERT_EQ(PSSP_SetStartupMode(1), 0u);
  EXPECT_EQ(PSSP_GetStartupMode(&mode), 0u);
  EXPECT_EQ(mode, 1u);
  EXPECT_EQ(PrintEnv("startup_mode").text, "startup_mode=1\n");
  ASSERT_EQ(PSSP_SetStartupMode(0), 0u);
  EXPECT_EQ(PSSP_GetStartupMode(&mode), 0u);
  EXPECT_EQ(mode, 0u);
  EXPECT_EQ(PrintEnv("startup_mode").text, "startup_mode=0\n");
  EXPECT_EQ(PrintEnv("cpu_id").text, "cpu_id=0\n");  // the other variables stay
}

TEST_F(SupportTest, ModeWrittenByTheTool) {
  ASSERT_EQ(SetEnvTool("startup_mode", "1"), 0);
  uint32_t mode = 7;
  EXPECT_EQ(PSSP_GetStartupMode(&mode), 0u);
  EXPECT_EQ(mode, 1u);
}

TEST_F(SupportTest, OnlyModesZeroAndOne) {
  ASSERT_EQ(PSSP_SetStartupMode(1), 0u);
  EXPECT_EQ(PSSP_SetStartupMode(2), PSSP_ERR_PARAM);
  EXPECT_EQ(PSSP_SetStartupMode(0xFFFFFFFFu), PSSP_ERR_PARAM);
  EXPECT_EQ(PSSP_GetStartupMode(nullptr), PSSP_ERR_PARAM);
  EXPECT_EQ(PrintEnv("startup_mode").text, "startup_mode=1\n");
}

TEST_F(SupportTest, StoredValuesOtherThanZeroOrOne) {
  for (const char *stored : {"2", "01", "1 ", "network", "", "0123456789abcdefghij"}) {
    ASSERT_EQ(SetEnvTool("startup_mode", stored), 0) << stored;
    uint32_t mode = 7;
    EXPECT_EQ(PSSP_GetStartupMode(&mode), PSSP_ERR_STORE) << "'" << stored << "'";
    EXPECT_EQ(mode, 7u);
  }
}

TEST_F(SupportTest, EnvironmentUnusable) {
  boardtest::RemovePath(boardtest::kEnvConfig);
  uint32_t mode = 7;
  EXPECT_EQ(PSSP_GetStartupMode(&mode), PSSP_ERR_STORE);
  EXPECT_EQ(PSSP_SetStartupMode(1), PSSP_ERR_STORE);
  boardtest::WriteEnvConfig();
  boardtest::WriteFreshImage();
  EXPECT_EQ(PSSP_GetStartupMode(&mode), PSSP_ERR_STORE);
  EXPECT_EQ(mode, 7u);
}

TEST_F(SupportTest, BackUpPath) {
  boardtest::WriteDescription("[support]\nbackup_dir=/opt/kytv8/backup\n");
  uint32_t status = 99;
  EXPECT_EQ(BackUpPath(64, &status), "/opt/kytv8/backup");
  EXPECT_EQ(status, 0u);
  EXPECT_EQ(BackUpPath(18, &status), "/opt/kytv8/backup");  // exactly fits
  EXPECT_EQ(status, 0u);
  EXPECT_EQ(BackUpPath(17, &status), "");
  EXPECT_EQ(status, PSSP_ERR_TOO_LONG);
}

TEST_F(SupportTest, BackUpPathNotDescribed) {
  uint32_t status = 0;
  EXPECT_EQ(BackUpPath(64, &status), "");
  EXPECT_EQ(status, PSSP_ERR_NOT_SET);
  boardtest::WriteDescription("[support]\nbackup_dir=\n");
  EXPECT_EQ(BackUpPath(64, &status), "");
  EXPECT_EQ(status, PSSP_ERR_NOT_SET);
  boardtest::WriteDescription("[support]\nbackup_dir\n");  // malformed
  EXPECT_EQ(BackUpPath(64, &status), "");
  EXPECT_EQ(status, PSSP_ERR_NOT_SET);
}

TEST_F(SupportTest, BackUpPathParameters) {
  char buf[4] = "old";
  EXPECT_EQ(PSSP_GetBackUpPath(nullptr, 10), PSSP_ERR_PARAM);
  EXPECT_EQ(PSSP_GetBackUpPath(buf, 0), PSSP_ERR_PARAM);
  EXPECT_STREQ(buf, "old");
}

TEST_F(SupportTest, ForcedFailureOfBackUpPathStillNamesTheDirectory) {
  std::filesystem::create_directories("/opt/backup");
  boardtest::WriteDescription(
      "[support]\nbackup_dir=/opt/backup\n[fail]\nPSSP_GetBackUpPath=0x10\n");
  uint32_t status = 0;
  const std::string path = BackUpPath(64, &status);
  EXPECT_EQ(status, 0x10u);
  EXPECT_EQ(path, "/opt/backup");
  EXPECT_TRUE(std::filesystem::is_directory(path));
}

TEST_F(SupportTest, ForcedFailureOfGetStillWritesTheMode) {
  ASSERT_EQ(PSSP_SetStartupMode(1), 0u);
  boardtest::WriteDescription("[fail]\nPSSP_GetStartupMode=5\n");
  uint32_t mode = 7;
  EXPECT_EQ(PSSP_GetStartupMode(&mode), 5u);
  EXPECT_EQ(mode, 1u);
}

TEST_F(SupportTest, ForcedFailureOfSetStoresNothing) {
  ASSERT_EQ(PSSP_SetStartupMode(1), 0u);
  boardtest::WriteDescription("[fail]\nPSSP_SetStartupMode=6\n");
  EXPECT_EQ(PSSP_SetStartupMode(0), 6u);
  EXPECT_EQ(PSSP_SetStartupMode(3), PSSP_ERR_PARAM);
  EXPECT_EQ(PrintEnv("startup_mode").text, "startup_mode=1\n");
}

TEST_F(SupportTest, DriverFailuresShowAsStoreErrors) {
  ASSERT_EQ(PSSP_SetStartupMode(1), 0u);
  boardtest::WriteDescription("[fail]\ndrv_env_get=9\ndrv_env_set=9\n");
  uint32_t mode = 7;
  EXPECT_EQ(PSSP_GetStartupMode(&mode), PSSP_ERR_STORE);
  EXPECT_EQ(PSSP_SetStartupMode(0), PSSP_ERR_STORE);
  EXPECT_EQ(PrintEnv("startup_mode").text, "startup_mode=1\n");
}

TEST_F(SupportTest, LoadableByItsPlainNameOnlyFromTheRuntimeDirectory) {
  const std::filesystem::path library(SUPPORT_PATH);
  EXPECT_EQ(library.filename(), "libsupport_linux.so");
  EXPECT_EQ(library.parent_path().filename(), "runtime");
  const std::filesystem::path libDir = library.parent_path().parent_path();
  EXPECT_FALSE(std::filesystem::exists(libDir / "libsupport_linux.so"));
  void *handle = dlopen(SUPPORT_PATH, RTLD_NOW | RTLD_GLOBAL);
  ASSERT_NE(handle, nullptr) << dlerror();
  for (const char *name : {"PSSP_SetStartupMode", "PSSP_GetStartupMode", "PSSP_GetBackUpPath"}) {
    EXPECT_NE(dlsym(handle, name), nullptr) << name;
  }
  dlclose(handle);
}

TEST_F(SupportTest, LoadsWithTheMinimalDriver) {
  // The minimal driver lacks drv_env_set: the library still loads, reads the mode, and fails to
  // set it with PSSP_ERR_STORE.
  ASSERT_EQ(SetEnvTool("startup_mode", "0"), 0);
  const std::string minimalDir = std::filesystem::path(DRV_MINIMAL_PATH).parent_path().string();
  const char *existing = std::getenv("LD_LIBRARY_PATH");
  const std::string libraryPath =
      minimalDir + (existing != nullptr && existing[0] != '\0' ? ":" + std::string(existing) : "");
  const boardtest::Output minimal =
      boardtest::Run("LD_LIBRARY_PATH='" + libraryPath + "' '" + SUPPORT_PROBE_PATH + "'");
  EXPECT_EQ(minimal.status, 0);
  EXPECT_EQ(minimal.text, "drv_env_set=0 set=4 get=0 mode=0\n");
  EXPECT_EQ(PrintEnv("startup_mode").text, "startup_mode=0\n");

  const boardtest::Output full = boardtest::Run(std::string("'") + SUPPORT_PROBE_PATH + "'");
  EXPECT_EQ(full.status, 0);
  EXPECT_EQ(full.text, "drv_env_set=1 set=0 get=0 mode=1\n");
}

TEST_F(SupportTest, NoDescriptorLeaks) {
  boardtest::WriteDescription("[support]\nbackup_dir=/opt/b\n[fail]\nPSSP_GetStartupMode=1\n");
  const int before = boardtest::CountOpenFds();
  char buf[32];
  uint32_t mode = 0;
  for (int i = 0; i < 30; ++i) {
    (void)PSSP_SetStartupMode(static_cast<uint32_t>(i % 2));
    (void)PSSP_GetStartupMode(&mode);
    (void)PSSP_GetBackUpPath(buf, sizeof(buf));
  }
  EXPECT_EQ(boardtest::CountOpenFds(), before);
}

}  // namespace
