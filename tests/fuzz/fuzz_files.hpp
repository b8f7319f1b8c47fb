// What the harnesses that hand their input to the library as a file share: a broken property
// traps, and the files live in one directory of this process under the board's private /tmp,
// made on first use and removed with its files when the process exits.
#ifndef BOOTINIT_TESTS_FUZZ_FUZZ_FILES_HPP
#define BOOTINIT_TESTS_FUZZ_FUZZ_FILES_HPP

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>

namespace fuzzfiles {

inline void Check(bool property) {
  if (!property) {
    __builtin_trap();
  }
}

struct WorkDir {
  std::string path;
  std::set<std::string> files;
};

inline WorkDir &Work() {
  static WorkDir work;
  return work;
}

inline void RemoveWork() {
  for (const std::string &file : Work().files) {
    (void)::unlink(file.c_str());
  }
  (void)::rmdir(Work().path.c_str());
}

// The path of NAME in the harness's directory; the file is removed at exit.
inline std::string WorkPath(const std::string &name) {
  WorkDir &work = Work();
  if (work.path.empty()) {
    char dir[] = "/tmp/bootinit_fuzz.XXXXXX";
    Check(::mkdtemp(dir) != nullptr);
    work.path = dir;
    (void)std::atexit(RemoveWork);
  }
  const std::string path = work.path + "/" + name;
  work.files.insert(path);
  return path;
}

// Replaces the file at PATH by SIZE bytes of DATA.
inline void WriteFile(const std::string &path, const void *data, size_t size) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  Check(fd >= 0);
  const auto *bytes = static_cast<const uint8_t *>(data);
  size_t done = 0;
  while (done < size) {
    const ssize_t written = ::write(fd, bytes + done, size - done);
    Check(written > 0);
    done += static_cast<size_t>(written);
  }
  Check(::close(fd) == 0);
}

}  // namespace fuzzfiles

#endif  // BOOTINIT_TESTS_FUZZ_FUZZ_FILES_HPP
