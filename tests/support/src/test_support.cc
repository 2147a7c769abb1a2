// Helpers shared by the project's test programs.
#include "zq_test/support.h"

#include <fcntl.h>
#include <ftw.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <fstream>
#include <iterator>

namespace zq_test {

namespace {

int RemoveOne(const char* path, const struct stat*, int, struct FTW*) {
  remove(path);
  return 0;
}

}  // namespace

TempDir::TempDir(const char* prefix) {
  std::string tmpl = std::string("/tmp/") + prefix + "_XXXXXX";
  if (mkdtemp(&tmpl[0]) == nullptr) {
    ADD_FAILURE() << "mkdtemp " << tmpl << " failed";
    return;
  }
  path_ = tmpl;
}

TempDir::~TempDir() {
  if (!path_.empty()) nftw(path_.c_str(), &RemoveOne, 16, FTW_DEPTH | FTW_PHYS);
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool WriteFile(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
  return static_cast<bool>(out);
}

OutputCapture::OutputCapture(int fd) : fd_(fd) {
  char tmpl[] = "/tmp/zq_capture_XXXXXX";
  file_ = mkstemp(tmpl);
  if (file_ < 0) {
    ADD_FAILURE() << "mkstemp for the output capture failed";
    return;
  }
  unlink(tmpl);  // the descriptor keeps it alive; nothing is left behind
  fflush(nullptr);
  saved_ = dup(fd_);
  if (saved_ < 0 || dup2(file_, fd_) < 0) ADD_FAILURE() << "cannot redirect descriptor " << fd_;
}

OutputCapture::~OutputCapture() { Stop(); }

std::string OutputCapture::Stop() {
  if (file_ < 0) return text_;
  if (saved_ >= 0) {
    fflush(nullptr);
    dup2(saved_, fd_);
    close(saved_);
    saved_ = -1;
  }
  char buf[4096];
  ssize_t n;
  off_t at = 0;
  while ((n = pread(file_, buf, sizeof(buf), at)) > 0) {
    text_.append(buf, static_cast<size_t>(n));
    at += n;
  }
  close(file_);
  file_ = -1;
  return text_;
}

}  // namespace zq_test
