// Error texts and the back-trace area.
#include "vix_cpp_comm/VixError.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

using kalmo_vix::VixError;

TEST(VixError, EveryCodeHasItsValueAndExactText) {
  struct Row {
    VixError::ErrorType code;
    int value;
    const char* text;
  };
  const Row rows[] = {
      {VixError::VIX_NO_ERROR, 0, "no error"},
      {VixError::VIX_ERR_SHORT_BUF_FOR_WRITE, -1, "available free space in buffer is not enough"},
      {VixError::VIX_ERR_SHORT_BUF_FOR_READ, -2, "available data in buffer is not enough"},
      {VixError::VIX_ERR_STR_LEN_TOO_BIG, -3, "string length surpass defined size"},
      {VixError::VIX_ERR_STR_LEN_TOO_SMALL, -4, "string length smaller than min string length"},
      {VixError::VIX_ERR_STR_LEN_CONFLICT, -5, "string sizeinfo inconsistent with real length"},
      {VixError::VIX_ERR_MINUS_REFER_VALUE, -6, "reffer value can not be minus"},
      {VixError::VIX_ERR_REFER_SURPASS_COUNT, -7, "reffer value bigger than count or size"},
      {VixError::VIX_ERR_ARG_POINTER_IS_NULL, -8, "pointer-type argument is NULL"},
      {VixError::VIX_ERR_CUTVER_TOO_SMALL, -9, "cut-version is smaller than base-version"},
      {VixError::VIX_ERR_CUTVER_CONFILICT, -10,
       "cut-version not covers entry refered by versionindicator"},
      {VixError::VIX_ERR_PARSE_VIXIP_FAILED, -11, "inet_ntoa failed when parse vix_ip_t"},
      {VixError::VIX_ERR_INVALID_VIXIP_VALUE, -12, "value variable of vix_ip_t is invalid"},
      {VixError::VIX_ERR_INVALID_VIXTIME_VALUE, -13, "value variable of vix_time_t is invalid"},
      {VixError::VIX_ERR_INVALID_VIXDATE_VALUE, -14, "value variable of vix_date_t is invalid"},
      {VixError::VIX_ERR_INVALID_VIXDATETIME_VALUE, -15,
       "value variable of vix_datetime_t is invalid"},
      {VixError::VIX_ERR_FUNC_LOCALTIME_FAILED, -16,
       "function 'localtime' or 'localtime_r' failed"},
      {VixError::VIX_ERR_INVALID_HEX_STR_LEN, -17,
       "invalid hex-string length, must be an even number"},
      {VixError::VIX_ERR_INVALID_HEX_STR_FORMAT, -18,
       "invalid hex-string format, each character must be a hex-digit"},
      {VixError::VIX_ERR_NULL_POINTER_PARAMETER, -19, "NULL pointer as parameter"},
      {VixError::VIX_ERR_NET_CUTVER_INVALID, -20,
       "cutVer from net-msg not in [BASEVERSION, CURRVERSION]"},
      {VixError::VIX_ERR_VALUE_UNDER_OR_OVER_FLOW, -21,
       "string-formated value underflow or overflow"},
      {VixError::VIX_ERR_OPEN_FILE_READ_FAILED, -22, "failed to open file with read-mode"},
      {VixError::VIX_ERR_OPEN_FILE_WRITE_FAILED, -23, "failed to open file with write-mode"},
      {VixError::VIX_ERR_READ_FILE_FAILED, -24, "failed to read data from file"},
      {VixError::VIX_ERR_WRITE_FILE_FAILED, -25, "failed to write data into file"},
      {VixError::VIX_ERR_ALLOC_MEMORY_FAILED, -26, "failed to allocate heap memory"},
      {VixError::VIX_ERR_PARSE_XML_FAILED, -27, "failed to parse XML-formated data"},
      {VixError::VIX_ERR_INVALID_ROOT_NODE, -28, "XML root-node is NOT what expected"},
      {VixError::VIX_ERR_FAILED_TO_PARSE_NUMERIC, -29,
       "failed to parse integer or float from string"},
      {VixError::VIX_ERR_UNDEFINED_MACRO_NAME, -30, "specified macro name has NOT been defined"},
      {VixError::VIX_ERR_FUNCTION_NOT_IMPLEMENTED, -31, "function has NOT been implemented"},
      {VixError::VIX_ERR_BAD_TLV_MAGIC, -32, "bad tlv encode magic"},
      {VixError::VIX_ERR_SUSPICIOUS_SELECTOR, -33, "invalid selector"},
      {VixError::VIX_ERR_UNMATCHED_LENGTH, -34, "unmatched length"},
      {VixError::VIX_ERR_UNKNOWN_TYPE_ID, -35, "unknown type id"},
      {VixError::VIX_ERR_LOST_REQUIRED_FIELD, -36, "at least 1 required field been lost"},
      {VixError::VIX_ERR_NULL_ARRAY, -37, "null array shouldn't be packed"},
      {VixError::VIX_ERR_FIELD_NAME_IS_NOT_EXIST, -38, "the field name is not existed"},
      {VixError::VIX_ERR_NOT_SUPPORT, -39, "it is not support now."},
      {VixError::VIX_ERR_UNKNOWN_FIELD_ID, -40, "unknown field id."},
      {VixError::VIX_ERR_UNMATCH_TAG_ID, -41, "unmatch tag id."},
      {VixError::VIX_ERR_UNMATCH_TYPE_ID, -42, "unmatch type id."},
      {VixError::VIX_ERR_NOT_FIND, -43, "not find."},
      {VixError::VIX_ERR_SERVICE_NULL_RPC_CLIENT, -200, "null rpc client"},
      {VixError::VIX_ERR_SERVICE_METHOD_NOT_IMPLEMENTED, -201,
       "rpc method not been implemented yet"},
      {VixError::VIX_ERR_SERVICE_NULL_CLOSURE, -202, "null closure in servant"},
      {VixError::VIX_ERR_SERVICE_UNKNOWN_METHOD, -203, "unknown rpc method "},
  };
  for (const Row& r : rows) {
    EXPECT_EQ(r.value, static_cast<int>(r.code)) << r.text;
    EXPECT_STREQ(r.text, VixError::getErrorString(r.code)) << r.value;
    EXPECT_STREQ(r.text, VixError::getErrorString(r.value)) << r.value;
  }
  EXPECT_STREQ("no error", VixError::getErrorString(5));
}

TEST(VixError, UnknownCodesOutsideBothRanges) {
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
