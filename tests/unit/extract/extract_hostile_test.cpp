// Hostile packages written by bootpkg --break, through BOOT_INIT_ExtractFileByFileName: each
// refused one with its exact code and lines and nothing written (the destination as it was,
// /tmp without signature files). A package whose container does not hold together is refused as
// a whole, before any entry is tried, even where one of its records would prove.
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "extract_fixture.hpp"

namespace extracttest {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testsupport::MainLog;
using testsupport::ReadFile;

// bootpkg's default size of a gap, an overlap and trailing bytes.
constexpr uint32_t kFaultBytes = 16;

// The failed load of another package's list, after the failed extraction of its signature
// files into /tmp.
std::vector<std::string> NoSignatures() {
  return {"[BOOT_INIT][ERROR]:Extract input package signature file list failed, package:" +
              kPkgPath + ", path:/tmp.",
          "[BOOT_INIT][ERROR]:get signature failed", "[BOOT_INIT][ERROR]:get signed files failed"};
}

// The lines of a search that stops at once for every one of the signature files.
std::vector<std::string> EverySignatureStops(const std::vector<std::string> &stop) {
  std::vector<std::string> lines;
  for (const std::string name :
       {"signature_pss_filelist", "signature_filelist", "signature_cms", "signature_crl"}) {
    lines.insert(lines.end(), stop.begin(), stop.end());
    lines.push_back(GetFileFailed(name));
  }
  return lines;
}

// The layout check's lines ending every search, the signature files' first.
std::vector<std::string> LayoutRefused(std::vector<std::string> fault) {
  fault.emplace_back("[BOOT_INIT][ERROR]:FindTarget: package layout is invalid.");
  return Concat({EverySignatureStops(fault), NoSignatures()});
}

std::string NotAtRunningEnd(uint32_t runningEnd, uint32_t offset) {
  return "[BOOT_INIT][ERROR]:GetNextFile: Package is invalid, current len = " +
         std::to_string(runningEnd) + ", current offset = " + std::to_string(offset);
}

std::string NoProgress(uint32_t runningEnd, uint32_t length) {
  return NotAtRunningEnd(runningEnd, runningEnd) + ", filelen = " + std::to_string(length);
}

class ExtractHostileTest : public ExtractTest {
 protected:
  void SetUp() override {
    ExtractTest::SetUp();
    testsupport::WriteFile(Out("keep"), "was here");
  }
  static void ExpectNothingWritten() {
    EXPECT_EQ(DirState(kOutDir), (std::map<std::string, std::string>{{"keep", "was here"}}));
    EXPECT_THAT(TmpSignatureFiles(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(kStaging));
    EXPECT_EQ(g_signedFiles->count, 0u);
  }
};

TEST_F(ExtractHostileTest, AFileCountOf257) {
  BuildThree("pss", {"--break", "count-257"});
  EXPECT_EQ(Extract("rootfs"), kError);
  EXPECT_THAT(MainLog(),
              ElementsAreArray(
                  Concat({EverySignatureStops({"[BOOT_INIT][ERROR]:FindTarget: File number(257) is "
                                               "exceed max."}),
                          NoSignatures()})));
  ExpectNothingWritten();
}

TEST_F(ExtractHostileTest, ATruncatedPackageHeader) {
  BuildThree("pss", {"--break", "truncated-header"});
  EXPECT_EQ(Extract("rootfs"), kError);
  EXPECT_THAT(MainLog(),
              ElementsAreArray(
                  Concat({EverySignatureStops({"[BOOT_INIT][ERROR]:FindTarget: Read package header "
                                               "failed, read len = 6179, head len = 6180."}),
                          NoSignatures()})));
  ExpectNothingWritten();
}

// A record end past 2^32: the chain of records stops at that entry.
TEST_F(ExtractHostileTest, ARecordEndWrappingPast4GiB) {
  BuildThree("pss", {"--break", "wrap", "--target", "rootfs"});
  const Listed rootfs = pkgtest::Record(pkgtest::ListPackage(), "rootfs.bin");
  EXPECT_EQ(Extract("rootfs"), kError);
  EXPECT_THAT(MainLog(),
              ElementsAreArray(LayoutRefused({NoProgress(rootfs.offset, 0xFFFFFFFFu),
                                              "[BOOT_INIT][ERROR]:get next file failed"})));
  ExpectNothingWritten();
}

TEST_F(ExtractHostileTest, NamesWithoutTerminator) {
  BuildThree("pss", {"--break", "no-terminator", "--target", "rootfs"});
  EXPECT_EQ(Extract("rootfs"), kNotFound);
  EXPECT_EQ(Extract("rootfs.bin"), kNotFound);
  // The names as the fields give them, cut at their last byte.
  const std::string cutBin = "rootfs.bin" + std::string(85, 'X');
  const std::string cutActual = "rootfs" + std::string(121, 'X');
  EXPECT_EQ(Extract(cutBin), kNotFound);
  EXPECT_EQ(Extract(cutActual), kNotFound);
  const std::string notListed =
      "[BOOT_INIT][ERROR]:File " + cutBin + " not in signature file list.";
  EXPECT_THAT(MainLog(), ElementsAreArray(Concat({Missing("rootfs", kOutDir),
                                                  Missing("rootfs.bin", kOutDir),
                                                  {notListed},
                                                  Missing(cutBin, kOutDir),
                                                  {notListed},
                                                  Missing(cutActual, kOutDir)})));
  ExpectNothingWritten();
}

TEST_F(ExtractHostileTest, MissingSignatureFiles) {
  Input("rootfs", kRootfs);
  pkgtest::Build({"rootfs"}, {"--no-list"});
  EXPECT_EQ(Extract("rootfs"), kError);
  EXPECT_THAT(
      MainLog(),
      ElementsAreArray(Concat(
          {SignatureMissing("signature_pss_filelist"), SignatureMissing("signature_filelist"),
           SignatureMissing("signature_cms"), SignatureMissing("signature_crl"), NoSignatures()})));
  ExpectNothingWritten();
}

// Only the PSS signature: the list is looked for in both schemes.
TEST_F(ExtractHostileTest, OnlyThePssSignature) {
  BuildThree("pss", {"--break", "missing-list"});
  EXPECT_EQ(Extract("rootfs"), kError);
  EXPECT_THAT(
      MainLog(),
      ElementsAreArray(Concat(
          {SignatureMissing("signature_pss_filelist"), SignatureMissing("signature_filelist"),
           SignatureMissing("signature_cms"), SignatureMissing("signature_crl"), NoSignatures()})));
  ExpectNothingWritten();
}

// Only the PSS list: it comes out into /tmp, its signature does not, and the list is removed.
TEST_F(ExtractHostileTest, OnlyThePssList) {
  BuildThree("pss", {"--break", "missing-cms"});
  EXPECT_EQ(Extract("rootfs"), kError);
  EXPECT_THAT(MainLog(),
              ElementsAreArray(Concat({SignatureMissing("signature_pss_cms"), NoSignatures()})));
  ExpectNothingWritten();
}

// The classic files are all attempted, whichever of them is missing.
TEST_F(ExtractHostileTest, AClassicPackageWithoutItsSignatureOrCrl) {
  for (const std::string rule : {"missing-cms", "missing-crl"}) {
    testsupport::ClearMainLog();
    BuildThree("classic", {"--break", rule});
    EXPECT_EQ(Extract("rootfs"), kError);
    const std::string missing = rule == "missing-cms" ? "signature_cms" : "signature_crl";
    EXPECT_THAT(MainLog(),
                ElementsAreArray(Concat({NoPssList(), SignatureMissing(missing), NoSignatures()})))
        << rule;
    ExpectNothingWritten();
  }
}

// The current package's signature files stay in the staging directory whatever happens, for the
// later steps that read them again; only /tmp is cleaned.
TEST_F(ExtractHostileTest, TheCurrentPackageWithOnlyItsPssList) {
  BuildThree("pss", {"--break", "missing-cms"});
  RunThisPackage();
  EXPECT_EQ(Extract("rootfs"), kError);
  EXPECT_THAT(MainLog(),
              ElementsAreArray(
                  Concat({SignatureMissing("signature_pss_cms"),
                          {"[BOOT_INIT][ERROR]:Extract curr package signature file list failed, "
                           "package:" +
                               kPkgPath + ", path:" + kStaging + ".",
                           "[BOOT_INIT][ERROR]:get signature failed",
                           "[BOOT_INIT][ERROR]:get signed files failed"}})));
  EXPECT_EQ(DirState(kStaging),
            (std::map<std::string, std::string>{
                {"signature_pss_filelist", RecordBytes("signature_pss_filelist", false)}}));
  EXPECT_EQ(DirState(kOutDir), (std::map<std::string, std::string>{{"keep", "was here"}}));
}

// Layout faults, each refused before any entry is tried: the signature files are not taken
// out either, so nothing is loaded and nothing written.
TEST_F(ExtractHostileTest, AZeroLengthRecord) {
  BuildThree("pss", {"--break", "zero-length", "--target", "rootfs"});
  const Listed rootfs = pkgtest::Record(pkgtest::ListPackage(), "rootfs.bin");
  EXPECT_EQ(Extract("rootfs"), kError);
  EXPECT_THAT(MainLog(),
              ElementsAreArray(LayoutRefused(
                  {NoProgress(rootfs.offset, 0), "[BOOT_INIT][ERROR]:get next file failed"})));
  ExpectNothingWritten();
}

TEST_F(ExtractHostileTest, AGapBetweenRecords) {
  BuildThree("pss", {"--break", "gap", "--target", "kernel.img.gz"});
  // The record behind the kernel's starts 16 bytes after the kernel's end.
  const Listed rootfs = pkgtest::Record(pkgtest::ListPackage(), "rootfs.bin");
  EXPECT_EQ(Extract("rootfs"), kError);
  EXPECT_THAT(
      MainLog(),
      ElementsAreArray(LayoutRefused({NotAtRunningEnd(rootfs.offset - kFaultBytes, rootfs.offset),
                                      "[BOOT_INIT][ERROR]:get next file failed"})));
  ExpectNothingWritten();
}

TEST_F(ExtractHostileTest, AnOverlapOfRecords) {
  BuildThree("pss", {"--break", "overlap", "--target", "kernel.img.gz", "--size", "16"});
  // The record behind the kernel's starts 16 bytes before the kernel's end.
  const Listed rootfs = pkgtest::Record(pkgtest::ListPackage(), "rootfs.bin");
  EXPECT_EQ(Extract("kernel.img.gz"), kError);
  EXPECT_THAT(
      MainLog(),
      ElementsAreArray(LayoutRefused({NotAtRunningEnd(rootfs.offset + kFaultBytes, rootfs.offset),
                                      "[BOOT_INIT][ERROR]:get next file failed"})));
  ExpectNothingWritten();
}

TEST_F(ExtractHostileTest, TrailingBytesAfterTheLastRecord) {
  BuildThree("pss", {"--break", "trailing-bytes"});
  const uint32_t size = static_cast<uint32_t>(pkgtest::PackageBytes().size());
  EXPECT_EQ(Extract("rootfs"), kError);
  EXPECT_THAT(MainLog(),
              ElementsAreArray(LayoutRefused(
                  {"[BOOT_INIT][ERROR]:package size verify failed, record size:" +
                   std::to_string(size - kFaultBytes) + ", real size:" + std::to_string(size)})));
  ExpectNothingWritten();
}

// Two records of one name, a firmware file's too (exemption plays no part in extraction).
TEST_F(ExtractHostileTest, DuplicateRecordNames) {
  BuildThree("pss", {"--break", "duplicate-binname", "--target", "rootfs"});
  EXPECT_EQ(Extract("rootfs"), kError);
  EXPECT_THAT(MainLog(),
              ElementsAreArray(LayoutRefused(
                  {"[BOOT_INIT][ERROR]:package is invalid, has duplicate file:rootfs.bin"})));
  ExpectNothingWritten();
  testsupport::ClearMainLog();
  Input(pkgtest::kMpuFirmware, "bitstream");
  pkgtest::Build(
      {"rootfs", pkgtest::kMpuFirmware},
      With(SignedBy("pss"), {"--break", "duplicate-exempt", "--firmware", pkgtest::kMpuFirmware}));
  EXPECT_EQ(Extract(pkgtest::kMpuFirmware), kError);
  EXPECT_THAT(MainLog(),
              ElementsAreArray(LayoutRefused(
                  {"[BOOT_INIT][ERROR]:package is invalid, has duplicate file:mpu_fpga.bin"})));
  ExpectNothingWritten();
}

// The current package's list already loaded from its intact form: the package file is then
// replaced by one with a gap, and the search itself refuses it.
TEST_F(ExtractHostileTest, ALayoutFaultAfterTheListWasLoaded) {
  BuildThree("pss");
  RunThisPackage();
  ASSERT_EQ(Extract("kernel.img.gz"), 0u);
  testsupport::RemovePath(kOutDir);
  testsupport::ClearMainLog();
  BuildThree("pss", {"--break", "gap", "--target", "rootfs"});
  const Listed app = pkgtest::Record(pkgtest::ListPackage(), "app.bin");
  EXPECT_EQ(Extract("rootfs"), kError);
  EXPECT_THAT(MainLog(), ElementsAre(NotAtRunningEnd(app.offset - kFaultBytes, app.offset),
                                     "[BOOT_INIT][ERROR]:get next file failed",
                                     "[BOOT_INIT][ERROR]:FindTarget: package layout is invalid.",
                                     GetFileFailed("rootfs"), NotOk("rootfs", kOutDir)));
  EXPECT_FALSE(std::filesystem::exists(Out("rootfs")));
}

}  // namespace
}  // namespace extracttest
