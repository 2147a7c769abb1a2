// File wrappers: open flags, offsets and sizes, path queries, whole-file loads, copies, locks.
#include "pal/tfile.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "zq_test/support.h"

namespace {

using zq_test::ReadFile;
using zq_test::TempDir;
using zq_test::WriteFile;

TEST(TfOpen, FlagsModesAndCloseOnExec) {
  TempDir dir;
  const std::string f = dir.file("a");
  for (int bad : {0, TF_MODE_CREATE, TF_MODE_READ}) EXPECT_EQ(tfopen(f.c_str(), bad), -1) << bad;
  const mode_t old = umask(0);
  int fd = tfopen(f.c_str(), TF_MODE_WRITE | TF_MODE_CREATE);
  umask(old);
  ASSERT_GE(fd, 0);
  struct stat st;
  ASSERT_EQ(tfstat(fd, &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0666u);
  EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  char c;
  EXPECT_EQ(tfread(fd, &c, 1), -1);  // write-only
  EXPECT_EQ(tfwrite(fd, "hello", 5), 5);
  EXPECT_EQ(tfclose(fd), 0);
  EXPECT_EQ(tfclose(-1), 0);

  fd = tfopen(f.c_str(), TF_MODE_READ);
  EXPECT_EQ(tfwrite(fd, "x", 1), -1);  // read-only
  EXPECT_EQ(tfclose(fd), 0);
  EXPECT_EQ(tfopen(f.c_str(), TF_MODE_WRITE | TF_MODE_CREATE | TF_MODE_EXCL), -1);
  EXPECT_EQ(errno, EEXIST);
  fd = tfopen(f.c_str(), TF_MODE_READ | TF_MODE_WRITE);
  EXPECT_EQ(tfread(fd, &c, 1), 1);
  EXPECT_EQ(tfwrite(fd, "E", 1), 1);
  EXPECT_EQ(tfseek(fd, 3, SEEK_CUR), 5);
  EXPECT_EQ(tftruncate(fd, 4), 0);  // moves the offset, then cuts
  EXPECT_EQ(tfseek(fd, 0, SEEK_CUR), 4);
  EXPECT_EQ(tfsize(fd), 4);
  EXPECT_EQ(tftruncate(fd, -1), -1);
  EXPECT_EQ(tfsync(fd), 0);
  EXPECT_EQ(tfclose(fd), 0);
  EXPECT_EQ(tfsize(fd), -1);
  EXPECT_EQ(ReadFile(f), "hEll");
  EXPECT_EQ(tfclose(tfopen(f.c_str(), TF_MODE_WRITE | TF_MODE_TRUNCATE)), 0);
  EXPECT_EQ(tflsize(f.c_str()), 0);
}

TEST(TfPath, QueriesFollowLinksAndMkdirMakesOneLevel) {
  TempDir dir;
  const std::string f = dir.file("s"), link = dir.file("l");
  ASSERT_TRUE(WriteFile(f, "12345"));
  ASSERT_EQ(symlink(f.c_str(), link.c_str()), 0);
  struct stat st;
  ASSERT_EQ(tflstat(link.c_str(), &st), 0);
  EXPECT_TRUE(S_ISREG(st.st_mode));
  EXPECT_EQ(tflsize(link.c_str()), 5);
  EXPECT_EQ(tfexist(link.c_str()), 0);
  EXPECT_EQ(tfdelete(f.c_str()), 0);
  EXPECT_EQ(tfexist(link.c_str()), -1);  // dangling
  EXPECT_EQ(tflsize(f.c_str()), -1);
  EXPECT_EQ(tfdelete(f.c_str()), -1);
  EXPECT_EQ(tfexist(nullptr), -1);

  const mode_t old = umask(0);
  EXPECT_EQ(tfmkdir(dir.file("d").c_str()), 0);
  umask(old);
  ASSERT_EQ(tflstat(dir.file("d").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0770u);
  EXPECT_EQ(tfmkdir(dir.file("x/y").c_str()), -1);
}

TEST(TfLoad, WholeEmptyShortAndCopies) {
  TempDir dir;
  const std::string f = dir.file("f"), dst = dir.file("dst");
  std::string data;
  for (int i = 0; i < 3 * TF_COPY_BLOCK + 123; ++i) data.push_back(static_cast<char>(i * 7));
  ASSERT_TRUE(WriteFile(f, data));
  char* buf = nullptr;
  int len = 0;
  ASSERT_EQ(tflload(f.c_str(), &buf, &len), 0);
  ASSERT_EQ(len, static_cast<int>(data.size()));
  EXPECT_EQ(std::string(buf, data.size()), data);
  EXPECT_EQ(buf[len], '\0');
  free(buf);
  int fd = tfopen(f.c_str(), TF_MODE_READ);
  EXPECT_EQ(tfseek(fd, 3, SEEK_SET), 3);  // fewer bytes remain than the file's size
  EXPECT_EQ(tfload(fd, &buf, &len), -1);
  EXPECT_EQ(buf, nullptr);
  EXPECT_EQ(tfclose(fd), 0);

  ASSERT_EQ(tfcopy(dst.c_str(), f.c_str(), 0), 0);
  EXPECT_EQ(ReadFile(dst), data);
  ASSERT_TRUE(WriteFile(f, ""));
  EXPECT_EQ(tfcopy(dst.c_str(), f.c_str(), 0), -1);  // no overwrite
  EXPECT_EQ(ReadFile(dst), data);
  EXPECT_EQ(tfcopy(dst.c_str(), f.c_str(), 1), 0);  // truncated, not overlaid
  EXPECT_EQ(tflload(dst.c_str(), &buf, &len), 0);   // empty: no buffer
  EXPECT_EQ(buf, nullptr);
  EXPECT_EQ(len, 0);
  EXPECT_EQ(tfcopy(dst.c_str(), dir.file("missing").c_str(), 1), -1);
  EXPECT_EQ(tfcopy(dir.file("no/dir").c_str(), f.c_str(), 1), -1);
  EXPECT_EQ(tflload(dir.file("missing").c_str(), &buf, &len), -1);
  EXPECT_EQ(tflload(f.c_str(), nullptr, &len), -1);
}

// Record locks belong to a process, so the contender is a forked child.
int ChildTryLock(const std::string& path, long start, long length) {
  const pid_t pid = fork();
  if (pid == 0) {
    const int fd = tfopen(path.c_str(), TF_MODE_READ | TF_MODE_WRITE);
    _exit(fd >= 0 && tflock(fd, start, length, 0) == 0 ? 0 : 1);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(TfLock, WriteLockExcludesOtherProcesses) {
  TempDir dir;
  const std::string f = dir.file("lock");
  ASSERT_TRUE(WriteFile(f, std::string(100, 'x')));
  const int fd = tfopen(f.c_str(), TF_MODE_READ | TF_MODE_WRITE);
  ASSERT_EQ(tflock(fd, 10, 10, 1), 0);
  EXPECT_EQ(ChildTryLock(f, 15, 1), 1);
  EXPECT_EQ(ChildTryLock(f, 0, 10), 0);
  EXPECT_EQ(ChildTryLock(f, 20, 5), 0);
  ASSERT_EQ(tfunlock(fd, 10, 10), 0);
  EXPECT_EQ(ChildTryLock(f, 15, 1), 0);
  EXPECT_EQ(tfclose(fd), 0);
}

}  // namespace
