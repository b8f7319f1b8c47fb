// Owners for resources handed out by C interfaces: heap blocks from malloc/calloc, stdio
// streams and dlopen handles, each released exactly once on every path.
#pragma once

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace bootinit {

struct FreeDeleter {
  void operator()(void *block) const { std::free(block); }
};
struct FileCloser {
  void operator()(FILE *stream) const { (void)std::fclose(stream); }
};
struct DlCloser {
  void operator()(void *handle) const { (void)::dlclose(handle); }
};

// A block from malloc/calloc, released with free.
template <typename T>
using MallocPtr = std::unique_ptr<T, FreeDeleter>;
// A stream from fopen, closed with fclose.
using FileStream = std::unique_ptr<FILE, FileCloser>;
// A library handle, closed unless handed on with release().
using LibraryHandle = std::unique_ptr<void, DlCloser>;

}  // namespace bootinit
