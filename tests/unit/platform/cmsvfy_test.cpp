// Tests of libcmsvfy: contexts and their parameter record, trusted certificates, detached CMS
// signatures made with the openssl tool (classic and PSS), CRLs and their trust, and which of
// two CRLs is newer.
#include "cmsvfy.h"

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "board_env_files.hpp"
#include "pki_files.hpp"

namespace {

using pkitest::Bytes;
using pkitest::Pki;
using pkitest::Scheme;

constexpr int32_t kUntouched = 77;
constexpr const char *kDir = "/tmp/cmsvfy_test";

CMSVFY_PARAM_S GoodParam() {
  CMSVFY_PARAM_S param{};
  param.size = CMSVFY_PARAM_SIZE;
  return param;
}

std::string Path(const std::string &name) { return std::string(kDir) + "/" + name; }

class CmsvfyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    boardtest::RemovePath(kDir);
    std::filesystem::create_directories(kDir);
    pkitest::WriteText(source_, "the bytes of a package\n");
    const CMSVFY_PARAM_S param = GoodParam();
    ASSERT_EQ(CmsvfyVerifyCreateCtx(&ctx_, &param), CMSVFY_OK);
  }
  void TearDown() override {
    EXPECT_EQ(CmsvfyVrfCtxFree(ctx_), CMSVFY_OK);
    boardtest::RemovePath(kDir);
  }

  void Trust(const std::string &derName) {
    const Bytes der = pkitest::ReadBytes(Pki(derName));
    ASSERT_FALSE(der.empty()) << derName;
    ASSERT_EQ(CmsvfyVerifyAddCert(ctx_, der.data(), static_cast<uint32_t>(der.size())), CMSVFY_OK);
  }
  void AddCrl(const std::string &name) {
    ASSERT_EQ(CmsvfyVerifyAddCrlFile(ctx_, Pki(name).c_str()), CMSVFY_OK) << name;
  }
  void AddCrlBytes(const Bytes &crl) {
    ASSERT_FALSE(crl.empty());
    ASSERT_EQ(CmsvfyVerifyAddCrl(ctx_, crl.data(), static_cast<uint32_t>(crl.size())), CMSVFY_OK);
  }

  // The signature of the source by one signer, in a file named after it.
  std::string SignedBy(const std::string &signer, Scheme scheme = Scheme::kClassic) {
    const std::string out = Path(signer + (scheme == Scheme::kPss ? ".pss.cms" : ".cms"));
    EXPECT_EQ(pkitest::Sign(source_, signer, out, scheme), 0);
    return out;
  }

  // Checks signature over source; the result, or kUntouched when the call failed.
  int32_t Check(const std::string &signature, const std::string &source, uint32_t *status) {
    int32_t result = kUntouched;
    *status = CmsvfyVerifyDetachSignatureQuick(ctx_, source.c_str(), signature.c_str(), &result);
    return result;
  }
  // The result of a check that must not fail.
  int32_t Result(const std::string &signature) {
    uint32_t status = 0;
    const int32_t result = Check(signature, source_, &status);
    EXPECT_EQ(status, CMSVFY_OK);
    return result;
  }

  CMSVFY_CTX_S *ctx_ = nullptr;
  const std::string source_ = Path("package.bin");
};

// ---------------------------------------------------------------- contexts and certificates

TEST(CmsvfyParam, RecordLayout) {
  EXPECT_EQ(sizeof(CMSVFY_PARAM_S), 72u);
  EXPECT_EQ(offsetof(CMSVFY_PARAM_S, size), 0u);
  EXPECT_EQ(offsetof(CMSVFY_PARAM_S, reserved), 8u);
}

TEST(CmsvfyParam, ParameterRecordIsChecked) {
  CMSVFY_CTX_S *ctx = nullptr;
  CMSVFY_PARAM_S param = GoodParam();
  EXPECT_EQ(CmsvfyVerifyCreateCtx(nullptr, &param), CMSVFY_ERR_PARAM);
  EXPECT_EQ(CmsvfyVerifyCreateCtx(&ctx, nullptr), CMSVFY_ERR_PARAM);
  for (const uint64_t size : {0ull, 71ull, 73ull, 144ull}) {
    param.size = size;
    EXPECT_EQ(CmsvfyVerifyCreateCtx(&ctx, &param), CMSVFY_ERR_PARAM) << size;
  }
  for (size_t i = 0; i < 8; ++i) {
    param = GoodParam();
    param.reserved[i] = 1;
    EXPECT_EQ(CmsvfyVerifyCreateCtx(&ctx, &param), CMSVFY_ERR_PARAM) << i;
  }
  EXPECT_EQ(ctx, nullptr);  // never written on failure
  param = GoodParam();
  ASSERT_EQ(CmsvfyVerifyCreateCtx(&ctx, &param), CMSVFY_OK);
  EXPECT_NE(ctx, nullptr);
  EXPECT_EQ(CmsvfyVrfCtxFree(ctx), CMSVFY_OK);
  EXPECT_EQ(CmsvfyVrfCtxFree(nullptr), CMSVFY_OK);
}

TEST_F(CmsvfyTest, CertificatesMustBeExactlyOneDerCertificate) {
  Bytes der = pkitest::ReadBytes(Pki("root_ca.der"));
  ASSERT_EQ(der.size(), 1363u);
  const auto len = static_cast<uint32_t>(der.size());
  EXPECT_EQ(CmsvfyVerifyAddCert(nullptr, der.data(), len), CMSVFY_ERR_PARAM);
  EXPECT_EQ(CmsvfyVerifyAddCert(ctx_, nullptr, len), CMSVFY_ERR_PARAM);
  EXPECT_EQ(CmsvfyVerifyAddCert(ctx_, der.data(), 0), CMSVFY_ERR_PARAM);
  EXPECT_EQ(CmsvfyVerifyAddCert(ctx_, der.data(), len - 1), CMSVFY_ERR_CERT);  // truncated
  const Bytes pem = pkitest::ReadBytes(Pki("root_ca.pem"));
  EXPECT_EQ(CmsvfyVerifyAddCert(ctx_, pem.data(), static_cast<uint32_t>(pem.size())),
            CMSVFY_ERR_CERT);
  const Bytes crl = pkitest::ReadBytes(Pki("crl_empty.der"));
  EXPECT_EQ(CmsvfyVerifyAddCert(ctx_, crl.data(), static_cast<uint32_t>(crl.size())),
            CMSVFY_ERR_CERT);
  der.push_back(0);
  EXPECT_EQ(CmsvfyVerifyAddCert(ctx_, der.data(), len + 1), CMSVFY_ERR_CERT);  // one byte more
  EXPECT_EQ(CmsvfyVerifyAddCert(ctx_, der.data(), len), CMSVFY_OK);
  EXPECT_EQ(CmsvfyVerifyAddCert(ctx_, der.data(), len), CMSVFY_OK);  // again: no harm
}

// ---------------------------------------------------------------- signatures

TEST_F(CmsvfyTest, ClassicAndPssSignaturesPass) {
  Trust("root_ca.der");
  EXPECT_EQ(Result(SignedBy("classic_signer")), 1);
  EXPECT_EQ(Result(SignedBy("pss_signer", Scheme::kPss)), 1);
  EXPECT_EQ(Result(SignedBy("classic_signer", Scheme::kPss)), 1);
}

TEST_F(CmsvfyTest, EveryChangeOfTheBytesIsAMismatch) {
  Trust("root_ca.der");
  const std::string signature = SignedBy("classic_signer");
  const std::string pss = SignedBy("pss_signer", Scheme::kPss);
  pkitest::WriteText(source_, "the bytes of a packagf\n");
  EXPECT_EQ(Result(signature), 0);
  EXPECT_EQ(Result(pss), 0);
  pkitest::WriteText(source_, "the bytes of a package\n\n");
  EXPECT_EQ(Result(signature), 0);
  pkitest::WriteText(source_, "");
  EXPECT_EQ(Result(signature), 0);
  pkitest::WriteText(source_, "the bytes of a package\n");
  EXPECT_EQ(Result(signature), 1);
}

TEST_F(CmsvfyTest, SignatureWithoutSignedAttributes) {
  Trust("root_ca.der");
  const std::string signature = Path("noattr.cms");
  ASSERT_EQ(pkitest::Sign(source_, {{"classic_signer"}}, signature, {"-noattr"}), 0);
  EXPECT_EQ(Result(signature), 1);
  pkitest::WriteText(source_, "other bytes\n");
  EXPECT_EQ(Result(signature), 0);
}

TEST_F(CmsvfyTest, SignerMustChainToATrustedCertificate) {
  const std::string foreign = SignedBy("foreign_signer");
  const std::string classic = SignedBy("classic_signer");
  EXPECT_EQ(Result(classic), 0);  // nothing trusted yet
  Trust("root_ca.der");
  EXPECT_EQ(Result(foreign), 0);
  EXPECT_EQ(Result(classic), 1);
  Trust("foreign_root.der");
  EXPECT_EQ(Result(foreign), 1);
}

TEST_F(CmsvfyTest, SignerWithoutCarriedCertificateNeedsItTrusted) {
  Trust("root_ca.der");
  const std::string signature = Path("nocerts.cms");
  ASSERT_EQ(pkitest::Sign(source_, {{"classic_signer"}}, signature, {"-nocerts"}), 0);
  EXPECT_EQ(Result(signature), 0);  // no certificate for the signer anywhere
  // A trusted certificate is an anchor of its own, whether or not it signed itself.
  ASSERT_EQ(pkitest::RunProgram({"openssl", "x509", "-in", Pki("classic_signer.pem"), "-outform",
                                 "DER", "-out", Path("classic_signer.der")}),
            0);
  const Bytes der = pkitest::ReadBytes(Path("classic_signer.der"));
  ASSERT_EQ(CmsvfyVerifyAddCert(ctx_, der.data(), static_cast<uint32_t>(der.size())), CMSVFY_OK);
  EXPECT_EQ(Result(signature), 1);
}

TEST_F(CmsvfyTest, ExpiredSignerIsRejected) {
  Trust("root_ca.der");
  EXPECT_EQ(Result(SignedBy("expired_signer")), 0);
}

TEST_F(CmsvfyTest, EverySignerMustPass) {
  Trust("root_ca.der");
  AddCrl("crl_revoking.der");
  const std::string both = Path("both.cms");
  ASSERT_EQ(pkitest::Sign(source_, {{"classic_signer"}, {"pss_signer", Scheme::kPss}}, both), 0);
  EXPECT_EQ(Result(both), 1);
  for (const char *second : {"revoked_signer", "expired_signer", "foreign_signer"}) {
    const std::string signature = Path(std::string(second) + ".two.cms");
    ASSERT_EQ(pkitest::Sign(source_, {{"classic_signer"}, {second}}, signature), 0);
    EXPECT_EQ(Result(signature), 0) << second;
  }
}

// ---------------------------------------------------------------- revocation

TEST_F(CmsvfyTest, RevokedSignerIsRejectedByAnyCrlOfItsIssuer) {
  Trust("root_ca.der");
  Trust("foreign_root.der");
  const std::string revoked = SignedBy("revoked_signer");
  const std::string classic = SignedBy("classic_signer");
  EXPECT_EQ(Result(revoked), 1);  // no CRL yet
  AddCrl("crl_empty.der");
  AddCrl("crl_foreign.der");
  AddCrl("crl_pss_empty.der");
  EXPECT_EQ(Result(revoked), 1);
  // One CRL among several, older by number than crl_pss_empty: it still counts.
  AddCrl("crl_revoking.der");
  EXPECT_EQ(Result(revoked), 0);
  EXPECT_EQ(Result(classic), 1);
}

TEST_F(CmsvfyTest, RevokingCrlCountsWhereverItStandsInTheList) {
  Trust("root_ca.der");
  const std::string revoked = SignedBy("revoked_signer");
  AddCrl("crl_revoking.der");
  AddCrl("crl_empty.der");
  // A newer CRL of the same issuer that does not list the signer does not clear it.
  AddCrlBytes(pkitest::MakeCrl({"root_ca.pem", "root_ca.key", 99, 0, {}}));
  EXPECT_EQ(Result(revoked), 0);
}

TEST_F(CmsvfyTest, PssSignedCrlRevokesToo) {
  Trust("root_ca.der");
  AddCrl("crl_pss_revoking.der");
  EXPECT_EQ(Result(SignedBy("revoked_signer")), 0);
  EXPECT_EQ(Result(SignedBy("classic_signer")), 1);
}

TEST_F(CmsvfyTest, CrlNotSignedByTheIssuerDoesNotCount) {
  Trust("root_ca.der");
  Trust("foreign_root.der");
  // The root's name, the foreign root's key: a forgery that must not revoke anything.
  AddCrlBytes(pkitest::MakeCrl({"root_ca.pem", "foreign_root.key", 7, 0, {"revoked_signer.pem"}}));
  const std::string revoked = SignedBy("revoked_signer");
  EXPECT_EQ(Result(revoked), 1);
  // The same CRL signed by the root does.
  AddCrlBytes(pkitest::MakeCrl({"root_ca.pem", "root_ca.key", 7, 0, {"revoked_signer.pem"}}));
  EXPECT_EQ(Result(revoked), 0);
}

TEST_F(CmsvfyTest, CrlOfAnotherIssuerDoesNotCount) {
  Trust("root_ca.der");
  Trust("foreign_root.der");
  // Signed by the foreign root and listing the serial of revoked_signer: another issuer's list.
  AddCrlBytes(
      pkitest::MakeCrl({"foreign_root.pem", "foreign_root.key", 3, 0, {"revoked_signer.pem"}}));
  EXPECT_EQ(Result(SignedBy("revoked_signer")), 1);
}

// ---------------------------------------------------------------- files and errors

TEST_F(CmsvfyTest, SignatureFilesThatAreNoSignedDataAreErrors) {
  Trust("root_ca.der");
  const Bytes good = pkitest::ReadBytes(SignedBy("classic_signer"));
  ASSERT_GT(good.size(), 100u);
  const std::string broken = Path("broken.cms");
  uint32_t status = 0;
  for (const size_t cut : {good.size() - 1, good.size() / 2, size_t{1}}) {
    pkitest::WriteBytes(broken, Bytes(good.begin(), good.begin() + static_cast<long>(cut)));
    EXPECT_EQ(Check(broken, source_, &status), kUntouched) << cut;
    EXPECT_EQ(status, CMSVFY_ERR_CMS) << cut;
  }
  pkitest::WriteBytes(broken, {});
  EXPECT_EQ(Check(broken, source_, &status), kUntouched);
  EXPECT_EQ(status, CMSVFY_ERR_CMS);
  Bytes longer = good;
  longer.push_back(0);
  pkitest::WriteBytes(broken, longer);
  EXPECT_EQ(Check(broken, source_, &status), kUntouched);
  EXPECT_EQ(status, CMSVFY_ERR_CMS);
  // A DER object that is no CMS, and a CMS of another type than SignedData.
  EXPECT_EQ(Check(Pki("crl_empty.der"), source_, &status), kUntouched);
  EXPECT_EQ(status, CMSVFY_ERR_CMS);
  ASSERT_EQ(pkitest::RunProgram({"openssl", "cms", "-data_create", "-binary", "-outform", "DER",
                                 "-in", source_, "-out", broken}),
            0);
  EXPECT_EQ(Check(broken, source_, &status), kUntouched);
  EXPECT_EQ(status, CMSVFY_ERR_CMS);
  // PEM is not DER.
  ASSERT_EQ(pkitest::Sign(source_, {{"classic_signer"}}, broken, {"-outform", "PEM"}), 0);
  EXPECT_EQ(Check(broken, source_, &status), kUntouched);
  EXPECT_EQ(status, CMSVFY_ERR_CMS);
}

TEST_F(CmsvfyTest, FilesThatCannotBeReadAreErrors) {
  Trust("root_ca.der");
  const std::string signature = SignedBy("classic_signer");
  uint32_t status = 0;
  errno = 0;
  EXPECT_EQ(Check(signature, Path("missing.bin"), &status), kUntouched);
  EXPECT_EQ(status, CMSVFY_ERR_IO);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(Check(Path("missing.cms"), source_, &status), kUntouched);
  EXPECT_EQ(status, CMSVFY_ERR_IO);
  EXPECT_EQ(Check(signature, kDir, &status), kUntouched);
  EXPECT_EQ(status, CMSVFY_ERR_IO);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(Check(kDir, source_, &status), kUntouched);
  EXPECT_EQ(status, CMSVFY_ERR_IO);
  // A FIFO without a writer is refused at once, not waited for.
  ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
  EXPECT_EQ(Check(signature, Path("fifo"), &status), kUntouched);
  EXPECT_EQ(status, CMSVFY_ERR_IO);
  EXPECT_EQ(Check(Path("fifo"), source_, &status), kUntouched);
  EXPECT_EQ(status, CMSVFY_ERR_IO);
}

TEST_F(CmsvfyTest, FilesAbove16MiBAreNoSignatureOrCrl) {
  const std::string huge = Path("huge");
  pkitest::WriteText(huge, "");
  std::filesystem::resize_file(huge, (16u << 20) + 1);  // sparse: no 16 MiB of writing
  uint32_t status = 0;
  EXPECT_EQ(Check(huge, source_, &status), kUntouched);
  EXPECT_EQ(status, CMSVFY_ERR_CMS);
  EXPECT_EQ(CmsvfyVerifyAddCrlFile(ctx_, huge.c_str()), CMSVFY_ERR_CRL);
  CMSVFY_CRL_S *crl = nullptr;
  EXPECT_EQ(CmsvfyDecodeCrlFile(ctx_, huge.c_str(), &crl), CMSVFY_ERR_CRL);
  EXPECT_EQ(crl, nullptr);
}

TEST_F(CmsvfyTest, CheckParameters) {
  int32_t result = kUntouched;
  const std::string signature = SignedBy("classic_signer");
  EXPECT_EQ(CmsvfyVerifyDetachSignatureQuick(nullptr, source_.c_str(), signature.c_str(), &result),
            CMSVFY_ERR_PARAM);
  EXPECT_EQ(CmsvfyVerifyDetachSignatureQuick(ctx_, nullptr, signature.c_str(), &result),
            CMSVFY_ERR_PARAM);
  EXPECT_EQ(CmsvfyVerifyDetachSignatureQuick(ctx_, source_.c_str(), nullptr, &result),
            CMSVFY_ERR_PARAM);
  EXPECT_EQ(CmsvfyVerifyDetachSignatureQuick(ctx_, source_.c_str(), signature.c_str(), nullptr),
            CMSVFY_ERR_PARAM);
  EXPECT_EQ(result, kUntouched);
}

TEST_F(CmsvfyTest, NothingIsLeftOnTheErrorQueueOrOpen) {
  Trust("root_ca.der");
  AddCrl("crl_revoking.der");
  const std::string signature = SignedBy("revoked_signer");
  ERR_raise(ERR_LIB_USER, 42);  // the caller's own entry
  const int fds = boardtest::CountOpenFds();
  uint32_t status = 0;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Check(signature, source_, &status), 0);
    EXPECT_EQ(Check(Path("none.cms"), source_, &status), kUntouched);
    EXPECT_EQ(CmsvfyVerifyAddCrlFile(ctx_, source_.c_str()), CMSVFY_ERR_CRL);
  }
  EXPECT_EQ(boardtest::CountOpenFds(), fds);
  EXPECT_EQ(ERR_GET_REASON(ERR_get_error()), 42);
  EXPECT_EQ(ERR_get_error(), 0u);
}

// ---------------------------------------------------------------- CRLs

TEST_F(CmsvfyTest, CrlsAreDerOrPem) {
  const std::string pem = Path("crl_revoking.pem");
  ASSERT_EQ(pkitest::CrlToPem(Pki("crl_revoking.der"), pem), 0);
  EXPECT_EQ(CmsvfyVerifyAddCrlFile(ctx_, pem.c_str()), CMSVFY_OK);
  EXPECT_EQ(CmsvfyVerifyAddCrlFile(ctx_, Pki("crl_empty.der").c_str()), CMSVFY_OK);
  const Bytes pemBytes = pkitest::ReadBytes(pem);
  EXPECT_EQ(CmsvfyVerifyAddCrl(ctx_, pemBytes.data(), static_cast<uint32_t>(pemBytes.size())),
            CMSVFY_OK);
  Bytes der = pkitest::ReadBytes(Pki("crl_empty.der"));
  const auto len = static_cast<uint32_t>(der.size());
  EXPECT_EQ(CmsvfyVerifyAddCrl(ctx_, der.data(), len), CMSVFY_OK);
  EXPECT_EQ(CmsvfyVerifyAddCrl(ctx_, der.data(), len - 1), CMSVFY_ERR_CRL);
  der.push_back(0);
  EXPECT_EQ(CmsvfyVerifyAddCrl(ctx_, der.data(), len + 1), CMSVFY_ERR_CRL);
  EXPECT_EQ(CmsvfyVerifyAddCrlFile(ctx_, Pki("root_ca.der").c_str()), CMSVFY_ERR_CRL);
  EXPECT_EQ(CmsvfyVerifyAddCrlFile(ctx_, Path("none.der").c_str()), CMSVFY_ERR_IO);
  EXPECT_EQ(CmsvfyVerifyAddCrlFile(ctx_, kDir), CMSVFY_ERR_IO);
  EXPECT_EQ(CmsvfyVerifyAddCrlFile(nullptr, pem.c_str()), CMSVFY_ERR_PARAM);
  EXPECT_EQ(CmsvfyVerifyAddCrlFile(ctx_, nullptr), CMSVFY_ERR_PARAM);
  EXPECT_EQ(CmsvfyVerifyAddCrl(nullptr, der.data(), len), CMSVFY_ERR_PARAM);
  EXPECT_EQ(CmsvfyVerifyAddCrl(ctx_, nullptr, len), CMSVFY_ERR_PARAM);
  EXPECT_EQ(CmsvfyVerifyAddCrl(ctx_, der.data(), 0), CMSVFY_ERR_PARAM);
}

TEST_F(CmsvfyTest, PemCrlRevokes) {
  Trust("root_ca.der");
  const std::string pem = Path("crl_revoking.pem");
  ASSERT_EQ(pkitest::CrlToPem(Pki("crl_revoking.der"), pem), 0);
  ASSERT_EQ(CmsvfyVerifyAddCrlFile(ctx_, pem.c_str()), CMSVFY_OK);
  EXPECT_EQ(Result(SignedBy("revoked_signer")), 0);
}

TEST_F(CmsvfyTest, DecodedCrlsMustBeSignedByATrustedCertificate) {
  CMSVFY_CRL_S *crl = nullptr;
  EXPECT_EQ(CmsvfyDecodeCrlFile(ctx_, Pki("crl_empty.der").c_str(), &crl), CMSVFY_ERR_CRL_TRUST);
  Trust("root_ca.der");
  EXPECT_EQ(CmsvfyDecodeCrlFile(ctx_, Pki("crl_foreign.der").c_str(), &crl), CMSVFY_ERR_CRL_TRUST);
  const Bytes forged =
      pkitest::MakeCrl({"root_ca.pem", "foreign_root.key", 9, 0, {"revoked_signer.pem"}});
  EXPECT_EQ(CmsvfyDecodeCrl(ctx_, forged.data(), static_cast<uint32_t>(forged.size()), &crl),
            CMSVFY_ERR_CRL_TRUST);
  EXPECT_EQ(crl, nullptr);
  EXPECT_EQ(CmsvfyDecodeCrlFile(ctx_, Pki("root_ca.der").c_str(), &crl), CMSVFY_ERR_CRL);
  EXPECT_EQ(CmsvfyDecodeCrlFile(ctx_, Path("none").c_str(), &crl), CMSVFY_ERR_IO);
  EXPECT_EQ(crl, nullptr);

  ASSERT_EQ(CmsvfyDecodeCrlFile(ctx_, Pki("crl_pss_revoking.der").c_str(), &crl), CMSVFY_OK);
  EXPECT_EQ(CmsvfyCrlFree(ctx_, crl), CMSVFY_OK);
  Trust("foreign_root.der");
  crl = nullptr;
  ASSERT_EQ(CmsvfyDecodeCrlFile(ctx_, Pki("crl_foreign.der").c_str(), &crl), CMSVFY_OK);
  EXPECT_EQ(CmsvfyCrlFree(ctx_, crl), CMSVFY_OK);
  const std::string pem = Path("crl.pem");
  ASSERT_EQ(pkitest::CrlToPem(Pki("crl_newer.der"), pem), 0);
  const Bytes pemBytes = pkitest::ReadBytes(pem);
  crl = nullptr;
  ASSERT_EQ(CmsvfyDecodeCrl(ctx_, pemBytes.data(), static_cast<uint32_t>(pemBytes.size()), &crl),
            CMSVFY_OK);
  EXPECT_EQ(CmsvfyCrlFree(ctx_, crl), CMSVFY_OK);
  EXPECT_EQ(CmsvfyCrlFree(ctx_, nullptr), CMSVFY_OK);
}

TEST_F(CmsvfyTest, DecodeParameters) {
  CMSVFY_CRL_S *crl = nullptr;
  const Bytes der = pkitest::ReadBytes(Pki("crl_empty.der"));
  const auto len = static_cast<uint32_t>(der.size());
  EXPECT_EQ(CmsvfyDecodeCrlFile(nullptr, Pki("crl_empty.der").c_str(), &crl), CMSVFY_ERR_PARAM);
  EXPECT_EQ(CmsvfyDecodeCrlFile(ctx_, nullptr, &crl), CMSVFY_ERR_PARAM);
  EXPECT_EQ(CmsvfyDecodeCrlFile(ctx_, Pki("crl_empty.der").c_str(), nullptr), CMSVFY_ERR_PARAM);
  EXPECT_EQ(CmsvfyDecodeCrl(nullptr, der.data(), len, &crl), CMSVFY_ERR_PARAM);
  EXPECT_EQ(CmsvfyDecodeCrl(ctx_, nullptr, len, &crl), CMSVFY_ERR_PARAM);
  EXPECT_EQ(CmsvfyDecodeCrl(ctx_, der.data(), 0, &crl), CMSVFY_ERR_PARAM);
  EXPECT_EQ(CmsvfyDecodeCrl(ctx_, der.data(), len, nullptr), CMSVFY_ERR_PARAM);
  EXPECT_EQ(crl, nullptr);
}

class CmsvfyCompareTest : public CmsvfyTest {
 protected:
  void SetUp() override {
    CmsvfyTest::SetUp();
    Trust("root_ca.der");
  }
  void TearDown() override {
    for (CMSVFY_CRL_S *crl : decoded_) {
      EXPECT_EQ(CmsvfyCrlFree(ctx_, crl), CMSVFY_OK);
    }
    CmsvfyTest::TearDown();
  }

  CMSVFY_CRL_S *Decode(const std::string &name) {
    CMSVFY_CRL_S *crl = nullptr;
    EXPECT_EQ(CmsvfyDecodeCrlFile(ctx_, Pki(name).c_str(), &crl), CMSVFY_OK) << name;
    decoded_.push_back(crl);
    return crl;
  }
  CMSVFY_CRL_S *Decode(const Bytes &der) {
    CMSVFY_CRL_S *crl = nullptr;
    EXPECT_EQ(CmsvfyDecodeCrl(ctx_, der.data(), static_cast<uint32_t>(der.size()), &crl),
              CMSVFY_OK);
    decoded_.push_back(crl);
    return crl;
  }
  uint32_t Newer(const CMSVFY_CRL_S *a, const CMSVFY_CRL_S *b) {
    uint32_t result = kUntouched;
    EXPECT_EQ(CmsvfyCrlCompare(ctx_, a, b, &result), CMSVFY_OK);
    return result;
  }

  std::vector<CMSVFY_CRL_S *> decoded_;
};

TEST_F(CmsvfyCompareTest, HigherCrlNumberIsNewer) {
  CMSVFY_CRL_S *older = Decode("crl_older.der");  // number 3
  CMSVFY_CRL_S *newer = Decode("crl_newer.der");  // number 4
  EXPECT_EQ(Newer(newer, older), 1u);
  EXPECT_EQ(Newer(older, newer), 0u);
  EXPECT_EQ(Newer(older, older), 0u);
  EXPECT_EQ(Newer(newer, Decode("crl_newer.der")), 0u);
  // The number decides even against the dates: number 5 issued before number 4.
  CMSVFY_CRL_S *tieEarly = Decode("crl_tie_early.der");
  EXPECT_EQ(Newer(tieEarly, newer), 1u);
  EXPECT_EQ(Newer(newer, tieEarly), 0u);
  // Schemes do not matter: PSS number 6 against classic number 4, and 1 against 3.
  EXPECT_EQ(Newer(Decode("crl_pss_revoking.der"), newer), 1u);
  EXPECT_EQ(Newer(Decode("crl_pss_empty.der"), older), 0u);
}

TEST_F(CmsvfyCompareTest, EqualNumbersCompareByIssueDate) {
  CMSVFY_CRL_S *early = Decode("crl_tie_early.der");
  CMSVFY_CRL_S *late = Decode("crl_tie_late.der");
  EXPECT_EQ(Newer(late, early), 1u);
  EXPECT_EQ(Newer(early, late), 0u);
  EXPECT_EQ(Newer(late, late), 0u);
}

TEST_F(CmsvfyCompareTest, WithoutBothNumbersTheIssueDateDecides) {
  CMSVFY_CRL_S *plainOld = Decode(pkitest::MakeCrl({"root_ca.pem", "root_ca.key", {}, 7200, {}}));
  CMSVFY_CRL_S *plainNew = Decode(pkitest::MakeCrl({"root_ca.pem", "root_ca.key", {}, 60, {}}));
  EXPECT_EQ(Newer(plainNew, plainOld), 1u);
  EXPECT_EQ(Newer(plainOld, plainNew), 0u);
  // crl_newer carries number 4 and was issued a day ago; a CRL without a number issued a
  // minute ago is newer, one issued four days ago is not.
  CMSVFY_CRL_S *numbered = Decode("crl_newer.der");
  EXPECT_EQ(Newer(plainNew, numbered), 1u);
  EXPECT_EQ(Newer(numbered, plainNew), 0u);
  CMSVFY_CRL_S *stale = Decode(pkitest::MakeCrl({"root_ca.pem", "root_ca.key", {}, 4 * 86400, {}}));
  EXPECT_EQ(Newer(stale, numbered), 0u);
  EXPECT_EQ(Newer(numbered, stale), 1u);
}

TEST_F(CmsvfyCompareTest, CompareParameters) {
  CMSVFY_CRL_S *crl = Decode("crl_empty.der");
  uint32_t result = kUntouched;
  EXPECT_EQ(CmsvfyCrlCompare(nullptr, crl, crl, &result), CMSVFY_ERR_PARAM);
  EXPECT_EQ(CmsvfyCrlCompare(ctx_, nullptr, crl, &result), CMSVFY_ERR_PARAM);
  EXPECT_EQ(CmsvfyCrlCompare(ctx_, crl, nullptr, &result), CMSVFY_ERR_PARAM);
  EXPECT_EQ(CmsvfyCrlCompare(ctx_, crl, crl, nullptr), CMSVFY_ERR_PARAM);
  EXPECT_EQ(result, static_cast<uint32_t>(kUntouched));
}

}  // namespace
