// Conversions of the compact date, time, date-time and IPv4 values.
#include "vix_cpp_comm/VixTypeUtil.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "vix_cpp_comm/VixError.h"

namespace kalmo_vix {

namespace {

// Parses an optionally signed decimal number of at most 9 digits at *p, advancing *p.
bool parseNumber(const char*& p, int& out, bool allowSign) {
  bool negative = false;
  if (allowSign && (*p == '-' || *p == '+')) {
    negative = *p == '-';
    ++p;
  }
  int digits = 0;
  long value = 0;
  while (*p >= '0' && *p <= '9') {
    if (++digits > 9) return false;
    value = value * 10 + (*p - '0');
    ++p;
  }
  if (digits == 0) return false;
  out = static_cast<int>(negative ? -value : value);
  return true;
}

bool expect(const char*& p, char c) {
  if (*p != c) return false;
  ++p;
  return true;
}

bool parseDate(const char*& p, VixDate& out) {
  int y = 0, m = 0, d = 0;
  if (!parseNumber(p, y, true) || !expect(p, '-') || !parseNumber(p, m, false) || !expect(p, '-') ||
      !parseNumber(p, d, false)) {
    return false;
  }
  if (!VixDate::isValid(y, m, d)) return false;
  out.year = static_cast<int16_t>(y);
  out.month = static_cast<uint8_t>(m);
  out.day = static_cast<uint8_t>(d);
  return true;
}

bool parseTime(const char*& p, VixTime& out) {
  int h = 0, m = 0, s = 0;
  if (!parseNumber(p, h, true) || !expect(p, ':') || !parseNumber(p, m, false) || !expect(p, ':') ||
      !parseNumber(p, s, false)) {
    return false;
  }
  if (!VixTime::isValid(h, m, s)) return false;
  out.hour = static_cast<int16_t>(h);
  out.minute = static_cast<uint8_t>(m);
  out.second = static_cast<uint8_t>(s);
  return true;
}

bool validDateTime(uint64_t value) {
  return VixDate::fromValue(vixDateOf(value)).isValid() &&
         VixTime::fromValue(vixTimeOf(value)).isValid();
}

int sign(int a, int b) { return a < b ? -1 : (a > b ? 1 : 0); }

}  // namespace

int VixTypeUtil::str2VixDate(uint32_t& out, const char* text) {
  if (text == nullptr) return VixError::VIX_ERR_ARG_POINTER_IS_NULL;
  const char* p = text;
  VixDate d;
  if (!parseDate(p, d) || *p != '\0') return VixError::VIX_ERR_INVALID_VIXDATE_VALUE;
  out = d.toValue();
  return 0;
}

int VixTypeUtil::str2VixTime(uint32_t& out, const char* text) {
  if (text == nullptr) return VixError::VIX_ERR_ARG_POINTER_IS_NULL;
  const char* p = text;
  VixTime t;
  if (!parseTime(p, t) || *p != '\0') return VixError::VIX_ERR_INVALID_VIXTIME_VALUE;
  out = t.toValue();
  return 0;
}

int VixTypeUtil::str2VixDateTime(uint64_t& out, const char* text) {
  if (text == nullptr) return VixError::VIX_ERR_ARG_POINTER_IS_NULL;
  const char* p = text;
  VixDate d;
  VixTime t;
  if (!parseDate(p, d) || !expect(p, ' ') || !parseTime(p, t) || *p != '\0') {
    return VixError::VIX_ERR_INVALID_VIXDATETIME_VALUE;
  }
  out = makeVixDateTime(d.toValue(), t.toValue());
  return 0;
}

int VixTypeUtil::str2VixIP(uint32_t& out, const char* text) {
  if (text == nullptr) return VixError::VIX_ERR_ARG_POINTER_IS_NULL;
  struct in_addr addr;
  if (inet_aton(text, &addr) == 0) return VixError::VIX_ERR_INVALID_VIXIP_VALUE;
  out = addr.s_addr;
  return 0;
}

int VixTypeUtil::vixIp2Str(char* out, size_t size, uint32_t ip) {
  if (out == nullptr) return VixError::VIX_ERR_ARG_POINTER_IS_NULL;
  if (size == 0) return VixError::VIX_ERR_SHORT_BUF_FOR_WRITE;
  char text[INET_ADDRSTRLEN];
  struct in_addr addr;
  addr.s_addr = ip;
  int ret = 0;
  if (inet_ntop(AF_INET, &addr, text, sizeof(text)) == nullptr) {
    ret = VixError::VIX_ERR_PARSE_VIXIP_FAILED;
  } else if (std::strlen(text) + 1 > size) {
    ret = VixError::VIX_ERR_SHORT_BUF_FOR_WRITE;
  } else {
    std::memcpy(out, text, std::strlen(text) + 1);
  }
  out[size - 1] = '\0';
  return ret;
}

int VixTypeUtil::vixIp2Str(VixWriteBuf& buf, uint32_t ip) {
  char text[INET_ADDRSTRLEN];
  struct in_addr addr;
  addr.s_addr = ip;
  if (inet_ntop(AF_INET, &addr, text, sizeof(text)) == nullptr)
    return VixError::VIX_ERR_PARSE_VIXIP_FAILED;
  return buf.textize("%s", text);
}

int VixTypeUtil::UTC2VixDateTime(uint64_t& out, long utc) {
  const time_t t = static_cast<time_t>(utc);
  struct tm tmv;
  if (localtime_r(&t, &tmv) == nullptr) return VixError::VIX_ERR_FUNC_LOCALTIME_FAILED;
  const int year = tmv.tm_year + 1900;
  if (!VixDate::isValid(year, tmv.tm_mon + 1, tmv.tm_mday) ||
      !VixTime::isValid(tmv.tm_hour, tmv.tm_min, tmv.tm_sec)) {
    return VixError::VIX_ERR_INVALID_VIXDATETIME_VALUE;
  }
  VixDate d;
  d.year = static_cast<int16_t>(year);
  d.month = static_cast<uint8_t>(tmv.tm_mon + 1);
  d.day = static_cast<uint8_t>(tmv.tm_mday);
  VixTime tm2;
  tm2.hour = static_cast<int16_t>(tmv.tm_hour);
  tm2.minute = static_cast<uint8_t>(tmv.tm_min);
  tm2.second = static_cast<uint8_t>(tmv.tm_sec);
  out = makeVixDateTime(d.toValue(), tm2.toValue());
  return 0;
}

int VixTypeUtil::vixDateTime2UTC(long& out, uint64_t dateTime) {
  if (!validDateTime(dateTime)) return VixError::VIX_ERR_INVALID_VIXDATETIME_VALUE;
  const VixDate d = VixDate::fromValue(vixDateOf(dateTime));
  const VixTime t = VixTime::fromValue(vixTimeOf(dateTime));
  struct tm tmv;
  std::memset(&tmv, 0, sizeof(tmv));
  tmv.tm_year = d.year - 1900;
  tmv.tm_mon = d.month - 1;
  tmv.tm_mday = d.day;
  tmv.tm_hour = t.hour;
  tmv.tm_min = t.minute;
  tmv.tm_sec = t.second;
  tmv.tm_isdst = -1;
  errno = 0;
  const time_t result = mktime(&tmv);
  if (result == static_cast<time_t>(-1) && errno != 0)
    return VixError::VIX_ERR_INVALID_VIXDATETIME_VALUE;
  out = static_cast<long>(result);
  return 0;
}

int VixTypeUtil::compareVixDate(uint32_t a, uint32_t b) {
  const VixDate x = VixDate::fromValue(a);
  const VixDate y = VixDate::fromValue(b);
  if (x.year != y.year) return sign(x.year, y.year);
  if (x.month != y.month) return sign(x.month, y.month);
  return sign(x.day, y.day);
}

int VixTypeUtil::compareVixTime(uint32_t a, uint32_t b) {
  const VixTime x = VixTime::fromValue(a);
  const VixTime y = VixTime::fromValue(b);
  if (x.hour != y.hour) return sign(x.hour, y.hour);
  if (x.minute != y.minute) return sign(x.minute, y.minute);
  return sign(x.second, y.second);
}

int VixTypeUtil::compareVixDateTime(uint64_t a, uint64_t b) {
  const int byDate = compareVixDate(vixDateOf(a), vixDateOf(b));
  if (byDate != 0) return byDate;
  return compareVixTime(vixTimeOf(a), vixTimeOf(b));
}

size_t VixTypeUtil::wstrlen(const uint16_t* s) {
  if (s == nullptr) return 0;
  size_t n = 0;
  while (s[n] != 0) ++n;
  return n;
}

}  // namespace kalmo_vix
