// A file opened read-only, with its size and the MD5 of its whole content.
#ifndef ZQ_COPY_QUELLD_SHARED_FILE_H_
#define ZQ_COPY_QUELLD_SHARED_FILE_H_

#include <cstddef>
#include <string>

class SharedFile {
 public:
  // Opens `file` read-only. Never fails: a failed open leaves the descriptor negative.
  explicit SharedFile(const std::string& file);
  virtual ~SharedFile();

  SharedFile(const SharedFile&) = delete;
  SharedFile& operator=(const SharedFile&) = delete;

  // Size of a regular file; 0 when the file is not open or not a regular file.
  size_t Size();
  // MD5 of the content as 32 upper-case hexadecimal characters, hashed straight from a read-only
  // mapping. Empty text when the file is not open or its size is 0. Only the size modulo 2^32
  // bytes is hashed.
  std::string MD5();

 private:
  std::string file_;
  int fd_;
};

#endif  // ZQ_COPY_QUELLD_SHARED_FILE_H_
