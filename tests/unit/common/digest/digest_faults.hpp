// Link-time seams of the digest tests (-Wl,--wrap). malloc and memset_s fail only for the sizes
// a test names, so everything else of the process keeps working; dlopen and dlclose always pass
// through and are counted, so a test can check that every library handle the digest code got
// was closed again.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace digestfaults {

struct DlopenCall {
  std::string name;
  int flags = 0;
  bool opened = false;
};

struct Faults {
  std::size_t failMallocOfSize = 0;          // malloc of exactly this size returns NULL (0: none)
  std::vector<std::size_t> failMemsetSizes;  // memset_s with one of these destMax fails
  int mallocFailures = 0;
  int memsetFailures = 0;
  std::vector<DlopenCall> dlopenCalls;  // every dlopen, in order
  int opened = 0;                       // dlopen calls that returned a handle
  int closed = 0;                       // dlclose calls
};

Faults &Get();
void Reset();

}  // namespace digestfaults
