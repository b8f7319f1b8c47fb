// A file that is filled first and gets its name only once its content has been accepted. It is
// an unnamed file in the directory it is to appear in (O_TMPFILE), linked in under its name;
// where the file system has no unnamed files, a hidden file with a unique name in the same
// directory, renamed into place. Either way nothing appears under the name before the file is
// put in place, and no other file is ever written through the name.
#pragma once

#include <sys/types.h>

#include <span>

namespace bootinit {

// Opens a staged file in dir with the given mode: -1 (errno set) when none can be made.
// hiddenPath receives the name of a hidden file, or "" for an unnamed one; a hidden file that
// is not put in place must be unlinked by the caller.
[[nodiscard]] int OpenStagedFile(const char *dir, mode_t mode, std::span<char> hiddenPath);

// Gives the staged file fd the name destPath, which must not exist: a link of the unnamed
// file, or the rename of the hidden one (hiddenPath is then emptied). false with errno set.
[[nodiscard]] bool PutStagedFile(int fd, std::span<char> hiddenPath, const char *destPath);

}  // namespace bootinit
