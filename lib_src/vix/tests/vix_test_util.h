// Helpers of the vix tests: owned libraries, a few-line builder, library bytes to files.
#ifndef VIX_TESTS_VIX_TEST_UTIL_H
#define VIX_TESTS_VIX_TEST_UTIL_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <memory>
#include <string>
#include <vector>

#include "vix/vix_builder.h"
#include "vix/vix_metalib.h"
#include "zq_test/support.h"

namespace vixtest {

struct LibDeleter {
  void operator()(VIXMETALIB* p) const { vix_free_lib(&p); }
};
using LibPtr = std::unique_ptr<VIXMETALIB, LibDeleter>;

// An entry description with the given name, type and count, the rest at its defaults.
inline VIXENTRYDESC entry_desc(const char* pszName, const char* pszType, int iCount = 1) {
  VIXENTRYDESC d;
  vix_entry_desc_init(&d);
  d.pszName = pszName;
  d.pszType = pszType;
  d.iCount = iCount;
  return d;
}

// A library written in a few lines; every step is expected to succeed.
class Build {
 public:
  explicit Build(const char* pszName = "testlib", int iVersion = 1) {
    VIXLIBPARAM stParam = {};
    stParam.iID = 7;
    stParam.iVersion = iVersion;
    snprintf(stParam.szName, sizeof(stParam.szName), "%s", pszName);
    EXPECT_EQ(0, vix_builder_open_growing(&b_, &stParam));
  }
  // Over a library laid out by the caller; finish with finish_fixed().
  explicit Build(VIXMETALIB* pstFixed) { EXPECT_EQ(0, vix_builder_open(&b_, pstFixed)); }
  ~Build() { vix_builder_close(&b_); }

  Build& macro(const char* pszName, int iValue) {
    expect(vix_builder_add_macro(b_, pszName, iValue, "d"));
    return *this;
  }
  Build& group(const char* pszName, std::vector<const char*> macros) {
    expect(vix_builder_add_macrosgroup(b_, pszName, nullptr, macros.data(),
                                       static_cast<int>(macros.size())));
    return *this;
  }
  Build& meta(const char* pszName, int iID, int iType = VIX_TYPE_STRUCT, int iVersion = 0) {
    VIXMETADESC d;
    vix_meta_desc_init(&d);
    d.pszName = pszName;
    d.iID = iID;
    d.iType = iType;
    d.iBaseVersion = iVersion;
    return meta(d);
  }
  Build& meta(const VIXMETADESC& d) {
    expect(vix_builder_begin_meta(b_, &d));
    return *this;
  }
  Build& entry(const char* pszName, const char* pszType, int iCount = 1) {
    expect(vix_builder_add_simple_entry(b_, pszName, pszType, iCount));
    return *this;
  }
  // An entry counted by, or a union entry selected by, another member, or bound to a macro group.
  Build& entry(const char* pszName, const char* pszType, int iCount, const char* pszRefer,
               const char* pszSelect = nullptr, const char* pszGroup = nullptr) {
    VIXENTRYDESC d = entry_desc(pszName, pszType, iCount);
    d.pszRefer = pszRefer;
    d.pszSelect = pszSelect;
    d.pszMacrosGroup = pszGroup;
    return entry(d);
  }
  Build& entry(const VIXENTRYDESC& d) {
    expect(vix_builder_add_entry(b_, &d));
    return *this;
  }
  // A union branch taking selector values [iMin, iMax] (iMin > iMax: the default branch).
  Build& branch(const char* pszName, const char* pszType, int iMin, int iMax, int iCount = 1) {
    VIXENTRYDESC d = entry_desc(pszName, pszType, iCount);
    d.iMinId = iMin;
    d.iMaxId = iMax;
    return entry(d);
  }
  Build& end() {
    expect(vix_builder_end_meta(b_));
    return *this;
  }
  LibPtr finish() {
    VIXMETALIB* pstLib = nullptr;
    expect(vix_builder_finish(b_, &pstLib));
    return LibPtr(pstLib);
  }
  int finish_fixed() {
    VIXMETALIB* pstLib = nullptr;
    return vix_builder_finish(b_, &pstLib);
  }
  VIXBUILDER* get() { return b_; }

 private:
  void expect(int iRet) { EXPECT_EQ(0, iRet) << vix_get_error_detail(); }
  VIXBUILDER* b_ = nullptr;
};

// A small library using every kind of record:
//   macros CMD_LOGIN 1, CMD_LOGOUT 2, CMD_DATA 3 (group Cmd), MAX_ITEMS 8
//   Head   id 1 { int16 magic; uint8 cmd (group Cmd); int32 len; }
//   Login  id 2 { string name[32]; ip addr; }
//   Logout id 3 { int32 reason; }
//   Body   id 4 union { string raw[16] (default); Login login [1,1]; Logout logout [2,2]; }
//   Pkg    id 5 { Head head; int8 count; int32 items[8] refer count; Body body select head.cmd;
//                 datetime at; }  index byCount(count), primary key (head.magic, count),
//                 split-table key head.len
inline void fill_sample(Build& b) {
  b.macro("CMD_LOGIN", 1).macro("CMD_LOGOUT", 2).macro("CMD_DATA", 3).macro("MAX_ITEMS", 8);
  b.group("Cmd", {"CMD_DATA", "CMD_LOGIN", "CMD_LOGOUT"});
  b.meta("Head", 1).entry("magic", "int16");
  VIXENTRYDESC e = entry_desc("cmd", "uint8");
  e.pszMacrosGroup = "Cmd";
  e.iHasID = 1;
  e.iID = 9;
  b.entry(e).entry("len", "int32").end();
  b.meta("Login", 2).entry("name", "string", 32).entry("addr", "ip").end();
  b.meta("Logout", 3).entry("reason", "int32").end();
  b.meta("Body", 4, VIX_TYPE_UNION)
      .branch("raw", "string", 1, 0, 16)
      .branch("login", "Login", 1, 1)
      .branch("logout", "Logout", 2, 2)
      .end();
  VIXMETADESC m;
  vix_meta_desc_init(&m);
  m.pszName = "Pkg";
  m.iID = 5;
  m.pszDesc = "a package";
  m.pszCustomAttr = "attr1";
  m.pszSplitTableKey = "head.len";
  b.meta(m).entry("head", "Head").entry("count", "int8");
  e = entry_desc("items", "int32", 8);
  e.pszRefer = "count";
  e.pszDefault = "7";
  b.entry(e);
  e = entry_desc("body", "Body");
  e.pszSelect = "head.cmd";
  e.pszCustomAttr2 = "attr2";
  b.entry(e).entry("at", "datetime");
  const char* apszCols[] = {"count"};
  VIXINDEXDESC x;
  vix_index_desc_init(&x);
  x.pszName = "byCount";
  x.iID = 11;
  x.pszCustomAttr = "ia";
  x.ppszColumns = apszCols;
  x.iColumnNum = 1;
  EXPECT_EQ(0, vix_builder_add_index(b.get(), &x));
  const char* apszKey[] = {"head.magic", "count"};
  EXPECT_EQ(0, vix_builder_set_primarykey(b.get(), apszKey, 2));
  b.end();
}

inline LibPtr sample_lib() {
  Build b("sample", 3);
  fill_sample(b);
  return b.finish();
}

inline std::vector<char> bytes_of(const VIXMETALIB* pstLib) {
  const char* p = reinterpret_cast<const char*>(pstLib);
  return std::vector<char>(p, p + pstLib->iSize);
}

inline void write_file(const std::string& sPath, const std::vector<char>& bytes) {
  ASSERT_TRUE(zq_test::WriteFile(sPath, std::string(bytes.begin(), bytes.end()))) << sPath;
}

}  // namespace vixtest

#endif  // VIX_TESTS_VIX_TEST_UTIL_H
