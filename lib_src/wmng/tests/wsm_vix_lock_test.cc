// A process killed while it holds the registry's write lock: the others give up waiting after
// about five seconds and go on. Slow by design (label "slow"); the window is generous because
// this is a behaviour check, not a speed goal.
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "wmng/wsm_vix.h"
#include "wmng_test_util.h"

namespace {

using namespace wmng_test;

double now_s() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

TEST(WsmVixLock, HolderKilledOthersGoOnAfterAboutFiveSeconds) {
  RegistryGuard guard;
  Handle h;
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  const pid_t holder = fork();
  ASSERT_GE(holder, 0);
  if (holder == 0) {
    WsmVixHandleP mine = nullptr;
    if (wsm_vix_open(&mine) == 0 && wsm_vix_lock(mine, 0) == 0 && write(fds[1], "L", 1) == 1) {
      pause();
    }
    _exit(1);
  }
  char c = 0;
  ASSERT_EQ(read(fds[0], &c, 1), 1);
  ASSERT_EQ(kill(holder, SIGKILL), 0);
  int status = 0;
  ASSERT_EQ(waitpid(holder, &status, 0), holder);
  close(fds[0]);
  close(fds[1]);
  const double start = now_s();
  EXPECT_EQ(wsm_vix_lock(h, 1), 0);
  const double waited = now_s() - start;
  EXPECT_GE(waited, 4.0);
  EXPECT_LE(waited, 15.0);
  // The caller goes on as if it held the lock; releasing it releases nothing.
  EXPECT_EQ(wsm_vix_query(h, "wsm-data://"), 0);
  EXPECT_EQ(wsm_vix_unlock(h), 0);
}

}  // namespace
