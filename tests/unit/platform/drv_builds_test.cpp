// Tests of the two builds of libdrv: the full one has every entry point, the minimal one lacks
// the four a board may not have, under the same file name and soname.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "board_env_files.hpp"

namespace {

constexpr const char *kAlwaysPresent[] = {"drv_board_get_type", "drv_msc_get_state", "drv_env_get"};
constexpr const char *kMayBeMissing[] = {"drv_board_get_self_logic_slotid", "drv_env_set",
                                         "drv_env_save_block", "DEV_GetRoleOfBoard"};

class Library {
 public:
  explicit Library(const char *path) : handle_(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {}
  ~Library() {
    if (handle_ != nullptr) {
      dlclose(handle_);
    }
  }
  Library(const Library &) = delete;
  Library &operator=(const Library &) = delete;
  bool loaded() const { return handle_ != nullptr; }
  void *Symbol(const char *name) const { return dlsym(handle_, name); }

 private:
  void *handle_;
};

std::string Soname(const std::string &path) {
  const boardtest::Output dynamic = boardtest::Run("readelf -d '" + path + "'");
  const std::string::size_type at = dynamic.text.find("(SONAME)");
  if (at == std::string::npos) {
    return {};
  }
  const std::string::size_type open = dynamic.text.find('[', at);
  const std::string::size_type close = dynamic.text.find(']', open);
  return dynamic.text.substr(open + 1, close - open - 1);
}

TEST(DrvBuilds, FullBuildHasEveryEntryPoint) {
  Library full(DRV_FULL_PATH);
  ASSERT_TRUE(full.loaded()) << dlerror();
  for (const char *name : kAlwaysPresent) {
    EXPECT_NE(full.Symbol(name), nullptr) << name;
  }
  for (const char *name : kMayBeMissing) {
    EXPECT_NE(full.Symbol(name), nullptr) << name;
  }
}

TEST(DrvBuilds, MinimalBuildLacksTheFourOptionalEntryPoints) {
  Library minimal(DRV_MINIMAL_PATH);
  ASSERT_TRUE(minimal.loaded()) << dlerror();
  for (const char *name : kAlwaysPresent) {
    EXPECT_NE(minimal.Symbol(name), nullptr) << name;
  }
  for (const char *name : kMayBeMissing) {
    EXPECT_EQ(minimal.Symbol(name), nullptr) << name;
  }
}

TEST(DrvBuilds, MinimalBuildAnswersLikeTheFullOne) {
  boardtest::WriteDescription("[board]\nhard_type=0x77\n[fail]\ndrv_msc_get_state=420\n");
  Library minimal(DRV_MINIMAL_PATH);
  ASSERT_TRUE(minimal.loaded()) << dlerror();
  using GetType = uint32_t (*)(uint32_t, uint32_t *);
  using GetState = uint32_t (*)(uint32_t, uint32_t, uint32_t *);
  auto getType = reinterpret_cast<GetType>(minimal.Symbol("drv_board_get_type"));
  auto getState = reinterpret_cast<GetState>(minimal.Symbol("drv_msc_get_state"));
  ASSERT_NE(getType, nullptr);
  ASSERT_NE(getState, nullptr);
  uint32_t value = 0;
  EXPECT_EQ(getType(0xFFFFFFFFu, &value), 0u);
  EXPECT_EQ(value, 0x77u);
  EXPECT_EQ(getState(0xFFFFFFFFu, 0, &value), 420u);
}

TEST(DrvBuilds, SameFileNameAndSoname) {
  const std::filesystem::path full(DRV_FULL_PATH);
  const std::filesystem::path minimal(DRV_MINIMAL_PATH);
  EXPECT_EQ(full.filename(), "libdrv.so");
  EXPECT_EQ(minimal.filename(), "libdrv.so");
  EXPECT_EQ(minimal.parent_path().filename(), "drv-minimal");
  EXPECT_EQ(minimal.parent_path().parent_path(), full.parent_path());
  EXPECT_EQ(Soname(DRV_FULL_PATH), "libdrv.so");
  EXPECT_EQ(Soname(DRV_MINIMAL_PATH), "libdrv.so");
}

}  // namespace
