// BOOT_INIT_LoadCryptoSymbols on a board with the system crypto library, and with stand-ins
// under its usual name.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

class LoadCryptoTest : public DigestTest {
 protected:
  uint32_t Load() {
    handle_ = {};
    return BOOT_INIT_LoadCryptoSymbols(&handle_);
  }
  // Closes what Load handed over, as every caller of LoadCryptoSymbols must.
  void Close() {
    if (handle_.handle != nullptr) {
      ::dlclose(handle_.handle);
      handle_.handle = nullptr;
    }
  }
  void TearDown() override {
    Close();
    DigestTest::TearDown();
  }

  BOOT_INIT_CRYPTO_HANDLE_S handle_{};
};

TEST_F(LoadCryptoTest, HandsOverTheLibraryAndItsThreeEntryPoints) {
  ASSERT_EQ(Load(), 0u);
  ASSERT_NE(handle_.handle, nullptr);
  ASSERT_NE(handle_.init, nullptr);
  ASSERT_NE(handle_.update, nullptr);
  ASSERT_NE(handle_.final, nullptr);
  EXPECT_EQ(handle_.init, ::dlsym(handle_.handle, "SHA256_Init"));
  EXPECT_EQ(handle_.update, ::dlsym(handle_.handle, "SHA256_Update"));
  EXPECT_EQ(handle_.final, ::dlsym(handle_.handle, "SHA256_Final"));
  // The entry points work on the handle's own state.
  std::vector<std::uint8_t> digest(32, 0);
  EXPECT_EQ(handle_.init(&handle_.ctx), 1);
  EXPECT_EQ(handle_.update(&handle_.ctx, "abc", 3), 1);
  EXPECT_EQ(handle_.final(digest.data(), &handle_.ctx), 1);
  EXPECT_EQ(digesttest::Hex(digest), digesttest::kAbcDigest);
  // The handle is the caller's until it closes it.
  EXPECT_EQ(digestfaults::Get().opened, 1);
  EXPECT_EQ(digestfaults::Get().closed, 0);
  Close();
  EXPECT_EQ(digestfaults::Get().closed, 1);
  EXPECT_THAT(digesttest::DlopenNames(), ElementsAre("libcrypto.so lazy opened"));
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(LoadCryptoTest, FailedNameFormatReturnsTheFormattersFailure) {
  formatfaults::FailFormatOf("%s", "libcrypto.so");
  EXPECT_EQ(digesttest::WithoutLeftovers([&] { return Load(); }), 0xFFFFFFFFu);
  EXPECT_EQ(formatfaults::Get().failed, 1);
  EXPECT_EQ(handle_.handle, nullptr);
  EXPECT_THAT(digestfaults::Get().dlopenCalls, testing::IsEmpty());
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Load crypto, sprintf libcrypto.so unsuccessfully"));
}

TEST_F(LoadCryptoTest, FailedNameFormatFailsTheDigest) {
  testsupport::WriteFile(kFile, "abc");
  formatfaults::FailFormatOf("%s", "libcrypto.so");
  EXPECT_EQ(DigestOf(kFile), std::string(64, '0'));
  EXPECT_EQ(result_, 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Load crypto, sprintf libcrypto.so unsuccessfully",
                          "[BOOT_INIT][ERROR]:load crypto symbols failed"));
}

TEST_F(LoadCryptoTest, EmptyHandle) {
  EXPECT_EQ(BOOT_INIT_LoadCryptoSymbols(nullptr), 0xFFFFFFFFu);
  EXPECT_THAT(digestfaults::Get().dlopenCalls, testing::IsEmpty());
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:input param is null when check null 1"));
}

// Stand-ins under the usual name "libcrypto.so", found first through the board's library
// directory.
TEST_F(LoadCryptoTest, LibraryWithoutSha256IsClosedAgain) {
  testsupport::PointPlatformLibrary("libcrypto.so", CRYPTO_WITHOUT_SHA256_LIBRARY);
  EXPECT_EQ(digesttest::WithoutLeftovers([&] { return Load(); }), 0xFFFFFFFFu);
  EXPECT_EQ(handle_.handle, nullptr);
  EXPECT_EQ(handle_.init, nullptr);
  // The lookup's failure is cleared: it does not linger for the next caller of dlerror.
  EXPECT_EQ(::dlerror(), nullptr);
  EXPECT_FALSE(testsupport::IsLibraryLoaded("libcrypto.so"));
  EXPECT_THAT(digesttest::DlopenNames(), ElementsAre("libcrypto.so lazy opened"));
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:LoadCryptoSymbols,dlsym functions from "
                                     "libcrypto.so unsuccessfully."));
}

TEST_F(LoadCryptoTest, LibraryWithoutSha256FinalIsClosedAgain) {
  testsupport::PointPlatformLibrary("libcrypto.so", CRYPTO_PARTIAL_LIBRARY);
  ASSERT_EQ(testsupport::DlsymReason("libcrypto.so", RTLD_LAZY, "SHA256_Init"), "<found>");
  ASSERT_EQ(testsupport::DlsymReason("libcrypto.so", RTLD_LAZY, "SHA256_Update"), "<found>");
  ASSERT_NE(testsupport::DlsymReason("libcrypto.so", RTLD_LAZY, "SHA256_Final"), "<found>");
  digestfaults::Reset();
  EXPECT_EQ(digesttest::WithoutLeftovers([&] { return Load(); }), 0xFFFFFFFFu);
  EXPECT_EQ(handle_.handle, nullptr);
  EXPECT_EQ(::dlerror(), nullptr);
  EXPECT_FALSE(testsupport::IsLibraryLoaded("libcrypto.so"));
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:LoadCryptoSymbols,dlsym functions from "
                                     "libcrypto.so unsuccessfully."));
}

TEST_F(LoadCryptoTest, DigestWithALibraryWithoutSha256) {
  testsupport::PointPlatformLibrary("libcrypto.so", CRYPTO_WITHOUT_SHA256_LIBRARY);
  testsupport::WriteFile(kFile, "abc");
  EXPECT_EQ(DigestOf(kFile), std::string(64, '0'));
  EXPECT_EQ(result_, 0xFFFFFFFFu);
  EXPECT_FALSE(testsupport::IsLibraryLoaded("libcrypto.so"));
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:LoadCryptoSymbols,dlsym functions from "
                                     "libcrypto.so unsuccessfully.",
                                     "[BOOT_INIT][ERROR]:load crypto symbols failed"));
}

TEST_F(LoadCryptoTest, IsFileDamagedWithALibraryWithoutSha256) {
  testsupport::PointPlatformLibrary("libcrypto.so", CRYPTO_WITHOUT_SHA256_LIBRARY);
  testsupport::WriteFile(kFile, "abc");
  EXPECT_EQ(digesttest::WithoutLeftovers([&] {
              return BOOT_INIT_SHA_IsFileDamaged(kFile.c_str(), digesttest::kAbcDigest.c_str());
            }),
            1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:LoadCryptoSymbols,dlsym functions from "
                                     "libcrypto.so unsuccessfully.",
                                     "[BOOT_INIT][ERROR]:load crypto symbols failed",
                                     "[BOOT_INIT][ERROR]:Calculate file hash value failed, "
                                     "result = 4294967295"));
}

}  // namespace
