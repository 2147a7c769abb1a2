// Helpers shared by the project's test programs.
//
// Conventions: failures to set a helper up (no temporary directory, no capture file) are
// reported as GoogleTest failures of the running test, never thrown; every helper releases what
// it made (directory tree, capture file, redirection) when it goes out of scope.
#ifndef ZQ_TEST_SUPPORT_H_
#define ZQ_TEST_SUPPORT_H_

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace zq_test {

// A fresh directory /tmp/<prefix>_XXXXXX, removed with everything below it at scope end.
class TempDir {
 public:
  explicit TempDir(const char* prefix = "zq_test");
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  // path() + "/" + name.
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// The whole content of a file ("" when it cannot be read).
std::string ReadFile(const std::string& path);
// Replaces the content of a file; false when it cannot be written.
bool WriteFile(const std::string& path, const std::string& content);

// Redirects a descriptor (standard output or error) into a temporary file until Stop(), which
// restores it and returns everything written meanwhile, through stdio or the descriptor.
// Captures nest: the inner one sees only its own share.
class OutputCapture {
 public:
  explicit OutputCapture(int fd);
  ~OutputCapture();
  OutputCapture(const OutputCapture&) = delete;
  OutputCapture& operator=(const OutputCapture&) = delete;
  // The captured text; later calls return the same text.
  std::string Stop();

 private:
  int fd_;
  int saved_ = -1;
  int file_ = -1;
  std::string text_;
};

class StdoutCapture : public OutputCapture {
 public:
  StdoutCapture() : OutputCapture(STDOUT_FILENO) {}
};

class StderrCapture : public OutputCapture {
 public:
  StderrCapture() : OutputCapture(STDERR_FILENO) {}
};

// Runs body in a forked child, so that process-wide state starts fresh for it. Failures inside
// the child fail the calling test.
template <typename Body>
void RunInChild(Body body) {
  std::fflush(stdout);
  std::fflush(stderr);
  const pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    body();
    std::fflush(stdout);
    std::fflush(stderr);
    _exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status)) << "child ended by a signal";
  EXPECT_EQ(WEXITSTATUS(status), 0) << "the scenario failed in the child process (see above)";
}

}  // namespace zq_test

#endif  // ZQ_TEST_SUPPORT_H_
