// URIs: parsing with every message, rebuilding, comparing, and the key columns.
#include <string.h>

#include <string>

#include <gtest/gtest.h>

#include "wmng/wsm.h"
#include "wmng_test_util.h"

extern "C" int wmng_c_api_check(void);

namespace {

using namespace wmng_test;

TEST(WsmUri, ParsesAndRebuilds) {
  struct Case {
    const char* text;
    int type;
    const char* rebuilt;
  } cases[] = {
      {"wsm-meta://10/mylib:3:11/LogRecord:*/", 1, "wsm-meta://10/mylib:3:11/LogRecord:*/"},
      {"WSM-Meta://10/mylib:3:11/", 1, "wsm-meta://10/mylib:3:11/:*/"},
      {"wsm-meta://10/mylib:3:11/R:2/more", 1, "wsm-meta://10/mylib:3:11/R:2/more"},
      {"wsm-meta://", 1, "wsm-meta://*/:*:*/:*/"},
      {"wsm-data://10/myprog:1/log/ring", 2, "wsm-data://10/myprog:1/log/ring"},
      {"Wsm-DATA://*/p:*/f/v", 2, "wsm-data://*/p:*/f/v"},
      // 31 characters fit.
      {"wsm-data://7/0123456789012345678901234567890", 2,
       "wsm-data://7/0123456789012345678901234567890://"},
  };
  for (const Case& c : cases) {
    WsmUri u;
    ASSERT_EQ(wsm_uri_set(&u, c.text), 0) << c.text;
    EXPECT_EQ(u.iType, c.type);
    EXPECT_STREQ(wsm_uri_get(&u), c.rebuilt);
    WsmUri again;  // the rebuilt text parses to the same fields
    ASSERT_EQ(wsm_uri_set(&again, u.szUri), 0);
    EXPECT_EQ(wsm_uri_compare(&u, &again), 0);
    EXPECT_EQ(memcmp(&u.stData, &again.stData, sizeof(u.stData)), 0);
  }
  WsmUri m;
  ASSERT_EQ(wsm_uri_set(&m, "wsm-meta://10/mylib:3:11/LogRecord:*/"), 0);
  EXPECT_EQ(m.stMeta.iBid, 10);
  EXPECT_STREQ(m.stMeta.szLib, "mylib");
  EXPECT_EQ(m.stMeta.iLibVer, 3);
  EXPECT_EQ(m.stMeta.iLibBuildVer, 11);
  EXPECT_STREQ(m.stMeta.szMeta, "LogRecord");
  EXPECT_EQ(m.stMeta.iMetaVer, -1);
}

TEST(WsmUri, RefusalsLeaveTheUriAlone) {
  const std::string long_field = "wsm-data://1/" + std::string(32, 'p');
  struct Case {
    const char* text;
    int code;
    const char* message;
  } cases[] = {
      {nullptr, -2, kMsgEmpty},
      {"", -2, kMsgEmpty},
      {"wsm-meta:/10/lib", -3, kMsgNoScheme},
      {"http://x", -6, kMsgScheme},
      {"wsm-metas://1", -6, kMsgScheme},
      {"://1", -6, kMsgScheme},
      {"wsm-meta://10:lib", -4, kMsgSeparator},
      {"wsm-data://1/p/f", -4, kMsgSeparator},
      {"wsm-data://1/p:2/f/v/", -4, kMsgSeparator},
      {"wsm-meta://1/l:2:3/m:4/o/x", -4, kMsgSeparator},
      {long_field.c_str(), -5, kMsgTooLong},
      {"wsm-meta://x/", -7, kMsgNumber},
      {"wsm-meta://1/l:2x", -7, kMsgNumber},
      {"wsm-meta://1/l:99999999999", -7, kMsgNumber},
      {"wsm-data://-1/p", -7, kMsgNumber},
  };
  WsmUri u;
  ASSERT_EQ(wsm_uri_set(&u, "wsm-data://10/myprog:1/log/ring"), 0);
  const WsmUri before = u;
  for (const Case& c : cases) {
    terror_clear(nullptr);
    EXPECT_EQ(wsm_uri_set(&u, c.text), c.code) << (c.text ? c.text : "(null)");
    EXPECT_EQ(top_message(), c.message) << (c.text ? c.text : "(null)");
    EXPECT_EQ(memcmp(&u, &before, sizeof(u)), 0);
  }
  EXPECT_EQ(wsm_uri_set(nullptr, "wsm-meta://"), -1);
}

TEST(WsmUri, SyncCompareAndNull) {
  WsmVixMetaInfo meta{};
  meta.iBid = -1;
  strcpy(meta.szLib, "lib");
  meta.iLibVer = -7;
  meta.iLibBuildVer = 2;
  WsmUri u;
  ASSERT_EQ(wsm_uri_set_meta(&u, &meta), 0);
  EXPECT_EQ(u.iSync, 1);
  EXPECT_STREQ(wsm_uri_get(&u), "wsm-meta://*/lib:*:2/:0/");
  WsmVixDataInfo data{};
  data.iBid = 5;
  strcpy(data.szProgName, "p");
  strcpy(data.szValuePath, "not/in/the/text");
  WsmUri d;
  ASSERT_EQ(wsm_uri_set_data(&d, &data), 0);
  ASSERT_EQ(wsm_uri_sync(&d), 0);
  EXPECT_STREQ(d.szUri, "wsm-data://5/p://");
  d.iType = 7;
  terror_clear(nullptr);
  EXPECT_EQ(wsm_uri_sync(&d), -2);
  EXPECT_EQ(top_message(), kMsgUriType7);
  // Comparing: same kind and rebuilt text; null and empty URIs sort first.
  WsmUri a, b;
  ASSERT_EQ(wsm_uri_set(&a, "wsm-data://1/p:2/f/v"), 0);
  ASSERT_EQ(wsm_uri_set(&b, "WSM-DATA://1/p:2/f/v"), 0);
  EXPECT_EQ(wsm_uri_compare(&a, &b), 0);
  ASSERT_EQ(wsm_uri_set(&b, "wsm-data://1/p:3/f/v"), 0);
  EXPECT_LT(wsm_uri_compare(&a, &b), 0);
  EXPECT_GT(wsm_uri_compare(&b, &a), 0);
  WsmUri none{};
  EXPECT_EQ(wsm_uri_is_null(&none), 1);
  EXPECT_EQ(wsm_uri_is_null(nullptr), 1);
  EXPECT_EQ(wsm_uri_is_null(&a), 0);
  EXPECT_LT(wsm_uri_compare(&none, &a), 0);
  EXPECT_EQ(wsm_uri_compare(nullptr, &none), 0);
}

TEST(WsmUri, KeyColumns) {
  struct Case {
    const char* text;
    const char* states;  // wsm_hash_type for k = 0 to 7
  } cases[] = {
      {"wsm-meta://10/mylib:3:11/LogRecord:*/", "VVVVVXXX"},
      {"wsm-meta://10/mylib:*:11/LogRecord:2/", "*VV*VXXX"},
      {"wsm-meta://*/*lib:3:11/", "***VVXXX"},
      {"wsm-data://10/myprog:1/log/ring", "VVVVVVXX"},
      {"wsm-data://10/myprog:1/log/", "*VVVV*XX"},
  };
  for (const Case& c : cases) {
    WsmUri u;
    ASSERT_EQ(wsm_uri_set(&u, c.text), 0);
    std::string states;
    for (int k = 0; k < 8; ++k) states += wsm_hash_type(&u, k);
    EXPECT_EQ(states, c.states) << c.text;
    for (int k = 0; k < 8; ++k) {
      EXPECT_EQ(wsm_hash_ptr(&u, k) != nullptr, c.states[k] == 'V') << c.text << " " << k;
      EXPECT_EQ(wsm_hash_size(&u, k) >= 0, c.states[k] == 'V') << c.text << " " << k;
    }
  }
  WsmUri d;
  ASSERT_EQ(wsm_uri_set(&d, "wsm-data://10/myprog:1/log/ring"), 0);
  EXPECT_EQ(wsm_hash_size(&d, 0), static_cast<int>(strlen(d.szUri)));
  EXPECT_EQ(wsm_hash_size(&d, 1), 4);
  EXPECT_EQ(wsm_hash_size(&d, 2), 6);
  EXPECT_EQ(*static_cast<const int32_t*>(wsm_hash_ptr(&d, 1)), 10);
  EXPECT_EQ(memcmp(wsm_hash_ptr(&d, 5), "ring", 4), 0);
  WsmUri e;
  ASSERT_EQ(wsm_uri_set(&e, "wsm-data://10/myprog:2/log/ring"), 0);
  EXPECT_EQ(wsm_hash_cmp(&d, &e, 2), 0);
  EXPECT_EQ(wsm_hash_cmp(&d, &e, 3), 1);
  EXPECT_EQ(wsm_hash_cmp(&d, &e, 0), 1);
  EXPECT_EQ(wsm_hash_cmp(&d, &e, 6), 1);
  EXPECT_EQ(wsm_hash_type(nullptr, 0), 'X');
}

TEST(WsmUri, UsableFromC) { EXPECT_EQ(wmng_c_api_check(), 0); }

}  // namespace
