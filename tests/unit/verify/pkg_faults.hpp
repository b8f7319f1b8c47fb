// Seams of the package tests, passing every call through unless a test arms them: allocations
// (also counted, so a test can tell that a call released what it took), the zeroing of the
// duplicate-name table, the copy of a name into it, seeks, the index's read lock and the copy of
// a record's bytes. None of these fails on a board on demand.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <vector>

namespace pkgfaults {

// One call of BOOT_INIT_CopyFileWithLen: its descriptors, length, and where the source stood.
struct CopyCall {
  int src = -1;
  int dst = -1;
  int32_t length = 0;
  long long srcPosition = -1;
};

struct Faults {
  std::size_t mallocFailSize = 0;  // non-zero: malloc of exactly this many bytes fails
  std::size_t callocFailSize = 0;  // non-zero: calloc of count * size == this fails
  int allocFailed = 0;
  std::size_t memsetFailDestMax = 0;  // non-zero: memset_s of a buffer of this size fails
  int memsetFailed = 0;
  std::size_t strcpyFailDestMax = 0;  // non-zero: strcpy_s into a buffer of this size fails
  int strcpyFailed = 0;
  int lseekFailFd = -1;  // lseek on this descriptor (the log files seek too) ...
  int lseekFailAt = 0;   // ... fails on its n-th call from arming (1 = the next one) ...
  int lseekErrno = 0;    // ... with this errno
  int lseekSeen = 0;
  int lseekFailed = 0;
  int rdlockFailAt = 0;  // the n-th read lock from arming fails (EAGAIN)
  int rdlockSeen = 0;
  int rdlockFailed = 0;
  bool watching = false;
  std::set<void *> held;  // blocks taken while watching and not yet released
  std::vector<CopyCall> copies;
};

Faults &Get();
void Reset();

// The blocks malloc and calloc handed out while call() ran and free did not take back.
template <typename Call>
std::size_t BlocksLeftBy(Call &&call) {
  Get().held.clear();
  Get().watching = true;
  call();
  Get().watching = false;
  const std::size_t left = Get().held.size();
  Get().held.clear();
  return left;
}

}  // namespace pkgfaults
