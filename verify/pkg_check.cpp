// The files of the indexed package against the digests of its signature file list: every file
// by walking the index, one file read straight from the package, or one file extracted into the
// staging directory and hashed there, where the proven copy stays for its caller.
#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <span>

#include "bootinit/common.h"
#include "bootinit/log.h"
#include "bootinit/package.h"
#include "swm.h"
#include "verify/pkg_staged.hpp"
#include "verify/pkg_support.hpp"

namespace bootinit::pkg {
namespace {

using Node = BOOT_PKG_FILE_NODE_S;
using HashNode = BOOT_INIT_HLIST_NODE_S;
using DigestText = std::array<char, BOOT_INIT_SHA256_TEXT_LEN>;

// Records above this size are still checked; the note only explains a long pause in the log.
constexpr uint32_t kSizeNote = 10485760;

void ToText(const std::array<uint8_t, BOOT_INIT_SHA256_LEN> &digest, DigestText &text) {
  BOOT_INIT_TransHashValueToString(digest.data(), BOOT_INIT_SHA256_LEN, text.data(),
                                   static_cast<uint32_t>(text.size()));
}

// The whole record (file header and file bytes) hashed straight from the package.
uint32_t HashRecord(const Node &node, DigestText &text) {
  const int fd = BOOT_GetPkgInfo()->fd;
  const auto offset = static_cast<off_t>(node.recordOffset);
  std::array<uint8_t, BOOT_INIT_SHA256_LEN> digest = {};
  uint32_t ret = BOOT_INIT_ERROR;
  if (::lseek(fd, offset, SEEK_SET) == offset) {
    ret = BOOT_INIT_Sha256GetWithFd(fd, node.recordLength, digest.data(), BOOT_INIT_SHA256_LEN);
  }
  if (ret == BOOT_INIT_OK) {
    ToText(digest, text);
  }
  return ret;
}

uint32_t VerifyFileReadAndCheck(const Node &node) {
  if (node.recordLength > kSizeNote) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:File %s size %u exceed %u.",
                       node.key.binName, node.recordLength, kSizeNote);
  }
  DigestText calc = {};
  const uint32_t ret = HashRecord(node, calc);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get file(%s %u %u) sha256 failed(%u).", node.key.binName,
                       node.recordOffset, node.recordLength, ret);
    return BOOT_INIT_ERROR;
  }
  if (SWM_IsStringEqual(calc.data(), node.digest) == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Verify file %s failed, calc:%s in signature list:%s.",
                       node.key.binName, calc.data(), node.digest);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

uint32_t IsNeedToVerifyFile(const Node &node, uint32_t selector) {
  switch (selector) {
    case BOOT_PKG_SELECT_NOT_VERITY:
      return BOOT_IsFileInVerityTable(node.key.binName) == 0 ? 1U : 0U;
    case BOOT_PKG_SELECT_VERITY:
      return BOOT_IsFileInVerityTable(node.key.binName) != 0 ? 1U : 0U;
    default:
      return 1U;
  }
}

// One node of the walk; false when the walk must stop with ret.
bool VisitNode(const Node &node, uint32_t selector, uint32_t &total, uint32_t &ret) {
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:Verify file: %s length: %u",
                     node.key.binName, node.recordLength);
  if (node.digest[0] == '\0') {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARN]:File %s not in signature file list.", node.key.binName);
    return true;
  }
  if (IsNeedToVerifyFile(node, selector) == 0) {
    return true;
  }
  // Records lie end to end within a package of less than 4 GiB, so the total cannot wrap.
  total += node.recordLength;
  ret = VerifyFileReadAndCheck(node);
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][INFO]:Verify file: %s length: %u finished, result: %u",
                     node.key.binName, node.recordLength, ret);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][INFO]:BOOT_VerifyFilesTravHashTable verify %s failed.",
                       node.key.binName);
    return false;
  }
  return true;
}

// Buckets in index order, each chain from its front, under the read lock for the whole walk.
uint32_t VerifyFilesTravHashTable(uint32_t selector) {
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][INFO]:BOOT_VerifyFilesTravHashTable starting...");
  BOOT_INIT_HASH_TABLE_S *index = BOOT_GetPkgInfo()->index;
  const IndexReadLock lock(index);
  if (!lock.held()) {
    return BOOT_INIT_ERROR;
  }
  uint32_t total = 0;
  uint32_t ret = BOOT_INIT_OK;
  for (HashNode *first : std::span(index->buckets, index->bucketCount)) {
    for (HashNode *link = first; link != nullptr; link = link->next) {
      if (!VisitNode(*reinterpret_cast<const Node *>(link), selector, total, ret)) {
        return ret;
      }
    }
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][INFO]:BOOT_VerifyFilesTravHashTable finished, total size: %u",
                     total);
  return BOOT_INIT_OK;
}

uint32_t VerifyFileInBuffer(const char *name) {
  const Node *node = BootGetFileInfo(name);
  if (node == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARN]:Verify file in buffer, can not find file %s.", name);
    return BOOT_PKG_ERR_NOT_FOUND;
  }
  return VerifyFileReadAndCheck(*node);
}

// A copy that failed its check is deleted: only proven bytes stay in the staging directory.
uint32_t Reject(const char *name) {
  BootRemoveFile(BOOT_PKG_STAGING_DIR, name);
  return BOOT_INIT_ERROR;
}

// The copy is hashed while it is made and gets its name only when its digest is the listed
// one: the staging directory never shows bytes that were not proven, whatever happens to the
// package file meanwhile.
uint32_t DoVerifyFileInExtract(const char *name, const char *digest, uint32_t asRecord) {
  StagedRecord copy;
  switch (copy.Stage(name, BOOT_PKG_STAGING_DIR, asRecord != 0)) {
    case StagedRecord::Outcome::kCopied:
      break;
    case StagedRecord::Outcome::kNotExtracted:
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                         "[BOOT_INIT][ERROR]:Verify one file, extract file %s failed.", name);
      return Reject(name);
    case StagedRecord::Outcome::kNotHashed:
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                         "[BOOT_INIT][ERROR]:Verify one file, cacl file %s hash value failed.",
                         copy.path());
      return Reject(name);
  }
  DigestText calc = {};
  ToText(copy.digest(), calc);
  if (SWM_IsStringEqual(calc.data(), digest) == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Verify file %s failed, calc:%s right hash:%s.", name,
                       calc.data(), digest);
    return Reject(name);
  }
  if (!copy.Place()) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Verify one file, extract file %s failed.", name);
    return Reject(name);
  }
  return BOOT_INIT_OK;
}

uint32_t VerifyFileInExtract(const char *name, uint32_t asRecord) {
  const Node *node = BootGetFileInfo(name);
  if (node == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARN]:Verify file in extract, can not find file %s.", name);
    return BOOT_PKG_ERR_NOT_FOUND;
  }
  return DoVerifyFileInExtract(name, node->digest, asRecord);
}

}  // namespace
}  // namespace bootinit::pkg

using namespace bootinit::pkg;

extern "C" {

uint32_t BOOT_VerifyFilesTravHashTable(uint32_t selector) {
  return VerifyFilesTravHashTable(selector);
}

uint32_t BOOT_VerifyFileInBuffer(const char *name) {
  return AnyNull({name}) ? BOOT_INIT_ERROR : VerifyFileInBuffer(name);
}

uint32_t BOOT_VerifyFileInExtract(const char *name, uint32_t asRecord) {
  return AnyNull({name}) ? BOOT_INIT_ERROR : VerifyFileInExtract(name, asRecord);
}

uint32_t BOOT_DoVerifyFileInExtract(const char *name, const char *digest, uint32_t asRecord) {
  return AnyNull({name, digest}) ? BOOT_INIT_ERROR : DoVerifyFileInExtract(name, digest, asRecord);
}

uint32_t BootVerifyFileReadAndCheck(const BOOT_PKG_FILE_NODE_S *node) {
  return AnyNull({node}) ? BOOT_INIT_ERROR : VerifyFileReadAndCheck(*node);
}

uint32_t BootIsNeedToVerifyFile(const BOOT_PKG_FILE_NODE_S *node, uint32_t selector) {
  return AnyNull({node}) ? 0U : IsNeedToVerifyFile(*node, selector);
}

}  // extern "C"
