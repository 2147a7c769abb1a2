// Lookups in a library: metas by name, identifier and position; entries, union branches,
// macros, macro groups, indexes and keys; the accessors of their fields.
#include "vix/vix_metalib.h"
#include "vix_internal.h"

namespace {

const VIXMETA* meta_at_i(const VIXMETALIB* pstLib, VIXPTR ptr) {
  return vix_lib_at_i<VIXMETA>(pstLib, ptr);
}

const VIXMACRO* macro_at_i(const VIXMETALIB* pstLib, int iIdx) {
  return vix_lib_at_i<VIXMACRO>(pstLib, pstLib->ptrMacro + sizeof(VIXMACRO) * iIdx);
}

const VIXMACROSGROUP* group_at_i(const VIXMETALIB* pstLib, int iIdx) {
  const VIXMAPENTRY* pstMap =
      vix_lib_at_i<VIXMAPENTRY>(pstLib, pstLib->ptrMacroGroupMap + sizeof(VIXMAPENTRY) * iIdx);
  return vix_lib_at_i<VIXMACROSGROUP>(pstLib, pstMap->iPtr);
}

// A group handed out by a lookup knows its library only through the entry or library it came
// from, so group functions that need strings take the library.
const VIXMACRO* group_member_i(const VIXMETALIB* pstLib, VIXPTR ptrIdxMap, int iIdx) {
  const int32_t* piIdx = vix_lib_at_i<int32_t>(pstLib, ptrIdxMap);
  return macro_at_i(pstLib, piIdx[iIdx]);
}

// Byte-wise string order, inline: names differ within a few bytes, where a library call
// costs more than the comparison.
inline int name_cmp_i(const char* a, const char* b) {
  while (*a == *b && *a != '\0') {
    ++a;
    ++b;
  }
  return static_cast<unsigned char>(*a) - static_cast<unsigned char>(*b);
}

// Has the union branch a selector range?
inline bool has_range_i(const VIXMETAENTRY& e) { return e.iMinId <= e.iMaxId; }
inline bool in_range_i(const VIXMETAENTRY& e, int iID) {
  return iID >= e.iMinId && iID <= e.iMaxId;
}

// The branch of a union that selector value iID picks, or -1 for none (before the default).
int union_branch_i(const VIXMETAENTRY* e, int n, int iID) {
  // A direct hit: branches numbered consecutively from the first one's minimum.
  const int64_t k = static_cast<int64_t>(iID) - e[0].iMinId;
  if (k >= 0 && k < n && e[k].iMinId == iID && e[k].iMaxId >= iID) return static_cast<int>(k);
  if (n >= 16) {
    int lo = 0;
    int hi = n - 1;
    while (lo <= hi) {
      const int mid = lo + (hi - lo) / 2;
      if (!has_range_i(e[mid]) || iID > e[mid].iMaxId) {
        lo = mid + 1;
      } else if (iID < e[mid].iMinId) {
        hi = mid - 1;
      } else {
        return mid;
      }
    }
    return -1;
  }
  for (int i = 0; i < n; ++i) {
    if (in_range_i(e[i], iID)) return i;
  }
  return -1;
}

}  // namespace

/* ---- library ---- */

int vix_get_meta_num(const VIXMETALIB* pstLib) {
  return vix_lib_usable_i(pstLib) ? pstLib->iCurMetaNum : -1;
}

int vix_get_metalib_version(const VIXMETALIB* pstLib) {
  return vix_lib_usable_i(pstLib) ? pstLib->iVersion : -1;
}

int vix_get_metalib_build_version(const VIXMETALIB* pstLib) {
  return vix_lib_usable_i(pstLib) ? pstLib->nBuild : -1;
}

int vix_get_metalib_id(const VIXMETALIB* pstLib) {
  return vix_lib_usable_i(pstLib) ? pstLib->iID : -1;
}

const char* vix_get_metalib_name(const VIXMETALIB* pstLib) {
  return vix_lib_usable_i(pstLib) ? pstLib->szName : "";
}

// Both binary searches narrow [pstBase, pstBase + iLen) to the last row not above the key and
// prefetch what the next steps may read while the current comparison runs: by identifier the
// two rows of the next step; by name the two names of the next step and the four rows of the
// step after it. The search by identifier chooses the next half by arithmetic on the
// comparison (no jump to mispredict); the search by name keeps the jump, so the next string
// load can start speculatively.

const VIXMETA* vix_get_meta_by_name(const VIXMETALIB* pstLib, const char* pszName) {
  if (pszName == nullptr || !vix_lib_usable_i(pstLib)) return nullptr;
  size_t iLen = static_cast<size_t>(pstLib->iCurMetaNum);
  if (iLen == 0) return nullptr;
  const char* pszData = vix_lib_data_i(pstLib);
  const VIXNAMEENTRY* pstBase = vix_lib_at_i<VIXNAMEENTRY>(pstLib, pstLib->ptrName);
  while (iLen > 1) {
    const size_t iHalf = iLen / 2;
    __builtin_prefetch(pszData + pstBase[iHalf / 2].ptrName);
    __builtin_prefetch(pszData + pstBase[iHalf + iHalf / 2].ptrName);
    __builtin_prefetch(&pstBase[iHalf / 4]);
    __builtin_prefetch(&pstBase[iHalf / 2 + iHalf / 4]);
    __builtin_prefetch(&pstBase[iHalf + iHalf / 4]);
    __builtin_prefetch(&pstBase[iHalf + iHalf / 2 + iHalf / 4]);
    if (name_cmp_i(pszData + pstBase[iHalf].ptrName, pszName) <= 0) pstBase += iHalf;
    iLen -= iHalf;
  }
  if (strcmp(pszData + pstBase->ptrName, pszName) != 0) return nullptr;
  return meta_at_i(pstLib, pstBase->ptrMeta);
}

const VIXMETA* vix_get_meta_by_id(const VIXMETALIB* pstLib, int iID) {
  if (iID == -1 || !vix_lib_usable_i(pstLib)) return nullptr;
  size_t iLen = static_cast<size_t>(pstLib->iCurMetaNum);
  if (iLen == 0) return nullptr;
  const VIXIDENTRY* pstBase = vix_lib_at_i<VIXIDENTRY>(pstLib, pstLib->ptrID);
  while (iLen > 1) {
    const size_t iHalf = iLen / 2;
    __builtin_prefetch(&pstBase[iHalf / 2]);
    __builtin_prefetch(&pstBase[iHalf + iHalf / 2]);
    pstBase += (pstBase[iHalf].iID <= iID) * iHalf;
    iLen -= iHalf;
  }
  if (pstBase->iID != iID) return nullptr;
  return meta_at_i(pstLib, pstBase->ptrMeta);
}

const VIXMETA* vix_get_meta_by_index(const VIXMETALIB* pstLib, int iIdx) {
  if (!vix_lib_usable_i(pstLib) || iIdx < 0 || iIdx >= pstLib->iCurMetaNum) return nullptr;
  const VIXMAPENTRY* pstMap =
      vix_lib_at_i<VIXMAPENTRY>(pstLib, pstLib->ptrMap + sizeof(VIXMAPENTRY) * iIdx);
  return meta_at_i(pstLib, pstMap->iPtr);
}

const VIXMETA* vix_get_meta_by_name_linear_i(const VIXMETALIB* pstLib, const char* pszName) {
  for (int i = 0; i < pstLib->iCurMetaNum; ++i) {
    const VIXMETA* pstMeta = vix_get_meta_by_index(pstLib, i);
    if (strcmp(vix_lib_str_i(pstLib, pstMeta->ptrName), pszName) == 0) return pstMeta;
  }
  return nullptr;
}

const VIXMETALIB* vix_get_metalib_of_meta(const VIXMETA* pstMeta) {
  return pstMeta == nullptr ? nullptr : vix_lib_of_meta_i(pstMeta);
}

/* ---- meta ---- */

const char* vix_get_meta_name(const VIXMETA* pstMeta) {
  return pstMeta == nullptr ? "" : vix_meta_str_i(pstMeta, pstMeta->ptrName);
}
int vix_get_meta_id(const VIXMETA* pstMeta) { return pstMeta == nullptr ? -1 : pstMeta->iID; }
size_t vix_get_meta_size(const VIXMETA* pstMeta) {
  return pstMeta == nullptr ? 0 : static_cast<size_t>(pstMeta->iHUnitSize);
}
int vix_get_meta_type(const VIXMETA* pstMeta) { return pstMeta == nullptr ? -1 : pstMeta->iType; }
int vix_get_meta_based_version(const VIXMETA* pstMeta) {
  return pstMeta == nullptr ? -1 : pstMeta->iBaseVersion;
}
int vix_get_meta_current_version(const VIXMETA* pstMeta) {
  return pstMeta == nullptr ? -1 : pstMeta->iCurVersion;
}
const char* vix_get_meta_desc(const VIXMETA* pstMeta) {
  return pstMeta == nullptr ? "" : vix_meta_str_i(pstMeta, pstMeta->ptrDesc);
}
const char* vix_get_meta_customattr(const VIXMETA* pstMeta) {
  return pstMeta == nullptr ? "" : vix_meta_str_i(pstMeta, pstMeta->ptrCustomAttr);
}
const char* vix_get_meta_customattr2(const VIXMETA* pstMeta) {
  return pstMeta == nullptr ? "" : vix_meta_str_i(pstMeta, pstMeta->ptrCustomAttr2);
}
int vix_get_entry_num(const VIXMETA* pstMeta) {
  return pstMeta == nullptr ? -1 : pstMeta->iEntriesNum;
}
int vix_get_max_id_of_meta_entries(const VIXMETA* pstMeta) {
  return pstMeta == nullptr ? -1 : pstMeta->iMaxSubID;
}

int vix_get_meta_primarykey(const VIXDBKEYINFO** ppstKeys, int* piNum, const VIXMETA* pstMeta) {
  if (ppstKeys == nullptr || piNum == nullptr || pstMeta == nullptr) return VIX_ERROR_INVALID_PARAM;
  *piNum = pstMeta->nPrimayKeyMemberNum;
  *ppstKeys =
      *piNum > 0 ? vix_lib_at_i<VIXDBKEYINFO>(vix_lib_of_meta_i(pstMeta), pstMeta->ptrPrimayKeyBase)
                 : nullptr;
  return 0;
}

int vix_get_meta_splittablekey(const VIXDBKEYINFO** ppstKeys, int* piNum, const VIXMETA* pstMeta) {
  if (ppstKeys == nullptr || piNum == nullptr || pstMeta == nullptr) return VIX_ERROR_INVALID_PARAM;
  const bool bHas = pstMeta->stSplitTableKey.ptrEntry != VIX_PTR_NONE;
  *piNum = bHas ? 1 : 0;
  *ppstKeys = bHas ? &pstMeta->stSplitTableKey : nullptr;
  return 0;
}

/* ---- entries ---- */

const VIXMETAENTRY* vix_get_entry_by_index(const VIXMETA* pstMeta, int iIdx) {
  if (pstMeta == nullptr || iIdx < 0 || iIdx >= pstMeta->iEntriesNum) return nullptr;
  return vix_meta_entries_i(pstMeta) + iIdx;
}

int vix_get_entry_by_name(int* piIdx, const VIXMETA* pstMeta, const char* pszName) {
  if (piIdx == nullptr || pstMeta == nullptr || pszName == nullptr) return VIX_ERROR_INVALID_PARAM;
  if (pstMeta->iEntriesNum <= 0) return VIX_ERROR_INVALID_PARAM;
  const VIXMETALIB* pstLib = vix_lib_of_meta_i(pstMeta);
  const VIXMETAENTRY* e = vix_meta_entries_i(pstMeta);
  for (int i = 0; i < pstMeta->iEntriesNum; ++i) {
    if (strcmp(vix_lib_str_i(pstLib, e[i].ptrName), pszName) == 0) {
      *piIdx = i;
      return 0;
    }
  }
  *piIdx = -1;
  return -1;
}

int vix_get_entry_by_id(int* piIdx, const VIXMETA* pstMeta, int iID) {
  if (piIdx == nullptr || pstMeta == nullptr) return VIX_ERROR_INVALID_PARAM;
  const VIXMETAENTRY* e = vix_meta_entries_i(pstMeta);
  const int n = pstMeta->iEntriesNum;
  if (pstMeta->iType == VIX_TYPE_STRUCT) {
    for (int i = 0; i < n; ++i) {
      if ((e[i].wFlag & VIX_ENTRY_FLAG_HAS_ID) != 0 && e[i].iID == iID) {
        *piIdx = i;
        return 0;
      }
    }
    *piIdx = -1;
    return -1;
  }
  if (n <= 0) {
    *piIdx = -1;
    return -1;
  }
  const int iDefault = has_range_i(e[0]) ? -1 : 0;
  const int iHit = union_branch_i(e, n, iID);
  *piIdx = iHit >= 0 ? iHit : iDefault;
  return *piIdx >= 0 ? 0 : -1;
}

int vix_get_entry_id(const VIXMETAENTRY* pstEntry) {
  return pstEntry == nullptr ? -1 : pstEntry->iID;
}
const char* vix_get_entry_name(const VIXMETAENTRY* pstEntry) {
  return pstEntry == nullptr ? "" : vix_entry_str_i(pstEntry, pstEntry->ptrName);
}
const char* vix_get_entry_cname(const VIXMETAENTRY* pstEntry) {
  return pstEntry == nullptr ? "" : vix_entry_str_i(pstEntry, pstEntry->ptrChineseName);
}
const char* vix_get_entry_desc(const VIXMETAENTRY* pstEntry) {
  return pstEntry == nullptr ? "" : vix_entry_str_i(pstEntry, pstEntry->ptrDesc);
}
int vix_get_entry_type(const VIXMETAENTRY* pstEntry) {
  return pstEntry == nullptr ? -1 : pstEntry->iType;
}
int vix_get_entry_count(const VIXMETAENTRY* pstEntry) {
  return pstEntry == nullptr ? -1 : pstEntry->iCount;
}
size_t vix_get_entry_unitsize(const VIXMETAENTRY* pstEntry) {
  return pstEntry == nullptr ? 0 : static_cast<size_t>(pstEntry->iHUnitSize);
}
int vix_get_entry_version(const VIXMETAENTRY* pstEntry) {
  return pstEntry == nullptr ? -1 : pstEntry->iVersion;
}
VIXOFF vix_get_entry_offset(const VIXMETAENTRY* pstEntry) {
  return pstEntry == nullptr ? -1 : pstEntry->iHOff;
}
const VIXMETAENTRY* vix_get_entry_refer(const VIXMETAENTRY* pstEntry) {
  if (pstEntry == nullptr || pstEntry->stRefer.ptrEntry == VIX_PTR_NONE) return nullptr;
  return vix_lib_at_i<VIXMETAENTRY>(vix_lib_of_entry_i(pstEntry), pstEntry->stRefer.ptrEntry);
}
const VIXMETAENTRY* vix_get_entry_select(const VIXMETAENTRY* pstEntry) {
  if (pstEntry == nullptr || pstEntry->stSelector.ptrEntry == VIX_PTR_NONE) return nullptr;
  return vix_lib_at_i<VIXMETAENTRY>(vix_lib_of_entry_i(pstEntry), pstEntry->stSelector.ptrEntry);
}
const VIXMACROSGROUP* vix_get_entry_macrosgroup(const VIXMETAENTRY* pstEntry) {
  if (pstEntry == nullptr || pstEntry->ptrMacrosGroup == VIX_PTR_NONE) return nullptr;
  return vix_lib_at_i<VIXMACROSGROUP>(vix_lib_of_entry_i(pstEntry), pstEntry->ptrMacrosGroup);
}
const char* vix_get_entry_customattr(const VIXMETAENTRY* pstEntry) {
  return pstEntry == nullptr ? "" : vix_entry_str_i(pstEntry, pstEntry->ptrCustomAttr);
}
const char* vix_get_entry_customattr2(const VIXMETAENTRY* pstEntry) {
  return pstEntry == nullptr ? "" : vix_entry_str_i(pstEntry, pstEntry->ptrCustomAttr2);
}
const char* vix_get_entry_defaultvalue(const VIXMETAENTRY* pstEntry, size_t* piLen) {
  if (pstEntry == nullptr) {
    if (piLen != nullptr) *piLen = 0;
    return "";
  }
  const bool bHas = pstEntry->ptrDefaultVal != VIX_PTR_NONE;
  if (piLen != nullptr) *piLen = bHas ? static_cast<size_t>(pstEntry->iDefaultValLen) : 0;
  return vix_entry_str_i(pstEntry, pstEntry->ptrDefaultVal);
}
const VIXMETA* vix_get_entry_type_meta(const VIXMETAENTRY* pstEntry) {
  if (pstEntry == nullptr || !vix_type_is_composite_i(pstEntry->iType)) return nullptr;
  return meta_at_i(vix_lib_of_entry_i(pstEntry), pstEntry->ptrMeta);
}
const VIXMETA* vix_get_meta_of_entry(const VIXMETAENTRY* pstEntry) {
  return pstEntry == nullptr ? nullptr : vix_meta_of_entry_i(pstEntry);
}

/* ---- macros ---- */

const VIXMACRO* vix_get_macro_by_name(const VIXMETALIB* pstLib, const char* pszName) {
  if (pszName == nullptr || !vix_lib_usable_i(pstLib)) return nullptr;
  for (int i = 0; i < pstLib->iCurMacroNum; ++i) {
    const VIXMACRO* pstMacro = macro_at_i(pstLib, i);
    if (strcmp(vix_lib_str_i(pstLib, pstMacro->ptrMacro), pszName) == 0) return pstMacro;
  }
  return nullptr;
}

int vix_get_macro_value(int* piValue, const VIXMETALIB* pstLib, const char* pszName) {
  if (piValue == nullptr || pstLib == nullptr || pszName == nullptr) {
    return VIX_ERROR_INVALID_PARAM;
  }
  if (!vix_lib_usable_i(pstLib)) return VIX_ERROR_BUILD_VERSION;
  const VIXMACRO* pstMacro = vix_get_macro_by_name(pstLib, pszName);
  if (pstMacro == nullptr) return VIX_ERROR_MACRO_UNDEFINED;
  *piValue = pstMacro->iValue;
  return 0;
}

const char* vix_get_macro_name_by_value(const VIXMETALIB* pstLib, int iValue) {
  if (!vix_lib_usable_i(pstLib)) return nullptr;
  for (int i = 0; i < pstLib->iCurMacroNum; ++i) {
    const VIXMACRO* pstMacro = macro_at_i(pstLib, i);
    if (pstMacro->iValue == iValue) return vix_lib_str_i(pstLib, pstMacro->ptrMacro);
  }
  return nullptr;
}

int vix_get_metalib_macro_num(const VIXMETALIB* pstLib) {
  return vix_lib_usable_i(pstLib) ? pstLib->iCurMacroNum : -1;
}

const VIXMACRO* vix_get_metalib_macro_by_index(const VIXMETALIB* pstLib, int iIdx) {
  if (!vix_lib_usable_i(pstLib) || iIdx < 0 || iIdx >= pstLib->iCurMacroNum) return nullptr;
  return macro_at_i(pstLib, iIdx);
}

const char* vix_get_macro_name_by_ptr(const VIXMETALIB* pstLib, const VIXMACRO* pstMacro) {
  if (pstMacro == nullptr || !vix_lib_usable_i(pstLib)) return "";
  return vix_lib_str_i(pstLib, pstMacro->ptrMacro);
}

const char* vix_get_macro_desc_by_ptr(const VIXMETALIB* pstLib, const VIXMACRO* pstMacro) {
  if (pstMacro == nullptr || !vix_lib_usable_i(pstLib)) return "";
  return vix_lib_str_i(pstLib, pstMacro->ptrDesc);
}

int vix_get_macro_value_by_ptr(int* piValue, const VIXMACRO* pstMacro) {
  if (piValue == nullptr || pstMacro == nullptr) return VIX_ERROR_INVALID_PARAM;
  *piValue = pstMacro->iValue;
  return 0;
}

const VIXMACROSGROUP* vix_get_macro_macrosgroup(const VIXMETALIB* pstLib,
                                                const VIXMACRO* pstMacro) {
  if (pstMacro == nullptr || !vix_lib_usable_i(pstLib)) return nullptr;
  const VIXMACRO* pstFirst = macro_at_i(pstLib, 0);
  if (pstMacro < pstFirst || pstMacro >= pstFirst + pstLib->iCurMacroNum) return nullptr;
  const int32_t iMacro = static_cast<int32_t>(pstMacro - pstFirst);
  for (int g = 0; g < pstLib->iCurMacrosGroupNum; ++g) {
    const VIXMACROSGROUP* pstGroup = group_at_i(pstLib, g);
    for (int k = 0; k < pstGroup->iCurMacroCount; ++k) {
      if (vix_lib_at_i<int32_t>(pstLib, pstGroup->ptrValueIdxMap)[k] == iMacro) return pstGroup;
    }
  }
  return nullptr;
}

/* ---- macro groups ---- */

int vix_get_macrosgroup_num(const VIXMETALIB* pstLib) {
  return vix_lib_usable_i(pstLib) ? pstLib->iCurMacrosGroupNum : -1;
}

const VIXMACROSGROUP* vix_get_macrosgroup_by_index(const VIXMETALIB* pstLib, int iIdx) {
  if (!vix_lib_usable_i(pstLib) || iIdx < 0 || iIdx >= pstLib->iCurMacrosGroupNum) return nullptr;
  return group_at_i(pstLib, iIdx);
}

const VIXMACROSGROUP* vix_get_macrosgroup_by_name(const VIXMETALIB* pstLib, const char* pszName) {
  if (pszName == nullptr || !vix_lib_usable_i(pstLib)) return nullptr;
  for (int g = 0; g < pstLib->iCurMacrosGroupNum; ++g) {
    const VIXMACROSGROUP* pstGroup = group_at_i(pstLib, g);
    if (strcmp(pstGroup->szName, pszName) == 0) return pstGroup;
  }
  return nullptr;
}

const char* vix_get_macrosgroup_name(const VIXMACROSGROUP* pstGroup) {
  return pstGroup == nullptr ? "" : pstGroup->szName;
}

int vix_get_macrosgroup_macro_num(const VIXMACROSGROUP* pstGroup) {
  return pstGroup == nullptr ? -1 : pstGroup->iCurMacroCount;
}

const VIXMACRO* vix_get_macrosgroup_macro_by_index(const VIXMETALIB* pstLib,
                                                   const VIXMACROSGROUP* pstGroup, int iIdx) {
  if (pstGroup == nullptr || !vix_lib_usable_i(pstLib) || iIdx < 0 ||
      iIdx >= pstGroup->iCurMacroCount) {
    return nullptr;
  }
  return group_member_i(pstLib, pstGroup->ptrValueIdxMap, iIdx);
}

const VIXMACRO* vix_get_bindmacro_by_name(const VIXMETAENTRY* pstEntry, const char* pszName) {
  const VIXMACROSGROUP* pstGroup = vix_get_entry_macrosgroup(pstEntry);
  if (pstGroup == nullptr || pszName == nullptr) return nullptr;
  const VIXMETALIB* pstLib = vix_lib_of_entry_i(pstEntry);
  int lo = 0;
  int hi = pstGroup->iCurMacroCount - 1;
  while (lo <= hi) {
    const int mid = lo + (hi - lo) / 2;
    const VIXMACRO* pstMacro = group_member_i(pstLib, pstGroup->ptrNameIdxMap, mid);
    const int iCmp = strcmp(vix_lib_str_i(pstLib, pstMacro->ptrMacro), pszName);
    if (iCmp == 0) return pstMacro;
    if (iCmp < 0) {
      lo = mid + 1;
    } else {
      hi = mid - 1;
    }
  }
  return nullptr;
}

const VIXMACRO* vix_get_bindmacro_by_value(const VIXMETAENTRY* pstEntry, int iValue) {
  const VIXMACROSGROUP* pstGroup = vix_get_entry_macrosgroup(pstEntry);
  if (pstGroup == nullptr) return nullptr;
  const VIXMETALIB* pstLib = vix_lib_of_entry_i(pstEntry);
  // Lower bound, so that of equal values the first in value order wins.
  int lo = 0;
  int iLen = pstGroup->iCurMacroCount;
  while (iLen > 0) {
    const int iHalf = iLen / 2;
    if (group_member_i(pstLib, pstGroup->ptrValueIdxMap, lo + iHalf)->iValue < iValue) {
      lo += iHalf + 1;
      iLen -= iHalf + 1;
    } else {
      iLen = iHalf;
    }
  }
  if (lo >= pstGroup->iCurMacroCount) return nullptr;
  const VIXMACRO* pstMacro = group_member_i(pstLib, pstGroup->ptrValueIdxMap, lo);
  return pstMacro->iValue == iValue ? pstMacro : nullptr;
}

/* ---- indexes ---- */

namespace {

const VIXMETAINDEX* index_at_i(const VIXMETA* pstMeta, int iIdx) {
  return vix_lib_at_i<VIXMETAINDEX>(vix_lib_of_meta_i(pstMeta),
                                    pstMeta->ptrIndexes + sizeof(VIXMETAINDEX) * iIdx);
}

const VIXMETA* meta_of_index_i(const VIXMETAINDEX* pstIndex) {
  return reinterpret_cast<const VIXMETA*>(reinterpret_cast<const char*>(pstIndex) -
                                          pstIndex->iOffToMeta);
}

const char* index_attr_i(const VIXMETAINDEX* pstIndex, uint32_t dwSlot) {
  if (dwSlot == 0) return "";
  const VIXMETALIB* pstLib = vix_lib_of_meta_i(meta_of_index_i(pstIndex));
  return vix_lib_data_i(pstLib) + pstLib->ptrStrBuf + (dwSlot - 1);
}

}  // namespace

const VIXMETAINDEX* vix_get_index_by_name(const VIXMETA* pstMeta, const char* pszName) {
  if (pstMeta == nullptr || pszName == nullptr) return nullptr;
  for (int i = 0; i < pstMeta->iIndexesNum; ++i) {
    const VIXMETAINDEX* pstIndex = index_at_i(pstMeta, i);
    if (strcmp(vix_meta_str_i(pstMeta, pstIndex->ptrName), pszName) == 0) return pstIndex;
  }
  return nullptr;
}

const VIXMETAINDEX* vix_get_index_by_id(const VIXMETA* pstMeta, int iID) {
  if (pstMeta == nullptr) return nullptr;
  for (int i = 0; i < pstMeta->iIndexesNum; ++i) {
    const VIXMETAINDEX* pstIndex = index_at_i(pstMeta, i);
    if (pstIndex->iID == iID) return pstIndex;
  }
  return nullptr;
}

int vix_get_index_id(const VIXMETAINDEX* pstIndex) {
  return pstIndex == nullptr ? -1 : pstIndex->iID;
}

const char* vix_get_index_name(const VIXMETAINDEX* pstIndex) {
  return pstIndex == nullptr ? "" : vix_meta_str_i(meta_of_index_i(pstIndex), pstIndex->ptrName);
}

const char* vix_get_index_customattr(const VIXMETAINDEX* pstIndex) {
  return pstIndex == nullptr ? "" : index_attr_i(pstIndex, pstIndex->dwCustomAttr);
}

const char* vix_get_index_customattr2(const VIXMETAINDEX* pstIndex) {
  return pstIndex == nullptr ? "" : index_attr_i(pstIndex, pstIndex->dwCustomAttr2);
}

int vix_get_index_columns(const VIXDBKEYINFO** ppstColumns, int* piNum,
                          const VIXMETAINDEX* pstIndex) {
  if (ppstColumns == nullptr || piNum == nullptr || pstIndex == nullptr) {
    return VIX_ERROR_INVALID_PARAM;
  }
  *piNum = pstIndex->iColumnNum;
  *ppstColumns = *piNum > 0
                     ? vix_lib_at_i<VIXDBKEYINFO>(vix_lib_of_meta_i(meta_of_index_i(pstIndex)),
                                                  pstIndex->ptrColumnBase)
                     : nullptr;
  return 0;
}
