// The log call: windows, filters, forwarding, parent dispatch, the message-size rule, hex and
// binary messages, per-category settings and the caller macros.
#include <string.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "wlog/wlog.h"
#include "wlog_test_util.h"

using wlog_test::add_category;
using wlog_test::add_file_category;
using wlog_test::CtxPtr;
using wlog_test::init_ctx;
using wlog_test::inner;
using wlog_test::log_text;
using wlog_test::make_conf;
using zq_test::StdoutCapture;

namespace {

int g_evaluations = 0;
int counted(int v) {
  ++g_evaluations;
  return v;
}

}  // namespace

TEST(WlogCanWrite, WindowsFiltersAndTheForwardChain) {
  auto conf = make_conf();
  add_category(conf.get(), "open");
  WLOGCATEGORY* win = add_category(conf.get(), "win");
  win->iPriorityHigh = WLOG_PRIORITY_ERROR;
  win->iPriorityLow = WLOG_PRIORITY_INFO;
  add_category(conf.get(), "none")->stFilter.iCount = -1;
  WLOGCATEGORY* ids = add_category(conf.get(), "ids");
  ids->stFilter.iCount = 1;
  ids->stFilter.astFilters[0].stIDFilter = {100, 10, 0, 0, 0, 0};
  WLOGCATEGORY* off = add_category(conf.get(), "off", "", WLOG_DEV_NO);  // switched off ...
  snprintf(off->szForwardCat, sizeof(off->szForwardCat), "win");  // ... its target still counts
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  const struct {
    const char* cat;
    int prio;
    unsigned id;
    int expect;
  } cases[] = {
      {"open", -500, 0, 1},
      {"open", 5000, 0, 1},  // no bounds accept everything
      {"win", WLOG_PRIORITY_CRIT, 0, 0},
      {"win", WLOG_PRIORITY_ERROR, 0, 1},
      {"win", WLOG_PRIORITY_INFO, 0, 1},
      {"win", WLOG_PRIORITY_DEBUG, 0, 0},
      {"ids", 0, 105, 1},
      {"ids", 0, 110, 0},
      {"none", 0, 0, 1},  // a negative filter count: can_write says yes ...
      {"off", WLOG_PRIORITY_ERROR, 0, 1},
      {"off", WLOG_PRIORITY_DEBUG, 0, 0},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.expect,
              wlog_category_can_write(wlog_get_category(ctx.get(), c.cat), c.prio, c.id, 0))
        << c.cat << " " << c.prio << " " << c.id;
  }
  EXPECT_EQ(0, wlog_category_can_write(nullptr, WLOG_PRIORITY_ERROR, 0, 0));
  WLOGCATEGORYINNERINST* o = inner(wlog_get_category(ctx.get(), "off"));
  EXPECT_EQ(0, wlog_category_priority_check_chain(o, WLOG_PRIORITY_DEBUG));
  EXPECT_EQ(1, wlog_category_filter_check_chain(o, 1, 2));
  wlog_test::Capture cap;  // ... but the write path rejects
  EXPECT_EQ(0, log_text(wlog_get_category(ctx.get(), "none"), 0, "dropped"));
  EXPECT_EQ(0, log_text(wlog_get_category(ctx.get(), "ids"), 0, "id-out", 110));
  EXPECT_EQ(0, log_text(wlog_get_category(ctx.get(), "ids"), 0, "id-in", 101));
  EXPECT_EQ(0, log_text(wlog_get_category(ctx.get(), "off"), WLOG_PRIORITY_ERROR, "via-win"));
  EXPECT_EQ("id-invia-win", cap.Take());
}

TEST(WlogLogv, MessageSizeRuleAndBadArguments) {
  auto conf = make_conf();
  add_category(conf.get(), "small")->iMaxMsgSize = 8;
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  WLOGCATEGORYINST* c = wlog_get_category(ctx.get(), "small");
  WLOGEVENT evt = {0, nullptr, 0, nullptr, 0, 0, 0, 0, 0};
  wlog_test::Capture cap;
  ASSERT_EQ(0, wlog_category_logv(c, &evt, "%s", "1234567"));
  EXPECT_EQ(7, evt.evt_msg_len);
  ASSERT_EQ(0, wlog_category_logv(c, &evt, "%s", "12345678"));
  EXPECT_EQ(7, evt.evt_msg_len);  // cut: loses its last kept character, counts the NUL
  EXPECT_EQ(std::string("1234567") + std::string("123456\0", 7), cap.Take());

  evt.evt_is_msg_binary = 1;  // binary events carry their own bytes
  EXPECT_EQ(-1, wlog_category_logv(c, &evt, "x"));
  evt.evt_is_msg_binary = 0;
  EXPECT_EQ(-1, wlog_category_logv(c, &evt, nullptr));
  EXPECT_EQ(-1, wlog_category_logv(nullptr, &evt, "x"));
  EXPECT_EQ(-1, wlog_category_log(c, nullptr));
  EXPECT_EQ(-1, wlog_category_log_hex(nullptr, &evt));
}

TEST(WlogLog, AppenderFailureIsSwallowedExceptByHex) {
  auto conf = make_conf();
  WLOGCATEGORY* cat = add_category(conf.get(), "bad", "", WLOG_DEV_TERM);
  cat->stDevice.stDevice.stTerm.iStdType = 2;  // neither stream: every write fails
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  WLOGCATEGORYINST* c = wlog_get_category(ctx.get(), "bad");
  EXPECT_EQ(0, log_text(c, 0, "lost"));
  char msg[] = "lost";
  WLOGEVENT evt = {0, msg, 4, nullptr, 0, 0, 0, 0, 0};
  EXPECT_EQ(0, wlog_category_log(c, &evt));
  EXPECT_EQ(-1, wlog_category_log_hex(c, &evt));  // hex returns the last write's result
}

TEST(WlogDispatch, ForwardChainAndParentEachWithTheirLayout) {
  auto conf = make_conf();
  WLOGCATEGORY* a = add_category(conf.get(), "a", "A[%m]");
  snprintf(a->szForwardCat, sizeof(a->szForwardCat), "B");
  add_category(conf.get(), "b", "B[%m]");
  WLOGCATEGORY* parent = add_category(conf.get(), "game", "P[%m]");
  parent->stFilter.iCount = -1;  // the parent's filters do not apply to dispatched records ...
  parent->iPriorityLow = WLOG_PRIORITY_ERROR;  // ... but its window does
  add_category(conf.get(), "game.login", "C[%c:%m]")->iLevelDispatch = 1;
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  wlog_test::Capture cap;
  log_text(wlog_get_category(ctx.get(), "a"), 0, "x");
  log_text(wlog_get_category(ctx.get(), "game.login"), 0, "y");
  log_text(wlog_get_category(ctx.get(), "game.login"), WLOG_PRIORITY_DEBUG, "d");
  log_text(wlog_get_category(ctx.get(), "game"), 0, "z");  // rejected by its own filters
  EXPECT_EQ("A[x]B[x]C[game.login:y]C[game.login:y]C[game.login:d]", cap.Take());
}

TEST(WlogLogHex, ConvertsAndHandlesTheBoundary) {
  auto conf = make_conf();
  add_category(conf.get(), "hex", "<%m>")->iMaxMsgSize = 8;
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  WLOGCATEGORYINST* c = wlog_get_category(ctx.get(), "hex");
  char three[] = "\x0a\xbc\x01", five[] = "\x01\x02\x03\x04\x05", four[] = "\xff\xff\xff\xff";
  WLOGEVENT evt = {0, three, 3, nullptr, 1, 0, 0, 0, 0};
  wlog_test::Capture cap;
  EXPECT_LT(0, wlog_category_log_hex(c, &evt));
  evt.evt_msg = five;
  evt.evt_msg_len = 5;  // longer than fits: cut to (8 - 2) / 2 = 3 bytes
  EXPECT_LT(0, wlog_category_log_hex(c, &evt));
  evt.evt_msg = four;
  evt.evt_msg_len = 4;  // exactly half the buffer: refused, buffer logged unchanged
  EXPECT_LT(0, wlog_category_log_hex(c, &evt));
  EXPECT_EQ(std::string("<0ABC01><010203><010203\0\0>", 26), cap.Take());
}

TEST(WlogLogVix, PrintsTheRecordIntoTheCategoryBuffer) {
  const VIXMETA* meta = vix_get_meta_by_name(wlog_get_meta_data(), "DevTerm");
  ASSERT_NE(nullptr, meta);
  const WLOGDEVTERM pt = {-7};

  auto conf = make_conf();
  add_category(conf.get(), "vix", "<%m>")->iMaxMsgSize = 64;
  add_category(conf.get(), "small", "<%m>")->iMaxMsgSize = 16;
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  WLOGCATEGORYINST* c = wlog_get_category(ctx.get(), "vix");
  WLOGCATEGORYINST* small = wlog_get_category(ctx.get(), "small");
  WLOGEVENT evt = {WLOG_PRIORITY_INFO, nullptr, 0, nullptr, 0, 0, 0, 0, 0};
  wlog_test::Capture cap;
  EXPECT_EQ(0, wlog_category_log_vix(c, &evt, meta, &pt, sizeof(pt), 0));
  EXPECT_EQ(35, evt.evt_msg_len);
  // Filling the buffer: the length is the capacity and the last byte gives way to a NUL.
  EXPECT_EQ(0, wlog_category_log_vix(small, &evt, meta, &pt, sizeof(pt), 0));
  EXPECT_EQ(16, evt.evt_msg_len);
  // A record that cannot be printed (no bytes) is logged as the nothing printed.
  EXPECT_EQ(0, wlog_category_log_vix(c, &evt, meta, &pt, -1, 0));
  EXPECT_EQ(std::string("<[DevTerm version=\"1\"]:\n  StdType=-7><[DevTerm versio\0><>", 57),
            cap.Take());
  EXPECT_EQ(-1, wlog_category_log_vix(nullptr, &evt, meta, &pt, sizeof(pt), 0));
  EXPECT_EQ(-1, wlog_category_log_vix(c, nullptr, meta, &pt, sizeof(pt), 0));
  EXPECT_EQ(-1, wlog_category_log_vix(c, &evt, nullptr, &pt, sizeof(pt), 0));
  EXPECT_EQ(-1, wlog_category_log_vix(c, &evt, meta, nullptr, sizeof(pt), 0));
}

TEST(WlogLog, BinaryMessageGetsHead) {
  zq_test::TempDir dir;
  auto conf = make_conf();
  add_file_category(conf.get(), "bin", dir.file("bin.log"), "ignored %m");
  add_file_category(conf.get(), "raw", dir.file("raw.log"))
      ->stDevice.stDevice.stFile.iDropBinaryHead = 1;
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  char body[] = "hello";
  WLOGEVENT evt = {WLOG_PRIORITY_INFO, body, 5, nullptr, 1, 11, 22, 3, 4};
  timeval fixed = {1700000000, 250};
  WLOGCATEGORYINST* c = wlog_get_category(ctx.get(), "bin");
  EXPECT_EQ(0, wlog_category_set_time_ptr(c, &fixed));
  ASSERT_EQ(0, wlog_category_log(c, &evt));
  ASSERT_EQ(0, wlog_category_log(c, &evt));
  ASSERT_EQ(0, wlog_category_log(wlog_get_category(ctx.get(), "raw"), &evt));

  const std::string data = zq_test::ReadFile(dir.file("bin.log"));
  ASSERT_EQ(90u, data.size());
  const unsigned char head[40] = {
      1,    '7',  0,    40,   0, 0, 0, 5,                 // version .. body length
      0x65, 0x53, 0xF1, 0x00, 0, 0, 0, 250,               // seconds, microseconds
      0,    0,    0,    2,    0, 0, 0, 11,  0, 0, 0, 22,  // sequence (2nd), id, class
      0,    0,    0,    3,    0, 0, 0, 4,   0, 0, 0, 0};  // type, body version, sum
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(head), 40), data.substr(45, 40));
  EXPECT_EQ("hello", data.substr(85));
  EXPECT_EQ("hello", zq_test::ReadFile(dir.file("raw.log")));
}

TEST(WlogCategorySettings, FormatPriorityAndFixedTime) {
  auto conf = make_conf();
  add_category(conf.get(), "s", "1:%m;");
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  WLOGCATEGORYINST* c = wlog_get_category(ctx.get(), "s");
  wlog_test::Capture cap;
  log_text(c, 0, "a");
  ASSERT_EQ(0, wlog_category_set_format(c, "2:%m;"));
  log_text(c, 0, "b");
  ASSERT_EQ(0, wlog_category_set_priority(c, WLOG_PRIORITY_ERROR, WLOG_PRIORITY_ERROR));
  log_text(c, WLOG_PRIORITY_WARN, "skipped");
  timeval fixed = {1700000000, 42};
  ASSERT_EQ(0, wlog_category_set_time_ptr(c, &fixed));
  fixed.tv_usec = 99;  // the value was copied, not the pointer
  EXPECT_EQ(0, wlog_category_set_format(c, "%u|%m"));
  log_text(c, WLOG_PRIORITY_ERROR, "t");
  EXPECT_EQ("1:a;2:b;000042|t", cap.Take());

  ASSERT_EQ(0, wlog_category_set_format(c, std::string(200, 'x').c_str()));
  EXPECT_EQ(127u, strlen(inner(c)->pstCat->szFormat));
  EXPECT_EQ(-1, wlog_category_set_format(c, nullptr));
  EXPECT_EQ(-1, wlog_category_set_time_ptr(c, nullptr));
  EXPECT_EQ(-1, wlog_category_set_priority(nullptr, 0, 0));
}

TEST(WlogNetStatus, ReadsAppenderState) {
  auto conf = make_conf();
  conf->iDelayInit = 1;  // appenders stay untouched; the test sets their state
  add_category(conf.get(), "net", "", WLOG_DEV_NET);
  add_category(conf.get(), "vec", "", WLOG_DEV_VEC);
  add_category(conf.get(), "term");
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  WLOGCATEGORYINST* n = wlog_get_category(ctx.get(), "net");
  int& net_ok = inner(n)->stWlogAnyInst.stInst.stAny.stNet.stInst.iIsSendNetSucc;
  net_ok = 1;
  EXPECT_EQ(0, wlog_query_net_category_status(n));
  net_ok = 0;
  EXPECT_EQ(1, wlog_query_net_category_status(n));

  WLOGCATEGORYINST* v = wlog_get_category(ctx.get(), "vec");
  WLOGVEC& st = inner(v)->stWlogAnyInst.stInst.stAny.stVec;
  st.iCount = 2;
  st.astElements[0].iType = WLOG_DEV_FILE;
  st.astElements[1].iType = WLOG_DEV_NET;
  st.astElements[1].stFileOrNet.stNet.stInst.iIsSendNetSucc = 1;
  EXPECT_EQ(0, wlog_query_net_category_status(v));
  st.astElements[1].stFileOrNet.stNet.stInst.iIsSendNetSucc = 0;
  EXPECT_EQ(-1, wlog_query_net_category_status(v));
  EXPECT_EQ(0, wlog_query_net_category_status(wlog_get_category(ctx.get(), "term")));
  EXPECT_EQ(-1, wlog_query_net_category_status(nullptr));
}

TEST(WlogMacros, BoundsSkipArgumentEvaluationAndEveryMacroHasItsPriority) {
  auto conf = make_conf();
  conf->iPriorityHigh = WLOG_PRIORITY_ERROR;
  conf->iPriorityLow = WLOG_PRIORITY_INFO;
  add_category(conf.get(), "m", "%p|%f:%l %F|%m;");
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  WLOGCATEGORYINST* c = wlog_get_category(ctx.get(), "m");
  ASSERT_EQ(&conf->iPriorityHigh, c->piPriorityHigh);
  ASSERT_EQ(&conf->iPriorityLow, c->piPriorityLow);

  g_evaluations = 0;
  wlog_test::Capture cap;
  WLOG_LOG_DEBUG(c, "%d", counted(1));  // below the context-wide low bound
  WLOG_LOG_CRIT(c, "%d", counted(2));   // above the high bound
  WLOG_LOG_TRACE(nullptr, "%d", counted(3));
  EXPECT_EQ(0, g_evaluations);
  const int line = __LINE__ + 1;
  WLOG_LOG_WARN(c, "v=%d", counted(4));
  EXPECT_EQ(1, g_evaluations);
  EXPECT_EQ(
      std::string("WARN    |") + __FILE__ + ":" + std::to_string(line) + " " + __func__ + "|v=4;",
      cap.Take());

  conf->iPriorityHigh = conf->iPriorityLow = -1;
  EXPECT_EQ(0, wlog_category_set_format(c, "%p%m"));
  wlog_test::Capture all;  // also the form without arguments
  WLOG_LOG_FATAL(c, ";");
  WLOG_LOG_ALERT(c, ";");
  WLOG_LOG_CRIT(c, ";");
  WLOG_LOG_ERROR(c, ";");
  WLOG_LOG_WARN(c, ";");
  WLOG_LOG_NOTICE(c, ";");
  WLOG_LOG_INFO(c, ";");
  WLOG_LOG_DEBUG(c, ";");
  WLOG_LOG_TRACE(c, ";");
  EXPECT_EQ("FATAL   ;ALERT   ;CRIT    ;ERROR   ;WARN    ;NOTICE  ;INFO    ;DEBUG   ;TRACE   ;",
            all.Take());
}

// A byte stream gets short records joined into one piece: every length, through the parent
// dispatch (same layout) and the forward chain (own layout).
TEST(WlogLog, JoinedRecordsKeepAllPieces) {
  auto conf = make_conf();
  add_category(conf.get(), "p", "P<%m>", WLOG_DEV_TERM);
  WLOGCATEGORY* c = add_category(conf.get(), "p.c", "<%m>", WLOG_DEV_TERM);
  c->iMaxMsgSize = 10000;
  c->iLevelDispatch = 1;
  snprintf(c->szForwardCat, sizeof(c->szForwardCat), "f");
  add_category(conf.get(), "f", "F<%m>", WLOG_DEV_TERM)->iMaxMsgSize = 10000;
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  for (size_t len : {0, 100, 2045, 2046, 4094, 4095, 6000}) {
    const std::string body(len, 'b');
    StdoutCapture cap;
    EXPECT_EQ(0, log_text(wlog_get_category(ctx.get(), "p.c"), 0, body.c_str()));
    const std::string rec = "<" + body + ">";
    EXPECT_EQ(rec + rec + "F" + rec, cap.Stop()) << len;
  }
}

extern "C" int wlog_c_api_log_line(void);

TEST(WlogCApi, MacrosWorkFromC) {
  StdoutCapture cap;
  EXPECT_EQ(0, wlog_c_api_log_line());
  EXPECT_EQ("INFO    wlog_c_api_log_line:from C 1\n", cap.Stop());
}

TEST(WlogVec, ElementsFilterByIdAndStopAtABadElement) {
  zq_test::TempDir dir;
  auto conf = make_conf();
  WLOGDEVVEC& dev = add_category(conf.get(), "vec", "<%U>", WLOG_DEV_VEC)->stDevice.stDevice.stVec;
  dev.iCount = 2;
  for (int i = 0; i < 2; ++i) {
    dev.astElements[i].iType = WLOG_DEV_FILE;
    WLOGDEVFILE& f = dev.astElements[i].stDevice.stFile;
    snprintf(f.szPattern, sizeof(f.szPattern), "%s/e%d.log", dir.path().c_str(), i);
    f.iMaxRotate = 1;
  }
  dev.astElements[0].stFilterVec.iCount = 1;  // ids 1000..1999 only
  dev.astElements[0].stFilterVec.astFilters[0].stIDFilter = {1000, 1000, 0, 0, 0, 0};
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  log_text(wlog_get_category(ctx.get(), "vec"), 0, ";", 1500);  // the id reaches the elements
  log_text(wlog_get_category(ctx.get(), "vec"), 0, ";", 2000);
  WLOGVEC& vec = inner(wlog_get_category(ctx.get(), "vec"))->stWlogAnyInst.stInst.stAny.stVec;
  char rec[] = "r;";
  WLOGIOVEC piece = {rec, 2};
  EXPECT_EQ(2, wlogvec_writev(&vec, 1999, 0, &piece, 1));
  EXPECT_EQ(1, wlogvec_writev(&vec, 999, 0, &piece, 1));
  ctx.reset();
  EXPECT_EQ("<1500>;r;", zq_test::ReadFile(dir.file("e0.log")));
  EXPECT_EQ("<1500>;<2000>;r;r;", zq_test::ReadFile(dir.file("e1.log")));

  dev.astElements[1].iType = WLOG_DEV_TERM;  // neither file nor network
  WLOGVEC bad;
  EXPECT_EQ(-1, wlogvec_init(&bad, &dev));
  EXPECT_EQ(0, bad.iCount);
  dev.astElements[1].iType = WLOG_DEV_FILE;  // a file that cannot be opened: its own result
  snprintf(dev.astElements[1].stDevice.stFile.szPattern, WLOGFILE_PATTERN_LEN, "%s/e0.log/x",
           dir.path().c_str());
  zq_test::StdoutCapture quiet;
  EXPECT_EQ(WLOG_ERRCODE(WLOG_ERROR_FILE_OPEN), wlogvec_init(&bad, &dev));
  EXPECT_EQ(0, bad.iCount);
  EXPECT_EQ(nullptr, bad.astElements[0].stFileOrNet.stFile.stInst.fp);  // the first was closed
}

TEST(WlogTerm, PiecesGoToTheChosenStreamAndFailuresFollowTheRules) {
  char a[] = "ab", b[] = "c";
  WLOGIOVEC v[3] = {{a, 2}, {b, 0}, {b, 1}};
  for (int type : {WLOG_TERM_STDOUT, WLOG_TERM_STDERR, 2}) {
    WLOGDEVTERM dev = {type};
    WLOGTERM term;
    ASSERT_EQ(0, wlogterm_init(&term, &dev));
    zq_test::OutputCapture cap(type == WLOG_TERM_STDERR ? STDERR_FILENO : STDOUT_FILENO);
    EXPECT_EQ(type == 2 ? -1 : 3, wlogterm_writev(&term, v, 3)) << type;
    EXPECT_EQ(-1, wlogterm_writev(&term, v + 1, 1)) << type;  // a record of total length 0
    EXPECT_EQ(type == 2 ? "" : "abc", cap.Stop()) << type;
    EXPECT_EQ(0, wlogterm_fini(&term));
  }
}
