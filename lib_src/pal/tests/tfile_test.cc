#include "pal/tfile.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "pal_test_util.h"

namespace {

using pal_test::TempDir;

void WriteFile(const std::string& path, const std::string& data) {
  int fd = tfopen(path.c_str(), TF_MODE_WRITE | TF_MODE_CREATE | TF_MODE_TRUNCATE);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(tfwrite(fd, data.data(), static_cast<int>(data.size())),
            static_cast<int>(data.size()));
  ASSERT_EQ(tfclose(fd), 0);
}

std::string ReadFile(const std::string& path) {
  char* buf = nullptr;
  int len = -1;
  if (tflload(path.c_str(), &buf, &len) != 0) return "<fail>";
  std::string s(buf ? buf : "", static_cast<size_t>(len));
  free(buf);
  return s;
}

TEST(TfOpen, ModeFlags) {
  TempDir dir;
  std::string f = dir.file("a");
  EXPECT_EQ(tfopen(f.c_str(), 0), -1);
  EXPECT_EQ(tfopen(f.c_str(), TF_MODE_CREATE), -1);
  EXPECT_EQ(tfopen(f.c_str(), TF_MODE_READ), -1);  // missing, no create
  EXPECT_EQ(errno, ENOENT);

  WriteFile(f, "hello");
  int ro = tfopen(f.c_str(), TF_MODE_READ);
  ASSERT_GE(ro, 0);
  EXPECT_EQ(tfwrite(ro, "x", 1), -1);
  tfclose(ro);

  int wo = tfopen(f.c_str(), TF_MODE_WRITE);
  ASSERT_GE(wo, 0);
  char c;
  EXPECT_EQ(tfread(wo, &c, 1), -1);
  tfclose(wo);

  EXPECT_EQ(tfopen(f.c_str(), TF_MODE_WRITE | TF_MODE_CREATE | TF_MODE_EXCL), -1);
  EXPECT_EQ(errno, EEXIST);

  int rw = tfopen(f.c_str(), TF_MODE_READ | TF_MODE_WRITE);
  ASSERT_GE(rw, 0);
  char buf[8] = {};
  EXPECT_EQ(tfread(rw, buf, 5), 5);
  EXPECT_EQ(tfwrite(rw, "!", 1), 1);
  tfclose(rw);
  EXPECT_EQ(ReadFile(f), "hello!");

  int tr = tfopen(f.c_str(), TF_MODE_WRITE | TF_MODE_TRUNCATE);
  ASSERT_GE(tr, 0);
  tfclose(tr);
  EXPECT_EQ(tflsize(f.c_str()), 0);

  EXPECT_EQ(tfclose(-1), 0);
}

TEST(TfOpen, CreatesWithMode0666BeforeUmask) {
  TempDir dir;
  std::string f = dir.file("m");
  mode_t old = umask(0);
  int fd = tfopen(f.c_str(), TF_MODE_WRITE | TF_MODE_CREATE);
  umask(old);
  ASSERT_GE(fd, 0);
  struct stat st;
  ASSERT_EQ(tfstat(fd, &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0666u);
  tfclose(fd);
}

TEST(TfSeek, TruncateMovesOffsetAndCutsFile) {
  TempDir dir;
  std::string f = dir.file("t");
  int fd = tfopen(f.c_str(), TF_MODE_READ | TF_MODE_WRITE | TF_MODE_CREATE);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(tfwrite(fd, "0123456789", 10), 10);
  EXPECT_EQ(tfseek(fd, 2, SEEK_SET), 2);
  EXPECT_EQ(tfseek(fd, 3, SEEK_CUR), 5);
  EXPECT_EQ(tftruncate(fd, 4), 0);
  EXPECT_EQ(tfseek(fd, 0, SEEK_CUR), 4);
  EXPECT_EQ(tfsize(fd), 4);
  EXPECT_EQ(tftruncate(fd, -1), -1);
  EXPECT_EQ(tfsync(fd), 0);
  tfclose(fd);
  EXPECT_EQ(tfsize(fd), -1);
  EXPECT_EQ(tfsync(fd), -1);
}

TEST(TfStat, PathQueriesFollowLinks) {
  TempDir dir;
  std::string f = dir.file("s");
  std::string link = dir.file("l");
  WriteFile(f, "12345");
  ASSERT_EQ(symlink(f.c_str(), link.c_str()), 0);
  struct stat st;
  ASSERT_EQ(tflstat(link.c_str(), &st), 0);
  EXPECT_TRUE(S_ISREG(st.st_mode));
  EXPECT_EQ(st.st_size, 5);
  EXPECT_EQ(tflsize(link.c_str()), 5);
  EXPECT_EQ(tfexist(link.c_str()), 0);

  EXPECT_EQ(tfdelete(f.c_str()), 0);
  EXPECT_EQ(tfexist(f.c_str()), -1);
  EXPECT_EQ(tfexist(link.c_str()), -1);  // dangling link
  EXPECT_EQ(tflsize(f.c_str()), -1);
  EXPECT_EQ(tfdelete(f.c_str()), -1);
  EXPECT_EQ(tflstat(nullptr, &st), -1);
  EXPECT_EQ(tfexist(nullptr), -1);
}

TEST(TfMkdir, OneLevelWithMode0770) {
  TempDir dir;
  std::string d = dir.file("d");
  mode_t old = umask(0);
  EXPECT_EQ(tfmkdir(d.c_str()), 0);
  umask(old);
  struct stat st;
  ASSERT_EQ(tflstat(d.c_str(), &st), 0);
  EXPECT_TRUE(S_ISDIR(st.st_mode));
  EXPECT_EQ(st.st_mode & 0777, 0770u);
  EXPECT_EQ(tfmkdir(d.c_str()), -1);
  EXPECT_EQ(tfmkdir(dir.file("x/y").c_str()), -1);
}

TEST(TfLoad, WholeFileTerminated) {
  TempDir dir;
  std::string f = dir.file("f");
  std::string data(10000, 'q');
  data[5000] = '\0';  // embedded zero bytes are kept
  WriteFile(f, data);
  char* buf = nullptr;
  int len = 0;
  ASSERT_EQ(tflload(f.c_str(), &buf, &len), 0);
  ASSERT_NE(buf, nullptr);
  EXPECT_EQ(len, 10000);
  EXPECT_EQ(std::string(buf, 10000), data);
  EXPECT_EQ(buf[10000], '\0');
  free(buf);
}

TEST(TfLoad, EmptyFileGivesNullBuffer) {
  TempDir dir;
  std::string f = dir.file("e");
  WriteFile(f, "");
  char* buf = reinterpret_cast<char*>(1);
  int len = 7;
  EXPECT_EQ(tflload(f.c_str(), &buf, &len), 0);
  EXPECT_EQ(buf, nullptr);
  EXPECT_EQ(len, 0);
}

TEST(TfLoad, ShortReadFails) {
  TempDir dir;
  std::string f = dir.file("s");
  WriteFile(f, "abcdef");
  int fd = tfopen(f.c_str(), TF_MODE_READ);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(tfseek(fd, 3, SEEK_SET), 3);  // only 3 of the 6 bytes remain to be read
  char* buf = nullptr;
  int len = 0;
  EXPECT_EQ(tfload(fd, &buf, &len), -1);
  EXPECT_EQ(buf, nullptr);
  tfclose(fd);

  EXPECT_EQ(tflload(dir.file("missing").c_str(), &buf, &len), -1);
  EXPECT_EQ(tfload(-1, &buf, &len), -1);
  EXPECT_EQ(tflload(f.c_str(), nullptr, &len), -1);
}

TEST(TfCopy, CopiesAcrossBlocks) {
  TempDir dir;
  std::string src = dir.file("src");
  std::string dst = dir.file("dst");
  std::string data;
  for (int i = 0; i < 3 * TF_COPY_BLOCK + 123; ++i) data.push_back(static_cast<char>(i * 7));
  WriteFile(src, data);
  ASSERT_EQ(tfcopy(dst.c_str(), src.c_str(), 0), 0);
  EXPECT_EQ(ReadFile(dst), data);
}

TEST(TfCopy, OverwriteRules) {
  TempDir dir;
  std::string src = dir.file("src");
  std::string dst = dir.file("dst");
  WriteFile(src, "new");
  WriteFile(dst, "old and longer");
  EXPECT_EQ(tfcopy(dst.c_str(), src.c_str(), 0), -1);
  EXPECT_EQ(ReadFile(dst), "old and longer");
  EXPECT_EQ(tfcopy(dst.c_str(), src.c_str(), 1), 0);
  EXPECT_EQ(ReadFile(dst), "new");  // truncated, not overlaid
  EXPECT_EQ(tfcopy(dst.c_str(), dir.file("missing").c_str(), 1), -1);
  EXPECT_EQ(tfcopy(dir.file("no/such/dir").c_str(), src.c_str(), 1), -1);
}

// Record locks belong to a process, so the contender is a forked child.
int ChildTryLock(const std::string& path, long start, long length) {
  pid_t pid = fork();
  if (pid == 0) {
    int fd = tfopen(path.c_str(), TF_MODE_READ | TF_MODE_WRITE);
    _exit(fd >= 0 && tflock(fd, start, length, 0) == 0 ? 0 : 1);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(TfLock, WriteLockExcludesOtherProcesses) {
  TempDir dir;
  std::string f = dir.file("lock");
  WriteFile(f, std::string(100, 'x'));
  int fd = tfopen(f.c_str(), TF_MODE_READ | TF_MODE_WRITE);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(tflock(fd, 10, 10, 1), 0);
  EXPECT_EQ(ChildTryLock(f, 15, 1), 1);
  EXPECT_EQ(ChildTryLock(f, 0, 10), 0);
  EXPECT_EQ(ChildTryLock(f, 20, 5), 0);
  ASSERT_EQ(tfunlock(fd, 10, 10), 0);
  EXPECT_EQ(ChildTryLock(f, 15, 1), 0);
  EXPECT_EQ(tflock(-1, 0, 1, 0), -1);
  tfclose(fd);
}

}  // namespace
