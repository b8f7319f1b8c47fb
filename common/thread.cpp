// Detached worker threads: the caller never joins them and learns of their end by its own means.
#include <pthread.h>

#include "bootinit/common.h"
#include "bootinit/log.h"
#include "common/support/messages.hpp"

namespace bootinit::thread {
namespace {

// Destroys the attribute object on every path out of CreateDetached.
class ThreadAttr {
 public:
  ThreadAttr() : initResult_(pthread_attr_init(&attr_)) {}
  ThreadAttr(const ThreadAttr &) = delete;
  ThreadAttr &operator=(const ThreadAttr &) = delete;
  ~ThreadAttr() {
    if (initResult_ == 0) {
      (void)pthread_attr_destroy(&attr_);
    }
  }
  [[nodiscard]] int initResult() const { return initResult_; }
  pthread_attr_t *get() { return &attr_; }

 private:
  pthread_attr_t attr_{};
  int initResult_;
};

}  // namespace

uint32_t CreateDetached(void *(*startRoutine)(void *), void *arg, pthread_t *threadId) {
  ThreadAttr attr;
  if (attr.initResult() != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:thread attr init failed, ret=%d.", attr.initResult());
    return BOOT_INIT_ERROR;
  }
  int ret = pthread_attr_setdetachstate(attr.get(), PTHREAD_CREATE_DETACHED);
  if (ret != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:thread attr detached set failed, ret=%d.", ret);
    return BOOT_INIT_ERROR;
  }
  ret = pthread_create(threadId, attr.get(), startRoutine, arg);
  if (ret != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:thread create failed, ret=%d.",
                       ret);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

}  // namespace bootinit::thread

extern "C" uint32_t BOOT_INIT_CreateThread(void *(*startRoutine)(void *), void *arg,
                                           pthread_t *threadId) {
  if (startRoutine == nullptr || threadId == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERROR;
  }
  return bootinit::thread::CreateDetached(startRoutine, arg, threadId);
}
