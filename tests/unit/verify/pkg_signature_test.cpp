// The package's own signature on indexed packages that bootpkg signs inside the board with the
// build's test PKI, on a main board whose platform trusts the PKI's root: the choice of the
// scheme, the extraction of its signature files into the staging directory, the platform's CMS
// check (its security log lines) and the digests placed into the index; every failure with its
// exact lines and code.
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "bootinit/extract.h"
#include "bootinit/package.h"
#include "pkg_fixture.hpp"

#ifndef TEST_PKI_DIR
#error "TEST_PKI_DIR must name the build's test PKI directory"
#endif

namespace {

using pkgtest::Concat;
using pkgtest::Input;
using pkgtest::kError;
using pkgtest::kPkgPath;
using pkgtest::kStaging;
using pkgtest::Listed;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testsupport::MainLog;
using testsupport::ReadFile;

const std::string kPkiDir = TEST_PKI_DIR;
const std::string kPssList = kStaging + "/signature_pss_filelist";
const std::string kClassicList = kStaging + "/signature_filelist";
const std::string kCheckFailed = "[BOOT_INIT][ERROR]:res is FALSE when check res.";
constexpr uint32_t kUntrusted = 0x30000005u;

std::string Pki(const std::string &name) { return kPkiDir + "/" + name; }

std::vector<std::string> SignedBy(const std::string &scheme, const std::string &signer = "") {
  const std::string who = signer.empty() ? scheme + "_signer" : signer;
  std::vector<std::string> options = {"--sign",          scheme,  "--signer",
                                      Pki(who + ".pem"), "--key", Pki(who + ".key")};
  if (scheme == "classic") {
    options.insert(options.end(), {"--crl", Pki("crl_empty.der")});
  }
  return options;
}

std::vector<std::string> With(std::vector<std::string> options,
                              const std::vector<std::string> &more) {
  options.insert(options.end(), more.begin(), more.end());
  return options;
}

std::vector<std::string> SafeLog() {
  return testsupport::LogMessages(testsupport::kSafeLogPath, 1);
}

std::string Traverse(const std::string &name) {
  return "[BOOT_INIT][WARN]:File " + name + " will find traverse all.";
}

// The file bytes of a record as bootpkg extracts them.
std::string FileBytes(const std::string &name, const std::string &package = kPkgPath) {
  const std::string dir = "/opt/reference";
  testsupport::RemovePath(dir);
  const pkgtest::ToolRun run = pkgtest::Bootpkg({"extract", "--out", dir, package, name});
  EXPECT_EQ(run.status, 0) << run.output;
  return ReadFile(dir + "/" + name);
}

// The staging directory's files (name -> content).
std::map<std::string, std::string> Staged() {
  std::map<std::string, std::string> files;
  if (std::filesystem::is_directory(kStaging)) {
    for (const auto &entry : std::filesystem::directory_iterator(kStaging)) {
      files[entry.path().filename().string()] = ReadFile(entry.path());
    }
  }
  return files;
}

// The failed extraction of a signature file the package does not hold, into the staging
// directory.
std::vector<std::string> NotInPackage(const std::string &name,
                                      const std::string &package = kPkgPath) {
  return {"[BOOT_INIT][WARNING]:FindTarget: no such file " + name,
          "[BOOT_INIT][WARNING]:ExtractFileInner: get file failed, name:" + name,
          "[BOOT_INIT][WARNING]:extract file " + name + " from " + package + " to " + kStaging +
              " not ok."};
}

class PkgSignatureTest : public pkgtest::PkgTest {
 protected:
  void SetUp() override {
    PkgTest::SetUp();
    testsupport::DescribeBoard(testsupport::ActiveMainBoard(),
                               {{"security.root_ca", Pki("root_ca.der")}});
  }

  // kernel.img.gz, rootfs and app.bin with further options, indexed.
  void BuildAndIndex(const std::vector<std::string> &options) {
    BuildThree(options);
    records_ = pkgtest::ListPackage();
    ASSERT_EQ(Index(), 0u);
    testsupport::ClearMainLog();
  }

  // The index as it must be once the list's digests are placed.
  std::vector<pkgtest::NodeView> WithDigests() const {
    std::vector<pkgtest::NodeView> nodes;
    for (const Listed &record : records_) {
      const bool signature = record.binName.rfind("signature_", 0) == 0;
      nodes.push_back(pkgtest::Expected(record, signature ? "" : record.recordDigest));
    }
    return pkgtest::WalkOrder(nodes);
  }

  std::vector<Listed> records_;
};

TEST_F(PkgSignatureTest, ThePssScheme) {
  BuildAndIndex(SignedBy("pss"));
  uint32_t isPss = 7;
  EXPECT_EQ(BootHasNewCmsSignatureFile(&isPss), 0u);
  EXPECT_EQ(isPss, 1u);
  EXPECT_EQ(BootVerifyDigitalSignature(kPkgPath.c_str()), 0u);
  EXPECT_THAT(MainLog(), IsEmpty());
  EXPECT_THAT(SafeLog(),
              ElementsAre("[BOOT_INIT][SECURITY]verify pss signature " + kPssList + " success."));
  EXPECT_EQ(Staged(), (std::map<std::string, std::string>{
                          {"signature_pss_filelist", FileBytes("signature_pss_filelist")},
                          {"signature_pss_cms", FileBytes("signature_pss_cms")}}));
  EXPECT_EQ(pkgtest::IndexNodes(), WithDigests());
}

TEST_F(PkgSignatureTest, TheClassicScheme) {
  BuildAndIndex(SignedBy("classic"));
  uint32_t isPss = 7;
  EXPECT_EQ(BootHasNewCmsSignatureFile(&isPss), 0u);
  EXPECT_EQ(isPss, 0u);
  testsupport::ClearMainLog();
  EXPECT_EQ(BootVerifyDigitalSignature(kPkgPath.c_str()), 0u);
  EXPECT_THAT(MainLog(),
              ElementsAre(Traverse("signature_pss_filelist"), Traverse("signature_pss_cms")));
  EXPECT_THAT(SafeLog(), ElementsAre("[BOOT_INIT][SECURITY]verify signature success, source file:" +
                                     kClassicList + "."));
  EXPECT_EQ(Staged(), (std::map<std::string, std::string>{
                          {"signature_filelist", FileBytes("signature_filelist")},
                          {"signature_cms", FileBytes("signature_cms")},
                          {"signature_crl", ReadFile(Pki("crl_empty.der"))}}));
  EXPECT_EQ(pkgtest::IndexNodes(), WithDigests());
}

// "signature_pss_filelist" without "signature_pss_cms" fails before anything is extracted.
TEST_F(PkgSignatureTest, OnlyThePssListFailsAtOnce) {
  BuildAndIndex(With(SignedBy("pss"), {"--break", "missing-cms"}));
  uint32_t isPss = 7;
  EXPECT_EQ(BootHasNewCmsSignatureFile(&isPss), kError);
  EXPECT_EQ(isPss, 7u);
  EXPECT_EQ(BootVerifyDigitalSignature(kPkgPath.c_str()), kError);
  EXPECT_THAT(MainLog(), ElementsAre(Traverse("signature_pss_cms"), Traverse("signature_pss_cms"),
                                     "[BOOT_INIT][ERROR]:Boot new cms file not integrity."));
  EXPECT_FALSE(std::filesystem::exists(kStaging));
  EXPECT_THAT(SafeLog(), IsEmpty());
}

TEST_F(PkgSignatureTest, OnlyThePssSignatureFailsAtOnce) {
  BuildAndIndex(With(SignedBy("pss"), {"--break", "missing-list"}));
  EXPECT_EQ(BootVerifyDigitalSignature(kPkgPath.c_str()), kError);
  EXPECT_THAT(MainLog(), ElementsAre(Traverse("signature_pss_filelist"),
                                     "[BOOT_INIT][ERROR]:Boot new cms file not integrity."));
  EXPECT_FALSE(std::filesystem::exists(kStaging));
}

// Neither PSS file: the classic scheme, even without its files; the extraction then fails.
TEST_F(PkgSignatureTest, NoSignatureAtAllTakesTheClassicScheme) {
  BuildAndIndex({"--no-list"});
  EXPECT_EQ(BootVerifyDigitalSignature(kPkgPath.c_str()), kError);
  EXPECT_THAT(
      MainLog(),
      ElementsAreArray(Concat({{Traverse("signature_pss_filelist"), Traverse("signature_pss_cms")},
                               NotInPackage("signature_filelist"),
                               {"[BOOT_INIT][ERROR]:Extract file signature_filelist failed.",
                                "[BOOT_INIT][ERROR]:Boot verify signature failed, sigFile=" +
                                    kClassicList + ", ret=4294967295."}})));
  EXPECT_TRUE(Staged().empty());
}

// Whichever classic file fails to come out, the message names the list; the files extracted
// before it stay.
TEST_F(PkgSignatureTest, AMissingClassicFileIsReportedAsTheList) {
  BuildAndIndex(With(SignedBy("classic"), {"--break", "missing-crl"}));
  EXPECT_EQ(BootVerifyDigitalSignatureOldImpl(kPkgPath.c_str()), kError);
  EXPECT_THAT(
      MainLog(),
      ElementsAreArray(Concat({NotInPackage("signature_crl"),
                               {"[BOOT_INIT][ERROR]:Extract file signature_filelist failed."}})));
  EXPECT_EQ(Staged().size(), 2u);
  EXPECT_THAT(SafeLog(), IsEmpty());
}

TEST_F(PkgSignatureTest, AClassicPackageWithoutItsSignature) {
  BuildAndIndex(With(SignedBy("classic"), {"--break", "missing-cms"}));
  EXPECT_EQ(BootVerifyDigitalSignatureOldImpl(kPkgPath.c_str()), kError);
  EXPECT_THAT(
      MainLog(),
      ElementsAreArray(Concat({NotInPackage("signature_cms"),
                               {"[BOOT_INIT][ERROR]:Extract file signature_filelist failed."}})));
  EXPECT_EQ(Staged().size(), 1u);  // the list, and nothing after the failure
}

// A package with the files of both schemes uses only the PSS scheme.
TEST_F(PkgSignatureTest, BothSchemesMeansPss) {
  Input("kernel.img.gz", std::string(5000, 'k'));
  Input("rootfs", "root file system\n");
  Input("app.bin", "application\n");
  pkgtest::Build({"kernel.img.gz", "rootfs", "app.bin"}, SignedBy("classic"));
  const std::string classic = "/opt/classic.cc";
  std::filesystem::copy_file(kPkgPath, classic);
  for (const std::string name : {"signature_filelist", "signature_cms", "signature_crl"}) {
    Input(name, FileBytes(name, classic));
  }
  pkgtest::Build({"kernel.img.gz", "rootfs", "app.bin", "signature_filelist", "signature_cms",
                  "signature_crl"},
                 SignedBy("pss"));
  records_ = pkgtest::ListPackage();
  ASSERT_EQ(Index(), 0u);
  EXPECT_EQ(BootVerifyDigitalSignature(kPkgPath.c_str()), 0u);
  EXPECT_THAT(MainLog(), IsEmpty());
  EXPECT_THAT(SafeLog(),
              ElementsAre("[BOOT_INIT][SECURITY]verify pss signature " + kPssList + " success."));
  std::vector<std::string> staged;
  for (const auto &[name, content] : Staged()) {
    staged.push_back(name);
  }
  EXPECT_THAT(staged, ElementsAre("signature_pss_cms", "signature_pss_filelist"));
}

TEST_F(PkgSignatureTest, ASignerTheRootDoesNotKnow) {
  BuildAndIndex(With(SignedBy("pss", "foreign_signer"),
                     {"--break", "wrong-signer", "--ca", Pki("root_ca.pem")}));
  EXPECT_EQ(BootVerifyDigitalSignature(kPkgPath.c_str()), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Verify pss signature failed, ret=805306373.",
                          "[BOOT_INIT][ERROR]:Boot verify signature failed, sigFile=" + kPssList +
                              ", ret=4294967295."));
  EXPECT_THAT(SafeLog(), ElementsAre("[BOOT_INIT][SECURITY]verify pss signature " + kPssList +
                                     " failed, result = 805306373."));
  for (const pkgtest::NodeView &node : pkgtest::IndexNodes()) {
    EXPECT_EQ(node.digest, "") << node.binName;
  }
}

TEST_F(PkgSignatureTest, AClassicSignerTheRootDoesNotKnow) {
  BuildAndIndex(With(SignedBy("classic", "foreign_signer"),
                     {"--break", "wrong-signer", "--ca", Pki("root_ca.pem")}));
  EXPECT_EQ(BootVerifyDigitalSignature(kPkgPath.c_str()), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre(Traverse("signature_pss_filelist"), Traverse("signature_pss_cms"),
                          "[BOOT_INIT][ERROR]:Verify signature failed",
                          "[BOOT_INIT][ERROR]:Boot verify signature failed, sigFile=" +
                              kClassicList + ", ret=4294967295."));
  EXPECT_THAT(SafeLog(),
              ElementsAre("[BOOT_INIT][SECURITY]verify signature failed, result = " +
                          std::to_string(kUntrusted) + ", source file:" + kClassicList + "."));
}

// The list is checked against another package's index: a listed file the index does not hold
// fails the placement.
TEST_F(PkgSignatureTest, AListForAnotherPackage) {
  Input("initrd", "initial ram disk\n");
  const std::string other = "/opt/other.cc";
  ASSERT_EQ(pkgtest::Bootpkg(
                With({"build", "--out", other, "--time", "1700000000", pkgtest::kInDir + "/initrd"},
                     SignedBy("pss")))
                .status,
            0);
  BuildAndIndex(SignedBy("pss"));
  EXPECT_EQ(BootVerifyDigitalSignature(other.c_str()), kError);
  const Listed initrd = pkgtest::Record(pkgtest::ListPackage(other), "initrd.bin");
  EXPECT_THAT(MainLog(),
              ElementsAre(Traverse("initrd.bin"),
                          "[BOOT_INIT][ERROR]:Update file(initrd.bin 1 " + initrd.recordDigest +
                              ") failed.",
                          "[BOOT_INIT][ERROR]:Get files hash value from " + kPssList + " failed.",
                          "[BOOT_INIT][ERROR]:Read file " + kPssList + " failed, ret=4294967295"));
  EXPECT_THAT(SafeLog(),
              ElementsAre("[BOOT_INIT][SECURITY]verify pss signature " + kPssList + " success."));
}

// The PSS steps on their own: presence in the index, then the extraction.
TEST_F(PkgSignatureTest, ThePssStepsOnTheirOwn) {
  BuildAndIndex(With(SignedBy("pss"), {"--break", "missing-cms"}));
  EXPECT_EQ(BootVerifyPssDigitalSignature(kPkgPath.c_str()), kError);
  BOOT_DeinitPkgVerify();
  BuildAndIndex(SignedBy("classic"));
  EXPECT_EQ(BootVerifyPssDigitalSignature(kPkgPath.c_str()), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre(Traverse("signature_pss_filelist"),
                          "[BOOT_INIT][ERROR]:pss file signature_pss_filelist is not exsit, "
                          "ret=1000."));
  EXPECT_FALSE(std::filesystem::exists(kStaging));
}

TEST_F(PkgSignatureTest, ThePssCmsMissingFromTheIndex) {
  BuildAndIndex(With(SignedBy("pss"), {"--break", "missing-cms"}));
  EXPECT_EQ(BootVerifyPssDigitalSignature(kPkgPath.c_str()), kError);
  EXPECT_THAT(MainLog(), ElementsAre(Traverse("signature_pss_cms"),
                                     "[BOOT_INIT][ERROR]:pss file signature_pss_cms is not exsit, "
                                     "ret=1000."));
}

// The index holds both PSS files, the package given does not.
TEST_F(PkgSignatureTest, ThePssFilesCannotBeExtracted) {
  BuildAndIndex(SignedBy("pss"));
  Input("initrd", "initial ram disk\n");
  const std::string other = "/opt/other.cc";
  ASSERT_EQ(
      pkgtest::Bootpkg({"build", "--out", other, "--no-list", pkgtest::kInDir + "/initrd"}).status,
      0);
  EXPECT_EQ(BootVerifyPssDigitalSignature(other.c_str()), kError);
  EXPECT_THAT(
      MainLog(),
      ElementsAreArray(Concat({NotInPackage("signature_pss_filelist", other),
                               {"[BOOT_INIT][ERROR]:Extract file signature_pss_filelist failed, "
                                "ret=268435463."}})));
}

TEST_F(PkgSignatureTest, CheckingTheExtractedPssFiles) {
  testsupport::MakeDir(kStaging);
  EXPECT_EQ(BootVerifyPssDigitalSignatureFile(kStaging.c_str()), BOOT_INIT_ERR_FILE_NOT_EXIST);
  testsupport::WriteFile(kPssList, "list\n");
  EXPECT_EQ(BootVerifyPssDigitalSignatureFile(kStaging.c_str()), BOOT_INIT_ERR_SIGNATURE_NOT_EXIST);
  testsupport::WriteFile(kStaging + "/signature_pss_cms", "not a signature");
  EXPECT_EQ(BootVerifyPssDigitalSignatureFile(kStaging.c_str()), 0x30000002u);
  std::string dir = "/opt";
  while (dir.size() < 361) {
    dir += "/" + std::string(std::min<std::size_t>(360 - dir.size(), 99), 'd');
  }
  EXPECT_EQ(BootVerifyPssDigitalSignatureFile(dir.c_str()), kError);  // 384 with the list name
  EXPECT_EQ(BootVerifyPssDigitalSignatureFile(nullptr), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre(kCheckFailed, kCheckFailed, "[BOOT_INIT][ERROR]:sprintf filelist failed",
                          "[BOOT_INIT][ERROR]:sprintf filelist failed"));
  EXPECT_THAT(SafeLog(), ElementsAre("[BOOT_INIT][SECURITY]verify pss signature " + kPssList +
                                     " failed, result = 805306370."));
}

TEST_F(PkgSignatureTest, CheckingTheExtractedClassicFiles) {
  testsupport::MakeDir(kStaging);
  EXPECT_EQ(BootVerifyDigitalSignatureFile(kStaging.c_str()), BOOT_INIT_ERR_FILE_NOT_EXIST);
  testsupport::WriteFile(kClassicList, "list\n");
  EXPECT_EQ(BootVerifyDigitalSignatureFile(kStaging.c_str()), BOOT_INIT_ERR_SIGNATURE_NOT_EXIST);
  testsupport::WriteFile(kStaging + "/signature_cms", "not a signature");
  EXPECT_EQ(BootVerifyDigitalSignatureFile(kStaging.c_str()), BOOT_INIT_ERR_CRL_NOT_EXIST);
  std::filesystem::copy_file(Pki("crl_empty.der"), kStaging + "/signature_crl");
  EXPECT_EQ(BootVerifyDigitalSignatureFile(kStaging.c_str()), 0x30000002u);
  // Directories whose paths do not fit: each failed path is logged, and left empty. With 366
  // characters only the list's path is too long, with 370 all three are.
  for (const std::size_t length : {366U, 370U}) {
    std::string dir = "/opt";
    while (dir.size() < length) {
      dir += "/" + std::string(std::min<std::size_t>(length - 1 - dir.size(), 99), 'd');
    }
    EXPECT_EQ(BootVerifyDigitalSignatureFile(dir.c_str()), BOOT_INIT_ERR_FILE_NOT_EXIST);
  }
  const std::string printFailed =
      "[BOOT_INIT][ERROR]:snprintf unsuccessfully: BootVerifyDigitalSignatureFile";
  EXPECT_THAT(MainLog(),
              ElementsAre(kCheckFailed, kCheckFailed, kCheckFailed, printFailed, kCheckFailed,
                          printFailed, printFailed, printFailed, kCheckFailed));
  EXPECT_THAT(SafeLog(), ElementsAre("[BOOT_INIT][SECURITY]verify signature failed, result = "
                                     "805306370, source file:" +
                                     kClassicList + "."));
}

TEST_F(PkgSignatureTest, AnEmptyAnswerPointer) {
  EXPECT_EQ(BootHasNewCmsSignatureFile(nullptr), kError);
  EXPECT_THAT(MainLog(), ElementsAre(pkgtest::kNullParam));
}

}  // namespace
