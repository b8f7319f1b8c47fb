// The walk over a package's records that every reader of the container goes through before it
// trusts an entry: records laid end to end from the package header on, none empty or wrapping
// past 4 GiB, the last one ending with the file, and no binName twice. The index build adds a
// node per record; extraction only needs the package to pass.
#pragma once

#include <cstdint>
#include <functional>

#include "verify/pkg_layout.hpp"

namespace bootinit::pkg {

// Called for each record that passed its checks, in table order; a non-zero result stops the
// walk with that failure.
using RecordSink = std::function<uint32_t(const Entry &entry, const FileHeader &header)>;

// Checks the count entries of header against a package of pkgSize bytes read through fd,
// logging the container's messages. 0 when every record passed (and sink accepted it).
[[nodiscard]] uint32_t WalkRecords(int fd, Bytes header, uint32_t count, uint32_t pkgSize,
                                   const RecordSink &sink);

}  // namespace bootinit::pkg
