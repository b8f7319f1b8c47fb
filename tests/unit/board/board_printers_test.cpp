// The printers of operation 1: exact standard output, log lines and results, including the
// failure forms of the lines and the summary line of sub-operation 8.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "board_fixture.hpp"
#include "bootinit/board.h"

using testing::ElementsAre;
using testsupport::MainLog;
using testsupport::RunOperation;
using testsupport::StdoutOf;

namespace {

const std::string kBadCount = "[BOOT_INIT][ERROR]:value1 is not equal to value2 when check ret.";
const std::string kDlopenSuccess = "[BOOT_INIT][INFO]:dlopen libsupport_linux.so success.";
const std::string kLoadGet = "[BOOT_INIT][INFO]:load PSSP_GetStartupMode success.";
const std::string kCcPath = "/opt/kytv8/home/a.cc";

class BoardPrinterTest : public boardtest::BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    testsupport::SetEnv("cpu_id", "0");
    testsupport::SetEnv("next_bootfile", kCcPath);
  }
};

using testsupport::Operation;

// Every printer of the table refuses a further argument without printing.
TEST_F(BoardPrinterTest, PrintersTakeNoArguments) {
  const Operation printers[] = {BOOT_InitGetCCPackageFullPath, BOOT_InitPrintBoardHardType,
                                BOOT_InitPrintRoleOfBoard,     BOOT_InitPrintCpuId,
                                BOOT_InitPrintChassisId,       BOOT_InitPrintSlotId,
                                BOOT_InitPrintHardActiveState, BOOT_InitPrintHardTypeList};
  int index = 0;
  for (const Operation printer : printers) {
    testsupport::ClearMainLog();
    const auto op = RunOperation(printer, {"x"});
    EXPECT_EQ(op.result, 0x10000001u) << index;
    EXPECT_EQ(op.out, "") << index;
    EXPECT_THAT(MainLog(), ElementsAre(kBadCount)) << index;
    ++index;
  }
}

// ---- 0: CC package path ----

TEST_F(BoardPrinterTest, CcPackagePath) {
  const auto op = RunOperation(BOOT_InitGetCCPackageFullPath, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nCC_PACKAGE_FULL_PATH:/opt/kytv8/home/a.cc\n");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:Get cc path:/opt/kytv8/home/a.cc"));
}

TEST_F(BoardPrinterTest, CcPackagePathFailurePrintsNothing) {
  testsupport::SetEnv("next_bootfile", "/opt/kytv8/home/a.cch");
  const auto op = RunOperation(BOOT_InitGetCCPackageFullPath, {});
  EXPECT_EQ(op.result, 0xFFFFFFFFu);
  EXPECT_EQ(op.out, "");
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Filename postfix error, ccFileName = a.cch",
                          "[BOOT_INIT][ERROR]:Cc filename error, fileName = a.cch",
                          "[BOOT_INIT][ERROR]:Cc package path checked failed.",
                          "[BOOT_INIT][INFO]:Get cc path failed"));
}

// ---- 1: hardware type ----

TEST_F(BoardPrinterTest, HardType) {
  const auto op = RunOperation(BOOT_InitPrintBoardHardType, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nBOARD_HARD_TYPE:0x1A2B\n");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:Get board type sucess:0x1A2B"));
}

TEST_F(BoardPrinterTest, HardTypeFromTheStub) {
  MainBoardWith({{"board.hard_type", "0"}});
  testsupport::WriteStartupIni("[board]\nhard_type=4660\n");
  const auto op = RunOperation(BOOT_InitPrintBoardHardType, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nBOARD_HARD_TYPE:0x1234\n");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:Get board type sucess:0x1234"));
}

TEST_F(BoardPrinterTest, HardTypeFailureLine) {
  MainBoardWith({{"board.hard_type", "0"}});  // and no stub file
  const auto op = RunOperation(BOOT_InitPrintBoardHardType, {});
  EXPECT_EQ(op.result, 0x10000003u);
  EXPECT_EQ(op.out, "\nBOARD_HARD_TYPE:0xFFFFFFFF");
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Get board type failed, result = 0x10000003"));
}

// ---- 2: role ----

TEST_F(BoardPrinterTest, RoleFromTheDriverWhateverTheCpu) {
  testsupport::RemovePath(testsupport::kMmbMarker);
  testsupport::SetEnv("cpu_id", "1");
  auto op = RunOperation(BOOT_InitPrintRoleOfBoard, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nBOARD_ROLE:MMB\n");
  testsupport::Touch(testsupport::kMmbMarker);
  for (const std::string role : {"3", "2"}) {
    MainBoardWith({{"board.role", role}});
    op = RunOperation(BOOT_InitPrintRoleOfBoard, {});
    EXPECT_EQ(op.result, 0u);
    EXPECT_EQ(op.out, "\nBOARD_ROLE:LC\n") << role;
  }
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(BoardPrinterTest, RoleFromTheMarkerWhenTheDriverFails) {
  MainBoardWith({{"fail.DEV_GetRoleOfBoard", "9"}});
  testsupport::SetEnv("cpu_id", "1");
  auto op = RunOperation(BOOT_InitPrintRoleOfBoard, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nBOARD_ROLE:MMB\n");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][WARNING]:DEV_GetRoleOfBoard unsuccessfully, "
                                     "result = 0x9, get role from stub"));
  testsupport::RemovePath(testsupport::kMmbMarker);
  op = RunOperation(BOOT_InitPrintRoleOfBoard, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nBOARD_ROLE:LC\n");
}

// ---- 3, 4, 5: ids ----

TEST_F(BoardPrinterTest, CpuId) {
  MainBoardWith({{"board.logic_cpu_id", "0xAB"}});
  const auto op = RunOperation(BOOT_InitPrintCpuId, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nCPU_ID:0xAB\n");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:Get cpu id sucess:0xAB"));
}

TEST_F(BoardPrinterTest, CpuIdFailureStillPrintsWhatWasObtained) {
  // The platform writes the id before it reports the failure.
  MainBoardWith({{"board.logic_cpu_id", "5"}, {"fail.SWM_GetLogicCpuId", "0x21"}});
  auto op = RunOperation(BOOT_InitPrintCpuId, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nCPU_ID:0x5\n");
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Get cpu id from stub failed, result = 0x21",
                          "[BOOT_INIT][INFO]:Get cpu id sucess:0x5"));
  // Nothing obtained: 0.
  testsupport::ClearMainLog();
  MainBoardWith({{"board.logic_cpu_id", "not a number"}});
  op = RunOperation(BOOT_InitPrintCpuId, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nCPU_ID:0x0\n");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Get cpu id from stub failed, result = 0x3",
                                     "[BOOT_INIT][INFO]:Get cpu id sucess:0x0"));
}

TEST_F(BoardPrinterTest, ChassisId) {
  const auto op = RunOperation(BOOT_InitPrintChassisId, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nCHASSIS_ID:0x1\n");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:Get chassisid sucess:0x1"));
}

TEST_F(BoardPrinterTest, SlotId) {
  MainBoardWith({{"board.slot", "28"}});
  const auto op = RunOperation(BOOT_InitPrintSlotId, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nSLOT_ID:0x1C\n");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:Get slotid sucess:0x1C"));
}

TEST_F(BoardPrinterTest, SlotIdFailureStillPrints) {
  MainBoardWith({{"board.slot", "3"}, {"fail.SWM_GetSlotId", "0x44"}});
  auto op = RunOperation(BOOT_InitPrintSlotId, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nSLOT_ID:0x3\n");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][WARNING]:Get slotid not OK, result = 0x44",
                                     "[BOOT_INIT][INFO]:Get slotid sucess:0x3"));
  testsupport::ClearMainLog();
  MainBoardWith({{"board.slot", "none"}});
  op = RunOperation(BOOT_InitPrintSlotId, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nSLOT_ID:0x0\n");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][WARNING]:Get slotid not OK, result = 0x3",
                                     "[BOOT_INIT][INFO]:Get slotid sucess:0x0"));
}

// ---- 6: active state ----

TEST_F(BoardPrinterTest, ActiveStateOfTheMmb) {
  auto op = RunOperation(BOOT_InitPrintHardActiveState, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nBOARD_HARD_ACTIVE_STATE:MASTER");
  MainBoardWith({{"board.active_state", "1"}});
  op = RunOperation(BOOT_InitPrintHardActiveState, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nBOARD_HARD_ACTIVE_STATE:SLAVE");
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(BoardPrinterTest, ActiveStateDriverCodes) {
  MainBoardWith({{"board.active_state", "1"}, {"fail.drv_msc_get_state", "2983"}});
  auto op = RunOperation(BOOT_InitPrintHardActiveState, {});
  EXPECT_EQ(op.out, "\nBOARD_HARD_ACTIVE_STATE:MASTER");
  MainBoardWith({{"board.active_state", "0"}, {"fail.drv_msc_get_state", "7"}});
  op = RunOperation(BOOT_InitPrintHardActiveState, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nBOARD_HARD_ACTIVE_STATE:SLAVE");
}

TEST_F(BoardPrinterTest, ActiveStateOffTheMmbIsInvalid) {
  LineCardWith();
  auto op = RunOperation(BOOT_InitPrintHardActiveState, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nBOARD_HARD_ACTIVE_STATE:INVALID");
  // CPU 1 of a main board is not the MMB either.
  testsupport::DescribeBoard(testsupport::ActiveMainBoard());
  testsupport::Touch(testsupport::kMmbMarker);
  testsupport::SetEnv("cpu_id", "1");
  op = RunOperation(BOOT_InitPrintHardActiveState, {});
  EXPECT_EQ(op.out, "\nBOARD_HARD_ACTIVE_STATE:INVALID");
}

// ---- 9: all ids ----

TEST_F(BoardPrinterTest, AllIdsInOrder) {
  MainBoardWith({{"board.logic_cpu_id", "2"}, {"board.slot", "4"}});
  const auto op = RunOperation(BOOT_InitPrintAllBoardInfoId, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nCPU_ID:0x2\n\nCHASSIS_ID:0x1\n\nSLOT_ID:0x4\n");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:Get cpu id sucess:0x2",
                                     "[BOOT_INIT][INFO]:Get chassisid sucess:0x1",
                                     "[BOOT_INIT][INFO]:Get slotid sucess:0x4"));
}

// ---- 10: hardware type list ----

TEST_F(BoardPrinterTest, HardTypeListIsDecimalAndBeginsWithASpace) {
  MainBoardWith({{"board.hard_types", "0x1234,0x1235"}});
  const auto op = RunOperation(BOOT_InitPrintHardTypeList, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nBOARD_HARD_LIST: 4660 4661\n");
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(BoardPrinterTest, HardTypeListOfAtMostEight) {
  MainBoardWith({{"board.hard_types", "1,2,3,4,5,6,7,8,9"}});
  const auto op = RunOperation(BOOT_InitPrintHardTypeList, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nBOARD_HARD_LIST: 1 2 3 4 5 6 7 8\n");
}

TEST_F(BoardPrinterTest, HardTypeListUsesSignedDecimal) {
  MainBoardWith({{"board.hard_types", "0x80000000 0xFFFFFFFF 0"}});
  const auto op = RunOperation(BOOT_InitPrintHardTypeList, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nBOARD_HARD_LIST: -2147483648 -1 0\n");
}

TEST_F(BoardPrinterTest, EmptyHardTypeList) {
  MainBoardWith({{"board.hard_types", ""}});
  const auto op = RunOperation(BOOT_InitPrintHardTypeList, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "\nBOARD_HARD_LIST:\n");
}

TEST_F(BoardPrinterTest, HardTypeListFailureLine) {
  MainBoardWith({{"fail.SWM_GetBoardMultiHardType", "9"}});
  const auto op = RunOperation(BOOT_InitPrintHardTypeList, {});
  EXPECT_EQ(op.result, 0xFFFFFFFFu);
  EXPECT_EQ(op.out, "\nBOARD_HARD_LIST:0xFFFFFFFF");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Get hard type list failed, ret = 9."));
}

TEST_F(BoardPrinterTest, HardTypeListGoesOnAfterAFailedAppend) {
  MainBoardWith({{"board.hard_types", "4660,4661,4662"}});
  formatfaults::FailFormat("%s %d", 2);
  const auto op = RunOperation(BOOT_InitPrintHardTypeList, {});
  EXPECT_EQ(formatfaults::Get().failed, 1);
  formatfaults::Reset();
  EXPECT_EQ(op.result, 0u);
  EXPECT_THAT(op.out, testing::StartsWith("\nBOARD_HARD_LIST:"));
  EXPECT_THAT(op.out, testing::EndsWith(" 4662\n"));
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:snprintf unsuccessfully: "
                                     "BOOT_InitPrintHardTypeList"));
}

// ---- 8: summary line ----

TEST_F(BoardPrinterTest, SummaryOfTheActiveMmbStartingFromTheNetwork) {
  const auto op = RunOperation(BOOT_InitPrintBoradAllInfo, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "MMB;network;0x1a2b;MASTER;/opt/kytv8/home/a.cc;;\n");
  EXPECT_THAT(MainLog(), ElementsAre(kDlopenSuccess, kLoadGet));
}

TEST_F(BoardPrinterTest, SummaryOfTheActiveMmbStartingLocally) {
  testsupport::SetEnv("startup_mode", "1");
  const auto op = RunOperation(BOOT_InitPrintBoradAllInfo, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "MMB;local;0x1a2b;MASTER;/opt/kytv8/home/a.cc;/opt/kytv8/backup;\n");
  EXPECT_THAT(MainLog(), ElementsAre(kDlopenSuccess, kLoadGet));
}

TEST_F(BoardPrinterTest, SummaryOfTheStandbyMmb) {
  MainBoardWith({{"board.active_state", "1"}});
  const auto op = RunOperation(BOOT_InitPrintBoradAllInfo, {});
  EXPECT_EQ(op.out, "MMB;network;0x1a2b;SLAVE;/opt/kytv8/home/a.cc;;\n");
}

TEST_F(BoardPrinterTest, SummaryOfALineCardHasNoCcPath) {
  LineCardWith();
  auto op = RunOperation(BOOT_InitPrintBoradAllInfo, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "LC;network;0x2b3c;INVALID;;;\n");
  testsupport::SetEnv("startup_mode", "1");
  op = RunOperation(BOOT_InitPrintBoradAllInfo, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "LC;local;0x2b3c;INVALID;;/opt/kytv8/backup;\n");
}

TEST_F(BoardPrinterTest, SummaryOfCpuOneOfAMainBoard) {
  testsupport::SetEnv("cpu_id", "1");
  const auto op = RunOperation(BOOT_InitPrintBoradAllInfo, {});
  EXPECT_EQ(op.out, "LC;network;0x1a2b;INVALID;;;\n");
}

TEST_F(BoardPrinterTest, SummaryTypeOfZero) {
  MainBoardWith({{"board.hard_type", "0"}});
  testsupport::WriteStartupIni("[board]\nhard_type=0\n");
  const auto op = RunOperation(BOOT_InitPrintBoradAllInfo, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "MMB;network;0;MASTER;/opt/kytv8/home/a.cc;;\n");
}

TEST_F(BoardPrinterTest, SummaryWithAnUnreadableType) {
  MainBoardWith({{"fail.drv_board_get_type", "0x55"}});
  const auto op = RunOperation(BOOT_InitPrintBoradAllInfo, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "MMB;network;0;MASTER;/opt/kytv8/home/a.cc;;\n");
  EXPECT_THAT(MainLog(), ElementsAre(kDlopenSuccess, kLoadGet,
                                     "[BOOT_INIT][ERROR]:Get board hard type failed, ret = 85"));
}

TEST_F(BoardPrinterTest, SummaryWithAnUnreadableCcPath) {
  testsupport::UnsetEnv("next_bootfile");
  const auto op = RunOperation(BOOT_InitPrintBoradAllInfo, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "MMB;network;0x1a2b;MASTER;;;\n");
}

TEST_F(BoardPrinterTest, SummaryWithARefusedCcPath) {
  // The path was read, then refused: the field stays empty all the same.
  testsupport::MakeDir("/opt/kytv8/home/sub");
  testsupport::SetEnv("next_bootfile", "/opt/kytv8/home/sub/a.cc");
  const auto op = RunOperation(BOOT_InitPrintBoradAllInfo, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "MMB;network;0x1a2b;MASTER;;;\n");
}

TEST_F(BoardPrinterTest, SummaryWithAnUnusableBackupPath) {
  testsupport::SetEnv("startup_mode", "1");
  MainBoardWith({{"support.backup_dir", "/opt/kytv8/nobackup"}});
  auto op = RunOperation(BOOT_InitPrintBoradAllInfo, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "MMB;local;0x1a2b;MASTER;/opt/kytv8/home/a.cc;;\n");
  // The backup path is read into 32 bytes.
  const std::string dir32 = "/opt/kytv8/backup/" + std::string(14, 'b');
  testsupport::MakeDir(dir32);
  MainBoardWith({{"support.backup_dir", dir32}});
  op = RunOperation(BOOT_InitPrintBoradAllInfo, {});
  EXPECT_EQ(op.out, "MMB;local;0x1a2b;MASTER;/opt/kytv8/home/a.cc;;\n");
  const std::string dir31 = dir32.substr(0, 31);
  testsupport::MakeDir(dir31);
  MainBoardWith({{"support.backup_dir", dir31}});
  op = RunOperation(BOOT_InitPrintBoradAllInfo, {});
  EXPECT_EQ(op.out, "MMB;local;0x1a2b;MASTER;/opt/kytv8/home/a.cc;" + dir31 + ";\n");
}

TEST_F(BoardPrinterTest, SummaryWithoutTheSupportLibraryStartsFromTheNetwork) {
  testsupport::SetEnv("startup_mode", "1");
  testsupport::RemovePlatformLibrary(testsupport::kSupportLibrary);
  const auto op = RunOperation(BOOT_InitPrintBoradAllInfo, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "MMB;network;0x1a2b;MASTER;/opt/kytv8/home/a.cc;;\n");
}

TEST_F(BoardPrinterTest, SummaryLeavesOutAFieldThatDoesNotFit) {
  // A CC path of 383 characters, valid (it names an existing package in the home directory),
  // cannot follow the 26 characters before it in a 384-byte line.
  testsupport::Touch(kCcPath);
  const std::string path = "/opt/kytv8/home" + std::string(364, '/') + "a.cc";
  ASSERT_EQ(path.size(), 383u);
  testsupport::SetEnv("next_bootfile", path);
  const auto op = RunOperation(BOOT_InitPrintBoradAllInfo, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "MMB;network;0x1a2b;MASTER;;;\n");
  EXPECT_THAT(MainLog(),
              ElementsAre(kDlopenSuccess, kLoadGet,
                          "[BOOT_INIT][ERROR]:strcat boardinfo(4) " + path + " failed."));
}

TEST_F(BoardPrinterTest, SummaryLeavesOutASeparatorThatDoesNotFit) {
  // 26 + 357 characters fill the line to its last byte: the text fits, its separator does not,
  // and neither does the separator of the empty backup path after it.
  testsupport::Touch(kCcPath);
  const std::string path = "/opt/kytv8/home" + std::string(338, '/') + "a.cc";
  ASSERT_EQ(path.size(), 357u);
  testsupport::SetEnv("next_bootfile", path);
  const auto op = RunOperation(BOOT_InitPrintBoradAllInfo, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "MMB;network;0x1a2b;MASTER;" + path + "\n");
  EXPECT_THAT(MainLog(), ElementsAre(kDlopenSuccess, kLoadGet,
                                     "[BOOT_INIT][ERROR]:add Separator failed, info: " + path,
                                     "[BOOT_INIT][ERROR]:add Separator failed, info: "));
}

TEST_F(BoardPrinterTest, SummaryLineJustFits) {
  testsupport::Touch(kCcPath);
  const std::string path = "/opt/kytv8/home" + std::string(337, '/') + "a.cc";  // 356
  testsupport::SetEnv("next_bootfile", path);
  const auto op = RunOperation(BOOT_InitPrintBoradAllInfo, {});
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "MMB;network;0x1a2b;MASTER;" + path + ";\n");
  EXPECT_THAT(MainLog(), ElementsAre(kDlopenSuccess, kLoadGet,
                                     "[BOOT_INIT][ERROR]:add Separator failed, info: "));
}

TEST_F(BoardPrinterTest, SummaryFailsOnlyWhenTheTypeCannotBeFormatted) {
  formatfaults::FailFormat("%#x");
  const auto op = RunOperation(BOOT_InitPrintBoradAllInfo, {});
  EXPECT_EQ(formatfaults::Get().failed, 1);
  formatfaults::Reset();
  EXPECT_EQ(op.result, 0xFFFFFFFFu);
  EXPECT_EQ(op.out, "MMB;network;;MASTER;/opt/kytv8/home/a.cc;;\n");
}

// ---- printers no sub-operation reaches ----

TEST_F(BoardPrinterTest, BoardRolePrinterWithTheDriver) {
  uint32_t result = 0;
  std::string out = StdoutOf([&] { result = BOOT_InitPrintBoardRole(); });
  EXPECT_EQ(result, 1u);
  EXPECT_EQ(out, "\nBOARD_ROLE:MMB\n");
  testsupport::SetEnv("cpu_id", "1");
  out = StdoutOf([&] { result = BOOT_InitPrintBoardRole(); });
  EXPECT_EQ(result, 1u);  // the role the driver gave
  EXPECT_EQ(out, "\nBOARD_ROLE:LC\n");
  testsupport::SetEnv("cpu_id", "0");
  MainBoardWith({{"board.role", "3"}});
  out = StdoutOf([&] { result = BOOT_InitPrintBoardRole(); });
  EXPECT_EQ(result, 3u);
  EXPECT_EQ(out, "\nBOARD_ROLE:LC\n");
}

TEST_F(BoardPrinterTest, BoardRolePrinterWithoutTheDriver) {
  MainBoardWith({{"fail.DEV_GetRoleOfBoard", "9"}});
  uint32_t result = 7;
  std::string out = StdoutOf([&] { result = BOOT_InitPrintBoardRole(); });
  EXPECT_EQ(result, 1u);
  EXPECT_EQ(out, "\nBOARD_ROLE:MMB\n");
  testsupport::SetEnv("cpu_id", "1");
  out = StdoutOf([&] { result = BOOT_InitPrintBoardRole(); });
  EXPECT_EQ(result, 0u);
  EXPECT_EQ(out, "\nBOARD_ROLE:LC\n");
  testsupport::SetEnv("cpu_id", "0");
  testsupport::RemovePath(testsupport::kMmbMarker);
  out = StdoutOf([&] { result = BOOT_InitPrintBoardRole(); });
  EXPECT_EQ(result, 0u);
  EXPECT_EQ(out, "\nBOARD_ROLE:LC\n");
}

TEST_F(BoardPrinterTest, StartupModePrinter) {
  testsupport::SetEnv("startup_mode", "1");
  uint32_t result = 7;
  std::string out = StdoutOf([&] { result = BOOT_InitPrintStartupMode(0); });
  EXPECT_EQ(result, 1u);
  EXPECT_EQ(out, "\nSTARTUP_MODE:local\n");
  EXPECT_THAT(MainLog(),
              ElementsAre(kDlopenSuccess, kLoadGet, "[BOOT_INIT][INFO]:Get startup mode :1"));
  testsupport::SetEnv("startup_mode", "0");
  out = StdoutOf([&] { result = BOOT_InitPrintStartupMode(0); });
  EXPECT_EQ(result, 0u);
  EXPECT_EQ(out, "\nSTARTUP_MODE:network\n");
}

TEST_F(BoardPrinterTest, StartupModePrinterWithoutTheSupportLibrary) {
  testsupport::SetEnv("startup_mode", "1");
  testsupport::RemovePlatformLibrary(testsupport::kSupportLibrary);
  uint32_t result = 7;
  const std::string out = StdoutOf([&] { result = BOOT_InitPrintStartupMode(0); });
  EXPECT_EQ(result, 0u);
  EXPECT_EQ(out, "\nSTARTUP_MODE:network\n");
  EXPECT_EQ(MainLog().back(), "[BOOT_INIT][INFO]:Get startup mode :0");
}

TEST_F(BoardPrinterTest, StartupModePrinterTakesNoArgument) {
  uint32_t result = 7;
  const std::string out = StdoutOf([&] { result = BOOT_InitPrintStartupMode(1); });
  EXPECT_EQ(result, 0x10000001u);
  EXPECT_EQ(out, "");
  EXPECT_THAT(MainLog(), ElementsAre(kBadCount));
}

}  // namespace
