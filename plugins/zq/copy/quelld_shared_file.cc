#include "copy/quelld_shared_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "copy/quelld_xcore_md5.h"

SharedFile::SharedFile(const std::string& file) : file_(file), fd_(open(file.c_str(), O_RDONLY)) {}

SharedFile::~SharedFile() {
  if (fd_ >= 0) close(fd_);
}

size_t SharedFile::Size() {
  struct stat st;
  if (fstat(fd_, &st) != 0) return 0;
  if ((st.st_mode & S_IFREG) == 0) return 0;
  return static_cast<size_t>(st.st_size);
}

std::string SharedFile::MD5() {
  if (fd_ < 0) return std::string();
  const size_t size = Size();
  if (size == 0) return std::string();
  void* mapping = mmap(nullptr, size, PROT_READ, MAP_SHARED, fd_, 0);
  if (mapping == MAP_FAILED) return std::string();  // never hash from an invalid address
  std::string digest = xcore::md5(mapping, static_cast<xcore::uint32>(size));
  munmap(mapping, size);
  return digest;
}
