// Setting a board's facts from a unit test running inside a board sandbox: the board
// description read by the platform libraries, the boot environment, the developer files, the
// platform library directory. Also small helpers to call operations and catch what they print.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "board_files.hpp"
#include "drv.h"

namespace testsupport {

inline const std::string kBoardDescription = "/etc/bootsim/board.ini";
inline const std::string kStartupIni = "/opt/startup.ini";
inline const std::string kBootIpIni = "/opt/boot_ip.ini";
inline const std::string kMmbMarker = "/opt/MMB";
inline const std::string kHomeDir = "/opt/kytv8/home";
inline const std::string kBackupDir = "/opt/kytv8/backup";
inline const std::string kPlatformLibDir = "/etc/bootsim/lib";
inline const std::string kSupportLibrary = "libsupport_linux.so";
inline const std::string kEnvConfig = "/etc/fw_env.config";

// Writes the whole description: {"section.key": value}.
inline void DescribeBoard(const std::map<std::string, std::string> &facts) {
  std::map<std::string, std::map<std::string, std::string>> sections;
  for (const auto &[name, value] : facts) {
    const auto dot = name.find('.');
    sections[name.substr(0, dot)][name.substr(dot + 1)] = value;
  }
  std::string text;
  for (const auto &[section, keys] : sections) {
    text += "[" + section + "]\n";
    for (const auto &[key, value] : keys) {
      text += key + "=" + value + "\n";
    }
  }
  WriteFile(kBoardDescription, text);
}

// The description base with some entries changed or added.
inline void DescribeBoard(std::map<std::string, std::string> base,
                          const std::map<std::string, std::string> &changes) {
  for (const auto &[name, value] : changes) {
    base[name] = value;
  }
  DescribeBoard(base);
}

// A main board, active, CPU 0, slot 1, type 0x1A2B, backup partition /opt/kytv8/backup.
inline std::map<std::string, std::string> ActiveMainBoard() {
  return {{"board.role", "1"},           {"board.active_state", "0"},
          {"board.slot", "1"},           {"board.logic_cpu_id", "0"},
          {"board.hard_type", "0x1A2B"}, {"support.backup_dir", "/opt/kytv8/backup"}};
}

// A line card, not active, slot 3, type 0x2B3C.
inline std::map<std::string, std::string> LineCard() {
  return {{"board.role", "3"},           {"board.active_state", "1"},
          {"board.slot", "3"},           {"board.logic_cpu_id", "0"},
          {"board.hard_type", "0x2B3C"}, {"support.backup_dir", "/opt/kytv8/backup"}};
}

inline void SetEnv(const std::string &name, const std::string &value) {
  (void)drv_env_set(name.c_str(), value.c_str());
}

inline void UnsetEnv(const std::string &name) { (void)drv_env_set(name.c_str(), ""); }

// The value of a boot environment variable, nullopt when it cannot be read.
inline std::optional<std::string> GetEnv(const std::string &name) {
  std::vector<char> value(8192, '\0');
  if (drv_env_get(name.c_str(), value.data(), static_cast<uint32_t>(value.size()), 0) != 0) {
    return std::nullopt;
  }
  return std::string(value.data());
}

namespace detail {
inline uint32_t Crc32(const std::string &data) {
  uint32_t crc = 0xFFFFFFFFu;
  for (const unsigned char byte : data) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
  }
  return ~crc;
}
}  // namespace detail

// Replaces the whole boot environment by exactly these variables, written straight into the
// environment image named by /etc/fw_env.config (single copy: CRC-32, then "name=value\0"
// entries, "\0", zero padding). Unlike drv_env_set this can store a variable with an empty
// value, as a boot loader may leave one.
inline void WriteRawEnvironment(const std::map<std::string, std::string> &variables) {
  std::istringstream config(ReadFile(kEnvConfig));
  std::string image;
  std::string offsetText;
  std::string sizeText;
  config >> image >> offsetText >> sizeText;
  ASSERT_FALSE(image.empty()) << "no environment image in " << kEnvConfig;
  const std::size_t size = std::stoul(sizeText, nullptr, 0);
  std::string data;
  for (const auto &[name, value] : variables) {
    data += name + "=" + value;
    data.push_back('\0');
  }
  data.push_back('\0');
  ASSERT_LE(data.size(), size - 4);
  data.resize(size - 4, '\0');
  const uint32_t crc = detail::Crc32(data);
  std::string bytes(4, '\0');
  for (int i = 0; i < 4; ++i) {
    bytes[static_cast<std::size_t>(i)] = static_cast<char>((crc >> (8 * i)) & 0xFFu);
  }
  WriteFile(image, bytes + data);
}

inline void Touch(const std::string &path) { WriteFile(path, ""); }

// Drops the main boot log in the middle of a test, leaving every other file of the board as it
// is; the next message starts a new log.
inline void ClearMainLog() { RemovePath(kMainLogPath); }

inline void MakeDir(const std::string &path) { std::filesystem::create_directories(path); }

// The developer files, whole.
inline void WriteStartupIni(const std::string &text) { WriteFile(kStartupIni, text); }
inline void WriteBootIpIni(const std::string &text) { WriteFile(kBootIpIni, text); }

// ---- the platform library directory /etc/bootsim/lib ----

inline std::string PlatformLibrary(const std::string &name) { return kPlatformLibDir + "/" + name; }

// Makes name in the board's library directory lead to target (a real library of the build).
inline void PointPlatformLibrary(const std::string &name, const std::string &target) {
  const std::string link = PlatformLibrary(name);
  RemovePath(link);
  std::filesystem::create_symlink(target, link);
}

// Takes name out of the board's library directory: the board then has no such library.
inline void RemovePlatformLibrary(const std::string &name) { RemovePath(PlatformLibrary(name)); }

// Where the build's own platform libraries lie (the target of the board's libdrv.so link).
inline std::string BuildLibDir() {
  return std::filesystem::read_symlink(PlatformLibrary("libdrv.so")).parent_path().string();
}

// True while a library of that file name is mapped into this process.
inline bool IsLibraryLoaded(const std::string &name) {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.size() > name.size() + 1 &&
        line.compare(line.size() - name.size() - 1, std::string::npos, "/" + name) == 0) {
      return true;
    }
  }
  return false;
}

// The loader's reason for failing to open name, as dlerror() gives it.
inline std::string DlopenReason(const std::string &name, int flags) {
  void *handle = ::dlopen(name.c_str(), flags);
  if (handle != nullptr) {
    ::dlclose(handle);
    return "<opened>";
  }
  const char *reason = ::dlerror();
  return reason == nullptr ? "NULL" : reason;
}

// The loader's reason for not finding symbol in library name, as dlerror() gives it.
inline std::string DlsymReason(const std::string &name, int flags, const std::string &symbol) {
  void *handle = ::dlopen(name.c_str(), flags);
  if (handle == nullptr) {
    return "<not opened>";
  }
  (void)::dlerror();
  const void *entry = ::dlsym(handle, symbol.c_str());
  const char *reason = ::dlerror();
  const std::string text = entry != nullptr ? "<found>" : (reason == nullptr ? "NULL" : reason);
  ::dlclose(handle);
  return text;
}

// ---- calling operations ----

// What a call printed on standard output, byte for byte.
template <typename Call>
std::string StdoutOf(Call &&call) {
  std::fflush(stdout);
  testing::internal::CaptureStdout();
  call();
  std::fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

using Operation = uint32_t (*)(int32_t, char **);

// Calls an operation with the arguments as its argument vector (terminated by NULL).
inline uint32_t CallOperation(Operation operation, std::vector<std::string> args) {
  std::vector<char *> argv;
  for (auto &arg : args) {
    argv.push_back(arg.data());
  }
  argv.push_back(nullptr);
  return operation(static_cast<int32_t>(args.size()), argv.data());
}

// The result and the standard output of one operation call.
struct OperationOutput {
  uint32_t result = 0xDEADBEEF;
  std::string out;
};

inline OperationOutput RunOperation(Operation operation, std::vector<std::string> args) {
  OperationOutput output;
  output.out = StdoutOf([&] { output.result = CallOperation(operation, std::move(args)); });
  return output;
}

}  // namespace testsupport
