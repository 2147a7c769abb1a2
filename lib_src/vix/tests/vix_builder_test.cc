// The builder: host layout equal to GCC's for the equivalent C declarations, packed network
// layout, exact-size libraries, and refusals that change nothing.
#include <gtest/gtest.h>
#include <stddef.h>

#include <functional>
#include <string>
#include <vector>

#include "vix_test_util.h"

namespace {

using vixtest::Build;
using vixtest::LibPtr;

struct CInner {
  int8_t a;
  int64_t b;
  int16_t c;
};
union CU {
  int8_t x;
  double d;
  char s[13];
};
struct COuter {
  char c;
  CInner in[2];
  uint16_t w;
  CU u;
  uint32_t date;
  uint64_t dt;
  int16_t arr[3];
  char str[5];
  float f;
  uint16_t wstr[3];
  uint32_t ip;
};
#pragma pack(push, 2)
struct CPack2 {
  int8_t a;
  int64_t b;
  CInner in;
  int8_t z;
};
#pragma pack(pop)
struct __attribute__((packed)) CPacked {
  int8_t a;
  int32_t b;
  CInner in;
  uint16_t w;
};
struct CWrap {
  int8_t a;
  CPacked p;
  int32_t z;
  CPack2 p2[2];
  char tail;
};

struct Member {
  const char* pszName;
  const char* pszType;
  int iCount;
  size_t iOff;
};
struct Record {
  const char* pszName;
  int iType;
  int iAlign;  // 0 natural, 1 packed, else pack(n)
  size_t iSize;
  size_t iAlignOf;
  std::vector<Member> members;
};

#define M(T, f, type, n) \
  { #f, type, n, offsetof(T, f) }
// Name, kind, packing, then size and alignment of the C twin C<name>.
#define REC(name, type, align) #name, type, align, sizeof(C##name), alignof(C##name)

const std::vector<Record>& records() {
  static const std::vector<Record> kRecords = {
      {REC(Inner, VIX_TYPE_STRUCT, 0),
       {M(CInner, a, "int8", 1), M(CInner, b, "int64", 1), M(CInner, c, "int16", 1)}},
      {REC(U, VIX_TYPE_UNION, 0),
       {M(CU, x, "int8", 1), M(CU, d, "double", 1), M(CU, s, "string", 13)}},
      {REC(Outer, VIX_TYPE_STRUCT, 0),
       {M(COuter, c, "char", 1), M(COuter, in, "Inner", 2), M(COuter, w, "uint16", 1),
        M(COuter, u, "U", 1), M(COuter, date, "date", 1), M(COuter, dt, "datetime", 1),
        M(COuter, arr, "short", 3), M(COuter, str, "string", 5), M(COuter, f, "float", 1),
        M(COuter, wstr, "wstring", 3), M(COuter, ip, "ip", 1)}},
      {REC(Pack2, VIX_TYPE_STRUCT, 2),
       {M(CPack2, a, "int8", 1), M(CPack2, b, "int64", 1), M(CPack2, in, "Inner", 1),
        M(CPack2, z, "int8", 1)}},
      {REC(Packed, VIX_TYPE_STRUCT, 1),
       {M(CPacked, a, "int8", 1), M(CPacked, b, "int32", 1), M(CPacked, in, "Inner", 1),
        M(CPacked, w, "uint16", 1)}},
      {REC(Wrap, VIX_TYPE_STRUCT, 0),
       {M(CWrap, a, "int8", 1), M(CWrap, p, "Packed", 1), M(CWrap, z, "int32", 1),
        M(CWrap, p2, "Pack2", 2), M(CWrap, tail, "char", 1)}},
  };
  return kRecords;
}

void add_records(Build& b) {
  for (const Record& r : records()) {
    VIXMETADESC d;
    vix_meta_desc_init(&d);
    d.pszName = r.pszName;
    d.iType = r.iType;
    d.iPacked = r.iAlign == 1;
    d.iCustomAlign = r.iAlign > 1 ? r.iAlign : 0;
    b.meta(d);
    for (const Member& m : r.members) b.entry(m.pszName, m.pszType, m.iCount);
    b.end();
  }
}

TEST(Builder, HostLayoutIsGccNetworkLayoutPacked) {
  Build b;
  add_records(b);
  LibPtr lib = b.finish();
  for (const Record& r : records()) {
    const VIXMETA* m = vix_get_meta_by_name(lib.get(), r.pszName);
    ASSERT_NE(nullptr, m) << r.pszName;
    EXPECT_EQ(r.iSize, vix_get_meta_size(m)) << r.pszName;
    EXPECT_EQ(static_cast<int>(r.iAlignOf), m->iValidAlign) << r.pszName;
    for (size_t i = 0; i < r.members.size(); ++i) {
      EXPECT_EQ(static_cast<VIXOFF>(r.members[i].iOff),
                vix_get_entry_offset(vix_get_entry_by_index(m, static_cast<int>(i))))
          << r.pszName << "." << r.members[i].pszName;
    }
  }
  // The network layout is packed. Outer: c 1, in 2 x (1 + 8 + 2), w 2, u max(1, 8, 13), date 4,
  // dt 8, arr 6, str 5, f 4, wstr 6, ip 4.
  const VIXMETA* outer = vix_get_meta_by_name(lib.get(), "Outer");
  const VIXOFF kNOff[] = {0, 1, 23, 25, 38, 42, 50, 56, 61, 65, 71};
  for (int i = 0; i < 11; ++i) EXPECT_EQ(kNOff[i], vix_get_entry_by_index(outer, i)->iNOff) << i;
  EXPECT_EQ(75u, outer->iNUnitSize);
  EXPECT_EQ(13u, vix_get_meta_by_name(lib.get(), "U")->iNUnitSize);
  // A trailing open array adds alignment, not size: struct { int16_t n; int64_t v[]; }.
  Build t;
  t.meta("Tail", 1).entry("n", "int16").entry("v", "int64", 0).end();
  LibPtr tail = t.finish();
  const VIXMETA* m = vix_get_meta_by_name(tail.get(), "Tail");
  EXPECT_EQ(8u, vix_get_meta_size(m));
  EXPECT_EQ(8, vix_get_entry_offset(vix_get_entry_by_index(m, 1)));
}

TEST(Builder, FixedBlockOfExactSizeEqualsGrown) {
  LibPtr grown = vixtest::sample_lib();
  VIXLIBCOUNTS counts = {grown->iCurMacroNum,
                         grown->iCurMetaNum,
                         grown->iCurMacrosGroupNum,
                         grown->ptrLaseMeta - grown->ptrMeta,
                         grown->ptrFreeStrBuf - grown->ptrStrBuf,
                         grown->iMacrosGroupSize};
  EXPECT_EQ(grown->iCurMetaNum, grown->iMaxMetaNum);  // shrunk to the counts
  VIXLIBPARAM p = {};
  p.iID = 7;
  p.iVersion = 3;
  strcpy(p.szName, "sample");
  ASSERT_EQ(0, vix_lib_param_for_counts(&p, &counts));
  ASSERT_EQ(grown->iSize, p.iSize);
  std::vector<uint64_t> block(p.iSize / 8);
  ASSERT_EQ(0, vix_init_lib(reinterpret_cast<VIXMETALIB*>(block.data()), &p));
  {
    Build b(reinterpret_cast<VIXMETALIB*>(block.data()));
    vixtest::fill_sample(b);
    ASSERT_EQ(0, b.finish_fixed());
  }
  EXPECT_EQ(0, memcmp(block.data(), grown.get(), grown->iSize));

  // One string byte short: some call runs out of room with VIX_ERROR_LIB_PARAM.
  counts.iStrBytes -= 8;
  ASSERT_EQ(0, vix_lib_param_for_counts(&p, &counts));
  ASSERT_EQ(0, vix_init_lib(reinterpret_cast<VIXMETALIB*>(block.data()), &p));
  VIXBUILDER* b = nullptr;
  ASSERT_EQ(0, vix_builder_open(&b, reinterpret_cast<VIXMETALIB*>(block.data())));
  int iRet = 0;
  for (int i = 0; i < 200 && iRet == 0; ++i) {
    iRet = vix_builder_add_macro(b, ("M" + std::to_string(i)).c_str(), i, "some description");
  }
  EXPECT_EQ(VIX_ERROR_LIB_PARAM, iRet);
  vix_builder_close(&b);
}

// A failing call on a builder with room to spare, after calls that prepare it; the block must
// not change.
using Call = std::function<int(VIXBUILDER*)>;
struct Refusal {
  const char* pszName;
  int iCode;
  Call fnPrepare;  // may be empty
  Call fnRefused;
};

int entry_with(VIXBUILDER* b, const std::function<void(VIXENTRYDESC&)>& fnSet) {
  VIXENTRYDESC e = vixtest::entry_desc("e", "int32");
  fnSet(e);
  return vix_builder_add_entry(b, &e);
}

int begin_with(VIXBUILDER* b, const std::function<void(VIXMETADESC&)>& fnSet) {
  VIXMETADESC d;
  vix_meta_desc_init(&d);
  d.pszName = "Other";
  fnSet(d);
  return vix_builder_begin_meta(b, &d);
}

// Adds the simple entry name/type/count.
Call simple(const char* pszName, const char* pszType, int iCount) {
  return [=](VIXBUILDER* b) { return vix_builder_add_simple_entry(b, pszName, pszType, iCount); };
}
// Adds the macro A again with another value, or a macro of the given name.
Call macro(const char* pszName) {
  return [=](VIXBUILDER* b) { return vix_builder_add_macro(b, pszName, 2, nullptr); };
}

const char* const kKey[] = {"k"};
const Call kEnd = [](VIXBUILDER* b) { return vix_builder_end_meta(b); };
const Call kKeyed = [](VIXBUILDER* b) { return vix_builder_set_primarykey(b, kKey, 1); };

TEST(Builder, RefusalsChangeNothing) {
  const Refusal kCases[] = {
      {"duplicate macro", VIX_ERROR_DUP_MACRO_NAME, nullptr, macro("A")},
      {"macro name", VIX_ERROR_BAD_NAME, nullptr, macro("1x")},
      {"empty name", VIX_ERROR_EMPTY_NAME, nullptr, macro("")},
      {"group of an unknown macro", VIX_ERROR_MACRO_UNDEFINED, nullptr,
       [](VIXBUILDER* b) {
         const char* apsz[] = {"A", "B"};
         return vix_builder_add_macrosgroup(b, "G", nullptr, apsz, 2);
       }},
      {"meta inside a meta", VIX_ERROR_META_NOT_FINISHED, nullptr,
       [](VIXBUILDER* b) { return begin_with(b, [](VIXMETADESC&) {}); }},
      {"duplicate entry", VIX_ERROR_DUP_ENTRY_NAME, nullptr, simple("k", "int8", 1)},
      {"unknown type", VIX_ERROR_BAD_ENTRY_TYPE, nullptr, simple("e", "Nope", 1)},
      {"void", VIX_ERROR_BAD_ENTRY_TYPE, nullptr, simple("e", "void", 1)},
      {"negative count", VIX_ERROR_BAD_COUNT, nullptr, simple("e", "int8", -1)},
      {"the meta itself", VIX_ERROR_META_CONTAINS_SELF, nullptr, simple("e", "T", 1)},
      {"refer not defined yet", VIX_ERROR_ENTRY_NOT_FOUND, nullptr,
       [](VIXBUILDER* b) { return entry_with(b, [](VIXENTRYDESC& e) { e.pszRefer = "e"; }); }},
      {"refer to a string", VIX_ERROR_REFER_NOT_INTEGER, nullptr,
       [](VIXBUILDER* b) { return entry_with(b, [](VIXENTRYDESC& e) { e.pszRefer = "b.s"; }); }},
      {"select on a non-union", VIX_ERROR_SELECT_FOR_NON_UNION, nullptr,
       [](VIXBUILDER* b) { return entry_with(b, [](VIXENTRYDESC& e) { e.pszSelect = "k"; }); }},
      {"select by a record", VIX_ERROR_SELECT_NOT_INTEGER, nullptr,
       [](VIXBUILDER* b) {
         return entry_with(b, [](VIXENTRYDESC& e) {
           e.pszType = "Uni";
           e.pszSelect = "b";
         });
       }},
      {"version below the meta's", VIX_ERROR_ENTRY_VERSION_BELOW_META, nullptr,
       [](VIXBUILDER* b) { return entry_with(b, [](VIXENTRYDESC& e) { e.iVersion = 1; }); }},
      {"unknown macro group", VIX_ERROR_GROUP_NOT_FOUND, nullptr,
       [](VIXBUILDER* b) {
         return entry_with(b, [](VIXENTRYDESC& e) { e.pszMacrosGroup = "G"; });
       }},
      {"custom size below the type", VIX_ERROR_BAD_CUSTOM_SIZE, nullptr,
       [](VIXBUILDER* b) {
         return entry_with(b, [](VIXENTRYDESC& e) { e.iCustomHUnitSize = 2; });
       }},
      {"size info", VIX_ERROR_BAD_SIZEINFO, nullptr,
       [](VIXBUILDER* b) { return entry_with(b, [](VIXENTRYDESC& e) { e.pszSizeInfo = "b.s"; }); }},
      {"index over no member", VIX_ERROR_BAD_INDEX, nullptr,
       [](VIXBUILDER* b) {
         const char* apsz[] = {"k", "zz"};
         VIXINDEXDESC x;
         vix_index_desc_init(&x);
         x.ppszColumns = apsz;
         x.iColumnNum = 2;
         return vix_builder_add_index(b, &x);
       }},
      {"entry after a key", VIX_ERROR_META_FINISHED, kKeyed, simple("e", "int8", 1)},
      {"second primary key", VIX_ERROR_BAD_PRIMARY_KEY, kKeyed, kKeyed},
      {"entry after an open array", VIX_ERROR_VARIABLE_ARRAY_NOT_LAST, simple("v", "int8", 0),
       simple("e", "int8", 1)},
      {"duplicate meta name", VIX_ERROR_DUP_META_NAME, kEnd,
       [](VIXBUILDER* b) { return begin_with(b, [](VIXMETADESC& d) { d.pszName = "Base"; }); }},
      {"duplicate meta id", VIX_ERROR_DUP_META_ID, kEnd,
       [](VIXBUILDER* b) { return begin_with(b, [](VIXMETADESC& d) { d.iID = 1; }); }},
      {"alignment", VIX_ERROR_BAD_ALIGN, kEnd,
       [](VIXBUILDER* b) { return begin_with(b, [](VIXMETADESC& d) { d.iCustomAlign = 3; }); }},
      {"meta type", VIX_ERROR_BAD_META_TYPE, kEnd,
       [](VIXBUILDER* b) { return begin_with(b, [](VIXMETADESC& d) { d.iType = 7; }); }},
      {"end outside a meta", VIX_ERROR_INVALID_PARAM, kEnd, kEnd},
      {"finish with an open meta", VIX_ERROR_META_NOT_FINISHED, nullptr,
       [](VIXBUILDER* b) {
         VIXMETALIB* pstLib = nullptr;
         return vix_builder_finish(b, &pstLib);
       }},
  };
  VIXLIBPARAM p = {};
  const VIXLIBCOUNTS counts = {16, 16, 4, 16384, 4096, 2048};
  ASSERT_EQ(0, vix_lib_param_for_counts(&p, &counts));
  std::vector<uint64_t> block(p.iSize / 8);
  VIXMETALIB* pstLib = reinterpret_cast<VIXMETALIB*>(block.data());
  for (const Refusal& r : kCases) {
    ASSERT_EQ(0, vix_init_lib(pstLib, &p));
    Build b(pstLib);
    b.macro("A", 1);
    b.meta("Base", 1).entry("n", "int32").entry("s", "string", 4).end();
    b.meta("Uni", 2, VIX_TYPE_UNION).branch("a", "int32", 1, 1).end();
    b.meta("T", 3, VIX_TYPE_STRUCT, 2).entry("k", "int32").entry("b", "Base");
    if (r.fnPrepare) {
      ASSERT_EQ(0, r.fnPrepare(b.get())) << r.pszName;
    }
    const std::vector<uint64_t> before = block;
    EXPECT_EQ(r.iCode, r.fnRefused(b.get())) << r.pszName << ": " << vix_get_error_detail();
    EXPECT_STRNE("no detail error", vix_get_error_detail()) << r.pszName;
    EXPECT_EQ(before, block) << r.pszName;
  }
}

TEST(Builder, NestingDeeperThan32LayersIsRefused) {
  Build b;
  b.meta("L0", -1).entry("v", "int8").end();
  for (int i = 1; i < VIX_MAX_NESTING; ++i) {
    b.meta(("L" + std::to_string(i)).c_str(), -1)
        .entry("c", ("L" + std::to_string(i - 1)).c_str())
        .end();
  }
  b.meta("L32", -1);
  EXPECT_EQ(VIX_ERROR_TOO_COMPLEX_META, vix_builder_add_simple_entry(b.get(), "c", "L31", 1));
  EXPECT_EQ(0, vix_builder_add_simple_entry(b.get(), "c", "L30", 1));
  b.end();
  LibPtr lib = b.finish();
  EXPECT_EQ(33, vix_get_meta_num(lib.get()));
}

}  // namespace
