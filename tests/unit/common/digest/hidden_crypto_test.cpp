// The digest functions on boards without the crypto library's usual name "libcrypto.so" (the
// board hides every file of that name from the loader): with nothing under the backup name
// either, with the real library under the backup name "libcrypto.so.1.0.0", and with a stand-in
// without SHA-256 under it.
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

#include "board_facts.hpp"
#include "bootinit/common.h"
#include "digest_support.hpp"

using digesttest::DigestTest;
using testing::ElementsAre;
using testsupport::MainLog;

namespace {

const std::string kFile = "/opt/digest/file.bin";
const std::string kBackupName = "libcrypto.so.1.0.0";

class HiddenCryptoTest : public DigestTest {
 protected:
  void SetUp() override {
    DigestTest::SetUp();
    // The board really lacks the usual name; the backup name exists nowhere unless a test
    // puts it into the board's library directory.
    ASSERT_NE(testsupport::DlopenReason("libcrypto.so", RTLD_LAZY), "<opened>");
    ASSERT_NE(testsupport::DlopenReason(kBackupName, RTLD_LAZY), "<opened>");
    digestfaults::Reset();
    testsupport::WriteFile(kFile, digesttest::Pattern(100000));
  }

  static std::string BackupMissingLine() {
    return "[BOOT_INIT][ERROR]:dlopen backup so libcrypto.so.1.0.0 unsuccessfully, reason:" +
           testsupport::DlopenReason(kBackupName, RTLD_LAZY);
  }
};

TEST_F(HiddenCryptoTest, ReasonNamesTheBackupLibrary) {
  EXPECT_EQ(testsupport::DlopenReason(kBackupName, RTLD_LAZY),
            "libcrypto.so.1.0.0: cannot open shared object file: No such file or directory");
}

TEST_F(HiddenCryptoTest, NoCryptoLibraryAtAll) {
  BOOT_INIT_CRYPTO_HANDLE_S handle{};
  EXPECT_EQ(digesttest::WithoutLeftovers([&] { return BOOT_INIT_LoadCryptoSymbols(&handle); }),
            0xFFFFFFFFu);
  EXPECT_EQ(handle.handle, nullptr);
  // Both names are tried, the usual one first; only the backup's failure is told.
  EXPECT_THAT(digesttest::DlopenNames(),
              ElementsAre("libcrypto.so lazy failed", "libcrypto.so.1.0.0 lazy failed"));
  EXPECT_THAT(MainLog(), ElementsAre(BackupMissingLine()));
}

TEST_F(HiddenCryptoTest, DigestWithoutCryptoLibrary) {
  EXPECT_EQ(DigestOf(kFile), std::string(64, '0'));
  EXPECT_EQ(result_, 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre(BackupMissingLine(), "[BOOT_INIT][ERROR]:load crypto symbols failed"));
}

TEST_F(HiddenCryptoTest, DigestOfADescriptorWithoutCryptoLibrary) {
  const int fd = ::open(kFile.c_str(), O_RDONLY);
  ASSERT_GE(fd, 0);
  std::vector<std::uint8_t> digest(32, 0);
  EXPECT_EQ(digesttest::WithoutLeftovers(
                [&] { return BOOT_INIT_Sha256GetWithFd(fd, 100, digest.data(), 32); }),
            0xFFFFFFFFu);
  EXPECT_EQ(::lseek(fd, 0, SEEK_CUR), 0);
  ::close(fd);
  EXPECT_THAT(MainLog(),
              ElementsAre(BackupMissingLine(), "[BOOT_INIT][ERROR]:load crypto symbols failed"));
}

TEST_F(HiddenCryptoTest, IsFileDamagedWithoutCryptoLibrary) {
  const std::string expected = digesttest::Sha256sumOfFile(kFile);
  EXPECT_EQ(digesttest::WithoutLeftovers(
                [&] { return BOOT_INIT_SHA_IsFileDamaged(kFile.c_str(), expected.c_str()); }),
            1u);
  EXPECT_THAT(MainLog(),
              ElementsAre(BackupMissingLine(), "[BOOT_INIT][ERROR]:load crypto symbols failed",
                          "[BOOT_INIT][ERROR]:Calculate file hash value failed, "
                          "result = 4294967295"));
}

TEST_F(HiddenCryptoTest, OnlyTheBackupNameIsEnough) {
  testsupport::PointPlatformLibrary(kBackupName, CRYPTO_BACKUP_COPY);
  EXPECT_EQ(DigestOf(kFile), digesttest::Sha256sumOfFile(kFile));
  EXPECT_EQ(result_, 0u);
  EXPECT_THAT(digesttest::DlopenNames(),
              ElementsAre("libcrypto.so lazy failed", "libcrypto.so.1.0.0 lazy opened"));
  // Nothing is said about the usual name.
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(HiddenCryptoTest, OnlyTheBackupNameForDescriptorsAndChecks) {
  testsupport::PointPlatformLibrary(kBackupName, CRYPTO_BACKUP_COPY);
  const int fd = ::open(kFile.c_str(), O_RDONLY);
  ASSERT_GE(fd, 0);
  std::vector<std::uint8_t> digest(32, 0);
  EXPECT_EQ(digesttest::WithoutLeftovers(
                [&] { return BOOT_INIT_Sha256GetWithFd(fd, 40000, digest.data(), 32); }),
            0u);
  ::close(fd);
  EXPECT_EQ(digesttest::Hex(digest), digesttest::Sha256sumOfRange(kFile, 0, 40000));
  const std::string expected = digesttest::Sha256sumOfFile(kFile);
  EXPECT_EQ(BOOT_INIT_SHA_IsFileDamaged(kFile.c_str(), expected.c_str()), 0u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(HiddenCryptoTest, BackupLibraryWithoutSha256) {
  testsupport::PointPlatformLibrary(kBackupName, CRYPTO_WITHOUT_SHA256_LIBRARY);
  EXPECT_EQ(DigestOf(kFile), std::string(64, '0'));
  EXPECT_EQ(result_, 0xFFFFFFFFu);
  EXPECT_EQ(::dlerror(), nullptr);
  EXPECT_FALSE(testsupport::IsLibraryLoaded("libcrypto.so"));
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:LoadCryptoSymbols,dlsym functions from "
                                     "libcrypto.so.1.0.0 unsuccessfully.",
                                     "[BOOT_INIT][ERROR]:load crypto symbols failed"));
}

TEST_F(HiddenCryptoTest, FailedBackupNameFormat) {
  testsupport::PointPlatformLibrary(kBackupName, CRYPTO_BACKUP_COPY);
  formatfaults::FailFormatOf("%s", "libcrypto.so.1.0.0");
  BOOT_INIT_CRYPTO_HANDLE_S handle{};
  EXPECT_EQ(digesttest::WithoutLeftovers([&] { return BOOT_INIT_LoadCryptoSymbols(&handle); }),
            0xFFFFFFFFu);
  EXPECT_EQ(handle.handle, nullptr);
  EXPECT_THAT(digesttest::DlopenNames(), ElementsAre("libcrypto.so lazy failed"));
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Load crypto, sprintf libcrypto.so.1.0.0 "
                                     "unsuccessfully"));
}

}  // namespace
