// strcpy_s, strncpy_s and strcat_s: results, the emptied destination after every failure, and
// the bytes past destMax, which must never change.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

#include "boundedstr.h"

namespace {

constexpr char kGuard = '#';
constexpr std::size_t kDestMax = 8;

// A destination of kDestMax chars pre-filled with "QQQQQQQ" and followed by guard chars.
struct GuardedString {
  std::array<char, kDestMax + 8> chars{};

  GuardedString() {
    chars.fill(kGuard);
    std::memcpy(chars.data(), "QQQQQQQ", kDestMax);
  }
  char *dest() { return chars.data(); }
  std::string text() const { return std::string(chars.data()); }
  // The bytes after the first one, which a failed copy must not have touched.
  std::string rest() const { return std::string(chars.data() + 1, kDestMax - 1); }
  bool guard_intact() const {
    for (std::size_t i = kDestMax; i < chars.size(); ++i) {
      if (chars[i] != kGuard) {
        return false;
      }
    }
    return true;
  }
};

// ------------------------------------------------------------------------------------- strcpy_s

TEST(StrcpyS, CopiesStringAndTerminator) {
  GuardedString buf;
  EXPECT_EQ(strcpy_s(buf.dest(), kDestMax, "abc"), EOK);
  EXPECT_EQ(buf.text(), "abc");
  EXPECT_EQ(buf.chars[4], 'Q');
  EXPECT_TRUE(buf.guard_intact());
}

TEST(StrcpyS, EmptySource) {
  GuardedString buf;
  EXPECT_EQ(strcpy_s(buf.dest(), kDestMax, ""), EOK);
  EXPECT_EQ(buf.text(), "");
  EXPECT_EQ(buf.chars[1], 'Q');
}

TEST(StrcpyS, LengthDestMaxMinusOneFits) {
  GuardedString buf;
  EXPECT_EQ(strcpy_s(buf.dest(), kDestMax, "1234567"), EOK);
  EXPECT_EQ(buf.text(), "1234567");
  EXPECT_TRUE(buf.guard_intact());
}

TEST(StrcpyS, LengthDestMaxEmptiesDestination) {
  GuardedString buf;
  EXPECT_EQ(strcpy_s(buf.dest(), kDestMax, "12345678"), BOUNDED_ERANGE_AND_RESET);
  EXPECT_EQ(buf.chars[0], '\0');
  EXPECT_EQ(buf.rest(), std::string("QQQQQQ\0", 7));
  EXPECT_TRUE(buf.guard_intact());
}

TEST(StrcpyS, LengthDestMaxPlusOneEmptiesDestination) {
  GuardedString buf;
  EXPECT_EQ(strcpy_s(buf.dest(), kDestMax, "123456789"), BOUNDED_ERANGE_AND_RESET);
  EXPECT_EQ(buf.text(), "");
  EXPECT_TRUE(buf.guard_intact());
}

TEST(StrcpyS, NullSourceEmptiesDestination) {
  GuardedString buf;
  EXPECT_EQ(strcpy_s(buf.dest(), kDestMax, nullptr), BOUNDED_EINVAL_AND_RESET);
  EXPECT_EQ(buf.text(), "");
  EXPECT_EQ(buf.chars[1], 'Q');
}

TEST(StrcpyS, NullDestinationIsInvalid) {
  EXPECT_EQ(strcpy_s(nullptr, kDestMax, "a"), BOUNDED_EINVAL);
}

TEST(StrcpyS, BadDestMaxTouchesNothing) {
  GuardedString buf;
  EXPECT_EQ(strcpy_s(buf.dest(), 0, "a"), BOUNDED_ERANGE);
  EXPECT_EQ(strcpy_s(buf.dest(), BOUNDED_MAX_LEN + 1, "a"), BOUNDED_ERANGE);
  EXPECT_EQ(buf.text(), "QQQQQQQ");
}

TEST(StrcpyS, SourceInsideDestinationOverlaps) {
  std::array<char, 16> chars{};
  std::memcpy(chars.data(), "abcdefgh", 9);
  // Writing "defgh\0" to [0, 6) would overwrite its own source [3, 9).
  EXPECT_EQ(strcpy_s(chars.data(), chars.size(), chars.data() + 3), BOUNDED_EOVERLAP_AND_RESET);
  EXPECT_EQ(chars[0], '\0');
  EXPECT_EQ(std::string(chars.data() + 1), "bcdefgh");
}

TEST(StrcpyS, DestinationInsideSourceOverlaps) {
  std::array<char, 16> chars{};
  std::memcpy(chars.data(), "abcdefgh", 9);
  EXPECT_EQ(strcpy_s(chars.data() + 2, 14, chars.data()), BOUNDED_EOVERLAP_AND_RESET);
  EXPECT_EQ(std::string(chars.data()), "ab");
}

TEST(StrcpyS, SameBufferOverlaps) {
  std::array<char, 8> chars{'a', 'b', '\0'};
  EXPECT_EQ(strcpy_s(chars.data(), chars.size(), chars.data()), BOUNDED_EOVERLAP_AND_RESET);
  EXPECT_EQ(chars[0], '\0');
}

TEST(StrcpyS, SourceRightAfterWrittenBytesDoesNotOverlap) {
  std::array<char, 16> chars{};
  std::memcpy(chars.data(), "xyzab", 6);
  // Writes "ab\0" to [0, 3) and reads [3, 6): adjacent, not overlapping.
  EXPECT_EQ(strcpy_s(chars.data(), chars.size(), chars.data() + 3), EOK);
  EXPECT_EQ(std::string(chars.data()), "ab");
  // One more character and the terminator written at [3] is a byte of the source.
  std::memcpy(chars.data(), "xyzabc", 7);
  EXPECT_EQ(strcpy_s(chars.data(), chars.size(), chars.data() + 3), BOUNDED_EOVERLAP_AND_RESET);
}

// ------------------------------------------------------------------------------------ strncpy_s

TEST(StrncpyS, CopiesAtMostCountCharacters) {
  GuardedString buf;
  EXPECT_EQ(strncpy_s(buf.dest(), kDestMax, "abcdef", 3), EOK);
  EXPECT_EQ(buf.text(), "abc");
  EXPECT_EQ(buf.chars[4], 'Q');
}

TEST(StrncpyS, CountBeyondSourceCopiesWholeSource) {
  GuardedString buf;
  EXPECT_EQ(strncpy_s(buf.dest(), kDestMax, "ab", 6), EOK);
  EXPECT_EQ(buf.text(), "ab");
  EXPECT_EQ(buf.chars[3], 'Q');  // no padding with zeros
}

TEST(StrncpyS, CountZeroGivesEmptyString) {
  GuardedString buf;
  EXPECT_EQ(strncpy_s(buf.dest(), kDestMax, "abc", 0), EOK);
  EXPECT_EQ(buf.text(), "");
  EXPECT_EQ(buf.chars[1], 'Q');
}

TEST(StrncpyS, LongSourceCutByCountFits) {
  GuardedString buf;
  EXPECT_EQ(strncpy_s(buf.dest(), kDestMax, "a much longer source", kDestMax - 1), EOK);
  EXPECT_EQ(buf.text(), "a much ");
  EXPECT_TRUE(buf.guard_intact());
}

TEST(StrncpyS, CountDestMaxWithLongSourceEmptiesDestination) {
  GuardedString buf;
  EXPECT_EQ(strncpy_s(buf.dest(), kDestMax, "a much longer source", kDestMax),
            BOUNDED_ERANGE_AND_RESET);
  EXPECT_EQ(buf.text(), "");
  EXPECT_EQ(buf.chars[1], 'Q');
  EXPECT_TRUE(buf.guard_intact());
}

TEST(StrncpyS, CopiedLengthBoundaries) {
  // The copied length (min of strlen and count) must be at most destMax - 1.
  GuardedString fits;
  EXPECT_EQ(strncpy_s(fits.dest(), kDestMax, "1234567", 100), EOK);
  EXPECT_EQ(fits.text(), "1234567");

  GuardedString exact;
  EXPECT_EQ(strncpy_s(exact.dest(), kDestMax, "12345678", 100), BOUNDED_ERANGE_AND_RESET);
  EXPECT_EQ(exact.text(), "");

  GuardedString above;
  EXPECT_EQ(strncpy_s(above.dest(), kDestMax, "123456789", 9), BOUNDED_ERANGE_AND_RESET);
  EXPECT_EQ(above.text(), "");
  EXPECT_TRUE(above.guard_intact());
}

TEST(StrncpyS, SourceNeedNotBeTerminatedWithinCount) {
  const std::array<char, 3> unterminated{'a', 'b', 'c'};
  GuardedString buf;
  EXPECT_EQ(strncpy_s(buf.dest(), kDestMax, unterminated.data(), unterminated.size()), EOK);
  EXPECT_EQ(buf.text(), "abc");
}

TEST(StrncpyS, NullSourceEmptiesDestination) {
  GuardedString buf;
  EXPECT_EQ(strncpy_s(buf.dest(), kDestMax, nullptr, 3), BOUNDED_EINVAL_AND_RESET);
  EXPECT_EQ(buf.text(), "");
  EXPECT_EQ(buf.chars[1], 'Q');
}

TEST(StrncpyS, NullDestinationAndBadDestMax) {
  GuardedString buf;
  EXPECT_EQ(strncpy_s(nullptr, kDestMax, "a", 1), BOUNDED_EINVAL);
  EXPECT_EQ(strncpy_s(buf.dest(), 0, "a", 1), BOUNDED_ERANGE);
  EXPECT_EQ(strncpy_s(buf.dest(), BOUNDED_MAX_LEN + 1, "a", 1), BOUNDED_ERANGE);
  EXPECT_EQ(buf.text(), "QQQQQQQ");
}

TEST(StrncpyS, OverlapIsJudgedOnWhatIsCopied) {
  std::array<char, 16> chars{};
  std::memcpy(chars.data(), "abcdefgh", 9);
  // Copying 3 characters from [2, 5) into [0, 4): overlapping.
  EXPECT_EQ(strncpy_s(chars.data(), chars.size(), chars.data() + 2, 3), BOUNDED_EOVERLAP_AND_RESET);
  EXPECT_EQ(chars[0], '\0');
  // Copying 2 characters from [4, 6) into [0, 3): disjoint.
  std::memcpy(chars.data(), "abcdefgh", 9);
  EXPECT_EQ(strncpy_s(chars.data(), chars.size(), chars.data() + 4, 2), EOK);
  EXPECT_EQ(std::string(chars.data()), "ef");
}

// ------------------------------------------------------------------------------------- strcat_s

TEST(StrcatS, Appends) {
  GuardedString buf;
  ASSERT_EQ(strcpy_s(buf.dest(), kDestMax, "ab"), EOK);
  EXPECT_EQ(strcat_s(buf.dest(), kDestMax, "cd"), EOK);
  EXPECT_EQ(buf.text(), "abcd");
  EXPECT_EQ(buf.chars[5], 'Q');
}

TEST(StrcatS, AppendsToEmptyAndAppendsEmpty) {
  GuardedString buf;
  buf.chars[0] = '\0';
  EXPECT_EQ(strcat_s(buf.dest(), kDestMax, "xyz"), EOK);
  EXPECT_EQ(buf.text(), "xyz");
  EXPECT_EQ(strcat_s(buf.dest(), kDestMax, ""), EOK);
  EXPECT_EQ(buf.text(), "xyz");
}

TEST(StrcatS, ResultOfDestMaxMinusOneFits) {
  GuardedString buf;
  ASSERT_EQ(strcpy_s(buf.dest(), kDestMax, "1234"), EOK);
  EXPECT_EQ(strcat_s(buf.dest(), kDestMax, "567"), EOK);
  EXPECT_EQ(buf.text(), "1234567");
  EXPECT_TRUE(buf.guard_intact());
}

TEST(StrcatS, ResultOfDestMaxEmptiesDestination) {
  GuardedString buf;
  ASSERT_EQ(strcpy_s(buf.dest(), kDestMax, "1234"), EOK);
  EXPECT_EQ(strcat_s(buf.dest(), kDestMax, "5678"), BOUNDED_ERANGE_AND_RESET);
  EXPECT_EQ(buf.chars[0], '\0');
  // Nothing of the appended text was written.
  EXPECT_EQ(std::string(buf.chars.data() + 1, 4), std::string("234\0", 4));
  EXPECT_TRUE(buf.guard_intact());
}

TEST(StrcatS, ResultOfDestMaxPlusOneEmptiesDestination) {
  GuardedString buf;
  ASSERT_EQ(strcpy_s(buf.dest(), kDestMax, "1234"), EOK);
  EXPECT_EQ(strcat_s(buf.dest(), kDestMax, "56789"), BOUNDED_ERANGE_AND_RESET);
  EXPECT_EQ(buf.text(), "");
  EXPECT_TRUE(buf.guard_intact());
}

TEST(StrcatS, FullDestinationCannotTakeEvenOneCharacter) {
  GuardedString buf;
  ASSERT_EQ(strcpy_s(buf.dest(), kDestMax, "1234567"), EOK);
  EXPECT_EQ(strcat_s(buf.dest(), kDestMax, ""), EOK);
  EXPECT_EQ(buf.text(), "1234567");
  EXPECT_EQ(strcat_s(buf.dest(), kDestMax, "8"), BOUNDED_ERANGE_AND_RESET);
  EXPECT_EQ(buf.text(), "");
}

TEST(StrcatS, UnterminatedDestinationEmptiesIt) {
  GuardedString buf;
  std::memcpy(buf.dest(), "ABCDEFGH", kDestMax);  // no terminator within destMax
  EXPECT_EQ(strcat_s(buf.dest(), kDestMax, "x"), BOUNDED_EINVAL_AND_RESET);
  EXPECT_EQ(buf.chars[0], '\0');
  EXPECT_EQ(std::string(buf.chars.data() + 1, kDestMax - 1), "BCDEFGH");
  EXPECT_TRUE(buf.guard_intact());
}

TEST(StrcatS, NullSourceEmptiesDestination) {
  GuardedString buf;
  ASSERT_EQ(strcpy_s(buf.dest(), kDestMax, "abc"), EOK);
  EXPECT_EQ(strcat_s(buf.dest(), kDestMax, nullptr), BOUNDED_EINVAL_AND_RESET);
  EXPECT_EQ(buf.text(), "");
  EXPECT_EQ(buf.chars[1], 'b');
}

TEST(StrcatS, NullDestinationAndBadDestMax) {
  GuardedString buf;
  ASSERT_EQ(strcpy_s(buf.dest(), kDestMax, "abc"), EOK);
  EXPECT_EQ(strcat_s(nullptr, kDestMax, "a"), BOUNDED_EINVAL);
  EXPECT_EQ(strcat_s(buf.dest(), 0, "a"), BOUNDED_ERANGE);
  EXPECT_EQ(strcat_s(buf.dest(), BOUNDED_MAX_LEN + 1, "a"), BOUNDED_ERANGE);
  EXPECT_EQ(buf.text(), "abc");
}

TEST(StrcatS, AppendingItselfOverlaps) {
  std::array<char, 16> chars{};
  std::memcpy(chars.data(), "abc", 4);
  EXPECT_EQ(strcat_s(chars.data(), chars.size(), chars.data()), BOUNDED_EOVERLAP_AND_RESET);
  EXPECT_EQ(chars[0], '\0');
}

TEST(StrcatS, SourceInFreeSpaceBeyondResultDoesNotOverlap) {
  std::array<char, 16> chars{};
  std::memcpy(chars.data(), "ab", 3);
  std::memcpy(chars.data() + 8, "cd", 3);
  // The result "abcd\0" spans [0, 5); the source is [8, 11).
  EXPECT_EQ(strcat_s(chars.data(), 8, chars.data() + 8), EOK);
  EXPECT_EQ(std::string(chars.data()), "abcd");
}

TEST(StrcatS, SourceInFreeSpaceReachedByResultOverlaps) {
  std::array<char, 16> chars{};
  std::memcpy(chars.data(), "ab", 3);
  std::memcpy(chars.data() + 3, "cd", 3);
  // The result "abcd\0" would span [0, 5), across the source [3, 6).
  EXPECT_EQ(strcat_s(chars.data(), chars.size(), chars.data() + 3), BOUNDED_EOVERLAP_AND_RESET);
  EXPECT_EQ(chars[0], '\0');
}

TEST(StrcatS, LineThatWouldOverflowIsDroppedWhole) {
  // The way the boot log assembles a line: pieces are appended until one does not fit,
  // and then nothing of the line survives.
  std::array<char, 16> line{};
  EXPECT_EQ(strcat_s(line.data(), line.size(), "[boot] "), EOK);
  EXPECT_EQ(strcat_s(line.data(), line.size(), "stage "), EOK);
  EXPECT_EQ(std::string(line.data()), "[boot] stage ");
  EXPECT_EQ(strcat_s(line.data(), line.size(), "three"), BOUNDED_ERANGE_AND_RESET);
  EXPECT_EQ(std::string(line.data()), "");
  EXPECT_EQ(strcat_s(line.data(), line.size(), "next"), EOK);
  EXPECT_EQ(std::string(line.data()), "next");
}

}  // namespace
