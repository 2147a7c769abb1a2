// Wire vectors of the frame head, worked out byte by byte from the record layouts, and the
// version rules that decide which entries a frame carries.

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tframehead.h"
#include "wire_vectors.h"

using kalmo_vix::VixError;
using namespace tframehead;

namespace {

using namespace wire;

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
        0x00, 0x02,              // nFamily
        0x1F, 0x90,              // wPort 8080
        0xC0, 0xA8, 0x00, 0x01,  // ulIp
        0x00, 0x00, 0x00, 0x01,  // ipv6_padding[0]
        0x00, 0x00, 0x00, 0x02,  // ipv6_padding[1]
        0x00, 0x00, 0x00, 0x03,  // ipv6_padding[2]
        0x00, 0x07,              // wIntf_type (since 31)
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
  EXPECT_EQ(Pack(*h, 0), kHeartbeatV35);    // 0 means the current version
  EXPECT_EQ(Pack(*h, 200), kHeartbeatV35);  // so does anything above it

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
  for (int i = 0; i < 16; ++i)
    s.stRelayData.stJumpRelayData.szConnData[i] = static_cast<unsigned char>(0x30 + i);
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
        0x01,  // bIsUidNew (since 19)
               // stSIPInfo (since 21)
        0x00, 0x02,              // nFamily
        0x00, 0x50,              // wPort 80
        0x0A, 0x00, 0x00, 0x01,  // ulIp
    },
    kZeros12,      // ipv6_padding
    {0x00, 0x01},  // wIntf_type
    kZeros36,      // counters
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
      'A',  'B',               // szAtk
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
    ASSERT_EQ(
        back.unpack(type, reinterpret_cast<const char*>(expect.data()), expect.size(), &used, 0),
        0);
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

// ---------------------------------------------------------------------------------------------
// Remaining command bodies and web records byte by byte: every field holds its own value, so a
// swapped, missing or resized field, a wrong signedness or a wrong version shows in the bytes.

// Packs at cutVer and compares; then decodes the expected bytes and packs them again.
template <class T>
void ExpectWire(const T& rec, unsigned cutVer, const Bytes& expect) {
  EXPECT_EQ(Pack(rec, cutVer), expect) << T::m_class_name << " at " << cutVer;
  std::unique_ptr<T> back = Unpack<T>(expect, cutVer);
  EXPECT_EQ(Pack(*back, cutVer), expect) << T::m_class_name << " decoded at " << cutVer;
}

void SetIdent(TFrameIdent& id, int base) {
  id.iID = base;
  id.iConnIdx = base + 1;
  id.ullExtend = static_cast<uint64_t>(base + 2);
  id.ullCallBack = static_cast<uint64_t>(base + 3);
}

Bytes Be32(uint32_t v) {
  return {static_cast<unsigned char>(v >> 24), static_cast<unsigned char>(v >> 16),
          static_cast<unsigned char>(v >> 8), static_cast<unsigned char>(v)};
}

Bytes Be64(uint64_t v) {
  return Cat({Be32(static_cast<uint32_t>(v >> 32)), Be32(static_cast<uint32_t>(v))});
}

// Packed size of a record at each version where one of its entries (or a nested one) appears.
template <class T>
void ExpectSizes(const T& rec, std::initializer_list<std::pair<unsigned, size_t>> steps) {
  for (const auto& st : steps)
    EXPECT_EQ(Pack(rec, st.first).size(), st.second) << T::m_class_name << " at " << st.first;
}

// An ident as TFrameIdent sends it: from version 18 with ullExtend.
Bytes IdentWire(int base, bool withExtend) {
  return withExtend ? Cat({Be32(base), Be32(base + 1), Be64(base + 2), Be64(base + 3)})
                    : Cat({Be32(base), Be32(base + 1), Be64(base + 3)});
}

TEST(TFrameCmdBodiesWire, StopCarriesTheAccountFromVersion22) {
  std::unique_ptr<TFrameCmdStop> s = Fresh<TFrameCmdStop>();
  s->iReason = -2;
  s->stUserAccount.wType = 0x0102;
  s->stUserAccount.bFormat = TFRAMEHEAD_ID_UINT64;
  s->stUserAccount.stValue.ullUINT64 = 0x0A0B0C0D0E0F1011ULL;
  s->stUserAccount.ullUid = 0x21;
  ExpectWire(*s, 22,
             {
                 0xFF, 0xFF, 0xFF, 0xFE,                          // iReason -2
                 0x01, 0x02,                                      // stUserAccount.wType
                 0x02,                                            // bFormat: UINT64
                 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10, 0x11,  // stValue.ullUINT64
                 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x21,  // ullUid
             });
  ExpectWire(*s, 21, {0xFF, 0xFF, 0xFF, 0xFE});
}

TEST(TFrameCmdBodiesWire, RelayIdentsAccountAddressAndExtension) {
  std::unique_ptr<TFrameCmdRelay> r = Fresh<TFrameCmdRelay>();
  r->dwUin = 0x01000001u;
  r->iRelayType = 3;
  SetIdent(r->stOld, 0x10);
  SetIdent(r->stNew, 0x20);
  r->stUserAccount.wType = 1;
  r->stUserAccount.bFormat = TFRAMEHEAD_ID_UINT32;
  r->stUserAccount.stValue.dwUINT32 = 0x77;
  r->stUserAccount.ullUid = 9;
  r->stSIPInfo.nFamily = 2;
  r->stSIPInfo.wPort = 0x1234;
  r->stSIPInfo.ulIp = 0x7F000001u;
  r->stSIPInfo.wIntf_type = 5;
  r->dwConnectExtInt = 0xCAFE;
  const Bytes head = {
      0x01, 0x00, 0x00, 0x01,  // dwUin
      0x00, 0x00, 0x00, 0x03,  // iRelayType
  };
  ExpectWire(
      *r, 35,
      Cat({
          head,
          IdentWire(0x10, true),
          IdentWire(0x20, true),
          {0x00, 0x01, 0x01, 0x00, 0x00, 0x00, 0x77},        // account: wType, bFormat, dwUINT32
          Be64(9),                                           // ullUid
          {0x00, 0x02, 0x12, 0x34, 0x7F, 0x00, 0x00, 0x01},  // stSIPInfo: family, port, address
          Bytes(12, 0x00),                                   // ipv6_padding
          {0x00, 0x05},                                      // wIntf_type
          Bytes(36, 0x00),                                   // counters
          {0x00, 0x00, 0xCA, 0xFE},                          // dwConnectExtInt (since 29)
      }));
  // 17: idents without ullExtend, an account without uid, no address, no extension.
  ExpectWire(*r, 17,
             Cat({head,
                  IdentWire(0x10, false),
                  IdentWire(0x20, false),
                  {0x00, 0x01, 0x01, 0x00, 0x00, 0x00, 0x77}}));
  ExpectWire(*r, 16, Cat({head, IdentWire(0x10, false), IdentWire(0x20, false)}));
  // 17 account (7), 18 ullExtend in both idents, 19 uid, 21 address (56), 29 extension,
  // 31 wIntf_type.
  ExpectSizes(*r, {{10, 40},
                   {16, 40},
                   {17, 47},
                   {18, 63},
                   {19, 71},
                   {20, 71},
                   {21, 127},
                   {28, 127},
                   {29, 131},
                   {30, 131},
                   {31, 133},
                   {35, 133}});
}

TEST(TFrameCmdBodiesWire, NotifyWithRoutingOption) {
  std::unique_ptr<TFrameCmdNotify> n = Fresh<TFrameCmdNotify>();
  n->dwUin = 0x0A;
  for (int i = 0; i < 16; ++i) {
    n->szConnKey[i] = static_cast<int8_t>(0x10 + i);
    n->szIdentity[i] = static_cast<int8_t>(0x20 + i);
  }
  n->bISetRouting = TFRAMEHEAD_SET_ROUTING;
  TFrameCmdSetRouting& sr = n->stRouting.stCmdRouting;
  std::strcpy(sr.szSerializerName, "ser");
  sr.iID = 0x0B;
  sr.ullExtend = 0x0C;
  sr.iBizDataLen = 2;
  sr.szBizData[0] = 0xB1;
  sr.szBizData[1] = 0xB2;
  n->chNeedLineUp = 1;
  const Bytes keys = {
      0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18, 0x19, 0x1A,
      0x1B, 0x1C, 0x1D, 0x1E, 0x1F, 0x20, 0x21, 0x22, 0x23, 0x24, 0x25,
      0x26, 0x27, 0x28, 0x29, 0x2A, 0x2B, 0x2C, 0x2D, 0x2E, 0x2F,
  };
  const Bytes name = {0x00, 0x00, 0x00, 0x04, 's', 'e', 'r', 0x00};  // szSerializerName
  ExpectWire(*n, 33,
             Cat({
                 Be32(0x0A),
                 keys,    // dwUin, szConnKey and szIdentity always whole
                 {0x01},  // bISetRouting
                 name,
                 Be32(0x0B),
                 Be64(0x0C),
                 Be32(2),
                 {0xB1, 0xB2},  // stCmdRouting
                 {0x01},        // chNeedLineUp (since 22)
             }));
  // 17: no ullExtend in the routing, no chNeedLineUp.
  ExpectWire(*n, 17, Cat({Be32(0x0A), keys, {0x01}, name, Be32(0x0B), Be32(2), {0xB1, 0xB2}}));
  ExpectSizes(*n, {{10, 55}, {17, 55}, {18, 63}, {21, 63}, {22, 64}, {33, 64}});
  n->bISetRouting = 0;
  ExpectWire(*n, 33, Cat({Be32(0x0A), keys, {0x00, 0x01}}));
}

TEST(TFrameCmdBodiesWire, ClusterAndServiceRouting) {
  std::unique_ptr<TFrameCmdClusterSetRouting> c = Fresh<TFrameCmdClusterSetRouting>();
  c->iNewID = 1;
  c->ullNewExtend = 2;
  c->iRouteType = 3;
  c->ullServerID = 4;
  c->dwTypeID = 5;
  c->dwZoneID = 6;
  c->iBizDataLen = 1;
  c->szBizData[0] = 0xEE;
  ExpectWire(*c, 25, Cat({Be32(1), Be64(2), Be32(3), Be64(4), Be32(5), Be32(6), Be32(1), {0xEE}}));

  std::unique_ptr<TFrameCmdClusterSetRoutingRsp> cr = Fresh<TFrameCmdClusterSetRoutingRsp>();
  cr->iResult = -1;
  cr->ullTargetServerID = 0x0102030405060708ULL;
  ExpectWire(*cr, 25, Cat({Be32(0xFFFFFFFFu), Be64(0x0102030405060708ULL)}));

  std::unique_ptr<TFrameCmdServiceSetRoutingReq> q = Fresh<TFrameCmdServiceSetRoutingReq>();
  std::strcpy(q->szServiceName, "svc");
  std::strcpy(q->szUserData, "u");
  q->iBizDataLen = 1;
  q->szBizData[0] = 0x42;
  q->iNewID = 0x11;
  const Bytes req = {
      0x00, 0x00, 0x00, 0x04, 's',  'v',  'c', 0x00,  // szServiceName
      0x00, 0x00, 0x00, 0x02, 'u',  0x00,             // szUserData
      0x00, 0x00, 0x00, 0x01, 0x42,                   // iBizDataLen, szBizData
  };
  ExpectWire(*q, 34, Cat({req, Be32(0x11)}));  // iNewID since 34
  ExpectWire(*q, 33, req);

  std::unique_ptr<TFrameCmdServiceSetRoutingRsp> rsp = Fresh<TFrameCmdServiceSetRoutingRsp>();
  rsp->iResult = 2;
  std::strcpy(rsp->szServiceName, "a");
  std::strcpy(rsp->szUserData, "b");
  ExpectWire(*rsp, 32,
             {0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x02, 'a', 0x00, 0x00, 0x00, 0x00, 0x02,
              'b', 0x00});

  // The notify carries a whole START body first; its own entries follow.
  std::unique_ptr<TFrameCmdServiceRoutingNotify> nt = Fresh<TFrameCmdServiceRoutingNotify>();
  nt->stStart.iWaitTime = 77;
  nt->iBizDataLen = 2;
  nt->szBizData[0] = 0x01;
  nt->szBizData[1] = 0x02;
  nt->iNewID = 0x0D;
  nt->ullNewExtend = 0x0E;
  const Bytes start34 = Pack(nt->stStart, 34);
  const Bytes start33 = Pack(nt->stStart, 33);
  // An empty START at 33 and 34: account 11, ullReserved 8, iAuthType 4, the service token (auth
  // type 0) 10, iWaitTime, iClientType 8, two flags 2, two addresses 116, two words 8.
  ASSERT_EQ(start34.size(), 167u);
  ASSERT_EQ(start33.size(), 167u);
  ExpectWire(*nt, 34, Cat({start34, Be32(2), {0x01, 0x02}, Be32(0x0D), Be64(0x0E)}));
  ExpectWire(*nt, 33, Cat({start33, Be32(2), {0x01, 0x02}, Be32(0x0D)}));
}

// Byte counts declared signed refuse a negative value; an unsigned one would read it as huge.
TEST(TFrameCmdBodiesWire, SignedByteCountsRefuseNegativeValues) {
  std::unique_ptr<TFrameCmdSetRouting> sr = Fresh<TFrameCmdSetRouting>();
  std::unique_ptr<TFrameCmdClusterSetRouting> cs = Fresh<TFrameCmdClusterSetRouting>();
  std::unique_ptr<TFrameCmdServiceSetRoutingReq> sq = Fresh<TFrameCmdServiceSetRoutingReq>();
  std::unique_ptr<TFrameCmdServiceRoutingNotify> sn = Fresh<TFrameCmdServiceRoutingNotify>();
  std::unique_ptr<TFrameCmdRoutingRegister> rr = Fresh<TFrameCmdRoutingRegister>();
  sr->iBizDataLen = cs->iBizDataLen = sq->iBizDataLen = sn->iBizDataLen = -1;
  rr->iArgsLen = -1;
  Pack(*sr, 0, VixError::VIX_ERR_MINUS_REFER_VALUE);
  Pack(*cs, 0, VixError::VIX_ERR_MINUS_REFER_VALUE);
  Pack(*sq, 0, VixError::VIX_ERR_MINUS_REFER_VALUE);
  Pack(*sn, 0, VixError::VIX_ERR_MINUS_REFER_VALUE);
  Pack(*rr, 0, VixError::VIX_ERR_MINUS_REFER_VALUE);
  EXPECT_EQ(UnpackRc<TFrameCmdRoutingRegister>({0xFF, 0xFF, 0xFF, 0xFF}, 0),
            VixError::VIX_ERR_MINUS_REFER_VALUE);
  EXPECT_EQ(
      UnpackRc<TFrameCmdClusterSetRouting>(Cat({Bytes(32, 0x00), {0x80, 0x00, 0x00, 0x00}}), 0),
      VixError::VIX_ERR_MINUS_REFER_VALUE);
}

TEST(TFrameCmdBodiesWire, SmallControlBodies) {
  std::unique_ptr<TFrameCmdSetConnLimit> cl = Fresh<TFrameCmdSetConnLimit>();
  std::strcpy(cl->szNetTransName, "tcp");
  cl->iPermit = 100;
  cl->iSpeed = -1;
  ExpectWire(*cl, 10,
             Cat({{0x00, 0x00, 0x00, 0x04, 't', 'c', 'p', 0x00}, Be32(100), Be32(0xFFFFFFFFu)}));

  std::unique_ptr<TFrameCmdSetWaitCtr> wc = Fresh<TFrameCmdSetWaitCtr>();
  wc->iWaitCtrOn = 1;
  wc->iPermitNum = 0x200;
  ExpectWire(*wc, 13, Cat({Be32(1), Be32(0x200)}));

  std::unique_ptr<TFrameCmdRoutingRegister> rr = Fresh<TFrameCmdRoutingRegister>();
  rr->iArgsLen = 3;
  rr->szRoutingArgs[0] = 'a';
  rr->szRoutingArgs[1] = '=';
  rr->szRoutingArgs[2] = -1;
  ExpectWire(*rr, 15, {0x00, 0x00, 0x00, 0x03, 'a', '=', 0xFF});
  EXPECT_EQ(+Unpack<TFrameCmdRoutingRegister>({0x00, 0x00, 0x00, 0x01, 0xFF}, 15)->szRoutingArgs[0],
            -1);

  std::unique_ptr<TFrameCmdNotifyOverload> ov = Fresh<TFrameCmdNotifyOverload>();
  ov->chStatus = 2;
  ov->dwCtrlTime = 0x3C;
  ov->dwReserved = 7;
  ExpectWire(*ov, 27, Cat({{0x02}, Be32(0x3C), Be32(7)}));

  std::unique_ptr<TFrameCmdNotifySendBuffExceed> ex = Fresh<TFrameCmdNotifySendBuffExceed>();
  ex->dwUsedBytes = 0x100;
  ex->dwTotalBytes = 0x400;
  ExpectWire(*ex, 32, Cat({Be32(0x100), Be32(0x400)}));

  std::unique_ptr<TFrameCmdAuthRefreshNotify> ar = Fresh<TFrameCmdAuthRefreshNotify>();
  ar->wAtkLen = 2;
  ar->szAtk[0] = 'x';
  ar->szAtk[1] = 'y';
  ar->dwAtkExpireIn = 60;
  ar->stUserAccount.wType = 3;
  ar->stUserAccount.bFormat = TFRAMEHEAD_ID_STRING;
  std::strcpy(ar->stUserAccount.stValue.szSTRING, "id");
  ar->stUserAccount.ullUid = 1;
  const Bytes token = {0x00, 0x02, 'x', 'y', 0x00, 0x00, 0x00, 0x3C};
  ExpectWire(*ar, 24,
             Cat({token, {0x00, 0x03, 0x03, 0x00, 0x00, 0x00, 0x03, 'i', 'd', 0x00}, Be64(1)}));
  ExpectWire(*ar, 23, token);

  std::unique_ptr<TFRAMEHEADAuthData> ad = Fresh<TFRAMEHEADAuthData>();
  ad->wAuthLen = 2;
  ad->szAuthInfo[0] = 0x01;
  ad->szAuthInfo[1] = 0x02;
  ExpectWire(*ad, 1, {0x00, 0x02, 0x01, 0x02});
}

TEST(TFrameCmdBodiesWire, MulticastGroupRecords) {
  const Bytes group = {0x00, 0x00, 0x00, 0x02, 'g', 0x00};
  const Bytes minusOne = Be32(0xFFFFFFFFu);
  TFrameCmdMultiCastRemoveGroupReq rgq;
  TFrameCmdMultiCastAddIdentReq aiq;
  TFrameCmdMultiCastRemoveIdentReq riq;
  TFrameCmdMultiCastQueryIdentReq qiq;
  TFrameCmdMultiCastQueryIdentCountReq qcq;
  for (char* name :
       {rgq.szGroupName, aiq.szGroupName, riq.szGroupName, qiq.szGroupName, qcq.szGroupName}) {
    std::memset(name, 0, QUELLD_MULTICAST_GROUPNAME_LEN);
    name[0] = 'g';
  }
  ExpectWire(rgq, 27, group);
  ExpectWire(aiq, 27, group);
  ExpectWire(riq, 27, group);
  ExpectWire(qiq, 27, group);
  ExpectWire(qcq, 27, group);

  // The three plain responses: the group name, then the result.
  TFrameCmdMultiCastRemoveGroupResp rgr;
  TFrameCmdMultiCastAddIdentResp air;
  TFrameCmdMultiCastRemoveIdentResp rir;
  std::memset(static_cast<void*>(&rgr), 0, sizeof(rgr));
  std::memset(static_cast<void*>(&air), 0, sizeof(air));
  std::memset(static_cast<void*>(&rir), 0, sizeof(rir));
  rgr.szGroupName[0] = air.szGroupName[0] = rir.szGroupName[0] = 'g';
  rgr.iResult = air.iResult = rir.iResult = -1;
  ExpectWire(rgr, 27, Cat({group, minusOne}));
  ExpectWire(air, 27, Cat({group, minusOne}));
  ExpectWire(rir, 27, Cat({group, minusOne}));

  // The query responses: the result first.
  std::unique_ptr<TFrameCmdMultiCastQueryIdentResp> qir = Fresh<TFrameCmdMultiCastQueryIdentResp>();
  qir->iResult = -1;
  qir->szGroupName[0] = 'g';
  qir->iIdentCount = 1;
  SetIdent(qir->astIdents[0], 0x30);
  ExpectWire(*qir, 27, Cat({minusOne, group, Be32(1), IdentWire(0x30, true)}));
  qir->iIdentCount = -1;
  Pack(*qir, 27, VixError::VIX_ERR_MINUS_REFER_VALUE);

  std::unique_ptr<TFrameCmdMultiCastQueryIdentCountResp> qcr =
      Fresh<TFrameCmdMultiCastQueryIdentCountResp>();
  qcr->iResult = -1;
  qcr->szGroupName[0] = 'g';
  qcr->iIdentCount = 7;
  ExpectWire(*qcr, 27, Cat({minusOne, group, Be32(7)}));

  std::unique_ptr<TFrameCmdMultiCastDeliverMsgReq> dm = Fresh<TFrameCmdMultiCastDeliverMsgReq>();
  dm->szGroupName[0] = 'g';
  dm->chNoEnc = 1;
  dm->chSendImmediately = 2;
  ExpectWire(*dm, 27, Cat({group, {0x01, 0x02}}));
}

TEST(TFrameCmdBodiesWire, WebRequestsAndEachUserKind) {
  std::unique_ptr<TFrameCmdWebStartReq> st = Fresh<TFrameCmdWebStartReq>();
  st->chUserType = TWEB_USER_MXSIMPLE;
  st->stUser.stMXUserSimple.dwUin = 0x1234;
  std::strcpy(st->stUser.stMXUserSimple.szSKey, "k");
  st->iWaitTime = 9;
  ExpectWire(*st, 10, Cat({{0x01}, Be32(0x1234), {0x00, 0x00, 0x00, 0x02, 'k', 0x00}, Be32(9)}));

  std::unique_ptr<TFrameCmdWebCommReq> cm = Fresh<TFrameCmdWebCommReq>();
  cm->chUserType = TWEB_USER_COMMON;
  cm->stUser.stCommonUser.dwId = 5;
  std::strcpy(cm->stUser.stCommonUser.szAccount, "ac");
  std::strcpy(cm->stUser.stCommonUser.szToken, "t");
  ExpectWire(*cm, 10,
             Cat({{0x02},
                  Be32(5),
                  {0x00, 0x00, 0x00, 0x03, 'a', 'c', 0x00},
                  {0x00, 0x00, 0x00, 0x02, 't', 0x00}}));

  std::unique_ptr<TFrameCmdWebStopReq> sp = Fresh<TFrameCmdWebStopReq>();
  sp->chUserType = TWEB_USER_MX_OPEN;
  MXOpenUser& o = sp->stUser.stMXOpen;
  std::strcpy(o.szOpenID, "o");
  std::strcpy(o.szToken, "tk");
  o.ullUid = 0x10;
  o.dwReserve1 = 0x20;
  o.ullReserve2 = 0x30;
  sp->iReason = -3;
  ExpectWire(*sp, 10,
             Cat({{0x03},
                  {0x00, 0x00, 0x00, 0x02, 'o', 0x00},
                  {0x00, 0x00, 0x00, 0x03, 't', 'k', 0x00},
                  Be64(0x10),
                  Be32(0x20),
                  Be64(0x30),
                  Be32(0xFFFFFFFDu)}));
  std::memset(static_cast<void*>(&sp->stUser), 0, sizeof(sp->stUser));
  sp->chUserType = TWEB_USER_UNKNOWN;
  ExpectWire(*sp, 10, Cat({{0x00}, Be32(0xFFFFFFFDu)}));
}

TEST(TFrameCmdBodiesWire, WebBroadcastIdentsByVersion) {
  std::unique_ptr<TFrameCmdWebBoardcast> b = Fresh<TFrameCmdWebBoardcast>();
  b->chValid = 1;
  b->chNoEnc = 0;
  b->nCount = 2;
  SetIdent(b->astIdents[0], 0x40);
  SetIdent(b->astIdents[1], 0x50);
  ExpectWire(*b, 25, Cat({{0x01, 0x00, 0x00, 0x02}, IdentWire(0x40, true), IdentWire(0x50, true)}));
  ExpectWire(*b, 17,
             Cat({{0x01, 0x00, 0x00, 0x02}, IdentWire(0x40, false), IdentWire(0x50, false)}));
  ExpectSizes(*b, {{18, 52}});
  b->nCount = -1;
  Pack(*b, 25, VixError::VIX_ERR_MINUS_REFER_VALUE);

  std::unique_ptr<TFrameCmdWebBroadcastAllRsp> r = Fresh<TFrameCmdWebBroadcastAllRsp>();
  r->chFailed = -1;
  ExpectWire(*r, 10, {0xFF});
}

TEST(TFrameWapRecordsWire, UploadAndDownload) {
  std::unique_ptr<TWapUpload2> up = Fresh<TWapUpload2>();
  up->chUserType = TWEB_USER_MXSIMPLE;
  up->stUser.stMXUserSimple.dwUin = 1;
  std::strcpy(up->stUser.stMXUserSimple.szSKey, "s");
  std::strcpy(up->szURI, "/");
  up->stParams.bCount = 1;
  std::strcpy(up->stParams.astParams[0].szKey, "a");
  std::strcpy(up->stParams.astParams[0].szValue, "b");
  up->stCookies.bCount = 1;
  std::strcpy(up->stCookies.astCookies[0].szKey, "c");
  std::strcpy(up->stCookies.astCookies[0].szValue, "d");
  ExpectWire(*up, 1,
             {
                 0x01,                               // chUserType
                 0x00, 0x00, 0x00, 0x01,             // stUser.stMXUserSimple.dwUin
                 0x00, 0x00, 0x00, 0x02, 's', 0x00,  // szSKey
                 0x00, 0x00, 0x00, 0x02, '/', 0x00,  // szURI
                 0x01,                               // stParams.bCount
                 0x00, 0x00, 0x00, 0x02, 'a', 0x00,  // szKey
                 0x00, 0x00, 0x00, 0x02, 'b', 0x00,  // szValue
                 0x00,                               // stHeaders.bCount
                 0x01,                               // stCookies.bCount
                 0x00, 0x00, 0x00, 0x02, 'c', 0x00, 0x00, 0x00, 0x00, 0x02, 'd', 0x00,
             });

  std::unique_ptr<TWapDownload2> down = Fresh<TWapDownload2>();
  down->stHeaders.bCount = 1;
  std::strcpy(down->stHeaders.astHeaders[0].szKey, "h");
  std::strcpy(down->stHeaders.astHeaders[0].szValue, "v");
  std::strcpy(down->szBody, "ok");
  ExpectWire(*down, 1,
             {
                 0x01,  // stHeaders.bCount
                 0x00, 0x00, 0x00, 0x02, 'h',  0x00, 0x00, 0x00, 0x00, 0x02,
                 'v',  0x00, 0x00, 0x00, 0x00, 0x03, 'o',  'k',  0x00,  // szBody
             });
  down->stHeaders.bCount = QUELLD_WAP_MAX_HEADERS_COU + 1;
  Pack(*down, 1, VixError::VIX_ERR_REFER_SURPASS_COUNT);
}

// Capacities bound what unpack accepts (-3 for strings, -7 for counts), so they are part of the
// protocol as much as the field order.
static_assert(sizeof(MXUserSimp::szSKey) == 128 && sizeof(CommUser::szAccount) == 31 &&
                  sizeof(CommUser::szToken) == 201 && sizeof(MXOpenUser::szOpenID) == 128 &&
                  sizeof(MXOpenUser::szToken) == 256 && sizeof(TFRAMEHEADIDValue::szSTRING) == 256,
              "web user and account capacities");
static_assert(sizeof(TKeyValue2::szKey) == 30 && sizeof(TKeyValue2::szValue) == 200 &&
                  sizeof(TParams2::astParams) == 20 * sizeof(TKeyValue2) &&
                  sizeof(THeaders2::astHeaders) == 20 * sizeof(TKeyValue2) &&
                  sizeof(TCookies2::astCookies) == 20 * sizeof(TKeyValue2) &&
                  sizeof(TWapUpload2::szURI) == 1024 && sizeof(TWapDownload2::szBody) == 102400,
              "web gateway capacities");
static_assert(sizeof(TFRAMEHEADAuthData::szAuthInfo) == 4096 &&
                  sizeof(TIPInfo::ipv6_padding) == 12 && sizeof(TFrameAuthMX::szSigBuff) == 1024 &&
                  sizeof(TFrameAuthMX::szAuthExData) == 1024 &&
                  sizeof(TFrameAuthAPS::szAtk) == 4096 &&
                  sizeof(TFrameAuthAPS::szAuthExData) == 1024 &&
                  sizeof(JumpRelayData::szConnData) == 16 &&
                  sizeof(TFrameCmdAuthRefreshNotify::szAtk) == 4096,
              "authentication and address capacities");
static_assert(sizeof(TFrameCmdInProc::astIdents) == 512 * sizeof(TFrameIdent) &&
                  sizeof(TFrameCmdInProc::astSIPInfo) == 20 * sizeof(TIPInfo) &&
                  sizeof(TFrameCmdWebBoardcast::astIdents) == 512 * sizeof(TFrameIdent) &&
                  sizeof(TFrameCmdMultiCastQueryIdentResp::astIdents) ==
                      512 * sizeof(TFrameIdent) &&
                  sizeof(TFrameCmdMultiCastDeliverMsgReq::szGroupName) == 64 &&
                  sizeof(TFrameCmdNotify::szConnKey) == 16 &&
                  sizeof(TFrameCmdNotify::szIdentity) == 16 &&
                  sizeof(TFrameCmdRoutingRegister::szRoutingArgs) == 128,
              "batch and key capacities");
static_assert(sizeof(TFrameCmdSetRouting::szSerializerName) == 32 &&
                  sizeof(TFrameCmdSetRouting::szBizData) == 1024 &&
                  sizeof(TFrameCmdClusterSetRouting::szBizData) == 1024 &&
                  sizeof(TFrameCmdServiceSetRoutingReq::szServiceName) == 128 &&
                  sizeof(TFrameCmdServiceSetRoutingReq::szUserData) == 128 &&
                  sizeof(TFrameCmdServiceSetRoutingReq::szBizData) == 1024 &&
                  sizeof(TFrameCmdServiceSetRoutingRsp::szServiceName) == 128 &&
                  sizeof(TFrameCmdServiceSetRoutingRsp::szUserData) == 128 &&
                  sizeof(TFrameCmdServiceRoutingNotify::szBizData) == 1024 &&
                  sizeof(TFrameCmdSetConnLimit::szNetTransName) == 32,
              "routing capacities");

}  // namespace
