// Hostile libraries: a block whose checksum is right but whose offsets, sizes or references are
// not is refused with VIX_ERROR_BAD_METALIB_FILE before anything reads it.
#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <vector>

#include "vix_test_util.h"

namespace {

using vixtest::LibPtr;

// A writable copy of a library, its records reachable by name.
class Copy {
 public:
  explicit Copy(const VIXMETALIB* pstLib) : words_(pstLib->iSize / 8 + 1) {
    memcpy(words_.data(), pstLib, pstLib->iSize);
  }
  VIXMETALIB* lib() { return reinterpret_cast<VIXMETALIB*>(words_.data()); }
  char* data() { return VIX_LIB_DATA(lib()); }
  VIXMETA* meta(const char* pszName) {
    return const_cast<VIXMETA*>(vix_get_meta_by_name(lib(), pszName));
  }
  VIXMETAENTRY* entry(const char* pszMeta, int i) {
    return const_cast<VIXMETAENTRY*>(vix_get_entry_by_index(meta(pszMeta), i));
  }
  VIXMACROSGROUP* group() {
    return const_cast<VIXMACROSGROUP*>(vix_get_macrosgroup_by_index(lib(), 0));
  }
  template <typename T>
  T* at(VIXPTR p) {
    return reinterpret_cast<T*>(data() + p);
  }
  int load() {
    vix_update_checksum(lib());
    VIXMETALIB* pstLoaded = nullptr;
    size_t iLen = lib()->iSize;
    const int iRet = vix_load_metalib_buf(&pstLoaded, lib(), &iLen);
    vix_free_lib(&pstLoaded);
    return iRet;
  }

 private:
  std::vector<uint64_t> words_;
};

struct Hostile {
  const char* pszName;
  std::function<void(Copy&)> fnBreak;
};

TEST(Check, EveryHardeningCheckRefuses) {
  LibPtr lib = vixtest::sample_lib();
  const Hostile kCases[] = {
      {"counts above capacity", [](Copy& c) { c.lib()->iCurMetaNum = c.lib()->iMaxMetaNum + 1; }},
      {"negative count", [](Copy& c) { c.lib()->iCurMacroNum = -1; }},
      {"table area moved", [](Copy& c) { c.lib()->ptrMap += 16; }},
      {"meta area beyond strings", [](Copy& c) { c.lib()->ptrLaseMeta = c.lib()->ptrStrBuf + 8; }},
      {"free string size", [](Copy& c) { c.lib()->iFreeStrBufSize += 1; }},
      {"group area beyond block", [](Copy& c) { c.lib()->iMacrosGroupSize = c.lib()->iSize; }},
      {"unterminated strings", [](Copy& c) { c.data()[c.lib()->ptrMacroGroupMap - 1] = 'x'; }},
      {"macro name outside strings", [](Copy& c) { c.at<VIXMACRO>(0)->ptrMacro = 0; }},
      {"meta misplaced", [](Copy& c) { c.at<VIXMAPENTRY>(c.lib()->ptrMap)->iPtr += 4; }},
      {"meta self reference", [](Copy& c) { c.meta("Head")->ptrMeta += 8; }},
      {"meta size beyond area", [](Copy& c) { c.meta("Pkg")->iMemSize = c.lib()->iSize; }},
      {"meta size below header", [](Copy& c) { c.meta("Logout")->iMemSize = 8; }},
      {"entries beyond meta", [](Copy& c) { c.meta("Logout")->iEntriesNum = 1000; }},
      {"metas overlap", [](Copy& c) { c.meta("Head")->iMemSize += 304; }},
      {"entry back reference", [](Copy& c) { c.entry("Login", 1)->iOffToMeta += 304; }},
      {"entry type outside table", [](Copy& c) { c.entry("Login", 1)->iType = 39; }},
      {"entry beyond instance", [](Copy& c) { c.entry("Login", 1)->iHOff = 40; }},
      {"entry real size", [](Copy& c) { c.entry("Login", 0)->iHRealSize = 33; }},
      {"entry smaller than type",
       [](Copy& c) { c.entry("Logout", 0)->iNUnitSize = c.entry("Logout", 0)->iNRealSize = 2; }},
      {"composite into a meta's middle", [](Copy& c) { c.entry("Pkg", 0)->ptrMeta += 8; }},
      {"composite too large for member",
       [](Copy& c) { c.entry("Pkg", 0)->iHUnitSize = c.entry("Pkg", 0)->iHRealSize = 4; }},
      {"refer to no entry", [](Copy& c) { c.entry("Pkg", 2)->stRefer.ptrEntry += 8; }},
      {"refer beyond instance", [](Copy& c) { c.entry("Pkg", 2)->stRefer.iHOff = 1 << 20; }},
      {"selector width", [](Copy& c) { c.entry("Pkg", 3)->stSelector.iUnitSize = 3; }},
      {"entry name outside strings", [](Copy& c) { c.entry("Body", 0)->ptrName = 1; }},
      {"default beyond strings", [](Copy& c) { c.entry("Pkg", 2)->iDefaultValLen = 1 << 30; }},
      {"entry macro group", [](Copy& c) { c.entry("Head", 1)->ptrMacrosGroup += 8; }},
      {"macro index", [](Copy& c) { c.entry("Head", 1)->idxCount = 4; }},
      {"group member index",
       [](Copy& c) { c.at<int32_t>(c.group()->ptrNameIdxMap)[1] = c.lib()->iCurMacroNum; }},
      {"group index array", [](Copy& c) { c.group()->ptrValueIdxMap = c.lib()->iSize; }},
      {"group name unterminated", [](Copy& c) { memset(c.group()->szName, 'g', VIX_NAME_LEN); }},
      {"group count", [](Copy& c) { c.group()->iCurMacroCount = c.group()->iMaxMacroCount + 1; }},
      {"ID table to no meta", [](Copy& c) { c.at<VIXIDENTRY>(c.lib()->ptrID)->ptrMeta += 304; }},
      {"ID table id", [](Copy& c) { c.at<VIXIDENTRY>(c.lib()->ptrID)->iID = 77; }},
      {"name table name", [](Copy& c) { c.at<VIXNAMEENTRY>(c.lib()->ptrName)->ptrName += 1; }},
      {"index outside meta", [](Copy& c) { c.meta("Pkg")->ptrIndexes = 8; }},
      {"index columns outside meta",
       [](Copy& c) { c.at<VIXMETAINDEX>(c.meta("Pkg")->ptrIndexes)->ptrColumnBase = 0; }},
      {"index attribute slot",
       [](Copy& c) { c.at<VIXMETAINDEX>(c.meta("Pkg")->ptrIndexes)->dwCustomAttr = ~0u; }},
      {"primary key count", [](Copy& c) { c.meta("Pkg")->nPrimayKeyMemberNum = 500; }},
      {"split key entry", [](Copy& c) { c.meta("Pkg")->stSplitTableKey.ptrEntry = 16; }},
      {"depends on no meta", [](Copy& c) { c.meta("Pkg")->ptrDependonStruct = 24; }},
      {"a meta containing itself",
       [](Copy& c) {
         // Logout's only member (4 bytes, like Logout itself) becomes a Logout.
         VIXMETAENTRY* e = c.entry("Logout", 0);
         e->iType = VIX_TYPEIDX_STRUCT;
         e->ptrMeta = c.meta("Logout")->ptrMeta;
       }},
  };
  for (const Hostile& h : kCases) {
    Copy c(lib.get());
    ASSERT_EQ(0, c.load()) << "unbroken copy";
    h.fnBreak(c);
    EXPECT_EQ(VIX_ERROR_BAD_METALIB_FILE, c.load()) << h.pszName;
  }
}

TEST(Check, DetailNamesTheFieldPerThread) {
  LibPtr lib = vixtest::sample_lib();
  std::thread([&] {
    ASSERT_EQ(0, vix_init_for_thread());
    EXPECT_STREQ("no detail error", vix_get_error_detail());
    Copy c(lib.get());
    c.entry("Login", 1)->iType = 39;
    EXPECT_EQ(VIX_ERROR_BAD_METALIB_FILE, c.load());
    EXPECT_NE(nullptr, strstr(vix_get_error_detail(), "entry 1 type")) << vix_get_error_detail();
    vix_fini_for_thread();
  }).join();
  EXPECT_EQ(nullptr, strstr(vix_get_error_detail(), "entry 1 type"));  // not this thread's
}

TEST(Check, UnsortedTablesLoadAndMissSafely) {
  LibPtr lib = vixtest::sample_lib();
  Copy c(lib.get());
  std::swap(c.at<VIXNAMEENTRY>(c.lib()->ptrName)[0], c.at<VIXNAMEENTRY>(c.lib()->ptrName)[4]);
  std::swap(c.at<VIXIDENTRY>(c.lib()->ptrID)[0], c.at<VIXIDENTRY>(c.lib()->ptrID)[4]);
  ASSERT_EQ(0, c.load());
  for (const char* pszName : {"Body", "Head", "Login", "Logout", "Pkg", "Zzz", ""}) {
    const VIXMETA* m = vix_get_meta_by_name(c.lib(), pszName);
    if (m != nullptr) {
      EXPECT_STREQ(pszName, vix_get_meta_name(m));
    }
  }
  for (int iID = 0; iID < 7; ++iID) {
    const VIXMETA* m = vix_get_meta_by_id(c.lib(), iID);
    if (m != nullptr) {
      EXPECT_EQ(iID, vix_get_meta_id(m));
    }
  }
}

}  // namespace
