// Helpers for the tests of the board-fact, driver and support libraries: each test runs in a
// board of its own, so it writes the board description, the boot environment configuration and
// the environment image itself.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace boardtest {

inline const std::string kDescription = "/etc/bootsim/board.ini";
inline const std::string kEnvConfig = "/etc/fw_env.config";
inline const std::string kDefaultEnv = "/etc/u-boot-initial-env";
inline const std::string kEnvImage = "/boot/bootsim/uboot.env";
inline const std::string kEnvImage2 = "/boot/bootsim/uboot-redund.env";
inline constexpr std::size_t kEnvSize = 0x4000;

inline void WriteFile(const std::string &path, const std::string &content) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
}

inline std::string ReadFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void RemovePath(const std::string &path) {
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
}

// The whole board description.
inline void WriteDescription(const std::string &text) { WriteFile(kDescription, text); }

// An environment image that has never been written: all zero bytes, no valid checksum.
inline void WriteFreshImage(const std::string &path = kEnvImage, std::size_t size = kEnvSize) {
  WriteFile(path, std::string(size, '\0'));
}

// /etc/fw_env.config naming one image, or two for a redundant environment.
inline void WriteEnvConfig(bool redundant = false) {
  char line[128];
  std::snprintf(line, sizeof(line), "%s 0x0 0x%zx\n", kEnvImage.c_str(), kEnvSize);
  std::string text = line;
  if (redundant) {
    std::snprintf(line, sizeof(line), "%s 0x0 0x%zx\n", kEnvImage2.c_str(), kEnvSize);
    text += line;
  }
  WriteFile(kEnvConfig, text);
}

struct Output {
  int status = -1;   // exit status, -1 when the command did not exit normally
  std::string text;  // standard output
};

// Runs a shell command and collects its standard output (standard error is dropped).
inline Output Run(const std::string &command) {
  Output result;
  FILE *pipe = popen((command + " 2>/dev/null").c_str(), "r");
  if (pipe == nullptr) {
    return result;
  }
  char chunk[512];
  size_t got = 0;
  while ((got = std::fread(chunk, 1, sizeof(chunk), pipe)) > 0) {
    result.text.append(chunk, got);
  }
  const int status = pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

// fw_printenv / fw_setenv on the board's configuration.
inline Output PrintEnv(const std::string &names = "") {
  return Run("fw_printenv -c " + kEnvConfig + (names.empty() ? "" : " " + names));
}

// Sets (or, without value, removes) a variable; fresh images start from an empty environment.
inline int SetEnvTool(const std::string &name, const std::string *value = nullptr) {
  std::string command = "fw_setenv -c " + kEnvConfig + " -f /dev/null '" + name + "'";
  if (value != nullptr) {
    command += " '" + *value + "'";
  }
  return Run(command).status;
}

inline int SetEnvTool(const std::string &name, const std::string &value) {
  return SetEnvTool(name, &value);
}

// A board with the given description and a valid, empty single-copy environment.
inline void PrepareBoard(const std::string &description) {
  WriteDescription(description);
  RemovePath(kDefaultEnv);
  RemovePath(kEnvImage2);
  WriteEnvConfig();
  WriteFreshImage();
}

inline int CountOpenFds() {
  int count = 0;
  for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    ++count;
  }
  return count;
}

}  // namespace boardtest
