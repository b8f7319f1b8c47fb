// One read of a byte range of a package that both hashes the range and writes a part of it
// into a staged file, so that what is written is exactly what was hashed.
#pragma once

#include <array>
#include <cstdint>

#include "bootinit/common.h"

namespace bootinit {

using Digest = std::array<uint8_t, BOOT_INIT_SHA256_LEN>;

// The part of the hashed range that is written, relative to the range's start, and where to.
// A part that is not wholly inside the range is never asked for.
struct CopyPart {
  int outFd = -1;  // -1: nothing is written
  uint32_t skip = 0;
  uint32_t length = 0;
};

// SHA-256 of the next length bytes of fd, with the messages and results of the library's digest
// of a descriptor range: 0; 0xFFFFFFFF without a crypto library or when fd delivers fewer bytes;
// 0x10000005 without a read buffer. The part's bytes go to part.outFd as they are read;
// copyResult is 0, or 1 when a write failed (the hashing goes on: the verdict on the bytes does
// not depend on where they are copied) or when fd delivered fewer bytes than the range.
uint32_t Sha256CopyWithFd(int fd, uint32_t length, const CopyPart &part, Digest &digest,
                          uint32_t &copyResult);

}  // namespace bootinit
