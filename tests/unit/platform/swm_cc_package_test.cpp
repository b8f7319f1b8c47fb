// libswm's answer to "which package does the board run now": the boot environment variable
// next_bootfile, read from the image /etc/fw_env.config names, in agreement with what fw_setenv
// wrote and with libdrv's own reading of the same variable; every failure and forced failures.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include "board_env_files.hpp"
#include "drv.h"
#include "swm.h"

namespace {

using boardtest::SetEnvTool;

constexpr uint32_t kLen = 384;

struct Answer {
  uint32_t status = 0xDEADBEEF;
  std::string path;
};

Answer Ask(uint32_t len = kLen) {
  std::string buf(len, 'X');
  Answer answer;
  answer.status = SWM_GetCCPackage(buf.data(), len);
  answer.path = std::string(buf.c_str());
  return answer;
}

class SwmCcPackageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    boardtest::PrepareBoard("[board]\nname=demo\n");
    fds_ = boardtest::CountOpenFds();
  }
  void TearDown() override { EXPECT_EQ(boardtest::CountOpenFds(), fds_); }

  int fds_ = 0;
};

TEST_F(SwmCcPackageTest, AnswersWhatTheBootEnvironmentNames) {
  ASSERT_EQ(SetEnvTool("next_bootfile", "/opt/kytv8/home/base.cc"), 0);
  const Answer answer = Ask();
  EXPECT_EQ(answer.status, SWM_OK);
  EXPECT_EQ(answer.path, "/opt/kytv8/home/base.cc");
}

TEST_F(SwmCcPackageTest, AgreesWithTheDriver) {
  ASSERT_EQ(drv_env_set("next_bootfile", "/opt/kytv8/home/other pkg.cc"), 0u);
  char fromDriver[kLen] = {};
  ASSERT_EQ(drv_env_get("next_bootfile", fromDriver, kLen, 0), 0u);
  const Answer answer = Ask();
  EXPECT_EQ(answer.status, SWM_OK);
  EXPECT_EQ(answer.path, fromDriver);
  // A change made meanwhile is seen at once: nothing is cached.
  ASSERT_EQ(SetEnvTool("next_bootfile", "/opt/kytv8/home/third.cc"), 0);
  EXPECT_EQ(Ask().path, "/opt/kytv8/home/third.cc");
}

TEST_F(SwmCcPackageTest, AValueThatJustFits) {
  const std::string path = "/" + std::string(382, 'p');  // 383 characters and the terminator
  ASSERT_EQ(SetEnvTool("next_bootfile", path), 0);
  const Answer answer = Ask();
  EXPECT_EQ(answer.status, SWM_OK);
  EXPECT_EQ(answer.path, path);
}

TEST_F(SwmCcPackageTest, AValueTooLongIsNeverCut) {
  ASSERT_EQ(SetEnvTool("next_bootfile", "/" + std::string(383, 'p')), 0);
  const Answer answer = Ask();
  EXPECT_EQ(answer.status, SWM_ERR_TOO_LONG);
  EXPECT_EQ(answer.path, "");
  EXPECT_EQ(Ask(8).status, SWM_ERR_TOO_LONG);
}

TEST_F(SwmCcPackageTest, NoVariableNoPackage) {
  ASSERT_EQ(SetEnvTool("last_bootfile", "/opt/kytv8/home/old.cc"), 0);
  const Answer answer = Ask();
  EXPECT_EQ(answer.status, SWM_ERR_NOT_FOUND);
  EXPECT_EQ(answer.path, "");
}

// A boot loader may leave a variable with an empty value; it names no package.
TEST_F(SwmCcPackageTest, AnEmptyValueNamesNoPackage) {
  ASSERT_EQ(SetEnvTool("next_bootfile", ""), 0);
  ASSERT_EQ(boardtest::PrintEnv("next_bootfile").text, "next_bootfile=\n");
  EXPECT_EQ(Ask().status, SWM_ERR_NOT_FOUND);
}

TEST_F(SwmCcPackageTest, AFreshImageWithoutDefaultsCannotBeRead) {
  const Answer answer = Ask();  // the image was never written: no valid copy
  EXPECT_EQ(answer.status, SWM_ERR_IO);
  EXPECT_EQ(answer.path, "");
}

TEST_F(SwmCcPackageTest, TheDefaultEnvironmentStandsInForAFreshImage) {
  boardtest::WriteFile(boardtest::kDefaultEnv, "next_bootfile=/opt/kytv8/home/factory.cc\n");
  const Answer answer = Ask();
  EXPECT_EQ(answer.status, SWM_OK);
  EXPECT_EQ(answer.path, "/opt/kytv8/home/factory.cc");
}

TEST_F(SwmCcPackageTest, NoConfigurationOrNoImage) {
  ASSERT_EQ(SetEnvTool("next_bootfile", "/opt/kytv8/home/base.cc"), 0);
  boardtest::RemovePath(boardtest::kEnvImage);
  EXPECT_EQ(Ask().status, SWM_ERR_IO);
  boardtest::RemovePath(boardtest::kEnvConfig);
  EXPECT_EQ(Ask().status, SWM_ERR_IO);
}

TEST_F(SwmCcPackageTest, BadArguments) {
  EXPECT_EQ(SWM_GetCCPackage(nullptr, kLen), SWM_ERR_PARAM);
  char buf[4] = {'a', 'b', 'c', '\0'};
  EXPECT_EQ(SWM_GetCCPackage(buf, 0), SWM_ERR_PARAM);
  EXPECT_STREQ(buf, "abc");
}

// A forced failure returns its code with the answer written as on success, and errno EIO.
TEST_F(SwmCcPackageTest, AForcedFailure) {
  ASSERT_EQ(SetEnvTool("next_bootfile", "/opt/kytv8/home/base.cc"), 0);
  boardtest::WriteDescription("[fail]\nSWM_GetCCPackage=0x17\n");
  errno = 0;
  const Answer answer = Ask();
  EXPECT_EQ(answer.status, 0x17u);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(answer.path, "/opt/kytv8/home/base.cc");
  boardtest::WriteDescription("[fail]\nSWM_GetCCPackage=0\n");
  EXPECT_EQ(Ask().status, SWM_OK);
}

}  // namespace
