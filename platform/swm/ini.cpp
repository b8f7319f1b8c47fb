// Sectioned INI reader. The boot code's signed file lists are read through it, so it is
// deliberately strict: every line is a section, a key, a comment or blank, and anything it
// cannot store whole makes the entire file malformed instead of being cut or split.
#include <cctype>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

#include "boundedstr.h"
#include "ini_internal.h"
#include "owners.h"
#include "swm.h"

// The records are shared with C callers and with the board's own library; their layout is
// part of the interface and must never drift.
static_assert(sizeof(SWM_INI_KEY_S::name) == 129 && SWM_INI_KEY_LEN == 129);
static_assert(sizeof(SWM_INI_KEY_S::value) == 1031 && SWM_INI_VALUE_LEN == 1031);
static_assert(sizeof(SWM_INI_SECTION_S::name) == 72 && SWM_INI_SECTION_LEN == 72);
static_assert(offsetof(SWM_INI_KEY_S, name) == 0);
static_assert(offsetof(SWM_INI_KEY_S, value) == 129);
static_assert(offsetof(SWM_INI_KEY_S, next) ==
              (129 + 1031 + alignof(void *) - 1) / alignof(void *) * alignof(void *));
static_assert(offsetof(SWM_INI_SECTION_S, name) == 0);
static_assert(offsetof(SWM_INI_SECTION_S, keys) ==
              (72 + alignof(void *) - 1) / alignof(void *) * alignof(void *));
static_assert(offsetof(SWM_INI_SECTION_S, next) ==
              offsetof(SWM_INI_SECTION_S, keys) + sizeof(void *));

namespace {

bool IsSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

std::string_view Trim(std::string_view text) {
  while (!text.empty() && IsSpace(text.front())) {
    text.remove_prefix(1);
  }
  while (!text.empty() && IsSpace(text.back())) {
    text.remove_suffix(1);
  }
  return text;
}

// Copies text into a record field that is known to hold it with its terminator.
bool CopyField(char *field, size_t fieldSize, std::string_view text) {
  if (text.size() >= fieldSize) {
    return false;
  }
  if (!text.empty() && memcpy_s(field, fieldSize, text.data(), text.size()) != EOK) {
    return false;
  }
  field[text.size()] = '\0';
  return true;
}

// Builds the section chain in file order; whatever is unfinished is released with it.
class ProfileBuilder {
 public:
  ProfileBuilder() = default;
  ProfileBuilder(const ProfileBuilder &) = delete;
  ProfileBuilder &operator=(const ProfileBuilder &) = delete;
  ~ProfileBuilder() { SWM_FreeProfile(head_); }

  uint32_t AddSection(std::string_view name) {
    if (name.size() >= SWM_INI_SECTION_LEN) {
      return SWM_ERR_FORMAT;
    }
    auto *section = static_cast<SWM_INI_SECTION_S *>(std::calloc(1, sizeof(SWM_INI_SECTION_S)));
    if (section == nullptr) {
      return SWM_ERR_NOMEM;
    }
    (head_ == nullptr ? head_ : current_->next) = section;  // linked before anything can fail
    current_ = section;
    lastKey_ = nullptr;
    return CopyField(section->name, sizeof(section->name), name) ? SWM_OK : SWM_ERR_FORMAT;
  }

  uint32_t AddKey(std::string_view name, std::string_view value) {
    if (current_ == nullptr || name.empty() || name.size() >= SWM_INI_KEY_LEN ||
        value.size() >= SWM_INI_VALUE_LEN) {
      return SWM_ERR_FORMAT;
    }
    auto *key = static_cast<SWM_INI_KEY_S *>(std::calloc(1, sizeof(SWM_INI_KEY_S)));
    if (key == nullptr) {
      return SWM_ERR_NOMEM;
    }
    (lastKey_ == nullptr ? current_->keys : lastKey_->next) = key;
    lastKey_ = key;
    const bool stored = CopyField(key->name, sizeof(key->name), name) &&
                        CopyField(key->value, sizeof(key->value), value);
    return stored ? SWM_OK : SWM_ERR_FORMAT;
  }

  SWM_INI_SECTION_S *Release() { return std::exchange(head_, nullptr); }

 private:
  SWM_INI_SECTION_S *head_ = nullptr;
  SWM_INI_SECTION_S *current_ = nullptr;
  SWM_INI_KEY_S *lastKey_ = nullptr;
};

// One line without its end: a section, a key, a comment or blank.
uint32_t ParseLine(std::string_view raw, ProfileBuilder &builder) {
  if (raw.find('\0') != std::string_view::npos) {
    return SWM_ERR_FORMAT;  // C strings would silently drop everything after it
  }
  const std::string_view line = Trim(raw);  // CR of CRLF files goes with the other blanks
  if (line.empty() || line.front() == '#' || line.front() == ';') {
    return SWM_OK;
  }
  if (line.size() >= 2 && line.front() == '[' && line.back() == ']') {
    return builder.AddSection(line);  // the brackets are part of the name
  }
  const size_t equals = line.find('=');
  if (equals == std::string_view::npos) {
    return SWM_ERR_FORMAT;
  }
  return builder.AddKey(Trim(line.substr(0, equals)), Trim(line.substr(equals + 1)));
}

// Why reading stopped when getline(3) gave up: end of file, or an error to report.
uint32_t ReadEndStatus(FILE *stream, int readErrno) {
  if (std::ferror(stream) == 0 && std::feof(stream) != 0) {
    return SWM_OK;
  }
  return readErrno == ENOMEM ? SWM_ERR_NOMEM : SWM_ERR_IO;
}

}  // namespace

namespace swm {

uint32_t LoadProfile(FILE *stream, SWM_INI_SECTION_S **profile) {
  *profile = nullptr;
  ProfileBuilder builder;
  char *rawLine = nullptr;
  size_t capacity = 0;
  uint32_t status = SWM_OK;
  // getline(3) grows its buffer to the longest line, so no line is ever cut in two.
  ssize_t length = 0;
  errno = 0;
  while (status == SWM_OK && (length = getline(&rawLine, &capacity, stream)) >= 0) {
    status = ParseLine(std::string_view(rawLine, static_cast<size_t>(length)), builder);
  }
  const int readErrno = errno;
  const std::unique_ptr<char, FreeDeleter> lineOwner(rawLine);
  if (status == SWM_OK) {
    status = ReadEndStatus(stream, readErrno);
  }
  if (status == SWM_OK) {
    *profile = builder.Release();
  }
  return status;
}

}  // namespace swm

extern "C" SWM_INI_SECTION_S *SWM_IniLoadProfile(FILE *stream) {
  SWM_INI_SECTION_S *profile = nullptr;
  if (stream != nullptr) {
    (void)swm::LoadProfile(stream, &profile);
  }
  return profile;
}

extern "C" void SWM_FreeProfile(SWM_INI_SECTION_S *profile) {
  // Iterative on purpose: a file with very many sections or keys must not exhaust the stack.
  while (profile != nullptr) {
    SWM_INI_KEY_S *key = profile->keys;
    while (key != nullptr) {
      SWM_INI_KEY_S *nextKey = key->next;
      std::free(key);
      key = nextKey;
    }
    SWM_INI_SECTION_S *nextSection = profile->next;
    std::free(profile);
    profile = nextSection;
  }
}
