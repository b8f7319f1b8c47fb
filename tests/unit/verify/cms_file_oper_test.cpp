// Verify sub-operation 0 (BOOT_INIT_VerifyCmsFile): the arguments, the paths it forms, the
// existence checks and their codes, and the platform's real CMS checks (classic with a CRL
// file, PSS against the kernel's CRL) on signatures made from the test PKI, with the security
// log's lines.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bootinit/verify.h"
#include "cms_fixture.hpp"
#include "swm.h"

using cmstest::kPkgDir;
using cmstest::kSource;
using cmstest::kSourceName;
using cmstest::SafeLog;
using crltest::PkiBytes;
using testing::ElementsAre;
using testing::IsEmpty;
using testsupport::CallOperation;
using testsupport::MainLog;

namespace {

const std::string kSigName = "app.bin.cms";
const std::string kCrlName = "crl.der";
const std::string kSignature = kPkgDir + "/" + kSigName;
const std::string kCrlFile = kPkgDir + "/" + kCrlName;

const std::string kRequest = "[BOOT_INIT][INFO]:Receive verify cms request";
const std::string kCheckFailed = "[BOOT_INIT][ERROR]:res is FALSE when check res.";
const std::string kSuccess = "[BOOT_INIT][INFO]:verify signature success";
const std::string kFailure = "[BOOT_INIT][ERROR]:verify signature failed";
const std::string kSafeSuccess =
    "[BOOT_INIT][SECURITY]verify signature success, source file:/opt/pkg/app.bin.";

std::string SafeFailure(uint32_t result) {
  return "[BOOT_INIT][SECURITY]verify signature failed, result = " + std::to_string(result) +
         ", source file:/opt/pkg/app.bin.";
}

class VerifyCmsFileTest : public cmstest::CmsTest {
 protected:
  static uint32_t Verify(const std::vector<std::string> &args) {
    return Released([&] { return CallOperation(BOOT_INIT_VerifyCmsFile, args); });
  }
  static uint32_t WithCrl() { return Verify({kPkgDir, kSourceName, kSigName, kCrlName}); }
  static uint32_t WithoutCrl() { return Verify({kPkgDir, kSourceName, kSigName}); }
};

// ---- the classic check with a CRL file ----

TEST_F(VerifyCmsFileTest, ClassicSignatureWithCrlFile) {
  crltest::Sign(kSource, kSignature, "classic_signer");
  testsupport::WriteFile(kCrlFile, PkiBytes("crl_revoking.der"));
  EXPECT_EQ(WithCrl(), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(kRequest, kSuccess));
  EXPECT_THAT(SafeLog(), ElementsAre(kSafeSuccess));
}

TEST_F(VerifyCmsFileTest, SignerRevokedByTheCrlFile) {
  crltest::Sign(kSource, kSignature, "revoked_signer");
  testsupport::WriteFile(kCrlFile, PkiBytes("crl_revoking.der"));
  EXPECT_EQ(WithCrl(), SWM_CMS_ERR_REVOKED);
  EXPECT_THAT(MainLog(), ElementsAre(kRequest, kFailure));
  EXPECT_THAT(SafeLog(), ElementsAre(SafeFailure(SWM_CMS_ERR_REVOKED)));
}

TEST_F(VerifyCmsFileTest, ChangedSourceFile) {
  crltest::Sign(kSource, kSignature, "classic_signer");
  testsupport::WriteFile(kCrlFile, PkiBytes("crl_empty.der"));
  testsupport::WriteFile(kSource, "changed");
  EXPECT_EQ(WithCrl(), SWM_CMS_ERR_MISMATCH);
  EXPECT_THAT(MainLog(), ElementsAre(kRequest, kFailure));
  EXPECT_THAT(SafeLog(), ElementsAre(SafeFailure(SWM_CMS_ERR_MISMATCH)));
}

// ---- the PSS check: three arguments, no CRL file ----

// With three arguments no CRL is looked for, even when the directory holds none.
TEST_F(VerifyCmsFileTest, PssSignatureWithoutCrl) {
  crltest::Sign(kSource, kSignature, "pss_signer", true);
  EXPECT_EQ(WithoutCrl(), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(kRequest, kSuccess));
  EXPECT_THAT(SafeLog(), ElementsAre(kSafeSuccess));
}

// The same classic signature passes the classic check and fails the PSS one: three arguments
// choose the PSS check.
TEST_F(VerifyCmsFileTest, ThreeArgumentsChooseThePssCheck) {
  crltest::Sign(kSource, kSignature, "classic_signer");
  testsupport::WriteFile(kCrlFile, PkiBytes("crl_empty.der"));
  EXPECT_EQ(WithCrl(), 0u);
  EXPECT_EQ(WithoutCrl(), SWM_CMS_ERR_NOT_PSS);
  EXPECT_THAT(MainLog(), ElementsAre(kRequest, kSuccess, kRequest, kFailure));
  EXPECT_THAT(SafeLog(), ElementsAre(kSafeSuccess, SafeFailure(SWM_CMS_ERR_NOT_PSS)));
}

// The PSS check counts the CRL the board handed to its kernel.
TEST_F(VerifyCmsFileTest, PssCheckUsesTheKernelCrl) {
  crltest::Sign(kSource, kSignature, "revoked_signer", true);
  EXPECT_EQ(WithoutCrl(), 0u);
  testsupport::WriteFile(crltest::kKernelCrl, PkiBytes("crl_pss_revoking.der"));
  EXPECT_EQ(WithoutCrl(), SWM_CMS_ERR_REVOKED);
  EXPECT_THAT(SafeLog(), ElementsAre(kSafeSuccess, SafeFailure(SWM_CMS_ERR_REVOKED)));
}

// ---- arguments and files ----

TEST_F(VerifyCmsFileTest, WrongArgumentCountsFailBeforeTouchingTheDisk) {
  EXPECT_EQ(Verify({"/none", "a", "b", "c", "d"}), 0x10000001u);
  EXPECT_EQ(Verify({"/none", "a"}), 0x10000001u);
  EXPECT_EQ(Verify({}), 0x10000001u);
  EXPECT_THAT(
      MainLog(),
      ElementsAre(kRequest, "[BOOT_INIT][ERROR]:verify cms, para count is invalid, argc = 5",
                  kRequest, "[BOOT_INIT][ERROR]:verify cms, para count is invalid, argc = 2",
                  kRequest, "[BOOT_INIT][ERROR]:verify cms, para count is invalid, argc = 0"));
  EXPECT_THAT(SafeLog(), IsEmpty());
}

TEST_F(VerifyCmsFileTest, MissingArgumentVector) {
  EXPECT_EQ(BOOT_INIT_VerifyCmsFile(3, nullptr), 0x10000001u);
  EXPECT_THAT(MainLog(), ElementsAre(kRequest,
                                     "[BOOT_INIT][ERROR]:verify cms, para count is "
                                     "invalid, argc = 3"));
}

TEST_F(VerifyCmsFileTest, MissingDirectory) {
  EXPECT_EQ(Verify({"/opt/none", kSourceName, kSigName}), 0x10000004u);
  EXPECT_EQ(Verify({kSource, kSourceName, kSigName}), 0x10000004u);  // a file, not a directory
  EXPECT_THAT(MainLog(), ElementsAre(kRequest, kCheckFailed, kRequest, kCheckFailed));
}

TEST_F(VerifyCmsFileTest, MissingFilesInOrder) {
  EXPECT_EQ(WithCrl(), 0x1000000Fu);  // the source exists, the signature does not
  testsupport::WriteFile(kSignature, "x");
  EXPECT_EQ(WithCrl(), 0x10000010u);
  testsupport::RemovePath(kSource);
  EXPECT_EQ(WithCrl(), 0x10000003u);
  EXPECT_THAT(MainLog(),
              ElementsAre(kRequest, kCheckFailed, kRequest, kCheckFailed, kRequest, kCheckFailed));
  EXPECT_THAT(SafeLog(), IsEmpty());
}

// A path of 383 characters fits its 384-byte buffer; one of 384 does not.
TEST_F(VerifyCmsFileTest, PathLengths) {
  const std::string fits(383 - kPkgDir.size() - 1, 'n');
  EXPECT_EQ(Verify({kPkgDir, fits, kSigName}), 0x10000003u);
  EXPECT_EQ(Verify({kPkgDir, fits + "n", kSigName}), 0xFFFFFFFFu);
  EXPECT_EQ(Verify({kPkgDir, kSourceName, fits + "n"}), 0xFFFFFFFFu);
  EXPECT_EQ(Verify({kPkgDir, kSourceName, kSigName, fits + "n"}), 0xFFFFFFFFu);
  const std::string tooLong = "[BOOT_INIT][ERROR]:BOOT_INIT_VerifyCmsFile: sprintf failed";
  EXPECT_THAT(MainLog(), ElementsAre(kRequest, kCheckFailed, kRequest, tooLong, kRequest, tooLong,
                                     kRequest, tooLong));
}

// A failure of the platform's check is passed on as it is.
TEST_F(VerifyCmsFileTest, PlatformCheckWithoutTrustAnchor) {
  MainBoardWith({{"security.root_ca", ""}});
  crltest::Sign(kSource, kSignature, "classic_signer");
  testsupport::WriteFile(kCrlFile, PkiBytes("crl_empty.der"));
  EXPECT_EQ(WithCrl(), SWM_CMS_ERR_TRUST_ANCHOR);
  EXPECT_THAT(SafeLog(), ElementsAre(SafeFailure(SWM_CMS_ERR_TRUST_ANCHOR)));
}

}  // namespace
