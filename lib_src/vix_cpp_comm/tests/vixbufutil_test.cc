// Cursors and the visualize text writer.
#include "vix_cpp_comm/VixBufUtil.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "vix_cpp_comm/VixTime.h"
#include "vix_cpp_comm/VixTypeUtil.h"

using kalmo_vix::VixBufUtil;
using kalmo_vix::VixWriteBuf;

namespace {

std::string text(const VixWriteBuf& b) { return std::string(b.beginPtr, b.position); }

}  // namespace

TEST(VixWriteBuf, OwnedAndWrappedAreas) {
  VixWriteBuf owned(64);
  EXPECT_TRUE(owned.needFree);
  EXPECT_EQ(64u, owned.length);
  char area[8];
  VixWriteBuf wrapped(area, sizeof(area));
  EXPECT_FALSE(wrapped.needFree);
  EXPECT_EQ(area, wrapped.beginPtr);
  VixWriteBuf none(nullptr, 100);
  EXPECT_EQ(0u, none.length);
  EXPECT_EQ(-1, none.textize("x"));
  owned.set(area, sizeof(area));  // releases the owned area
  EXPECT_FALSE(owned.needFree);
}

TEST(VixWriteBuf, TextizeNeedsRoomForTheNul) {
  char area[6];
  std::memset(area, '#', sizeof(area));
  VixWriteBuf b(area, sizeof(area));
  EXPECT_EQ(0, b.textize("%d", 1234));
  EXPECT_EQ(4u, b.position);
  EXPECT_EQ('\0', area[4]);
  EXPECT_EQ(-1, b.textize("%d", 12));  // 2 characters + NUL need 3, 2 are free
  EXPECT_EQ(4u, b.position);
  EXPECT_EQ(0, b.textize("%d", 5));
  EXPECT_EQ(5u, b.position);
  EXPECT_EQ(0, b.textize("%s", ""));  // the NUL alone fits in the last byte
  EXPECT_EQ(5u, b.position);
  EXPECT_EQ(-1, b.textize("x"));
}

TEST(VixBufUtil, MultiStrAndIndent) {
  char area[32];
  VixWriteBuf b(area, sizeof(area));
  EXPECT_EQ(0, VixBufUtil::printMultiStr(b, "ab", 3));
  EXPECT_EQ(0, VixBufUtil::printMultiStr(b, "zz", 0));
  EXPECT_EQ(0, VixBufUtil::printMultiStr(b, "zz", -2));
  EXPECT_EQ("ababab", text(b));
  EXPECT_EQ(-8, VixBufUtil::printMultiStr(b, nullptr, 1));
  b.reset();
  EXPECT_EQ(0, VixBufUtil::printIndent(b, 2));
  EXPECT_EQ("        ", text(b));
  char small[5];
  VixWriteBuf s(small, sizeof(small));
  EXPECT_EQ(0, VixBufUtil::printMultiStr(s, "ab", 2));
  EXPECT_EQ(-1, VixBufUtil::printMultiStr(s, "ab", 1));
  EXPECT_EQ("abab", text(s));
}

TEST(VixBufUtil, VariableForms) {
  char area[256];
  VixWriteBuf b(area, sizeof(area));
  EXPECT_EQ(0, VixBufUtil::printVariable(b, 1, '\n', "[iID]", "%d", -5));
  EXPECT_EQ(0, VixBufUtil::printVariable(b, 0, ',', "[x]", 3u, "0x%02x", 10u));
  EXPECT_EQ(0, VixBufUtil::printVariable(b, 0, '\n', "[stA]", true));
  EXPECT_EQ(0, VixBufUtil::printVariable(b, 0, '\n', "[stB]", false));
  EXPECT_EQ(0, VixBufUtil::printVariable(b, 0, ';', "[ast]", 2u, true));
  EXPECT_EQ(0, VixBufUtil::printVariable(b, 0, ';', "[ast]", 4u, false));
  EXPECT_EQ("    [iID]: -5\n[x][3]: 0x0a,[stA]\n[stB]: [ast][2];[ast][4]: ", text(b));
}

TEST(VixBufUtil, ArrayStringAndWideString) {
  char area[256];
  VixWriteBuf b(area, sizeof(area));
  EXPECT_EQ(0, VixBufUtil::printArray(b, 1, '\n', "[x]", 5));
  EXPECT_EQ("    [x][0 : 4]:", text(b));
  b.reset();
  EXPECT_EQ(0, VixBufUtil::printArray(b, 0, '\n', "[x]", 0));
  EXPECT_EQ("[x][0 : -1]:", text(b));
  b.reset();
  EXPECT_EQ(0, VixBufUtil::printString(b, 0, '|', "[sz]", "hi"));
  EXPECT_EQ(0, VixBufUtil::printString(b, 0, '|', "[sz]", 1u, "yo"));
  EXPECT_EQ("[sz]: hi|[sz][1]: yo|", text(b));
  EXPECT_EQ(-8, VixBufUtil::printString(b, 0, '|', "[sz]", nullptr));
  b.reset();
  const uint16_t w[] = {0x41, 0x263a, 0};
  EXPECT_EQ(0, VixBufUtil::printWString(b, 0, '\n', "[w]", w));
  EXPECT_EQ("[w]:  0x0041 0x263a 0x0000\n", text(b));
}

TEST(VixBufUtil, DateTimeAndAddress) {
  char area[256];
  VixWriteBuf b(area, sizeof(area));
  uint32_t date = 0, time = 0, ip = 0;
  ASSERT_EQ(0, kalmo_vix::VixTypeUtil::str2VixDate(date, "2024-02-09"));
  ASSERT_EQ(0, kalmo_vix::VixTypeUtil::str2VixTime(time, "07:05:03"));
  ASSERT_EQ(0, kalmo_vix::VixTypeUtil::str2VixIP(ip, "192.168.1.20"));
  EXPECT_EQ(0, VixBufUtil::printVixDate(b, 0, ' ', "[d]", date));
  EXPECT_EQ(0, VixBufUtil::printVixTime(b, 0, ' ', "[t]", 1u, time));
  EXPECT_EQ(
      0, VixBufUtil::printVixDateTime(b, 0, ' ', "[dt]", kalmo_vix::makeVixDateTime(date, time)));
  EXPECT_EQ(0, VixBufUtil::printVixIP(b, 0, '\n', "[ip]", ip));
  EXPECT_EQ("[d]: 2024-02-09 [t][1]: 07:05:03 [dt]: 2024-02-09 07:05:03 [ip]: 192.168.1.20\n",
            text(b));
  b.reset();
  EXPECT_EQ(0,
            VixBufUtil::printVixDate(b, 0, '\n', "[d]", kalmo_vix::VixDate{-12, 1, 2}.toValue()));
  EXPECT_EQ("[d]:  -12-01-02\n", text(b));
}

TEST(VixBufUtil, SeparatorNeedsTwoFreeBytes) {
  // "[a]: 1" is 6 characters; with 7 bytes one is left when the separator is due.
  char area[7];
  VixWriteBuf b(area, sizeof(area));
  EXPECT_EQ(-1, VixBufUtil::printVariable(b, 0, '\n', "[a]", "%d", 1));
  EXPECT_EQ(6u, b.position);  // the partial line stays
  char area2[8];
  VixWriteBuf c(area2, sizeof(area2));
  EXPECT_EQ(0, VixBufUtil::printVariable(c, 0, '\n', "[a]", "%d", 1));
  EXPECT_EQ(7u, c.position);
  EXPECT_EQ('\0', area2[7]);
}
