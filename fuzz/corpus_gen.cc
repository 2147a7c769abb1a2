// Writes the seed corpora: valid encodings of pseudo-randomly filled records at assorted cut
// versions. Usage: fuzz_corpus_gen <corpus-dir>  (writes <dir>/tframehead, nhp, o2auth).
#include <sys/stat.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "nhp_testsupport.h"
#include "o2auth_data_testsupport.h"
#include "tframehead_testsupport.h"

namespace {

bool writeFile(const std::string& path, const std::vector<char>& bytes) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return false;
  const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  return std::fclose(f) == 0 && ok;
}

// count seeds of T, each packed at a cut version chosen by cutOf(seed); only small encodings
// (below 4 KiB) are kept so the corpus stays small.
template <typename T, typename CutOf>
int emit(const std::string& dir, int count, CutOf cutOf) {
  mkdir(dir.c_str(), 0755);
  std::unique_ptr<T> rec(new T());
  std::vector<char> out(T::MAX_PACK_SIZE);
  int written = 0;
  for (uint64_t seed = 1; written < count && seed < 100000; ++seed) {
    vixtest_fill(*rec, seed);
    size_t used = 0;
    if (rec->pack(out.data(), out.size(), &used, cutOf(seed)) != 0 || used > 4096) continue;
    char name[64];
    std::snprintf(name, sizeof(name), "/seed-%03d.bin", written);
    if (!writeFile(dir + name,
                   std::vector<char>(out.begin(), out.begin() + static_cast<long>(used))))
      return -1;
    ++written;
  }
  return written;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s <corpus-dir>\n", argv[0]);
    return 2;
  }
  const std::string root = argv[1];
  mkdir(root.c_str(), 0755);
  const int a = emit<tframehead::TFrameHead>(root + "/tframehead", 40, [](uint64_t s) {
    return static_cast<unsigned int>(tframehead::TFrameHead::BASEVERSION + s % 26);
  });
  const int b = emit<nhp::TNHPInFrame>(root + "/nhp", 40, [](uint64_t) { return 0u; });
  const int c = emit<KALMOO2UnifiedAuth>(root + "/o2auth", 30, [](uint64_t) { return 0u; });
  std::printf("tframehead %d, nhp %d, o2auth %d seeds\n", a, b, c);
  return a > 0 && b > 0 && c > 0 ? 0 : 1;
}
