#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "board_files.hpp"
#include "bootinit/log.h"
#include "log_faults.hpp"

using testing::ElementsAre;
using testsupport::kDcSafeLogPath;
using testsupport::kMainLogPath;
using testsupport::kSafeLogPath;
using testsupport::LogText;
using testsupport::ReadFile;

namespace {

// 2023-11-14 22:13:20 UTC
constexpr time_t kPinnedSeconds = 1700000000;
const std::string kStamp = "[2023-11-14 22:13:20.123456]";

class LogWriteTest : public testing::Test {
 protected:
  void SetUp() override {
    logfaults::Reset();
    ::setenv("TZ", "UTC", 1);
    testsupport::StartWithEmptyLogs();
    PinTime(123456);
  }
  void TearDown() override {
    logfaults::Reset();
    ::unsetenv("TZ");
  }
  static void PinTime(long micros) {
    logfaults::Get().pinTime = true;
    logfaults::Get().time = {kPinnedSeconds, micros};
  }
};

TEST_F(LogWriteTest, TimeStampShowsTheMicrosecondCount) {
  char stamp[128] = {};
  BOOT_INIT_GetCurTime(stamp, sizeof(stamp));
  EXPECT_STREQ(stamp, kStamp.c_str());
  PinTime(42);
  BOOT_INIT_GetCurTime(stamp, sizeof(stamp));
  EXPECT_STREQ(stamp, "[2023-11-14 22:13:20.042]");
  PinTime(0);
  BOOT_INIT_GetCurTime(stamp, sizeof(stamp));
  EXPECT_STREQ(stamp, "[2023-11-14 22:13:20.000]");
  PinTime(999999);
  BOOT_INIT_GetCurTime(stamp, sizeof(stamp));
  EXPECT_STREQ(stamp, "[2023-11-14 22:13:20.999999]");
}

TEST_F(LogWriteTest, TimeStampUsesLocalTime) {
  ::setenv("TZ", "CET-1", 1);
  char stamp[128] = {};
  BOOT_INIT_GetCurTime(stamp, sizeof(stamp));
  EXPECT_STREQ(stamp, "[2023-11-14 23:13:20.123456]");
}

TEST_F(LogWriteTest, TimeStampIgnoresAnEmptyBuffer) { BOOT_INIT_GetCurTime(nullptr, 128); }

TEST_F(LogWriteTest, LineIsStampMessageAndLineFeedWithNothingBetween) {
  BOOT_INIT_LogWrite(0, "[BOOT_INIT][INFO]:value %d, name %s", 7, "x");
  const std::string expected = kStamp + "[BOOT_INIT][INFO]:value 7, name x\n";
  ASSERT_EQ(expected.size(), 62u);
  EXPECT_EQ(ReadFile(kMainLogPath), std::string("\x3e\0\0\0\0\0\0\0", 8) + expected);
}

TEST_F(LogWriteTest, LongestLineThatFitsIsWritten) {
  // 28 stamp characters + 993 = 1021 characters, then the line feed.
  const std::string message(1021 - kStamp.size(), 'm');
  BOOT_INIT_LogWrite(0, "%s", message.c_str());
  EXPECT_EQ(LogText(kMainLogPath, 0), kStamp + message + "\n");
}

TEST_F(LogWriteTest, LineFillingTheBufferIsDroppedWhole) {
  for (std::size_t total : {1022u, 1023u, 1024u, 5000u}) {
    BOOT_INIT_LogWrite(0, "%s", std::string(total - kStamp.size(), 'm').c_str());
  }
  BOOT_INIT_LogWrite(0, "[BOOT_INIT][INFO]:after");
  EXPECT_EQ(LogText(kMainLogPath, 0), kStamp + "[BOOT_INIT][INFO]:after\n");
}

TEST_F(LogWriteTest, ShorterStampLeavesMoreRoom) {
  PinTime(42);  // ".042": the stamp is three characters shorter
  const std::string stamp = "[2023-11-14 22:13:20.042]";
  const std::string message(1021 - stamp.size(), 'm');
  BOOT_INIT_LogWrite(0, "%s", message.c_str());
  EXPECT_EQ(LogText(kMainLogPath, 0), stamp + message + "\n");
}

TEST_F(LogWriteTest, UnknownTypesAndEmptyFormatWriteNothing) {
  BOOT_INIT_LogWrite(3, "[BOOT_INIT][INFO]:three");
  BOOT_INIT_LogWrite(-1, "[BOOT_INIT][INFO]:minus one");
  BOOT_INIT_LogWrite(0, nullptr);
  EXPECT_FALSE(std::filesystem::exists(kMainLogPath));
  EXPECT_FALSE(std::filesystem::exists(kSafeLogPath));
  EXPECT_FALSE(std::filesystem::exists(kDcSafeLogPath));
}

TEST_F(LogWriteTest, EachTypeGoesToItsFileWithItsHeader) {
  BOOT_INIT_LogWrite(0, "[BOOT_INIT][INFO]:main");
  BOOT_INIT_LogWrite(1, "[BOOT_INIT][SECURITY]safe");
  BOOT_INIT_LogWrite(2, "[BOOT_INIT][SECURITY]dc");
  const std::string safeLine = kStamp + "[BOOT_INIT][SECURITY]safe\n";
  const std::string dcLine = kStamp + "[BOOT_INIT][SECURITY]dc\n";
  const uint64_t safeLen = safeLine.size();
  const uint32_t dcHeader[3] = {static_cast<uint32_t>(dcLine.size()), 0, 0};
  EXPECT_EQ(LogText(kMainLogPath, 0), kStamp + "[BOOT_INIT][INFO]:main\n");
  EXPECT_EQ(ReadFile(kSafeLogPath), std::string(reinterpret_cast<const char *>(&safeLen), 8) +
                                        std::string(2, '\0') + safeLine);
  EXPECT_EQ(ReadFile(kDcSafeLogPath),
            std::string(reinterpret_cast<const char *>(dcHeader), 12) + dcLine);
}

TEST_F(LogWriteTest, MissingFileIsCreatedAgainWithOwnerAndMode) {
  BOOT_INIT_LogWrite(0, "[BOOT_INIT][INFO]:first");
  testsupport::RemovePath(kMainLogPath);
  BOOT_INIT_LogWrite(0, "[BOOT_INIT][INFO]:second");
  EXPECT_EQ(LogText(kMainLogPath, 0), kStamp + "[BOOT_INIT][INFO]:second\n");
  const struct stat st = testsupport::StatOf(kMainLogPath);
  EXPECT_EQ(st.st_mode & 07777, 0640u);
  EXPECT_EQ(st.st_uid, 2000u);
}

TEST_F(LogWriteTest, UncreatableDirectoryLosesTheLine) {
  testsupport::WriteFile("/opt/blocker", "x");
  BOOT_INIT_LOG_INFO_S *record = BOOT_INIT_GetLogInfo();
  std::strcpy(record->dir, "/opt/blocker/log");
  BOOT_INIT_LogWrite(0, "[BOOT_INIT][INFO]:lost");
  EXPECT_EQ(ReadFile("/opt/blocker"), "x");
}

}  // namespace
