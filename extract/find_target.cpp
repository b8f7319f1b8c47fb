// Finding one file in a package and proving it: the entries are tried in index order, and the
// first whose name matches and whose record matches the digest of the signed file list wins.
// The record is read once: while it is hashed, the part that is to be extracted goes into the
// staged file, so the bytes written are exactly the bytes proven, whatever happens to the
// package file meanwhile. Signature files pass unchecked (their CMS signature is checked
// before their digests are used) and are staged the same way.
#include <endian.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <span>

#include "bootinit/common.h"
#include "bootinit/extract.h"
#include "bootinit/log.h"
#include "bootinit/package.h"
#include "common/support/hash_copy.hpp"
#include "extract/extract_support.hpp"
#include "swm.h"
#include "tkal.h"
#include "verify/pkg_records.hpp"

namespace bootinit::extract {
namespace {

// The copy helper counts in signed 32 bits; longer copies go in pieces of this size.
constexpr uint32_t kCopyPiece = 0x40000000U;

uint32_t Be32(uint32_t raw) { return be32toh(raw); }

// The staged file starts empty for each candidate entry: an entry that failed after writing
// into it leaves nothing for the next one. A staged file that cannot be emptied fails the copy.
void RestartStage(BOOT_EXTRACT_TARGET_S &target) {
  target.copyResult = BOOT_INIT_OK;
  if (target.outFd >= 0 &&
      (::ftruncate(target.outFd, 0) != 0 || ::lseek(target.outFd, 0, SEEK_SET) != 0)) {
    target.copyResult = BOOT_INIT_ERR_GENERAL;
  }
}

// length bytes from fd's position into the staged file, unchecked.
void StageUnchecked(int fd, BOOT_EXTRACT_TARGET_S &target) {
  RestartStage(target);
  if (target.outFd < 0 || target.copyResult != BOOT_INIT_OK) {
    return;
  }
  for (uint32_t remaining = target.length; remaining > 0;) {
    const uint32_t piece = std::min(remaining, kCopyPiece);
    target.copyResult = BOOT_INIT_CopyFileWithLen(fd, target.outFd, static_cast<int32_t>(piece));
    if (target.copyResult != BOOT_INIT_OK) {
      return;
    }
    remaining -= piece;
  }
}

uint32_t CheckFileSha(int fd, uint32_t length, const char *name, const char *expectedHex,
                      uint32_t skip, BOOT_EXTRACT_TARGET_S &target) {
  RestartStage(target);
  const uint32_t staging = target.copyResult;
  CopyPart part;
  part.outFd = staging == BOOT_INIT_OK ? target.outFd : -1;
  part.skip = skip;
  part.length = target.length;
  Digest digest = {};
  uint32_t copied = BOOT_INIT_OK;
  const uint32_t ret = Sha256CopyWithFd(fd, length, part, digest, copied);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get file(%s %u) sha256 failed, ret=%u.", name, length,
                       ret);
    return ret;
  }
  std::array<char, BOOT_INIT_SHA256_TEXT_LEN> text = {};
  BOOT_INIT_TransHashValueToString(digest.data(), BOOT_INIT_SHA256_LEN, text.data(),
                                   BOOT_INIT_SHA256_TEXT_LEN);
  if (SWM_IsStringEqual(text.data(), expectedHex) == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][%s]:Verify file %s failed, calc:%s in signature list:%s.",
                       "ERROR", name, text.data(), expectedHex);
    return BOOT_INIT_ERROR;
  }
  target.copyResult = staging != BOOT_INIT_OK ? staging : copied;
  return BOOT_INIT_OK;
}

// The listed digest covers the whole record (file header and file bytes). What is extracted
// must lie within it: the whole record for a ".bin" name, else the file bytes behind the
// header. A length that reaches past the record would carry bytes nobody proved.
uint32_t CheckFileValid(int fd, const BOOT_PKG_FILE_ENTRY_S &entry, const char *entryName,
                        const char *name, BOOT_EXTRACT_TARGET_S &target) {
  const BOOT_INIT_SIG_FILE_DIGEST_NODE_S *record = GetSignedFile(entryName);
  if (record == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:File %s not in signature file list.", entryName);
    return BOOT_INIT_ERROR;
  }
  const uint32_t offset = Be32(entry.recordOffset);
  const uint32_t recordLength = Be32(entry.recordLength);
  const uint32_t skip = IsFileNameWithBin(name) == 1 ? 0U : BOOT_PKG_FILE_HEADER_LEN;
  if (uint64_t{skip} + target.length > recordLength) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:File %s of %u bytes at %u lies outside its record of "
                       "%u bytes.",
                       name, target.length, skip, recordLength);
    return BOOT_INIT_ERROR;
  }
  if (::lseek(fd, static_cast<off_t>(offset), SEEK_SET) != static_cast<off_t>(offset)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:change offset to file header failed, errno:%d", errno);
    return BOOT_INIT_ERROR;
  }
  if (CheckFileSha(fd, recordLength, name, record->digest, skip, target) != BOOT_INIT_OK) {
    return BOOT_INIT_ERROR;
  }
  // The file position is left where the extracted bytes begin, as callers of the search expect.
  const off_t start = static_cast<off_t>(offset) + skip;
  if (::lseek(fd, start, SEEK_SET) != start) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:change offset to file body failed, errno:%d", errno);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

// The entry name (the record's binName) gives the whole record's length, the inner name the
// file's own. An entry of another name fails without a word.
uint32_t TargetValid(int fd, const BOOT_PKG_FILE_ENTRY_S &entry,
                     const BOOT_PKG_FILE_HEADER_S &fileHeader, const char *name,
                     BOOT_EXTRACT_TARGET_S &target) {
  if (SWM_IsStringEqual(name, fileHeader.binName) != 0) {
    target.length = Be32(entry.recordLength);
  } else if (SWM_IsStringEqual(name, fileHeader.actualName) != 0) {
    target.length = Be32(fileHeader.actualLength);
  } else {
    return BOOT_INIT_ERROR;
  }
  if (IsSignature(name) == 1) {
    StageUnchecked(fd, target);  // the position is just behind the file header
    return BOOT_INIT_OK;
  }
  return CheckFileValid(fd, entry, fileHeader.binName, name, target);
}

uint32_t SeekFailed() {
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][ERROR]:FindTarget: lseek failed, errno:%d", errno);
  return BOOT_INIT_ERROR;
}

// Tries one index entry: its file header is read and its names terminated before they are
// compared. 0 when the entry passed; kNotInPackage when it did not; 0xFFFFFFFF when the
// search must stop.
uint32_t TryEntry(int fd, const BOOT_PKG_FILE_ENTRY_S &entry, const char *name,
                  BOOT_EXTRACT_TARGET_S &target) {
  const auto offset = static_cast<off_t>(Be32(entry.recordOffset));
  if (::lseek(fd, offset, SEEK_SET) != offset) {
    return SeekFailed();
  }
  BOOT_PKG_FILE_HEADER_S fileHeader{};
  errno = 0;  // a short read is no error: it logs errno 0
  const ssize_t got = TKAL_FdRead(fd, &fileHeader, sizeof(fileHeader));
  if (got != static_cast<ssize_t>(sizeof(fileHeader))) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:FindTarget: Read file head failed, read len = %d, "
                       "errno:%d",
                       static_cast<int>(got), errno);
    return BOOT_INIT_ERROR;
  }
  fileHeader.actualName[BOOT_PKG_ACTUAL_NAME_LEN - 1] = '\0';
  fileHeader.binName[BOOT_PKG_BIN_NAME_LEN - 1] = '\0';
  return TargetValid(fd, entry, fileHeader, name, target) == BOOT_INIT_OK
             ? BOOT_INIT_OK
             : BOOT_INIT_ERR_NOT_IN_PACKAGE;
}

// The container must hold together before any entry is tried, as the index build demands:
// records end to end from the header on, none empty or wrapping, the last ending with the
// file, no binName twice. A package that fails is refused as a whole, so nothing is taken out
// of it even where one of its records would prove.
uint32_t CheckLayout(int fd, const BOOT_PKG_HEADER_S &header, uint32_t count) {
  struct stat status {};
  errno = 0;  // a package too large for the check sets none
  if (::fstat(fd, &status) != 0 || status.st_size > off_t{UINT32_MAX}) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:FindTarget: get package size failed, errno:%d", errno);
    return BOOT_INIT_ERROR;
  }
  const auto size = static_cast<uint32_t>(status.st_size);
  const pkg::Bytes bytes = std::as_bytes(std::span(&header, 1));
  const auto acceptAll = [](const pkg::Entry &, const pkg::FileHeader &) { return BOOT_INIT_OK; };
  if (pkg::WalkRecords(fd, bytes, count, size, acceptAll) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:FindTarget: package layout is invalid.");
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

uint32_t Find(int fd, const char *name, BOOT_EXTRACT_TARGET_S &target) {
  if (::lseek(fd, 0, SEEK_SET) != 0) {
    return SeekFailed();
  }
  BOOT_PKG_HEADER_S header{};
  const ssize_t got = TKAL_FdRead(fd, &header, sizeof(header));
  if (got != static_cast<ssize_t>(sizeof(header))) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:FindTarget: Read package header failed, read len = %d, "
                       "head len = %u.",
                       static_cast<int>(got), BOOT_PKG_HEADER_LEN);
    return BOOT_INIT_ERROR;
  }
  const uint32_t count = Be32(header.fileCount);
  if (count > BOOT_PKG_MAX_FILES) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:FindTarget: File number(%u) is exceed max.", count);
    return BOOT_INIT_ERROR;
  }
  if (CheckLayout(fd, header, count) != BOOT_INIT_OK) {
    return BOOT_INIT_ERROR;
  }
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t ret = TryEntry(fd, header.entries[i], name, target);
    if (ret != BOOT_INIT_ERR_NOT_IN_PACKAGE) {
      return ret;
    }
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][WARNING]:FindTarget: no such file %s",
                     name);
  return BOOT_INIT_ERR_NOT_IN_PACKAGE;
}

bool AnyNull(const void *a, const void *b, const void *c = "", const void *d = "") {
  return a == nullptr || b == nullptr || c == nullptr || d == nullptr;
}

}  // namespace
}  // namespace bootinit::extract

using namespace bootinit::extract;

extern "C" {

uint32_t FindTarget(int fd, const char *name, BOOT_EXTRACT_TARGET_S *target) {
  if (AnyNull(name, target)) {
    return BOOT_INIT_ERROR;
  }
  return Find(fd, name, *target);
}

uint32_t IsTargetValid(int fd, const BOOT_PKG_FILE_ENTRY_S *entry,
                       const BOOT_PKG_FILE_HEADER_S *fileHeader, const char *name,
                       BOOT_EXTRACT_TARGET_S *target) {
  if (AnyNull(entry, fileHeader, name, target)) {
    return BOOT_INIT_ERROR;
  }
  return TargetValid(fd, *entry, *fileHeader, name, *target);
}

uint32_t BootCheckFileValid(int fd, const BOOT_PKG_FILE_ENTRY_S *entry, const char *entryName,
                            const char *name, BOOT_EXTRACT_TARGET_S *target) {
  if (AnyNull(entry, entryName, name, target)) {
    return BOOT_INIT_ERROR;
  }
  return CheckFileValid(fd, *entry, entryName, name, *target);
}

uint32_t CheckFileShaValid(int fd, uint32_t length, const char *name, const char *expectedHex,
                           uint32_t skip, BOOT_EXTRACT_TARGET_S *target) {
  if (AnyNull(name, expectedHex, target)) {
    return BOOT_INIT_ERROR;
  }
  return CheckFileSha(fd, length, name, expectedHex, skip, *target);
}

}  // extern "C"
