// Reply lines, reply codes and passive-mode replies of the FTP server, as pure functions.
#include "download/ftp_reply.hpp"

#include <cstring>

#include "bootinit/download.h"
#include "bootinit/log.h"
#include "common/support/messages.hpp"

namespace bootinit::ftp {
namespace {

constexpr std::size_t kReplyMaxChars = kReplyLineLen - 1;
constexpr std::size_t kCodeDigits = 3;
constexpr int kPasvNumbers = 6;
constexpr std::string_view kPasvCode = "227";
constexpr uint32_t kPortHighFactor = 256;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Reads the passive-mode numbers as a C scanner's "%d,%d,%d,%d,%d,%d" would: blanks before
// each number, an optional sign, decimal digits, and a comma right after each of the first
// five. Overlong numbers saturate and keep their low 32 bits, as that scanner stores them.
class PasvScanner {
 public:
  explicit PasvScanner(std::string_view text) : text_(text) {}

  std::optional<int32_t> Number() {
    while (pos_ < text_.size() && IsSpace(text_[pos_])) {
      ++pos_;
    }
    bool negative = false;
    if (pos_ < text_.size() && (text_[pos_] == '+' || text_[pos_] == '-')) {
      negative = text_[pos_] == '-';
      ++pos_;
    }
    if (pos_ >= text_.size() || !IsDigit(text_[pos_])) {
      return std::nullopt;
    }
    // The scanner's long saturates at its maximum, or at its minimum for a negative number.
    const uint64_t limit = negative ? 0x8000000000000000ull : 0x7FFFFFFFFFFFFFFFull;
    uint64_t value = 0;
    for (; pos_ < text_.size() && IsDigit(text_[pos_]); ++pos_) {
      const auto digit = static_cast<uint64_t>(text_[pos_] - '0');
      value = value > (limit - digit) / 10 ? limit : value * 10 + digit;
    }
    const uint64_t signedValue = negative ? 0 - value : value;
    return static_cast<int32_t>(static_cast<uint32_t>(signedValue & 0xFFFFFFFFu));
  }

  bool Comma() {
    if (pos_ < text_.size() && text_[pos_] == ',') {
      ++pos_;
      return true;
    }
    return false;
  }

 private:
  std::string_view text_;
  std::size_t pos_ = 0;
};

}  // namespace

bool ReplyLine::Add(char byte) {
  if (complete_) {
    return true;
  }
  line_[length_++] = byte;
  complete_ = byte == '\n' || length_ == kReplyMaxChars;
  return complete_;
}

std::optional<uint32_t> ReplyCodeOf(std::string_view line) {
  // A blank line cannot have three leading digits, so the digit test covers it as well.
  if (line.size() < kCodeDigits) {
    return std::nullopt;
  }
  uint32_t code = 0;
  for (std::size_t i = 0; i < kCodeDigits; ++i) {
    if (!IsDigit(line[i])) {
      return std::nullopt;
    }
    code = code * 10 + static_cast<uint32_t>(line[i] - '0');
  }
  return code;
}

PasvReply ParsePasv(std::string_view text) {
  const std::size_t code = text.find(kPasvCode);
  if (code == std::string_view::npos) {
    return {PasvStatus::kNo227, 0};
  }
  const std::size_t paren = text.find('(', code);
  if (paren == std::string_view::npos) {
    return {PasvStatus::kNoParen, 0};
  }
  PasvScanner scanner(text.substr(paren + 1));
  std::array<int32_t, kPasvNumbers> numbers{};
  for (int i = 0; i < kPasvNumbers; ++i) {
    if (i > 0 && !scanner.Comma()) {
      return {PasvStatus::kBadNumbers, 0};
    }
    const std::optional<int32_t> number = scanner.Number();
    if (!number) {
      return {PasvStatus::kBadNumbers, 0};
    }
    numbers[static_cast<std::size_t>(i)] = *number;
  }
  const uint32_t port =
      static_cast<uint32_t>(numbers[4]) * kPortHighFactor + static_cast<uint32_t>(numbers[5]);
  return {PasvStatus::kOk, static_cast<uint16_t>(port & 0xFFFFu)};
}

bool IsTransientFatal(uint32_t code) {
  return code == 421 || code == 450 || code == 451 || code == 452;
}

}  // namespace bootinit::ftp

using namespace bootinit::ftp;

extern "C" {

uint32_t BOOT_INIT_FTPCLIENT_GetReplyCode(const char *line, uint32_t *code) {
  if (line == nullptr || code == nullptr) {
    return BOOT_INIT_ERR_GENERAL;
  }
  const std::optional<uint32_t> parsed = ReplyCodeOf(line);
  if (!parsed) {
    return BOOT_INIT_ERR_GENERAL;
  }
  *code = *parsed;
  return BOOT_INIT_OK;
}

uint32_t BOOT_INIT_FTPCLIENT_ParsePasvCmdReply(const char *replyText, uint16_t *port) {
  if (replyText == nullptr || port == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERR_GENERAL;
  }
  const PasvReply reply = ParsePasv(replyText);
  switch (reply.status) {
    case PasvStatus::kOk:
      *port = reply.port;
      return BOOT_INIT_OK;
    case PasvStatus::kNo227:
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                         "[BOOT_INIT][ERROR]:PASV response without '227', reply msg = %s",
                         replyText);
      break;
    case PasvStatus::kNoParen:
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                         "[BOOT_INIT][ERROR]:PASV response without '(', reply msg = %s", replyText);
      break;
    case PasvStatus::kBadNumbers:
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                         "[BOOT_INIT][ERROR]:PASV response with invalid address or port, reply "
                         "msg = %s",
                         replyText);
      break;
  }
  return BOOT_INIT_ERR_GENERAL;
}

uint32_t BOOT_INIT_FTPCLIENT_IsTransientFatal(uint32_t code) {
  return IsTransientFatal(code) ? 1u : 0u;
}

}  // extern "C"
