// The configuration as text: read with vix_sscanf_ex through the meta WLOGCONF of
// wlog_get_meta_data, written with vix_fprintf.
//
// Elements a file leaves out take their defaults from the metadata. Defaults inside a union
// (a device) depend on the device type the file chooses, so a file is read twice: once into a
// zeroed record to learn every selector, then over a record holding the defaults of the
// branches those selectors pick.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "vix/vix_io.h"
#include "vix/vix_types.h"
#include "wlog/wlog.h"

namespace {

// A configuration file larger than this is refused (a full configuration prints to about 1 MB).
constexpr long kMaxConfText = 64L * 1024 * 1024;
// Deepest nesting followed while filling defaults (the library's own nesting is 7).
constexpr int kMaxDepth = 32;

// Stores v in the iSize-byte integer at p (host order).
void store_int(char* p, size_t iSize, long long v) {
  switch (iSize) {
    case 1: {
      const int8_t x = static_cast<int8_t>(v);
      memcpy(p, &x, 1);
      break;
    }
    case 2: {
      const int16_t x = static_cast<int16_t>(v);
      memcpy(p, &x, 2);
      break;
    }
    case 4: {
      const int32_t x = static_cast<int32_t>(v);
      memcpy(p, &x, 4);
      break;
    }
    case 8:
      memcpy(p, &v, 8);
      break;
    default:
      break;
  }
}

// The iSize-byte signed integer at p.
long long load_int(const char* p, size_t iSize) {
  switch (iSize) {
    case 1: {
      int8_t x = 0;
      memcpy(&x, p, 1);
      return x;
    }
    case 2: {
      int16_t x = 0;
      memcpy(&x, p, 2);
      return x;
    }
    case 4: {
      int32_t x = 0;
      memcpy(&x, p, 4);
      return x;
    }
    case 8: {
      long long x = 0;
      memcpy(&x, p, 8);
      return x;
    }
    default:
      return 0;
  }
}

// Writes the default of a scalar or string entry (every element) at p.
void fill_value(const VIXMETAENTRY* e, char* p) {
  size_t iLen = 0;
  const char* pszDefault = vix_get_entry_defaultvalue(e, &iLen);
  if (pszDefault == nullptr || iLen == 0) return;
  const VIXCTYPEINFO* t = vix_idx_to_typeinfo(vix_get_entry_type(e));
  if (t == nullptr) return;
  const size_t iUnit = vix_get_entry_unitsize(e);
  const int iCount = vix_get_entry_count(e);
  if (t->iType == VIX_TYPE_STRING) {
    const size_t iRoom = iUnit * static_cast<size_t>(iCount);
    if (iRoom == 0) return;
    const size_t n = iLen < iRoom - 1 ? iLen : iRoom - 1;
    memcpy(p, pszDefault, n);
    p[n] = '\0';
  } else if (vix_type_is_integer(vix_get_entry_type(e))) {
    const long long v = strtoll(pszDefault, nullptr, 0);
    for (int i = 0; i < iCount; ++i) store_int(p + static_cast<size_t>(i) * iUnit, iUnit, v);
  }
}

// Writes the defaults of the instance of m at p; pszSel is the same instance as read without
// defaults, whose selectors choose the union branches to fill.
void fill_defaults(const VIXMETA* m, char* p, const char* pszSel, int iDepth) {
  if (iDepth > kMaxDepth) return;
  for (int k = 0; k < vix_get_entry_num(m); ++k) {
    const VIXMETAENTRY* e = vix_get_entry_by_index(m, k);
    const size_t iOff = static_cast<size_t>(vix_get_entry_offset(e));
    const VIXMETA* pstNested = vix_get_entry_type_meta(e);
    if (pstNested == nullptr) {
      fill_value(e, p + iOff);
      continue;
    }
    if (vix_get_meta_type(pstNested) == VIX_TYPE_STRUCT) {
      const size_t iUnit = vix_get_entry_unitsize(e);
      for (int i = 0; i < vix_get_entry_count(e); ++i) {
        const size_t iAt = iOff + static_cast<size_t>(i) * iUnit;
        fill_defaults(pstNested, p + iAt, pszSel + iAt, iDepth + 1);
      }
      continue;
    }
    // A union member: the branch its selector picks, when it has one.
    if (e->stSelector.iUnitSize == 0) continue;
    const long long iSelector = load_int(pszSel + e->stSelector.iHOff, e->stSelector.iUnitSize);
    int iBranch = -1;
    if (vix_get_entry_by_id(&iBranch, pstNested, static_cast<int>(iSelector)) != 0) continue;
    const VIXMETAENTRY* b = vix_get_entry_by_index(pstNested, iBranch);
    const VIXMETA* pstBranch = vix_get_entry_type_meta(b);
    if (pstBranch == nullptr) {
      fill_value(b, p + iOff);
    } else if (vix_get_meta_type(pstBranch) == VIX_TYPE_STRUCT) {
      fill_defaults(pstBranch, p + iOff, pszSel + iOff, iDepth + 1);
    }
  }
}

// Checks every count the configuration holds (category, filter, element counts) against its
// array: the reader checks only the arrays a file writes, and the library indexes by them.
// On a bad count, names its element path in pszPath (iPath bytes) and returns the code.
int check_counts(const VIXMETA* m, const char* p, int iDepth, char* pszPath, size_t iPath) {
  if (iDepth > kMaxDepth) return 0;
  const size_t iBase = strlen(pszPath);
  for (int k = 0; k < vix_get_entry_num(m); ++k) {
    const VIXMETAENTRY* e = vix_get_entry_by_index(m, k);
    const size_t iOff = static_cast<size_t>(vix_get_entry_offset(e));
    snprintf(pszPath + iBase, iPath - iBase, "%s%s", iBase > 0 ? "." : "", vix_get_entry_name(e));
    int iCount = vix_get_entry_count(e);
    if (e->stRefer.iUnitSize != 0) {
      const long long iRefer = load_int(p + e->stRefer.iHOff, e->stRefer.iUnitSize);
      if (iRefer < 0) return VIX_ERROR_MINUS_REFER_VALUE;
      if (iRefer > iCount) return VIX_ERROR_REFER_SURPASS_COUNT;
      iCount = static_cast<int>(iRefer);
    }
    const VIXMETA* pstNested = vix_get_entry_type_meta(e);
    if (pstNested == nullptr) continue;
    if (vix_get_meta_type(pstNested) == VIX_TYPE_STRUCT) {
      for (int i = 0; i < iCount; ++i) {
        const size_t iAt = iOff + static_cast<size_t>(i) * vix_get_entry_unitsize(e);
        const int iRet = check_counts(pstNested, p + iAt, iDepth + 1, pszPath, iPath);
        if (iRet != 0) return iRet;
      }
    } else if (e->stSelector.iUnitSize != 0) {
      const long long iSelector = load_int(p + e->stSelector.iHOff, e->stSelector.iUnitSize);
      int iBranch = -1;
      if (vix_get_entry_by_id(&iBranch, pstNested, static_cast<int>(iSelector)) != 0) continue;
      const VIXMETA* pstBranch =
          vix_get_entry_type_meta(vix_get_entry_by_index(pstNested, iBranch));
      if (pstBranch != nullptr && vix_get_meta_type(pstBranch) == VIX_TYPE_STRUCT) {
        const int iRet = check_counts(pstBranch, p + iOff, iDepth + 1, pszPath, iPath);
        if (iRet != 0) return iRet;
      }
    }
  }
  pszPath[iBase] = '\0';
  return 0;
}

void set_error(char* pszError, size_t iError, const char* pszFormat, const char* a, const char* b) {
  if (pszError != nullptr && iError > 0) snprintf(pszError, iError, pszFormat, a, b);
}

// "path:LINE: what (error 0x...)" from the reader's detail "; line N: what".
void scan_error(char* pszError, size_t iError, const char* pszPath, int iRet) {
  if (pszError == nullptr || iError == 0) return;
  const char* pszDetail = vix_get_error_detail();
  if (pszDetail == nullptr) pszDetail = "";
  static const char kLine[] = "; line ";
  char* pszEnd = nullptr;
  const long iLine = strncmp(pszDetail, kLine, sizeof(kLine) - 1) == 0
                         ? strtol(pszDetail + sizeof(kLine) - 1, &pszEnd, 10)
                         : 0;
  if (iLine > 0 && pszEnd != nullptr && strncmp(pszEnd, ": ", 2) == 0) {
    snprintf(pszError, iError, "%s:%ld: %s (error 0x%08x)", pszPath, iLine, pszEnd + 2,
             static_cast<unsigned>(iRet));
  } else {
    snprintf(pszError, iError, "%s: %s (error 0x%08x)", pszPath,
             strncmp(pszDetail, "; ", 2) == 0 ? pszDetail + 2 : pszDetail,
             static_cast<unsigned>(iRet));
  }
}

// Reads the whole file into a new buffer (*ppszText, *piLen bytes).
int read_file(const char* pszPath, char** ppszText, size_t* piLen, char* pszError, size_t iError) {
  FILE* fp = fopen(pszPath, "rb");
  if (fp == nullptr) {
    set_error(pszError, iError, "%s: cannot open: %s", pszPath, strerror(errno));
    return VIX_ERROR_OPEN_FILE_READ;
  }
  long iSize = -1;
  if (fseek(fp, 0, SEEK_END) == 0) iSize = ftell(fp);
  if (iSize < 0 || fseek(fp, 0, SEEK_SET) != 0) {
    set_error(pszError, iError, "%s: cannot read: %s", pszPath, strerror(errno));
    fclose(fp);
    return VIX_ERROR_READ_FILE;
  }
  if (iSize > kMaxConfText) {
    set_error(pszError, iError, "%s: %s", pszPath, "larger than 64 MiB");
    fclose(fp);
    return VIX_ERROR_FILE_TOO_LARGE;
  }
  char* pszText = static_cast<char*>(malloc(static_cast<size_t>(iSize) + 1));
  if (pszText == nullptr) {
    fclose(fp);
    set_error(pszError, iError, "%s: %s", pszPath, "out of memory");
    return VIX_ERROR_NO_MEMORY;
  }
  const size_t iRead = fread(pszText, 1, static_cast<size_t>(iSize), fp);
  const bool bFailed = ferror(fp) != 0;
  fclose(fp);
  if (bFailed) {
    free(pszText);
    set_error(pszError, iError, "%s: %s", pszPath, "read error");
    return VIX_ERROR_READ_FILE;
  }
  pszText[iRead] = '\0';
  *ppszText = pszText;
  *piLen = iRead;
  return 0;
}

}  // namespace

int wlog_conf_set_defaults(WLOGCONF* pstConf) {
  if (pstConf == nullptr) return -1;
  const VIXMETA* m = vix_get_meta_by_name(wlog_get_meta_data(), "WLOGCONF");
  if (m == nullptr) return -1;
  memset(pstConf, 0, sizeof(*pstConf));
  fill_defaults(m, reinterpret_cast<char*>(pstConf), reinterpret_cast<const char*>(pstConf), 0);
  return 0;
}

int wlog_conf_load(WLOGCONF** ppstConf, const char* pszPath, char* pszError, size_t iError) {
  if (pszError != nullptr && iError > 0) pszError[0] = '\0';
  if (ppstConf == nullptr || pszPath == nullptr) return -1;
  *ppstConf = nullptr;
  const VIXMETA* m = vix_get_meta_by_name(wlog_get_meta_data(), "WLOGCONF");
  if (m == nullptr) return -1;
  char* pszText = nullptr;
  size_t iLen = 0;
  int iRet = read_file(pszPath, &pszText, &iLen, pszError, iError);
  if (iRet != 0) return iRet;
  WLOGCONF* pstSel = static_cast<WLOGCONF*>(calloc(1, sizeof(WLOGCONF)));
  WLOGCONF* pstConf = static_cast<WLOGCONF*>(calloc(1, sizeof(WLOGCONF)));
  VIXPRINTFORMAT stFormat;
  iRet = pstSel == nullptr || pstConf == nullptr ? VIX_ERROR_NO_MEMORY
                                                 : vix_get_default_format(&stFormat);
  const VIXDATA stIn = {pszText, iLen};
  if (iRet == 0) {
    VIXDATA stHost = {reinterpret_cast<char*>(pstSel), sizeof(WLOGCONF)};
    iRet = vix_sscanf_ex(m, &stHost, &stIn, 0, &stFormat);
  }
  char szCount[256] = "";
  bool bCount = false;
  if (iRet == 0) {
    iRet = check_counts(m, reinterpret_cast<const char*>(pstSel), 0, szCount, sizeof(szCount));
    bCount = iRet != 0;
  }
  if (iRet == 0) {
    fill_defaults(m, reinterpret_cast<char*>(pstConf), reinterpret_cast<const char*>(pstSel), 0);
    VIXDATA stHost = {reinterpret_cast<char*>(pstConf), sizeof(WLOGCONF)};
    iRet = vix_sscanf_ex(m, &stHost, &stIn, 0, &stFormat);
  }
  if (iRet != 0) {
    if (bCount) {
      set_error(pszError, iError, "%s: the count of %s is outside its array", pszPath, szCount);
    } else if (iRet == VIX_ERROR_NO_MEMORY) {
      set_error(pszError, iError, "%s: %s", pszPath, "out of memory");
    } else {
      scan_error(pszError, iError, pszPath, iRet);
    }
    free(pstConf);
    pstConf = nullptr;
  }
  free(pstSel);
  free(pszText);
  *ppstConf = pstConf;
  return iRet;
}

void wlog_conf_free(WLOGCONF** ppstConf) {
  if (ppstConf == nullptr) return;
  free(*ppstConf);
  *ppstConf = nullptr;
}

int wlog_conf_save(const WLOGCONF* pstConf, const char* pszPath) {
  if (pstConf == nullptr || pszPath == nullptr) return -1;
  const VIXMETA* m = vix_get_meta_by_name(wlog_get_meta_data(), "WLOGCONF");
  if (m == nullptr) return -1;
  FILE* fp = fopen(pszPath, "wb");
  if (fp == nullptr) return VIX_ERROR_OPEN_FILE_WRITE;
  const VIXDATA stHost = {reinterpret_cast<char*>(const_cast<WLOGCONF*>(pstConf)),
                          sizeof(WLOGCONF)};
  int iRet = vix_fprintf(m, fp, &stHost, 0);
  if (iRet == 0 && fputc('\n', fp) == EOF) iRet = VIX_ERROR_WRITE_FILE;
  if (fclose(fp) != 0 && iRet == 0) iRet = VIX_ERROR_WRITE_FILE;
  return iRet;
}
