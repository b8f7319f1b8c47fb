#include "bootinit/dispatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "board_files.hpp"

using testing::ElementsAre;

// A recording operation can take the place of any table entry through the wrapped lookup.
namespace {
struct Recorded {
  bool called = false;
  int32_t argc = -1;
  std::vector<std::string> argv;
};
Recorded g_recorded;
bool g_useFake = false;
uint32_t g_lookedUp = 0;
constexpr uint32_t kFakeResult = 0x12345678;

uint32_t FakeOperation(int32_t argc, char **argv) {
  g_recorded.called = true;
  g_recorded.argc = argc;
  for (int32_t i = 0; i < argc; ++i) {
    g_recorded.argv.emplace_back(argv[i]);
  }
  return kFakeResult;
}
}  // namespace

extern "C" BOOT_INIT_OPER_FUNC __real_BOOT_INIT_GetOperationFunc(uint32_t operType);
extern "C" BOOT_INIT_OPER_FUNC __wrap_BOOT_INIT_GetOperationFunc(uint32_t operType) {
  g_lookedUp = operType;
  return g_useFake ? FakeOperation : __real_BOOT_INIT_GetOperationFunc(operType);
}

namespace {

class DispatchTest : public testing::Test {
 protected:
  void SetUp() override {
    testsupport::StartWithEmptyLogs();
    g_recorded = Recorded{};
    g_useFake = false;
    g_lookedUp = 0xDEADBEEF;
  }

  static uint32_t Dispatch(std::vector<std::string> args) {
    std::vector<char *> argv;
    for (auto &arg : args) {
      argv.push_back(arg.data());
    }
    argv.push_back(nullptr);
    return BOOT_INIT_DoOperation(static_cast<int32_t>(args.size()), argv.data());
  }
};

TEST_F(DispatchTest, NumberFourLogsOnlyTheMissingFunction) {
  EXPECT_EQ(Dispatch({"4"}), 0xFFFFFFFFu);
  EXPECT_THAT(testsupport::MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Can not find operation func by type = 4"));
}

TEST_F(DispatchTest, NumbersOutsideTheTableLogBothLines) {
  for (const char *number : {"20", "99"}) {
    testsupport::RemovePath(testsupport::kMainLogPath);
    EXPECT_EQ(Dispatch({number}), 0xFFFFFFFFu);
    const std::string n(number);
    EXPECT_THAT(
        testsupport::MainLog(),
        ElementsAre("[BOOT_INIT][ERROR]:Operation type value is invalid, operType = " + n + ".",
                    "[BOOT_INIT][ERROR]:Can not find operation func by type = " + n));
  }
}

TEST_F(DispatchTest, NonDigitNumbersAreRefusedBeforeConversion) {
  for (const char *number : {"-1", "1a", "", " 1", "+1"}) {
    testsupport::RemovePath(testsupport::kMainLogPath);
    EXPECT_EQ(Dispatch({number}), 0xFFFFFFFFu);
    EXPECT_EQ(g_lookedUp, 0xDEADBEEFu) << "no lookup for " << number;
    EXPECT_THAT(testsupport::MainLog(),
                ElementsAre(std::string("[BOOT_INIT][ERROR]:BOOT_INIT do operation, operType = ") +
                            number + " is not right."));
  }
}

TEST_F(DispatchTest, EveryEntryWithoutFunctionAnswersOnlyTheMissingFunction) {
  for (const auto &entry : g_operFuncInfo) {
    if (entry.operFunc != nullptr) {
      continue;
    }
    testsupport::RemovePath(testsupport::kMainLogPath);
    EXPECT_EQ(Dispatch({std::to_string(entry.operType)}), 0xFFFFFFFFu);
    EXPECT_THAT(testsupport::MainLog(),
                ElementsAre("[BOOT_INIT][ERROR]:Can not find operation func by type = " +
                            std::to_string(entry.operType)));
  }
}

TEST_F(DispatchTest, LargeNumbersKeepTheirLowThirtyTwoBits) {
  g_useFake = true;
  EXPECT_EQ(Dispatch({"4294967296"}), kFakeResult);
  EXPECT_EQ(g_lookedUp, 0u);
  EXPECT_EQ(Dispatch({"4294967303"}), kFakeResult);
  EXPECT_EQ(g_lookedUp, 7u);
}

TEST_F(DispatchTest, WrappedNumberReachesTheRealTable) {
  EXPECT_EQ(Dispatch({"4294967300"}), 0xFFFFFFFFu);
  EXPECT_EQ(g_lookedUp, 4u);
  EXPECT_THAT(testsupport::MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Can not find operation func by type = 4"));
}

TEST_F(DispatchTest, LeadingZerosAreAccepted) {
  g_useFake = true;
  EXPECT_EQ(Dispatch({"007"}), kFakeResult);
  EXPECT_EQ(g_lookedUp, 7u);
}

TEST_F(DispatchTest, OperationSeesItsOwnArgumentsAndItsResultIsReturned) {
  g_useFake = true;
  EXPECT_EQ(Dispatch({"3", "1", "/opt/pkg.cc"}), kFakeResult);
  EXPECT_TRUE(g_recorded.called);
  EXPECT_EQ(g_recorded.argc, 2);
  EXPECT_THAT(g_recorded.argv, ElementsAre("1", "/opt/pkg.cc"));
  // Nothing is logged around a call that reached its operation.
  EXPECT_THAT(testsupport::MainLog(), ElementsAre());
}

TEST_F(DispatchTest, OperationWithOnlyTheNumberSeesCountZero) {
  g_useFake = true;
  EXPECT_EQ(Dispatch({"19"}), kFakeResult);
  EXPECT_EQ(g_lookedUp, 19u);
  EXPECT_EQ(g_recorded.argc, 0);
}

TEST_F(DispatchTest, EmptyVectorIsRefused) {
  EXPECT_EQ(BOOT_INIT_DoOperation(0, nullptr), 0xFFFFFFFFu);
  EXPECT_THAT(testsupport::MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:BOOT_INIT do operation, operType = (null) is not "
                          "right."));
}

}  // namespace
