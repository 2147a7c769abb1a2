// Wire vectors of the frame head, worked out byte by byte from the record layouts, and the
// version rules that decide which entries a frame carries.

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "tframehead.h"

using kalmo_vix::VixError;
using namespace tframehead;

namespace {

using Bytes = std::vector<unsigned char>;

constexpr char kSentinel = '\x5c';

Bytes Cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

// A record full of garbage, so that unpack has to set every field it owns.
template <class T>
std::unique_ptr<T> Garbage() {
  std::unique_ptr<T> rec(new T);
  std::memset(static_cast<void*>(rec.get()), 0xEE, sizeof(T));
  return rec;
}

// A constructed record whose union members start from zero too.
template <class T>
std::unique_ptr<T> Fresh() {
  std::unique_ptr<T> rec(new T);
  std::memset(static_cast<void*>(rec.get()), 0, sizeof(T));
  EXPECT_EQ(rec->construct(), 0);
  return rec;
}

// Packs into a sentinel-filled area and checks that nothing past the reported size changed.
template <class T>
Bytes Pack(const T& rec, unsigned cutVer, int expectRc = 0) {
  std::vector<char> area(T::MAX_PACK_SIZE + 64, kSentinel);
  size_t used = 12345;
  EXPECT_EQ(rec.pack(area.data(), area.size(), &used, cutVer), expectRc);
  if (used > area.size()) {
    ADD_FAILURE() << "used size " << used << " beyond the area";
    return Bytes();
  }
  for (size_t i = used; i < area.size(); ++i) {
    if (area[i] != kSentinel) {
      ADD_FAILURE() << "byte " << i << " written past the reported size " << used;
      break;
    }
  }
  return Bytes(area.begin(), area.begin() + static_cast<std::ptrdiff_t>(used));
}

// Unpacks exactly the given bytes (followed by trailing junk that must stay unread).
template <class T>
std::unique_ptr<T> Unpack(const Bytes& wire, unsigned cutVer) {
  std::vector<char> area(wire.begin(), wire.end());
  area.insert(area.end(), 8, kSentinel);
  std::unique_ptr<T> rec = Garbage<T>();
  size_t used = 0;
  EXPECT_EQ(rec->unpack(area.data(), area.size(), &used, cutVer), 0);
  EXPECT_EQ(used, wire.size());
  return rec;
}

template <class T>
int UnpackRc(const Bytes& wire, unsigned cutVer) {
  std::vector<char> area(wire.begin(), wire.end());
  area.push_back(kSentinel);  // never null, even for no data
  std::unique_ptr<T> rec = Garbage<T>();
  size_t used = 0;
  return rec->unpack(area.data(), wire.size(), &used, cutVer);
}

// ---------------------------------------------------------------------------------------------
// Heartbeat with the client's address and a time stamp.

std::unique_ptr<TFrameHead> HeartbeatHead() {
  std::unique_ptr<TFrameHead> h = Fresh<TFrameHead>();
  h->chVer = 0;  // pack states the cut version itself
  h->chCmd = TFRAMEHEAD_CMD_HEARTBEAT;
  h->chExtraType = TFRAMEHEAD_EXTRA_IP;
  h->chTimeStampType = TFRAMEHEAD_TIMESTAMP_TIMEVAL;
  h->chFlag = 0x05;
  h->iID = 0x01020304;
  h->iConnIdx = 0x0A0B0C0D;
  h->ullExtend = 0x1122334455667788ULL;
  h->dwSeq = 0xDEADBEEFu;
  h->ullCallBack = 0x8877665544332211ULL;
  TIPInfo& ip = h->stExtraInfo.stIPInfo;
  ip.nFamily = 2;
  ip.wPort = 8080;
  ip.ulIp = 0xC0A80001u;
  ip.ipv6_padding[0] = 1;
  ip.ipv6_padding[1] = 2;
  ip.ipv6_padding[2] = 3;
  ip.wIntf_type = 7;
  ip.dwRecv_udp_packet_count = 0x11;
  ip.dwRecv_udp_packet_valid_count = 0x12;
  ip.dwRecv_udp_packet_toolate_count = 0x13;
  ip.dwRecv_udp_packet_late_lt_low_limit = 0x14;
  ip.dwRecv_udp_packet_late_gt_low_limit_lt_high_limit = 0x15;
  ip.dwRecv_udp_packet_late_gt_high_limit = 0x16;
  ip.dwRecv_udp_packet_lost_count = 0x17;
  ip.dwRecv_udp_packet_unorder_count = 0x18;
  ip.dwRecv_udp_packet_maxseq = 0x19;
  h->stTimeStamp.stTimeVal.iSec = 1700000000;
  h->stTimeStamp.stTimeVal.iUsec = 123456;
  return h;
}

// The address counters, identical in every version.
const Bytes kIpCounters = {
    0x00, 0x00, 0x00, 0x11,  // dwRecv_udp_packet_count
    0x00, 0x00, 0x00, 0x12,  // dwRecv_udp_packet_valid_count
    0x00, 0x00, 0x00, 0x13,  // dwRecv_udp_packet_toolate_count
    0x00, 0x00, 0x00, 0x14,  // dwRecv_udp_packet_late_lt_low_limit
    0x00, 0x00, 0x00, 0x15,  // dwRecv_udp_packet_late_gt_low_limit_lt_high_limit
    0x00, 0x00, 0x00, 0x16,  // dwRecv_udp_packet_late_gt_high_limit
    0x00, 0x00, 0x00, 0x17,  // dwRecv_udp_packet_lost_count
    0x00, 0x00, 0x00, 0x18,  // dwRecv_udp_packet_unorder_count
    0x00, 0x00, 0x00, 0x19,  // dwRecv_udp_packet_maxseq
};

const Bytes kHeartbeatV35 = Cat({
    {
        0x23,                                            // chVer: 35
        0x09,                                            // chCmd: HEARTBEAT
        0x01,                                            // chExtraType: IP
        0x01,                                            // chTimeStampType: TIMEVAL
        0x05,                                            // chFlag (since 14)
        0x01, 0x02, 0x03, 0x04,                          // iID
        0x0A, 0x0B, 0x0C, 0x0D,                          // iConnIdx
        0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88,  // ullExtend (since 18)
        0xDE, 0xAD, 0xBE, 0xEF,                          // dwSeq (since 20)
        0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11,  // ullCallBack (since 23)
        // stExtraInfo.stIPInfo
        0x00, 0x02,                                      // nFamily
        0x1F, 0x90,                                      // wPort 8080
        0xC0, 0xA8, 0x00, 0x01,                          // ulIp
        0x00, 0x00, 0x00, 0x01,                          // ipv6_padding[0]
        0x00, 0x00, 0x00, 0x02,                          // ipv6_padding[1]
        0x00, 0x00, 0x00, 0x03,                          // ipv6_padding[2]
        0x00, 0x07,                                      // wIntf_type (since 31)
    },
    kIpCounters,
    {
        // stTimeStamp.stTimeVal
        0x65, 0x53, 0xF1, 0x00,  // iSec 1700000000
        0x00, 0x01, 0xE2, 0x40,  // iUsec 123456
        // heartbeat: no body
    },
});

// The same frame cut to the oldest version: no chFlag, ullExtend, dwSeq, ullCallBack or
// wIntf_type.
const Bytes kHeartbeatV10 = Cat({
    {
        0x0A,                    // chVer: 10
        0x09,                    // chCmd: HEARTBEAT
        0x01,                    // chExtraType: IP
        0x01,                    // chTimeStampType: TIMEVAL
        0x01, 0x02, 0x03, 0x04,  // iID
        0x0A, 0x0B, 0x0C, 0x0D,  // iConnIdx
        // stExtraInfo.stIPInfo
        0x00, 0x02,              // nFamily
        0x1F, 0x90,              // wPort
        0xC0, 0xA8, 0x00, 0x01,  // ulIp
        0x00, 0x00, 0x00, 0x01,  // ipv6_padding[0]
        0x00, 0x00, 0x00, 0x02,  // ipv6_padding[1]
        0x00, 0x00, 0x00, 0x03,  // ipv6_padding[2]
    },
    kIpCounters,
    {
        0x65, 0x53, 0xF1, 0x00,  // stTimeVal.iSec
        0x00, 0x01, 0xE2, 0x40,  // stTimeVal.iUsec
    },
});

TEST(TFrameHeadWire, HeartbeatWithAddressAndTimeStampAtCurrentVersion) {
  ASSERT_EQ(kHeartbeatV35.size(), 33u + 58u + 8u);
  std::unique_ptr<TFrameHead> h = HeartbeatHead();
  EXPECT_EQ(Pack(*h, 35), kHeartbeatV35);
  EXPECT_EQ(Pack(*h, 0), kHeartbeatV35);   // 0 means the current version
  EXPECT_EQ(Pack(*h, 200), kHeartbeatV35); // so does anything above it

  std::unique_ptr<TFrameHead> u = Unpack<TFrameHead>(kHeartbeatV35, 35);
  EXPECT_EQ(+u->chVer, 35);
  EXPECT_EQ(+u->chCmd, TFRAMEHEAD_CMD_HEARTBEAT);
  EXPECT_EQ(+u->chFlag, 0x05);
  EXPECT_EQ(+u->iID, 0x01020304);
  EXPECT_EQ(+u->iConnIdx, 0x0A0B0C0D);
  EXPECT_EQ(+u->ullExtend, 0x1122334455667788ULL);
  EXPECT_EQ(+u->dwSeq, 0xDEADBEEFu);
  EXPECT_EQ(+u->ullCallBack, 0x8877665544332211ULL);
  const TIPInfo& ip = u->stExtraInfo.stIPInfo;
  EXPECT_EQ(+ip.nFamily, 2);
  EXPECT_EQ(+ip.wPort, 8080);
  EXPECT_EQ(+ip.ulIp, 0xC0A80001u);
  EXPECT_EQ(+ip.ipv6_padding[2], 3u);
  EXPECT_EQ(+ip.wIntf_type, 7);
  EXPECT_EQ(+ip.dwRecv_udp_packet_count, 0x11u);
  EXPECT_EQ(+ip.dwRecv_udp_packet_maxseq, 0x19u);
  EXPECT_EQ(+u->stTimeStamp.stTimeVal.iSec, 1700000000);
  EXPECT_EQ(+u->stTimeStamp.stTimeVal.iUsec, 123456);
}

TEST(TFrameHeadWire, HeartbeatCutToOldestVersionDropsLaterFields) {
  ASSERT_EQ(kHeartbeatV10.size(), 12u + 56u + 8u);
  std::unique_ptr<TFrameHead> h = HeartbeatHead();
  h->chVer = 35;  // overwritten with the cut version
  EXPECT_EQ(Pack(*h, 10), kHeartbeatV10);

  // The cut version comes from the frame, whatever the caller asks for.
  for (unsigned asked : {10u, 35u, 5u}) {
    std::unique_ptr<TFrameHead> u = Unpack<TFrameHead>(kHeartbeatV10, asked);
    EXPECT_EQ(+u->chVer, 10);
    EXPECT_EQ(+u->chFlag, 0);
    EXPECT_EQ(+u->ullExtend, 0u);
    EXPECT_EQ(+u->dwSeq, 0u);
    EXPECT_EQ(+u->ullCallBack, 0u);
    EXPECT_EQ(+u->iID, 0x01020304);
    EXPECT_EQ(+u->iConnIdx, 0x0A0B0C0D);
    EXPECT_EQ(+u->stExtraInfo.stIPInfo.wIntf_type, 0);
    EXPECT_EQ(+u->stExtraInfo.stIPInfo.ulIp, 0xC0A80001u);
    EXPECT_EQ(+u->stExtraInfo.stIPInfo.dwRecv_udp_packet_count, 0x11u);
    EXPECT_EQ(+u->stTimeStamp.stTimeVal.iUsec, 123456);
  }
}

TEST(TFrameHeadWire, IntermediateVersionsCarryTheFieldsAddedSoFar) {
  std::unique_ptr<TFrameHead> h = HeartbeatHead();
  h->chExtraType = 0;
  h->chTimeStampType = 0;
  // version 13: the 12 bytes of version 10; 14 adds chFlag; 18 ullExtend; 20 dwSeq;
  // 23 ullCallBack.
  const Bytes v13 = {0x0D, 0x09, 0x00, 0x00, 0x01, 0x02, 0x03, 0x04, 0x0A, 0x0B, 0x0C, 0x0D};
  EXPECT_EQ(Pack(*h, 13), v13);
  EXPECT_EQ(Pack(*h, 14).size(), 13u);
  EXPECT_EQ(Pack(*h, 17).size(), 13u);
  EXPECT_EQ(Pack(*h, 18).size(), 21u);
  EXPECT_EQ(Pack(*h, 20).size(), 25u);
  EXPECT_EQ(Pack(*h, 22).size(), 25u);
  const Bytes v23 = Pack(*h, 23);
  ASSERT_EQ(v23.size(), 33u);
  EXPECT_EQ(v23[0], 23);
  EXPECT_EQ(v23[4], 0x05);  // chFlag right after the four selector bytes

  std::unique_ptr<TFrameHead> u = Unpack<TFrameHead>(Pack(*h, 20), 0);
  EXPECT_EQ(+u->chFlag, 0x05);
  EXPECT_EQ(+u->ullExtend, 0x1122334455667788ULL);
  EXPECT_EQ(+u->dwSeq, 0xDEADBEEFu);
  EXPECT_EQ(+u->ullCallBack, 0u);
}

// ---------------------------------------------------------------------------------------------
// START, with an account, MX authentication, a jump relay and two client addresses.

std::unique_ptr<TFrameHead> StartFrame() {
  std::unique_ptr<TFrameHead> h = Fresh<TFrameHead>();
  h->chCmd = TFRAMEHEAD_CMD_START;
  h->chFlag = 0x40;
  h->iID = 7;
  h->iConnIdx = 1;
  h->ullExtend = 9;
  h->dwSeq = 42;
  TFrameCmdStart& s = h->stCmdData.stStart;
  s.stUserAccount.wType = 0x0101;
  s.stUserAccount.bFormat = TFRAMEHEAD_ID_STRING;
  std::strcpy(s.stUserAccount.stValue.szSTRING, "ab");
  s.stUserAccount.ullUid = 123456789;
  s.ullReserved = 0x0102030405060708ULL;
  s.iAuthType = KALMO_SEC_AUTH_MXV1;
  TFrameAuthMX& mx = s.stAuthData.stAuthMXV1;
  mx.dwUin = 10001;
  mx.nSigVer = 2;
  mx.dwSigTime = 0x65000000u;
  mx.nSigLen = 3;
  mx.szSigBuff[0] = 0xAA;
  mx.szSigBuff[1] = 0xBB;
  mx.szSigBuff[2] = 0xCC;
  mx.dwAuthExDataLen = 2;
  mx.szAuthExData[0] = 0x0D;
  mx.szAuthExData[1] = 0x0E;
  s.iWaitTime = 30;
  s.iClientType = -1;
  s.bRelayFlag = TFRAMEHEAD_RELAYFLAG_JUMP;
  s.stRelayData.stJumpRelayData.dwPosition = 5;
  for (int i = 0; i < 16; ++i) s.stRelayData.stJumpRelayData.szConnData[i] = static_cast<unsigned char>(0x30 + i);
  s.bIsUidNew = 1;
  s.stSIPInfo.nFamily = 2;
  s.stSIPInfo.wPort = 80;
  s.stSIPInfo.ulIp = 0x0A000001u;
  s.stSIPInfo.wIntf_type = 1;
  s.stOriClientIPInfo.nFamily = 2;
  s.stOriClientIPInfo.wPort = 443;
  s.stOriClientIPInfo.ulIp = 0x0A000002u;
  s.dwConnectExtInt = 0x11;
  s.dwListenType = 3;
  return h;
}

const Bytes kZeros12(12, 0x00);
const Bytes kZeros36(36, 0x00);

// Body fields that every version from 10 on carries, up to the relay flag.
const Bytes kStartMxAuth = {
    0x00, 0x00, 0x00, 0x01,  // iAuthType: MXV1
    // stAuthData.stAuthMXV1
    0x00, 0x00, 0x27, 0x11,  // dwUin 10001
    0x00, 0x02,              // nSigVer (since 12)
    0x65, 0x00, 0x00, 0x00,  // dwSigTime
    0x00, 0x03,              // nSigLen
    0xAA, 0xBB, 0xCC,        // szSigBuff: nSigLen bytes
    0x00, 0x00, 0x00, 0x02,  // dwAuthExDataLen
    0x0D, 0x0E,              // szAuthExData: dwAuthExDataLen bytes
    0x00, 0x00, 0x00, 0x1E,  // iWaitTime 30
    0xFF, 0xFF, 0xFF, 0xFF,  // iClientType -1 (since 16)
    0x02,                    // bRelayFlag: JUMP (since 16)
};

const Bytes kStartV35 = Cat({
    {
        0x23,                                            // chVer: 35
        0x00,                                            // chCmd: START
        0x00,                                            // chExtraType: none
        0x00,                                            // chTimeStampType: none
        0x40,                                            // chFlag
        0x00, 0x00, 0x00, 0x07,                          // iID
        0x00, 0x00, 0x00, 0x01,                          // iConnIdx
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x09,  // ullExtend
        0x00, 0x00, 0x00, 0x2A,                          // dwSeq
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // ullCallBack
        // stCmdData.stStart.stUserAccount (since 17)
        0x01, 0x01,                                      // wType
        0x03,                                            // bFormat: STRING
        0x00, 0x00, 0x00, 0x03, 'a', 'b', 0x00,          // stValue.szSTRING: length 3 with NUL
        0x00, 0x00, 0x00, 0x00, 0x07, 0x5B, 0xCD, 0x15,  // ullUid 123456789 (since 19)
        0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08,  // ullReserved (since 18)
    },
    kStartMxAuth,
    {
        // stRelayData.stJumpRelayData (since 26)
        0x00, 0x00, 0x00, 0x05,                          // dwPosition
        0x30, 0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x37,  // szConnData, 16 bytes always
        0x38, 0x39, 0x3A, 0x3B, 0x3C, 0x3D, 0x3E, 0x3F,
        0x01,                                            // bIsUidNew (since 19)
        // stSIPInfo (since 21)
        0x00, 0x02,                                      // nFamily
        0x00, 0x50,                                      // wPort 80
        0x0A, 0x00, 0x00, 0x01,                          // ulIp
    },
    kZeros12,  // ipv6_padding
    {0x00, 0x01},  // wIntf_type
    kZeros36,  // counters
    {
        // stOriClientIPInfo (since 28)
        0x00, 0x02,              // nFamily
        0x01, 0xBB,              // wPort 443
        0x0A, 0x00, 0x00, 0x02,  // ulIp
    },
    kZeros12,      // ipv6_padding
    {0x00, 0x00},  // wIntf_type
    kZeros36,      // counters
    {
        0x00, 0x00, 0x00, 0x11,  // dwConnectExtInt
        0x00, 0x00, 0x00, 0x03,  // dwListenType (since 32)
    },
});

const Bytes kStartV16 = Cat({
    {
        0x10,                    // chVer: 16
        0x00,                    // chCmd: START
        0x00,                    // chExtraType
        0x00,                    // chTimeStampType
        0x40,                    // chFlag (since 14)
        0x00, 0x00, 0x00, 0x07,  // iID
        0x00, 0x00, 0x00, 0x01,  // iConnIdx
        // stStart: no account (17) or ullReserved (18)
    },
    kStartMxAuth,
    {
        // no relay data (26), bIsUidNew (19), addresses (21, 28)
        0x00, 0x00, 0x00, 0x11,  // dwConnectExtInt
        // no dwListenType (32)
    },
});

TEST(TFrameHeadWire, StartAtCurrentVersion) {
  ASSERT_EQ(kStartV35.size(), 33u + 26u + kStartMxAuth.size() + 21u + 58u + 58u + 8u);
  std::unique_ptr<TFrameHead> h = StartFrame();
  EXPECT_EQ(Pack(*h, 0), kStartV35);

  std::unique_ptr<TFrameHead> u = Unpack<TFrameHead>(kStartV35, 0);
  const TFrameCmdStart& s = u->stCmdData.stStart;
  EXPECT_EQ(+s.stUserAccount.wType, 0x0101);
  EXPECT_EQ(+s.stUserAccount.bFormat, TFRAMEHEAD_ID_STRING);
  EXPECT_STREQ(s.stUserAccount.stValue.szSTRING, "ab");
  EXPECT_EQ(+s.stUserAccount.ullUid, 123456789u);
  EXPECT_EQ(+s.ullReserved, 0x0102030405060708ULL);
  EXPECT_EQ(+s.iAuthType, KALMO_SEC_AUTH_MXV1);
  EXPECT_EQ(+s.stAuthData.stAuthMXV1.dwUin, 10001u);
  EXPECT_EQ(+s.stAuthData.stAuthMXV1.nSigVer, 2);
  EXPECT_EQ(+s.stAuthData.stAuthMXV1.nSigLen, 3);
  EXPECT_EQ(+s.stAuthData.stAuthMXV1.szSigBuff[2], 0xCC);
  EXPECT_EQ(+s.stAuthData.stAuthMXV1.szAuthExData[1], 0x0E);
  EXPECT_EQ(+s.iClientType, -1);
  EXPECT_EQ(+s.bRelayFlag, TFRAMEHEAD_RELAYFLAG_JUMP);
  EXPECT_EQ(+s.stRelayData.stJumpRelayData.dwPosition, 5u);
  EXPECT_EQ(+s.stRelayData.stJumpRelayData.szConnData[15], 0x3F);
  EXPECT_EQ(+s.bIsUidNew, 1);
  EXPECT_EQ(+s.stSIPInfo.wIntf_type, 1);
  EXPECT_EQ(+s.stOriClientIPInfo.wPort, 443);
  EXPECT_EQ(+s.dwConnectExtInt, 0x11u);
  EXPECT_EQ(+s.dwListenType, 3u);
}

TEST(TFrameHeadWire, StartCutToVersion16) {
  std::unique_ptr<TFrameHead> h = StartFrame();
  EXPECT_EQ(Pack(*h, 16), kStartV16);

  std::unique_ptr<TFrameHead> u = Unpack<TFrameHead>(kStartV16, 0);
  const TFrameCmdStart& s = u->stCmdData.stStart;
  EXPECT_EQ(+u->chVer, 16);
  EXPECT_EQ(+u->chFlag, 0x40);
  EXPECT_EQ(+s.stUserAccount.wType, 0);
  EXPECT_EQ(+s.stUserAccount.ullUid, 0u);
  EXPECT_EQ(+s.ullReserved, 0u);
  EXPECT_EQ(+s.stAuthData.stAuthMXV1.nSigVer, 2);
  EXPECT_EQ(+s.iWaitTime, 30);
  EXPECT_EQ(+s.bRelayFlag, TFRAMEHEAD_RELAYFLAG_JUMP);
  EXPECT_EQ(+s.stRelayData.stJumpRelayData.dwPosition, 0u);
  EXPECT_EQ(+s.bIsUidNew, 0);
  EXPECT_EQ(+s.stSIPInfo.ulIp, 0u);
  EXPECT_EQ(+s.stOriClientIPInfo.ulIp, 0u);
  EXPECT_EQ(+s.dwConnectExtInt, 0x11u);
  EXPECT_EQ(+s.dwListenType, 0u);

  // Below 12 the MX record loses nSigVer.
  const Bytes v11 = Pack(*h, 11);
  ASSERT_EQ(v11.size(), 12u + kStartMxAuth.size() - 2u - 5u + 4u);
  EXPECT_EQ(v11[12 + 8], 0x65);  // dwSigTime follows dwUin directly
}

TEST(TFrameCmdStartVersions, BodySizeAtEachVersionStep) {
  std::unique_ptr<TFrameHead> h = StartFrame();
  const TFrameCmdStart& s = h->stCmdData.stStart;
  struct Step {
    unsigned ver;
    size_t size;
  };
  // 10: iAuthType, MX auth without nSigVer (19), iWaitTime, dwConnectExtInt; 12: nSigVer;
  // 16: iClientType, bRelayFlag; 17: account without uid; 18: ullReserved; 19: uid, bIsUidNew;
  // 21: stSIPInfo (56); 26: jump relay (20); 28: stOriClientIPInfo; 31: wIntf_type in both
  // addresses; 32: dwListenType.
  const Step steps[] = {{10, 31},  {11, 31},  {12, 33},  {15, 33},  {16, 38},  {17, 48},
                        {18, 56},  {19, 65},  {20, 65},  {21, 121}, {25, 121}, {26, 141},
                        {27, 141}, {28, 197}, {30, 197}, {31, 201}, {32, 205}, {35, 205}};
  for (const Step& st : steps) EXPECT_EQ(Pack(s, st.ver).size(), st.size) << st.ver;
  Pack(s, 9, VixError::VIX_ERR_CUTVER_TOO_SMALL);
}

TEST(TFrameCmdDataUnion, EachCommandBodyFromItsVersion) {
  struct Member {
    long id;
    unsigned since;
  };
  const Member members[] = {
      {0, 10},  {1, 10},  {2, 10},  {3, 10},  {4, 10},  {5, 10},  {6, 10},  {7, 10},  {8, 10},
      {10, 12}, {12, 13}, {13, 13}, {20, 10}, {21, 10}, {22, 10}, {24, 15}, {26, 10}, {27, 15},
      {28, 15}, {29, 17}, {31, 20}, {32, 25}, {33, 25}, {36, 27}, {37, 27}, {38, 27}, {39, 27},
      {40, 27}, {41, 27}, {42, 27}, {43, 27}, {44, 27}, {45, 27}, {46, 27}, {47, 27}, {48, 27},
      {49, 27}, {50, 32}, {51, 32}, {52, 32}, {53, 32},
  };
  std::unique_ptr<TFrameCmdData> body(new TFrameCmdData);
  std::vector<char> area(TFrameCmdData::MAX_PACK_SIZE);
  size_t used = 0;
  for (const Member& m : members) {
    std::memset(static_cast<void*>(body.get()), 0, sizeof(TFrameCmdData));
    ASSERT_EQ(body->construct(m.id), 0);
    ASSERT_EQ(body->pack(m.id, area.data(), area.size(), &used, m.since), 0) << m.id;
    EXPECT_GT(used, 0u) << m.id;
    if (m.since > 10) {
      ASSERT_EQ(body->pack(m.id, area.data(), area.size(), &used, m.since - 1), 0) << m.id;
      EXPECT_EQ(used, 0u) << m.id;
    }
  }
  for (long id : {9L, 11L, 14L, 19L, 23L, 25L, 30L, 34L, 35L, 54L}) {
    ASSERT_EQ(body->pack(id, area.data(), area.size(), &used, 35), 0);
    EXPECT_EQ(used, 0u) << id;
  }
}

TEST(TFrameHeadWire, ShortBufferNamesCommandBodyAndField) {
  std::unique_ptr<TFrameHead> h = StartFrame();
  std::vector<char> area(kStartV35.size() - 1, kSentinel);
  size_t used = 0;
  EXPECT_EQ(h->pack(area.data(), area.size(), &used, 0), VixError::VIX_ERR_SHORT_BUF_FOR_WRITE);
  const std::string trace(VixError::back_trace_str + VixError::start_pos);
  const size_t cmd = trace.find("[stCmdData]");
  const size_t start = trace.find("[stStart]");
  const size_t field = trace.find("[dwListenType]");
  ASSERT_NE(cmd, std::string::npos) << trace;
  ASSERT_NE(start, std::string::npos) << trace;
  ASSERT_NE(field, std::string::npos) << trace;
  EXPECT_LT(cmd, start);
  EXPECT_LT(start, field);
}

// ---------------------------------------------------------------------------------------------
// Version indicator.

TEST(TFrameHeadVersion, OutOfRangeVersionByteIsRefused) {
  Bytes wire = kHeartbeatV10;
  for (unsigned char bad : {0x00, 0x09, 0x24, 0x7F, 0x80, 0xFF}) {
    wire[0] = bad;
    EXPECT_EQ(UnpackRc<TFrameHead>(wire, 0), VixError::VIX_ERR_NET_CUTVER_INVALID) << int(bad);
  }
  EXPECT_EQ(UnpackRc<TFrameHead>(Bytes(), 0), VixError::VIX_ERR_SHORT_BUF_FOR_READ);
  EXPECT_EQ(UnpackRc<TFrameHead>(Bytes(kHeartbeatV10.begin(), kHeartbeatV10.end() - 1), 0),
            VixError::VIX_ERR_SHORT_BUF_FOR_READ);
}

TEST(TFrameHeadVersion, CutBelowOldestVersionWritesNothing) {
  std::unique_ptr<TFrameHead> h = HeartbeatHead();
  EXPECT_TRUE(Pack(*h, 9, VixError::VIX_ERR_CUTVER_TOO_SMALL).empty());
  EXPECT_TRUE(Pack(*h, 1, VixError::VIX_ERR_CUTVER_TOO_SMALL).empty());
}

// ---------------------------------------------------------------------------------------------
// Command bodies chosen by chCmd.

std::unique_ptr<TFrameHead> BareHead(int cmd) {
  std::unique_ptr<TFrameHead> h = Fresh<TFrameHead>();
  h->chCmd = static_cast<int8_t>(cmd);
  h->iID = 0x01020304;
  h->iConnIdx = 0x05060708;
  return h;
}

TEST(TFrameHeadCommands, IdsWithoutBodyEncodeOnlyTheHead) {
  // heartbeat, wait-number request, web response, reboot, stop notice, and unassigned ids
  for (int cmd : {9, 11, 23, 25, 30, 14, 19, 34, 35, 54, 127, -1}) {
    std::unique_ptr<TFrameHead> h = BareHead(cmd);
    const Bytes wire = Pack(*h, 0);
    ASSERT_EQ(wire.size(), 33u) << cmd;
    EXPECT_EQ(wire[1], static_cast<unsigned char>(cmd));
    std::unique_ptr<TFrameHead> u = Unpack<TFrameHead>(wire, 0);
    EXPECT_EQ(+u->chCmd, static_cast<int8_t>(cmd));
    EXPECT_EQ(+u->iConnIdx, 0x05060708);
  }
}

TEST(TFrameHeadCommands, ExchangeVersionBodyStartsAtVersion12) {
  std::unique_ptr<TFrameHead> h = BareHead(TFRAMEHEAD_CMD_EXGVER);
  h->stCmdData.stExgVer.iVersion = 0x0000ABCD;
  const Bytes v11 = {
      0x0B, 0x0A, 0x00, 0x00,  // chVer 11, chCmd EXGVER, no extra info, no time stamp
      0x01, 0x02, 0x03, 0x04,  // iID
      0x05, 0x06, 0x07, 0x08,  // iConnIdx
                               // body member added in 12: left out
  };
  const Bytes v12 = {
      0x0C, 0x0A, 0x00, 0x00,  // chVer 12, chCmd EXGVER
      0x01, 0x02, 0x03, 0x04,  // iID
      0x05, 0x06, 0x07, 0x08,  // iConnIdx
      0x00, 0x00, 0xAB, 0xCD,  // stExgVer.iVersion
  };
  EXPECT_EQ(Pack(*h, 11), v11);
  EXPECT_EQ(Pack(*h, 12), v12);
  EXPECT_EQ(+Unpack<TFrameHead>(v12, 0)->stCmdData.stExgVer.iVersion, 0xABCD);
  std::unique_ptr<TFrameHead> u = Unpack<TFrameHead>(v11, 0);
  EXPECT_EQ(+u->chCmd, TFRAMEHEAD_CMD_EXGVER);
}

TEST(TFrameHeadCommands, BroadcastReusesBroadcastAllFromVersion27) {
  std::unique_ptr<TFrameHead> all = BareHead(TFRAMEHEAD_CMD_WEB_BROADCAST_ALL);
  all->stCmdData.stWebBroadcastAll.chValid = 1;
  all->stCmdData.stWebBroadcastAll.chNoEnc = 0x22;
  std::unique_ptr<TFrameHead> bc = BareHead(TFRAMEHEAD_CMD_BROADCAST);
  bc->stCmdData.stBroadcast.chValid = 1;
  bc->stCmdData.stBroadcast.chNoEnc = 0x22;

  Bytes a27 = Pack(*all, 27);
  Bytes b27 = Pack(*bc, 27);
  ASSERT_EQ(a27.size(), 35u);
  EXPECT_EQ(a27[33], 0x01);  // chValid
  EXPECT_EQ(a27[34], 0x22);  // chNoEnc
  EXPECT_EQ(b27[1], TFRAMEHEAD_CMD_BROADCAST);
  b27[1] = TFRAMEHEAD_CMD_WEB_BROADCAST_ALL;
  EXPECT_EQ(a27, b27);

  EXPECT_EQ(Pack(*all, 26).size(), 35u);
  EXPECT_EQ(Pack(*bc, 26).size(), 33u);   // member added in 27
  EXPECT_EQ(Pack(*all, 14).size(), 13u);  // member added in 15
  EXPECT_EQ(+Unpack<TFrameHead>(Pack(*bc, 0), 0)->stCmdData.stBroadcast.chNoEnc, 0x22);
}

// ---------------------------------------------------------------------------------------------
// Authentication union: the four MX kinds by id, the service token for every other type.

TEST(TFrameAuthDataUnion, EveryOtherTypeCarriesTheServiceTokenFromVersion17) {
  TFrameAuthData u;
  std::memset(static_cast<void*>(&u), 0, sizeof(u));
  TFrameAuthAPS& aps = u.stAuthService;
  aps.wAtkLen = 2;
  aps.szAtk[0] = 'A';
  aps.szAtk[1] = 'B';
  aps.dwAtkExpireIn = 7200;
  aps.wAuthExDataVer = 1;
  aps.wAuthExDataLen = 1;
  aps.szAuthExData[0] = 0x5A;
  const Bytes expect = {
      0x00, 0x02,              // wAtkLen
      'A', 'B',                // szAtk
      0x00, 0x00, 0x1C, 0x20,  // dwAtkExpireIn 7200
      0x00, 0x01,              // wAuthExDataVer
      0x00, 0x01,              // wAuthExDataLen
      0x5A,                    // szAuthExData
  };
  for (long type : {0L, 5L, 4096L, 4118L, 8193L, 65535L, -1L}) {
    char area[64];
    std::memset(area, kSentinel, sizeof(area));
    size_t used = 0;
    ASSERT_EQ(u.pack(type, area, sizeof(area), &used, 17), 0) << type;
    EXPECT_EQ(Bytes(area, area + used), expect) << type;
    EXPECT_EQ(u.pack(type, area, sizeof(area), &used, 16), 0);
    EXPECT_EQ(used, 0u) << type;

    TFrameAuthData back;
    std::memset(static_cast<void*>(&back), 0xEE, sizeof(back));
    ASSERT_EQ(back.unpack(type, reinterpret_cast<const char*>(expect.data()), expect.size(), &used, 0), 0);
    EXPECT_EQ(used, expect.size());
    EXPECT_EQ(+back.stAuthService.dwAtkExpireIn, 7200u);
    EXPECT_EQ(+back.stAuthService.szAuthExData[0], 0x5A);
  }

  // An MX kind is not the service token and is present at 16.
  for (long type : {1L, 2L, 3L, 4L}) {
    char area[64];
    size_t used = 0;
    ASSERT_EQ(u.pack(type, area, sizeof(area), &used, 16), 0);
    EXPECT_NE(used, 0u);
    EXPECT_NE(Bytes(area, area + used), expect);
  }
}

TEST(TFrameAuthMXRefer, SignatureLengthIsSigned) {
  std::unique_ptr<TFrameAuthMX> mx = Fresh<TFrameAuthMX>();
  mx->nSigLen = -1;
  Pack(*mx, 0, VixError::VIX_ERR_MINUS_REFER_VALUE);
  mx->nSigLen = TFRAMEHEAD_MAX_SIG_LEN + 1;
  Pack(*mx, 0, VixError::VIX_ERR_REFER_SURPASS_COUNT);
  mx->nSigLen = TFRAMEHEAD_MAX_SIG_LEN;
  EXPECT_EQ(Pack(*mx, 0).size(), 4u + 2u + 4u + 2u + 1024u + 4u);

  const Bytes negative = {
      0x00, 0x00, 0x00, 0x01,  // dwUin
      0x00, 0x01,              // nSigVer
      0x00, 0x00, 0x00, 0x02,  // dwSigTime
      0xFF, 0xFE,              // nSigLen -2
  };
  EXPECT_EQ(UnpackRc<TFrameAuthMX>(negative, 0), VixError::VIX_ERR_MINUS_REFER_VALUE);
}

// ---------------------------------------------------------------------------------------------
// INPROC: optional account, counted idents, optional lwip block.

TEST(TFrameCmdInProcWire, OptionalRecordsAndCountedIdents) {
  std::unique_ptr<TFrameCmdInProc> p = Fresh<TFrameCmdInProc>();
  p->chValid = 1;
  p->chNoEnc = 0;
  p->chSendImmediately = 1;
  p->bHasAccount = 1;
  p->stUserAccount.wType = 2;
  p->stUserAccount.bFormat = TFRAMEHEAD_ID_UINT32;
  p->stUserAccount.stValue.dwUINT32 = 12345;
  p->stUserAccount.ullUid = 42;
  p->nCount = 1;
  p->astIdents[0].iID = 5;
  p->astIdents[0].iConnIdx = 6;
  p->astIdents[0].ullExtend = 7;
  p->astIdents[0].ullCallBack = 8;
  p->astIdents[1].iID = 99;  // beyond nCount: not sent
  p->bHaveLwipData = 1;
  p->stLwipDataInfo.wMtu = 1500;
  p->stLwipDataInfo.iReserve1 = 1;
  p->stLwipDataInfo.iReserve4 = -1;
  p->dwAlternateLinkTimeStampMs = 1000;
  p->dwIs_down_alternate_link_enabled = 1;
  p->bAlternateLinkCount = 0;
  const Bytes v35 = {
      0x01,                                            // chValid
      0x00,                                            // chNoEnc
      0x01,                                            // chSendImmediately (since 27)
      0x01,                                            // bHasAccount
      0x00, 0x02,                                      // stUserAccount.wType
      0x01,                                            // stUserAccount.bFormat: UINT32
      0x00, 0x00, 0x30, 0x39,                          // stValue.dwUINT32 12345
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x2A,  // stUserAccount.ullUid
      0x00, 0x01,                                      // nCount
      0x00, 0x00, 0x00, 0x05,                          // astIdents[0].iID
      0x00, 0x00, 0x00, 0x06,                          // astIdents[0].iConnIdx
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x07,  // astIdents[0].ullExtend
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x08,  // astIdents[0].ullCallBack
      0x01,                                            // bHaveLwipData (since 30)
      0x05, 0xDC,                                      // stLwipDataInfo.wMtu 1500
      0x00, 0x00, 0x00, 0x01,                          // iReserve1
      0x00, 0x00, 0x00, 0x00,                          // iReserve2
      0x00, 0x00, 0x00, 0x00,                          // iReserve3
      0xFF, 0xFF, 0xFF, 0xFF,                          // iReserve4 -1
      0x00, 0x00, 0x03, 0xE8,                          // dwAlternateLinkTimeStampMs
      0x00, 0x00, 0x00, 0x01,                          // dwIs_down_alternate_link_enabled
      0x00,                                            // bAlternateLinkCount: no addresses
  };
  EXPECT_EQ(Pack(*p, 0), v35);
  std::unique_ptr<TFrameCmdInProc> u = Unpack<TFrameCmdInProc>(v35, 0);
  EXPECT_EQ(+u->stUserAccount.stValue.dwUINT32, 12345u);
  EXPECT_EQ(+u->nCount, 1);
  EXPECT_EQ(+u->astIdents[0].ullCallBack, 8u);
  EXPECT_EQ(+u->stLwipDataInfo.wMtu, 1500);
  EXPECT_EQ(+u->stLwipDataInfo.iReserve4, -1);

  // Version 26: no chSendImmediately, no lwip flag or block.
  const Bytes v26 = Pack(*p, 26);
  ASSERT_EQ(v26.size(), v35.size() - 1u - 1u - 18u);
  EXPECT_EQ(v26[2], 0x01);  // bHasAccount follows chNoEnc
  std::unique_ptr<TFrameCmdInProc> old = Unpack<TFrameCmdInProc>(v26, 26);
  EXPECT_EQ(+old->chSendImmediately, 0);
  EXPECT_EQ(+old->bHaveLwipData, 0);
  EXPECT_EQ(+old->dwAlternateLinkTimeStampMs, 1000u);

  p->bHaveLwipData = 0;
  EXPECT_EQ(Pack(*p, 0).size(), v35.size() - 18u);
  p->bHasAccount = 0;
  EXPECT_EQ(Pack(*p, 0).size(), v35.size() - 18u - 15u);
  p->bHasAccount = 2;
  Pack(*p, 0, VixError::VIX_ERR_REFER_SURPASS_COUNT);
  p->bHasAccount = 0;
  p->nCount = TFRAMEHEAD_MAX_BATCH_IDENT + 1;
  Pack(*p, 0, VixError::VIX_ERR_REFER_SURPASS_COUNT);
  p->nCount = -1;
  Pack(*p, 0, VixError::VIX_ERR_MINUS_REFER_VALUE);
}

}  // namespace
