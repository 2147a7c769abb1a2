// The logging context: initialisation, links, loops, lookups, clones, reload, the clock
// override and the bill log.
#include <string.h>
#include <sys/stat.h>

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
using zq_test::ReadFile;
using zq_test::StdoutCapture;
using zq_test::TempDir;

TEST(WlogInit, BadMagicLeavesContextUntouched) {
  auto conf = make_conf();
  conf->iMagic = 1547;
  WLOGCTX* ctx = wlog_alloc();
  ASSERT_NE(nullptr, ctx);
  memset(ctx->szHostName, 'z', sizeof(ctx->szHostName));
  EXPECT_EQ(-1, wlog_init(ctx, conf.get()));
  EXPECT_EQ('z', ctx->szHostName[0]);
  EXPECT_EQ(nullptr, ctx->pstConf);
  EXPECT_EQ(-1, wlog_init(nullptr, conf.get()));
  EXPECT_EQ(-1, wlog_get_category_size(nullptr));
  EXPECT_EQ(nullptr, wlog_get_category(nullptr, "x"));
  EXPECT_EQ(0, wlog_free(&ctx));
  EXPECT_EQ(nullptr, ctx);
  EXPECT_EQ(-1, wlog_free(&ctx));
}

TEST(WlogInit, DefaultsLinksAndLookups) {
  auto conf = make_conf();
  add_category(conf.get(), "net");
  add_category(conf.get(), "net.io");
  WLOGCATEGORY* fwd = add_category(conf.get(), "io.x");  // no category "io": no parent
  snprintf(fwd->szForwardCat, sizeof(fwd->szForwardCat), "NET.IO");
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  EXPECT_STREQ("0.0.0.0", ctx->szHostName);
  EXPECT_STREQ("unknown", ctx->szModuleName);
  EXPECT_EQ(3, wlog_get_category_size(ctx.get()));
  EXPECT_EQ(WLOG_DEFAULT_MAX_MSG_SIZE, conf->astCategoryList[0].iMaxMsgSize);

  WLOGCATEGORYINST* net = wlog_get_category(ctx.get(), "NET");
  WLOGCATEGORYINST* io = wlog_get_category(ctx.get(), "net.io");
  WLOGCATEGORYINST* x = wlog_get_category(ctx.get(), "io.x");
  ASSERT_NE(nullptr, net);
  EXPECT_STREQ("net", inner(net)->szName);
  EXPECT_EQ(inner(net), inner(io)->pstParent);
  EXPECT_EQ(nullptr, inner(net)->pstParent);
  EXPECT_EQ(nullptr, inner(x)->pstParent);
  EXPECT_EQ(inner(io), inner(x)->pstForward);
  EXPECT_EQ(nullptr, wlog_get_category(ctx.get(), "missing"));
  EXPECT_EQ(x, wlog_get_category_by_index(ctx.get(), 2));
  EXPECT_EQ(nullptr, wlog_get_category_by_index(ctx.get(), 3));
  EXPECT_EQ(nullptr, wlog_get_category_by_index(ctx.get(), -1));
  EXPECT_EQ(ctx.get(), wlog_get_context(x));
  // Only the bound pointers of the public view are filled.
  EXPECT_EQ(nullptr, net->a_pstParent);
  EXPECT_EQ(&conf->iPriorityLow, net->piPriorityLow);
}

TEST(WlogInit, ForwardLoopsAreRefused) {
  // A cycle a -> b -> a (kind 1), and a forward to a memory-device category (kind 2).
  for (int kind = 1; kind <= 2; ++kind) {
    auto conf = make_conf();
    conf->iDelayInit = 1;
    WLOGCATEGORY* a = add_category(conf.get(), "a");
    snprintf(a->szForwardCat, sizeof(a->szForwardCat), "b");
    WLOGCATEGORY* b = add_category(conf.get(), "b", "", kind == 1 ? WLOG_DEV_TERM : WLOG_DEV_MEM);
    if (kind == 1) snprintf(b->szForwardCat, sizeof(b->szForwardCat), "a");
    StdoutCapture cap;
    int ret = 0;
    EXPECT_FALSE(init_ctx(conf.get(), &ret));
    EXPECT_EQ(static_cast<int>(0x83020403u), ret);
    EXPECT_EQ("wlog conf forward category form loop " + std::to_string(kind) + "\n", cap.Stop());
  }
}

TEST(WlogInit, AppenderFailureSuppressionMustSucceedAndDelay) {
  TempDir dir;
  auto conf = make_conf();
  add_file_category(conf.get(), "ok", dir.file("ok.log"), "%m\n");
  add_category(conf.get(), "odd", "", 99);  // no such device
  int ret = 0;
  StdoutCapture cap;
  EXPECT_FALSE(init_ctx(conf.get(), &ret));
  EXPECT_EQ(-1, ret);
  EXPECT_EQ("log category odd init failed\n", cap.Stop());

  conf->iSuppressError = 1;
  StdoutCapture cap2;
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  EXPECT_EQ(2, wlog_get_category_size(ctx.get()));
  EXPECT_EQ(0, inner(wlog_get_category(ctx.get(), "odd"))->iInited);
  ctx.reset();
  conf->astCategoryList[1].iMustSucc = 1;
  EXPECT_FALSE(init_ctx(conf.get()));
  cap2.Stop();

  conf->iCount = 1;  // delayed: the file appears with the first write
  unlink(dir.file("ok.log").c_str());
  conf->iDelayInit = 1;
  ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  EXPECT_NE(0, access(dir.file("ok.log").c_str(), F_OK));
  log_text(wlog_get_category(ctx.get(), "ok"), 0, "first");
  EXPECT_EQ("first\n", ReadFile(dir.file("ok.log")));
}

TEST(WlogContext, HostModuleNamesPatternAndForward) {
  TempDir dir;
  auto conf = make_conf();
  add_category(conf.get(), "a", "%h/%M %m;");
  add_category(conf.get(), "b", "B%m;");
  add_file_category(conf.get(), "f", dir.file("a.log"));
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  EXPECT_EQ(0, wlog_set_host_name(ctx.get(), "10.0.0.9"));
  EXPECT_EQ(0, wlog_set_module_name(ctx.get(), "zone"));
  EXPECT_EQ(-1, wlog_set_module_name(ctx.get(), nullptr));
  WLOGCATEGORYINST* a = wlog_get_category(ctx.get(), "a");
  WLOGCATEGORYINST* b = wlog_get_category(ctx.get(), "b");
  ASSERT_EQ(0, wlog_set_category_forward(a, b));
  EXPECT_STREQ("b", conf->astCategoryList[0].szForwardCat);
  EXPECT_EQ(WLOG_ERRCODE(WLOG_ERROR_LOOP), wlog_set_category_forward(b, a));
  EXPECT_EQ(WLOG_ERRCODE(WLOG_ERROR_LOOP), wlog_set_category_forward(a, a));
  EXPECT_EQ(-1, wlog_set_category_forward(a, nullptr));
  wlog_test::Capture cap;
  log_text(a, 0, "m");
  EXPECT_EQ("10.0.0.9/zone m;Bm;", cap.Take());
  EXPECT_EQ(0, wlog_set_host_name(ctx.get(), std::string(300, 'h').c_str()));
  EXPECT_EQ(127u, strlen(ctx->szHostName));

  EXPECT_EQ(dir.file("a.log"), wlog_get_category_pattern(wlog_get_category(ctx.get(), "f")));
  EXPECT_EQ(nullptr, wlog_get_category_pattern(a));
}

TEST(WlogClone, RenamesTheFilePartOfEachPatternAndWritesThere) {
  TempDir dir;
  const std::string d = dir.path() + "/";
  auto conf = make_conf();
  const char* files[] = {"app_%Y.log", "plain", "a.b/c", "x:app"};
  const char* renamed[] = {"app_%Y_sub.log", "sub.log", "a.b/sub.log", "x:sub.log"};
  for (const char* f : files) add_file_category(conf.get(), f, d + f, "%c:%m\n");
  mkdir((d + "a.b").c_str(), 0700);
  WLOGDEVVEC& v = add_category(conf.get(), "vec", "", WLOG_DEV_VEC)->stDevice.stDevice.stVec;
  v.iCount = 3;
  v.astElements[0].iType = WLOG_DEV_FILE;
  snprintf(v.astElements[0].stDevice.stFile.szPattern, WLOGFILE_PATTERN_LEN, "%sa.log", d.c_str());
  v.astElements[1].iType = WLOG_DEV_NET;
  v.astElements[2].iType = WLOG_DEV_FILE;
  snprintf(v.astElements[2].stDevice.stFile.szPattern, WLOGFILE_PATTERN_LEN, "%sb", d.c_str());
  WLOGDEVMEM& m = add_category(conf.get(), "mem", "", WLOG_DEV_MEM)->stDevice.stDevice.stMem;
  snprintf(m.szUri, WLOGMEM_STRING_LEN, "wsm-data://ring");
  snprintf(m.szPattern, WLOGMEM_STRING_LEN, "%sdump.txt", d.c_str());
  m.iEnable = 0;  // only the renaming is looked at here: no shared memory is touched
  conf->iDelayInit = 1;
  conf->iSuppressError = 1;  // the network element has no collector: that clone stays uninitialised
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);

  StdoutCapture cap;
  WLOGCATEGORYINST* app = wlog_get_category(ctx.get(), files[0]);
  ASSERT_EQ(0, wlog_clone_category(app, "sub"));
  EXPECT_EQ(1, wlog_clone_category(app, "SUB"));
  EXPECT_EQ(-1, wlog_clone_category(nullptr, "x"));
  EXPECT_EQ(-1, wlog_clone_category(app, nullptr));
  WLOGCATEGORYINST* sub = wlog_get_category(ctx.get(), "sub");
  EXPECT_EQ(inner(app), inner(sub)->pstCloneParent);
  EXPECT_EQ(&conf->astCategoryList[6], inner(sub)->pstCat);
  EXPECT_EQ(7, conf->iCount);
  log_text(sub, 0, "hello");
  EXPECT_EQ("sub:hello\n",
            ReadFile(d + "app_" + wlog_test::local_time("%Y", time(nullptr)) + "_sub.log"));
  for (int i = 1; i < 4; ++i) {
    const std::string child = "sub" + std::to_string(i);
    WLOGCLONEOPTION opt = {child.c_str(), "sub", "log"};
    ASSERT_EQ(0, wlog_clone_category_i(wlog_get_category(ctx.get(), files[i]), &opt));
    EXPECT_EQ(d + renamed[i],
              wlog_get_category_pattern(wlog_get_category(ctx.get(), child.c_str())));
  }
  WLOGCLONEOPTION opt = {"vec2", "pre", "suf"};
  EXPECT_EQ(0, wlog_clone_category_i(wlog_get_category(ctx.get(), "vec"), &opt));
  opt = {"mem2", "m", "log"};
  EXPECT_EQ(0, wlog_clone_category_i(wlog_get_category(ctx.get(), "mem"), &opt));
  cap.Stop();
  const WLOGDEVVEC& cv =
      inner(wlog_get_category(ctx.get(), "vec2"))->pstCat->stDevice.stDevice.stVec;
  EXPECT_EQ(d + "a_pre_0.suf", cv.astElements[0].stDevice.stFile.szPattern);
  EXPECT_EQ(d + "pre_1.suf", cv.astElements[2].stDevice.stFile.szPattern);
  const WLOGDEVMEM& cm =
      inner(wlog_get_category(ctx.get(), "mem2"))->pstCat->stDevice.stDevice.stMem;
  EXPECT_EQ(d + "dump_m.log", cm.szPattern);
  EXPECT_STREQ("wsm-data://ringm.log", cm.szUri);
}

TEST(WlogClone, ContextHoldsAtMost512) {
  auto conf = make_conf();
  add_category(conf.get(), "root", "", WLOG_DEV_NO);
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  WLOGCATEGORYINST* root = wlog_get_category(ctx.get(), "root");
  for (int i = 1; i < WLOG_MAX_CATEGORY; ++i) {
    ASSERT_EQ(0, wlog_clone_category(root, ("c" + std::to_string(i)).c_str())) << i;
  }
  EXPECT_EQ(WLOG_MAX_CATEGORY, wlog_get_category_size(ctx.get()));
  EXPECT_EQ(-2, wlog_clone_category(root, "one-too-many"));
  EXPECT_EQ(1, wlog_clone_category(root, "c7"));
}

TEST(WlogReload, ReinitialisesAppendersAndRefreshesClones) {
  auto conf = make_conf();
  add_category(conf.get(), "t", "[%m]");
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  WLOGCATEGORYINST* t = wlog_get_category(ctx.get(), "t");
  ASSERT_EQ(0, wlog_clone_category(t, "t2"));
  WLOGCATEGORYINST* t2 = wlog_get_category(ctx.get(), "t2");
  conf->astCategoryList[0].iPriorityLow = WLOG_PRIORITY_WARN;  // root record changes

  auto next = make_conf();
  next->iPriorityHigh = WLOG_PRIORITY_ALERT;
  next->iPriorityLow = WLOG_PRIORITY_INFO;
  WLOGCATEGORY* nt = add_category(next.get(), "t", "ignored", WLOG_DEV_TERM);
  nt->stDevice.stDevice.stTerm.iStdType = 2;  // the new description: an unusable stream
  EXPECT_EQ(-1, wlog_reload(ctx.get(), nullptr));
  ASSERT_EQ(0, wlog_reload(ctx.get(), next.get()));
  EXPECT_EQ(WLOG_PRIORITY_ALERT, conf->iPriorityHigh);
  EXPECT_EQ(WLOG_PRIORITY_INFO, conf->iPriorityLow);
  EXPECT_EQ(WLOG_DEFAULT_DNS_INTERNAL, conf->iAsyncDnsInternal);
  EXPECT_EQ(&conf->astCategoryList[0], inner(t)->pstCat);  // the record in use stays
  EXPECT_EQ(WLOG_PRIORITY_WARN, inner(t2)->pstCat->iPriorityLow);

  wlog_test::Capture cap;
  log_text(t, 0, "old-stream");  // now goes to the unusable stream
  log_text(t2, 0, "clone");
  EXPECT_EQ("[clone]", cap.Take());
}

TEST(WlogBill, LinesWithTimeLongLineCutAndClockOverride) {
  TempDir dir;
  const int64_t before = wlog_get_current_time();
  EXPECT_GT(before, 1600000000LL * 1000000);
  WLOGFILE* bill = nullptr;
  EXPECT_EQ(-1, wlog_bill_init(&bill, 4200000001ULL, 1, dir.file("bill.log").c_str()));
  EXPECT_EQ(-1, wlog_bill_init(nullptr, 0, 1, "x"));
  ASSERT_EQ(0, wlog_bill_init(&bill, 0, 1, dir.file("bill.log").c_str()));
  EXPECT_EQ(1, wlogfile_is_bill(bill));

  timeval tv = {1700000000, 5};
  EXPECT_EQ(0, wlog_set_current_time(&tv));
  EXPECT_EQ(1700000000000005, wlog_get_current_time());
  ASSERT_EQ(0, wlog_bill_log(bill, "user=%s gold=%d", "ann", 7));
  EXPECT_EQ(0, wlog_set_current_time(nullptr));
  EXPECT_GE(wlog_get_current_time(), before);
  ASSERT_EQ(0, wlog_bill_log(bill, "%s", std::string(9000, 'q').c_str()));
  ASSERT_EQ(0, wlog_bill_write(bill, "raw", 3));
  EXPECT_EQ(-1, wlog_bill_write(bill, nullptr, 3));
  ASSERT_EQ(0, wlog_bill_fini(&bill));
  EXPECT_EQ(nullptr, bill);
  EXPECT_EQ(-1, wlog_bill_fini(&bill));

  const std::string data = ReadFile(dir.file("bill.log"));
  const std::string first =
      wlog_test::local_time("%Y%m%d-%H:%M:%S | ", 1700000000) + "user=ann gold=7\n";
  ASSERT_EQ(first.size() + 8192 + 3, data.size());
  EXPECT_EQ(first, data.substr(0, first.size()));
  EXPECT_EQ('\n', data[first.size() + 8191]);  // the cut line still ends with a line feed
  EXPECT_EQ("raw", data.substr(data.size() - 3));
}

TEST(WlogBill, BillCategoryLookup) {
  TempDir dir;
  auto conf = make_conf();
  WLOGCATEGORY* bill = add_file_category(conf.get(), "bill", dir.file("b.log"));
  bill->stDevice.stDevice.stFile.iMaxRotate = 0;
  bill->stDevice.stDevice.stFile.iPrecision = 1;
  add_file_category(conf.get(), "plain", dir.file("p.log"));
  WLOGDEVVEC& vec = add_category(conf.get(), "vec", "", WLOG_DEV_VEC)->stDevice.stDevice.stVec;
  vec.iCount = 1;
  vec.astElements[0].iType = WLOG_DEV_FILE;
  vec.astElements[0].stDevice.stFile.iPrecision = 1;
  conf->iDelayInit = 1;
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  EXPECT_NE(nullptr, wlog_get_bill_category(ctx.get(), "bill"));
  EXPECT_EQ(nullptr, wlog_get_bill_category(ctx.get(), "plain"));
  EXPECT_NE(nullptr, wlog_get_bill_category(ctx.get(), "vec"));
  vec.astElements[0].stFilterVec.iCount = 1;
  EXPECT_EQ(nullptr, wlog_get_bill_category(ctx.get(), "vec"));
  bill->stFilter.iCount = 1;
  EXPECT_EQ(nullptr, wlog_get_bill_category(ctx.get(), "bill"));
}

TEST(WlogClone, GoesOnWithTheParentsBinarySequence) {
  auto conf = make_conf();
  add_category(conf.get(), "bin");
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  WLOGCATEGORYINST* c = wlog_get_category(ctx.get(), "bin");
  char body[] = "b";
  WLOGEVENT evt = {0, body, 1, nullptr, 1, 0, 0, 0, 0};
  wlog_test::Capture cap;
  for (int i = 0; i < 5; ++i) ASSERT_EQ(0, wlog_category_log(c, &evt));
  ASSERT_EQ(0, wlog_clone_category(c, "clone"));
  ASSERT_EQ(0, wlog_category_log(wlog_get_category(ctx.get(), "clone"), &evt));
  ASSERT_EQ(6u, cap.records.size());
  const wlog_test::Record& r = cap.records.back();
  EXPECT_EQ("clone", r.cat);
  WLOGBINHEAD head;
  ASSERT_EQ(40, wlogbin_ntoh_head(&head, r.bytes.data(), r.bytes.size()));
  EXPECT_EQ(6, head.iSeq);
}
