#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "board_files.hpp"
#include "bootinit/common.h"

using testing::ElementsAre;
using testsupport::MainLog;

namespace {

class TextTest : public testing::Test {
 protected:
  void SetUp() override { testsupport::StartWithEmptyLogs(); }
};

TEST_F(TextTest, EndCharacterWithinTheLength) {
  const char bytes[] = {'a', 'b', '\0', 'c'};
  EXPECT_EQ(BOOT_INIT_IsContainsEndCharacter(bytes, 3), 1u);
  EXPECT_EQ(BOOT_INIT_IsContainsEndCharacter(bytes, 2), 0u);
  EXPECT_EQ(BOOT_INIT_IsContainsEndCharacter(bytes, 0), 0u);
  EXPECT_EQ(BOOT_INIT_IsContainsEndCharacter(bytes, -1), 0u);
  EXPECT_EQ(BOOT_INIT_IsContainsEndCharacter(nullptr, 4), 0u);
}

TEST_F(TextTest, SpaceIsAllowed) {
  EXPECT_EQ(BOOT_INIT_IsIncludeInvalidChar("ab c", 4), 0u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(TextTest, EveryDangerousCharacterIsFound) {
  const std::string dangerous = "|;&$<>()[]`\\\"'~?*!\n";
  ASSERT_EQ(dangerous.size(), 19u);
  for (char c : dangerous) {
    const std::string text = std::string("a") + c + "b";
    EXPECT_EQ(BOOT_INIT_IsIncludeInvalidChar(text.c_str(), 3), 1u) << static_cast<int>(c);
  }
  EXPECT_EQ(MainLog().size(), 19u);
  EXPECT_EQ(MainLog()[0], "[BOOT_INIT][ERROR]:str include invalid character");
}

TEST_F(TextTest, OtherPrintableCharactersPass) {
  const std::string safe = "azAZ09 _-.,/:=+@#%^{}\t\r";
  EXPECT_EQ(BOOT_INIT_IsIncludeInvalidChar(safe.c_str(), static_cast<uint32_t>(safe.size())), 0u);
}

TEST_F(TextTest, SemicolonIsFound) {
  EXPECT_EQ(BOOT_INIT_IsIncludeInvalidChar("a;b", 3), 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:str include invalid character"));
}

TEST_F(TextTest, LengthBeyondTheStringReachesItsTerminator) {
  EXPECT_EQ(BOOT_INIT_IsIncludeInvalidChar("ab", 3), 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:str include invalid character"));
}

TEST_F(TextTest, BadArgumentsCountAsInvalid) {
  EXPECT_EQ(BOOT_INIT_IsIncludeInvalidChar(nullptr, 3), 1u);
  EXPECT_EQ(BOOT_INIT_IsIncludeInvalidChar("abc", 0), 1u);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:param error", "[BOOT_INIT][ERROR]:param error"));
}

}  // namespace
