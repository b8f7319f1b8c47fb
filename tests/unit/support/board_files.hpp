// Helpers for unit tests that run inside a board sandbox: reading and writing the board's files
// and the boot log files as the library leaves them.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "bootinit/log.h"

namespace testsupport {

inline const std::string kDefaultLogDir = "/var/lib/swm/workdir/var/log";
inline const std::string kMainLogPath = kDefaultLogDir + "/app_boot.log";
inline const std::string kSafeLogPath = kDefaultLogDir + "/boot_security.log";
inline const std::string kDcSafeLogPath = "/opt/kytv8/var/log/boot_security.log";

inline std::string ReadFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteFile(const std::string &path, const std::string &content) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
}

inline void RemovePath(const std::string &path) {
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
}

template <typename T>
T ReadLe(const std::string &bytes, std::size_t offset) {
  T value{};
  std::memcpy(&value, bytes.data() + offset, sizeof(T));
  return value;
}

inline std::uint64_t TextStart(int type) { return type == 1 ? 10 : (type == 2 ? 12 : 8); }

// The current text of a log file: curLen bytes from the text start of its type.
inline std::string LogText(const std::string &path, int type) {
  const std::string bytes = ReadFile(path);
  if (bytes.size() < TextStart(type)) {
    return {};
  }
  const std::uint64_t length =
      type == 2 ? ReadLe<std::uint32_t>(bytes, 0) : ReadLe<std::uint64_t>(bytes, 0);
  return bytes.substr(TextStart(type), length);
}

// Lines of a log with their time stamps checked and removed.
inline std::vector<std::string> LogMessages(const std::string &path, int type) {
  static const std::regex stamp(R"(^\[\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\.\d{3,6}\])");
  std::vector<std::string> messages;
  std::istringstream text(LogText(path, type));
  for (std::string line; std::getline(text, line);) {
    std::smatch match;
    if (std::regex_search(line, match, stamp)) {
      messages.push_back(match.suffix());
    } else {
      messages.push_back("<no time stamp>" + line);
    }
  }
  return messages;
}

inline std::vector<std::string> MainLog() { return LogMessages(kMainLogPath, 0); }

// A board with no configuration and no logs, and freshly initialised records whose own
// start-up messages are not in the way.
inline void StartWithEmptyLogs() {
  RemovePath("/etc/swm_user.conf");
  RemovePath("/opt/startup.ini");
  RemovePath("/var/lib/swm");
  RemovePath("/opt/kytv8");
  std::memset(BOOT_INIT_GetSafeLogInfo(), 0, sizeof(BOOT_INIT_LOG_INFO_S));
  std::memset(BOOT_INIT_GetDcSafeLogInfo(), 0, sizeof(BOOT_INIT_LOG_INFO_S));
  (void)BOOT_INIT_LogInit();
  RemovePath(kMainLogPath);
}

inline int CountOpenFds() {
  int count = 0;
  for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    ++count;
  }
  return count;
}

inline struct stat StatOf(const std::string &path) {
  struct stat st {};
  ::stat(path.c_str(), &st);
  return st;
}

}  // namespace testsupport
