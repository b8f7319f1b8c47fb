// Bounded scanning: sscanf_s.
//
// sscanf_s behaves like sscanf except that every %s, %c and %[ destination is followed by its
// size (size_t), and a string field that does not fit is refused rather than written past the
// buffer. The conversions themselves are left to the C library, one directive at a time: the
// format is walked here, and each conversion runs as a one-directive format with "%n" appended
// on the remaining input. That keeps number parsing, scansets and whitespace rules exactly those
// of the C library while this file only decides how much may be stored where.
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <string_view>
#include <type_traits>

#include "bounded_internal.h"

namespace {

// What one directive did to the scan.
enum class Step {
  assigned,  // a conversion stored a value: counts towards the result
  matched,   // matched without storing: white space, literal, %%, suppressed conversion, %n
  mismatch,  // matching failure: the scan stops and returns what was assigned so far
  inputEnd,  // input failure: the input ran out before the directive could match
};

enum class Length { none, hh, h, l, ll, j, z, t, L };

// One conversion directive of the format, e.g. "%*3[^;]" or "%lu".
struct Directive {
  std::string_view text;    // the whole directive, from '%' to its conversion character
  bool suppressed = false;  // '*': matched but not stored, takes no argument
  std::size_t width = 0;    // maximum field width, 0 when none is given
  Length length = Length::none;
  char conversion = '\0';
  std::string_view scanset;  // for '[': what lies between '[' and the closing ']'
};

// The input string and how far the scan has got; %n reports the distance between the two.
struct Input {
  const char *start;
  const char *pos;
};

// The caller's arguments. Wrapped in a struct so that it can be passed by reference on every
// ABI, whether va_list is an array type or not.
struct ArgList {
  va_list ap;
};

bool is_space(char c) noexcept { return std::isspace(static_cast<unsigned char>(c)) != 0; }

bool is_digit(char c) noexcept { return c >= '0' && c <= '9'; }

// ---------------------------------------------------------------------------------------------
// Format parsing

bool parse_width(std::string_view &rest, std::size_t &width) noexcept {
  width = 0;
  while (!rest.empty() && is_digit(rest.front())) {
    width = width * 10 + static_cast<std::size_t>(rest.front() - '0');
    if (width > BOUNDED_MAX_LEN) {
      return false;
    }
    rest.remove_prefix(1);
  }
  return true;
}

Length parse_length(std::string_view &rest) noexcept {
  struct Modifier {
    std::string_view text;
    Length length;
  };
  // Two-letter modifiers first so that "hh" is not taken for "h".
  static constexpr std::array<Modifier, 8> modifiers{{
      {"hh", Length::hh},
      {"ll", Length::ll},
      {"h", Length::h},
      {"l", Length::l},
      {"j", Length::j},
      {"z", Length::z},
      {"t", Length::t},
      {"L", Length::L},
  }};
  for (const Modifier &modifier : modifiers) {
    if (rest.starts_with(modifier.text)) {
      rest.remove_prefix(modifier.text.size());
      return modifier.length;
    }
  }
  return Length::none;
}

// rest starts just after '['. A ']' directly after "[" or "[^" is a member of the set, not its end.
bool parse_scanset(std::string_view &rest, std::string_view &scanset) noexcept {
  std::size_t pos = 0;
  if (pos < rest.size() && rest[pos] == '^') {
    ++pos;
  }
  if (pos < rest.size() && rest[pos] == ']') {
    ++pos;
  }
  const std::size_t close = rest.find(']', pos);
  if (close == std::string_view::npos) {
    return false;
  }
  scanset = rest.substr(0, close);
  rest.remove_prefix(close + 1);
  return true;
}

// Which length modifiers make sense with which conversion. Wide characters (%lc, %ls, %l[) are
// not supported: nothing at boot time needs them, and their sizes would count wchar_t.
bool supported(char conversion, Length length) noexcept {
  switch (conversion) {
    case 'd':
    case 'i':
    case 'u':
    case 'o':
    case 'x':
    case 'X':
    case 'n':
      return length != Length::L;
    case 'a':
    case 'A':
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
      return length == Length::none || length == Length::l || length == Length::L;
    case 's':
    case 'c':
    case '[':
    case 'p':
      return length == Length::none;
    default:
      return false;
  }
}

// Parses the directive at the front of format (which starts with '%') and removes it from
// format. Returns false for what this scanner does not support (positional arguments, the
// allocating 'm' flag, unknown conversions, an unclosed scanset); the scan then stops there.
bool parse_directive(std::string_view &format, Directive &directive) noexcept {
  std::string_view rest = format.substr(1);
  if (rest.starts_with('%')) {
    directive.conversion = '%';
    rest.remove_prefix(1);
  } else {
    directive.suppressed = rest.starts_with('*');
    if (directive.suppressed) {
      rest.remove_prefix(1);
    }
    if (!parse_width(rest, directive.width)) {
      return false;
    }
    directive.length = parse_length(rest);
    if (rest.empty()) {
      return false;
    }
    directive.conversion = rest.front();
    rest.remove_prefix(1);
    if (!supported(directive.conversion, directive.length)) {
      return false;
    }
    if (directive.conversion == '[' && !parse_scanset(rest, directive.scanset)) {
      return false;
    }
  }
  directive.text = format.substr(0, format.size() - rest.size());
  format = rest;
  return true;
}

// ---------------------------------------------------------------------------------------------
// Running single directives through the C library

// A one-directive format for the C library. Built on the stack because scanning must neither
// allocate nor throw; a directive too long for it (a huge scanset) ends the scan.
class PieceFormat {
 public:
  PieceFormat &append(std::string_view text) noexcept {
    if (text.size() >= buffer_.size() - used_) {
      fits_ = false;
      return *this;
    }
    text.copy(buffer_.data() + used_, text.size());
    used_ += text.size();
    buffer_[used_] = '\0';
    return *this;
  }

  PieceFormat &append_number(std::size_t value) noexcept {
    std::array<char, 24> digits{};
    std::size_t first = digits.size();
    do {
      digits[--first] = static_cast<char>('0' + value % 10);
      value /= 10;
    } while (value != 0);
    return append(std::string_view(digits.data() + first, digits.size() - first));
  }

  bool fits() const noexcept { return fits_; }
  const char *c_str() const noexcept { return buffer_.data(); }

 private:
  std::array<char, 512> buffer_{};
  std::size_t used_ = 0;
  bool fits_ = true;
};

// The C library scanner. The formats given to it are built at run time on purpose, from one
// directive that parse_directive has already validated, so the compiler cannot check them and
// is told not to try; this is the only place where that is allowed.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
int library_scan(const char *input, const char *format, ...) noexcept {  // NOLINT(cert-dcl50-cpp)
  va_list argList;
  va_start(argList, format);
  const int result = std::vsscanf(input, format, argList);
  va_end(argList);
  return result;
}
#pragma GCC diagnostic pop

// Runs piece (one directive followed by "%n") at the current position with the directive's own
// targets and advances past what it matched. The %n result tells success apart from a matching
// failure even for suppressed conversions, which sscanf does not count.
template <typename... Targets>
Step run_piece(Input &in, const PieceFormat &piece, Targets... targets) noexcept {
  if (!piece.fits()) {
    return Step::mismatch;
  }
  int consumed = -1;
  const int result = library_scan(in.pos, piece.c_str(), targets..., &consumed);
  if (consumed < 0) {
    return result == EOF ? Step::inputEnd : Step::mismatch;
  }
  in.pos += consumed;
  return Step::matched;
}

Step stored(Step step) noexcept { return step == Step::matched ? Step::assigned : step; }

// %%, and any suppressed conversion: nothing to store, no argument to take.
Step scan_unassigned(Input &in, const Directive &directive) noexcept {
  PieceFormat piece;
  piece.append(directive.text).append("%n");
  return run_piece(in, piece);
}

// A conversion that stores one value of type T (numbers and %p).
template <typename T>
Step scan_value(Input &in, const Directive &directive, ArgList &args) noexcept {
  T *target = va_arg(args.ap, T *);
  if (target == nullptr) {
    return Step::mismatch;
  }
  PieceFormat piece;
  piece.append(directive.text).append("%n");
  return stored(run_piece(in, piece, target));
}

// The types behind the length modifiers. Each calls visit with std::type_identity<T>.
template <typename Visitor>
Step with_signed_type(Length length, Visitor &&visit) {
  switch (length) {
    case Length::none:
      return visit(std::type_identity<int>{});
    case Length::hh:
      return visit(std::type_identity<signed char>{});
    case Length::h:
      return visit(std::type_identity<short>{});
    case Length::l:
      return visit(std::type_identity<long>{});
    case Length::ll:
      return visit(std::type_identity<long long>{});
    case Length::j:
      return visit(std::type_identity<std::intmax_t>{});
    case Length::z:
      return visit(std::type_identity<std::make_signed_t<std::size_t>>{});
    case Length::t:
      return visit(std::type_identity<std::ptrdiff_t>{});
    case Length::L:
      break;
  }
  return Step::mismatch;
}

template <typename Visitor>
Step with_unsigned_type(Length length, Visitor &&visit) {
  switch (length) {
    case Length::none:
      return visit(std::type_identity<unsigned>{});
    case Length::hh:
      return visit(std::type_identity<unsigned char>{});
    case Length::h:
      return visit(std::type_identity<unsigned short>{});
    case Length::l:
      return visit(std::type_identity<unsigned long>{});
    case Length::ll:
      return visit(std::type_identity<unsigned long long>{});
    case Length::j:
      return visit(std::type_identity<std::uintmax_t>{});
    case Length::z:
      return visit(std::type_identity<std::size_t>{});
    case Length::t:
      return visit(std::type_identity<std::make_unsigned_t<std::ptrdiff_t>>{});
    case Length::L:
      break;
  }
  return Step::mismatch;
}

template <typename Visitor>
Step with_floating_type(Length length, Visitor &&visit) {
  switch (length) {
    case Length::none:
      return visit(std::type_identity<float>{});
    case Length::l:
      return visit(std::type_identity<double>{});
    case Length::L:
      return visit(std::type_identity<long double>{});
    default:
      break;
  }
  return Step::mismatch;
}

// %n: stores how many characters have been consumed so far; not counted as an assignment.
Step store_count(const Input &in, const Directive &directive, ArgList &args) noexcept {
  if (directive.suppressed) {
    return Step::matched;
  }
  const std::ptrdiff_t count = in.pos - in.start;
  return with_signed_type(directive.length, [&](auto type) {
    using T = typename decltype(type)::type;
    T *target = va_arg(args.ap, T *);
    if (target == nullptr) {
      return Step::mismatch;
    }
    *target = static_cast<T>(count);
    return Step::matched;
  });
}

// %c: exactly width characters (default 1), no terminator; the buffer must hold them all.
Step scan_chars(Input &in, const Directive &directive, ArgList &args) noexcept {
  char *dest = va_arg(args.ap, char *);
  const auto size = va_arg(args.ap, std::size_t);
  const std::size_t width = directive.width == 0 ? 1 : directive.width;
  if (dest == nullptr) {
    return Step::mismatch;
  }
  if (size < width) {
    if (size != 0) {
      dest[0] = '\0';
    }
    return Step::mismatch;
  }
  PieceFormat piece;
  piece.append(directive.text).append("%n");
  return stored(run_piece(in, piece, dest));
}

// "%<width>s" or "%<width>[set]" for a string directive.
void append_string_conversion(PieceFormat &piece, const Directive &directive, std::size_t width) {
  piece.append("%").append_number(width);
  if (directive.conversion == 's') {
    piece.append("s");
  } else {
    piece.append("[").append(directive.scanset).append("]");
  }
}

// Whether the field of a string directive would go on at p. After a field that exactly filled
// the buffer, this tells "it fitted" from "it was cut short".
bool field_continues(const char *p, const Directive &directive) noexcept {
  if (directive.conversion == 's') {
    return *p != '\0' && !is_space(*p);
  }
  PieceFormat probe;
  append_string_conversion(probe, directive, 1);
  std::array<char, 2> sink{};
  return probe.fits() && library_scan(p, probe.c_str(), sink.data()) == 1;
}

// A string directive with a one-byte buffer: only the empty string would fit, and no string
// field is ever empty, so any field present overflows.
Step scan_into_single_byte(const Input &in, const Directive &directive, char *dest) noexcept {
  const char *p = in.pos;
  if (directive.conversion == 's') {
    while (is_space(*p)) {
      ++p;
    }
  }
  if (*p == '\0') {
    return Step::inputEnd;
  }
  if (field_continues(p, directive)) {
    dest[0] = '\0';
  }
  return Step::mismatch;
}

// %s and %[: at most size - 1 characters plus the terminator. A longer field is a matching
// failure and leaves an empty string behind, so a truncated value can never be mistaken for the
// real one.
Step scan_string(Input &in, const Directive &directive, ArgList &args) noexcept {
  char *dest = va_arg(args.ap, char *);
  const auto size = va_arg(args.ap, std::size_t);
  if (dest == nullptr || !bounded::usable_size(size)) {
    return Step::mismatch;
  }
  const std::size_t capacity = size - 1;
  if (capacity == 0) {
    return scan_into_single_byte(in, directive, dest);
  }
  // The caller's own width, when it is small enough, already keeps the field inside dest.
  const bool widthFits = directive.width != 0 && directive.width <= capacity;
  PieceFormat piece;
  append_string_conversion(piece, directive, widthFits ? directive.width : capacity);
  piece.append("%n");
  const Step step = stored(run_piece(in, piece, dest));
  if (step == Step::assigned && !widthFits && bounded::bounded_length(dest, size) == capacity &&
      field_continues(in.pos, directive)) {
    dest[0] = '\0';
    return Step::mismatch;
  }
  return step;
}

Step convert(Input &in, const Directive &directive, ArgList &args) noexcept {
  if (directive.conversion == '%' || (directive.suppressed && directive.conversion != 'n')) {
    return scan_unassigned(in, directive);
  }
  const auto value = [&](auto type) {
    return scan_value<typename decltype(type)::type>(in, directive, args);
  };
  switch (directive.conversion) {
    case 'd':
    case 'i':
      return with_signed_type(directive.length, value);
    case 'u':
    case 'o':
    case 'x':
    case 'X':
      return with_unsigned_type(directive.length, value);
    case 'a':
    case 'A':
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
      return with_floating_type(directive.length, value);
    case 'p':
      return scan_value<void *>(in, directive, args);
    case 'n':
      return store_count(in, directive, args);
    case 'c':
      return scan_chars(in, directive, args);
    case 's':
    case '[':
      return scan_string(in, directive, args);
    default:
      return Step::mismatch;
  }
}

// ---------------------------------------------------------------------------------------------
// White space and literal characters, matched here exactly as sscanf matches them

// White space in the format matches any amount of white space in the input, including none.
Step skip_white_space(Input &in, std::string_view &format) noexcept {
  while (!format.empty() && is_space(format.front())) {
    format.remove_prefix(1);
  }
  while (is_space(*in.pos)) {
    ++in.pos;
  }
  return Step::matched;
}

// Any other character outside a directive must appear in the input as it is.
Step match_literal(Input &in, std::string_view &format) noexcept {
  const char expected = format.front();
  format.remove_prefix(1);
  if (*in.pos == '\0') {
    return Step::inputEnd;
  }
  if (*in.pos != expected) {
    return Step::mismatch;
  }
  ++in.pos;
  return Step::matched;
}

Step next_directive(Input &in, std::string_view &format, ArgList &args) noexcept {
  if (is_space(format.front())) {
    return skip_white_space(in, format);
  }
  if (format.front() != '%') {
    return match_literal(in, format);
  }
  Directive directive;
  if (!parse_directive(format, directive)) {
    return Step::mismatch;
  }
  return convert(in, directive, args);
}

int scan_all(const char *buffer, std::string_view format, ArgList &args) noexcept {
  Input in{buffer, buffer};
  int assigned = 0;
  while (!format.empty()) {
    switch (next_directive(in, format, args)) {
      case Step::assigned:
        ++assigned;
        break;
      case Step::matched:
        break;
      case Step::mismatch:
        return assigned;
      case Step::inputEnd:
        // As with sscanf: running out of input before anything was stored is EOF.
        return assigned == 0 ? EOF : assigned;
    }
  }
  return assigned;
}

}  // namespace

extern "C" {

BOUNDEDSTR_API int sscanf_s(const char *buffer, const char *format, ...) {
  if (buffer == nullptr || format == nullptr) {
    return EOF;
  }
  ArgList args;
  va_start(args.ap, format);
  const int result = scan_all(buffer, format, args);
  va_end(args.ap);
  return result;
}

}  // extern "C"
