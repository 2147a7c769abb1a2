// The schema reader and the resolve pass: the resolved model of every construct, and the
// mistakes refused with the line named.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "../vixgen/model.h"

namespace {

class SchemaFile {
 public:
  explicit SchemaFile(const std::string& text) {
    char dir[] = "/tmp/vixgen_test_XXXXXX";
    dir_ = mkdtemp(dir) != nullptr ? dir : "/tmp";
    path_ = dir_ + "/t.vix";
    std::ofstream(path_) << text;
  }
  ~SchemaFile() {
    unlink(path_.c_str());
    rmdir(dir_.c_str());
  }
  const std::string& path() const { return path_; }

 private:
  std::string dir_;
  std::string path_;
};

std::string parseError(const std::string& text) {
  SchemaFile f(text);
  vixgen::Schema s;
  std::string error;
  if (vixgen::parseSchema(f.path(), s, error)) return "";
  return error.substr(error.find(".vix:") + 5);  // "line: message"
}

const char kHead[] = "schema t\nnamespace t\n";

}  // namespace

TEST(VixgenSchema, ResolvesEveryConstruct) {
  SchemaFile f(
      std::string(kHead) +
      "const N 4\n"
      "enum E\n  A = 1\n  B = 2\nend\n"
      "record R 1 1\n  int16 nX\nend\n"
      "union U 1 2\n  R stR id A\n  string szS[N] id B since 2\n  uint32 dwD default\nend\n"
      "record M 1 2\n  versionindicator stH.nX\n  R stH\n  uint8 bSel\n  U stU select bSel\n"
      "  uint8 bN\n  R astR[N] refer bN\n  bytes szB[8] refer bN\n  uint8 bHas\n"
      "  R stO optional bHas\n"
      "  string szT[N] default \"ab\" # comment\n  datetime ullW since 2\nend\n");
  vixgen::Schema s;
  std::string error;
  ASSERT_TRUE(vixgen::parseSchema(f.path(), s, error)) << error;
  ASSERT_EQ(3u, s.types.size());
  const vixgen::Record& m = vixgen::asRecord(*s.byName.at("M"));
  EXPECT_EQ(2u, m.curr);
  EXPECT_EQ(2u + 1 + 4 + 1 + 8 + 8 + 1 + 2 + 4 + 8, m.size);  // union U is as large as szS
  EXPECT_EQ("stH.nX", m.versionIndicator.text);
  EXPECT_EQ(0u, m.versionIndicator.offset);
  EXPECT_EQ(2, m.versionIndicator.scalar->width);
  const vixgen::Entry& sel = m.entries[1];
  EXPECT_TRUE(m.entries[0].fixedOffset);
  EXPECT_FALSE(sel.fixedOffset);  // after a nested record
  EXPECT_EQ("uint8_t", sel.ctype);
  const vixgen::Entry& arr = m.entries[4];
  EXPECT_EQ("R", arr.ctype);
  EXPECT_EQ(4u, arr.count);
  EXPECT_EQ("bN", arr.refer.text);
  EXPECT_FALSE(arr.fixedOffset);
  EXPECT_EQ("bSel", m.entries[2].select.text);
  EXPECT_EQ(1, m.entries[2].select.scalar->width);
  EXPECT_EQ(1, m.entries[7].countCap());  // the optional record counts through its flag
  EXPECT_EQ(2u, m.entries[9].since);
  EXPECT_EQ(8u, m.entries[9].wireSize);
  const vixgen::Union& u = vixgen::asUnion(*s.byName.at("U"));
  EXPECT_TRUE(u.members[2].isDefault);
  EXPECT_EQ(&u.members[2], u.defaultMember());
  EXPECT_EQ(2, u.members[1].id);
  EXPECT_EQ(2u, u.members[1].since);
  EXPECT_EQ(4u + 4u, u.maxPack);
}

TEST(VixgenSchema, RefusesMistakesNamingTheLine) {
  const std::string h = kHead;
  EXPECT_EQ("4: unknown type T (types must be defined before use)",
            parseError(h + "record R 1 1\n  T stT\nend\n"));
  EXPECT_EQ("4: since must lie above BASEVERSION and not above CURRVERSION",
            parseError(h + "record R 1 2\n  int8 a since 3\nend\n"));
  EXPECT_EQ("5: refer bN: no earlier entry named bN",
            parseError(h + "record R 1 1\n  int8 a\n  bytes szB[2] refer bN\n  uint8 bN\nend\n"));
  EXPECT_EQ("5: refer bN is added later than szB",
            parseError(h + "record R 1 2\n  uint8 bN since 2\n  bytes szB[2] refer bN\nend\n"));
  EXPECT_EQ("8: select a.b: a is not a plain nested record",
            parseError(h + "union U 1 1\n  int8 x id 1\nend\nrecord S 1 1\n  int8 a\n"
                           "  U stU select a.b\nend\n"));
  EXPECT_EQ("5: duplicate member id",
            parseError(h + "union U 1 1\n  int8 a id 1\n  int8 b id 1\nend\n"));
  EXPECT_EQ("5: only one default member",
            parseError(h + "union U 1 1\n  int8 a default\n  int8 b default\nend\n"));
  EXPECT_EQ("4: string default longer than capacity - 1",
            parseError(h + "record R 1 1\n  string szA[3] default \"abc\"\nend\n"));
  EXPECT_EQ("7: union entry needs select",
            parseError(h + "union U 1 1\n  int8 a id 1\nend\nrecord R 1 1\n  U stU\nend\n"));
  EXPECT_EQ(
      "4: indicator wV must sit at a fixed offset",
      parseError(h + "record R 1 1\n  versionindicator wV\n  string szA[3]\n  uint16 wV\nend\n"));
  EXPECT_EQ("4: not a number or known constant: MISSING",
            parseError(h + "record R 1 1\n  string szA[MISSING]\nend\n"));
  EXPECT_EQ("4: missing end", parseError(h + "record R 1 1\n  int8 a\n"));
  EXPECT_EQ("1: unknown statement: struct", parseError("struct X\n"));
}

TEST(VixgenSchema, RefusesBadLibraryOptions) {
  const std::string h = kHead;
  const struct {
    std::string text;
    const char* error;
  } kCases[] = {
      {"metalib sideways\n", "3: metalib needs the layout: natural or packed"},
      {"metalib packed id\n", "3: id needs a value"},
      {"metalib packed size 4\n", "3: unknown metalib option size"},
      {"metalib natural\nconst BIG 0x100000000\n", "3: metalib: BIG does not fit a 32-bit macro"},
      {"record R 1 1\n  int8 a as 1x\nend\n", "4: bad element name: 1x"},
      {"record R 1 1\n  int8 a as B\n  int8 B\nend\n", "5: duplicate element B"},
      {"record R 1 1\n  int8 a group E\nend\n", "4: group names no enum: E"},
      {"enum E\n  A = 1\nend\nrecord R 1 1\n  string s[4] group E\nend\n",
       "7: group applies to single integers"},
      {"record R 1 1\n  int8 a desc plain\nend\n", "4: desc needs a quoted text"},
      {"union U 1 1\n  int8 a id 1 as\nend\n", "4: as needs a value"},
  };
  for (const auto& c : kCases) EXPECT_EQ(c.error, parseError(h + c.text)) << c.text;
}
