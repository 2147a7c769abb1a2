// Priority names, id/class filters and the hexadecimal dump helper.

#include <string.h>
#include <strings.h>

#include "wlog/wlog.h"
#include "wlog_internal.h"

namespace {

template <size_t N>
constexpr WLOGPRIORITYNAME name_entry(const char (&name)[N]) {
  static_assert(N <= WLOG_PRIORITY_PAD, "a name is shorter than its padded column");
  WLOGPRIORITYNAME entry{};
  for (size_t i = 0; i < N; ++i) entry.szName[i] = name[i];
  entry.iLen = static_cast<int>(N - 1);
  return entry;
}

// Index = priority / 100.
const WLOGPRIORITYNAME kPriorityNames[WLOG_PRIORITY_COUNT] = {
    name_entry("FATAL"), name_entry("ALERT"),  name_entry("CRIT"),   name_entry("ERROR"),
    name_entry("WARN"),  name_entry("NOTICE"), name_entry("INFO"),   name_entry("DEBUG"),
    name_entry("TRACE"), name_entry("NOTSET"), name_entry("UNKNOWN")};

const char kHexDigits[] = "0123456789ABCDEF";

}  // namespace

const WLOGPRIORITYNAME* wlog_priority_name_i(int iPriority) {
  const int idx = iPriority / 100;  // truncates toward zero: -99..-1 name FATAL
  if (idx < 0 || idx >= WLOG_PRIORITY_COUNT) return &kPriorityNames[WLOG_PRIORITY_COUNT - 1];
  return &kPriorityNames[idx];
}

extern "C" {

const char* wlog_priority_to_string(int iPriority) {
  return wlog_priority_name_i(iPriority)->szName;
}

int wlog_priority_to_int(const char* pszName) {
  if (pszName == nullptr) return WLOG_PRIORITY_UNKNOWN;
  for (int i = 0; i < WLOG_PRIORITY_COUNT; ++i) {
    // Prefix match: "errors" is ERROR, "information" is INFO.
    const WLOGPRIORITYNAME& n = kPriorityNames[i];
    if (strncasecmp(pszName, n.szName, static_cast<size_t>(n.iLen)) == 0) return i * 100;
  }
  return WLOG_PRIORITY_UNKNOWN;
}

char* WlogBin2Hex(const void* pvBin, size_t iBin, char* pszHex, size_t* piHex) {
  if (pvBin == nullptr || pszHex == nullptr || piHex == nullptr) return nullptr;
  if (iBin > (static_cast<size_t>(-1) >> 1) || 2 * iBin >= *piHex) return nullptr;
  const unsigned char* in = static_cast<const unsigned char*>(pvBin);
  for (size_t i = 0; i < iBin; ++i) {
    pszHex[2 * i] = kHexDigits[in[i] >> 4];
    pszHex[2 * i + 1] = kHexDigits[in[i] & 0x0F];
  }
  pszHex[2 * iBin] = '\0';
  *piHex = 2 * iBin;
  return pszHex;
}

int wlogfilter_match_int(const INTFILTER* pstFilter, unsigned uValue) {
  if (pstFilter == nullptr) return 1;
  if (pstFilter->nMod != 0 && pstFilter->nModCount > 0) {
    const unsigned mod = static_cast<unsigned>(static_cast<int>(pstFilter->nMod));
    const unsigned start = static_cast<unsigned>(static_cast<int>(pstFilter->nModStart));
    const unsigned count = static_cast<unsigned>(static_cast<int>(pstFilter->nModCount));
    const unsigned r = uValue % mod;
    if (start > r || r - start >= count) return 0;
  }
  if (pstFilter->dwCount != 0) {
    if (pstFilter->dwStart > uValue || uValue - pstFilter->dwStart >= pstFilter->dwCount) return 0;
  }
  return 1;
}

int wlogfilter_match(const WLOGFILTER* pstFilter, unsigned uId, unsigned uCls) {
  if (pstFilter == nullptr) return 1;
  return wlogfilter_match_int(&pstFilter->stIDFilter, uId) &&
         wlogfilter_match_int(&pstFilter->stClsFilter, uCls);
}

int wlogfilter_match_vec(const WLOGFILTERVEC* pstVec, unsigned uId, unsigned uCls) {
  if (pstVec == nullptr || pstVec->iCount == 0) return 1;
  if (pstVec->iCount < 0) return 0;
  const int n = pstVec->iCount < WLOG_VEC_FILTER ? pstVec->iCount : WLOG_VEC_FILTER;
  for (int i = 0; i < n; ++i) {
    if (wlogfilter_match(&pstVec->astFilters[i], uId, uCls)) return 1;
  }
  return 0;
}

}  // extern "C"
