// Pattern layout: every conversion, the buffer rules, and the per-category compiled pattern.
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

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

}  // namespace

TEST(WlogLayout, ConversionsAndDroppedCharacters) {
  char every[256];
  snprintf(every, sizeof(every), "5|DoWork|gamesvr|%d|77|net.io|src/a.cc|10.1.2.3|42|%lu|ERROR   |",
           static_cast<int>(getpid()), static_cast<unsigned long>(pthread_self()));
  const std::string a125(125, 'a'), b300(300, 'b');
  const struct {
    std::string pattern, prefix, suffix;
    bool no_loc;
  } cases[] = {
      {"%d.%u %p %m%n", date_text(1706706309) + ".000123 ERROR    ", "\n", false},
      {"%C|%F|%M|%P|%U|%c|%f|%h|%l|%t|%p|", every, "", false},
      {"100%%", "100", "", false},   // no literal percent sign
      {"%x%m", "", "", false},       // unknown conversions print nothing
      {"a%5pb%", "apb", "", false},  // no width; a trailing % is dropped
      {"%f:%l:%F", "(nil):0:(nil)", "", true},
      {"", "", "", false},
      // Longer than a configured pattern: compiled in pieces, never between '%' and its letter.
      {a125 + "a%p|", a125 + "aERROR   |", "", false},
      {a125 + "%%%p", a125 + "ERROR   ", "", false},
      {b300 + "%m" + b300 + "%U", b300, b300 + "77", false},
  };
  for (const auto& c : cases) {
    for (bool category : {false, true}) {  // one-off, and through a category's compiled pattern
      if (category && c.pattern.size() >= WLOG_FORMAT_LEN) continue;
      Event ev;
      ev.e.evt_msg_prefix_len = ev.e.evt_msg_sufix_len = 9;
      if (c.no_loc) ev.e.evt_loc = nullptr;
      WLOGLAYOUTCACHE cache = {};
      if (category) {
        wlog_layout_format_cached_i(&cache, &ev.e, c.pattern.c_str());
      } else {
        wlog_layout_format(&ev.e, c.pattern.c_str());
      }
      EXPECT_EQ(c.prefix, ev.prefix()) << c.pattern;
      EXPECT_EQ(c.suffix, ev.suffix()) << c.pattern;
    }
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

TEST(WlogLayoutCached, FollowsPatternAndSecond) {
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

  wlog_layout_format_cached_i(&cache, &ev.e, "%P|%m");
  EXPECT_EQ(std::to_string(getpid()) + "|", ev.prefix());
}
