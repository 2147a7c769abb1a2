// Registration of slots under their URI keys and the look-ups over them.
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "wmng/wsm.h"
#include "wmng_test_util.h"

namespace {

using namespace wmng_test;

class WsmHash : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(wsm_index_mount(&index_), 0); }
  void TearDown() override {
    if (index_ != nullptr) {
      EXPECT_EQ(wsm_index_unmount(&index_), 0);
    }
  }

  WsmUri uri(const char* text) {
    WsmUri u;
    EXPECT_EQ(wsm_uri_set(&u, text), 0) << text;
    return u;
  }

  // Takes a slot of the URI's kind and registers it; returns its row.
  int add(const char* text) {
    const WsmUri u = uri(text);
    int row = -1;
    EXPECT_EQ(wsm_head_obj_alloc(index_, u.iType, &row), 0);
    EXPECT_EQ(wsm_hash_set(index_, row, &u), 0) << text;
    return row;
  }

  // Rows found, sorted, as digits ("" for none, "!<code>" for a failure).
  std::string rows(int (*get)(WsmIndex*, const WsmUri*, int*, int), const char* text) {
    const WsmUri u = uri(text);
    int found[8];
    const int n = get(index_, &u, found, 8);
    if (n < 0) return "!" + std::to_string(n);
    std::sort(found, found + std::min(n, 8));
    std::string out;
    for (int i = 0; i < n && i < 8; ++i) out += std::to_string(found[i]);
    return out;
  }

  // The link of a hash node, read from the segment.
  OffsetList node_link(int node) {
    OffsetList l;
    memcpy(&l, reinterpret_cast<char*>(index_) + wsm_get_base()->iOffsetHash + 16 * node,
           sizeof(l));
    return l;
  }

  RegistryGuard guard_{4, 6};
  WsmIndex* index_ = nullptr;
};

TEST_F(WsmHash, DataLookUps) {
  ASSERT_EQ(add("wsm-data://10/prog:1/log/ring"), 0);
  ASSERT_EQ(add("wsm-data://10/prog:2/log/ring"), 1);
  ASSERT_EQ(add("wsm-data://11/other:1/x/y"), 2);
  struct Case {
    const char* query;
    const char* exact;    // wsm_hash_get
    const char* partial;  // wsm_hash_get_data
  } cases[] = {
      {"wsm-data://10/prog:1/log/ring", "0", "0"},
      {"WSM-DATA://10/prog:2/log/ring", "1", "1"},
      {"wsm-data://10/prog:*/log/ring", "", "01"},
      {"wsm-data://*/*:1/*/*", "", "02"},
      {"wsm-data://", "", "012"},
      {"wsm-data://11", "", "2"},
      {"wsm-data://12", "", ""},
      {"wsm-data://10/prog:1/log/other", "", ""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(rows(wsm_hash_get, c.query), c.exact) << c.query;
    EXPECT_EQ(rows(wsm_hash_get_data, c.query), c.partial) << c.query;
  }
  EXPECT_EQ(rows(wsm_hash_get_0, "wsm-data://10/prog:1/log/ring"), "0");
  terror_clear(nullptr);
  EXPECT_EQ(rows(wsm_hash_get_0, "wsm-data://10/prog:*/log/ring"), "!-3");
  EXPECT_EQ(top_message(), kMsgUriPartial);
  EXPECT_EQ(rows(wsm_hash_get_meta, "wsm-data://10"), "!-2");
  // The count goes past the caller's limit; nothing is written past it.
  const WsmUri all = uri("wsm-data://");
  int found[2] = {-1, -1};
  EXPECT_EQ(wsm_hash_get_data(index_, &all, found, 1), 3);
  EXPECT_EQ(found[1], -1);
  // Exactly one.
  struct Only {
    const char* query;
    int code, row;
    const char* message;
  } only[] = {{"wsm-data://11", 0, 2, ""},
              {"wsm-data://10", -4, -1, kMsgManyMatch},
              {"wsm-data://12", -3, -1, kMsgNoMatch}};
  for (const Only& c : only) {
    const WsmUri u = uri(c.query);
    int row = -1;
    terror_clear(nullptr);
    EXPECT_EQ(wsm_hash_get_only(index_, &u, &row), c.code) << c.query;
    EXPECT_EQ(row, c.row) << c.query;
    EXPECT_EQ(top_message(), c.message) << c.query;
  }
}

TEST_F(WsmHash, MetaWithAWildcardVersionIsFoundOnlyByPartialKeys) {
  const int full = add("wsm-meta://10/mylib:3:11/LogRecord:*/");
  const int any = add("wsm-meta://10/mylib:*:11/LogRecord:*/");
  add("wsm-meta://11/other:3:5/");  // version 3 is no more selective than bid 10
  // Column 0 of the full one is linked; the wildcard one has no column-0 key.
  const OffsetList full0 = node_link(full * 8);
  const OffsetList any0 = node_link(any * 8);
  const uint64_t any0_off = wsm_get_base()->iOffsetHash + 16 * (any * 8);
  EXPECT_NE(full0.next, wsm_get_base()->iOffsetHash + 16 * (full * 8));
  EXPECT_EQ(any0.next, any0_off);
  EXPECT_EQ(any0.prev, any0_off);
  EXPECT_EQ(rows(wsm_hash_get_0, "wsm-meta://10/mylib:3:11/LogRecord:*/"), std::to_string(full));
  EXPECT_EQ(rows(wsm_hash_get_0, "wsm-meta://10/mylib:*:11/LogRecord:*/"), "!-3");
  EXPECT_EQ(rows(wsm_hash_get, "wsm-meta://10/mylib:*:11/LogRecord:*/"), std::to_string(any));
  EXPECT_EQ(rows(wsm_hash_get_meta, "wsm-meta://10/mylib:*:*/"), "01");
  EXPECT_EQ(rows(wsm_hash_get_meta, "wsm-meta://10/mylib:3:*/"), std::to_string(full));
  EXPECT_EQ(rows(wsm_hash_get_meta, "wsm-meta://*/mylib:*:11/"), "01");
  EXPECT_EQ(rows(wsm_hash_get_meta, "wsm-meta://10/other"), "");
  EXPECT_EQ(rows(wsm_hash_get_data, "wsm-meta://10"), "!-2");
}

TEST_F(WsmHash, RegisteringTwiceAndRemoving) {
  const int row = add("wsm-data://10/prog:1/log/ring");
  const WsmUri same = uri("wsm-data://10/prog:1/log/ring");
  const WsmUri other = uri("wsm-data://10/prog:1/log/other");
  terror_clear(nullptr);
  EXPECT_EQ(wsm_hash_set(index_, row, &same), -4);
  EXPECT_EQ(top_message(), kMsgAddTwice);
  EXPECT_EQ(wsm_hash_set_data(index_, row, &other), -4);
  // Nothing changed: the slot keeps its description and its keys.
  EXPECT_STREQ(wsm_head_data(index_, row)->stData.szValueName, "ring");
  EXPECT_EQ(rows(wsm_hash_get, "wsm-data://10/prog:1/log/ring"), "0");
  EXPECT_EQ(rows(wsm_hash_get_data, "wsm-data://10/prog:1/log/other"), "");
  EXPECT_EQ(rows(wsm_hash_get_data, "wsm-data://10/prog:1"), "0");
  // A failure after some keys were linked unlinks them again: here column 0, free on a slot
  // registered with a wildcard value.
  const int partial = add("wsm-data://10/prog:1/log/*");
  const uint64_t column0 = wsm_get_base()->iOffsetHash + 16 * (4 * 8 + partial * 8);
  EXPECT_EQ(wsm_hash_set(index_, partial, &other), -4);
  EXPECT_EQ(node_link(4 * 8 + partial * 8).next, column0);
  EXPECT_EQ(wsm_head_obj_free(index_, WSM_URI_TYPE_DATA, partial), 0);
  // Bad arguments.
  EXPECT_EQ(wsm_hash_set(index_, 6, &same), -3);
  const WsmUri meta = uri("wsm-meta://1/l:1:1/");
  EXPECT_EQ(wsm_hash_set_data(index_, 0, &meta), -2);
  EXPECT_EQ(wsm_hash_del(index_, 3, 0), -2);
  EXPECT_EQ(wsm_hash_del_data(index_, 6), -3);
  // Removing the keys, and freeing a slot, leave nothing to find.
  EXPECT_EQ(wsm_hash_del_data(index_, row), 0);
  EXPECT_EQ(rows(wsm_hash_get_data, "wsm-data://10"), "");
  EXPECT_EQ(wsm_hash_set(index_, row, &other), 0);
  EXPECT_EQ(rows(wsm_hash_get, "wsm-data://10/prog:1/log/other"), "0");
  EXPECT_EQ(wsm_head_obj_free(index_, WSM_URI_TYPE_DATA, row), 0);
  EXPECT_EQ(rows(wsm_hash_get_data, "wsm-data://"), "");
  EXPECT_EQ(rows(wsm_hash_get_data, "wsm-data://10"), "");
}

TEST_F(WsmHash, ExactLookUpsTellApartUrisOfOneBucket) {
  // Each pair hashes to the same one of this registry's 193 buckets.
  const char* pairs[][2] = {
      {"wsm-data://10/prog:1/log/v15", "wsm-data://10/prog:1/log/v20"},
      {"wsm-meta://1/lib:1:1/m:1/o15", "wsm-meta://1/lib:1:1/m:1/o20"},
  };
  for (const auto& pair : pairs) {
    ASSERT_EQ(toffset_hash_code(pair[0], 0) % 193, toffset_hash_code(pair[1], 0) % 193);
    const int a = add(pair[0]);
    const int b = add(pair[1]);
    EXPECT_EQ(rows(wsm_hash_get_0, pair[0]), std::to_string(a)) << pair[0];
    EXPECT_EQ(rows(wsm_hash_get_0, pair[1]), std::to_string(b)) << pair[1];
  }
}

TEST_F(WsmHash, DamagedChainIsAnErrorNotACrash) {
  const int row = add("wsm-data://10/prog:1/log/ring");
  const uint64_t link = wsm_get_base()->iOffsetHash + 16 * (4 * 8 + row * 8);  // column 0
  uint64_t garbage = 0xdeadbeefULL;
  memcpy(reinterpret_cast<char*>(index_) + link + 8, &garbage, 8);  // its next
  EXPECT_EQ(rows(wsm_hash_get_0, "wsm-data://10/prog:1/log/ring"), "!-4");
  EXPECT_EQ(wsm_hash_del_data(index_, row), -4);
  garbage = link;  // self-linked again: the slot is simply unregistered
  memcpy(reinterpret_cast<char*>(index_) + link + 8, &garbage, 8);
  memcpy(reinterpret_cast<char*>(index_) + link, &garbage, 8);
  EXPECT_EQ(wsm_hash_del_data(index_, row), 0);
  EXPECT_EQ(wsm_head_obj_free(index_, WSM_URI_TYPE_DATA, row), 0);
}

}  // namespace
