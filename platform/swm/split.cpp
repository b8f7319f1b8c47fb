// Splitting a string into fields held in one allocation.
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "swm.h"

namespace {

// Calls visit(begin, end) for every field of text, in order. A non-empty text with n
// separator characters has n + 1 fields; empty ones are visited only when keepEmpty is set.
// An empty text has no fields at all.
template <typename Visit>
void ForEachField(std::string_view text, std::string_view separators, bool keepEmpty, Visit visit) {
  if (text.empty()) {
    return;
  }
  size_t begin = 0;
  for (;;) {
    size_t end = text.find_first_of(separators, begin);
    if (end == std::string_view::npos) {
      end = text.size();
    }
    if (keepEmpty || end > begin) {
      visit(begin, end);
    }
    if (end == text.size()) {
      return;
    }
    begin = end + 1;
  }
}

// Size of the block: count + 1 pointers (the last one NULL) followed by the text copy.
// Zero when the size would not fit a size_t.
size_t BlockSize(size_t count, size_t textLen) {
  constexpr size_t kMax = static_cast<size_t>(-1);
  if (count >= kMax / sizeof(char *) || textLen >= kMax - (count + 1) * sizeof(char *)) {
    return 0;
  }
  return (count + 1) * sizeof(char *) + textLen + 1;
}

}  // namespace

extern "C" uint32_t SWM_TransString2Array(const char *str, const char *separators, char ***array,
                                          uint32_t *count, uint32_t flags) {
  if (str == nullptr || separators == nullptr || array == nullptr || count == nullptr ||
      (flags & ~SWM_SPLIT_KEEP_EMPTY) != 0) {
    return SWM_ERR_PARAM;
  }
  const std::string_view text(str);
  const bool keepEmpty = (flags & SWM_SPLIT_KEEP_EMPTY) != 0;
  size_t fields = 0;
  ForEachField(text, separators, keepEmpty, [&fields](size_t, size_t) { ++fields; });
  if (fields > UINT32_MAX) {
    return SWM_ERR_PARAM;
  }
  const size_t size = BlockSize(fields, text.size());
  void *block = size == 0 ? nullptr : std::malloc(size);
  if (block == nullptr) {
    return SWM_ERR_NOMEM;
  }
  // The pointers come first, so the block's own alignment serves them; the text follows.
  auto **pointers = static_cast<char **>(block);
  char *copy = reinterpret_cast<char *>(pointers + fields + 1);
  std::memcpy(copy, str, text.size() + 1);
  size_t next = 0;
  ForEachField(text, separators, keepEmpty, [&](size_t begin, size_t end) {
    copy[end] = '\0';
    pointers[next++] = copy + begin;
  });
  pointers[fields] = nullptr;
  *array = pointers;
  *count = static_cast<uint32_t>(fields);
  return SWM_OK;
}
