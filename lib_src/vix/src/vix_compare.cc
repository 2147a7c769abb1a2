// Comparing an older and a newer description of the same records: equivalent layouts,
// compatible extensions (additions at higher versions, old offsets kept), or incompatible.
#include <algorithm>
#include <map>
#include <new>
#include <utility>

#include "vix/vix_metalib.h"
#include "vix_internal.h"

namespace {

class Comparer {
 public:
  // Nested metas are compared once per pair, so a wide nesting graph stays linear.
  int metas(const VIXMETA* a, const VIXMETA* b) {
    const auto key = std::make_pair(a, b);
    auto it = memo_.find(key);
    if (it != memo_.end()) return it->second;
    const int v = metas_uncached(a, b);
    memo_[key] = v;
    return v;
  }

 private:
  static bool same_str(const VIXMETALIB* la, VIXPTR pa, const VIXMETALIB* lb, VIXPTR pb) {
    return strcmp(vix_lib_str_i(la, pa), vix_lib_str_i(lb, pb)) == 0;
  }

  static bool same_selector(const VIXSELECTOR& a, const VIXSELECTOR& b) {
    return a.iUnitSize == b.iUnitSize && (a.iUnitSize == 0 || a.iHOff == b.iHOff);
  }

  static bool same_size_info(const VIXSIZEINFO& a, const VIXSIZEINFO& b) {
    return a.iUnitSize == b.iUnitSize && a.iHOff == b.iHOff && a.iNOff == b.iNOff &&
           a.idxSizeType == b.idxSizeType;
  }

  int entries(const VIXMETAENTRY* a, const VIXMETAENTRY* b) {
    const VIXMETALIB* la = vix_lib_of_entry_i(a);
    const VIXMETALIB* lb = vix_lib_of_entry_i(b);
    if (!same_str(la, a->ptrName, lb, b->ptrName) || a->iType != b->iType ||
        a->iVersion != b->iVersion || a->iCount != b->iCount || a->iHOff != b->iHOff ||
        a->iNOff != b->iNOff || a->wFlag != b->wFlag ||
        a->iCustomHUnitSize != b->iCustomHUnitSize ||
        ((a->wFlag & VIX_ENTRY_FLAG_HAS_ID) != 0 && a->iID != b->iID) || a->iMinId != b->iMinId ||
        a->iMaxId != b->iMaxId || !same_selector(a->stRefer, b->stRefer) ||
        !same_selector(a->stSelector, b->stSelector) ||
        !same_size_info(a->stSizeInfo, b->stSizeInfo)) {
      return VIX_XML_UNCOMPATIBLE;
    }
    const bool bSameUnits = a->iHUnitSize == b->iHUnitSize && a->iNUnitSize == b->iNUnitSize;
    if (!vix_type_is_composite_i(a->iType))
      return bSameUnits ? VIX_XML_EQUIVALENT : VIX_XML_UNCOMPATIBLE;
    const VIXMETA* ma = vix_get_entry_type_meta(a);
    const VIXMETA* mb = vix_get_entry_type_meta(b);
    if (!same_str(la, ma->ptrName, lb, mb->ptrName)) return VIX_XML_UNCOMPATIBLE;
    const int v = metas(ma, mb);
    if (v == VIX_XML_UNCOMPATIBLE) return v;
    if (bSameUnits) return v;
    // A grown nested record keeps the old offsets only as a single, last-placed element; the
    // offsets of any member after it are compared on their own.
    return (v == VIX_XML_COMPATIBLE && a->iCount == 1 && b->iHUnitSize >= a->iHUnitSize &&
            b->iNUnitSize >= a->iNUnitSize)
               ? VIX_XML_COMPATIBLE
               : VIX_XML_UNCOMPATIBLE;
  }

  int metas_uncached(const VIXMETA* a, const VIXMETA* b) {
    if (a->iType != b->iType || a->iID != b->iID || a->iBaseVersion != b->iBaseVersion ||
        b->iEntriesNum < a->iEntriesNum || b->iCurVersion < a->iCurVersion ||
        a->iCustomAlign != b->iCustomAlign || a->iValidAlign != b->iValidAlign ||
        !same_size_info(a->stSizeType, b->stSizeType) ||
        a->stVersionIndicator.iUnitSize != b->stVersionIndicator.iUnitSize ||
        a->stVersionIndicator.iHOff != b->stVersionIndicator.iHOff ||
        a->stVersionIndicator.iNOff != b->stVersionIndicator.iNOff) {
      return VIX_XML_UNCOMPATIBLE;
    }
    int iVerdict = VIX_XML_EQUIVALENT;
    const VIXMETAENTRY* ea = vix_meta_entries_i(a);
    const VIXMETAENTRY* eb = vix_meta_entries_i(b);
    for (int i = 0; i < a->iEntriesNum; ++i) {
      const int v = entries(ea + i, eb + i);
      if (v == VIX_XML_UNCOMPATIBLE) return v;
      iVerdict = std::max(iVerdict, v);
    }
    for (int i = a->iEntriesNum; i < b->iEntriesNum; ++i) {
      if (eb[i].iVersion <= a->iCurVersion) return VIX_XML_UNCOMPATIBLE;
      iVerdict = VIX_XML_COMPATIBLE;
    }
    const bool bSameSizes = a->iHUnitSize == b->iHUnitSize && a->iNUnitSize == b->iNUnitSize &&
                            a->iCustomHUnitSize == b->iCustomHUnitSize;
    if (iVerdict == VIX_XML_EQUIVALENT) {
      if (!bSameSizes) return VIX_XML_UNCOMPATIBLE;
      return a->iCurVersion == b->iCurVersion ? VIX_XML_EQUIVALENT : VIX_XML_COMPATIBLE;
    }
    return (b->iHUnitSize >= a->iHUnitSize && b->iNUnitSize >= a->iNUnitSize)
               ? VIX_XML_COMPATIBLE
               : VIX_XML_UNCOMPATIBLE;
  }

  std::map<std::pair<const VIXMETA*, const VIXMETA*>, int> memo_;
};

int compare_libs_i(const VIXMETALIB* pstOld, const VIXMETALIB* pstNew) {
  Comparer stCmp;
  int iVerdict = VIX_XML_EQUIVALENT;
  for (int i = 0; i < pstOld->iCurMetaNum; ++i) {
    const VIXMETA* a = vix_get_meta_by_index(pstOld, i);
    const VIXMETA* b = vix_get_meta_by_name(pstNew, vix_get_meta_name(a));
    if (b == nullptr) return VIX_XML_UNCOMPATIBLE;
    const int v = stCmp.metas(a, b);
    if (v == VIX_XML_UNCOMPATIBLE) return v;
    iVerdict = std::max(iVerdict, v);
  }
  for (int i = 0; i < pstNew->iCurMetaNum; ++i) {
    const VIXMETA* b = vix_get_meta_by_index(pstNew, i);
    if (vix_get_meta_by_name(pstOld, vix_get_meta_name(b)) != nullptr) continue;
    if (b->iBaseVersion <= pstOld->iVersion) return VIX_XML_UNCOMPATIBLE;
    iVerdict = VIX_XML_COMPATIBLE;
  }
  if (pstNew->iVersion < pstOld->iVersion) return VIX_XML_UNCOMPATIBLE;
  if (pstNew->iVersion > pstOld->iVersion) iVerdict = VIX_XML_COMPATIBLE;
  return iVerdict;
}

}  // namespace

int vix_compare_metalib(const VIXMETALIB* pstOld, const VIXMETALIB* pstNew) {
  if (pstOld == nullptr || pstNew == nullptr || !vix_lib_usable_i(pstOld) ||
      !vix_lib_usable_i(pstNew)) {
    return VIX_ERROR_INVALID_PARAM;
  }
  try {
    return compare_libs_i(pstOld, pstNew);
  } catch (const std::bad_alloc&) {
    return VIX_ERROR_NO_MEMORY;
  }
}

int vix_compare_meta(const VIXMETA* pstOld, const VIXMETA* pstNew) {
  if (pstOld == nullptr || pstNew == nullptr) return VIX_ERROR_INVALID_PARAM;
  try {
    Comparer stCmp;
    return stCmp.metas(pstOld, pstNew);
  } catch (const std::bad_alloc&) {
    return VIX_ERROR_NO_MEMORY;
  }
}
