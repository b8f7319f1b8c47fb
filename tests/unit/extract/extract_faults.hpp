// Seams of the extraction tests, passing every call through unless a test arms them:
//  - reads of the package: after a chosen read of the package file, the test's change is
//    written into that file on disk (what another process could do while the library reads);
//  - the creation of unnamed files: refused with a chosen errno, as by a file system without
//    them. Neither happens on a board on demand.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <string>

namespace extractfaults {

struct Faults {
  std::string package;            // the file whose reads are watched ("" none)
  int changeAfterRead = 0;        // after the n-th read of it (1 = the first)...
  std::function<void()> change;   // ...this runs once
  int packageReads = 0;           // reads of the watched file so far
  std::size_t changedAtRead = 0;  // bytes the read that triggered the change asked for
  int tmpfileErrno = 0;           // non-zero: opening an unnamed file fails with this errno
  int tmpfileRefused = 0;
};

Faults &Get();
void Reset();

}  // namespace extractfaults
