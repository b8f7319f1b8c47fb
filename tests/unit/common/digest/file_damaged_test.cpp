// BOOT_INIT_SHA_IsFileDamaged: a file's digest against the expected digest text.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <string>

#include "bootinit/common.h"
#include "digest_support.hpp"

using digesttest::DigestTest;
using testing::ElementsAre;
using testsupport::MainLog;

namespace {

const std::string kFile = "/opt/digest/checked.bin";

class FileDamagedTest : public DigestTest {
 protected:
  void SetUp() override {
    DigestTest::SetUp();
    testsupport::WriteFile(kFile, digesttest::Pattern(70000));
    expected_ = digesttest::Sha256sumOfFile(kFile);
    ASSERT_EQ(expected_.size(), 64u);
  }

  static uint32_t Damaged(const char *path, const char *expectedHex) {
    return digesttest::WithoutLeftovers(
        [&] { return BOOT_INIT_SHA_IsFileDamaged(path, expectedHex); });
  }

  std::string expected_;
};

TEST_F(FileDamagedTest, IntactFile) {
  EXPECT_EQ(Damaged(kFile.c_str(), expected_.c_str()), 0u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(FileDamagedTest, EmptyFileAgainstTheDigestOfNothing) {
  testsupport::WriteFile(kFile, "");
  EXPECT_EQ(Damaged(kFile.c_str(), digesttest::kEmptyDigest.c_str()), 0u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(FileDamagedTest, ChangedFileIsDamaged) {
  std::string bytes = digesttest::Pattern(70000);
  bytes[40000] = static_cast<char>(bytes[40000] ^ 1);
  testsupport::WriteFile(kFile, bytes);
  const std::string actual = digesttest::Sha256sumOfFile(kFile);
  EXPECT_EQ(Damaged(kFile.c_str(), expected_.c_str()), 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Calculate file hash value, not equal. "
                                     "pcRightShaVal:" +
                                     expected_ + ", acShaStrVal:" + actual + "."));
}

TEST_F(FileDamagedTest, UpperCaseExpectedDigestNeverMatches) {
  std::string upper = expected_;
  for (char &c : upper) {
    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  }
  ASSERT_NE(upper, expected_);
  EXPECT_EQ(Damaged(kFile.c_str(), upper.c_str()), 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Calculate file hash value, not equal. "
                                     "pcRightShaVal:" +
                                     upper + ", acShaStrVal:" + expected_ + "."));
}

TEST_F(FileDamagedTest, ExpectedDigestMustBeTheWholeText) {
  const std::string prefix = expected_.substr(0, 63);
  const std::string longer = expected_ + "0";
  const std::string padded = expected_ + " ";
  EXPECT_EQ(Damaged(kFile.c_str(), prefix.c_str()), 1u);
  EXPECT_EQ(Damaged(kFile.c_str(), longer.c_str()), 1u);
  EXPECT_EQ(Damaged(kFile.c_str(), padded.c_str()), 1u);
  const std::string tail = ", acShaStrVal:" + expected_ + ".";
  const std::string head =
      "[BOOT_INIT][ERROR]:Calculate file hash value, not equal. pcRightShaVal:";
  EXPECT_THAT(MainLog(),
              ElementsAre(head + prefix + tail, head + longer + tail, head + padded + tail));
}

TEST_F(FileDamagedTest, WhiteSpaceArgumentsAreDamagedWithoutADigest) {
  EXPECT_EQ(Damaged("  ", expected_.c_str()), 1u);
  EXPECT_EQ(Damaged(kFile.c_str(), "\t \t"), 1u);
  EXPECT_EQ(Damaged("", ""), 1u);
  EXPECT_THAT(digestfaults::Get().dlopenCalls, testing::IsEmpty());
  const std::string head = "[BOOT_INIT][ERROR]:Calculate file hash value, have space string. ";
  EXPECT_THAT(MainLog(), ElementsAre(head + "pcFilePath:  , pcRightShaVal:" + expected_ + ".",
                                     head + "pcFilePath:" + kFile + ", pcRightShaVal:\t \t.",
                                     head + "pcFilePath:, pcRightShaVal:."));
}

TEST_F(FileDamagedTest, FileThatCannotBeDigestedIsDamaged) {
  EXPECT_EQ(Damaged("/opt/digest/missing.bin", expected_.c_str()), 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:open file /opt/digest/missing.bin "
                                     "failed, ret=2, errno=2.",
                                     "[BOOT_INIT][ERROR]:Calculate file hash value failed, "
                                     "result = 268435473"));
}

TEST_F(FileDamagedTest, NoMemoryIsDamaged) {
  digestfaults::Get().failMallocOfSize = 32768;
  EXPECT_EQ(Damaged(kFile.c_str(), expected_.c_str()), 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Failed malloc memory!",
                                     "[BOOT_INIT][ERROR]:Calculate file hash value failed, "
                                     "result = 268435461"));
}

TEST_F(FileDamagedTest, EmptyPointers) {
  EXPECT_EQ(BOOT_INIT_SHA_IsFileDamaged(nullptr, expected_.c_str()), 1u);
  EXPECT_EQ(BOOT_INIT_SHA_IsFileDamaged(kFile.c_str(), nullptr), 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:input param is null when check null 1",
                                     "[BOOT_INIT][ERROR]:input param is null when check null 1"));
}

}  // namespace
