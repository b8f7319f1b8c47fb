// Owner of a dlopen handle: libraries opened for one step are closed before the step returns.
#pragma once

#include <dlfcn.h>

namespace bootinit {

class DlLibrary {
 public:
  DlLibrary(const char *name, int flags) : handle_(::dlopen(name, flags)) {}
  DlLibrary(const DlLibrary &) = delete;
  DlLibrary &operator=(const DlLibrary &) = delete;
  ~DlLibrary() {
    if (handle_ != nullptr) {
      (void)::dlclose(handle_);
    }
  }

  [[nodiscard]] bool loaded() const { return handle_ != nullptr; }

  // The entry point's address, or nullptr (then LastError() says why).
  [[nodiscard]] void *Symbol(const char *name) const { return ::dlsym(handle_, name); }

  // The loader's reason for the last failure, or "NULL" when it has none.
  static const char *LastError() {
    const char *reason = ::dlerror();
    return reason == nullptr ? "NULL" : reason;
  }

 private:
  void *handle_;
};

// Converts a looked-up address to a function pointer type.
template <typename Function>
Function AsFunction(void *address) {
  return reinterpret_cast<Function>(address);
}

}  // namespace bootinit
