// Tests of libdrv's board facts: hardware type, active state, slot and role from the board
// description, their defaults, and forced failures.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "board_env_files.hpp"
#include "drv.h"

namespace {

constexpr uint32_t kUntouched = 0xA5A5A5A5u;

class DrvBoardTest : public ::testing::Test {
 protected:
  void SetUp() override { boardtest::WriteDescription("[board]\nname=demo\n"); }
};

TEST_F(DrvBoardTest, DefaultsWhenNotDescribed) {
  uint32_t type = kUntouched;
  uint32_t state = kUntouched;
  uint32_t slot = kUntouched;
  uint32_t role = kUntouched;
  EXPECT_EQ(drv_board_get_type(DRV_OWN_BOARD, &type), 0u);
  EXPECT_EQ(drv_msc_get_state(DRV_OWN_BOARD, 0, &state), 0u);
  EXPECT_EQ(drv_board_get_self_logic_slotid(&slot), 0u);
  EXPECT_EQ(DEV_GetRoleOfBoard(&role), 0u);
  EXPECT_EQ(type, 0u);
  EXPECT_EQ(state, 0u);
  EXPECT_EQ(slot, 1u);
  EXPECT_EQ(role, 1u);
}

TEST_F(DrvBoardTest, DefaultsWithoutAnyDescriptionFile) {
  boardtest::RemovePath(boardtest::kDescription);
  uint32_t slot = kUntouched;
  uint32_t role = kUntouched;
  EXPECT_EQ(drv_board_get_self_logic_slotid(&slot), 0u);
  EXPECT_EQ(DEV_GetRoleOfBoard(&role), 0u);
  EXPECT_EQ(slot, 1u);
  EXPECT_EQ(role, 1u);
}

TEST_F(DrvBoardTest, EveryKeyIsRead) {
  boardtest::WriteDescription(
      "[board]\nname=lc\nhard_type=0x1234\nactive_state=1\nslot=7\nrole=3\n");
  uint32_t type = 0;
  uint32_t state = 0;
  uint32_t slot = 0;
  uint32_t role = 0;
  EXPECT_EQ(drv_board_get_type(DRV_OWN_BOARD, &type), 0u);
  EXPECT_EQ(drv_msc_get_state(DRV_OWN_BOARD, 0, &state), 0u);
  EXPECT_EQ(drv_board_get_self_logic_slotid(&slot), 0u);
  EXPECT_EQ(DEV_GetRoleOfBoard(&role), 0u);
  EXPECT_EQ(type, 0x1234u);
  EXPECT_EQ(state, 1u);
  EXPECT_EQ(slot, 7u);
  EXPECT_EQ(role, 3u);
}

TEST_F(DrvBoardTest, NumbersInEveryBase) {
  uint32_t type = 0;
  for (const auto &[text, expected] : {std::pair<const char *, uint32_t>{"17", 17},
                                       {"0x11", 17},
                                       {"021", 17},
                                       {"4294967295", 0xFFFFFFFFu}}) {
    boardtest::WriteDescription(std::string("[board]\nhard_type=") + text + "\n");
    EXPECT_EQ(drv_board_get_type(DRV_OWN_BOARD, &type), 0u) << text;
    EXPECT_EQ(type, expected) << text;
  }
}

TEST_F(DrvBoardTest, ChangesBetweenCallsAreSeen) {
  uint32_t state = kUntouched;
  boardtest::WriteDescription("[board]\nactive_state=1\n");
  EXPECT_EQ(drv_msc_get_state(DRV_OWN_BOARD, 0, &state), 0u);
  EXPECT_EQ(state, 1u);
  boardtest::WriteDescription("[board]\nactive_state=0\n");
  EXPECT_EQ(drv_msc_get_state(DRV_OWN_BOARD, 0, &state), 0u);
  EXPECT_EQ(state, 0u);
}

TEST_F(DrvBoardTest, OnlyThisBoardAndNoNullPointers) {
  uint32_t value = kUntouched;
  EXPECT_EQ(drv_board_get_type(0, &value), DRV_ERR_PARAM);
  EXPECT_EQ(drv_board_get_type(1, &value), DRV_ERR_PARAM);
  EXPECT_EQ(drv_msc_get_state(0xFFFFFFFEu, 0, &value), DRV_ERR_PARAM);
  EXPECT_EQ(value, kUntouched);
  EXPECT_EQ(drv_board_get_type(DRV_OWN_BOARD, nullptr), DRV_ERR_PARAM);
  EXPECT_EQ(drv_msc_get_state(DRV_OWN_BOARD, 0, nullptr), DRV_ERR_PARAM);
  EXPECT_EQ(drv_board_get_self_logic_slotid(nullptr), DRV_ERR_PARAM);
  EXPECT_EQ(DEV_GetRoleOfBoard(nullptr), DRV_ERR_PARAM);
}

TEST_F(DrvBoardTest, ValuesThatAreNotNumbersDescribeNothing) {
  boardtest::WriteDescription(
      "[board]\nhard_type=big\nactive_state=-1\nslot=0x\nrole=3 \xc2\xa0\n");
  uint32_t value = kUntouched;
  EXPECT_EQ(drv_board_get_type(DRV_OWN_BOARD, &value), DRV_ERR_NOT_FOUND);
  EXPECT_EQ(drv_msc_get_state(DRV_OWN_BOARD, 0, &value), DRV_ERR_NOT_FOUND);
  EXPECT_EQ(drv_board_get_self_logic_slotid(&value), DRV_ERR_NOT_FOUND);
  EXPECT_EQ(DEV_GetRoleOfBoard(&value), DRV_ERR_NOT_FOUND);
  EXPECT_EQ(value, kUntouched);
}

TEST_F(DrvBoardTest, MalformedDescriptionDescribesNothing) {
  boardtest::WriteDescription("slot=3\n[board]\n");
  uint32_t slot = kUntouched;
  EXPECT_EQ(drv_board_get_self_logic_slotid(&slot), DRV_ERR_NOT_FOUND);
  EXPECT_EQ(slot, kUntouched);
}

TEST_F(DrvBoardTest, ForcedFailuresStillWriteTheOutput) {
  boardtest::WriteDescription(
      "[board]\nhard_type=9\nactive_state=1\nslot=4\nrole=3\n"
      "[fail]\ndrv_board_get_type=0x55\ndrv_msc_get_state=420\n"
      "drv_board_get_self_logic_slotid=2983\nDEV_GetRoleOfBoard=0X10\n");
  uint32_t type = 0;
  uint32_t state = 0;
  uint32_t slot = 0;
  uint32_t role = 0;
  EXPECT_EQ(drv_board_get_type(DRV_OWN_BOARD, &type), 0x55u);
  EXPECT_EQ(drv_msc_get_state(DRV_OWN_BOARD, 0, &state), 420u);
  EXPECT_EQ(drv_board_get_self_logic_slotid(&slot), 2983u);
  EXPECT_EQ(DEV_GetRoleOfBoard(&role), 0x10u);
  EXPECT_EQ(type, 9u);
  EXPECT_EQ(state, 1u);
  EXPECT_EQ(slot, 4u);
  EXPECT_EQ(role, 3u);
}

TEST_F(DrvBoardTest, ForcedFailureWithDefaultsAndParameterChecksFirst) {
  boardtest::WriteDescription("[fail]\ndrv_msc_get_state=420\n");
  uint32_t state = kUntouched;
  EXPECT_EQ(drv_msc_get_state(DRV_OWN_BOARD, 0, &state), 420u);
  EXPECT_EQ(state, 0u);  // the default, written before the failure
  EXPECT_EQ(drv_msc_get_state(DRV_OWN_BOARD, 0, nullptr), DRV_ERR_PARAM);
  EXPECT_EQ(drv_msc_get_state(7, 0, &state), DRV_ERR_PARAM);
}

TEST_F(DrvBoardTest, ZeroOrJunkCodesForceNothing) {
  boardtest::WriteDescription(
      "[board]\nslot=6\n[fail]\ndrv_board_get_self_logic_slotid=0\n"
      "DEV_GetRoleOfBoard=fail\n");
  uint32_t slot = 0;
  uint32_t role = 0;
  EXPECT_EQ(drv_board_get_self_logic_slotid(&slot), 0u);
  EXPECT_EQ(DEV_GetRoleOfBoard(&role), 0u);
  EXPECT_EQ(slot, 6u);
  EXPECT_EQ(role, 1u);
}

TEST_F(DrvBoardTest, ForcedFailuresApplyOnlyToTheirFunction) {
  boardtest::WriteDescription("[fail]\ndrv_board_get_type=3\n");
  uint32_t value = 0;
  EXPECT_EQ(drv_board_get_type(DRV_OWN_BOARD, &value), 3u);
  EXPECT_EQ(drv_msc_get_state(DRV_OWN_BOARD, 0, &value), 0u);
  EXPECT_EQ(drv_board_get_self_logic_slotid(&value), 0u);
  EXPECT_EQ(DEV_GetRoleOfBoard(&value), 0u);
}

TEST_F(DrvBoardTest, NoDescriptorLeaks) {
  boardtest::WriteDescription("[board]\nslot=2\n[fail]\nDEV_GetRoleOfBoard=1\n");
  const int before = boardtest::CountOpenFds();
  uint32_t value = 0;
  for (int i = 0; i < 50; ++i) {
    (void)drv_board_get_type(DRV_OWN_BOARD, &value);
    (void)drv_msc_get_state(DRV_OWN_BOARD, 0, &value);
    (void)drv_board_get_self_logic_slotid(&value);
    (void)DEV_GetRoleOfBoard(&value);
  }
  EXPECT_EQ(boardtest::CountOpenFds(), before);
}

}  // namespace
