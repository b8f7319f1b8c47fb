// Writing one record of the open package out as a file: the whole record (its ".bin" form, the
// bytes its listed digest covers) or only the file's own bytes. The plain copies made here are
// hashed by their callers before anything trusts them; the staged copy is hashed while it is
// made and named only once its digest was accepted.
#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "bootinit/common.h"
#include "bootinit/log.h"
#include "bootinit/package.h"
#include "common/support/fixed_text.hpp"
#include "common/support/messages.hpp"
#include "common/support/owned_files.hpp"
#include "common/support/staged_file.hpp"
#include "common/support/unique_fd.hpp"
#include "swm.h"
#include "tkal.h"
#include "verify/pkg_staged.hpp"
#include "verify/pkg_support.hpp"

namespace bootinit::pkg {
namespace {

// The copy helper counts in signed 32 bits; longer records are copied in pieces of this size.
constexpr uint32_t kCopyPiece = 0x40000000U;

bool MakeDir(const char *dir) {
  const uint32_t ret = MakeOwnedDir(dir);
  if (ret != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Create dir %s failed, ret=%u.",
                       dir, ret);
    return false;
  }
  return true;
}

// length bytes of src from offset onto dst's current position, through the library's copy.
uint32_t CopyRange(int src, off_t offset, int dst, uint32_t length) {
  if (::lseek(src, offset, SEEK_SET) != offset) {
    return BOOT_INIT_ERROR;
  }
  for (uint32_t remaining = length; remaining > 0;) {
    const uint32_t piece = std::min(remaining, kCopyPiece);
    const uint32_t ret = BOOT_INIT_CopyFileWithLen(src, dst, static_cast<int32_t>(piece));
    if (ret != BOOT_INIT_OK) {
      return ret;
    }
    remaining -= piece;
  }
  return BOOT_INIT_OK;
}

// The offset is wider than the container's: the file bytes of a record at the very end of the
// 32-bit range start beyond it, where a read finds nothing and the copy fails.
uint32_t ExtractFile(int fd, off_t offset, const char *name, uint32_t length, const char *dir) {
  if (!MakeDir(dir)) {
    return BOOT_INIT_ERROR;
  }
  PathText path = {};
  if (!JoinPath(path, dir, name, "BootExtractFile")) {
    return BOOT_INIT_ERROR;
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:Extract file: %s", path.data());
  RemoveIfPresent(path.data());
  int raw = -1;
  if (SWM_Open(path.data(), O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW, &raw, kFileMode) != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Create file %s failed, errno=%d.", path.data(), errno);
    return BOOT_INIT_ERROR;
  }
  const UniqueFd target(raw);
  const uint32_t ret = CopyRange(fd, offset, target.get(), length);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Copy file %s failed.",
                       path.data());
  }
  return ret;
}

// The record of name in the index; nullptr (after the message) when the package lacks it.
const BOOT_PKG_FILE_NODE_S *IndexedFile(const char *name) {
  const BOOT_PKG_FILE_NODE_S *node = BootGetFileInfo(name);
  if (node == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Get file(%s) info failed.",
                       name);
  }
  return node;
}

uint32_t ExtractBinFile(const char *name, const char *dir) {
  const BOOT_PKG_FILE_NODE_S *node = IndexedFile(name);
  if (node == nullptr) {
    return BOOT_PKG_ERR_NOT_FOUND;
  }
  return ExtractFile(BOOT_GetPkgInfo()->fd, static_cast<off_t>(node->recordOffset), name,
                     node->recordLength, dir);
}

uint32_t ExtractActualFile(const char *name, const char *dir) {
  const BOOT_PKG_FILE_NODE_S *node = IndexedFile(name);
  if (node == nullptr) {
    return BOOT_PKG_ERR_NOT_FOUND;
  }
  const off_t offset = static_cast<off_t>(node->recordOffset) + BOOT_PKG_FILE_HEADER_LEN;
  return ExtractFile(BOOT_GetPkgInfo()->fd, offset, name, node->actualLength, dir);
}

void RemoveFile(const char *dir, const char *name) {
  PathText path = {};
  if (JoinPath(path, dir, name, "BootRemoveFile")) {
    RemoveIfPresent(path.data());
  }
}

// Where a record's extracted part lies in the package and how long it is.
struct Part {
  off_t offset = 0;
  uint32_t length = 0;
};

Part PartOf(const BOOT_PKG_FILE_NODE_S &node, bool asRecord) {
  if (asRecord) {
    return {static_cast<off_t>(node.recordOffset), node.recordLength};
  }
  return {static_cast<off_t>(node.recordOffset) + BOOT_PKG_FILE_HEADER_LEN, node.actualLength};
}

}  // namespace

StagedRecord::~StagedRecord() {
  if (hidden_[0] != '\0') {
    (void)::unlink(hidden_.data());
  }
}

StagedRecord::Outcome StagedRecord::Stage(const char *name, const char *dir, bool asRecord) {
  const BOOT_PKG_FILE_NODE_S *node = IndexedFile(name);
  if (node == nullptr || !MakeDir(dir) || !JoinPath(path_, dir, name, "BootExtractFile")) {
    return Outcome::kNotExtracted;
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:Extract file: %s", path_.data());
  RemoveIfPresent(path_.data());
  fd_.reset(OpenStagedFile(dir, kFileMode, hidden_));
  if (!fd_.valid()) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Create file %s failed, errno=%d.", path_.data(), errno);
    return Outcome::kNotExtracted;
  }
  const int package = BOOT_GetPkgInfo()->fd;
  const Part part = PartOf(*node, asRecord);
  if (::lseek(package, part.offset, SEEK_SET) != part.offset) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Copy file %s failed.",
                       path_.data());
    return Outcome::kNotExtracted;
  }
  CopyPart copy;
  copy.outFd = fd_.get();
  copy.length = part.length;
  uint32_t copied = BOOT_INIT_OK;
  const uint32_t hashed = Sha256CopyWithFd(package, part.length, copy, digest_, copied);
  if (copied == BOOT_INIT_OK && hashed != BOOT_INIT_OK) {
    return Outcome::kNotHashed;
  }
  if (copied != BOOT_INIT_OK) {  // a write failed, or the package ended before the part
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Copy file %s failed.",
                       path_.data());
    return Outcome::kNotExtracted;
  }
  return Outcome::kCopied;
}

bool StagedRecord::Place() {
  if (!fd_.valid() || !PutStagedFile(fd_.get(), hidden_, path_.data())) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Create file %s failed, errno=%d.", path_.data(), errno);
    return false;
  }
  return true;
}

}  // namespace bootinit::pkg

using namespace bootinit::pkg;

extern "C" {

uint32_t BootExtractFile(int fd, uint32_t offset, const char *name, uint32_t length,
                         const char *dir) {
  if (AnyNull({name, dir})) {
    return BOOT_INIT_ERROR;
  }
  return ExtractFile(fd, static_cast<off_t>(offset), name, length, dir);
}

uint32_t BOOT_ExtractBinFile(const char *name, const char *dir) {
  if (AnyNull({name, dir})) {
    return BOOT_INIT_ERROR;
  }
  return ExtractBinFile(name, dir);
}

uint32_t BOOT_ExtractActualFile(const char *name, const char *dir) {
  if (AnyNull({name, dir})) {
    return BOOT_INIT_ERROR;
  }
  return ExtractActualFile(name, dir);
}

void BootRemoveFile(const char *dir, const char *name) {
  if (!AnyNull({dir, name})) {
    RemoveFile(dir, name);
  }
}

}  // extern "C"
