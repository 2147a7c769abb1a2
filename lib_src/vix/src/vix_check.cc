// The load-time block check: a library file is untrusted, so before anything reads a loaded
// block every area, count, record, reference and size in it is checked against the block.
// What passes can be searched without further checks: every reference lands on a record of
// the kind it names, every string is terminated inside the string buffer, every member lies
// inside its meta's instance, and composite members nest at most VIX_MAX_NESTING deep (no
// cycles).
//
// Records must sit at 8-byte aligned offsets (4 for the macro-group index arrays) so that
// they can be read in place. Sorted-table order is not checked: the binary searches stay in
// range whatever the order, an unsorted table only makes them miss. Union branches are members
// like any other (their bytes inside the union's instance); their selector ranges need no
// check, as branch selection only compares them and bounds every index it computes.
#include <stdarg.h>
#include <stdio.h>

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

#include "vix/vix_metalib.h"
#include "vix_internal.h"

namespace {

// Largest size or offset accepted for a record instance or a member.
constexpr uint64_t kMaxInstance = 0x7FFFFFFF;

class LibChecker {
 public:
  LibChecker(const VIXMETALIB* pstLib, uint64_t iAvail) : lib_(pstLib), avail_(iAvail) {}

  int run() {
    if (!header() || !macros() || !metaMap() || !groups() || !tables()) return fail_code();
    for (size_t i = 0; i < metas_.size(); ++i) {
      if (!meta(static_cast<int>(i))) return fail_code();
    }
    if (!nesting()) return fail_code();
    return 0;
  }

 private:
  struct MetaSpan {
    uint64_t iStart;
    uint64_t iEnd;
    int iIdx;
  };

  int fail_code() const { return VIX_ERROR_BAD_METALIB_FILE; }

  bool fail(const char* pszFormat, ...) VIX_PRINTF_LIKE(2, 3) {
    char szText[256];
    va_list ap;
    va_start(ap, pszFormat);
    vsnprintf(szText, sizeof(szText), pszFormat, ap);
    va_end(ap);
    vix_set_error_detail_i("; invalid metalib: %s", szText);
    return false;
  }

  // [iOff, iOff + iLen) inside the data block.
  bool in_data(uint64_t iOff, uint64_t iLen) const { return iOff <= size_ && iLen <= size_ - iOff; }
  // [iOff, iOff + iLen) inside [iBegin, iEnd).
  static bool in_range(uint64_t iOff, uint64_t iLen, uint64_t iBegin, uint64_t iEnd) {
    return iOff >= iBegin && iOff <= iEnd && iLen <= iEnd - iOff;
  }
  template <typename T>
  const T* at(uint64_t iOff) const {
    return reinterpret_cast<const T*>(data_ + iOff);
  }

  // A string reference: absent (when allowed) or inside the string buffer, whose last byte is
  // a NUL, so the string ends inside it.
  bool str(VIXPTR ptr, bool bRequired, const char* pszWhat, int iMeta = -1, int iEntry = -1) {
    if (ptr == VIX_PTR_NONE && !bRequired) return true;
    if (ptr >= strBegin_ && ptr < strEnd_) return true;
    return fail("string reference %s of meta %d entry %d out of the string buffer", pszWhat, iMeta,
                iEntry);
  }

  bool macro_idx(int32_t idx, const char* pszWhat, int iMeta, int iEntry) {
    if (idx >= -1 && idx < lib_->iCurMacroNum) return true;
    return fail("macro index %s=%d of meta %d entry %d", pszWhat, idx, iMeta, iEntry);
  }

  static bool type_idx(int32_t idx, bool bNone) {
    return (bNone && idx == -1) || (idx >= 0 && idx < VIX_TYPE_TABLE_ROWS);
  }

  // The meta that starts at ptr, or -1.
  int meta_at(VIXPTR ptr) const {
    auto it = std::lower_bound(spans_.begin(), spans_.end(), ptr,
                               [](const MetaSpan& s, uint64_t p) { return s.iStart < p; });
    return (it != spans_.end() && it->iStart == ptr) ? it->iIdx : -1;
  }

  // Is ptr the start of an entry of some meta?
  bool entry_at(VIXPTR ptr) const {
    auto it = std::upper_bound(spans_.begin(), spans_.end(), ptr,
                               [](uint64_t p, const MetaSpan& s) { return p < s.iStart; });
    if (it == spans_.begin()) return false;
    --it;
    const uint64_t iRel = ptr - it->iStart;
    if (iRel < sizeof(VIXMETA) || (iRel - sizeof(VIXMETA)) % sizeof(VIXMETAENTRY) != 0) {
      return false;
    }
    const VIXMETA* pstMeta = metas_[it->iIdx];
    return (iRel - sizeof(VIXMETA)) / sizeof(VIXMETAENTRY) <
           static_cast<uint64_t>(pstMeta->iEntriesNum);
  }

  bool group_at(VIXPTR ptr) const {
    return std::binary_search(groups_.begin(), groups_.end(), ptr);
  }

  bool header() {
    if (avail_ < sizeof(VIXMETALIB) || lib_->iSize < sizeof(VIXMETALIB) || lib_->iSize > avail_) {
      return fail("block of %llu bytes", static_cast<unsigned long long>(lib_->iSize));
    }
    data_ = vix_lib_data_i(lib_);
    size_ = lib_->iSize - sizeof(VIXMETALIB);
    const VIXMETALIB& h = *lib_;
    if (h.iMaxMetaNum < 0 || h.iCurMetaNum < 0 || h.iCurMetaNum > h.iMaxMetaNum ||
        h.iMaxMacroNum < 0 || h.iCurMacroNum < 0 || h.iCurMacroNum > h.iMaxMacroNum ||
        h.iMaxMacrosGroupNum < 0 || h.iCurMacrosGroupNum < 0 ||
        h.iCurMacrosGroupNum > h.iMaxMacrosGroupNum || h.iMaxValFieldDefNum < 0 ||
        h.iCurValFieldDefNum < 0 || h.iCurValFieldDefNum > h.iMaxValFieldDefNum) {
      return fail("counts or capacities");
    }
    const uint64_t m = static_cast<uint64_t>(h.iMaxMacroNum);
    const uint64_t n = static_cast<uint64_t>(h.iMaxMetaNum);
    const uint64_t g = static_cast<uint64_t>(h.iMaxMacrosGroupNum);
    if (h.ptrMacro != 0 || h.ptrID != sizeof(VIXMACRO) * m ||
        h.ptrName != h.ptrID + sizeof(VIXIDENTRY) * n ||
        h.ptrMap != h.ptrName + sizeof(VIXNAMEENTRY) * n ||
        h.ptrMeta != h.ptrMap + sizeof(VIXMAPENTRY) * n || h.ptrMeta > size_) {
      return fail("table areas");
    }
    if (!(h.ptrMeta <= h.ptrLaseMeta && h.ptrLaseMeta <= h.ptrStrBuf &&
          h.ptrStrBuf <= h.ptrFreeStrBuf && h.ptrFreeStrBuf <= h.ptrMacroGroupMap &&
          h.ptrMacroGroupMap <= size_ &&
          h.iFreeStrBufSize == h.ptrMacroGroupMap - h.ptrFreeStrBuf)) {
      return fail("meta area and string buffer");
    }
    if (!in_data(h.ptrMacroGroupMap, sizeof(VIXMAPENTRY) * g) ||
        h.ptrMacrosGroup != h.ptrMacroGroupMap + sizeof(VIXMAPENTRY) * g ||
        !in_data(h.ptrMacrosGroup, h.iMacrosGroupSize) || (g > 0 && h.ptrMacroGroupMap % 8 != 0)) {
      return fail("macro-group areas");
    }
    if ((h.ptrValueFiledDefinitionsMap != VIX_PTR_NONE && h.ptrValueFiledDefinitionsMap > size_) ||
        (h.ptrValueFiledDefinitions != VIX_PTR_NONE &&
         !in_data(h.ptrValueFiledDefinitions, h.iValueFiledDefinitionsSize))) {
      return fail("value-field definitions");
    }
    strBegin_ = h.ptrStrBuf;
    strEnd_ = h.ptrMacroGroupMap;
    if (strEnd_ > strBegin_ && data_[strEnd_ - 1] != '\0')
      return fail("unterminated string buffer");
    return true;
  }

  bool macros() {
    for (int i = 0; i < lib_->iCurMacroNum; ++i) {
      const VIXMACRO* p = at<VIXMACRO>(lib_->ptrMacro + sizeof(VIXMACRO) * i);
      if (!str(p->ptrMacro, true, "macro name", -1, i) || !str(p->ptrDesc, false, "macro desc")) {
        return false;
      }
    }
    return true;
  }

  // Places every meta of the definition map and checks that they do not overlap.
  bool metaMap() {
    const int n = lib_->iCurMetaNum;
    metas_.resize(n);
    spans_.resize(n);
    for (int i = 0; i < n; ++i) {
      const VIXMAPENTRY* pstMap = at<VIXMAPENTRY>(lib_->ptrMap + sizeof(VIXMAPENTRY) * i);
      const uint64_t iStart = pstMap->iPtr;
      if (!in_range(iStart, sizeof(VIXMETA), lib_->ptrMeta, lib_->ptrLaseMeta) || iStart % 8 != 0) {
        return fail("meta %d placed outside the meta area", i);
      }
      const VIXMETA* pstMeta = at<VIXMETA>(iStart);
      if (pstMeta->ptrMeta != iStart || pstMeta->iIdx != i || pstMeta->iEntriesNum < 0 ||
          pstMeta->iMemSize < sizeof(VIXMETA) ||
          !in_range(iStart, pstMeta->iMemSize, lib_->ptrMeta, lib_->ptrLaseMeta) ||
          static_cast<uint64_t>(pstMeta->iEntriesNum) >
              (pstMeta->iMemSize - sizeof(VIXMETA)) / sizeof(VIXMETAENTRY)) {
        return fail("meta %d header", i);
      }
      metas_[i] = pstMeta;
      spans_[i] = MetaSpan{iStart, iStart + pstMeta->iMemSize, i};
    }
    std::sort(spans_.begin(), spans_.end(),
              [](const MetaSpan& a, const MetaSpan& b) { return a.iStart < b.iStart; });
    for (size_t i = 1; i < spans_.size(); ++i) {
      if (spans_[i - 1].iEnd > spans_[i].iStart) return fail("metas overlap");
    }
    return true;
  }

  bool groups() {
    const uint64_t iAreaEnd = lib_->ptrMacrosGroup + lib_->iMacrosGroupSize;
    for (int i = 0; i < lib_->iCurMacrosGroupNum; ++i) {
      const VIXMAPENTRY* pstMap = at<VIXMAPENTRY>(lib_->ptrMacroGroupMap + sizeof(VIXMAPENTRY) * i);
      if (!in_range(pstMap->iPtr, sizeof(VIXMACROSGROUP), lib_->ptrMacrosGroup, iAreaEnd) ||
          pstMap->iPtr % 8 != 0) {
        return fail("macro group %d placed outside its area", i);
      }
      const VIXMACROSGROUP* g = at<VIXMACROSGROUP>(pstMap->iPtr);
      if (g->iCurMacroCount < 0 || g->iCurMacroCount > g->iMaxMacroCount ||
          memchr(g->szName, '\0', sizeof(g->szName)) == nullptr ||
          !str(g->ptrDesc, false, "macro group desc")) {
        return fail("macro group %d record", i);
      }
      const uint64_t iBytes = sizeof(int32_t) * static_cast<uint64_t>(g->iCurMacroCount);
      for (VIXPTR ptrIdx : {g->ptrNameIdxMap, g->ptrValueIdxMap}) {
        if (g->iCurMacroCount == 0) continue;
        if (!in_range(ptrIdx, iBytes, lib_->ptrMacrosGroup, iAreaEnd) || ptrIdx % 4 != 0) {
          return fail("macro group %d index array", i);
        }
        const int32_t* piIdx = at<int32_t>(ptrIdx);
        for (int k = 0; k < g->iCurMacroCount; ++k) {
          if (piIdx[k] < 0 || piIdx[k] >= lib_->iCurMacroNum) {
            return fail("macro group %d member %d", i, k);
          }
        }
      }
      groups_.push_back(pstMap->iPtr);
    }
    std::sort(groups_.begin(), groups_.end());
    return true;
  }

  bool tables() {
    for (int i = 0; i < lib_->iCurMetaNum; ++i) {
      const VIXIDENTRY* pstId = at<VIXIDENTRY>(lib_->ptrID + sizeof(VIXIDENTRY) * i);
      const int iById = meta_at(pstId->ptrMeta);
      if (iById < 0 || metas_[iById]->iID != pstId->iID) return fail("ID table row %d", i);
      const VIXNAMEENTRY* pstName = at<VIXNAMEENTRY>(lib_->ptrName + sizeof(VIXNAMEENTRY) * i);
      if (!str(pstName->ptrName, true, "name table")) return false;
      const int iByName = meta_at(pstName->ptrMeta);
      if (iByName < 0 || !str(metas_[iByName]->ptrName, true, "meta name", iByName) ||
          strcmp(data_ + pstName->ptrName, data_ + metas_[iByName]->ptrName) != 0) {
        return fail("name table row %d", i);
      }
    }
    return true;
  }

  // A run of iNum records of iWidth bytes at ptr inside the meta [iStart, iEnd).
  static bool array_in_meta(VIXPTR ptr, int64_t iNum, uint64_t iWidth, uint64_t iStart,
                            uint64_t iEnd) {
    return iNum >= 0 && ptr % 8 == 0 &&
           in_range(ptr, iWidth * static_cast<uint64_t>(iNum), iStart, iEnd);
  }

  // An offset range [iOff, iOff + iLen) inside an instance of iSize bytes.
  static bool in_instance(int64_t iOff, uint64_t iLen, uint64_t iSize) {
    return iOff >= 0 && static_cast<uint64_t>(iOff) <= iSize &&
           iLen <= iSize - static_cast<uint64_t>(iOff);
  }

  static bool unit_ok(uint64_t iUnit) {
    return iUnit == 0 || iUnit == 1 || iUnit == 2 || iUnit == 4 || iUnit == 8;
  }

  bool key(const VIXDBKEYINFO& k, const VIXMETA* m) const {
    if (k.ptrEntry == VIX_PTR_NONE) return true;
    return entry_at(k.ptrEntry) && in_instance(k.iHOff, 0, m->iHUnitSize);
  }

  bool size_info(const VIXSIZEINFO& s, const VIXMETA* m) const {
    if (!unit_ok(s.iUnitSize) || !type_idx(s.idxSizeType, true)) return false;
    if (s.iUnitSize == 0) return true;
    return (s.iHOff == -1 || in_instance(s.iHOff, s.iUnitSize, m->iHUnitSize)) &&
           (s.iNOff == -1 || in_instance(s.iNOff, s.iUnitSize, m->iNUnitSize));
  }

  bool selector(const VIXSELECTOR& s, const VIXMETA* m) const {
    if (s.ptrEntry != VIX_PTR_NONE && !entry_at(s.ptrEntry)) return false;
    if (s.iUnitSize == 0) return true;
    return unit_ok(s.iUnitSize) && in_instance(s.iHOff, s.iUnitSize, m->iHUnitSize);
  }

  // A custom-attribute slot of an index: 0, or 1 + an offset into the string buffer.
  bool index_attr(uint32_t dwSlot) const {
    return dwSlot == 0 || dwSlot - 1u < strEnd_ - strBegin_;
  }

  bool meta(int i) {
    const VIXMETA* m = metas_[i];
    const uint64_t iStart = m->ptrMeta;
    const uint64_t iEnd = iStart + m->iMemSize;
    if ((m->iType != VIX_TYPE_UNION && m->iType != VIX_TYPE_STRUCT) ||
        !type_idx(m->idxType, true) || m->iHUnitSize > kMaxInstance ||
        m->iNUnitSize > kMaxInstance || m->iCustomHUnitSize > kMaxInstance) {
      return fail("meta %d type or sizes", i);
    }
    if (!str(m->ptrName, true, "name", i) || !str(m->ptrDesc, false, "desc", i) ||
        !str(m->ptrChineseName, false, "cname", i) || !str(m->ptrCustomAttr, false, "attr", i) ||
        !str(m->ptrCustomAttr2, false, "attr2", i)) {
      return false;
    }
    if (!macro_idx(m->idxCustomHUnitSize, "size", i, -1) || !macro_idx(m->idxID, "id", i, -1) ||
        !macro_idx(m->idxVersion, "version", i, -1) ||
        !macro_idx(m->idxSplitTableFactor, "split", i, -1)) {
      return false;
    }
    if (m->iIndexesNum < 0 ||
        (m->iIndexesNum > 0 &&
         !array_in_meta(m->ptrIndexes, m->iIndexesNum, sizeof(VIXMETAINDEX), iStart, iEnd))) {
      return fail("meta %d indexes", i);
    }
    for (int k = 0; k < m->iIndexesNum; ++k) {
      const VIXPTR ptrIndex = m->ptrIndexes + sizeof(VIXMETAINDEX) * k;
      const VIXMETAINDEX* x = at<VIXMETAINDEX>(ptrIndex);
      if (x->iOffToMeta != ptrIndex - iStart || !str(x->ptrName, false, "index name", i) ||
          !str(x->ptrDesc, false, "index desc", i) ||
          !str(x->ptrChineseName, false, "index cname", i) || !index_attr(x->dwCustomAttr) ||
          !index_attr(x->dwCustomAttr2) || !macro_idx(x->idxID, "index id", i, -1) ||
          (x->iColumnNum != 0 &&
           !array_in_meta(x->ptrColumnBase, x->iColumnNum, sizeof(VIXDBKEYINFO), iStart, iEnd)) ||
          x->iColumnNum < 0) {
        return fail("meta %d index %d", i, k);
      }
      for (int c = 0; c < x->iColumnNum; ++c) {
        if (!key(at<VIXDBKEYINFO>(x->ptrColumnBase)[c], m)) {
          return fail("meta %d index %d column %d", i, k, c);
        }
      }
    }
    if (m->ptrColumns != VIX_PTR_NONE && !in_range(m->ptrColumns, 0, iStart, iEnd)) {
      return fail("meta %d column table", i);
    }
    if (m->nPrimayKeyMemberNum < 0 ||
        (m->nPrimayKeyMemberNum > 0 && !array_in_meta(m->ptrPrimayKeyBase, m->nPrimayKeyMemberNum,
                                                      sizeof(VIXDBKEYINFO), iStart, iEnd))) {
      return fail("meta %d primary key", i);
    }
    for (int k = 0; k < m->nPrimayKeyMemberNum; ++k) {
      if (!key(at<VIXDBKEYINFO>(m->ptrPrimayKeyBase)[k], m)) return fail("meta %d key %d", i, k);
    }
    if (!key(m->stSplitTableKey, m)) return fail("meta %d split-table key", i);
    if (m->stSortKey.ptrSortKeyMeta != VIX_PTR_NONE) {
      const int iSortMeta = meta_at(m->stSortKey.ptrSortKeyMeta);
      if (iSortMeta < 0 || m->stSortKey.idxSortEntry < -1 ||
          m->stSortKey.idxSortEntry >= metas_[iSortMeta]->iEntriesNum ||
          !in_instance(m->stSortKey.iSortKeyOff, 0, m->iHUnitSize)) {
        return fail("meta %d sort key", i);
      }
    }
    if (m->ptrDependonStruct != VIX_PTR_NONE && meta_at(m->ptrDependonStruct) < 0) {
      return fail("meta %d depends on no meta", i);
    }
    if (!size_info(m->stSizeType, m)) return fail("meta %d size type", i);
    const VIXREDIRECTOR& v = m->stVersionIndicator;
    if (!unit_ok(v.iUnitSize) ||
        (v.iUnitSize > 0 && (!in_instance(v.iHOff, v.iUnitSize, m->iHUnitSize) ||
                             !in_instance(v.iNOff, v.iUnitSize, m->iNUnitSize)))) {
      return fail("meta %d version indicator", i);
    }
    const VIXMETAENTRY* e = vix_meta_entries_i(m);
    for (int j = 0; j < m->iEntriesNum; ++j) {
      if (!entry(m, i, e + j, j)) return false;
    }
    return true;
  }

  bool entry(const VIXMETA* m, int i, const VIXMETAENTRY* e, int j) {
    if (e->iOffToMeta != sizeof(VIXMETA) + sizeof(VIXMETAENTRY) * static_cast<uint64_t>(j) ||
        !type_idx(e->iType, false) || !type_idx(e->idxType, true) || e->iCount < 0 ||
        e->iHUnitSize > kMaxInstance || e->iNUnitSize > kMaxInstance ||
        e->iCustomHUnitSize > kMaxInstance) {
      return fail("meta %d entry %d type, count or sizes", i, j);
    }
    const uint64_t iCount = static_cast<uint64_t>(e->iCount);
    if (e->iHRealSize != e->iHUnitSize * iCount || e->iNRealSize != e->iNUnitSize * iCount ||
        !in_instance(e->iHOff, e->iHRealSize, m->iHUnitSize) ||
        !in_instance(e->iNOff, e->iNRealSize, m->iNUnitSize)) {
      return fail("meta %d entry %d outside its meta", i, j);
    }
    if (vix_type_is_composite_i(e->iType)) {
      const int iNested = meta_at(e->ptrMeta);
      if (iNested < 0 || metas_[iNested]->iHUnitSize > e->iHUnitSize ||
          metas_[iNested]->iNUnitSize > e->iNUnitSize) {
        return fail("meta %d entry %d composite type", i, j);
      }
    } else {
      const uint64_t iTypeSize = static_cast<uint64_t>(vix_idx_to_typeinfo(e->iType)->iSize);
      if (e->iHUnitSize < iTypeSize || e->iNUnitSize < iTypeSize) {
        return fail("meta %d entry %d smaller than its type", i, j);
      }
    }
    if (!str(e->ptrName, true, "name", i, j) || !str(e->ptrDesc, false, "desc", i, j) ||
        !str(e->ptrChineseName, false, "cname", i, j) ||
        !str(e->ptrCustomAttr, false, "attr", i, j) ||
        !str(e->ptrCustomAttr2, false, "attr2", i, j) ||
        !str(e->ptrDefaultVal, false, "default", i, j)) {
      return false;
    }
    if (e->ptrDefaultVal != VIX_PTR_NONE && e->iDefaultValLen > strEnd_ - e->ptrDefaultVal) {
      return fail("meta %d entry %d default value length", i, j);
    }
    if (e->ptrMacrosGroup != VIX_PTR_NONE && !group_at(e->ptrMacrosGroup)) {
      return fail("meta %d entry %d macro group", i, j);
    }
    if (!size_info(e->stSizeInfo, m)) return fail("meta %d entry %d size info", i, j);
    if (!selector(e->stRefer, m) || !selector(e->stSelector, m)) {
      return fail("meta %d entry %d refer or selector", i, j);
    }
    return macro_idx(e->idxID, "id", i, j) && macro_idx(e->idxVersion, "version", i, j) &&
           macro_idx(e->idxCount, "count", i, j) &&
           macro_idx(e->idxCustomHUnitSize, "size", i, j) &&
           macro_idx(e->iMaxIdIdx, "max id", i, j) && macro_idx(e->iMinIdIdx, "min id", i, j) &&
           macro_idx(e->idxIO, "io", i, j);
  }

  // Layers of nesting below meta i (1 for a meta without composite members), or -1 when it
  // exceeds VIX_MAX_NESTING at iLevel, which also catches cycles.
  int depth(int i, int iLevel) {
    if (iLevel > VIX_MAX_NESTING) return -1;
    if (depth_[i] != 0) return depth_[i];
    int iDepth = 1;
    const VIXMETAENTRY* e = vix_meta_entries_i(metas_[i]);
    for (int j = 0; j < metas_[i]->iEntriesNum; ++j) {
      if (!vix_type_is_composite_i(e[j].iType)) continue;
      const int d = depth(meta_at(e[j].ptrMeta), iLevel + 1);
      if (d < 0) return -1;
      iDepth = std::max(iDepth, d + 1);
    }
    if (iDepth > VIX_MAX_NESTING) return -1;
    depth_[i] = iDepth;
    return iDepth;
  }

  bool nesting() {
    depth_.assign(metas_.size(), 0);
    for (size_t i = 0; i < metas_.size(); ++i) {
      if (depth(static_cast<int>(i), 1) < 0) {
        return fail("meta %zu nests more than %d layers or contains itself", i, VIX_MAX_NESTING);
      }
    }
    return true;
  }

  const VIXMETALIB* lib_;
  uint64_t avail_;
  const char* data_ = nullptr;
  uint64_t size_ = 0;
  uint64_t strBegin_ = 0;
  uint64_t strEnd_ = 0;
  std::vector<const VIXMETA*> metas_;  // by definition index
  std::vector<MetaSpan> spans_;        // by start
  std::vector<uint64_t> groups_;       // group starts, sorted
  std::vector<int> depth_;
};

}  // namespace

int vix_check_lib_i(const VIXMETALIB* pstLib, uint64_t iAvail) {
  // The vectors allocate; a library too large to index is refused like a broken one.
  try {
    LibChecker stChecker(pstLib, iAvail);
    return stChecker.run();
  } catch (const std::bad_alloc&) {
    return VIX_ERROR_NO_MEMORY;
  }
}
