// Writing libraries. A LibWriter adds macros, groups, metas, entries, indexes and keys to one
// laid-out block, settling every check and the room before it writes anything. The builder
// wraps a writer: over the caller's block, or over a block of its own, in which case it keeps a
// log of the calls that succeeded; when the block is full it lays out a larger one and replays
// the log into it, and at the end replays it once more into a block of exactly the size used.
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <initializer_list>
#include <new>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "vix/vix_builder.h"
#include "vix_internal.h"

namespace {

constexpr uint64_t kMaxInstance = 0x7FFFFFFF;
// A failed room check; the growing builder enlarges its block on exactly this code.
constexpr int kNoRoom = VIX_ERROR_LIB_PARAM;

uint64_t round_up_i(uint64_t v, uint64_t a) { return (v + a - 1) / a * a; }

bool has_text_i(const char* psz) { return psz != nullptr && psz[0] != '\0'; }
uint64_t text_bytes_i(const char* psz) { return has_text_i(psz) ? strlen(psz) + 1 : 0; }

int fail_i(int iCode, const char* pszFormat, ...) VIX_PRINTF_LIKE(2, 3);
int fail_i(int iCode, const char* pszFormat, ...) {
  char szText[512];
  va_list ap;
  va_start(ap, pszFormat);
  vsnprintf(szText, sizeof(szText), pszFormat, ap);
  va_end(ap);
  vix_set_error_detail_i("; %s", szText);
  return iCode;
}

// A member reached by a path while building, checked as a count, selector or size source.
struct IntMember {
  VIXPATHHIT stHit;
  uint64_t iUnit;
};

class LibWriter {
 public:
  explicit LibWriter(LPVIXMETALIB pstLib) : lib_(pstLib) {}

  LPVIXMETALIB lib() const { return lib_; }
  bool meta_open() const { return open_ >= 0; }

  int add_macro(const char* pszName, int iValue, const char* pszDesc) {
    int iRet = check_name(pszName, "macro");
    if (iRet != 0) return iRet;
    if (macros_.count(pszName) != 0) {
      return fail_i(VIX_ERROR_DUP_MACRO_NAME, "macro<%s> is defined twice", pszName);
    }
    if (lib_->iCurMacroNum >= lib_->iMaxMacroNum) {
      return fail_i(kNoRoom, "no room for macro<%s>: %d macros", pszName, lib_->iMaxMacroNum);
    }
    if ((iRet = room_for_texts({pszName, pszDesc})) != 0) return iRet;
    VIXMACRO* m = at<VIXMACRO>(lib_->ptrMacro + sizeof(VIXMACRO) * lib_->iCurMacroNum);
    memset(m, 0, sizeof(*m));
    m->ptrMacro = put_text(pszName);
    m->iValue = iValue;
    m->ptrDesc = put_text(pszDesc);
    macros_.emplace(pszName, lib_->iCurMacroNum);
    ++lib_->iCurMacroNum;
    return 0;
  }

  int add_group(const char* pszName, const char* pszDesc, const char* const* ppszMacros, int iNum) {
    int iRet = check_name(pszName, "macro group");
    if (iRet != 0) return iRet;
    if (strlen(pszName) >= VIX_NAME_LEN) {
      return fail_i(VIX_ERROR_NAME_TOO_LONG, "macro group name<%s> exceeds %d bytes", pszName,
                    VIX_NAME_LEN - 1);
    }
    if (groups_.count(pszName) != 0) {
      return fail_i(VIX_ERROR_DUP_GROUP_NAME, "macro group<%s> is defined twice", pszName);
    }
    if (iNum < 0 || (iNum > 0 && ppszMacros == nullptr)) {
      return fail_i(VIX_ERROR_INVALID_PARAM, "macro group<%s>: %d members", pszName, iNum);
    }
    std::vector<int32_t> aiMembers;
    std::unordered_set<int32_t> stSeen;
    for (int i = 0; i < iNum; ++i) {
      auto it = ppszMacros[i] == nullptr ? macros_.end() : macros_.find(ppszMacros[i]);
      if (it == macros_.end()) {
        return fail_i(VIX_ERROR_MACRO_UNDEFINED, "macro group<%s>: member %d is no macro", pszName,
                      i);
      }
      if (!stSeen.insert(it->second).second) {
        return fail_i(VIX_ERROR_INVALID_PARAM, "macro group<%s>: macro<%s> listed twice", pszName,
                      ppszMacros[i]);
      }
      aiMembers.push_back(it->second);
    }
    const uint64_t iBytes = VIX_GROUP_AREA_BYTES(iNum);
    if (lib_->iCurMacrosGroupNum >= lib_->iMaxMacrosGroupNum ||
        iBytes > lib_->iMacrosGroupSize - groupUsed_) {
      return fail_i(kNoRoom, "no room for macro group<%s>", pszName);
    }
    if ((iRet = room_for_texts({pszDesc})) != 0) return iRet;

    const VIXPTR ptrGroup = lib_->ptrMacrosGroup + groupUsed_;
    VIXMACROSGROUP* g = at<VIXMACROSGROUP>(ptrGroup);
    memset(g, 0, iBytes);
    g->iCurMacroCount = iNum;
    g->iMaxMacroCount = iNum;
    g->ptrDesc = put_text(pszDesc);
    memcpy(g->szName, pszName, strlen(pszName) + 1);
    g->ptrNameIdxMap = ptrGroup + sizeof(VIXMACROSGROUP);
    g->ptrValueIdxMap = g->ptrNameIdxMap + sizeof(int32_t) * static_cast<uint64_t>(iNum);
    std::vector<int32_t> aiByName = aiMembers;
    std::sort(aiByName.begin(), aiByName.end(),
              [this](int32_t a, int32_t b) { return strcmp(macro_name(a), macro_name(b)) < 0; });
    std::vector<int32_t> aiByValue = aiMembers;
    std::stable_sort(aiByValue.begin(), aiByValue.end(),
                     [this](int32_t a, int32_t b) { return macro(a)->iValue < macro(b)->iValue; });
    if (iNum > 0) {
      memcpy(at<char>(g->ptrNameIdxMap), aiByName.data(), sizeof(int32_t) * aiByName.size());
      memcpy(at<char>(g->ptrValueIdxMap), aiByValue.data(), sizeof(int32_t) * aiByValue.size());
    }
    VIXMAPENTRY* pstMap =
        at<VIXMAPENTRY>(lib_->ptrMacroGroupMap + sizeof(VIXMAPENTRY) * lib_->iCurMacrosGroupNum);
    pstMap->iPtr = ptrGroup;
    pstMap->iSize = iBytes;
    groups_.emplace(pszName, ptrGroup);
    groupUsed_ += iBytes;
    ++lib_->iCurMacrosGroupNum;
    return 0;
  }

  int begin_meta(const VIXMETADESC& d) {
    if (open_ >= 0) {
      return fail_i(VIX_ERROR_META_NOT_FINISHED, "meta<%s> is still open", name_of(open_meta()));
    }
    int iRet = check_name(d.pszName, "meta");
    if (iRet != 0) return iRet;
    if (d.iType != VIX_TYPE_STRUCT && d.iType != VIX_TYPE_UNION) {
      return fail_i(VIX_ERROR_BAD_META_TYPE, "meta<%s>: type %d", d.pszName, d.iType);
    }
    if (metaNames_.count(d.pszName) != 0) {
      return fail_i(VIX_ERROR_DUP_META_NAME, "meta<%s> is defined twice", d.pszName);
    }
    if (d.iID != -1 && metaIds_.count(d.iID) != 0) {
      return fail_i(VIX_ERROR_DUP_META_ID, "meta<%s>: id %d is taken", d.pszName, d.iID);
    }
    if (d.iCustomAlign != 0 && (d.iCustomAlign < 0 || d.iCustomAlign > 64 ||
                                (d.iCustomAlign & (d.iCustomAlign - 1)) != 0)) {
      return fail_i(VIX_ERROR_BAD_ALIGN, "meta<%s>: alignment %d", d.pszName, d.iCustomAlign);
    }
    if (d.iBaseVersion < 0 || (d.iCurVersion != 0 && d.iCurVersion < d.iBaseVersion)) {
      return fail_i(VIX_ERROR_BAD_VERSION, "meta<%s>: versions %d..%d", d.pszName, d.iBaseVersion,
                    d.iCurVersion);
    }
    VIXPTR ptrDepend = VIX_PTR_NONE;
    if (has_text_i(d.pszDependOn)) {
      const VIXMETA* pstDep = vix_get_meta_by_name_linear_i(lib_, d.pszDependOn);
      if (pstDep == nullptr) {
        return fail_i(VIX_ERROR_DEPEND_META_NOT_FOUND, "meta<%s> depends on unknown meta<%s>",
                      d.pszName, d.pszDependOn);
      }
      ptrDepend = pstDep->ptrMeta;
    }
    if (lib_->iCurMetaNum >= lib_->iMaxMetaNum) {
      return fail_i(kNoRoom, "no room for meta<%s>: %d metas", d.pszName, lib_->iMaxMetaNum);
    }
    if ((iRet = room_in_meta_area(sizeof(VIXMETA), d.pszName)) != 0) return iRet;
    if ((iRet = room_for_texts(
             {d.pszName, d.pszDesc, d.pszCName, d.pszCustomAttr, d.pszCustomAttr2})) != 0) {
      return iRet;
    }

    const VIXPTR ptrMeta = lib_->ptrLaseMeta;
    VIXMETA* m = at<VIXMETA>(ptrMeta);
    memset(m, 0, sizeof(*m));
    m->uFlags = d.uFlags;
    m->iID = d.iID;
    m->iBaseVersion = d.iBaseVersion;
    m->iCurVersion = d.iCurVersion;
    m->iType = d.iType;
    m->iMemSize = sizeof(VIXMETA);
    m->idxCustomHUnitSize = -1;
    m->iMaxSubID = -1;
    m->ptrIndexes = VIX_PTR_NONE;
    m->ptrColumns = VIX_PTR_NONE;
    m->ptrMeta = ptrMeta;
    m->iIdx = lib_->iCurMetaNum;
    m->idxID = -1;
    m->idxType = d.iType == VIX_TYPE_STRUCT ? VIX_TYPEIDX_STRUCT : VIX_TYPEIDX_UNION;
    m->idxVersion = -1;
    m->iCustomAlign = d.iPacked ? 1 : d.iCustomAlign;
    m->iValidAlign = 1;
    m->stSizeType.idxSizeType = -1;
    m->stSortKey.idxSortEntry = -1;
    m->stSortKey.ptrSortKeyMeta = VIX_PTR_NONE;
    m->ptrName = put_text(d.pszName);
    m->ptrDesc = put_text(d.pszDesc);
    m->ptrChineseName = put_text(d.pszCName);
    m->iSplitTableFactor = d.iSplitTableFactor;
    m->nSplitTableRuleID = d.nSplitTableRuleID;
    m->idxSplitTableFactor = -1;
    m->stSplitTableKey.ptrEntry = VIX_PTR_NONE;
    m->ptrPrimayKeyBase = VIX_PTR_NONE;
    m->ptrDependonStruct = ptrDepend;
    m->ptrCustomAttr = put_text(d.pszCustomAttr);
    m->ptrCustomAttr2 = put_text(d.pszCustomAttr2);
    lib_->ptrLaseMeta += sizeof(VIXMETA);
    register_meta(m);

    open_ = m->iIdx;
    cur_ = OpenMeta();
    cur_.iCustomHUnitSize = d.iCustomHUnitSize;
    cur_.sSizeInfo = has_text_i(d.pszSizeInfo) ? d.pszSizeInfo : "";
    cur_.sVersionIndicator = has_text_i(d.pszVersionIndicator) ? d.pszVersionIndicator : "";
    cur_.sSortKey = has_text_i(d.pszSortKey) ? d.pszSortKey : "";
    cur_.sSplitTableKey = has_text_i(d.pszSplitTableKey) ? d.pszSplitTableKey : "";
    depth_.push_back(1);
    return 0;
  }

  int add_entry(const VIXENTRYDESC& d) {
    int iRet = check_open("an entry");
    if (iRet != 0) return iRet;
    VIXMETA* m = open_meta();
    const char* pszMeta = name_of(m);
    if (cur_.bTail) {
      return fail_i(VIX_ERROR_META_FINISHED, "meta<%s>: entries must precede indexes and keys",
                    pszMeta);
    }
    if (cur_.bOpenArray) {
      return fail_i(VIX_ERROR_VARIABLE_ARRAY_NOT_LAST, "meta<%s>: nothing may follow an open array",
                    pszMeta);
    }
    if ((iRet = check_name(d.pszName, "entry")) != 0) return iRet;
    int iDup = -1;
    if (m->iEntriesNum > 0 && vix_get_entry_by_name(&iDup, m, d.pszName) == 0) {
      return fail_i(VIX_ERROR_DUP_ENTRY_NAME, "meta<%s>: entry<%s> is defined twice", pszMeta,
                    d.pszName);
    }

    // The type: a base type or a complete meta.
    int iTypeIdx = -1;
    const VIXMETA* pstNested = nullptr;
    if (d.pszType != nullptr) {
      iTypeIdx = vix_typename_to_idx(d.pszType);
      if (iTypeIdx < 0) {
        pstNested = vix_get_meta_by_name(lib_, d.pszType);
        if (pstNested == nullptr) {
          return fail_i(VIX_ERROR_BAD_ENTRY_TYPE, "meta<%s> entry<%s>: unknown type<%s>", pszMeta,
                        d.pszName, d.pszType);
        }
      } else if (vix_type_is_composite_i(iTypeIdx)) {
        iTypeIdx = -1;
      }
    } else if (d.iMetaIdx >= 0) {
      pstNested = d.iMetaIdx < lib_->iCurMetaNum ? meta_by_idx(d.iMetaIdx) : nullptr;
      if (pstNested == nullptr) {
        return fail_i(VIX_ERROR_META_INDEX_OUT, "meta<%s> entry<%s>: meta index %d", pszMeta,
                      d.pszName, d.iMetaIdx);
      }
    } else if (d.iTypeIdx >= 0 && d.iTypeIdx < VIX_TYPE_TABLE_ROWS &&
               !vix_type_is_composite_i(d.iTypeIdx)) {
      iTypeIdx = d.iTypeIdx;
    }
    if (pstNested == nullptr && (iTypeIdx < 0 || iTypeIdx == VIX_TYPEIDX_VOID)) {
      return fail_i(VIX_ERROR_BAD_ENTRY_TYPE, "meta<%s> entry<%s>: no usable type", pszMeta,
                    d.pszName);
    }
    if (pstNested != nullptr) {
      if (pstNested == m) {
        return fail_i(VIX_ERROR_META_CONTAINS_SELF, "meta<%s> entry<%s>: the meta itself", pszMeta,
                      d.pszName);
      }
      iTypeIdx = pstNested->iType == VIX_TYPE_STRUCT ? VIX_TYPEIDX_STRUCT : VIX_TYPEIDX_UNION;
      if (depth_[pstNested->iIdx] + 1 > VIX_MAX_NESTING) {
        return fail_i(VIX_ERROR_TOO_COMPLEX_META,
                      "meta<%s> entry<%s>: more than %d layers of children", pszMeta, d.pszName,
                      VIX_MAX_NESTING);
      }
    }

    if (d.iCount < 0 || (d.iCount == 0 && m->iType == VIX_TYPE_UNION)) {
      return fail_i(VIX_ERROR_BAD_COUNT, "meta<%s> entry<%s>: count %d", pszMeta, d.pszName,
                    d.iCount);
    }
    const int iVersion = d.iVersion == 0 ? m->iBaseVersion : d.iVersion;
    if (iVersion < m->iBaseVersion) {
      return fail_i(VIX_ERROR_ENTRY_VERSION_BELOW_META,
                    "meta<%s> entry<%s>: version %d below the meta's %d", pszMeta, d.pszName,
                    iVersion, m->iBaseVersion);
    }

    // Sizes and alignment.
    const VIXCTYPEINFO* pstType = vix_idx_to_typeinfo(iTypeIdx);
    uint64_t iHUnit = pstNested != nullptr ? pstNested->iHUnitSize : uint64_t(pstType->iSize);
    uint64_t iNUnit = pstNested != nullptr ? pstNested->iNUnitSize : uint64_t(pstType->iSize);
    uint64_t iAlign =
        pstNested != nullptr ? uint64_t(pstNested->iValidAlign) : uint64_t(pstType->iSize);
    if (d.iCustomHUnitSize != 0) {
      if (d.iCustomHUnitSize < iHUnit || d.iCustomHUnitSize > kMaxInstance) {
        return fail_i(VIX_ERROR_BAD_CUSTOM_SIZE, "meta<%s> entry<%s>: size %llu", pszMeta,
                      d.pszName, static_cast<unsigned long long>(d.iCustomHUnitSize));
      }
      iHUnit = d.iCustomHUnitSize;
      if (pstType != nullptr &&
          (pstType->iType == VIX_TYPE_STRING || pstType->iType == VIX_TYPE_WSTRING)) {
        iNUnit = d.iCustomHUnitSize;  // a fixed-size string travels at its full size
      }
    }
    if (m->iCustomAlign > 0) iAlign = std::min<uint64_t>(iAlign, uint64_t(m->iCustomAlign));
    if (iAlign == 0) iAlign = 1;
    const uint64_t iCount = static_cast<uint64_t>(d.iCount);
    if ((iCount > 0 && (iHUnit > kMaxInstance / iCount || iNUnit > kMaxInstance / iCount))) {
      return fail_i(VIX_ERROR_META_SIZE_OVERFLOW, "meta<%s> entry<%s>: too large", pszMeta,
                    d.pszName);
    }
    const uint64_t iHReal = iHUnit * iCount;
    const uint64_t iNReal = iNUnit * iCount;
    uint64_t iHOff = 0;
    uint64_t iNOff = 0;
    if (m->iType == VIX_TYPE_STRUCT) {
      iHOff = round_up_i(cur_.iHCur, iAlign);
      iNOff = cur_.iNCur;
    }
    if (iHOff + iHReal > kMaxInstance || iNOff + iNReal > kMaxInstance) {
      return fail_i(VIX_ERROR_META_SIZE_OVERFLOW, "meta<%s> entry<%s>: meta too large", pszMeta,
                    d.pszName);
    }

    // Members this one names.
    VIXSELECTOR stRefer = {0, 0, VIX_PTR_NONE};
    VIXSELECTOR stSelect = {0, 0, VIX_PTR_NONE};
    VIXSIZEINFO stSizeInfo;
    memset(&stSizeInfo, 0, sizeof(stSizeInfo));
    stSizeInfo.idxSizeType = -1;
    if (has_text_i(d.pszRefer)) {
      IntMember stMember;
      if ((iRet = int_member(m, d.pszRefer, &stMember)) != 0) {
        return fail_i(iRet == VIX_ERROR_INVALID_PARAM ? VIX_ERROR_REFER_NOT_INTEGER : iRet,
                      "meta<%s> entry<%s>: refer<%s> is no earlier integer member", pszMeta,
                      d.pszName, d.pszRefer);
      }
      stRefer = selector_of(stMember);
    }
    if (has_text_i(d.pszSelect)) {
      if (pstNested == nullptr || pstNested->iType != VIX_TYPE_UNION) {
        return fail_i(VIX_ERROR_SELECT_FOR_NON_UNION, "meta<%s> entry<%s>: select on a non-union",
                      pszMeta, d.pszName);
      }
      IntMember stMember;
      if ((iRet = int_member(m, d.pszSelect, &stMember)) != 0) {
        return fail_i(iRet == VIX_ERROR_INVALID_PARAM ? VIX_ERROR_SELECT_NOT_INTEGER : iRet,
                      "meta<%s> entry<%s>: select<%s> is no earlier integer member", pszMeta,
                      d.pszName, d.pszSelect);
      }
      stSelect = selector_of(stMember);
    }
    if (has_text_i(d.pszSizeInfo) && vix_sizeinfo_to_off(&stSizeInfo, m, d.pszSizeInfo) != 0) {
      return fail_i(VIX_ERROR_BAD_SIZEINFO, "meta<%s> entry<%s>: sizeinfo<%s>", pszMeta, d.pszName,
                    d.pszSizeInfo);
    }
    VIXPTR ptrGroup = VIX_PTR_NONE;
    if (has_text_i(d.pszMacrosGroup)) {
      auto it = groups_.find(d.pszMacrosGroup);
      if (it == groups_.end()) {
        return fail_i(VIX_ERROR_GROUP_NOT_FOUND, "meta<%s> entry<%s>: macro group<%s>", pszMeta,
                      d.pszName, d.pszMacrosGroup);
      }
      ptrGroup = it->second;
    }
    const uint64_t iDefaultLen =
        d.pszDefault == nullptr ? 0 : (d.iDefaultLen != 0 ? d.iDefaultLen : strlen(d.pszDefault));
    if (d.pszDefault != nullptr && iDefaultLen > strlen(d.pszDefault)) {
      return fail_i(VIX_ERROR_BAD_DEFAULT_VALUE, "meta<%s> entry<%s>: default length", pszMeta,
                    d.pszName);
    }
    if ((iRet = room_in_meta_area(sizeof(VIXMETAENTRY), pszMeta)) != 0) return iRet;
    if ((iRet = room_for_texts({d.pszName, d.pszDesc, d.pszCName, d.pszDefault, d.pszCustomAttr,
                                d.pszCustomAttr2})) != 0) {
      return iRet;
    }

    // Write.
    VIXMETAENTRY* e = at<VIXMETAENTRY>(lib_->ptrLaseMeta);
    memset(e, 0, sizeof(*e));
    e->iID = d.iHasID ? d.iID : 0;
    e->iVersion = iVersion;
    e->iType = iTypeIdx;
    e->ptrName = put_text(d.pszName);
    e->iHRealSize = iHReal;
    e->iNRealSize = iNReal;
    e->iHUnitSize = iHUnit;
    e->iNUnitSize = iNUnit;
    e->iCustomHUnitSize = d.iCustomHUnitSize;
    e->iCount = d.iCount;
    e->iNOff = static_cast<VIXOFF>(iNOff);
    e->iHOff = static_cast<VIXOFF>(iHOff);
    e->idxID = -1;
    e->idxVersion = -1;
    e->idxCount = -1;
    e->idxType = iTypeIdx;
    e->idxCustomHUnitSize = -1;
    e->wFlag = static_cast<uint16_t>(d.wFlag | (d.iHasID ? VIX_ENTRY_FLAG_HAS_ID : 0));
    e->chDBFlag = d.chDBFlag;
    e->chOrder = d.chOrder;
    e->stSizeInfo = stSizeInfo;
    e->stRefer = stRefer;
    e->stSelector = stSelect;
    e->iIO = d.iIO;
    e->idxIO = -1;
    e->ptrMeta = pstNested != nullptr ? pstNested->ptrMeta : VIX_PTR_NONE;
    e->iMaxId = d.iMaxId;
    e->iMinId = d.iMinId;
    e->iMaxIdIdx = -1;
    e->iMinIdIdx = -1;
    e->iDefaultValLen = iDefaultLen;
    e->ptrDesc = put_text(d.pszDesc);
    e->ptrChineseName = put_text(d.pszCName);
    e->ptrDefaultVal = d.pszDefault != nullptr ? put_text_always(d.pszDefault) : VIX_PTR_NONE;
    e->ptrMacrosGroup = ptrGroup;
    e->ptrCustomAttr = put_text(d.pszCustomAttr);
    e->iOffToMeta = sizeof(VIXMETA) + sizeof(VIXMETAENTRY) * static_cast<uint64_t>(m->iEntriesNum);
    e->iFlag = d.iFlag;
    e->ptrCustomAttr2 = put_text(d.pszCustomAttr2);
    lib_->ptrLaseMeta += sizeof(VIXMETAENTRY);
    grow_open_meta(m, sizeof(VIXMETAENTRY));
    ++m->iEntriesNum;
    if (d.iHasID) m->iMaxSubID = std::max(m->iMaxSubID, d.iID);

    if (m->iType == VIX_TYPE_STRUCT) {
      cur_.iHCur = iHOff + iHReal;
      cur_.iNCur = iNOff + iNReal;
    } else {
      cur_.iHCur = std::max(cur_.iHCur, iHReal);
      cur_.iNCur = std::max(cur_.iNCur, iNReal);
    }
    cur_.iAlign = std::max(cur_.iAlign, iAlign);
    cur_.iMaxVersion = std::max(cur_.iMaxVersion, iVersion);
    cur_.bOpenArray = d.iCount == 0;
    if (pstNested != nullptr) {
      depth_[open_] = std::max(depth_[open_], depth_[pstNested->iIdx] + 1);
    }
    return 0;
  }

  int add_index(const VIXINDEXDESC& d) {
    int iRet = check_open("an index");
    if (iRet != 0) return iRet;
    VIXMETA* m = open_meta();
    const char* pszMeta = name_of(m);
    if (has_text_i(d.pszName)) {
      if ((iRet = check_name(d.pszName, "index")) != 0) return iRet;
      if (vix_get_index_by_name(m, d.pszName) != nullptr) {
        return fail_i(VIX_ERROR_DUP_INDEX_NAME, "meta<%s>: index<%s> is defined twice", pszMeta,
                      d.pszName);
      }
    }
    if (d.iColumnNum < 0 || (d.iColumnNum > 0 && d.ppszColumns == nullptr)) {
      return fail_i(VIX_ERROR_BAD_INDEX, "meta<%s>: index with %d columns", pszMeta, d.iColumnNum);
    }
    std::vector<VIXDBKEYINFO> astColumns;
    if ((iRet = keys_of(m, d.ppszColumns, d.iColumnNum, &astColumns)) != 0) {
      return fail_i(VIX_ERROR_BAD_INDEX, "meta<%s>: index column %d is no member", pszMeta,
                    -iRet - 1);
    }
    const uint64_t iColumnBytes = sizeof(VIXDBKEYINFO) * astColumns.size();
    if ((iRet = room_in_meta_area(sizeof(VIXMETAINDEX) + iColumnBytes, pszMeta)) != 0) {
      return iRet;
    }
    if ((iRet = room_for_texts(
             {d.pszName, d.pszDesc, d.pszCName, d.pszCustomAttr, d.pszCustomAttr2})) != 0) {
      return iRet;
    }

    // Index records stay one array: move the columns and keys after them by one record.
    const VIXPTR ptrIndex = index_area_end(m);
    const uint64_t iTail = lib_->ptrLaseMeta - ptrIndex;
    memmove(at<char>(ptrIndex + sizeof(VIXMETAINDEX)), at<char>(ptrIndex), iTail);
    for (int k = 0; k < m->iIndexesNum; ++k) {
      VIXMETAINDEX* x = at<VIXMETAINDEX>(m->ptrIndexes + sizeof(VIXMETAINDEX) * k);
      if (x->iColumnNum > 0) x->ptrColumnBase += sizeof(VIXMETAINDEX);
    }
    if (m->nPrimayKeyMemberNum > 0) m->ptrPrimayKeyBase += sizeof(VIXMETAINDEX);
    if (m->ptrColumns != VIX_PTR_NONE) m->ptrColumns += sizeof(VIXMETAINDEX);
    lib_->ptrLaseMeta += sizeof(VIXMETAINDEX);
    if (m->iIndexesNum == 0) m->ptrIndexes = ptrIndex;

    VIXMETAINDEX* x = at<VIXMETAINDEX>(ptrIndex);
    memset(x, 0, sizeof(*x));
    x->iVersion = d.iVersion == 0 ? m->iBaseVersion : d.iVersion;
    x->ptrName = put_text(d.pszName);
    x->iOffToMeta = ptrIndex - m->ptrMeta;
    x->iColumnNum = d.iColumnNum;
    x->ptrColumnBase = VIX_PTR_NONE;
    x->iIndexType = d.iIndexType;
    x->iIsUnique = d.iIsUnique;
    x->ptrDesc = put_text(d.pszDesc);
    x->ptrChineseName = put_text(d.pszCName);
    x->iID = d.iID;
    x->dwCustomAttr = string_slot(put_text(d.pszCustomAttr));
    x->idxID = -1;
    x->dwCustomAttr2 = string_slot(put_text(d.pszCustomAttr2));
    if (!astColumns.empty()) {
      x->ptrColumnBase = lib_->ptrLaseMeta;
      if (m->ptrColumns == VIX_PTR_NONE) m->ptrColumns = x->ptrColumnBase;
      memcpy(at<char>(lib_->ptrLaseMeta), astColumns.data(), iColumnBytes);
      lib_->ptrLaseMeta += iColumnBytes;
    }
    grow_open_meta(m, sizeof(VIXMETAINDEX) + iColumnBytes);
    ++m->iIndexesNum;
    cur_.bTail = true;
    cur_.iMaxVersion = std::max(cur_.iMaxVersion, x->iVersion);
    return 0;
  }

  int set_primarykey(const char* const* ppszPaths, int iNum) {
    int iRet = check_open("a primary key");
    if (iRet != 0) return iRet;
    VIXMETA* m = open_meta();
    const char* pszMeta = name_of(m);
    if (m->nPrimayKeyMemberNum > 0 || iNum <= 0 || iNum > INT16_MAX || ppszPaths == nullptr) {
      return fail_i(VIX_ERROR_BAD_PRIMARY_KEY, "meta<%s>: primary key of %d members (set once)",
                    pszMeta, iNum);
    }
    std::vector<VIXDBKEYINFO> astKeys;
    if ((iRet = keys_of(m, ppszPaths, iNum, &astKeys)) != 0) {
      return fail_i(VIX_ERROR_BAD_PRIMARY_KEY, "meta<%s>: key %d is no member", pszMeta, -iRet - 1);
    }
    const uint64_t iBytes = sizeof(VIXDBKEYINFO) * astKeys.size();
    if ((iRet = room_in_meta_area(iBytes, pszMeta)) != 0) return iRet;
    m->ptrPrimayKeyBase = lib_->ptrLaseMeta;
    m->nPrimayKeyMemberNum = static_cast<int16_t>(iNum);
    memcpy(at<char>(lib_->ptrLaseMeta), astKeys.data(), iBytes);
    lib_->ptrLaseMeta += iBytes;
    grow_open_meta(m, iBytes);
    cur_.bTail = true;
    return 0;
  }

  int end_meta() {
    int iRet = check_open("the end of a meta");
    if (iRet != 0) return iRet;
    VIXMETA* m = open_meta();
    const char* pszMeta = name_of(m);
    const uint64_t iAlign = cur_.iAlign;
    uint64_t iHSize = round_up_i(cur_.iHCur, iAlign);
    if (cur_.iCustomHUnitSize != 0) {
      if (cur_.iCustomHUnitSize < iHSize || cur_.iCustomHUnitSize > kMaxInstance) {
        return fail_i(VIX_ERROR_BAD_CUSTOM_SIZE, "meta<%s>: custom size %llu below %llu", pszMeta,
                      static_cast<unsigned long long>(cur_.iCustomHUnitSize),
                      static_cast<unsigned long long>(iHSize));
      }
      iHSize = cur_.iCustomHUnitSize;
    }
    if (iHSize > kMaxInstance) {
      return fail_i(VIX_ERROR_META_SIZE_OVERFLOW, "meta<%s>: too large", pszMeta);
    }
    // The meta-level paths are resolved against the final sizes; settle them all first.
    const uint64_t iOldH = m->iHUnitSize;
    const uint64_t iOldN = m->iNUnitSize;
    m->iHUnitSize = iHSize;
    m->iNUnitSize = cur_.iNCur;
    VIXSIZEINFO stSizeType;
    memset(&stSizeType, 0, sizeof(stSizeType));
    stSizeType.idxSizeType = -1;
    VIXREDIRECTOR stIndicator = {0, 0, 0};
    int iIndicatorVersion = 0;
    VIXSORTKEYINFO stSort = {-1, 0, 0, VIX_PTR_NONE};
    VIXDBKEYINFO stSplit = {0, VIX_PTR_NONE};
    iRet = end_paths(m, &stSizeType, &stIndicator, &iIndicatorVersion, &stSort, &stSplit);
    if (iRet != 0) {
      m->iHUnitSize = iOldH;
      m->iNUnitSize = iOldN;
      return iRet;
    }
    m->iCustomHUnitSize = cur_.iCustomHUnitSize;
    m->iValidAlign = static_cast<int32_t>(iAlign);
    m->iCurVersion = std::max({m->iCurVersion, m->iBaseVersion, cur_.iMaxVersion});
    m->stSizeType = stSizeType;
    m->stVersionIndicator = stIndicator;
    m->iVersionIndicatorMinVer = iIndicatorVersion;
    m->stSortKey = stSort;
    m->stSplitTableKey = stSplit;
    open_ = -1;
    return 0;
  }

  // Sizes used so far, for laying out a block that holds exactly them.
  void used(VIXLIBCOUNTS* pstCounts) const {
    pstCounts->iMacros = lib_->iCurMacroNum;
    pstCounts->iMetas = lib_->iCurMetaNum;
    pstCounts->iMacrosGroups = lib_->iCurMacrosGroupNum;
    pstCounts->iMetaBytes = lib_->ptrLaseMeta - lib_->ptrMeta;
    pstCounts->iStrBytes = lib_->ptrFreeStrBuf - lib_->ptrStrBuf;
    pstCounts->iGroupBytes = groupUsed_;
  }

 private:
  struct OpenMeta {
    uint64_t iHCur = 0;
    uint64_t iNCur = 0;
    uint64_t iAlign = 1;
    int iMaxVersion = 0;
    bool bOpenArray = false;
    bool bTail = false;  // an index or key was added: no more entries
    uint64_t iCustomHUnitSize = 0;
    std::string sSizeInfo;
    std::string sVersionIndicator;
    std::string sSortKey;
    std::string sSplitTableKey;
  };

  template <typename T>
  T* at(VIXPTR ptr) {
    return vix_lib_at_i<T>(lib_, ptr);
  }
  VIXMETA* meta_by_idx(int iIdx) {
    return at<VIXMETA>(at<VIXMAPENTRY>(lib_->ptrMap + sizeof(VIXMAPENTRY) * iIdx)->iPtr);
  }
  VIXMETA* open_meta() { return meta_by_idx(open_); }
  const char* name_of(const VIXMETA* m) const { return vix_lib_str_i(lib_, m->ptrName); }
  VIXMACRO* macro(int32_t iIdx) { return at<VIXMACRO>(lib_->ptrMacro + sizeof(VIXMACRO) * iIdx); }
  const char* macro_name(int32_t iIdx) { return vix_lib_str_i(lib_, macro(iIdx)->ptrMacro); }

  int check_name(const char* pszName, const char* pszWhat) {
    if (!has_text_i(pszName)) return fail_i(VIX_ERROR_EMPTY_NAME, "%s without a name", pszWhat);
    if (!vix_is_identifier_i(pszName)) {
      return fail_i(VIX_ERROR_BAD_NAME, "%s name<%s> is no identifier", pszWhat, pszName);
    }
    return 0;
  }

  int check_open(const char* pszWhat) {
    if (open_ < 0) return fail_i(VIX_ERROR_INVALID_PARAM, "%s outside of a meta", pszWhat);
    return 0;
  }

  int room_for_texts(std::initializer_list<const char*> texts) {
    uint64_t iBytes = 0;
    for (const char* psz : texts) iBytes += text_bytes_i(psz);
    if (iBytes > lib_->iFreeStrBufSize) {
      return fail_i(kNoRoom, "string buffer full: %llu bytes needed, %llu free",
                    static_cast<unsigned long long>(iBytes),
                    static_cast<unsigned long long>(lib_->iFreeStrBufSize));
    }
    return 0;
  }

  int room_in_meta_area(uint64_t iBytes, const char* pszMeta) {
    if (iBytes > lib_->ptrStrBuf - lib_->ptrLaseMeta) {
      return fail_i(kNoRoom, "meta area full at meta<%s>", pszMeta);
    }
    return 0;
  }

  // Copies a string (room checked by the caller); absent for null or "".
  VIXPTR put_text(const char* psz) { return has_text_i(psz) ? put_text_always(psz) : VIX_PTR_NONE; }
  VIXPTR put_text_always(const char* psz) {
    const uint64_t iBytes = strlen(psz) + 1;
    const VIXPTR ptr = lib_->ptrFreeStrBuf;
    memcpy(at<char>(ptr), psz, iBytes);
    lib_->ptrFreeStrBuf += iBytes;
    lib_->iFreeStrBufSize -= iBytes;
    return ptr;
  }
  uint32_t string_slot(VIXPTR ptr) const {
    return ptr == VIX_PTR_NONE ? 0 : static_cast<uint32_t>(ptr - lib_->ptrStrBuf + 1);
  }

  void grow_open_meta(VIXMETA* m, uint64_t iBytes) {
    m->iMemSize += iBytes;
    at<VIXMAPENTRY>(lib_->ptrMap + sizeof(VIXMAPENTRY) * m->iIdx)->iSize = m->iMemSize;
  }

  VIXPTR index_area_end(const VIXMETA* m) const {
    return m->iIndexesNum > 0 ? m->ptrIndexes + sizeof(VIXMETAINDEX) * m->iIndexesNum
                              : m->ptrMeta + sizeof(VIXMETA) +
                                    sizeof(VIXMETAENTRY) * static_cast<uint64_t>(m->iEntriesNum);
  }

  // Inserts a new meta into the definition map and the two sorted tables.
  void register_meta(const VIXMETA* m) {
    const int n = lib_->iCurMetaNum;
    VIXMAPENTRY* pstMap = at<VIXMAPENTRY>(lib_->ptrMap + sizeof(VIXMAPENTRY) * n);
    pstMap->iPtr = m->ptrMeta;
    pstMap->iSize = m->iMemSize;

    VIXIDENTRY* pstIds = at<VIXIDENTRY>(lib_->ptrID);
    const VIXIDENTRY* pstIdPos = std::upper_bound(
        pstIds, pstIds + n, m->iID, [](int32_t iID, const VIXIDENTRY& e) { return iID < e.iID; });
    const size_t iIdAt = static_cast<size_t>(pstIdPos - pstIds);
    memmove(pstIds + iIdAt + 1, pstIds + iIdAt, sizeof(VIXIDENTRY) * (n - iIdAt));
    memset(&pstIds[iIdAt], 0, sizeof(VIXIDENTRY));
    pstIds[iIdAt].iID = m->iID;
    pstIds[iIdAt].ptrMeta = m->ptrMeta;

    VIXNAMEENTRY* pstNames = at<VIXNAMEENTRY>(lib_->ptrName);
    const char* pszName = name_of(m);
    const VIXNAMEENTRY* pstNamePos = std::lower_bound(
        pstNames, pstNames + n, pszName, [this](const VIXNAMEENTRY& e, const char* s) {
          return strcmp(vix_lib_str_i(lib_, e.ptrName), s) < 0;
        });
    const size_t iNameAt = static_cast<size_t>(pstNamePos - pstNames);
    memmove(pstNames + iNameAt + 1, pstNames + iNameAt, sizeof(VIXNAMEENTRY) * (n - iNameAt));
    pstNames[iNameAt].ptrName = m->ptrName;
    pstNames[iNameAt].ptrMeta = m->ptrMeta;

    ++lib_->iCurMetaNum;
    if (n == 0 || m->iID > lib_->iMaxID) lib_->iMaxID = m->iID;
    metaNames_.insert(pszName);
    if (m->iID != -1) metaIds_.insert(m->iID);
  }

  // An earlier integer member of the open meta named by a path (a single value or one element).
  int int_member(const VIXMETA* m, const char* pszPath, IntMember* pstOut) {
    VIXPATHHIT stHit;
    const int iRet = vix_follow_path_i(&stHit, m, pszPath);
    if (iRet != 0) return iRet;
    const VIXMETAENTRY* e = stHit.pstEntry;
    if (!vix_type_is_integer(e->iType) || (e->iCount != 1 && !stHit.iIndexed) ||
        e->iHUnitSize != uint64_t(vix_idx_to_typeinfo(e->iType)->iSize)) {
      return VIX_ERROR_INVALID_PARAM;
    }
    pstOut->stHit = stHit;
    pstOut->iUnit = e->iHUnitSize;
    return 0;
  }

  VIXSELECTOR selector_of(const IntMember& stMember) const {
    VIXSELECTOR s;
    s.iUnitSize = stMember.iUnit;
    s.iHOff = stMember.stHit.iHOff;
    s.ptrEntry = entry_ptr(stMember.stHit.pstEntry);
    return s;
  }

  VIXPTR entry_ptr(const VIXMETAENTRY* e) const {
    return static_cast<VIXPTR>(reinterpret_cast<const char*>(e) - vix_lib_data_i(lib_));
  }

  // Key members from paths; on failure -(1 + the failing position).
  int keys_of(const VIXMETA* m, const char* const* ppszPaths, int iNum,
              std::vector<VIXDBKEYINFO>* pastKeys) {
    for (int i = 0; i < iNum; ++i) {
      VIXPATHHIT stHit;
      if (ppszPaths[i] == nullptr || vix_follow_path_i(&stHit, m, ppszPaths[i]) != 0) {
        return -(i + 1);
      }
      VIXDBKEYINFO k;
      k.iHOff = stHit.iHOff;
      k.ptrEntry = entry_ptr(stHit.pstEntry);
      pastKeys->push_back(k);
    }
    return 0;
  }

  int end_paths(const VIXMETA* m, VIXSIZEINFO* pstSizeType, VIXREDIRECTOR* pstIndicator,
                int* piIndicatorVersion, VIXSORTKEYINFO* pstSort, VIXDBKEYINFO* pstSplit) {
    const char* pszMeta = name_of(m);
    const OpenMeta& o = cur_;
    if (!o.sSizeInfo.empty() && vix_sizeinfo_to_off(pstSizeType, m, o.sSizeInfo.c_str()) != 0) {
      return fail_i(VIX_ERROR_BAD_SIZEINFO, "meta<%s>: sizeinfo<%s>", pszMeta, o.sSizeInfo.c_str());
    }
    if (!o.sVersionIndicator.empty()) {
      IntMember stMember;
      if (int_member(m, o.sVersionIndicator.c_str(), &stMember) != 0) {
        return fail_i(VIX_ERROR_BAD_VERSION_INDICATOR_DEF, "meta<%s>: version indicator<%s>",
                      pszMeta, o.sVersionIndicator.c_str());
      }
      pstIndicator->iHOff = stMember.stHit.iHOff;
      pstIndicator->iNOff = stMember.stHit.iNOff;
      pstIndicator->iUnitSize = stMember.iUnit;
      *piIndicatorVersion = stMember.stHit.pstEntry->iVersion;
    }
    if (!o.sSortKey.empty()) {
      VIXPATHHIT stHit;
      if (vix_follow_path_i(&stHit, m, o.sSortKey.c_str()) != 0) {
        return fail_i(VIX_ERROR_BAD_SORT_KEY, "meta<%s>: sort key<%s>", pszMeta,
                      o.sSortKey.c_str());
      }
      const VIXMETA* pstOwner = vix_meta_of_entry_i(stHit.pstEntry);
      pstSort->idxSortEntry = static_cast<VIXIDX>(stHit.pstEntry - vix_meta_entries_i(pstOwner));
      pstSort->iSortKeyOff = stHit.iHOff;
      pstSort->ptrSortKeyMeta = pstOwner->ptrMeta;
    }
    if (!o.sSplitTableKey.empty()) {
      VIXPATHHIT stHit;
      if (vix_follow_path_i(&stHit, m, o.sSplitTableKey.c_str()) != 0) {
        return fail_i(VIX_ERROR_BAD_SPLIT_KEY, "meta<%s>: split-table key<%s>", pszMeta,
                      o.sSplitTableKey.c_str());
      }
      pstSplit->iHOff = stHit.iHOff;
      pstSplit->ptrEntry = entry_ptr(stHit.pstEntry);
    }
    return 0;
  }

  LPVIXMETALIB lib_;
  int open_ = -1;  // definition index of the open meta
  OpenMeta cur_;
  uint64_t groupUsed_ = 0;
  std::unordered_map<std::string, int32_t> macros_;
  std::unordered_map<std::string, VIXPTR> groups_;
  std::unordered_set<std::string> metaNames_;
  std::unordered_set<int32_t> metaIds_;
  std::vector<int> depth_;  // nesting layers per meta
};

// ---- the call log of a growing builder ----

// Copies of a call's strings; the descriptions are re-pointed at them when the call runs.
class Texts {
 public:
  int add(const char* psz) {
    text_.emplace_back(psz != nullptr ? psz : "");
    null_.push_back(psz == nullptr);
    return static_cast<int>(text_.size()) - 1;
  }
  const char* get(int i) const { return null_[i] ? nullptr : text_[i].c_str(); }

 private:
  std::vector<std::string> text_;
  std::vector<bool> null_;
};

const char* VIXMETADESC::*const kMetaTexts[] = {&VIXMETADESC::pszName,
                                                &VIXMETADESC::pszDesc,
                                                &VIXMETADESC::pszCName,
                                                &VIXMETADESC::pszCustomAttr,
                                                &VIXMETADESC::pszCustomAttr2,
                                                &VIXMETADESC::pszSizeInfo,
                                                &VIXMETADESC::pszVersionIndicator,
                                                &VIXMETADESC::pszSortKey,
                                                &VIXMETADESC::pszDependOn,
                                                &VIXMETADESC::pszSplitTableKey};
const char* VIXENTRYDESC::*const kEntryTexts[] = {
    &VIXENTRYDESC::pszName,        &VIXENTRYDESC::pszType,    &VIXENTRYDESC::pszRefer,
    &VIXENTRYDESC::pszSelect,      &VIXENTRYDESC::pszDefault, &VIXENTRYDESC::pszMacrosGroup,
    &VIXENTRYDESC::pszDesc,        &VIXENTRYDESC::pszCName,   &VIXENTRYDESC::pszCustomAttr,
    &VIXENTRYDESC::pszCustomAttr2, &VIXENTRYDESC::pszSizeInfo};
const char* VIXINDEXDESC::*const kIndexTexts[] = {
    &VIXINDEXDESC::pszName, &VIXINDEXDESC::pszDesc, &VIXINDEXDESC::pszCName,
    &VIXINDEXDESC::pszCustomAttr, &VIXINDEXDESC::pszCustomAttr2};

struct Call {
  enum Kind { kMacro, kGroup, kBeginMeta, kEntry, kIndex, kPrimaryKey, kEndMeta } eKind;
  int iValue = 0;
  VIXMETADESC stMeta{};
  VIXENTRYDESC stEntry{};
  VIXINDEXDESC stIndex{};
  Texts stTexts;
  std::vector<int> aiTexts;  // positions in stTexts of the description's strings, then a list
  int iListFrom = 0;
  int iListNum = 0;

  template <typename Desc, size_t N>
  void keep(Desc* pstDesc, const char* Desc::*const (&apMembers)[N]) {
    for (const char* Desc::*pm : apMembers) aiTexts.push_back(stTexts.add(pstDesc->*pm));
  }
  template <typename Desc, size_t N>
  Desc bind(const Desc& stDesc, const char* Desc::*const (&apMembers)[N]) const {
    Desc d = stDesc;
    for (size_t i = 0; i < N; ++i) d.*apMembers[i] = stTexts.get(aiTexts[i]);
    return d;
  }
  void keep_list(const char* const* ppsz, int iNum) {
    iListFrom = static_cast<int>(aiTexts.size());
    iListNum = iNum > 0 && ppsz != nullptr ? iNum : 0;
    for (int i = 0; i < iListNum; ++i) aiTexts.push_back(stTexts.add(ppsz[i]));
  }
  std::vector<const char*> list() const {
    std::vector<const char*> v;
    for (int i = 0; i < iListNum; ++i) v.push_back(stTexts.get(aiTexts[iListFrom + i]));
    return v;
  }

  int run(LibWriter* w) const {
    switch (eKind) {
      case kMacro:
        return w->add_macro(stTexts.get(0), iValue, stTexts.get(1));
      case kGroup: {
        const std::vector<const char*> v = list();
        return w->add_group(stTexts.get(0), stTexts.get(1), v.data(), iValue);
      }
      case kBeginMeta:
        return w->begin_meta(bind(stMeta, kMetaTexts));
      case kEntry:
        return w->add_entry(bind(stEntry, kEntryTexts));
      case kIndex: {
        const std::vector<const char*> v = list();
        VIXINDEXDESC d = bind(stIndex, kIndexTexts);
        d.ppszColumns = v.data();
        return w->add_index(d);
      }
      case kPrimaryKey: {
        const std::vector<const char*> v = list();
        return w->set_primarykey(v.data(), iValue);
      }
      case kEndMeta:
        return w->end_meta();
    }
    return VIX_ERROR_INTERNAL;
  }
};

// Lays out a heap block for the parameter record (capacities and sizes set).
int new_block_i(const VIXLIBPARAM& stParam, LPVIXMETALIB* ppstLib) {
  LPVIXMETALIB pstLib = static_cast<LPVIXMETALIB>(malloc(stParam.iSize));
  if (pstLib == nullptr) return VIX_ERROR_NO_MEMORY;
  const int iRet = vix_init_lib(pstLib, &stParam);
  if (iRet != 0) {
    free(pstLib);
    return iRet;
  }
  *ppstLib = pstLib;
  return 0;
}

}  // namespace

struct tagVIXBuilder {
  bool bGrowing = false;
  bool bFinished = false;
  LPVIXMETALIB pstLib = nullptr;  // growing: owned
  LibWriter* pstWriter = nullptr;
  VIXLIBPARAM stParam{};     // growing: the current layout
  std::vector<Call> astLog;  // growing: calls that succeeded

  ~tagVIXBuilder() {
    delete pstWriter;
    if (bGrowing) free(pstLib);
  }

  // Lays out a block for stNew and replays the log into it; the builder keeps its old block
  // when that fails.
  int relayout(const VIXLIBPARAM& stNew) {
    LPVIXMETALIB pstNewLib = nullptr;
    int iRet = new_block_i(stNew, &pstNewLib);
    if (iRet != 0) return iRet;
    LibWriter* pstNewWriter = new LibWriter(pstNewLib);
    for (const Call& stCall : astLog) {
      iRet = stCall.run(pstNewWriter);
      if (iRet != 0) break;
    }
    if (iRet != 0) {
      delete pstNewWriter;
      free(pstNewLib);
      return iRet == kNoRoom ? kNoRoom : VIX_ERROR_INTERNAL;
    }
    delete pstWriter;
    free(pstLib);
    pstWriter = pstNewWriter;
    pstLib = pstNewLib;
    stParam = stNew;
    return 0;
  }

  // Doubles every capacity and area.
  int grow() {
    VIXLIBPARAM stNew = stParam;
    VIXLIBCOUNTS stCounts;
    stCounts.iMacros = std::min<int64_t>(INT32_MAX, int64_t{stParam.iMaxMacros} * 2);
    stCounts.iMetas = std::min<int64_t>(INT32_MAX, int64_t{stParam.iMaxMetas} * 2);
    stCounts.iMacrosGroups = std::min<int64_t>(INT32_MAX, int64_t{stParam.iMaxMacrosGroupNum} * 2);
    stCounts.iMetaBytes = stParam.iMetaSize * 2;
    stCounts.iStrBytes = stParam.iStrBufSize * 2;
    stCounts.iGroupBytes = stParam.iMacrosGroupSize * 2;
    if (stParam.iSize > (uint64_t{1} << 40)) return VIX_ERROR_NO_MEMORY;
    int iRet = vix_lib_param_for_counts(&stNew, &stCounts);
    if (iRet == 0) iRet = relayout(stNew);
    return iRet;
  }

  int call(Call&& stCall) {
    if (bFinished) return fail_i(VIX_ERROR_INVALID_PARAM, "the library is finished");
    vix_clear_error_detail_i();
    int iRet = stCall.run(pstWriter);
    while (bGrowing && iRet == kNoRoom) {
      iRet = grow();
      if (iRet == 0) iRet = stCall.run(pstWriter);
    }
    if (iRet == 0 && bGrowing) astLog.push_back(std::move(stCall));
    return iRet;
  }
};

namespace {

template <typename F>
int guarded_i(F&& fn) {
  try {
    return fn();
  } catch (const std::bad_alloc&) {
    return fail_i(VIX_ERROR_NO_MEMORY, "out of memory");
  }
}

}  // namespace

int vix_lib_param_for_counts(VIXLIBPARAM* pstParam, const VIXLIBCOUNTS* pstCounts) {
  if (pstParam == nullptr || pstCounts == nullptr || pstCounts->iMacros < 0 ||
      pstCounts->iMetas < 0 || pstCounts->iMacrosGroups < 0 ||
      pstCounts->iMetaBytes > (uint64_t{1} << 48) || pstCounts->iStrBytes > (uint64_t{1} << 48) ||
      pstCounts->iGroupBytes > (uint64_t{1} << 48)) {
    return VIX_ERROR_INVALID_PARAM;
  }
  pstParam->iMaxMacros = pstCounts->iMacros;
  pstParam->iMaxMetas = pstCounts->iMetas;
  // Layout needs at least one macro or meta slot.
  if (pstParam->iMaxMacros == 0 && pstParam->iMaxMetas == 0) pstParam->iMaxMetas = 1;
  pstParam->iMaxMacrosGroupNum = pstCounts->iMacrosGroups;
  pstParam->iMetaSize = round_up_i(pstCounts->iMetaBytes, 8);
  pstParam->iStrBufSize = round_up_i(pstCounts->iStrBytes, 8);
  pstParam->iMacrosGroupSize = round_up_i(pstCounts->iGroupBytes, 8);
  pstParam->iSize =
      VIX_LIB_REQUIRED_SIZE(pstParam->iMaxMacros, pstParam->iMaxMetas, pstParam->iMaxMacrosGroupNum,
                            pstParam->iMetaSize, pstParam->iStrBufSize, pstParam->iMacrosGroupSize);
  return 0;
}

void vix_meta_desc_init(VIXMETADESC* pstDesc) {
  if (pstDesc == nullptr) return;
  memset(pstDesc, 0, sizeof(*pstDesc));
  pstDesc->iType = VIX_TYPE_STRUCT;
  pstDesc->iID = -1;
}

void vix_entry_desc_init(VIXENTRYDESC* pstDesc) {
  if (pstDesc == nullptr) return;
  memset(pstDesc, 0, sizeof(*pstDesc));
  pstDesc->iTypeIdx = -1;
  pstDesc->iMetaIdx = -1;
  pstDesc->iCount = 1;
  pstDesc->iMinId = 1;
  pstDesc->iMaxId = 0;
}

void vix_index_desc_init(VIXINDEXDESC* pstDesc) {
  if (pstDesc == nullptr) return;
  memset(pstDesc, 0, sizeof(*pstDesc));
  pstDesc->iID = -1;
}

int vix_builder_open(LPVIXBUILDER* ppstBuilder, LPVIXMETALIB pstLib) {
  if (ppstBuilder == nullptr || pstLib == nullptr) return VIX_ERROR_INVALID_PARAM;
  if (!vix_lib_format_ok_i(pstLib) || pstLib->iCurMetaNum != 0 || pstLib->iCurMacroNum != 0 ||
      pstLib->iCurMacrosGroupNum != 0 || pstLib->ptrLaseMeta != pstLib->ptrMeta ||
      pstLib->ptrFreeStrBuf != pstLib->ptrStrBuf) {
    return fail_i(VIX_ERROR_INVALID_PARAM, "the library is not an empty 64-bit library");
  }
  if (pstLib->iMaxMacrosGroupNum > 0 && pstLib->ptrMacroGroupMap % 8 != 0) {
    return fail_i(VIX_ERROR_INVALID_PARAM,
                  "meta area and string buffer sizes must be multiples of 8 (see "
                  "vix_lib_param_for_counts)");
  }
  return guarded_i([&]() {
    LPVIXBUILDER b = new tagVIXBuilder();
    b->pstLib = pstLib;
    b->pstWriter = new LibWriter(pstLib);
    *ppstBuilder = b;
    return 0;
  });
}

int vix_builder_open_growing(LPVIXBUILDER* ppstBuilder, const VIXLIBPARAM* pstParam) {
  if (ppstBuilder == nullptr || pstParam == nullptr) return VIX_ERROR_INVALID_PARAM;
  VIXLIBPARAM stParam = *pstParam;
  VIXLIBCOUNTS stCounts;
  stCounts.iMacros = std::max(pstParam->iMaxMacros, 16);
  stCounts.iMetas = std::max(pstParam->iMaxMetas, 16);
  stCounts.iMacrosGroups = std::max(pstParam->iMaxMacrosGroupNum, 4);
  stCounts.iMetaBytes = std::max<uint64_t>(pstParam->iMetaSize, 16 * 1024);
  stCounts.iStrBytes = std::max<uint64_t>(pstParam->iStrBufSize, 4 * 1024);
  stCounts.iGroupBytes = std::max<uint64_t>(pstParam->iMacrosGroupSize, 2 * 1024);
  int iRet = vix_lib_param_for_counts(&stParam, &stCounts);
  if (iRet != 0) return iRet;
  return guarded_i([&]() {
    LPVIXMETALIB pstLib = nullptr;
    int iNew = new_block_i(stParam, &pstLib);
    if (iNew != 0) return iNew;
    LPVIXBUILDER b = new tagVIXBuilder();
    b->bGrowing = true;
    b->pstLib = pstLib;
    b->stParam = stParam;
    b->pstWriter = new LibWriter(pstLib);
    *ppstBuilder = b;
    return 0;
  });
}

void vix_builder_close(LPVIXBUILDER* ppstBuilder) {
  if (ppstBuilder == nullptr || *ppstBuilder == nullptr) return;
  delete *ppstBuilder;
  *ppstBuilder = nullptr;
}

const VIXMETALIB* vix_builder_lib(const VIXBUILDER* pstBuilder) {
  return pstBuilder == nullptr ? nullptr : pstBuilder->pstLib;
}

int vix_builder_add_macro(LPVIXBUILDER pstBuilder, const char* pszName, int iValue,
                          const char* pszDesc) {
  if (pstBuilder == nullptr) return VIX_ERROR_INVALID_PARAM;
  return guarded_i([&]() {
    Call c;
    c.eKind = Call::kMacro;
    c.iValue = iValue;
    c.aiTexts = {c.stTexts.add(pszName), c.stTexts.add(pszDesc)};
    return pstBuilder->call(std::move(c));
  });
}

int vix_builder_add_macrosgroup(LPVIXBUILDER pstBuilder, const char* pszName, const char* pszDesc,
                                const char* const* ppszMacros, int iNum) {
  if (pstBuilder == nullptr || iNum < 0 || (iNum > 0 && ppszMacros == nullptr)) {
    return VIX_ERROR_INVALID_PARAM;
  }
  return guarded_i([&]() {
    Call c;
    c.eKind = Call::kGroup;
    c.iValue = iNum;
    c.aiTexts = {c.stTexts.add(pszName), c.stTexts.add(pszDesc)};
    c.keep_list(ppszMacros, iNum);
    return pstBuilder->call(std::move(c));
  });
}

int vix_builder_begin_meta(LPVIXBUILDER pstBuilder, const VIXMETADESC* pstDesc) {
  if (pstBuilder == nullptr || pstDesc == nullptr) return VIX_ERROR_INVALID_PARAM;
  return guarded_i([&]() {
    Call c;
    c.eKind = Call::kBeginMeta;
    c.stMeta = *pstDesc;
    c.keep(&c.stMeta, kMetaTexts);
    return pstBuilder->call(std::move(c));
  });
}

int vix_builder_add_entry(LPVIXBUILDER pstBuilder, const VIXENTRYDESC* pstDesc) {
  if (pstBuilder == nullptr || pstDesc == nullptr) return VIX_ERROR_INVALID_PARAM;
  return guarded_i([&]() {
    Call c;
    c.eKind = Call::kEntry;
    c.stEntry = *pstDesc;
    c.keep(&c.stEntry, kEntryTexts);
    return pstBuilder->call(std::move(c));
  });
}

int vix_builder_add_simple_entry(LPVIXBUILDER pstBuilder, const char* pszName, const char* pszType,
                                 int iCount) {
  VIXENTRYDESC d;
  vix_entry_desc_init(&d);
  d.pszName = pszName;
  d.pszType = pszType;
  d.iCount = iCount;
  return vix_builder_add_entry(pstBuilder, &d);
}

int vix_builder_add_index(LPVIXBUILDER pstBuilder, const VIXINDEXDESC* pstDesc) {
  if (pstBuilder == nullptr || pstDesc == nullptr || pstDesc->iColumnNum < 0 ||
      (pstDesc->iColumnNum > 0 && pstDesc->ppszColumns == nullptr)) {
    return VIX_ERROR_INVALID_PARAM;
  }
  return guarded_i([&]() {
    Call c;
    c.eKind = Call::kIndex;
    c.stIndex = *pstDesc;
    c.keep(&c.stIndex, kIndexTexts);
    c.keep_list(pstDesc->ppszColumns, pstDesc->iColumnNum);
    return pstBuilder->call(std::move(c));
  });
}

int vix_builder_set_primarykey(LPVIXBUILDER pstBuilder, const char* const* ppszPaths, int iNum) {
  if (pstBuilder == nullptr || iNum <= 0 || ppszPaths == nullptr) return VIX_ERROR_INVALID_PARAM;
  return guarded_i([&]() {
    Call c;
    c.eKind = Call::kPrimaryKey;
    c.iValue = iNum;
    c.keep_list(ppszPaths, iNum);
    return pstBuilder->call(std::move(c));
  });
}

int vix_builder_end_meta(LPVIXBUILDER pstBuilder) {
  if (pstBuilder == nullptr) return VIX_ERROR_INVALID_PARAM;
  return guarded_i([&]() {
    Call c;
    c.eKind = Call::kEndMeta;
    return pstBuilder->call(std::move(c));
  });
}

int vix_builder_finish(LPVIXBUILDER pstBuilder, LPVIXMETALIB* ppstLib) {
  if (pstBuilder == nullptr || ppstLib == nullptr) return VIX_ERROR_INVALID_PARAM;
  if (pstBuilder->bFinished) return fail_i(VIX_ERROR_INVALID_PARAM, "the library is finished");
  if (pstBuilder->pstWriter->meta_open()) {
    return fail_i(VIX_ERROR_META_NOT_FINISHED, "a meta is still open");
  }
  return guarded_i([&]() {
    vix_clear_error_detail_i();
    if (pstBuilder->bGrowing) {
      // Replay once more into a block of exactly the size used.
      VIXLIBCOUNTS stCounts;
      pstBuilder->pstWriter->used(&stCounts);
      VIXLIBPARAM stExact = pstBuilder->stParam;
      int iRet = vix_lib_param_for_counts(&stExact, &stCounts);
      if (iRet == 0) iRet = pstBuilder->relayout(stExact);
      if (iRet != 0) return iRet;
    }
    LPVIXMETALIB pstLib = pstBuilder->pstLib;
    vix_update_checksum(pstLib);
    if (vix_check_lib_i(pstLib, pstLib->iSize) != 0) return VIX_ERROR_INTERNAL;
    pstBuilder->bFinished = true;
    if (pstBuilder->bGrowing) pstBuilder->pstLib = nullptr;  // handed over
    *ppstLib = pstLib;
    return 0;
  });
}
