// Startup mode and backup directory of libsupport_linux.
#include <cstring>
#include <string>

#include "board_description.hpp"
#include "drv.h"
#include "support_linux.h"

// A board whose driver lacks drv_env_set can still load this library; setting the mode then
// fails with PSSP_ERR_STORE.
#pragma weak drv_env_set

namespace {

constexpr const char *kModeVariable = "startup_mode";
constexpr const char *kSupportSection = "support";
constexpr const char *kBackupKey = "backup_dir";
// Room for the stored mode and a little more, so any other stored text is seen as wrong
// rather than as too long.
constexpr uint32_t kModeBufferSize = 16;

uint32_t ReadMode(uint32_t *mode) {
  char stored[kModeBufferSize] = {};
  switch (drv_env_get(kModeVariable, stored, sizeof(stored), 0)) {
    case 0:
      break;
    case DRV_ERR_NOT_FOUND:
      return PSSP_ERR_NOT_SET;
    default:
      return PSSP_ERR_STORE;
  }
  if (std::strcmp(stored, "0") == 0 || std::strcmp(stored, "1") == 0) {
    *mode = static_cast<uint32_t>(stored[0] - '0');
    return 0;
  }
  return PSSP_ERR_STORE;
}

uint32_t ReadBackupPath(char *buffer, uint32_t size) {
  const boarddesc::Entry<std::string> dir = boarddesc::BoardValue(kSupportSection, kBackupKey);
  if (dir.found != boarddesc::Found::kValue || dir.value.empty()) {
    return PSSP_ERR_NOT_SET;
  }
  if (dir.value.size() >= size) {
    return PSSP_ERR_TOO_LONG;  // a cut path would name another directory
  }
  std::memcpy(buffer, dir.value.c_str(), dir.value.size() + 1);
  return 0;
}

}  // namespace

extern "C" uint32_t PSSP_SetStartupMode(uint32_t mode) {
  if (mode != 0 && mode != 1) {
    return PSSP_ERR_PARAM;
  }
  // A forced failure fails before anything is written: the stored mode stays as it was.
  const uint32_t forced = boarddesc::ForcedResult("PSSP_SetStartupMode", 0);
  if (forced != 0) {
    return forced;
  }
  if (drv_env_set == nullptr) {
    return PSSP_ERR_STORE;
  }
  return drv_env_set(kModeVariable, mode == 0 ? "0" : "1") == 0 ? 0 : PSSP_ERR_STORE;
}

extern "C" uint32_t PSSP_GetStartupMode(uint32_t *mode) {
  if (mode == nullptr) {
    return PSSP_ERR_PARAM;
  }
  return boarddesc::ForcedResult("PSSP_GetStartupMode", ReadMode(mode));
}

extern "C" uint32_t PSSP_GetBackUpPath(char *buffer, uint32_t size) {
  if (buffer == nullptr || size == 0) {
    return PSSP_ERR_PARAM;
  }
  buffer[0] = '\0';  // no failure leaves older text behind
  return boarddesc::ForcedResult("PSSP_GetBackUpPath", ReadBackupPath(buffer, size));
}
