// Helpers shared by the plug-in tests: temporary directories, file text, child processes.
#ifndef ZQ_TESTS_TEST_UTIL_H_
#define ZQ_TESTS_TEST_UTIL_H_

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace zqtest {

// A fresh directory under /tmp, removed with its content at the end of the scope.
class TempDir {
 public:
  TempDir() {
    char tmpl[] = "/tmp/zq_plugin_test.XXXXXX";
    EXPECT_NE(mkdtemp(tmpl), nullptr);
    path_ = tmpl;
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

inline void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

// Runs body in a forked child so that the process-wide loader state starts fresh for every
// scenario. Failures inside the child fail the calling test.
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

}  // namespace zqtest

#endif  // ZQ_TESTS_TEST_UTIL_H_
