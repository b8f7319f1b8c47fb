// Common ground of the extraction tests: an active main board whose platform trusts the test
// PKI's root, whose boot environment names a current package, with empty logs and disarmed
// seams; signed packages written by bootpkg inside the board (both schemes, and the broken ones
// of its --break rules); the expected bytes from bootpkg's own extraction. Every test ends with
// the signed-file list released and as many open descriptors as it began with.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "board_facts.hpp"
#include "bootinit/extract.h"
#include "bootinit/verify.h"
#include "extract_faults.hpp"
#include "pkg_faults.hpp"
#include "pkg_fixture.hpp"

#ifndef TEST_PKI_DIR
#error "TEST_PKI_DIR must name the build's test PKI directory"
#endif

namespace extracttest {

using pkgtest::Bootpkg;
using pkgtest::Concat;
using pkgtest::Input;
using pkgtest::kPkgPath;
using pkgtest::Listed;

inline const std::string kPkiDir = TEST_PKI_DIR;
inline const std::string kOutDir = "/var/lib/extout";
inline const std::string kStaging = BOOT_PKG_STAGING_DIR;
inline const std::string kOtherPackage = "/opt/kytv8/home/running.cc";
inline const std::string kKernel(5000, 'k');
inline const std::string kRootfs = "root file system\n";
inline const std::string kApp = "application\n";

constexpr uint32_t kError = 0xFFFFFFFFu;
constexpr uint32_t kNotFound = 0x10000007u;
constexpr uint32_t kNullPtr = 0x10000002u;
constexpr uint32_t kNoFile = 0x10000003u;

inline const std::vector<std::string> kSigFiles = {"signature_filelist", "signature_cms",
                                                   "signature_crl", "signature_pss_filelist",
                                                   "signature_pss_cms"};

inline std::string Pki(const std::string &name) { return kPkiDir + "/" + name; }

// bootpkg build options signing with the scheme's signer of the test PKI.
inline std::vector<std::string> SignedBy(const std::string &scheme,
                                         const std::string &signer = "") {
  const std::string who = signer.empty() ? scheme + "_signer" : signer;
  std::vector<std::string> options = {"--sign",          scheme,  "--signer",
                                      Pki(who + ".pem"), "--key", Pki(who + ".key")};
  if (scheme == "classic") {
    options.insert(options.end(), {"--crl", Pki("crl_empty.der")});
  }
  return options;
}

inline std::vector<std::string> With(std::vector<std::string> options,
                                     const std::vector<std::string> &more) {
  options.insert(options.end(), more.begin(), more.end());
  return options;
}

// The record as bootpkg writes it out whole (under its binName), or its file bytes.
inline std::string RecordBytes(const std::string &name, bool whole,
                               const std::string &package = kPkgPath) {
  const std::string dir = "/opt/reference";
  testsupport::RemovePath(dir);
  std::vector<std::string> args = {"extract", "--out", dir};
  if (whole) {
    args.emplace_back("--whole");
  }
  args.insert(args.end(), {package, name});
  const pkgtest::ToolRun run = Bootpkg(args);
  EXPECT_EQ(run.status, 0) << run.output;
  std::string bytes;
  for (const auto &entry : std::filesystem::directory_iterator(dir)) {
    bytes = testsupport::ReadFile(entry.path());
  }
  testsupport::RemovePath(dir);
  return bytes;
}

// name -> content of every entry of a directory (links as "-> target"), hidden ones included.
inline std::map<std::string, std::string> DirState(const std::string &dir) {
  std::map<std::string, std::string> state;
  if (!std::filesystem::is_directory(dir)) {
    return state;
  }
  for (const auto &entry : std::filesystem::directory_iterator(dir)) {
    const std::string name = entry.path().filename().string();
    if (entry.is_symlink()) {
      state[name] = "-> " + std::filesystem::read_symlink(entry.path()).string();
    } else if (entry.is_directory()) {
      state[name] = "<dir>";
    } else {
      state[name] = testsupport::ReadFile(entry.path());
    }
  }
  return state;
}

// The signature files lying in /tmp.
inline std::vector<std::string> TmpSignatureFiles() {
  std::vector<std::string> present;
  for (const std::string &name : kSigFiles) {
    if (std::filesystem::exists(std::filesystem::symlink_status("/tmp/" + name))) {
      present.push_back(name);
    }
  }
  return present;
}

inline std::vector<std::string> SafeLog() {
  return testsupport::LogMessages(testsupport::kSafeLogPath, 1);
}

// The records of the signed-file list as {name, digest}, in list order.
inline std::vector<std::pair<std::string, std::string>> SignedRecords() {
  std::vector<std::pair<std::string, std::string>> records;
  for (const BOOT_INIT_DLL_NODE_S *node = g_signedFiles->links.next; node != &g_signedFiles->links;
       node = node->next) {
    const auto *record = reinterpret_cast<const BOOT_INIT_SIG_FILE_DIGEST_NODE_S *>(node);
    records.emplace_back(record->fileName, record->digest);
  }
  return records;
}

// ---- expected messages ----

inline std::string NoSuchFile(const std::string &name) {
  return "[BOOT_INIT][WARNING]:FindTarget: no such file " + name;
}
inline std::string GetFileFailed(const std::string &name) {
  return "[BOOT_INIT][WARNING]:ExtractFileInner: get file failed, name:" + name;
}
inline std::string NotOk(const std::string &name, const std::string &dir,
                         const std::string &package = kPkgPath) {
  return "[BOOT_INIT][WARNING]:extract file " + name + " from " + package + " to " + dir +
         " not ok.";
}
// The three lines of a file the package does not hold (or holds no acceptable record of).
inline std::vector<std::string> Missing(const std::string &name, const std::string &dir,
                                        const std::string &package = kPkgPath) {
  return {NoSuchFile(name), GetFileFailed(name), NotOk(name, dir, package)};
}
// The two lines of a signature file the package does not hold, when the signed-file list is
// loaded: the search fails, and its caller says so.
inline std::vector<std::string> SignatureMissing(const std::string &name) {
  return {NoSuchFile(name), GetFileFailed(name)};
}
// A classic package's signature files: the PSS list is looked for first.
inline std::vector<std::string> NoPssList() { return SignatureMissing("signature_pss_filelist"); }
inline std::string Mismatch(const std::string &name, const std::string &calc,
                            const std::string &listed) {
  return "[BOOT_INIT][ERROR]:Verify file " + name + " failed, calc:" + calc +
         " in signature list:" + listed + ".";
}
inline std::string PssSuccess(const std::string &dir) {
  return "[BOOT_INIT][SECURITY]verify pss signature " + dir + "/signature_pss_filelist success.";
}
inline std::string ClassicSuccess(const std::string &dir) {
  return "[BOOT_INIT][SECURITY]verify signature success, source file:" + dir +
         "/signature_filelist.";
}

class ExtractTest : public testing::Test {
 protected:
  void SetUp() override {
    pkgfaults::Reset();
    extractfaults::Reset();
    BOOT_InitDllFreeAll(g_signedFiles, BOOT_INIT_ReleaseNode);
    testsupport::StartWithEmptyLogs();
    testsupport::DescribeBoard(testsupport::ActiveMainBoard(),
                               {{"security.root_ca", Pki("root_ca.der")}});
    testsupport::SetEnv("next_bootfile", kOtherPackage);
    for (const std::string &path : {pkgtest::kInDir, kOutDir, kStaging}) {
      testsupport::RemovePath(path);
    }
    for (const std::string &name : kSigFiles) {
      testsupport::RemovePath("/tmp/" + name);
    }
    testsupport::MakeDir("/opt/kytv8/home");
    fds_ = testsupport::CountOpenFds();
  }
  void TearDown() override {
    BOOT_InitDllFreeAll(g_signedFiles, BOOT_INIT_ReleaseNode);
    pkgfaults::Reset();
    extractfaults::Reset();
    EXPECT_EQ(testsupport::CountOpenFds(), fds_) << "a descriptor outlived the test";
  }

  // kernel.img.gz, rootfs and app.bin, signed with the scheme (further options added).
  static void BuildThree(const std::string &scheme = "pss",
                         const std::vector<std::string> &more = {}) {
    Input("kernel.img.gz", kKernel);
    Input("rootfs", kRootfs);
    Input("app.bin", kApp);
    pkgtest::Build({"kernel.img.gz", "rootfs", "app.bin"}, With(SignedBy(scheme), more));
  }

  static uint32_t Extract(const std::string &name, const std::string &dir = kOutDir,
                          const std::string &package = kPkgPath) {
    return BOOT_INIT_ExtractFileByFileName(name.c_str(), package.c_str(), dir.c_str());
  }

  static std::string Out(const std::string &name) { return kOutDir + "/" + name; }

  // The board runs package (by default the test's): its boot made the staging directory.
  static void RunThisPackage(const std::string &package = kPkgPath) {
    testsupport::SetEnv("next_bootfile", package);
    testsupport::MakeDir(kStaging);
  }

  int fds_ = 0;
};

}  // namespace extracttest
