// BOOT_INIT_Sha256Get: the digest of a whole file, on a board with the system crypto library.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "board_facts.hpp"
#include "bootinit/common.h"
#include "digest_support.hpp"

using digesttest::DigestTest;
using digesttest::Hex;
using testing::ElementsAre;
using testing::MatchesRegex;
using testsupport::MainLog;

namespace {

const std::string kFile = "/opt/digest/file.bin";
const std::string kCalls = "/tmp/crypto_calls";

using Sha256GetTest = DigestTest;

TEST_F(Sha256GetTest, EmptyFileGivesTheDigestOfNothing) {
  testsupport::WriteFile(kFile, "");
  EXPECT_EQ(DigestOf(kFile), digesttest::kEmptyDigest);
  EXPECT_EQ(result_, 0u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(Sha256GetTest, KnownText) {
  testsupport::WriteFile(kFile, "abc");
  EXPECT_EQ(DigestOf(kFile), digesttest::kAbcDigest);
  EXPECT_EQ(result_, 0u);
}

TEST_F(Sha256GetTest, FilesAroundAndAcrossTheReadBuffer) {
  for (const std::size_t size : {1u, 32767u, 32768u, 32769u, 65536u, 200000u, 1048577u}) {
    testsupport::WriteFile(kFile, digesttest::Pattern(size));
    EXPECT_EQ(DigestOf(kFile), digesttest::Sha256sumOfFile(kFile)) << size;
    EXPECT_EQ(result_, 0u) << size;
  }
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(Sha256GetTest, OpensTheUsualLibraryNameLazily) {
  testsupport::WriteFile(kFile, "abc");
  (void)DigestOf(kFile);
  EXPECT_THAT(digesttest::DlopenNames(), ElementsAre("libcrypto.so lazy opened"));
  EXPECT_EQ(digestfaults::Get().closed, 1);
}

TEST_F(Sha256GetTest, ShortDigestLengthStillWritesTheWholeDigest) {
  testsupport::WriteFile(kFile, "abc");
  for (const uint32_t length : {0u, 16u, 31u, 32u}) {
    std::vector<std::uint8_t> digest(40, 0xA5);
    EXPECT_EQ(BOOT_INIT_Sha256Get(kFile.c_str(), digest.data(), length), 0u) << length;
    EXPECT_EQ(Hex(digest.data(), 32), digesttest::kAbcDigest) << length;
    EXPECT_EQ(Hex(digest.data() + 32, 8), "a5a5a5a5a5a5a5a5") << length;
  }
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(Sha256GetTest, DigestLengthAbove32IsRefusedBeforeAnythingIsOpened) {
  testsupport::WriteFile(kFile, "abc");
  for (const uint32_t length : {33u, 64u, 0xFFFFFFFFu}) {
    std::vector<std::uint8_t> digest(64, 0xA5);
    EXPECT_EQ(digesttest::WithoutLeftovers(
                  [&] { return BOOT_INIT_Sha256Get(kFile.c_str(), digest.data(), length); }),
              0x10000001u);
    EXPECT_EQ(digest, std::vector<std::uint8_t>(64, 0xA5));
  }
  EXPECT_THAT(digestfaults::Get().dlopenCalls, testing::IsEmpty());
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Calculate file hash value, value len(33) is invalid",
                          "[BOOT_INIT][ERROR]:Calculate file hash value, value len(64) is invalid",
                          "[BOOT_INIT][ERROR]:Calculate file hash value, value len(4294967295) "
                          "is invalid"));
}

TEST_F(Sha256GetTest, MissingFileCannotBeOpened) {
  EXPECT_EQ(DigestOf("/opt/digest/missing.bin"), std::string(64, '0'));
  EXPECT_EQ(result_, 0x10000011u);
  // SWM_Open's I/O error (2) with open(2)'s ENOENT (2).
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:open file /opt/digest/missing.bin "
                                     "failed, ret=2, errno=2."));
  EXPECT_EQ(digestfaults::Get().opened, 1);
}

TEST_F(Sha256GetTest, PathThroughAFileIsNotADirectory) {
  testsupport::WriteFile(kFile, "abc");
  EXPECT_EQ(DigestOf(kFile + "/inner"), std::string(64, '0'));
  EXPECT_EQ(result_, 0x10000011u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:open file /opt/digest/file.bin/inner "
                                     "failed, ret=2, errno=20."));
}

TEST_F(Sha256GetTest, ReadErrorEndsTheFileWithoutAMessage) {
  // A directory opens read-only, but reading it fails: the digest covers what was read, nothing.
  testsupport::MakeDir("/opt/digest/dir");
  EXPECT_EQ(DigestOf("/opt/digest/dir"), digesttest::kEmptyDigest);
  EXPECT_EQ(result_, 0u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(Sha256GetTest, NoMemoryForTheReadBuffer) {
  testsupport::WriteFile(kFile, "abc");
  digestfaults::Get().failMallocOfSize = 32768;
  EXPECT_EQ(DigestOf(kFile), std::string(64, '0'));
  EXPECT_EQ(result_, 0x10000005u);
  EXPECT_EQ(digestfaults::Get().mallocFailures, 1);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Failed malloc memory!"));
}

TEST_F(Sha256GetTest, FailedZeroingOnlyWarns) {
  testsupport::WriteFile(kFile, "abc");
  digestfaults::Get().failMemsetSizes = {sizeof(BOOT_INIT_CRYPTO_HANDLE_S), 32768};
  EXPECT_EQ(DigestOf(kFile), digesttest::kAbcDigest);
  EXPECT_EQ(result_, 0u);
  EXPECT_EQ(digestfaults::Get().memsetFailures, 2);
  EXPECT_THAT(MainLog(), ElementsAre(MatchesRegex(R"(\[BOOT_INIT\]\[WARNING\]:memset )"
                                                  R"(unsuccessfully: BOOT_INIT_Sha256Get, )"
                                                  R"(line: [0-9]+)"),
                                     MatchesRegex(R"(\[BOOT_INIT\]\[WARNING\]:memset )"
                                                  R"(unsuccessfully: BOOT_INIT_Sha256Get, )"
                                                  R"(line: [0-9]+)")));
}

TEST_F(Sha256GetTest, EmptyPointers) {
  std::vector<std::uint8_t> digest(32, 0);
  EXPECT_EQ(BOOT_INIT_Sha256Get(nullptr, digest.data(), 32), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_Sha256Get(kFile.c_str(), nullptr, 32), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:input param is null when check null 1",
                                     "[BOOT_INIT][ERROR]:input param is null when check null 1"));
  EXPECT_THAT(digestfaults::Get().dlopenCalls, testing::IsEmpty());
}

// With a stand-in crypto library that records its calls: the file is fed in pieces of the read
// buffer's size, whatever the file's size, into the one state that init prepared.
class Sha256GetCallsTest : public DigestTest {
 protected:
  void SetUp() override {
    DigestTest::SetUp();
    testsupport::PointPlatformLibrary("libcrypto.so", CRYPTO_RECORDING_LIBRARY);
  }
};

TEST_F(Sha256GetCallsTest, FileIsHashedInPiecesOfTheReadBuffer) {
  testsupport::WriteFile(kFile, digesttest::Pattern(100000));
  // The stand-in's digest is the total length hashed (100000 = 0x186A0), four times over.
  EXPECT_EQ(DigestOf(kFile),
            std::string("a086010000000000a086010000000000") + "a086010000000000a086010000000000");
  EXPECT_EQ(result_, 0u);
  EXPECT_EQ(testsupport::ReadFile(kCalls),
            "init\nupdate 32768\nupdate 32768\nupdate 32768\nupdate 1696\nfinal\n");
  EXPECT_FALSE(testsupport::IsLibraryLoaded("libcrypto.so"));
}

TEST_F(Sha256GetCallsTest, EmptyFileIsNeverUpdated) {
  testsupport::WriteFile(kFile, "");
  (void)DigestOf(kFile);
  EXPECT_EQ(result_, 0u);
  EXPECT_EQ(testsupport::ReadFile(kCalls), "init\nfinal\n");
}

TEST_F(Sha256GetCallsTest, LibraryIsClosedAfterAFailedOpen) {
  (void)DigestOf("/opt/digest/missing.bin");
  EXPECT_EQ(result_, 0x10000011u);
  EXPECT_EQ(testsupport::ReadFile(kCalls), "");
  EXPECT_FALSE(testsupport::IsLibraryLoaded("libcrypto.so"));
}

TEST_F(Sha256GetCallsTest, LibraryIsClosedAfterAMissingBuffer) {
  testsupport::WriteFile(kFile, "abc");
  digestfaults::Get().failMallocOfSize = 32768;
  (void)DigestOf(kFile);
  EXPECT_EQ(result_, 0x10000005u);
  EXPECT_EQ(testsupport::ReadFile(kCalls), "");
  EXPECT_FALSE(testsupport::IsLibraryLoaded("libcrypto.so"));
}

TEST_F(Sha256GetCallsTest, LoadedLibraryProbeSeesAnOpenLibrary) {
  // The probe above would pass vacuously if it could not see the stand-in at all.
  void *handle = ::dlopen("libcrypto.so", RTLD_LAZY);
  ASSERT_NE(handle, nullptr);
  EXPECT_TRUE(testsupport::IsLibraryLoaded("libcrypto.so"));
  ::dlclose(handle);
  EXPECT_FALSE(testsupport::IsLibraryLoaded("libcrypto.so"));
}

}  // namespace
