// The board description of the host builds: an INI file (/etc/bootsim/board.ini) that stands in
// for the facts a real board's hardware and drivers report, and for the failures they may show.
// It is read afresh on every call, so a change made between two calls is seen by the second.
#ifndef BOARDDESC_BOARD_DESCRIPTION_HPP
#define BOARDDESC_BOARD_DESCRIPTION_HPP

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace boarddesc {

inline constexpr const char *kDescriptionFile = "/etc/bootsim/board.ini";

// How one entry of the description was found.
enum class Found {
  kAbsent,    // no description file, no such section or key: the caller's default applies
  kValue,     // the entry is present and usable
  kUnusable,  // the file is malformed or unreadable as INI, or the value is not of the expected
              // kind
};

template <typename T>
struct Entry {
  Found found = Found::kAbsent;
  T value{};
};

// The text of key in [section] (section named without brackets: "board"). A description file
// that cannot be opened counts as absent; a malformed one as unusable.
Entry<std::string> BoardValue(const char *section, const char *key);

// A number as written in the description: decimal, 0x/0X hexadecimal or 0-prefixed octal
// (the bases of strtoul with base 0), digits only after the prefix, no sign, no blanks,
// at most 0xFFFFFFFF. Anything else is rejected.
std::optional<uint32_t> ParseNumber(std::string_view text);

// A list of such numbers separated by blanks and/or commas; an empty text is an empty list.
std::optional<std::vector<uint32_t>> ParseNumberList(std::string_view text);

// key in [section] as a number; a present value that is not a number is unusable.
Entry<uint32_t> BoardNumber(const char *section, const char *key);

// key in [section] as a list of numbers.
Entry<std::vector<uint32_t>> BoardNumberList(const char *section, const char *key);

// The failure the description forces on a function: [fail] <function> = <code>. nullopt when
// none is described (also when the code is not a number or the description is unusable).
// A code of 0 is returned as well: for functions whose answer is not a status it is the forced
// answer.
std::optional<uint32_t> ForcedFailure(const char *function);

// What a function returning a status answers: the non-zero code the description forces on it,
// else status.
uint32_t ForcedResult(const char *function, uint32_t status);

}  // namespace boarddesc

#endif  // BOARDDESC_BOARD_DESCRIPTION_HPP
