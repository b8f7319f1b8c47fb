// The printers of operation 1. Each answer is a line with a fixed tag on standard output; a
// printer that cannot get its value prints the failure form, so a script always finds its tag.
#include <cstdio>
#include <cstring>
#include <span>

#include "board/board_driver.hpp"
#include "bootinit/board.h"
#include "bootinit/log.h"
#include "bootinit/startup.h"
#include "boundedstr.h"
#include "common/support/fixed_text.hpp"
#include "common/support/messages.hpp"
#include "swm.h"
#include "tkal.h"

namespace bootinit::board {
namespace {

constexpr const char *kMmbMarker = "/opt/MMB";
constexpr uint32_t kFailureValue = 0xFFFFFFFF;
constexpr uint32_t kMaxHardTypes = 8;
constexpr std::size_t kHardListLen = 264;
constexpr std::size_t kSummaryLen = 384;
constexpr std::size_t kCcPathLen = 384;
constexpr uint32_t kBackupPathLen = 32;
constexpr std::size_t kTypeTextLen = 32;

// Printers take no further argument.
bool NoArguments(int32_t argc) {
  if (argc == 0) {
    return true;
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][ERROR]:value1 is not equal to value2 when check ret.");
  return false;
}

void PutRole(bool mmb) { (void)std::puts(mmb ? "\nBOARD_ROLE:MMB" : "\nBOARD_ROLE:LC"); }

// Appends one summary field and its separator; a field that does not fit is left out whole.
void AppendField(std::span<char> line, int index, const char *text) {
  const std::size_t used = std::strlen(line.data());
  if (used + std::strlen(text) >= line.size()) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:strcat boardinfo(%d) %s failed.", index, text);
  } else {
    std::memcpy(line.data() + used, text, std::strlen(text) + 1);
  }
  if (std::strlen(line.data()) + 1 >= line.size()) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:add Separator failed, info: %s",
                       text);
    return;
  }
  (void)strcat_s(line.data(), line.size(), ";");
}

const char *ActiveStateText(bool mmb) {
  if (!mmb) {
    return "INVALID";
  }
  return BOOT_INIT_BoardIsMaster() == 1 ? "MASTER" : "SLAVE";
}

}  // namespace

uint32_t PrintCCPackageFullPath() {
  char path[kCcPathLen] = {};
  if (BOOT_InitGetCCPackage(path, sizeof(path)) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:Get cc path failed");
    return BOOT_INIT_ERROR;
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:Get cc path:%s", path);
  (void)std::printf("\nCC_PACKAGE_FULL_PATH:%s\n", path);
  return BOOT_INIT_OK;
}

uint32_t PrintBoardHardType() {
  uint32_t type = 0;
  const uint32_t ret = BOOT_InitGetBoardHardType(&type);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get board type failed, result = 0x%x", ret);
    (void)std::printf("\nBOARD_HARD_TYPE:0x%X", kFailureValue);
    return ret;
  }
  (void)std::printf("\nBOARD_HARD_TYPE:0x%X\n", type);
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:Get board type sucess:0x%X", type);
  return BOOT_INIT_OK;
}

// The driver's role decides when it answers; otherwise the marker file. The CPU id plays no part.
uint32_t PrintRoleOfBoard() {
  if (DEV_GetRoleOfBoard != nullptr) {
    uint32_t role = BOOT_INIT_ROLE_MMB;
    const uint32_t ret = DEV_GetRoleOfBoard(&role);
    if (ret == 0) {
      PutRole(role == BOOT_INIT_ROLE_MMB);
      return BOOT_INIT_OK;
    }
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARNING]:DEV_GetRoleOfBoard unsuccessfully, result = 0x%x, get "
                       "role from stub",
                       ret);
  }
  PutRole(TKAL_IsFileExist(kMmbMarker) != 0);
  return BOOT_INIT_OK;
}

uint32_t PrintCpuId() {
  uint32_t cpuId = 0;
  const uint32_t ret = SWM_GetLogicCpuId(&cpuId);
  if (ret != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get cpu id from stub failed, result = 0x%x", ret);
  }
  (void)std::printf("\nCPU_ID:0x%X\n", cpuId);
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:Get cpu id sucess:0x%X", cpuId);
  return BOOT_INIT_OK;
}

uint32_t PrintChassisId() {
  uint32_t chassisId = 0;
  const uint32_t ret = BOOT_INIT_GetChassisId(&chassisId);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get chassisid failed, result = 0x%x", ret);
  }
  (void)std::printf("\nCHASSIS_ID:0x%X\n", chassisId);
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:Get chassisid sucess:0x%X",
                     chassisId);
  return BOOT_INIT_OK;
}

uint32_t PrintSlotId() {
  uint32_t slotId = 0;
  const uint32_t ret = SWM_GetSlotId(&slotId);
  if (ret != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARNING]:Get slotid not OK, result = 0x%x", ret);
  }
  (void)std::printf("\nSLOT_ID:0x%X\n", slotId);
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:Get slotid sucess:0x%X", slotId);
  return BOOT_INIT_OK;
}

uint32_t PrintHardActiveState() {
  (void)std::printf("\nBOARD_HARD_ACTIVE_STATE:%s", ActiveStateText(BOOT_INIT_BoardIsMMB() == 1));
  return BOOT_INIT_OK;
}

// The list is decimal, unlike every other number of operation 1, and begins with a space.
uint32_t PrintHardTypeList() {
  uint32_t types[kMaxHardTypes] = {};
  uint32_t count = kMaxHardTypes;
  const uint32_t ret = SWM_GetBoardMultiHardType(types, &count);
  if (ret != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get hard type list failed, ret = %u.", ret);
    (void)std::printf("\nBOARD_HARD_LIST:0x%X", kFailureValue);
    return BOOT_INIT_ERROR;
  }
  char list[kHardListLen] = {};
  for (uint32_t i = 0; i < count && i < kMaxHardTypes; ++i) {
    char sofar[kHardListLen] = {};
    (void)strcpy_s(sofar, sizeof(sofar), list);
    if (!FormatInto(list, "%s %d", sofar, static_cast<int>(types[i]))) {
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_SNPRINTF_FAILED,
                         "BOOT_InitPrintHardTypeList");
    }
  }
  (void)std::printf("\nBOARD_HARD_LIST:%s\n", list);
  return BOOT_INIT_OK;
}

// role;mode;type;state;cc path;backup path; — the CC path only on the MMB, the backup path only
// when starting locally.
uint32_t PrintBoardAllInfo() {
  uint32_t role = BOOT_INIT_ROLE_LC;
  (void)BOOT_INIT_GetRoleOfBoard(&role);
  const bool mmb = role == BOOT_INIT_ROLE_MMB;

  uint32_t mode = BOOT_INIT_STARTUP_MODE_INVALID;
  BOOT_INIT_GetStartupMode(&mode);
  const bool local = mode == BOOT_INIT_STARTUP_MODE_LOCAL;

  uint32_t type = 0;
  const uint32_t typeRet = BOOT_InitGetBoardHardType(&type);
  if (typeRet != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get board hard type failed, ret = %u", typeRet);
    type = 0;
  }
  char typeText[kTypeTextLen] = {};
  uint32_t result = BOOT_INIT_OK;
  if (!FormatInto(typeText, "%#x", type)) {
    result = BOOT_INIT_ERROR;
  }

  char ccPath[kCcPathLen] = {};
  if (mmb && BOOT_InitGetCCPackage(ccPath, sizeof(ccPath)) != BOOT_INIT_OK) {
    ccPath[0] = '\0';
  }
  char backupPath[kBackupPathLen] = {};
  if (local && BOOT_INIT_GetBackUpPath(backupPath, sizeof(backupPath)) != BOOT_INIT_OK) {
    backupPath[0] = '\0';
  }

  const char *fields[] = {
      mmb ? "MMB" : "LC", local ? "local" : "network", typeText, ActiveStateText(mmb), ccPath,
      backupPath};
  char line[kSummaryLen] = {};
  int index = 0;
  for (const char *field : fields) {
    AppendField(line, index++, field);
  }
  (void)std::puts(line);
  return result;
}

}  // namespace bootinit::board

using namespace bootinit::board;

extern "C" {

uint32_t BOOT_InitGetCCPackageFullPath(int32_t argc, char ** /*argv*/) {
  return NoArguments(argc) ? PrintCCPackageFullPath() : BOOT_INIT_ERR_PARAM;
}

uint32_t BOOT_InitPrintBoardHardType(int32_t argc, char ** /*argv*/) {
  return NoArguments(argc) ? PrintBoardHardType() : BOOT_INIT_ERR_PARAM;
}

uint32_t BOOT_InitPrintRoleOfBoard(int32_t argc, char ** /*argv*/) {
  return NoArguments(argc) ? PrintRoleOfBoard() : BOOT_INIT_ERR_PARAM;
}

uint32_t BOOT_InitPrintCpuId(int32_t argc, char ** /*argv*/) {
  return NoArguments(argc) ? PrintCpuId() : BOOT_INIT_ERR_PARAM;
}

uint32_t BOOT_InitPrintChassisId(int32_t argc, char ** /*argv*/) {
  return NoArguments(argc) ? PrintChassisId() : BOOT_INIT_ERR_PARAM;
}

uint32_t BOOT_InitPrintSlotId(int32_t argc, char ** /*argv*/) {
  return NoArguments(argc) ? PrintSlotId() : BOOT_INIT_ERR_PARAM;
}

uint32_t BOOT_InitPrintHardActiveState(int32_t argc, char ** /*argv*/) {
  return NoArguments(argc) ? PrintHardActiveState() : BOOT_INIT_ERR_PARAM;
}

uint32_t BOOT_InitPrintHardTypeList(int32_t argc, char ** /*argv*/) {
  return NoArguments(argc) ? PrintHardTypeList() : BOOT_INIT_ERR_PARAM;
}

uint32_t BOOT_InitPrintBoradAllInfo(int32_t /*argc*/, char ** /*argv*/) {
  return PrintBoardAllInfo();
}

// The ids in the order CPU, chassis, slot; a failing one is logged and the others still run.
uint32_t BOOT_InitPrintAllBoardInfoId(int32_t argc, char **argv) {
  uint32_t ret = BOOT_InitPrintCpuId(argc, argv);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get cpu id unsuccessfully, result = 0x%x", ret);
  }
  ret = BOOT_InitPrintChassisId(argc, argv);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get chassisid unsuccessfully, result = 0x%x", ret);
  }
  ret = BOOT_InitPrintSlotId(argc, argv);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get slotid unsuccessfully, result = 0x%x", ret);
  }
  return BOOT_INIT_OK;
}

// Unlike the role printer of the table, only CPU 0 of a main board is reported as the MMB.
uint32_t BOOT_InitPrintBoardRole(void) {
  uint32_t cpuId = 0;
  (void)BOOT_INIT_GetCpuId(&cpuId);
  if (DEV_GetRoleOfBoard != nullptr) {
    uint32_t role = BOOT_INIT_ROLE_MMB;
    if (DEV_GetRoleOfBoard(&role) == 0) {
      PutRole(role == BOOT_INIT_ROLE_MMB && cpuId == 0);
      return role;
    }
  }
  const bool mmb = TKAL_IsFileExist(kMmbMarker) != 0 && cpuId == 0;
  PutRole(mmb);
  return mmb ? 1u : 0u;
}

uint32_t BOOT_InitPrintStartupMode(int32_t argc) {
  if (!NoArguments(argc)) {
    return BOOT_INIT_ERR_PARAM;
  }
  uint32_t mode = BOOT_INIT_STARTUP_MODE_INVALID;
  BOOT_INIT_GetStartupMode(&mode);
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:Get startup mode :%u", mode);
  (void)std::puts(mode == BOOT_INIT_STARTUP_MODE_LOCAL ? "\nSTARTUP_MODE:local"
                                                       : "\nSTARTUP_MODE:network");
  return mode <= BOOT_INIT_STARTUP_MODE_LOCAL ? mode : 0u;
}

}  // extern "C"
