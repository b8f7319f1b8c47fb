// Common ground of the package tests: an active main board (hardware type 0x1A2B) with empty
// logs, packages written by the repository's tool bootpkg (run through /usr/bin/python3 inside
// the board) from input files the test writes, the tool's own listing of each record with its
// digests, byte patches of a package for faults the tool does not write, and a view of the
// file index as the library holds it. Every test ends with the index released and as many open
// descriptors as it began with.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "board_facts.hpp"
#include "bootinit/common.h"
#include "bootinit/package.h"
#include "pkg_faults.hpp"

namespace pkgtest {

inline const std::string kInDir = "/tmp/pkgin";
inline const std::string kPkgPath = "/opt/kytv8/home/test.cc";
inline const std::string kOutDir = "/tmp/pkgout";
inline const std::string kStaging = BOOT_PKG_STAGING_DIR;
inline const std::string kNullParam = "[BOOT_INIT][ERROR]:input param is null when check null 1";
inline const std::string kBuildFailed = "[BOOT_INIT][ERROR]:Get all files header failed.";
inline const std::string kCreator = "Velmor Technology Inc.";
constexpr uint32_t kError = 0xFFFFFFFFu;
constexpr uint32_t kNotFound = BOOT_PKG_ERR_NOT_FOUND;

// Firmware files: exempt on main boards (0x1A2B), indexed on line cards (0x2B3C).
inline const std::string kMpuFirmware = "mpu_fpga.img";
inline const std::string kMpuFirmwareBin = "mpu_fpga.bin";

inline std::string Quoted(const std::string &arg) { return "'" + arg + "'"; }

struct ToolRun {
  int status = -1;
  std::string output;  // standard output and error together
};

// Runs bootpkg with these arguments inside the board.
inline ToolRun Bootpkg(const std::vector<std::string> &args) {
  std::string command = "/usr/bin/python3 " + Quoted(BOOTPKG_TOOL);
  for (const std::string &arg : args) {
    command += " " + Quoted(arg);
  }
  command += " 2>&1";
  ToolRun run;
  FILE *pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) {
    return run;
  }
  std::array<char, 4096> chunk{};
  for (std::size_t got = 0; (got = std::fread(chunk.data(), 1, chunk.size(), pipe)) > 0;) {
    run.output.append(chunk.data(), got);
  }
  run.status = ::pclose(pipe);
  return run;
}

// Writes an input file of the package; its path.
inline std::string Input(const std::string &name, const std::string &content) {
  const std::string path = kInDir + "/" + name;
  testsupport::WriteFile(path, content);
  return path;
}

// Writes the package at kPkgPath from the input files named (in order) with further options.
inline void Build(const std::vector<std::string> &names, std::vector<std::string> options = {}) {
  std::vector<std::string> args = {"build", "--out", kPkgPath, "--time", "1700000000"};
  args.insert(args.end(), options.begin(), options.end());
  for (const std::string &name : names) {
    args.push_back(kInDir + "/" + name);
  }
  const ToolRun run = Bootpkg(args);
  ASSERT_EQ(run.status, 0) << run.output;
}

// One record as `bootpkg list` shows it.
struct Listed {
  uint32_t index = 0;
  uint32_t offset = 0;
  uint32_t length = 0;
  uint32_t actualLength = 0;
  uint32_t kind = 0;
  std::string binName;
  std::string actualName;
  std::string recordDigest;  // of the whole record
  std::string fileDigest;    // of the file bytes
};

inline std::vector<std::string> Split(const std::string &line, char separator) {
  std::vector<std::string> fields;
  std::stringstream stream(line);
  for (std::string field; std::getline(stream, field, separator);) {
    fields.push_back(field);
  }
  return fields;
}

// The records of the package by its writer's own reading; a package with layout faults is
// listed as well (the faults go to the tool's error output, which is dropped here).
inline std::vector<Listed> ListPackage(const std::string &path = kPkgPath) {
  const ToolRun run = Bootpkg({"list", path});
  std::vector<Listed> records;
  std::stringstream text(run.output);
  for (std::string line; std::getline(text, line);) {
    const std::vector<std::string> f = Split(line, '\t');
    if (f.size() != 9 || f[4] == "-") {
      continue;
    }
    Listed record;
    record.index = static_cast<uint32_t>(std::stoul(f[0]));
    record.offset = static_cast<uint32_t>(std::stoul(f[1]));
    record.length = static_cast<uint32_t>(std::stoul(f[2]));
    record.actualLength = static_cast<uint32_t>(std::stoul(f[3]));
    record.kind = static_cast<uint32_t>(std::stoul(f[4]));
    record.binName = f[5];
    record.actualName = f[6];
    record.recordDigest = f[7];
    record.fileDigest = f[8];
    records.push_back(record);
  }
  return records;
}

// The listed record of that binName (the test fails when there is none).
inline Listed Record(const std::vector<Listed> &records, const std::string &binName) {
  for (const Listed &record : records) {
    if (record.binName == binName) {
      return record;
    }
  }
  ADD_FAILURE() << "no record " << binName;
  return {};
}

// The digest text of a file as the system's sha256sum computes it, inside the board.
inline std::string Sha256sum(const std::string &path) {
  FILE *pipe = ::popen(("sha256sum " + Quoted(path) + " 2>/dev/null").c_str(), "r");
  if (pipe == nullptr) {
    return "<popen failed>";
  }
  std::array<char, 160> line{};
  const bool read = std::fgets(line.data(), static_cast<int>(line.size()), pipe) != nullptr;
  const int status = ::pclose(pipe);
  if (!read || status != 0) {
    return "<sha256sum failed>";
  }
  return std::string(line.data()).substr(0, 64);
}

// ---- bytes of a package ----

inline std::string PackageBytes() { return testsupport::ReadFile(kPkgPath); }
inline void WritePackage(const std::string &bytes) { testsupport::WriteFile(kPkgPath, bytes); }

inline void PutBe32(std::string &bytes, std::size_t at, uint32_t value) {
  for (std::size_t i = 0; i < 4; ++i) {
    bytes.at(at + i) = static_cast<char>((value >> (24 - 8 * i)) & 0xFFu);
  }
}

// Replaces a name field (NUL-padded to its size).
inline void PutName(std::string &bytes, std::size_t at, std::size_t size, const std::string &name) {
  std::string field = name;
  field.resize(size, '\0');
  bytes.replace(at, size, field);
}

constexpr std::size_t kEntryOffsetAt = 32 + 4;  // of entry 0; entries are 24 bytes apart
constexpr std::size_t kEntryLengthAt = 32 + 8;
constexpr std::size_t kActualNameAt = 116;  // within a file header
constexpr std::size_t kBinNameAt = 244;

// A package of fileCount 0: the package header only (all zero), with extra bytes after it.
inline void WriteEmptyPackage(std::size_t extra = 0) {
  WritePackage(std::string(BOOT_PKG_HEADER_LEN + extra, '\0'));
}

// ---- the index as the library holds it ----

struct NodeView {
  uint32_t bucket = 0;
  std::string binName;
  std::string actualName;
  uint32_t kind = 0;
  uint32_t offset = 0;
  uint32_t length = 0;
  uint32_t actualLength = 0;
  std::string digest;
  bool operator==(const NodeView &) const = default;
};

inline void PrintTo(const NodeView &node, std::ostream *out) {
  *out << "{bucket " << node.bucket << ", " << node.binName << ", " << node.actualName << ", kind "
       << node.kind << ", " << node.offset << "+" << node.length << ", actual " << node.actualLength
       << ", digest '" << node.digest << "'}";
}

inline std::string FieldText(const char *field, std::size_t size) {
  return std::string(field, ::strnlen(field, size));
}

inline NodeView ViewOf(uint32_t bucket, const BOOT_PKG_FILE_NODE_S &node) {
  return {bucket,
          FieldText(node.key.binName, sizeof(node.key.binName)),
          FieldText(node.actualName, sizeof(node.actualName)),
          node.key.fileKind,
          node.recordOffset,
          node.recordLength,
          node.actualLength,
          FieldText(node.digest, sizeof(node.digest))};
}

// Every node, buckets in order and each chain from its front (the order of the full walks).
inline std::vector<NodeView> IndexNodes() {
  std::vector<NodeView> nodes;
  const BOOT_INIT_HASH_TABLE_S *index = BOOT_GetPkgInfo()->index;
  if (index == nullptr) {
    return nodes;
  }
  for (uint32_t bucket = 0; bucket < index->bucketCount; ++bucket) {
    for (const BOOT_INIT_HLIST_NODE_S *link = index->buckets[bucket]; link != nullptr;
         link = link->next) {
      nodes.push_back(ViewOf(bucket, *reinterpret_cast<const BOOT_PKG_FILE_NODE_S *>(link)));
    }
  }
  return nodes;
}

inline std::vector<std::string> IndexNames() {
  std::vector<std::string> names;
  for (const NodeView &node : IndexNodes()) {
    names.push_back(node.binName);
  }
  return names;
}

// The bucket of a name by the documented sum: each byte b adds b * 16 + (b / 16) * 11.
inline uint32_t BucketOf(const std::string &name) {
  uint32_t sum = 0;
  for (const unsigned char b : name) {
    sum += b * 16u + (b / 16u) * 11u;
  }
  return sum % BOOT_PKG_HASH_BUCKETS;
}

// The node of a listed record as the index must hold it (digest empty until placed).
inline NodeView Expected(const Listed &record, const std::string &digest = "") {
  return {BucketOf(record.binName),
          record.binName,
          record.actualName,
          record.kind,
          record.offset,
          record.length,
          record.actualLength,
          digest};
}

// The expected nodes in walk order: by bucket, and within a bucket the record indexed last
// first (new nodes go to the front of their chain).
inline std::vector<NodeView> WalkOrder(const std::vector<NodeView> &nodes) {
  std::vector<NodeView> ordered;
  for (uint32_t bucket = 0; bucket < BOOT_PKG_HASH_BUCKETS; ++bucket) {
    for (auto node = nodes.rbegin(); node != nodes.rend(); ++node) {
      if (node->bucket == bucket) {
        ordered.push_back(*node);
      }
    }
  }
  return ordered;
}

// ---- the signature file list ----

struct Section {
  std::string name;
  std::string type;
  std::string digest;
};

inline std::string MainSection(const std::string &count, const std::string &creator = kCreator) {
  return "[MAIN FILE INFO]\nCreate By=" + creator + "\nFILENUM=" + count + "\n";
}

inline std::string FileSection(std::size_t number, const Section &file) {
  return "[FILE" + std::to_string(number) + "]\nFILENAME=" + file.name + "\nFILETYPE=" + file.type +
         "\nSHA256-DIGEST=" + file.digest + "\n";
}

inline std::string SignatureList(const std::vector<Section> &files) {
  std::string text = MainSection(std::to_string(files.size()));
  for (std::size_t i = 0; i < files.size(); ++i) {
    text += FileSection(i + 1, files[i]);
  }
  return text;
}

// ---- verity table records filled by the test ----

class VerityNames {
 public:
  VerityNames() = default;
  VerityNames(const VerityNames &) = delete;
  VerityNames &operator=(const VerityNames &) = delete;
  // Unlinks and frees the records (the table is left empty).
  ~VerityNames() {
    BOOT_PKG_NAME_LIST_S &list = BOOT_GetPkgInfo()->verityTable;
    auto *head = reinterpret_cast<BOOT_INIT_DLL_NODE_S *>(&list);
    list.first = head;
    list.last = head;
    records_.clear();
  }

  // Appends a record of that name at the end of the ring.
  void Add(const std::string &name) {
    auto record = std::make_unique<BOOT_PKG_VERITY_NAME_S>();
    std::memset(record.get(), 0, sizeof(*record));
    std::memcpy(record->binName, name.data(), std::min(name.size(), sizeof(record->binName)));
    BOOT_PKG_NAME_LIST_S &list = BOOT_GetPkgInfo()->verityTable;
    auto *head = reinterpret_cast<BOOT_INIT_DLL_NODE_S *>(&list);
    BOOT_INIT_DLL_NODE_S *last = list.last;
    record->link.next = head;
    record->link.prev = last;
    if (last == head) {
      list.first = &record->link;
    } else {
      last->next = &record->link;
    }
    list.last = &record->link;
    records_.push_back(std::move(record));
  }

 private:
  std::vector<std::unique_ptr<BOOT_PKG_VERITY_NAME_S>> records_;
};

class PkgTest : public testing::Test {
 protected:
  void SetUp() override {
    pkgfaults::Reset();
    testsupport::StartWithEmptyLogs();
    testsupport::DescribeBoard(testsupport::ActiveMainBoard());
    testsupport::RemovePath(kInDir);
    testsupport::RemovePath(kOutDir);
    testsupport::RemovePath(kStaging);
    testsupport::MakeDir("/opt/kytv8/home");
    fds_ = testsupport::CountOpenFds();
  }
  void TearDown() override {
    BOOT_DeinitPkgVerify();
    pkgfaults::Reset();
    EXPECT_EQ(testsupport::CountOpenFds(), fds_) << "a descriptor outlived the test";
    EXPECT_EQ(BOOT_GetPkgInfo()->fd, -1);
    EXPECT_EQ(BOOT_GetPkgInfo()->index, nullptr);
  }

  // A fresh index of the package at path: the result of building it.
  static uint32_t Index(const std::string &path = kPkgPath) {
    EXPECT_EQ(BOOT_InitPkgVerify(), 0u);
    return BOOT_GetPkgAndFilesHeader(path.c_str());
  }

  // kernel.img.gz, rootfs and app.bin with a list: four records.
  static void BuildThree(std::vector<std::string> options = {}) {
    Input("kernel.img.gz", std::string(5000, 'k'));
    Input("rootfs", "root file system\n");
    Input("app.bin", "application\n");
    Build({"kernel.img.gz", "rootfs", "app.bin"}, std::move(options));
  }

  int fds_ = 0;
};

// The lines of several expected parts, in order.
inline std::vector<std::string> Concat(std::vector<std::vector<std::string>> parts) {
  std::vector<std::string> all;
  for (auto &part : parts) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

}  // namespace pkgtest
