// Base types, date and time text, IPv4, MD5, hashing, string helpers, wide strings, error
// strings and the error detail.
#include <gtest/gtest.h>
#include <iconv.h>
#include <stdlib.h>

#include <string>
#include <thread>
#include <vector>

#include "vix/vix_types.h"
#include "vix_internal.h"

namespace {

struct TypeRow {
  const char* pszName;
  const char* pszCName;
  const char* pszSQL;
  const char* pszS;
  const char* pszM;
  int iType, iSize;
  unsigned uFlags;
};

const TypeRow kTypes[VIX_TYPE_TABLE_ROWS] = {
    {"union", "union", "", "st", "ast", 0, 0, 0},
    {"struct", "struct", "", "st", "ast", 1, 0, 0},
    {"tinyint", "int8_t", "TINYINT", "ch", "sz", 2, 1, 0},
    {"tinyuint", "uint8_t", "TINYINT UNSIGNED", "b", "sz", 3, 1, 0},
    {"smallint", "int16_t", "SMALLINT", "n", "", 5, 2, 1},
    {"smalluint", "uint16_t", "SMALLINT UNSIGNED", "w", "", 6, 2, 1},
    {"int", "int32_t", "INT", "i", "", 7, 4, 1},
    {"uint", "uint32_t", "INT UNSIGNED", "dw", "", 8, 4, 1},
    {"bigint", "int64_t", "BIGINT", "ll", "", 11, 8, 1},
    {"biguint", "uint64_t", "BIGINT UNSIGNED", "ull", "", 12, 8, 1},
    {"int8", "int8_t", "TINYINT", "ch", "sz", 2, 1, 0},
    {"uint8", "uint8_t", "TINYINT UNSIGNED", "b", "sz", 3, 1, 0},
    {"int16", "int16_t", "SMALLINT", "n", "", 5, 2, 1},
    {"uint16", "uint16_t", "SMALLINT UNSIGNED", "w", "", 6, 2, 1},
    {"int32", "int32_t", "INT", "i", "", 7, 4, 1},
    {"uint32", "uint32_t", "INT UNSIGNED", "dw", "", 8, 4, 1},
    {"int64", "int64_t", "BIGINT", "ll", "", 11, 8, 1},
    {"uint64", "uint64_t", "BIGINT UNSIGNED", "ull", "", 12, 8, 1},
    {"float", "float", "FLOAT", "f", "", 17, 4, 1},
    {"double", "double", "DOUBLE", "d", "", 18, 8, 1},
    {"decimal", "float", "FLOAT", "f", "", 17, 4, 1},
    {"date", "vix_date_t", "DATE", "t", "", 13, 4, 1},
    {"time", "vix_time_t", "TIME", "t", "", 14, 4, 1},
    {"datetime", "vix_datetime_t", "DATETIME", "t", "", 15, 8, 1},
    {"string", "char", "VARCHAR", "sz", "asz", 21, 1, 0},
    {"byte", "uint8_t", "TINYINT UNSIGNED", "b", "sz", 3, 1, 0},
    {"ip", "vix_ip_t", "INT UNSIGNED", "ul", "", 19, 4, 1},
    {"wchar", "vix_wchar_t", "SMALLINT UNSIGNED", "w", "", 20, 2, 1},
    {"wstring", "vix_wchar_t", "VARCHAR", "sz", "asz", 22, 2, 0},
    {"void", "void", "VOID", "", "", 23, 1, 0},
    {"char", "char", "TINYINT", "ch", "sz", 2, 1, 0},
    {"uchar", "unsigned char", "TINYINT UNSIGNED", "b", "sz", 3, 1, 0},
    {"short", "int16_t", "SMALLINT", "n", "", 5, 2, 1},
    {"ushort", "uint16_t", "SMALLINT UNSIGNED", "w", "", 6, 2, 1},
    {"long", "int32_t", "INT", "l", "", 9, 4, 1},
    {"ulong", "uint32_t", "INT UNSIGNED", "ul", "", 10, 4, 1},
    {"longlong", "int64_t", "BIGINT", "ll", "", 11, 8, 1},
    {"ulonglong", "uint64_t", "BIGINT UNSIGNED", "ull", "", 12, 8, 1},
    {"money", "int32_t", "INT", "m", "", 16, 4, 1},
};

TEST(TypeTable, EveryRowAndLookup) {
  ASSERT_EQ(VIX_TYPE_TABLE_ROWS, vix_get_prefix_table_size());
  for (int i = 0; i < VIX_TYPE_TABLE_ROWS; ++i) {
    const TypeRow& r = kTypes[i];
    const VIXCTYPEINFO* t = vix_idx_to_typeinfo(i);
    ASSERT_NE(nullptr, t);
    EXPECT_STREQ(r.pszName, t->pszName) << i;
    EXPECT_STREQ(r.pszCName, t->pszCName) << i;
    EXPECT_STREQ(r.pszSQL, t->pszSQLName) << i;
    EXPECT_STREQ(r.pszS, vix_get_sprefix_by_index(i)) << i;
    EXPECT_STREQ(r.pszM, vix_get_mprefix_by_index(i)) << i;
    EXPECT_EQ(r.iType, t->iType) << i;
    EXPECT_EQ(r.iSize, t->iSize) << i;
    EXPECT_EQ(r.uFlags, t->uiFlags) << i;
    EXPECT_EQ(i, vix_typename_to_idx(r.pszName)) << i;
    EXPECT_STREQ(r.pszName, vix_get_typename_by_index(i));
  }
  EXPECT_EQ(6, vix_typename_to_idx("INT"));
  EXPECT_EQ(23, vix_typename_to_idx("DateTime"));
  EXPECT_EQ(-1, vix_typename_to_idx("integer"));
  EXPECT_EQ(-1, vix_typename_to_idx(nullptr));
  // Integers usable as counts: not byte-like types, dates or ip, nothing outside the table.
  for (const char* n : {"tinyint", "byte", "int", "ulonglong"})
    EXPECT_EQ(1, vix_type_is_integer(vix_typename_to_idx(n))) << n;
  for (const char* n : {"string", "date", "ip", "float"})
    EXPECT_EQ(0, vix_type_is_integer(vix_typename_to_idx(n))) << n;
  EXPECT_EQ(0, vix_type_is_integer(-1));
  EXPECT_EQ(nullptr, vix_idx_to_typeinfo(39));
  EXPECT_EQ(nullptr, vix_get_typename_by_index(-1));
}

TEST(TypeTable, PrefixSetters) {
  EXPECT_EQ(31, vix_get_prefix_max_len());
  const std::string s31(31, 'p');
  ASSERT_EQ(0, vix_set_sprefix_by_name("UINT", s31.c_str()));
  EXPECT_EQ(s31, vix_get_sprefix_by_index(7));
  EXPECT_EQ(VIX_ERROR_PREFIX_TOO_LONG, vix_set_mprefix_by_name("uint", (s31 + "q").c_str()));
  EXPECT_EQ(VIX_ERROR_INVALID_PARAM, vix_set_sprefix_by_name("nosuch", "x"));
  ASSERT_EQ(0, vix_set_sprefix_by_name("uint", "dw"));
  ASSERT_EQ(0, vix_set_mprefix_by_name("string", "asz2"));
  EXPECT_STREQ("asz2", vix_get_mprefix_by_index(24));
  ASSERT_EQ(0, vix_set_mprefix_by_name("string", "asz"));
}

TEST(DateTime, DateAndTimeTextAndValidity) {
  struct {
    bool bDate;
    const char* pszText;
    int iRet;
    const char* pszBack;  // text form after a successful read
  } const kCases[] = {
      {true, "2000-02-29", 0, "2000-02-29"},
      {true, "1900-02-29", VIX_ERROR_BAD_DATE, nullptr},
      {true, "2100-02-29", VIX_ERROR_BAD_DATE, nullptr},
      {true, "2400-02-29", 0, "2400-02-29"},
      {true, "2023-02-28", 0, "2023-02-28"},
      {true, "2023-04-31", VIX_ERROR_BAD_DATE, nullptr},
      {true, "2023-05-31", 0, "2023-05-31"},
      {true, "2000-00-00", 0, "2000-00-00"},
      {true, "2000-13-01", VIX_ERROR_BAD_DATE, nullptr},
      {true, "2000-01-32", VIX_ERROR_BAD_DATE, nullptr},
      {true, "999-1-5", 0, " 999-01-05"},
      {true, "2000-01-01x", VIX_ERROR_BAD_DATE, nullptr},
      {true, "", VIX_ERROR_BAD_DATE, nullptr},
      {false, "999:59:59", 0, "999:59:59"},
      {false, "1000:00:00", VIX_ERROR_BAD_TIME, nullptr},
      {false, "-999:00:01", 0, "-999:00:01"},
      {false, "12:30:05", 0, " 12:30:05"},
      {false, "12:60:00", VIX_ERROR_BAD_TIME, nullptr},
      {false, "12:00:60", VIX_ERROR_BAD_TIME, nullptr},
      {false, "12:00", VIX_ERROR_BAD_TIME, nullptr},
  };
  for (const auto& c : kCases) {
    VIXDATE stDate = {1, 1, 1};
    VIXTIME stTime = {1, 1, 1};
    EXPECT_EQ(c.iRet, c.bDate ? vix_str_to_vixdate(&stDate, c.pszText)
                              : vix_str_to_vixtime(&stTime, c.pszText))
        << c.pszText;
    if (c.iRet == 0) {
      EXPECT_STREQ(c.pszBack, c.bDate ? vix_vixdate_to_str(&stDate) : vix_vixtime_to_str(&stTime))
          << c.pszText;
    } else {
      EXPECT_EQ(1, stDate.nYear) << "changed on failure: " << c.pszText;
    }
  }
  EXPECT_EQ(VIX_ERROR_INVALID_PARAM, vix_str_to_vixdate(nullptr, "2000-01-01"));
}

TEST(DateTime, DateTimeSecondsAndCompare) {
  setenv("TZ", "UTC", 1);
  tzset();
  VIXDATETIME a, b;
  ASSERT_EQ(0, vix_str_to_vixdatetime(&a, "2024-02-29 23:59:58"));
  char szBuff[VIX_DATETIME_STR_LEN];
  EXPECT_STREQ("2024-02-29 23:59:58", vix_vixdatetime_to_str_r(&a, szBuff, sizeof(szBuff)));
  EXPECT_EQ(nullptr, vix_vixdatetime_to_str_r(&a, szBuff, 19));
  time_t t = 0;
  ASSERT_EQ(0, vix_vixdatetime_to_utctime(&t, &a));
  EXPECT_EQ(1709251198, t);
  ASSERT_EQ(0, vix_utctime_to_vixdatetime(&b, t + 2));
  EXPECT_STREQ("2024-03-01 00:00:00", vix_vixdatetime_to_str(&b));
  EXPECT_EQ(-1, vix_compare_datetime(&a, &b));
  EXPECT_EQ(1, vix_compare_date(&b.stDate, &a.stDate));
  EXPECT_EQ(0, vix_compare_time(&a.stTime, &a.stTime));
  EXPECT_EQ(1, vix_compare_time(&a.stTime, &b.stTime));

  // Month 0 and day 0 pass the validity rule but have no seconds.
  ASSERT_EQ(0, vix_str_to_vixdatetime(&a, "2000-00-00 00:00:00"));
  EXPECT_EQ(VIX_ERROR_BAD_DATETIME, vix_vixdatetime_to_utctime(&t, &a));
  EXPECT_EQ(VIX_ERROR_BAD_DATETIME, vix_str_to_vixdatetime(&a, "2000-01-01 24:00:00"));
  EXPECT_EQ(VIX_ERROR_BAD_DATETIME, vix_str_to_vixdatetime(&a, "1900-02-29 00:00:00"));
}

TEST(DateTime, Strptime) {
  struct {
    const char* pszText;
    const char* pszFormat;
    int iYear, iMon, iDay, iHour, iMin, iSec;  // tm fields; -9 where not set
    size_t iRest;                              // characters left unread, or -1 for no match
  } const kCases[] = {
      {"2023-07-04 05:06:07", "%Y-%m-%d %H:%M:%S", 123, 6, 4, 5, 6, 7, 0},
      {"04/07/99", "%D", 99, 3, 7, -9, -9, -9, 0},
      {"Jul 4 2023 tail", "%b %e %Y", 123, 6, 4, -9, -9, -9, 5},
      {"march 1, 05", "%B %d, %y", 105, 2, 1, -9, -9, -9, 0},
      {"11:30 PM", "%I:%M %p", -9, -9, -9, 23, 30, -9, 0},
      {"12:00 am", "%I:%M %p", -9, -9, -9, 0, 0, -9, 0},
      {"23:59:60", "%T", -9, -9, -9, 23, 59, 60, 0},
      {"100%", "%j%%", -9, -9, -9, -9, -9, -9, 0},
      {"24:00:00", "%T", 0, 0, 0, 0, 0, 0, size_t(-1)},
      {"2023-13-01", "%F", 0, 0, 0, 0, 0, 0, size_t(-1)},
      {"Mon", "%q", 0, 0, 0, 0, 0, 0, size_t(-1)},
  };
  for (const auto& c : kCases) {
    struct tm tm;
    memset(&tm, 0xff, sizeof(tm));  // -1 in every field that is not written
    const char* pszEnd = vix_strptime(c.pszText, c.pszFormat, &tm);
    if (c.iRest == size_t(-1)) {
      EXPECT_EQ(nullptr, pszEnd) << c.pszText;
      continue;
    }
    ASSERT_NE(nullptr, pszEnd) << c.pszText;
    EXPECT_EQ(c.iRest, strlen(pszEnd)) << c.pszText;
    const int aiWant[] = {c.iYear, c.iMon, c.iDay, c.iHour, c.iMin, c.iSec};
    const int aiGot[] = {tm.tm_year, tm.tm_mon, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(aiWant[i] == -9 ? -1 : aiWant[i], aiGot[i]) << c.pszText;
  }
}

TEST(Ip, Conversions) {
  VIXIP ip = 0;
  ASSERT_EQ(0, vix_ineta_to_vixip(&ip, "192.168.1.20"));
  const unsigned char* pb = reinterpret_cast<const unsigned char*>(&ip);
  EXPECT_EQ(192, pb[0]);  // network byte order in memory
  EXPECT_EQ(20, pb[3]);
  EXPECT_STREQ("192.168.1.20", vix_vixip_to_ineta(ip));
  char szBuff[VIX_IP_STR_LEN];
  EXPECT_STREQ("192.168.1.20", vix_vixip_ntop(ip, szBuff, sizeof(szBuff)));
  EXPECT_EQ(nullptr, vix_vixip_ntop(ip, szBuff, 8));
  EXPECT_EQ(ip, vix_vixip_to_inetaddr(ip).s_addr);
  EXPECT_EQ(VIX_ERROR_BAD_IP, vix_ineta_to_vixip(&ip, "300.1.1.1"));
  EXPECT_EQ(VIX_ERROR_BAD_IP, vix_ineta_to_vixip(&ip, "a.b.c.d"));
}

TEST(Md5, Rfc1321Suite) {
  struct {
    const char* pszInput;
    const char* pszDigest;
  } const kSuite[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"a", "0cc175b9c0f1b6a831c399e269772661"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
       "d174ab98d277d9f5a5611c2c9f419d9f"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
      // 55 and 56 bytes: the length still fits the last block, or needs a block of its own.
      {"1234567890123456789012345678901234567890123456789012345",
       "c9ccf168914a1bcfc3229f1948e67da0"},
      {"12345678901234567890123456789012345678901234567890123456",
       "49f193adce178490e34d1b3a4ec0064c"},
  };
  for (const auto& c : kSuite) {
    uint8_t abDigest[VIX_MD5_DIGEST_LEN];
    char szText[VIX_MD5_STR_LEN];
    vix_md5hash_buffer(abDigest, c.pszInput, strlen(c.pszInput));
    EXPECT_STREQ(c.pszDigest, vix_md5hash2str(abDigest, szText, sizeof(szText))) << c.pszInput;
    // The same digest fed in pieces of 1 to 70 bytes.
    for (size_t iStep = 1; iStep < 70; iStep += 23) {
      VIXMD5CTX stCtx;
      vix_md5_init(&stCtx);
      for (size_t i = 0; i < strlen(c.pszInput); i += iStep) {
        vix_md5_update(&stCtx, c.pszInput + i, std::min(iStep, strlen(c.pszInput) - i));
      }
      uint8_t abPieces[VIX_MD5_DIGEST_LEN];
      vix_md5_final(abPieces, &stCtx);
      EXPECT_EQ(0, memcmp(abDigest, abPieces, sizeof(abDigest))) << c.pszInput;
    }
    uint8_t abBack[VIX_MD5_DIGEST_LEN];
    ASSERT_EQ(0, vix_str2md5hash(c.pszDigest, abBack));
    EXPECT_EQ(0, memcmp(abDigest, abBack, sizeof(abBack)));
  }
  uint8_t abDigest[VIX_MD5_DIGEST_LEN];
  char szShort[32];
  EXPECT_EQ(nullptr, vix_md5hash2str(abDigest, szShort, sizeof(szShort)));
  EXPECT_EQ(0, vix_str2md5hash("D41D8CD98F00B204E9800998ECF8427E", abDigest));
  EXPECT_EQ(VIX_ERROR_BAD_DIGEST_TEXT,
            vix_str2md5hash("d41d8cd98f00b204e9800998ecf8427", abDigest));
  EXPECT_EQ(VIX_ERROR_BAD_DIGEST_TEXT,
            vix_str2md5hash("d41d8cd98f00b204e9800998ecf8427eX", abDigest));
  EXPECT_EQ(VIX_ERROR_BAD_DIGEST_TEXT,
            vix_str2md5hash("g41d8cd98f00b204e9800998ecf8427e", abDigest));
}

TEST(Strings, HashAndHelpers) {
  EXPECT_EQ(0u, vix_get_hash_code("abc", 0));
  EXPECT_EQ(97u, vix_get_hash_code("a", 1));
  EXPECT_EQ(97u * 33 + 98, vix_get_hash_code("ab", 2));
  EXPECT_EQ(((97u * 33 + 0xffu) * 33), vix_get_hash_code("a\xff\0", 3));

  char szBuff[16];
  memset(szBuff, 'x', sizeof(szBuff));
  EXPECT_EQ(szBuff + 3, vix_strnmov(szBuff, "abc", 8));
  EXPECT_STREQ("abc", szBuff);
  memset(szBuff, 'x', sizeof(szBuff));
  EXPECT_EQ(szBuff + 2, vix_strnmov(szBuff, "abc", 2));
  EXPECT_EQ('x', szBuff[2]);
  EXPECT_EQ(szBuff + 4, vix_strmov(szBuff, "wxyz"));
  EXPECT_STREQ("wxyz", szBuff);

  char szTrim[] = " \t a b \r\n";
  EXPECT_STREQ("a b", vix_trim_str(szTrim));
  char szBlank[] = "   ";
  EXPECT_STREQ("", vix_trim_str(szBlank));

  EXPECT_EQ(9, vix_normalize_string(szBuff, sizeof(szBuff), "  one \t two\n x "));
  EXPECT_STREQ("one two x", szBuff);
  EXPECT_EQ(-1, vix_normalize_string(szBuff, 5, "one two"));
  EXPECT_STREQ("", szBuff);
  EXPECT_EQ(0, vix_normalize_string(szBuff, 1, " "));
}

TEST(Strings, StableSort) {
  struct Item {
    int iKey;
    int iOrder;
  };
  std::vector<Item> v;
  for (int i = 0; i < 200; ++i) v.push_back(Item{(i * 37) % 11, i});
  ASSERT_EQ(0, vix_qsort(v.data(), v.size(), sizeof(Item), [](const void* a, const void* b) {
              return static_cast<const Item*>(a)->iKey - static_cast<const Item*>(b)->iKey;
            }));
  for (size_t i = 1; i < v.size(); ++i) {
    ASSERT_TRUE(v[i - 1].iKey < v[i].iKey ||
                (v[i - 1].iKey == v[i].iKey && v[i - 1].iOrder < v[i].iOrder))
        << i;
  }
  EXPECT_EQ(VIX_ERROR_INVALID_PARAM, vix_qsort(v.data(), 2, 0, nullptr));
  EXPECT_EQ(0, vix_qsort(nullptr, 0, 4, [](const void*, const void*) { return 0; }));
}

TEST(Strings, WideAndGbk) {
  const vix_wchar_t awText[] = {0x4E2D, 0x6587, 'A', 0};  // "中文A"
  char szMbs[16];
  size_t iMbs = sizeof(szMbs);
  ASSERT_EQ(0, vix_wcstochinesembs(szMbs, &iMbs, awText, 16));
  EXPECT_EQ(5u, iMbs);
  EXPECT_STREQ("\xd6\xd0\xce\xc4\x41", szMbs);
  vix_wchar_t awBack[8];
  size_t iWcs = 8;
  ASSERT_EQ(0, vix_chinesembstowcs(awBack, &iWcs, szMbs, sizeof(szMbs)));
  EXPECT_EQ(3u, iWcs);
  EXPECT_EQ(0, memcmp(awText, awBack, sizeof(awText)));

  iMbs = 5;  // no room for the terminator
  EXPECT_EQ(VIX_ERROR_OUT_BUF_TOO_SMALL, vix_wcstochinesembs(szMbs, &iMbs, awText, 16));
  iWcs = 3;
  EXPECT_EQ(VIX_ERROR_OUT_BUF_TOO_SMALL,
            vix_chinesembstowcs(awBack, &iWcs, "\xd6\xd0\xce\xc4\x41", 16));
  const vix_wchar_t awNoGbk[] = {0x263A, 0};  // no GBK form
  iMbs = sizeof(szMbs);
  EXPECT_EQ(VIX_ERROR_ENCODING_CONVERT, vix_wcstochinesembs(szMbs, &iMbs, awNoGbk, 2));

  // The encoding is settable (the hook of the text output).
  EXPECT_EQ(VIX_ERROR_ENCODING_CONVERT, vix_set_encoding_i("NO-SUCH-CODESET"));
  EXPECT_EQ(VIX_ERROR_INVALID_PARAM, vix_set_encoding_i(""));
  ASSERT_EQ(0, vix_set_encoding_i("UTF-8"));
  iMbs = sizeof(szMbs);
  ASSERT_EQ(0, vix_wcstochinesembs(szMbs, &iMbs, awNoGbk, 2));
  EXPECT_STREQ("\xe2\x98\xba", szMbs);
  ASSERT_EQ(0, vix_set_encoding_i("GBK"));
  EXPECT_STREQ("GBK", vix_get_encoding_i());
}

// GBK form of a UTF-8 text, converted independently of the runtime's table.
std::string gbk(const char* pszUtf8) {
  iconv_t cd = iconv_open("GBK", "UTF-8");
  std::string sOut(4 * strlen(pszUtf8) + 1, '\0');
  char* pIn = const_cast<char*>(pszUtf8);
  size_t iIn = strlen(pszUtf8);
  char* pOut = &sOut[0];
  size_t iOut = sOut.size();
  EXPECT_NE(static_cast<size_t>(-1), iconv(cd, &pIn, &iIn, &pOut, &iOut));
  iconv_close(cd);
  sOut.resize(sOut.size() - iOut);
  return sOut;
}

TEST(Errors, MessageTable) {
  struct {
    unsigned iCode;
    const char* pszUtf8;
  } const kListed[] = {
      {0x82010400, "没有错误"},
      {0x82010409, "分配存储空间失败"},
      {0x82010413, "元数据库参数不正确"},
      {0x82010414, "元数据库校验和不正确"},
      {0x8201041D, "该宏名没有定义"},
      {0x8201042E, "entry的datetime属性值不正确"},
      {0x8201042F, "entry的date属性值不正确"},
      {0x82010430, "entry的time属性值不正确"},
      {0x82010431, "entry的ip属性值不正确"},
      {0x82010445, "写文件失败"},
      {0x82010446, "打开文件写失败"},
      {0x82010447,
       "二进制元数据库文件无效,"
       "请确定生成元数据文件的VIX库函数构建版本和读取此文件的VIX库函数构建版本一致"},
      {0x82010448, "打开文件读失败"},
      {0x82010459, "生成元数据库文件的vix工具的核心数据构建版本和vix库的核心数据构构建版本不一致"},
      {0x8201045A, "元数据库的散列值和期望的散列值不一致"},
      {0x82010460, "成员取值已经超出此类型的值域范围"},
      {0x82010468, "参数无效，请检查每个参数是否满足接口的前置条件约束"},
      {0x8201046E,
       "生成元数据库文件的系统平台与生成vix库的系统平台不一致，请注意32位平台与64位平台的区别"},
      {0x82010478, "输入缓冲区的长度太小，未包括完整的metalib"},
  };
  for (const auto& c : kListed) {
    EXPECT_EQ(gbk(c.pszUtf8), vix_error_string(static_cast<int>(c.iCode))) << std::hex << c.iCode;
  }
  EXPECT_NE(std::string::npos,
            std::string(vix_error_string(VIX_ERROR_TOO_COMPLEX_META)).find("32"));
  EXPECT_EQ(gbk("没有错误"), vix_error_string(0));
  EXPECT_EQ(gbk("没有错误"), vix_error_string(5));
  EXPECT_EQ(gbk("未知错误"), vix_error_string(VIX_ERRCODE(139)));
  EXPECT_EQ(gbk("未知错误"), vix_error_string(static_cast<int>(0x820103FFu)));
  EXPECT_EQ(gbk("未知错误"), vix_error_string(-1));
  // One message per index, each valid GBK.
  for (int i = 1; i < VIX_ERROR_COUNT; ++i) {
    const char* pszMessage = vix_error_string(VIX_ERRCODE(i));
    EXPECT_NE(gbk("未知错误"), pszMessage) << i;
    EXPECT_GT(strlen(pszMessage), 0u) << i;
    EXPECT_NE(vix_error_string(VIX_ERRCODE(i - 1)), std::string(pszMessage)) << i;
  }
  EXPECT_EQ(static_cast<int>(0x82010468u), vix_error_code(0x68));
}

TEST(Errors, LastError) {
  vix_set_last_error(VIX_ERROR_CHECKSUM);
  EXPECT_EQ(VIX_ERROR_CHECKSUM, vix_get_last_error());
  std::thread([] { vix_set_last_error(VIX_ERROR_PLATFORM); }).join();
  EXPECT_EQ(VIX_ERROR_PLATFORM, vix_get_last_error());  // one integer for the process
  EXPECT_EQ(2048, vix_max_error_detail());
}

}  // namespace
