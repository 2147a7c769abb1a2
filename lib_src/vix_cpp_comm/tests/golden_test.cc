// The generator's output for every field kind, checked against hand-written bytes and text
// (schema: golden.vix).
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "golden.h"
#include "vix_cpp_comm/VixTestSupport.h"
#include "vix_cpp_comm/VixTime.h"

using namespace golden;
using kalmo_vix::VixError;

namespace {

typedef std::vector<unsigned char> Bytes;

typedef std::vector<std::string> Names;

GdMessage sampleMessage() {
  GdMessage m;
  EXPECT_EQ(0, m.construct());
  m.stBase.wKind = GD_KIND_POINT;
  m.chFlag = -2;
  std::strcpy(m.szName, "ab");
  m.stBody.stPoint.nX = 1;
  m.stBody.stPoint.nY = -1;
  m.bCount = 2;
  m.astPoints[0].nX = 2;
  m.astPoints[0].nY = 3;
  m.astPoints[1].nX = 4;
  m.astPoints[1].nY = 5;
  m.adwFixed[0] = 0x01020304u;
  m.adwFixed[1] = 0xa0b0c0d0u;
  m.nSigLen = 3;
  m.szSig[0] = 0xde;
  m.szSig[1] = 0xad;
  m.szSig[2] = 0xbe;
  m.bHasToken = 1;
  m.stToken.wSize = 2;
  m.stToken.szData[0] = 0x11;
  m.stToken.szData[1] = 0x22;
  m.stToken.dwExpire = 7;
  m.ulIp = 0x0a000001u;
  m.dwDate = kalmo_vix::VixDate{2024, 2, 29}.toValue();
  m.dwTime = kalmo_vix::VixTime{13, 5, 9}.toValue();
  m.ullWhen = kalmo_vix::makeVixDateTime(m.dwDate, m.dwTime);
  m.iSigned = -2;
  m.llSigned = -3;
  m.ullBig = 0x0102030405060708ULL;
  return m;
}

const Bytes kMessageV3 = {
    0x47, 0x44, 0x00, 0x03, 0x00, 0x01, 0x00, 0x00, 0x00,
    0x5d,                                                  // stBase (version and length patched)
    0xfe,                                                  // chFlag
    0x00, 0x00, 0x00, 0x03, 'a',  'b',  0x00,              // szName
    0x00, 0x01, 0xff, 0xff,                                // stBody.stPoint
    0x02,                                                  // bCount
    0x00, 0x02, 0x00, 0x03, 0x00, 0x04, 0x00, 0x05,        // astPoints[0..1]
    0x01, 0x02, 0x03, 0x04, 0xa0, 0xb0, 0xc0, 0xd0,        // adwFixed
    0x00, 0x03, 0xde, 0xad, 0xbe,                          // nSigLen, szSig
    0x01, 0x00, 0x02, 0x11, 0x22, 0x00, 0x00, 0x00, 0x07,  // bHasToken, stToken
    0x0a, 0x00, 0x00, 0x01,                                // ulIp
    0x1d, 0x02, 0x07, 0xe8, 0x09, 0x05, 0x00, 0x0d,        // dwDate, dwTime
    0x09, 0x05, 0x00, 0x0d, 0x1d, 0x02, 0x07, 0xe8,        // ullWhen
    0xff, 0xff, 0xff, 0xfe,                                // iSigned
    0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xfd,        // llSigned
    0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08,        // ullBig
};

Bytes pack(const GdMessage& m, unsigned int cutVer, int* ret = nullptr) {
  std::vector<char> out(GdMessage::MAX_PACK_SIZE);
  size_t used = 0;
  const int r = m.pack(out.data(), out.size(), &used, cutVer);
  if (ret != nullptr) *ret = r;
  return Bytes(out.begin(), out.begin() + static_cast<long>(used));
}

}  // namespace

TEST(GoldenCodec, EveryKindAtTheCurrentVersion) {
  int ret = 1;
  const Bytes b = pack(sampleMessage(), 0, &ret);
  ASSERT_EQ(0, ret);
  EXPECT_EQ(kMessageV3, b);
  EXPECT_EQ(b, pack(sampleMessage(), 99));  // above CURRVERSION means CURRVERSION

  GdMessage back;
  std::memset(&back, 0x5a, sizeof(back));
  size_t used = 0;
  ASSERT_EQ(0, back.unpack(reinterpret_cast<const char*>(b.data()), b.size(), &used,
                           1));  // argument ignored
  EXPECT_EQ(b.size(), used);
  EXPECT_EQ(3, +back.stBase.wVersion);
  EXPECT_EQ(93u, +back.stBase.dwLen);
  EXPECT_STREQ("ab", back.szName);
  EXPECT_EQ(-1, +back.stBody.stPoint.nY);
  EXPECT_EQ(5, +back.astPoints[1].nY);
  EXPECT_EQ(0xbe, +back.szSig[2]);
  EXPECT_EQ(0x22, +back.stToken.szData[1]);
  EXPECT_EQ(-3, +back.llSigned);
  EXPECT_EQ(+sampleMessage().ullWhen, +back.ullWhen);
  EXPECT_EQ(b, pack(back, 3));
}

TEST(GoldenCodec, OlderCutLeavesLaterEntriesOutAndZeroesThemOnUnpack) {
  Bytes expected = kMessageV3;
  expected.erase(expected.begin() + 65, expected.begin() + 73);  // ullWhen (since 3)
  expected.erase(expected.begin() + 10);                         // chFlag (since 2)
  expected[3] = 0x01;
  expected[9] = 0x54;  // 84 bytes
  const Bytes b = pack(sampleMessage(), 1);
  EXPECT_EQ(expected, b);
  GdMessage back = sampleMessage();
  ASSERT_EQ(0, back.unpack(reinterpret_cast<const char*>(b.data()), b.size(), nullptr, 0));
  EXPECT_EQ(0, +back.chFlag);
  EXPECT_EQ(0u, +back.ullWhen);
  EXPECT_EQ(1, +back.stBase.wVersion);
}

TEST(GoldenCodec, ConstructAppliesDefaults) {
  GdMessage m;
  std::memset(&m, 0x77, sizeof(m));
  EXPECT_EQ(0, m.construct());
  EXPECT_EQ(0x4744, +m.stBase.wMagic);
  EXPECT_STREQ("anon", m.szName);
  EXPECT_EQ(0, +m.szName[7]);
  EXPECT_EQ(0, +m.bCount);
  EXPECT_EQ(0, +m.astPoints[2].nX);
  EXPECT_STREQ("GdMessage", GdMessage::m_class_name);
  EXPECT_STREQ("GdBody", GdBody::m_class_name);
}

TEST(GoldenCodec, UnionMembersDefaultsAndLateMembers) {
  GdHead h;
  ASSERT_EQ(0, h.construct());
  h.chKind = GD_KIND_LATE;
  h.stBody.stLate.ullStamp = 0x1122334455667788ULL;
  h.dwSeq = 9;
  char out[64];
  size_t used = 0;
  ASSERT_EQ(0, h.pack(out, sizeof(out), &used, 3));
  EXPECT_EQ(4u + 2u + 8u + 1u, used);
  EXPECT_EQ(3, out[0]);
  ASSERT_EQ(0, h.pack(out, sizeof(out), &used, 2));  // stLate comes in version 3
  EXPECT_EQ(2u + 4u + 1u, used);
  EXPECT_EQ(2, out[0]);
  GdHead back;
  std::memset(&back, 0x33, sizeof(back));
  ASSERT_EQ(0, back.unpack(out, used, nullptr, 0));
  EXPECT_EQ(0u, +back.stBody.stLate.ullStamp);
  ASSERT_EQ(0, h.pack(out, sizeof(out), &used, 1));  // dwSeq too is left out
  EXPECT_EQ(3u, used);

  h.chKind = 99;  // any other value: the default member
  h.stBody.dwOther = 0xcafef00du;
  ASSERT_EQ(0, h.pack(out, sizeof(out), &used, 0));
  ASSERT_EQ(4u + 2u + 4u + 1u, used);
  EXPECT_EQ(0, std::memcmp(out + 6, "\xca\xfe\xf0\x0d", 4));

  h.chKind = GD_KIND_TEXT;
  std::strcpy(h.stBody.szText, "hey");
  h.bPick = 7;
  h.stPick.dwOnly = 0x01020304u;
  ASSERT_EQ(0, h.pack(out, sizeof(out), &used, 0));
  const unsigned char body[] = {0, 0, 0, 4, 'h', 'e', 'y', 0, 7, 1, 2, 3, 4};
  ASSERT_EQ(6u + sizeof(body), used);
  EXPECT_EQ(0, std::memcmp(out + 6, body, sizeof(body)));

  h.bPick = 8;  // no member and no default: nothing
  ASSERT_EQ(0, h.pack(out, sizeof(out), &used, 0));
  EXPECT_EQ(6u + 8u + 1u, used);
  ASSERT_EQ(0, back.unpack(out, used, &used, 0));
  EXPECT_EQ(15u, used);
  EXPECT_STREQ("hey", back.stBody.szText);
}

TEST(GoldenCodec, StringRules) {
  GdMessage m = sampleMessage();
  std::memset(m.szName, 'q', sizeof(m.szName));  // unterminated: cut to 7 characters
  const Bytes b = pack(m, 0);
  EXPECT_EQ(0, std::memcmp(&b[11], "\x00\x00\x00\x08qqqqqqq\x00", 12));
  EXPECT_EQ('\0', +m.szName[7]);  // the member itself is changed
  std::strcpy(m.szName, "");
  const Bytes e = pack(m, 0);
  EXPECT_EQ(0, std::memcmp(&e[11], "\x00\x00\x00\x01\x00", 5));
}

TEST(GoldenCodec, StringErrorsInOrder) {
  // GdHead at version 1: chVer, chKind = text, then the string.
  auto run = [](const Bytes& tail) {
    Bytes in = {1, GD_KIND_TEXT};
    in.insert(in.end(), tail.begin(), tail.end());
    GdHead h;
    EXPECT_EQ(0, h.construct());
    return h.unpack(reinterpret_cast<const char*>(in.data()), in.size(), nullptr, 0);
  };
  EXPECT_EQ(-2, run({0, 0, 0}));
  EXPECT_EQ(-2, run({0, 0, 0, 9, 'a'}));  // more than the data, checked before the capacity
  EXPECT_EQ(-3, run({0, 0, 0, 9, 'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 0}));
  EXPECT_EQ(-4, run({0, 0, 0, 0, 0}));
  EXPECT_EQ(-5, run({0, 0, 0, 3, 'a', 0, 0, 0}));      // an earlier NUL
  EXPECT_EQ(-5, run({0, 0, 0, 3, 'a', 'b', 'c', 0}));  // no final NUL
  EXPECT_EQ((Names{"stBody", "szText"}), kalmo_vix::vixtest_trace_entries());
  EXPECT_EQ(0, run({0, 0, 0, 3, 'a', 'b', 0, 0}));
}

TEST(GoldenCodec, ReferChecksInAllThreeOperations) {
  char out[256];
  char text[2048];
  GdMessage m = sampleMessage();
  m.nSigLen = -1;
  EXPECT_EQ(-6, m.pack(out, sizeof(out), nullptr, 0));
  EXPECT_EQ((Names{"nSigLen"}), kalmo_vix::vixtest_trace_entries());
  EXPECT_EQ(-6, m.visualize(text, sizeof(text), nullptr, 0, '\n'));
  m.nSigLen = 4;  // equal to the capacity: accepted
  EXPECT_EQ(0, m.pack(out, sizeof(out), nullptr, 0));
  m.nSigLen = 5;
  EXPECT_EQ(-7, m.pack(out, sizeof(out), nullptr, 0));
  EXPECT_EQ(-7, m.visualize(text, sizeof(text), nullptr, 0, '\n'));
  m = sampleMessage();
  m.bCount = 4;
  EXPECT_EQ(-7, m.pack(out, sizeof(out), nullptr, 0));
  EXPECT_EQ((Names{"bCount"}), kalmo_vix::vixtest_trace_entries());
  m = sampleMessage();
  m.bHasToken = 2;
  EXPECT_EQ(-7, m.pack(out, sizeof(out), nullptr, 0));
  EXPECT_EQ((Names{"bHasToken"}), kalmo_vix::vixtest_trace_entries());
  m = sampleMessage();
  m.stToken.wSize = 5;
  EXPECT_EQ(-7, m.pack(out, sizeof(out), nullptr, 0));
  EXPECT_EQ((Names{"stToken", "wSize"}), kalmo_vix::vixtest_trace_entries());

  // The same values arriving on the wire.
  Bytes b = kMessageV3;
  b[44] = 2;  // bHasToken
  GdMessage back;
  EXPECT_EQ(-7, back.unpack(reinterpret_cast<const char*>(b.data()), b.size(), nullptr, 0));
  b = kMessageV3;
  b[39] = 0x80;  // nSigLen negative
  EXPECT_EQ(-6, back.unpack(reinterpret_cast<const char*>(b.data()), b.size(), nullptr, 0));
  b = kMessageV3;
  b[22] = 4;  // bCount
  EXPECT_EQ(-7, back.unpack(reinterpret_cast<const char*>(b.data()), b.size(), nullptr, 0));
}

TEST(GoldenCodec, VersionChecks) {
  char out[64];
  std::memset(out, 0x5a, sizeof(out));
  GdLate late;
  ASSERT_EQ(0, late.construct());
  size_t used = 99;
  EXPECT_EQ(-9, late.pack(out, sizeof(out), &used, 2));
  EXPECT_EQ(0u, used);
  EXPECT_EQ(0x5a, out[0]);  // nothing written
  EXPECT_EQ(-9, late.unpack(out, sizeof(out), &used, 1));
  EXPECT_EQ(0, late.pack(out, sizeof(out), &used, 0));

  GdHead h;
  const char tooNew[] = {4, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(-20, h.unpack(tooNew, sizeof(tooNew), nullptr, 3));
  const char tooOld[] = {0, 0, 0};
  EXPECT_EQ(-20, h.unpack(tooOld, sizeof(tooOld), nullptr, 3));
  EXPECT_EQ((Names{"chVer"}), kalmo_vix::vixtest_trace_entries());
  EXPECT_EQ(-2, h.unpack(tooOld, 0, nullptr, 3));
  EXPECT_EQ((Names{"tVer"}), kalmo_vix::vixtest_trace_entries());

  GdMessage m;
  Bytes b = kMessageV3;
  b[3] = 4;
  EXPECT_EQ(-20, m.unpack(reinterpret_cast<const char*>(b.data()), b.size(), nullptr, 0));
}

TEST(GoldenCodec, NullAreasAndBackTraceReset) {
  GdMessage m = sampleMessage();
  size_t used = 7;
  EXPECT_EQ(-19, m.pack(nullptr, 10, &used, 0));
  EXPECT_EQ(-19, m.unpack(nullptr, 10, &used, 0));
  char out[8];
  EXPECT_EQ(-1, m.pack(out, sizeof(out), &used, 0));
  EXPECT_FALSE(kalmo_vix::vixtest_trace_entries().empty());
  char big[256];
  EXPECT_EQ(0, m.pack(big, sizeof(big), &used, 0));
  EXPECT_STREQ("", VixError::getBackTrace());
  EXPECT_STREQ("", m.visualize_ex(nullptr, 10, &used, 0, '\n'));
  EXPECT_STREQ("", m.visualize_ex(big, 0, &used, 0, '\n'));
}

TEST(GoldenCodec, ShortOutputAtEveryLengthWithSentinel) {
  const GdMessage m = sampleMessage();
  for (size_t n = 0; n < kMessageV3.size(); ++n) {
    std::vector<char> out(n + 16, static_cast<char>(0xa5));
    size_t used = 999;
    ASSERT_EQ(-1, m.pack(out.data(), n, &used, 0)) << n;
    ASSERT_LE(used, n);
    for (size_t i = n; i < out.size(); ++i)
      ASSERT_EQ(static_cast<char>(0xa5), out[i]) << "length " << n;
    ASSERT_FALSE(kalmo_vix::vixtest_trace_entries().empty());
  }
  // One byte short: the last field does not fit.
  std::vector<char> out(kMessageV3.size() - 1);
  EXPECT_EQ(-1, m.pack(out.data(), out.size(), nullptr, 0));
  EXPECT_EQ((Names{"ullBig"}), kalmo_vix::vixtest_trace_entries());
  // Inside the optional token's block: the outer entry leads.
  std::vector<char> cut(47);
  EXPECT_EQ(-1, m.pack(cut.data(), cut.size(), nullptr, 0));
  EXPECT_EQ((Names{"stToken", "szData"}), kalmo_vix::vixtest_trace_entries());
  std::vector<char> exact(kMessageV3.size() + 8, static_cast<char>(0xa5));
  size_t used = 0;
  ASSERT_EQ(0, m.pack(exact.data(), kMessageV3.size(), &used, 0));
  EXPECT_EQ(kMessageV3.size(), used);
}

TEST(GoldenCodec, ShortInputAtEveryLength) {
  for (size_t n = 0; n < kMessageV3.size(); ++n) {
    GdMessage back;
    ASSERT_EQ(-2, back.unpack(reinterpret_cast<const char*>(kMessageV3.data()), n, nullptr, 0))
        << n;
    EXPECT_EQ((Names{"nBuf"}),
              kalmo_vix::vixtest_trace_entries());  // the stated length is checked first
  }
  // Without a size indicator the failing field is named, inside its enclosing entries.
  GdHead h;
  ASSERT_EQ(0, h.construct());
  h.chKind = GD_KIND_POINT;
  char out[32];
  size_t used = 0;
  ASSERT_EQ(0, h.pack(out, sizeof(out), &used, 0));
  for (size_t n = 0; n < used; ++n) {
    GdHead back;
    ASSERT_EQ(-2, back.unpack(out, n, nullptr, 0)) << n;
  }
  GdHead back;
  EXPECT_EQ(-2, back.unpack(out, 8, nullptr, 0));
  EXPECT_EQ((Names{"stBody", "stPoint", "nY"}), kalmo_vix::vixtest_trace_entries());
}

TEST(GoldenCodec, UncheckedBlockOverALargerArea) {
  // The frame is laid over a larger area; its one-byte body continues past the record.
  std::vector<unsigned char> area(sizeof(GdFrame) + 8, 0);
  GdFrame* f = reinterpret_cast<GdFrame*>(area.data());
  ASSERT_EQ(0, f->construct());
  f->stMsg = sampleMessage();
  f->bLen = 4;
  std::memcpy(f->szBody, "\x01\x02\x03\x04", 4);
  char out[256];
  size_t used = 0;
  ASSERT_EQ(0, f->pack(out, sizeof(out), &used, 0));
  ASSERT_EQ(kMessageV3.size() + 1 + 4, used);
  EXPECT_EQ(0, std::memcmp(out + kMessageV3.size(), "\x04\x01\x02\x03\x04", 5));
  EXPECT_EQ(-1, f->pack(out, used - 1, nullptr, 0));
  EXPECT_EQ((Names{"szBody"}), kalmo_vix::vixtest_trace_entries());
  GdFrame back;
  EXPECT_EQ(-7, back.unpack(out, used, nullptr, 0));  // decoding never writes past the record
}

TEST(GoldenVisualize, NestedRecordsArraysAndBlocks) {
  GdMessage m = sampleMessage();
  m.stBase.wVersion = 3;
  m.ulIp = 0;
  char text[2048];
  size_t used = 0;
  ASSERT_EQ(0, m.visualize(text, sizeof(text), &used, 0, '\n'));
  const std::string expected =
      "[stBase]\n"
      "    [wMagic]: 18244\n"
      "    [wVersion]: 3\n"
      "    [wKind]: 1\n"
      "    [dwLen]: 0\n"
      "[chFlag]: 0xfe\n"
      "[szName]: ab\n"
      "[stBody]\n"
      "    [stPoint]\n"
      "        [nX]: 1\n"
      "        [nY]: -1\n"
      "[bCount]: 0x02\n"
      "[astPoints][0 : 1]:\n"
      "[astPoints][0]\n"
      "    [nX]: 2\n"
      "    [nY]: 3\n"
      "[astPoints][1]\n"
      "    [nX]: 4\n"
      "    [nY]: 5\n"
      "[adwFixed][0 : 1]: 16909060 2695938256\n"
      "[nSigLen]: 3\n"
      "[szSig][0 : 2]: 0xde 0xad 0xbe\n"
      "[bHasToken]: 0x01\n"
      "[stToken]\n"
      "    [wSize]: 2\n"
      "    [szData][0 : 1]: 0x11 0x22\n"
      "    [dwExpire]: 7\n"
      "[ulIp]: 0.0.0.0\n"
      "[dwDate]: 2024-02-29\n"
      "[dwTime]: 13:05:09\n"
      "[ullWhen]: 2024-02-29 13:05:09\n"
      "[iSigned]: -2\n"
      "[llSigned]: -3\n"
      "[ullBig]: 72623859790382856\n";
  EXPECT_EQ(expected, std::string(text));
  EXPECT_EQ(expected.size(), used);

  // A negative indent renders the tree flat; a blank separator makes it one line.
  GdToken t = m.stToken;
  EXPECT_STREQ("[wSize]: 2 [szData][0 : 1]: 0x11 0x22 [dwExpire]: 7 ",
               t.visualize_ex(text, sizeof(text), &used, -1, ' '));
  GdHead h;
  ASSERT_EQ(0, h.construct());
  h.chKind = GD_KIND_POINT;
  EXPECT_STREQ(
      "[chVer]: 0x00 [chKind]: 0x01 [dwSeq]: 0 [stBody] [stPoint] [nX]: 0 [nY]: 0 [bPick]: 0x00 "
      "[stPick] ",
      h.visualize_ex(text, sizeof(text), nullptr, -1, ' '));
}

TEST(GoldenVisualize, TruncatedTextIsTerminated) {
  GdToken t;
  ASSERT_EQ(0, t.construct());
  char text[12];
  size_t used = 0;
  EXPECT_EQ(-1, t.visualize(text, sizeof(text), &used, 0, '\n'));
  const char* s = t.visualize_ex(text, sizeof(text), &used, 0, '\n');
  EXPECT_EQ(text, s);
  EXPECT_EQ(std::string("[wSize]: 0\n"), s);
  char tiny[4];
  EXPECT_STREQ("", t.visualize_ex(tiny, 1, &used, 0, '\n'));
  kalmo_vix::VixWriteBuf cursor(tiny, sizeof(tiny));
  EXPECT_EQ(tiny, t.visualize_ex(cursor, 0, '\n'));  // not even the first label fits
  EXPECT_STREQ("", tiny);
}
