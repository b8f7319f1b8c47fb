// BOOT_INIT_IsSupportMeasure: whether the board must be measured, as the TPM status queries of
// the board's basic driver library "libdrv_basic.so" answer.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>

#include "board_facts.hpp"
#include "bootinit/measure.h"
#include "format_faults.hpp"

using testing::ElementsAre;
using testsupport::MainLog;

namespace {

const std::string kLibrary = "libdrv_basic.so";
const std::string kCalls = "/tmp/tpm_status_calls";
const std::string kOnlineCall = "drv_board_get_tpm_online_status 0xFFFFFFFF\n";
const std::string kActiveCall = "drv_board_get_tpm_active_status 0xFFFFFFFF\n";

class MeasureSupportTest : public testing::Test {
 protected:
  void SetUp() override {
    formatfaults::Reset();
    testsupport::StartWithEmptyLogs();
    testsupport::RemovePath(kCalls);
    testsupport::RemovePlatformLibrary(kLibrary);
  }
  void TearDown() override { formatfaults::Reset(); }

  // A board whose basic driver library has both status queries, answering these statuses.
  static void TpmStatuses(const std::string &online, const std::string &active,
                          const std::map<std::string, std::string> &more = {}) {
    std::map<std::string, std::string> facts = testsupport::ActiveMainBoard();
    facts["tpm.online_status"] = online;
    facts["tpm.active_status"] = active;
    testsupport::DescribeBoard(facts, more);
    testsupport::PointPlatformLibrary(kLibrary, TPM_STATUS_LIBRARY);
  }

  static std::string Calls() { return testsupport::ReadFile(kCalls); }
};

TEST_F(MeasureSupportTest, BoardWithoutTheLibraryIsNotMeasured) {
  uint32_t result = 0xDEADBEEF;
  const std::string out = testsupport::StdoutOf([&] { result = BOOT_INIT_IsSupportMeasure(); });
  EXPECT_EQ(result, 0u);
  EXPECT_EQ(out, "");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:dlopen libdrv_basic.so fail, reason:" +
                                     testsupport::DlopenReason(kLibrary, RTLD_LAZY)));
}

TEST_F(MeasureSupportTest, OnlineAndActiveTpmMustBeMeasured) {
  TpmStatuses("0", "1");
  uint32_t result = 0xDEADBEEF;
  const std::string out = testsupport::StdoutOf([&] { result = BOOT_INIT_IsSupportMeasure(); });
  EXPECT_EQ(result, 1u);
  EXPECT_EQ(out, "");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:This board need measure"));
  // The online status first, then the active status, each for this board.
  EXPECT_EQ(Calls(), kOnlineCall + kActiveCall);
  EXPECT_FALSE(testsupport::IsLibraryLoaded(kLibrary));
}

TEST_F(MeasureSupportTest, LibraryIsOpenedWithLazyBinding) {
  testsupport::DescribeBoard(testsupport::ActiveMainBoard(),
                             {{"tpm.online_status", "0"}, {"tpm.active_status", "1"}});
  testsupport::PointPlatformLibrary(kLibrary, TPM_LAZY_LIBRARY);
  ASSERT_NE(testsupport::DlopenReason(kLibrary, RTLD_NOW), "<opened>");
  EXPECT_EQ(BOOT_INIT_IsSupportMeasure(), 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:This board need measure"));
  EXPECT_FALSE(testsupport::IsLibraryLoaded(kLibrary));
}

TEST_F(MeasureSupportTest, LoadedLibraryProbeSeesAnOpenLibrary) {
  // The check that the library is closed after each call would pass vacuously if the probe
  // never saw a library at all.
  testsupport::PointPlatformLibrary(kLibrary, TPM_STATUS_LIBRARY);
  void *handle = dlopen(kLibrary.c_str(), RTLD_LAZY);
  ASSERT_NE(handle, nullptr);
  EXPECT_TRUE(testsupport::IsLibraryLoaded(kLibrary));
  dlclose(handle);
  EXPECT_FALSE(testsupport::IsLibraryLoaded(kLibrary));
}

TEST_F(MeasureSupportTest, EveryOtherStatusPairIsNotMeasured) {
  const std::pair<const char *, const char *> pairs[] = {
      {"1", "1"}, {"0", "0"}, {"0", "2"}, {"2", "1"}, {"1", "0"}, {"0xFFFFFFFF", "1"}};
  for (const auto &[online, active] : pairs) {
    testsupport::ClearMainLog();
    TpmStatuses(online, active);
    EXPECT_EQ(BOOT_INIT_IsSupportMeasure(), 0u) << online << " " << active;
    EXPECT_THAT(MainLog(), ElementsAre()) << online << " " << active;
    EXPECT_FALSE(testsupport::IsLibraryLoaded(kLibrary));
  }
}

TEST_F(MeasureSupportTest, FailedOnlineQueryIsNotMeasured) {
  TpmStatuses("0", "1", {{"fail.drv_board_get_tpm_online_status", "0x30"}});
  EXPECT_EQ(BOOT_INIT_IsSupportMeasure(), 0u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Get tpm online status fail"));
  EXPECT_EQ(Calls().substr(0, kOnlineCall.size()), kOnlineCall);
  EXPECT_FALSE(testsupport::IsLibraryLoaded(kLibrary));
}

TEST_F(MeasureSupportTest, FailedActiveQueryIsNotMeasured) {
  TpmStatuses("0", "1", {{"fail.drv_board_get_tpm_active_status", "0x31"}});
  EXPECT_EQ(BOOT_INIT_IsSupportMeasure(), 0u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Get tpm active status fail"));
  EXPECT_EQ(Calls(), kOnlineCall + kActiveCall);
  EXPECT_FALSE(testsupport::IsLibraryLoaded(kLibrary));
}

TEST_F(MeasureSupportTest, StatusNotReadIsNotMeasured) {
  // The online status is not described: the query fails with its own code.
  testsupport::DescribeBoard(testsupport::ActiveMainBoard(), {{"tpm.active_status", "1"}});
  testsupport::PointPlatformLibrary(kLibrary, TPM_STATUS_LIBRARY);
  EXPECT_EQ(BOOT_INIT_IsSupportMeasure(), 0u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Get tpm online status fail"));
}

TEST_F(MeasureSupportTest, LibraryWithoutTheActiveQueryIsNotMeasured) {
  testsupport::DescribeBoard(testsupport::ActiveMainBoard(),
                             {{"tpm.online_status", "0"}, {"tpm.active_status", "1"}});
  testsupport::PointPlatformLibrary(kLibrary, TPM_ONLINE_ONLY_LIBRARY);
  EXPECT_EQ(BOOT_INIT_IsSupportMeasure(), 0u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][WARNING]:dlsym drv_board_get_tpm_active_status "
                                     "unsuccessfully, reason:" +
                                     testsupport::DlsymReason(kLibrary, RTLD_LAZY,
                                                              "drv_board_get_tpm_active_status")));
  // Both entry points are looked up before either status is asked for.
  EXPECT_EQ(Calls(), "");
  EXPECT_FALSE(testsupport::IsLibraryLoaded(kLibrary));
}

TEST_F(MeasureSupportTest, LibraryWithoutTheQueriesIsNotMeasured) {
  // Another real library of the build stands in the place of the basic driver library (one
  // that nothing else in the process loads, so that it goes away again when closed).
  testsupport::PointPlatformLibrary(
      kLibrary, testsupport::BuildLibDir() + "/runtime/" + testsupport::kSupportLibrary);
  EXPECT_EQ(BOOT_INIT_IsSupportMeasure(), 0u);
  const auto log = MainLog();
  ASSERT_FALSE(log.empty());
  EXPECT_EQ(log[0],
            "[BOOT_INIT][WARNING]:dlsym drv_board_get_tpm_online_status unsuccessfully, reason:" +
                testsupport::DlsymReason(kLibrary, RTLD_LAZY, "drv_board_get_tpm_online_status"));
  EXPECT_FALSE(testsupport::IsLibraryLoaded(testsupport::kSupportLibrary));
}

TEST_F(MeasureSupportTest, LibraryNameThatCannotBeFormattedIsNotMeasured) {
  TpmStatuses("0", "1");
  formatfaults::FailFormatOf("%s", "libdrv_basic.so");
  EXPECT_EQ(BOOT_INIT_IsSupportMeasure(), 0u);
  EXPECT_EQ(formatfaults::Get().failed, 1);
  formatfaults::Reset();
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Need Measure, sprintf libdrv_basic.so fail."));
  EXPECT_EQ(Calls(), "");
}

TEST_F(MeasureSupportTest, AnswerIsTheSameOnEveryCall) {
  TpmStatuses("0", "1");
  EXPECT_EQ(BOOT_INIT_IsSupportMeasure(), 1u);
  EXPECT_EQ(BOOT_INIT_IsSupportMeasure(), 1u);
  // Nothing is kept between calls: a changed status is seen by the next call.
  TpmStatuses("0", "0");
  EXPECT_EQ(BOOT_INIT_IsSupportMeasure(), 0u);
  EXPECT_EQ(Calls(),
            kOnlineCall + kActiveCall + kOnlineCall + kActiveCall + kOnlineCall + kActiveCall);
}

}  // namespace
