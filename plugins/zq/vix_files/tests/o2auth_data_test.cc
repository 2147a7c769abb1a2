// OAuth token records: sizes on the wire, capacity limits, optional tokens and their text.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "o2auth_data.h"

using kalmo_vix::VixError;

namespace {

std::string trace() { return VixError::getBackTrace(); }

bool traceNames(const std::vector<std::string>& names) {
  std::string expected;
  for (const std::string& n : names) expected += "-->entry_name[" + n + "]";
  std::string got;
  const std::string t = trace();
  for (size_t at = t.find("-->entry_name["); at != std::string::npos;
       at = t.find("-->entry_name[", at + 1)) {
    got += t.substr(at, t.find(']', at) - at + 1);
  }
  return got == expected;
}

}  // namespace

TEST(O2AuthToken, WireSizeIs18PlusData) {
  KALMOO2Token t;
  ASSERT_EQ(0, t.construct());
  char out[512];
  size_t used = 0;
  ASSERT_EQ(0, t.pack(out, sizeof(out), &used, 0));
  EXPECT_EQ(18u, used);
  t.wSize = 3;
  std::memcpy(t.szData, "\x01\x02\x03", 3);
  t.dwExpire = 0x01020304u;
  t.dwRSV32 = 5;
  t.ullRSV64 = 6;
  ASSERT_EQ(0, t.pack(out, sizeof(out), &used, 0));
  const unsigned char expected[] = {0, 3, 1, 2, 3, 1, 2, 3, 4, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0, 6};
  ASSERT_EQ(sizeof(expected), used);
  EXPECT_EQ(0, std::memcmp(out, expected, used));
  KALMOO2Token back;
  ASSERT_EQ(0, back.unpack(out, used, &used, 0));
  EXPECT_EQ(0x01020304u, +back.dwExpire);
  EXPECT_EQ(0, std::memcmp(back.szData, "\x01\x02\x03", 3));
}

TEST(O2AuthToken, CapacityLimits) {
  std::vector<char> out(4096);
  char text[8192];
  KALMOO2Token t;
  ASSERT_EQ(0, t.construct());
  t.wSize = 256;
  size_t used = 0;
  ASSERT_EQ(0, t.pack(out.data(), out.size(), &used, 0));
  EXPECT_EQ(274u, used);
  t.wSize = 257;
  EXPECT_EQ(-7, t.pack(out.data(), out.size(), &used, 0));
  EXPECT_TRUE(traceNames({"wSize"})) << trace();
  EXPECT_EQ(-7, t.visualize(text, sizeof(text), nullptr, 0, '\n'));
  out[0] = 0x01;
  out[1] = 0x01;  // 257 on the wire
  KALMOO2Token back;
  EXPECT_EQ(-7, back.unpack(out.data(), out.size(), nullptr, 0));
  EXPECT_TRUE(traceNames({"wSize"})) << trace();

  KALMOO2TokenBig big;
  ASSERT_EQ(0, big.construct());
  big.wSize = 3072;
  ASSERT_EQ(0, big.pack(out.data(), out.size(), &used, 0));
  EXPECT_EQ(3090u, used);
  big.wSize = 3073;
  EXPECT_EQ(-7, big.pack(out.data(), out.size(), &used, 0));

  // Short output: the block and each later integer are named.
  t.wSize = 4;
  EXPECT_EQ(-1, t.pack(out.data(), 5, nullptr, 0));
  EXPECT_TRUE(traceNames({"szData"})) << trace();
  EXPECT_EQ(-1, t.pack(out.data(), 9, nullptr, 0));
  EXPECT_TRUE(traceNames({"dwExpire"})) << trace();
  EXPECT_EQ(-1, t.pack(out.data(), 21, nullptr, 0));
  EXPECT_TRUE(traceNames({"ullRSV64"})) << trace();
}

TEST(O2AuthToken, OnlyVersionFiveExists) {
  KALMOO2Token t;
  ASSERT_EQ(0, t.construct());
  char out[64];
  size_t used = 0;
  for (unsigned int v = 1; v <= 4; ++v) EXPECT_EQ(-9, t.pack(out, sizeof(out), &used, v)) << v;
  EXPECT_EQ(0, t.pack(out, sizeof(out), &used, 5));
  EXPECT_EQ(0, t.pack(out, sizeof(out), &used, 6));
  EXPECT_EQ(-9, t.unpack(out, used, &used, 4));
  EXPECT_EQ(0, t.unpack(out, sizeof(out), &used, 0));
}

TEST(O2AuthBundle, FlagsSelectTheTokens) {
  KALMOO2UnifiedAuth a;
  std::memset(&a, 0x6b, sizeof(a));
  ASSERT_EQ(0, a.construct());
  EXPECT_EQ(0, +a.bHasATK);
  EXPECT_EQ(0, +a.stATK.wSize);
  EXPECT_EQ(0u, +a.stRSV.ullRSV64);
  char out[8192];
  size_t used = 0;
  ASSERT_EQ(0, a.pack(out, sizeof(out), &used, 0));
  EXPECT_EQ(4u, used);
  EXPECT_EQ(0, std::memcmp(out, "\0\0\0\0", 4));

  a.bHasRTK = 1;
  a.stRTK.wSize = 2;
  a.stRTK.szData[0] = 0xaa;
  a.stRTK.szData[1] = 0xbb;
  a.bHasRSV = 1;
  ASSERT_EQ(0, a.pack(out, sizeof(out), &used, 0));
  EXPECT_EQ(4u + 20u + 18u, used);
  EXPECT_EQ(0, out[0]);
  EXPECT_EQ(1, out[1]);
  EXPECT_EQ(static_cast<char>(0xaa), out[4]);
  EXPECT_EQ(0, out[22]);  // bHasCode
  EXPECT_EQ(1, out[23]);  // bHasRSV

  KALMOO2UnifiedAuth back;
  std::memset(&back, 0x6b, sizeof(back));
  ASSERT_EQ(0, back.unpack(out, used, &used, 0));
  EXPECT_EQ(42u, used);
  EXPECT_EQ(2, +back.stRTK.wSize);
  EXPECT_EQ(0xbb, +back.stRTK.szData[1]);
  EXPECT_EQ(0, +back.stATK.wSize);  // absent tokens come back zeroed
  EXPECT_EQ(0u, +back.stCode.dwExpire);

  a.bHasCode = 2;
  EXPECT_EQ(-7, a.pack(out, sizeof(out), &used, 0));
  EXPECT_TRUE(traceNames({"bHasCode"})) << trace();
  out[0] = 2;
  EXPECT_EQ(-7, back.unpack(out, sizeof(out), &used, 0));

  a.bHasCode = 0;
  a.bHasATK = 1;
  a.stATK.wSize = 100;
  EXPECT_EQ(-1, a.pack(out, 50, &used, 0));
  EXPECT_TRUE(traceNames({"stATK", "szData"})) << trace();
  EXPECT_EQ(-1, a.pack(out, 0, &used, 0));
  EXPECT_TRUE(traceNames({"bHasATK"})) << trace();
}

TEST(O2AuthToken, Visualize) {
  KALMOO2Token t;
  ASSERT_EQ(0, t.construct());
  t.wSize = 2;
  t.szData[0] = 0x0f;
  t.szData[1] = 0xf0;
  t.dwExpire = 4000000000u;
  t.dwRSV32 = 1;
  t.ullRSV64 = 18446744073709551615ULL;
  char text[512];
  EXPECT_STREQ(
      "    [wSize]: 2\n"
      "    [szData][0 : 1]: 0x0f 0xf0\n"
      "    [dwExpire]: 4000000000\n"
      "    [dwRSV32]: 1\n"
      "    [ullRSV64]: 18446744073709551615\n",
      t.visualize_ex(text, sizeof(text), nullptr, 1, '\n'));

  KALMOO2UnifiedAuth a;
  ASSERT_EQ(0, a.construct());
  a.bHasCode = 1;
  a.stCode = t;
  const std::string s = a.visualize_ex(text, sizeof(text), nullptr, 0, '\n');
  EXPECT_EQ(
      0u, s.find("[bHasATK]: 0x00\n[bHasRTK]: 0x00\n[bHasCode]: 0x01\n[stCode]\n    [wSize]: 2\n"))
      << s;
  EXPECT_NE(std::string::npos, s.find("[bHasRSV]: 0x00\n"));
  EXPECT_EQ(std::string::npos, s.find("[stATK]"));
}
