// String hash, copying, trimming, normalising and sorting helpers, and the conversion between
// wide strings and the multibyte Chinese encoding.
#include <ctype.h>
#include <errno.h>
#include <iconv.h>
#include <stdlib.h>

#include "vix/vix_types.h"
#include "vix_internal.h"

namespace {

constexpr size_t kEncodingLen = 32;

char g_szEncoding[kEncodingLen] = "GBK";

// Wide characters are UCS-2 in host byte order.
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
const char kWideEncoding[] = "UCS-2LE";
#else
const char kWideEncoding[] = "UCS-2BE";
#endif

bool is_blank_i(char ch) { return isspace(static_cast<unsigned char>(ch)) != 0; }

// Runs iconv over the whole input; the output must keep iReserve bytes free for a terminator.
int convert_i(const char* pszTo, const char* pszFrom, const char* pIn, size_t iIn, char* pOut,
              size_t iOut, size_t iReserve, size_t* piWritten) {
  if (iOut < iReserve) return VIX_ERROR_OUT_BUF_TOO_SMALL;
  iconv_t cd = iconv_open(pszTo, pszFrom);
  if (cd == reinterpret_cast<iconv_t>(-1)) return VIX_ERROR_ENCODING_CONVERT;
  char* pszIn = const_cast<char*>(pIn);
  char* pszOut = pOut;
  size_t iInLeft = iIn;
  size_t iOutLeft = iOut - iReserve;
  int iRet = 0;
  if (iconv(cd, &pszIn, &iInLeft, &pszOut, &iOutLeft) == static_cast<size_t>(-1)) {
    iRet = errno == E2BIG ? VIX_ERROR_OUT_BUF_TOO_SMALL : VIX_ERROR_ENCODING_CONVERT;
  } else if (iconv(cd, nullptr, nullptr, &pszOut, &iOutLeft) == static_cast<size_t>(-1)) {
    iRet = VIX_ERROR_OUT_BUF_TOO_SMALL;
  }
  iconv_close(cd);
  *piWritten = static_cast<size_t>(pszOut - pOut);
  return iRet;
}

void merge_sort_i(char* pBase, char* pTmp, size_t iCount, size_t iSize,
                  int (*pfnCompare)(const void*, const void*)) {
  if (iCount < 2) return;
  const size_t iLeft = iCount / 2;
  merge_sort_i(pBase, pTmp, iLeft, iSize, pfnCompare);
  merge_sort_i(pBase + iLeft * iSize, pTmp, iCount - iLeft, iSize, pfnCompare);
  // Already in order: nothing to merge.
  if (pfnCompare(pBase + (iLeft - 1) * iSize, pBase + iLeft * iSize) <= 0) return;
  memcpy(pTmp, pBase, iLeft * iSize);
  size_t i = 0, j = iLeft, k = 0;
  while (i < iLeft && j < iCount) {
    // Taking from the left run on ties keeps equal elements in order.
    if (pfnCompare(pBase + j * iSize, pTmp + i * iSize) < 0) {
      memmove(pBase + k * iSize, pBase + j * iSize, iSize);
      ++j;
    } else {
      memcpy(pBase + k * iSize, pTmp + i * iSize, iSize);
      ++i;
    }
    ++k;
  }
  if (i < iLeft) memcpy(pBase + k * iSize, pTmp + i * iSize, (iLeft - i) * iSize);
}

// Stable in-place fallback: each element is rotated into place, one byte at a time.
void insertion_sort_i(char* pBase, size_t iCount, size_t iSize,
                      int (*pfnCompare)(const void*, const void*)) {
  for (size_t i = 1; i < iCount; ++i) {
    size_t j = i;
    while (j > 0 && pfnCompare(pBase + (j - 1) * iSize, pBase + j * iSize) > 0) {
      char* a = pBase + (j - 1) * iSize;
      char* b = pBase + j * iSize;
      for (size_t n = 0; n < iSize; ++n) {
        const char ch = a[n];
        a[n] = b[n];
        b[n] = ch;
      }
      --j;
    }
  }
}

}  // namespace

uint32_t vix_get_hash_code(const char* pszData, size_t iLen) {
  uint32_t h = 0;
  if (pszData == nullptr) return 0;
  for (size_t i = 0; i < iLen; ++i) h = h + (h << 5) + static_cast<unsigned char>(pszData[i]);
  return h;
}

char* vix_strnmov(char* pszDst, const char* pszSrc, size_t n) {
  while (n > 0 && (*pszDst = *pszSrc) != '\0') {
    ++pszDst;
    ++pszSrc;
    --n;
  }
  return pszDst;
}

char* vix_strmov(char* pszDst, const char* pszSrc) {
  while ((*pszDst = *pszSrc) != '\0') {
    ++pszDst;
    ++pszSrc;
  }
  return pszDst;
}

char* vix_trim_str(char* pszStr) {
  if (pszStr == nullptr) return nullptr;
  const char* pszBegin = pszStr;
  while (is_blank_i(*pszBegin)) ++pszBegin;
  size_t iLen = strlen(pszBegin);
  while (iLen > 0 && is_blank_i(pszBegin[iLen - 1])) --iLen;
  memmove(pszStr, pszBegin, iLen);
  pszStr[iLen] = '\0';
  return pszStr;
}

int vix_normalize_string(char* pszDst, size_t iDst, const char* pszSrc) {
  if (pszDst == nullptr || pszSrc == nullptr || iDst == 0) return -1;
  size_t n = 0;
  bool bPendingBlank = false;
  for (const char* p = pszSrc; *p != '\0'; ++p) {
    if (is_blank_i(*p)) {
      bPendingBlank = n > 0;
      continue;
    }
    if (n + (bPendingBlank ? 2 : 1) >= iDst) {
      pszDst[0] = '\0';
      return -1;
    }
    if (bPendingBlank) pszDst[n++] = ' ';
    bPendingBlank = false;
    pszDst[n++] = *p;
  }
  pszDst[n] = '\0';
  return static_cast<int>(n);
}

int vix_qsort(void* pvBase, size_t iCount, size_t iSize,
              int (*pfnCompare)(const void*, const void*)) {
  if ((pvBase == nullptr && iCount > 0) || pfnCompare == nullptr || iSize == 0) {
    return VIX_ERROR_INVALID_PARAM;
  }
  if (iCount < 2) return 0;
  char* pBase = static_cast<char*>(pvBase);
  const size_t iLeft = iCount / 2;
  char* pTmp = iLeft <= SIZE_MAX / iSize ? static_cast<char*>(malloc(iLeft * iSize)) : nullptr;
  if (pTmp == nullptr) {
    insertion_sort_i(pBase, iCount, iSize, pfnCompare);
    return 0;
  }
  merge_sort_i(pBase, pTmp, iCount, iSize, pfnCompare);
  free(pTmp);
  return 0;
}

int vix_set_encoding_i(const char* pszEncoding) {
  if (pszEncoding == nullptr || pszEncoding[0] == '\0' || strlen(pszEncoding) >= kEncodingLen) {
    return VIX_ERROR_INVALID_PARAM;
  }
  iconv_t cd = iconv_open(pszEncoding, kWideEncoding);
  if (cd == reinterpret_cast<iconv_t>(-1)) return VIX_ERROR_ENCODING_CONVERT;
  iconv_close(cd);
  memcpy(g_szEncoding, pszEncoding, strlen(pszEncoding) + 1);
  return 0;
}

const char* vix_get_encoding_i(void) { return g_szEncoding; }

int vix_wcstochinesembs(char* pszMbs, size_t* piMbs, const vix_wchar_t* pwszWcs, size_t iWcs) {
  if (pszMbs == nullptr || piMbs == nullptr || pwszWcs == nullptr) return VIX_ERROR_INVALID_PARAM;
  size_t iChars = 0;
  while (iChars < iWcs && pwszWcs[iChars] != 0) ++iChars;
  size_t iWritten = 0;
  const int iRet = convert_i(g_szEncoding, kWideEncoding, reinterpret_cast<const char*>(pwszWcs),
                             iChars * sizeof(vix_wchar_t), pszMbs, *piMbs, 1, &iWritten);
  if (iRet != 0) {
    if (*piMbs > 0) pszMbs[0] = '\0';
    return iRet;
  }
  pszMbs[iWritten] = '\0';
  *piMbs = iWritten;
  return 0;
}

int vix_chinesembstowcs(vix_wchar_t* pwszWcs, size_t* piWcs, const char* pszMbs, size_t iMbs) {
  if (pwszWcs == nullptr || piWcs == nullptr || pszMbs == nullptr) return VIX_ERROR_INVALID_PARAM;
  const size_t iBytes = strnlen(pszMbs, iMbs);
  const size_t iRoom = *piWcs <= SIZE_MAX / sizeof(vix_wchar_t) ? *piWcs * sizeof(vix_wchar_t) : 0;
  size_t iWritten = 0;
  const int iRet =
      convert_i(kWideEncoding, g_szEncoding, pszMbs, iBytes, reinterpret_cast<char*>(pwszWcs),
                iRoom, sizeof(vix_wchar_t), &iWritten);
  if (iRet != 0) {
    if (*piWcs > 0) pwszWcs[0] = 0;
    return iRet;
  }
  pwszWcs[iWritten / sizeof(vix_wchar_t)] = 0;
  *piWcs = iWritten / sizeof(vix_wchar_t);
  return 0;
}
