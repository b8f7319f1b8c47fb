// Owners of C resources used inside libswm: each releases its resource on every return path.
#ifndef SWM_OWNERS_H
#define SWM_OWNERS_H

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace swm {

struct FileCloser {
  void operator()(FILE *stream) const { (void)std::fclose(stream); }
};
using UniqueFile = std::unique_ptr<FILE, FileCloser>;

// Memory obtained from malloc(3) or getline(3).
struct FreeDeleter {
  void operator()(void *block) const { std::free(block); }
};

}  // namespace swm

#endif  // SWM_OWNERS_H
