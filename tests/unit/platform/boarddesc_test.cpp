// Tests of boarddesc: numbers and lists as the description writes them, entries, and forced
// failures, read afresh on every call.
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "board_description.hpp"
#include "board_env_files.hpp"

namespace {

using boarddesc::Found;

TEST(BoardDescriptionNumber, AcceptsDecimalHexAndOctal) {
  EXPECT_EQ(boarddesc::ParseNumber("0"), 0u);
  EXPECT_EQ(boarddesc::ParseNumber("42"), 42u);
  EXPECT_EQ(boarddesc::ParseNumber("0x2a"), 42u);
  EXPECT_EQ(boarddesc::ParseNumber("0X2A"), 42u);
  EXPECT_EQ(boarddesc::ParseNumber("052"), 42u);
  EXPECT_EQ(boarddesc::ParseNumber("4294967295"), 0xFFFFFFFFu);
  EXPECT_EQ(boarddesc::ParseNumber("0xFFFFFFFF"), 0xFFFFFFFFu);
  EXPECT_EQ(boarddesc::ParseNumber("0000000000000000000000000000007"), 7u);
}

TEST(BoardDescriptionNumber, RejectsJunk) {
  for (const char *junk : {"", " 1", "1 ", "+1", "-1", "0x", "0x1g", "12a", "08", "1.5",
                           "4294967296", "0x100000000", "99999999999999999999999", "one"}) {
    EXPECT_EQ(boarddesc::ParseNumber(junk), std::nullopt) << "'" << junk << "'";
  }
  EXPECT_EQ(boarddesc::ParseNumber(std::string("1\0", 2)), std::nullopt);
  EXPECT_EQ(boarddesc::ParseNumber(std::string(100, '1')), std::nullopt);
}

TEST(BoardDescriptionNumber, ListsTakeBlanksAndCommas) {
  using List = std::vector<uint32_t>;
  EXPECT_EQ(boarddesc::ParseNumberList("1 2 3"), List({1, 2, 3}));
  EXPECT_EQ(boarddesc::ParseNumberList("0x10,0x20, 7 ,,8\t9"), List({16, 32, 7, 8, 9}));
  EXPECT_EQ(boarddesc::ParseNumberList("5"), List({5}));
  EXPECT_EQ(boarddesc::ParseNumberList(""), List());
  EXPECT_EQ(boarddesc::ParseNumberList(" , "), List());
  EXPECT_EQ(boarddesc::ParseNumberList("1 x 3"), std::nullopt);
  EXPECT_EQ(boarddesc::ParseNumberList("1;2"), std::nullopt);
}

class BoardDescriptionFile : public ::testing::Test {
 protected:
  void SetUp() override { boardtest::WriteDescription("[board]\nname=demo\n"); }
};

TEST_F(BoardDescriptionFile, ValuesOfPresentKeys) {
  boardtest::WriteDescription("[board]\nname = unit-7\nslot=0x3\n[support]\nbackup_dir=/x=y\n");
  const auto name = boarddesc::BoardValue("board", "name");
  EXPECT_EQ(name.found, Found::kValue);
  EXPECT_EQ(name.value, "unit-7");
  EXPECT_EQ(boarddesc::BoardValue("support", "backup_dir").value, "/x=y");
  const auto slot = boarddesc::BoardNumber("board", "slot");
  EXPECT_EQ(slot.found, Found::kValue);
  EXPECT_EQ(slot.value, 3u);
}

TEST_F(BoardDescriptionFile, AbsentKeysSectionsAndFile) {
  EXPECT_EQ(boarddesc::BoardValue("board", "slot").found, Found::kAbsent);
  EXPECT_EQ(boarddesc::BoardValue("support", "backup_dir").found, Found::kAbsent);
  EXPECT_EQ(boarddesc::BoardNumber("board", "slot").found, Found::kAbsent);
  boardtest::RemovePath(boardtest::kDescription);
  EXPECT_EQ(boarddesc::BoardValue("board", "name").found, Found::kAbsent);
  EXPECT_EQ(boarddesc::ForcedFailure("drv_env_get"), std::nullopt);
}

TEST_F(BoardDescriptionFile, MalformedFileOrValueIsUnusable) {
  boardtest::WriteDescription("[board]\nslot=abc\nhard_types=1 two\n");
  EXPECT_EQ(boarddesc::BoardValue("board", "slot").found, Found::kValue);
  EXPECT_EQ(boarddesc::BoardNumber("board", "slot").found, Found::kUnusable);
  EXPECT_EQ(boarddesc::BoardNumberList("board", "hard_types").found, Found::kUnusable);
  boardtest::WriteDescription("[board]\nthis line has no equals sign\n");
  EXPECT_EQ(boarddesc::BoardValue("board", "name").found, Found::kUnusable);
  EXPECT_EQ(boarddesc::BoardNumber("board", "slot").found, Found::kUnusable);
}

TEST_F(BoardDescriptionFile, ForcedFailures) {
  boardtest::WriteDescription(
      "[fail]\ndrv_msc_get_state=420\ndrv_env_get=0x55\nzero=0\njunk=oops\n");
  EXPECT_EQ(boarddesc::ForcedFailure("drv_msc_get_state"), 420u);
  EXPECT_EQ(boarddesc::ForcedFailure("drv_env_get"), 0x55u);
  EXPECT_EQ(boarddesc::ForcedFailure("zero"), 0u);
  EXPECT_EQ(boarddesc::ForcedFailure("junk"), std::nullopt);
  EXPECT_EQ(boarddesc::ForcedFailure("drv_env_set"), std::nullopt);
}

TEST_F(BoardDescriptionFile, ForcedResults) {
  boardtest::WriteDescription("[fail]\nforced=0x55\nzero=0\njunk=x\n");
  EXPECT_EQ(boarddesc::ForcedResult("forced", 0), 0x55u);
  EXPECT_EQ(boarddesc::ForcedResult("forced", 3), 0x55u);
  EXPECT_EQ(boarddesc::ForcedResult("zero", 0), 0u);
  EXPECT_EQ(boarddesc::ForcedResult("zero", 3), 3u);  // 0 forces nothing, not even success
  EXPECT_EQ(boarddesc::ForcedResult("junk", 4), 4u);
  EXPECT_EQ(boarddesc::ForcedResult("other", 5), 5u);
}

TEST_F(BoardDescriptionFile, EveryCallReadsTheFileAgain) {
  boardtest::WriteDescription("[board]\nslot=2\n");
  EXPECT_EQ(boarddesc::BoardNumber("board", "slot").value, 2u);
  boardtest::WriteDescription("[board]\nslot=5\n");
  EXPECT_EQ(boarddesc::BoardNumber("board", "slot").value, 5u);
  boardtest::WriteDescription("[board]\n");
  EXPECT_EQ(boarddesc::BoardNumber("board", "slot").found, Found::kAbsent);
}

TEST_F(BoardDescriptionFile, NoDescriptorLeaks) {
  boardtest::WriteDescription("[board]\nslot=2\n[fail]\nx=1\n");
  const int before = boardtest::CountOpenFds();
  for (int i = 0; i < 50; ++i) {
    (void)boarddesc::BoardNumber("board", "slot");
    (void)boarddesc::ForcedFailure("x");
    (void)boarddesc::BoardValue("missing", "key");
  }
  EXPECT_EQ(boardtest::CountOpenFds(), before);
}

}  // namespace
