// Hostile packages written by bootpkg --break, through BOOT_INIT_ExtractFileByFileName: each
// refused one with its exact code and lines and nothing written (the destination as it was,
// /tmp without signature files). The extraction proves each record by its digest and does not
// judge the container's layout (the index build does): a package that breaks a layout rule
// without touching a proven record still gives that record, exactly as proven.
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

constexpr const char *kEmptyDigest =
    "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

// The failed load of another package's list, after the failed extraction of its signature
// files into /tmp.
std::vector<std::string> NoSignatures() {
  return {"[BOOT_INIT][ERROR]:Extract input package signature file list failed, package:" +
              kPkgPath + ", path:/tmp.",
          "[BOOT_INIT][ERROR]:get signature failed", "[BOOT_INIT][ERROR]:get signed files failed"};
}

// The lines of a search that stops at once for every one of the signature files.
std::vector<std::string> EverySignatureStops(const std::string &line) {
  std::vector<std::string> lines;
  for (const std::string name :
       {"signature_pss_filelist", "signature_filelist", "signature_cms", "signature_crl"}) {
    lines.insert(lines.end(), {line, GetFileFailed(name), NotOk(name, "/tmp")});
  }
  return lines;
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
  // The file bytes of a record straight from the package (bootpkg refuses to extract from a
  // package with layout faults).
  static std::string FileBytesAt(const std::string &binName) {
    const Listed record = pkgtest::Record(pkgtest::ListPackage(), binName);
    return pkgtest::PackageBytes().substr(record.offset + 352, record.actualLength);
  }
  // The digest the package's PSS list gives for binName.
  static std::string ListedDigest(const std::string &binName) {
    const std::string list = FileBytesAt("signature_pss_filelist.bin");
    const std::size_t at = list.find("FILENAME=" + binName + "\n");
    return list.substr(list.find("SHA256-DIGEST=", at) + 14, 64);
  }
};

TEST_F(ExtractHostileTest, AFileCountOf257) {
  BuildThree("pss", {"--break", "count-257"});
  EXPECT_EQ(Extract("rootfs"), kError);
  EXPECT_THAT(MainLog(),
              ElementsAreArray(
                  Concat({EverySignatureStops("[BOOT_INIT][ERROR]:FindTarget: File number(257) is "
                                              "exceed max."),
                          NoSignatures()})));
  ExpectNothingWritten();
}

TEST_F(ExtractHostileTest, ATruncatedPackageHeader) {
  BuildThree("pss", {"--break", "truncated-header"});
  EXPECT_EQ(Extract("rootfs"), kError);
  EXPECT_THAT(MainLog(),
              ElementsAreArray(
                  Concat({EverySignatureStops("[BOOT_INIT][ERROR]:FindTarget: Read package header "
                                              "failed, read len = 6179, head len = 6180."),
                          NoSignatures()})));
  ExpectNothingWritten();
}

// A record end past 2^32: the digest read runs into the end of the package.
TEST_F(ExtractHostileTest, ARecordEndWrappingPast4GiB) {
  BuildThree("pss", {"--break", "wrap", "--target", "rootfs"});
  EXPECT_EQ(Extract("rootfs"), kNotFound);
  EXPECT_THAT(
      MainLog(),
      ElementsAreArray(
          Concat({{"[BOOT_INIT][ERROR]:Read file failed",
                   "[BOOT_INIT][ERROR]:Get file(rootfs 4294967295) sha256 failed, ret=4294967295."},
                  Missing("rootfs", kOutDir)})));
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
          {Missing("signature_pss_filelist", "/tmp"), Missing("signature_filelist", "/tmp"),
           Missing("signature_cms", "/tmp"), Missing("signature_crl", "/tmp"), NoSignatures()})));
  ExpectNothingWritten();
}

// Only the PSS signature: the list is looked for in both schemes.
TEST_F(ExtractHostileTest, OnlyThePssSignature) {
  BuildThree("pss", {"--break", "missing-list"});
  EXPECT_EQ(Extract("rootfs"), kError);
  EXPECT_THAT(
      MainLog(),
      ElementsAreArray(Concat(
          {Missing("signature_pss_filelist", "/tmp"), Missing("signature_filelist", "/tmp"),
           Missing("signature_cms", "/tmp"), Missing("signature_crl", "/tmp"), NoSignatures()})));
  ExpectNothingWritten();
}

// Only the PSS list: it comes out into /tmp, its signature does not, and the list is removed.
TEST_F(ExtractHostileTest, OnlyThePssList) {
  BuildThree("pss", {"--break", "missing-cms"});
  EXPECT_EQ(Extract("rootfs"), kError);
  EXPECT_THAT(MainLog(),
              ElementsAreArray(Concat({Missing("signature_pss_cms", "/tmp"), NoSignatures()})));
  ExpectNothingWritten();
}

// The classic files are all attempted, whichever of them is missing.
TEST_F(ExtractHostileTest, AClassicPackageWithoutItsSignatureOrCrl) {
  for (const std::string rule : {"missing-cms", "missing-crl"}) {
    testsupport::ClearMainLog();
    BuildThree("classic", {"--break", rule});
    EXPECT_EQ(Extract("rootfs"), kError);
    const std::string missing = rule == "missing-cms" ? "signature_cms" : "signature_crl";
    EXPECT_THAT(
        MainLog(),
        ElementsAreArray(Concat({NoPssList("/tmp"), Missing(missing, "/tmp"), NoSignatures()})))
        << rule;
    ExpectNothingWritten();
  }
}

// The current package's signature files stay in the staging directory whatever happens, for the
// later steps that read them again; only /tmp is cleaned.
TEST_F(ExtractHostileTest, TheCurrentPackageWithOnlyItsPssList) {
  BuildThree("pss", {"--break", "missing-cms"});
  testsupport::SetEnv("next_bootfile", kPkgPath);
  EXPECT_EQ(Extract("rootfs"), kError);
  EXPECT_THAT(MainLog(),
              ElementsAreArray(
                  Concat({Missing("signature_pss_cms", kStaging),
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

// An entry of length 0 before the real record: it fails its proof (by either name) and the
// search goes on to the record, which passes.
TEST_F(ExtractHostileTest, AZeroLengthEntryBeforeTheRecord) {
  BuildThree("pss", {"--break", "zero-length", "--target", "rootfs"});
  const std::string listed = ListedDigest("rootfs.bin");
  EXPECT_EQ(Extract("rootfs.bin"), 0u);
  EXPECT_EQ(Extract("rootfs"), 0u);
  EXPECT_THAT(MainLog(),
              ElementsAre(Mismatch("rootfs.bin", kEmptyDigest, listed),
                          "[BOOT_INIT][ERROR]:File rootfs of 17 bytes at 352 lies outside its "
                          "record of 0 bytes."));
  EXPECT_EQ(ReadFile(Out("rootfs")), kRootfs);
  EXPECT_EQ(ReadFile(Out("rootfs.bin")).substr(352), kRootfs);
}

// Layout faults that leave the proven records as they were: the records come out as proven.
TEST_F(ExtractHostileTest, AGapOrTrailingBytesLeaveProvenRecordsIntact) {
  for (const std::vector<std::string> &rule :
       {std::vector<std::string>{"--break", "gap", "--target", "kernel.img.gz"},
        std::vector<std::string>{"--break", "trailing-bytes"}}) {
    testsupport::RemovePath(kOutDir);
    BuildThree("pss", rule);
    EXPECT_EQ(Extract("kernel.img.gz"), 0u);
    EXPECT_EQ(Extract("rootfs"), 0u);
    EXPECT_EQ(ReadFile(Out("kernel.img.gz")), kKernel);
    EXPECT_EQ(ReadFile(Out("rootfs")), kRootfs);
  }
  EXPECT_THAT(MainLog(), IsEmpty());
}

// An overlap: the record as read through its entry ends with the next record's header, and the
// list holds the digest of exactly those bytes, which are what comes out.
TEST_F(ExtractHostileTest, AnOverlapGivesTheRecordAsItWasListed) {
  BuildThree("pss", {"--break", "overlap", "--target", "kernel.img.gz", "--size", "16"});
  const std::string expected = FileBytesAt("kernel.bin");
  ASSERT_EQ(expected.substr(0, 4984), kKernel.substr(0, 4984));
  ASSERT_NE(expected.substr(4984), kKernel.substr(4984));
  EXPECT_EQ(Extract("kernel.img.gz"), 0u);
  EXPECT_EQ(ReadFile(Out("kernel.img.gz")), expected);
  EXPECT_EQ(Extract("rootfs"), 0u);
  EXPECT_EQ(ReadFile(Out("rootfs")), kRootfs);
  EXPECT_THAT(MainLog(), IsEmpty());
}

// Two records of one name (a firmware file's too): the first one that passes is taken.
TEST_F(ExtractHostileTest, DuplicateRecordNames) {
  BuildThree("pss", {"--break", "duplicate-binname", "--target", "rootfs"});
  EXPECT_EQ(Extract("rootfs"), 0u);
  EXPECT_EQ(ReadFile(Out("rootfs")), kRootfs);
  Input(pkgtest::kMpuFirmware, "bitstream");
  pkgtest::Build(
      {"rootfs", pkgtest::kMpuFirmware},
      With(SignedBy("pss"), {"--break", "duplicate-exempt", "--firmware", pkgtest::kMpuFirmware}));
  EXPECT_EQ(Extract(pkgtest::kMpuFirmware), 0u);
  EXPECT_EQ(ReadFile(Out(pkgtest::kMpuFirmware)), "bitstream");
  EXPECT_THAT(MainLog(), IsEmpty());
}

}  // namespace
}  // namespace extracttest
