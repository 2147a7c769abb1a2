// Wire vectors of the client connection protocol, worked out byte by byte from the record
// layouts: heads with their version and length back-patched, key exchange, data frames with
// their raw body, and bodies cut to older versions.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "nhp.h"
#include "wire_vectors.h"

using kalmo_vix::VixError;
using namespace nhp;

namespace {

using namespace wire;

// Result and consumed size of unpacking the first `size` bytes of wire.
template <class T>
int UnpackRc(const Bytes& wire, size_t size, unsigned cutVer, size_t* used = nullptr) {
  std::vector<char> area(wire.begin(), wire.end());
  area.push_back(kSentinel);  // never null, even for no data
  std::unique_ptr<T> rec = Garbage<T>();
  size_t dummy = 0;
  return rec->unpack(area.data(), size, used != nullptr ? used : &dummy, cutVer);
}

// ---------------------------------------------------------------------------------------------
// SYN: encrypted Diffie-Hellman request, relay information, routing and a trace id.

std::unique_ptr<TNHPHead> SynHead() {
  std::unique_ptr<TNHPHead> h = Fresh<TNHPHead>();
  h->stBase.wMagic = 0x3366;
  h->stBase.wHeadVersion = 0x7777;  // pack states the cut version itself
  h->stBase.wBodyVersion = 9;
  h->stBase.wCommand = TNHP_CMD_SYN;
  h->stBase.bEncrypted = 0;
  h->stBase.dwSequence = 100;
  h->stBase.dwHeadLen = 0x12345678;  // pack states the length itself
  h->stBase.dwBodyLen = 0;
  TNHPSynHead& s = h->stExtend.stSyn;
  s.bKeyMethod = TNHP_KEY_METHOD_ENC_DH;
  s.stKeyInfo.stReqByEncDH.bEncMethod = 1;
  s.stKeyInfo.stReqByEncDH.wEncInfoLen = 3;
  s.stKeyInfo.stReqByEncDH.szEncryptedInfo[0] = 0xE1;
  s.stKeyInfo.stReqByEncDH.szEncryptedInfo[1] = 0xE2;
  s.stKeyInfo.stReqByEncDH.szEncryptedInfo[2] = 0xE3;
  s.bEncMethod = 2;
  s.dwServiceID = 1001;
  s.iClientType = -2;
  s.stAccount.wType = 1;
  s.stAccount.bFormat = KALMO_ID_UINT64;
  s.stAccount.stValue.ullUINT64 = 0x0000000100000002ULL;
  s.dwTransMask = 0x0F;
  s.dwReserved2 = 0xBEEF;
  s.bHasRelayInfo = 1;
  s.stRelayReqInfo.iRelayType = 1;
  s.stRelayReqInfo.stRelayInfo.dwPosition = 9;
  for (int i = 0; i < 16; ++i)
    s.stRelayReqInfo.stRelayInfo.szIdentity[i] = static_cast<unsigned char>(0x40 + i);
  s.stRelayReqInfo.stRelayInfo.ullServerID = 0x100;
  s.bHasAuthInfo = 0;
  s.bSupportCompressMethodList = 3;
  s.bRouteFlag = TNHP_ROUTE_TYPE_SPECIFY_ZONE;
  s.stRouteInfo.stSpecifyZone.dwTypeID = 5;
  s.stRouteInfo.stSpecifyZone.dwZoneID = 6;
  s.dwReserved = 7;
  s.wCTraceIDLen = 4;
  std::memcpy(s.szCTraceID, "trc1", 4);
  return h;
}

// SYN fields from the key method to dwServiceID's neighbours, common to every version.
const Bytes kSynKeyAndAccount = {
    0x04,                                            // bKeyMethod: ENC_DH
    0x01,                                            // stKeyInfo.stReqByEncDH.bEncMethod
    0x00, 0x03,                                      // wEncInfoLen
    0xE1, 0xE2, 0xE3,                                // szEncryptedInfo
    0x02,                                            // bEncMethod
    0x00, 0x00, 0x03, 0xE9,                          // dwServiceID 1001
    0xFF, 0xFF, 0xFF, 0xFE,                          // iClientType -2
    0x00, 0x01,                                      // stAccount.wType
    0x02,                                            // stAccount.bFormat: UINT64
    0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x02,  // stAccount.stValue.ullUINT64
};

const Bytes kSynRelay = {
    0x01,                                            // bHasRelayInfo
    0x00, 0x00, 0x00, 0x01,                          // stRelayReqInfo.iRelayType
    0x00, 0x00, 0x00, 0x09,                          // stRelayInfo.dwPosition
    0x40, 0x41, 0x42, 0x43, 0x44, 0x45, 0x46, 0x47,  // stRelayInfo.szIdentity, 16 bytes always
    0x48, 0x49, 0x4A, 0x4B, 0x4C, 0x4D, 0x4E, 0x4F,
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00,  // stRelayInfo.ullServerID
    0x00,                                            // bHasAuthInfo: no auth record
};

const Bytes kSynTrace = {
    0x00, 0x00, 0x00, 0x07,  // dwReserved
    0x00, 0x04,              // wCTraceIDLen
    't',  'r',  'c',  '1',   // szCTraceID
};

const Bytes kSynV11 = Cat({
    {
        0x33, 0x66,              // wMagic
        0x00, 0x0B,              // wHeadVersion: 11
        0x00, 0x09,              // wBodyVersion
        0x10, 0x01,              // wCommand: SYN
        0x00,                    // bEncrypted
        0x00, 0x00, 0x00, 0x64,  // dwSequence 100
        0x00, 0x00, 0x00, 0x6E,  // dwHeadLen: 110
        0x00, 0x00, 0x00, 0x00,  // dwBodyLen
    },
    kSynKeyAndAccount,
    {
        0x00, 0x00, 0x00, 0x0F,  // dwTransMask (since 4)
        0x00, 0x00, 0xBE, 0xEF,  // dwReserved2
    },
    kSynRelay,
    {
        0x03,                    // bSupportCompressMethodList (since 5)
        0x01,                    // bRouteFlag: SPECIFY_ZONE (since 9)
        0x00, 0x00, 0x00, 0x05,  // stRouteInfo.stSpecifyZone.dwTypeID
        0x00, 0x00, 0x00, 0x06,  // stRouteInfo.stSpecifyZone.dwZoneID
    },
    kSynTrace,
});

const Bytes kSynV3 = Cat({
    {
        0x33, 0x66,              // wMagic
        0x00, 0x03,              // wHeadVersion: 3
        0x00, 0x09,              // wBodyVersion
        0x10, 0x01,              // wCommand: SYN
        0x00,                    // bEncrypted
        0x00, 0x00, 0x00, 0x64,  // dwSequence
        0x00, 0x00, 0x00, 0x60,  // dwHeadLen: 96
        0x00, 0x00, 0x00, 0x00,  // dwBodyLen
    },
    kSynKeyAndAccount,
    {
        // no dwTransMask (4)
        0x00, 0x00, 0xBE, 0xEF,  // dwReserved2
    },
    kSynRelay,
    // no compress list (5), route flag or route (9)
    kSynTrace,
});

TEST(TNHPHeadWire, SynWithSizeAndVersionBackPatched) {
  ASSERT_EQ(kSynV11.size(), 0x6Eu);
  std::unique_ptr<TNHPHead> h = SynHead();
  EXPECT_EQ(Pack(*h, 0), kSynV11);
  EXPECT_EQ(Pack(*h, 12), kSynV11);

  std::unique_ptr<TNHPHead> u = Unpack<TNHPHead>(kSynV11, 0);
  EXPECT_EQ(+u->stBase.wMagic, 0x3366);
  EXPECT_EQ(+u->stBase.wHeadVersion, 11);
  EXPECT_EQ(+u->stBase.dwHeadLen, 110u);
  EXPECT_EQ(+u->stBase.dwSequence, 100u);
  const TNHPSynHead& s = u->stExtend.stSyn;
  EXPECT_EQ(+s.stKeyInfo.stReqByEncDH.wEncInfoLen, 3);
  EXPECT_EQ(+s.stKeyInfo.stReqByEncDH.szEncryptedInfo[2], 0xE3);
  EXPECT_EQ(+s.iClientType, -2);
  EXPECT_EQ(+s.stAccount.stValue.ullUINT64, 0x0000000100000002ULL);
  EXPECT_EQ(+s.dwTransMask, 0x0Fu);
  EXPECT_EQ(+s.stRelayReqInfo.stRelayInfo.szIdentity[15], 0x4F);
  EXPECT_EQ(+s.stRelayReqInfo.stRelayInfo.ullServerID, 0x100u);
  EXPECT_EQ(+s.bSupportCompressMethodList, 3);
  EXPECT_EQ(+s.stRouteInfo.stSpecifyZone.dwZoneID, 6u);
  EXPECT_EQ(+s.wCTraceIDLen, 4);
  EXPECT_EQ(std::memcmp(s.szCTraceID, "trc1", 4), 0);
}

TEST(TNHPHeadWire, SynCutToVersion3) {
  ASSERT_EQ(kSynV3.size(), 0x60u);
  std::unique_ptr<TNHPHead> h = SynHead();
  EXPECT_EQ(Pack(*h, 3), kSynV3);

  // The version comes from the head, whatever the caller asks for.
  std::unique_ptr<TNHPHead> u = Unpack<TNHPHead>(kSynV3, 11);
  const TNHPSynHead& s = u->stExtend.stSyn;
  EXPECT_EQ(+u->stBase.wHeadVersion, 3);
  EXPECT_EQ(+s.dwTransMask, 0u);
  EXPECT_EQ(+s.dwReserved2, 0xBEEFu);
  EXPECT_EQ(+s.bSupportCompressMethodList, 0);
  EXPECT_EQ(+s.bRouteFlag, 0);
  EXPECT_EQ(+s.stRouteInfo.stSpecifyZone.dwTypeID, 0u);
  EXPECT_EQ(+s.dwReserved, 7u);
}

TEST(TNHPHeadVersion, SynHeadSizeAtEachVersionStep) {
  std::unique_ptr<TNHPHead> h = SynHead();
  h->stExtend.stSyn.bHasAuthInfo = 1;  // an empty auth request: 2 + 2 + 2 bytes from version 2
  // 1: 21 + 75 with the auth flag only; 2: the auth record; 4: dwTransMask; 5: compress list;
  // 9: route flag and zone route.
  const size_t sizes[] = {0, 96, 102, 102, 106, 107, 107, 107, 107, 116, 116, 116};
  for (unsigned v = 1; v <= 11; ++v) {
    const Bytes wire = Pack(*h, v);
    ASSERT_EQ(wire.size(), sizes[v]) << v;
    EXPECT_EQ(wire[3], v);                                      // wHeadVersion
    EXPECT_EQ(wire[16], static_cast<unsigned char>(sizes[v]));  // dwHeadLen, low byte
    std::unique_ptr<TNHPHead> u = Unpack<TNHPHead>(wire, 0);
    EXPECT_EQ(+u->stBase.wHeadVersion, v);
  }
}

TEST(TNHPUnions, EveryCommandMemberAtEveryVersion) {
  std::unique_ptr<TNHPExtHead> ext(new TNHPExtHead);
  std::unique_ptr<TNHPBody> body(new TNHPBody);
  std::vector<char> area(TNHPBody::MAX_PACK_SIZE + TNHPExtHead::MAX_PACK_SIZE);
  size_t used = 0;
  const long extIds[] = {4097, 4098, 16403, 16419, 36865};
  const long bodyIds[] = {4098, 8193, 8194, 12290, 20481, 20482, 24578, 28673, 28674, 32770};
  const long allIds[] = {4097,  4098,  8193,  8194,  12290, 16403, 16419,
                         20481, 20482, 24578, 28673, 28674, 32770, 36865};
  for (long id : allIds) {
    const bool inExt = std::find(std::begin(extIds), std::end(extIds), id) != std::end(extIds);
    const bool inBody = std::find(std::begin(bodyIds), std::end(bodyIds), id) != std::end(bodyIds);
    for (unsigned v : {1u, 11u}) {
      std::memset(static_cast<void*>(ext.get()), 0, sizeof(TNHPExtHead));
      std::memset(static_cast<void*>(body.get()), 0, sizeof(TNHPBody));
      ASSERT_EQ(ext->pack(id, area.data(), area.size(), &used, v), 0) << id;
      EXPECT_EQ(used > 0, inExt) << id << " at " << v;
      ASSERT_EQ(body->pack(id, area.data(), area.size(), &used, v), 0) << id;
      EXPECT_EQ(used > 0, inBody) << id << " at " << v;
    }
  }
}

TEST(TNHPHeadSize, StatedLengthMustBeAvailable) {
  size_t used = 0;
  EXPECT_EQ(UnpackRc<TNHPHead>(kSynV11, kSynV11.size(), 0, &used), 0);
  EXPECT_EQ(used, kSynV11.size());
  EXPECT_EQ(UnpackRc<TNHPHead>(kSynV11, kSynV11.size() - 1, 0),
            VixError::VIX_ERR_SHORT_BUF_FOR_READ);
  EXPECT_EQ(UnpackRc<TNHPHead>(kSynV11, 17, 0), VixError::VIX_ERR_SHORT_BUF_FOR_READ);
  EXPECT_EQ(UnpackRc<TNHPHead>(kSynV11, 16, 0), VixError::VIX_ERR_SHORT_BUF_FOR_READ);
  EXPECT_EQ(UnpackRc<TNHPHead>(kSynV11, 0, 0), VixError::VIX_ERR_SHORT_BUF_FOR_READ);

  // A stated length beyond the data is refused even though the head itself would fit.
  Bytes longer = kSynV11;
  longer[16] = 0x6F;  // dwHeadLen 111
  EXPECT_EQ(UnpackRc<TNHPHead>(longer, longer.size(), 0), VixError::VIX_ERR_SHORT_BUF_FOR_READ);
  // With a body behind the head it is only a bound: the cursor stops where the head ends.
  longer.insert(longer.end(), {0xB0, 0xB1});
  EXPECT_EQ(UnpackRc<TNHPHead>(longer, longer.size(), 0, &used), 0);
  EXPECT_EQ(used, kSynV11.size());

  Bytes shorter = kSynV11;
  shorter[16] = 0x15;  // dwHeadLen 21: too small, but not checked against the decoded head
  EXPECT_EQ(UnpackRc<TNHPHead>(shorter, shorter.size(), 0, &used), 0);
  EXPECT_EQ(used, kSynV11.size());
}

TEST(TNHPHeadVersion, OutOfRangeHeadVersionIsRefused) {
  for (unsigned v : {0x0000u, 0x000Cu, 0x0100u, 0xFFFFu}) {
    Bytes wire = kSynV11;
    wire[2] = static_cast<unsigned char>(v >> 8);
    wire[3] = static_cast<unsigned char>(v);
    EXPECT_EQ(UnpackRc<TNHPHead>(wire, wire.size(), 0), VixError::VIX_ERR_NET_CUTVER_INVALID) << v;
  }
  Bytes one = kSynV3;
  one[3] = 0x01;  // a version-3 head relabelled as 1 decodes as 1 (no auth record either way)
  size_t used = 0;
  EXPECT_EQ(UnpackRc<TNHPHead>(one, one.size(), 0, &used), 0);
  EXPECT_EQ(used, one.size());
}

// ---------------------------------------------------------------------------------------------
// Key exchange: the server-key method sends nothing in a request and the key in a response.

TEST(TNHPKeyExchange, ServerKeyOnlyInTheResponse) {
  std::unique_ptr<TNHPHead> syn = SynHead();
  for (uint8_t method : {0, 1, 2}) {
    syn->stExtend.stSyn.bKeyMethod = method;
    const Bytes wire = Pack(*syn, 0);
    ASSERT_EQ(wire.size(), kSynV11.size() - 6u) << int(method);
    EXPECT_EQ(wire[21], method);  // bKeyMethod
    EXPECT_EQ(wire[22], 0x02);    // bEncMethod follows at once
  }

  std::unique_ptr<TNHPHead> ack = Fresh<TNHPHead>();
  ack->stBase.wMagic = 0x3366;
  ack->stBase.wBodyVersion = 1;
  ack->stBase.wCommand = TNHP_CMD_ACK;
  ack->stBase.dwSequence = 2;
  TNHPAckHead& a = ack->stExtend.stAck;
  a.bKeyMethod = TNHP_KEY_METHOD_SERVER;
  a.stKeyInfo.stKey.bLength = 3;
  std::memcpy(a.stKeyInfo.stKey.szValue, "key", 3);
  a.bCompressMethod = 1;
  a.dwCompressLimit = 1024;
  const Bytes kAck = {
      0x33, 0x66,              // wMagic
      0x00, 0x0B,              // wHeadVersion: 11
      0x00, 0x01,              // wBodyVersion
      0x10, 0x02,              // wCommand: ACK
      0x00,                    // bEncrypted
      0x00, 0x00, 0x00, 0x02,  // dwSequence
      0x00, 0x00, 0x00, 0x23,  // dwHeadLen: 35
      0x00, 0x00, 0x00, 0x00,  // dwBodyLen
      0x02,                    // stAck.bKeyMethod: SERVER
      0x03,                    // stKeyInfo.stKey.bLength
      'k',  'e',  'y',         // stKeyInfo.stKey.szValue
      0x01,                    // bCompressMethod
      0x00, 0x00, 0x04, 0x00,  // dwCompressLimit 1024
      0x00, 0x00, 0x00, 0x00,  // dwReserved
  };
  EXPECT_EQ(Pack(*ack, 0), kAck);
  std::unique_ptr<TNHPHead> u = Unpack<TNHPHead>(kAck, 0);
  EXPECT_EQ(+u->stExtend.stAck.stKeyInfo.stKey.bLength, 3);
  EXPECT_EQ(std::memcmp(u->stExtend.stAck.stKeyInfo.stKey.szValue, "key", 3), 0);
  EXPECT_EQ(+u->stExtend.stAck.dwCompressLimit, 1024u);
}

TEST(TNHPKeyExchange, RawDhModulusTravelsWhole) {
  std::unique_ptr<KALMORawDHReq> dh = Fresh<KALMORawDHReq>();
  dh->wA_size = 2;
  dh->szDH_A[0] = 0xA1;
  dh->szDH_A[1] = 0xA2;
  dh->szDH_A[2] = 0xA3;  // beyond wA_size: not sent
  for (int i = 0; i < 64; ++i) dh->szDH_p[i] = static_cast<unsigned char>(0xC0 + (i & 0x0F));
  const Bytes expect = Cat({
      {0x00, 0x02,   // wA_size
       0xA1, 0xA2},  // szDH_A: wA_size bytes
      // szDH_p: all 64 bytes
      {0xC0, 0xC1, 0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7, 0xC8, 0xC9, 0xCA, 0xCB, 0xCC, 0xCD, 0xCE,
       0xCF},
      {0xC0, 0xC1, 0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7, 0xC8, 0xC9, 0xCA, 0xCB, 0xCC, 0xCD, 0xCE,
       0xCF},
      {0xC0, 0xC1, 0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7, 0xC8, 0xC9, 0xCA, 0xCB, 0xCC, 0xCD, 0xCE,
       0xCF},
      {0xC0, 0xC1, 0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7, 0xC8, 0xC9, 0xCA, 0xCB, 0xCC, 0xCD, 0xCE,
       0xCF},
  });
  EXPECT_EQ(Pack(*dh, 0), expect);
  std::unique_ptr<KALMORawDHReq> u = Unpack<KALMORawDHReq>(expect, 0);
  EXPECT_EQ(+u->szDH_A[1], 0xA2);
  EXPECT_EQ(+u->szDH_p[63], 0xCF);
}

// ---------------------------------------------------------------------------------------------
// DATA: head extension with routing and splitters, then the raw body.

// A frame laid over a larger area, its body starting at szBody.
struct FrameArea {
  std::vector<char> storage = std::vector<char>(sizeof(TNHPFrame) + 64, 0);
  TNHPFrame* frame() { return reinterpret_cast<TNHPFrame*>(storage.data()); }
  char* body() { return storage.data() + offsetof(TNHPFrame, szBody); }
};

void FillDataFrame(FrameArea& fa) {
  TNHPFrame* f = fa.frame();
  ASSERT_EQ(f->construct(), 0);
  TNHPBase& b = f->stHead.stBase;
  b.wMagic = 0x3366;
  b.wBodyVersion = 11;
  b.wCommand = TNHP_CMD_DATA;
  b.dwSequence = 2;
  b.dwBodyLen = 5;
  TNHPDataHead& d = f->stHead.stExtend.stData;
  d.bCompressFlag = 0;
  d.bAllowLost = 1;
  d.bRouteFlag = TNHP_ROUTE_TYPE_SPECIFY_SERVER;
  d.stRouteInfo.stSpecifyServer.ullServerID = 99;
  d.bMsgSplitterCount = 2;
  d.msgSplitter[0] = 2;
  d.msgSplitter[1] = 3;
  std::memcpy(fa.body(), "hello", 5);
}

const Bytes kDataFrame = {
    0x33, 0x66,                                      // wMagic
    0x00, 0x0B,                                      // wHeadVersion: 11
    0x00, 0x0B,                                      // wBodyVersion
    0x40, 0x13,                                      // wCommand: DATA
    0x00,                                            // bEncrypted
    0x00, 0x00, 0x00, 0x02,                          // dwSequence
    0x00, 0x00, 0x00, 0x25,                          // dwHeadLen: 37
    0x00, 0x00, 0x00, 0x05,                          // dwBodyLen
    0x00,                                            // stData.bCompressFlag
    0x01,                                            // bAllowLost (since 9)
    0x02,                                            // bRouteFlag: SPECIFY_SERVER
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x63,  // stRouteInfo.stSpecifyServer.ullServerID
    0x02,                                            // bMsgSplitterCount
    0x00, 0x02,                                      // msgSplitter[0]
    0x00, 0x03,                                      // msgSplitter[1]
    'h',  'e',  'l',  'l',  'o',                     // szBody: dwBodyLen raw bytes
};

TEST(TNHPFrameWire, DataFrameCarriesRawBody) {
  FrameArea fa;
  FillDataFrame(fa);
  EXPECT_EQ(Pack(*fa.frame(), 0), kDataFrame);

  // Without a body only the head is written.
  fa.frame()->stHead.stBase.dwBodyLen = 0;
  Bytes headOnly(kDataFrame.begin(), kDataFrame.end() - 5);
  headOnly[20] = 0x00;  // dwBodyLen 0
  EXPECT_EQ(Pack(*fa.frame(), 0), headOnly);
  std::unique_ptr<TNHPFrame> u = Unpack<TNHPFrame>(headOnly, 0);
  EXPECT_EQ(+u->stHead.stBase.wCommand, TNHP_CMD_DATA);
  EXPECT_EQ(+u->stHead.stExtend.stData.stRouteInfo.stSpecifyServer.ullServerID, 99u);
  EXPECT_EQ(+u->stHead.stExtend.stData.msgSplitter[1], 3);
}

TEST(TNHPFrameWire, FrameVersionAndBodyRoom) {
  FrameArea fa;
  FillDataFrame(fa);
  EXPECT_TRUE(Pack(*fa.frame(), 1, VixError::VIX_ERR_CUTVER_TOO_SMALL).empty());

  std::vector<char> area(kDataFrame.size() - 1, kSentinel);
  size_t used = 0;
  EXPECT_EQ(fa.frame()->pack(area.data(), area.size(), &used, 0),
            VixError::VIX_ERR_SHORT_BUF_FOR_WRITE);
  EXPECT_NE(std::string(VixError::back_trace_str + VixError::start_pos).find("[szBody]"),
            std::string::npos);
}

TEST(TNHPDataHeadWire, RoutingStartsAtVersion9) {
  FrameArea fa;
  FillDataFrame(fa);
  const TNHPDataHead& d = fa.frame()->stHead.stExtend.stData;
  const Bytes v8 = {
      0x00,        // bCompressFlag
                   // no bAllowLost (9)
      0x02,        // bRouteFlag
                   // no route (the route records start at 9)
      0x02,        // bMsgSplitterCount
      0x00, 0x02,  // msgSplitter[0]
      0x00, 0x03,  // msgSplitter[1]
  };
  EXPECT_EQ(Pack(d, 8), v8);
  std::unique_ptr<TNHPDataHead> u = Unpack<TNHPDataHead>(v8, 8);
  EXPECT_EQ(+u->bAllowLost, 0);
  EXPECT_EQ(+u->bRouteFlag, 2);
  EXPECT_EQ(+u->stRouteInfo.stSpecifyServer.ullServerID, 0u);
  EXPECT_EQ(+u->msgSplitter[0], 2);
  EXPECT_EQ(Pack(d, 9).size(), v8.size() + 1u + 8u);
}

// ---------------------------------------------------------------------------------------------
// Bodies.

TEST(TNHPInFrameWire, BingoBodyFollowsTheHead) {
  std::unique_ptr<TNHPInFrame> f = Fresh<TNHPInFrame>();
  f->stHead.stBase.wMagic = 0x3366;
  f->stHead.stBase.wBodyVersion = 12;
  f->stHead.stBase.wCommand = TNHP_CMD_BINGO;
  f->stHead.stBase.dwSequence = 3;
  f->stHead.stBase.dwBodyLen = 49;
  TNHPBingoBody& b = f->stBody.stBingo;
  b.stRelayInfo.dwPosition = 1;
  for (int i = 0; i < 16; ++i) b.stRelayInfo.szIdentity[i] = static_cast<unsigned char>(0x50 + i);
  b.stRelayInfo.ullServerID = 42;
  b.bCompressMethod = 1;
  b.dwCompressLimit = 512;
  b.dwTransMask = 3;
  const Bytes v12 = {
      0x33, 0x66,                                      // wMagic
      0x00, 0x0B,                                      // wHeadVersion: the head stops at 11
      0x00, 0x0C,                                      // wBodyVersion
      0x60, 0x02,                                      // wCommand: BINGO
      0x00,                                            // bEncrypted
      0x00, 0x00, 0x00, 0x03,                          // dwSequence
      0x00, 0x00, 0x00, 0x15,                          // dwHeadLen: 21, no head extension
      0x00, 0x00, 0x00, 0x31,                          // dwBodyLen 49, as the caller set it
      0x00, 0x00, 0x00, 0x01,                          // stBingo.stRelayInfo.dwPosition (since 8)
      0x50, 0x51, 0x52, 0x53, 0x54, 0x55, 0x56, 0x57,  // stRelayInfo.szIdentity
      0x58, 0x59, 0x5A, 0x5B, 0x5C, 0x5D, 0x5E, 0x5F,
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x2A,  // stRelayInfo.ullServerID
      0x01,                                            // bCompressMethod
      0x00, 0x00, 0x02, 0x00,                          // dwCompressLimit 512
      0x00, 0x00, 0x00, 0x03,                          // dwTransMask
      0x00, 0x00, 0x00, 0x00,                          // dwReserve1
      0x00, 0x00, 0x00, 0x00,                          // dwReserve2
      0x00, 0x00, 0x00, 0x00,                          // dwReserve3
  };
  const Bytes v7 = {
      0x33, 0x66,              // wMagic
      0x00, 0x07,              // wHeadVersion: 7
      0x00, 0x0C,              // wBodyVersion
      0x60, 0x02,              // wCommand: BINGO
      0x00,                    // bEncrypted
      0x00, 0x00, 0x00, 0x03,  // dwSequence
      0x00, 0x00, 0x00, 0x15,  // dwHeadLen: 21
      0x00, 0x00, 0x00, 0x31,  // dwBodyLen
      // no relay information before 8
      0x01,                    // bCompressMethod
      0x00, 0x00, 0x02, 0x00,  // dwCompressLimit
      0x00, 0x00, 0x00, 0x03,  // dwTransMask
      0x00, 0x00, 0x00, 0x00,  // dwReserve1
      0x00, 0x00, 0x00, 0x00,  // dwReserve2
      0x00, 0x00, 0x00, 0x00,  // dwReserve3
  };
  EXPECT_EQ(Pack(*f, 0), v12);
  EXPECT_EQ(Pack(*f, 7), v7);

  std::unique_ptr<TNHPInFrame> u = Unpack<TNHPInFrame>(v12, 0);
  EXPECT_EQ(+u->stBody.stBingo.stRelayInfo.ullServerID, 42u);
  EXPECT_EQ(+u->stBody.stBingo.dwCompressLimit, 512u);
  std::unique_ptr<TNHPInFrame> old = Unpack<TNHPInFrame>(v7, 7);
  EXPECT_EQ(+old->stHead.stBase.wHeadVersion, 7);
  EXPECT_EQ(+old->stBody.stBingo.stRelayInfo.dwPosition, 0u);
  EXPECT_EQ(+old->stBody.stBingo.stRelayInfo.ullServerID, 0u);
  EXPECT_EQ(+old->stBody.stBingo.dwTransMask, 3u);
}

TEST(TNHPAckBodyWire, AuthResultAndTraceIdByVersion) {
  std::unique_ptr<TNHPAckBody> a = Fresh<TNHPAckBody>();
  a->bHasAuthInfo = 1;
  TNHPAuthRspBody& r = a->stAuthResInfo;
  r.stAccount.wType = 1;
  r.stAccount.bFormat = KALMO_ID_UINT32;
  r.stAccount.stValue.dwUINT32 = 7;
  r.stAccount.ullUid = 0x99;
  r.wAuthType = 2;
  r.wAtkLen = 1;
  r.szAtk[0] = 'T';
  r.dwAtkExpireIn = 3600;
  a->wSTraceIDLen = 2;
  a->szSTraceID[0] = 'o';
  a->szSTraceID[1] = 'k';
  const Bytes v11 = {
      0x01,                                            // bHasAuthInfo
      0x00, 0x01,                                      // stAuthResInfo.stAccount.wType
      0x01,                                            // stAccount.bFormat: UINT32
      0x00, 0x00, 0x00, 0x07,                          // stAccount.stValue.dwUINT32
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x99,  // stAccount.ullUid (since 4)
      0x00, 0x02,                                      // wAuthType
      0x00, 0x01,                                      // wAtkLen
      'T',                                             // szAtk
      0x00, 0x00, 0x0E, 0x10,                          // dwAtkExpireIn 3600
      0x00, 0x00,                                      // wRtkLen
      0x00, 0x00, 0x00, 0x00,                          // dwRtkExpireIn
      0x00, 0x00,                                      // wAuthExDataVersion
      0x00, 0x00,                                      // wAuthExDataLen
      0x00, 0x02,                                      // wSTraceIDLen (since 11)
      'o',  'k',                                       // szSTraceID
  };
  EXPECT_EQ(Pack(*a, 0), v11);
  std::unique_ptr<TNHPAckBody> u = Unpack<TNHPAckBody>(v11, 0);
  EXPECT_EQ(+u->stAuthResInfo.stAccount.ullUid, 0x99u);
  EXPECT_EQ(+u->stAuthResInfo.dwAtkExpireIn, 3600u);
  EXPECT_EQ(+u->szSTraceID[1], 'k');

  // Version 3: the account has no uid yet and there is no trace id.
  Bytes v3(v11.begin(), v11.begin() + 8);
  v3.insert(v3.end(), v11.begin() + 16, v11.end() - 4);
  EXPECT_EQ(Pack(*a, 3), v3);
  std::unique_ptr<TNHPAckBody> old = Unpack<TNHPAckBody>(v3, 3);
  EXPECT_EQ(+old->stAuthResInfo.stAccount.ullUid, 0u);
  EXPECT_EQ(+old->stAuthResInfo.stAccount.stValue.dwUINT32, 7u);
  EXPECT_EQ(+old->wSTraceIDLen, 0);

  a->bHasAuthInfo = 0;
  const Bytes bare = {0x00, 0x00, 0x02, 'o', 'k'};  // flag, wSTraceIDLen, szSTraceID
  EXPECT_EQ(Pack(*a, 11), bare);
  EXPECT_EQ(Pack(*a, 10), Bytes{0x00});
  a->bHasAuthInfo = 2;
  Pack(*a, 0, VixError::VIX_ERR_REFER_SURPASS_COUNT);
}

// ---------------------------------------------------------------------------------------------
// Remaining bodies, head extensions and unions byte by byte: every field holds its own value,
// so a swapped, missing or resized field or a wrong version shows in the bytes.

// Packs at cutVer and compares; then decodes the expected bytes and packs them again.
template <class T>
void ExpectWire(const T& rec, unsigned cutVer, const Bytes& expect) {
  EXPECT_EQ(Pack(rec, cutVer), expect) << T::m_class_name << " at " << cutVer;
  std::unique_ptr<T> back = Unpack<T>(expect, cutVer);
  EXPECT_EQ(Pack(*back, cutVer), expect) << T::m_class_name << " decoded at " << cutVer;
}

Bytes Be32(uint32_t v) {
  return {static_cast<unsigned char>(v >> 24), static_cast<unsigned char>(v >> 16),
          static_cast<unsigned char>(v >> 8), static_cast<unsigned char>(v)};
}

Bytes Be64(uint64_t v) {
  return Cat({Be32(static_cast<uint32_t>(v >> 32)), Be32(static_cast<uint32_t>(v))});
}

TEST(TNHPBodiesWire, AuthenticationRequestAndResponse) {
  std::unique_ptr<TNHPAuthReqBody> rq = Fresh<TNHPAuthReqBody>();
  rq->stAuthContent.wAuthType = 0x0102;
  rq->stAuthContent.stAuthAppID.wSize = 2;
  std::memcpy(rq->stAuthContent.stAuthAppID.szAppID, "ap", 2);
  rq->stAuthContent.stAuthReqData.wAuthLen = 3;
  std::memcpy(rq->stAuthContent.stAuthReqData.szAuthInfo, "dat", 3);
  rq->wTransDataLen = 1;
  rq->szTransData[0] = 0x7E;
  const Bytes req = {
      0x01, 0x02,                  // wAuthType
      0x00, 0x02, 'a',  'p',       // stAuthAppID: wSize, szAppID
      0x00, 0x03, 'd',  'a', 't',  // stAuthReqData: wAuthLen, szAuthInfo
      0x00, 0x01, 0x7E,            // wTransDataLen, szTransData
  };
  ExpectWire(*rq, 11, req);
  ExpectWire(*rq, 1, req);

  std::unique_ptr<TNHPAuthRspBody> rs = Fresh<TNHPAuthRspBody>();
  rs->stAccount.wType = 1;
  rs->stAccount.bFormat = KALMO_ID_UINT64;
  rs->stAccount.stValue.ullUINT64 = 0x0102030405060708ULL;
  rs->stAccount.ullUid = 0x0A;
  rs->wAuthType = 3;
  rs->wAtkLen = 1;
  rs->szAtk[0] = 'A';
  rs->dwAtkExpireIn = 0x10;
  rs->wRtkLen = 2;
  rs->szRtk[0] = 'R';
  rs->szRtk[1] = 'r';
  rs->dwRtkExpireIn = 0x20;
  rs->wAuthExDataVersion = 4;
  rs->wAuthExDataLen = 1;
  rs->szAuthExData[0] = 0x55;
  const Bytes account = Cat({{0x00, 0x01, 0x02}, Be64(0x0102030405060708ULL)});
  const Bytes tokens = Cat({
      {0x00, 0x03},  // wAuthType
      {0x00, 0x01, 'A'},
      Be32(0x10),  // wAtkLen, szAtk, dwAtkExpireIn
      {0x00, 0x02, 'R', 'r'},
      Be32(0x20),                      // wRtkLen, szRtk, dwRtkExpireIn
      {0x00, 0x04, 0x00, 0x01, 0x55},  // wAuthExDataVersion, wAuthExDataLen, szAuthExData
  });
  ExpectWire(*rs, 4, Cat({account, Be64(0x0A), tokens}));
  ExpectWire(*rs, 3, Cat({account, tokens}));  // the account's uid comes with 4

  std::unique_ptr<TNHPAuthRefreshNotifyBody> rn = Fresh<TNHPAuthRefreshNotifyBody>();
  rn->wAuthType = 5;
  rn->wAtkLen = 2;
  rn->szAtk[0] = 'a';
  rn->szAtk[1] = 'b';
  rn->dwAtkExpireIn = 0x100;
  ExpectWire(*rn, 1, Cat({{0x00, 0x05, 0x00, 0x02, 'a', 'b'}, Be32(0x100)}));

  std::unique_ptr<KALMOSmallAccount> sa = Fresh<KALMOSmallAccount>();
  sa->wType = 1;
  sa->bFormat = KALMO_ID_STRING;
  std::strcpy(sa->stValue.szSTRING, "ab");
  ExpectWire(*sa, 1, {0x00, 0x01, 0x03, 0x00, 0x00, 0x00, 0x03, 'a', 'b', 0x00});
}

TEST(TNHPBodiesWire, QueueStopRefreshAndRouteChange) {
  std::unique_ptr<TNHPWaitBody> w = Fresh<TNHPWaitBody>();
  w->dwPosition = 1;
  w->dwTotal = 2;
  w->dwRoughTime = 3;
  ExpectWire(*w, 1, Cat({Be32(1), Be32(2), Be32(3)}));

  std::unique_ptr<TNHPCStopBody> cs = Fresh<TNHPCStopBody>();
  cs->dwReserved = 9;
  ExpectWire(*cs, 1, Be32(9));

  std::unique_ptr<TNHPSStopBody> ss = Fresh<TNHPSStopBody>();
  ss->dwCode = 1;
  ss->dwExErrCode = 2;
  ss->dwQuelldIp = 0x0A000001u;
  ss->wQuelldPort = 0x1F90;
  std::strcpy(ss->szQuelldId, "q1");
  const Bytes sstop = Cat({Be32(1),
                           Be32(2),
                           Be32(0x0A000001u),
                           {0x1F, 0x90},
                           {0x00, 0x00, 0x00, 0x03, 'q', '1', 0x00}});
  ExpectWire(*ss, 10, sstop);
  ExpectWire(*ss, 1, sstop);

  std::unique_ptr<TNHPAuthRefreshReq> rr = Fresh<TNHPAuthRefreshReq>();
  rr->dwReserve = 0x01020304;
  ExpectWire(*rr, 1, Be32(0x01020304));

  std::unique_ptr<TNHPRouteChangeBody> rc = Fresh<TNHPRouteChangeBody>();
  rc->ullServerID = 0x1122334455667788ULL;
  ExpectWire(*rc, 1, Be64(0x1122334455667788ULL));

  std::unique_ptr<TNHPRelayReqBody> rl = Fresh<TNHPRelayReqBody>();
  rl->iRelayType = -1;
  rl->stRelayInfo.dwPosition = 2;
  for (int i = 0; i < 16; ++i) rl->stRelayInfo.szIdentity[i] = static_cast<unsigned char>(0x60 + i);
  rl->stRelayInfo.ullServerID = 3;
  ExpectWire(*rl, 9,
             Cat({Be32(0xFFFFFFFFu),
                  Be32(2),
                  {0x60, 0x61, 0x62, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6A, 0x6B, 0x6C,
                   0x6D, 0x6E, 0x6F},
                  Be64(3)}));

  // The bingo body gains its relay information (4 + 16 + 8) in version 8.
  std::unique_ptr<TNHPBingoBody> bg = Fresh<TNHPBingoBody>();
  EXPECT_EQ(Pack(*bg, 7).size(), 21u);
  EXPECT_EQ(Pack(*bg, 8).size(), 49u);
}

TEST(TNHPHeadExtensionsWire, HeartBeatAndTransmit) {
  std::unique_ptr<TNHPHeartBeatHead> hb = Fresh<TNHPHeartBeatHead>();
  hb->dwSeq = 1;
  hb->ullTimeStamp = 0x0102030405060708ULL;
  hb->dwReserve1 = 2;
  hb->dwReserve2 = 3;
  hb->dwReserve3 = 4;
  ExpectWire(*hb, 1, Cat({Be32(1), Be64(0x0102030405060708ULL), Be32(2), Be32(3), Be32(4)}));

  std::unique_ptr<TNHPTransDataHead> td = Fresh<TNHPTransDataHead>();
  td->dwTransType = 1;
  td->dwSeq = 2;
  td->wExtendDataLen = 2;
  td->szExtendData[0] = 0xE1;
  td->szExtendData[1] = 0xE2;
  td->dwReserve1 = 3;
  td->dwReserve2 = 4;
  ExpectWire(*td, 1, Cat({Be32(1), Be32(2), {0x00, 0x02, 0xE1, 0xE2}, Be32(3), Be32(4)}));
  td->wExtendDataLen = KALMO_MAX_TRANS_EXTEND_DATA_LENGTH + 1;
  Pack(*td, 1, VixError::VIX_ERR_REFER_SURPASS_COUNT);
}

TEST(TNHPKeyExchange, ResponsesByEachMethod) {
  std::unique_ptr<TNHPAckHead> a = Fresh<TNHPAckHead>();
  a->bKeyMethod = TNHP_KEY_METHOD_RAW_DH;
  a->stKeyInfo.stRspByRawDH.wB_size = 1;
  a->stKeyInfo.stRspByRawDH.szDH_B[0] = 0xB1;
  a->bCompressMethod = 2;
  a->dwCompressLimit = 0x10;
  a->dwReserved = 0x20;
  const Bytes tail = Cat({{0x02}, Be32(0x10), Be32(0x20)});
  ExpectWire(*a, 5, Cat({{0x03, 0x00, 0x01, 0xB1}, tail}));

  std::memset(static_cast<void*>(&a->stKeyInfo), 0, sizeof(a->stKeyInfo));
  a->bKeyMethod = TNHP_KEY_METHOD_ENC_DH;
  a->stKeyInfo.stRspByEncDH.bEncMethod = 5;
  a->stKeyInfo.stRspByEncDH.wEncInfoLen = 2;
  a->stKeyInfo.stRspByEncDH.szEncryptedInfo[0] = 0xE1;
  a->stKeyInfo.stRspByEncDH.szEncryptedInfo[1] = 0xE2;
  ExpectWire(*a, 5, Cat({{0x04, 0x05, 0x00, 0x02, 0xE1, 0xE2}, tail}));

  for (uint8_t none : {uint8_t{TNHP_KEY_METHOD_NONE}, uint8_t{TNHP_KEY_METHOD_AUTH}}) {
    a->bKeyMethod = none;
    ExpectWire(*a, 5, Cat({{none}, tail}));
  }

  // A raw Diffie-Hellman request inside the SYN head.
  TNHPKeyReq req;
  std::memset(static_cast<void*>(&req), 0, sizeof(req));
  req.stReqByRawDH.wA_size = 1;
  req.stReqByRawDH.szDH_A[0] = 0xA1;
  char area[128];
  size_t used = 0;
  ASSERT_EQ(req.pack(TNHP_KEY_METHOD_RAW_DH, area, sizeof(area), &used, 1), 0);
  EXPECT_EQ(Bytes(area, area + used), Cat({{0x00, 0x01, 0xA1}, Bytes(64, 0x00)}));
}

TEST(TNHPRouteInfoWire, EachRouteTypeInADataHead) {
  std::unique_ptr<TNHPDataHead> d = Fresh<TNHPDataHead>();
  d->bCompressFlag = 1;
  const Bytes head = {0x01, 0x00};  // bCompressFlag, bAllowLost
  const Bytes noSplitters = {0x00};
  d->bRouteFlag = TNHP_ROUTE_TYPE_SPECIFY_SERVICE;
  std::strcpy(d->stRouteInfo.stSpecifyName.szServiceName, "s");
  ExpectWire(*d, 10, Cat({head, {0x05, 0x00, 0x00, 0x00, 0x02, 's', 0x00}, noSplitters}));

  std::strcpy(d->stRouteInfo.stSpecifyNameData.szUserData, "d");
  d->bRouteFlag = TNHP_ROUTE_TYPE_SPECIFY_NAME_DATA;
  ExpectWire(*d, 10,
             Cat({head,
                  {0x06, 0x00, 0x00, 0x00, 0x02, 's', 0x00, 0x00, 0x00, 0x00, 0x02, 'd', 0x00},
                  noSplitters}));

  std::memset(static_cast<void*>(&d->stRouteInfo), 0, sizeof(d->stRouteInfo));
  d->bRouteFlag = TNHP_ROUTE_TYPE_SPECIFY_ZONE;
  d->stRouteInfo.stSpecifyZone.dwTypeID = 7;
  d->stRouteInfo.stSpecifyZone.dwZoneID = 8;
  ExpectWire(*d, 10, Cat({head, {0x01}, Be32(7), Be32(8), noSplitters}));

  std::memset(static_cast<void*>(&d->stRouteInfo), 0, sizeof(d->stRouteInfo));
  for (int none : {int{TNHP_ROUTE_TYPE_NONE}, int{TNHP_ROUTE_TYPE_LOGIN_POSITION}, 4}) {
    // no member: nothing between the flag and the splitter count
    d->bRouteFlag = static_cast<uint8_t>(none);
    ExpectWire(*d, 10, Cat({head, {static_cast<unsigned char>(none)}, noSplitters}));
  }
}

// Capacities bound what unpack accepts (-3 for strings, -7 for counts), so they are part of the
// protocol as much as the field order.
static_assert(sizeof(KALMOIDValue::szSTRING) == 256 && sizeof(KALMOAuthData::szAuthInfo) == 4096 &&
                  sizeof(KALMOAuthAppID::szAppID) == 64 && sizeof(KALMORawDHReq::szDH_A) == 64 &&
                  sizeof(KALMORawDHReq::szDH_p) == 64 && sizeof(KALMOKey::szValue) == 128 &&
                  sizeof(KALMORawDHRsp::szDH_B) == 64 &&
                  sizeof(KALMOEncDHInfo::szEncryptedInfo) == 1024,
              "account and key capacities");
static_assert(sizeof(TNHPAuthReqBody::szTransData) == 256 && sizeof(TNHPRelay::szIdentity) == 16 &&
                  sizeof(SpecifyNameRouteInfo::szServiceName) == 128 &&
                  sizeof(SpecifyNameDataRouteInfo::szServiceName) == 128 &&
                  sizeof(SpecifyNameDataRouteInfo::szUserData) == 128 &&
                  sizeof(TNHPSynHead::szCTraceID) == 64 && sizeof(TNHPAuthRspBody::szAtk) == 4096 &&
                  sizeof(TNHPAuthRspBody::szRtk) == 1024 &&
                  sizeof(TNHPAuthRspBody::szAuthExData) == 1024 &&
                  sizeof(TNHPAuthRefreshNotifyBody::szAtk) == 4096 &&
                  sizeof(TNHPAckBody::szSTraceID) == 64 &&
                  sizeof(TNHPSStopBody::szQuelldId) == 32 &&
                  sizeof(TNHPDataHead::msgSplitter) == 254 * sizeof(uint16_t) &&
                  sizeof(TNHPTransDataHead::szExtendData) == 64 && sizeof(TNHPFrame::szBody) == 1,
              "body and head capacities");

}  // namespace
