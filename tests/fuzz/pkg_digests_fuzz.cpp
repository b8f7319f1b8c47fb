// Signature file lists read for their digests, whatever their bytes, over the index of one small
// package that this harness writes and indexes once: kernel.bin (from kernel.img.gz), rootfs.bin,
// app.bin, and the main boards' FPGA image, exempt on the board the replays run in. Each input
// is written as the list file and read through BOOT_ReadSignatureFileList after every digest of
// the index was cleared. The verdict and every node's digest are compared with a model of the
// reader's rules written here over the profile that the platform's INI reader builds from the
// same bytes in memory; the model finds a name's node with the library's own lookup, which the
// unit tests cover. Messages go nowhere: the boot logs are never initialised. A broken property
// traps.
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "bootinit/common.h"
#include "bootinit/package.h"
#include "fuzz_files.hpp"
#include "swm.h"

namespace {

using fuzzfiles::Check;
using fuzzfiles::WriteFile;

std::string PackagePath() { return fuzzfiles::WorkPath("package.cc"); }
std::string ListPath() { return fuzzfiles::WorkPath("signature_filelist"); }

void PutBe32(std::string &bytes, size_t at, uint32_t value) {
  for (size_t i = 0; i < 4; ++i) {
    bytes[at + i] = static_cast<char>((value >> (24 - (8 * i))) & 0xFFU);
  }
}

struct File {
  const char *actualName;
  const char *binName;
  const char *content;
};

// The package: records end to end after the 6180-byte header, each a 352-byte file header
// (kind 1, names, big-endian length) and the file's bytes.
std::string PackageBytes() {
  const File files[] = {{"kernel.img.gz", "kernel.bin", "kernel image"},
                        {"rootfs", "rootfs.bin", "root file system"},
                        {"app.bin", "app.bin", "application"},
                        {"mpu_fpga.img", "mpu_fpga.bin", "fpga bitstream"}};
  std::string bytes(6180, '\0');
  PutBe32(bytes, 4, 4);
  uint32_t index = 0;
  for (const File &file : files) {
    std::string header(352, '\0');
    header[8] = 1;
    std::memcpy(&header[116], file.actualName, std::strlen(file.actualName));
    std::memcpy(&header[244], file.binName, std::strlen(file.binName));
    const auto length = static_cast<uint32_t>(std::strlen(file.content));
    PutBe32(header, 340, length);
    PutBe32(bytes, 32 + (24 * index) + 4, static_cast<uint32_t>(bytes.size()));
    PutBe32(bytes, 32 + (24 * index) + 8, 352 + length);
    bytes += header + file.content;
    ++index;
  }
  return bytes;
}

// The package is indexed on the first input and stays indexed for the whole run.
void IndexOnce() {
  static bool indexed = false;
  if (indexed) {
    return;
  }
  indexed = true;
  // Registered after the work directory's clean-up, so it runs first: the package is closed
  // before its file is removed.
  (void)PackagePath();
  (void)std::atexit(BOOT_DeinitPkgVerify);
  const std::string package = PackageBytes();
  WriteFile(PackagePath(), package.data(), package.size());
  Check(BOOT_InitPkgVerify() == BOOT_INIT_OK);
  Check(BOOT_GetPkgAndFilesHeader(PackagePath().c_str()) == BOOT_INIT_OK);
}

std::vector<BOOT_PKG_FILE_NODE_S *> Nodes() {
  std::vector<BOOT_PKG_FILE_NODE_S *> nodes;
  const BOOT_INIT_HASH_TABLE_S *index = BOOT_GetPkgInfo()->index;
  for (uint32_t bucket = 0; bucket < index->bucketCount; ++bucket) {
    for (BOOT_INIT_HLIST_NODE_S *link = index->buckets[bucket]; link != nullptr;
         link = link->next) {
      nodes.push_back(reinterpret_cast<BOOT_PKG_FILE_NODE_S *>(link));
    }
  }
  return nodes;
}

bool Equal(const char *a, const char *b) { return std::strcmp(a, b) == 0; }

uint32_t Number(const char *text) {
  const unsigned long long value = std::strtoull(text, nullptr, 0);
  return value > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(value);
}

using Digests = std::map<const BOOT_PKG_FILE_NODE_S *, std::string>;

bool MainSectionPasses(const SWM_INI_KEY_S *key) {
  bool creator = false;
  bool count = false;
  for (; key != nullptr && !(creator && count); key = key->next) {
    if (Equal(key->name, "Create By")) {
      creator = true;
      if (!Equal(key->value, "Velmor Technology Inc.")) {
        return false;
      }
    } else if (Equal(key->name, "FILENUM")) {
      count = true;
      const uint32_t files = Number(key->value);
      if (files < 1 || files > 256) {
        return false;
      }
    }
  }
  return true;
}

bool IsExempt(const char *name) {
  const BOOT_PKG_INFO_S *info = BOOT_GetPkgInfo();
  for (uint32_t i = 0; i < info->exemptCount; ++i) {
    if (Equal(name, info->exemptNames[i])) {
      return true;
    }
  }
  return false;
}

// One file section: type, name (cut to 95 characters) and digest (cut to 64) in key order; the
// digest counts only after both others.
bool FileSectionPasses(const SWM_INI_KEY_S *key, Digests &digests) {
  unsigned seen = 0;
  std::string name;
  for (; key != nullptr && seen != 7; key = key->next) {
    if (Equal(key->name, "FILETYPE")) {
      seen |= 1;
    } else if (Equal(key->name, "FILENAME")) {
      if (key->value[0] == '\0') {
        return false;
      }
      if (IsExempt(key->value)) {
        return true;
      }
      seen |= 2;
      name = std::string(key->value).substr(0, 95);
    } else if (Equal(key->name, "SHA256-DIGEST")) {
      if (key->value[0] == '\0') {
        return false;
      }
      seen |= 4;
      if ((seen & 3) == 3) {
        const BOOT_PKG_FILE_NODE_S *node = BootGetFileInfo(name.c_str());
        if (node == nullptr) {
          return false;
        }
        digests[node] = std::string(key->value).substr(0, 64);
      }
    }
  }
  return true;
}

// The verdict of the reader on these bytes, and the digests it leaves.
bool Model(const uint8_t *data, size_t size, Digests &digests) {
  if (size == 0) {
    return false;
  }
  FILE *stream = ::fmemopen(const_cast<uint8_t *>(data), size, "r");
  Check(stream != nullptr);
  SWM_INI_SECTION_S *profile = SWM_IniLoadProfile(stream);
  (void)std::fclose(stream);
  bool passes = profile != nullptr;
  for (const SWM_INI_SECTION_S *section = profile; passes && section != nullptr;
       section = section->next) {
    if (Equal(section->name, "[MAIN FILE INFO]")) {
      passes = MainSectionPasses(section->keys);
    } else if (section->keys != nullptr) {
      passes = FileSectionPasses(section->keys, digests);
    }
  }
  SWM_FreeProfile(profile);
  return passes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  IndexOnce();
  const std::vector<BOOT_PKG_FILE_NODE_S *> nodes = Nodes();
  Check(nodes.size() == 3);  // the FPGA image is exempt
  for (BOOT_PKG_FILE_NODE_S *node : nodes) {
    std::memset(node->digest, 0, sizeof(node->digest));
  }
  Digests expected;
  const bool passes = Model(data, size, expected);
  WriteFile(ListPath(), data, size);
  const uint32_t result = BOOT_ReadSignatureFileList(ListPath().c_str());
  Check(result == (passes ? BOOT_INIT_OK : BOOT_INIT_ERROR));
  for (const BOOT_PKG_FILE_NODE_S *node : nodes) {
    Check(::memchr(node->digest, '\0', sizeof(node->digest)) != nullptr);
    const auto listed = expected.find(node);
    Check(node->digest == (listed == expected.end() ? std::string() : listed->second));
  }
  return 0;
}
