// Operation 1: the sub-operation number, the table it selects from, and how results come back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "board_fixture.hpp"
#include "bootinit/board.h"
#include "bootinit/dispatch.h"

using testing::ElementsAre;
using testsupport::MainLog;
using testsupport::RunOperation;

namespace {

const std::string kBadCount = "[BOOT_INIT][ERROR]:value1 is not equal to value2 when check ret.";

class BoardInfoOperTest : public boardtest::BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    testsupport::SetEnv("cpu_id", "0");
    testsupport::SetEnv("next_bootfile", "/opt/kytv8/home/a.cc");
  }
};

TEST_F(BoardInfoOperTest, NoSubOperation) {
  const auto op = RunOperation(BOOT_InitOperGetDrvBasicInfo, {});
  EXPECT_EQ(op.result, 0x10000001u);
  EXPECT_EQ(op.out, "");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:para count is wrong, value is 0"));
}

TEST_F(BoardInfoOperTest, SubOperationsFromElevenOnAreRefused) {
  for (const std::string number : {"11", "99", "-1", "4294967295"}) {
    testsupport::ClearMainLog();
    const auto op = RunOperation(BOOT_InitOperGetDrvBasicInfo, {number});
    EXPECT_EQ(op.result, 0x10000001u) << number;
    EXPECT_EQ(op.out, "") << number;
    EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:Oper type is invalid")) << number;
  }
}

TEST_F(BoardInfoOperTest, NotANumberIsSubOperationZero) {
  for (const std::string text : {"abc", ""}) {
    testsupport::ClearMainLog();
    const auto op = RunOperation(BOOT_InitOperGetDrvBasicInfo, {text});
    EXPECT_EQ(op.result, 0u) << text;
    EXPECT_EQ(op.out, "\nCC_PACKAGE_FULL_PATH:/opt/kytv8/home/a.cc\n") << text;
    EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:Get cc path:/opt/kytv8/home/a.cc"));
  }
}

TEST_F(BoardInfoOperTest, NumberIsDecimal) {
  auto op = RunOperation(BOOT_InitOperGetDrvBasicInfo, {"010"});  // ten, not eight
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nBOARD_HARD_LIST: 6699\n");
  op = RunOperation(BOOT_InitOperGetDrvBasicInfo, {"04"});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nCHASSIS_ID:0x1\n");
}

TEST_F(BoardInfoOperTest, ValidNumbersAreBelowEleven) {
  for (uint32_t n = 0; n < 11; ++n) {
    EXPECT_EQ(BOOT_INIT_IsGetDrvBasicInfoOperValid(n), 1u) << n;
  }
  EXPECT_EQ(BOOT_INIT_IsGetDrvBasicInfoOperValid(11), 0u);
  EXPECT_EQ(BOOT_INIT_IsGetDrvBasicInfoOperValid(0xFFFFFFFF), 0u);
}

TEST_F(BoardInfoOperTest, TableOfElevenPresentEntries) {
  ASSERT_EQ(BOOT_INIT_DRV_BASIC_INFO_NUM, 11u);
  for (uint32_t n = 0; n < BOOT_INIT_DRV_BASIC_INFO_NUM; ++n) {
    EXPECT_NE(g_apfBootInitDrvBasicInfoOperFunc[n], nullptr) << n;
  }
  EXPECT_EQ(g_apfBootInitDrvBasicInfoOperFunc[0], &BOOT_InitGetCCPackageFullPath);
  EXPECT_EQ(g_apfBootInitDrvBasicInfoOperFunc[1], &BOOT_InitPrintBoardHardType);
  EXPECT_EQ(g_apfBootInitDrvBasicInfoOperFunc[2], &BOOT_InitPrintRoleOfBoard);
  EXPECT_EQ(g_apfBootInitDrvBasicInfoOperFunc[3], &BOOT_InitPrintCpuId);
  EXPECT_EQ(g_apfBootInitDrvBasicInfoOperFunc[4], &BOOT_InitPrintChassisId);
  EXPECT_EQ(g_apfBootInitDrvBasicInfoOperFunc[5], &BOOT_InitPrintSlotId);
  EXPECT_EQ(g_apfBootInitDrvBasicInfoOperFunc[6], &BOOT_InitPrintHardActiveState);
  EXPECT_EQ(g_apfBootInitDrvBasicInfoOperFunc[8], &BOOT_InitPrintBoradAllInfo);
  EXPECT_EQ(g_apfBootInitDrvBasicInfoOperFunc[9], &BOOT_InitPrintAllBoardInfoId);
  EXPECT_EQ(g_apfBootInitDrvBasicInfoOperFunc[10], &BOOT_InitPrintHardTypeList);
}

TEST_F(BoardInfoOperTest, EverySubOperationAnswers) {
  const std::pair<const char *, const char *> answers[] = {
      {"0", "\nCC_PACKAGE_FULL_PATH:/opt/kytv8/home/a.cc\n"},
      {"1", "\nBOARD_HARD_TYPE:0x1A2B\n"},
      {"2", "\nBOARD_ROLE:MMB\n"},
      {"3", "\nCPU_ID:0x0\n"},
      {"4", "\nCHASSIS_ID:0x1\n"},
      {"5", "\nSLOT_ID:0x1\n"},
      {"6", "\nBOARD_HARD_ACTIVE_STATE:MASTER"},
      {"7", ""},
      {"8", "MMB;network;0x1a2b;MASTER;/opt/kytv8/home/a.cc;;\n"},
      {"9", "\nCPU_ID:0x0\n\nCHASSIS_ID:0x1\n\nSLOT_ID:0x1\n"},
      {"10", "\nBOARD_HARD_LIST: 6699\n"},
  };
  for (const auto &[number, out] : answers) {
    const auto op = RunOperation(BOOT_InitOperGetDrvBasicInfo, {number});
    EXPECT_EQ(op.result, 0u) << number;
    EXPECT_EQ(op.out, out) << number;
  }
}

TEST_F(BoardInfoOperTest, PrinterWithAnExtraArgumentPrintsNothing) {
  const auto op = RunOperation(BOOT_InitOperGetDrvBasicInfo, {"1", "x"});
  EXPECT_EQ(op.result, 0x10000001u);
  EXPECT_EQ(op.out, "");
  EXPECT_THAT(MainLog(), ElementsAre(kBadCount,
                                     "[BOOT_INIT][ERROR]:Get basic info "
                                     "unsuccessfully, result = 0x10000001"));
}

TEST_F(BoardInfoOperTest, FailureOfASubOperationIsLoggedAndReturned) {
  MainBoardWith({{"fail.drv_board_get_type", "0x55"}});
  const auto op = RunOperation(BOOT_InitOperGetDrvBasicInfo, {"1"});
  EXPECT_EQ(op.result, 0x55u);
  EXPECT_EQ(op.out, "\nBOARD_HARD_TYPE:0xFFFFFFFF");
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Get board type failed, result = 0x55",
                          "[BOOT_INIT][ERROR]:Get basic info unsuccessfully, result = 0x55"));
}

TEST_F(BoardInfoOperTest, CcPathFailureIsLoggedAndReturned) {
  testsupport::UnsetEnv("next_bootfile");
  const auto op = RunOperation(BOOT_InitOperGetDrvBasicInfo, {"0"});
  EXPECT_EQ(op.result, 0xFFFFFFFFu);
  EXPECT_EQ(op.out, "");
  const auto log = MainLog();
  ASSERT_GE(log.size(), 2u);
  EXPECT_EQ(log[log.size() - 2], "[BOOT_INIT][INFO]:Get cc path failed");
  EXPECT_EQ(log.back(), "[BOOT_INIT][ERROR]:Get basic info unsuccessfully, result = 0xffffffff");
}

TEST_F(BoardInfoOperTest, AllIdsWithAnExtraArgumentStillSucceed) {
  const auto op = RunOperation(BOOT_InitOperGetDrvBasicInfo, {"9", "x"});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "");
  EXPECT_THAT(
      MainLog(),
      ElementsAre(kBadCount, "[BOOT_INIT][ERROR]:Get cpu id unsuccessfully, result = 0x10000001",
                  kBadCount, "[BOOT_INIT][ERROR]:Get chassisid unsuccessfully, result = 0x10000001",
                  kBadCount, "[BOOT_INIT][ERROR]:Get slotid unsuccessfully, result = 0x10000001"));
}

TEST_F(BoardInfoOperTest, SummaryTakesAnyArguments) {
  const auto op = RunOperation(BOOT_InitOperGetDrvBasicInfo, {"8", "x", "y"});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "MMB;network;0x1a2b;MASTER;/opt/kytv8/home/a.cc;;\n");
}

TEST_F(BoardInfoOperTest, MeasureAnswerYesPassesUnchanged) {
  MainBoardWith({{"tpm.online_status", "0"}, {"tpm.active_status", "1"}});
  testsupport::PointPlatformLibrary("libdrv_basic.so", TPM_STATUS_LIBRARY);
  const auto op = RunOperation(BOOT_InitOperGetDrvBasicInfo, {"7"});
  EXPECT_EQ(op.result, 1u);
  EXPECT_EQ(op.out, "");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:This board need measure"));
}

TEST_F(BoardInfoOperTest, MeasureAnswerNoPassesUnchanged) {
  testsupport::RemovePlatformLibrary("libdrv_basic.so");
  const auto op = RunOperation(BOOT_InitOperGetDrvBasicInfo, {"7"});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "");
  const auto log = MainLog();
  ASSERT_EQ(log.size(), 1u);
  EXPECT_THAT(log[0], testing::StartsWith("[BOOT_INIT][ERROR]:dlopen libdrv_basic.so fail, "
                                          "reason:"));
}

TEST_F(BoardInfoOperTest, ThroughTheDispatcher) {
  auto op = RunOperation(BOOT_INIT_DoOperation, {"1", "1"});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nBOARD_HARD_TYPE:0x1A2B\n");
  op = RunOperation(BOOT_INIT_DoOperation, {"1", "11"});
  EXPECT_EQ(op.result, 0x10000001u);
  EXPECT_EQ(op.out, "");
}

}  // namespace
