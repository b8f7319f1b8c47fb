#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "board_files.hpp"
#include "bootinit/board.h"
#include "bootinit/common.h"
#include "bootinit/dispatch.h"
#include "bootinit/download.h"
#include "bootinit/extract.h"
#include "bootinit/startup.h"
#include "bootinit/verify.h"

using testing::ElementsAre;

namespace {

class OperTableTest : public testing::Test {
 protected:
  void SetUp() override { testsupport::StartWithEmptyLogs(); }
};

TEST_F(OperTableTest, HoldsTwentyEntriesInTheFixedOrder) {
  const std::array<uint32_t, BOOT_INIT_OPER_FUNC_NUM> expected = {
      0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 19, 18};
  ASSERT_EQ(sizeof(g_operFuncInfo) / sizeof(g_operFuncInfo[0]), 20u);
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(g_operFuncInfo[i].operType, expected[i]) << "position " << i;
  }
}

TEST_F(OperTableTest, EntriesArePackedPairs) {
  EXPECT_EQ(sizeof(BOOT_INIT_OPER_FUNC_INFO_S), 12u);
  EXPECT_EQ(offsetof(BOOT_INIT_OPER_FUNC_INFO_S, operFunc), 4u);
}

TEST_F(OperTableTest, NumberFourHasNoFunctionForGood) {
  EXPECT_EQ(g_operFuncInfo[4].operType, 4u);
  EXPECT_EQ(g_operFuncInfo[4].operFunc, nullptr);
}

TEST_F(OperTableTest, AvailableOperationsHaveTheirFunctions) {
  EXPECT_EQ(BOOT_INIT_GetOperationFunc(0), &BOOT_InitOperExtractFile);
  EXPECT_EQ(BOOT_INIT_GetOperationFunc(1), &BOOT_InitOperGetDrvBasicInfo);
  EXPECT_EQ(BOOT_INIT_GetOperationFunc(2), &BOOT_InitOperDownloadFile);
  EXPECT_EQ(BOOT_INIT_GetOperationFunc(3), &BOOT_InitOperVerifyFile);
  EXPECT_EQ(BOOT_INIT_GetOperationFunc(5), &BOOT_InitOperBinFIleTrans2RealFile);
  EXPECT_EQ(BOOT_INIT_GetOperationFunc(8), &BOOT_InitOperUntarFile);
  EXPECT_EQ(BOOT_INIT_GetOperationFunc(9), &BOOT_InitOperGetBackPath);
  EXPECT_EQ(BOOT_INIT_GetOperationFunc(10), &BOOT_InitOperGetStartupMode);
  EXPECT_EQ(BOOT_INIT_GetOperationFunc(11), &BOOT_InitOperSetStartupMode);
  EXPECT_EQ(BOOT_INIT_GetOperationFunc(14), &BOOT_InitOperModFileAttr);
}

TEST_F(OperTableTest, LookupReturnsTheEntryOfEachNumber) {
  for (const auto &entry : g_operFuncInfo) {
    EXPECT_EQ(BOOT_INIT_GetOperationFunc(entry.operType), entry.operFunc) << entry.operType;
  }
  // Numbers 19 and 18 are found although they stand out of numeric order.
  EXPECT_EQ(BOOT_INIT_GetOperationFunc(19), g_operFuncInfo[18].operFunc);
  EXPECT_EQ(BOOT_INIT_GetOperationFunc(18), g_operFuncInfo[19].operFunc);
  EXPECT_THAT(testsupport::MainLog(), ElementsAre());
}

TEST_F(OperTableTest, UnknownNumberLogsAndReturnsEmpty) {
  EXPECT_EQ(BOOT_INIT_GetOperationFunc(20), nullptr);
  EXPECT_EQ(BOOT_INIT_GetOperationFunc(0xFFFFFFFFu), nullptr);
  EXPECT_THAT(testsupport::MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Operation type value is invalid, operType = 20.",
                          "[BOOT_INIT][ERROR]:Operation type value is invalid, operType = "
                          "4294967295."));
}

}  // namespace
