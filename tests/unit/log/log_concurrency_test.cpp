#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <regex>
#include <sstream>
#include <string>

#include "board_files.hpp"
#include "bootinit/log.h"
#include "log_faults.hpp"

namespace {

constexpr int kWriters = 8;
constexpr int kLinesEach = 500;

TEST(LogConcurrencyTest, ConcurrentWritersLoseAndInterleaveNothing) {
  logfaults::Reset();
  testsupport::StartWithEmptyLogs();
  for (int writer = 0; writer < kWriters; ++writer) {
    const pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      for (int line = 0; line < kLinesEach; ++line) {
        BOOT_INIT_LogWrite(0, "[BOOT_INIT][INFO]:writer %d line %d", writer, line);
      }
      ::_exit(0);
    }
  }
  for (int i = 0; i < kWriters; ++i) {
    int status = 0;
    ASSERT_GT(::wait(&status), 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }

  const std::string bytes = testsupport::ReadFile(testsupport::kMainLogPath);
  const auto length = testsupport::ReadLe<uint64_t>(bytes, 0);
  EXPECT_EQ(length, bytes.size() - 8) << "header equals the text length";

  static const std::regex line(
      R"(^\[\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\.\d{3,6}\]\[BOOT_INIT\]\[INFO\]:writer (\d) line (\d+)$)");
  std::map<int, int> next;
  int total = 0;
  std::istringstream text(bytes.substr(8, length));
  for (std::string current; std::getline(text, current); ++total) {
    std::smatch match;
    ASSERT_TRUE(std::regex_match(current, match, line)) << "interleaved: " << current;
    const int writer = std::stoi(match[1]);
    EXPECT_EQ(std::stoi(match[2]), next[writer]++) << "writer " << writer << " out of order";
  }
  EXPECT_EQ(total, kWriters * kLinesEach);
  for (int writer = 0; writer < kWriters; ++writer) {
    EXPECT_EQ(next[writer], kLinesEach);
  }
}

}  // namespace
