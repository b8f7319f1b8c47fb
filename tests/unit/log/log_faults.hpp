// Switches for the wrapped calls of the log tests; all pass through unless a test sets them.
#pragma once

#include <sys/time.h>

namespace logfaults {

struct Faults {
  bool pinTime = false;
  struct timeval time = {};
  bool failFlock = false;
  bool failFtruncate = false;
  bool failSeekPastHead = false;  // lseek to any offset other than 0
  bool failWrite = false;
  const char *failStrcpyOf = nullptr;  // strcpy_s of exactly this source text
};

Faults &Get();
void Reset();

}  // namespace logfaults
