#include "alloc_faults.hpp"

#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <set>

namespace allocfaults {
namespace {

struct State {
  std::mutex lock;
  std::size_t failSize = 0;
  int onCall = 0;
  int seen = 0;
  int failures = 0;
  bool watching = false;
  std::set<void *> held;
};

// Never destroyed: free may still be called while the program's statics go away.
State &Get() {
  static State *const state = new State;
  return *state;
}

}  // namespace

void FailMallocOfSize(std::size_t size, int onCall) {
  const std::lock_guard<std::mutex> guard(Get().lock);
  Get().failSize = size;
  Get().onCall = onCall;
  Get().seen = 0;
}

int Failures() {
  const std::lock_guard<std::mutex> guard(Get().lock);
  return Get().failures;
}

void Reset() {
  const std::lock_guard<std::mutex> guard(Get().lock);
  State &state = Get();
  state.failSize = 0;
  state.onCall = 0;
  state.seen = 0;
  state.failures = 0;
  state.watching = false;
  state.held.clear();
}

namespace detail {

void StartWatching() {
  const std::lock_guard<std::mutex> guard(Get().lock);
  Get().held.clear();
  Get().watching = true;
}

std::size_t StopWatching() {
  const std::lock_guard<std::mutex> guard(Get().lock);
  Get().watching = false;
  const std::size_t left = Get().held.size();
  Get().held.clear();
  return left;
}

}  // namespace detail
}  // namespace allocfaults

extern "C" {
void *__real_malloc(size_t size);
void __real_free(void *block);

void *__wrap_malloc(size_t size) {
  allocfaults::State &state = allocfaults::Get();
  const std::lock_guard<std::mutex> guard(state.lock);
  if (state.failSize != 0 && size == state.failSize &&
      (state.onCall == 0 || ++state.seen == state.onCall)) {
    ++state.failures;
    errno = ENOMEM;
    return nullptr;
  }
  void *block = __real_malloc(size);
  if (state.watching && block != nullptr) {
    state.held.insert(block);
  }
  return block;
}

void __wrap_free(void *block) {
  {
    allocfaults::State &state = allocfaults::Get();
    const std::lock_guard<std::mutex> guard(state.lock);
    state.held.erase(block);
  }
  __real_free(block);
}
}
