// Tests of libswm's board facts: directory test, logical CPU id, slot and hardware types from
// the board description, their defaults and forced failures.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "board_env_files.hpp"
#include "swm.h"

namespace {

constexpr uint32_t kUntouched = 0xA5A5A5A5u;

std::vector<uint32_t> HardTypes(uint32_t capacity, uint32_t *status) {
  std::vector<uint32_t> list(capacity + 1, kUntouched);
  uint32_t count = capacity;
  *status = SWM_GetBoardMultiHardType(list.data(), &count);
  EXPECT_EQ(list[capacity], kUntouched) << "written beyond the capacity";
  list.resize(count <= capacity ? count : capacity);
  return list;
}

class SwmBoardTest : public ::testing::Test {
 protected:
  void SetUp() override {
    boardtest::WriteDescription("[board]\nname=demo\n");
    boardtest::RemovePath(dir_);
    std::filesystem::create_directories(dir_);
  }
  void TearDown() override { boardtest::RemovePath(dir_); }
  const std::string dir_ = "/tmp/swm_board_test";
};

TEST_F(SwmBoardTest, IsDirExist) {
  boardtest::WriteFile(dir_ + "/file", "x");
  std::filesystem::create_directory_symlink(dir_, dir_ + "/to_dir");
  std::filesystem::create_symlink(dir_ + "/none", dir_ + "/dangling");
  EXPECT_EQ(SWM_IsDirExist(dir_.c_str()), 1);
  EXPECT_EQ(SWM_IsDirExist((dir_ + "/to_dir").c_str()), 1);
  EXPECT_EQ(SWM_IsDirExist("/"), 1);
  EXPECT_EQ(SWM_IsDirExist((dir_ + "/file").c_str()), 0);
  EXPECT_EQ(SWM_IsDirExist((dir_ + "/none").c_str()), 0);
  EXPECT_EQ(SWM_IsDirExist((dir_ + "/dangling").c_str()), 0);
  EXPECT_EQ(SWM_IsDirExist(""), 0);
  EXPECT_EQ(SWM_IsDirExist(nullptr), 0);
}

TEST_F(SwmBoardTest, IsDirExistForcedAnswer) {
  boardtest::WriteDescription("[fail]\nSWM_IsDirExist=0\n");
  EXPECT_EQ(SWM_IsDirExist(dir_.c_str()), 0);
  boardtest::WriteDescription("[fail]\nSWM_IsDirExist=1\n");
  EXPECT_EQ(SWM_IsDirExist((dir_ + "/none").c_str()), 1);
}

TEST_F(SwmBoardTest, Defaults) {
  uint32_t cpu = kUntouched;
  uint32_t slot = kUntouched;
  EXPECT_EQ(SWM_GetLogicCpuId(&cpu), SWM_OK);
  EXPECT_EQ(SWM_GetSlotId(&slot), SWM_OK);
  EXPECT_EQ(cpu, 0u);
  EXPECT_EQ(slot, 1u);
  uint32_t status = kUntouched;
  EXPECT_EQ(HardTypes(4, &status), std::vector<uint32_t>());
  EXPECT_EQ(status, SWM_OK);
  boardtest::RemovePath(boardtest::kDescription);
  EXPECT_EQ(SWM_GetSlotId(&slot), SWM_OK);
  EXPECT_EQ(slot, 1u);
}

TEST_F(SwmBoardTest, DescribedValues) {
  boardtest::WriteDescription("[board]\nlogic_cpu_id=0x2\nslot=12\n");
  uint32_t cpu = 0;
  uint32_t slot = 0;
  EXPECT_EQ(SWM_GetLogicCpuId(&cpu), SWM_OK);
  EXPECT_EQ(SWM_GetSlotId(&slot), SWM_OK);
  EXPECT_EQ(cpu, 2u);
  EXPECT_EQ(slot, 12u);
}

TEST_F(SwmBoardTest, NullPointers) {
  uint32_t count = 1;
  uint32_t list[1] = {};
  EXPECT_EQ(SWM_GetLogicCpuId(nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_GetSlotId(nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_GetBoardMultiHardType(nullptr, &count), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_GetBoardMultiHardType(list, nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(count, 1u);
}

TEST_F(SwmBoardTest, ValuesThatAreNotNumbers) {
  boardtest::WriteDescription("[board]\nlogic_cpu_id=zero\nslot=-2\n");
  uint32_t value = kUntouched;
  EXPECT_EQ(SWM_GetLogicCpuId(&value), SWM_ERR_FORMAT);
  EXPECT_EQ(SWM_GetSlotId(&value), SWM_ERR_FORMAT);
  EXPECT_EQ(value, kUntouched);
  boardtest::WriteDescription("[board\nslot=2\n");
  EXPECT_EQ(SWM_GetSlotId(&value), SWM_ERR_FORMAT);
}

TEST_F(SwmBoardTest, HardTypeList) {
  boardtest::WriteDescription("[board]\nhard_type=1\nhard_types=0x10, 0x20 0x30,64\n");
  uint32_t status = kUntouched;
  EXPECT_EQ(HardTypes(8, &status), std::vector<uint32_t>({0x10, 0x20, 0x30, 64}));
  EXPECT_EQ(status, SWM_OK);
  EXPECT_EQ(HardTypes(4, &status), std::vector<uint32_t>({0x10, 0x20, 0x30, 64}));
  EXPECT_EQ(HardTypes(2, &status), std::vector<uint32_t>({0x10, 0x20}));
  EXPECT_EQ(status, SWM_OK);
  EXPECT_EQ(HardTypes(0, &status), std::vector<uint32_t>());
  EXPECT_EQ(status, SWM_OK);
}

TEST_F(SwmBoardTest, HardTypeCountIsSet) {
  boardtest::WriteDescription("[board]\nhard_types=5 6 7\n");
  uint32_t list[8] = {};
  uint32_t count = 8;
  EXPECT_EQ(SWM_GetBoardMultiHardType(list, &count), SWM_OK);
  EXPECT_EQ(count, 3u);
  count = 2;
  EXPECT_EQ(SWM_GetBoardMultiHardType(list, &count), SWM_OK);
  EXPECT_EQ(count, 2u);
}

TEST_F(SwmBoardTest, HardTypeListFallsBackToTheSingleType) {
  boardtest::WriteDescription("[board]\nhard_type=0x4411\n");
  uint32_t status = kUntouched;
  EXPECT_EQ(HardTypes(4, &status), std::vector<uint32_t>({0x4411}));
  EXPECT_EQ(status, SWM_OK);
  boardtest::WriteDescription("[board]\nhard_type=0x4411\nhard_types=\n");
  EXPECT_EQ(HardTypes(4, &status), std::vector<uint32_t>());  // described as none
  EXPECT_EQ(status, SWM_OK);
}

TEST_F(SwmBoardTest, HardTypeListWithJunk) {
  boardtest::WriteDescription("[board]\nhard_types=1 2 three\n");
  uint32_t list[4] = {};
  uint32_t count = 4;
  EXPECT_EQ(SWM_GetBoardMultiHardType(list, &count), SWM_ERR_FORMAT);
  EXPECT_EQ(count, 0u);
  boardtest::WriteDescription("[board]\nhard_type=x\n");
  count = 4;
  EXPECT_EQ(SWM_GetBoardMultiHardType(list, &count), SWM_ERR_FORMAT);
  EXPECT_EQ(count, 0u);
}

TEST_F(SwmBoardTest, ForcedFailuresStillWriteTheOutputs) {
  boardtest::WriteDescription(
      "[board]\nlogic_cpu_id=3\nslot=9\nhard_types=7 8\n"
      "[fail]\nSWM_GetLogicCpuId=0x21\nSWM_GetSlotId=22\nSWM_GetBoardMultiHardType=023\n");
  uint32_t cpu = 0;
  uint32_t slot = 0;
  EXPECT_EQ(SWM_GetLogicCpuId(&cpu), 0x21u);
  EXPECT_EQ(SWM_GetSlotId(&slot), 22u);
  EXPECT_EQ(cpu, 3u);
  EXPECT_EQ(slot, 9u);
  uint32_t status = 0;
  EXPECT_EQ(HardTypes(4, &status), std::vector<uint32_t>({7, 8}));
  EXPECT_EQ(status, 19u);
  EXPECT_EQ(SWM_GetSlotId(nullptr), SWM_ERR_PARAM);
}

TEST_F(SwmBoardTest, ChangesBetweenCallsAreSeen) {
  uint32_t slot = 0;
  boardtest::WriteDescription("[board]\nslot=3\n");
  EXPECT_EQ(SWM_GetSlotId(&slot), SWM_OK);
  EXPECT_EQ(slot, 3u);
  boardtest::WriteDescription("[board]\nslot=4\n[fail]\nSWM_GetSlotId=1\n");
  EXPECT_EQ(SWM_GetSlotId(&slot), 1u);
  EXPECT_EQ(slot, 4u);
}

TEST_F(SwmBoardTest, NoDescriptorLeaks) {
  boardtest::WriteDescription("[board]\nslot=3\nhard_types=1 2\n[fail]\nSWM_GetLogicCpuId=4\n");
  const int before = boardtest::CountOpenFds();
  uint32_t value = 0;
  uint32_t list[4] = {};
  for (int i = 0; i < 50; ++i) {
    uint32_t count = 4;
    (void)SWM_IsDirExist(dir_.c_str());
    (void)SWM_GetLogicCpuId(&value);
    (void)SWM_GetSlotId(&value);
    (void)SWM_GetBoardMultiHardType(list, &count);
  }
  EXPECT_EQ(boardtest::CountOpenFds(), before);
}

}  // namespace
