// Packages as a board might receive them, whatever their bytes, searched for single files with a
// fixed signed-file list: the digests of the three records of the seed package (kernel.img.gz of
// 2000 'k' bytes, rootfs, app.bin; `bootpkg build --time 1700000000 --no-list`). Each input is
// written as the package file in a directory of this process; FindTarget searches it for
// several names, proving and staging into an unnamed file, then once more without staging.
// Properties: the result is one of the search's three codes and the same with and without
// staging; a proven file's staged bytes are exactly the proven ones (their digest is the
// record's, or the record's file bytes', as the seed package has them), which no change of
// the package's bytes can get around; a signature file's staged bytes are as long as the search
// said. Messages go nowhere: the harness never initialises the boot logs. A broken property
// traps.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "bootinit/common.h"
#include "bootinit/extract.h"
#include "bootinit/verify.h"
#include "fuzz_files.hpp"

namespace {

using fuzzfiles::Check;

struct Listed {
  const char *name;
  const char *digest;
};

// The seed package's records as `bootpkg list` gives them.
constexpr std::array<Listed, 3> kList = {{
    {"kernel.bin", "5f3bd2fd4383fd699a7a03348695f1942667c9bb324c33051ffb87b33d720115"},
    {"rootfs.bin", "2e69aebe89ad63f4ed4b3e6180b63aaa01d77e1b776862373fe35907df2f6233"},
    {"app.bin", "553b7b570332922531210d85ef57486c38404ad727df469df9abdc6c3393063e"},
}};

struct Wanted {
  const char *name;
  const char *stagedDigest;  // of the staged bytes after a proof; nullptr: not proven
};

// The names searched: whole records, bare file bytes, a name no record has, a signature file.
constexpr std::array<Wanted, 6> kWanted = {{
    {"kernel.bin", "5f3bd2fd4383fd699a7a03348695f1942667c9bb324c33051ffb87b33d720115"},
    {"kernel.img.gz", "1c8123314be794fecd4622dd336c932c8c1592f8e3aa12eebf2e98aba92efd11"},
    {"rootfs", "a5238bf95d54ee37ea5d30b248edc2d9a5777c4ce65fa0eb0c54164a17f90735"},
    {"app.bin", "553b7b570332922531210d85ef57486c38404ad727df469df9abdc6c3393063e"},
    {"initrd", nullptr},
    {"signature_pss_cms", nullptr},
}};

std::string PackagePath() { return fuzzfiles::WorkPath("package.cc"); }

// The fixed list, loaded once and kept for the life of the process.
void LoadList() {
  static bool loaded = false;
  if (loaded) {
    return;
  }
  for (const Listed &listed : kList) {
    auto *record = static_cast<BOOT_INIT_SIG_FILE_DIGEST_NODE_S *>(
        std::calloc(1, BOOT_INIT_SIG_DIGEST_NODE_ALLOC));
    Check(record != nullptr);
    record->valid = 1;
    record->fileType = 1;
    Check(std::string(listed.name).size() < sizeof(record->fileName));
    std::string(listed.name).copy(record->fileName, sizeof(record->fileName) - 1);
    std::string(listed.digest).copy(record->digest, sizeof(record->digest) - 1);
    BOOT_InitDllInsertInMiddle(g_signedFiles, g_signedFiles->links.prev, &record->links,
                               &g_signedFiles->links);
  }
  loaded = true;
}

// The digest text of the first length bytes of a staged file.
std::string StagedDigest(int fd, uint32_t length) {
  Check(::lseek(fd, 0, SEEK_SET) == 0);
  std::array<uint8_t, BOOT_INIT_SHA256_LEN> digest{};
  Check(BOOT_INIT_Sha256GetWithFd(fd, length, digest.data(), BOOT_INIT_SHA256_LEN) == 0);
  std::array<char, BOOT_INIT_SHA256_TEXT_LEN> text{};
  BOOT_INIT_TransHashValueToString(digest.data(), BOOT_INIT_SHA256_LEN, text.data(),
                                   BOOT_INIT_SHA256_TEXT_LEN);
  return text.data();
}

off_t StagedSize(int fd) { return ::lseek(fd, 0, SEEK_END); }

void Search(int package, const Wanted &wanted, const std::string &dir) {
  const int stage = ::open(dir.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  Check(stage >= 0);
  BOOT_EXTRACT_TARGET_S target{};
  target.outFd = stage;
  const uint32_t staged = FindTarget(package, wanted.name, &target);
  Check(staged == 0 || staged == BOOT_INIT_ERR_NOT_IN_PACKAGE || staged == BOOT_INIT_ERROR);
  if (staged == 0 && target.copyResult == 0) {
    Check(StagedSize(stage) == static_cast<off_t>(target.length));
    if (wanted.stagedDigest != nullptr) {
      Check(StagedDigest(stage, target.length) == wanted.stagedDigest);
    }
  }
  Check(wanted.stagedDigest == nullptr || staged != 0 || target.copyResult == 0);
  Check(::close(stage) == 0);
  BOOT_EXTRACT_TARGET_S proveOnly{};
  proveOnly.outFd = -1;
  Check(FindTarget(package, wanted.name, &proveOnly) == staged);
  Check(staged != 0 || proveOnly.length == target.length);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  LoadList();
  const std::string path = PackagePath();
  fuzzfiles::WriteFile(path, data, size);
  const std::string dir = path.substr(0, path.rfind('/'));
  const int package = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  Check(package >= 0);
  for (const Wanted &wanted : kWanted) {
    Search(package, wanted, dir);
  }
  Check(::close(package) == 0);
  Check(g_signedFiles->count == kList.size());
  return 0;
}
