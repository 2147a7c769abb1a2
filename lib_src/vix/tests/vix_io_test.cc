// Records as text: exact printed text, every failure and its detail, print-then-read round trips
// of every type in several formats, hand-edited and malformed text, the library dump.
#include <gtest/gtest.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "vix/vix_io.h"
#include "vix_test_util.h"

namespace {

using vixtest::Build;
using vixtest::entry_desc;
using vixtest::LibPtr;

// The record "Rec" of io_lib(), as C declares it.
struct Inner {
  int16_t a;
  uint8_t cmd;
};
union Branch {
  char raw[8];
  Inner in;
  int32_t code;
};
struct Rec {
  int32_t id;
  Inner inner;
  int8_t n;
  uint16_t vals[4];
  Branch body;
  char name[16];
  int32_t extra;  // since version 3
};

// Rec (versions 2..3) and All, a member of every base type, arrays fixed and counted, nested
// records, a union chosen by a selector and strings of both kinds.
LibPtr io_lib() {
  Build b("io", 3);
  b.macro("CMD_LOGIN", 1).macro("CMD_LOGOUT", 2).macro("MAXN", 4);
  b.group("Cmd", {"CMD_LOGIN", "CMD_LOGOUT"});
  b.meta("Inner", 1).entry("a", "int16").entry("cmd", "uint8", 1, nullptr, nullptr, "Cmd").end();
  b.meta("Branch", 2, VIX_TYPE_UNION)
      .branch("raw", "string", 1, 0, 8)
      .branch("in", "Inner", 1, 1)
      .branch("code", "int32", 2, 2)
      .end();
  b.meta("Rec", 3, VIX_TYPE_STRUCT, 2).entry("id", "int32").entry("inner", "Inner");
  b.entry("n", "int8").entry("vals", "uint16", 4, "n");
  b.entry("body", "Branch", 1, nullptr, "inner.cmd").entry("name", "string", 16);
  VIXENTRYDESC d = entry_desc("extra", "int32");
  d.iVersion = 3;
  b.entry(d).end();

  b.meta("All", 4);
  for (const char* psz :
       {"tinyint", "tinyuint", "smallint", "smalluint", "int", "uint", "long", "ulong", "bigint",
        "biguint", "money", "float", "double", "date", "time", "datetime", "ip", "wchar"}) {
    b.entry((std::string("v_") + psz).c_str(), psz);
  }
  b.entry("ws", "wstring", 8).entry("s", "string", 24).entry("bytes", "byte", 3);
  b.entry("chars", "int8", 3);
  d = entry_desc("strs", "string", 2);
  d.iCustomHUnitSize = 8;
  b.entry(d).entry("inners", "Inner", 2).entry("cnt", "int8");
  b.entry("var", "int32", 5, "cnt").entry("sel", "uint8", 1, nullptr, nullptr, "Cmd");
  b.entry("br", "Branch", 1, nullptr, "sel").end();
  return b.finish();
}

Rec sample_rec() {
  Rec r;
  memset(&r, 0, sizeof(r));
  r.id = 7;
  r.inner.a = -2;  // member by member: an assigned record may bring undefined padding
  r.inner.cmd = 1;
  r.n = 2;
  r.vals[0] = 10;
  r.vals[1] = 65535;
  r.body.in.a = 3;
  r.body.in.cmd = 2;
  snprintf(r.name, sizeof(r.name), "hi there");
  r.extra = 9;
  return r;
}

VIXPRINTFORMAT format(const char* pszSep, char chIndent, int iNoName, int iWithVersion) {
  VIXPRINTFORMAT f;
  f.pszSepStr = pszSep;
  f.chIndentChar = chIndent;
  f.iNoVarName = iNoName;
  f.iWithVersion = iWithVersion;
  return f;
}

// Prints host bytes; the text, or "ERR <code>: <detail>".
std::string print(const VIXMETA* m, const void* pHost, size_t iHost, int iCutOff,
                  const VIXPRINTFORMAT* f = nullptr, size_t iRoom = 1 << 16) {
  std::vector<char> out(iRoom + 1, '\x7f');
  VIXDATA o = {out.data(), iRoom};
  VIXDATA h = {static_cast<char*>(const_cast<void*>(pHost)), iHost};
  const int iRet =
      f == nullptr ? vix_sprintf(m, &o, &h, iCutOff) : vix_sprintf_ex(m, &o, &h, iCutOff, f);
  if (iRet != 0)
    return "ERR " + std::to_string(iRet - VIX_ERRCODE(0)) + ": " + vix_get_error_detail();
  EXPECT_LT(o.iBuff, iRoom);
  EXPECT_EQ('\0', out[o.iBuff]);  // terminated, not counted
  return std::string(out.data(), o.iBuff);
}

int scan(const VIXMETA* m, void* pHost, size_t iHost, const std::string& sText, int iVersion = 0,
         const VIXPRINTFORMAT* f = nullptr) {
  VIXPRINTFORMAT stDefault;
  EXPECT_EQ(0, vix_get_default_format(&stDefault));
  VIXDATA h = {static_cast<char*>(pHost), iHost};
  VIXDATA in = {const_cast<char*>(sText.data()), sText.size()};
  return vix_sscanf_ex(m, &h, &in, iVersion, f != nullptr ? f : &stDefault);
}

// Host offset of a member path of meta m.
size_t off(const VIXMETA* m, const char* pszPath) {
  VIXOFF iOff = -1;
  EXPECT_EQ(0, vix_entry_path_to_off(m, nullptr, &iOff, pszPath)) << pszPath;
  return static_cast<size_t>(iOff);
}

template <typename T>
void put(std::vector<char>* pHost, const VIXMETA* m, const char* pszPath, T v) {
  memcpy(pHost->data() + off(m, pszPath), &v, sizeof(v));
}

TEST(VixPrint, NestedRecordsUnionsArraysAndMacroNames) {
  LibPtr lib = io_lib();
  const VIXMETA* m = vix_get_meta_by_name(lib.get(), "Rec");
  ASSERT_EQ(sizeof(Rec), vix_get_meta_size(m));
  EXPECT_EQ(offsetof(Rec, body), off(m, "body"));
  EXPECT_EQ(offsetof(Rec, extra), off(m, "extra"));
  const Rec r = sample_rec();
  const std::string sBody =
      "\n  id=7\n  [inner]\n    a=-2\n    cmd=CMD_LOGIN\n  n=2\n  vals[0]=10\n  vals[1]=65535\n"
      "  [body]\n    [in]\n      a=3\n      cmd=CMD_LOGOUT\n  name=hi there";
  // Cut-off 0 is the current version, 3: the head says so and "extra" is written.
  EXPECT_EQ("[Rec version=\"3\"]:" + sBody + "\n  extra=9", print(m, &r, sizeof(r), 0));
  EXPECT_EQ("[Rec version=\"2\"]:" + sBody, print(m, &r, sizeof(r), 2));

  VIXPRINTFORMAT f = format(";", '\t', 0, 1);
  EXPECT_EQ(
      "[Rec version=\"2\"]:\t\tV2;\t\tid=7;\t\t[inner];\t\t\t\ta=-2;\t\t\t\tcmd=CMD_LOGIN;\t\tn=2;"
      "\t\tvals[0]=10;\t\tvals[1]=65535;\t\t[body];\t\t\t\t[in];\t\t\t\t\t\ta=3;"
      "\t\t\t\t\t\tcmd=CMD_LOGOUT;\t\tname=hi there",
      print(m, &r, sizeof(r), 2, &f));
  f = format("\n", ' ', 1, 0);
  EXPECT_EQ(
      "\n  7\n    -2\n    CMD_LOGIN\n  2\n  10\n  65535\n      3\n      CMD_LOGOUT\n  hi there",
      print(m, &r, sizeof(r), 2, &f));
  f = format(", ", '\0', 1, 1);
  EXPECT_EQ("V3, 7, -2, CMD_LOGIN, 2, 10, 65535, 3, CMD_LOGOUT, hi there, 9",
            print(m, &r, sizeof(r), 0, &f));

  // Other branches: by selector value, and none for a value no branch takes (raw is the
  // default branch, taken by any value without one of its own).
  Rec r2 = r;
  r2.inner.cmd = 2;
  r2.body.code = -9;
  r2.n = 0;
  EXPECT_NE(std::string::npos, print(m, &r2, sizeof(r2), 2).find("  [body]\n    code=-9\n"));
  r2.inner.cmd = 5;
  snprintf(r2.body.raw, sizeof(r2.body.raw), "raw!");
  EXPECT_NE(std::string::npos,
            print(m, &r2, sizeof(r2), 2).find("cmd=0x5\n  n=0\n  [body]\n    raw=raw!\n"));
  const VIXMETA* u = vix_get_meta_by_name(lib.get(), "Branch");
  EXPECT_EQ("[Branch version=\"0\"]:\n  raw=raw!", print(u, &r2.body, sizeof(r2.body), 0));
}

TEST(VixPrint, FailuresAndTheirDetails) {
  LibPtr lib = io_lib();
  const VIXMETA* m = vix_get_meta_by_name(lib.get(), "Rec");
  Rec r = sample_rec();
  char szOut[512];
  char szExpect[512];
  VIXDATA o = {szOut, sizeof(szOut)};
  VIXDATA h = {reinterpret_cast<char*>(&r), sizeof(r)};

  EXPECT_EQ(VIX_ERROR_INVALID_PARAM, vix_sprintf(nullptr, &o, &h, 0));
  snprintf(szExpect, sizeof(szExpect),
           "; invalid parameters: a_pstMeta<%p>==NULL or a_pstOut<%p>==NULL or "
           "a_pstHost<%p>==NULL",
           static_cast<void*>(nullptr), static_cast<void*>(&o), static_cast<void*>(&h));
  EXPECT_STREQ(szExpect, vix_get_error_detail());

  // Empty buffers: refused before anything is written, out size 0.
  VIXDATA stEmpty = {szOut, 0};
  memset(szOut, 'x', sizeof(szOut));
  EXPECT_EQ(VIX_ERROR_INVALID_PARAM, vix_sprintf(m, &stEmpty, &h, 0));
  EXPECT_EQ(0u, stEmpty.iBuff);
  EXPECT_EQ('x', szOut[0]);
  VIXDATA stNoHost = {nullptr, 4};
  EXPECT_EQ(VIX_ERROR_INVALID_PARAM, vix_sprintf(m, &o, &stNoHost, 0));
  EXPECT_EQ(0u, o.iBuff);
  snprintf(szExpect, sizeof(szExpect),
           "; invalid parameters: a_pstOut->pszBuff<%p>==NULL or a_pstOut->iBuff<512> <= 0 or "
           "a_pstHost->pszBuff<%p>==NULL or a_pstHost->iBuff<4> <= 0",
           static_cast<void*>(szOut), static_cast<void*>(nullptr));
  EXPECT_STREQ(szExpect, vix_get_error_detail());

  o.iBuff = sizeof(szOut);
  EXPECT_EQ(VIX_ERROR_INVALID_CUTOFF_VERSION, vix_sprintf(m, &o, &h, 1));
  EXPECT_EQ(0u, o.iBuff);
  EXPECT_STREQ(
      "; invalid parameter: expect a_iCutOffVersion<1> NOT less than baseVersion<2> of meta<Rec>",
      vix_get_error_detail());

  // A full out buffer keeps what fit, up to its last byte.
  const std::string sFull = print(m, &r, sizeof(r), 0);
  o.iBuff = 30;
  EXPECT_EQ(VIX_ERROR_OUT_BUF_TOO_SMALL, vix_sprintf(m, &o, &h, 0));
  EXPECT_EQ(30u, o.iBuff);
  EXPECT_EQ(sFull.substr(0, 30), std::string(szOut, 30));
  snprintf(szExpect, sizeof(szExpect),
           "; failed to output value of entry<inner>, consume input buffer from %p to %p",
           static_cast<void*>(&r.inner), static_cast<void*>(&r.n));
  EXPECT_STREQ(szExpect, vix_get_error_detail());
  o.iBuff = 5;
  EXPECT_EQ(VIX_ERROR_OUT_BUF_TOO_SMALL, vix_sprintf(m, &o, &h, 0));
  EXPECT_STREQ("; failed to output head of meta<Rec>", vix_get_error_detail());

  struct Case {
    int8_t n;
    size_t iHost;
    int iCode;
    const char* pszDetail;
  } const kCases[] = {
      {5, sizeof(Rec), VIX_ERROR_REFER_SURPASS_COUNT,
       "; invalid refer value: expect refer_value<5> in [0, array_count<4>] about entry<vals> of "
       "meta<Rec>"},
      {-1, sizeof(Rec), VIX_ERROR_MINUS_REFER_VALUE,
       "; invalid refer value: expect refer_value<-1> in [0, array_count<4>] about entry<vals> "
       "of meta<Rec>"},
      {2, 11, VIX_ERROR_HOST_BUFF_TOO_SMALL, "; input data is not enough, entry<vals>, meta<Rec>"},
      {0, 6, VIX_ERROR_HOST_BUFF_TOO_SMALL, "; input data is not enough, entry<inner>, meta<Rec>"},
  };
  for (const Case& c : kCases) {
    r.n = c.n;
    h.iBuff = c.iHost;
    o.iBuff = sizeof(szOut);
    EXPECT_EQ(c.iCode, vix_sprintf(m, &o, &h, 0)) << c.pszDetail;
    EXPECT_STREQ(c.pszDetail, vix_get_error_detail());
  }

  // A meta that contains itself (patched in memory) reaches the layer limit.
  LibPtr bad = io_lib();
  VIXMETA* pstRec = const_cast<VIXMETA*>(vix_get_meta_by_name(bad.get(), "Rec"));
  VIXMETAENTRY* pstInner = const_cast<VIXMETAENTRY*>(vix_get_entry_by_index(pstRec, 1));
  pstInner->iType = VIX_TYPEIDX_STRUCT;
  pstInner->ptrMeta = pstRec->ptrMeta;
  std::vector<char> big(1 << 12, 0);
  EXPECT_EQ("ERR 2: ; meta<Rec> is too complex, contains more than 32 layers of children",
            print(pstRec, big.data(), big.size(), 0));
  std::string sDeep;
  for (int i = 0; i < 40; ++i) sDeep += "\n[inner]";
  EXPECT_EQ(VIX_ERROR_TOO_COMPLEX_META, scan(pstRec, big.data(), big.size(), sDeep, 0));
}

TEST(VixPrint, FilesStreamsAndEncoding) {
  LibPtr lib = io_lib();
  const VIXMETA* m = vix_get_meta_by_name(lib.get(), "Rec");
  const Rec r = sample_rec();
  VIXDATA h = {reinterpret_cast<char*>(const_cast<Rec*>(&r)), sizeof(r)};
  char* pszFile = nullptr;
  size_t iFile = 0;
  FILE* fp = open_memstream(&pszFile, &iFile);
  ASSERT_NE(nullptr, fp);
  EXPECT_EQ(0, vix_fprintf(m, fp, &h, 0));
  VIXPRINTFORMAT f = format("|", '-', 0, 0);
  EXPECT_EQ(0, vix_fprintf_ex(m, fp, &h, 2, &f));
  EXPECT_EQ(VIX_ERROR_INVALID_PARAM, vix_fprintf(m, nullptr, &h, 0));
  fclose(fp);
  EXPECT_EQ(print(m, &r, sizeof(r), 0) + print(m, &r, sizeof(r), 2, &f),
            std::string(pszFile, iFile));
  free(pszFile);

  char sz[8];
  VIXIOSTREAM s;
  ASSERT_EQ(0, vix_iostream_init_strbuf(&s, sz, sizeof(sz)));
  EXPECT_EQ(0, vix_iostream_write(&s, "%d-", 12));
  EXPECT_STREQ("12-", sz);
  EXPECT_EQ(VIX_ERROR_OUT_BUF_TOO_SMALL, vix_iostream_write(&s, "%s", "abcdefgh"));
  EXPECT_EQ("12-abcde", std::string(sz, sizeof(sz)));
  EXPECT_EQ(VIX_ERROR_OUT_BUF_TOO_SMALL, vix_iostream_write(&s, "x"));
  EXPECT_EQ(8u, s.iWritten);

  // Wide strings are written in the multibyte encoding: GBK by default.
  const VIXMETA* all = vix_get_meta_by_name(lib.get(), "All");
  std::vector<char> host(vix_get_meta_size(all), 0);
  const vix_wchar_t awText[] = {0x4E2D, 'a', 0};
  memcpy(host.data() + off(all, "ws"), awText, sizeof(awText));
  put<vix_wchar_t>(&host, all, "v_wchar", 0xD800);  // a lone surrogate: no encoding has it
  EXPECT_NE(
      std::string::npos,
      print(all, host.data(), host.size(), 0).find("failed to output value of entry<v_wchar>"));
  put<vix_wchar_t>(&host, all, "v_wchar", 0x4E2D);
  EXPECT_NE(std::string::npos, print(all, host.data(), host.size(), 0).find("ws=\xD6\xD0\x61\n"));
  ASSERT_EQ(0, vix_set_encoding("UTF-8"));
  EXPECT_NE(std::string::npos,
            print(all, host.data(), host.size(), 0).find("ws=\xE4\xB8\xAD\x61\n"));
  ASSERT_EQ(0, vix_set_encoding("GBK"));
}

// Fills "All" with values at the edges of every type.
std::vector<char> all_record(const VIXMETA* all) {
  std::vector<char> h(vix_get_meta_size(all), 0);
  put<int8_t>(&h, all, "v_tinyint", -128);
  put<uint8_t>(&h, all, "v_tinyuint", 255);
  put<int16_t>(&h, all, "v_smallint", -32768);
  put<uint16_t>(&h, all, "v_smalluint", 65535);
  put<int32_t>(&h, all, "v_int", INT32_MIN);
  put<uint32_t>(&h, all, "v_uint", UINT32_MAX);
  put<int32_t>(&h, all, "v_long", -7);
  put<uint32_t>(&h, all, "v_ulong", 4000000000u);
  put<int64_t>(&h, all, "v_bigint", INT64_MIN);
  put<uint64_t>(&h, all, "v_biguint", UINT64_MAX);
  put<int32_t>(&h, all, "v_money", -12345);
  put<float>(&h, all, "v_float", 1.5f);
  put<double>(&h, all, "v_double", -2.25);
  put<VIXDATE>(&h, all, "v_date", VIXDATE{2000, 2, 29});
  put<VIXTIME>(&h, all, "v_time", VIXTIME{-12, 34, 56});
  put<VIXDATETIME>(&h, all, "v_datetime", VIXDATETIME{{2024, 1, 31}, {23, 59, 58}});
  put<uint32_t>(&h, all, "v_ip", htonl(0x0A010203));
  put<vix_wchar_t>(&h, all, "v_wchar", 0x4E2D);
  const vix_wchar_t awText[] = {0x4E2D, 0x6587, 'a', 'b', 0};
  memcpy(h.data() + off(all, "ws"), awText, sizeof(awText));
  // Blanks, separators and things that look like members inside a string.
  const char szText[] = "a b;c|d\nx+1 [y] ";
  memcpy(h.data() + off(all, "s"), szText, sizeof(szText));
  put<uint8_t>(&h, all, "bytes[1]", 2);
  put<uint8_t>(&h, all, "bytes[2]", 0xFE);
  put<int8_t>(&h, all, "chars[0]", -1);
  put<int8_t>(&h, all, "chars[2]", 1);
  memcpy(h.data() + off(all, "strs[0]"), "one", 3);
  memcpy(h.data() + off(all, "strs[1]"), "seven ch", 8 - 1);
  put<int16_t>(&h, all, "inners[0].a", 1);
  put<uint8_t>(&h, all, "inners[0].cmd", 1);
  put<uint8_t>(&h, all, "inners[1].cmd", 7);
  put<int8_t>(&h, all, "cnt", 5);  // every element counts
  put<int32_t>(&h, all, "var[0]", 1);
  put<int32_t>(&h, all, "var[2]", -3);
  put<int32_t>(&h, all, "var[4]", 5);
  put<uint8_t>(&h, all, "sel", 2);
  put<int32_t>(&h, all, "br.code", -9);
  return h;
}

TEST(VixScan, PrintThenReadGivesTheSameBytes) {
  LibPtr lib = io_lib();
  const VIXMETA* all = vix_get_meta_by_name(lib.get(), "All");
  const VIXMETA* rec = vix_get_meta_by_name(lib.get(), "Rec");
  const VIXPRINTFORMAT kFormats[] = {format("\n", ' ', 0, 0), format("\n", ' ', 1, 0),
                                     format(";", '\t', 0, 1), format(" | ", '.', 0, 0),
                                     format("\r\n", ' ', 1, 1)};
  std::vector<char> h = all_record(all);
  for (int iCase = 0; iCase < 3; ++iCase) {
    if (iCase == 1) {  // the composite branch
      put<uint8_t>(&h, all, "sel", 1);
      memset(h.data() + off(all, "br"), 0, sizeof(Branch));
      put<int16_t>(&h, all, "br.in.a", 5);
      put<uint8_t>(&h, all, "br.in.cmd", 2);
    }
    if (iCase == 2) {  // the string branch, by default
      put<uint8_t>(&h, all, "sel", 0);
      memcpy(h.data() + off(all, "br"), "raw\0\0\0\0", 8);
    }
    for (const VIXPRINTFORMAT& f : kFormats) {
      const std::string sText = print(all, h.data(), h.size(), 0, &f);
      ASSERT_EQ(std::string::npos, sText.find("ERR")) << sText;
      std::vector<char> back(h.size(), 0);
      ASSERT_EQ(0, scan(all, back.data(), back.size(), sText, 0, &f))
          << vix_get_error_detail() << "\n"
          << sText;
      EXPECT_EQ(h, back) << "format<" << f.pszSepStr << "> case " << iCase << "\n" << sText;
    }
  }
  // Rec with a cut-off: the member above it is neither written nor read.
  const Rec r = sample_rec();
  Rec back;
  memset(&back, 0, sizeof(back));
  ASSERT_EQ(0, scan(rec, &back, sizeof(back), print(rec, &r, sizeof(r), 2), 2));
  EXPECT_EQ(0, back.extra);
  back.extra = r.extra;
  EXPECT_EQ(0, memcmp(&r, &back, sizeof(r)));
  EXPECT_EQ(VIX_ERROR_INVALID_CUTOFF_VERSION, scan(rec, &back, sizeof(back), "", 1));
  // Without a separator names alone tell where a value ends.
  const VIXPRINTFORMAT f = format("", ' ', 0, 0);
  memset(&back, 0, sizeof(back));
  ASSERT_EQ(0, scan(rec, &back, sizeof(back), print(rec, &r, sizeof(r), 0, &f), 0, &f));
  EXPECT_EQ(0, memcmp(&r, &back, sizeof(r)));
}

TEST(VixScan, HandEditedTextKeepsWhatItLeavesOut) {
  LibPtr lib = io_lib();
  const VIXMETA* rec = vix_get_meta_by_name(lib.get(), "Rec");
  Rec r;
  memset(&r, 0x11, sizeof(r));
  const Rec before = r;
  const std::string sText =
      "\n\n[Rec version=\"2\"]:\n"
      "id = 0x10\n"
      "[inner]\n"
      "      cmd=CMD_LOGOUT\n"
      "\t   n=MAXN\n\n"
      "vals[1]=65535\n"
      "  vals[3]=MAXN*2+1\n"
      "name=  spaced  \n";
  ASSERT_EQ(0, scan(rec, &r, sizeof(r), sText)) << vix_get_error_detail();
  EXPECT_EQ(16, r.id);
  EXPECT_EQ(before.inner.a, r.inner.a);
  EXPECT_EQ(2, r.inner.cmd);
  EXPECT_EQ(4, r.n);
  EXPECT_EQ(before.vals[0], r.vals[0]);
  EXPECT_EQ(65535, r.vals[1]);
  EXPECT_EQ(9, r.vals[3]);
  EXPECT_EQ(0, memcmp(&before.body, &r.body, sizeof(r.body)));
  EXPECT_STREQ("  spaced  ", r.name);
  EXPECT_EQ(before.extra, r.extra);
}

TEST(VixScan, MalformedTextIsRefusedWithLineAndEntry) {
  LibPtr lib = io_lib();
  const VIXMETA* rec = vix_get_meta_by_name(lib.get(), "Rec");
  const VIXMETA* all = vix_get_meta_by_name(lib.get(), "All");
  const VIXPRINTFORMAT kNoName = format("\n", ' ', 1, 0);
  struct Case {
    const VIXMETA* m;
    const char* pszText;
    const VIXPRINTFORMAT* f;
    int iCode;
    const char* pszDetail;  // expected inside the detail
  } const kCases[] = {
      {rec, "[Rec version=\"3\"]:\n  id=7\n  idx=1", nullptr, VIX_ERROR_UNKNOWN_ENTRY_IN_TEXT,
       "line 3: entry<idx> is unknown"},
      {rec, "  n=1\n  id=3", nullptr, VIX_ERROR_UNKNOWN_ENTRY_IN_TEXT, "line 2: entry<id>"},
      {rec, "  n=2\n  vals[1]=1\n  vals[0]=2", nullptr, VIX_ERROR_UNKNOWN_ENTRY_IN_TEXT,
       "line 3: entry<vals>"},
      {rec, "  [inner]\n    a=1\n  [inner]", nullptr, VIX_ERROR_UNKNOWN_ENTRY_IN_TEXT,
       "line 3: entry<inner>"},
      {rec, "  inner=1", nullptr, VIX_ERROR_UNKNOWN_ENTRY_IN_TEXT, "line 1: entry<inner>"},
      {rec, "  id=seven", nullptr, VIX_ERROR_BAD_NUMBER, "line 1: bad value<seven> of entry<id>"},
      {rec, "  id=\x1b[2J", nullptr, VIX_ERROR_BAD_NUMBER,
       "line 1: bad value<\\x1b[2J> of entry<id>"},
      {rec, "  id=1.5", nullptr, VIX_ERROR_BAD_NUMBER, "line 1: bad value<1.5> of entry<id>"},
      {rec, "\n  n=300", nullptr, VIX_ERROR_VALUE_OUT_OF_RANGE,
       "line 2: value<300> out of the range of entry<n>"},
      {rec, "  id=2\n  name=0123456789abcdef", nullptr, VIX_ERROR_STRING_TOO_LONG,
       "line 2: string of 16 bytes does not fit entry<name>"},
      {rec, "  n=2\n  vals[2]=1", nullptr, VIX_ERROR_ARRAY_INDEX_OUT,
       "line 2: index 2 not below the element count 2, entry<vals>"},
      {rec, "  n=9\n  vals[0]=1", nullptr, VIX_ERROR_REFER_SURPASS_COUNT,
       "line 2: invalid refer value: expect refer_value<9> in [0, array_count<4>] about "
       "entry<vals> of meta<Rec>"},
      {rec, "  id 7", nullptr, VIX_ERROR_BAD_TEXT_INPUT, "line 1: malformed member line<id 7>"},
      {rec, "  vals[x]=7", nullptr, VIX_ERROR_BAD_TEXT_INPUT, "line 1: malformed member line"},
      {rec, "[Other version=\"3\"]:\n  id=1", nullptr, VIX_ERROR_BAD_TEXT_INPUT,
       "line 1: head<[Other version=\"3\"]:> does not name meta<Rec>"},
      {rec, "[Rec version=\"x\"]:", nullptr, VIX_ERROR_BAD_TEXT_INPUT, "line 1: malformed head"},
      {rec, "\n  7\n    -2", &kNoName, VIX_ERROR_BAD_TEXT_INPUT,
       "line 3: text ends before entry<cmd> of meta<Inner>"},
      {rec, "\n  7\n    -2\n    1\n  0\n      5\n      1\n  nm\n  9\n  more", &kNoName,
       VIX_ERROR_BAD_TEXT_INPUT, "line 10: text<more> after the last member of meta<Rec>"},
      {rec, "\n  7\n    x", &kNoName, VIX_ERROR_BAD_NUMBER, "line 3: bad value<x> of entry<a>"},
      {all, "  v_date=2001-02-29", nullptr, VIX_ERROR_BAD_DATE, "entry<v_date>"},
      {all, "  v_ip=1.2.3.4.5", nullptr, VIX_ERROR_BAD_IP, "entry<v_ip>"},
      {all, "  v_float=1.5x", nullptr, VIX_ERROR_BAD_FLOAT_VALUE, "entry<v_float>"},
      {all, "  ws=\xD6\xD0\xD6\xD0\xD6\xD0\xD6\xD0\xD6\xD0\xD6\xD0\xD6\xD0\xD6\xD0", nullptr,
       VIX_ERROR_STRING_TOO_LONG, "entry<ws>"},
      {all, "  v_wchar=ab", nullptr, VIX_ERROR_STRING_TOO_LONG, "entry<v_wchar>"},
      {all, "  cnt=2\n  var[0]=1\n  var[2]=1", nullptr, VIX_ERROR_ARRAY_INDEX_OUT,
       "line 3: index 2"},
  };
  for (const Case& c : kCases) {
    std::vector<char> h(vix_get_meta_size(c.m), 0x22);
    const std::vector<char> before = h;
    EXPECT_EQ(c.iCode, scan(c.m, h.data(), h.size(), c.pszText, 0, c.f)) << c.pszText;
    EXPECT_NE(std::string::npos, std::string(vix_get_error_detail()).find(c.pszDetail))
        << c.pszText << " -> " << vix_get_error_detail();
    EXPECT_EQ(before, h) << "the record is restored: " << c.pszText;
  }
  // The reader stops at the end of the host buffer.
  std::vector<char> h(offsetof(Rec, vals) + 2, 0);
  EXPECT_EQ(VIX_ERROR_HOST_BUFF_TOO_SMALL, scan(rec, h.data(), h.size(), "  n=2\n  vals[1]=1"));
  EXPECT_STREQ("; line 2: input data is not enough, entry<vals>, meta<Rec>",
               vix_get_error_detail());
  EXPECT_EQ(VIX_ERROR_INVALID_PARAM, scan(rec, nullptr, 8, "  n=2"));
  const VIXPRINTFORMAT kEmptySep = format("", ' ', 1, 0);
  EXPECT_EQ(VIX_ERROR_BAD_PRINT_FORMAT, scan(rec, h.data(), h.size(), "1", 0, &kEmptySep));
}

TEST(VixDump, WholeLibrary) {
  LibPtr lib = vixtest::sample_lib();
  char* pszText = nullptr;
  size_t iText = 0;
  FILE* fp = open_memstream(&pszText, &iText);
  ASSERT_NE(nullptr, fp);
  ASSERT_EQ(0, vix_dump_metalib(lib.get(), fp));
  fclose(fp);
  const std::string s(pszText, iText);
  free(pszText);
  char szHead[256];
  snprintf(szHead, sizeof(szHead),
           "metalib name=\"sample\" id=7 version=3 build=11 platform=64 size=%llu "
           "checksum=0x%08x\n  tagset=0 flag=0 metas=5/5 macros=4/4 groups=1/1 maxid=5\n"
           "macro[0] name=\"CMD_LOGIN\" value=1 desc=\"d\"\n",
           static_cast<unsigned long long>(lib->iSize), lib->checksum);
  EXPECT_EQ(0u, s.find(szHead)) << s;
  for (const char* pszLine :
       {"\ngroup[0] name=\"Cmd\" macros=3 desc=\"\"\n  macro name=\"CMD_LOGIN\" value=1\n",
        "\nmeta[4] name=\"Pkg\" type=struct id=5 version=0..0 hsize=88 nsize=84 align=8 "
        "entries=5 indexes=1 keys=2 desc=\"a package\" cname=\"\" attr=\"attr1\" attr2=\"\"\n",
        "\n  entry[2] name=\"items\" type=int32 id=- version=0 count=8 refer=count select=- "
        "hoff=12 hunit=4 hsize=32 noff=8 nunit=4 nsize=32 range=- group=- default=\"7\" "
        "desc=\"\" cname=\"\" io=0 flag=0x0\n",
        "select=head.cmd hoff=44",
        "\n  entry[1] name=\"login\" type=Login id=- version=0 count=1 refer=- select=- hoff=0 "
        "hunit=36 hsize=36 noff=0 nunit=36 nsize=36 range=[1,1] group=- default=-",
        "\n  entry[1] name=\"cmd\" type=uint8 id=9 ",
        "\n  index[0] name=\"byCount\" id=11 version=0 type=0 unique=0 columns=count\n"
        "  primarykey head.magic, count\n"}) {
    EXPECT_NE(std::string::npos, s.find(pszLine)) << pszLine;
  }
  zq_test::TempDir dir("vix_test");
  const std::string sPath = dir.file("dump.txt");
  EXPECT_EQ(0, vix_dump_metalib_file(lib.get(), sPath.c_str()));
  EXPECT_EQ(VIX_ERROR_OPEN_FILE_WRITE, vix_dump_metalib_file(lib.get(), "/nonexistent/dir/x"));
  lib->nBuild = 10;
  EXPECT_EQ(VIX_ERROR_INVALID_PARAM, vix_dump_metalib(lib.get(), stdout));
}

}  // namespace
