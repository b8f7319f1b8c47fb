// BOOT_INIT_TransHashValueToString: digest bytes as lowercase hexadecimal text.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "bootinit/common.h"
#include "digest_support.hpp"

using digesttest::DigestTest;
using testing::ElementsAre;
using testsupport::MainLog;

namespace {

class HashTextTest : public DigestTest {
 protected:
  void SetUp() override {
    DigestTest::SetUp();
    for (std::size_t i = 0; i < digest_.size(); ++i) {
      digest_[i] = static_cast<std::uint8_t>(i * 0x11 + 0x0A);
    }
    hex_ = digesttest::Hex(digest_.data(), 32);
  }

  // The text buffer after the call: textLen bytes, prefilled with '#'.
  std::string Text(uint32_t digestLen, uint32_t textLen) {
    std::vector<char> text(80, '#');
    BOOT_INIT_TransHashValueToString(digest_.data(), digestLen, text.data(), textLen);
    return std::string(text.data(), text.size());
  }

  std::vector<std::uint8_t> digest_ = std::vector<std::uint8_t>(32);
  std::string hex_;
};

TEST_F(HashTextTest, HexDigitsAreKnown) {
  EXPECT_EQ(hex_.substr(0, 8), "0a1b2c3d");
  EXPECT_EQ(hex_.substr(56), "e6f70819");
}

TEST_F(HashTextTest, WholeDigestInTheTextBuffer) {
  EXPECT_EQ(Text(32, 65), hex_ + std::string(1, '\0') + std::string(15, '#'));
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(HashTextTest, AllByteValuesAreLowercaseWithLeadingZeros) {
  std::vector<std::uint8_t> bytes = {0x00, 0x01, 0x0F, 0x10, 0x7F, 0x80, 0xAB, 0xFF};
  std::vector<char> text(17, '#');
  BOOT_INIT_TransHashValueToString(bytes.data(), 8, text.data(), 17);
  EXPECT_EQ(std::string(text.data()), "00010f107f80abff");
}

TEST_F(HashTextTest, FewerBytesGiveAShorterText) {
  EXPECT_EQ(Text(3, 65), hex_.substr(0, 6) + std::string(1, '\0') + std::string(73, '#'));
}

TEST_F(HashTextTest, DigestLengthZeroLeavesTheTextAlone) {
  EXPECT_EQ(Text(0, 65), std::string(80, '#'));
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(HashTextTest, TooSmallTextBufferTruncates) {
  EXPECT_EQ(Text(32, 64), hex_.substr(0, 63) + std::string(1, '\0') + std::string(16, '#'));
  EXPECT_EQ(Text(32, 7), hex_.substr(0, 6) + std::string(1, '\0') + std::string(73, '#'));
  EXPECT_EQ(Text(32, 6), hex_.substr(0, 5) + std::string(1, '\0') + std::string(74, '#'));
  EXPECT_EQ(Text(32, 2), hex_.substr(0, 1) + std::string(1, '\0') + std::string(78, '#'));
  EXPECT_EQ(Text(32, 1), std::string(1, '\0') + std::string(79, '#'));
  EXPECT_EQ(Text(32, 0), std::string(80, '#'));
  // Truncation is not an error.
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(HashTextTest, EmptyPointers) {
  std::vector<char> text(65, '#');
  BOOT_INIT_TransHashValueToString(nullptr, 32, text.data(), 65);
  BOOT_INIT_TransHashValueToString(digest_.data(), 32, nullptr, 65);
  EXPECT_EQ(std::string(text.data(), text.size()), std::string(65, '#'));
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:input param is null when check null 1",
                                     "[BOOT_INIT][ERROR]:input param is null when check null 1"));
}

}  // namespace
