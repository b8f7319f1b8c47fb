#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>

#include "board_files.hpp"
#include "bootinit/common.h"
#include "common_faults.hpp"

using testing::ElementsAre;
using testsupport::MainLog;

namespace {

std::atomic<int> g_ran{0};
std::atomic<pthread_t> g_self{};

void *Worker(void *arg) {
  g_self = pthread_self();
  g_ran = *static_cast<int *>(arg);
  return nullptr;
}

class ThreadTest : public testing::Test {
 protected:
  void SetUp() override {
    commonfaults::Reset();
    testsupport::StartWithEmptyLogs();
    g_ran = 0;
  }
  void TearDown() override { commonfaults::Reset(); }
};

TEST_F(ThreadTest, StartsADetachedThreadWithItsArgument) {
  int value = 42;
  pthread_t id{};
  EXPECT_EQ(BOOT_INIT_CreateThread(Worker, &value, &id), 0u);
  EXPECT_EQ(commonfaults::Get().detachStateSeen, PTHREAD_CREATE_DETACHED);
  for (int i = 0; i < 500 && g_ran == 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  EXPECT_EQ(g_ran, 42);
  EXPECT_TRUE(pthread_equal(g_self.load(), id));
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(ThreadTest, AttributeInitFailure) {
  commonfaults::Get().attrInitResult = ENOMEM;
  pthread_t id{};
  EXPECT_EQ(BOOT_INIT_CreateThread(Worker, nullptr, &id), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:thread attr init failed, ret=12."));
}

TEST_F(ThreadTest, DetachSettingFailure) {
  commonfaults::Get().setDetachResult = EINVAL;
  pthread_t id{};
  EXPECT_EQ(BOOT_INIT_CreateThread(Worker, nullptr, &id), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:thread attr detached set failed, ret=22."));
}

TEST_F(ThreadTest, CreateFailure) {
  commonfaults::Get().createResult = EAGAIN;
  pthread_t id{};
  EXPECT_EQ(BOOT_INIT_CreateThread(Worker, nullptr, &id), 0xFFFFFFFFu);
  EXPECT_EQ(g_ran, 0);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:thread create failed, ret=11."));
}

TEST_F(ThreadTest, EmptyPointers) {
  pthread_t id{};
  EXPECT_EQ(BOOT_INIT_CreateThread(nullptr, nullptr, &id), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_CreateThread(Worker, nullptr, nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(MainLog().size(), 2u);
}

}  // namespace
