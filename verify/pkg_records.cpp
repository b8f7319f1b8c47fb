// The record walk: each entry must continue the chain of records where the previous one ended,
// its file header must be readable, and its binName must be new. The names seen so far live in
// a fixed table of the container's maximum file count.
#include "verify/pkg_records.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <optional>
#include <span>

#include "bootinit/common.h"
#include "bootinit/log.h"
#include "bootinit/package.h"
#include "boundedstr.h"
#include "tkal.h"

namespace bootinit::pkg {
namespace {

constexpr std::size_t kDuplicateNameLen = 128;
using DuplicateNames = std::array<std::array<char, kDuplicateNameLen>, BOOT_PKG_MAX_FILES>;
using FileHeaderBytes = std::array<std::byte, BOOT_PKG_FILE_HEADER_LEN>;

bool GetNextFile(const Entry &entry, uint32_t &runningEnd) {
  const uint32_t before = runningEnd;
  switch (NextRecord(entry, runningEnd)) {
    case NextFault::kNone:
      return true;
    case NextFault::kNotAtRunningEnd:
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                         "[BOOT_INIT][ERROR]:GetNextFile: Package is invalid, current len = %u, "
                         "current offset = %u",
                         before, entry.recordOffset);
      return false;
    case NextFault::kNoProgress:
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                         "[BOOT_INIT][ERROR]:GetNextFile: Package is invalid, current len = %u, "
                         "current offset = %u, filelen = %u",
                         before, entry.recordOffset, entry.recordLength);
      return false;
  }
  return false;
}

// The 352 bytes at offset. errno is cleared first so that a short read, which sets none,
// reports 0 rather than whatever an earlier call left.
bool GetFileHeader(int fd, uint32_t offset, FileHeaderBytes &out) {
  if (::lseek(fd, static_cast<off_t>(offset), SEEK_SET) < 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:lseek failed, errno:%d", errno);
    return false;
  }
  errno = 0;
  const ssize_t got = TKAL_FdRead(fd, out.data(), out.size());
  if (got != static_cast<ssize_t>(out.size())) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Read file head failed, read len = %d, errno:%d",
                       static_cast<int>(got), errno);
    return false;
  }
  return true;
}

bool IsDuplicateFile(const DuplicateNames &names, uint32_t count, const char *name) {
  const std::span<const std::array<char, kDuplicateNameLen>> earlier(names.data(), count);
  return std::any_of(earlier.begin(), earlier.end(), [name](const auto &slot) {
    return std::strncmp(slot.data(), name, slot.size()) == 0;
  });
}

// One entry: its place in the chain of records, its file header, the duplicate check, then
// the sink.
uint32_t WalkEntry(int fd, const Entry &entry, uint32_t index, DuplicateNames &names,
                   uint32_t &runningEnd, const RecordSink &sink) {
  if (!GetNextFile(entry, runningEnd)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:get next file failed");
    return BOOT_INIT_ERROR;
  }
  FileHeaderBytes bytes{};
  const std::optional<FileHeader> header =
      GetFileHeader(fd, entry.recordOffset, bytes) ? FileHeaderOf(bytes) : std::nullopt;
  if (!header) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:get file header failed");
    return BOOT_INIT_ERROR;
  }
  const char *binName = header->binName.data();
  if (IsDuplicateFile(names, index, binName)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:package is invalid, has duplicate file:%s", binName);
    return BOOT_INIT_ERROR;
  }
  if (strcpy_s(names[index].data(), kDuplicateNameLen, binName) != EOK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:BootGetAllFilesHeader: strcpy failed");
    return BOOT_INIT_ERROR;
  }
  return sink(entry, *header);
}

}  // namespace

uint32_t WalkRecords(int fd, Bytes header, uint32_t count, uint32_t pkgSize,
                     const RecordSink &sink) {
  if (count > BOOT_PKG_MAX_FILES) {
    return BOOT_INIT_ERROR;  // callers report their own count limit before walking
  }
  DuplicateNames names;  // zeroed right below, for the entries the header counts
  if (memset_s(names.data(), sizeof(names), 0, count * kDuplicateNameLen) != EOK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:memset error");
    return BOOT_INIT_ERROR;
  }
  uint32_t runningEnd = BOOT_PKG_HEADER_LEN;
  for (uint32_t i = 0; i < count; ++i) {
    const std::optional<Bytes> entryBytes = EntryBytes(header, i);
    const std::optional<Entry> entry = entryBytes ? EntryOf(*entryBytes) : std::nullopt;
    if (!entry || WalkEntry(fd, *entry, i, names, runningEnd, sink) != BOOT_INIT_OK) {
      return BOOT_INIT_ERROR;
    }
  }
  if (runningEnd != pkgSize) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:package size verify failed, record size:%u, real "
                       "size:%u",
                       runningEnd, pkgSize);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

}  // namespace bootinit::pkg
