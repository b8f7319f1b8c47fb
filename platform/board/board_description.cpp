// Reading the board description through the INI reader of libswm.
#include "board_description.hpp"

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <new>
#include <utility>

#include "swm.h"

namespace boarddesc {

namespace {

constexpr const char *kFailSection = "fail";
constexpr std::string_view kListSeparators = " \t,";

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

Entry<std::string> BoardValue(const char *section, const char *key) {
  try {
    const std::string bracketed = std::string("[") + section + "]";
    char value[SWM_INI_VALUE_LEN] = {};
    switch (SWM_IniGetValue(kDescriptionFile, bracketed.c_str(), key, value, sizeof(value))) {
      case SWM_OK:
        return {Found::kValue, std::string(value)};
      case SWM_ERR_IO:  // no description file (or none that can be opened): all defaults
      case SWM_ERR_NOT_FOUND:
        return {Found::kAbsent, {}};
      default:  // malformed file, out of memory
        return {Found::kUnusable, {}};
    }
  } catch (const std::bad_alloc &) {
    return {Found::kUnusable, {}};
  }
}

std::optional<uint32_t> ParseNumber(std::string_view text) {
  // strtoull alone would accept blanks, signs and a lone "0x"; the first character must be a
  // digit and every character must be consumed.
  if (text.empty() || !IsDigit(text.front()) || text.size() > 64) {
    return std::nullopt;
  }
  char digits[65] = {};
  text.copy(digits, text.size());
  char *end = nullptr;
  errno = 0;
  const unsigned long long parsed = std::strtoull(digits, &end, 0);
  if (errno != 0 || end != digits + text.size() || parsed > std::numeric_limits<uint32_t>::max()) {
    return std::nullopt;
  }
  return static_cast<uint32_t>(parsed);
}

std::optional<std::vector<uint32_t>> ParseNumberList(std::string_view text) {
  try {
    std::vector<uint32_t> numbers;
    size_t pos = 0;
    while ((pos = text.find_first_not_of(kListSeparators, pos)) != std::string_view::npos) {
      size_t end = text.find_first_of(kListSeparators, pos);
      if (end == std::string_view::npos) {
        end = text.size();
      }
      const std::optional<uint32_t> number = ParseNumber(text.substr(pos, end - pos));
      if (!number) {
        return std::nullopt;
      }
      numbers.push_back(*number);
      pos = end;
    }
    return numbers;
  } catch (const std::bad_alloc &) {
    return std::nullopt;
  }
}

Entry<uint32_t> BoardNumber(const char *section, const char *key) {
  const Entry<std::string> text = BoardValue(section, key);
  if (text.found != Found::kValue) {
    return {text.found, 0};
  }
  const std::optional<uint32_t> number = ParseNumber(text.value);
  return number ? Entry<uint32_t>{Found::kValue, *number} : Entry<uint32_t>{Found::kUnusable, 0};
}

Entry<std::vector<uint32_t>> BoardNumberList(const char *section, const char *key) {
  Entry<std::string> text = BoardValue(section, key);
  if (text.found != Found::kValue) {
    return {text.found, {}};
  }
  std::optional<std::vector<uint32_t>> numbers = ParseNumberList(text.value);
  if (!numbers) {
    return {Found::kUnusable, {}};
  }
  return {Found::kValue, std::move(*numbers)};
}

std::optional<uint32_t> ForcedFailure(const char *function) {
  const Entry<uint32_t> code = BoardNumber(kFailSection, function);
  if (code.found != Found::kValue) {
    return std::nullopt;
  }
  return code.value;
}

uint32_t ForcedResult(const char *function, uint32_t status) {
  const std::optional<uint32_t> forced = ForcedFailure(function);
  return forced && *forced != 0 ? *forced : status;
}

}  // namespace boarddesc
