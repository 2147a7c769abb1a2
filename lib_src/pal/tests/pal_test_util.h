// Helpers shared by the pal tests.
#ifndef PAL_TESTS_PAL_TEST_UTIL_H
#define PAL_TESTS_PAL_TEST_UTIL_H

#include <ftw.h>
#include <stdio.h>
#include <stdlib.h>

#include <fstream>
#include <iterator>
#include <string>

namespace pal_test {

// A fresh directory under /tmp, removed with its contents when the object goes away.
class TempDir {
 public:
  TempDir() {
    char tmpl[] = "/tmp/pal_test_XXXXXX";
    const char* p = mkdtemp(tmpl);
    path_ = p ? p : "";
  }
  ~TempDir() {
    if (!path_.empty()) nftw(path_.c_str(), &RemoveOne, 16, FTW_DEPTH | FTW_PHYS);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  static int RemoveOne(const char* p, const struct stat*, int, struct FTW*) {
    remove(p);
    return 0;
  }
  std::string path_;
};

inline void WriteText(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

inline std::string ReadText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace pal_test

#endif  // PAL_TESTS_PAL_TEST_UTIL_H
