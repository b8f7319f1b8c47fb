// Shared parts of the digest tests: independent digests (the system's sha256sum), test file
// contents, and the check that no descriptor and no library handle outlives a call.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "board_files.hpp"
#include "bootinit/common.h"
#include "digest_faults.hpp"
#include "format_faults.hpp"

namespace digesttest {

inline const std::string kEmptyDigest =
    "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
// The digest of "abc", a published test vector of SHA-256.
inline const std::string kAbcDigest =
    "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

// Digest text of what a shell command writes, as the system's sha256sum computes it.
inline std::string Sha256sum(const std::string &command) {
  FILE *pipe = ::popen((command + " | sha256sum").c_str(), "r");
  if (pipe == nullptr) {
    return "<popen failed>";
  }
  char line[128] = {};
  const bool read = std::fgets(line, sizeof(line), pipe) != nullptr;
  const int status = ::pclose(pipe);
  if (!read || status != 0) {
    return "<sha256sum failed>";
  }
  return std::string(line).substr(0, 64);
}

inline std::string Sha256sumOfFile(const std::string &path) { return Sha256sum("cat " + path); }

// length bytes of path starting at offset, as sha256sum digests them.
inline std::string Sha256sumOfRange(const std::string &path, std::size_t offset,
                                    std::size_t length) {
  return Sha256sum("tail -c +" + std::to_string(offset + 1) + " " + path + " | head -c " +
                   std::to_string(length));
}

// Bytes that differ from chunk to chunk, so that a chunk hashed twice or skipped shows.
inline std::string Pattern(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<char>((i * 131 + i / 4093 + 7) & 0xFF);
  }
  return bytes;
}

// Lowercase hexadecimal text, written here without the code under test.
inline std::string Hex(const std::uint8_t *bytes, std::size_t count) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0x0F];
  }
  return text;
}

inline std::string Hex(const std::vector<std::uint8_t> &bytes) {
  return Hex(bytes.data(), bytes.size());
}

// Names and flags of the dlopen calls since the last reset.
inline std::vector<std::string> DlopenNames() {
  std::vector<std::string> names;
  for (const auto &call : digestfaults::Get().dlopenCalls) {
    names.push_back(call.name + (call.flags == RTLD_LAZY ? " lazy" : " other flags") +
                    (call.opened ? " opened" : " failed"));
  }
  return names;
}

// Runs call and checks that it leaves as many descriptors open as it found and closes every
// library handle it opened.
template <typename Call>
auto WithoutLeftovers(Call &&call) {
  const int fds = testsupport::CountOpenFds();
  const int opened = digestfaults::Get().opened;
  const int closed = digestfaults::Get().closed;
  auto result = call();
  EXPECT_EQ(testsupport::CountOpenFds(), fds) << "a descriptor outlived the call";
  EXPECT_EQ(digestfaults::Get().opened - opened, digestfaults::Get().closed - closed)
      << "a library handle outlived the call";
  return result;
}

class DigestTest : public testing::Test {
 protected:
  void SetUp() override {
    digestfaults::Reset();
    formatfaults::Reset();
    testsupport::StartWithEmptyLogs();
    testsupport::RemovePath("/tmp/crypto_calls");
  }
  void TearDown() override {
    formatfaults::Reset();
    EXPECT_EQ(digestfaults::Get().opened, digestfaults::Get().closed);
    digestfaults::Reset();
  }

  // The file's digest through BOOT_INIT_Sha256Get as text, checked for leftovers; result in
  // result_.
  std::string DigestOf(const std::string &path) {
    std::vector<std::uint8_t> digest(32, 0);
    result_ = WithoutLeftovers(
        [&] { return BOOT_INIT_Sha256Get(path.c_str(), digest.data(), BOOT_INIT_SHA256_LEN); });
    return Hex(digest);
  }

  uint32_t result_ = 0xDEADBEEF;
};

}  // namespace digesttest
