// File wrappers: descriptors and paths, results as 0 / -1 with errno from the system call.
#include "pal/tfile.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <climits>

namespace {

int flags_to_open_i(int flags, int* out) {
  int o = 0;
  const bool rd = (flags & TF_MODE_READ) != 0;
  const bool wr = (flags & TF_MODE_WRITE) != 0;
  if (rd && wr) {
    o = O_RDWR;
  } else if (rd) {
    o = O_RDONLY;
  } else if (wr) {
    o = O_WRONLY;
  } else {
    return -1;
  }
  if (flags & TF_MODE_CREATE) o |= O_CREAT;
  if (flags & TF_MODE_TRUNCATE) o |= O_TRUNC;
  if (flags & TF_MODE_EXCL) o |= O_EXCL;
  *out = o | O_CLOEXEC;
  return 0;
}

int lock_i(int fd, short type, long start, long length, int cmd) {
  struct flock fl = {};
  fl.l_type = type;
  fl.l_whence = SEEK_SET;
  fl.l_start = start;
  fl.l_len = length;
  return fcntl(fd, cmd, &fl) == -1 ? -1 : 0;
}

// Writes all of buf, retrying after signals; false on an error or a write of 0 bytes.
bool write_full_i(int fd, const char* buf, size_t len) {
  while (len > 0) {
    ssize_t n = write(fd, buf, len);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    buf += n;
    len -= static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

extern "C" {

int tfopen(const char* path, int flags) {
  int oflags = 0;
  if (path == nullptr || flags_to_open_i(flags, &oflags) != 0) {
    errno = EINVAL;
    return -1;
  }
  return open(path, oflags, 0666);
}

int tfclose(int fd) {
  if (fd == -1) return 0;
  return close(fd);
}

int tfread(int fd, void* buf, int len) {
  if (len < 0 || (buf == nullptr && len > 0)) {
    errno = EINVAL;
    return -1;
  }
  return static_cast<int>(read(fd, buf, static_cast<size_t>(len)));
}

int tfwrite(int fd, const void* buf, int len) {
  if (len < 0 || (buf == nullptr && len > 0)) {
    errno = EINVAL;
    return -1;
  }
  return static_cast<int>(write(fd, buf, static_cast<size_t>(len)));
}

long tfseek(int fd, long offset, int whence) {
  return static_cast<long>(lseek(fd, offset, whence));
}

int tftruncate(int fd, long length) {
  if (lseek(fd, length, SEEK_SET) == -1) return -1;
  return ftruncate(fd, length);
}

int tfsync(int fd) { return fsync(fd); }

int tflock(int fd, long start, long length, int wait) {
  return lock_i(fd, F_WRLCK, start, length, wait ? F_SETLKW : F_SETLK);
}

int tfunlock(int fd, long start, long length) {
  return lock_i(fd, F_UNLCK, start, length, F_SETLK);
}

int tfstat(int fd, struct stat* st) {
  if (st == nullptr) {
    errno = EINVAL;
    return -1;
  }
  return fstat(fd, st);
}

int tfsize(int fd) {
  struct stat st;
  if (fstat(fd, &st) != 0) return -1;
  if (st.st_size > INT_MAX) {
    errno = EOVERFLOW;
    return -1;
  }
  return static_cast<int>(st.st_size);
}

int tflstat(const char* path, struct stat* st) {
  if (path == nullptr || st == nullptr) {
    errno = EINVAL;
    return -1;
  }
  return stat(path, st);
}

int tflsize(const char* path) {
  struct stat st;
  if (tflstat(path, &st) != 0) return -1;
  if (st.st_size > INT_MAX) {
    errno = EOVERFLOW;
    return -1;
  }
  return static_cast<int>(st.st_size);
}

int tfexist(const char* path) {
  struct stat st;
  return tflstat(path, &st) == 0 ? 0 : -1;
}

int tfdelete(const char* path) {
  if (path == nullptr) {
    errno = EINVAL;
    return -1;
  }
  return unlink(path);
}

int tfmkdir(const char* path) {
  if (path == nullptr) {
    errno = EINVAL;
    return -1;
  }
  return mkdir(path, 0770);
}

int tfload(int fd, char** buf, int* len) {
  if (buf == nullptr || len == nullptr) {
    errno = EINVAL;
    return -1;
  }
  *buf = nullptr;
  *len = 0;
  int size = tfsize(fd);
  if (size < 0) return -1;
  if (size == 0) return 0;
  char* data = static_cast<char*>(malloc(static_cast<size_t>(size) + 1));
  if (data == nullptr) return -1;
  int got = 0;
  while (got < size) {
    ssize_t n = read(fd, data + got, static_cast<size_t>(size - got));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    got += static_cast<int>(n);
  }
  if (got != size) {
    free(data);
    if (errno == 0) errno = EIO;
    return -1;
  }
  data[size] = '\0';
  *buf = data;
  *len = size;
  return 0;
}

int tflload(const char* path, char** buf, int* len) {
  int fd = tfopen(path, TF_MODE_READ);
  if (fd < 0) return -1;
  int ret = tfload(fd, buf, len);
  int saved = errno;
  close(fd);
  errno = saved;
  return ret;
}

int tfcopy(const char* dst, const char* src, int overwrite) {
  if (dst == nullptr || src == nullptr) {
    errno = EINVAL;
    return -1;
  }
  if (!overwrite) {
    int probe = tfopen(dst, TF_MODE_READ);
    if (probe >= 0) {
      close(probe);
      errno = EEXIST;
      return -1;
    }
  }
  int in = tfopen(src, TF_MODE_READ);
  if (in < 0) return -1;
  int out = tfopen(dst, TF_MODE_WRITE | TF_MODE_CREATE | TF_MODE_TRUNCATE);
  if (out < 0) {
    int saved = errno;
    close(in);
    errno = saved;
    return -1;
  }
  char block[TF_COPY_BLOCK];
  int ret = 0;
  for (;;) {
    ssize_t n = read(in, block, sizeof(block));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      ret = -1;
      break;
    }
    if (n == 0) break;
    if (!write_full_i(out, block, static_cast<size_t>(n))) {
      if (errno == 0) errno = EIO;
      ret = -1;
      break;
    }
  }
  int saved = errno;
  close(in);
  close(out);
  errno = saved;
  return ret;
}

}  // extern "C"
