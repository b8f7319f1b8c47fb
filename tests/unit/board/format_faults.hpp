// A seam in bounded formatting (vsnprintf_s, wrapped at link time) for the few formats that a
// real board never fails: the fixed library names, the hardware type texts. It passes every
// call through unless a test arms it.
#pragma once

namespace formatfaults {

struct Faults {
  const char *format = nullptr;    // fail calls with exactly this format...
  const char *firstArg = nullptr;  // ...and, when set, whose first (string) argument is this
  int onCall = 0;                  // only the n-th such call (1-based); 0: every one
  int seen = 0;                    // matching calls so far
  int failed = 0;                  // calls made to fail
};

Faults &Get();
void Reset();

// Arms the seam: matching calls return -1 with an emptied output, as a bounded format that
// cannot represent its output does.
void FailFormat(const char *format, int onCall = 0);
void FailFormatOf(const char *format, const char *firstArg);

}  // namespace formatfaults
