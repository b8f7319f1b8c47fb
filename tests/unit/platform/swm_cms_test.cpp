// Tests of libswm's CMS signature and CRL checks on the board's trust anchor ([security]
// root_ca), the kernel's CRL file /dev/module_crl, the CRL scheme, forced failures, and the file
// size and whole-buffer write helpers.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "board_env_files.hpp"
#include "pki_files.hpp"
#include "swm.h"

namespace {

using pkitest::Bytes;
using pkitest::Pki;
using pkitest::Scheme;

constexpr const char *kDir = "/tmp/swm_cms_test";
constexpr const char *kAnchor = "/opt/kytv8/security/root_ca.der";
constexpr const char *kModuleCrl = "/dev/module_crl";
const std::string kDescription =
    std::string("[board]\nname=demo\n[security]\nroot_ca=") + kAnchor + "\n";

std::string Path(const std::string &name) { return std::string(kDir) + "/" + name; }

class SwmCmsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    boardtest::RemovePath(kDir);
    std::filesystem::create_directories(kDir);
    boardtest::WriteDescription(kDescription);
    pkitest::WriteBytes(kAnchor, pkitest::ReadBytes(Pki("root_ca.der")));
    pkitest::WriteText(source_, "module bytes\n");
  }
  // Back to the state of a new board for the next case in the same board.
  void TearDown() override {
    boardtest::RemovePath(kDir);
    boardtest::RemovePath(kModuleCrl);
    boardtest::WriteFile(kModuleCrl, "");
  }

  std::string SignedBy(const std::string &signer, Scheme scheme = Scheme::kClassic) {
    const std::string out = Path(signer + (scheme == Scheme::kPss ? ".pss.cms" : ".cms"));
    EXPECT_EQ(pkitest::Sign(source_, signer, out, scheme), 0);
    return out;
  }
  uint32_t Classic(const std::string &signature, const std::string &crl) {
    return SWM_VerifyCms(source_.c_str(), signature.c_str(), crl.c_str());
  }
  uint32_t Pss(const std::string &signature) {
    return SWM_VerifyPssCms(source_.c_str(), signature.c_str());
  }

  const std::string source_ = Path("module.ko");
};

// ---------------------------------------------------------------- classic check

TEST_F(SwmCmsTest, ClassicSignaturePasses) {
  EXPECT_EQ(Classic(SignedBy("classic_signer"), Pki("crl_empty.der")), SWM_OK);
  EXPECT_EQ(Classic(SignedBy("pss_signer", Scheme::kPss), Pki("crl_empty.der")), SWM_OK);
  const std::string pem = Path("crl.pem");
  ASSERT_EQ(pkitest::CrlToPem(Pki("crl_revoking.der"), pem), 0);
  EXPECT_EQ(Classic(SignedBy("classic_signer"), pem), SWM_OK);
}

TEST_F(SwmCmsTest, ClassicRejections) {
  const std::string crl = Pki("crl_revoking.der");
  const std::string classic = SignedBy("classic_signer");
  EXPECT_EQ(Classic(SignedBy("foreign_signer"), crl), SWM_CMS_ERR_UNTRUSTED);
  EXPECT_EQ(Classic(SignedBy("expired_signer"), crl), SWM_CMS_ERR_EXPIRED);
  EXPECT_EQ(Classic(SignedBy("revoked_signer"), crl), SWM_CMS_ERR_REVOKED);
  EXPECT_EQ(Classic(SignedBy("revoked_signer"), Pki("crl_empty.der")), SWM_OK);
  EXPECT_EQ(Classic(classic, crl), SWM_OK);
  pkitest::WriteText(source_, "module bytez\n");
  EXPECT_EQ(Classic(classic, crl), SWM_CMS_ERR_MISMATCH);
}

TEST_F(SwmCmsTest, PemRevokingCrl) {
  const std::string pem = Path("crl.pem");
  ASSERT_EQ(pkitest::CrlToPem(Pki("crl_pss_revoking.der"), pem), 0);
  EXPECT_EQ(Classic(SignedBy("revoked_signer"), pem), SWM_CMS_ERR_REVOKED);
}

TEST_F(SwmCmsTest, SignatureFileThatIsNoSignedData) {
  const Bytes good = pkitest::ReadBytes(SignedBy("classic_signer"));
  const std::string cut = Path("cut.cms");
  pkitest::WriteBytes(cut, Bytes(good.begin(), good.end() - 10));
  EXPECT_EQ(Classic(cut, Pki("crl_empty.der")), SWM_CMS_ERR_SIGNATURE);
  EXPECT_EQ(Pss(cut), SWM_CMS_ERR_SIGNATURE);
  EXPECT_EQ(Classic(Pki("crl_empty.der"), Pki("crl_empty.der")), SWM_CMS_ERR_SIGNATURE);
}

TEST_F(SwmCmsTest, CrlMustBeTheAnchorsAndWellFormed) {
  const std::string signature = SignedBy("classic_signer");
  EXPECT_EQ(Classic(signature, Pki("crl_foreign.der")), SWM_CMS_ERR_CRL);
  EXPECT_EQ(Classic(signature, Pki("root_ca.der")), SWM_CMS_ERR_CRL);
  EXPECT_EQ(Classic(signature, source_), SWM_CMS_ERR_CRL);
  const std::string forged = Path("forged.der");
  pkitest::WriteBytes(forged, pkitest::MakeCrl({"root_ca.pem", "foreign_root.key", 8, 0, {}}));
  EXPECT_EQ(Classic(signature, forged), SWM_CMS_ERR_CRL);
  Bytes longer = pkitest::ReadBytes(Pki("crl_empty.der"));
  longer.push_back(0);
  pkitest::WriteBytes(Path("longer.der"), longer);
  EXPECT_EQ(Classic(signature, Path("longer.der")), SWM_CMS_ERR_CRL);
}

TEST_F(SwmCmsTest, FilesThatCannotBeReadKeepErrno) {
  const std::string signature = SignedBy("classic_signer");
  errno = 0;
  EXPECT_EQ(Classic(signature, Path("none.crl")), SWM_ERR_IO);
  EXPECT_EQ(errno, ENOENT);
  errno = 0;
  EXPECT_EQ(SWM_VerifyCms(Path("none").c_str(), signature.c_str(), Pki("crl_empty.der").c_str()),
            SWM_ERR_IO);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(Classic(Path("none.cms"), Pki("crl_empty.der")), SWM_ERR_IO);
  EXPECT_EQ(Classic(kDir, Pki("crl_empty.der")), SWM_ERR_IO);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(SWM_VerifyPssCms(Path("none").c_str(), signature.c_str()), SWM_ERR_IO);
}

TEST_F(SwmCmsTest, TrustAnchorMustBeDescribedAndADerCertificate) {
  const std::string signature = SignedBy("pss_signer", Scheme::kPss);
  const std::string crl = Pki("crl_empty.der");
  const auto expectAnchorError = [&](const std::string &why) {
    EXPECT_EQ(Classic(signature, crl), SWM_CMS_ERR_TRUST_ANCHOR) << why;
    EXPECT_EQ(Pss(signature), SWM_CMS_ERR_TRUST_ANCHOR) << why;
  };
  boardtest::WriteDescription("[board]\nname=demo\n");
  expectAnchorError("not described");
  boardtest::WriteDescription("[security]\nroot_ca=\n");
  expectAnchorError("empty");
  boardtest::WriteDescription("[security]\nroot_ca=/opt/none.der\n");
  expectAnchorError("missing file");
  boardtest::WriteDescription("root_ca=x\n[security]\n");
  expectAnchorError("malformed description");
  boardtest::WriteDescription(kDescription);
  pkitest::WriteBytes(kAnchor, pkitest::ReadBytes(Pki("root_ca.pem")));
  expectAnchorError("PEM");
  pkitest::WriteBytes(kAnchor, pkitest::ReadBytes(Pki("crl_empty.der")));
  expectAnchorError("not a certificate");
  pkitest::WriteBytes(kAnchor, pkitest::ReadBytes(Pki("foreign_root.der")));
  EXPECT_EQ(Pss(signature), SWM_CMS_ERR_UNTRUSTED);  // another anchor: a foreign signer
  EXPECT_EQ(Classic(SignedBy("foreign_signer"), Pki("crl_foreign.der")), SWM_OK);
}

TEST_F(SwmCmsTest, ParametersComeFirst) {
  boardtest::WriteDescription(
      "[fail]\nSWM_VerifyCms=7\nSWM_VerifyPssCms=7\nSWM_GetCrlSignatureAlgs=7\n");
  const char *s = source_.c_str();
  EXPECT_EQ(SWM_VerifyCms(nullptr, s, s), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_VerifyCms(s, nullptr, s), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_VerifyCms(s, s, nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_VerifyPssCms(nullptr, s), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_VerifyPssCms(s, nullptr), SWM_ERR_PARAM);
  uint32_t alg = 9;
  int reserved = 0;
  EXPECT_EQ(SWM_GetCrlSignatureAlgs(nullptr, &alg, nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_GetCrlSignatureAlgs(s, nullptr, nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_GetCrlSignatureAlgs(Pki("crl_empty.der").c_str(), &alg, &reserved), SWM_ERR_PARAM);
  EXPECT_EQ(alg, 9u);
}

// ---------------------------------------------------------------- PSS check

TEST_F(SwmCmsTest, NewBoardHasAnEmptyModuleCrl) {
  struct stat info {};
  ASSERT_EQ(stat(kModuleCrl, &info), 0);
  EXPECT_TRUE(S_ISREG(info.st_mode));
  EXPECT_EQ(info.st_size, 0);
}

TEST_F(SwmCmsTest, PssSignaturePassesWithoutModuleCrl) {
  const std::string signature = SignedBy("pss_signer", Scheme::kPss);
  EXPECT_EQ(Pss(signature), SWM_OK);  // empty file
  boardtest::RemovePath(kModuleCrl);
  EXPECT_EQ(Pss(signature), SWM_OK);  // no file
  EXPECT_EQ(Pss(SignedBy("revoked_signer", Scheme::kPss)), SWM_OK);
  EXPECT_EQ(Pss(SignedBy("classic_signer", Scheme::kPss)), SWM_OK);  // the scheme counts
}

TEST_F(SwmCmsTest, EverySignerMustUsePss) {
  EXPECT_EQ(Pss(SignedBy("pss_signer")), SWM_CMS_ERR_NOT_PSS);
  EXPECT_EQ(Pss(SignedBy("classic_signer")), SWM_CMS_ERR_NOT_PSS);
  const std::string both = Path("both.cms");
  ASSERT_EQ(pkitest::Sign(source_, {{"pss_signer", Scheme::kPss}, {"classic_signer"}}, both), 0);
  EXPECT_EQ(Pss(both), SWM_CMS_ERR_NOT_PSS);
  EXPECT_EQ(Classic(both, Pki("crl_empty.der")), SWM_OK);
  const std::string twoPss = Path("two.cms");
  ASSERT_EQ(pkitest::Sign(source_, {{"pss_signer", Scheme::kPss}, {"classic_signer", Scheme::kPss}},
                          twoPss),
            0);
  EXPECT_EQ(Pss(twoPss), SWM_OK);
}

TEST_F(SwmCmsTest, PssRejections) {
  pkitest::WriteBytes(kModuleCrl, pkitest::ReadBytes(Pki("crl_pss_revoking.der")));
  EXPECT_EQ(Pss(SignedBy("revoked_signer", Scheme::kPss)), SWM_CMS_ERR_REVOKED);
  EXPECT_EQ(Pss(SignedBy("foreign_signer", Scheme::kPss)), SWM_CMS_ERR_UNTRUSTED);
  EXPECT_EQ(Pss(SignedBy("expired_signer", Scheme::kPss)), SWM_CMS_ERR_EXPIRED);
  const std::string signature = SignedBy("pss_signer", Scheme::kPss);
  EXPECT_EQ(Pss(signature), SWM_OK);
  pkitest::WriteText(source_, "module bytes?\n");
  EXPECT_EQ(Pss(signature), SWM_CMS_ERR_MISMATCH);
}

TEST_F(SwmCmsTest, ModuleCrlIsReadFromItsStart) {
  const std::string revoked = SignedBy("revoked_signer", Scheme::kPss);
  // A shorter CRL written over a longer one: the old tail stays in the file.
  Bytes file = pkitest::ReadBytes(Pki("crl_pss_revoking.der"));
  const Bytes tail(300, 0xA5);
  file.insert(file.end(), tail.begin(), tail.end());
  pkitest::WriteBytes(kModuleCrl, file);
  EXPECT_EQ(Pss(revoked), SWM_CMS_ERR_REVOKED);
  // Any CRL of the anchor counts, whatever its scheme.
  pkitest::WriteBytes(kModuleCrl, pkitest::ReadBytes(Pki("crl_revoking.der")));
  EXPECT_EQ(Pss(revoked), SWM_CMS_ERR_REVOKED);
  pkitest::WriteBytes(kModuleCrl, pkitest::ReadBytes(Pki("crl_pss_empty.der")));
  EXPECT_EQ(Pss(revoked), SWM_OK);
}

TEST_F(SwmCmsTest, ModuleCrlThatIsNoCrlOfTheAnchor) {
  const std::string signature = SignedBy("pss_signer", Scheme::kPss);
  pkitest::WriteBytes(kModuleCrl, pkitest::ReadBytes(Pki("crl_foreign.der")));
  EXPECT_EQ(Pss(signature), SWM_CMS_ERR_CRL);
  pkitest::WriteText(kModuleCrl, "not a CRL");
  EXPECT_EQ(Pss(signature), SWM_CMS_ERR_CRL);
  const std::string pem = Path("crl.pem");
  ASSERT_EQ(pkitest::CrlToPem(Pki("crl_pss_empty.der"), pem), 0);
  pkitest::WriteBytes(kModuleCrl, pkitest::ReadBytes(pem));  // the kernel's file is DER
  EXPECT_EQ(Pss(signature), SWM_CMS_ERR_CRL);
  boardtest::RemovePath(kModuleCrl);
  std::filesystem::create_directory(kModuleCrl);
  EXPECT_EQ(Pss(signature), SWM_CMS_ERR_CRL);  // there, but unreadable
}

// ---------------------------------------------------------------- CRL scheme

TEST_F(SwmCmsTest, CrlSignatureScheme) {
  uint32_t alg = 9;
  EXPECT_EQ(SWM_GetCrlSignatureAlgs(Pki("crl_pss_empty.der").c_str(), &alg, nullptr), SWM_OK);
  EXPECT_EQ(alg, SWM_CRL_ALG_PSS);
  EXPECT_EQ(SWM_GetCrlSignatureAlgs(Pki("crl_empty.der").c_str(), &alg, nullptr), SWM_OK);
  EXPECT_EQ(alg, SWM_CRL_ALG_CLASSIC);
  EXPECT_EQ(SWM_GetCrlSignatureAlgs(Pki("crl_foreign.der").c_str(), &alg, nullptr), SWM_OK);
  EXPECT_EQ(alg, SWM_CRL_ALG_CLASSIC);  // no trust needed to tell the scheme
  const std::string pem = Path("crl.pem");
  ASSERT_EQ(pkitest::CrlToPem(Pki("crl_pss_revoking.der"), pem), 0);
  EXPECT_EQ(SWM_GetCrlSignatureAlgs(pem.c_str(), &alg, nullptr), SWM_OK);
  EXPECT_EQ(alg, SWM_CRL_ALG_PSS);
  alg = 9;
  EXPECT_EQ(SWM_GetCrlSignatureAlgs(Pki("root_ca.der").c_str(), &alg, nullptr), SWM_CMS_ERR_CRL);
  errno = 0;
  EXPECT_EQ(SWM_GetCrlSignatureAlgs(Path("none").c_str(), &alg, nullptr), SWM_ERR_IO);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(alg, 9u);
}

// ---------------------------------------------------------------- forced failures

TEST_F(SwmCmsTest, ForcedFailuresReplaceTheResult) {
  const std::string signature = SignedBy("pss_signer", Scheme::kPss);
  boardtest::WriteDescription(kDescription +
                              "[fail]\nSWM_VerifyCms=0x55\nSWM_VerifyPssCms=420\n"
                              "SWM_GetCrlSignatureAlgs=9\n");
  errno = 0;
  EXPECT_EQ(Classic(signature, Pki("crl_empty.der")), 0x55u);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(Pss(signature), 420u);
  uint32_t alg = 7;
  EXPECT_EQ(SWM_GetCrlSignatureAlgs(Pki("crl_pss_empty.der").c_str(), &alg, nullptr), 9u);
  EXPECT_EQ(alg, SWM_CRL_ALG_PSS);  // the work is done and the output written
  boardtest::WriteDescription(kDescription + "[fail]\nSWM_VerifyCms=0\nSWM_VerifyPssCms=x\n");
  EXPECT_EQ(Classic(signature, Pki("crl_empty.der")), SWM_OK);
  EXPECT_EQ(Pss(signature), SWM_OK);
}

// ---------------------------------------------------------------- file size and writes

TEST_F(SwmCmsTest, FileSize) {
  int64_t size = -1;
  EXPECT_EQ(SWM_GetFileSize(source_.c_str(), &size), SWM_OK);
  EXPECT_EQ(size, 13);
  pkitest::WriteText(Path("empty"), "");
  EXPECT_EQ(SWM_GetFileSize(Path("empty").c_str(), &size), SWM_OK);
  EXPECT_EQ(size, 0);
  std::filesystem::create_symlink(source_, Path("link"));
  EXPECT_EQ(SWM_GetFileSize(Path("link").c_str(), &size), SWM_OK);
  EXPECT_EQ(size, 13);
  size = -1;
  EXPECT_EQ(SWM_GetFileSize(kDir, &size), SWM_ERR_IO);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(SWM_GetFileSize(Path("none").c_str(), &size), SWM_ERR_IO);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(SWM_GetFileSize("/dev/null", &size), SWM_ERR_IO);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(size, -1);
  EXPECT_EQ(SWM_GetFileSize(nullptr, &size), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_GetFileSize(source_.c_str(), nullptr), SWM_ERR_PARAM);
  boardtest::WriteDescription("[fail]\nSWM_GetFileSize=0x31\n");
  EXPECT_EQ(SWM_GetFileSize(source_.c_str(), &size), 0x31u);
  EXPECT_EQ(size, 13);
  EXPECT_EQ(errno, EIO);
}

TEST_F(SwmCmsTest, WriteSendsEveryByteThroughShortWrites) {
  int fds[2] = {-1, -1};
  ASSERT_EQ(pipe(fds), 0);
  // Four times a pipe's buffer: the writer blocks and resumes with partial writes.
  std::vector<uint8_t> data(4 * 65536 + 123);
  for (size_t i = 0; i < data.size(); ++i) {
    data[i] = static_cast<uint8_t>(i * 7);
  }
  std::vector<uint8_t> received;
  std::thread reader([&] {
    uint8_t chunk[1000];
    ssize_t got = 0;
    while ((got = read(fds[0], chunk, sizeof(chunk))) > 0) {
      received.insert(received.end(), chunk, chunk + got);
    }
  });
  EXPECT_EQ(SWM_Write(fds[1], data.data(), data.size()), static_cast<ssize_t>(data.size()));
  close(fds[1]);
  reader.join();
  close(fds[0]);
  EXPECT_EQ(received, data);
}

TEST_F(SwmCmsTest, WriteFailures) {
  const int fd = open(source_.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  errno = 0;
  EXPECT_EQ(SWM_Write(fd, "x", 1), -1);  // a descriptor not open for writing
  EXPECT_EQ(errno, EBADF);
  close(fd);
  EXPECT_EQ(SWM_Write(-1, "x", 1), -1);
  EXPECT_EQ(errno, EBADF);
  const int out = open(Path("out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GE(out, 0);
  EXPECT_EQ(SWM_Write(out, nullptr, 1), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(SWM_Write(out, nullptr, 0), 0);
  EXPECT_EQ(SWM_Write(out, "abc", 3), 3);
  boardtest::WriteDescription("[fail]\nSWM_Write=5\n");
  EXPECT_EQ(SWM_Write(out, "def", 3), -1);
  EXPECT_EQ(errno, EIO);
  close(out);
  EXPECT_EQ(boardtest::ReadFile(Path("out")), "abc");  // nothing written by the forced call
}

}  // namespace
