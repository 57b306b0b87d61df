// Feeds every file of the folders named on the command line to the fuzz target once, so that a
// corpus is a regression test in builds without libFuzzer.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::vector<std::filesystem::path> filesOf(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

bool replay(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  if (!stream) return false;
  const std::vector<char> content{std::istreambuf_iterator<char>(stream), {}};
  const std::vector<std::uint8_t> bytes(content.begin(), content.end());
  std::printf("%s\n", file.c_str());  // before the run, so that a crash names its file
  std::fflush(stdout);
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  return true;
}

}  // namespace

int main(int count, char** arguments) {
  std::size_t replayed = 0;
  for (int at = 1; at < count; ++at) {
    for (const auto& file : filesOf(arguments[at])) {
      if (!replay(file)) {
        std::fprintf(stderr, "%s: cannot be read\n", file.c_str());
        return 1;
      }
      ++replayed;
    }
  }
  std::printf("%zu files\n", replayed);
  return replayed == 0 ? 1 : 0;
}
