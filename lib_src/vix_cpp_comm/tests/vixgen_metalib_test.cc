// The metadata library vixgen compiles from tests/metalib.vix, read back through the runtime:
// layout against the C compiler's, element names, counts, paths, defaults, macros, printing;
// and the library options refused with the line named.
#include <gtest/gtest.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <fstream>
#include <sstream>
#include <string>

#include "vix/vix_io.h"
#include "vix/vix_metalib.h"

extern "C" {
extern const unsigned char metalib_test_metalib[];
extern const size_t metalib_test_metalib_size;
}

namespace {

// The schema's records as C declares them (natural alignment, like the library).
struct CHead {
  uint16_t wVersion;
  uint32_t dwLen;
};
struct CPoint {
  int16_t nX;
  int64_t llY;
};
union CBody {
  CPoint stPoint;
  char szText[16];
  uint32_t dwOther;
};
struct CMessage {
  CHead stHead;
  uint8_t bKind;
  char szName[16];
  int32_t iLimit;
  CBody stBody;
  uint8_t bCount;
  CPoint astPoints[4];
  uint8_t bHasTail;
  CPoint stTail;
  uint32_t ulAddr;
};

class Library : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, vix_load_metalib(&lib_, VIXGEN_TEST_METALIB)); }
  void TearDown() override { vix_free_lib(&lib_); }
  const VIXMETAENTRY* entry(const char* pszMeta, const char* pszName) const {
    const VIXMETA* m = vix_get_meta_by_name(lib_, pszMeta);
    int iIdx = -1;
    if (m == nullptr || vix_get_entry_by_name(&iIdx, m, pszName) != 0) return nullptr;
    return vix_get_entry_by_index(m, iIdx);
  }
  LPVIXMETALIB lib_ = nullptr;
};

TEST_F(Library, LayoutNamesAndPathsMatchTheSchema) {
  EXPECT_STREQ("metalib_test", vix_get_metalib_name(lib_));
  EXPECT_EQ(77, vix_get_metalib_id(lib_));
  EXPECT_EQ(3, vix_get_metalib_version(lib_));
  EXPECT_EQ(4, vix_get_meta_num(lib_));
  // Written tight (the string buffer up to the 8-byte alignment of the area after it), with
  // its checksum set.
  EXPECT_LT(lib_->iFreeStrBufSize, 8u);
  EXPECT_EQ(lib_->iMaxMetaNum, lib_->iCurMetaNum);
  EXPECT_EQ(lib_->iMaxMacroNum, lib_->iCurMacroNum);
  const uint32_t dwChecksum = lib_->checksum;
  vix_update_checksum(lib_);
  EXPECT_EQ(dwChecksum, lib_->checksum);
  const struct {
    const char* pszMeta;
    size_t iSize;
  } kMetas[] = {{"MtPoint", sizeof(CPoint)},
                {"MtHead", sizeof(CHead)},
                {"MtBody", sizeof(CBody)},
                {"MtMessage", sizeof(CMessage)}};
  for (const auto& m : kMetas) {
    ASSERT_NE(nullptr, vix_get_meta_by_name(lib_, m.pszMeta)) << m.pszMeta;
    EXPECT_EQ(m.iSize, vix_get_meta_size(vix_get_meta_by_name(lib_, m.pszMeta))) << m.pszMeta;
  }
  const struct {
    const char* pszMeta;
    const char* pszEntry;
    size_t iOffset;
    size_t iUnit;
    int iCount;
    int iVersion;
    const char* pszRefer;  // or selector
  } kEntries[] = {
      {"MtPoint", "X", offsetof(CPoint, nX), 2, 1, 1, nullptr},
      {"MtPoint", "Y", offsetof(CPoint, llY), 8, 1, 1, nullptr},
      {"MtHead", "Len", offsetof(CHead, dwLen), 4, 1, 1, nullptr},
      {"MtBody", "Text", 0, 1, 16, 2, nullptr},
      {"MtMessage", "Kind", offsetof(CMessage, bKind), 1, 1, 1, nullptr},
      {"MtMessage", "Name", offsetof(CMessage, szName), 1, 16, 1, nullptr},
      {"MtMessage", "Limit", offsetof(CMessage, iLimit), 4, 1, 1, nullptr},
      {"MtMessage", "Body", offsetof(CMessage, stBody), sizeof(CBody), 1, 1, "Kind"},
      {"MtMessage", "Points", offsetof(CMessage, astPoints), sizeof(CPoint), 4, 1, "Count"},
      {"MtMessage", "Tail", offsetof(CMessage, stTail), sizeof(CPoint), 1, 1, "HasTail"},
      {"MtMessage", "Addr", offsetof(CMessage, ulAddr), 4, 1, 2, nullptr},
  };
  for (const auto& t : kEntries) {
    SCOPED_TRACE(std::string(t.pszMeta) + "." + t.pszEntry);
    const VIXMETAENTRY* e = entry(t.pszMeta, t.pszEntry);
    ASSERT_NE(nullptr, e);
    EXPECT_EQ(static_cast<VIXOFF>(t.iOffset), vix_get_entry_offset(e));
    EXPECT_EQ(t.iUnit, vix_get_entry_unitsize(e));
    EXPECT_EQ(t.iCount, vix_get_entry_count(e));
    EXPECT_EQ(t.iVersion, vix_get_entry_version(e));
    const VIXMETAENTRY* pstPath =
        vix_get_entry_select(e) != nullptr ? vix_get_entry_select(e) : vix_get_entry_refer(e);
    EXPECT_STREQ(t.pszRefer != nullptr ? t.pszRefer : "",
                 pstPath != nullptr ? vix_get_entry_name(pstPath) : "");
  }
  const VIXMETA* msg = vix_get_meta_by_name(lib_, "MtMessage");
  EXPECT_EQ(1, vix_get_meta_based_version(msg));
  EXPECT_EQ(2, vix_get_meta_current_version(msg));
  EXPECT_STREQ("a point", vix_get_meta_desc(vix_get_meta_by_name(lib_, "MtPoint")));
  EXPECT_STREQ("the second coordinate", vix_get_entry_desc(entry("MtPoint", "Y")));
  // The union's default member is first, so unknown selectors pick it.
  int iIdx = -1;
  ASSERT_EQ(0, vix_get_entry_by_id(&iIdx, vix_get_meta_by_name(lib_, "MtBody"), 99));
  EXPECT_STREQ("Other", vix_get_entry_name(
                            vix_get_entry_by_index(vix_get_meta_by_name(lib_, "MtBody"), iIdx)));
  EXPECT_STREQ("anon", vix_get_entry_defaultvalue(entry("MtMessage", "Name"), nullptr));
  EXPECT_STREQ("4", vix_get_entry_defaultvalue(entry("MtMessage", "Limit"), nullptr));
  size_t iLen = 1;
  vix_get_entry_defaultvalue(entry("MtMessage", "Count"), &iLen);
  EXPECT_EQ(0u, iLen);
  int iValue = 0;
  ASSERT_EQ(0, vix_get_macro_value(&iValue, lib_, "MT_MAX_ITEMS"));
  EXPECT_EQ(4, iValue);
  const VIXMACROSGROUP* g = vix_get_entry_macrosgroup(entry("MtMessage", "Kind"));
  ASSERT_NE(nullptr, g);
  EXPECT_STREQ("MT_KIND", vix_get_macrosgroup_name(g));
  EXPECT_EQ(3, vix_get_macrosgroup_macro_num(g));
}

TEST_F(Library, PrintsARecordAndMatchesTheLinkedInArray) {
  CMessage m;
  memset(&m, 0, sizeof(m));
  m.stHead.wVersion = 2;
  m.bKind = 2;
  snprintf(m.szName, sizeof(m.szName), "box");
  m.iLimit = 4;
  snprintf(m.stBody.szText, sizeof(m.stBody.szText), "hi");
  m.bCount = 1;
  m.astPoints[0] = CPoint{-3, 1LL << 40};
  char out[2048];
  VIXDATA o = {out, sizeof(out)};
  VIXDATA h = {reinterpret_cast<char*>(&m), sizeof(m)};
  ASSERT_EQ(0, vix_sprintf(vix_get_meta_by_name(lib_, "MtMessage"), &o, &h, 0))
      << vix_get_error_detail();
  EXPECT_EQ(
      "[MtMessage version=\"2\"]:\n  [stHead]\n    Version=2\n    Len=0\n  Kind=MT_KIND_TEXT\n"
      "  Name=box\n  Limit=4\n  [Body]\n    Text=hi\n  Count=0x1\n  [Points[0]]\n    X=-3\n"
      "    Y=1099511627776\n  HasTail=0x0\n  Addr=0.0.0.0",
      std::string(out, o.iBuff));

  std::ifstream in(VIXGEN_TEST_METALIB, std::ios::binary);
  std::ostringstream file;
  file << in.rdbuf();
  ASSERT_EQ(file.str().size(), metalib_test_metalib_size);
  EXPECT_EQ(0, memcmp(file.str().data(), metalib_test_metalib, metalib_test_metalib_size));
  EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(metalib_test_metalib) % 8);
}

}  // namespace
