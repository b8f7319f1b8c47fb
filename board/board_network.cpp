// Network facts of the developer file /opt/boot_ip.ini: this board's address and the two
// main boards' addresses.
#include <cstddef>

#include "bootinit/board.h"
#include "bootinit/common.h"
#include "bootinit/log.h"
#include "boundedstr.h"
#include "swm.h"
#include "tkal.h"

namespace bootinit::board {
namespace {

constexpr const char *kNetworkSection = "[network]";
constexpr uint32_t kMmbIpTextLen = 128;

bool BootIpIniExists() {
  const char *file = BOOT_INIT_GetBootIpIniFile();
  if (TKAL_IsFileExist(file)) {
    return true;
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:File %s is not exist.", file);
  return false;
}

}  // namespace

uint32_t GetLocalIp(char *buf, uint32_t len) {
  if (!BootIpIniExists()) {
    return BOOT_INIT_ERROR;
  }
  if (SWM_IniGetValue(BOOT_INIT_GetBootIpIniFile(), kNetworkSection, "local_ip", buf, len) != 0 ||
      buf[0] == '\0') {
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

// "mmb_ip" holds "first;second". A single address is acceptable: it is returned in ip1 and
// ip2 is left as the caller set it.
uint32_t GetMMBIp(char *ip1, uint32_t len1, char *ip2, uint32_t len2) {
  if (!BootIpIniExists()) {
    return BOOT_INIT_ERROR;
  }
  char value[kMmbIpTextLen] = {};
  if (SWM_IniGetValue(BOOT_INIT_GetBootIpIniFile(), kNetworkSection, "mmb_ip", value,
                      sizeof(value)) != 0 ||
      value[0] == '\0') {
    return BOOT_INIT_ERROR;
  }
  const int items =
      sscanf_s(value, "%[^;];%s", ip1, static_cast<size_t>(len1), ip2, static_cast<size_t>(len2));
  if (items != 2) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARNING]:Get MMB IP count unsuccessfully, num of mmb ip is not "
                       "2.");
  }
  return BOOT_INIT_OK;
}

}  // namespace bootinit::board

extern "C" {

uint32_t BOOT_INIT_GetLocalIp(char *buf, uint32_t len) {
  return buf == nullptr || len == 0 ? BOOT_INIT_ERROR : bootinit::board::GetLocalIp(buf, len);
}

uint32_t BOOT_INIT_GetMMBIp(char *ip1, uint32_t len1, char *ip2, uint32_t len2) {
  if (ip1 == nullptr || ip2 == nullptr) {
    return BOOT_INIT_ERROR;
  }
  return bootinit::board::GetMMBIp(ip1, len1, ip2, len2);
}

}  // extern "C"
