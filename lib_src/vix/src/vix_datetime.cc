// Dates, times, date-times and IPv4 addresses: validity, text forms, parsing, conversion to
// and from seconds, comparison.
#include <arpa/inet.h>
#include <ctype.h>
#include <stdio.h>
#include <strings.h>

#include "vix/vix_types.h"
#include "vix_internal.h"

namespace {

thread_local char t_szText[VIX_DATETIME_STR_LEN];

bool is_leap_i(int iYear) { return (iYear % 4 == 0 && iYear % 100 != 0) || iYear % 400 == 0; }

const char* skip_blanks_i(const char* p) {
  while (isspace(static_cast<unsigned char>(*p))) ++p;
  return p;
}

// Reads up to iMaxDigits decimal digits (at least one), with an optional sign when bSigned.
// Returns the position after them or null.
const char* read_int_i(const char* p, int iMaxDigits, bool bSigned, int* piValue) {
  bool bNeg = false;
  if (bSigned && (*p == '-' || *p == '+')) {
    bNeg = *p == '-';
    ++p;
  }
  int iValue = 0;
  int iDigits = 0;
  while (iDigits < iMaxDigits && isdigit(static_cast<unsigned char>(*p))) {
    iValue = iValue * 10 + (*p - '0');
    ++p;
    ++iDigits;
  }
  if (iDigits == 0) return nullptr;
  *piValue = bNeg ? -iValue : iValue;
  return p;
}

// Reads a number in [iMin, iMax].
const char* read_ranged_i(const char* p, int iMaxDigits, bool bSigned, int iMin, int iMax,
                          int* piValue) {
  int iValue = 0;
  p = read_int_i(p, iMaxDigits, bSigned, &iValue);
  if (p == nullptr || iValue < iMin || iValue > iMax) return nullptr;
  *piValue = iValue;
  return p;
}

const char* const kMonths[12] = {"january",   "february", "march",    "april",
                                 "may",       "june",     "july",     "august",
                                 "september", "october",  "november", "december"};
const char* const kDays[7] = {"sunday",   "monday", "tuesday", "wednesday",
                              "thursday", "friday", "saturday"};

// Matches a full English name or its first three letters, ignoring case.
const char* read_name_i(const char* p, const char* const* ppszNames, int iNum, int* piIdx) {
  for (int i = 0; i < iNum; ++i) {
    const size_t iFull = strlen(ppszNames[i]);
    if (strncasecmp(p, ppszNames[i], iFull) == 0) {
      *piIdx = i;
      return p + iFull;
    }
  }
  for (int i = 0; i < iNum; ++i) {
    if (strncasecmp(p, ppszNames[i], 3) == 0) {
      *piIdx = i;
      return p + 3;
    }
  }
  return nullptr;
}

// One conversion of the format; returns the text position after it or null.
const char* convert_i(const char* p, char chConv, struct tm* pstTm, int iWide, int* piPm,
                      int* piHour12) {
  int v = 0;
  switch (chConv) {
    case 'Y':
      p = read_ranged_i(p, 4, true, -9999, 9999, &v);
      if (p != nullptr) pstTm->tm_year = v - 1900;
      return p;
    case 'y':
      p = read_ranged_i(p, 2, false, 0, 99, &v);
      if (p != nullptr) pstTm->tm_year = v < 69 ? v + 100 : v;
      return p;
    case 'm':
      p = read_ranged_i(p, 2, false, iWide ? 0 : 1, iWide ? 99 : 12, &v);
      if (p != nullptr) pstTm->tm_mon = v - 1;
      return p;
    case 'd':
    case 'e':
      p = read_ranged_i(skip_blanks_i(p), 2, false, iWide ? 0 : 1, iWide ? 99 : 31, &v);
      if (p != nullptr) pstTm->tm_mday = v;
      return p;
    case 'j':
      p = read_ranged_i(p, 3, false, 1, 366, &v);
      if (p != nullptr) pstTm->tm_yday = v - 1;
      return p;
    case 'H':
      if (iWide) {
        p = read_ranged_i(skip_blanks_i(p), 3, true, -999, 999, &v);
      } else {
        p = read_ranged_i(p, 2, false, 0, 23, &v);
      }
      if (p != nullptr) pstTm->tm_hour = v;
      return p;
    case 'I':
      p = read_ranged_i(p, 2, false, 1, 12, &v);
      if (p != nullptr) *piHour12 = v;
      return p;
    case 'p':
      if (strncasecmp(p, "am", 2) == 0) {
        *piPm = 0;
      } else if (strncasecmp(p, "pm", 2) == 0) {
        *piPm = 1;
      } else {
        return nullptr;
      }
      return p + 2;
    case 'M':
      p = read_ranged_i(p, 2, false, 0, 59, &v);
      if (p != nullptr) pstTm->tm_min = v;
      return p;
    case 'S':
      p = read_ranged_i(p, 2, false, 0, 60, &v);
      if (p != nullptr) pstTm->tm_sec = v;
      return p;
    case 'b':
    case 'B':
    case 'h':
      p = read_name_i(p, kMonths, 12, &v);
      if (p != nullptr) pstTm->tm_mon = v;
      return p;
    case 'a':
    case 'A':
      p = read_name_i(p, kDays, 7, &v);
      if (p != nullptr) pstTm->tm_wday = v;
      return p;
    case 'n':
    case 't':
      return skip_blanks_i(p);
    case '%':
      return *p == '%' ? p + 1 : nullptr;
    default:
      return nullptr;
  }
}

}  // namespace

char* vix_strptime_i(const char* pszText, const char* pszFormat, struct tm* pstTm, int iWide) {
  if (pszText == nullptr || pszFormat == nullptr || pstTm == nullptr) return nullptr;
  const char* p = pszText;
  int iPm = -1;
  int iHour12 = -1;
  for (const char* f = pszFormat; *f != '\0' && p != nullptr; ++f) {
    if (isspace(static_cast<unsigned char>(*f))) {
      p = skip_blanks_i(p);
      continue;
    }
    if (*f != '%') {
      if (*p != *f) return nullptr;
      ++p;
      continue;
    }
    ++f;
    switch (*f) {
      case 'D':
        p = vix_strptime_i(p, "%m/%d/%y", pstTm, iWide);
        break;
      case 'T':
        p = vix_strptime_i(p, "%H:%M:%S", pstTm, iWide);
        break;
      case 'F':
        p = vix_strptime_i(p, "%Y-%m-%d", pstTm, iWide);
        break;
      case 'R':
        p = vix_strptime_i(p, "%H:%M", pstTm, iWide);
        break;
      case '\0':
        return nullptr;
      default:
        p = convert_i(p, *f, pstTm, iWide, &iPm, &iHour12);
        break;
    }
  }
  if (p == nullptr) return nullptr;
  if (iHour12 >= 0) pstTm->tm_hour = iHour12 % 12 + (iPm == 1 ? 12 : 0);
  return const_cast<char*>(p);
}

char* vix_strptime(const char* pszText, const char* pszFormat, struct tm* pstTm) {
  return vix_strptime_i(pszText, pszFormat, pstTm, 0);
}

int vix_isValid_vixdate_i(const VIXDATE* pstDate) {
  if (pstDate->nYear < -9999 || pstDate->nYear > 9999) return 0;
  if (pstDate->bMonth > 12 || pstDate->bDay > 31) return 0;
  switch (pstDate->bMonth) {
    case 4:
    case 6:
    case 9:
    case 11:
      return pstDate->bDay <= 30;
    case 2:
      return pstDate->bDay <= (is_leap_i(pstDate->nYear) ? 29 : 28);
    default:
      return 1;
  }
}

int vix_isValid_vixtime_i(const VIXTIME* pstTime) {
  return pstTime->nHour >= -999 && pstTime->nHour <= 999 && pstTime->bMin <= 59 &&
         pstTime->bSec <= 59;
}

int vix_isValid_vixdatetime_i(const VIXDATETIME* pstDateTime) {
  const VIXTIME& t = pstDateTime->stTime;
  return vix_isValid_vixdate_i(&pstDateTime->stDate) && t.nHour >= 0 && t.nHour <= 23 &&
         t.bMin <= 59 && t.bSec <= 59;
}

namespace {

// Parses text by a wide format; the whole text must be consumed (trailing blanks allowed).
bool parse_all_i(const char* pszText, const char* pszFormat, struct tm* pstTm) {
  memset(pstTm, 0, sizeof(*pstTm));
  pstTm->tm_mon = -1;  // month 0 when the text says 00
  const char* pszEnd = vix_strptime_i(pszText, pszFormat, pstTm, 1);
  return pszEnd != nullptr && *skip_blanks_i(pszEnd) == '\0';
}

void tm_to_date_i(const struct tm* pstTm, VIXDATE* pstDate) {
  pstDate->nYear = static_cast<int16_t>(pstTm->tm_year + 1900);
  pstDate->bMonth = static_cast<uint8_t>(pstTm->tm_mon + 1);
  pstDate->bDay = static_cast<uint8_t>(pstTm->tm_mday);
}

void tm_to_time_i(const struct tm* pstTm, VIXTIME* pstTime) {
  pstTime->nHour = static_cast<int16_t>(pstTm->tm_hour);
  pstTime->bMin = static_cast<uint8_t>(pstTm->tm_min);
  pstTime->bSec = static_cast<uint8_t>(pstTm->tm_sec);
}

}  // namespace

int vix_str_to_vixdate(VIXDATE* pstDate, const char* pszDate) {
  if (pstDate == nullptr || pszDate == nullptr) return VIX_ERROR_INVALID_PARAM;
  struct tm stTm;
  if (!parse_all_i(pszDate, "%Y-%m-%d", &stTm)) return VIX_ERROR_BAD_DATE;
  VIXDATE stDate;
  tm_to_date_i(&stTm, &stDate);
  if (!vix_isValid_vixdate_i(&stDate)) return VIX_ERROR_BAD_DATE;
  *pstDate = stDate;
  return 0;
}

int vix_str_to_vixtime(VIXTIME* pstTime, const char* pszTime) {
  if (pstTime == nullptr || pszTime == nullptr) return VIX_ERROR_INVALID_PARAM;
  struct tm stTm;
  if (!parse_all_i(pszTime, "%H:%M:%S", &stTm)) return VIX_ERROR_BAD_TIME;
  VIXTIME stTime;
  tm_to_time_i(&stTm, &stTime);
  if (!vix_isValid_vixtime_i(&stTime)) return VIX_ERROR_BAD_TIME;
  *pstTime = stTime;
  return 0;
}

int vix_str_to_vixdatetime(VIXDATETIME* pstDateTime, const char* pszDateTime) {
  if (pstDateTime == nullptr || pszDateTime == nullptr) return VIX_ERROR_INVALID_PARAM;
  struct tm stTm;
  if (!parse_all_i(pszDateTime, "%Y-%m-%d %H:%M:%S", &stTm)) return VIX_ERROR_BAD_DATETIME;
  VIXDATETIME stValue;
  tm_to_date_i(&stTm, &stValue.stDate);
  tm_to_time_i(&stTm, &stValue.stTime);
  if (!vix_isValid_vixdatetime_i(&stValue)) return VIX_ERROR_BAD_DATETIME;
  *pstDateTime = stValue;
  return 0;
}

const char* vix_vixdate_to_str_r(const VIXDATE* pstDate, char* pszBuff, size_t iBuff) {
  if (pstDate == nullptr || pszBuff == nullptr) return nullptr;
  const int n =
      snprintf(pszBuff, iBuff, "%4d-%02d-%02d", pstDate->nYear, pstDate->bMonth, pstDate->bDay);
  return (n < 0 || static_cast<size_t>(n) >= iBuff) ? nullptr : pszBuff;
}

const char* vix_vixtime_to_str_r(const VIXTIME* pstTime, char* pszBuff, size_t iBuff) {
  if (pstTime == nullptr || pszBuff == nullptr) return nullptr;
  const int n =
      snprintf(pszBuff, iBuff, "%3d:%02d:%02d", pstTime->nHour, pstTime->bMin, pstTime->bSec);
  return (n < 0 || static_cast<size_t>(n) >= iBuff) ? nullptr : pszBuff;
}

const char* vix_vixdatetime_to_str_r(const VIXDATETIME* pstDateTime, char* pszBuff, size_t iBuff) {
  if (pstDateTime == nullptr || pszBuff == nullptr) return nullptr;
  const VIXDATE& d = pstDateTime->stDate;
  const VIXTIME& t = pstDateTime->stTime;
  const int n = snprintf(pszBuff, iBuff, "%4d-%02d-%02d %02d:%02d:%02d", d.nYear, d.bMonth, d.bDay,
                         t.nHour, t.bMin, t.bSec);
  return (n < 0 || static_cast<size_t>(n) >= iBuff) ? nullptr : pszBuff;
}

const char* vix_vixdate_to_str(const VIXDATE* pstDate) {
  const char* p = vix_vixdate_to_str_r(pstDate, t_szText, sizeof(t_szText));
  return p != nullptr ? p : "";
}

const char* vix_vixtime_to_str(const VIXTIME* pstTime) {
  const char* p = vix_vixtime_to_str_r(pstTime, t_szText, sizeof(t_szText));
  return p != nullptr ? p : "";
}

const char* vix_vixdatetime_to_str(const VIXDATETIME* pstDateTime) {
  const char* p = vix_vixdatetime_to_str_r(pstDateTime, t_szText, sizeof(t_szText));
  return p != nullptr ? p : "";
}

int vix_vixdatetime_to_utctime(time_t* ptTime, const VIXDATETIME* pstDateTime) {
  if (ptTime == nullptr || pstDateTime == nullptr) return VIX_ERROR_INVALID_PARAM;
  if (!vix_isValid_vixdatetime_i(pstDateTime) || pstDateTime->stDate.bMonth == 0 ||
      pstDateTime->stDate.bDay == 0) {
    return VIX_ERROR_BAD_DATETIME;
  }
  struct tm stTm;
  memset(&stTm, 0, sizeof(stTm));
  stTm.tm_year = pstDateTime->stDate.nYear - 1900;
  stTm.tm_mon = pstDateTime->stDate.bMonth - 1;
  stTm.tm_mday = pstDateTime->stDate.bDay;
  stTm.tm_hour = pstDateTime->stTime.nHour;
  stTm.tm_min = pstDateTime->stTime.bMin;
  stTm.tm_sec = pstDateTime->stTime.bSec;
  stTm.tm_isdst = -1;
  const time_t t = mktime(&stTm);
  if (t == static_cast<time_t>(-1)) return VIX_ERROR_BAD_DATETIME;
  *ptTime = t;
  return 0;
}

int vix_utctime_to_vixdatetime(VIXDATETIME* pstDateTime, time_t tTime) {
  if (pstDateTime == nullptr) return VIX_ERROR_INVALID_PARAM;
  struct tm stTm;
  if (localtime_r(&tTime, &stTm) == nullptr) return VIX_ERROR_BAD_DATETIME;
  if (stTm.tm_year + 1900 < -9999 || stTm.tm_year + 1900 > 9999) return VIX_ERROR_BAD_DATETIME;
  tm_to_date_i(&stTm, &pstDateTime->stDate);
  tm_to_time_i(&stTm, &pstDateTime->stTime);
  return 0;
}

namespace {

template <typename T>
int three_way_i(T a, T b) {
  return a > b ? 1 : (a < b ? -1 : 0);
}

}  // namespace

int vix_compare_date(const VIXDATE* pstLeft, const VIXDATE* pstRight) {
  if (pstLeft == nullptr || pstRight == nullptr)
    return three_way_i(pstLeft != nullptr, pstRight != nullptr);
  if (pstLeft->nYear != pstRight->nYear) return three_way_i(pstLeft->nYear, pstRight->nYear);
  if (pstLeft->bMonth != pstRight->bMonth) return three_way_i(pstLeft->bMonth, pstRight->bMonth);
  return three_way_i(pstLeft->bDay, pstRight->bDay);
}

int vix_compare_time(const VIXTIME* pstLeft, const VIXTIME* pstRight) {
  if (pstLeft == nullptr || pstRight == nullptr)
    return three_way_i(pstLeft != nullptr, pstRight != nullptr);
  if (pstLeft->nHour != pstRight->nHour) return three_way_i(pstLeft->nHour, pstRight->nHour);
  if (pstLeft->bMin != pstRight->bMin) return three_way_i(pstLeft->bMin, pstRight->bMin);
  return three_way_i(pstLeft->bSec, pstRight->bSec);
}

int vix_compare_datetime(const VIXDATETIME* pstLeft, const VIXDATETIME* pstRight) {
  if (pstLeft == nullptr || pstRight == nullptr)
    return three_way_i(pstLeft != nullptr, pstRight != nullptr);
  const int iDate = vix_compare_date(&pstLeft->stDate, &pstRight->stDate);
  return iDate != 0 ? iDate : vix_compare_time(&pstLeft->stTime, &pstRight->stTime);
}

int vix_ineta_to_vixip(VIXIP* pIp, const char* pszText) {
  if (pIp == nullptr || pszText == nullptr) return VIX_ERROR_INVALID_PARAM;
  struct in_addr stAddr;
  if (inet_aton(pszText, &stAddr) == 0) return VIX_ERROR_BAD_IP;
  *pIp = stAddr.s_addr;
  return 0;
}

const char* vix_vixip_ntop(VIXIP ip, char* pszBuff, size_t iBuff) {
  if (pszBuff == nullptr || iBuff < VIX_IP_STR_LEN) return nullptr;
  struct in_addr stAddr;
  stAddr.s_addr = ip;
  return inet_ntop(AF_INET, &stAddr, pszBuff, static_cast<socklen_t>(iBuff));
}

const char* vix_vixip_to_ineta(VIXIP ip) {
  const char* p = vix_vixip_ntop(ip, t_szText, sizeof(t_szText));
  return p != nullptr ? p : "";
}

struct in_addr vix_vixip_to_inetaddr(VIXIP ip) {
  struct in_addr stAddr;
  stAddr.s_addr = ip;
  return stAddr;
}
