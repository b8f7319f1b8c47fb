// Who the board is: hardware type, role, active state, slot, chassis and CPU ids, and the
// "[board]" values of the developer file /opt/startup.ini.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "board_fixture.hpp"
#include "bootinit/board.h"

using testing::ElementsAre;
using testsupport::MainLog;

namespace {

const std::string kCpuIdUnread = "[BOOT_INIT][INFO]:get cpu id unsuccessfully, set cpuid = 0.";

class BoardIdentityTest : public boardtest::BoardTest {};

// ---- hardware type ----

TEST_F(BoardIdentityTest, HardTypeFromTheDriver) {
  testsupport::WriteStartupIni("[board]\nhard_type=99\n");
  uint32_t type = 0;
  EXPECT_EQ(BOOT_InitGetBoardHardType(&type), 0u);
  EXPECT_EQ(type, 0x1A2Bu);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(BoardIdentityTest, DriverTypeZeroAsksTheStub) {
  MainBoardWith({{"board.hard_type", "0"}});
  testsupport::WriteStartupIni("[board]\nhard_type=4660\n");
  uint32_t type = 0;
  EXPECT_EQ(BOOT_InitGetBoardHardType(&type), 0u);
  EXPECT_EQ(type, 4660u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(BoardIdentityTest, DriverTypeZeroWithoutStubFile) {
  MainBoardWith({{"board.hard_type", "0"}});
  uint32_t type = 77;
  EXPECT_EQ(BOOT_InitGetBoardHardType(&type), 0x10000003u);
  EXPECT_EQ(type, 0u);
}

TEST_F(BoardIdentityTest, DriverTypeZeroWithStubFileLackingTheKey) {
  MainBoardWith({{"board.hard_type", "0"}});
  testsupport::WriteStartupIni("[board]\nrole=MMB\n");
  uint32_t type = 77;
  EXPECT_EQ(BOOT_InitGetBoardHardType(&type), 4u);  // the ini reader's "not found"
  EXPECT_EQ(type, 0u);
}

TEST_F(BoardIdentityTest, DriverFailureIsReturnedAndTypeUntouched) {
  MainBoardWith({{"fail.drv_board_get_type", "0x55"}});
  testsupport::WriteStartupIni("[board]\nhard_type=4660\n");
  uint32_t type = 0xABCD;
  EXPECT_EQ(BOOT_InitGetBoardHardType(&type), 0x55u);
  EXPECT_EQ(type, 0xABCDu);
}

TEST_F(BoardIdentityTest, StubHardTypeIsDecimal) {
  const std::pair<const char *, uint32_t> cases[] = {
      {"4660", 4660},
      {"0x10", 0},
      {"abc", 0},
      {"12abc", 12},
      {"010", 10},
      {"4294967295", 0xFFFFFFFFu},
      {"4294967296", 0},
      {"-1", 0xFFFFFFFFu},
      // An unsigned conversion saturates a negative overflow at its largest value.
      {"-99999999999999999999", 0xFFFFFFFFu}};
  for (const auto &[text, expected] : cases) {
    testsupport::WriteStartupIni(std::string("[board]\nhard_type=") + text + "\n");
    uint32_t type = 77;
    EXPECT_EQ(BOOT_INIT_StubGetBoardHardType(&type), 0u) << text;
    EXPECT_EQ(type, expected) << text;
  }
}

TEST_F(BoardIdentityTest, StubHardTypeWithoutFile) {
  uint32_t type = 77;
  EXPECT_EQ(BOOT_INIT_StubGetBoardHardType(&type), 0x10000003u);
  EXPECT_EQ(type, 0u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(BoardIdentityTest, StubHardTypeValueBuffer) {
  // The value is read into 512 bytes: 511 characters fit, 512 do not.
  const std::string fits = std::string(509, '0') + "12";
  testsupport::WriteStartupIni("[board]\nhard_type=" + fits + "\n");
  uint32_t type = 77;
  EXPECT_EQ(BOOT_INIT_StubGetBoardHardType(&type), 0u);
  EXPECT_EQ(type, 12u);
  testsupport::WriteStartupIni("[board]\nhard_type=0" + fits + "\n");
  type = 77;
  EXPECT_EQ(BOOT_INIT_StubGetBoardHardType(&type), 5u);  // the ini reader's "too long"
  EXPECT_EQ(type, 0u);
}

TEST_F(BoardIdentityTest, StubHardTypeOfAMalformedFile) {
  testsupport::WriteStartupIni("hard_type=12\n");  // a key before any section
  uint32_t type = 77;
  EXPECT_EQ(BOOT_INIT_StubGetBoardHardType(&type), 3u);  // the ini reader's "malformed"
  EXPECT_EQ(type, 0u);
}

// ---- role text of the stub ----

TEST_F(BoardIdentityTest, StubRoleIsTextAsItIs) {
  testsupport::WriteStartupIni("[board]\nrole=Main Board 1\n");
  char role[32] = "old";
  EXPECT_EQ(BOOT_INIT_StubGetRoleOfBoard(role, sizeof(role)), 0u);
  EXPECT_STREQ(role, "Main Board 1");
}

TEST_F(BoardIdentityTest, StubRoleFailures) {
  char role[32] = "old";
  EXPECT_EQ(BOOT_INIT_StubGetRoleOfBoard(role, sizeof(role)), 0x10000003u);
  testsupport::WriteStartupIni("[board]\nhard_type=1\n");
  EXPECT_EQ(BOOT_INIT_StubGetRoleOfBoard(role, sizeof(role)), 4u);
  testsupport::WriteStartupIni("[board]\nrole=MMB\n");
  char small[3] = {};
  EXPECT_EQ(BOOT_INIT_StubGetRoleOfBoard(small, sizeof(small)), 5u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

// ---- active state ----

TEST_F(BoardIdentityTest, ActiveStateFromTheDriver) {
  for (const std::string state : {"0", "1", "5"}) {
    MainBoardWith({{"board.active_state", state}});
    uint32_t value = 77;
    EXPECT_EQ(BOOT_INIT_GetBoardHardActiveState(&value), 0u) << state;
    EXPECT_EQ(value, std::stoul(state)) << state;
  }
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(BoardIdentityTest, DriverCodes420And2983MeanMaster) {
  // The low 16 bits decide.
  for (const std::string code : {"420", "2983", "0x100001A4", "0x10BA7"}) {
    MainBoardWith({{"board.active_state", "1"}, {"fail.drv_msc_get_state", code}});
    uint32_t value = 77;
    EXPECT_EQ(BOOT_INIT_GetBoardHardActiveState(&value), 0u) << code;
    EXPECT_EQ(value, 0u) << code;
    EXPECT_EQ(BOOT_INIT_BoardIsMaster(), 1u) << code;
  }
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(BoardIdentityTest, OtherDriverFailureIsReturnedAndStateUntouched) {
  MainBoardWith({{"board.active_state", "0"}, {"fail.drv_msc_get_state", "0x1A5"}});
  uint32_t value = 77;
  EXPECT_EQ(BOOT_INIT_GetBoardHardActiveState(&value), 0x1A5u);
  EXPECT_EQ(value, 77u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:BOOT_INIT_GetBoardHardActiveState, get "
                                     "uiHaStatus error, ret:1a5"));
}

TEST_F(BoardIdentityTest, MasterOnlyWhenStateReadsZero) {
  EXPECT_EQ(BOOT_INIT_BoardIsMaster(), 1u);
  MainBoardWith({{"board.active_state", "1"}});
  EXPECT_EQ(BOOT_INIT_BoardIsMaster(), 0u);
  MainBoardWith({{"board.active_state", "0"}, {"fail.drv_msc_get_state", "0x10000"}});
  EXPECT_EQ(BOOT_INIT_BoardIsMaster(), 0u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:BOOT_INIT_GetBoardHardActiveState, get "
                                     "uiHaStatus error, ret:10000"));
}

// ---- role ----

TEST_F(BoardIdentityTest, MainBoardCpuZeroIsTheMmb) {
  testsupport::SetEnv("cpu_id", "0");
  testsupport::RemovePath(testsupport::kMmbMarker);  // the driver's answer is enough
  uint32_t role = 0;
  EXPECT_EQ(BOOT_INIT_GetRoleOfBoard(&role), 0u);
  EXPECT_EQ(role, 1u);
  EXPECT_EQ(BOOT_INIT_BoardIsMMB(), 1u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(BoardIdentityTest, MainBoardCpuOneIsALineCard) {
  testsupport::SetEnv("cpu_id", "1");
  uint32_t role = 0;
  EXPECT_EQ(BOOT_INIT_GetRoleOfBoard(&role), 0u);
  EXPECT_EQ(role, 3u);
  EXPECT_EQ(BOOT_INIT_BoardIsMMB(), 0u);
}

TEST_F(BoardIdentityTest, UnreadCpuIdCountsAsZero) {
  uint32_t role = 0;
  EXPECT_EQ(BOOT_INIT_GetRoleOfBoard(&role), 0u);
  EXPECT_EQ(role, 1u);
  EXPECT_THAT(MainLog(), ElementsAre(kCpuIdUnread));
}

TEST_F(BoardIdentityTest, DriverRoleOtherThanOneIsALineCard) {
  testsupport::SetEnv("cpu_id", "0");
  for (const std::string driverRole : {"3", "2", "0"}) {
    MainBoardWith({{"board.role", driverRole}});  // /opt/MMB exists all the same
    uint32_t role = 0;
    EXPECT_EQ(BOOT_INIT_GetRoleOfBoard(&role), 0u);
    EXPECT_EQ(role, 3u) << driverRole;
    EXPECT_EQ(BOOT_INIT_BoardIsMMB(), 0u) << driverRole;
  }
}

TEST_F(BoardIdentityTest, FailedDriverRoleFallsBackToTheMarker) {
  MainBoardWith({{"fail.DEV_GetRoleOfBoard", "9"}});
  testsupport::SetEnv("cpu_id", "0");
  uint32_t role = 0;
  EXPECT_EQ(BOOT_INIT_GetRoleOfBoard(&role), 0u);
  EXPECT_EQ(role, 1u);
  testsupport::SetEnv("cpu_id", "1");
  EXPECT_EQ(BOOT_INIT_GetRoleOfBoard(&role), 0u);
  EXPECT_EQ(role, 3u);
  testsupport::RemovePath(testsupport::kMmbMarker);
  for (const std::string cpu : {"0", "1"}) {
    testsupport::SetEnv("cpu_id", cpu);
    role = 0;
    EXPECT_EQ(BOOT_INIT_GetRoleOfBoard(&role), 0u);
    EXPECT_EQ(role, 3u) << cpu;
    EXPECT_EQ(BOOT_INIT_BoardIsMMB(), 0u) << cpu;
  }
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(BoardIdentityTest, RoleQueryAlwaysSucceeds) {
  EXPECT_EQ(BOOT_INIT_GetRoleOfBoard(nullptr), 0u);
}

// ---- chassis, slot ----

TEST_F(BoardIdentityTest, ChassisIsAlwaysOne) {
  uint32_t id = 77;
  EXPECT_EQ(BOOT_INIT_GetChassisId(&id), 0u);
  EXPECT_EQ(id, 1u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(BoardIdentityTest, SlotFromTheDriver) {
  MainBoardWith({{"board.slot", "5"}});
  uint32_t slot = 77;
  EXPECT_EQ(BOOT_INIT_GetSlotId(&slot), 0u);
  EXPECT_EQ(slot, 5u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(BoardIdentityTest, SlotDriverCode420MeansSlotOne) {
  for (const std::string code : {"420", "0x300001A4"}) {
    MainBoardWith({{"board.slot", "5"}, {"fail.drv_board_get_self_logic_slotid", code}});
    uint32_t slot = 77;
    EXPECT_EQ(BOOT_INIT_GetSlotId(&slot), 0u) << code;
    EXPECT_EQ(slot, 1u) << code;
  }
}

TEST_F(BoardIdentityTest, SlotDriverFailureReturnsWhatItWrote) {
  MainBoardWith({{"board.slot", "5"}, {"fail.drv_board_get_self_logic_slotid", "2983"}});
  uint32_t slot = 77;
  EXPECT_EQ(BOOT_INIT_GetSlotId(&slot), 2983u);
  EXPECT_EQ(slot, 5u);
}

TEST_F(BoardIdentityTest, SlotPresetToZero) {
  // The driver cannot read its slot and writes nothing.
  MainBoardWith({{"board.slot", "not a number"}});
  testsupport::WriteStartupIni("[board]\nslotid=7\n");
  uint32_t slot = 77;
  EXPECT_EQ(BOOT_INIT_GetSlotId(&slot), 2u);  // the driver's "not found"
  EXPECT_EQ(slot, 0u);
}

// ---- CPU ids ----

TEST_F(BoardIdentityTest, CpuIdFromTheBootEnvironment) {
  testsupport::SetEnv("cpu_id", "3");
  uint32_t cpu = 77;
  EXPECT_EQ(BOOT_INIT_GetCpuId(&cpu), 0u);
  EXPECT_EQ(cpu, 3u);
  testsupport::SetEnv("cpu_id", "abc");
  EXPECT_EQ(BOOT_INIT_GetCpuId(&cpu), 0u);
  EXPECT_EQ(cpu, 0u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(BoardIdentityTest, CpuIdUnsetIsZero) {
  uint32_t cpu = 77;
  EXPECT_EQ(BOOT_INIT_GetCpuId(&cpu), 0u);
  EXPECT_EQ(cpu, 0u);
  EXPECT_THAT(MainLog(), ElementsAre(kCpuIdUnread));
}

TEST_F(BoardIdentityTest, CpuIdReadIntoTwentyBytes) {
  testsupport::SetEnv("cpu_id", std::string(17, '0') + "12");  // 19 characters
  uint32_t cpu = 77;
  EXPECT_EQ(BOOT_INIT_GetCpuId(&cpu), 0u);
  EXPECT_EQ(cpu, 12u);
  EXPECT_THAT(MainLog(), ElementsAre());
  testsupport::SetEnv("cpu_id", std::string(18, '0') + "12");  // 20 characters
  cpu = 77;
  EXPECT_EQ(BOOT_INIT_GetCpuId(&cpu), 0u);
  EXPECT_EQ(cpu, 0u);
  EXPECT_THAT(MainLog(), ElementsAre(kCpuIdUnread));
}

TEST_F(BoardIdentityTest, StubCpuId) {
  testsupport::WriteStartupIni("[board]\ncpuid=7\n");
  uint32_t cpu = 77;
  EXPECT_EQ(BOOT_INIT_StubGetCpuId(&cpu), 0u);
  EXPECT_EQ(cpu, 7u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(BoardIdentityTest, StubCpuIdIsSignedDecimal) {
  const std::pair<const char *, uint32_t> cases[] = {
      {"12", 12},
      {"0x12", 0},
      {"-1", 0xFFFFFFFFu},
      {"12x", 12},
      // A signed conversion saturates a negative overflow at its smallest value.
      {"-99999999999999999999", 0}};
  for (const auto &[text, expected] : cases) {
    testsupport::WriteStartupIni(std::string("[board]\ncpuid=") + text + "\n");
    uint32_t cpu = 77;
    EXPECT_EQ(BOOT_INIT_StubGetCpuId(&cpu), 0u) << text;
    EXPECT_EQ(cpu, expected) << text;
  }
}

TEST_F(BoardIdentityTest, StubCpuIdFailures) {
  uint32_t cpu = 77;
  EXPECT_EQ(BOOT_INIT_StubGetCpuId(&cpu), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][INFO]:get cpuid unsuccessfully, stub file not exist."));
  testsupport::ClearMainLog();
  testsupport::WriteStartupIni("[board]\ncpuid=\n");
  EXPECT_EQ(BOOT_INIT_StubGetCpuId(&cpu), 0xFFFFFFFFu);
  testsupport::WriteStartupIni("[board]\nrole=1\n");
  EXPECT_EQ(BOOT_INIT_StubGetCpuId(&cpu), 0xFFFFFFFFu);
}

TEST_F(BoardIdentityTest, LogicCpuIdIsThePlatformsAnswer) {
  MainBoardWith({{"board.logic_cpu_id", "2"}});
  uint32_t cpu = 77;
  EXPECT_EQ(BOOT_INIT_GetLogicCpuId(&cpu), 0u);
  EXPECT_EQ(cpu, 2u);
  MainBoardWith({{"board.logic_cpu_id", "2"}, {"fail.SWM_GetLogicCpuId", "0x33"}});
  EXPECT_EQ(BOOT_INIT_GetLogicCpuId(&cpu), 0x33u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

// ---- simulation ----

TEST_F(BoardIdentityTest, SimulationOnlyForExactlyTrue) {
  testsupport::WriteStartupIni("[board]\nissimulation=true\n");
  EXPECT_EQ(BOOT_INIT_IsSimulate(), 1u);
  for (const std::string value : {"TRUE", "True", "1", "yes", "truex", "false", ""}) {
    testsupport::WriteStartupIni("[board]\nissimulation=" + value + "\n");
    EXPECT_EQ(BOOT_INIT_IsSimulate(), 0u) << value;
  }
  testsupport::WriteStartupIni("[board]\nrole=1\n");
  EXPECT_EQ(BOOT_INIT_IsSimulate(), 0u);
  testsupport::WriteStartupIni("[package]\nissimulation=true\n");
  EXPECT_EQ(BOOT_INIT_IsSimulate(), 0u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(BoardIdentityTest, NoSimulationWithoutStubFile) {
  EXPECT_EQ(BOOT_INIT_IsSimulate(), 0u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:get startup.ini file unsuccessfully, "
                                     "stub file not exist."));
}

}  // namespace
