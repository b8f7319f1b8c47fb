// Seams of the download tests. All pass through unless a test arms them:
//  - sleep: counted; the real pause is skipped unless realSleep is set;
//  - memset_s: wipes of the sizes that hold secrets are recorded (what the memory held before
//    and whether every byte is zero afterwards) in one event list with the command writes;
//  - TKAL_FdWrite: what goes out on a socket is recorded in the same event list;
//  - calloc: fails for the transfer buffer's size when failTransferBuffer is set.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace downloadfaults {

struct Wipe {
  std::size_t size = 0;
  std::string before;  // the bytes up to the first NUL
  bool zeroAfter = false;
};

struct Faults {
  bool realSleep = false;
  std::vector<unsigned> sleeps;
  bool failTransferBuffer = false;
  // A wipe of a secret's size fails (the bounded function's range error) after wiping.
  bool failWipes = false;
  // "send:<text>" for every socket write, "wipe<size>:<text before>" for every recorded wipe.
  std::vector<std::string> events;
  std::vector<Wipe> wipes;
  // Path and length of every write to a file that is not a socket.
  std::vector<std::pair<std::string, std::size_t>> fileWrites;
};

Faults &Get();
void Reset();

// The wipes of one size, in order.
std::vector<Wipe> WipesOfSize(std::size_t size);

}  // namespace downloadfaults
