// A readable dump of a whole library: header values, macros, macro groups, and every meta with
// its entries, indexes and keys. The form is described in vix_io.h.
#include <stdarg.h>
#include <stdio.h>

#include "vix/vix_io.h"
#include "vix_internal.h"

namespace {

class Dumper {
 public:
  Dumper(const VIXMETALIB* pstLib, FILE* fp) : lib_(pstLib), fp_(fp) {}

  int run() {
    header();
    for (int i = 0; i < lib_->iCurMacroNum; ++i) macro(i);
    for (int i = 0; i < lib_->iCurMacrosGroupNum; ++i) group(i);
    for (int i = 0; i < lib_->iCurMetaNum; ++i) meta(i);
    if (!ok_) {
      vix_set_error_detail_i("; failed to write the dump of metalib<%s>", lib_->szName);
      return VIX_ERROR_WRITE_FILE;
    }
    return 0;
  }

 private:
  void put(const char* pszFormat, ...) VIX_PRINTF_LIKE(2, 3) {
    if (!ok_) return;
    va_list ap;
    va_start(ap, pszFormat);
    if (vfprintf(fp_, pszFormat, ap) < 0) ok_ = false;
    va_end(ap);
  }

  const char* str(VIXPTR ptr) const { return vix_lib_str_i(lib_, ptr); }

  void header() {
    const VIXMETALIB& h = *lib_;
    put("metalib name=\"%s\" id=%d version=%d build=%d platform=%u size=%llu checksum=0x%08x\n",
        h.szName, h.iID, h.iVersion, h.nBuild, h.dwPlatformArch,
        static_cast<unsigned long long>(h.iSize), h.checksum);
    put("  tagset=%d flag=%llu metas=%d/%d macros=%d/%d groups=%d/%d maxid=%d\n", h.iXMLTagSetVer,
        static_cast<unsigned long long>(h.iFlag), h.iCurMetaNum, h.iMaxMetaNum, h.iCurMacroNum,
        h.iMaxMacroNum, h.iCurMacrosGroupNum, h.iMaxMacrosGroupNum, h.iMaxID);
  }

  void macro(int i) {
    const VIXMACRO* m = vix_get_metalib_macro_by_index(lib_, i);
    if (m == nullptr) return;
    put("macro[%d] name=\"%s\" value=%d desc=\"%s\"\n", i, str(m->ptrMacro), m->iValue,
        str(m->ptrDesc));
  }

  void group(int i) {
    const VIXMACROSGROUP* g = vix_get_macrosgroup_by_index(lib_, i);
    if (g == nullptr) return;
    put("group[%d] name=\"%s\" macros=%d desc=\"%s\"\n", i, g->szName, g->iCurMacroCount,
        str(g->ptrDesc));
    for (int k = 0; k < g->iCurMacroCount; ++k) {
      const VIXMACRO* m = vix_get_macrosgroup_macro_by_index(lib_, g, k);
      if (m != nullptr) put("  macro name=\"%s\" value=%d\n", str(m->ptrMacro), m->iValue);
    }
  }

  // The path of the member at a host offset of meta m, or the entry's name.
  const char* path(const VIXMETA* m, VIXOFF iHOff, VIXPTR ptrEntry, char* pszBuff, size_t iBuff) {
    if (vix_entry_off_to_path(m, iHOff, pszBuff, iBuff) == 0) return pszBuff;
    if (ptrEntry == VIX_PTR_NONE) return "?";
    return vix_get_entry_name(vix_lib_at_i<VIXMETAENTRY>(lib_, ptrEntry));
  }

  void keys(const char* pszTitle, const VIXMETA* m, const VIXDBKEYINFO* pstKeys, int iNum) {
    put("%s", pszTitle);
    for (int k = 0; k < iNum; ++k) {
      char szPath[256];
      put("%s%s", k > 0 ? ", " : "",
          path(m, pstKeys[k].iHOff, pstKeys[k].ptrEntry, szPath, sizeof(szPath)));
    }
    put("\n");
  }

  void meta(int i) {
    const VIXMETA* m = vix_get_meta_by_index(lib_, i);
    if (m == nullptr) return;
    put("meta[%d] name=\"%s\" type=%s id=%d version=%d..%d hsize=%llu nsize=%llu align=%d "
        "entries=%d indexes=%d keys=%d desc=\"%s\" cname=\"%s\" attr=\"%s\" attr2=\"%s\"\n",
        i, str(m->ptrName), m->iType == VIX_TYPE_UNION ? "union" : "struct", m->iID,
        m->iBaseVersion, m->iCurVersion, static_cast<unsigned long long>(m->iHUnitSize),
        static_cast<unsigned long long>(m->iNUnitSize), m->iValidAlign, m->iEntriesNum,
        m->iIndexesNum, m->nPrimayKeyMemberNum, str(m->ptrDesc), str(m->ptrChineseName),
        str(m->ptrCustomAttr), str(m->ptrCustomAttr2));
    const VIXMETAENTRY* es = vix_meta_entries_i(m);
    for (int j = 0; j < m->iEntriesNum; ++j) entry(m, es + j, j);
    for (int k = 0; k < m->iIndexesNum; ++k) {
      const VIXMETAINDEX* x =
          vix_lib_at_i<VIXMETAINDEX>(lib_, m->ptrIndexes + sizeof(VIXMETAINDEX) * k);
      put("  index[%d] name=\"%s\" id=%d version=%d type=%d unique=%d", k, str(x->ptrName), x->iID,
          x->iVersion, x->iIndexType, x->iIsUnique);
      const VIXDBKEYINFO* pstColumns =
          x->iColumnNum > 0 ? vix_lib_at_i<VIXDBKEYINFO>(lib_, x->ptrColumnBase) : nullptr;
      keys(" columns=", m, pstColumns, x->iColumnNum);
    }
    if (m->nPrimayKeyMemberNum > 0) {
      keys("  primarykey ", m, vix_lib_at_i<VIXDBKEYINFO>(lib_, m->ptrPrimayKeyBase),
           m->nPrimayKeyMemberNum);
    }
  }

  void entry(const VIXMETA* m, const VIXMETAENTRY* e, int j) {
    char szType[64];
    const char* pszType;
    if (vix_type_is_composite_i(e->iType)) {
      pszType = vix_get_meta_name(vix_lib_at_i<VIXMETA>(lib_, e->ptrMeta));
    } else {
      pszType = vix_get_typename_by_index(e->iType);
      if (pszType == nullptr) {
        snprintf(szType, sizeof(szType), "#%d", e->iType);
        pszType = szType;
      }
    }
    char szId[16] = "-";
    if ((e->wFlag & VIX_ENTRY_FLAG_HAS_ID) != 0) snprintf(szId, sizeof(szId), "%d", e->iID);
    char szRefer[256];
    const char* pszRefer =
        e->stRefer.iUnitSize == 0
            ? "-"
            : path(m, e->stRefer.iHOff, e->stRefer.ptrEntry, szRefer, sizeof(szRefer));
    char szSelect[256];
    const char* pszSelect =
        e->stSelector.iUnitSize == 0
            ? "-"
            : path(m, e->stSelector.iHOff, e->stSelector.ptrEntry, szSelect, sizeof(szSelect));
    char szRange[32] = "-";
    if (e->iMinId <= e->iMaxId) snprintf(szRange, sizeof(szRange), "[%d,%d]", e->iMinId, e->iMaxId);
    const VIXMACROSGROUP* g =
        e->ptrMacrosGroup == VIX_PTR_NONE ? nullptr : vix_get_entry_macrosgroup(e);
    put("  entry[%d] name=\"%s\" type=%s id=%s version=%d count=%d refer=%s select=%s hoff=%lld "
        "hunit=%llu hsize=%llu noff=%lld nunit=%llu nsize=%llu range=%s group=%s",
        j, str(e->ptrName), pszType, szId, e->iVersion, e->iCount, pszRefer, pszSelect,
        static_cast<long long>(e->iHOff), static_cast<unsigned long long>(e->iHUnitSize),
        static_cast<unsigned long long>(e->iHRealSize), static_cast<long long>(e->iNOff),
        static_cast<unsigned long long>(e->iNUnitSize),
        static_cast<unsigned long long>(e->iNRealSize), szRange, g != nullptr ? g->szName : "-");
    if (e->ptrDefaultVal == VIX_PTR_NONE) {
      put(" default=-");
    } else {
      put(" default=\"%.*s\"", static_cast<int>(e->iDefaultValLen), str(e->ptrDefaultVal));
    }
    put(" desc=\"%s\" cname=\"%s\" io=%d flag=0x%x\n", str(e->ptrDesc), str(e->ptrChineseName),
        e->iIO, e->wFlag);
  }

  const VIXMETALIB* lib_;
  FILE* fp_;
  bool ok_ = true;
};

}  // namespace

int vix_dump_metalib(const VIXMETALIB* pstLib, FILE* fp) {
  vix_clear_error_detail_i();
  if (pstLib == nullptr || fp == nullptr || !vix_lib_format_ok_i(pstLib)) {
    vix_set_error_detail_i("; invalid parameters: a_pstLib<%p> or a_fp<%p>",
                           static_cast<const void*>(pstLib), static_cast<void*>(fp));
    return VIX_ERROR_INVALID_PARAM;
  }
  Dumper stDumper(pstLib, fp);
  return stDumper.run();
}

int vix_dump_metalib_file(const VIXMETALIB* pstLib, const char* pszPath) {
  vix_clear_error_detail_i();
  if (pstLib == nullptr || pszPath == nullptr || !vix_lib_format_ok_i(pstLib)) {
    vix_set_error_detail_i("; invalid parameters: a_pstLib<%p> or a_pszPath<%p>",
                           static_cast<const void*>(pstLib), static_cast<const void*>(pszPath));
    return VIX_ERROR_INVALID_PARAM;
  }
  FILE* fp = fopen(pszPath, "w");
  if (fp == nullptr) {
    vix_set_error_detail_i("; cannot open<%s> for writing", pszPath);
    return VIX_ERROR_OPEN_FILE_WRITE;
  }
  int iRet = vix_dump_metalib(pstLib, fp);
  if (fclose(fp) != 0 && iRet == 0) iRet = VIX_ERROR_WRITE_FILE;
  return iRet;
}
