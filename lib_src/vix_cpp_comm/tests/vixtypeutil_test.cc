// Date, time, date-time and address conversions.
#include "vix_cpp_comm/VixTypeUtil.h"

#include <gtest/gtest.h>

#include <cstring>

#include "vix_cpp_comm/VixTime.h"

using kalmo_vix::VixDate;
using kalmo_vix::VixTime;
using kalmo_vix::VixTypeUtil;

TEST(VixDate, ValidityRule) {
  EXPECT_TRUE(VixDate::isValid(2024, 2, 29));
  EXPECT_FALSE(VixDate::isValid(2023, 2, 29));
  EXPECT_FALSE(VixDate::isValid(1900, 2, 29));
  EXPECT_TRUE(VixDate::isValid(2000, 2, 29));
  EXPECT_FALSE(VixDate::isValid(2000, 2, 30));
  EXPECT_FALSE(VixDate::isValid(2024, 4, 31));
  EXPECT_FALSE(VixDate::isValid(2024, 11, 31));
  EXPECT_TRUE(VixDate::isValid(2024, 12, 31));
  EXPECT_TRUE(VixDate::isValid(2024, 0, 0));  // no lower bounds, as designed
  EXPECT_FALSE(VixDate::isValid(2024, 13, 1));
  EXPECT_FALSE(VixDate::isValid(2024, 1, 32));
  EXPECT_TRUE(VixDate::isValid(-9999, 1, 1));
  EXPECT_FALSE(VixDate::isValid(10000, 1, 1));
}

TEST(VixDate, PackedLayout) {
  const VixDate d{2024, 2, 29};
  EXPECT_EQ(0x1d0207e8u, d.toValue());
  const VixDate back = VixDate::fromValue(d.toValue());
  EXPECT_EQ(2024, back.year);
  EXPECT_EQ(2, back.month);
  EXPECT_EQ(29, back.day);
  EXPECT_EQ(-5, VixDate::fromValue(VixDate{-5, 1, 1}.toValue()).year);
  EXPECT_EQ(0x0905000du, (VixTime{13, 5, 9}.toValue()));
}

TEST(VixTypeUtil, TextToDateAndTime) {
  uint32_t v = 7;
  EXPECT_EQ(0, VixTypeUtil::str2VixDate(v, "2024-02-29"));
  EXPECT_EQ((VixDate{2024, 2, 29}.toValue()), v);
  v = 7;
  EXPECT_EQ(-14, VixTypeUtil::str2VixDate(v, "2023-02-29"));
  EXPECT_EQ(-14, VixTypeUtil::str2VixDate(v, "2024/02/01"));
  EXPECT_EQ(-14, VixTypeUtil::str2VixDate(v, "2024-02-01x"));
  EXPECT_EQ(7u, v);  // untouched on failure
  EXPECT_EQ(-8, VixTypeUtil::str2VixDate(v, nullptr));

  EXPECT_EQ(0, VixTypeUtil::str2VixTime(v, "-999:59:59"));
  EXPECT_EQ(-999, VixTime::fromValue(v).hour);
  EXPECT_EQ(0, VixTypeUtil::str2VixTime(v, "999:00:00"));
  EXPECT_EQ(-13, VixTypeUtil::str2VixTime(v, "1000:00:00"));
  EXPECT_EQ(-13, VixTypeUtil::str2VixTime(v, "10:60:00"));
  EXPECT_EQ(-13, VixTypeUtil::str2VixTime(v, "10:00:60"));
  EXPECT_EQ(-13, VixTypeUtil::str2VixTime(v, "10:00"));
}

TEST(VixTypeUtil, TextToDateTime) {
  uint64_t v = 0;
  EXPECT_EQ(0, VixTypeUtil::str2VixDateTime(v, "2024-01-31 24:00:00"));  // hour 24 is fine
  EXPECT_EQ(24, VixTime::fromValue(kalmo_vix::vixTimeOf(v)).hour);
  EXPECT_EQ(31, VixDate::fromValue(kalmo_vix::vixDateOf(v)).day);
  EXPECT_EQ(-15, VixTypeUtil::str2VixDateTime(v, "2024-01-31 10:60:00"));
  EXPECT_EQ(-15, VixTypeUtil::str2VixDateTime(v, "2023-02-29 10:00:00"));
  EXPECT_EQ(-15, VixTypeUtil::str2VixDateTime(v, "2024-01-31T10:00:00"));
}

TEST(VixTypeUtil, Addresses) {
  uint32_t ip = 0;
  EXPECT_EQ(0, VixTypeUtil::str2VixIP(ip, "10.1.2.3"));
  const unsigned char* b = reinterpret_cast<const unsigned char*>(&ip);
  EXPECT_EQ(10, b[0]);  // network order in memory
  EXPECT_EQ(3, b[3]);
  EXPECT_EQ(-12, VixTypeUtil::str2VixIP(ip, "10.1.2.x"));
  char out[16];
  EXPECT_EQ(0, VixTypeUtil::vixIp2Str(out, sizeof(out), ip));
  EXPECT_STREQ("10.1.2.3", out);
  char tiny[8];
  std::memset(tiny, 'x', sizeof(tiny));
  EXPECT_EQ(-1, VixTypeUtil::vixIp2Str(tiny, sizeof(tiny), ip));  // needs 9 bytes
  EXPECT_EQ('\0', tiny[7]);
  char area[16];
  kalmo_vix::VixWriteBuf w(area, sizeof(area));
  EXPECT_EQ(0, VixTypeUtil::vixIp2Str(w, ip));
  EXPECT_EQ(8u, w.position);
}

TEST(VixTypeUtil, CalendarRoundTripInLocalTime) {
  const long now = 1700000000;
  uint64_t dt = 0;
  ASSERT_EQ(0, VixTypeUtil::UTC2VixDateTime(dt, now));
  long back = 0;
  ASSERT_EQ(0, VixTypeUtil::vixDateTime2UTC(back, dt));
  EXPECT_EQ(now, back);
  uint64_t invalid = 0;
  ASSERT_EQ(0, VixTypeUtil::str2VixDateTime(invalid, "2024-01-01 00:00:00"));
  invalid = kalmo_vix::makeVixDateTime(VixDate{2023, 2, 29}.toValue(), 0);
  EXPECT_EQ(-15, VixTypeUtil::vixDateTime2UTC(back, invalid));
}

TEST(VixTypeUtil, Comparisons) {
  const uint32_t a = VixDate{-1, 12, 31}.toValue();
  const uint32_t b = VixDate{1, 1, 1}.toValue();
  EXPECT_EQ(-1, VixTypeUtil::compareVixDate(a, b));  // years compare signed
  EXPECT_EQ(1, VixTypeUtil::compareVixDate(b, a));
  EXPECT_EQ(0, VixTypeUtil::compareVixDate(b, b));
  EXPECT_EQ(-1, VixTypeUtil::compareVixDate(VixDate{2024, 1, 31}.toValue(),
                                            VixDate{2024, 2, 1}.toValue()));
  EXPECT_EQ(-1,
            VixTypeUtil::compareVixTime(VixTime{-3, 0, 0}.toValue(), VixTime{2, 0, 0}.toValue()));
  EXPECT_EQ(1, VixTypeUtil::compareVixTime(VixTime{2, 0, 5}.toValue(), VixTime{2, 0, 4}.toValue()));
  const uint64_t early = kalmo_vix::makeVixDateTime(b, VixTime{23, 0, 0}.toValue());
  const uint64_t late =
      kalmo_vix::makeVixDateTime(VixDate{1, 1, 2}.toValue(), VixTime{1, 0, 0}.toValue());
  EXPECT_EQ(-1, VixTypeUtil::compareVixDateTime(early, late));
  EXPECT_EQ(0, VixTypeUtil::compareVixDateTime(late, late));
  const uint16_t w[] = {1, 2, 3, 0};
  EXPECT_EQ(3u, VixTypeUtil::wstrlen(w));
  EXPECT_EQ(0u, VixTypeUtil::wstrlen(nullptr));
}
