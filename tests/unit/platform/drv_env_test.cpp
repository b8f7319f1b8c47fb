// Tests of libdrv's boot environment: reading, setting, removing and flushing variables in the
// U-Boot environment image named by /etc/fw_env.config, in agreement with fw_printenv and
// fw_setenv; fresh, damaged and redundant images; forced failures.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "board_env_files.hpp"
#include "drv.h"

namespace {

using boardtest::PrintEnv;
using boardtest::SetEnvTool;

std::string Get(const char *name, uint32_t *status, uint32_t bufLen = 256) {
  std::string buf(bufLen, 'X');
  *status = drv_env_get(name, buf.data(), bufLen, 0);
  return std::string(buf.c_str());
}

// Overwrites one byte of an image in place.
void DamageImage(const std::string &path, std::streamoff offset) {
  std::fstream image(path, std::ios::in | std::ios::out | std::ios::binary);
  image.seekg(offset);
  const char old = static_cast<char>(image.get());
  image.seekp(offset);
  image.put(static_cast<char>(old ^ 0x5A));
}

class DrvEnvTest : public ::testing::Test {
 protected:
  void SetUp() override { boardtest::PrepareBoard("[board]\nname=demo\n"); }
};

TEST_F(DrvEnvTest, ReadsWhatFwSetenvWrote) {
  ASSERT_EQ(SetEnvTool("next_bootfile", "flash:/pkg-2.cc"), 0);
  ASSERT_EQ(SetEnvTool("cpu_id", "3"), 0);
  uint32_t status = 99;
  EXPECT_EQ(Get("next_bootfile", &status), "flash:/pkg-2.cc");
  EXPECT_EQ(status, 0u);
  EXPECT_EQ(Get("cpu_id", &status), "3");
  EXPECT_EQ(status, 0u);
}

TEST_F(DrvEnvTest, FwPrintenvSeesWhatTheLibrarySet) {
  ASSERT_EQ(drv_env_set("homebak_path", "/opt/backup dir"), 0u);
  ASSERT_EQ(drv_env_set("startup_mode", "1"), 0u);
  EXPECT_EQ(PrintEnv("-n homebak_path").text, "/opt/backup dir\n");
  const boardtest::Output all = PrintEnv();
  EXPECT_EQ(all.status, 0);
  EXPECT_EQ(all.text, "homebak_path=/opt/backup dir\nstartup_mode=1\n");
  ASSERT_EQ(drv_env_set("startup_mode", "0"), 0u);
  EXPECT_EQ(PrintEnv("startup_mode").text, "startup_mode=0\n");
}

TEST_F(DrvEnvTest, SetThenGet) {
  ASSERT_EQ(drv_env_set("next_bootfile_ex1", "a=b=c"), 0u);
  uint32_t status = 99;
  EXPECT_EQ(Get("next_bootfile_ex1", &status), "a=b=c");
  EXPECT_EQ(status, 0u);
  ASSERT_EQ(drv_env_set("next_bootfile_ex1", "second"), 0u);
  EXPECT_EQ(Get("next_bootfile_ex1", &status), "second");
}

TEST_F(DrvEnvTest, UnsetVariablesAreNotFoundAndTheBufferIsCleared) {
  ASSERT_EQ(SetEnvTool("other", "1"), 0);
  uint32_t status = 0;
  EXPECT_EQ(Get("last_bootfile", &status), "");
  EXPECT_EQ(status, DRV_ERR_NOT_FOUND);
}

TEST_F(DrvEnvTest, EmptyOrNullValueRemovesTheVariable) {
  ASSERT_EQ(drv_env_set("a", "1"), 0u);
  ASSERT_EQ(drv_env_set("b", "2"), 0u);
  ASSERT_EQ(drv_env_set("c", "3"), 0u);
  EXPECT_EQ(drv_env_set("a", ""), 0u);
  EXPECT_EQ(drv_env_set("b", nullptr), 0u);
  uint32_t status = 0;
  (void)Get("a", &status);
  EXPECT_EQ(status, DRV_ERR_NOT_FOUND);
  (void)Get("b", &status);
  EXPECT_EQ(status, DRV_ERR_NOT_FOUND);
  EXPECT_EQ(PrintEnv().text, "c=3\n");
  EXPECT_EQ(drv_env_set("never_set", nullptr), 0u);  // removing an absent variable is no error
  EXPECT_EQ(PrintEnv().text, "c=3\n");
}

TEST_F(DrvEnvTest, EmptyVariableWrittenByTheToolReadsAsEmpty) {
  ASSERT_EQ(SetEnvTool("empty", ""), 0);  // fw_setenv NAME "" keeps NAME with no value
  uint32_t status = 99;
  EXPECT_EQ(Get("empty", &status), "");
  EXPECT_EQ(status, 0u);
}

TEST_F(DrvEnvTest, ValueMustFitWithItsTerminator) {
  ASSERT_EQ(drv_env_set("v", "12345"), 0u);
  uint32_t status = 99;
  EXPECT_EQ(Get("v", &status, 6), "12345");
  EXPECT_EQ(status, 0u);
  EXPECT_EQ(Get("v", &status, 5), "");
  EXPECT_EQ(status, DRV_ERR_TOO_LONG);
  EXPECT_EQ(Get("v", &status, 1), "");
  EXPECT_EQ(status, DRV_ERR_TOO_LONG);
}

TEST_F(DrvEnvTest, ParameterChecks) {
  char buf[8] = "old";
  EXPECT_EQ(drv_env_get(nullptr, buf, sizeof(buf), 0), DRV_ERR_PARAM);
  EXPECT_STREQ(buf, "");
  std::strcpy(buf, "old");
  EXPECT_EQ(drv_env_get("", buf, sizeof(buf), 0), DRV_ERR_PARAM);
  EXPECT_STREQ(buf, "");
  EXPECT_EQ(drv_env_get("a=b", buf, sizeof(buf), 0), DRV_ERR_PARAM);
  EXPECT_EQ(drv_env_get("a", nullptr, 8, 0), DRV_ERR_PARAM);
  std::strcpy(buf, "old");
  EXPECT_EQ(drv_env_get("a", buf, 0, 0), DRV_ERR_PARAM);
  EXPECT_STREQ(buf, "old");  // a zero-length buffer is not written
  EXPECT_EQ(drv_env_set(nullptr, "1"), DRV_ERR_PARAM);
  EXPECT_EQ(drv_env_set("", "1"), DRV_ERR_PARAM);
  EXPECT_EQ(drv_env_set("a=b", "1"), DRV_ERR_PARAM);
  EXPECT_EQ(PrintEnv().text, "");
}

TEST_F(DrvEnvTest, FreshImageHasNothingToReadLikeFwPrintenv) {
  // A zero-filled image has no valid checksum: fw_printenv refuses it without a default
  // environment, and so does the library.
  EXPECT_NE(PrintEnv().status, 0);
  uint32_t status = 0;
  EXPECT_EQ(Get("startup_mode", &status), "");
  EXPECT_EQ(status, DRV_ERR_ENV);
}

TEST_F(DrvEnvTest, SettingOnAFreshImageMakesItValid) {
  ASSERT_EQ(drv_env_set("startup_mode", "1"), 0u);
  EXPECT_EQ(PrintEnv().text, "startup_mode=1\n");
  EXPECT_EQ(boardtest::ReadFile(boardtest::kEnvImage).size(), boardtest::kEnvSize);
}

TEST_F(DrvEnvTest, DefaultEnvironmentFileStandsInForAMissingCopy) {
  boardtest::WriteFile(boardtest::kDefaultEnv, "cpu_id=2\nhomebak_path=/opt/hb\n");
  const boardtest::Output tool = PrintEnv("-n cpu_id");
  EXPECT_EQ(tool.status, 0);
  EXPECT_EQ(tool.text, "2\n");
  uint32_t status = 99;
  EXPECT_EQ(Get("cpu_id", &status), "2");
  EXPECT_EQ(status, 0u);
  // A change starts from those defaults and stores them with it.
  ASSERT_EQ(drv_env_set("startup_mode", "0"), 0u);
  boardtest::RemovePath(boardtest::kDefaultEnv);
  EXPECT_EQ(PrintEnv().text, "cpu_id=2\nhomebak_path=/opt/hb\nstartup_mode=0\n");
}

TEST_F(DrvEnvTest, DamagedImageCannotBeRead) {
  ASSERT_EQ(SetEnvTool("startup_mode", "1"), 0);
  DamageImage(boardtest::kEnvImage, 8);
  EXPECT_NE(PrintEnv().status, 0);
  uint32_t status = 0;
  EXPECT_EQ(Get("startup_mode", &status), "");
  EXPECT_EQ(status, DRV_ERR_ENV);
  // A change writes a new environment in its place, as the boot loader's own save would.
  ASSERT_EQ(drv_env_set("cpu_id", "1"), 0u);
  EXPECT_EQ(PrintEnv().text, "cpu_id=1\n");
}

TEST_F(DrvEnvTest, ShortImageCannotBeRead) {
  boardtest::WriteFile(boardtest::kEnvImage, std::string(100, '\0'));
  uint32_t status = 0;
  (void)Get("startup_mode", &status);
  EXPECT_EQ(status, DRV_ERR_ENV);
}

TEST_F(DrvEnvTest, MissingConfigurationOrImage) {
  ASSERT_EQ(SetEnvTool("startup_mode", "1"), 0);
  boardtest::RemovePath(boardtest::kEnvConfig);
  uint32_t status = 0;
  EXPECT_EQ(Get("startup_mode", &status), "");
  EXPECT_EQ(status, DRV_ERR_ENV);
  EXPECT_EQ(drv_env_set("startup_mode", "0"), DRV_ERR_ENV);
  EXPECT_EQ(drv_env_save_block(), DRV_ERR_ENV);

  boardtest::WriteEnvConfig();
  boardtest::RemovePath(boardtest::kEnvImage);
  (void)Get("startup_mode", &status);
  EXPECT_EQ(status, DRV_ERR_ENV);
  EXPECT_EQ(drv_env_set("startup_mode", "0"), DRV_ERR_ENV);
  EXPECT_FALSE(std::filesystem::exists(boardtest::kEnvImage));  // never created
}

TEST_F(DrvEnvTest, MalformedConfiguration) {
  ASSERT_EQ(SetEnvTool("startup_mode", "1"), 0);
  boardtest::WriteFile(boardtest::kEnvConfig, "this is not a configuration\n");
  uint32_t status = 0;
  (void)Get("startup_mode", &status);
  EXPECT_EQ(status, DRV_ERR_ENV);
  boardtest::WriteFile(boardtest::kEnvConfig, "");
  (void)Get("startup_mode", &status);
  EXPECT_EQ(status, DRV_ERR_ENV);
}

TEST_F(DrvEnvTest, ValueTooLargeForTheImageChangesNothing) {
  ASSERT_EQ(drv_env_set("keep", "1"), 0u);
  const std::string before = boardtest::ReadFile(boardtest::kEnvImage);
  const std::string huge(boardtest::kEnvSize, 'x');
  EXPECT_EQ(drv_env_set("huge", huge.c_str()), DRV_ERR_ENV);
  EXPECT_EQ(boardtest::ReadFile(boardtest::kEnvImage), before);
  EXPECT_EQ(PrintEnv().text, "keep=1\n");
}

TEST_F(DrvEnvTest, SaveBlockStoresTheEnvironmentAgain) {
  ASSERT_EQ(SetEnvTool("startup_mode", "1"), 0);
  EXPECT_EQ(drv_env_save_block(), 0u);
  EXPECT_EQ(PrintEnv().text, "startup_mode=1\n");
}

TEST_F(DrvEnvTest, SaveBlockOnAFreshImageWritesAnEmptyValidEnvironment) {
  EXPECT_EQ(drv_env_save_block(), 0u);
  const boardtest::Output tool = PrintEnv();
  EXPECT_EQ(tool.status, 0);
  EXPECT_EQ(tool.text, "");
}

TEST_F(DrvEnvTest, RedundantEnvironment) {
  boardtest::WriteEnvConfig(true);
  boardtest::WriteFreshImage(boardtest::kEnvImage2);
  ASSERT_EQ(drv_env_set("startup_mode", "0"), 0u);
  ASSERT_EQ(drv_env_set("startup_mode", "1"), 0u);
  EXPECT_EQ(PrintEnv().text, "startup_mode=1\n");
  ASSERT_EQ(SetEnvTool("startup_mode", "0"), 0);
  uint32_t status = 99;
  EXPECT_EQ(Get("startup_mode", &status), "0");
  EXPECT_EQ(status, 0u);
  // Damaging the newer copy brings back the older one.
  ASSERT_EQ(drv_env_set("startup_mode", "1"), 0u);
  const std::string first = boardtest::ReadFile(boardtest::kEnvImage);
  const std::string second = boardtest::ReadFile(boardtest::kEnvImage2);
  const bool firstNewer =
      static_cast<unsigned char>(first[4]) > static_cast<unsigned char>(second[4]);
  DamageImage(firstNewer ? boardtest::kEnvImage : boardtest::kEnvImage2, 10);
  EXPECT_EQ(Get("startup_mode", &status), "0");
  EXPECT_EQ(status, 0u);
  EXPECT_EQ(PrintEnv().text, "startup_mode=0\n");
}

TEST_F(DrvEnvTest, ForcedFailureOfGetStillCopiesTheValue) {
  ASSERT_EQ(drv_env_set("startup_mode", "1"), 0u);
  boardtest::WriteDescription("[fail]\ndrv_env_get=0x55\n");
  uint32_t status = 0;
  EXPECT_EQ(Get("startup_mode", &status), "1");
  EXPECT_EQ(status, 0x55u);
  EXPECT_EQ(Get("missing", &status), "");
  EXPECT_EQ(status, 0x55u);
}

TEST_F(DrvEnvTest, ForcedFailureOfSetOrSaveWritesNothing) {
  ASSERT_EQ(drv_env_set("startup_mode", "1"), 0u);
  const std::string before = boardtest::ReadFile(boardtest::kEnvImage);
  boardtest::WriteDescription("[fail]\ndrv_env_set=7\ndrv_env_save_block=420\n");
  EXPECT_EQ(drv_env_set("startup_mode", "0"), 7u);
  EXPECT_EQ(drv_env_set("startup_mode", nullptr), 7u);
  EXPECT_EQ(drv_env_save_block(), 420u);
  EXPECT_EQ(boardtest::ReadFile(boardtest::kEnvImage), before);
  EXPECT_EQ(drv_env_set(nullptr, "0"), DRV_ERR_PARAM);
  boardtest::WriteDescription("[board]\n");
  EXPECT_EQ(drv_env_set("startup_mode", "0"), 0u);
  EXPECT_EQ(PrintEnv().text, "startup_mode=0\n");
}

TEST_F(DrvEnvTest, ConcurrentChangesAreNotLost) {
  // Each call is one session from reading to storing, serialised by libubootenv's lock, so
  // changes made at the same time by other threads or processes are kept.
  ASSERT_EQ(drv_env_set("start", "1"), 0u);  // a valid image, so fw_setenv needs no defaults
  constexpr int kThreads = 4;
  constexpr int kPerThread = 20;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kPerThread; ++i) {
        const std::string name = "v" + std::to_string(t) + "_" + std::to_string(i);
        EXPECT_EQ(drv_env_set(name.c_str(), "1"), 0u);
      }
    });
  }
  const boardtest::Output tool = boardtest::Run("for i in 1 2 3 4 5; do fw_setenv -c " +
                                                boardtest::kEnvConfig + " tool$i x; done");
  EXPECT_EQ(tool.status, 0);
  for (std::thread &thread : threads) {
    thread.join();
  }
  const std::string all = PrintEnv().text;
  for (int t = 0; t < kThreads; ++t) {
    for (int i = 0; i < kPerThread; ++i) {
      const std::string line = "v" + std::to_string(t) + "_" + std::to_string(i) + "=1\n";
      EXPECT_NE(all.find(line), std::string::npos) << line;
    }
  }
  for (int i = 1; i <= 5; ++i) {
    EXPECT_NE(all.find("tool" + std::to_string(i) + "=x\n"), std::string::npos) << i;
  }
}

TEST_F(DrvEnvTest, NoDescriptorLeaks) {
  ASSERT_EQ(drv_env_set("startup_mode", "1"), 0u);
  const int before = boardtest::CountOpenFds();
  uint32_t status = 0;
  for (int i = 0; i < 30; ++i) {
    (void)Get("startup_mode", &status);
    (void)Get("missing", &status);
    (void)drv_env_set("i", std::to_string(i).c_str());
    (void)drv_env_save_block();
  }
  boardtest::RemovePath(boardtest::kEnvConfig);
  for (int i = 0; i < 10; ++i) {
    (void)Get("startup_mode", &status);
    (void)drv_env_set("i", "x");
  }
  boardtest::WriteEnvConfig();
  DamageImage(boardtest::kEnvImage, 6);
  for (int i = 0; i < 10; ++i) {
    (void)Get("startup_mode", &status);
  }
  EXPECT_EQ(boardtest::CountOpenFds(), before);
}

}  // namespace
