// The configuration's metadata library against the C declarations of wlog_conf.h: every meta
// and every entry of the library has the host size and offset the C compiler gives the record
// and member. (Its defaults and macros are exercised by reading files: wlog_conf_text_test.)
#include <gtest/gtest.h>
#include <stddef.h>

#include <map>
#include <string>
#include <vector>

#include "wlog/wlog.h"

namespace {

struct Member {
  const char* pszName;
  size_t iOffset;
  size_t iSize;
};

struct Record {
  size_t iSize;
  std::vector<Member> members;
};

#define M(rec, field, name) \
  Member { name, offsetof(rec, field), sizeof(static_cast<rec*>(nullptr)->field) }

// Every meta of the library with its C record: element name -> C member.
std::map<std::string, Record> c_records() {
  std::map<std::string, Record> r;
  r["IntFilter"] = {sizeof(INTFILTER),
                    {M(INTFILTER, dwStart, "Start"), M(INTFILTER, dwCount, "Count"),
                     M(INTFILTER, nMod, "Mod"), M(INTFILTER, nRes, "Res"),
                     M(INTFILTER, nModStart, "ModStart"), M(INTFILTER, nModCount, "ModCount")}};
  r["Filter"] = {sizeof(WLOGFILTER),
                 {M(WLOGFILTER, stIDFilter, "IDFilter"), M(WLOGFILTER, stClsFilter, "ClsFilter")}};
  r["FilterVec"] = {sizeof(WLOGFILTERVEC),
                    {M(WLOGFILTERVEC, iCount, "Count"), M(WLOGFILTERVEC, astFilters, "Filters")}};
  r["DevFile"] = {
      sizeof(WLOGDEVFILE),
      {M(WLOGDEVFILE, szPattern, "Pattern"), M(WLOGDEVFILE, iBuffSize, "BuffSize"),
       M(WLOGDEVFILE, dwSizeLimit, "SizeLimit"), M(WLOGDEVFILE, iPrecision, "Precision"),
       M(WLOGDEVFILE, iMaxRotate, "MaxRotate"), M(WLOGDEVFILE, iSyncTime, "SyncTime"),
       M(WLOGDEVFILE, iNoFindLatest, "NoFindLatest"), M(WLOGDEVFILE, iRotateStick, "RotateStick"),
       M(WLOGDEVFILE, iDropBinaryHead, "DropBinaryHead")}};
  r["DevNet"] = {
      sizeof(WLOGDEVNET),
      {M(WLOGDEVNET, szUrl, "Url"), M(WLOGDEVNET, iBuffSize, "BuffSize"),
       M(WLOGDEVNET, iSendBuff, "SendBuff"), M(WLOGDEVNET, iRecvBuff, "RecvBuff"),
       M(WLOGDEVNET, iAutoReconnect, "AutoReconnect"), M(WLOGDEVNET, iMaxRetry, "MaxRetry"),
       M(WLOGDEVNET, iConnTimeout, "ConnTimeout"), M(WLOGDEVNET, iSendTimeout, "SendTimeout")}};
  r["DevMem"] = {sizeof(WLOGDEVMEM),
                 {M(WLOGDEVMEM, iEnable, "enable"), M(WLOGDEVMEM, szUri, "uri"),
                  M(WLOGDEVMEM, iBuffSize, "BuffSize"), M(WLOGDEVMEM, szPattern, "Pattern"),
                  M(WLOGDEVMEM, dwSizeLimit, "SizeLimit")}};
  r["DevTerm"] = {sizeof(WLOGDEVTERM), {M(WLOGDEVTERM, iStdType, "StdType")}};
  r["DevElementSelector"] = {
      sizeof(WLOGDEVELEMENTSELECTOR),
      {M(WLOGDEVELEMENTSELECTOR, stFile, "File"), M(WLOGDEVELEMENTSELECTOR, stNet, "Net")}};
  r["DevElement"] = {sizeof(WLOGDEVELEMENT),
                     {M(WLOGDEVELEMENT, iID, "ID"), M(WLOGDEVELEMENT, iCtrl, "Ctrl"),
                      M(WLOGDEVELEMENT, stFilterVec, "FilterVec"), M(WLOGDEVELEMENT, iType, "Type"),
                      M(WLOGDEVELEMENT, stDevice, "Device")}};
  r["DevVec"] = {sizeof(WLOGDEVVEC),
                 {M(WLOGDEVVEC, iInst, "Inst"), M(WLOGDEVVEC, iCount, "Count"),
                  M(WLOGDEVVEC, astElements, "Elements")}};
  r["DevSelector"] = {sizeof(WLOGDEVSELECTOR),
                      {M(WLOGDEVSELECTOR, stFile, "File"), M(WLOGDEVSELECTOR, stNet, "Net"),
                       M(WLOGDEVSELECTOR, stMem, "Mem"), M(WLOGDEVSELECTOR, stTerm, "Term"),
                       M(WLOGDEVSELECTOR, stVec, "Vec")}};
  r["DevAny"] = {sizeof(WLOGDEVANY),
                 {M(WLOGDEVANY, iType, "Type"), M(WLOGDEVANY, stDevice, "Device")}};
  r["Category"] = {
      sizeof(WLOGCATEGORY),
      {M(WLOGCATEGORY, szName, "Name"), M(WLOGCATEGORY, iPriorityHigh, "PriorityHigh"),
       M(WLOGCATEGORY, iPriorityLow, "PriorityLow"), M(WLOGCATEGORY, stFilter, "Filter"),
       M(WLOGCATEGORY, iLevelDispatch, "LevelDispatch"), M(WLOGCATEGORY, iMustSucc, "MustSucc"),
       M(WLOGCATEGORY, iMaxMsgSize, "MaxMsgSize"), M(WLOGCATEGORY, szFormat, "Format"),
       M(WLOGCATEGORY, szForwardCat, "ForwardCat"), M(WLOGCATEGORY, stDevice, "Device")}};
  r["WLOGCONF"] = {sizeof(WLOGCONF),
                   {M(WLOGCONF, iMagic, "Magic"), M(WLOGCONF, iPriorityHigh, "PriorityHigh"),
                    M(WLOGCONF, iPriorityLow, "PriorityLow"), M(WLOGCONF, iDelayInit, "DelayInit"),
                    M(WLOGCONF, iSuppressError, "SuppressError"),
                    M(WLOGCONF, iAsyncDnsInternal, "AsyncDnsInternal"),
                    M(WLOGCONF, iCount, "Count"), M(WLOGCONF, astCategoryList, "CategoryList")}};
  return r;
}

#undef M

TEST(WlogMeta, EveryMetaAndEntryHasTheCLayout) {
  const VIXMETALIB* pstLib = wlog_get_meta_data();
  ASSERT_NE(nullptr, pstLib);
  const std::map<std::string, Record> records = c_records();
  ASSERT_EQ(static_cast<int>(records.size()), vix_get_meta_num(pstLib));
  for (int i = 0; i < vix_get_meta_num(pstLib); ++i) {
    const VIXMETA* m = vix_get_meta_by_index(pstLib, i);
    const std::string sMeta = vix_get_meta_name(m);
    auto it = records.find(sMeta);
    ASSERT_NE(records.end(), it) << sMeta;
    EXPECT_EQ(it->second.iSize, vix_get_meta_size(m)) << sMeta;
    ASSERT_EQ(static_cast<int>(it->second.members.size()), vix_get_entry_num(m)) << sMeta;
    for (int k = 0; k < vix_get_entry_num(m); ++k) {
      const VIXMETAENTRY* e = vix_get_entry_by_index(m, k);
      const std::string sEntry = vix_get_entry_name(e);
      SCOPED_TRACE(sMeta + "." + sEntry);
      const Member* c = nullptr;
      for (const Member& mb : it->second.members) {
        if (sEntry == mb.pszName) c = &mb;
      }
      ASSERT_NE(nullptr, c);
      EXPECT_EQ(static_cast<VIXOFF>(c->iOffset), vix_get_entry_offset(e));
      EXPECT_EQ(c->iSize, vix_get_entry_unitsize(e) * static_cast<size_t>(vix_get_entry_count(e)));
    }
  }
}

}  // namespace
