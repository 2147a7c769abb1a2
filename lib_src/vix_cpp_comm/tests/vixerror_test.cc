// Error texts and the back-trace area.
#include "vix_cpp_comm/VixError.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

using kalmo_vix::VixError;

TEST(VixError, TextsOfTheCodecCodes) {
  EXPECT_STREQ("no error", VixError::getErrorString(VixError::VIX_NO_ERROR));
  EXPECT_STREQ("no error", VixError::getErrorString(5));
  EXPECT_STREQ("available free space in buffer is not enough", VixError::getErrorString(-1));
  EXPECT_STREQ("available data in buffer is not enough", VixError::getErrorString(-2));
  EXPECT_STREQ("string length surpass defined size", VixError::getErrorString(-3));
  EXPECT_STREQ("string length smaller than min string length", VixError::getErrorString(-4));
  EXPECT_STREQ("string sizeinfo inconsistent with real length", VixError::getErrorString(-5));
  EXPECT_STREQ("reffer value can not be minus", VixError::getErrorString(-6));
  EXPECT_STREQ("reffer value bigger than count or size", VixError::getErrorString(-7));
  EXPECT_STREQ("cut-version is smaller than base-version", VixError::getErrorString(-9));
  EXPECT_STREQ("NULL pointer as parameter", VixError::getErrorString(-19));
  EXPECT_STREQ("cutVer from net-msg not in [BASEVERSION, CURRVERSION]", VixError::getErrorString(-20));
  EXPECT_STREQ("string-formated value underflow or overflow", VixError::getErrorString(-21));
  EXPECT_STREQ("invalid selector", VixError::getErrorString(VixError::VIX_ERR_SUSPICIOUS_SELECTOR));
  EXPECT_STREQ("not find.", VixError::getErrorString(-43));
}

TEST(VixError, ServiceTextsAndUnknownCodes) {
  EXPECT_STREQ("null rpc client", VixError::getErrorString(-200));
  EXPECT_STREQ("null closure in servant", VixError::getErrorString(-202));
  EXPECT_STREQ("unknown rpc method ", VixError::getErrorString(VixError::VIX_ERR_SERVICE_UNKNOWN_METHOD));
  EXPECT_STREQ("unknown error", VixError::getErrorString(-44));
  EXPECT_STREQ("unknown error", VixError::getErrorString(-199));
  EXPECT_STREQ("unknown error", VixError::getErrorString(-204));
  EXPECT_STREQ("unknown error", VixError::getErrorString(-100000));
  // The extremes of int: no negation may overflow on the way to the answer.
  EXPECT_STREQ("unknown error", VixError::getErrorString(std::numeric_limits<int>::min()));
  EXPECT_STREQ("no error", VixError::getErrorString(std::numeric_limits<int>::max()));
}

TEST(VixError, BackTracePrependsSoOutermostComesFirst) {
  VixError::resetBackTrace();
  EXPECT_STREQ("", VixError::getBackTrace());
  EXPECT_EQ(10239, VixError::start_pos);
  VixError::addBackTrace("szData", "/build/gen/o2auth_data.cc", 120);
  VixError::addBackTrace("stATK", "o2auth_data.cc", 300);
  EXPECT_STREQ("-->entry_name[stATK](o2auth_data.cc:300)-->entry_name[szData](o2auth_data.cc:120)",
               VixError::getBackTrace());
  EXPECT_EQ(10239 - static_cast<int>(std::strlen(VixError::getBackTrace())), VixError::start_pos);
  EXPECT_EQ(VixError::back_trace_str + VixError::start_pos, VixError::getBackTrace());
  VixError::resetBackTrace();
  EXPECT_STREQ("", VixError::getBackTrace());
}

TEST(VixError, OverlongEntryIsCutTo767Characters) {
  VixError::resetBackTrace();
  const std::string name(2000, 'n');
  VixError::addBackTrace(name.c_str(), "f.cc", 1);
  const std::string text = VixError::getBackTrace();
  EXPECT_EQ(767u, text.size());
  EXPECT_EQ(0u, text.find("-->entry_name[nnn"));
}

TEST(VixError, FullAreaKeepsTheFirstEntriesAndCutsTheLastOne) {
  VixError::resetBackTrace();
  // Each entry is "-->entry_name[e](f.cc:1)": 24 characters. 426 of them fill 10224 characters.
  for (int i = 0; i < 426; ++i) VixError::addBackTrace("e", "f.cc", 1);
  EXPECT_EQ(15, VixError::start_pos);
  VixError::addBackTrace("outer", "f.cc", 2);  // 28 characters, only 15 fit
  EXPECT_EQ(0, VixError::start_pos);
  const std::string text = VixError::getBackTrace();
  EXPECT_EQ(10239u, text.size());
  EXPECT_EQ(0u, text.find("-->entry_name[o-->entry_name[e](f.cc:1)"));
  VixError::addBackTrace("more", "f.cc", 3);  // nothing fits any more
  EXPECT_EQ(text, VixError::getBackTrace());
  VixError::resetBackTrace();
}
