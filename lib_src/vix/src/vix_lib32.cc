// The 32-bit form of a library, written beside the 64-bit form in files that serve both
// platforms. Every record is narrowed to its 32-bit layout, so records move: each reference is
// mapped to where its target lands in the new block.
#include <stdlib.h>

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

#include "vix/vix_metalib.h"
#include "vix_internal.h"

namespace {

class Lib32Writer {
 public:
  explicit Lib32Writer(const VIXMETALIB* pstLib) : lib_(pstLib) {}

  int run(LPVIXMETALIB32* ppstOut) {
    plan();
    VIXLIBPARAM stParam;
    memset(&stParam, 0, sizeof(stParam));
    stParam.iID = lib_->iID;
    stParam.iTagSetVersion = lib_->iXMLTagSetVer;
    stParam.iMacrosGroupSize = groupBytes_;
    stParam.iMetaSize = metaBytes_;
    stParam.iStrBufSize = lib_->ptrMacroGroupMap - lib_->ptrStrBuf;
    stParam.iMaxMacros = lib_->iMaxMacroNum;
    stParam.iMaxMetas = lib_->iMaxMetaNum;
    stParam.iMaxMacrosGroupNum = lib_->iMaxMacrosGroupNum;
    stParam.iResFlag = static_cast<int32_t>(lib_->iFlag);
    stParam.iVersion = lib_->iVersion;
    memcpy(stParam.szName, lib_->szName, sizeof(stParam.szName));
    stParam.iSize = sizeof(VIXMETALIB32) + sizeof(VIXMACRO32) * stParam.iMaxMacros +
                    3 * sizeof(VIXIDENTRY32) * stParam.iMaxMetas +
                    sizeof(VIXMAPENTRY32) * stParam.iMaxMacrosGroupNum + stParam.iMetaSize +
                    stParam.iStrBufSize + stParam.iMacrosGroupSize;
    if (stParam.iSize > UINT32_MAX) return VIX_ERROR_LIB_PARAM;
    out_ = static_cast<LPVIXMETALIB32>(calloc(1, stParam.iSize));
    if (out_ == nullptr) return VIX_ERROR_NO_MEMORY;
    int iRet = vix_init_lib_for32(out_, &stParam);
    if (iRet == 0) iRet = fill();
    if (iRet != 0) {
      vix_free_lib32(&out_);
      return iRet;
    }
    vix_update_checksum32(out_);
    *ppstOut = out_;
    return 0;
  }

 private:
  struct MetaPlace {
    uint64_t iStart64;
    uint32_t iStart32;  // offset inside the 32-bit meta area
    const VIXMETA* pstMeta;
  };

  static uint64_t meta_bytes32_i(const VIXMETA* m) {
    uint64_t iColumns = 0;
    const VIXMETALIB* pstLib = vix_lib_of_meta_i(m);
    for (int k = 0; k < m->iIndexesNum; ++k) {
      const VIXMETAINDEX* x =
          vix_lib_at_i<VIXMETAINDEX>(pstLib, m->ptrIndexes + sizeof(VIXMETAINDEX) * k);
      iColumns += static_cast<uint64_t>(x->iColumnNum);
    }
    return sizeof(VIXMETA32) + sizeof(VIXMETAENTRY32) * static_cast<uint64_t>(m->iEntriesNum) +
           sizeof(VIXMETAINDEX32) * static_cast<uint64_t>(m->iIndexesNum) +
           sizeof(VIXDBKEYINFO32) * (iColumns + static_cast<uint64_t>(m->nPrimayKeyMemberNum));
  }

  // Places the metas in definition order and the groups in map order.
  void plan() {
    for (int i = 0; i < lib_->iCurMetaNum; ++i) {
      const VIXMETA* m = vix_get_meta_by_index(lib_, i);
      places_.push_back(MetaPlace{m->ptrMeta, static_cast<uint32_t>(metaBytes_), m});
      metaBytes_ += meta_bytes32_i(m);
    }
    byStart_ = places_;
    std::sort(byStart_.begin(), byStart_.end(),
              [](const MetaPlace& a, const MetaPlace& b) { return a.iStart64 < b.iStart64; });
    for (int g = 0; g < lib_->iCurMacrosGroupNum; ++g) {
      const VIXMAPENTRY* pstMap =
          vix_lib_at_i<VIXMAPENTRY>(lib_, lib_->ptrMacroGroupMap + sizeof(VIXMAPENTRY) * g);
      const VIXMACROSGROUP* pstGroup = vix_lib_at_i<VIXMACROSGROUP>(lib_, pstMap->iPtr);
      groups64_.push_back(pstMap->iPtr);
      groups32_.push_back(groupBytes_);
      groupsByStart_.emplace_back(pstMap->iPtr, groupBytes_);
      groupBytes_ +=
          sizeof(VIXMACROSGROUP32) + 8u * static_cast<uint64_t>(pstGroup->iCurMacroCount);
    }
    std::sort(groupsByStart_.begin(), groupsByStart_.end());
  }

  uint32_t u32(uint64_t v) {
    if (v > UINT32_MAX) ok_ = false;
    return static_cast<uint32_t>(v);
  }
  int32_t s32(int64_t v) {
    if (v < INT32_MIN || v > INT32_MAX) ok_ = false;
    return static_cast<int32_t>(v);
  }

  VIXPTR32 str(VIXPTR p) {
    return p == VIX_PTR_NONE ? VIX_PTR32_NONE : u32(p - lib_->ptrStrBuf + out_->ptrStrBuf);
  }

  // The meta holding offset p (the last one starting at or before it).
  const MetaPlace* place_of(VIXPTR p) const {
    auto it = std::upper_bound(byStart_.begin(), byStart_.end(), p,
                               [](uint64_t v, const MetaPlace& s) { return v < s.iStart64; });
    return it == byStart_.begin() ? nullptr : &*(it - 1);
  }

  VIXPTR32 meta(VIXPTR p) {
    if (p == VIX_PTR_NONE) return VIX_PTR32_NONE;
    const MetaPlace* pl = place_of(p);
    return u32(out_->ptrMeta + uint64_t{pl->iStart32});
  }

  VIXPTR32 entry(VIXPTR p) {
    if (p == VIX_PTR_NONE) return VIX_PTR32_NONE;
    const MetaPlace* pl = place_of(p);
    const uint64_t iIdx = (p - pl->iStart64 - sizeof(VIXMETA)) / sizeof(VIXMETAENTRY);
    return u32(out_->ptrMeta + pl->iStart32 + sizeof(VIXMETA32) + sizeof(VIXMETAENTRY32) * iIdx);
  }

  VIXPTR32 group(VIXPTR p) {
    if (p == VIX_PTR_NONE) return VIX_PTR32_NONE;
    auto it = std::lower_bound(groupsByStart_.begin(), groupsByStart_.end(),
                               std::make_pair(p, uint64_t{0}));
    return u32(out_->ptrMacrosGroup + it->second);
  }

  template <typename T>
  T* out_at(uint64_t iOff) {
    return reinterpret_cast<T*>(VIX_LIB32_DATA(out_) + iOff);
  }

  void size_info(VIXSIZEINFO32* d, const VIXSIZEINFO& s) {
    d->iNOff = s32(s.iNOff);
    d->iHOff = s32(s.iHOff);
    d->iUnitSize = u32(s.iUnitSize);
    d->idxSizeType = s.idxSizeType;
  }

  void selector(VIXSELECTOR32* d, const VIXSELECTOR& s) {
    d->iUnitSize = u32(s.iUnitSize);
    d->iHOff = s32(s.iHOff);
    d->ptrEntry = entry(s.ptrEntry);
  }

  void key(VIXDBKEYINFO32* d, const VIXDBKEYINFO& s) {
    d->iHOff = s32(s.iHOff);
    d->ptrEntry = entry(s.ptrEntry);
  }

  void entry_record(VIXMETAENTRY32* d, const VIXMETAENTRY& s, uint64_t iOffToMeta) {
    d->iID = s.iID;
    d->iVersion = s.iVersion;
    d->iType = s.iType;
    d->ptrName = str(s.ptrName);
    d->iHRealSize = u32(s.iHRealSize);
    d->iNRealSize = u32(s.iNRealSize);
    d->iHUnitSize = u32(s.iHUnitSize);
    d->iNUnitSize = u32(s.iNUnitSize);
    d->iCustomHUnitSize = u32(s.iCustomHUnitSize);
    d->iCount = s.iCount;
    d->iNOff = s32(s.iNOff);
    d->iHOff = s32(s.iHOff);
    d->idxID = s.idxID;
    d->idxVersion = s.idxVersion;
    d->idxCount = s.idxCount;
    d->idxType = s.idxType;
    d->idxCustomHUnitSize = s.idxCustomHUnitSize;
    d->wFlag = s.wFlag;
    d->chDBFlag = s.chDBFlag;
    d->chOrder = s.chOrder;
    size_info(&d->stSizeInfo, s.stSizeInfo);
    selector(&d->stRefer, s.stRefer);
    selector(&d->stSelector, s.stSelector);
    d->iIO = s.iIO;
    d->idxIO = s.idxIO;
    d->ptrMeta = vix_type_is_composite_i(s.iType) ? meta(s.ptrMeta) : VIX_PTR32_NONE;
    d->iMaxId = s.iMaxId;
    d->iMinId = s.iMinId;
    d->iMaxIdIdx = s.iMaxIdIdx;
    d->iMinIdIdx = s.iMinIdIdx;
    d->iDefaultValLen = u32(s.iDefaultValLen);
    d->ptrDesc = str(s.ptrDesc);
    d->ptrChineseName = str(s.ptrChineseName);
    d->ptrDefaultVal = str(s.ptrDefaultVal);
    d->ptrMacrosGroup = group(s.ptrMacrosGroup);
    d->ptrCustomAttr = str(s.ptrCustomAttr);
    d->iOffToMeta = u32(iOffToMeta);
    d->iFlag = u32(s.iFlag);
    d->ptrCustomAttr2 = str(s.ptrCustomAttr2);
    d->iReserve3 = static_cast<uint32_t>(s.iReserve3);
  }

  void meta_record(const MetaPlace& pl) {
    const VIXMETA& s = *pl.pstMeta;
    const uint64_t iStart = out_->ptrMeta + uint64_t{pl.iStart32};
    VIXMETA32* d = out_at<VIXMETA32>(iStart);
    d->uFlags = s.uFlags;
    d->iID = s.iID;
    d->iBaseVersion = s.iBaseVersion;
    d->iCurVersion = s.iCurVersion;
    d->iType = s.iType;
    d->iMemSize = u32(meta_bytes32_i(&s));
    d->iNUnitSize = u32(s.iNUnitSize);
    d->iHUnitSize = u32(s.iHUnitSize);
    d->iCustomHUnitSize = u32(s.iCustomHUnitSize);
    d->idxCustomHUnitSize = s.idxCustomHUnitSize;
    d->iMaxSubID = s.iMaxSubID;
    d->iEntriesNum = s.iEntriesNum;
    d->iIndexesNum = s.iIndexesNum;
    d->ptrMeta = u32(iStart);
    d->iIdx = s.iIdx;
    d->idxID = s.idxID;
    d->idxType = s.idxType;
    d->idxVersion = s.idxVersion;
    d->iCustomAlign = s.iCustomAlign;
    d->iValidAlign = s.iValidAlign;
    d->iVersionIndicatorMinVer = s.iVersionIndicatorMinVer;
    size_info(&d->stSizeType, s.stSizeType);
    d->stVersionIndicator.iNOff = s32(s.stVersionIndicator.iNOff);
    d->stVersionIndicator.iHOff = s32(s.stVersionIndicator.iHOff);
    d->stVersionIndicator.iUnitSize = u32(s.stVersionIndicator.iUnitSize);
    d->stSortKey.idxSortEntry = s.stSortKey.idxSortEntry;
    d->stSortKey.iSortKeyOff = s32(s.stSortKey.iSortKeyOff);
    d->stSortKey.ptrSortKeyMeta = meta(s.stSortKey.ptrSortKeyMeta);
    d->ptrName = str(s.ptrName);
    d->ptrDesc = str(s.ptrDesc);
    d->ptrChineseName = str(s.ptrChineseName);
    d->iSplitTableFactor = s.iSplitTableFactor;
    d->nSplitTableRuleID = s.nSplitTableRuleID;
    d->nPrimayKeyMemberNum = s.nPrimayKeyMemberNum;
    d->idxSplitTableFactor = s.idxSplitTableFactor;
    key(&d->stSplitTableKey, s.stSplitTableKey);
    d->ptrDependonStruct = meta(s.ptrDependonStruct);
    d->ptrCustomAttr = str(s.ptrCustomAttr);
    d->ptrCustomAttr2 = str(s.ptrCustomAttr2);
    d->iReserve3 = static_cast<uint32_t>(s.iReserve3);

    // Entries, then indexes, then every index's columns, then the primary key.
    uint64_t iPos = sizeof(VIXMETA32);
    const VIXMETAENTRY* e = vix_meta_entries_i(&s);
    for (int j = 0; j < s.iEntriesNum; ++j, iPos += sizeof(VIXMETAENTRY32)) {
      entry_record(out_at<VIXMETAENTRY32>(iStart + iPos), e[j], iPos);
    }
    d->ptrIndexes = s.iIndexesNum > 0 ? u32(iStart + iPos) : VIX_PTR32_NONE;
    uint64_t iColumnPos = iPos + sizeof(VIXMETAINDEX32) * static_cast<uint64_t>(s.iIndexesNum);
    d->ptrColumns = VIX_PTR32_NONE;
    for (int k = 0; k < s.iIndexesNum; ++k, iPos += sizeof(VIXMETAINDEX32)) {
      const VIXMETAINDEX* x =
          vix_lib_at_i<VIXMETAINDEX>(lib_, s.ptrIndexes + sizeof(VIXMETAINDEX) * k);
      VIXMETAINDEX32* xd = out_at<VIXMETAINDEX32>(iStart + iPos);
      xd->iVersion = x->iVersion;
      xd->ptrName = str(x->ptrName);
      xd->iOffToMeta = u32(iPos);
      xd->iColumnNum = x->iColumnNum;
      xd->iIndexType = x->iIndexType;
      xd->iIsUnique = x->iIsUnique;
      xd->ptrDesc = str(x->ptrDesc);
      xd->ptrChineseName = str(x->ptrChineseName);
      xd->iID = x->iID;
      xd->dwCustomAttr = x->dwCustomAttr;  // relative to the string buffer, which is copied
      xd->idxID = x->idxID;
      xd->dwCustomAttr2 = x->dwCustomAttr2;
      xd->ptrColumnBase = x->iColumnNum > 0 ? u32(iStart + iColumnPos) : VIX_PTR32_NONE;
      if (x->iColumnNum > 0 && d->ptrColumns == VIX_PTR32_NONE) d->ptrColumns = xd->ptrColumnBase;
      for (int n = 0; n < x->iColumnNum; ++n, iColumnPos += sizeof(VIXDBKEYINFO32)) {
        key(out_at<VIXDBKEYINFO32>(iStart + iColumnPos),
            vix_lib_at_i<VIXDBKEYINFO>(lib_, x->ptrColumnBase)[n]);
      }
    }
    d->ptrPrimayKeyBase = s.nPrimayKeyMemberNum > 0 ? u32(iStart + iColumnPos) : VIX_PTR32_NONE;
    for (int k = 0; k < s.nPrimayKeyMemberNum; ++k, iColumnPos += sizeof(VIXDBKEYINFO32)) {
      key(out_at<VIXDBKEYINFO32>(iStart + iColumnPos),
          vix_lib_at_i<VIXDBKEYINFO>(lib_, s.ptrPrimayKeyBase)[k]);
    }
  }

  int fill() {
    out_->iMaxID = lib_->iMaxID;
    out_->iCurMetaNum = lib_->iCurMetaNum;
    out_->iCurMacroNum = lib_->iCurMacroNum;
    out_->iCurMacrosGroupNum = lib_->iCurMacrosGroupNum;
    memcpy(out_->iReserve, lib_->iReserve, sizeof(out_->iReserve));
    // Strings keep their places inside the buffer.
    const uint64_t iStrBytes = lib_->ptrMacroGroupMap - lib_->ptrStrBuf;
    memcpy(out_at<char>(out_->ptrStrBuf), vix_lib_data_i(lib_) + lib_->ptrStrBuf, iStrBytes);
    out_->ptrFreeStrBuf = u32(out_->ptrStrBuf + (lib_->ptrFreeStrBuf - lib_->ptrStrBuf));
    out_->iFreeStrBufSize = u32(lib_->iFreeStrBufSize);
    out_->ptrLaseMeta = u32(out_->ptrMeta + metaBytes_);

    for (int i = 0; i < lib_->iCurMacroNum; ++i) {
      const VIXMACRO* s = vix_lib_at_i<VIXMACRO>(lib_, sizeof(VIXMACRO) * i);
      VIXMACRO32* d = out_at<VIXMACRO32>(out_->ptrMacro + sizeof(VIXMACRO32) * i);
      d->ptrMacro = str(s->ptrMacro);
      d->iValue = s->iValue;
      d->ptrDesc = str(s->ptrDesc);
      d->iReserve = s->iReserve;
    }
    for (int i = 0; i < lib_->iCurMetaNum; ++i) {
      const VIXIDENTRY* si = vix_lib_at_i<VIXIDENTRY>(lib_, lib_->ptrID + sizeof(VIXIDENTRY) * i);
      VIXIDENTRY32* di = out_at<VIXIDENTRY32>(out_->ptrID + sizeof(VIXIDENTRY32) * i);
      di->iID = si->iID;
      di->ptrMeta = meta(si->ptrMeta);
      const VIXNAMEENTRY* sn =
          vix_lib_at_i<VIXNAMEENTRY>(lib_, lib_->ptrName + sizeof(VIXNAMEENTRY) * i);
      VIXNAMEENTRY32* dn = out_at<VIXNAMEENTRY32>(out_->ptrName + sizeof(VIXNAMEENTRY32) * i);
      dn->ptrName = str(sn->ptrName);
      dn->ptrMeta = meta(sn->ptrMeta);
      VIXMAPENTRY32* dm = out_at<VIXMAPENTRY32>(out_->ptrMap + sizeof(VIXMAPENTRY32) * i);
      dm->iPtr = u32(out_->ptrMeta + uint64_t{places_[i].iStart32});
      dm->iSize = u32(meta_bytes32_i(places_[i].pstMeta));
      meta_record(places_[i]);
    }
    for (int g = 0; g < lib_->iCurMacrosGroupNum; ++g) {
      const VIXMACROSGROUP* s = vix_lib_at_i<VIXMACROSGROUP>(lib_, groups64_[g]);
      const uint64_t iStart = out_->ptrMacrosGroup + groups32_[g];
      const uint64_t iBytes = sizeof(int32_t) * static_cast<uint64_t>(s->iCurMacroCount);
      VIXMAPENTRY32* dm = out_at<VIXMAPENTRY32>(out_->ptrMacroGroupMap + sizeof(VIXMAPENTRY32) * g);
      dm->iPtr = u32(iStart);
      dm->iSize = u32(sizeof(VIXMACROSGROUP32) + 2 * iBytes);
      VIXMACROSGROUP32* d = out_at<VIXMACROSGROUP32>(iStart);
      d->iCurMacroCount = s->iCurMacroCount;
      d->iMaxMacroCount = s->iCurMacroCount;
      d->ptrDesc = str(s->ptrDesc);
      memcpy(d->szName, s->szName, sizeof(d->szName));
      d->ptrNameIdxMap = u32(iStart + sizeof(VIXMACROSGROUP32));
      d->ptrValueIdxMap = u32(iStart + sizeof(VIXMACROSGROUP32) + iBytes);
      if (iBytes > 0) {
        memcpy(out_at<char>(d->ptrNameIdxMap), vix_lib_data_i(lib_) + s->ptrNameIdxMap, iBytes);
        memcpy(out_at<char>(d->ptrValueIdxMap), vix_lib_data_i(lib_) + s->ptrValueIdxMap, iBytes);
      }
    }
    return ok_ ? 0 : VIX_ERROR_LIB_PARAM;
  }

  const VIXMETALIB* lib_;
  LPVIXMETALIB32 out_ = nullptr;
  bool ok_ = true;
  uint64_t metaBytes_ = 0;
  uint64_t groupBytes_ = 0;
  std::vector<MetaPlace> places_;   // definition order
  std::vector<MetaPlace> byStart_;  // by 64-bit start
  std::vector<uint64_t> groups64_;
  std::vector<uint64_t> groups32_;
  std::vector<std::pair<uint64_t, uint64_t>> groupsByStart_;  // (64-bit start, 32-bit offset)
};

}  // namespace

int vix_make_lib32(LPVIXMETALIB32* ppstLib32, const VIXMETALIB* pstLib) {
  if (ppstLib32 == nullptr || pstLib == nullptr) return VIX_ERROR_INVALID_PARAM;
  if (!vix_lib_usable_i(pstLib)) return VIX_ERROR_BUILD_VERSION;
  try {
    Lib32Writer stWriter(pstLib);
    return stWriter.run(ppstLib32);
  } catch (const std::bad_alloc&) {
    return VIX_ERROR_NO_MEMORY;
  }
}
