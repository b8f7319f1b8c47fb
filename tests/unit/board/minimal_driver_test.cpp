// Board identity where the driver has no slot and no role entry point: the slot comes from
// /opt/startup.ini, the role from the marker /opt/MMB and the CPU id.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "board_fixture.hpp"
#include "bootinit/board.h"

using testing::ElementsAre;
using testsupport::MainLog;

namespace {

const char *const kCpuIdUnread = "[BOOT_INIT][INFO]:get cpu id unsuccessfully, set cpuid = 0.";

// This driver cannot set variables, so the environment image is written directly.
void SetCpuId(const char *cpu) {
  testsupport::WriteRawEnvironment(
      {{"homebak_path", testsupport::kBackupDir}, {"startup_mode", "0"}, {"cpu_id", cpu}});
}

class MinimalDriverTest : public boardtest::BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    // Asked of the loader: a comparison of the weak names themselves may be folded away.
    ASSERT_EQ(dlsym(RTLD_DEFAULT, "DEV_GetRoleOfBoard"), nullptr)
        << "the board must load the minimal driver";
    ASSERT_EQ(dlsym(RTLD_DEFAULT, "drv_board_get_self_logic_slotid"), nullptr);
  }
};

TEST_F(MinimalDriverTest, SlotFromStartupIni) {
  testsupport::WriteStartupIni("[board]\nslotid=7\n");
  uint32_t slot = 99;
  EXPECT_EQ(BOOT_INIT_GetSlotId(&slot), 0u);
  EXPECT_EQ(slot, 7u);
}

TEST_F(MinimalDriverTest, SlotWithoutStartupIniOrValueFails) {
  uint32_t slot = 99;
  EXPECT_EQ(BOOT_INIT_GetSlotId(&slot), 0xFFFFFFFFu);
  EXPECT_EQ(slot, 0u);
  testsupport::WriteStartupIni("[board]\nslotid=\n");
  EXPECT_EQ(BOOT_INIT_GetSlotId(&slot), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(MinimalDriverTest, WithoutMarkerTheRoleIsLineCardWhateverTheCpu) {
  testsupport::RemovePath(testsupport::kMmbMarker);
  for (const char *cpu : {"0", "1"}) {
    SetCpuId(cpu);
    uint32_t role = 0;
    EXPECT_EQ(BOOT_INIT_GetRoleOfBoard(&role), 0u);
    EXPECT_EQ(role, 3u) << "cpu " << cpu;
  }
  EXPECT_EQ(BOOT_INIT_BoardIsMMB(), 0u);
}

TEST_F(MinimalDriverTest, WithMarkerOnlyCpuZeroIsTheMainBoard) {
  SetCpuId("0");
  uint32_t role = 0;
  EXPECT_EQ(BOOT_INIT_GetRoleOfBoard(&role), 0u);
  EXPECT_EQ(role, 1u);
  SetCpuId("1");
  EXPECT_EQ(BOOT_INIT_GetRoleOfBoard(&role), 0u);
  EXPECT_EQ(role, 3u);
}

TEST_F(MinimalDriverTest, UnsetCpuIdCountsAsZero) {
  uint32_t role = 0;
  EXPECT_EQ(BOOT_INIT_GetRoleOfBoard(&role), 0u);
  EXPECT_EQ(role, 1u);
  EXPECT_THAT(MainLog(), ElementsAre(kCpuIdUnread));
}

TEST_F(MinimalDriverTest, RolePrintersUseTheMarker) {
  SetCpuId("1");
  testing::internal::CaptureStdout();
  EXPECT_EQ(BOOT_InitPrintRoleOfBoard(0, nullptr), 0u);
  EXPECT_EQ(BOOT_InitPrintBoardRole(), 0u);  // the unreached printer also asks for CPU 0
  std::fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "\nBOARD_ROLE:MMB\n\nBOARD_ROLE:LC\n");
  testsupport::RemovePath(testsupport::kMmbMarker);
  testing::internal::CaptureStdout();
  EXPECT_EQ(BOOT_InitPrintRoleOfBoard(0, nullptr), 0u);
  std::fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "\nBOARD_ROLE:LC\n");
}

}  // namespace
