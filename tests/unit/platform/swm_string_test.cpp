// Tests of the string helpers of libswm.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "swm.h"

namespace {

// ---- character classes ----

TEST(SwmIsDigitString, AcceptsOnlyNonEmptyDecimalDigitStrings) {
  EXPECT_EQ(SWM_IsDigitString("0"), 1);
  EXPECT_EQ(SWM_IsDigitString("0123456789"), 1);
  EXPECT_EQ(SWM_IsDigitString(""), 0);
  EXPECT_EQ(SWM_IsDigitString(nullptr), 0);
  EXPECT_EQ(SWM_IsDigitString("12a"), 0);
  EXPECT_EQ(SWM_IsDigitString(" 12"), 0);
  EXPECT_EQ(SWM_IsDigitString("12 "), 0);
  EXPECT_EQ(SWM_IsDigitString("-1"), 0);
  EXPECT_EQ(SWM_IsDigitString("+1"), 0);
  EXPECT_EQ(SWM_IsDigitString("1.5"), 0);
  EXPECT_EQ(SWM_IsDigitString("0x1f"), 0);
  EXPECT_EQ(SWM_IsDigitString("\xd9\xa3"), 0);  // a non-ASCII digit is no decimal digit here
}

TEST(SwmIsSpaceString, TreatsNullEmptyAndWhitespaceOnlyAsBlank) {
  EXPECT_NE(SWM_IsSpaceString(nullptr), 0);
  EXPECT_NE(SWM_IsSpaceString(""), 0);
  EXPECT_NE(SWM_IsSpaceString(" \t\r\n\v\f"), 0);
  EXPECT_EQ(SWM_IsSpaceString(" x "), 0);
  EXPECT_EQ(SWM_IsSpaceString("x"), 0);
  EXPECT_EQ(SWM_IsSpaceString("\xa0"), 0);  // bytes above 0x7f are not blanks in the C locale
}

// ---- trimming ----

std::string Trimmed(const std::string &text) {
  std::vector<char> buffer(text.begin(), text.end());
  buffer.push_back('\0');
  EXPECT_EQ(SWM_StringTrim(buffer.data()), SWM_OK);
  return buffer.data();
}

TEST(SwmStringTrim, RemovesLeadingAndTrailingWhitespaceInPlace) {
  EXPECT_EQ(Trimmed("  value \t\r\n"), "value");
  EXPECT_EQ(Trimmed("value"), "value");
  EXPECT_EQ(Trimmed("\tinner  space\v"), "inner  space");
  EXPECT_EQ(Trimmed("   "), "");
  EXPECT_EQ(Trimmed(""), "");
  EXPECT_EQ(Trimmed("x"), "x");
  EXPECT_EQ(Trimmed(" x"), "x");
  EXPECT_EQ(Trimmed("x "), "x");
}

TEST(SwmStringTrim, KeepsTheSameBuffer) {
  char text[] = "  abc  ";
  ASSERT_EQ(SWM_StringTrim(text), SWM_OK);
  EXPECT_STREQ(text, "abc");
  EXPECT_EQ(text[3], '\0');
}

TEST(SwmStringTrim, RejectsNull) { EXPECT_EQ(SWM_StringTrim(nullptr), SWM_ERR_PARAM); }

// ---- splitting ----

// Splits text and returns the fields; the block is checked and released here.
std::vector<std::string> Split(const char *text, const char *separators, uint32_t flags) {
  char **array = nullptr;
  uint32_t count = 12345;
  EXPECT_EQ(SWM_TransString2Array(text, separators, &array, &count, flags), SWM_OK);
  std::vector<std::string> fields;
  if (array == nullptr) {
    ADD_FAILURE() << "no block returned";
    return fields;
  }
  for (uint32_t i = 0; i < count; ++i) {
    fields.emplace_back(array[i]);
  }
  EXPECT_EQ(array[count], nullptr) << "pointer list must end with NULL";
  std::free(array);  // one block: pointers and texts together
  return fields;
}

using Fields = std::vector<std::string>;

TEST(SwmTransString2Array, SplitsAtEverySeparator) {
  EXPECT_EQ(Split("a=b=c", "=", 0), (Fields{"a", "b", "c"}));
  EXPECT_EQ(Split("key=", "=", 0), (Fields{"key"}));
  EXPECT_EQ(Split("", "=", 0), Fields{});
  EXPECT_EQ(Split("single", "=", 0), (Fields{"single"}));
  EXPECT_EQ(Split("a b\tc", " \t", 0), (Fields{"a", "b", "c"}));
}

TEST(SwmTransString2Array, SkipsEmptyFieldsByDefault) {
  EXPECT_EQ(Split("==a==b==", "=", 0), (Fields{"a", "b"}));
  EXPECT_EQ(Split("===", "=", 0), Fields{});
  EXPECT_EQ(Split("a, ,b", ", ", 0), (Fields{"a", "b"}));
}

TEST(SwmTransString2Array, KeepsEmptyFieldsWhenAsked) {
  EXPECT_EQ(Split("a=b=c", "=", SWM_SPLIT_KEEP_EMPTY), (Fields{"a", "b", "c"}));
  EXPECT_EQ(Split("key=", "=", SWM_SPLIT_KEEP_EMPTY), (Fields{"key", ""}));
  EXPECT_EQ(Split("=a==b", "=", SWM_SPLIT_KEEP_EMPTY), (Fields{"", "a", "", "b"}));
  EXPECT_EQ(Split("=", "=", SWM_SPLIT_KEEP_EMPTY), (Fields{"", ""}));
  EXPECT_EQ(Split("", "=", SWM_SPLIT_KEEP_EMPTY), Fields{});
}

TEST(SwmTransString2Array, EmptySeparatorSetGivesTheWholeText) {
  EXPECT_EQ(Split("a=b", "", 0), (Fields{"a=b"}));
}

TEST(SwmTransString2Array, LeavesTheInputUntouchedAndFieldsLiveInTheBlock) {
  const char input[] = "x:y:z";
  char **array = nullptr;
  uint32_t count = 0;
  ASSERT_EQ(SWM_TransString2Array(input, ":", &array, &count, 0), SWM_OK);
  ASSERT_EQ(count, 3U);
  EXPECT_STREQ(input, "x:y:z");
  const char *blockBegin = reinterpret_cast<const char *>(array);
  const char *blockEnd = blockBegin + 4 * sizeof(char *) + sizeof(input);
  for (uint32_t i = 0; i < count; ++i) {
    EXPECT_GE(array[i], blockBegin + 4 * sizeof(char *));
    EXPECT_LT(array[i], blockEnd);
    EXPECT_NE(array[i], input + 2 * i);
  }
  std::free(array);
}

TEST(SwmTransString2Array, GivesAFreeableBlockForZeroFields) {
  char **array = nullptr;
  uint32_t count = 99;
  ASSERT_EQ(SWM_TransString2Array("", ",", &array, &count, 0), SWM_OK);
  EXPECT_EQ(count, 0U);
  ASSERT_NE(array, nullptr);
  EXPECT_EQ(array[0], nullptr);
  std::free(array);
}

TEST(SwmTransString2Array, RejectsMissingArgumentsAndUnknownFlags) {
  char **array = nullptr;
  uint32_t count = 7;
  EXPECT_EQ(SWM_TransString2Array(nullptr, "=", &array, &count, 0), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_TransString2Array("a", nullptr, &array, &count, 0), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_TransString2Array("a", "=", nullptr, &count, 0), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_TransString2Array("a", "=", &array, nullptr, 0), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_TransString2Array("a", "=", &array, &count, 2), SWM_ERR_PARAM);
  EXPECT_EQ(array, nullptr);
  EXPECT_EQ(count, 7U);
}

TEST(SwmTransString2Array, HandlesManyFields) {
  std::string text;
  for (int i = 0; i < 5000; ++i) {
    text += std::to_string(i) + ",";
  }
  const Fields fields = Split(text.c_str(), ",", 0);
  ASSERT_EQ(fields.size(), 5000U);
  EXPECT_EQ(fields.front(), "0");
  EXPECT_EQ(fields[1234], "1234");
  EXPECT_EQ(fields.back(), "4999");
}

// ---- comparisons ----

TEST(SwmIsStringEqual, NeedsBothStringsAndEqualText) {
  EXPECT_NE(SWM_IsStringEqual("abc", "abc"), 0);
  EXPECT_NE(SWM_IsStringEqual("", ""), 0);
  EXPECT_EQ(SWM_IsStringEqual("abc", "abd"), 0);
  EXPECT_EQ(SWM_IsStringEqual("abc", "ab"), 0);
  EXPECT_EQ(SWM_IsStringEqual("ab", "abc"), 0);
  EXPECT_EQ(SWM_IsStringEqual("ABC", "abc"), 0);
  EXPECT_EQ(SWM_IsStringEqual(nullptr, "abc"), 0);
  EXPECT_EQ(SWM_IsStringEqual("abc", nullptr), 0);
  EXPECT_EQ(SWM_IsStringEqual(nullptr, nullptr), 0);
}

TEST(SwmIsPrefixString, ChecksTheBeginning) {
  EXPECT_EQ(SWM_IsPrefixString("/opt/board", "/opt"), 1);
  EXPECT_EQ(SWM_IsPrefixString("/opt", "/opt"), 1);
  EXPECT_EQ(SWM_IsPrefixString("/opt", ""), 1);
  EXPECT_EQ(SWM_IsPrefixString("/op", "/opt"), 0);
  EXPECT_EQ(SWM_IsPrefixString("x/opt", "/opt"), 0);
  EXPECT_EQ(SWM_IsPrefixString(nullptr, "a"), 0);
  EXPECT_EQ(SWM_IsPrefixString("a", nullptr), 0);
}

TEST(SwmIsPostfixString, ChecksTheEnd) {
  EXPECT_EQ(SWM_IsPostfixString("image.bin", ".bin"), 1);
  EXPECT_EQ(SWM_IsPostfixString(".bin", ".bin"), 1);
  EXPECT_EQ(SWM_IsPostfixString("image", ""), 1);
  EXPECT_EQ(SWM_IsPostfixString("bin", ".bin"), 0);
  EXPECT_EQ(SWM_IsPostfixString("image.bin.sig", ".bin"), 0);
  EXPECT_EQ(SWM_IsPostfixString(nullptr, "a"), 0);
  EXPECT_EQ(SWM_IsPostfixString("a", nullptr), 0);
}

}  // namespace
