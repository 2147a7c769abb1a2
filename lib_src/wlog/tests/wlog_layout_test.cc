// Pattern layout: every conversion, the buffer rules, and the compiled renderer's equality
// with the plain one.
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <random>
#include <string>

#include <gtest/gtest.h>

#include "../src/wlog_internal.h"
#include "wlog/wlog.h"

namespace {

struct Event {
  WLOGEVENTBASE e;
  wlog_loc_info_t loc;
  char host[16] = "10.1.2.3";
  char module[16] = "gamesvr";
  Event() {
    memset(&e, 0, sizeof(e));
    loc = {"src/a.cc", 42, "DoWork", nullptr};
    e.evt_category = "net.io";
    e.evt_priority = WLOG_PRIORITY_ERROR;
    e.evt_hostName = host;
    e.evt_moduleName = module;
    e.evt_loc = &loc;
    e.evt_timestamp = {1706706309, 123};
    e.evt_id = 77;
    e.evt_cls = 5;
  }
  std::string prefix() const { return std::string(e.evt_msg_prefix_buffer, e.evt_msg_prefix_len); }
  std::string suffix() const { return std::string(e.evt_msg_sufix_buffer, e.evt_msg_sufix_len); }
};

std::string date_text(time_t sec) {
  struct tm tm;
  localtime_r(&sec, &tm);
  char buf[64];
  snprintf(buf, sizeof(buf), "%04d%02d%02d %02d:%02d:%02d", tm.tm_year + 1900, tm.tm_mon + 1,
           tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec);
  return buf;
}

// Renders with both renderers and requires identical lengths and bytes.
void expect_same(const Event& in, const std::string& pattern, WLOGLAYOUTCACHE* cache) {
  Event a = in, b = in;
  for (Event* ev : {&a, &b}) {
    ev->e.evt_hostName = ev->host;
    ev->e.evt_moduleName = ev->module;
    if (ev->e.evt_loc != nullptr) ev->e.evt_loc = &ev->loc;
  }
  wlog_layout_format(&a.e, pattern.c_str());
  wlog_layout_format_cached_i(cache, &b.e, pattern.c_str());
  ASSERT_EQ(a.e.evt_msg_prefix_len, b.e.evt_msg_prefix_len) << pattern;
  ASSERT_EQ(a.e.evt_msg_sufix_len, b.e.evt_msg_sufix_len) << pattern;
  ASSERT_EQ(a.prefix(), b.prefix()) << pattern;
  ASSERT_EQ(a.suffix(), b.suffix()) << pattern;
}

}  // namespace

TEST(WlogLayout, ConversionsAndDroppedCharacters) {
  char every[256];
  snprintf(every, sizeof(every), "5|DoWork|gamesvr|%d|77|net.io|src/a.cc|10.1.2.3|42|%lu|ERROR   |",
           static_cast<int>(getpid()), static_cast<unsigned long>(pthread_self()));
  const struct {
    const char* pattern;
    std::string prefix, suffix;
    bool no_loc;
  } cases[] = {
      {"%d.%u %p %m%n", date_text(1706706309) + ".000123 ERROR    ", "\n", false},
      {"%C|%F|%M|%P|%U|%c|%f|%h|%l|%t|%p|", every, "", false},
      {"100%%", "100", "", false},   // no literal percent sign
      {"%x%m", "", "", false},       // unknown conversions print nothing
      {"a%5pb%", "apb", "", false},  // no width; a trailing % is dropped
      {"%f:%l:%F", "(nil):0:(nil)", "", true},
      {"", "", "", false},
  };
  for (const auto& c : cases) {
    Event ev;
    ev.e.evt_msg_prefix_len = ev.e.evt_msg_sufix_len = 9;
    if (c.no_loc) ev.e.evt_loc = nullptr;
    wlog_layout_format(&ev.e, c.pattern);
    EXPECT_EQ(c.prefix, ev.prefix()) << c.pattern;
    EXPECT_EQ(c.suffix, ev.suffix()) << c.pattern;
  }
  Event ev;
  wlog_layout_format(&ev.e, "<%m>>>%m!");
  EXPECT_EQ(3, ev.e.evt_msg_prefix_len);  // the second mark takes the suffix position
  EXPECT_EQ("!", ev.suffix());
}

TEST(WlogLayout, FullBufferAndConversionsThatDoNotFit) {
  Event ev;
  std::string file(2040, 'f');
  ev.loc.loc_file = file.c_str();
  wlog_layout_format(&ev.e, "%f0123456789%m tail");
  ASSERT_EQ(2048, ev.e.evt_msg_prefix_len);
  EXPECT_EQ(file + "0123456", ev.prefix().substr(0, 2047));
  EXPECT_EQ('\0', ev.e.evt_msg_prefix_buffer[2047]);
  EXPECT_EQ(0, ev.e.evt_msg_sufix_len);  // the walk stopped before %m

  file.assign(2045, 'f');
  ev.loc.loc_file = file.c_str();
  wlog_layout_format(&ev.e, "%f%F|");  // "DoWork" needs 6, only 3 left: lost whole
  EXPECT_EQ(file + "|", ev.prefix());
  file.assign(2042, 'g');
  ev.loc.loc_file = file.c_str();
  wlog_layout_format(&ev.e, "%f%F");  // fits exactly: the final byte becomes NUL
  ASSERT_EQ(2048, ev.e.evt_msg_prefix_len);
  EXPECT_EQ(file + "DoWor", ev.prefix().substr(0, 2047));
}

TEST(WlogLayoutCached, SameBytesAsPlainRenderer) {
  WLOGLAYOUTCACHE cache;
  memset(&cache, 0, sizeof(cache));
  // Every literal length ending at or near the buffer's end, before a %m.
  for (size_t flen = 2020; flen < 2048; ++flen) {
    for (size_t lit = 1; lit <= 20; ++lit) {
      const std::string file(flen, 'f');
      Event ev;
      ev.loc.loc_file = file.c_str();
      expect_same(ev, "%f" + std::string(lit, 'L') + "%mX", &cache);
    }
  }
  const char* pieces[] = {"%C", "%F", "%M", "%P", "%U", "%c", "%d", "%f", "%h", "%l", "%m",  "%n",
                          "%p", "%t", "%u", "%%", "%x", "%7", "[",  "]",  ".",  " ",  "abc", "%"};
  std::mt19937 rng(12345);
  for (int round = 0; round < 3000; ++round) {
    std::string pattern;
    const int n = static_cast<int>(rng() % 12);
    for (int i = 0; i < n && pattern.size() < 120; ++i) pattern += pieces[rng() % 24];
    const std::string file(rng() % 3 == 0 ? 2030 + rng() % 30 : rng() % 40, 'f');
    Event ev;
    ev.loc.loc_file = file.c_str();
    ev.loc.loc_line = static_cast<int>(rng()) - 1000;
    if (rng() % 7 == 0) ev.e.evt_loc = nullptr;
    ev.e.evt_priority = static_cast<int>(rng() % 1400) - 200;
    ev.e.evt_timestamp.tv_sec = 1700000000 + static_cast<time_t>(rng() % 5);
    ev.e.evt_timestamp.tv_usec = rng() % 11 == 0 ? -5 : static_cast<long>(rng() % 1000000);
    ev.e.evt_id = static_cast<unsigned>(rng());
    expect_same(ev, pattern, &cache);
  }
}

TEST(WlogLayoutCached, FollowsPatternSecondAndFork) {
  WLOGLAYOUTCACHE cache;
  memset(&cache, 0, sizeof(cache));
  Event ev;
  wlog_layout_format_cached_i(&cache, &ev.e, "%d|%m");
  EXPECT_EQ(date_text(1706706309) + "|", ev.prefix());
  ev.e.evt_timestamp.tv_sec += 3601;
  wlog_layout_format_cached_i(&cache, &ev.e, "%d|%m");
  EXPECT_EQ(date_text(1706706309 + 3601) + "|", ev.prefix());
  wlog_layout_format_cached_i(&cache, &ev.e, "<%p>%m");
  EXPECT_EQ("<ERROR   >", ev.prefix());

  wlog_layout_format_cached_i(&cache, &ev.e, "%P");
  ASSERT_EQ(std::to_string(getpid()), ev.prefix());
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {  // the cached process id is the parent's until the fork is noticed
    wlog_layout_format_cached_i(&cache, &ev.e, "%P");
    _exit(ev.prefix() == std::to_string(getpid()) ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(child, waitpid(child, &status, 0));
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}
