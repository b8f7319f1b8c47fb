// Helper of support_test, run as a separate process so that LD_LIBRARY_PATH can choose the
// driver build it loads: prints whether the driver has drv_env_set and what the support
// library answers.
#include <dlfcn.h>

#include <cstdint>
#include <cstdio>

#include "support_linux.h"

int main() {
  const bool hasSet = dlsym(RTLD_DEFAULT, "drv_env_set") != nullptr;
  const uint32_t set = PSSP_SetStartupMode(1);
  uint32_t mode = 7;
  const uint32_t get = PSSP_GetStartupMode(&mode);
  std::printf("drv_env_set=%d set=%u get=%u mode=%u\n", hasSet ? 1 : 0, set, get, mode);
  return 0;
}
