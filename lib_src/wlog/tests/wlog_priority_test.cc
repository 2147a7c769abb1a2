// Priority names, filters, the hex helper and the binary record head.
#include <errno.h>
#include <string.h>

#include <gtest/gtest.h>

#include "wlog/wlog.h"

TEST(WlogPriority, NamesByHundreds) {
  EXPECT_STREQ("FATAL", wlog_priority_to_string(0));
  EXPECT_STREQ("ERROR", wlog_priority_to_string(300));
  EXPECT_STREQ("TRACE", wlog_priority_to_string(800));
  EXPECT_STREQ("UNKNOWN", wlog_priority_to_string(1000));
  // Division truncates toward zero: -1..-99 fall in the FATAL slot, 150 in ALERT.
  EXPECT_STREQ("FATAL", wlog_priority_to_string(-1));
  EXPECT_STREQ("ALERT", wlog_priority_to_string(150));
  EXPECT_STREQ("UNKNOWN", wlog_priority_to_string(-100));
  EXPECT_STREQ("UNKNOWN", wlog_priority_to_string(1100));
}

TEST(WlogPriority, ParsesCaseInsensitivePrefix) {
  EXPECT_EQ(300, wlog_priority_to_int("error"));
  EXPECT_EQ(300, wlog_priority_to_int("errors"));
  EXPECT_EQ(600, wlog_priority_to_int("information"));
  EXPECT_EQ(500, wlog_priority_to_int("Notice"));
  EXPECT_EQ(900, wlog_priority_to_int("NOTSET"));
  EXPECT_EQ(1000, wlog_priority_to_int(""));
  EXPECT_EQ(1000, wlog_priority_to_int("err"));
  EXPECT_EQ(1000, wlog_priority_to_int(nullptr));
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

TEST(WlogFilter, RangeAndModulus) {
  INTFILTER f = {};
  EXPECT_TRUE(wlogfilter_match_int(&f, 12345));  // all zero passes everything
  f.dwStart = 1000;
  f.dwCount = 1000;
  EXPECT_FALSE(wlogfilter_match_int(&f, 999));
  EXPECT_TRUE(wlogfilter_match_int(&f, 1000));
  EXPECT_TRUE(wlogfilter_match_int(&f, 1999));
  EXPECT_FALSE(wlogfilter_match_int(&f, 2000));
  f.nMod = 10;
  f.nModStart = 3;
  f.nModCount = 2;
  EXPECT_TRUE(wlogfilter_match_int(&f, 1003));
  EXPECT_TRUE(wlogfilter_match_int(&f, 1004));
  EXPECT_FALSE(wlogfilter_match_int(&f, 1005));
  EXPECT_FALSE(wlogfilter_match_int(&f, 1002));
  f.nModCount = 0;  // the modulus part is off without a count
  EXPECT_TRUE(wlogfilter_match_int(&f, 1002));
}

TEST(WlogFilter, VectorNeedsBothPartsOfOneFilter) {
  WLOGFILTERVEC vec = {};
  EXPECT_TRUE(wlogfilter_match_vec(&vec, 1, 2));
  vec.iCount = -1;
  EXPECT_FALSE(wlogfilter_match_vec(&vec, 1, 2));
  vec.iCount = 2;
  vec.astFilters[0].stIDFilter = {10, 1, 0, 0, 0, 0};   // id 10
  vec.astFilters[0].stClsFilter = {5, 1, 0, 0, 0, 0};   // class 5
  vec.astFilters[1].stIDFilter = {20, 5, 0, 0, 0, 0};   // ids 20..24, any class
  EXPECT_TRUE(wlogfilter_match_vec(&vec, 10, 5));
  EXPECT_FALSE(wlogfilter_match_vec(&vec, 10, 6));
  EXPECT_TRUE(wlogfilter_match_vec(&vec, 24, 99));
  EXPECT_FALSE(wlogfilter_match_vec(&vec, 25, 5));
}

TEST(WlogBin, HeadRoundTripBigEndian) {
  WLOGBINHEAD h = {};
  h.chVer = WLOGBIN_VER;
  h.chMagic = WLOGBIN_MAGIC;
  h.chHeadLen = WLOGBIN_HEAD_LEN;
  h.iBodyLen = 5;
  h.stTime.iSec = 0x01020304;
  h.stTime.iUsec = 7;
  h.iSeq = 9;
  h.dwID = 0xA0B0C0D0u;
  h.dwCls = 3;
  h.iType = -2;
  h.iBodyVer = 4;
  char buf[41];
  memset(buf, '#', sizeof(buf));
  EXPECT_EQ(-1, wlogbin_hton_head(buf, 39, &h));
  ASSERT_EQ(40, wlogbin_hton_head(buf, sizeof(buf), &h));
  EXPECT_EQ('#', buf[40]);
  EXPECT_EQ(1, buf[0]);
  EXPECT_EQ('7', buf[1]);
  EXPECT_EQ(40, buf[3]);
  EXPECT_EQ(0, memcmp(buf + 8, "\x01\x02\x03\x04", 4));
  EXPECT_EQ(0, memcmp(buf + 20, "\xA0\xB0\xC0\xD0", 4));
  EXPECT_EQ(45, wlogbin_get_pkgsize(buf, 40));
  EXPECT_EQ(-1, wlogbin_get_pkgsize(buf, 39));

  WLOGBINHEAD back;
  int pkg = 0;
  ASSERT_EQ(40, wlogbin_get_head(&back, &pkg, buf, 40));
  EXPECT_EQ(45, pkg);
  EXPECT_EQ(0xA0B0C0D0u, back.dwID);
  EXPECT_EQ(-2, back.iType);
  EXPECT_EQ(0x01020304, back.stTime.iSec);
  EXPECT_EQ(-1, wlogbin_ntoh_head(&back, buf, 39));
}

TEST(WlogBin, MakePkgNeedsRoomForHeadAndBody) {
  WLOGBINHEAD h = {};
  char buf[64];
  errno = 0;
  EXPECT_EQ(-1, wlogbin_make_pkg(buf, 44, &h, "hello", 5));  // 5 + 39 >= 44
  EXPECT_EQ(ERANGE, errno);
  ASSERT_EQ(45, wlogbin_make_pkg(buf, 45, &h, "hello", 5));
  EXPECT_EQ(40, h.chHeadLen);
  EXPECT_EQ(5, h.iBodyLen);
  EXPECT_EQ(0, memcmp(buf + 40, "hello", 5));
  EXPECT_EQ(45, wlogbin_get_pkgsize(buf, 45));
}

TEST(WlogBin, FilterOnTimeIdAndClass) {
  WLOGBINFILTER f = {};
  WLOGBINHEAD h = {};
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
