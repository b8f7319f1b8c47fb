// Common ground of the board tests: an active main board (role 1, CPU 0, slot 1, type 0x1A2B)
// with the marker /opt/MMB, the package home and backup directories, a boot environment holding
// only the backup partition and the startup mode (network), no developer files and empty logs.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "board_facts.hpp"
#include "format_faults.hpp"

namespace boardtest {

class BoardTest : public testing::Test {
 protected:
  void SetUp() override {
    formatfaults::Reset();
    testsupport::StartWithEmptyLogs();
    testsupport::RemovePath(testsupport::kBootIpIni);
    testsupport::DescribeBoard(testsupport::ActiveMainBoard());
    testsupport::Touch(testsupport::kMmbMarker);
    testsupport::MakeDir(testsupport::kHomeDir);
    testsupport::MakeDir(testsupport::kBackupDir);
    testsupport::WriteRawEnvironment(
        {{"homebak_path", testsupport::kBackupDir}, {"startup_mode", "0"}});
    testsupport::PointPlatformLibrary(
        testsupport::kSupportLibrary,
        testsupport::BuildLibDir() + "/runtime/" + testsupport::kSupportLibrary);
  }
  void TearDown() override { formatfaults::Reset(); }

  // The active main board with some entries changed or added.
  static void MainBoardWith(const std::map<std::string, std::string> &changes) {
    testsupport::DescribeBoard(testsupport::ActiveMainBoard(), changes);
  }
  static void LineCardWith(const std::map<std::string, std::string> &changes = {}) {
    testsupport::DescribeBoard(testsupport::LineCard(), changes);
    testsupport::RemovePath(testsupport::kMmbMarker);
  }
};

}  // namespace boardtest
