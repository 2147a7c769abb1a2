// Runs a fuzz target without libFuzzer: every file of the given corpus directories (or files)
// once as it is, then every truncation and a fixed set of byte flips of it.
#include <dirent.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

std::vector<std::string> listInputs(const std::string& path) {
  std::vector<std::string> files;
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return files;
  if (!S_ISDIR(st.st_mode)) {
    files.push_back(path);
    return files;
  }
  DIR* dir = opendir(path.c_str());
  if (dir == nullptr) return files;
  while (struct dirent* e = readdir(dir)) {
    const std::string name = e->d_name;
    if (name != "." && name != "..") files.push_back(path + "/" + name);
  }
  closedir(dir);
  return files;
}

void runOne(const std::vector<uint8_t>& bytes) {
  // A copy of exactly the input's size, so reads past the end are caught by the sanitizers.
  std::vector<uint8_t> exact(bytes);
  LLVMFuzzerTestOneInput(exact.empty() ? nullptr : exact.data(), exact.size());
}

}  // namespace

int main(int argc, char** argv) {
  size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    for (const std::string& file : listInputs(argv[i])) {
      std::ifstream in(file, std::ios::binary);
      std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                 std::istreambuf_iterator<char>());
      runOne(bytes);
      for (size_t n = 0; n < bytes.size(); ++n)
        runOne(std::vector<uint8_t>(bytes.begin(), bytes.begin() + n));
      for (size_t at = 0; at < bytes.size() && at < 64; ++at) {
        for (uint8_t flip : {0x01, 0x80, 0xff}) {
          std::vector<uint8_t> m(bytes);
          m[at] ^= flip;
          runOne(m);
        }
      }
      ++count;
    }
  }
  std::printf("replayed %zu inputs\n", count);
  return count > 0 ? 0 : 1;
}
