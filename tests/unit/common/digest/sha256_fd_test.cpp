// BOOT_INIT_Sha256GetWithFd: the digest of the next bytes of an open descriptor.
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
using digesttest::Hex;
using testing::ElementsAre;
using testing::MatchesRegex;
using testsupport::MainLog;

namespace {

const std::string kFile = "/opt/digest/range.bin";
constexpr std::size_t kFileSize = 200000;

class Sha256FdTest : public DigestTest {
 protected:
  void SetUp() override {
    DigestTest::SetUp();
    testsupport::WriteFile(kFile, digesttest::Pattern(kFileSize));
    fd_ = ::open(kFile.c_str(), O_RDONLY);
    ASSERT_GE(fd_, 0);
  }
  void TearDown() override {
    ::close(fd_);
    DigestTest::TearDown();
  }

  // The digest of the next length bytes of fd_ as text; the result in result_.
  std::string RangeDigest(uint32_t length, uint32_t digestLen = 32) {
    std::vector<std::uint8_t> digest(32, 0);
    result_ = digesttest::WithoutLeftovers(
        [&] { return BOOT_INIT_Sha256GetWithFd(fd_, length, digest.data(), digestLen); });
    return Hex(digest);
  }

  off_t Position() const { return ::lseek(fd_, 0, SEEK_CUR); }

  int fd_ = -1;
};

TEST_F(Sha256FdTest, LengthZeroGivesTheDigestOfNothing) {
  ASSERT_EQ(::lseek(fd_, 100, SEEK_SET), 100);
  EXPECT_EQ(RangeDigest(0), digesttest::kEmptyDigest);
  EXPECT_EQ(result_, 0u);
  EXPECT_EQ(Position(), 100);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(Sha256FdTest, LengthsAroundAndAcrossTheReadBuffer) {
  for (const uint32_t length : {1u, 32767u, 32768u, 32769u, 65536u, 98305u, 199990u}) {
    ASSERT_EQ(::lseek(fd_, 10, SEEK_SET), 10);
    EXPECT_EQ(RangeDigest(length), digesttest::Sha256sumOfRange(kFile, 10, length)) << length;
    EXPECT_EQ(result_, 0u) << length;
    // The descriptor is left where the range ended.
    EXPECT_EQ(Position(), 10 + static_cast<off_t>(length)) << length;
  }
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(Sha256FdTest, WholeFileAndTheDescriptorStaysOpen) {
  EXPECT_EQ(RangeDigest(kFileSize), digesttest::Sha256sumOfFile(kFile));
  EXPECT_EQ(result_, 0u);
  EXPECT_EQ(Position(), static_cast<off_t>(kFileSize));
  EXPECT_NE(::fcntl(fd_, F_GETFD), -1);
  EXPECT_THAT(digesttest::DlopenNames(), ElementsAre("libcrypto.so lazy opened"));
}

TEST_F(Sha256FdTest, ConsecutiveRangesFollowEachOther) {
  EXPECT_EQ(RangeDigest(50000), digesttest::Sha256sumOfRange(kFile, 0, 50000));
  EXPECT_EQ(RangeDigest(50000), digesttest::Sha256sumOfRange(kFile, 50000, 50000));
  EXPECT_EQ(Position(), 100000);
}

TEST_F(Sha256FdTest, LengthBeyondTheFileFails) {
  ASSERT_EQ(::lseek(fd_, 100000, SEEK_SET), 100000);
  EXPECT_EQ(RangeDigest(100001), std::string(64, '0'));
  EXPECT_EQ(result_, 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Read file failed"));
  // What was read stays read: the descriptor is not moved back.
  EXPECT_EQ(Position(), static_cast<off_t>(kFileSize));
}

TEST_F(Sha256FdTest, LengthBeyondTheFileWithinTheFirstPiece) {
  ASSERT_EQ(::lseek(fd_, static_cast<off_t>(kFileSize) - 5, SEEK_SET), kFileSize - 5);
  EXPECT_EQ(RangeDigest(6), std::string(64, '0'));
  EXPECT_EQ(result_, 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Read file failed"));
}

TEST_F(Sha256FdTest, BadDescriptorFailsEvenForLengthZero) {
  for (const uint32_t length : {0u, 10u}) {
    std::vector<std::uint8_t> digest(32, 0);
    EXPECT_EQ(digesttest::WithoutLeftovers(
                  [&] { return BOOT_INIT_Sha256GetWithFd(-1, length, digest.data(), 32); }),
              0xFFFFFFFFu)
        << length;
  }
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Read file failed",
                                     "[BOOT_INIT][ERROR]:Read file failed"));
}

TEST_F(Sha256FdTest, DigestLengthMustBeExactly32) {
  for (const uint32_t digestLen : {0u, 31u, 33u}) {
    EXPECT_EQ(RangeDigest(10, digestLen), std::string(64, '0'));
    EXPECT_EQ(result_, 0x10000001u) << digestLen;
  }
  EXPECT_EQ(Position(), 0);
  EXPECT_THAT(digestfaults::Get().dlopenCalls, testing::IsEmpty());
  EXPECT_THAT(
      MainLog(),
      ElementsAre("[BOOT_INIT][ERROR]:Calculate file hash value, value len(0) is invalid",
                  "[BOOT_INIT][ERROR]:Calculate file hash value, value len(31) is invalid",
                  "[BOOT_INIT][ERROR]:Calculate file hash value, value len(33) is invalid"));
}

TEST_F(Sha256FdTest, NoMemoryForTheReadBuffer) {
  digestfaults::Get().failMallocOfSize = 32768;
  EXPECT_EQ(RangeDigest(10), std::string(64, '0'));
  EXPECT_EQ(result_, 0x10000005u);
  EXPECT_EQ(Position(), 0);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Failed malloc memory!"));
}

TEST_F(Sha256FdTest, FailedZeroingOnlyWarns) {
  digestfaults::Get().failMemsetSizes = {sizeof(BOOT_INIT_CRYPTO_HANDLE_S), 32768};
  EXPECT_EQ(RangeDigest(40000), digesttest::Sha256sumOfRange(kFile, 0, 40000));
  EXPECT_EQ(result_, 0u);
  EXPECT_EQ(digestfaults::Get().memsetFailures, 2);
  EXPECT_THAT(MainLog(), ElementsAre(MatchesRegex(R"(\[BOOT_INIT\]\[WARNING\]:memset )"
                                                  R"(unsuccessfully: BOOT_INIT_Sha256GetWithFd, )"
                                                  R"(line: [0-9]+)"),
                                     MatchesRegex(R"(\[BOOT_INIT\]\[WARNING\]:memset )"
                                                  R"(unsuccessfully: BOOT_INIT_Sha256GetWithFd, )"
                                                  R"(line: [0-9]+)")));
}

TEST_F(Sha256FdTest, EmptyDigestPointer) {
  EXPECT_EQ(BOOT_INIT_Sha256GetWithFd(fd_, 10, nullptr, 32), 0xFFFFFFFFu);
  EXPECT_EQ(Position(), 0);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:input param is null when check null 1"));
}

// With the recording stand-in: whole pieces of the read buffer, then the rest, into one state.
class Sha256FdCallsTest : public Sha256FdTest {
 protected:
  void SetUp() override {
    Sha256FdTest::SetUp();
    testsupport::PointPlatformLibrary("libcrypto.so", CRYPTO_RECORDING_LIBRARY);
  }
  static std::string Calls() { return testsupport::ReadFile("/tmp/crypto_calls"); }
};

TEST_F(Sha256FdCallsTest, RangeIsHashedInPiecesOfTheReadBuffer) {
  (void)RangeDigest(70000);
  EXPECT_EQ(result_, 0u);
  EXPECT_EQ(Calls(), "init\nupdate 32768\nupdate 32768\nupdate 4464\nfinal\n");
  EXPECT_FALSE(testsupport::IsLibraryLoaded("libcrypto.so"));
}

TEST_F(Sha256FdCallsTest, ExactMultipleOfTheBufferEndsWithoutAnEmptyPiece) {
  (void)RangeDigest(65536);
  EXPECT_EQ(Calls(), "init\nupdate 32768\nupdate 32768\nfinal\n");
}

TEST_F(Sha256FdCallsTest, LengthZeroIsOneEmptyPiece) {
  (void)RangeDigest(0);
  EXPECT_EQ(Calls(), "init\nupdate 0\nfinal\n");
}

TEST_F(Sha256FdCallsTest, ShortReadStopsBeforeTheShortPieceIsHashed) {
  ASSERT_EQ(::lseek(fd_, static_cast<off_t>(kFileSize) - 40000, SEEK_SET), kFileSize - 40000);
  (void)RangeDigest(40001);
  EXPECT_EQ(result_, 0xFFFFFFFFu);
  EXPECT_EQ(Calls(), "init\nupdate 32768\n");
  EXPECT_FALSE(testsupport::IsLibraryLoaded("libcrypto.so"));
}

}  // namespace
