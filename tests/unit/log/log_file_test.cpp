#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "board_files.hpp"
#include "bootinit/log.h"
#include "log_faults.hpp"
#include "swm.h"

using testing::ElementsAre;
using testsupport::kDcSafeLogPath;
using testsupport::kMainLogPath;
using testsupport::kSafeLogPath;
using testsupport::ReadFile;
using testsupport::ReadLe;
using testsupport::WriteFile;

namespace {

std::string Header8(uint64_t length) { return std::string(reinterpret_cast<char *>(&length), 8); }

std::string Header12(uint32_t length, uint32_t reserved, uint32_t wrapLen) {
  const uint32_t words[3] = {length, reserved, wrapLen};
  return std::string(reinterpret_cast<const char *>(words), 12);
}

class LogFileTest : public testing::Test {
 protected:
  void SetUp() override {
    logfaults::Reset();
    testsupport::StartWithEmptyLogs();
  }
  void TearDown() override { logfaults::Reset(); }
};

TEST_F(LogFileTest, CreateMakesDirectoryChainFileHeaderOwnerAndModes) {
  testsupport::RemovePath("/var/lib/swm");
  EXPECT_EQ(BOOT_INIT_CreateLogFile(BOOT_INIT_GetLogInfo()), 0u);
  EXPECT_EQ(ReadFile(kMainLogPath), std::string(8, '\0'));
  const struct stat file = testsupport::StatOf(kMainLogPath);
  EXPECT_EQ(file.st_mode & 07777, 0640u);
  EXPECT_EQ(file.st_uid, 2000u);
  EXPECT_EQ(file.st_gid, 2000u);
  for (const char *dir : {"/var/lib/swm", "/var/lib/swm/workdir", "/var/lib/swm/workdir/var",
                          "/var/lib/swm/workdir/var/log"}) {
    const struct stat st = testsupport::StatOf(dir);
    EXPECT_EQ(st.st_mode & 07777, 0750u) << dir;
    EXPECT_EQ(st.st_uid, 2000u) << dir;
  }
}

TEST_F(LogFileTest, CreateDcWritesTwelveZeroBytes) {
  BOOT_INIT_GetDcSafeLogInfo()->curLen = 9;
  EXPECT_EQ(BOOT_INIT_CreateDcLogFile(BOOT_INIT_GetDcSafeLogInfo()), 0u);
  EXPECT_EQ(ReadFile(kDcSafeLogPath), std::string(12, '\0'));
  EXPECT_EQ(BOOT_INIT_GetDcSafeLogInfo()->curLen, 0u);
  EXPECT_EQ(testsupport::StatOf("/opt/kytv8/var/log").st_mode & 07777, 0750u);
}

TEST_F(LogFileTest, CreateLeavesAnExistingFileAlone) {
  WriteFile(kMainLogPath, Header8(3) + "abc");
  BOOT_INIT_GetLogInfo()->curLen = 3;
  EXPECT_EQ(BOOT_INIT_CreateLogFile(BOOT_INIT_GetLogInfo()), 0u);
  EXPECT_EQ(ReadFile(kMainLogPath), Header8(3) + "abc");
  EXPECT_EQ(BOOT_INIT_GetLogInfo()->curLen, 3u);
}

TEST_F(LogFileTest, CreateReturnsTheDirectoryHelpersFailure) {
  WriteFile("/opt/blocker", "a file where a directory should be");
  BOOT_INIT_LOG_INFO_S record = *BOOT_INIT_GetLogInfo();
  std::strcpy(record.dir, "/opt/blocker/logs");
  const uint32_t expected = SWM_MkParentDir("/opt/blocker/logs", 2000, 2000, 0750);
  ASSERT_NE(expected, 0u);
  EXPECT_EQ(BOOT_INIT_CreateLogFile(&record), expected);
}

TEST_F(LogFileTest, CreateTakesTheLongestPathTheRecordCanHold) {
  // 255 characters of directory, "/" and 127 of name: the 383 characters the path buffer holds.
  BOOT_INIT_LOG_INFO_S record = *BOOT_INIT_GetLogInfo();
  const std::string dir = "/opt/" + std::string(250, 'd');
  std::strcpy(record.dir, dir.c_str());
  std::strcpy(record.fileName, std::string(127, 'f').c_str());
  EXPECT_EQ(BOOT_INIT_CreateLogFile(&record), 0u);
  EXPECT_EQ(ReadFile(dir + "/" + std::string(127, 'f')), std::string(8, '\0'));
}

TEST_F(LogFileTest, CreateRefusesAnEmptyRecord) {
  EXPECT_EQ(BOOT_INIT_CreateLogFile(nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_CreateDcLogFile(nullptr), 0xFFFFFFFFu);
}

TEST_F(LogFileTest, TypeOneFileHoldsHeaderGapThenLine) {
  BOOT_INIT_WriteLogFile(1, kSafeLogPath.c_str(), "[BOOT_INIT][SECURITY]one\n");
  // The file did not exist: opened with create, no header written, so the gap is a hole.
  const std::string bytes = ReadFile(kSafeLogPath);
  ASSERT_EQ(bytes.size(), 10u + 25u);
  EXPECT_EQ(ReadLe<uint64_t>(bytes, 0), 25u);
  EXPECT_EQ(bytes.substr(8, 2), std::string(2, '\0'));
  EXPECT_EQ(bytes.substr(10), "[BOOT_INIT][SECURITY]one\n");
}

TEST_F(LogFileTest, TypeOneGapBytesAreNeverWritten) {
  WriteFile(kSafeLogPath, Header8(0) + "XY");
  BOOT_INIT_WriteLogFile(1, kSafeLogPath.c_str(), "line\n");
  BOOT_INIT_WriteLogFile(1, kSafeLogPath.c_str(), "next\n");
  EXPECT_EQ(ReadFile(kSafeLogPath), Header8(10) + "XY" + "line\nnext\n");
}

TEST_F(LogFileTest, TypeZeroTextStartsAtByteEight) {
  ASSERT_EQ(BOOT_INIT_CreateLogFile(BOOT_INIT_GetLogInfo()), 0u);
  BOOT_INIT_WriteLogFile(0, kMainLogPath.c_str(), "a\n");
  BOOT_INIT_WriteLogFile(0, kMainLogPath.c_str(), "bc\n");
  EXPECT_EQ(ReadFile(kMainLogPath), Header8(5) + "a\nbc\n");
  EXPECT_EQ(BOOT_INIT_GetLogInfo()->curLen, 5u);
}

TEST_F(LogFileTest, TypeTwoKeepsReservedWordAndWrapLength) {
  WriteFile(kDcSafeLogPath, Header12(0, 0xABCD1234, 77));
  BOOT_INIT_WriteLogFile(2, kDcSafeLogPath.c_str(), "dc\n");
  EXPECT_EQ(ReadFile(kDcSafeLogPath), Header12(3, 0xABCD1234, 77) + "dc\n");
}

TEST_F(LogFileTest, HeaderIsReReadSoAnotherWritersTextIsKept) {
  ASSERT_EQ(BOOT_INIT_CreateLogFile(BOOT_INIT_GetLogInfo()), 0u);
  BOOT_INIT_WriteLogFile(0, kMainLogPath.c_str(), "mine\n");
  // Another process appended meanwhile: its header says 10.
  WriteFile(kMainLogPath, Header8(10) + "mine\nyour\n");
  BOOT_INIT_WriteLogFile(0, kMainLogPath.c_str(), "more\n");
  EXPECT_EQ(ReadFile(kMainLogPath), Header8(15) + "mine\nyour\nmore\n");
}

TEST_F(LogFileTest, MainLogWrapsPastItsMaximum) {
  const std::string oldText(523777, 'o');
  WriteFile(kMainLogPath, Header8(523777) + oldText);
  BOOT_INIT_WriteLogFile(0, kMainLogPath.c_str(), "new\n");
  const std::string bytes = ReadFile(kMainLogPath);
  // Cut back to the maximum, then written at the text start; older text stays behind it.
  ASSERT_EQ(bytes.size(), 523776u);
  EXPECT_EQ(ReadLe<uint64_t>(bytes, 0), 4u);
  EXPECT_EQ(bytes.substr(8, 4), "new\n");
  EXPECT_EQ(bytes.substr(12, 3), "ooo");
}

TEST_F(LogFileTest, LengthEqualToTheMaximumDoesNotWrap) {
  WriteFile(kMainLogPath, Header8(523776) + std::string(523776, 'o'));
  BOOT_INIT_WriteLogFile(0, kMainLogPath.c_str(), "new\n");
  const std::string bytes = ReadFile(kMainLogPath);
  EXPECT_EQ(ReadLe<uint64_t>(bytes, 0), 523780u);
  EXPECT_EQ(bytes.size(), 8u + 523780u);
  EXPECT_EQ(bytes.substr(8 + 523776), "new\n");
}

TEST_F(LogFileTest, TypeTwoWrapRecordsTheLengthReached) {
  WriteFile(kDcSafeLogPath, Header12(65537, 5, 0) + std::string(65537, 'o'));
  BOOT_INIT_WriteLogFile(2, kDcSafeLogPath.c_str(), "wrapped\n");
  const std::string bytes = ReadFile(kDcSafeLogPath);
  EXPECT_EQ(bytes.substr(0, 12), Header12(8, 5, 65537));
  EXPECT_EQ(bytes.substr(12, 8), "wrapped\n");
  EXPECT_EQ(bytes.size(), 65536u);
}

TEST_F(LogFileTest, TypeOneWrapsAtItsOwnMaximum) {
  WriteFile(kSafeLogPath, Header8(65537) + "\0\0" + std::string(65537, 'o'));
  BOOT_INIT_WriteLogFile(1, kSafeLogPath.c_str(), "s\n");
  const std::string bytes = ReadFile(kSafeLogPath);
  EXPECT_EQ(ReadLe<uint64_t>(bytes, 0), 2u);
  EXPECT_EQ(bytes.substr(10, 2), "s\n");
}

TEST_F(LogFileTest, ShortHeaderKeepsTheCachedLength) {
  WriteFile(kMainLogPath, "abc");
  BOOT_INIT_GetLogInfo()->curLen = 2;
  BOOT_INIT_WriteLogFile(0, kMainLogPath.c_str(), "x\n");
  const std::string bytes = ReadFile(kMainLogPath);
  EXPECT_EQ(ReadLe<uint64_t>(bytes, 0), 4u);
  EXPECT_EQ(bytes.substr(10, 2), "x\n");
}

TEST_F(LogFileTest, FailedLockLosesTheLineAndLeavesNoDescriptor) {
  ASSERT_EQ(BOOT_INIT_CreateLogFile(BOOT_INIT_GetLogInfo()), 0u);
  const int fds = testsupport::CountOpenFds();
  logfaults::Get().failFlock = true;
  BOOT_INIT_WriteLogFile(0, kMainLogPath.c_str(), "lost\n");
  logfaults::Reset();
  EXPECT_EQ(ReadFile(kMainLogPath), std::string(8, '\0'));
  EXPECT_EQ(testsupport::CountOpenFds(), fds);
}

TEST_F(LogFileTest, FailedTruncateLosesTheLine) {
  const std::string full = Header8(523777) + std::string(523777, 'o');
  WriteFile(kMainLogPath, full);
  logfaults::Get().failFtruncate = true;
  BOOT_INIT_WriteLogFile(0, kMainLogPath.c_str(), "lost\n");
  logfaults::Reset();
  EXPECT_EQ(ReadFile(kMainLogPath), full);
}

TEST_F(LogFileTest, FailedSeekLosesTheLine) {
  ASSERT_EQ(BOOT_INIT_CreateLogFile(BOOT_INIT_GetLogInfo()), 0u);
  logfaults::Get().failSeekPastHead = true;
  BOOT_INIT_WriteLogFile(0, kMainLogPath.c_str(), "lost\n");
  logfaults::Reset();
  EXPECT_EQ(ReadFile(kMainLogPath), std::string(8, '\0'));
}

TEST_F(LogFileTest, FailedWriteLeavesTheHeaderUntouched) {
  WriteFile(kMainLogPath, Header8(2) + "a\n");
  logfaults::Get().failWrite = true;
  BOOT_INIT_WriteLogFile(0, kMainLogPath.c_str(), "lost\n");
  logfaults::Reset();
  EXPECT_EQ(ReadFile(kMainLogPath), Header8(2) + "a\n");
}

TEST_F(LogFileTest, UnusableArgumentsWriteNothing) {
  ASSERT_EQ(BOOT_INIT_CreateLogFile(BOOT_INIT_GetLogInfo()), 0u);
  BOOT_INIT_WriteLogFile(0, nullptr, "x\n");
  BOOT_INIT_WriteLogFile(0, kMainLogPath.c_str(), nullptr);
  BOOT_INIT_WriteLogFile(0, kMainLogPath.c_str(), "");
  BOOT_INIT_WriteLogFile(3, kMainLogPath.c_str(), "x\n");
  BOOT_INIT_WriteLogFile(-1, kMainLogPath.c_str(), "x\n");
  EXPECT_EQ(ReadFile(kMainLogPath), std::string(8, '\0'));
}

TEST_F(LogFileTest, UnopenablePathLosesTheLineQuietly) {
  std::filesystem::create_directories("/opt/adir");
  const int fds = testsupport::CountOpenFds();
  BOOT_INIT_WriteLogFile(0, "/opt/adir", "x\n");
  EXPECT_EQ(testsupport::CountOpenFds(), fds);
}

TEST_F(LogFileTest, HeaderHelpers) {
  const int fd = ::open("/opt/helpers.log", O_RDWR | O_CREAT | O_TRUNC, 0600);
  ASSERT_GE(fd, 0);
  BOOT_INIT_LOG_INFO_S record = {};
  record.curLen = 0x0102030405060708ULL;
  EXPECT_EQ(BOOT_INIT_UpdateLogLen(&record, fd), 0);
  const BOOT_INIT_DC_LOG_HEADER_S header = {7, 8, 9};
  EXPECT_EQ(BOOT_INIT_UpdateDcSafeLogHeader(&header, fd), 0);
  EXPECT_EQ(ReadFile("/opt/helpers.log"), Header12(7, 8, 9));

  BOOT_INIT_DC_LOG_HEADER_S read = {};
  EXPECT_EQ(BOOT_INIT_ReadLogLen(2, &record, fd, &read), 0);
  EXPECT_EQ(read.curLen, 7u);
  EXPECT_EQ(read.reserved, 8u);
  EXPECT_EQ(read.wrapLen, 9u);
  EXPECT_EQ(record.curLen, 7u);
  EXPECT_EQ(BOOT_INIT_ReadLogLen(0, &record, fd, nullptr), 0);
  EXPECT_EQ(record.curLen, 7u | (8ULL << 32));

  record.curLen = 5;
  for (const auto &[type, start] : {std::pair{0, 8}, std::pair{1, 10}, std::pair{2, 12}}) {
    EXPECT_EQ(BOOT_INIT_SetPosLogTail(type, &record, fd), 0);
    EXPECT_EQ(::lseek(fd, 0, SEEK_CUR), start + 5) << type;
  }
  EXPECT_EQ(BOOT_INIT_SetPosFileHead(fd), 0);
  EXPECT_EQ(::lseek(fd, 0, SEEK_CUR), 0);
  EXPECT_EQ(BOOT_INIT_UpdateLogLen(nullptr, fd), -1);
  EXPECT_EQ(BOOT_INIT_UpdateDcSafeLogHeader(nullptr, fd), -1);
  EXPECT_EQ(BOOT_INIT_SetPosLogTail(0, nullptr, fd), -1);
  EXPECT_EQ(BOOT_INIT_ReadLogLen(0, nullptr, fd, nullptr), -1);
  record.curLen = UINT64_MAX;
  EXPECT_EQ(BOOT_INIT_SetPosLogTail(0, &record, fd), -1);
  ::close(fd);
  EXPECT_EQ(BOOT_INIT_SetPosFileHead(fd), -1);
}

TEST_F(LogFileTest, ManyWritesLeaveNoDescriptorBehind) {
  const int fds = testsupport::CountOpenFds();
  for (int i = 0; i < 100; ++i) {
    BOOT_INIT_LogWrite(i % 3, "[BOOT_INIT][INFO]:line %d", i);
  }
  EXPECT_EQ(testsupport::CountOpenFds(), fds);
  EXPECT_EQ(testsupport::MainLog().size(), 34u);
}

}  // namespace
