// What the FTP server says, taken apart without any I/O: one reply line assembled byte by byte,
// its three-digit code, and the port of a passive-mode reply. The control connection code feeds
// these with the bytes it reads; the fuzz harness feeds them with arbitrary bytes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace bootinit::ftp {

// One reply line holds at most 511 characters and its terminator.
inline constexpr std::size_t kReplyLineLen = 512;

// Collects the bytes of one reply line. The line is complete once a line feed has been stored
// or 511 characters are held; whatever the server sent after that belongs to the next reply.
class ReplyLine {
 public:
  // Stores one byte; true when the line is complete with it.
  bool Add(char byte);
  [[nodiscard]] bool complete() const { return complete_; }
  // The line as a terminated string (bytes after an embedded NUL are not part of it).
  [[nodiscard]] char *text() { return line_.data(); }
  [[nodiscard]] std::span<char> buffer() { return line_; }

 private:
  std::array<char, kReplyLineLen> line_{};
  std::size_t length_ = 0;
  bool complete_ = false;
};

// The number formed by the first three characters when all three are decimal digits. Nothing
// after them is looked at, so "220-" and "2201" both give 220.
[[nodiscard]] std::optional<uint32_t> ReplyCodeOf(std::string_view line);

enum class PasvStatus : uint8_t {
  kOk,
  kNo227,       // "227" does not occur in the text
  kNoParen,     // no "(" after it
  kBadNumbers,  // not six comma-separated integers right after the "("
};

struct PasvReply {
  PasvStatus status = PasvStatus::kNo227;
  uint16_t port = 0;  // fifth number times 256 plus the sixth, kept as 16 bits
};

// The data port a "227" reply announces. The four address numbers are read only to find the
// port: the data connection always goes to the control connection's peer.
[[nodiscard]] PasvReply ParsePasv(std::string_view text);

// 421, 450, 451 and 452 end a retrieval at once instead of being retried.
[[nodiscard]] bool IsTransientFatal(uint32_t code);

}  // namespace bootinit::ftp
