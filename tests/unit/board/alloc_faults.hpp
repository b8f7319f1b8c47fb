// A seam in malloc and free (wrapped at link time) for the CRL tests: an allocation of a chosen
// size fails as when memory runs out, and blocks taken while a call runs are recorded, so a
// test can tell that the call released each one. Both pass every call through unless armed.
#pragma once

#include <cstddef>

namespace allocfaults {

// Makes allocations of exactly size bytes fail (errno ENOMEM): only the n-th one from now
// (1-based), or every one when onCall is 0.
void FailMallocOfSize(std::size_t size, int onCall = 0);
// Allocations made to fail so far.
int Failures();
void Reset();

// Counts the blocks malloc hands out and free takes back while call() runs; the blocks still
// held when it returns.
template <typename Call>
std::size_t BlocksLeftBy(Call &&call);

namespace detail {
void StartWatching();
std::size_t StopWatching();  // the blocks still held
}  // namespace detail

template <typename Call>
std::size_t BlocksLeftBy(Call &&call) {
  detail::StartWatching();
  call();
  return detail::StopWatching();
}

}  // namespace allocfaults
