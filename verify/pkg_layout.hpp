// The package container as bytes: where the fields the library reads lie in the package header,
// a file entry and a file header, and their reading without any I/O. Everything in a package
// comes from outside the board, so every read checks that its bytes lie within what was read,
// and every sum of offsets is checked for 32-bit overflow before it is used.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>

#include "bootinit/package.h"

namespace bootinit::pkg {

using Bytes = std::span<const std::byte>;

// ---- the frozen layouts: callers and package writers rely on every offset ----
static_assert(sizeof(BOOT_PKG_HEADER_S) == BOOT_PKG_HEADER_LEN);
static_assert(offsetof(BOOT_PKG_HEADER_S, reserved) == 0);
static_assert(offsetof(BOOT_PKG_HEADER_S, fileCount) == 4);
static_assert(offsetof(BOOT_PKG_HEADER_S, unused) == 8);
static_assert(offsetof(BOOT_PKG_HEADER_S, entries) == 32);
static_assert(offsetof(BOOT_PKG_HEADER_S, tail) == 6176);
static_assert(sizeof(BOOT_PKG_FILE_ENTRY_S) == 24);
static_assert(offsetof(BOOT_PKG_FILE_ENTRY_S, reserved) == 0);
static_assert(offsetof(BOOT_PKG_FILE_ENTRY_S, recordOffset) == 4);
static_assert(offsetof(BOOT_PKG_FILE_ENTRY_S, recordLength) == 8);
static_assert(offsetof(BOOT_PKG_FILE_ENTRY_S, unused) == 12);
static_assert(sizeof(BOOT_PKG_FILE_HEADER_S) == BOOT_PKG_FILE_HEADER_LEN);
static_assert(offsetof(BOOT_PKG_FILE_HEADER_S, unused0) == 0);
static_assert(offsetof(BOOT_PKG_FILE_HEADER_S, fileKind) == 8);
static_assert(offsetof(BOOT_PKG_FILE_HEADER_S, unused1) == 12);
static_assert(offsetof(BOOT_PKG_FILE_HEADER_S, actualName) == 116);
static_assert(offsetof(BOOT_PKG_FILE_HEADER_S, binName) == 244);
static_assert(offsetof(BOOT_PKG_FILE_HEADER_S, actualLength) == 340);
static_assert(offsetof(BOOT_PKG_FILE_HEADER_S, unused2) == 344);
// A node begins with its chain node (the table hands out node pointers), and its key is what
// the table's hash and compare functions are given.
static_assert(offsetof(BOOT_PKG_FILE_NODE_S, link) == 0);
static_assert(sizeof(BOOT_PKG_FILE_NODE_S::digest) == BOOT_INIT_SHA256_TEXT_LEN);
// The verity table's head is walked as a ring node of its own.
static_assert(sizeof(BOOT_PKG_NAME_LIST_S) == sizeof(BOOT_INIT_DLL_NODE_S));
static_assert(offsetof(BOOT_PKG_NAME_LIST_S, first) == offsetof(BOOT_INIT_DLL_NODE_S, next));
static_assert(offsetof(BOOT_PKG_NAME_LIST_S, last) == offsetof(BOOT_INIT_DLL_NODE_S, prev));
static_assert(offsetof(BOOT_PKG_VERITY_NAME_S, link) == 0);

inline constexpr std::size_t kCountAt = offsetof(BOOT_PKG_HEADER_S, fileCount);
inline constexpr std::size_t kEntriesAt = offsetof(BOOT_PKG_HEADER_S, entries);
inline constexpr std::size_t kEntryLen = sizeof(BOOT_PKG_FILE_ENTRY_S);
inline constexpr std::size_t kRecordOffsetAt = offsetof(BOOT_PKG_FILE_ENTRY_S, recordOffset);
inline constexpr std::size_t kRecordLengthAt = offsetof(BOOT_PKG_FILE_ENTRY_S, recordLength);
inline constexpr std::size_t kKindAt = offsetof(BOOT_PKG_FILE_HEADER_S, fileKind);
inline constexpr std::size_t kActualNameAt = offsetof(BOOT_PKG_FILE_HEADER_S, actualName);
inline constexpr std::size_t kBinNameAt = offsetof(BOOT_PKG_FILE_HEADER_S, binName);
inline constexpr std::size_t kActualLengthAt = offsetof(BOOT_PKG_FILE_HEADER_S, actualLength);

using ActualName = std::array<char, BOOT_PKG_ACTUAL_NAME_LEN>;
using BinName = std::array<char, BOOT_PKG_BIN_NAME_LEN>;

// The bytes [at, at + length) of bytes, or nullopt when they do not all lie within.
[[nodiscard]] inline std::optional<Bytes> Field(Bytes bytes, std::size_t at, std::size_t length) {
  if (at > bytes.size() || length > bytes.size() - at) {
    return std::nullopt;
  }
  return bytes.subspan(at, length);
}

// An unsigned 32-bit big-endian number.
[[nodiscard]] inline std::optional<uint32_t> ReadBe32(Bytes bytes, std::size_t at) {
  const std::optional<Bytes> field = Field(bytes, at, sizeof(uint32_t));
  if (!field) {
    return std::nullopt;
  }
  uint32_t value = 0;
  for (const std::byte byte : *field) {
    value = (value << 8U) | std::to_integer<uint32_t>(byte);
  }
  return value;
}

// Four bytes taken as they stand into a host integer (the file kind is not converted).
[[nodiscard]] inline std::optional<uint32_t> ReadHost32(Bytes bytes, std::size_t at) {
  const std::optional<Bytes> field = Field(bytes, at, sizeof(uint32_t));
  if (!field) {
    return std::nullopt;
  }
  uint32_t value = 0;
  std::memcpy(&value, field->data(), sizeof(value));
  return value;
}

// fileCount of a package header.
[[nodiscard]] inline std::optional<uint32_t> FileCount(Bytes header) {
  return ReadBe32(header, kCountAt);
}

// The two fields of a file entry that the library reads, in host order.
struct Entry {
  uint32_t recordOffset = 0;
  uint32_t recordLength = 0;
};

// A file entry from its own 24 bytes.
[[nodiscard]] inline std::optional<Entry> EntryOf(Bytes entry) {
  const std::optional<uint32_t> offset = ReadBe32(entry, kRecordOffsetAt);
  const std::optional<uint32_t> length = ReadBe32(entry, kRecordLengthAt);
  if (!offset || !length || entry.size() < kEntryLen) {
    return std::nullopt;
  }
  return Entry{*offset, *length};
}

// The 24 bytes of entry index of a package header; nullopt past the table or the bytes.
[[nodiscard]] inline std::optional<Bytes> EntryBytes(Bytes header, uint32_t index) {
  if (index >= BOOT_PKG_MAX_FILES) {
    return std::nullopt;
  }
  return Field(header, kEntriesAt + (kEntryLen * index), kEntryLen);
}

// A name field copied whole, its last byte forced to NUL: a name that fills its field without
// a terminator is cut there instead of running into the next field.
template <std::size_t N>
[[nodiscard]] inline std::optional<std::array<char, N>> NameOf(Bytes bytes, std::size_t at) {
  const std::optional<Bytes> field = Field(bytes, at, N);
  if (!field) {
    return std::nullopt;
  }
  std::array<char, N> name{};
  std::memcpy(name.data(), field->data(), N);
  name.back() = '\0';
  return name;
}

// The fields of a file header that the library reads.
struct FileHeader {
  uint32_t fileKind = 0;  // as it stands in the package
  ActualName actualName{};
  BinName binName{};
  uint32_t actualLength = 0;  // host order
};

[[nodiscard]] inline std::optional<FileHeader> FileHeaderOf(Bytes bytes) {
  const std::optional<uint32_t> kind = ReadHost32(bytes, kKindAt);
  const auto actualName = NameOf<BOOT_PKG_ACTUAL_NAME_LEN>(bytes, kActualNameAt);
  const auto binName = NameOf<BOOT_PKG_BIN_NAME_LEN>(bytes, kBinNameAt);
  const std::optional<uint32_t> actualLength = ReadBe32(bytes, kActualLengthAt);
  if (!kind || !actualName || !binName || !actualLength ||
      bytes.size() < BOOT_PKG_FILE_HEADER_LEN) {
    return std::nullopt;
  }
  return FileHeader{*kind, *actualName, *binName, *actualLength};
}

// How one entry continues the chain of records.
enum class NextFault : uint8_t {
  kNone,
  kNotAtRunningEnd,  // a gap or an overlap with the previous record
  kNoProgress,       // a length of 0, or an end that wraps past 2^32
};

// Records lie end to end from the end of the package header: the entry's record must start at
// runningEnd and must end after it, without wrapping. On success runningEnd moves to its end.
[[nodiscard]] inline NextFault NextRecord(const Entry &entry, uint32_t &runningEnd) {
  if (entry.recordOffset != runningEnd) {
    return NextFault::kNotAtRunningEnd;
  }
  uint32_t end = 0;
  if (__builtin_add_overflow(runningEnd, entry.recordLength, &end) || end <= runningEnd) {
    return NextFault::kNoProgress;
  }
  runningEnd = end;
  return NextFault::kNone;
}

// Where a sum of an offset and a length lands, nullopt when it would pass 2^32 - 1.
[[nodiscard]] inline std::optional<uint32_t> OffsetPlus(uint32_t offset, uint32_t length) {
  uint32_t sum = 0;
  if (__builtin_add_overflow(offset, length, &sum)) {
    return std::nullopt;
  }
  return sum;
}

}  // namespace bootinit::pkg
