// sscanf_s: the size argument of %s, %c and %[, refusal of fields that do not fit, every length
// modifier, and white space / literal / EOF handling identical to sscanf.
#include <gtest/gtest.h>
#include <sys/types.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "boundedstr.h"

namespace {

// A char buffer pre-filled with '#' so that untouched bytes can be told from written ones.
template <std::size_t N>
std::array<char, N> filled() {
  std::array<char, N> chars{};
  chars.fill('#');
  return chars;
}

// -------------------------------------------------------------------------- what callers do

TEST(SscanfS, SplitsAddressPair) {
  std::array<char, 16> first{};
  std::array<char, 16> second{};
  EXPECT_EQ(sscanf_s("1.2.3.4;5.6.7.8", "%[^;];%s", first.data(), first.size(), second.data(),
                     second.size()),
            2);
  EXPECT_STREQ(first.data(), "1.2.3.4");
  EXPECT_STREQ(second.data(), "5.6.7.8");
}

TEST(SscanfS, ReadsCommaSeparatedUnsigned) {
  std::array<unsigned, 6> v{};
  EXPECT_EQ(sscanf_s("1,22,333,4,5,4294967295", "%u,%u,%u,%u,%u,%u", &v[0], &v[1], &v[2], &v[3],
                     &v[4], &v[5]),
            6);
  EXPECT_EQ(v, (std::array<unsigned, 6>{1, 22, 333, 4, 5, 4294967295U}));
}

TEST(SscanfS, StopsAtFirstMismatchAndCountsAssigned) {
  std::array<unsigned, 6> v{9, 9, 9, 9, 9, 9};
  EXPECT_EQ(sscanf_s("1,2,x,4,5,6", "%u,%u,%u,%u,%u,%u", &v[0], &v[1], &v[2], &v[3], &v[4], &v[5]),
            2);
  EXPECT_EQ(v, (std::array<unsigned, 6>{1, 2, 9, 9, 9, 9}));
}

TEST(SscanfS, ReadsSignedInt) {
  int value = 0;
  EXPECT_EQ(sscanf_s("  -42", "%d", &value), 1);
  EXPECT_EQ(value, -42);
  EXPECT_EQ(sscanf_s("abc", "%d", &value), 0);
  EXPECT_EQ(value, -42);
}

TEST(SscanfS, EmptyInputIsEof) {
  int value = 5;
  EXPECT_EQ(sscanf_s("", "%d", &value), EOF);
  EXPECT_EQ(sscanf_s(" \t\n", "%d", &value), EOF);
  EXPECT_EQ(value, 5);
}

TEST(SscanfS, NullBufferOrFormatIsEof) {
  int value = 5;
  EXPECT_EQ(sscanf_s(nullptr, "%d", &value), EOF);
  EXPECT_EQ(sscanf_s("1", nullptr), EOF);
  EXPECT_EQ(value, 5);
}

TEST(SscanfS, InputEndAfterAssignmentReturnsCount) {
  int a = 0;
  int b = 7;
  EXPECT_EQ(sscanf_s("5", "%d %d", &a, &b), 1);
  EXPECT_EQ(a, 5);
  EXPECT_EQ(b, 7);
}

// ----------------------------------------------------------------------------- %s boundaries

TEST(SscanfS, StringOfSizeMinusOneFits) {
  auto dest = filled<8>();
  EXPECT_EQ(sscanf_s("abc", "%s", dest.data(), std::size_t{4}), 1);
  EXPECT_STREQ(dest.data(), "abc");
  EXPECT_EQ(dest[4], '#');
}

TEST(SscanfS, StringOfSizeIsRefusedAndEmptied) {
  auto dest = filled<8>();
  int after = 7;
  EXPECT_EQ(sscanf_s("abcd 5", "%s %d", dest.data(), std::size_t{4}, &after), 0);
  EXPECT_EQ(dest[0], '\0');
  EXPECT_EQ(dest[4], '#');  // nothing beyond the stated size
  EXPECT_EQ(after, 7);      // scanning stopped
}

TEST(SscanfS, StringOfSizePlusOneIsRefusedAndEmptied) {
  auto dest = filled<8>();
  EXPECT_EQ(sscanf_s("abcde", "%s", dest.data(), std::size_t{4}), 0);
  EXPECT_EQ(dest[0], '\0');
  EXPECT_EQ(dest[4], '#');
}

TEST(SscanfS, RefusedStringReturnsCountAssignedBefore) {
  int first = 0;
  auto word = filled<8>();
  EXPECT_EQ(sscanf_s("12 toolongword", "%d %s", &first, word.data(), std::size_t{8}), 1);
  EXPECT_EQ(first, 12);
  EXPECT_STREQ(word.data(), "");
}

TEST(SscanfS, StringFieldEndsAtWhiteSpace) {
  std::array<char, 4> a{};
  std::array<char, 4> b{};
  EXPECT_EQ(sscanf_s("  abc\tdef", "%s%s", a.data(), a.size(), b.data(), b.size()), 2);
  EXPECT_STREQ(a.data(), "abc");
  EXPECT_STREQ(b.data(), "def");
}

TEST(SscanfS, StringWidthSmallerThanSizeSplitsField) {
  std::array<char, 8> a{};
  std::array<char, 8> b{};
  EXPECT_EQ(sscanf_s("abcdef", "%2s%s", a.data(), a.size(), b.data(), b.size()), 2);
  EXPECT_STREQ(a.data(), "ab");
  EXPECT_STREQ(b.data(), "cdef");
}

TEST(SscanfS, StringWidthEqualToCapacityNeverOverflows) {
  std::array<char, 4> a{};
  std::array<char, 8> b{};
  EXPECT_EQ(sscanf_s("abcdef", "%3s%s", a.data(), a.size(), b.data(), b.size()), 2);
  EXPECT_STREQ(a.data(), "abc");
  EXPECT_STREQ(b.data(), "def");
}

TEST(SscanfS, StringWidthLargerThanSizeStillRefusesLongField) {
  auto dest = filled<8>();
  EXPECT_EQ(sscanf_s("abc", "%10s", dest.data(), std::size_t{4}), 1);
  EXPECT_STREQ(dest.data(), "abc");
  EXPECT_EQ(sscanf_s("abcd", "%10s", dest.data(), std::size_t{4}), 0);
  EXPECT_EQ(dest[0], '\0');
  // Width 4 with size 4: a 4-character field is still one too many.
  EXPECT_EQ(sscanf_s("abcdefg", "%4s", dest.data(), std::size_t{4}), 0);
  EXPECT_EQ(dest[0], '\0');
}

TEST(SscanfS, StringIntoOneByte) {
  auto dest = filled<4>();
  EXPECT_EQ(sscanf_s("a", "%s", dest.data(), std::size_t{1}), 0);
  EXPECT_EQ(dest[0], '\0');
  EXPECT_EQ(dest[1], '#');
  dest = filled<4>();
  EXPECT_EQ(sscanf_s("   ", "%s", dest.data(), std::size_t{1}), EOF);
  EXPECT_EQ(dest[0], '#');
}

TEST(SscanfS, StringSizeZeroOrHugeOrNullDestinationIsRefused) {
  auto dest = filled<4>();
  EXPECT_EQ(sscanf_s("a", "%s", dest.data(), std::size_t{0}), 0);
  EXPECT_EQ(sscanf_s("a", "%s", dest.data(), std::size_t{BOUNDED_MAX_LEN} + 1), 0);
  EXPECT_EQ(dest, filled<4>());
  EXPECT_EQ(sscanf_s("a", "%s", static_cast<char *>(nullptr), std::size_t{4}), 0);
}

TEST(SscanfS, StringAtEndOfInputIsEof) {
  std::array<char, 4> dest{'x', '\0'};
  EXPECT_EQ(sscanf_s("  ", "%s", dest.data(), dest.size()), EOF);
  EXPECT_STREQ(dest.data(), "x");
}

// -------------------------------------------------------------------------------- %[ boundaries

TEST(SscanfS, ScansetOfSizeMinusOneFits) {
  auto dest = filled<8>();
  int tail = 0;
  EXPECT_EQ(sscanf_s("abc1", "%[a-z]%d", dest.data(), std::size_t{4}, &tail), 2);
  EXPECT_STREQ(dest.data(), "abc");
  EXPECT_EQ(tail, 1);
}

TEST(SscanfS, ScansetOfSizeIsRefusedAndEmptied) {
  auto dest = filled<8>();
  EXPECT_EQ(sscanf_s("abcd1", "%[a-z]", dest.data(), std::size_t{4}), 0);
  EXPECT_EQ(dest[0], '\0');
  EXPECT_EQ(dest[4], '#');
}

TEST(SscanfS, ScansetOfSizePlusOneIsRefusedAndEmptied) {
  auto dest = filled<8>();
  EXPECT_EQ(sscanf_s("abcde", "%[a-z]", dest.data(), std::size_t{4}), 0);
  EXPECT_EQ(dest[0], '\0');
}

TEST(SscanfS, NegatedScansetAtSizeBoundary) {
  std::array<char, 8> first{};
  std::array<char, 8> second{};
  EXPECT_EQ(
      sscanf_s("1234567;x", "%[^;];%s", first.data(), first.size(), second.data(), second.size()),
      2);
  EXPECT_STREQ(first.data(), "1234567");
  EXPECT_EQ(
      sscanf_s("12345678;x", "%[^;];%s", first.data(), first.size(), second.data(), second.size()),
      0);
  EXPECT_STREQ(first.data(), "");
  EXPECT_STREQ(second.data(), "x");  // from the first call; not reached this time
}

TEST(SscanfS, ScansetWithClosingBracketMember) {
  std::array<char, 8> dest{};
  EXPECT_EQ(sscanf_s("]]a]b", "%[]a]", dest.data(), dest.size()), 1);
  EXPECT_STREQ(dest.data(), "]]a]");
  EXPECT_EQ(sscanf_s("xy]z", "%[^]]", dest.data(), dest.size()), 1);
  EXPECT_STREQ(dest.data(), "xy");
}

TEST(SscanfS, ScansetDoesNotSkipWhiteSpace) {
  auto dest = filled<8>();
  EXPECT_EQ(sscanf_s(" abc", "%[a-z]", dest.data(), dest.size()), 0);
  EXPECT_EQ(dest, filled<8>());
}

TEST(SscanfS, ScansetIntoOneByte) {
  auto dest = filled<4>();
  EXPECT_EQ(sscanf_s("a", "%[a]", dest.data(), std::size_t{1}), 0);
  EXPECT_EQ(dest[0], '\0');
  dest = filled<4>();
  EXPECT_EQ(sscanf_s("b", "%[a]", dest.data(), std::size_t{1}), 0);
  EXPECT_EQ(dest[0], '#');
  EXPECT_EQ(sscanf_s("", "%[a]", dest.data(), std::size_t{1}), EOF);
}

TEST(SscanfS, UnclosedScansetStopsScan) {
  std::array<char, 8> dest{};
  EXPECT_EQ(sscanf_s("abc", "%[abc", dest.data(), dest.size()), 0);
}

TEST(SscanfS, OverlongScansetStopsScan) {
  // Conversions are built in a fixed stack buffer; a scanset that does not fit ends the scan.
  const std::string format = "%d %[" + std::string(600, 'a') + "]";
  int value = 0;
  std::array<char, 8> dest{};
  EXPECT_EQ(sscanf_s("1 aaa", format.c_str(), &value, dest.data(), dest.size()), 1);
  EXPECT_EQ(value, 1);
  EXPECT_STREQ(dest.data(), "");
  const std::string shorter = "%d %[" + std::string(400, 'a') + "]";
  EXPECT_EQ(sscanf_s("1 aaa", shorter.c_str(), &value, dest.data(), dest.size()), 2);
  EXPECT_STREQ(dest.data(), "aaa");
}

// ----------------------------------------------------------------------------------------- %c

TEST(SscanfS, CharReadsOneWithoutSkippingWhiteSpace) {
  char c = 'x';
  EXPECT_EQ(sscanf_s(" a", "%c", &c, std::size_t{1}), 1);
  EXPECT_EQ(c, ' ');
}

TEST(SscanfS, CharWidthFillsExactlyWidthBytes) {
  auto dest = filled<4>();
  EXPECT_EQ(sscanf_s("abcdef", "%3c", dest.data(), std::size_t{3}), 1);
  EXPECT_EQ(std::string(dest.data(), 4), "abc#");  // no terminator for %c
}

TEST(SscanfS, CharSizeBelowWidthIsRefused) {
  auto dest = filled<4>();
  int after = 3;
  EXPECT_EQ(sscanf_s("abcdef 1", "%3c %d", dest.data(), std::size_t{2}, &after), 0);
  EXPECT_EQ(dest[0], '\0');
  EXPECT_EQ(dest[1], '#');
  EXPECT_EQ(after, 3);
  char c = 'x';
  EXPECT_EQ(sscanf_s("a", "%c", &c, std::size_t{0}), 0);
  EXPECT_EQ(c, 'x');
}

TEST(SscanfS, CharAtEndOfInputIsEof) {
  char c = 'x';
  EXPECT_EQ(sscanf_s("", "%c", &c, std::size_t{1}), EOF);
  EXPECT_EQ(c, 'x');
}

// ------------------------------------------------------------------------ suppression and %n

TEST(SscanfS, SuppressedConversionsTakeNoArguments) {
  int value = 0;
  std::array<char, 8> word{};
  EXPECT_EQ(sscanf_s("skip 12 ;x name", "%*s %d %*[;]%*c %s", &value, word.data(), word.size()), 2);
  EXPECT_EQ(value, 12);
  EXPECT_STREQ(word.data(), "name");
}

TEST(SscanfS, SuppressedStringIsNotBounded) {
  int value = 0;
  EXPECT_EQ(sscanf_s("a-very-long-word-that-fits-nowhere 3", "%*s %d", &value), 1);
  EXPECT_EQ(value, 3);
}

TEST(SscanfS, SuppressedMismatchStopsScan) {
  int value = 4;
  EXPECT_EQ(sscanf_s("x 1", "%*d %d", &value), 0);
  EXPECT_EQ(value, 4);
}

TEST(SscanfS, CountOfConsumedCharactersIsNotAnAssignment) {
  int value = 0;
  int used = -1;
  EXPECT_EQ(sscanf_s("  15abc", "%d%n", &value, &used), 1);
  EXPECT_EQ(value, 15);
  EXPECT_EQ(used, 4);

  std::array<char, 8> word{};
  EXPECT_EQ(sscanf_s("ab cd", "%s %n", word.data(), word.size(), &used), 1);
  EXPECT_EQ(used, 3);
}

TEST(SscanfS, CountWithLengthModifiers) {
  signed char hh = 0;
  short h = 0;
  long l = 0;
  long long ll = 0;
  std::intmax_t j = 0;
  ssize_t z = 0;
  std::ptrdiff_t t = 0;
  EXPECT_EQ(sscanf_s("abcdefg", "a%hhnb%hnc%lnd%llne%jnf%zng%tn", &hh, &h, &l, &ll, &j, &z, &t), 0);
  EXPECT_EQ(hh, 1);
  EXPECT_EQ(h, 2);
  EXPECT_EQ(l, 3);
  EXPECT_EQ(ll, 4);
  EXPECT_EQ(j, 5);
  EXPECT_EQ(z, 6);
  EXPECT_EQ(t, 7);
}

// -------------------------------------------------------------------------- numeric conversions

TEST(SscanfS, SignedLengthModifiers) {
  signed char hh = 0;
  short h = 0;
  long l = 0;
  long long ll = 0;
  std::intmax_t j = 0;
  ssize_t z = 0;
  std::ptrdiff_t t = 0;
  EXPECT_EQ(sscanf_s("-100 -30000 -2000000000 -9000000000000000000 -7 -8 -9",
                     "%hhd %hd %ld %lld %jd %zd %td", &hh, &h, &l, &ll, &j, &z, &t),
            7);
  EXPECT_EQ(hh, -100);
  EXPECT_EQ(h, -30000);
  EXPECT_EQ(l, -2000000000L);
  EXPECT_EQ(ll, -9000000000000000000LL);
  EXPECT_EQ(j, -7);
  EXPECT_EQ(z, -8);
  EXPECT_EQ(t, -9);
}

TEST(SscanfS, UnsignedLengthModifiers) {
  unsigned char hh = 0;
  unsigned short h = 0;
  unsigned long l = 0;
  unsigned long long ll = 0;
  std::uintmax_t j = 0;
  std::size_t z = 0;
  std::size_t t = 0;
  EXPECT_EQ(sscanf_s("255 65535 4000000000 18000000000000000000 7 8 9",
                     "%hhu %hu %lu %llu %ju %zu %tu", &hh, &h, &l, &ll, &j, &z, &t),
            7);
  EXPECT_EQ(hh, 255);
  EXPECT_EQ(h, 65535);
  EXPECT_EQ(l, 4000000000UL);
  EXPECT_EQ(ll, 18000000000000000000ULL);
  EXPECT_EQ(j, 7U);
  EXPECT_EQ(z, 8U);
  EXPECT_EQ(t, 9U);
}

TEST(SscanfS, IntegerBases) {
  unsigned hex = 0;
  unsigned upper = 0;
  unsigned octal = 0;
  int automatic = 0;
  int autoOctal = 0;
  EXPECT_EQ(sscanf_s("ff 0x1F 17 0x10 010", "%x %X %o %i %i", &hex, &upper, &octal, &automatic,
                     &autoOctal),
            5);
  EXPECT_EQ(hex, 0xffU);
  EXPECT_EQ(upper, 0x1fU);
  EXPECT_EQ(octal, 15U);
  EXPECT_EQ(automatic, 16);
  EXPECT_EQ(autoOctal, 8);
}

TEST(SscanfS, IntegerWidth) {
  int a = 0;
  int b = 0;
  EXPECT_EQ(sscanf_s("123456", "%2d%3d", &a, &b), 2);
  EXPECT_EQ(a, 12);
  EXPECT_EQ(b, 345);
}

TEST(SscanfS, FloatingConversions) {
  float f = 0;
  double d = 0;
  long double ld = 0;
  float e = 0;
  double g = 0;
  double a = 0;
  EXPECT_EQ(sscanf_s("1.5 -2.25 3.125 1e3 2.5E-1 0x1p4", "%f %lf %Lf %e %lG %la", &f, &d, &ld, &e,
                     &g, &a),
            6);
  EXPECT_EQ(f, 1.5F);
  EXPECT_EQ(d, -2.25);
  EXPECT_EQ(ld, 3.125L);
  EXPECT_EQ(e, 1000.0F);
  EXPECT_EQ(g, 0.25);
  EXPECT_EQ(a, 16.0);
}

TEST(SscanfS, Pointer) {
  int object = 0;
  char text[32];
  std::snprintf(text, sizeof text, "%p", static_cast<void *>(&object));
  void *pointer = nullptr;
  EXPECT_EQ(sscanf_s(text, "%p", &pointer), 1);
  EXPECT_EQ(pointer, static_cast<void *>(&object));
}

TEST(SscanfS, PercentMatchesLiteralPercent) {
  int value = 0;
  EXPECT_EQ(sscanf_s("50%", "%d%%", &value), 1);
  EXPECT_EQ(value, 50);
  EXPECT_EQ(sscanf_s("  %7", "%%%d", &value), 1);
  EXPECT_EQ(value, 7);
  EXPECT_EQ(sscanf_s("x7", "%%%d", &value), 0);
  EXPECT_EQ(sscanf_s("", "%%"), EOF);
}

TEST(SscanfS, NullNumericDestinationStopsScan) {
  int value = 3;
  EXPECT_EQ(sscanf_s("1 2", "%d %d", static_cast<int *>(nullptr), &value), 0);
  EXPECT_EQ(value, 3);
}

TEST(SscanfS, UnsupportedDirectivesStopScan) {
  int a = 0;
  int b = 0;
  wchar_t wide[4] = {};
  EXPECT_EQ(sscanf_s("1 2", "%d %1$d", &a, &b), 1);
  EXPECT_EQ(b, 0);
  EXPECT_EQ(sscanf_s("1 ab", "%d %ls", &a, wide, std::size_t{4}), 1);
  EXPECT_EQ(sscanf_s("1 2", "%d %Ld", &a, &b), 1);
  EXPECT_EQ(sscanf_s("1 2", "%d %y", &a, &b), 1);
  EXPECT_EQ(sscanf_s("1 2", "%d %", &a), 1);
  EXPECT_EQ(b, 0);
}

// ------------------------------------------------- white space, literals, EOF: same as sscanf

struct Case {
  const char *input;
  const char *format;
};

// Formats with numeric conversions only, where sscanf_s and sscanf take the same arguments and
// must agree on the result and on every stored value.
const Case kSameAsLibrary[] = {
    {"", "%d %d"},       {" ", "%d %d"},       {"5", "%d %d"},        {" 5", "%d %d"},
    {"5 6", "%d %d"},    {"5 6", "%d%d"},      {"5,6", "%d,%d"},      {"5 ,6", "%d,%d"},
    {"5 ,6", "%d ,%d"},  {"5, 6", "%d,%d"},    {"5,", "%d,%d"},       {"5", "%d,%d"},
    {"x", "%d %d"},      {"", "a%d %d"},       {"a", "a%d %d"},       {"a1 2", "a%d %d"},
    {" a1 2", "a%d %d"}, {" a1 2", " a%d %d"}, {"b1", "a%d %d"},      {"abc", "abc%d %d"},
    {"5", "%*d%d %d"},   {"5 6", "%*d%d %d"},  {"5 x", "%d %*d%d"},   {"%5 6", "%%%d %d"},
    {"5%", "%d%% %d"},   {"5", "%d%% %d"},     {"5 % 6", "%d %% %d"}, {"1\t\n 2", "%d\n%d"},
    {"1 2 ", "%d %d "},  {"-", "%d %d"},       {"+", "%d %d"},        {"0x", "%x %d"},
    {"12 3", "%1d%d"},   {"1.5x", "%f %d"},    {"  ", " %d %d"},      {"1;2", "%d;%d"},
};

class SameAsLibrary : public testing::TestWithParam<Case> {};

TEST_P(SameAsLibrary, ResultAndValues) {
  const Case c = GetParam();
  int expectedA = -99;
  int expectedB = -99;
  int actualA = -99;
  int actualB = -99;
  const int expected = std::sscanf(c.input, c.format, &expectedA, &expectedB);
  const int actual = sscanf_s(c.input, c.format, &actualA, &actualB);
  EXPECT_EQ(actual, expected);
  EXPECT_EQ(actualA, expectedA);
  EXPECT_EQ(actualB, expectedB);
}

INSTANTIATE_TEST_SUITE_P(SscanfS, SameAsLibrary, testing::ValuesIn(kSameAsLibrary));

// The outcomes above, written out, so that this test does not only compare with the library.
TEST(SscanfS, WhiteSpaceAndLiteralOutcomes) {
  int a = 0;
  int b = 0;
  EXPECT_EQ(sscanf_s("", "a%d", &a), EOF);    // input ends at a literal
  EXPECT_EQ(sscanf_s("b1", "a%d", &a), 0);    // literal mismatch
  EXPECT_EQ(sscanf_s(" a1", "a%d", &a), 0);   // a literal does not skip white space
  EXPECT_EQ(sscanf_s(" a1", " a%d", &a), 1);  // a space directive does
  EXPECT_EQ(a, 1);
  EXPECT_EQ(sscanf_s("5", "%*d%d", &a), EOF);  // nothing assigned before input ran out
  EXPECT_EQ(sscanf_s("5 ,6", "%d,%d", &a, &b), 1);
  EXPECT_EQ(sscanf_s("5 ,6", "%d ,%d", &a, &b), 2);
  EXPECT_EQ(b, 6);
  EXPECT_EQ(sscanf_s("   ", " "), 0);  // white space matches even at the end
}

}  // namespace
