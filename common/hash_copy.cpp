// The hashing read of a package range with the copy of a part of it. The crypto library is
// opened for each run and closed when the run ends, as for every digest of the library
// (CryptoRun).
#include "common/support/hash_copy.hpp"

#include <sys/types.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>

#include "bootinit/log.h"
#include "common/support/c_owners.hpp"
#include "common/support/crypto_run.hpp"
#include "tkal.h"

namespace bootinit {
namespace {

// One buffer of this size per run, whatever the range: memory stays constant.
constexpr std::size_t kReadChunk = 32768;

// Writes the bytes of one chunk, read at range offset at, that fall inside the part.
bool WritePart(const CopyPart &part, std::size_t at, const unsigned char *chunk, std::size_t len) {
  const std::size_t from = std::max<std::size_t>(at, part.skip);
  const std::size_t to = std::min<std::size_t>(at + len, std::size_t{part.skip} + part.length);
  if (part.outFd < 0 || from >= to) {
    return true;
  }
  const std::size_t count = to - from;
  return TKAL_FdWrite(part.outFd, chunk + (from - at), count) == static_cast<ssize_t>(count);
}

}  // namespace

uint32_t Sha256CopyWithFd(int fd, uint32_t length, const CopyPart &part, Digest &digest,
                          uint32_t &copyResult) {
  copyResult = BOOT_INIT_OK;
  CryptoRun run;
  if (!run.Load()) {
    return BOOT_INIT_ERROR;
  }
  const MallocPtr<unsigned char> buffer(static_cast<unsigned char *>(std::malloc(kReadChunk)));
  if (buffer == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Failed malloc memory!");
    return BOOT_INIT_ERR_NO_MEMORY;
  }
  run.Init();
  // Every read must deliver exactly what it asks, so the range must lie within the file. A
  // length of 0 still makes one read, of nothing.
  std::size_t done = 0;
  do {
    const std::size_t chunk = std::min<std::size_t>(length - done, kReadChunk);
    if (TKAL_FdRead(fd, buffer.get(), chunk) != static_cast<ssize_t>(chunk)) {
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Read file failed");
      copyResult = BOOT_INIT_ERR_GENERAL;  // the part was not copied whole either
      return BOOT_INIT_ERROR;
    }
    run.Update(buffer.get(), chunk);
    if (copyResult == BOOT_INIT_OK && !WritePart(part, done, buffer.get(), chunk)) {
      copyResult = BOOT_INIT_ERR_GENERAL;
    }
    done += chunk;
  } while (done < length);
  run.Final(digest.data());
  return BOOT_INIT_OK;
}

}  // namespace bootinit
