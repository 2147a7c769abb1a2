#include "pal/tos.h"

#include <errno.h>
#include <limits.h>
#include <regex.h>
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
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "pal/tfile.h"
#include "pal_test_util.h"

namespace {

using pal_test::TempDir;

bool IsDir(const std::string& p) {
  struct stat st;
  return stat(p.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string SelfExe() {
  char buf[PATH_MAX + 1];
  ssize_t n = readlink("/proc/self/exe", buf, PATH_MAX);
  return n < 0 ? "" : std::string(buf, static_cast<size_t>(n));
}

// A text that occurs in this test program's executable path.
std::string SelfName() {
  std::string exe = SelfExe();
  return exe.substr(exe.rfind('/') + 1);
}

void WriteText(const std::string& path, const std::string& text) {
  std::ofstream(path) << text;
}

// A child that waits for signals; SIGQUIT does not leave a core file behind.
// Returns once the child is ready.
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

TEST(TosMkdir, CreatesAllParents) {
  TempDir dir;
  std::string deep = dir.file("a/b/c/d");
  EXPECT_EQ(tos_mkdir(deep.c_str()), 0);
  EXPECT_TRUE(IsDir(deep));
  EXPECT_EQ(tos_mkdir(deep.c_str()), 0);  // existing
  EXPECT_EQ(tos_mkdir((dir.file("x/y/") ).c_str()), 0);
  EXPECT_TRUE(IsDir(dir.file("x/y")));
  mode_t old = umask(0);
  EXPECT_EQ(tos_mkdir(dir.file("m/n").c_str()), 0);
  umask(old);
  struct stat st;
  ASSERT_EQ(stat(dir.file("m").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0755u);
}

TEST(TosMkdir, Failures) {
  TempDir dir;
  WriteText(dir.file("file"), "x");
  EXPECT_EQ(tos_mkdir(dir.file("file/sub/deeper").c_str()), -1);
  EXPECT_EQ(tos_mkdir(nullptr), -1);
  EXPECT_EQ(tos_mkdir(""), -1);
  std::string longp = dir.path() + "/" + std::string(TOS_MAX_PATH, 'a');
  EXPECT_EQ(tos_mkdir(longp.c_str()), -1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(tos_mkdir_by_path(longp.c_str()), -1);
}

TEST(TosMkdir, ByPathCreatesOnlyTheDirectories) {
  TempDir dir;
  std::string f = dir.file("a/b/c.log");
  EXPECT_EQ(tos_mkdir_by_path(f.c_str()), 0);
  EXPECT_TRUE(IsDir(dir.file("a/b")));
  EXPECT_EQ(tfexist(f.c_str()), -1);

  char cwd[PATH_MAX];
  ASSERT_NE(tos_getcwd(cwd, sizeof(cwd)), nullptr);
  ASSERT_EQ(tos_chdir(dir.path().c_str()), 0);
  EXPECT_EQ(tos_mkdir_by_path("c.log"), 0);
  EXPECT_EQ(tfexist("c.log"), -1);
  EXPECT_EQ(tos_mkdir_by_path("rel/x.log"), 0);
  EXPECT_TRUE(IsDir(dir.file("rel")));
  ASSERT_EQ(tos_chdir(cwd), 0);
}

TEST(TosCwd, GetAndChange) {
  TempDir dir;
  char old[PATH_MAX];
  ASSERT_EQ(tos_getcwd(old, sizeof(old)), old);
  EXPECT_EQ(tos_getcwd(nullptr, 100), nullptr);
  char tiny[2];
  EXPECT_EQ(tos_getcwd(tiny, sizeof(tiny)), nullptr);
  ASSERT_EQ(tos_chdir(dir.path().c_str()), 0);
  char now[PATH_MAX];
  ASSERT_NE(tos_getcwd(now, sizeof(now)), nullptr);
  char real[PATH_MAX];
  ASSERT_NE(realpath(dir.path().c_str(), real), nullptr);
  EXPECT_STREQ(now, real);
  EXPECT_EQ(tos_chdir(dir.file("missing").c_str()), -1);
  ASSERT_EQ(tos_chdir(old), 0);
}

TEST(TosFileToMacro, BaseNameUpperCased) {
  char out[64];
  EXPECT_EQ(tos_file_to_macro(out, sizeof(out), "src/my.file.h"), 0);
  EXPECT_STREQ(out, "MY_FILE_H");
  EXPECT_EQ(tos_file_to_macro(out, sizeof(out), "plain-name.c"), 0);
  EXPECT_STREQ(out, "PLAIN-NAME_C");
  EXPECT_EQ(tos_file_to_macro(out, sizeof(out), "dir/"), 0);
  EXPECT_STREQ(out, "");

  char small[5];
  memset(small, '#', sizeof(small));
  EXPECT_EQ(tos_file_to_macro(small, 4, "a/abcdef"), 0);
  EXPECT_STREQ(small, "ABC");
  EXPECT_EQ(small[4], '#');
  EXPECT_EQ(tos_file_to_macro(small, 0, "x"), -1);
  EXPECT_EQ(tos_file_to_macro(nullptr, 4, "x"), -1);
}

TEST(TosTime, LocalTimeWithMicroseconds) {
  char buf[64];
  time_t before = time(nullptr);
  ASSERT_EQ(tos_time(buf, sizeof(buf)), 0);
  regex_t re;
  ASSERT_EQ(regcomp(&re, "^[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}$",
                    REG_EXTENDED | REG_NOSUB),
            0);
  EXPECT_EQ(regexec(&re, buf, 0, nullptr, 0), 0) << buf;
  regfree(&re);
  struct tm tm;
  localtime_r(&before, &tm);
  char year[16];
  snprintf(year, sizeof(year), "%04d-", tm.tm_year + 1900);
  EXPECT_EQ(strncmp(buf, year, 5), 0);

  char small[8];
  memset(small, '#', sizeof(small));
  ASSERT_EQ(tos_time(small, 5), 0);
  EXPECT_EQ(strlen(small), 4u);
  EXPECT_EQ(small[5], '#');
  EXPECT_EQ(tos_time(nullptr, 10), -1);
}

TEST(TosPid, WriteAndRead) {
  TempDir dir;
  std::string f = dir.file("pid");
  ASSERT_EQ(tos_write_pid(f.c_str()), 0);
  EXPECT_EQ(tos_read_pid(f.c_str()), static_cast<int>(getpid()));
  std::ifstream in(f);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_EQ(text, std::to_string(getpid()) + "\n");

  WriteText(f, "  42 trailing");
  EXPECT_EQ(tos_read_pid(f.c_str()), 42);
  WriteText(f, "none");
  EXPECT_EQ(tos_read_pid(f.c_str()), -1);
  WriteText(f, "");
  EXPECT_EQ(tos_read_pid(f.c_str()), -1);
  EXPECT_EQ(tos_read_pid(dir.file("missing").c_str()), -1);
  EXPECT_EQ(tos_write_pid(dir.file("no/dir").c_str()), -1);
}

TEST(TosPid, ExecutableChecks) {
  char buf[PATH_MAX];
  int n = tos_get_exe(getpid(), buf, sizeof(buf));
  ASSERT_GT(n, 0);
  EXPECT_EQ(std::string(buf, static_cast<size_t>(n)), SelfExe());
  EXPECT_EQ(tos_get_exe(getpid(), buf, 3), 3);  // cut, not terminated

  EXPECT_EQ(tos_check_pid(getpid(), SelfName().c_str()), 0);
  errno = EBADF;
  EXPECT_EQ(tos_check_pid(getpid(), "no-such-program-name"), -1);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(tos_check_pid(INT_MAX, "x"), -1);
  EXPECT_NE(errno, 0);
}

TEST(TosTimedWait, GoneOrTimeout) {
  pid_t pid = SpawnSleeper(false);
  ASSERT_GT(pid, 0);
  EXPECT_EQ(tos_timed_wait(pid, 0), -1);
  EXPECT_EQ(errno, ETIMEDOUT);
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
  EXPECT_EQ(tos_timed_wait(pid, 5), 0);
}

// The waited-for processes are children of the test, so they are reaped automatically
// (SIGCHLD ignored) inside a forked test process; otherwise they would linger as zombies.
TEST(TosKillPrev, StopsAMatchingProcess) {
  EXPECT_EXIT(
      {
        signal(SIGCHLD, SIG_IGN);
        TempDir dir;
        std::string pidfile = dir.file("p.pid");
        pid_t pid = SpawnSleeper(false);
        WriteText(pidfile, std::to_string(pid) + "\n");
        int r1 = tos_kill_prev(pidfile.c_str(), "no-such-program-name", 1);
        bool alive_after_mismatch = Alive(pid);
        int r2 = tos_kill_prev(pidfile.c_str(), SelfName().c_str(), 10);
        bool gone = !Alive(pid);
        _exit(r1 == 0 && alive_after_mismatch && r2 == 0 && gone ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(TosKillPrev, TimesOutWhenTheProcessStays) {
  EXPECT_EXIT(
      {
        signal(SIGCHLD, SIG_IGN);
        TempDir dir;
        std::string pidfile = dir.file("p.pid");
        pid_t pid = SpawnSleeper(true);
        WriteText(pidfile, std::to_string(pid));
        int r = tos_kill_prev(pidfile.c_str(), SelfName().c_str(), 1);
        int err = errno;
        bool alive = Alive(pid);
        kill(pid, SIGKILL);
        _exit(r == -1 && err == ETIMEDOUT && alive ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(TosKillPrev, NothingToStopIsSuccess) {
  TempDir dir;
  EXPECT_EQ(tos_kill_prev(dir.file("missing").c_str(), "x", 1), 0);
  std::string pidfile = dir.file("p");
  WriteText(pidfile, "0");
  EXPECT_EQ(tos_kill_prev(pidfile.c_str(), "", 1), 0);
  WriteText(pidfile, std::to_string(getpid()));
  EXPECT_EQ(tos_kill_prev(pidfile.c_str(), SelfName().c_str(), 1), 0);
}

TEST(TosSendSignal, SignalsOnlyTheNamedProgram) {
  TempDir dir;
  std::string pidfile = dir.file("p");
  pid_t child = SpawnSleeper(false);
  WriteText(pidfile, std::to_string(child));
  pid_t got = 0;
  EXPECT_EQ(tos_send_signal(pidfile.c_str(), "no-such-program-name", SIGUSR1, &got), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(got, child);
  EXPECT_TRUE(Alive(child));
  EXPECT_EQ(tos_send_signal(pidfile.c_str(), SelfName().c_str(), SIGUSR1, &got), 0);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGUSR1);
  EXPECT_EQ(tos_send_signal(dir.file("missing").c_str(), "x", SIGUSR1, nullptr), -1);
}

// Collects the exit statuses of every descendant; the test process acts as their reaper.
std::vector<int> ReapAll() {
  std::vector<int> codes;
  int status = 0;
  while (waitpid(-1, &status, 0) > 0) {
    codes.push_back(WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status));
  }
  std::sort(codes.begin(), codes.end());
  return codes;
}

TEST(TosMakeDaemon, DetachesAndChangesDirectory) {
  TempDir dir;
  ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
  pid_t first = fork();
  ASSERT_GE(first, 0);
  if (first == 0) {
    pid_t sid_before = getsid(0);
    if (tos_make_daemon(dir.path().c_str()) != 0) _exit(3);
    struct sigaction sa;
    sigaction(SIGTERM, nullptr, &sa);
    mode_t mask = umask(0);
    std::ofstream("daemon.out") << (getsid(0) != sid_before) << (getsid(0) != getpid()) << " "
                                << (sa.sa_handler == SIG_IGN) << " " << mask;
    _exit(0);
  }
  std::vector<int> codes = ReapAll();
  EXPECT_EQ(codes, (std::vector<int>{0, 0, 0}));
  std::ifstream in(dir.file("daemon.out"));
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  // new session, not its leader (cannot regain a terminal), SIGTERM ignored, umask 0
  EXPECT_EQ(text, "11 1 0");
}

TEST(TosMakeDaemon, ExitsWithTwoWhenTheDirectoryIsMissing) {
  TempDir dir;
  ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
  pid_t first = fork();
  ASSERT_GE(first, 0);
  if (first == 0) {
    tos_make_daemon(dir.file("missing").c_str());
    _exit(0);
  }
  EXPECT_EQ(ReapAll(), (std::vector<int>{0, 0, 2}));
}

TEST(TosMisc, SmallWrappers) {
  EXPECT_EQ(tos_init(), 0);
  EXPECT_EQ(tos_is_linux(), 1);
  EXPECT_EQ(tos_get_ostype(), TOS_OSTYPE_LINUX);
  EXPECT_EQ(tos_get_pagesize(), static_cast<int>(sysconf(_SC_PAGESIZE)));

  struct utsname un;
  ASSERT_EQ(uname(&un), 0);
  std::string info = tos_get_osinfo();
  EXPECT_LT(info.size(), static_cast<size_t>(TOS_OSINFO_SIZE));
  EXPECT_EQ(info.rfind(std::string(un.sysname) + " " + un.nodename + " " + un.release, 0), 0u);
  EXPECT_EQ(tos_get_osinfo(), tos_get_osinfo());  // one shared buffer

  struct timespec a, b;
  clock_gettime(CLOCK_MONOTONIC, &a);
  EXPECT_EQ(tos_usleep(30000), 0);
  clock_gettime(CLOCK_MONOTONIC, &b);
  long long us = (b.tv_sec - a.tv_sec) * 1000000LL + (b.tv_nsec - a.tv_nsec) / 1000;
  EXPECT_GE(us, 30000);
}

TEST(TosIgnorePipe, WriteToClosedPipeReturnsEpipe) {
  EXPECT_EXIT(
      {
        int fds[2];
        if (pipe(fds) != 0) _exit(2);
        close(fds[0]);
        if (tos_ignore_pipe() != 0) _exit(3);
        ssize_t n = write(fds[1], "x", 1);
        _exit(n == -1 && errno == EPIPE ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
