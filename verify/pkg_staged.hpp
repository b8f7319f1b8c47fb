// One file of the indexed package extracted and hashed in the same read: its bytes go into a
// staged file in the destination directory while their digest is computed, and the file gets
// its name only after its caller accepted that digest. A copy that is not accepted never
// appears under the name.
#pragma once

#include <array>
#include <cstdint>

#include "common/support/hash_copy.hpp"
#include "common/support/unique_fd.hpp"
#include "verify/pkg_support.hpp"

namespace bootinit::pkg {

class StagedRecord {
 public:
  enum class Outcome : uint8_t {
    kCopied,        // digest() is that of the staged bytes
    kNotExtracted,  // the extraction's own lines were logged
    kNotHashed,     // the digest's own lines were logged
  };

  StagedRecord() = default;
  StagedRecord(const StagedRecord &) = delete;
  StagedRecord &operator=(const StagedRecord &) = delete;
  ~StagedRecord();

  // The whole record (asRecord) or the file's bytes of the indexed file name into dir/name,
  // with the extraction's messages: the file not indexed, the directory, the staged file, the
  // copy. Whatever lay at dir/name is removed first.
  Outcome Stage(const char *name, const char *dir, bool asRecord);
  // Links the staged copy in under its name; false after "Create file ... failed".
  bool Place();

  [[nodiscard]] const Digest &digest() const { return digest_; }
  [[nodiscard]] const char *path() const { return path_.data(); }

 private:
  UniqueFd fd_;
  PathText path_ = {};
  PathText hidden_ = {};
  Digest digest_ = {};
};

}  // namespace bootinit::pkg
