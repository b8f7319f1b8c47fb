// Packages as a board might receive them, whatever their bytes. Each input is written as the
// package file in a directory of this process and indexed through BOOT_InitPkgVerify and
// BOOT_GetPkgAndFilesHeader, the path every package takes; BOOT_DeinitPkgVerify releases it.
// The verdict is compared with a model of the container rules written here from the bytes
// (layout, duplicate names, exempt firmware of the board, the table's refusal of a name that
// begins another name of its bucket), and every node with the record it came from. Messages go
// nowhere: the harness never initialises the boot logs. A broken property traps.
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bootinit/common.h"
#include "bootinit/package.h"
#include "fuzz_files.hpp"

namespace {

constexpr std::size_t kHeaderLen = 6180;
constexpr std::size_t kFileHeaderLen = 352;
constexpr uint32_t kMaxFiles = 256;

using fuzzfiles::Check;

std::string PackagePath() { return fuzzfiles::WorkPath("package.cc"); }

uint32_t Be32(const uint8_t *at) {
  return (uint32_t{at[0]} << 24U) | (uint32_t{at[1]} << 16U) | (uint32_t{at[2]} << 8U) | at[3];
}

// A name field as the library keeps it: its last byte taken as the terminator.
std::string NameField(const uint8_t *at, size_t size) {
  const auto *text = reinterpret_cast<const char *>(at);
  return std::string(text, ::strnlen(text, size - 1));
}

uint32_t Bucket(const std::string &name) {
  uint32_t sum = 0;
  for (const unsigned char b : name) {
    sum += (b * 16U) + ((b / 16U) * 11U);
  }
  return sum & (BOOT_PKG_HASH_BUCKETS - 1U);
}

struct ModelNode {
  std::string binName;
  std::string actualName;
  uint32_t kind;
  uint32_t offset;
  uint32_t length;
  uint32_t actualLength;
};

bool IsExempt(const std::string &name) {
  const BOOT_PKG_INFO_S *info = BOOT_GetPkgInfo();
  for (uint32_t i = 0; i < info->exemptCount; ++i) {
    if (name == info->exemptNames[i]) {
      return true;
    }
  }
  return false;
}

// The table refuses a key that an earlier node of its bucket begins with.
bool Refused(const std::vector<ModelNode> &nodes, const std::string &name) {
  for (const ModelNode &node : nodes) {
    if (Bucket(node.binName) == Bucket(name) && node.binName.compare(0, name.size(), name) == 0) {
      return true;
    }
  }
  return false;
}

// The nodes a package of these bytes must give; false when it must be refused.
bool Model(const uint8_t *data, size_t size, std::vector<ModelNode> &nodes) {
  if (size < kHeaderLen || Be32(data + 4) > kMaxFiles) {
    return false;
  }
  const uint32_t count = Be32(data + 4);
  std::vector<std::string> seen;
  uint64_t end = kHeaderLen;
  for (uint32_t i = 0; i < count; ++i) {
    const uint8_t *entry = data + 32 + (24 * i);
    const uint32_t offset = Be32(entry + 4);
    const uint32_t length = Be32(entry + 8);
    if (offset != end || length == 0 || end + length > UINT32_MAX) {
      return false;
    }
    end += length;
    if (uint64_t{offset} + kFileHeaderLen > size) {
      return false;
    }
    const uint8_t *header = data + offset;
    ModelNode node = {NameField(header + 244, 96), NameField(header + 116, 128), 0, offset, length,
                      Be32(header + 340)};
    std::memcpy(&node.kind, header + 8, sizeof(node.kind));
    for (const std::string &earlier : seen) {
      if (earlier == node.binName) {
        return false;
      }
    }
    seen.push_back(node.binName);
    if (IsExempt(node.binName)) {
      continue;
    }
    if (Refused(nodes, node.binName)) {
      return false;
    }
    nodes.push_back(node);
  }
  return end == size;
}

std::vector<ModelNode> IndexedNodes() {
  std::vector<ModelNode> nodes;
  const BOOT_INIT_HASH_TABLE_S *index = BOOT_GetPkgInfo()->index;
  for (uint32_t bucket = 0; bucket < index->bucketCount; ++bucket) {
    for (const BOOT_INIT_HLIST_NODE_S *link = index->buckets[bucket]; link != nullptr;
         link = link->next) {
      const auto *node = reinterpret_cast<const BOOT_PKG_FILE_NODE_S *>(link);
      Check(::memchr(node->key.binName, '\0', sizeof(node->key.binName)) != nullptr);
      Check(::memchr(node->actualName, '\0', sizeof(node->actualName)) != nullptr);
      Check(node->digest[0] == '\0');
      Check(Bucket(node->key.binName) == bucket);
      nodes.push_back({node->key.binName, node->actualName, node->key.fileKind, node->recordOffset,
                       node->recordLength, node->actualLength});
    }
  }
  return nodes;
}

bool SameNode(const ModelNode &a, const ModelNode &b) {
  return a.binName == b.binName && a.actualName == b.actualName && a.kind == b.kind &&
         a.offset == b.offset && a.length == b.length && a.actualLength == b.actualLength;
}

// Every node of the model is in the index once, and nothing else is.
void CheckNodes(const std::vector<ModelNode> &expected) {
  const std::vector<ModelNode> indexed = IndexedNodes();
  Check(indexed.size() == expected.size());
  for (const ModelNode &node : expected) {
    size_t found = 0;
    for (const ModelNode &candidate : indexed) {
      found += SameNode(node, candidate) ? 1 : 0;
    }
    Check(found == 1);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzzfiles::WriteFile(PackagePath(), data, size);
  Check(BOOT_InitPkgVerify() == BOOT_INIT_OK);
  const uint32_t result = BOOT_GetPkgAndFilesHeader(PackagePath().c_str());
  Check(result == BOOT_INIT_OK || result == BOOT_INIT_ERROR);
  std::vector<ModelNode> expected;
  const bool accepted = Model(data, size, expected);
  Check(accepted == (result == BOOT_INIT_OK));
  if (accepted) {
    CheckNodes(expected);
  }
  BOOT_DeinitPkgVerify();
  Check(BOOT_GetPkgInfo()->fd == -1 && BOOT_GetPkgInfo()->index == nullptr);
  return 0;
}
