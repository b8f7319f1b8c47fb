// BOOT_INIT_ExtractFileByFileName end to end on packages bootpkg signs inside the board: what
// comes out for each name form and scheme, the signed-file list of the current package (kept
// between calls, its signature files in the staging directory) and of any other package
// (loaded for one call, its signature files removed from /tmp), and every refusal with its exact
// code and messages and nothing written.
#include <sys/stat.h>

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
using testsupport::StatOf;

class ExtractNameTest : public ExtractTest {};

TEST_F(ExtractNameTest, TheFileBytesByTheInnerName) {
  BuildThree();
  EXPECT_EQ(Extract("kernel.img.gz"), 0u);
  EXPECT_EQ(ReadFile(Out("kernel.img.gz")), kKernel);
  EXPECT_EQ(StatOf(Out("kernel.img.gz")).st_mode & 07777, 0700u);
  EXPECT_THAT(MainLog(), IsEmpty());
  EXPECT_THAT(SafeLog(), ElementsAre(PssSuccess("/tmp")));
  // The list of a package other than the current one is gone again, and so are its files.
  EXPECT_EQ(g_signedFiles->count, 0u);
  EXPECT_THAT(TmpSignatureFiles(), IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(kStaging));
  // Nothing but the file in the destination directory, which was made for the files' owner.
  EXPECT_EQ(DirState(kOutDir).size(), 1u);
  const struct stat dir = StatOf(kOutDir);
  EXPECT_EQ(dir.st_mode & 07777, 0750u);
  EXPECT_EQ(dir.st_uid, 2000u);
  EXPECT_EQ(dir.st_gid, 2000u);
}

TEST_F(ExtractNameTest, TheWholeRecordByItsBinName) {
  BuildThree();
  EXPECT_EQ(Extract("kernel.bin"), 0u);
  EXPECT_EQ(ReadFile(Out("kernel.bin")), RecordBytes("kernel.bin", true));
  EXPECT_EQ(Extract("app.bin"), 0u);  // a ".bin" file of its own: its record, whole
  EXPECT_EQ(ReadFile(Out("app.bin")), RecordBytes("app.bin", true));
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(ExtractNameTest, TheClassicScheme) {
  BuildThree("classic");
  EXPECT_EQ(Extract("rootfs"), 0u);
  EXPECT_EQ(ReadFile(Out("rootfs")), kRootfs);
  EXPECT_EQ(Extract("rootfs.bin"), 0u);
  EXPECT_EQ(ReadFile(Out("rootfs.bin")), RecordBytes("rootfs", true));
  EXPECT_THAT(MainLog(), ElementsAreArray(Concat({NoPssList(), NoPssList()})));
  EXPECT_THAT(SafeLog(), ElementsAre(ClassicSuccess("/tmp"), ClassicSuccess("/tmp")));
  EXPECT_THAT(TmpSignatureFiles(), IsEmpty());
}

TEST_F(ExtractNameTest, AnEmptyFileIsProvenByItsRecord) {
  Input("empty", "");
  pkgtest::Build({"empty"}, SignedBy("pss"));
  EXPECT_EQ(Extract("empty"), 0u);
  EXPECT_TRUE(std::filesystem::is_regular_file(Out("empty")));
  EXPECT_EQ(ReadFile(Out("empty")), "");
}

// The list of the current package is loaded once and kept; its signature files stay in the
// staging directory for later steps, and /tmp is not used.
TEST_F(ExtractNameTest, TheCurrentPackagesListIsKept) {
  BuildThree();
  RunThisPackage();
  EXPECT_EQ(Extract("kernel.img.gz"), 0u);
  EXPECT_THAT(SafeLog(), ElementsAre(PssSuccess(kStaging)));
  const std::vector<Listed> records = pkgtest::ListPackage();
  EXPECT_THAT(SignedRecords(),
              ElementsAre(std::pair<std::string, std::string>(
                              "kernel.bin", pkgtest::Record(records, "kernel.bin").recordDigest),
                          std::pair<std::string, std::string>(
                              "rootfs.bin", pkgtest::Record(records, "rootfs.bin").recordDigest),
                          std::pair<std::string, std::string>(
                              "app.bin", pkgtest::Record(records, "app.bin").recordDigest)));
  EXPECT_EQ(ReadFile(kStaging + "/signature_pss_filelist"),
            RecordBytes("signature_pss_filelist", false));
  EXPECT_EQ(ReadFile(kStaging + "/signature_pss_cms"), RecordBytes("signature_pss_cms", false));
  EXPECT_EQ(Extract("rootfs"), 0u);
  EXPECT_EQ(Extract("app.bin"), 0u);
  EXPECT_THAT(SafeLog(), ElementsAre(PssSuccess(kStaging)));  // no second check
  EXPECT_EQ(g_signedFiles->count, 3u);
  EXPECT_THAT(TmpSignatureFiles(), IsEmpty());
  EXPECT_THAT(MainLog(), IsEmpty());
}

// Signature files of the current package found in the staging directory are used again as they
// are (checked against their signature all the same), not extracted once more.
TEST_F(ExtractNameTest, StagedSignatureFilesOfTheCurrentPackageAreUsedAgain) {
  BuildThree();
  RunThisPackage();
  ASSERT_EQ(Extract("kernel.img.gz"), 0u);
  const ino_t inode = StatOf(kStaging + "/signature_pss_filelist").st_ino;
  BOOT_InitDllFreeAll(g_signedFiles, BOOT_INIT_ReleaseNode);  // as a new process finds it
  EXPECT_EQ(Extract("rootfs"), 0u);
  EXPECT_EQ(StatOf(kStaging + "/signature_pss_filelist").st_ino, inode);
  EXPECT_THAT(SafeLog(), ElementsAre(PssSuccess(kStaging), PssSuccess(kStaging)));
}

// Another package's list replaces the current one's for one call and is freed afterwards; the
// current package's list is then loaded afresh.
TEST_F(ExtractNameTest, AnotherPackageDropsTheKeptList) {
  BuildThree();
  const std::string current = "/opt/kytv8/home/current.cc";
  std::filesystem::copy_file(kPkgPath, current);
  RunThisPackage(current);
  ASSERT_EQ(Extract("kernel.img.gz", kOutDir, current), 0u);
  EXPECT_EQ(g_signedFiles->count, 3u);
  EXPECT_EQ(Extract("rootfs"), 0u);
  EXPECT_EQ(g_signedFiles->count, 0u);
  EXPECT_EQ(Extract("app.bin", kOutDir, current), 0u);
  EXPECT_THAT(SafeLog(),
              ElementsAre(PssSuccess(kStaging), PssSuccess("/tmp"), PssSuccess(kStaging)));
}

// Signature files come out unchecked: no list is loaded for them.
TEST_F(ExtractNameTest, SignatureFilesComeOutUnchecked) {
  BuildThree("classic");
  for (const std::string name : {"signature_filelist", "signature_cms", "signature_crl"}) {
    EXPECT_EQ(Extract(name), 0u) << name;
    EXPECT_EQ(ReadFile(Out(name)), RecordBytes(name, false)) << name;
  }
  EXPECT_EQ(ReadFile(Out("signature_crl")), ReadFile(Pki("crl_empty.der")));
  EXPECT_THAT(SafeLog(), IsEmpty());
  EXPECT_THAT(MainLog(), IsEmpty());
}

// With the current package's list loaded, a signature file neither reloads nor frees it.
TEST_F(ExtractNameTest, ASignatureFileLeavesTheLoadedListAsItIs) {
  BuildThree();
  RunThisPackage();
  ASSERT_EQ(Extract("rootfs"), 0u);
  ASSERT_EQ(g_signedFiles->count, 3u);
  const void *first = g_signedFiles->links.next;
  EXPECT_EQ(Extract("signature_pss_cms"), 0u);
  EXPECT_EQ(g_signedFiles->count, 3u);
  EXPECT_EQ(g_signedFiles->links.next, first);
  EXPECT_THAT(SafeLog(), ElementsAre(PssSuccess(kStaging)));
}

TEST_F(ExtractNameTest, WhatLayAtTheNameIsReplaced) {
  BuildThree();
  testsupport::WriteFile(Out("rootfs"), std::string(10000, 'o'));
  testsupport::WriteFile("/opt/elsewhere", "keep me");
  std::filesystem::create_symlink("/opt/elsewhere", Out("app.bin"));
  EXPECT_EQ(Extract("rootfs"), 0u);
  EXPECT_EQ(ReadFile(Out("rootfs")), kRootfs);
  EXPECT_EQ(Extract("app.bin"), 0u);
  EXPECT_FALSE(std::filesystem::is_symlink(Out("app.bin")));
  EXPECT_EQ(ReadFile(Out("app.bin")), RecordBytes("app.bin", true));
  EXPECT_EQ(ReadFile("/opt/elsewhere"), "keep me");
}

// ---- refusals: exact code, exact lines, nothing written ----

class ExtractRefusalTest : public ExtractTest {
 protected:
  // The destination holds a file of its own before the call; it must stay exactly as it was.
  void SetUp() override {
    ExtractTest::SetUp();
    testsupport::WriteFile(Out("keep"), "was here");
  }
  void ExpectUnchanged() {
    EXPECT_EQ(DirState(kOutDir), (std::map<std::string, std::string>{{"keep", "was here"}}));
    EXPECT_THAT(TmpSignatureFiles(), IsEmpty());
    EXPECT_EQ(g_signedFiles->count, 0u);
  }
};

TEST_F(ExtractRefusalTest, AFileThePackageDoesNotHold) {
  BuildThree();
  EXPECT_EQ(Extract("initrd.img"), kNotFound);
  EXPECT_THAT(MainLog(), ElementsAreArray(Missing("initrd.img", kOutDir)));
  ExpectUnchanged();
}

// Names are compared whole: a name that only begins like a record's is not that record.
TEST_F(ExtractRefusalTest, NamesAreComparedWhole) {
  BuildThree();
  for (const std::string name : {"kernel", "kernel.img", "kernel.bi", "Kernel.bin", "rootfs.b"}) {
    testsupport::ClearMainLog();
    EXPECT_EQ(Extract(name), kNotFound) << name;
    EXPECT_THAT(MainLog(), ElementsAreArray(Missing(name, kOutDir)));
  }
  ExpectUnchanged();
}

TEST_F(ExtractRefusalTest, AChangedByte) {
  BuildThree("pss", {"--break", "changed-byte", "--target", "rootfs"});
  const Listed rootfs = pkgtest::Record(pkgtest::ListPackage(), "rootfs.bin");
  const std::string list = RecordBytes("signature_pss_filelist", false);
  const std::string listed =
      list.substr(list.find("SHA256-DIGEST=", list.find("FILENAME=rootfs.bin")) + 14, 64);
  ASSERT_NE(listed, rootfs.recordDigest);
  for (const std::string name : {"rootfs", "rootfs.bin"}) {
    testsupport::ClearMainLog();
    EXPECT_EQ(Extract(name), kNotFound);
    EXPECT_THAT(MainLog(), ElementsAreArray(Concat({{Mismatch(name, rootfs.recordDigest, listed)},
                                                    Missing(name, kOutDir)})));
  }
  ExpectUnchanged();
}

TEST_F(ExtractRefusalTest, AFileTheListDoesNotName) {
  BuildThree("pss", {"--list-only", "kernel.img.gz"});
  EXPECT_EQ(Extract("rootfs"), kNotFound);
  EXPECT_THAT(
      MainLog(),
      ElementsAreArray(Concat({{"[BOOT_INIT][ERROR]:File rootfs.bin not in signature file list."},
                               Missing("rootfs", kOutDir)})));
  ExpectUnchanged();
}

TEST_F(ExtractRefusalTest, ASignerTheRootDoesNotKnow) {
  for (const std::string scheme : {"pss", "classic"}) {
    testsupport::ClearMainLog();
    testsupport::RemovePath(testsupport::kSafeLogPath);
    Input("rootfs", kRootfs);
    pkgtest::Build({"rootfs"}, With(SignedBy(scheme, "foreign_signer"),
                                    {"--break", "wrong-signer", "--ca", Pki("root_ca.pem")}));
    EXPECT_EQ(Extract("rootfs"), kError);
    const std::string list =
        scheme == "pss" ? "/tmp/signature_pss_filelist" : "/tmp/signature_filelist";
    const std::vector<std::string> tried =
        scheme == "pss" ? std::vector<std::string>{} : NoPssList();
    EXPECT_THAT(MainLog(), ElementsAreArray(
                               Concat({tried,
                                       {"[BOOT_INIT][ERROR]:get signature file list and verify cms "
                                        "failed(805306373), sig path:" +
                                            list + ".",
                                        "[BOOT_INIT][ERROR]:get signed files failed"}})));
    EXPECT_THAT(
        SafeLog(),
        ElementsAre(scheme == "pss" ? "[BOOT_INIT][SECURITY]verify pss signature " + list +
                                          " failed, result = 805306373."
                                    : "[BOOT_INIT][SECURITY]verify signature failed, result = "
                                      "805306373, source file:" +
                                          list + "."));
    ExpectUnchanged();
  }
}

}  // namespace
}  // namespace extracttest
