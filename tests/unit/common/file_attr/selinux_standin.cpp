// A recording stand-in for the security-label library, built for the tests only and linked into
// a board's library directory as /etc/bootsim/lib/libselinux.so.1. It answers with what the test
// chose through the selinux_standin_* control functions and records every call, one line each:
//   is_selinux_enabled
//   getfilecon <path>
//   setfilecon <path> <context>
//   lsetfilecon <path> <context>
//   freecon <context>
// Contexts handed out by getfilecon are counted until freecon gives them back. A test keeps the
// library loaded with a handle of its own, so the state lives on between the calls under test.
// Built with STANDIN_WITHOUT_LSETFILECON it lacks lsetfilecon.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

#define STANDIN_API extern "C" __attribute__((visibility("default")))

namespace {

struct State {
  int enabled = 1;
  std::string context = "system_u:object_r:etc_t:s0";
  std::string failing;  // name of the function that fails, with failErrno
  int failErrno = 0;
  std::string calls;
  std::set<char *> handedOut;
};

State &Get() {
  static State state;
  return state;
}

void Record(const std::string &line) { Get().calls += line + "\n"; }

// -1 with the chosen errno when function is the one the test made fail.
bool Fails(const char *function) {
  if (Get().failing != function) {
    return false;
  }
  errno = Get().failErrno;
  return true;
}

int SetLabel(const char *function, const char *path, const char *context) {
  Record(std::string(function) + " " + path + " " + context);
  return Fails(function) ? -1 : 0;
}

}  // namespace

// ---- control functions for the tests ----

STANDIN_API void selinux_standin_reset() { Get() = State{}; }
STANDIN_API void selinux_standin_set_enabled(int enabled) { Get().enabled = enabled; }
STANDIN_API void selinux_standin_set_context(const char *context) { Get().context = context; }
STANDIN_API void selinux_standin_fail(const char *function, int error) {
  Get().failing = function;
  Get().failErrno = error;
}
STANDIN_API const char *selinux_standin_calls() { return Get().calls.c_str(); }
STANDIN_API int selinux_standin_outstanding() { return static_cast<int>(Get().handedOut.size()); }

// ---- the library's functions ----

STANDIN_API int is_selinux_enabled() {
  Record("is_selinux_enabled");
  return Get().enabled;
}

STANDIN_API void freecon(char *context) {
  Record(std::string("freecon ") + (context == nullptr ? "(null)" : context));
  if (Get().handedOut.erase(context) == 0) {
    Record("freecon of a context not handed out");
    return;
  }
  std::free(context);
}

STANDIN_API int getfilecon(const char *path, char **context) {
  Record(std::string("getfilecon ") + path);
  if (Fails("getfilecon")) {
    return -1;
  }
  *context = strdup(Get().context.c_str());
  Get().handedOut.insert(*context);
  return static_cast<int>(Get().context.size() + 1);
}

STANDIN_API int setfilecon(const char *path, const char *context) {
  return SetLabel("setfilecon", path, context);
}

#ifndef STANDIN_WITHOUT_LSETFILECON
STANDIN_API int lsetfilecon(const char *path, const char *context) {
  return SetLabel("lsetfilecon", path, context);
}
#endif
