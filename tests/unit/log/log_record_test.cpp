#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "board_files.hpp"
#include "bootinit/log.h"
#include "log_faults.hpp"

using testing::ElementsAre;
using testsupport::MainLog;
using testsupport::RemovePath;
using testsupport::WriteFile;

namespace {

const char *const kNoCfgError =
    "[BOOT_INIT][ERROR]:Get value from cfg failed, open file /etc/swm_user.conf failed, ret=2, "
    "errno=2.";
const char *const kDefaultWarningEmpty =
    "[BOOT_INIT][WARNING]:Get log path from cfg, key is: swm_log_path, value is: . Using default.";

class LogRecordTest : public testing::Test {
 protected:
  void SetUp() override {
    logfaults::Reset();
    RemovePath("/etc/swm_user.conf");
    RemovePath("/opt/startup.ini");
    RemovePath("/var/lib/swm");
    RemovePath("/opt/kytv8");
    RemovePath("/data");
    std::memset(BOOT_INIT_GetLogInfo(), 0, sizeof(BOOT_INIT_LOG_INFO_S));
    std::memset(BOOT_INIT_GetSafeLogInfo(), 0, sizeof(BOOT_INIT_LOG_INFO_S));
    std::memset(BOOT_INIT_GetDcSafeLogInfo(), 0, sizeof(BOOT_INIT_LOG_INFO_S));
  }
  void TearDown() override { logfaults::Reset(); }
};

void ExpectRecord(const BOOT_INIT_LOG_INFO_S *record, uint64_t maxLen, uint64_t curLen,
                  const char *dir, const char *name) {
  EXPECT_EQ(record->maxLen, maxLen);
  EXPECT_EQ(record->curLen, curLen);
  EXPECT_STREQ(record->dir, dir);
  EXPECT_STREQ(record->fileName, name);
  EXPECT_EQ(record->reserved, 0u);
}

TEST_F(LogRecordTest, InitFillsAllThreeRecords) {
  EXPECT_EQ(BOOT_INIT_LogInit(), 0u);
  // The main record's length already counts the lines the security log's set-up wrote to it.
  const uint64_t mainText = testsupport::LogText(testsupport::kMainLogPath, 0).size();
  ASSERT_GT(mainText, 0u);
  ExpectRecord(BOOT_INIT_GetLogInfo(), 523776, mainText, "/var/lib/swm/workdir/var/log",
               "app_boot.log");
  ExpectRecord(BOOT_INIT_GetSafeLogInfo(), 65536, 0, "/var/lib/swm/workdir/var/log",
               "boot_security.log");
  ExpectRecord(BOOT_INIT_GetDcSafeLogInfo(), 65536, 0, "/opt/kytv8/var/log", "boot_security.log");
}

TEST_F(LogRecordTest, MissingUserFileIsReportedOnceThroughTheSafeLogInit) {
  // The main record is cleared while its own directory is looked up, so only the lookup made
  // for the security log reaches the main log.
  EXPECT_EQ(BOOT_INIT_LogInit(), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(kNoCfgError, kDefaultWarningEmpty));
}

TEST_F(LogRecordTest, AbsoluteConfiguredPathMovesBothLogs) {
  WriteFile("/etc/swm_user.conf", "other=1\nswm_log_path = /data/logs \n");
  EXPECT_EQ(BOOT_INIT_LogInit(), 0u);
  EXPECT_STREQ(BOOT_INIT_GetLogInfo()->dir, "/data/logs");
  EXPECT_STREQ(BOOT_INIT_GetSafeLogInfo()->dir, "/data/logs");
  EXPECT_STREQ(BOOT_INIT_GetDcSafeLogInfo()->dir, "/opt/kytv8/var/log");
  BOOT_INIT_LogWrite(0, "[BOOT_INIT][INFO]:moved");
  EXPECT_THAT(testsupport::LogMessages("/data/logs/app_boot.log", 0),
              ElementsAre("[BOOT_INIT][INFO]:moved"));
  EXPECT_FALSE(std::filesystem::exists("/var/lib/swm"));
}

TEST_F(LogRecordTest, RelativeConfiguredPathIsRefusedWithTheWarning) {
  WriteFile("/etc/swm_user.conf", "swm_log_path=data/logs\n");
  EXPECT_EQ(BOOT_INIT_LogInit(), 0u);
  EXPECT_STREQ(BOOT_INIT_GetLogInfo()->dir, "/var/lib/swm/workdir/var/log");
  EXPECT_STREQ(BOOT_INIT_GetSafeLogInfo()->dir, "/var/lib/swm/workdir/var/log");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][WARNING]:Get log path from cfg, key is: "
                                     "swm_log_path, value is: data/logs. Using default."));
}

TEST_F(LogRecordTest, RootPathOfStartupIniMovesTheDefaultDirectory) {
  WriteFile("/opt/startup.ini", "[RootPath]\nRootPath=/data\n");
  EXPECT_EQ(BOOT_INIT_LogInit(), 0u);
  EXPECT_STREQ(BOOT_INIT_GetLogInfo()->dir, "/data/swm/workdir/var/log");
  EXPECT_THAT(testsupport::LogMessages("/data/swm/workdir/var/log/app_boot.log", 0),
              ElementsAre(kNoCfgError, kDefaultWarningEmpty));
}

TEST_F(LogRecordTest, EmptyRootPathFallsBackToVarLib) {
  WriteFile("/opt/startup.ini", "[RootPath]\nRootPath=\n");
  EXPECT_EQ(BOOT_INIT_LogInit(), 0u);
  EXPECT_STREQ(BOOT_INIT_GetLogInfo()->dir, "/var/lib/swm/workdir/var/log");
}

TEST_F(LogRecordTest, SecondSafeInitKeepsTheRecords) {
  ASSERT_EQ(BOOT_INIT_LogInit(), 0u);
  BOOT_INIT_GetSafeLogInfo()->curLen = 77;
  BOOT_INIT_GetDcSafeLogInfo()->curLen = 88;
  WriteFile("/etc/swm_user.conf", "swm_log_path=/data/other\n");
  EXPECT_EQ(BOOT_INIT_SafeLogInit(), 0u);
  EXPECT_EQ(BOOT_INIT_DcSafeLogInit(), 0u);
  EXPECT_STREQ(BOOT_INIT_GetSafeLogInfo()->dir, "/var/lib/swm/workdir/var/log");
  EXPECT_EQ(BOOT_INIT_GetSafeLogInfo()->curLen, 77u);
  EXPECT_EQ(BOOT_INIT_GetDcSafeLogInfo()->curLen, 88u);
}

TEST_F(LogRecordTest, SecondLogInitResetsOnlyTheMainRecord) {
  ASSERT_EQ(BOOT_INIT_LogInit(), 0u);
  BOOT_INIT_GetLogInfo()->curLen = 5;
  BOOT_INIT_GetSafeLogInfo()->curLen = 77;
  WriteFile("/etc/swm_user.conf", "swm_log_path=/data/other\n");
  EXPECT_EQ(BOOT_INIT_LogInit(), 0u);
  EXPECT_STREQ(BOOT_INIT_GetLogInfo()->dir, "/data/other");
  EXPECT_EQ(BOOT_INIT_GetLogInfo()->curLen, 0u);
  EXPECT_STREQ(BOOT_INIT_GetSafeLogInfo()->dir, "/var/lib/swm/workdir/var/log");
  EXPECT_EQ(BOOT_INIT_GetSafeLogInfo()->curLen, 77u);
}

TEST_F(LogRecordTest, FailedSafeInitsAreOnlyWarnings) {
  logfaults::Get().failStrcpyOf = "boot_security.log";
  EXPECT_EQ(BOOT_INIT_LogInit(), 0u);
  logfaults::Reset();
  EXPECT_THAT(MainLog(), ElementsAre(kNoCfgError, kDefaultWarningEmpty,
                                     "[BOOT_INIT][WARNING]:Can not init safe log! ret = 0xffffffff",
                                     "[BOOT_INIT][WARNING]:Can not init dc safe log! ret = "
                                     "0xffffffff"));
}

TEST_F(LogRecordTest, FailedMainNameCopyIsLoggedAndInitGoesOn) {
  // The main record is the one being filled, so its own message cannot reach a file; the init
  // still finishes the security records and returns success.
  logfaults::Get().failStrcpyOf = "app_boot.log";
  EXPECT_EQ(BOOT_INIT_LogInit(), 0u);
  logfaults::Reset();
  EXPECT_STREQ(BOOT_INIT_GetLogInfo()->fileName, "");
  EXPECT_STREQ(BOOT_INIT_GetSafeLogInfo()->fileName, "boot_security.log");
}

TEST_F(LogRecordTest, RecordsByType) {
  EXPECT_EQ(BOOT_INIT_GetLogInfoByType(0), BOOT_INIT_GetLogInfo());
  EXPECT_EQ(BOOT_INIT_GetLogInfoByType(1), BOOT_INIT_GetSafeLogInfo());
  EXPECT_EQ(BOOT_INIT_GetLogInfoByType(2), BOOT_INIT_GetDcSafeLogInfo());
  EXPECT_EQ(BOOT_INIT_GetLogInfoByType(3), nullptr);
  EXPECT_EQ(BOOT_INIT_GetLogInfoByType(-1), nullptr);
}

TEST_F(LogRecordTest, GetLogPathAlwaysSucceeds) {
  char dir[256] = {};
  EXPECT_EQ(BOOT_INIT_GetLogPath(dir, sizeof(dir)), 0u);
  EXPECT_STREQ(dir, "/var/lib/swm/workdir/var/log");
  EXPECT_EQ(BOOT_INIT_GetLogPath(nullptr, 256), 0u);
  char tiny[8] = {};
  EXPECT_EQ(BOOT_INIT_GetLogPath(tiny, sizeof(tiny)), 0u);
}

TEST_F(LogRecordTest, WritesBeforeInitGoNowhere) {
  BOOT_INIT_LogWrite(0, "[BOOT_INIT][INFO]:early");
  BOOT_INIT_LogWrite(1, "[BOOT_INIT][SECURITY]early");
  BOOT_INIT_LogWrite(2, "[BOOT_INIT][SECURITY]early");
  EXPECT_FALSE(std::filesystem::exists("/var/lib/swm"));
  EXPECT_FALSE(std::filesystem::exists("/opt/kytv8"));
  EXPECT_FALSE(std::filesystem::exists("/app_boot.log"));
}

}  // namespace
