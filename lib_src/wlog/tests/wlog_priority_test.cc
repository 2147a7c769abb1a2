// Priority names, filters, the hex helper and the binary record head.
#include <errno.h>
#include <limits.h>
#include <string.h>

#include <gtest/gtest.h>

#include "wlog/wlog.h"

TEST(WlogPriority, NamesAndParsing) {
  // Division truncates toward zero: -1..-99 fall in the FATAL slot, 150 in ALERT.
  const struct {
    int prio;
    const char* name;
  } names[] = {{0, "FATAL"},   {300, "ERROR"}, {800, "TRACE"},    {1000, "UNKNOWN"}, {-1, "FATAL"},
               {-99, "FATAL"}, {150, "ALERT"}, {-100, "UNKNOWN"}, {1100, "UNKNOWN"}};
  for (const auto& n : names) EXPECT_STREQ(n.name, wlog_priority_to_string(n.prio)) << n.prio;
  // Case-insensitive prefix match on the table, in value order.
  const struct {
    const char* name;
    int prio;
  } parsed[] = {{"error", 300},  {"errors", 300}, {"information", 600}, {"Notice", 500},
                {"NOTSET", 900}, {"", 1000},      {"err", 1000},        {nullptr, 1000}};
  for (const auto& p : parsed) EXPECT_EQ(p.prio, wlog_priority_to_int(p.name)) << p.prio;
}

TEST(WlogBin2Hex, UpperCaseAndRefusesWithoutRoomForTerminator) {
  const unsigned char in[] = {0x00, 0x1f, 0xa0, 0xff};
  char out[16];
  memset(out, '#', sizeof(out));
  size_t cap = 8;  // exactly twice the input: no room for the NUL
  EXPECT_EQ(nullptr, WlogBin2Hex(in, sizeof(in), out, &cap));
  EXPECT_EQ(8u, cap);
  cap = 9;
  ASSERT_EQ(out, WlogBin2Hex(in, sizeof(in), out, &cap));
  EXPECT_STREQ("001FA0FF", out);
  EXPECT_EQ(8u, cap);
  EXPECT_EQ('#', out[9]);  // nothing past the terminator
}

TEST(WlogFilter, RangeModulusAndVector) {
  INTFILTER f = {};
  EXPECT_TRUE(wlogfilter_match_int(&f, 12345));  // all zero passes everything
  f = {1000, 1000, 10, 0, 3, 2};                 // 1000..1999 and x mod 10 in 3..4
  const struct {
    unsigned x;
    bool pass;
  } cases[] = {{993, false}, {2003, false}, {1003, true},
               {1004, true}, {1005, false}, {1002, false}};
  for (const auto& c : cases) EXPECT_EQ(c.pass, wlogfilter_match_int(&f, c.x) != 0) << c.x;
  f.nModCount = 0;  // the modulus part is off without a count
  EXPECT_TRUE(wlogfilter_match_int(&f, 1002));

  WLOGFILTERVEC vec = {};
  EXPECT_TRUE(wlogfilter_match_vec(&vec, 1, 2));
  vec.iCount = -1;
  EXPECT_FALSE(wlogfilter_match_vec(&vec, 1, 2));
  vec.iCount = 2;
  vec.astFilters[0].stIDFilter = {10, 1, 0, 0, 0, 0};  // id 10 with class 5
  vec.astFilters[0].stClsFilter = {5, 1, 0, 0, 0, 0};
  vec.astFilters[1].stIDFilter = {20, 5, 0, 0, 0, 0};  // ids 20..24, any class
  EXPECT_TRUE(wlogfilter_match_vec(&vec, 10, 5));
  EXPECT_FALSE(wlogfilter_match_vec(&vec, 10, 6));
  EXPECT_TRUE(wlogfilter_match_vec(&vec, 24, 99));
  EXPECT_FALSE(wlogfilter_match_vec(&vec, 25, 5));
}

TEST(WlogBin, HeadRoundTripPackageAndFilter) {
  WLOGBINHEAD h = {};
  h.chVer = WLOGBIN_VER;
  h.chMagic = WLOGBIN_MAGIC;
  h.chHeadLen = WLOGBIN_HEAD_LEN;
  h.iBodyLen = 5;
  h.stTime.iSec = 0x01020304;
  h.iSeq = 9;
  h.dwID = 0xA0B0C0D0u;
  h.iType = -2;
  char buf[41];
  memset(buf, '#', sizeof(buf));
  EXPECT_EQ(-1, wlogbin_hton_head(buf, 39, &h));
  ASSERT_EQ(40, wlogbin_hton_head(buf, sizeof(buf), &h));
  EXPECT_EQ('#', buf[40]);
  EXPECT_EQ(0, memcmp(buf,
                      "\x01"
                      "7\x00\x28\x00\x00\x00\x05\x01\x02\x03\x04",
                      12));
  EXPECT_EQ(0, memcmp(buf + 20, "\xA0\xB0\xC0\xD0", 4));
  EXPECT_EQ(45, wlogbin_get_pkgsize(buf, 40));
  EXPECT_EQ(-1, wlogbin_get_pkgsize(buf, 39));
  WLOGBINHEAD back;
  int pkg = 0;
  ASSERT_EQ(40, wlogbin_get_head(&back, &pkg, buf, 40));
  EXPECT_EQ(45, pkg);
  EXPECT_EQ(0xA0B0C0D0u, back.dwID);
  EXPECT_EQ(-2, back.iType);
  EXPECT_EQ(-1, wlogbin_ntoh_head(&back, buf, 39));

  char out[64];
  errno = 0;
  EXPECT_EQ(-1, wlogbin_make_pkg(out, 44, &h, "hello", 5));  // 5 + 39 >= 44
  EXPECT_EQ(ERANGE, errno);
  h.chHeadLen = 0;
  ASSERT_EQ(45, wlogbin_make_pkg(out, 45, &h, "hello", 5));
  EXPECT_EQ(40, h.chHeadLen);
  EXPECT_EQ(0, memcmp(out + 40, "hello", 5));

  WLOGBINFILTER f = {};
  h.stTime.iSec = 100;
  h.dwID = 7;
  EXPECT_EQ(0, wlogbin_filter(&f, &h));
  f.iStartTime = 100;
  f.iLastSec = 10;
  EXPECT_EQ(0, wlogbin_filter(&f, &h));
  h.stTime.iSec = 110;
  EXPECT_EQ(-1, wlogbin_filter(&f, &h));
  h.stTime.iSec = 105;
  f.stID = {8, 2, 0, 0, 0, 0};
  EXPECT_EQ(-1, wlogbin_filter(&f, &h));
  h.dwID = 9;
  EXPECT_EQ(0, wlogbin_filter(&f, &h));
}

TEST(WlogErrorString, EveryCodeAndTheEdges) {
  const struct {
    int code;
    const char* text;
  } cases[] = {
      {0, "none"},
      {-1, "bad argument or failure"},
      {WLOG_ERRCODE(WLOG_ERROR_NONE), "none"},
      {static_cast<int>(0x83020401u), "file open failed"},
      {WLOG_ERRCODE(WLOG_ERROR_NET_CONN), "network connect failed"},
      {WLOG_ERRCODE(WLOG_ERROR_LOOP), "forward loop"},
      {WLOG_ERRCODE(4), "unknown wlog error"},
      {WLOG_ERRCODE(0) - 1, "unknown wlog error"},
      {1, "unknown wlog error"},
      {-2, "unknown wlog error"},
      {INT_MIN, "unknown wlog error"},
  };
  for (const auto& c : cases) EXPECT_STREQ(c.text, wlog_error_string(c.code)) << c.code;
}

TEST(WlogBin, PacketSizeOfHostileBytesNeverOverflows) {
  const struct {
    uint32_t body;
    int pkg;
  } cases[] = {{5, 45},
               {0x7fffffffu - 40, 0x7fffffff},
               {0x7fffffffu - 39, -1},
               {0x7fffffffu, -1},
               {0xffffffffu, -1}};
  for (const auto& c : cases) {
    char buf[40] = {1, '7', 0, 40};
    for (int i = 0; i < 4; ++i) buf[4 + i] = static_cast<char>(c.body >> (24 - 8 * i));
    EXPECT_EQ(c.pkg, wlogbin_get_pkgsize(buf, sizeof(buf))) << c.body;
    WLOGBINHEAD head;
    int pkg = 0;
    EXPECT_EQ(c.pkg < 0 ? -1 : 40, wlogbin_get_head(&head, &pkg, buf, sizeof(buf))) << c.body;
    EXPECT_EQ(c.pkg, pkg) << c.body;
  }
}
