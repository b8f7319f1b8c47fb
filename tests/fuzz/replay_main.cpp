// Replays fuzz corpora without libFuzzer: every regular file of each directory given (or each
// file given) goes once through the harness's LLVMFuzzerTestOneInput. The gcc builds link each
// harness with this main, so CTest replays the corpora in the plain and the sanitizer trees; a
// crash, a sanitizer report or a harness's own check stops the run and fails the test.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

std::vector<std::filesystem::path> InputsOf(const std::filesystem::path &argument) {
  std::vector<std::filesystem::path> inputs;
  if (std::filesystem::is_directory(argument)) {
    for (const auto &entry : std::filesystem::directory_iterator(argument)) {
      if (entry.is_regular_file()) {
        inputs.push_back(entry.path());
      }
    }
    std::sort(inputs.begin(), inputs.end());
  } else if (std::filesystem::is_regular_file(argument)) {
    inputs.push_back(argument);
  }
  return inputs;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s CORPUS_DIR_OR_FILE...\n", argv[0]);
    return 2;
  }
  std::size_t replayed = 0;
  for (int i = 1; i < argc; ++i) {
    for (const std::filesystem::path &input : InputsOf(argv[i])) {
      std::ifstream stream(input, std::ios::binary);
      const std::vector<char> bytes((std::istreambuf_iterator<char>(stream)),
                                    std::istreambuf_iterator<char>());
      // An empty vector's data() may be null; libFuzzer passes a valid pointer for size 0.
      static const uint8_t kEmpty = 0;
      const auto *data = bytes.empty() ? &kEmpty : reinterpret_cast<const uint8_t *>(bytes.data());
      (void)LLVMFuzzerTestOneInput(data, bytes.size());
      ++replayed;
    }
  }
  // An empty or missing corpus would make the replay prove nothing.
  if (replayed == 0) {
    std::fprintf(stderr, "%s: no corpus input found\n", argv[0]);
    return 1;
  }
  std::printf("%s: %zu inputs replayed\n", argv[0], replayed);
  return 0;
}
