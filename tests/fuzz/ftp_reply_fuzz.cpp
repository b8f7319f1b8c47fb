// FTP replies as a main board's server might send them, whatever their bytes: the control
// stream is cut into reply lines as the client reads them, each line is trimmed, its code read
// and, as for a passive-mode reply, its data port parsed. Only the pure parsers run here; nothing
// is logged or written. Each property the client relies on is checked; a broken one traps.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "download/ftp_reply.hpp"
#include "swm.h"

namespace {

using bootinit::ftp::kReplyLineLen;
using bootinit::ftp::ParsePasv;
using bootinit::ftp::PasvStatus;
using bootinit::ftp::ReplyCodeOf;
using bootinit::ftp::ReplyLine;

void Check(bool property) {
  if (!property) {
    __builtin_trap();
  }
}

void CheckCode(std::string_view line) {
  const std::optional<uint32_t> code = ReplyCodeOf(line);
  if (!code) {
    return;
  }
  Check(line.size() >= 3 && *code < 1000);
  Check(static_cast<uint32_t>(line[0] - '0') * 100 + static_cast<uint32_t>(line[1] - '0') * 10 +
            static_cast<uint32_t>(line[2] - '0') ==
        *code);
}

void CheckPasv(std::string_view line) {
  const bootinit::ftp::PasvReply reply = ParsePasv(line);
  const std::size_t code = line.find("227");
  switch (reply.status) {
    case PasvStatus::kNo227:
      Check(code == std::string_view::npos);
      break;
    case PasvStatus::kNoParen:
      Check(code != std::string_view::npos && line.find('(', code) == std::string_view::npos);
      break;
    case PasvStatus::kBadNumbers:
    case PasvStatus::kOk:
      Check(code != std::string_view::npos && line.find('(', code) != std::string_view::npos);
      break;
  }
  Check(reply.status == PasvStatus::kOk || reply.port == 0);
}

// One reply line as the client handles it: trimmed in place, then its code and its port.
void CheckLine(ReplyLine &line) {
  const std::size_t raw = std::strlen(line.text());
  Check(raw < kReplyLineLen);
  (void)SWM_StringTrim(line.text());
  const std::string_view text(line.text());
  Check(text.size() <= raw);
  CheckCode(text);
  CheckPasv(text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const auto *bytes = reinterpret_cast<const char *>(data);
  std::size_t pos = 0;
  while (pos < size) {
    ReplyLine line;
    std::size_t taken = 0;
    while (pos < size && !line.Add(bytes[pos])) {
      ++pos;
      ++taken;
    }
    if (pos < size) {  // the byte that completed the line
      ++pos;
      ++taken;
      Check(bytes[pos - 1] == '\n' || taken == kReplyLineLen - 1);
    }
    Check(taken < kReplyLineLen);
    // A line cut by the end of the stream is what the client parses after QUIT.
    CheckLine(line);
  }
  return 0;
}
