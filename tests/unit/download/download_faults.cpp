#include "download_faults.hpp"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "boundedstr.h"

namespace downloadfaults {
namespace {

// The login command buffer, the account and one user record.
constexpr std::size_t kSecretSizes[] = {259, 640, 1924};
constexpr std::size_t kTransferBuffer = 102400;

bool IsSocket(int fd) {
  struct stat st {};
  return fstat(fd, &st) == 0 && S_ISSOCK(st.st_mode);
}

std::string PathOf(int fd) {
  char path[4096] = {};
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  const ssize_t n = readlink(link.c_str(), path, sizeof(path) - 1);
  return n > 0 ? std::string(path, static_cast<std::size_t>(n)) : std::string();
}

}  // namespace

Faults &Get() {
  static Faults faults;
  return faults;
}

void Reset() { Get() = Faults{}; }

std::vector<Wipe> WipesOfSize(std::size_t size) {
  std::vector<Wipe> found;
  for (const Wipe &wipe : Get().wipes) {
    if (wipe.size == size) {
      found.push_back(wipe);
    }
  }
  return found;
}

}  // namespace downloadfaults

extern "C" {
unsigned int __real_sleep(unsigned int seconds);
errno_t __real_memset_s(void *dest, size_t destMax, int c, size_t count);
ssize_t __real_TKAL_FdWrite(int fd, const void *buf, size_t len);
void *__real_calloc(size_t count, size_t size);

unsigned int __wrap_sleep(unsigned int seconds) {
  downloadfaults::Get().sleeps.push_back(seconds);
  return downloadfaults::Get().realSleep ? __real_sleep(seconds) : 0;
}

errno_t __wrap_memset_s(void *dest, size_t destMax, int c, size_t count) {
  const bool secret =
      dest != nullptr &&
      std::find(std::begin(downloadfaults::kSecretSizes), std::end(downloadfaults::kSecretSizes),
                destMax) != std::end(downloadfaults::kSecretSizes);
  if (!secret) {
    return __real_memset_s(dest, destMax, c, count);
  }
  const auto *bytes = static_cast<const char *>(dest);
  downloadfaults::Wipe wipe;
  wipe.size = destMax;
  wipe.before.assign(bytes, strnlen(bytes, destMax));
  const errno_t result = __real_memset_s(dest, destMax, c, count);
  wipe.zeroAfter = std::all_of(bytes, bytes + destMax, [](char b) { return b == '\0'; });
  downloadfaults::Get().events.push_back("wipe" + std::to_string(destMax) + ":" + wipe.before);
  downloadfaults::Get().wipes.push_back(wipe);
  return downloadfaults::Get().failWipes ? BOUNDED_ERANGE_AND_RESET : result;
}

ssize_t __wrap_TKAL_FdWrite(int fd, const void *buf, size_t len) {
  if (buf != nullptr && fd >= 0 && downloadfaults::IsSocket(fd)) {
    downloadfaults::Get().events.push_back("send:" +
                                           std::string(static_cast<const char *>(buf), len));
  } else if (fd >= 0) {
    downloadfaults::Get().fileWrites.emplace_back(downloadfaults::PathOf(fd), len);
  }
  return __real_TKAL_FdWrite(fd, buf, len);
}

void *__wrap_calloc(size_t count, size_t size) {
  if (downloadfaults::Get().failTransferBuffer && count * size == downloadfaults::kTransferBuffer) {
    return nullptr;
  }
  return __real_calloc(count, size);
}
}
