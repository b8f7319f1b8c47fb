// Operation 14: a file (typically a symbolic link made by the boot scripts) takes over the
// owner and the security label of another file.
#include <cstdint>

#include "bootinit/common.h"
#include "bootinit/log.h"
#include "common/support/fixed_text.hpp"
#include "common/support/messages.hpp"

namespace bootinit::attr {
namespace {

constexpr int32_t kArgCount = 2;  // source, destination
constexpr std::size_t kPathLen = 384;

// A path that does not fit leaves its buffer empty; the step that uses it then reports it.
void CopyArg(char (&out)[kPathLen], const char *arg) {
  if (!CopyInto(out, arg)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_STRCPY_FAILED,
                       "BOOT_InitOperModFileAttr");
  }
}

}  // namespace

uint32_t OperModFileAttr(int32_t argc, char **argv) {
  if (argc != kArgCount) {
    // The wording is the one boot scripts have always matched, "ftp" included.
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Param count is not right for ftp getting file");
    return BOOT_INIT_ERR_GENERAL;
  }
  if (argv == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERROR;
  }
  char source[kPathLen] = {};
  char destination[kPathLen] = {};
  CopyArg(source, argv[0]);
  CopyArg(destination, argv[1]);
  return BOOT_INIT_LinkAttr(source, destination);
}

}  // namespace bootinit::attr

extern "C" uint32_t BOOT_InitOperModFileAttr(int32_t argc, char **argv) {
  return bootinit::attr::OperModFileAttr(argc, argv);
}
