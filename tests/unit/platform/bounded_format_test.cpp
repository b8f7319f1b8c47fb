// snprintf_s, vsnprintf_s and sprintf_s: full length or -1, never a truncated length, and the
// exact destination contents in each failure case.
#include <gtest/gtest.h>

#include <array>
#include <cstdarg>
#include <cstring>
#include <string>
#include <vector>

#include "boundedstr.h"

namespace {

constexpr char kFill = '#';

// A destination of `size` chars pre-filled with kFill, followed by guard chars.
class Buffer {
 public:
  explicit Buffer(std::size_t size) : size_(size), chars_(size + 8, kFill) {}
  char *dest() { return chars_.data(); }
  std::size_t size() const { return size_; }
  std::string text() const { return std::string(chars_.data()); }
  bool untouched() const { return all_fill(0); }
  bool guard_intact() const { return all_fill(size_); }

 private:
  bool all_fill(std::size_t from) const {
    for (std::size_t i = from; i < chars_.size(); ++i) {
      if (chars_[i] != kFill) {
        return false;
      }
    }
    return true;
  }

  std::size_t size_;
  std::vector<char> chars_;
};

// A null format that the compiler cannot see as such (it would warn about a literal nullptr).
const char *no_format() {
  static const char *volatile none = nullptr;
  return none;
}

int call_vsnprintf_s(char *dest, std::size_t destMax, std::size_t count, const char *format, ...) {
  va_list args;
  va_start(args, format);
  const int result = vsnprintf_s(dest, destMax, count, format, args);
  va_end(args);
  return result;
}

// ----------------------------------------------------------------------------------- snprintf_s

TEST(SnprintfS, FormatsAndReturnsLength) {
  Buffer buf(32);
  EXPECT_EQ(snprintf_s(buf.dest(), buf.size(), buf.size() - 1, "%s-%d-%04x", "id", -12, 0xbeefU),
            11);
  EXPECT_EQ(buf.text(), "id--12-beef");
  EXPECT_TRUE(buf.guard_intact());
}

TEST(SnprintfS, EmptyOutput) {
  Buffer buf(4);
  EXPECT_EQ(snprintf_s(buf.dest(), buf.size(), 3, "%s", ""), 0);
  EXPECT_EQ(buf.text(), "");
  EXPECT_EQ(buf.dest()[1], kFill);
}

// count < destMax: at most count characters; too long leaves the first count characters.

TEST(SnprintfS, CountBelowDestMaxOutputOfCountMinusOne) {
  Buffer buf(16);
  EXPECT_EQ(snprintf_s(buf.dest(), buf.size(), 5, "%s", "abcd"), 4);
  EXPECT_EQ(buf.text(), "abcd");
}

TEST(SnprintfS, CountBelowDestMaxOutputOfCount) {
  Buffer buf(16);
  EXPECT_EQ(snprintf_s(buf.dest(), buf.size(), 5, "%s", "abcde"), 5);
  EXPECT_EQ(buf.text(), "abcde");
}

TEST(SnprintfS, CountBelowDestMaxOutputOfCountPlusOneKeepsTruncatedText) {
  Buffer buf(16);
  EXPECT_EQ(snprintf_s(buf.dest(), buf.size(), 5, "%s", "abcdef"), -1);
  EXPECT_EQ(buf.text(), "abcde");
  EXPECT_EQ(buf.dest()[6], kFill);
  EXPECT_TRUE(buf.guard_intact());
}

TEST(SnprintfS, CountZeroAllowsOnlyEmptyOutput) {
  Buffer empty(8);
  EXPECT_EQ(snprintf_s(empty.dest(), empty.size(), 0, "%s", ""), 0);
  EXPECT_EQ(empty.text(), "");

  Buffer full(8);
  EXPECT_EQ(snprintf_s(full.dest(), full.size(), 0, "%d", 7), -1);
  EXPECT_EQ(full.text(), "");
  EXPECT_EQ(full.dest()[1], kFill);
}

// The calls the boot code makes: a 256-byte buffer with count 255.
TEST(SnprintfS, Buffer256Count255) {
  for (const std::size_t length : {254U, 255U}) {
    Buffer buf(256);
    const std::string text(length, 'a');
    EXPECT_EQ(snprintf_s(buf.dest(), 256, 255, "%s", text.c_str()), static_cast<int>(length));
    EXPECT_EQ(buf.text(), text);
    EXPECT_TRUE(buf.guard_intact());
  }
  for (const std::size_t length : {256U, 257U}) {
    Buffer buf(256);
    const std::string text(length, 'b');
    EXPECT_EQ(snprintf_s(buf.dest(), 256, 255, "%s", text.c_str()), -1) << length;
    EXPECT_EQ(buf.text(), std::string(255, 'b')) << length;
    EXPECT_TRUE(buf.guard_intact());
  }
}

// And a 1023-byte buffer with count 1022, one short of the largest count that buffer allows.
TEST(SnprintfS, Buffer1023Count1022) {
  for (const std::size_t length : {1021U, 1022U}) {
    Buffer buf(1023);
    const std::string text(length, 'c');
    EXPECT_EQ(snprintf_s(buf.dest(), 1023, 1022, "%s", text.c_str()), static_cast<int>(length));
    EXPECT_EQ(buf.text(), text);
  }
  for (const std::size_t length : {1023U, 1024U}) {
    Buffer buf(1023);
    const std::string text(length, 'd');
    EXPECT_EQ(snprintf_s(buf.dest(), 1023, 1022, "%s", text.c_str()), -1) << length;
    EXPECT_EQ(buf.text(), std::string(1022, 'd')) << length;
    EXPECT_TRUE(buf.guard_intact());
  }
}

// count >= destMax: the whole output must fit in destMax - 1 characters, else dest is emptied.

TEST(SnprintfS, CountEqualToDestMaxBoundaries) {
  Buffer fits(8);
  EXPECT_EQ(snprintf_s(fits.dest(), 8, 8, "%s", "1234567"), 7);
  EXPECT_EQ(fits.text(), "1234567");

  Buffer exact(8);
  EXPECT_EQ(snprintf_s(exact.dest(), 8, 8, "%s", "12345678"), -1);
  EXPECT_EQ(exact.dest()[0], '\0');
  EXPECT_TRUE(exact.guard_intact());

  Buffer above(8);
  EXPECT_EQ(snprintf_s(above.dest(), 8, 8, "%s", "123456789"), -1);
  EXPECT_EQ(above.text(), "");
  EXPECT_TRUE(above.guard_intact());
}

TEST(SnprintfS, CountFarAboveDestMaxBehavesLikeCountDestMax) {
  Buffer fits(8);
  EXPECT_EQ(snprintf_s(fits.dest(), 8, static_cast<std::size_t>(-1), "%d", 1234567), 7);
  EXPECT_EQ(fits.text(), "1234567");

  Buffer over(8);
  EXPECT_EQ(snprintf_s(over.dest(), 8, 100, "%d", 12345678), -1);
  EXPECT_EQ(over.text(), "");
  EXPECT_TRUE(over.guard_intact());
}

TEST(SnprintfS, CountDestMaxMinusOneKeepsTruncatedText) {
  // The one value of count that is below destMax yet allows a full buffer.
  Buffer buf(8);
  EXPECT_EQ(snprintf_s(buf.dest(), 8, 7, "%s", "123456789"), -1);
  EXPECT_EQ(buf.text(), "1234567");
}

TEST(SnprintfS, DestMaxOfOneHoldsOnlyTheTerminator) {
  Buffer empty(1);
  EXPECT_EQ(snprintf_s(empty.dest(), 1, 1, "%s", ""), 0);
  EXPECT_EQ(empty.text(), "");
  Buffer over(1);
  EXPECT_EQ(snprintf_s(over.dest(), 1, 1, "x"), -1);
  EXPECT_EQ(over.text(), "");
  EXPECT_TRUE(over.guard_intact());
}

TEST(SnprintfS, NullDestination) { EXPECT_EQ(snprintf_s(nullptr, 8, 7, "%d", 1), -1); }

TEST(SnprintfS, BadDestMaxTouchesNothing) {
  Buffer buf(8);
  EXPECT_EQ(snprintf_s(buf.dest(), 0, 0, "%d", 1), -1);
  EXPECT_EQ(snprintf_s(buf.dest(), BOUNDED_MAX_LEN + 1, 7, "%d", 1), -1);
  EXPECT_TRUE(buf.untouched());
}

TEST(SnprintfS, NullFormatEmptiesDestination) {
  Buffer buf(8);
  EXPECT_EQ(snprintf_s(buf.dest(), buf.size(), 7, no_format(), 1), -1);
  EXPECT_EQ(buf.dest()[0], '\0');
  EXPECT_EQ(buf.dest()[1], kFill);
}

TEST(SnprintfS, EncodingErrorEmptiesDestination) {
  // In the C locale a wide character outside ASCII cannot be converted to a multibyte one.
  const wchar_t wide[] = {0xE9, 0};
  Buffer buf(16);
  EXPECT_EQ(snprintf_s(buf.dest(), buf.size(), 15, "ok %ls", wide), -1);
  EXPECT_EQ(buf.dest()[0], '\0');
  EXPECT_TRUE(buf.guard_intact());
}

// ---------------------------------------------------------------------------------- vsnprintf_s

TEST(VsnprintfS, FormatsFromArgumentList) {
  Buffer buf(16);
  EXPECT_EQ(call_vsnprintf_s(buf.dest(), buf.size(), 15, "%u.%u.%u.%u", 10U, 0U, 0U, 1U), 8);
  EXPECT_EQ(buf.text(), "10.0.0.1");
}

TEST(VsnprintfS, SameFailureRulesAsSnprintfS) {
  Buffer kept(16);
  EXPECT_EQ(call_vsnprintf_s(kept.dest(), 16, 3, "%s", "abcd"), -1);
  EXPECT_EQ(kept.text(), "abc");

  Buffer emptied(4);
  EXPECT_EQ(call_vsnprintf_s(emptied.dest(), 4, 4, "%s", "abcd"), -1);
  EXPECT_EQ(emptied.text(), "");
  EXPECT_TRUE(emptied.guard_intact());

  Buffer untouched(4);
  EXPECT_EQ(call_vsnprintf_s(untouched.dest(), 0, 4, "%s", "a"), -1);
  EXPECT_EQ(call_vsnprintf_s(nullptr, 4, 4, "%s", "a"), -1);
  EXPECT_TRUE(untouched.untouched());

  Buffer noFormat(4);
  EXPECT_EQ(call_vsnprintf_s(noFormat.dest(), 4, 3, no_format()), -1);
  EXPECT_EQ(noFormat.dest()[0], '\0');
}

// ------------------------------------------------------------------------------------ sprintf_s

TEST(SprintfS, FormatsAndReturnsLength) {
  Buffer buf(16);
  EXPECT_EQ(sprintf_s(buf.dest(), buf.size(), "%s=%d", "slot", 3), 6);
  EXPECT_EQ(buf.text(), "slot=3");
}

TEST(SprintfS, DestMaxBoundaries) {
  Buffer fits(8);
  EXPECT_EQ(sprintf_s(fits.dest(), 8, "%s", "1234567"), 7);
  EXPECT_EQ(fits.text(), "1234567");
  EXPECT_TRUE(fits.guard_intact());

  // Unlike snprintf_s with count destMax - 1, nothing of a too-long output is kept.
  Buffer exact(8);
  EXPECT_EQ(sprintf_s(exact.dest(), 8, "%s", "12345678"), -1);
  EXPECT_EQ(exact.dest()[0], '\0');
  EXPECT_TRUE(exact.guard_intact());

  Buffer above(8);
  EXPECT_EQ(sprintf_s(above.dest(), 8, "%s", "123456789"), -1);
  EXPECT_EQ(above.text(), "");
  EXPECT_TRUE(above.guard_intact());
}

TEST(SprintfS, InvalidArguments) {
  Buffer buf(8);
  EXPECT_EQ(sprintf_s(nullptr, 8, "%d", 1), -1);
  EXPECT_EQ(sprintf_s(buf.dest(), 0, "%d", 1), -1);
  EXPECT_EQ(sprintf_s(buf.dest(), BOUNDED_MAX_LEN + 1, "%d", 1), -1);
  EXPECT_TRUE(buf.untouched());
  EXPECT_EQ(sprintf_s(buf.dest(), 8, no_format(), 1), -1);
  EXPECT_EQ(buf.dest()[0], '\0');
  EXPECT_EQ(buf.dest()[1], kFill);
}

TEST(SprintfS, EncodingErrorEmptiesDestination) {
  const wchar_t wide[] = {0x20AC, 0};
  Buffer buf(16);
  EXPECT_EQ(sprintf_s(buf.dest(), buf.size(), "%ls", wide), -1);
  EXPECT_EQ(buf.dest()[0], '\0');
}

}  // namespace
