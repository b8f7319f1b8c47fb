// The files of an indexed package against the digests of its list: the walk over the whole
// index (in bucket order, with the verity selectors), one file read straight from the package,
// and one file extracted into the staging directory and hashed there. Expected digests come
// from bootpkg, which hashes with Python's own hashlib.
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "bootinit/package.h"
#include "pkg_fixture.hpp"

using pkgtest::Bootpkg;
using pkgtest::Build;
using pkgtest::FileSection;
using pkgtest::Input;
using pkgtest::kError;
using pkgtest::kNotFound;
using pkgtest::kPkgPath;
using pkgtest::kStaging;
using pkgtest::Listed;
using pkgtest::ListPackage;
using pkgtest::MainSection;
using pkgtest::NodeView;
using pkgtest::Record;
using pkgtest::VerityNames;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testsupport::MainLog;
using testsupport::ReadFile;

namespace {

const std::string kListDir = "/tmp/list";
const std::string kStarting = "[BOOT_INIT][INFO]:BOOT_VerifyFilesTravHashTable starting...";
const std::string kKernelBytes(5000, 'k');

std::string Traverse(const std::string &name) {
  return "[BOOT_INIT][WARN]:File " + name + " will find traverse all.";
}

std::string Staged(const std::string &name) { return kStaging + "/" + name; }

// Watches a directory for names that appear in it (created, linked or renamed in), through the
// kernel's own notification, so a name that exists only for a moment is seen as well.
class NamesAppearing {
 public:
  explicit NamesAppearing(const std::string &dir) : fd_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (fd_ >= 0) {
      (void)::inotify_add_watch(fd_, dir.c_str(), IN_CREATE | IN_MOVED_TO);
    }
  }
  NamesAppearing(const NamesAppearing &) = delete;
  NamesAppearing &operator=(const NamesAppearing &) = delete;
  ~NamesAppearing() {
    if (fd_ >= 0) {
      ::close(fd_);
    }
  }
  [[nodiscard]] bool watching() const { return fd_ >= 0; }
  // The names seen since the watch began, in order.
  std::vector<std::string> Seen() const {
    std::vector<std::string> names;
    alignas(struct inotify_event) char buffer[4096];
    for (ssize_t got = 0; (got = ::read(fd_, buffer, sizeof(buffer))) > 0;) {
      for (ssize_t at = 0; at < got;) {
        const auto *event = reinterpret_cast<const struct inotify_event *>(buffer + at);
        names.emplace_back(event->len > 0 ? event->name : "");
        at += static_cast<ssize_t>(sizeof(struct inotify_event) + event->len);
      }
    }
    return names;
  }

 private:
  int fd_;
};

std::string Extracting(const std::string &name) {
  return "[BOOT_INIT][INFO]:Extract file: " + Staged(name);
}

std::string Visiting(const NodeView &node) {
  return "[BOOT_INIT][INFO]:Verify file: " + node.binName +
         " length: " + std::to_string(node.length);
}

std::string Finished(const NodeView &node, uint32_t result) {
  return Visiting(node) + " finished, result: " + std::to_string(result);
}

std::string HashFailed(const NodeView &node) {
  return "[BOOT_INIT][ERROR]:Get file(" + node.binName + " " + std::to_string(node.offset) + " " +
         std::to_string(node.length) + ") sha256 failed(4294967295).";
}

// The FILENAME / SHA256-DIGEST pairs of a list text.
std::map<std::string, std::string> ListedDigests(const std::string &text) {
  std::map<std::string, std::string> digests;
  std::istringstream lines(text);
  std::string name;
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("FILENAME=", 0) == 0) {
      name = line.substr(9);
    } else if (line.rfind("SHA256-DIGEST=", 0) == 0) {
      digests[name] = line.substr(14);
    }
  }
  return digests;
}

// What the walk over the index must log, node by node in walk order.
struct WalkPlan {
  std::set<std::string> skipped;   // excluded by the selector
  std::string failing;             // the node whose check fails, "" for none
  std::vector<std::string> fault;  // what its failing check logs
};

std::vector<std::string> ExpectedWalk(const std::vector<NodeView> &order, const WalkPlan &plan) {
  std::vector<std::string> lines = {kStarting};
  uint32_t total = 0;
  for (const NodeView &node : order) {
    lines.push_back(Visiting(node));
    if (node.digest.empty()) {
      lines.push_back("[BOOT_INIT][WARN]:File " + node.binName + " not in signature file list.");
      continue;
    }
    if (plan.skipped.count(node.binName) != 0) {
      continue;
    }
    total += node.length;
    if (node.binName == plan.failing) {
      lines.insert(lines.end(), plan.fault.begin(), plan.fault.end());
      lines.push_back(Finished(node, kError));
      lines.push_back("[BOOT_INIT][INFO]:BOOT_VerifyFilesTravHashTable verify " + node.binName +
                      " failed.");
      return lines;
    }
    lines.push_back(Finished(node, 0));
  }
  lines.push_back("[BOOT_INIT][INFO]:BOOT_VerifyFilesTravHashTable finished, total size: " +
                  std::to_string(total));
  return lines;
}

// The names the walk checked, from its "finished" lines.
std::set<std::string> Checked(const std::vector<std::string> &lines) {
  std::set<std::string> names;
  const std::string prefix = "[BOOT_INIT][INFO]:Verify file: ";
  for (const std::string &line : lines) {
    if (line.rfind(prefix, 0) == 0 && line.find(" finished, result: ") != std::string::npos) {
      names.insert(line.substr(prefix.size(), line.find(' ', prefix.size()) - prefix.size()));
    }
  }
  return names;
}

// Packages of kernel.img.gz, rootfs and app.bin with their list, indexed, the list's digests
// placed; the log starts empty after that.
class PkgCheckTest : public pkgtest::PkgTest {
 protected:
  void Prepare(std::vector<std::string> options = {}, std::vector<std::string> extra = {}) {
    Input("kernel.img.gz", kKernelBytes);
    Input("rootfs", "root file system\n");
    Input("app.bin", "application\n");
    std::vector<std::string> names = {"kernel.img.gz", "rootfs", "app.bin"};
    names.insert(names.end(), extra.begin(), extra.end());
    Build(names, std::move(options));
    records_ = ListPackage();
    ASSERT_EQ(Index(), 0u);
    ASSERT_EQ(BOOT_ExtractActualFile("signature_filelist", kListDir.c_str()), 0u);
    listed_ = ListedDigests(ReadFile(kListDir + "/signature_filelist"));
    ASSERT_EQ(BOOT_ReadSignatureFileList((kListDir + "/signature_filelist").c_str()), 0u);
    testsupport::ClearMainLog();
  }

  // The nodes in walk order, each with the digest its list gave it.
  [[nodiscard]] std::vector<NodeView> Order() const {
    std::vector<NodeView> nodes;
    for (const Listed &record : records_) {
      const auto listed = listed_.find(record.binName);
      nodes.push_back(pkgtest::Expected(record, listed == listed_.end() ? "" : listed->second));
    }
    return pkgtest::WalkOrder(nodes);
  }

  [[nodiscard]] NodeView NodeOf(const std::string &binName) const {
    for (const NodeView &node : Order()) {
      if (node.binName == binName) {
        return node;
      }
    }
    ADD_FAILURE() << "no node " << binName;
    return {};
  }

  // The first node of the walk that is checked.
  [[nodiscard]] NodeView FirstChecked() const {
    for (const NodeView &node : Order()) {
      if (!node.digest.empty()) {
        return node;
      }
    }
    return {};
  }

  std::vector<Listed> records_;
  std::map<std::string, std::string> listed_;
};

// ---- the walk ----

TEST_F(PkgCheckTest, EveryListedFileMatches) {
  Prepare();
  EXPECT_EQ(Order().size(), 4u);
  EXPECT_EQ(pkgtest::IndexNodes(), Order());
  EXPECT_EQ(BOOT_VerifyFilesTravHashTable(0), 0u);
  EXPECT_THAT(MainLog(), ElementsAreArray(ExpectedWalk(Order(), {})));
}

TEST_F(PkgCheckTest, SelectorsOtherThanOneAndTwoCheckEveryFile) {
  Prepare();
  EXPECT_EQ(BOOT_VerifyFilesTravHashTable(3), 0u);
  EXPECT_EQ(BOOT_VerifyFilesTravHashTable(0xFFFFFFFFu), 0u);
  std::vector<std::string> expected = ExpectedWalk(Order(), {});
  const std::vector<std::string> once = expected;
  expected.insert(expected.end(), once.begin(), once.end());
  EXPECT_THAT(MainLog(), ElementsAreArray(expected));
}

TEST_F(PkgCheckTest, SelectorsOneAndTwoTogetherCheckEveryListedFileOnce) {
  Prepare();
  VerityNames verity;
  verity.Add("rootfs.bin");
  verity.Add("app.bin");
  verity.Add("signature_filelist.bin");
  EXPECT_EQ(BOOT_VerifyFilesTravHashTable(BOOT_PKG_SELECT_NOT_VERITY), 0u);
  const std::vector<std::string> outside = MainLog();
  EXPECT_THAT(outside,
              ElementsAreArray(ExpectedWalk(Order(), {{"rootfs.bin", "app.bin"}, "", {}})));
  testsupport::ClearMainLog();
  EXPECT_EQ(BOOT_VerifyFilesTravHashTable(BOOT_PKG_SELECT_VERITY), 0u);
  const std::vector<std::string> inside = MainLog();
  EXPECT_THAT(inside, ElementsAreArray(ExpectedWalk(Order(), {{"kernel.bin"}, "", {}})));
  EXPECT_THAT(Checked(outside), ElementsAre("kernel.bin"));
  EXPECT_THAT(Checked(inside), ElementsAre("app.bin", "rootfs.bin"));
}

TEST_F(PkgCheckTest, AFileWhoseDigestCameBeforeItsNameIsReportedAndPassedOver) {
  Prepare();
  const std::string list =
      MainSection("3") + FileSection(1, {"kernel.bin", "1", listed_["kernel.bin"]}) +
      "[FILE2]\nSHA256-DIGEST=" + listed_["rootfs.bin"] + "\nFILENAME=rootfs.bin\nFILETYPE=1\n" +
      FileSection(3, {"app.bin", "1", listed_["app.bin"]});
  BOOT_DeinitPkgVerify();
  ASSERT_EQ(Index(), 0u);
  testsupport::WriteFile("/tmp/reordered.ini", list);
  ASSERT_EQ(BOOT_ReadSignatureFileList("/tmp/reordered.ini"), 0u);
  testsupport::ClearMainLog();
  listed_.erase("rootfs.bin");
  EXPECT_EQ(BOOT_VerifyFilesTravHashTable(0), 0u);
  const std::vector<std::string> lines = MainLog();
  EXPECT_THAT(lines, ElementsAreArray(ExpectedWalk(Order(), {})));
  EXPECT_THAT(lines, testing::Contains("[BOOT_INIT][WARN]:File rootfs.bin not in signature file "
                                       "list."));
}

TEST_F(PkgCheckTest, AChangedByteStopsTheWalkAtItsFile) {
  Prepare({"--break", "changed-byte", "--target", "rootfs"});
  const std::string actual = Record(records_, "rootfs.bin").recordDigest;
  ASSERT_NE(actual, listed_["rootfs.bin"]);
  EXPECT_EQ(BOOT_VerifyFilesTravHashTable(0), kError);
  EXPECT_THAT(MainLog(),
              ElementsAreArray(ExpectedWalk(
                  Order(), {{},
                            "rootfs.bin",
                            {"[BOOT_INIT][ERROR]:Verify file rootfs.bin failed, calc:" + actual +
                             " in signature list:" + listed_["rootfs.bin"] + "."}})));
}

TEST_F(PkgCheckTest, ARecordAboveTenMiBIsCheckedAfterANote) {
  Input("exact.img", std::string(10485760 - 352, 'e'));
  Input("big.img", std::string(10485761 - 352, 'b'));
  Prepare({}, {"exact.img", "big.img"});
  ASSERT_EQ(NodeOf("big.bin").length, 10485761u);
  ASSERT_EQ(NodeOf("exact.bin").length, 10485760u);
  EXPECT_EQ(BOOT_VerifyFilesTravHashTable(0), 0u);
  std::vector<std::string> expected = ExpectedWalk(Order(), {});
  const auto visit = std::find(expected.begin(), expected.end(), Visiting(NodeOf("big.bin")));
  ASSERT_NE(visit, expected.end());
  expected.insert(visit + 1, "[BOOT_INIT][INFO]:File big.bin size 10485761 exceed 10485760.");
  EXPECT_THAT(MainLog(), ElementsAreArray(expected));
}

TEST_F(PkgCheckTest, APackageCutShortAfterIndexing) {
  Prepare();
  const NodeView app = NodeOf("app.bin");
  std::filesystem::resize_file(kPkgPath, app.offset + app.length - 1);
  EXPECT_EQ(BOOT_VerifyFilesTravHashTable(0), kError);
  EXPECT_THAT(
      MainLog(),
      ElementsAreArray(ExpectedWalk(
          Order(), {{}, "app.bin", {"[BOOT_INIT][ERROR]:Read file failed", HashFailed(app)}})));
}

TEST_F(PkgCheckTest, AFailedSeekToARecord) {
  Prepare();
  pkgfaults::Get().lseekFailFd = BOOT_GetPkgInfo()->fd;
  pkgfaults::Get().lseekFailAt = 1;
  pkgfaults::Get().lseekErrno = EINVAL;
  const NodeView first = FirstChecked();
  EXPECT_EQ(BOOT_VerifyFilesTravHashTable(0), kError);
  EXPECT_THAT(MainLog(),
              ElementsAreArray(ExpectedWalk(Order(), {{}, first.binName, {HashFailed(first)}})));
}

TEST_F(PkgCheckTest, NoWalkWithoutTheReadLock) {
  Prepare();
  pkgfaults::Get().rdlockFailAt = 1;
  EXPECT_EQ(BOOT_VerifyFilesTravHashTable(0), kError);
  EXPECT_THAT(MainLog(), ElementsAre(kStarting));
}

TEST_F(PkgCheckTest, NoWalkWithoutAnIndex) {
  EXPECT_EQ(BOOT_VerifyFilesTravHashTable(0), kError);
  EXPECT_THAT(MainLog(), ElementsAre(kStarting));
}

// ---- one file read from the package ----

TEST_F(PkgCheckTest, OneFileReadFromThePackage) {
  Prepare();
  EXPECT_EQ(BOOT_VerifyFileInBuffer("kernel.bin"), 0u);
  EXPECT_EQ(BOOT_VerifyFileInBuffer("rootfs"), 0u);
  EXPECT_EQ(BOOT_VerifyFileInBuffer("app.bin"), 0u);
  EXPECT_THAT(MainLog(), IsEmpty());
  EXPECT_EQ(BOOT_VerifyFileInBuffer("initrd.bin"), kNotFound);
  EXPECT_THAT(MainLog(), ElementsAre(Traverse("initrd.bin"),
                                     "[BOOT_INIT][WARN]:Verify file in buffer, can not find file "
                                     "initrd.bin."));
}

TEST_F(PkgCheckTest, OneChangedFileReadFromThePackage) {
  Prepare({"--break", "changed-byte", "--target", "kernel.img.gz", "--byte", "4000"});
  const std::string actual = Record(records_, "kernel.bin").recordDigest;
  EXPECT_EQ(BOOT_VerifyFileInBuffer("kernel.img.gz"), kError);
  EXPECT_EQ(BOOT_VerifyFileInBuffer("signature_filelist.bin"), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Verify file kernel.bin failed, calc:" + actual +
                              " in signature list:" + listed_["kernel.bin"] + ".",
                          "[BOOT_INIT][ERROR]:Verify file signature_filelist.bin "
                          "failed, calc:" +
                              Record(records_, "signature_filelist.bin").recordDigest +
                              " in signature list:."));
}

TEST_F(PkgCheckTest, TheReadingCheckOfANodeGiven) {
  Prepare();
  BOOT_PKG_FILE_NODE_S node = *BootGetFileInfo("rootfs.bin");
  EXPECT_EQ(BootVerifyFileReadAndCheck(&node), 0u);
  node.digest[0] = node.digest[0] == 'a' ? 'b' : 'a';
  EXPECT_EQ(BootVerifyFileReadAndCheck(&node), kError);
  node.recordLength = 0xFFFFFFF0u;
  EXPECT_EQ(BootVerifyFileReadAndCheck(&node), kError);
  EXPECT_EQ(BootVerifyFileReadAndCheck(nullptr), kError);
  const std::string calc = Record(records_, "rootfs.bin").recordDigest;
  const NodeView rootfs = NodeOf("rootfs.bin");
  NodeView huge = rootfs;
  huge.length = 0xFFFFFFF0u;
  EXPECT_THAT(
      MainLog(),
      ElementsAre("[BOOT_INIT][ERROR]:Verify file rootfs.bin failed, calc:" + calc +
                      " in signature list:" + node.digest + ".",
                  "[BOOT_INIT][INFO]:File rootfs.bin size 4294967280 exceed 10485760.",
                  "[BOOT_INIT][ERROR]:Read file failed", HashFailed(huge), pkgtest::kNullParam));
}

TEST_F(PkgCheckTest, WhichFilesASelectorTakes) {
  Prepare();
  VerityNames verity;
  verity.Add("rootfs.bin");
  const BOOT_PKG_FILE_NODE_S *rootfs = BootGetFileInfo("rootfs.bin");
  const BOOT_PKG_FILE_NODE_S *kernel = BootGetFileInfo("kernel.bin");
  EXPECT_EQ(BootIsNeedToVerifyFile(rootfs, BOOT_PKG_SELECT_NOT_VERITY), 0u);
  EXPECT_EQ(BootIsNeedToVerifyFile(kernel, BOOT_PKG_SELECT_NOT_VERITY), 1u);
  EXPECT_EQ(BootIsNeedToVerifyFile(rootfs, BOOT_PKG_SELECT_VERITY), 1u);
  EXPECT_EQ(BootIsNeedToVerifyFile(kernel, BOOT_PKG_SELECT_VERITY), 0u);
  EXPECT_EQ(BootIsNeedToVerifyFile(rootfs, 0), 1u);
  EXPECT_EQ(BootIsNeedToVerifyFile(kernel, 7), 1u);
  EXPECT_EQ(BootIsNeedToVerifyFile(nullptr, 0), 0u);
}

// ---- one file extracted and hashed ----

TEST_F(PkgCheckTest, AProvenCopyOfTheWholeRecordStaysInTheStagingDirectory) {
  Prepare();
  EXPECT_EQ(BOOT_VerifyFileInExtract("kernel.bin", 1), 0u);
  EXPECT_EQ(pkgtest::Sha256sum(Staged("kernel.bin")), listed_["kernel.bin"]);
  EXPECT_THAT(MainLog(), ElementsAre(Extracting("kernel.bin")));
  const struct stat dir = testsupport::StatOf(kStaging);
  EXPECT_EQ(dir.st_mode & 07777, 0750u);
  EXPECT_EQ(dir.st_uid, 2000u);
  EXPECT_EQ(testsupport::StatOf(Staged("kernel.bin")).st_mode & 07777, 0700u);
}

TEST_F(PkgCheckTest, TheCopyTakesTheNameAsked) {
  Prepare();
  testsupport::WriteFile(Staged("rootfs"), "an older copy, not proven");
  EXPECT_EQ(BOOT_VerifyFileInExtract("rootfs", 1), 0u);
  EXPECT_EQ(pkgtest::Sha256sum(Staged("rootfs")), listed_["rootfs.bin"]);
  EXPECT_FALSE(std::filesystem::exists(Staged("rootfs.bin")));
}

TEST_F(PkgCheckTest, TheFileBytesAgainstTheDigestOfTheFileBytes) {
  Prepare();
  const std::string fileDigest = Record(records_, "kernel.bin").fileDigest;
  EXPECT_EQ(BOOT_DoVerifyFileInExtract("kernel.img.gz", fileDigest.c_str(), 0), 0u);
  EXPECT_EQ(ReadFile(Staged("kernel.img.gz")), kKernelBytes);
  EXPECT_THAT(MainLog(), ElementsAre(Extracting("kernel.img.gz")));
}

// The node's digest covers the whole record: the file bytes alone never match it.
TEST_F(PkgCheckTest, TheFileBytesAgainstTheDigestOfTheRecordFail) {
  Prepare();
  const std::string fileDigest = Record(records_, "kernel.bin").fileDigest;
  EXPECT_EQ(BOOT_VerifyFileInExtract("kernel.img.gz", 0), kError);
  EXPECT_FALSE(std::filesystem::exists(Staged("kernel.img.gz")));
  EXPECT_THAT(MainLog(),
              ElementsAre(Extracting("kernel.img.gz"),
                          "[BOOT_INIT][ERROR]:Verify file kernel.img.gz failed, calc:" +
                              fileDigest + " right hash:" + listed_["kernel.bin"] + "."));
}

TEST_F(PkgCheckTest, AChangedCopyIsDeleted) {
  Prepare({"--break", "changed-byte", "--target", "app.bin"});
  EXPECT_EQ(BOOT_VerifyFileInExtract("app.bin", 1), kError);
  EXPECT_FALSE(std::filesystem::exists(Staged("app.bin")));
  EXPECT_THAT(MainLog(), ElementsAre(Extracting("app.bin"),
                                     "[BOOT_INIT][ERROR]:Verify file app.bin failed, calc:" +
                                         Record(records_, "app.bin").recordDigest +
                                         " right hash:" + listed_["app.bin"] + "."));
}

// The package file changed between the index build and the extraction (as another process could
// change it): the copy does not match its digest and its name never appears in the staging
// directory, not even for a moment; an intact package gives its proven copy under the name.
TEST_F(PkgCheckTest, BytesChangedAfterTheIndexBuildNeverReachTheStagingDirectory) {
  Prepare();
  testsupport::MakeDir(kStaging);
  const NodeView app = NodeOf("app.bin");
  std::string bytes = pkgtest::PackageBytes();
  const std::string intact = bytes;
  bytes[app.offset + 352] = static_cast<char>(bytes[app.offset + 352] ^ 0x20);
  pkgtest::WritePackage(bytes);  // in place: the index's descriptor reads the new bytes
  testsupport::WriteFile("/opt/changed.bin", bytes.substr(app.offset, app.length));
  const std::string calc = pkgtest::Sha256sum("/opt/changed.bin");
  const NamesAppearing changed(kStaging);
  ASSERT_TRUE(changed.watching());
  EXPECT_EQ(BOOT_VerifyFileInExtract("app.bin", 1), kError);
  EXPECT_THAT(changed.Seen(), IsEmpty());
  EXPECT_TRUE(std::filesystem::is_empty(kStaging));
  EXPECT_THAT(MainLog(), ElementsAre(Extracting("app.bin"),
                                     "[BOOT_INIT][ERROR]:Verify file app.bin failed, calc:" + calc +
                                         " right hash:" + listed_["app.bin"] + "."));
  pkgtest::WritePackage(intact);
  const NamesAppearing restored(kStaging);
  EXPECT_EQ(BOOT_VerifyFileInExtract("app.bin", 1), 0u);
  EXPECT_THAT(restored.Seen(), ElementsAre("app.bin"));
  EXPECT_EQ(ReadFile(Staged("app.bin")), intact.substr(app.offset, app.length));
}

TEST_F(PkgCheckTest, AFileWithoutDigestNeverPasses) {
  Prepare();
  EXPECT_EQ(BOOT_VerifyFileInExtract("signature_filelist.bin", 1), kError);
  EXPECT_FALSE(std::filesystem::exists(Staged("signature_filelist.bin")));
  EXPECT_THAT(
      MainLog(),
      ElementsAre(Extracting("signature_filelist.bin"),
                  "[BOOT_INIT][ERROR]:Verify file signature_filelist.bin failed, calc:" +
                      Record(records_, "signature_filelist.bin").recordDigest + " right hash:."));
}

TEST_F(PkgCheckTest, AFileThePackageDoesNotHoldIsNotExtracted) {
  Prepare();
  EXPECT_EQ(BOOT_VerifyFileInExtract("initrd.bin", 1), kNotFound);
  EXPECT_THAT(MainLog(), ElementsAre(Traverse("initrd.bin"),
                                     "[BOOT_INIT][WARN]:Verify file in extract, can not find file "
                                     "initrd.bin."));
  EXPECT_FALSE(std::filesystem::exists(kStaging));
}

TEST_F(PkgCheckTest, AStagingDirectoryThatCannotBeMade) {
  Prepare();
  testsupport::WriteFile(kStaging, "a file in the way");
  EXPECT_EQ(BOOT_VerifyFileInExtract("kernel.bin", 1), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Create dir " + kStaging + " failed, ret=2.",
                          "[BOOT_INIT][ERROR]:Verify one file, extract file kernel.bin failed."));
  EXPECT_EQ(ReadFile(kStaging), "a file in the way");
}

TEST_F(PkgCheckTest, APartialCopyIsDeleted) {
  Prepare();
  const NodeView app = NodeOf("app.bin");
  std::filesystem::resize_file(kPkgPath, app.offset + 100);
  EXPECT_EQ(BOOT_VerifyFileInExtract("app.bin", 1), kError);
  EXPECT_FALSE(std::filesystem::exists(Staged("app.bin")));
  EXPECT_THAT(MainLog(),
              ElementsAre(Extracting("app.bin"), "[BOOT_INIT][ERROR]:Read file failed",
                          "[BOOT_INIT][ERROR]:Copy file " + Staged("app.bin") + " failed.",
                          "[BOOT_INIT][ERROR]:Verify one file, extract file app.bin failed."));
}

TEST_F(PkgCheckTest, ANameWhosePathDoesNotFitIsNotExtracted) {
  Prepare();
  // A lookup by prefix finds kernel.bin; the staging path of the long name does not fit.
  const std::string name = "kernel.img.gz" + std::string(380, 'x');
  EXPECT_EQ(BOOT_DoVerifyFileInExtract(name.c_str(), listed_["kernel.bin"].c_str(), 1), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:snprintf unsuccessfully: BootExtractFile",
                          "[BOOT_INIT][ERROR]:Verify one file, extract file " + name + " failed.",
                          "[BOOT_INIT][ERROR]:snprintf unsuccessfully: BootRemoveFile"));
  EXPECT_EQ(BOOT_DoVerifyFileInExtract("kernel.bin", nullptr, 1), kError);
  EXPECT_EQ(BOOT_VerifyFileInExtract(nullptr, 1), kError);
  EXPECT_EQ(BOOT_VerifyFileInBuffer(nullptr), kError);
}

}  // namespace
