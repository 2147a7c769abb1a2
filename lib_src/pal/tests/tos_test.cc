// Processes, directories and time.
#include "pal/tos.h"

#include <errno.h>
#include <limits.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "pal/tfile.h"
#include "zq_test/support.h"

namespace {

using zq_test::ReadFile;
using zq_test::TempDir;
using zq_test::WriteFile;

// The type and permission bits of a path, 0 when it does not exist.
mode_t Mode(const std::string& p) {
  struct stat st;
  return stat(p.c_str(), &st) == 0 ? st.st_mode : 0;
}

// The base name of this test program, which occurs in its executable path.
std::string SelfName() { return program_invocation_short_name; }

// A child that waits for signals (without a core file for SIGQUIT); returns once it is ready.
pid_t SpawnSleeper(bool ignore_quit) {
  int ready[2];
  if (pipe(ready) != 0) return -1;
  pid_t pid = fork();
  if (pid == 0) {
    struct rlimit rl = {0, 0};
    setrlimit(RLIMIT_CORE, &rl);
    if (ignore_quit) signal(SIGQUIT, SIG_IGN);
    if (write(ready[1], "r", 1) != 1) _exit(1);
    for (;;) pause();
  }
  char c;
  if (pid > 0 && read(ready[0], &c, 1) != 1) pid = -1;
  close(ready[0]);
  close(ready[1]);
  return pid;
}

bool Alive(pid_t pid) { return kill(pid, 0) == 0; }

TEST(TosMkdir, RecursiveByPathAndTheirFailures) {
  TempDir dir;
  const mode_t old = umask(0);
  EXPECT_EQ(tos_mkdir(dir.file("a/b/c").c_str()), 0);
  umask(old);
  EXPECT_EQ(Mode(dir.file("a")), S_IFDIR | 0755u);
  EXPECT_EQ(tos_mkdir(dir.file("a/b/c").c_str()), 0);  // existing
  EXPECT_EQ(tos_mkdir(dir.file("x/y/").c_str()), 0);
  EXPECT_TRUE(S_ISDIR(Mode(dir.file("x/y"))));
  EXPECT_EQ(tos_mkdir_by_path(dir.file("p/q/c.log").c_str()), 0);
  EXPECT_TRUE(S_ISDIR(Mode(dir.file("p/q"))));
  EXPECT_EQ(tfexist(dir.file("p/q/c.log").c_str()), -1);

  char cwd[PATH_MAX];
  ASSERT_EQ(tos_getcwd(cwd, sizeof(cwd)), cwd);
  EXPECT_EQ(tos_getcwd(nullptr, 10), nullptr);
  ASSERT_EQ(tos_chdir(dir.path().c_str()), 0);
  EXPECT_EQ(tos_mkdir_by_path("c.log"), 0);  // no directory part: nothing to do
  EXPECT_EQ(tos_mkdir_by_path("rel/x.log"), 0);
  EXPECT_TRUE(S_ISDIR(Mode(dir.file("rel"))));
  ASSERT_EQ(tos_chdir(cwd), 0);

  ASSERT_TRUE(WriteFile(dir.file("file"), "x"));
  EXPECT_EQ(tos_mkdir(dir.file("file/sub/deeper").c_str()), -1);
  EXPECT_EQ(tos_mkdir(""), -1);
  const std::string too_long = dir.path() + "/" + std::string(TOS_MAX_PATH, 'a');
  EXPECT_EQ(tos_mkdir(too_long.c_str()), -1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(tos_mkdir_by_path(too_long.c_str()), -1);
}

TEST(TosText, FileToMacroAndTime) {
  char out[16];
  EXPECT_EQ(tos_file_to_macro(out, sizeof(out), "src/my.file.h"), 0);
  EXPECT_STREQ(out, "MY_FILE_H");
  memset(out, '#', sizeof(out));
  EXPECT_EQ(tos_file_to_macro(out, 4, "abcdef"), 0);
  EXPECT_STREQ(out, "ABC");
  EXPECT_EQ(out[4], '#');
  EXPECT_EQ(tos_file_to_macro(out, 0, "x"), -1);

  char buf[64];
  ASSERT_EQ(tos_time(buf, sizeof(buf)), 0);
  EXPECT_TRUE(std::regex_match(buf, std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6})"))) << buf;
  memset(out, '#', sizeof(out));
  ASSERT_EQ(tos_time(out, 5), 0);
  EXPECT_EQ(strlen(out), 4u);
  EXPECT_EQ(out[5], '#');
}

TEST(TosPid, FilesExecutablesSignalsAndWaits) {
  TempDir dir;
  const std::string f = dir.file("pid");
  ASSERT_EQ(tos_write_pid(f.c_str()), 0);
  EXPECT_EQ(ReadFile(f), std::to_string(getpid()) + "\n");
  EXPECT_EQ(tos_read_pid(f.c_str()), static_cast<int>(getpid()));
  for (const auto& c : {std::make_pair("  42 trailing", 42), std::make_pair("none", -1)}) {
    ASSERT_TRUE(WriteFile(f, c.first));
    EXPECT_EQ(tos_read_pid(f.c_str()), c.second) << c.first;
  }
  EXPECT_EQ(tos_read_pid(dir.file("missing").c_str()), -1);

  char exe[PATH_MAX];
  const int n = tos_get_exe(getpid(), exe, sizeof(exe));
  ASSERT_GT(n, 0);
  EXPECT_EQ(std::string(exe, static_cast<size_t>(n)).rfind(SelfName()), n - SelfName().size());
  EXPECT_EQ(tos_check_pid(getpid(), SelfName().c_str()), 0);
  errno = EBADF;
  EXPECT_EQ(tos_check_pid(getpid(), "no-such-program"), -1);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(tos_check_pid(INT_MAX, "x"), -1);

  const pid_t child = SpawnSleeper(false);
  ASSERT_GT(child, 0);
  ASSERT_TRUE(WriteFile(f, std::to_string(child)));
  pid_t got = 0;
  EXPECT_EQ(tos_send_signal(f.c_str(), "no-such-program", SIGUSR1, &got), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(got, child);
  EXPECT_EQ(tos_timed_wait(child, 0), -1);
  EXPECT_EQ(errno, ETIMEDOUT);
  EXPECT_EQ(tos_send_signal(f.c_str(), SelfName().c_str(), SIGUSR1, &got), 0);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGUSR1);
  EXPECT_EQ(tos_timed_wait(child, 5), 0);
}

// Runs in a forked test process that ignores SIGCHLD, so stopped children do not linger
// as zombies (which kill(pid, 0) would still see).
TEST(TosKillPrev, StopsOnlyAMatchingProcess) {
  TempDir dir;  // made here: the child ends with _exit and removes nothing
  EXPECT_EXIT(
      {
        signal(SIGCHLD, SIG_IGN);
        const std::string pidfile = dir.file("p.pid");
        const pid_t pid = SpawnSleeper(false);
        bool ok = WriteFile(pidfile, std::to_string(pid) + "\n");
        ok = ok && tos_kill_prev(pidfile.c_str(), "no-such-program", 1) == 0 && Alive(pid);
        ok = ok && tos_kill_prev(pidfile.c_str(), SelfName().c_str(), 10) == 0 && !Alive(pid);
        const pid_t stubborn = SpawnSleeper(true);
        ok = ok && WriteFile(pidfile, std::to_string(stubborn));
        ok = ok && tos_kill_prev(pidfile.c_str(), SelfName().c_str(), 1) == -1 &&
             errno == ETIMEDOUT && Alive(stubborn);
        kill(stubborn, SIGKILL);
        ok = ok && tos_kill_prev(dir.file("missing").c_str(), "x", 1) == 0;
        _exit(ok ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

// Runs tos_make_daemon(path) in a child with the test process as reaper of every descendant;
// the daemon writes what it observes to "daemon.out" in its working directory. Returns the
// sorted exit statuses collected. The middle process ignores SIGCHLD, so a daemon that ends
// before it does is reaped silently: the daemon therefore waits until it has been handed
// over to the test process (a daemon that exits in tos_make_daemon cannot wait).
std::vector<int> RunDaemon(const std::string& path) {
  const pid_t reaper = getpid();
  if (prctl(PR_SET_CHILD_SUBREAPER, 1) != 0) return {};
  if (fork() == 0) {
    const pid_t sid_before = getsid(0);
    if (tos_make_daemon(path.c_str()) != 0) _exit(3);
    for (int i = 0; i < 5000 && getppid() != reaper; ++i) usleep(1000);
    struct sigaction sa;
    sigaction(SIGTERM, nullptr, &sa);
    WriteFile("daemon.out",
              std::to_string(getsid(0) != sid_before) + std::to_string(getsid(0) != getpid()) +
                  std::to_string(sa.sa_handler == SIG_IGN) + std::to_string(umask(0)));
    _exit(0);
  }
  std::vector<int> codes;
  int status = 0;
  while (wait(&status) > 0) codes.push_back(WIFEXITED(status) ? WEXITSTATUS(status) : -1);
  std::sort(codes.begin(), codes.end());
  return codes;
}

TEST(TosMakeDaemon, DetachesIntoTheDirectoryOrExitsWithTwo) {
  TempDir dir;
  EXPECT_EQ(RunDaemon(dir.path()), (std::vector<int>{0, 0, 0}));
  // new session, not its leader, SIGTERM ignored, umask 0
  EXPECT_EQ(ReadFile(dir.file("daemon.out")), "1110");
  bool seen = false;
  for (int i = 0; i < 20 && !seen; ++i) {
    const std::vector<int> codes = RunDaemon(dir.file("missing"));
    if (codes == std::vector<int>{0, 0}) continue;  // exited before the hand-over; try again
    EXPECT_EQ(codes, (std::vector<int>{0, 0, 2}));
    seen = true;
  }
  EXPECT_TRUE(seen);
}

TEST(TosMisc, OsInfoSleepAndPipe) {
  struct utsname un;
  ASSERT_EQ(uname(&un), 0);
  const std::string info = tos_get_osinfo();
  EXPECT_EQ(info.rfind(std::string(un.sysname) + " " + un.nodename + " " + un.release, 0), 0u);
  EXPECT_LT(info.size(), static_cast<size_t>(TOS_OSINFO_SIZE));
  struct timespec a, b;
  clock_gettime(CLOCK_MONOTONIC, &a);
  EXPECT_EQ(tos_usleep(30000), 0);
  clock_gettime(CLOCK_MONOTONIC, &b);
  EXPECT_GE((b.tv_sec - a.tv_sec) * 1000000000LL + (b.tv_nsec - a.tv_nsec), 30000000LL);
  EXPECT_EXIT(
      {
        int fds[2];
        if (pipe(fds) != 0 || tos_ignore_pipe() != 0) _exit(2);
        close(fds[0]);
        _exit(write(fds[1], "x", 1) == -1 && errno == EPIPE ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
