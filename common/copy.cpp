// Copying an exact number of bytes between descriptors, as files are written out of packages.
#include <algorithm>
#include <cstdlib>
#include <memory>

#include "bootinit/common.h"
#include "bootinit/log.h"
#include "common/support/c_owners.hpp"
#include "common/support/messages.hpp"
#include "tkal.h"

namespace bootinit::copy {
namespace {

// One fixed buffer whatever the length, so memory stays constant for any file size.
constexpr std::size_t kCopyChunk = 32768;

}  // namespace

uint32_t CopyWithLen(int in, int out, int32_t length) {
  const MallocPtr<unsigned char> buffer(static_cast<unsigned char *>(std::calloc(1, kCopyChunk)));
  if (buffer == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERR_NO_MEMORY;
  }
  auto remaining = static_cast<std::size_t>(std::max<int32_t>(length, 0));
  while (remaining > 0) {
    const std::size_t chunk = std::min(remaining, kCopyChunk);
    const auto expected = static_cast<ssize_t>(chunk);
    if (TKAL_FdRead(in, buffer.get(), chunk) != expected ||
        TKAL_FdWrite(out, buffer.get(), chunk) != expected) {
      return BOOT_INIT_ERR_GENERAL;
    }
    remaining -= chunk;
  }
  return BOOT_INIT_OK;
}

}  // namespace bootinit::copy

extern "C" uint32_t BOOT_INIT_CopyFileWithLen(int in, int out, int32_t length) {
  return bootinit::copy::CopyWithLen(in, out, length);
}
