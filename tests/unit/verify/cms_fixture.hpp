// Common ground of the CMS signature and CRL tests: an active main board whose platform trusts
// the test PKI's root, both CRL flash areas never written, a package directory /opt/pkg with
// one file, empty logs and disarmed seams. Every test ends with no descriptor, no context and no
// decoded CRL left over.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "alloc_faults.hpp"
#include "board_facts.hpp"
#include "cms_faults.hpp"
#include "crl_fixture.hpp"

namespace cmstest {

inline const std::string kPkgDir = "/opt/pkg";
inline const std::string kSourceName = "app.bin";
inline const std::string kSource = kPkgDir + "/" + kSourceName;
inline const std::string kSourceContent = "application image\n";

inline std::map<std::string, std::string> MainBoardFacts() {
  std::map<std::string, std::string> facts = testsupport::ActiveMainBoard();
  facts["security.root_ca"] = crltest::Pki("root_ca.der");
  return facts;
}

// The lines of the security log (type 1).
inline std::vector<std::string> SafeLog() {
  return testsupport::LogMessages(testsupport::kSafeLogPath, 1);
}

class CmsTest : public testing::Test {
 protected:
  void SetUp() override {
    cmsfaults::Reset();
    allocfaults::Reset();
    testsupport::StartWithEmptyLogs();
    testsupport::DescribeBoard(MainBoardFacts());
    crltest::ForgetFlash();
    testsupport::RemovePath(kPkgDir);
    testsupport::WriteFile(kSource, kSourceContent);
    fdsBefore_ = testsupport::CountOpenFds();
  }
  void TearDown() override {
    EXPECT_EQ(testsupport::CountOpenFds(), fdsBefore_);
    EXPECT_EQ(cmsfaults::Get().contextsLive, 0);
    EXPECT_EQ(cmsfaults::Get().crlsLive, 0);
    cmsfaults::Reset();
    allocfaults::Reset();
  }

  // The description of the main board with some entries changed or added.
  static void MainBoardWith(const std::map<std::string, std::string> &changes) {
    testsupport::DescribeBoard(MainBoardFacts(), changes);
  }

  // Runs call and checks that it released every block it allocated.
  template <typename Call>
  static uint32_t Released(Call &&call) {
    uint32_t result = 0xDEADBEEF;
    EXPECT_EQ(allocfaults::BlocksLeftBy([&] { result = call(); }), 0u);
    return result;
  }

  int fdsBefore_ = 0;
};

}  // namespace cmstest
