// Lookups: metas in a large library, the format check, entries and union branches, macros and
// groups, indexes and keys, member paths and offsets, comparison.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "vix_test_util.h"

namespace {

using vixtest::Build;
using vixtest::LibPtr;

std::string meta_name(int i) {
  return "M" + std::to_string(i * 7919 % 1000) + "_" + std::to_string(i);
}

TEST(Lookup, MetasByNameIdAndIndexInALargeLibrary) {
  Build b;
  const int n = 600;
  for (int i = 0; i < n; ++i) {
    b.meta(meta_name(i).c_str(), i * 3 - 701).entry("v", "int32").end();
  }
  LibPtr lib = b.finish();
  ASSERT_EQ(n, vix_get_meta_num(lib.get()));
  for (int i = 0; i < n; ++i) {
    const VIXMETA* m = vix_get_meta_by_name(lib.get(), meta_name(i).c_str());
    ASSERT_NE(nullptr, m) << i;
    EXPECT_EQ(i * 3 - 701, vix_get_meta_id(m));
    EXPECT_EQ(m, vix_get_meta_by_id(lib.get(), i * 3 - 701));
    EXPECT_EQ(m, vix_get_meta_by_index(lib.get(), i));
    EXPECT_EQ(lib.get(), vix_get_metalib_of_meta(m));
    EXPECT_EQ(nullptr, vix_get_meta_by_id(lib.get(), i * 3 - 700));
  }
  EXPECT_EQ(nullptr, vix_get_meta_by_name(lib.get(), "M"));
  EXPECT_EQ(nullptr, vix_get_meta_by_name(lib.get(), "zz"));
  EXPECT_EQ(nullptr, vix_get_meta_by_index(lib.get(), n));

  // The identifier -1 is refused at once, leaving the last error alone.
  vix_set_last_error(0);
  EXPECT_EQ(nullptr, vix_get_meta_by_id(lib.get(), -1));
  EXPECT_EQ(0, vix_get_last_error());
  // A library failing the format check: null, -1 or "", and the last error.
  lib->nBuild = 10;
  EXPECT_EQ(nullptr, vix_get_meta_by_name(lib.get(), meta_name(0).c_str()));
  EXPECT_EQ(VIX_ERROR_BUILD_VERSION, vix_get_last_error());
  vix_set_last_error(0);
  EXPECT_EQ(-1, vix_get_meta_num(lib.get()));
  EXPECT_EQ(VIX_ERROR_BUILD_VERSION, vix_get_last_error());
  lib->nBuild = VIX_BUILD;
  lib->dwPlatformArch = 32;
  EXPECT_STREQ("", vix_get_metalib_name(lib.get()));
  EXPECT_EQ(nullptr, vix_get_meta_by_id(lib.get(), -701));
  EXPECT_EQ(nullptr, vix_get_meta_by_name(nullptr, "x"));
}

TEST(Lookup, EntriesAndFields) {
  LibPtr lib = vixtest::sample_lib();
  const VIXMETA* pkg = vix_get_meta_by_name(lib.get(), "Pkg");
  ASSERT_NE(nullptr, pkg);
  EXPECT_EQ(5, vix_get_entry_num(pkg));
  EXPECT_STREQ("a package", vix_get_meta_desc(pkg));
  EXPECT_STREQ("attr1", vix_get_meta_customattr(pkg));
  EXPECT_STREQ("", vix_get_meta_customattr2(pkg));
  EXPECT_EQ(VIX_TYPE_STRUCT, vix_get_meta_type(pkg));
  int iIdx = 0;
  ASSERT_EQ(0, vix_get_entry_by_name(&iIdx, pkg, "items"));
  EXPECT_EQ(2, iIdx);
  const VIXMETAENTRY* items = vix_get_entry_by_index(pkg, iIdx);
  EXPECT_STREQ("items", vix_get_entry_name(items));
  EXPECT_EQ(8, vix_get_entry_count(items));
  EXPECT_EQ(4u, vix_get_entry_unitsize(items));
  EXPECT_EQ(12, vix_get_entry_offset(items));
  EXPECT_STREQ("count", vix_get_entry_name(vix_get_entry_refer(items)));
  size_t iLen = 0;
  EXPECT_STREQ("7", vix_get_entry_defaultvalue(items, &iLen));
  EXPECT_EQ(1u, iLen);
  EXPECT_EQ(pkg, vix_get_meta_of_entry(items));
  const VIXMETAENTRY* body = vix_get_entry_by_index(pkg, 3);
  EXPECT_STREQ("cmd", vix_get_entry_name(vix_get_entry_select(body)));
  EXPECT_STREQ("attr2", vix_get_entry_customattr2(body));
  EXPECT_STREQ("Body", vix_get_meta_name(vix_get_entry_type_meta(body)));
  EXPECT_EQ(nullptr, vix_get_entry_type_meta(items));
  EXPECT_EQ(nullptr, vix_get_entry_by_index(pkg, 5));
  EXPECT_EQ(-1, vix_get_entry_by_name(&iIdx, pkg, "nothing"));
  EXPECT_EQ(-1, iIdx);
  // By identifier in a struct: only entries that have one.
  const VIXMETA* head = vix_get_meta_by_name(lib.get(), "Head");
  EXPECT_EQ(0, vix_get_entry_by_id(&iIdx, head, 9));
  EXPECT_EQ(1, iIdx);
  EXPECT_EQ(-1, vix_get_entry_by_id(&iIdx, head, 0));
  EXPECT_EQ(9, vix_get_max_id_of_meta_entries(head));

  Build b;
  b.meta("Empty", 1).end();
  LibPtr empty = b.finish();
  EXPECT_EQ(VIX_ERROR_INVALID_PARAM,
            vix_get_entry_by_name(&iIdx, vix_get_meta_by_name(empty.get(), "Empty"), "x"));
}

// Union of n branches: entry 0 is the default branch (no range) or ranged [0, 50]; entry i
// takes [100 i, 100 i + 50], except entry 2, which takes 5000 out of order.
LibPtr union_lib(int n, bool bDefault) {
  Build b;
  b.meta("U", 1, VIX_TYPE_UNION);
  for (int i = 0; i < n; ++i) {
    const std::string s = "b" + std::to_string(i);
    if (i == 0) {
      b.branch(s.c_str(), "int32", bDefault ? 1 : 0, bDefault ? 0 : 50);
    } else if (i == 2) {
      b.branch(s.c_str(), "int32", 5000, 5000);
    } else {
      b.branch(s.c_str(), "int32", 100 * i, 100 * i + 50);
    }
  }
  b.end();
  return b.finish();
}

TEST(Lookup, UnionBranchAt15And16Entries) {
  struct {
    int iID;
    int iAt15;  // branch with 15 entries (linear scan); -2 for the default
    int iAt16;  // with 16 (bisection)
  } const kCases[] = {
      {510, 5, 5},  {1450, 14, 14}, {1550, -2, 15},
      {300, 3, 3},  {5000, 2, -2},  // out of order: found by the scan, missed by the bisection
      {60, -2, -2}, {-5, -2, -2},   {0, -9, -9},  // 0: entry 0's range when it has one
  };
  for (bool bDefault : {true, false}) {
    for (int n : {15, 16}) {
      LibPtr lib = union_lib(n, bDefault);
      const VIXMETA* u = vix_get_meta_by_name(lib.get(), "U");
      for (const auto& c : kCases) {
        int iWant = n == 15 ? c.iAt15 : c.iAt16;
        if (iWant == -9) iWant = bDefault ? -2 : 0;
        if (iWant == -2) iWant = bDefault ? 0 : -1;
        int iIdx = 99;
        EXPECT_EQ(iWant >= 0 ? 0 : -1, vix_get_entry_by_id(&iIdx, u, c.iID))
            << "id " << c.iID << " n " << n << " default " << bDefault;
        EXPECT_EQ(iWant, iIdx) << "id " << c.iID << " n " << n << " default " << bDefault;
      }
    }
  }
}

TEST(Lookup, MacrosAndGroups) {
  LibPtr lib = vixtest::sample_lib();
  int iValue = 0;
  ASSERT_EQ(0, vix_get_macro_value(&iValue, lib.get(), "MAX_ITEMS"));
  EXPECT_EQ(8, iValue);
  EXPECT_EQ(VIX_ERROR_MACRO_UNDEFINED, vix_get_macro_value(&iValue, lib.get(), "NOPE"));
  EXPECT_STREQ("CMD_LOGOUT", vix_get_macro_name_by_value(lib.get(), 2));
  EXPECT_EQ(nullptr, vix_get_macro_name_by_value(lib.get(), 99));
  EXPECT_EQ(4, vix_get_metalib_macro_num(lib.get()));
  const VIXMACRO* m = vix_get_metalib_macro_by_index(lib.get(), 2);
  EXPECT_STREQ("CMD_DATA", vix_get_macro_name_by_ptr(lib.get(), m));
  EXPECT_STREQ("d", vix_get_macro_desc_by_ptr(lib.get(), m));
  ASSERT_EQ(0, vix_get_macro_value_by_ptr(&iValue, m));
  EXPECT_EQ(3, iValue);
  EXPECT_EQ(m, vix_get_macro_by_name(lib.get(), "CMD_DATA"));

  ASSERT_EQ(1, vix_get_macrosgroup_num(lib.get()));
  const VIXMACROSGROUP* g = vix_get_macrosgroup_by_name(lib.get(), "Cmd");
  ASSERT_NE(nullptr, g);
  EXPECT_EQ(g, vix_get_macrosgroup_by_index(lib.get(), 0));
  EXPECT_EQ(g, vix_get_macro_macrosgroup(lib.get(), m));
  EXPECT_EQ(nullptr,
            vix_get_macro_macrosgroup(lib.get(), vix_get_macro_by_name(lib.get(), "MAX_ITEMS")));
  EXPECT_STREQ("Cmd", vix_get_macrosgroup_name(g));
  EXPECT_EQ(3, vix_get_macrosgroup_macro_num(g));
  const char* apszByValue[] = {"CMD_LOGIN", "CMD_LOGOUT", "CMD_DATA"};
  for (int i = 0; i < 3; ++i) {
    EXPECT_STREQ(
        apszByValue[i],
        vix_get_macro_name_by_ptr(lib.get(), vix_get_macrosgroup_macro_by_index(lib.get(), g, i)));
  }
  const VIXMETAENTRY* cmd =
      vix_get_entry_by_path(vix_get_meta_by_name(lib.get(), "Pkg"), "head.cmd");
  EXPECT_EQ(g, vix_get_entry_macrosgroup(cmd));
  for (const char* psz : apszByValue) {
    const VIXMACRO* pstMacro = vix_get_bindmacro_by_name(cmd, psz);
    ASSERT_NE(nullptr, pstMacro) << psz;
    EXPECT_EQ(pstMacro, vix_get_bindmacro_by_value(cmd, pstMacro->iValue));
  }
  EXPECT_EQ(nullptr, vix_get_bindmacro_by_name(cmd, "MAX_ITEMS"));
  EXPECT_EQ(nullptr, vix_get_bindmacro_by_value(cmd, 8));
  EXPECT_EQ(nullptr, vix_get_bindmacro_by_value(cmd, 0));
}

TEST(Lookup, IndexesAndKeys) {
  LibPtr lib = vixtest::sample_lib();
  const VIXMETA* pkg = vix_get_meta_by_name(lib.get(), "Pkg");
  const VIXMETAINDEX* x = vix_get_index_by_name(pkg, "byCount");
  ASSERT_NE(nullptr, x);
  EXPECT_EQ(x, vix_get_index_by_id(pkg, 11));
  EXPECT_EQ(nullptr, vix_get_index_by_id(pkg, 12));
  EXPECT_EQ(11, vix_get_index_id(x));
  EXPECT_STREQ("byCount", vix_get_index_name(x));
  EXPECT_STREQ("ia", vix_get_index_customattr(x));
  EXPECT_STREQ("", vix_get_index_customattr2(x));
  const VIXDBKEYINFO* pstKeys = nullptr;
  int iNum = 0;
  ASSERT_EQ(0, vix_get_index_columns(&pstKeys, &iNum, x));
  ASSERT_EQ(1, iNum);
  EXPECT_EQ(8, pstKeys[0].iHOff);
  ASSERT_EQ(0, vix_get_meta_primarykey(&pstKeys, &iNum, pkg));
  ASSERT_EQ(2, iNum);
  EXPECT_EQ(0, pstKeys[0].iHOff);
  EXPECT_EQ(8, pstKeys[1].iHOff);
  ASSERT_EQ(0, vix_get_meta_splittablekey(&pstKeys, &iNum, pkg));
  ASSERT_EQ(1, iNum);
  EXPECT_EQ(4, pstKeys[0].iHOff);
  ASSERT_EQ(0,
            vix_get_meta_splittablekey(&pstKeys, &iNum, vix_get_meta_by_name(lib.get(), "Head")));
  EXPECT_EQ(0, iNum);
}

TEST(Paths, PathsAndOffsetsAgree) {
  LibPtr lib = vixtest::sample_lib();
  const VIXMETA* pkg = vix_get_meta_by_name(lib.get(), "Pkg");
  struct {
    const char* pszPath;
    int iRet;
    VIXOFF iOff;
  } const kCases[] = {
      {"head.len", 0, 4},
      {"items[3]", 0, 24},
      {"body.login.addr", 0, 76},
      {"body.logout.reason", 0, 44},
      {"items[8]", VIX_ERROR_ARRAY_INDEX_OUT, 0},
      {"head.nope", VIX_ERROR_ENTRY_NOT_FOUND, 0},
      {"count.x", VIX_ERROR_ENTRY_NOT_COMPOSITE, 0},
      {"head..len", VIX_ERROR_BAD_ENTRY_PATH, 0},
      {"items[x]", VIX_ERROR_BAD_ENTRY_PATH, 0},
      {"", VIX_ERROR_BAD_ENTRY_PATH, 0},
  };
  for (const auto& c : kCases) {
    VIXOFF iOff = -1;
    const VIXMETAENTRY* e = nullptr;
    EXPECT_EQ(c.iRet, vix_entry_path_to_off(pkg, &e, &iOff, c.pszPath)) << c.pszPath;
    if (c.iRet == 0) {
      EXPECT_EQ(c.iOff, iOff) << c.pszPath;
    }
    EXPECT_EQ(c.iRet == 0, vix_get_entry_by_path(pkg, c.pszPath) != nullptr) << c.pszPath;
  }
  // Every byte of the instance maps to the path of the member holding it, and back.
  char szPath[128];
  for (VIXOFF iOff = 0; iOff < static_cast<VIXOFF>(vix_get_meta_size(pkg)); ++iOff) {
    const int iRet = vix_entry_off_to_path(pkg, iOff, szPath, sizeof(szPath));
    if (iRet == VIX_ERROR_OFFSET_NOT_FOUND) continue;  // padding
    ASSERT_EQ(0, iRet) << iOff;
    VIXOFF iStart = -1;
    const VIXMETAENTRY* e = nullptr;
    ASSERT_EQ(0, vix_entry_path_to_off(pkg, &e, &iStart, szPath)) << szPath;
    EXPECT_LE(iStart, iOff) << szPath;
    EXPECT_GT(iStart + static_cast<VIXOFF>(e->iHUnitSize), iOff) << szPath;
  }
  EXPECT_EQ(0, vix_entry_off_to_path(pkg, 25, szPath, sizeof(szPath)));
  EXPECT_STREQ("items[3]", szPath);
  EXPECT_EQ(0, vix_entry_off_to_path(pkg, 45, szPath, sizeof(szPath)));
  EXPECT_STREQ("body.raw[1]", szPath);
  EXPECT_EQ(0, vix_entry_off_to_path(pkg, 3, szPath, sizeof(szPath)));
  EXPECT_STREQ("head", szPath);  // padding inside the nested record
  EXPECT_EQ(VIX_ERROR_OUT_BUF_TOO_SMALL, vix_entry_off_to_path(pkg, 45, szPath, 8));
  EXPECT_EQ(VIX_ERROR_OFFSET_NOT_FOUND, vix_entry_off_to_path(pkg, 9, szPath, sizeof(szPath)));
  EXPECT_EQ(VIX_ERROR_OFFSET_NOT_FOUND, vix_entry_off_to_path(pkg, 1000, szPath, sizeof(szPath)));

  VIXSIZEINFO si;
  ASSERT_EQ(0, vix_sizeinfo_to_off(&si, pkg, "uint16"));
  EXPECT_EQ(2u, si.iUnitSize);
  EXPECT_EQ(-1, si.iHOff);
  ASSERT_EQ(0, vix_sizeinfo_to_off(&si, pkg, "head.len"));
  EXPECT_EQ(4u, si.iUnitSize);
  EXPECT_EQ(4, si.iHOff);
  EXPECT_EQ(VIX_ERROR_BAD_SIZEINFO, vix_sizeinfo_to_off(&si, pkg, "string"));
  EXPECT_EQ(VIX_ERROR_BAD_SIZEINFO, vix_sizeinfo_to_off(&si, pkg, "items"));
  EXPECT_EQ(VIX_ERROR_BAD_SIZEINFO, vix_sizeinfo_to_off(&si, pkg, "body"));
}

// Version 1 of a small schema; later versions change it in one way each.
LibPtr versioned(int iVariant) {
  Build b("v", iVariant == 4 ? 2 : 1);
  b.meta("A", 1, VIX_TYPE_STRUCT, 1).entry("x", "int32");
  if (iVariant == 1) {  // a member added at a higher version
    VIXENTRYDESC e = vixtest::entry_desc("y", "int16");
    e.iVersion = 2;
    b.entry(e);
  }
  if (iVariant == 2) b.entry("y", "int16");  // added at the same version
  b.end();
  b.meta("B", 2, VIX_TYPE_STRUCT, 1).entry("a", "A").entry(iVariant == 3 ? "z" : "w", "int8").end();
  if (iVariant == 4) b.meta("C", 3, VIX_TYPE_STRUCT, 2).entry("c", "int8").end();  // new meta
  if (iVariant == 5) b.meta("C", 3, VIX_TYPE_STRUCT, 1).entry("c", "int8").end();
  return b.finish();
}

TEST(Compare, EquivalentCompatibleUncompatible) {
  LibPtr v1 = versioned(0);
  struct {
    int iVariant;
    int iVerdict;
  } const kCases[] = {
      {0, VIX_XML_EQUIVALENT},   {1, VIX_XML_UNCOMPATIBLE},  // B.w moved by A's growth
      {2, VIX_XML_UNCOMPATIBLE}, {3, VIX_XML_UNCOMPATIBLE},
      {4, VIX_XML_COMPATIBLE},   {5, VIX_XML_UNCOMPATIBLE},
  };
  for (const auto& c : kCases) {
    LibPtr other = versioned(c.iVariant);
    EXPECT_EQ(c.iVerdict, vix_compare_metalib(v1.get(), other.get())) << c.iVariant;
  }
  LibPtr v2 = versioned(1);
  const VIXMETA* a1 = vix_get_meta_by_name(v1.get(), "A");
  const VIXMETA* a2 = vix_get_meta_by_name(v2.get(), "A");
  EXPECT_EQ(VIX_XML_COMPATIBLE, vix_compare_meta(a1, a2));
  EXPECT_EQ(VIX_XML_UNCOMPATIBLE, vix_compare_meta(a2, a1));
  EXPECT_EQ(VIX_XML_EQUIVALENT, vix_compare_meta(a1, a1));
  LibPtr sameVersion = versioned(2);
  EXPECT_EQ(VIX_XML_UNCOMPATIBLE,
            vix_compare_meta(a1, vix_get_meta_by_name(sameVersion.get(), "A")));
  EXPECT_EQ(VIX_ERROR_INVALID_PARAM, vix_compare_metalib(v1.get(), nullptr));
}

}  // namespace
