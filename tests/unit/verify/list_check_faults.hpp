// Seams of the list check tests, passing through unless a test arms them: the allocation of a
// signature file list record and the bounded copy of a file name into it, neither of which fails
// on a board.
#pragma once

#include <cstddef>
#include <string>

namespace listfaults {

struct Faults {
  std::size_t callocFailSize = 0;  // non-zero: calloc of exactly this many bytes fails
  int callocFailed = 0;
  std::string strcpyFailSource;  // strcpy_s fails for the n-th copy of this text ...
  int strcpyFailAt = 0;          // ... (1 = the next one); 0: never
  int strcpySeen = 0;
  int strcpyFailed = 0;
};

Faults &Get();
void Reset();

}  // namespace listfaults
