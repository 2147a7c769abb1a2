// Member paths ("hdr.items[3].id") and offsets: from a path to its entry and offsets, from an
// offset back to a path, and size descriptions.
#include <ctype.h>
#include <stdio.h>

#include "vix/vix_metalib.h"
#include "vix_internal.h"

namespace {

bool is_ident_char_i(char ch) { return isalnum(static_cast<unsigned char>(ch)) || ch == '_'; }

// The entry of pstMeta named by the iLen bytes at pszName, or null.
const VIXMETAENTRY* find_entry_i(const VIXMETA* pstMeta, const char* pszName, size_t iLen) {
  const VIXMETALIB* pstLib = vix_lib_of_meta_i(pstMeta);
  const VIXMETAENTRY* e = vix_meta_entries_i(pstMeta);
  for (int i = 0; i < pstMeta->iEntriesNum; ++i) {
    const char* pszEntry = vix_lib_str_i(pstLib, e[i].ptrName);
    if (strncmp(pszEntry, pszName, iLen) == 0 && pszEntry[iLen] == '\0') return &e[i];
  }
  return nullptr;
}

// The entry of pstMeta whose host bytes hold iOff, or null.
const VIXMETAENTRY* entry_at_off_i(const VIXMETA* pstMeta, uint64_t iOff) {
  const VIXMETAENTRY* e = vix_meta_entries_i(pstMeta);
  for (int i = 0; i < pstMeta->iEntriesNum; ++i) {
    const uint64_t iStart = static_cast<uint64_t>(e[i].iHOff);
    if (iOff >= iStart && iOff - iStart < e[i].iHRealSize) return &e[i];
  }
  return nullptr;
}

}  // namespace

bool vix_is_identifier_i(const char* pszName) {
  if (pszName == nullptr || pszName[0] == '\0' || isdigit(static_cast<unsigned char>(pszName[0]))) {
    return false;
  }
  for (const char* p = pszName; *p != '\0'; ++p) {
    if (!is_ident_char_i(*p)) return false;
  }
  return true;
}

int vix_follow_path_i(VIXPATHHIT* pstHit, const VIXMETA* pstMeta, const char* pszPath) {
  if (pstHit == nullptr || pstMeta == nullptr || pszPath == nullptr) return VIX_ERROR_INVALID_PARAM;
  const VIXMETA* pstCur = pstMeta;
  VIXPATHHIT stHit = {nullptr, 0, 0, 0};
  const char* p = pszPath;
  for (int iStep = 0;; ++iStep) {
    if (iStep >= VIX_MAX_NESTING) return VIX_ERROR_PATH_TOO_LONG;
    const char* pszName = p;
    if (isdigit(static_cast<unsigned char>(*p))) return VIX_ERROR_BAD_ENTRY_PATH;
    while (is_ident_char_i(*p)) ++p;
    if (p == pszName) return VIX_ERROR_BAD_ENTRY_PATH;
    const VIXMETAENTRY* e = find_entry_i(pstCur, pszName, static_cast<size_t>(p - pszName));
    if (e == nullptr) return VIX_ERROR_ENTRY_NOT_FOUND;
    stHit.pstEntry = e;
    stHit.iHOff += e->iHOff;
    stHit.iNOff += e->iNOff;
    stHit.iIndexed = 0;
    if (*p == '[') {
      ++p;
      int64_t iElem = 0;
      int iDigits = 0;
      for (; isdigit(static_cast<unsigned char>(*p)) && iDigits < 10; ++p, ++iDigits) {
        iElem = iElem * 10 + (*p - '0');
      }
      if (iDigits == 0 || *p != ']') return VIX_ERROR_BAD_ENTRY_PATH;
      ++p;
      if (iElem >= e->iCount) return VIX_ERROR_ARRAY_INDEX_OUT;
      stHit.iHOff += iElem * static_cast<int64_t>(e->iHUnitSize);
      stHit.iNOff += iElem * static_cast<int64_t>(e->iNUnitSize);
      stHit.iIndexed = 1;
    }
    if (*p == '\0') break;
    if (*p != '.') return VIX_ERROR_BAD_ENTRY_PATH;
    if (!vix_type_is_composite_i(e->iType)) return VIX_ERROR_ENTRY_NOT_COMPOSITE;
    pstCur = vix_get_entry_type_meta(e);
    ++p;
  }
  *pstHit = stHit;
  return 0;
}

const VIXMETAENTRY* vix_get_entry_by_path(const VIXMETA* pstMeta, const char* pszPath) {
  VIXPATHHIT stHit;
  return vix_follow_path_i(&stHit, pstMeta, pszPath) == 0 ? stHit.pstEntry : nullptr;
}

int vix_entry_path_to_off(const VIXMETA* pstMeta, const VIXMETAENTRY** ppstEntry, VIXOFF* piHOff,
                          const char* pszPath) {
  VIXPATHHIT stHit;
  const int iRet = vix_follow_path_i(&stHit, pstMeta, pszPath);
  if (iRet != 0) return iRet;
  if (ppstEntry != nullptr) *ppstEntry = stHit.pstEntry;
  if (piHOff != nullptr) *piHOff = stHit.iHOff;
  return 0;
}

int vix_entry_off_to_path(const VIXMETA* pstMeta, VIXOFF iHOff, char* pszBuff, size_t iBuff) {
  if (pstMeta == nullptr || pszBuff == nullptr || iBuff == 0) return VIX_ERROR_INVALID_PARAM;
  pszBuff[0] = '\0';
  if (iHOff < 0 || static_cast<uint64_t>(iHOff) >= pstMeta->iHUnitSize) {
    return VIX_ERROR_OFFSET_NOT_FOUND;
  }
  const VIXMETA* pstCur = pstMeta;
  uint64_t iRem = static_cast<uint64_t>(iHOff);
  size_t iPos = 0;
  // Composite members nest at most VIX_MAX_NESTING deep, so the loop ends.
  for (int iStep = 0; iStep < VIX_MAX_NESTING; ++iStep) {
    const VIXMETAENTRY* e = entry_at_off_i(pstCur, iRem);
    if (e == nullptr) {
      if (iStep == 0) return VIX_ERROR_OFFSET_NOT_FOUND;
      break;  // padding of a nested record: the record's own path
    }
    const uint64_t iInside = iRem - static_cast<uint64_t>(e->iHOff);
    const uint64_t iElem = iInside / e->iHUnitSize;
    int n;
    if (e->iCount == 1) {
      n = snprintf(pszBuff + iPos, iBuff - iPos, "%s%s", iStep == 0 ? "" : ".",
                   vix_get_entry_name(e));
    } else {
      n = snprintf(pszBuff + iPos, iBuff - iPos, "%s%s[%llu]", iStep == 0 ? "" : ".",
                   vix_get_entry_name(e), static_cast<unsigned long long>(iElem));
    }
    if (n < 0 || static_cast<size_t>(n) >= iBuff - iPos) {
      pszBuff[0] = '\0';
      return VIX_ERROR_OUT_BUF_TOO_SMALL;
    }
    iPos += static_cast<size_t>(n);
    if (!vix_type_is_composite_i(e->iType)) break;
    iRem = iInside % e->iHUnitSize;
    pstCur = vix_get_entry_type_meta(e);
  }
  return 0;
}

int vix_sizeinfo_to_off(VIXSIZEINFO* pstSizeInfo, const VIXMETA* pstMeta, const char* pszSpec) {
  if (pstSizeInfo == nullptr || pstMeta == nullptr || pszSpec == nullptr) {
    return VIX_ERROR_INVALID_PARAM;
  }
  VIXSIZEINFO stInfo;
  memset(&stInfo, 0, sizeof(stInfo));
  const int iType = vix_typename_to_idx(pszSpec);
  if (iType >= 0) {
    // A size prefix of the type's width written before the member.
    if (!vix_type_is_integer(iType)) return VIX_ERROR_BAD_SIZEINFO;
    stInfo.iNOff = -1;
    stInfo.iHOff = -1;
    stInfo.iUnitSize = static_cast<uint64_t>(vix_idx_to_typeinfo(iType)->iSize);
    stInfo.idxSizeType = iType;
  } else {
    VIXPATHHIT stHit;
    if (vix_follow_path_i(&stHit, pstMeta, pszSpec) != 0) return VIX_ERROR_BAD_SIZEINFO;
    const VIXMETAENTRY* e = stHit.pstEntry;
    if (!vix_type_is_integer(e->iType) || (e->iCount != 1 && !stHit.iIndexed) ||
        e->iHUnitSize != static_cast<uint64_t>(vix_idx_to_typeinfo(e->iType)->iSize)) {
      return VIX_ERROR_BAD_SIZEINFO;
    }
    stInfo.iNOff = stHit.iNOff;
    stInfo.iHOff = stHit.iHOff;
    stInfo.iUnitSize = e->iHUnitSize;
    stInfo.idxSizeType = e->iType;
  }
  *pstSizeInfo = stInfo;
  return 0;
}
