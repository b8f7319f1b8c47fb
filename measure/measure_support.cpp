// Whether this board must be measured: its TPM is present (online status 0) and active (active
// status 1), as the board's basic driver library reports. Every failure answers "no".
#include <dlfcn.h>

#include "bootinit/log.h"
#include "bootinit/measure.h"
#include "common/support/dl_library.hpp"
#include "common/support/fixed_text.hpp"

namespace bootinit::measure {
namespace {

constexpr const char *kDriverBasicLibrary = "libdrv_basic.so";
constexpr const char *kOnlineStatus = "drv_board_get_tpm_online_status";
constexpr const char *kActiveStatus = "drv_board_get_tpm_active_status";
constexpr uint32_t kOwnBoard = 0xFFFFFFFF;
constexpr std::size_t kLibraryNameLen = 384;

using TpmStatusFunc = uint32_t (*)(uint32_t, uint32_t *);

TpmStatusFunc LookUp(const DlLibrary &library, const char *name) {
  void *entry = library.Symbol(name);
  if (entry == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARNING]:dlsym %s unsuccessfully, reason:%s", name,
                       DlLibrary::LastError());
  }
  return AsFunction<TpmStatusFunc>(entry);
}

}  // namespace

uint32_t IsSupportMeasure() {
  char name[kLibraryNameLen] = {};
  if (!FormatInto(name, "%s", kDriverBasicLibrary)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Need Measure, sprintf %s fail.",
                       kDriverBasicLibrary);
    return 0;
  }
  const DlLibrary library(name, RTLD_LAZY);
  if (!library.loaded()) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:dlopen %s fail, reason:%s",
                       name, DlLibrary::LastError());
    return 0;
  }
  const TpmStatusFunc online = LookUp(library, kOnlineStatus);
  const TpmStatusFunc active = LookUp(library, kActiveStatus);
  if (online == nullptr || active == nullptr) {
    return 0;
  }
  uint32_t onlineStatus = 0;
  if (online(kOwnBoard, &onlineStatus) != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Get tpm online status fail");
    return 0;
  }
  uint32_t activeStatus = 0;
  if (active(kOwnBoard, &activeStatus) != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Get tpm active status fail");
    return 0;
  }
  if (onlineStatus != 0 || activeStatus != 1) {
    return 0;
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:This board need measure");
  return 1;
}

}  // namespace bootinit::measure

extern "C" uint32_t BOOT_INIT_IsSupportMeasure(void) {
  return bootinit::measure::IsSupportMeasure();
}
