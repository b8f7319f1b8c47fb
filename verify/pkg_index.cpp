// The process-wide file index of one open package (g_pkgInfo): opening the package, checking
// its container layout record by record, one hash-table node per record, the lookups by name
// that extraction and verification go through, and this board's exempt firmware files.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>

#include "bootinit/board.h"
#include "bootinit/common.h"
#include "bootinit/log.h"
#include "bootinit/package.h"
#include "boundedstr.h"
#include "common/support/fixed_text.hpp"
#include "common/support/messages.hpp"
#include "swm.h"
#include "tkal.h"
#include "verify/pkg_layout.hpp"
#include "verify/pkg_records.hpp"
#include "verify/pkg_support.hpp"

namespace bootinit::pkg {
namespace {

using Node = BOOT_PKG_FILE_NODE_S;
using Key = BOOT_PKG_FILE_KEY_S;
using Info = BOOT_PKG_INFO_S;
using HashNode = BOOT_INIT_HLIST_NODE_S;

// The descriptor starts as "none", so a first initialisation never mistakes descriptor 0 for a
// package left open.
Info g_pkgInfo = {-1, 0, nullptr, nullptr, {nullptr, nullptr}};

constexpr uint32_t kNotEqual = 0xFFFFFFFFU;
constexpr const char *kBinSuffix = ".bin";
using HeaderBytes = std::array<std::byte, BOOT_PKG_HEADER_LEN>;

// Length of a name held in a fixed field: an unterminated field ends with the field.
std::size_t NameLen(const char *name, std::size_t field) { return ::strnlen(name, field); }

void DestroyHash(Info &info) {
  HashTableDestroy(info.index);
  info.index = nullptr;
}

void CloseFd(Info &info) {
  if (info.fd >= 0) {
    (void)::close(info.fd);
    info.fd = -1;
  }
}

// ---- building the index ----

// A zeroed node for the record, or nullptr when there is no memory.
Node *CreateFileInfo(const Entry &entry, const FileHeader &header) {
  auto *node = static_cast<Node *>(std::malloc(sizeof(Node)));
  if (node == nullptr) {
    return nullptr;
  }
  *node = Node{};
  node->key.fileKind = header.fileKind;
  std::memcpy(node->key.binName, header.binName.data(), sizeof(node->key.binName));
  node->recordOffset = entry.recordOffset;
  node->recordLength = entry.recordLength;
  node->actualLength = header.actualLength;
  std::memcpy(node->actualName, header.actualName.data(), sizeof(node->actualName));
  return node;
}

uint32_t AddFileInfo(const Entry &entry, const FileHeader &header, Info &info) {
  Node *node = CreateFileInfo(entry, header);
  if (node == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Create file(%s) info failed.",
                       header.binName.data());
    return BOOT_INIT_ERROR;
  }
  // The table compares keys by prefix, so a name that begins with the name of a node already
  // in its bucket is refused here like a duplicate.
  if (HashTableInsert(info.index, &node->key, &node->link) != BOOT_INIT_HASH_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Add file(%s) into list failed.",
                       header.binName.data());
    std::free(node);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

// A node for each record unless the board exempts it (an exempt record still counted for
// layout and duplicates).
uint32_t GetAllFilesHeader(Bytes header, Info &info, uint32_t pkgSize) {
  const uint32_t count = FileCount(header).value_or(UINT32_MAX);
  if (count > BOOT_PKG_MAX_FILES) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:File number(%u) is exceed max.",
                       count);
    return BOOT_INIT_ERROR;
  }
  return WalkRecords(info.fd, header, count, pkgSize,
                     [&info](const Entry &entry, const FileHeader &fileHeader) {
                       return BootFileInBlackList(fileHeader.binName.data()) == 1
                                  ? BOOT_INIT_OK
                                  : AddFileInfo(entry, fileHeader, info);
                     });
}

// The package's size as the 32-bit count the records are checked against. A file of 4 GiB or
// more has no such size: a cut value would let records that cover only its beginning pass.
bool PackageSize(const char *pkgPath, uint32_t &size) {
  int64_t bytes = 0;
  if (SWM_GetFileSize(pkgPath, &bytes) != SWM_OK || bytes < 0 || bytes > INT64_C(0xFFFFFFFF)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:get package %s size failed",
                       pkgPath);
    return false;
  }
  size = static_cast<uint32_t>(bytes);
  return true;
}

// Every failure leaves the descriptor open in g_pkgInfo for BOOT_DeinitPkgVerify to close.
uint32_t GetPkgAndFilesHeader(const char *pkgPath) {
  CloseFd(g_pkgInfo);  // a package opened before, never two at a time
  int fd = -1;
  if (SWM_Open(pkgPath, O_RDONLY, &fd) != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Open package(%s) failed, errno=%d.", pkgPath, errno);
    return BOOT_INIT_ERROR;
  }
  g_pkgInfo.fd = fd;
  HeaderBytes header{};
  const ssize_t got = TKAL_FdRead(fd, header.data(), header.size());
  if (got != static_cast<ssize_t>(header.size())) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Read package header failed, read len = %d, head len "
                       "= %u.",
                       static_cast<int>(got), BOOT_PKG_HEADER_LEN);
    return BOOT_INIT_ERROR;
  }
  uint32_t pkgSize = 0;
  if (!PackageSize(pkgPath, pkgSize)) {
    return BOOT_INIT_ERROR;
  }
  if (GetAllFilesHeader(header, g_pkgInfo, pkgSize) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Get all files header failed.");
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

// ---- initialisation ----

// A second initialisation without BOOT_DeinitPkgVerify releases what the first one held.
uint32_t InitPkgHash() {
  DestroyHash(g_pkgInfo);
  CloseFd(g_pkgInfo);
  g_pkgInfo = Info{};
  g_pkgInfo.fd = -1;
  g_pkgInfo.index = HashTableCreate(BootBKDRHash, BootCmpHashNode, BootFreeHashNode, nullptr,
                                    BOOT_PKG_HASH_BUCKETS);
  if (g_pkgInfo.index == nullptr) {
    return BOOT_INIT_ERROR;
  }
  BootGetVerifiedWhitelist();
  return BOOT_INIT_OK;
}

// The head is a node of its own ring: an empty table points at itself both ways. The head's
// address is only stored and compared, never read through as a node.
BOOT_INIT_DLL_NODE_S *VerityHead(BOOT_PKG_NAME_LIST_S &list) {
  return reinterpret_cast<BOOT_INIT_DLL_NODE_S *>(&list);
}

uint32_t InitPkgVerify() {
  const uint32_t ret = InitPkgHash();
  if (ret != BOOT_INIT_OK) {
    return ret;
  }
  g_pkgInfo.verityTable.first = VerityHead(g_pkgInfo.verityTable);
  g_pkgInfo.verityTable.last = VerityHead(g_pkgInfo.verityTable);
  return BOOT_INIT_OK;
}

// ---- lookups ----

void GetFileName(const char *name, std::span<char> out) {
  bool fits = false;
  if (SWM_IsPostfixString(name, kBinSuffix) == 1) {
    fits = CopyInto(out, name);
  } else {
    // Everything from the first "." on is cut off.
    const std::size_t stem = std::strcspn(name, ".");
    fits = FormatInto(out, "%.*s%s", static_cast<int>(std::min<std::size_t>(stem, INT_MAX)), name,
                      kBinSuffix);
  }
  if (!fits) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_SNPRINTF_FAILED, "BOOT_GetFileName");
    out[0] = '\0';
  }
}

bool IsPrefixOfField(const char *field, std::size_t fieldLen, std::string_view prefix) {
  return std::string_view(field, NameLen(field, fieldLen)).starts_with(prefix);
}

// The slow search: every bucket in order, each chain from its front. An empty name would be a
// prefix of every name and is no file.
Node *GetFileTravHashTable(const char *name) {
  const std::string_view wanted(name);
  const IndexReadLock lock(g_pkgInfo.index);
  if (wanted.empty() || !lock.held()) {
    return nullptr;
  }
  const std::span<HashNode *> buckets(g_pkgInfo.index->buckets, g_pkgInfo.index->bucketCount);
  for (HashNode *first : buckets) {
    for (HashNode *link = first; link != nullptr; link = link->next) {
      auto *node = reinterpret_cast<Node *>(link);
      if (IsPrefixOfField(node->key.binName, sizeof(node->key.binName), wanted) ||
          IsPrefixOfField(node->actualName, sizeof(node->actualName), wanted)) {
        return node;
      }
    }
  }
  return nullptr;
}

Node *GetFileInfo(const char *name) {
  Key key{};
  GetFileName(name, key.binName);
  if (key.binName[0] != '\0') {
    HashNode *hit = HashTableSearch(g_pkgInfo.index, &key);
    if (hit != nullptr) {
      return reinterpret_cast<Node *>(hit);
    }
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][WARN]:File %s will find traverse all.",
                     name);
  return GetFileTravHashTable(name);
}

// The digest is a bounded copy: at most the 64 characters of a digest text are kept.
uint32_t UpdateFileInfo(const char *name, const char *digest) {
  Node *node = GetFileInfo(name);
  if (node == nullptr) {
    return BOOT_PKG_ERR_NOT_FOUND;
  }
  (void)strncpy_s(node->digest, sizeof(node->digest), digest, sizeof(node->digest) - 1);
  return BOOT_INIT_OK;
}

// A digest met before the type and the name of its section belongs to no file yet and is
// dropped without a word.
uint32_t UpdateFileDigest(const char *name, uint32_t kind, const char *digest, uint32_t seenMask) {
  constexpr uint32_t kNeeded = BOOT_PKG_SEEN_FILETYPE | BOOT_PKG_SEEN_FILENAME;
  if ((seenMask & kNeeded) != kNeeded) {
    return BOOT_INIT_OK;
  }
  if (UpdateFileInfo(name, digest) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Update file(%s %u %s) failed.",
                       name, kind, digest);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

void RemoveFilesNode(const char *binName) {
  Key key{};
  if (CopyInto(key.binName, binName)) {
    HashTableRemove(g_pkgInfo.index, &key);
  }
}

// ---- exemptions, names, the verity table ----

void GetVerifiedWhitelist() {
  g_pkgInfo.exemptCount = 0;
  g_pkgInfo.exemptNames = nullptr;
  uint32_t hardType = 0;
  if (BOOT_InitGetBoardHardType(&hardType) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:get board hardtype failed.");
    return;
  }
  const std::span<const BOOT_PKG_WHITELIST_ROW_S> rows(g_whiteList);
  const auto row = std::find_if(rows.begin(), rows.end(), [hardType](const auto &candidate) {
    return candidate.hardType == hardType;
  });
  if (row != rows.end()) {
    g_pkgInfo.exemptCount = row->count;
    g_pkgInfo.exemptNames = row->names;
  }
}

uint32_t FileInBlackList(const char *name) {
  if (g_pkgInfo.exemptNames == nullptr) {
    return 0;
  }
  const std::span<const char *const> names(g_pkgInfo.exemptNames, g_pkgInfo.exemptCount);
  if (std::none_of(names.begin(), names.end(),
                   [name](const char *exempt) { return SWM_IsStringEqual(exempt, name) != 0; })) {
    return 0;
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:file %s in whitelist", name);
  return 1;
}

uint32_t IsFileInVerityTable(const char *binName) {
  const BOOT_INIT_DLL_NODE_S *head = VerityHead(g_pkgInfo.verityTable);
  const std::string_view wanted(binName);
  // A table never initialised has empty links and is empty too.
  for (const BOOT_INIT_DLL_NODE_S *link = g_pkgInfo.verityTable.first;
       link != nullptr && link != head; link = link->next) {
    const auto *record = reinterpret_cast<const BOOT_PKG_VERITY_NAME_S *>(link);
    if (std::string_view(record->binName, NameLen(record->binName, sizeof(record->binName))) ==
        wanted) {
      return 1;
    }
  }
  return 0;
}

uint32_t IsBasePkg(const char *path) {
  return SWM_IsPostfixString(path, ".cc") == 1 || SWM_IsPostfixString(path, ".CC") == 1 ? 1U : 0U;
}

// The system's own sum over the name's bytes (not a multiplicative string hash), masked to the
// power-of-two bucket count.
int32_t BkdrHash(uint32_t buckets, const Key &key) {
  uint32_t sum = 0;
  const std::string_view name(key.binName, NameLen(key.binName, sizeof(key.binName)));
  for (const char c : name) {
    const auto byte = static_cast<uint32_t>(static_cast<unsigned char>(c));
    sum += (byte * 16U) + ((byte / 16U) * 11U);
  }
  return static_cast<int32_t>(sum & (buckets - 1U));
}

// Equal when the node's name begins with the key's whole name; the kind is not compared.
int32_t CmpHashNode(const Key &key, const Node &node) {
  const std::size_t len = NameLen(key.binName, sizeof(key.binName));
  return std::strncmp(key.binName, node.key.binName, len) == 0 ? 0
                                                               : static_cast<int32_t>(kNotEqual);
}

}  // namespace
}  // namespace bootinit::pkg

using namespace bootinit::pkg;

extern "C" {

uint32_t BOOT_InitPkgVerify(void) { return InitPkgVerify(); }

uint32_t BOOT_InitPkgHash(void) { return InitPkgHash(); }

void BOOT_DeinitPkgVerify(void) {
  DestroyHash(g_pkgInfo);
  CloseFd(g_pkgInfo);
}

BOOT_PKG_INFO_S *BOOT_GetPkgInfo(void) { return &g_pkgInfo; }

uint32_t BOOT_GetPkgAndFilesHeader(const char *pkgPath) {
  if (AnyNull({pkgPath})) {
    return BOOT_INIT_ERROR;
  }
  return GetPkgAndFilesHeader(pkgPath);
}

uint32_t BootGetAllFilesHeader(const BOOT_PKG_HEADER_S *hdr, BOOT_PKG_INFO_S *info,
                               uint32_t pkgSize) {
  if (AnyNull({hdr, info})) {
    return BOOT_INIT_ERROR;
  }
  return GetAllFilesHeader(std::as_bytes(std::span(hdr, 1)), *info, pkgSize);
}

uint32_t BootAddFileInfo(const BOOT_PKG_FILE_ENTRY_S *entry,
                         const BOOT_PKG_FILE_HEADER_S *fileHeader, BOOT_PKG_INFO_S *info) {
  if (AnyNull({entry, fileHeader, info})) {
    return BOOT_INIT_ERROR;
  }
  const std::optional<Entry> parsedEntry = EntryOf(std::as_bytes(std::span(entry, 1)));
  const std::optional<FileHeader> header = FileHeaderOf(std::as_bytes(std::span(fileHeader, 1)));
  if (!parsedEntry || !header) {
    return BOOT_INIT_ERROR;
  }
  return AddFileInfo(*parsedEntry, *header, *info);
}

BOOT_PKG_FILE_NODE_S *BootGetFileInfo(const char *name) {
  return AnyNull({name}) ? nullptr : GetFileInfo(name);
}

uint32_t BootFileExistCheck(const char *name) {
  return BootGetFileInfo(name) != nullptr ? BOOT_INIT_OK : BOOT_PKG_ERR_NOT_FOUND;
}

void BOOT_GetFileName(const char *name, char *out, uint32_t outSize) {
  if (outSize == 0 || AnyNull({name, out})) {
    return;
  }
  GetFileName(name, std::span(out, outSize));
}

BOOT_PKG_FILE_NODE_S *BootGetFileTravHashTable(const char *name) {
  return AnyNull({name}) ? nullptr : GetFileTravHashTable(name);
}

uint32_t BootUpdateFileInfo(const char *name, uint32_t kind, const char *digest) {
  (void)kind;  // the kind names the file in messages only; lookups are by name
  if (AnyNull({name, digest})) {
    return BOOT_INIT_ERROR;
  }
  return UpdateFileInfo(name, digest);
}

uint32_t BootUpdateFileDigest(const char *name, uint32_t kind, const char *digest,
                              uint32_t seenMask) {
  if (AnyNull({name, digest})) {
    return BOOT_INIT_ERROR;
  }
  return UpdateFileDigest(name, kind, digest, seenMask);
}

void BOOT_RemoveFilesNode(const char *binName) {
  if (!AnyNull({binName})) {
    RemoveFilesNode(binName);
  }
}

void BootGetVerifiedWhitelist(void) { GetVerifiedWhitelist(); }

uint32_t BootFileInBlackList(const char *name) {
  return AnyNull({name}) ? 0U : FileInBlackList(name);
}

uint32_t BOOT_IsFileInVerityTable(const char *binName) {
  return AnyNull({binName}) ? 0U : IsFileInVerityTable(binName);
}

uint32_t BOOT_CcIsBasePkg(const char *path) { return AnyNull({path}) ? 0U : IsBasePkg(path); }

int32_t BootBKDRHash(uint32_t buckets, const void *key) {
  if (key == nullptr || buckets == 0) {
    return 0;
  }
  return BkdrHash(buckets, *static_cast<const BOOT_PKG_FILE_KEY_S *>(key));
}

int32_t BootCmpHashNode(const void *key, BOOT_INIT_HLIST_NODE_S *node) {
  if (key == nullptr || node == nullptr) {
    return static_cast<int32_t>(0xFFFFFFFFU);
  }
  return CmpHashNode(*static_cast<const BOOT_PKG_FILE_KEY_S *>(key),
                     *reinterpret_cast<const BOOT_PKG_FILE_NODE_S *>(node));
}

void BootFreeHashNode(void *node) { std::free(node); }

}  // extern "C"
