// The arguments and preparations of BOOT_INIT_ExtractFileByFileName, and the steps that load the
// signed-file list (GetSignedFiles and the steps below it) with every failure of their own.
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "extract_fixture.hpp"
#include "swm.h"

namespace extracttest {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testsupport::MainLog;
using testsupport::ReadFile;

const std::string kNullParam3 = "[BOOT_INIT][ERROR]:input param is null when check null 3";
const std::string kCheckFailed = "[BOOT_INIT][ERROR]:res is FALSE when check res.";

// A directory path of exactly length characters under /var/lib, in components of at most 100.
std::string LongDir(std::size_t length) {
  std::string dir = "/var/lib";
  while (dir.size() < length) {
    dir += "/" + std::string(std::min<std::size_t>(length - dir.size() - 1, 99), 'd');
  }
  return dir;
}

// A detached PSS signature of file by the PKI's PSS signer, made with openssl in the board.
void SignPss(const std::string &file, const std::string &signature) {
  const int status = std::system(("openssl cms -sign -binary -outform DER -md sha256 -signer " +
                                  Pki("pss_signer.pem") + " -inkey " + Pki("pss_signer.key") +
                                  " -keyopt rsa_padding_mode:pss -in " + file + " -out " +
                                  signature + " >/dev/null 2>&1")
                                     .c_str());
  ASSERT_EQ(status, 0);
}

class ExtractListTest : public ExtractTest {};

TEST_F(ExtractListTest, EmptyArguments) {
  EXPECT_EQ(BOOT_INIT_ExtractFileByFileName(nullptr, kPkgPath.c_str(), kOutDir.c_str()), kNullPtr);
  EXPECT_EQ(BOOT_INIT_ExtractFileByFileName("rootfs", nullptr, kOutDir.c_str()), kNullPtr);
  EXPECT_EQ(BOOT_INIT_ExtractFileByFileName("rootfs", kPkgPath.c_str(), nullptr), kNullPtr);
  EXPECT_THAT(MainLog(), ElementsAre(kNullParam3, kNullParam3, kNullParam3));
  EXPECT_EQ(GetSignedFiles(nullptr, nullptr), kError);
  EXPECT_EQ(GetSigFilelistAndVerifyCms(nullptr, nullptr, 0), kError);
  EXPECT_EQ(GetCurrPackageSignatureFilelist(nullptr, "/tmp"), kError);
}

TEST_F(ExtractListTest, NoPackage) {
  EXPECT_EQ(Extract("rootfs"), kNoFile);
  EXPECT_THAT(MainLog(), ElementsAre(kCheckFailed));
  EXPECT_FALSE(std::filesystem::exists(kOutDir));
}

TEST_F(ExtractListTest, ADestinationThatCannotBeMade) {
  BuildThree();
  testsupport::WriteFile("/var/lib/afile", "a file");
  EXPECT_EQ(Extract("rootfs", "/var/lib/afile/sub"), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Create dir /var/lib/afile/sub failed(0x2)."));
}

TEST_F(ExtractListTest, TheCurrentPackageCannotBeTold) {
  BuildThree();
  testsupport::DescribeBoard(
      testsupport::ActiveMainBoard(),
      {{"security.root_ca", Pki("root_ca.der")}, {"fail.SWM_GetCCPackage", "0x21"}});
  EXPECT_EQ(Extract("rootfs"), kError);
  testsupport::UnsetEnv("next_bootfile");
  testsupport::DescribeBoard(testsupport::ActiveMainBoard(),
                             {{"security.root_ca", Pki("root_ca.der")}});
  uint32_t freeAfter = 7;
  EXPECT_EQ(GetSignedFiles(kPkgPath.c_str(), &freeAfter), SWM_ERR_NOT_FOUND);
  EXPECT_EQ(freeAfter, 7u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Get current cc package failed.",
                                     "[BOOT_INIT][ERROR]:get signed files failed",
                                     "[BOOT_INIT][ERROR]:Get current cc package failed."));
  EXPECT_THAT(DirState(kOutDir), IsEmpty());
}

TEST_F(ExtractListTest, TheFreeFlagIsSetOnlyForAnotherPackage) {
  BuildThree();
  uint32_t freeAfter = 0;
  EXPECT_EQ(GetSignedFiles(kPkgPath.c_str(), &freeAfter), 0u);
  EXPECT_EQ(freeAfter, 1u);
  EXPECT_EQ(g_signedFiles->count, 3u);
  BOOT_InitDllFreeAll(g_signedFiles, BOOT_INIT_ReleaseNode);
  RunThisPackage();
  freeAfter = 0;
  EXPECT_EQ(GetSignedFiles(kPkgPath.c_str(), &freeAfter), 0u);
  EXPECT_EQ(freeAfter, 0u);
  EXPECT_EQ(g_signedFiles->count, 3u);
}

// Staged signature files of the current package that verify but do not hold a usable list.
TEST_F(ExtractListTest, AVerifiedListThatCannotBeRead) {
  BuildThree();
  RunThisPackage();
  const std::string list = kStaging + "/signature_pss_filelist";
  testsupport::WriteFile(list, pkgtest::MainSection("1", "Another Maker") +
                                   "[FILE1]\nFILENAME=rootfs.bin\nFILETYPE=1\nSHA256-DIGEST=" +
                                   std::string(64, 'a') + "\n");
  SignPss(list, kStaging + "/signature_pss_cms");
  EXPECT_EQ(Extract("rootfs"), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:vrify create by failed, info = Another Maker",
                          "[BOOT_INIT][ERROR]:GetSignedFiles: get signed files failed",
                          "[BOOT_INIT][ERROR]:get signed files failed"));
  EXPECT_THAT(SafeLog(), ElementsAre(PssSuccess(kStaging)));
  EXPECT_EQ(g_signedFiles->count, 0u);
  EXPECT_TRUE(std::filesystem::exists(list));  // the staging directory is never cleaned here
}

// A staged classic list is used when there is no PSS list; a staged PSS list wins over it.
TEST_F(ExtractListTest, TheStagedListOfEitherScheme) {
  BuildThree("classic");
  RunThisPackage();
  ASSERT_EQ(Extract("rootfs"), 0u);
  EXPECT_THAT(SafeLog(), ElementsAre(ClassicSuccess(kStaging)));
  testsupport::ClearMainLog();
  BOOT_InitDllFreeAll(g_signedFiles, BOOT_INIT_ReleaseNode);
  testsupport::WriteFile(kStaging + "/signature_pss_filelist", "not a list\n");
  std::vector<char> path(384, 'x');
  EXPECT_EQ(GetSigFilelistAndVerifyCms(kStaging.c_str(), path.data(), 384),
            BOOT_INIT_ERR_SIGNATURE_NOT_EXIST);
  EXPECT_EQ(std::string(path.data()), kStaging + "/signature_pss_filelist");
  EXPECT_THAT(MainLog(), ElementsAre(kCheckFailed));
}

TEST_F(ExtractListTest, PathsThatDoNotFit) {
  const std::string dir = LongDir(362);  // "/signature_filelist" makes 381, the PSS list 385
  std::vector<char> path(384, 'x');
  EXPECT_EQ(GetSigFilelistAndVerifyCms(dir.c_str(), path.data(), 384), kError);
  EXPECT_EQ(std::string(path.data()), "");
  EXPECT_EQ(GetSigFilelistAndVerifyCms("/tmp", path.data(), 16), kError);
  // The PSS list's path is the longer one: a classic path that does not fit never comes up.
  EXPECT_EQ(GetSigFilelistAndVerifyCms("/tmp", path.data(), 24), kError);
  EXPECT_EQ(GetCurrPackageSignatureFilelist(kPkgPath.c_str(), dir.c_str()), kError);
  const std::string longer = LongDir(366);  // neither list fits
  EXPECT_EQ(GetCurrPackageSignatureFilelist(kPkgPath.c_str(), longer.c_str()), kError);
  EXPECT_THAT(
      MainLog(),
      ElementsAre(
          "[BOOT_INIT][ERROR]:Get signature pss file list and verify failed, path:" + dir + ".",
          "[BOOT_INIT][ERROR]:Get signature pss file list and verify failed, "
          "path:/tmp.",
          "[BOOT_INIT][ERROR]:Get signature pss file list and verify failed, "
          "path:/tmp.",
          "[BOOT_INIT][ERROR]:Get signature pss file list failed.",
          "[BOOT_INIT][ERROR]:Get signature pss file list failed."));
}

TEST_F(ExtractListTest, TheListPathsJustFit) {
  const std::string dir = LongDir(361);  // the PSS list's path is 384 characters
  EXPECT_EQ(GetCurrPackageSignatureFilelist("/opt/none.cc", dir.c_str()), kError);
  const std::string shorter = LongDir(360);  // 383: both paths fit
  EXPECT_EQ(GetCurrPackageSignatureFilelist("/opt/none.cc", shorter.c_str()), kError);
  const std::string notOpened =
      "[BOOT_INIT][ERROR]:ExtractFileInner: Open file failed, file path = /opt/none.cc, errno=2.";
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Get signature pss file list failed.", notOpened,
                          notOpened, notOpened, notOpened,
                          "[BOOT_INIT][ERROR]:Extract curr package signature file list failed, "
                          "package:/opt/none.cc, path:" +
                              shorter + "."));
}

// The signature files go into their directory only when it is there: without the staging
// directory (or /tmp) nothing is loaded, and every extraction that needs the list fails.
TEST_F(ExtractListTest, AMissingSignatureDirectoryIsNotMade) {
  BuildThree();
  testsupport::SetEnv("next_bootfile", kPkgPath);
  EXPECT_EQ(BOOT_INIT_ExtractFileByFileName("rootfs", kPkgPath.c_str(), kOutDir.c_str()), kError);
  EXPECT_FALSE(std::filesystem::exists(kStaging));
  const std::string pssList = kStaging + "/signature_pss_filelist";
  EXPECT_THAT(MainLog(),
              ElementsAreArray(Concat(
                  {{"[BOOT_INIT][ERROR]:ExtractFile: create file " + pssList + " failed, errno=2.",
                    "[BOOT_INIT][ERROR]:ExtractFileInner: extract file " + pssList + " failed"},
                   SignatureMissing("signature_filelist"),
                   SignatureMissing("signature_cms"),
                   SignatureMissing("signature_crl"),
                   {"[BOOT_INIT][ERROR]:Extract curr package signature file list failed, package:" +
                        kPkgPath + ", path:" + kStaging + ".",
                    "[BOOT_INIT][ERROR]:get signature failed",
                    "[BOOT_INIT][ERROR]:get signed files failed"}})));
  EXPECT_TRUE(DirState(kOutDir).empty());
}

// Only /tmp is cleaned, of exactly the five signature files (links as links, never their target).
TEST_F(ExtractListTest, CleaningTouchesOnlyTheSignatureFilesOfTmp) {
  for (const std::string &name : kSigFiles) {
    testsupport::WriteFile("/tmp/" + name, name);
    testsupport::WriteFile(kStaging + "/" + name, name);
  }
  testsupport::WriteFile("/tmp/signature_filelist.bin", "other");
  testsupport::WriteFile("/opt/target", "target");
  testsupport::RemovePath("/tmp/signature_cms");
  std::filesystem::create_symlink("/opt/target", "/tmp/signature_cms");
  CleanExtractedSigFilelist(kStaging.c_str());
  CleanExtractedSigFilelist("/tmp/");
  CleanExtractedSigFilelist(nullptr);
  EXPECT_EQ(TmpSignatureFiles(), kSigFiles);
  CleanExtractedSigFilelist("/tmp");
  EXPECT_THAT(TmpSignatureFiles(), IsEmpty());
  EXPECT_EQ(ReadFile("/tmp/signature_filelist.bin"), "other");
  EXPECT_EQ(ReadFile("/opt/target"), "target");
  EXPECT_EQ(DirState(kStaging).size(), 5u);
  CleanExtractedSigFilelist("/tmp");  // missing files are no failure
  EXPECT_THAT(MainLog(), IsEmpty());
}

// The PSS pair is taken when the list is there; otherwise all three classic files are tried,
// and their results together decide.
TEST_F(ExtractListTest, ExtractingTheSignatureFiles) {
  BuildThree();
  testsupport::MakeDir(kOutDir);
  EXPECT_EQ(ExtractSignatureFilelist(kPkgPath.c_str(), kOutDir.c_str()), 0u);
  EXPECT_EQ(DirState(kOutDir),
            (std::map<std::string, std::string>{
                {"signature_pss_cms", RecordBytes("signature_pss_cms", false)},
                {"signature_pss_filelist", RecordBytes("signature_pss_filelist", false)}}));
  BuildThree("classic", {"--break", "missing-cms"});
  testsupport::RemovePath(kOutDir);
  testsupport::MakeDir(kOutDir);
  testsupport::ClearMainLog();
  EXPECT_EQ(ExtractSignatureFilelist(kPkgPath.c_str(), kOutDir.c_str()), kNotFound);
  EXPECT_EQ(DirState(kOutDir).size(), 2u);  // the list and the CRL
  EXPECT_EQ(GetInputPackageSignatureFilelist(kPkgPath.c_str(), kOutDir.c_str()), kNotFound);
  EXPECT_THAT(MainLog(),
              ElementsAreArray(
                  Concat({NoPssList(),
                          SignatureMissing("signature_cms"),
                          NoPssList(),
                          SignatureMissing("signature_cms"),
                          {"[BOOT_INIT][ERROR]:Extract input package signature file list failed, "
                           "package:" +
                           kPkgPath + ", path:" + kOutDir + "."}})));
}

}  // namespace
}  // namespace extracttest
