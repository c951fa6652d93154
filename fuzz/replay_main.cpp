// Runs a fuzz target's entry point on saved inputs without the fuzzer, so that a crash input
// reproduces with any compiler: every file named on the command line, and every regular file
// inside every directory named (in name order). Arguments starting with "-" are skipped, so a
// fuzzer command line can be reused as it is.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

bool run_file(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "replay: cannot read %s\n", path.c_str());
    return false;
  }
  const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::fprintf(stderr, "replay: %s (%zu bytes)\n", path.c_str(), bytes.size());
  // A copy of exactly the input's size (never a null pointer, as with the fuzzer), so that
  // reads past its end are caught.
  const std::unique_ptr<uint8_t[]> data(new uint8_t[bytes.size()]);
  std::copy(bytes.begin(), bytes.end(), data.get());
  LLVMFuzzerTestOneInput(data.get(), bytes.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
  size_t ran = 0;
  bool all_read = true;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (!arg.empty() && arg[0] == '-') continue;
    const std::filesystem::path path(arg);
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec)) {
      std::vector<std::filesystem::path> files;
      for (const auto& entry : std::filesystem::directory_iterator(path, ec))
        if (entry.is_regular_file(ec)) files.push_back(entry.path());
      std::sort(files.begin(), files.end());
      for (const auto& f : files) ran += run_file(f) ? 1 : 0;
    } else {
      if (run_file(path))
        ++ran;
      else
        all_read = false;
    }
  }
  std::fprintf(stderr, "replay: ran %zu inputs\n", ran);
  return all_read ? 0 : 1;
}
