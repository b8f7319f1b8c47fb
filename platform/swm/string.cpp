// Character-class tests, trimming and comparisons of NUL-terminated strings.
#include <cctype>
#include <cstring>

#include "swm.h"

namespace {

// <cctype> functions take unsigned char values; a plain char above 0x7f would be undefined.
bool IsSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

bool IsDigit(char c) { return c >= '0' && c <= '9'; }  // locale-independent on purpose

}  // namespace

extern "C" int SWM_IsDigitString(const char *str) {
  if (str == nullptr || str[0] == '\0') {
    return 0;
  }
  for (const char *c = str; *c != '\0'; ++c) {
    if (!IsDigit(*c)) {
      return 0;
    }
  }
  return 1;
}

extern "C" int SWM_IsSpaceString(const char *str) {
  if (str == nullptr) {
    return 1;
  }
  for (const char *c = str; *c != '\0'; ++c) {
    if (!IsSpace(*c)) {
      return 0;
    }
  }
  return 1;
}

extern "C" uint32_t SWM_StringTrim(char *str) {
  if (str == nullptr) {
    return SWM_ERR_PARAM;
  }
  size_t end = std::strlen(str);
  while (end > 0 && IsSpace(str[end - 1])) {
    --end;
  }
  size_t begin = 0;
  while (begin < end && IsSpace(str[begin])) {
    ++begin;
  }
  // The kept part moves to the front of the same buffer (ranges may overlap).
  std::memmove(str, str + begin, end - begin);
  str[end - begin] = '\0';
  return SWM_OK;
}

extern "C" int SWM_IsStringEqual(const char *a, const char *b) {
  return (a != nullptr && b != nullptr && std::strcmp(a, b) == 0) ? 1 : 0;
}

extern "C" int SWM_IsPrefixString(const char *str, const char *prefix) {
  if (str == nullptr || prefix == nullptr) {
    return 0;
  }
  return std::strncmp(str, prefix, std::strlen(prefix)) == 0 ? 1 : 0;
}

extern "C" int SWM_IsPostfixString(const char *str, const char *suffix) {
  if (str == nullptr || suffix == nullptr) {
    return 0;
  }
  const size_t strLen = std::strlen(str);
  const size_t suffixLen = std::strlen(suffix);
  if (suffixLen > strLen) {
    return 0;
  }
  return std::memcmp(str + (strLen - suffixLen), suffix, suffixLen) == 0 ? 1 : 0;
}
