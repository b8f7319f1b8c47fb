// Common ground of the startup tests: an active main board whose support library keeps the
// startup mode in the boot environment and names /opt/kytv8/backup as backup directory.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

#include "board_facts.hpp"
#include "format_faults.hpp"

namespace startuptest {

inline constexpr int kSupportFlags = RTLD_NOW | RTLD_GLOBAL;

class StartupTest : public testing::Test {
 protected:
  void SetUp() override {
    formatfaults::Reset();
    testsupport::StartWithEmptyLogs();
    testsupport::DescribeBoard(testsupport::ActiveMainBoard());
    testsupport::MakeDir(testsupport::kBackupDir);
    // A board's support library is the build's own unless a test takes it away.
    testsupport::PointPlatformLibrary(
        testsupport::kSupportLibrary,
        testsupport::BuildLibDir() + "/runtime/" + testsupport::kSupportLibrary);
  }
  void TearDown() override { formatfaults::Reset(); }

  static void StoredMode(const std::string &mode) { testsupport::SetEnv("startup_mode", mode); }
  static std::string StoredModeNow() {
    return testsupport::GetEnv("startup_mode").value_or("<unset>");
  }

  static void RemoveSupportLibrary() {
    testsupport::RemovePlatformLibrary(testsupport::kSupportLibrary);
  }
  // Another library of the build in place of the support library: it loads, but has none of
  // the entry points. (It is one that nothing else in the process loads: a library already
  // loaded would keep answering to the support library's name after the test.)
  static void SupportLibraryWithoutEntryPoints() {
    testsupport::PointPlatformLibrary(testsupport::kSupportLibrary,
                                      LIBRARY_WITHOUT_SUPPORT_ENTRIES);
  }
  static std::string OpenFailure() {
    return testsupport::DlopenReason(testsupport::kSupportLibrary, kSupportFlags);
  }
  static std::string MissingEntry(const std::string &symbol) {
    return testsupport::DlsymReason(testsupport::kSupportLibrary, kSupportFlags, symbol);
  }
  static bool SupportLibraryLoaded() {
    return testsupport::IsLibraryLoaded(testsupport::kSupportLibrary);
  }
};

}  // namespace startuptest
