// wlog_dump mem against a ring on a registry of the test's own: a dump of what a writer left,
// --follow printing records as they are written, until interrupted, and the ring of a host
// simulator run.
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "wlog/wlog.h"
#include "wlog_test_util.h"
#include "wmng_test_util.h"

namespace {

const char kUri[] = "wsm-data://3/dumptest:1/log/ring";
const wlog_loc_info_t kLoc = {"app.cc", 7, "Run", nullptr};

// A context with one memory category "mem" on a ring of `size` bytes at kUri.
struct Writer {
  std::unique_ptr<WLOGCONF> conf = wlog_test::make_conf();
  wlog_test::CtxPtr ctx;
  explicit Writer(int size) {
    wlog_test::add_mem_category(conf.get(), "mem", kUri, size, 256);
    ctx = wlog_test::init_ctx(conf.get());
  }
  void log(const std::string& msg) {
    EXPECT_EQ(0, wlog_test::log_at(wlog_get_category(ctx.get(), "mem"), &kLoc, msg));
  }
};

// Starts a program (wlog_dump by default) with args; its standard output is the returned
// descriptor.
pid_t start(const std::vector<std::string>& args, int* out, const char* prog = WLOG_DUMP_BIN) {
  int fds[2];
  EXPECT_EQ(0, pipe(fds));
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(fds[1], 1);
    close(fds[0]);
    close(fds[1]);
    std::vector<char*> argv = {const_cast<char*>(prog)};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(prog, argv.data());
    _exit(127);
  }
  close(fds[1]);
  *out = fds[0];
  return pid;
}

// Reads until `want` appears in the output (or two seconds pass without output).
std::string read_until(int fd, const std::string& want, std::string* all) {
  char buf[4096];
  while (all->find(want) == std::string::npos) {
    pollfd p = {fd, POLLIN, 0};
    if (poll(&p, 1, 2000) != 1) break;
    const ssize_t n = read(fd, buf, sizeof(buf));
    if (n <= 0) break;
    all->append(buf, static_cast<size_t>(n));
  }
  return *all;
}

int finish(pid_t pid, int fd) {
  std::string rest;
  read_until(fd, "\x01never", &rest);
  close(fd);
  int status = 0;
  EXPECT_EQ(pid, waitpid(pid, &status, 0));
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

TEST(WlogDumpMem, DumpsTheRingAndFollowsItUntilInterrupted) {
  wmng_test::RegistryGuard guard(2, 4);
  const std::string key = std::to_string(guard.key());
  Writer w(64 + 64 * 1024);
  w.log("one");
  w.log("two");

  int fd = -1;
  pid_t pid = start({"mem", kUri, "--key", key}, &fd);
  std::string out;
  read_until(fd, "####", &out);
  EXPECT_EQ(0, finish(pid, fd));
  EXPECT_NE(std::string::npos, out.find("]:[app.cc:7][Run()][one]\n["));
  EXPECT_NE(std::string::npos, out.find("]:[app.cc:7][Run()][two]\n#####TotalPacket(2)"));

  pid = start({"mem", kUri, "--key", key, "--follow", "--interval", "10"}, &fd);
  out.clear();
  read_until(fd, "[two]", &out);
  for (int i = 0; i < 200; ++i) w.log("more " + std::to_string(i));  // goes round the ring
  read_until(fd, "[more 199]", &out);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));  // a few more polls, nothing new
  kill(pid, SIGINT);
  read_until(fd, "\x01never", &out);  // everything up to the exit
  EXPECT_EQ(0, finish(pid, fd));
  EXPECT_EQ(0u, out.find("[")) << out;
  EXPECT_NE(std::string::npos, out.find("[more 199]")) << out;
  // Records come in order, each once; those overwritten before they were read are reported.
  size_t at = 0;
  int next = 0;
  bool lost = false;
  while ((at = out.find("[more ", at)) != std::string::npos) {
    const int n = atoi(out.c_str() + at + 6);
    lost = lost || n != next;
    EXPECT_GE(n, next) << out;
    next = n + 1;
    ++at;
  }
  if (lost) {
    EXPECT_NE(std::string::npos, out.find("records lost"));
  }

  pid = start({"mem", "wsm-data://3/dumptest:1/log/none", "--key", key}, &fd);
  EXPECT_EQ(2, finish(pid, fd));
}

TEST(WlogDumpMem, ShowsTheRingOfASimulatorRun) {
  wmng_test::RegistryGuard guard(2, 4);
  const std::string key = std::to_string(guard.key());
  const char* uri = "wsm-data://1/quelld_sim:1/log/ring";
  int fd = -1;
  pid_t pid = start({"--users", "2", "--rounds", "1", "--log-level", "DEBUG", "--log-mem", uri,
                     "--log-mem-size", "100000", "--log-mem-key", key},
                    &fd, QUELLD_SIM_BIN);
  ASSERT_EQ(0, finish(pid, fd));
  pid = start({"mem", uri, "--key", key}, &fd);
  std::string out;
  read_until(fd, "####", &out);
  EXPECT_EQ(0, finish(pid, fd));
  EXPECT_NE(std::string::npos, out.find("][InitKrySDK()][")) << out;
  EXPECT_NE(std::string::npos, out.find("[zq plugin exit success]\n#####TotalPacket(")) << out;
}

}  // namespace
