// Proves that logging allocates nothing once the context is initialised: this program
// interposes the C allocator and counts calls while a counting window is open.
// (Built without sanitizers only: they bring their own allocator.)
#include <stddef.h>
#include <string.h>
#include <sys/time.h>

#include <atomic>
#include <string>

#include <gtest/gtest.h>

#include "../wlog_test_util.h"
#include "wlog/wlog.h"

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
void __libc_free(void*);
}

namespace {
std::atomic<bool> g_counting{false};
std::atomic<long> g_allocs{0};
inline void note() {
  if (g_counting.load(std::memory_order_relaxed)) g_allocs.fetch_add(1, std::memory_order_relaxed);
}
}  // namespace

extern "C" {
void* malloc(size_t n) {
  note();
  return __libc_malloc(n);
}
void* calloc(size_t n, size_t m) {
  note();
  return __libc_calloc(n, m);
}
void* realloc(void* p, size_t n) {
  note();
  return __libc_realloc(p, n);
}
void* memalign(size_t a, size_t n) {
  note();
  return __libc_memalign(a, n);
}
void* aligned_alloc(size_t a, size_t n) {
  note();
  return __libc_memalign(a, n);
}
int posix_memalign(void** out, size_t a, size_t n) {
  note();
  void* p = __libc_memalign(a, n);
  if (p == nullptr) return 12;  // ENOMEM
  *out = p;
  return 0;
}
void free(void* p) { __libc_free(p); }
}

using wlog_test::add_category;
using wlog_test::add_file_category;
using wlog_test::make_conf;

TEST(WlogNoAlloc, LogPathAllocatesNothing) {
  zq_test::TempDir dir;
  auto conf = make_conf();
  conf->iPriorityLow = WLOG_PRIORITY_DEBUG;
  WLOGCATEGORY* file =
      add_file_category(conf.get(), "file", dir.file("run.log"), WLOG_DEFAULT_FORMAT);
  file->stDevice.stDevice.stFile.iBuffSize = 65536;
  file->stDevice.stDevice.stFile.iSyncTime = 1;
  snprintf(file->szForwardCat, sizeof(file->szForwardCat), "sink");
  add_file_category(conf.get(), "sink", dir.file("sink.log"), "%c %t %P %C %U %p %m%n");
  WLOGCATEGORY* child =
      add_file_category(conf.get(), "file.child", dir.file("child.log"), "%d %m%n");
  child->iLevelDispatch = 1;

  WLOGCTX* ctx = wlog_alloc();
  ASSERT_EQ(0, wlog_init(ctx, conf.get()));
  WLOGCATEGORYINST* cat = wlog_get_category(ctx, "file");
  WLOGCATEGORYINST* kid = wlog_get_category(ctx, "file.child");
  WLOG_LOG_INFO(cat, "warm-up %d", 0);  // first use of the time-zone data may allocate

  g_allocs = 0;
  g_counting = true;
  void* volatile p = malloc(10);  // the counter sees an allocation ...
  free(p);
  ASSERT_EQ(1, g_allocs.exchange(0));  // ... and the log calls make none
  for (int i = 0; i < 2000; ++i) {
    WLOG_LOG_INFO(cat, "player %s entered world %d at %.2f", "alice", i, 1.5 * i);
    WLOG_LOG_DEBUG(kid, "child %d", i);
    WLOG_LOG_TRACE(cat, "rejected %d", i);
  }
  timeval later = {1700003600, 1};
  EXPECT_EQ(
      0, wlog_category_set_time_ptr(cat, &later));  // a new second: the date text is rendered again
  WLOG_LOG_ERROR(cat, "after %s", "time change");
  char bytes[] = "\x01\x02\x03";
  WLOGEVENT evt = {WLOG_PRIORITY_INFO, bytes, 3, nullptr, 1, 1, 2, 0, 0};
  EXPECT_EQ(0, wlog_category_log(cat, &evt));
  EXPECT_EQ(0, wlog_category_log_hex(cat, &evt));
  g_counting = false;
  EXPECT_EQ(0, g_allocs.load());

  EXPECT_EQ(0, wlog_fini(ctx));
  EXPECT_EQ(0, wlog_free(&ctx));
  EXPECT_NE(std::string::npos,
            zq_test::ReadFile(dir.file("run.log")).find("player alice entered world 1999"));
}
