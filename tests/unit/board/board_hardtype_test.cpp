// Hardware types as "0x%X" text, and the list of types a board answers to with its CPU id.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "board_fixture.hpp"
#include "bootinit/board.h"

using testing::ElementsAre;
using testsupport::MainLog;

namespace {

class HardTypeTest : public boardtest::BoardTest {};

TEST_F(HardTypeTest, MatchesTheTextOfAnyListedType) {
  const uint32_t list[] = {0x1234, 0x1A2B, 0x0};
  EXPECT_EQ(BOOT_INIT_IsHardtypeMatch("0x1A2B", list, 3), 1u);
  EXPECT_EQ(BOOT_INIT_IsHardtypeMatch("0x1234", list, 3), 1u);
  EXPECT_EQ(BOOT_INIT_IsHardtypeMatch("0x0", list, 3), 1u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(HardTypeTest, TextMustBeExactlyTheUpperCaseForm) {
  const uint32_t list[] = {0x1A2B};
  for (const char *text :
       {"0x1a2b", "0X1A2B", "0x01A2B", "1A2B", "6699", "0x1A2B ", " 0x1A2B", "0x1A2", ""}) {
    EXPECT_EQ(BOOT_INIT_IsHardtypeMatch(text, list, 1), 0u) << text;
  }
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(HardTypeTest, OnlyTheFirstCountEntries) {
  const uint32_t list[] = {0x1, 0x1A2B};
  EXPECT_EQ(BOOT_INIT_IsHardtypeMatch("0x1A2B", list, 1), 0u);
  EXPECT_EQ(BOOT_INIT_IsHardtypeMatch("0x1A2B", list, 2), 1u);
  EXPECT_EQ(BOOT_INIT_IsHardtypeMatch("0x1", list, 0), 0u);
}

TEST_F(HardTypeTest, LargestType) {
  const uint32_t list[] = {0xFFFFFFFF};
  EXPECT_EQ(BOOT_INIT_IsHardtypeMatch("0xFFFFFFFF", list, 1), 1u);
}

TEST_F(HardTypeTest, FailedFormatIsLoggedAndTheSearchGoesOn) {
  const uint32_t list[] = {0x1, 0x2};
  formatfaults::FailFormat("0x%X", 1);
  EXPECT_EQ(BOOT_INIT_IsHardtypeMatch("0x2", list, 2), 1u);
  EXPECT_EQ(formatfaults::Get().failed, 1);
  formatfaults::Reset();
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:snprintf unsuccessfully: "
                                     "BOOT_INIT_IsHardtypeMatch"));
}

TEST_F(HardTypeTest, FailedFormatStillCompares) {
  // A failed bounded format leaves an empty text, and that text is compared.
  const uint32_t list[] = {0x5};
  formatfaults::FailFormat("0x%X");
  EXPECT_EQ(BOOT_INIT_IsHardtypeMatch("", list, 1), 1u);
  EXPECT_EQ(BOOT_INIT_IsHardtypeMatch("0x5", list, 1), 0u);
  formatfaults::Reset();
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:snprintf unsuccessfully: "
                                     "BOOT_INIT_IsHardtypeMatch",
                                     "[BOOT_INIT][ERROR]:snprintf unsuccessfully: "
                                     "BOOT_INIT_IsHardtypeMatch"));
}

TEST_F(HardTypeTest, ListAndCpu) {
  MainBoardWith({{"board.logic_cpu_id", "0xAB"}, {"board.hard_types", "0x1234,0x1235"}});
  uint32_t list[8] = {};
  uint32_t count = 8;
  char cpu[16] = "old";
  EXPECT_EQ(BOOT_INIT_GetHardTypeListAndCpu(list, &count, cpu, sizeof(cpu)), 0u);
  EXPECT_STREQ(cpu, "0xAB");
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(list[0], 0x1234u);
  EXPECT_EQ(list[1], 0x1235u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(HardTypeTest, ListOfASingleTypeBoard) {
  uint32_t list[8] = {};
  uint32_t count = 8;
  char cpu[16] = "old";
  EXPECT_EQ(BOOT_INIT_GetHardTypeListAndCpu(list, &count, cpu, sizeof(cpu)), 0u);
  EXPECT_STREQ(cpu, "0x0");
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(list[0], 0x1A2Bu);
}

TEST_F(HardTypeTest, CpuIdFailureStops) {
  MainBoardWith({{"fail.SWM_GetLogicCpuId", "0x21"}});
  uint32_t list[8] = {};
  uint32_t count = 8;
  char cpu[16] = "old";
  EXPECT_EQ(BOOT_INIT_GetHardTypeListAndCpu(list, &count, cpu, sizeof(cpu)), 0x21u);
  EXPECT_STREQ(cpu, "old");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Get cpu id failed, ret is 33"));
}

TEST_F(HardTypeTest, TypeListFailure) {
  MainBoardWith({{"board.logic_cpu_id", "1"}, {"fail.SWM_GetBoardMultiHardType", "9"}});
  uint32_t list[8] = {};
  uint32_t count = 8;
  char cpu[16] = "old";
  EXPECT_EQ(BOOT_INIT_GetHardTypeListAndCpu(list, &count, cpu, sizeof(cpu)), 0xFFFFFFFFu);
  EXPECT_STREQ(cpu, "0x1");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Get multi hard type failed, ret = 9."));
}

TEST_F(HardTypeTest, CpuTextThatDoesNotFitIsNotFatal) {
  MainBoardWith({{"board.logic_cpu_id", "0xAB"}});
  uint32_t list[8] = {};
  uint32_t count = 8;
  char cpu[4] = {};  // "0xAB" needs five bytes
  EXPECT_EQ(BOOT_INIT_GetHardTypeListAndCpu(list, &count, cpu, sizeof(cpu)), 0u);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(list[0], 0x1A2Bu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:snprintf unsuccessfully: "
                                     "BOOT_INIT_GetHardTypeListAndCpu"));
}

TEST_F(HardTypeTest, PlatformDecidesHowManyEntries) {
  MainBoardWith({{"board.hard_types", "1,2,3,4"}});
  uint32_t list[8] = {};
  uint32_t count = 2;  // the caller's capacity
  char cpu[16] = {};
  EXPECT_EQ(BOOT_INIT_GetHardTypeListAndCpu(list, &count, cpu, sizeof(cpu)), 0u);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(list[0], 1u);
  EXPECT_EQ(list[1], 2u);
  EXPECT_EQ(list[2], 0u);
}

}  // namespace
