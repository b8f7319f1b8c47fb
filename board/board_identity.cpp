// Who this board is: hardware type, role, active state, slot, chassis and CPU ids. The driver
// answers where it can; the developer file /opt/startup.ini stands in where it cannot.
#include <cstdlib>
#include <cstring>

#include "board/board_driver.hpp"
#include "bootinit/board.h"
#include "bootinit/common.h"
#include "bootinit/log.h"
#include "swm.h"
#include "tkal.h"

namespace bootinit::board {
namespace {

constexpr const char *kBoardSection = "[board]";
constexpr const char *kMmbMarker = "/opt/MMB";
constexpr const char *kCpuIdEnv = "cpu_id";
constexpr uint32_t kStartupIniValueLen = 512;
constexpr uint32_t kCpuIdEnvLen = 20;

bool StartupIniExists() { return TKAL_IsFileExist(BOOT_INIT_GetIniFile()) != 0; }

// A "[board]" value of /opt/startup.ini: the ini reader's result, value in out.
uint32_t ReadBoardKey(const char *key, char (&out)[kStartupIniValueLen]) {
  return SWM_IniGetValue(BOOT_INIT_GetIniFile(), kBoardSection, key, out, sizeof(out));
}

uint32_t ParseDecimal(const char *text) {
  return static_cast<uint32_t>(std::strtol(text, nullptr, 10));
}

}  // namespace

uint32_t GetBoardHardType(uint32_t *type) {
  uint32_t driverType = 0;
  const uint32_t ret = drv_board_get_type(DRV_OWN_BOARD, &driverType);
  if (ret != 0) {
    return ret;
  }
  if (driverType != 0) {
    *type = driverType;
    return BOOT_INIT_OK;
  }
  return BOOT_INIT_StubGetBoardHardType(type);
}

uint32_t HardTypeFromStartupIni(uint32_t *type) {
  *type = 0;
  if (!StartupIniExists()) {
    return BOOT_INIT_ERR_FILE_NOT_EXIST;
  }
  char value[kStartupIniValueLen] = {};
  const uint32_t ret = ReadBoardKey("hard_type", value);
  if (ret != 0) {
    return ret;
  }
  *type = static_cast<uint32_t>(std::strtoul(value, nullptr, 10));
  return BOOT_INIT_OK;
}

uint32_t GetBoardHardActiveState(uint32_t *state) {
  uint32_t value = 0;
  const uint32_t ret = drv_msc_get_state(DRV_OWN_BOARD, 0, &value);
  if (ret == 0) {
    *state = value;
    return BOOT_INIT_OK;
  }
  // These two driver answers mean there is nobody to share the work with: this board leads.
  if (LowCode(ret) == kDrvCodeNoPeer || LowCode(ret) == kDrvCodeNotReady) {
    *state = 0;
    return BOOT_INIT_OK;
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][ERROR]:BOOT_INIT_GetBoardHardActiveState, get uiHaStatus error, "
                     "ret:%x",
                     ret);
  return ret;
}

// Only CPU 0 of a main board is the MMB.
uint32_t GetRoleOfBoard(uint32_t *role) {
  uint32_t cpuId = 0;
  const uint32_t cpuRet = BOOT_INIT_GetCpuId(&cpuId);
  if (cpuRet != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARNING]:Get cpu id failed, result = 0x%x", cpuRet);
  }
  bool driverAnswered = false;
  if (DEV_GetRoleOfBoard != nullptr) {
    uint32_t driverRole = BOOT_INIT_ROLE_MMB;
    if (DEV_GetRoleOfBoard(&driverRole) == 0) {
      if (driverRole != BOOT_INIT_ROLE_MMB) {
        *role = BOOT_INIT_ROLE_LC;
        return BOOT_INIT_OK;
      }
      driverAnswered = true;
    }
  }
  if (!driverAnswered && !TKAL_IsFileExist(kMmbMarker)) {
    *role = BOOT_INIT_ROLE_LC;
    return BOOT_INIT_OK;
  }
  *role = cpuId == 0 ? BOOT_INIT_ROLE_MMB : BOOT_INIT_ROLE_LC;
  return BOOT_INIT_OK;
}

uint32_t GetSlotId(uint32_t *slot) {
  *slot = 0;
  if (drv_board_get_self_logic_slotid != nullptr) {
    const uint32_t ret = drv_board_get_self_logic_slotid(slot);
    if (LowCode(ret) == kDrvCodeNoPeer) {
      *slot = 1;
      return BOOT_INIT_OK;
    }
    return ret;
  }
  char value[kStartupIniValueLen] = {};
  if (ReadBoardKey("slotid", value) != 0 || value[0] == '\0') {
    return BOOT_INIT_ERROR;
  }
  *slot = ParseDecimal(value);
  return BOOT_INIT_OK;
}

uint32_t GetCpuId(uint32_t *cpuId) {
  char value[kCpuIdEnvLen] = {};
  if (drv_env_get(kCpuIdEnv, value, sizeof(value), 0) != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][INFO]:get cpu id unsuccessfully, set cpuid = 0.");
    *cpuId = 0;
    return BOOT_INIT_OK;
  }
  *cpuId = ParseDecimal(value);
  return BOOT_INIT_OK;
}

uint32_t CpuIdFromStartupIni(uint32_t *cpuId) {
  if (!StartupIniExists()) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][INFO]:get cpuid unsuccessfully, stub file not exist.");
    return BOOT_INIT_ERROR;
  }
  char value[kStartupIniValueLen] = {};
  if (ReadBoardKey("cpuid", value) != 0 || value[0] == '\0') {
    return BOOT_INIT_ERROR;
  }
  *cpuId = ParseDecimal(value);
  return BOOT_INIT_OK;
}

uint32_t IsSimulate() {
  if (!StartupIniExists()) {
    BOOT_INIT_LogWrite(
        BOOT_INIT_LOG_TYPE_MAIN,
        "[BOOT_INIT][INFO]:get startup.ini file unsuccessfully, stub file not exist.");
    return 0;
  }
  char value[kStartupIniValueLen] = {};
  return ReadBoardKey("issimulation", value) == 0 && std::strcmp(value, "true") == 0 ? 1u : 0u;
}

}  // namespace bootinit::board

using namespace bootinit::board;

extern "C" {

uint32_t BOOT_InitGetBoardHardType(uint32_t *type) {
  return type == nullptr ? BOOT_INIT_ERR_NULL_PTR : GetBoardHardType(type);
}

uint32_t BOOT_INIT_StubGetBoardHardType(uint32_t *type) {
  return type == nullptr ? BOOT_INIT_ERR_NULL_PTR : HardTypeFromStartupIni(type);
}

uint32_t BOOT_INIT_StubGetRoleOfBoard(char *buf, uint32_t len) {
  if (!StartupIniExists()) {
    return BOOT_INIT_ERR_FILE_NOT_EXIST;
  }
  return SWM_IniGetValue(BOOT_INIT_GetIniFile(), "[board]", "role", buf, len);
}

uint32_t BOOT_INIT_GetBoardHardActiveState(uint32_t *state) {
  return state == nullptr ? BOOT_INIT_ERR_NULL_PTR : GetBoardHardActiveState(state);
}

uint32_t BOOT_INIT_BoardIsMaster(void) {
  uint32_t state = 1;
  return BOOT_INIT_GetBoardHardActiveState(&state) == BOOT_INIT_OK && state == 0 ? 1u : 0u;
}

uint32_t BOOT_INIT_GetRoleOfBoard(uint32_t *role) {
  return role == nullptr ? BOOT_INIT_OK : GetRoleOfBoard(role);
}

uint32_t BOOT_INIT_BoardIsMMB(void) {
  uint32_t role = BOOT_INIT_ROLE_LC;
  (void)BOOT_INIT_GetRoleOfBoard(&role);
  return role == BOOT_INIT_ROLE_MMB ? 1u : 0u;
}

uint32_t BOOT_INIT_GetChassisId(uint32_t *id) {
  if (id != nullptr) {
    *id = 1;  // a single-chassis device
  }
  return BOOT_INIT_OK;
}

uint32_t BOOT_INIT_GetSlotId(uint32_t *slot) {
  return slot == nullptr ? BOOT_INIT_ERROR : GetSlotId(slot);
}

uint32_t BOOT_INIT_GetCpuId(uint32_t *cpuId) {
  return cpuId == nullptr ? BOOT_INIT_OK : GetCpuId(cpuId);
}

uint32_t BOOT_INIT_StubGetCpuId(uint32_t *cpuId) {
  return cpuId == nullptr ? BOOT_INIT_ERROR : CpuIdFromStartupIni(cpuId);
}

uint32_t BOOT_INIT_GetLogicCpuId(uint32_t *cpuId) { return SWM_GetLogicCpuId(cpuId); }

uint32_t BOOT_INIT_IsSimulate(void) { return IsSimulate(); }

}  // extern "C"
