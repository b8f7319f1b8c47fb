// Helpers for the tests of the CMS and CRL checks: the build's test PKI (TEST_PKI_DIR), files
// signed on the spot with the openssl tool, and CRLs made with OpenSSL for the cases the test
// PKI does not hold (a forged issuer, no CRL number).
#pragma once

#include <fcntl.h>
#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

extern char **environ;

namespace pkitest {

inline std::string Pki(const std::string &name) { return std::string(TEST_PKI_DIR) + "/" + name; }

using Bytes = std::vector<uint8_t>;

inline Bytes ReadBytes(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteBytes(const std::string &path, const Bytes &bytes) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char *>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
}

inline void WriteText(const std::string &path, const std::string &text) {
  WriteBytes(path, Bytes(text.begin(), text.end()));
}

// Runs a program (no shell) with its output dropped: its exit status, or -1.
inline int RunProgram(std::vector<std::string> args) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  std::vector<char *> argv;
  for (std::string &arg : args) {
    argv.push_back(arg.data());
  }
  argv.push_back(nullptr);
  pid_t pid = -1;
  const int rc = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) {
    return -1;
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

enum class Scheme { kClassic, kPss };

struct Signer {
  std::string name;  // classic_signer, pss_signer, ... of the test PKI
  Scheme scheme = Scheme::kClassic;
};

// A detached DER CMS signature of source (SHA-256) by every signer, written to out:
// openssl cms -sign -binary -outform DER -md sha256 -signer S.pem -inkey S.key [...]
inline int Sign(const std::string &source, const std::vector<Signer> &signers,
                const std::string &out, const std::vector<std::string> &extra = {}) {
  std::vector<std::string> args = {"openssl",  "cms", "-sign", "-binary",
                                   "-outform", "DER", "-md",   "sha256"};
  for (const Signer &signer : signers) {
    args.insert(args.end(),
                {"-signer", Pki(signer.name + ".pem"), "-inkey", Pki(signer.name + ".key")});
    if (signer.scheme == Scheme::kPss) {
      args.insert(args.end(), {"-keyopt", "rsa_padding_mode:pss"});
    }
  }
  args.insert(args.end(), extra.begin(), extra.end());
  args.insert(args.end(), {"-in", source, "-out", out});
  return RunProgram(args);
}

inline int Sign(const std::string &source, const std::string &signer, const std::string &out,
                Scheme scheme = Scheme::kClassic) {
  return Sign(source, {{signer, scheme}}, out);
}

// A PEM copy of a DER CRL, made with the openssl tool.
inline int CrlToPem(const std::string &der, const std::string &pem) {
  return RunProgram(
      {"openssl", "crl", "-inform", "DER", "-in", der, "-outform", "PEM", "-out", pem});
}

struct CertFree {
  void operator()(X509 *cert) const { X509_free(cert); }
};
struct KeyFree {
  void operator()(EVP_PKEY *key) const { EVP_PKEY_free(key); }
};
struct CrlFree {
  void operator()(X509_CRL *crl) const { X509_CRL_free(crl); }
};
struct BioFree {
  void operator()(BIO *bio) const { BIO_free(bio); }
};
struct IntegerFree {
  void operator()(ASN1_INTEGER *number) const { ASN1_INTEGER_free(number); }
};
struct TimeFree {
  void operator()(ASN1_TIME *time) const { ASN1_TIME_free(time); }
};

inline std::unique_ptr<X509, CertFree> LoadCert(const std::string &name) {
  std::unique_ptr<BIO, BioFree> in(BIO_new_file(Pki(name).c_str(), "r"));
  return std::unique_ptr<X509, CertFree>(in ? PEM_read_bio_X509(in.get(), nullptr, nullptr, nullptr)
                                            : nullptr);
}

inline std::unique_ptr<EVP_PKEY, KeyFree> LoadKey(const std::string &name) {
  std::unique_ptr<BIO, BioFree> in(BIO_new_file(Pki(name).c_str(), "r"));
  return std::unique_ptr<EVP_PKEY, KeyFree>(
      in ? PEM_read_bio_PrivateKey(in.get(), nullptr, nullptr, nullptr) : nullptr);
}

inline std::unique_ptr<ASN1_TIME, TimeFree> TimeFromNow(long seconds) {
  return std::unique_ptr<ASN1_TIME, TimeFree>(ASN1_TIME_set(nullptr, std::time(nullptr) + seconds));
}

// What a CRL made on the spot says and who signs it.
struct CrlContent {
  std::string issuerCert;  // its subject becomes the CRL's issuer (a PEM of the test PKI)
  std::string signingKey;  // the key that signs it (a key of the test PKI)
  std::optional<long> number;
  long lastUpdateAgo = 0;            // seconds before now
  std::vector<std::string> revoked;  // certificates (PEM of the test PKI) it lists
};

inline bool AddRevoked(X509_CRL *crl, const std::string &certName) {
  const std::unique_ptr<X509, CertFree> cert = LoadCert(certName);
  X509_REVOKED *entry = X509_REVOKED_new();
  const std::unique_ptr<ASN1_TIME, TimeFree> when = TimeFromNow(-3600);
  if (cert == nullptr || entry == nullptr ||
      X509_REVOKED_set_serialNumber(entry, X509_get_serialNumber(cert.get())) != 1 ||
      X509_REVOKED_set_revocationDate(entry, when.get()) != 1 ||
      X509_CRL_add0_revoked(crl, entry) != 1) {
    X509_REVOKED_free(entry);
    return false;
  }
  return true;
}

inline bool FillCrl(X509_CRL *crl, const CrlContent &content, X509 *issuer) {
  const std::unique_ptr<ASN1_TIME, TimeFree> last = TimeFromNow(-content.lastUpdateAgo);
  const std::unique_ptr<ASN1_TIME, TimeFree> next = TimeFromNow(30 * 86400);
  if (X509_CRL_set_version(crl, 1) != 1 ||
      X509_CRL_set_issuer_name(crl, X509_get_subject_name(issuer)) != 1 ||
      X509_CRL_set1_lastUpdate(crl, last.get()) != 1 ||
      X509_CRL_set1_nextUpdate(crl, next.get()) != 1) {
    return false;
  }
  for (const std::string &name : content.revoked) {
    if (!AddRevoked(crl, name)) {
      return false;
    }
  }
  if (content.number) {
    const std::unique_ptr<ASN1_INTEGER, IntegerFree> number(ASN1_INTEGER_new());
    if (number == nullptr || ASN1_INTEGER_set(number.get(), *content.number) != 1 ||
        X509_CRL_add1_ext_i2d(crl, NID_crl_number, number.get(), 0, 0) != 1) {
      return false;
    }
  }
  return X509_CRL_sort(crl) == 1;
}

// The DER bytes of the CRL that content describes (empty when it cannot be made).
inline Bytes MakeCrl(const CrlContent &content) {
  const std::unique_ptr<X509, CertFree> issuer = LoadCert(content.issuerCert);
  const std::unique_ptr<EVP_PKEY, KeyFree> key = LoadKey(content.signingKey);
  const std::unique_ptr<X509_CRL, CrlFree> crl(X509_CRL_new());
  if (issuer == nullptr || key == nullptr || crl == nullptr ||
      !FillCrl(crl.get(), content, issuer.get()) ||
      X509_CRL_sign(crl.get(), key.get(), EVP_sha256()) <= 0) {
    return {};
  }
  unsigned char *der = nullptr;
  const int len = i2d_X509_CRL(crl.get(), &der);
  if (len <= 0) {
    return {};
  }
  Bytes bytes(der, der + len);
  OPENSSL_free(der);
  return bytes;
}

}  // namespace pkitest
