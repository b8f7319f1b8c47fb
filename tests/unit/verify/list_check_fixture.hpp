// Common ground of the list check tests: an active main board (type 0x1A2B, CPU 0) with empty
// logs, a delivery directory /opt/pkg with two files, signature file lists and boot file lists
// written as text, digests from the system's sha256sum, and a digest list the test owns.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "board_facts.hpp"
#include "bootinit/common.h"
#include "bootinit/verify.h"
#include "list_check_faults.hpp"

namespace listtest {

inline const std::string kPkgDir = "/opt/pkg";
inline const std::string kAppName = "app.bin";
inline const std::string kKernelName = "kernel.img";
inline const std::string kAppPath = kPkgDir + "/" + kAppName;
inline const std::string kKernelPath = kPkgDir + "/" + kKernelName;
inline const std::string kSigList = kPkgDir + "/signature_list.ini";
inline const std::string kCreator = "Velmor Technology Inc.";
inline const std::string kNullParam = "[BOOT_INIT][ERROR]:input param is null when check null 1";
inline const std::string kFileMissing = "[BOOT_INIT][ERROR]:res is FALSE when check res.";

// The digest text of a file as the system's sha256sum computes it, inside the board.
inline std::string Sha256sumOf(const std::string &path) {
  FILE *pipe = ::popen(("sha256sum " + path).c_str(), "r");
  if (pipe == nullptr) {
    return "<popen failed>";
  }
  char line[160] = {};
  const bool read = std::fgets(line, sizeof(line), pipe) != nullptr;
  const int status = ::pclose(pipe);
  if (!read || status != 0) {
    return "<sha256sum failed>";
  }
  return std::string(line).substr(0, 64);
}

inline std::string Upper(std::string text) {
  for (char &c : text) {
    if (c >= 'a' && c <= 'f') {
      c = static_cast<char>(c - 'a' + 'A');
    }
  }
  return text;
}

// A directory path of exactly length (at least 6) characters under /opt, in components of at
// most 100 characters (a file name may have 255).
inline std::string LongDir(std::size_t length) {
  std::string dir = "/opt";
  while (dir.size() < length) {
    std::size_t left = length - dir.size();  // "/" and the component
    if (left > 101) {
      left = left - 101 == 1 ? 100 : 101;  // never leave a single character over
    }
    dir += "/" + std::string(left - 1, 'd');
  }
  return dir;
}

// One file section of a signature file list.
struct FileSection {
  std::string name;
  std::string type;
  std::string digest;
};

inline std::string MainSection(const std::string &creator, const std::string &count) {
  return "[MAIN FILE INFO]\nCreate By=" + creator + "\nFILENUM=" + count + "\n";
}

inline std::string SectionText(std::size_t index, const FileSection &file) {
  return "\n[FILE" + std::to_string(index + 1) + "]\nFILENAME=" + file.name +
         "\nFILETYPE=" + file.type + "\nSHA256-DIGEST=" + file.digest + "\n";
}

// A well-formed list of these files, FILENUM their count.
inline std::string SignatureList(const std::vector<FileSection> &files) {
  std::string text = MainSection(kCreator, std::to_string(files.size()));
  for (std::size_t i = 0; i < files.size(); ++i) {
    text += SectionText(i, files[i]);
  }
  return text;
}

// What a record holds, for comparisons.
struct RecordView {
  uint32_t valid;
  uint32_t fileType;
  std::string fileName;
  std::string digest;
  bool operator==(const RecordView &) const = default;
};

inline void PrintTo(const RecordView &record, std::ostream *out) {
  *out << "{valid " << record.valid << ", type " << record.fileType << ", " << record.fileName
       << ", " << record.digest << "}";
}

// A digest list owned by the test, released with the library's release function.
class Digests {
 public:
  Digests() { head_.links.next = head_.links.prev = &head_.links; }
  Digests(const Digests &) = delete;
  Digests &operator=(const Digests &) = delete;
  ~Digests() { BOOT_InitDllFreeAll(&head_, BOOT_INIT_ReleaseNode); }
  BOOT_INIT_DLL_HEAD_S *get() { return &head_; }

  // Walks the ring both ways, so that a badly linked record shows.
  [[nodiscard]] std::vector<RecordView> Records() const {
    std::vector<RecordView> records;
    const BOOT_INIT_DLL_NODE_S *prev = &head_.links;
    for (const BOOT_INIT_DLL_NODE_S *node = head_.links.next; node != &head_.links;
         node = node->next) {
      EXPECT_EQ(node->prev, prev);
      const auto *record = reinterpret_cast<const BOOT_INIT_SIG_FILE_DIGEST_NODE_S *>(node);
      records.push_back({record->valid, record->fileType, record->fileName, record->digest});
      prev = node;
    }
    EXPECT_EQ(head_.links.prev, prev);
    EXPECT_EQ(head_.count, records.size());
    return records;
  }

 private:
  BOOT_INIT_DLL_HEAD_S head_ = {};
};

class ListCheckTest : public testing::Test {
 protected:
  void SetUp() override {
    listfaults::Reset();
    testsupport::StartWithEmptyLogs();
    testsupport::DescribeBoard(testsupport::ActiveMainBoard());
    testsupport::WriteFile(kAppPath, "application image\n");
    testsupport::WriteFile(kKernelPath, std::string(70000, 'k'));
    appDigest_ = Sha256sumOf(kAppPath);
    kernelDigest_ = Sha256sumOf(kKernelPath);
    ASSERT_EQ(appDigest_.size(), 64u);
    ASSERT_EQ(kernelDigest_.size(), 64u);
    fds_ = testsupport::CountOpenFds();
  }
  void TearDown() override {
    listfaults::Reset();
    EXPECT_EQ(testsupport::CountOpenFds(), fds_) << "a descriptor outlived the test";
  }

  // The list of both files, app.bin of type 1 and kernel.img of type 2.
  [[nodiscard]] std::string BothFiles() const {
    return SignatureList({{kAppName, "1", appDigest_}, {kKernelName, "2", kernelDigest_}});
  }

  static std::vector<std::string> SafeLog() {
    return testsupport::LogMessages(testsupport::kSafeLogPath, 1);
  }

  std::string appDigest_;
  std::string kernelDigest_;
  int fds_ = 0;
};

}  // namespace listtest
