#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "board_files.hpp"
#include "bootinit/common.h"
#include "common_faults.hpp"

using testing::ElementsAre;
using testsupport::MainLog;
using testsupport::WriteFile;

namespace {

class ConfigTest : public testing::Test {
 protected:
  void SetUp() override {
    commonfaults::Reset();
    testsupport::StartWithEmptyLogs();
  }
  char value_[256] = {};

  uint32_t FromLine(std::string line) {
    return BOOT_INIT_GetValueInLine(line.data(), value_, sizeof(value_));
  }
};

TEST_F(ConfigTest, FixedFileNames) {
  EXPECT_STREQ(BOOT_INIT_GetIniFile(), "/opt/startup.ini");
  EXPECT_STREQ(BOOT_INIT_GetBootIpIniFile(), "/opt/boot_ip.ini");
  EXPECT_STREQ(BOOT_INIT_GetUserCfgFile(), "/etc/swm_user.conf");
}

TEST_F(ConfigTest, ValueInLineIsTrimmed) {
  EXPECT_EQ(FromLine("swm_log_path \t=  /x/y  "), 0u);
  EXPECT_STREQ(value_, "/x/y");
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(ConfigTest, ValueInLineNeedsExactlyTwoFields) {
  EXPECT_EQ(FromLine("a=b=c"), 0xFFFFFFFFu);
  EXPECT_EQ(FromLine("no separator"), 0xFFFFFFFFu);
  EXPECT_EQ(FromLine("key="), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Get string array num[3] error.",
                                     "[BOOT_INIT][ERROR]:Get string array num[1] error.",
                                     "[BOOT_INIT][ERROR]:Get string array num[1] error."));
}

TEST_F(ConfigTest, BlankValueCountsAsTooLong) {
  // Unsigned "length - 1" of an empty value is the largest number there is.
  EXPECT_EQ(FromLine("key=   "), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Failed to get value, value length [0] "
                                     "is too long, more than 256."));
}

TEST_F(ConfigTest, ValueLengthBoundariesOfA256ByteBuffer) {
  EXPECT_EQ(FromLine("k=" + std::string(255, 'v')), 0u);
  EXPECT_EQ(std::strlen(value_), 255u);
  EXPECT_EQ(FromLine("k=" + std::string(256, 'v')), 0xFFFFFFFFu);
  EXPECT_EQ(FromLine("k=" + std::string(257, 'v')), 0xFFFFFFFFu);
  EXPECT_EQ(FromLine("k=" + std::string(258, 'v')), 0xFFFFFFFFu);
  EXPECT_EQ(FromLine("k=" + std::string(400, 'v')), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Failed to strncpy pcValue",
                          "[BOOT_INIT][ERROR]:Failed to strncpy pcValue",
                          "[BOOT_INIT][ERROR]:Failed to get value, value length [258] is too "
                          "long, more than 256.",
                          "[BOOT_INIT][ERROR]:Failed to get value, value length [400] is too "
                          "long, more than 256."));
}

TEST_F(ConfigTest, TooLongMessageSays256WhateverTheBuffer) {
  std::string line = "k=abcdef";
  char small[4] = {};
  EXPECT_EQ(BOOT_INIT_GetValueInLine(line.data(), small, sizeof(small)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Failed to get value, value length [6] "
                                     "is too long, more than 256."));
}

TEST_F(ConfigTest, ValueInLineRefusesEmptyPointers) {
  char line[] = "a=b";
  EXPECT_EQ(BOOT_INIT_GetValueInLine(nullptr, value_, sizeof(value_)), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_GetValueInLine(line, nullptr, 10), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:input param is null when check null 1",
                                     "[BOOT_INIT][ERROR]:input param is null when check null 1"));
}

TEST_F(ConfigTest, CfgValueOfTheFirstMatchingLine) {
  WriteFile("/etc/swm_user.conf", "\n   \nother=1\nswm_log_path   =   /x/y\nswm_log_path=/later\n");
  EXPECT_EQ(BOOT_INIT_GetValueFromCfg("/etc/swm_user.conf", "swm_log_path", value_, sizeof(value_)),
            0u);
  EXPECT_STREQ(value_, "/x/y");
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(ConfigTest, CfgKeyIsAPlainSubstring) {
  WriteFile("/etc/swm_user.conf", "old_swm_log_path=1\nswm_log_path=/x\n");
  EXPECT_EQ(BOOT_INIT_GetValueFromCfg("/etc/swm_user.conf", "swm_log_path", value_, sizeof(value_)),
            0u);
  EXPECT_STREQ(value_, "1");
  WriteFile("/etc/swm_user.conf", "# swm_log_path=/commented\n");
  EXPECT_EQ(BOOT_INIT_GetValueFromCfg("/etc/swm_user.conf", "swm_log_path", value_, sizeof(value_)),
            0u);
  EXPECT_STREQ(value_, "/commented");
}

TEST_F(ConfigTest, CfgFirstMatchWithTwoSeparatorsEndsTheSearch) {
  WriteFile("/etc/swm_user.conf", "swm_log_path=a=b\nswm_log_path=/good\n");
  std::strcpy(value_, "previous");
  EXPECT_EQ(BOOT_INIT_GetValueFromCfg("/etc/swm_user.conf", "swm_log_path", value_, sizeof(value_)),
            0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Get string array num[3] error.",
                          "[BOOT_INIT][ERROR]:Get value from cfg failed, errno: 4294967295, "
                          "[line is: swm_log_path=a=b][key is: swm_log_path][value is: "
                          "previous]"));
}

TEST_F(ConfigTest, CfgBlankLinesNeverMatchEvenAnEmptyKey) {
  WriteFile("/etc/swm_user.conf", "\n \t \n");
  EXPECT_EQ(BOOT_INIT_GetValueFromCfg("/etc/swm_user.conf", "", value_, sizeof(value_)),
            0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Get value from cfg failed, target is "
                                     "not exist, [key is: ][value is: ]"));
  testsupport::RemovePath(testsupport::kMainLogPath);
  WriteFile("/etc/swm_user.conf", "\n  \nfirst=1\n");
  EXPECT_EQ(BOOT_INIT_GetValueFromCfg("/etc/swm_user.conf", "", value_, sizeof(value_)), 0u);
  EXPECT_STREQ(value_, "1");
}

TEST_F(ConfigTest, CfgMissingKeyAndMissingFile) {
  WriteFile("/etc/swm_user.conf", "a=1\n");
  EXPECT_EQ(BOOT_INIT_GetValueFromCfg("/etc/swm_user.conf", "swm_log_path", value_, sizeof(value_)),
            0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_GetValueFromCfg("/etc/none.conf", "k", value_, sizeof(value_)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Get value from cfg failed, target is not exist, "
                          "[key is: swm_log_path][value is: ]",
                          "[BOOT_INIT][ERROR]:Get value from cfg failed, open file "
                          "/etc/none.conf failed, ret=2, errno=2."));
}

TEST_F(ConfigTest, CfgLongLinesArriveInPieces) {
  // 511 characters a read: the key in the second piece of one long line is still found there.
  WriteFile("/etc/swm_user.conf", std::string(511, 'x') + "key=piece\n");
  EXPECT_EQ(BOOT_INIT_GetValueFromCfg("/etc/swm_user.conf", "key", value_, sizeof(value_)), 0u);
  EXPECT_STREQ(value_, "piece");
}

TEST_F(ConfigTest, CfgLeavesNoDescriptorOpen) {
  WriteFile("/etc/swm_user.conf", "a=1\n");
  const int fds = testsupport::CountOpenFds();
  (void)BOOT_INIT_GetValueFromCfg("/etc/swm_user.conf", "a", value_, sizeof(value_));
  (void)BOOT_INIT_GetValueFromCfg("/etc/swm_user.conf", "b", value_, sizeof(value_));
  EXPECT_EQ(testsupport::CountOpenFds(), fds);
}

TEST_F(ConfigTest, CfgRefusesEmptyPointers) {
  EXPECT_EQ(BOOT_INIT_GetValueFromCfg(nullptr, "k", value_, sizeof(value_)), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_GetValueFromCfg("/etc/x", nullptr, value_, sizeof(value_)), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_GetValueFromCfg("/etc/x", "k", nullptr, 1), 0xFFFFFFFFu);
  EXPECT_EQ(MainLog().size(), 3u);
}

TEST_F(ConfigTest, RootPathDefaultsToVarLib) {
  char root[256] = {};
  EXPECT_EQ(BOOT_INIT_GetRootPath(root, sizeof(root)), 0u);
  EXPECT_STREQ(root, "/var/lib");
  WriteFile("/opt/startup.ini", "[RootPath]\nRootPath=\n");
  EXPECT_EQ(BOOT_INIT_GetRootPath(root, sizeof(root)), 0u);
  EXPECT_STREQ(root, "/var/lib");
  WriteFile("/opt/startup.ini", "[board]\nrole=MMB\n");
  EXPECT_EQ(BOOT_INIT_GetRootPath(root, sizeof(root)), 0u);
  EXPECT_STREQ(root, "/var/lib");
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(ConfigTest, RootPathFromStartupIni) {
  WriteFile("/opt/startup.ini", "[board]\nhard_type=1\n[RootPath]\nRootPath = /data/root\n");
  char root[256] = {};
  EXPECT_EQ(BOOT_INIT_GetRootPath(root, sizeof(root)), 0u);
  EXPECT_STREQ(root, "/data/root");
}

TEST_F(ConfigTest, RootPathFailsOnlyWhenItDoesNotFit) {
  char root[9] = {};
  EXPECT_EQ(BOOT_INIT_GetRootPath(root, 8), BOOT_INIT_ERROR);  // "/var/lib" needs nine bytes
  EXPECT_EQ(BOOT_INIT_GetRootPath(root, sizeof(root)), 0u);
  EXPECT_STREQ(root, "/var/lib");
  EXPECT_EQ(BOOT_INIT_GetRootPath(nullptr, 256), BOOT_INIT_ERROR);
  EXPECT_THAT(MainLog(), ElementsAre());
}

}  // namespace
