// The configuration as text: printed, read back and used to start a context; a short
// hand-written file whose left-out elements take their defaults; bad files refused with the
// code, line and element.
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <fstream>
#include <string>

#include "vix/vix_error.h"
#include "wlog_test_util.h"

namespace {

using wlog_test::add_file_category;
using wlog_test::init_ctx;
using wlog_test::log_text;
using wlog_test::make_conf;

void write(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

TEST(WlogConfText, PrintedConfigurationReadsBackAndStartsAContext) {
  zq_test::TempDir dir("wlog_conf");
  auto conf = make_conf();
  conf->iPriorityLow = WLOG_PRIORITY_DEBUG;
  conf->iSuppressError = 1;
  add_file_category(conf.get(), "app", dir.file("app.log"), "%m%n");
  WLOGCATEGORY* net = wlog_test::add_category(conf.get(), "net", "", WLOG_DEV_NET);
  snprintf(net->stDevice.stDevice.stNet.szUrl, WLOGNET_URL_LEN, "udp://127.0.0.1:9");
  net->stDevice.stDevice.stNet.iConnTimeout = 100;
  net->stFilter.iCount = 1;
  net->stFilter.astFilters[0].stIDFilter.dwStart = 7;
  WLOGCATEGORY* vec = wlog_test::add_category(conf.get(), "app.vec", "x", WLOG_DEV_VEC);
  WLOGDEVVEC& v = vec->stDevice.stDevice.stVec;
  v.iCount = 1;
  v.astElements[0].iType = WLOG_DEV_FILE;
  snprintf(v.astElements[0].stDevice.stFile.szPattern, WLOGFILE_PATTERN_LEN, "%s",
           dir.file("vec.log").c_str());
  snprintf(vec->szForwardCat, WLOG_FORMAT_LEN, "app");

  const std::string path = dir.file("wlog.conf");
  ASSERT_EQ(0, wlog_conf_save(conf.get(), path.c_str()));
  WLOGCONF* back = nullptr;
  char szError[256];
  ASSERT_EQ(0, wlog_conf_load(&back, path.c_str(), szError, sizeof(szError))) << szError;
  EXPECT_EQ(0, memcmp(conf.get(), back, offsetof(WLOGCONF, astCategoryList)));
  for (int i = 0; i < conf->iCount; ++i) {
    EXPECT_EQ(0, memcmp(&conf->astCategoryList[i], &back->astCategoryList[i], sizeof(WLOGCATEGORY)))
        << i;
  }
  {
    auto ctx = init_ctx(back);
    ASSERT_TRUE(ctx);
    EXPECT_EQ(0, log_text(wlog_get_category(ctx.get(), "app"), 0, "from text"));
  }
  EXPECT_EQ("from text\n", zq_test::ReadFile(dir.file("app.log")));
  wlog_conf_free(&back);
  EXPECT_EQ(nullptr, back);
}

TEST(WlogConfText, LeftOutElementsTakeTheirDefaults) {
  zq_test::TempDir dir("wlog_conf");
  const std::string path = dir.file("short.conf");
  write(path,
        "Count=2\n"
        "[CategoryList[0]]\n"
        "  [Device]\n"
        "    Type=WLOG_DEV_NET\n"
        "    [Device]\n"
        "      [Net]\n"
        "        Url=udp://127.0.0.1:9\n"
        "[CategoryList[1]]\n"
        "  Name=zq.sdk\n"
        "  PriorityLow=WLOG_PRIORITY_INFO+50\n"
        "  Format=%m with = and blanks\n");
  WLOGCONF* c = nullptr;
  char szError[256];
  ASSERT_EQ(0, wlog_conf_load(&c, path.c_str(), szError, sizeof(szError))) << szError;
  ASSERT_NE(nullptr, c);
  EXPECT_EQ(WLOG_CONF_MAGIC, c->iMagic);
  EXPECT_EQ(WLOG_PRIORITY_NULL, c->iPriorityHigh);
  EXPECT_EQ(WLOG_DEFAULT_DNS_INTERNAL, c->iAsyncDnsInternal);
  EXPECT_EQ(2, c->iCount);
  const WLOGCATEGORY& a = c->astCategoryList[0];
  EXPECT_STREQ(WLOG_DEFAULT_CATEGORY_NAME, a.szName);
  EXPECT_STREQ(WLOG_DEFAULT_FORMAT, a.szFormat);
  EXPECT_EQ(WLOG_DEFAULT_MAX_MSG_SIZE, a.iMaxMsgSize);
  EXPECT_EQ(WLOG_PRIORITY_NULL, a.iPriorityLow);
  EXPECT_EQ(WLOG_DEV_NET, a.stDevice.iType);
  EXPECT_EQ(WLOGNET_DEF_TIMEOUT, a.stDevice.stDevice.stNet.iConnTimeout);  // the branch's own
  EXPECT_EQ(0, a.stDevice.stDevice.stNet.iBuffSize);
  const WLOGCATEGORY& b = c->astCategoryList[1];
  EXPECT_STREQ("zq.sdk", b.szName);
  EXPECT_EQ(WLOG_PRIORITY_INFO + 50, b.iPriorityLow);
  EXPECT_STREQ("%m with = and blanks", b.szFormat);
  EXPECT_EQ(WLOG_DEV_NO, b.stDevice.iType);
  EXPECT_EQ(0, b.stDevice.stDevice.stFile.iNoFindLatest);  // no net default leaks into a file
  wlog_conf_free(&c);

  WLOGCONF* d = new WLOGCONF();
  ASSERT_EQ(0, wlog_conf_set_defaults(d));
  EXPECT_STREQ(WLOG_DEFAULT_FORMAT, d->astCategoryList[WLOG_MAX_CATEGORY - 1].szFormat);
  delete d;
}

TEST(WlogConfText, BadFilesGiveTheCodeLineAndElement) {
  zq_test::TempDir dir("wlog_conf");
  const struct {
    const char* pszText;
    int iCode;
    const char* pszError;  // after "path:"
  } kCases[] = {
      {"Count=1\n[CategoryList[0]]\n  Colour=red\n", VIX_ERROR_UNKNOWN_ENTRY_IN_TEXT,
       "3: entry<Colour>"},
      {"Count=1\n[CategoryList[0]]\n  MaxMsgSize=12x\n", VIX_ERROR_BAD_NUMBER, "3: "},
      {"Count=1\n[CategoryList[0]]\n  [Devi", VIX_ERROR_BAD_TEXT_INPUT, "3: "},
      {"Count=513\n", VIX_ERROR_REFER_SURPASS_COUNT, " the count of CategoryList is outside"},
      {"Count=1\n[CategoryList[0]]\n  [Filter]\n    Count=-1\n", VIX_ERROR_MINUS_REFER_VALUE,
       " the count of CategoryList.Filter.Filters is outside"},
  };
  const std::string path = dir.file("bad.conf");
  for (const auto& t : kCases) {
    SCOPED_TRACE(t.pszText);
    write(path, t.pszText);
    char szError[256];
    WLOGCONF* c = reinterpret_cast<WLOGCONF*>(szError);  // must be cleared
    EXPECT_EQ(t.iCode, wlog_conf_load(&c, path.c_str(), szError, sizeof(szError)));
    EXPECT_EQ(nullptr, c);
    const std::string sError = szError;
    EXPECT_EQ(0u, sError.find(path + ":")) << sError;
    EXPECT_EQ(path.size() + 1, sError.find(t.pszError)) << sError;
  }
  WLOGCONF* c = nullptr;
  char szError[256];
  EXPECT_EQ(VIX_ERROR_OPEN_FILE_READ,
            wlog_conf_load(&c, dir.file("missing").c_str(), szError, sizeof(szError)));
  EXPECT_NE(nullptr, strstr(szError, "cannot open")) << szError;
  EXPECT_EQ(-1, wlog_conf_load(nullptr, path.c_str(), nullptr, 0));
}

}  // namespace
