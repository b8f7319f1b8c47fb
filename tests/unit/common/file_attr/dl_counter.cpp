#include "dl_counter.hpp"

#include <cstring>
#include <map>

extern "C" {
void *__real_dlopen(const char *name, int flags);
int __real_dlclose(void *handle);
}

namespace dlcount {
namespace {

constexpr const char *kLabelLibrary = "libselinux.so.1";

struct State {
  Counts counts;
  std::map<void *, int> handles;  // handle -> opens not yet closed
};

State &Mutable() {
  static State state;
  return state;
}

}  // namespace

Counts Get() { return Mutable().counts; }

void Reset() { Mutable() = State{}; }

void *OpenUncounted(const std::string &name, int flags) {
  return __real_dlopen(name.c_str(), flags);
}

int CloseUncounted(void *handle) { return __real_dlclose(handle); }

}  // namespace dlcount

extern "C" {

void *__wrap_dlopen(const char *name, int flags) {
  void *handle = __real_dlopen(name, flags);
  if (handle != nullptr && name != nullptr && std::strcmp(name, dlcount::kLabelLibrary) == 0) {
    dlcount::State &state = dlcount::Mutable();
    ++state.counts.opened;
    ++state.counts.live;
    ++state.handles[handle];
  }
  return handle;
}

int __wrap_dlclose(void *handle) {
  dlcount::State &state = dlcount::Mutable();
  const auto found = state.handles.find(handle);
  if (found != state.handles.end()) {
    ++state.counts.closed;
    --state.counts.live;
    if (--found->second == 0) {
      state.handles.erase(found);
    }
  }
  return __real_dlclose(handle);
}

}  // extern "C"
